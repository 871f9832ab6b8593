#include "KivMemFile.h"

#include "KivTestFile.h"

namespace {

using namespace kiv;
using namespace kivtest;

using Mem = FileTest;

TEST_F(Mem, ReadsOfTheMemoryFollowTheSameRuleOfTheEnd) {
  const Bytes vcData = Pattern(100);
  KivMemFile zFile(vcData.data(), vcData.size());
  Bytes vcRead(100);
  EXPECT_NO_REPORT(EXPECT_EQ(zFile.DoRead(40, vcRead.data(), 60), 60u));
  EXPECT_EQ(Slice(vcRead, 0, 60), Slice(vcData, 40, 60));
  EXPECT_NO_REPORT(EXPECT_EQ(zFile.DoRead(100, vcRead.data(), 0), 0u));
  EXPECT_REPORT(zFile.DoRead(90, vcRead.data(), 11), "0");
  EXPECT_RETURNING_REPORT(EXPECT_EQ(zFile.DoRead(90, vcRead.data(), 11), 10u));
  EXPECT_RETURNING_REPORT(EXPECT_EQ(zFile.DoRead(100, vcRead.data(), 1), 0u));
  EXPECT_RETURNING_REPORT(EXPECT_EQ(zFile.DoRead(UINT64_MAX, vcRead.data(), 2), 0u));
}

TEST_F(Mem, TheDeviceSideReportsEveryChange) {
  KivMemFile zFile("abc", 3);
  EXPECT_REPORT(zFile.DoWrite(0, "x", 1), "0");
  EXPECT_REPORT(zFile.DoWriteZero(0, 1), "0");
  EXPECT_REPORT(zFile.DoSetLength(1), "0");
  EXPECT_REPORT(zFile.DoFlush(), "0");
  EXPECT_REPORT(zFile.SetLength(1), "0");
  EXPECT_RETURNING_REPORT(EXPECT_FALSE(zFile.DoSetLength(1)));
  EXPECT_FALSE(zFile.CanUseDirectBuffer());
  EXPECT_REPORT(zFile.PrepareDirectBuffer(1), "0");
  EXPECT_REPORT(zFile.GetDirectBufferSize(), "0");
}

TEST_F(Mem, WritesGoToTheCacheAndNeverToTheMemory) {
  Bytes vcData = Pattern(3 * kBlock);
  const Bytes vcBefore = vcData;
  KivMemFile zFile(vcData.data(), vcData.size());
  zFile.Write(kBlock - 2, "abcd", 4);
  EXPECT_EQ(ReadBytes(zFile, kBlock - 3, 6), (Bytes{vcBefore[kBlock - 3], 'a', 'b', 'c', 'd', vcBefore[kBlock + 2]}));
  EXPECT_EQ(vcData, vcBefore);
  EXPECT_NO_REPORT(zFile.Flush());
}

TEST_F(Mem, ASnapshotComesBackWithItsMemory) {
  const Bytes vcData = Pattern(2 * kBlock);
  KivMemFile zFile(vcData.data(), vcData.size());
  auto pzSnapShot = m_zSpace.Take(zFile);
  zFile.Write(0, "abcd", 4);
  EXPECT_EQ(zFile.RestoreSnapShot(pzSnapShot), 0);
  EXPECT_EQ(zFile.m_pData, vcData.data());
  EXPECT_EQ(ReadBytes(zFile, 0, 2 * kBlock), vcData);
  EXPECT_RETURNING_REPORT(EXPECT_EQ(zFile.RestoreSnapShot(nullptr), 10));
  KivMemFile zNever(vcData.data(), vcData.size());
  EXPECT_RETURNING_REPORT(EXPECT_EQ(zNever.RestoreSnapShot(pzSnapShot), 20));
}

}  // namespace
