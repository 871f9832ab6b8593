#include "KivSysClock.h"

#include <gtest/gtest.h>

using namespace kiv;

TEST(Clock, NeverStepsBack) {
  uint64_t iBefore = sys::SteadyNs();
  uint32_t iMsBefore = sys::TimeMs();
  for (int i = 0; i < 10'000; ++i) {
    const uint64_t iNow = sys::SteadyNs();
    ASSERT_GE(iNow, iBefore);
    iBefore = iNow;
    const uint32_t iMsNow = sys::TimeMs();
    ASSERT_LT(iMsNow - iMsBefore, 0x80000000u) << "differences are right over the wrap";
    iMsBefore = iMsNow;
  }
}

TEST(Clock, SleepTakesAtLeastItsTime) {
  const uint64_t iBefore = sys::SteadyNs();
  sys::SleepMs(20);
  EXPECT_GE(sys::SteadyNs() - iBefore, 15'000'000u);  // the one bound of a time that a slow machine cannot break
  sys::SleepMs(0);
}

TEST(Clock, PeriodsThatAreAcceptedGiveAReading) {
  EXPECT_TRUE(sys::AcceptsTimerPeriod(1));
  const uint32_t iBefore = sys::TimeMs();
  const uint32_t iBracketed = sys::TimeMsWithPeriod(1);
  EXPECT_LT(iBracketed - iBefore, 0x80000000u);
}

TEST(Clock, LocalTimeIsInItsRanges) {
  KivSysLocalTime zTime;
  ASSERT_TRUE(sys::LocalTimeNow(zTime));
  EXPECT_GE(zTime.m_iYear, 2024);
  EXPECT_TRUE(zTime.m_iMonth >= 1 && zTime.m_iMonth <= 12);
  EXPECT_TRUE(zTime.m_iDay >= 1 && zTime.m_iDay <= 31);
  EXPECT_TRUE(zTime.m_iHour >= 0 && zTime.m_iHour <= 23);
  EXPECT_TRUE(zTime.m_iMinute >= 0 && zTime.m_iMinute <= 59);
  EXPECT_TRUE(zTime.m_iSecond >= 0 && zTime.m_iSecond <= 60);
}
