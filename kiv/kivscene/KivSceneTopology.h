// Steps of KivFindSceneRegions: welded triangles, and which of them meet at which edge.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "KivECoord3.h"
#include "KivScene.h"

namespace kiv {

// The triangles of all groups over common places.
struct KivWeldedMesh {
  std::vector<double> m_vdPlace;            // x, y, z, in the order of their first use
  std::vector<uint32_t> m_viPlace;          // three for each triangle
  std::vector<uint32_t> m_viFirstTriangle;  // of each group, and the end
  std::vector<float> m_vfNormal;            // x, y, z of each corner as in the source; empty if no group has normals
  uint64_t m_nDegenerate = 0;

  size_t TriangleNum() const { return m_viPlace.size() / 3; }
  KivECoord3 Place(uint32_t i) const {
    return {m_vdPlace[3 * size_t{i}], m_vdPlace[3 * size_t{i} + 1], m_vdPlace[3 * size_t{i} + 2]};
  }
  // Of no length if the triangle has no area.
  KivECoord3 TriangleNormal(size_t iTriangle) const;
  KivECoord3 CornerNormal(size_t iCorner) const {
    return {m_vfNormal[3 * iCorner], m_vfNormal[3 * iCorner + 1], m_vfNormal[3 * iCorner + 2]};
  }
};

// Frees the groups' lists.
KivWeldedMesh KivWeldScene(std::vector<KivSceneFace>& vzGroup);

// The edges of a welded mesh: corner c begins the edge from its place to that of the next corner of its triangle.
class KivEdgeTable {
 public:
  explicit KivEdgeTable(const KivWeldedMesh& zMesh);

  // Calls pfnEdge(corners) once for each edge, with the corners that begin it in either direction, ascending.
  template <typename Visit>
  void ForEach(Visit&& pfnEdge) const {
    for (size_t iFirst = 0; iFirst < m_viCorner.size();) {
      size_t iEnd = iFirst + 1;
      while (iEnd < m_viCorner.size() && !m_vbFirst[iEnd]) ++iEnd;
      pfnEdge(std::span(m_viCorner).subspan(iFirst, iEnd - iFirst));
      iFirst = iEnd;
    }
  }

 private:
  std::vector<uint32_t> m_viCorner;  // edge by edge
  std::vector<bool> m_vbFirst;       // of an edge
};

inline uint32_t KivNextCorner(uint32_t iCorner) {
  return iCorner % 3 == 2 ? iCorner - 2 : iCorner + 1;
}

}  // namespace kiv
