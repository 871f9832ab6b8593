// Vertex stream of a mesh entry, behind its local flag byte:
//   local flag 1:  origin, three u16 (m_iCoordWidth 2) or three u32; then vertices of three u8, relative to it
//   otherwise:     vertices of three u8, u16 or u32 (m_iCoordWidth)
// Faces of 34 vertices and more that have vertices of bytes are delta-coded if kMeshDelta is set. The first vertex is
// three bytes, each further one takes the first class that fits its differences from the one before:
//   CLASS   LIMITS OF X / Y AND Z   BYTES (big-endian)
//   PM2     2 / 2                   0 dddddddd: (dx+2) * 25 + (dy+2) * 5 + (dz+2)
//   PM7     7 / 15                  10 xxxx yyyyy zzzzz, biased by 7 and 15
//   PM63    63 / 63                 110 xxxxxxx yyyyyyy zzzzzzz, biased by 63
//   PM255   none                    0xE0 x y z, absolute
#include <emmintrin.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

#include "KivMeshCodec.h"
#include "KivReportQuiet.h"

namespace kiv {
namespace {

constexpr char kSource[] = "src\\KivMeshCodec";

constexpr size_t kBlockVertices = 256;  // vertices that stand between bytes and floats at a time
constexpr uint64_t kFirstDeltaCoordinates = 101;
constexpr double kTwoTo52 = 4503599627370496.0;

uint32_t CellBytes(const KivMemoryBlockFaceEdgeInterfaceData& zMesh, uint8_t iLocal) {
  return iLocal == 1 ? 1 : zMesh.m_iCoordWidth;
}

uint32_t LocalOriginBytes(const KivMemoryBlockFaceEdgeInterfaceData& zMesh, uint8_t iLocal) {
  return iLocal != 1 ? 0 : zMesh.m_iCoordWidth == 2 ? 6 : 12;
}

bool IsDelta(const KivMemoryBlockFaceEdgeInterfaceData& zMesh, KivMeshEntryType eType, uint8_t iLocal,
             uint64_t nVertices) {
  return eType == KivMeshEntryType::Face && (zMesh.m_iMeshFlags & kMeshDelta) != 0 &&
         3 * nVertices >= kFirstDeltaCoordinates && CellBytes(zMesh, iLocal) == 1;
}

// --- Cells from floats and back, four vertices at a time ------------------------------------------------------------
//
// Twelve floats x y z x | y z x y | z x y z fill three registers; each holds the axes in the order of its row here.

constexpr int kAxisOfLane[3][4] = {{0, 1, 2, 0}, {1, 2, 0, 1}, {2, 0, 1, 2}};

__m128i LoadAxes(const uint32_t aiValue[3], int iRow) {
  const int* piAxis = kAxisOfLane[iRow];
  return _mm_setr_epi32(static_cast<int>(aiValue[piAxis[0]]), static_cast<int>(aiValue[piAxis[1]]),
                        static_cast<int>(aiValue[piAxis[2]]), static_cast<int>(aiValue[piAxis[3]]));
}

// Two doubles for the lanes 2 * iPair and 2 * iPair + 1 of the twelve; the six pairs repeat after three.
__m128d LoadAxisPair(const double afValue[3], int iPair) {
  return _mm_setr_pd(afValue[(2 * iPair) % 3], afValue[(2 * iPair + 1) % 3]);
}

class Quantiser {
 public:
  // Cells relative to a local origin, clamped to iLargest.
  Quantiser(const KivMemoryBlockFaceEdgeInterfaceData& zMesh, const uint32_t aiLocal[3], uint32_t iLargest) {
    m_bStepZero = zMesh.m_fStep == 0;
    const double dInverse = m_bStepZero ? 0.0 : 1.0 / static_cast<double>(zMesh.m_fStep);
    double adOrigin[3], adLow[3], adHigh[3], adAbove[3];
    for (int i = 0; i < 3; ++i) {
      adOrigin[i] = static_cast<double>(zMesh.m_fOrigin[i]);
      adLow[i] = static_cast<double>(aiLocal[i]);
      adHigh[i] = std::min(adLow[i] + iLargest, static_cast<double>(kMeshLastCell));
      adAbove[i] = adLow[i] + iLargest + 1.0;
    }
    m_vInverse = _mm_set1_pd(dInverse);
    for (int i = 0; i < 3; ++i) {
      m_avOrigin[i] = LoadAxisPair(adOrigin, i);
      m_avLow[i] = LoadAxisPair(adLow, i);
      m_avHigh[i] = LoadAxisPair(adHigh, i);
      m_avAbove[i] = LoadAxisPair(adAbove, i);
      m_avLocal[i] = LoadAxes(aiLocal, i);
    }
  }

  // nVertices vertices from pfVertex as cells of kBytes bytes.
  template <int kBytes>
  void Make(const float* pfVertex, size_t nVertices, uint8_t* pCells) {
    for (; nVertices >= 4; nVertices -= 4, pfVertex += 12, pCells += 12 * kBytes) MakeFour<kBytes>(pfVertex, pCells);
    if (nVertices == 0) return;
    float afVertex[12];
    uint8_t acCells[12 * kBytes];
    for (size_t i = 0; i < 4; ++i) std::memcpy(afVertex + 3 * i, pfVertex + (i < nVertices ? 3 * i : 0), 12);
    MakeFour<kBytes>(afVertex, acCells);
    std::memcpy(pCells, acCells, 3 * kBytes * nVertices);
  }

  // What has been found wrong so far.
  bool NotANumber() const { return m_bStepZero || Any(m_vNotANumber); }
  bool Below() const { return Any(m_vBelow); }
  bool Above() const { return Any(m_vAbove); }

 private:
  static bool Any(__m128d vMask) { return _mm_movemask_pd(vMask) != 0; }

  // The cells of two coordinates in the low halves of the two lanes.
  __m128i Two(__m128 vTwo, int iPair) {
    const __m128d vExact = _mm_mul_pd(_mm_sub_pd(_mm_cvtps_pd(vTwo), m_avOrigin[iPair]), m_vInverse);
    m_vNotANumber = _mm_or_pd(m_vNotANumber, _mm_cmpunord_pd(vExact, vExact));
    __m128d v = _mm_max_pd(vExact, _mm_setzero_pd());  // gives 0 where the value is no number
    v = _mm_min_pd(v, _mm_set1_pd(kMeshLastCell));
    m_vBelow = _mm_or_pd(m_vBelow, _mm_cmplt_pd(v, m_avLow[iPair]));
    m_vAbove = _mm_or_pd(m_vAbove, _mm_cmpge_pd(v, m_avAbove[iPair]));
    v = _mm_min_pd(_mm_max_pd(v, m_avLow[iPair]), m_avHigh[iPair]);
    // Truncation: adding 2 to the 52 rounds to the nearest integer and leaves it in the low bits.
    const __m128d vShifted = _mm_add_pd(v, _mm_set1_pd(kTwoTo52));
    const __m128d vRoundedUp = _mm_cmpgt_pd(_mm_sub_pd(vShifted, _mm_set1_pd(kTwoTo52)), v);
    return _mm_add_epi64(_mm_castpd_si128(vShifted), _mm_castpd_si128(vRoundedUp));
  }

  __m128i Four(__m128 vFour, int iRow) {
    const __m128i vLow = Two(vFour, (2 * iRow) % 3);
    const __m128i vHigh = Two(_mm_movehl_ps(vFour, vFour), (2 * iRow + 1) % 3);
    const __m128 vCells = _mm_shuffle_ps(_mm_castsi128_ps(vLow), _mm_castsi128_ps(vHigh), _MM_SHUFFLE(2, 0, 2, 0));
    return _mm_sub_epi32(_mm_castps_si128(vCells), m_avLocal[iRow]);
  }

  template <int kBytes>
  void MakeFour(const float* pfVertex, uint8_t* pCells) {
    const __m128i v0 = Four(_mm_loadu_ps(pfVertex), 0);
    const __m128i v1 = Four(_mm_loadu_ps(pfVertex + 4), 1);
    const __m128i v2 = Four(_mm_loadu_ps(pfVertex + 8), 2);
    if constexpr (kBytes == 4) {
      Store16(pCells, v0);
      Store16(pCells + 16, v1);
      Store16(pCells + 32, v2);
    } else if constexpr (kBytes == 2) {
      Store16(pCells, _mm_packs_epi32(SignedWord(v0), SignedWord(v1)));
      _mm_storel_epi64(reinterpret_cast<__m128i*>(pCells + 16), _mm_packs_epi32(SignedWord(v2), SignedWord(v2)));
    } else {
      const __m128i vBytes = _mm_packus_epi16(_mm_packs_epi32(v0, v1), _mm_packs_epi32(v2, v2));
      _mm_storel_epi64(reinterpret_cast<__m128i*>(pCells), vBytes);
      KivStore<int32_t>(pCells + 8, _mm_cvtsi128_si32(_mm_srli_si128(vBytes, 8)));
    }
  }

  static void Store16(uint8_t* pCells, __m128i v) { _mm_storeu_si128(reinterpret_cast<__m128i*>(pCells), v); }
  // The same low 16 bits as a signed number, so that the saturating pack keeps them.
  static __m128i SignedWord(__m128i v) { return _mm_srai_epi32(_mm_slli_epi32(v, 16), 16); }

  bool m_bStepZero;
  __m128d m_vInverse;
  __m128d m_avOrigin[3];
  __m128d m_avLow[3];    // smallest cell
  __m128d m_avHigh[3];   // largest cell
  __m128d m_avAbove[3];  // from here on a cell is too large
  __m128i m_avLocal[3];
  __m128d m_vNotANumber = _mm_setzero_pd();
  __m128d m_vBelow = _mm_setzero_pd();
  __m128d m_vAbove = _mm_setzero_pd();
};

class Restorer {
 public:
  Restorer(const KivMemoryBlockFaceEdgeInterfaceData& zMesh, const uint32_t aiLocal[3]) {
    double adOrigin[3];
    for (int i = 0; i < 3; ++i) adOrigin[i] = static_cast<double>(zMesh.m_fOrigin[i]);
    m_vStep = _mm_set1_pd(static_cast<double>(zMesh.m_fStep));
    for (int i = 0; i < 3; ++i) {
      m_avOrigin[i] = LoadAxisPair(adOrigin, i);
      m_avLocal[i] = Float(LoadAxes(aiLocal, i));
    }
  }

  template <int kBytes>
  void Make(const uint8_t* pCells, size_t nVertices, float* pfVertex) const {
    for (; nVertices >= 4; nVertices -= 4, pCells += 12 * kBytes, pfVertex += 12) MakeFour<kBytes>(pCells, pfVertex);
    if (nVertices == 0) return;
    uint8_t acCells[12 * kBytes] = {};
    float afVertex[12];
    std::memcpy(acCells, pCells, 3 * kBytes * nVertices);
    MakeFour<kBytes>(acCells, afVertex);
    std::memcpy(pfVertex, afVertex, 12 * nVertices);
  }

 private:
  // Unsigned cells, correctly rounded: both halves are exact, and so is their product with 65536.
  static __m128 Float(__m128i v) {
    const __m128 vHigh = _mm_cvtepi32_ps(_mm_srli_epi32(v, 16));
    const __m128 vLow = _mm_cvtepi32_ps(_mm_and_si128(v, _mm_set1_epi32(0xFFFF)));
    return _mm_add_ps(_mm_mul_ps(vHigh, _mm_set1_ps(65536.0f)), vLow);
  }

  __m128 Centre(__m128 vCell, int iRow) const {
    const __m128 v = _mm_add_ps(_mm_add_ps(vCell, _mm_set1_ps(0.5f)), m_avLocal[iRow]);
    const __m128d vLow = _mm_add_pd(_mm_mul_pd(_mm_cvtps_pd(v), m_vStep), m_avOrigin[(2 * iRow) % 3]);
    const __m128d vHigh =
        _mm_add_pd(_mm_mul_pd(_mm_cvtps_pd(_mm_movehl_ps(v, v)), m_vStep), m_avOrigin[(2 * iRow + 1) % 3]);
    return _mm_movelh_ps(_mm_cvtpd_ps(vLow), _mm_cvtpd_ps(vHigh));
  }

  template <int kBytes>
  void MakeFour(const uint8_t* pCells, float* pfVertex) const {
    const __m128i vZero = _mm_setzero_si128();
    __m128 v0, v1, v2;
    if constexpr (kBytes == 4) {
      v0 = Float(Load16(pCells));
      v1 = Float(Load16(pCells + 16));
      v2 = Float(Load16(pCells + 32));
    } else {
      __m128i v01, v23;  // the cells as words
      if constexpr (kBytes == 2) {
        v01 = Load16(pCells);
        v23 = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(pCells + 16));
      } else {
        v01 = _mm_unpacklo_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(pCells)), vZero);
        v23 = _mm_unpacklo_epi8(_mm_cvtsi32_si128(KivLoad<int32_t>(pCells + 8)), vZero);
      }
      v0 = _mm_cvtepi32_ps(_mm_unpacklo_epi16(v01, vZero));
      v1 = _mm_cvtepi32_ps(_mm_unpackhi_epi16(v01, vZero));
      v2 = _mm_cvtepi32_ps(_mm_unpacklo_epi16(v23, vZero));
    }
    _mm_storeu_ps(pfVertex, Centre(v0, 0));
    _mm_storeu_ps(pfVertex + 4, Centre(v1, 1));
    _mm_storeu_ps(pfVertex + 8, Centre(v2, 2));
  }

  static __m128i Load16(const uint8_t* pCells) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(pCells)); }

  __m128d m_vStep;
  __m128d m_avOrigin[3];
  __m128 m_avLocal[3];
};

// --- Bounding box and local origin ----------------------------------------------------------------------------------

struct Bounds {
  float m_afLow[3];
  float m_afHigh[3];
};

// The entry's box. The element's opposite corners come first, so that an empty side never makes the entry larger.
Bounds MeasureBounds(const float afBox[6], std::span<const float> vfVertex) {
  Bounds zBounds;
  for (int i = 0; i < 3; ++i) {
    zBounds.m_afLow[i] = afBox[3 + i];
    zBounds.m_afHigh[i] = afBox[i];
  }
  const float* pf = vfVertex.data();
  size_t nVertices = vfVertex.size() / 3;
  if (nVertices >= 4) {
    __m128 avLow[3], avHigh[3];
    for (int i = 0; i < 3; ++i) {
      const int* piAxis = kAxisOfLane[i];
      avLow[i] = _mm_setr_ps(zBounds.m_afLow[piAxis[0]], zBounds.m_afLow[piAxis[1]], zBounds.m_afLow[piAxis[2]],
                             zBounds.m_afLow[piAxis[3]]);
      avHigh[i] = _mm_setr_ps(zBounds.m_afHigh[piAxis[0]], zBounds.m_afHigh[piAxis[1]], zBounds.m_afHigh[piAxis[2]],
                              zBounds.m_afHigh[piAxis[3]]);
    }
    for (; nVertices >= 4; nVertices -= 4, pf += 12) {
      for (int i = 0; i < 3; ++i) {  // a coordinate that is no number leaves the bound as it is
        const __m128 v = _mm_loadu_ps(pf + 4 * i);
        avLow[i] = _mm_min_ps(v, avLow[i]);
        avHigh[i] = _mm_max_ps(v, avHigh[i]);
      }
    }
    for (int i = 0; i < 3; ++i) {
      alignas(16) float afLow[4], afHigh[4];
      _mm_store_ps(afLow, avLow[i]);
      _mm_store_ps(afHigh, avHigh[i]);
      for (int k = 0; k < 4; ++k) {
        const int iAxis = kAxisOfLane[i][k];
        if (afLow[k] < zBounds.m_afLow[iAxis]) zBounds.m_afLow[iAxis] = afLow[k];
        if (afHigh[k] > zBounds.m_afHigh[iAxis]) zBounds.m_afHigh[iAxis] = afHigh[k];
      }
    }
  }
  for (; nVertices > 0; --nVertices, pf += 3) {
    for (int i = 0; i < 3; ++i) {
      if (pf[i] < zBounds.m_afLow[i]) zBounds.m_afLow[i] = pf[i];
      if (pf[i] > zBounds.m_afHigh[i]) zBounds.m_afHigh[i] = pf[i];
    }
  }
  return zBounds;
}

// The cell of one coordinate; bFault is set, and 0 given, where there is none.
uint32_t CellOf(float fCoordinate, float fOrigin, float fStep, bool& bFault) {
  const double dInverse = fStep == 0 ? 0.0 : 1.0 / static_cast<double>(fStep);
  const double d = (static_cast<double>(fCoordinate) - static_cast<double>(fOrigin)) * dInverse;
  if (fStep == 0 || std::isnan(d)) {
    bFault = true;
    return 0;
  }
  return static_cast<uint32_t>(std::min(std::max(d, 0.0), static_cast<double>(kMeshLastCell)));
}

struct LocalOrigin {
  uint32_t m_aiCell[3] = {0, 0, 0};
  bool m_bNotANumber = false;
  bool m_bClamped = false;
};

LocalOrigin LocalOriginOf(const KivMemoryBlockFaceEdgeInterfaceData& zMesh, const float afBox[6], uint8_t iLocal,
                          std::span<const float> vfVertex) {
  LocalOrigin zOrigin;
  if (iLocal != 1) return zOrigin;
  const Bounds zBounds = MeasureBounds(afBox, vfVertex);
  for (int i = 0; i < 3; ++i) {
    uint32_t iCell = CellOf(zBounds.m_afLow[i], zMesh.m_fOrigin[i], zMesh.m_fStep, zOrigin.m_bNotANumber);
    if (zMesh.m_iCoordWidth == 2 && iCell > 0xFFFF) {
      zOrigin.m_bClamped = true;
      iCell = 0xFFFF;
    }
    zOrigin.m_aiCell[i] = iCell;
  }
  return zOrigin;
}

// --- Delta form -----------------------------------------------------------------------------------------------------

struct Difference {
  int m_iX, m_iY, m_iZ;
  bool IsPM2() const { return AllWithin(2, 2, 2); }
  bool IsPM7() const { return AllWithin(7, 15, 15); }
  bool IsPM63() const { return AllWithin(63, 63, 63); }

 private:
  // All three tests are made and joined by bits: a branch on each costs more.
  bool AllWithin(int iX, int iY, int iZ) const { return (Within(m_iX, iX) & Within(m_iY, iY) & Within(m_iZ, iZ)) != 0; }
  static unsigned Within(int i, int iLimit) {
    return static_cast<unsigned>(i + iLimit) <= static_cast<unsigned>(2 * iLimit) ? 1 : 0;
  }
};

Difference DifferenceOf(const uint8_t* pBefore, const uint8_t* pNow) {
  return {pNow[0] - pBefore[0], pNow[1] - pBefore[1], pNow[2] - pBefore[2]};
}

// Calls pfnBlock(cells, number of vertices, true for the first) for the vertices' byte cells, block by block. Each
// block is preceded by the vertex before it.
template <typename Block>
bool ForEachBlock(Quantiser& zQuantiser, std::span<const float> vfVertex, Block pfnBlock) {
  uint8_t acCells[3 * (kBlockVertices + 1)] = {};
  const size_t nVertices = vfVertex.size() / 3;
  for (size_t iFirst = 0; iFirst < nVertices; iFirst += kBlockVertices) {
    const size_t nBlock = std::min(kBlockVertices, nVertices - iFirst);
    zQuantiser.Make<1>(vfVertex.data() + 3 * iFirst, nBlock, acCells + 3);
    if (!pfnBlock(acCells + 3, nBlock, iFirst == 0)) return false;
    std::memcpy(acCells, acCells + 3 * nBlock, 3);
  }
  return true;
}

uint64_t DeltaSize(Quantiser& zQuantiser, std::span<const float> vfVertex) {
  uint64_t nBytes = 0;
  ForEachBlock(zQuantiser, vfVertex, [&](const uint8_t* pCells, size_t nBlock, bool bFirst) {
    size_t i = 0;
    if (bFirst) {
      nBytes += 3;
      i = 1;
    }
    for (; i < nBlock; ++i) {
      const Difference z = DifferenceOf(pCells + 3 * i - 3, pCells + 3 * i);
      nBytes += 1u + !z.IsPM2() + !z.IsPM7() + !z.IsPM63();  // each class holds the ones before it
    }
    return true;
  });
  return nBytes;
}

// The bytes of one vertex in the upper end of the word; gives their number.
inline unsigned CodeVertex(const uint8_t* pBefore, const uint8_t* pNow, uint32_t& iWord) {
  const Difference z = DifferenceOf(pBefore, pNow);
  if (z.IsPM2()) {
    iWord = static_cast<uint32_t>((z.m_iX + 2) * 25 + (z.m_iY + 2) * 5 + (z.m_iZ + 2)) << 24;
    return 1;
  }
  if (z.IsPM7()) {
    iWord = (0x8000u + static_cast<uint32_t>((z.m_iX + 7) * 1024 + (z.m_iY + 15) * 32 + (z.m_iZ + 15))) << 16;
    return 2;
  }
  if (z.IsPM63()) {
    iWord = (0xC00000u + static_cast<uint32_t>((z.m_iX + 63) * 16384 + (z.m_iY + 63) * 128 + (z.m_iZ + 63))) << 8;
    return 3;
  }
  iWord = 0xE0000000u | static_cast<uint32_t>(pNow[0]) << 16 | static_cast<uint32_t>(pNow[1]) << 8 | pNow[2];
  return 4;
}

bool PutDelta(KivRecordWriter& zWriter, Quantiser& zQuantiser, std::span<const float> viVertexPoint) {
  if (!KIV_ASSERT(viVertexPoint.size() > 0 && 3 * (viVertexPoint.size() / 3) == viVertexPoint.size())) return false;
  return ForEachBlock(zQuantiser, viVertexPoint, [&](const uint8_t* pCells, size_t nBlock, bool bFirst) {
    size_t i = 0;
    if (bFirst) {
      if (!KIV_ASSERT(zWriter.PutBytes(pCells, 3))) return false;
      i = 1;
    }
    for (; i < nBlock; ++i) {
      uint32_t iWord;
      const unsigned nBytes = CodeVertex(pCells + 3 * i - 3, pCells + 3 * i, iWord);
      iWord = __builtin_bswap32(iWord);
      if (zWriter.Remaining() >= 4) {
        KivStore<uint32_t>(zWriter.At(), iWord);
        zWriter.Skip(nBytes);
      } else if (!KIV_ASSERT(zWriter.PutBytes(&iWord, nBytes))) {
        return false;
      }
    }
    return true;
  });
}

// Three bytes side by side in a word, x lowest, added without carry between them.
constexpr uint32_t PackBytes(int iX, int iY, int iZ) {
  return (static_cast<uint32_t>(iX) & 0xFF) | (static_cast<uint32_t>(iY) & 0xFF) << 8 |
         (static_cast<uint32_t>(iZ) & 0xFF) << 16;
}
inline uint32_t AddBytes(uint32_t iA, uint32_t iB) {
  return ((iA & 0x7F7F7Fu) + (iB & 0x7F7F7Fu)) ^ ((iA ^ iB) & 0x808080u);
}

constexpr auto kPM2Differences = [] {
  std::array<uint32_t, 128> aiPacked{};
  for (int i = 0; i < 128; ++i) aiPacked[static_cast<size_t>(i)] = PackBytes(i / 25 - 2, i / 5 % 5 - 2, i % 5 - 2);
  return aiPacked;
}();

// The vertex that the bytes at the upper end of iWord make of the one before; gives their number.
inline unsigned DecodeVertex(uint32_t iWord, uint32_t& iVertex) {
  if (iWord < 0x80000000u) {
    iVertex = AddBytes(iVertex, kPM2Differences[iWord >> 24]);
    return 1;
  }
  if (iWord < 0xC0000000u) {
    const int i = static_cast<int>(iWord >> 16);
    iVertex = AddBytes(iVertex, PackBytes((i >> 10 & 15) - 7, (i >> 5 & 31) - 15, (i & 31) - 15));
    return 2;
  }
  if (iWord < 0xE0000000u) {
    const int i = static_cast<int>(iWord >> 8);
    iVertex = AddBytes(iVertex, PackBytes((i >> 14 & 127) - 63, (i >> 7 & 127) - 63, (i & 127) - 63));
    return 3;
  }
  iVertex = PackBytes(static_cast<int>(iWord >> 16), static_cast<int>(iWord >> 8), static_cast<int>(iWord));
  return 4;
}

bool GetDelta(KivRecordReader& zReader, const Restorer& zRestorer, size_t nVertices, float* pfVertex) {
  const uint8_t* pFirst = zReader.Take(3);
  if (!KIV_ASSERT(pFirst != nullptr)) return false;
  uint8_t acCells[3 * kBlockVertices + 1];  // each vertex is stored with a byte behind it
  uint32_t iVertex = PackBytes(pFirst[0], pFirst[1], pFirst[2]);
  const uint8_t* p = zReader.At();
  const uint8_t* const pEnd = p + zReader.Remaining();
  size_t iNow = 0;
  KivStore<uint32_t>(acCells, iVertex);
  for (size_t iFirst = 0; iFirst < nVertices; iFirst += kBlockVertices, iNow = 0) {
    const size_t nBlock = std::min(kBlockVertices, nVertices - iFirst);
    if (iFirst == 0) iNow = 1;
    for (; iNow < nBlock && pEnd - p >= 4; ++iNow) {
      p += DecodeVertex(__builtin_bswap32(KivLoad<uint32_t>(p)), iVertex);
      KivStore<uint32_t>(acCells + 3 * iNow, iVertex);
    }
    for (; iNow < nBlock; ++iNow) {  // the last bytes of the record
      const size_t nLeft = std::min<size_t>(static_cast<size_t>(pEnd - p), 4);
      uint32_t iWord = 0;
      std::memcpy(&iWord, p, nLeft);
      const size_t nBytes = DecodeVertex(__builtin_bswap32(iWord), iVertex);
      if (!KIV_ASSERT(nLeft > 0 && nBytes <= nLeft)) return false;
      p += nBytes;
      KivStore<uint32_t>(acCells + 3 * iNow, iVertex);
    }
    zRestorer.Make<1>(acCells, nBlock, pfVertex + 3 * iFirst);
  }
  return zReader.MoveTo(zReader.Offset() + static_cast<size_t>(p - zReader.At()));
}

constexpr uint32_t LargestCell(uint32_t nBytes) {
  return nBytes == 1 ? 0xFF : nBytes == 2 ? 0xFFFF : kMeshLastCell;
}

bool IsWidth(uint32_t nBytes) {
  return nBytes == 1 || nBytes == 2 || nBytes == 4;
}

}  // namespace

uint32_t KivMeshQuantise(float fCoordinate, float fOrigin, float fStep) {
  bool bFault = false;
  const uint32_t iCell = CellOf(fCoordinate, fOrigin, fStep, bFault);
  KIV_ASSERT_AS(!bFault, "fStep != 0 && fCoordinate == fCoordinate");
  return iCell;
}

float KivMeshCellCentre(uint32_t iCell, float fOrigin, float fStep) {
  return static_cast<float>(static_cast<double>(static_cast<float>(iCell) + 0.5f) * static_cast<double>(fStep) +
                            static_cast<double>(fOrigin));
}

uint8_t KivMeshIsLocal(const KivMemoryBlockFaceEdgeInterfaceData& zMesh, const float afBox[6],
                       std::span<const float> vfVertex) {
  if ((zMesh.m_iCoordWidth != 2 && zMesh.m_iCoordWidth != 4) || vfVertex.empty()) return 0;
  const Bounds zBounds = MeasureBounds(afBox, vfVertex);
  const float fLimit = zMesh.m_fStep * 250.0f;
  for (int i = 0; i < 3; ++i)
    if (!(zBounds.m_afHigh[i] - zBounds.m_afLow[i] < fLimit)) return 0;
  return 1;
}

uint64_t KivMeshVertexStreamSize(const KivMemoryBlockFaceEdgeInterfaceData& zMesh, KivMeshEntryType eType,
                                 const float afBox[6], uint8_t iLocal, std::span<const float> vfVertex) {
  const uint64_t nOrigin = LocalOriginBytes(zMesh, iLocal);
  if (!IsDelta(zMesh, eType, iLocal, vfVertex.size() / 3)) return nOrigin + vfVertex.size() * CellBytes(zMesh, iLocal);
  const LocalOrigin zOrigin = LocalOriginOf(zMesh, afBox, iLocal, vfVertex);
  Quantiser zQuantiser(zMesh, zOrigin.m_aiCell, 0xFF);
  return nOrigin + DeltaSize(zQuantiser, vfVertex);
}

bool KivMeshPutVertexStream(KivRecordWriter& zWriter, const KivMemoryBlockFaceEdgeInterfaceData& zMesh,
                            KivMeshEntryType eType, const float afBox[6], uint8_t iLocal,
                            std::span<const float> vfVertex) {
  const uint32_t nCellBytes = CellBytes(zMesh, iLocal);
  if (!KIV_ASSERT(IsWidth(zMesh.m_iCoordWidth))) return false;
  const LocalOrigin zOrigin = LocalOriginOf(zMesh, afBox, iLocal, vfVertex);
  if (iLocal == 1) {
    KIV_ASSERT_AS(!zOrigin.m_bClamped, "iLocalOrigin <= 65535");
    for (const uint32_t iCell : zOrigin.m_aiCell) {
      const bool bPut =
          zMesh.m_iCoordWidth == 2 ? zWriter.Put<uint16_t>(static_cast<uint16_t>(iCell)) : zWriter.Put<uint32_t>(iCell);
      if (!KIV_ASSERT(bPut)) return false;
    }
  }
  const size_t nVertices = vfVertex.size() / 3;
  Quantiser zQuantiser(zMesh, zOrigin.m_aiCell, LargestCell(nCellBytes));
  if (IsDelta(zMesh, eType, iLocal, nVertices)) {
    if (!PutDelta(zWriter, zQuantiser, vfVertex)) return false;
  } else if (nVertices > 0) {
    uint8_t* pCells = zWriter.Take(3 * static_cast<uint64_t>(nVertices) * nCellBytes);
    if (!KIV_ASSERT(pCells != nullptr)) return false;
    if (nCellBytes == 1) zQuantiser.Make<1>(vfVertex.data(), nVertices, pCells);
    if (nCellBytes == 2) zQuantiser.Make<2>(vfVertex.data(), nVertices, pCells);
    if (nCellBytes == 4) zQuantiser.Make<4>(vfVertex.data(), nVertices, pCells);
  }
  KIV_ASSERT_AS(!zQuantiser.NotANumber() && !zOrigin.m_bNotANumber, "fStep != 0 && fCoordinate == fCoordinate");
  KIV_ASSERT_AS(!zQuantiser.Below(), "iCell >= iLocalOrigin");
  if (nCellBytes == 1) KIV_ASSERT_AS(!zQuantiser.Above(), "iCell <= 255");
  if (nCellBytes == 2) KIV_ASSERT_AS(!zQuantiser.Above(), "iCell <= 65535");
  return true;
}

bool KivMeshGetVertexStream(KivRecordReader& zReader, const KivMemoryBlockFaceEdgeInterfaceData& zMesh,
                            KivMeshEntryType eType, uint8_t iLocal, uint32_t nVertices, std::vector<float>& vfVertex) {
  const uint32_t nCellBytes = CellBytes(zMesh, iLocal);
  if (!KIV_ASSERT(IsWidth(zMesh.m_iCoordWidth))) return false;
  uint32_t aiLocal[3] = {0, 0, 0};
  if (iLocal == 1) {
    const uint8_t* pOrigin = zReader.Take(LocalOriginBytes(zMesh, iLocal));
    if (!KIV_ASSERT(pOrigin != nullptr)) return false;
    for (int i = 0; i < 3; ++i)
      aiLocal[i] = zMesh.m_iCoordWidth == 2 ? KivLoad<uint16_t>(pOrigin + 2 * i) : KivLoad<uint32_t>(pOrigin + 4 * i);
  }
  const Restorer zRestorer(zMesh, aiLocal);
  if (IsDelta(zMesh, eType, iLocal, nVertices)) {
    if (!KIV_ASSERT(nVertices <= zReader.Remaining())) return false;  // a byte per vertex at the least
    vfVertex.resize(3 * static_cast<size_t>(nVertices));
    return GetDelta(zReader, zRestorer, nVertices, vfVertex.data());
  }
  const uint8_t* pCells = zReader.Take(3 * static_cast<uint64_t>(nVertices) * nCellBytes);
  if (!KIV_ASSERT(pCells != nullptr)) return false;
  vfVertex.resize(3 * static_cast<size_t>(nVertices));
  if (nCellBytes == 1) zRestorer.Make<1>(pCells, nVertices, vfVertex.data());
  if (nCellBytes == 2) zRestorer.Make<2>(pCells, nVertices, vfVertex.data());
  if (nCellBytes == 4) zRestorer.Make<4>(pCells, nVertices, vfVertex.data());
  return true;
}

}  // namespace kiv
