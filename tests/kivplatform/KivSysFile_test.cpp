#include "KivSysFile.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "KivPlatformTest.h"
#include "KivSysFault.h"
#include "KivSysFileKind.h"
#include "KivTestFolder.h"

using namespace kiv;
using namespace kivtest;

namespace {

bool WriteText(KivSysFile& zFile, uint64_t iOffset, const std::string& strText) {
  uint32_t nDone = 0;
  return zFile.WriteAt(iOffset, strText.data(), static_cast<uint32_t>(strText.size()), nDone) &&
         nDone == strText.size();
}

std::string ReadText(KivSysFile& zFile, uint64_t iOffset, uint32_t nCount) {
  std::string strText(nCount, '?');
  uint32_t nDone = 0;
  if (!zFile.ReadAt(iOffset, strText.data(), nCount, nDone)) return "failed";
  strText.resize(nDone);
  return strText;
}

}  // namespace

TEST(File, DispositionsAsTold) {
  const TestFolder zFolder;
  const KivWString csPath = zFolder / u"a";
  const auto Open = [&](KivSysDisposition iDisposition) {
    return OpenFile(csPath, KivSysAccess::ReadWrite, KivSysShare::All, iDisposition);
  };
  EXPECT_FALSE(Open(KivSysDisposition::OpenExisting).IsOpen());
  EXPECT_NE(sys::LastError(), 0);
  {
    KivSysFile zFile = Open(KivSysDisposition::CreateNew);
    ASSERT_TRUE(zFile.IsOpen());
    EXPECT_TRUE(WriteText(zFile, 0, "content"));
  }
  EXPECT_FALSE(Open(KivSysDisposition::CreateNew).IsOpen());
  EXPECT_EQ(zFolder.ReadBytes(u"a"), "content");
  EXPECT_TRUE(Open(KivSysDisposition::OpenExisting).IsOpen());
  EXPECT_TRUE(Open(KivSysDisposition::OpenAlways).IsOpen());
  EXPECT_EQ(zFolder.ReadBytes(u"a"), "content");
  EXPECT_TRUE(Open(KivSysDisposition::CreateAlways).IsOpen());
  EXPECT_EQ(zFolder.ReadBytes(u"a"), "");
  EXPECT_TRUE(sys::RemoveFileAt(csPath));
  EXPECT_TRUE(Open(KivSysDisposition::OpenAlways).IsOpen());
  EXPECT_TRUE(sys::PathExists(csPath));
}

TEST(File, TransfersTakeTheirPositionsAndEndAtTheEnd) {
  const TestFolder zFolder;
  KivSysFile zFile = OpenFile(zFolder / u"a", KivSysAccess::ReadWrite, KivSysShare::None, KivSysDisposition::CreateNew);
  ASSERT_TRUE(zFile.IsOpen());
  EXPECT_TRUE(WriteText(zFile, 0, "0123456789"));
  EXPECT_TRUE(WriteText(zFile, 4, "xy"));
  EXPECT_EQ(ReadText(zFile, 2, 5), "23xy6");
  EXPECT_EQ(ReadText(zFile, 8, 5), "89");
  EXPECT_EQ(ReadText(zFile, 10, 5), "");
  EXPECT_EQ(ReadText(zFile, 1000, 5), "");
  EXPECT_EQ(ReadText(zFile, 3, 0), "");
  uint64_t iLength = 0;
  EXPECT_TRUE(zFile.GetLength(iLength));
  EXPECT_EQ(iLength, 10u);
  EXPECT_TRUE(zFile.SetLength(4));
  EXPECT_TRUE(zFile.SetLength(6));
  EXPECT_EQ(ReadText(zFile, 0, 100), std::string("0123\0\0", 6));
  EXPECT_TRUE(zFile.Flush());
}

TEST(File, PositionsBehindFourGigabytes) {
  const TestFolder zFolder;
  KivSysFile zFile = OpenFile(zFolder / u"a", KivSysAccess::ReadWrite, KivSysShare::None, KivSysDisposition::CreateNew);
  ASSERT_TRUE(zFile.SetSparse());
  const uint64_t iFar = 0x140000000;
  EXPECT_TRUE(WriteText(zFile, iFar, "far"));
  EXPECT_EQ(ReadText(zFile, iFar - 1, 10), std::string("\0far", 4));
  uint64_t iLength = 0;
  EXPECT_TRUE(zFile.GetLength(iLength));
  EXPECT_EQ(iLength, iFar + 3);
}

TEST(File, AReadOnlyOpenCannotWrite) {
  const TestFolder zFolder;
  zFolder.WriteBytes(u"a", "content");
  KivSysFile zFile = OpenFile(zFolder / u"a", KivSysAccess::Read, KivSysShare::All, KivSysDisposition::OpenExisting);
  uint32_t nDone = 1;
  EXPECT_FALSE(zFile.WriteAt(0, "x", 1, nDone));
  EXPECT_NE(sys::LastError(), 0);
  EXPECT_EQ(zFolder.ReadBytes(u"a"), "content");
}

TEST(File, BadPathsFailWithAnError) {
  const TestFolder zFolder;
  for (const KivWString& csPath : {KivWString(), zFolder / u"missing" + sys::kSeparator + u"a", zFolder.Path(),
                                   zFolder / KivWString(5000, u'x')}) {
    sys::SetLastErrorNumber(0);
    EXPECT_FALSE(
        OpenFile(csPath, KivSysAccess::ReadWrite, KivSysShare::None, KivSysDisposition::CreateAlways).IsOpen());
    EXPECT_NE(sys::LastError(), 0);
  }
}

TEST(File, NamesOfAllScripts) {
  const TestFolder zFolder;
  const KivWString csPath = zFolder / u"\u00e4\u4e2d\U0001F600.kiv";
  EXPECT_TRUE(OpenFile(csPath, KivSysAccess::Write, KivSysShare::None, KivSysDisposition::CreateNew).IsOpen());
  EXPECT_TRUE(sys::PathExists(csPath));
}

TEST(File, MovesAndClosesOnce) {
  const TestFolder zFolder;
  KivSysFile zFirst =
      OpenFile(zFolder / u"a", KivSysAccess::ReadWrite, KivSysShare::None, KivSysDisposition::CreateNew);
  KivSysFile zSecond = std::move(zFirst);
  EXPECT_FALSE(zFirst.IsOpen());
  ASSERT_TRUE(zSecond.IsOpen());
  zFirst = std::move(zSecond);
  EXPECT_TRUE(WriteText(zFirst, 0, "a"));
  zFirst.Close();
  zFirst.Close();
  EXPECT_FALSE(zFirst.IsOpen());
}

TEST(File, TellsItsNameAndWriteTime) {
  const TestFolder zFolder;
  KivSysFile zFile =
      OpenFile(zFolder / u"name.kiv", KivSysAccess::ReadWrite, KivSysShare::None, KivSysDisposition::CreateNew);
  EXPECT_TRUE(WriteText(zFile, 0, "content"));
  const KivWString csName = zFile.GetName();
  ASSERT_GE(csName.size(), 8u);
  EXPECT_EQ(csName.substr(csName.size() - 8), u"name.kiv");
  uint64_t iTime = 0;
  EXPECT_TRUE(zFile.GetWriteTime(iTime));
  EXPECT_GT(iTime, 132'000'000'000'000'000u) << "after the year 2019";
  KivSysCommTimeouts zTimeouts;
  EXPECT_FALSE(zFile.GetCommTimeouts(zTimeouts));
  EXPECT_NE(sys::LastError(), 0);
}

TEST(File, NamesThatAreAskedForAtOnceAreEachFilesOwnAndHoldNothing) {
  const TestFolder zFolder;
  const auto Ask = [&](const KivWString& csName, int& nWrong) {
    KivSysFile zFile =
        OpenFile(zFolder / csName, KivSysAccess::ReadWrite, KivSysShare::None, KivSysDisposition::CreateNew);
    for (int i = 0; i < 300; ++i) {
      // A file that stands in somebody's mapping cannot be cut.
      if (!WriteText(zFile, 0, "content") || !zFile.GetName().ends_with(csName) || !zFile.SetLength(0)) ++nWrong;
    }
  };
  int nFirst = 0, nSecond = 0;
  std::thread zOther([&] { Ask(u"other.kiv", nSecond); });
  Ask(u"first.kiv", nFirst);
  zOther.join();
  EXPECT_EQ(nFirst, 0);
  EXPECT_EQ(nSecond, 0);
}

namespace {

struct SharingCase {
  KivSysAccess m_iAccess;
  KivSysShare m_iShare;
};

bool Allows(const SharingCase& zHeld, const SharingCase& zNew) {
  const auto Covers = [](KivSysShare iShare, KivSysAccess iAccess) {
    return (static_cast<uint32_t>(iAccess) & ~static_cast<uint32_t>(iShare)) == 0;
  };
  return Covers(zHeld.m_iShare, zNew.m_iAccess) && Covers(zNew.m_iShare, zHeld.m_iAccess);
}

}  // namespace

TEST(File, TellsTheRoomOfItsDisk) {
  const TestFolder zFolder;
  const KivSysFile zFile =
      OpenFile(zFolder / u"a", KivSysAccess::ReadWrite, KivSysShare::None, KivSysDisposition::CreateNew);
  uint64_t nRoom = 0;
  ASSERT_TRUE(zFile.GetDiskRoom(nRoom));
  EXPECT_GT(nRoom, 0u);
  KivSysFaultPlan zPlan;
  zPlan.m_iCall = KivSysCall::FreeSpace;
  zPlan.m_iNth = 1;
  const KivSysFaultScope zFull(zPlan);
  ASSERT_TRUE(zFile.GetDiskRoom(nRoom));
  EXPECT_EQ(nRoom, 0u);
}

TEST(File, ASecondOpenMustFitTheSharingOfTheFirstAndTheOtherWayRound) {
  const TestFolder zFolder;
  zFolder.WriteBytes(u"a", "content");
  for (uint32_t i = 0; i < 12; ++i) {
    for (uint32_t j = 0; j < 12; ++j) {
      const SharingCase zHeld{static_cast<KivSysAccess>(i % 3 + 1), static_cast<KivSysShare>(i / 3)};
      const SharingCase zNew{static_cast<KivSysAccess>(j % 3 + 1), static_cast<KivSysShare>(j / 3)};
      const KivSysFile zFirst =
          OpenFile(zFolder / u"a", zHeld.m_iAccess, zHeld.m_iShare, KivSysDisposition::OpenExisting);
      ASSERT_TRUE(zFirst.IsOpen());
      const KivSysFile zSecond =
          OpenFile(zFolder / u"a", zNew.m_iAccess, zNew.m_iShare, KivSysDisposition::OpenExisting);
      EXPECT_EQ(zSecond.IsOpen(), Allows(zHeld, zNew)) << "cases " << i << " and " << j;
    }
  }
}

TEST(File, CreateAlwaysOnAFileHeldWithoutSharingFailsAndCutsNothing) {
  const TestFolder zFolder;
  zFolder.WriteBytes(u"a", "content");
  {
    KivSysFile zHeld = OpenFile(zFolder / u"a", KivSysAccess::Read, KivSysShare::None, KivSysDisposition::OpenExisting);
    ASSERT_TRUE(zHeld.IsOpen());
    EXPECT_FALSE(
        OpenFile(zFolder / u"a", KivSysAccess::ReadWrite, KivSysShare::All, KivSysDisposition::CreateAlways).IsOpen());
    EXPECT_EQ(ReadText(zHeld, 0, 100), "content");
  }
  EXPECT_TRUE(
      OpenFile(zFolder / u"a", KivSysAccess::ReadWrite, KivSysShare::All, KivSysDisposition::CreateAlways).IsOpen());
  EXPECT_EQ(zFolder.ReadBytes(u"a"), "");
}

KIV_TEST_CHILD(FileOpener) {
  const KivSysFile zFile = OpenFile(vcsArgs[0], KivSysAccess::Read, KivSysShare::All, KivSysDisposition::OpenExisting);
  return zFile.IsOpen() ? 1 : 0;
}

TEST(File, HeldWithoutSharingCannotBeOpenedByASecondProcess) {
  const TestFolder zFolder;
  int32_t iCode = -1;
  {
    const KivSysFile zHeld =
        OpenFile(zFolder / u"a", KivSysAccess::ReadWrite, KivSysShare::None, KivSysDisposition::CreateNew);
    ASSERT_TRUE(zHeld.IsOpen());
    KivSysProcess zChild = StartTestChild("FileOpener", {zFolder / u"a"});
    ASSERT_EQ(zChild.Wait(kLong), KivSysWait::Signalled);
    EXPECT_TRUE(zChild.GetExitCode(iCode));
    EXPECT_EQ(iCode, 0);
  }
  KivSysProcess zChild = StartTestChild("FileOpener", {zFolder / u"a"});
  ASSERT_EQ(zChild.Wait(kLong), KivSysWait::Signalled);
  EXPECT_TRUE(zChild.GetExitCode(iCode));
  EXPECT_EQ(iCode, 1) << "free again after the close";
}

TEST(File, DeleteOnCloseTakesTheNameAway) {
  const TestFolder zFolder;
  const KivWString csPath = zFolder / u"KivProc1";
  {
    const KivSysFile zMarker = MakeMarker(csPath);
    ASSERT_TRUE(zMarker.IsOpen());
    EXPECT_TRUE(sys::PathExists(csPath));
    std::vector<KivSysFolderEntry> vzEntries;
    ASSERT_TRUE(sys::ListFolder(zFolder.Path(), vzEntries));
    ASSERT_EQ(vzEntries.size(), 1u);
    EXPECT_EQ(vzEntries[0].m_csName, u"KivProc1");
    EXPECT_FALSE(MakeMarker(csPath).IsOpen());
    EXPECT_TRUE(sys::PathExists(csPath)) << "the second one's failure must not remove the name";
  }
  EXPECT_FALSE(sys::PathExists(csPath));
}

TEST(File, DeleteOnCloseReplacesAPlainFileAndTakesItAway) {
  const TestFolder zFolder;
  zFolder.WriteBytes(u"a", "old");
  {
    KivSysFile zFile = MakeMarker(zFolder / u"a");
    ASSERT_TRUE(zFile.IsOpen());
    uint64_t iLength = 1;
    EXPECT_TRUE(zFile.GetLength(iLength));
    EXPECT_EQ(iLength, 0u);
  }
  EXPECT_FALSE(sys::PathExists(zFolder / u"a"));
}

KIV_TEST_CHILD(MarkerHolder) {
  const KivSysFile zMarker = MakeMarker(vcsArgs[1]);
  return zMarker.IsOpen() ? ReadyUntilKilled(vcsArgs[0]) : 1;
}

TEST(File, TheMarkerOfAKilledProcessIsGoneForTheExistenceTest) {
  const TestFolder zFolder;
  ReadyChild zChild("MarkerHolder", {zFolder / u"KivProc1"});
  ASSERT_TRUE(zChild.IsReady());
  EXPECT_TRUE(sys::PathExists(zFolder / u"KivProc1"));
  ASSERT_TRUE(zChild.Kill());
  EXPECT_TRUE(Eventually([&] { return !sys::PathExists(zFolder / u"KivProc1"); }));
}

TEST(File, TheMarkerOfAKilledProcessIsGoneForListings) {
  const TestFolder zFolder;
  ReadyChild zChild("MarkerHolder", {zFolder / u"KivProc1"});
  ASSERT_TRUE(zChild.IsReady());
  std::vector<KivSysFolderEntry> vzEntries;
  ASSERT_TRUE(sys::ListFolder(zFolder.Path(), vzEntries));
  EXPECT_EQ(vzEntries.size(), 1u);
  ASSERT_TRUE(zChild.Kill());
  EXPECT_TRUE(Eventually([&] { return sys::ListFolder(zFolder.Path(), vzEntries) && vzEntries.empty(); }));
  EXPECT_TRUE(sys::RemoveFolder(zFolder.Path()));
}

TEST(File, TheNameOfAKilledProcessIsFreeForEveryDisposition) {
  const TestFolder zFolder;
  for (const KivSysDisposition iDisposition : {KivSysDisposition::CreateNew, KivSysDisposition::CreateAlways,
                                               KivSysDisposition::OpenExisting, KivSysDisposition::OpenAlways}) {
    ReadyChild zChild("MarkerHolder", {zFolder / u"KivProc1"});
    ASSERT_TRUE(zChild.IsReady());
    ASSERT_TRUE(zChild.Kill());
    const bool bMakes = iDisposition != KivSysDisposition::OpenExisting;
    EXPECT_TRUE(Eventually([&] {
      return OpenFile(zFolder / u"KivProc1", KivSysAccess::ReadWrite, KivSysShare::None, iDisposition).IsOpen() ==
             bMakes;
    }));
    EXPECT_EQ(sys::PathExists(zFolder / u"KivProc1"), bMakes);
    EXPECT_EQ(sys::RemoveFileAt(zFolder / u"KivProc1"), bMakes);
  }
}

TEST(File, ReadersMayOpenAShareFileWhileItsOwnerLives) {
  const TestFolder zFolder;
  {
    KivSysFile zOwner =
        OpenFile(zFolder / u"input", KivSysAccess::ReadWrite, KivSysShare::All, KivSysDisposition::CreateAlways,
                 KivSysFileFlags::Temporary | KivSysFileFlags::RandomAccess | KivSysFileFlags::DeleteOnClose);
    ASSERT_TRUE(WriteText(zOwner, 0, "message"));
    for (int i = 0; i < 3; ++i) {
      KivSysFile zReader = OpenFile(zFolder / u"input", KivSysAccess::Read, KivSysShare::All,
                                    KivSysDisposition::OpenExisting, KivSysFileFlags::Temporary);
      ASSERT_TRUE(zReader.IsOpen());
      EXPECT_EQ(ReadText(zReader, 0, 100), "message");
    }
    EXPECT_TRUE(sys::PathExists(zFolder / u"input"));
  }
  EXPECT_FALSE(
      OpenFile(zFolder / u"input", KivSysAccess::Read, KivSysShare::All, KivSysDisposition::OpenExisting).IsOpen());
}

TEST(File, RemovalNeedsTheSharingOfDeletion) {
  const TestFolder zFolder;
  {
    const KivSysFile zHeld =
        OpenFile(zFolder / u"a", KivSysAccess::Read, KivSysShare::ReadWrite, KivSysDisposition::OpenAlways);
    ASSERT_TRUE(zHeld.IsOpen());
    EXPECT_FALSE(sys::RemoveFileAt(zFolder / u"a"));
    EXPECT_NE(sys::RenamePath(zFolder / u"a", zFolder / u"b"), 0);
    EXPECT_TRUE(sys::PathExists(zFolder / u"a"));
  }
  EXPECT_TRUE(sys::RemoveFileAt(zFolder / u"a"));
}

TEST(File, LastErrorIsThatOfTheFailureJustSeen) {
  const TestFolder zFolder;
  sys::SetLastErrorNumber(0);
  EXPECT_FALSE(
      OpenFile(zFolder / u"a", KivSysAccess::Read, KivSysShare::All, KivSysDisposition::OpenExisting).IsOpen());
  const int32_t iMissing = sys::LastError();
  EXPECT_NE(iMissing, 0);
  EXPECT_TRUE(
      OpenFile(zFolder / u"a", KivSysAccess::ReadWrite, KivSysShare::All, KivSysDisposition::CreateNew).IsOpen());
  if (sys::kSeparator == u'/') {
    EXPECT_EQ(sys::LastError(), iMissing) << "a success leaves it alone";
  }
  EXPECT_FALSE(
      OpenFile(zFolder / u"a", KivSysAccess::ReadWrite, KivSysShare::All, KivSysDisposition::CreateNew).IsOpen());
  EXPECT_NE(sys::LastError(), iMissing);
  EXPECT_FALSE(
      OpenFile(zFolder / u"b", KivSysAccess::Read, KivSysShare::All, KivSysDisposition::OpenExisting).IsOpen());
  EXPECT_EQ(sys::LastError(), iMissing);
}

TEST(File, ItsIdentityIsThatOfEachPathThatLeadsToItAndOfNoOther) {
  const TestFolder zFolder;
  zFolder.WriteBytes(u"a", "the same");
  zFolder.WriteBytes(u"b", "the same");
  const auto zA = sys::FindFileIdentity(zFolder / u"a");
  ASSERT_TRUE(zA.has_value());
  EXPECT_EQ(zA, sys::FindFileIdentity(zFolder / u"." + KivWString(1, sys::kSeparator) + u"a"));
  EXPECT_NE(zA, sys::FindFileIdentity(zFolder / u"b"));
  EXPECT_NE(zA, sys::FindFileIdentity(zFolder.Path()));
  const KivSysFile zOpen =
      OpenFile(zFolder / u"a", KivSysAccess::ReadWrite, KivSysShare::None, KivSysDisposition::OpenExisting);
  EXPECT_EQ(zA, sys::FindFileIdentity(zFolder / u"a")) << "also of one that its owner shares with nobody";
  EXPECT_FALSE(sys::FindFileIdentity(zFolder / u"missing").has_value());
  EXPECT_FALSE(sys::FindFileIdentity(u"").has_value());
  std::filesystem::create_hard_link(std::filesystem::path(zFolder / u"b"), std::filesystem::path(zFolder / u"c"));
  EXPECT_EQ(sys::FindFileIdentity(zFolder / u"b"), sys::FindFileIdentity(zFolder / u"c"));
}
