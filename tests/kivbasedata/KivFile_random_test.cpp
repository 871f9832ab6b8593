// Random programs of reads, writes, zeroing, snapshots, restores and releases over every class, against models that
// keep full copies.
#include <cmath>
#include <map>
#include <memory>
#include <random>
#include <set>

#include "KivFileFactory.h"
#include "KivMemFile.h"
#include "KivTestFile.h"
#include "KivTestScale.h"
#include "KivVirtualNetworkFile.h"
#include "KivWinMappedFile.h"
#include "KivWritableMemFile.h"

namespace {

using namespace kiv;
using namespace kivtest;

constexpr uint64_t kSteps = 10000;
constexpr uint64_t kMaxBlocks = 12;  // how far writes reach
constexpr int kHistoryLimit = 6;

enum class Kind { Memory, Plain, Mapped, MappedPrepared, Unmapped, Network, BackGround };

struct Case {
  Kind m_iKind;
  uint64_t m_nBase;  // bytes of the base file
  uint32_t m_iSeed;
};

std::string CaseName(const testing::TestParamInfo<Case>& zInfo) {
  static const char* const aszKind[] = {"Memory",   "Plain",   "Mapped",    "MappedPrepared",
                                        "Unmapped", "Network", "BackGround"};
  return std::string(aszKind[static_cast<int>(zInfo.param.m_iKind)]) + std::to_string(zInfo.param.m_nBase) + "Seed" +
         std::to_string(zInfo.param.m_iSeed);
}

// What a state of a cached file is: all its bytes, and which blocks the cache knows.
struct State {
  Bytes m_vcContent;             // zeros behind its end
  std::set<uint64_t> m_spOwn;    // blocks in the work file of this state
  std::set<uint64_t> m_spNamed;  // blocks that lie with a snapshot
  bool Knows(uint64_t i) const { return m_spOwn.count(i) != 0 || m_spNamed.count(i) != 0; }
};

class CachedModel {
 public:
  CachedModel(const Bytes& vcBase, uint64_t nNewWork) : m_vcBase(vcBase), m_nNewWork(nNewWork) {
    m_zLive.m_vcContent = vcBase;
    m_zLive.m_vcContent.resize(kMaxBlocks * kBlock);
  }

  void Touch(State& zState, uint64_t iOffset, uint64_t nCount) {
    if (nCount == 0) return;
    for (uint64_t i = iOffset / kBlock; i <= (iOffset + nCount - 1) / kBlock; ++i) Own(zState, i);
  }
  void Own(State& zState, uint64_t i) {
    zState.m_spOwn.insert(i);
    zState.m_spNamed.erase(i);
    if (&zState == &m_zLive) m_nWork = std::max(m_nWork, (i + 1) * kBlock);
  }
  void StartWork() {
    if (!m_bWork) m_nWork = m_nNewWork;
    m_bWork = true;
  }
  uint64_t Length() const { return std::max<uint64_t>(m_vcBase.size(), m_nWork); }
  uint64_t BaseBlocks() const { return m_vcBase.size() / kBlock; }

  State Snap() {
    State zSnap = m_zLive;
    m_zLive.m_spNamed.insert(m_zLive.m_spOwn.begin(), m_zLive.m_spOwn.end());
    m_zLive.m_spOwn.clear();
    m_nWork = std::max(m_nWork, m_nNewWork);
    return zSnap;
  }
  void Restore(const State& zSnap) {
    m_zLive.m_vcContent = zSnap.m_vcContent;
    m_zLive.m_spNamed = zSnap.m_spOwn;
    m_zLive.m_spNamed.insert(zSnap.m_spNamed.begin(), zSnap.m_spNamed.end());
    m_zLive.m_spOwn.clear();
    m_nWork = m_nNewWork;
    m_bSwept = false;
    m_vWanted.clear();
  }
  void LastReleased() {
    const std::set<uint64_t> spNamed = m_zLive.m_spNamed;
    for (const uint64_t i : spNamed) Own(m_zLive, i);
  }
  void SweepToTheEnd() {
    if (m_bSwept || BaseBlocks() == 0) return;
    for (const uint64_t i : m_vWanted)
      if (!m_zLive.Knows(i)) Own(m_zLive, i);
    m_vWanted.clear();
    for (uint64_t i = 0; i < BaseBlocks(); ++i)
      if (!m_zLive.Knows(i)) Own(m_zLive, i);
    m_bSwept = true;
  }

  const Bytes& m_vcBase;
  State m_zLive;
  std::vector<uint64_t> m_vWanted;

 private:
  const uint64_t m_nNewWork;  // length of a fresh work file: the probe for direct buffers makes it 1
  bool m_bWork = false;
  uint64_t m_nWork = 0;
  bool m_bSwept = false;
};

class CachedRandom : public FileTest, public testing::WithParamInterface<Case> {
 protected:
  KivSharedPtr<ISnapShotFile> Open() {
    const KivWString csBase = m_zFolder / u"base";
    switch (GetParam().m_iKind) {
      case Kind::Memory:
        return KivSharedPtr<ISnapShotFile>(new KivMemFile(m_vcBase.data(), m_vcBase.size()));
      case Kind::Plain:
        return KivCreateReadOnlyFile(OpenToRead(csBase), true);
      case Kind::Network:
        return KivCreateVirtualNetworkFile(OpenToRead(csBase), 0, true, KivSysFile());
      case Kind::BackGround:
        return KivCreateReadOnlyMappedFile(OpenToRead(csBase), OpenToRead(csBase));
      default: {
        auto pzFile = KivCreateReadOnlyMappedFile(OpenToRead(csBase), KivSysFile());
        if (GetParam().m_iKind == Kind::MappedPrepared && !m_vcBase.empty()) {
          EXPECT_TRUE(pzFile->PrepareDirectBuffer(0));
        }
        return pzFile;
      }
    }
  }

  Bytes m_vcBase;
};

// The history as the data space drives it: entries from the back go with the flag set, those from the front without.
struct History {
  struct Entry {
    KivSharedPtr<ISnapShotFile> m_pzFile;  // empty when it has died without a release
    State m_zState;
  };
  std::vector<std::unique_ptr<Entry>> m_vpEntry;  // null places where an entry was discarded

  bool Lives(int i) const { return m_vpEntry[static_cast<size_t>(i)] && m_vpEntry[static_cast<size_t>(i)]->m_pzFile; }

  KivDataSpaceBase& Space() { return *KivDataSpaceBase::GetInstance(); }
  int Cur() { return Space().m_iCurBaseSnapShot; }

  void CutRedo() {
    Space().m_bDiscardingSnapShot = true;
    while (static_cast<int>(m_vpEntry.size()) > Cur() + 1) {
      if (Lives(static_cast<int>(m_vpEntry.size()) - 1)) {
        ASSERT_EQ(m_vpEntry.back()->m_pzFile->ReleaseSnapShot(), 0);
      }
      m_vpEntry.pop_back();
    }
    Space().m_bDiscardingSnapShot = false;
  }
  void Create(ISnapShotFile& zFile, CachedModel& zModel) {
    CutRedo();
    ++Space().m_iCurBaseSnapShot;
    auto pzEntry = std::make_unique<Entry>();
    pzEntry->m_pzFile = zFile.CreateSnapShot();
    ASSERT_TRUE(pzEntry->m_pzFile);
    pzEntry->m_zState = zModel.Snap();
    m_vpEntry.push_back(std::move(pzEntry));
  }
  void RestoreTo(int iEntry, ISnapShotFile& zFile, CachedModel& zModel) {
    Space().m_iCurBaseSnapShot = iEntry;
    ASSERT_EQ(zFile.RestoreSnapShot(m_vpEntry[static_cast<size_t>(iEntry)]->m_pzFile), 0);
    zModel.Restore(m_vpEntry[static_cast<size_t>(iEntry)]->m_zState);
  }
  void Undo(int nSteps, ISnapShotFile& zFile, CachedModel& zModel) {
    if (Cur() < 0 || !Lives(Cur())) return;
    int iTarget = Cur();
    for (int i = Cur(), nSeen = 0; i >= 0 && nSeen < nSteps; --i)
      if (Lives(i)) {
        iTarget = i;
        ++nSeen;
      }
    RestoreTo(iTarget, zFile, zModel);
  }
  void Redo(int nSteps, ISnapShotFile& zFile, CachedModel& zModel) {
    const int nRedo = static_cast<int>(m_vpEntry.size()) - Cur() - 1;
    if (nRedo <= 0 || Cur() < 0) return;
    const int iTarget = Cur() + std::min(nSteps, nRedo);
    if (Lives(iTarget)) RestoreTo(iTarget, zFile, zModel);
  }
  // An entry that is not the current one dies without a release.
  void Drop(int iEntry) {
    if (iEntry != Cur() && Lives(iEntry)) m_vpEntry[static_cast<size_t>(iEntry)]->m_pzFile.Release();
  }
  void DiscardFront(int iEntry, CachedModel& zModel) {
    ASSERT_EQ(m_vpEntry[static_cast<size_t>(iEntry)]->m_pzFile->ReleaseSnapShot(), 0);
    if (iEntry == Cur()) {
      zModel.LastReleased();
      for (auto& pzEntry : m_vpEntry) pzEntry = nullptr;
      return;
    }
    // The next one, dead or alive, knows now what this one and the dead ones before it had fetched.
    for (size_t iFrom = 0; iFrom <= static_cast<size_t>(iEntry); ++iFrom) {
      if (m_vpEntry[iFrom] == nullptr) continue;
      size_t iNext = iFrom + 1;
      while (m_vpEntry[iNext] == nullptr) ++iNext;
      State& zNext = m_vpEntry[iNext]->m_zState;
      for (const auto* pSet : {&m_vpEntry[iFrom]->m_zState.m_spOwn, &m_vpEntry[iFrom]->m_zState.m_spNamed})
        for (const uint64_t i : *pSet)
          if (!zNext.Knows(i)) zNext.m_spNamed.insert(i);
      m_vpEntry[iFrom] = nullptr;
    }
  }
  void Discard(int nEntries, CachedModel& zModel) {
    for (int i = 0; i < Cur() && nEntries > 0; ++i)
      if (Lives(i)) {
        DiscardFront(i, zModel);
        --nEntries;
      }
  }
  void DiscardAll(CachedModel& zModel) {
    CutRedo();
    for (int i = 0; i < static_cast<int>(m_vpEntry.size()); ++i)
      if (Lives(i)) DiscardFront(i, zModel);
    Space().m_iCurBaseSnapShot = -1;
  }
  int Living() const {
    return static_cast<int>(
        std::count_if(m_vpEntry.begin(), m_vpEntry.end(), [](const auto& p) { return p && p->m_pzFile; }));
  }
};

TEST_P(CachedRandom, AgreesWithFullCopies) {
  const Case& zCase = GetParam();
  RecordProperty("seed", static_cast<int>(zCase.m_iSeed));
  std::mt19937 zRandom(zCase.m_iSeed);
  const auto Below = [&](uint64_t n) { return std::uniform_int_distribution<uint64_t>(0, n - 1)(zRandom); };
  if (zCase.m_iKind == Kind::Unmapped) KivSetNoDirectBuffer(true);
  m_vcBase = Pattern(zCase.m_nBase, zCase.m_iSeed);
  MakeFile(u"base", m_vcBase);
  auto pzFile = Open();
  ASSERT_TRUE(pzFile);
  const bool bBackGround = zCase.m_iKind == Kind::BackGround;
  CachedModel zModel(m_vcBase, zCase.m_iKind == Kind::Unmapped ? 0 : 1);
  History zHistory;
  const uint64_t nSteps = Steps(kSteps);
  const uint64_t nReach = kMaxBlocks * kBlock;
  for (uint64_t iStep = 0; iStep < nSteps && !HasFailure(); ++iStep) {
    SCOPED_TRACE("step " + std::to_string(iStep));
    const uint64_t iKind = Below(100);
    uint64_t iOffset = Below(4) == 0 ? Below(kMaxBlocks) * kBlock : Below(nReach);
    uint64_t nCount = std::min(Below(8) == 0 ? Below(3 * kBlock) : Below(600), nReach - iOffset);
    if (iKind < 45) {
      EXPECT_EQ(ReadBytes(*pzFile, iOffset, nCount), Slice(zModel.m_zLive.m_vcContent, iOffset, nCount));
      zModel.StartWork();
      zModel.Touch(zModel.m_zLive, iOffset, nCount);
    } else if (iKind < 70) {
      const Bytes vcData = Pattern(nCount, static_cast<uint32_t>(iStep));
      WriteBytes(*pzFile, iOffset, vcData);
      std::copy(vcData.begin(), vcData.end(), zModel.m_zLive.m_vcContent.begin() + static_cast<int64_t>(iOffset));
      zModel.StartWork();
      zModel.Touch(zModel.m_zLive, iOffset, nCount);
    } else if (iKind < 75) {
      pzFile->WriteZero(iOffset, nCount);
      std::fill_n(zModel.m_zLive.m_vcContent.begin() + static_cast<int64_t>(iOffset), nCount, uint8_t{0});
      if (nCount != 0) zModel.StartWork();
      zModel.Touch(zModel.m_zLive, iOffset, nCount);
    } else if (iKind < 79) {
      if (zHistory.Living() >= kHistoryLimit) zHistory.Discard(1 + static_cast<int>(Below(3)), zModel);
      zModel.StartWork();
      zHistory.Create(*pzFile, zModel);
    } else if (iKind < 83) {
      zHistory.Undo(1 + static_cast<int>(Below(3)), *pzFile, zModel);
    } else if (iKind < 86) {
      zHistory.Redo(1 + static_cast<int>(Below(3)), *pzFile, zModel);
    } else if (iKind < 88) {
      zHistory.Discard(1 + static_cast<int>(Below(2)), zModel);
    } else if (iKind < 89) {
      if (Below(4) == 0) zHistory.DiscardAll(zModel);
    } else if (iKind < 94) {
      // A snapshot reads as on its first day.
      for (auto& pzEntry : zHistory.m_vpEntry) {
        if (pzEntry == nullptr || !pzEntry->m_pzFile || Below(3) != 0) continue;
        EXPECT_EQ(ReadBytes(*pzEntry->m_pzFile, iOffset, nCount),
                  Slice(pzEntry->m_zState.m_vcContent, iOffset, nCount));
        zModel.Touch(pzEntry->m_zState, iOffset, nCount);
      }
    } else if (iKind < 95) {
      if (Below(4) != 0) continue;
      while (pzFile->AdvanceCaching(1000)) {
      }
      zModel.StartWork();
      zModel.SweepToTheEnd();
    } else if (iKind < 96) {
      const uint32_t iPriority = static_cast<uint32_t>(Below(4));
      pzFile->GetLength();
      if (nCount == 0) continue;
      bool bKnown = true;
      uint8_t c = 0;
      pzFile->Read(0, &c, 1);
      zModel.StartWork();
      zModel.Touch(zModel.m_zLive, 0, 1);
      for (uint64_t i = iOffset / kBlock; i <= (iOffset + nCount - 1) / kBlock; ++i)
        if (!zModel.m_zLive.Knows(i)) {
          bKnown = false;
          if (iPriority != 0) zModel.m_vWanted.push_back(i);
        }
      const bool bCached = pzFile->IsRangeCached(iOffset, iOffset + nCount, iPriority);
      if (!bBackGround) {
        EXPECT_EQ(bCached, bKnown);
      }
    } else if (iKind < 97) {
      double adRate[100];
      pzFile->GetCacheStatusMap(adRate);
      zModel.StartWork();
      const uint64_t nBlocks = zModel.BaseBlocks();
      for (int i = 0; i < 100; ++i) {
        int nKnown = 0;
        for (int k = 0; k < 10; ++k)
          nKnown += zModel.m_zLive.Knows(std::min(
              static_cast<uint64_t>(std::floor(static_cast<double>(nBlocks) * (10 * i + k) * 0.001)), nBlocks));
        EXPECT_DOUBLE_EQ(adRate[99 - i], 0.1 * nKnown);
      }
    } else if (iKind < 98) {
      pzFile->Flush();
      if (!zHistory.m_vpEntry.empty()) zHistory.Drop(static_cast<int>(Below(zHistory.m_vpEntry.size())));
    } else if (Below(10) == 0) {
      // A patch on the base gives the same bytes.
      const uint64_t nSize = 1 + Below(nReach);
      uint8_t c = 0;
      pzFile->Read(0, &c, 1);
      zModel.StartWork();
      zModel.Touch(zModel.m_zLive, 0, 1);
      const KivWString csPatch = m_zFolder / u"patch";
      EXPECT_TRUE(pzFile->SaveCache(csPatch, nSize));
      // The blocks that it read are those that are changed, unknown or behind the base: all but the clean known ones.
      auto pzFresh = Open();
      EXPECT_TRUE(pzFresh->LoadCache(csPatch));
      EXPECT_EQ(ReadBytes(*pzFresh, 0, nSize), Slice(zModel.m_zLive.m_vcContent, 0, nSize));
      EXPECT_EQ(ReadBytes(*pzFile, 0, nSize), Slice(zModel.m_zLive.m_vcContent, 0, nSize));
      zModel.Touch(zModel.m_zLive, 0, nSize);
    }
    EXPECT_EQ(pzFile->GetLength(), zModel.Length());
  }
  EXPECT_EQ(ReadBytes(*pzFile, 0, nReach), zModel.m_zLive.m_vcContent);
  for (auto& pzEntry : zHistory.m_vpEntry)
    if (pzEntry != nullptr && pzEntry->m_pzFile) {
      EXPECT_EQ(ReadBytes(*pzEntry->m_pzFile, 0, nReach), pzEntry->m_zState.m_vcContent);
    }
  zHistory.DiscardAll(zModel);
  EXPECT_EQ(CountWorkFiles(), 1);
  EXPECT_EQ(ReadBytes(*pzFile, 0, nReach), zModel.m_zLive.m_vcContent);
  EXPECT_EQ(m_zFolder.ReadBytes(u"base"), Text(m_vcBase));
}

INSTANTIATE_TEST_SUITE_P(
    File, CachedRandom,
    testing::Values(Case{Kind::Memory, 7 * kBlock + 123, 1}, Case{Kind::Memory, 8 * kBlock, 2},
                    Case{Kind::Memory, 0, 3}, Case{Kind::Plain, 7 * kBlock + 1, 4},
                    Case{Kind::Mapped, 7 * kBlock + 65535, 5}, Case{Kind::MappedPrepared, 8 * kBlock, 6},
                    Case{Kind::MappedPrepared, 7 * kBlock + 9, 7}, Case{Kind::Unmapped, 7 * kBlock + 9, 8},
                    Case{Kind::Network, 6 * kBlock + 7, 9}, Case{Kind::BackGround, 7 * kBlock + 77, 10}),
    CaseName);

// --- Classes without a cache ----------------------------------------------------------------------------------------

class PlainRandom : public FileTest, public testing::WithParamInterface<uint32_t> {};

TEST_P(PlainRandom, AWritableMemoryFileAgreesWithAVector) {
  std::mt19937 zRandom(GetParam());
  const auto Below = [&](uint64_t n) { return std::uniform_int_distribution<uint64_t>(0, n - 1)(zRandom); };
  KivWritableMemFile zFile;
  Bytes vcModel;
  std::vector<std::pair<KivSharedPtr<ISnapShotFile>, Bytes>> vzHistory;
  const uint64_t nSteps = Steps(kSteps);
  for (uint64_t iStep = 0; iStep < nSteps && !HasFailure(); ++iStep) {
    SCOPED_TRACE("step " + std::to_string(iStep));
    const uint64_t iOffset = Below(3000);
    const uint64_t nCount = Below(500);
    switch (Below(9)) {
      case 0:
      case 1:
        WriteBytes(zFile, iOffset, Pattern(nCount, static_cast<uint32_t>(iStep)));
        if (nCount != 0 && vcModel.size() < iOffset + nCount) vcModel.resize(iOffset + nCount);
        if (nCount != 0) {
          const Bytes vcData = Pattern(nCount, static_cast<uint32_t>(iStep));
          std::copy(vcData.begin(), vcData.end(), vcModel.begin() + static_cast<int64_t>(iOffset));
        }
        break;
      case 2:
        zFile.WriteZero(iOffset, nCount);
        if (nCount != 0) {
          if (vcModel.size() < iOffset + nCount) vcModel.resize(iOffset + nCount);
          std::fill_n(vcModel.begin() + static_cast<int64_t>(iOffset), nCount, uint8_t{0});
        }
        break;
      case 3:
      case 4:
        if (iOffset + nCount <= vcModel.size()) {
          EXPECT_EQ(ReadBytes(zFile, iOffset, nCount), Slice(vcModel, iOffset, nCount));
        }
        break;
      case 5:
        EXPECT_TRUE(zFile.PrepareDirectBuffer(iOffset));
        if (vcModel.size() < iOffset) vcModel.resize(iOffset);
        break;
      case 6: {
        if (iOffset > vcModel.size()) break;
        const uint8_t* pBuffer = zFile.GetDirectBuffer(true, iOffset, nCount);
        if (iOffset + nCount < vcModel.size()) vcModel.resize(iOffset + nCount);
        if (iOffset < vcModel.size()) {
          EXPECT_EQ(std::memcmp(pBuffer, vcModel.data() + iOffset, vcModel.size() - iOffset), 0);
        }
        break;
      }
      case 7:
        if (vzHistory.size() < 5) {
          vzHistory.emplace_back(m_zSpace.Take(zFile), vcModel);
        } else {
          m_zSpace.Discarding(true);
          EXPECT_EQ(vzHistory.back().first->ReleaseSnapShot(), 0);
          m_zSpace.Discarding(false);
          vzHistory.pop_back();
          m_zSpace.Base(static_cast<int32_t>(vzHistory.size()) - 1);
        }
        break;
      default:
        if (vzHistory.empty()) break;
        {
          const auto& zEntry = vzHistory[Below(vzHistory.size())];
          EXPECT_EQ(zFile.RestoreSnapShot(zEntry.first), 0);
          vcModel = zEntry.second;
          EXPECT_EQ(ReadBytes(*zEntry.first, 0, zEntry.second.size()), zEntry.second);
        }
    }
    EXPECT_EQ(zFile.GetLength(), vcModel.size());
  }
  EXPECT_EQ(zFile.m_vcData, vcModel);
}

TEST_P(PlainRandom, AWritableFileAgreesWithAVector) {
  std::mt19937 zRandom(GetParam());
  const auto Below = [&](uint64_t n) { return std::uniform_int_distribution<uint64_t>(0, n - 1)(zRandom); };
  auto pzFile = KivCreateFile(OpenNew(m_zFolder / u"plain"));
  Bytes vcModel;
  const uint64_t nSteps = Steps(kSteps);
  for (uint64_t iStep = 0; iStep < nSteps && !HasFailure(); ++iStep) {
    SCOPED_TRACE("step " + std::to_string(iStep));
    const uint64_t iOffset = Below(300000);
    const uint64_t nCount = Below(20) == 0 ? Below(200000) : Below(500);
    switch (Below(5)) {
      case 0: {
        const Bytes vcData = Pattern(nCount, static_cast<uint32_t>(iStep));
        WriteBytes(*pzFile, iOffset, vcData);
        if (nCount == 0) break;
        if (vcModel.size() < iOffset + nCount) vcModel.resize(iOffset + nCount);
        std::copy(vcData.begin(), vcData.end(), vcModel.begin() + static_cast<int64_t>(iOffset));
        break;
      }
      case 1:
        pzFile->WriteZero(iOffset, nCount);
        if (nCount == 0) break;
        if (vcModel.size() < iOffset + nCount) vcModel.resize(iOffset + nCount);
        std::fill_n(vcModel.begin() + static_cast<int64_t>(iOffset), nCount, uint8_t{0});
        break;
      case 2:
        if (Below(10) != 0) break;
        EXPECT_TRUE(pzFile->SetLength(iOffset));
        vcModel.resize(iOffset);
        break;
      default: {
        const uint64_t nHeld = iOffset < vcModel.size() ? std::min<uint64_t>(nCount, vcModel.size() - iOffset) : 0;
        EXPECT_EQ(ReadBytes(*pzFile, iOffset, nCount), Slice(vcModel, iOffset, nHeld));
      }
    }
    EXPECT_EQ(pzFile->GetLength(), vcModel.size());
  }
  pzFile.Release();
  EXPECT_EQ(m_zFolder.ReadBytes(u"plain"), Text(vcModel));
}

TEST_P(PlainRandom, AMappedWritableFileAgreesWithAVector) {
  std::mt19937 zRandom(GetParam());
  const auto Below = [&](uint64_t n) { return std::uniform_int_distribution<uint64_t>(0, n - 1)(zRandom); };
  auto pzFile = KivCreateMappedFile(OpenNew(m_zFolder / u"mapped"));
  ASSERT_TRUE(pzFile->CanUseDirectBuffer());
  ASSERT_TRUE(pzFile->PrepareDirectBuffer(1));
  Bytes vcModel(kBlock);
  const uint64_t nSteps = Steps(kSteps);
  for (uint64_t iStep = 0; iStep < nSteps && !HasFailure(); ++iStep) {
    SCOPED_TRACE("step " + std::to_string(iStep));
    const uint64_t iOffset = Below(vcModel.size());
    const uint64_t nCount = std::min<uint64_t>(Below(20) == 0 ? Below(200000) : Below(500), vcModel.size() - iOffset);
    const auto iStart = static_cast<int64_t>(iOffset);
    switch (Below(7)) {
      case 0:
      case 1: {
        const Bytes vcData = Pattern(nCount, static_cast<uint32_t>(iStep));
        WriteBytes(*pzFile, iOffset, vcData);
        std::copy(vcData.begin(), vcData.end(), vcModel.begin() + iStart);
        break;
      }
      case 2:
        pzFile->WriteZero(iOffset, nCount);
        std::fill_n(vcModel.begin() + iStart, nCount, uint8_t{0});
        break;
      case 3: {
        uint8_t* pBuffer = pzFile->GetDirectBuffer(false, iOffset, nCount);
        ASSERT_NE(pBuffer, nullptr);
        std::fill_n(pBuffer, nCount, static_cast<uint8_t>(iStep));
        std::fill_n(vcModel.begin() + iStart, nCount, static_cast<uint8_t>(iStep));
        EXPECT_EQ(pzFile->GetDirectBuffer(true, iOffset, 1), nullptr);
        pzFile->ReleaseDirectBuffer();
        break;
      }
      case 4:
        if (Below(40) != 0 || vcModel.size() > 2000000) break;
        vcModel.resize(vcModel.size() + 1 + Below(150000));
        EXPECT_TRUE(pzFile->PrepareDirectBuffer(vcModel.size()));
        EXPECT_EQ(pzFile->GetDirectBufferSize(), vcModel.size());
        break;
      default:
        EXPECT_EQ(ReadBytes(*pzFile, iOffset, nCount), Slice(vcModel, iOffset, nCount));
    }
    EXPECT_EQ(pzFile->GetLength(), vcModel.size());
  }
  pzFile.Release();
  EXPECT_EQ(m_zFolder.ReadBytes(u"mapped"), Text(vcModel));
}

INSTANTIATE_TEST_SUITE_P(File, PlainRandom, testing::Values(11u, 12u));

}  // namespace
