// The element of vertices, in a binary tree through the links 1 and 2. docs/element_records.md has the record.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "KivElement.h"

namespace kiv {

struct KivVertexEntry {
  std::array<uint32_t, 7> m_iVertexData{};  // carried
  std::vector<KivAttribute> m_vzAttribute;

  void Clear() {
    m_iVertexData = {};
    m_vzAttribute.clear();
  }
  auto Lists() const { return std::tie(m_vzAttribute); }
};

// The entries have no frames, and there are no gaps.
class KivMemoryBlockVertex : public KivElementBlock {
 public:
  static constexpr uint32_t kTag = 13;
  static constexpr char kSource[] = "src\\KivVertexData";
  static constexpr bool kIsBulk = true;

  void Clear() {
    m_iVertexValue = 0;
    m_vzVertex.Clear();
  }
  // A new vertex, which is counted.
  KivVertexEntry& AddVertex() {
    ++m_zHeader.m_iEntryCount;
    return m_vzVertex.Add();
  }

  template <typename Fields>
  bool VisitBody(Fields& zFields, Memory&) {
    return zFields.Numbers(m_iVertexValue) && zFields.FillTo(m_zHeader.m_iDataOffset) &&
           zFields.BareEntries(m_vzVertex, m_zHeader.m_iEntryCount, kVertexSizeMin,
                               [](auto& z, KivVertexEntry& zVertex) {
                                 return z.Numbers(zVertex.m_iVertexData) && z.Attributes(zVertex.m_vzAttribute);
                               });
  }

  template <typename Keys>
  bool VisitKeys(Keys& zKeys) {
    for (KivVertexEntry& z : m_vzVertex)
      if (!zKeys.Attributes(KivAttributeRow::Mesh, z.m_vzAttribute)) return false;
    return true;
  }

  template <typename Visit>
  void VisitLists(Visit&& pfnList) {
    pfnList(m_vzVertex);
  }

  uint32_t m_iVertexValue = 0;  // carried
  KivReusedList<KivVertexEntry> m_vzVertex;

 private:
  static constexpr uint64_t kVertexSizeMin = 28 + kAttributeListMin;
};

// Compiled once, in KivElementClasses.cpp.
extern template class KivOutOfCoreBlockNode<KivMemoryBlockVertex>;
extern template class KivElement<KivMemoryBlockVertex>;

class KivVertexData : public KivElement<KivMemoryBlockVertex> {
 public:
  using KivElement::KivElement;
};

}  // namespace kiv
