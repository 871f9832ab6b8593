#include "KivFormatRegistry.h"

#include <gtest/gtest.h>

#include "KivTestReport.h"
#include "KivTestReportSource.h"

using namespace kiv;

namespace {

bool AcceptAll(uint32_t) {
  return true;
}

}  // namespace

TEST(FormatRegistry, IsInitializedWhenAllThreeValuesAreSet) {
  EXPECT_FALSE(IsInitialized());
  EXPECT_TRUE(KivSetFormatVersion(0));
  EXPECT_FALSE(IsInitialized());
  EXPECT_TRUE(KivSetFormatApplication(0));
  EXPECT_FALSE(IsInitialized());
  EXPECT_TRUE(KivSetFormatCompatibilityCallback(nullptr));
  EXPECT_TRUE(IsInitialized());
}

TEST(FormatRegistry, UnsetValuesAreZero) {
  EXPECT_EQ(KivFormatVersion(), 0u);
  EXPECT_EQ(KivFormatApplication(), 0u);
  EXPECT_EQ(KivFormatCompatibilityCallback(), nullptr);
}

TEST(FormatRegistry, TheSameValueAgainSucceeds) {
  for (int i = 0; i < 2; ++i) {
    EXPECT_TRUE(KivSetFormatVersion(7));
    EXPECT_TRUE(KivSetFormatApplication(5));
    EXPECT_TRUE(KivSetFormatCompatibilityCallback(&AcceptAll));
  }
  EXPECT_EQ(KivFormatVersion(), 7u);
  EXPECT_EQ(KivFormatApplication(), 5u);
  EXPECT_EQ(KivFormatCompatibilityCallback(), &AcceptAll);
}

TEST(FormatRegistry, AnotherValueIsReportedAndTheFirstOneStays) {
  KivSetFormatVersion(7);
  KivSetFormatApplication(5);
  KivSetFormatCompatibilityCallback(nullptr);
  EXPECT_REPORT_FROM(KivSetFormatVersion(8), "0", "KivFastFileContainer");
  EXPECT_REPORT(KivSetFormatApplication(0xFFFFFFFF), "0");
  EXPECT_REPORT(KivSetFormatCompatibilityCallback(&AcceptAll), "0");
  kivtest::NoThrowScope zNoThrow;
  EXPECT_FALSE(KivSetFormatVersion(8));
  EXPECT_FALSE(KivSetFormatApplication(0xFFFFFFFF));
  EXPECT_FALSE(KivSetFormatCompatibilityCallback(&AcceptAll));
  EXPECT_EQ(KivFormatVersion(), 7u);
  EXPECT_EQ(KivFormatApplication(), 5u);
  EXPECT_EQ(KivFormatCompatibilityCallback(), nullptr);
}
