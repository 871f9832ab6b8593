#include "DorRelay.h"

#include <gtest/gtest.h>

#include "DorRelayFake.h"
#include "KivTestScale.h"

using namespace kiv;
using namespace kivtest;

namespace {

bool IsForward(const DorRequestRow& zRow) {
  return zRow.m_iFamily == DorRequestFamily::Forward;
}
bool HasTail(const DorRequestRow& zRow) {
  return std::string(zRow.m_szForm).find('t') != std::string::npos;
}

// Behind the report, the return value for a field that is cut at this number of bytes; 0: the process closes down.
int32_t CodeOfCut(const DorRequestRow& zRow, uint64_t nKept) {
  const std::string strName = sys::WideToUtf8(zRow.m_csName);
  if (nKept < 8) return 0;  // the model id
  if (strName == "DorHandler_WriteDor") {
    const uint64_t nString = 8 + 2 * 4;
    if (nKept < 8 + nString) return 10;
    return 20 + 10 * static_cast<int32_t>((nKept - 8 - nString) / 8);
  }
  if (strName == "DorHandler_CalcDraftAngle") return nKept < 24 ? 0 : 10;
  if (strName.starts_with("DorHandler_CalcAngle")) return 10;
  return 0;
}

}  // namespace

TEST(DorRelayDispatch, FirstReadOfAProcessGivesId0AndTheNextOne1) {
  FakeRuntime zRuntime;
  const Dispatched zFirst = Dispatch(u"DorHandler_ReadDor", PathPayload(u"a.kiv"));
  EXPECT_EQ(zFirst.m_iStatus, 0);
  EXPECT_EQ(zFirst.m_vcResult, ModelPayload(0));
  EXPECT_EQ(Dispatch(u"DorHandler_ReadDor", PathPayload(u"b.kiv")).m_vcResult, ModelPayload(1));
  ASSERT_EQ(DorRelay_ModelTable().size(), 2u);
  EXPECT_EQ(DorRelay_ModelTable().front().m_csPath, u"a.kiv");
  EXPECT_EQ(DorRelay_ModelTable().front().m_csRequest, u"DorHandler_ReadDor");
  EXPECT_TRUE(zRuntime.m_vcsStarted.empty());  // the file is not touched here
}

TEST(DorRelayDispatch, AReadThatFailsHasRaisedTheCounterButLeavesNoRow) {
  FakeRuntime zRuntime;
  ExpectBroken(u"DorHandler_ReadDor", {1, 0, 0});
  EXPECT_EQ(g_iNextModelId, 2);  // once in each mode of reports
  EXPECT_TRUE(DorRelay_ModelTable().empty());
}

TEST(DorRelayDispatch, AClearOfAnUnknownIdIsAcceptedWithStatus0) {
  FakeRuntime zRuntime;
  const Dispatched z = Dispatch(u"DorHandler_ClearModel", ModelPayload(99));
  EXPECT_EQ(z.m_iReturn, 0);
  EXPECT_EQ(z.m_iStatus, 0);
  EXPECT_TRUE(z.m_vcResult.empty());
  EXPECT_EQ(DorRelay_ModelTable().size(), 1u);
}

TEST(DorRelayDispatch, EveryForwardedRequestReachesTheModelsChildUnchanged) {
  FakeRuntime zRuntime;
  OpenModel();
  const int64_t iModelId = OpenModel();
  for (const DorRequestRow& zRow : DorRequestTable()) {
    if (!IsForward(zRow)) continue;
    SCOPED_TRACE(sys::WideToUtf8(zRow.m_csName));
    for (const auto& [nBlock, nCurves] : {std::pair<uint64_t, int64_t>{0, 1}, {0, 2}, {1, 1}, {333, 2}}) {
      const KivByteBuffer vcPayload = MakePayload(zRow.m_szForm, iModelId, nBlock, nCurves);
      zRuntime.m_vzSent.clear();
      zRuntime.m_dqReplies = {{0, 0, {9, 8, 7}}};
      const Dispatched z = Dispatch(zRow.m_csName, vcPayload);
      EXPECT_EQ(z.m_iReturn, 0);
      EXPECT_EQ(z.m_iStatus, 0);
      EXPECT_EQ(z.m_vcResult, (KivByteBuffer{9, 8, 7}));
      ASSERT_EQ(zRuntime.m_vzSent.size(), 1u);
      EXPECT_EQ(zRuntime.m_vzSent[0].m_iChildPid, 101);
      EXPECT_EQ(zRuntime.m_vzSent[0].m_csName, zRow.m_csName);
      EXPECT_EQ(zRuntime.m_vzSent[0].m_vcPayload, vcPayload);
    }
  }
}

TEST(DorRelayDispatch, AStringIsForwardedAsItWasReadUpToItsFirstZero) {
  FakeRuntime zRuntime;
  const int64_t iModelId = OpenModel();
  KivByteBuffer vcPayload = ModelPayload(iModelId), vcForwarded = ModelPayload(iModelId);
  KivPutInt64(vcPayload, 5);
  KivPutInt64(vcForwarded, 5);
  KivPutString(vcPayload, KivWString(u"ab\0cd", 5));
  KivPutString(vcForwarded, u"ab");
  EXPECT_EQ(Dispatch(u"DorHandler_SetAsmInfo", vcPayload).m_iStatus, 0);
  ASSERT_EQ(zRuntime.m_vzSent.size(), 1u);
  EXPECT_EQ(zRuntime.m_vzSent[0].m_vcPayload, vcForwarded);
}

TEST(DorRelayDispatch, NonFiniteFloatsPassBitForBit) {
  FakeRuntime zRuntime;
  const int64_t iModelId = OpenModel();
  KivByteBuffer vcPayload = MakePayload("miicf", iModelId);
  for (size_t i = 24; i < vcPayload.size(); ++i) vcPayload[i] = static_cast<uint8_t>(0xF0 | (i & 15));  // NaNs
  EXPECT_EQ(Dispatch(u"DorHandler_FindEdgeCloserVertex", vcPayload).m_iStatus, 0);
  ASSERT_EQ(zRuntime.m_vzSent.size(), 1u);
  EXPECT_EQ(zRuntime.m_vzSent[0].m_vcPayload, vcPayload);
}

TEST(DorRelayDispatch, EveryPayloadCutShortAnywhereEndsTheRelay) {
  FakeRuntime zRuntime;
  const int64_t iModelId = OpenModel();
  for (const DorRequestRow& zRow : DorRequestTable()) {
    if (zRow.m_iFamily == DorRequestFamily::Refused) continue;
    const KivByteBuffer vcPayload = MakePayload(zRow.m_szForm, iModelId, 5, 2);
    // A report costs milliseconds where a stack is dear: there, only the ends of the fields and the bytes beside them.
    const uint64_t nStep = Scaled(1, 8);
    for (uint64_t nKept = 0; nKept < vcPayload.size(); nKept += nKept + nStep < vcPayload.size() ? nStep : 1)
      ExpectBroken(zRow.m_csName, KivByteBuffer(vcPayload.begin(), vcPayload.begin() + static_cast<ptrdiff_t>(nKept)),
                   CodeOfCut(zRow, nKept));
  }
  EXPECT_TRUE(zRuntime.m_vzSent.empty());
}

TEST(DorRelayDispatch, OneByteTooManyEndsTheRelay) {
  FakeRuntime zRuntime;
  const int64_t iModelId = OpenModel();
  const size_t nRows = DorRelay_ModelTable().size();
  for (const DorRequestRow& zRow : DorRequestTable()) {
    if (zRow.m_iFamily == DorRequestFamily::Refused || HasTail(zRow)) continue;
    KivByteBuffer vcPayload = MakePayload(zRow.m_szForm, iModelId);
    vcPayload.push_back(0);
    ExpectBroken(zRow.m_csName, vcPayload);
  }
  EXPECT_TRUE(zRuntime.m_vzSent.empty());
  EXPECT_EQ(DorRelay_ModelTable().size(), nRows);  // a failed request leaves the table alone
}

TEST(DorRelayDispatch, AStringThatClaimsMoreThanThePayloadEndsTheRelay) {
  FakeRuntime zRuntime;
  for (int64_t nUnits : {int64_t{5}, int64_t{0x7FFFFFFFFFFFFFFF}, int64_t{-1}, int64_t{1} << 62}) {
    KivByteBuffer vcPayload;
    KivPutInt64(vcPayload, nUnits);
    KivPutBytes(vcPayload, nullptr, 8);
    ExpectBroken(u"DorHandler_ReadDor", vcPayload);
  }
}

TEST(DorRelayDispatch, ACountOtherThan1Or2EndsTheRelay) {
  FakeRuntime zRuntime;
  const int64_t iModelId = OpenModel();
  for (const DorRequestRow& zRow : DorRequestTable()) {
    const std::string strForm = zRow.m_szForm;
    if (!strForm.ends_with('n')) continue;
    const KivByteBuffer vcHead = MakePayload(strForm.substr(0, strForm.size() - 1), iModelId);
    for (int64_t nCurves : {int64_t{0}, int64_t{3}, int64_t{-1}, int64_t{0x7FFFFFFFFFFFFFFF}}) {
      KivByteBuffer vcPayload = vcHead;
      KivPutInt64(vcPayload, nCurves);
      for (int64_t i = 0; i < 3; ++i) {
        KivPutInt64(vcPayload, 0);
        KivPutBytes(vcPayload, nullptr, 48);
      }
      ExpectBroken(zRow.m_csName, vcPayload);
      vcPayload.resize(vcHead.size() + 8);
      ExpectBroken(zRow.m_csName, vcPayload);
    }
  }
}

TEST(DorRelayDispatch, DistanceOfAVertexAndACurveHasNoCountOnTheWire) {
  FakeRuntime zRuntime;
  const int64_t iModelId = OpenModel();
  EXPECT_EQ(Dispatch(u"DorHandler_CalcDistVertexCurve", MakePayload("miiiiick", iModelId)).m_iStatus, 0);
  ExpectBroken(u"DorHandler_CalcDistVertexCurve", MakePayload("miiiiicn", iModelId));
}

TEST(DorRelayDispatch, ACurveOfAnotherKindEndsTheRelay) {
  FakeRuntime zRuntime;
  const int64_t iModelId = OpenModel();
  for (int64_t iKind : {int64_t{2}, int64_t{-1}, int64_t{1} << 32}) {
    KivByteBuffer vcPayload = MakePayload("mii", iModelId);
    KivPutInt64(vcPayload, iKind);
    KivPutBytes(vcPayload, nullptr, 48);
    ExpectBroken(u"DorHandler_IsLinearCurve", vcPayload);
  }
}

TEST(DorRelayDispatch, ABlockOfACurveOfSizeBelow1EndsTheRelay) {
  FakeRuntime zRuntime;
  const int64_t iModelId = OpenModel();
  for (int64_t iSize : {int64_t{0}, int64_t{-1}, std::numeric_limits<int64_t>::min()}) {
    KivByteBuffer vcPayload = MakePayload("mii", iModelId);
    KivPutInt64(vcPayload, 1);
    KivPutInt64(vcPayload, iSize);
    KivPutInt64(vcPayload, iSize);
    ExpectBroken(u"DorHandler_IsLinearCurve", vcPayload);
  }
}

TEST(DorRelayDispatch, ABlockWhoseOwnSizeDiffersFromTheIntegerBeforeItEndsTheRelay) {
  FakeRuntime zRuntime;
  const int64_t iModelId = OpenModel();
  for (int64_t iOwnSize : {int64_t{7}, int64_t{9}, int64_t{0}}) {
    KivByteBuffer vcPayload = MakePayload("mii", iModelId);
    KivPutInt64(vcPayload, 1);
    KivPutInt64(vcPayload, 8);
    KivPutInt64(vcPayload, iOwnSize);
    KivPutBytes(vcPayload, nullptr, 9);
    ExpectBroken(u"DorHandler_IsLinearCurve", vcPayload);
  }
}

TEST(DorRelayDispatch, ABlockLargerThanThePayloadEndsTheRelayWithoutAllocatingIt) {
  FakeRuntime zRuntime;
  const int64_t iModelId = OpenModel();
  for (int64_t iSize : {int64_t{9}, std::numeric_limits<int64_t>::max()}) {
    KivByteBuffer vcPayload = MakePayload("mii", iModelId);
    KivPutInt64(vcPayload, 1);
    KivPutInt64(vcPayload, iSize);
    KivPutInt64(vcPayload, iSize);
    KivPutBytes(vcPayload, nullptr, 8);
    ExpectBroken(u"DorHandler_IsLinearCurve", vcPayload);
  }
}

TEST(DorRelayDispatch, RefusedRequestsAreReportedAndAPayloadEndsTheRelay) {
  FakeRuntime zRuntime;
  int nRefused = 0;
  for (const DorRequestRow& zRow : DorRequestTable()) {
    if (zRow.m_iFamily != DorRequestFamily::Refused) continue;
    ++nRefused;
    EXPECT_TRUE(Dispatch(zRow.m_csName, {}).m_bReported);
    {
      NoThrowScope zNoThrow;
      const Dispatched z = Dispatch(zRow.m_csName, {});
      EXPECT_EQ(z.m_iReturn, 0);
      EXPECT_EQ(z.m_iStatus, 0);
      EXPECT_TRUE(z.m_vcResult.empty());
    }
    ExpectBroken(zRow.m_csName, {0});
  }
  EXPECT_EQ(nRefused, 6);
}

TEST(DorRelayDispatch, UnknownNamesAreReportedAndGiveMinus1WithoutAnEndCheck) {
  FakeRuntime zRuntime;
  for (const char16_t* szName :
       {u"", u"dorhandler_donothing", u"DorHandler_DoNothing ", u"DorHandler_SaveCurSnapShot"}) {
    EXPECT_TRUE(Dispatch(szName, {}).m_bReported);
    NoThrowScope zNoThrow;
    const Dispatched z = Dispatch(szName, {1, 2, 3});
    EXPECT_EQ(z.m_iReturn, 0);
    EXPECT_EQ(z.m_iStatus, -1);
    EXPECT_EQ(z.m_iClosedDown, 0);
    EXPECT_TRUE(z.m_vcResult.empty());
  }
}

TEST(DorRelayDispatch, IsFilletFaceBehavesLikeAnUnknownName) {
  FakeRuntime zRuntime;
  const int64_t iModelId = OpenModel();
  NoThrowScope zNoThrow;
  const Dispatched z = Dispatch(u"DorHandler_IsFilletFace", MakePayload("mii", iModelId));
  EXPECT_EQ(z.m_iStatus, -1);
  EXPECT_EQ(z.m_iReturn, 0);
  EXPECT_TRUE(zRuntime.m_vzSent.empty());
}

TEST(DorRelayDispatch, ReportsCarryTheRelaysNameAndTheText0) {
  FakeRuntime zRuntime;
  for (const char16_t* szName : {u"DorHandler_CopyAsm", u"No such request"}) try {
      int32_t iStatus = 0;
      KivByteBuffer vcResult;
      DorRelay_Dispatch(szName, {}, iStatus, vcResult);
      ADD_FAILURE() << "no report";
    } catch (const KivException& e) {
      EXPECT_EQ(e.GetMessageText(), u"0");
      EXPECT_EQ(e.GetFile(), u"DorRelay");
    }
}

TEST(DorRelayDispatch, AnUnknownModelIdEndsTheRelay) {
  FakeRuntime zRuntime;
  OpenModel();
  Dispatch(u"DorHandler_ClearModel", ModelPayload(5));  // a row of a clear is no model
  for (const DorRequestRow& zRow : DorRequestTable())
    if (IsForward(zRow)) {
      ExpectBroken(zRow.m_csName, MakePayload(zRow.m_szForm, 5));
      ExpectBroken(zRow.m_csName, MakePayload(zRow.m_szForm, -1));
    }
}

TEST(DorRelayDispatch, DoNothingOnAModelInReadingGivesMinus1AndAnEmptyResult) {
  FakeRuntime zRuntime;
  Dispatch(u"DorHandler_ReadDor", PathPayload(u"a.kiv"));
  for (int iPass = 0; iPass < 2; ++iPass) {
    const Dispatched z = Dispatch(u"DorHandler_DoNothing", ModelPayload(0));
    EXPECT_EQ(z.m_iReturn, 0);
    EXPECT_EQ(z.m_iStatus, -1);
    EXPECT_TRUE(z.m_vcResult.empty());
    DorRelay_Poll();  // the second time with a child
  }
  EXPECT_TRUE(zRuntime.m_vzSent.empty());
}

TEST(DorRelayDispatch, AFailedModelGivesStatus2ToEveryRequest) {
  FakeRuntime zRuntime;
  const int64_t iModelId = OpenModel(17);
  for (const DorRequestRow& zRow : DorRequestTable()) {
    if (!IsForward(zRow)) continue;
    const Dispatched z = Dispatch(zRow.m_csName, MakePayload(zRow.m_szForm, iModelId));
    EXPECT_EQ(z.m_iReturn, 0);
    EXPECT_EQ(z.m_iStatus, 2);
    EXPECT_TRUE(z.m_vcResult.empty());
  }
  EXPECT_TRUE(zRuntime.m_vzSent.empty());
}

TEST(DorRelayDispatch, AModelWithoutAChildGivesStatus1) {
  FakeRuntime zRuntime;
  const int64_t iModelId = OpenModel();
  DorRelay_FindModel(iModelId)->m_iChildPid = 0;
  EXPECT_EQ(Dispatch(u"DorHandler_DoNothing", ModelPayload(iModelId)).m_iStatus, 1);
  EXPECT_TRUE(zRuntime.m_vzSent.empty());
}

TEST(DorRelayDispatch, APickCopiesItsTailByteByByte) {
  FakeRuntime zRuntime;
  const int64_t iModelId = OpenModel();
  for (size_t nTail : {size_t{0}, size_t{1}, size_t{7}, size_t{100000}}) {
    KivByteBuffer vcPayload = ModelPayload(iModelId);
    for (size_t i = 0; i < nTail; ++i) vcPayload.push_back(static_cast<uint8_t>(i * 7));
    const Dispatched z = Dispatch(u"DorHandler_PickOneElement", vcPayload);
    EXPECT_EQ(z.m_iReturn, 0);
    EXPECT_EQ(z.m_iStatus, 0);
    EXPECT_EQ(zRuntime.m_vzSent.back().m_vcPayload, vcPayload);
  }
}

TEST(DorRelayDispatch, APickWithATailOnAModelInReadingGivesMinus1) {
  FakeRuntime zRuntime;
  Dispatch(u"DorHandler_ReadDor", PathPayload(u"a.kiv"));
  KivByteBuffer vcPayload = ModelPayload(0);
  vcPayload.push_back(1);
  const Dispatched z = Dispatch(u"DorHandler_PickOneElement", vcPayload);
  EXPECT_EQ(z.m_iReturn, 0);
  EXPECT_EQ(z.m_iStatus, -1);
}

TEST(DorRelayDispatch, APickOnAFailedModelPassesWithoutATailAndEndsTheRelayWithOne) {
  FakeRuntime zRuntime;
  const int64_t iModelId = OpenModel(1);
  EXPECT_EQ(Dispatch(u"DorHandler_PickOneElement", ModelPayload(iModelId)).m_iStatus, 2);
  KivByteBuffer vcPayload = ModelPayload(iModelId);
  vcPayload.push_back(1);
  ExpectBroken(u"DorHandler_PickOneElement", vcPayload);
}

TEST(DorRelayDispatch, APickWithoutAChildPassesWithoutATailAndEndsTheRelayWithOne) {
  FakeRuntime zRuntime;
  const int64_t iModelId = OpenModel();
  DorRelay_FindModel(iModelId)->m_iChildPid = 0;
  EXPECT_EQ(Dispatch(u"DorHandler_PickOneElement", ModelPayload(iModelId)).m_iStatus, 1);
  KivByteBuffer vcPayload = ModelPayload(iModelId);
  vcPayload.push_back(1);
  ExpectBroken(u"DorHandler_PickOneElement", vcPayload);
}

TEST(DorRelayForward, TheStatusOfTheChildIsMappedOn64Bits) {
  struct Case {
    int64_t m_iChild;
    int32_t m_iClient;
  };
  for (const Case& z : {Case{0, 0}, Case{999, 999}, Case{1999, 1999}, Case{1, 4}, Case{-1, 4}, Case{4, 4},
                        Case{int64_t{1} << 32, 4}, Case{(int64_t{1} << 32) + 999, 4}}) {
    FakeRuntime zRuntime;
    zRuntime.m_dqReplies = {{0, z.m_iChild, {1, 2}}};
    int32_t iStatus = 77;
    KivByteBuffer vcResult{5};
    DorRelay_Forward(100, u"DorHandler_Undo", {}, iStatus, vcResult);
    EXPECT_EQ(iStatus, z.m_iClient);
    EXPECT_EQ(vcResult, z.m_iChild == 0 ? (KivByteBuffer{1, 2}) : KivByteBuffer());
  }
}

TEST(DorRelayForward, AnAnswerOf999GoesToTheClientWithoutPayloadAndTheRelayGoesOn) {
  FakeRuntime zRuntime;
  const int64_t iModelId = OpenModel();
  zRuntime.m_dqReplies = {{0, 999, {1, 2}}, {0, 0, {3}}};
  const Dispatched z = Dispatch(u"DorHandler_DoNothing", ModelPayload(iModelId));
  EXPECT_EQ(z.m_iReturn, 0);
  EXPECT_EQ(z.m_iStatus, 999);
  EXPECT_TRUE(z.m_vcResult.empty());
  EXPECT_EQ(Dispatch(u"DorHandler_DoNothing", ModelPayload(iModelId)).m_vcResult, (KivByteBuffer{3}));
}

TEST(DorRelayForward, ABusyChannelIsTriedOnceMoreAndThenGivesStatus3) {
  FakeRuntime zRuntime;
  const int64_t iModelId = OpenModel();
  zRuntime.m_dqReplies = {{-10, 0, {}}, {0, 0, {3}}};
  EXPECT_EQ(Dispatch(u"DorHandler_DoNothing", ModelPayload(iModelId)).m_iStatus, 0);
  EXPECT_EQ(zRuntime.m_nYields, 1);
  zRuntime.m_dqReplies = {{-20, 0, {}}, {-20, 0, {}}, {0, 0, {}}};
  EXPECT_EQ(Dispatch(u"DorHandler_DoNothing", ModelPayload(iModelId)).m_iStatus, 3);
  EXPECT_EQ(zRuntime.m_nYields, 2);
  EXPECT_EQ(zRuntime.m_dqReplies.size(), 1u);
}

TEST(DorRelayForward, AFailedExchangeGivesStatus3WithoutARetry) {
  FakeRuntime zRuntime;
  for (int32_t iResult : {1, 10, 12, 40}) {
    zRuntime.m_dqReplies = {{iResult, 0, {1}}};
    int32_t iStatus = 0;
    KivByteBuffer vcResult;
    DorRelay_Forward(100, u"DorHandler_Undo", {}, iStatus, vcResult);
    EXPECT_EQ(iStatus, 3);
    EXPECT_TRUE(vcResult.empty());
  }
  EXPECT_EQ(zRuntime.m_nYields, 0);
}
