#include "KivOutOfCorePositionTables.h"

#include "KivException.h"
#include "KivOutOfCoreManager.h"
#include "KivPositionTable.h"

namespace kiv {
namespace {

constexpr char kSource[] = "src\\KivPositionTableManager";

}  // namespace

Position KivOutOfCorePositionTables::GetFirstPositionTable() {
  return KivOutOfCoreManager::GetFirstPositionTable(m_iManagerKey);
}

void KivOutOfCorePositionTables::SetFirstPositionTable(Position iFile) {
  KivOutOfCoreManager* pzManager = KivOutOfCoreManager::FindWithStore(m_iManagerKey);
  KivFastFileContainerBase* pzContainer = pzManager != nullptr ? pzManager->GetContainer() : nullptr;
  if (pzContainer == nullptr) {
    KIV_FAIL();
    return;
  }
  pzContainer->SetFirstPositionTable(iFile);
  pzContainer->SetHeaderDirty();
}

// Null, behind a report, for a position that holds no table.
KivPositionTable* KivOutOfCorePositionTables::FindTable(Position iFile) {
  auto* pzTable = dynamic_cast<KivPositionTable*>(KivOutOfCoreManager::GetElement(m_iManagerKey, iFile));
  if (pzTable == nullptr) KIV_FAIL();
  return pzTable;
}

KivMemoryBlockPositionTable* KivOutOfCorePositionTables::ReadTable(Position iFile) {
  KivPositionTable* pzTable = FindTable(iFile);
  return pzTable != nullptr ? pzTable->GetMemoryBlock() : nullptr;
}

KivMemoryBlockPositionTable* KivOutOfCorePositionTables::BeginChange(Position iFile) {
  KivPositionTable* pzTable = FindTable(iFile);
  return pzTable != nullptr ? pzTable->GetMemoryBlockForWrite() : nullptr;
}

bool KivOutOfCorePositionTables::EndChange(Position iFile) {
  KivPositionTable* pzTable = FindTable(iFile);
  return pzTable != nullptr && pzTable->Deactivate();
}

Position KivOutOfCorePositionTables::NewTable() {
  KivPositionTable zTable(m_iManagerKey);
  KivMemoryBlockPositionTable* pzBlock = zTable.GetMemoryBlockForWrite();
  if (pzBlock == nullptr) return 0;
  return zTable.DeactivateForPosition();
}

bool KivOutOfCorePositionTables::FreeTable(Position iFile) {
  return KivOutOfCoreManager::DeleteElement(m_iManagerKey, iFile);
}

}  // namespace kiv
