// Triangles, area and box of a model's finest level, with all placements.
#pragma once

#include <gtest/gtest.h>

#include <array>

#include "KivFaceEdgeData.h"
#include "KivModelStructure.h"
#include "KivSceneMesh.h"

namespace kivtest {

struct Measure {
  uint64_t m_nTriangles = 0;
  double m_dArea = 0;
  kiv::KivSceneBox m_zBox;

  void Add(const std::array<kiv::KivECoord3, 3>& az) {
    ++m_nTriangles;
    m_dArea += (az[1] - az[0]).Cross(az[2] - az[0]).Length() / 2;
    for (const kiv::KivECoord3& z : az) {
      const double ad[3] = {z.m_dX, z.m_dY, z.m_dZ};
      m_zBox.Add(ad);
    }
  }
};

inline Measure MeasureModel(const kiv::KivWString& csPath) {
  using namespace kiv;
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

}  // namespace kivtest
