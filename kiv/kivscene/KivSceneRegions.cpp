#include "KivSceneRegions.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <numbers>

#include "KivSceneTopology.h"

namespace kiv {
namespace {

constexpr uint32_t kNone = 0xFFFFFFFFu;
constexpr double kSameNormal = 0.9998;  // cosine: normals of the source that differ by about a degree agree

// Sets of triangles; each is known by its lowest member.
class TriangleSets {
 public:
  explicit TriangleSets(size_t n) : m_viParent(n) {
    for (size_t i = 0; i < n; ++i) m_viParent[i] = static_cast<uint32_t>(i);
  }
  uint32_t Find(uint32_t i) {
    while (m_viParent[i] != i) i = m_viParent[i] = m_viParent[m_viParent[i]];
    return i;
  }
  void Join(uint32_t a, uint32_t b) {
    a = Find(a);
    b = Find(b);
    m_viParent[std::max(a, b)] = std::min(a, b);
  }

 private:
  std::vector<uint32_t> m_viParent;
};

class RegionFinder {
 public:
  RegionFinder(std::vector<KivSceneFace>& vzGroup, double dAngle)
      : m_dCosine(std::cos(dAngle * std::numbers::pi / 180)), m_zMesh(KivWeldScene(vzGroup)), m_zEdges(m_zMesh) {
    m_z.m_nDegenerate = m_zMesh.m_nDegenerate;
  }

  KivSceneRegions Find() {
    FindGroups();
    JoinTriangles();
    SortTriangles();
    FindNormals();
    FindLines();
    m_z.m_vdPlace = std::move(m_zMesh.m_vdPlace);
    return std::move(m_z);
  }

 private:
  void FindGroups() {
    m_viGroup.resize(m_zMesh.TriangleNum());
    for (size_t iGroup = 0; iGroup + 1 < m_zMesh.m_viFirstTriangle.size(); ++iGroup)
      std::fill(m_viGroup.begin() + m_zMesh.m_viFirstTriangle[iGroup],
                m_viGroup.begin() + m_zMesh.m_viFirstTriangle[iGroup + 1], static_cast<uint32_t>(iGroup));
  }

  // --- Which triangles belong together ------------------------------------------------------------------------------

  static bool Is(const KivECoord3& zNormal) { return zNormal.Dot(zNormal) > 0.25; }

  // Corners of both triangles at one place, or at one that lies in opposite directions.
  bool NormalsAgree(uint32_t iCorner, uint32_t iOther) const {
    const KivECoord3 zA = m_zMesh.CornerNormal(iCorner), zB = m_zMesh.CornerNormal(iOther);
    return Is(zA) && Is(zB) && zA.Dot(zB) >= kSameNormal * zA.Length() * zB.Length();
  }
  bool SourceNormalsAgree(uint32_t iCorner, uint32_t iOther) const {
    if (m_zMesh.m_vfNormal.empty()) return false;
    const bool bSameWay = m_zMesh.m_viPlace[iCorner] == m_zMesh.m_viPlace[iOther];
    const uint32_t iNext = KivNextCorner(iCorner), iOtherNext = KivNextCorner(iOther);
    return NormalsAgree(iCorner, bSameWay ? iOther : iOtherNext) && NormalsAgree(iNext, bSameWay ? iOtherNext : iOther);
  }

  void JoinTriangles() {
    const uint32_t nTriangles = static_cast<uint32_t>(m_zMesh.TriangleNum());
    std::vector<KivECoord3> vzNormal(nTriangles);
    for (uint32_t t = 0; t < nTriangles; ++t) vzNormal[t] = m_zMesh.TriangleNormal(t);
    TriangleSets zSets(nTriangles);
    std::map<uint32_t, std::pair<double, uint32_t>> mapFlat;  // of a triangle without an area: its longest edge so far
    const auto NoteFlat = [&](uint32_t t, uint32_t iCorner, uint32_t iOther) {
      if (Is(vzNormal[t])) return;
      const KivECoord3 z =
          m_zMesh.Place(m_zMesh.m_viPlace[KivNextCorner(iCorner)]) - m_zMesh.Place(m_zMesh.m_viPlace[iCorner]);
      auto& [dLongest, iNeighbour] = mapFlat.try_emplace(t, -1.0, kNone).first->second;
      const double dLength = z.Length();
      if (dLength > dLongest || (dLength == dLongest && iOther < iNeighbour)) {
        dLongest = dLength;
        iNeighbour = iOther;
      }
    };
    m_zEdges.ForEach([&](std::span<const uint32_t> viCorner) {
      if (viCorner.size() != 2) return;
      const uint32_t a = viCorner[0] / 3, b = viCorner[1] / 3;
      if (a == b || m_viGroup[a] != m_viGroup[b]) return;
      NoteFlat(a, viCorner[0], b);
      NoteFlat(b, viCorner[1], a);
      if (!Is(vzNormal[a]) || !Is(vzNormal[b])) return;
      if (vzNormal[a].Dot(vzNormal[b]) > m_dCosine || SourceNormalsAgree(viCorner[0], viCorner[1])) zSets.Join(a, b);
    });
    for (const auto& [t, zLongest] : mapFlat) zSets.Join(t, zLongest.second);

    m_viRegion.resize(nTriangles);
    for (uint32_t t = 0; t < nTriangles; ++t) {
      const uint32_t iRoot = zSets.Find(t);
      if (iRoot == t) {
        m_viRegion[t] = static_cast<uint32_t>(m_z.m_viGroup.size());
        m_z.m_viGroup.push_back(m_viGroup[t]);
      } else {
        m_viRegion[t] = m_viRegion[iRoot];
      }
    }
  }

  // --- Region by region ---------------------------------------------------------------------------------------------

  void SortTriangles() {
    const size_t nRegions = m_z.RegionNum(), nTriangles = m_viRegion.size();
    m_z.m_viFirstTriangle.assign(nRegions + 1, 0);
    for (const uint32_t r : m_viRegion) ++m_z.m_viFirstTriangle[r + 1];
    for (size_t r = 0; r < nRegions; ++r) m_z.m_viFirstTriangle[r + 1] += m_z.m_viFirstTriangle[r];
    std::vector<uint32_t> viNext(m_z.m_viFirstTriangle.begin(), m_z.m_viFirstTriangle.end() - 1);
    m_viSource.resize(nTriangles);
    for (uint32_t t = 0; t < nTriangles; ++t) m_viSource[viNext[m_viRegion[t]]++] = t;

    m_z.m_viIndex.resize(3 * nTriangles);
    std::vector<uint32_t> viVertexOfPlace(m_zMesh.m_vdPlace.size() / 3, kNone);
    for (size_t r = 0; r < nRegions; ++r) {
      const uint32_t iFirstVertex = static_cast<uint32_t>(m_z.m_viPlace.size());
      m_z.m_viFirstVertex.push_back(iFirstVertex);
      for (size_t i = 3 * size_t{m_z.m_viFirstTriangle[r]}; i < 3 * size_t{m_z.m_viFirstTriangle[r + 1]}; ++i) {
        const uint32_t iPlace = m_zMesh.m_viPlace[3 * size_t{m_viSource[i / 3]} + i % 3];
        uint32_t& iVertex = viVertexOfPlace[iPlace];
        if (iVertex == kNone || iVertex < iFirstVertex) {  // none, or that of an earlier region
          iVertex = static_cast<uint32_t>(m_z.m_viPlace.size());
          m_z.m_viPlace.push_back(iPlace);
        }
        m_z.m_viIndex[i] = iVertex;
      }
    }
    m_z.m_viFirstVertex.push_back(static_cast<uint32_t>(m_z.m_viPlace.size()));
  }

  // The mean of a vertex's corners, weighted with their angles; of the source's normals where it has them.
  void FindNormals() {
    std::vector<KivECoord3> vzSum(m_z.m_viPlace.size());
    for (size_t i = 0; i < m_viSource.size(); ++i) {
      const uint32_t t = m_viSource[i];
      const KivECoord3 zTriangle = m_zMesh.TriangleNormal(t);
      for (uint32_t k = 0; k < 3; ++k) {
        const uint32_t iCorner = 3 * t + k;
        const double dAngle = AngleAt(iCorner);
        KivECoord3 zNormal = zTriangle;
        if (!m_zMesh.m_vfNormal.empty() && Is(m_zMesh.CornerNormal(iCorner))) {
          zNormal = m_zMesh.CornerNormal(iCorner);
          zNormal.Normalise();
        }
        vzSum[m_z.m_viIndex[3 * i + k]] += zNormal * dAngle;
      }
    }
    m_z.m_vfNormal.reserve(3 * vzSum.size());
    for (KivECoord3& zNormal : vzSum) {
      const double dLength = zNormal.Length();
      if (dLength > 1e-9)
        zNormal *= 1 / dLength;
      else
        zNormal = {};
      for (const double d : {zNormal.m_dX, zNormal.m_dY, zNormal.m_dZ}) m_z.m_vfNormal.push_back(static_cast<float>(d));
    }
  }
  double AngleAt(uint32_t iCorner) const {
    const uint32_t iNext = KivNextCorner(iCorner), iLast = KivNextCorner(iNext);
    const KivECoord3 zAt = m_zMesh.Place(m_zMesh.m_viPlace[iCorner]);
    const KivECoord3 zA = m_zMesh.Place(m_zMesh.m_viPlace[iNext]) - zAt;
    const KivECoord3 zB = m_zMesh.Place(m_zMesh.m_viPlace[iLast]) - zAt;
    const double dLengths = zA.Length() * zB.Length();
    return dLengths > 0 && std::isfinite(dLengths) ? std::acos(std::clamp(zA.Dot(zB) / dLengths, -1.0, 1.0)) : 1;
  }

  // --- Lines between regions ----------------------------------------------------------------------------------------

  struct Border {
    uint32_t m_iCorner;  // the first one that begins it
    uint64_t m_iKind;    // what meets here; a line goes on while it stays the same
    bool m_bTaken = false;
  };

  void FindLines() {
    FindBorders();
    const size_t nPlaces = m_zMesh.m_vdPlace.size() / 3;
    m_viFirstAt.assign(nPlaces + 1, 0);
    const auto ForEachEnd = [&](auto&& pfnEnd) {
      for (uint32_t i = 0; i < m_vzBorder.size(); ++i) {
        pfnEnd(m_zMesh.m_viPlace[m_vzBorder[i].m_iCorner], i);
        pfnEnd(m_zMesh.m_viPlace[KivNextCorner(m_vzBorder[i].m_iCorner)], i);
      }
    };
    ForEachEnd([&](uint32_t iPlace, uint32_t) { ++m_viFirstAt[iPlace + 1]; });
    for (size_t i = 0; i < nPlaces; ++i) m_viFirstAt[i + 1] += m_viFirstAt[i];
    m_viBorderAt.resize(2 * m_vzBorder.size());
    std::vector<uint32_t> viNext(m_viFirstAt.begin(), m_viFirstAt.end() - 1);
    ForEachEnd([&](uint32_t iPlace, uint32_t i) { m_viBorderAt[viNext[iPlace]++] = i; });

    m_z.m_viFirstLinePlace.push_back(0);
    std::vector<uint32_t> viBack;
    for (Border& zBorder : m_vzBorder) {
      if (zBorder.m_bTaken) continue;
      zBorder.m_bTaken = true;
      const uint32_t iFrom = m_zMesh.m_viPlace[zBorder.m_iCorner];
      const uint32_t iTo = m_zMesh.m_viPlace[KivNextCorner(zBorder.m_iCorner)];
      viBack.assign(1, iFrom);
      Walk(zBorder, iFrom, iTo, viBack);
      std::vector<uint32_t>& viLine = m_z.m_viLinePlace;
      viLine.insert(viLine.end(), viBack.rbegin(), viBack.rend());
      viLine.push_back(iTo);
      if (viBack.back() != iTo) Walk(zBorder, iTo, viBack.back(), viLine);
      m_z.m_viFirstLinePlace.push_back(static_cast<uint32_t>(viLine.size()));
    }
  }

  // Appends the places that follow iPlace, up to a corner or, in a closed line, to iEnd.
  void Walk(const Border& zFirst, uint32_t iPlace, uint32_t iEnd, std::vector<uint32_t>& viLine) {
    for (;;) {
      const uint32_t iAt = m_viFirstAt[iPlace];
      if (iPlace == iEnd || m_viFirstAt[iPlace + 1] - iAt != 2) return;
      Border *pzA = &m_vzBorder[m_viBorderAt[iAt]], *pzB = &m_vzBorder[m_viBorderAt[iAt + 1]];
      if (pzA->m_iKind != zFirst.m_iKind || pzB->m_iKind != zFirst.m_iKind) return;
      Border* pzNext = !pzA->m_bTaken ? pzA : pzB;
      if (pzNext->m_bTaken) return;
      pzNext->m_bTaken = true;
      const uint32_t iFrom = m_zMesh.m_viPlace[pzNext->m_iCorner];
      const uint32_t iTo = m_zMesh.m_viPlace[KivNextCorner(pzNext->m_iCorner)];
      iPlace = iFrom == iPlace ? iTo : iFrom;
      viLine.push_back(iPlace);
    }
  }

  // Each edge where not just two triangles of one region meet.
  void FindBorders() {
    std::map<std::vector<uint32_t>, uint32_t> mapMeeting;  // regions where more than two triangles meet
    m_zEdges.ForEach([&](std::span<const uint32_t> viCorner) {
      const uint32_t a = m_viRegion[viCorner[0] / 3];
      uint64_t iKind = 0;
      if (viCorner.size() == 1) {
        iKind = uint64_t{a} << 32 | kNone;
      } else if (viCorner.size() == 2) {
        const uint32_t b = m_viRegion[viCorner[1] / 3];
        if (a == b) return;
        iKind = uint64_t{std::min(a, b)} << 32 | std::max(a, b);
      } else {
        std::vector<uint32_t> viRegion;
        for (const uint32_t c : viCorner) viRegion.push_back(m_viRegion[c / 3]);
        std::sort(viRegion.begin(), viRegion.end());
        const uint32_t iNew = static_cast<uint32_t>(mapMeeting.size());
        iKind = uint64_t{kNone} << 32 | mapMeeting.try_emplace(std::move(viRegion), iNew).first->second;
      }
      m_vzBorder.push_back({viCorner[0], iKind});
    });
    std::sort(m_vzBorder.begin(), m_vzBorder.end(),
              [](const Border& zA, const Border& zB) { return zA.m_iCorner < zB.m_iCorner; });
  }

  double m_dCosine;
  KivWeldedMesh m_zMesh;
  KivEdgeTable m_zEdges;
  std::vector<uint32_t> m_viGroup;   // of each welded triangle
  std::vector<uint32_t> m_viRegion;  // of each welded triangle
  std::vector<uint32_t> m_viSource;  // the welded triangle of each triangle of the result
  std::vector<Border> m_vzBorder;
  std::vector<uint32_t> m_viFirstAt, m_viBorderAt;  // the borders at each place
  KivSceneRegions m_z;
};

}  // namespace

KivSceneRegions KivFindSceneRegions(std::vector<KivSceneFace>& vzGroup, double dAngle) {
  return RegionFinder(vzGroup, dAngle).Find();
}

}  // namespace kiv
