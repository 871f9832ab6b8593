// Saves: at once beside a patch, and in slices.
#include <gtest/gtest.h>

#include <filesystem>

#include "KivDataUtil.h"
#include "KivFastFileContainer.h"
#include "KivFormatRegistry.h"
#include "KivSysFile.h"
#include "KivSysFolder.h"
#include "KivTestContainer.h"
#include "KivTestReport.h"
#include "KivTestReportSource.h"
#include "KivTestScale.h"
#include "KivWritableMemFile.h"

using namespace kiv;
using namespace kivtest;

namespace {

using Result = KivSaveInSlicesResult;

class ContainerSave : public testing::Test {
 protected:
  ContainerSave() { KivRegisterOwnFormat(); }

  // A flushed container with this many bytes of records, one of them free.
  void Make(KivFastFileContainer& zContainer, uint32_t iBytes) {
    const Bytes vcPayload(iBytes, 0x42);
    zContainer.AddRecord(KivContainerData(vcPayload.data(), 100));
    zContainer.AddRecord(KivContainerData(vcPayload.data(), iBytes));
    zContainer.DeleteRecord(264);
    zContainer.Flush();
  }
  Bytes FileBytes(const KivWString& csName) {
    const std::string strBytes = m_zFolder.ReadBytes(csName);
    return Bytes(strBytes.begin(), strBytes.end());
  }
  TestFolder m_zFolder;
};

uint32_t PastDeadline() {
  // One that is over for the tick's comparison.
  return 1;
}

}  // namespace

TEST_F(ContainerSave, ASaveInSlicesWithoutDeadlineIsASelfContainedContainer) {
  const auto pzMain = MakeUnmanagedMemory();
  KivFastFileContainer zContainer(pzMain, MakeUnmanagedMemory(), nullptr);
  Make(zContainer, 5000);
  const KivWString csTarget = m_zFolder / u"copy.kiv";
  EXPECT_FALSE(zContainer.IsSaveInSlicesComplete(csTarget));
  EXPECT_EQ(zContainer.SaveInSlices(csTarget, 0), Result::Done);
  EXPECT_TRUE(zContainer.IsSaveInSlicesComplete(csTarget));
  EXPECT_EQ(FileBytes(u"copy.kiv"), Content(*pzMain));
  const auto pzCopy = OpenFile(FileKind::Plain, csTarget);
  KivFastFileContainer zCopy(pzCopy, nullptr);
  EXPECT_EQ(zCopy.GetStatus(), KivContainerStatus::Usable);
  EXPECT_TRUE(zCopy.FullCheck().IsSound());
  EXPECT_EQ(zCopy.FullCheck().m_iFreeRecordNum, 1u);
}

TEST_F(ContainerSave, ADeadlineInThePastCopiesOneChunkPerCallAndFinishesInOneMore) {
  KivFastFileContainer zContainer(MakeUnmanagedMemory(), MakeUnmanagedMemory(), nullptr);
  const uint32_t iChunk = 10 * KivGetAllocationGranularity();
  Make(zContainer, 2 * iChunk);
  const KivWString csTarget = m_zFolder / u"copy.kiv";
  ASSERT_GT(KivGetTimeMs(), PastDeadline());
  for (uint32_t i = 1; i <= 3; ++i) {  // three chunks, the last one short
    EXPECT_EQ(zContainer.SaveInSlices(csTarget, PastDeadline()), Result::Done);
    EXPECT_FALSE(zContainer.IsSaveInSlicesComplete(csTarget)) << i;
    // Windows tells nobody the length of a file that is open without sharing until it is closed.
    if (!IsWindows()) {
      const uint64_t iEnd = zContainer.GetEndPosition();
      EXPECT_EQ(std::filesystem::file_size(std::filesystem::path(csTarget)),
                std::min<uint64_t>(iEnd, uint64_t{iChunk} * i));
    }
  }
  EXPECT_EQ(zContainer.SaveInSlices(csTarget, PastDeadline()), Result::Done);
  EXPECT_TRUE(zContainer.IsSaveInSlicesComplete(csTarget));
  EXPECT_EQ(zContainer.SaveInSlices(csTarget, PastDeadline()), Result::Done);  // a complete one stays so
  EXPECT_EQ(FileBytes(u"copy.kiv").size(), zContainer.GetEndPosition() + 368);
}

TEST_F(ContainerSave, ATargetWithContentIsNeverOverwritten) {
  KivFastFileContainer zContainer(MakeUnmanagedMemory(), MakeUnmanagedMemory(), nullptr);
  Make(zContainer, 100);
  m_zFolder.WriteBytes(u"full.kiv", "x");
  EXPECT_REPORT_FROM(zContainer.SaveInSlices(m_zFolder / u"full.kiv", 0), "0", "src\\KivFastFileContainerBase");
  NoThrowScope zNoThrow;
  EXPECT_EQ(zContainer.SaveInSlices(m_zFolder / u"full.kiv", 0), Result::TargetExists);
  EXPECT_EQ(m_zFolder.ReadBytes(u"full.kiv"), "x");
  EXPECT_FALSE(zContainer.IsSaveInSlicesComplete(m_zFolder / u"full.kiv"));
}

TEST_F(ContainerSave, AnEmptyTargetIsReplaced) {
  KivFastFileContainer zContainer(MakeUnmanagedMemory(), MakeUnmanagedMemory(), nullptr);
  Make(zContainer, 100);
  m_zFolder.WriteBytes(u"empty.kiv", "");
  EXPECT_EQ(zContainer.SaveInSlices(m_zFolder / u"empty.kiv", 0), Result::Done);
  EXPECT_GT(FileBytes(u"empty.kiv").size(), 264u);
}

TEST_F(ContainerSave, ATargetThatCannotBeMadeGives20) {
  KivFastFileContainer zContainer(MakeUnmanagedMemory(), MakeUnmanagedMemory(), nullptr);
  Make(zContainer, 100);
  for (const KivWString& csPath : {KivWString(), m_zFolder / u"missing" + sys::kSeparator + u"a.kiv"}) {
    EXPECT_REPORT_FROM(zContainer.SaveInSlices(csPath, 0), "0", "src\\KivFastFileContainerBase");
    NoThrowScope zNoThrow;
    EXPECT_EQ(zContainer.SaveInSlices(csPath, 0), Result::TargetNotCreated);
  }
}

TEST_F(ContainerSave, AMainFileNotLongerThanItsRecordsGives30) {
  KivFastFileContainer zContainer(MakeUnmanagedMemory(), MakeUnmanagedMemory(), nullptr);
  zContainer.AddRecord(KivContainerData("abc", 3));  // not flushed: no image
  EXPECT_REPORT_FROM(zContainer.SaveInSlices(m_zFolder / u"a.kiv", 0), "0", "src\\KivFastFileContainerBase");
  sys::RemoveFileAt(m_zFolder / u"a.kiv");
  NoThrowScope zNoThrow;
  EXPECT_EQ(zContainer.SaveInSlices(m_zFolder / u"a.kiv", 0), Result::NothingBehindRecords);
}

TEST_F(ContainerSave, CancellingDeletesAnUnfinishedTargetAndKeepsACompleteOne) {
  KivFastFileContainer zContainer(MakeUnmanagedMemory(), MakeUnmanagedMemory(), nullptr);
  Make(zContainer, 10 * KivGetAllocationGranularity());
  const KivWString csTarget = m_zFolder / u"copy.kiv";
  EXPECT_REPORT_FROM(zContainer.CancelSaveInSlices(csTarget), "0", "src\\KivFastFileContainerBase");
  zContainer.SaveInSlices(csTarget, PastDeadline());
  EXPECT_TRUE(KivFileExists(csTarget));
  zContainer.CancelSaveInSlices(csTarget);
  EXPECT_FALSE(KivFileExists(csTarget));
  EXPECT_EQ(zContainer.SaveInSlices(csTarget, 0), Result::Done);
  zContainer.CancelSaveInSlices(csTarget);
  EXPECT_TRUE(KivFileExists(csTarget));
  EXPECT_FALSE(zContainer.IsSaveInSlicesComplete(csTarget));
}

TEST_F(ContainerSave, ASavedHeaderIsTheUpgradedOneAndTheFileOnDiskKeepsItsOwn) {
  KivFastFileContainer zFirst(MakeUnmanagedMemory(), MakeUnmanagedMemory(), nullptr);
  Make(zFirst, 100);
  Bytes vcMain = Content(*zFirst.GetBaseFile());
  PutU32(vcMain, 8 + 16, 4);  // an older minor version
  KivFastFileContainer zContainer(MakeUnmanagedMemory(vcMain), nullptr);
  EXPECT_EQ(zContainer.SaveInSlices(m_zFolder / u"copy.kiv", 0), Result::Done);
  const Bytes vcCopy = FileBytes(u"copy.kiv");
  EXPECT_EQ(U32At(vcCopy, 8 + 16), 10u);
  EXPECT_EQ(U32At(vcCopy, 8 + 152), 4u);
  EXPECT_EQ(Content(*zContainer.GetBaseFile()), vcMain);
}

TEST_F(ContainerSave, ASaveWithoutACacheBelowIsReportedAndFails) {
  KivFastFileContainer zContainer(MakeUnmanagedMemory(), MakeUnmanagedMemory(), nullptr);
  Make(zContainer, 100);
  EXPECT_REPORT_FROM(zContainer.SaveAs(m_zFolder / u"a.patch", false), "0", "src\\KivHistoryFile");
  NoThrowScope zNoThrow;
  EXPECT_FALSE(zContainer.SaveAs(m_zFolder / u"a.patch", false));
}

TEST_F(ContainerSave, ASaveThatFailsBehindTheHeaderLeavesTheHeaderOfTheSaveInTheMainFile) {
  const auto pzMain = MakeUnmanagedMemory();
  KivFastFileContainer zContainer(pzMain, MakeUnmanagedMemory(), nullptr);
  zContainer.AddRecord(KivContainerData("abc", 3));
  EXPECT_EQ(U64At(Content(*pzMain), 8 + 72), 264u);
  NoThrowScope zNoThrow;
  EXPECT_FALSE(zContainer.SaveAs(m_zFolder / u"a.patch", false));
  EXPECT_EQ(U64At(Content(*pzMain), 8 + 72), 291u);
  EXPECT_EQ(U64At(Content(*pzMain), 8 + 80), 368u);
  EXPECT_EQ(U64At(Content(*pzMain), 8 + 88), 1u);
}

TEST_F(ContainerSave, ASideFileThatCannotBeCreatedFailsTheSaveAndTheHeaderStays) {
  {
    KivFastFileContainer zContainer(MakeFile(FileKind::Plain, m_zFolder, u"base.kiv"), MakeUnmanagedMemory(), nullptr);
    Make(zContainer, 1000);
  }
  ASSERT_TRUE(sys::MakeFolder(m_zFolder / u"a.patch.urf"));
  for (const bool bThrow : {true, false}) {
    const auto pzCached = OpenCached(m_zFolder / u"base.kiv");
    KivFastFileContainer zContainer(pzCached, nullptr);
    EXPECT_EQ(zContainer.AddRecord(KivContainerData("added", 5)), 264u);
    const uint64_t iImage = zContainer.GetUnusedRecordFile()->GetLength();
    if (bThrow) {
      EXPECT_REPORT_FROM(zContainer.SaveAs(m_zFolder / u"a.patch", false), "0", "src\\KivFastFileContainerBase");
    } else {
      NoThrowScope zNoThrow;
      EXPECT_FALSE(zContainer.SaveAs(m_zFolder / u"a.patch", false));
    }
    Bytes vcHeader(264);
    pzCached->Read(0, vcHeader.data(), vcHeader.size());
    EXPECT_EQ(U64At(vcHeader, 8 + 80), iImage);
    EXPECT_EQ(U32At(vcHeader, 8 + 144), 0x14141414u);  // of the save: the first generation is remembered
  }
}

TEST_F(ContainerSave, AnImageThatCannotBeReadFailsTheSaveBeforeItsSideFileIsCreated) {
  // The unused record file says more than it gives.
  class Short : public KivWritableMemFile {
   public:
    bool CanUseDirectBuffer() override { return false; }
    uint64_t DoRead(uint64_t iOffset, void* lpBuf, uint64_t nCount) override {
      return nCount > 360 ? 0 : KivWritableMemFile::DoRead(iOffset, lpBuf, nCount);
    }
  };
  {
    KivFastFileContainer zContainer(MakeFile(FileKind::Plain, m_zFolder, u"base.kiv"), MakeUnmanagedMemory(), nullptr);
    Make(zContainer, 1000);
  }
  auto* const pShort = new Short;
  pShort->m_vcData.assign(368, 0);
  ContainerOfTwoFiles zContainer(OpenCached(m_zFolder / u"base.kiv"), KivSharedPtr<ISnapShotFile>(pShort));
  ASSERT_EQ(zContainer.GetStatus(), KivContainerStatus::Usable);
  EXPECT_REPORT_FROM(zContainer.SaveAs(m_zFolder / u"a.patch", false), "0", "src\\KivFastFileContainerBase");
  NoThrowScope zNoThrow;
  EXPECT_FALSE(zContainer.SaveAs(m_zFolder / u"a.patch", false));
  EXPECT_FALSE(KivFileExists(m_zFolder / u"a.patch.urf"));
}

TEST_F(ContainerSave, ASaveUnderACacheIsAPatchWithASideFileAndTheOpenFileStays) {
  {
    KivFastFileContainer zContainer(MakeFile(FileKind::Plain, m_zFolder, u"base.kiv"), MakeUnmanagedMemory(), nullptr);
    Make(zContainer, 300000);
  }
  const Bytes vcBase = FileBytes(u"base.kiv");
  const auto pzCached = OpenCached(m_zFolder / u"base.kiv");
  ASSERT_TRUE(pzCached);
  {
    KivFastFileContainer zContainer(pzCached, nullptr);
    ASSERT_EQ(zContainer.GetStatus(), KivContainerStatus::Usable);
    EXPECT_EQ(zContainer.AddRecord(KivContainerData("added", 5)), 264u);
    uint8_t acBefore[256];
    pzCached->Read(8, acBefore, sizeof acBefore);
    EXPECT_TRUE(zContainer.SaveAs(m_zFolder / u"a.patch", false));
    uint8_t acAfter[256];
    pzCached->Read(8, acAfter, sizeof acAfter);
    EXPECT_EQ(std::memcmp(acBefore, acAfter, sizeof acAfter), 0);
    EXPECT_EQ(FileBytes(u"a.patch.urf"), Content(*zContainer.GetUnusedRecordFile()));
  }
  EXPECT_EQ(FileBytes(u"base.kiv"), vcBase);
  // The patch replays on the base, with the header of the save in it.
  const auto pzAgain = OpenCached(m_zFolder / u"base.kiv");
  ASSERT_TRUE(pzAgain->LoadCache(m_zFolder / u"a.patch"));
  Bytes vcPatched(264 + 124);
  pzAgain->Read(0, vcPatched.data(), vcPatched.size());
  EXPECT_EQ(U64At(vcPatched, 8 + 80), FileBytes(u"a.patch.urf").size());
  EXPECT_EQ(std::string(vcPatched.begin() + 280, vcPatched.begin() + 285), "added");
}
