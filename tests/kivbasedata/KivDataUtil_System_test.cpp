#include <gtest/gtest.h>

#include <bit>

#include "KivDataUtil.h"
#include "KivSysClock.h"
#include "KivSysDiag.h"
#include "KivSysFault.h"
#include "KivSysFolder.h"
#include "KivSysLocale.h"
#include "KivTestProgram.h"

using namespace kiv;

TEST(Time, TheClockRises) {
  const uint32_t iFirst = KivGetTimeMs();
  while (KivGetTimeMs() == iFirst) sys::SleepMs(1);  // a clock that stands still never ends this
  EXPECT_LT(KivGetTimeMs() - iFirst, 0x80000000u);
}

TEST(Time, ADeadlineOfZeroIsNeverOver) {
  EXPECT_FALSE(KivIsTimeOver(0));
}

TEST(Time, ADeadlineIsOverWhenTheClockIsBeyondIt) {
  const uint32_t iNow = KivGetTimeMs();
  EXPECT_FALSE(KivIsTimeOver(iNow + 1000000));
  while (KivGetTimeMs() == iNow) {
  }
  EXPECT_TRUE(KivIsTimeOver(iNow));
}

TEST(System, TheVersionStaysTheSame) {
  uint32_t iMajor = 0;
  uint32_t iMinor = 99;
  KivGetWindowsVersion(iMajor, iMinor);
  uint32_t iSystemMajor = 0;
  uint32_t iSystemMinor = 0;
  sys::SystemVersion(iSystemMajor, iSystemMinor);
  EXPECT_GT(iMajor, 0u);
  EXPECT_EQ(iMajor, iSystemMajor);
  EXPECT_EQ(iMinor, iSystemMinor);
}

TEST(System, TheGranularityIsAPowerOfTwoAnd64KiBWhereTheSystemSaysNone) {
  const uint32_t iGranularity = KivGetAllocationGranularity();
  if (sys::kSeparator == u'/') {
    EXPECT_EQ(iGranularity, 0x10000u);
  }
  EXPECT_TRUE(std::has_single_bit(iGranularity));
  EXPECT_GE(iGranularity, 0x10000u);
  EXPECT_EQ(iGranularity, KivGetAllocationGranularity());
}

TEST(System, APlainProgramHasNoDataResource) {
  EXPECT_FALSE(KivHasDataResource());
  EXPECT_FALSE(KivHasDataResource());
}

TEST(System, TheReadQueueSizesAreThoseOfTheLastPass) {
  uint32_t nUrgent = 9;
  uint32_t nIdle = 9;
  KivGetReadQueueSizes(nUrgent, nIdle);
  EXPECT_EQ(nUrgent, 0u);
  EXPECT_EQ(nIdle, 0u);
  KivSetReadQueueSizes(3, 4);
  KivGetReadQueueSizes(nUrgent, nIdle);
  EXPECT_EQ(nUrgent, 3u);
  EXPECT_EQ(nIdle, 4u);
}

TEST(System, HeapsAreCheckedOnceTheFlagWasOn) {
  int nChecks = 0;
  sys::SetHeapHook([&nChecks] { return ++nChecks != 0; });
  KivCheckHeaps(false);
  EXPECT_EQ(nChecks, 0);
  KivCheckHeaps(true);
  EXPECT_EQ(nChecks, 1);
  KivCheckHeaps(false);
  EXPECT_EQ(nChecks, 2) << "once on it stays on";
  sys::SetHeapHook(nullptr);
  EXPECT_TRUE(sys::ValidateHeaps());
}

namespace {

// Whatever the domains of this machine are.
KIV_TEST_CHILD(DeveloperModeWithAnEmptyConfiguredDomain) {
  sys::SetDomainHook([](sys::KivSysDomain, KivWString& csDomain) {
    csDomain.clear();
    return true;
  });
  CHILD_CHECK(!KivIsDeveloperMode());
  sys::SetDomainHook([](sys::KivSysDomain, KivWString& csDomain) {
    csDomain = u"kiv.example";
    return true;
  });
  CHILD_CHECK(!KivIsDeveloperMode());
  for (const sys::KivSysDomain iFails : {sys::KivSysDomain::Logical, sys::KivSysDomain::Physical}) {
    sys::SetDomainHook([iFails](sys::KivSysDomain iDomain, KivWString&) { return iDomain != iFails; });
    CHILD_CHECK(!KivIsDeveloperMode());
  }
  sys::SetDomainHook([](sys::KivSysDomain, KivWString&) { return false; });
  CHILD_CHECK(KivIsDeveloperMode());  // both tests are skipped
  return 0;
}

KIV_TEST_CHILD(DeveloperModeIsOff) {
  sys::SetDomainHook([](sys::KivSysDomain, KivWString&) { return false; });
  {
    const KivSysFaultScope zFault({KivSysCall::ProgramPath, 1, true, KivSysFaultKind::Fail, false});
    CHILD_CHECK(KivIsDeveloperMode());  // where the program is not known, its marker is not asked for
    CHILD_CHECK(zFault.HasFired());
  }
  CHILD_CHECK(!KivIsDeveloperMode());
  return 0;
}

}  // namespace

TEST(DeveloperMode, IsOffWithoutTheMarkerBesideTheProgram) {
  const kivtest::TestProgram zProgram;
  EXPECT_EQ(zProgram.Run("DeveloperModeIsOff"), 0);
}

TEST(DeveloperMode, WithTheMarkerAnEmptyConfiguredDomainDiffersFromEveryOneAndAFailingQueryIsSkipped) {
  const kivtest::TestProgram zProgram;
  zProgram.Folder().WriteBytes(u"_DeveloperMode", "");
  EXPECT_EQ(zProgram.Run("DeveloperModeWithAnEmptyConfiguredDomain"), 0);
}
