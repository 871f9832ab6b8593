// How the commands of the program kiv end.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace kiv {

enum class KivToolExit : int32_t {
  Good = 0,
  Findings = 1,  // a check found errors, or what was told leaves out what could not be loaded
  Failed = 2     // something cannot be opened or written, wrong use, stopped by the user
};

// Ends a command with one line, which says what is wrong with what, and with KivToolExit::Failed.
class KivToolError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace kiv
