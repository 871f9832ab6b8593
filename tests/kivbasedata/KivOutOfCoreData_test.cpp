#include "KivOutOfCoreData.h"

#include <gtest/gtest.h>

#include "KivPositionTableManager.h"
#include "KivTestStore.h"

namespace {

using namespace kiv;
using namespace kivtest;

class OutOfCoreElement : public StoreTest {
 protected:
  // A model that is changed in place, with one note of a text of this size in it.
  void OpenWithNote(size_t iTextSize, bool bTables = false, int32_t iLimit = 1) {
    m_pzModel = Open(MakeFile(u"a.kiv", bTables), true, iLimit);
    ASSERT_NE(m_pzModel, nullptr);
    m_zNote = AddNote(m_pzModel, std::string(iTextSize, 'x'));
    ASSERT_TRUE(m_zNote);
  }
  uint32_t Key() const { return m_pzModel->GetKey(); }
  uint64_t ResolvedPosition() {
    return ManagerOf(m_pzModel)->GetPositionTableManager()->ResolveKey(m_zNote.GetPosition());
  }

  KivModelStatusBase* m_pzModel = nullptr;
  KivOutOfCoreHandle m_zNote;
};

// --- Without a store ------------------------------------------------------------------------------------------------

TEST_F(OutOfCoreElement, WithoutAManagerItIsAPlainObjectInMemory) {
  TestNote zNote(0);
  EXPECT_FALSE(zNote.HasStore());
  TestBlock* pzBlock = zNote.GetMemoryBlockForWrite();
  ASSERT_NE(pzBlock, nullptr);
  pzBlock->m_strText = "kept";
  EXPECT_TRUE(zNote.Deactivate());
  EXPECT_EQ(zNote.GetMemoryBlock()->m_strText, "kept");
  EXPECT_FALSE(zNote.IsActive());
  EXPECT_EQ(zNote.GetModelStatus(), nullptr);
}

TEST_F(OutOfCoreElement, TwoElementsWithoutAStoreKeepABlockEach) {
  TestNote zFirst(0);
  TestNote zSecond(0);
  zFirst.GetMemoryBlockForWrite()->m_strText = "first";
  zSecond.GetMemoryBlockForWrite()->m_strText = "second";
  EXPECT_EQ(zFirst.GetMemoryBlock()->m_strText, "first");
  EXPECT_EQ(zSecond.GetMemoryBlock()->m_strText, "second");
}

TEST_F(OutOfCoreElement, UnderALimitOfZeroThereIsNoStore) {
  KivOutOfCoreManager* pzManager = nullptr;
  ASSERT_TRUE(KivOutOfCoreManager::SetMaxActiveOutOfCoreElement(0, 0));
  pzManager = KivOutOfCoreManager::GetManager(0);
  ASSERT_NE(pzManager, nullptr);
  EXPECT_EQ(pzManager->GetStorage(), nullptr);
  {
    TestNote zNote(0);
    zNote.GetMemoryBlockForWrite()->m_strText = "in memory";
    EXPECT_TRUE(zNote.Activate(false));
    EXPECT_EQ(zNote.GetMemoryBlock()->m_strText, "in memory");
    EXPECT_EQ(KivOutOfCoreManager::GetElement(0, 264), nullptr);
    EXPECT_REPORT(zNote.AssignPositionKey(), "0");
  }
  pzManager->AddRef();
  pzManager->Release();
}

TEST_F(OutOfCoreElement, WithoutAStoreActivateForPositionsIsReported) {
  TestNote zNote(0);
  EXPECT_REPORT(zNote.Activate(true), "!bModifyOnlyForPosition");
  const NoThrowScope zNoThrow;
  EXPECT_TRUE(zNote.Activate(true));
}

TEST_F(OutOfCoreElement, WithoutAStoreTransfersAreReported) {
  TestNote zNote(0);
  uint8_t acBytes[8] = {};
  uint64_t iStart = 0;
  EXPECT_REPORT(zNote.ReadData(acBytes, sizeof acBytes), "0");
  EXPECT_REPORT(zNote.WriteData(acBytes, sizeof acBytes), "0");
  EXPECT_REPORT(zNote.MoveRecord(iStart), "0");
  EXPECT_REPORT(zNote.AssignPositionKey(), "0");
  const NoThrowScope zNoThrow;
  EXPECT_FALSE(zNote.ReadData(acBytes, sizeof acBytes));
  EXPECT_FALSE(zNote.WriteData(acBytes, sizeof acBytes));
  EXPECT_FALSE(zNote.MoveRecord(iStart));
  EXPECT_EQ(zNote.AssignPositionKey(), 0U);
}

class BareElement : public KivOutOfCoreData {
 public:
  using KivOutOfCoreData::KivOutOfCoreData;
  bool Load(bool b) override { return KivOutOfCoreData::Load(b); }
  bool Save(bool b) override { return KivOutOfCoreData::Save(b); }
  bool Release() override { return true; }
  void SetBoxFromFrame(const uint32_t*) override {}
};

TEST_F(OutOfCoreElement, LoadAndSaveThatReachTheBaseAreReported) {
  BareElement zElement(0);
  EXPECT_REPORT(zElement.Load(false), "0");
  EXPECT_REPORT(zElement.Save(false), "0");
  const NoThrowScope zNoThrow;
  EXPECT_FALSE(zElement.Load(false));
  EXPECT_FALSE(zElement.Save(false));
  EXPECT_EQ(zElement.GetReservedSize(17), 17U);
}

// --- In and out of memory -------------------------------------------------------------------------------------------

TEST_F(OutOfCoreElement, ActivateForPositionsOnAnActiveElementIsReported) {
  OpenWithNote(10);
  auto* pzNote = m_zNote.Fetch<TestNote>();
  ASSERT_TRUE(pzNote->Activate(true));
  EXPECT_REPORT(pzNote->Activate(true), "!bModifyOnlyForPosition");
  const NoThrowScope zNoThrow;
  EXPECT_TRUE(pzNote->Activate(true));
}

TEST_F(OutOfCoreElement, DeactivateOfAnUnmodifiedElementWritesNothing) {
  OpenWithNote(10);
  auto* pzNote = m_zNote.Fetch<TestNote>();
  ASSERT_NE(pzNote->GetMemoryBlock(), nullptr);
  const int iSaves = TestCounts().m_iSaves;
  EXPECT_TRUE(pzNote->Deactivate());
  EXPECT_EQ(TestCounts().m_iSaves, iSaves);
  EXPECT_FALSE(pzNote->IsActive());
}

TEST_F(OutOfCoreElement, AtALimitOfOneTheObjectSurvivesItsDeactivate) {
  OpenWithNote(10);
  auto* pzNote = m_zNote.Fetch<TestNote>();
  pzNote->GetMemoryBlockForWrite()->m_strText = "changed";
  const int iObjects = TestCounts().m_iObjects;
  EXPECT_TRUE(pzNote->Deactivate());
  EXPECT_EQ(TestCounts().m_iObjects, iObjects);
  EXPECT_EQ(m_zNote.Fetch(), pzNote);
  EXPECT_EQ(pzNote->GetMemoryBlock()->m_strText, "changed");
}

TEST_F(OutOfCoreElement, AboveALimitOfOneTheObjectEndsWithItsDeactivate) {
  OpenWithNote(10, false, 3);
  auto* pzNote = m_zNote.Fetch<TestNote>();
  pzNote->GetMemoryBlockForWrite()->m_strText = "changed";
  const int iObjects = TestCounts().m_iObjects;
  EXPECT_TRUE(pzNote->Deactivate());
  EXPECT_EQ(TestCounts().m_iObjects, iObjects - 1);
  EXPECT_EQ(ManagerOf(m_pzModel)->GetKnownElementNum(), 0U);
  EXPECT_EQ(TextOf(m_zNote), "changed");
}

TEST_F(OutOfCoreElement, ALoadThatFailsLeavesTheElementInactive) {
  for (const int32_t iLimit : {1, 2}) {
    SCOPED_TRACE(iLimit);
    const KivWString csName = iLimit == 1 ? u"one.kiv" : u"two.kiv";
    KivModelStatusBase* pzModel = Open(MakeFile(csName), true, iLimit);
    const KivOutOfCoreHandle zNote = AddNote(pzModel, "text");
    auto* pzNote = zNote.Fetch<TestNote>();
    TestFaults().m_bLoadFails = true;
    EXPECT_REPORT(pzNote->Activate(false), "0");
    EXPECT_FALSE(pzNote->IsActive());
    {
      const NoThrowScope zNoThrow;
      EXPECT_FALSE(pzNote->Activate(false));
      EXPECT_EQ(pzNote->GetMemoryBlock(), nullptr);
    }
    EXPECT_FALSE(pzNote->IsActive());
    EXPECT_EQ(ManagerOf(pzModel)->GetActiveElementNum(), 0U);
    TestFaults().m_bLoadFails = false;
    EXPECT_EQ(zNote.Fetch(), pzNote);
    EXPECT_EQ(TextOf(zNote), "text");
  }
}

TEST_F(OutOfCoreElement, ASaveThatFailsLeavesTheElementActiveWithItsChange) {
  OpenWithNote(10);
  auto* pzNote = m_zNote.Fetch<TestNote>();
  pzNote->GetMemoryBlockForWrite()->m_strText = "changed";
  TestFaults().m_bSaveFails = true;
  EXPECT_REPORT(pzNote->Deactivate(), "0");
  {
    const NoThrowScope zNoThrow;
    EXPECT_FALSE(pzNote->Deactivate());
    EXPECT_EQ(pzNote->DeactivateForPosition(), 0U);
  }
  EXPECT_TRUE(pzNote->IsActive());
  EXPECT_TRUE(pzNote->IsModified());
  TestFaults().m_bSaveFails = false;
  EXPECT_TRUE(pzNote->Deactivate());
  EXPECT_EQ(TextOf(m_zNote), "changed");
}

TEST_F(OutOfCoreElement, ReadDataClearsTheModifiedMark) {
  OpenWithNote(10);
  auto* pzNote = m_zNote.Fetch<TestNote>();
  ASSERT_TRUE(pzNote->Activate(false));
  pzNote->MarkModified();
  uint8_t acBytes[8];
  EXPECT_TRUE(pzNote->ReadData(acBytes, sizeof acBytes));
  EXPECT_FALSE(pzNote->IsModified());
}

TEST_F(OutOfCoreElement, AReadBehindTheRecordIsReported) {
  OpenWithNote(10);
  auto* pzNote = m_zNote.Fetch<TestNote>();
  std::vector<uint8_t> vcBytes(static_cast<size_t>(pzNote->GetRecordSize() + 1));
  EXPECT_REPORT(pzNote->ReadData(vcBytes.data(), vcBytes.size()), "0");
  const NoThrowScope zNoThrow;
  EXPECT_FALSE(pzNote->ReadData(vcBytes.data(), vcBytes.size()));
}

// --- Records --------------------------------------------------------------------------------------------------------

TEST_F(OutOfCoreElement, DataOfExactlyHalfTheReservedSizeStaysInPlaceAndOneByteLessMoves) {
  // Behind it stands another record, so that the freed place is reused by nothing else.
  const size_t iTextSize = static_cast<size_t>(400 - TestRecordSize(0));
  OpenWithNote(iTextSize);
  AddNote(m_pzModel, std::string(500, 'y'));
  const uint64_t iPosition = m_zNote.GetPosition();
  EXPECT_EQ(m_zNote.Fetch()->GetRecordSize(), 400U);

  ASSERT_TRUE(SetText(m_zNote, std::string(iTextSize - 200, 'h')));
  EXPECT_EQ(m_zNote.GetPosition(), iPosition);
  EXPECT_EQ(m_zNote.Fetch()->GetDataSize(), 200U);
  EXPECT_EQ(m_zNote.Fetch()->GetRecordSize(), 400U);
  EXPECT_EQ(TextOf(m_zNote), std::string(iTextSize - 200, 'h'));

  ASSERT_TRUE(SetText(m_zNote, std::string(iTextSize - 201, 'l')));
  EXPECT_EQ(m_zNote.Fetch()->GetRecordSize(), 199U);
  EXPECT_EQ(m_zNote.Fetch()->GetDataSize(), 199U);
  EXPECT_EQ(TextOf(m_zNote), std::string(iTextSize - 201, 'l'));
  Close(m_pzModel);
}

TEST_F(OutOfCoreElement, AnElementWithoutARecordGetsOneWithItsFirstDeactivate) {
  m_pzModel = Open(MakeFile(u"a.kiv"), true);
  TestNote zNote(Key());
  zNote.GetMemoryBlockForWrite()->m_strText = "new";
  EXPECT_TRUE(zNote.IsActive());
  EXPECT_TRUE(zNote.IsModified());
  EXPECT_EQ(zNote.GetPosition(), 0U);
  EXPECT_TRUE(zNote.Deactivate());
  EXPECT_EQ(zNote.GetPosition(), 264U);
  EXPECT_EQ(TextOf(KivOutOfCoreHandle(Key(), 264)), "new");
}

TEST_F(OutOfCoreElement, TheReservedSizeIsPaddedWithZeros) {
  m_pzModel = Open(MakeFile(u"a.kiv"), true);
  const KivOutOfCoreHandle zBag = AddBag(m_pzModel, "bag");
  const uint64_t iSize = TestRecordSize(3);
  auto* pzBag = zBag.Fetch<TestBag>();
  EXPECT_EQ(pzBag->GetRecordSize(), iSize + iSize / 2);
  std::vector<uint8_t> vcBytes(static_cast<size_t>(pzBag->GetRecordSize()));
  ASSERT_TRUE(pzBag->ReadData(vcBytes.data(), vcBytes.size()));
  for (size_t i = static_cast<size_t>(iSize); i < vcBytes.size(); ++i) EXPECT_EQ(vcBytes[i], 0);
}

TEST_F(OutOfCoreElement, AGrowingElementMovesAndTheMapFollows) {
  OpenWithNote(10);
  AddNote(m_pzModel, "behind");
  auto* pzNote = m_zNote.Fetch<TestNote>();
  const uint64_t iOld = m_zNote.GetPosition();
  ASSERT_TRUE(SetText(m_zNote, std::string(1000, 'g')));
  EXPECT_NE(m_zNote.GetPosition(), iOld);
  EXPECT_EQ(m_zNote.Fetch(), pzNote);
  EXPECT_EQ(pzNote->GetPosition(), m_zNote.GetPosition());
  EXPECT_REPORT(KivOutOfCoreManager::GetElement(Key(), iOld), "0");
}

TEST_F(OutOfCoreElement, AGrowingKeyedElementChangesItsPositionButNotItsKey) {
  for (const int32_t iLimit : {1, 4}) {
    SCOPED_TRACE(iLimit);
    const KivWString csPath = MakeFile(iLimit == 1 ? u"one.kiv" : u"four.kiv", true);
    m_pzModel = Open(csPath, true, iLimit);
    m_zNote = AddNote(m_pzModel, "small");
    AddNote(m_pzModel, "behind");
    const uint64_t iKey = m_zNote.GetPosition();
    EXPECT_TRUE(KivPositionTableManager::IsTableKey(iKey));
    const uint64_t iOld = ResolvedPosition();
    ASSERT_TRUE(SetText(m_zNote, std::string(1000, 'g')));
    EXPECT_EQ(m_zNote.GetPosition(), iKey);
    EXPECT_NE(ResolvedPosition(), iOld);
    EXPECT_EQ(m_zNote.Fetch()->GetPosition(), ResolvedPosition());
    EXPECT_EQ(m_zNote.Fetch()->GetPositionKey(), iKey);
    EXPECT_EQ(TextOf(m_zNote), std::string(1000, 'g'));
    Close(m_pzModel);

    // The key leads there in the file, too.
    m_pzModel = Open(csPath, false, iLimit);
    EXPECT_EQ(TextOf(KivOutOfCoreHandle(Key(), iKey)), std::string(1000, 'g'));
    Close(m_pzModel);
  }
}

TEST_F(OutOfCoreElement, AnElementFirstFetchedByItsPositionStillFollowsItsKey) {
  OpenWithNote(10, true);
  AddNote(m_pzModel, "behind");
  KivOutOfCoreData* pzByPosition = KivOutOfCoreManager::GetElement(Key(), ResolvedPosition());
  ASSERT_NE(pzByPosition, nullptr);
  EXPECT_EQ(pzByPosition->GetPositionKey(), 0U);
  EXPECT_EQ(m_zNote.Fetch(), pzByPosition);
  ASSERT_TRUE(SetText(m_zNote, std::string(2000, 'g')));
  EXPECT_EQ(TextOf(m_zNote), std::string(2000, 'g'));
}

TEST_F(OutOfCoreElement, AssignPositionKeyGivesThePositionWithoutTablesAndAKeyWithThem) {
  for (const bool bTables : {false, true})
    for (const int32_t iLimit : {1, 2, 5}) {
      SCOPED_TRACE(testing::Message() << bTables << " " << iLimit);
      const KivWString csName = KivWString(bTables ? u"t" : u"p") + static_cast<char16_t>(u'0' + iLimit);
      m_pzModel = Open(MakeFile(csName, bTables), true, iLimit);
      TestNote zNote(Key());
      zNote.GetMemoryBlockForWrite()->m_strText = "stack";
      const uint64_t iKey = zNote.AssignPositionKey();
      EXPECT_FALSE(zNote.IsActive());
      EXPECT_EQ(KivPositionTableManager::IsTableKey(iKey), bTables);
      EXPECT_EQ(iKey, bTables ? zNote.GetPositionKey() : zNote.GetPosition());
      EXPECT_EQ(TextOf(KivOutOfCoreHandle(Key(), iKey)), "stack");
      // An element of the map: the object may end, the key is the same kind.
      const uint64_t iAgain = KivOutOfCoreManager::GetElement(Key(), iKey)->AssignPositionKey();
      EXPECT_EQ(KivPositionTableManager::IsTableKey(iAgain), bTables);
      EXPECT_EQ(TextOf(KivOutOfCoreHandle(Key(), iAgain)), "stack");
    }
}

TEST_F(OutOfCoreElement, AssignPositionKeyOfAnElementThatCannotBeSavedIsReported) {
  OpenWithNote(10);
  TestNote zNote(Key());
  ASSERT_NE(zNote.GetMemoryBlockForWrite(), nullptr);
  TestFaults().m_bSaveFails = true;
  EXPECT_REPORT(zNote.AssignPositionKey(), "0");
  {
    const NoThrowScope zNoThrow;
    EXPECT_EQ(zNote.AssignPositionKey(), 0U);
  }
  TestFaults().m_bSaveFails = false;
  EXPECT_TRUE(zNote.IsActive());
  EXPECT_NE(zNote.AssignPositionKey(), 0U);
}

TEST_F(OutOfCoreElement, MoveRecordSweepsTheFileFromTheFront) {
  for (const bool bTables : {false, true}) {
    SCOPED_TRACE(bTables);
    m_pzModel = Open(MakeFile(bTables ? u"t.kiv" : u"p.kiv", bTables), true);
    KivOutOfCoreHandle zHole = AddNote(m_pzModel, std::string(300, 'h'));
    m_zNote = AddNote(m_pzModel, std::string(300, 'm'));
    AddNote(m_pzModel, "end");
    auto* pzNote = m_zNote.Fetch<TestNote>();
    const uint64_t iHole = zHole.Fetch()->GetPosition();
    ASSERT_TRUE(zHole.Delete());
    uint64_t iStart = 0;
    EXPECT_TRUE(pzNote->MoveRecord(iStart));
    EXPECT_EQ(iStart, iHole);
    EXPECT_EQ(pzNote->GetPosition(), iHole);
    const KivOutOfCoreHandle zMoved(Key(), bTables ? m_zNote.GetPosition() : iHole);
    EXPECT_EQ(zMoved.Fetch(), pzNote);
    EXPECT_EQ(TextOf(zMoved), std::string(300, 'm'));
    Close(m_pzModel);
  }
}

TEST_F(OutOfCoreElement, MoveRecordThatFindsNoPlaceFollowsThePayload) {
  for (const bool bTables : {false, true}) {
    SCOPED_TRACE(bTables);
    m_pzModel = Open(MakeFile(bTables ? u"t.kiv" : u"p.kiv", bTables), true);
    m_zNote = AddNote(m_pzModel, std::string(300, 'm'));
    AddNote(m_pzModel, "end");
    auto* pzNote = m_zNote.Fetch<TestNote>();
    uint64_t iStart = ManagerOf(m_pzModel)->GetContainer()->GetEndPosition() + 1;
    const uint64_t iBehind = iStart;
    EXPECT_FALSE(pzNote->MoveRecord(iStart));
    EXPECT_EQ(iStart, iBehind);
    const KivOutOfCoreHandle zMoved(Key(), bTables ? m_zNote.GetPosition() : pzNote->GetPosition());
    EXPECT_EQ(zMoved.Fetch(), pzNote);
    EXPECT_EQ(TextOf(zMoved), std::string(300, 'm'));
    EXPECT_EQ(ManagerOf(m_pzModel)->GetKnownElementNum(), bTables ? 2U : 1U);
    Close(m_pzModel);
  }
}

TEST_F(OutOfCoreElement, MoveRecordWithoutAPositionIsReported) {
  OpenWithNote(10);
  TestNote zNote(Key());
  uint64_t iStart = 0;
  EXPECT_REPORT(zNote.MoveRecord(iStart), "0");
  const NoThrowScope zNoThrow;
  EXPECT_FALSE(zNote.MoveRecord(iStart));
}

// --- Links ----------------------------------------------------------------------------------------------------------

TEST_F(OutOfCoreElement, GetAllPositionListsTheLinksThatAreNotNull) {
  OpenWithNote(10);
  TestBlock* pzBlock = m_zNote.Fetch<TestNote>()->GetMemoryBlockForWrite();
  pzBlock->m_zHeader.m_aiLink = {7, 0, 9};
  pzBlock->m_viReference = {11};
  std::vector<uint64_t> viPosition = {1, 2, 3};
  EXPECT_TRUE(m_zNote.Fetch<TestNote>()->GetAllPosition(viPosition));
  EXPECT_EQ(viPosition, (std::vector<uint64_t>{7, 9, 11}));
}

TEST_F(OutOfCoreElement, ReplaceAllPositionWithALinkMissingInTheMapFailsAndLeavesThoseBeforeReplaced) {
  OpenWithNote(10);
  auto* pzNote = m_zNote.Fetch<TestNote>();
  pzNote->GetMemoryBlockForWrite()->m_zHeader.m_aiLink = {7, 8, 9};
  const std::map<uint64_t, uint64_t> mapPosition = {{7, 70}, {9, 90}};
  EXPECT_REPORT(pzNote->ReplaceAllPosition(mapPosition), "0");
  EXPECT_EQ(pzNote->GetMemoryBlock()->m_zHeader.m_aiLink, (std::array<uint64_t, 3>{70, 8, 9}));
  pzNote->GetMemoryBlockForWrite()->m_zHeader.m_aiLink = {7, 8, 9};
  const NoThrowScope zNoThrow;
  EXPECT_FALSE(pzNote->ReplaceAllPosition(mapPosition));
  EXPECT_EQ(pzNote->GetMemoryBlock()->m_zHeader.m_aiLink, (std::array<uint64_t, 3>{70, 8, 9}));
}

TEST_F(OutOfCoreElement, ReplaceAllPositionReplacesEveryLinkAndReachesTheRecord) {
  OpenWithNote(10);
  auto* pzNote = m_zNote.Fetch<TestNote>();
  TestBlock* pzBlock = pzNote->GetMemoryBlockForWrite();
  pzBlock->m_zHeader.m_aiLink = {7, 0, 9};
  pzBlock->m_viReference = {7};
  EXPECT_TRUE(pzNote->ReplaceAllPosition({{7, 70}, {9, 90}}));
  ASSERT_TRUE(m_zNote.Commit());
  const TestBlock* pzAgain = m_zNote.Fetch<TestNote>()->GetMemoryBlock();
  EXPECT_EQ(pzAgain->m_zHeader.m_aiLink, (std::array<uint64_t, 3>{70, 0, 90}));
  EXPECT_EQ(pzAgain->m_viReference, (std::vector<uint64_t>{70}));
}

TEST_F(OutOfCoreElement, LinksOfAnElementThatCannotBeLoadedAreReported) {
  OpenWithNote(10);
  auto* pzNote = m_zNote.Fetch<TestNote>();
  TestFaults().m_bLoadFails = true;
  const NoThrowScope zNoThrow;
  std::vector<uint64_t> viPosition;
  EXPECT_FALSE(pzNote->GetAllPosition(viPosition));
  EXPECT_FALSE(pzNote->ReplaceAllPosition({}));
}

TEST_F(OutOfCoreElement, TheBoxOfTheRecordBecomesEightCorners) {
  OpenWithNote(10);
  TestBlock* pzBlock = m_zNote.Fetch<TestNote>()->GetMemoryBlockForWrite();
  pzBlock->m_zHeader.m_afBoxMin = {1, 2, 3};
  pzBlock->m_zHeader.m_afBoxMax = {4, 5, 6};
  ASSERT_TRUE(m_zNote.Commit());
  const uint32_t iKey = Key();
  KivContainerRecord zRecord;
  KivElementFrame acFrame;
  const auto pzFresh = KivOutOfCoreManager::GetTemporaryElement(iKey, m_zNote.GetPosition(), zRecord, acFrame);
  auto* pzNote = dynamic_cast<TestNote*>(pzFresh.get());
  ASSERT_NE(pzNote, nullptr);
  const float afExpected[24] = {1, 2, 3, 1, 2, 6, 1, 5, 3, 1, 5, 6, 4, 2, 3, 4, 2, 6, 4, 5, 3, 4, 5, 6};
  EXPECT_EQ(std::memcmp(pzNote->GetBoxCorners(), afExpected, sizeof afExpected), 0);
  EXPECT_EQ(pzNote->GetOutOfCoreTreeLevel(), 0U);
}

TEST_F(OutOfCoreElement, FindsItsModel) {
  OpenWithNote(10);
  EXPECT_EQ(m_zNote.Fetch()->GetModelStatus(), m_pzModel);
  EXPECT_FALSE(m_zNote.Fetch()->IsVer19Data());
}

// --- Ownership ------------------------------------------------------------------------------------------------------

TEST_F(OutOfCoreElement, AnObjectOnTheStackIsNotDestroyedByTheManager) {
  OpenWithNote(10, false, 2);
  TestNote zNote(Key());
  zNote.GetMemoryBlockForWrite()->m_strText = "mine";
  EXPECT_TRUE(zNote.Deactivate());
  EXPECT_EQ(ManagerOf(m_pzModel)->GetKnownElementNum(), 0U);
  EXPECT_EQ(zNote.GetMemoryBlock()->m_strText, "mine");
}

TEST_F(OutOfCoreElement, AStackObjectWithoutARecordIsReportedWhenItLeavesTheList) {
  OpenWithNote(10, false, 2);
  TestNote zNote(Key());
  ASSERT_TRUE(zNote.Activate(false));
  EXPECT_REPORT(zNote.Deactivate(), "0");
  EXPECT_FALSE(zNote.IsActive());
  const NoThrowScope zNoThrow;
  ASSERT_TRUE(zNote.Activate(false));
  EXPECT_FALSE(zNote.Deactivate());
  EXPECT_FALSE(zNote.IsActive());
  EXPECT_EQ(ManagerOf(m_pzModel)->GetActiveElementNum(), 0U);
}

TEST_F(OutOfCoreElement, AnActiveObjectThatEndsLeavesTheList) {
  for (const int32_t iLimit : {1, 3}) {
    SCOPED_TRACE(iLimit);
    m_pzModel = Open(MakeFile(iLimit == 1 ? u"one.kiv" : u"three.kiv"), true, iLimit);
    {
      TestNote zNote(Key());
      ASSERT_NE(zNote.GetMemoryBlockForWrite(), nullptr);
      EXPECT_EQ(ManagerOf(m_pzModel)->GetActiveElementNum(), 1U);
    }
    EXPECT_EQ(ManagerOf(m_pzModel)->GetActiveElementNum(), 0U);
    Close(m_pzModel);
  }
}

TEST_F(OutOfCoreElement, WithABlockForEachElementSeveralOfAClassAreLoaded) {
  Space().SetBlockPerElement(true);
  OpenWithNote(3, false, 4);
  const KivOutOfCoreHandle zOther = AddNote(m_pzModel, "other");
  auto* pzNote = m_zNote.Fetch<TestNote>();
  auto* pzOther = zOther.Fetch<TestNote>();
  const TestBlock* pzBlock = pzNote->GetMemoryBlock();
  const TestBlock* pzOtherBlock = pzOther->GetMemoryBlock();
  EXPECT_NE(pzBlock, pzOtherBlock);
  EXPECT_EQ(pzBlock->m_strText, "xxx");
  EXPECT_TRUE(pzNote->IsActive());
  Close(m_pzModel);
  Space().SetBlockPerElement(false);
}

TEST_F(OutOfCoreElement, WithOneBlockForTheClassTheNextElementTakesItFromTheFirst) {
  OpenWithNote(3, false, 4);
  const KivOutOfCoreHandle zOther = AddNote(m_pzModel, "other");
  m_zNote.Fetch<TestNote>()->GetMemoryBlockForWrite()->m_strText = "new";
  EXPECT_EQ(TextOf(zOther), "other");
  EXPECT_EQ(ManagerOf(m_pzModel)->GetActiveElementNum(), 1U);
  EXPECT_EQ(TextOf(m_zNote), "new");
}

}  // namespace
