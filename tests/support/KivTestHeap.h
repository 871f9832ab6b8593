// What the calling thread takes from the heap.
#pragma once

#include <cstdint>

namespace kivtest {

// Counts from its making on. What is given back is not taken off.
class HeapUse {
 public:
  HeapUse();
  uint64_t Calls() const;
  uint64_t Bytes() const;

 private:
  uint64_t m_nCalls;
  uint64_t m_nBytes;
};

}  // namespace kivtest
