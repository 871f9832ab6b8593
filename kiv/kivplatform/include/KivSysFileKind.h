// What a path leads to, and who may use it.
#pragma once

#include "KivSysText.h"

namespace kiv::sys {

// True for what is there and is no regular file: a folder, a device, a pipe, a socket. A link counts as what it leads
// to. False for a regular file, and where nothing is.
bool IsNoRegularFile(const KivWString& csPath);

// Gives a new file, which is private to the user as all are that are made here, the permissions of the file whose place
// it is about to take or, where there is none, those that the user's settings give to new files. False on failure.
// Windows: nothing, since a new file takes its folder's.
bool TakePermissionsFor(const KivWString& csNew, const KivWString& csTarget);

}  // namespace kiv::sys
