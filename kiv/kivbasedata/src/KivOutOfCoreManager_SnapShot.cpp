// Copies of manager and storage in the undo history.
#include "KivException.h"
#include "KivFastFileContainerForSnapShot.h"
#include "KivOutOfCoreManager.h"
#include "KivPositionTableManager.h"

namespace kiv {
namespace {

constexpr char kSource[] = "src\\KivOutOfCoreManager";

}  // namespace

std::unique_ptr<KivOutOfCoreMemoryStorage> KivOutOfCoreMemoryStorage::CreateSnapShot() {
  auto* pzContainer = dynamic_cast<KivFastFileContainerForSnapShot*>(m_pzFileContainer.get());
  if (m_eMode != KivStoreMode::Read || pzContainer == nullptr) {
    KIV_FAIL();
    return nullptr;
  }
  std::unique_ptr<KivOutOfCoreMemoryStorage> pSnapShot(new KivOutOfCoreMemoryStorage);
  pSnapShot->m_bSnapShot = true;
  pSnapShot->m_eMode = m_eMode;
  pSnapShot->m_pzFileContainer = pzContainer->CreateSnapShot();
  KIV_CHECK(pSnapShot->m_pzFileContainer != NULL);
  pSnapShot->m_pzPositionTableManager = m_pzPositionTableManager;
  pSnapShot->m_pzMainFile = m_pzMainFile;
  KIV_CHECK_AS(pSnapShot->m_pzMainFile.Get() != nullptr, "pSnapShot->m_pzMainFile != NULL");
  pSnapShot->m_pzSubFile = m_pzSubFile;
  return pSnapShot;
}

void KivOutOfCoreMemoryStorage::Abandon() {
  auto* pzContainer = dynamic_cast<KivFastFileContainerForSnapShot*>(m_pzFileContainer.get());
  if (m_bSnapShot && pzContainer != nullptr) pzContainer->Abandon();
}

KivStorageRestoreResult KivOutOfCoreMemoryStorage::RestoreFromUndo(KivOutOfCoreMemoryStorage* pUndo) {
  auto* pzContainer = dynamic_cast<KivFastFileContainerForSnapShot*>(m_pzFileContainer.get());
  if (m_eMode != KivStoreMode::Read || pzContainer == nullptr) {
    KIV_FAIL();
    return KivStorageRestoreResult::WrongMode;
  }
  auto* pzUndone = dynamic_cast<KivFastFileContainerForSnapShot*>(pUndo->m_pzFileContainer.get());
  if (pzUndone == nullptr || pzContainer->RestoreFromUndo(*pzUndone) != KivContainerRestoreResult::Done) {
    KIV_FAIL();
    return KivStorageRestoreResult::FileNotRestored;
  }
  KIV_CHECK(m_pzPositionTableManager == pUndo->m_pzPositionTableManager);
  KIV_CHECK(m_pzMainFile == pUndo->m_pzMainFile);
  KIV_CHECK(m_pzSubFile == pUndo->m_pzSubFile);
  KIV_CHECK(m_eMode == pUndo->m_eMode);
  return KivStorageRestoreResult::Done;
}

std::unique_ptr<KivOutOfCoreManager> KivOutOfCoreManager::CreateSnapShot() {
  if (m_pzStorage == nullptr) {
    KIV_FAIL();
    return nullptr;
  }
  std::unique_ptr<KivOutOfCoreManager> pSnapShot(new KivOutOfCoreManager(m_iMaxActiveOutOfCoreElement));
  pSnapShot->m_bIsSnapShot = true;
  pSnapShot->m_iKey = m_iKey;
  pSnapShot->m_strOutOfCoreFileBase = m_strOutOfCoreFileBase;
  pSnapShot->m_pzStorage = m_pzStorage->CreateSnapShot();
  if (pSnapShot->m_pzStorage == nullptr) return nullptr;
  pSnapShot->m_bKeepRecords = m_bKeepRecords;
  pSnapShot->m_bVer19Data = m_bVer19Data;
  pSnapShot->m_iRefCount = 1;
  return pSnapShot;
}

KivManagerRestoreResult KivOutOfCoreManager::RestoreFromUndo(KivOutOfCoreManager* pUndo) {
  KivOutOfCoreManager* const pOriginal = this;
  if (pUndo == nullptr || m_pzStorage == nullptr || pUndo->m_pzStorage == nullptr) {
    KIV_FAIL();
    return KivManagerRestoreResult::NoUndo;
  }
  KIV_CHECK(pOriginal->m_iKey == pUndo->m_iKey);
  KIV_CHECK(pOriginal->m_strOutOfCoreFileBase == pUndo->m_strOutOfCoreFileBase);
  if (m_pzStorage->RestoreFromUndo(pUndo->m_pzStorage.get()) != KivStorageRestoreResult::Done) {
    KIV_FAIL();
    return KivManagerRestoreResult::StorageFailed;
  }
  m_pzModelStatus = nullptr;
  m_bKeepRecords = pUndo->m_bKeepRecords;
  m_bTablesChanged = false;

  // What the elements hold is of no state any more. Map and list are set right before anything is reported.
  AbandonForeignElements();
  const std::map<uint64_t, KivOutOfCoreData*> mapGone = std::move(m_mapPositionToElement);
  m_mapPositionToElement.clear();
  ClearList();
  for (const auto& [iPosition, pzElement] : mapGone) {
    pzElement->m_iMapPosition = 0;
    delete pzElement;
  }
  m_setPrefetched.clear();
  KIV_CHECK(pOriginal->m_bVer19Data == pUndo->m_bVer19Data);
  KIV_CHECK(pOriginal->m_iMaxActiveOutOfCoreElement == pUndo->m_iMaxActiveOutOfCoreElement);
  m_iRefCount = 1;
  return KivManagerRestoreResult::Done;
}

}  // namespace kiv
