#include "KivCacheUseFile.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "KivDataSpaceFields.h"
#include "KivDataUtil.h"
#include "KivException.h"
#include "KivFileFactory.h"
#include "KivFile_Zero.h"
#include "KivLittleEndian.h"

namespace kiv {
namespace {

constexpr char kSource[] = "src\\KivCacheUseFile";
constexpr uint64_t kEndOfOffsets = uint64_t{1} << 63;

}  // namespace

KivCacheUseFile::~KivCacheUseFile() {
  if (KivCacheUseFile* pOriginal = CachedOriginal(); pOriginal != nullptr && m_pzFileCache != nullptr) {
    const std::vector<KivFileCache*>& vpCache = pOriginal->m_vpCacheSnapShot;
    const bool bLast = !vpCache.empty() && vpCache.back() == m_pzFileCache.get();
    if (!m_bHandedOut && bLast && pOriginal->m_pzFileCache != nullptr) {
      pOriginal->m_vpCacheSnapShot.pop_back();
      pOriginal->m_pzFileCache->TakeBack(*m_pzFileCache);
    } else {
      LeaveCacheToOriginal();
    }
  }
  for (KivFileCache* pCache : m_vpCacheSnapShot)
    if (pCache != nullptr) {
      pCache->m_pzOwner = nullptr;
      pCache->m_pOriginal = nullptr;
    }
}

void KivCacheUseFile::UnlinkCache() {
  if (m_pzFileCache == nullptr) return;
  if (KivCacheUseFile* pOriginal = CachedOriginal()) {
    std::replace(pOriginal->m_vpCacheSnapShot.begin(), pOriginal->m_vpCacheSnapShot.end(), m_pzFileCache.get(),
                 static_cast<KivFileCache*>(nullptr));
    if (pOriginal->m_pzFileCache != nullptr) {
      auto& vpStatus = pOriginal->m_pzFileCache->m_vpSnapShotStatus;
      std::replace(vpStatus.begin(), vpStatus.end(), &m_pzFileCache->m_vcCacheStatus,
                   static_cast<std::vector<uint32_t>*>(nullptr));
    }
  }
  m_pzFileCache->m_pzOwner = nullptr;
  m_pzFileCache->m_pOriginal = nullptr;
}

void KivCacheUseFile::LeaveCacheToOriginal() {
  KivCacheUseFile& zOriginal = *CachedOriginal();
  const auto& vpCache = zOriginal.m_vpCacheSnapShot;
  if (std::find(vpCache.begin(), vpCache.end(), m_pzFileCache.get()) == vpCache.end())
    UnlinkCache();
  else
    zOriginal.m_vpzLeftCache.push_back(std::move(m_pzFileCache));  // there is room
}

void KivCacheUseFile::LeaveOriginal() {
  UnlinkCache();
  KivHistoryFile::LeaveOriginal();
}

KivFileCache* KivCacheUseFile::GetCache() {
  if (!m_bEnableCache) return nullptr;
  if (m_pzFileCache == nullptr) {
    m_pzFileCache = std::make_unique<KivFileCache>(this);
    m_pzFileCache->GetWorkFile();
  }
  return m_pzFileCache.get();
}

uint64_t KivCacheUseFile::GetOrgFileSize() {
  if (m_iOrgFileSize == 0) {
    m_bLengthUnknown = false;
    const uint64_t iLength = DoGetLength();
    if (!m_bLengthUnknown) m_iOrgFileSize = iLength;
  }
  return m_iOrgFileSize;
}

bool KivCacheUseFile::KnowsOrgFileSize() {
  return GetOrgFileSize() != 0 || !m_bLengthUnknown;
}

bool KivCacheUseFile::AdvanceCaching(uint32_t iMilliSeconds) {
  if (!KIV_CHECK(!IsSnapShotFile())) return false;
  KivFileCache* pCache = GetCache();
  return pCache != nullptr && pCache->AdvanceCaching(iMilliSeconds);
}

void KivCacheUseFile::GetCacheStatusMap(double (&adRate)[100]) {
  std::fill(std::begin(adRate), std::end(adRate), 1.0);
  if (!KIV_CHECK(!IsSnapShotFile())) return;
  if (KivFileCache* pCache = GetCache()) pCache->GetCacheStatusMap(adRate);
}

bool KivCacheUseFile::SaveCache(const KivWString& csPath, uint64_t iSize) {
  if (!KIV_CHECK(!IsSnapShotFile())) return false;
  return m_pzFileCache != nullptr && m_pzFileCache->SaveCache(csPath, iSize);
}

bool KivCacheUseFile::LoadCache(const KivWString& csPath) {
  if (!KIV_CHECK(!IsSnapShotFile())) return false;
  KivSysOpenMode zMode;
  zMode.m_iFlags = KivSysFileFlags::SequentialScan | KivSysFileFlags::Temporary;
  KivSysFile hFile = KivSysFile::Open(csPath, zMode);
  if (!hFile.IsOpen()) {
    KIV_FAIL();
    return false;
  }
  const KivSharedPtr<ISnapShotFile> pzPatch = KivCreateReadOnlyFile(std::move(hFile), false);
  if (!pzPatch) {
    KIV_FAIL();
    return false;
  }
  const uint64_t iAllocationGranularity = KivGetAllocationGranularity();
  // Blocks behind the end of the file come without gaps, so that a sound patch reaches no further than this. A number
  // that no real patch of this file holds must not claim memory or disk.
  const uint64_t iLength = GetLength();
  const uint64_t nPatch = pzPatch->GetLength();
  std::vector<uint8_t> vcBlock(iAllocationGranularity);
  uint64_t iCursor = 0;
  for (;;) {
    uint8_t acNumber[8];
    const uint64_t iRead = pzPatch->Read(iCursor, acNumber, sizeof acNumber);
    if (iRead != sizeof acNumber) {
      KIV_CHECK(iRead == 0);
      return true;
    }
    uint8_t acLength[8];
    if (pzPatch->Read(iCursor + 8, acLength, sizeof acLength) != sizeof acLength) break;
    const uint64_t iBlock = KivLoad<uint64_t>(acNumber);
    const uint64_t nLength = KivLoad<uint64_t>(acLength);
    if (nLength == 0 || nLength > iAllocationGranularity) break;
    if (pzPatch->Read(iCursor + 16, vcBlock.data(), nLength) != nLength) break;
    if (iBlock >= kEndOfOffsets / iAllocationGranularity) break;
    const uint64_t iStart = iBlock * iAllocationGranularity;
    if (iStart > iLength && iStart - iLength > nPatch) break;
    Write(iStart, vcBlock.data(), nLength);
    iCursor += 16 + nLength;
  }
  KIV_FAIL();
  return true;
}

void KivCacheUseFile::DisableCache() {
  m_bEnableCache = false;
  UnlinkCache();
  for (KivFileCache* pCache : m_vpCacheSnapShot)
    if (pCache != nullptr && pCache->m_pOriginal == m_pzFileCache.get()) pCache->m_pOriginal = nullptr;
  m_pzFileCache.reset();
}

void KivCacheUseFile::CheckFileStatus() {
  if (m_bEnableCache && m_pzFileCache != nullptr) m_pzFileCache->CheckFileStatus();
}

bool KivCacheUseFile::IsRangeCached(uint64_t iStart, uint64_t iEnd, uint32_t iPriority) {
  if (!m_bEnableCache || m_pzFileCache == nullptr || m_pzFileCache->GetWorkFile() == nullptr) return true;
  return m_pzFileCache->IsRangeCached(iStart, iEnd, iPriority);
}

KivFile* KivCacheUseFile::CopyToSnapShot(KivFile* pSnapShot_arg) {
  if (!KIV_CHECK(!IsSnapShotFile())) return nullptr;
  if (!KIV_CHECK(pSnapShot_arg != NULL)) return nullptr;
  if (!ClearNextPlace()) return nullptr;
  auto* pSnapShot = dynamic_cast<KivCacheUseFile*>(KivHistoryFile::CopyToSnapShot(pSnapShot_arg));
  if (pSnapShot == nullptr) return nullptr;
  if (!m_bEnableCache) {
    KIV_FAIL();
    return nullptr;
  }
  pSnapShot->m_bEnableCache = m_bEnableCache;
  m_vpCacheSnapShot.reserve(m_vpCacheSnapShot.size() + 1);
  m_vpzLeftCache.reserve(m_vpCacheSnapShot.size() + 1);
  KivFileCache* pCache = GetCache();
  pSnapShot->m_pzFileCache = pCache->CreateSnapShot();
  if (pSnapShot->m_pzFileCache == nullptr) return nullptr;
  m_vpCacheSnapShot.push_back(pSnapShot->m_pzFileCache.get());
  pSnapShot->m_iOrgFileSize = m_iOrgFileSize;
  return pSnapShot;
}

int32_t KivCacheUseFile::RestoreFromUndo(KivFile* pUndo_arg) {
  auto* pUndo = dynamic_cast<KivCacheUseFile*>(pUndo_arg);
  if (pUndo == nullptr) {
    KIV_FAIL();
    return KivRestoreNoSnapShot;
  }
  // A restore that fails leaves the mark with the contents that it belongs to.
  struct KeepModified {
    ~KeepModified() {
      if (!m_bRestored) m_bModified = m_bBefore;
    }
    bool& m_bModified;
    const bool m_bBefore;
    bool m_bRestored;
  } zKeep{m_bModified, m_bModified, false};
  if (KivHistoryFile::RestoreFromUndo(pUndo) != KivRestoreDone) {
    KIV_FAIL();
    return KivRestoreBaseFailed;
  }
  KIV_CHECK(!IsSnapShotFile());
  if (!m_bEnableCache) {
    KIV_FAIL();
    return KivRestoreCacheOff;
  }
  if (m_pzFileCache == nullptr || pUndo->m_pzFileCache == nullptr) {
    KIV_FAIL();
    return KivRestoreNoCache;
  }
  KIV_CHECK(m_bEnableCache == pUndo->m_bEnableCache);
  if (!m_pzFileCache->RestoreFrom(*pUndo->m_pzFileCache)) {
    KIV_FAIL();
    return KivRestoreCacheNotReset;
  }
  zKeep.m_bRestored = true;
  m_iOrgFileSize = pUndo->m_iOrgFileSize;
  return KivRestoreDone;
}

uint64_t KivCacheUseFile::ReadData(uint64_t iOffset, void* lpBuf, uint64_t nCount) {
  if (!CanUseCache()) {
    if (!IsSnapShotFile()) return DoRead(iOffset, lpBuf, nCount);
    if (!m_bEnableCache) {
      KIV_FAIL();
      return 0;
    }
  }
  KivFileCache* pCache = GetCache();
  return pCache != nullptr ? pCache->ReadCached(iOffset, nCount, lpBuf) : 0;
}

void KivCacheUseFile::WriteData(uint64_t iOffset, const void* lpBuf, uint64_t nCount) {
  if (!KIV_CHECK(!IsSnapShotFile())) return;
  if (CanUseCache()) {
    GetCache()->WriteCached(iOffset, nCount, lpBuf);
    return;
  }
  if (m_bReadOnly) {
    KIV_FAIL();
    return;
  }
  DoWrite(iOffset, lpBuf, nCount);
  m_bModified = true;
}

void KivCacheUseFile::WriteZeroData(uint64_t iOffset, uint64_t nCount) {
  if (!KIV_CHECK(!IsSnapShotFile())) return;
  if (CanUseCache()) {
    if (nCount == 0) return;
    KivFileCache* pCache = GetCache();
    if (!pCache->IsInReach(iOffset, nCount) || !pCache->HasRoomFor(iOffset, nCount)) {
      KIV_FAIL();
      return;
    }
    while (nCount != 0) {
      // Pieces end where blocks end.
      const uint64_t nPiece = std::min(nCount, kKivZeroBytes - iOffset % kKivZeroBytes);
      if (!pCache->WriteCached(iOffset, nPiece, g_acKivZero)) return;
      iOffset += nPiece;
      nCount -= nPiece;
    }
    return;
  }
  if (m_bReadOnly) {
    KIV_FAIL();
    return;
  }
  if (nCount == 0) return;
  DoWriteZero(iOffset, nCount);
  m_bModified = true;
}

bool KivCacheUseFile::SetDataLength(uint64_t iLength) {
  if (!KIV_CHECK(!IsSnapShotFile())) return false;
  if (m_bReadOnly || m_bEnableCache) {
    KIV_FAIL();
    return false;
  }
  DoSetLength(iLength);
  m_bModified = true;
  return true;
}

void KivCacheUseFile::FlushData() {
  if (!KIV_CHECK(!IsSnapShotFile())) return;
  if (!m_bReadOnly) {
    DoFlush();
    return;
  }
  if (m_bEnableCache && m_pzFileCache != nullptr && m_pzFileCache->HasWorkFile()) m_pzFileCache->FlushWork();
}

uint64_t KivCacheUseFile::GetDataLength() {
  uint64_t nLength = 0;
  if (IsSnapShotFile()) {
    if (m_pOriginal == nullptr) {
      KIV_FAIL();
      return 0;
    }
    nLength = m_pOriginal->GetDataLength();
  } else {
    nLength = m_bReadOnly ? GetOrgFileSize() : DoGetLength();
  }
  if (m_pzFileCache != nullptr && m_pzFileCache->HasWorkFile())
    nLength = std::max(nLength, m_pzFileCache->GetWorkLength());
  return nLength;
}

bool KivCacheUseFile::FetchFromSnapShots(uint64_t iFrom) {
  if (m_pzFileCache == nullptr) return true;
  const uint64_t iAllocationGranularity = KivGetAllocationGranularity();
  KivFileCache& zLive = *m_pzFileCache;
  for (uint64_t i = 0; i < zLive.m_vcCacheStatus.size(); ++i) {
    if (!zLive.IsWithSnapShot(i, iFrom)) continue;
    char cDummy = 0;
    const uint64_t iRead = Read(i * iAllocationGranularity, &cDummy, sizeof(cDummy));
    if (!KIV_CHECK(iRead == sizeof(cDummy))) return false;
  }
  return true;
}

bool KivCacheUseFile::HandOverBlocks() {
  const int64_t iBase = KivDataSpaceFields::GetInstance()->GetCurBaseSnapShot();
  const uint64_t iLeaving = m_iFirstSnapShot;
  // Behind the base the list ends with this release, whatever it holds.
  uint64_t iEnd = m_vpCacheSnapShot.size();
  if (iBase >= 0) iEnd = std::min(iEnd, static_cast<uint64_t>(iBase) + 1);
  bool bLast = true;
  for (uint64_t i = iLeaving + 1; i < iEnd; ++i)
    bLast = bLast && (m_vpSnapShotData[i] == nullptr || m_vpCacheSnapShot[i] == nullptr);
  if (bLast) return FetchFromSnapShots(0);
  while (m_iFirstCache <= iLeaving) {
    KivFileCache* const pCache = m_vpCacheSnapShot[m_iFirstCache];
    uint64_t iNext = m_iFirstCache + 1;
    while (iNext <= iLeaving && m_vpCacheSnapShot[iNext] == nullptr) ++iNext;
    if (pCache != nullptr) {
      while (m_vpCacheSnapShot[iNext] == nullptr) ++iNext;
      if (!pCache->MergeCacheSnapShot(*m_vpCacheSnapShot[iNext])) return false;
    }
    ForgetCache(m_iFirstCache);
    m_iFirstCache = iNext;
  }
  return true;
}

bool KivCacheUseFile::ClearNextPlace() {
  if (m_vpCacheSnapShot.empty()) return true;
  const size_t nKept = CountKeptPlaces();
  const bool bAnyLives = HasLivingSnapShot();
  if (bAnyLives && m_vpCacheSnapShot.size() <= nKept) return true;
  // Where none lives the file itself is the only one that needs what they have left.
  const uint64_t iFrom = bAnyLives ? nKept : 0;
  if (!FetchFromSnapShots(iFrom)) return false;
  for (uint64_t i = iFrom; i < m_vpCacheSnapShot.size(); ++i) ForgetCache(i);
  CutCacheLists(nKept);
  return true;
}

void KivCacheUseFile::ForgetCache(uint64_t iIndex) {
  const KivFileCache* const pCache = std::exchange(m_vpCacheSnapShot[iIndex], nullptr);
  if (m_pzFileCache != nullptr && iIndex < m_pzFileCache->m_vpSnapShotStatus.size())
    m_pzFileCache->m_vpSnapShotStatus[iIndex] = nullptr;
  std::erase_if(m_vpzLeftCache, [pCache](const auto& pzLeft) { return pzLeft.get() == pCache; });
}

int32_t KivCacheUseFile::DetachSnapShot() {
  if (m_pOriginal == nullptr) {
    KIV_FAIL();
    return KivDetachNoOriginal;
  }
  if (!m_bEnableCache) {
    KIV_FAIL();
    return KivDetachCacheOff;
  }
  KivCacheUseFile* const pOriginal = CachedOriginal();
  if (pOriginal == nullptr) {
    KIV_FAIL();
    return KivDetachOriginalNotCached;
  }
  // No block moves for a snapshot that has to stay.
  const int32_t iResult = CheckDetach();
  if (iResult != KivDetachDone) return iResult;
  const bool bDiscarding = KivDataSpaceFields::GetInstance()->m_bDiscardingSnapShot;
  if (!bDiscarding && !pOriginal->HandOverBlocks()) return KivDetachBehindList;
  LeaveList();
  pOriginal->CutCacheLists(pOriginal->m_vpSnapShotData.size());
  // The file has fetched all that the last one, and the dead ones, had.
  if (!bDiscarding && !pOriginal->HasLivingSnapShot())
    for (uint64_t i = 0; i < pOriginal->m_vpCacheSnapShot.size(); ++i) pOriginal->ForgetCache(i);
  return KivDetachDone;
}

void KivCacheUseFile::CutCacheLists(size_t nSnapShots) {
  for (uint64_t i = nSnapShots; i < m_vpCacheSnapShot.size(); ++i) ForgetCache(i);
  if (m_vpCacheSnapShot.size() > nSnapShots) m_vpCacheSnapShot.resize(nSnapShots);
  if (m_pzFileCache != nullptr && m_pzFileCache->m_vpSnapShotStatus.size() > nSnapShots)
    m_pzFileCache->m_vpSnapShotStatus.resize(nSnapShots);
  m_iFirstCache = std::min<uint64_t>(m_iFirstCache, nSnapShots);
}

void KivCacheUseFile::FillCached(uint64_t iOffset, uint64_t nCount, const void* lpBuf) {
  if (nCount == 0) return;
  if (KivFileCache* pCache = GetCache()) pCache->FillCached(iOffset, nCount, lpBuf);
}

}  // namespace kiv
