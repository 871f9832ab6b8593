// Snapshots of cached files.
#include "KivFileCacheTest.h"
#include "KivFileFactory.h"
#include "KivSysFault.h"
#include "KivWinMappedFile.h"
#include "KivWritableMemFile.h"

namespace {

using namespace kiv;
using namespace kivtest;

TEST_F(FileCache, ARestoreGivesTheFileAtTheSnapshotAndTheWorkFileWithTheWriteIsGone) {
  m_zFile.Write(0, "before", 6);
  auto pzSnapShot = m_zSpace.Take(m_zFile);
  EXPECT_EQ(Words(), (std::vector<uint32_t>{6}));
  m_zFile.Write(0, "after!", 6);
  m_zFile.Write(9 * kBlock, "x", 1);
  EXPECT_EQ(m_zFile.GetLength(), 10 * kBlock);
  EXPECT_EQ(m_zFile.RestoreSnapShot(pzSnapShot), 0);
  EXPECT_EQ(CountWorkFiles(), 2) << "that of the snapshot and a new one";
  EXPECT_EQ(Words(), (std::vector<uint32_t>{6}));
  EXPECT_EQ(m_zFile.GetLength(), m_vcBase.size());
  EXPECT_EQ(Text(ReadBytes(m_zFile, 0, 6)), "before");
  EXPECT_EQ(ReadBytes(m_zFile, 9 * kBlock, 1), Bytes(1));
}

TEST_F(FileCache, TheWordsOfTheExampleInTheDocumentation) {
  using Row = std::vector<uint32_t>;
  uint8_t c = 0;
  EXPECT_EQ(Words(), Row{});
  m_zFile.Read(kBlock, &c, 1);
  EXPECT_EQ(Words(), (Row{0, 1}));
  m_zFile.Write(0, "x", 1);
  EXPECT_EQ(Words(), (Row{3, 1}));
  auto pzFirst = m_zSpace.Take(m_zFile);
  auto& zFirst = *dynamic_cast<KivCacheUseFile*>(pzFirst.Get());
  EXPECT_EQ(Words(), (Row{6, 4}));
  EXPECT_EQ(Words(zFirst), (Row{3, 1}));
  m_zFile.Write(kBlock, "x", 1);
  EXPECT_EQ(Words(), (Row{6, 3}));
  auto pzSecond = m_zSpace.Take(m_zFile);
  auto& zSecond = *dynamic_cast<KivCacheUseFile*>(pzSecond.Get());
  EXPECT_EQ(Words(), (Row{6, 10}));
  EXPECT_EQ(Words(zFirst), (Row{3, 1}));
  EXPECT_EQ(Words(zSecond), (Row{6, 3}));
  m_zFile.Read(0, &c, 1);
  EXPECT_EQ(Words(), (Row{3, 10}));
  EXPECT_EQ(pzFirst->ReleaseSnapShot(), 0);
  EXPECT_EQ(Words(), (Row{3, 10}));
  EXPECT_EQ(Words(zSecond), (Row{3, 3}));
  EXPECT_EQ(m_zFile.RestoreSnapShot(pzSecond), 0);
  EXPECT_EQ(Words(), (Row{10, 10}));
}

TEST_F(FileCache, ASnapshotKeepsTheLengthOfTheWorkFile) {
  m_zFile.Write(9 * kBlock, "x", 1);
  auto pzSnapShot = m_zSpace.Take(m_zFile);
  EXPECT_EQ(m_zFile.GetLength(), 10 * kBlock);
  EXPECT_EQ(pzSnapShot->GetLength(), 10 * kBlock);
}

TEST_F(FileCache, TheOldestDroppedFromTheFrontMergesIntoTheNext) {
  m_zFile.Write(0, "a0", 2);
  m_zFile.Write(kBlock, "a1", 2);
  auto pzA = m_zSpace.Take(m_zFile);
  m_zFile.Write(0, "b0", 2);
  auto pzB = m_zSpace.Take(m_zFile);
  m_zFile.Write(0, "c0", 2);
  m_zFile.Write(2 * kBlock, "c2", 2);
  EXPECT_EQ(pzA->ReleaseSnapShot(), 0);
  pzA.Release();
  EXPECT_EQ(Text(ReadBytes(*pzB, 0, 2)), "b0");
  EXPECT_EQ(Text(ReadBytes(*pzB, kBlock, 2)), "a1");
  EXPECT_EQ(ReadBytes(*pzB, 2 * kBlock, 4), Slice(m_vcBase, 2 * kBlock, 4));
  EXPECT_EQ(Text(ReadBytes(m_zFile, 0, 2)), "c0");
  EXPECT_EQ(Text(ReadBytes(m_zFile, kBlock, 2)), "a1");
  EXPECT_EQ(m_zFile.RestoreSnapShot(pzB), 0);
  EXPECT_EQ(Text(ReadBytes(m_zFile, 0, 2)), "b0");
  EXPECT_EQ(Text(ReadBytes(m_zFile, kBlock, 2)), "a1");
  EXPECT_EQ(ReadBytes(m_zFile, 2 * kBlock, 4), Slice(m_vcBase, 2 * kBlock, 4));
}

TEST_F(FileCache, TheLastDroppedFromTheFrontLeavesItsBlocksInTheFile) {
  m_zFile.Write(0, "a0", 2);
  m_zFile.Write(8 * kBlock, "a8", 2);
  auto pzA = m_zSpace.Take(m_zFile);
  m_zFile.Write(kBlock, "b1", 2);
  EXPECT_EQ(pzA->ReleaseSnapShot(), 0);
  pzA.Release();
  EXPECT_TRUE(m_zFile.m_vpCacheSnapShot.empty());
  EXPECT_TRUE(m_zFile.GetCache()->m_vpSnapShotStatus.empty());
  m_zSpace.Base(-1);
  EXPECT_EQ(Words()[0], 3u);
  EXPECT_EQ(Words()[8], 3u);
  EXPECT_EQ(Text(ReadBytes(m_zFile, 0, 2)), "a0");
  EXPECT_EQ(Text(ReadBytes(m_zFile, kBlock, 2)), "b1");
  EXPECT_EQ(Text(ReadBytes(m_zFile, 8 * kBlock, 2)), "a8");
}

TEST_F(FileCache, AReleaseOutOfOrderMovesNoBlocks) {
  m_zFile.Write(0, "a0", 2);
  auto pzA = m_zSpace.Take(m_zFile);
  m_zFile.Write(0, "b0", 2);
  auto pzB = m_zSpace.Take(m_zFile);
  EXPECT_REPORT(pzB->ReleaseSnapShot(), "0");
  EXPECT_RETURNING_REPORT(EXPECT_EQ(pzB->ReleaseSnapShot(), 50));
  m_zSpace.Discarding(true);
  EXPECT_REPORT(pzA->ReleaseSnapShot(), "m_pOriginal->m_vpSnapShotData.back() == this");
  m_zSpace.Discarding(false);
  EXPECT_EQ(Text(ReadBytes(*pzA, 0, 2)), "a0");
  EXPECT_EQ(Text(ReadBytes(*pzB, 0, 2)), "b0");
  EXPECT_EQ(Text(ReadBytes(m_zFile, 0, 2)), "b0");
}

TEST_F(FileCache, AReleaseWithoutABaseMovesNoBlocks) {
  m_zFile.Write(0, "a0", 2);
  auto pzA = m_zSpace.Take(m_zFile);
  m_zSpace.Base(-1);
  EXPECT_REPORT(pzA->ReleaseSnapShot(), "KivDataSpaceBase::GetInstance()->GetCurBaseSnapShot() >= 0");
  EXPECT_EQ(Words(), (std::vector<uint32_t>{6}));
  EXPECT_EQ(m_zFile.m_vpCacheSnapShot.size(), 1u);
  EXPECT_EQ(Text(ReadBytes(*pzA, 0, 2)), "a0");
  m_zSpace.Base(0);
  EXPECT_EQ(pzA->ReleaseSnapShot(), 0);
  EXPECT_EQ(Words(), (std::vector<uint32_t>{3}));
}

TEST_F(FileCache, AMergeThatFailsHalfWayIsReportedByTheOldestSnapshotUntilItIsDone) {
  m_zFile.Write(0, "a0", 2);
  m_zFile.Write(kBlock, "a1", 2);
  auto pzA = m_zSpace.Take(m_zFile);
  m_zFile.Write(0, "b0", 2);
  m_zFile.Write(kBlock, "b1", 2);
  auto pzB = m_zSpace.Take(m_zFile);
  KivSysFaultPlan zPlan;
  zPlan.m_iCall = KivSysCall::FileWrite;
  zPlan.m_iNth = 2;
  {
    const KivSysFaultScope zFault(zPlan);
    EXPECT_REPORT(pzA->ReleaseSnapShot(), "iRet != 0");
  }
  // The first block of A is that of B by now.
  uint8_t c = 7;
  EXPECT_REPORT(pzA->Read(0, &c, 1), "0");
  EXPECT_RETURNING_REPORT(EXPECT_EQ(pzA->Read(0, &c, 1), 0u));
  EXPECT_EQ(c, 7);
  EXPECT_RETURNING_REPORT(EXPECT_EQ(m_zFile.KivCacheUseFile::RestoreFromUndo(dynamic_cast<KivFile*>(pzA.Get())), 60));
  EXPECT_EQ(Text(ReadBytes(*pzB, 0, 2)) + Text(ReadBytes(*pzB, kBlock, 2)), "b0b1");
  EXPECT_EQ(Text(ReadBytes(m_zFile, 0, 2)) + Text(ReadBytes(m_zFile, kBlock, 2)), "b0b1");
  EXPECT_EQ(pzA->ReleaseSnapShot(), 0);
  EXPECT_EQ(Text(ReadBytes(*pzB, 0, 2)) + Text(ReadBytes(*pzB, kBlock, 2)), "b0b1");
  EXPECT_EQ(m_zFile.RestoreSnapShot(pzB), 0);
  EXPECT_EQ(Text(ReadBytes(m_zFile, 0, 2)) + Text(ReadBytes(m_zFile, kBlock, 2)), "b0b1");
}

TEST_F(FileCache, AMergeThatFailsBeforeItsFirstBlockLeavesTheOldestSnapshotReadable) {
  m_zFile.Write(0, "a0", 2);
  auto pzA = m_zSpace.Take(m_zFile);
  m_zFile.Write(0, "b0", 2);
  auto pzB = m_zSpace.Take(m_zFile);
  KivSysFaultPlan zPlan;
  zPlan.m_iCall = KivSysCall::FileRead;
  zPlan.m_iNth = 1;
  zPlan.m_bFromThenOn = true;
  {
    const KivSysFaultScope zFault(zPlan);
    EXPECT_NE(ReportOf([&] { pzA->ReleaseSnapShot(); }), u"");
  }
  EXPECT_EQ(Text(ReadBytes(*pzA, 0, 2)), "a0");
}

TEST_F(FileCache, BlocksPassADeadSnapshotOnTheirWayToTheNext) {
  m_zFile.Write(0, "a0", 2);
  auto pzA = m_zSpace.Take(m_zFile);
  auto pzB = m_zSpace.Take(m_zFile);
  auto pzC = m_zSpace.Take(m_zFile);
  pzB.Release();
  EXPECT_EQ(pzA->ReleaseSnapShot(), 0);
  EXPECT_NO_REPORT(EXPECT_EQ(Text(ReadBytes(*pzC, 0, 2)), "a0"));
  EXPECT_NO_REPORT(EXPECT_EQ(Text(ReadBytes(m_zFile, 0, 2)), "a0"));
  EXPECT_EQ(pzC->ReleaseSnapShot(), 0);
  EXPECT_TRUE(m_zFile.m_vpCacheSnapShot.empty());
  EXPECT_NO_REPORT(EXPECT_EQ(Text(ReadBytes(m_zFile, 0, 2)), "a0"));
}

TEST_F(FileCache, ADeadOldestSnapshotLosesNothing) {
  m_zFile.Write(0, "a0", 2);
  auto pzA = m_zSpace.Take(m_zFile);
  m_zFile.Write(kBlock, "b1", 2);
  auto pzB = m_zSpace.Take(m_zFile);
  pzA.Release();
  EXPECT_EQ(m_zFile.m_vpSnapShotData[0], nullptr);
  EXPECT_EQ(CountWorkFiles(), 3);
  EXPECT_NO_REPORT(EXPECT_EQ(Text(ReadBytes(*pzB, 0, 2)), "a0"));
  EXPECT_NO_REPORT(EXPECT_EQ(pzB->ReleaseSnapShot(), 0));
  EXPECT_TRUE(m_zFile.m_vpCacheSnapShot.empty());
  EXPECT_TRUE(m_zFile.GetCache()->m_vpSnapShotStatus.empty());
  EXPECT_NO_REPORT(EXPECT_EQ(Text(ReadBytes(m_zFile, 0, 2)), "a0"));
  EXPECT_NO_REPORT(EXPECT_EQ(Text(ReadBytes(m_zFile, kBlock, 2)), "b1"));
  EXPECT_EQ(Words(), (std::vector<uint32_t>{3, 3}));
  pzB.Release();
  EXPECT_EQ(CountWorkFiles(), 1);
}

TEST_F(FileCache, ADeadSnapshotMovesItsBlocksToTheNextLivingOneWhenOneLeaves) {
  m_zFile.Write(0, "a0", 2);
  auto pzA = m_zSpace.Take(m_zFile);
  m_zFile.Write(kBlock, "b1", 2);
  auto pzB = m_zSpace.Take(m_zFile);
  m_zFile.Write(0, "c0", 2);
  auto pzC = m_zSpace.Take(m_zFile);
  pzA.Release();
  EXPECT_EQ(pzB->ReleaseSnapShot(), 0);
  pzB.Release();
  EXPECT_EQ(CountWorkFiles(), 2) << "that of the third, and that of the file";
  EXPECT_NO_REPORT(EXPECT_EQ(Text(ReadBytes(*pzC, 0, 2)) + Text(ReadBytes(*pzC, kBlock, 2)), "c0b1"));
  EXPECT_NO_REPORT(EXPECT_EQ(Text(ReadBytes(m_zFile, 0, 2)) + Text(ReadBytes(m_zFile, kBlock, 2)), "c0b1"));
  EXPECT_EQ(m_zFile.RestoreSnapShot(pzC), 0);
  EXPECT_NO_REPORT(EXPECT_EQ(Text(ReadBytes(m_zFile, 0, 2)) + Text(ReadBytes(m_zFile, kBlock, 2)), "c0b1"));
}

TEST_F(FileCache, ARestoredStateIsThereAfterItsSnapshotHasDied) {
  m_zFile.Write(0, "a0", 2);
  auto pzA = m_zSpace.Take(m_zFile);
  m_zFile.Write(0, "b0", 2);
  auto pzB = m_zSpace.Take(m_zFile);
  m_zSpace.Base(0);
  EXPECT_EQ(m_zFile.RestoreSnapShot(pzA), 0);
  pzA.Release();
  EXPECT_NO_REPORT(EXPECT_EQ(Text(ReadBytes(m_zFile, 0, 2)), "a0"));
  EXPECT_NO_REPORT(EXPECT_EQ(Text(ReadBytes(*pzB, 0, 2)), "b0"));
  m_zSpace.Base(1);
  EXPECT_EQ(m_zFile.RestoreSnapShot(pzB), 0);
  EXPECT_NO_REPORT(EXPECT_EQ(Text(ReadBytes(m_zFile, 0, 2)), "b0"));
}

TEST_F(FileCache, ASnapshotInThePlaceOfADeadOneHoldsItsOwnBlocks) {
  m_zFile.Write(0, "a0", 2);
  auto pzA = m_zSpace.Take(m_zFile);
  m_zFile.Write(0, "b0", 2);
  m_zFile.Write(kBlock, "b1", 2);
  auto pzB = m_zSpace.Take(m_zFile);
  m_zFile.Write(2 * kBlock, "c2", 2);
  pzB.Release();
  m_zSpace.Base(0);
  auto pzC = m_zSpace.Take(m_zFile);
  ASSERT_EQ(m_zFile.m_vpSnapShotData.size(), 2u);
  ASSERT_EQ(m_zFile.m_vpCacheSnapShot.size(), 2u);
  EXPECT_EQ(CountWorkFiles(), 3) << "that of the dead one has gone";
  const auto State = [](ISnapShotFile& zFile) {
    return Text(ReadBytes(zFile, 0, 2)) + Text(ReadBytes(zFile, kBlock, 2)) + Text(ReadBytes(zFile, 2 * kBlock, 2));
  };
  EXPECT_NO_REPORT(EXPECT_EQ(State(m_zFile), "b0b1c2"));
  m_zFile.Write(kBlock, "d1", 2);
  EXPECT_NO_REPORT(EXPECT_EQ(State(*pzC), "b0b1c2"));
  EXPECT_EQ(pzA->ReleaseSnapShot(), 0);
  EXPECT_NO_REPORT(EXPECT_EQ(State(*pzC), "b0b1c2"));
  EXPECT_NO_REPORT(EXPECT_EQ(State(m_zFile), "b0d1c2"));
  EXPECT_EQ(m_zFile.RestoreSnapShot(pzC), 0);
  EXPECT_NO_REPORT(EXPECT_EQ(State(m_zFile), "b0b1c2"));
}

TEST_F(FileCache, SnapshotsThatDieWithoutAReleaseDoNotPileUpWorkFiles) {
  std::string strState(4, '-');
  for (size_t i = 0; i < 40; ++i) {
    strState[i % 4] = static_cast<char>('a' + i % 26);
    m_zFile.Write(i % 4 * kBlock, &strState[i % 4], 1);
    m_zSpace.Take(m_zFile).Release();
    EXPECT_LE(CountWorkFiles(), 2);
  }
  for (size_t i = 0; i < 4; ++i) EXPECT_NO_REPORT(EXPECT_EQ(ReadBytes(m_zFile, i * kBlock, 1)[0], strState[i]));
}

TEST_F(FileCache, BlocksOfDeadSnapshotsThatCannotBeFetchedKeepTheNextOneFromBeingTaken) {
  m_zFile.Write(0, "a0", 2);
  m_zSpace.Take(m_zFile).Release();
  ++KivDataSpaceBase::GetInstance()->m_iCurBaseSnapShot;
  KivSysFaultPlan zPlan;
  zPlan.m_iCall = KivSysCall::FileRead;
  zPlan.m_iNth = 1;
  zPlan.m_bFromThenOn = true;
  {
    const KivSysFaultScope zFault(zPlan);
    EXPECT_NE(ReportOf([&] { m_zFile.CreateSnapShot(); }), u"");
    EXPECT_RETURNING_REPORT(EXPECT_FALSE(m_zFile.CreateSnapShot()));
  }
  auto pzSnapShot = m_zFile.CreateSnapShot();
  ASSERT_TRUE(pzSnapShot);
  EXPECT_NO_REPORT(EXPECT_EQ(Text(ReadBytes(*pzSnapShot, 0, 2)), "a0"));
  EXPECT_NO_REPORT(EXPECT_EQ(Text(ReadBytes(m_zFile, 0, 2)), "a0"));
}

TEST_F(FileCache, ADiscardInTheWrongOrderForgetsNoDeadSnapshot) {
  m_zFile.Write(0, "a0", 2);
  auto pzA = m_zSpace.Take(m_zFile);
  auto pzB = m_zSpace.Take(m_zFile);
  m_zFile.Write(0, "c0", 2);
  m_zSpace.Take(m_zFile).Release();
  m_zSpace.Discarding(true);
  EXPECT_REPORT(pzA->ReleaseSnapShot(), "m_pOriginal->m_vpSnapShotData.back() == this");
  m_zSpace.Discarding(false);
  EXPECT_EQ(m_zFile.m_vpSnapShotData.size(), 3u);
  EXPECT_NO_REPORT(EXPECT_EQ(Text(ReadBytes(m_zFile, 0, 2)), "c0"));
}

TEST_F(FileCache, AReleaseOfTheBaseWithLaterEntriesKeepsTheFilesBlocks) {
  m_zFile.Write(0, "a0", 2);
  auto pzA = m_zSpace.Take(m_zFile);
  m_zFile.Write(0, "b0", 2);
  auto pzB = m_zSpace.Take(m_zFile);
  m_zSpace.Base(0);
  EXPECT_EQ(m_zFile.RestoreSnapShot(pzA), 0);
  EXPECT_EQ(pzA->ReleaseSnapShot(), 0);
  EXPECT_TRUE(m_zFile.m_vpCacheSnapShot.empty());
  EXPECT_TRUE(m_zFile.GetCache()->m_vpSnapShotStatus.empty());
  EXPECT_NO_REPORT(EXPECT_EQ(Text(ReadBytes(m_zFile, 0, 2)), "a0"));
  uint8_t c = 0;
  EXPECT_REPORT(pzB->Read(0, &c, 1), "0");
}

TEST_F(FileCache, ReleasingHasACodeForEachStepThatFails) {
  EXPECT_RETURNING_REPORT(EXPECT_EQ(m_zFile.ReleaseSnapShot(), 10));
  auto pzA = m_zSpace.Take(m_zFile);
  auto* pSnapShot = dynamic_cast<KivCacheUseFile*>(pzA.Get());
  KivWritableMemFile zNotCached;
  pSnapShot->m_pOriginal = &zNotCached;
  EXPECT_RETURNING_REPORT(EXPECT_EQ(pzA->ReleaseSnapShot(), 18));
  pSnapShot->m_pOriginal = &m_zFile;
  pSnapShot->m_bEnableCache = false;
  EXPECT_RETURNING_REPORT(EXPECT_EQ(pzA->ReleaseSnapShot(), 15));
  uint8_t c = 0;
  EXPECT_RETURNING_REPORT(EXPECT_EQ(pzA->Read(0, &c, 1), 0u));
  pSnapShot->m_bEnableCache = true;
  EXPECT_EQ(pzA->ReleaseSnapShot(), 0);
}

TEST_F(FileCache, RestoringHasACodeForEachStepThatFails) {
  auto pzA = m_zSpace.Take(m_zFile);
  EXPECT_RETURNING_REPORT(EXPECT_EQ(m_zFile.KivCacheUseFile::RestoreFromUndo(nullptr), 10));
  KivMemFile zNever(m_vcBase.data(), m_vcBase.size());
  auto* pUndo = dynamic_cast<KivFile*>(pzA.Get());
  EXPECT_RETURNING_REPORT(EXPECT_EQ(zNever.KivCacheUseFile::RestoreFromUndo(pUndo), 20));
  std::unique_ptr<KivFileCache> pzKept = std::move(m_zFile.m_pzFileCache);
  EXPECT_RETURNING_REPORT(EXPECT_EQ(m_zFile.KivCacheUseFile::RestoreFromUndo(pUndo), 40));
  m_zFile.m_pzFileCache = std::move(pzKept);
  dynamic_cast<KivCacheUseFile*>(pUndo)->m_bEnableCache = false;
  EXPECT_REPORT(m_zFile.KivCacheUseFile::RestoreFromUndo(pUndo), "m_bEnableCache == pUndo->m_bEnableCache");
  dynamic_cast<KivCacheUseFile*>(pUndo)->m_bEnableCache = true;
  m_zFile.DisableCache();
  EXPECT_RETURNING_REPORT(EXPECT_EQ(m_zFile.KivCacheUseFile::RestoreFromUndo(pUndo), 30));
}

TEST_F(FileCache, ARestoreWhoseWorkFileCannotBeMadeGives60AndLeavesContentsAndMark) {
  m_zFile.Write(0, "a0", 2);
  auto pzA = m_zSpace.Take(m_zFile);
  m_zFile.Write(0, "b0", 2);
  m_zFile.m_bModified = true;
  auto* pUndo = dynamic_cast<KivFile*>(pzA.Get());
  KivSysFaultPlan zPlan;
  zPlan.m_iCall = KivSysCall::FileOpen;
  zPlan.m_iNth = 1;
  zPlan.m_bFromThenOn = true;
  {
    const KivSysFaultScope zFault(zPlan);
    EXPECT_REPORT(m_zFile.RestoreSnapShot(pzA), "INVALID_HANDLE_VALUE != hFile");
    EXPECT_TRUE(m_zFile.IsModified());
    EXPECT_RETURNING_REPORT(EXPECT_EQ(m_zFile.KivCacheUseFile::RestoreFromUndo(pUndo), 60));
    EXPECT_RETURNING_REPORT(EXPECT_EQ(m_zFile.RestoreSnapShot(pzA), 20));
    EXPECT_TRUE(m_zFile.IsModified());
  }
  EXPECT_EQ(Text(ReadBytes(m_zFile, 0, 2)), "b0");
  EXPECT_EQ(m_zFile.RestoreSnapShot(pzA), 0);
  EXPECT_FALSE(m_zFile.IsModified());
  EXPECT_EQ(Text(ReadBytes(m_zFile, 0, 2)), "a0");
}

TEST_F(FileCache, ASnapshotNeedsABaseAndFailsWithoutLoss) {
  m_zFile.Write(0, "abc", 3);
  EXPECT_REPORT(m_zFile.CreateSnapShot(), "KivDataSpaceBase::GetInstance()->GetCurBaseSnapShot() >= 0");
  EXPECT_RETURNING_REPORT(EXPECT_FALSE(m_zFile.CreateSnapShot()));
  EXPECT_TRUE(m_zFile.m_vpSnapShotData.empty());
  EXPECT_TRUE(m_zFile.m_vpCacheSnapShot.empty());
  EXPECT_EQ(Text(ReadBytes(m_zFile, 0, 3)), "abc");
}

TEST_F(FileCache, SnapshotsSurviveTheEndOfTheirFileButCannotBeRead) {
  auto pzFile = KivSharedPtr<ISnapShotFile>(new KivMemFile(m_vcBase.data(), m_vcBase.size()));
  pzFile->Write(0, "abc", 3);
  auto pzA = m_zSpace.Take(*pzFile);
  auto pzB = m_zSpace.Take(*pzFile);
  pzFile.Release();
  uint8_t c = 0;
  EXPECT_REPORT(pzA->Read(0, &c, 1), "0");
  EXPECT_RETURNING_REPORT(EXPECT_EQ(pzB->Read(0, &c, 1), 0u));
  EXPECT_RETURNING_REPORT(EXPECT_EQ(pzB->GetLength(), 0u));
  EXPECT_RETURNING_REPORT(EXPECT_EQ(pzA->ReleaseSnapShot(), 10));
}

TEST_F(FileCache, SnapshotsSurviveTheEndOfTheCache) {
  m_zFile.Write(0, "abc", 3);
  auto pzA = m_zSpace.Take(m_zFile);
  m_zFile.DisableCache();
  EXPECT_EQ(Text(ReadBytes(*pzA, 0, 3)), "abc");
  EXPECT_EQ(ReadBytes(*pzA, kBlock, 8), Slice(m_vcBase, kBlock, 8));
  EXPECT_EQ(pzA->ReleaseSnapShot(), 0);
}

}  // namespace
