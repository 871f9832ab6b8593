#include "KivMeshEntries.h"

#include <cstring>

namespace kiv {
namespace {

// The element's box as the coder takes it.
struct Box {
  explicit Box(const KivMemoryBlockFaceEdgeInterface& zMesh) {
    for (size_t i = 0; i < 3; ++i) {
      m_af[i] = zMesh.m_zHeader.m_afBoxMin[i];
      m_af[3 + i] = zMesh.m_zHeader.m_afBoxMax[i];
    }
  }
  float m_af[6];
};

}  // namespace

uint32_t KivMeshDegenerateOf(const std::vector<uint32_t>& viIndex) {
  if (viIndex.size() < 3) return 0;
  const bool b01 = viIndex[0] == viIndex[1], b12 = viIndex[1] == viIndex[2], b20 = viIndex[2] == viIndex[0];
  if (b01 && b12) return 2;
  return b01 || b12 || b20 ? 1 : 0;
}

void KivMeshFace::Clear() {
  m_zFrame = KivEntryFrame();
  m_iValue0 = m_iValue1 = m_iId = m_iValue3 = 0;
  m_iVertexCount = m_iTriangleCount = m_iDegenerate = 0;
  m_iIndexSize = 4;
  m_vfVertex.clear();
  m_vfNormal.clear();
  m_viIndex.clear();
  m_vzAttribute.clear();
}

KivMeshFaceView KivMeshFace::View() const {
  KivMeshFaceView zView;
  zView.m_iVertexCount = m_iVertexCount;
  zView.m_iTriangleCount = m_iTriangleCount;
  zView.m_iIndexSize = m_iIndexSize;
  zView.m_iNormalCount = m_iVertexCount;
  zView.m_vfVertex = m_vfVertex;
  zView.m_vfNormal = m_vfNormal;
  zView.m_viIndex = m_viIndex;
  return zView;
}

void KivMeshEdge::Clear() {
  m_zFrame = KivEntryFrame();
  m_iValue0 = m_iValue1 = m_iId = m_iValue3 = 0;
  m_iVertexCount = m_iDegenerate = 0;
  m_vfVertex.clear();
  m_vzAttribute.clear();
}

// --- Faces ----------------------------------------------------------------------------------------------------------

bool KivVisitStreams(KivFieldReader& zFields, const KivMemoryBlockFaceEdgeInterface& zMesh, KivMeshFace& zFace,
                     uint32_t nNormals, uint8_t& iLocal) {
  return KivMeshGetFace(zFields.Record(), zMesh, zFace.m_iVertexCount, zFace.m_iTriangleCount, nNormals,
                        zFace.m_iIndexSize, iLocal, zFace.m_vfVertex, zFace.m_vfNormal, zFace.m_viIndex);
}

bool KivVisitStreams(KivFieldSizer& zFields, const KivMemoryBlockFaceEdgeInterface& zMesh, const KivMeshFaceView& zFace,
                     uint8_t& iLocal) {
  const int64_t nBytes = KivMeshFaceSize(zMesh, Box(zMesh).m_af, zFace, iLocal);
  return zFields.Check(nBytes > 0, nBytes) && zFields.Add(static_cast<uint64_t>(nBytes));
}

bool KivVisitStreams(KivFieldWriter& zFields, const KivMemoryBlockFaceEdgeInterface& zMesh,
                     const KivMeshFaceView& zFace, uint8_t iLocal) {
  return KivMeshPutFace(zFields.Record(), zMesh, Box(zMesh).m_af, zFace, iLocal);
}

// --- Edges ----------------------------------------------------------------------------------------------------------

bool KivVisitStreams(KivFieldReader& zFields, const KivMemoryBlockFaceEdgeInterface& zMesh, KivMeshEdge& zEdge,
                     uint8_t& iLocal, bool bDerive) {
  KivRecordReader& zRecord = zFields.Record();
  if (!KivMeshGetEdge(zRecord, zMesh, zEdge.m_iVertexCount, iLocal, zEdge.m_vfVertex)) return false;
  if (!bDerive || zEdge.m_iVertexCount != 2) return true;
  // The stream is never packed and ends with the two points.
  const size_t nPoint = 3 * static_cast<size_t>(iLocal == 1 ? 1 : zMesh.m_iCoordWidth);
  const bool bSame = std::memcmp(zRecord.At() - 2 * nPoint, zRecord.At() - nPoint, nPoint) == 0;
  zEdge.m_iDegenerate = bSame ? 2 : 0;
  return true;
}

bool KivVisitStreams(KivFieldSizer& zFields, const KivMemoryBlockFaceEdgeInterface& zMesh, KivMeshEdge& zEdge,
                     uint8_t& iLocal, bool) {
  const int64_t nBytes = KivMeshEdgeSize(zMesh, Box(zMesh).m_af, zEdge.m_iVertexCount, zEdge.m_vfVertex, iLocal);
  return zFields.Check(nBytes > 0, nBytes) && zFields.Add(static_cast<uint64_t>(nBytes));
}

bool KivVisitStreams(KivFieldWriter& zFields, const KivMemoryBlockFaceEdgeInterface& zMesh, KivMeshEdge& zEdge,
                     uint8_t iLocal, bool) {
  return KivMeshPutEdge(zFields.Record(), zMesh, Box(zMesh).m_af, zEdge.m_vfVertex, iLocal);
}

}  // namespace kiv
