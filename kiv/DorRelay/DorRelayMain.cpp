// The relay's process: locale, language, the optional monitor marker, then the process runtime.
#include "DorEntry.h"
#include "DorRelay.h"
#include "KivSysMain.h"

int32_t kiv::KivMain(const std::vector<KivWString>& vcsArguments) {
  DorPrepareProcess();
  DorMakeMonitorMarker();
  KivExProcLib_SetHandlers(DorRelay_Tick, DorRelay_Poll, DorRelay_Dispatch);
  const int32_t iResult = KivExProcLib_Run(vcsArguments);
  KivExProcLib_CloseDown(iResult, true);
  return iResult;
}
