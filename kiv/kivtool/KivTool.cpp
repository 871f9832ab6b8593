#include "KivTool.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <new>

#include "KivCommand.h"
#include "KivDataUtil.h"
#include "KivSysTerminal.h"
#include "KivToolModel.h"

namespace kiv {
namespace {

constexpr const char* kFooter =
    "Exit codes: 0 good; 1 a check found errors, or a list is incomplete; 2 cannot open, cannot write, wrong use, or "
    "stopped.\n"
    "Results go to standard output, everything else to standard error. --json prints one JSON document.";

// Runs a command, and says in one line what ended it.
KivToolExit RunGuarded(KivCommand& zCommand, KivOptions& zOptions, KivToolOutput& zOutput) {
  try {
    zOptions.Store();
    const KivToolExit eExit = zCommand.Run(zOutput);
    if (zOutput.Finish()) return eExit;
    zOutput.Note("standard output cannot be written");  // nor can it take a document that tells it
    return KivToolExit::Failed;
  } catch (const KivToolError& e) {
    return zOutput.Fail(e.what());
  } catch (const std::bad_alloc&) {
    return zOutput.Fail("there is not enough memory");
  } catch (const std::exception& e) {
    return zOutput.Fail(std::string("failed: ") + e.what());
  }
}

// What the library writes for its own use goes with the command.
struct WorkFolder {
  WorkFolder() = default;
  WorkFolder(const WorkFolder&) = delete;
  WorkFolder& operator=(const WorkFolder&) = delete;
  ~WorkFolder() {
    try {
      if (KivIsWorkFolderSettled()) KivCloseLog();
    } catch (const std::exception&) {
    }
    KivRemoveToolWorkFolder();
  }
};

}  // namespace

int32_t KivRunTool(const std::vector<KivWString>& vcsArguments) {
  bool bJson = false;
  CLI::App zApp{"Looks into models, checks them, and carries them in and out.", "kiv"};
  zApp.require_subcommand(1);
  zApp.fallthrough();
  zApp.footer(kFooter);
  zApp.set_version_flag("--version", "kiv " KIV_TOOL_VERSION);
  zApp.add_flag("--json", bJson, "print JSON");

  const std::vector<std::unique_ptr<KivCommand>> vpzCommand = KivMakeCommands();
  std::vector<std::unique_ptr<KivOptions>> vpzOptions;
  size_t iChosen = vpzCommand.size();
  for (size_t i = 0; i < vpzCommand.size(); ++i) {
    CLI::App* pzSub = zApp.add_subcommand(vpzCommand[i]->Name(), vpzCommand[i]->Help());
    vpzCommand[i]->Declare(*vpzOptions.emplace_back(std::make_unique<KivOptions>(*pzSub)));
    pzSub->callback([&iChosen, i] { iChosen = i; });
  }

  std::vector<std::string> vstrWord;  // the last one first, as the parser wants them
  for (size_t i = vcsArguments.size(); i > 1; --i) vstrWord.push_back(KivOptions::Pack(vcsArguments[i - 1]));
  const bool bAskedForJson = std::find(vstrWord.begin(), vstrWord.end(), "--json") != vstrWord.end();
  try {
    zApp.parse(vstrWord);
  } catch (const CLI::ParseError& e) {
    if (e.get_exit_code() == 0) return zApp.exit(e);  // help and version
    return static_cast<int32_t>(KivToolOutput(bAskedForJson).Fail(KivShown(KivOptions::Unpack(e.what()))));
  }
  sys::CatchStopRequests();
  const WorkFolder zWorkFolder;
  KivToolOutput zOutput(bJson);
  return static_cast<int32_t>(RunGuarded(*vpzCommand[iChosen], *vpzOptions[iChosen], zOutput));
}

}  // namespace kiv
