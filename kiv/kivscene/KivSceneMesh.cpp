#include "KivSceneMesh.h"

#include <algorithm>
#include <cmath>

#include "KivModelMeaning.h"

namespace kiv {
namespace {

constexpr double kStepsInTolerance = 16;
constexpr double kStepsInSize = 1024;  // at the least
constexpr double kMostTwoByteCells = 65000;
constexpr double kMostFourByteCells = 4194304;  // with more of them a cell has no exact centre
constexpr double kSmallestStep = 0x1p-100;

double PowerOfTwoBelow(double d) {
  return std::exp2(std::floor(std::log2(d)));
}
double PowerOfTwoAbove(double d) {
  return std::exp2(std::ceil(std::log2(d)));
}

void Quantise(const KivSceneBox& zBox, double dTolerance, bool bFinest, KivMemoryBlockFaceEdgeInterfaceData& zMesh) {
  if (zBox.IsEmpty()) return;
  // Where the mesh lies an origin may be off by the distance of two floats.
  const double dSize = zBox.Size();
  const double dCovered = std::max(dSize + zBox.LargestCoordinate() * 0x1p-22, kSmallestStep);
  const double dTwoBytes = std::max(kSmallestStep, PowerOfTwoAbove(dCovered / kMostTwoByteCells));
  const double dFourBytes = std::max(kSmallestStep, PowerOfTwoAbove(dCovered / kMostFourByteCells));
  const double dWanted = dTolerance > 0 ? PowerOfTwoBelow(dTolerance / kStepsInTolerance) : dFourBytes;
  double dStep = dFourBytes;
  if (dWanted >= dTwoBytes) {
    zMesh.m_iCoordWidth = 2;
    dStep = dTwoBytes;
    if (!bFinest && dSize > 0) dStep = std::max(dStep, std::min(dWanted, PowerOfTwoBelow(dSize / kStepsInSize)));
  } else {
    zMesh.m_iCoordWidth = 4;
    if (!bFinest) dStep = std::max(dStep, dWanted);
  }
  zMesh.m_fStep = static_cast<float>(dStep);
  for (size_t i = 0; i < 3; ++i) {
    const double dLow = static_cast<double>(static_cast<float>(zBox.m_adLow[i]));
    const double dOrigin = std::floor(dLow / dStep) * dStep - dStep / 2;
    float fOrigin = static_cast<float>(dOrigin);
    while (static_cast<double>(fOrigin) > dLow) fOrigin = std::nextafter(fOrigin, -1e38f);
    zMesh.m_fOrigin[i] = fOrigin;
  }
}

void PutAttributes(const std::optional<KivColour>& fColour, const std::optional<uint32_t>& iLayer,
                   std::vector<KivAttribute>& vzAttribute) {
  if (fColour) KivSetColour(vzAttribute, *fColour);
  if (iLayer) KivSetLayer(vzAttribute, *iLayer);
}

}  // namespace

// --- Box ------------------------------------------------------------------------------------------------------------

void KivSceneBox::Add(const double* pdPoint) {
  for (size_t i = 0; i < 3; ++i) {
    m_adLow[i] = std::min(m_adLow[i], pdPoint[i]);
    m_adHigh[i] = std::max(m_adHigh[i], pdPoint[i]);
  }
}
void KivSceneBox::AddPoints(std::span<const double> vdPoint) {
  for (size_t i = 0; i + 2 < vdPoint.size(); i += 3) Add(&vdPoint[i]);
}
void KivSceneBox::Add(const KivSceneBox& zOther, const KivEMatrix4& zMatrix) {
  if (zOther.IsEmpty()) return;
  for (size_t i = 0; i < 8; ++i) {
    const KivECoord3 zCorner = {(i & 1) != 0 ? zOther.m_adHigh[0] : zOther.m_adLow[0],
                                (i & 2) != 0 ? zOther.m_adHigh[1] : zOther.m_adLow[1],
                                (i & 4) != 0 ? zOther.m_adHigh[2] : zOther.m_adLow[2]};
    const KivECoord3 z = zMatrix.TransformPoint(zCorner);
    const double adPoint[3] = {z.m_dX, z.m_dY, z.m_dZ};
    Add(adPoint);
  }
}
double KivSceneBox::Size() const {
  if (IsEmpty()) return 0;
  return std::max({m_adHigh[0] - m_adLow[0], m_adHigh[1] - m_adLow[1], m_adHigh[2] - m_adLow[2]});
}
double KivSceneBox::Diagonal() const {
  if (IsEmpty()) return 0;
  return std::hypot(m_adHigh[0] - m_adLow[0], m_adHigh[1] - m_adLow[1], m_adHigh[2] - m_adLow[2]);
}
double KivSceneBox::LargestCoordinate() const {
  if (IsEmpty()) return 0;
  double dLargest = 0;
  for (size_t i = 0; i < 3; ++i) dLargest = std::max({dLargest, std::abs(m_adLow[i]), std::abs(m_adHigh[i])});
  return dLargest;
}

// --- Entries --------------------------------------------------------------------------------------------------------

KivSceneMesh::KivSceneMesh(KivMemoryBlockFaceEdge& zMesh, const KivSceneBox& zBox, double dTolerance, bool bFinest)
    : m_zMesh(zMesh) {
  Quantise(zBox, dTolerance, bFinest, zMesh);
}

// Where the record will give them back, so that boxes hold what is read.
void KivSceneMesh::PutPoints(std::span<const double> vdVertex, std::vector<float>& vfVertex) const {
  vfVertex.resize(vdVertex.size());
  for (size_t i = 0; i < vdVertex.size(); ++i) {
    const float fOrigin = m_zMesh.m_fOrigin[i % 3];
    const uint32_t iCell = KivMeshQuantise(static_cast<float>(vdVertex[i]), fOrigin, m_zMesh.m_fStep);
    vfVertex[i] = KivMeshCellCentre(iCell, fOrigin, m_zMesh.m_fStep);
  }
}

bool KivSceneMesh::AddFace(uint32_t iId, std::span<const double> vdVertex, std::span<const float> vfNormal,
                           std::span<const uint32_t> viIndex, const std::optional<KivColour>& fColour,
                           const std::optional<uint32_t>& iLayer) {
  if (vdVertex.empty() || viIndex.empty()) return false;
  KivMeshFace& zFace = m_zMesh.AddFace();
  zFace.m_iId = iId;
  zFace.m_iVertexCount = static_cast<uint32_t>(vdVertex.size() / 3);
  zFace.m_iTriangleCount = static_cast<uint32_t>(viIndex.size() / 3);
  zFace.m_iIndexSize = zFace.m_iVertexCount <= 0x100 ? 1 : zFace.m_iVertexCount <= 0x10000 ? 2 : 4;
  PutPoints(vdVertex, zFace.m_vfVertex);
  zFace.m_vfNormal.assign(vfNormal.begin(), vfNormal.end());
  zFace.m_vfNormal.resize(vdVertex.size());
  zFace.m_viIndex.assign(viIndex.begin(), viIndex.end());
  zFace.m_iDegenerate = KivMeshDegenerateOf(zFace.m_viIndex);
  PutAttributes(fColour, iLayer, zFace.m_vzAttribute);
  return true;
}

bool KivSceneMesh::AddEdge(uint32_t iId, std::span<const double> vdVertex, const std::optional<KivColour>& fColour,
                           const std::optional<uint32_t>& iLayer) {
  if (vdVertex.empty()) return false;
  KivMeshEdge& zEdge = m_zMesh.AddEdge();
  zEdge.m_iId = iId;
  zEdge.m_iVertexCount = static_cast<uint32_t>(vdVertex.size() / 3);
  PutPoints(vdVertex, zEdge.m_vfVertex);
  const std::vector<float>& vf = zEdge.m_vfVertex;
  if (zEdge.m_iVertexCount == 2 && std::equal(vf.begin(), vf.begin() + 3, vf.begin() + 3)) zEdge.m_iDegenerate = 2;
  PutAttributes(fColour, iLayer, zEdge.m_vzAttribute);
  return true;
}

void KivSceneMesh::Finish() {
  KivSceneBox zBox;
  for (const KivMeshFace& zFace : m_zMesh.m_vzFace)
    for (size_t i = 0; i < zFace.m_vfVertex.size(); i += 3) {
      const float* pf = &zFace.m_vfVertex[i];
      const double adPoint[3] = {pf[0], pf[1], pf[2]};
      zBox.Add(adPoint);
    }
  float afBox[6];
  for (size_t i = 0; i < 3; ++i) {
    afBox[i] = static_cast<float>(zBox.m_adLow[i]);
    afBox[3 + i] = static_cast<float>(zBox.m_adHigh[i]);
  }
  int64_t aiSize[2] = {0, 0};
  for (uint32_t iDelta = 0; iDelta < 2; ++iDelta) {
    m_zMesh.m_iMeshFlags = iDelta != 0 ? kMeshDelta : 0;
    uint8_t iLocal = 0;
    for (const KivMeshFace& zFace : m_zMesh.m_vzFace)
      aiSize[iDelta] += KivMeshFaceSize(m_zMesh, afBox, zFace.View(), iLocal);
  }
  m_zMesh.m_iMeshFlags = aiSize[1] < aiSize[0] ? kMeshDelta : 0;
}

}  // namespace kiv
