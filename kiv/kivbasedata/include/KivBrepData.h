// The element of exact geometry: entries with one geometry string each, in a binary tree through the links 1 and 2.
// docs/element_records.md has the record.
#pragma once

#include <cstdint>
#include <vector>

#include "KivBrepGeometry.h"
#include "KivElement.h"

namespace kiv {

struct KivBrepEntry {
  KivEntryFrame m_zFrame;        // of kind kBrepNurbsKind or kBrepAnalyticKind
  uint64_t m_iGeometryId = 0;    // carried
  uint32_t m_iGeometryZero = 0;  // a write demands 0
  std::vector<uint8_t> m_vcGeometry;
  std::vector<KivAttribute> m_vzAttribute;

  void Clear() {
    m_zFrame = KivEntryFrame();
    m_iGeometryId = 0;
    m_iGeometryZero = 0;
    m_vcGeometry.clear();
    m_vzAttribute.clear();
  }
  auto Lists() const { return std::tie(m_vcGeometry, m_vzAttribute); }
};

class KivMemoryBlockBrep : public KivElementBlock {
 public:
  static constexpr uint32_t kTag = 5;
  static constexpr char kSource[] = "src\\KivBrepData";

  void Clear() {
    m_iBrepValue = 0;
    m_vzGeometry.Clear();
  }
  // A new entry of one of the two kinds, which is counted.
  KivBrepEntry& AddGeometry(uint32_t iKind) {
    KivBrepEntry& zEntry = m_vzGeometry.Add();
    zEntry.m_zFrame.m_iKind = iKind;
    ++m_zHeader.m_iEntryCount;
    return zEntry;
  }

  template <typename Fields>
  bool VisitBody(Fields& zFields, Memory&) {
    static constexpr uint32_t kKinds[] = {kBrepNurbsKind, kBrepAnalyticKind, kGapKind};
    // On purpose: a gap is written, as a bare frame, and such a record is refused when it is read.
    const std::span<const uint32_t> viKind(kKinds, Fields::kReading ? 2 : 3);
    if constexpr (Fields::kSizing) {
      for (KivBrepEntry& z : m_vzGeometry)
        if (z.m_zFrame.IsGap()) z.m_zFrame.m_iSize = kEntryFrameSize;
    }
    return zFields.Numbers(m_iBrepValue) && zFields.FillTo(m_zHeader.m_iDataOffset) &&
           zFields.Entries(m_vzGeometry, KivEntryCounting::Live, m_zHeader.m_iEntryCount, viKind,
                           [](auto& z, KivBrepEntry& zEntry) { return VisitEntry(z, zEntry); });
  }

  template <typename Keys>
  bool VisitKeys(Keys& zKeys) {
    for (KivBrepEntry& z : m_vzGeometry)
      if (!zKeys.Attributes(KivAttributeRow::Brep, z.m_vzAttribute)) return false;
    return true;
  }

  template <typename Visit>
  void VisitLists(Visit&& pfnList) {
    pfnList(m_vzGeometry);
  }

  uint32_t m_iBrepValue = 0;  // carried
  KivReusedList<KivBrepEntry> m_vzGeometry;

 private:
  enum class Sizing : int64_t { NotZero = -90, NoGeometry = -100 };

  template <typename Fields>
  static bool VisitEntry(Fields& zFields, KivBrepEntry& z) {
    if (!zFields.Numbers(z.m_iGeometryId, z.m_iGeometryZero)) return false;
    if constexpr (!Fields::kReading) {
      if (!zFields.Check(z.m_iGeometryZero == 0, static_cast<int64_t>(Sizing::NotZero))) return false;
    }
    return zFields.Bytes(z.m_vcGeometry) &&
           zFields.Check(!z.m_vcGeometry.empty(), static_cast<int64_t>(Sizing::NoGeometry)) &&
           zFields.Attributes(z.m_vzAttribute);
  }
};

// Compiled once, in KivElementClasses.cpp.
extern template class KivOutOfCoreBlockNode<KivMemoryBlockBrep>;
extern template class KivElement<KivMemoryBlockBrep>;

class KivBrepData : public KivElement<KivMemoryBlockBrep> {
 public:
  using KivElement::KivElement;

  // Whether the entry's geometry string is well-formed. Reads and writes do not ask it.
  static bool ValidateGeometry(const KivBrepEntry& zEntry) {
    KivBrepGeometry zScratch;
    return KivDecodeBrepGeometry(zEntry.m_zFrame.m_iKind, zEntry.m_vcGeometry, zScratch);
  }
};

}  // namespace kiv
