// The faces and edges of a bare mesh: its connected smooth regions and the lines between them.
//
// Vertices at the same place are one (bit by bit; -0.0 is 0.0), triangles with two corners at one place are dropped.
// Two triangles are joined over an edge that just these two share, within one group of the source, if their normals
// differ by less than an angle or if the source's normals agree on both ends of the edge. A region is what is joined.
// A triangle without an area has no normal: it goes with a neighbour, over its longest edge if it can.
//
// Regions are in the order of their first triangles, lines in the order of the first triangle at them: the same mesh
// gives the same numbers.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "KivScene.h"

namespace kiv {

// The regions of a mesh, with lists that lie one behind the other: region i has the vertices m_viFirstVertex[i] up to
// m_viFirstVertex[i + 1], the triangles m_viFirstTriangle[i] up to m_viFirstTriangle[i + 1]; lines likewise.
struct KivSceneRegions {
  std::vector<double> m_vdPlace;            // x, y, z of each place, all different
  std::vector<uint32_t> m_viPlace;          // of each vertex; the vertices of one region have different places
  std::vector<float> m_vfNormal;            // x, y, z of each vertex, length 1; 0 where there is none
  std::vector<uint32_t> m_viIndex;          // vertices of each triangle, in the order of the source inside a region
  std::vector<uint32_t> m_viFirstVertex;    // one more than regions
  std::vector<uint32_t> m_viFirstTriangle;  // one more than regions
  std::vector<uint32_t> m_viGroup;          // of each region, the source's face
  std::vector<uint32_t> m_viLinePlace;      // places along each line; a closed one ends with its first place
  std::vector<uint32_t> m_viFirstLinePlace;
  uint64_t m_nDegenerate = 0;  // triangles that were dropped

  size_t RegionNum() const { return m_viGroup.size(); }
  size_t LineNum() const { return m_viFirstLinePlace.empty() ? 0 : m_viFirstLinePlace.size() - 1; }
  std::span<const uint32_t> Line(size_t i) const {
    return std::span(m_viLinePlace).subspan(m_viFirstLinePlace[i], m_viFirstLinePlace[i + 1] - m_viFirstLinePlace[i]);
  }
};

// The faces of the level are the groups; their lists are freed on the way. dAngle in degrees.
// Not for more than 2^32 - 1 corners of triangles.
KivSceneRegions KivFindSceneRegions(std::vector<KivSceneFace>& vzGroup, double dAngle);

}  // namespace kiv
