// Rebuilds a damaged container from its records.
#include <algorithm>
#include <cstring>
#include <exception>

#include "KivContainerCheck.h"
#include "KivException.h"
#include "KivFastFileContainer.h"
#include "KivWritableMemFile.h"

namespace kiv {
namespace {

constexpr char kSource[] = "src\\KivFastFileContainerBase";

constexpr uint64_t kFirst = KivFastFileContainerBase::kFirstRecord;
constexpr uint64_t kFrame = KivFastFileContainerBase::kFrameSize;
constexpr uint64_t kPiece = 0x1000;

// What a failing disk still gives: the number of bytes read. Nothing of it is a report of the salvage.
uint64_t ReadWhatIsThere(ISnapShotFile& zFile, uint64_t iOffset, void* lpBuf, uint64_t nCount) {
  try {
    return std::min(zFile.Read(iOffset, lpBuf, nCount), nCount);
  } catch (const std::exception&) {
    return 0;
  }
}

// Reads numbers of a file by way of a window, so that a search byte by byte does not ask the file for each. What
// cannot be read counts as zeros, piece by piece.
class WindowReader {
 public:
  WindowReader(ISnapShotFile& zFile, uint64_t iLength, uint64_t iWindow)
      : m_zFile(zFile), m_iLength(iLength), m_vcWindow(static_cast<size_t>(iWindow)) {}

  // 0 behind the end.
  uint64_t U64(uint64_t iOffset) {
    if (m_iLength < 8 || iOffset > m_iLength - 8) return 0;
    if (iOffset < m_iStart || iOffset + 8 > m_iStart + m_iFilled) {
      m_iStart = iOffset;
      m_iFilled = std::min<uint64_t>(m_vcWindow.size(), m_iLength - iOffset);
      if (ReadWhatIsThere(m_zFile, m_iStart, m_vcWindow.data(), m_iFilled) < m_iFilled) FillByPieces();
    }
    return KivLoad<uint64_t>(m_vcWindow.data() + (iOffset - m_iStart));
  }

 private:
  void FillByPieces() {
    for (uint64_t iDone = 0; iDone < m_iFilled; iDone += kPiece) {
      const uint64_t nCount = std::min(kPiece, m_iFilled - iDone);
      uint8_t* const pPiece = m_vcWindow.data() + iDone;
      const uint64_t nRead = ReadWhatIsThere(m_zFile, m_iStart + iDone, pPiece, nCount);
      std::memset(pPiece + nRead, 0, static_cast<size_t>(nCount - nRead));
    }
  }

  ISnapShotFile& m_zFile;
  uint64_t m_iLength;
  std::vector<uint8_t> m_vcWindow;
  uint64_t m_iStart = 0;
  uint64_t m_iFilled = 0;
};

}  // namespace

// A new container that takes over records at their old positions.
class KivContainerSalvager : public KivFastFileContainer {
 public:
  KivContainerSalvager(ISnapShotFile& zDamaged, const KivSharedPtr<ISnapShotFile>& pzNewFile)
      : KivFastFileContainer(pzNewFile, KivSharedPtr<ISnapShotFile>(new KivWritableMemFile), nullptr),
        m_zDamaged(zDamaged),
        m_iLength(zDamaged.GetLength()),
        m_zWalk(zDamaged, m_iLength, 0x100000),
        m_zBack(zDamaged, m_iLength, kPiece) {}

  KivSalvageReport Run();

 private:
  uint64_t TakeHeader();
  bool IsRecord(Position iFile, uint64_t& iRecordSize, bool& bFree);
  Position FindNextRecord(Position iFrom);
  bool TakeUsed(Position iFile, uint64_t iRecordSize);
  void PutPendingFree();

  ISnapShotFile& m_zDamaged;
  uint64_t m_iLength;
  WindowReader m_zWalk;
  WindowReader m_zBack;
  KivSalvageReport m_zReport;
  Position m_iFreeFrom = 0;  // free space that is not written yet: m_iFreeTo - m_iFreeFrom bytes
  Position m_iFreeTo = 0;
};

// Keeps what the old header says beside its tree. Gives the end of the records that it names, 0 if it is of no use.
uint64_t KivContainerSalvager::TakeHeader() {
  using H = KivContainerHeader;
  if (m_iLength < H::kFilePosition + H::kSize) return 0;
  H zOld;
  if (ReadWhatIsThere(m_zDamaged, H::kFilePosition, zOld.Data(), H::kSize) != H::kSize) return 0;
  H zNew;
  zNew.SetInfo(zHeaderInfo);
  if (zOld.U32(H::ByteOrderMark32) != zNew.U32(H::ByteOrderMark32) &&
      zOld.U64(H::ByteOrderMark64) != zNew.U64(H::ByteOrderMark64))
    return 0;
  m_iFirstPositionTable = zOld.U64(H::FirstPositionTable);
  m_iMultiFilePositionExtension = zOld.U32(H::MultiFilePositionExtension);
  m_iIndexForMultiFilePositionExtension = zOld.U32(H::IndexForMultiFilePositionExtension);
  m_iFilePositionTableMode = zOld.U32(H::FilePositionTableMode);
  // With a header that this process refuses nobody could open the new file.
  m_zReport.m_bHeaderKept = IsCompatibleHeader(zOld);
  if (m_zReport.m_bHeaderKept) {
    zNew = zOld;
  } else {
    // The records are still those of their generation, which the mark says eight times.
    const uint8_t* const pMark = zOld.Data() + H::FormatVersion;
    const auto nPrevious = std::count(pMark, pMark + 8, H::kPreviousGeneration);
    if (nPrevious > std::count(pMark, pMark + 8, H::kCurrentGeneration))
      zNew.Fill8(H::FormatVersion, H::kPreviousGeneration);
  }
  zNew.GetInfo(zHeaderInfo);
  WriteBaseFile(H::kFilePosition, zNew.Data(), H::kSize);  // the flush at the end brings the tree's fields
  return zOld.U64(H::EndPosition);
}

bool KivContainerSalvager::IsRecord(Position iFile, uint64_t& iRecordSize, bool& bFree) {
  if (m_iLength < kFrame || iFile > m_iLength - kFrame) return false;
  iRecordSize = m_zWalk.U64(iFile);
  if (iRecordSize < kFrame || iRecordSize > m_iLength - iFile) return false;
  const uint64_t iFileSize = m_zWalk.U64(iFile + 8);
  bFree = iFileSize == iRecordSize;
  if (!bFree && iFileSize > iRecordSize - kFrame) return false;
  return m_zBack.U64(iFile + iRecordSize - 8) == iFile;
}

// The next record behind a lost one, which had at least its frame; 0 if there is none.
Position KivContainerSalvager::FindNextRecord(Position iFrom) {
  uint64_t iRecordSize = 0;
  bool bFree = false;
  for (Position iFile = iFrom + kFrame; m_iLength >= kFrame && iFile <= m_iLength - kFrame; ++iFile)
    if (IsRecord(iFile, iRecordSize, bFree)) return iFile;
  return 0;
}

// False if its bytes cannot be read; the new file then has no record there.
bool KivContainerSalvager::TakeUsed(Position iFile, uint64_t iRecordSize) {
  // A free record in front is put when this one is safe: it grows by this one's room otherwise.
  ReserveCapacity(m_iFreeTo - m_iFreeFrom + iRecordSize);
  std::vector<uint8_t> vcBuffer(static_cast<size_t>(std::min<uint64_t>(iRecordSize, 0x100000)));
  for (uint64_t iDone = 0; iDone < iRecordSize;) {
    const uint64_t nCount = std::min<uint64_t>(iRecordSize - iDone, vcBuffer.size());
    if (ReadWhatIsThere(m_zDamaged, iFile + iDone, vcBuffer.data(), nCount) != nCount) return false;
    WriteBaseFile(iFile + iDone, vcBuffer.data(), nCount);
    iDone += nCount;
  }
  PutPendingFree();
  m_iEndPosition = iFile + iRecordSize;
  return true;
}

void KivContainerSalvager::PutPendingFree() {
  const uint64_t iSize = m_iFreeTo - m_iFreeFrom;
  if (iSize == 0) return;
  ReserveCapacity(iSize);
  FillBaseFileWithZeros(m_iFreeFrom, iSize);
  WriteFreeRecord(m_iFreeFrom, iSize);
  m_iEndPosition = m_iFreeTo;
  if (!InsertFreeRecord(0, iSize, m_iFreeFrom)) KIV_FAIL();
  ++m_zReport.m_iFreeRecordNum;
  m_iFreeFrom = m_iFreeTo = 0;
}

KivSalvageReport KivContainerSalvager::Run() {
  const uint64_t iNamedEnd = std::min(TakeHeader(), m_iLength);
  const Position iNamedTable = m_iFirstPositionTable;
  bool bTableFound = iNamedTable == NULL_FILE_INDEX;
  const auto AddFree = [this](Position iFrom, Position iTo) {
    if (m_iFreeTo == m_iFreeFrom) m_iFreeFrom = iFrom;
    m_iFreeTo = iTo;
  };
  const auto AddLost = [this](Position iFrom, Position iTo) {
    m_zReport.m_vzLost.push_back({iFrom, iTo - iFrom});
    m_zReport.m_iLostBytes += iTo - iFrom;
  };

  Position iFile = kFirst;
  while (iFile < m_iLength) {
    uint64_t iRecordSize = 0;
    bool bFree = false;
    if (IsRecord(iFile, iRecordSize, bFree)) {
      if (bFree) {
        AddFree(iFile, iFile + iRecordSize);
      } else if (!TakeUsed(iFile, iRecordSize)) {
        AddLost(iFile, iFile + iRecordSize);
        AddFree(iFile, iFile + iRecordSize);
      } else {
        ++m_zReport.m_iUsedRecordNum;
        if (iFile == iNamedTable) bTableFound = true;
      }
      iFile += iRecordSize;
      continue;
    }
    const Position iNext = FindNextRecord(iFile);
    if (iNext == 0) {
      if (iNamedEnd > iFile) AddLost(iFile, iNamedEnd);
      break;
    }
    AddLost(iFile, iNext);
    AddFree(iFile, iNext);
    iFile = iNext;
  }
  PutPendingFree();
  if (!bTableFound) {
    m_zReport.m_bPositionTableLost = true;
    m_iFirstPositionTable = NULL_FILE_INDEX;
  }
  m_bHeaderDirty = true;
  Flush();
  m_zReport.m_iEndPosition = m_iEndPosition;
  m_zReport.m_bDone = true;
  return m_zReport;
}

KivSalvageReport KivSalvageContainer(ISnapShotFile& zDamaged, const KivSharedPtr<ISnapShotFile>& pzNewFile) {
  KivContainerSalvager zSalvager(zDamaged, pzNewFile);
  return zSalvager.Run();
}

std::string KivSalvageReport::GetText() const {
  std::string strText;
  for (const KivLostRange& zLost : m_vzLost)
    strText += "lost " + std::to_string(zLost.m_iSize) + " bytes at " + std::to_string(zLost.m_iPosition) + "\n";
  if (m_bPositionTableLost) strText += "lost the position tables\n";
  return strText;
}

}  // namespace kiv
