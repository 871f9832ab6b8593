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
// after a quiet report, and the body then stops.
#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>
#include <vector>

#include "KivElementRecord.h"

namespace kiv {

class KivFieldReader {
 public:
  static constexpr bool kReading = true;

  // iFormat is the record's revision, as KivReadAsFormat gives it.
  KivFieldReader(KivRecordReader& zReader, uint32_t iFormat) : m_zReader(zReader), m_iFormat(iFormat) {}

  uint32_t Format() const { return m_iFormat; }
  size_t Offset() const { return m_zReader.Offset(); }

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
};

class KivFieldSizer {
 public:
  static constexpr bool kReading = false;

  // Counts from an offset in the record on.
  explicit KivFieldSizer(uint32_t iNewestFormat, uint64_t iOffset = 0) : m_iFormat(iNewestFormat), m_iOffset(iOffset) {}

  uint32_t Format() const { return m_iFormat; }
  uint64_t Offset() const { return m_iOffset; }

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
};

class KivFieldWriter {
 public:
  static constexpr bool kReading = false;

  KivFieldWriter(KivRecordWriter& zWriter, uint32_t iNewestFormat) : m_zWriter(zWriter), m_iFormat(iNewestFormat) {}

  uint32_t Format() const { return m_iFormat; }
  size_t Offset() const { return m_zWriter.Offset(); }

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
};

}  // namespace kiv
