// Fault injection for tests: the seam asks here before each call that a test may want to fail.
//
// With no plan set a question costs one relaxed load. A plan counts the calls of its kind and fails the N-th one, once
// or from then on; a write may be cut short instead.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>

namespace kiv {

enum class KivSysCall : uint32_t {
  FileOpen,
  FileRead,
  FileWrite,
  FileSetLength,
  FileFlush,
  FileLength,
  FreeSpace,  // one that fails answers that there is none
  MappingCreate,
  MappingView,
  EventCreate,
  EventOpen,
  EventSignal,  // set and reset
  EventWait,
  ProcessStart,
  FolderMake,
  FolderRemove,
  FolderList,
  FileRemove,
  FileMove,
  FileCopy,
  ThreadStart,
  Clock,  // local time
  ProcessWait,
  JobCreate,
  PathExists,  // one that fails answers that there is none
  ProgramPath,
  ProcessList,
  MemoryCounters,
  TextMeasure,
  TextConvert,  // one that is cut short lacks its last byte
  Count
};

enum class KivSysFaultKind {
  Fail,        // the call fails with an input/output error
  DiskFull,    // the call fails, and the last error is the system's "disk full"
  ShortCount,  // a transfer does half of its bytes (at least 1 less than asked) and succeeds
  Meanwhile,   // m_pfnMeanwhile runs before the call, which then goes on: what others do in between
};

struct KivSysFaultPlan {
  KivSysCall m_iCall = KivSysCall::Count;
  uint64_t m_iNth = 0;  // 1 is the next call; 0 only counts
  bool m_bFromThenOn = false;
  KivSysFaultKind m_iKind = KivSysFaultKind::Fail;
  bool m_bAnyCall = false;  // counts and fails calls of every kind
  std::function<void()> m_pfnMeanwhile = nullptr;
};

// Sets a plan for its lifetime. One at a time in a process; the seam may be used from several threads meanwhile.
class KivSysFaultScope {
 public:
  explicit KivSysFaultScope(const KivSysFaultPlan& zPlan);
  ~KivSysFaultScope();
  KivSysFaultScope(const KivSysFaultScope&) = delete;
  KivSysFaultScope& operator=(const KivSysFaultScope&) = delete;

  bool HasFired() const noexcept;
  uint64_t GetCount(KivSysCall iCall) const noexcept;  // calls of this kind since the scope began
};

namespace sys {

enum class FaultAnswer { Go, Fail, Short };

extern std::atomic<bool> g_bFaultPlan;
// Sets the last error when the answer is Fail.
FaultAnswer AskFaultPlan(KivSysCall iCall) noexcept;

// What a backend calls first.
inline FaultAnswer AskFault(KivSysCall iCall) noexcept {
  return g_bFaultPlan.load(std::memory_order_relaxed) ? AskFaultPlan(iCall) : FaultAnswer::Go;
}

}  // namespace sys
}  // namespace kiv
