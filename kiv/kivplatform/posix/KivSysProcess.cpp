#include "KivSysProcess.h"

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <utility>

#include "KivSysChild.h"

namespace kiv {

using namespace sys::posix;

namespace sys::posix {
namespace {

// Takes the end of a child, if it has come. iCode is left alone when somebody else took it.
enum class Reap { Running, Ended, Lost };
Reap TryReap(pid_t iId, int32_t& iCode) noexcept {
  siginfo_t zInfo{};
  int iResult;
  do {
    iResult = waitid(P_PID, static_cast<id_t>(iId), &zInfo, WEXITED | WNOHANG);
  } while (iResult != 0 && errno == EINTR);
  if (iResult != 0) return Reap::Lost;
  if (zInfo.si_pid == 0) return Reap::Running;
  iCode = zInfo.si_code == CLD_EXITED ? zInfo.si_status : 128 + zInfo.si_status;
  return Reap::Ended;
}

// Children whose objects are gone while they run. One thread, started with the first of them, takes their ends.
class Orphans {
 public:
  // Never destroyed: its thread runs until the process ends.
  static Orphans& Get() {
    static Orphans* const s_pzOrphans = new Orphans;
    return *s_pzOrphans;
  }

  void Add(pid_t iId, Descriptor zPidFd) noexcept {
    const std::lock_guard zGuard(m_zLock);
    try {
      m_vzChildren.push_back({iId, std::move(zPidFd)});
      if (!m_zWake.IsOpen()) m_zWake.Reset(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
      if (!m_bThread && m_zWake.IsOpen()) m_bThread = StartDetached([this] { Run(); }, 0);
    } catch (const std::exception&) {
      // Out of memory: the child remains a zombie until this process ends.
    }
    WakeThread();
  }

  // False if there is no such child, or its end has been taken.
  bool Remove(pid_t iId, Descriptor& zPidFd) noexcept {
    const std::lock_guard zGuard(m_zLock);
    const auto it = std::find_if(m_vzChildren.begin(), m_vzChildren.end(),
                                 [iId](const Child& zChild) { return zChild.m_iId == iId; });
    if (it == m_vzChildren.end()) return false;
    zPidFd = std::move(it->m_zPidFd);
    m_vzChildren.erase(it);
    return true;
  }

  // For the case that there could be no thread.
  void ReapEnded() {
    const std::lock_guard zGuard(m_zLock);
    std::erase_if(m_vzChildren, [](const Child& zChild) {
      int32_t iCode = 0;
      return TryReap(zChild.m_iId, iCode) != Reap::Running;
    });
  }

 private:
  struct Child {
    pid_t m_iId = 0;
    Descriptor m_zPidFd;
  };

  void WakeThread() noexcept {
    const uint64_t iOne = 1;
    if (m_zWake.IsOpen() && write(m_zWake.Get(), &iOne, sizeof iOne) < 0 && errno != EAGAIN) {
      // Nothing to do: the thread looks again with the next child.
    }
  }

  [[noreturn]] void Run() {
    for (;;) {
      std::vector<pollfd> vzPoll;
      int iTimeout = -1;
      try {
        const std::lock_guard zGuard(m_zLock);
        vzPoll.push_back({m_zWake.Get(), POLLIN, 0});
        for (const Child& zChild : m_vzChildren) {
          if (zChild.m_zPidFd.IsOpen())
            vzPoll.push_back({zChild.m_zPidFd.Get(), POLLIN, 0});
          else
            iTimeout = 50;
        }
      } catch (const std::bad_alloc&) {
        iTimeout = 50;  // looks at some of them, and at all a little later
      }
      poll(vzPoll.data(), vzPoll.size(), iTimeout);
      uint64_t iCount;
      if (read(m_zWake.Get(), &iCount, sizeof iCount) < 0) {
        // Not woken: one of the children ended.
      }
      ReapEnded();
    }
  }

  std::mutex m_zLock;
  std::vector<Child> m_vzChildren;
  Descriptor m_zWake;
  bool m_bThread = false;
};

// The program's file, found by this process and not by the child in its folder.
std::string FindProgram(const std::string& strProgram) {
  if (strProgram.empty() || strProgram[0] == '/') return strProgram;
  char szBuffer[4096];
  if (strProgram.find('/') != std::string::npos)
    return getcwd(szBuffer, sizeof szBuffer) == nullptr ? strProgram : std::string(szBuffer) + "/" + strProgram;
  const ssize_t nSelf = readlink("/proc/self/exe", szBuffer, sizeof szBuffer - 1);
  if (nSelf > 0) {
    const std::string strSelf(szBuffer, static_cast<size_t>(nSelf));
    const std::string strBeside = strSelf.substr(0, strSelf.rfind('/') + 1) + strProgram;
    if (access(strBeside.c_str(), X_OK) == 0) return strBeside;
  }
  return strProgram;  // looked for in $PATH
}

}  // namespace

// By number: the C library's own declarations lack their C linkage.
int OpenPidFd(pid_t iId) {
  return g_bNoPidFd.load(std::memory_order_relaxed) ? -1 : static_cast<int>(syscall(SYS_pidfd_open, iId, 0));
}

bool ChildObject::HasEnded() noexcept {
  if (m_bEnded) return true;
  const Reap iReap = TryReap(m_iId, m_iCode);
  if (iReap == Reap::Lost) {
    // Somebody else in this process took the end; the descriptor still tells when it comes.
    pollfd zPoll{m_zPidFd.Get(), POLLIN, 0};
    m_bEnded = !m_zPidFd.IsOpen() || poll(&zPoll, 1, 0) > 0;
  } else {
    m_bEnded = m_bCodeKnown = iReap == Reap::Ended;
  }
  return m_bEnded;
}

}  // namespace sys::posix

KivSysProcess::KivSysProcess(KivSysProcess&& zOther) noexcept
    : m_iId(std::exchange(zOther.m_iId, 0)), m_iHandle(std::exchange(zOther.m_iHandle, 0)) {}

KivSysProcess& KivSysProcess::operator=(KivSysProcess&& zOther) noexcept {
  if (this != &zOther) {
    Close();
    m_iId = std::exchange(zOther.m_iId, 0);
    m_iHandle = std::exchange(zOther.m_iHandle, 0);
  }
  return *this;
}

KivSysProcess::~KivSysProcess() {
  Close();
}

KivSysProcess KivSysProcess::Start(const KivSysProcessStart& zStart) {
  KivSysProcess zProcess;
  if (!FaultAllows(KivSysCall::ProcessStart)) return zProcess;
  if (zStart.m_csCommandLine.find(u'\0') != KivWString::npos) return FailWith(EINVAL), std::move(zProcess);
  std::vector<std::string> vstrArgs = SplitCommandLine(zStart.m_csCommandLine);
  if (vstrArgs[0].empty()) return FailWith(ENOENT), std::move(zProcess);
  const std::string strProgram = FindProgram(vstrArgs[0]);
  std::vector<char*> vpArgs;
  for (std::string& strArg : vstrArgs) vpArgs.push_back(strArg.data());
  vpArgs.push_back(nullptr);

  // Before there is a child that want of memory could lose.
  auto pzChild = std::make_unique<ChildObject>();
  Orphans::Get();
  pid_t iGroup = -1;  // this process's
  bool bPending = false;
  if (!zStart.m_csJobName.empty()) {
    iGroup = GroupOfJob(zStart.m_csJobName);
    bPending = iGroup != 0;
    if (!bPending) iGroup = -1;
  }
  if (iGroup < 0 && zStart.m_bBreakAwayFromJob) iGroup = 0;  // one of its own

  posix_spawn_file_actions_t zActions;
  posix_spawn_file_actions_init(&zActions);
  posix_spawnattr_t zAttributes;
  posix_spawnattr_init(&zAttributes);
  sigset_t zNoSignals;
  sigemptyset(&zNoSignals);
  posix_spawnattr_setsigmask(&zAttributes, &zNoSignals);
  posix_spawnattr_setpgroup(&zAttributes, std::max(iGroup, 0));
  posix_spawnattr_setflags(&zAttributes,
                           static_cast<short>(POSIX_SPAWN_SETSIGMASK | (iGroup >= 0 ? POSIX_SPAWN_SETPGROUP : 0)));
  int iError = posix_spawn_file_actions_addclosefrom_np(&zActions, 3);
  for (int iStream = 0; zStart.m_bNoStreams && iStream < 3 && iError == 0; ++iStream)
    iError = posix_spawn_file_actions_addopen(&zActions, iStream, "/dev/null", iStream == 0 ? O_RDONLY : O_WRONLY, 0);
  std::string strFolder;
  if (iError == 0 && !zStart.m_csFolder.empty()) {
    iError = NativePath(zStart.m_csFolder, strFolder)
                 ? posix_spawn_file_actions_addchdir_np(&zActions, strFolder.c_str())
                 : EINVAL;
  }
  pid_t iId = 0;
  if (iError == 0) iError = posix_spawnp(&iId, strProgram.c_str(), &zActions, &zAttributes, vpArgs.data(), environ);
  if (iError == EPERM && bPending) {  // the group is another session's
    bPending = false;
    posix_spawnattr_setpgroup(&zAttributes, 0);
    iError = posix_spawnp(&iId, strProgram.c_str(), &zActions, &zAttributes, vpArgs.data(), environ);
  }
  posix_spawn_file_actions_destroy(&zActions);
  posix_spawnattr_destroy(&zAttributes);
  if (iError != 0) return FailWith(iError), std::move(zProcess);

  pzChild->m_iId = iId;
  pzChild->m_zPidFd.Reset(OpenPidFd(iId));
  pzChild->m_bAssignPending = bPending;
  ProcessFacts zFacts;
  if (ReadProcessFacts(iId, zFacts)) pzChild->m_iStartTicks = zFacts.m_iStartTicks;
  zProcess.m_iId = static_cast<uint32_t>(iId);
  zProcess.m_iHandle = reinterpret_cast<intptr_t>(pzChild.release());
  return zProcess;
}

KivSysProcess KivSysProcess::TakeBack(uint32_t iId) {
  KivSysProcess zProcess;
  auto pzChild = std::make_unique<ChildObject>();
  pzChild->m_iId = static_cast<pid_t>(iId);
  if (!Orphans::Get().Remove(pzChild->m_iId, pzChild->m_zPidFd)) return FailWith(ECHILD), std::move(zProcess);
  ProcessFacts zFacts;
  if (ReadProcessFacts(pzChild->m_iId, zFacts)) pzChild->m_iStartTicks = zFacts.m_iStartTicks;
  zProcess.m_iId = iId;
  zProcess.m_iHandle = reinterpret_cast<intptr_t>(pzChild.release());
  return zProcess;
}

void KivSysProcess::Close() noexcept {
  if (m_iHandle == 0) return;
  ChildObject* const pzChild = ChildOf(m_iHandle);
  m_iHandle = 0;
  m_iId = 0;
  if (!pzChild->HasEnded()) Orphans::Get().Add(pzChild->m_iId, std::move(pzChild->m_zPidFd));
  delete pzChild;
}

KivSysWait KivSysProcess::Wait(uint32_t iMilliSeconds) {
  if (!FaultAllows(KivSysCall::ProcessWait)) return KivSysWait::Failed;
  if (!IsOpen()) return FailWith(EBADF), KivSysWait::Failed;
  ChildObject& zChild = *ChildOf(m_iHandle);
  if (zChild.HasEnded()) return KivSysWait::Signalled;
  if (iMilliSeconds == 0) return KivSysWait::TimedOut;
  const bool bForever = iMilliSeconds == KivSysEvent::kInfinite;
  const uint64_t iUntil = NowNs() + uint64_t{iMilliSeconds} * 1'000'000;
  uint64_t iPauseMs = 1;
  for (;;) {
    const uint64_t iNow = NowNs();
    if (!bForever && iNow >= iUntil) return KivSysWait::TimedOut;
    uint64_t iWaitMs = bForever ? 60'000 : (iUntil - iNow + 999'999) / 1'000'000;
    if (zChild.m_zPidFd.IsOpen()) {
      pollfd zPoll{zChild.m_zPidFd.Get(), POLLIN, 0};
      poll(&zPoll, 1, static_cast<int>(std::min<uint64_t>(iWaitMs, INT32_MAX)));
    } else {
      // Without such descriptors: ask again and again, ever less often.
      iWaitMs = std::min(iWaitMs, iPauseMs);
      iPauseMs = std::min<uint64_t>(iPauseMs * 2, 20);
      poll(nullptr, 0, static_cast<int>(iWaitMs));
    }
    if (zChild.HasEnded()) return KivSysWait::Signalled;
  }
}

bool KivSysProcess::GetExitCode(int32_t& iCode) {
  if (!IsOpen()) return FailWith(EBADF);
  ChildObject& zChild = *ChildOf(m_iHandle);
  if (!zChild.HasEnded()) return false;
  if (!zChild.m_bCodeKnown) return FailWith(ECHILD);
  iCode = zChild.m_iCode;
  return true;
}

bool KivSysProcess::Terminate(int32_t) {
  if (!IsOpen()) return FailWith(EBADF);
  ChildObject& zChild = *ChildOf(m_iHandle);
  if (zChild.HasEnded()) return FailWith(ESRCH);
  // Not reaped yet, so that the id is still this child's.
  return kill(zChild.m_iId, SIGKILL) == 0 ? true : FailWithErrno();
}

namespace sys {

uint32_t CurrentProcessNumber() {
  return static_cast<uint32_t>(getpid());
}

bool ListProcesses(std::vector<uint32_t>& viIds) {
  viIds.clear();
  if (!FaultAllows(KivSysCall::ProcessList)) return false;
  DIR* const pDirectory = opendir("/proc");
  if (pDirectory == nullptr) return FailWithErrno();
  for (;;) {
    errno = 0;
    const dirent* const pEntry = readdir(pDirectory);
    if (pEntry == nullptr) break;
    char* pEnd = nullptr;
    const long iId = std::strtol(pEntry->d_name, &pEnd, 10);
    if (pEnd == pEntry->d_name || *pEnd != 0 || iId <= 0 || iId > INT32_MAX) continue;
    ProcessFacts zFacts;
    // One that cannot be looked at counts as running.
    errno = 0;
    if (ReadProcessFacts(static_cast<int32_t>(iId), zFacts) ? zFacts.IsAlive() : errno != ENOENT && errno != ESRCH)
      viIds.push_back(static_cast<uint32_t>(iId));
  }
  const int iError = errno;  // half a list would make the living look dead
  closedir(pDirectory);
  return iError == 0 || FailWith(iError);
}

bool MemoryCounters(KivSysMemoryCounters& zCounters) {
  if (!FaultAllows(KivSysCall::MemoryCounters)) return false;
  const Descriptor zFd(open("/proc/self/status", O_RDONLY | O_CLOEXEC));
  char szText[8192];
  const ssize_t nRead = zFd.IsOpen() ? read(zFd.Get(), szText, sizeof szText - 1) : -1;
  if (nRead <= 0) return FailWithErrno();
  szText[nRead] = 0;
  const auto Bytes = [&szText](const char* szName) -> uint64_t {
    const char* const pField = std::strstr(szText, szName);
    return pField == nullptr ? 0 : std::strtoull(pField + std::strlen(szName), nullptr, 10) * 1024;
  };
  static std::atomic<uint64_t> s_iPeak{0};
  zCounters.m_iWorkingSet = Bytes("\nVmRSS:");
  zCounters.m_iPeakWorkingSet = std::max(Bytes("\nVmHWM:"), zCounters.m_iWorkingSet);
  zCounters.m_iPageFile = Bytes("\nRssAnon:") + Bytes("\nVmSwap:");
  uint64_t iPeak = s_iPeak.load(std::memory_order_relaxed);
  while (iPeak < zCounters.m_iPageFile && !s_iPeak.compare_exchange_weak(iPeak, zCounters.m_iPageFile)) {
  }
  zCounters.m_iPeakPageFile = std::max(iPeak, zCounters.m_iPageFile);
  return true;
}

void EndProcess(int32_t iCode) {
  _exit(iCode);
}

namespace {

std::atomic<int32_t> g_iUncaughtCode{0};

}  // namespace

void SetUncaughtExitCode(int32_t iCode) {
  g_iUncaughtCode.store(iCode);
  std::set_terminate([] { EndProcess(g_iUncaughtCode.load()); });
}

}  // namespace sys
}  // namespace kiv
