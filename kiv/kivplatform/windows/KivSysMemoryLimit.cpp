#include "KivSysMemoryLimit.h"

#include <algorithm>
#include <limits>

#include "KivSysWindows.h"

namespace kiv::sys {
namespace {

// A job of this process alone, inside of those that it is in already; open until its end.
HANDLE OwnJob() {
  static const HANDLE s_hJob = [] {
    const HANDLE hJob = CreateJobObjectW(nullptr, nullptr);
    if (hJob != nullptr && AssignProcessToJobObject(hJob, GetCurrentProcess()) == FALSE) {
      CloseHandle(hJob);
      return HANDLE{nullptr};
    }
    return hJob;
  }();
  return s_hJob;
}

}  // namespace

uint64_t PhysicalMemory() {
  MEMORYSTATUSEX zStatus{};
  zStatus.dwLength = sizeof zStatus;
  return GlobalMemoryStatusEx(&zStatus) != FALSE ? zStatus.ullTotalPhys : 0;
}

// Wine takes the limit and does not keep it.
bool CanLimitMemory() {
  const HMODULE hSystem = GetModuleHandleW(L"ntdll.dll");
  return hSystem == nullptr || GetProcAddress(hSystem, "wine_get_version") == nullptr;
}

bool LimitMemory(uint64_t nBytes) {
  const HANDLE hJob = OwnJob();
  if (hJob == nullptr) return false;
  JOBOBJECT_EXTENDED_LIMIT_INFORMATION zLimit{};
  zLimit.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_PROCESS_MEMORY;
  zLimit.ProcessMemoryLimit = static_cast<SIZE_T>(std::min<uint64_t>(nBytes, std::numeric_limits<SIZE_T>::max()));
  return SetInformationJobObject(hJob, JobObjectExtendedLimitInformation, &zLimit, sizeof zLimit) != FALSE;
}

}  // namespace kiv::sys
