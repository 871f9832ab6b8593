#include "KivSysProcess.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <set>
#include <stdexcept>

#include "KivPlatformTest.h"
#include "KivTestFolder.h"
#include "KivTestScale.h"

using namespace kiv;
using namespace kivtest;

KIV_TEST_CHILD(EndsWith) {
  return std::stoi(sys::WideToUtf8(vcsArgs[0]));
}

TEST(Process, TellsTheExitCode) {
  for (const char16_t* szCode : {u"0", u"1", u"30", u"231"}) {
    KivSysProcess zChild = StartTestChild("EndsWith", {szCode});
    ASSERT_TRUE(zChild.IsOpen());
    EXPECT_NE(zChild.GetId(), 0u);
    EXPECT_NE(zChild.GetId(), sys::CurrentProcessNumber());
    ASSERT_EQ(zChild.Wait(kLong), KivSysWait::Signalled);
    EXPECT_EQ(zChild.Wait(0), KivSysWait::Signalled);
    int32_t iCode = -1;
    EXPECT_TRUE(zChild.GetExitCode(iCode));
    EXPECT_EQ(iCode, std::stoi(sys::WideToUtf8(szCode)));
  }
}

KIV_TEST_CHILD(EndsAtOnce) {
  sys::EndProcess(999);
}

TEST(Process, EndProcessKeepsAtLeastTheLowEightBitsOf999) {
  KivSysProcess zChild = StartTestChild("EndsAtOnce", {});
  ASSERT_EQ(zChild.Wait(kLong), KivSysWait::Signalled);
  int32_t iCode = -1;
  EXPECT_TRUE(zChild.GetExitCode(iCode));
  EXPECT_EQ(iCode, IsWindows() ? 999 : 231);
}

KIV_TEST_CHILD(ThrowsUncaught) {
  sys::SetUncaughtExitCode(77);
  throw std::runtime_error("nobody catches this");
}

TEST(Process, AnUncaughtExceptionEndsWithTheCodeThatWasSet) {
  KivSysProcess zChild = StartTestChild("ThrowsUncaught", {});
  ASSERT_EQ(zChild.Wait(kLong), KivSysWait::Signalled);
  int32_t iCode = -1;
  EXPECT_TRUE(zChild.GetExitCode(iCode));
  EXPECT_EQ(iCode, 77);
}

KIV_TEST_CHILD(Idles) {
  return ReadyUntilKilled(vcsArgs[0]);
}

TEST(Process, WaitTimesOutWhileItRunsAndTerminateEndsIt) {
  ReadyChild zChild("Idles", {});
  ASSERT_TRUE(zChild.IsReady());
  int32_t iCode = -1;
  EXPECT_EQ(zChild.Process().Wait(0), KivSysWait::TimedOut);
  EXPECT_EQ(zChild.Process().Wait(5), KivSysWait::TimedOut);
  EXPECT_FALSE(zChild.Process().GetExitCode(iCode));
  EXPECT_TRUE(zChild.Process().Terminate(7));
  ASSERT_EQ(zChild.Process().Wait(kLong), KivSysWait::Signalled);
  EXPECT_TRUE(zChild.Process().GetExitCode(iCode));
  EXPECT_EQ(iCode, IsWindows() ? 7 : 128 + 9);
}

TEST(Process, AProgramThatIsNotThereDoesNotStart) {
  const TestFolder zFolder;
  for (const KivWString& csLine :
       {KivWString(), u"\"" + (zFolder / u"nothing") + u"\"", KivWString(u"\"\""), u"\"" + zFolder.Path() + u"\""}) {
    KivSysProcessStart zStart;
    zStart.m_csCommandLine = csLine;
    EXPECT_FALSE(KivSysProcess::Start(zStart).IsOpen());
  }
  KivSysProcess zNone;
  int32_t iCode = 0;
  EXPECT_EQ(zNone.Wait(0), KivSysWait::Failed);
  EXPECT_FALSE(zNone.GetExitCode(iCode));
  EXPECT_FALSE(zNone.Terminate(0));
}

KIV_TEST_CHILD(WritesHere) {
  return OpenFile(u"here", KivSysAccess::Write, KivSysShare::None, KivSysDisposition::CreateNew).IsOpen() ? 0 : 1;
}

TEST(Process, StartsInTheFolderThatItIsGiven) {
  const TestFolder zFolder;
  KivSysProcessStart zStart;
  zStart.m_csCommandLine = TestChildCommandLine("WritesHere", {});
  zStart.m_csFolder = zFolder.Path();
  KivSysProcess zChild = KivSysProcess::Start(zStart);
  ASSERT_EQ(zChild.Wait(kLong), KivSysWait::Signalled);
  EXPECT_TRUE(sys::PathExists(zFolder / u"here"));
  zStart.m_csFolder = zFolder / u"missing";
  EXPECT_FALSE(KivSysProcess::Start(zStart).IsOpen());
}

KIV_TEST_CHILD(Prints) {
  std::fputs("printed", stdout);
  std::fputs("printed", stderr);
  return std::fgetc(stdin) == EOF ? 0 : 1;
}

// Starts a child that prints, after its own output was sent to a file.
KIV_TEST_CHILD(StartsOneThatPrints) {
  if (std::freopen("printed", "w", stdout) == nullptr) return 90;
  KivSysProcessStart zStart;
  zStart.m_csCommandLine = TestChildCommandLine("Prints", {});
  zStart.m_bNoStreams = vcsArgs[0] == u"silent";
  KivSysProcess zChild = KivSysProcess::Start(zStart);
  int32_t iCode = -1;
  if (zChild.Wait(kLong) != KivSysWait::Signalled || !zChild.GetExitCode(iCode)) return 91;
  return zStart.m_bNoStreams ? iCode : 0;
}

TEST(Process, AChildWithoutStreamsPrintsNowhereAndHasNothingToRead) {
  for (const char16_t* szHow : {u"silent", u"loud"}) {
    const TestFolder zFolder;
    KivSysProcessStart zStart;
    zStart.m_csCommandLine = TestChildCommandLine("StartsOneThatPrints", {szHow});
    zStart.m_csFolder = zFolder.Path();
    KivSysProcess zChild = KivSysProcess::Start(zStart);
    ASSERT_EQ(zChild.Wait(kLong), KivSysWait::Signalled);
    int32_t iCode = -1;
    EXPECT_TRUE(zChild.GetExitCode(iCode));
    EXPECT_EQ(iCode, 0);
    const bool bSilent = KivWString(szHow) == u"silent";
    if (!bSilent && IsWindows()) continue;  // it may get the streams, but need not
    EXPECT_EQ(zFolder.ReadBytes(u"printed"), bSilent ? "" : "printed");
  }
}

KIV_TEST_CHILD(ComparesArguments) {
  const bool bSame = vcsArgs.size() == 3 && vcsArgs[0] == u"A" && vcsArgs[1] == u"" && vcsArgs[2] == u"\u00e4 b";
  return bSame ? 0 : 1;
}

TEST(Process, QuotesAndBlanksSplitTheCommandLine) {
  const KivWString csProgram = TestChildCommandLine("ComparesArguments", {});
  KivSysProcessStart zStart;
  // The arguments are hex of their units: "A", "" and "\u00e4 b", with quotes here and there.
  zStart.m_csCommandLine = csProgram + u" x\"0041\"  \"x\"\t\"x00e4\"00200062 ";
  KivSysProcess zChild = KivSysProcess::Start(zStart);
  ASSERT_EQ(zChild.Wait(kLong), KivSysWait::Signalled);
  int32_t iCode = -1;
  EXPECT_TRUE(zChild.GetExitCode(iCode));
  EXPECT_EQ(iCode, 0);
}

TEST(Process, ADroppedChildIsListedWhileItRunsAndNotAfter) {
  const KivWString csReady = UniqueName("Dropped");
  bool bExisted = false;
  const KivSysEvent zReady = KivSysEvent::Create(csReady, bExisted);
  uint32_t iId = 0;
  const KivWString csEnd = UniqueName("End");
  KivSysEvent zEnd = KivSysEvent::Create(csEnd, bExisted);
  {
    KivSysProcess zChild = StartTestChild("EndsWhenTold", {csReady, csEnd});
    ASSERT_TRUE(zChild.IsOpen());
    iId = zChild.GetId();
  }
  ASSERT_EQ(zReady.Wait(kLong), KivSysWait::Signalled);
  std::vector<uint32_t> viIds;
  ASSERT_TRUE(sys::ListProcesses(viIds));
  EXPECT_EQ(std::count(viIds.begin(), viIds.end(), iId), 1);
  EXPECT_EQ(std::count(viIds.begin(), viIds.end(), sys::CurrentProcessNumber()), 1);
  zEnd.Set();
  EXPECT_TRUE(Eventually(
      [&] { return sys::ListProcesses(viIds) && std::find(viIds.begin(), viIds.end(), iId) == viIds.end(); }));
}

KIV_TEST_CHILD(EndsWhenTold) {
  const KivSysEvent zEnd = KivSysEvent::Open(vcsArgs[1]);
  KivSysEvent::Open(vcsArgs[0]).Set();
  return zEnd.Wait(kLong) == KivSysWait::Signalled ? 0 : 1;
}

TEST(Process, AChildThatWasLetGoOfIsTakenBackAndTellsItsExitCode) {
  const KivWString csReady = UniqueName("Back"), csEnd = UniqueName("End");
  bool bExisted = false;
  const KivSysEvent zReady = KivSysEvent::Create(csReady, bExisted);
  KivSysEvent zEnd = KivSysEvent::Create(csEnd, bExisted);
  const uint32_t iId = StartTestChild("EndsWhenTold", {csReady, csEnd}).GetId();
  ASSERT_EQ(zReady.Wait(kLong), KivSysWait::Signalled);
  KivSysProcess zChild = KivSysProcess::TakeBack(iId);
  ASSERT_TRUE(zChild.IsOpen());
  EXPECT_EQ(zChild.GetId(), iId);
  EXPECT_EQ(zChild.Wait(0), KivSysWait::TimedOut);
  zEnd.Set();
  EXPECT_EQ(zChild.Wait(kLong), KivSysWait::Signalled);
  int32_t iCode = -1;
  EXPECT_TRUE(zChild.GetExitCode(iCode));
  EXPECT_EQ(iCode, 0);
  EXPECT_FALSE(KivSysProcess::TakeBack(0).IsOpen());
}

TEST(Process, MemoryCountersGrowWithUse) {
  KivSysMemoryCounters zBefore;
  ASSERT_TRUE(sys::MemoryCounters(zBefore));
  EXPECT_GT(zBefore.m_iWorkingSet, 0u);
  EXPECT_GT(zBefore.m_iPageFile, 0u);
  constexpr size_t kBytes = 64 << 20;
  const auto pBytes = std::make_unique<volatile uint8_t[]>(kBytes);
  for (size_t i = 0; i < kBytes; i += 1024) pBytes[i] = 1;
  KivSysMemoryCounters zAfter;
  ASSERT_TRUE(sys::MemoryCounters(zAfter));
  EXPECT_GE(zAfter.m_iWorkingSet, zBefore.m_iWorkingSet + kBytes / 2);
  EXPECT_GE(zAfter.m_iPeakWorkingSet, zAfter.m_iWorkingSet);
  EXPECT_GE(zAfter.m_iPageFile, zBefore.m_iPageFile + kBytes / 2);
  EXPECT_GE(zAfter.m_iPeakPageFile, zAfter.m_iPageFile);
}

namespace {

KivSysProcess StartInJob(const KivWString& csJob, const std::string& strBody, const std::vector<KivWString>& vcsArgs,
                         bool bTellName) {
  KivSysProcessStart zStart;
  zStart.m_csCommandLine = TestChildCommandLine(strBody, vcsArgs);
  zStart.m_bBreakAwayFromJob = true;
  if (bTellName) zStart.m_csJobName = csJob;
  KivSysProcess zChild = KivSysProcess::Start(zStart);
  if (!zChild.IsOpen()) {  // the job of this process may not allow it; the child then inherits that one
    zStart.m_bBreakAwayFromJob = false;
    return KivSysProcess::Start(zStart);
  }
  KivSysJob zJob = KivSysJob::Open(csJob);
  bool bContained = true;
  if (!zJob.IsOpen() || !zJob.Contains(zChild, bContained) || bContained || !zJob.Assign(zChild)) return {};
  return zChild;
}

KivWString MarkerOfThisProcess(const KivWString& csFolder) {
  return csFolder + sys::kSeparator + u"KivProc" + sys::Utf8ToWide(std::to_string(sys::CurrentProcessNumber()));
}

std::set<uint32_t> MarkedIds(const KivWString& csFolder) {
  std::vector<KivSysFolderEntry> vzEntries;
  std::set<uint32_t> setIds;
  sys::ListFolder(csFolder, vzEntries);
  for (const KivSysFolderEntry& zEntry : vzEntries)
    if (zEntry.m_csName.substr(0, 7) == u"KivProc")
      setIds.insert(static_cast<uint32_t>(std::stoul(sys::WideToUtf8(zEntry.m_csName.substr(7)))));
  return setIds;
}

bool NoneRuns(const std::set<uint32_t>& setIds) {
  std::vector<uint32_t> viIds;
  if (!sys::ListProcesses(viIds)) return false;
  return std::none_of(viIds.begin(), viIds.end(), [&](uint32_t iId) { return setIds.count(iId) != 0; });
}

}  // namespace

// A process of a tree: job, marker folder, children to start, "told" if they are started with the job's name.
KIV_TEST_CHILD(TreeNode) {
  const KivSysFile zMarker = MakeMarker(MarkerOfThisProcess(vcsArgs[1]));
  if (!zMarker.IsOpen()) return 1;
  const int nChildren = std::stoi(sys::WideToUtf8(vcsArgs[2]));
  std::vector<KivSysProcess> vzChildren;
  for (int i = 0; i < nChildren; ++i) {
    vzChildren.push_back(
        StartInJob(vcsArgs[0], "TreeNode", {vcsArgs[0], vcsArgs[1], u"0", vcsArgs[3]}, vcsArgs[3] == u"told"));
    if (!vzChildren.back().IsOpen()) return 2;
  }
  sys::SleepMs(10 * kLong);
  return 3;
}

TEST(Job, EndsATreeOf64ProcessesAndGrandchildren) {
  for (const KivWString csTold : {u"told", u"untold"}) {
    const TestFolder zFolder;
    const KivWString csJob = UniqueName("Job");
    KivSysJob zJob = KivSysJob::Create(csJob);
    ASSERT_TRUE(zJob.IsOpen());
    std::vector<KivSysProcess> vzChildren;
    for (int i = 0; i < 8; ++i) {
      vzChildren.push_back(StartInJob(csJob, "TreeNode", {csJob, zFolder.Path(), u"7", csTold}, csTold == u"told"));
      ASSERT_TRUE(vzChildren.back().IsOpen());
      bool bContained = false;
      EXPECT_TRUE(zJob.Contains(vzChildren.back(), bContained));
      EXPECT_TRUE(bContained);
    }
    ASSERT_TRUE(Eventually([&] { return MarkedIds(zFolder.Path()).size() == 64; }));
    const std::set<uint32_t> setIds = MarkedIds(zFolder.Path());
    EXPECT_TRUE(zJob.Terminate(5, zFolder.Path()));
    EXPECT_TRUE(Eventually([&] { return NoneRuns(setIds); }));
    EXPECT_TRUE(Eventually([&] { return MarkedIds(zFolder.Path()).empty(); }));
    for (KivSysProcess& zChild : vzChildren) {
      ASSERT_EQ(zChild.Wait(kLong), KivSysWait::Signalled);
      int32_t iCode = 0;
      EXPECT_TRUE(zChild.GetExitCode(iCode));
      EXPECT_EQ(iCode, IsWindows() ? 5 : 128 + 9);
    }
  }
}

// Starts children, each of which does the same: job, marker folder, event that each of them holds as long as it lives.
// Where the job does not end them they end with their marker's folder, and after a minute whatever comes.
KIV_TEST_CHILD(ForkingNode) {
  bool bExisted = false;
  const KivSysEvent zLives = KivSysEvent::Create(vcsArgs[2], bExisted);
  if (!zLives.IsOpen()) return 2;
  const KivSysFile zMarker = MakeMarker(MarkerOfThisProcess(vcsArgs[1]));
  if (!zMarker.IsOpen()) return 1;
  for (const uint64_t iEnd = sys::SteadyNs() + 60'000'000'000; sys::SteadyNs() < iEnd;) {
    // Markers bound the number of processes, so that the machine stays usable.
    const std::set<uint32_t> setIds = MarkedIds(vcsArgs[1]);
    if (setIds.count(sys::CurrentProcessNumber()) == 0) return 3;
    if (setIds.size() < 48) {
      // Children inherit the job. A Windows job does not let its processes break away; Wine would.
      if (IsWindows())
        StartTestChild("ForkingNode", vcsArgs);
      else
        StartInJob(vcsArgs[0], "ForkingNode", vcsArgs, true);
    } else if (sys::SteadyNs() % 7 == 0) {
      return 0;  // makes room for another one
    }
    sys::SleepMs(1);
  }
  return 4;
}

// The one test that lets time pass: one that had lived on would start others in it, up to 48, which hold the event.
TEST(Job, EndsATreeWhileItForks) {
  const uint64_t nRounds = Scaled(5, 1);
  for (uint64_t i = 0; i < nRounds; ++i) {
    const TestFolder zFolder;
    const KivWString csJob = UniqueName("Job"), csLives = UniqueName("Lives");
    KivSysJob zJob = KivSysJob::Create(csJob);
    ASSERT_TRUE(zJob.IsOpen());
    const std::vector<KivWString> vcsArgs = {csJob, zFolder.Path(), csLives};
    for (int j = 0; j < 4; ++j) StartInJob(csJob, "ForkingNode", vcsArgs, true);
    ASSERT_TRUE(Eventually([&] { return MarkedIds(zFolder.Path()).size() >= 24; }));
    EXPECT_TRUE(KivSysEvent::Open(csLives).IsOpen());
    EXPECT_TRUE(zJob.Terminate(5, zFolder.Path()));
    EXPECT_TRUE(Eventually([&] { return !KivSysEvent::Open(csLives).IsOpen(); })) << "one of them lives";
    EXPECT_TRUE(Eventually([&] { return MarkedIds(zFolder.Path()).empty(); }));
    sys::SleepMs(100);
    EXPECT_FALSE(KivSysEvent::Open(csLives).IsOpen()) << "one of them lived on and started others";
    EXPECT_TRUE(MarkedIds(zFolder.Path()).empty());
  }
}

TEST(Job, IsFoundByItsNameWhileItsOwnerHoldsIt) {
  const KivWString csName = UniqueName("Job");
  EXPECT_FALSE(KivSysJob::Open(csName).IsOpen());
  {
    KivSysJob zJob = KivSysJob::Create(csName);
    ASSERT_TRUE(zJob.IsOpen());
    EXPECT_TRUE(KivSysJob::Open(csName).IsOpen());
    EXPECT_TRUE(zJob.Terminate(0, u"")) << "an empty one";
  }
  EXPECT_FALSE(KivSysJob::Open(csName).IsOpen());
}

TEST(Job, ANameThatIsEmptyOrHoldsAZeroIsRefused) {
  for (const KivWString& csName : {KivWString(), KivWString(u"a\0b", 3)}) {
    EXPECT_FALSE(KivSysJob::Create(csName).IsOpen());
    EXPECT_FALSE(KivSysJob::Open(csName).IsOpen());
    bool bExisted = false;
    EXPECT_FALSE(KivSysEvent::Create(csName, bExisted).IsOpen());
    EXPECT_FALSE(KivSysEvent::Open(csName).IsOpen());
  }
}

TEST(Process, ACommandLineOrAFolderThatHoldsAZeroIsRefused) {
  KivSysProcessStart zStart;
  zStart.m_csCommandLine = TestChildCommandLine("EndsWith", {u"0"}) + KivWString(u"\0 more", 6);
  EXPECT_FALSE(KivSysProcess::Start(zStart).IsOpen());
  zStart.m_csCommandLine = TestChildCommandLine("EndsWith", {u"0"});
  zStart.m_csFolder = KivWString(u"a\0b", 3);
  EXPECT_FALSE(KivSysProcess::Start(zStart).IsOpen());
}

TEST(Job, DoesNotEndWhatItDoesNotHold) {
  const TestFolder zFolder;
  KivSysJob zJob = KivSysJob::Create(UniqueName("Job"));
  ReadyChild zChild("Idles", {});
  ASSERT_TRUE(zChild.IsReady());
  bool bContained = true;
  EXPECT_TRUE(zJob.Contains(zChild.Process(), bContained));
  EXPECT_FALSE(bContained);
  EXPECT_TRUE(zJob.Terminate(5, zFolder.Path()));
  EXPECT_EQ(zChild.Process().Wait(0), KivSysWait::TimedOut);
  EXPECT_TRUE(zChild.Kill());
}
