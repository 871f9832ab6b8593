// The element with named sets of layers that are on or off, and the lookup that tells for each entity whether its layer
// is visible. docs/element_records.md has the record.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "KivElement.h"

namespace kiv {

struct KivLayer {
  uint32_t m_iLayer = 0;
  bool m_bOn = false;
};

struct KivLayerFilterEntry {
  KivEntryFrame m_zFrame;
  std::vector<KivLayer> m_vzLayer;
  uint32_t m_iFilterValue = 0;  // carried
  KivWString m_strFilterName;

  void Clear();
  auto Lists() const { return std::tie(m_vzLayer, m_strFilterName); }
};

class KivMemoryBlockLayerFilter : public KivElementBlock {
 public:
  static constexpr uint32_t kTag = 11;
  static constexpr char kSource[] = "src\\KivLayerFilter";
  static constexpr uint32_t kFilterKind = 10013;

  void Clear() { m_vzFilter.Clear(); }
  // A new filter, which is counted.
  KivLayerFilterEntry& AddFilter();

  template <typename Fields>
  bool VisitBody(Fields& zFields, Memory&) {
    static constexpr uint32_t kKinds[] = {kGapKind, kFilterKind};
    return zFields.FillTo(m_zHeader.m_iDataOffset) &&
           zFields.Entries(m_vzFilter, KivEntryCounting::Live, m_zHeader.m_iEntryCount, kKinds,
                           [](auto& z, KivLayerFilterEntry& zEntry) { return VisitFilter(z, zEntry); });
  }

  template <typename Visit>
  void VisitLists(Visit&& pfnList) {
    pfnList(m_vzFilter);
  }

  KivReusedList<KivLayerFilterEntry> m_vzFilter;

 private:
  static constexpr uint64_t kLayerSize = 5;

  template <typename Fields>
  static bool VisitFilter(Fields& zFields, KivLayerFilterEntry& z) {
    return zFields.Items(
               z.m_vzLayer, kLayerSize,
               [](auto& f, KivLayer& zLayer) { return f.Numbers(zLayer.m_iLayer) && f.Flag(zLayer.m_bOn); }) &&
           zFields.Numbers(z.m_iFilterValue) && zFields.Text(z.m_strFilterName);
  }
};

// Compiled once, in KivElementClasses.cpp.
extern template class KivOutOfCoreBlockNode<KivMemoryBlockLayerFilter>;
extern template class KivElement<KivMemoryBlockLayerFilter>;

class KivLayerFilter : public KivElement<KivMemoryBlockLayerFilter> {
 public:
  using KivElement::KivElement;
};

// Tells the visibility of layers. Asked for every entity that is shown: a query allocates nothing, and one that is
// equal to the query before it is not looked up again. One thread at a time.
class KivLayerFilterLookup {
 public:
  enum class Form { Empty, List, Bits, Set };

  // From an entry; null gives two empty lists. False, after a report, without memory; the lookup is then as before.
  bool Build(const KivLayerFilterEntry* pEntry);
  // The same from any layers.
  bool Build(const std::vector<KivLayer>& vzLayer);

  // With bDefaultOn layers are on unless they are listed as off, else off unless they are listed as on.
  bool Query(bool bDefaultOn, uint32_t iLayer) {
    if (bDefaultOn != m_bMemoDefaultOn || iLayer != m_iMemoLayer) {
      m_bMemoAnswer = Find(bDefaultOn, iLayer);
      ++m_nFinds;
      m_bMemoDefaultOn = bDefaultOn;
      m_iMemoLayer = iLayer;
    }
    return m_bMemoAnswer;
  }

  // Queries since Build that were looked up.
  uint64_t GetFindNum() const { return m_nFinds; }
  // How the layers on, or the layers off, are kept.
  Form GetForm(bool bOn) const { return (bOn ? m_zOn : m_zOff).m_eForm; }
  // Bits of the bit set.
  size_t GetBitNum(bool bOn) const { return (bOn ? m_zOn : m_zOff).m_nBits; }

 private:
  static constexpr size_t kListMax = 3;
  static constexpr uint32_t kBitsMax = 256;  // the largest layer of a bit set

  struct Members {
    Form m_eForm = Form::Empty;
    std::array<uint32_t, kListMax> m_aiList{};
    size_t m_nList = 0;
    std::array<uint64_t, kBitsMax / 64 + 1> m_aiBits{};
    size_t m_nBits = 0;
    std::vector<uint32_t> m_viSet;  // sorted

    void Build(const std::vector<KivLayer>& vzLayer, bool bOn);  // of a new one
    bool Has(uint32_t iLayer) const;
  };

  bool Find(bool bDefaultOn, uint32_t iLayer) const { return bDefaultOn ? !m_zOff.Has(iLayer) : m_zOn.Has(iLayer); }

  Members m_zOn;
  Members m_zOff;
  bool m_bMemoDefaultOn = true;
  uint32_t m_iMemoLayer = 0;
  bool m_bMemoAnswer = true;
  uint64_t m_nFinds = 0;
};

}  // namespace kiv
