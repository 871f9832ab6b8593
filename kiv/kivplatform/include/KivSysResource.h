// Data resources of the running executable.
#pragma once

namespace kiv::sys {

// True if the executable holds the resource "KIV_DATA" of the type named by the text "RT_RCDATA" (Windows), or the
// note section of that name (Linux).
bool HasKivDataResource();

}  // namespace kiv::sys
