// What the calling thread takes from the heap by new, and allocations of it that fail.
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

// For its lifetime: the N-th allocation of this thread from now fails (1 is the next), or all from that one on. One at
// a time.
class NoMemory {
 public:
  NoMemory(uint64_t iNth, bool bFromThenOn);
  ~NoMemory();
  NoMemory(const NoMemory&) = delete;
  NoMemory& operator=(const NoMemory&) = delete;

  bool HasFired() const;
};

}  // namespace kivtest
