// Normal stream of a mesh entry:
//   OFFSET   SIZE   FIELD
//   0        1      1: run-length form, anything else: plain form
//   1        2      plain form: a code for each normal
//   1        3      run-length form: groups of u8 count and u16 code
// Code, from the top: 3 bits of signs (z y x), 2 bits of the axis m of the largest component (3: zero normal), 11 bits
// of the cell i * 45 + j, where i / 44 and j / 44 are the ratios of the components m + 1 and m + 2 (modulo 3) to it.
#include <emmintrin.h>

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

inline uint32_t CodeOf(const float* pfNormal) {
  const double adAbs[3] = {std::fabs(static_cast<double>(pfNormal[0])), std::fabs(static_cast<double>(pfNormal[1])),
                           std::fabs(static_cast<double>(pfNormal[2]))};
  const uint32_t iSigns = (pfNormal[0] < 0 ? 1u : 0u) | (pfNormal[1] < 0 ? 2u : 0u) | (pfNormal[2] < 0 ? 4u : 0u);
  const bool bXNotBelowY = adAbs[0] >= adAbs[1];
  double dMajor = bXNotBelowY ? adAbs[0] : adAbs[1];
  double dNext = bXNotBelowY ? adAbs[1] : adAbs[2];
  double dLast = bXNotBelowY ? adAbs[2] : adAbs[0];
  uint32_t iAxis = bXNotBelowY ? 0 : 1;
  if (bXNotBelowY ? adAbs[2] > adAbs[0] : !(adAbs[1] >= adAbs[2])) {
    iAxis = 2;
    dMajor = adAbs[2];
    dNext = adAbs[0];
    dLast = adAbs[1];
  }
  if (!(dMajor >= kSmallestComponent)) return kMeshZeroNormal;
  const double dScale = kCodeScale / dMajor;
  const double dI = dNext * dScale;
  const double dJ = dLast * dScale;
  if (!(dI < kGrid && dJ < kGrid)) return kMeshZeroNormal;  // a component is no number, or the ratio of two infinities
  return ((iSigns * 4 + iAxis) << 11) + static_cast<uint32_t>(dI) * kGrid + static_cast<uint32_t>(dJ);
}

// Missing normals are zero normals.
class NormalCodes {
 public:
  NormalCodes(std::span<const float> vfNormal, uint32_t nNormals)
      : m_pfNormal(vfNormal.data()), m_nGiven(vfNormal.size() / 3), m_nNormals(nNormals) {}
  size_t Count() const { return m_nNormals; }
  uint32_t operator[](size_t i) const { return i < m_nGiven ? CodeOf(m_pfNormal + 3 * i) : kMeshZeroNormal; }

 private:
  const float* m_pfNormal;
  size_t m_nGiven;
  size_t m_nNormals;
};

uint64_t CountRuns(const NormalCodes& zCodes) {
  uint64_t nRuns = 0;
  uint32_t iRunCode = 0x10000;  // none
  uint32_t nRun = 0;
  for (size_t i = 0; i < zCodes.Count(); ++i) {
    const uint32_t iCode = zCodes[i];
    if (iCode != iRunCode || nRun == kLongestRun) {
      ++nRuns;
      iRunCode = iCode;
      nRun = 0;
    }
    ++nRun;
  }
  return nRuns;
}

bool TakesRunLength(uint64_t nNormals, uint64_t nRunBytes) {
  return static_cast<double>(2 * nNormals) > kPlainExcess * static_cast<double>(nRunBytes);
}

void PutGroup(uint8_t*& p, uint32_t nRun, uint32_t iCode) {
  p[0] = static_cast<uint8_t>(nRun);
  KivStore<uint16_t>(p + 1, static_cast<uint16_t>(iCode));
  p += 3;
}

}  // namespace

uint16_t KivMeshNormalCode(float fX, float fY, float fZ) {
  const float afNormal[3] = {fX, fY, fZ};
  return static_cast<uint16_t>(CodeOf(afNormal));
}

bool KivMeshNormalOfCode(uint16_t iCode, float afNormal[3]) {
  uint32_t bInside = 1;
  StoreThree(afNormal, TheTable().At(iCode, bInside));
  return bInside != 0;
}

uint64_t KivMeshNormalStreamSize(std::span<const float> vfNormal, uint32_t nNormals) {
  const uint64_t nRunBytes = 3 * CountRuns(NormalCodes(vfNormal, nNormals));
  return 1 + (TakesRunLength(nNormals, nRunBytes) ? nRunBytes : 2 * static_cast<uint64_t>(nNormals));
}

bool KivMeshPutNormalStream(KivRecordWriter& zWriter, std::span<const float> vfNormal, uint32_t nNormals) {
  const NormalCodes zCodes(vfNormal, nNormals);
  const uint64_t nRunBytes = 3 * CountRuns(zCodes);
  const bool bRunLength = TakesRunLength(nNormals, nRunBytes);
  uint8_t* p = zWriter.Take(1 + (bRunLength ? nRunBytes : 2 * static_cast<uint64_t>(nNormals)));
  if (!KIV_ASSERT(p != nullptr)) return false;
  *p++ = bRunLength ? 1 : 0;
  if (!bRunLength) {
    for (size_t i = 0; i < zCodes.Count(); ++i, p += 2) KivStore<uint16_t>(p, static_cast<uint16_t>(zCodes[i]));
    return true;
  }
  uint32_t iRunCode = zCodes[0];
  uint32_t nRun = 0;
  for (size_t i = 0; i < zCodes.Count(); ++i) {
    const uint32_t iCode = zCodes[i];
    if (iCode != iRunCode || nRun == kLongestRun) {
      PutGroup(p, nRun, iRunCode);
      iRunCode = iCode;
      nRun = 0;
    }
    ++nRun;
  }
  PutGroup(p, nRun, iRunCode);
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
