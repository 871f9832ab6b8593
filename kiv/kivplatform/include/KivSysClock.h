// Time.
#pragma once

#include <cstdint>

namespace kiv {

struct KivSysLocalTime {
  int32_t m_iYear = 0;    // 2026
  int32_t m_iMonth = 0;   // 1 to 12
  int32_t m_iDay = 0;     // 1 to 31
  int32_t m_iHour = 0;    // 0 to 23
  int32_t m_iMinute = 0;  // 0 to 59
  int32_t m_iSecond = 0;  // 0 to 60
};

namespace sys {

// Milliseconds of a clock that never steps back but wraps at 2^32.
uint32_t TimeMs();
// The same clock's reading bracketed by the given timer period (Windows); Linux reads the clock alone.
uint32_t TimeMsWithPeriod(uint32_t iPeriod);
// True if the timer accepts the period in milliseconds. Always on Linux.
bool AcceptsTimerPeriod(uint32_t iPeriod);
// Nanoseconds of a steady clock with an arbitrary start.
uint64_t SteadyNs();
// Gives the rest of the time slice away with 0.
void SleepMs(uint32_t iMilliSeconds);
bool LocalTimeNow(KivSysLocalTime& zTime);

}  // namespace sys
}  // namespace kiv
