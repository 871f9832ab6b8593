// The streams of a mesh entry in their order. A face: local flag byte, vertex stream, normal stream, index stream. An
// edge: local flag byte, vertex stream.
#include "KivMeshCodec.h"

#include <initializer_list>
#include <string>
#include <string_view>

#include "KivDataUtil.h"
#include "KivReportQuiet.h"

namespace kiv {
namespace {

constexpr char kSource[] = "src\\KivMeshCodec";

constexpr int64_t Refuse(KivMeshSizing eSizing) {
  return static_cast<int64_t>(eSizing);
}

// One line of the statistics: each "%I64d" of the text is replaced by the next number.
KivWString Line(const char* szText, std::initializer_list<int64_t> viNumber) {
  static constexpr std::string_view kField = "%I64d";
  std::string strLine = szText;
  size_t iAt = 0;
  for (const int64_t iNumber : viNumber) {
    iAt = strLine.find(kField, iAt);
    strLine.replace(iAt, kField.size(), std::to_string(iNumber));
  }
  return KivWString(strLine.begin(), strLine.end());
}

}  // namespace

int64_t KivMeshFaceSize(const KivMemoryBlockFaceEdgeInterfaceData& zMesh, const float afBox[6],
                        const KivMeshFaceView& zFace, uint8_t& iLocal) {
  const bool bCounted = (zMesh.m_iMeshFlags & kMeshIndexCount) != 0;
  iLocal = 0;
  if (zMesh.m_iCoordWidth != 1 && zMesh.m_iCoordWidth != 2 && zMesh.m_iCoordWidth != 4)
    return Refuse(KivMeshSizing::BadCoordWidth);
  if (zFace.m_iVertexCount == 0) return Refuse(KivMeshSizing::NoVertices);
  if (zFace.m_iTriangleCount == 0 && !bCounted) return Refuse(KivMeshSizing::NoTriangles);
  if (zFace.m_iIndexSize != 1 && zFace.m_iIndexSize != 2 && zFace.m_iIndexSize != 4)
    return Refuse(KivMeshSizing::BadIndexSize);
  if (zFace.m_vfVertex.size() != 3 * static_cast<uint64_t>(zFace.m_iVertexCount))
    return Refuse(KivMeshSizing::FaceVertexCount);
  if (zFace.m_viIndex.size() != 3 * static_cast<uint64_t>(zFace.m_iTriangleCount) && !bCounted)
    return Refuse(KivMeshSizing::IndexCount);
  if (!KivMeshIndicesFit(zFace.m_iIndexSize, zFace.m_viIndex))
    return Refuse(zFace.m_iIndexSize == 1 ? KivMeshSizing::IndexAbove255 : KivMeshSizing::IndexAbove65535);
  iLocal = KivMeshIsLocal(zMesh, afBox, zFace.m_vfVertex);
  return static_cast<int64_t>(1 +
                              KivMeshVertexStreamSize(zMesh, KivMeshEntryType::Face, afBox, iLocal, zFace.m_vfVertex) +
                              KivMeshNormalStreamSize(zFace.m_vfNormal, zFace.m_iNormalCount) +
                              KivMeshIndexStreamSize(zMesh, zFace.m_iIndexSize, zFace.m_viIndex));
}

bool KivMeshPutFace(KivRecordWriter& zWriter, const KivMemoryBlockFaceEdgeInterfaceData& zMesh, const float afBox[6],
                    const KivMeshFaceView& zFace, uint8_t iLocal) {
  if (!KIV_ASSERT(zWriter.Put<uint8_t>(iLocal))) return false;
  return KivMeshPutVertexStream(zWriter, zMesh, KivMeshEntryType::Face, afBox, iLocal, zFace.m_vfVertex) &&
         KivMeshPutNormalStream(zWriter, zFace.m_vfNormal, zFace.m_iNormalCount) &&
         KivMeshPutIndexStream(zWriter, zMesh, zFace.m_iTriangleCount, zFace.m_iIndexSize, zFace.m_viIndex);
}

bool KivMeshGetFace(KivRecordReader& zReader, const KivMemoryBlockFaceEdgeInterfaceData& zMesh, uint32_t nVertices,
                    uint32_t nTriangles, uint32_t nNormals, uint32_t iIndexSize, uint8_t& iLocal,
                    std::vector<float>& vfVertex, std::vector<float>& vfNormal, std::vector<uint32_t>& viIndex) {
  if (!KIV_ASSERT(zReader.Get(iLocal))) return false;
  return KivMeshGetVertexStream(zReader, zMesh, KivMeshEntryType::Face, iLocal, nVertices, vfVertex) &&
         KivMeshGetNormalStream(zReader, nNormals, vfNormal) &&
         KivMeshGetIndexStream(zReader, zMesh, nTriangles, iIndexSize, viIndex);
}

int64_t KivMeshEdgeSize(const KivMemoryBlockFaceEdgeInterfaceData& zMesh, const float afBox[6], uint32_t nVertices,
                        std::span<const float> vfVertex, uint8_t& iLocal) {
  iLocal = 0;
  if (zMesh.m_iCoordWidth != 1 && zMesh.m_iCoordWidth != 2 && zMesh.m_iCoordWidth != 4)
    return Refuse(KivMeshSizing::BadCoordWidth);
  if (nVertices == 0) return Refuse(KivMeshSizing::NoEdgePoints);
  if (vfVertex.size() != 3 * static_cast<uint64_t>(nVertices)) return Refuse(KivMeshSizing::EdgeVertexCount);
  iLocal = KivMeshIsLocal(zMesh, afBox, vfVertex);
  return static_cast<int64_t>(1 + KivMeshVertexStreamSize(zMesh, KivMeshEntryType::Edge, afBox, iLocal, vfVertex));
}

bool KivMeshPutEdge(KivRecordWriter& zWriter, const KivMemoryBlockFaceEdgeInterfaceData& zMesh, const float afBox[6],
                    std::span<const float> vfVertex, uint8_t iLocal) {
  if (!KIV_ASSERT(zWriter.Put<uint8_t>(iLocal))) return false;
  return KivMeshPutVertexStream(zWriter, zMesh, KivMeshEntryType::Edge, afBox, iLocal, vfVertex);
}

bool KivMeshGetEdge(KivRecordReader& zReader, const KivMemoryBlockFaceEdgeInterfaceData& zMesh, uint32_t nVertices,
                    uint8_t& iLocal, std::vector<float>& vfVertex) {
  if (!KIV_ASSERT(zReader.Get(iLocal))) return false;
  return KivMeshGetVertexStream(zReader, zMesh, KivMeshEntryType::Edge, iLocal, nVertices, vfVertex);
}

// --- Statistics -----------------------------------------------------------------------------------------------------

namespace {

constexpr double kDifferenceTolerance = 0.001;  // steps; a centre may lie a little short of its neighbour's next one

// A difference of two coordinates in whole steps, clamped so that it can be an integer.
int64_t StepsBetween(float fBefore, float fNow, float fStep) {
  const double d = (static_cast<double>(fNow) - static_cast<double>(fBefore)) / static_cast<double>(fStep);
  constexpr double kFar = 1e15;
  const double dShifted = d + kDifferenceTolerance;
  if (!(dShifted > -kFar)) return static_cast<int64_t>(-kFar);
  return static_cast<int64_t>(dShifted < kFar ? dShifted : kFar);
}

bool Within(int64_t i, int64_t iLimit) {
  return i >= -iLimit && i <= iLimit;
}

}  // namespace

void KivMeshStatistics::AddFace(const KivMemoryBlockFaceEdgeInterfaceData& zMesh, const KivMeshFaceView& zFace) {
  const std::span<const uint32_t>& viIndex = zFace.m_viIndex;
  const int64_t nIndices = static_cast<int64_t>(viIndex.size());
  const int64_t nInStrip = nIndices - 3 * static_cast<int64_t>(zFace.m_iTriangleCount);
  m_iTriVertex += zFace.m_iVertexCount;
  m_iNormalTri += zFace.m_iTriangleCount;
  if (nInStrip > 2) m_iStripTri += nInStrip - 2;

  switch (zFace.m_iIndexSize) {
    case 1:
      m_iTri1ByteVtxNum += nIndices;
      break;
    case 2:
      m_iTri2ByteVtxNum += nIndices;
      break;
    case 4:
      m_iTri4ByteVtxNum += nIndices;
      break;
    default:
      KIV_ASSERT_FAIL();
      break;
  }

  bool bTooLarge = false;
  for (size_t i = 1; i < viIndex.size(); ++i) {
    const int64_t iDifference = static_cast<int64_t>(viIndex[i]) - static_cast<int64_t>(viIndex[i - 1]);
    const int64_t iMagnitude = iDifference < 0 ? -iDifference : iDifference;
    if (iMagnitude < 64)
      ++m_iDiff6BitVtxNum;
    else if (iMagnitude < 8192)
      ++m_iDiff13BitVtxNum;
    else if (iMagnitude < 0x100000)
      ++m_iDiff20BitVtxNum;
    else if (iMagnitude < 0x8000000)
      ++m_iDiff27BitVtxNum;
    else
      bTooLarge = true;
  }
  KIV_ASSERT_AS(!bTooLarge, "abs(iDiff) < 0x8000000");

  const std::span<const float>& vfVertex = zFace.m_vfVertex;
  for (size_t i = 3; i + 2 < vfVertex.size(); i += 3) {
    const int64_t iX = StepsBetween(vfVertex[i - 3], vfVertex[i], zMesh.m_fStep);
    const int64_t iY = StepsBetween(vfVertex[i - 2], vfVertex[i + 1], zMesh.m_fStep);
    const int64_t iZ = StepsBetween(vfVertex[i - 1], vfVertex[i + 2], zMesh.m_fStep);
    if (Within(iX, 2) && Within(iY, 2) && Within(iZ, 2))
      ++m_iVtxPM2XYZ;
    else if (Within(iX, 7) && Within(iY, 15) && Within(iZ, 15))
      ++m_iVtxPM7XYZ;
    else if (Within(iX, 63) && Within(iY, 63) && Within(iZ, 63))
      ++m_iVtxPM63XYZ;
    else
      ++m_iVtxPM255XYZ;
  }
}

std::vector<KivWString> KivMeshStatistics::Lines() const {
  return {
      Line("iTriVertex = %I64d, iNormalTri = %I64d, iStripTri = %I64d", {m_iTriVertex, m_iNormalTri, m_iStripTri}),
      Line("iTri1ByteVtxNum = %I64d, iTri2ByteVtxNum = %I64d, iTri4ByteVtxNum = %I64d",
           {m_iTri1ByteVtxNum, m_iTri2ByteVtxNum, m_iTri4ByteVtxNum}),
      Line("iDiff6BitVtxNum = %I64d, iDiff13BitVtxNum = %I64d, iDiff20BitVtxNum = %I64d, iDiff27BitVtxNum = %I64d",
           {m_iDiff6BitVtxNum, m_iDiff13BitVtxNum, m_iDiff20BitVtxNum, m_iDiff27BitVtxNum}),
      Line("iVtxPM2XYZ = %I64d, iVtxPM7XYZ = %I64d, iVtxPM63XYZ = %I64d, iVtxPM255XYZ = %I64d",
           {m_iVtxPM2XYZ, m_iVtxPM7XYZ, m_iVtxPM63XYZ, m_iVtxPM255XYZ}),
  };
}

void KivMeshStatistics::WriteLog() const {
  for (const KivWString& csLine : Lines()) KivWriteLog(csLine);
}

}  // namespace kiv
