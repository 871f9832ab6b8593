#include "KivSysClock.h"

#include <sched.h>
#include <time.h>

#include <cerrno>

#include "KivSysPosix.h"

namespace kiv::sys {

uint32_t TimeMs() {
  return static_cast<uint32_t>(posix::NowNs() / 1000000u);
}

uint32_t TimeMsWithPeriod(uint32_t) {
  return TimeMs();
}

bool AcceptsTimerPeriod(uint32_t) {
  return true;
}

uint64_t SteadyNs() {
  return posix::NowNs();
}

void SleepMs(uint32_t iMilliSeconds) {
  if (iMilliSeconds == 0) {
    sched_yield();
    return;
  }
  timespec zLeft{static_cast<time_t>(iMilliSeconds / 1000), static_cast<long>(iMilliSeconds % 1000) * 1000000};
  while (nanosleep(&zLeft, &zLeft) != 0 && errno == EINTR) {
  }
}

bool LocalTimeNow(KivSysLocalTime& zTime) {
  if (!posix::FaultAllows(KivSysCall::Clock)) return false;
  const time_t iNow = time(nullptr);
  struct tm zLocal {};
  if (localtime_r(&iNow, &zLocal) == nullptr) return posix::FailWithErrno();
  zTime.m_iYear = zLocal.tm_year + 1900;
  zTime.m_iMonth = zLocal.tm_mon + 1;
  zTime.m_iDay = zLocal.tm_mday;
  zTime.m_iHour = zLocal.tm_hour;
  zTime.m_iMinute = zLocal.tm_min;
  zTime.m_iSecond = zLocal.tm_sec;
  return true;
}

}  // namespace kiv::sys
