// A container whose files fail at every single call: nothing but reports comes of it, and a salvage finds every record
// that was stored and not touched since.
#include <gtest/gtest.h>

#include <filesystem>
#include <random>

#include "KivFastFileContainer.h"
#include "KivFormatRegistry.h"
#include "KivSysFault.h"
#include "KivTestContainer.h"
#include "KivTestReport.h"
#include "KivTestReportSource.h"

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
  const auto pzDamaged = OpenFile(FileKind::Plain, zFolder / u"main.kiv");
  const auto pzNew = MakeMemory();
  EXPECT_TRUE(KivSalvageContainer(*pzDamaged, pzNew).m_bDone);
  KivFastFileContainer zSalvaged(pzNew, nullptr);
  EXPECT_EQ(zSalvaged.GetStatus(), KivContainerStatus::Usable);
  EXPECT_TRUE(zSalvaged.FullCheck().IsSound()) << zSalvaged.FullCheck().GetText();
  // A host that goes on after a report has what the report said: a write that failed. A mapping that failed loses
  // nothing, since the bytes then go another way.
  if (!bThrow && iCall != KivSysCall::MappingCreate) return bFired;
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

namespace {

// Runs the body with the N-th call of any kind failing, for each N until none fails any more. The body gives whether
// all that it looks at is as it should be.
template <typename Prepare, typename Run, typename Look>
void ForEachFailingCall(const Prepare& prepare, const Run& run, const Look& look) {
  for (const bool bThrow : {true, false}) {
    bool bFired = true;
    uint64_t nFired = 0;
    for (uint64_t iNth = 1; bFired; iNth += iNth < 60 ? 1 : 7) {
      SCOPED_TRACE("call " + std::to_string(iNth) + (bThrow ? ", throwing" : ", not throwing"));
      prepare();
      bool bThrown = false;
      {
        KivSetReportNoThrow(!bThrow);
        KivSysFaultPlan zPlan;
        zPlan.m_bAnyCall = true;
        zPlan.m_iNth = iNth;
        const KivSysFaultScope zFault(zPlan);
        try {
          run();
        } catch (const KivException&) {
          bThrown = true;
        }
        bFired = zFault.HasFired();
        nFired += bFired ? 1 : 0;
      }
      KivSetReportNoThrow(false);
      look(bThrown, bThrow);
      if (testing::Test::HasFailure()) return;
    }
    EXPECT_GT(nFired, 4u);
  }
}

// A flushed container of three records, the middle one free, in a plain file.
void MakeThree(const TestFolder& zFolder) {
  KivFastFileContainer zContainer(MakeFile(FileKind::Plain, zFolder, u"main.kiv"), MakeMemory(), nullptr);
  for (uint64_t i = 0; i < 3; ++i) {
    const Bytes vcPayload(1000, static_cast<uint8_t>(i + 1));
    zContainer.AddRecord(KivContainerData(vcPayload.data(), 1000));
  }
  zContainer.DeleteRecord(264 + 1024);
}

}  // namespace

TEST(ContainerFault, EachFailedCallOfASaveInSlicesLeavesTheSourceAndNoCopyThatCallsItselfCompleteAndIsNot) {
  KivRegisterOwnFormat();
  TestFolder zFolder;
  MakeThree(zFolder);
  const std::string strMain = zFolder.ReadBytes(u"main.kiv");
  const KivWString csTarget = zFolder / u"copy.kiv";
  KivSharedPtr<ISnapShotFile> pzMain;
  std::unique_ptr<KivFastFileContainer> pzContainer;
  bool bComplete = false;
  ForEachFailingCall(
      [&] {
        pzContainer.reset();
        pzMain = nullptr;
        std::filesystem::remove(std::filesystem::path(csTarget));
        pzMain = OpenFile(FileKind::Plain, zFolder / u"main.kiv");
        pzContainer = std::make_unique<KivFastFileContainer>(pzMain, nullptr);
        bComplete = false;
      },
      [&] {
        pzContainer->SaveInSlices(csTarget, 0);
        bComplete = pzContainer->IsSaveInSlicesComplete(csTarget);
      },
      [&](bool bThrown, bool bThrow) {
        EXPECT_TRUE(pzContainer->FullCheck().IsSound());
        EXPECT_EQ(pzMain->GetLength(), strMain.size());
        EXPECT_TRUE(Content(*pzMain) == Bytes(strMain.begin(), strMain.end()));
        EXPECT_FALSE(bThrown && bComplete);
        // Whoever turned exceptions off knows of a failed write by its report alone.
        if (bThrow && bComplete) {
          EXPECT_EQ(zFolder.ReadBytes(u"copy.kiv").substr(264), strMain.substr(264));
        }
        EXPECT_EQ(pzContainer->SaveInSlices(zFolder / u"again.kiv", 0), KivSaveInSlicesResult::Done);
        EXPECT_EQ(zFolder.ReadBytes(u"again.kiv").substr(264), strMain.substr(264));
        std::filesystem::remove(std::filesystem::path(zFolder / u"again.kiv"));
      });
}

TEST(ContainerFault, EachFailedCallOfASaveUnderACacheLeavesTheRecordsAndGivesTrueOnlyForAWholePatch) {
  KivRegisterOwnFormat();
  TestFolder zFolder;
  MakeThree(zFolder);
  const std::string strMain = zFolder.ReadBytes(u"main.kiv");
  std::unique_ptr<KivFastFileContainer> pzContainer;
  std::string strSide;
  bool bSaved = false;
  ForEachFailingCall(
      [&] {
        pzContainer = std::make_unique<KivFastFileContainer>(OpenCached(zFolder / u"main.kiv"), nullptr);
        pzContainer->AddRecord(KivContainerData("added", 5));
        const Bytes vcSide = Content(*pzContainer->GetUnusedRecordFile());
        strSide.assign(vcSide.begin(), vcSide.end());
        bSaved = false;
      },
      [&] { bSaved = pzContainer->SaveAs(zFolder / u"a.patch", false); },
      [&](bool, bool bThrow) {
        EXPECT_TRUE(pzContainer->FullCheck().IsSound());
        EXPECT_EQ(zFolder.ReadBytes(u"main.kiv"), strMain);
        if (!bSaved || !bThrow) return;
        EXPECT_EQ(zFolder.ReadBytes(u"a.patch.urf"), strSide);
        const auto pzPatched = OpenCached(zFolder / u"main.kiv");
        EXPECT_TRUE(pzPatched->LoadCache(zFolder / u"a.patch"));
        KivFastFileContainer zPatched(pzPatched, nullptr);
        EXPECT_EQ(zPatched.GetRecord(264 + 1024).m_iFileSize, 5u);
      });
}

TEST(ContainerFault, EachFailedCallOfAnOpenAndADumpLeavesTheFileAsItWas) {
  KivRegisterOwnFormat();
  TestFolder zFolder;
  MakeThree(zFolder);
  const std::string strMain = zFolder.ReadBytes(u"main.kiv");
  std::unique_ptr<KivFastFileContainer> pzContainer;
  KivSharedPtr<ISnapShotFile> pzFile;
  for (const bool bCached : {true, false})
    ForEachFailingCall(
        [&] {
          pzContainer.reset();
          pzFile = bCached ? OpenCached(zFolder / u"main.kiv") : OpenFile(FileKind::Mapped, zFolder / u"main.kiv");
        },
        [&] {
          pzContainer = std::make_unique<KivFastFileContainer>(pzFile, nullptr);
          std::map<Position, bool> mapUsed;
          pzContainer->Dump(zFolder / u"dump.txt", mapUsed);
        },
        [&](bool, bool bThrow) {
          // Opened without a throw, it is the container.
          if (pzContainer != nullptr && bThrow) {
            EXPECT_EQ(pzContainer->GetRecord(264).m_iFileSize, 1000u);
          }
          pzContainer.reset();
          pzFile.Release();
          EXPECT_EQ(zFolder.ReadBytes(u"main.kiv").substr(0, strMain.size()), strMain);
        });
}

TEST(ContainerFault, EachFailedReadOfASalvageLosesWhatItSaysAndNoMore) {
  KivRegisterOwnFormat();
  TestFolder zFolder;
  std::map<Position, uint64_t> mapStored;
  {
    KivFastFileContainer zContainer(MakeFile(FileKind::Plain, zFolder, u"main.kiv"), MakeMemory(), nullptr);
    for (uint64_t i = 0; i < 30; ++i) {
      const Bytes vcPayload = PayloadOf(i);
      mapStored[zContainer.AddRecord(KivContainerData(vcPayload.data(), static_cast<uint32_t>(vcPayload.size())))] = i;
    }
  }
  for (const bool bThrow : {true, false}) {
    bool bFired = true;
    uint64_t nFired = 0;
    for (uint64_t iNth = 1; bFired; ++iNth) {
      const auto pzDamaged = OpenFile(FileKind::Plain, zFolder / u"main.kiv");
      const auto pzNew = MakeMemory();
      KivSalvageReport zReport;
      {
        KivSetReportNoThrow(!bThrow);
        KivSysFaultPlan zPlan;
        zPlan.m_iCall = KivSysCall::FileRead;
        zPlan.m_iNth = iNth;
        const KivSysFaultScope zFault(zPlan);
        zReport = KivSalvageContainer(*pzDamaged, pzNew);
        bFired = zFault.HasFired();
        nFired += bFired ? 1 : 0;
      }
      KivSetReportNoThrow(false);
      ASSERT_TRUE(zReport.m_bDone);
      KivFastFileContainer zSalvaged(pzNew, nullptr);
      ASSERT_EQ(zSalvaged.GetStatus(), KivContainerStatus::Usable);
      ASSERT_TRUE(zSalvaged.FullCheck().IsSound()) << zSalvaged.FullCheck().GetText();
      for (const auto& [iFile, iSeed] : mapStored) {
        bool bLost = false;
        for (const KivLostRange& zLost : zReport.m_vzLost)
          bLost = bLost || (iFile >= zLost.m_iPosition && iFile < zLost.m_iPosition + zLost.m_iSize);
        if (bLost) continue;
        const KivContainerRecord zRecord = zSalvaged.GetRecord(iFile);
        ASSERT_TRUE(zRecord.m_pzFile) << iFile << ", call " << iNth;
        Bytes vcPayload(zRecord.m_iFileSize);
        zRecord.m_pzFile->Read(zRecord.m_iOffset, vcPayload.data(), vcPayload.size());
        ASSERT_EQ(vcPayload, PayloadOf(iSeed)) << iFile << ", call " << iNth;
      }
    }
    EXPECT_GT(nFired, 4u);
  }
}

TEST(ContainerFault, ACapacityThatCannotBeSetIsReportedEachTimeAndIsSetWhenTheSystemGivesItAgain) {
  KivRegisterOwnFormat();
  TestFolder zFolder;
  const auto pzMain = MakeFile(FileKind::Mapped, zFolder, u"main.kiv");
  KivFastFileContainer zContainer(pzMain, MakeFile(FileKind::Mapped, zFolder, u"main.urf"), nullptr);
  const Bytes vcPayload(200000, 0x31);
  std::vector<Position> viFile;
  const auto Add = [&] { viFile.push_back(zContainer.AddRecord(KivContainerData(vcPayload.data(), 200000))); };
  {
    KivSysFaultPlan zPlan;
    zPlan.m_iCall = KivSysCall::MappingCreate;
    zPlan.m_iNth = 1;
    zPlan.m_bFromThenOn = true;
    const KivSysFaultScope zFault(zPlan);
    EXPECT_NE(ReportOf(Add), u"");
    NoThrowScope zNoThrow;
    for (int i = 0; i < 3; ++i) {
      const uint64_t nBefore = KivGetReportCount();
      Add();
      EXPECT_GE(KivGetReportCount(), nBefore + 2);  // of the file and of the container
    }
  }
  Add();
  EXPECT_GE(pzMain->GetDirectBufferSize(), zContainer.GetEndPosition());
  ASSERT_EQ(viFile.size(), 4u);
  for (const Position iFile : viFile) {
    const KivContainerRecord zRecord = zContainer.GetRecord(iFile);
    ASSERT_TRUE(zRecord.m_pzFile);
    Bytes vcRead(zRecord.m_iFileSize);
    zRecord.m_pzFile->Read(zRecord.m_iOffset, vcRead.data(), vcRead.size());
    EXPECT_EQ(vcRead, vcPayload);
  }
}

TEST(ContainerFault, AnExecutableThatCannotBeReadIsReportedAndItsTimeIsZero) {
  KivRegisterOwnFormat();
  KivSysFaultPlan zPlan;
  zPlan.m_iCall = KivSysCall::FileOpen;
  zPlan.m_iNth = 1;
  zPlan.m_bFromThenOn = true;
  const KivSysFaultScope zFault(zPlan);
  EXPECT_REPORT_FROM(KivContainerHeader::MakeDefault(), "0", "src\\KivFastFileContainerBase");
  NoThrowScope zNoThrow;
  EXPECT_EQ(KivContainerHeader::MakeDefault().U64(KivContainerHeader::WriterFileTime), 0u);
  EXPECT_EQ(KivContainerHeader::MakeDefault().U32(KivContainerHeader::NodeOrder), 20u);
}

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
