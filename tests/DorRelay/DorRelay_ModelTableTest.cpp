#include <gtest/gtest.h>

#include <map>

#include "DorRelay.h"
#include "DorRelayFake.h"
#include "KivSysProcess.h"

using namespace kiv;
using namespace kivtest;

namespace {

// How an answer ends that the relay cannot take: by a report; where reports return, by a close-down.
void ExpectFatalAnswer(int32_t iStatus, const KivByteBuffer& vcAnswer) {
  EXPECT_THROW(DorRelay_OnAnswer(iStatus, vcAnswer), KivException);
  NoThrowScope zNoThrow;
  try {
    DorRelay_OnAnswer(iStatus, vcAnswer);
    ADD_FAILURE() << "no close-down";
  } catch (const ClosedDown& zEnd) {
    EXPECT_EQ(zEnd.m_iStatus, 999);
  }
}

void ExpectFatalPoll() {
  const std::list<DorModelRecord> lstBefore = DorRelay_ModelTable();
  EXPECT_THROW(DorRelay_Poll(), KivException);
  DorRelay_ModelTable() = lstBefore;
  NoThrowScope zNoThrow;
  try {
    DorRelay_Poll();
    ADD_FAILURE() << "no close-down";
  } catch (const ClosedDown& zEnd) {
    EXPECT_EQ(zEnd.m_iStatus, 999);
  }
}

}  // namespace

TEST(DorRelayTable, TickAlwaysGoesOn) {
  EXPECT_EQ(DorRelay_Tick(), 0);
}

TEST(DorRelayTable, TheChildIsGivenTheModelsIdPathAnd0) {
  FakeRuntime zRuntime;
  Dispatch(u"DorHandler_ReadDor", PathPayload(u"first.kiv"));
  EXPECT_EQ(DorRelay_Poll(), 0);
  EXPECT_EQ(zRuntime.m_vcsStarted, (std::vector<KivWString>{u"handler"}));
  ASSERT_EQ(zRuntime.m_vzPosted.size(), 1u);
  EXPECT_EQ(zRuntime.m_vzPosted[0].m_iChildPid, 100);
  EXPECT_EQ(zRuntime.m_vzPosted[0].m_csName, u"DorHandler_ReadDor");
  KivByteBuffer vcExpected = ModelPayload(0);
  KivPutString(vcExpected, u"first.kiv");
  KivPutInt64(vcExpected, 0);
  EXPECT_EQ(zRuntime.m_vzPosted[0].m_vcPayload, vcExpected);
  EXPECT_EQ(DorRelay_GetChildPid(0), 100);
  EXPECT_FALSE(DorRelay_IsModelReady(0));
}

TEST(DorRelayTable, TwoQuickReadsStartTwoChildrenOnTwoPollsInOrderOfArrival) {
  FakeRuntime zRuntime;
  Dispatch(u"DorHandler_ReadDor", PathPayload(u"a.kiv"));
  Dispatch(u"DorHandler_ReadDor", PathPayload(u"b.kiv"));
  DorRelay_Poll();
  EXPECT_EQ(zRuntime.m_vcsStarted.size(), 1u);
  EXPECT_EQ(DorRelay_GetChildPid(0), 100);
  EXPECT_EQ(DorRelay_GetChildPid(1), 0);
  DorRelay_Poll();
  EXPECT_EQ(zRuntime.m_vcsStarted.size(), 2u);
  EXPECT_EQ(DorRelay_GetChildPid(1), 101);
  DorRelay_Poll();
  EXPECT_EQ(zRuntime.m_vcsStarted.size(), 2u);
}

TEST(DorRelayTable, AClearBeforeThePollGoesOutOnlyAfterTheReadsAnswer) {
  FakeRuntime zRuntime;
  Dispatch(u"DorHandler_ReadDor", PathPayload(u"a.kiv"));
  Dispatch(u"DorHandler_ClearModel", ModelPayload(0));
  DorRelay_Poll();
  DorRelay_Poll();
  DorRelay_Poll();
  ASSERT_EQ(zRuntime.m_vzPosted.size(), 1u);
  DorRelay_OnAnswer(0, ChildAnswer(0, u"DorHandler_ReadDor"));
  EXPECT_TRUE(DorRelay_IsModelReady(0));
  DorRelay_Poll();
  ASSERT_EQ(zRuntime.m_vzPosted.size(), 2u);
  EXPECT_EQ(zRuntime.m_vzPosted[1].m_csName, u"DorHandler_ClearModel");
  EXPECT_EQ(zRuntime.m_vzPosted[1].m_iChildPid, 100);
  EXPECT_EQ(zRuntime.m_vzPosted[1].m_vcPayload, ModelPayload(0));
  EXPECT_EQ(DorRelay_ModelTable().size(), 1u);                      // the model's own row stays until the answer
  DorRelay_OnAnswer(33, ChildAnswer(0, u"DorHandler_ClearModel"));  // the status does not matter
  EXPECT_TRUE(DorRelay_ModelTable().empty());
  EXPECT_EQ(zRuntime.m_viClosed, (std::vector<int32_t>{100}));
}

TEST(DorRelayTable, AClearOfAnUnknownIdStaysForGoodWithoutEffect) {
  FakeRuntime zRuntime;
  Dispatch(u"DorHandler_ClearModel", ModelPayload(7));
  for (int i = 0; i < 5; ++i) DorRelay_Poll();
  EXPECT_EQ(DorRelay_ModelTable().size(), 1u);
  EXPECT_TRUE(zRuntime.m_vzPosted.empty());
  const int64_t iModelId = OpenModel();  // later rows are served
  EXPECT_TRUE(DorRelay_IsModelReady(iModelId));
}

TEST(DorRelayTable, OfTwoClearsTheFirstRemovesTheModelAndTheSecondStays) {
  FakeRuntime zRuntime;
  const int64_t iModelId = OpenModel();
  Dispatch(u"DorHandler_ClearModel", ModelPayload(iModelId));
  Dispatch(u"DorHandler_ClearModel", ModelPayload(iModelId));
  for (int i = 0; i < 4; ++i) DorRelay_Poll();
  EXPECT_EQ(zRuntime.m_vzPosted.size(), 2u);  // the read and one clear; no post while it is with the child
  EXPECT_EQ(DorRelay_ModelTable().size(), 2u);
  DorRelay_OnAnswer(0, ChildAnswer(iModelId, u"DorHandler_ClearModel"));
  for (int i = 0; i < 4; ++i) DorRelay_Poll();
  EXPECT_EQ(zRuntime.m_vzPosted.size(), 2u);
  ASSERT_EQ(DorRelay_ModelTable().size(), 1u);
  EXPECT_EQ(DorRelay_ModelTable().front().m_csRequest, u"DorHandler_ClearModel");
  EXPECT_EQ(zRuntime.m_viClosed.size(), 1u);
}

TEST(DorRelayTable, AFailedReadKeepsItsChildUntilTheClear) {
  FakeRuntime zRuntime;
  const int64_t iModelId = OpenModel(5);
  EXPECT_TRUE(DorRelay_IsModelReady(iModelId));
  EXPECT_EQ(DorRelay_GetChildPid(iModelId), 100);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(Dispatch(u"DorHandler_Undo", MakePayload("mi", iModelId)).m_iStatus, 2);
  EXPECT_TRUE(zRuntime.m_viClosed.empty());
  Dispatch(u"DorHandler_ClearModel", ModelPayload(iModelId));
  DorRelay_Poll();
  DorRelay_OnAnswer(0, ChildAnswer(iModelId, u"DorHandler_ClearModel"));
  EXPECT_EQ(zRuntime.m_viClosed, (std::vector<int32_t>{100}));
  EXPECT_TRUE(DorRelay_ModelTable().empty());
}

TEST(DorRelayTable, ARequestWhileTheClearIsWithTheChildFindsTheChannelBusyAndGivesStatus3) {
  FakeRuntime zRuntime;
  const int64_t iModelId = OpenModel();
  Dispatch(u"DorHandler_ClearModel", ModelPayload(iModelId));
  DorRelay_Poll();
  zRuntime.m_dqReplies = {{-10, 0, {}}, {-10, 0, {}}};
  EXPECT_EQ(Dispatch(u"DorHandler_DoNothing", ModelPayload(iModelId)).m_iStatus, 3);
}

TEST(DorRelayTable, AnAnswerOfAnotherNameIsIgnoredButMustParse) {
  FakeRuntime zRuntime;
  const int64_t iModelId = OpenModel();
  EXPECT_EQ(DorRelay_OnAnswer(0, ChildAnswer(iModelId, u"DorHandler_Undo")), 0);
  EXPECT_EQ(DorRelay_OnAnswer(0, ChildAnswer(4711, u"")), 0);
  ExpectFatalAnswer(0, {});
  const KivByteBuffer vcAnswer = ChildAnswer(iModelId, u"DorHandler_Undo");
  for (size_t n = 0; n < vcAnswer.size(); ++n)
    ExpectFatalAnswer(0, KivByteBuffer(vcAnswer.begin(), vcAnswer.begin() + static_cast<ptrdiff_t>(n)));
  KivByteBuffer vcLonger = vcAnswer;
  vcLonger.push_back(0);
  ExpectFatalAnswer(0, vcLonger);
}

TEST(DorRelayTable, AnAnswerForAnUnknownModelEndsTheRelay) {
  FakeRuntime zRuntime;
  OpenModel();
  ExpectFatalAnswer(0, ChildAnswer(1, u"DorHandler_ReadDor"));
  ExpectFatalAnswer(0, ChildAnswer(-1, u"DorHandler_ClearModel"));
}

TEST(DorRelayTable, AChildThatCannotBeStartedEndsTheRelay) {
  FakeRuntime zRuntime;
  Dispatch(u"DorHandler_ReadDor", PathPayload(u"a.kiv"));
  zRuntime.m_iStartResult = 94;
  ExpectFatalPoll();
}

TEST(DorRelayTable, AReadOrAClearThatCannotBePostedEndsTheRelay) {
  FakeRuntime zRuntime;
  Dispatch(u"DorHandler_ReadDor", PathPayload(u"a.kiv"));
  zRuntime.m_iPostResult = -10;
  ExpectFatalPoll();
  zRuntime.m_iPostResult = 0;
  DorRelay_ModelTable().clear();
  const int64_t iModelId = OpenModel();
  Dispatch(u"DorHandler_ClearModel", ModelPayload(iModelId));
  zRuntime.m_iPostResult = 30;
  ExpectFatalPoll();
}

TEST(DorRelayTable, AClearOfAModelWithoutAChildIsReportedAndItsRowRemoved) {
  FakeRuntime zRuntime;
  const int64_t iModelId = OpenModel();
  DorRelay_FindModel(iModelId)->m_iChildPid = 0;
  Dispatch(u"DorHandler_ClearModel", ModelPayload(iModelId));
  EXPECT_REPORT(DorRelay_Poll(), "0");
  EXPECT_EQ(DorRelay_ModelTable().size(), 2u);
  NoThrowScope zNoThrow;
  EXPECT_EQ(DorRelay_Poll(), 0);
  EXPECT_EQ(DorRelay_ModelTable().size(), 1u);
}

TEST(DorRelayTable, AChildThatCannotBeSentAwayIsReportedAndTheModelGoes) {
  FakeRuntime zRuntime;
  const int64_t iModelId = OpenModel();
  zRuntime.m_iCloseResult = -10;
  EXPECT_REPORT(DorRelay_OnAnswer(0, ChildAnswer(iModelId, u"DorHandler_ClearModel")), "iRc2 == 0");
  EXPECT_EQ(DorRelay_ModelTable().size(), 1u);
  NoThrowScope zNoThrow;
  EXPECT_EQ(DorRelay_OnAnswer(0, ChildAnswer(iModelId, u"DorHandler_ClearModel")), 0);
  EXPECT_TRUE(DorRelay_ModelTable().empty());
}

TEST(DorRelayTable, AnAnswerGoesToTheFirstRowOfItsIdWhateverItsRequest) {
  FakeRuntime zRuntime;
  Dispatch(u"DorHandler_ClearModel", ModelPayload(0));  // before the model exists
  Dispatch(u"DorHandler_ReadDor", PathPayload(u"a.kiv"));
  DorRelay_Poll();
  DorRelay_OnAnswer(0, ChildAnswer(0, u"DorHandler_ReadDor"));
  EXPECT_TRUE(DorRelay_ModelTable().front().m_bDone);
  EXPECT_FALSE(DorRelay_IsModelReady(0));
}

TEST(DorRelayTable, UnknownModelsAreNotReadyAndHaveNoChild) {
  EXPECT_FALSE(DorRelay_IsModelReady(3));
  EXPECT_EQ(DorRelay_GetChildPid(3), 0);
}

TEST(DorRelayTable, UniqueNamesHoldClockProcessIdAndARisingCounter) {
  const std::string strFirst = sys::WideToUtf8(DorRelay_MakeUniqueName());
  const std::string strSecond = sys::WideToUtf8(DorRelay_MakeUniqueName());
  const std::string strPid = "_" + std::to_string(sys::CurrentProcessNumber()) + "_";
  EXPECT_NE(strFirst.find(strPid + "1"), std::string::npos) << strFirst;
  EXPECT_NE(strSecond.find(strPid + "2"), std::string::npos) << strSecond;
}

TEST(DorRelayTable, RandomTransitionsKeepOneChildForEachModel) {
  // A naive model of the states beside the table: which ids are open, reading, closing.
  FakeRuntime zRuntime;
  uint64_t iSeed = 20240611;
  RecordProperty("seed", static_cast<int>(iSeed));
  const auto Random = [&](uint64_t n) {
    iSeed = iSeed * 6364136223846793005u + 1442695040888963407u;
    return (iSeed >> 33) % n;
  };
  enum State { Waiting, Reading, Open, Failed, Closing };
  struct Model {
    State m_iState = Waiting;
    bool m_bClearAsked = false;
    int32_t m_iChild = 0;
  };
  std::map<int64_t, Model> mapModels;
  for (int iStep = 0; iStep < 20000; ++iStep) {
    const uint64_t iAction = Random(10);
    if (iAction < 2 && mapModels.size() < 12) {
      const int64_t iId = g_iNextModelId;
      ASSERT_EQ(Dispatch(kDorReadDor, PathPayload(u"m")).m_vcResult, ModelPayload(iId));
      mapModels[iId] = Model();
    } else if (iAction < 5) {
      const size_t nPosted = zRuntime.m_vzPosted.size();
      DorRelay_Poll();
      ASSERT_LE(zRuntime.m_vzPosted.size(), nPosted + 1);
      for (size_t i = nPosted; i < zRuntime.m_vzPosted.size(); ++i) {
        uint64_t iCursor = 0;
        int64_t iId = 0;
        ASSERT_TRUE(KivGetInt64(iCursor, zRuntime.m_vzPosted[i].m_vcPayload, &iId));
        Model& zModel = mapModels.at(iId);
        if (zRuntime.m_vzPosted[i].m_csName == kDorReadDor) {
          ASSERT_EQ(zModel.m_iState, Waiting);
          zModel.m_iState = Reading;
          zModel.m_iChild = zRuntime.m_vzPosted[i].m_iChildPid;
        } else {
          ASSERT_TRUE(zModel.m_bClearAsked);
          ASSERT_TRUE(zModel.m_iState == Open || zModel.m_iState == Failed);
          ASSERT_EQ(zModel.m_iChild, zRuntime.m_vzPosted[i].m_iChildPid);
          zModel.m_iState = Closing;
        }
      }
    } else if (!mapModels.empty()) {
      auto it = std::next(mapModels.begin(), static_cast<ptrdiff_t>(Random(mapModels.size())));
      const int64_t iId = it->first;
      Model& zModel = it->second;
      if (iAction == 5 && (!zModel.m_bClearAsked || Random(4) == 0)) {
        // A second one never reaches the child: the model is closing, or gone, when its turn comes.
        ASSERT_EQ(Dispatch(kDorClearModel, ModelPayload(iId)).m_iStatus, 0);
        zModel.m_bClearAsked = true;
      } else if (iAction < 8 && zModel.m_iState == Reading) {
        const int32_t iStatus = Random(4) == 0 ? 1 : 0;
        DorRelay_OnAnswer(iStatus, ChildAnswer(iId, kDorReadDor));
        zModel.m_iState = iStatus == 0 ? Open : Failed;
      } else if (iAction < 8 && zModel.m_iState == Closing) {
        DorRelay_OnAnswer(0, ChildAnswer(iId, kDorClearModel));
        ASSERT_EQ(zRuntime.m_viClosed.back(), zModel.m_iChild);
        mapModels.erase(it);
      } else {
        const Dispatched z = Dispatch(kDorDoNothing, ModelPayload(iId));
        const int32_t iExpected = zModel.m_iState == Waiting || zModel.m_iState == Reading ? -1
                                  : zModel.m_iState == Failed                              ? 2
                                                                                           : 0;
        if (zModel.m_iState != Closing) {
          ASSERT_EQ(z.m_iStatus, iExpected);
        }
      }
    }
  }
}
