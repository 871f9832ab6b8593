#include "KivMemoryBlockPositionTable.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "KivException.h"
#include "KivLittleEndian.h"

namespace kiv {
namespace {

// Offsets in the current form; those behind the version are 4 bytes lower in generation 19.
constexpr uint64_t kElementState = 8;
constexpr uint64_t kHeaderSizeField = 12;
constexpr uint64_t kLinks = 16;
constexpr uint64_t kBox = 40;
constexpr uint64_t kKind = 64;
constexpr uint64_t kEntries = 68;
constexpr uint64_t kPositionNum = 262212;

}  // namespace

KivMemoryBlockHeader KivMemoryBlockPositionTable::GetHeader() const {
  KivMemoryBlockHeader zHeader;
  zHeader.m_iTag = m_iElementType;
  zHeader.m_iEntryCount = m_iElementVersion;
  zHeader.m_iFormat = m_iElementState;
  zHeader.m_iDataOffset = m_iHeaderSize;
  zHeader.m_aiLink = {m_iPreviousTable, m_iNextTable, m_iThirdLink};
  for (size_t i = 0; i < 3; ++i) {
    zHeader.m_afBoxMin[i] = std::bit_cast<float>(m_aiBox[i]);
    zHeader.m_afBoxMax[i] = std::bit_cast<float>(m_aiBox[i + 3]);
  }
  zHeader.m_iNodeState = m_iElementKind;
  return zHeader;
}

void KivMemoryBlockPositionTable::Clear() {
  m_iElementType = kElementType;
  m_iElementVersion = 0;
  m_iElementState = 1;
  m_iHeaderSize = kHeaderSize;
  m_iPreviousTable = 0;
  m_iNextTable = 0;
  m_iThirdLink = 0;
  m_aiBox.fill(0);
  m_iElementKind = 0;
  m_aiPosition.fill(0);
  m_iPositionNum = 0;
}

void KivMemoryBlockPositionTable::CopyFieldsFrom(const KivMemoryBlockPositionTable& zOther) {
  m_iElementType = zOther.m_iElementType;
  m_iElementVersion = zOther.m_iElementVersion;
  m_iElementState = zOther.m_iElementState;
  m_iHeaderSize = zOther.m_iHeaderSize;
  m_iPreviousTable = zOther.m_iPreviousTable;
  m_iNextTable = zOther.m_iNextTable;
  m_iThirdLink = zOther.m_iThirdLink;
  m_aiBox = zOther.m_aiBox;
  m_iElementKind = zOther.m_iElementKind;
}

void KivMemoryBlockPositionTable::CopyFrom(const KivMemoryBlockPositionTable& zOther) {
  CopyFieldsFrom(zOther);
  m_aiPosition = zOther.m_aiPosition;
  m_iPositionNum = zOther.m_iPositionNum;
}

bool KivMemoryBlockPositionTable::Parse(const uint8_t* pBytes, uint64_t nSize, bool bVer19Data) {
  const auto Fail = [] {
    KIV_FAIL();
    return false;
  };
  Clear();
  if (nSize == 0) return true;
  if (!bVer19Data && nSize < kHeaderSize) return Fail();
  if (nSize < 4) return Fail();
  m_iElementType = KivLoad<uint32_t>(pBytes);
  if (m_iElementType != kElementType) return Fail();
  if (!bVer19Data && KivLoad<uint32_t>(pBytes + kHeaderSizeField) < kHeaderSize) return Fail();
  if (nSize < (bVer19Data ? kRecordSize19 : kRecordSize)) return Fail();

  m_iElementVersion = KivLoad<uint32_t>(pBytes + 4);
  m_iElementState = bVer19Data ? 0 : KivLoad<uint32_t>(pBytes + kElementState);
  const uint64_t iShift = bVer19Data ? 4 : 0;
  const auto Rest = [&](uint64_t iOffset) { return pBytes + (iOffset - iShift); };  // what lies behind the state
  m_iHeaderSize = KivLoad<uint32_t>(Rest(kHeaderSizeField));
  m_iPreviousTable = KivLoad<uint64_t>(Rest(kLinks));
  m_iNextTable = KivLoad<uint64_t>(Rest(kLinks + 8));
  m_iThirdLink = KivLoad<uint64_t>(Rest(kLinks + 16));
  for (size_t i = 0; i < m_aiBox.size(); ++i) m_aiBox[i] = KivLoad<uint32_t>(Rest(kBox + 4 * i));
  m_iElementKind = KivLoad<uint32_t>(Rest(kKind));
  if (m_iElementKind > kLargestKind) return Fail();
  std::memcpy(m_aiPosition.data(), Rest(kEntries), sizeof m_aiPosition);
  m_iPositionNum = KivLoad<uint64_t>(Rest(kPositionNum));
  if (m_iPositionNum > kEntryNum) {
    m_iPositionNum = 0;  // nobody may go by it
    return Fail();
  }
  return true;
}

bool KivMemoryBlockPositionTable::Build(uint8_t* pBytes) const {
  if (m_iElementState != 1 || m_iElementType != kElementType || m_iHeaderSize < kHeaderSize ||
      m_iElementKind > kLargestKind || m_iPositionNum > kEntryNum) {
    KIV_FAIL();
    return false;
  }
  std::memset(pBytes, 0, kRecordSize);
  KivStore<uint32_t>(pBytes, m_iElementType);
  KivStore<uint32_t>(pBytes + 4, m_iElementVersion);
  KivStore<uint32_t>(pBytes + kElementState, m_iElementState);
  KivStore<uint32_t>(pBytes + kHeaderSizeField, m_iHeaderSize);
  KivStore<uint64_t>(pBytes + kLinks, m_iPreviousTable);
  KivStore<uint64_t>(pBytes + kLinks + 8, m_iNextTable);
  KivStore<uint64_t>(pBytes + kLinks + 16, m_iThirdLink);
  for (size_t i = 0; i < m_aiBox.size(); ++i) KivStore<uint32_t>(pBytes + kBox + 4 * i, m_aiBox[i]);
  KivStore<uint32_t>(pBytes + kKind, m_iElementKind);
  std::memcpy(pBytes + kEntries, m_aiPosition.data(), 8 * m_iPositionNum);
  KivStore<uint64_t>(pBytes + kPositionNum, m_iPositionNum);
  return true;
}

}  // namespace kiv
