// Adding, reading, freeing and moving records.
//
// Record in the main file, at position P:
//   OFFSET   SIZE   FIELD
//   0        8      record size R, these 24 bytes of frame included
//   8        8      payload size; equal to R in a free record, at most R - 24 in a record in use
//   16       n      payload, then slack; zeros in a free record
//   R - 8    8      P, the back pointer
#include <algorithm>

#include "KivException.h"
#include "KivFastFileContainerBase.h"

namespace kiv {
namespace {

constexpr char kSource[] = "src\\KivFastFileContainerBase";

constexpr uint64_t kPayloadOffset = 16;
constexpr uint64_t kBackPointerSize = 8;
constexpr uint64_t kSmallestSplit = 50;  // a smaller rest stays in the record as slack
constexpr uint64_t kSpareCapacity = 1024;
constexpr uint64_t kZeroStep = 0x100000;

}  // namespace

// Makes room for a payload behind the records and for new nodes in files whose capacity this container manages.
void KivFastFileContainerBase::ReserveCapacity(uint64_t iPayloadSize) {
  const KivSharedPtr<ISnapShotFile> pzFile = GetBaseFile();
  if (m_bEndInsideFile && pzFile->CanUseDirectBuffer()) {
    const uint64_t iNeeded = m_iEndPosition + iPayloadSize + kSpareCapacity;
    const uint64_t iCapacity = pzFile->GetDirectBufferSize();
    if (iCapacity < iNeeded && iCapacity != m_iFixedCapacity) {
      if (!pzFile->PrepareDirectBuffer(std::max(m_iEndPosition + (m_iEndPosition >> 5), iNeeded)))
        KIV_FAIL();
      else if (pzFile->GetDirectBufferSize() == iCapacity)
        // A read-only file keeps its capacity, and asking again would map it anew each time.
        m_iFixedCapacity = iCapacity;
    }
  }
  const KivSharedPtr<ISnapShotFile> pzUnused = GetUnusedRecordFile();
  if (pzUnused->CanUseDirectBuffer()) {
    const uint64_t iCapacity = pzUnused->GetDirectBufferSize();
    if (m_iNodeNum > iCapacity / kNodeSize) return;  // a damaged number; no slot will be appended
    const uint64_t iUsed = m_iNodeNum * kNodeSize + kFirstNode;
    if (iCapacity < iUsed + kSpareCapacity && !pzUnused->PrepareDirectBuffer(iUsed + kSpareCapacity + (iUsed >> 5)))
      KIV_FAIL();
  }
}

// --- Transfers -----------------------------------------------------------------------------------

void KivFastFileContainerBase::FillBaseFileWithZeros(uint64_t iOffset, uint64_t nCount) {
  const KivSharedPtr<ISnapShotFile> pzFile = GetBaseFile();
  while (nCount != 0) {
    const uint64_t nStep = std::min(nCount, kZeroStep);
    m_zBaseAccess.WriteZero(*pzFile, iOffset, nStep);
    iOffset += nStep;
    nCount -= nStep;
  }
}

// The trailer comes last: a record is complete when it points back at its start. Gives the position behind it.
uint64_t KivFastFileContainerBase::WriteRecord(Position iFile, uint64_t iRecordSize, const KivContainerData& zData) {
  uint8_t acSizes[16];
  KivStore<uint64_t>(acSizes, iRecordSize);
  KivStore<uint64_t>(acSizes + 8, zData.m_iSize);
  WriteBaseFile(iFile, acSizes, sizeof acSizes);
  const uint64_t nProvided = zData.m_iSize - zData.m_iPaddingSize;
  if (nProvided != 0) WriteBaseFile(iFile + kPayloadOffset, zData.m_pzData, nProvided);
  FillBaseFileWithZeros(iFile + kPayloadOffset + nProvided, zData.m_iPaddingSize);
  uint8_t acBack[kBackPointerSize];
  KivStore<uint64_t>(acBack, iFile);
  WriteBaseFile(iFile + iRecordSize - kBackPointerSize, acBack, sizeof acBack);
  m_iKnownLength = std::max(m_iKnownLength, iFile + iRecordSize);
  return iFile + iRecordSize;
}

// The frame of a free record whose inner bytes are zero already.
void KivFastFileContainerBase::WriteFreeRecord(Position iFile, uint64_t iRecordSize) {
  uint8_t acSizes[16];
  KivStore<uint64_t>(acSizes, iRecordSize);
  KivStore<uint64_t>(acSizes + 8, iRecordSize);
  WriteBaseFile(iFile, acSizes, sizeof acSizes);
  uint8_t acBack[kBackPointerSize];
  KivStore<uint64_t>(acBack, iFile);
  WriteBaseFile(iFile + iRecordSize - kBackPointerSize, acBack, sizeof acBack);
}

bool KivFastFileContainerBase::ReadSizes(Position iFile, uint64_t& iRecordSize, uint64_t& iFileSize) {
  uint8_t acSizes[16] = {};
  uint64_t nRead = 0;
  if (IsInBaseFile(iFile, sizeof acSizes)) nRead = ReadBaseFile(iFile, acSizes, sizeof acSizes);
  if (!KIV_CHECK_AS(nRead == sizeof acSizes, "nRead == sizeof(Position)")) return false;
  iRecordSize = KivLoad<uint64_t>(acSizes);
  iFileSize = KivLoad<uint64_t>(acSizes + 8);
  return true;
}

// True if a record of this size at iFile lies among the records and points back at its start.
bool KivFastFileContainerBase::IsWholeRecord(Position iFile, uint64_t iRecordSize) {
  if (!m_bEndInsideFile || iFile < kFirstRecord || iFile > m_iEndPosition) return false;
  if (iRecordSize < kFrameSize || iRecordSize > m_iEndPosition - iFile) return false;
  uint8_t acBack[kBackPointerSize] = {};
  const uint64_t nRead = ReadBaseFile(iFile + iRecordSize - kBackPointerSize, acBack, sizeof acBack);
  KIV_CHECK_AS(nRead == sizeof acBack, "nRead == sizeof(Position)");
  return nRead == sizeof acBack && KivLoad<uint64_t>(acBack) == iFile;
}

// --- Zeros ---------------------------------------------------------------------------------------
//
// Freeing must leave zeros inside the merged record. What lies inside a free neighbour is zero already if it was freed
// in this run, and is then left alone: otherwise freeing a file from front to end would take the square of its length.

bool KivFastFileContainerBase::IsKnownZeroed(Position iFile, uint64_t iSize) const {
  if (!m_bOpenedExisting) return true;  // every free record is this container's own
  const ZeroedRecord& zEntry = m_azZeroed[(iFile * 0x9E3779B97F4A7C15) >> 54];
  return zEntry.m_iPosition == iFile && zEntry.m_iSize == iSize;
}

void KivFastFileContainerBase::RememberZeroed(Position iFile, uint64_t iSize) {
  if (m_bOpenedExisting) m_azZeroed[(iFile * 0x9E3779B97F4A7C15) >> 54] = {iFile, iSize};
}

// --- Operations ----------------------------------------------------------------------------------

uint64_t KivFastFileContainerBase::SplitFreeRecord(Position iFile, uint64_t iFound, uint64_t iRecordSize) {
  if (iFound < iRecordSize + kSmallestSplit) return iFound;
  const uint64_t iRest = iFound - iRecordSize;
  const bool bZeroed = IsKnownZeroed(iFile, iFound);
  WriteFreeRecord(iFile + iRecordSize, iRest);
  if (bZeroed) RememberZeroed(iFile + iRecordSize, iRest);
  if (!InsertFreeRecord(0, iRest, iFile + iRecordSize)) KIV_FAIL();
  return iRecordSize;
}

Position KivFastFileContainerBase::AddRecord(const KivContainerData& zData) {
  const bool bData = KIV_CHECK(zData.m_pzData != NULL) || zData.m_iSize == zData.m_iPaddingSize;
  KIV_CHECK(!m_bContainerLocked);
  if (!bData) return NULL_FILE_INDEX;
  if (!m_bEndInsideFile) {
    KIV_FAIL();
    return NULL_FILE_INDEX;
  }
  ReserveCapacity(zData.m_iSize);
  const uint64_t iRecordSize = zData.m_iSize + kFrameSize;
  uint64_t iFound = 0;
  Position iFile = 0;
  if (FindFreeRecord(0, iRecordSize, iFound, iFile)) {
    const KivSharedPtr<ISnapShotFile> pzFile = GetBaseFile();
    m_zBaseAccess.Prefetch(*pzFile, iFile);
    m_zBaseAccess.Prefetch(*pzFile, iFile + iFound - kBackPointerSize);
    uint64_t iInFile = 0;
    uint64_t iInFileToo = 0;
    // A pair that the main file does not bear out must not be written over.
    const bool bFree = ReadSizes(iFile, iInFile, iInFileToo) && iInFile == iFound && iInFileToo == iFound &&
                       IsWholeRecord(iFile, iFound);
    if (bFree) {
      if (!RemoveFreeRecord(0, iFound, iFile)) KIV_FAIL();
      WriteRecord(iFile, SplitFreeRecord(iFile, iFound, iRecordSize), zData);
      return iFile;
    }
    KIV_FAIL();
  }
  return AppendRecord(zData);
}

Position KivFastFileContainerBase::AppendRecord(const KivContainerData& zData) {
  const Position iFile = m_iEndPosition;
  m_iEndPosition = WriteRecord(iFile, zData.m_iSize + kFrameSize, zData);
  return iFile;
}

KivContainerRecordWithSizes KivFastFileContainerBase::GetRecordWithSizes(Position iFile) {
  KIV_CHECK(!m_bContainerLocked);
  KivContainerRecordWithSizes zRecord;
  uint64_t iRecordSize = 0;
  uint64_t iFileSize = 0;
  if (!ReadSizes(iFile, iRecordSize, iFileSize)) return zRecord;
  zRecord.m_iRecordSize = iRecordSize;
  zRecord.m_iFileSize = iFileSize;
  if (iRecordSize == iFileSize) return zRecord;
  if (iRecordSize < kFrameSize || iFileSize > iRecordSize - kFrameSize ||
      !IsInBaseFile(iFile + kPayloadOffset, iFileSize)) {
    KIV_FAIL();
    return zRecord;
  }
  zRecord.m_pzFile = GetBaseFile();
  zRecord.m_iOffset = iFile + kPayloadOffset;
  return zRecord;
}

KivContainerRecord KivFastFileContainerBase::GetRecord(Position iFile) {
  KivContainerRecordWithSizes zWithSizes = GetRecordWithSizes(iFile);
  KivContainerRecord zRecord;
  if (!zWithSizes.m_pzFile) return zRecord;
  if (zWithSizes.m_iFileSize > UINT32_MAX) {
    KIV_FAIL();
    return zRecord;
  }
  zRecord.m_pzFile = std::move(zWithSizes.m_pzFile);
  zRecord.m_iOffset = zWithSizes.m_iOffset;
  zRecord.m_iFileSize = static_cast<uint32_t>(zWithSizes.m_iFileSize);
  return zRecord;
}

void KivFastFileContainerBase::DeleteRecordChecked(Position iFile) {
  KIV_CHECK(iFile != NULL_FILE_INDEX);
  DeleteRecord(iFile);
}

void KivFastFileContainerBase::DeleteRecord(Position iFile) {
  KIV_CHECK(!m_bContainerLocked);
  ReserveCapacity(0);

  uint64_t iRecordSize = 0;
  uint64_t iFileSize = 0;
  if (!ReadSizes(iFile, iRecordSize, iFileSize)) return;
  // The record in front is found by its back pointer. In front of the first record lie header bytes, which make none.
  uint8_t acBack[kBackPointerSize] = {};
  if (iFile >= kFirstRecord) {
    const uint64_t nRead = ReadBaseFile(iFile - kBackPointerSize, acBack, sizeof acBack);
    KIV_CHECK_AS(nRead == sizeof acBack, "nRead == sizeof(Position)");
  }
  const Position iFront = KivLoad<uint64_t>(acBack);
  {
    const KivSharedPtr<ISnapShotFile> pzFile = GetBaseFile();
    m_zBaseAccess.Prefetch(*pzFile, iFront);
    m_zBaseAccess.Prefetch(*pzFile, iFile + iRecordSize);
  }
  if (!IsWholeRecord(iFile, iRecordSize) || iRecordSize == iFileSize) {
    KIV_FAIL();
    return;
  }

  uint64_t iLeft = 0;
  uint64_t iLeftSize = 0;
  if (iFront >= kFirstRecord && iFront < iFile) {
    uint64_t iFrontSize = 0;
    uint64_t iFrontFileSize = 0;
    if (ReadSizes(iFront, iFrontSize, iFrontFileSize) && iFrontSize == iFrontFileSize && iFrontSize == iFile - iFront &&
        iFrontSize >= kFrameSize) {
      iLeft = iFront;
      iLeftSize = iFrontSize;
    }
  }
  const Position iMerged = iLeft != 0 ? iLeft : iFile;

  uint64_t iMergedSize = iLeftSize + iRecordSize;
  const Position iNext = iFile + iRecordSize;
  uint64_t iRight = 0;
  uint64_t iRightSize = 0;
  if (m_iEndPosition > iNext) {
    uint64_t iNextSize = 0;
    uint64_t iNextFileSize = 0;
    if (ReadSizes(iNext, iNextSize, iNextFileSize) && iNextSize == iNextFileSize && IsWholeRecord(iNext, iNextSize)) {
      iRight = iNext;
      iRightSize = iNextSize;
      iMergedSize += iNextSize;
    }
  }

  if (iLeft != 0 && !RemoveFreeRecord(0, iLeftSize, iLeft)) KIV_FAIL();
  if (iRight != 0 && !RemoveFreeRecord(0, iRightSize, iRight)) KIV_FAIL();

  uint64_t iZeroFrom = iMerged + kPayloadOffset;
  uint64_t iZeroTo = iMerged + iMergedSize - kBackPointerSize;
  if (iLeft != 0 && IsKnownZeroed(iLeft, iLeftSize)) iZeroFrom = iFile - kBackPointerSize;
  if (iRight != 0 && IsKnownZeroed(iRight, iRightSize)) iZeroTo = iRight + kPayloadOffset;
  uint8_t acSizes[16];
  KivStore<uint64_t>(acSizes, iMergedSize);
  KivStore<uint64_t>(acSizes + 8, iMergedSize);
  WriteBaseFile(iMerged, acSizes, sizeof acSizes);
  FillBaseFileWithZeros(iZeroFrom, iZeroTo - iZeroFrom);
  KivStore<uint64_t>(acBack, iMerged);
  WriteBaseFile(iMerged + iMergedSize - kBackPointerSize, acBack, sizeof acBack);
  RememberZeroed(iMerged, iMergedSize);

  if (!InsertFreeRecord(0, iMergedSize, iMerged)) KIV_FAIL();
}

Position KivFastFileContainerBase::MoveRecord(Position iFile, Position& iStart, Position* piStoredAt) {
  if (piStoredAt != nullptr) *piStoredAt = iFile;
  KIV_CHECK(iFile != NULL_FILE_INDEX);
  KIV_CHECK(!m_bContainerLocked);
  Position iCurrent = std::max(iStart, kFirstRecord);

  const KivContainerRecordWithSizes zRecord = GetRecordWithSizes(iFile);
  // What cannot be freed must not be stored a second time. This bounds the buffer too.
  if (!zRecord.m_pzFile || zRecord.m_iFileSize > UINT32_MAX || !IsWholeRecord(iFile, zRecord.m_iRecordSize)) {
    KIV_FAIL();
    return iFile;
  }
  const auto iFileSize = static_cast<uint32_t>(zRecord.m_iFileSize);
  std::vector<uint8_t> vcPayload(std::max<size_t>(iFileSize, 1));
  if (ReadBaseFile(zRecord.m_iOffset, vcPayload.data(), iFileSize) != iFileSize) {
    KIV_FAIL();
    return iFile;
  }
  const KivContainerData zData(vcPayload.data(), iFileSize);
  Position iStoredAt = NULL_FILE_INDEX;
  bool bFreed = false;
  try {
    DeleteRecordChecked(iFile);
    bFreed = true;
    const Position iMoved = MoveFreedPayload(iCurrent, zData, iStart, iStoredAt);
    if (piStoredAt != nullptr) *piStoredAt = iStoredAt;
    return iMoved;
  } catch (...) {
    // The payload is in the buffer alone from the moment its record was freed; the report must not take it along.
    const bool bThere = !bFreed && IsStillThere(iFile, zRecord.m_iRecordSize, zRecord.m_iFileSize);
    if (iStoredAt == NULL_FILE_INDEX) iStoredAt = bThere ? iFile : StoreAgain(zData);
    if (piStoredAt != nullptr) *piStoredAt = iStoredAt;
    throw;
  }
}

// Stores the payload of a record that was freed at the first free record from iCurrent on that holds it, and gives its
// position; else like any other, and gives 0.
Position KivFastFileContainerBase::MoveFreedPayload(Position iCurrent, const KivContainerData& zData, Position& iStart,
                                                    Position& iStoredAt) {
  const uint64_t iNeeded = zData.m_iSize + kFrameSize;
  while (iCurrent < m_iEndPosition) {
    uint64_t iRecordSize = 0;
    uint64_t iSize = 0;
    if (!ReadSizes(iCurrent, iRecordSize, iSize)) break;
    if (iRecordSize < kFrameSize) {
      KIV_FAIL();
      break;
    }
    if (iRecordSize > m_iEndPosition - iCurrent) break;
    if (iRecordSize == iSize && iSize >= iNeeded && IsWholeRecord(iCurrent, iSize)) {
      ReserveCapacity(0);
      // A free record that the tree does not know holds the payload all the same.
      if (!RemoveFreeRecord(0, iSize, iCurrent)) KIV_FAIL();
      WriteRecord(iCurrent, SplitFreeRecord(iCurrent, iSize, iNeeded), zData);
      iStart = iCurrent;
      iStoredAt = iCurrent;
      return iCurrent;
    }
    iCurrent += iRecordSize;
  }
  iStoredAt = AddRecord(zData);
  if (iStoredAt == NULL_FILE_INDEX) KIV_FAIL();
  return NULL_FILE_INDEX;
}

// True if freeing this record ended before it touched its bytes.
bool KivFastFileContainerBase::IsStillThere(Position iFile, uint64_t iRecordSize, uint64_t iFileSize) {
  try {
    uint8_t acSizes[16] = {};
    return ReadBaseFile(iFile, acSizes, sizeof acSizes) == sizeof acSizes &&
           KivLoad<uint64_t>(acSizes) == iRecordSize && KivLoad<uint64_t>(acSizes + 8) == iFileSize &&
           IsWholeRecord(iFile, iRecordSize);
  } catch (const std::exception&) {
    return false;
  }
}

// For a payload that would be lost otherwise: behind the records where the tree does not let it in. 0 if it cannot be
// written.
Position KivFastFileContainerBase::StoreAgain(const KivContainerData& zData) {
  try {
    return AddRecord(zData);
  } catch (const std::exception&) {
  }
  try {
    ReserveCapacity(zData.m_iSize);
    return AppendRecord(zData);
  } catch (const std::exception&) {
    return NULL_FILE_INDEX;
  }
}

bool KivFastFileContainerBase::PrefetchRecord(Position iFile, uint32_t iMode) {
  KIV_CHECK(!m_bContainerLocked);
  const KivSharedPtr<ISnapShotFile> pzFile = GetBaseFile();
  if (!IsInBaseFile(iFile, kPayloadOffset) || !pzFile->IsRangeCached(iFile, iFile + kPayloadOffset, iMode))
    return false;
  uint64_t iRecordSize = 0;
  uint64_t iFileSize = 0;
  if (!ReadSizes(iFile, iRecordSize, iFileSize)) return false;
  if (iRecordSize == iFileSize) return true;
  const Position iPayload = iFile + kPayloadOffset;
  if (!IsInBaseFile(iPayload, iFileSize)) return false;
  return pzFile->IsRangeCached(iPayload, iPayload + iFileSize, iMode);
}

}  // namespace kiv
