// Numbers of faces, edges and triangles of a tree of mesh elements.
#pragma once

#include <cstdint>
#include <set>

#include "KivToolModel.h"

namespace kiv {

struct KivMeshCount {
  uint64_t m_nFaces = 0;
  uint64_t m_nEdges = 0;
  uint64_t m_nTriangles = 0;
  uint64_t m_nVertices = 0;  // of faces
  bool m_bExact = true;      // false: it is not whole, or some element has strips, whose triangles are left out
  bool m_bWhole = true;      // false: some element could not be read

  KivMeshCount& operator+=(const KivMeshCount& z);
};

// Triangles of a face in memory: those of the list, and behind them those of the strip.
template <typename AnyFace>
uint64_t KivCountTriangles(const AnyFace& zFace) {
  const uint64_t nPlain = zFace.m_iTriangleCount, nIndices = zFace.m_viIndex.size();
  return nPlain + (nIndices >= 3 * nPlain + 3 ? nIndices - 3 * nPlain - 2 : 0);
}

// Reads the frames of the entries alone, so that the meshes stay where they are. siSeen holds the positions of elements
// that are counted already, which are passed by.
KivMeshCount KivCountMeshTree(KivToolModel& zModel, uint64_t iRootKey, std::set<uint64_t>& siSeen);
// Loads the meshes and counts what they hold, strips and all.
KivMeshCount KivCountMeshTreeDeep(KivToolModel& zModel, uint64_t iRootKey, std::set<uint64_t>& siSeen);

}  // namespace kiv
