#include "KivSysTerminal.h"

#include <unistd.h>

bool kiv::sys::IsErrorTerminal() {
  return isatty(STDERR_FILENO) != 0;
}
