// What asks for the domains of this machine can be answered by a test.
#include <mutex>
#include <utility>

#include "KivSysLocale.h"

namespace kiv::sys {
namespace {

std::mutex g_zHookLock;
std::function<bool(KivSysDomain, KivWString&)> g_pfnHook;

}  // namespace

bool DnsDomain(KivSysDomain iDomain, KivWString& csDomain) {
  std::function<bool(KivSysDomain, KivWString&)> pfnHook;
  {
    const std::lock_guard zGuard(g_zHookLock);
    pfnHook = g_pfnHook;
  }
  return pfnHook ? pfnHook(iDomain, csDomain) : SystemDnsDomain(iDomain, csDomain);
}

void SetDomainHook(std::function<bool(KivSysDomain, KivWString&)> pfnHook) {
  const std::lock_guard zGuard(g_zHookLock);
  g_pfnHook = std::move(pfnHook);
}

}  // namespace kiv::sys
