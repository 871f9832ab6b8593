// The operators new and delete of all test programs, under the sanitizers, too: their heap lies beneath malloc.
#include "KivTestHeap.h"

#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

thread_local uint64_t t_nCalls = 0;
thread_local uint64_t t_nBytes = 0;
// By their number among all calls. 0: none fails.
thread_local uint64_t t_iFailFrom = 0;
thread_local uint64_t t_iFailTo = 0;
thread_local bool t_bFired = false;

void* AllocateOrNull(size_t nBytes) noexcept {
  ++t_nCalls;
  t_nBytes += nBytes;
  if (t_iFailFrom != 0 && t_nCalls >= t_iFailFrom && t_nCalls <= t_iFailTo) {
    t_bFired = true;
    return nullptr;
  }
  return std::malloc(nBytes == 0 ? 1 : nBytes);
}

void* Allocate(size_t nBytes) {
  void* const pBytes = AllocateOrNull(nBytes);
  if (pBytes == nullptr) throw std::bad_alloc();
  return pBytes;
}

}  // namespace

void* operator new(size_t nBytes) {
  return Allocate(nBytes);
}
void* operator new[](size_t nBytes) {
  return Allocate(nBytes);
}
void* operator new(size_t nBytes, const std::nothrow_t&) noexcept {
  return AllocateOrNull(nBytes);
}
void* operator new[](size_t nBytes, const std::nothrow_t&) noexcept {
  return AllocateOrNull(nBytes);
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

namespace kivtest {

HeapUse::HeapUse() : m_nCalls(t_nCalls), m_nBytes(t_nBytes) {}

uint64_t HeapUse::Calls() const {
  return t_nCalls - m_nCalls;
}

uint64_t HeapUse::Bytes() const {
  return t_nBytes - m_nBytes;
}

NoMemory::NoMemory(uint64_t iNth, bool bFromThenOn) {
  t_bFired = false;
  t_iFailTo = bFromThenOn ? UINT64_MAX : t_nCalls + iNth;
  t_iFailFrom = t_nCalls + iNth;
}

NoMemory::~NoMemory() {
  t_iFailFrom = 0;
}

bool NoMemory::HasFired() const {
  return t_bFired;
}

}  // namespace kivtest
