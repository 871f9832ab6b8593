// Each call of the system fails once on each path through the file layers. What was written before is not lost, no
// handle is left behind, and nothing waits for ever.
#include <functional>

#include "KivCacheUseFile.h"
#include "KivFileFactory.h"
#include "KivSysDiag.h"
#include "KivSysFault.h"
#include "KivTestFile.h"
#include "KivTestScale.h"

namespace {

using namespace kiv;
using namespace kivtest;

constexpr uint64_t kBlocks = 6;

// A cached file with three states: A and B as snapshots, and the live one.
struct History {
  KivSharedPtr<ISnapShotFile> m_pzFile;
  KivSharedPtr<ISnapShotFile> m_pzA;
  KivSharedPtr<ISnapShotFile> m_pzB;
  KivSharedPtr<ISnapShotFile> m_pzC;  // for an operation
  Bytes m_vcA;
  Bytes m_vcB;
  Bytes m_vcLive;

  void Change(Bytes& vcState, uint64_t iOffset, const std::string& strText) {
    m_pzFile->Write(iOffset, strText.data(), strText.size());
    std::copy(strText.begin(), strText.end(), vcState.begin() + static_cast<int64_t>(iOffset));
  }
};

class FileFault : public FileTest {
 protected:
  FileFault() : m_vcBase(Pattern(kBlocks * kBlock - 100)), m_csBase(MakeFile(u"base", m_vcBase)) {}

  History Make(bool bMapped) {
    m_zSpace.Base(-1);
    History z;
    z.m_pzFile = bMapped ? KivCreateReadOnlyMappedFile(OpenToRead(m_csBase), KivSysFile())
                         : KivCreateReadOnlyFile(OpenToRead(m_csBase), true);
    if (bMapped) {
      EXPECT_TRUE(z.m_pzFile->PrepareDirectBuffer(0));
    }
    z.m_vcLive = m_vcBase;
    z.m_vcLive.resize(kBlocks * kBlock);
    z.Change(z.m_vcLive, 10, "first");
    z.Change(z.m_vcLive, 2 * kBlock, "second");
    z.m_vcA = z.m_vcLive;
    z.m_pzA = m_zSpace.Take(*z.m_pzFile);
    z.Change(z.m_vcLive, 3 * kBlock - 2, "third");
    z.m_vcB = z.m_vcLive;
    z.m_pzB = m_zSpace.Take(*z.m_pzFile);
    z.Change(z.m_vcLive, 12, "fourth");
    return z;
  }

  using Operation = std::function<void(History&)>;

  // Runs an operation once for each call of the system that it makes, with that call failing, and looks afterwards at
  // what it left. Both in hosts whose reports throw and in hosts whose reports return.
  void ForEachFault(const Operation& pfnOperation, const Operation& pfnCheck) {
    // What the system opens once and keeps is there after the first rounds.
    for (const bool bMapped : {false, true})
      for (const bool bThrow : {true, false}) Round(bMapped, bThrow, KivSysFaultKind::Fail, pfnOperation, pfnCheck);
    const uint64_t nBefore = sys::CountHandles();
    EXPECT_GT(nBefore, 0u);
    for (const bool bMapped : {false, true})
      for (const bool bThrow : {true, false})
        for (const auto iKind : {KivSysFaultKind::Fail, KivSysFaultKind::DiskFull, KivSysFaultKind::ShortCount})
          Round(bMapped, bThrow, iKind, pfnOperation, pfnCheck);
    EXPECT_EQ(sys::CountHandles(), nBefore);
    EXPECT_EQ(CountWorkFiles(), 0);
  }

  void Round(bool bMapped, bool bThrow, KivSysFaultKind iKind, const Operation& pfnOperation,
             const Operation& pfnCheck) {
    // A plan meets each call that a run without failures makes.
    uint64_t nCalls = 0;
    {
      History z = Make(bMapped);
      const KivSysFaultScope zCount(KivSysFaultPlan{});
      pfnOperation(z);
      for (uint32_t i = 0; i < static_cast<uint32_t>(KivSysCall::Count); ++i) {
        const auto iCall = static_cast<KivSysCall>(i);
        const bool bTransfer = iCall == KivSysCall::FileRead || iCall == KivSysCall::FileWrite;
        if (bTransfer || iKind != KivSysFaultKind::ShortCount) nCalls += zCount.GetCount(iCall);
      }
    }
    m_zSpace.Discarding(false);
    uint64_t iNth = 1;
    for (bool bFired = true; bFired && !HasFailure(); ++iNth) {
      SCOPED_TRACE("call " + std::to_string(iNth) + " kind " + std::to_string(static_cast<int>(iKind)) +
                   (bThrow ? " throwing" : " returning") + (bMapped ? " mapped" : ""));
      History z = Make(bMapped);
      {
        KivSysFaultPlan zPlan;
        zPlan.m_bAnyCall = true;
        zPlan.m_iNth = iNth;
        zPlan.m_iKind = iKind;
        const KivSysFaultScope zFault(zPlan);
        if (bThrow) {
          ReportOf([&] { pfnOperation(z); });
        } else {
          const NoThrowScope zNoThrow;
          pfnOperation(z);
        }
        bFired = zFault.HasFired();
      }
      m_zSpace.Discarding(false);
      pfnCheck(z);
    }
    // The last round found no call left.
    EXPECT_EQ(iNth - 2, nCalls);
    if (iKind != KivSysFaultKind::ShortCount) {
      EXPECT_GT(nCalls, 0u) << "the operation makes no calls";
    }
  }

  // What is the same at the end of the second run of a body as at its begin.
  static void LeavesNoHandles(const std::function<void()>& pfnBody) {
    pfnBody();
    const uint64_t nBefore = sys::CountHandles();
    EXPECT_GT(nBefore, 0u);
    pfnBody();
    EXPECT_EQ(sys::CountHandles(), nBefore);
  }

  static Bytes All(ISnapShotFile& zFile) { return ReadBytes(zFile, 0, kBlocks * kBlock); }

  Bytes m_vcBase;
  KivWString m_csBase;
};

TEST_F(FileFault, AReadLosesNothing) {
  ForEachFault(
      [](History& z) {
        Bytes vcRead(kBlocks * kBlock);
        z.m_pzFile->Read(0, vcRead.data(), 4 * kBlock - 5);
      },
      [](History& z) {
        for (const uint64_t iOffset : {uint64_t{10}, uint64_t{12}, 2 * kBlock, 3 * kBlock - 2})
          EXPECT_EQ(ReadBytes(*z.m_pzFile, iOffset, 6), Slice(z.m_vcLive, iOffset, 6));
        EXPECT_EQ(ReadBytes(*z.m_pzB, 0, 20), Slice(z.m_vcB, 0, 20));
        EXPECT_EQ(ReadBytes(*z.m_pzA, 0, 20), Slice(z.m_vcA, 0, 20));
      });
}

TEST_F(FileFault, AWriteThatFailsLeavesEverythingElse) {
  ForEachFault([](History& z) { z.m_pzFile->Write(kBlock - 3, "xxxxxx", 6); },
               [](History& z) {
                 for (const uint64_t iOffset : {uint64_t{10}, 2 * kBlock, 3 * kBlock - 2})
                   EXPECT_EQ(ReadBytes(*z.m_pzFile, iOffset, 9), Slice(z.m_vcLive, iOffset, 9));
                 EXPECT_EQ(All(*z.m_pzA), z.m_vcA);
                 EXPECT_EQ(All(*z.m_pzB), z.m_vcB);
               });
}

TEST_F(FileFault, ASnapshotThatFailsLeavesTheFileAsItWas) {
  ForEachFault(
      [this](History& z) {
        // Where all releases came through the places are counted anew.
        m_zSpace.Base(static_cast<int32_t>(dynamic_cast<KivCacheUseFile*>(z.m_pzFile.Get())->m_vpSnapShotData.size()));
        z.m_pzC = z.m_pzFile->CreateSnapShot();
      },
      [](History& z) {
        auto* pFile = dynamic_cast<KivCacheUseFile*>(z.m_pzFile.Get());
        const size_t nSnapShots = z.m_pzC ? 3 : 2;
        EXPECT_EQ(pFile->m_vpSnapShotData.size(), nSnapShots);
        EXPECT_EQ(pFile->m_vpCacheSnapShot.size(), nSnapShots);
        EXPECT_EQ(pFile->GetCache()->m_vpSnapShotStatus.size(), nSnapShots);
        EXPECT_EQ(All(*z.m_pzFile), z.m_vcLive);
        EXPECT_EQ(All(*z.m_pzA), z.m_vcA);
        EXPECT_EQ(All(*z.m_pzB), z.m_vcB);
        if (z.m_pzC) {
          EXPECT_EQ(All(*z.m_pzC), z.m_vcLive);
        }
      });
}

TEST_F(FileFault, ARestoreThatFailsLeavesOneStateOrTheOther) {
  ForEachFault(
      [this](History& z) {
        m_zSpace.Base(0);
        z.m_pzFile->RestoreSnapShot(z.m_pzA);
      },
      [this](History& z) {
        const Bytes vcNow = All(*z.m_pzFile);
        EXPECT_TRUE(vcNow == z.m_vcA || vcNow == z.m_vcLive);
        EXPECT_EQ(All(*z.m_pzA), z.m_vcA);
        EXPECT_EQ(All(*z.m_pzB), z.m_vcB);
        m_zSpace.Base(1);
        EXPECT_EQ(z.m_pzFile->RestoreSnapShot(z.m_pzB), 0);
        EXPECT_EQ(All(*z.m_pzFile), z.m_vcB);
      });
}

TEST_F(FileFault, AReleaseFromTheFrontThatFailsCanBeTriedAgain) {
  ForEachFault(
      [](History& z) {
        if (z.m_pzA->ReleaseSnapShot() == 0) z.m_pzA.Release();
      },
      [](History& z) {
        EXPECT_EQ(All(*z.m_pzB), z.m_vcB);
        if (z.m_pzA) {
          // As it was; or, where some of it was overwritten by then, the read is reported.
          Bytes vcRead;
          if (ReportOf([&] { vcRead = All(*z.m_pzA); }).empty()) {
            EXPECT_EQ(vcRead, z.m_vcA);
          }
          EXPECT_EQ(z.m_pzA->ReleaseSnapShot(), 0);
          z.m_pzA.Release();
        }
        EXPECT_EQ(All(*z.m_pzFile), z.m_vcLive);
        EXPECT_EQ(All(*z.m_pzB), z.m_vcB);
      });
}

TEST_F(FileFault, AReleaseOfTheLastOneThatFailsCanBeTriedAgain) {
  ForEachFault(
      [](History& z) {
        if (z.m_pzA && z.m_pzA->ReleaseSnapShot() == 0) z.m_pzA.Release();
        if (!z.m_pzA && z.m_pzB->ReleaseSnapShot() == 0) z.m_pzB.Release();
      },
      [](History& z) {
        if (z.m_pzA) {
          EXPECT_EQ(z.m_pzA->ReleaseSnapShot(), 0);
          z.m_pzA.Release();
        }
        if (z.m_pzB) {
          EXPECT_EQ(z.m_pzB->ReleaseSnapShot(), 0);
          z.m_pzB.Release();
        }
        EXPECT_EQ(All(*z.m_pzFile), z.m_vcLive);
        EXPECT_TRUE(dynamic_cast<KivCacheUseFile*>(z.m_pzFile.Get())->m_vpCacheSnapShot.empty());
      });
}

TEST_F(FileFault, ASnapshotThatDiesAfterAFailedReleaseLosesNothing) {
  ForEachFault([](History& z) { z.m_pzA->ReleaseSnapShot(); },
               [](History& z) {
                 z.m_pzA.Release();
                 EXPECT_EQ(All(*z.m_pzFile), z.m_vcLive);
                 EXPECT_EQ(All(*z.m_pzB), z.m_vcB);
                 EXPECT_EQ(z.m_pzB->ReleaseSnapShot(), 0);
                 z.m_pzB.Release();
                 EXPECT_EQ(All(*z.m_pzFile), z.m_vcLive);
                 EXPECT_TRUE(dynamic_cast<KivCacheUseFile*>(z.m_pzFile.Get())->m_vpCacheSnapShot.empty());
                 EXPECT_EQ(CountWorkFiles(), 1);
               });
}

TEST_F(FileFault, ALastSnapshotThatDiesAfterAFailedReleaseLosesNothing) {
  ForEachFault(
      [](History& z) {
        // Both die, whatever becomes of their releases.
        for (KivSharedPtr<ISnapShotFile>* ppzSnapShot : {&z.m_pzA, &z.m_pzB}) {
          try {
            (*ppzSnapShot)->ReleaseSnapShot();
          } catch (const KivException&) {
          }
          ppzSnapShot->Release();
        }
      },
      [this](History& z) {
        EXPECT_EQ(All(*z.m_pzFile), z.m_vcLive);
        // Where all releases came through the places are counted anew.
        m_zSpace.Base(static_cast<int32_t>(dynamic_cast<KivCacheUseFile*>(z.m_pzFile.Get())->m_vpSnapShotData.size()));
        z.m_pzC = z.m_pzFile->CreateSnapShot();
        EXPECT_EQ(CountWorkFiles(), 2);
        EXPECT_EQ(All(*z.m_pzC), z.m_vcLive);
        EXPECT_EQ(All(*z.m_pzFile), z.m_vcLive);
      });
}

TEST_F(FileFault, ASavedPatchThatFailsCanBeSavedAgain) {
  ForEachFault([this](History& z) { z.m_pzFile->SaveCache(m_zFolder / u"patch", 4 * kBlock); },
               [this](History& z) {
                 EXPECT_TRUE(z.m_pzFile->SaveCache(m_zFolder / u"patch", 4 * kBlock));
                 auto pzFresh = KivCreateReadOnlyFile(OpenToRead(m_csBase), true);
                 EXPECT_TRUE(pzFresh->LoadCache(m_zFolder / u"patch"));
                 for (const uint64_t iOffset : {uint64_t{10}, uint64_t{12}, 2 * kBlock, 3 * kBlock - 2})
                   EXPECT_EQ(ReadBytes(*pzFresh, iOffset, 6), Slice(z.m_vcLive, iOffset, 6));
               });
}

TEST_F(FileFault, ALoadedPatchThatFailsLeavesEverythingElse) {
  std::string strPatch(16 + kBlock, 'p');
  std::memset(strPatch.data(), 0, 16);
  strPatch[0] = 3;
  strPatch[10] = 1;  // 65536
  const KivWString csPatch = m_zFolder / u"in";
  m_zFolder.WriteBytes(u"in", strPatch);
  ForEachFault([&](History& z) { z.m_pzFile->LoadCache(csPatch); },
               [](History& z) {
                 EXPECT_EQ(ReadBytes(*z.m_pzFile, 0, 20), Slice(z.m_vcLive, 0, 20));
                 EXPECT_EQ(ReadBytes(*z.m_pzFile, 2 * kBlock, kBlock), Slice(z.m_vcLive, 2 * kBlock, kBlock));
                 EXPECT_EQ(All(*z.m_pzB), z.m_vcB);
               });
}

TEST_F(FileFault, CachingAheadLosesNothing) {
  ForEachFault(
      [](History& z) {
        for (int i = 0; i < 1000 && z.m_pzFile->AdvanceCaching(1000); ++i) {
        }
      },
      [](History& z) {
        for (const uint64_t iOffset : {uint64_t{10}, uint64_t{12}, 2 * kBlock, 3 * kBlock - 2})
          EXPECT_EQ(ReadBytes(*z.m_pzFile, iOffset, 6), Slice(z.m_vcLive, iOffset, 6));
        EXPECT_EQ(All(*z.m_pzB), z.m_vcB);
      });
}

TEST_F(FileFault, AMappedFileThatCannotGrowKeepsItsBytes) {
  const Bytes vcData = Pattern(2 * kBlock, 4);
  LeavesNoHandles([&] {
    for (const bool bThrow : {true, false}) {
      bool bFired = true;
      for (uint64_t iNth = 1; bFired && !HasFailure(); ++iNth) {
        SCOPED_TRACE(iNth);
        auto pzFile = KivCreateMappedFile(OpenNew(m_zFolder / u"grow"));
        ASSERT_TRUE(pzFile->PrepareDirectBuffer(2 * kBlock));
        WriteBytes(*pzFile, 0, vcData);
        {
          KivSysFaultPlan zPlan;
          zPlan.m_bAnyCall = true;
          zPlan.m_iNth = iNth;
          zPlan.m_iKind = KivSysFaultKind::DiskFull;
          const KivSysFaultScope zFault(zPlan);
          const auto Grow = [&] {
            if (pzFile->PrepareDirectBuffer(9 * kBlock)) pzFile->Write(8 * kBlock, "x", 1);
          };
          if (bThrow) {
            ReportOf(Grow);
          } else {
            const NoThrowScope zNoThrow;
            Grow();
          }
          bFired = zFault.HasFired();
        }
        EXPECT_EQ(ReadBytes(*pzFile, 0, 2 * kBlock), vcData);
      }
    }
  });
  EXPECT_EQ(CountWorkFiles(), 0);
}

TEST_F(FileFault, AFileWhoseReaderMeetsFailuresEndsAndReadsRight) {
  LeavesNoHandles([&] {
    for (const auto iKind : {KivSysFaultKind::Fail, KivSysFaultKind::ShortCount})
      for (const bool bFromThenOn : {false, true})
        for (uint64_t iNth = 1; iNth <= 8; ++iNth) {
          SCOPED_TRACE(iNth);
          auto pzFile = KivCreateReadOnlyMappedFile(OpenToRead(m_csBase), OpenToRead(m_csBase));
          {
            KivSysFaultPlan zPlan;
            zPlan.m_bAnyCall = true;
            zPlan.m_iNth = iNth;
            zPlan.m_bFromThenOn = bFromThenOn;
            zPlan.m_iKind = iKind;
            const KivSysFaultScope zFault(zPlan);
            ReportOf([&] {
              for (uint64_t i = 0; i < kBlocks; ++i) pzFile->RequestBackGroundRead(i, 1 + static_cast<uint32_t>(i) % 3);
              Bytes vcRead(kBlocks * kBlock);
              pzFile->Read(0, vcRead.data(), kBlock);
            });
            if (iNth % 2 == 0) {
              pzFile.Release();  // while the plan holds
              continue;
            }
          }
          Bytes vcExpected = m_vcBase;
          vcExpected.resize(kBlocks * kBlock);
          EXPECT_EQ(All(*pzFile), vcExpected);
        }
  });
  EXPECT_EQ(CountWorkFiles(), 0);
}

}  // namespace
