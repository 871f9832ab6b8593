#include "KivProgress.h"

#include <algorithm>
#include <chrono>
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
constexpr size_t kBarWidth = 30;
constexpr size_t kMovingWidth = 6;
constexpr size_t kLeastText = 12;  // with less room for the text the bar goes

std::mutex g_zLine;      // of the terminal
bool g_bStands = false;  // a bar stands in it
bool g_bNoMore = false;

void TakeAway() {
  if (!std::exchange(g_bStands, false)) return;
  std::fputs("\r\033[K", stderr);
  std::fflush(stderr);
}

std::string Bar(size_t iBegin, size_t iEnd) {
  std::string strBar(kBarWidth, '.');
  std::fill(strBar.begin() + static_cast<ptrdiff_t>(iBegin), strBar.begin() + static_cast<ptrdiff_t>(iEnd), '#');
  return "  [" + strBar + "]";
}

// To and fro, a column a frame.
std::string MovingBar(uint64_t iFrame) {
  constexpr uint64_t kWay = kBarWidth - kMovingWidth;
  const uint64_t iAt = iFrame % (2 * kWay);
  const size_t iBegin = static_cast<size_t>(iAt <= kWay ? iAt : 2 * kWay - iAt);
  return Bar(iBegin, iBegin + kMovingWidth);
}

std::string ShareBar(uint64_t nDone, uint64_t nTotal) {
  const double dShare = std::min(1.0, static_cast<double>(nDone) / static_cast<double>(nTotal));
  const std::string strShare = std::to_string(static_cast<int>(dShare * 100));
  return Bar(0, static_cast<size_t>(dShare * kBarWidth)) + std::string(4 - strShare.size(), ' ') + strShare + " %";
}

// The end of a UTF-8 text that takes nColumns at most. A character that is none of ASCII may take two.
std::string EndOf(const std::string& str, size_t nColumns) {
  size_t iBegin = str.size(), nTaken = 0;
  for (size_t i = str.size(); i-- > 0;) {
    const uint8_t c = static_cast<uint8_t>(str[i]);
    if ((c & 0xC0) == 0x80) continue;
    nTaken += c < 0x80 ? 1 : 2;
    if (nTaken > nColumns) break;
    iBegin = i;
  }
  return str.substr(iBegin);
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
  uint64_t iFrame = 0;
  do Draw((sys::SteadyNs() - iStartNs) / kSecondNs, iFrame++);
  while (!m_zEnd.wait_for(zLock, kFrame, IsOver));
  const Pause zPause;
}

void KivProgress::EndAll() {
  const Pause zPause;
  g_bNoMore = true;
}

std::string KivProgress::Line(const std::string& strWhat, uint64_t nDone, uint64_t nTotal, uint64_t iSeconds,
                              uint64_t iFrame, size_t nColumns) {
  const size_t nRoom = nColumns == 0 ? 0 : nColumns - 1;  // in the last column some terminals begin a new line
  const std::string strSeconds = "  " + std::to_string(iSeconds) + " s";
  std::string strTail = (nTotal == 0 ? MovingBar(iFrame) : ShareBar(nDone, nTotal)) + strSeconds;
  if (strTail.size() + std::min(kLeastText, strWhat.size()) > nRoom) strTail = strSeconds;
  if (strTail.size() > nRoom) return std::string();
  const size_t nText = nRoom - strTail.size();
  std::string strText = EndOf(strWhat, nText);
  if (strText.size() < strWhat.size() && nText >= 3) strText = "..." + EndOf(strWhat, nText - 3);
  return strText + strTail;
}

void KivProgress::Draw(uint64_t iSeconds, uint64_t iFrame) const {
  const std::lock_guard zGuard(g_zLine);
  if (g_bNoMore) return;
  g_bStands = true;
  const std::string strLine = Line(m_strWhat, m_nDone, m_nTotal, iSeconds, iFrame, sys::ErrorTerminalWidth());
  std::fprintf(stderr, "\r%s\033[K", strLine.c_str());
  std::fflush(stderr);
}

}  // namespace kiv
