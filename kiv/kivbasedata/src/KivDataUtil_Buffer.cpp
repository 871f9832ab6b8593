#include <cstring>
#include <functional>
#include <stdexcept>

#include "KivByteBuffer.h"
#include "KivException.h"
#include "KivLittleEndian.h"

namespace kiv {
namespace {

constexpr char kSource[] = "src\\KivDataUtil";

uint64_t g_iSequence = 0;

bool Holds(uint64_t iCursor, const KivByteBuffer& vcBuffer, uint64_t nCount) noexcept {
  return iCursor <= vcBuffer.size() && vcBuffer.size() - iCursor >= nCount;
}

bool Fail(int32_t iLine) {
  KivReportFailure("0", kSource, iLine);
  return false;
}

constexpr size_t kStepUnits = 256;

// Not 0 if one of the four units of the word is 0: then the subtraction borrows into a top bit that was not set.
uint64_t ZeroUnits(const char16_t* pUnits) noexcept {
  constexpr uint64_t kOnes = 0x0001000100010001;
  const uint64_t iWord = KivLoad<uint64_t>(pUnits);
  return (iWord - kOnes) & ~iWord & (kOnes << 15);
}

size_t CountBeforeZero(const char16_t* pUnits, size_t nUnits) noexcept {
  size_t i = 0;
  while (i + 16 <= nUnits && (ZeroUnits(pUnits + i) | ZeroUnits(pUnits + i + 4) | ZeroUnits(pUnits + i + 8) |
                              ZeroUnits(pUnits + i + 12)) == 0)
    i += 16;
  while (i + 4 <= nUnits && ZeroUnits(pUnits + i) == 0) i += 4;
  while (i < nUnits && pUnits[i] != 0) ++i;
  return i;
}

template <typename T>
bool GetNumber(uint64_t& iCursor, const KivByteBuffer& vcBuffer, T* pDestination) {
  if (pDestination == nullptr || !Holds(iCursor, vcBuffer, sizeof(T))) return Fail(__LINE__);
  *pDestination = KivLoad<T>(vcBuffer.data() + iCursor);
  iCursor += sizeof(T);
  return true;
}

template <typename T>
void PutNumber(KivByteBuffer& vcBuffer, T value) {
  uint8_t acBytes[sizeof(T)];
  KivStore<T>(acBytes, value);
  vcBuffer.insert(vcBuffer.end(), acBytes, acBytes + sizeof(T));
}

}  // namespace

bool KivGetBytes(uint64_t& iCursor, const KivByteBuffer& vcBuffer, void* pDestination, uint64_t nCount) {
  if (pDestination == nullptr || !Holds(iCursor, vcBuffer, nCount)) return Fail(__LINE__);
  if (nCount > 0) std::memcpy(pDestination, vcBuffer.data() + iCursor, nCount);
  iCursor += nCount;
  return true;
}

bool KivGetInt64(uint64_t& iCursor, const KivByteBuffer& vcBuffer, int64_t* piValue) {
  return GetNumber(iCursor, vcBuffer, piValue);
}

bool KivGetInt64(uint64_t& iCursor, const KivByteBuffer& vcBuffer, uint64_t* piValue) {
  return GetNumber(iCursor, vcBuffer, piValue);
}

bool KivGetDouble(uint64_t& iCursor, const KivByteBuffer& vcBuffer, double* pdValue) {
  return GetNumber(iCursor, vcBuffer, pdValue);
}

bool KivGetString(uint64_t& iCursor, const KivByteBuffer& vcBuffer, KivWString* pcsValue) {
  if (pcsValue == nullptr) return Fail(__LINE__);
  uint64_t nUnits = 0;
  if (!KivGetInt64(iCursor, vcBuffer, &nUnits)) return false;
  if (nUnits > (vcBuffer.size() - iCursor) / sizeof(char16_t)) return Fail(__LINE__);
  pcsValue->reserve(nUnits);  // after this nothing can fail
  pcsValue->clear();
  const uint8_t* pUnits = vcBuffer.data() + iCursor;
  iCursor += nUnits * sizeof(char16_t);
  // In steps through an aligned piece of the stack: the buffer's units stand at any address.
  while (nUnits > 0) {
    char16_t acUnits[kStepUnits];
    const size_t nStep = nUnits < kStepUnits ? nUnits : kStepUnits;
    std::memcpy(acUnits, pUnits, nStep * sizeof(char16_t));
    const size_t nText = CountBeforeZero(acUnits, nStep);
    pcsValue->append(acUnits, nText);
    if (nText < nStep) break;
    pUnits += nStep * sizeof(char16_t);
    nUnits -= nStep;
  }
  return true;
}

bool KivGetBlock(uint64_t& iCursor, const KivByteBuffer& vcBuffer, void* pDestination, uint64_t nExpected) {
  uint64_t nSize = 0;
  if (!KivGetInt64(iCursor, vcBuffer, &nSize)) return false;
  if (nSize != nExpected) return Fail(__LINE__);
  if (nSize == 0) return true;
  return KivGetBytes(iCursor, vcBuffer, pDestination, nSize);
}

void KivPutBytes(KivByteBuffer& vcBuffer, const void* pSource, uint64_t nCount) {
  const size_t nOld = vcBuffer.size();
  if (nCount > vcBuffer.max_size() - nOld) throw std::length_error("KivPutBytes");
  if (pSource == nullptr) {
    vcBuffer.resize(nOld + nCount);
    return;
  }
  const uint8_t* pBytes = static_cast<const uint8_t*>(pSource);
  const std::less<const uint8_t*> zBefore;
  if (!zBefore(pBytes, vcBuffer.data()) && zBefore(pBytes, vcBuffer.data() + nOld)) {
    // A part of the buffer itself, which growing may move.
    const size_t iOffset = static_cast<size_t>(pBytes - vcBuffer.data());
    vcBuffer.resize(nOld + nCount);
    std::memcpy(vcBuffer.data() + nOld, vcBuffer.data() + iOffset, nCount);
    return;
  }
  vcBuffer.insert(vcBuffer.end(), pBytes, pBytes + nCount);
}

void KivPutInt64(KivByteBuffer& vcBuffer, int64_t iValue) {
  PutNumber(vcBuffer, iValue);
}
void KivPutDouble(KivByteBuffer& vcBuffer, double dValue) {
  PutNumber(vcBuffer, dValue);
}

void KivPutString(KivByteBuffer& vcBuffer, const KivWString& csValue) {
  KivPutInt64(vcBuffer, static_cast<int64_t>(csValue.size()));
  if (!csValue.empty()) KivPutBytes(vcBuffer, csValue.data(), csValue.size() * sizeof(char16_t));
}

void KivPutBlock(KivByteBuffer& vcBuffer, const void* pSource, uint64_t nSize) {
  KivPutInt64(vcBuffer, static_cast<int64_t>(nSize));
  if (nSize != 0) KivPutBytes(vcBuffer, pSource, nSize);
}

void KivPutCoord3(KivByteBuffer& vcBuffer, const KivECoord3& zCoord) {
  const double adValue[3] = {zCoord.m_dX, zCoord.m_dY, zCoord.m_dZ};
  uint8_t acBytes[sizeof adValue];
  std::memcpy(acBytes, adValue, sizeof adValue);
  vcBuffer.insert(vcBuffer.end(), acBytes, acBytes + sizeof acBytes);
}

void KivPutSequence(KivByteBuffer& vcBuffer) {
  KivPutInt64(vcBuffer, static_cast<int64_t>(++g_iSequence));
}

}  // namespace kiv
