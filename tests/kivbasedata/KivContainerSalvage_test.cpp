// Salvage of damaged containers, long runs against a map, killed writers, equal bytes on all targets.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>

#include "KivException.h"
#include "KivFastFileContainer.h"
#include "KivFileFactory.h"
#include "KivFormatRegistry.h"
#include "KivSysFile.h"
#include "KivTestChild.h"
#include "KivTestContainer.h"
#include "KivTestReport.h"
#include "KivTestScale.h"
#include "KivWritableMemFile.h"

using namespace kiv;
using namespace kivtest;

namespace {

class ContainerSalvage : public testing::Test {
 protected:
  ContainerSalvage() { KivRegisterOwnFormat(); }
  TestFolder m_zFolder;
};

Bytes PayloadOf(uint64_t iSeed, size_t iSize) {
  std::mt19937_64 zRandom(iSeed);
  Bytes vcPayload(iSize);
  for (uint8_t& c : vcPayload) c = static_cast<uint8_t>(zRandom());
  return vcPayload;
}

Bytes PayloadAt(KivFastFileContainer& zContainer, Position iFile) {
  const KivContainerRecord zRecord = zContainer.GetRecord(iFile);
  if (!zRecord.m_pzFile) return {};
  Bytes vcPayload(zRecord.m_iFileSize);
  if (!vcPayload.empty()) zRecord.m_pzFile->Read(zRecord.m_iOffset, vcPayload.data(), vcPayload.size());
  return vcPayload;
}

Position AddBytes(KivFastFileContainer& zContainer, const Bytes& vcPayload) {
  static const uint8_t cNone = 0;
  return zContainer.AddRecord(
      KivContainerData(vcPayload.empty() ? &cNone : vcPayload.data(), static_cast<uint32_t>(vcPayload.size())));
}

// A container over memory with ten records of 200 to 209 bytes, of which the fourth is free.
struct Ten {
  Ten() : pzMain(MakeUnmanagedMemory()) {
    KivFastFileContainer zContainer(pzMain, MakeUnmanagedMemory(), nullptr);
    for (uint64_t i = 0; i < 10; ++i)
      viFile.push_back(AddBytes(zContainer, PayloadOf(i, static_cast<size_t>(200 + i))));
    zContainer.DeleteRecord(viFile[3]);
    zContainer.Flush();
    iEnd = zContainer.GetEndPosition();
  }
  KivSharedPtr<ISnapShotFile> pzMain;
  std::vector<Position> viFile;
  uint64_t iEnd = 0;
};

// Salvages and checks that the records other than the given ones are there.
KivSalvageReport SalvageTen(const Ten& z, const Bytes& vcDamaged, const std::vector<size_t>& viLost) {
  const auto pzDamaged = MakeUnmanagedMemory(vcDamaged);
  const auto pzNew = MakeMemory();
  const KivSalvageReport zReport = KivSalvageContainer(*pzDamaged, pzNew);
  EXPECT_TRUE(zReport.m_bDone);
  EXPECT_EQ(Content(*pzDamaged), vcDamaged);
  KivFastFileContainer zContainer(pzNew, nullptr);
  EXPECT_EQ(zContainer.GetStatus(), KivContainerStatus::Usable);
  EXPECT_TRUE(zContainer.FullCheck().IsSound()) << zContainer.FullCheck().GetText();
  for (size_t i = 0; i < 10; ++i) {
    if (i == 3 || std::find(viLost.begin(), viLost.end(), i) != viLost.end()) continue;
    EXPECT_EQ(PayloadAt(zContainer, z.viFile[i]), PayloadOf(i, 200 + i)) << i;
  }
  EXPECT_EQ(zReport.m_iUsedRecordNum, 9 - viLost.size());
  return zReport;
}

}  // namespace

TEST_F(ContainerSalvage, ASoundFileLosesNothing) {
  Ten z;
  const KivSalvageReport zReport = SalvageTen(z, Content(*z.pzMain), {});
  EXPECT_TRUE(zReport.m_bHeaderKept);
  EXPECT_TRUE(zReport.m_vzLost.empty()) << zReport.GetText();
  EXPECT_EQ(zReport.m_iFreeRecordNum, 1u);
  EXPECT_EQ(zReport.m_iEndPosition, z.iEnd);
}

TEST_F(ContainerSalvage, ALostRecordIsListedAndBecomesFreeSpace) {
  Ten z;
  Bytes vcMain = Content(*z.pzMain);
  PutU64(vcMain, z.viFile[6], 5);
  const KivSalvageReport zReport = SalvageTen(z, vcMain, {6});
  ASSERT_EQ(zReport.m_vzLost.size(), 1u);
  EXPECT_EQ(zReport.m_vzLost[0].m_iPosition, z.viFile[6]);
  EXPECT_EQ(zReport.m_vzLost[0].m_iSize, 206u + 24u);
  EXPECT_EQ(zReport.m_iLostBytes, 230u);
  EXPECT_EQ(zReport.GetText(), "lost 230 bytes at " + std::to_string(z.viFile[6]) + "\n");
  EXPECT_EQ(zReport.m_iFreeRecordNum, 2u);
}

TEST_F(ContainerSalvage, ALostRecordBesideFreeSpaceMergesWithIt) {
  Ten z;
  Bytes vcMain = Content(*z.pzMain);
  PutU64(vcMain, z.viFile[4] - 8, 1);  // the free record's back pointer
  PutU64(vcMain, z.viFile[4], 1);
  const KivSalvageReport zReport = SalvageTen(z, vcMain, {4});
  EXPECT_EQ(zReport.m_vzLost.size(), 1u);
  EXPECT_EQ(zReport.m_iFreeRecordNum, 1u);
}

TEST_F(ContainerSalvage, AHeaderThatIsGoneIsReplacedByADefaultOne) {
  Ten z;
  Bytes vcMain = Content(*z.pzMain);
  std::fill_n(vcMain.begin(), 264, uint8_t{0xEE});
  const KivSalvageReport zReport = SalvageTen(z, vcMain, {});
  EXPECT_FALSE(zReport.m_bHeaderKept);
  EXPECT_TRUE(zReport.m_vzLost.empty());
}

TEST_F(ContainerSalvage, AHeaderThatThisProcessWouldRefuseIsReplacedAndItsTablesAreKept) {
  Ten z;
  for (const size_t iOffset : {0u, 8u, 16u, 43u, 55u, 56u}) {  // generation, mark, minor version, floats, application
    SCOPED_TRACE(iOffset);
    Bytes vcMain = Content(*z.pzMain);
    vcMain[8 + iOffset] ^= 0x5A;
    PutU64(vcMain, 8 + 120, z.viFile[2]);
    PutU32(vcMain, 8 + 140, 1);
    const KivSalvageReport zReport = SalvageTen(z, vcMain, {});  // which opens the new file
    EXPECT_FALSE(zReport.m_bHeaderKept);
    EXPECT_FALSE(zReport.m_bPositionTableLost);
    const auto pzNew = MakeMemory();
    KivSalvageContainer(*MakeUnmanagedMemory(vcMain), pzNew);
    EXPECT_EQ(U64At(Content(*pzNew), 8 + 120), z.viFile[2]);
    EXPECT_EQ(U32At(Content(*pzNew), 8 + 140), 1u);
    EXPECT_EQ(U32At(Content(*pzNew), 8 + 56), 5u);
  }
}

TEST_F(ContainerSalvage, OneOfTheByteOrderMarksIsEnoughToTakeTheTablesAndNoneIsNot) {
  Ten z;
  for (const uint32_t iDamaged : {1u, 2u, 3u}) {
    Bytes vcMain = Content(*z.pzMain);
    PutU64(vcMain, 8 + 120, z.viFile[2]);
    if ((iDamaged & 1) != 0) vcMain[8 + 28] ^= 1;
    if ((iDamaged & 2) != 0) vcMain[8 + 32] ^= 1;
    const auto pzNew = MakeMemory();
    EXPECT_FALSE(KivSalvageContainer(*MakeUnmanagedMemory(vcMain), pzNew).m_bHeaderKept);
    EXPECT_EQ(U64At(Content(*pzNew), 8 + 120), iDamaged != 3 ? z.viFile[2] : 0u);
  }
}

TEST_F(ContainerSalvage, RecordsOfThePreviousGenerationStayThatEvenIfTheirHeaderIsReplaced) {
  Ten z;
  for (const bool bDamaged : {false, true}) {
    Bytes vcMain = Content(*z.pzMain);
    std::fill_n(vcMain.begin() + 8, 8, uint8_t{0x13});
    if (bDamaged) vcMain[8] = 0xEE;  // seven are left
    const auto pzNew = MakeMemory();
    EXPECT_EQ(KivSalvageContainer(*MakeUnmanagedMemory(vcMain), pzNew).m_bHeaderKept, !bDamaged);
    KivFastFileContainer zContainer(pzNew, nullptr);
    EXPECT_EQ(zContainer.GetStatus(), KivContainerStatus::Usable);
    EXPECT_EQ(zContainer.GetGeneration(), 0x13);
  }
}

namespace {

// A disk on which a stretch cannot be read.
class BadDisk : public KivWritableMemFile {
 public:
  bool CanUseDirectBuffer() override { return false; }
  uint64_t DoRead(uint64_t iOffset, void* lpBuf, uint64_t nCount) override {
    if (iOffset + nCount <= m_iBadFrom || iOffset >= m_iBadTo)
      return KivWritableMemFile::DoRead(iOffset, lpBuf, nCount);
    if (m_bReports) KivReportFailure("0", "BadDisk", 1);
    return iOffset < m_iBadFrom ? KivWritableMemFile::DoRead(iOffset, lpBuf, m_iBadFrom - iOffset) : 0;
  }
  uint64_t m_iBadFrom = 0;
  uint64_t m_iBadTo = 0;
  bool m_bReports = false;
};

}  // namespace

namespace {

void SalvageFromABadDisk(bool bFreeInFront) {
  std::vector<Position> viFile;
  const auto pzMain = MakeUnmanagedMemory();
  {
    KivFastFileContainer zContainer(pzMain, MakeUnmanagedMemory(), nullptr);
    for (uint64_t i = 0; i < 10; ++i) viFile.push_back(AddBytes(zContainer, PayloadOf(i, 20000)));
    if (bFreeInFront) zContainer.DeleteRecord(viFile[3]);
    zContainer.Flush();
  }
  const uint64_t nFree = bFreeInFront ? 1 : 0;
  for (const uint64_t iInRecord : {0u, 9000u, 20020u})  // its head, its payload, its back pointer
    for (const bool bReports : {false, true}) {
      SCOPED_TRACE(iInRecord);
      BadDisk zDisk;
      zDisk.m_vcData = Content(*pzMain);
      zDisk.m_iBadFrom = viFile[4] + iInRecord;
      zDisk.m_iBadTo = zDisk.m_iBadFrom + 1;
      zDisk.m_bReports = bReports;
      const auto pzNew = MakeMemory();
      const KivSalvageReport zReport = KivSalvageContainer(zDisk, pzNew);
      EXPECT_TRUE(zReport.m_bDone);
      EXPECT_TRUE(zReport.m_bHeaderKept);
      EXPECT_EQ(zReport.m_iEndPosition, viFile[9] + 20024);
      zDisk.m_iBadFrom = zDisk.m_iBadTo = 0;
      KivFastFileContainer zContainer(pzNew, nullptr);
      const KivContainerCheck zCheck = zContainer.FullCheck();
      EXPECT_TRUE(zCheck.IsSound()) << zCheck.GetText();
      EXPECT_EQ(zCheck.m_iUsedRecordNum, zReport.m_iUsedRecordNum);
      // The piece that cannot be read reaches into a neighbour's head or back pointer at most.
      EXPECT_GE(zReport.m_iUsedRecordNum + nFree, iInRecord == 9000 ? 9u : 8u);
      EXPECT_FALSE(zContainer.GetRecord(viFile[4]).m_pzFile);
      for (size_t i = 0; i < 10; ++i)
        if (i < 3 || i > 5) {
          EXPECT_EQ(PayloadAt(zContainer, viFile[i]), PayloadOf(i, 20000)) << i;
        }
      if (iInRecord == 9000) {
        ASSERT_EQ(zReport.m_vzLost.size(), 1u);
        EXPECT_EQ(zReport.m_vzLost[0].m_iPosition, viFile[4]);
        EXPECT_EQ(zReport.m_iLostBytes, 20024u);
      }
    }
}

}  // namespace

TEST_F(ContainerSalvage, ARecordThatTheDiskDoesNotGiveIsLostAndFreeAndNoOther) {
  SalvageFromABadDisk(false);
}

TEST_F(ContainerSalvage, ARecordThatTheDiskDoesNotGiveBehindAFreeOneMakesOneFreeRecordWithIt) {
  SalvageFromABadDisk(true);
}

TEST_F(ContainerSalvage, ATreeThatIsGoneIsBuiltAnew) {
  Ten z;
  Bytes vcMain = Content(*z.pzMain);
  std::fill(vcMain.begin() + static_cast<ptrdiff_t>(z.iEnd), vcMain.end(), uint8_t{0xEE});
  SalvageTen(z, vcMain, {});
  vcMain.resize(static_cast<size_t>(z.iEnd));
  SalvageTen(z, vcMain, {});
}

TEST_F(ContainerSalvage, ACutFileLosesWhatBehindTheCutWasAndSaysSo) {
  Ten z;
  Bytes vcMain = Content(*z.pzMain);
  vcMain.resize(static_cast<size_t>(z.viFile[8]) + 50);
  const KivSalvageReport zReport = SalvageTen(z, vcMain, {8, 9});
  ASSERT_EQ(zReport.m_vzLost.size(), 1u);
  EXPECT_EQ(zReport.m_vzLost[0].m_iPosition, z.viFile[8]);
  EXPECT_EQ(zReport.m_iEndPosition, z.viFile[8]);
}

TEST_F(ContainerSalvage, RecordsBehindAStaleEndAreFound) {
  Ten z;
  Bytes vcMain = Content(*z.pzMain);
  PutU64(vcMain, 8 + 72, z.viFile[5]);
  const KivSalvageReport zReport = SalvageTen(z, vcMain, {});
  EXPECT_EQ(zReport.m_iEndPosition, z.iEnd);
}

TEST_F(ContainerSalvage, TheFirstPositionTableIsKeptIfItIsARecord) {
  Ten z;
  for (const bool bThere : {true, false}) {
    Bytes vcMain = Content(*z.pzMain);
    PutU64(vcMain, 8 + 120, bThere ? z.viFile[2] : z.viFile[3]);
    PutU32(vcMain, 8 + 140, 1);
    const auto pzNew = MakeMemory();
    const KivSalvageReport zReport = KivSalvageContainer(*MakeUnmanagedMemory(vcMain), pzNew);
    EXPECT_EQ(zReport.m_bPositionTableLost, !bThere);
    KivFastFileContainer zContainer(pzNew, nullptr);
    EXPECT_EQ(zContainer.GetFirstPositionTable(), bThere ? z.viFile[2] : 0u);
    EXPECT_EQ(U32At(Content(*pzNew), 8 + 140), 1u);
  }
}

TEST_F(ContainerSalvage, AnEmptyOrShortFileGivesAnEmptyContainer) {
  for (const size_t iSize : {0u, 8u, 200u, 264u, 287u}) {
    const auto pzNew = MakeMemory();
    const KivSalvageReport zReport = KivSalvageContainer(*MakeUnmanagedMemory(Bytes(iSize)), pzNew);
    EXPECT_TRUE(zReport.m_bDone);
    EXPECT_EQ(zReport.m_iUsedRecordNum, 0u);
    KivFastFileContainer zContainer(pzNew, nullptr);
    EXPECT_TRUE(zContainer.FullCheck().IsSound());
  }
}

// --- Long runs against a map ---------------------------------------------------------------------

namespace {

void RunAgainstMap(const TestFolder& zFolder, FileKind iKind, uint64_t iSeed, int iSteps) {
  SCOPED_TRACE(std::string(NameOf(iKind)) + ", seed " + std::to_string(iSeed));
  std::mt19937_64 zRandom(iSeed);
  std::map<Position, Bytes> mapModel;
  KivSharedPtr<ISnapShotFile> pzMain = MakeFile(iKind, zFolder, u"run.kiv");
  auto pzContainer = std::make_unique<KivFastFileContainer>(pzMain, MakeFile(iKind, zFolder, u"run.urf"), nullptr);
  const auto Any = [&] {
    auto it = mapModel.lower_bound(zRandom() % (pzContainer->GetEndPosition() + 1));
    return it != mapModel.end() ? it : mapModel.begin();
  };
  for (int i = 1; i <= iSteps; ++i) {
    const uint64_t iWhat = zRandom() % 1000;
    if (mapModel.empty() || iWhat < 480) {
      Bytes vcPayload = PayloadOf(zRandom(), static_cast<size_t>(zRandom() % (zRandom() % 20 == 0 ? 20000 : 500)));
      const Position iFile = AddBytes(*pzContainer, vcPayload);
      ASSERT_TRUE(mapModel.emplace(iFile, std::move(vcPayload)).second);
    } else if (iWhat < 880) {
      const auto it = Any();
      ASSERT_EQ(PayloadAt(*pzContainer, it->first), it->second);
      pzContainer->DeleteRecord(it->first);
      mapModel.erase(it);
    } else if (iWhat < 980) {
      const auto it = Any();
      Bytes vcPayload = std::move(it->second);
      const Position iFile = it->first;
      mapModel.erase(it);
      Position iStart = mapModel.empty() ? 0 : mapModel.begin()->first;
      Position iStoredAt = 0;
      const Position iMoved = pzContainer->MoveRecord(iFile, iStart, &iStoredAt);
      ASSERT_TRUE(iMoved == 0 || iMoved == iStoredAt);
      ASSERT_TRUE(mapModel.emplace(iStoredAt, std::move(vcPayload)).second);
    } else if (iWhat < 997) {
      pzContainer->Flush();
    } else {
      pzContainer.reset();
      pzContainer = std::make_unique<KivFastFileContainer>(pzMain, nullptr);
      ASSERT_EQ(pzContainer->GetStatus(), KivContainerStatus::Usable);
    }
    if (i % 1000 == 0 || i == iSteps) {
      const KivContainerCheck zCheck = pzContainer->FullCheck();
      ASSERT_TRUE(zCheck.IsSound()) << zCheck.GetText();
      ASSERT_EQ(zCheck.m_iUsedRecordNum, mapModel.size());
      for (const auto& [iFile, vcPayload] : mapModel) ASSERT_EQ(PayloadAt(*pzContainer, iFile), vcPayload);
    }
  }
}

}  // namespace

TEST_F(ContainerSalvage, LongRandomRunsAgreeWithAMapOnEveryKindOfFile) {
  RunAgainstMap(m_zFolder, FileKind::Memory, 101, ScaledSteps(20000));
  RunAgainstMap(m_zFolder, FileKind::Mapped, 102, ScaledSteps(20000));
  RunAgainstMap(m_zFolder, FileKind::Plain, 103, ScaledSteps(6000));
}

TEST_F(ContainerSalvage, TheSameOperationsGiveTheSameBytesOnEveryTarget) {
  std::mt19937_64 zRandom(2026);
  const auto pzMain = MakeUnmanagedMemory();
  auto pzContainer = std::make_unique<KivFastFileContainer>(pzMain, MakeUnmanagedMemory(), nullptr);
  std::vector<Position> viFile;
  int nMoved = 0;
  for (int i = 0; i < 6000; ++i) {
    const uint64_t iWhat = zRandom() % 100;
    const size_t iAny = static_cast<size_t>(zRandom() % (viFile.size() + 1));
    if (iAny == viFile.size() || iWhat < 50) {
      viFile.push_back(AddBytes(*pzContainer, PayloadOf(zRandom(), static_cast<size_t>(zRandom() % 700))));
    } else if (iWhat < 90) {
      pzContainer->DeleteRecord(viFile[iAny]);
      viFile[iAny] = viFile.back();
      viFile.pop_back();
    } else {
      Position iStart = 264;
      Position iStoredAt = 0;
      if (pzContainer->MoveRecord(viFile[iAny], iStart, &iStoredAt) != 0) ++nMoved;
      viFile[iAny] = iStoredAt;
    }
    if (i % 1000 == 999) {
      pzContainer.reset();
      pzContainer = std::make_unique<KivFastFileContainer>(pzMain, nullptr);
      ASSERT_EQ(pzContainer->GetStatus(), KivContainerStatus::Usable);
    }
  }
  EXPECT_GT(nMoved, 100);
  EXPECT_TRUE(pzContainer->FullCheck().IsSound());
  pzContainer->Flush();
  Bytes vcMain = Content(*pzMain);
  std::fill_n(vcMain.begin() + 68, 8, uint8_t{0});  // the executable's own write time
  uint64_t iHash = 0xCBF29CE484222325;
  for (const uint8_t c : vcMain) iHash = (iHash ^ c) * 0x100000001B3;
  EXPECT_EQ(vcMain.size(), 256298u);
  EXPECT_EQ(iHash, 15153305478489393403u);
}

// --- Killed writers ------------------------------------------------------------------------------

namespace {

// A log of operations beside the container, one line each, flushed before (b) and after (e) the operation.
//   a <position> <seed> <size>   added
//   d <position>                 about to be freed
//   f                            flushed
struct LoggedRecord {
  uint64_t iSeed;
  size_t iSize;
};

}  // namespace

KIV_TEST_CHILD(ContainerWriter) {
  KivRegisterOwnFormat();
  std::mt19937_64 zRandom(std::stoull(std::string(vcsArgs[2].begin(), vcsArgs[2].end())));
  std::ofstream zLog(std::filesystem::path(vcsArgs[1]), std::ios::binary);
  KivSysOpenMode zMode;
  zMode.m_iAccess = KivSysAccess::ReadWrite;
  zMode.m_iShare = KivSysShare::None;
  zMode.m_iDisposition = KivSysDisposition::CreateAlways;
  const bool bMapped = vcsArgs[3] == u"mapped";
  const auto pzMain = bMapped ? KivCreateMappedFile(KivSysFile::Open(vcsArgs[0], zMode))
                              : KivCreateFile(KivSysFile::Open(vcsArgs[0], zMode));
  KivFastFileContainer zContainer(pzMain, MakeMemory(), nullptr);
  std::vector<Position> viFile;
  for (;;) {
    const uint64_t iWhat = zRandom() % 100;
    if (viFile.size() < 20 || (iWhat < 52 && viFile.size() < 3000)) {
      const uint64_t iSeed = zRandom();
      const size_t iSize = static_cast<size_t>(zRandom() % 3000);
      const Position iFile = AddBytes(zContainer, PayloadOf(iSeed, iSize));
      zLog << "a " << iFile << " " << iSeed << " " << iSize << "\n" << std::flush;
      viFile.push_back(iFile);
    } else if (iWhat < 98) {
      const size_t iAny = static_cast<size_t>(zRandom() % viFile.size());
      zLog << "d " << viFile[iAny] << "\n" << std::flush;
      zContainer.DeleteRecord(viFile[iAny]);
      viFile[iAny] = viFile.back();
      viFile.pop_back();
    } else {
      zContainer.Flush();
      zLog << "f\n" << std::flush;
    }
  }
}

TEST_F(ContainerSalvage, RecordsCompleteBeforeTheLastFlushSurviveAKilledWriter) {
  std::mt19937_64 zRandom(4);
  const int iRounds = ScaledSteps(16);
  for (int iRound = 0; iRound < iRounds; ++iRound) {
    const std::string strSeed = std::to_string(1000 + iRound);
    SCOPED_TRACE("seed " + strSeed);
    const KivWString csSeed(strSeed.begin(), strSeed.end());
    const KivWString csMain = m_zFolder / (csSeed + u".kiv");
    const KivWString csLogName = csSeed + u".log";
    const bool bMapped = iRound % 2 == 0;
    KivSysProcess zChild =
        StartTestChild("ContainerWriter", {csMain, m_zFolder / csLogName, csSeed, bMapped ? u"mapped" : u"plain"});
    ASSERT_TRUE(zChild.IsOpen());
    // It has begun when its log has a flush; then it goes on for an arbitrary while.
    while (m_zFolder.ReadBytes(csLogName).find("f\n") == std::string::npos)
      ASSERT_EQ(zChild.Wait(5), KivSysWait::TimedOut);
    zChild.Wait(static_cast<uint32_t>(zRandom() % 150));
    ASSERT_TRUE(zChild.Terminate(9));
    ASSERT_EQ(zChild.Wait(60000), KivSysWait::Signalled);

    std::map<Position, LoggedRecord> mapPresent;  // by the log, as of the last flush and untouched since
    std::map<Position, LoggedRecord> mapAddedSince;
    std::istringstream zLog(m_zFolder.ReadBytes(csLogName));
    std::string strLine;
    while (std::getline(zLog, strLine) && !zLog.eof()) {  // a last line without its end is no line
      std::istringstream zLine(strLine);
      char cKind = 0;
      Position iFile = 0;
      LoggedRecord zRecord{};
      zLine >> cKind >> iFile >> zRecord.iSeed >> zRecord.iSize;
      if (cKind == 'a') mapAddedSince[iFile] = zRecord;
      if (cKind == 'd') {
        mapPresent.erase(iFile);
        mapAddedSince.erase(iFile);
      }
      if (cKind == 'f') {
        mapPresent.insert(mapAddedSince.begin(), mapAddedSince.end());
        mapAddedSince.clear();
      }
    }
    ASSERT_GT(mapPresent.size(), 0u);

    // Reopening shows what it shows: reports and findings, no crash.
    {
      NoThrowScope zNoThrow;
      KivFastFileContainer zContainer(OpenCached(csMain), nullptr);
      EXPECT_EQ(zContainer.GetStatus(), KivContainerStatus::Usable);
      zContainer.FullCheck();
    }
    const auto pzDamaged = OpenFile(FileKind::Plain, csMain);
    const auto pzNew = MakeMemory();
    const KivSalvageReport zReport = KivSalvageContainer(*pzDamaged, pzNew);
    ASSERT_TRUE(zReport.m_bDone);
    KivFastFileContainer zSalvaged(pzNew, nullptr);
    const KivContainerCheck zCheck = zSalvaged.FullCheck();
    EXPECT_TRUE(zCheck.IsSound()) << zCheck.GetText();
    for (const auto& [iFile, zRecord] : mapPresent)
      ASSERT_EQ(PayloadAt(zSalvaged, iFile), PayloadOf(zRecord.iSeed, zRecord.iSize)) << iFile;
    // What was added since is complete in the file too, since the process died and not the machine.
    for (const auto& [iFile, zRecord] : mapAddedSince)
      ASSERT_EQ(PayloadAt(zSalvaged, iFile), PayloadOf(zRecord.iSeed, zRecord.iSize)) << iFile;
  }
}
