#include "KivSysEvent.h"

#include <fcntl.h>
#include <linux/futex.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <memory>
#include <new>
#include <string>

#include "KivSysFile.h"
#include "KivSysPosix.h"

// An event is a small file in the user's private folder, mapped by every holder:
//   OFFSET   SIZE   FIELD
//   0        4      state: odd is on, even is off; every change adds 1, so that a waiter sees a set that was reset
//                   at once
//   4        4      waiters; a killed one leaves it too high, which costs a set one call in vain
// The mapping alone keeps the file open, and with it a read lock: a file that nobody locks has no holder left, and is
// replaced by a new one under its name.

namespace kiv {

using sys::posix::Descriptor;
using sys::posix::FailWith;
using sys::posix::FailWithErrno;
using sys::posix::FaultAllows;
using sys::posix::NowNs;

namespace {

constexpr uint32_t kWaitLimit = 128;  // FUTEX_WAITV_MAX
constexpr size_t kFileSize = 8;

struct EventWords {
  std::atomic<uint32_t> m_iState;
  std::atomic<uint32_t> m_iWaiters;
};
static_assert(sizeof(EventWords) == kFileSize && std::atomic<uint32_t>::is_always_lock_free);

struct EventObject {
  EventWords* m_pzWords = nullptr;
  std::string m_strPath;
};

EventObject* ObjectOf(intptr_t iHandle) {
  return reinterpret_cast<EventObject*>(iHandle);
}

bool IsOn(uint32_t iState) {
  return (iState & 1) != 0;
}

EventWords* MapWords(int iFd) {
  void* const pBase = mmap(nullptr, kFileSize, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_POPULATE, iFd, 0);
  return pBase == MAP_FAILED ? nullptr : static_cast<EventWords*>(pBase);
}

// Made before the words are mapped, so that want of memory leaves nothing mapped or held.
std::unique_ptr<EventObject> ObjectFor(const std::string& strPath) {
  auto pzObject = std::make_unique<EventObject>();
  pzObject->m_strPath = strPath;
  return pzObject;
}

EventObject* OpenLiving(const std::string& strPath) {
  std::unique_ptr<EventObject> pzObject = ObjectFor(strPath);
  for (int iTry = 0; iTry < 10000; ++iTry) {
    const Descriptor zFd(open(strPath.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW));
    if (!zFd.IsOpen()) {
      FailWithErrno();
      return nullptr;
    }
    if (!sys::posix::BytesHeld(zFd.Get(), 0, 1)) {
      sys::posix::RemoveUnheld(strPath.c_str());
      FailWith(ENOENT);
      return nullptr;
    }
    if (!sys::posix::LockBytes(zFd.Get(), F_RDLCK, 0, 1)) {
      sched_yield();  // somebody is just finding out whether it is dead
      continue;
    }
    struct stat zStat;
    if (fstat(zFd.Get(), &zStat) != 0 || zStat.st_nlink == 0) continue;  // it was: look for a new one
    if (zStat.st_size < static_cast<off_t>(kFileSize)) {
      FailWith(EINVAL);
      return nullptr;
    }
    pzObject->m_pzWords = MapWords(zFd.Get());
    if (pzObject->m_pzWords == nullptr) {
      FailWithErrno();
      return nullptr;
    }
    return pzObject.release();
  }
  FailWith(EBUSY);
  return nullptr;
}

// Null with EEXIST if the name is taken.
EventObject* MakeNew(const std::string& strPath) {
  std::unique_ptr<EventObject> pzObject = ObjectFor(strPath);
  const Descriptor zFd(sys::posix::MakeLockedFile(strPath.c_str(), 1u << 0, false, kFileSize));
  if (!zFd.IsOpen()) {
    FailWithErrno();
    return nullptr;
  }
  pzObject->m_pzWords = MapWords(zFd.Get());
  if (pzObject->m_pzWords == nullptr) {
    FailWithErrno();
    unlink(strPath.c_str());
    return nullptr;
  }
  return pzObject.release();
}

long Futex(std::atomic<uint32_t>* pWord, int iOperation, uint32_t iValue, const timespec* pUntil) {
  return syscall(SYS_futex, pWord, iOperation, iValue, pUntil, nullptr, FUTEX_BITSET_MATCH_ANY);
}

// Adds 1 if the state is bOn; wakes whoever waits after a change to on.
void ChangeState(EventWords& zWords, bool bFrom) {
  uint32_t iState = zWords.m_iState.load(std::memory_order_relaxed);
  do {
    if (IsOn(iState) != bFrom) {
      // Nothing to change, but what this thread wrote before must be seen by whoever sees the state.
      if (zWords.m_iState.compare_exchange_weak(iState, iState, std::memory_order_seq_cst)) return;
      continue;
    }
    if (zWords.m_iState.compare_exchange_weak(iState, iState + 1, std::memory_order_seq_cst)) break;
  } while (true);
  if (!bFrom && zWords.m_iWaiters.load(std::memory_order_seq_cst) != 0)
    Futex(&zWords.m_iState, FUTEX_WAKE, INT_MAX, nullptr);
}

// The look before the sleep: a wake across cores costs far more than a few yields, unless others want the core.
class YieldPhase {
 public:
  bool IsOff(uint64_t iNow) const noexcept { return iNow < m_iOffUntil.load(std::memory_order_relaxed); }

  void Slow(uint64_t iNow) noexcept {
    const uint64_t iPause = m_iPause.load(std::memory_order_relaxed);
    m_iOffUntil.store(iNow + iPause, std::memory_order_relaxed);
    m_iPause.store(std::min(iPause * 2, kLongestPause), std::memory_order_relaxed);
  }

  void Succeeded() noexcept { m_iPause.store(kShortestPause, std::memory_order_relaxed); }

  static constexpr uint64_t kLength = 50'000;      // ns
  static constexpr uint64_t kSlowYield = 300'000;  // somebody else has the core

 private:
  static constexpr uint64_t kShortestPause = 100'000'000;
  static constexpr uint64_t kLongestPause = 1'600'000'000;
  std::atomic<uint64_t> m_iOffUntil{0};
  std::atomic<uint64_t> m_iPause{kShortestPause};
};
YieldPhase g_zYieldPhase;

struct WaitSet {
  std::array<EventWords*, kWaitLimit> m_vpWords;
  std::array<uint32_t, kWaitLimit> m_viSeen;  // the off states that the wait began with
  uint32_t m_nWords = 0;

  // Index of the first event that is on, or was since the wait began; m_nWords if none.
  uint32_t Look() const noexcept {
    uint32_t i = 0;
    while (i < m_nWords && m_vpWords[i]->m_iState.load(std::memory_order_acquire) == m_viSeen[i]) ++i;
    return i;
  }
};

// Sleeps until a word changes, the time is over or for no reason.
void Sleep(const WaitSet& zSet, uint64_t iUntil, bool bForever) {
  const timespec zUntil{static_cast<time_t>(iUntil / 1'000'000'000), static_cast<long>(iUntil % 1'000'000'000)};
  const timespec* const pUntil = bForever ? nullptr : &zUntil;
  if (zSet.m_nWords == 1) {
    Futex(&zSet.m_vpWords[0]->m_iState, FUTEX_WAIT_BITSET, zSet.m_viSeen[0], pUntil);
    return;
  }
#ifdef SYS_futex_waitv
  if (!sys::posix::g_bNoFutexWaitv.load(std::memory_order_relaxed)) {
    std::array<struct futex_waitv, kWaitLimit> vzWait;
    for (uint32_t i = 0; i < zSet.m_nWords; ++i)
      vzWait[i] = {zSet.m_viSeen[i], reinterpret_cast<uintptr_t>(&zSet.m_vpWords[i]->m_iState), FUTEX_32, 0};
    if (syscall(SYS_futex_waitv, vzWait.data(), zSet.m_nWords, 0, pUntil, CLOCK_MONOTONIC) >= 0) return;
    if (errno == EAGAIN || errno == ETIMEDOUT || errno == EINTR) return;
    // Out of memory for a moment is no answer about the call. All else is a kernel without it, or a filter of system
    // calls, which answers as it likes: to come back at once each time would be a loop without sleep.
    if (errno != ENOMEM) sys::posix::g_bNoFutexWaitv.store(true, std::memory_order_relaxed);
  }
#endif
  // An older kernel waits on one word only: on the first, and looks at the others every half millisecond.
  const uint64_t iLook = std::min(NowNs() + 500'000, bForever ? UINT64_MAX : iUntil);
  const timespec zLook{static_cast<time_t>(iLook / 1'000'000'000), static_cast<long>(iLook % 1'000'000'000)};
  Futex(&zSet.m_vpWords[0]->m_iState, FUTEX_WAIT_BITSET, zSet.m_viSeen[0], &zLook);
}

KivSysWaitResult WaitForWords(WaitSet& zSet, uint32_t iMilliSeconds) {
  for (uint32_t i = 0; i < zSet.m_nWords; ++i) {
    const uint32_t iState = zSet.m_vpWords[i]->m_iState.load(std::memory_order_acquire);
    if (IsOn(iState)) return {KivSysWait::Signalled, i};
    zSet.m_viSeen[i] = iState;
  }
  if (iMilliSeconds == 0) return {KivSysWait::TimedOut, 0};

  const bool bForever = iMilliSeconds == KivSysEvent::kInfinite;
  uint64_t iNow = NowNs();
  const uint64_t iUntil = iNow + uint64_t{iMilliSeconds} * 1'000'000;
  uint32_t iFound = zSet.m_nWords;
  if (!g_zYieldPhase.IsOff(iNow)) {
    const uint64_t iYieldUntil = iNow + YieldPhase::kLength;
    while (iNow < iYieldUntil) {
      sched_yield();
      iFound = zSet.Look();
      const uint64_t iAfter = NowNs();
      const bool bSlow = iAfter - iNow > YieldPhase::kSlowYield;
      iNow = iAfter;
      if (bSlow) g_zYieldPhase.Slow(iNow);
      if (iFound < zSet.m_nWords) {
        if (!bSlow) g_zYieldPhase.Succeeded();
        return {KivSysWait::Signalled, iFound};
      }
      if (bSlow) break;
    }
  }

  for (uint32_t i = 0; i < zSet.m_nWords; ++i) zSet.m_vpWords[i]->m_iWaiters.fetch_add(1, std::memory_order_seq_cst);
  for (;;) {
    iFound = zSet.Look();
    if (iFound < zSet.m_nWords || (!bForever && NowNs() >= iUntil)) break;
    Sleep(zSet, iUntil, bForever);
  }
  for (uint32_t i = 0; i < zSet.m_nWords; ++i) zSet.m_vpWords[i]->m_iWaiters.fetch_sub(1, std::memory_order_seq_cst);
  return iFound < zSet.m_nWords ? KivSysWaitResult{KivSysWait::Signalled, iFound}
                                : KivSysWaitResult{KivSysWait::TimedOut, 0};
}

}  // namespace

KivSysEvent::KivSysEvent(KivSysEvent&& zOther) noexcept : m_iHandle(zOther.m_iHandle) {
  zOther.m_iHandle = 0;
}

KivSysEvent& KivSysEvent::operator=(KivSysEvent&& zOther) noexcept {
  if (this != &zOther) {
    Close();
    m_iHandle = zOther.m_iHandle;
    zOther.m_iHandle = 0;
  }
  return *this;
}

KivSysEvent::~KivSysEvent() {
  Close();
}

KivSysEvent KivSysEvent::Create(const KivWString& csName, bool& bExisted) {
  KivSysEvent zEvent;
  bExisted = false;
  std::string strPath;
  if (!FaultAllows(KivSysCall::EventCreate) || !sys::posix::ObjectPath('e', csName, strPath)) return zEvent;
  sys::posix::SweepObjectsOnce();
  for (int iTry = 0; iTry < 1000; ++iTry) {
    EventObject* pzObject = MakeNew(strPath);
    if (pzObject == nullptr && sys::LastError() == EEXIST) {
      pzObject = OpenLiving(strPath);
      if (pzObject == nullptr && sys::LastError() == ENOENT) continue;  // the dead one is removed now
      bExisted = pzObject != nullptr;
    }
    zEvent.m_iHandle = reinterpret_cast<intptr_t>(pzObject);
    break;
  }
  return zEvent;
}

KivSysEvent KivSysEvent::Open(const KivWString& csName) {
  KivSysEvent zEvent;
  std::string strPath;
  if (FaultAllows(KivSysCall::EventOpen) && sys::posix::ObjectPath('e', csName, strPath))
    zEvent.m_iHandle = reinterpret_cast<intptr_t>(OpenLiving(strPath));
  return zEvent;
}

void KivSysEvent::Close() noexcept {
  if (m_iHandle == 0) return;
  EventObject* const pzObject = ObjectOf(m_iHandle);
  m_iHandle = 0;
  munmap(pzObject->m_pzWords, kFileSize);
  // The last holder takes the name away, unless it is another event's by now: that one is locked.
  sys::posix::RemoveUnheld(pzObject->m_strPath.c_str());
  delete pzObject;
}

bool KivSysEvent::Set() {
  if (!FaultAllows(KivSysCall::EventSignal)) return false;
  if (!IsOpen()) return FailWith(EBADF);
  ChangeState(*ObjectOf(m_iHandle)->m_pzWords, false);
  return true;
}

bool KivSysEvent::Reset() {
  if (!FaultAllows(KivSysCall::EventSignal)) return false;
  if (!IsOpen()) return FailWith(EBADF);
  ChangeState(*ObjectOf(m_iHandle)->m_pzWords, true);
  return true;
}

KivSysWait KivSysEvent::Test() const {
  if (!FaultAllows(KivSysCall::EventWait)) return KivSysWait::Failed;
  if (!IsOpen()) return FailWith(EBADF), KivSysWait::Failed;
  const uint32_t iState = ObjectOf(m_iHandle)->m_pzWords->m_iState.load(std::memory_order_acquire);
  return IsOn(iState) ? KivSysWait::Signalled : KivSysWait::TimedOut;
}

KivSysWait KivSysEvent::Wait(uint32_t iMilliSeconds) const {
  const KivSysEvent* const pThis = this;
  return WaitAny({&pThis, 1}, iMilliSeconds).m_iState;
}

KivSysWaitResult KivSysEvent::WaitAny(std::span<const KivSysEvent* const> vpEvents, uint32_t iMilliSeconds) {
  const KivSysWaitResult zFailed{KivSysWait::Failed, 0};
  if (!FaultAllows(KivSysCall::EventWait)) return zFailed;
  if (vpEvents.empty() || vpEvents.size() > kWaitLimit) return FailWith(EINVAL), zFailed;
  WaitSet zSet;
  for (const KivSysEvent* pzEvent : vpEvents) {
    if (pzEvent == nullptr || !pzEvent->IsOpen()) return FailWith(EBADF), zFailed;
    zSet.m_vpWords[zSet.m_nWords++] = ObjectOf(pzEvent->m_iHandle)->m_pzWords;
  }
  return WaitForWords(zSet, iMilliSeconds);
}

uint32_t KivSysEvent::WaitLimit() noexcept {
  return kWaitLimit;
}

}  // namespace kiv
