// One piece of model data: a record in a container, and its content in memory while the element is active.
// docs/store.md tells who owns the objects and how long they live.
//
// A pointer to an element dies with Deactivate (its own, or the eviction that any activation may cause), with the
// removal of the element and with an undo. Hold a KivOutOfCoreHandle across operations.
//
// Operations report with the source "src\KivOutOfCoreData". Under a manager without a store an element is a plain
// object in memory. One thread at a time.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "KivContainerRecord.h"
#include "KivReportQuiet.h"

namespace kiv {

class KivModelStatusBase;
class KivOutOfCoreManager;

class KivOutOfCoreData {
 public:
  explicit KivOutOfCoreData(uint32_t iManagerKey);
  virtual ~KivOutOfCoreData();
  // Fills the block from the record; with a data size of 0 the block is a fresh one. Reports, gives false, and never
  // throws. Leaves the element unmodified. bModifyOnlyForPosition: only positions inside the block will change.
  virtual bool Load(bool bModifyOnlyForPosition) = 0;
  // Writes the block to the record by WriteData. Reports, gives false, and never throws.
  virtual bool Save(bool bModifyOnlyForPosition) = 0;
  // Frees the block.
  virtual bool Release() = 0;
  // The size to reserve in a record for data of this size.
  virtual uint64_t GetReservedSize(uint64_t iDataSize) { return iDataSize; }
  // Takes the six u32 of a record's frame, minimum x, y, z and maximum x, y, z, and keeps the eight corners they span.
  virtual void SetBoxFromFrame(const uint32_t* pzFrameBox) = 0;

  KivOutOfCoreData(const KivOutOfCoreData&) = delete;
  KivOutOfCoreData& operator=(const KivOutOfCoreData&) = delete;

  // Brings the content into memory, or touches an element that is active already. With bModifyOnlyForPosition the
  // element must not be active yet. An element that fails to load stays inactive.
  bool Activate(bool bModifyOnlyForPosition);
  // Stores the content if it was modified, and frees it. Under a limit above 1 the manager then destroys an object
  // that it knows: do not touch the element afterwards. An element that cannot be saved stays active.
  bool Deactivate();
  // As Deactivate, but the object stays in any case.
  bool Unload();
  void MarkModified();
  // The first nCount bytes of the record's payload.
  bool ReadData(void* pBuffer, uint64_t nCount);
  // Stores the data: in place while it fits and fills at least half of the reserved size, else in a new record. A keyed
  // element keeps its key. An element whose record had to be freed and that found no place for a new one has none until
  // a later call; it is still found by its key, or by its former position while nothing else stands there.
  bool WriteData(const void* pBuffer, uint64_t nCount);
  // Stores and deactivates the element and gives the key by which others refer to it: a new one in a container with
  // position tables, else its position. 0 on failure. The object may be gone.
  uint64_t AssignPositionKey();
  // Stores and deactivates the element and gives its position, 0 on failure. The object may be gone.
  uint64_t DeactivateForPosition();
  // Moves the record to the earliest free place at or after iStart, which becomes the place found. False if there was
  // none; the record may have moved all the same.
  bool MoveRecord(uint64_t& iStart);
  // The model whose root manager this element belongs to, or null.
  KivModelStatusBase* GetModelStatus();
  bool IsVer19Data() const;
  bool HasStore() const;  // false under a manager without a store, and without a manager

  uint32_t GetManagerKey() const { return m_iManagerKey; }
  uint64_t GetPosition() const { return m_iPosition; }
  uint64_t GetPositionKey() const { return m_iPositionKey; }
  uint64_t GetDataSize() const { return m_iDataSize; }
  uint64_t GetRecordSize() const { return m_iRecordSize; }
  bool IsActive() const { return m_bActive; }
  bool IsModified() const { return m_bModified; }
  bool IsTemporary() const { return m_bTemporary; }

 protected:
  // Values of the derived class, read together.
  const std::array<uint32_t, 3>& GetDerivedValues() const { return m_aiDerivedValue; }
  // Bytes of a record that Load has read may stay here and serve the next Load; MarkModified empties it.
  std::vector<uint8_t>& RawData() { return m_vcRawData; }
  std::vector<uint8_t>& UnpackedData() { return m_vcUnpackedData; }

  // Runs a Load or Save: what it throws is reported, if it is no report's own exception, and means false.
  template <typename Body>
  static bool WithoutThrow(Body&& body) noexcept {
    try {
      return body();
    } catch (...) {
      KivReportThrownHere(kDataSource, __LINE__);
      return false;
    }
  }

  uint32_t m_iManagerKey;
  KivModelStatusBase* m_pzModelStatus = nullptr;  // as last asked for
  uint64_t m_iPosition = 0;                       // 0 while there is no record
  uint64_t m_iPositionKey = 0;                    // by which others refer to it; 0 if they use the position
  uint64_t m_iDataSize = 0;
  uint64_t m_iRecordSize = 0;  // reserved for the data in the record
  bool m_bTemporary = false;   // nothing sets it
  bool m_bActive = false;
  bool m_bModified = false;
  KivContainerRecord m_zRecordRef;  // the record as last looked up
  std::array<uint32_t, 3> m_aiDerivedValue{};
  std::vector<uint8_t> m_vcRawData;
  std::vector<uint8_t> m_vcUnpackedData;

 private:
  friend class KivOutOfCoreManager;

  static constexpr char kDataSource[] = "src\\KivOutOfCoreData";

  bool IsKeyed() const { return m_iPositionKey != 0 && m_iPositionKey != m_iPosition; }
  bool StoreAnew(KivOutOfCoreManager& zManager, const KivContainerData& zData);
  void LoseRecordIfGone(KivOutOfCoreManager& zManager) noexcept;
  void DropRecordReference() { m_zRecordRef = KivContainerRecord(); }
  bool StoreAndRelease();
  bool SaveForPosition(uint64_t& iPosition);
  bool FollowRecord(KivOutOfCoreManager& zManager, uint64_t iOldPosition);

  KivOutOfCoreData* m_pzPrevActive = nullptr;  // toward the newer end of the manager's list
  KivOutOfCoreData* m_pzNextActive = nullptr;  // toward the older end
  uint64_t m_iMapPosition = 0;                 // where the manager's map holds this object; 0: the map does not know it
  uint64_t m_iLostPosition = 0;                // of a record that was freed without a new one; m_iPosition is 0 then
};

}  // namespace kiv
