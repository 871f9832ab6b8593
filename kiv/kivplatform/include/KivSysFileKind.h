// What a path leads to.
#pragma once

#include "KivSysText.h"

namespace kiv::sys {

// True for what is there and is no regular file: a folder, a device, a pipe, a socket. A link counts as what it leads
// to. False for a regular file, and where nothing is.
bool IsNoRegularFile(const KivWString& csPath);

}  // namespace kiv::sys
