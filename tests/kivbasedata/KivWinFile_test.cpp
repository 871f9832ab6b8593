#include "KivWinFile.h"

#include <functional>
#include <regex>
#include <thread>

#include "KivFileFactory.h"
#include "KivSysClock.h"
#include "KivSysDiag.h"
#include "KivSysFault.h"
#include "KivTestFile.h"
#include "KivTestScale.h"

namespace kiv {

struct KivWinFileTestAccess {
  static KivWinFileBackGroundReadInfo& Info(KivWinFile& zFile) { return zFile.m_zBackGroundReadInfo; }
};

}  // namespace kiv

namespace {

using namespace kiv;
using namespace kivtest;

KivSysFaultPlan Plan(KivSysCall iCall, uint64_t iNth, bool bFromThenOn = false,
                     KivSysFaultKind iKind = KivSysFaultKind::Fail) {
  KivSysFaultPlan zPlan;
  zPlan.m_iCall = iCall;
  zPlan.m_iNth = iNth;
  zPlan.m_bFromThenOn = bFromThenOn;
  zPlan.m_iKind = iKind;
  return zPlan;
}

class WinFile : public FileTest {
 protected:
  WinFile() : m_vcBase(Pattern(3 * kBlock + 100)), m_csBase(MakeFile(u"base", m_vcBase)) {}

  KivWinFile& Device(KivSharedPtr<ISnapShotFile>& pzFile) { return *dynamic_cast<KivWinFile*>(pzFile.Get()); }
  KivSharedPtr<ISnapShotFile> OpenPlain() { return KivCreateReadOnlyFile(OpenToRead(m_csBase), false); }
  KivSharedPtr<ISnapShotFile> OpenBackGround() {
    return KivSharedPtr<ISnapShotFile>(new KivWinFile(OpenToRead(m_csBase), true, false, OpenToRead(m_csBase)));
  }
  // Nobody holds the base file any more.
  bool BaseIsClosed() {
    return OpenHandle(m_csBase, KivSysAccess::ReadWrite, KivSysDisposition::OpenExisting, KivSysShare::None).IsOpen();
  }
  static void WaitForBlock(KivWinFile& zFile, uint64_t iBlock) {
    while (!zFile.IsBackGroundReadDone(iBlock)) sys::SleepMs(0);
  }
  // The reader has tried all that was urgent.
  static void WaitForEmptyQueue(KivWinFile& zFile) {
    KivWinFileBackGroundReadInfo& zInfo = KivWinFileTestAccess::Info(zFile);
    for (;;) {
      {
        const KivWinFileBackGroundReadInfoEditor zLock(false, zInfo.m_zLock);
        if (zInfo.m_dqUrgent.empty()) return;
      }
      sys::SleepMs(0);
    }
  }

  Bytes m_vcBase;
  KivWString m_csBase;
};

// --- Construction ---------------------------------------------------------------------------------------------------

TEST_F(WinFile, AFileNeedsAHandle) {
  EXPECT_REPORT(KivCreateFile(KivSysFile()), "m_hFile != INVALID_HANDLE_VALUE");
  EXPECT_RETURNING_REPORT(EXPECT_TRUE(KivCreateFile(KivSysFile())));
}

TEST_F(WinFile, AWritableFileTakesNoSecondHandle) {
  EXPECT_REPORT(KivWinFile(OpenToRead(m_csBase), false, false, OpenToRead(m_csBase)),
                "bReadOnly || hFileForBackGroundRead == INVALID_HANDLE_VALUE");
  EXPECT_TRUE(BaseIsClosed());
}

TEST_F(WinFile, TheFactoriesMakeTheirClasses) {
  auto pzReadOnly = KivCreateReadOnlyFile(OpenToRead(m_csBase), true);
  EXPECT_TRUE(Device(pzReadOnly).m_bReadOnly);
  EXPECT_TRUE(pzReadOnly->IsCacheEnabled());
  auto pzWritable = KivCreateFile(OpenNew(m_zFolder / u"new"));
  EXPECT_FALSE(Device(pzWritable).m_bReadOnly);
  EXPECT_FALSE(pzWritable->IsCacheEnabled());
  EXPECT_FALSE(pzWritable->CanUseDirectBuffer());
}

TEST_F(WinFile, AnObjectWithoutAHandleThatIsNoSnapshotFailsTheCheck) {
  KivWinFile zFile;
  EXPECT_REPORT(zFile.DoGetLength(), "IsSnapShotFile()");
  EXPECT_REPORT(zFile.DoFlush(), "IsSnapShotFile()");
  EXPECT_RETURNING_REPORT(EXPECT_EQ(zFile.DoGetLength(), 0u));
}

TEST_F(WinFile, TheDeviceOfASnapshotIsEmpty) {
  auto pzFile = KivCreateReadOnlyFile(OpenToRead(m_csBase), true);
  auto pzSnapShot = m_zSpace.Take(*pzFile);
  EXPECT_NO_REPORT(EXPECT_EQ(Device(pzSnapShot).DoGetLength(), 0u));
  EXPECT_NO_REPORT(Device(pzSnapShot).DoFlush());
  EXPECT_EQ(ReadBytes(*pzSnapShot, 0, m_vcBase.size()), m_vcBase);
}

// --- Reading --------------------------------------------------------------------------------------------------------

TEST_F(WinFile, AReadThatFailsInBulkAndWorksInPiecesReturnsTheFullCountAndLogsNothing) {
  auto pzFile = OpenPlain();
  const KivSysFaultScope zFault(Plan(KivSysCall::FileRead, 1));
  EXPECT_NO_RETURNING_REPORT(EXPECT_EQ(ReadBytes(*pzFile, 10, 3 * kBlock), Slice(m_vcBase, 10, 3 * kBlock)));
  EXPECT_EQ(zFault.GetCount(KivSysCall::FileRead), 4u);
}

TEST_F(WinFile, TheFallbackStopsAtAShortPieceAndReturnsTheSum) {
  auto pzFile = OpenPlain();
  const KivSysFaultScope zFault(Plan(KivSysCall::FileRead, 1));
  EXPECT_NO_RETURNING_REPORT(EXPECT_EQ(ReadBytes(*pzFile, 5, 9 * kBlock), Slice(m_vcBase, 5, m_vcBase.size() - 5)));
}

TEST_F(WinFile, AFallbackOfNothingReturns0) {
  auto pzFile = OpenPlain();
  const KivSysFaultScope zFault(Plan(KivSysCall::FileRead, 1));
  uint8_t c = 0;
  EXPECT_NO_RETURNING_REPORT(EXPECT_EQ(pzFile->Read(5, &c, 0), 0u));
}

TEST_F(WinFile, APieceThatFailsIsReportedWithTheWholeDiagnostic) {
  auto pzFile = OpenPlain();
  const KivSysFaultScope zFault(Plan(KivSysCall::FileRead, 1, true));
  Bytes vcRead(2 * kBlock, 7);
  const KivWString csReport = ReportOf([&] { pzFile->Read(5, vcRead.data(), vcRead.size()); });
  const std::string strReport = sys::WideToUtf8(csReport);
  std::smatch zMatch;
  const std::regex zForm(
      "iOffset=5, nCount=131072, iPos=0, iToRead=65536, liNumberOfBytesRead=0, iSmallCount=65536, iError=(\\d+), "
      "iFileLength=196708, iError2=(\\d+), iError3=(\\d+), ReadIntervalTimeout=0, ReadTotalTimeoutMultiplier=0, "
      "ReadTotalTimeoutConstant=0 : FileNeme==(.*)");
  ASSERT_TRUE(std::regex_match(strReport, zMatch, zForm)) << strReport;
  EXPECT_EQ(zMatch[1], zMatch[3]);
  EXPECT_NE(zMatch[1], "0");
  EXPECT_NE(zMatch[2], "0");
  // A device path on Windows; Wine has none.
  EXPECT_TRUE(IsWindows() || zMatch[4] == sys::WideToUtf8(m_csBase)) << strReport;
}

TEST_F(WinFile, AReadGoesOnBehindAFailedPieceWhereReportsReturn) {
  auto pzFile = OpenPlain();
  const KivSysFaultScope zFault(Plan(KivSysCall::FileRead, 1, true));
  Bytes vcRead(2 * kBlock, 7);
  EXPECT_RETURNING_REPORT(EXPECT_EQ(pzFile->Read(5, vcRead.data(), vcRead.size()), vcRead.size()));
  EXPECT_EQ(vcRead, Bytes(2 * kBlock)) << "a piece that failed reads as zeros";
  EXPECT_EQ(zFault.GetCount(KivSysCall::FileRead), 3u);
}

TEST_F(WinFile, AShortReadIsNoFailure) {
  auto pzFile = OpenPlain();
  EXPECT_NO_REPORT(EXPECT_EQ(ReadBytes(*pzFile, m_vcBase.size() - 3, 10), Slice(m_vcBase, m_vcBase.size() - 3, 3)));
  EXPECT_NO_REPORT(EXPECT_TRUE(ReadBytes(*pzFile, m_vcBase.size() + 3, 10).empty()));
}

TEST_F(WinFile, TransfersAtTheEndsOfTheOffsetsAreReported) {
  auto pzFile = KivCreateFile(OpenNew(m_zFolder / u"new"));
  uint8_t acBuffer[16] = {};
  for (const uint64_t iOffset : {uint64_t{UINT64_MAX}, UINT64_MAX - 15, uint64_t{1} << 63, (uint64_t{1} << 63) - 8}) {
    SCOPED_TRACE(iOffset);
    EXPECT_NE(ReportOf([&] { pzFile->Write(iOffset, acBuffer, 16); }), u"");
    EXPECT_NE(ReportOf([&] { pzFile->WriteZero(iOffset, 16); }), u"");
    EXPECT_RETURNING_REPORT(pzFile->Write(iOffset, acBuffer, 16));
  }
  EXPECT_NE(ReportOf([&] { pzFile->Read(UINT64_MAX - 15, acBuffer, 16); }), u"");
  EXPECT_RETURNING_REPORT(pzFile->Read(UINT64_MAX - 15, acBuffer, 16));
  EXPECT_EQ(pzFile->GetLength(), 0u);
}

TEST_F(WinFile, AReadThatWouldWrapRoundTheOffsetsIsReportedAndGivesNothing) {
  // In pieces its later ones would come from the start of the file.
  auto pzFile = OpenPlain();
  Bytes vcRead(4 * kBlock, 7);
  for (const uint64_t iOffset : {UINT64_MAX - kBlock + 1, (uint64_t{1} << 63) - kBlock, uint64_t{UINT64_MAX}}) {
    SCOPED_TRACE(iOffset);
    EXPECT_REPORT(pzFile->Read(iOffset, vcRead.data(), vcRead.size()), "0");
    EXPECT_RETURNING_REPORT(EXPECT_EQ(pzFile->Read(iOffset, vcRead.data(), vcRead.size()), 0u));
  }
  EXPECT_EQ(vcRead, Bytes(4 * kBlock, 7));
}

TEST_F(WinFile, AZeroWriteThatTheDiskCannotTakeIsRefusedBeforeItBegins) {
  auto pzFile = KivCreateFile(OpenNew(m_zFolder / u"new"));
  constexpr uint64_t nCount = 0x1000000 + 5;
  {
    const KivSysFaultScope zFull(Plan(KivSysCall::FreeSpace, 1, true));
    EXPECT_REPORT(pzFile->WriteZero(0, nCount), "0");
    EXPECT_RETURNING_REPORT(pzFile->WriteZero(0, nCount));
    EXPECT_TRUE(Device(pzFile).TakeWriteFailure());
    EXPECT_EQ(zFull.GetCount(KivSysCall::FileWrite), 0u);
  }
  EXPECT_EQ(pzFile->GetLength(), 0u);
  pzFile->WriteZero(0, nCount);
  // What the file holds already needs no room.
  const KivSysFaultScope zFull(Plan(KivSysCall::FreeSpace, 1, true));
  EXPECT_NO_REPORT(pzFile->WriteZero(0, nCount));
  EXPECT_REPORT(pzFile->WriteZero(5, UINT64_MAX), "0");
}

TEST_F(WinFile, ALargeTransferIsSplitAndComesWhole) {
  constexpr uint64_t nCount = 0x10000000 + 100;
  auto pzFile = KivCreateFile(OpenNew(m_zFolder / u"large"));
  Bytes vcData(nCount);
  vcData[0xFFFFFFF] = 1;
  vcData[0x10000000] = 2;
  vcData[nCount - 1] = 3;
  const KivSysFaultScope zCount(KivSysFaultPlan{});
  WriteBytes(*pzFile, 0, vcData);
  EXPECT_EQ(zCount.GetCount(KivSysCall::FileWrite), 2u);
  Bytes vcRead(nCount);
  EXPECT_EQ(pzFile->Read(0, vcRead.data(), nCount), nCount);
  EXPECT_TRUE(vcRead == vcData);
}

// --- Writing --------------------------------------------------------------------------------------------------------

TEST_F(WinFile, AFailedWriteIsReported) {
  auto pzFile = KivCreateFile(OpenNew(m_zFolder / u"new"));
  const KivSysFaultScope zFault(Plan(KivSysCall::FileWrite, 1, true, KivSysFaultKind::DiskFull));
  EXPECT_REPORT(pzFile->Write(0, "abc", 3), "iRet != 0");
  EXPECT_REPORT(pzFile->WriteZero(0, 3), "iRet != 0");
  EXPECT_RETURNING_REPORT(pzFile->Write(0, "abc", 3));
  EXPECT_TRUE(Device(pzFile).TakeWriteFailure());
  EXPECT_FALSE(Device(pzFile).TakeWriteFailure());
}

TEST_F(WinFile, AShortWriteIsReported) {
  auto pzFile = KivCreateFile(OpenNew(m_zFolder / u"new"));
  const KivSysFaultScope zFault(Plan(KivSysCall::FileWrite, 1, true, KivSysFaultKind::ShortCount));
  EXPECT_REPORT(pzFile->Write(0, "abcd", 4), "liNumberOfBytesWritten == (size_t)nCount");
  EXPECT_RETURNING_REPORT(pzFile->WriteZero(0, 4));
}

TEST_F(WinFile, AWriteOfTheDeviceOfAReadOnlyFileIsReportedAndStillAttempted) {
  KivWinFile zFile(OpenHandle(m_csBase, KivSysAccess::ReadWrite, KivSysDisposition::OpenExisting), true, false,
                   KivSysFile());
  EXPECT_REPORT(zFile.DoWrite(0, "abc", 3), "0");
  EXPECT_REPORT(zFile.DoWriteZero(0, 3), "0");
  EXPECT_RETURNING_REPORT(zFile.DoWrite(0, "abc", 3));
  EXPECT_RETURNING_REPORT(zFile.DoWriteZero(1, 1));
  EXPECT_EQ(ReadBytes(zFile, 0, 3), (Bytes{'a', 0, 'c'}));
}

TEST_F(WinFile, WritesSetModifiedAndZeroWritesOfNothingDoNothing) {
  auto pzFile = KivCreateFile(OpenNew(m_zFolder / u"new"));
  pzFile->Read(0, nullptr, 0);
  pzFile->WriteZero(0, 0);
  EXPECT_FALSE(pzFile->IsModified());
  pzFile->WriteZero(0, 700000);
  EXPECT_TRUE(pzFile->IsModified());
  EXPECT_EQ(pzFile->GetLength(), 700000u);
  EXPECT_EQ(ReadBytes(*pzFile, 0, 700000), Bytes(700000));
  Device(pzFile).DoWriteZero(800000, 0);
  EXPECT_EQ(pzFile->GetLength(), 700000u);
}

TEST_F(WinFile, SetLengthReportsAFailureAndReturnsTrue) {
  auto pzFile = KivCreateFile(OpenNew(m_zFolder / u"new"));
  EXPECT_TRUE(pzFile->SetLength(1000));
  EXPECT_EQ(pzFile->GetLength(), 1000u);
  const KivSysFaultScope zFault(Plan(KivSysCall::FileSetLength, 1, true));
  EXPECT_REPORT(pzFile->SetLength(5), "0");
  EXPECT_RETURNING_REPORT(EXPECT_TRUE(pzFile->SetLength(5)));
}

TEST_F(WinFile, FlushGoesToTheDevice) {
  auto pzFile = KivCreateFile(OpenNew(m_zFolder / u"new"));
  pzFile->Write(0, "abc", 3);
  const KivSysFaultScope zCount(KivSysFaultPlan{});
  pzFile->Flush();
  EXPECT_EQ(zCount.GetCount(KivSysCall::FileFlush), 1u);
}

TEST_F(WinFile, AFlushThatFailsCountsAsAWriteThatFailedWithoutAReport) {
  auto pzFile = KivCreateFile(OpenNew(m_zFolder / u"new"));
  auto& zFile = dynamic_cast<KivWinFile&>(*pzFile.Get());
  pzFile->Write(0, "abc", 3);
  pzFile->Flush();
  EXPECT_FALSE(zFile.TakeWriteFailure());
  {
    const KivSysFaultScope zNoFlush(Plan(KivSysCall::FileFlush, 1));
    pzFile->Flush();
    EXPECT_TRUE(zNoFlush.HasFired());
  }
  EXPECT_TRUE(zFile.TakeWriteFailure());
  EXPECT_FALSE(zFile.TakeWriteFailure()) << "told once";
}

// --- Background reads -----------------------------------------------------------------------------------------------

// What a reader finds when it starts: requests are queued while no thread can be started. Its reads fail after the
// first nReads, so that what is in memory then tells which came first.
class WinFileReader : public WinFile {
 protected:
  WinFileReader() {
    m_vcLarge = Pattern(13 * kBlock + 100, 6);
    m_csBase = MakeFile(u"large", m_vcLarge);
  }

  // The blocks that the first nReads reads bring in.
  std::vector<uint64_t> BlocksOf(uint64_t nReads, const std::function<void(KivWinFile&)>& pfnRequests) {
    auto pzFile = OpenBackGround();
    KivWinFile& zFile = Device(pzFile);
    {
      const NoThrowScope zNoThrow;
      const KivSysFaultScope zNoReader(Plan(KivSysCall::ThreadStart, 1, true));
      pfnRequests(zFile);
    }
    const KivSysFaultScope zFault(Plan(KivSysCall::FileRead, nReads + 1, true));
    zFile.RequestBackGroundRead(0, 1);  // urgent already, or the newest idle one: starts the reader
    // The reads before the failing one have been stored when that one is made.
    while (zFault.GetCount(KivSysCall::FileRead) <= nReads) sys::SleepMs(0);
    std::vector<uint64_t> viBlocks;
    for (uint64_t i = 0; i < 14; ++i)
      if (zFile.IsBackGroundReadDone(i)) viBlocks.push_back(i);
    return viBlocks;
  }

  Bytes m_vcLarge;
};

using Blocks = std::vector<uint64_t>;

TEST_F(WinFileReader, TheNewestOfPriority3ComesFirstThenTheOldestOfPriority2ThenTheIdleOnes) {
  const auto Requests = [](KivWinFile& zFile) {
    zFile.RequestBackGroundRead(12, 1);
    zFile.RequestBackGroundRead(2, 2);
    zFile.RequestBackGroundRead(4, 2);
    zFile.RequestBackGroundRead(6, 3);
    zFile.RequestBackGroundRead(0, 3);
  };
  EXPECT_EQ(BlocksOf(0, Requests), Blocks{});
  EXPECT_EQ(BlocksOf(1, Requests), (Blocks{0}));
  EXPECT_EQ(BlocksOf(2, Requests), (Blocks{0, 6}));
  EXPECT_EQ(BlocksOf(3, Requests), (Blocks{0, 2, 6}));
  EXPECT_EQ(BlocksOf(4, Requests), (Blocks{0, 2, 4, 6}));
  EXPECT_EQ(BlocksOf(5, Requests), (Blocks{0, 2, 4, 6, 12}));
}

TEST_F(WinFileReader, UpToFiveNeighboursOfTheSameStateComeWithOneRead) {
  const auto Requests = [](KivWinFile& zFile) {
    for (const uint64_t i : {8, 7, 6, 5, 4, 3, 2}) zFile.RequestBackGroundRead(i, 3);
    zFile.RequestBackGroundRead(0, 3);
  };
  EXPECT_EQ(BlocksOf(1, Requests), (Blocks{0}));
  EXPECT_EQ(BlocksOf(2, Requests), (Blocks{0, 2, 3, 4, 5, 6}));
  EXPECT_EQ(BlocksOf(3, Requests), (Blocks{0, 2, 3, 4, 5, 6, 7, 8})) << "what is in memory by then needs no read";
}

TEST_F(WinFileReader, ANeighbourOfAnotherStateEndsTheRead) {
  const auto Requests = [](KivWinFile& zFile) {
    zFile.RequestBackGroundRead(7, 1);
    for (const uint64_t i : {6, 5, 0}) zFile.RequestBackGroundRead(i, 3);
  };
  EXPECT_EQ(BlocksOf(2, Requests), (Blocks{0, 5, 6}));
}

TEST_F(WinFileReader, NeighboursEndAtTheEndOfTheFile) {
  const auto Requests = [](KivWinFile& zFile) {
    for (const uint64_t i : {13, 12, 0}) zFile.RequestBackGroundRead(i, 3);
  };
  EXPECT_EQ(BlocksOf(2, Requests), (Blocks{0, 12, 13}));
}

TEST_F(WinFileReader, WithNothingAskedForTheFileComesFromItsEnd) {
  const auto NoRequests = [](KivWinFile&) {};
  EXPECT_EQ(BlocksOf(1, NoRequests), (Blocks{0}));
  EXPECT_EQ(BlocksOf(2, NoRequests), (Blocks{0, 13}));
  EXPECT_EQ(BlocksOf(4, NoRequests), (Blocks{0, 11, 12, 13}));
  // Five at a time are queued.
  EXPECT_EQ(BlocksOf(8, NoRequests), (Blocks{0, 7, 8, 9, 10, 11, 12, 13}));
  EXPECT_EQ(BlocksOf(13, NoRequests), (Blocks{0, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13}));
}

TEST_F(WinFileReader, ABlockThatIsAskedForAgainAndAgainStandsAtTheBackOnce) {
  auto pzFile = OpenBackGround();
  const NoThrowScope zNoThrow;
  const KivSysFaultScope zNoReader(Plan(KivSysCall::ThreadStart, 1, true));
  for (int i = 0; i < 1000; ++i) pzFile->RequestBackGroundRead(3, 3);
  EXPECT_EQ(KivWinFileTestAccess::Info(Device(pzFile)).m_dqUrgent, (std::deque<uint64_t>{3}));
}

TEST_F(WinFileReader, TwoBlocksThatAreAskedForInTurnStandAtTheBackOnceEach) {
  auto pzFile = OpenBackGround();
  const NoThrowScope zNoThrow;
  const KivSysFaultScope zNoReader(Plan(KivSysCall::ThreadStart, 1, true));
  for (int i = 0; i < 1000; ++i) {
    pzFile->RequestBackGroundRead(3, 3);
    pzFile->RequestBackGroundRead(5, 3);
  }
  EXPECT_EQ(KivWinFileTestAccess::Info(Device(pzFile)).m_dqUrgent, (std::deque<uint64_t>{3, 5}));
}

TEST_F(WinFileReader, NoReportIsMadeWhileTheReadersLockIsHeld) {
  auto pzFile = OpenBackGround();
  KivWinFileBackGroundReadInfo& zInfo = KivWinFileTestAccess::Info(Device(pzFile));
  int nFree = 0;
  KivSetReported(false);
  sys::SetSystemLogHook([&](const KivWString&, const KivWString&) {
    // A thread of its own: the lock may be held by this one.
    std::thread([&] {
      if (!zInfo.m_zLock.try_lock()) return;
      ++nFree;
      zInfo.m_zLock.unlock();
    }).join();
    return true;
  });
  {
    const KivSysFaultScope zFault(Plan(KivSysCall::FileRead, 1, true));
    uint8_t c = 0;
    EXPECT_REPORT(pzFile->Read(0, &c, 1), "iRet != 0");
  }
  KivSetReported(false);
  {
    const KivSysFaultScope zNoReader(Plan(KivSysCall::ThreadStart, 1, true));
    EXPECT_REPORT(pzFile->RequestBackGroundRead(0, 3), "0");
  }
  sys::SetSystemLogHook(nullptr);
  EXPECT_EQ(nFree, 2);
}

TEST_F(WinFileReader, ABlockInMemoryWhoseChunkIsMissingReadsAsAnEmptyOne) {
  auto pzFile = OpenBackGround();
  KivWinFileBackGroundReadInfo& zInfo = KivWinFileTestAccess::Info(Device(pzFile));
  zInfo.m_vcBlockState[1] = 3;
  EXPECT_EQ(ReadBytes(*pzFile, kBlock + 5, 20), Bytes(20));
  EXPECT_TRUE(zInfo.m_mapChunks.empty());
}

TEST_F(WinFile, PriorityZeroIsReported) {
  auto pzFile = OpenBackGround();
  EXPECT_REPORT(pzFile->RequestBackGroundRead(0, 0), "0");
  EXPECT_RETURNING_REPORT(pzFile->RequestBackGroundRead(0, 0));
  EXPECT_TRUE(KivWinFileTestAccess::Info(Device(pzFile)).m_dqIdle.empty());
}

TEST_F(WinFile, WithoutASecondHandleNothingIsQueued) {
  auto pzFile = OpenPlain();
  EXPECT_NO_REPORT(pzFile->RequestBackGroundRead(0, 3));
  EXPECT_TRUE(KivWinFileTestAccess::Info(Device(pzFile)).m_dqUrgent.empty());
  EXPECT_FALSE(pzFile->IsBackGroundReadDone(0));
}

TEST_F(WinFile, AReaderThatCannotBeStartedIsReportedAndHoldsUpNobody) {
  auto pzFile = OpenBackGround();
  const KivSysFaultScope zFault(Plan(KivSysCall::ThreadStart, 1, true));
  EXPECT_REPORT(pzFile->RequestBackGroundRead(0, 3), "0");
  EXPECT_RETURNING_REPORT(pzFile->RequestBackGroundRead(0, 3));
  EXPECT_FALSE(KivWinFileTestAccess::Info(Device(pzFile)).m_bThreadRunning.load());
  pzFile.Release();
  EXPECT_TRUE(BaseIsClosed());
}

TEST_F(WinFile, TheQueuesTakeRequestsByPriority) {
  auto pzFile = OpenBackGround();
  const NoThrowScope zNoThrow;
  const KivSysFaultScope zNoReader(Plan(KivSysCall::ThreadStart, 1, true));
  KivWinFileBackGroundReadInfo& zInfo = KivWinFileTestAccess::Info(Device(pzFile));
  ASSERT_EQ(zInfo.m_iBlockCount, 4u);
  pzFile->RequestBackGroundRead(0, 1);
  pzFile->RequestBackGroundRead(1, 2);
  pzFile->RequestBackGroundRead(2, 2);
  pzFile->RequestBackGroundRead(3, 3);
  pzFile->RequestBackGroundRead(0, 3);
  pzFile->RequestBackGroundRead(2, 2);
  pzFile->RequestBackGroundRead(1, 1);
  pzFile->RequestBackGroundRead(4, 3);
  EXPECT_EQ(zInfo.m_dqUrgent, (std::deque<uint64_t>{2, 1, 3, 0}));
  EXPECT_EQ(zInfo.m_dqIdle, (std::deque<uint64_t>{0}));
  EXPECT_EQ(zInfo.m_vcBlockState, (std::vector<uint8_t>{1, 1, 1, 1}));
}

TEST_F(WinFile, AnIdleQueueOf101EntriesDropsItsOldest) {
  const Bytes vcLarge(101 * kBlock);
  m_csBase = MakeFile(u"large", vcLarge);
  auto pzFile = OpenBackGround();
  const NoThrowScope zNoThrow;
  const KivSysFaultScope zNoReader(Plan(KivSysCall::ThreadStart, 1, true));
  for (uint64_t i = 0; i < 101; ++i) pzFile->RequestBackGroundRead(i, 1);
  KivWinFileBackGroundReadInfo& zInfo = KivWinFileTestAccess::Info(Device(pzFile));
  EXPECT_EQ(zInfo.m_dqIdle.size(), 100u);
  EXPECT_EQ(zInfo.m_dqIdle.front(), 1u);
  EXPECT_EQ(zInfo.m_vcBlockState[0], 2u) << "a dropped entry stays marked, and the sweep finds it";
}

TEST_F(WinFile, TheReaderBringsInWhatIsAskedForAndThenTheRest) {
  auto pzFile = OpenBackGround();
  pzFile->RequestBackGroundRead(1, 3);
  for (uint64_t i = 0; i < 4; ++i) WaitForBlock(Device(pzFile), i);
  const KivSysFaultScope zCount(KivSysFaultPlan{});
  EXPECT_EQ(ReadBytes(*pzFile, 0, m_vcBase.size()), m_vcBase);
  EXPECT_EQ(ReadBytes(*pzFile, kBlock - 5, 10), Slice(m_vcBase, kBlock - 5, 10));
  EXPECT_EQ(zCount.GetCount(KivSysCall::FileRead), 0u);
  EXPECT_FALSE(pzFile->IsBackGroundReadDone(4));
}

TEST_F(WinFile, AReadEndsAtTheEndOfTheFileWhereverItsBlocksAre) {
  auto pzFile = OpenBackGround();
  const uint64_t nLength = m_vcBase.size();
  const auto Check = [&] {
    EXPECT_EQ(ReadBytes(*pzFile, nLength - 10, 20), Slice(m_vcBase, nLength - 10, 10));
    EXPECT_EQ(ReadBytes(*pzFile, 2 * kBlock + 1, 5 * kBlock),
              Slice(m_vcBase, 2 * kBlock + 1, nLength - 2 * kBlock - 1));
    EXPECT_TRUE(ReadBytes(*pzFile, nLength, 20).empty());
    EXPECT_TRUE(ReadBytes(*pzFile, 4 * kBlock, 20).empty());
    EXPECT_TRUE(ReadBytes(*pzFile, UINT64_MAX, 20).empty());
    EXPECT_TRUE(ReadBytes(*pzFile, 5, 0).empty());
  };
  Check();
  pzFile->RequestBackGroundRead(3, 3);
  WaitForBlock(Device(pzFile), 3);
  Check();
}

TEST_F(WinFile, AReadOverManyBlocksWritesNothingBehindTheCallersCount) {
  auto pzFile = OpenBackGround();
  Bytes vcRead(3 * kBlock, 0xEE);
  EXPECT_EQ(pzFile->Read(7, vcRead.data(), 2 * kBlock + 50), 2 * kBlock + 50);
  EXPECT_EQ(Slice(vcRead, 0, 2 * kBlock + 50), Slice(m_vcBase, 7, 2 * kBlock + 50));
  EXPECT_EQ(vcRead[2 * kBlock + 50], 0xEE);
}

TEST_F(WinFile, ADirectReadOfABackGroundFileThatFailsIsReported) {
  auto pzFile = OpenBackGround();
  const KivSysFaultScope zFault(Plan(KivSysCall::FileRead, 1, true));
  uint8_t c = 0;
  EXPECT_REPORT(pzFile->Read(0, &c, 1), "iRet != 0");
  EXPECT_RETURNING_REPORT(EXPECT_EQ(pzFile->Read(0, &c, 1), 0u));
}

TEST_F(WinFile, DestroyingAFileWaitsForItsReaderWhichClosesTheSecondHandle) {
  for (int i = 0; i < 20; ++i) {
    auto pzFile = OpenBackGround();
    pzFile->RequestBackGroundRead(static_cast<uint64_t>(i) % 4, 1 + static_cast<uint32_t>(i) % 3);
    pzFile.Release();
    EXPECT_TRUE(BaseIsClosed());
  }
}

TEST_F(WinFile, AFileWhoseLengthIsUnknownAtTheStartGoesWithoutAReader) {
  const NoThrowScope zNoThrow;
  KivSharedPtr<ISnapShotFile> pzFile;
  {
    const KivSysFaultScope zFault(Plan(KivSysCall::FileLength, 1, true));
    pzFile = OpenBackGround();
  }
  pzFile->RequestBackGroundRead(0, 3);
  EXPECT_FALSE(pzFile->IsBackGroundReadDone(0));
  EXPECT_EQ(ReadBytes(*pzFile, 5, 9), Slice(m_vcBase, 5, 9)) << "its reads are not taken for those of an empty file";
}

TEST_F(WinFile, AReaderThatHasClosedItsHandleIsNotStartedAgain) {
  auto pzFile = OpenBackGround();
  KivWinFileBackGroundReadInfo& zInfo = KivWinFileTestAccess::Info(Device(pzFile));
  zInfo.m_hBackGroundFile.Close();  // as a reader without memory does at its end
  for (const uint32_t iPriority : {1u, 2u, 3u}) Device(pzFile).RequestBackGroundRead(1, iPriority);
  EXPECT_FALSE(zInfo.m_bThreadRunning);
  EXPECT_TRUE(zInfo.m_dqUrgent.empty());
  EXPECT_TRUE(zInfo.m_dqIdle.empty());
  EXPECT_FALSE(Device(pzFile).IsBackGroundReadDone(1));
  EXPECT_EQ(ReadBytes(*pzFile, kBlock - 5, 100), Slice(m_vcBase, kBlock - 5, 100));
}

TEST_F(WinFile, ASecondHandleWhoseReaderNeverStartedIsClosedToo) {
  OpenBackGround().Release();
  EXPECT_TRUE(BaseIsClosed());
}

TEST_F(WinFile, AFailedBackGroundReadLeavesTheBlockToBeReadDirectly) {
  auto pzFile = OpenBackGround();
  {
    const KivSysFaultScope zFault(Plan(KivSysCall::FileRead, 1, true));
    for (uint64_t i = 0; i < 4; ++i) pzFile->RequestBackGroundRead(i, 3);
    WaitForEmptyQueue(Device(pzFile));
    for (uint64_t i = 0; i < 4; ++i) EXPECT_FALSE(pzFile->IsBackGroundReadDone(i));
  }
  EXPECT_EQ(ReadBytes(*pzFile, 0, m_vcBase.size()), m_vcBase);
  pzFile.Release();
  EXPECT_TRUE(BaseIsClosed());
}

TEST_F(WinFile, AShortBackGroundReadBringsInNoHalfBlocks) {
  for (int i = 0; i < 10; ++i) {
    auto pzFile = OpenBackGround();
    {
      const KivSysFaultScope zFault(Plan(KivSysCall::FileRead, 1, true, KivSysFaultKind::ShortCount));
      for (uint64_t iBlock = 0; iBlock < 4; ++iBlock) pzFile->RequestBackGroundRead(iBlock, 2);
      WaitForEmptyQueue(Device(pzFile));
    }
    EXPECT_EQ(ReadBytes(*pzFile, 0, m_vcBase.size()), m_vcBase);
  }
}

TEST_F(WinFile, RequestsAndReadsRunBesideTheReader) {
  const Bytes vcLarge = Pattern(64 * kBlock + 5, 3);
  m_csBase = MakeFile(u"large", vcLarge);
  for (uint32_t iRound = 0; iRound < 5; ++iRound) {
    auto pzFile = OpenBackGround();
    for (uint64_t i = 0; i < 200; ++i) {
      const uint64_t iBlock = (i * 37 + iRound) % 66;
      pzFile->RequestBackGroundRead(iBlock, 1 + static_cast<uint32_t>(i % 3));
      pzFile->IsBackGroundReadDone(iBlock);
      const uint64_t iOffset = std::min<uint64_t>(iBlock * kBlock + i, vcLarge.size());
      EXPECT_EQ(ReadBytes(*pzFile, iOffset, kBlock + 9),
                Slice(vcLarge, iOffset, std::min<uint64_t>(kBlock + 9, vcLarge.size() - iOffset)));
    }
    if (iRound == 4)
      for (uint64_t i = 0; i < 65; ++i) WaitForBlock(Device(pzFile), i);
  }
  uint32_t nUrgent = 0;
  uint32_t nIdle = 0;
  KivGetReadQueueSizes(nUrgent, nIdle);
  EXPECT_LE(nUrgent, 200u);
  EXPECT_LE(nIdle, 105u);
}

}  // namespace
