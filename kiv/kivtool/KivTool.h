// The kiv command as a function.
#pragma once

#include <cstdint>
#include <vector>

#include "KivSysText.h"

namespace kiv {

// The program's name first. Gives the exit code, a KivToolExit.
int32_t KivRunTool(const std::vector<KivWString>& vcsArguments);

}  // namespace kiv
