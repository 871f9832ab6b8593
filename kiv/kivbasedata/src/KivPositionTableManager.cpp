#include "KivPositionTableManager.h"

#include <algorithm>

#include "KivException.h"

namespace kiv {
namespace {

constexpr char kSource[] = "src\\KivPositionTableManager";

constexpr uint64_t kBlockShift = 15;
constexpr uint64_t kEntryMask = 0x7FFF;

KivPositionTableManager::StoreLookup g_pfnStoreLookup = nullptr;

// False, with a report, if the entry is not one of the block's.
bool CheckEntry(const KivMemoryBlockPositionTable& zBlock, uint64_t iEntry) {
  if (iEntry < zBlock.m_iPositionNum) return true;
  KivReportFailure("0", "KivPositionTable", __LINE__);
  return false;
}

}  // namespace

KivPositionTableManager::KivPositionTableManager(uint32_t iKey) : m_iKey(iKey) {}

KivPositionTableManager::~KivPositionTableManager() = default;

void KivPositionTableManager::SetStoreLookup(StoreLookup pfnLookup) {
  g_pfnStoreLookup = pfnLookup;
}

// Null, with a report, if there is none.
IKivPositionTableStore* KivPositionTableManager::GetStore() {
  IKivPositionTableStore* pzStore = m_pzStore;
  if (pzStore == nullptr && g_pfnStoreLookup != nullptr) pzStore = g_pfnStoreLookup(m_iKey);
  if (pzStore == nullptr) KIV_FAIL();
  return pzStore;
}

void KivPositionTableManager::SetExtension(uint32_t iMultiFilePositionExtension,
                                           uint32_t iIndexForMultiFilePositionExtension,
                                           uint32_t iFilePositionTableMode) {
  m_iMultiFilePositionExtension = iMultiFilePositionExtension;
  m_iIndexForMultiFilePositionExtension = iIndexForMultiFilePositionExtension;
  m_iFilePositionTableMode = iFilePositionTableMode;
}

// --- Keys ----------------------------------------------------------------------------------------

// The entry behind a table key; null behind a report.
uint64_t* KivPositionTableManager::FindEntry(Position iKey) {
  const uint64_t iIndex = iKey & ~kTableKey;
  const uint64_t iBlock = iIndex >> kBlockShift;
  if (!LoadBlock(iBlock)) {
    KIV_FAIL();
    return nullptr;
  }
  KivMemoryBlockPositionTable& zBlock = *m_vpzBlock[static_cast<size_t>(iBlock)];
  const uint64_t iEntry = iIndex & kEntryMask;
  return CheckEntry(zBlock, iEntry) ? &zBlock.m_aiPosition[static_cast<size_t>(iEntry)] : nullptr;
}

Position KivPositionTableManager::ResolveKey(Position iKey) {
  if (iKey == NULL_FILE_INDEX) return NULL_FILE_INDEX;
  if (m_iMultiFilePositionExtension != 0) {
    KIV_FAIL();
    return NULL_FILE_INDEX;
  }
  if (!IsTableKey(iKey)) return iKey;
  if (m_iFilePositionTableMode == 0) {
    KIV_FAIL();
    return NULL_FILE_INDEX;
  }
  const uint64_t* piEntry = FindEntry(iKey);
  return piEntry != nullptr ? *piEntry : NULL_FILE_INDEX;
}

bool KivPositionTableManager::AddKey(Position iFile, Position* piKey) {
  if (piKey == nullptr) {
    KIV_FAIL();
    return false;
  }
  *piKey = NULL_FILE_INDEX;
  if (iFile == NULL_FILE_INDEX) return true;
  if (m_iMultiFilePositionExtension != 0) {
    KIV_FAIL();
    return false;
  }
  if (m_iFilePositionTableMode == 0) {
    *piKey = iFile;
    return true;
  }
  const uint64_t iNum = GetPositionNum();
  const uint64_t iBlock = iNum >> kBlockShift;
  if (iBlock >= m_iLoadedBlockNum && !EnsureBlock(iBlock)) {
    KIV_FAIL();
    return false;
  }
  KivMemoryBlockPositionTable& zBlock = *m_vpzBlock[static_cast<size_t>(iBlock)];
  const uint64_t iEntry = zBlock.m_iPositionNum;
  if (iEntry >= KivMemoryBlockPositionTable::kEntryNum) {
    KIV_FAIL();
    return false;
  }
  zBlock.m_aiPosition[static_cast<size_t>(iEntry)] = iFile;
  ++zBlock.m_iPositionNum;
  if ((iNum & kEntryMask) != iEntry) {
    KIV_FAIL();
    return false;
  }
  *piKey = kTableKey + iNum;
  return true;
}

bool KivPositionTableManager::ReplacePosition(Position iFile, Position iKey) {
  if (iKey == NULL_FILE_INDEX || m_iMultiFilePositionExtension != 0 || m_iFilePositionTableMode == 0 ||
      !IsTableKey(iKey) || IsTableKey(iFile)) {
    KIV_FAIL();
    return false;
  }
  uint64_t* piEntry = FindEntry(iKey);
  if (piEntry == nullptr) return false;
  *piEntry = iFile;
  return true;
}

// --- Blocks --------------------------------------------------------------------------------------

uint64_t KivPositionTableManager::GetPositionNum() {
  uint64_t iBlockNum = 0;
  while (LoadBlock(iBlockNum)) ++iBlockNum;
  if (iBlockNum == 0) return 0;
  return (iBlockNum - 1) * KivMemoryBlockPositionTable::kEntryNum +
         m_vpzBlock[static_cast<size_t>(iBlockNum - 1)]->m_iPositionNum;
}

// False, with a report, if the chain must not be followed to iNext: it is no position, or its table would overlap one
// that was there before. So no file makes more blocks than it has room for.
bool KivPositionTableManager::MayFollow(const std::vector<Position>& viSeen, Position iNext) {
  constexpr uint64_t kLeastDistance = KivMemoryBlockPositionTable::kRecordSize19;
  const bool bApart = std::all_of(viSeen.begin(), viSeen.end(), [iNext](Position iSeen) {
    return iSeen == NULL_FILE_INDEX || std::max(iSeen, iNext) - std::min(iSeen, iNext) >= kLeastDistance;
  });
  if (!IsTableKey(iNext) && bApart) return true;
  KIV_FAIL();
  return false;
}

bool KivPositionTableManager::LoadBlock(uint64_t iBlock) {
  while (m_iLoadedBlockNum <= iBlock) {
    IKivPositionTableStore* pzStore = GetStore();
    if (pzStore == nullptr) return false;
    if (m_iLoadedBlockNum == 0) m_iNextBlockPosition = pzStore->GetFirstPositionTable();
    const Position iNext = m_iNextBlockPosition;
    if (iNext == NULL_FILE_INDEX) return false;
    if (!MayFollow(m_viBlockPosition, iNext)) {
      m_iNextBlockPosition = NULL_FILE_INDEX;
      return false;
    }
    const KivMemoryBlockPositionTable* pzTable = pzStore->ReadTable(iNext);
    if (pzTable == nullptr) {
      KIV_FAIL();
      return false;
    }
    auto pzBlock = std::make_unique<KivMemoryBlockPositionTable>();
    pzBlock->CopyFrom(*pzTable);
    m_viBlockPosition.push_back(iNext);
    m_vpzBlock.push_back(std::move(pzBlock));
    m_iNextBlockPosition = m_vpzBlock.back()->m_iNextTable;
    ++m_iLoadedBlockNum;
  }
  return true;
}

bool KivPositionTableManager::EnsureBlock(uint64_t iBlock) {
  if (LoadBlock(iBlock)) return true;
  // A block that stands in the chain and cannot be read is no end of the chain.
  if (iBlock == 0 || !LoadBlock(iBlock - 1) || m_iNextBlockPosition != NULL_FILE_INDEX) {
    KIV_FAIL();
    return false;
  }
  m_viBlockPosition.push_back(NULL_FILE_INDEX);
  m_vpzBlock.push_back(std::make_unique<KivMemoryBlockPositionTable>());
  ++m_iLoadedBlockNum;
  m_iNextBlockPosition = NULL_FILE_INDEX;
  return true;
}

std::vector<Position> KivPositionTableManager::GetBlockPositions() {
  std::vector<Position> viPosition;
  IKivPositionTableStore* pzStore = GetStore();
  if (pzStore == nullptr) return viPosition;
  for (Position iNext = pzStore->GetFirstPositionTable(); iNext != NULL_FILE_INDEX;) {
    if (!MayFollow(viPosition, iNext)) break;
    const KivMemoryBlockPositionTable* pzTable = pzStore->ReadTable(iNext);
    if (pzTable == nullptr) {
      KIV_FAIL();
      break;
    }
    viPosition.push_back(iNext);
    iNext = pzTable->m_iNextTable;
  }
  return viPosition;
}

// --- Storing -------------------------------------------------------------------------------------

// Brings one block to its element: the element's fields stay, the entries are the manager's, the links follow the list.
// Behind the last block of the list the chain goes on with those that were not loaded yet.
IKivPositionTableStore::Change KivPositionTableManager::StoreBlock(IKivPositionTableStore& zStore, size_t iBlock) {
  return zStore.ChangeTable(m_viBlockPosition[iBlock], [&](KivMemoryBlockPositionTable& zTable) {
    KivMemoryBlockPositionTable& zBlock = *m_vpzBlock[iBlock];
    zBlock.CopyFieldsFrom(zTable);
    zTable.CopyFrom(zBlock);
    zTable.m_iPreviousTable = iBlock > 0 ? m_viBlockPosition[iBlock - 1] : NULL_FILE_INDEX;
    zTable.m_iNextTable = iBlock + 1 < m_viBlockPosition.size() ? m_viBlockPosition[iBlock + 1] : m_iNextBlockPosition;
    zTable.m_iThirdLink = 0;
  });
}

KivSaveTablesResult KivPositionTableManager::SaveTables() {
  if (m_iMultiFilePositionExtension != 0 || m_iFilePositionTableMode == 0) return KivSaveTablesResult::Done;
  if (m_viBlockPosition.size() != m_vpzBlock.size()) return KivSaveTablesResult::UnequalLengths;
  if (m_viBlockPosition.empty()) return KivSaveTablesResult::NoBlocks;
  if (m_viBlockPosition[0] == NULL_FILE_INDEX) return KivSaveTablesResult::FirstWithoutPosition;
  IKivPositionTableStore* pzStore = GetStore();
  if (pzStore == nullptr) return KivSaveTablesResult::NewTableNotStored;

  for (size_t i = 1; i < m_viBlockPosition.size(); ++i) {
    if (m_viBlockPosition[i] != NULL_FILE_INDEX) continue;
    const Position iNew = pzStore->NewTable();
    if (iNew == NULL_FILE_INDEX) return KivSaveTablesResult::NewTableNotStored;
    m_viBlockPosition[i] = iNew;
  }
  for (size_t i = 0; i < m_viBlockPosition.size(); ++i) {
    const IKivPositionTableStore::Change iChange = StoreBlock(*pzStore, i);
    if (iChange == IKivPositionTableStore::Change::NotATable) return KivSaveTablesResult::NotATable;
    if (iChange == IKivPositionTableStore::Change::NotStored) return KivSaveTablesResult::TableNotStored;
  }
  return KivSaveTablesResult::Done;
}

KivRewriteAllTablesResult KivPositionTableManager::RewriteAllTables() {
  if (m_viBlockPosition.size() != m_vpzBlock.size()) return KivRewriteAllTablesResult::UnequalLengths;
  if (m_viBlockPosition.empty()) return KivRewriteAllTablesResult::NoBlocks;
  GetPositionNum();  // a block that was not loaded would not be rewritten
  IKivPositionTableStore* pzStore = GetStore();
  if (pzStore == nullptr) return KivRewriteAllTablesResult::NewTableNotStored;

  for (Position& iPosition : m_viBlockPosition) {
    const Position iNew = pzStore->NewTable();
    if (iNew == NULL_FILE_INDEX) return KivRewriteAllTablesResult::NewTableNotStored;
    iPosition = iNew;
  }
  for (size_t i = 0; i < m_viBlockPosition.size(); ++i) {
    const IKivPositionTableStore::Change iChange = StoreBlock(*pzStore, i);
    if (iChange == IKivPositionTableStore::Change::NotATable) return KivRewriteAllTablesResult::NotATable;
    if (iChange == IKivPositionTableStore::Change::NotStored) return KivRewriteAllTablesResult::TableNotStored;
  }
  pzStore->SetFirstPositionTable(m_viBlockPosition[0]);
  return KivRewriteAllTablesResult::Done;
}

KivRemoveAllTablesResult KivPositionTableManager::RemoveAllTables() {
  GetPositionNum();
  if (SaveTables() != KivSaveTablesResult::Done) {
    KIV_FAIL();
    return KivRemoveAllTablesResult::NotSaved;
  }
  const std::vector<Position> viPosition = GetBlockPositions();
  for (const Position iPosition : viPosition) {
    IKivPositionTableStore* pzStore = GetStore();
    if (pzStore == nullptr || !pzStore->FreeTable(iPosition)) {
      KIV_FAIL();
      return KivRemoveAllTablesResult::NotFreed;
    }
  }
  return KivRemoveAllTablesResult::Done;
}

// --- Snapshots -----------------------------------------------------------------------------------

std::unique_ptr<KivPositionTableManager> KivPositionTableManager::CreateSnapShot() {
  auto pSnapShot = std::make_unique<KivPositionTableManager>(m_iKey);
  for (const auto& pzBlock : m_vpzBlock) {
    pSnapShot->m_vpzBlock.push_back(std::make_unique<KivMemoryBlockPositionTable>());
    pSnapShot->m_vpzBlock.back()->CopyFrom(*pzBlock);
  }
  pSnapShot->m_viBlockPosition = m_viBlockPosition;
  pSnapShot->m_iLoadedBlockNum = m_iLoadedBlockNum;
  pSnapShot->m_iNextBlockPosition = m_iNextBlockPosition;
  pSnapShot->SetExtension(m_iMultiFilePositionExtension, m_iIndexForMultiFilePositionExtension,
                          m_iFilePositionTableMode);
  pSnapShot->m_pzOriginal = this;
  return pSnapShot;
}

int32_t KivPositionTableManager::RestoreFromUndo(const KivPositionTableManager* pUndo) {
  KIV_CHECK(m_iKey == pUndo->m_iKey);
  m_vpzBlock.clear();
  for (const auto& pzBlock : pUndo->m_vpzBlock) {
    m_vpzBlock.push_back(std::make_unique<KivMemoryBlockPositionTable>());
    m_vpzBlock.back()->CopyFrom(*pzBlock);
  }
  m_viBlockPosition = pUndo->m_viBlockPosition;
  m_iLoadedBlockNum = pUndo->m_iLoadedBlockNum;
  m_iNextBlockPosition = pUndo->m_iNextBlockPosition;
  KIV_CHECK(m_iMultiFilePositionExtension == pUndo->m_iMultiFilePositionExtension);
  KIV_CHECK(m_iIndexForMultiFilePositionExtension == pUndo->m_iIndexForMultiFilePositionExtension);
  KIV_CHECK(m_iFilePositionTableMode == pUndo->m_iFilePositionTableMode);
  return 0;
}

}  // namespace kiv
