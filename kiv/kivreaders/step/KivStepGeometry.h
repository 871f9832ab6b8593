// Exact geometry of parts as geometry strings (KivModelMeaning.h).
#pragma once

#include "KivScene.h"
#include "KivStepShape.h"

namespace kiv {

// Planes, cylinders, spheres, cones, lines and circles in their analytic form, all others as NURBS: a surface as large
// as its face, a curve that begins and ends where its edge does, their parameters from 0 to 1.
struct KivStepGeometry {
  std::vector<KivSceneGeometry> m_vzGeometry;
  uint32_t m_nFacesWithout = 0;  // faces and edges that no string can describe
  uint32_t m_nEdgesWithout = 0;
};

KivStepGeometry KivGetStepGeometry(const KivStepShape& zShape);

}  // namespace kiv
