// The list of active elements, from the oldest to the newest. At a limit of 1 it is one pointer, the count is not used,
// and the set holds those that are still active because they could not be stored when another one took their place.
#include "KivException.h"
#include "KivOutOfCoreManager.h"
#include "KivOutOfCoreTreeNode.h"

namespace kiv {
namespace {

constexpr char kSource[] = "src\\KivOutOfCoreManager";

// Elements that may be on the list without a record when they leave it.
bool MayBeUnstored(KivOutOfCoreData* pzElement) {
  auto* pzNode = dynamic_cast<KivOutOfCoreTreeNode*>(pzElement);
  if (pzNode == nullptr) return false;
  const uint32_t iType = pzNode->GetElementType();
  return iType == static_cast<uint32_t>(KivElementType::PositionTable) ||
         iType == static_cast<uint32_t>(KivElementType::PermanentIdTable);
}

}  // namespace

uint32_t KivOutOfCoreManager::GetActiveElementNum() const {
  if (m_iMaxActiveOutOfCoreElement != 1) return m_iActiveElementNum;
  return static_cast<uint32_t>(m_setActiveElement.size()) + (m_pzNewestActive != nullptr ? 1 : 0);
}

bool KivOutOfCoreManager::IsListed(KivOutOfCoreData* pzElement) const {
  if (m_iMaxActiveOutOfCoreElement == 1 && m_pzNewestActive == pzElement) return true;
  return m_setActiveElement.count(pzElement) != 0;
}

// In set order; at a limit of 1 the newest comes last.
std::vector<KivOutOfCoreData*> KivOutOfCoreManager::GetActiveElements() const {
  std::vector<KivOutOfCoreData*> vpzActive(m_setActiveElement.begin(), m_setActiveElement.end());
  if (m_iMaxActiveOutOfCoreElement == 1 && m_pzNewestActive != nullptr) vpzActive.push_back(m_pzNewestActive);
  return vpzActive;
}

bool KivOutOfCoreManager::DeactivateAllElements() {
  bool bAll = true;
  // Storing one element may evict another.
  for (KivOutOfCoreData* pzElement : GetActiveElements())
    if (IsListed(pzElement) && !pzElement->Deactivate()) bAll = false;
  return bAll;
}

bool KivOutOfCoreManager::LinkBehindNewest(KivOutOfCoreData* pzElement) {
  if (pzElement->m_pzPrevActive != nullptr || pzElement->m_pzNextActive != nullptr) {
    pzElement->m_pzPrevActive = nullptr;
    pzElement->m_pzNextActive = nullptr;
    KIV_FAIL();
  }
  if (m_pzNewestActive == nullptr) {
    m_pzOldestActive = pzElement;
  } else {
    pzElement->m_pzNextActive = m_pzNewestActive;
    m_pzNewestActive->m_pzPrevActive = pzElement;
  }
  m_pzNewestActive = pzElement;
  return true;
}

void KivOutOfCoreManager::Unlink(KivOutOfCoreData* pzElement) noexcept {
  KivOutOfCoreData* pzNewer = pzElement->m_pzPrevActive;
  KivOutOfCoreData* pzOlder = pzElement->m_pzNextActive;
  if (pzNewer != nullptr) pzNewer->m_pzNextActive = pzOlder;
  if (pzOlder != nullptr) pzOlder->m_pzPrevActive = pzNewer;
  if (m_pzOldestActive == pzElement) m_pzOldestActive = pzNewer;
  if (m_pzNewestActive == pzElement) m_pzNewestActive = pzOlder;
  pzElement->m_pzPrevActive = nullptr;
  pzElement->m_pzNextActive = nullptr;
}

bool KivOutOfCoreManager::TouchElement(KivOutOfCoreData* pzElement) {
  if (m_iMaxActiveOutOfCoreElement < 1 || pzElement == nullptr) {
    KIV_FAIL();
    return false;
  }
  if (pzElement == m_pzNewestActive) return true;
  if (m_iMaxActiveOutOfCoreElement == 1) {
    KivOutOfCoreData* const pzReplaced = m_pzNewestActive;
    if (pzReplaced != nullptr && !pzReplaced->Deactivate()) {
      KIV_FAIL();
      // Its change is not lost: it is tried again whenever all are stored.
      if (pzReplaced == m_pzNewestActive && pzReplaced->m_bActive) m_setActiveElement.insert(pzReplaced);
    }
    m_setActiveElement.erase(pzElement);
    m_pzOldestActive = pzElement;
    m_pzNewestActive = pzElement;
    return true;
  }
  const auto iLimit = static_cast<uint32_t>(m_iMaxActiveOutOfCoreElement);
  if (m_iActiveElementNum > iLimit) {
    KIV_FAIL();
    KivOutOfCoreData* pzOldest = m_pzOldestActive != pzElement ? m_pzOldestActive : pzElement->m_pzPrevActive;
    if (pzOldest == nullptr) {
      KIV_FAIL();
      return false;
    }
    if (!pzOldest->Deactivate()) KIV_FAIL();
  }
  if (IsListed(pzElement)) {
    if (m_pzOldestActive == m_pzNewestActive) return true;
    Unlink(pzElement);
    if (!LinkBehindNewest(pzElement)) {
      KIV_FAIL();
      return false;
    }
    return true;
  }
  m_setActiveElement.insert(pzElement);  // first: without memory the list stays as it was
  ++m_iActiveElementNum;
  LinkBehindNewest(pzElement);
  if (m_iActiveElementNum > iLimit && !m_pzOldestActive->Deactivate()) KIV_FAIL();
  return true;
}

bool KivOutOfCoreManager::RemoveActiveElement(KivOutOfCoreData* pzElement) {
  if (m_iMaxActiveOutOfCoreElement < 1 || pzElement == nullptr) {
    KIV_FAIL();
    return false;
  }
  const bool bListed = IsListed(pzElement);
  UnlinkElement(pzElement);
  // At a limit of 1 the object stays in the map.
  if (m_iMaxActiveOutOfCoreElement == 1 || !bListed || pzElement->m_bTemporary) return true;
  if (pzElement->m_iMapPosition == 0) {
    // An object of somebody else's; it is not the manager's to destroy.
    if (pzElement->m_iPosition != 0 || pzElement->m_iPositionKey != 0 || MayBeUnstored(pzElement)) return true;
    KIV_FAIL();
    return false;
  }
  const auto itKnown = m_mapPositionToElement.find(pzElement->m_iPosition);
  if (itKnown != m_mapPositionToElement.end() && itKnown->second == pzElement) {
    DestroyElement(pzElement);
    return true;
  }
  if (itKnown != m_mapPositionToElement.end()) DestroyElement(itKnown->second);
  DestroyElement(pzElement);
  KIV_FAIL();
  return false;
}

// True if the object is still there after its Deactivate.
bool KivOutOfCoreManager::IsObjectKept(const KivOutOfCoreData* pzElement) const {
  return m_iMaxActiveOutOfCoreElement <= 1 || pzElement->m_iMapPosition == 0 || pzElement->m_bTemporary;
}

void KivOutOfCoreManager::UnlinkElement(KivOutOfCoreData* pzElement) noexcept {
  if (m_iMaxActiveOutOfCoreElement == 1) {
    m_setActiveElement.erase(pzElement);
    if (m_pzNewestActive != pzElement) return;
    m_pzOldestActive = nullptr;
    m_pzNewestActive = nullptr;
    return;
  }
  if (m_setActiveElement.erase(pzElement) == 0) return;
  Unlink(pzElement);
  --m_iActiveElementNum;
}

// For an object that is being destroyed.
void KivOutOfCoreManager::ForgetElement(KivOutOfCoreData* pzElement) noexcept {
  UnlinkElement(pzElement);
  if (pzElement->m_iMapPosition == 0) return;
  const auto itKnown = m_mapPositionToElement.find(pzElement->m_iMapPosition);
  if (itKnown != m_mapPositionToElement.end() && itKnown->second == pzElement) m_mapPositionToElement.erase(itKnown);
}

// Active objects that are not the manager's become inactive, whatever they hold: their store has gone or gone back.
void KivOutOfCoreManager::AbandonForeignElements() noexcept {
  const auto Abandon = [this](KivOutOfCoreData* pzElement) {
    if (pzElement->m_iMapPosition != 0) return;
    UnlinkElement(pzElement);
    pzElement->m_bActive = false;
    pzElement->m_bModified = false;
    pzElement->m_zRecordRef = KivContainerRecord();
    pzElement->m_vcRawData.clear();
    pzElement->m_vcUnpackedData.clear();
    try {
      pzElement->Release();
    } catch (...) {
      // The report has been made; the element has no block to come back to.
    }
  };
  // Without a copy of the list, for which there may be no memory.
  for (auto it = m_setActiveElement.begin(); it != m_setActiveElement.end();) {
    KivOutOfCoreData* const pzElement = *it;
    Abandon(pzElement);
    it = m_setActiveElement.upper_bound(pzElement);
  }
  if (m_iMaxActiveOutOfCoreElement == 1 && m_pzNewestActive != nullptr) Abandon(m_pzNewestActive);
}

void KivOutOfCoreManager::ClearList() noexcept {
  m_iActiveElementNum = 0;
  m_setActiveElement.clear();
  m_pzOldestActive = nullptr;
  m_pzNewestActive = nullptr;
}

}  // namespace kiv
