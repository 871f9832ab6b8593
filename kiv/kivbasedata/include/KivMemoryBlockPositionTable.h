// One block of the position table in memory, and its record.
//
// Record payload of a position table:
//   OFFSET  SIZE         FIELD
//   0       u32          m_iElementType, 10
//   4       u32          m_iElementVersion
//   8       u32          m_iElementState; absent in generation 19, where all that follows lies 4 bytes earlier
//   12      u32          m_iHeaderSize, at least 68
//   16      u64          m_iPreviousTable
//   24      u64          m_iNextTable
//   32      u64          m_iThirdLink
//   40      6 x u32      box, unused here
//   64      u32          m_iElementKind, at most 2
//   68      32768 x u64  entries; zeros behind m_iPositionNum
//   262212  u64          m_iPositionNum
#pragma once

#include "KivMemoryBlock.h"

namespace kiv {

class KivMemoryBlockPositionTable : public KivMemoryBlock {
 public:
  static constexpr char kSource[] = "src\\KivPositionTable";  // of reports
  static constexpr uint32_t kElementType = 10;
  static constexpr uint32_t kHeaderSize = 68;
  static constexpr uint32_t kLargestKind = 2;
  static constexpr uint64_t kEntryNum = 32768;
  static constexpr uint64_t kRecordSize = 262220;
  static constexpr uint64_t kRecordSize19 = 262216;  // in generation 19

  KivMemoryBlockHeader GetHeader() const override;
  KivMemoryBlockLinks GetLinks() override { return {&m_iPreviousTable, &m_iNextTable, &m_iThirdLink}; }

  // As a new one: type 10, version 0, state 1, header size 68, the rest 0.
  void Clear();
  // All fields, entries and their number.
  void CopyFrom(const KivMemoryBlockPositionTable& zOther);
  // The fields up to the entries.
  void CopyFieldsFrom(const KivMemoryBlockPositionTable& zOther);

  // Fills the block from a record's payload. False, with a report (source "src\KivPositionTable"), for one that is
  // none or is damaged; the fields read so far then stay.
  bool Parse(const uint8_t* pBytes, uint64_t nSize, bool bVer19Data);
  // Writes the kRecordSize bytes of the current form. False, with a report, for a block that must not be stored.
  bool Build(uint8_t* pBytes) const;

  uint32_t m_iElementType = kElementType;
  uint32_t m_iElementVersion = 0;
  uint32_t m_iElementState = 1;
  uint32_t m_iHeaderSize = kHeaderSize;
  uint64_t m_iPreviousTable = 0;  // position of the block before in the chain, 0 for the first
  uint64_t m_iNextTable = 0;      // of the next one, 0 for the last
  uint64_t m_iThirdLink = 0;
  std::array<uint32_t, 6> m_aiBox{};
  uint32_t m_iElementKind = 0;
  std::array<uint64_t, kEntryNum> m_aiPosition{};
  uint64_t m_iPositionNum = 0;  // entries in use
};

}  // namespace kiv
