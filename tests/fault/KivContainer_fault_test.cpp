// A container whose files fail at every single call: nothing but reports comes of it, and a salvage finds every record
// that was stored and not touched since.
#include <gtest/gtest.h>

#include <random>

#include "KivFastFileContainer.h"
#include "KivSysFault.h"
#include "KivTestContainer.h"
#include "KivTestReport.h"

using namespace kiv;
using namespace kivtest;

namespace {

Bytes PayloadOf(uint64_t iSeed) {
  std::mt19937_64 zRandom(iSeed);
  Bytes vcPayload(static_cast<size_t>(1 + zRandom() % 400));
  for (uint8_t& c : vcPayload) c = static_cast<uint8_t>(zRandom());
  return vcPayload;
}

// Adds, frees, moves and flushes; mapStored holds what must be there whatever happens next.
void Work(KivFastFileContainer& zContainer, std::map<Position, uint64_t>& mapStored) {
  std::mt19937_64 zRandom(11);
  for (uint64_t i = 0; i < 60; ++i) {
    const uint64_t iWhat = zRandom() % 10;
    if (mapStored.size() < 8 || iWhat < 4) {
      const Bytes vcPayload = PayloadOf(i);
      const Position iFile =
          zContainer.AddRecord(KivContainerData(vcPayload.data(), static_cast<uint32_t>(vcPayload.size())));
      if (iFile != NULL_FILE_INDEX) mapStored[iFile] = i;
      continue;
    }
    auto it = mapStored.begin();
    std::advance(it, static_cast<ptrdiff_t>(zRandom() % mapStored.size()));
    const auto [iFile, iSeed] = *it;
    if (iWhat < 8) {
      mapStored.erase(it);
      zContainer.DeleteRecord(iFile);
    } else if (iWhat < 9) {
      mapStored.erase(it);
      Position iStart = 0;
      Position iStoredAt = 0;
      zContainer.MoveRecord(iFile, iStart, &iStoredAt);
      mapStored[iStoredAt] = iSeed;
    } else {
      zContainer.Flush();
    }
  }
}

// One run with the N-th call failing. False when no call failed any more.
bool RunWithFault(const TestFolder& zFolder, FileKind iKind, KivSysCall iCall, KivSysFaultKind iFault, uint64_t iNth,
                  bool bThrow) {
  std::map<Position, uint64_t> mapStored;
  bool bFired = false;
  {
    const auto pzMain = MakeFile(iKind, zFolder, u"main.kiv");
    const auto pzUnused = MakeFile(iKind, zFolder, u"main.urf");
    KivSetReportNoThrow(!bThrow);
    {
      KivSysFaultPlan zPlan;
      zPlan.m_iCall = iCall;
      zPlan.m_iNth = iNth;
      zPlan.m_iKind = iFault;
      const KivSysFaultScope zFault(zPlan);
      try {
        KivFastFileContainer zContainer(pzMain, pzUnused, nullptr);
        Work(zContainer, mapStored);
      } catch (const KivException&) {
      }
      bFired = zFault.HasFired();
    }
    KivSetReportNoThrow(false);
  }
  if (!bThrow) return bFired;  // a host that goes on after a report has what the report said
  const auto pzDamaged = OpenFile(FileKind::Plain, zFolder / u"main.kiv");
  const auto pzNew = MakeMemory();
  EXPECT_TRUE(KivSalvageContainer(*pzDamaged, pzNew).m_bDone);
  KivFastFileContainer zSalvaged(pzNew, nullptr);
  if (mapStored.empty()) return bFired;
  EXPECT_EQ(zSalvaged.GetStatus(), KivContainerStatus::Usable);
  EXPECT_TRUE(zSalvaged.FullCheck().IsSound()) << zSalvaged.FullCheck().GetText();
  for (const auto& [iFile, iSeed] : mapStored) {
    const KivContainerRecord zRecord = zSalvaged.GetRecord(iFile);
    EXPECT_TRUE(zRecord.m_pzFile) << iFile;
    if (!zRecord.m_pzFile) continue;
    Bytes vcPayload(zRecord.m_iFileSize);
    zRecord.m_pzFile->Read(zRecord.m_iOffset, vcPayload.data(), vcPayload.size());
    EXPECT_EQ(vcPayload, PayloadOf(iSeed)) << iFile;
  }
  return bFired;
}

void RunUntilNothingFails(FileKind iKind, KivSysCall iCall, KivSysFaultKind iFault) {
  KivRegisterOwnFormat();
  TestFolder zFolder;
  for (const bool bThrow : {true, false}) {
    // Beyond the first hundred calls each third one: the steps repeat.
    uint64_t iNth = 1;
    while (RunWithFault(zFolder, iKind, iCall, iFault, iNth, bThrow)) {
      if (testing::Test::HasFailure()) FAIL() << "call " << iNth << (bThrow ? ", throwing" : ", not throwing");
      iNth += iNth < 100 ? 1 : static_cast<uint64_t>(ScaledSteps(4) == 4 ? 3 : 29);
    }
    EXPECT_GT(iNth, 1u);
  }
}

}  // namespace

TEST(ContainerFault, EachFailedWriteOfAPlainFileIsReportedAndLosesNoOtherRecord) {
  RunUntilNothingFails(FileKind::Plain, KivSysCall::FileWrite, KivSysFaultKind::Fail);
}

TEST(ContainerFault, EachShortWriteOfAPlainFileIsReportedAndLosesNoOtherRecord) {
  RunUntilNothingFails(FileKind::Plain, KivSysCall::FileWrite, KivSysFaultKind::ShortCount);
}

TEST(ContainerFault, EachFailedReadOfAPlainFileIsReportedAndLosesNoOtherRecord) {
  RunUntilNothingFails(FileKind::Plain, KivSysCall::FileRead, KivSysFaultKind::Fail);
}

TEST(ContainerFault, EachFailedMappingIsReportedAndLosesNoRecord) {
  RunUntilNothingFails(FileKind::Mapped, KivSysCall::MappingCreate, KivSysFaultKind::DiskFull);
}
