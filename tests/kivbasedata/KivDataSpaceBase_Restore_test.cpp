// Restores that fail or are reported, each with its code and text, and listeners that work on the store meanwhile.
#include <gtest/gtest.h>

#include <functional>

#include "KivDataSpaceBase.h"
#include "KivPositionTableManager.h"
#include "KivTestStore.h"

namespace kiv {

// The fields that nothing but a program error changes.
struct KivOutOfCoreTestAccess {
  static uint32_t& Key(KivOutOfCoreManager& z) { return z.m_iKey; }
  static KivWString& FileBase(KivOutOfCoreManager& z) { return z.m_strOutOfCoreFileBase; }
  static bool& Ver19Data(KivOutOfCoreManager& z) { return z.m_bVer19Data; }
  static KivPositionTableManager*& Tables(KivOutOfCoreMemoryStorage& z) { return z.m_pzPositionTableManager; }
  static KivSharedPtr<ISnapShotFile>& MainFile(KivOutOfCoreMemoryStorage& z) { return z.m_pzMainFile; }
  static KivSharedPtr<ISnapShotFile>& SubFile(KivOutOfCoreMemoryStorage& z) { return z.m_pzSubFile; }
  static KivStoreMode& Mode(KivOutOfCoreMemoryStorage& z) { return z.m_eMode; }
};

}  // namespace kiv

namespace {

using namespace kiv;
using namespace kivtest;
using Access = KivOutOfCoreTestAccess;

class Restore : public StoreTest, public testing::WithParamInterface<int> {
 protected:
  int32_t Limit() const { return GetParam(); }

  // A model with one note and two snapshots, "st-0" and "st-1", then "last".
  void MakeHistory() {
    m_csPath = MakeFile(u"a.kiv", true);
    m_pzModel = Open(m_csPath, false, Limit());
    m_zNote = AddNote(m_pzModel, "st-0");
    ASSERT_EQ(Space().CreateSnapShot(), KivCreateSnapShotResult::Done);
    ASSERT_TRUE(SetText(m_zNote, "st-1"));
    ASSERT_EQ(Space().CreateSnapShot(), KivCreateSnapShotResult::Done);
    ASSERT_TRUE(SetText(m_zNote, "last"));
  }
  KivDataSpaceBase* Entry(size_t i) { return Space().GetHistory()[i]; }
  KivModelStatusBase* CopyIn(size_t i) { return *Entry(i)->GetModels().begin(); }
  KivOutOfCoreManager& Manager() { return *m_pzModel->GetManager(); }
  KivOutOfCoreMemoryStorage& Storage() { return *Manager().GetStorage(); }
  // The report of an undo while a field holds another value.
  template <typename T, typename V>
  KivWString UndoWith(T& zField, V zValue) {
    const T zBefore = zField;
    zField = zValue;
    const KivWString csReport = ReportOf([&] { Space().UndoSnapShot(1); });
    zField = zBefore;
    EXPECT_FALSE(Space().m_bDiscardingSnapShot);
    return csReport;
  }
  void ExpectNothingDangles() {
    EXPECT_EQ(Manager().GetActiveElementNum(), 0U);
    EXPECT_EQ(Manager().GetKnownElementNum(), 0U);
    EXPECT_TRUE(KivOutOfCoreManager::DeactivateAll(m_pzModel->GetKey()));
    EXPECT_EQ(TextOf(m_zNote), "st-1");
  }

  KivWString m_csPath;
  KivModelStatusBase* m_pzModel = nullptr;
  KivOutOfCoreHandle m_zNote;
};

INSTANTIATE_TEST_SUITE_P(All, Restore, testing::Values(1, 2, 20), [](const auto& zInfo) {
  std::string strName = "Limit";
  strName += std::to_string(zInfo.param);
  return strName;
});

TEST_P(Restore, AReportBehindTheDestructionOfTheElementsLeavesNothingOnTheList) {
  for (const bool bThrows : {true, false})
    for (const int32_t iOther : {1, 2, 7}) {
      if (iOther == Limit()) continue;
      SCOPED_TRACE(iOther);
      MakeHistory();
      ASSERT_TRUE(KivOutOfCoreManager::SetMaxActiveOutOfCoreElement(m_pzModel->GetKey(), iOther));
      ASSERT_EQ(TextOf(m_zNote), "last");
      ASSERT_EQ(Manager().GetActiveElementNum(), 1U);
      if (bThrows) {
        EXPECT_REPORT(Space().UndoSnapShot(1),
                      "pOriginal->m_iMaxActiveOutOfCoreElement == pUndo->m_iMaxActiveOutOfCoreElement");
      } else {
        const NoThrowScope zNoThrow;
        EXPECT_EQ(Space().UndoSnapShot(1), KivUndoResult::Done);
      }
      ExpectNothingDangles();
      Close(m_pzModel);
    }
}

TEST_P(Restore, TheInvariantsOfManagerAndStorageAreReported) {
  MakeHistory();
  EXPECT_EQ(UndoWith(Access::Key(*CopyIn(1)->m_pOutOfCoreManager), 77), u"pOriginal->m_iKey == pUndo->m_iKey");
  EXPECT_EQ(UndoWith(Access::FileBase(*CopyIn(1)->m_pOutOfCoreManager), KivWString(1, u'x')),
            u"pOriginal->m_strOutOfCoreFileBase == pUndo->m_strOutOfCoreFileBase");
  KivOutOfCoreMemoryStorage& zCopy = *CopyIn(1)->m_pOutOfCoreManager->GetStorage();
  EXPECT_EQ(UndoWith(Access::Tables(zCopy), nullptr), u"m_pzPositionTableManager == pUndo->m_pzPositionTableManager");
  EXPECT_EQ(UndoWith(Access::MainFile(zCopy), nullptr), u"m_pzMainFile == pUndo->m_pzMainFile");
  EXPECT_EQ(UndoWith(Access::SubFile(zCopy), Access::MainFile(zCopy)), u"m_pzSubFile == pUndo->m_pzSubFile");
  EXPECT_EQ(UndoWith(Access::Mode(zCopy), KivStoreMode::ReadWrite), u"m_eMode == pUndo->m_eMode");
  EXPECT_EQ(UndoWith(Access::Ver19Data(*CopyIn(1)->m_pOutOfCoreManager), true),
            u"pOriginal->m_bVer19Data == pUndo->m_bVer19Data");
  ExpectNothingDangles();
  EXPECT_EQ(Space().UndoSnapShot(1), KivUndoResult::Done);
  EXPECT_EQ(TextOf(m_zNote), "st-1");
}

TEST_P(Restore, TheInvariantsOfTheTablesAndTheKeyAreReported) {
  MakeHistory();
  const KivOutOfCoreManagerKeyOwner zOther(*m_pzModel->m_pzRootKey);
  EXPECT_EQ(UndoWith(CopyIn(1)->m_pzRootKey, const_cast<KivOutOfCoreManagerKeyOwner*>(&zOther)),
            u"m_pzRootKey == pUndo->m_pzRootKey");
  KivPositionTableManager& zTables = *CopyIn(1)->m_pPositionTableManager;
  const auto UndoWithExtension = [&](uint32_t iExtension, uint32_t iIndex, uint32_t iMode) {
    zTables.SetExtension(iExtension, iIndex, iMode);
    const KivWString csReport = ReportOf([&] { Space().UndoSnapShot(1); });
    zTables.SetExtension(0, 0, 1);
    return csReport;
  };
  EXPECT_EQ(UndoWithExtension(5, 0, 1), u"m_iMultiFilePositionExtension == pUndo->m_iMultiFilePositionExtension");
  EXPECT_EQ(UndoWithExtension(0, 5, 1),
            u"m_iIndexForMultiFilePositionExtension == pUndo->m_iIndexForMultiFilePositionExtension");
  EXPECT_EQ(UndoWithExtension(0, 0, 2), u"m_iFilePositionTableMode == pUndo->m_iFilePositionTableMode");
  std::swap(CopyIn(1)->m_pPositionTableManager, CopyIn(0)->m_pPositionTableManager);
  auto pzStranger = std::make_unique<KivPositionTableManager>(77);
  std::swap(CopyIn(1)->m_pPositionTableManager, pzStranger);
  EXPECT_REPORT(Space().UndoSnapShot(1), "m_iKey == pUndo->m_iKey");
  std::swap(CopyIn(1)->m_pPositionTableManager, pzStranger);
  std::swap(CopyIn(1)->m_pPositionTableManager, CopyIn(0)->m_pPositionTableManager);
  EXPECT_EQ(Space().UndoSnapShot(1), KivUndoResult::Done);
  EXPECT_EQ(TextOf(m_zNote), "st-1");
}

TEST_P(Restore, ACopyWithoutItsFileIsReportedWhenItIsMade) {
  MakeHistory();
  KivSharedPtr<ISnapShotFile> pzNone;
  std::swap(Access::MainFile(Storage()), pzNone);
  EXPECT_REPORT(Space().CreateSnapShot(), "pSnapShot->m_pzMainFile != NULL");
  std::swap(Access::MainFile(Storage()), pzNone);
  EXPECT_EQ(Space().GetHistory().size(), 2U);
  EXPECT_EQ(Space().GetCurBaseSnapShot(), 1);
  EXPECT_EQ(Space().UndoSnapShot(1), KivUndoResult::Done);
  EXPECT_EQ(TextOf(m_zNote), "st-1");
}

// --- Codes ----------------------------------------------------------------------------------------------------------

TEST_P(Restore, AModelThatIsGoneGivesTwenty) {
  MakeHistory();
  KivModelStatusBase zStranger;
  CopyIn(1)->m_pOriginal = &zStranger;
  EXPECT_REPORT(Space().RestoreFromSnapShot(Entry(1)), "0");
  {
    const NoThrowScope zNoThrow;
    EXPECT_EQ(Space().RestoreFromSnapShot(Entry(1)), KivRestoreSnapShotResult::ModelGone);
    EXPECT_EQ(Space().UndoSnapShot(1), KivUndoResult::NotRestored);
    EXPECT_EQ(TextOf(m_zNote), "last");
  }
  CopyIn(1)->m_pOriginal = m_pzModel;
}

TEST_P(Restore, ACopyWithoutTablesGivesTwentyAndThirtyAbove) {
  MakeHistory();
  const auto pzTables = std::move(CopyIn(1)->m_pPositionTableManager);
  EXPECT_REPORT(m_pzModel->RestoreFromUndo(CopyIn(1)), "0");
  const NoThrowScope zNoThrow;
  EXPECT_EQ(m_pzModel->RestoreFromUndo(CopyIn(1)), KivModelRestoreResult::NoTableCopy);
  EXPECT_EQ(Space().RestoreFromSnapShot(Entry(1)), KivRestoreSnapShotResult::ModelNotRestored);
}

TEST_P(Restore, ACopyWithoutAManagerGivesFifty) {
  MakeHistory();
  auto pzManager = std::move(CopyIn(1)->m_pOutOfCoreManager);
  EXPECT_REPORT(m_pzModel->RestoreFromUndo(CopyIn(1)), "0");
  {
    const NoThrowScope zNoThrow;
    EXPECT_EQ(m_pzModel->RestoreFromUndo(CopyIn(1)), KivModelRestoreResult::ManagerNotRestored);
    EXPECT_EQ(Manager().RestoreFromUndo(nullptr), KivManagerRestoreResult::NoUndo);
  }
  CopyIn(1)->m_pOutOfCoreManager = std::move(pzManager);
}

TEST_P(Restore, AModelWithoutKeyOwnerGivesFortyAndOneWithoutManagerTen) {
  MakeHistory();
  const NoThrowScope zNoThrow;
  KivOutOfCoreManagerKeyOwner* const pzOwner = m_pzModel->m_pzRootKey;
  m_pzModel->m_pzRootKey = nullptr;
  EXPECT_EQ(m_pzModel->RestoreFromUndo(CopyIn(1)), KivModelRestoreResult::NoKeyOwner);
  KivStoreSource zNone;
  zNone.m_csPath = m_zFolder / u"none";
  zNone.m_eMode = KivStoreMode::Read;
  KivOutOfCoreManagerKeyOwner zWithout(zNone);
  m_pzModel->m_pzRootKey = &zWithout;
  EXPECT_EQ(m_pzModel->RestoreFromUndo(CopyIn(1)), KivModelRestoreResult::NoManager);
  m_pzModel->m_pzRootKey = pzOwner;
}

TEST_P(Restore, AStoreOfAnotherModeGivesFiveAndTwentyAbove) {
  MakeHistory();
  Access::Mode(Storage()) = KivStoreMode::ReadWrite;
  {
    const NoThrowScope zNoThrow;
    EXPECT_EQ(Storage().RestoreFromUndo(CopyIn(1)->m_pOutOfCoreManager->GetStorage()),
              KivStorageRestoreResult::WrongMode);
    EXPECT_EQ(Manager().RestoreFromUndo(CopyIn(1)->m_pOutOfCoreManager.get()), KivManagerRestoreResult::StorageFailed);
  }
  Access::Mode(Storage()) = KivStoreMode::Read;
}

TEST_P(Restore, ARedoWhoseEntryCannotBeRestoredGivesTwentyAndAListenersNoThirty) {
  struct NoRedo : KivDataSpaceListener {
    bool Redone(int32_t) override { return false; }
  };
  MakeHistory();
  ASSERT_EQ(Space().UndoSnapShot(2), KivUndoResult::Done);
  NoRedo zListener;
  Space().AddListener(&zListener);
  EXPECT_REPORT(Space().RedoSnapShot(1), "0");
  EXPECT_EQ(Space().UndoSnapShot(2), KivUndoResult::Done);
  {
    const NoThrowScope zNoThrow;
    EXPECT_EQ(Space().RedoSnapShot(1), KivRedoResult::ListenerFailed);
    EXPECT_EQ(TextOf(m_zNote), "st-1");
    EXPECT_EQ(Space().UndoSnapShot(2), KivUndoResult::Done);
    Space().RemoveListener(&zListener);
    const auto pzTables = std::move(CopyIn(1)->m_pPositionTableManager);
    EXPECT_EQ(Space().RedoSnapShot(1), KivRedoResult::NotRestored);
    EXPECT_EQ(Space().GetCurBaseSnapShot(), 1);
  }
  EXPECT_FALSE(Space().m_bDiscardingSnapShot);
}

TEST_P(Restore, ASaveOfAModelThatCannotBeStoredGivesTwenty) {
  MakeHistory();
  m_zNote.Fetch<TestNote>()->GetMemoryBlockForWrite()->m_strText = "more";
  TestFaults().m_bSaveFails = true;
  const NoThrowScope zNoThrow;
  EXPECT_EQ(Space().SaveSnapShot(m_pzModel, m_zFolder / u"saved.kiv", 0), KivSaveSnapShotResult::NotSaved);
  TestFaults().m_bSaveFails = false;
  EXPECT_EQ(Space().SaveSnapShot(m_pzModel, m_zFolder / u"saved.kiv", 0), KivSaveSnapShotResult::Done);
}

// A data space with models of its own.
class OwnSpace : public KivDataSpaceBase {
 public:
  void Put(KivModelStatusBase* pzModel) { m_spModel.insert(pzModel); }
  KivRemoveModelResult RemoveModel(KivModelStatusBase* pzModel) override {
    return m_bRefuses ? KivRemoveModelResult::UnknownModel : KivDataSpaceBase::RemoveModel(pzModel);
  }
  bool m_bRefuses = false;
};

TEST_F(StoreTest, AModelThatIsNotRemovedGivesTenForAll) {
  OwnSpace zSpace;
  zSpace.Put(new KivModelStatusBase);
  zSpace.m_bRefuses = true;
  EXPECT_EQ(zSpace.RemoveAllModels(), KivRemoveAllModelsResult::NotAllRemoved);
  zSpace.m_bRefuses = false;
  EXPECT_EQ(zSpace.RemoveAllModels(), KivRemoveAllModelsResult::Done);
}

TEST_F(StoreTest, AModelThatGivesNoCopyIsReported) {
  struct Shy : KivModelStatusBase {
    std::unique_ptr<KivModelStatusBase> CreateSnapShot() override { return nullptr; }
  };
  OwnSpace zSpace;
  zSpace.Put(new Shy);
  EXPECT_REPORT(zSpace.CreateSnapShot(), "pModel != NULL");
  EXPECT_EQ(zSpace.GetCurBaseSnapShot(), -1);
  const NoThrowScope zNoThrow;
  EXPECT_EQ(zSpace.CreateSnapShot(), KivCreateSnapShotResult::Done);
  EXPECT_TRUE(zSpace.GetHistory()[0]->GetModels().empty());
}

TEST_F(StoreTest, AModelThatCannotTakePartLeavesTheHistoryAsItWasWhicheverComesFirst) {
  const KivWString csRead = MakeFile(u"read.kiv");
  const KivWString csWritten = MakeFile(u"written.kiv");
  // Models stand by their addresses; blocks in between change these from run to run.
  std::vector<std::unique_ptr<KivModelStatusBase>> vpzBetween;
  bool bReadFirst = false;
  bool bWrittenFirst = false;
  for (int i = 0; i < 60 && !(bReadFirst && bWrittenFirst); ++i) {
    const bool bOpenRead = i % 2 == 0;
    KivModelStatusBase* pzRead = bOpenRead ? Open(csRead, false) : nullptr;
    if (i % 4 > 1) vpzBetween.push_back(std::make_unique<KivModelStatusBase>());
    KivModelStatusBase* pzWritten = Open(csWritten, true);
    if (!bOpenRead) pzRead = Open(csRead, false);
    (*Space().GetModels().begin() == pzRead ? bReadFirst : bWrittenFirst) = true;

    KivOutOfCoreHandle zNote = AddNote(pzRead, "keep");
    const size_t iPlaces = Space().GetHistory().size();
    EXPECT_REPORT(Space().CreateSnapShot(), "0");
    EXPECT_EQ(Space().GetCurBaseSnapShot(), -1);
    EXPECT_EQ(Space().GetRedoEntryNum(), 0);
    EXPECT_LE(Space().GetHistory().size(), iPlaces);
    Close(pzWritten);
    ASSERT_EQ(Space().CreateSnapShot(), KivCreateSnapShotResult::Done);
    ASSERT_TRUE(SetText(zNote, "lost"));
    EXPECT_EQ(Space().UndoSnapShot(1), KivUndoResult::Done);
    EXPECT_EQ(TextOf(zNote), "keep");
    Close(pzRead);
  }
  EXPECT_TRUE(bReadFirst);
  EXPECT_TRUE(bWrittenFirst);
}

// --- Places ---------------------------------------------------------------------------------------------------------

TEST_P(Restore, APlaceBehindTheHistoryCountsAndDiscardsNothingOutside) {
  MakeHistory();
  Space().m_iCurBaseSnapShot = 500;
  EXPECT_EQ(Space().GetRedoEntryNum(), 0);
  EXPECT_EQ(Space().GetUndoNum(), 0);
  EXPECT_EQ(Space().DiscardSnapShots(1), 1);
  EXPECT_EQ(Space().GetHistory()[0], nullptr);
  Space().m_iCurBaseSnapShot = 1;
  EXPECT_EQ(Space().UndoSnapShot(1), KivUndoResult::Done);
  EXPECT_EQ(TextOf(m_zNote), "st-1");
}

// --- Listeners ------------------------------------------------------------------------------------------------------

// Does something in the middle of an undo and a redo.
struct Worker : KivDataSpaceListener {
  bool Undone(int32_t) override {
    m_work();
    return true;
  }
  std::function<void()> m_work;
};

TEST_P(Restore, ElementsThatEndInAListenerLeaveTheList) {
  MakeHistory();
  const uint32_t iKey = m_pzModel->GetKey();
  Worker zListener;
  Space().AddListener(&zListener);
  const auto UndoAnd = [&](const std::function<void()>& work) {
    zListener.m_work = work;
    EXPECT_EQ(Space().UndoSnapShot(1), KivUndoResult::Done);
    EXPECT_EQ(Manager().GetActiveElementNum(), 0U);
    EXPECT_TRUE(KivOutOfCoreManager::DeactivateAll(iKey));
    EXPECT_EQ(TextOf(m_zNote), "st-1");
  };
  UndoAnd([&] {
    KivOutOfCoreHandle zGone = AddNote(m_pzModel, "gone");
    EXPECT_EQ(TextOf(zGone), "gone");
    EXPECT_TRUE(zGone.Delete());
  });
  UndoAnd([&] {
    TestNote zStack(iKey);
    ASSERT_NE(zStack.GetMemoryBlockForWrite(), nullptr);
    EXPECT_TRUE(zStack.IsActive());
  });
  UndoAnd([&] {
    TestFaults().m_bSaveFails = true;
    const NoThrowScope zNoThrow;
    EXPECT_FALSE(AddNote(m_pzModel, "never stored"));
    TestFaults().m_bSaveFails = false;
  });
  Space().RemoveListener(&zListener);
}

TEST_P(Restore, ASnapshotInsideAListenerLeavesTheFlagOfTheUndoSet) {
  MakeHistory();
  Worker zListener;
  bool bFlag = false;
  zListener.m_work = [&] {
    EXPECT_TRUE(Space().m_bDiscardingSnapShot);
    EXPECT_EQ(Space().CreateSnapShot(), KivCreateSnapShotResult::Done);
    bFlag = Space().m_bDiscardingSnapShot;
  };
  Space().AddListener(&zListener);
  EXPECT_EQ(Space().UndoSnapShot(1), KivUndoResult::Done);
  Space().RemoveListener(&zListener);
  EXPECT_TRUE(bFlag);
  EXPECT_FALSE(Space().m_bDiscardingSnapShot);
}

TEST_P(Restore, ADiscardInsideAListenerTakesTheOldestAndKeepsItsContents) {
  MakeHistory();
  ASSERT_EQ(Space().CreateSnapShot(), KivCreateSnapShotResult::Done);
  ASSERT_TRUE(SetText(m_zNote, "later"));
  Worker zListener;
  int32_t nDiscarded = 0;
  zListener.m_work = [&] { nDiscarded += Space().DiscardSnapShots(1); };
  Space().AddListener(&zListener);
  for (const bool bThrow : {true, false}) {
    SCOPED_TRACE(bThrow ? "throwing" : "returning");
    KivSetReportNoThrow(!bThrow);
    EXPECT_NO_REPORT(EXPECT_EQ(Space().UndoSnapShot(1), KivUndoResult::Done));
    EXPECT_EQ(TextOf(m_zNote), "last");
    KivSetReportNoThrow(false);
  }
  Space().RemoveListener(&zListener);
  EXPECT_EQ(nDiscarded, 2);
  EXPECT_EQ(Entry(0), nullptr);
  EXPECT_EQ(Entry(1), nullptr);
  ASSERT_NE(Entry(2), nullptr);
  EXPECT_FALSE(Space().m_bDiscardingSnapShot);
  ASSERT_TRUE(SetText(m_zNote, "new"));
  ASSERT_EQ(Space().CreateSnapShot(), KivCreateSnapShotResult::Done);
  EXPECT_EQ(Space().UndoSnapShot(2), KivUndoResult::Done);
  EXPECT_EQ(TextOf(m_zNote), "last");
}

TEST_F(StoreTest, AListenerMayRemoveTheModelThatItHearsOf) {
  struct Remover : KivDataSpaceListener {
    explicit Remover(KivDataSpaceBase& zSpace) : m_zSpace(zSpace) {}
    bool ModelAdded(KivModelStatusBase* pzModel, const KivListenerData&) override {
      ++m_nAdded;
      if (m_bAtOnce) {
        EXPECT_EQ(m_zSpace.RemoveModel(pzModel), KivRemoveModelResult::Done);
      }
      return true;
    }
    bool ModelRemoved(KivModelStatusBase* pzModel) override {
      if (++m_nRemoved == 1 && !m_bAtOnce) {
        EXPECT_EQ(m_zSpace.RemoveModel(pzModel), KivRemoveModelResult::Done);
      }
      return true;
    }
    KivDataSpaceBase& m_zSpace;
    bool m_bAtOnce = true;
    int m_nAdded = 0;
    int m_nRemoved = 0;
  };
  const KivWString csPath = MakeFile(u"a.kiv");
  Remover zFirst(Space());
  Remover zSecond(Space());
  zSecond.m_bAtOnce = false;
  zSecond.m_nRemoved = 1;  // only listens
  Space().AddListener(&zFirst);
  Space().AddListener(&zSecond);
  KivModelStatusBase* pzModel = nullptr;
  EXPECT_EQ(Space().AddModel(csPath, KivModelOpenInfo(), &pzModel), KivAddModelResult::Done);
  EXPECT_EQ(pzModel, nullptr);
  EXPECT_EQ(zSecond.m_nAdded, 0);
  EXPECT_TRUE(Space().GetModels().empty());
  zFirst.m_bAtOnce = false;
  zFirst.m_nRemoved = 0;
  EXPECT_EQ(Space().AddModel(csPath, KivModelOpenInfo(), &pzModel), KivAddModelResult::Done);
  EXPECT_EQ(Space().RemoveModel(pzModel), KivRemoveModelResult::Done);
  EXPECT_TRUE(Space().GetModels().empty());
  Space().RemoveListener(&zFirst);
  Space().RemoveListener(&zSecond);
}

TEST_P(Restore, AListenerThatAnotherOneRemovedIsNotCalled) {
  MakeHistory();
  Worker zFirst;
  auto pzSecond = std::make_unique<Worker>();
  int nCalls = 0;
  pzSecond->m_work = [&] { ++nCalls; };
  zFirst.m_work = [&] {
    Space().RemoveListener(pzSecond.get());
    pzSecond.reset();
  };
  Space().AddListener(&zFirst);
  Space().AddListener(pzSecond.get());
  EXPECT_EQ(Space().UndoSnapShot(1), KivUndoResult::Done);
  EXPECT_EQ(nCalls, 0);
  zFirst.m_work = [] {};
  EXPECT_EQ(Space().UndoSnapShot(1), KivUndoResult::Done);
  Space().RemoveListener(&zFirst);
  EXPECT_EQ(pzSecond, nullptr);
}

// --- Storage --------------------------------------------------------------------------------------------------------

TEST_P(Restore, TheStorageTellsItsFailuresApart) {
  MakeHistory();
  uint8_t acBytes[100] = {};
  KivContainerRecord zRecord;
  const uint64_t iPosition = Manager().GetPositionTableManager()->ResolveKey(m_zNote.GetPosition());
  EXPECT_EQ(Storage().ReadRecord(iPosition, acBytes, 68, zRecord), KivStorageResult::Done);
  zRecord = KivContainerRecord();
  EXPECT_EQ(Storage().ReadRecord(iPosition, nullptr, 68, zRecord), KivStorageResult::BadArgument);
  EXPECT_EQ(Storage().ReadRecord(7, acBytes, 68, zRecord), KivStorageResult::BadArgument);
  EXPECT_EQ(Storage().OverwriteRecord(iPosition, nullptr, 1), KivStorageResult::BadArgument);
  EXPECT_EQ(Storage().ReadRecord(iPosition, acBytes, sizeof acBytes, zRecord), KivStorageResult::NoRecord);
  EXPECT_EQ(Storage().OverwriteRecord(iPosition, acBytes, sizeof acBytes), KivStorageResult::NoRecord);
  // A record as last looked up that reaches behind the end of the file.
  zRecord.m_pzFile = Manager().GetContainer()->GetBaseFile();
  zRecord.m_iOffset = ~uint64_t{0} - 1000;
  zRecord.m_iFileSize = 100;
  {
    const NoThrowScope zNoThrow;
    EXPECT_EQ(Storage().ReadRecord(iPosition, acBytes, 100, zRecord), KivStorageResult::ShortRead);
  }
  EXPECT_FALSE(zRecord.m_pzFile);
  KivOutOfCoreHandle zGone = m_zNote;
  ASSERT_TRUE(zGone.Delete());
  EXPECT_EQ(Storage().FindRecord(iPosition, zRecord), KivStorageResult::NoRecord);
  EXPECT_EQ(Storage().FreeRecord(iPosition), KivStorageResult::NoRecord);

  const NoThrowScope zNoThrow;
  KivStoreSource zNone;
  zNone.m_csPath = m_zFolder / u"none";
  zNone.m_eMode = KivStoreMode::Read;
  KivOutOfCoreMemoryStorage zEmpty(zNone, 0);
  uint64_t iAdded = 5;
  EXPECT_EQ(zEmpty.FindRecord(264, zRecord), KivStorageResult::NoContainer);
  EXPECT_EQ(zEmpty.ReadRecord(264, acBytes, 1, zRecord), KivStorageResult::NoContainer);
  EXPECT_EQ(zEmpty.AddRecord(KivContainerData(acBytes, 1), iAdded), KivStorageResult::NoContainer);
  EXPECT_EQ(iAdded, 0U);
}

}  // namespace
