#include "KivWinMappedFile.h"

#include <filesystem>

#include "KivFileFactory.h"
#include "KivSysFault.h"
#include "KivTestFile.h"
#include "KivVirtualNetworkFile.h"

namespace {

using namespace kiv;
using namespace kivtest;

KivSysFaultPlan FailFromNowOn(KivSysCall iCall) {
  KivSysFaultPlan zPlan;
  zPlan.m_iCall = iCall;
  zPlan.m_iNth = 1;
  zPlan.m_bFromThenOn = true;
  return zPlan;
}

class Mapped : public FileTest {
 protected:
  Mapped() : m_vcBase(Pattern(10 * kBlock + 100)), m_csBase(MakeFile(u"base", m_vcBase)) {}

  KivWinMappedFile& Device(KivSharedPtr<ISnapShotFile>& pzFile) {
    return *dynamic_cast<KivWinMappedFile*>(pzFile.Get());
  }
  KivSharedPtr<ISnapShotFile> OpenReadOnly() { return KivCreateReadOnlyMappedFile(OpenToRead(m_csBase), KivSysFile()); }
  KivSharedPtr<ISnapShotFile> OpenWritable() { return KivCreateMappedFile(OpenNew(m_zFolder / u"new")); }

  Bytes m_vcBase;
  KivWString m_csBase;
};

TEST_F(Mapped, AWritableEmptyFileGrowsToOneByteThroughTheProbe) {
  auto pzFile = OpenWritable();
  EXPECT_TRUE(pzFile->CanUseDirectBuffer());
  EXPECT_EQ(pzFile->GetLength(), 1u);
  EXPECT_EQ(pzFile->GetDirectBufferSize(), 0u);
}

TEST_F(Mapped, PreparingOneByteOfAWritableFileMapsOneGranule) {
  auto pzFile = OpenWritable();
  EXPECT_TRUE(pzFile->PrepareDirectBuffer(1));
  EXPECT_EQ(pzFile->GetDirectBufferSize(), kBlock);
  EXPECT_EQ(pzFile->GetLength(), kBlock);
}

TEST_F(Mapped, PreparingNothingOfAWritableFileMapsItsPresentSize) {
  auto pzFile = OpenWritable();
  pzFile->Write(0, m_vcBase.data(), 1000);
  EXPECT_TRUE(pzFile->PrepareDirectBuffer(0));
  EXPECT_EQ(pzFile->GetDirectBufferSize(), 1000u);
  EXPECT_EQ(ReadBytes(*pzFile, 0, 1000), Slice(m_vcBase, 0, 1000));
}

TEST_F(Mapped, PreparingAReadOnlyFileMapsAllOfItWhateverIsAsked) {
  auto pzFile = OpenReadOnly();
  EXPECT_TRUE(pzFile->PrepareDirectBuffer(5));
  EXPECT_EQ(pzFile->GetDirectBufferSize(), m_vcBase.size());
}

TEST_F(Mapped, ADirectBufferWhileOneIsOutIsNullAndAfterTheReleaseTheSameViewServes) {
  auto pzFile = OpenReadOnly();
  ASSERT_TRUE(pzFile->PrepareDirectBuffer(0));
  const uint8_t* pBuffer = pzFile->GetDirectBuffer(true, 100, 50);
  ASSERT_NE(pBuffer, nullptr);
  EXPECT_EQ(std::memcmp(pBuffer, m_vcBase.data() + 100, 50), 0);
  EXPECT_EQ(pzFile->GetDirectBuffer(true, 100, 50), nullptr);
  pzFile->ReleaseDirectBuffer();
  const KivSysFaultScope zCount(KivSysFaultPlan{});
  EXPECT_EQ(pzFile->GetDirectBuffer(true, 100, 50), pBuffer);
  pzFile->ReleaseDirectBuffer();
  // A view is two granules wider than asked, rounded down.
  EXPECT_NE(pzFile->GetDirectBuffer(true, 2 * kBlock - 10, 10), nullptr);
  EXPECT_EQ(zCount.GetCount(KivSysCall::MappingView), 0u);
  pzFile->ReleaseDirectBuffer();
  EXPECT_NE(pzFile->GetDirectBuffer(true, 2 * kBlock - 10, 11), nullptr);
  EXPECT_EQ(zCount.GetCount(KivSysCall::MappingView), KivSysMapping::MapsWhole() ? 0u : 1u);
}

TEST_F(Mapped, ADirectBufferBehindTheMappingIsNull) {
  auto pzFile = OpenReadOnly();
  EXPECT_EQ(pzFile->GetDirectBuffer(true, 0, 1), nullptr) << "no mapping yet";
  ASSERT_TRUE(pzFile->PrepareDirectBuffer(0));
  const uint64_t nLength = m_vcBase.size();
  EXPECT_EQ(pzFile->GetDirectBuffer(true, nLength - 1, 2), nullptr);
  EXPECT_EQ(pzFile->GetDirectBuffer(true, nLength + 1, 0), nullptr);
  EXPECT_EQ(pzFile->GetDirectBuffer(true, UINT64_MAX, 2), nullptr);
  EXPECT_EQ(pzFile->GetDirectBuffer(true, 1, UINT64_MAX), nullptr);
  EXPECT_NE(pzFile->GetDirectBuffer(true, nLength - 1, 1), nullptr);
}

TEST_F(Mapped, AWritablePointerOnAReadOnlyFileIsNullAndLeavesTheFlag) {
  auto pzFile = OpenReadOnly();
  ASSERT_TRUE(pzFile->PrepareDirectBuffer(0));
  EXPECT_EQ(pzFile->GetDirectBuffer(false, 0, 1), nullptr);
  EXPECT_FALSE(Device(pzFile).m_bNowUsingDirectBuffer);
  EXPECT_NE(pzFile->GetDirectBuffer(true, 0, 1), nullptr);
  EXPECT_EQ(pzFile->GetDirectBuffer(false, 0, 1), nullptr);
  EXPECT_TRUE(Device(pzFile).m_bNowUsingDirectBuffer);
}

TEST_F(Mapped, WithDirectBuffersOffAllTransfersUseTheHandle) {
  KivSetNoDirectBuffer(true);
  EXPECT_TRUE(KivGetNoDirectBuffer());
  auto pzFile = OpenWritable();
  EXPECT_FALSE(pzFile->CanUseDirectBuffer());
  EXPECT_EQ(pzFile->GetLength(), 0u);
  EXPECT_REPORT(pzFile->PrepareDirectBuffer(1), "0");
  EXPECT_RETURNING_REPORT(EXPECT_FALSE(pzFile->PrepareDirectBuffer(1)));
  const KivSysFaultScope zCount(KivSysFaultPlan{});
  pzFile->Write(0, "abc", 3);
  pzFile->WriteZero(3, 3);
  EXPECT_EQ(ReadBytes(*pzFile, 0, 6), (Bytes{'a', 'b', 'c', 0, 0, 0}));
  EXPECT_EQ(zCount.GetCount(KivSysCall::FileWrite), 2u);
  EXPECT_EQ(zCount.GetCount(KivSysCall::FileRead), 1u);
}

TEST_F(Mapped, WithASecondHandleThereAreNoDirectBuffers) {
  auto pzFile = KivCreateReadOnlyMappedFile(OpenToRead(m_csBase), OpenToRead(m_csBase));
  EXPECT_FALSE(pzFile->CanUseDirectBuffer());
}

TEST_F(Mapped, TransfersGoThroughTheMapping) {
  auto pzFile = OpenWritable();
  ASSERT_TRUE(pzFile->PrepareDirectBuffer(5 * kBlock));
  const KivSysFaultScope zCount(KivSysFaultPlan{});
  WriteBytes(*pzFile, 100, Slice(m_vcBase, 0, 3 * kBlock));
  pzFile->WriteZero(200, 10);
  pzFile->WriteZero(5 * kBlock, 0);
  Bytes vcExpected = Slice(m_vcBase, 0, 3 * kBlock);
  std::fill_n(vcExpected.begin() + 100, 10, uint8_t{0});
  EXPECT_EQ(ReadBytes(*pzFile, 100, 3 * kBlock), vcExpected);
  EXPECT_EQ(zCount.GetCount(KivSysCall::FileWrite) + zCount.GetCount(KivSysCall::FileRead), 0u);
  pzFile.Release();
  EXPECT_EQ(m_zFolder.ReadBytes(u"new").substr(100, 3 * kBlock), Text(vcExpected));
}

TEST_F(Mapped, ATransferBehindTheMappingIsReported) {
  auto pzFile = OpenWritable();
  ASSERT_TRUE(pzFile->PrepareDirectBuffer(kBlock));
  uint8_t acBuffer[16] = {};
  for (const uint64_t iOffset : {kBlock - 15, kBlock, uint64_t{1} << 63, UINT64_MAX - 3}) {
    SCOPED_TRACE(iOffset);
    EXPECT_REPORT(pzFile->Read(iOffset, acBuffer, 16), "0");
    EXPECT_REPORT(pzFile->Write(iOffset, acBuffer, 16), "0");
    EXPECT_REPORT(pzFile->WriteZero(iOffset, 16), "0");
    EXPECT_RETURNING_REPORT(EXPECT_EQ(pzFile->Read(iOffset, acBuffer, 16), 0u));
    Device(pzFile).TakeWriteFailure();
    EXPECT_RETURNING_REPORT(pzFile->Write(iOffset, acBuffer, 16));
    EXPECT_TRUE(Device(pzFile).TakeWriteFailure());
    EXPECT_RETURNING_REPORT(pzFile->WriteZero(iOffset, 16));
    EXPECT_TRUE(Device(pzFile).TakeWriteFailure());
    EXPECT_FALSE(Device(pzFile).TakeWriteFailure());
  }
  EXPECT_EQ(pzFile->GetLength(), kBlock);
}

TEST_F(Mapped, ATransferWhileADirectBufferIsOutIsReported) {
  auto pzFile = OpenWritable();
  ASSERT_TRUE(pzFile->PrepareDirectBuffer(kBlock));
  ASSERT_NE(pzFile->GetDirectBuffer(true, 0, 1), nullptr);
  uint8_t c = 0;
  EXPECT_REPORT(pzFile->Read(0, &c, 1), "0");
  EXPECT_RETURNING_REPORT(EXPECT_EQ(pzFile->Read(0, &c, 1), 0u));
}

TEST_F(Mapped, GrowingTheMappingKeepsTheBytes) {
  auto pzFile = OpenWritable();
  for (uint64_t nBlocks = 1; nBlocks <= 64; nBlocks *= 2) {
    ASSERT_TRUE(pzFile->PrepareDirectBuffer(nBlocks * kBlock));
    uint8_t* pBuffer = pzFile->GetDirectBuffer(false, (nBlocks - 1) * kBlock, kBlock);
    ASSERT_NE(pBuffer, nullptr);
    std::memcpy(pBuffer, m_vcBase.data(), kBlock);
    pzFile->ReleaseDirectBuffer();
    EXPECT_TRUE(pzFile->IsModified());
  }
  for (uint64_t nBlocks = 1; nBlocks <= 64; nBlocks *= 2)
    EXPECT_EQ(ReadBytes(*pzFile, (nBlocks - 1) * kBlock, kBlock), Slice(m_vcBase, 0, kBlock));
}

TEST_F(Mapped, ACapacityThatTheDiskCannotTakeIsReportedBeforeTheDiskIsFull) {
  auto pzFile = OpenWritable();
  ASSERT_TRUE(pzFile->PrepareDirectBuffer(kBlock));
  pzFile->Write(5, "abc", 3);
  const KivSysFaultScope zFull(FailFromNowOn(KivSysCall::FreeSpace));
  if (KivSysMapping::MapsWhole()) {
    EXPECT_REPORT(pzFile->PrepareDirectBuffer(0x1000000 + 2 * kBlock), "0");
    EXPECT_EQ(pzFile->GetLength(), kBlock);
  } else {
    // Windows reserves a mapping's space by itself: nobody asks for the room, and the capacity is there.
    EXPECT_NO_REPORT(EXPECT_TRUE(pzFile->PrepareDirectBuffer(0x1000000 + 2 * kBlock)));
    EXPECT_EQ(zFull.GetCount(KivSysCall::FreeSpace), 0u);
  }
  EXPECT_EQ(Text(ReadBytes(*pzFile, 5, 3)), "abc");
}

TEST_F(Mapped, SetLengthIsReported) {
  auto pzFile = OpenWritable();
  EXPECT_REPORT(pzFile->SetLength(10), "0");
  EXPECT_RETURNING_REPORT(EXPECT_FALSE(Device(pzFile).DoSetLength(10)));
}

TEST_F(Mapped, AMappingThatCannotBeMadeIsReportedAndTransfersUseTheHandle) {
  auto pzFile = OpenWritable();
  ASSERT_TRUE(pzFile->PrepareDirectBuffer(kBlock));
  pzFile->Write(5, "abc", 3);
  {
    const KivSysFaultScope zFault(FailFromNowOn(KivSysCall::MappingCreate));
    EXPECT_REPORT(pzFile->PrepareDirectBuffer(2 * kBlock), "0");
    EXPECT_RETURNING_REPORT(EXPECT_FALSE(pzFile->PrepareDirectBuffer(2 * kBlock)));
    EXPECT_EQ(pzFile->GetDirectBufferSize(), 0u);
    EXPECT_EQ(Text(ReadBytes(*pzFile, 5, 3)), "abc");
  }
  EXPECT_TRUE(pzFile->PrepareDirectBuffer(2 * kBlock));
  EXPECT_EQ(Text(ReadBytes(*pzFile, 5, 3)), "abc");
  EXPECT_REPORT(pzFile->PrepareDirectBuffer(UINT64_MAX), "0");
  EXPECT_REPORT(pzFile->PrepareDirectBuffer((uint64_t{1} << 63) + 5), "0");
}

TEST_F(Mapped, AProbeThatFailsLeavesAFileWithoutDirectBuffers) {
  const KivSysFaultScope zFault(FailFromNowOn(KivSysCall::MappingCreate));
  auto pzFile = OpenReadOnly();
  EXPECT_FALSE(pzFile->CanUseDirectBuffer());
  EXPECT_EQ(ReadBytes(*pzFile, 3, 8), Slice(m_vcBase, 3, 8));
}

TEST_F(Mapped, AViewThatCannotBeMadeGivesNullAndATransferReports) {
  auto pzFile = OpenWritable();
  ASSERT_TRUE(pzFile->PrepareDirectBuffer(kBlock));
  const KivSysFaultScope zFault(FailFromNowOn(KivSysCall::MappingView));
  EXPECT_NO_REPORT(EXPECT_EQ(pzFile->GetDirectBuffer(true, 0, 1), nullptr));
  EXPECT_FALSE(Device(pzFile).m_bNowUsingDirectBuffer);
  EXPECT_REPORT(pzFile->Write(0, "a", 1), "0");
}

TEST_F(Mapped, ADirectBufferOf4GiBIsSizedBy32BitsAndReported) {
  constexpr uint64_t nLength = (uint64_t{1} << 32) + 10 * kBlock;
  {
    KivSysFile hFile = OpenNew(m_zFolder / u"sparse");
    hFile.SetSparse();
    ASSERT_TRUE(hFile.SetLength(nLength));
  }
  auto pzFile = KivCreateReadOnlyMappedFile(OpenToRead(m_zFolder / u"sparse"), KivSysFile());
  ASSERT_TRUE(pzFile->PrepareDirectBuffer(0));
  EXPECT_REPORT(pzFile->GetDirectBuffer(true, 0, (uint64_t{1} << 32) + 5), "0");
  EXPECT_RETURNING_REPORT(EXPECT_EQ(pzFile->GetDirectBuffer(true, 0, (uint64_t{1} << 32) + 5), nullptr));
  EXPECT_NE(pzFile->GetDirectBuffer(true, uint64_t{1} << 32, 5), nullptr);
}

TEST_F(Mapped, FlushOfAWritableMappingOnlyGivesUpTheView) {
  auto pzFile = OpenWritable();
  ASSERT_TRUE(pzFile->PrepareDirectBuffer(kBlock));
  pzFile->Write(0, "abc", 3);
  const KivSysFaultScope zCount(KivSysFaultPlan{});
  pzFile->Flush();
  EXPECT_EQ(zCount.GetCount(KivSysCall::FileFlush), 0u);
  EXPECT_EQ(Text(ReadBytes(*pzFile, 0, 3)), "abc");
  EXPECT_EQ(zCount.GetCount(KivSysCall::MappingView), 1u);
}

TEST_F(Mapped, ADirectBufferOfACachedFileShowsTheDevice) {
  auto pzFile = OpenReadOnly();
  ASSERT_TRUE(pzFile->PrepareDirectBuffer(0));
  pzFile->Write(0, "abc", 3);
  EXPECT_EQ(Text(ReadBytes(*pzFile, 0, 3)), "abc");
  EXPECT_EQ(std::memcmp(pzFile->GetDirectBuffer(true, 0, 3), m_vcBase.data(), 3), 0);
}

TEST_F(Mapped, ASnapshotTakenWhileADirectBufferIsOutFailsTheCheckAndLosesNothing) {
  auto pzFile = OpenReadOnly();
  ASSERT_TRUE(pzFile->PrepareDirectBuffer(0));
  pzFile->Write(0, "abc", 3);
  ASSERT_NE(pzFile->GetDirectBuffer(true, 0, 1), nullptr);
  EXPECT_REPORT(m_zSpace.Take(*pzFile), "!(pSnapShot2->m_bNowUsingDirectBuffer)");
  EXPECT_TRUE(Device(pzFile).m_vpSnapShotData.empty());
  EXPECT_TRUE(Device(pzFile).m_vpCacheSnapShot.empty());
  pzFile->ReleaseDirectBuffer();
  EXPECT_EQ(Text(ReadBytes(*pzFile, 0, 3)), "abc");
  m_zSpace.Base(-1);
  auto pzSnapShot = m_zSpace.Take(*pzFile);
  EXPECT_EQ(Text(ReadBytes(*pzSnapShot, 0, 3)), "abc");
}

TEST_F(Mapped, ASnapshotHasNoMappingAndTakesNone) {
  auto pzFile = OpenReadOnly();
  ASSERT_TRUE(pzFile->PrepareDirectBuffer(0));
  auto pzSnapShot = m_zSpace.Take(*pzFile);
  EXPECT_EQ(pzSnapShot->GetDirectBufferSize(), m_vcBase.size());
  EXPECT_EQ(pzSnapShot->GetDirectBuffer(true, 0, 1), nullptr);
  EXPECT_REPORT(pzSnapShot->PrepareDirectBuffer(1), "!IsSnapShotFile()");
  EXPECT_RETURNING_REPORT(EXPECT_FALSE(pzSnapShot->PrepareDirectBuffer(1)));
}

TEST_F(Mapped, RestoringHasACodeForEachStepThatFails) {
  auto pzFile = OpenReadOnly();
  auto pzSnapShot = m_zSpace.Take(*pzFile);
  EXPECT_EQ(pzFile->RestoreSnapShot(pzSnapShot), 0);
  EXPECT_RETURNING_REPORT(EXPECT_EQ(pzFile->RestoreSnapShot(nullptr), 10));
  auto pzNever = OpenReadOnly();
  EXPECT_RETURNING_REPORT(EXPECT_EQ(pzNever->RestoreSnapShot(pzSnapShot), 20));
  const KivSysFaultScope zFault(FailFromNowOn(KivSysCall::MappingCreate));
  EXPECT_RETURNING_REPORT(EXPECT_EQ(pzFile->RestoreSnapShot(pzSnapShot), 30));
}

TEST_F(Mapped, ACachedFileWithAMappingReadsItsBaseThroughIt) {
  auto pzFile = OpenReadOnly();
  ASSERT_TRUE(pzFile->PrepareDirectBuffer(0));
  EXPECT_EQ(ReadBytes(*pzFile, 0, m_vcBase.size()), m_vcBase);
}

TEST_F(Mapped, AFileThatIsCutUnderItsMappingIsReportedAndDoesNotEndTheProcess) {
  auto pzFile = OpenReadOnly();
  ASSERT_TRUE(pzFile->PrepareDirectBuffer(0));
  std::error_code zError;
  std::filesystem::resize_file(std::filesystem::path(m_csBase), kBlock, zError);
  Bytes vcRead(100, 7);
  if (zError) {
    // The system refuses to cut a mapped file.
    EXPECT_NO_REPORT(EXPECT_EQ(Device(pzFile).DoRead(5 * kBlock, vcRead.data(), 100), 100u));
    EXPECT_EQ(vcRead, Slice(m_vcBase, 5 * kBlock, 100));
    return;
  }
  ASSERT_NE(pzFile->GetDirectBuffer(true, 5 * kBlock, 100), nullptr);
  pzFile->ReleaseDirectBuffer();
  EXPECT_NE(Device(pzFile).PeekView(5 * kBlock, 100), nullptr);
  EXPECT_REPORT(Device(pzFile).DoRead(5 * kBlock, vcRead.data(), 100), "0");
  EXPECT_EQ(Device(pzFile).PeekView(5 * kBlock, 100), nullptr);
  EXPECT_RETURNING_REPORT(EXPECT_EQ(Device(pzFile).DoRead(5 * kBlock, vcRead.data(), 100), 0u));
  ASSERT_NE(pzFile->GetDirectBuffer(true, 6 * kBlock, 1), nullptr);
  EXPECT_REPORT(pzFile->ReleaseDirectBuffer(), "0");
}

// --- The virtual network file ---------------------------------------------------------------------------------------

class Network : public Mapped {
 protected:
  KivSharedPtr<ISnapShotFile> Open(bool bCache) {
    return KivCreateVirtualNetworkFile(OpenToRead(m_csBase), 1, bCache, KivSysFile());
  }
};

TEST_F(Network, ReadsLikeAMappedFile) {
  auto pzFile = Open(false);
  EXPECT_EQ(ReadBytes(*pzFile, 0, m_vcBase.size()), m_vcBase);
  EXPECT_EQ(pzFile->GetLength(), m_vcBase.size());
  EXPECT_FALSE(pzFile->CanUseDirectBuffer());
}

// Counts its waits.
class CountingNetworkFile : public KivVirtualNetworkFile {
 public:
  using KivVirtualNetworkFile::KivVirtualNetworkFile;
  void Wait() override { ++m_nWaits; }
  int m_nWaits = 0;
};

TEST_F(Network, EachOperationOfTheDeviceWaitsOnceAndNoOtherDoes) {
  CountingNetworkFile zFile(OpenToRead(m_csBase), 1, false, KivSysFile());
  const auto WaitsOf = [&zFile](auto&& pfnOperation) {
    zFile.m_nWaits = 0;
    pfnOperation();
    return zFile.m_nWaits;
  };
  uint8_t c = 0;
  EXPECT_EQ(WaitsOf([&] { zFile.DoRead(0, &c, 1); }), 1);
  EXPECT_EQ(c, m_vcBase[0]);
  EXPECT_EQ(WaitsOf([&] { zFile.DoGetLength(); }), 1);
  // In a host whose reports throw the write side ends with the report.
  EXPECT_EQ(WaitsOf([&] { ReportOf([&] { zFile.DoWrite(0, &c, 1); }); }), 0);
  const NoThrowScope zNoThrow;
  EXPECT_EQ(WaitsOf([&] { zFile.DoWrite(0, &c, 1); }), 1);
  EXPECT_EQ(WaitsOf([&] { zFile.DoWriteZero(0, 1); }), 1);
  EXPECT_EQ(WaitsOf([&] { zFile.DoFlush(); }), 1);
  EXPECT_EQ(WaitsOf([&] { zFile.DoSetLength(1); }), 0);
  EXPECT_EQ(WaitsOf([&] { zFile.PrepareDirectBuffer(1); }), 0);
  EXPECT_EQ(WaitsOf([&] { zFile.GetDirectBufferSize(); }), 0);
  EXPECT_EQ(WaitsOf([&] { zFile.DoGetDirectBuffer(true, 0, 1); }), 0);
  EXPECT_EQ(WaitsOf([&] { zFile.DoReleaseDirectBuffer(); }), 0);
}

TEST_F(Network, ReportsDirectBuffersAndWrites) {
  auto pzFile = Open(false);
  KivWinMappedFile& zDevice = Device(pzFile);
  EXPECT_REPORT(pzFile->PrepareDirectBuffer(1), "0");
  EXPECT_REPORT(pzFile->GetDirectBufferSize(), "0");
  EXPECT_REPORT(pzFile->GetDirectBuffer(true, 0, 1), "0");
  EXPECT_REPORT(pzFile->ReleaseDirectBuffer(), "0");
  EXPECT_REPORT(zDevice.DoSetLength(1), "0");
  EXPECT_REPORT(zDevice.DoWrite(0, "a", 1), "0");
  EXPECT_REPORT(zDevice.DoWriteZero(0, 1), "0");
  EXPECT_REPORT(zDevice.DoFlush(), "0");
  EXPECT_RETURNING_REPORT(EXPECT_FALSE(pzFile->PrepareDirectBuffer(1)));
  EXPECT_RETURNING_REPORT(EXPECT_EQ(pzFile->GetDirectBufferSize(), 0u));
  EXPECT_RETURNING_REPORT(EXPECT_EQ(pzFile->GetDirectBuffer(true, 0, 1), nullptr));
  EXPECT_RETURNING_REPORT(EXPECT_FALSE(zDevice.DoSetLength(1)));
  EXPECT_RETURNING_REPORT(zDevice.DoFlush());
}

TEST_F(Network, ASnapshotKeepsTheDelayAndARestoreNeedsNoMapping) {
  auto pzFile = Open(true);
  auto* pFile = dynamic_cast<KivVirtualNetworkFile*>(pzFile.Get());
  auto pzSnapShot = m_zSpace.Take(*pzFile);
  EXPECT_EQ(dynamic_cast<KivVirtualNetworkFile*>(pzSnapShot.Get())->m_iDelay, 1u);
  pzFile->Write(0, "abc", 3);
  pFile->m_iDelay = 0;
  EXPECT_NO_REPORT(EXPECT_EQ(pzFile->RestoreSnapShot(pzSnapShot), 0));
  EXPECT_EQ(pFile->m_iDelay, 1u);
  EXPECT_EQ(ReadBytes(*pzFile, 0, 10), Slice(m_vcBase, 0, 10));
  EXPECT_RETURNING_REPORT(EXPECT_EQ(pzFile->RestoreSnapShot(nullptr), 10));
  auto pzNever = Open(true);
  EXPECT_RETURNING_REPORT(EXPECT_EQ(pzNever->RestoreSnapShot(pzSnapShot), 20));
}

}  // namespace
