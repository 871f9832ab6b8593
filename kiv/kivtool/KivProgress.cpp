#include "KivProgress.h"

#include <algorithm>
#include <cstdio>

#include "KivSysClock.h"
#include "KivSysTerminal.h"
#include "KivToolError.h"

namespace kiv {
namespace {

constexpr uint64_t kQuietNs = 1'000'000'000;
constexpr uint64_t kFrameNs = 100'000'000;
constexpr int kBarWidth = 30;

}  // namespace

KivProgress::KivProgress(std::string strWhat, uint64_t nTotal)
    : m_strWhat(std::move(strWhat)),
      m_nTotal(nTotal),
      m_iStartNs(sys::SteadyNs()),
      m_bTerminal(sys::IsErrorTerminal()) {}

KivProgress::~KivProgress() {
  if (!m_bDrawn) return;
  std::fputs("\r\033[K", stderr);
  std::fflush(stderr);
}

void KivProgress::Set(uint64_t nDone) {
  m_nDone = nDone;
  if (sys::IsStopRequested()) throw KivToolError("stopped");
  if (!m_bTerminal) return;
  const uint64_t iNowNs = sys::SteadyNs();
  if (iNowNs - m_iStartNs >= kQuietNs && iNowNs - m_iDrawnNs >= kFrameNs) Draw(iNowNs);
}

void KivProgress::Draw(uint64_t iNowNs) {
  m_bDrawn = true;
  m_iDrawnNs = iNowNs;
  if (m_nTotal == 0) {
    std::fprintf(stderr, "\r%s  %llu\033[K", m_strWhat.c_str(), static_cast<unsigned long long>(m_nDone));
  } else {
    const double dShare = std::min(1.0, static_cast<double>(m_nDone) / static_cast<double>(m_nTotal));
    const int nFull = static_cast<int>(dShare * kBarWidth);
    std::fprintf(stderr, "\r%s  [%s%s] %3d %%\033[K", m_strWhat.c_str(), std::string(nFull, '#').c_str(),
                 std::string(kBarWidth - nFull, '.').c_str(), static_cast<int>(dShare * 100));
  }
  std::fflush(stderr);
}

}  // namespace kiv
