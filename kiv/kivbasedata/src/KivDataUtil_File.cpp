// Trees of folders, moves, the remains of ended processes.
#include <set>

#include "KivDataUtil.h"
#include "KivDataUtil_Format.h"
#include "KivSysClock.h"
#include "KivSysFolder.h"
#include "KivSysProcess.h"

namespace kiv {
namespace {

constexpr KivWStringView kTempFolderWord = u"ZUR_TMP_FOLDER";
constexpr KivWStringView kKeepMarker = u"_keep_folder.dat";
constexpr uint32_t kMoreTries = 5;
constexpr uint32_t kPauseMs = 100;

KivWString Join(const KivWString& csFolder, KivWStringView csName) {
  KivWString csPath = csFolder;
  csPath += sys::kSeparator;
  csPath += csName;
  return csPath;
}

// The first result that is not a failure, or that of the last try. Others may hold the file for a moment.
template <typename Try>
int32_t TryAgain(Try&& pfnTry) {
  int32_t iResult = pfnTry();
  for (uint32_t i = 0; i < kMoreTries && iResult != 0; ++i) {
    sys::SleepMs(kPauseMs);
    iResult = pfnTry();
  }
  return iResult;
}

KivWString WithoutEnd(const KivWString& csPath) {
  const size_t iLast = csPath.find_last_not_of(sys::kSeparator == u'/' ? u"/" : u"\\/");
  return csPath.substr(0, iLast + 1);
}

// The text behind the last dash; empty without one.
KivWString ProcessNumberOf(const KivWString& csFolderName) {
  const size_t iDash = csFolderName.rfind(u'-');
  return iDash == KivWString::npos ? KivWString() : csFolderName.substr(iDash + 1);
}

}  // namespace

KivRemoveTreeResult KivRemoveTree(const KivWString& csFolder) {
  if (csFolder.empty() || !sys::PathExists(csFolder)) return KivRemoveTreeResult::NoFolder;
  // A link goes itself, here as below: what it leads to is no part of the tree.
  if (sys::IsLink(csFolder))
    return sys::RemoveFileAt(WithoutEnd(csFolder)) ? KivRemoveTreeResult::Done : KivRemoveTreeResult::NotRemoved;
  if (sys::FolderExists(csFolder)) sys::ClearReadOnly(csFolder);  // first, since on Linux it keeps the entries as well
  std::vector<KivSysFolderEntry> vzEntries;
  if (!sys::ListFolder(csFolder, vzEntries)) return KivRemoveTreeResult::NotListed;
  for (const KivSysFolderEntry& zEntry : vzEntries) {
    const KivWString csPath = Join(csFolder, zEntry.m_csName);
    if (zEntry.m_bFolder) {
      KivRemoveTree(csPath);
    } else {
      sys::ClearReadOnly(csPath);
      sys::RemoveFileAt(csPath);
    }
  }
  const int32_t iResult = TryAgain([&] { return sys::RemoveFolder(csFolder) ? 0 : 1; });
  return iResult == 0 ? KivRemoveTreeResult::Done : KivRemoveTreeResult::NotRemoved;
}

bool KivRemoveOrphanFolders(const KivWString& csFolder, bool bLeaveOutThisProcess) {
  // The folders before the processes: one that starts in between has no folder in the list.
  std::vector<KivSysFolderEntry> vzEntries;
  if (!csFolder.empty()) sys::ListFolder(csFolder, vzEntries);
  std::vector<uint32_t> viIds;
  if (!sys::ListProcesses(viIds)) return false;  // who cannot tell the living must not delete
  if (!bLeaveOutThisProcess) viIds.push_back(sys::CurrentProcessNumber());
  std::set<KivWString> scsLiving;
  for (uint32_t iId : viIds)
    if (!bLeaveOutThisProcess || iId != sys::CurrentProcessNumber())
      scsLiving.insert(KivWidenAscii(std::to_string(iId)));

  bool bAllRemoved = true;
  for (const KivSysFolderEntry& zEntry : vzEntries) {
    if (!zEntry.m_bFolder || !zEntry.m_csName.starts_with(kTempFolderWord)) continue;
    if (scsLiving.contains(ProcessNumberOf(zEntry.m_csName))) continue;
    const KivWString csOrphan = Join(csFolder, zEntry.m_csName);
    if (KivFileExists(Join(csOrphan, kKeepMarker))) continue;
    if (KivRemoveTree(csOrphan) != KivRemoveTreeResult::Done) bAllRemoved = false;
  }
  sys::RemoveFolder(csFolder);
  return bAllRemoved;
}

int32_t KivMoveFile(const KivWString& csSource, const KivWString& csTarget, bool bCopy) {
  if (bCopy && TryAgain([&] { return sys::CopyFileTo(csSource, csTarget) ? 0 : 1; }) == 0) {
    sys::RemoveFileAt(csSource);
    return 0;
  }
  return TryAgain([&] { return sys::RenamePath(csSource, csTarget); });
}

void KivSplitPath(const KivWString& csPath, KivWString& csFolder, KivWString& csName) {
  const KivWString csWhole = csPath;  // an output may be the input
  const size_t iSeparator = csWhole.find_last_of(u"\\/");
  csFolder = iSeparator == KivWString::npos ? KivWString() : csWhole.substr(0, iSeparator);
  csName = iSeparator == KivWString::npos ? csWhole : csWhole.substr(iSeparator + 1);
}

bool KivFileExists(const KivWString& csPath) {
  return sys::PathExists(csPath);
}

}  // namespace kiv
