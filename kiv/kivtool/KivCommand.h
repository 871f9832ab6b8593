// A command of the program kiv. A new one is a source in commands/, which defines KivMake<name of the source>Command;
// the build makes the table of all of them (KivToolTables.cmake).
#pragma once

#include <memory>
#include <vector>

#include "KivOptions.h"
#include "KivToolError.h"
#include "KivToolOutput.h"

namespace kiv {

class KivCommand {
 public:
  virtual ~KivCommand() = default;

  virtual const char* Name() const = 0;
  virtual const char* Help() const = 0;  // one line
  // Arguments and options; where they are kept lives as long as the command.
  virtual void Declare(KivOptions& zOptions) = 0;
  // Prints what it has to say and gives the exit code. Throws KivToolError for what the user must know; whatever else
  // is thrown is told in one line, too.
  virtual KivToolExit Run(KivToolOutput& zOutput) = 0;
};

// All commands, in the order of their names.
std::vector<std::unique_ptr<KivCommand>> KivMakeCommands();

}  // namespace kiv
