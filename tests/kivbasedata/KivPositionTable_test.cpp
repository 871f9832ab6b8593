#include "KivPositionTable.h"

#include <gtest/gtest.h>

#include "KivContainerHeader.h"
#include "KivLittleEndian.h"
#include "KivPositionTableManager.h"
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

// --- Tables and store together
// ----------------------------------------------------------------------------------------

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
