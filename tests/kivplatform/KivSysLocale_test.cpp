#include "KivSysLocale.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cstdio>
#include <cstdlib>

using namespace kiv;

TEST(Locale, NumbersHaveAPointAlsoWhereTheirLocaleHadAComma) {
  // Without effect where none of these is installed.
  for (const char* szLocale : {"German_Germany.1252", "de_DE.UTF-8", "fr_FR.UTF-8"})
    if (std::setlocale(LC_NUMERIC, szLocale) != nullptr) break;
  ASSERT_TRUE(sys::SetUserLocaleWithPoint());
  char szNumber[32];
  std::snprintf(szNumber, sizeof szNumber, "%.2f", 1.5);
  EXPECT_STREQ(szNumber, "1.50");
  EXPECT_EQ(std::strtod("2.25", nullptr), 2.25);
  EXPECT_STREQ(std::setlocale(LC_NUMERIC, nullptr), "C");
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
  for (const sys::KivSysDomain iDomain : {sys::KivSysDomain::Logical, sys::KivSysDomain::Physical}) {
    KivWString csDomain(3, u'\0');
    EXPECT_TRUE(sys::DnsDomain(iDomain, csDomain));
    EXPECT_EQ(csDomain.find(u'\0'), KivWString::npos);
  }
}

TEST(Locale, TheHookAnswersTheQueriesForDomains) {
  sys::SetDomainHook([](sys::KivSysDomain iDomain, KivWString& csDomain) {
    csDomain = u"hooked";
    return iDomain == sys::KivSysDomain::Physical;
  });
  KivWString csDomain;
  EXPECT_FALSE(sys::DnsDomain(sys::KivSysDomain::Logical, csDomain));
  EXPECT_TRUE(sys::DnsDomain(sys::KivSysDomain::Physical, csDomain));
  EXPECT_EQ(csDomain, u"hooked");
  sys::SetDomainHook(nullptr);
  EXPECT_TRUE(sys::DnsDomain(sys::KivSysDomain::Physical, csDomain));
  EXPECT_NE(csDomain, u"hooked");
}
