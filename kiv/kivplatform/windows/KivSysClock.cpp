#include "KivSysClock.h"

#include "KivSysWindows.h"
// Needs windows.h before it.
#include <timeapi.h>

#include <ctime>

namespace kiv::sys {

uint32_t TimeMs() {
  return timeGetTime();
}

uint32_t TimeMsWithPeriod(uint32_t iPeriod) {
  timeBeginPeriod(iPeriod);
  const uint32_t iTime = timeGetTime();
  timeEndPeriod(iPeriod);
  return iTime;
}

bool AcceptsTimerPeriod(uint32_t iPeriod) {
  if (timeBeginPeriod(iPeriod) == TIMERR_NOCANDO) return false;
  timeEndPeriod(iPeriod);
  return true;
}

uint64_t SteadyNs() {
  static const uint64_t iFrequency = [] {
    LARGE_INTEGER zFrequency;
    QueryPerformanceFrequency(&zFrequency);
    return static_cast<uint64_t>(zFrequency.QuadPart);
  }();
  LARGE_INTEGER zCounter;
  QueryPerformanceCounter(&zCounter);
  const uint64_t iCounter = static_cast<uint64_t>(zCounter.QuadPart);
  return iCounter / iFrequency * 1000000000u + iCounter % iFrequency * 1000000000u / iFrequency;
}

void SleepMs(uint32_t iMilliSeconds) {
  Sleep(iMilliSeconds);
}

bool LocalTimeNow(KivSysLocalTime& zTime) {
  if (FaultFails(KivSysCall::Clock)) return false;
  const __time64_t iNow = _time64(nullptr);
  struct tm zLocal = {};
  if (_localtime64_s(&zLocal, &iNow) != 0) return false;
  zTime = {zLocal.tm_year + 1900, zLocal.tm_mon + 1, zLocal.tm_mday, zLocal.tm_hour, zLocal.tm_min, zLocal.tm_sec};
  return true;
}

}  // namespace kiv::sys
