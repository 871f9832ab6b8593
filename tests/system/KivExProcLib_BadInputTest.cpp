// One side of the channel played by hand: raw images with lying sizes in the slots, broken names, missing files, and
// partners that end or hang at each step of an exchange.
#include "KivExProcTest.h"
#include "KivSysFault.h"

using namespace kiv;
using namespace kivtest;

namespace {

// A parent by hand, for one child that runs a body of this program.
class HandMadeParent {
 public:
  explicit HandMadeParent(const KivWString& csRoot, const std::string& strBody = "Served") : m_csRoot(csRoot) {
    sys::MakeFolder(m_csRoot);
    sys::MakeFolder(ProcessFolder(m_csRoot));
    m_hMarker = MakeMarker(MarkerOf(m_csRoot, OwnPid()));
    KivSysProcessStart zStart;
    zStart.m_csCommandLine = u"\"" + TestProgram() + u"\" -r\"" + m_csRoot + u"\" -p\"" + OwnPid() +
                             u"\" -j\"no job\"  " + BodyArguments(strBody) + u" ";
    m_zChild = KivSysProcess::Start(zStart);
    m_csChild = Decimal(m_zChild.GetId());
    m_csInput = PairFolder(m_csRoot, OwnPid(), m_csChild);
    m_csOutput = PairFolder(m_csRoot, m_csChild, OwnPid());
    sys::MakeFolder(m_csInput);
    sys::MakeFolder(m_csOutput);
    bool bExisted = false;
    m_hRequest = KivSysEvent::Create(EventName(OwnPid(), m_csChild), bExisted);
    m_hAnswer = KivSysEvent::Create(EventName(m_csChild, OwnPid()), bExisted);
  }
  ~HandMadeParent() {
    m_hMarker.Close();
    EXPECT_TRUE(TreeEnds(m_csRoot));
  }

  bool FinishHandshake() {
    const KivWString csReady = Join(m_csOutput, u"EventReady");
    WriteFile(csReady, "");
    return Eventually([&] { return !sys::PathExists(csReady); });
  }
  void PutRequest(const std::string& strImage) {
    m_hInput.Close();
    m_hInput = MakeSlot(Join(m_csInput, u"input"), strImage);
    m_hRequest.Set();
  }
  // The exit code of the child behind a raw request.
  int32_t EndBehind(const std::string& strImage) {
    if (!FinishHandshake()) return -2;
    PutRequest(strImage);
    return EndOf(m_zChild);
  }
  // The answer behind a raw request that is good.
  std::string AnswerTo(const std::string& strImage) {
    PutRequest(strImage);
    if (m_hAnswer.Wait(kLongMs) != KivSysWait::Signalled) return "no answer";
    EXPECT_EQ(m_hRequest.Test(), KivSysWait::TimedOut);
    KivSysFile hOutput = KivSysFile::Open(
        Join(m_csOutput, u"output"),
        {KivSysAccess::Read, KivSysShare::All, KivSysDisposition::OpenExisting, KivSysFileFlags::Temporary});
    std::string strAnswer(65536, '\0');
    uint32_t nDone = 0;
    hOutput.ReadAt(0, strAnswer.data(), static_cast<uint32_t>(strAnswer.size()), nDone);
    m_hAnswer.Reset();
    return strAnswer.substr(0, nDone);
  }

  KivWString m_csRoot, m_csChild, m_csInput, m_csOutput;
  KivSysFile m_hMarker, m_hInput;
  KivSysProcess m_zChild;
  KivSysEvent m_hRequest, m_hAnswer;
};

// Exit codes of a root that looks at the answer of a child played by hand.
constexpr int32_t kEmptyWithStatus0 = 50;
constexpr int32_t kOther = 51;
constexpr int32_t kWideStatus = 52;  // all 64 bits of kStatusOf33Bits
constexpr int32_t kLowStatus = 53;   // its low 32 bits
constexpr int64_t kStatusOf33Bits = (int64_t{1} << 32) + 7;

// What becomes of a root whose child puts this image, or no file at all, into the slot of its answer.
int32_t RootBehindAnswer(const std::string& strImage, bool bFile = true) {
  TestFolder zFolder;
  const KivWString csRoot = zFolder / u"root";
  KivSysProcess zRoot =
      StartTestChild("RootOfAHandMadeChild", {csRoot, Wide("x" + ToHexText(strImage)), bFile ? u"file" : u"no file"});
  const int32_t iEnd = EndOf(zRoot);
  EXPECT_TRUE(TreeEnds(csRoot));
  EXPECT_EQ(CountLivingFiles(csRoot), 0u);
  return iEnd;
}

constexpr uint64_t kNear2To64 = 0xFFFFFFFFFFFFFFFF;

}  // namespace

KIV_TEST_CHILD(Served) {
  return RunMember(nullptr, GoOn, EchoDispatch);
}
KIV_TEST_CHILD(ServedWithReportsThatReturn) {
  KivSetReportNoThrow(true);
  return RunMember(nullptr, GoOn, EchoDispatch);
}

// A child by hand: joins, answers each request with the image, and ends when its parent has gone.
KIV_TEST_CHILD(HandMadeChild) {
  const std::string strImage = FromHexText(sys::WideToUtf8(vcsArgs.at(0)).substr(1));
  const KivWString csParentMarker = MarkerOf(GivenRoot(), GivenParent());
  const KivSysFile hMarker = MakeMarker(MarkerOf(GivenRoot(), OwnPid()));
  const KivWString csFolder = PairFolder(GivenRoot(), OwnPid(), GivenParent());
  while (!sys::PathExists(Join(csFolder, u"EventReady"))) sys::SleepMs(0);
  KivSysFile hOutput;
  if (vcsArgs.at(1) == u"file") hOutput = MakeSlot(Join(csFolder, u"output"), strImage);
  KivSysEvent hRequest = KivSysEvent::Open(EventName(GivenParent(), OwnPid()));
  KivSysEvent hAnswer = KivSysEvent::Open(EventName(OwnPid(), GivenParent()));
  sys::RemoveFileAt(Join(csFolder, u"EventReady"));
  while (sys::PathExists(csParentMarker)) {
    if (hRequest.Wait(20) != KivSysWait::Signalled) continue;
    hRequest.Reset();
    hAnswer.Set();
  }
  return 0;
}
KIV_TEST_CHILD(RootOfAHandMadeChild) {
  if (BecomeRoot(vcsArgs.at(0)) != 0) return 1;
  int32_t iPid = 0;
  if (StartBody("HandMadeChild", iPid, {vcsArgs.at(1), vcsArgs.at(2)}) != 0) return 2;
  if (vcsArgs.size() > 3) KivSetReportNoThrow(true);
  int64_t iStatus = -7;
  KivByteBuffer vcAnswer{1, 2, 3};
  if (KivExProcLib_SendMessage(iPid, u"any", {}, iStatus, vcAnswer) != 0) return 3;
  const bool bEmpty = iStatus == 0 && vcAnswer.empty();
  KivExProcLib_CloseDown(bEmpty ? kEmptyWithStatus0 : iStatus == kStatusOf33Bits ? kWideStatus : kOther, true);
  return 4;
}
// The same by a posted request.
KIV_TEST_CHILD(RootThatPosts) {
  if (BecomeRoot(vcsArgs.at(0)) != 0) return 1;
  int32_t iPid = 0;
  if (StartBody("HandMadeChild", iPid, {vcsArgs.at(1), u"file"}) != 0) return 2;
  if (KivExProcLib_PostMessage(iPid, u"any", {}, [](int32_t iStatus, const KivByteBuffer& vcAnswer) -> int32_t {
        const bool bEmpty = iStatus == 0 && vcAnswer.empty();
        KivExProcLib_CloseDown(bEmpty ? kEmptyWithStatus0 : iStatus == 7 ? kLowStatus : kOther, true);
        return 0;
      }) != 0)
    return 3;
  while (KivExProcLib_ServeChildren() >= 0) {
  }
  return 4;
}
// Is killed at a step of an exchange: 0 before it sends, 1 while the request is out, 2 before it reads the answer.
KIV_TEST_CHILD(KilledClient) {
  const int iStep = std::stoi(sys::WideToUtf8(vcsArgs.at(1)));
  if (BecomeRoot(vcsArgs.at(0)) != 0) return 1;
  int32_t iPid = 0;
  if (StartBody("Served", iPid) != 0) return 2;
  if (iStep == 0) sys::EndProcess(9);
  if (KivExProcLib_PostMessage(iPid, u"echo", Bytes("x"), nullptr) != 0) return 4;
  if (iStep == 1) sys::EndProcess(9);
  const KivSysEvent hAnswer = KivSysEvent::Open(EventName(Decimal(iPid), OwnPid()));
  hAnswer.Wait(kLongMs);
  sys::EndProcess(9);
}

TEST(ExProcRawRequest, AGoodImageIsServed) {
  TestFolder zFolder;
  HandMadeParent zParent(zFolder / u"root");
  ASSERT_TRUE(zParent.FinishHandshake());
  EXPECT_EQ(zParent.AnswerTo(RequestImage(3, u"echo", "abc")).substr(0, 19), AnswerImage(3, 0, "abc"));
  EXPECT_EQ(zParent.AnswerTo(RequestImage(2, u"echo", "xyz with old content behind")).substr(0, 18),
            AnswerImage(2, 0, "xy"));
  const std::string strLong = zParent.AnswerTo(RequestImage(0, KivWString(255, u'n'), ""));
  EXPECT_EQ(strLong.substr(0, 19), AnswerImage(3, 0, "255"));
}

TEST(ExProcRawRequest, AFileOfLessThan520BytesIsFatal) {
  for (size_t nBytes : {size_t{0}, size_t{7}, size_t{8}, size_t{519}}) {
    TestFolder zFolder;
    HandMadeParent zParent(zFolder / u"root");
    EXPECT_EQ(zParent.EndBehind(RequestImage(0, u"echo", "").substr(0, nBytes)), SeenCode(999)) << nBytes;
  }
}

TEST(ExProcRawRequest, ASizeThatTheFileDoesNotHoldIsFatal) {
  for (uint64_t nSize : {uint64_t{4}, uint64_t{1} << 32, uint64_t{1} << 63, kNear2To64, kNear2To64 - 519,
                         kNear2To64 - 520, kNear2To64 - 522}) {
    TestFolder zFolder;
    HandMadeParent zParent(zFolder / u"root");
    EXPECT_EQ(zParent.EndBehind(RequestImage(nSize, u"echo", "abc")), SeenCode(999)) << nSize;
  }
}

TEST(ExProcRawRequest, ANameWithoutItsClosing0IsFatal) {
  TestFolder zFolder;
  HandMadeParent zParent(zFolder / u"root");
  EXPECT_EQ(zParent.EndBehind(RequestImage(0, KivWString(256, u'n'), "")), SeenCode(999));
}

TEST(ExProcRawRequest, WhereReportsReturnABrokenRequestClosesDownWith999) {
  for (const std::string& strImage :
       {std::string(), RequestImage(1, u"echo", ""), RequestImage(kNear2To64, u"echo", ""),
        RequestImage(0, KivWString(256, u'n'), "")}) {
    TestFolder zFolder;
    HandMadeParent zParent(zFolder / u"root", "ServedWithReportsThatReturn");
    EXPECT_EQ(zParent.EndBehind(strImage), SeenCode(999));
  }
}

TEST(ExProcRawRequest, AMissingInputIsAnOrderlyEndWith0) {
  TestFolder zFolder;
  HandMadeParent zParent(zFolder / u"root");
  ASSERT_TRUE(zParent.FinishHandshake());
  zParent.m_hRequest.Set();
  EXPECT_EQ(EndOf(zParent.m_zChild), 0);
}

TEST(ExProcRawRequest, AnInputThatVanishesBetweenRequestsIsAnOrderlyEndWith0) {
  TestFolder zFolder;
  HandMadeParent zParent(zFolder / u"root");
  ASSERT_TRUE(zParent.FinishHandshake());
  zParent.AnswerTo(RequestImage(1, u"echo", "a"));
  zParent.m_hInput.Close();
  zParent.m_hRequest.Set();
  EXPECT_EQ(EndOf(zParent.m_zChild), 0);
}

TEST(ExProcRawRequest, AnInputThatIsMadeAnewIsReadAnew) {
  TestFolder zFolder;
  HandMadeParent zParent(zFolder / u"root");
  ASSERT_TRUE(zParent.FinishHandshake());
  for (const char* szPayload : {"first", "second and longer", "3"}) {
    const std::string strPayload = szPayload;
    const std::string strAnswer = zParent.AnswerTo(RequestImage(strPayload.size(), u"echo", strPayload));
    EXPECT_EQ(strAnswer.substr(0, 16 + strPayload.size()), AnswerImage(strPayload.size(), 0, strPayload));
  }
}

TEST(ExProcRawRequest, TheRequestToEndIsObeyedWith999AndWithoutAnAnswer) {
  for (const char* szPayload : {"", "a payload that nobody reads"}) {
    TestFolder zFolder;
    HandMadeParent zParent(zFolder / u"root");
    EXPECT_EQ(
        zParent.EndBehind(RequestImage(std::string(szPayload).size(), u"KivExProcLib_CloseChildProcess", szPayload)),
        SeenCode(999));
    EXPECT_EQ(zParent.m_hRequest.Test(), KivSysWait::Signalled);
    EXPECT_EQ(zParent.m_hAnswer.Test(), KivSysWait::TimedOut);
    EXPECT_FALSE(sys::PathExists(Join(zParent.m_csOutput, u"output")));
  }
}

TEST(ExProcRawRequest, ADispatchThatFailsIsFatal) {
  TestFolder zFolder;
  HandMadeParent zParent(zFolder / u"root");
  EXPECT_EQ(zParent.EndBehind(RequestImage(0, u"fail", "")), SeenCode(999));
}

TEST(ExProcRawAnswer, LessThan9BytesAreStatus0WithoutAPayload) {
  for (size_t nBytes : {size_t{0}, size_t{1}, size_t{8}})
    EXPECT_EQ(RootBehindAnswer(AnswerImage(kNear2To64, 5, "").substr(0, nBytes)), kEmptyWithStatus0) << nBytes;
}

TEST(ExProcRawAnswer, From9To15BytesAreFatal) {
  for (size_t nBytes : {size_t{9}, size_t{15}})
    EXPECT_EQ(RootBehindAnswer(AnswerImage(0, 0, "").substr(0, nBytes)), SeenCode(999)) << nBytes;
}

TEST(ExProcRawAnswer, SixteenBytesAreAnAnswerWithoutAPayload) {
  EXPECT_EQ(RootBehindAnswer(AnswerImage(0, 0, "")), kEmptyWithStatus0);
  EXPECT_EQ(RootBehindAnswer(AnswerImage(0, 0, "old content")), kEmptyWithStatus0);
  EXPECT_EQ(RootBehindAnswer(AnswerImage(0, 7, "")), kOther);
  EXPECT_EQ(RootBehindAnswer(AnswerImage(3, 0, "abc")), kOther);
}

TEST(ExProcRawAnswer, ASendGivesAllBitsOfTheStatusAndAPostItsLow32) {
  EXPECT_EQ(RootBehindAnswer(AnswerImage(0, kStatusOf33Bits, "")), kWideStatus);
  TestFolder zFolder;
  KivSysProcess zRoot =
      StartTestChild("RootThatPosts", {zFolder / u"root", Wide("x" + ToHexText(AnswerImage(0, kStatusOf33Bits, "")))});
  EXPECT_EQ(EndOf(zRoot), kLowStatus);
}

TEST(ExProcRawAnswer, WhereReportsReturnABrokenAnswerClosesDownWith999) {
  for (const std::string& strImage :
       {std::string(12, '\0'), AnswerImage(4, 0, "abc"), AnswerImage(kNear2To64, 0, "abc")}) {
    TestFolder zFolder;
    KivSysProcess zRoot = StartTestChild(
        "RootOfAHandMadeChild", {zFolder / u"root", Wide("x" + ToHexText(strImage)), u"file", u"reports return"});
    EXPECT_EQ(EndOf(zRoot), SeenCode(999)) << ToHexText(strImage);
    EXPECT_EQ(CountLivingFiles(zFolder / u"root"), 0u);
  }
}

TEST(ExProcRawAnswer, ASizeThatTheFileDoesNotHoldIsFatal) {
  for (uint64_t nSize :
       {uint64_t{4}, uint64_t{1} << 33, uint64_t{1} << 63, kNear2To64, kNear2To64 - 15, kNear2To64 - 18})
    EXPECT_EQ(RootBehindAnswer(AnswerImage(nSize, 0, "abc")), SeenCode(999)) << nSize;
}

TEST(ExProcRawAnswer, AMissingOutputIsFatal) {
  EXPECT_EQ(RootBehindAnswer("", false), SeenCode(999));
}

TEST(ExProcRawAnswer, APostedRequestReadsItsAnswerByTheSameRules) {
  for (const auto& [strImage, iCode] : {std::pair<std::string, int32_t>{AnswerImage(0, 0, ""), kEmptyWithStatus0},
                                        {"", kEmptyWithStatus0},
                                        {AnswerImage(1, 0, "a"), kOther},
                                        {AnswerImage(2, 0, "a"), SeenCode(999)},
                                        {AnswerImage(kNear2To64, 0, "a"), SeenCode(999)},
                                        {std::string(12, '\0'), SeenCode(999)}}) {
    TestFolder zFolder;
    KivSysProcess zRoot = StartTestChild("RootThatPosts", {zFolder / u"root", Wide("x" + ToHexText(strImage))});
    EXPECT_EQ(EndOf(zRoot), iCode) << ToHexText(strImage);
    EXPECT_TRUE(TreeEnds(zFolder / u"root"));
  }
}

TEST(ExProcPartner, AParentThatDiesEndsItsChildWith999) {
  TestFolder zFolder;
  HandMadeParent zParent(zFolder / u"root");
  ASSERT_TRUE(zParent.FinishHandshake());
  zParent.m_hMarker.Close();
  EXPECT_EQ(EndOf(zParent.m_zChild), SeenCode(999));
  EXPECT_EQ(CountLivingFiles(zFolder / u"root"), 0u);
}

TEST(ExProcPartner, AParentThatDiesBeforeEventReadyEndsItsChildWith65) {
  TestFolder zFolder;
  HandMadeParent zParent(zFolder / u"root");
  ASSERT_TRUE(Eventually([&] { return sys::PathExists(MarkerOf(zParent.m_csRoot, zParent.m_csChild)); }));
  zParent.m_hMarker.Close();
  EXPECT_EQ(EndOf(zParent.m_zChild), 65);
}

TEST(ExProcPartner, AParentThatHangsBeforeEventReadyKeepsItsChildWaiting) {
  TestFolder zFolder;
  HandMadeParent zParent(zFolder / u"root");
  ASSERT_TRUE(Eventually([&] { return sys::PathExists(MarkerOf(zParent.m_csRoot, zParent.m_csChild)); }));
  EXPECT_EQ(zParent.m_zChild.Wait(100), KivSysWait::TimedOut);  // no time-out on either side
  ASSERT_TRUE(zParent.FinishHandshake());
  EXPECT_EQ(zParent.AnswerTo(RequestImage(1, u"echo", "a")).substr(0, 17), AnswerImage(1, 0, "a"));
}

TEST(ExProcPartner, AClientKilledAtAnyStepOfAnExchangeTakesItsTreeWithIt) {
  for (const char16_t* szStep : {u"0", u"1", u"2"}) {
    TestFolder zFolder;
    KivSysProcess zClient = StartTestChild("KilledClient", {zFolder / u"root", szStep});
    EXPECT_EQ(EndOf(zClient), 9);
    EXPECT_TRUE(TreeEnds(zFolder / u"root")) << sys::WideToUtf8(szStep);
    EXPECT_EQ(CountLivingFiles(zFolder / u"root"), 0u);
  }
}

TEST(ExProcFault, AWaitOrAnEventOrASlotThatFailsIsFatalForAChild) {
  for (const char* szBody : {"FailingWait", "FailingSignal", "FailingAnswer", "FailingAnswerWithReportsThatReturn"}) {
    TestFolder zFolder;
    HandMadeParent zParent(zFolder / u"root", szBody);
    EXPECT_EQ(zParent.EndBehind(RequestImage(1, u"echo", "a")), SeenCode(999)) << szBody;
    EXPECT_EQ(zParent.m_hAnswer.Test(), KivSysWait::TimedOut) << szBody;
  }
}

namespace {

int32_t RunWithFault(KivSysCall iCall, uint64_t iFrom = 1) {
  static KivSysCall iFailing;
  static uint64_t iFirst;
  iFailing = iCall;
  iFirst = iFrom;
  // The handshake waits for no event and sets none.
  KivExProcLib_SetBeforeStartHandler([]() -> int32_t {
    KivSysFaultPlan zPlan;
    zPlan.m_iCall = iFailing;
    zPlan.m_iNth = iFirst;
    zPlan.m_bFromThenOn = true;
    static const KivSysFaultScope zFault(zPlan);
    return 0;
  });
  return RunMember(nullptr, GoOn, EchoDispatch);
}

}  // namespace

KIV_TEST_CHILD(FailingWait) {
  return RunWithFault(KivSysCall::EventWait);
}
KIV_TEST_CHILD(FailingSignal) {
  return RunWithFault(KivSysCall::EventSignal);
}
// The first view is that of the request, the second one that of the answer.
KIV_TEST_CHILD(FailingAnswer) {
  return RunWithFault(KivSysCall::MappingView, 2);
}
KIV_TEST_CHILD(FailingAnswerWithReportsThatReturn) {
  KivSetReportNoThrow(true);
  return RunWithFault(KivSysCall::MappingView, 2);
}
