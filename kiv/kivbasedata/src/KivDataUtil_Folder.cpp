// Where the files of a process stand:
//   work folder   the text of the setter, or <module folder>/ZUR_TMP_FOLDER-<yyyymmdd>-<hhmmss>-<process id>
//   log folder    the text of the setter, or <work folder>/../Log
#include <map>

#include "KivDataUtil.h"
#include "KivDataUtil_Format.h"
#include "KivException.h"
#include "KivSysClock.h"
#include "KivSysFolder.h"
#include "KivSysProcess.h"

namespace kiv {
namespace {

constexpr char kSource[] = "src\\KivDataUtil";
constexpr char kTempFolderWord[] = "ZUR_TMP_FOLDER";

struct Folders {
  bool m_bWorkSettled = false;
  KivWString m_csWorkFolder;
  KivWString m_csWorkName;
  bool m_bLogSettled = false;
  KivWString m_csLogFolder;
  KivWString m_csModuleFolder;
  std::map<KivWString, KivWString> m_mapModule;
  uint32_t m_iCacheNumber = 0;
};

// Never destroyed: a report may come from the destructor of another process-wide object.
Folders& State() {
  static Folders& zFolders = *new Folders;
  return zFolders;
}

KivWString Join(const KivWString& csFolder, KivWStringView csName) {
  KivWString csPath = csFolder;
  csPath += sys::kSeparator;
  csPath += csName;
  return csPath;
}

void MakeFolderIfMissing(const KivWString& csFolder) {
  if (!sys::FolderExists(csFolder)) sys::MakeFolder(csFolder);
}

KivWString ProcessNumberText() {
  return KivWidenAscii(std::to_string(sys::CurrentProcessNumber()));
}

// Where a generated work folder stands. Programs of a Linux system are installed where their users cannot write.
KivWString GeneratedFolderParent() {
  const KivWString& csModuleFolder = KivGetModuleFolder();
  const bool bWindows = sys::kSeparator == u'\\';
  return bWindows || sys::CanWriteFolder(csModuleFolder) ? csModuleFolder : sys::PrivateTempFolder();
}

}  // namespace

bool KivSetWorkFolder(const KivWString& csFolder) {
  Folders& zState = State();
  if (zState.m_bWorkSettled) return csFolder.empty();
  KivWString csName = csFolder;
  KivWString csPath;
  if (csFolder.empty()) {
    csName = KivMakeTempFolderName();
    csPath = Join(GeneratedFolderParent(), csName);
  } else {
    csPath = sys::IsRelativePath(csFolder) ? Join(KivGetModuleFolder(), csFolder) : csFolder;
  }
  MakeFolderIfMissing(csPath);
  zState.m_csWorkName = std::move(csName);
  zState.m_csWorkFolder = std::move(csPath);
  zState.m_bWorkSettled = true;
  return true;
}

bool KivIsWorkFolderSettled() {
  return State().m_bWorkSettled;
}

const KivWString& KivGetWorkFolder() {
  if (!State().m_bWorkSettled) KivSetWorkFolder(KivWString());
  return State().m_csWorkFolder;
}

const KivWString& KivGetWorkFolderName() {
  KivGetWorkFolder();
  return State().m_csWorkName;
}

KivWString KivMakeTempFolderName() {
  KivSysLocalTime zTime;
  const int32_t err = sys::LocalTimeNow(zTime) ? 0 : 1;
  KIV_CHECK(err == 0);
  // "%s-%04ld%02ld%02ld-%02ld%02ld%02ld-" and "%ld"
  std::string strName = KivFormatText("%s-%04d%02d%02d-%02d%02d%02d-", kTempFolderWord, zTime.m_iYear, zTime.m_iMonth,
                                      zTime.m_iDay, zTime.m_iHour, zTime.m_iMinute, zTime.m_iSecond);
  return KivWidenAscii(strName) + ProcessNumberText();
}

KivWString KivGetWorkFileName() {
  return Join(KivGetWorkFolder(), u"work" + ProcessNumberText() + u".kiv");
}

KivWString KivGetWorkCacheName() {
  const KivWString csNumber = KivWidenAscii(std::to_string(++State().m_iCacheNumber));
  return Join(KivGetWorkFolder(), u"work" + ProcessNumberText() + u"-" + csNumber + u".cache");
}

KivWString KivGetShaderFolder() {
  return Join(KivGetWorkFolder(), u"shader_resource");
}

bool KivSetLogFolder(const KivWString& csFolder) {
  Folders& zState = State();
  if (zState.m_bLogSettled) return csFolder.empty();
  const KivWString csText = csFolder.empty() ? KivWString(u"Log") : csFolder;
  KivWString csPath = sys::IsRelativePath(csText) ? Join(KivGetModuleFolder(), csText) : csText;
  MakeFolderIfMissing(csPath);
  zState.m_csLogFolder = std::move(csPath);
  zState.m_bLogSettled = true;
  return true;
}

const KivWString& KivGetLogFolder() {
  if (!State().m_bLogSettled) KivSetLogFolder(Join(Join(KivGetWorkFolder(), u".."), u"Log"));
  return State().m_csLogFolder;
}

KivWString KivGetErrorLogPath() {
  return Join(KivGetLogFolder(), u"Error.log");
}

const KivWString& KivGetModuleFolder() {
  Folders& zState = State();
  if (zState.m_csModuleFolder.empty()) {
    KivWString csName;
    KivSplitPath(KivFindModule(KivWString()), zState.m_csModuleFolder, csName);
  }
  return zState.m_csModuleFolder;
}

const KivWString& KivFindModule(const KivWString& csName) {
  std::map<KivWString, KivWString>& mapModule = State().m_mapModule;
  const auto itKnown = mapModule.find(csName);
  if (itKnown != mapModule.end()) return itKnown->second;
  KivWString csPath;
  if (csName.empty()) {
    if (!sys::ProgramPath(csPath)) {
      KIV_FAIL();
      static const KivWString& csNone = *new KivWString;
      return csNone;
    }
  } else {
    const KivWString csSuffix(sys::kExecutableSuffix);
    csPath = Join(KivGetWorkFolder(), csName + csSuffix);
    if (!KivFileExists(csPath)) csPath = Join(KivGetModuleFolder(), csName + u"_x64" + csSuffix);
    if (!KivFileExists(csPath)) csPath = Join(KivGetModuleFolder(), csName + csSuffix);
  }
  return mapModule.emplace(csName, std::move(csPath)).first->second;
}

}  // namespace kiv
