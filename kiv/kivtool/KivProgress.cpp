#include "KivProgress.h"

#include <algorithm>
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <utility>

#include "KivSysClock.h"
#include "KivSysTerminal.h"
#include "KivToolError.h"

namespace kiv {
namespace {

constexpr std::chrono::seconds kQuiet(1);
constexpr std::chrono::milliseconds kFrame(100);
constexpr uint64_t kSecondNs = 1'000'000'000;
constexpr int kBarWidth = 30;

std::mutex g_zLine;      // of the terminal
bool g_bStands = false;  // a bar stands in it
bool g_bNoMore = false;

void TakeAway() {
  if (!std::exchange(g_bStands, false)) return;
  std::fputs("\r\033[K", stderr);
  std::fflush(stderr);
}

}  // namespace

KivProgress::Pause::Pause() : m_zGuard(g_zLine) {
  TakeAway();
}

KivProgress::KivProgress(std::string strWhat, uint64_t nTotal) : m_strWhat(std::move(strWhat)), m_nTotal(nTotal) {
  if (sys::IsErrorTerminal()) m_zThread = std::thread([this] { DrawAll(); });
}

KivProgress::~KivProgress() {
  if (!m_zThread.joinable()) return;
  {
    const std::lock_guard zGuard(m_zLock);
    m_bEnd = true;
  }
  m_zEnd.notify_one();
  m_zThread.join();
}

void KivProgress::Set(uint64_t nDone) {
  m_nDone = nDone;
  if (sys::IsStopRequested()) throw KivToolError("stopped");
}

void KivProgress::DrawAll() {
  const uint64_t iStartNs = sys::SteadyNs();
  std::unique_lock zLock(m_zLock);
  const auto IsOver = [this] { return m_bEnd; };
  if (m_zEnd.wait_for(zLock, kQuiet, IsOver)) return;
  do Draw((sys::SteadyNs() - iStartNs) / kSecondNs);
  while (!m_zEnd.wait_for(zLock, kFrame, IsOver));
  const Pause zPause;
}

void KivProgress::EndAll() {
  const Pause zPause;
  g_bNoMore = true;
}

void KivProgress::Draw(uint64_t iSeconds) const {
  const std::lock_guard zGuard(g_zLine);
  if (g_bNoMore) return;
  g_bStands = true;
  if (m_nTotal == 0) {
    std::fprintf(stderr, "\r%s  %" PRIu64 " s\033[K", m_strWhat.c_str(), iSeconds);
  } else {
    const double dShare = std::min(1.0, static_cast<double>(m_nDone) / static_cast<double>(m_nTotal));
    const int nFull = static_cast<int>(dShare * kBarWidth);
    std::fprintf(stderr, "\r%s  [%s%s] %3d %%  %" PRIu64 " s\033[K", m_strWhat.c_str(), std::string(nFull, '#').c_str(),
                 std::string(kBarWidth - nFull, '.').c_str(), static_cast<int>(dShare * 100), iSeconds);
  }
  std::fflush(stderr);
}

}  // namespace kiv
