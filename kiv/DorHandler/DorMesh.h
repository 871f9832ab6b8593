// Faces, edges and exact geometry of the open model, as requests need them.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "DorSession.h"
#include "DorTriangle.h"
#include "KivBrepGeometry.h"
#include "KivFaceEdgeData.h"

namespace kiv {

// An instance and a face or an edge of its part.
struct DorEntity {
  int64_t m_iInstance = 0;
  int64_t m_iId = 0;
  DorPlace m_zPlace;
  KivEMatrix4 m_zMatrix;  // the instance's placement
};

// Refuse with UnknownInstance, and with UnknownFace or UnknownEdge if no level of the part has it.
DorEntity DorFindFace(DorSession& zSession, int64_t iInstance, int64_t iFace);
DorEntity DorFindEdge(DorSession& zSession, int64_t iInstance, int64_t iEdge);

// Calls pfnMesh(level, block, entry) for each level that has the face; likewise for edges.
template <typename Mesh>
void DorForEachFace(DorSession& zSession, const DorEntity& zEntity, Mesh&& pfnMesh);
template <typename Mesh>
void DorForEachEdge(DorSession& zSession, const DorEntity& zEntity, Mesh&& pfnMesh);

// The block of a mesh element; refuses with Damaged.
const KivMemoryBlockFaceEdge& DorMeshBlock(DorSession& zSession, uint64_t iElementKey);

// Calls pfnTriangle(a, b, c) with the indices of each triangle, a strip's ones included, whose corners are there.
template <typename Triangle>
void DorForEachTriangle(const KivMeshFace& zFace, Triangle&& pfnTriangle);

// The face's triangles at its finest level, placed; those with coordinates that are no numbers are left out.
std::vector<DorTriangle> DorPlacedTriangles(DorSession& zSession, const DorEntity& zFace);
// How far a stored coordinate of that level may lie beside the true one, in the part's own units: the quantisation
// step, or what a 32-bit float so far from the origin rounds, whichever is more.
double DorFinestStep(DorSession& zSession, const DorEntity& zFace);

// Exact geometry in the part's own coordinates.
struct DorExact {
  std::optional<KivBrepGeometry> m_zAnalytic;
  // A curve, or a surface's rows of poles along the second direction; the second direction's knots and order stand in
  // the profile.
  std::vector<KivBrepGeometry> m_vzRow;
  std::optional<KivBrepGeometry> m_zProfile;

  bool HasNurbs() const { return !m_vzRow.empty(); }
};
// What there is; strings that are not well-formed, and surfaces with gaps, are as if they were not there.
DorExact DorReadExact(DorSession& zSession, const DorEntity& zEntity, bool bFace);

// --- Implementation of the templates --------------------------------------------------------------------------------

template <typename Mesh>
void DorForEachFace(DorSession& zSession, const DorEntity& zEntity, Mesh&& pfnMesh) {
  const std::vector<DorLevelIndex>& vzLevel = zSession.Index().Part(zEntity.m_zPlace.m_iPart).m_vzLevel;
  for (size_t i = 0; i < vzLevel.size(); ++i) {
    const DorEntryPlace* pz = DorModelIndex::Find(vzLevel[i].m_vzFace, zEntity.m_iId);
    if (pz == nullptr) continue;
    const KivMemoryBlockFaceEdge& zBlock = DorMeshBlock(zSession, pz->m_iElementKey);
    DorNeed(pz->m_iEntry < zBlock.m_vzFace.size(), "a face");
    pfnMesh(i, zBlock, zBlock.m_vzFace[pz->m_iEntry]);
  }
}

template <typename Mesh>
void DorForEachEdge(DorSession& zSession, const DorEntity& zEntity, Mesh&& pfnMesh) {
  const std::vector<DorLevelIndex>& vzLevel = zSession.Index().Part(zEntity.m_zPlace.m_iPart).m_vzLevel;
  for (size_t i = 0; i < vzLevel.size(); ++i) {
    const DorEntryPlace* pz = DorModelIndex::Find(vzLevel[i].m_vzEdge, zEntity.m_iId);
    if (pz == nullptr) continue;
    const KivMemoryBlockFaceEdge& zBlock = DorMeshBlock(zSession, pz->m_iElementKey);
    DorNeed(pz->m_iEntry < zBlock.m_vzEdge.size(), "an edge");
    pfnMesh(i, zBlock, zBlock.m_vzEdge[pz->m_iEntry]);
  }
}

template <typename Triangle>
void DorForEachTriangle(const KivMeshFace& zFace, Triangle&& pfnTriangle) {
  const std::vector<uint32_t>& vi = zFace.m_viIndex;
  const size_t nVertices = zFace.m_vfVertex.size() / 3;
  const auto Give = [&](uint32_t a, uint32_t b, uint32_t c) {
    if (a < nVertices && b < nVertices && c < nVertices) pfnTriangle(a, b, c);
  };
  const size_t iStrip = 3 * std::min<size_t>(zFace.m_iTriangleCount, vi.size() / 3);
  for (size_t i = 0; i < iStrip; i += 3) Give(vi[i], vi[i + 1], vi[i + 2]);
  for (size_t i = iStrip; i + 2 < vi.size(); ++i)
    (i - iStrip) % 2 == 0 ? Give(vi[i], vi[i + 1], vi[i + 2]) : Give(vi[i + 1], vi[i], vi[i + 2]);
}

}  // namespace kiv
