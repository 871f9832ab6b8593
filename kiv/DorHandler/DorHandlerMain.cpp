// The handler's process.
#include "DorEntry.h"
#include "DorHandler.h"
#include "KivExProcLib.h"
#include "KivSysMain.h"

int32_t kiv::KivMain(const std::vector<KivWString>& vcsArguments) {
  DorPrepareProcess();
  DorMakeMonitorMarker();
  KivExProcLib_SetHandlers(DorHandlerTick, DorHandlerPoll, DorHandlerDispatch);
  const int32_t iResult = KivExProcLib_Run(vcsArguments);
  KivExProcLib_CloseDown(iResult, true);
  return iResult;
}
