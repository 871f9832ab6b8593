// Bounded access to the bytes of one record: a reader and a writer that know its end. Neither reports; a false or null
// answer means that the record ends too early, and leaves the place where it was.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "KivLittleEndian.h"

namespace kiv {

class KivRecordReader {
 public:
  KivRecordReader(const uint8_t* pBytes, size_t nBytes) : m_pStart(pBytes), m_pAt(pBytes), m_pEnd(pBytes + nBytes) {}

  size_t Offset() const { return static_cast<size_t>(m_pAt - m_pStart); }
  size_t Remaining() const { return static_cast<size_t>(m_pEnd - m_pAt); }
  const uint8_t* At() const { return m_pAt; }

  // The next nBytes bytes, which are passed; null if there are fewer.
  const uint8_t* Take(uint64_t nBytes) {
    if (nBytes > Remaining()) return nullptr;
    const uint8_t* pTaken = m_pAt;
    m_pAt += nBytes;
    return pTaken;
  }
  bool Skip(uint64_t nBytes) {
    if (nBytes > Remaining()) return false;
    m_pAt += nBytes;
    return true;
  }
  // Goes to an offset from the record's start, in either direction.
  bool MoveTo(uint64_t iOffset) {
    if (iOffset > static_cast<uint64_t>(m_pEnd - m_pStart)) return false;
    m_pAt = m_pStart + iOffset;
    return true;
  }
  template <typename T>
  bool Get(T& value) {
    const uint8_t* pTaken = Take(sizeof(T));
    if (pTaken == nullptr) return false;
    value = KivLoad<T>(pTaken);
    return true;
  }

 private:
  const uint8_t* m_pStart;
  const uint8_t* m_pAt;
  const uint8_t* m_pEnd;
};

class KivRecordWriter {
 public:
  KivRecordWriter(uint8_t* pBytes, size_t nBytes) : m_pStart(pBytes), m_pAt(pBytes), m_pEnd(pBytes + nBytes) {}

  size_t Offset() const { return static_cast<size_t>(m_pAt - m_pStart); }
  size_t Remaining() const { return static_cast<size_t>(m_pEnd - m_pAt); }
  uint8_t* At() const { return m_pAt; }

  // Room for the next nBytes bytes, which are passed; null if there is less.
  uint8_t* Take(uint64_t nBytes) {
    if (nBytes > Remaining()) return nullptr;
    uint8_t* pTaken = m_pAt;
    m_pAt += nBytes;
    return pTaken;
  }
  bool Skip(uint64_t nBytes) {
    if (nBytes > Remaining()) return false;
    m_pAt += nBytes;
    return true;
  }
  template <typename T>
  bool Put(std::type_identity_t<T> value) {
    uint8_t* pTaken = Take(sizeof(T));
    if (pTaken == nullptr) return false;
    KivStore<T>(pTaken, value);
    return true;
  }
  bool PutBytes(const void* pSource, uint64_t nBytes) {
    if (nBytes > Remaining()) return false;
    if (nBytes > 0) std::memcpy(m_pAt, pSource, nBytes);
    m_pAt += nBytes;
    return true;
  }

 private:
  uint8_t* m_pStart;
  uint8_t* m_pAt;
  uint8_t* m_pEnd;
};

}  // namespace kiv
