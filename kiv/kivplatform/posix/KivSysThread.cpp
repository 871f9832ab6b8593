#include "KivSysThread.h"

#include <limits.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <utility>

#include "KivSysPosix.h"

namespace kiv::sys {
namespace {

void* RunBody(void* pArgument) {
  const std::unique_ptr<std::function<void()>> pzBody(static_cast<std::function<void()>*>(pArgument));
  (*pzBody)();
  return nullptr;
}

}  // namespace

bool StartThread(std::function<void()> pfnBody, uint32_t iStackSize) {
  return posix::FaultAllows(KivSysCall::ThreadStart) && posix::StartDetached(std::move(pfnBody), iStackSize);
}

bool posix::StartDetached(std::function<void()> pfnBody, uint32_t iStackSize) {
  // Thread-local data lies on the stack as well, and the sanitizers need room of their own.
  const auto nPage = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  size_t nStack = std::max<size_t>(iStackSize, 128 * 1024) + static_cast<size_t>(sysconf(_SC_THREAD_STACK_MIN));
  nStack = (nStack + nPage - 1) / nPage * nPage;

  auto pzBody = std::make_unique<std::function<void()>>(std::move(pfnBody));
  pthread_attr_t zAttributes;
  if (int iError = pthread_attr_init(&zAttributes); iError != 0) return posix::FailWith(iError);
  pthread_attr_setdetachstate(&zAttributes, PTHREAD_CREATE_DETACHED);
  pthread_attr_setstacksize(&zAttributes, nStack);
  pthread_t zThread;
  const int iError = pthread_create(&zThread, &zAttributes, RunBody, pzBody.get());
  pthread_attr_destroy(&zAttributes);
  if (iError != 0) return posix::FailWith(iError);
  static_cast<void>(pzBody.release());  // the thread's
  return true;
}

}  // namespace kiv::sys
