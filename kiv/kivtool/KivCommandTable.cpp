// The table of commands.
#include "KivCommand.h"

namespace kiv {

// Each is defined in the source of its name in commands/.
std::unique_ptr<KivCommand> KivMakeImportCommand();
std::unique_ptr<KivCommand> KivMakeInfoCommand();
std::unique_ptr<KivCommand> KivMakeRecordsCommand();
std::unique_ptr<KivCommand> KivMakeTreeCommand();
std::unique_ptr<KivCommand> KivMakeCheckCommand();
std::unique_ptr<KivCommand> KivMakeShowCommand();
std::unique_ptr<KivCommand> KivMakeExportCommand();

std::vector<std::unique_ptr<KivCommand>> KivMakeCommands() {
  constexpr std::unique_ptr<KivCommand> (*kMake[])() = {
      KivMakeImportCommand,  KivMakeExportCommand, KivMakeInfoCommand, KivMakeCheckCommand,
      KivMakeRecordsCommand, KivMakeTreeCommand,   KivMakeShowCommand,
  };
  std::vector<std::unique_ptr<KivCommand>> vpzCommand;
  for (const auto pfnMake : kMake) vpzCommand.push_back(pfnMake());
  return vpzCommand;
}

}  // namespace kiv
