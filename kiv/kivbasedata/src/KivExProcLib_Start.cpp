// Starts: a root, a child that joins its parent, a child that is started.
#include <cstdio>
#include <utility>

#include "KivDataUtil.h"
#include "KivExProcLibInternal.h"
#include "KivException.h"
#include "KivSysClock.h"
#include "KivSysFolder.h"

namespace kiv {
namespace {

constexpr char kSource[] = "src\\KivExProcLib";

KivExProcHandler g_pfnTick = nullptr;
KivExProcHandler g_pfnPoll = nullptr;
KivExProcDispatch g_pfnDispatch = nullptr;
KivWString g_csDefaultRootFolder;

int32_t Code(KivExProcRunResult iResult) {
  return static_cast<int32_t>(iResult);
}
int32_t Code(KivExProcStartResult iResult) {
  return static_cast<int32_t>(iResult);
}

int32_t RunChild(const KivExProcArguments& zArguments) {
  KivExProcState& zState = KivExProcState::GetInstance();
  if (zState.m_pfnPoll == nullptr) return Code(KivExProcRunResult::NoPollHandler);
  if (zState.m_pfnDispatch == nullptr) return Code(KivExProcRunResult::NoDispatchHandler);
  zState.m_pfnTick = nullptr;

  zState.m_iParentPid = zArguments.m_iParentPid;
  zState.m_csParentPid = KivExProcDecimal(zState.m_iParentPid);
  zState.m_csRootFolder = zArguments.m_csRootFolder;
  zState.m_csJobName = zArguments.m_csJobName;
  zState.m_iPid = static_cast<int32_t>(sys::CurrentProcessNumber());
  zState.m_csPid = KivExProcDecimal(zState.m_iPid);
  zState.m_csInputFolder = KivExProcPairFolder(zState.m_csRootFolder, zState.m_csParentPid, zState.m_csPid);
  zState.m_csOutputFolder = KivExProcPairFolder(zState.m_csRootFolder, zState.m_csPid, zState.m_csParentPid);
  zState.m_csInputFile = KivExProcPath(zState.m_csInputFolder, u"input");
  if (zState.m_pfnBeforeStart != nullptr) zState.m_pfnBeforeStart();

  if (!sys::PathExists(KivExProcProcessFolder(zState.m_csRootFolder))) return Code(KivExProcRunResult::NoProcessFolder);
  zState.m_csProcessFile = KivExProcMarkerPath(zState.m_csRootFolder, zState.m_csPid);
  if (sys::PathExists(zState.m_csProcessFile)) return Code(KivExProcRunResult::MarkerExists);
  zState.m_hProcessFile = KivExProcMakeMarker(zState.m_csProcessFile);
  if (!zState.m_hProcessFile.IsOpen()) return Code(KivExProcRunResult::MarkerNotMade);
  if (!sys::PathExists(zState.m_csProcessFile)) return Code(KivExProcRunResult::MarkerNotThere);
  zState.m_csParentProcessFile = KivExProcMarkerPath(zState.m_csRootFolder, zState.m_csParentPid);

  const int32_t iResult = KivExProcJoinParent(zState);
  if (iResult != 0) return iResult;
  while (KivExProcLib_ServeChildren() >= 0 && KivExProcLib_ServeParent() >= 0) {
  }
  return Code(KivExProcRunResult::Done);
}

// A root that did not come up takes its marker away: its process may live on.
int32_t WithoutMarker(KivExProcRunResult iResult) {
  KivExProcState::GetInstance().m_hProcessFile.Close();
  return Code(iResult);
}

KivWString JobName(const KivWString& csPid, const KivSysLocalTime& zTime) {
  char acTime[64];
  std::snprintf(acTime, sizeof acTime, "%04d%02d%02d-%02d%02d%02d-", zTime.m_iYear, zTime.m_iMonth, zTime.m_iDay,
                zTime.m_iHour, zTime.m_iMinute, zTime.m_iSecond);
  return u"KivExProcJob" + csPid + sys::Utf8ToWide(acTime);
}

// Puts a started child into the tree's job. A failure leaves its record and the child outside of the job.
void AssignToJob(KivSysJob& zJob, const KivSysProcess& zProcess) {
  try {
    bool bContained = false;
    if (!zJob.Contains(zProcess, bContained) || bContained || !zJob.Assign(zProcess)) KIV_FAIL();
  } catch (...) {
    // The start goes on.
  }
}

// A folder of the pair; one that is there already will do.
bool MakePairFolder(const KivWString& csFolder) {
  if (!sys::PathExists(csFolder)) sys::MakeFolder(csFolder);
  return sys::PathExists(csFolder);
}

// An event that nobody holds yet.
bool MakeEvent(const KivWString& csName, KivSysEvent& hEvent) {
  bool bExisted = false;
  KivSysEvent hNew = KivSysEvent::Create(csName, bExisted);
  if (!hNew.IsOpen() || bExisted) return false;
  hEvent = std::move(hNew);
  return true;
}

// Folders, slot and events of the pair, made by the parent.
KivExProcStartResult MakePair(const KivExProcState& zState, KivExProcChild& zChild) {
  zChild.m_csRequestFolder = KivExProcPairFolder(zState.m_csRootFolder, zState.m_csPid, zChild.m_csPid);
  if (!MakePairFolder(zChild.m_csRequestFolder)) return KivExProcStartResult::NoRequestFolder;
  zChild.m_csAnswerFolder = KivExProcPairFolder(zState.m_csRootFolder, zChild.m_csPid, zState.m_csPid);
  if (!MakePairFolder(zChild.m_csAnswerFolder)) return KivExProcStartResult::NoAnswerFolder;
  zChild.m_csAnswerFile = KivExProcPath(zChild.m_csAnswerFolder, u"output");
  if (!zChild.m_zInputFile.Owner().Create(KivExProcPath(zChild.m_csRequestFolder, u"input")))
    return KivExProcStartResult::NoInput;
  if (!MakeEvent(KivExProcEventName(zState.m_csPid, zChild.m_csPid), zChild.m_hRequestEvent))
    return KivExProcStartResult::NoRequestEvent;
  if (!MakeEvent(KivExProcEventName(zChild.m_csPid, zState.m_csPid), zChild.m_hAnswerEvent))
    return KivExProcStartResult::NoAnswerEvent;
  return KivExProcStartResult::Done;
}

// The parent's last part of the handshake: raises the flag and waits until the child has taken it down.
KivExProcStartResult AwaitChild(KivExProcChild& zChild) {
  const KivWString csReady = KivExProcPath(zChild.m_csAnswerFolder, u"EventReady");
  if (sys::PathExists(csReady)) return KivExProcStartResult::ReadyExists;
  if (!KivSysFile::Open(csReady, {KivSysAccess::ReadWrite, KivSysShare::None, KivSysDisposition::CreateAlways,
                                  KivSysFileFlags::Temporary | KivSysFileFlags::RandomAccess})
           .IsOpen())
    return KivExProcStartResult::ReadyNotMade;
  // Neither side of the handshake sleeps: a start is short.
  for (;;) {
    if (!sys::PathExists(csReady)) return KivExProcStartResult::Done;
    switch (zChild.m_hProcess.Wait(0)) {
      case KivSysWait::Failed:
        return KivExProcStartResult::WaitFailed;
      case KivSysWait::Signalled:
        return KivExProcStartResult::ChildEnded;
      case KivSysWait::Abandoned:
        return KivExProcStartResult::WaitAbandoned;
      case KivSysWait::TimedOut:
        break;
    }
  }
}

}  // namespace

void KivExProcLib_SetHandlers(KivExProcHandler pfnTick, KivExProcHandler pfnPoll, KivExProcDispatch pfnDispatch) {
  g_pfnTick = pfnTick;
  g_pfnPoll = pfnPoll;
  g_pfnDispatch = pfnDispatch;
}

void KivExProcLib_SetBeforeStartHandler(KivExProcHandler pfnBeforeStart) {
  KivExProcState::GetInstance().m_pfnBeforeStart = pfnBeforeStart;
}

void KivExProcLib_SetDefaultRootFolder(const KivWString& csFolder) {
  g_csDefaultRootFolder = csFolder;
}

int32_t KivExProcLib_Run(const std::vector<KivWString>& vcsArguments) {
  sys::SetUncaughtExitCode(kKivExProcFatal);
  KivExProcArguments zArguments;
  if (!KivExProcParse(vcsArguments, zArguments)) return Code(KivExProcRunResult::BadArgument);
  KivExProcState& zState = KivExProcState::GetInstance();
  zState.m_pfnTick = g_pfnTick;
  zState.m_pfnPoll = g_pfnPoll;
  zState.m_pfnDispatch = g_pfnDispatch;
  if (zArguments.m_iParentPid != 0) return RunChild(zArguments);
  if (zState.m_pfnTick == nullptr) return Code(KivExProcRunResult::BadArgument);
  return KivExProcLib_StartRoot(zArguments.m_csRootFolder.empty() ? g_csDefaultRootFolder : zArguments.m_csRootFolder);
}

int32_t KivExProcLib_StartRoot(const KivWString& csRootFolder) {
  sys::SetUncaughtExitCode(kKivExProcFatal);
  KivExProcState& zState = KivExProcState::GetInstance();
  if (csRootFolder.empty()) {
    if (!KivSetWorkFolder(csRootFolder)) return Code(KivExProcRunResult::NoPollHandler);
  } else if (sys::FolderExists(csRootFolder)) {
    if (KivGetWorkFolder() != csRootFolder) return Code(KivExProcRunResult::BadArgument);
  } else if (!KivSetWorkFolder(csRootFolder)) {
    return Code(KivExProcRunResult::RootFolderNotMade);
  }
  zState.m_csRootFolder = KivGetWorkFolder();
  zState.m_iPid = static_cast<int32_t>(sys::CurrentProcessNumber());
  zState.m_csPid = KivExProcDecimal(zState.m_iPid);
  KivSysLocalTime zTime;
  if (!sys::LocalTimeNow(zTime)) return Code(KivExProcRunResult::NoDispatchHandler);
  zState.m_csJobName = JobName(zState.m_csPid, zTime);

  const KivWString csProcessFolder = KivExProcProcessFolder(zState.m_csRootFolder);
  sys::MakeFolder(csProcessFolder);
  if (!sys::PathExists(csProcessFolder)) return Code(KivExProcRunResult::NoProcessFolder);
  zState.m_csProcessFile = KivExProcMarkerPath(zState.m_csRootFolder, zState.m_csPid);
  if (sys::PathExists(zState.m_csProcessFile)) return Code(KivExProcRunResult::MarkerExists);
  zState.m_hProcessFile = KivExProcMakeMarker(zState.m_csProcessFile);
  if (!zState.m_hProcessFile.IsOpen()) return Code(KivExProcRunResult::MarkerNotMade);
  if (!sys::PathExists(zState.m_csProcessFile)) return WithoutMarker(KivExProcRunResult::MarkerNotThere);
  zState.m_hJob = KivSysJob::Create(zState.m_csJobName);
  if (!zState.m_hJob.IsOpen()) return WithoutMarker(KivExProcRunResult::RequestEventNotOpen);

  while (KivExProcLib_ServeChildren() >= 0) {
  }
  return Code(KivExProcRunResult::Done);
}

int32_t KivExProcLib_StartChild(const KivWString& csExecutable, int32_t& iChildPid) {
  return KivExProcLib_StartChild(csExecutable, KivWString(), iChildPid);
}

int32_t KivExProcLib_StartChild(const KivWString& csExecutable, const KivWString& csExtraArguments,
                                int32_t& iChildPid) {
  iChildPid = 0;
  if (csExecutable.empty()) return Code(KivExProcStartResult::NoPath);
  KivExProcState& zState = KivExProcState::GetInstance();
  KivSysProcessStart zStart;
  zStart.m_csCommandLine =
      KivExProcCommandLine(csExecutable, zState.m_csRootFolder, zState.m_csPid, zState.m_csJobName, csExtraArguments);
  zStart.m_csFolder = zState.m_csRootFolder;
  zStart.m_bHideWindow = true;
  zStart.m_bBreakAwayFromJob = true;
  zStart.m_csJobName = zState.m_csJobName;

  // Joins the list only after the handshake, so that no service pass sees a child that is starting.
  std::list<KivExProcChild> lstNew(1);
  KivExProcChild& zChild = lstNew.front();
  zChild.m_hProcess = KivSysProcess::Start(zStart);
  const bool bBrokeAway = zChild.m_hProcess.IsOpen();
  if (!bBrokeAway) {
    // The job that this process sits in may forbid to break away; the child then inherits it.
    zStart.m_bBreakAwayFromJob = false;
    zChild.m_hProcess = KivSysProcess::Start(zStart);
    if (!zChild.m_hProcess.IsOpen()) return Code(KivExProcStartResult::NotStarted);
  }
  zChild.m_iPid = static_cast<int32_t>(zChild.m_hProcess.GetId());
  zChild.m_csPid = KivExProcDecimal(zChild.m_iPid);
  zChild.m_csProcessFile = KivExProcMarkerPath(zState.m_csRootFolder, zChild.m_csPid);
  if (bBrokeAway) {
    KivSysJob zJob = KivSysJob::Open(zState.m_csJobName);
    if (!zJob.IsOpen()) return Code(KivExProcStartResult::NoJob);
    AssignToJob(zJob, zChild.m_hProcess);
  }

  KivExProcStartResult iResult = MakePair(zState, zChild);
  if (iResult == KivExProcStartResult::Done) iResult = AwaitChild(zChild);
  if (iResult != KivExProcStartResult::Done) return Code(iResult);
  zChild.m_hProcess.Close();
  zState.m_lstChildren.splice(zState.m_lstChildren.end(), lstNew);
  iChildPid = zChild.m_iPid;
  return Code(KivExProcStartResult::Done);
}

}  // namespace kiv
