// Watcher threads and the reader/writer lock.
#pragma once

#include <cstdint>
#include <functional>
#include <shared_mutex>

namespace kiv {

// Slim reader/writer lock: SRWLOCK on Windows.
using KivSysSharedLock = std::shared_mutex;

namespace sys {

// Starts a detached thread with at least iStackSize bytes of stack (rounded up to what the system needs). False, and
// nothing runs, if it cannot be started.
bool StartThread(std::function<void()> pfnBody, uint32_t iStackSize);

}  // namespace sys
}  // namespace kiv
