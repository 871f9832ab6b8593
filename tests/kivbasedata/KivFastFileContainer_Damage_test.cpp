// Damaged files below a cache, which never reads short, and payloads that must survive a report.
#include <gtest/gtest.h>

#include <filesystem>

#include "KivDataUtil.h"
#include "KivFastFileContainer.h"
#include "KivFormatRegistry.h"
#include "KivSysFolder.h"
#include "KivTestContainer.h"
#include "KivTestReport.h"
#include "KivTestReportSource.h"
#include "KivWritableMemFile.h"

using namespace kiv;
using namespace kivtest;

namespace {

constexpr uint64_t kTiB = uint64_t{1} << 40;

class ContainerDamage : public testing::Test {
 protected:
  ContainerDamage() { KivRegisterOwnFormat(); }
  // A file under a cache with these bytes.
  KivSharedPtr<ISnapShotFile> Cached(const Bytes& vcMain) {
    const KivWString csName = u"cached" + KivWString(1, static_cast<char16_t>(u'a' + m_nFiles++ % 26)) + u".kiv";
    m_zFolder.WriteBytes(csName, std::string(vcMain.begin(), vcMain.end()));
    return OpenCached(m_zFolder / csName);
  }
  TestFolder m_zFolder;

 private:
  uint32_t m_nFiles = 0;
};

// Records of 100 bytes at 264, 388, 512 and "hello" at 636, behind it an empty one; those in viFree are freed.
struct Row {
  explicit Row(const std::vector<Position>& viFree = {})
      : pzMain(MakeUnmanagedMemory()), pzUnused(MakeUnmanagedMemory()), zContainer(pzMain, pzUnused, nullptr) {
    for (int i = 0; i < 3; ++i) AddSize(zContainer, 100, static_cast<uint8_t>('a' + i));
    zContainer.AddRecord(KivContainerData("hello", 5));
    zContainer.AddRecord(KivContainerData("", 0));
    for (const Position iFile : viFree) zContainer.DeleteRecord(iFile);
    zContainer.Flush();
  }
  Bytes Main() { return Content(*pzMain); }
  KivSharedPtr<ISnapShotFile> pzMain;
  KivSharedPtr<ISnapShotFile> pzUnused;
  KivFastFileContainer zContainer;
};

constexpr Position kHello = 636;
constexpr Position kRowEnd = 689;

// A file in memory that hands out less than it has, and tells what it was asked to prefetch.
class OddFile : public KivWritableMemFile {
 public:
  explicit OddFile(const Bytes& vcContent) { m_vcData = vcContent; }
  bool CanUseDirectBuffer() override { return false; }
  bool IsRangeCached(uint64_t iStart, uint64_t iEnd, uint32_t iPriority) override {
    m_vzAsked.push_back({iStart, iEnd, iPriority});
    return m_vzAsked.size() != m_iRefused;
  }
  uint64_t DoRead(uint64_t iOffset, void* lpBuf, uint64_t nCount) override {
    return m_bShort ? 0 : KivWritableMemFile::DoRead(iOffset, lpBuf, nCount);
  }

  struct Asked {
    uint64_t m_iStart, m_iEnd;
    uint32_t m_iPriority;
    bool operator==(const Asked&) const = default;
  };
  std::vector<Asked> m_vzAsked;
  size_t m_iRefused = 0;  // the request that is refused, from 1
  bool m_bShort = false;
};

struct OddContainer {
  explicit OddContainer(const Bytes& vcMain)
      : pOdd(new OddFile(vcMain)), pzMain(KivSharedPtr<ISnapShotFile>(pOdd)), zContainer(pzMain, nullptr) {}
  OddFile* pOdd;
  KivSharedPtr<ISnapShotFile> pzMain;
  KivFastFileContainer zContainer;
};

}  // namespace

// --- Under a cache -------------------------------------------------------------------------------

TEST_F(ContainerDamage, AShortImageUnderACacheIsReportedAlthoughACachedFileNeverReadsShort) {
  Row z({264});
  const Bytes vcMain = z.Main();
  const Bytes vcImage = Content(*z.pzUnused);
  for (const size_t nCut : {1u, 100u, 367u}) {
    SCOPED_TRACE(nCut);
    const Bytes vcCut(vcMain.begin(), vcMain.end() - static_cast<ptrdiff_t>(nCut));
    EXPECT_REPORT_FROM(KivFastFileContainer(Cached(vcCut), nullptr),
                       "iRead == zHeaderInfo.zBaseFileHeaderInfo.m_iUnusedRecordFileLength",
                       "src\\KivFastFileContainerBase");
    NoThrowScope zNoThrow;
    KivFastFileContainer zContainer(Cached(vcCut), nullptr);
    EXPECT_EQ(zContainer.GetStatus(), KivContainerStatus::Usable);
    Bytes vcExpected = vcImage;
    std::fill(vcExpected.end() - static_cast<ptrdiff_t>(nCut), vcExpected.end(), uint8_t{0});
    EXPECT_EQ(Content(*zContainer.GetUnusedRecordFile()), vcExpected);
  }
}

TEST_F(ContainerDamage, AFileThatIsCutIntoItsRecordsUnderACacheReportsTheImageAndKeepsItsLength) {
  Row z;
  const Bytes vcMain = z.Main();
  const Bytes vcCut(vcMain.begin(), vcMain.begin() + 600);
  EXPECT_REPORT(KivFastFileContainer(Cached(vcCut), nullptr),
                "iRead == zHeaderInfo.zBaseFileHeaderInfo.m_iUnusedRecordFileLength");
  NoThrowScope zNoThrow;
  KivFastFileContainer zContainer(Cached(vcCut), nullptr);
  EXPECT_EQ(zContainer.GetUnusedRecordFile()->GetLength(), 368u);
  EXPECT_EQ(AddSize(zContainer, 10), NULL_FILE_INDEX);
  const KivContainerCheck zCheck = zContainer.FullCheck();
  ASSERT_FALSE(zCheck.m_vzFinding.empty());
  EXPECT_EQ(zCheck.m_vzFinding[0].m_iKind, KivContainerFindingKind::EndOutsideFile);
  EXPECT_EQ(zCheck.m_vzFinding[0].m_iValue, 600u);  // the file's length, not that of whole blocks
}

TEST_F(ContainerDamage, AShortImageLongerThanItsFileKeepsItsFullLength) {
  Row z;
  Bytes vcMain = z.Main();
  PutU64(vcMain, 8 + 80, 5000);
  vcMain.resize(1000);
  NoThrowScope zNoThrow;
  KivFastFileContainer zContainer(MakeUnmanagedMemory(vcMain), nullptr);
  EXPECT_EQ(zContainer.GetUnusedRecordFile()->GetLength(), 5000u);
}

TEST_F(ContainerDamage, PositionsBehindTheEndOfACachedFileAreReportedAndFetchNothing) {
  Row z;
  const auto pzCached = Cached(z.Main());
  KivFastFileContainer zContainer(pzCached, nullptr);
  EXPECT_EQ(TextOf(zContainer, kHello), "hello");
  const uint64_t iLength = pzCached->GetLength();  // of whole blocks, since one was read
  for (uint64_t k = 1; k <= 8; ++k) {
    for (const Position iFile : {z.Main().size() - 15, k * kTiB - 264, k * kTiB, (uint64_t{1} << 63) - k, UINT64_MAX}) {
      EXPECT_REPORT_FROM(zContainer.GetRecordWithSizes(iFile), "nRead == sizeof(Position)",
                         "src\\KivFastFileContainerBase");
      EXPECT_FALSE(zContainer.PrefetchRecord(iFile, 1));
    }
  }
  EXPECT_EQ(pzCached->GetLength(), iLength);
}

TEST_F(ContainerDamage, AnAddedRecordOfACachedFileIsReadThoughItLiesBehindTheLengthAtOpening) {
  Row z;
  KivFastFileContainer zContainer(Cached(z.Main()), nullptr);
  const Position iFirst = AddSize(zContainer, 100000, 0x21);
  const Position iSecond = AddSize(zContainer, 100000, 0x22);
  EXPECT_EQ(TextOf(zContainer, iFirst), std::string(100000, 0x21));
  EXPECT_EQ(TextOf(zContainer, iSecond), std::string(100000, 0x22));
  EXPECT_TRUE(zContainer.FullCheck().IsSound()) << zContainer.FullCheck().GetText();
  EXPECT_REPORT(zContainer.GetRecord(zContainer.GetEndPosition()), "nRead == sizeof(Position)");
}

TEST_F(ContainerDamage, APayloadThatReachesBehindACachedFileIsReportedAndNotPrefetched) {
  Row z;
  Bytes vcMain = z.Main();
  PutU64(vcMain, kHello, kTiB);
  PutU64(vcMain, kHello + 8, kTiB - 24);
  const auto pzCached = Cached(vcMain);
  KivFastFileContainer zContainer(pzCached, nullptr);
  EXPECT_FALSE(zContainer.PrefetchRecord(kHello, 1));
  EXPECT_REPORT_FROM(zContainer.GetRecord(kHello), "0", "src\\KivFastFileContainerBase");
  NoThrowScope zNoThrow;
  const KivContainerRecordWithSizes zRecord = zContainer.GetRecordWithSizes(kHello);
  EXPECT_FALSE(zRecord.m_pzFile);
  EXPECT_EQ(zRecord.m_iRecordSize, kTiB);
}

TEST_F(ContainerDamage, PairsThatNameFarPositionsOfACachedFileEndChecksAndDumpWithoutFetching) {
  Row z({264, 512});
  Bytes vcMain = z.Main();
  PutU64(vcMain, kRowEnd + 8 + 48, 3 * kTiB);       // position of the first pair
  PutU64(vcMain, kRowEnd + 8 + 64, 5 * kTiB + 77);  // of the second
  const auto pzCached = Cached(vcMain);
  KivFastFileContainer zContainer(pzCached, nullptr);
  EXPECT_REPORT(AddSize(zContainer, 100), "nRead == sizeof(Position)");
  NoThrowScope zNoThrow;
  std::map<Position, bool> mapUsed;
  EXPECT_TRUE(zContainer.CheckConsistency());
  EXPECT_TRUE(zContainer.Dump(m_zFolder / u"dump.txt", mapUsed));
  EXPECT_EQ(mapUsed.size(), 5u);
  EXPECT_FALSE(zContainer.FullCheck().IsSound());
  EXPECT_EQ(AddSize(zContainer, 100), kRowEnd);
  EXPECT_LT(pzCached->GetLength(), 1000000u);
}

TEST_F(ContainerDamage, ACopyOfAContainerWhoseEndLiesBehindItsFileIsRefusedBeforeAnythingIsWritten) {
  Row z;
  Bytes vcMain = z.Main();
  PutU64(vcMain, 8 + 72, kTiB - 0x20000);
  NoThrowScope zNoThrow;
  KivFastFileContainer zContainer(Cached(vcMain), nullptr);
  ASSERT_EQ(zContainer.GetStatus(), KivContainerStatus::Usable);
  EXPECT_FALSE(zContainer.SaveAs(m_zFolder / u"a.patch", false));
  EXPECT_FALSE(KivFileExists(m_zFolder / u"a.patch"));
  EXPECT_FALSE(KivFileExists(m_zFolder / u"a.patch.urf"));
  EXPECT_EQ(zContainer.SaveInSlices(m_zFolder / u"b.kiv", 0), KivSaveInSlicesResult::NothingBehindRecords);
  EXPECT_EQ(m_zFolder.ReadBytes(u"b.kiv"), "");
  KivSetReportNoThrow(false);
  EXPECT_REPORT_FROM(zContainer.SaveAs(m_zFolder / u"a.patch", false), "0", "src\\KivFastFileContainerBase");
  EXPECT_REPORT_FROM(zContainer.SaveInSlices(m_zFolder / u"c.kiv", 0), "0", "src\\KivFastFileContainerBase");
  KivSetReportNoThrow(true);
}

// --- The image ------------------------------------------------------------------------------------

TEST_F(ContainerDamage, AnImageThatCannotBeReadStaysToBeReadAndIsNotFlushedOver) {
  Row z({264});
  const Bytes vcMain = z.Main();
  OddContainer y(vcMain);
  y.pOdd->m_bShort = true;
  EXPECT_REPORT(y.zContainer.GetUnusedRecordFile(),
                "iRead == zHeaderInfo.zBaseFileHeaderInfo.m_iUnusedRecordFileLength");
  EXPECT_REPORT(AddSize(y.zContainer, 100), "iRead == zHeaderInfo.zBaseFileHeaderInfo.m_iUnusedRecordFileLength");
  y.zContainer.SetHeaderDirty();
  EXPECT_NE(ReportOf([&] { y.zContainer.Flush(); }), u"");
  EXPECT_EQ(y.pOdd->m_vcData, vcMain);
  y.pOdd->m_bShort = false;
  EXPECT_EQ(Content(*y.zContainer.GetUnusedRecordFile()), Content(*z.pzUnused));
  EXPECT_EQ(AddSize(y.zContainer, 100), 264u);
}

// --- Moving --------------------------------------------------------------------------------------

TEST_F(ContainerDamage, AMoveWhoseWalkMeetsARecordThatReachesBehindTheEndStoresAnewWithoutAReport) {
  for (const uint64_t iSize : {uint64_t{1} << 62, UINT64_MAX - 10, kRowEnd - uint64_t{388} + 1}) {
    Row z;
    z.pzMain->Write(388, &iSize, 8);
    Position iStart = 0;
    Position iStoredAt = 0;
    EXPECT_NO_REPORT(EXPECT_EQ(z.zContainer.MoveRecord(kHello, iStart, &iStoredAt), 0u));
    EXPECT_EQ(iStart, 0u);
    EXPECT_EQ(TextOf(z.zContainer, iStoredAt), "hello");
  }
}

TEST_F(ContainerDamage, AMoveTakesAFreeRecordThatTheTreeDoesNotKnowBehindAReport) {
  const uint64_t iOther = 1;
  {
    Row z({264});
    z.pzUnused->Write(8 + 48, &iOther, 8);  // the pair names another position
    Position iStart = 0;
    Position iStoredAt = 0;
    EXPECT_REPORT_FROM(z.zContainer.MoveRecord(kHello, iStart, &iStoredAt), "0", "src\\KivFastFileContainerBase");
    EXPECT_EQ(TextOf(z.zContainer, iStoredAt), "hello");
  }
  Row z({264});
  z.pzUnused->Write(8 + 48, &iOther, 8);
  NoThrowScope zNoThrow;
  Position iStart = 0;
  Position iStoredAt = 0;
  EXPECT_EQ(z.zContainer.MoveRecord(kHello, iStart, &iStoredAt), 264u);
  EXPECT_EQ(iStart, 264u);
  EXPECT_EQ(TextOf(z.zContainer, 264), "hello");
}

TEST_F(ContainerDamage, AMovePassesOverAFreeRecordThatDoesNotPointBackAtItself) {
  Row z({264});
  const uint64_t iWrong = 3;
  z.pzMain->Write(388 - 8, &iWrong, 8);
  Position iStart = 0;
  EXPECT_EQ(z.zContainer.MoveRecord(kHello, iStart), kHello);  // the next that fits is its own old place
  EXPECT_EQ(TextOf(z.zContainer, kHello), "hello");
}

TEST_F(ContainerDamage, AMoveInADamagedTreeKeepsThePayloadWhateverThrows) {
  // Each byte of the only node changed in turn: where the report comes from differs, the payload is always there.
  const uint64_t nBytes = 8 + 40 + 32;
  for (uint64_t i = 8; i < nBytes; ++i) {
    Row z({264});
    const uint8_t cWrong = static_cast<uint8_t>(Content(*z.pzUnused)[static_cast<size_t>(i)] ^ 0xFF);
    z.pzUnused->Write(i, &cWrong, 1);
    Position iStart = 0;
    Position iStoredAt = 0;
    try {
      z.zContainer.MoveRecord(kHello, iStart, &iStoredAt);
    } catch (const KivException&) {
    }
    ASSERT_NE(iStoredAt, NULL_FILE_INDEX) << i;
    EXPECT_EQ(TextOf(z.zContainer, iStoredAt), "hello") << i;
  }
}

TEST_F(ContainerDamage, AFailedFreeOfAMoveLeavesTheRecordWhereItWas) {
  Row z({512});
  const uint64_t iOther = 1;
  z.pzUnused->Write(8 + 48, &iOther, 8);  // the free neighbour in front of "hello" is not in the tree
  Position iStart = 0;
  Position iStoredAt = 0;
  EXPECT_REPORT_FROM(z.zContainer.MoveRecord(kHello, iStart, &iStoredAt), "0", "src\\KivFastFileContainerBase");
  EXPECT_EQ(iStoredAt, kHello);
  EXPECT_EQ(TextOf(z.zContainer, kHello), "hello");
}

namespace {

// 5 GiB by its length, of which only the first bytes and the last back pointer are there.
class HugeFile : public OddFile {
 public:
  static constexpr uint64_t kLength = uint64_t{5} << 30;
  using OddFile::OddFile;
  uint64_t DoGetLength() override { return kLength; }
  uint64_t DoRead(uint64_t iOffset, void* lpBuf, uint64_t nCount) override {
    std::memset(lpBuf, 0, nCount);
    if (iOffset < m_vcData.size()) {
      const uint64_t nHere = std::min<uint64_t>(nCount, m_vcData.size() - iOffset);
      std::memcpy(lpBuf, m_vcData.data() + iOffset, nHere);
    }
    if (iOffset == kLength - 8 && nCount == 8) KivStore<uint64_t>(static_cast<uint8_t*>(lpBuf), kHello);
    return nCount;
  }
};

}  // namespace

TEST_F(ContainerDamage, ARecordWithAPayloadOf4GiBOrMoreIsNotMoved) {
  Row z;
  Bytes vcMain = z.Main();
  PutU64(vcMain, 8 + 72, HugeFile::kLength);
  PutU64(vcMain, 8 + 80, 0);
  PutU64(vcMain, kHello, HugeFile::kLength - kHello);
  PutU64(vcMain, kHello + 8, (uint64_t{1} << 32) + 5);
  auto* const pHuge = new HugeFile(vcMain);
  KivFastFileContainer zContainer(KivSharedPtr<ISnapShotFile>(pHuge), nullptr);
  EXPECT_EQ(zContainer.GetRecordWithSizes(kHello).m_iFileSize, (uint64_t{1} << 32) + 5);
  Position iStart = 0;
  EXPECT_REPORT_FROM(zContainer.MoveRecord(kHello, iStart), "0", "src\\KivFastFileContainerBase");
  NoThrowScope zNoThrow;
  EXPECT_EQ(zContainer.MoveRecord(kHello, iStart), kHello);
  EXPECT_EQ(pHuge->m_vcData, vcMain);
}

// --- Prefetch ------------------------------------------------------------------------------------

TEST_F(ContainerDamage, PrefetchAsksForTheHeadAndThenForThePayloadOfARecordInUse) {
  Row z({264});
  OddContainer y(z.Main());
  EXPECT_TRUE(y.zContainer.PrefetchRecord(kHello, 3));
  EXPECT_EQ(y.pOdd->m_vzAsked, (std::vector<OddFile::Asked>{{kHello, kHello + 16, 3}, {kHello + 16, kHello + 21, 3}}));
  y.pOdd->m_vzAsked.clear();
  EXPECT_TRUE(y.zContainer.PrefetchRecord(264, 2));  // free: the head is all
  EXPECT_EQ(y.pOdd->m_vzAsked, (std::vector<OddFile::Asked>{{264, 280, 2}}));
}

TEST_F(ContainerDamage, PrefetchIsFalseWhereTheFileRefusesTheHeadOrThePayload) {
  Row z;
  for (const size_t iRefused : {1u, 2u}) {
    OddContainer y(z.Main());
    y.pOdd->m_iRefused = iRefused;
    EXPECT_FALSE(y.zContainer.PrefetchRecord(kHello, 1));
    EXPECT_EQ(y.pOdd->m_vzAsked.size(), iRefused);
  }
}

// --- Mapped --------------------------------------------------------------------------------------

TEST_F(ContainerDamage, AFileThatIsTooShortIsSeenAsThatThoughItsMappingMakesItABlockLong) {
  Row z;
  const Bytes vcMain = z.Main();
  const auto Mapped = [&](size_t nLength) {
    m_zFolder.WriteBytes(u"cut.kiv", std::string(vcMain.begin(), vcMain.begin() + static_cast<ptrdiff_t>(nLength)));
    return OpenFile(FileKind::Mapped, m_zFolder / u"cut.kiv");
  };
  EXPECT_REPORT(KivFastFileContainer(Mapped(200), nullptr), "iRead == 256");
  EXPECT_REPORT(KivFastFileContainer(Mapped(vcMain.size() - 100), nullptr),
                "iRead == zHeaderInfo.zBaseFileHeaderInfo.m_iUnusedRecordFileLength");
  EXPECT_REPORT(KivFastFileContainer(Mapped(600), nullptr),
                "iRead == zHeaderInfo.zBaseFileHeaderInfo.m_iUnusedRecordFileLength");
  NoThrowScope zNoThrow;
  EXPECT_EQ(KivFastFileContainer(Mapped(200), nullptr).GetStatus(), KivContainerStatus::ShortHeader);
  KivFastFileContainer zContainer(Mapped(600), nullptr);
  EXPECT_EQ(AddSize(zContainer, 10), NULL_FILE_INDEX);
  const KivContainerCheck zCheck = zContainer.FullCheck();
  ASSERT_FALSE(zCheck.m_vzFinding.empty());
  EXPECT_EQ(zCheck.m_vzFinding[0].m_iKind, KivContainerFindingKind::EndOutsideFile);
  EXPECT_EQ(zCheck.m_vzFinding[0].m_iValue, 600u);
}

TEST_F(ContainerDamage, AMappedFileThatAnotherProcessCutsIsReportedByTheOperationsThatFollow) {
  const auto pzMain = MakeFile(FileKind::Mapped, m_zFolder, u"main.kiv");
  KivFastFileContainer zContainer(pzMain, MakeFile(FileKind::Mapped, m_zFolder, u"main.urf"), nullptr);
  for (int i = 0; i < 4; ++i) AddSize(zContainer, 100000);
  const Position iLast = 264 + 3 * 100024;
  std::error_code zError;
  std::filesystem::resize_file(std::filesystem::path(m_zFolder / u"main.kiv"), 65536, zError);
  if (zError) {  // the system refuses to cut a mapped file
    EXPECT_NO_REPORT(EXPECT_EQ(zContainer.GetRecord(iLast).m_iFileSize, 100000u));
    return;
  }
  NoThrowScope zNoThrow;
  zContainer.GetRecord(iLast);  // zeros, which nobody can tell from the file's own
  const uint64_t nBefore = KivGetReportCount();
  zContainer.GetRecord(264);
  EXPECT_GT(KivGetReportCount(), nBefore);
  KivSetReportNoThrow(false);
  EXPECT_NE(ReportOf([&] { zContainer.GetRecord(264); }), u"");
  KivSetReportNoThrow(true);
}
