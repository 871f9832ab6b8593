#include "KivStopGuard.h"

#include <chrono>

#include "KivProgress.h"
#include "KivSysProcess.h"
#include "KivSysTerminal.h"
#include "KivToolModel.h"

namespace kiv {
namespace {

constexpr std::chrono::milliseconds kLook(50);
constexpr int kPatience = 6;  // looks until a command that was asked to stop is ended

}  // namespace

KivStopGuard::KivStopGuard(std::function<bool()> pfnAbandon, KivToolOutput& zOutput)
    : m_pfnAbandon(std::move(pfnAbandon)), m_zOutput(zOutput) {
  sys::HoldStopRequests(true);
  m_zThread = std::thread([this] { Watch(); });
}

KivStopGuard::~KivStopGuard() {
  {
    const std::lock_guard zGuard(m_zLock);
    m_bDone = true;
  }
  m_zDone.notify_one();
  m_zThread.join();
  sys::HoldStopRequests(false);
}

void KivStopGuard::Watch() {
  std::unique_lock zLock(m_zLock);
  for (int nLooks = 0; !m_zDone.wait_for(zLock, kLook, [this] { return m_bDone; });) {
    if (!sys::IsStopRequested() || ++nLooks < kPatience || !m_pfnAbandon()) continue;
    KivProgress::EndAll();
    m_zOutput.Fail("stopped");
    m_zOutput.Finish();
    KivRemoveToolWorkFolder();
    m_pfnAbandon();  // what came up in between
    sys::EndProcess(static_cast<int32_t>(KivToolExit::Failed));
  }
}

}  // namespace kiv
