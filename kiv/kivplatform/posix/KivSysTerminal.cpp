#include "KivSysTerminal.h"

#include <signal.h>
#include <unistd.h>

#include <csignal>
#include <initializer_list>

namespace kiv::sys {
namespace {

volatile std::sig_atomic_t g_bStop = 0;

void OnStop(int) {
  g_bStop = 1;
}

}  // namespace

bool IsErrorTerminal() {
  return isatty(STDERR_FILENO) != 0;
}

void CatchStopRequests() {
  for (int iSignal : {SIGINT, SIGTERM, SIGHUP}) {
    struct sigaction zAction {};
    zAction.sa_handler = OnStop;
    zAction.sa_flags = SA_RESTART | static_cast<int>(SA_RESETHAND);
    sigemptyset(&zAction.sa_mask);
    sigaction(iSignal, &zAction, nullptr);
  }
}

bool IsStopRequested() {
  return g_bStop != 0;
}

}  // namespace kiv::sys
