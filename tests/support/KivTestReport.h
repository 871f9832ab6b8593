// Runs a piece of code with reports in either mode.
#pragma once

#include <gtest/gtest.h>

#include "KivException.h"

namespace kivtest {

// Turns the no-throw switch on for its lifetime.
class NoThrowScope {
 public:
  NoThrowScope() : m_bBefore(kiv::KivGetReportSwitches().m_bNoThrow) { kiv::KivSetReportNoThrow(true); }
  ~NoThrowScope() { kiv::KivSetReportNoThrow(m_bBefore); }
  NoThrowScope(const NoThrowScope&) = delete;
  NoThrowScope& operator=(const NoThrowScope&) = delete;

 private:
  bool m_bBefore;
};

// Fixture of tests that look at the record of a process's first report. Elsewhere the test program counts as having
// reported already, since writing the record with its stack text takes long.
class RecordsReports : public testing::Test {
 protected:
  RecordsReports() { kiv::KivSetReported(false); }
};

// The condition text and source of the report that the body throws; "" if it throws none.
template <typename Body>
kiv::KivWString ReportOf(Body&& body) {
  try {
    body();
  } catch (const kiv::KivException& e) {
    return e.GetMessageText();
  }
  return u"";
}

}  // namespace kivtest

// The statement reports this condition text.
#define EXPECT_REPORT(statement, text) EXPECT_EQ(kivtest::ReportOf([&] { statement; }), kiv::KivWString(u##text))
// The statement reports nothing.
#define EXPECT_NO_REPORT(statement) EXPECT_EQ(kivtest::ReportOf([&] { statement; }), kiv::KivWString())
