// Requests and answers between living processes.
#include <limits>

#include "KivExProcTest.h"
#include "KivLittleEndian.h"
#include "KivSysFault.h"

using namespace kiv;
using namespace kivtest;

namespace {

int g_nAnswers = 0;
int32_t g_iAnswerStatus = 0;
KivByteBuffer g_vcAnswer;

int32_t TakeAnswer(int32_t iStatus, const KivByteBuffer& vcAnswer) {
  ++g_nAnswers;
  g_iAnswerStatus = iStatus;
  g_vcAnswer = vcAnswer;
  return 77;  // is not looked at
}

// The first bytes of a slot.
std::string HeadOf(const KivWString& csPath, uint32_t nBytes) {
  KivSysFile hFile = KivSysFile::Open(
      csPath, {KivSysAccess::Read, KivSysShare::All, KivSysDisposition::OpenExisting, KivSysFileFlags::Temporary});
  std::string strBytes(nBytes, '\0');
  uint32_t nDone = 0;
  EXPECT_TRUE(hFile.ReadAt(0, strBytes.data(), nBytes, nDone));
  EXPECT_EQ(nDone, nBytes);
  return strBytes;
}

struct Answer {
  int32_t m_iResult = 0;
  int64_t m_iStatus = -7;
  KivByteBuffer m_vcPayload;
};

Answer Send(int32_t iPid, const KivWString& csRequest, const KivByteBuffer& vcPayload = {}) {
  Answer z;
  z.m_iResult = KivExProcLib_SendMessage(iPid, csRequest, vcPayload, z.m_iStatus, z.m_vcPayload);
  return z;
}

class Channel : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(BecomeRoot(m_zFolder / u"root"), 0);
    ASSERT_EQ(StartBody("Answers", m_iPid), 0);
  }
  void TearDown() override { EndRoot(); }
  void ExpectInput(const KivWString& csRequest, const std::string& strPayload) {
    const std::string strImage = RequestImage(strPayload.size(), csRequest, strPayload);
    EXPECT_EQ(HeadOf(Join(PairFolder(m_zFolder / u"root", OwnPid(), Decimal(m_iPid)), u"input"),
                     static_cast<uint32_t>(strImage.size())),
              strImage);
  }

  TestFolder m_zFolder;
  int32_t m_iPid = 0;
};

}  // namespace

KIV_TEST_CHILD(Answers) {
  return RunMember(nullptr, GoOn, EchoDispatch);
}

TEST_F(Channel, APayloadOf0BytesIsAHeaderAlone) {
  const Answer z = Send(m_iPid, u"echo");
  EXPECT_EQ(z.m_iResult, 0);
  EXPECT_EQ(z.m_iStatus, 0);
  EXPECT_TRUE(z.m_vcPayload.empty());
}

TEST_F(Channel, PayloadsOfAllSizesComeBackUnchanged) {
  for (size_t nBytes : {1u, 7u, 64u, 65015u, 65016u, 65017u, 65519u, 65520u, 65521u, 200u * 1024, 16u << 20, 3u, 0u}) {
    KivByteBuffer vcPayload(nBytes);
    for (size_t i = 0; i < nBytes; ++i) vcPayload[i] = static_cast<uint8_t>(i * 31 + nBytes);
    const Answer z = Send(m_iPid, u"echo", vcPayload);
    EXPECT_EQ(z.m_iResult, 0);
    EXPECT_TRUE(z.m_vcPayload == vcPayload) << nBytes;
  }
}

TEST_F(Channel, AStatusIsWidenedWithItsSign) {
  for (int32_t iStatus : {0, 1, -1, 999, std::numeric_limits<int32_t>::min()}) {
    KivByteBuffer vcPayload(4);
    KivStore<int32_t>(vcPayload.data(), iStatus);
    const Answer z = Send(m_iPid, u"status", vcPayload);
    EXPECT_EQ(z.m_iStatus, iStatus);
    EXPECT_EQ(z.m_vcPayload.size(), 3u);
  }
}

TEST_F(Channel, ANameOf255UnitsPassesAndOneOf256Gives12) {
  const Answer z = Send(m_iPid, KivWString(255, u'n'));
  EXPECT_EQ(z.m_iResult, 0);
  EXPECT_EQ(Text(z.m_vcPayload), "255");
  EXPECT_EQ(Send(m_iPid, KivWString(256, u'n')).m_iResult, 12);
  EXPECT_EQ(KivExProcLib_PostMessage(m_iPid, KivWString(300, u'n'), {}, nullptr), 12);
}

TEST_F(Channel, ANameWithAZeroInsideGives14) {
  EXPECT_EQ(Send(m_iPid, KivWString(u"a\0b", 3)).m_iResult, 14);
}

TEST_F(Channel, AnUnknownChildGives30Or40) {
  EXPECT_EQ(KivExProcLib_PostMessage(m_iPid + 1, u"echo", {}, nullptr), 30);
  EXPECT_EQ(Send(m_iPid + 1, u"echo").m_iResult, 40);
}

TEST_F(Channel, TheOwnParentGives10) {
  EXPECT_EQ(Send(0, u"echo").m_iResult, 10);
}

TEST_F(Channel, APostedAnswerComesInAServicePass) {
  ASSERT_EQ(KivExProcLib_PostMessage(m_iPid, u"echo", Bytes("posted"), TakeAnswer), 0);
  while (g_nAnswers == 0) ASSERT_EQ(KivExProcLib_ServeChildren(), 0);
  EXPECT_EQ(g_iAnswerStatus, 0);
  EXPECT_EQ(Text(g_vcAnswer), "posted");
  EXPECT_EQ(KivExProcLib_ServeChildren(), 0);
  EXPECT_EQ(g_nAnswers, 1);
}

TEST_F(Channel, ASendWhileARequestIsOutGivesMinus10AndLeavesTheSlot) {
  bool bExisted = false;
  const KivWString csEvent = u"KivTestGo" + OwnPid();
  KivSysEvent hGo = KivSysEvent::Create(csEvent, bExisted);
  ASSERT_EQ(KivExProcLib_PostMessage(m_iPid, u"wait", Bytes(sys::WideToUtf8(csEvent)), TakeAnswer), 0);
  EXPECT_EQ(Send(m_iPid, u"echo", Bytes("second")).m_iResult, -10);
  EXPECT_EQ(KivExProcLib_PostMessage(m_iPid, u"echo", Bytes("second"), nullptr), -10);
  int64_t iStatus = 0;
  KivByteBuffer vcAnswer;
  EXPECT_EQ(KivExProcLib_SendMessageRetry(m_iPid, u"echo", Bytes("second"), iStatus, vcAnswer), -10);
  EXPECT_EQ(KivExProcLib_CloseChild(m_iPid), -10);  // changes nothing
  ExpectInput(u"wait", sys::WideToUtf8(csEvent));
  hGo.Set();
  while (g_nAnswers == 0) ASSERT_EQ(KivExProcLib_ServeChildren(), 0);
  EXPECT_EQ(Text(g_vcAnswer), sys::WideToUtf8(csEvent));
  EXPECT_EQ(Text(Send(m_iPid, u"echo", Bytes("third")).m_vcPayload), "third");
}

TEST_F(Channel, ASendBeforeTheAnswerHasBeenReadGivesMinus20AndLeavesTheSlot) {
  ASSERT_EQ(KivExProcLib_PostMessage(m_iPid, u"echo", Bytes("first"), TakeAnswer), 0);
  const KivSysEvent hRequest = KivSysEvent::Open(EventName(OwnPid(), Decimal(m_iPid)));
  const KivSysEvent hAnswer = KivSysEvent::Open(EventName(Decimal(m_iPid), OwnPid()));
  ASSERT_EQ(hAnswer.Wait(kLongMs), KivSysWait::Signalled);
  EXPECT_EQ(hRequest.Test(), KivSysWait::TimedOut);  // reset before the answer event was set
  EXPECT_EQ(Send(m_iPid, u"echo", Bytes("second")).m_iResult, -20);
  int64_t iStatus = 0;
  KivByteBuffer vcAnswer;
  EXPECT_EQ(KivExProcLib_SendMessageRetry(m_iPid, u"echo", Bytes("second"), iStatus, vcAnswer), -20);
  ExpectInput(u"echo", "first");
  while (g_nAnswers == 0) ASSERT_EQ(KivExProcLib_ServeChildren(), 0);
  EXPECT_EQ(Text(g_vcAnswer), "first");
  EXPECT_EQ(hAnswer.Test(), KivSysWait::TimedOut);
}

TEST_F(Channel, ARetryFindsTheChannelFreeAndGivesTheAnswer) {
  KivSysEvent hAnswer = KivSysEvent::Open(EventName(Decimal(m_iPid), OwnPid()));
  ASSERT_TRUE(hAnswer.Set());
  // Both events are looked at by each try: the answer is taken away in front of the second one.
  KivSysFaultPlan zPlan;
  zPlan.m_iCall = KivSysCall::EventWait;
  zPlan.m_iNth = 3;
  zPlan.m_iKind = KivSysFaultKind::Meanwhile;
  zPlan.m_pfnMeanwhile = [&] { hAnswer.Reset(); };
  const KivSysFaultScope zFault(zPlan);
  int64_t iStatus = -7;
  KivByteBuffer vcAnswer;
  EXPECT_EQ(KivExProcLib_SendMessageRetry(m_iPid, u"echo", Bytes("second try"), iStatus, vcAnswer), 0);
  EXPECT_TRUE(zFault.HasFired());
  EXPECT_EQ(iStatus, 0);
  EXPECT_EQ(Text(vcAnswer), "second try");
}

TEST_F(Channel, ARetryIsNotMadeBehindAnotherCode) {
  const KivSysFaultScope zCalls{KivSysFaultPlan()};
  int64_t iStatus = -7;
  KivByteBuffer vcAnswer{9};
  EXPECT_EQ(KivExProcLib_SendMessageRetry(m_iPid + 1, u"echo", {}, iStatus, vcAnswer), 40);
  EXPECT_EQ(KivExProcLib_SendMessageRetry(m_iPid, KivWString(256, u'n'), {}, iStatus, vcAnswer), 12);
  EXPECT_EQ(zCalls.GetCount(KivSysCall::EventWait), 0u);
  EXPECT_EQ(iStatus, -7);
  EXPECT_EQ(vcAnswer, KivByteBuffer{9});
}

TEST_F(Channel, AnAnswerThatNobodyWantsIsDropped) {
  ASSERT_EQ(KivExProcLib_PostMessage(m_iPid, u"echo", Bytes("dropped"), nullptr), 0);
  const KivSysEvent hAnswer = KivSysEvent::Open(EventName(Decimal(m_iPid), OwnPid()));
  ASSERT_EQ(hAnswer.Wait(kLongMs), KivSysWait::Signalled);
  ASSERT_EQ(KivExProcLib_ServeChildren(), 0);
  EXPECT_EQ(hAnswer.Test(), KivSysWait::TimedOut);
  EXPECT_EQ(Text(Send(m_iPid, u"echo", Bytes("next")).m_vcPayload), "next");
}

TEST_F(Channel, ANegativeStatusOfAPostedAnswerKeepsItsSign) {
  KivByteBuffer vcPayload(4);
  KivStore<int32_t>(vcPayload.data(), -3);
  ASSERT_EQ(KivExProcLib_PostMessage(m_iPid, u"status", vcPayload, TakeAnswer), 0);
  while (g_nAnswers == 0) ASSERT_EQ(KivExProcLib_ServeChildren(), 0);
  EXPECT_EQ(g_iAnswerStatus, -3);
}

TEST_F(Channel, OnePassTakesOneAnswerOfTheFirstChildInOrderOfStart) {
  int32_t iSecond = 0;
  ASSERT_EQ(StartBody("Answers", iSecond), 0);
  for (int32_t iPid : {iSecond, m_iPid}) {
    ASSERT_EQ(KivExProcLib_PostMessage(iPid, u"echo", Bytes(std::to_string(iPid)), TakeAnswer), 0);
    ASSERT_EQ(KivSysEvent::Open(EventName(Decimal(iPid), OwnPid())).Wait(kLongMs), KivSysWait::Signalled);
  }
  EXPECT_EQ(KivExProcLib_ServeChildren(), 0);
  EXPECT_EQ(g_nAnswers, 1);
  EXPECT_EQ(Text(g_vcAnswer), std::to_string(m_iPid));
  EXPECT_EQ(KivExProcLib_ServeChildren(), 0);
  EXPECT_EQ(Text(g_vcAnswer), std::to_string(iSecond));
}

TEST_F(Channel, ACallbackMaySendTheChildAway) {
  static int32_t iPid;
  iPid = m_iPid;
  ASSERT_EQ(KivExProcLib_PostMessage(m_iPid, u"echo", {},
                                     [](int32_t, const KivByteBuffer&) -> int32_t {
                                       ++g_nAnswers;
                                       return KivExProcLib_CloseChild(iPid);
                                     }),
            0);
  while (g_nAnswers == 0) ASSERT_EQ(KivExProcLib_ServeChildren(), 0);
  EXPECT_EQ(Send(m_iPid, u"echo").m_iResult, 40);
  EXPECT_EQ(KivExProcLib_ServeChildren(), 0);  // its death is no alarm
}

TEST_F(Channel, ACallbackThatServesAnotherPassKeepsItsAnswer) {
  int32_t iSecond = 0;
  ASSERT_EQ(StartBody("Answers", iSecond), 0);
  static std::string strFirst, strBehindPass, strSecond;
  ASSERT_EQ(KivExProcLib_PostMessage(m_iPid, u"echo", Bytes("first answer"),
                                     [](int32_t, const KivByteBuffer& vcAnswer) -> int32_t {
                                       strFirst = Text(vcAnswer);
                                       while (strSecond.empty()) KivExProcLib_ServeChildren();
                                       strBehindPass = Text(vcAnswer);
                                       return 0;
                                     }),
            0);
  ASSERT_EQ(KivExProcLib_PostMessage(iSecond, u"echo", Bytes("second, longer"),
                                     [](int32_t, const KivByteBuffer& vcAnswer) -> int32_t {
                                       strSecond = Text(vcAnswer);
                                       return 0;
                                     }),
            0);
  ASSERT_EQ(KivSysEvent::Open(EventName(Decimal(m_iPid), OwnPid())).Wait(kLongMs), KivSysWait::Signalled);
  EXPECT_EQ(KivExProcLib_ServeChildren(), 0);
  EXPECT_EQ(strFirst, "first answer");
  EXPECT_EQ(strBehindPass, "first answer");
  EXPECT_EQ(strSecond, "second, longer");
}

TEST_F(Channel, WithoutChildrenAPassReturnsAtOnce) {
  ASSERT_EQ(KivExProcLib_CloseChild(m_iPid), 0);
  const KivSysFaultScope zCalls{KivSysFaultPlan()};
  for (int i = 0; i < 10; ++i) ASSERT_EQ(KivExProcLib_ServeChildren(), 0);
  EXPECT_EQ(zCalls.GetCount(KivSysCall::EventWait), 0u);
}

TEST_F(Channel, TheSlotsHoldTheMessagesByteForByte) {
  ASSERT_EQ(Send(m_iPid, u"echo", Bytes("payload")).m_iResult, 0);
  ExpectInput(u"echo", "payload");
  EXPECT_EQ(HeadOf(Join(PairFolder(m_zFolder / u"root", Decimal(m_iPid), OwnPid()), u"output"), 23),
            AnswerImage(7, 0, "payload"));
}
