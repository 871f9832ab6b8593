#include "KivSysFault.h"

#include <array>
#include <cerrno>

#include "KivSysFile.h"

namespace kiv {
namespace {

constexpr size_t kCalls = static_cast<size_t>(KivSysCall::Count);

// One plan at a time. Threads may still ask while a scope ends, so that everything here is atomic or written before
// the plan is switched on.
KivSysFaultPlan g_zPlan;
std::array<std::atomic<uint64_t>, kCalls> g_viCount;
std::atomic<uint64_t> g_iMatching{0};
std::atomic<bool> g_bFired{false};

#ifdef _WIN32
constexpr int32_t kInputOutputError = 1117;  // ERROR_IO_DEVICE
constexpr int32_t kDiskFullError = 112;      // ERROR_DISK_FULL
#else
constexpr int32_t kInputOutputError = EIO;
constexpr int32_t kDiskFullError = ENOSPC;
#endif

}  // namespace

namespace sys {

std::atomic<bool> g_bFaultPlan{false};

FaultAnswer AskFaultPlan(KivSysCall iCall) noexcept {
  if (!g_bFaultPlan.load(std::memory_order_acquire)) return FaultAnswer::Go;
  g_viCount[static_cast<size_t>(iCall)].fetch_add(1, std::memory_order_relaxed);
  if (!g_zPlan.m_bAnyCall && iCall != g_zPlan.m_iCall) return FaultAnswer::Go;
  // Only transfers can be cut; of the others a plan of short counts takes no notice.
  const bool bTransfer =
      iCall == KivSysCall::FileRead || iCall == KivSysCall::FileWrite || iCall == KivSysCall::TextConvert;
  if (g_zPlan.m_iKind == KivSysFaultKind::ShortCount && !bTransfer) return FaultAnswer::Go;
  const uint64_t iNumber = g_iMatching.fetch_add(1, std::memory_order_relaxed) + 1;
  if (g_zPlan.m_iNth == 0) return FaultAnswer::Go;
  if (iNumber != g_zPlan.m_iNth && !(g_zPlan.m_bFromThenOn && iNumber > g_zPlan.m_iNth)) return FaultAnswer::Go;
  g_bFired.store(true, std::memory_order_relaxed);
  if (g_zPlan.m_iKind == KivSysFaultKind::ShortCount) return FaultAnswer::Short;
  if (g_zPlan.m_iKind == KivSysFaultKind::Meanwhile) {
    if (g_zPlan.m_pfnMeanwhile) g_zPlan.m_pfnMeanwhile();
    return FaultAnswer::Go;
  }
  SetLastErrorNumber(g_zPlan.m_iKind == KivSysFaultKind::DiskFull ? kDiskFullError : kInputOutputError);
  return FaultAnswer::Fail;
}

}  // namespace sys

KivSysFaultScope::KivSysFaultScope(const KivSysFaultPlan& zPlan) {
  g_zPlan = zPlan;
  for (auto& iCount : g_viCount) iCount.store(0, std::memory_order_relaxed);
  g_iMatching.store(0, std::memory_order_relaxed);
  g_bFired.store(false, std::memory_order_relaxed);
  sys::g_bFaultPlan.store(true, std::memory_order_release);
}

KivSysFaultScope::~KivSysFaultScope() {
  sys::g_bFaultPlan.store(false, std::memory_order_release);
}

bool KivSysFaultScope::HasFired() const noexcept {
  return g_bFired.load(std::memory_order_relaxed);
}

uint64_t KivSysFaultScope::GetCount(KivSysCall iCall) const noexcept {
  const size_t iIndex = static_cast<size_t>(iCall);
  return iIndex < kCalls ? g_viCount[iIndex].load(std::memory_order_relaxed) : 0;
}

}  // namespace kiv
