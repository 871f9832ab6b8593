// A named pipe in a test's folder.
#pragma once

#include <cstdlib>

#include "KivSysFolder.h"
#include "KivTestFolder.h"

namespace kivtest {

// False where pipes are no files of a folder.
inline bool MakePipe(const TestFolder& zFolder, const kiv::KivWString& csName) {
  if (kiv::sys::kSeparator == u'\\') return false;
  return std::system(("mkfifo '" + kiv::sys::WideToUtf8(zFolder / csName) + "'").c_str()) == 0;
}

inline bool IsPipe(const TestFolder& zFolder, const kiv::KivWString& csName) {
  return std::filesystem::is_fifo(std::filesystem::path(zFolder / csName));
}

}  // namespace kivtest
