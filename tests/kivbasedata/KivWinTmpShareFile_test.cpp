#include "KivWinTmpShareFile.h"

#include <gtest/gtest.h>

#include <optional>

#include "KivDataSpaceBase.h"
#include "KivSysFault.h"
#include "KivSysFile.h"
#include "KivSysFolder.h"
#include "KivTestFolder.h"
#include "KivTestReport.h"
#include "KivTestScale.h"

using namespace kiv;
using namespace kivtest;

namespace kiv {
struct KivWinTmpShareFileTestAccess {
  static int32_t& Count(KivWinTmpShareFileCopiable& zHandle) { return zHandle.m_pzImpl->m_iCount; }
  static void Drop(KivWinTmpShareFileCopiable& zHandle) { zHandle.DropImpl(); }
};
}  // namespace kiv

namespace {

std::string ReadAll(KivWinTmpShareFileReader& zReader, uint64_t iOffset, uint64_t nBytes) {
  std::string strBytes(nBytes, '?');
  strBytes.resize(zReader.Read(iOffset, strBytes.data(), nBytes));
  return strBytes;
}

void Write(KivWinTmpShareFileOwner& zOwner, uint64_t iOffset, const std::string& strBytes) {
  zOwner.Write(iOffset, strBytes.data(), strBytes.size());
}

}  // namespace

TEST(ShareFile, ANewSlotHas64KiBOfCapacity) {
  TestFolder zFolder;
  KivWinTmpShareFileOwner zOwner;
  ASSERT_TRUE(zOwner.Create(zFolder / u"slot"));
  EXPECT_EQ(zOwner.GetCapacity(), 0x10000u);
  KivWinTmpShareFileReader zReader;
  ASSERT_TRUE(zReader.Open(zFolder / u"slot"));
  EXPECT_EQ(zReader.GetLength(), 0x10000u);
}

TEST(ShareFile, EmptyPathsAndMissingFoldersAndFilesGiveFalse) {
  TestFolder zFolder;
  KivWinTmpShareFileOwner zOwner;
  EXPECT_FALSE(zOwner.Create(u""));
  EXPECT_FALSE(zOwner.Create(zFolder / u"no" + sys::kSeparator + u"slot"));
  EXPECT_FALSE(zOwner.IsOpen());
  KivWinTmpShareFileReader zReader;
  EXPECT_FALSE(zReader.Open(u""));
  EXPECT_FALSE(zReader.Open(zFolder / u"slot"));
  EXPECT_EQ(ReadAll(zReader, 0, 4), "");
}

TEST(ShareFile, AMessageOfExactlyTheCapacityCausesNoGrowthAndOneMoreByteDoublesIt) {
  TestFolder zFolder;
  KivWinTmpShareFileOwner zOwner;
  ASSERT_TRUE(zOwner.Create(zFolder / u"slot"));
  Write(zOwner, 0, std::string(0x10000, 'a'));
  EXPECT_EQ(zOwner.GetCapacity(), 0x10000u);
  Write(zOwner, 520, std::string(0x10000 - 520, 'b'));
  EXPECT_EQ(zOwner.GetCapacity(), 0x10000u);
  Write(zOwner, 520, std::string(0x10000 - 519, 'c'));
  EXPECT_EQ(zOwner.GetCapacity(), 0x20000u);
  KivWinTmpShareFileReader zReader;
  ASSERT_TRUE(zReader.Open(zFolder / u"slot"));
  EXPECT_EQ(ReadAll(zReader, 519, 2), "ac");
  EXPECT_EQ(ReadAll(zReader, 0xFFFF, 3).substr(0, 2), "cc");
}

TEST(ShareFile, AMessageOf200KiBInANewSlotGives256KiBInOneStep) {
  TestFolder zFolder;
  KivWinTmpShareFileOwner zOwner;
  ASSERT_TRUE(zOwner.Create(zFolder / u"slot"));
  Write(zOwner, 0, std::string(200 * 1024, 'x'));
  EXPECT_EQ(zOwner.GetCapacity(), 256u * 1024);
}

TEST(ShareFile, ASmallerMessageKeepsTheCapacityAndTheOldContentBehindIt) {
  TestFolder zFolder;
  KivWinTmpShareFileOwner zOwner;
  ASSERT_TRUE(zOwner.Create(zFolder / u"slot"));
  Write(zOwner, 0, std::string(200 * 1024, 'x'));
  Write(zOwner, 0, "small");
  EXPECT_EQ(zOwner.GetCapacity(), 256u * 1024);
  KivWinTmpShareFileReader zReader;
  ASSERT_TRUE(zReader.Open(zFolder / u"slot"));
  EXPECT_EQ(zReader.GetLength(), 256u * 1024);
  EXPECT_EQ(ReadAll(zReader, 0, 7), "smallxx");
}

TEST(ShareFile, AReaderOpensTheSlotAnewForEachMessageAndSeesItsGrowth) {
  TestFolder zFolder;
  KivWinTmpShareFileOwner zOwner;
  ASSERT_TRUE(zOwner.Create(zFolder / u"slot"));
  KivWinTmpShareFileReader zReader;
  for (uint64_t nBytes : {100u, 70000u, 10u, 300000u, 5u}) {
    Write(zOwner, nBytes - 3, "end");
    ASSERT_TRUE(zReader.Open(zFolder / u"slot"));
    EXPECT_EQ(zReader.GetLength(), zOwner.GetCapacity());
    EXPECT_EQ(ReadAll(zReader, nBytes - 3, 3), "end");
    zReader.Release();
  }
}

TEST(ShareFile, AReaderFailsWhenTheOwnerHasGone) {
  TestFolder zFolder;
  std::optional<KivWinTmpShareFileOwner> zOwner(std::in_place);
  ASSERT_TRUE(zOwner->Create(zFolder / u"slot"));
  KivWinTmpShareFileReader zReader;
  ASSERT_TRUE(zReader.Open(zFolder / u"slot"));
  zReader.Release();
  zOwner.reset();
  EXPECT_FALSE(sys::PathExists(zFolder / u"slot"));
  EXPECT_FALSE(zReader.Open(zFolder / u"slot"));
}

TEST(ShareFile, AReaderFindsANewSlotUnderTheOldPath) {
  TestFolder zFolder;
  KivWinTmpShareFileReader zReader;
  for (const char* szContent : {"first", "other"}) {
    KivWinTmpShareFileOwner zOwner;
    ASSERT_TRUE(zOwner.Create(zFolder / u"slot"));
    Write(zOwner, 0, szContent);
    ASSERT_TRUE(zReader.Open(zFolder / u"slot"));
    EXPECT_EQ(ReadAll(zReader, 0, 5), szContent);
    zReader.Release();
  }
}

TEST(ShareFile, TheWriterIsReleasedByItsOwnerAlone) {
  TestFolder zFolder;
  KivWinTmpShareFileOwner zOwner;
  ASSERT_TRUE(zOwner.Create(zFolder / u"slot"));
  zOwner.Release();
  EXPECT_FALSE(sys::PathExists(zFolder / u"slot"));
  Write(zOwner, 0, "nowhere");  // does nothing
  EXPECT_EQ(zOwner.GetCapacity(), 0u);
}

TEST(ShareFile, DestroyingTheLastHandleRemovesTheFileAndACopyKeepsIt) {
  TestFolder zFolder;
  std::optional<KivWinTmpShareFileCopiable> zFirst(std::in_place);
  ASSERT_TRUE(zFirst->Owner().Create(zFolder / u"slot"));
  EXPECT_EQ(zFirst->GetCount(), 1);
  std::optional<KivWinTmpShareFileCopiable> zCopy(*zFirst);
  EXPECT_EQ(zCopy->GetCount(), 2);
  zFirst.reset();
  EXPECT_TRUE(sys::PathExists(zFolder / u"slot"));
  EXPECT_EQ(zCopy->GetCount(), 1);
  zCopy.reset();
  EXPECT_FALSE(sys::PathExists(zFolder / u"slot"));
}

TEST(ShareFile, AnAssignmentReleasesTheOwnFileUnlessBothAreOneObject) {
  TestFolder zFolder;
  KivWinTmpShareFileCopiable zOne, zTwo;
  ASSERT_TRUE(zOne.Owner().Create(zFolder / u"one"));
  ASSERT_TRUE(zTwo.Owner().Create(zFolder / u"two"));
  KivWinTmpShareFileCopiable& zSame = zOne;
  zOne = zSame;
  EXPECT_EQ(zOne.GetCount(), 1);
  zOne = zTwo;
  EXPECT_FALSE(sys::PathExists(zFolder / u"one"));
  EXPECT_EQ(zTwo.GetCount(), 2);
  zOne = zTwo;  // already shared
  EXPECT_EQ(zTwo.GetCount(), 2);
  EXPECT_TRUE(sys::PathExists(zFolder / u"two"));
}

TEST(ShareFile, ACountBelow0IsReported) {
  KivWinTmpShareFileCopiable zHandle;
  KivWinTmpShareFileTestAccess::Count(zHandle) = 0;
  EXPECT_REPORT(KivWinTmpShareFileTestAccess::Drop(zHandle), "m_pzImpl->m_iCount >= 0");
  KivWinTmpShareFileTestAccess::Count(zHandle) = 1;
}

TEST(ShareFile, WithoutDirectBuffersTheSlotGrowsWithItsMessages) {
  TestFolder zFolder;
  KivSetNoDirectBuffer(true);
  KivWinTmpShareFileOwner zOwner;
  ASSERT_TRUE(zOwner.Create(zFolder / u"slot"));
  Write(zOwner, 0, "0123456789");
  KivWinTmpShareFileReader zReader;
  ASSERT_TRUE(zReader.Open(zFolder / u"slot"));
  EXPECT_EQ(zReader.GetLength(), 10u);
  EXPECT_EQ(ReadAll(zReader, 4, 100), "456789");
  KivSetNoDirectBuffer(false);
}

TEST(ShareFile, WithoutTheLargerMappingTheCapacityCountsAndTheBytesGoThroughTheHandle) {
  TestFolder zFolder;
  NoThrowScope zNoThrow;
  KivWinTmpShareFileOwner zOwner;
  ASSERT_TRUE(zOwner.Create(zFolder / u"slot"));
  const std::string strLong(100000, 'h');
  {
    KivSysFaultPlan zPlan;
    zPlan.m_iCall = KivSysCall::MappingCreate;
    zPlan.m_iNth = 1;
    const KivSysFaultScope zFault(zPlan);
    Write(zOwner, 0, strLong);
    EXPECT_TRUE(zFault.HasFired());
  }
  EXPECT_EQ(zOwner.GetCapacity(), 0x20000u);
  Write(zOwner, 2, "still");
  KivWinTmpShareFileReader zReader;
  ASSERT_TRUE(zReader.Open(zFolder / u"slot"));
  EXPECT_EQ(ReadAll(zReader, 0, 9), "hhstillhh");
  EXPECT_EQ(ReadAll(zReader, strLong.size() - 2, 2), "hh");
}

TEST(ShareFile, AWriteThatTheFileDidNotTakeIsReportedAndGivesFalseAndTheNextOneIsGood) {
  for (const KivSysCall iCall : {KivSysCall::MappingView, KivSysCall::FileWrite}) {
    TestFolder zFolder;
    KivSetNoDirectBuffer(iCall == KivSysCall::FileWrite);
    KivWinTmpShareFileOwner zOwner;
    ASSERT_TRUE(zOwner.Create(zFolder / u"slot"));
    KivSysFaultPlan zPlan;
    zPlan.m_iCall = iCall;
    zPlan.m_iNth = 1;
    {
      const KivSysFaultScope zFault(zPlan);
      EXPECT_NE(ReportOf([&] { Write(zOwner, 0, "abc"); }), u"");
    }
    {
      NoThrowScope zNoThrow;
      const KivSysFaultScope zFault(zPlan);
      EXPECT_FALSE(zOwner.Write(0, "abc", 3));
      EXPECT_TRUE(zFault.HasFired());
    }
    EXPECT_TRUE(zOwner.Write(0, "xyz", 3));
    KivWinTmpShareFileReader zReader;
    ASSERT_TRUE(zReader.Open(zFolder / u"slot"));
    EXPECT_EQ(ReadAll(zReader, 0, 3), "xyz");
    KivSetNoDirectBuffer(false);
  }
}

TEST(ShareFile, AnEndThatNoDoublingReachesIsReportedAndNothingIsWritten) {
  TestFolder zFolder;
  KivWinTmpShareFileOwner zOwner;
  ASSERT_TRUE(zOwner.Create(zFolder / u"slot"));
  Write(zOwner, 0, "before");
  for (uint64_t iOffset : {(uint64_t{1} << 63) + 1, UINT64_MAX - 2, UINT64_MAX}) {
    EXPECT_REPORT(Write(zOwner, iOffset, "abc"), "0");
    NoThrowScope zNoThrow;
    Write(zOwner, iOffset, "abc");
    EXPECT_EQ(zOwner.GetCapacity(), 0x10000u);
  }
  KivWinTmpShareFileReader zReader;
  ASSERT_TRUE(zReader.Open(zFolder / u"slot"));
  EXPECT_EQ(ReadAll(zReader, 0, 6), "before");
}

TEST(ShareFile, ARangeIsReadWholeIntoABufferOfAnySizeBefore) {
  TestFolder zFolder;
  KivWinTmpShareFileOwner zOwner;
  ASSERT_TRUE(zOwner.Create(zFolder / u"slot"));
  KivWinTmpShareFileReader zReader;
  KivByteBuffer vcBytes;
  for (uint64_t nBytes : {uint64_t{5}, uint64_t{0}, uint64_t{70000}, uint64_t{3}, uint64_t{1} << 20}) {
    const std::string strBytes(nBytes, static_cast<char>('a' + nBytes % 7));
    Write(zOwner, 16, strBytes);
    ASSERT_TRUE(zReader.Open(zFolder / u"slot"));
    ASSERT_TRUE(zReader.ReadAll(16, nBytes, vcBytes));
    EXPECT_TRUE(std::string(vcBytes.begin(), vcBytes.end()) == strBytes) << nBytes;
    zReader.Release();
  }
}

TEST(ShareFile, ASlotThatIsCutUnderAReaderEndsTheReadAndNotTheProcess) {
  TestFolder zFolder;
  // A slot by hand: its owner may cut it, which a mapped one cannot.
  KivSysFile zSlot =
      KivSysFile::Open(zFolder / u"slot", {KivSysAccess::ReadWrite, KivSysShare::All, KivSysDisposition::CreateAlways,
                                           KivSysFileFlags::Temporary | KivSysFileFlags::DeleteOnClose});
  ASSERT_TRUE(zSlot.SetLength(1 << 20));
  NoThrowScope zNoThrow;
  KivWinTmpShareFileReader zReader;
  ASSERT_TRUE(zReader.Open(zFolder / u"slot"));
  KivByteBuffer vcBytes;
  if (IsWindows()) {
    // It cuts no file that is mapped: all of it stays.
    EXPECT_FALSE(zSlot.SetLength(100));
    EXPECT_TRUE(zReader.ReadAll(0, 1 << 20, vcBytes));
    return;
  }
  ASSERT_TRUE(zSlot.SetLength(100));
  EXPECT_FALSE(zReader.ReadAll(0, 1 << 20, vcBytes));
  zReader.Release();
  ASSERT_TRUE(zReader.Open(zFolder / u"slot"));
  EXPECT_EQ(zReader.GetLength(), 100u);
}
