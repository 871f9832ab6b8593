// The kiv command.
#include "KivSysMain.h"
#include "KivTool.h"

int32_t kiv::KivMain(const std::vector<KivWString>& vcsArguments) {
  return KivRunTool(vcsArguments);
}
