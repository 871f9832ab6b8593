// Normal stream of a mesh entry:
//   OFFSET   SIZE   FIELD
//   0        1      1: run-length form, anything else: plain form
//   1        2      plain form: a code for each normal
//   1        3      run-length form: groups of u8 count and u16 code
// Code, from the top: 3 bits of signs (z y x), 2 bits of the axis m of the largest component (3: zero normal), 11 bits
// of the cell i * 45 + j, where i / 44 and j / 44 are the ratios of the components m + 1 and m + 2 (modulo 3) to it.
#include <emmintrin.h>

#include <algorithm>
#include <cmath>
#include <cstring>

#include "KivMeshCodec.h"
#include "KivReportQuiet.h"

namespace kiv {
namespace {

constexpr char kSource[] = "src\\KivMeshCodec";

constexpr int kGrid = 45;
constexpr uint32_t kGridCells = kGrid * kGrid;
constexpr uint32_t kCodeCells = 2048;  // what 11 bits can say
constexpr uint32_t kLongestRun = 255;
// Coding stretches the ratios a little beyond the 44 that decoding divides by, so that the truncation of a decoded
// ratio gives its cell again.
constexpr double kCodeScale = 44.99995440244675;
constexpr double kSmallestComponent = 0.01;
// Run-length form is taken if the plain one is more than half as large again.
constexpr double kPlainExcess = 1.5;

// --- Decoding -------------------------------------------------------------------------------------------------------

// The directions of all cells. A row holds u v w u v and one float of padding, so that the components of a normal with
// axis 2, 1 or 0 are the three floats at offset 0, 1 or 2. The row behind the cells is the zero normal.
struct NormalTable {
  static constexpr size_t kRow = 6;
  float m_afRow[(kCodeCells + 1) * kRow];

  // For the five high bits of a code.
  struct Head {
    uint32_t m_iFirst;    // float at which the normal of cell 0 begins
    uint32_t m_iStride;   // floats from cell to cell
    uint32_t m_iCellEnd;  // cells that there are
  };
  Head m_azHead[32];
  alignas(16) uint32_t m_aiSign[32][4];

  NormalTable() : m_afRow() {
    for (int i = 0; i < kGrid; ++i) {
      for (int j = 0; j < kGrid; ++j) {
        double dU = i * 0.01;
        double dV = j * 0.01;
        double dW = 0.44;
        const double dLength = std::sqrt((j * j + i * i) * 0.0001 + 0.1936);
        if (dLength > 1e-30) {
          dU /= dLength;
          dV /= dLength;
          dW /= dLength;
        }
        float* pfRow = m_afRow + static_cast<size_t>(i * kGrid + j) * kRow;
        pfRow[0] = pfRow[3] = static_cast<float>(dU);
        pfRow[1] = pfRow[4] = static_cast<float>(dV);
        pfRow[2] = static_cast<float>(dW);
      }
    }
    for (uint32_t i = 0; i < 32; ++i) {
      const uint32_t iAxis = i & 3;
      const uint32_t iSigns = iAxis == 3 ? 0 : i >> 2;
      m_azHead[i].m_iFirst = iAxis == 3 ? kCodeCells * kRow : 2 - iAxis;
      m_azHead[i].m_iStride = iAxis == 3 ? 0 : kRow;
      m_azHead[i].m_iCellEnd = iAxis == 3 ? kCodeCells : kGridCells;
      for (uint32_t iBit = 0; iBit < 4; ++iBit) m_aiSign[i][iBit] = (iSigns >> iBit & 1) << 31;
    }
  }

  // The normal in the three low lanes; 0 in bInside if its cell is none.
  __m128 At(uint32_t iCode, uint32_t& bInside) const {
    const uint32_t iHead = iCode >> 11;
    const uint32_t iCell = iCode & (kCodeCells - 1);
    const Head& zHead = m_azHead[iHead];
    bInside &= iCell < zHead.m_iCellEnd;
    return _mm_xor_ps(_mm_loadu_ps(m_afRow + zHead.m_iFirst + iCell * zHead.m_iStride),
                      _mm_load_ps(reinterpret_cast<const float*>(m_aiSign[iHead])));
  }
};

const NormalTable& TheTable() {
  static const NormalTable zTable;
  return zTable;
}

void StoreThree(float* pf, __m128 v) {
  alignas(16) float af[4];
  _mm_store_ps(af, v);
  std::memcpy(pf, af, 12);
}

// nCodes codes from pCodes; false if one of them has no cell.
bool DecodePlain(const uint8_t* pCodes, size_t nCodes, float* pfNormal) {
  const NormalTable& zTable = TheTable();
  uint32_t bInside = 1;
  if (nCodes == 0) return true;
  for (size_t i = 0; i + 1 < nCodes; ++i, pfNormal += 3)  // the fourth lane goes where the next normal follows
    _mm_storeu_ps(pfNormal, zTable.At(KivLoad<uint16_t>(pCodes + 2 * i), bInside));
  StoreThree(pfNormal, zTable.At(KivLoad<uint16_t>(pCodes + 2 * (nCodes - 1)), bInside));
  return bInside != 0;
}

void Fill(float* pfNormal, __m128 v, size_t nNormals) {
  if (nNormals >= 4) {
    const __m128 v0 = _mm_shuffle_ps(v, v, _MM_SHUFFLE(0, 2, 1, 0));
    const __m128 v1 = _mm_shuffle_ps(v, v, _MM_SHUFFLE(1, 0, 2, 1));
    const __m128 v2 = _mm_shuffle_ps(v, v, _MM_SHUFFLE(2, 1, 0, 2));
    for (; nNormals >= 4; nNormals -= 4, pfNormal += 12) {
      _mm_storeu_ps(pfNormal, v0);
      _mm_storeu_ps(pfNormal + 4, v1);
      _mm_storeu_ps(pfNormal + 8, v2);
    }
  }
  for (; nNormals > 0; --nNormals, pfNormal += 3) StoreThree(pfNormal, v);
}

// The bytes of the groups that give nNormals normals; 0 if they overshoot or the bytes end before.
size_t MeasureRuns(const uint8_t* pGroups, size_t nBytes, uint32_t nNormals) {
  uint64_t nSeen = 0;
  size_t n = 0;
  while (nSeen < nNormals) {
    if (nBytes - n < 3) return 0;
    nSeen += pGroups[n];
    n += 3;
  }
  return nSeen == nNormals ? n : 0;
}

bool DecodeRuns(const uint8_t* pGroups, size_t nBytes, float* pfNormal) {
  const NormalTable& zTable = TheTable();
  uint32_t bInside = 1;
  for (size_t n = 0; n < nBytes; n += 3) {
    const size_t nRun = pGroups[n];
    Fill(pfNormal, zTable.At(KivLoad<uint16_t>(pGroups + n + 1), bInside), nRun);
    pfNormal += 3 * nRun;
  }
  return bInside != 0;
}

// --- Coding ---------------------------------------------------------------------------------------------------------

__m128d Select(__m128d vMask, __m128d vTrue, __m128d vFalse) {
  return _mm_or_pd(_mm_and_pd(vMask, vTrue), _mm_andnot_pd(vMask, vFalse));
}

// The codes of two normals in the low halves of the two lanes.
__m128i CodeTwo(const float* pfFirst, const float* pfSecond) {
  const __m128d vX = _mm_setr_pd(static_cast<double>(pfFirst[0]), static_cast<double>(pfSecond[0]));
  const __m128d vY = _mm_setr_pd(static_cast<double>(pfFirst[1]), static_cast<double>(pfSecond[1]));
  const __m128d vZ = _mm_setr_pd(static_cast<double>(pfFirst[2]), static_cast<double>(pfSecond[2]));
  const __m128d vZero = _mm_setzero_pd();
  const __m128d vSignBit = _mm_set1_pd(-0.0);
  const __m128d vAbsX = _mm_andnot_pd(vSignBit, vX);
  const __m128d vAbsY = _mm_andnot_pd(vSignBit, vY);
  const __m128d vAbsZ = _mm_andnot_pd(vSignBit, vZ);

  const __m128d vXNotBelowY = _mm_cmpge_pd(vAbsX, vAbsY);
  const __m128d vIsX = _mm_andnot_pd(_mm_cmpgt_pd(vAbsZ, vAbsX), vXNotBelowY);
  const __m128d vIsY = _mm_andnot_pd(vXNotBelowY, _mm_cmpge_pd(vAbsY, vAbsZ));
  const __m128d vMajor = Select(vIsX, vAbsX, Select(vIsY, vAbsY, vAbsZ));
  const __m128d vNext = Select(vIsX, vAbsY, Select(vIsY, vAbsZ, vAbsX));
  const __m128d vLast = Select(vIsX, vAbsZ, Select(vIsY, vAbsX, vAbsY));

  const __m128d vScale = _mm_div_pd(_mm_set1_pd(kCodeScale), vMajor);
  const __m128d vI = _mm_mul_pd(vNext, vScale);
  const __m128d vJ = _mm_mul_pd(vLast, vScale);
  // Not so where a component is no number, or for the ratio of two infinities.
  const __m128d vEnd = _mm_set1_pd(kGrid);
  const __m128d vGood = _mm_and_pd(_mm_cmpge_pd(vMajor, _mm_set1_pd(kSmallestComponent)),
                                   _mm_and_pd(_mm_cmplt_pd(vI, vEnd), _mm_cmplt_pd(vJ, vEnd)));

  const auto Bits = [](__m128d vMask, int iBits) {
    return _mm_and_si128(_mm_castpd_si128(vMask), _mm_set1_epi64x(iBits));
  };
  const __m128i vSigns =
      _mm_or_si128(_mm_or_si128(Bits(_mm_cmplt_pd(vX, vZero), 1 << 13), Bits(_mm_cmplt_pd(vY, vZero), 2 << 13)),
                   Bits(_mm_cmplt_pd(vZ, vZero), 4 << 13));
  const __m128i vAxis = _mm_or_si128(Bits(vIsY, 1 << 11), Bits(_mm_cmpeq_pd(_mm_or_pd(vIsX, vIsY), vZero), 2 << 11));
  const auto Truncated = [](__m128d v) {  // each in the low half of its lane
    return _mm_unpacklo_epi32(_mm_cvttpd_epi32(v), _mm_setzero_si128());
  };
  const __m128i vCell = _mm_add_epi32(_mm_mul_epu32(Truncated(vI), _mm_set1_epi64x(kGrid)), Truncated(vJ));
  const __m128i vCode = _mm_add_epi32(_mm_or_si128(vSigns, vAxis), vCell);
  return _mm_or_si128(_mm_and_si128(_mm_castpd_si128(vGood), vCode),
                      _mm_andnot_si128(_mm_castpd_si128(vGood), _mm_set1_epi64x(kMeshZeroNormal)));
}

// Hands out the codes of a list of normals in order, a block at a time. Missing normals are zero normals.
class NormalCodes {
 public:
  NormalCodes(std::span<const float> vfNormal, uint32_t nNormals)
      : m_pfNormal(vfNormal.data()), m_nGiven(std::min<size_t>(vfNormal.size() / 3, nNormals)), m_nNormals(nNormals) {}

  size_t Count() const { return m_nNormals; }
  void Rewind() { m_iNext = 0; }
  // The next codes, up to kBlock; none at the end.
  std::span<const uint16_t> NextBlock() {
    const size_t nBlock = std::min(kBlock, m_nNormals - m_iNext);
    const size_t nGiven = m_iNext < m_nGiven ? std::min(nBlock, m_nGiven - m_iNext) : 0;
    const float* pf = m_pfNormal + 3 * m_iNext;
    size_t i = 0;
    for (; i + 2 <= nGiven; i += 2, pf += 6) StoreTwo(i, CodeTwo(pf, pf + 3));
    if (i < nGiven) {
      StoreTwo(i, CodeTwo(pf, pf));
      ++i;
    }
    for (; i < nBlock; ++i) m_aiCode[i] = kMeshZeroNormal;
    m_iNext += nBlock;
    return {m_aiCode, nBlock};
  }

 private:
  static constexpr size_t kBlock = 256;

  void StoreTwo(size_t i, __m128i vCodes) {
    m_aiCode[i] = static_cast<uint16_t>(_mm_extract_epi16(vCodes, 0));
    m_aiCode[i + 1] = static_cast<uint16_t>(_mm_extract_epi16(vCodes, 4));
  }

  const float* m_pfNormal;
  size_t m_nGiven;
  size_t m_nNormals;
  size_t m_iNext = 0;
  uint16_t m_aiCode[kBlock + 1];  // codes are stored in pairs
};

// Calls pfnRun(length, code) for each run of up to 255 equal codes.
template <typename Run>
void ForEachRun(NormalCodes& zCodes, Run pfnRun) {
  uint32_t iRunCode = 0;
  uint32_t nRun = 0;
  zCodes.Rewind();
  for (std::span<const uint16_t> viCode = zCodes.NextBlock(); !viCode.empty(); viCode = zCodes.NextBlock()) {
    for (const uint16_t iCode : viCode) {
      if (nRun > 0 && (iCode != iRunCode || nRun == kLongestRun)) {
        pfnRun(nRun, iRunCode);
        nRun = 0;
      }
      iRunCode = iCode;
      ++nRun;
    }
  }
  if (nRun > 0) pfnRun(nRun, iRunCode);
}

uint64_t RunBytes(NormalCodes& zCodes) {
  uint64_t nBytes = 0;
  ForEachRun(zCodes, [&](uint32_t, uint32_t) { nBytes += 3; });
  return nBytes;
}

bool TakesRunLength(uint64_t nNormals, uint64_t nRunBytes) {
  return static_cast<double>(2 * nNormals) > kPlainExcess * static_cast<double>(nRunBytes);
}

}  // namespace

uint16_t KivMeshNormalCode(float fX, float fY, float fZ) {
  const float afNormal[3] = {fX, fY, fZ};
  return static_cast<uint16_t>(_mm_extract_epi16(CodeTwo(afNormal, afNormal), 0));
}

bool KivMeshNormalOfCode(uint16_t iCode, float afNormal[3]) {
  uint32_t bInside = 1;
  StoreThree(afNormal, TheTable().At(iCode, bInside));
  return bInside != 0;
}

uint64_t KivMeshNormalStreamSize(std::span<const float> vfNormal, uint32_t nNormals) {
  NormalCodes zCodes(vfNormal, nNormals);
  const uint64_t nRunBytes = RunBytes(zCodes);
  return 1 + (TakesRunLength(nNormals, nRunBytes) ? nRunBytes : 2 * static_cast<uint64_t>(nNormals));
}

bool KivMeshPutNormalStream(KivRecordWriter& zWriter, std::span<const float> vfNormal, uint32_t nNormals) {
  NormalCodes zCodes(vfNormal, nNormals);
  const uint64_t nRunBytes = RunBytes(zCodes);
  const bool bRunLength = TakesRunLength(nNormals, nRunBytes);
  uint8_t* p = zWriter.Take(1 + (bRunLength ? nRunBytes : 2 * static_cast<uint64_t>(nNormals)));
  if (!KIV_ASSERT(p != nullptr)) return false;
  *p++ = bRunLength ? 1 : 0;
  if (bRunLength) {
    ForEachRun(zCodes, [&](uint32_t nRun, uint32_t iCode) {
      p[0] = static_cast<uint8_t>(nRun);
      KivStore<uint16_t>(p + 1, static_cast<uint16_t>(iCode));
      p += 3;
    });
    return true;
  }
  zCodes.Rewind();
  for (std::span<const uint16_t> viCode = zCodes.NextBlock(); !viCode.empty(); viCode = zCodes.NextBlock()) {
    std::memcpy(p, viCode.data(), viCode.size_bytes());
    p += viCode.size_bytes();
  }
  return true;
}

bool KivMeshGetNormalStream(KivRecordReader& zReader, uint32_t nNormals, std::vector<float>& vfNormal) {
  uint8_t iForm = 0;
  if (!KIV_ASSERT(zReader.Get(iForm))) return false;
  const size_t nFloats = 3 * static_cast<size_t>(nNormals);
  if (iForm == 1) {
    const size_t nBytes = nNormals == 0 ? 0 : MeasureRuns(zReader.At(), zReader.Remaining(), nNormals);
    if (!KIV_ASSERT(nNormals == 0 || nBytes > 0)) return false;
    const uint8_t* pGroups = zReader.Take(nBytes);
    vfNormal.resize(nFloats);
    return KIV_ASSERT_AS(DecodeRuns(pGroups, nBytes, vfNormal.data()), "iNormalCell < 45 * 45");
  }
  const uint8_t* pCodes = zReader.Take(2 * static_cast<uint64_t>(nNormals));
  if (!KIV_ASSERT(pCodes != nullptr)) return false;
  vfNormal.resize(nFloats);
  return KIV_ASSERT_AS(DecodePlain(pCodes, nNormals, vfNormal.data()), "iNormalCell < 45 * 45");
}

}  // namespace kiv
