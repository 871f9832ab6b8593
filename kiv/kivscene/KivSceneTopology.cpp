#include "KivSceneTopology.h"

#include <algorithm>
#include <bit>
#include <cmath>

namespace kiv {
namespace {

constexpr uint32_t kNone = 0xFFFFFFFFu;

// Places by their bits, in a table with open addresses.
class PlaceTable {
 public:
  explicit PlaceTable(std::vector<double>& vdPlace) : m_vdPlace(vdPlace) {}

  // The number of the place, which may be new.
  uint32_t Find(const double* pd) {
    if (m_vdPlace.size() / 3 * 2 >= m_viSlot.size()) Grow();
    const double ad[3] = {pd[0] + 0.0, pd[1] + 0.0, pd[2] + 0.0};  // -0.0 becomes 0.0
    for (size_t i = Hash(ad);; ++i) {
      uint32_t& iSlot = m_viSlot[i & (m_viSlot.size() - 1)];
      if (iSlot == kNone) {
        iSlot = static_cast<uint32_t>(m_vdPlace.size() / 3);
        m_vdPlace.insert(m_vdPlace.end(), ad, ad + 3);
        return iSlot;
      }
      if (std::equal(ad, ad + 3, &m_vdPlace[3 * size_t{iSlot}])) return iSlot;
    }
  }

 private:
  static size_t Hash(const double* pd) {
    uint64_t i = 0;
    for (int k = 0; k < 3; ++k) {
      i = (i ^ std::bit_cast<uint64_t>(pd[k])) * 0x9E3779B97F4A7C15ull;
      i ^= i >> 32;
    }
    return i;
  }
  void Grow() {
    m_viSlot.assign(std::max<size_t>(64, m_viSlot.size() * 2), kNone);
    for (size_t n = m_vdPlace.size() / 3, iPlace = 0; iPlace < n; ++iPlace) {
      size_t i = Hash(&m_vdPlace[3 * iPlace]);
      while (m_viSlot[i & (m_viSlot.size() - 1)] != kNone) ++i;
      m_viSlot[i & (m_viSlot.size() - 1)] = static_cast<uint32_t>(iPlace);
    }
  }

  std::vector<double>& m_vdPlace;
  std::vector<uint32_t> m_viSlot;  // a power of two of them
};

template <typename List>
void Free(List& v) {
  List().swap(v);
}

}  // namespace

KivECoord3 KivWeldedMesh::TriangleNormal(size_t iTriangle) const {
  const uint32_t* pi = &m_viPlace[3 * iTriangle];
  KivECoord3 zA = Place(pi[1]) - Place(pi[0]), zB = Place(pi[2]) - Place(pi[0]);
  // Scaled, so that neither a huge nor a tiny triangle leaves the range of a double.
  for (KivECoord3* pz : {&zA, &zB}) {
    const double dLargest = std::max({std::abs(pz->m_dX), std::abs(pz->m_dY), std::abs(pz->m_dZ)});
    if (!(dLargest > 0) || !std::isfinite(dLargest)) return {};
    *pz = {pz->m_dX / dLargest, pz->m_dY / dLargest, pz->m_dZ / dLargest};
  }
  KivECoord3 zNormal = zA.Cross(zB);
  if (zNormal.Length() < 1e-14) return {};  // what rounding leaves of two parallel vectors
  zNormal.Normalise();
  return zNormal;
}

KivWeldedMesh KivWeldScene(std::vector<KivSceneFace>& vzGroup) {
  KivWeldedMesh zMesh;
  PlaceTable zTable(zMesh.m_vdPlace);
  size_t nCorners = 0;
  bool bNormals = false;
  for (const KivSceneFace& zGroup : vzGroup) {
    nCorners += zGroup.m_viIndex.size();
    bNormals = bNormals || !zGroup.m_vfNormal.empty();
  }
  zMesh.m_viPlace.reserve(nCorners);
  if (bNormals) zMesh.m_vfNormal.reserve(3 * nCorners);
  std::vector<uint32_t> viPlace;
  for (KivSceneFace& zGroup : vzGroup) {
    zMesh.m_viFirstTriangle.push_back(static_cast<uint32_t>(zMesh.TriangleNum()));
    viPlace.assign(zGroup.m_vdVertex.size() / 3, kNone);
    const auto PlaceOf = [&](uint32_t iVertex) {
      if (viPlace[iVertex] == kNone) viPlace[iVertex] = zTable.Find(&zGroup.m_vdVertex[3 * size_t{iVertex}]);
      return viPlace[iVertex];
    };
    for (size_t i = 0; i + 2 < zGroup.m_viIndex.size(); i += 3) {
      const uint32_t* pi = &zGroup.m_viIndex[i];
      const uint32_t ai[3] = {PlaceOf(pi[0]), PlaceOf(pi[1]), PlaceOf(pi[2])};
      if (ai[0] == ai[1] || ai[1] == ai[2] || ai[2] == ai[0]) {
        ++zMesh.m_nDegenerate;
        continue;
      }
      zMesh.m_viPlace.insert(zMesh.m_viPlace.end(), ai, ai + 3);
      if (!bNormals) continue;
      for (int k = 0; k < 3; ++k) {
        static constexpr float kNoNormal[3] = {0, 0, 0};
        const float* pf = zGroup.m_vfNormal.empty() ? kNoNormal : &zGroup.m_vfNormal[3 * size_t{pi[k]}];
        zMesh.m_vfNormal.insert(zMesh.m_vfNormal.end(), pf, pf + 3);
      }
    }
    Free(zGroup.m_vdVertex);
    Free(zGroup.m_vfNormal);
    Free(zGroup.m_viIndex);
  }
  zMesh.m_viFirstTriangle.push_back(static_cast<uint32_t>(zMesh.TriangleNum()));
  return zMesh;
}

// Corners are sorted by the lower place of their edge by counting, those few that share it by the other place.
KivEdgeTable::KivEdgeTable(const KivWeldedMesh& zMesh) {
  const std::vector<uint32_t>& viPlace = zMesh.m_viPlace;
  const auto Low = [&](uint32_t c) { return std::min(viPlace[c], viPlace[KivNextCorner(c)]); };
  const auto High = [&](uint32_t c) { return std::max(viPlace[c], viPlace[KivNextCorner(c)]); };
  const uint32_t nCorners = static_cast<uint32_t>(viPlace.size());
  const size_t nPlaces = zMesh.m_vdPlace.size() / 3;
  std::vector<uint32_t> viEnd(nPlaces + 1, 0);
  for (uint32_t c = 0; c < nCorners; ++c) ++viEnd[Low(c) + 1];
  for (size_t i = 0; i < nPlaces; ++i) viEnd[i + 1] += viEnd[i];
  m_viCorner.resize(nCorners);
  for (uint32_t c = 0; c < nCorners; ++c) m_viCorner[viEnd[Low(c)]++] = c;
  m_vbFirst.assign(nCorners, false);
  for (size_t iFirst = 0, i = 0; i < nPlaces; iFirst = viEnd[i], ++i) {
    const auto pBegin = m_viCorner.begin() + static_cast<std::ptrdiff_t>(iFirst);
    const auto pEnd = m_viCorner.begin() + static_cast<std::ptrdiff_t>(viEnd[i]);
    std::sort(pBegin, pEnd, [&](uint32_t a, uint32_t b) { return High(a) != High(b) ? High(a) < High(b) : a < b; });
    for (size_t k = iFirst; k < viEnd[i]; ++k)
      m_vbFirst[k] = k == iFirst || High(m_viCorner[k]) != High(m_viCorner[k - 1]);
  }
}

}  // namespace kiv
