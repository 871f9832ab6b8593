#include "KivModelStatusBase.h"

#include "KivDataSpaceBase.h"
#include "KivException.h"
#include "KivPositionTableManager.h"

namespace kiv {
namespace {

constexpr char kSource[] = "src\\KivDataSpaceBase";

}  // namespace

KivModelStatusBase::KivModelStatusBase() = default;

KivModelStatusBase::~KivModelStatusBase() {
  // A copy has borrowed the key.
  if (!IsHistoryCopy()) delete m_pzRootKey;
}

uint32_t KivModelStatusBase::GetKey() const {
  return m_pzRootKey != nullptr ? m_pzRootKey->GetKey() : 0xFFFFFFFF;
}

KivOutOfCoreManager* KivModelStatusBase::GetManager() const {
  if (IsHistoryCopy()) return m_pOutOfCoreManager.get();
  return m_pzRootKey != nullptr ? m_pzRootKey->GetManager() : nullptr;
}

bool KivModelStatusBase::SaveChanges() {
  KivOutOfCoreManager* pzManager = GetManager();
  if (pzManager == nullptr) {
    KIV_FAIL();
    return false;
  }
  return pzManager->SaveChanges();
}

bool KivModelStatusBase::CanBeUndone() const {
  const KivOutOfCoreManager* pzManager = GetManager();
  return pzManager != nullptr && pzManager->GetStorage() != nullptr &&
         pzManager->GetStorage()->GetMode() == KivStoreMode::Read;
}

bool KivModelStatusBase::IsWholeCopy() const {
  KivFastFileContainerBase* pzContainer =
      m_pOutOfCoreManager != nullptr ? m_pOutOfCoreManager->GetContainer() : nullptr;
  return m_pPositionTableManager != nullptr && pzContainer != nullptr && pzContainer->GetBaseFile() &&
         pzContainer->GetUnusedRecordFile();
}

void KivModelStatusBase::Abandon() {
  if (m_pOutOfCoreManager != nullptr && m_pOutOfCoreManager->GetStorage() != nullptr)
    m_pOutOfCoreManager->GetStorage()->Abandon();
}

std::unique_ptr<KivModelStatusBase> KivModelStatusBase::CreateSnapShot() {
  KIV_CHECK(!KivIsDataSpaceWithView());
  SaveChanges();

  auto pSnapShot = std::make_unique<KivModelStatusBase>();
  pSnapShot->m_pOriginal = this;
  pSnapShot->m_csRootKivFile = m_csRootKivFile;
  pSnapShot->m_pzRootKey = m_pzRootKey;
  pSnapShot->m_bChanged = m_bChanged;
  pSnapShot->m_bDeleteFileOnClose = m_bDeleteFileOnClose;
  pSnapShot->m_iDorRelayID = m_iDorRelayID;
  pSnapShot->m_vvpfnGetAllPosition = m_vvpfnGetAllPosition;
  pSnapShot->m_vvpfnReplaceAllPosition = m_vvpfnReplaceAllPosition;
  pSnapShot->m_vpfnGetOutOfCoreData = m_vpfnGetOutOfCoreData;
  pSnapShot->m_vcFlags = m_vcFlags;

  KivOutOfCoreManager* pzManager = GetManager();
  KivPositionTableManager* pzTables = pzManager != nullptr ? pzManager->GetPositionTableManager() : nullptr;
  if (pzTables != nullptr)
    pSnapShot->m_pPositionTableManager = pzTables->CreateSnapShot();
  else
    KIV_FAIL();

  if (pzManager != nullptr)
    pSnapShot->m_pOutOfCoreManager = pzManager->CreateSnapShot();
  else
    KIV_FAIL();
  KIV_CHECK(pSnapShot->m_pOutOfCoreManager != NULL);
  return pSnapShot;
}

KivModelRestoreResult KivModelStatusBase::RestoreFromUndo(KivModelStatusBase* pUndo) {
  KIV_CHECK(!KivIsDataSpaceWithView());
  KIV_CHECK(m_csRootKivFile == pUndo->m_csRootKivFile);
  KIV_CHECK(m_pzRootKey == pUndo->m_pzRootKey);
  KIV_CHECK(m_iDorRelayID == pUndo->m_iDorRelayID);
  KIV_CHECK(m_vvpfnGetAllPosition == pUndo->m_vvpfnGetAllPosition);
  KIV_CHECK(m_vvpfnReplaceAllPosition == pUndo->m_vvpfnReplaceAllPosition);
  KIV_CHECK(m_vpfnGetOutOfCoreData == pUndo->m_vpfnGetOutOfCoreData);
  m_bChanged = pUndo->m_bChanged;
  m_bDeleteFileOnClose = pUndo->m_bDeleteFileOnClose;
  m_vcFlags = pUndo->m_vcFlags;

  if (m_pzRootKey == nullptr) {
    KIV_FAIL();
    return KivModelRestoreResult::NoKeyOwner;
  }
  KivOutOfCoreManager* pzManager = GetManager();
  KivPositionTableManager* pzTables = pzManager != nullptr ? pzManager->GetPositionTableManager() : nullptr;
  if (pzTables == nullptr) {
    KIV_FAIL();
    return KivModelRestoreResult::NoManager;
  }
  if (pUndo->m_pPositionTableManager == nullptr) {
    KIV_FAIL();
    return KivModelRestoreResult::NoTableCopy;
  }
  if (static_cast<int32_t>(pzTables->RestoreFromUndo(pUndo->m_pPositionTableManager.get())) != 0) {
    KIV_FAIL();
    return KivModelRestoreResult::TableNotRestored;
  }
  if (pzManager->RestoreFromUndo(pUndo->m_pOutOfCoreManager.get()) != KivManagerRestoreResult::Done) {
    KIV_FAIL();
    return KivModelRestoreResult::ManagerNotRestored;
  }
  return KivModelRestoreResult::Done;
}

}  // namespace kiv
