// The entry of a program with wide arguments. A program that links the target kivmain defines KivMain, and the target
// brings the system's own entry (wmain on Windows, main elsewhere; bytes of an argument that are no valid text there
// stand as lone surrogates, as in paths). On Linux a write above the user's limit on the size of files fails from then
// on, as on a full disk, and does not end the program or those that it starts.
#pragma once

#include <cstdint>
#include <vector>

#include "KivSysText.h"

namespace kiv {

// The program's name first. Gives the exit code.
int32_t KivMain(const std::vector<KivWString>& vcsArguments);

}  // namespace kiv
