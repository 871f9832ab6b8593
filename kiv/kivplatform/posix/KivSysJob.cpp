#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "KivSysChild.h"
#include "KivSysFile.h"
#include "KivSysProcess.h"

namespace kiv {

using namespace sys::posix;

namespace {

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
  if (!sys::ListProcesses(viIds)) return 0;
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

pid_t sys::posix::GroupOfJob(const KivWString& csName) {
  const Descriptor zJob = OpenJobFile(csName);
  JobContent zContent;
  return zJob.IsOpen() && ReadJob(zJob.Get(), zContent) ? zContent.m_iGroup : 0;
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
  auto pzJob = std::make_unique<JobObject>();  // before there is anything that want of memory could leave behind
  for (int iTry = 0; iTry < 100; ++iTry) {
    Descriptor zFd(MakeLockedFile(strPath.c_str(), 1u << kLockOwner, true));
    if (!zFd.IsOpen()) {
      if (errno != EEXIST) return FailWithErrno(), std::move(zJob);
      zJob = Open(csName);
      if (zJob.IsOpen() || sys::LastError() != ENOENT) return zJob;
      continue;  // the dead one is removed now
    }
    const pid_t iAnchor = MakeAnchor();
    char szLine[16];
    const int nLine = std::snprintf(szLine, sizeof szLine, "%d\n", static_cast<int>(iAnchor));
    if (pwrite(zFd.Get(), szLine, static_cast<size_t>(nLine), 0) != nLine) {
      FailWithErrno();
      unlink(strPath.c_str());
      if (iAnchor != 0) waitpid(iAnchor, nullptr, 0);
      return zJob;
    }
    pzJob->m_zFd = std::move(zFd);
    pzJob->m_strPath = strPath;
    pzJob->m_iAnchor = iAnchor;
    zJob.m_iHandle = reinterpret_cast<intptr_t>(pzJob.release());
    return zJob;
  }
  FailWith(EBUSY);
  return zJob;
}

KivSysJob KivSysJob::Open(const KivWString& csName) {
  KivSysJob zJob;
  Descriptor zFd = OpenJobFile(csName);
  if (!zFd.IsOpen()) return zJob;
  auto pzJob = std::make_unique<JobObject>();
  pzJob->m_zFd = std::move(zFd);
  zJob.m_iHandle = reinterpret_cast<intptr_t>(pzJob.release());
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

}  // namespace kiv
