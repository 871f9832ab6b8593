// Stack text, the system log, heap checks, the count of handles.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "KivSysText.h"

namespace kiv {

// The calling thread's return addresses, innermost first. Cheap to take; text is made later.
struct KivSysStack {
  std::vector<uint64_t> m_viAddress;
};

namespace sys {

// Takes at most 512 frames of the calling thread and leaves out the innermost nSkip, CaptureStack itself counted as
// the first. Without memory there are no frames.
KivSysStack CaptureStack(uint32_t nSkip) noexcept;

// One line for each frame, each ended by a line feed and at most 520 bytes long:
//   0x<address, 16 hex digits>(0x<offset in the module, 8 hex digits>)<module>: <symbol>[ + <n> bytes](<source>, Line
//   <n>[ + <n> bytes])
// Frames of modules that the symbol engine does not list are left out.
KivWString StackText(const KivSysStack& zStack);

// One error entry in the system log (event log, syslog). False if there is no log to write to.
bool WriteSystemLog(const KivWString& csSource, const KivWString& csText);
// Lets tests see what goes to the system log; while set, nothing reaches the log itself. Null takes it off.
void SetSystemLogHook(std::function<bool(const KivWString& csSource, const KivWString& csText)> pfnHook);

// Shows a text to the user and waits for the answer (a message box; standard error on Linux).
void ShowMessage(const KivWString& csText);
void SetMessageHook(std::function<void(const KivWString& csText)> pfnHook);

// Validates up to 100 process heaps; true if all are sound. Always true on Linux.
bool ValidateHeaps();
// Stands in for the validation while it is set. Null takes it off.
void SetHeapHook(std::function<bool()> pfnHook);
// The validation without the hook.
bool ValidateSystemHeaps();

// Handles that this process holds open (Windows: of files, threads, events and all else; Linux: file descriptors). For
// watching that none is left behind; 0 where they cannot be counted. The call itself leaves none.
uint64_t CountHandles();

}  // namespace sys
}  // namespace kiv
