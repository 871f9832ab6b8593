// Reports where memory is short: each allocation on the way of a report fails once, and from then on.
#include <gtest/gtest.h>

#include "KivDataUtil.h"
#include "KivException.h"
#include "KivSysDiag.h"
#include "KivTestFolder.h"
#include "KivTestHeap.h"
#include "KivTestReport.h"
#include "KivTestScale.h"

using namespace kiv;
using kivtest::NoMemory;

namespace {

enum class Outcome { Returned, Exception, Dispatch, Other };

Outcome Report() {
  try {
    KivReportFailure("iRead == nCount, and more", "src\\KivTestOfAReport", 1);
  } catch (const KivException& zError) {
    return zError.what() != nullptr && zError.GetLine() == 1 ? Outcome::Exception : Outcome::Other;
  } catch (const KivDispatchException& zError) {
    return zError.what() != nullptr && zError.GetCode() == 1 ? Outcome::Dispatch : Outcome::Other;
  } catch (...) {
    return Outcome::Other;
  }
  return Outcome::Returned;
}

// Makes a first report with each of its allocations failing, and says how many there were.
uint64_t FailEachAllocation(Outcome iExpected, bool bFromThenOn) {
  for (uint64_t iNth = 1;; iNth += kivtest::Scaled(1, 5)) {
    KivSetReported(false);
    Outcome iOutcome = Outcome::Other;
    bool bFired = false;
    {
      const NoMemory zNone(iNth, bFromThenOn);
      iOutcome = Report();
      bFired = zNone.HasFired();
    }
    KivCloseLog();
    EXPECT_EQ(iOutcome, iExpected) << "allocation " << iNth;
    if (!bFired || iOutcome != iExpected) return iNth - 1;
  }
}

class ReportWithoutMemory : public kivtest::RecordsReports {
 protected:
  ReportWithoutMemory() {
    KivSetWorkFolder(m_zFolder.Path());
    sys::SetSystemLogHook([](const KivWString&, const KivWString& csText) { return !KivWString(csText).empty(); });
    EXPECT_EQ(Report(), Outcome::Exception);  // what is set up once: symbols, folders
    KivCloseLog();
  }
  ~ReportWithoutMemory() override { sys::SetSystemLogHook(nullptr); }

  kivtest::TestFolder m_zFolder;
};

}  // namespace

TEST_F(ReportWithoutMemory, TheFirstReportStillThrowsItsException) {
  EXPECT_GT(FailEachAllocation(Outcome::Exception, false), 10u);
  EXPECT_GT(FailEachAllocation(Outcome::Exception, true), 10u);
}

TEST_F(ReportWithoutMemory, TheFirstReportStillReturnsWithNoThrow) {
  kivtest::NoThrowScope zNoThrow;
  EXPECT_GT(FailEachAllocation(Outcome::Returned, false), 10u);
  EXPECT_GT(FailEachAllocation(Outcome::Returned, true), 10u);
}

TEST_F(ReportWithoutMemory, TheFirstReportStillThrowsInDispatchMode) {
  KivSetReportDispatchMode(true);
  EXPECT_GT(FailEachAllocation(Outcome::Dispatch, false), 10u);
  EXPECT_GT(FailEachAllocation(Outcome::Dispatch, true), 10u);
  KivSetReportDispatchMode(false);
}

TEST_F(ReportWithoutMemory, ACallStackWithoutMemoryIsEmptyAndDoesNotThrow) {
  const KivException zError("a", "src\\KivTest", 1, false);
  {
    const NoMemory zNone(1, true);
    EXPECT_NO_THROW(EXPECT_TRUE(zError.GetCallStack().empty()));
  }
  EXPECT_FALSE(zError.GetCallStack().empty()) << "asked again";
}
