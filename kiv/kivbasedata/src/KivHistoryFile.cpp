#include "KivHistoryFile.h"

#include <algorithm>

#include "KivDataSpaceFields.h"
#include "KivException.h"

namespace kiv {
namespace {

constexpr char kSource[] = "src\\KivHistoryFile";

}  // namespace

KivHistoryFile::~KivHistoryFile() {
  for (KivHistoryFile* pSnapShot : m_vpSnapShotData)
    if (pSnapShot != nullptr) {
      pSnapShot->m_pOriginal = nullptr;
      pSnapShot->m_bLeft = true;
    }
  if (m_pOriginal == nullptr) return;
  std::vector<KivHistoryFile*>& vpList = m_pOriginal->m_vpSnapShotData;
  if (!m_bHandedOut && !vpList.empty() && vpList.back() == this) {
    vpList.pop_back();
    return;
  }
  std::replace(vpList.begin(), vpList.end(), this, static_cast<KivHistoryFile*>(nullptr));
  m_pOriginal->PassDeadSnapShots();
}

void KivHistoryFile::PassDeadSnapShots() {
  while (m_iFirstSnapShot + 1 < m_vpSnapShotData.size() && m_vpSnapShotData[m_iFirstSnapShot] == nullptr)
    ++m_iFirstSnapShot;
}

size_t KivHistoryFile::CountKeptPlaces() const {
  const int32_t iBase = KivDataSpaceFields::GetInstance()->GetCurBaseSnapShot();
  size_t nKept = m_vpSnapShotData.size();
  while (iBase >= 0 && nKept > static_cast<size_t>(iBase) && m_vpSnapShotData[nKept - 1] == nullptr) --nKept;
  return nKept;
}

bool KivHistoryFile::HasLivingSnapShot() const {
  return std::any_of(m_vpSnapShotData.begin(), m_vpSnapShotData.end(), [](const auto* p) { return p != nullptr; });
}

void KivHistoryFile::LeaveOriginal() {
  m_pOriginal = nullptr;
  m_bLeft = true;
}

bool KivHistoryFile::AdvanceCaching(uint32_t) {
  KIV_FAIL();
  return false;
}

void KivHistoryFile::GetCacheStatusMap(double (&)[100]) {
  KIV_FAIL();
}

bool KivHistoryFile::SaveCache(const KivWString&, uint64_t) {
  KIV_FAIL();
  return false;
}

bool KivHistoryFile::LoadCache(const KivWString&) {
  KIV_FAIL();
  return false;
}

bool KivHistoryFile::IsCacheEnabled() {
  KIV_FAIL();
  return false;
}

void KivHistoryFile::DisableCache() {
  KIV_FAIL();
}

bool KivHistoryFile::IsRangeCached(uint64_t, uint64_t, uint32_t) {
  return true;
}

void KivHistoryFile::RequestBackGroundRead(uint64_t, uint32_t) {}

bool KivHistoryFile::IsBackGroundReadDone(uint64_t) {
  return false;
}

uint8_t* KivHistoryFile::GetDirectBuffer(bool bReadOnly, uint64_t iOffset, uint64_t nCount) {
  if (!KIV_CHECK(bReadOnly || !IsSnapShotFile())) return nullptr;
  uint8_t* pBuffer = DoGetDirectBuffer(bReadOnly, iOffset, nCount);
  if (pBuffer != nullptr && !bReadOnly) m_bModified = true;
  return pBuffer;
}

void KivHistoryFile::ReleaseDirectBuffer() {
  KIV_CHECK(!IsSnapShotFile());
  DoReleaseDirectBuffer();
}

bool KivHistoryFile::PrepareDirectBuffer(uint64_t) {
  KIV_FAIL();
  return false;
}

uint64_t KivHistoryFile::GetDirectBufferSize() {
  KIV_FAIL();
  return 0;
}

uint64_t KivHistoryFile::Read(uint64_t iOffset, void* lpBuf, uint64_t nCount) {
  if (m_bLeft) {
    KIV_FAIL();
    return 0;
  }
  return ReadData(iOffset, lpBuf, nCount);
}

uint64_t KivHistoryFile::GetLength() {
  return GetDataLength();
}

void KivHistoryFile::Write(uint64_t iOffset, const void* lpBuf, uint64_t nCount) {
  WriteData(iOffset, lpBuf, nCount);
}

void KivHistoryFile::WriteZero(uint64_t iOffset, uint64_t nCount) {
  WriteZeroData(iOffset, nCount);
}

bool KivHistoryFile::SetLength(uint64_t iLength) {
  return SetDataLength(iLength);
}

void KivHistoryFile::Flush() {
  FlushData();
}

KivSharedPtr<ISnapShotFile> KivHistoryFile::CreateSnapShot() {
  auto* pSnapShot = dynamic_cast<KivHistoryFile*>(CopyToSnapShot(nullptr));
  if (pSnapShot == nullptr) return nullptr;
  KivSharedPtr<ISnapShotFile> pzSnapShot(pSnapShot);
  pSnapShot->m_bHandedOut = true;
  return pzSnapShot;
}

int32_t KivHistoryFile::RestoreSnapShot(KivSharedPtr<ISnapShotFile> pzSnapShot) {
  return RestoreFromUndo(dynamic_cast<KivFile*>(pzSnapShot.Get()));
}

int32_t KivHistoryFile::ReleaseSnapShot() {
  return DetachSnapShot();
}

KivFile* KivHistoryFile::CopyToSnapShot(KivFile* pSnapShot_arg) {
  if (!KIV_CHECK(!IsSnapShotFile())) return nullptr;
  if (!KIV_CHECK(pSnapShot_arg != NULL)) return nullptr;
  auto* pSnapShot = dynamic_cast<KivHistoryFile*>(KivFile::CopyToSnapShot(pSnapShot_arg));
  if (pSnapShot == nullptr) {
    KIV_FAIL();
    return nullptr;
  }
  m_vpSnapShotData.reserve(m_vpSnapShotData.size() + 1);
  m_vpSnapShotData.resize(CountKeptPlaces());
  m_iFirstSnapShot = std::min<uint64_t>(m_iFirstSnapShot, m_vpSnapShotData.size());
  m_vpSnapShotData.push_back(pSnapShot);
  pSnapShot->m_bModified = m_bModified;
  pSnapShot->m_pOriginal = this;
  PassDeadSnapShots();
  return pSnapShot;
}

int32_t KivHistoryFile::RestoreFromUndo(KivFile* pUndo_arg) {
  auto* pUndo = dynamic_cast<KivHistoryFile*>(pUndo_arg);
  if (pUndo == nullptr) {
    KIV_FAIL();
    return KivRestoreNoSnapShot;
  }
  if (KivFile::RestoreFromUndo(pUndo) != KivRestoreDone) {
    KIV_FAIL();
    return KivRestoreBaseFailed;
  }
  KIV_CHECK(!IsSnapShotFile());
  // A snapshot of another file, or one that has left, names blocks that are not here.
  if (m_vpSnapShotData.empty() || pUndo->m_pOriginal != this) {
    KIV_FAIL();
    return KivRestoreNeverTaken;
  }
  m_bModified = pUndo->m_bModified;
  return KivRestoreDone;
}

void KivHistoryFile::WriteData(uint64_t iOffset, const void* lpBuf, uint64_t nCount) {
  if (!KIV_CHECK(!IsSnapShotFile())) return;
  if (m_bReadOnly) {
    KIV_FAIL();
    return;
  }
  DoWrite(iOffset, lpBuf, nCount);
  m_bModified = true;
}

void KivHistoryFile::WriteZeroData(uint64_t iOffset, uint64_t nCount) {
  if (!KIV_CHECK(!IsSnapShotFile())) return;
  if (m_bReadOnly) {
    KIV_FAIL();
    return;
  }
  DoWriteZero(iOffset, nCount);
  m_bModified = true;
}

int32_t KivHistoryFile::CheckDetach() {
  if (m_pOriginal == nullptr) {
    KIV_FAIL();
    return KivDetachNoOriginal;
  }
  std::vector<KivHistoryFile*>& vpList = m_pOriginal->m_vpSnapShotData;
  if (KivDataSpaceFields::GetInstance()->m_bDiscardingSnapShot) {
    // Those that died without a release do not stand in the way.
    const auto pLast = std::find_if(vpList.rbegin(), vpList.rend(), [](const auto* p) { return p != nullptr; });
    if (pLast == vpList.rend()) {
      KIV_FAIL();
      return KivDetachListEmpty;
    }
    KIV_CHECK_AS(*pLast == this, "m_pOriginal->m_vpSnapShotData.back() == this");
    return KivDetachDone;
  }
  KIV_CHECK_AS(KivDataSpaceFields::GetInstance()->GetCurBaseSnapShot() >= 0,
               "KivDataSpaceBase::GetInstance()->GetCurBaseSnapShot() >= 0");
  const uint64_t i = m_pOriginal->m_iFirstSnapShot;
  if (i + 1 > vpList.size()) {
    KIV_FAIL();
    return KivDetachBehindList;
  }
  if (vpList[i] == nullptr) {
    KIV_FAIL();
    return KivDetachNullEntry;
  }
  if (vpList[i] != this) {
    KIV_FAIL();
    return KivDetachNotOldest;
  }
  return KivDetachDone;
}

void KivHistoryFile::LeaveList() {
  KivHistoryFile* const pOriginal = m_pOriginal;
  std::vector<KivHistoryFile*>& vpList = pOriginal->m_vpSnapShotData;
  if (KivDataSpaceFields::GetInstance()->m_bDiscardingSnapShot) {
    while (vpList.back() == nullptr) vpList.pop_back();
    KivHistoryFile* const pLast = vpList.back();
    vpList.pop_back();
    pLast->LeaveOriginal();
    return;
  }
  uint64_t& iFirst = pOriginal->m_iFirstSnapShot;
  const int64_t iBase = KivDataSpaceFields::GetInstance()->GetCurBaseSnapShot();
  const uint64_t iEnd = iBase < 0 ? vpList.size() + 1 : static_cast<uint64_t>(iBase) + 1;
  vpList[iFirst] = nullptr;
  ++iFirst;
  // Those that died without a release have left already.
  while (iFirst < iEnd && iFirst < vpList.size() && vpList[iFirst] == nullptr) ++iFirst;
  if (iFirst >= iEnd) {
    iFirst = 0;
    for (KivHistoryFile* pSnapShot : vpList)
      if (pSnapShot != nullptr) pSnapShot->LeaveOriginal();
    vpList.clear();
  }
  LeaveOriginal();
}

int32_t KivHistoryFile::DetachSnapShot() {
  const int32_t iResult = CheckDetach();
  if (iResult == KivDetachDone) LeaveList();
  return iResult;
}

uint8_t* KivHistoryFile::DoGetDirectBuffer(bool, uint64_t, uint64_t) {
  return nullptr;
}

}  // namespace kiv
