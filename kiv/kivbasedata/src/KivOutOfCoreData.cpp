#include "KivOutOfCoreData.h"

#include <limits>

#include "KivDataSpaceFields.h"
#include "KivException.h"
#include "KivOutOfCoreManager.h"
#include "KivPositionTableManager.h"

namespace kiv {
namespace {

constexpr char kSource[] = "src\\KivOutOfCoreData";

}  // namespace

KivOutOfCoreData::KivOutOfCoreData(uint32_t iManagerKey) : m_iManagerKey(iManagerKey) {}

KivOutOfCoreData::~KivOutOfCoreData() {
  KivOutOfCoreManager* pzManager = KivOutOfCoreManager::FindWithStore(m_iManagerKey);
  if (pzManager == nullptr) return;
  pzManager->ForgetElement(this);
  // While the history moves, the store is not the one that this element belongs to.
  if (KivDataSpaceFields::GetInstance()->m_bDiscardingSnapShot) return;
  if (!m_bTemporary) return;
  // A destructor lets no exception out; the reports have been made.
  try {
    if (m_iPosition != 0) pzManager->FreeRecord(m_iPosition);
    m_iPosition = 0;
  } catch (...) {
  }
  try {
    pzManager->Release();
  } catch (...) {
  }
}

bool KivOutOfCoreData::Load(bool) {
  KIV_FAIL();
  return false;
}

bool KivOutOfCoreData::Save(bool) {
  KIV_FAIL();
  return false;
}

bool KivOutOfCoreData::HasStore() const {
  return KivOutOfCoreManager::FindWithStore(m_iManagerKey) != nullptr;
}

bool KivOutOfCoreData::IsVer19Data() const {
  const KivOutOfCoreManager* pzManager = KivOutOfCoreManager::FindWithStore(m_iManagerKey);
  return pzManager != nullptr && pzManager->IsVer19Data();
}

KivModelStatusBase* KivOutOfCoreData::GetModelStatus() {
  // The manager's answer is kept there; a model may have gone since the last call.
  KivOutOfCoreManager* pzManager = KivOutOfCoreManager::Find(m_iManagerKey);
  m_pzModelStatus = pzManager != nullptr ? pzManager->GetModelStatus() : nullptr;
  return m_pzModelStatus;
}

// --- In and out of memory -------------------------------------------------------------------------------------------

bool KivOutOfCoreData::Activate(bool bModifyOnlyForPosition) {
  KivOutOfCoreManager* pzManager = KivOutOfCoreManager::FindWithStore(m_iManagerKey);
  if (pzManager == nullptr) {
    KIV_CHECK(!bModifyOnlyForPosition);
    return true;
  }
  if (m_bActive) {
    KIV_CHECK(!bModifyOnlyForPosition);
    if (!pzManager->TouchElement(this)) {
      KIV_FAIL();
      return false;
    }
    return true;
  }
  bool bLoaded = false;
  try {
    if (pzManager->TouchElement(this)) {
      m_bActive = true;
      bLoaded = Load(bModifyOnlyForPosition);
    }
  } catch (...) {
    pzManager->UnlinkElement(this);
    m_bActive = false;
    WithoutThrow([this] { return Release(); });
    throw;
  }
  if (bLoaded) return true;
  pzManager->UnlinkElement(this);
  m_bActive = false;
  Release();
  KIV_FAIL();
  return false;
}

// The part of Deactivate that leaves the element on the manager's list.
bool KivOutOfCoreData::StoreAndRelease() {
  if (m_bModified) {
    if (!Save(false)) {
      KIV_FAIL();
      return false;
    }
    m_bModified = false;
  }
  if (!Release()) KIV_FAIL();
  m_bActive = false;
  // An object that is not the manager's may outlive the store, and must not keep its files.
  if (m_iMapPosition == 0) DropRecordReference();
  return true;
}

bool KivOutOfCoreData::Deactivate() {
  if (!m_bActive) return true;
  KivOutOfCoreManager* pzManager = KivOutOfCoreManager::FindWithStore(m_iManagerKey);
  if (pzManager == nullptr) return true;
  if (!StoreAndRelease()) return false;
  // This object may be gone afterwards.
  if (!pzManager->RemoveActiveElement(this)) {
    KIV_FAIL();
    return false;
  }
  return true;
}

bool KivOutOfCoreData::Unload() {
  KivOutOfCoreManager* pzManager = KivOutOfCoreManager::FindWithStore(m_iManagerKey);
  if (!m_bActive || pzManager == nullptr) return true;
  if (!StoreAndRelease()) return false;
  pzManager->UnlinkElement(this);
  return true;
}

void KivOutOfCoreData::MarkModified() {
  DropRecordReference();
  m_vcRawData.clear();
  m_vcUnpackedData.clear();
  m_bModified = true;
}

// Writes a modified element and gives its position.
bool KivOutOfCoreData::SaveForPosition(uint64_t& iPosition) {
  if (m_bModified) {
    if (!Save(false)) return false;
    m_bModified = false;
  }
  iPosition = m_iPosition;
  return iPosition != 0;
}

uint64_t KivOutOfCoreData::DeactivateForPosition() {
  uint64_t iPosition = m_iPosition;
  if (m_bActive && !SaveForPosition(iPosition)) {
    KIV_FAIL();
    return 0;
  }
  if (!Deactivate()) {
    KIV_FAIL();
    return 0;
  }
  return iPosition;
}

uint64_t KivOutOfCoreData::AssignPositionKey() {
  KivOutOfCoreManager* pzManager = KivOutOfCoreManager::FindWithStore(m_iManagerKey);
  if (pzManager == nullptr || !Activate(false)) {
    KIV_FAIL();
    return 0;
  }
  MarkModified();
  // The position is taken before the end of the element: the manager may destroy the object in Deactivate.
  const bool bObjectStays = pzManager->IsObjectKept(this);
  uint64_t iPosition = 0;
  if (!SaveForPosition(iPosition) || !Deactivate()) {
    KIV_FAIL();
    return 0;
  }
  KivPositionTableManager* pzTables = pzManager->GetPositionTableManager();
  if (pzTables == nullptr || pzTables->GetFilePositionTableMode() == 0) return iPosition;
  uint64_t iKey = 0;
  if (!pzTables->AddKey(iPosition, &iKey)) {
    KIV_FAIL();
    return 0;
  }
  pzManager->SetTablesChanged();
  if (bObjectStays) m_iPositionKey = iKey;
  return iKey;
}

// --- Record ---------------------------------------------------------------------------------------------------------

bool KivOutOfCoreData::ReadData(void* pBuffer, uint64_t nCount) {
  KivOutOfCoreManager* pzManager = KivOutOfCoreManager::FindWithStore(m_iManagerKey);
  KivOutOfCoreMemoryStorage* pzStorage = pzManager != nullptr ? pzManager->GetStorage() : nullptr;
  const bool bRead = pzStorage != nullptr && m_iPosition != 0 &&
                     pzStorage->ReadRecord(m_iPosition, pBuffer, nCount, m_zRecordRef) == KivStorageResult::Done;
  if (m_iMapPosition == 0 && !m_bActive) DropRecordReference();
  if (!bRead) {
    KIV_FAIL();
    return false;
  }
  m_bModified = false;
  return true;
}

// After the record has moved: the map's entry and the key lead to the new position.
bool KivOutOfCoreData::FollowRecord(KivOutOfCoreManager& zManager, uint64_t iOldPosition) {
  const bool bKeyed = m_iPositionKey != 0 && m_iPositionKey != iOldPosition;
  zManager.MoveMapEntry(this, iOldPosition, m_iPosition);
  if (!bKeyed || m_iPosition == iOldPosition) return true;
  zManager.SetTablesChanged();
  return zManager.GetPositionTableManager()->ReplacePosition(m_iPosition, m_iPositionKey);
}

bool KivOutOfCoreData::WriteData(const void* pBuffer, uint64_t nCount) {
  KivOutOfCoreManager* pzManager = KivOutOfCoreManager::FindWithStore(m_iManagerKey);
  KivOutOfCoreMemoryStorage* pzStorage = pzManager != nullptr ? pzManager->GetStorage() : nullptr;
  if (pzStorage == nullptr) {
    KIV_FAIL();
    return false;
  }
  if (IsKeyed() && m_iPosition == 0 && m_iLostPosition == 0) {
    KIV_FAIL();
    return false;
  }
  DropRecordReference();
  const bool bFits = nCount <= m_iRecordSize && m_iRecordSize - nCount <= nCount;
  if (m_iPosition != 0 && bFits) {
    if (pzStorage->OverwriteRecord(m_iPosition, pBuffer, nCount) != KivStorageResult::Done) {
      KIV_FAIL();
      return false;
    }
    m_iDataSize = nCount;
    return true;
  }
  const uint64_t iReserved = GetReservedSize(nCount);
  const uint64_t iPadding = nCount < iReserved ? iReserved - nCount : 0;
  constexpr uint64_t kMaxPayload = std::numeric_limits<uint32_t>::max() - KivFastFileContainerBase::kFrameSize;
  if (nCount > kMaxPayload || iPadding > kMaxPayload - nCount) {
    KIV_FAIL();
    return false;
  }
  const uint64_t iOldPosition = m_iPosition;
  const KivContainerData zData(pBuffer, static_cast<uint32_t>(nCount + iPadding), static_cast<uint32_t>(iPadding));
  if (!StoreAnew(*pzManager, zData)) {
    KIV_FAIL();
    return false;
  }
  m_iDataSize = nCount;
  m_iRecordSize = iReserved;
  if (!FollowRecord(*pzManager, iOldPosition)) {
    KIV_FAIL();
    return false;
  }
  return true;
}

// Frees the record and puts the data into a new one.
bool KivOutOfCoreData::StoreAnew(KivOutOfCoreManager& zManager, const KivContainerData& zData) {
  uint64_t iNew = 0;
  try {
    if (m_iPosition != 0 && !zManager.FreeRecord(m_iPosition)) return false;
    zManager.GetStorage()->AddRecord(zData, iNew);
  } catch (...) {
    LoseRecordIfGone(zManager);
    throw;
  }
  if (iNew == 0) {
    LoseRecordIfGone(zManager);
    return false;
  }
  m_iPosition = iNew;
  m_iLostPosition = 0;
  return true;
}

// A record that was freed is another one's as soon as one is added, so the element lets go of its position.
void KivOutOfCoreData::LoseRecordIfGone(KivOutOfCoreManager& zManager) noexcept {
  if (m_iPosition == 0 || !zManager.IsRecordFree(m_iPosition)) return;
  m_iLostPosition = m_iPosition;
  m_iPosition = 0;
  DropRecordReference();
  if (m_bActive) m_bModified = true;
  zManager.KeepWithoutRecord(this);
}

bool KivOutOfCoreData::MoveRecord(uint64_t& iStart) {
  KivOutOfCoreManager* pzManager = KivOutOfCoreManager::FindWithStore(m_iManagerKey);
  KivOutOfCoreMemoryStorage* pzStorage = pzManager != nullptr ? pzManager->GetStorage() : nullptr;
  if (pzStorage == nullptr || m_iPosition == 0) {
    KIV_FAIL();
    return false;
  }
  DropRecordReference();
  const uint64_t iOldPosition = m_iPosition;
  uint64_t iMovedTo = 0;
  uint64_t iStoredAt = iOldPosition;
  KivStorageResult iResult = KivStorageResult::Done;
  try {
    iResult = pzStorage->MoveRecord(iOldPosition, iStart, iMovedTo, iStoredAt);
  } catch (...) {
    LoseRecordIfGone(*pzManager);
    throw;
  }
  if (iResult != KivStorageResult::Done) {
    LoseRecordIfGone(*pzManager);
    KIV_FAIL();
    return false;
  }
  m_iPosition = iMovedTo != 0 ? iMovedTo : iStoredAt;
  if (!FollowRecord(*pzManager, iOldPosition)) {
    KIV_FAIL();
    return false;
  }
  return iMovedTo != 0;
}

}  // namespace kiv
