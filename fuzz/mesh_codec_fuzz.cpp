// Input: 12 bytes of settings, then the bytes of a face's streams. What can be read must stay within the bytes and
// within a memory bound, and must be the same after it is written and read once more; the bytes written must be as
// many as the sizing said, and not more than the plain forms take.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "KivException.h"
#include "KivMeshCodec.h"

namespace {

void Demand(bool bHolds, const char* szWhat) {
  if (bHolds) return;
  std::fprintf(stderr, "mesh_codec_fuzz: %s\n", szWhat);
  std::abort();
}

struct Face {
  std::vector<float> m_vfVertex;
  std::vector<float> m_vfNormal;
  std::vector<uint32_t> m_viIndex;
  uint8_t m_iLocal = 0;
};

struct Settings {
  kiv::KivMemoryBlockFaceEdgeInterfaceData m_zMesh;
  uint32_t m_nVertices = 0;
  uint32_t m_nTriangles = 0;
  uint32_t m_iIndexSize = 0;
};

bool Get(const Settings& zSettings, const uint8_t* pData, size_t nSize, Face& zFace, size_t& nRead) {
  kiv::KivRecordReader zReader(pData, nSize);
  const bool bGood = kiv::KivMeshGetFace(zReader, zSettings.m_zMesh, zSettings.m_nVertices, zSettings.m_nTriangles,
                                         zSettings.m_nVertices, zSettings.m_iIndexSize, zFace.m_iLocal,
                                         zFace.m_vfVertex, zFace.m_vfNormal, zFace.m_viIndex);
  nRead = zReader.Offset();
  Demand(nRead <= nSize, "read behind the end");
  Demand(zFace.m_vfVertex.capacity() <= 3 * nSize && zFace.m_viIndex.capacity() <= nSize, "too much memory");
  Demand(zFace.m_vfNormal.capacity() <= 255 * nSize, "too much memory for normals");
  return bGood;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize) {
  kiv::KivSetReportNoThrow(true);
  kiv::KivSetReported(true);
  constexpr size_t kSettings = 12;
  if (nSize < kSettings) return 0;
  Settings zSettings;
  zSettings.m_zMesh.m_iCoordWidth = pData[0];
  zSettings.m_zMesh.m_iMeshFlags = pData[1];
  zSettings.m_iIndexSize = pData[2];
  zSettings.m_zMesh.m_fStep = std::ldexp(1.0f, pData[3] % 16 - 8);  // exact, so that cells come back
  zSettings.m_nVertices = kiv::KivLoad<uint32_t>(pData + 4);
  zSettings.m_nTriangles = kiv::KivLoad<uint32_t>(pData + 8);
  const std::vector<uint8_t> vcBytes(pData + kSettings, pData + nSize);

  Face zFace;
  size_t nRead = 0;
  if (!Get(zSettings, vcBytes.data(), vcBytes.size(), zFace, nRead)) return 0;

  kiv::KivMeshFaceView zView;
  zView.m_iVertexCount = zView.m_iNormalCount = zSettings.m_nVertices;
  zView.m_iTriangleCount = zSettings.m_nTriangles;
  zView.m_iIndexSize = zSettings.m_iIndexSize;
  zView.m_vfVertex = zFace.m_vfVertex;
  zView.m_vfNormal = zFace.m_vfNormal;
  zView.m_viIndex = zFace.m_viIndex;
  const float afBox[6] = {-1e30f, -1e30f, -1e30f, 1e30f, 1e30f, 1e30f};
  uint8_t iLocal = 0;
  const int64_t nBytes = kiv::KivMeshFaceSize(zSettings.m_zMesh, afBox, zView, iLocal);
  if (nBytes < 0) return 0;  // a size that a write refuses, such as no vertices
  const size_t nSized = static_cast<size_t>(nBytes);
  const size_t nNormalBytes = 2 * static_cast<size_t>(zSettings.m_nVertices);
  Demand(nSized <= 18 + 4 * zFace.m_vfVertex.size() + nNormalBytes + 4 * zFace.m_viIndex.size(), "above its bound");

  std::vector<uint8_t> vcOut(nSized);
  kiv::KivRecordWriter zWriter(vcOut.data(), vcOut.size());
  // An index that has wrapped beyond the size it is written with is the one thing that may be refused.
  if (!kiv::KivMeshPutFace(zWriter, zSettings.m_zMesh, afBox, zView, iLocal)) {
    Demand(!kiv::KivMeshIndicesFit(zSettings.m_iIndexSize, zFace.m_viIndex), "what was read cannot be written");
    return 0;
  }
  Demand(zWriter.Remaining() == 0, "the sizing and the writer disagree");

  Face zAgain;
  size_t nReadAgain = 0;
  Demand(Get(zSettings, vcOut.data(), vcOut.size(), zAgain, nReadAgain), "what was written cannot be read");
  Demand(nReadAgain == vcOut.size(), "the reader and the writer disagree");
  Demand(zAgain.m_iLocal == iLocal, "another local flag");
  for (size_t i = 1; i < zFace.m_viIndex.size(); ++i) {  // as far as differences do not wrap
    const int64_t d = static_cast<int64_t>(zFace.m_viIndex[i]) - static_cast<int64_t>(zFace.m_viIndex[i - 1]);
    if (d < -0xFFFFFFF || d > 0x10000000) return 0;
  }
  Demand(zAgain.m_viIndex == zFace.m_viIndex, "other indices");
  for (size_t i = 0; i < zFace.m_vfVertex.size(); ++i) {  // cells that an f32 tells apart from their neighbours
    const float fCell = zFace.m_vfVertex[i] / zSettings.m_zMesh.m_fStep;
    const float fEnd = zSettings.m_zMesh.m_iCoordWidth == 1   ? 256.0f
                       : zSettings.m_zMesh.m_iCoordWidth == 2 ? 65536.0f
                                                              : 4194304.0f;
    if (fCell >= fEnd) continue;
    Demand(zAgain.m_vfVertex[i] == zFace.m_vfVertex[i], "another vertex");
  }
  return 0;
}
