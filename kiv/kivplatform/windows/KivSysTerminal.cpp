#include "KivSysTerminal.h"

#include <atomic>

#include "KivSysWindows.h"

namespace kiv::sys {
namespace {

constexpr size_t kLongestLine = size_t{1} << 20;

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

// A console gives up its wait at Ctrl-C; a pipe does not.
bool ReadInputLine(std::string& strLine) {
  static std::string strAhead;  // read, but behind the last line
  for (size_t iSeen = 0;;) {
    if (g_bStop.load() || iSeen > kLongestLine) return false;
    const size_t iEnd = strAhead.find('\n', iSeen);
    if (iEnd != std::string::npos) {
      strLine = strAhead.substr(0, iEnd);
      strAhead.erase(0, iEnd + 1);
      return true;
    }
    iSeen = strAhead.size();
    char acBytes[4096];
    DWORD nBytes = 0;
    const BOOL bRead = ReadFile(GetStdHandle(STD_INPUT_HANDLE), acBytes, sizeof acBytes, &nBytes, nullptr);
    if (bRead == FALSE || nBytes == 0) {
      strLine.swap(strAhead);  // the last line need not have an end
      strAhead.clear();
      return !strLine.empty() && !g_bStop.load();
    }
    strAhead.append(acBytes, nBytes);
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
