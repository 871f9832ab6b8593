// Looks after the store of one model: the files and the container, the element objects in memory, and how many of them
// are active. docs/store.md explains ownership and lifetimes.
//
// Managers are process-wide and addressed by a small key, which a KivOutOfCoreManagerKeyOwner hands out and keeps
// alive. Functions that take a key report a key without a manager. The source of all reports is
// "src\KivOutOfCoreManager". One thread at a time.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <vector>

#include "KivFastFileContainerBase.h"
#include "KivOutOfCoreData.h"
#include "KivSysText.h"

namespace kiv {

class IKivPositionTableStore;
class KivModelStatusBase;
class KivPositionTableManager;

enum class KivStoreMode : uint32_t {
  NewTemporary = 0,  // makes both files anew; the unused record file goes with the store, the main file stays
  Read = 1,          // the file is not changed; patches and undo are possible
  ReadWrite = 2      // changes the file in place
};

// Where a store comes from.
struct KivStoreSource {
  KivWString m_csPath;  // empty: a temporary store in the base folder
  KivStoreMode m_eMode = KivStoreMode::NewTemporary;
  const void* m_pvData = nullptr;  // Read: the model in memory instead of the path; outlives the store
  uint64_t m_iDataSize = 0;
  KivWString m_csPatchPath;             // Read: a patch to replay; its side file is this path + ".urf"
  KivWString m_csConnectionParameters;  // Read: for a path that is a URL
};

enum class KivStorageResult : int32_t {
  Done = 0,
  BadArgument = 1,
  NoContainer = 2,
  NoRecord = 3,  // no such record, or too small
  ShortRead = 4
};

enum class KivStorageRestoreResult : int32_t { Done = 0, WrongMode = 5, FileNotRestored = 10 };
enum class KivManagerRestoreResult : int32_t { Done = 0, NoUndo = 10, StorageFailed = 20 };

// The start of every record: element type, state and box.
constexpr uint64_t kKivElementFrameSize = 68;
using KivElementFrame = std::array<uint8_t, kKivElementFrameSize>;

// Makes an empty element object from the first word of its record and the manager's key.
using KivElementFactory = KivOutOfCoreData* (*)(uint32_t iTypeWord, uint32_t iManagerKey);

// The files of one store and the container on them.
class KivOutOfCoreMemoryStorage {
 public:
  // What cannot be opened is reported, or logged where the file is not a container of ours; there is no container then.
  KivOutOfCoreMemoryStorage(const KivStoreSource& zSource, uint32_t iManagerKey);
  virtual ~KivOutOfCoreMemoryStorage();
  KivOutOfCoreMemoryStorage(const KivOutOfCoreMemoryStorage&) = delete;
  KivOutOfCoreMemoryStorage& operator=(const KivOutOfCoreMemoryStorage&) = delete;

  KivFastFileContainerBase* GetContainer() const { return m_pzFileContainer.get(); }
  KivPositionTableManager* GetPositionTableManager() const { return m_pzPositionTableManager; }
  KivStoreMode GetMode() const { return m_eMode; }

  // The first nCount bytes of a payload. zRecord is the record as last looked up: an empty one is filled.
  KivStorageResult ReadRecord(uint64_t iPosition, void* pBuffer, uint64_t nCount, KivContainerRecord& zRecord);
  KivStorageResult ReadElementHeader(uint64_t iPosition, KivElementFrame& acFrame, KivContainerRecord& zRecord);
  KivStorageResult FindRecord(uint64_t iPosition, KivContainerRecord& zRecord);
  KivStorageResult OverwriteRecord(uint64_t iPosition, const void* pBuffer, uint64_t nCount);
  KivStorageResult AddRecord(const KivContainerData& zData, uint64_t& iPosition);
  KivStorageResult FreeRecord(uint64_t iPosition);
  // iMovedTo is 0 if no earlier place was found; iStoredAt is where the record is in any case.
  KivStorageResult MoveRecord(uint64_t iPosition, uint64_t& iStart, uint64_t& iMovedTo, uint64_t& iStoredAt);

  // A frozen copy that shares the files and the position tables. Null, after a report, unless the mode is Read.
  std::unique_ptr<KivOutOfCoreMemoryStorage> CreateSnapShot();
  KivStorageRestoreResult RestoreFromUndo(KivOutOfCoreMemoryStorage* pUndo);
  // Of a copy: see KivFastFileContainerForSnapShot.
  void Abandon();

 private:
  friend struct KivOutOfCoreTestAccess;
  KivOutOfCoreMemoryStorage();
  void CreateTemporary(const KivStoreSource& zSource, uint32_t iManagerKey, bool& bMainMade);
  void OpenForReading(const KivStoreSource& zSource, uint32_t iManagerKey);
  void OpenForWriting(const KivStoreSource& zSource, uint32_t iManagerKey);
  void MakePositionTableManager(uint32_t iManagerKey);
  void DropFiles();

  std::unique_ptr<KivFastFileContainerBase> m_pzFileContainer;
  std::unique_ptr<IKivPositionTableStore> m_pzTableStore;
  KivPositionTableManager* m_pzPositionTableManager = nullptr;  // owned unless m_bSnapShot
  KivSharedPtr<ISnapShotFile> m_pzMainFile;
  KivSharedPtr<ISnapShotFile> m_pzSubFile;  // the unused record file of a temporary store
  KivStoreMode m_eMode = KivStoreMode::NewTemporary;
  bool m_bSnapShot = false;
};

class KivOutOfCoreManager {
 public:
  virtual ~KivOutOfCoreManager();
  KivOutOfCoreManager(const KivOutOfCoreManager&) = delete;
  KivOutOfCoreManager& operator=(const KivOutOfCoreManager&) = delete;

  // --- By key -------------------------------------------------------------------------------------------------------

  // The manager of a key, made from the source if there is none. Null if its store cannot be made, and from then on for
  // every key until a key owner is made.
  static KivOutOfCoreManager* GetManager(uint32_t iKey, const KivStoreSource& zSource = KivStoreSource());
  // The same without making one and without a report.
  static KivOutOfCoreManager* Find(uint32_t iKey);
  static KivOutOfCoreManager* FindWithStore(uint32_t iKey);  // null also for a manager without a store

  // The element object at a position or key, made from its record if it is not known. It is not active yet. Null after
  // a report; null alone for a registered type without a factory and for a manager without a store.
  static KivOutOfCoreData* GetElement(uint32_t iKey, uint64_t iPosition);
  // The same as an object of the caller's, beside the manager's own.
  static std::unique_ptr<KivOutOfCoreData> GetTemporaryElement(uint32_t iKey, uint64_t iPosition,
                                                               KivContainerRecord& zRecord, KivElementFrame& acFrame);
  // Destroys the object, if there is one, and frees the record. False after a report.
  static bool DeleteElement(uint32_t iKey, uint64_t iPosition);
  // The same by object, which must be the map's; sets the pointer to null.
  static bool DeleteElementObject(uint32_t iKey, KivOutOfCoreData*& pzElement);
  static bool ReadElementHeader(uint32_t iKey, uint64_t iPosition, KivElementFrame& acFrame);
  static bool PrefetchElement(uint32_t iKey, uint64_t iPosition, uint32_t iMode);
  // Stores what was changed and frees all blocks. False if an element could not be stored (reported).
  static bool DeactivateAll(uint32_t iKey);
  static bool FlushMainFile(uint32_t iKey);
  static uint64_t GetFirstPositionTable(uint32_t iKey);
  static bool SetKeepRecords(uint32_t iKey);

  // Copies of the store as its files are now; only for a store that was opened for reading.
  static bool SaveAs(uint32_t iKey, const KivWString& csPath, bool bAlsoIntoPackage);
  static KivSaveInSlicesResult SaveInSlices(uint32_t iKey, const KivWString& csPath, uint32_t iDeadline);
  static bool IsSaveInSlicesComplete(uint32_t iKey, const KivWString& csPath);
  static void CancelSaveInSlices(uint32_t iKey, const KivWString& csPath);

  // The folder in which managers made from now on keep temporary stores.
  static void SetOutOfCoreFileBase(const KivWString& csFolder);
  // How many elements of a key may be active; 1 unless set. Below 1, which only a key without a manager can take, its
  // manager will have no store. Deactivates all. A limit that changes after a snapshot is reported by its restore.
  static bool SetMaxActiveOutOfCoreElement(uint32_t iKey, int32_t iMax);
  // The class of a built-in element code. The code 10 is there from the start; model data sets the others.
  static void SetElementClass(uint32_t iCode, KivElementFactory pfnMake);

  // --- This manager -------------------------------------------------------------------------------------------------

  uint32_t GetKey() const { return m_iKey; }
  bool IsVer19Data() const { return m_bVer19Data; }
  int32_t GetMaxActiveOutOfCoreElement() const { return m_iMaxActiveOutOfCoreElement; }
  uint32_t GetActiveElementNum() const;
  size_t GetKnownElementNum() const { return m_mapPositionToElement.size(); }
  KivOutOfCoreMemoryStorage* GetStorage() const { return m_pzStorage.get(); }
  KivFastFileContainerBase* GetContainer() const;
  KivPositionTableManager* GetPositionTableManager() const;
  KivModelStatusBase* GetModelStatus();
  void ForgetModelStatus() { m_pzModelStatus = nullptr; }  // the model goes, the manager stays

  // Nothing happens while records are kept. False after a report.
  bool FreeRecord(uint64_t iPosition);
  KivSaveInSlicesResult SaveInSlices(const KivWString& csPath, uint32_t iDeadline);
  bool IsSaveInSlicesComplete(const KivWString& csPath);
  void CancelSaveInSlices(const KivWString& csPath);
  // Stores what was changed, position tables included. False after a report; elements stay active where the tables
  // could not be stored.
  bool SaveChanges();

  void AddRef() { ++m_iRefCount; }
  // Destroys the manager with its last reference: stores what was changed, destroys the elements, closes the files.
  void Release();

  // A frozen copy without elements. Null, after a report, for a store that was not opened for reading.
  std::unique_ptr<KivOutOfCoreManager> CreateSnapShot();
  // Brings the store back and destroys every element that the manager knows.
  KivManagerRestoreResult RestoreFromUndo(KivOutOfCoreManager* pUndo);

 private:
  friend class KivOutOfCoreData;
  friend class KivOutOfCoreManagerKeyOwner;
  friend struct KivOutOfCoreTestAccess;

  explicit KivOutOfCoreManager(int32_t iMax);
  void OpenStore(uint32_t iKey, const KivStoreSource& zSource);
  KivOutOfCoreData* FindElement(uint64_t iKey);
  std::unique_ptr<KivOutOfCoreData> MakeElement(uint64_t iPosition, KivContainerRecord& zRecord,
                                                KivElementFrame& acFrame);
  bool DeactivateAllElements();
  void DestroyElement(KivOutOfCoreData* pzElement);
  void MoveMapEntry(KivOutOfCoreData* pzElement, uint64_t iOldPosition, uint64_t iNewPosition);
  bool IsRecordFree(uint64_t iPosition) noexcept;
  void KeepWithoutRecord(KivOutOfCoreData* pzElement) noexcept;
  KivOutOfCoreData* FindWithoutRecord(uint64_t iKey, uint64_t iPosition);
  bool IsStoreForReading() const;

  bool SaveTables(KivPositionTableManager& zTables);

  // List of active elements (KivOutOfCoreManager_ActiveList.cpp)
  bool TouchElement(KivOutOfCoreData* pzElement);
  bool RemoveActiveElement(KivOutOfCoreData* pzElement);
  bool IsObjectKept(const KivOutOfCoreData* pzElement) const;
  bool IsListed(KivOutOfCoreData* pzElement) const;
  std::vector<KivOutOfCoreData*> GetActiveElements() const;
  void UnlinkElement(KivOutOfCoreData* pzElement) noexcept;
  void ForgetElement(KivOutOfCoreData* pzElement) noexcept;
  void AbandonForeignElements() noexcept;
  void ClearList() noexcept;
  bool LinkBehindNewest(KivOutOfCoreData* pzElement);
  void Unlink(KivOutOfCoreData* pzElement) noexcept;

  void SetTablesChanged() { m_bTablesChanged = true; }

  uint32_t m_iKey = 0xFFFFFFFF;
  KivWString m_strOutOfCoreFileBase;  // folder of temporary stores
  std::unique_ptr<KivOutOfCoreMemoryStorage> m_pzStorage;
  KivModelStatusBase* m_pzModelStatus = nullptr;
  bool m_bKeepRecords = false;
  // By plain position; those without a record stand behind them, numbered from the top bit on. Owns the objects.
  std::map<uint64_t, KivOutOfCoreData*> m_mapPositionToElement;
  uint64_t m_iNextWithoutRecord = uint64_t{1} << 63;
  std::set<uint64_t> m_setPrefetched;
  bool m_bVer19Data = false;
  int32_t m_iMaxActiveOutOfCoreElement;
  uint64_t m_iRefCount = 0;
  uint32_t m_iActiveElementNum = 0;
  std::set<KivOutOfCoreData*> m_setActiveElement;  // at a limit of 1: those beside the newest
  KivOutOfCoreData* m_pzOldestActive = nullptr;
  KivOutOfCoreData* m_pzNewestActive = nullptr;
  bool m_bIsSnapShot = false;
  bool m_bTablesChanged = false;  // a key was issued or a keyed record moved since the tables were stored
};

// Holds a manager key. A copy holds the same key.
class KivOutOfCoreManagerKeyOwner {
 public:
  // Takes a free key and makes its manager. GetManager is null if the store could not be made.
  explicit KivOutOfCoreManagerKeyOwner(const KivStoreSource& zSource);
  // The same for a given key.
  KivOutOfCoreManagerKeyOwner(uint32_t iKey, const KivStoreSource& zSource);
  KivOutOfCoreManagerKeyOwner(const KivOutOfCoreManagerKeyOwner& zOther);
  KivOutOfCoreManagerKeyOwner& operator=(const KivOutOfCoreManagerKeyOwner&) = delete;
  virtual ~KivOutOfCoreManagerKeyOwner();

  uint32_t GetKey() const { return m_iKey; }
  KivOutOfCoreManager* GetManager() const { return KivOutOfCoreManager::Find(m_iKey); }

 private:
  void Open(const KivStoreSource& zSource);

  uint32_t m_iKey = 0;
};

}  // namespace kiv
