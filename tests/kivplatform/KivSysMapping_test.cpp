#include "KivSysMapping.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "KivPlatformTest.h"
#include "KivSysLocale.h"
#include "KivTestFolder.h"

using namespace kiv;
using namespace kivtest;

namespace {

KivSysFile WritableFile(const KivWString& csPath) {
  return OpenFile(csPath, KivSysAccess::ReadWrite, KivSysShare::All, KivSysDisposition::OpenAlways);
}

KivSysFile ShareFile(const KivWString& csPath) {
  return OpenFile(csPath, KivSysAccess::ReadWrite, KivSysShare::All, KivSysDisposition::CreateAlways,
                  KivSysFileFlags::Temporary | KivSysFileFlags::RandomAccess | KivSysFileFlags::DeleteOnClose);
}

uint8_t PatternAt(uint64_t i) {
  return static_cast<uint8_t>(i * 31 + i / 251);
}

}  // namespace

TEST(Mapping, AWritableOneExtendsTheFileAndReachesIt) {
  const TestFolder zFolder;
  {
    KivSysFile zFile = WritableFile(zFolder / u"a");
    KivSysMapping zMapping;
    EXPECT_FALSE(zMapping.IsOpen());
    ASSERT_TRUE(zMapping.Create(zFile, false, 100'000, u""));
    EXPECT_TRUE(zMapping.IsOpen());
    EXPECT_EQ(zMapping.GetCapacity(), 100'000u);
    uint64_t iLength = 0;
    EXPECT_TRUE(zFile.GetLength(iLength));
    EXPECT_EQ(iLength, 100'000u);
    uint8_t* const pView = zMapping.MapView(0, 100'000);
    ASSERT_NE(pView, nullptr);
    EXPECT_EQ(pView[99'999], 0);
    std::memcpy(pView + 99'990, "0123456789", 10);
    zMapping.UnmapView(pView, 100'000);
    zMapping.Close();
    EXPECT_FALSE(zMapping.IsOpen());
  }
  const std::string strBytes = zFolder.ReadBytes(u"a");
  ASSERT_EQ(strBytes.size(), 100'000u);
  EXPECT_EQ(strBytes.substr(99'990), "0123456789");
}

TEST(Mapping, CapacityZeroMeansThePresentLength) {
  const TestFolder zFolder;
  zFolder.WriteBytes(u"a", "content");
  zFolder.WriteBytes(u"empty", "");
  KivSysFile zFile = OpenFile(zFolder / u"a", KivSysAccess::Read, KivSysShare::All, KivSysDisposition::OpenExisting);
  KivSysMapping zMapping;
  ASSERT_TRUE(zMapping.Create(zFile, true, 0, u""));
  EXPECT_EQ(zMapping.GetCapacity(), 7u);
  const uint8_t* const pView = zMapping.MapView(0, 7);
  ASSERT_NE(pView, nullptr);
  EXPECT_EQ(std::memcmp(pView, "content", 7), 0);

  KivSysFile zEmpty =
      OpenFile(zFolder / u"empty", KivSysAccess::Read, KivSysShare::All, KivSysDisposition::OpenExisting);
  KivSysMapping zNone;
  EXPECT_FALSE(zNone.Create(zEmpty, true, 0, u""));
  EXPECT_FALSE(zNone.IsOpen());
  EXPECT_EQ(zNone.MapView(0, 1), nullptr);
}

TEST(Mapping, AReadOnlyOneCannotReachBehindTheFile) {
  const TestFolder zFolder;
  zFolder.WriteBytes(u"a", "content");
  KivSysFile zFile = OpenFile(zFolder / u"a", KivSysAccess::Read, KivSysShare::All, KivSysDisposition::OpenExisting);
  KivSysMapping zMapping;
  EXPECT_FALSE(zMapping.Create(zFile, true, 8, u""));
  EXPECT_TRUE(zMapping.Create(zFile, true, 7, u""));
}

TEST(Mapping, ViewsKeepToTheCapacityAndTheGranularity) {
  const TestFolder zFolder;
  const uint64_t iGranularity = sys::AllocationGranularity() != 0 ? sys::AllocationGranularity() : 0x10000;
  KivSysFile zFile = WritableFile(zFolder / u"a");
  KivSysMapping zMapping;
  ASSERT_TRUE(zMapping.Create(zFile, false, 3 * iGranularity + 5, u""));
  EXPECT_EQ(zMapping.MapView(0, 3 * iGranularity + 6), nullptr);
  EXPECT_EQ(zMapping.MapView(3 * iGranularity, 6), nullptr);
  EXPECT_EQ(zMapping.MapView(4 * iGranularity, 1), nullptr);
  EXPECT_EQ(zMapping.MapView(UINT64_MAX - iGranularity + 1, iGranularity), nullptr);
  EXPECT_EQ(zMapping.MapView(0, 0), nullptr);
  EXPECT_EQ(zMapping.MapView(1, 1), nullptr);
  uint8_t* const pFirst = zMapping.MapView(0, 2 * iGranularity);
  uint8_t* const pSecond = zMapping.MapView(iGranularity, 2 * iGranularity + 5);
  ASSERT_NE(pFirst, nullptr);
  ASSERT_NE(pSecond, nullptr);
  pFirst[iGranularity + 3] = 77;
  EXPECT_EQ(pSecond[3], 77) << "views of one file show the same bytes";
  zMapping.UnmapView(pFirst, 2 * iGranularity);
  EXPECT_EQ(pSecond[3], 77);
  zMapping.UnmapView(pSecond, 2 * iGranularity + 5);
}

TEST(Mapping, GrowingKeepsTheContent) {
  const TestFolder zFolder;
  KivSysFile zFile = ShareFile(zFolder / u"input");
  KivSysMapping zMapping;
  uint64_t nFilled = 0;
  for (uint64_t nCapacity = 0x10000; nCapacity <= 0x400000; nCapacity *= 2) {
    ASSERT_TRUE(zMapping.Create(zFile, false, nCapacity, u""));
    EXPECT_EQ(zMapping.GetCapacity(), nCapacity);
    uint8_t* const pView = zMapping.MapView(0, nCapacity);
    ASSERT_NE(pView, nullptr);
    for (uint64_t i = 0; i < nFilled; ++i) ASSERT_EQ(pView[i], PatternAt(i)) << "at " << i;
    for (; nFilled < nCapacity; ++nFilled) pView[nFilled] = PatternAt(nFilled);
    zMapping.UnmapView(pView, nCapacity);
  }
}

TEST(Mapping, TakesTheFormOfAnotherFile) {
  const TestFolder zFolder;
  zFolder.WriteBytes(u"a", std::string(100, 'a'));
  zFolder.WriteBytes(u"b", std::string(50, 'b'));
  KivSysFile zFirst = WritableFile(zFolder / u"a");
  KivSysFile zSecond = OpenFile(zFolder / u"b", KivSysAccess::Read, KivSysShare::All, KivSysDisposition::OpenExisting);
  KivSysMapping zMapping;
  ASSERT_TRUE(zMapping.Create(zFirst, false, 100, u""));
  ASSERT_TRUE(zMapping.Create(zSecond, true, 0, u""));
  EXPECT_EQ(zMapping.GetCapacity(), 50u);
  KivSysMapping zMoved = std::move(zMapping);
  EXPECT_FALSE(zMapping.IsOpen());
  const uint8_t* const pView = zMoved.MapView(0, 50);
  ASSERT_NE(pView, nullptr);
  EXPECT_EQ(pView[49], 'b');
}

KIV_TEST_CHILD(ShareOwner) {
  KivSysFile zFile = ShareFile(vcsArgs[1]);
  KivSysMapping zMapping;
  if (!zMapping.Create(zFile, false, 300'000, u"")) return 1;
  uint8_t* const pView = zMapping.MapView(0, 300'000);
  for (uint64_t i = 0; i < 300'000; ++i) pView[i] = PatternAt(i);
  return ReadyUntilKilled(vcsArgs[0]);
}

TEST(Mapping, AReaderKeepsTheShareFileOfAnOwnerWhoDiesMeanwhile) {
  const TestFolder zFolder;
  const KivWString csPath = zFolder / u"input";
  ReadyChild zOwner("ShareOwner", {csPath});
  ASSERT_TRUE(zOwner.IsReady());
  {
    KivSysFile zFile = OpenFile(csPath, KivSysAccess::Read, KivSysShare::All, KivSysDisposition::OpenExisting,
                                KivSysFileFlags::Temporary | KivSysFileFlags::RandomAccess);
    ASSERT_TRUE(zFile.IsOpen());
    KivSysMapping zMapping;
    ASSERT_TRUE(zMapping.Create(zFile, true, 0, u""));
    uint8_t* const pView = zMapping.MapView(0, 300'000);
    ASSERT_NE(pView, nullptr);
    for (uint64_t i = 0; i < 100'000; ++i) ASSERT_EQ(pView[i], PatternAt(i));
    ASSERT_TRUE(zOwner.Kill());
    for (uint64_t i = 0; i < 300'000; ++i) ASSERT_EQ(pView[i], PatternAt(i));
    zMapping.UnmapView(pView, 300'000);
  }
  EXPECT_TRUE(Eventually([&] { return !sys::PathExists(csPath); }));
  EXPECT_FALSE(OpenFile(csPath, KivSysAccess::Read, KivSysShare::All, KivSysDisposition::OpenExisting).IsOpen());
}
