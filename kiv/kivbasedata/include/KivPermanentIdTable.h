// The element with texts that stay the same when a model is imported again. docs/element_records.md has the record.
#pragma once

#include <cstdint>
#include <vector>

#include "KivElement.h"

namespace kiv {

class KivMemoryBlockPermanentIdTable : public KivElementBlock {
 public:
  static constexpr uint32_t kTag = 9;
  static constexpr char kSource[] = "src\\KivPermanentIdTable";

  // Keeps no memory: tables are few, and their strings would go all the same.
  void Clear() { m_vstrPermanentId = std::vector<KivWString>(); }

  template <typename Fields>
  bool VisitBody(Fields& zFields, Memory&) {
    return zFields.Items(m_vstrPermanentId, sizeof(uint32_t), [](auto& z, KivWString& str) { return z.Text(str); });
  }

  std::vector<KivWString> m_vstrPermanentId;  // m_iEntryCount of the header is not their number
};

// Compiled once, in KivElementClasses.cpp.
extern template class KivOutOfCoreBlockNode<KivMemoryBlockPermanentIdTable>;
extern template class KivElement<KivMemoryBlockPermanentIdTable>;

class KivPermanentIdTable : public KivElement<KivMemoryBlockPermanentIdTable> {
 public:
  using KivElement::KivElement;
};

}  // namespace kiv
