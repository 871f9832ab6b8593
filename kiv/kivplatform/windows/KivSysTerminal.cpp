#include "KivSysTerminal.h"

#include "KivSysWindows.h"

bool kiv::sys::IsErrorTerminal() {
  DWORD iMode = 0;
  return GetConsoleMode(GetStdHandle(STD_ERROR_HANDLE), &iMode) != FALSE;
}
