// Ends the process if the user wants to stop and the command does not come to a place where it asks: libraries behind
// it may work for seconds at a stretch. Further requests to stop change nothing while one lives.
//
//   KivTargetFile zTarget(csOut, bForce, {csIn});
//   KivStopGuard zGuard([&] { return zTarget.Abandon(); }, zOutput);
//   ... long work ...
//   zTarget.Commit();
//
// For a time when nothing else is printed.
#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

#include "KivToolOutput.h"

namespace kiv {

class KivStopGuard {
 public:
  // pfnAbandon takes away what the command has begun, on another thread and more than once; false if it cannot, or if
  // nothing is to be abandoned any more: the command then goes on, and it is asked again later.
  KivStopGuard(std::function<bool()> pfnAbandon, KivToolOutput& zOutput);
  ~KivStopGuard();
  KivStopGuard(const KivStopGuard&) = delete;
  KivStopGuard& operator=(const KivStopGuard&) = delete;

 private:
  void Watch();

  std::function<bool()> m_pfnAbandon;
  KivToolOutput& m_zOutput;
  std::mutex m_zLock;
  std::condition_variable m_zDone;
  bool m_bDone = false;
  std::thread m_zThread;
};

}  // namespace kiv
