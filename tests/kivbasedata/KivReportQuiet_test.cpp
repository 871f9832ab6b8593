#include "KivReportQuiet.h"

#include <gtest/gtest.h>

#include <new>

#include "KivException.h"
#include "KivTestReport.h"

using namespace kiv;

namespace {
constexpr char kSource[] = "src\\KivReportQuiet_test";
}

TEST(ReportQuiet, AReportNeverLeavesWhateverTheSwitchesSay) {
  EXPECT_NO_THROW(KivReportHere("a", kSource, 1));
  KivSetReportDispatchMode(true);
  EXPECT_NO_THROW(KivReportHere("b", kSource, 2));
  KivSetReportDispatchMode(false);
  kivtest::NoThrowScope zScope;
  EXPECT_NO_THROW(KivReportHere("c", kSource, 3));
}

TEST(ReportQuiet, TheReportIsAFullOne) {
  KivSetReported(false);
  KivReportHere("a", kSource, 1);
  EXPECT_TRUE(KivGetReportSwitches().m_bReported);
}

TEST(ReportQuiet, WhatIsThrownIsReportedUnlessItIsAReportAlready) {
  const auto ReportsAfter = [](auto&& pfnThrow) {
    const uint64_t nBefore = KivLastQuietReport().m_iNumber;
    try {
      pfnThrow();
    } catch (...) {
      KivReportThrownHere(kSource, 7);
    }
    return KivLastQuietReport().m_iNumber - nBefore;
  };
  EXPECT_EQ(ReportsAfter([] { KivReportFailure("a", kSource, 1); }), 0u);
  EXPECT_EQ(ReportsAfter([] { throw std::bad_alloc(); }), 1u);
  EXPECT_STREQ(KivLastQuietReport().m_szCondition, "0");
  EXPECT_EQ(KivLastQuietReport().m_iLine, 7);
  EXPECT_EQ(ReportsAfter([] { throw 5; }), 1u);
  KivSetReportDispatchMode(true);
  EXPECT_EQ(ReportsAfter([] { KivReportFailure("a", kSource, 1); }), 0u);
  KivSetReportDispatchMode(false);
}

TEST(ReportQuiet, AnAssertionGivesTheValueOfItsCondition) {
  const int nLeft = 2;
  const uint64_t nBefore = KivLastQuietReport().m_iNumber;
  EXPECT_TRUE(KIV_ASSERT(nLeft == 2));
  EXPECT_EQ(KivLastQuietReport().m_iNumber, nBefore);
  EXPECT_FALSE(KIV_ASSERT(nLeft == 3));
  EXPECT_EQ(KivLastQuietReport().m_iNumber, nBefore + 1);
  EXPECT_STREQ(KivLastQuietReport().m_szCondition, "nLeft == 3");
  EXPECT_STREQ(KivLastQuietReport().m_szSource, kSource);
  EXPECT_FALSE(KIV_ASSERT_AS(nLeft == 3, "other words"));
  EXPECT_STREQ(KivLastQuietReport().m_szCondition, "other words");
  KIV_ASSERT_FAIL();
  EXPECT_STREQ(KivLastQuietReport().m_szCondition, "0");
  EXPECT_EQ(KivLastQuietReport().m_iNumber, nBefore + 3);
}
