// Keeps variable-sized records in one main file and an index of its free space in a second one, the unused record
// file. docs/container_format.md describes both files.
//
// One thread at a time. The base reaches its files only through GetBaseFile and GetUnusedRecordFile. What should never
// happen is a report with the source "src\KivFastFileContainerBase"; the results behind a report are told here.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <vector>

#include "ISnapShotFile.h"
#include "KivContainerCheck.h"
#include "KivContainerFileAccess.h"
#include "KivContainerHeader.h"
#include "KivContainerRecord.h"
#include "KivSharedPtr.h"
#include "KivSysText.h"

namespace kiv {

class KivPositionTableManager;

// A save in slices under way, or complete.
struct KivBackgroundSaveTask {
  KivSharedPtr<ISnapShotFile> m_pzFile;  // the target; empty when the save is complete
  int32_t m_iNextChunk = 0;              // next chunk to copy; -1 when the save is complete
};

enum class KivContainerStatus : uint32_t { Usable = 0, NotInitialized = 1, ShortHeader = 10, IncompatibleHeader = 20 };

enum class KivSaveInSlicesResult : int32_t {
  Done = 0,  // complete or cut short
  TargetExists = 10,
  TargetNotCreated = 20,
  NothingBehindRecords = 30
};

class KivFastFileContainerBase {
 public:
  static constexpr Position kFirstRecord = 264;
  static constexpr uint64_t kFrameSize = 24;  // of a record: both size fields and the back pointer

  virtual ~KivFastFileContainerBase();
  virtual bool IsMultiFileContainer() { return false; }
  // Frees a record and merges it with free neighbours. A position that holds no whole record, or a free one, is
  // reported and nothing is freed.
  virtual void DeleteRecord(Position iFile);
  virtual KivSharedPtr<ISnapShotFile> GetBaseFile() = 0;
  virtual KivSharedPtr<ISnapShotFile> GetUnusedRecordFile() = 0;

  KivFastFileContainerBase(const KivFastFileContainerBase&) = delete;
  KivFastFileContainerBase& operator=(const KivFastFileContainerBase&) = delete;

  // A status other than Usable means that there is no container.
  KivContainerStatus GetStatus() const { return static_cast<KivContainerStatus>(m_iStatus); }

  // --- Records -----------------------------------------------------------------------------------

  // Stores a copy of the data and returns the position of the record. Takes the smallest free record that fits, else
  // appends. Reports null data. 0 only where the data or the container is unusable, behind the report.
  Position AddRecord(const KivContainerData& zData);
  // The payload's place; the null form for a free record and, behind a report, for what is no record.
  KivContainerRecord GetRecord(Position iFile);
  KivContainerRecordWithSizes GetRecordWithSizes(Position iFile);
  void DeleteRecordChecked(Position iFile);
  // Moves a record to the earliest place that fits, at or after iStart, and gives the new position, which iStart takes
  // too. 0 if there is no earlier place: the payload is then stored anew like any other, and *piStoredAt says where.
  // iFile itself if it holds no record (reported). A report that throws leaves the payload stored too, and *piStoredAt
  // says where; it is 0 only if the payload could not be written any more.
  Position MoveRecord(Position iFile, Position& iStart, Position* piStoredAt = nullptr);
  // True if the main file accepted to prefetch the record's head and payload. A free record counts as accepted. False
  // without a report for what lies outside the file.
  bool PrefetchRecord(Position iFile, uint32_t iMode);

  // --- Files -------------------------------------------------------------------------------------

  // Brings the header up to date and puts the image of the unused record file behind the last record. Nothing happens
  // for a container that was opened over an existing file in which nothing was written.
  void Flush();
  void FlushBaseFile();  // flushes the main file as it is

  // --- Copies ------------------------------------------------------------------------------------

  // Writes the patch stream of the main file to csPath and the unused record file to csPath + ".urf"; into the package
  // as well if bAlsoIntoPackage is set and there is one. The main file needs a cache. True on success.
  bool SaveAs(const KivWString& csPath, bool bAlsoIntoPackage);
  // Copies the container to csPath, some chunks in each call until iDeadline (in milliseconds of KivGetTimeMs, 0 for
  // none) is over. The target is a container of its own when the save is complete.
  KivSaveInSlicesResult SaveInSlices(const KivWString& csPath, uint32_t iDeadline);
  bool IsSaveInSlicesComplete(const KivWString& csPath);
  // Forgets the save. The target is deleted unless the save was complete. Reports a path that has none.
  void CancelSaveInSlices(const KivWString& csPath);

  // --- Checks ------------------------------------------------------------------------------------

  // The established check: its walk starts at position 8 and so always reports "iCurrentPos <= m_iEndPosition" for a
  // current header. True. FullCheck is the one to rely on.
  bool CheckConsistency();
  // Writes both files as text, and all positions to mapUsed with true for a record in use. False for an empty path.
  bool Dump(const KivWString& csPath, std::map<Position, bool>& mapUsed);
  // Looks at every record, every node and their agreement, reports nothing, and gives what it found.
  KivContainerCheck FullCheck();

  // --- State -------------------------------------------------------------------------------------

  bool IsLocked() const { return m_bContainerLocked; }
  bool IsOpenedExisting() const { return m_bOpenedExisting; }
  uint64_t GetEndPosition() const { return m_iEndPosition; }
  uint64_t GetValidNodeNum() const { return m_iValidNodeNum; }
  uint64_t GetNodeNum() const { return m_iNodeNum; }
  uint64_t GetRootNode() const { return m_iRootNode; }
  uint64_t GetNodeCursor() const { return m_iNodeCursor; }
  uint32_t GetNodeOrder() const { return m_iNodeOrder; }
  const KivContainerHeaderInfo& GetHeaderInfo() const { return zHeaderInfo; }
  uint8_t GetGeneration() const { return zHeaderInfo[KivContainerHeader::FormatVersion]; }
  Position GetFirstPositionTable() const { return m_iFirstPositionTable; }
  void SetFirstPositionTable(Position iFile) { m_iFirstPositionTable = iFile; }
  void SetFilePositionTableMode(uint32_t iMode) { m_iFilePositionTableMode = iMode; }  // counts from the next opening
  void SetHeaderDirty() { m_bHeaderDirty = true; }
  KivPositionTableManager* GetPositionTableManager() const { return m_pzPositionTableManager; }

 protected:
  explicit KivFastFileContainerBase(KivPositionTableManager* pzPositionTableManager);

  // The steps that follow once the derived class has its files.
  void SetCapacityForNew();
  void CreateNew();
  void SetCapacityForExisting();
  void Initialize();

  // True if the image may stay behind the records until the unused record file is first asked for, and RestoreImage is
  // called then. No record is added before that, so the image stands.
  virtual bool MayRestoreLater() { return false; }
  void RestoreImage();
  bool HasImageToRestore() const { return m_iImageToRestore != 0; }

  // Hands a saved patch to the package; only asked when IsMultiFileContainer.
  virtual bool AddSavedPatch(const KivWString& csPath, const KivWString& csSidePath);

  // The members that a snapshot of a container shares with it; the running saves are not among them.
  void CopyState(const KivFastFileContainerBase& zOther);

  uint64_t ReadBaseFile(uint64_t iOffset, void* lpBuf, uint64_t nCount);
  void WriteBaseFile(uint64_t iOffset, const void* lpBuf, uint64_t nCount);
  uint64_t ReadUnusedRecordFile(uint64_t iOffset, void* lpBuf, uint64_t nCount);
  void WriteUnusedRecordFile(uint64_t iOffset, const void* lpBuf, uint64_t nCount);

  KivPositionTableManager* m_pzPositionTableManager;  // borrowed, may be null
  uint64_t m_iEndPosition = 0;                        // behind the last record
  bool m_bContainerLocked = false;                    // nothing sets it; operations only assert on it
  bool m_bOpenedExisting = false;
  uint32_t m_iStatus = static_cast<uint32_t>(KivContainerStatus::NotInitialized);
  KivContainerHeaderInfo zHeaderInfo{};  // as read and upgraded; the members below hold the current values
  uint64_t m_iValidNodeNum = 0;          // nodes in use
  uint64_t m_iNodeNum = 0;               // slots, in use or not
  uint64_t m_iRootNode = 0;
  uint64_t m_iNodeCursor = 0;  // state of the slot probing; part of the format
  uint64_t m_iFirstPositionTable = 0;
  uint32_t m_iNodeOrder = 0;  // pairs of a leaf, children of a branch
  uint32_t m_iMultiFilePositionExtension = 0;
  uint32_t m_iIndexForMultiFilePositionExtension = 0;
  uint32_t m_iFilePositionTableMode = 0;
  bool m_bHeaderDirty = false;
  std::map<KivWString, KivBackgroundSaveTask> m_mapBackgroundSave;

 private:
  friend class KivContainerSalvager;

  static constexpr uint64_t kNodeSize = 360;
  static constexpr uint64_t kFirstNode = 8;
  using NodeBytes = std::array<uint8_t, kNodeSize>;

  // Where a walk down the tree stands.
  struct PathEntry {
    const uint8_t* m_pNode;
    uint32_t m_iNextChild;
  };
  // A free record that is known to be zero between its size fields and its back pointer.
  struct ZeroedRecord {
    Position m_iPosition = 0;
    uint64_t m_iSize = 0;
  };

  // Header (KivFastFileContainerBase.cpp)
  void PutMembers(KivContainerHeader& zHeader);
  void RestoreUnusedRecordFile(uint64_t iLength, uint64_t iFileLength);
  void CopyImage(uint64_t iLength, uint64_t iPresent);
  uint64_t CopyUnusedRecordFile(IWritableFile& zTarget, uint64_t iOffset, uint64_t iLength, bool bBaseFile);
  void CopyExtensionToManager();
  void WriteEmptyRoot(uint64_t iNode);

  // Records (KivFastFileContainerBase_Records.cpp)
  void ReserveCapacity(uint64_t iPayloadSize);
  uint64_t WriteRecord(Position iFile, uint64_t iRecordSize, const KivContainerData& zData);
  void WriteFreeRecord(Position iFile, uint64_t iRecordSize);
  void FillBaseFileWithZeros(uint64_t iOffset, uint64_t nCount);
  uint64_t GetBaseFileLength();
  bool IsInBaseFile(uint64_t iOffset, uint64_t nCount);
  bool ReadSizes(Position iFile, uint64_t& iRecordSize, uint64_t& iFileSize);
  bool IsWholeRecord(Position iFile, uint64_t iRecordSize);
  // Takes a free record of size iFound at iFile for one of iRecordSize bytes and splits off the rest if it is worth a
  // record. Gives the size that the new record has.
  uint64_t SplitFreeRecord(Position iFile, uint64_t iFound, uint64_t iRecordSize);
  bool IsKnownZeroed(Position iFile, uint64_t iSize) const;
  void RememberZeroed(Position iFile, uint64_t iSize);
  Position AppendRecord(const KivContainerData& zData);
  Position MoveFreedPayload(Position iFile, const KivContainerData& zData, Position& iStart, Position& iStoredAt);
  bool IsStillThere(Position iFile, uint64_t iRecordSize, uint64_t iFileSize);
  Position StoreAgain(const KivContainerData& zData);

  // Size tree (KivFastFileContainerBase_SizeTree.cpp)
  bool FindFreeRecord(uint64_t iNode, uint64_t iSize, uint64_t& iFoundSize, Position& iFoundPosition);
  bool InsertFreeRecord(uint64_t iNode, uint64_t iSize, Position iFile);
  bool RemoveFreeRecord(uint64_t iNode, uint64_t iSize, Position iFile);
  bool RemoveNode(uint8_t* pzNode);
  bool PushRangeDown(uint64_t iNode);
  uint64_t AllocateNodeSlot();
  bool InsertIntoLeaf(uint8_t* pzNode, uint64_t iSize, Position iFile);
  bool SplitLeaf(uint8_t* pzNode, uint64_t& iLeft, uint64_t& iRight);
  bool OfferToLeaf(uint64_t iNode, uint64_t iSize, Position iFile);
  template <typename Admits, typename Leaf>
  bool WalkTree(uint64_t iNode, const Admits& bAdmits, const Leaf& bLeaf);
  uint8_t* CheckNode(uint64_t iNode, uint8_t* pzNode);
  uint8_t* ReadNode(uint64_t iNode, NodeBytes& acBuffer);
  void WriteNode(const uint8_t* pzNode);
  uint64_t NodeSlotsInFile();

  // Check and dump (KivFastFileContainerBase_Check.cpp)
  void CheckTree(uint64_t iDeletedFileNum, uint64_t& iCheckedNode, uint64_t& iFileInUnusedRecordFile);

  static constexpr uint64_t kNoFixedCapacity = UINT64_MAX;

  bool m_bEndInsideFile = true;  // false for a damaged header, whose container takes no record and frees none
  // Bytes that the main file has for certain: its length when it was opened, and what was written since. Reads of a
  // cached file never come short, and its length is that of whole blocks once one was read, so this bounds them.
  uint64_t m_iKnownLength = 0;
  uint64_t m_iFixedCapacity = kNoFixedCapacity;  // of a main file that did not grow when it was asked to
  uint64_t m_iImageToRestore = 0;                // length of an image that is not in the unused record file yet
  bool m_bRestoringImage = false;
  KivContainerFileAccess m_zBaseAccess;
  KivContainerFileAccess m_zUnusedRecordAccess;
  std::vector<PathEntry> m_vzPath;                          // of the walk that runs; reused
  std::vector<std::unique_ptr<NodeBytes>> m_vpzNodeBuffer;  // one for each depth, where nodes must be copied
  std::array<ZeroedRecord, 1024> m_azZeroed{};              // by position; only for a container opened over a file
};

}  // namespace kiv
