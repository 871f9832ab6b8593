// Snapshots of a block cache: what is taken over, what is restored, and where the blocks of the oldest one go.
#include <algorithm>
#include <utility>

#include "KivDataSpaceFields.h"
#include "KivException.h"
#include "KivFileCache.h"
#include "KivWinMappedFile.h"

namespace kiv {
namespace {

constexpr char kSource[] = "src\\KivFileCache";

}  // namespace

std::vector<uint32_t> KivFileCache::WordsBehindSnapShot(const std::vector<uint32_t>& vcStatus, int32_t iBase) const {
  const uint32_t iPlace = static_cast<uint32_t>(iBase) * 4 + 4;
  std::vector<uint32_t> vcNew(vcStatus.size());
  bool bSound = true;
  for (size_t i = 0; i < vcStatus.size(); ++i) {
    const uint32_t iWord = vcStatus[i];
    if ((iWord & 1) != 0)
      vcNew[i] = (iWord & 2) + iPlace;
    else if (iWord >= 4)
      vcNew[i] = iWord;
    else
      bSound = bSound && iWord == 0;
  }
  KIV_CHECK_AS(bSound, "m_vcCacheStatus[i] == 0");
  return vcNew;
}

bool KivFileCache::CompleteLastBlock() {
  const uint64_t iLength = GetWorkLength();
  const uint64_t nInBlock = iLength % m_iBlockSize;
  if (nInBlock == 0 || !HasOwn(iLength / m_iBlockSize)) return true;
  const std::vector<uint8_t> vcZeros(m_iBlockSize - nInBlock);
  return WriteWork(*m_pzCacheFile, iLength, vcZeros.data(), vcZeros.size());
}

std::unique_ptr<KivFileCache> KivFileCache::CreateSnapShot() {
  if (!KIV_CHECK(!IsSnapShotFile())) return nullptr;
  if (GetWorkFile() == nullptr) return nullptr;
  // The new work file gets the length as it is, the snapshot's whole blocks.
  const uint64_t iLength = GetWorkLength();
  if (!m_bWorkLengthKnown) return nullptr;
  const int32_t iBase = KivDataSpaceFields::GetInstance()->GetCurBaseSnapShot();
  if (!KIV_CHECK_AS(iBase >= 0, "KivDataSpaceBase::GetInstance()->GetCurBaseSnapShot() >= 0")) return nullptr;
  // All that can fail comes first, so that a failed snapshot leaves the cache as it was.
  if (!CompleteLastBlock()) return nullptr;
  std::vector<uint32_t> vcNew = WordsBehindSnapShot(m_vcCacheStatus, iBase);
  auto pzSnapShot = std::make_unique<KivFileCache>(m_pzOwner);
  m_vpSnapShotStatus.reserve(m_vpSnapShotStatus.size() + 1);
  std::unique_ptr<KivWinMappedFile> pzNewWork = OpenWorkFile(iLength);
  if (pzNewWork == nullptr) {
    KIV_FAIL();
    return nullptr;
  }
  pzSnapShot->m_bSnapShot = true;
  pzSnapShot->m_pOriginal = this;
  pzSnapShot->m_pzCacheFile = std::move(m_pzCacheFile);
  pzSnapShot->m_vcCacheStatus = std::move(m_vcCacheStatus);
  pzSnapShot->m_iSweptBlocks = m_iSweptBlocks;
  m_vcCacheStatus = std::move(vcNew);
  m_vpSnapShotStatus.push_back(&pzSnapShot->m_vcCacheStatus);
  m_pzCacheFile = std::move(pzNewWork);
  m_bWorkLengthKnown = false;
  return pzSnapShot;
}

void KivFileCache::TakeBack(KivFileCache& zSnapShot) {
  m_pzCacheFile = std::move(zSnapShot.m_pzCacheFile);
  m_bWorkLengthKnown = false;
  m_vcCacheStatus = std::move(zSnapShot.m_vcCacheStatus);
  if (!m_vpSnapShotStatus.empty() && m_vpSnapShotStatus.back() == &zSnapShot.m_vcCacheStatus)
    m_vpSnapShotStatus.pop_back();
  zSnapShot.m_pOriginal = nullptr;
}

bool KivFileCache::RestoreFrom(const KivFileCache& zUndo) {
  if (GetWorkFile() == nullptr || !zUndo.m_vbForeign.empty()) {
    KIV_FAIL();
    return false;
  }
  const int32_t iBase = KivDataSpaceFields::GetInstance()->GetCurBaseSnapShot();
  if (!KIV_CHECK_AS(iBase >= 0, "KivDataSpaceBase::GetInstance()->GetCurBaseSnapShot() >= 0")) return false;
  std::vector<uint32_t> vcNew = WordsBehindSnapShot(zUndo.m_vcCacheStatus, iBase);
  std::unique_ptr<KivWinMappedFile> pzNewWork = OpenWorkFile(0);
  if (pzNewWork == nullptr) {
    KIV_FAIL();
    return false;
  }
  m_pzCacheFile = std::move(pzNewWork);
  m_bWorkLengthKnown = false;
  m_vcCacheStatus = std::move(vcNew);
  m_dqWanted.clear();
  m_iSweptBlocks = 0;
  return true;
}

bool KivFileCache::MergeCacheSnapShot(KivFileCache& zNext) {
  KivWinMappedFile* pWork = GetWorkFile();
  KivWinMappedFile* pNextWork = zNext.GetWorkFile();
  if (pWork == nullptr || pNextWork == nullptr) return false;
  std::vector<uint8_t> vcBlock(m_iBlockSize);
  if (!GrowStatus(zNext.m_vcCacheStatus.size())) return false;
  for (size_t i = 0; i < zNext.m_vcCacheStatus.size(); ++i) {
    if (!zNext.HasOwn(i)) continue;
    if (!ReadWorkBlock(*pNextWork, i, vcBlock.data())) return false;
    if (m_vbForeign.size() <= i) m_vbForeign.resize(m_vcCacheStatus.size());
    m_vbForeign[i] = true;
    if (!WriteWork(*pWork, i * m_iBlockSize, vcBlock.data(), m_iBlockSize)) return false;
    m_vcCacheStatus[i] = zNext.m_vcCacheStatus[i] & 3;
  }
  zNext.m_vcCacheStatus = m_vcCacheStatus;
  std::swap(m_pzCacheFile, zNext.m_pzCacheFile);
  std::swap(m_iWorkLength, zNext.m_iWorkLength);
  std::swap(m_bWorkLengthKnown, zNext.m_bWorkLengthKnown);
  return true;
}

}  // namespace kiv
