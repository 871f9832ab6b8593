#include "KivSysThread.h"

#include <process.h>

#include <memory>
#include <utility>

#include "KivSysWindows.h"

namespace kiv::sys {
namespace {

unsigned __stdcall RunBody(void* pArgument) {
  const std::unique_ptr<std::function<void()>> pfnBody(static_cast<std::function<void()>*>(pArgument));
  (*pfnBody)();
  return 0;
}

}  // namespace

bool StartThread(std::function<void()> pfnBody, uint32_t iStackSize) {
  if (FaultFails(KivSysCall::ThreadStart)) return false;
  auto pzBody = std::make_unique<std::function<void()>>(std::move(pfnBody));
  const uintptr_t hThread = _beginthreadex(nullptr, iStackSize, RunBody, pzBody.get(), 0, nullptr);
  if (hThread == 0) return false;
  (void)pzBody.release();  // the thread owns it now
  CloseHandle(ToHandle(static_cast<intptr_t>(hThread)));
  return true;
}

}  // namespace kiv::sys
