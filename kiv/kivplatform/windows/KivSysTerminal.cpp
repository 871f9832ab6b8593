#include "KivSysTerminal.h"

#include <atomic>

#include "KivSysWindows.h"

namespace kiv::sys {
namespace {

std::atomic<bool> g_bStop{false};

// Runs on a thread of its own.
BOOL WINAPI OnStop(DWORD iKind) {
  if (iKind != CTRL_C_EVENT && iKind != CTRL_BREAK_EVENT) return FALSE;
  return g_bStop.exchange(true) ? FALSE : TRUE;
}

}  // namespace

bool IsErrorTerminal() {
  DWORD iMode = 0;
  return GetConsoleMode(GetStdHandle(STD_ERROR_HANDLE), &iMode) != FALSE;
}

void CatchStopRequests() {
  SetConsoleCtrlHandler(OnStop, TRUE);
}

bool IsStopRequested() {
  return g_bStop.load();
}

}  // namespace kiv::sys
