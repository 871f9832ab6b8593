// Allocations of the calling thread that fail, in this test program.
#pragma once

#include <cstdint>

namespace kivtest {

// For its lifetime: the N-th allocation of this thread from now fails (1 is the next), or all from that one on.
class NoMemory {
 public:
  NoMemory(uint64_t iNth, bool bFromThenOn);
  ~NoMemory();
  NoMemory(const NoMemory&) = delete;
  NoMemory& operator=(const NoMemory&) = delete;

  bool HasFired() const;
};

}  // namespace kivtest
