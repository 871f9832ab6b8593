#include "KivSysTerminal.h"

#include <atomic>

#include "KivSysWindows.h"

namespace kiv::sys {
namespace {

std::atomic<bool> g_bStop{false};
std::atomic<bool> g_bHold{false};

// Runs on a thread of its own.
BOOL WINAPI OnStop(DWORD iKind) {
  if (iKind != CTRL_C_EVENT && iKind != CTRL_BREAK_EVENT) return FALSE;
  return !g_bStop.exchange(true) || g_bHold.load() ? TRUE : FALSE;
}

}  // namespace

bool IsErrorTerminal() {
  DWORD iMode = 0;
  return GetConsoleMode(GetStdHandle(STD_ERROR_HANDLE), &iMode) != FALSE;
}

bool IsInputTerminal() {
  DWORD iMode = 0;
  return GetConsoleMode(GetStdHandle(STD_INPUT_HANDLE), &iMode) != FALSE;
}

size_t ErrorTerminalWidth() {
  CONSOLE_SCREEN_BUFFER_INFO zInfo{};
  if (GetConsoleScreenBufferInfo(GetStdHandle(STD_ERROR_HANDLE), &zInfo) == FALSE) return 80;
  const int nColumns = zInfo.srWindow.Right - zInfo.srWindow.Left + 1;
  return nColumns > 0 ? static_cast<size_t>(nColumns) : 80;
}

// A console gives up its wait at Ctrl-C; a pipe does not.
KivSysInput ReadInputLine(std::string& strLine) {
  static KivSysLineCutter zCutter;
  for (;;) {
    if (g_bStop.load()) return KivSysInput::Stopped;
    if (const std::optional<KivSysInput> iResult = zCutter.Next(strLine)) return *iResult;
    char acBytes[4096];
    DWORD nBytes = 0;
    SetLastError(ERROR_SUCCESS);
    const BOOL bRead = ReadFile(GetStdHandle(STD_INPUT_HANDLE), acBytes, sizeof acBytes, &nBytes, nullptr);
    const DWORD iError = GetLastError();
    if (nBytes != 0)
      zCutter.Put({acBytes, nBytes});
    else if (iError == ERROR_OPERATION_ABORTED)
      return KivSysInput::Stopped;
    else if (bRead != FALSE || iError == ERROR_BROKEN_PIPE || iError == ERROR_HANDLE_EOF)
      zCutter.PutEnd();
    else
      return KivSysInput::Failed;
  }
}

void CatchStopRequests() {
  SetConsoleCtrlHandler(OnStop, TRUE);
}

bool IsStopRequested() {
  return g_bStop.load();
}

void HoldStopRequests(bool bHold) {
  g_bHold.store(bHold);
}

}  // namespace kiv::sys
