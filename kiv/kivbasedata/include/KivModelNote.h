// The parameter sheet of a model, and the keys of its assembly tree and of one further element.
// docs/element_records.md has the record.
#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

#include "KivElement.h"

namespace kiv {

constexpr uint32_t kModelNoteParamSizeMax = 116;

// Nothing here reads the parameters; what each may be stands in KivMemoryBlockModelNote::VisitParameters.
struct KivModelNoteParameters {
  // Bytes of the parameters that the record has, from the first one on: those behind it have their defaults.
  uint32_t m_iParamSize = kModelNoteParamSizeMax;
  uint32_t m_iParam0 = 1;
  uint32_t m_iParam1 = 1;
  uint32_t m_iParam2 = 1;
  uint32_t m_iParam3 = 1;
  uint32_t m_iParam4 = 1;
  uint32_t m_iParam5 = 1;
  uint32_t m_iParam6 = 10;
  uint32_t m_iParam7 = 0;
  double m_dParam8 = -1.0;
  double m_dParam9 = 4.0;
  double m_dParam10 = 10.0;
  double m_dParam11 = 10.0;
  double m_dParam12 = 1e-6;
  double m_dParam13 = 1.0;
  double m_dParam14 = 0.0;
  uint64_t m_iAssemblyKey = 0;  // of the KivAssemblyTree
  uint64_t m_iSecondKey = 0;    // of any element
  double m_dParam15 = 100000.0;
  uint32_t m_iParam16 = 0;
};

class KivMemoryBlockModelNote : public KivElementBlock, public KivModelNoteParameters {
 public:
  static constexpr uint32_t kTag = 4;
  static constexpr char kSource[] = "src\\KivModelNote";

  void Clear() {
    static_cast<KivModelNoteParameters&>(*this) = KivModelNoteParameters();
    m_vzAttribute.clear();
  }

  template <typename Fields>
  bool VisitBody(Fields& zFields, Memory&) {
    if (!zFields.Attributes(m_vzAttribute)) return false;
    if constexpr (!Fields::kReading) m_iParamSize = std::min(m_iParamSize, kModelNoteParamSizeMax);
    if (!zFields.Numbers(m_iParamSize)) return false;
    m_iParamSize = std::min(m_iParamSize, kModelNoteParamSizeMax);
    return VisitParameters(zFields);
  }

  bool MayVisitKeys(bool) const { return KIV_ASSERT(GetLinkNum() > 0); }
  template <typename Keys>
  bool VisitKeys(Keys& zKeys) {
    return zKeys.Keys(m_iAssemblyKey, m_iSecondKey) && zKeys.Attributes(KivAttributeRow::ModelNote, m_vzAttribute);
  }

  std::vector<KivAttribute> m_vzAttribute;

 private:
  // One parameter, present while those before it leave room; one that crosses the end is refused.
  template <typename Fields, typename T, typename Valid>
  bool Parameter(Fields& zFields, uint32_t& nBytes, T& value, Valid&& pfnValid) {
    if (nBytes >= m_iParamSize) return true;
    nBytes += static_cast<uint32_t>(sizeof(T));
    return zFields.Check(nBytes <= m_iParamSize) && zFields.Numbers(value) && zFields.Check(pfnValid(value));
  }

  template <typename Fields>
  bool VisitParameters(Fields& z) {
    static constexpr double kLargest = 1.0009999999999999e30;
    const auto Any = [](uint64_t) { return true; };
    const auto Length = [](double d) { return d >= 0.999 && d <= kLargest; };
    uint32_t n = 0;
    return Parameter(z, n, m_iParam0, [](uint32_t i) { return i <= 2; }) &&
           Parameter(z, n, m_iParam1, [](uint32_t i) { return i == 0 || (i & 1) != 0; }) &&
           Parameter(z, n, m_iParam2, [](uint32_t i) { return i == 1 || i == 3; }) &&
           Parameter(z, n, m_iParam3, [](uint32_t i) { return i <= 4; }) &&
           Parameter(z, n, m_iParam4, [](uint32_t i) { return i <= 1; }) &&
           Parameter(z, n, m_iParam5, [](uint32_t i) { return (i & 1) != 0 || (i & 6) == 0; }) &&
           Parameter(z, n, m_iParam6, [](uint32_t i) { return i != 0; }) &&
           Parameter(z, n, m_iParam7, [](uint32_t i) { return i <= 15; }) &&
           Parameter(z, n, m_dParam8, [](double d) { return d < 0 || d >= 0.009999999; }) &&
           Parameter(z, n, m_dParam9, [](double d) { return d > 1.0; }) &&
           Parameter(z, n, m_dParam10, [](double d) { return d > 0 && d <= 90; }) &&
           Parameter(z, n, m_dParam11, [](double d) { return d >= -0.01 && d <= 90; }) &&
           Parameter(z, n, m_dParam12, [](double d) { return d >= 9.989999999999999e-13 && d <= 0.01001; }) &&
           Parameter(z, n, m_dParam13, Length) && Parameter(z, n, m_dParam14, [](double d) { return !(d < 0); }) &&
           Parameter(z, n, m_iAssemblyKey, Any) && Parameter(z, n, m_iSecondKey, Any) &&
           Parameter(z, n, m_dParam15, Length) && Parameter(z, n, m_iParam16, [](uint32_t i) { return i <= 7; });
  }
};

// Compiled once, in KivElementClasses.cpp.
extern template class KivOutOfCoreBlockNode<KivMemoryBlockModelNote>;
extern template class KivElement<KivMemoryBlockModelNote>;

class KivModelNote : public KivElement<KivMemoryBlockModelNote> {
 public:
  using KivElement::KivElement;
};

}  // namespace kiv
