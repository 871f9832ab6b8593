#include "KivOutOfCoreHandle.h"

#include "KivException.h"
#include "KivPositionTableManager.h"

namespace kiv {
namespace {

constexpr char kSource[] = "src\\KivOutOfCoreData";

}  // namespace

KivOutOfCoreData* KivOutOfCoreHandle::Fetch() const {
  return m_iPosition != 0 ? KivOutOfCoreManager::GetElement(m_iManagerKey, m_iPosition) : nullptr;
}

bool KivOutOfCoreHandle::Commit() {
  KivOutOfCoreData* pzElement = Fetch();
  if (pzElement == nullptr) {
    KIV_FAIL();
    return false;
  }
  const uint64_t iPosition = pzElement->DeactivateForPosition();
  if (iPosition == 0) return false;
  if (!KivPositionTableManager::IsTableKey(m_iPosition)) m_iPosition = iPosition;
  return true;
}

bool KivOutOfCoreHandle::Delete() {
  const uint64_t iPosition = m_iPosition;
  m_iPosition = 0;
  return KivOutOfCoreManager::DeleteElement(m_iManagerKey, iPosition);
}

KivOutOfCoreHandle KivStoreNewElement(std::unique_ptr<KivOutOfCoreData> pzElement) {
  if (pzElement == nullptr) {
    KIV_FAIL();
    return KivOutOfCoreHandle();
  }
  const uint64_t iPosition = pzElement->AssignPositionKey();
  return iPosition != 0 ? KivOutOfCoreHandle(pzElement->GetManagerKey(), iPosition) : KivOutOfCoreHandle();
}

}  // namespace kiv
