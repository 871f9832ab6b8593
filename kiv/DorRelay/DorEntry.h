// What a program of the family does before it hands itself to the process runtime.
#pragma once

namespace kiv {

// A report that nobody catches ends the process with 999. The user's locale with the numbers of the C locale; the
// system's language id into the data space. Never fails.
void DorPrepareProcess();

// If TW_PROCESS_MONITOR_FOLDER is set and not empty: the file ZurProc<process id> in that folder, which lives as long
// as the process does, so that a monitor sees the processes of the family as a list of files. Never fails.
void DorMakeMonitorMarker();

}  // namespace kiv
