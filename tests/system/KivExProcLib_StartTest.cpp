// Roots, children, the handshake.
#include <algorithm>
#include <regex>

#include "KivExProcLibInternal.h"
#include "KivExProcTest.h"
#include "KivSysFault.h"

using namespace kiv;
using namespace kivtest;

namespace {

int32_t EndLoop() {
  return -1;
}

// Runs this test process as the child of process 7, which is not there.
int32_t RunAsChildOf7(const KivWString& csRoot) {
  KivExProcLib_SetHandlers(nullptr, GoOn, EchoDispatch);
  return KivExProcLib_Run({u"program", u"-p7", u"-r" + csRoot});
}

// What the parent makes before the child looks.
void MakeReady(const KivWString& csRoot) {
  const KivWString csFolder = PairFolder(csRoot, OwnPid(), u"7");
  sys::MakeFolder(csFolder);
  WriteFile(Join(csFolder, u"EventReady"), "");
}

// Ids that the next process is bound to get one of.
std::vector<KivWString> LikelyIds() {
  KivSysProcess zProbe = StartTestChild("ExitsAtOnce", {});
  const int64_t iProbe = zProbe.GetId();
  EXPECT_EQ(EndOf(zProbe), 0);
  std::vector<KivWString> vcsIds;
  if (sys::kSeparator == u'/') {
    for (int64_t i = std::max<int64_t>(4, iProbe - 400); i < iProbe + 1500; ++i) vcsIds.push_back(Decimal(i));
  } else {
    // Multiples of 4, given again in no order.
    for (int64_t i = 4; i < std::max<int64_t>(iProbe + 2000, 8192); i += 4) vcsIds.push_back(Decimal(i));
  }
  return vcsIds;
}

// The code of a start while the N-th call of a kind fails.
int32_t StartWithFault(KivSysCall iCall, uint64_t iNth, bool bFromThenOn = false) {
  KivSysFaultPlan zPlan;
  zPlan.m_iCall = iCall;
  zPlan.m_iNth = iNth;
  zPlan.m_bFromThenOn = bFromThenOn;
  const KivSysFaultScope zFault(zPlan);
  int32_t iPid = 99;
  const int32_t iCode = StartBody("Echo", iPid);
  EXPECT_TRUE(zFault.HasFired());
  EXPECT_EQ(iPid == 0, iCode != 0);
  return iCode;
}

}  // namespace

KIV_TEST_CHILD(Echo) {
  return RunMember(nullptr, GoOn, EchoDispatch);
}
KIV_TEST_CHILD(ExitsAtOnce) {
  return 0;
}
// Joins its parent by hand up to a step: 0 nothing, 1 its marker, 2 it has seen EventReady, 3 its output is there.
KIV_TEST_CHILD(KilledInItsHandshake) {
  const int iStep = std::stoi(sys::WideToUtf8(vcsArgs.at(0)));
  KivSysFile hMarker, hOutput;
  if (iStep >= 1) hMarker = MakeMarker(MarkerOf(GivenRoot(), OwnPid()));
  const KivWString csFolder = PairFolder(GivenRoot(), OwnPid(), GivenParent());
  while (iStep >= 2 && !sys::PathExists(Join(csFolder, u"EventReady"))) sys::SleepMs(0);
  if (iStep >= 3) hOutput = MakeSlot(Join(csFolder, u"output"), "");
  sys::EndProcess(1);
}

TEST(ExProcRun, AnArgumentWithoutADashGives10) {
  KivExProcLib_SetHandlers(EndLoop, GoOn, EchoDispatch);
  EXPECT_EQ(KivExProcLib_Run({u"program", u"root"}), 10);
  EXPECT_EQ(KivExProcLib_Run({u"program", u"-p0", u""}), 10);
  EXPECT_EQ(KivExProcLib_Run({u"program", u"-r/x", u"/-p"}), 10);
}

TEST(ExProcRun, AnArgumentOfAnotherLetterIsPassedOver) {
  TestFolder zFolder;
  KivExProcLib_SetHandlers(EndLoop, nullptr, nullptr);
  EXPECT_EQ(KivExProcLib_Run({u"program", u"-x", u"-", u"-J", u"-r" + (zFolder / u"root")}), 0);
  EndRoot();
}

TEST(ExProcRun, WithoutHandlersARootGives10AndAChild20Or25) {
  EXPECT_EQ(KivExProcLib_Run({u"program"}), 10);
  EXPECT_EQ(KivExProcLib_Run({u"program", u"-p7"}), 20);
  KivExProcLib_SetHandlers(nullptr, GoOn, nullptr);
  EXPECT_EQ(KivExProcLib_Run({u"program", u"-p7"}), 25);
}

TEST(ExProcRun, TheParentsIdIsReadFromTheStartOfTheTextAnd0MeansRootMode) {
  // 10: root mode without a tick; 20: child mode without a poll.
  for (const char16_t* szText : {u"", u"0", u"abc", u"-", u" 0", u"-0", u"+0x1"})
    EXPECT_EQ(KivExProcLib_Run({u"program", u"-p" + KivWString(szText)}), 10) << sys::WideToUtf8(szText);
  for (const char16_t* szText : {u"1", u"-1", u" \t12abc", u"+3", u"99999999999999999999", u"-99999999999999999999"})
    EXPECT_EQ(KivExProcLib_Run({u"program", u"-p" + KivWString(szText)}), 20) << sys::WideToUtf8(szText);
}

TEST(ExProcRun, ALaterArgumentOverwritesAnEarlierOne) {
  EXPECT_EQ(KivExProcLib_Run({u"program", u"-p7", u"-p0"}), 10);
  EXPECT_EQ(KivExProcLib_Run({u"program", u"-p0", u"-p7"}), 20);
}

TEST(ExProcRun, AChildWithoutTheProcessFolderGives30AndHasCalledItsBeforeStart) {
  TestFolder zFolder;
  static bool bCalled = false;
  KivExProcLib_SetBeforeStartHandler([]() -> int32_t {
    bCalled = true;
    return 0;
  });
  EXPECT_EQ(RunAsChildOf7(zFolder.Path()), 30);
  EXPECT_TRUE(bCalled);
}

TEST(ExProcRun, AChildWhoseMarkerExistsGives40) {
  TestFolder zFolder;
  sys::MakeFolder(ProcessFolder(zFolder.Path()));
  const KivSysFile hMarker = MakeMarker(MarkerOf(zFolder.Path(), OwnPid()));
  EXPECT_EQ(RunAsChildOf7(zFolder.Path()), 40);
}

TEST(ExProcRun, AChildWhoseParentDiedDuringTheStartGives65) {
  TestFolder zFolder;
  sys::MakeFolder(ProcessFolder(zFolder.Path()));
  EXPECT_EQ(RunAsChildOf7(zFolder.Path()), 65);
}

TEST(ExProcRun, WithEventReadyThereAChildGoesOnThoughItsParentIsGone) {
  TestFolder zFolder;
  sys::MakeFolder(ProcessFolder(zFolder.Path()));
  MakeReady(zFolder.Path());
  EXPECT_EQ(RunAsChildOf7(zFolder.Path()), 70);  // no request event
}

TEST(ExProcRun, WithoutItsOutputAChildGives62) {
  TestFolder zFolder;
  sys::MakeFolder(ProcessFolder(zFolder.Path()));
  MakeReady(zFolder.Path());
  sys::MakeFolder(Join(PairFolder(zFolder.Path(), OwnPid(), u"7"), u"output"));
  EXPECT_EQ(RunAsChildOf7(zFolder.Path()), 62);
}

TEST(ExProcRun, WithoutTheAnswerEventAChildGives80) {
  TestFolder zFolder;
  sys::MakeFolder(ProcessFolder(zFolder.Path()));
  MakeReady(zFolder.Path());
  bool bExisted = false;
  const KivSysEvent hRequest = KivSysEvent::Create(EventName(u"7", OwnPid()), bExisted);
  EXPECT_EQ(RunAsChildOf7(zFolder.Path()), 80);
}

TEST(ExProcRun, WithoutItsMarkerAChildGives50) {
  TestFolder zFolder;
  sys::MakeFolder(ProcessFolder(zFolder.Path()));
  KivSysFaultPlan zPlan;
  zPlan.m_iCall = KivSysCall::FileOpen;
  zPlan.m_iNth = 1;
  const KivSysFaultScope zFault(zPlan);
  EXPECT_EQ(RunAsChildOf7(zFolder.Path()), 50);
  EXPECT_TRUE(zFault.HasFired());
}

TEST(ExProcRoot, WithoutLocalTimeMarkerOrJobARootGives25Or50Or70) {
  struct Case {
    KivSysCall m_iCall;
    int32_t m_iCode;
  };
  TestFolder zFolder;
  ASSERT_TRUE(KivSetWorkFolder(zFolder / u"root"));
  for (const Case& z : {Case{KivSysCall::Clock, 25}, Case{KivSysCall::FileOpen, 50}, Case{KivSysCall::JobCreate, 70}}) {
    KivSysFaultPlan zPlan;
    zPlan.m_iCall = z.m_iCall;
    zPlan.m_iNth = 1;
    const KivSysFaultScope zFault(zPlan);
    EXPECT_EQ(BecomeRoot(zFolder / u"root"), z.m_iCode);
    EXPECT_TRUE(zFault.HasFired());
    EXPECT_EQ(CountMarkers(zFolder / u"root"), 0u);  // a root that did not come up has none
  }
  EXPECT_EQ(BecomeRoot(zFolder / u"root"), 0);
  EndRoot();
}

TEST(ExProcRoot, AnExistingFolderThatIsNotTheWorkFolderGives10) {
  TestFolder zFolder;
  EXPECT_EQ(BecomeRoot(zFolder.Path()), 10);
  KivRemoveTree(KivGetWorkFolder());  // the comparison made a generated one
}

TEST(ExProcRoot, AFileOfThatNameIsNoFolderThatExistsAndGives30) {
  TestFolder zFolder;
  WriteFile(zFolder / u"root", "x");
  EXPECT_EQ(BecomeRoot(zFolder / u"root"), 30);
  EXPECT_EQ(KivGetWorkFolder(), zFolder / u"root");  // settled without a comparison
}

TEST(ExProcRoot, AnExistingFolderThatIsTheWorkFolderWillDo) {
  TestFolder zFolder;
  ASSERT_TRUE(KivSetWorkFolder(zFolder / u"mine"));
  EXPECT_EQ(BecomeRoot(zFolder / u"mine"), 0);
  EXPECT_EQ(KivExProcLib_GetRootFolder(), zFolder / u"mine");
  EndRoot();
}

TEST(ExProcRoot, ANewFolderBehindASettledWorkFolderGives22) {
  TestFolder zFolder;
  ASSERT_TRUE(KivSetWorkFolder(zFolder / u"mine"));
  EXPECT_EQ(BecomeRoot(zFolder / u"other"), 22);
}

TEST(ExProcRoot, TheDefaultRootFolderServesARootWithoutOne) {
  TestFolder zFolder;
  KivExProcLib_SetDefaultRootFolder(zFolder / u"default");
  KivExProcLib_SetHandlers(EndLoop, nullptr, nullptr);
  EXPECT_EQ(KivExProcLib_Run({u"program"}), 0);
  EXPECT_EQ(KivExProcLib_GetRootFolder(), zFolder / u"default");
  EXPECT_TRUE(sys::PathExists(MarkerOf(zFolder / u"default", OwnPid())));
  EndRoot();
  EXPECT_FALSE(sys::PathExists(zFolder / u"default"));
}

TEST(ExProcRoot, NoArgumentsMeanRootModeInAGeneratedWorkFolder) {
  KivExProcLib_SetHandlers(EndLoop, nullptr, nullptr);
  EXPECT_EQ(KivExProcLib_Run({u"program"}), 0);
  EXPECT_EQ(KivExProcLib_GetRootFolder(), KivGetWorkFolder());
  EXPECT_NE(KivExProcLib_GetRootFolder().find(u"ZUR_TMP_FOLDER-"), KivWString::npos);
  EndRoot();
}

TEST(ExProcRoot, AMarkerThatExistsGives40) {
  TestFolder zFolder;
  ASSERT_TRUE(KivSetWorkFolder(zFolder / u"root"));
  sys::MakeFolder(ProcessFolder(zFolder / u"root"));
  const KivSysFile hMarker = MakeMarker(MarkerOf(zFolder / u"root", OwnPid()));
  EXPECT_EQ(BecomeRoot(zFolder / u"root"), 40);
}

TEST(ExProcRoot, AProcessFolderThatCannotBeMadeGives30) {
  TestFolder zFolder;
  EXPECT_EQ(BecomeRoot(Join(zFolder / u"no", u"such")), 30);
}

TEST(ExProcStart, AnEmptyPathGives5) {
  int32_t iPid = 99;
  EXPECT_EQ(KivExProcLib_StartChild(u"", iPid), 5);
  EXPECT_EQ(iPid, 0);
}

TEST(ExProcStart, AProgramThatDoesNotExistGives10) {
  TestFolder zFolder;
  ASSERT_EQ(BecomeRoot(zFolder / u"root"), 0);
  int32_t iPid = 99;
  EXPECT_EQ(KivExProcLib_StartChild(zFolder / u"no program", iPid), 10);
  EXPECT_EQ(iPid, 0);
  EndRoot();
}

TEST(ExProcStart, AChildIsUpWithItsFoldersFilesAndEvents) {
  TestFolder zFolder;
  const KivWString csRoot = zFolder / u"root";
  ASSERT_EQ(BecomeRoot(csRoot), 0);
  int32_t iPid = 0;
  ASSERT_EQ(StartBody("Echo", iPid), 0);
  ASSERT_NE(iPid, 0);
  EXPECT_TRUE(sys::PathExists(MarkerOf(csRoot, Decimal(iPid))));
  const KivWString csRequests = PairFolder(csRoot, OwnPid(), Decimal(iPid));
  const KivWString csAnswers = PairFolder(csRoot, Decimal(iPid), OwnPid());
  EXPECT_TRUE(sys::PathExists(Join(csRequests, u"input")));
  EXPECT_TRUE(sys::PathExists(Join(csAnswers, u"output")));
  EXPECT_FALSE(sys::PathExists(Join(csAnswers, u"EventReady")));
  EXPECT_TRUE(KivSysEvent::Open(EventName(OwnPid(), Decimal(iPid))).IsOpen());
  EXPECT_TRUE(KivSysEvent::Open(EventName(Decimal(iPid), OwnPid())).IsOpen());
  EndRoot();
  EXPECT_FALSE(sys::PathExists(csRoot));
}

TEST(ExProcStart, AProgramThatExitsAtOnceOrKnowsNothingOfTheRuntimeGives94) {
  TestFolder zFolder;
  ASSERT_EQ(BecomeRoot(zFolder / u"root"), 0);
  int32_t iPid = 99;
  EXPECT_EQ(StartBody("ExitsAtOnce", iPid), 94);
  EXPECT_EQ(iPid, 0);
  EndRoot();
}

TEST(ExProcStart, AChildKilledAtAnyStepOfTheHandshakeGives94AndLeavesNoFiles) {
  TestFolder zFolder;
  ASSERT_EQ(BecomeRoot(zFolder / u"root"), 0);
  for (const char16_t* szStep : {u"0", u"1", u"2", u"3"}) {
    int32_t iPid = 99;
    EXPECT_EQ(StartBody("KilledInItsHandshake", iPid, {szStep}), 94) << sys::WideToUtf8(szStep);
    EXPECT_EQ(iPid, 0);
    EXPECT_EQ(CountLivingFiles(zFolder / u"root"), 1u) << sys::WideToUtf8(szStep);  // the root's marker
  }
  int32_t iPid = 0;
  EXPECT_EQ(StartBody("Echo", iPid), 0);  // the tree is as good as before
  EndRoot();
}

TEST(ExProcStart, AChildThatFindsNoProcessFolderMakesTheParentGive94) {
  TestFolder zFolder;
  ASSERT_EQ(BecomeRoot(zFolder / u"root"), 0);
  int32_t iPid = 0;
  // A child in another root: the folders of the pair are where the parent makes them, the markers are not.
  const KivWString csOther = u"-r\"" + (zFolder / u"elsewhere") + u"\" ";
  EXPECT_EQ(KivExProcLib_StartChild(TestProgram(), csOther + BodyArguments("Echo"), iPid), 94);
  EndRoot();
}

TEST(ExProcStart, EachStepThatFailsHasItsCode) {
  TestFolder zFolder;
  ASSERT_EQ(BecomeRoot(zFolder / u"root"), 0);
  EXPECT_EQ(StartWithFault(KivSysCall::ProcessStart, 1, true), 10);
  EXPECT_EQ(StartWithFault(KivSysCall::FolderMake, 1), 30);
  EXPECT_EQ(StartWithFault(KivSysCall::FolderMake, 2), 50);
  EXPECT_EQ(StartWithFault(KivSysCall::FileOpen, 1), 55);
  EXPECT_EQ(StartWithFault(KivSysCall::EventCreate, 1), 60);
  EXPECT_EQ(StartWithFault(KivSysCall::EventCreate, 2), 70);
  EXPECT_EQ(StartWithFault(KivSysCall::FileOpen, 2), 90);
  EXPECT_EQ(StartWithFault(KivSysCall::ProcessWait, 1), 92);
  int32_t iPid = 0;
  EXPECT_EQ(StartBody("Echo", iPid), 0);
  EndRoot();
}

TEST(ExProcStart, TheCommandLineQuotesEachPartAndEndsWithABlank) {
  EXPECT_EQ(KivExProcCommandLine(u"/a b/prog", u"/r", u"12", u"KivExProcJob1", u""),
            u"\"/a b/prog\" -r\"/r\" -p\"12\" -j\"KivExProcJob1\"  ");
  EXPECT_EQ(KivExProcCommandLine(u"C:\\p", u"D:\\r \"x", u"-1", u"", u"-x 1"),
            u"\"C:\\p\" -r\"D:\\r \"x\" -p\"-1\" -j\"\" -x 1 ");
}

TEST(ExProcStart, TheJobsNameHoldsTheRootsIdAndItsLocalTime) {
  TestFolder zFolder;
  KivSysLocalTime zBefore, zAfter;
  ASSERT_TRUE(sys::LocalTimeNow(zBefore));
  ASSERT_EQ(BecomeRoot(zFolder / u"root"), 0);
  ASSERT_TRUE(sys::LocalTimeNow(zAfter));
  const std::string strName = sys::WideToUtf8(KivExProcState::GetInstance().m_csJobName);
  const std::regex zForm("KivExProcJob" + sys::WideToUtf8(OwnPid()) + "[0-9]{8}-[0-9]{6}-");
  EXPECT_TRUE(std::regex_match(strName, zForm)) << strName;
  const auto Stamp = [](const KivSysLocalTime& z) {
    char acTime[64];
    std::snprintf(acTime, sizeof acTime, "%04d%02d%02d-%02d%02d%02d-", z.m_iYear, z.m_iMonth, z.m_iDay, z.m_iHour,
                  z.m_iMinute, z.m_iSecond);
    return std::string(acTime);
  };
  const std::string strStamp = strName.substr(std::string("KivExProcJob").size() + OwnPid().size());
  EXPECT_LE(Stamp(zBefore), strStamp);
  EXPECT_LE(strStamp, Stamp(zAfter));
  EndRoot();
}

TEST(ExProcStart, AFirstStartThatFailsIsTriedAgainWithoutBreakingAway) {
  TestFolder zFolder;
  ASSERT_EQ(BecomeRoot(zFolder / u"root"), 0);
  KivExProcLib_CloseDown(0, false);  // no job is there: with an assignment the start would give 12
  sys::MakeFolder(ProcessFolder(zFolder / u"root"));
  const KivSysFile hMarker = MakeMarker(MarkerOf(zFolder / u"root", OwnPid()));
  EXPECT_EQ(StartWithFault(KivSysCall::ProcessStart, 1), 0);
}

TEST(ExProcStart, ALeftoverEventReadyGives80) {
  TestFolder zFolder;
  ASSERT_EQ(BecomeRoot(zFolder / u"root"), 0);
  for (const KivWString& csId : LikelyIds()) {
    const KivWString csAnswers = PairFolder(zFolder / u"root", csId, OwnPid());
    sys::MakeFolder(csAnswers);
    WriteFile(Join(csAnswers, u"EventReady"), "");
  }
  int32_t iPid = 99;
  EXPECT_EQ(StartBody("ExitsAtOnce", iPid), 80);
  EXPECT_EQ(iPid, 0);
  EndRoot();
}

TEST(ExProcStart, EventNamesThatExistGive60Or70AndAreNotReused) {
  TestFolder zFolder;
  ASSERT_EQ(BecomeRoot(zFolder / u"root"), 0);
  for (const bool bRequest : {true, false}) {
    std::vector<KivSysEvent> vhTaken;
    for (const KivWString& csId : LikelyIds()) {
      bool bExisted = false;
      vhTaken.push_back(
          KivSysEvent::Create(bRequest ? EventName(OwnPid(), csId) : EventName(csId, OwnPid()), bExisted));
    }
    int32_t iPid = 99;
    EXPECT_EQ(StartBody("ExitsAtOnce", iPid), bRequest ? 60 : 70);
    EXPECT_EQ(iPid, 0);
  }
  int32_t iPid = 0;
  EXPECT_EQ(StartBody("Echo", iPid), 0);
  EndRoot();
}

TEST(ExProcStart, WithoutTheJobAStartGives12) {
  TestFolder zFolder;
  ASSERT_EQ(BecomeRoot(zFolder / u"root"), 0);
  KivExProcLib_CloseDown(0, false);
  int32_t iPid = 0;
  EXPECT_EQ(StartBody("Echo", iPid), 12);
  EXPECT_TRUE(sys::PathExists(zFolder / u"root"));  // stays, since the process goes on
  KivRemoveTree(zFolder / u"root");
}

TEST(ExProcStart, ChildrenOfChildrenJoinTheSameTree) {
  TestFolder zFolder;
  const KivWString csRoot = zFolder / u"root";
  ASSERT_EQ(BecomeRoot(csRoot), 0);
  int32_t iPid = 0;
  ASSERT_EQ(StartBody("Echo", iPid), 0);
  int64_t iStatus = -1;
  KivByteBuffer vcAnswer;
  ASSERT_EQ(KivExProcLib_SendMessage(iPid, u"start", Bytes("Echo"), iStatus, vcAnswer), 0);
  EXPECT_EQ(iStatus, 0);
  const KivByteBuffer vcGrandchild = vcAnswer;
  EXPECT_TRUE(sys::PathExists(MarkerOf(csRoot, Wide(Text(vcGrandchild)))));
  EXPECT_EQ(CountMarkers(csRoot), 3u);
  EXPECT_EQ(KivExProcLib_SendMessage(iPid, u"send", vcGrandchild, iStatus, vcAnswer), 0);
  EXPECT_EQ(iStatus, 0);
  EXPECT_EQ(vcAnswer, vcGrandchild);
  EndRoot();
  EXPECT_FALSE(sys::PathExists(csRoot));
}
