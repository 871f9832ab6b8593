// Keys, blocks, their records, and the chain.
#include "KivPositionTableManager.h"

#include <gtest/gtest.h>

#include "KivFastFileContainer.h"
#include "KivFormatRegistry.h"
#include "KivTestContainer.h"
#include "KivTestPositionTables.h"
#include "KivTestReport.h"
#include "KivTestReportSource.h"

using namespace kiv;
using namespace kivtest;

namespace {

constexpr Position kTop = 0x8000000000000000;

// A container in table mode with one empty table, as a file that came from elsewhere has it.
struct Tables {
  explicit Tables(uint32_t iMode = 1, bool bWithTable = true) {
    KivRegisterOwnFormat();
    pzMain = MakeMemory();
    {
      KivFastFileContainer zNew(pzMain, MakeMemory(), nullptr);
      if (bWithTable) {
        KivContainerPositionTables zStore(zNew);
        zNew.SetFirstPositionTable(zStore.NewTable());
      }
    }
    pzMain->Write(8 + 140, &iMode, 4);
    Open();
  }
  void Open() {
    pzContainer.reset();
    pzManager = std::make_unique<KivPositionTableManager>(0);
    pzContainer = std::make_unique<KivFastFileContainer>(pzMain, pzManager.get());
    pzStore = std::make_unique<KivContainerPositionTables>(*pzContainer);
    pzManager->SetStore(pzStore.get());
  }
  KivPositionTableManager* operator->() { return pzManager.get(); }

  KivSharedPtr<ISnapShotFile> pzMain;
  std::unique_ptr<KivPositionTableManager> pzManager;
  std::unique_ptr<KivFastFileContainer> pzContainer;
  std::unique_ptr<KivContainerPositionTables> pzStore;
};

void Fill(Tables& z, uint64_t iNum) {
  for (uint64_t i = 0; i < iNum; ++i) {
    Position iKey = 0;
    ASSERT_TRUE(z->AddKey(1000 + i, &iKey));
    ASSERT_EQ(iKey, kTop + i);
  }
}

}  // namespace

TEST(PositionTable, The32768thKeyFillsABlockAndTheNextOneMakesAnotherWithoutPosition) {
  Tables z;
  Fill(z, 32768);
  EXPECT_EQ(z->GetLoadedBlockNum(), 1u);
  Position iKey = 0;
  ASSERT_TRUE(z->AddKey(77, &iKey));
  EXPECT_EQ(iKey, 0x8000000000008000u);
  EXPECT_EQ(z->GetLoadedBlockNum(), 2u);
  EXPECT_EQ(z->GetLoadedBlockPositions().back(), 0u);
  EXPECT_EQ(z->GetPositionNum(), 32769u);
  EXPECT_EQ(z->ResolveKey(iKey), 77u);
}

TEST(PositionTable, ANewBlockIsInTheChainOnlyAfterASave) {
  Tables z;
  Fill(z, 32769);
  EXPECT_EQ(z->GetBlockPositions().size(), 1u);
  EXPECT_EQ(z->SaveTables(), KivSaveTablesResult::Done);
  const std::vector<Position> viPosition = z->GetBlockPositions();
  ASSERT_EQ(viPosition.size(), 2u);
  EXPECT_EQ(viPosition, z->GetLoadedBlockPositions());
  z.pzContainer->Flush();
  z.Open();
  EXPECT_EQ(z->GetPositionNum(), 32769u);
  EXPECT_EQ(z->ResolveKey(kTop + 5), 1005u);
  EXPECT_EQ(z->ResolveKey(kTop + 32768), 1000u + 32768u);
  const KivMemoryBlockPositionTable* pzSecond = z.pzStore->ReadTable(viPosition[1]);
  EXPECT_EQ(pzSecond->m_iPreviousTable, viPosition[0]);
  EXPECT_EQ(pzSecond->m_iNextTable, 0u);
  EXPECT_EQ(z.pzStore->ReadTable(viPosition[0])->m_iNextTable, viPosition[1]);
  EXPECT_TRUE(z.pzContainer->FullCheck().IsSound());
}

TEST(PositionTable, AKeyJustPastTheLastEntryIsReportedAndTheNextAddIssuesIt) {
  Tables z;
  Fill(z, 3);
  try {
    z->ResolveKey(kTop + 3);
    ADD_FAILURE() << "no report";
  } catch (const KivException& e) {
    EXPECT_EQ(e.GetMessageText(), u"0");
    EXPECT_EQ(e.GetFile(), u"KivPositionTable");
  }
  {
    NoThrowScope zNoThrow;
    EXPECT_EQ(z->ResolveKey(kTop + 3), 0u);
    EXPECT_EQ(z->ResolveKey(kTop + 40000), 0u);  // no such block
    EXPECT_EQ(z->ResolveKey(UINT64_MAX), 0u);
  }
  Position iKey = 0;
  ASSERT_TRUE(z->AddKey(9, &iKey));
  EXPECT_EQ(iKey, kTop + 3);
}

TEST(PositionTable, KeyZeroAndPlainKeysResolveToThemselves) {
  Tables z;
  EXPECT_EQ(z->ResolveKey(0), 0u);
  EXPECT_EQ(z->ResolveKey(264), 264u);
  Position iKey = 5;
  EXPECT_TRUE(z->AddKey(0, &iKey));
  EXPECT_EQ(iKey, 0u);
  EXPECT_EQ(z->GetPositionNum(), 0u);
  EXPECT_REPORT_FROM(z->AddKey(1, nullptr), "0", "src\\KivPositionTableManager");
  NoThrowScope zNoThrow;
  EXPECT_FALSE(z->AddKey(1, nullptr));
}

TEST(PositionTable, WithModeZeroKeysArePositionsAndReplacingAlwaysFails) {
  Tables z(0);
  Position iKey = 0;
  EXPECT_TRUE(z->AddKey(264, &iKey));
  EXPECT_EQ(iKey, 264u);
  EXPECT_EQ(z->ResolveKey(264), 264u);
  EXPECT_REPORT_FROM(z->ResolveKey(kTop), "0", "src\\KivPositionTableManager");
  EXPECT_REPORT_FROM(z->ReplacePosition(300, kTop), "0", "src\\KivPositionTableManager");
  NoThrowScope zNoThrow;
  EXPECT_EQ(z->ResolveKey(kTop), 0u);
  EXPECT_FALSE(z->ReplacePosition(300, kTop));
  EXPECT_FALSE(z->ReplacePosition(300, 264));
}

TEST(PositionTable, SavingWithModeZeroIsDoneAtOnceAndRewritingHasNoSuchEnd) {
  Tables z(0, false);
  EXPECT_EQ(z->SaveTables(), KivSaveTablesResult::Done);
  EXPECT_EQ(z->RewriteAllTables(), KivRewriteAllTablesResult::NoBlocks);
  EXPECT_EQ(z->RemoveAllTables(), KivRemoveAllTablesResult::Done);
}

TEST(PositionTable, ReplacingChangesWhatAKeyResolvesTo) {
  Tables z;
  Fill(z, 3);
  EXPECT_TRUE(z->ReplacePosition(4711, kTop + 1));
  EXPECT_EQ(z->ResolveKey(kTop + 1), 4711u);
  NoThrowScope zNoThrow;
  EXPECT_FALSE(z->ReplacePosition(1, 0));
  EXPECT_FALSE(z->ReplacePosition(1, 264));
  EXPECT_FALSE(z->ReplacePosition(kTop + 5, kTop + 1));
  EXPECT_FALSE(z->ReplacePosition(1, kTop + 3));
  EXPECT_FALSE(z->ReplacePosition(1, kTop + 32768));
  EXPECT_EQ(z->ResolveKey(kTop + 1), 4711u);
}

TEST(PositionTable, AMultiFileExtensionMakesEveryKeyOperationFail) {
  Tables z;
  Fill(z, 1);
  z->SetExtension(1, 0, 1);
  EXPECT_REPORT_FROM(z->ResolveKey(264), "0", "src\\KivPositionTableManager");
  NoThrowScope zNoThrow;
  Position iKey = 0;
  EXPECT_EQ(z->ResolveKey(kTop), 0u);
  EXPECT_EQ(z->ResolveKey(264), 0u);
  EXPECT_FALSE(z->AddKey(264, &iKey));
  EXPECT_FALSE(z->ReplacePosition(264, kTop));
  EXPECT_EQ(z->SaveTables(), KivSaveTablesResult::Done);
}

TEST(PositionTable, WithoutAFirstTableThereIsNoBlockAndNothingMakesOne) {
  Tables z(1, false);
  EXPECT_EQ(z->GetPositionNum(), 0u);
  EXPECT_FALSE(z->LoadBlock(0));
  EXPECT_EQ(z->SaveTables(), KivSaveTablesResult::NoBlocks);
  EXPECT_REPORT_FROM(z->EnsureBlock(0), "0", "src\\KivPositionTableManager");
  EXPECT_REPORT_FROM(z->RemoveAllTables(), "0", "src\\KivPositionTableManager");
  NoThrowScope zNoThrow;
  Position iKey = 0;
  EXPECT_FALSE(z->EnsureBlock(0));
  EXPECT_FALSE(z->AddKey(264, &iKey));
  EXPECT_EQ(z->RemoveAllTables(), KivRemoveAllTablesResult::NotSaved);
}

TEST(PositionTable, EnsuringGoesOnlyOneBlockBehindTheLast) {
  Tables z;
  EXPECT_TRUE(z->EnsureBlock(0));
  NoThrowScope zNoThrow;
  EXPECT_FALSE(z->EnsureBlock(2));
  EXPECT_TRUE(z->EnsureBlock(1));
  EXPECT_TRUE(z->EnsureBlock(2));
  EXPECT_EQ(z->GetLoadedBlockNum(), 3u);
}

TEST(PositionTable, RewritingStoresEveryBlockAnewAndNamesTheFirst) {
  Tables z;
  Fill(z, 32770);
  ASSERT_EQ(z->SaveTables(), KivSaveTablesResult::Done);
  const std::vector<Position> viOld = z->GetBlockPositions();
  EXPECT_EQ(z->RewriteAllTables(), KivRewriteAllTablesResult::Done);
  const std::vector<Position> viNew = z->GetBlockPositions();
  ASSERT_EQ(viNew.size(), 2u);
  EXPECT_EQ(z.pzContainer->GetFirstPositionTable(), viNew[0]);
  EXPECT_NE(viNew[0], viOld[0]);
  EXPECT_NE(viNew[1], viOld[1]);
  z.pzContainer->Flush();
  z.Open();
  EXPECT_EQ(z->ResolveKey(kTop + 32769), 1000u + 32769u);
}

TEST(PositionTable, SavingAChainOfWhichOneBlockIsLoadedKeepsTheRest) {
  Tables z;
  Fill(z, 2 * 32768 + 1);
  ASSERT_EQ(z->SaveTables(), KivSaveTablesResult::Done);
  const std::vector<Position> viPosition = z->GetBlockPositions();
  ASSERT_EQ(viPosition.size(), 3u);
  z.pzContainer->Flush();
  for (const bool bRewrite : {false, true}) {
    z.Open();
    EXPECT_EQ(z->ResolveKey(kTop + 5), 1005u);
    EXPECT_EQ(z->GetLoadedBlockNum(), 1u);
    if (bRewrite) {
      EXPECT_EQ(z->RewriteAllTables(), KivRewriteAllTablesResult::Done);
      EXPECT_NE(z->GetBlockPositions(), viPosition);
    } else {
      EXPECT_EQ(z->SaveTables(), KivSaveTablesResult::Done);
      EXPECT_EQ(z->GetBlockPositions(), viPosition);
    }
    z.pzContainer->Flush();
    z.Open();
    EXPECT_EQ(z->ResolveKey(kTop + 2 * 32768), 1000u + 2 * 32768u);
    EXPECT_EQ(z->GetPositionNum(), 2 * 32768u + 1);
    const std::vector<Position> viNow = z->GetBlockPositions();
    ASSERT_EQ(viNow.size(), 3u);
    EXPECT_EQ(z.pzStore->ReadTable(viNow[1])->m_iPreviousTable, viNow[0]);
    EXPECT_EQ(z.pzStore->ReadTable(viNow[2])->m_iPreviousTable, viNow[1]);
  }
}

TEST(PositionTable, RemovingFreesEveryTable) {
  Tables z;
  Fill(z, 32770);
  EXPECT_EQ(z->RemoveAllTables(), KivRemoveAllTablesResult::Done);
  const KivContainerCheck zCheck = z.pzContainer->FullCheck();
  EXPECT_EQ(zCheck.m_iUsedRecordNum, 0u);
  EXPECT_TRUE(zCheck.IsSound());
}

TEST(PositionTable, SnapshotsAreDeepAndRestoreBringsBlocksAndCountersBack) {
  Tables z;
  Fill(z, 5);
  const auto pzSnapShot = z->CreateSnapShot();
  EXPECT_EQ(pzSnapShot->GetOriginal(), z.pzManager.get());
  Fill(z, 0);
  Position iKey = 0;
  ASSERT_TRUE(z->AddKey(99, &iKey));
  ASSERT_TRUE(z->ReplacePosition(1, kTop));
  EXPECT_EQ(z->RestoreFromUndo(pzSnapShot.get()), 0);
  EXPECT_EQ(z->GetPositionNum(), 5u);
  EXPECT_EQ(z->ResolveKey(kTop), 1000u);
  KivPositionTableManager zOther(1);
  zOther.SetExtension(0, 0, 1);
  EXPECT_REPORT(zOther.RestoreFromUndo(pzSnapShot.get()), "m_iKey == pUndo->m_iKey");
  KivPositionTableManager zMode(0);
  EXPECT_REPORT(zMode.RestoreFromUndo(pzSnapShot.get()), "m_iFilePositionTableMode == pUndo->m_iFilePositionTableMode");
  zMode.SetExtension(1, 0, 1);
  EXPECT_REPORT(zMode.RestoreFromUndo(pzSnapShot.get()),
                "m_iMultiFilePositionExtension == pUndo->m_iMultiFilePositionExtension");
  zMode.SetExtension(0, 1, 1);
  EXPECT_REPORT(zMode.RestoreFromUndo(pzSnapShot.get()),
                "m_iIndexForMultiFilePositionExtension == pUndo->m_iIndexForMultiFilePositionExtension");
}

TEST(PositionTable, AChainThatTurnsBackOrHoldsAKeyEndsWithAReport) {
  Tables z;
  Fill(z, 32769);
  ASSERT_EQ(z->SaveTables(), KivSaveTablesResult::Done);
  const std::vector<Position> viPosition = z->GetBlockPositions();
  z.pzContainer->Flush();
  for (const Position iNext : {viPosition[0], viPosition[1], kTop + 1}) {
    z.pzMain->Write(viPosition[1] + 16 + 24, &iNext, 8);
    z.Open();
    EXPECT_REPORT_FROM(z->GetPositionNum(), "0", "src\\KivPositionTableManager");
    z.Open();
    EXPECT_REPORT_FROM(z->GetBlockPositions(), "0", "src\\KivPositionTableManager");
    NoThrowScope zNoThrow;
    z.Open();
    EXPECT_EQ(z->GetPositionNum(), 32769u);
    EXPECT_EQ(z->GetBlockPositions().size(), 2u);
  }
}

TEST(PositionTable, AManagerWithoutAStoreReports) {
  KivPositionTableManager zManager(0);
  zManager.SetExtension(0, 0, 1);
  EXPECT_REPORT_FROM(zManager.ResolveKey(kTop), "0", "src\\KivPositionTableManager");
  NoThrowScope zNoThrow;
  EXPECT_EQ(zManager.ResolveKey(kTop), 0u);
  EXPECT_TRUE(zManager.GetBlockPositions().empty());
}

// --- Records -------------------------------------------------------------------------------------

TEST(PositionTable, ARecordHas262220BytesWithEntriesAt68AndTheirNumberAtTheEnd) {
  KivMemoryBlockPositionTable zBlock;
  zBlock.m_iPreviousTable = 0x1111;
  zBlock.m_iNextTable = 0x2222;
  zBlock.m_iThirdLink = 0x3333;
  zBlock.m_aiBox = {1, 2, 3, 4, 5, 6};
  zBlock.m_iElementKind = 2;
  zBlock.m_aiPosition[0] = 0xAAAA;
  zBlock.m_aiPosition[1] = 0xBBBB;
  zBlock.m_aiPosition[2] = 0xCCCC;  // behind the entries: written as zero
  zBlock.m_iPositionNum = 2;
  Bytes vcBytes(262220, 0xFF);
  ASSERT_TRUE(zBlock.Build(vcBytes.data()));
  Bytes vcExpected = BytesOfHex(
      "0a000000 00000000 01000000 44000000 1111000000000000 2222000000000000 3333000000000000"
      "01000000 02000000 03000000 04000000 05000000 06000000 02000000 aaaa000000000000 bbbb000000000000");
  vcExpected.resize(262220);
  vcExpected[262212] = 2;
  EXPECT_TRUE(vcBytes == vcExpected);
  KivMemoryBlockPositionTable zRead;
  ASSERT_TRUE(zRead.Parse(vcBytes.data(), vcBytes.size(), false));
  EXPECT_EQ(zRead.m_iNextTable, 0x2222u);
  EXPECT_EQ(zRead.m_aiBox, zBlock.m_aiBox);
  EXPECT_EQ(zRead.m_aiPosition[1], 0xBBBBu);
  EXPECT_EQ(zRead.m_iPositionNum, 2u);
  EXPECT_EQ(zRead.GetHeader().m_iTag, 10u);
  EXPECT_EQ(*zRead.GetLinks()[1], 0x2222u);
}

TEST(PositionTable, AGeneration19RecordHas262216BytesAndEntriesAt64) {
  Bytes vcBytes = BytesOfHex(
      "0a000000 07000000 05000000 1111000000000000 2222000000000000 3333000000000000"
      "01000000 02000000 03000000 04000000 05000000 06000000 01000000 aaaa000000000000");
  vcBytes.resize(262216);
  vcBytes[262208] = 1;
  KivMemoryBlockPositionTable zBlock;
  ASSERT_TRUE(zBlock.Parse(vcBytes.data(), vcBytes.size(), true));
  EXPECT_EQ(zBlock.m_iElementVersion, 7u);
  EXPECT_EQ(zBlock.m_iElementState, 0u);
  EXPECT_EQ(zBlock.m_iHeaderSize, 5u);  // not checked in this generation
  EXPECT_EQ(zBlock.m_iPreviousTable, 0x1111u);
  EXPECT_EQ(zBlock.m_iElementKind, 1u);
  EXPECT_EQ(zBlock.m_aiPosition[0], 0xAAAAu);
  EXPECT_EQ(zBlock.m_iPositionNum, 1u);
  Bytes vcAgain(262220);
  EXPECT_REPORT_FROM(zBlock.Build(vcAgain.data()), "0", "src\\KivPositionTable");  // state 0 is not written
}

TEST(PositionTable, DamagedRecordsAreRefused) {
  KivMemoryBlockPositionTable zBlock;
  Bytes vcGood(262220);
  ASSERT_TRUE(zBlock.Build(vcGood.data()));
  NoThrowScope zNoThrow;
  KivMemoryBlockPositionTable zRead;
  EXPECT_TRUE(zRead.Parse(vcGood.data(), 0, false));  // empty: a new block
  EXPECT_EQ(zRead.m_iHeaderSize, 68u);
  for (const size_t nSize : {1u, 3u, 4u, 67u, 68u, 1000u, 262215u, 262216u, 262219u}) {
    const Bytes vcCut(vcGood.begin(), vcGood.begin() + static_cast<ptrdiff_t>(nSize));
    EXPECT_FALSE(zRead.Parse(vcCut.data(), vcCut.size(), false)) << nSize;
    EXPECT_EQ(zRead.Parse(vcCut.data(), vcCut.size(), true), false || nSize >= 262216u) << nSize;
  }
  const auto Refused = [&](size_t iOffset, uint32_t iValue) {
    Bytes vcBad = vcGood;
    PutU32(vcBad, iOffset, iValue);
    EXPECT_FALSE(zRead.Parse(vcBad.data(), vcBad.size(), false)) << iOffset;
  };
  Refused(0, 11);          // another type
  Refused(12, 67);         // header size
  Refused(64, 3);          // kind
  Refused(262212, 32769);  // number of entries
  Refused(262216, 1);
}

TEST(PositionTable, BlocksThatMustNotBeStoredAreRefused) {
  NoThrowScope zNoThrow;
  Bytes vcBytes(262220);
  const auto Refused = [&](auto&& change) {
    auto pzBlock = std::make_unique<KivMemoryBlockPositionTable>();
    change(*pzBlock);
    EXPECT_FALSE(pzBlock->Build(vcBytes.data()));
  };
  Refused([](auto& z) { z.m_iElementState = 2; });
  Refused([](auto& z) { z.m_iElementType = 9; });
  Refused([](auto& z) { z.m_iHeaderSize = 67; });
  Refused([](auto& z) { z.m_iElementKind = 3; });
  Refused([](auto& z) { z.m_iPositionNum = 32769; });
}
