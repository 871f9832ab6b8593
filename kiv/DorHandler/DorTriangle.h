// Nearest points of two triangles.
#pragma once

#include <array>

#include "KivECoord3.h"

namespace kiv {

using DorTriangle = std::array<KivECoord3, 3>;

struct DorNearest {
  double m_dSquared = 0;  // square of the distance
  KivECoord3 m_zFirst, m_zSecond;
};

// Triangles that have shrunk to a line or a point are taken as that. Of triangles that meet both points are a common
// one, up to rounding, and the distance is exactly 0 where an edge pierces the other triangle.
DorNearest DorNearestOfTriangles(const DorTriangle& zFirst, const DorTriangle& zSecond);

}  // namespace kiv
