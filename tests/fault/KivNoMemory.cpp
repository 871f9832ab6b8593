#include "KivNoMemory.h"

#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

// By their number. 0: none fails.
thread_local uint64_t t_iFailFrom = 0;
thread_local uint64_t t_iFailTo = 0;
thread_local uint64_t t_nAllocations = 0;
thread_local bool t_bFired = false;

void* Allocate(size_t nBytes) {
  if (t_iFailFrom != 0) {
    ++t_nAllocations;
    if (t_nAllocations >= t_iFailFrom && t_nAllocations <= t_iFailTo) {
      t_bFired = true;
      throw std::bad_alloc();
    }
  }
  void* const pBytes = std::malloc(nBytes == 0 ? 1 : nBytes);
  if (pBytes == nullptr) throw std::bad_alloc();
  return pBytes;
}

}  // namespace

namespace kivtest {

NoMemory::NoMemory(uint64_t iNth, bool bFromThenOn) {
  t_nAllocations = 0;
  t_bFired = false;
  t_iFailTo = bFromThenOn ? UINT64_MAX : iNth;
  t_iFailFrom = iNth;
}

NoMemory::~NoMemory() {
  t_iFailFrom = 0;
}

bool NoMemory::HasFired() const {
  return t_bFired;
}

}  // namespace kivtest

void* operator new(size_t nBytes) {
  return Allocate(nBytes);
}
void* operator new[](size_t nBytes) {
  return Allocate(nBytes);
}
void operator delete(void* pBytes) noexcept {
  std::free(pBytes);
}
void operator delete[](void* pBytes) noexcept {
  std::free(pBytes);
}
void operator delete(void* pBytes, size_t) noexcept {
  std::free(pBytes);
}
void operator delete[](void* pBytes, size_t) noexcept {
  std::free(pBytes);
}
