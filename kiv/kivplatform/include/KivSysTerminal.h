// What stands behind the standard streams, and the user's wish that the program should stop.
#pragma once

namespace kiv::sys {

// True if standard error goes to a terminal.
bool IsErrorTerminal();

// From here on the first request to stop (Ctrl-C; on Linux also SIGTERM and SIGHUP) is only noted, so that the program
// can clean up; the second one ends it as usual.
void CatchStopRequests();
bool IsStopRequested();

}  // namespace kiv::sys
