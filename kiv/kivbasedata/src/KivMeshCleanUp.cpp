#include "KivMeshCleanUp.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <vector>

#include "KivReportQuiet.h"

namespace kiv {
namespace {

constexpr char kSource[] = "src\\KivMeshCleanUp";
constexpr uint32_t kNone = 0xFFFFFFFF;

bool SamePoint(const uint32_t* piA, const uint32_t* piB) {
  return piA[0] == piB[0] && piA[1] == piB[1] && piA[2] == piB[2];
}

// Finds the first of equal points: open addressing, at most half full.
class PointTable {
 public:
  PointTable(const uint32_t* piPoint, uint32_t nPoints)
      : m_piPoint(piPoint), m_viSlot(std::bit_ceil(2 * static_cast<size_t>(nPoints) + 2), kNone) {}

  // The point equal to iPoint that came first; iPoint itself if it is the first.
  uint32_t FirstOf(uint32_t iPoint) {
    const uint32_t* pi = m_piPoint + 3 * static_cast<size_t>(iPoint);
    const size_t iMask = m_viSlot.size() - 1;
    size_t iSlot = Hash(pi) & iMask;
    while (m_viSlot[iSlot] != kNone) {
      if (SamePoint(m_piPoint + 3 * static_cast<size_t>(m_viSlot[iSlot]), pi)) return m_viSlot[iSlot];
      iSlot = (iSlot + 1) & iMask;
    }
    m_viSlot[iSlot] = iPoint;
    return iPoint;
  }

 private:
  static size_t Hash(const uint32_t* pi) {
    uint64_t i = pi[0] * 0x9E3779B97F4A7C15u ^ std::rotl(pi[1] * 0xC2B2AE3D27D4EB4Fu, 21);
    i ^= std::rotl(pi[2] * 0x165667B19E3779F9u, 42);
    i ^= i >> 32;
    i *= 0xD6E8FEB86659FD93u;
    return static_cast<size_t>(i ^ i >> 32);
  }

  const uint32_t* m_piPoint;
  std::vector<uint32_t> m_viSlot;
};

bool IndicesWithin(uint32_t nTriangles, const uint32_t* piTriangle, uint32_t nVertices) {
  for (size_t i = 0; i < 3 * static_cast<size_t>(nTriangles); ++i)
    if (piTriangle[i] >= nVertices) return false;
  return true;
}

// viMap tells for each vertex the survivor that it is now (itself if it survives).
uint32_t CloseUp(uint32_t nTriangles, uint32_t* piTriangle, uint32_t nVertices, uint32_t* piPoint,
                 KivWeldVertex* pzVertex, const std::vector<uint32_t>& viMap) {
  std::vector<uint32_t> viShiftNum(nVertices);
  uint32_t nRemoved = 0;
  for (uint32_t i = 0; i < nVertices; ++i) {
    viShiftNum[i] = nRemoved;
    if (viMap[i] != i) {
      ++nRemoved;
      if (pzVertex != nullptr) {
        KivWeldVertex& zInto = pzVertex[viMap[i]];
        zInto.m_zNormal += pzVertex[i].m_zNormal;
        zInto.m_iMergeNum += pzVertex[i].m_iMergeNum;
      }
    }
  }
  for (uint32_t i = 0; i < nVertices; ++i) {
    if (viMap[i] != i || viShiftNum[i] == 0) continue;
    const uint32_t iNow = i - viShiftNum[i];
    std::memcpy(piPoint + 3 * static_cast<size_t>(iNow), piPoint + 3 * static_cast<size_t>(i), 3 * sizeof(uint32_t));
    if (pzVertex != nullptr) pzVertex[iNow] = pzVertex[i];
  }
  for (size_t i = 0; i < 3 * static_cast<size_t>(nTriangles); ++i) {
    const uint32_t k = viMap[piTriangle[i]];
    KIV_ASSERT(k >= viShiftNum[k]);
    piTriangle[i] = k - viShiftNum[k];
  }
  const uint32_t nLeft = nVertices - nRemoved;
  for (uint32_t i = 0; pzVertex != nullptr && i < nLeft; ++i) {
    if (pzVertex[i].m_iMergeNum <= 1) continue;
    pzVertex[i].m_zNormal.Normalise();
    pzVertex[i].m_iMergeNum = 1;
  }
  return nLeft;
}

uint32_t WeldAll(uint32_t nTriangles, uint32_t* piTriangle, uint32_t nVertices, uint32_t* piPoint,
                 KivWeldVertex* pzVertex) {
  if (!KIV_ASSERT(IndicesWithin(nTriangles, piTriangle, nVertices))) return nVertices;
  std::vector<uint32_t> viMap(nVertices);
  PointTable zTable(piPoint, nVertices);
  for (uint32_t i = 0; i < nVertices; ++i) viMap[i] = zTable.FirstOf(i);
  return CloseUp(nTriangles, piTriangle, nVertices, piPoint, pzVertex, viMap);
}

// The edges of all triangles, the later vertex in the upper half, sorted: the earlier neighbours of a vertex stand
// together and in order.
std::vector<uint64_t> SortedEdges(uint32_t nTriangles, const uint32_t* piTriangle) {
  std::vector<uint64_t> viEdge;
  viEdge.reserve(3 * static_cast<size_t>(nTriangles));
  for (uint32_t i = 0; i < nTriangles; ++i, piTriangle += 3) {
    for (int k = 0; k < 3; ++k) {
      const uint32_t iA = piTriangle[k];
      const uint32_t iB = piTriangle[(k + 1) % 3];
      viEdge.push_back(static_cast<uint64_t>(std::max(iA, iB)) << 32 | std::min(iA, iB));
    }
  }
  std::sort(viEdge.begin(), viEdge.end());
  return viEdge;
}

}  // namespace

uint32_t KivDropConsecutivePoints(float* pfPoint, uint32_t nCount, bool bKeepTwo) {
  if (nCount < 2) return nCount;
  constexpr size_t kPointBytes = 3 * sizeof(float);
  float* pfKept = pfPoint;
  for (uint32_t i = 1; i < nCount; ++i) {
    const float* pfNow = pfPoint + 3 * static_cast<size_t>(i);
    if (std::memcmp(pfKept, pfNow, kPointBytes) == 0) continue;
    pfKept += 3;
    if (pfKept != pfNow) std::memcpy(pfKept, pfNow, kPointBytes);
  }
  const uint32_t nKept = static_cast<uint32_t>((pfKept - pfPoint) / 3) + 1;
  return bKeepTwo ? std::max(nKept, 2u) : nKept;  // of equal points the second one still stands in its place
}

uint32_t KivDropDegenerateTriangles(uint32_t nCount, uint32_t* piTriangle, uint16_t* piValue, bool bKeepOne) {
  const auto Different = [&](uint32_t i) {
    const uint32_t* pi = piTriangle + 3 * static_cast<size_t>(i);
    if (pi[0] == pi[1]) return pi[1] == pi[2] ? 1 : 2;
    return pi[0] == pi[2] || pi[1] == pi[2] ? 2 : 3;
  };
  const auto KeepFrom = [&](int nLeast) {
    uint32_t nKept = 0;
    for (uint32_t i = 0; i < nCount; ++i) {
      if (Different(i) < nLeast) continue;
      std::memmove(piTriangle + 3 * static_cast<size_t>(nKept), piTriangle + 3 * static_cast<size_t>(i),
                   3 * sizeof(uint32_t));
      if (piValue != nullptr) piValue[nKept] = piValue[i];
      ++nKept;
    }
    return nKept;
  };
  uint32_t nKept = KeepFrom(3);
  if (nKept == 0 && bKeepOne) nKept = KeepFrom(2);
  if (nKept == 0 && bKeepOne) nKept = std::min(nCount, 1u);
  return nKept;
}

uint32_t KivDropRepeatedPoints(uint32_t nCount, uint32_t* piPoint, uint16_t* piValue) {
  std::vector<bool> vbFirst(nCount);
  PointTable zTable(piPoint, nCount);
  for (uint32_t i = 0; i < nCount; ++i) vbFirst[i] = zTable.FirstOf(i) == i;
  uint32_t nKept = 0;
  for (uint32_t i = 0; i < nCount; ++i) {
    if (!vbFirst[i]) continue;
    std::memmove(piPoint + 3 * static_cast<size_t>(nKept), piPoint + 3 * static_cast<size_t>(i), 3 * sizeof(uint32_t));
    if (piValue != nullptr) piValue[nKept] = piValue[i];
    ++nKept;
  }
  return nKept;
}

uint32_t KivWeldVertices(uint32_t nTriangles, uint32_t* piTriangle, uint32_t nVertices, uint32_t* piPoint,
                         KivWeldVertex* pzVertex) {
  return WeldAll(nTriangles, piTriangle, nVertices, piPoint, pzVertex);
}

uint32_t KivWeldVerticesOnEdges(uint32_t nTriangles, uint32_t* piTriangle, uint32_t nVertices, uint32_t* piPoint,
                                KivWeldVertex* pzVertex) {
  if (!KIV_ASSERT(IndicesWithin(nTriangles, piTriangle, nVertices))) return nVertices;
  const std::vector<uint64_t> viEdge = SortedEdges(nTriangles, piTriangle);
  std::vector<uint32_t> viMap(nVertices);
  auto itEdge = viEdge.begin();
  for (uint32_t i = 0; i < nVertices; ++i) {
    viMap[i] = i;
    itEdge = std::lower_bound(itEdge, viEdge.end(), static_cast<uint64_t>(i) << 32);
    for (auto it = itEdge; it != viEdge.end() && *it >> 32 == i; ++it) {
      const uint32_t iEarlier = static_cast<uint32_t>(*it);
      const bool bKept = iEarlier < i && viMap[iEarlier] == iEarlier;
      if (bKept && SamePoint(piPoint + 3 * static_cast<size_t>(iEarlier), piPoint + 3 * static_cast<size_t>(i))) {
        viMap[i] = iEarlier;
        break;
      }
    }
  }
  return CloseUp(nTriangles, piTriangle, nVertices, piPoint, pzVertex, viMap);
}

uint32_t KivWeldPoints(uint32_t nTriangles, uint32_t* piTriangle, uint32_t nVertices, uint32_t* piPoint) {
  return WeldAll(nTriangles, piTriangle, nVertices, piPoint, nullptr);
}

}  // namespace kiv
