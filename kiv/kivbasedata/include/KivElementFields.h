// One description of an element's body for reading, sizing and writing. A body is a template over the three classes
// here, which have the same operations:
//
//   template <typename Fields>
//   bool VisitNode(Fields& zFields, Node& zNode) {
//     return zFields.Numbers(zNode.m_iPMIKey) &&
//            (zFields.Format() < 4 || zFields.Numbers(zNode.m_iCameraKey)) &&
//            zFields.List(zNode.m_viChildren) && zFields.Text(zNode.m_csName) &&
//            zFields.Attributes(zNode.m_vzAttribute);
//   }
//
// Fields that an old revision lacks keep their value on a read: give them their default before. Operations give false
// after a quiet report, and the body then stops. Where the three differ a body asks kReading, kSizing or kWriting.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <limits>
#include <span>
#include <type_traits>
#include <utility>
#include <vector>

#include "KivElementRecord.h"

namespace kiv {

class KivFieldReader {
 public:
  static constexpr bool kReading = true;
  static constexpr bool kSizing = false;
  static constexpr bool kWriting = false;

  // iFormat is the record's revision, as KivReadAsFormat gives it. bKeysOnly: only keys will be changed.
  KivFieldReader(KivRecordReader& zReader, uint32_t iFormat, bool bKeysOnly = false)
      : m_zReader(zReader), m_iFormat(iFormat), m_bKeysOnly(bKeysOnly) {}

  uint32_t Format() const { return m_iFormat; }
  size_t Offset() const { return m_zReader.Offset(); }
  bool KeysOnly() const { return m_bKeysOnly; }
  KivRecordReader& Record() { return m_zReader; }

  // What must hold of the values. iCode is what a sizing answers where it does not.
  bool Check(bool bHolds, int64_t iCode = 0) {
    (void)iCode;
    return KIV_ASSERT_AS(bHolds, "the fields hold what they may hold");
  }

  // Integers and floats, one behind the other; arrays of them as a whole.
  template <typename... T>
  bool Numbers(T&... value) {
    return KIV_ASSERT_AS((Get(value) && ...), "the record holds its numbers");
  }
  // A u32 count and the numbers.
  template <typename T>
  bool List(std::vector<T>& vValue) {
    uint32_t nCount = 0;
    if (!Numbers(nCount)) return false;
    const uint8_t* pBytes = m_zReader.Take(static_cast<uint64_t>(nCount) * sizeof(T));
    if (!KIV_ASSERT(pBytes != nullptr)) return false;
    vValue.resize(nCount);
    for (size_t i = 0; i < nCount; ++i) vValue[i] = KivLoad<T>(pBytes + i * sizeof(T));
    return true;
  }
  // A u32 count and the bytes.
  bool Bytes(std::vector<uint8_t>& vcBytes) { return List(vcBytes); }
  // One byte; a read takes any but 0 as true.
  bool Flag(bool& bFlag) {
    uint8_t iFlag = 0;
    if (!Numbers(iFlag)) return false;
    bFlag = iFlag != 0;
    return true;
  }
  // A u32 count and the items, each by pfnItem(fields, item). An item takes nLeast bytes at the least, above 0.
  template <typename T, typename Item>
  bool Items(std::vector<T>& vzItem, uint64_t nLeast, Item&& pfnItem) {
    uint32_t nCount = 0;
    if (!Numbers(nCount) || !KIV_ASSERT(nCount <= m_zReader.Remaining() / nLeast)) return false;
    vzItem.clear();
    for (uint32_t i = 0; i < nCount; ++i)
      if (!pfnItem(*this, vzItem.emplace_back())) return false;
    return true;
  }
  // The entries of a KivReusedList of items with an m_zFrame, the bodies of live ones by pfnEntry(fields, item). See
  // KivReadEntries for eCounting, nCount and viKind; sizing and writing take the list as it is.
  template <typename List, typename Entry>
  bool Entries(List& vzEntry, KivEntryCounting eCounting, uint32_t nCount, std::span<const uint32_t> viKind,
               Entry&& pfnEntry) {
    vzEntry.Reserve(KivCountEntries(m_zReader, viKind));
    return KivReadEntries(m_zReader, eCounting, nCount, viKind, [&](const KivEntryFrame& zFrame) {
      auto& zEntry = vzEntry.Add();
      zEntry.m_zFrame = zFrame;
      return zFrame.IsGap() || pfnEntry(*this, zEntry);
    });
  }
  // nCount entries of a KivReusedList without frames, of nLeast bytes at the least, each by pfnEntry(fields, item).
  template <typename List, typename Entry>
  bool BareEntries(List& vzEntry, uint32_t nCount, uint64_t nLeast, Entry&& pfnEntry) {
    if (!KIV_ASSERT(nCount <= m_zReader.Remaining() / nLeast)) return false;
    for (uint32_t i = 0; i < nCount; ++i)
      if (!pfnEntry(*this, vzEntry.Add())) return false;
    return true;
  }
  bool Text(KivWString& csText) { return KivReadText(m_zReader, csText); }
  bool Attributes(std::vector<KivAttribute>& vzAttribute) { return KivReadAttributes(m_zReader, vzAttribute); }
  // Goes to an offset that a field names; bytes between are not looked at.
  bool FillTo(uint64_t iOffset) { return KIV_ASSERT(m_zReader.MoveTo(iOffset)); }

 private:
  static constexpr char kSource[] = "src\\KivElementRecord";

  template <typename T>
  bool Get(T& value) {
    static_assert(std::is_arithmetic_v<T>);
    return m_zReader.Get(value);
  }
  template <typename T, size_t nCount>
  bool Get(std::array<T, nCount>& aValue) {
    for (T& value : aValue)
      if (!Get(value)) return false;
    return true;
  }
  template <typename T, size_t nCount>
  bool Get(T (&aValue)[nCount]) {
    for (T& value : aValue)
      if (!Get(value)) return false;
    return true;
  }

  KivRecordReader& m_zReader;
  uint32_t m_iFormat;
  bool m_bKeysOnly;
};

class KivFieldSizer {
 public:
  static constexpr bool kReading = false;
  static constexpr bool kSizing = true;
  static constexpr bool kWriting = false;

  // Counts from an offset in the record on.
  explicit KivFieldSizer(uint32_t iNewestFormat, uint64_t iOffset = 0) : m_iFormat(iNewestFormat), m_iOffset(iOffset) {}

  uint32_t Format() const { return m_iFormat; }
  uint64_t Offset() const { return m_iOffset; }
  uint32_t LiveNum() const { return m_nLive; }  // entries so far, gaps left out
  int64_t RefusedWith() const { return m_iCode; }

  // Without a report: the code tells it.
  bool Check(bool bHolds, int64_t iCode = 0) {
    if (!bHolds) m_iCode = iCode;
    return bHolds;
  }
  bool Add(uint64_t nBytes) {
    m_iOffset += nBytes;
    return true;
  }

  template <typename... T>
  bool Numbers(const T&... value) {
    m_iOffset += (sizeof(value) + ...);
    return true;
  }
  template <typename T>
  bool List(const std::vector<T>& vValue) {
    m_iOffset += sizeof(uint32_t) + vValue.size() * sizeof(T);
    return true;
  }
  bool Bytes(const std::vector<uint8_t>& vcBytes) { return List(vcBytes); }
  bool Flag(bool) { return Add(1); }
  template <typename T, typename Item>
  bool Items(std::vector<T>& vzItem, uint64_t, Item&& pfnItem) {
    Add(sizeof(uint32_t));
    for (T& zItem : vzItem)
      if (!pfnItem(*this, zItem)) return false;
    return Check(vzItem.size() <= std::numeric_limits<uint32_t>::max());
  }
  // Gives each entry its offset and its size.
  template <typename List, typename Entry>
  bool Entries(List& vzEntry, KivEntryCounting, uint32_t, std::span<const uint32_t> viKind, Entry&& pfnEntry) {
    for (auto& zEntry : vzEntry) {
      KivEntryFrame& zFrame = zEntry.m_zFrame;
      if (!Check(std::find(viKind.begin(), viKind.end(), zFrame.m_iKind) != viKind.end())) return false;
      KivEntryPlacer zPlacer(m_iOffset);
      if (zFrame.IsGap()) {
        if (!Check(zPlacer.PlaceGap(zFrame))) return false;
        m_iOffset = zPlacer.Offset();
        continue;
      }
      const uint64_t iBody = m_iOffset + kEntryFrameSize;
      m_iOffset = iBody;
      if (!pfnEntry(*this, zEntry) || !Check(zPlacer.PlaceLive(zFrame, m_iOffset - iBody))) return false;
      ++m_nLive;
    }
    return true;
  }
  template <typename List, typename Entry>
  bool BareEntries(List& vzEntry, uint32_t, uint64_t, Entry&& pfnEntry) {
    for (auto& zEntry : vzEntry) {
      if (!pfnEntry(*this, zEntry)) return false;
      ++m_nLive;
    }
    return true;
  }
  bool Text(const KivWString& csText) {
    m_iOffset += KivSizeOfText(csText);
    return true;
  }
  bool Attributes(const std::vector<KivAttribute>& vzAttribute) {
    m_iOffset += KivSizeOfAttributes(vzAttribute);
    return true;
  }
  bool FillTo(uint64_t iOffset) {
    if (!KIV_ASSERT(iOffset >= m_iOffset)) return false;
    m_iOffset = iOffset;
    return true;
  }

 private:
  static constexpr char kSource[] = "src\\KivElementRecord";

  uint32_t m_iFormat;
  uint64_t m_iOffset;
  uint32_t m_nLive = 0;
  int64_t m_iCode = 0;
};

class KivFieldWriter {
 public:
  static constexpr bool kReading = false;
  static constexpr bool kSizing = false;
  static constexpr bool kWriting = true;

  // iFormat is the revision to write.
  KivFieldWriter(KivRecordWriter& zWriter, uint32_t iFormat) : m_zWriter(zWriter), m_iFormat(iFormat) {}

  uint32_t Format() const { return m_iFormat; }
  size_t Offset() const { return m_zWriter.Offset(); }
  uint32_t LiveNum() const { return m_nLive; }
  KivRecordWriter& Record() { return m_zWriter; }

  bool Check(bool bHolds, int64_t iCode = 0) {
    (void)iCode;
    return KIV_ASSERT_AS(bHolds, "the fields hold what they may hold");
  }

  template <typename... T>
  bool Numbers(const T&... value) {
    return KIV_ASSERT_AS((Put(value) && ...), "the record has room for its numbers");
  }
  template <typename T>
  bool List(const std::vector<T>& vValue) {
    if (!KIV_ASSERT(vValue.size() <= std::numeric_limits<uint32_t>::max())) return false;
    const uint32_t nCount = static_cast<uint32_t>(vValue.size());
    if (!Numbers(nCount)) return false;
    for (const T& value : vValue)
      if (!Numbers(value)) return false;
    return true;
  }
  bool Bytes(const std::vector<uint8_t>& vcBytes) { return List(vcBytes); }
  bool Flag(bool bFlag) { return Numbers(static_cast<uint8_t>(bFlag ? 1 : 0)); }
  template <typename T, typename Item>
  bool Items(std::vector<T>& vzItem, uint64_t, Item&& pfnItem) {
    if (!KIV_ASSERT(vzItem.size() <= std::numeric_limits<uint32_t>::max())) return false;
    if (!Numbers(static_cast<uint32_t>(vzItem.size()))) return false;
    for (T& zItem : vzItem)
      if (!pfnItem(*this, zItem)) return false;
    return true;
  }
  template <typename List, typename Entry>
  bool Entries(List& vzEntry, KivEntryCounting, uint32_t, std::span<const uint32_t>, Entry&& pfnEntry) {
    for (auto& zEntry : vzEntry) {
      if (!KivWriteEntryFrame(m_zWriter, zEntry.m_zFrame)) return false;
      if (zEntry.m_zFrame.IsGap()) continue;
      if (!pfnEntry(*this, zEntry)) return false;
      ++m_nLive;
    }
    return true;
  }
  template <typename List, typename Entry>
  bool BareEntries(List& vzEntry, uint32_t, uint64_t, Entry&& pfnEntry) {
    for (auto& zEntry : vzEntry) {
      if (!pfnEntry(*this, zEntry)) return false;
      ++m_nLive;
    }
    return true;
  }
  bool Text(const KivWString& csText) { return KivWriteText(m_zWriter, csText); }
  bool Attributes(const std::vector<KivAttribute>& vzAttribute) { return KivWriteAttributes(m_zWriter, vzAttribute); }
  // Zeros up to an offset.
  bool FillTo(uint64_t iOffset) {
    if (!KIV_ASSERT(iOffset >= m_zWriter.Offset())) return false;
    const uint64_t nBytes = iOffset - m_zWriter.Offset();
    uint8_t* pBytes = m_zWriter.Take(nBytes);
    if (!KIV_ASSERT(pBytes != nullptr)) return false;
    std::memset(pBytes, 0, static_cast<size_t>(nBytes));
    return true;
  }

 private:
  static constexpr char kSource[] = "src\\KivElementRecord";

  template <typename T>
  bool Put(const T& value) {
    static_assert(std::is_arithmetic_v<T>);
    return m_zWriter.Put<T>(value);
  }
  template <typename T, size_t nCount>
  bool Put(const std::array<T, nCount>& aValue) {
    for (const T& value : aValue)
      if (!Put(value)) return false;
    return true;
  }
  template <typename T, size_t nCount>
  bool Put(const T (&aValue)[nCount]) {
    for (const T& value : aValue)
      if (!Put(value)) return false;
    return true;
  }

  KivRecordWriter& m_zWriter;
  uint32_t m_iFormat;
  uint32_t m_nLive = 0;
};

}  // namespace kiv
