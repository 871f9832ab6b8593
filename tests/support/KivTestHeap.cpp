#include "KivTestHeap.h"

#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

thread_local uint64_t t_nCalls = 0;
thread_local uint64_t t_nBytes = 0;

void Count(size_t nBytes) {
  ++t_nCalls;
  t_nBytes += nBytes;
}

}  // namespace

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)

// The sanitizers' own heap tells of each piece.
extern "C" void __sanitizer_malloc_hook(const volatile void*, size_t nBytes);
extern "C" void __sanitizer_free_hook(const volatile void*);
extern "C" void __sanitizer_malloc_hook(const volatile void*, size_t nBytes) {
  Count(nBytes);
}
extern "C" void __sanitizer_free_hook(const volatile void*) {}

#else

void* operator new(size_t nBytes) {
  Count(nBytes);
  void* const pBytes = std::malloc(nBytes == 0 ? 1 : nBytes);
  if (pBytes == nullptr) throw std::bad_alloc();
  return pBytes;
}
void* operator new[](size_t nBytes) {
  return operator new(nBytes);
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

#endif

namespace kivtest {

HeapUse::HeapUse() : m_nCalls(t_nCalls), m_nBytes(t_nBytes) {}

uint64_t HeapUse::Calls() const {
  return t_nCalls - m_nCalls;
}

uint64_t HeapUse::Bytes() const {
  return t_nBytes - m_nBytes;
}

}  // namespace kivtest
