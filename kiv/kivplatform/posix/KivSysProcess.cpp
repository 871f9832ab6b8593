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
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <mutex>
#include <string>
#include <utility>

#include "KivSysFile.h"
#include "KivSysPosix.h"

namespace kiv {

using sys::posix::Descriptor;
using sys::posix::FailWith;
using sys::posix::FailWithErrno;
using sys::posix::FaultAllows;
using sys::posix::NowNs;

namespace sys::posix {
namespace {

// By number: the C library's own declarations lack their C linkage.
int OpenPidFd(pid_t iId) {
  return g_bNoPidFd.load(std::memory_order_relaxed) ? -1 : static_cast<int>(syscall(SYS_pidfd_open, iId, 0));
}

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
      {
        const std::lock_guard zGuard(m_zLock);
        vzPoll.push_back({m_zWake.Get(), POLLIN, 0});
        for (const Child& zChild : m_vzChildren) {
          if (zChild.m_zPidFd.IsOpen())
            vzPoll.push_back({zChild.m_zPidFd.Get(), POLLIN, 0});
          else
            iTimeout = 50;
        }
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

struct ChildObject {
  pid_t m_iId = 0;
  Descriptor m_zPidFd;
  uint64_t m_iStartTicks = 0;
  bool m_bEnded = false;
  bool m_bCodeKnown = false;
  bool m_bAssignPending = false;  // in the group of a job since its start, but not assigned yet
  int32_t m_iCode = 0;

  bool HasEnded() noexcept {
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
};

ChildObject* ChildOf(intptr_t iHandle) {
  return reinterpret_cast<ChildObject*>(iHandle);
}

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

// A job as its file shows it. The file belongs to the root, which holds it as a delete-on-close file; its lines are
// the group's id (0: none), then "<id> <start time>" of each process that was assigned without being in the group.
struct Member {
  int32_t m_iId = 0;
  uint64_t m_iStartTicks = 0;
};
struct JobContent {
  int32_t m_iGroup = 0;
  std::vector<Member> m_vzMembers;
};

bool ReadJob(int iFd, JobContent& zContent) {
  std::string strText;
  char szPart[4096];
  ssize_t nRead;
  while ((nRead = pread(iFd, szPart, sizeof szPart, static_cast<off_t>(strText.size()))) > 0) {
    strText.append(szPart, static_cast<size_t>(nRead));
    if (strText.size() > 1 << 20) break;
  }
  const char* pLine = strText.c_str();
  if (std::strchr(pLine, '\n') == nullptr) return FailWith(EINVAL);
  zContent = {};
  zContent.m_iGroup = std::atoi(pLine);
  for (pLine = std::strchr(pLine, '\n') + 1; std::strchr(pLine, '\n') != nullptr;
       pLine = std::strchr(pLine, '\n') + 1) {
    Member zMember;
    unsigned long long iStart = 0;
    if (std::sscanf(pLine, "%d %llu", &zMember.m_iId, &iStart) != 2 || zMember.m_iId <= 1) continue;
    zMember.m_iStartTicks = iStart;
    zContent.m_vzMembers.push_back(zMember);
  }
  if (zContent.m_iGroup <= 1) zContent.m_iGroup = 0;
  return true;
}

Descriptor OpenJobFile(const KivWString& csName) {
  std::string strPath;
  if (!ObjectPath('j', csName, strPath)) return {};
  Descriptor zFd(open(strPath.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW));
  if (!zFd.IsOpen()) {
    FailWithErrno();
    return {};
  }
  if (!BytesHeld(zFd.Get(), kLockOwner, 1)) {
    RemoveIfDead(AT_FDCWD, strPath.c_str());
    FailWith(ENOENT);
    return {};
  }
  return zFd;
}

struct JobObject {
  Descriptor m_zFd;
  std::string m_strPath;  // in the root only
  pid_t m_iAnchor = 0;    // in the root only: the child whose id is the group's, kept as a zombie

  bool OwnerLives() const noexcept { return m_iAnchor != 0 || BytesHeld(m_zFd.Get(), kLockOwner, 1); }
};

JobObject* JobOf(intptr_t iHandle) {
  return reinterpret_cast<JobObject*>(iHandle);
}

// A child that makes a process group and ends; not reaped, it keeps the id from being given again. 0 on failure.
pid_t MakeAnchor() {
  const pid_t iAnchor = fork();
  if (iAnchor == 0) _exit(setpgid(0, 0) == 0 ? 0 : 1);
  if (iAnchor < 0) return 0;
  siginfo_t zInfo{};
  int iResult;
  do {
    iResult = waitid(P_PID, static_cast<id_t>(iAnchor), &zInfo, WEXITED | WNOWAIT);
  } while (iResult != 0 && errno == EINTR);
  return iResult == 0 && zInfo.si_code == CLD_EXITED && zInfo.si_status == 0 ? iAnchor : 0;
}

bool IsMember(const Member& zMember, const ProcessFacts& zFacts) {
  return zMember.m_iStartTicks == zFacts.m_iStartTicks;
}

// Ends one process for certain not to be another one that got the id: pfnStill looks at it again when it cannot
// change any more.
template <typename Still>
bool KillOne(pid_t iId, Still&& pfnStill) {
  if (iId <= 1 || iId == getpid()) return false;
  const Descriptor zPidFd(OpenPidFd(iId));
  if (!zPidFd.IsOpen() && !g_bNoPidFd.load(std::memory_order_relaxed) && errno == ESRCH) return false;
  if (!pfnStill()) return false;
  if (zPidFd.IsOpen())
    syscall(SYS_pidfd_send_signal, zPidFd.Get(), SIGKILL, nullptr, 0);
  else
    kill(iId, SIGKILL);
  return true;
}

// Ends the processes of the groups that live now, and says how many there were.
uint32_t KillGroups(const std::vector<pid_t>& viGroups) {
  uint32_t nKilled = 0;
  std::vector<uint32_t> viIds;
  if (!ListProcesses(viIds)) return 0;
  for (const uint32_t iNumber : viIds) {
    const auto iId = static_cast<pid_t>(iNumber);
    nKilled += KillOne(iId, [&] {
      ProcessFacts zFacts;
      return ReadProcessFacts(iId, zFacts) && zFacts.IsAlive() &&
             std::find(viGroups.begin(), viGroups.end(), zFacts.m_iGroup) != viGroups.end();
    });
  }
  return nKilled;
}

// Ends the processes whose markers live in the folder, and says how many there were.
uint32_t KillMarked(const std::string& strFolder) {
  constexpr char kMarker[] = "KivProc";
  DIR* const pDirectory = opendir(strFolder.c_str());
  if (pDirectory == nullptr) return 0;
  uint32_t nKilled = 0;
  while (const dirent* pEntry = readdir(pDirectory)) {
    if (std::strncmp(pEntry->d_name, kMarker, sizeof kMarker - 1) != 0) continue;
    char* pEnd = nullptr;
    const long iId = std::strtol(pEntry->d_name + sizeof kMarker - 1, &pEnd, 10);
    if (*pEnd != 0 || iId <= 1 || iId > INT32_MAX) continue;
    nKilled += KillOne(static_cast<pid_t>(iId), [&] {
      struct stat zStat;
      ProcessFacts zFacts;
      return ExistsAt(dirfd(pDirectory), pEntry->d_name, zStat) &&
             ReadProcessFacts(static_cast<int32_t>(iId), zFacts) && zFacts.IsAlive();
    });
  }
  closedir(pDirectory);
  return nKilled;
}

}  // namespace

// The rules of CommandLineToArgvW: the program ends at a blank or its closing quote, without escapes; after it 2n
// backslashes before a quote are n, 2n + 1 are n and a plain quote, and two quotes inside quotes are one.
std::vector<std::string> SplitCommandLine(KivWStringView csLine) {
  std::vector<std::string> vstrArgs;
  const auto IsBlank = [](char16_t c) { return c == u' ' || c == u'\t'; };
  size_t i = 0;
  KivWString csPart;
  if (!csLine.empty() && csLine[0] == u'"') {
    for (i = 1; i < csLine.size() && csLine[i] != u'"'; ++i) csPart += csLine[i];
    if (i < csLine.size()) ++i;
  } else {
    for (; i < csLine.size() && !IsBlank(csLine[i]); ++i) csPart += csLine[i];
  }
  vstrArgs.push_back(NativeName(csPart));
  for (;;) {
    while (i < csLine.size() && IsBlank(csLine[i])) ++i;
    if (i == csLine.size()) return vstrArgs;
    csPart.clear();
    bool bQuoted = false;
    while (i < csLine.size() && (bQuoted || !IsBlank(csLine[i]))) {
      size_t nSlashes = 0;
      while (i < csLine.size() && csLine[i] == u'\\') ++nSlashes, ++i;
      if (i == csLine.size() || csLine[i] != u'"') {
        csPart.append(nSlashes, u'\\');
        if (i < csLine.size() && (bQuoted || !IsBlank(csLine[i]))) csPart += csLine[i++];
        continue;
      }
      csPart.append(nSlashes / 2, u'\\');
      ++i;
      if (nSlashes % 2 != 0) {
        csPart += u'"';
      } else if (bQuoted && i < csLine.size() && csLine[i] == u'"') {
        csPart += u'"';
        ++i;
      } else {
        bQuoted = !bQuoted;
      }
    }
    vstrArgs.push_back(NativeName(csPart));
  }
}

}  // namespace sys::posix

using namespace sys::posix;

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

  pid_t iGroup = -1;  // this process's
  bool bPending = false;
  if (!zStart.m_csJobName.empty()) {
    const Descriptor zJob = OpenJobFile(zStart.m_csJobName);
    JobContent zContent;
    if (zJob.IsOpen() && ReadJob(zJob.Get(), zContent) && zContent.m_iGroup != 0) {
      iGroup = zContent.m_iGroup;
      bPending = true;
    }
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

  auto* const pzChild = new ChildObject;
  pzChild->m_iId = iId;
  pzChild->m_zPidFd.Reset(OpenPidFd(iId));
  pzChild->m_bAssignPending = bPending;
  ProcessFacts zFacts;
  if (ReadProcessFacts(iId, zFacts)) pzChild->m_iStartTicks = zFacts.m_iStartTicks;
  zProcess.m_iId = static_cast<uint32_t>(iId);
  zProcess.m_iHandle = reinterpret_cast<intptr_t>(pzChild);
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

KivSysJob::KivSysJob(KivSysJob&& zOther) noexcept : m_iHandle(std::exchange(zOther.m_iHandle, 0)) {}

KivSysJob& KivSysJob::operator=(KivSysJob&& zOther) noexcept {
  if (this != &zOther) {
    Close();
    m_iHandle = std::exchange(zOther.m_iHandle, 0);
  }
  return *this;
}

KivSysJob::~KivSysJob() {
  Close();
}

KivSysJob KivSysJob::Create(const KivWString& csName) {
  KivSysJob zJob;
  std::string strPath;
  if (!FaultAllows(KivSysCall::JobCreate) || !ObjectPath('j', csName, strPath)) return zJob;
  SweepObjectsOnce();
  for (int iTry = 0; iTry < 100; ++iTry) {
    Descriptor zFd(MakeLockedFile(strPath.c_str(), 1u << kLockOwner, true));
    if (!zFd.IsOpen()) {
      if (errno != EEXIST) return FailWithErrno(), std::move(zJob);
      zJob = Open(csName);
      if (zJob.IsOpen() || sys::LastError() != ENOENT) return zJob;
      continue;  // the dead one is removed now
    }
    const pid_t iAnchor = MakeAnchor();
    const std::string strLine = std::to_string(iAnchor) + "\n";
    if (pwrite(zFd.Get(), strLine.data(), strLine.size(), 0) != static_cast<ssize_t>(strLine.size())) {
      FailWithErrno();
      unlink(strPath.c_str());
      if (iAnchor != 0) waitpid(iAnchor, nullptr, 0);
      return zJob;
    }
    auto* const pzJob = new JobObject;
    pzJob->m_zFd = std::move(zFd);
    pzJob->m_strPath = strPath;
    pzJob->m_iAnchor = iAnchor;
    zJob.m_iHandle = reinterpret_cast<intptr_t>(pzJob);
    return zJob;
  }
  FailWith(EBUSY);
  return zJob;
}

KivSysJob KivSysJob::Open(const KivWString& csName) {
  KivSysJob zJob;
  Descriptor zFd = OpenJobFile(csName);
  if (!zFd.IsOpen()) return zJob;
  auto* const pzJob = new JobObject;
  pzJob->m_zFd = std::move(zFd);
  zJob.m_iHandle = reinterpret_cast<intptr_t>(pzJob);
  return zJob;
}

void KivSysJob::Close() noexcept {
  if (m_iHandle == 0) return;
  JobObject* const pzJob = JobOf(m_iHandle);
  m_iHandle = 0;
  if (!pzJob->m_strPath.empty()) unlink(pzJob->m_strPath.c_str());
  if (pzJob->m_iAnchor != 0) waitpid(pzJob->m_iAnchor, nullptr, WNOHANG);
  delete pzJob;
}

bool KivSysJob::Contains(const KivSysProcess& zProcess, bool& bContained) const {
  if (!IsOpen() || !zProcess.IsOpen()) return FailWith(EBADF);
  JobContent zContent;
  ProcessFacts zFacts;
  const ChildObject& zChild = *ChildOf(zProcess.m_iHandle);
  if (!ReadJob(JobOf(m_iHandle)->m_zFd.Get(), zContent)) return false;
  bContained = false;
  if (!ReadProcessFacts(zChild.m_iId, zFacts)) return FailWith(ESRCH);
  if (zContent.m_iGroup != 0 && zFacts.m_iGroup == zContent.m_iGroup) bContained = !zChild.m_bAssignPending;
  for (const Member& zMember : zContent.m_vzMembers)
    if (zMember.m_iId == zChild.m_iId && IsMember(zMember, zFacts)) bContained = true;
  return true;
}

bool KivSysJob::Assign(const KivSysProcess& zProcess) {
  bool bContained = false;
  if (!Contains(zProcess, bContained)) return false;
  if (bContained) return true;
  ChildObject& zChild = *ChildOf(zProcess.m_iHandle);
  if (zChild.HasEnded()) return FailWith(ESRCH);
  const int iFd = JobOf(m_iHandle)->m_zFd.Get();
  JobContent zContent;
  if (!JobOf(m_iHandle)->OwnerLives() || !ReadJob(iFd, zContent)) return FailWith(ENOENT);
  ProcessFacts zFacts;
  if (!ReadProcessFacts(zChild.m_iId, zFacts)) return FailWith(ESRCH);
  if (zContent.m_iGroup != 0 && zFacts.m_iGroup == zContent.m_iGroup) {
    zChild.m_bAssignPending = false;
    return true;
  }
  for (int iTry = 0; !LockBytes(iFd, F_WRLCK, kLockJobList, 1); ++iTry) {
    if (iTry == 10000) return FailWith(EBUSY);
    sched_yield();
  }
  const std::string strLine = std::to_string(zChild.m_iId) + " " + std::to_string(zFacts.m_iStartTicks) + "\n";
  struct stat zStat;
  bool bDone = fstat(iFd, &zStat) == 0 &&
               pwrite(iFd, strLine.data(), strLine.size(), zStat.st_size) == static_cast<ssize_t>(strLine.size());
  if (!bDone) FailWithErrno();
  LockBytes(iFd, F_UNLCK, kLockJobList, 1);
  return bDone;
}

bool KivSysJob::Terminate(int32_t, const KivWString& csMarkerFolder) {
  constexpr uint64_t kLimitNs = 30'000'000'000;  // killed processes may still have to come back from a device
  if (!IsOpen()) return FailWith(EBADF);
  const JobObject& zJob = *JobOf(m_iHandle);
  if (!zJob.OwnerLives()) return FailWith(ENOENT);
  std::string strFolder;
  if (!csMarkerFolder.empty() && !NativePath(csMarkerFolder, strFolder)) return false;

  std::vector<pid_t> viGroups;
  const uint64_t iUntil = NowNs() + kLimitNs;
  for (uint32_t iRound = 0;; ++iRound) {
    JobContent zContent;
    if (!ReadJob(zJob.m_zFd.Get(), zContent)) return false;
    if (zContent.m_iGroup != 0) {
      if (iRound == 0) viGroups.push_back(zContent.m_iGroup);
      if (iRound == 0 && getpgrp() != zContent.m_iGroup) kill(-zContent.m_iGroup, SIGKILL);  // all at once
    }
    uint32_t nKilled = 0;
    for (const Member& zMember : zContent.m_vzMembers) {
      ProcessFacts zFacts;
      if (!ReadProcessFacts(zMember.m_iId, zFacts) || !IsMember(zMember, zFacts)) continue;
      // A member that leads a group of its own has its descendants there.
      if (zFacts.m_iGroup == zMember.m_iId &&
          std::find(viGroups.begin(), viGroups.end(), zMember.m_iId) == viGroups.end())
        viGroups.push_back(zMember.m_iId);
      if (zFacts.IsAlive())
        nKilled += KillOne(zMember.m_iId,
                           [&] { return ReadProcessFacts(zMember.m_iId, zFacts) && IsMember(zMember, zFacts); });
    }
    nKilled += KillGroups(viGroups);
    if (!strFolder.empty()) nKilled += KillMarked(strFolder);
    if (nKilled == 0) return true;
    if (NowNs() > iUntil) return FailWith(ETIMEDOUT);
    poll(nullptr, 0, 1);
  }
}

namespace sys {

uint32_t CurrentProcessNumber() {
  return static_cast<uint32_t>(getpid());
}

bool ListProcesses(std::vector<uint32_t>& viIds) {
  viIds.clear();
  DIR* const pDirectory = opendir("/proc");
  if (pDirectory == nullptr) return FailWithErrno();
  while (const dirent* pEntry = readdir(pDirectory)) {
    char* pEnd = nullptr;
    const long iId = std::strtol(pEntry->d_name, &pEnd, 10);
    if (pEnd == pEntry->d_name || *pEnd != 0 || iId <= 0 || iId > INT32_MAX) continue;
    ProcessFacts zFacts;
    // One that cannot be looked at counts as running.
    if (ReadProcessFacts(static_cast<int32_t>(iId), zFacts) ? zFacts.IsAlive() : errno != ENOENT && errno != ESRCH)
      viIds.push_back(static_cast<uint32_t>(iId));
  }
  closedir(pDirectory);
  return true;
}

bool MemoryCounters(KivSysMemoryCounters& zCounters) {
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
