// Header of every record (in generation 19 without m_iFormat, and all that follows it 4 bytes earlier):
//   OFFSET   SIZE    FIELD
//   0        4       m_iTag
//   4        4       m_iEntryCount, gaps left out
//   8        4       m_iFormat
//   12       4       m_iDataOffset
//   16       3 x 8   links: parent, two children; 0 for none
//   40       3 x 4   box, low corner, f32
//   52       3 x 4   box, high corner
//   64       4       m_iNodeState, 0 to 2
// Entry: u32 offset of the entry in the record, u32 kind, u32 size of the entry, then its body.
// Attribute list: u8 count, then u8 type, u32 length and the bytes of each; zeros up to 14 bytes.
// String: u32 length, then UTF-8 with a closing 0 that the length counts.
#include "KivElementRecord.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <string>

namespace kiv {
namespace {

constexpr char kSource[] = "src\\KivElementRecord";
constexpr uint32_t kLastNodeState = 2;
constexpr uint64_t kAttributeHead = 5;  // type and length

//                                        tag format offset  box    ver19  size there  raised  count
constexpr KivElementRules kRules[] = {{1, 2, 100, true, true, false, false, -580},   // mesh of faces and edges
                                      {2, 5, 72, false, true, false, true, -80},     // instance
                                      {3, 2, 72, false, true, false, false, 0},      // model
                                      {4, 1, 68, true, true, false, false, 0},       // model note
                                      {5, 1, 72, true, true, false, false, -580},    // B-rep
                                      {6, 5, 68, true, true, false, true, -80},      // assembly tree
                                      {7, 4, 68, true, true, true, false, -80},      // PMI
                                      {8, 2, 100, true, true, false, false, -580},   // mesh of polygons
                                      {9, 1, 68, false, true, false, false, 0},      // permanent ids
                                      {11, 1, 68, false, false, false, false, -80},  // layer filter
                                      {12, 4, 68, false, false, false, false, -80},  // camera
                                      {13, 1, 72, true, true, false, false, -580}};  // vertices

bool IsBoxGood(const KivMemoryBlockHeader& zHeader) {
  for (size_t i = 0; i < 3; ++i)
    if (zHeader.m_afBoxMin[i] > zHeader.m_afBoxMax[i]) return false;
  return true;
}

// The 12 bytes that come next.
KivEntryFrame FrameAt(const KivRecordReader& zReader) {
  const uint8_t* pBytes = zReader.At();
  return {KivLoad<uint32_t>(pBytes), KivLoad<uint32_t>(pBytes + 4), KivLoad<uint32_t>(pBytes + 8)};
}

bool IsOneOf(std::span<const uint32_t> viKind, uint32_t iKind) {
  return std::find(viKind.begin(), viKind.end(), iKind) != viKind.end();
}

KivWStringView UpToFirstZero(const KivWString& csText) {
  return KivWStringView(csText).substr(0, csText.find(u'\0'));
}

}  // namespace

// --- Header ---------------------------------------------------------------------------------------------------------

const KivElementRules* KivFindElementRules(uint32_t iTag) {
  const auto* pzRules =
      std::find_if(std::begin(kRules), std::end(kRules), [&](const auto& z) { return z.m_iTag == iTag; });
  return pzRules != std::end(kRules) ? pzRules : nullptr;
}

bool KivIsRecordLongEnough(const KivElementRules& zRules, bool bVer19Data, uint64_t nBytes) {
  const bool bVer19 = bVer19Data && zRules.m_bFollowsVer19;
  if (!bVer19) return KIV_ASSERT(nBytes >= zRules.m_iDataOffset);
  return KIV_ASSERT(nBytes >= (zRules.m_bTestsSizeInVer19 ? kElementHeaderSize : kElementHeaderSizeVer19));
}

KivMemoryBlockHeader KivNewElementHeader(const KivElementRules& zRules) {
  KivMemoryBlockHeader zHeader;
  zHeader.m_iTag = zRules.m_iTag;
  zHeader.m_iFormat = zRules.m_iFormat;
  zHeader.m_iDataOffset = zRules.m_iDataOffset;
  return zHeader;
}

bool KivReadElementHeader(KivRecordReader& zReader, const KivElementRules& zRules, bool bVer19Data,
                          KivMemoryBlockHeader& zHeader) {
  const bool bVer19 = bVer19Data && zRules.m_bFollowsVer19;
  if (!KivIsRecordLongEnough(zRules, bVer19Data, zReader.Remaining())) return false;
  zHeader.m_iFormat = 0;
  zReader.Get(zHeader.m_iTag);
  zReader.Get(zHeader.m_iEntryCount);
  if (!bVer19) zReader.Get(zHeader.m_iFormat);
  zReader.Get(zHeader.m_iDataOffset);
  for (uint64_t& iLink : zHeader.m_aiLink) zReader.Get(iLink);
  for (float& f : zHeader.m_afBoxMin) zReader.Get(f);
  for (float& f : zHeader.m_afBoxMax) zReader.Get(f);
  zReader.Get(zHeader.m_iNodeState);
  if (!KIV_ASSERT(zHeader.m_iTag == zRules.m_iTag)) return false;
  if (!bVer19 && !KIV_ASSERT(zHeader.m_iDataOffset >= zRules.m_iDataOffset)) return false;
  if (zRules.m_bTestsBox && !KIV_ASSERT(IsBoxGood(zHeader))) return false;
  return KIV_ASSERT(zHeader.m_iNodeState <= kLastNodeState);
}

uint32_t KivReadAsFormat(const KivElementRules& zRules, uint32_t iFormat) {
  return std::clamp(iFormat, 1u, zRules.m_iFormat);
}

bool KivRaiseElementFormat(const KivElementRules& zRules, bool bModifyOnlyForPosition, KivMemoryBlockHeader& zHeader) {
  if (!KIV_ASSERT(zHeader.m_iFormat >= 1 && zHeader.m_iFormat <= zRules.m_iFormat)) return false;
  if (!bModifyOnlyForPosition) zHeader.m_iFormat = zRules.m_iFormat;
  return true;
}

KivElementSizing KivCheckElementHeader(const KivElementRules& zRules, const KivMemoryBlockHeader& zHeader) {
  if (zHeader.m_iTag != zRules.m_iTag) return KivElementSizing::WrongTag;
  if (zRules.m_bTestsBox && !IsBoxGood(zHeader)) return KivElementSizing::BadBox;
  if (zHeader.m_iNodeState > kLastNodeState) return KivElementSizing::BadNodeState;
  return KivElementSizing::Good;
}

bool KivWriteElementHeader(KivRecordWriter& zWriter, const KivMemoryBlockHeader& zHeader) {
  if (!KIV_ASSERT(zWriter.Remaining() >= kElementHeaderSize)) return false;
  zWriter.Put<uint32_t>(zHeader.m_iTag);
  zWriter.Put<uint32_t>(zHeader.m_iEntryCount);
  zWriter.Put<uint32_t>(zHeader.m_iFormat);
  zWriter.Put<uint32_t>(zHeader.m_iDataOffset);
  for (const uint64_t iLink : zHeader.m_aiLink) zWriter.Put<uint64_t>(iLink);
  for (const float f : zHeader.m_afBoxMin) zWriter.Put<float>(f);
  for (const float f : zHeader.m_afBoxMax) zWriter.Put<float>(f);
  return zWriter.Put<uint32_t>(zHeader.m_iNodeState);
}

// --- Entries --------------------------------------------------------------------------------------------------------

bool KivReadEntryFrame(KivRecordReader& zReader, std::span<const uint32_t> viKind, KivEntryFrame& zFrame) {
  const size_t iOffset = zReader.Offset();
  if (!KIV_ASSERT(zReader.Remaining() >= kEntryFrameSize)) return false;
  zFrame = FrameAt(zReader);
  zReader.Skip(kEntryFrameSize);
  if (!KIV_ASSERT(zFrame.m_iOffset == iOffset)) return false;
  if (!KIV_ASSERT(IsOneOf(viKind, zFrame.m_iKind))) return false;
  return KIV_ASSERT(zFrame.m_iSize >= kEntryFrameSize);
}

size_t KivCountEntries(KivRecordReader zReader, std::span<const uint32_t> viKind) {
  size_t nEntries = 0;
  while (zReader.Remaining() >= kEntryFrameSize) {
    const KivEntryFrame zFrame = FrameAt(zReader);
    if (zFrame.m_iOffset != zReader.Offset() || !IsOneOf(viKind, zFrame.m_iKind)) break;
    if (zFrame.m_iSize < kEntryFrameSize || !zReader.Skip(zFrame.m_iSize)) break;
    ++nEntries;
  }
  return nEntries;
}

bool KivReadTrailingGap(KivRecordReader& zReader, KivEntryFrame& zFrame) {
  if (zReader.Remaining() < kEntryFrameSize) return false;
  const KivEntryFrame zNext = FrameAt(zReader);
  const bool bGap = zNext.m_iOffset == zReader.Offset() && zNext.IsGap() && zNext.m_iSize >= kEntryFrameSize &&
                    zReader.Skip(zNext.m_iSize);
  if (bGap) zFrame = zNext;
  return bGap;
}

bool KivEntryPlacer::Place(KivEntryFrame& zFrame, uint64_t nSize) {
  constexpr uint64_t kMax = std::numeric_limits<uint32_t>::max();
  if (!KIV_ASSERT(nSize <= kMax && m_iOffset <= kMax - nSize)) return false;
  zFrame.m_iOffset = static_cast<uint32_t>(m_iOffset);
  zFrame.m_iSize = static_cast<uint32_t>(nSize);
  m_iOffset += nSize;
  return true;
}

bool KivEntryPlacer::PlaceGap(KivEntryFrame& zFrame) {
  return KIV_ASSERT(zFrame.m_iSize >= kEntryFrameSize) && Place(zFrame, zFrame.m_iSize);
}

bool KivEntryPlacer::PlaceLive(KivEntryFrame& zFrame, uint64_t nBody) {
  if (!Place(zFrame, kEntryFrameSize + nBody)) return false;
  ++m_nLive;
  return true;
}

bool KivWriteEntryFrame(KivRecordWriter& zWriter, const KivEntryFrame& zFrame) {
  if (!KIV_ASSERT(zFrame.m_iOffset == zWriter.Offset())) return false;
  const uint32_t nBytes = zFrame.IsGap() ? std::max(zFrame.m_iSize, kEntryFrameSize) : kEntryFrameSize;
  if (!KIV_ASSERT(zWriter.Remaining() >= nBytes)) return false;
  zWriter.Put<uint32_t>(zFrame.m_iOffset);
  zWriter.Put<uint32_t>(zFrame.m_iKind);
  zWriter.Put<uint32_t>(zFrame.m_iSize);
  return zWriter.Skip(nBytes - kEntryFrameSize);
}

// --- Attributes -----------------------------------------------------------------------------------------------------

bool KivReadAttributes(KivRecordReader& zReader, std::vector<KivAttribute>& vzAttribute) {
  const size_t iStart = zReader.Offset();
  uint8_t nAttributes = 0;
  if (!KIV_ASSERT(zReader.Get(nAttributes))) return false;
  if (!KIV_ASSERT(nAttributes * kAttributeHead <= zReader.Remaining())) return false;
  vzAttribute.resize(nAttributes);
  for (KivAttribute& zAttribute : vzAttribute) {
    uint32_t nBytes = 0;
    if (!KIV_ASSERT(zReader.Get(zAttribute.m_iAttrib) && zReader.Get(nBytes))) return false;
    const uint8_t* pBytes = zReader.Take(nBytes);
    if (!KIV_ASSERT(pBytes != nullptr)) return false;
    zAttribute.m_vcBytes.assign(pBytes, pBytes + nBytes);
  }
  return KIV_ASSERT(zReader.MoveTo(std::max<size_t>(zReader.Offset(), iStart + kAttributeListMin)));
}

uint64_t KivSizeOfAttributes(const std::vector<KivAttribute>& vzAttribute) {
  uint64_t nBytes = 1;
  for (const KivAttribute& zAttribute : vzAttribute) nBytes += kAttributeHead + zAttribute.m_vcBytes.size();
  return std::max<uint64_t>(nBytes, kAttributeListMin);
}

bool KivWriteAttributes(KivRecordWriter& zWriter, const std::vector<KivAttribute>& vzAttribute) {
  const uint64_t nSize = KivSizeOfAttributes(vzAttribute);
  if (!KIV_ASSERT(vzAttribute.size() <= std::numeric_limits<uint8_t>::max())) return false;
  if (!KIV_ASSERT(zWriter.Remaining() >= nSize)) return false;
  const uint64_t iEnd = zWriter.Offset() + nSize;
  zWriter.Put<uint8_t>(static_cast<uint8_t>(vzAttribute.size()));
  for (const KivAttribute& zAttribute : vzAttribute) {
    if (!KIV_ASSERT(zAttribute.m_vcBytes.size() <= std::numeric_limits<uint32_t>::max())) return false;
    zWriter.Put<uint8_t>(zAttribute.m_iAttrib);
    zWriter.Put<uint32_t>(static_cast<uint32_t>(zAttribute.m_vcBytes.size()));
    zWriter.PutBytes(zAttribute.m_vcBytes.data(), zAttribute.m_vcBytes.size());
  }
  const size_t nPad = static_cast<size_t>(iEnd - zWriter.Offset());
  std::memset(zWriter.At(), 0, nPad);
  return zWriter.Skip(nPad);
}

bool KivReplaceKey(const std::map<uint64_t, uint64_t>& mapPosition, uint64_t& iKey) {
  if (iKey == 0) return true;
  const auto it = mapPosition.find(iKey);
  if (!KIV_ASSERT(it != mapPosition.end())) return false;
  iKey = it->second;
  return true;
}

// --- Strings --------------------------------------------------------------------------------------------------------

bool KivReadText(KivRecordReader& zReader, KivWString& csText) {
  csText.clear();
  uint32_t nBytes = 0;
  if (!KIV_ASSERT(zReader.Get(nBytes))) return false;
  const uint8_t* pBytes = zReader.Take(nBytes);
  if (!KIV_ASSERT(pBytes != nullptr)) return false;
  if (!KIV_ASSERT(nBytes > 0)) return true;
  const uint8_t* pEnd = std::find(pBytes, pBytes + nBytes, uint8_t{0});
  csText = sys::Utf8ToWide(std::string(pBytes, pEnd));
  return true;
}

uint64_t KivSizeOfText(const KivWString& csText) {
  return sizeof(uint32_t) + sys::WideToUtf8(UpToFirstZero(csText)).size() + 1;
}

bool KivWriteText(KivRecordWriter& zWriter, const KivWString& csText) {
  const std::string strText = sys::WideToUtf8(UpToFirstZero(csText));
  if (!KIV_ASSERT(strText.size() < std::numeric_limits<uint32_t>::max())) return false;
  const uint32_t nBytes = static_cast<uint32_t>(strText.size()) + 1;
  return KIV_ASSERT(zWriter.Put<uint32_t>(nBytes) && zWriter.PutBytes(strText.c_str(), nBytes));
}

}  // namespace kiv
