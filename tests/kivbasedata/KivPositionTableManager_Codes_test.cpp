// What storing, rewriting and removing tables gives when one step of it fails.
#include <gtest/gtest.h>

#include <map>

#include "KivPositionTableManager.h"
#include "KivTestReport.h"
#include "KivTestReportSource.h"

namespace kiv {

// Brings a manager into states that no operation of its own leads to.
struct KivPositionTableManagerTestAccess {
  static std::vector<Position>& Positions(KivPositionTableManager& zManager) { return zManager.m_viBlockPosition; }
};

}  // namespace kiv

using namespace kiv;
using namespace kivtest;
using Access = KivPositionTableManagerTestAccess;

namespace {

// Tables in memory, at 1,000,000 and every further million. One step of one kind fails.
class Tables : public IKivPositionTableStore {
 public:
  enum class Step { None, New, Begin, End, Free };

  Tables() {
    m_iFirst = NewTable();
    m_zManager.SetExtension(0, 0, 1);
    m_zManager.SetStore(this);
  }
  Position GetFirstPositionTable() override { return m_iFirst; }
  void SetFirstPositionTable(Position iFile) override {
    m_iFirst = iFile;
    ++m_nFirstSet;
  }
  KivMemoryBlockPositionTable* ReadTable(Position iFile) override {
    const auto it = m_mapTable.find(iFile);
    return it != m_mapTable.end() ? it->second.get() : nullptr;
  }
  Position NewTable() override {
    if (Fails(Step::New)) return NULL_FILE_INDEX;
    const Position iFile = (m_nMade += 1) * 1000000;
    m_mapTable[iFile] = std::make_unique<KivMemoryBlockPositionTable>();
    return iFile;
  }
  bool FreeTable(Position iFile) override { return !Fails(Step::Free) && m_mapTable.erase(iFile) == 1; }

  // Two blocks, of which the second has no position yet.
  void FillTwoBlocks() {
    ASSERT_TRUE(m_zManager.EnsureBlock(0));
    ASSERT_TRUE(m_zManager.EnsureBlock(1));
    ASSERT_EQ(m_zManager.GetLoadedBlockPositions(), (std::vector<Position>{1000000, 0}));
  }
  void Fail(Step iStep, int iNth) {
    m_iStep = iStep;
    m_iCountdown = iNth;
  }

  KivPositionTableManager m_zManager{0};
  std::map<Position, std::unique_ptr<KivMemoryBlockPositionTable>> m_mapTable;
  Position m_iFirst = 0;
  int m_nFirstSet = 0;

 protected:
  KivMemoryBlockPositionTable* BeginChange(Position iFile) override {
    return Fails(Step::Begin) ? nullptr : ReadTable(iFile);
  }
  bool EndChange(Position) override { return !Fails(Step::End); }

 private:
  bool Fails(Step iStep) { return iStep == m_iStep && --m_iCountdown == 0; }

  uint64_t m_nMade = 0;
  Step m_iStep = Step::None;
  int m_iCountdown = 0;
};

}  // namespace

TEST(PositionTableCodes, SavingListsOfUnequalLengthGives10) {
  Tables z;
  z.FillTwoBlocks();
  Access::Positions(z.m_zManager).pop_back();
  EXPECT_EQ(z.m_zManager.SaveTables(), KivSaveTablesResult::UnequalLengths);
  EXPECT_EQ(z.m_zManager.RewriteAllTables(), KivRewriteAllTablesResult::UnequalLengths);
  EXPECT_EQ(static_cast<int>(KivSaveTablesResult::UnequalLengths), 10);
  EXPECT_EQ(static_cast<int>(KivRewriteAllTablesResult::UnequalLengths), 10);
  EXPECT_EQ(z.m_mapTable.size(), 1u);
}

TEST(PositionTableCodes, SavingAFirstBlockWithoutPositionGives30) {
  Tables z;
  z.FillTwoBlocks();
  Access::Positions(z.m_zManager)[0] = NULL_FILE_INDEX;
  EXPECT_EQ(z.m_zManager.SaveTables(), KivSaveTablesResult::FirstWithoutPosition);
  EXPECT_EQ(static_cast<int>(KivSaveTablesResult::FirstWithoutPosition), 30);
  EXPECT_EQ(z.m_mapTable.size(), 1u);
}

TEST(PositionTableCodes, ANewTableThatIsNotStoredGives40AndTheNextSaveMakesIt) {
  Tables z;
  z.FillTwoBlocks();
  z.Fail(Tables::Step::New, 1);
  EXPECT_EQ(z.m_zManager.SaveTables(), KivSaveTablesResult::NewTableNotStored);
  EXPECT_EQ(static_cast<int>(KivSaveTablesResult::NewTableNotStored), 40);
  EXPECT_EQ(z.m_zManager.GetLoadedBlockPositions(), (std::vector<Position>{1000000, 0}));
  EXPECT_EQ(z.m_zManager.SaveTables(), KivSaveTablesResult::Done);
  EXPECT_EQ(z.m_zManager.GetLoadedBlockPositions(), (std::vector<Position>{1000000, 2000000}));
  EXPECT_EQ(z.ReadTable(1000000)->m_iNextTable, 2000000u);
  EXPECT_EQ(z.ReadTable(2000000)->m_iPreviousTable, 1000000u);
}

TEST(PositionTableCodes, AnElementThatIsNoTableGives50AndOneThatIsNotStored60) {
  for (const int iNth : {1, 2}) {
    Tables z;
    z.FillTwoBlocks();
    z.Fail(Tables::Step::Begin, iNth);
    EXPECT_EQ(z.m_zManager.SaveTables(), KivSaveTablesResult::NotATable) << iNth;
    z.Fail(Tables::Step::End, iNth);
    EXPECT_EQ(z.m_zManager.SaveTables(), KivSaveTablesResult::TableNotStored) << iNth;
    EXPECT_EQ(z.m_zManager.SaveTables(), KivSaveTablesResult::Done);
  }
  EXPECT_EQ(static_cast<int>(KivSaveTablesResult::NotATable), 50);
  EXPECT_EQ(static_cast<int>(KivSaveTablesResult::TableNotStored), 60);
}

TEST(PositionTableCodes, RewritingGives20WithoutBlocks30ForANewRecord40ForNoTable50ForOneNotStored) {
  using Result = KivRewriteAllTablesResult;
  {
    Tables z;
    z.m_iFirst = NULL_FILE_INDEX;
    EXPECT_EQ(z.m_zManager.RewriteAllTables(), Result::NoBlocks);
  }
  for (const int iNth : {1, 2}) {
    Tables z;
    z.FillTwoBlocks();
    z.Fail(Tables::Step::New, iNth);
    EXPECT_EQ(z.m_zManager.RewriteAllTables(), Result::NewTableNotStored) << iNth;
    z.Fail(Tables::Step::Begin, iNth);
    EXPECT_EQ(z.m_zManager.RewriteAllTables(), Result::NotATable) << iNth;
    z.Fail(Tables::Step::End, iNth);
    EXPECT_EQ(z.m_zManager.RewriteAllTables(), Result::TableNotStored) << iNth;
    EXPECT_EQ(z.m_nFirstSet, 0);  // the header still names the old chain
    EXPECT_EQ(z.m_zManager.RewriteAllTables(), Result::Done);
    EXPECT_EQ(z.m_nFirstSet, 1);
    EXPECT_EQ(z.m_iFirst, z.m_zManager.GetLoadedBlockPositions()[0]);
  }
  EXPECT_EQ(static_cast<int>(Result::NoBlocks), 20);
  EXPECT_EQ(static_cast<int>(Result::NewTableNotStored), 30);
  EXPECT_EQ(static_cast<int>(Result::NotATable), 40);
  EXPECT_EQ(static_cast<int>(Result::TableNotStored), 50);
}

TEST(PositionTableCodes, RemovingReportsAndGives10WhereSavingFailsAnd20WhereARecordIsNotFreed) {
  using Result = KivRemoveAllTablesResult;
  EXPECT_EQ(static_cast<int>(Result::NotSaved), 10);
  EXPECT_EQ(static_cast<int>(Result::NotFreed), 20);
  for (const int iNth : {1, 2}) {
    Tables z;
    z.FillTwoBlocks();
    z.Fail(Tables::Step::End, iNth);
    EXPECT_REPORT_FROM(z.m_zManager.RemoveAllTables(), "0", "src\\KivPositionTableManager");
    EXPECT_EQ(z.m_mapTable.size(), 2u);
    NoThrowScope zNoThrow;
    z.Fail(Tables::Step::End, iNth);
    EXPECT_EQ(z.m_zManager.RemoveAllTables(), Result::NotSaved);
    EXPECT_EQ(z.m_mapTable.size(), 2u);
    z.Fail(Tables::Step::Free, iNth);
    EXPECT_EQ(z.m_zManager.RemoveAllTables(), Result::NotFreed);
    EXPECT_EQ(z.m_mapTable.size(), 3u - static_cast<size_t>(iNth));
  }
  Tables z;
  z.FillTwoBlocks();
  z.Fail(Tables::Step::Free, 2);
  EXPECT_REPORT_FROM(z.m_zManager.RemoveAllTables(), "0", "src\\KivPositionTableManager");
}
