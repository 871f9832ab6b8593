// Compression of tessellation: vertices, normals and triangle indices of one mesh entry as bytes, and back.
// The streams are described with examples in docs/mesh_codec.md.
//
// Sizing functions say what the writing functions will take, to the byte, and never report. Writing functions fill a
// bounded place: where a value exceeds its form they report once per stream and clamp, and they give false, with a
// report, for what cannot be coded or does not fit the place. Reading functions never look behind the end of the
// record, compare every count with the bytes that remain before they take memory, and give false with a report.
// No report leaves them. Outputs of a failed call are in no particular state.
//
// Nothing is allocated but the outputs. Safe on several threads at once, each with its own data.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "KivMemoryBlockFaceEdgeInterfaceData.h"
#include "KivRecordBytes.h"
#include "KivSysText.h"

namespace kiv {

// --- Quantising -----------------------------------------------------------------------------------------------------

constexpr uint32_t kMeshLastCell = 4294967000u;  // the largest cell number, on purpose below 2 to the 32

// The number of the cell that holds a coordinate: truncated toward zero, 0 to kMeshLastCell. A coordinate that is no
// number, or a step of 0, is reported and gives 0.
uint32_t KivMeshQuantise(float fCoordinate, float fOrigin, float fStep);
// The centre of a cell.
float KivMeshCellCentre(uint32_t iCell, float fOrigin, float fStep);

// --- Vertex stream --------------------------------------------------------------------------------------------------

enum class KivMeshEntryType { Face, Edge };  // an edge's vertices are never delta-coded

// The local flag of an entry: 1 if its vertices lie within 250 steps of each other on each axis, so that a byte per
// coordinate holds them. afBox is the element's box, low corner and high corner; vfVertex x, y, z of each vertex.
uint8_t KivMeshIsLocal(const KivMemoryBlockFaceEdgeInterfaceData& zMesh, const float afBox[6],
                       std::span<const float> vfVertex);

// The stream begins behind the local flag byte. Lists of vertices hold whole vertices.
uint64_t KivMeshVertexStreamSize(const KivMemoryBlockFaceEdgeInterfaceData& zMesh, KivMeshEntryType eType,
                                 const float afBox[6], uint8_t iLocal, std::span<const float> vfVertex);
bool KivMeshPutVertexStream(KivRecordWriter& zWriter, const KivMemoryBlockFaceEdgeInterfaceData& zMesh,
                            KivMeshEntryType eType, const float afBox[6], uint8_t iLocal,
                            std::span<const float> vfVertex);
bool KivMeshGetVertexStream(KivRecordReader& zReader, const KivMemoryBlockFaceEdgeInterfaceData& zMesh,
                            KivMeshEntryType eType, uint8_t iLocal, uint32_t nVertices, std::vector<float>& vfVertex);

// --- Normals --------------------------------------------------------------------------------------------------------

constexpr uint16_t kMeshZeroNormal = 6144;

// The code of a normal, which need not have length 1: the sign of each component, the axis of the largest one, and the
// ratios of the other two to it in 45 steps.
uint16_t KivMeshNormalCode(float fX, float fY, float fZ);
// False, without a report, if the code's cell lies outside the table.
bool KivMeshNormalOfCode(uint16_t iCode, float afNormal[3]);

// nNormals normals are coded whatever the length of the list: missing ones as zero normals, more are left out.
uint64_t KivMeshNormalStreamSize(std::span<const float> vfNormal, uint32_t nNormals);
bool KivMeshPutNormalStream(KivRecordWriter& zWriter, std::span<const float> vfNormal, uint32_t nNormals);
bool KivMeshGetNormalStream(KivRecordReader& zReader, uint32_t nNormals, std::vector<float>& vfNormal);

// --- Index stream ---------------------------------------------------------------------------------------------------

// iIndexSize is 1, 2 or 4. With kMeshIndexCount the list may be longer than 3 * nTriangles: the rest is one strip.
uint64_t KivMeshIndexStreamSize(const KivMemoryBlockFaceEdgeInterfaceData& zMesh, uint32_t iIndexSize,
                                std::span<const uint32_t> viIndex);
bool KivMeshPutIndexStream(KivRecordWriter& zWriter, const KivMemoryBlockFaceEdgeInterfaceData& zMesh,
                           uint32_t nTriangles, uint32_t iIndexSize, std::span<const uint32_t> viIndex);
// The indices are not compared with a number of vertices.
bool KivMeshGetIndexStream(KivRecordReader& zReader, const KivMemoryBlockFaceEdgeInterfaceData& zMesh,
                           uint32_t nTriangles, uint32_t iIndexSize, std::vector<uint32_t>& viIndex);
// True if each index can be stored in iIndexSize bytes.
bool KivMeshIndicesFit(uint32_t iIndexSize, std::span<const uint32_t> viIndex);

// --- Whole entries --------------------------------------------------------------------------------------------------

// What the sizing of an element answers where it refuses.
enum class KivMeshSizing : int64_t {
  WrongTag = -10,
  BadBox = -40,
  BadNodeState = -50,
  BadCoordWidth = -55,
  IdNotZero = -90,
  ValueNotZero = -95,
  NoVertices = -100,
  NoTriangles = -110,
  BadIndexSize = -120,
  FaceVertexCount = -130,
  IndexCount = -150,
  IndexAbove255 = -160,
  IndexAbove65535 = -170,
  NoEdgePoints = -300,
  EdgeVertexCount = -330,
  EntryCount = -580,
};

// A face's streams, seen where they stand.
struct KivMeshFaceView {
  uint32_t m_iVertexCount = 0;
  uint32_t m_iTriangleCount = 0;  // triangles outside a strip
  uint32_t m_iIndexSize = 4;
  uint32_t m_iNormalCount = 0;  // m_iVertexCount, or m_iTriangleCount in a mesh of flat normals
  std::span<const float> m_vfVertex;
  std::span<const float> m_vfNormal;
  std::span<const uint32_t> m_viIndex;
};

// Bytes from the local flag to the end of the index stream, or a KivMeshSizing code. Decides the local flag.
int64_t KivMeshFaceSize(const KivMemoryBlockFaceEdgeInterfaceData& zMesh, const float afBox[6],
                        const KivMeshFaceView& zFace, uint8_t& iLocal);
bool KivMeshPutFace(KivRecordWriter& zWriter, const KivMemoryBlockFaceEdgeInterfaceData& zMesh, const float afBox[6],
                    const KivMeshFaceView& zFace, uint8_t iLocal);
// The three lists as the counts say; iLocal is the flag byte as it stands.
bool KivMeshGetFace(KivRecordReader& zReader, const KivMemoryBlockFaceEdgeInterfaceData& zMesh, uint32_t nVertices,
                    uint32_t nTriangles, uint32_t nNormals, uint32_t iIndexSize, uint8_t& iLocal,
                    std::vector<float>& vfVertex, std::vector<float>& vfNormal, std::vector<uint32_t>& viIndex);

// Bytes from the local flag to the end of the points, or a KivMeshSizing code.
int64_t KivMeshEdgeSize(const KivMemoryBlockFaceEdgeInterfaceData& zMesh, const float afBox[6], uint32_t nVertices,
                        std::span<const float> vfVertex, uint8_t& iLocal);
bool KivMeshPutEdge(KivRecordWriter& zWriter, const KivMemoryBlockFaceEdgeInterfaceData& zMesh, const float afBox[6],
                    std::span<const float> vfVertex, uint8_t iLocal);
bool KivMeshGetEdge(KivRecordReader& zReader, const KivMemoryBlockFaceEdgeInterfaceData& zMesh, uint32_t nVertices,
                    uint8_t& iLocal, std::vector<float>& vfVertex);

// --- Statistics -----------------------------------------------------------------------------------------------------

// Counters over many faces, and their four lines in the timing log.
struct KivMeshStatistics {
  int64_t m_iTriVertex = 0;                                                     // vertices
  int64_t m_iNormalTri = 0;                                                     // triangles outside strips
  int64_t m_iStripTri = 0;                                                      // triangles in strips
  int64_t m_iTri1ByteVtxNum = 0, m_iTri2ByteVtxNum = 0, m_iTri4ByteVtxNum = 0;  // indices by their size
  int64_t m_iDiff6BitVtxNum = 0, m_iDiff13BitVtxNum = 0, m_iDiff20BitVtxNum = 0, m_iDiff27BitVtxNum = 0;
  int64_t m_iVtxPM2XYZ = 0, m_iVtxPM7XYZ = 0, m_iVtxPM63XYZ = 0, m_iVtxPM255XYZ = 0;

  void AddFace(const KivMemoryBlockFaceEdgeInterfaceData& zMesh, const KivMeshFaceView& zFace);
  std::vector<KivWString> Lines() const;
  void WriteLog() const;
};

}  // namespace kiv
