// What stands behind the standard streams.
#pragma once

namespace kiv::sys {

// True if standard error goes to a terminal.
bool IsErrorTerminal();

}  // namespace kiv::sys
