// Broken payloads of every request, and handlers and clients that end or hang at each step, with real processes. One
// tree in the life of a process: each case has a host of its own.
#include <algorithm>
#include <cstdlib>

#include "../DorRelay/DorRelayFake.h"
#include "DorTreeTest.h"
#include "KivLittleEndian.h"
#include "KivTestScale.h"

using namespace kiv;
using namespace kivtest;

namespace {

constexpr int32_t kEndedAndClean = 70;

// Cleans up behind a tree and tells what is left of it.
int32_t CloseAndCount(DorClient& zClient, int32_t iCode) {
  const KivWString csRoot = zClient.GetRootFolder();
  if (!zClient.Close() || sys::PathExists(csRoot)) iCode += 100;
  return iCode;
}

// --- Payloads -------------------------------------------------------------------------------------------------------

// Payloads of a row that do not fit its form. The good one stands first in each group of causes.
std::vector<KivByteBuffer> BrokenPayloads(const DorRequestRow& zRow, int64_t iModel) {
  std::vector<KivByteBuffer> vvc;
  const std::string strForm = zRow.m_szForm;
  if (zRow.m_iFamily == DorRequestFamily::Refused) return {{}, {0}};

  const KivByteBuffer vcGood = MakePayload(strForm, iModel, 5, 2);
  vvc.push_back(KivByteBuffer(vcGood.begin(), vcGood.end() - 1));
  if (!strForm.ends_with('t')) {
    vvc.push_back(vcGood);
    vvc.back().push_back(0);
  }
  const auto Add = [&](size_t iField, std::initializer_list<int64_t> viFields) {
    vvc.push_back(MakePayload(strForm.substr(0, iField), iModel));
    for (int64_t i : viFields) KivPutInt64(vvc.back(), i);
  };
  for (size_t i = 0; i < strForm.size(); ++i) switch (strForm[i]) {
      case 's':
        Add(i, {-1, 0});
        Add(i, {INT64_MAX, 0});
        break;
      case 'k':
        Add(i, {2, 0, 0, 0, 0, 0, 0});
        Add(i, {1, 0, 0});
        Add(i, {1, 8, 7, 0});
        Add(i, {1, INT64_MAX, INT64_MAX, 0});
        break;
      case 'n':
        Add(i, {0});
        Add(i, {3, 0, 0, 0, 0, 0, 0, 0});
        Add(i, {-1, 0, 0, 0, 0, 0, 0, 0});
        break;
      default:
        break;
    }
  vvc.resize(std::min<size_t>(vvc.size(), Scaled(vvc.size(), 2)));  // a process is dear there
  return vvc;
}

std::string NameOfRow(const testing::TestParamInfo<size_t>& zInfo) {
  return sys::WideToUtf8(DorRequestTable()[zInfo.param].m_csName);
}

class DorBrokenPayload : public testing::TestWithParam<size_t> {};

// --- Steps ----------------------------------------------------------------------------------------------------------

// What a handler that is made by hand comes to, in this order. From Reads on in one of its requests.
enum Step { Starts, HasMarker, SeesReady, HasOutput, HasEvents, HasJoined, Reads, HasWritten, HasReset, HasSet, Steps };

void Reached(int iStep, int iAsked, const std::string& strHow, const KivWString& csHostMarker) {
  if (iStep != iAsked) return;
  const KivWString csFile = Join(GivenRoot(), u"reached");
  WriteFile(csFile + u".new", sys::WideToUtf8(OwnPid()));
  sys::RenamePath(csFile + u".new", csFile);
  if (strHow == "kill") sys::EndProcess(9);
  if (strHow == "exit") std::exit(3);
  while (strHow == "hang") sys::SleepMs(1000);
  while (strHow == "late" && sys::PathExists(csHostMarker)) sys::SleepMs(1);
}

// The process that has reached its step; 0 if none does.
int32_t AwaitReached(const KivWString& csRoot) {
  const KivWString csFile = Join(csRoot, u"reached");
  if (!Eventually([&] { return sys::PathExists(csFile); })) return 0;
  KivSysFile hFile = KivSysFile::Open(
      csFile, {KivSysAccess::Read, KivSysShare::All, KivSysDisposition::OpenExisting, KivSysFileFlags::None});
  std::string strPid(32, '\0');
  uint32_t nDone = 0;
  hFile.ReadAt(0, strPid.data(), 32, nDone);
  return std::atoi(strPid.c_str());
}

bool AllGone(const std::vector<int32_t>& viPids) {
  return Eventually([&] {
    std::vector<uint32_t> viLiving;
    if (!sys::ListProcesses(viLiving)) return false;
    return std::none_of(viPids.begin(), viPids.end(), [&](int32_t iPid) {
      return std::find(viLiving.begin(), viLiving.end(), static_cast<uint32_t>(iPid)) != viLiving.end();
    });
  });
}

constexpr int kFirstCall = 3;

struct StepCase {
  int m_iStep;
  int m_iRequest;  // 1 the read of the model, 2 the question for it, 3 a call
};

std::vector<StepCase> StepCases() {
  std::vector<StepCase> vz;
  for (int iStep = Starts; iStep < Steps; ++iStep) vz.push_back({iStep, 1});
  for (int iStep = Reads; iStep < Steps; ++iStep) vz.push_back({iStep, kFirstCall});
  return vz;
}

// Arguments of the body "StepHandler".
std::vector<KivWString> StepArguments(const KivWString& csStep, const KivWString& csHow, const KivWString& csRequest) {
  return {csStep, csHow, csRequest, OwnPid()};
}

int32_t EndOfHost(const std::string& strBody, const StepCase& z, const char16_t* szHow) {
  TestFolder zFolder;
  KivSysProcess zHost = StartTestChild(strBody, {zFolder / u"root", Decimal(z.m_iStep), szHow, Decimal(z.m_iRequest)});
  const int32_t iEnd = EndOf(zHost);
  EXPECT_TRUE(TreeEnds(zFolder / u"root"));
  EXPECT_EQ(CountLivingFiles(zFolder / u"root"), 0u);
  return iEnd;
}

}  // namespace

// A handler by hand; in the root of a client.
KIV_TEST_CHILD(StepHandler) {
  const int iAsked = std::stoi(sys::WideToUtf8(vcsArgs.at(0)));
  const std::string strHow = sys::WideToUtf8(vcsArgs.at(1));
  const int iRequest = std::stoi(sys::WideToUtf8(vcsArgs.at(2)));
  const KivWString csHostMarker = MarkerOf(GivenRoot(), vcsArgs.at(3));
  const auto At = [&](int iStep) { Reached(iStep, iAsked, strHow, csHostMarker); };
  At(Starts);
  const KivSysFile hMarker = MakeMarker(MarkerOf(GivenRoot(), OwnPid()));
  At(HasMarker);
  const KivWString csParentMarker = MarkerOf(GivenRoot(), GivenParent());
  const KivWString csFolder = PairFolder(GivenRoot(), OwnPid(), GivenParent());
  while (!sys::PathExists(Join(csFolder, u"EventReady"))) sys::SleepMs(0);
  At(SeesReady);
  KivSysFile hOutput = MakeSlot(Join(csFolder, u"output"), "");
  At(HasOutput);
  KivSysEvent hRequest = KivSysEvent::Open(EventName(GivenParent(), OwnPid()));
  KivSysEvent hAnswer = KivSysEvent::Open(EventName(OwnPid(), GivenParent()));
  At(HasEvents);
  sys::RemoveFileAt(Join(csFolder, u"EventReady"));
  At(HasJoined);

  int nRequests = 0;
  while (sys::PathExists(csParentMarker)) {
    if (hRequest.Wait(20) != KivSysWait::Signalled) continue;
    ++nRequests;
    const auto AtRequest = [&](int iStep) {
      if (nRequests == iRequest) At(iStep);
    };
    AtRequest(Reads);
    KivSysFile hInput = KivSysFile::Open(
        Join(PairFolder(GivenRoot(), GivenParent(), OwnPid()), u"input"),
        {KivSysAccess::Read, KivSysShare::All, KivSysDisposition::OpenExisting, KivSysFileFlags::Temporary});
    std::string strImage(65536, '\0');
    uint32_t nDone = 0;
    hInput.ReadAt(0, strImage.data(), 65536, nDone);
    hInput.Close();
    const std::string strPayload = strImage.substr(520, KivLoad<uint64_t>(strImage.data()));
    std::string strAnswer = strPayload;
    if (nRequests == 1) {
      KivByteBuffer vcAnswer(strPayload.begin(), strPayload.begin() + 8);
      KivPutString(vcAnswer, KivWString(kDorReadDor));
      strAnswer = Text(vcAnswer);
    }
    const std::string strOut = AnswerImage(strAnswer.size(), 0, strAnswer);
    hOutput.WriteAt(0, strOut.data(), static_cast<uint32_t>(strOut.size()), nDone);
    AtRequest(HasWritten);
    hRequest.Reset();
    AtRequest(HasReset);
    hAnswer.Set();
    AtRequest(HasSet);
  }
  return 0;
}

// Its handler ends at a step.
KIV_TEST_CHILD(HostOfAnEndingHandler) {
  TestFolder zFolder;
  DorClientOptions zOptions =
      OddPrograms(zFolder, "StepHandler", StepArguments(vcsArgs.at(1), vcsArgs.at(2), vcsArgs.at(3)));
  zOptions.m_csRootFolder = vcsArgs.at(0);
  DorClient zClient(zOptions);
  int32_t iCode = 1;
  try {
    const int64_t iModel = zClient.Open(u"model");
    zClient.Call(KivWString(kDorPickOneElement), IdPayload(iModel));
    iCode = 2;
    const uint64_t iEnd = sys::SteadyNs() + uint64_t{kLongMs} * 1000000;
    while (sys::SteadyNs() < iEnd) zClient.GetReadStatus(iModel);
  } catch (const DorClientError&) {
    iCode = kEndedAndClean;
  }
  if (CountLivingFiles(vcsArgs.at(0)) != 0) iCode += 1000;
  return CloseAndCount(zClient, iCode);
}

// Its handler hangs at a step; it closes its tree all the same.
KIV_TEST_CHILD(HostOfAHangingHandler) {
  TestFolder zFolder;
  DorClientOptions zOptions = OddPrograms(zFolder, "StepHandler", StepArguments(vcsArgs.at(1), u"hang", vcsArgs.at(3)));
  zOptions.m_csRootFolder = vcsArgs.at(0);
  DorClient zClient(zOptions);
  const int64_t iModel = zClient.StartOpen(u"model");
  if (vcsArgs.at(3) == u"3") {
    zClient.AwaitOpen(iModel);
    // A call would wait for as long as the handler lives.
    if (KivExProcLib_PostMessage(zClient.GetRelayPid(), KivWString(kDorPickOneElement), IdPayload(iModel), nullptr) !=
        0)
      return 1;
  }
  const int32_t iHandler = AwaitReached(vcsArgs.at(0));
  if (iHandler == 0) return 2;
  const int32_t iCode = CloseAndCount(zClient, kEndedAndClean);
  return AllGone({iHandler, zClient.GetRelayPid()}) ? iCode : iCode + 1000;
}

// Is killed while its handler is at a step.
KIV_TEST_CHILD(HostKilledAtAStepOfItsHandler) {
  TestFolder zFolder;
  DorClientOptions zOptions = OddPrograms(zFolder, "StepHandler", StepArguments(vcsArgs.at(1), u"late", vcsArgs.at(3)));
  zOptions.m_csRootFolder = vcsArgs.at(0);
  DorClient zClient(zOptions);
  const int64_t iModel = zClient.StartOpen(u"model");
  if (vcsArgs.at(3) == u"3") {
    zClient.AwaitOpen(iModel);
    KivExProcLib_PostMessage(zClient.GetRelayPid(), KivWString(kDorPickOneElement), IdPayload(iModel), nullptr);
  }
  if (AwaitReached(vcsArgs.at(0)) == 0) return 2;
  sys::EndProcess(9);
}

// A relay that joins its client only when that has gone.
KIV_TEST_CHILD(LateRelay) {
  KivExProcLib_SetBeforeStartHandler([]() -> int32_t {
    Reached(Starts, Starts, "late", MarkerOf(GivenRoot(), GivenParent()));
    return 0;
  });
  return RunMember(DorRelay_Tick, DorRelay_Poll, DorRelay_Dispatch);
}
KIV_TEST_CHILD(HostOfALateRelay) {
  DorClientOptions zOptions;
  zOptions.m_csRelay = TestProgram();
  zOptions.m_csRelayArguments = BodyArguments("LateRelay");
  zOptions.m_csRootFolder = vcsArgs.at(0);
  DorClient zClient(zOptions);  // never comes back
  return 1;
}

// Sends one broken payload of a row to a tree that has served a good one.
KIV_TEST_CHILD(HostOfABrokenPayload) {
  TestFolder zFolder;
  DorClientOptions zOptions = OddPrograms(zFolder);
  zOptions.m_csRootFolder = vcsArgs.at(0);
  DorClient zClient(zOptions);
  const DorRequestRow& zRow = DorRequestTable()[static_cast<size_t>(std::stoi(sys::WideToUtf8(vcsArgs.at(1))))];
  const KivWString csRequest(zRow.m_csName);
  int32_t iCode = 1;
  try {
    KivByteBuffer vcResult;
    const int64_t iModel = zClient.Open(u"model");
    if (zRow.m_iFamily == DorRequestFamily::Forward) {
      const KivByteBuffer vcGood = MakePayload(zRow.m_szForm, iModel, 5, 2);
      if (zClient.CallUnchecked(csRequest, vcGood, vcResult) != 0 || vcResult != vcGood) return 2;
    }
    iCode = 3;
    const KivByteBuffer vcBroken =
        BrokenPayloads(zRow, iModel).at(static_cast<size_t>(std::stoi(sys::WideToUtf8(vcsArgs.at(2)))));
    zClient.CallUnchecked(csRequest, vcBroken, vcResult);
  } catch (const DorClientError&) {
    if (iCode == 3) iCode = kEndedAndClean;
  }
  if (CountLivingFiles(vcsArgs.at(0)) != 0) iCode += 1000;
  return CloseAndCount(zClient, iCode);
}

TEST_P(DorBrokenPayload, EndsTheTreeAndNothingIsLeft) {
  const size_t nCases = BrokenPayloads(DorRequestTable()[GetParam()], 0).size();
  for (size_t i = 0; i < nCases; ++i) {
    TestFolder zFolder;
    KivSysProcess zHost = StartTestChild(
        "HostOfABrokenPayload",
        {zFolder / u"root", Decimal(static_cast<int64_t>(GetParam())), Decimal(static_cast<int64_t>(i))});
    EXPECT_EQ(EndOf(zHost), kEndedAndClean) << "case " << i;
  }
}
INSTANTIATE_TEST_SUITE_P(Row, DorBrokenPayload, testing::Range(size_t{0}, DorRequestTable().size()), NameOfRow);

TEST(DorSteps, AHandlerThatIsKilledAtAnyStepEndsTheTree) {
  for (const StepCase& z : StepCases())
    EXPECT_EQ(EndOfHost("HostOfAnEndingHandler", z, u"kill"), kEndedAndClean) << z.m_iStep << ' ' << z.m_iRequest;
}

TEST(DorSteps, AHandlerThatExitsAtAnyStepEndsTheTree) {
  for (const StepCase& z : StepCases())
    EXPECT_EQ(EndOfHost("HostOfAnEndingHandler", z, u"exit"), kEndedAndClean) << z.m_iStep << ' ' << z.m_iRequest;
}

TEST(DorSteps, AHandlerThatHangsAtAnyStepDiesWithTheTreeThatItsClientCloses) {
  for (const StepCase& z : StepCases())
    EXPECT_EQ(EndOfHost("HostOfAHangingHandler", z, u"hang"), kEndedAndClean) << z.m_iStep << ' ' << z.m_iRequest;
}

TEST(DorSteps, AClientThatIsKilledAtAnyStepOfItsHandlerTakesTheTreeWithIt) {
  for (const StepCase& z : StepCases())
    EXPECT_EQ(EndOfHost("HostKilledAtAStepOfItsHandler", z, u"late"), 9) << z.m_iStep << ' ' << z.m_iRequest;
}

TEST(DorSteps, AClientThatIsKilledInTheHandshakeOfItsRelayTakesItWithIt) {
  TestFolder zFolder;
  KivSysProcess zHost = StartTestChild("HostOfALateRelay", {zFolder / u"root"});
  const int32_t iRelay = AwaitReached(zFolder / u"root");
  ASSERT_NE(iRelay, 0);
  ASSERT_TRUE(zHost.Terminate(1));
  EXPECT_TRUE(AllGone({iRelay}));
  EXPECT_EQ(CountLivingFiles(zFolder / u"root"), 0u);
}
