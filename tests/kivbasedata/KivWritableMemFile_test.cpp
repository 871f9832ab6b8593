#include "KivWritableMemFile.h"

#include "KivTestFile.h"

namespace {

using namespace kiv;
using namespace kivtest;

using WritableMem = FileTest;

TEST_F(WritableMem, AReadThatEndsExactlyAtTheLengthIsNoFailure) {
  KivWritableMemFile zFile;
  const Bytes vcData = Pattern(100);
  WriteBytes(zFile, 0, vcData);
  EXPECT_NO_REPORT(EXPECT_EQ(ReadBytes(zFile, 40, 60), Slice(vcData, 40, 60)));
}

TEST_F(WritableMem, AReadOfNothingAtTheLengthGives0WithoutAReport) {
  KivWritableMemFile zFile;
  WriteBytes(zFile, 0, Pattern(100));
  uint8_t c = 0;
  EXPECT_NO_REPORT(EXPECT_EQ(zFile.Read(100, &c, 0), 0u));
  EXPECT_REPORT(zFile.Read(101, &c, 0), "0");
}

TEST_F(WritableMem, AReadBehindTheEndReportsAndIsCut) {
  KivWritableMemFile zFile;
  const Bytes vcData = Pattern(100);
  WriteBytes(zFile, 0, vcData);
  Bytes vcRead(100);
  EXPECT_REPORT(zFile.Read(90, vcRead.data(), 20), "0");
  EXPECT_RETURNING_REPORT(EXPECT_EQ(zFile.Read(90, vcRead.data(), 20), 10u));
  EXPECT_EQ(Slice(vcRead, 0, 10), Slice(vcData, 90, 10));
  EXPECT_RETURNING_REPORT(EXPECT_EQ(zFile.Read(100, vcRead.data(), 1), 0u));
  EXPECT_RETURNING_REPORT(EXPECT_EQ(zFile.Read(UINT64_MAX, vcRead.data(), 2), 0u));
  EXPECT_RETURNING_REPORT(EXPECT_EQ(zFile.Read(99, vcRead.data(), UINT64_MAX), 1u));
}

TEST_F(WritableMem, AWriteBehindTheEndZeroFillsTheGap) {
  KivWritableMemFile zFile;
  zFile.Write(0, "ab", 2);
  zFile.Write(5, "cd", 2);
  EXPECT_EQ(ReadBytes(zFile, 0, 7), (Bytes{'a', 'b', 0, 0, 0, 'c', 'd'}));
  zFile.WriteZero(6, 3);
  EXPECT_EQ(ReadBytes(zFile, 0, 9), (Bytes{'a', 'b', 0, 0, 0, 'c', 0, 0, 0}));
}

TEST_F(WritableMem, AWriteOfNothingOrFromNowhereGrowsNothing) {
  KivWritableMemFile zFile;
  zFile.Write(50, "x", 0);
  zFile.Write(50, nullptr, 3);
  zFile.WriteZero(50, 0);
  EXPECT_EQ(zFile.GetLength(), 0u);
}

TEST_F(WritableMem, ARangeThatMemoryCannotHoldIsReportedAndChangesNothing) {
  KivWritableMemFile zFile;
  zFile.Write(0, "ab", 2);
  EXPECT_REPORT(zFile.Write(UINT64_MAX, "xy", 2), "0");
  EXPECT_REPORT(zFile.Write(UINT64_MAX - 2, "xy", 2), "0");
  EXPECT_REPORT(zFile.WriteZero(2, UINT64_MAX), "0");
  EXPECT_REPORT(zFile.PrepareDirectBuffer(UINT64_MAX), "0");
  EXPECT_RETURNING_REPORT(EXPECT_FALSE(zFile.PrepareDirectBuffer(UINT64_MAX)));
  EXPECT_EQ(ReadBytes(zFile, 0, 2), (Bytes{'a', 'b'}));
  EXPECT_EQ(zFile.GetLength(), 2u);
}

TEST_F(WritableMem, ADirectBufferInsideTheDataTruncatesToTheEndOfItsRange) {
  KivWritableMemFile zFile;
  const Bytes vcData = Pattern(100);
  WriteBytes(zFile, 0, vcData);
  const uint8_t* pBuffer = zFile.GetDirectBuffer(true, 20, 30);
  ASSERT_NE(pBuffer, nullptr);
  EXPECT_EQ(zFile.GetLength(), 50u);
  EXPECT_EQ(pBuffer[29], vcData[49]);
}

TEST_F(WritableMem, ADirectBufferAtOrBehindTheEndGrowsNothing) {
  KivWritableMemFile zFile;
  WriteBytes(zFile, 0, Pattern(100));
  EXPECT_EQ(zFile.GetDirectBuffer(false, 90, 10), zFile.m_vcData.data() + 90);
  EXPECT_EQ(zFile.GetDirectBuffer(false, 90, 1000), zFile.m_vcData.data() + 90);
  EXPECT_EQ(zFile.GetDirectBuffer(false, 100, 1), zFile.m_vcData.data() + 100);
  EXPECT_EQ(zFile.GetDirectBuffer(false, 90, UINT64_MAX), zFile.m_vcData.data() + 90);
  EXPECT_EQ(zFile.GetLength(), 100u);
}

TEST_F(WritableMem, ADirectBufferThatBeginsBehindTheEndIsReportedAndNull) {
  KivWritableMemFile zFile;
  WriteBytes(zFile, 0, Pattern(100));
  EXPECT_REPORT(zFile.GetDirectBuffer(true, 101, 1), "0");
  EXPECT_RETURNING_REPORT(EXPECT_EQ(zFile.GetDirectBuffer(true, 101, 1), nullptr));
  EXPECT_RETURNING_REPORT(EXPECT_EQ(zFile.GetDirectBuffer(true, UINT64_MAX, 1), nullptr));
}

TEST_F(WritableMem, PrepareGrowsWithZerosAndNeverShrinks) {
  KivWritableMemFile zFile;
  EXPECT_TRUE(zFile.CanUseDirectBuffer());
  EXPECT_TRUE(zFile.PrepareDirectBuffer(10));
  EXPECT_EQ(ReadBytes(zFile, 0, 10), Bytes(10));
  EXPECT_TRUE(zFile.PrepareDirectBuffer(3));
  EXPECT_EQ(zFile.GetDirectBufferSize(), 10u);
}

TEST_F(WritableMem, ASnapshotIsIndependentOfLaterWrites) {
  KivWritableMemFile zFile;
  const Bytes vcData = Pattern(100);
  WriteBytes(zFile, 0, vcData);
  auto pzSnapShot = m_zSpace.Take(zFile);
  WriteBytes(zFile, 0, Pattern(200, 2));
  EXPECT_EQ(ReadBytes(*pzSnapShot, 0, 100), vcData);
  EXPECT_EQ(pzSnapShot->GetLength(), 100u);
  EXPECT_EQ(zFile.RestoreSnapShot(pzSnapShot), 0);
  EXPECT_EQ(zFile.GetLength(), 100u);
}

TEST_F(WritableMem, SetLengthIsReported) {
  KivWritableMemFile zFile;
  EXPECT_REPORT(zFile.SetLength(10), "0");
  EXPECT_RETURNING_REPORT(EXPECT_FALSE(zFile.SetLength(10)));
  EXPECT_EQ(zFile.GetLength(), 0u);
}

}  // namespace
