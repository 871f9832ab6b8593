// The validation of heaps can be watched by a test.
#include <mutex>
#include <utility>

#include "KivSysDiag.h"

namespace kiv::sys {
namespace {

std::mutex g_zHookLock;
std::function<bool()> g_pfnHook;

}  // namespace

bool ValidateHeaps() {
  std::function<bool()> pfnHook;
  {
    const std::lock_guard zGuard(g_zHookLock);
    pfnHook = g_pfnHook;
  }
  return pfnHook ? pfnHook() : ValidateSystemHeaps();
}

void SetHeapHook(std::function<bool()> pfnHook) {
  const std::lock_guard zGuard(g_zHookLock);
  g_pfnHook = std::move(pfnHook);
}

}  // namespace kiv::sys
