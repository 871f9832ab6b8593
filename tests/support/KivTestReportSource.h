// Reports with their source.
#pragma once

#include "KivTestReport.h"

namespace kivtest {

// "<source>: <condition>" of the report that the body throws; "" if it throws none.
template <typename Body>
kiv::KivWString ReportAndSourceOf(Body&& body) {
  try {
    body();
  } catch (const kiv::KivException& e) {
    return e.GetFile() + u": " + e.GetMessageText();
  }
  return u"";
}

}  // namespace kivtest

// The statement reports this condition text from this source.
#define EXPECT_REPORT_FROM(statement, text, source) \
  EXPECT_EQ(kivtest::ReportAndSourceOf([&] { statement; }), kiv::KivWString(u##source u": " u##text))
