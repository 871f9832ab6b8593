#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <random>
#include <regex>
#include <sstream>

#include "KivDataUtil.h"
#include "KivException.h"
#include "KivFormatRegistry.h"
#include "KivSysDiag.h"
#include "KivSysFault.h"
#include "KivSysFolder.h"
#include "KivSysProcess.h"
#include "KivTestProgram.h"
#include "KivTestReport.h"

using namespace kiv;

namespace {

using CallStack = kivtest::RecordsReports;
using ReportFaults = kivtest::RecordsReports;
using ReportFilter = kivtest::RecordsReports;

struct SystemLogEntry {
  KivWString m_csSource;
  KivWString m_csText;
};

// Takes what goes to the system log, and has the timing log in a folder of its own.
class Logs {
 public:
  Logs() {
    KivSetWorkFolder(m_zFolder.Path());
    sys::SetSystemLogHook([this](const KivWString& csSource, const KivWString& csText) {
      m_vzSystem.push_back({csSource, csText});
      return true;
    });
  }
  ~Logs() {
    sys::SetSystemLogHook(nullptr);
    KivCloseLog();
  }
  Logs(const Logs&) = delete;
  Logs& operator=(const Logs&) = delete;

  std::string Timing() const {
    const std::string strNumber = std::to_string(sys::CurrentProcessNumber());
    return m_zFolder.ReadBytes(u"KivLog" + KivWString(strNumber.begin(), strNumber.end()) + u".txt");
  }

  kivtest::TestFolder m_zFolder;
  std::vector<SystemLogEntry> m_vzSystem;
};

class Report : public kivtest::RecordsReports {
 protected:
  Logs m_zLogs;
};

bool Throws(const char* szCondition, const char* szSource, int32_t iLine) {
  try {
    KivReportFailure(szCondition, szSource, iLine);
  } catch (const KivException&) {
    return true;
  }
  return false;
}

void RegisterFormat(uint32_t iVersion) {
  KivSetFormatVersion(iVersion);
  KivSetFormatApplication(5);
  KivSetFormatCompatibilityCallback(nullptr);
}

[[gnu::noinline]] void ReportsFromHere() {
  KivReportFailure("0", "src\\KivTest", 1);
  asm volatile("");  // keeps the call above from becoming a jump
}

}  // namespace

// Outside of the unnamed namespace, so that the symbol tables of both targets know it by this name.
[[gnu::noinline]] void KivTestNamesItselfInTheStack(KivWString& csText) {
  KivGetCallStack(csText);
  asm volatile("");
}

TEST_F(Report, TheExceptionHoldsConditionSourceAndLine) {
  try {
    KivReportFailure("iRead == 8", "src\\KivTest", 123);
    FAIL();
  } catch (const KivException& zError) {
    EXPECT_EQ(zError.GetMessageText(), u"iRead == 8");
    EXPECT_EQ(zError.GetFile(), u"src\\KivTest");
    EXPECT_EQ(zError.GetLine(), 123);
    EXPECT_STREQ(zError.what(), "src\\KivTest(123) iRead == 8");
  }
}

TEST_F(Report, TheFirstOneIsRecordedInBothLogsAndLaterOnesOnlyThrow) {
  EXPECT_FALSE(KivGetReportSwitches().m_bReported);
  EXPECT_TRUE(Throws("first", "src\\KivTest", 5));
  EXPECT_TRUE(KivGetReportSwitches().m_bReported);
  ASSERT_EQ(m_zLogs.m_vzSystem.size(), 1u);
  EXPECT_EQ(m_zLogs.m_vzSystem[0].m_csSource, u"KivBase 20.10");
  const std::string strTiming = m_zLogs.Timing();
  EXPECT_THAT(strTiming, testing::HasSubstr(",0,Exception occured.\n  File name:src\\KivTest\n  Line number:5\n"
                                            "  Message:first\n  Call stack:\n"));
  EXPECT_TRUE(Throws("second", "src\\KivTest", 6));
  EXPECT_TRUE(Throws("first", "src\\KivTest", 5));
  EXPECT_EQ(m_zLogs.m_vzSystem.size(), 1u);
  EXPECT_EQ(m_zLogs.Timing(), strTiming);
}

TEST_F(Report, TheRecordIsTheReportTextWithTheCallStack) {
  try {
    KivReportFailure("a < b", "src\\KivTest", -7);
    FAIL();
  } catch (const KivException& zError) {
    EXPECT_NE(zError.GetCallStack(), u"");
    ASSERT_EQ(m_zLogs.m_vzSystem.size(), 1u);
    EXPECT_EQ(m_zLogs.m_vzSystem[0].m_csText,
              u"Exception occured.\n  File name:src\\KivTest\n  Line number:-7\n  Message:a < b\n  Call stack:\n" +
                  zError.GetCallStack() + u"\n");
  }
}

TEST_F(Report, ALongTextIsCutForTheSystemLogAndWholeInTheTimingLog) {
  const std::string strCondition = std::string(20000, 'x') + "end";
  EXPECT_TRUE(Throws(strCondition.c_str(), "src\\KivTest", 1));
  ASSERT_EQ(m_zLogs.m_vzSystem.size(), 1u);
  EXPECT_EQ(m_zLogs.m_vzSystem[0].m_csText.size(), 16000u);
  EXPECT_EQ(m_zLogs.m_vzSystem[0].m_csText.substr(0, 18), u"Exception occured.");
  EXPECT_THAT(m_zLogs.Timing(), testing::HasSubstr(strCondition + "\n  Call stack:\n"));
}

TEST_F(Report, WithNoThrowTheReportIsMadeAndTheNextStatementRuns) {
  kivtest::NoThrowScope zNoThrow;
  bool bBehind = false;
  KivReportFailure("0", "src\\KivTest", 1);
  bBehind = true;
  EXPECT_TRUE(bBehind);
  EXPECT_EQ(m_zLogs.m_vzSystem.size(), 1u);
  EXPECT_TRUE(KivGetReportSwitches().m_bReported);
  KivReportFailure("0", "src\\KivTest", 1);
  EXPECT_EQ(m_zLogs.m_vzSystem.size(), 1u);
}

TEST_F(Report, DispatchModeThrowsCodeOneWithSourceLineAndCondition) {
  KivSetReportDispatchMode(true);
  KivSetAppName(u"Host 1.0");
  for (int i = 0; i < 2; ++i) {
    try {
      KivReportFailure("a == b", "src\\KivTest", 42);
      FAIL();
    } catch (const KivDispatchException& zError) {
      EXPECT_EQ(zError.GetCode(), 1);
      EXPECT_EQ(zError.GetSource(), u"Host 1.0");
      EXPECT_EQ(zError.GetText(), u"src\\KivTest(42) a == b");
      EXPECT_STREQ(zError.what(), "src\\KivTest(42) a == b");
    }
  }
  ASSERT_EQ(m_zLogs.m_vzSystem.size(), 1u);
  EXPECT_EQ(m_zLogs.m_vzSystem[0].m_csSource, u"Host 1.0");
  EXPECT_THAT(m_zLogs.Timing(), testing::HasSubstr("  Message:a == b\n"));
  EXPECT_EQ(m_zLogs.m_vzSystem[0].m_csText.substr(0, 18), u"Exception occured.");
}

TEST_F(Report, DispatchModeWithNoThrowReturns) {
  KivSetReportDispatchMode(true);
  kivtest::NoThrowScope zNoThrow;
  EXPECT_NO_THROW(KivReportFailure("a == b", "src\\KivTest", 42));
  EXPECT_EQ(m_zLogs.m_vzSystem.size(), 1u);
}

TEST_F(Report, AnEmptyAppNameStandsAsKivBaseInTheSystemLog) {
  KivSetAppName(u"");
  EXPECT_EQ(KivGetAppName(), u"");
  EXPECT_TRUE(Throws("0", "src\\KivTest", 1));
  ASSERT_EQ(m_zLogs.m_vzSystem.size(), 1u);
  EXPECT_EQ(m_zLogs.m_vzSystem[0].m_csSource, u"KivBase");
}

TEST_F(Report, TheAppNameIsKivBaseWithItsVersionUnlessSet) {
  EXPECT_EQ(KivGetAppName(), u"KivBase 20.10");
  KivSetAppName(u"Other");
  EXPECT_EQ(KivGetAppName(), u"Other");
}

TEST_F(Report, ASystemLogThatRefusesLosesOnlyItsEntry) {
  sys::SetSystemLogHook([](const KivWString&, const KivWString&) { return false; });
  EXPECT_TRUE(Throws("refused", "src\\KivTest", 1));
  EXPECT_THAT(m_zLogs.Timing(), testing::HasSubstr("  Message:refused\n"));
}

TEST_F(Report, AnExceptionInTheSystemLogDoesNotHideTheFailure) {
  sys::SetSystemLogHook([](const KivWString&, const KivWString&) -> bool { throw std::bad_alloc(); });
  EXPECT_REPORT(KivReportFailure("hidden?", "src\\KivTest", 1), "hidden?");
}

TEST_F(Report, AFullDiskDoesNotHideTheFailure) {
  KivSysFaultScope zFault({KivSysCall::FileWrite, 1, true, KivSysFaultKind::DiskFull, false});
  EXPECT_REPORT(KivReportFailure("hidden?", "src\\KivTest", 1), "hidden?");
  EXPECT_TRUE(zFault.HasFired());
  EXPECT_EQ(m_zLogs.m_vzSystem.size(), 1u);
}

TEST_F(Report, NullTextsAreEmptyOnes) {
  EXPECT_REPORT(KivReportFailure(nullptr, nullptr, 0), "");
  ASSERT_EQ(m_zLogs.m_vzSystem.size(), 1u);
}

TEST_F(Report, AnExceptionMadeByHandRecordsItselfOnlyWhenAsked) {
  const KivException zPlain("a", "src\\KivTest", 1, false);
  EXPECT_EQ(m_zLogs.m_vzSystem.size(), 0u);
  EXPECT_FALSE(KivGetReportSwitches().m_bReported);
  const KivException zRecorded("b", "src\\KivTest", 1, true);
  EXPECT_EQ(m_zLogs.m_vzSystem.size(), 1u);
}

TEST_F(Report, CopiesShareTheCallStack) {
  const KivException zFirst("a", "src\\KivTest", 1, false);
  const KivException zCopy = zFirst;
  EXPECT_EQ(&zFirst.GetCallStack(), &zCopy.GetCallStack());
}

TEST_F(Report, TheChecksGiveTheirValueAndReportTheirText) {
  constexpr char kSource[] = "src\\KivTest";
  const int iRead = 3;
  EXPECT_NO_REPORT(EXPECT_TRUE(KIV_CHECK(iRead == 3)));
  EXPECT_REPORT(KIV_CHECK(iRead == 4), "iRead == 4");
  EXPECT_REPORT(KIV_CHECK_AS(iRead == 4, "in other words"), "in other words");
  EXPECT_REPORT(KIV_FAIL(), "0");
  kivtest::NoThrowScope zNoThrow;
  EXPECT_FALSE(KIV_CHECK(iRead == 4));
}

TEST_F(CallStack, TheTextIsAppended) {
  KivWString csText = u"before\n";
  KivGetCallStack(csText);
  EXPECT_EQ(csText.substr(0, 7), u"before\n");
  EXPECT_GT(csText.size(), 7u);
}

TEST_F(CallStack, EachLineIsAddressModuleAndSymbol) {
  KivWString csText;
  KivTestNamesItselfInTheStack(csText);
  const std::string strText = sys::WideToUtf8(csText);
  std::istringstream zText(strText);
  std::string strLine;
  size_t nLines = 0;
  const std::regex zForm("0x[0-9A-F]{16}\\(0x[0-9A-F]{8}\\)[^:]*: .+");
  for (; std::getline(zText, strLine); ++nLines) {
    EXPECT_TRUE(std::regex_match(strLine, zForm)) << strLine;
    EXPECT_LE(strLine.size() + 1, 520u);
  }
  EXPECT_GT(nLines, 0u);
  EXPECT_EQ(strText.back(), '\n');
}

TEST_F(CallStack, ItBeginsWithTheCaller) {
  KivWString csText;
  KivTestNamesItselfInTheStack(csText);
  const std::string strText = sys::WideToUtf8(csText);
  const std::string strFirst = strText.substr(0, strText.find('\n'));
  EXPECT_THAT(strFirst, testing::HasSubstr("KivTestNamesItselfInTheStack"));
}

TEST_F(Report, TheCallStackLeavesOutTheFramesOfTheReport) {
  try {
    ReportsFromHere();
    FAIL();
  } catch (const KivException& zError) {
    const std::string strText = sys::WideToUtf8(zError.GetCallStack());
    const std::string strFirst = strText.substr(0, strText.find('\n'));
    EXPECT_THAT(strFirst, testing::HasSubstr("ReportsFromHere"));
    EXPECT_THAT(strText, testing::Not(testing::HasSubstr("KivReportFailure")));
    EXPECT_THAT(strText, testing::Not(testing::HasSubstr("CaptureStack")));
  }
}

// --- Rewriting and the filter ---------------------------------------------------------------------------------------

TEST_F(Report, RewritingShiftsLowercaseLettersByTenAndTheCodesLastDigit) {
  RegisterFormat(106);  // 106 mod 99 = 7
  KivWString csName;
  int32_t iCode = 0;
  KivRewriteReport("src\\KivDataUtil", 10, csName, iCode);
  EXPECT_EQ(iCode, 7 * 10 + 1024);
  EXPECT_EQ(csName, u"GFQ\\KWJDOHOUHWZ");
  KivRewriteReport("az_AZ09.-", 0, csName, iCode);
  EXPECT_EQ(iCode, 1024);
  EXPECT_EQ(csName, u"ON_AZ09.-");
}

TEST_F(Report, RewritingCountsANegativeLineAsZero) {
  RegisterFormat(7);
  KivWString csName;
  int32_t iCode = 0;
  KivRewriteReport("a", -5, csName, iCode);
  EXPECT_EQ(iCode, 1024);
}

TEST_F(Report, RewritingTheLargestLineDoesNotTrap) {
  RegisterFormat(98);
  KivWString csName;
  int32_t iCode = 0;
  KivRewriteReport("a", 2147483647, csName, iCode);
  EXPECT_EQ(static_cast<uint32_t>(iCode), static_cast<uint32_t>(98ull * 2147483647ull + 1024));
}

TEST_F(Report, RewritingWithoutARegisteredFormatIsReportedAndGoesOnWithVersionZero) {
  KivWString csName;
  int32_t iCode = 0;
  EXPECT_REPORT(KivRewriteReport("a", 10, csName, iCode), "IsInitialized()");
  kivtest::NoThrowScope zNoThrow;
  KivRewriteReport("a", 10, csName, iCode);
  EXPECT_EQ(iCode, 1024);
  EXPECT_EQ(csName, u"O");
}

TEST_F(Report, WithTheFilterOnAndNoFormatRegisteredTheTestReportsOnceWithoutRecursion) {
  KivSetReportFilter(true);
  EXPECT_REPORT(KivReportFailure("own", "src\\KivTest", 1), "IsInitialized()");
  EXPECT_EQ(m_zLogs.m_vzSystem.size(), 1u);
  // And once again for the next report: it is off only while its own report is made.
  EXPECT_REPORT(KivReportFailure("own", "src\\KivTest", 1), "IsInitialized()");
}

TEST_F(Report, WithNoThrowTheUnregisteredFilterReportsOnceAndGoesOn) {
  KivSetReportFilter(true);
  kivtest::NoThrowScope zNoThrow;
  KivReportFailure("own", "src\\KivTest", 1);
  ASSERT_EQ(m_zLogs.m_vzSystem.size(), 1u);
  EXPECT_THAT(sys::WideToUtf8(m_zLogs.m_vzSystem[0].m_csText), testing::HasSubstr("  Message:IsInitialized()\n"));
}

namespace {

// Where the program stands: the lines of error_config.txt that make the report of (source, line) vanish.
std::string ListedAs(const char* szSource, int32_t iLine) {
  KivWString csName;
  int32_t iCode = 0;
  KivRewriteReport(szSource, iLine, csName, iCode);
  return std::to_string(iCode) + ":" + sys::WideToUtf8(csName);
}

void WriteConfig(const std::string& strText) {
  std::ofstream zFile(std::filesystem::path(KivGetModuleFolder()) / "error_config.txt", std::ios::binary);
  zFile << strText;
}

KIV_TEST_CHILD(FilterSuppressesListedReports) {
  Logs zLogs;
  RegisterFormat(7);
  KivSetReportFilter(true);
  WriteConfig(ListedAs("src\\KivTest", 10) + "\r\n" + ListedAs("src\\KivTest", 20) + "\n" +
              ListedAs("src\\KivOther", 10));
  bool bBehind = false;
  KivReportFailure("0", "src\\KivTest", 10);
  bBehind = true;
  CHILD_CHECK(bBehind);
  CHILD_CHECK(!KivGetReportSwitches().m_bReported);
  CHILD_CHECK(zLogs.m_vzSystem.empty());
  CHILD_CHECK(!Throws("0", "src\\KivTest", 20));
  CHILD_CHECK(!Throws("0", "src\\KivOther", 10));
  CHILD_CHECK(Throws("0", "src\\KivTest", 11));
  CHILD_CHECK(Throws("0", "src\\KivOther", 20));
  CHILD_CHECK(zLogs.m_vzSystem.size() == 1);
  KivSetReportFilter(false);
  CHILD_CHECK(Throws("0", "src\\KivTest", 10));
  return 0;
}

KIV_TEST_CHILD(FilterReadsOddLines) {
  Logs zLogs;
  RegisterFormat(0);  // each code is 1024, each letter moves by 14
  KivSetReportFilter(true);
  WriteConfig(
      "no colon\n"
      "1024NOCOLON\n"
      "1024:\n"
      ":\n"
      "\n"
      "1024:OO:OO\n"    // "aa:aa": the name holds a further colon
      " \t+1024x:PP\n"  // read as 1024
      "1023:QQ\n"       // another code
      "1024:RR");       // the last line without an end
  CHILD_CHECK(!Throws("0", "aa:aa", 1));
  CHILD_CHECK(!Throws("0", "bb", 1));
  CHILD_CHECK(Throws("0", "cc", 1));
  CHILD_CHECK(!Throws("0", "dd", 1));
  CHILD_CHECK(Throws("0", "aa", 1));
  CHILD_CHECK(Throws("0", "", 1));
  return 0;
}

KIV_TEST_CHILD(FilterWithoutFileIsNotLookedForAgain) {
  Logs zLogs;
  RegisterFormat(0);
  KivSetReportFilter(true);
  CHILD_CHECK(Throws("0", "aa", 1));
  WriteConfig("1024:OO\n");
  CHILD_CHECK(Throws("0", "aa", 1));
  return 0;
}

KIV_TEST_CHILD(FilterSurvivesGarbage) {
  Logs zLogs;
  RegisterFormat(0);
  KivSetReportFilter(true);
  std::mt19937 zRandom(static_cast<uint32_t>(std::stoul(std::string(vcsArgs[0].begin(), vcsArgs[0].end()))));
  std::string strGarbage;
  for (int i = 0; i < 300000; ++i)
    strGarbage += static_cast<char>(zRandom() % 5 == 0 ? ":\n-9\0"[zRandom() % 5] : zRandom());
  WriteConfig(strGarbage + "\n99999999999999999999:OO\n-99999999999999999999:OO\n1024:PP\n");
  CHILD_CHECK(Throws("0", "aa", 1));
  CHILD_CHECK(!Throws("0", "bb", 1));
  return 0;
}

KIV_TEST_CHILD(FilterIgnoresAHugeFile) {
  Logs zLogs;
  RegisterFormat(0);
  KivSetReportFilter(true);
  WriteConfig("1024:OO\n" + std::string(17u << 20, '\n'));
  CHILD_CHECK(Throws("0", "aa", 1));
  return 0;
}

KIV_TEST_CHILD(FilterCannotReadItsFile) {
  Logs zLogs;
  RegisterFormat(0);
  KivSetReportFilter(true);
  WriteConfig("1024:OO\n");
  {
    KivSysFaultScope zFault({KivSysCall::FileRead, 1, true, KivSysFaultKind::Fail, false});
    CHILD_CHECK(Throws("0", "aa", 1));
    CHILD_CHECK(zFault.HasFired());
  }
  CHILD_CHECK(Throws("0", "aa", 1));
  return 0;
}

// Makes a first report, work folder and all, while the N-th call of the system fails. 77: no call was left to fail.
KIV_TEST_CHILD(ReportsWhileACallFails) {
  bool bLogged = false;
  sys::SetSystemLogHook([&](const KivWString&, const KivWString&) { return bLogged = true; });
  const KivSysFaultScope zFault({KivSysCall::Count, std::stoul(std::string(vcsArgs[0].begin(), vcsArgs[0].end())),
                                 vcsArgs[1] == u"on", KivSysFaultKind::Fail, true});
  CHILD_CHECK(kivtest::ReportOf([] { KivReportFailure("mine", "src\\KivTest", 1); }) == u"mine");
  CHILD_CHECK(bLogged);
  return zFault.HasFired() ? 0 : 77;
}

// An exception that nobody catches ends the process, with the record written.
KIV_TEST_CHILD(DiesOfAReport) {
  KivSetWorkFolder(vcsArgs[0]);
  sys::SetSystemLogHook([](const KivWString&, const KivWString&) { return true; });
  sys::SetUncaughtExitCode(200);
  KivReportFailure("deadly", "src\\KivTest", 1);
  return 0;
}

}  // namespace

TEST_F(ReportFilter, AListedFailureReturnsToTheCallerAndLeavesNoTrace) {
  EXPECT_EQ(kivtest::TestProgram().Run("FilterSuppressesListedReports"), 0);
}

TEST_F(ReportFilter, ALineWithoutAColonIsIgnoredAndTheFirstColonSplits) {
  EXPECT_EQ(kivtest::TestProgram().Run("FilterReadsOddLines"), 0);
}

TEST_F(ReportFilter, AMissingFileIsAnEmptyListAndIsNotLookedForAgain) {
  EXPECT_EQ(kivtest::TestProgram().Run("FilterWithoutFileIsNotLookedForAgain"), 0);
}

TEST_F(ReportFilter, AFileOfGarbageSuppressesNothingElse) {
  const uint32_t iSeed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(iSeed));
  const std::string strSeed = std::to_string(iSeed);
  EXPECT_EQ(kivtest::TestProgram().Run("FilterSurvivesGarbage", {KivWString(strSeed.begin(), strSeed.end())}), 0);
}

TEST_F(ReportFilter, AFileTooLargeForAListIsAnEmptyList) {
  EXPECT_EQ(kivtest::TestProgram().Run("FilterIgnoresAHugeFile"), 0);
}

TEST_F(ReportFilter, AnUnreadableFileIsAnEmptyList) {
  EXPECT_EQ(kivtest::TestProgram().Run("FilterCannotReadItsFile"), 0);
}

TEST_F(ReportFaults, NoFailingCallHidesTheFirstReport) {
  const kivtest::TestProgram zProgram;
  for (const char16_t* szFrom : {u"once", u"on"}) {
    for (int iNth = 1;; ++iNth) {
      const std::string strNth = std::to_string(iNth);
      const int32_t iCode = zProgram.Run("ReportsWhileACallFails", {KivWString(strNth.begin(), strNth.end()), szFrom});
      if (iCode == 77) break;
      ASSERT_EQ(iCode, 0) << "call " << iNth;
      ASSERT_LT(iNth, 200);
    }
  }
}

TEST_F(ReportFaults, AnUncaughtReportEndsTheProcessWithItsRecordWritten) {
  const kivtest::TestFolder zFolder;
  const kivtest::TestProgram zProgram;
  KivSysProcess zChild = zProgram.Start("DiesOfAReport", {zFolder.Path()});
  ASSERT_EQ(zChild.Wait(KivSysEvent::kInfinite), KivSysWait::Signalled);
  int32_t iCode = 0;
  ASSERT_TRUE(zChild.GetExitCode(iCode));
  EXPECT_EQ(iCode, 200);
  const std::string strNumber = std::to_string(zChild.GetId());
  EXPECT_THAT(zFolder.ReadBytes(u"KivLog" + KivWString(strNumber.begin(), strNumber.end()) + u".txt"),
              testing::HasSubstr("  Message:deadly\n"));
}
