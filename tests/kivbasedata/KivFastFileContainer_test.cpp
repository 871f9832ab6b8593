// Creation, opening, flush and records.
#include "KivFastFileContainer.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "KivDataUtil.h"
#include "KivFormatRegistry.h"
#include "KivPositionTableManager.h"
#include "KivSysFolder.h"
#include "KivTestChild.h"
#include "KivTestContainer.h"
#include "KivTestReport.h"
#include "KivTestReportSource.h"

using namespace kiv;
using namespace kivtest;

namespace {

class Container : public testing::Test {
 protected:
  Container() { KivRegisterOwnFormat(); }
  TestFolder m_zFolder;
};

uint64_t AddText(KivFastFileContainer& zContainer, const std::string& strText) {
  return zContainer.AddRecord(KivContainerData(strText.data(), static_cast<uint32_t>(strText.size())));
}

struct MemoryContainer {
  MemoryContainer()
      : pzMain(MakeUnmanagedMemory()), pzUnused(MakeUnmanagedMemory()), zContainer(pzMain, pzUnused, nullptr) {}
  ReadContainer Read() {
    return ReadContainerBytes(Content(*pzMain), zContainer.GetEndPosition(), Content(*pzUnused),
                              zContainer.GetRootNode());
  }
  KivSharedPtr<ISnapShotFile> pzMain;
  KivSharedPtr<ISnapShotFile> pzUnused;
  KivFastFileContainer zContainer;
};

// The worked example of docs/container_format.md; the executable's write time stands as zeros.
const char kExampleMain[] =
    "0000000000000000"                                     // dummy
    "1414141414141414 b0b0b0b0b0b0b0b0 0a000000 01000000"  // marks, minor version, writer version
    "00000000 08040201 1412111008040201 f304b53f 00000000 a6498eca06bd3075"
    "05000000 0000000000000000 00000000"  // application, write time
    "4001000000000000 7001000000000000"   // end 320, image of 368 bytes
    "0100000000000000 0100000000000000 0800000000000000 0000000000000000 0000000000000000"
    "14000000 00000000 00000000 00000000"
    "0000000000000000 00000000 00000000 00000000 00000000 0000000000000000"
    "00000000000000000000000000000000000000000000000000000000000000000000000000000000"
    "00000000000000000000000000000000000000000000000000000000000000000000000000000000"
    "1b00000000000000 1b00000000000000 000000 0801000000000000"      // 264: free record of 27 bytes
    "1d00000000000000 0500000000000000 68656c6c6f 2301000000000000"  // 291: "hello"
    ;
const char kExampleUnused[] =
    "0000000000000000"
    "01 00 01 0000000000 0000000000000000 ffffffffffffffff 0000000000000000 0800000000000000"
    "1b00000000000000 0801000000000000";

void ClearFileTime(Bytes& vcMain) {
  std::fill_n(vcMain.begin() + 68, 8, uint8_t{0});
}

}  // namespace

// --- Creation ------------------------------------------------------------------------------------

TEST_F(Container, ANewOneEndsAt264WithARootAtPosition8) {
  MemoryContainer z;
  EXPECT_EQ(z.zContainer.GetStatus(), KivContainerStatus::Usable);
  EXPECT_EQ(z.zContainer.GetEndPosition(), 264u);
  EXPECT_EQ(z.zContainer.GetRootNode(), 8u);
  EXPECT_EQ(z.zContainer.GetNodeNum(), 1u);
  EXPECT_EQ(z.zContainer.GetValidNodeNum(), 1u);
  EXPECT_EQ(z.zContainer.GetNodeOrder(), 20u);
  const Bytes vcUnused = Content(*z.pzUnused);
  EXPECT_EQ(vcUnused.size(), 368u);
  Bytes vcRoot(368);
  vcRoot[8] = 1;
  PutU64(vcRoot, 8 + 16, UINT64_MAX);
  PutU64(vcRoot, 8 + 32, 8);
  EXPECT_EQ(vcUnused, vcRoot);
}

TEST_F(Container, TheHeaderWrittenAtCreationHasZeroInTheTreeFields) {
  MemoryContainer z;
  const Bytes vcMain = Content(*z.pzMain);
  ASSERT_EQ(vcMain.size(), 264u);
  EXPECT_EQ(U64At(vcMain, 8 + 72), 264u);
  for (const uint64_t iOffset : {80, 88, 96, 104, 112, 120}) EXPECT_EQ(U64At(vcMain, 8 + iOffset), 0u) << iOffset;
  EXPECT_EQ(U32At(vcMain, 8 + 128), 20u);
  EXPECT_TRUE(std::equal(z.zContainer.GetHeaderInfo().begin(), z.zContainer.GetHeaderInfo().end(), vcMain.begin() + 8));
}

TEST_F(Container, WrittenBytesAreThoseOfTheWorkedExample) {
  MemoryContainer z;
  EXPECT_EQ(AddText(z.zContainer, "abc"), 264u);
  EXPECT_EQ(AddText(z.zContainer, "hello"), 291u);
  z.zContainer.DeleteRecord(264);
  z.zContainer.Flush();
  Bytes vcExpected = BytesOfHex(kExampleMain);
  ASSERT_EQ(vcExpected.size(), 320u);
  Bytes vcImage = BytesOfHex(kExampleUnused);
  vcImage.resize(368);
  EXPECT_EQ(Content(*z.pzUnused), vcImage);
  vcExpected.insert(vcExpected.end(), vcImage.begin(), vcImage.end());
  Bytes vcMain = Content(*z.pzMain);
  ClearFileTime(vcMain);
  EXPECT_EQ(vcMain, vcExpected);
}

TEST_F(Container, TheBytesOfTheWorkedExampleOpen) {
  Bytes vcMain = BytesOfHex(kExampleMain);
  Bytes vcImage = BytesOfHex(kExampleUnused);
  vcImage.resize(368);
  vcMain.insert(vcMain.end(), vcImage.begin(), vcImage.end());
  KivFastFileContainer zContainer(MakeUnmanagedMemory(vcMain), nullptr);
  ASSERT_EQ(zContainer.GetStatus(), KivContainerStatus::Usable);
  EXPECT_EQ(TextOf(zContainer, 264), "(null)");
  EXPECT_EQ(TextOf(zContainer, 291), "hello");
  EXPECT_EQ(Content(*zContainer.GetUnusedRecordFile()), vcImage);
  EXPECT_TRUE(zContainer.FullCheck().IsSound());
  EXPECT_EQ(AddText(zContainer, "xyz"), 264u);
}

TEST_F(Container, TheWriteTimeOfTheExecutableIsInTheHeader) {
  MemoryContainer z;
  EXPECT_NE(KivGetExecutableFileTime(), 0u);
  EXPECT_EQ(U64At(Content(*z.pzMain), 68), KivGetExecutableFileTime());
}

TEST_F(Container, OverCallerManagedFilesBothStartAt1024AndTheSlackTravelsInTheImage) {
  const auto pzMain = MakeMemory();
  const auto pzUnused = MakeMemory();
  KivFastFileContainer zContainer(pzMain, pzUnused, nullptr);
  EXPECT_EQ(pzMain->GetLength(), 1024u);
  EXPECT_EQ(pzUnused->GetLength(), 1024u);
  zContainer.Flush();
  EXPECT_EQ(U64At(Content(*pzMain), 8 + 80), 1024u);
  EXPECT_EQ(pzMain->GetLength(), 264u + 1024u);
}

TEST_F(Container, OverMappedFilesTheImageIsAtLeast1024BytesLong) {
  const auto pzMain = MakeFile(FileKind::Mapped, m_zFolder, u"main.kiv");
  const auto pzUnused = MakeFile(FileKind::Mapped, m_zFolder, u"main.urf");
  KivFastFileContainer zContainer(pzMain, pzUnused, nullptr);
  zContainer.Flush();
  const uint64_t iImage = U64At(Content(*pzMain), 8 + 80);
  EXPECT_GE(iImage, 1024u);
  EXPECT_EQ(iImage, pzUnused->GetLength());
}

TEST_F(Container, OverPlainFilesTheImageHas368Bytes) {
  const auto pzMain = MakeFile(FileKind::Plain, m_zFolder, u"main.kiv");
  const auto pzUnused = MakeFile(FileKind::Plain, m_zFolder, u"main.urf");
  KivFastFileContainer zContainer(pzMain, pzUnused, nullptr);
  zContainer.Flush();
  EXPECT_EQ(U64At(Content(*pzMain), 8 + 80), 368u);
  EXPECT_EQ(pzMain->GetLength(), 264u + 368u);
}

TEST_F(Container, CapacityThatCannotBeSetIsReported) {
  // The main file is managed, so both capacities are set; the other file cannot do it.
  const auto pzUnused = MakeFile(FileKind::Plain, m_zFolder, u"main.urf");
  EXPECT_REPORT(KivFastFileContainer(MakeMemory(), pzUnused, nullptr), "0");
  NoThrowScope zNoThrow;
  KivFastFileContainer zContainer(MakeMemory(), pzUnused, nullptr);
  EXPECT_EQ(zContainer.GetStatus(), KivContainerStatus::Usable);
  EXPECT_EQ(pzUnused->GetLength(), 368u);
}

// --- Opening -------------------------------------------------------------------------------------

TEST_F(Container, AHeaderCutAtAnyByteIsRefusedWithStatus10) {
  MemoryContainer z;
  z.zContainer.Flush();
  const Bytes vcMain = Content(*z.pzMain);
  for (size_t iLength = 0; iLength < 264; ++iLength) {
    const Bytes vcCut(vcMain.begin(), vcMain.begin() + static_cast<ptrdiff_t>(iLength));
    EXPECT_REPORT(KivFastFileContainer(MakeUnmanagedMemory(vcCut), nullptr), "iRead == 256") << iLength;
    NoThrowScope zNoThrow;
    KivFastFileContainer zContainer(MakeMemory(vcCut), nullptr);
    EXPECT_EQ(zContainer.GetStatus(), KivContainerStatus::ShortHeader);
  }
}

TEST_F(Container, ARefusedHeaderGivesStatus20WithoutAReportAndTheFileStays) {
  MemoryContainer z;
  z.zContainer.Flush();
  Bytes vcMain = Content(*z.pzMain);
  vcMain[8] = 0x15;
  const auto pzFile = MakeUnmanagedMemory();
  pzFile->Write(0, vcMain.data(), vcMain.size());  // modified, and still not flushed by the destructor
  {
    KivFastFileContainer zContainer(pzFile, nullptr);
    EXPECT_EQ(zContainer.GetStatus(), KivContainerStatus::IncompatibleHeader);
  }
  EXPECT_EQ(Content(*pzFile), vcMain);
}

KIV_TEST_CHILD(ContainerRefusedOpens) {
  KivRegisterOwnFormat();
  NoThrowScope zNoThrow;
  KivFastFileContainer zShort(MakeUnmanagedMemory(Bytes(100)), nullptr);
  KivFastFileContainer zOther(MakeUnmanagedMemory(Bytes(300)), nullptr);
  if (zShort.GetStatus() != KivContainerStatus::ShortHeader) return 1;
  if (zOther.GetStatus() != KivContainerStatus::IncompatibleHeader) return 2;
  const std::string strName = "KivLog" + std::to_string(sys::CurrentProcessNumber()) + ".txt";
  std::ifstream zFile(std::filesystem::path(KivGetWorkFolder()) / strName, std::ios::binary);
  const std::string strLog((std::istreambuf_iterator<char>(zFile)), std::istreambuf_iterator<char>());
  KivCloseLog();
  if (strLog.find(",10,failed in KivFastFileContainerBase::Initialize()") == std::string::npos) return 3;
  if (strLog.find(",20,failed in KivFastFileContainerBase::Initialize()") == std::string::npos) return 4;
  return 0;
}

TEST_F(Container, ARefusedOpenIsInTheLogWithItsStatus) {
  KivSysProcess zChild = StartTestChild("ContainerRefusedOpens", {});
  ASSERT_EQ(zChild.Wait(60000), KivSysWait::Signalled);
  int32_t iCode = -1;
  ASSERT_TRUE(zChild.GetExitCode(iCode));
  EXPECT_EQ(iCode, 0);
}

TEST_F(Container, AShortImageIsReportedAndKeepsItsFullLengthWithZeros) {
  MemoryContainer z;
  AddText(z.zContainer, "abc");
  z.zContainer.Flush();
  Bytes vcMain = Content(*z.pzMain);
  vcMain.resize(vcMain.size() - 100);
  const char* const szText = "iRead == zHeaderInfo.zBaseFileHeaderInfo.m_iUnusedRecordFileLength";
  try {
    KivFastFileContainer zContainer(MakeUnmanagedMemory(vcMain), nullptr);
    ADD_FAILURE() << "no report";
  } catch (const KivException& e) {
    EXPECT_EQ(e.GetMessageText(), KivWString(szText, szText + std::strlen(szText)));
    EXPECT_EQ(e.GetFile(), u"src\\KivFastFileContainerBase");
  }
  NoThrowScope zNoThrow;
  KivFastFileContainer zContainer(MakeUnmanagedMemory(vcMain), nullptr);
  EXPECT_EQ(zContainer.GetStatus(), KivContainerStatus::Usable);
  const Bytes vcImage = Content(*zContainer.GetUnusedRecordFile());
  ASSERT_EQ(vcImage.size(), 368u);
  EXPECT_TRUE(std::equal(vcImage.begin(), vcImage.begin() + 268, vcMain.end() - 268));
  EXPECT_TRUE(std::all_of(vcImage.begin() + 268, vcImage.end(), [](uint8_t c) { return c == 0; }));
}

TEST_F(Container, LengthsOfAHeaderThatCannotBeMeantAllocateNothing) {
  MemoryContainer z;
  AddText(z.zContainer, "abc");
  z.zContainer.Flush();
  for (const uint64_t iHuge : {uint64_t{1} << 40, uint64_t{1} << 63, UINT64_MAX, UINT64_MAX - 300}) {
    for (const uint64_t iOffset : {72, 80, 88, 96, 104, 112}) {
      Bytes vcMain = Content(*z.pzMain);
      PutU64(vcMain, 8 + iOffset, iHuge);
      NoThrowScope zNoThrow;
      KivFastFileContainer zContainer(MakeMemory(vcMain), nullptr);
      EXPECT_EQ(zContainer.GetStatus(), KivContainerStatus::Usable);
      EXPECT_LE(zContainer.GetUnusedRecordFile()->GetLength(), vcMain.size());
      AddText(zContainer, "more");
      zContainer.DeleteRecord(264);
      zContainer.FullCheck();
      zContainer.CheckConsistency();
      EXPECT_LE(zContainer.GetBaseFile()->GetLength(), 20000u);
      EXPECT_LE(zContainer.GetUnusedRecordFile()->GetLength(), 20000u);
    }
  }
}

TEST_F(Container, AnUnusedRecordFileThatIsNotEmptyIsTakenAsItStands) {
  struct WithOwnUnused : KivFastFileContainerBase {
    WithOwnUnused(KivSharedPtr<ISnapShotFile> pzMain, KivSharedPtr<ISnapShotFile> pzUnused)
        : KivFastFileContainerBase(nullptr), m_pzMain(pzMain), m_pzUnused(pzUnused) {
      SetCapacityForExisting();
      Initialize();
    }
    KivSharedPtr<ISnapShotFile> GetBaseFile() override { return m_pzMain; }
    KivSharedPtr<ISnapShotFile> GetUnusedRecordFile() override { return m_pzUnused; }
    KivSharedPtr<ISnapShotFile> m_pzMain, m_pzUnused;
  };
  MemoryContainer z;
  z.zContainer.Flush();
  Bytes vcOther(1000, 0x5A);
  WithOwnUnused zContainer(MakeUnmanagedMemory(Content(*z.pzMain)), MakeUnmanagedMemory(vcOther));
  EXPECT_EQ(zContainer.GetStatus(), KivContainerStatus::Usable);
  EXPECT_EQ(Content(*zContainer.GetUnusedRecordFile()), vcOther);
}

TEST_F(Container, TheImageIsCopiedWhenTheUnusedRecordFileIsFirstAskedForAndBeforeARecordCouldOverwriteIt) {
  MemoryContainer z;
  AddSize(z.zContainer, 100);
  AddSize(z.zContainer, 10);
  z.zContainer.DeleteRecord(264);
  z.zContainer.Flush();
  const Bytes vcMain = Content(*z.pzMain);
  const Bytes vcImage = Content(*z.pzUnused);
  {
    KivFastFileContainer zContainer(MakeUnmanagedMemory(vcMain), nullptr);
    EXPECT_EQ(TextOf(zContainer, 388), std::string(10, 0x77));
    EXPECT_EQ(Content(*zContainer.GetUnusedRecordFile()), vcImage);
  }
  KivFastFileContainer zContainer(MakeUnmanagedMemory(vcMain), nullptr);
  EXPECT_EQ(AddSize(zContainer, 5000), 388u + 34u);  // written over the image
  EXPECT_EQ(AddSize(zContainer, 100), 264u);
  EXPECT_TRUE(zContainer.FullCheck().IsSound()) << zContainer.FullCheck().GetText();
}

TEST_F(Container, OpeningSetsTheCapacityToTheLength) {
  MemoryContainer z;
  AddText(z.zContainer, "abc");
  z.zContainer.Flush();
  const Bytes vcMain = Content(*z.pzMain);
  m_zFolder.WriteBytes(u"old.kiv", std::string(vcMain.begin(), vcMain.end()));
  const auto pzFile = OpenFile(FileKind::Mapped, m_zFolder / u"old.kiv");
  KivFastFileContainer zContainer(pzFile, nullptr);
  EXPECT_GE(pzFile->GetDirectBufferSize(), vcMain.size());
  EXPECT_EQ(TextOf(zContainer, 264), "abc");
}

TEST_F(Container, TheNodeOrderOfTheFileTakesThePlaceOfTheDefault) {
  MemoryContainer z;
  z.zContainer.Flush();
  Bytes vcMain = Content(*z.pzMain);
  PutU32(vcMain, 8 + 128, 4);
  KivFastFileContainer zContainer(MakeUnmanagedMemory(vcMain), nullptr);
  EXPECT_EQ(zContainer.GetNodeOrder(), 4u);
  for (int i = 0; i < 12; ++i) AddSize(zContainer, 100);
  for (Position iFile = 264; iFile < zContainer.GetEndPosition(); iFile += 2 * 124) zContainer.DeleteRecord(iFile);
  EXPECT_GT(zContainer.GetNodeNum(), 2u);  // 6 free records do not fit one leaf of 4
  const KivContainerCheck zCheck = zContainer.FullCheck();
  EXPECT_TRUE(zCheck.IsSound()) << zCheck.GetText();
}

TEST_F(Container, ANodeOrderOutside2To20MakesTreeOperationsReportAndFail) {
  MemoryContainer z;
  AddText(z.zContainer, "abc");
  z.zContainer.Flush();
  for (const uint32_t iOrder : {0u, 1u, 21u, 40u, 0xFFFFFFFFu}) {
    Bytes vcMain = Content(*z.pzMain);
    PutU32(vcMain, 8 + 128, iOrder);
    KivFastFileContainer zContainer(MakeUnmanagedMemory(vcMain), nullptr);
    EXPECT_REPORT_FROM(AddText(zContainer, "abc"), "0", "src\\KivFastFileContainerBase");
    NoThrowScope zNoThrow;
    EXPECT_EQ(AddText(zContainer, "more"), 291u);  // appended
    EXPECT_EQ(zContainer.FullCheck().m_vzFinding.at(0).m_iKind, KivContainerFindingKind::NodeOrder);
  }
}

// --- Flush ---------------------------------------------------------------------------------------

TEST_F(Container, AFlushOfAnOpenedContainerInWhichNothingWasWrittenDoesNotTouchTheFile) {
  MemoryContainer z;
  AddText(z.zContainer, "abc");
  z.zContainer.Flush();
  const Bytes vcMain = Content(*z.pzMain);
  m_zFolder.WriteBytes(u"a.kiv", std::string(vcMain.begin(), vcMain.end()));
  const auto pzFile = OpenFile(FileKind::Plain, m_zFolder / u"a.kiv");
  {
    KivFastFileContainer zContainer(pzFile, nullptr);
    zContainer.Flush();
    EXPECT_FALSE(pzFile->IsModified());
  }
  EXPECT_FALSE(pzFile->IsModified());
  EXPECT_EQ(Content(*pzFile), vcMain);
}

TEST_F(Container, AFlushKeepsOnDiskWhatIsNoMember) {
  MemoryContainer z;
  z.zContainer.Flush();
  Bytes vcMain = Content(*z.pzMain);
  PutU32(vcMain, 8 + 16, 3);    // an older minor version
  PutU32(vcMain, 8 + 156, 77);  // a first writer
  for (size_t i = 8 + 176; i < 264; ++i) vcMain[i] = static_cast<uint8_t>(i);
  const auto pzFile = MakeUnmanagedMemory(vcMain);
  {
    KivFastFileContainer zContainer(pzFile, nullptr);
    EXPECT_EQ(zContainer.GetHeaderInfo()[16], 10);  // upgraded in memory
    EXPECT_EQ(AddText(zContainer, "abc"), 264u);
  }
  const Bytes vcAfter = Content(*pzFile);
  EXPECT_EQ(U32At(vcAfter, 8 + 16), 3u);
  EXPECT_EQ(U32At(vcAfter, 8 + 156), 77u);
  EXPECT_TRUE(std::equal(vcAfter.begin() + 8 + 176, vcAfter.begin() + 264, vcMain.begin() + 8 + 176));
  EXPECT_EQ(U64At(vcAfter, 8 + 72), 291u);
}

TEST_F(Container, AFlushOfADirtyHeaderAloneWritesItThoughNothingElseWasWritten) {
  MemoryContainer z;
  AddText(z.zContainer, "abc");
  z.zContainer.Flush();
  const auto pzFile = MakeUnmanagedMemory(Content(*z.pzMain));
  KivFastFileContainer zContainer(pzFile, nullptr);
  zContainer.SetFirstPositionTable(264);
  zContainer.Flush();
  EXPECT_EQ(U64At(Content(*pzFile), 8 + 120), 0u);
  zContainer.SetHeaderDirty();
  zContainer.Flush();
  EXPECT_EQ(U64At(Content(*pzFile), 8 + 120), 264u);
}

TEST_F(Container, TheDestructorFlushes) {
  const auto pzMain = MakeUnmanagedMemory();
  {
    KivFastFileContainer zContainer(pzMain, MakeUnmanagedMemory(), nullptr);
    AddText(zContainer, "abc");
  }
  KivFastFileContainer zContainer(pzMain, nullptr);
  EXPECT_EQ(TextOf(zContainer, 264), "abc");
  EXPECT_EQ(zContainer.GetEndPosition(), 291u);
}

TEST_F(Container, TheNextRecordOverwritesTheImageAndTheNextFlushWritesItAnew) {
  MemoryContainer z;
  AddText(z.zContainer, "abc");
  z.zContainer.Flush();
  AddSize(z.zContainer, 1000);
  z.zContainer.Flush();
  const Bytes vcMain = Content(*z.pzMain);
  EXPECT_EQ(U64At(vcMain, 8 + 72), 291u + 1024u);
  EXPECT_EQ(vcMain.size(), 291u + 1024u + 368u);
  KivFastFileContainer zContainer(MakeUnmanagedMemory(vcMain), nullptr);
  EXPECT_TRUE(zContainer.FullCheck().IsSound());
}

TEST_F(Container, AttachedTableManagersGetTheExtensionFields) {
  MemoryContainer z;
  z.zContainer.Flush();
  Bytes vcMain = Content(*z.pzMain);
  PutU32(vcMain, 8 + 132, 7);
  PutU32(vcMain, 8 + 136, 8);
  PutU32(vcMain, 8 + 140, 9);
  KivPositionTableManager zManager(0);
  KivFastFileContainer zContainer(MakeUnmanagedMemory(vcMain), &zManager);
  EXPECT_EQ(zManager.GetMultiFilePositionExtension(), 7u);
  EXPECT_EQ(zManager.GetIndexForMultiFilePositionExtension(), 8u);
  EXPECT_EQ(zManager.GetFilePositionTableMode(), 9u);
  KivPositionTableManager zOther(0);
  zOther.SetExtension(1, 2, 3);
  KivFastFileContainer zNew(MakeUnmanagedMemory(), MakeUnmanagedMemory(), &zOther);
  EXPECT_EQ(zOther.GetFilePositionTableMode(), 0u);
}

// --- Adding and reading --------------------------------------------------------------------------

TEST_F(Container, ARecordHasSizesPayloadAndBackPointer) {
  MemoryContainer z;
  EXPECT_EQ(AddText(z.zContainer, "abc"), 264u);
  const Bytes vcMain = Content(*z.pzMain);
  const Bytes vcRecord(vcMain.begin() + 264, vcMain.end());
  EXPECT_EQ(vcRecord, BytesOfHex("1b00000000000000 0300000000000000 616263 0801000000000000"));
}

TEST_F(Container, PaddingIsZerosThatTheCallerDoesNotProvide) {
  MemoryContainer z;
  AddSize(z.zContainer, 100, 0xEE);
  z.zContainer.DeleteRecord(264);
  const KivContainerRecord zBefore = z.zContainer.GetRecord(264);
  EXPECT_FALSE(zBefore.m_pzFile);
  EXPECT_EQ(z.zContainer.AddRecord(KivContainerData("abcdef", 100, 97)), 264u);
  EXPECT_EQ(TextOf(z.zContainer, 264), "abc" + std::string(97, '\0'));
  EXPECT_EQ(z.zContainer.AddRecord(KivContainerData("abc", 10, 10)), 264u + 124u);
  EXPECT_EQ(TextOf(z.zContainer, 264 + 124), std::string(10, '\0'));
}

TEST_F(Container, APaddingLargerThanTheSizeIsReportedAndClamped) {
  try {
    KivContainerData zData("abc", 3, 4);
    ADD_FAILURE() << "no report";
  } catch (const KivException& e) {
    EXPECT_EQ(e.GetMessageText(), u"0");
    EXPECT_EQ(e.GetFile(), u"KivFastFileContainer");
  }
  NoThrowScope zNoThrow;
  const KivContainerData zData("abc", 3, 4);
  EXPECT_EQ(zData.m_iPaddingSize, 3u);
  EXPECT_EQ(zData.m_iSize, 3u);
}

TEST_F(Container, NullDataIsReported) {
  MemoryContainer z;
  EXPECT_REPORT(z.zContainer.AddRecord(KivContainerData(nullptr, 3)), "zData.m_pzData != NULL");
  NoThrowScope zNoThrow;
  EXPECT_EQ(z.zContainer.AddRecord(KivContainerData(nullptr, 3)), NULL_FILE_INDEX);
  EXPECT_EQ(z.zContainer.GetEndPosition(), 264u);
}

TEST_F(Container, NullDataOfWhichNothingIsReadIsReportedAndStoredAsZeros) {
  MemoryContainer z;
  EXPECT_REPORT(z.zContainer.AddRecord(KivContainerData(nullptr, 3, 3)), "zData.m_pzData != NULL");
  EXPECT_EQ(z.zContainer.GetEndPosition(), 264u);
  NoThrowScope zNoThrow;
  EXPECT_EQ(z.zContainer.AddRecord(KivContainerData(nullptr, 3, 3)), 264u);
  EXPECT_EQ(TextOf(z.zContainer, 264), std::string(3, '\0'));
}

TEST_F(Container, AnEmptyPayloadIsARecordOf24Bytes) {
  MemoryContainer z;
  EXPECT_EQ(AddText(z.zContainer, ""), 264u);
  EXPECT_EQ(z.zContainer.GetEndPosition(), 288u);
  const KivContainerRecord zRecord = z.zContainer.GetRecord(264);
  EXPECT_TRUE(zRecord.m_pzFile);
  EXPECT_EQ(zRecord.m_iOffset, 280u);
  EXPECT_EQ(zRecord.m_iFileSize, 0u);
}

TEST_F(Container, SizesOfAFreeRecordAreToldAndItsFormIsNull) {
  MemoryContainer z;
  AddSize(z.zContainer, 100);
  AddSize(z.zContainer, 10);
  z.zContainer.DeleteRecord(264);
  EXPECT_FALSE(z.zContainer.GetRecord(264).m_pzFile);
  const KivContainerRecordWithSizes zFree = z.zContainer.GetRecordWithSizes(264);
  EXPECT_FALSE(zFree.m_pzFile);
  EXPECT_EQ(zFree.m_iRecordSize, 124u);
  EXPECT_EQ(zFree.m_iFileSize, 124u);
  const KivContainerRecordWithSizes zUsed = z.zContainer.GetRecordWithSizes(388);
  EXPECT_TRUE(zUsed.m_pzFile);
  EXPECT_EQ(zUsed.m_iOffset, 404u);
  EXPECT_EQ(zUsed.m_iRecordSize, 34u);
  EXPECT_EQ(zUsed.m_iFileSize, 10u);
}

TEST_F(Container, ReadingBehindTheFileIsAReportAndTheNullForm) {
  const auto pzMain = MakeFile(FileKind::Plain, m_zFolder, u"a.kiv");
  KivFastFileContainer zContainer(pzMain, MakeUnmanagedMemory(), nullptr);
  AddText(zContainer, "abc");
  for (const Position iFile : {Position{291}, Position{1} << 40, Position{1} << 63, UINT64_MAX, UINT64_MAX - 15}) {
    EXPECT_REPORT(zContainer.GetRecord(iFile), "nRead == sizeof(Position)");
    NoThrowScope zNoThrow;
    EXPECT_FALSE(zContainer.GetRecord(iFile).m_pzFile);
    EXPECT_FALSE(zContainer.PrefetchRecord(iFile, 1));
  }
}

TEST_F(Container, APayloadThatItsRecordCannotHoldIsReported) {
  MemoryContainer z;
  AddText(z.zContainer, "abc");
  const uint64_t iTooMuch = 4;
  z.pzMain->Write(264 + 8, &iTooMuch, 8);
  EXPECT_REPORT_FROM(z.zContainer.GetRecord(264), "0", "src\\KivFastFileContainerBase");
  NoThrowScope zNoThrow;
  EXPECT_FALSE(z.zContainer.GetRecord(264).m_pzFile);
}

TEST_F(Container, AnAddThatExactlyFitsReusesAFreeRecordWithoutRemainder) {
  MemoryContainer z;
  AddSize(z.zContainer, 100);
  AddSize(z.zContainer, 10);
  z.zContainer.DeleteRecord(264);
  EXPECT_EQ(AddSize(z.zContainer, 100), 264u);
  EXPECT_EQ(z.zContainer.GetRecordWithSizes(264).m_iRecordSize, 124u);
  const ReadContainer zRead = z.Read();
  EXPECT_EQ(zRead.strError, "");
  EXPECT_EQ(zRead.mapRecord.size(), 2u);
}

TEST_F(Container, ARemainderBelow50StaysInTheRecordAsSlack) {
  for (uint32_t iLess = 1; iLess <= 51; ++iLess) {
    MemoryContainer z;
    AddSize(z.zContainer, 100);
    AddSize(z.zContainer, 10);
    z.zContainer.DeleteRecord(264);
    EXPECT_EQ(AddSize(z.zContainer, 100 - iLess), 264u);
    const KivContainerRecordWithSizes zRecord = z.zContainer.GetRecordWithSizes(264);
    EXPECT_EQ(zRecord.m_iFileSize, 100 - iLess);  // what was asked, not what the record holds
    EXPECT_EQ(zRecord.m_iRecordSize, iLess < 50 ? 124 : 124 - iLess);
    const ReadContainer zRead = z.Read();
    EXPECT_EQ(zRead.strError, "");
    EXPECT_EQ(zRead.mapRecord.size(), iLess < 50 ? 2u : 3u);
  }
}

TEST_F(Container, AmongFreeRecordsTheSmallestThatFitsIsTaken) {
  MemoryContainer z;
  const Position a = AddSize(z.zContainer, 300);
  AddSize(z.zContainer, 1);
  const Position b = AddSize(z.zContainer, 200);
  AddSize(z.zContainer, 1);
  const Position c = AddSize(z.zContainer, 250);
  AddSize(z.zContainer, 1);
  z.zContainer.DeleteRecord(a);
  z.zContainer.DeleteRecord(b);
  z.zContainer.DeleteRecord(c);
  EXPECT_EQ(AddSize(z.zContainer, 201), c);
  EXPECT_EQ(AddSize(z.zContainer, 200), b);
  EXPECT_EQ(AddSize(z.zContainer, 300), a);
}

TEST_F(Container, OfTwoFreeRecordsOfEqualSizeTheOneFreedLastIsTaken) {
  for (const bool bFirstLast : {false, true}) {
    MemoryContainer z;
    const Position a = AddSize(z.zContainer, 100);
    AddSize(z.zContainer, 1);
    const Position b = AddSize(z.zContainer, 100);
    AddSize(z.zContainer, 1);
    z.zContainer.DeleteRecord(bFirstLast ? b : a);
    z.zContainer.DeleteRecord(bFirstLast ? a : b);
    EXPECT_EQ(AddSize(z.zContainer, 100), bFirstLast ? a : b);
  }
}

// --- Freeing -------------------------------------------------------------------------------------

TEST_F(Container, FreeingThreeNeighboursInAnyOrderLeavesOneFreeRecord) {
  const int aaiOrder[6][3] = {{0, 1, 2}, {0, 2, 1}, {1, 0, 2}, {1, 2, 0}, {2, 0, 1}, {2, 1, 0}};
  for (const auto& aiOrder : aaiOrder) {
    MemoryContainer z;
    AddSize(z.zContainer, 10);
    Position aiFile[3];
    for (Position& iFile : aiFile) iFile = AddSize(z.zContainer, 100);
    AddSize(z.zContainer, 10);
    for (const int i : aiOrder) z.zContainer.DeleteRecord(aiFile[i]);
    const ReadContainer zRead = z.Read();
    EXPECT_EQ(zRead.strError, "");
    ASSERT_EQ(zRead.mapRecord.size(), 3u);
    EXPECT_TRUE(zRead.mapRecord.at(aiFile[0]).bFree);
    EXPECT_EQ(zRead.mapRecord.at(aiFile[0]).iSize, 3 * 124u);
    ASSERT_EQ(zRead.mapNode.at(8).vPairs.size(), 1u);
    EXPECT_EQ(zRead.mapNode.at(8).vPairs[0], (std::pair<uint64_t, uint64_t>(3 * 124, aiFile[0])));
  }
}

TEST_F(Container, FreeingTheLastRecordLeavesTheEndAloneAndTheHoleIsUsedAgain) {
  MemoryContainer z;
  AddSize(z.zContainer, 10);
  const Position iLast = AddSize(z.zContainer, 100);
  const uint64_t iEnd = z.zContainer.GetEndPosition();
  z.zContainer.DeleteRecord(iLast);
  EXPECT_EQ(z.zContainer.GetEndPosition(), iEnd);
  EXPECT_EQ(AddSize(z.zContainer, 101), iEnd);
  EXPECT_EQ(AddSize(z.zContainer, 90), iLast);
}

TEST_F(Container, TheFirstRecordNeverMergesBackward) {
  for (const uint8_t iReserved : {uint8_t{0}, uint8_t{8}, uint8_t{0xFF}}) {
    MemoryContainer z;
    AddSize(z.zContainer, 10);
    AddSize(z.zContainer, 10);
    z.pzMain->Write(263, &iReserved, 1);
    z.pzMain->Write(256, &iReserved, 1);
    z.zContainer.DeleteRecord(264);
    EXPECT_EQ(z.Read().strError, "");
    EXPECT_TRUE(z.Read().mapRecord.at(264).bFree);
  }
}

TEST_F(Container, FreeingZerosTheBytesOfARecord) {
  MemoryContainer z;
  AddSize(z.zContainer, 100, 0xAB);
  AddSize(z.zContainer, 100, 0xCD);
  AddSize(z.zContainer, 10);
  z.zContainer.DeleteRecord(264);
  z.zContainer.DeleteRecord(388);
  const Bytes vcMain = Content(*z.pzMain);
  EXPECT_TRUE(std::all_of(vcMain.begin() + 264 + 16, vcMain.begin() + 264 + 248 - 8, [](uint8_t c) { return c == 0; }));
}

TEST_F(Container, FreeingInAnOpenedFileZerosFreeNeighboursThatWereNotFreedInThisRun) {
  MemoryContainer z;
  AddSize(z.zContainer, 100);
  AddSize(z.zContainer, 100);
  AddSize(z.zContainer, 100);
  AddSize(z.zContainer, 1);
  z.zContainer.DeleteRecord(264);
  z.zContainer.DeleteRecord(264 + 248);
  z.zContainer.Flush();
  Bytes vcMain = Content(*z.pzMain);
  for (const size_t iStart : {264u, 264u + 248u})
    std::fill_n(vcMain.begin() + static_cast<ptrdiff_t>(iStart) + 16, 100, uint8_t{0x99});
  KivFastFileContainer zContainer(MakeUnmanagedMemory(vcMain), nullptr);
  EXPECT_EQ(zContainer.FullCheck().m_iFindingNum, 2u);
  zContainer.DeleteRecord(264 + 124);
  EXPECT_TRUE(zContainer.FullCheck().IsSound()) << zContainer.FullCheck().GetText();
}

TEST_F(Container, FreeingPositionZeroIsReported) {
  MemoryContainer z;
  EXPECT_REPORT(z.zContainer.DeleteRecordChecked(0), "iFile != NULL_FILE_INDEX");
}

TEST_F(Container, WhatIsNoWholeRecordIsReportedAndNotFreed) {
  MemoryContainer z;
  AddSize(z.zContainer, 100);
  AddSize(z.zContainer, 100);
  AddSize(z.zContainer, 100);
  const auto Damage = [&](uint64_t iOffset, uint64_t iValue) {
    const Bytes vcBefore = Content(*z.pzMain);
    z.pzMain->Write(iOffset, &iValue, 8);
    const Bytes vcDamaged = Content(*z.pzMain);
    EXPECT_REPORT_FROM(z.zContainer.DeleteRecord(388), "0", "src\\KivFastFileContainerBase")
        << iOffset << " " << iValue;
    NoThrowScope zNoThrow;
    z.zContainer.DeleteRecord(388);
    EXPECT_EQ(Content(*z.pzMain), vcDamaged);
    EXPECT_EQ(z.zContainer.FullCheck().m_iPairNum, 0u);
    z.pzMain->Write(0, vcBefore.data(), vcBefore.size());
  };
  for (const uint64_t iSize :
       {uint64_t{0}, uint64_t{23}, uint64_t{249}, uint64_t{1} << 62, UINT64_MAX, UINT64_MAX - 300})
    Damage(388, iSize);
  Damage(388 + 116, 387);  // back pointer
  Damage(388 + 8, 124);    // free already
  for (const Position iFile : {Position{0}, Position{8}, Position{100}, Position{636}, Position{1} << 63, UINT64_MAX}) {
    NoThrowScope zNoThrow;
    z.zContainer.DeleteRecord(iFile);
  }
  EXPECT_TRUE(z.zContainer.FullCheck().IsSound());
  EXPECT_EQ(z.zContainer.FullCheck().m_iUsedRecordNum, 3u);
}

TEST_F(Container, ADamagedNeighbourCountsAsUsed) {
  MemoryContainer z;
  AddSize(z.zContainer, 100);
  AddSize(z.zContainer, 100);
  AddSize(z.zContainer, 100);
  z.zContainer.DeleteRecord(264);
  z.zContainer.DeleteRecord(264 + 248);
  const uint64_t iWrong = 120;
  z.pzMain->Write(264, &iWrong, 8);
  z.pzMain->Write(264 + 8, &iWrong, 8);
  const uint64_t iBack = 1;
  z.pzMain->Write(264 + 372 - 8, &iBack, 8);
  z.zContainer.DeleteRecord(264 + 124);
  EXPECT_EQ(z.zContainer.GetRecordWithSizes(264 + 124).m_iRecordSize, 124u);
  EXPECT_EQ(z.zContainer.GetRecordWithSizes(264 + 124).m_iFileSize, 124u);
}

TEST_F(Container, ATreeThatNamesAFreeRecordThatIsNoneIsNotWrittenOver) {
  MemoryContainer z;
  AddSize(z.zContainer, 100);
  AddSize(z.zContainer, 100);
  z.zContainer.DeleteRecord(264);
  const uint64_t iOther = 388;
  z.pzUnused->Write(8 + 48, &iOther, 8);  // the pair's position: a record in use
  EXPECT_REPORT_FROM(AddSize(z.zContainer, 100), "0", "src\\KivFastFileContainerBase");
  NoThrowScope zNoThrow;
  EXPECT_EQ(AddSize(z.zContainer, 100), 512u);
  EXPECT_EQ(TextOf(z.zContainer, 388), std::string(100, 0x77));
}

TEST_F(Container, AFailedRemovalFromTheTreeLeavesTheMergedRecordWithAnEntryForItsOldPart) {
  MemoryContainer z;
  AddSize(z.zContainer, 100);
  AddSize(z.zContainer, 100);
  AddSize(z.zContainer, 1);
  z.zContainer.DeleteRecord(264);
  const uint64_t iMin = 125;  // the root does not admit the free record's size any more
  z.pzUnused->Write(8 + 8, &iMin, 8);
  EXPECT_REPORT_FROM(z.zContainer.DeleteRecord(388), "0", "src\\KivFastFileContainerBase");
  NoThrowScope zNoThrow;
  z.zContainer.DeleteRecord(388);
  const Bytes vcUnused = Content(*z.pzUnused);
  EXPECT_EQ(vcUnused[8 + 2], 2);
  EXPECT_EQ(U64At(vcUnused, 8 + 40), 124u);
  EXPECT_EQ(U64At(vcUnused, 8 + 48), 264u);
  EXPECT_EQ(U64At(vcUnused, 8 + 56), 248u);
  EXPECT_EQ(U64At(vcUnused, 8 + 64), 264u);
  EXPECT_EQ(z.zContainer.GetRecordWithSizes(264).m_iRecordSize, 248u);
}

// --- Moving --------------------------------------------------------------------------------------

TEST_F(Container, MovingTakesTheEarliestPlaceThatFits) {
  MemoryContainer z;
  AddSize(z.zContainer, 50);
  AddSize(z.zContainer, 1);
  const Position iHole = AddSize(z.zContainer, 300);
  AddSize(z.zContainer, 1);
  const Position iBest = AddSize(z.zContainer, 100);
  AddSize(z.zContainer, 1);
  const Position iFile = AddText(z.zContainer, std::string(100, 'm'));
  AddSize(z.zContainer, 1);
  z.zContainer.DeleteRecord(264);
  z.zContainer.DeleteRecord(iHole);
  z.zContainer.DeleteRecord(iBest);
  Position iStart = 0;
  Position iStoredAt = 0;
  EXPECT_EQ(z.zContainer.MoveRecord(iFile, iStart, &iStoredAt), iHole);
  EXPECT_EQ(iStart, iHole);
  EXPECT_EQ(iStoredAt, iHole);
  EXPECT_EQ(TextOf(z.zContainer, iHole), std::string(100, 'm'));
  EXPECT_EQ(z.zContainer.GetRecordWithSizes(iHole).m_iRecordSize, 124u);  // the rest was split off
  EXPECT_EQ(z.Read().strError, "");
}

TEST_F(Container, MovingMayFindTheRecordsOwnOldPlace) {
  MemoryContainer z;
  AddSize(z.zContainer, 1);
  const Position iFile = AddText(z.zContainer, "hello");
  AddSize(z.zContainer, 1);
  Position iStart = 0;
  EXPECT_EQ(z.zContainer.MoveRecord(iFile, iStart), iFile);
  EXPECT_EQ(TextOf(z.zContainer, iFile), "hello");
}

TEST_F(Container, MovingWithAStartBehindTheEndStoresAnewAndGivesZero) {
  MemoryContainer z;
  AddSize(z.zContainer, 1);
  const Position iFile = AddText(z.zContainer, "hello");
  AddSize(z.zContainer, 1);
  for (const Position iFrom : {z.zContainer.GetEndPosition(), z.zContainer.GetEndPosition() + 1, UINT64_MAX}) {
    Position iStart = iFrom;
    Position iStoredAt = 0;
    EXPECT_EQ(z.zContainer.MoveRecord(iFile, iStart, &iStoredAt), 0u);
    EXPECT_EQ(iStart, iFrom);
    EXPECT_EQ(iStoredAt, iFile);  // the tree gave it its own old place
    EXPECT_EQ(TextOf(z.zContainer, iFile), "hello");
  }
}

TEST_F(Container, MovingAFreeRecordOrNothingIsReportedAndGivesThePositionBack) {
  MemoryContainer z;
  AddSize(z.zContainer, 10);
  AddSize(z.zContainer, 10);
  z.zContainer.DeleteRecord(264);
  Position iStart = 0;
  EXPECT_REPORT_FROM(z.zContainer.MoveRecord(264, iStart), "0", "src\\KivFastFileContainerBase");
  EXPECT_REPORT(z.zContainer.MoveRecord(0, iStart), "iFile != NULL_FILE_INDEX");
  NoThrowScope zNoThrow;
  EXPECT_EQ(z.zContainer.MoveRecord(264, iStart), 264u);
  EXPECT_EQ(z.zContainer.MoveRecord(0, iStart), 0u);
  EXPECT_EQ(z.Read().strError, "");
}

TEST_F(Container, AMoveWhoseWalkStartsInsideAMergedFreeRecordEnds) {
  MemoryContainer z;
  AddSize(z.zContainer, 100);
  AddSize(z.zContainer, 100);
  AddSize(z.zContainer, 1);
  const Position iFile = AddText(z.zContainer, "hello");
  AddSize(z.zContainer, 1);
  z.zContainer.DeleteRecord(264);
  z.zContainer.DeleteRecord(388);
  Position iStart = 388;  // zeros now
  Position iStoredAt = 0;
  EXPECT_REPORT_FROM(z.zContainer.MoveRecord(iFile, iStart, &iStoredAt), "0", "src\\KivFastFileContainerBase");
  EXPECT_EQ(iStart, 388u);
  EXPECT_EQ(TextOf(z.zContainer, iStoredAt), "hello");  // the report does not take the payload along
  EXPECT_EQ(z.Read().strError, "");
  MemoryContainer y;
  AddSize(y.zContainer, 100);
  AddSize(y.zContainer, 100);
  AddSize(y.zContainer, 1);
  AddText(y.zContainer, "hello");
  AddSize(y.zContainer, 1);
  y.zContainer.DeleteRecord(264);
  y.zContainer.DeleteRecord(388);
  NoThrowScope zNoThrow;
  iStoredAt = 0;
  EXPECT_EQ(y.zContainer.MoveRecord(iFile, iStart, &iStoredAt), 0u);
  EXPECT_EQ(iStart, 388u);
  EXPECT_EQ(TextOf(y.zContainer, iStoredAt), "hello");
  EXPECT_EQ(y.Read().strError, "");
}

TEST_F(Container, ASweepWithOneStartCompactsTheFile) {
  MemoryContainer z;
  std::vector<Position> viFile;
  for (int i = 0; i < 40; ++i) viFile.push_back(AddSize(z.zContainer, 100, static_cast<uint8_t>(i)));
  for (size_t i = 0; i < 20; ++i) z.zContainer.DeleteRecord(viFile[2 * i]);
  Position iStart = 0;
  for (size_t i = 39; i > 20; i -= 2) {
    const Position iMoved = z.zContainer.MoveRecord(viFile[i], iStart);
    ASSERT_NE(iMoved, 0u);
    EXPECT_LT(iMoved, viFile[i]);
    EXPECT_EQ(TextOf(z.zContainer, iMoved), std::string(100, static_cast<char>(i)));
  }
  EXPECT_EQ(z.Read().strError, "");
}

// --- Other ---------------------------------------------------------------------------------------

TEST_F(Container, RecordsSurviveOnEveryKindOfFile) {
  for (const FileKind iKind : {FileKind::Memory, FileKind::Plain, FileKind::Mapped}) {
    SCOPED_TRACE(NameOf(iKind));
    const auto pzMain = MakeFile(iKind, m_zFolder, u"kind.kiv");
    {
      KivFastFileContainer zContainer(pzMain, MakeFile(iKind, m_zFolder, u"kind.urf"), nullptr);
      for (int i = 0; i < 2000; ++i) AddSize(zContainer, static_cast<uint32_t>(i), static_cast<uint8_t>(i));
      Position iFile = 264;
      for (int i = 0; i < 2000; ++i) {
        EXPECT_EQ(TextOf(zContainer, iFile), std::string(static_cast<size_t>(i), static_cast<char>(i)));
        const Position iNext = iFile + 24 + static_cast<uint64_t>(i);
        if (i % 3 == 0) zContainer.DeleteRecord(iFile);
        iFile = iNext;
      }
      zContainer.FlushBaseFile();
      EXPECT_TRUE(zContainer.FullCheck().IsSound());
    }
    KivFastFileContainer zAgain(pzMain, nullptr);
    ASSERT_EQ(zAgain.GetStatus(), KivContainerStatus::Usable);
    const KivContainerCheck zCheck = zAgain.FullCheck();
    EXPECT_TRUE(zCheck.IsSound()) << zCheck.GetText();
    EXPECT_EQ(zCheck.m_iFreeRecordNum, 667u);
    EXPECT_EQ(zCheck.m_iUsedRecordNum, 1333u);
  }
}

TEST_F(Container, AContainerThatWasNeverFlushedOpensAsEmpty) {
  MemoryContainer z;
  AddText(z.zContainer, "abc");
  Bytes vcMain = Content(*z.pzMain);  // as after a crash: header of the creation, no image
  KivFastFileContainer zContainer(MakeUnmanagedMemory(vcMain), nullptr);
  EXPECT_EQ(zContainer.GetStatus(), KivContainerStatus::Usable);
  EXPECT_EQ(zContainer.GetRootNode(), 0u);
  EXPECT_REPORT_FROM(AddText(zContainer, "x"), "0", "src\\KivFastFileContainerBase");  // no root
}

KIV_TEST_CHILD(ContainerLocked) {
  // Nothing in the library sets the lock; a derived class can.
  struct Locked : KivFastFileContainer {
    Locked() : KivFastFileContainer(MakeUnmanagedMemory(), MakeUnmanagedMemory(), nullptr) {}
    void Lock(bool bLocked) { m_bContainerLocked = bLocked; }
  };
  KivRegisterOwnFormat();
  Locked z;
  AddText(z, "abc");
  z.Lock(true);
  int iFailed = 0;
  const auto Check = [&](auto&& body) {
    if (ReportOf(body) != u"!m_bContainerLocked") ++iFailed;
  };
  Position iStart = 0;
  std::map<Position, bool> mapUsed;
  Check([&] { AddText(z, "abc"); });
  Check([&] { z.GetRecord(264); });
  Check([&] { z.GetRecordWithSizes(264); });
  Check([&] { z.DeleteRecord(264); });
  Check([&] { z.DeleteRecordChecked(264); });
  Check([&] { z.MoveRecord(264, iStart); });
  Check([&] { z.PrefetchRecord(264, 1); });
  Check([&] { z.FlushBaseFile(); });
  Check([&] { z.Flush(); });
  Check([&] { z.SaveInSlices(u"x", 0); });
  Check([&] { z.IsSaveInSlicesComplete(u"x"); });
  Check([&] { z.CancelSaveInSlices(u"x"); });
  Check([&] { z.CheckConsistency(); });
  Check([&] { z.Dump(u"", mapUsed); });
  {
    NoThrowScope zNoThrow;  // the operations go on
    if (AddText(z, "abc") != 291) ++iFailed;
    if (TextOf(z, 264) != "abc") ++iFailed;
  }
  z.Lock(false);
  return iFailed;
}

TEST_F(Container, ALockedContainerReportsInEveryOperationAndGoesOn) {
  KivSysProcess zChild = StartTestChild("ContainerLocked", {});
  ASSERT_EQ(zChild.Wait(60000), KivSysWait::Signalled);
  int32_t iCode = -1;
  ASSERT_TRUE(zChild.GetExitCode(iCode));
  EXPECT_EQ(iCode, 0);
}
