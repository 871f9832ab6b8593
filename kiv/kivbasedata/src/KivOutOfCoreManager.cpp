// The registry of managers, the functions by key, and the element objects.
#include "KivOutOfCoreManager.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <exception>

#include "KivDataSpaceBase.h"
#include "KivException.h"
#include "KivLittleEndian.h"
#include "KivModelStatusBase.h"
#include "KivPositionTable.h"
#include "KivPositionTableManager.h"
#include "KivSysFolder.h"
#include "KivSysProcess.h"

namespace kiv {
namespace {

constexpr char kSource[] = "src\\KivOutOfCoreManager";
constexpr uint32_t kNoKey = 0xFFFFFFFF;
constexpr int32_t kFreeSlot = -1;
constexpr int32_t kLimitOfKeyOwners = 1;
constexpr int kTemporaryTries = 10;
constexpr size_t kElementClassNum = 14;
constexpr uint64_t kFirstWithoutRecord = uint64_t{1} << 63;  // in the map of elements

KivOutOfCoreData* MakePositionTable(uint32_t, uint32_t iManagerKey) {
  return new KivPositionTable(iManagerKey);
}

struct Registry {
  std::vector<KivOutOfCoreManager*> m_vpzManager;  // by key
  std::vector<int32_t> m_viMaxActive;              // limit for the manager of that key; kFreeSlot without one
  std::vector<uint8_t> m_vbFree;                   // the key can be had; freeing one must not ask for memory
  KivWString m_strOutOfCoreFileBase;
  bool m_bStoreFailed = false;
  std::array<KivElementFactory, kElementClassNum> m_apfnElementClass{};

  Registry() { m_apfnElementClass[static_cast<size_t>(KivElementType::PositionTable)] = MakePositionTable; }

  void AddSlot() {
    const size_t nSlots = m_vpzManager.size() + 1;
    m_vpzManager.reserve(nSlots);
    m_viMaxActive.reserve(nSlots);
    m_vbFree.reserve(nSlots);
    m_vpzManager.push_back(nullptr);
    m_viMaxActive.push_back(kFreeSlot);
    m_vbFree.push_back(0);
  }
  void AddSlotZero() {
    if (m_vpzManager.empty()) AddSlot();
  }
  bool Holds(uint32_t iKey) const { return iKey < m_vpzManager.size(); }
  // The smallest free key; the number of slots if there is none.
  uint32_t FindFreeKey() const {
    return static_cast<uint32_t>(std::find(m_vbFree.begin(), m_vbFree.end(), uint8_t{1}) - m_vbFree.begin());
  }
  void FreeKey(uint32_t iKey) {
    m_vpzManager[iKey] = nullptr;
    m_viMaxActive[iKey] = kFreeSlot;
    m_vbFree[iKey] = 1;
  }
};

// Never destroyed: elements and key owners may be the last to go.
Registry& GetRegistry() {
  static Registry& zRegistry = *new Registry;
  return zRegistry;
}

KivWString Widen(const std::string& strText) {
  return KivWString(strText.begin(), strText.end());
}

// "%d_%d_%d"
KivWString MakeUniqueId() {
  return Widen(std::to_string(static_cast<int32_t>(std::clock())) + "_" +
               std::to_string(static_cast<int32_t>(sys::CurrentProcessNumber())) + "_" + std::to_string(std::rand()));
}

// Reports a key without a manager.
KivOutOfCoreManager* FindOrReport(uint32_t iKey) {
  KivOutOfCoreManager* pzManager = KivOutOfCoreManager::Find(iKey);
  if (pzManager == nullptr) KIV_FAIL();
  return pzManager;
}

}  // namespace

// --- Registry -------------------------------------------------------------------------------------------------------

KivOutOfCoreManager* KivOutOfCoreManager::Find(uint32_t iKey) {
  const Registry& zRegistry = GetRegistry();
  return zRegistry.Holds(iKey) ? zRegistry.m_vpzManager[iKey] : nullptr;
}

KivOutOfCoreManager* KivOutOfCoreManager::FindWithStore(uint32_t iKey) {
  KivOutOfCoreManager* pzManager = Find(iKey);
  return pzManager != nullptr && pzManager->m_iMaxActiveOutOfCoreElement >= 1 ? pzManager : nullptr;
}

KivOutOfCoreManager* KivOutOfCoreManager::GetManager(uint32_t iKey, const KivStoreSource& zSource) {
  Registry& zRegistry = GetRegistry();
  if (zRegistry.m_bStoreFailed) return nullptr;
  if (iKey == 0) zRegistry.AddSlotZero();
  if (!zRegistry.Holds(iKey)) {
    KIV_FAIL();
    return nullptr;
  }
  if (zRegistry.m_vpzManager[iKey] != nullptr) return zRegistry.m_vpzManager[iKey];

  std::unique_ptr<KivOutOfCoreManager> pzManager(new KivOutOfCoreManager(zRegistry.m_viMaxActive[iKey]));
  if (pzManager->m_iMaxActiveOutOfCoreElement >= 1) {
    try {
      pzManager->OpenStore(iKey, zSource);
    } catch (...) {
      zRegistry.m_bStoreFailed = true;
      throw;
    }
    if (pzManager->m_pzStorage == nullptr) {
      zRegistry.m_bStoreFailed = true;
      return nullptr;
    }
  }
  zRegistry.m_vbFree[iKey] = 0;
  zRegistry.m_vpzManager[iKey] = pzManager.get();
  pzManager->m_iKey = iKey;
  return pzManager.release();
}

KivOutOfCoreManager::KivOutOfCoreManager(int32_t iMax)
    : m_strOutOfCoreFileBase(GetRegistry().m_strOutOfCoreFileBase), m_iMaxActiveOutOfCoreElement(iMax) {}

void KivOutOfCoreManager::OpenStore(uint32_t iKey, const KivStoreSource& zSource) {
  const auto Try = [&](const KivStoreSource& zTried) {
    auto pzStorage = std::make_unique<KivOutOfCoreMemoryStorage>(zTried, iKey);
    if (pzStorage->GetContainer() != nullptr) m_pzStorage = std::move(pzStorage);
    return m_pzStorage != nullptr;
  };
  const KivWString csUnique = MakeUniqueId();
  if (!zSource.m_csPath.empty()) {
    if (!Try(zSource)) return;
    m_bVer19Data = zSource.m_eMode != KivStoreMode::NewTemporary &&
                   m_pzStorage->GetContainer()->GetGeneration() == KivContainerHeader::kPreviousGeneration;
    return;
  }
  if (m_strOutOfCoreFileBase.empty() || zSource.m_eMode != KivStoreMode::NewTemporary) return;
  KivStoreSource zTemporary = zSource;
  for (int n = 0; n < kTemporaryTries; ++n) {
    zTemporary.m_csPath = m_strOutOfCoreFileBase;
    zTemporary.m_csPath += sys::kSeparator;
    zTemporary.m_csPath += u"Kiv" + csUnique + Widen("_" + std::to_string(n));
    try {
      if (Try(zTemporary)) return;
    } catch (const std::exception&) {
      if (n + 1 == kTemporaryTries) throw;  // what a try reports does not end the tries
    }
  }
}

KivOutOfCoreManager::~KivOutOfCoreManager() {
  if (m_bIsSnapShot) return;
  try {
    if (m_iActiveElementNum != 0 || m_pzOldestActive != nullptr || m_pzNewestActive != nullptr) KIV_FAIL();
  } catch (...) {
    // A destructor lets no exception out; the report has been made.
  }
  m_pzStorage.reset();
  Registry& zRegistry = GetRegistry();
  if (zRegistry.Holds(m_iKey) && zRegistry.m_vpzManager[m_iKey] == this) zRegistry.FreeKey(m_iKey);
}

void KivOutOfCoreManager::Release() {
  if (m_iRefCount == 0)
    KIV_FAIL();
  else if (--m_iRefCount != 0)
    return;

  // What cannot be stored was reported and is lost; everything else goes on.
  const auto Quietly = [](auto&& body) {
    try {
      body();
    } catch (const std::exception&) {
    }
  };
  const auto StoreElements = [&] {
    const std::vector<KivOutOfCoreData*> vpzActive = GetActiveElements();
    for (KivOutOfCoreData* pzElement : vpzActive)
      if (IsListed(pzElement)) Quietly([&] { pzElement->Deactivate(); });
  };
  Quietly(StoreElements);
  const bool bWritesFile = m_pzStorage != nullptr && m_pzStorage->GetMode() != KivStoreMode::Read;
  if (m_bTablesChanged && bWritesFile) {
    Quietly([&] { SaveChanges(); });
    Quietly(StoreElements);
  }
  while (!m_mapPositionToElement.empty()) Quietly([&] { DestroyElement(m_mapPositionToElement.begin()->second); });
  AbandonForeignElements();
  ClearList();
  Registry& zRegistry = GetRegistry();
  if (zRegistry.Holds(m_iKey)) zRegistry.FreeKey(m_iKey);
  delete this;
}

bool KivOutOfCoreManager::SetMaxActiveOutOfCoreElement(uint32_t iKey, int32_t iMax) {
  Registry& zRegistry = GetRegistry();
  if (iKey == 0) zRegistry.AddSlotZero();
  if (!zRegistry.Holds(iKey)) {
    KIV_FAIL();
    return false;
  }
  KivOutOfCoreManager* pzManager = zRegistry.m_vpzManager[iKey];
  if (pzManager != nullptr) {
    if (iMax < 1 || pzManager->m_pzStorage == nullptr || !pzManager->DeactivateAllElements()) {
      KIV_FAIL();
      return false;
    }
    pzManager->m_iMaxActiveOutOfCoreElement = iMax;
  }
  zRegistry.m_viMaxActive[iKey] = iMax;
  return true;
}

void KivOutOfCoreManager::SetElementClass(uint32_t iCode, KivElementFactory pfnMake) {
  if (iCode == 0 || iCode >= kElementClassNum) {
    KIV_FAIL();
    return;
  }
  GetRegistry().m_apfnElementClass[iCode] = pfnMake;
}

void KivOutOfCoreManager::SetOutOfCoreFileBase(const KivWString& csFolder) {
  GetRegistry().m_strOutOfCoreFileBase = csFolder;
}

// --- Key owner ------------------------------------------------------------------------------------------------------

KivOutOfCoreManagerKeyOwner::KivOutOfCoreManagerKeyOwner(const KivStoreSource& zSource) {
  Registry& zRegistry = GetRegistry();
  zRegistry.m_bStoreFailed = false;
  zRegistry.AddSlotZero();
  m_iKey = zRegistry.FindFreeKey();
  if (zRegistry.Holds(m_iKey)) {
    if (zRegistry.m_vpzManager[m_iKey] != nullptr) KIV_FAIL();
  } else {
    zRegistry.AddSlot();
    zRegistry.m_vbFree[m_iKey] = 1;  // until its manager takes it
  }
  Open(zSource);
}

KivOutOfCoreManagerKeyOwner::KivOutOfCoreManagerKeyOwner(uint32_t iKey, const KivStoreSource& zSource) : m_iKey(iKey) {
  Registry& zRegistry = GetRegistry();
  zRegistry.m_bStoreFailed = false;
  zRegistry.AddSlotZero();
  Open(zSource);
}

// A store that cannot be made leaves the owner without a key, and the key as it was.
void KivOutOfCoreManagerKeyOwner::Open(const KivStoreSource& zSource) {
  Registry& zRegistry = GetRegistry();
  const bool bSlot = zRegistry.Holds(m_iKey);
  const int32_t iLimitBefore = bSlot ? zRegistry.m_viMaxActive[m_iKey] : kFreeSlot;
  if (bSlot) zRegistry.m_viMaxActive[m_iKey] = kLimitOfKeyOwners;
  KivOutOfCoreManager* pzManager = nullptr;
  try {
    pzManager = KivOutOfCoreManager::GetManager(m_iKey, zSource);
  } catch (...) {
    if (bSlot) zRegistry.m_viMaxActive[m_iKey] = iLimitBefore;
    throw;
  }
  if (pzManager != nullptr) {
    pzManager->AddRef();
    return;
  }
  if (bSlot) zRegistry.m_viMaxActive[m_iKey] = iLimitBefore;
  m_iKey = kNoKey;
}

KivOutOfCoreManagerKeyOwner::KivOutOfCoreManagerKeyOwner(const KivOutOfCoreManagerKeyOwner& zOther)
    : m_iKey(zOther.m_iKey) {
  KivOutOfCoreManager* pzManager = KivOutOfCoreManager::Find(m_iKey);
  if (pzManager != nullptr) pzManager->AddRef();
}

KivOutOfCoreManagerKeyOwner::~KivOutOfCoreManagerKeyOwner() {
  KivOutOfCoreManager* pzManager = KivOutOfCoreManager::Find(m_iKey);
  if (pzManager == nullptr) return;
  try {
    pzManager->Release();
  } catch (...) {
    // A destructor lets no exception out; the report has been made.
  }
}

// --- Elements by key ------------------------------------------------------------------------------------------------

KivOutOfCoreData* KivOutOfCoreManager::GetElement(uint32_t iKey, uint64_t iPosition) {
  KivOutOfCoreManager* pzManager = FindOrReport(iKey);
  return pzManager != nullptr ? pzManager->FindElement(iPosition) : nullptr;
}

KivOutOfCoreData* KivOutOfCoreManager::FindElement(uint64_t iKey) {
  KivPositionTableManager* pzTables = GetPositionTableManager();
  if (pzTables == nullptr) return nullptr;
  const uint64_t iPosition = pzTables->ResolveKey(iKey);
  // A table entry of a damaged file may be no position.
  const auto itKnown =
      iPosition < kFirstWithoutRecord ? m_mapPositionToElement.find(iPosition) : m_mapPositionToElement.end();
  if (itKnown != m_mapPositionToElement.end()) {
    KivOutOfCoreData* pzKnown = itKnown->second;
    // A first fetch by the plain position does not hide the key from later ones.
    if (pzKnown->m_iPositionKey == 0 && iKey != iPosition) pzKnown->m_iPositionKey = iKey;
    if (pzKnown->m_bActive && m_iMaxActiveOutOfCoreElement >= 2 && !TouchElement(pzKnown)) KIV_FAIL();
    return pzKnown;
  }
  KivOutOfCoreData* pzWithoutRecord = FindWithoutRecord(iKey, iPosition);
  if (pzWithoutRecord != nullptr) return pzWithoutRecord;
  KivContainerRecord zRecord;
  KivElementFrame acFrame;
  std::unique_ptr<KivOutOfCoreData> pzElement = MakeElement(iPosition, zRecord, acFrame);
  if (pzElement == nullptr) return nullptr;
  pzElement->m_iPositionKey = iKey == iPosition ? 0 : iKey;
  m_mapPositionToElement.emplace(iPosition, pzElement.get());
  pzElement->m_iMapPosition = iPosition;
  return pzElement.release();
}

std::unique_ptr<KivOutOfCoreData> KivOutOfCoreManager::GetTemporaryElement(uint32_t iKey, uint64_t iPosition,
                                                                           KivContainerRecord& zRecord,
                                                                           KivElementFrame& acFrame) {
  zRecord = KivContainerRecord();
  acFrame.fill(0);
  KivOutOfCoreManager* pzManager = FindOrReport(iKey);
  KivPositionTableManager* pzTables = pzManager != nullptr ? pzManager->GetPositionTableManager() : nullptr;
  if (pzTables == nullptr) return nullptr;
  const uint64_t iPlain = pzTables->ResolveKey(iPosition);
  std::unique_ptr<KivOutOfCoreData> pzElement = pzManager->MakeElement(iPlain, zRecord, acFrame);
  if (pzElement == nullptr) return nullptr;
  pzElement->m_iPositionKey = iPosition == iPlain ? 0 : iPosition;
  pzElement->DropRecordReference();  // the object may outlive the store
  return pzElement;
}

// An object for the record at a plain position, in nobody's hands yet.
std::unique_ptr<KivOutOfCoreData> KivOutOfCoreManager::MakeElement(uint64_t iPosition, KivContainerRecord& zRecord,
                                                                   KivElementFrame& acFrame) {
  if (m_pzStorage == nullptr || m_pzStorage->ReadElementHeader(iPosition, acFrame, zRecord) != KivStorageResult::Done) {
    KIV_FAIL();
    return nullptr;
  }
  const uint32_t iTypeWord = KivLoad<uint32_t>(acFrame.data());
  const uint32_t iRegistered = (iTypeWord >> 16) & 0xFF;
  const uint32_t iCode = iTypeWord & 0xFFFF;
  KivElementFactory pfnMake = nullptr;
  if (iRegistered != 0) {
    const KivModelStatusBase* pzModel = GetModelStatus();
    if (pzModel != nullptr) pfnMake = pzModel->m_vpfnGetOutOfCoreData[iRegistered];
    if (pfnMake == nullptr) return nullptr;
  } else {
    if (iCode < kElementClassNum) pfnMake = GetRegistry().m_apfnElementClass[iCode];
    if (pfnMake == nullptr) {
      KIV_FAIL();
      return nullptr;
    }
  }
  std::unique_ptr<KivOutOfCoreData> pzElement(pfnMake(iTypeWord, m_iKey));
  if (pzElement == nullptr) {
    KIV_FAIL();
    return nullptr;
  }
  pzElement->m_iPosition = iPosition;
  pzElement->m_iDataSize = zRecord.m_iFileSize;
  pzElement->m_iRecordSize = zRecord.m_iFileSize;
  pzElement->m_zRecordRef = zRecord;
  uint32_t aiBox[6];
  const uint8_t* pBox = acFrame.data() + (m_bVer19Data ? 36 : 40);
  for (int i = 0; i < 6; ++i) aiBox[i] = KivLoad<uint32_t>(pBox + 4 * i);
  pzElement->SetBoxFromFrame(aiBox);
  return pzElement;
}

void KivOutOfCoreManager::DestroyElement(KivOutOfCoreData* pzElement) {
  UnlinkElement(pzElement);
  const auto itKnown = m_mapPositionToElement.find(pzElement->m_iMapPosition);
  if (itKnown != m_mapPositionToElement.end() && itKnown->second == pzElement) m_mapPositionToElement.erase(itKnown);
  pzElement->m_iMapPosition = 0;
  delete pzElement;
}

// An element's record has moved. An object that the map holds for the record follows, whoever stored it.
void KivOutOfCoreManager::MoveMapEntry(KivOutOfCoreData* pzElement, uint64_t iOldPosition, uint64_t iNewPosition) {
  const uint64_t iMapPosition = pzElement->m_iMapPosition != 0 ? pzElement->m_iMapPosition : iOldPosition;
  if (iMapPosition == 0 || iMapPosition == iNewPosition) return;
  const auto itOld = m_mapPositionToElement.find(iMapPosition);
  if (itOld == m_mapPositionToElement.end()) return;
  KivOutOfCoreData* pzHeld = itOld->second;
  const auto itTaken = m_mapPositionToElement.find(iNewPosition);
  const bool bTaken = itTaken != m_mapPositionToElement.end();
  if (bTaken) DestroyElement(itTaken->second);         // its record had been freed behind the manager's back
  auto zNode = m_mapPositionToElement.extract(itOld);  // without memory: the record has moved already
  zNode.key() = iNewPosition;
  m_mapPositionToElement.insert(std::move(zNode));
  pzHeld->m_iMapPosition = iNewPosition;
  if (pzHeld != pzElement) {
    pzHeld->m_iPosition = iNewPosition;
    pzHeld->m_iDataSize = pzElement->m_iDataSize;
    pzHeld->m_iRecordSize = pzElement->m_iRecordSize;
    pzHeld->m_zRecordRef = KivContainerRecord();
    pzHeld->m_vcRawData.clear();
    pzHeld->m_vcUnpackedData.clear();
  }
  if (bTaken) KIV_FAIL();
}

// False also where nobody can tell.
bool KivOutOfCoreManager::IsRecordFree(uint64_t iPosition) noexcept {
  try {
    KivContainerRecord zRecord;
    return m_pzStorage != nullptr && m_pzStorage->FindRecord(iPosition, zRecord) == KivStorageResult::NoRecord;
  } catch (...) {
    return false;
  }
}

// An element whose record was freed without a new one leaves its place to whatever record comes there. Its object stays
// the map's, and its key leads nowhere until it is stored.
void KivOutOfCoreManager::KeepWithoutRecord(KivOutOfCoreData* pzElement) noexcept {
  const uint64_t iLost = pzElement->m_iLostPosition;
  const auto itHeld = m_mapPositionToElement.find(pzElement->m_iMapPosition != 0 ? pzElement->m_iMapPosition : iLost);
  if (itHeld != m_mapPositionToElement.end() && itHeld->second != pzElement) {
    DestroyElement(itHeld->second);  // of the same record, which is no more
  } else if (itHeld != m_mapPositionToElement.end()) {
    auto zNode = m_mapPositionToElement.extract(itHeld);
    zNode.key() = m_iNextWithoutRecord++;
    pzElement->m_iMapPosition = zNode.key();
    m_mapPositionToElement.insert(std::move(zNode));
  }
  if (!pzElement->IsKeyed()) return;
  try {
    SetTablesChanged();
    GetPositionTableManager()->ReplacePosition(NULL_FILE_INDEX, pzElement->m_iPositionKey);
  } catch (...) {
    // The report has been made.
  }
}

// An element without a record by what others know it by: its key, or its former position while that is free.
KivOutOfCoreData* KivOutOfCoreManager::FindWithoutRecord(uint64_t iKey, uint64_t iPosition) {
  if (m_mapPositionToElement.empty() || m_mapPositionToElement.rbegin()->first < kFirstWithoutRecord) return nullptr;
  for (auto it = m_mapPositionToElement.lower_bound(kFirstWithoutRecord); it != m_mapPositionToElement.end(); ++it) {
    KivOutOfCoreData* pzElement = it->second;
    const bool bKeyed = pzElement->IsKeyed();
    if (bKeyed && pzElement->m_iPositionKey == iKey) return pzElement;
    if (!bKeyed && iPosition != 0 && pzElement->m_iLostPosition == iPosition && IsRecordFree(iPosition))
      return pzElement;
  }
  return nullptr;
}

bool KivOutOfCoreManager::DeleteElement(uint32_t iKey, uint64_t iPosition) {
  KivOutOfCoreManager* pzManager = FindOrReport(iKey);
  KivPositionTableManager* pzTables = pzManager != nullptr ? pzManager->GetPositionTableManager() : nullptr;
  const uint64_t iPlain = pzTables != nullptr ? pzTables->ResolveKey(iPosition) : 0;
  KivOutOfCoreData* pzWithoutRecord = pzTables != nullptr ? pzManager->FindWithoutRecord(iPosition, iPlain) : nullptr;
  if (pzWithoutRecord != nullptr) {
    pzManager->DestroyElement(pzWithoutRecord);
    return true;
  }
  if (iPlain == 0 || iPlain >= kFirstWithoutRecord) {
    KIV_FAIL();
    return false;
  }
  const auto itKnown = pzManager->m_mapPositionToElement.find(iPlain);
  if (itKnown != pzManager->m_mapPositionToElement.end()) pzManager->DestroyElement(itKnown->second);
  return pzManager->FreeRecord(iPlain);
}

bool KivOutOfCoreManager::DeleteElementObject(uint32_t iKey, KivOutOfCoreData*& pzElement) {
  KivOutOfCoreData* pzGone = pzElement;
  pzElement = nullptr;
  KivOutOfCoreManager* pzManager = FindOrReport(iKey);
  if (pzManager == nullptr) return false;
  const auto itKnown = pzManager->m_mapPositionToElement.find(pzGone != nullptr ? pzGone->m_iMapPosition : 0);
  if (itKnown == pzManager->m_mapPositionToElement.end() || itKnown->second != pzGone || pzGone->m_bTemporary) {
    KIV_FAIL();
    return false;
  }
  const uint64_t iPosition = pzGone->m_iPosition;
  pzManager->DestroyElement(pzGone);
  return iPosition == 0 || pzManager->FreeRecord(iPosition);
}

bool KivOutOfCoreManager::FreeRecord(uint64_t iPosition) {
  if (m_bKeepRecords) return true;
  if (m_pzStorage == nullptr || m_pzStorage->FreeRecord(iPosition) != KivStorageResult::Done) {
    KIV_FAIL();
    return false;
  }
  return true;
}

bool KivOutOfCoreManager::ReadElementHeader(uint32_t iKey, uint64_t iPosition, KivElementFrame& acFrame) {
  KivOutOfCoreManager* pzManager = FindOrReport(iKey);
  KivPositionTableManager* pzTables = pzManager != nullptr ? pzManager->GetPositionTableManager() : nullptr;
  if (pzTables == nullptr) return false;
  KivContainerRecord zRecord;
  if (pzManager->m_pzStorage->ReadElementHeader(pzTables->ResolveKey(iPosition), acFrame, zRecord) ==
      KivStorageResult::Done)
    return true;
  KIV_FAIL();
  return false;
}

bool KivOutOfCoreManager::PrefetchElement(uint32_t iKey, uint64_t iPosition, uint32_t iMode) {
  KivOutOfCoreManager* pzManager = FindOrReport(iKey);
  KivPositionTableManager* pzTables = pzManager != nullptr ? pzManager->GetPositionTableManager() : nullptr;
  if (pzTables == nullptr) return false;
  const uint64_t iPlain = pzTables->ResolveKey(iPosition);
  if (iPlain == 0) {
    KIV_FAIL();
    return false;
  }
  if (pzManager->m_setPrefetched.count(iPlain) != 0) return true;
  const bool bAccepted = pzManager->GetContainer()->PrefetchRecord(iPlain, iMode);
  pzManager->m_setPrefetched.insert(iPlain);
  return bAccepted;
}

// --- State by key ---------------------------------------------------------------------------------------------------

bool KivOutOfCoreManager::DeactivateAll(uint32_t iKey) {
  KivOutOfCoreManager* pzManager = FindOrReport(iKey);
  return pzManager != nullptr && pzManager->DeactivateAllElements();
}

bool KivOutOfCoreManager::FlushMainFile(uint32_t iKey) {
  KivOutOfCoreManager* pzManager = FindOrReport(iKey);
  KivFastFileContainerBase* pzContainer = pzManager != nullptr ? pzManager->GetContainer() : nullptr;
  if (pzContainer == nullptr) return false;
  pzContainer->FlushBaseFile();
  return true;
}

uint64_t KivOutOfCoreManager::GetFirstPositionTable(uint32_t iKey) {
  KivOutOfCoreManager* pzManager = FindOrReport(iKey);
  KivFastFileContainerBase* pzContainer = pzManager != nullptr ? pzManager->GetContainer() : nullptr;
  return pzContainer != nullptr ? pzContainer->GetFirstPositionTable() : 0;
}

bool KivOutOfCoreManager::SetKeepRecords(uint32_t iKey) {
  KivOutOfCoreManager* pzManager = FindOrReport(iKey);
  if (pzManager == nullptr) return false;
  pzManager->m_bKeepRecords = true;
  return true;
}

bool KivOutOfCoreManager::SaveAs(uint32_t iKey, const KivWString& csPath, bool bAlsoIntoPackage) {
  KivOutOfCoreManager* pzManager = FindOrReport(iKey);
  if (pzManager == nullptr || !pzManager->IsStoreForReading()) return false;
  return pzManager->GetContainer()->SaveAs(csPath, bAlsoIntoPackage);
}

KivSaveInSlicesResult KivOutOfCoreManager::SaveInSlices(uint32_t iKey, const KivWString& csPath, uint32_t iDeadline) {
  KivOutOfCoreManager* pzManager = FindOrReport(iKey);
  if (pzManager == nullptr) return KivSaveInSlicesResult::TargetNotCreated;
  return pzManager->SaveInSlices(csPath, iDeadline);
}

bool KivOutOfCoreManager::IsSaveInSlicesComplete(uint32_t iKey, const KivWString& csPath) {
  KivOutOfCoreManager* pzManager = FindOrReport(iKey);
  return pzManager != nullptr && pzManager->IsSaveInSlicesComplete(csPath);
}

void KivOutOfCoreManager::CancelSaveInSlices(uint32_t iKey, const KivWString& csPath) {
  KivOutOfCoreManager* pzManager = FindOrReport(iKey);
  if (pzManager != nullptr) pzManager->CancelSaveInSlices(csPath);
}

// --- This manager ---------------------------------------------------------------------------------------------------

KivFastFileContainerBase* KivOutOfCoreManager::GetContainer() const {
  return m_pzStorage != nullptr ? m_pzStorage->GetContainer() : nullptr;
}

KivPositionTableManager* KivOutOfCoreManager::GetPositionTableManager() const {
  return m_pzStorage != nullptr ? m_pzStorage->GetPositionTableManager() : nullptr;
}

KivModelStatusBase* KivOutOfCoreManager::GetModelStatus() {
  if (m_pzModelStatus == nullptr) m_pzModelStatus = KivDataSpaceBase::GetInstance()->FindModel(m_iKey);
  return m_pzModelStatus;
}

// Reports a store that was not opened for reading.
bool KivOutOfCoreManager::IsStoreForReading() const {
  if (m_pzStorage != nullptr && m_pzStorage->GetMode() == KivStoreMode::Read) return true;
  KIV_FAIL();
  return false;
}

KivSaveInSlicesResult KivOutOfCoreManager::SaveInSlices(const KivWString& csPath, uint32_t iDeadline) {
  if (!IsStoreForReading()) return KivSaveInSlicesResult::TargetNotCreated;
  return GetContainer()->SaveInSlices(csPath, iDeadline);
}

bool KivOutOfCoreManager::IsSaveInSlicesComplete(const KivWString& csPath) {
  return IsStoreForReading() && GetContainer()->IsSaveInSlicesComplete(csPath);
}

void KivOutOfCoreManager::CancelSaveInSlices(const KivWString& csPath) {
  if (IsStoreForReading()) GetContainer()->CancelSaveInSlices(csPath);
}

bool KivOutOfCoreManager::SaveChanges() {
  KivPositionTableManager* pzTables = GetPositionTableManager();
  if (pzTables != nullptr && !SaveTables(*pzTables)) return false;
  if (!DeactivateAllElements()) return false;
  // Keyed elements that were stored just now may have moved.
  return !m_bTablesChanged || pzTables == nullptr || SaveTables(*pzTables);
}

bool KivOutOfCoreManager::SaveTables(KivPositionTableManager& zTables) {
  // Without its first block a model whose keys were never used would have nothing to save.
  if (zTables.GetFilePositionTableMode() != 0) zTables.LoadBlock(0);
  m_bTablesChanged = false;
  try {
    if (static_cast<int32_t>(zTables.SaveTables()) == 0) return true;
  } catch (...) {
    m_bTablesChanged = true;
    throw;
  }
  m_bTablesChanged = true;
  KIV_FAIL();
  return false;
}

}  // namespace kiv
