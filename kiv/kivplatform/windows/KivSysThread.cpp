#include "KivSysThread.h"

#include <process.h>

#include <memory>
#include <new>
#include <utility>

#include "KivSysWindows.h"

namespace kiv {
namespace {

SRWLOCK* LockOf(unsigned char* pState) {
  return reinterpret_cast<SRWLOCK*>(pState);
}

}  // namespace

KivSysSharedLock::KivSysSharedLock() noexcept {
  static_assert(sizeof(SRWLOCK) <= sizeof m_acState && alignof(SRWLOCK) <= 8);
  InitializeSRWLock(LockOf(m_acState));
}
KivSysSharedLock::~KivSysSharedLock() = default;

void KivSysSharedLock::lock() noexcept {
  AcquireSRWLockExclusive(LockOf(m_acState));
}
bool KivSysSharedLock::try_lock() noexcept {
  return TryAcquireSRWLockExclusive(LockOf(m_acState)) != FALSE;
}
void KivSysSharedLock::unlock() noexcept {
  ReleaseSRWLockExclusive(LockOf(m_acState));
}
void KivSysSharedLock::lock_shared() noexcept {
  AcquireSRWLockShared(LockOf(m_acState));
}
bool KivSysSharedLock::try_lock_shared() noexcept {
  return TryAcquireSRWLockShared(LockOf(m_acState)) != FALSE;
}
void KivSysSharedLock::unlock_shared() noexcept {
  ReleaseSRWLockShared(LockOf(m_acState));
}

namespace sys {
namespace {

unsigned __stdcall RunBody(void* pArgument) {
  const std::unique_ptr<std::function<void()>> pfnBody(static_cast<std::function<void()>*>(pArgument));
  (*pfnBody)();
  return 0;
}

}  // namespace

bool StartThread(std::function<void()> pfnBody, uint32_t iStackSize) {
  if (FaultFails(KivSysCall::ThreadStart)) return false;
  std::unique_ptr<std::function<void()>> pzBody;
  try {
    pzBody = std::make_unique<std::function<void()>>(std::move(pfnBody));
  } catch (const std::bad_alloc&) {
    return false;
  }
  const uintptr_t hThread = _beginthreadex(nullptr, iStackSize, RunBody, pzBody.get(), 0, nullptr);
  if (hThread == 0) return false;
  (void)pzBody.release();  // the thread owns it now
  CloseHandle(ToHandle(static_cast<intptr_t>(hThread)));
  return true;
}

}  // namespace sys
}  // namespace kiv
