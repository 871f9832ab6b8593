// The element with product manufacturing information: one entry for each annotation, a bag of arrays with blocks of
// text. It is kept and checked here, not interpreted. docs/element_records.md has the record.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "KivElement.h"

namespace kiv {

struct KivPMITextBlock {
  std::vector<KivWString> m_vstrText;
  uint64_t m_iTextValue = 0;
  std::array<uint32_t, 2> m_iTextData{};
  std::array<uint8_t, 3> m_acTextColour{};
  std::vector<KivAttribute> m_vzAttribute;
};

// All numbers are carried.
struct KivPMIEntry {
  KivEntryFrame m_zFrame;
  uint32_t m_iPMIType = 1;              // below revision 2 read as 1
  uint32_t m_iPMISubType = 0xFFFFFFFF;  // below revision 2 read as this
  std::array<uint32_t, 8> m_iPMIData{};
  uint32_t m_iPMIData8 = 0;  // from revision 3
  std::vector<uint32_t> m_viPMIInts;
  std::vector<uint64_t> m_viPMIRefs;                      // from revision 4; no element keys
  std::vector<uint8_t> m_vcPMIBytes;                      // from revision 4
  std::array<std::array<uint32_t, 3>, 3> m_iPMIVector{};  // from revision 4
  uint32_t m_iPMIData9 = 0;                               // from revision 4
  std::vector<uint32_t> m_viPMIInts2;                     // from revision 3
  std::vector<uint32_t> m_viPMIInts3;
  std::vector<KivPMITextBlock> m_vTextBlock;
  std::vector<std::array<uint32_t, 3>> m_vPMITriple;  // from revision 2
  std::vector<KivAttribute> m_vzAttribute;            // from revision 2

  void Clear() { *this = KivPMIEntry(); }
};

class KivMemoryBlockPMI : public KivElementBlock {
 public:
  static constexpr uint32_t kTag = 7;
  static constexpr char kSource[] = "src\\KivPMI";
  static constexpr uint32_t kPMIKind = 10007;

  void Clear() { m_vzPMI.Clear(); }
  // A new entry, which is counted.
  KivPMIEntry& AddPMI() {
    KivPMIEntry& zEntry = m_vzPMI.Add();
    zEntry.m_zFrame.m_iKind = kPMIKind;
    ++m_zHeader.m_iEntryCount;
    return zEntry;
  }

  template <typename Fields>
  bool VisitBody(Fields& zFields, Memory&) {
    static constexpr uint32_t kKinds[] = {kGapKind, kPMIKind};
    return zFields.FillTo(m_zHeader.m_iDataOffset) &&
           zFields.Entries(m_vzPMI, KivEntryCounting::Live, m_zHeader.m_iEntryCount, kKinds,
                           [](auto& z, KivPMIEntry& zEntry) { return VisitEntry(z, zEntry); });
  }

  bool MayVisitKeys(bool) const { return KIV_ASSERT(GetLinkNum() == 1); }
  template <typename Keys>
  bool VisitKeys(Keys& zKeys) {
    for (KivPMIEntry& z : m_vzPMI) {
      for (KivPMITextBlock& zText : z.m_vTextBlock)
        if (!zKeys.Attributes(KivAttributeRow::Pmi, zText.m_vzAttribute)) return false;
      if (!zKeys.Attributes(KivAttributeRow::Pmi, z.m_vzAttribute)) return false;
    }
    return true;
  }

  template <typename Visit>
  void VisitLists(Visit&& pfnList) {
    pfnList(m_vzPMI);
  }

  KivReusedList<KivPMIEntry> m_vzPMI;

 private:
  static constexpr uint64_t kTextBlockSizeMin = 37;

  template <typename Fields>
  static bool VisitTextBlock(Fields& zFields, KivPMITextBlock& z) {
    return zFields.Items(z.m_vstrText, sizeof(uint32_t), [](auto& f, KivWString& str) { return f.Text(str); }) &&
           zFields.Numbers(z.m_iTextValue, z.m_iTextData, z.m_acTextColour) && zFields.Attributes(z.m_vzAttribute);
  }
  template <typename Fields>
  static bool VisitEntry(Fields& zFields, KivPMIEntry& z) {
    const uint32_t iFormat = zFields.Format();
    if (!zFields.Numbers(z.m_iPMIType, z.m_iPMISubType, z.m_iPMIData)) return false;
    if (iFormat < 2) {
      z.m_iPMIType = 1;
      z.m_iPMISubType = 0xFFFFFFFF;
    }
    return (iFormat < 3 || zFields.Numbers(z.m_iPMIData8)) && zFields.List(z.m_viPMIInts) &&
           (iFormat < 4 || (zFields.List(z.m_viPMIRefs) && zFields.Bytes(z.m_vcPMIBytes) &&
                            zFields.Numbers(z.m_iPMIVector, z.m_iPMIData9))) &&
           (iFormat < 3 || zFields.List(z.m_viPMIInts2)) && zFields.List(z.m_viPMIInts3) &&
           zFields.Items(z.m_vTextBlock, kTextBlockSizeMin,
                         [](auto& f, KivPMITextBlock& zText) { return VisitTextBlock(f, zText); }) &&
           (iFormat < 2 || (zFields.Items(z.m_vPMITriple, 12, [](auto& f, std::array<uint32_t, 3>& ai) {
              return f.Numbers(ai);
            }) && zFields.Attributes(z.m_vzAttribute)));
  }
};

// Compiled once, in KivElementClasses.cpp.
extern template class KivOutOfCoreBlockNode<KivMemoryBlockPMI>;
extern template class KivElement<KivMemoryBlockPMI>;

class KivPMI : public KivElement<KivMemoryBlockPMI> {
 public:
  using KivElement::KivElement;
};

}  // namespace kiv
