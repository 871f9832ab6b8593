// What stands behind the standard streams, and the user's wish that the program should stop.
#pragma once

#include <string>

namespace kiv::sys {

// True if standard error goes to a terminal, or standard input comes from one.
bool IsErrorTerminal();
bool IsInputTerminal();

// The next line of standard input, without its end. False at the end of the input, for a line of more than 1 MiB, and
// once a stop was requested, also while it waits.
bool ReadInputLine(std::string& strLine);

// From here on the first request to stop (Ctrl-C; on Linux also SIGTERM and SIGHUP) is only noted, so that the program
// can clean up; the second one ends it as usual.
void CatchStopRequests();
bool IsStopRequested();
// While held, every further request is only noted as well: for a program that ends by itself soon.
void HoldStopRequests(bool bHold);

}  // namespace kiv::sys
