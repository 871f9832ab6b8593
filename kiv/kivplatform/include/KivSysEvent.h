// Named manual-reset events between processes of one user on one machine.
#pragma once

#include <cstdint>
#include <span>

#include "KivSysText.h"

namespace kiv {

enum class KivSysWait { Signalled, TimedOut, Abandoned, Failed };

struct KivSysWaitResult {
  KivSysWait m_iState = KivSysWait::Failed;
  uint32_t m_iIndex = 0;  // of the lowest signalled event; valid with Signalled
};

// Movable; the destructor closes. The object lives as long as any process holds it; a name whose holders are all
// gone, killed ones included, is free again.
class KivSysEvent {
 public:
  static constexpr uint32_t kInfinite = 0xFFFFFFFF;  // milliseconds: no time-out

  KivSysEvent() noexcept = default;
  KivSysEvent(KivSysEvent&& zOther) noexcept;
  KivSysEvent& operator=(KivSysEvent&& zOther) noexcept;
  KivSysEvent(const KivSysEvent&) = delete;
  KivSysEvent& operator=(const KivSysEvent&) = delete;
  ~KivSysEvent();

  // Initially off. bExisted says that a living process held the name already; the result is then that object.
  static KivSysEvent Create(const KivWString& csName, bool& bExisted);
  // Not open if nobody holds the name.
  static KivSysEvent Open(const KivWString& csName);

  bool IsOpen() const noexcept { return m_iHandle != 0; }
  void Close() noexcept;

  bool Set();
  bool Reset();
  // A test without waiting; no system call on Linux.
  KivSysWait Test() const;
  KivSysWait Wait(uint32_t iMilliSeconds) const;

  // Waits until one of the events is on. More than WaitLimit() events, none, or one that is not open give Failed at
  // once.
  static KivSysWaitResult WaitAny(std::span<const KivSysEvent* const> vpEvents, uint32_t iMilliSeconds);
  // 64 on Windows, 128 on Linux.
  static uint32_t WaitLimit() noexcept;

 private:
  intptr_t m_iHandle = 0;  // Windows: the handle; Linux: the object of the backend
};

}  // namespace kiv
