// Ends: one child, the tree, deaths from the bottom and from the top, fatal reports.
#include "KivExProcLibInternal.h"
#include "KivExProcTest.h"
#include "KivSysDiag.h"
#include "KivSysFault.h"

using namespace kiv;
using namespace kivtest;

namespace {

struct Sent {
  int32_t m_iResult = 0;
  int64_t m_iStatus = -7;
  KivByteBuffer m_vcPayload;
};

Sent Send(int32_t iPid, const KivWString& csRequest, const std::string& strPayload = "") {
  Sent z;
  z.m_iResult = KivExProcLib_SendMessage(iPid, csRequest, Bytes(strPayload), z.m_iStatus, z.m_vcPayload);
  return z;
}

// Starts a root that runs in a process of its own: its body gets the root folder.
KivSysProcess StartRootBody(const std::string& strBody, const KivWString& csRoot,
                            const std::vector<KivWString>& vcsMore = {}) {
  std::vector<KivWString> vcsArgs{csRoot};
  vcsArgs.insert(vcsArgs.end(), vcsMore.begin(), vcsMore.end());
  return StartTestChild(strBody, vcsArgs);
}

int32_t RootOfOneMember(const KivWString& csRoot, const std::string& strMember, int32_t& iPid) {
  const int32_t iRoot = BecomeRoot(csRoot);
  return iRoot != 0 ? iRoot : StartBody(strMember, iPid);
}

void ExpectSurvivalInTheMiddle(const KivWString& csHow) {
  TestFolder zFolder;
  const KivWString csRoot = zFolder / u"root";
  int32_t iPid = 0;
  ASSERT_EQ(RootOfOneMember(csRoot, "SurvivorInTheMiddle", iPid), 0);
  const Sent z = Send(iPid, csHow);
  EXPECT_EQ(z.m_iResult, 0);
  EXPECT_EQ(z.m_iStatus, 1);
  EXPECT_EQ(Text(z.m_vcPayload), "lives on");
  EXPECT_TRUE(sys::PathExists(Join(csRoot, u"closed down")));  // the handler has been called all the same
  EXPECT_EQ(CountMarkers(csRoot), 4u);  // root, member, its second child and one that was started behind the death
  EXPECT_EQ(KivExProcLib_ServeChildren(), 0);
  EndRoot();
  EXPECT_FALSE(sys::PathExists(csRoot));
}

}  // namespace

KIV_TEST_CHILD(Member) {
  return RunMember(nullptr, GoOn, EchoDispatch);
}
// Sends one request to a member and ends with an orderly close-down.
KIV_TEST_CHILD(RootSends) {
  int32_t iPid = 0;
  if (RootOfOneMember(vcsArgs.at(0), "Member", iPid) != 0) return 1;
  if (vcsArgs.size() > 2) KivSetReportNoThrow(true);
  Send(iPid, vcsArgs.at(1));
  KivExProcLib_CloseDown(42, true);
  return 2;
}
// Its N-th call of a kind fails while it sends to a member (0) or serves a posted request (1), with reports that
// return if there is one more argument.
KIV_TEST_CHILD(RootWithFault) {
  int32_t iPid = 0;
  if (RootOfOneMember(vcsArgs.at(0), "Member", iPid) != 0) return 1;
  if (vcsArgs.size() > 4) KivSetReportNoThrow(true);
  const bool bServe = vcsArgs.at(3) == u"serve";
  if (bServe && KivExProcLib_PostMessage(iPid, u"echo", {}, [](int32_t, const KivByteBuffer&) { return 0; }) != 0)
    return 2;
  if (bServe) KivSysEvent::Open(EventName(Decimal(iPid), OwnPid())).Wait(kLongMs);
  KivSysFaultPlan zPlan;
  zPlan.m_iCall = vcsArgs.at(1) == u"wait"     ? KivSysCall::EventWait
                  : vcsArgs.at(1) == u"signal" ? KivSysCall::EventSignal
                                               : KivSysCall::MappingView;
  zPlan.m_iNth = static_cast<uint64_t>(std::stoi(sys::WideToUtf8(vcsArgs.at(2))));
  const KivSysFaultScope zFault(zPlan);
  if (bServe) {
    KivExProcLib_ServeChildren();
  } else {
    Send(iPid, u"echo");
  }
  return zFault.HasFired() ? 3 : 4;
}
KIV_TEST_CHILD(RootThatClosesAnUnknownChild) {
  if (BecomeRoot(vcsArgs.at(0)) != 0) return 1;
  KivSetReportNoThrow(true);
  KivExProcLib_CloseChild(4711);
  return 2;
}
// Serves its children until one of them has gone.
KIV_TEST_CHILD(RootServes) {
  int32_t iPid = 0;
  if (RootOfOneMember(vcsArgs.at(0), "Member", iPid) != 0) return 1;
  if (KivExProcLib_PostMessage(iPid, vcsArgs.at(1), {}, nullptr) != 0) return 2;
  while (KivExProcLib_ServeChildren() >= 0) {
  }
  return 3;
}
// A tree of four generations that stands until it is told to go on.
KIV_TEST_CHILD(RootOfAChain) {
  int32_t iPid = 0;
  if (RootOfOneMember(vcsArgs.at(0), "Member", iPid) != 0) return 1;
  if (Send(iPid, u"start", "MemberWithAChild").m_iStatus != 0) return 2;
  WriteFile(Join(vcsArgs.at(0), u"ready"), "");
  while (KivExProcLib_ServeChildren() >= 0) {
  }
  return 3;
}
KIV_TEST_CHILD(MemberWithAChild) {
  static bool bStarted = false;
  return RunMember(
      nullptr,
      []() -> int32_t {
        int32_t iPid = 0;
        if (!bStarted && StartBody("MortalMember", iPid) != 0) return 1;
        bStarted = true;
        return 0;
      },
      EchoDispatch);
}
// Is killed when the test asks for it.
KIV_TEST_CHILD(MortalMember) {
  return RunMember(
      nullptr,
      []() -> int32_t {
        if (sys::PathExists(Join(GivenRoot(), u"die"))) sys::EndProcess(9);
        return 0;
      },
      EchoDispatch);
}
// Its tick or poll gives this value.
KIV_TEST_CHILD(RootTicks) {
  static int32_t iTick;
  iTick = std::stoi(sys::WideToUtf8(vcsArgs.at(1)));
  if (vcsArgs.size() > 2) KivSetReportNoThrow(true);
  KivExProcLib_SetHandlers([]() -> int32_t { return iTick; }, nullptr, nullptr);
  KivExProcLib_CloseDown(KivExProcLib_Run({u"root", u"-r" + vcsArgs.at(0)}), true);
  return 1;
}
KIV_TEST_CHILD(MemberPolls) {
  static int32_t iPoll;
  iPoll = std::stoi(sys::WideToUtf8(vcsArgs.at(0)));
  static bool bArmed = false;
  return RunMember(
      nullptr, []() -> int32_t { return bArmed ? iPoll : 0; },
      [](const KivWString&, const KivByteBuffer&, int32_t&, KivByteBuffer&) -> int32_t {
        bArmed = true;
        return 0;
      });
}
// A root with 64 or 65 children.
KIV_TEST_CHILD(RootOfMany) {
  if (BecomeRoot(vcsArgs.at(0)) != 0) return 1;
  const int nChildren = std::stoi(sys::WideToUtf8(vcsArgs.at(1)));
  int32_t iPid = 0;
  for (int i = 0; i < nChildren; ++i)
    if (StartBody("Member", iPid) != 0) return 2;
  KivExProcLib_ServeChildren();
  if (Send(iPid, u"echo", "last").m_iResult != 0) return 3;
  KivExProcLib_CloseDown(42, true);
  return 4;
}
KIV_TEST_CHILD(Survivor) {
  KivExProcLib_SetSurviveChildDeath(true);
  int32_t iFirst = 0, iSecond = 0;
  if (RootOfOneMember(vcsArgs.at(0), "Member", iFirst) != 0 || StartBody("Member", iSecond) != 0) return 1;
  if (vcsArgs.at(1) == u"send") {
    if (Send(iFirst, u"kill").m_iResult != 1) return 2;
  } else {
    if (KivExProcLib_PostMessage(iFirst, u"kill", {}, nullptr) != 0) return 3;
    int32_t iPass = 0;
    while (iPass == 0) iPass = KivExProcLib_ServeChildren();
    if (iPass != 1) return 4;
  }
  // The other child was killed with the job; it is found gone in its turn.
  if (CountMarkers(vcsArgs.at(0)) != 0) return 5;
  if (Send(iFirst, u"echo").m_iResult != 40) return 6;
  if (Send(iSecond, u"echo").m_iResult != 1) return 7;
  // The name of the job goes when the system has finished with the last process in it.
  const KivWString csJob = KivExProcState::GetInstance().m_csJobName;
  if (!Eventually([&] { return !KivSysJob::Open(csJob).IsOpen(); })) return 11;
  int32_t iThird = 0;
  if (StartBody("Member", iThird) != 12) return 8;
  if (!sys::PathExists(vcsArgs.at(0))) return 9;
  if (KivExProcLib_ServeChildren() != 0) return 10;
  return 50;
}
// Survives the death of its first child, without being the root, and tells it by its status: 1, then 1 of its pass.
KIV_TEST_CHILD(SurvivorInTheMiddle) {
  KivExProcLib_SetSurviveChildDeath(true);
  KivExProcLib_SetCloseDownHandler([]() -> int32_t {
    WriteFile(Join(GivenRoot(), u"closed down"), "");
    return 0;
  });
  return RunMember(nullptr, GoOn,
                   [](const KivWString& csRequest, const KivByteBuffer&, int32_t& iStatus, KivByteBuffer& vcResult) {
                     int32_t iFirst = 0, iSecond = 0;
                     if (StartBody("Member", iFirst) != 0 || StartBody("Member", iSecond) != 0) return 1;
                     if (csRequest == u"send") {
                       iStatus = Send(iFirst, u"kill").m_iResult;
                     } else {
                       KivExProcLib_PostMessage(iFirst, u"kill", {}, nullptr);
                       while (iStatus == 0) iStatus = KivExProcLib_ServeChildren();
                     }
                     const Sent zFirst = Send(iFirst, u"echo"), zSecond = Send(iSecond, u"echo", "lives on");
                     if (zFirst.m_iResult != 40 || zSecond.m_iResult != 0) iStatus = 100 + zSecond.m_iResult;
                     vcResult = zSecond.m_vcPayload;
                     int32_t iThird = 0;
                     return StartBody("Member", iThird);
                   });
}
// Closes down in an orderly way, with a handler that looks at the root folder.
KIV_TEST_CHILD(RootWithACloseDownHandler) {
  static KivWString csRoot, csSeen;
  csRoot = vcsArgs.at(0);
  csSeen = vcsArgs.at(1);
  int32_t iPid = 0;
  if (RootOfOneMember(csRoot, "Member", iPid) != 0) return 1;
  KivExProcLib_SetCloseDownHandler([]() -> int32_t {
    WriteFile(csSeen, sys::PathExists(csRoot) ? "root folder there" : "root folder gone");
    return 77;  // is not looked at
  });
  KivExProcLib_CloseDown(42, true);
  return 2;
}
KIV_TEST_CHILD(ReportsInARoot) {
  if (BecomeRoot(vcsArgs.at(0)) != 0) return 1;
  KivReportFailure("not caught", "tests", 5);
  return 2;
}

TEST(ExProcCloseChild, AnOrderlyEndIsNoAlarmAndTakesTheInputAway) {
  TestFolder zFolder;
  int32_t iPid = 0;
  ASSERT_EQ(RootOfOneMember(zFolder / u"root", "Member", iPid), 0);
  EXPECT_EQ(KivExProcLib_CloseChild(iPid), 0);
  // The child may be reading it at this moment.
  const KivWString csInput = Join(PairFolder(zFolder / u"root", OwnPid(), Decimal(iPid)), u"input");
  EXPECT_TRUE(Eventually([&] { return !sys::PathExists(csInput); }));
  EXPECT_TRUE(Eventually([&] { return CountMarkers(zFolder / u"root") == 1; }));
  EXPECT_EQ(KivExProcLib_ServeChildren(), 0);
  EXPECT_TRUE(sys::PathExists(PairFolder(zFolder / u"root", OwnPid(), Decimal(iPid))));  // stays until close-down
  EndRoot();
}

TEST(ExProcCloseChild, AnUnknownChildIsFatal) {
  TestFolder zFolder;
  ASSERT_EQ(BecomeRoot(zFolder / u"root"), 0);
  EXPECT_REPORT(KivExProcLib_CloseChild(4711), "0");
  EndRoot();
}

TEST(ExProcCloseChild, WhereReportsReturnAnUnknownChildClosesDownWith999) {
  TestFolder zFolder;
  KivSysProcess zRoot = StartRootBody("RootThatClosesAnUnknownChild", zFolder / u"root");
  EXPECT_EQ(EndOf(zRoot), SeenCode(999));
  EXPECT_EQ(CountLivingFiles(zFolder / u"root"), 0u);
}

TEST(ExProcFault, ACallOfAParentThatFailsInAnExchangeIsFatalInBothModesOfReports) {
  struct Case {
    const char16_t *m_szCall, *m_szNth, *m_szWhat;
  };
  // A send writes the slot, whose first view is mapped then, tests both events, sets one, waits and resets; a pass
  // waits and resets. A slot that did not take the message is not announced: the child would take an old one.
  for (const Case& z : {Case{u"view", u"1", u"send"}, Case{u"signal", u"1", u"send"}, Case{u"wait", u"3", u"send"},
                        Case{u"signal", u"2", u"send"}, Case{u"wait", u"1", u"serve"}, Case{u"signal", u"1", u"serve"}})
    for (const bool bReturn : {false, true}) {
      TestFolder zFolder;
      std::vector<KivWString> vcsMore{z.m_szCall, z.m_szNth, z.m_szWhat};
      if (bReturn) vcsMore.push_back(u"reports return");
      KivSysProcess zRoot = StartRootBody("RootWithFault", zFolder / u"root", vcsMore);
      EXPECT_EQ(EndOf(zRoot), SeenCode(999))
          << sys::WideToUtf8(z.m_szCall) << ' ' << sys::WideToUtf8(z.m_szNth) << ' ' << sys::WideToUtf8(z.m_szWhat);
      EXPECT_TRUE(TreeEnds(zFolder / u"root"));
      EXPECT_EQ(CountLivingFiles(zFolder / u"root"), 0u);
    }
}

TEST(ExProcCloseDown, ARootEndsItsWholeTreeAndRemovesItsFolder) {
  TestFolder zFolder;
  KivSysProcess zRoot = StartRootBody("RootSends", zFolder / u"root", {u"echo"});
  EXPECT_EQ(EndOf(zRoot), 42);
  EXPECT_FALSE(sys::PathExists(zFolder / u"root"));
}

TEST(ExProcCloseDown, WithoutChildrenItFindsItsOwnMarkerGoneAndFinishesAtOnce) {
  TestFolder zFolder;
  ASSERT_EQ(BecomeRoot(zFolder / u"root"), 0);
  KivExProcLib_CloseDown(0, false);
  EXPECT_EQ(CountMarkers(zFolder / u"root"), 0u);
  KivRemoveTree(zFolder / u"root");
}

TEST(ExProcCloseDown, WithTheExitFlagOffTheRootFolderStays) {
  TestFolder zFolder;
  int32_t iPid = 0;
  ASSERT_EQ(RootOfOneMember(zFolder / u"root", "Member", iPid), 0);
  static int nCalls = 0;
  KivExProcLib_SetCloseDownHandler([]() -> int32_t { return ++nCalls; });
  KivExProcLib_CloseDown(999, false);
  EXPECT_EQ(nCalls, 1);
  EXPECT_TRUE(sys::PathExists(zFolder / u"root"));
  EXPECT_EQ(CountLivingFiles(zFolder / u"root"), 0u);
  KivRemoveTree(zFolder / u"root");
}

TEST(ExProcCloseDown, TheHandlerOfAnEndingRootIsCalledWhenItsFolderHasGone) {
  TestFolder zFolder;
  KivSysProcess zRoot = StartRootBody("RootWithACloseDownHandler", zFolder / u"root", {zFolder / u"seen"});
  EXPECT_EQ(EndOf(zRoot), 42);
  EXPECT_EQ(zFolder.ReadBytes(u"seen"), "root folder gone");
}

TEST(ExProcCloseDown, ATickThatGivesANegativeValueEndsTheRootWith0) {
  TestFolder zFolder;
  KivSysProcess zRoot = StartRootBody("RootTicks", zFolder / u"root", {u"-5"});
  EXPECT_EQ(EndOf(zRoot), 0);
  EXPECT_FALSE(sys::PathExists(zFolder / u"root"));
}

TEST(ExProcCloseDown, ATickThatGivesAPositiveValueIsFatal) {
  TestFolder zFolder;
  KivSysProcess zRoot = StartRootBody("RootTicks", zFolder / u"root", {u"1"});
  EXPECT_EQ(EndOf(zRoot), SeenCode(999));
  KivSysProcess zOther = StartRootBody("RootTicks", zFolder / u"other", {u"1", u"reports return"});
  EXPECT_EQ(EndOf(zOther), SeenCode(999));
  EXPECT_EQ(CountLivingFiles(zFolder / u"other"), 0u);  // closed down; the open log keeps its folder
}

TEST(ExProcCloseDown, APollThatGivesANegativeValueEndsTheChildWith0AndAPositiveOneWith999) {
  TestFolder zFolder;
  KivExProcLib_SetSurviveChildDeath(true);
  ASSERT_EQ(BecomeRoot(zFolder / u"root"), 0);
  // Started by hand, so that the exit code can be seen: the channel of the pair is not needed behind the start.
  for (const auto& [csPoll, iCode] : {std::pair<KivWString, int32_t>{u"-1", 0}, {u"3", SeenCode(999)}}) {
    KivSysProcessStart zStart;
    zStart.m_csCommandLine = u"\"" + TestProgram() + u"\" -r\"" + (zFolder / u"root") + u"\" -p\"" + OwnPid() +
                             u"\" -j\"none\" " + BodyArguments("MemberPolls", {csPoll});
    KivSysProcess zChild = KivSysProcess::Start(zStart);
    ASSERT_TRUE(zChild.IsOpen());
    const KivWString csChild = Decimal(zChild.GetId());
    const KivWString csInput = PairFolder(zFolder / u"root", OwnPid(), csChild);
    const KivWString csOutput = PairFolder(zFolder / u"root", csChild, OwnPid());
    sys::MakeFolder(csInput);
    sys::MakeFolder(csOutput);
    const KivSysFile hInput = MakeSlot(Join(csInput, u"input"), RequestImage(0, u"arm", ""));
    bool bExisted = false;
    KivSysEvent hRequest = KivSysEvent::Create(EventName(OwnPid(), csChild), bExisted);
    KivSysEvent hAnswer = KivSysEvent::Create(EventName(csChild, OwnPid()), bExisted);
    WriteFile(Join(csOutput, u"EventReady"), "");
    ASSERT_TRUE(Eventually([&] { return !sys::PathExists(Join(csOutput, u"EventReady")); }));
    hRequest.Set();
    EXPECT_EQ(EndOf(zChild), iCode);
  }
  EndRoot();
}

TEST(ExProcCloseDown, AReportThatNobodyCatchesEndsARootWith999AndLeavesItsRecord) {
  TestFolder zFolder;
  KivSysProcess zRoot = StartRootBody("ReportsInARoot", zFolder / u"root");
  const KivWString csLog = Join(zFolder / u"root", u"KivLog" + Decimal(zRoot.GetId()) + u".txt");
  EXPECT_EQ(EndOf(zRoot), SeenCode(999));
  EXPECT_TRUE(sys::PathExists(csLog));
}

TEST(ExProcDeath, AChildThatDiesDuringASendEndsItsParentWith999) {
  for (const char16_t* szEnd : {u"exit", u"kill", u"report", u"fail"}) {
    TestFolder zFolder;
    KivSysProcess zRoot = StartRootBody("RootSends", zFolder / u"root", {szEnd});
    EXPECT_EQ(EndOf(zRoot), SeenCode(999)) << sys::WideToUtf8(szEnd);
    EXPECT_FALSE(sys::PathExists(zFolder / u"root")) << sys::WideToUtf8(szEnd);
    KivSysProcess zOther = StartRootBody("RootSends", zFolder / u"other", {szEnd, u"reports return"});
    EXPECT_EQ(EndOf(zOther), SeenCode(999)) << sys::WideToUtf8(szEnd);
    EXPECT_EQ(CountLivingFiles(zFolder / u"other"), 0u) << sys::WideToUtf8(szEnd);
  }
}

TEST(ExProcDeath, AChildThatDiesBetweenRequestsEndsItsParentWith999) {
  for (const char16_t* szEnd : {u"exit", u"kill", u"report", u"fail"}) {
    TestFolder zFolder;
    KivSysProcess zRoot = StartRootBody("RootServes", zFolder / u"root", {szEnd});
    EXPECT_EQ(EndOf(zRoot), SeenCode(999)) << sys::WideToUtf8(szEnd);
    EXPECT_FALSE(sys::PathExists(zFolder / u"root")) << sys::WideToUtf8(szEnd);
  }
}

TEST(ExProcDeath, WithSurvivalOnADeathDuringASendGives1AndEndsTheOtherChildren) {
  TestFolder zFolder;
  KivSysProcess zRoot = StartRootBody("Survivor", zFolder / u"root", {u"send"});
  EXPECT_EQ(EndOf(zRoot), 50);
}

TEST(ExProcDeath, WithSurvivalOnADeathSeenByAPassGives1AndEndsTheOtherChildren) {
  TestFolder zFolder;
  KivSysProcess zRoot = StartRootBody("Survivor", zFolder / u"root", {u"serve"});
  EXPECT_EQ(EndOf(zRoot), 50);
}

TEST(ExProcDeath, WithSurvivalOnInAProcessThatIsNoRootADeathDuringASendForgetsThatChildAlone) {
  ExpectSurvivalInTheMiddle(u"send");
}

TEST(ExProcDeath, WithSurvivalOnInAProcessThatIsNoRootADeathSeenByAPassForgetsThatChildAlone) {
  ExpectSurvivalInTheMiddle(u"serve");
}

TEST(ExProcDeath, ARootThatIsKilledTakesItsWholeTreeWithIt) {
  TestFolder zFolder;
  const KivWString csRoot = zFolder / u"root";
  KivSysProcess zRoot = StartRootBody("RootOfAChain", csRoot);
  ASSERT_TRUE(Eventually([&] { return sys::PathExists(Join(csRoot, u"ready")) && CountMarkers(csRoot) == 4; }));
  ASSERT_TRUE(zRoot.Terminate(1));
  EXPECT_TRUE(TreeEnds(csRoot));
  EXPECT_EQ(CountLivingFiles(csRoot), 0u);
}

TEST(ExProcDeath, ACrashAtTheBottomEndsTheWholeTreeUpToTheRoot) {
  TestFolder zFolder;
  const KivWString csRoot = zFolder / u"root";
  KivSysProcess zRoot = StartRootBody("RootOfAChain", csRoot);
  ASSERT_TRUE(Eventually([&] { return sys::PathExists(Join(csRoot, u"ready")) && CountMarkers(csRoot) == 4; }));
  WriteFile(Join(csRoot, u"die"), "");
  EXPECT_EQ(EndOf(zRoot), SeenCode(999));
  EXPECT_FALSE(sys::PathExists(csRoot));
}

TEST(ExProcLimit, SixtyFourChildrenAreServedAndSixtyFiveEndTheParent) {
  TestFolder zFolder;
  KivSysProcess zRoot = StartRootBody("RootOfMany", zFolder / u"root", {u"64"});
  EXPECT_EQ(EndOf(zRoot), 42);
  KivSysProcess zOther = StartRootBody("RootOfMany", zFolder / u"other", {u"65"});
  EXPECT_EQ(EndOf(zOther), SeenCode(999));
  EXPECT_TRUE(TreeEnds(zFolder / u"other"));
}

TEST(ExProcFatalMessage, IsShownOnceWithPlaceAndTextsAndThenReported) {
  std::vector<KivWString> vcsShown;
  sys::SetMessageHook([&](const KivWString& csText) { vcsShown.push_back(csText); });
  EXPECT_REPORT(KivExProcLib_ShowFatalError(u"src\\Some", 12, 0, false), "0");
  EXPECT_NO_REPORT(KivExProcLib_ShowFatalError(u"src\\Some", 13, 0, false));
  ASSERT_EQ(vcsShown.size(), 1u);
  EXPECT_EQ(vcsShown[0],
            u"src\\Some line 12.\nA fatal error has occurred.\nPlease save data and restart this program.");
}

TEST(ExProcFatalMessage, TheTextsCanBeReplaced) {
  KivWString csShown;
  sys::SetMessageHook([&](const KivWString& csText) { csShown = csText; });
  KivExProcLib_SetFatalMessages(u"first", u"second");
  NoThrowScope zNoThrow;
  KivExProcLib_ShowFatalError(u"s", -1, 0, true);
  EXPECT_EQ(csShown, u"s line -1.\nfirst\nsecond");
}
