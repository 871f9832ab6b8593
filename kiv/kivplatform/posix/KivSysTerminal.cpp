#include "KivSysTerminal.h"

#include <poll.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <initializer_list>

namespace kiv::sys {
namespace {

// Touched by a signal's handler.
std::atomic<bool> g_bStop{false};
std::atomic<bool> g_bHold{false};
static_assert(std::atomic<bool>::is_always_lock_free);

constexpr int kLookMs = 200;  // a stop that comes just before a wait is seen after this

// The signal waits until the handler is left, and then does what it does by default.
void OnStop(int iSignal) {
  if (!g_bStop.exchange(true) || g_bHold.load()) return;
  signal(iSignal, SIG_DFL);
  raise(iSignal);
}

}  // namespace

bool IsErrorTerminal() {
  return isatty(STDERR_FILENO) != 0;
}

bool IsInputTerminal() {
  return isatty(STDIN_FILENO) != 0;
}

size_t ErrorTerminalWidth() {
  winsize zSize{};
  return ioctl(STDERR_FILENO, TIOCGWINSZ, &zSize) == 0 && zSize.ws_col != 0 ? zSize.ws_col : 80;
}

KivSysInput ReadInputLine(std::string& strLine) {
  static KivSysLineCutter zCutter;
  for (;;) {
    if (g_bStop.load()) return KivSysInput::Stopped;
    if (const std::optional<KivSysInput> iResult = zCutter.Next(strLine)) return *iResult;
    pollfd zInput{STDIN_FILENO, POLLIN, 0};
    const int nReady = poll(&zInput, 1, kLookMs);
    if (nReady < 0 && errno != EINTR) return KivSysInput::Failed;
    if (nReady <= 0) continue;
    char acBytes[4096];
    const ssize_t nBytes = read(STDIN_FILENO, acBytes, sizeof acBytes);
    if (nBytes > 0)
      zCutter.Put({acBytes, static_cast<size_t>(nBytes)});
    else if (nBytes == 0)
      zCutter.PutEnd();
    else if (errno != EINTR)
      return KivSysInput::Failed;
  }
}

void CatchStopRequests() {
  for (int iSignal : {SIGINT, SIGTERM, SIGHUP}) {
    struct sigaction zAction {};
    if (sigaction(iSignal, nullptr, &zAction) == 0 && zAction.sa_handler == SIG_IGN) continue;
    zAction = {};
    zAction.sa_handler = OnStop;
    zAction.sa_flags = SA_RESTART;
    sigemptyset(&zAction.sa_mask);
    sigaction(iSignal, &zAction, nullptr);
  }
}

bool IsStopRequested() {
  return g_bStop.load();
}

void HoldStopRequests(bool bHold) {
  g_bHold.store(bHold);
}

}  // namespace kiv::sys
