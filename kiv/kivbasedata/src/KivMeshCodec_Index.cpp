// Index stream of a mesh entry:
//   OFFSET   SIZE   FIELD
//   0        4      number of indices, only with kMeshIndexCount; otherwise it is 3 * m_iTriangleCount
//   next     ...    plain form: u8, u16 or u32 each, as m_iIndexSize says
// or, with kMeshDelta and an index size above 1, delta form: the first index big-endian in 2 or 4 bytes, then for each
// further one the difference d from its predecessor in the first class that holds it:
//   CLASS    LIMIT OF |d|   BYTES (big-endian)
//   6-bit    63             0 ddddddd: d + 63
//   13-bit   8191           10 and 14 bits: d + 8191
//   20-bit   0xFFFFF        110 and 21 bits: d + 0xFFFFF
//   27-bit   none           111 and 29 bits: d + 0xFFFFFFF, wrapping
#include <emmintrin.h>

#include <algorithm>
#include <cstring>

#include "KivMeshCodec.h"
#include "KivReportQuiet.h"

namespace kiv {
namespace {

constexpr char kSource[] = "src\\KivMeshCodec";

bool IsDelta(const KivMemoryBlockFaceEdgeInterfaceData& zMesh, uint32_t iIndexSize) {
  return (zMesh.m_iMeshFlags & kMeshDelta) != 0 && iIndexSize > 1;
}

bool IsIndexSize(uint32_t iIndexSize) {
  return iIndexSize == 1 || iIndexSize == 2 || iIndexSize == 4;
}

// --- Delta form -----------------------------------------------------------------------------------------------------

// What a class adds to a difference, and the bits that tell it, for lengths of 1 to 4 bytes.
constexpr uint32_t kBias[5] = {0, 63, 8191, 0xFFFFF, 0xFFFFFFF};
constexpr uint32_t kClassBits[5] = {0, 0, 0x8000, 0xC00000, 0xE0000000};
constexpr uint32_t kFieldMask[5] = {0, 0x7F, 0x3FFF, 0x1FFFFF, 0x1FFFFFFF};

unsigned LengthOf(int64_t iDifference) {
  const uint64_t iMagnitude = static_cast<uint64_t>(iDifference < 0 ? -iDifference : iDifference);
  return 1u + (iMagnitude >= 64) + (iMagnitude >= 8192) + (iMagnitude >= 0x100000);
}

int64_t Difference(const uint32_t* piIndex) {
  return static_cast<int64_t>(piIndex[0]) - static_cast<int64_t>(piIndex[-1]);
}

uint64_t DeltaSize(std::span<const uint32_t> viIndex, uint32_t iIndexSize) {
  if (viIndex.empty()) return 0;
  uint64_t nBytes = iIndexSize;
  for (size_t i = 1; i < viIndex.size(); ++i) nBytes += LengthOf(Difference(&viIndex[i]));
  return nBytes;
}

bool PutDelta(KivRecordWriter& zWriter, uint32_t iIndexSize, std::span<const uint32_t> viTriVtxIndex) {
  if (!KIV_ASSERT(viTriVtxIndex.size() > 0)) return true;  // takes no bytes
  for (uint32_t iShift = 8 * iIndexSize; iShift > 0;) {
    iShift -= 8;
    if (!KIV_ASSERT(zWriter.Put<uint8_t>(static_cast<uint8_t>(viTriVtxIndex[0] >> iShift)))) return false;
  }
  uint8_t* p = zWriter.At();
  uint8_t* const pEnd = p + zWriter.Remaining();
  for (size_t i = 1; i < viTriVtxIndex.size(); ++i) {
    const int64_t iDifference = Difference(&viTriVtxIndex[i]);
    const unsigned nBytes = LengthOf(iDifference);
    const uint32_t iField = (static_cast<uint32_t>(iDifference) + kBias[nBytes]) & kFieldMask[nBytes];
    const uint32_t iWord = __builtin_bswap32((iField | kClassBits[nBytes]) << (32 - 8 * nBytes));
    if (pEnd - p >= 4) {
      KivStore<uint32_t>(p, iWord);
    } else {
      if (!KIV_ASSERT(static_cast<size_t>(pEnd - p) >= nBytes)) return false;
      std::memcpy(p, &iWord, nBytes);
    }
    p += nBytes;
  }
  return zWriter.Skip(static_cast<size_t>(p - zWriter.At()));
}

// The index that the bytes at the upper end of iWord make of the one before; gives their number.
inline unsigned DecodeIndex(uint32_t iWord, uint32_t& iIndex) {
  if (iWord < 0x80000000u) {
    iIndex += (iWord >> 24) - kBias[1];
    return 1;
  }
  if (iWord < 0xC0000000u) {
    iIndex += (iWord >> 16 & kFieldMask[2]) - kBias[2];
    return 2;
  }
  if (iWord < 0xE0000000u) {
    iIndex += (iWord >> 8 & kFieldMask[3]) - kBias[3];
    return 3;
  }
  iIndex += (iWord & kFieldMask[4]) - kBias[4];
  return 4;
}

// Eight differences of one byte each behind iIndex: running sums in words, then added to it.
inline void DecodeEight(uint64_t iBytes, uint32_t& iIndex, uint32_t* piIndex) {
  __m128i v = _mm_unpacklo_epi8(_mm_cvtsi64_si128(static_cast<int64_t>(iBytes)), _mm_setzero_si128());
  v = _mm_sub_epi16(v, _mm_set1_epi16(63));
  v = _mm_add_epi16(v, _mm_slli_si128(v, 2));
  v = _mm_add_epi16(v, _mm_slli_si128(v, 4));
  v = _mm_add_epi16(v, _mm_slli_si128(v, 8));
  const __m128i vBefore = _mm_set1_epi32(static_cast<int>(iIndex));
  const __m128i vLow = _mm_srai_epi32(_mm_unpacklo_epi16(v, v), 16);
  const __m128i vHigh = _mm_srai_epi32(_mm_unpackhi_epi16(v, v), 16);
  _mm_storeu_si128(reinterpret_cast<__m128i*>(piIndex), _mm_add_epi32(vBefore, vLow));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(piIndex + 4), _mm_add_epi32(vBefore, vHigh));
  iIndex += static_cast<uint32_t>(static_cast<int16_t>(_mm_extract_epi16(v, 7)));
}

bool GetDelta(KivRecordReader& zReader, uint32_t iIndexSize, std::vector<uint32_t>& viIndex) {
  const uint8_t* p = zReader.Take(iIndexSize);
  if (!KIV_ASSERT(p != nullptr)) return false;
  uint32_t iIndex = 0;
  for (uint32_t i = 0; i < iIndexSize; ++i) iIndex = iIndex << 8 | p[i];
  p = zReader.At();
  const uint8_t* const pEnd = p + zReader.Remaining();
  uint32_t* piNow = viIndex.data();
  uint32_t* const piEnd = piNow + viIndex.size();
  *piNow++ = iIndex;
  while (piEnd - piNow >= 8 && pEnd - p >= 32) {  // at most four bytes for each of eight indices
    const uint64_t iBytes = KivLoad<uint64_t>(p);
    if ((iBytes & 0x8080808080808080u) == 0) {
      DecodeEight(iBytes, iIndex, piNow);
      p += 8;
    } else {
      for (int i = 0; i < 8; ++i) {
        p += DecodeIndex(__builtin_bswap32(KivLoad<uint32_t>(p)), iIndex);
        piNow[i] = iIndex;
      }
    }
    piNow += 8;
  }
  while (piNow < piEnd) {
    const size_t nLeft = std::min<size_t>(static_cast<size_t>(pEnd - p), 4);
    uint32_t iWord = 0;
    std::memcpy(&iWord, p, nLeft);
    const size_t nBytes = DecodeIndex(__builtin_bswap32(iWord), iIndex);
    if (!KIV_ASSERT(nLeft > 0 && nBytes <= nLeft)) return false;
    p += nBytes;
    *piNow++ = iIndex;
  }
  return zReader.Skip(static_cast<size_t>(p - zReader.At()));
}

// --- Plain form -----------------------------------------------------------------------------------------------------

void WidenBytes(const uint8_t* p, size_t n, uint32_t* piIndex) {
  const __m128i vZero = _mm_setzero_si128();
  for (; n >= 16; n -= 16, p += 16, piIndex += 16) {
    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    const __m128i vLow = _mm_unpacklo_epi8(v, vZero);
    const __m128i vHigh = _mm_unpackhi_epi8(v, vZero);
    __m128i* pvOut = reinterpret_cast<__m128i*>(piIndex);
    _mm_storeu_si128(pvOut, _mm_unpacklo_epi16(vLow, vZero));
    _mm_storeu_si128(pvOut + 1, _mm_unpackhi_epi16(vLow, vZero));
    _mm_storeu_si128(pvOut + 2, _mm_unpacklo_epi16(vHigh, vZero));
    _mm_storeu_si128(pvOut + 3, _mm_unpackhi_epi16(vHigh, vZero));
  }
  for (; n > 0; --n) *piIndex++ = *p++;
}

void WidenWords(const uint8_t* p, size_t n, uint32_t* piIndex) {
  const __m128i vZero = _mm_setzero_si128();
  for (; n >= 8; n -= 8, p += 16, piIndex += 8) {
    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    __m128i* pvOut = reinterpret_cast<__m128i*>(piIndex);
    _mm_storeu_si128(pvOut, _mm_unpacklo_epi16(v, vZero));
    _mm_storeu_si128(pvOut + 1, _mm_unpackhi_epi16(v, vZero));
  }
  for (; n > 0; --n, p += 2) *piIndex++ = KivLoad<uint16_t>(p);
}

__m128i LoadFour(const uint32_t* piIndex) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(piIndex));
}

// The low 16 bits as signed numbers, so that the saturating pack keeps them.
__m128i SignedWords(const uint32_t* piIndex) {
  return _mm_srai_epi32(_mm_slli_epi32(LoadFour(piIndex), 16), 16);
}

void NarrowToBytes(const uint32_t* piIndex, size_t n, uint8_t* p) {
  for (; n >= 16; n -= 16, piIndex += 16, p += 16) {
    const __m128i vLow = _mm_packs_epi32(LoadFour(piIndex), LoadFour(piIndex + 4));
    const __m128i vHigh = _mm_packs_epi32(LoadFour(piIndex + 8), LoadFour(piIndex + 12));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(p), _mm_packus_epi16(vLow, vHigh));
  }
  for (; n > 0; --n) *p++ = static_cast<uint8_t>(*piIndex++);
}

void NarrowToWords(const uint32_t* piIndex, size_t n, uint8_t* p) {
  for (; n >= 8; n -= 8, piIndex += 8, p += 16)
    _mm_storeu_si128(reinterpret_cast<__m128i*>(p), _mm_packs_epi32(SignedWords(piIndex), SignedWords(piIndex + 4)));
  for (; n > 0; --n, p += 2) KivStore<uint16_t>(p, static_cast<uint16_t>(*piIndex++));
}

}  // namespace

bool KivMeshIndicesFit(uint32_t iIndexSize, std::span<const uint32_t> viIndex) {
  if (iIndexSize == 4) return true;
  uint32_t iBits = 0;
  for (const uint32_t iIndex : viIndex) iBits |= iIndex;
  return iBits <= (iIndexSize == 1 ? 0xFFu : 0xFFFFu);
}

uint64_t KivMeshIndexStreamSize(const KivMemoryBlockFaceEdgeInterfaceData& zMesh, uint32_t iIndexSize,
                                std::span<const uint32_t> viIndex) {
  const uint64_t nCount = (zMesh.m_iMeshFlags & kMeshIndexCount) != 0 ? 4 : 0;
  if (IsDelta(zMesh, iIndexSize)) return nCount + DeltaSize(viIndex, iIndexSize);
  return nCount + static_cast<uint64_t>(viIndex.size()) * iIndexSize;
}

bool KivMeshPutIndexStream(KivRecordWriter& zWriter, const KivMemoryBlockFaceEdgeInterfaceData& zMesh,
                           uint32_t nTriangles, uint32_t iIndexSize, std::span<const uint32_t> viIndex) {
  if (!KIV_ASSERT(IsIndexSize(iIndexSize))) return false;
  if ((zMesh.m_iMeshFlags & kMeshIndexCount) != 0) {
    if (!KIV_ASSERT(viIndex.size() <= 0xFFFFFFFFu)) return false;
    if (!KIV_ASSERT(zWriter.Put<uint32_t>(static_cast<uint32_t>(viIndex.size())))) return false;
  } else if (!KIV_ASSERT(viIndex.size() == 3 * static_cast<uint64_t>(nTriangles))) {
    return false;
  }
  if (!KIV_ASSERT(KivMeshIndicesFit(iIndexSize, viIndex))) return false;
  if (IsDelta(zMesh, iIndexSize)) return PutDelta(zWriter, iIndexSize, viIndex);
  uint8_t* p = zWriter.Take(static_cast<uint64_t>(viIndex.size()) * iIndexSize);
  if (!KIV_ASSERT(p != nullptr || viIndex.empty())) return false;
  if (viIndex.empty()) return true;
  if (iIndexSize == 1) NarrowToBytes(viIndex.data(), viIndex.size(), p);
  if (iIndexSize == 2) NarrowToWords(viIndex.data(), viIndex.size(), p);
  if (iIndexSize == 4) std::memcpy(p, viIndex.data(), 4 * viIndex.size());
  return true;
}

bool KivMeshGetIndexStream(KivRecordReader& zReader, const KivMemoryBlockFaceEdgeInterfaceData& zMesh,
                           uint32_t nTriangles, uint32_t iIndexSize, std::vector<uint32_t>& viIndex) {
  if (!KIV_ASSERT(IsIndexSize(iIndexSize))) return false;
  uint64_t nIndices = 3 * static_cast<uint64_t>(nTriangles);
  if ((zMesh.m_iMeshFlags & kMeshIndexCount) != 0) {
    uint32_t iCount = 0;
    if (!KIV_ASSERT(zReader.Get(iCount))) return false;
    nIndices = iCount;
  }
  if (nIndices == 0) {
    viIndex.clear();
    return true;
  }
  if (IsDelta(zMesh, iIndexSize)) {
    if (!KIV_ASSERT(nIndices <= zReader.Remaining())) return false;  // a byte per index at the least
    viIndex.resize(nIndices);
    return GetDelta(zReader, iIndexSize, viIndex);
  }
  const uint8_t* p = zReader.Take(nIndices * iIndexSize);
  if (!KIV_ASSERT(p != nullptr)) return false;
  viIndex.resize(nIndices);
  if (iIndexSize == 1) WidenBytes(p, nIndices, viIndex.data());
  if (iIndexSize == 2) WidenWords(p, nIndices, viIndex.data());
  if (iIndexSize == 4) std::memcpy(viIndex.data(), p, 4 * nIndices);
  return true;
}

}  // namespace kiv
