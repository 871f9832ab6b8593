#include <gtest/gtest.h>

#include "KivDataSpaceBase.h"
#include "KivPositionTableManager.h"
#include "KivSysFolder.h"
#include "KivTestStore.h"

namespace {

using namespace kiv;
using namespace kivtest;

std::string Numbered(std::string strText, int i) {
  strText += std::to_string(i);
  return strText;
}

struct UndoListener : KivDataSpaceListener {
  bool SnapShotCreated() override { return Note("created"); }
  bool Undone(int32_t iSteps) override { return Note(Numbered("undone ", iSteps)); }
  bool Redone(int32_t iSteps) override { return Note(Numbered("redone ", iSteps)); }
  bool Note(const std::string& strCall) {
    m_vstrCall.push_back(strCall);
    return m_bAnswer;
  }
  bool m_bAnswer = true;
  std::vector<std::string> m_vstrCall;
};

class SnapShots : public StoreTest, public testing::WithParamInterface<std::tuple<bool, int>> {
 protected:
  bool Tables() const { return std::get<0>(GetParam()); }
  int32_t Limit() const { return std::get<1>(GetParam()); }

  // A file with one note in it, opened for reading.
  void OpenModel() {
    m_csPath = MakeFile(u"a.kiv", Tables());
    KivModelStatusBase* pzModel = Open(m_csPath, true);
    const uint64_t iPosition = AddNote(pzModel, "file").GetPosition();
    Close(pzModel);
    m_pzModel = Open(m_csPath, false, Limit());
    m_zNote = KivOutOfCoreHandle(m_pzModel->GetKey(), iPosition);
  }
  // Texts of the same length stay in place, so that the handle is good in every state.
  void Write(const char* szText) { ASSERT_TRUE(SetText(m_zNote, szText)); }
  std::string Read() { return TextOf(m_zNote); }
  void Snap() { ASSERT_EQ(Space().CreateSnapShot(), KivCreateSnapShotResult::Done); }
  // States 0 to n-1 with a snapshot of each, then a change behind the last one.
  void MakeHistory(int n) {
    for (int i = 0; i < n; ++i) {
      Write(Numbered("st-", i).c_str());
      Snap();
    }
    Write("last");
  }
  KivUndoResult Undo(int n) { return Space().UndoSnapShot(n); }
  KivRedoResult Redo(int n) { return Space().RedoSnapShot(n); }

  KivWString m_csPath;
  KivModelStatusBase* m_pzModel = nullptr;
  KivOutOfCoreHandle m_zNote;
};

INSTANTIATE_TEST_SUITE_P(All, SnapShots, testing::Combine(testing::Bool(), testing::Values(1, 2, 20)),
                         [](const auto& zInfo) {
                           return Numbered(std::get<0>(zInfo.param) ? "KeyedLimit" : "PlainLimit",
                                           std::get<1>(zInfo.param));
                         });

TEST_P(SnapShots, UndoOfOneStepRightAfterASnapshotRestoresThatSnapshot) {
  OpenModel();
  MakeHistory(2);
  EXPECT_EQ(Undo(1), KivUndoResult::Done);
  EXPECT_EQ(Read(), "st-1");
  EXPECT_EQ(Space().GetCurBaseSnapShot(), 1);
}

TEST_P(SnapShots, UndoOfTwoStepsGoesOneFurther) {
  OpenModel();
  MakeHistory(3);
  EXPECT_EQ(Undo(2), KivUndoResult::Done);
  EXPECT_EQ(Read(), "st-1");
  EXPECT_EQ(Space().GetCurBaseSnapShot(), 1);
}

TEST_P(SnapShots, UndoBeyondTheFirstEntryStopsThere) {
  OpenModel();
  MakeHistory(3);
  UndoListener zListener;
  Space().AddListener(&zListener);
  EXPECT_EQ(Undo(100), KivUndoResult::Done);
  Space().RemoveListener(&zListener);
  EXPECT_EQ(Read(), "st-0");
  EXPECT_EQ(Space().GetCurBaseSnapShot(), 0);
  EXPECT_EQ(zListener.m_vstrCall, (std::vector<std::string>{"undone 3"}));
}

TEST_P(SnapShots, TheSameSnapshotIsRestoredAnyNumberOfTimes) {
  OpenModel();
  MakeHistory(2);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(Undo(1), KivUndoResult::Done);
    EXPECT_EQ(Read(), "st-1");
    Write("more");
  }
}

TEST_P(SnapShots, ADiscardedEntryEndsTheStepsAndIsSkippedByTheWalk) {
  OpenModel();
  MakeHistory(4);
  EXPECT_EQ(Space().DiscardSnapShots(2), 2);
  EXPECT_EQ(Space().GetUndoNum(), 2);
  EXPECT_EQ(Undo(100), KivUndoResult::Done);
  EXPECT_EQ(Read(), "st-2");
  EXPECT_EQ(Space().GetCurBaseSnapShot(), 2);
}

TEST_P(SnapShots, AWalkThatStartsAtADiscardedEntryGivesTwenty) {
  OpenModel();
  MakeHistory(1);
  ASSERT_TRUE(Space().DiscardAllSnapShots());
  Space().m_iCurBaseSnapShot = 0;  // no operation leads there
  EXPECT_REPORT(Undo(1), "0");
  EXPECT_FALSE(Space().m_bDiscardingSnapShot);
  {
    const NoThrowScope zNoThrow;
    EXPECT_EQ(Undo(1), KivUndoResult::EntryDiscarded);
  }
  Space().m_iCurBaseSnapShot = -1;
  EXPECT_EQ(Read(), "last");
}

TEST_P(SnapShots, APlaceOutsideTheHistoryGivesTen) {
  OpenModel();
  MakeHistory(1);
  Space().m_iCurBaseSnapShot = 1;
  EXPECT_REPORT(Undo(1), "m_iCurBaseSnapShot < static_cast<long>(m_vpSnapShotData.size())");
  {
    const NoThrowScope zNoThrow;
    EXPECT_EQ(Undo(1), KivUndoResult::OutsideHistory);
  }
  Space().m_iCurBaseSnapShot = 0;
}

TEST_P(SnapShots, AfterAnUndoTheEntriesBehindCanBeRedone) {
  OpenModel();
  MakeHistory(4);
  EXPECT_EQ(Space().GetRedoNum(), 0);
  EXPECT_EQ(Undo(3), KivUndoResult::Done);
  EXPECT_EQ(Space().GetRedoNum(), 2);
  EXPECT_EQ(Space().GetRedoEntryNum(), 2);
  EXPECT_EQ(Space().GetUndoNum(), 2);
  UndoListener zListener;
  Space().AddListener(&zListener);
  EXPECT_EQ(Redo(1), KivRedoResult::Done);
  EXPECT_EQ(Read(), "st-2");
  EXPECT_EQ(Redo(5), KivRedoResult::Done);  // capped
  Space().RemoveListener(&zListener);
  EXPECT_EQ(Read(), "st-3");
  EXPECT_EQ(Space().GetRedoNum(), 0);
  EXPECT_EQ(zListener.m_vstrCall, (std::vector<std::string>{"undone 1", "redone 1", "undone 1", "redone 1"}));
}

TEST_P(SnapShots, RedoDropsWhatWasChangedSinceTheUndo) {
  OpenModel();
  MakeHistory(3);
  EXPECT_EQ(Undo(2), KivUndoResult::Done);
  Write("lost");
  EXPECT_EQ(Redo(1), KivRedoResult::Done);
  EXPECT_EQ(Read(), "st-2");
}

TEST_P(SnapShots, ANewSnapshotCutsOffTheFuture) {
  OpenModel();
  MakeHistory(4);
  EXPECT_EQ(Undo(3), KivUndoResult::Done);
  Write("new!");
  Snap();
  EXPECT_EQ(Space().GetHistory().size(), 3U);
  EXPECT_EQ(Space().GetRedoNum(), 0);
  EXPECT_EQ(Redo(1), KivRedoResult::Done);
  EXPECT_EQ(Read(), "new!");
  EXPECT_EQ(Undo(2), KivUndoResult::Done);
  EXPECT_EQ(Read(), "st-1");
}

TEST_P(SnapShots, NothingHappensWithoutHistoryOrSteps) {
  OpenModel();
  EXPECT_EQ(Undo(1), KivUndoResult::Done);
  EXPECT_EQ(Redo(1), KivRedoResult::Done);
  EXPECT_EQ(Space().GetUndoNum(), 0);
  EXPECT_EQ(Space().GetRedoNum(), 0);
  MakeHistory(1);
  EXPECT_EQ(Undo(0), KivUndoResult::Done);
  EXPECT_EQ(Read(), "last");
}

TEST_P(SnapShots, AModelAddedOrRemovedDiscardsTheWholeHistory) {
  OpenModel();
  MakeHistory(3);
  EXPECT_EQ(Undo(2), KivUndoResult::Done);
  KivModelStatusBase* pzOther = Open(MakeFile(u"other.kiv"), false);
  EXPECT_EQ(Space().GetCurBaseSnapShot(), -1);
  EXPECT_EQ(Space().GetUndoNum(), 0);
  EXPECT_EQ(Read(), "st-1");
  MakeHistory(2);
  Close(pzOther);
  EXPECT_EQ(Space().GetUndoNum(), 0);
  EXPECT_EQ(Read(), "last");
  MakeHistory(2);
  EXPECT_EQ(Undo(2), KivUndoResult::Done);
  EXPECT_EQ(Read(), "st-0");
}

TEST_P(SnapShots, AfterAllAreDiscardedRedoCountsTheNullPlacesAndChangesNothing) {
  OpenModel();
  MakeHistory(2);
  ASSERT_TRUE(Space().DiscardAllSnapShots());
  EXPECT_EQ(Space().GetRedoNum(), 2);
  EXPECT_EQ(Space().GetRedoEntryNum(), 0);
  EXPECT_REPORT(Redo(1), "0");
  EXPECT_FALSE(Space().m_bDiscardingSnapShot);
  {
    const NoThrowScope zNoThrow;
    EXPECT_EQ(Redo(1), KivRedoResult::NoEntry);
    EXPECT_EQ(Redo(2), KivRedoResult::NoEntry);
  }
  EXPECT_EQ(Space().GetCurBaseSnapShot(), -1);
  EXPECT_EQ(Read(), "last");
  Snap();
  EXPECT_EQ(Space().GetHistory().size(), 1U);
}

TEST_P(SnapShots, ChangesThatWereNotStoredYetAreInTheSnapshot) {
  OpenModel();
  Write("old!");
  m_zNote.Fetch<TestNote>()->GetMemoryBlockForWrite()->m_strText = "new!";
  Snap();
  Write("last");
  EXPECT_EQ(Undo(1), KivUndoResult::Done);
  EXPECT_EQ(Read(), "new!");
}

TEST_P(SnapShots, ChangesThatWereNotStoredYetGoWithAnUndo) {
  OpenModel();
  Write("snap");
  Snap();
  const int iSaves = TestCounts().m_iSaves;
  m_zNote.Fetch<TestNote>()->GetMemoryBlockForWrite()->m_strText = "gone";
  EXPECT_EQ(Undo(1), KivUndoResult::Done);
  EXPECT_EQ(TestCounts().m_iSaves, iSaves);
  EXPECT_EQ(Read(), "snap");
}

TEST_P(SnapShots, NoElementSurvivesAnUndo) {
  OpenModel();
  MakeHistory(1);
  Read();
  EXPECT_GT(TestCounts().m_iObjects, 0);
  EXPECT_EQ(Undo(1), KivUndoResult::Done);
  EXPECT_EQ(TestCounts().m_iObjects, 0);
  EXPECT_EQ(ManagerOf(m_pzModel)->GetKnownElementNum(), 0U);
  EXPECT_EQ(ManagerOf(m_pzModel)->GetActiveElementNum(), 0U);
}

TEST_P(SnapShots, AnObjectOfSomebodyElsesIsInactiveAfterAnUndo) {
  OpenModel();
  MakeHistory(1);
  TestNote zMine(m_pzModel->GetKey());
  zMine.GetMemoryBlockForWrite()->m_strText = "mine";
  EXPECT_EQ(Undo(1), KivUndoResult::Done);
  EXPECT_FALSE(zMine.IsActive());
  EXPECT_FALSE(zMine.HasBlock());
  EXPECT_EQ(Read(), "st-0");
}

TEST_P(SnapShots, NewAndDeletedAndMovedElementsComeAndGo) {
  OpenModel();
  const KivOutOfCoreHandle zKept = AddNote(m_pzModel, "kept");
  Snap();
  KivOutOfCoreHandle zGrown = zKept;
  ASSERT_TRUE(SetText(zGrown, std::string(200000, 'g')));
  const KivOutOfCoreHandle zNew = AddNote(m_pzModel, "new");
  KivOutOfCoreHandle zGone = m_zNote;
  ASSERT_TRUE(zGone.Delete());
  Snap();
  EXPECT_EQ(Undo(2), KivUndoResult::Done);
  EXPECT_EQ(TextOf(zKept), "kept");
  EXPECT_EQ(Read(), "file");
  if (Tables()) {
    EXPECT_REPORT(TextOf(zNew), "0");  // its key was never issued
  } else {
    EXPECT_EQ(TextOf(zNew), "kept");  // stood where the grown one had been
  }
  const KivContainerCheck zBack = ManagerOf(m_pzModel)->GetContainer()->FullCheck();
  EXPECT_TRUE(zBack.IsSound()) << zBack.GetText();
  EXPECT_EQ(Redo(1), KivRedoResult::Done);
  EXPECT_EQ(TextOf(zGrown), std::string(200000, 'g'));
  EXPECT_EQ(TextOf(zNew), "new");
  const KivContainerCheck zAgain = ManagerOf(m_pzModel)->GetContainer()->FullCheck();
  EXPECT_TRUE(zAgain.IsSound()) << zAgain.GetText();
}

TEST_P(SnapShots, AKeyedModelWhoseKeysWereNeverUsedIsSnapshotted) {
  OpenModel();
  Snap();
  EXPECT_EQ(Undo(1), KivUndoResult::Done);
  EXPECT_EQ(Read(), "file");
}

TEST_P(SnapShots, SettingsAndFlagsAreRestored) {
  OpenModel();
  Space().SetSetting1(11);
  Space().SetSettings({{1, 2, 3}});
  m_pzModel->m_bChanged = true;
  m_pzModel->m_vcFlags[9] = 4;
  Snap();
  Space().SetSetting1(12);
  Space().SetSettings({{4}});
  m_pzModel->m_bChanged = false;
  m_pzModel->m_vcFlags[9] = 5;
  EXPECT_EQ(Undo(1), KivUndoResult::Done);
  EXPECT_EQ(Space().m_iSetting1, 11U);
  EXPECT_EQ(Space().m_zSettings.m_vcApplicationData, (std::vector<uint8_t>{1, 2, 3}));
  EXPECT_TRUE(m_pzModel->m_bChanged);
  EXPECT_EQ(m_pzModel->m_vcFlags[9], 4);
}

TEST_P(SnapShots, SeveralModelsGoBackTogether) {
  OpenModel();
  KivModelStatusBase* pzOther = Open(MakeFile(u"other.kiv", Tables()), false, Limit());
  KivOutOfCoreHandle zOther = AddNote(pzOther, "one");
  Write("one!");
  Snap();
  ASSERT_TRUE(SetText(zOther, "two"));
  Write("two!");
  EXPECT_EQ(Undo(1), KivUndoResult::Done);
  EXPECT_EQ(TextOf(zOther), "one");
  EXPECT_EQ(Read(), "one!");
}

TEST_P(SnapShots, DiscardSnapShotsTakesTheOldestBeforeThePresentOne) {
  OpenModel();
  MakeHistory(5);
  EXPECT_EQ(Undo(3), KivUndoResult::Done);  // at 2
  EXPECT_EQ(Space().DiscardSnapShots(1), 1);
  EXPECT_EQ(Space().GetHistory()[0], nullptr);
  EXPECT_EQ(Space().DiscardSnapShots(10), 1);
  EXPECT_EQ(Space().DiscardSnapShots(10), 0);
  EXPECT_EQ(Space().GetUndoNum(), 1);
  EXPECT_EQ(Space().GetRedoNum(), 2);
  EXPECT_EQ(Read(), "st-2");
  EXPECT_EQ(Redo(2), KivRedoResult::Done);
  EXPECT_EQ(Read(), "st-4");
  EXPECT_EQ(Undo(10), KivUndoResult::Done);
  EXPECT_EQ(Read(), "st-2");
}

TEST_P(SnapShots, AListenerThatAnswersFalseGivesTheLastCode) {
  OpenModel();
  MakeHistory(2);
  UndoListener zListener;
  zListener.m_bAnswer = false;
  Space().AddListener(&zListener);
  EXPECT_REPORT(Undo(1), "0");
  EXPECT_FALSE(Space().m_bDiscardingSnapShot);
  {
    const NoThrowScope zNoThrow;
    EXPECT_EQ(Undo(2), KivUndoResult::ListenerFailed);
    // The undo inside a redo has failed by its listener.
    EXPECT_EQ(Redo(1), KivRedoResult::NoEntry);
    EXPECT_EQ(Space().CreateSnapShot(), KivCreateSnapShotResult::Failed);
  }
  Space().RemoveListener(&zListener);
  EXPECT_EQ(Read(), "st-0");
}

TEST_P(SnapShots, AModelThatIsChangedInPlaceHasNoSnapshot) {
  OpenModel();
  Close(m_pzModel);
  KivModelStatusBase* pzModel = Open(m_csPath, true, Limit());
  EXPECT_REPORT(Space().CreateSnapShot(), "0");
  EXPECT_EQ(Space().GetCurBaseSnapShot(), -1);
  EXPECT_TRUE(Space().GetHistory().empty());
  const NoThrowScope zNoThrow;
  EXPECT_EQ(Space().CreateSnapShot(), KivCreateSnapShotResult::Done);
  EXPECT_EQ(Undo(1), KivUndoResult::NotRestored);
  Close(pzModel);
}

TEST_P(SnapShots, TheInvariantsOfModelAndCopyAreReported) {
  OpenModel();
  MakeHistory(1);
  KivModelStatusBase& zModel = *m_pzModel;
  const auto Broken = [&](auto&& breakIt, auto&& mend) {
    breakIt();
    const KivWString csReport = ReportOf([&] { Undo(1); });
    mend();
    return csReport;
  };
  const KivWString csPath = zModel.m_csRootKivFile;
  EXPECT_EQ(Broken([&] { zModel.m_csRootKivFile = KivWString(1, u'x'); }, [&] { zModel.m_csRootKivFile = csPath; }),
            u"m_csRootKivFile == pUndo->m_csRootKivFile");
  EXPECT_EQ(Broken([&] { zModel.m_iDorRelayID = 1; }, [&] { zModel.m_iDorRelayID = 0xFFFFFFFF; }),
            u"m_iDorRelayID == pUndo->m_iDorRelayID");
  const auto pfnGet = zModel.m_vvpfnGetAllPosition[7][kTestNoteIndex];
  EXPECT_EQ(Broken([&] { zModel.m_vvpfnGetAllPosition[7][kTestNoteIndex] = nullptr; },
                   [&] { zModel.m_vvpfnGetAllPosition[7][kTestNoteIndex] = pfnGet; }),
            u"m_vvpfnGetAllPosition == pUndo->m_vvpfnGetAllPosition");
  const auto pfnReplace = zModel.m_vvpfnReplaceAllPosition[7][kTestNoteIndex];
  EXPECT_EQ(Broken([&] { zModel.m_vvpfnReplaceAllPosition[7][kTestNoteIndex] = nullptr; },
                   [&] { zModel.m_vvpfnReplaceAllPosition[7][kTestNoteIndex] = pfnReplace; }),
            u"m_vvpfnReplaceAllPosition == pUndo->m_vvpfnReplaceAllPosition");
  const auto pfnMake = zModel.m_vpfnGetOutOfCoreData[kTestNoteIndex];
  EXPECT_EQ(Broken([&] { zModel.m_vpfnGetOutOfCoreData[kTestNoteIndex] = nullptr; },
                   [&] { zModel.m_vpfnGetOutOfCoreData[kTestNoteIndex] = pfnMake; }),
            u"m_vpfnGetOutOfCoreData == pUndo->m_vpfnGetOutOfCoreData");
  const uint32_t iKey = zModel.GetKey();
  EXPECT_EQ(Broken([&] { KivOutOfCoreManager::SetMaxActiveOutOfCoreElement(iKey, Limit() + 1); },
                   [&] { KivOutOfCoreManager::SetMaxActiveOutOfCoreElement(iKey, Limit()); }),
            u"pOriginal->m_iMaxActiveOutOfCoreElement == pUndo->m_iMaxActiveOutOfCoreElement");
  EXPECT_FALSE(Space().m_bDiscardingSnapShot);
  EXPECT_EQ(Undo(1), KivUndoResult::Done);
  EXPECT_EQ(Read(), "st-0");
}

TEST_P(SnapShots, ARestoreToldApart) {
  OpenModel();
  MakeHistory(1);
  EXPECT_REPORT(Space().RestoreFromSnapShot(nullptr), "0");
  const NoThrowScope zNoThrow;
  EXPECT_EQ(Space().RestoreFromSnapShot(nullptr), KivRestoreSnapShotResult::NoEntry);
}

// --- Saving ---------------------------------------------------------------------------------------------------------

TEST_P(SnapShots, TheDataSpaceSavesAModelAsAContainerOfItsOwn) {
  OpenModel();
  Write("save");
  const KivWString csSaved = m_zFolder / u"saved.kiv";
  EXPECT_EQ(Space().SaveSnapShot(m_pzModel, csSaved, 0), KivSaveSnapShotResult::Done);
  EXPECT_TRUE(Space().SaveSnapShotComplete(m_pzModel, csSaved));
  KivModelStatusBase* pzSaved = Open(csSaved, false);
  EXPECT_EQ(TextOf(KivOutOfCoreHandle(pzSaved->GetKey(), m_zNote.GetPosition())), "save");
}

TEST_P(SnapShots, SavingWorksRightAfterAnUndo) {
  OpenModel();
  Write("snap");
  AddNote(m_pzModel, std::string(300000, 'x'));
  Snap();
  AddNote(m_pzModel, std::string(300000, 'y'));
  EXPECT_EQ(Undo(1), KivUndoResult::Done);
  const KivWString csSaved = m_zFolder / u"saved.kiv";
  EXPECT_EQ(Space().SaveSnapShot(m_pzModel, csSaved, 0), KivSaveSnapShotResult::Done);
  KivModelStatusBase* pzSaved = Open(csSaved, false);
  EXPECT_EQ(TextOf(KivOutOfCoreHandle(pzSaved->GetKey(), m_zNote.GetPosition())), "snap");
  const KivContainerCheck zCheck = ManagerOf(pzSaved)->GetContainer()->FullCheck();
  EXPECT_TRUE(zCheck.IsSound()) << zCheck.GetText();
}

TEST_P(SnapShots, AnEntryIsSavedInSlicesWhileWorkGoesOn) {
  OpenModel();
  Write("snap");
  AddNote(m_pzModel, std::string(2000000, 'x'));
  Snap();
  const KivWString csSaved = m_zFolder / u"saved.kiv";
  KivDataSpaceBase* pzEntry = Space().GetHistory()[0];
  int iCalls = 0;
  for (; !pzEntry->SaveSnapShotComplete(m_pzModel, csSaved) && iCalls < 100; ++iCalls) {
    ASSERT_EQ(pzEntry->SaveSnapShot(m_pzModel, csSaved, 1), KivSaveSnapShotResult::Done);
    Write("work");
  }
  EXPECT_GT(iCalls, 2);
  EXPECT_TRUE(pzEntry->SaveSnapShotComplete(m_pzModel, csSaved));
  EXPECT_EQ(Undo(1), KivUndoResult::Done);
  EXPECT_EQ(Read(), "snap");
  KivModelStatusBase* pzSaved = Open(csSaved, false);
  EXPECT_EQ(TextOf(KivOutOfCoreHandle(pzSaved->GetKey(), m_zNote.GetPosition())), "snap");
}

TEST_P(SnapShots, ADeadlineIsIllegalOutsideTheHistory) {
  OpenModel();
  const KivWString csSaved = m_zFolder / u"saved.kiv";
  EXPECT_REPORT(Space().SaveSnapShot(m_pzModel, csSaved, 5), "0");
  const NoThrowScope zNoThrow;
  EXPECT_EQ(Space().SaveSnapShot(m_pzModel, csSaved, 5), KivSaveSnapShotResult::NotAllowed);
  EXPECT_FALSE(Space().SaveSnapShotComplete(m_pzModel, csSaved));
}

TEST_P(SnapShots, ASaveThatIsCancelledLeavesNoFile) {
  OpenModel();
  AddNote(m_pzModel, std::string(2000000, 'x'));
  Snap();
  const KivWString csSaved = m_zFolder / u"saved.kiv";
  KivDataSpaceBase* pzEntry = Space().GetHistory()[0];
  ASSERT_EQ(pzEntry->SaveSnapShot(m_pzModel, csSaved, 1), KivSaveSnapShotResult::Done);
  EXPECT_TRUE(sys::PathExists(csSaved));
  pzEntry->CancelSaveSnapShot(m_pzModel, csSaved);
  EXPECT_FALSE(sys::PathExists(csSaved));
  EXPECT_FALSE(pzEntry->SaveSnapShotComplete(m_pzModel, csSaved));
}

TEST_P(SnapShots, AnExistingFileIsNotOverwritten) {
  OpenModel();
  const KivWString csSaved = m_zFolder / u"saved.kiv";
  PutFileBytes(csSaved, "mine");
  const NoThrowScope zNoThrow;
  EXPECT_EQ(Space().SaveSnapShot(m_pzModel, csSaved, 0), KivSaveSnapShotResult::NotCopied);
  EXPECT_EQ(FileBytes(csSaved), "mine");
}

TEST_P(SnapShots, TheFilesOfEntriesAreListedByPlace) {
  OpenModel();
  EXPECT_REPORT(Space().SetSnapShotFile(u"none"), "0");
  {
    const NoThrowScope zNoThrow;
    Space().SetSnapShotFile(u"none");
  }
  MakeHistory(2);
  Space().SetSnapShotFile(u"second");
  EXPECT_EQ(Undo(2), KivUndoResult::Done);
  Space().SetSnapShotFile(u"first");
  std::vector<KivWString> vcsPath;
  int32_t iCurrent = -1;
  Space().GetSnapShotFiles(vcsPath, iCurrent);
  EXPECT_EQ(vcsPath, (std::vector<KivWString>{u"first", u"second"}));
  EXPECT_EQ(iCurrent, 0);
}

}  // namespace
