#include "KivPositionTable.h"

#include <gtest/gtest.h>

#include "KivContainerHeader.h"
#include "KivException.h"
#include "KivLittleEndian.h"
#include "KivOutOfCorePositionTables.h"
#include "KivPositionTableManager.h"
#include "KivReportQuiet.h"
#include "KivTestStore.h"

namespace {

using namespace kiv;
using namespace kivtest;

class PositionTableElement : public StoreTest {
 protected:
  uint64_t AddRecord(KivModelStatusBase* pzModel, const std::vector<uint8_t>& vcBytes) {
    return ManagerOf(pzModel)->GetContainer()->AddRecord(
        KivContainerData(vcBytes.data(), static_cast<uint32_t>(vcBytes.size())));
  }
  KivPositionTable* TableAt(KivModelStatusBase* pzModel, uint64_t iPosition) {
    return dynamic_cast<KivPositionTable*>(KivOutOfCoreManager::GetElement(pzModel->GetKey(), iPosition));
  }
  std::vector<uint8_t> TableRecord(uint64_t nEntries) {
    KivMemoryBlockPositionTable zTable;
    zTable.m_iPositionNum = nEntries;
    for (uint64_t i = 0; i < nEntries; ++i) zTable.m_aiPosition[static_cast<size_t>(i)] = 1000 + i;
    std::vector<uint8_t> vcBytes(KivMemoryBlockPositionTable::kRecordSize);
    EXPECT_TRUE(zTable.Build(vcBytes.data()));
    return vcBytes;
  }
};

TEST_F(PositionTableElement, ANewTableHasTheDefaults) {
  KivPositionTable zTable(0);
  const KivMemoryBlockPositionTable* pzBlock = zTable.GetMemoryBlock();
  ASSERT_NE(pzBlock, nullptr);
  EXPECT_EQ(pzBlock->m_iElementType, 10U);
  EXPECT_EQ(pzBlock->m_iElementVersion, 0U);
  EXPECT_EQ(pzBlock->m_iElementState, 1U);
  EXPECT_EQ(pzBlock->m_iHeaderSize, 68U);
  EXPECT_EQ(pzBlock->m_iPositionNum, 0U);
  EXPECT_EQ(zTable.GetElementType(), 10U);
}

TEST_F(PositionTableElement, ATableIsReadFromItsRecordAndWrittenBack) {
  for (const int32_t iLimit : {1, 2}) {
    KivModelStatusBase* pzModel = Open(MakeFile(iLimit == 1 ? u"one.kiv" : u"two.kiv"), true, iLimit);
    const uint64_t iPosition = AddRecord(pzModel, TableRecord(3));
    KivMemoryBlockPositionTable* pzBlock = TableAt(pzModel, iPosition)->GetMemoryBlockForWrite();
    ASSERT_NE(pzBlock, nullptr);
    EXPECT_EQ(pzBlock->m_iPositionNum, 3U);
    EXPECT_EQ(pzBlock->m_aiPosition[2], 1002U);
    pzBlock->m_aiPosition[3] = 77;
    pzBlock->m_iPositionNum = 4;
    EXPECT_TRUE(TableAt(pzModel, iPosition)->Deactivate());
    EXPECT_EQ(TableAt(pzModel, iPosition)->GetMemoryBlock()->m_aiPosition[3], 77U);
    EXPECT_EQ(TableAt(pzModel, iPosition)->GetPosition(), iPosition);
  }
}

TEST_F(PositionTableElement, ADamagedRecordIsReportedAndNotLoadedAndNothingIsThrownByLoad) {
  KivModelStatusBase* pzModel = Open(MakeFile(u"a.kiv"), true);
  const auto Damaged = [&](size_t iOffset, uint32_t iValue) {
    std::vector<uint8_t> vcBytes = TableRecord(1);
    KivStore<uint32_t>(&vcBytes[iOffset], iValue);
    return AddRecord(pzModel, vcBytes);
  };
  std::vector<uint8_t> vcShort = TableRecord(1);
  vcShort.resize(vcShort.size() - 1);
  for (const uint64_t iPosition :
       {Damaged(12, 67), Damaged(64, 3), Damaged(262212, 32769), Damaged(262216, 1), AddRecord(pzModel, vcShort)}) {
    KivPositionTable* pzTable = TableAt(pzModel, iPosition);
    ASSERT_NE(pzTable, nullptr);
    KivSetReported(false);
    bool bLoaded = true;
    EXPECT_NO_THROW(bLoaded = pzTable->Load(false));
    EXPECT_FALSE(bLoaded);
    EXPECT_TRUE(KivGetReportSwitches().m_bReported);
    EXPECT_REPORT(pzTable->GetMemoryBlock(), "0");
    const NoThrowScope zNoThrow;
    EXPECT_FALSE(pzTable->Load(false));
    EXPECT_EQ(pzTable->GetMemoryBlock(), nullptr);
  }
}

TEST_F(PositionTableElement, ABlockThatMustNotBeStoredIsReportedAndNothingIsThrownBySave) {
  KivModelStatusBase* pzModel = Open(MakeFile(u"a.kiv"), true);
  const uint64_t iPosition = AddRecord(pzModel, TableRecord(1));
  KivPositionTable* pzTable = TableAt(pzModel, iPosition);
  const auto Spoil = [&](auto&& spoil) {
    KivMemoryBlockPositionTable* pzBlock = pzTable->GetMemoryBlockForWrite();
    const KivMemoryBlockPositionTable& zBlock = *pzBlock;
    auto pzBefore = std::make_unique<KivMemoryBlockPositionTable>();
    pzBefore->CopyFrom(zBlock);
    spoil(*pzBlock);
    bool bSaved = true;
    EXPECT_NO_THROW(bSaved = pzTable->Save(false));
    EXPECT_FALSE(bSaved);
    pzBlock->CopyFrom(*pzBefore);
  };
  Spoil([](auto& z) { z.m_iElementState = 0; });
  Spoil([](auto& z) { z.m_iElementType = 11; });
  Spoil([](auto& z) { z.m_iHeaderSize = 67; });
  Spoil([](auto& z) { z.m_iElementKind = 3; });
  Spoil([](auto& z) { z.m_iPositionNum = 32769; });
  EXPECT_TRUE(pzTable->Save(false));
}

TEST_F(PositionTableElement, ATableOfThePreviousGenerationReadsFromSixtyFourOnAndCannotBeWritten) {
  const KivWString csPath = MakeFile(u"a.kiv");
  KivModelStatusBase* pzModel = Open(csPath, true);
  std::vector<uint8_t> vcBytes = TableRecord(2);
  vcBytes.erase(vcBytes.begin() + 8, vcBytes.begin() + 12);
  ASSERT_EQ(vcBytes.size(), 262216U);
  const uint64_t iPosition = AddRecord(pzModel, vcBytes);
  Close(pzModel);
  PatchHeader(csPath, KivContainerHeader::FormatVersion, std::string(8, '\x13'));
  pzModel = Open(csPath, true);
  const KivMemoryBlockPositionTable* pzBlock = TableAt(pzModel, iPosition)->GetMemoryBlock();
  ASSERT_NE(pzBlock, nullptr);
  EXPECT_EQ(pzBlock->m_iElementState, 0U);
  EXPECT_EQ(pzBlock->m_iPositionNum, 2U);
  EXPECT_EQ(pzBlock->m_aiPosition[1], 1001U);
  const NoThrowScope zNoThrow;
  EXPECT_FALSE(TableAt(pzModel, iPosition)->Save(false));
}

TEST_F(PositionTableElement, AtMostOneTableIsActiveWhileTheClassHasOneBlock) {
  KivModelStatusBase* pzModel = Open(MakeFile(u"a.kiv"), true, 5);
  const uint64_t iFirst = AddRecord(pzModel, TableRecord(1));
  const uint64_t iSecond = AddRecord(pzModel, TableRecord(2));
  ASSERT_NE(TableAt(pzModel, iFirst)->GetMemoryBlock(), nullptr);
  ASSERT_NE(TableAt(pzModel, iSecond)->GetMemoryBlock(), nullptr);
  EXPECT_EQ(ManagerOf(pzModel)->GetActiveElementNum(), 1U);
}

TEST_F(PositionTableElement, ABlockThatIsNotTheOneOfTheClassIsReportedWhenItIsGivenBackAndGoesAllTheSame) {
  KivModelStatusBase* pzModel = Open(MakeFile(u"a.kiv"), true, 5);
  const uint64_t iPosition = AddRecord(pzModel, TableRecord(3));
  const auto LoadWithOwnBlock = [&] {
    Space().SetBlockPerElement(true);
    KivPositionTable* pzTable = TableAt(pzModel, iPosition);
    EXPECT_NE(pzTable->GetMemoryBlock(), nullptr);
    Space().SetBlockPerElement(false);
    return pzTable;
  };
  for (const bool bThrow : {true, false}) {
    SCOPED_TRACE(bThrow);
    KivSetReportNoThrow(!bThrow);
    const uint64_t nAll = KivGetReportCount();
    KivPositionTable* pzTable = LoadWithOwnBlock();
    EXPECT_EQ(KivGetReportCount(), nAll);
    bool bReleased = false;
    EXPECT_NO_THROW(bReleased = pzTable->Release());
    EXPECT_TRUE(bReleased);
    EXPECT_EQ(KivGetReportCount(), nAll + 1);
    EXPECT_STREQ(KivLastQuietReport().m_szCondition, "0");
    EXPECT_STREQ(KivLastQuietReport().m_szSource, "src\\KivPositionTable");
    EXPECT_TRUE(pzTable->Release());  // it has none any more
    EXPECT_EQ(KivGetReportCount(), nAll + 1);
    // The element takes the class's block, and leaves the list with either.
    EXPECT_EQ(pzTable->GetMemoryBlock()->m_aiPosition[2], 1002U);
    EXPECT_TRUE(pzTable->Deactivate());
    EXPECT_EQ(KivGetReportCount(), nAll + 1);
    EXPECT_TRUE(LoadWithOwnBlock()->Deactivate());
    EXPECT_EQ(KivGetReportCount(), nAll + 2);
    EXPECT_EQ(ManagerOf(pzModel)->GetActiveElementNum(), 0U);
  }
  KivSetReportNoThrow(false);
}

TEST_F(PositionTableElement, TheBlockOfTheClassIsGivenBackWhateverTheSettingSaysByThen) {
  KivModelStatusBase* pzModel = Open(MakeFile(u"a.kiv"), true, 5);
  const uint64_t iFirst = AddRecord(pzModel, TableRecord(1));
  const uint64_t iSecond = AddRecord(pzModel, TableRecord(2));
  KivPositionTable* pzFirst = TableAt(pzModel, iFirst);
  const KivMemoryBlockPositionTable* pzStatic = pzFirst->GetMemoryBlock();
  Space().SetBlockPerElement(true);
  const uint64_t nAll = KivGetReportCount();
  EXPECT_TRUE(pzFirst->Release());
  Space().SetBlockPerElement(false);
  EXPECT_EQ(TableAt(pzModel, iSecond)->GetMemoryBlock(), pzStatic);
  EXPECT_EQ(KivGetReportCount(), nAll);
}

// --- Tables and store together --------------------------------------------------------------------------------------

TEST_F(PositionTableElement, KeysSurviveSavingAndReopening) {
  for (const int32_t iLimit : {1, 2, 10}) {
    const KivWString csPath = MakeFile(KivWString(u"keys") + static_cast<char16_t>(u'0' + iLimit % 10), true);
    KivModelStatusBase* pzModel = Open(csPath, true, iLimit);
    std::vector<KivOutOfCoreHandle> vzNote;
    for (int i = 0; i < 50; ++i) vzNote.push_back(AddNote(pzModel, std::to_string(i)));
    for (int i = 0; i < 50; i += 3) ASSERT_TRUE(SetText(vzNote[static_cast<size_t>(i)], std::string(400, 'g')));
    Close(pzModel);
    pzModel = Open(csPath, false, iLimit);
    for (int i = 0; i < 50; ++i)
      EXPECT_EQ(TextOf(KivOutOfCoreHandle(pzModel->GetKey(), vzNote[static_cast<size_t>(i)].GetPosition())),
                i % 3 == 0 ? std::string(400, 'g') : std::to_string(i));
    Close(pzModel);
  }
}

TEST_F(PositionTableElement, ABlockBehindTheFirstEntersTheChainWithSaveTables) {
  const KivWString csPath = MakeFile(u"a.kiv", true);
  KivModelStatusBase* pzModel = Open(csPath, true, 3);
  KivPositionTableManager* pzTables = ManagerOf(pzModel)->GetPositionTableManager();
  uint64_t iKey = 0;
  for (uint64_t i = 0; i < 32769; ++i) ASSERT_TRUE(pzTables->AddKey(264 + i, &iKey));
  EXPECT_EQ(iKey, 0x8000000000008000U);
  EXPECT_EQ(pzTables->GetBlockPositions().size(), 1U);
  EXPECT_TRUE(ManagerOf(pzModel)->SaveChanges());
  EXPECT_EQ(pzTables->GetBlockPositions().size(), 2U);
  Close(pzModel);
  pzModel = Open(csPath, false);
  EXPECT_EQ(ManagerOf(pzModel)->GetPositionTableManager()->ResolveKey(iKey), 264U + 32768);
}

TEST_F(PositionTableElement, KeysOfBlocksThatWereNotLoadedSurviveSnapshotSaveAndPatch) {
  const KivWString csFirst = MakeFile(u"a.kiv", true);
  KivModelStatusBase* pzModel = Open(csFirst, true);
  const uint64_t iFirstKey = AddNote(pzModel, "in block 0").GetPosition();
  KivPositionTableManager* pzTables = ManagerOf(pzModel)->GetPositionTableManager();
  uint64_t iKey = 0;
  for (uint64_t i = 1; i < 2 * 32768; ++i) ASSERT_TRUE(pzTables->AddKey(264, &iKey));
  const uint64_t iLastKey = AddNote(pzModel, "in block 2").GetPosition();
  ASSERT_EQ(iLastKey, 0x8000000000010000U);
  ASSERT_TRUE(ManagerOf(pzModel)->SaveChanges());
  Close(pzModel);
  const std::string strWhole = FileBytes(csFirst);
  const auto ExpectBoth = [&](KivModelStatusBase* pzSaved, const char* szFirst) {
    EXPECT_EQ(TextOf(KivOutOfCoreHandle(pzSaved->GetKey(), iFirstKey)), szFirst);
    EXPECT_EQ(TextOf(KivOutOfCoreHandle(pzSaved->GetKey(), iLastKey)), "in block 2");
    EXPECT_EQ(ManagerOf(pzSaved)->GetPositionTableManager()->GetPositionNum(), 65537U);
  };

  for (const int32_t iLimit : {1, 2, 9}) {
    SCOPED_TRACE(iLimit);
    const KivWString csPath = m_zFolder / (KivWString(u"limit") + static_cast<char16_t>(u'0' + iLimit));
    PutFileBytes(csPath, strWhole);
    // Read: a snapshot, a copy and a patch are made while block 0 alone is loaded.
    pzModel = Open(csPath, false, iLimit);
    KivOutOfCoreHandle zFirst(pzModel->GetKey(), iFirstKey);
    ASSERT_TRUE(SetText(zFirst, "moved " + std::string(500, 'm')));
    ASSERT_EQ(ManagerOf(pzModel)->GetPositionTableManager()->GetLoadedBlockNum(), 1U);
    ASSERT_EQ(Space().CreateSnapShot(), KivCreateSnapShotResult::Done);
    ASSERT_TRUE(SetText(zFirst, "changed"));
    ASSERT_EQ(Space().SaveSnapShot(pzModel, csPath + u".copy", 0), KivSaveSnapShotResult::Done);
    ASSERT_TRUE(KivOutOfCoreManager::SaveAs(pzModel->GetKey(), csPath + u".patch", false));
    ASSERT_EQ(Space().UndoSnapShot(1), KivUndoResult::Done);
    ExpectBoth(pzModel, ("moved " + std::string(500, 'm')).c_str());
    Close(pzModel);
    pzModel = Open(csPath + u".copy", false, iLimit);
    ExpectBoth(pzModel, "changed");
    Close(pzModel);
    KivModelOpenInfo zInfo;
    zInfo.m_csPatchPath = csPath + u".patch";
    ASSERT_EQ(Space().AddModel(csPath, zInfo, &pzModel), KivAddModelResult::Done);
    ExpectBoth(pzModel, "changed");
    Close(pzModel);
    // In place: the tables are stored when the model is closed.
    pzModel = Open(csPath, true, iLimit);
    zFirst = KivOutOfCoreHandle(pzModel->GetKey(), iFirstKey);
    ASSERT_TRUE(SetText(zFirst, std::string(700, 'w')));
    Close(pzModel);
    pzModel = Open(csPath, false, iLimit);
    ExpectBoth(pzModel, std::string(700, 'w').c_str());
    Close(pzModel);
  }
}

// Tables of which no new one can be stored for a while.
class TablesWithoutRoom : public KivOutOfCorePositionTables {
 public:
  TablesWithoutRoom(uint32_t iManagerKey, bool bReports)
      : KivOutOfCorePositionTables(iManagerKey), m_bReports(bReports) {}
  Position NewTable() override {
    if (m_bRoom) return KivOutOfCorePositionTables::NewTable();
    if (m_bReports) KivReportFailure("0", "TablesWithoutRoom", __LINE__);
    return NULL_FILE_INDEX;
  }
  bool m_bRoom = false;

 private:
  bool m_bReports;
};

TEST_F(PositionTableElement, KeysOfATableThatCouldNotBeStoredOnceAreStoredWhenTheModelIsClosed) {
  for (const bool bReports : {false, true}) {
    SCOPED_TRACE(bReports);
    const KivWString csPath = MakeFile(u"a.kiv", true);
    KivModelStatusBase* pzModel = Open(csPath, true);
    const uint64_t iFirstKey = AddNote(pzModel, "in block 0").GetPosition();
    KivPositionTableManager* pzTables = ManagerOf(pzModel)->GetPositionTableManager();
    uint64_t iKey = 0;
    for (uint64_t i = 1; i < 32768; ++i) ASSERT_TRUE(pzTables->AddKey(264, &iKey));
    ASSERT_TRUE(ManagerOf(pzModel)->SaveChanges());
    const uint64_t iNextKey = AddNote(pzModel, "in block 1").GetPosition();
    ASSERT_EQ(iNextKey, 0x8000000000008000U);
    TablesWithoutRoom zTables(pzModel->GetKey(), bReports);
    pzTables->SetStore(&zTables);
    EXPECT_REPORT(ManagerOf(pzModel)->SaveChanges(), "0");
    if (!bReports) {
      const NoThrowScope zNoThrow;
      EXPECT_FALSE(ManagerOf(pzModel)->SaveChanges());
    }
    zTables.m_bRoom = true;
    Close(pzModel);
    pzModel = Open(csPath, false);
    EXPECT_EQ(TextOf(KivOutOfCoreHandle(pzModel->GetKey(), iFirstKey)), "in block 0");
    EXPECT_EQ(TextOf(KivOutOfCoreHandle(pzModel->GetKey(), iNextKey)), "in block 1");
    Close(pzModel);
  }
}

TEST_F(PositionTableElement, TablesThatOverlapAreNotFollowed) {
  // Each table would begin a few bytes behind the one before, so that a small file makes any number of blocks.
  const KivWString csPath = MakeFile(u"a.kiv");
  KivModelStatusBase* pzModel = Open(csPath, true);
  constexpr uint64_t kStep = 104;
  constexpr uint64_t kTables = 300;
  const std::vector<uint8_t> vcRoom(static_cast<size_t>(kStep * kTables) + 300000);
  const uint64_t iFirst = AddRecord(pzModel, vcRoom);
  Close(pzModel);
  std::string strBytes = FileBytes(csPath);
  for (uint64_t i = 0; i < kTables; ++i) {
    const uint64_t iAt = iFirst + i * kStep;
    KivStore<uint64_t>(&strBytes[iAt], 262220 + 24);  // a record's sizes, and no back pointer
    KivStore<uint64_t>(&strBytes[iAt + 8], 262220);
    KivStore<uint32_t>(&strBytes[iAt + 16], 10);
    KivStore<uint32_t>(&strBytes[iAt + 16 + 8], 1);
    KivStore<uint32_t>(&strBytes[iAt + 16 + 12], 68);
    KivStore<uint64_t>(&strBytes[iAt + 16 + 24], iAt + kStep);
  }
  std::string strFirst(8, '\0');
  KivStore<uint64_t>(strFirst.data(), iFirst);
  PutFileBytes(csPath, strBytes);
  PatchHeader(csPath, KivContainerHeader::FirstPositionTable, strFirst);
  PatchHeader(csPath, KivContainerHeader::FilePositionTableMode, std::string("\1\0\0\0", 4));
  pzModel = Open(csPath, false);
  KivPositionTableManager* pzTables = ManagerOf(pzModel)->GetPositionTableManager();
  EXPECT_REPORT(pzTables->GetPositionNum(), "0");
  const NoThrowScope zNoThrow;
  pzTables->GetPositionNum();
  EXPECT_EQ(pzTables->GetLoadedBlockNum(), 1U);
  EXPECT_EQ(pzTables->GetBlockPositions().size(), 1U);
}

TEST_F(PositionTableElement, ATableChainThatLeadsToAnotherClassIsReported) {
  const KivWString csPath = MakeFile(u"a.kiv", false);
  KivModelStatusBase* pzModel = Open(csPath, true);
  const uint64_t iNote = AddNote(pzModel, "no table").GetPosition();
  Close(pzModel);
  std::string strFirst(8, '\0');
  KivStore<uint64_t>(strFirst.data(), iNote);
  PatchHeader(csPath, KivContainerHeader::FirstPositionTable, strFirst);
  PatchHeader(csPath, KivContainerHeader::FilePositionTableMode, std::string("\1\0\0\0", 4));
  pzModel = Open(csPath, false);
  EXPECT_REPORT(KivOutOfCoreManager::GetElement(pzModel->GetKey(), 0x8000000000000000), "0");
  const NoThrowScope zNoThrow;
  EXPECT_EQ(KivOutOfCoreManager::GetElement(pzModel->GetKey(), 0x8000000000000000), nullptr);
}

TEST_F(PositionTableElement, RemoveAllTablesFreesTheirRecords) {
  KivModelStatusBase* pzModel = Open(MakeFile(u"a.kiv", true), true, 2);
  AddNote(pzModel, "note");
  EXPECT_EQ(ManagerOf(pzModel)->GetPositionTableManager()->RemoveAllTables(), KivRemoveAllTablesResult::Done);
  EXPECT_EQ(ManagerOf(pzModel)->GetContainer()->FullCheck().m_iFreeRecordNum, 1U);
}

TEST_F(PositionTableElement, RewriteAllTablesNamesTheNewFirstTableInTheHeader) {
  const KivWString csPath = MakeFile(u"a.kiv", true);
  KivModelStatusBase* pzModel = Open(csPath, true);
  const KivOutOfCoreHandle zNote = AddNote(pzModel, "note");
  const uint64_t iFirst = KivOutOfCoreManager::GetFirstPositionTable(pzModel->GetKey());
  EXPECT_EQ(ManagerOf(pzModel)->GetPositionTableManager()->RewriteAllTables(), KivRewriteAllTablesResult::Done);
  EXPECT_NE(KivOutOfCoreManager::GetFirstPositionTable(pzModel->GetKey()), iFirst);
  Close(pzModel);
  pzModel = Open(csPath, false);
  EXPECT_EQ(TextOf(KivOutOfCoreHandle(pzModel->GetKey(), zNote.GetPosition())), "note");
}

}  // namespace
