// The patch stream.
#include "KivFileCacheTest.h"
#include "KivFileFactory.h"
#include "KivSysFault.h"
#include "KivWinMappedFile.h"
#include "KivWritableMemFile.h"

namespace {

using namespace kiv;
using namespace kivtest;

TEST_F(FileCache, NoPatchIsSavedWhileThereIsNoCache) {
  EXPECT_NO_REPORT(EXPECT_FALSE(m_zFile.SaveCache(PatchPath(), kBlock)));
  EXPECT_FALSE(sys::PathExists(PatchPath()));
}

TEST_F(FileCache, ThePatchOfTheExampleInTheDocumentation) {
  Bytes vcBase(kBlock);
  for (const char c : std::string("ABCD")) vcBase.push_back(static_cast<uint8_t>(c));
  KivMemFile zFile(vcBase.data(), vcBase.size());
  uint8_t c = 0;
  zFile.Read(0, &c, 1);
  zFile.Write(65537, "XY", 2);
  ASSERT_TRUE(zFile.SaveCache(PatchPath(), 65542));
  const unsigned char acPatch[] = {0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x06, 0x00, 0x00,
                                   0x00, 0x00, 0x00, 0x00, 0x00, 0x41, 0x58, 0x59, 0x44, 0x00, 0x00};
  EXPECT_EQ(m_zFolder.ReadBytes(u"patch"), std::string(std::begin(acPatch), std::end(acPatch)));
}

TEST_F(FileCache, ABlockThatIsOnlyCachedIsNotInThePatch) {
  ReadBytes(m_zFile, 0, 3 * kBlock);
  EXPECT_EQ(Patch(3 * kBlock), "");
}

TEST_F(FileCache, TheShortLastBlockAndWhatLiesBehindItAreAlwaysInThePatch) {
  ReadBytes(m_zFile, 0, 3 * kBlock);
  const std::string strPatch = Patch(4 * kBlock + 1);
  EXPECT_EQ(strPatch, Record(3, Text(Slice(m_vcBase, 3 * kBlock, kBlock))) + Record(4, std::string(1, '\0')));
}

TEST_F(FileCache, ABlockWithoutAWordGoesIntoThePatch) {
  ReadBytes(m_zFile, 0, 1);
  EXPECT_EQ(Patch(2 * kBlock), Record(1, Text(Slice(m_vcBase, kBlock, kBlock))));
}

TEST_F(FileCache, APatchStopsAtItsSizeAndItsLastRecordIsShort) {
  m_zFile.Write(0, "abc", 3);
  m_zFile.Write(kBlock, "def", 3);
  m_zFile.Write(2 * kBlock, "ghi", 3);
  Bytes vcFirst = Slice(m_vcBase, 0, kBlock);
  std::memcpy(vcFirst.data(), "abc", 3);
  EXPECT_EQ(Patch(kBlock + 2), Record(0, Text(vcFirst)) + Record(1, "de"));
}

TEST_F(FileCache, APatchReplayedOnTheBaseGivesTheSameFile) {
  m_zFile.Write(kBlock - 1, "abc", 3);
  m_zFile.Write(5 * kBlock, "def", 3);
  const uint64_t nLength = m_zFile.GetLength();
  ASSERT_TRUE(m_zFile.SaveCache(PatchPath(), nLength));
  KivMemFile zOther(m_vcBase.data(), m_vcBase.size());
  EXPECT_TRUE(zOther.LoadCache(PatchPath()));
  EXPECT_EQ(zOther.GetLength(), nLength);
  EXPECT_EQ(ReadBytes(zOther, 0, nLength), ReadBytes(m_zFile, 0, nLength));
}

TEST_F(FileCache, APatchGoesToItsSizeAlsoBehindWhatGetLengthSays) {
  m_zFile.Write(9 * kBlock, "abc", 3);
  auto pzSnapShot = m_zSpace.Take(m_zFile);
  EXPECT_EQ(m_zFile.RestoreSnapShot(pzSnapShot), 0);
  ASSERT_EQ(m_zFile.GetLength(), m_vcBase.size());
  const std::string strPatch = Patch(9 * kBlock + 3);
  const std::string strLast = Record(9, "abc");
  ASSERT_GE(strPatch.size(), strLast.size());
  EXPECT_EQ(strPatch.substr(strPatch.size() - strLast.size()), strLast);
}

TEST_F(FileCache, APatchThatTheDiskCannotTakeIsRefused) {
  ReadBytes(m_zFile, 0, 1);
  KivSysFaultPlan zPlan;
  zPlan.m_iCall = KivSysCall::FreeSpace;
  zPlan.m_iNth = 1;
  zPlan.m_bFromThenOn = true;
  const KivSysFaultScope zFull(zPlan);
  EXPECT_REPORT(m_zFile.SaveCache(PatchPath(), 0x1000000 + 10 * kBlock), "0");
  EXPECT_RETURNING_REPORT(EXPECT_FALSE(m_zFile.SaveCache(PatchPath(), 0x1000000 + 10 * kBlock)));
  EXPECT_FALSE(sys::PathExists(PatchPath()));
  EXPECT_EQ(Words(), (std::vector<uint32_t>{1}));
}

TEST_F(FileCache, AnEmptyPatchLoadsAndChangesNothing) {
  EXPECT_NO_REPORT(EXPECT_TRUE(m_zFile.LoadCache(MakePatch(""))));
  EXPECT_EQ(m_zFile.m_pzFileCache, nullptr);
}

TEST_F(FileCache, APatchThatCannotBeOpenedIsReported) {
  EXPECT_REPORT(m_zFile.LoadCache(m_zFolder / u"none"), "0");
  EXPECT_RETURNING_REPORT(EXPECT_FALSE(m_zFile.LoadCache(m_zFolder / u"none")));
  m_zFile.GetCache();
  EXPECT_REPORT(m_zFile.SaveCache(m_zFolder / u"none/patch", 1), "0");
  EXPECT_RETURNING_REPORT(EXPECT_FALSE(m_zFile.SaveCache(m_zFolder / u"none/patch", 1)));
}

TEST_F(FileCache, ALengthAboveTheGranularityStopsTheReplayAndKeepsWhatCameBefore) {
  const std::string strGood = Record(1, "good");
  for (const uint64_t nLength : {uint64_t{0}, kBlock + 1, uint64_t{UINT64_MAX}}) {
    SCOPED_TRACE(nLength);
    const KivWString csPath = MakePatch(strGood + Record(2, std::string(kBlock + 1, 'x'), nLength));
    KivMemFile zFile(m_vcBase.data(), m_vcBase.size());
    EXPECT_REPORT(zFile.LoadCache(csPath), "0");
    EXPECT_EQ(Text(ReadBytes(zFile, kBlock, 4)), "good");
    EXPECT_EQ(ReadBytes(zFile, 2 * kBlock, 4), Slice(m_vcBase, 2 * kBlock, 4));
    KivMemFile zAgain(m_vcBase.data(), m_vcBase.size());
    EXPECT_RETURNING_REPORT(EXPECT_TRUE(zAgain.LoadCache(csPath)));
    EXPECT_EQ(Text(ReadBytes(zAgain, kBlock, 4)), "good");
  }
}

TEST_F(FileCache, APatchCutAtAnyByteKeepsItsWholeRecordsAndReportsTheCut) {
  const std::string strFirst = Record(0, "first");
  const std::string strSecond = Record(2, "second");
  const std::string strPatch = strFirst + strSecond;
  for (size_t nCut = 0; nCut <= strPatch.size(); ++nCut) {
    SCOPED_TRACE(nCut);
    const KivWString csPath = MakePatch(strPatch.substr(0, nCut));
    const bool bWhole = nCut == 0 || nCut == strFirst.size() || nCut == strPatch.size();
    const size_t nIntoRecord = nCut < strFirst.size() ? nCut : nCut - strFirst.size();
    KivMemFile zFile(m_vcBase.data(), m_vcBase.size());
    const KivWString csReport = ReportOf([&] { EXPECT_TRUE(zFile.LoadCache(csPath)); });
    EXPECT_EQ(csReport, bWhole ? u"" : nIntoRecord < 8 ? u"iRead == 0" : u"0");
    Bytes vcExpected = m_vcBase;
    if (nCut >= strFirst.size()) std::memcpy(vcExpected.data(), "first", 5);
    if (nCut == strPatch.size()) std::memcpy(vcExpected.data() + 2 * kBlock, "second", 6);
    EXPECT_EQ(ReadBytes(zFile, 0, m_vcBase.size()), vcExpected);
    KivMemFile zAgain(m_vcBase.data(), m_vcBase.size());
    EXPECT_EQ(ReportsAndReturns([&] { EXPECT_TRUE(zAgain.LoadCache(csPath)); }), !bWhole);
    EXPECT_EQ(ReadBytes(zAgain, 0, m_vcBase.size()), vcExpected);
  }
}

TEST_F(FileCache, ABlockNumberThatOverflowsOrLiesFarBehindTheEndEndsTheReplay) {
  const std::string strGood = Record(1, "good");
  const uint64_t aiBlock[] = {UINT64_MAX,
                              UINT64_MAX / kBlock,
                              uint64_t{1} << 48,
                              (uint64_t{1} << 47),
                              (uint64_t{1} << 47) - 1,
                              uint64_t{1} << 30,
                              6};
  for (const uint64_t iBlock : aiBlock) {
    SCOPED_TRACE(iBlock);
    const KivWString csPath = MakePatch(strGood + Record(iBlock, "bad") + Record(0, "never"));
    KivMemFile zFile(m_vcBase.data(), m_vcBase.size());
    EXPECT_REPORT(zFile.LoadCache(csPath), "0");
    EXPECT_EQ(Text(ReadBytes(zFile, kBlock, 4)), "good");
    EXPECT_EQ(ReadBytes(zFile, 0, 5), Slice(m_vcBase, 0, 5));
    EXPECT_LE(zFile.GetCache()->m_vcCacheStatus.size(), 4u);
  }
}

TEST_F(FileCache, ABlockBehindTheEndByNoMoreThanThePatchsLengthIsTaken) {
  // The end is in the middle of block 3; block 4 begins less than a block behind it.
  const KivWString csPath = MakePatch(Record(4, std::string(kBlock, 'x')));
  EXPECT_NO_REPORT(EXPECT_TRUE(m_zFile.LoadCache(csPath)));
  EXPECT_EQ(m_zFile.GetLength(), 5 * kBlock);
}

TEST_F(FileCache, RecordsOfOnePatchCannotReachFurtherAndFurtherBehindTheEnd) {
  // The patch is a little longer than five blocks. The end before the replay counts, not that behind the record before.
  const std::string strBlock(kBlock, 'x');
  std::string strPatch;
  for (const uint64_t iBlock : {8, 12, 16, 20, 24}) strPatch += Record(iBlock, strBlock);
  EXPECT_REPORT(m_zFile.LoadCache(MakePatch(strPatch)), "0");
  EXPECT_EQ(m_zFile.GetLength(), 9 * kBlock);
}

TEST_F(FileCache, APatchOnASnapshotFailsTheCheck) {
  auto pzSnapShot = m_zSpace.Take(m_zFile);
  double adRate[100];
  EXPECT_REPORT(pzSnapShot->LoadCache(MakePatch("")), "!IsSnapShotFile()");
  EXPECT_REPORT(pzSnapShot->SaveCache(PatchPath(), 1), "!IsSnapShotFile()");
  EXPECT_REPORT(pzSnapShot->AdvanceCaching(1), "!IsSnapShotFile()");
  EXPECT_REPORT(pzSnapShot->GetCacheStatusMap(adRate), "!IsSnapShotFile()");
  EXPECT_REPORT(pzSnapShot->Flush(), "!IsSnapShotFile()");
  EXPECT_REPORT(pzSnapShot->SetLength(1), "!IsSnapShotFile()");
  EXPECT_REPORT(pzSnapShot->Write(0, "x", 1), "!IsSnapShotFile()");
  EXPECT_RETURNING_REPORT(pzSnapShot->Write(0, "x", 1));
  EXPECT_EQ(ReadBytes(*pzSnapShot, 0, 8), Slice(m_vcBase, 0, 8));
}

}  // namespace
