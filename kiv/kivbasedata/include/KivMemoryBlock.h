// What all blocks of elements have in common: the parsed form of one record.
#pragma once

#include <array>
#include <cstdint>

namespace kiv {

// The persistent header with which every element's record begins.
struct KivMemoryBlockHeader {
  uint32_t m_iTag = 0;         // the element's type
  uint32_t m_iEntryCount = 0;  // live entries
  uint32_t m_iFormat = 0;      // format revision
  uint32_t m_iDataOffset = 0;  // of what follows the header
  std::array<uint64_t, 3> m_aiLink{};
  std::array<float, 3> m_afBoxMin{};
  std::array<float, 3> m_afBoxMax{};
  uint32_t m_iNodeState = 0;  // 0 to 2
};

// The three links to other elements, for reading and for rewriting in place.
using KivMemoryBlockLinks = std::array<uint64_t*, 3>;

class KivMemoryBlock {
 public:
  virtual ~KivMemoryBlock() = default;
  virtual KivMemoryBlockHeader GetHeader() const = 0;
  virtual KivMemoryBlockLinks GetLinks() = 0;
};

}  // namespace kiv
