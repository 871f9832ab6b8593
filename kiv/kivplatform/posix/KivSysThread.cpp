#include "KivSysThread.h"

#include <limits.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <new>
#include <utility>

#include "KivSysPosix.h"

namespace kiv {
namespace {

pthread_rwlock_t* LockOf(unsigned char* pState) {
  return std::launder(reinterpret_cast<pthread_rwlock_t*>(pState));
}

}  // namespace

KivSysSharedLock::KivSysSharedLock() noexcept {
  static_assert(sizeof(pthread_rwlock_t) <= sizeof m_acState && alignof(pthread_rwlock_t) <= 8);
  pthread_rwlock_init(new (m_acState) pthread_rwlock_t, nullptr);
}
KivSysSharedLock::~KivSysSharedLock() {
  pthread_rwlock_destroy(LockOf(m_acState));
}

void KivSysSharedLock::lock() noexcept {
  pthread_rwlock_wrlock(LockOf(m_acState));
}
bool KivSysSharedLock::try_lock() noexcept {
  return pthread_rwlock_trywrlock(LockOf(m_acState)) == 0;
}
void KivSysSharedLock::unlock() noexcept {
  pthread_rwlock_unlock(LockOf(m_acState));
}
void KivSysSharedLock::lock_shared() noexcept {
  pthread_rwlock_rdlock(LockOf(m_acState));
}
bool KivSysSharedLock::try_lock_shared() noexcept {
  return pthread_rwlock_tryrdlock(LockOf(m_acState)) == 0;
}
void KivSysSharedLock::unlock_shared() noexcept {
  pthread_rwlock_unlock(LockOf(m_acState));
}

namespace sys {
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

  std::unique_ptr<std::function<void()>> pzBody;
  try {
    pzBody = std::make_unique<std::function<void()>>(std::move(pfnBody));
  } catch (const std::bad_alloc&) {
    return posix::FailWith(ENOMEM);
  }
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

}  // namespace sys
}  // namespace kiv
