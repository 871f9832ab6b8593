#include "DorEntry.h"

#include <string>

#include "KivDataSpaceBase.h"
#include "KivExProcLib.h"
#include "KivSysFile.h"
#include "KivSysFolder.h"
#include "KivSysLocale.h"
#include "KivSysProcess.h"

namespace kiv {

void DorPrepareProcess() {
  sys::SetUncaughtExitCode(kKivExProcFatal);
  sys::SetUserLocaleWithPoint();
  KivDataSpaceBase::GetInstance()->m_iLanguageId = static_cast<uint16_t>(sys::LanguageId());
}

void DorMakeMonitorMarker() {
  KivWString csFolder;
  if (!sys::EnvironmentText(u"TW_PROCESS_MONITOR_FOLDER", csFolder) || csFolder.empty()) return;
  sys::MakeFolder(csFolder);
  const std::string strPid = std::to_string(static_cast<int32_t>(sys::CurrentProcessNumber()));
  // Stays open to the end of the process.
  static KivSysFile zMarker;
  zMarker =
      KivSysFile::Open(csFolder + sys::kSeparator + u"ZurProc" + sys::Utf8ToWide(strPid),
                       {KivSysAccess::ReadWrite, KivSysShare::None, KivSysDisposition::CreateAlways,
                        KivSysFileFlags::Temporary | KivSysFileFlags::RandomAccess | KivSysFileFlags::DeleteOnClose});
}

}  // namespace kiv
