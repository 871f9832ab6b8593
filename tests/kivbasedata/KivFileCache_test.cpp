#include "KivFileCache.h"

#include "KivFileCacheTest.h"
#include "KivFileFactory.h"
#include "KivSysFault.h"
#include "KivWinMappedFile.h"
#include "KivWritableMemFile.h"

namespace {

using namespace kiv;
using namespace kivtest;

// --- Status words ---------------------------------------------------------------------------------------------------

TEST_F(FileCache, AReadOfAnUntouchedFileCopiesWholeBlocksIntoTheWorkFile) {
  EXPECT_EQ(ReadBytes(m_zFile, kBlock + 5, 10), Slice(m_vcBase, kBlock + 5, 10));
  EXPECT_EQ(Words(), (std::vector<uint32_t>{0, 1}));
  KivWinMappedFile* pWork = m_zFile.GetCache()->GetWorkFile();
  Bytes vcBlock(kBlock);
  EXPECT_EQ(pWork->DoRead(kBlock, vcBlock.data(), kBlock), kBlock);
  EXPECT_EQ(vcBlock, Slice(m_vcBase, kBlock, kBlock));
  EXPECT_EQ(pWork->GetLength(), 2 * kBlock);
}

TEST_F(FileCache, TheShortLastBlockIsFullInTheWorkFileAndCountsAsChanged) {
  EXPECT_EQ(ReadBytes(m_zFile, 3 * kBlock, kBlock), Slice(m_vcBase, 3 * kBlock, kBlock));
  EXPECT_EQ(Words(), (std::vector<uint32_t>{0, 0, 0, 3}));
  EXPECT_EQ(m_zFile.GetLength(), 4 * kBlock);
}

TEST_F(FileCache, ABlockBehindTheEndReadsAsZerosAndCountsAsChanged) {
  EXPECT_EQ(ReadBytes(m_zFile, 5 * kBlock, 8), Bytes(8));
  EXPECT_EQ(Words(), (std::vector<uint32_t>{0, 0, 0, 0, 0, 3}));
}

TEST_F(FileCache, AWriteBehindTheEndMakesGetLengthTheWorkFilesLength) {
  EXPECT_EQ(m_zFile.GetLength(), m_vcBase.size());
  m_zFile.Write(6 * kBlock + 1, "x", 1);
  EXPECT_EQ(m_zFile.GetLength(), 7 * kBlock);
  EXPECT_EQ(ReadBytes(m_zFile, 4 * kBlock, kBlock), Bytes(kBlock));
  EXPECT_EQ(ReadBytes(m_zFile, 6 * kBlock, 3), (Bytes{0, 'x', 0}));
}

TEST_F(FileCache, WritingOneByteLeavesTheOthersOfItsBlockAsInTheBase) {
  m_zFile.Write(kBlock + 7, "x", 1);
  Bytes vcExpected = m_vcBase;
  vcExpected[kBlock + 7] = 'x';
  EXPECT_EQ(ReadBytes(m_zFile, 0, m_vcBase.size()), vcExpected);
  EXPECT_EQ(Words()[1], 3u);
  EXPECT_FALSE(m_zFile.IsModified());
  // The whole block goes into the patch.
  const std::string strPatch = Patch(3 * kBlock);
  EXPECT_EQ(strPatch, Record(1, Text(Slice(vcExpected, kBlock, kBlock))));
}

TEST_F(FileCache, AZeroWriteGoesThroughTheCacheInAnySize) {
  m_zFile.WriteZero(10, 0);
  EXPECT_EQ(m_zFile.m_pzFileCache, nullptr);
  m_zFile.WriteZero(10, 6 * kBlock);
  Bytes vcExpected = m_vcBase;
  vcExpected.resize(7 * kBlock);
  std::fill(vcExpected.begin() + 10, vcExpected.end(), uint8_t{0});
  EXPECT_EQ(ReadBytes(m_zFile, 0, 7 * kBlock), vcExpected);
}

TEST_F(FileCache, AWordOf2IsReportedAndTheBlockFetchedAgain) {
  for (const uint64_t i : {uint64_t{0}, uint64_t{3}, uint64_t{5}}) {
    SCOPED_TRACE(i);
    m_zFile.GetCache()->m_vcCacheStatus.assign(8, 0);
    Words()[i] = 2;
    uint8_t c = 0;
    EXPECT_REPORT(m_zFile.Read(i * kBlock, &c, 1), "0");
    EXPECT_RETURNING_REPORT(EXPECT_EQ(ReadBytes(m_zFile, i * kBlock, 8), Slice(m_vcBase, i * kBlock, 8)));
    EXPECT_EQ(Words()[i], 3u);
  }
}

TEST_F(FileCache, AWordThatNamesNoSnapshotIsReportedAndTheBlockTakenFromTheBase) {
  Words().assign(1, 4 * 9 + 4);
  uint8_t c = 0;
  EXPECT_REPORT(m_zFile.Read(0, &c, 1), "0");
  EXPECT_RETURNING_REPORT(EXPECT_EQ(ReadBytes(m_zFile, 0, 8), Slice(m_vcBase, 0, 8)));
  EXPECT_EQ(Words()[0], 3u);
}

TEST_F(FileCache, AWordThatNamesASnapshotWithoutACacheIsReportedAndTheBlockTakenFromTheBase) {
  m_zFile.Write(0, "x", 1);
  auto pzSnapShot = m_zSpace.Take(m_zFile);
  pzSnapShot->DisableCache();
  EXPECT_EQ(m_zFile.m_vpCacheSnapShot[0], nullptr);
  uint8_t c = 0;
  EXPECT_REPORT(m_zFile.Read(0, &c, 1), "0");
  EXPECT_RETURNING_REPORT(EXPECT_EQ(ReadBytes(m_zFile, 0, 8), Slice(m_vcBase, 0, 8)));
  EXPECT_EQ(Words()[0], 1u);
}

// A file whose device reads another cached file, and which keeps the addresses of the block buffers that it was given.
class NestedFile : public KivMemFile {
 public:
  explicit NestedFile(KivMemFile* pInner) : KivMemFile(pInner->m_pData, pInner->m_iSize), m_pInner(pInner) {}
  uint64_t DoRead(uint64_t iOffset, void* lpBuf, uint64_t nCount) override {
    m_vpBuffer.push_back(lpBuf);
    return m_pInner->Read(iOffset, lpBuf, nCount);
  }
  KivMemFile* m_pInner;
  std::vector<void*> m_vpBuffer;
};

// A read from deeper in the stack.
[[gnu::noinline]] void ReadDeeper(ISnapShotFile& zFile, uint64_t iOffset) {
  volatile uint8_t acRoom[5000];
  acRoom[iOffset % sizeof acRoom] = 0;
  uint8_t c = 0;
  zFile.Read(iOffset, &c, 1);
  acRoom[0] = c;
}

TEST_F(FileCache, BlockBuffersAboveTheStackLimitComeFromScratchAndThoseBelowFromTheStack) {
  // 10 * 65536 against 9 * the limit.
  for (const uint32_t iLimit : {72817u, 72818u}) {
    const bool bScratch = iLimit == 72817;
    KivDataSpaceBase::GetInstance()->m_iStackBufferLimit = iLimit;
    KivMemFile zInner(m_vcBase.data(), m_vcBase.size());
    NestedFile zFile(&zInner);
    uint8_t c = 0;
    zFile.Read(0, &c, 1);
    ReadDeeper(zFile, kBlock);
    ASSERT_EQ(zFile.m_vpBuffer.size(), 2u);
    EXPECT_EQ(zFile.m_vpBuffer[0] == zFile.m_vpBuffer[1], bScratch);
    for (const void* pBuffer : zFile.m_vpBuffer) EXPECT_EQ(reinterpret_cast<uintptr_t>(pBuffer) % 16, 0u);
  }
}

TEST_F(FileCache, NestedFetchesHaveABufferEach) {
  for (const uint32_t iLimit : {1000u, 200000u}) {
    KivDataSpaceBase::GetInstance()->m_iStackBufferLimit = iLimit;
    KivMemFile zInnermost(m_vcBase.data(), m_vcBase.size());
    NestedFile zInner(&zInnermost);
    NestedFile zFile(&zInner);
    EXPECT_EQ(ReadBytes(zFile, 0, m_vcBase.size()), m_vcBase);
    // The inner file's blocks were fetched through the outer one's buffers.
    EXPECT_EQ(Words(zInner), (std::vector<uint32_t>{1, 1, 1, 3}));
  }
}

TEST_F(FileCache, AWriteThatFailsLeavesItsBlocksMarkedAsChanged) {
  ReadBytes(m_zFile, 0, 3 * kBlock);
  KivSysFaultPlan zPlan;
  zPlan.m_iCall = KivSysCall::FileWrite;
  zPlan.m_iNth = 1;
  zPlan.m_bFromThenOn = true;
  {
    const KivSysFaultScope zFault(zPlan);
    EXPECT_REPORT(m_zFile.Write(2 * kBlock - 1, "ab", 2), "iRet != 0");
  }
  EXPECT_EQ(Words(), (std::vector<uint32_t>{1, 3, 3}));
  {
    const KivSysFaultScope zFault(zPlan);
    EXPECT_RETURNING_REPORT(m_zFile.Write(0, "ab", 2));
  }
  EXPECT_EQ(Words(), (std::vector<uint32_t>{3, 3, 3}));
}

TEST_F(FileCache, ABaseWhoseLengthIsUnknownGivesNothingAndNoZerosReachAPatch) {
  auto pzFile = KivCreateReadOnlyFile(OpenToRead(MakeFile(u"base", m_vcBase)), true);
  auto& zFile = *dynamic_cast<KivCacheUseFile*>(pzFile.Get());
  zFile.GetCache();
  KivSysFaultPlan zPlan;
  zPlan.m_iCall = KivSysCall::FileLength;
  zPlan.m_iNth = 1;
  zPlan.m_bFromThenOn = true;
  uint8_t c = 7;
  {
    const KivSysFaultScope zFault(zPlan);
    EXPECT_REPORT(pzFile->Read(kBlock, &c, 1), "0");
    EXPECT_RETURNING_REPORT(EXPECT_EQ(pzFile->Read(kBlock, &c, 1), 0u));
    EXPECT_RETURNING_REPORT(pzFile->Write(kBlock, &c, 1));
    EXPECT_RETURNING_REPORT(EXPECT_FALSE(pzFile->SaveCache(PatchPath(), 2 * kBlock)));
    EXPECT_RETURNING_REPORT(EXPECT_EQ(pzFile->GetLength(), 0u));
  }
  for (const uint32_t iWord : Words(zFile)) EXPECT_EQ(iWord, 0u);
  EXPECT_FALSE(sys::PathExists(PatchPath()));
  EXPECT_EQ(pzFile->GetLength(), m_vcBase.size());
  EXPECT_EQ(ReadBytes(*pzFile, 0, m_vcBase.size()), m_vcBase);
}

TEST_F(FileCache, ASnapshotOfAWorkFileThatTellsNoLengthIsNotTaken) {
  m_zFile.Write(9 * kBlock, "x", 1);
  auto pzA = m_zSpace.Take(m_zFile);  // the length of the new work file is not asked for before it is needed
  KivSysFaultPlan zPlan;
  zPlan.m_iCall = KivSysCall::FileLength;
  zPlan.m_iNth = 1;
  {
    const KivSysFaultScope zFault(zPlan);
    EXPECT_RETURNING_REPORT(EXPECT_FALSE(m_zFile.CreateSnapShot()));
  }
  EXPECT_EQ(m_zFile.m_vpCacheSnapShot.size(), 1u);
  auto pzB = m_zSpace.Take(m_zFile);
  EXPECT_EQ(pzB->GetLength(), 10 * kBlock);
  EXPECT_EQ(m_zFile.GetLength(), 10 * kBlock);
}

// --- Bad ranges -----------------------------------------------------------------------------------------------------

TEST_F(FileCache, RangesAtTheEndsOfTheOffsetsAreReportedAndTouchNothing) {
  uint8_t acBuffer[16] = {};
  const uint64_t aiOffset[] = {
      UINT64_MAX,       UINT64_MAX - 15, uint64_t{1} << 63, (uint64_t{1} << 63) - 8, (uint64_t{1} << 63) - 16,
      uint64_t{1} << 50};
  for (const uint64_t iOffset : aiOffset) {
    SCOPED_TRACE(iOffset);
    EXPECT_REPORT(m_zFile.Read(iOffset, acBuffer, 16), "0");
    EXPECT_REPORT(m_zFile.Write(iOffset, acBuffer, 16), "0");
    EXPECT_REPORT(m_zFile.WriteZero(iOffset, 16), "0");
    EXPECT_RETURNING_REPORT(EXPECT_EQ(m_zFile.Read(iOffset, acBuffer, 16), 0u));
    EXPECT_RETURNING_REPORT(m_zFile.Write(iOffset, acBuffer, 16));
    EXPECT_RETURNING_REPORT(m_zFile.WriteZero(iOffset, 16));
    EXPECT_RETURNING_REPORT(EXPECT_FALSE(m_zFile.IsRangeCached(0, iOffset, 1)));
    EXPECT_RETURNING_REPORT(EXPECT_FALSE(m_zFile.SaveCache(PatchPath(), iOffset)));
  }
  EXPECT_REPORT(m_zFile.WriteZero(16, UINT64_MAX), "0");
  EXPECT_LE(Words().size(), 4u);
  EXPECT_EQ(ReadBytes(m_zFile, 0, m_vcBase.size()), m_vcBase);
}

TEST_F(FileCache, ANothingAtAnyOffsetTouchesNothing) {
  uint8_t c = 0;
  for (const uint64_t iOffset : {kBlock, uint64_t{1} << 50, uint64_t{1} << 63, UINT64_MAX}) {
    EXPECT_NO_REPORT(EXPECT_EQ(m_zFile.Read(iOffset, &c, 0), 0u));
    EXPECT_NO_REPORT(m_zFile.Write(iOffset, &c, 0));
  }
  EXPECT_TRUE(Words().empty());
}

TEST_F(FileCache, AnEmptyRangeInsideABlockAsksForThatBlockAndOneAtABlocksStartForNone) {
  uint8_t c = 0;
  m_zFile.Read(kBlock, &c, 1);
  EXPECT_FALSE(m_zFile.IsRangeCached(10, 10, 0));
  EXPECT_FALSE(m_zFile.IsRangeCached(20, 10, 0));
  EXPECT_TRUE(m_zFile.IsRangeCached(0, 0, 0));
  EXPECT_TRUE(m_zFile.IsRangeCached(10, 0, 0));
  EXPECT_TRUE(m_zFile.IsRangeCached(kBlock + 10, kBlock + 10, 0));
  EXPECT_TRUE(m_zFile.IsRangeCached(2 * kBlock, 2 * kBlock, 0));
  EXPECT_FALSE(m_zFile.IsRangeCached(2 * kBlock + 1, 2 * kBlock + 1, 1));
  EXPECT_EQ(m_zFile.GetCache()->m_dqWanted, std::deque<uint64_t>{2});
}

// A base file that is all hole: as long as it says, without a byte of its own.
class HugeFile : public KivMemFile {
 public:
  explicit HugeFile(uint64_t nLength) : KivMemFile("", 0), m_nLength(nLength) {}
  uint64_t DoGetLength() override { return m_nLength; }
  uint64_t DoRead(uint64_t, void* lpBuf, uint64_t nCount) override {
    std::memset(lpBuf, 0, nCount);
    return nCount;
  }
  uint64_t m_nLength;
};

TEST_F(FileCache, ALengthThatOnlyAHoleCanHaveClaimsNoMemory) {
  for (const uint64_t nLength : {(uint64_t{1} << 42) + kBlock, uint64_t{1} << 46, (uint64_t{1} << 63) - kBlock}) {
    SCOPED_TRACE(nLength);
    HugeFile zFile(nLength);
    double adRate[100];
    uint8_t c = 1;
    EXPECT_REPORT(zFile.AdvanceCaching(1), "0");
    EXPECT_RETURNING_REPORT(EXPECT_FALSE(zFile.AdvanceCaching(1)));
    EXPECT_REPORT(zFile.GetCacheStatusMap(adRate), "0");
    EXPECT_REPORT(zFile.Read(nLength - 1, &c, 1), "0");
    EXPECT_RETURNING_REPORT(EXPECT_EQ(zFile.Read(nLength - 1, &c, 1), 0u));
    EXPECT_REPORT(zFile.Write(nLength - 1, &c, 1), "0");
    EXPECT_RETURNING_REPORT(zFile.WriteZero(nLength - 1, 1));
    EXPECT_REPORT(zFile.IsRangeCached(nLength - 1, nLength, 1), "0");
    EXPECT_RETURNING_REPORT(EXPECT_FALSE(zFile.IsRangeCached(nLength - 1, nLength, 1)));
    EXPECT_RETURNING_REPORT(EXPECT_FALSE(zFile.SaveCache(PatchPath(), nLength)));
    EXPECT_TRUE(Words(zFile).empty());
    EXPECT_NO_REPORT(EXPECT_EQ(zFile.Read(5 * kBlock, &c, 1), 1u));
    EXPECT_EQ(c, 0);
  }
}

TEST_F(FileCache, AZeroWriteThatTheDiskCannotTakeIsRefusedBeforeItBegins) {
  constexpr uint64_t nCount = 0x1000000 + kBlock;
  KivSysFaultPlan zPlan;
  zPlan.m_iCall = KivSysCall::FreeSpace;
  zPlan.m_iNth = 1;
  zPlan.m_bFromThenOn = true;
  {
    const KivSysFaultScope zFull(zPlan);
    EXPECT_REPORT(m_zFile.WriteZero(0, nCount), "0");
    EXPECT_RETURNING_REPORT(m_zFile.WriteZero(0, nCount));
    EXPECT_TRUE(Words().empty());
    EXPECT_EQ(ReadBytes(m_zFile, 0, 10), Slice(m_vcBase, 0, 10));
    EXPECT_NO_REPORT(m_zFile.WriteZero(0, kBlock));
  }
  m_zFile.WriteZero(0, nCount);
  // What the work file holds already needs no room.
  const KivSysFaultScope zFull(zPlan);
  EXPECT_NO_REPORT(m_zFile.WriteZero(0, nCount));
  EXPECT_EQ(m_zFile.GetLength(), nCount);
}

// --- Work file ------------------------------------------------------------------------------------------------------

TEST_F(FileCache, TheWorkFileStandsInTheWorkFolderAndGoesWithTheCache) {
  m_zFile.GetCache();
  EXPECT_EQ(CountWorkFiles(), 1);
  m_zFile.DisableCache();
  EXPECT_EQ(CountWorkFiles(), 0);
}

TEST_F(FileCache, AWorkFileThatCannotBeMadeIsReported) {
  uint8_t c = 0;
  {
    KivSysFaultPlan zPlan;
    zPlan.m_iCall = KivSysCall::FileOpen;
    zPlan.m_iNth = 1;
    zPlan.m_bFromThenOn = true;
    const KivSysFaultScope zFault(zPlan);
    EXPECT_REPORT(m_zFile.Read(0, &c, 1), "INVALID_HANDLE_VALUE != hFile");
    EXPECT_RETURNING_REPORT(EXPECT_EQ(m_zFile.Read(0, &c, 1), 0u));
    EXPECT_RETURNING_REPORT(m_zFile.Write(0, &c, 1));
    EXPECT_RETURNING_REPORT(EXPECT_TRUE(m_zFile.IsRangeCached(0, 1, 1)));
    EXPECT_RETURNING_REPORT(EXPECT_FALSE(m_zFile.AdvanceCaching(1)));
  }
  EXPECT_EQ(ReadBytes(m_zFile, 0, 10), Slice(m_vcBase, 0, 10));
}

TEST_F(FileCache, WithTheCacheOffReadsGoToTheDeviceAndWritesAreReported) {
  m_zFile.Write(0, "x", 1);
  m_zFile.DisableCache();
  EXPECT_FALSE(m_zFile.IsCacheEnabled());
  EXPECT_EQ(ReadBytes(m_zFile, 0, 8), Slice(m_vcBase, 0, 8));
  EXPECT_REPORT(m_zFile.Write(0, "x", 1), "0");
  EXPECT_REPORT(m_zFile.WriteZero(0, 1), "0");
  EXPECT_EQ(m_zFile.GetLength(), m_vcBase.size());
  EXPECT_TRUE(m_zFile.IsRangeCached(0, kBlock, 1));
  EXPECT_FALSE(m_zFile.AdvanceCaching(1));
  EXPECT_FALSE(m_zFile.SaveCache(PatchPath(), kBlock));
  EXPECT_NO_REPORT(m_zFile.Flush());
  EXPECT_REPORT(m_zFile.CreateSnapShot(), "0");
  EXPECT_RETURNING_REPORT(EXPECT_FALSE(m_zFile.CreateSnapShot()));
  EXPECT_TRUE(m_zFile.m_vpSnapShotData.empty());
  double adRate[100];
  m_zFile.GetCacheStatusMap(adRate);
  EXPECT_TRUE(std::all_of(std::begin(adRate), std::end(adRate), [](double d) { return d == 1.0; }));
}

TEST_F(FileCache, SetLengthIsReportedOnAReadOnlyOrCachedFile) {
  EXPECT_REPORT(m_zFile.SetLength(1), "0");
  EXPECT_RETURNING_REPORT(EXPECT_FALSE(m_zFile.SetLength(1)));
}

// --- Caching ahead --------------------------------------------------------------------------------------------------

TEST_F(FileCache, TheMapOfAFileWithoutACacheIsAllOnes) {
  m_zFile.DisableCache();
  double adRate[100] = {};
  m_zFile.GetCacheStatusMap(adRate);
  for (const double dRate : adRate) EXPECT_EQ(dRate, 1.0);
}

TEST_F(FileCache, TheMapOfAnEmptyFileIsAllZeros) {
  KivMemFile zFile("", 0);
  double adRate[100] = {};
  zFile.GetCacheStatusMap(adRate);
  for (const double dRate : adRate) EXPECT_EQ(dRate, 0.0);
}

TEST_F(FileCache, TheFirstSliceOfTheFileIsTheLastEntryOfTheMap) {
  ReadBytes(m_zFile, 0, kBlock);
  double adRate[100] = {};
  m_zFile.GetCacheStatusMap(adRate);
  EXPECT_EQ(adRate[99], 1.0);
  EXPECT_EQ(adRate[99 - 32], 1.0);
  EXPECT_DOUBLE_EQ(adRate[99 - 33], 0.1 * 4);  // 3 blocks: block 1 begins at 333.3 thousandths
  EXPECT_EQ(adRate[0], 0.0);
}

TEST_F(FileCache, AdvancingAFileOfLessThanABlockIsDoneAtOnce) {
  KivMemFile zFile("abc", 3);
  EXPECT_FALSE(zFile.AdvanceCaching(1000));
  EXPECT_EQ(Words(zFile), (std::vector<uint32_t>{0}));
}

TEST_F(FileCache, AdvancingSweepsFromTheEndAndLeavesOutThePartialBlock) {
  while (m_zFile.AdvanceCaching(1000)) {
  }
  EXPECT_EQ(Words(), (std::vector<uint32_t>{1, 1, 1, 0}));
  EXPECT_EQ(m_zFile.GetCache()->m_iSweptBlocks, 3u);
  EXPECT_EQ(ReadBytes(m_zFile, 0, m_vcBase.size()), m_vcBase);
}

// A file whose device takes until the clock has moved.
class SlowFile : public KivMemFile {
 public:
  using KivMemFile::KivMemFile;
  uint64_t DoRead(uint64_t iOffset, void* lpBuf, uint64_t nCount) override {
    const uint64_t iNow = KivGetTimeMs();
    while (KivGetTimeMs() == iNow) {
    }
    return KivMemFile::DoRead(iOffset, lpBuf, nCount);
  }
};

TEST_F(FileCache, AdvancingWithoutABudgetStopsWhereTheClockHasMovedAndElseDoesABatch) {
  const Bytes vcBase = Pattern(8 * kBlock);
  SlowFile zFile(vcBase.data(), vcBase.size());
  uint64_t nSwept = 0;
  int nBatches = 0;
  while (nSwept < 8) {
    EXPECT_TRUE(zFile.AdvanceCaching(0));
    const uint64_t nNow = zFile.GetCache()->m_iSweptBlocks;
    // The first look at the clock finds it behind the deadline, or where it was: then the batch is doubled to two.
    ASSERT_TRUE(nNow == nSwept || nNow == nSwept + 2) << nSwept << " then " << nNow;
    nBatches += nNow != nSwept ? 1 : 0;
    nSwept = nNow;
  }
  EXPECT_EQ(nBatches, 4);
  while (zFile.AdvanceCaching(0)) {
    // The clock had moved before it was looked at.
  }
  EXPECT_EQ(zFile.GetCache()->m_iSweptBlocks, 8u);
  EXPECT_EQ(ReadBytes(zFile, 0, vcBase.size()), vcBase);
}

TEST_F(FileCache, ARangeThatIsAskedForComesFirst) {
  EXPECT_TRUE(m_zFile.IsRangeCached(0, kBlock, 1)) << "without a cache object everything counts as local";
  m_zFile.GetCache();
  EXPECT_FALSE(m_zFile.IsRangeCached(0, 2 * kBlock, 0));
  EXPECT_EQ(Words().size(), 2u);
  EXPECT_TRUE(m_zFile.GetCache()->m_dqWanted.empty());
  EXPECT_FALSE(m_zFile.IsRangeCached(0, m_vcBase.size(), 1));
  EXPECT_EQ(m_zFile.GetCache()->m_dqWanted, (std::deque<uint64_t>{0, 1, 2, 3}));
  while (m_zFile.AdvanceCaching(1000)) {
  }
  EXPECT_EQ(Words(), (std::vector<uint32_t>{1, 1, 1, 3}));
  EXPECT_TRUE(m_zFile.IsRangeCached(0, m_vcBase.size(), 1));
  EXPECT_EQ(ReadBytes(m_zFile, 0, m_vcBase.size()), m_vcBase);
}

TEST_F(FileCache, NoMoreThan10000WantedBlocksAreKept) {
  m_zFile.GetCache();
  EXPECT_FALSE(m_zFile.IsRangeCached(0, 10050 * kBlock, 1));
  EXPECT_LE(m_zFile.GetCache()->m_dqWanted.size(), 10000u);
  EXPECT_EQ(m_zFile.GetCache()->m_dqWanted.back(), 10049u);
}

TEST_F(FileCache, AnAdvanceThatMeetsAWordOf2ReportsAndCopies) {
  Words().assign(3, 2);
  EXPECT_REPORT(m_zFile.AdvanceCaching(1000), "0");
  EXPECT_RETURNING_REPORT(while (m_zFile.AdvanceCaching(1000)){});
  EXPECT_EQ(Words(), (std::vector<uint32_t>{3, 3, 3, 0}));
}

TEST_F(FileCache, TheStatusLineCountsWords) {
  ReadBytes(m_zFile, 2 * kBlock, 1);
  m_zFile.CheckFileStatus();
  KivCopyLog(m_zFolder / u"log");
  EXPECT_NE(m_zFolder.ReadBytes(u"log").find("0,iCached = 1, iNotCached = 2"), std::string::npos);
}

// --- Download -------------------------------------------------------------------------------------------------------

TEST_F(FileCache, AFillWritesInOrderAndMarksItsBlocksAsCached) {
  m_zFile.FillCached(0, 0, nullptr);
  EXPECT_REPORT(m_zFile.FillCached(0, 1, nullptr), "lpBuf != NULL");
  EXPECT_RETURNING_REPORT(m_zFile.FillCached(0, 1, nullptr));
  const Bytes vcData = Pattern(3 * kBlock, 9);
  m_zFile.FillCached(0, 10, vcData.data());
  EXPECT_EQ(Words(), (std::vector<uint32_t>{1}));
  m_zFile.FillCached(10, 2 * kBlock, vcData.data() + 10);
  EXPECT_EQ(Words(), (std::vector<uint32_t>{1, 1, 1}));
  EXPECT_EQ(ReadBytes(m_zFile, 0, 2 * kBlock + 10), Slice(vcData, 0, 2 * kBlock + 10));
}

TEST_F(FileCache, AFillIsCutAt16MiB) {
  const Bytes vcData = Pattern(0x1000000 + 2 * kBlock);
  m_zFile.FillCached(0, kBlock, vcData.data());
  const KivSysFaultScope zCount(KivSysFaultPlan{});
  m_zFile.FillCached(kBlock, 0x1000000, vcData.data() + kBlock);
  EXPECT_EQ(zCount.GetCount(KivSysCall::FileWrite), 2u);
  EXPECT_EQ(ReadBytes(m_zFile, 0, 0x1000000), Slice(vcData, 0, 0x1000000));
}

TEST_F(FileCache, AFillOutOfOrderFailsItsChecks) {
  const Bytes vcData = Pattern(kBlock);
  EXPECT_REPORT(m_zFile.FillCached(kBlock, 1, vcData.data()),
                "m_vcCacheStatus.size() == 1 + (iOffset - 1) / iAllocationGranularity");
  m_zFile.FillCached(0, kBlock, vcData.data());
  EXPECT_REPORT(m_zFile.FillCached(0, 1, vcData.data()), "m_vcCacheStatus.empty()");
  Words()[0] = 3;
  EXPECT_REPORT(m_zFile.FillCached(kBlock, 1, vcData.data()), "m_vcCacheStatus[i] == 1");
}

TEST_F(FileCache, AFillOfNothingMakesNoCache) {
  EXPECT_NO_REPORT(m_zFile.FillCached(0, 0, nullptr));
  EXPECT_EQ(m_zFile.m_pzFileCache, nullptr);
}

TEST_F(FileCache, AFillFarBehindTheEndOrOutOfOrderStoresNothingWhereReportsReturn) {
  const Bytes vcData = Pattern(kBlock);
  m_zFile.FillCached(0, 10, vcData.data());
  for (const uint64_t iOffset : {5 * kBlock, uint64_t{1} << 50, (uint64_t{1} << 63) - 10, UINT64_MAX - 5}) {
    SCOPED_TRACE(iOffset);
    EXPECT_RETURNING_REPORT(m_zFile.FillCached(iOffset, 10, vcData.data()));
    EXPECT_EQ(Words(), (std::vector<uint32_t>{1}));
  }
  EXPECT_RETURNING_REPORT(m_zFile.FillCached(0, 20, vcData.data()));
  EXPECT_EQ(ReadBytes(m_zFile, 0, 10), Slice(vcData, 0, 10));
}

TEST_F(FileCache, ALastBlockThatAFillLeftShortIsWholeInASnapshot) {
  const uint64_t nFilled = 2 * kBlock + 10;
  const Bytes vcData = Pattern(nFilled, 9);
  m_zFile.FillCached(0, nFilled, vcData.data());
  EXPECT_EQ(m_zFile.GetLength(), m_vcBase.size());
  EXPECT_EQ(ReadBytes(m_zFile, 2 * kBlock, 100).size(), 10u) << "what has come so far";
  auto pzA = m_zSpace.Take(m_zFile);
  EXPECT_EQ(m_zFile.GetLength(), m_vcBase.size());
  auto pzB = m_zSpace.Take(m_zFile);
  const Bytes vcExpected = Slice(vcData, 0, 3 * kBlock);  // zeros behind
  EXPECT_NO_REPORT(EXPECT_EQ(ReadBytes(*pzA, 0, 3 * kBlock), vcExpected));
  EXPECT_NO_REPORT(EXPECT_EQ(ReadBytes(*pzB, 0, 3 * kBlock), vcExpected));
  EXPECT_EQ(pzA->ReleaseSnapShot(), 0);
  EXPECT_NO_REPORT(EXPECT_EQ(ReadBytes(m_zFile, 2 * kBlock, kBlock), Slice(vcExpected, 2 * kBlock, kBlock)));
  EXPECT_EQ(pzB->ReleaseSnapShot(), 0);
  EXPECT_NO_REPORT(EXPECT_EQ(ReadBytes(m_zFile, 0, 3 * kBlock), vcExpected));
}

}  // namespace
