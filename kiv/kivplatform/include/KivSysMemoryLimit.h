// A bound on what the running process may take.
#pragma once

#include <cstdint>

namespace kiv::sys {

// Of the machine; 0 if it is not known.
uint64_t PhysicalMemory();

// From here on a request that would bring this process above so many bytes fails as one that the machine has no room
// for (std::bad_alloc). A later call may raise or lower the bound, which is for this process alone. Linux counts the
// address space with programs and libraries in it, Windows what is committed; docs/platform.md tells where nothing is
// bounded. False if the system refuses.
bool LimitMemory(uint64_t nBytes);

// True if LimitMemory bounds anything: sanitizers reserve more than any bound, and Wine keeps none.
bool CanLimitMemory();

}  // namespace kiv::sys
