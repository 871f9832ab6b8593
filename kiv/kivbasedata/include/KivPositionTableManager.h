// Stable keys for records that move: the table of positions of one open container.
//
// A key is 0 (null), a plain position, or, with the top bit set, the index of a table entry: 32768 entries to a block,
// each block a record of the container, the blocks chained from the container's first position table. Entries are
// never removed. A container with table mode 0 has no table: its keys are plain positions.
//
// One thread at a time. Reports come from "src\KivPositionTableManager", and from "KivPositionTable" where an entry
// lies behind the last one.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "KivContainerRecord.h"
#include "KivMemoryBlockPositionTable.h"

namespace kiv {

enum class KivSaveTablesResult : int32_t {
  Done = 0,
  UnequalLengths = 10,
  NoBlocks = 20,
  FirstWithoutPosition = 30,
  NewTableNotStored = 40,
  NotATable = 50,
  TableNotStored = 60
};

enum class KivRewriteAllTablesResult : int32_t {
  Done = 0,
  UnequalLengths = 10,
  NoBlocks = 20,
  NewTableNotStored = 30,
  NotATable = 40,
  TableNotStored = 50
};

enum class KivRemoveAllTablesResult : int32_t { Done = 0, NotSaved = 10, NotFreed = 20 };

// How a manager reaches the table elements of its store.
class IKivPositionTableStore {
 public:
  enum class Change { Done, NotATable, NotStored };

  virtual ~IKivPositionTableStore() = default;
  virtual Position GetFirstPositionTable() = 0;
  // Names a new first table in the container's header, which becomes dirty.
  virtual void SetFirstPositionTable(Position iFile) = 0;
  // The block of the table at a position; null, behind a report, if there is none. It lives until the next call.
  virtual KivMemoryBlockPositionTable* ReadTable(Position iFile) = 0;
  // Stores an empty table and gives its position, 0 on failure.
  virtual Position NewTable() = 0;
  // Hands the block of a table to the editor and stores what it made of it.
  template <typename Editor>
  Change ChangeTable(Position iFile, const Editor& pfnEdit) {
    KivMemoryBlockPositionTable* pzTable = BeginChange(iFile);
    if (pzTable == nullptr) return Change::NotATable;
    pfnEdit(*pzTable);
    return EndChange(iFile) ? Change::Done : Change::NotStored;
  }
  // Destroys the table's element, if there is one in memory, and frees its record. False on failure.
  virtual bool FreeTable(Position iFile) = 0;

 protected:
  virtual KivMemoryBlockPositionTable* BeginChange(Position iFile) = 0;
  virtual bool EndChange(Position iFile) = 0;
};

class KivPositionTableManager {
 public:
  static constexpr uint64_t kTableKey = 0x8000000000000000;
  static bool IsTableKey(Position iKey) { return (iKey & kTableKey) != 0; }

  // iKey is the key of the out-of-core manager. Without a store of its own a manager asks the lookup for that key.
  explicit KivPositionTableManager(uint32_t iKey);
  virtual ~KivPositionTableManager();
  KivPositionTableManager(const KivPositionTableManager&) = delete;
  KivPositionTableManager& operator=(const KivPositionTableManager&) = delete;

  using StoreLookup = IKivPositionTableStore* (*)(uint32_t iKey);
  static void SetStoreLookup(StoreLookup pfnLookup);
  void SetStore(IKivPositionTableStore* pzStore) { m_pzStore = pzStore; }  // borrowed

  // The plain position behind a key, 0 for key 0 and on failure.
  Position ResolveKey(Position iKey);
  // Issues a key for a plain position; 0 for position 0, the position itself with mode 0.
  bool AddKey(Position iFile, Position* piKey);
  bool ReplacePosition(Position iFile, Position iKey);
  // All entries; loads every block.
  uint64_t GetPositionNum();
  // True if the block is in memory after the call.
  bool LoadBlock(uint64_t iBlock);
  // The same, but adds an empty block directly behind the last one.
  bool EnsureBlock(uint64_t iBlock);

  KivSaveTablesResult SaveTables();
  // Stores every block anew, the first one included, and names it in the container's header.
  KivRewriteAllTablesResult RewriteAllTables();
  KivRemoveAllTablesResult RemoveAllTables();
  // Positions of the tables, by walking the chain.
  std::vector<Position> GetBlockPositions();

  // A deep copy that names this manager as its original; the caller owns it.
  std::unique_ptr<KivPositionTableManager> CreateSnapShot();
  int32_t RestoreFromUndo(const KivPositionTableManager* pUndo);

  void SetExtension(uint32_t iMultiFilePositionExtension, uint32_t iIndexForMultiFilePositionExtension,
                    uint32_t iFilePositionTableMode);
  uint32_t GetMultiFilePositionExtension() const { return m_iMultiFilePositionExtension; }
  uint32_t GetIndexForMultiFilePositionExtension() const { return m_iIndexForMultiFilePositionExtension; }
  uint32_t GetFilePositionTableMode() const { return m_iFilePositionTableMode; }
  uint32_t GetKey() const { return m_iKey; }
  uint64_t GetLoadedBlockNum() const { return m_iLoadedBlockNum; }
  const std::vector<Position>& GetLoadedBlockPositions() const { return m_viBlockPosition; }
  const KivPositionTableManager* GetOriginal() const { return m_pzOriginal; }

 private:
  friend struct KivPositionTableManagerTestAccess;

  IKivPositionTableStore* GetStore();
  uint64_t* FindEntry(Position iKey);
  bool MayFollow(const std::vector<Position>& viSeen, Position iNext);
  IKivPositionTableStore::Change StoreBlock(IKivPositionTableStore& zStore, size_t iBlock);

  uint32_t m_iKey;
  std::vector<std::unique_ptr<KivMemoryBlockPositionTable>> m_vpzBlock;
  std::vector<Position> m_viBlockPosition;  // of each block's record, 0 for a block that has none yet
  uint64_t m_iLoadedBlockNum = 0;
  Position m_iNextBlockPosition = 0;  // where the next block is to be read
  uint32_t m_iMultiFilePositionExtension = 0;
  uint32_t m_iIndexForMultiFilePositionExtension = 0;
  uint32_t m_iFilePositionTableMode = 0;
  const KivPositionTableManager* m_pzOriginal = nullptr;
  IKivPositionTableStore* m_pzStore = nullptr;
};

}  // namespace kiv
