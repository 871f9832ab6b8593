#include "KivModelMeasure.h"

#include <assimp/postprocess.h>
#include <assimp/scene.h>
#include <gtest/gtest.h>

#include <assimp/Importer.hpp>

#include "KivFaceEdgeData.h"
#include "KivModelStructure.h"

using namespace kiv;

namespace kivtest {
namespace {

KivECoord3 Vec(const aiVector3D& v) {
  return {v.x, v.y, v.z};
}
KivECoord3 Moved(const KivECoord3& p, const std::array<double, 16>& m) {
  return {m[0] * p.m_dX + m[1] * p.m_dY + m[2] * p.m_dZ + m[3], m[4] * p.m_dX + m[5] * p.m_dY + m[6] * p.m_dZ + m[7],
          m[8] * p.m_dX + m[9] * p.m_dY + m[10] * p.m_dZ + m[11]};
}
// Column vectors: the parent's matrix times the node's.
std::array<double, 16> Product(const std::array<double, 16>& a, const aiMatrix4x4& zB) {
  const double b[16] = {zB.a1, zB.a2, zB.a3, zB.a4, zB.b1, zB.b2, zB.b3, zB.b4,
                        zB.c1, zB.c2, zB.c3, zB.c4, zB.d1, zB.d2, zB.d3, zB.d4};
  std::array<double, 16> m{};
  for (size_t i = 0; i < 16; ++i)
    for (size_t k = 0; k < 4; ++k) m[i] += a[i / 4 * 4 + k] * b[4 * k + i % 4];
  return m;
}

void MeasureNode(const aiScene& zScene, const aiNode& zNode, const std::array<double, 16>& zAbove, Measure& zMeasure) {
  const std::array<double, 16> zMatrix = Product(zAbove, zNode.mTransformation);
  for (unsigned i = 0; i < zNode.mNumMeshes; ++i) {
    const aiMesh& zMesh = *zScene.mMeshes[zNode.mMeshes[i]];
    for (unsigned k = 0; k < zMesh.mNumFaces; ++k) {
      const aiFace& zFace = zMesh.mFaces[k];
      if (zFace.mNumIndices != 3) continue;
      const aiVector3D& a = zMesh.mVertices[zFace.mIndices[0]];
      const aiVector3D& b = zMesh.mVertices[zFace.mIndices[1]];
      const aiVector3D& c = zMesh.mVertices[zFace.mIndices[2]];
      if (a == b || b == c || c == a) continue;  // two corners at one place
      zMeasure.Add({Moved(Vec(a), zMatrix), Moved(Vec(b), zMatrix), Moved(Vec(c), zMatrix)});
    }
  }
  for (unsigned i = 0; i < zNode.mNumChildren; ++i) MeasureNode(zScene, *zNode.mChildren[i], zMatrix, zMeasure);
}

}  // namespace

void Measure::Add(const std::array<KivECoord3, 3>& azCorner) {
  const auto& [zA, zB, zC] = azCorner;
  ++m_nTriangles;
  m_dArea += (zB - zA).Cross(zC - zA).Length() / 2;
  m_dVolume += zA.Dot(zB.Cross(zC)) / 6;
  for (const KivECoord3& z : azCorner) {
    const double ad[3] = {z.m_dX, z.m_dY, z.m_dZ};
    m_zBox.Add(ad);
  }
}

Measure MeasureSource(const std::filesystem::path& zPath) {
  Measure zMeasure;
  Assimp::Importer zImporter;
  const aiScene* pzScene = zImporter.ReadFile(zPath.string(), aiProcess_Triangulate);
  if (pzScene == nullptr) {
    ADD_FAILURE() << zImporter.GetErrorString();
    return zMeasure;
  }
  MeasureNode(*pzScene, *pzScene->mRootNode, {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1}, zMeasure);
  return zMeasure;
}

Measure MeasureModel(const KivWString& csPath) {
  Measure zMeasure;
  KivPrepareToolProcess();
  KivToolModel zModel(csPath);
  const KivToolStructure zStructure = KivLoadStructure(zModel);
  EXPECT_TRUE(zStructure.m_bComplete);
  for (const KivToolInstance& zInstance : zStructure.m_vzInstance) {
    const KivToolPart& zPart = zStructure.m_vzPart[zInstance.m_iPart];
    if (zPart.m_vzLevel.empty()) continue;
    const auto* pzMesh = zModel.LoadBlock<KivFaceEdgeData>(zPart.m_vzLevel.back().m_iFaceEdgeKey);
    if (pzMesh == nullptr) {
      ADD_FAILURE() << "a mesh cannot be loaded";
      continue;
    }
    for (const KivMeshFace& zFace : pzMesh->m_vzFace)
      for (size_t i = 0; i < zFace.m_viIndex.size(); i += 3) {
        std::array<KivECoord3, 3> az;
        for (size_t k = 0; k < 3; ++k) {
          const float* pf = &zFace.m_vfVertex.at(3 * size_t{zFace.m_viIndex[i + k]});
          az[k] = zInstance.m_zMatrix.TransformPoint(KivECoord3{pf[0], pf[1], pf[2]});
        }
        zMeasure.Add(az);
      }
  }
  return zMeasure;
}

void ExpectSameForm(const Measure& zIs, const Measure& zMust, double dUnits) {
  EXPECT_EQ(zIs.m_nTriangles, zMust.m_nTriangles);
  if (zMust.m_zBox.IsEmpty()) return;
  const double dArea = zMust.m_dArea * dUnits * dUnits, dDiagonal = zMust.m_zBox.Diagonal() * dUnits;
  double dFar = dDiagonal;  // the volume is one to the origin
  for (size_t i = 0; i < 3; ++i) {
    const double dLow = zMust.m_zBox.m_adLow[i] * dUnits, dHigh = zMust.m_zBox.m_adHigh[i] * dUnits;
    EXPECT_NEAR(zIs.m_zBox.m_adLow[i], dLow, 1e-4 * dDiagonal);
    EXPECT_NEAR(zIs.m_zBox.m_adHigh[i], dHigh, 1e-4 * dDiagonal);
    dFar = std::max({dFar, std::abs(dLow), std::abs(dHigh)});
  }
  EXPECT_NEAR(zIs.m_dArea, dArea, 1e-3 * dArea);
  EXPECT_NEAR(zIs.m_dVolume, zMust.m_dVolume * dUnits * dUnits * dUnits, 1e-4 * dArea * dFar);
}

}  // namespace kivtest
