#include "KivSysLocale.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

using namespace kiv;

TEST(Locale, NumbersHaveAPoint) {
  ASSERT_TRUE(sys::SetUserLocaleWithPoint());
  char szNumber[32];
  std::snprintf(szNumber, sizeof szNumber, "%.2f", 1.5);
  EXPECT_STREQ(szNumber, "1.50");
  EXPECT_EQ(std::strtod("2.25", nullptr), 2.25);
}

TEST(Locale, TheLanguageIdIsOne) {
  EXPECT_NE(sys::LanguageId() & 0x3FF, 0u);
  EXPECT_LE(sys::LanguageId(), 0xFFFFu);
}

TEST(Locale, TheSystemTellsOfItself) {
  uint32_t iMajor = 0, iMinor = 0xFFFFFFFF;
  sys::SystemVersion(iMajor, iMinor);
  EXPECT_GE(iMajor, 4u);
  EXPECT_NE(iMinor, 0xFFFFFFFF);
  const uint32_t iGranularity = sys::AllocationGranularity();
  EXPECT_TRUE(iGranularity == 0 || iGranularity >= 4096) << "0 if the system has none";
  EXPECT_EQ(iGranularity & (iGranularity - 1), 0u) << "a power of two";
}

TEST(Locale, DomainsCanBeAsked) {
  KivWString csDomain, csPhysical;
  EXPECT_TRUE(sys::DnsDomain(csDomain));
  EXPECT_TRUE(sys::PhysicalDnsDomain(csPhysical));
  EXPECT_EQ(csDomain.find(u'\0'), KivWString::npos);
  EXPECT_EQ(csPhysical.find(u'\0'), KivWString::npos);
}
