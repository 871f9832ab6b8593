#include "KivSysResource.h"

#include "KivSysWindows.h"

namespace kiv::sys {

bool HasKivDataResource() {
  return FindResourceW(nullptr, L"KIV_DATA", L"RT_RCDATA") != nullptr;
}

}  // namespace kiv::sys
