#include "KivSysProcess.h"

#include <cstdlib>
#include <exception>
#include <utility>

#include "KivSysWindows.h"
// Needs windows.h before it.
#include <psapi.h>

namespace kiv {
namespace {

int32_t g_iUncaughtCode = 0;

[[noreturn]] void EndUncaught() {
  sys::EndProcess(g_iUncaughtCode);
}

}  // namespace

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
  if (sys::FaultFails(KivSysCall::ProcessStart)) return zProcess;
  if (!sys::IsWhole(zStart.m_csCommandLine) || !sys::IsWhole(zStart.m_csFolder)) return zProcess;
  STARTUPINFOW zInfo = {};
  static_assert(sizeof zInfo == 104);
  zInfo.cb = sizeof zInfo;
  zInfo.dwX = zInfo.dwY = 50;
  zInfo.dwXSize = zInfo.dwYSize = 50;
  zInfo.dwXCountChars = zInfo.dwYCountChars = 50;
  zInfo.dwFillAttribute = 4;
  if (zStart.m_bHideWindow) {
    zInfo.dwFlags = STARTF_USESHOWWINDOW;
    zInfo.wShowWindow = SW_HIDE;
  }
  std::wstring csLine = sys::ToSystem(zStart.m_csCommandLine);  // CreateProcessW writes into it
  const std::wstring csFolder = sys::ToSystem(zStart.m_csFolder);
  PROCESS_INFORMATION zMade = {};
  // Without a console a child does not get this process's streams either.
  const DWORD iFlags = NORMAL_PRIORITY_CLASS | (zStart.m_bBreakAwayFromJob ? CREATE_BREAKAWAY_FROM_JOB : 0) |
                       (zStart.m_bNoStreams ? DETACHED_PROCESS : 0);
  if (!CreateProcessW(nullptr, csLine.data(), nullptr, nullptr, FALSE, iFlags, nullptr,
                      csFolder.empty() ? nullptr : csFolder.c_str(), &zInfo, &zMade))
    return zProcess;
  CloseHandle(zMade.hThread);
  zProcess.m_iId = zMade.dwProcessId;
  zProcess.m_iHandle = sys::FromHandle(zMade.hProcess);
  return zProcess;
}

KivSysProcess KivSysProcess::TakeBack(uint32_t iId) {
  KivSysProcess zProcess;
  const HANDLE hProcess =
      OpenProcess(SYNCHRONIZE | PROCESS_QUERY_LIMITED_INFORMATION | PROCESS_TERMINATE, FALSE, DWORD{iId});
  if (hProcess == nullptr) return zProcess;
  zProcess.m_iId = iId;
  zProcess.m_iHandle = sys::FromHandle(hProcess);
  return zProcess;
}

void KivSysProcess::Close() noexcept {
  if (m_iHandle != 0) CloseHandle(sys::ToHandle(std::exchange(m_iHandle, 0)));
  m_iId = 0;
}

KivSysWait KivSysProcess::Wait(uint32_t iMilliSeconds) {
  if (!IsOpen() || sys::FaultFails(KivSysCall::ProcessWait)) return KivSysWait::Failed;
  switch (WaitForSingleObject(sys::ToHandle(m_iHandle), iMilliSeconds)) {
    case WAIT_OBJECT_0:
      return KivSysWait::Signalled;
    case WAIT_TIMEOUT:
      return KivSysWait::TimedOut;
    case WAIT_ABANDONED:
      return KivSysWait::Abandoned;
    default:
      return KivSysWait::Failed;
  }
}

bool KivSysProcess::GetExitCode(int32_t& iCode) {
  if (Wait(0) != KivSysWait::Signalled) return false;
  DWORD iSystem = 0;
  if (!GetExitCodeProcess(sys::ToHandle(m_iHandle), &iSystem)) return false;
  iCode = static_cast<int32_t>(iSystem);
  return true;
}

bool KivSysProcess::Terminate(int32_t iCode) {
  return IsOpen() && TerminateProcess(sys::ToHandle(m_iHandle), static_cast<UINT>(iCode)) != FALSE;
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
  if (!sys::IsUsableName(csName) || sys::FaultFails(KivSysCall::JobCreate)) return zJob;
  zJob.m_iHandle = sys::FromHandle(CreateJobObjectW(nullptr, sys::ToSystem(csName).c_str()));
  return zJob;
}

KivSysJob KivSysJob::Open(const KivWString& csName) {
  KivSysJob zJob;
  if (!sys::IsUsableName(csName)) return zJob;
  zJob.m_iHandle = sys::FromHandle(OpenJobObjectW(MAXIMUM_ALLOWED, FALSE, sys::ToSystem(csName).c_str()));
  return zJob;
}

void KivSysJob::Close() noexcept {
  if (IsOpen()) CloseHandle(sys::ToHandle(std::exchange(m_iHandle, 0)));
}

bool KivSysJob::Contains(const KivSysProcess& zProcess, bool& bContained) const {
  BOOL bInJob = FALSE;
  if (!IsProcessInJob(sys::ToHandle(zProcess.m_iHandle), sys::ToHandle(m_iHandle), &bInJob)) return false;
  bContained = bInJob != FALSE;
  return true;
}

bool KivSysJob::Assign(const KivSysProcess& zProcess) {
  return AssignProcessToJobObject(sys::ToHandle(m_iHandle), sys::ToHandle(zProcess.m_iHandle)) != FALSE;
}

bool KivSysJob::Terminate(int32_t iExitCode, const KivWString&) {
  return TerminateJobObject(sys::ToHandle(m_iHandle), static_cast<UINT>(iExitCode)) != FALSE;
}

namespace sys {

uint32_t CurrentProcessNumber() {
  return GetCurrentProcessId();
}

bool ListProcesses(std::vector<uint32_t>& viIds) {
  viIds.clear();
  if (FaultFails(KivSysCall::ProcessList)) return false;
  std::vector<DWORD> viSystem(1024);
  for (;;) {
    DWORD nBytes = 0;
    const DWORD nRoom = static_cast<DWORD>(viSystem.size() * sizeof(DWORD));
    if (!K32EnumProcesses(viSystem.data(), nRoom, &nBytes)) return false;
    if (nBytes < nRoom) {
      viIds.assign(viSystem.begin(), viSystem.begin() + static_cast<ptrdiff_t>(nBytes / sizeof(DWORD)));
      return true;
    }
    viSystem.resize(viSystem.size() * 2);
  }
}

bool MemoryCounters(KivSysMemoryCounters& zCounters) {
  if (FaultFails(KivSysCall::MemoryCounters)) return false;
  PROCESS_MEMORY_COUNTERS zSystem = {};
  zSystem.cb = sizeof zSystem;
  if (!K32GetProcessMemoryInfo(GetCurrentProcess(), &zSystem, sizeof zSystem)) return false;
  zCounters.m_iWorkingSet = zSystem.WorkingSetSize;
  zCounters.m_iPeakWorkingSet = zSystem.PeakWorkingSetSize;
  zCounters.m_iPageFile = zSystem.PagefileUsage;
  zCounters.m_iPeakPageFile = zSystem.PeakPagefileUsage;
  return true;
}

void EndProcess(int32_t iCode) {
  TerminateProcess(GetCurrentProcess(), static_cast<UINT>(iCode));
  std::_Exit(iCode);
}

void SetUncaughtExitCode(int32_t iCode) {
  g_iUncaughtCode = iCode;
  SetErrorMode(GetErrorMode() | SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
  std::set_terminate(EndUncaught);
}

}  // namespace sys
}  // namespace kiv
