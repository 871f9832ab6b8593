// Watcher threads and the reader/writer lock.
#pragma once

#include <cstdint>
#include <functional>

namespace kiv {

// Slim reader/writer lock: SRWLOCK on Windows, a read/write lock of the thread library on Linux. Fits std::unique_lock
// and std::shared_lock.
class KivSysSharedLock {
 public:
  KivSysSharedLock() noexcept;
  ~KivSysSharedLock();
  KivSysSharedLock(const KivSysSharedLock&) = delete;
  KivSysSharedLock& operator=(const KivSysSharedLock&) = delete;

  void lock() noexcept;
  bool try_lock() noexcept;
  void unlock() noexcept;
  void lock_shared() noexcept;
  bool try_lock_shared() noexcept;
  void unlock_shared() noexcept;

 private:
  alignas(8) unsigned char m_acState[64];  // the system's own object
};

namespace sys {

// Starts a detached thread with at least iStackSize bytes of stack (rounded up to what the system needs). False, and
// nothing runs, if it cannot be started.
bool StartThread(std::function<void()> pfnBody, uint32_t iStackSize);

}  // namespace sys
}  // namespace kiv
