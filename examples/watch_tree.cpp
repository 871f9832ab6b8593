// Opens models at once, one handler process for each, and asks them in turn until the tree ends; then shows how it
// ended. End it by ending one of the processes that it lists.
//
//   usage: watch_tree MODEL...        exit code: 4 when the tree has ended, 1 if it did not within 10 seconds, or a
//   failure
#include <algorithm>
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "DorClient.h"
#include "KivSysClock.h"
#include "KivSysMain.h"
#include "KivSysProcess.h"

namespace {

constexpr int kTreeEnded = 4;
constexpr int kFailed = 1;
constexpr uint64_t kPatienceNs = 10'000'000'000;

double MsSince(uint64_t iStartNs) {
  return static_cast<double>(kiv::sys::SteadyNs() - iStartNs) / 1e6;
}

// How many of the tree's processes still run.
size_t CountLiving(const std::vector<int32_t>& viPids) {
  std::vector<uint32_t> viRunning;
  if (!kiv::sys::ListProcesses(viRunning)) return viPids.size();
  return static_cast<size_t>(std::count_if(viPids.begin(), viPids.end(), [&](int32_t iPid) {
    return std::find(viRunning.begin(), viRunning.end(), static_cast<uint32_t>(iPid)) != viRunning.end();
  }));
}

int Run(const std::vector<kiv::KivWString>& vcsModels) {
  const uint64_t iStart = kiv::sys::SteadyNs();
  kiv::DorClient zClient;
  std::vector<int64_t> viModels;
  for (const kiv::KivWString& csModel : vcsModels) viModels.push_back(zClient.StartOpen(csModel));
  for (int64_t iModel : viModels) zClient.AwaitOpen(iModel);
  std::vector<int32_t> viTree = zClient.ListTree();
  viTree.erase(viTree.begin());  // this program
  std::printf("opened  %zu models in %.1f ms\nrelay   %d\nhandler", viModels.size(), MsSince(iStart),
              zClient.GetRelayPid());
  for (int32_t iPid : viTree)
    if (iPid != zClient.GetRelayPid()) std::printf(" %d", iPid);
  std::printf("\n");
  std::fflush(stdout);  // whoever ends one of them reads this through a pipe

  size_t nAnswers = 0;
  const uint64_t iFirst = kiv::sys::SteadyNs();
  uint64_t iLast = iFirst;
  try {
    while (kiv::sys::SteadyNs() - iFirst < kPatienceNs) {
      for (int64_t iModel : viModels) {
        zClient.GetReadStatus(iModel);
        ++nAnswers;
        iLast = kiv::sys::SteadyNs();
      }
      kiv::sys::SleepMs(1);
    }
    std::printf("nobody has ended the tree\n");
    return kFailed;
  } catch (const kiv::DorClientError& e) {
    const double dMs = MsSince(iLast);
    const size_t nLeft = CountLiving(viTree);
    std::printf("ended   after %zu answers: %s; %.1f ms behind the last one\nrunning %zu of the tree's %zu processes\n",
                nAnswers, e.what(), dMs, nLeft, viTree.size());
  }
  const uint64_t iClose = kiv::sys::SteadyNs();
  const bool bClean = zClient.Close();
  const double dMs = MsSince(iClose);
  const size_t nLiving = CountLiving(viTree);
  std::printf("closed  in %.1f ms, %s\nrunning %zu of the tree's %zu processes\n", dMs,
              bClean ? "no folder left behind" : "folders are left behind", nLiving, viTree.size());
  int32_t iRelayCode = 0;
  if (zClient.GetRelayExitCode(iRelayCode)) std::printf("exit code of the relay: %d\n", iRelayCode);
  return bClean && nLiving == 0 ? kTreeEnded : kFailed;
}

}  // namespace

int32_t kiv::KivMain(const std::vector<KivWString>& vcsArguments) {
  if (vcsArguments.size() < 2) {
    std::fprintf(stderr, "usage: watch_tree MODEL...\n");
    return 64;
  }
  try {
    return Run(std::vector<KivWString>(vcsArguments.begin() + 1, vcsArguments.end()));
  } catch (const std::exception& e) {
    std::fprintf(stderr, "watch_tree: %s\n", e.what());
    return kFailed;
  }
}
