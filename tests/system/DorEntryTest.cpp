// The entry of the real programs: arguments, the monitor's marker, locale, the end by a report.
#include <clocale>
#include <cstdio>
#include <cstdlib>

#include "DorEntry.h"
#include "DorTreeTest.h"
#include "KivDataSpaceBase.h"
#include "KivException.h"
#include "KivSysFault.h"
#include "KivSysLocale.h"
#include "KivTestScale.h"

using namespace kiv;
using namespace kivtest;

namespace {

size_t CountMonitorFiles(const KivWString& csFolder) {
  std::vector<KivSysFolderEntry> vzEntries;
  sys::ListFolder(csFolder, vzEntries);
  size_t nFiles = 0;
  for (const KivSysFolderEntry& zEntry : vzEntries)
    if (zEntry.m_csName.starts_with(u"ZurProc")) ++nFiles;
  return nFiles;
}

KivSysProcess StartRelay(const TestFolder& zFolder, const KivWString& csArguments) {
  KivSysProcessStart zStart;
  zStart.m_csCommandLine = u"\"" + RealPrograms(zFolder).m_csRelay + u"\" " + csArguments;
  return KivSysProcess::Start(zStart);
}

constexpr int32_t kNoSuchLocale = 77;

}  // namespace

KIV_TEST_CHILD(ReportsBehindItsEntry) {
  DorPrepareProcess();
  KivSetWorkFolder(vcsArgs.at(0));
  KivReportFailure("not caught", "tests", 5);
  return 1;
}

// Formats and reads numbers where the locale that the process came with has a comma.
KIV_TEST_CHILD(UsesNumbers) {
  char szNumber[32];
  std::setlocale(LC_ALL, IsWindows() ? "German" : "");
  std::snprintf(szNumber, sizeof szNumber, "%.2f", 1.5);
  std::setlocale(LC_ALL, "C");
  if (std::string(szNumber) != "1,50") return kNoSuchLocale;
  DorPrepareProcess();
  std::snprintf(szNumber, sizeof szNumber, "%.2f", 1.5);
  if (std::string(szNumber) != "1.50") return 1;
  if (std::strtod("2.25", nullptr) != 2.25) return 2;
  return std::string(std::setlocale(LC_NUMERIC, nullptr)) == "C" ? 50 : 3;
}

TEST(DorEntry, TheMonitorsFolderListsRelayAndHandlersForAsLongAsTheyLive) {
  TestFolder zFolder;
  WriteModelFile(zFolder / u"model.kiv");
  const KivWString csMonitor = zFolder / u"monitor";
  SetVariable("TW_PROCESS_MONITOR_FOLDER", sys::WideToUtf8(csMonitor));
  DorClient zClient(RealPrograms(zFolder));
  const int64_t iModel = zClient.Open(zFolder / u"model.kiv");
  for (int32_t iPid : zClient.ListTree())
    EXPECT_EQ(sys::PathExists(Join(csMonitor, u"ZurProc" + Decimal(iPid))),
              iPid != static_cast<int32_t>(sys::CurrentProcessNumber()));
  EXPECT_EQ(CountMonitorFiles(csMonitor), 2u);
  zClient.Clear(iModel);
  EXPECT_TRUE(Eventually([&] { return CountMonitorFiles(csMonitor) == 1; }));
  EXPECT_TRUE(zClient.Close());
  EXPECT_TRUE(Eventually([&] { return CountMonitorFiles(csMonitor) == 0; }));
}

TEST(DorEntry, AProcessThatIsKilledOrEndsByAReportLeavesNoMonitorFile) {
  TestFolder zFolder;
  const KivWString csMonitor = zFolder / u"monitor";
  SetVariable("TW_PROCESS_MONITOR_FOLDER", sys::WideToUtf8(csMonitor));
  KivSysProcess zRelay = StartRelay(zFolder, u"-r\"" + (zFolder / u"killed") + u"\"");
  ASSERT_TRUE(Eventually([&] { return CountMonitorFiles(csMonitor) == 1; }));
  ASSERT_TRUE(zRelay.Terminate(1));
  EXPECT_TRUE(Eventually([&] { return CountMonitorFiles(csMonitor) == 0; }));

  DorClient zClient(RealPrograms(zFolder));
  EXPECT_EQ(CountMonitorFiles(csMonitor), 1u);
  KivByteBuffer vcResult;
  EXPECT_THROW(zClient.CallUnchecked(u"DorHandler_CopyAsm", {}, vcResult), DorClientError);
  EXPECT_TRUE(Eventually([&] { return CountMonitorFiles(csMonitor) == 0; }));
}

KIV_TEST_CHILD(KnowsItsLanguage) {
  KivDataSpaceBase::GetInstance()->m_iLanguageId = 0;
  DorPrepareProcess();
  return KivDataSpaceBase::GetInstance()->m_iLanguageId == static_cast<uint16_t>(sys::LanguageId()) ? 0 : 1;
}

TEST(DorEntry, TheLanguageOfTheSystemIsThatOfTheDataSpace) {
  ASSERT_NE(static_cast<uint16_t>(sys::LanguageId()), 0);
  KivSysProcess zChild = StartTestChild("KnowsItsLanguage", {});
  EXPECT_EQ(EndOf(zChild), 0);
}

// Windows has no variables that are empty: there it is one that is not set.
TEST(DorEntry, AMonitorFolderThatIsEmptyTextMakesNothing) {
  SetVariable("TW_PROCESS_MONITOR_FOLDER", "");
  const KivSysFaultScope zCounts(KivSysFaultPlan{});
  DorMakeMonitorMarker();
  EXPECT_EQ(zCounts.GetCount(KivSysCall::FolderMake), 0u);
  EXPECT_EQ(zCounts.GetCount(KivSysCall::FileOpen), 0u);
}

TEST(DorEntry, AMonitorFolderThatIsEmptyTextOrCannotBeMadeIsNoHindrance) {
  TestFolder zFolder;
  for (const std::string& strFolder : {std::string(), sys::WideToUtf8(Join(zFolder / u"no", u"such"))}) {
    SetVariable("TW_PROCESS_MONITOR_FOLDER", strFolder);
    KivSysProcess zRelay = StartRelay(zFolder, u"-r\"" + (zFolder / u"root") + u"\"");
    const KivWString csMarker = MarkerOf(zFolder / u"root", Decimal(zRelay.GetId()));
    ASSERT_TRUE(Eventually([&] { return sys::PathExists(csMarker); }));
    EXPECT_FALSE(sys::PathExists(Join(sys::Utf8ToWide(strFolder), u"ZurProc" + Decimal(zRelay.GetId()))));
    ASSERT_TRUE(zRelay.Terminate(1));
    EXPECT_NE(EndOf(zRelay), -1);
    ASSERT_TRUE(Eventually([&] { return KivRemoveTree(zFolder / u"root") == KivRemoveTreeResult::Done; }));
  }
}

TEST(DorEntry, AnArgumentWithoutADashEndsTheRelayWith10) {
  TestFolder zFolder;
  KivSysProcess zRelay = StartRelay(zFolder, u"-r\"" + (zFolder / u"root") + u"\" model.kiv");
  EXPECT_EQ(EndOf(zRelay), 10);
  EXPECT_FALSE(sys::PathExists(zFolder / u"root"));
}

TEST(DorEntry, ARelayWithoutAParentIsARootThatServesForEver) {
  TestFolder zFolder;
  for (const char16_t* szParent : {u"", u"-p0", u"-px -y"}) {
    const KivWString csRoot = zFolder / u"root";
    KivSysProcess zRelay = StartRelay(zFolder, u"-r\"" + csRoot + u"\" " + szParent);
    ASSERT_TRUE(Eventually([&] { return sys::PathExists(MarkerOf(csRoot, Decimal(zRelay.GetId()))); }));
    EXPECT_EQ(zRelay.Wait(50), KivSysWait::TimedOut);
    ASSERT_TRUE(zRelay.Terminate(1));
    EXPECT_NE(EndOf(zRelay), -1);
    ASSERT_TRUE(Eventually([&] { return KivRemoveTree(csRoot) == KivRemoveTreeResult::Done; }));
  }
}

TEST(DorEntry, AReportBeforeTheRuntimeRunsEndsTheProcessWith999) {
  TestFolder zFolder;
  KivSysProcess zProcess = StartTestChild("ReportsBehindItsEntry", {zFolder / u"work"});
  EXPECT_EQ(EndOf(zProcess), SeenCode(999));
}

TEST(DorEntry, InALocaleWithACommaNumbersHaveAPoint) {
  TestFolder zFolder;
  if (!IsWindows()) {
    const std::string strFolder = sys::WideToUtf8(zFolder.Path());
    const std::string strMake = "localedef -i de_DE -f UTF-8 \"" + strFolder + "/de_DE.UTF-8\" >/dev/null 2>&1";
    ASSERT_EQ(std::system(strMake.c_str()), 0) << "the package locales has what localedef needs";
    SetVariable("LOCPATH", strFolder);
    SetVariable("LC_ALL", "de_DE.UTF-8");
    SetVariable("ASAN_OPTIONS", "detect_leaks=0");  // the C library keeps the parts of LOCPATH for good
  }
  KivSysProcess zProcess = StartTestChild("UsesNumbers", {});
  EXPECT_EQ(EndOf(zProcess), 50);
}
