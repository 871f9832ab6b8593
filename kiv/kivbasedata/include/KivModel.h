// The root element of a model, always at position 264. Everything else is found from it: link 1 is the root of the
// instance tree, link 2 the model note. docs/element_records.md has the record.
#pragma once

#include <array>
#include <cstdint>

#include "KivElement.h"

namespace kiv {

// The first record of a container.
constexpr uint64_t kModelPosition = 264;

class KivMemoryBlockModel : public KivElementBlock {
 public:
  static constexpr uint32_t kTag = 3;
  static constexpr char kSource[] = "src\\KivModel";

  void Clear() {
    m_iModelValue = 0;
    m_fModelBoxMin = m_fModelBoxMax = {};
  }

  template <typename Fields>
  bool VisitBody(Fields& zFields, Memory&) {
    if (!zFields.Numbers(m_iModelValue)) return false;
    if (zFields.Format() >= 2) return zFields.Numbers(m_fModelBoxMin, m_fModelBoxMax);
    if constexpr (Fields::kReading) {
      m_fModelBoxMin.fill(1e30f);
      m_fModelBoxMax.fill(-1e30f);
    }
    return true;
  }

  uint32_t m_iModelValue = 0;             // carried
  std::array<float, 3> m_fModelBoxMin{};  // from revision 2; before it a box around nothing
  std::array<float, 3> m_fModelBoxMax{};
};

// Compiled once, in KivElementClasses.cpp.
extern template class KivOutOfCoreBlockNode<KivMemoryBlockModel>;
extern template class KivElement<KivMemoryBlockModel>;

class KivModel : public KivElement<KivMemoryBlockModel> {
 public:
  using KivElement::KivElement;
};

}  // namespace kiv
