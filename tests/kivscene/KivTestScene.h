// Scenes for tests, and distances between meshes.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <numbers>
#include <vector>

#include "KivFaceEdgeData.h"
#include "KivScene.h"

namespace kivtest {

using Point = std::array<double, 3>;

// --- Bare meshes ----------------------------------------------------------------------------------------------------

// Three corners of its own for each triangle, as in files that know no vertices.
inline void AddTriangle(kiv::KivSceneFace& z, const Point& a, const Point& b, const Point& c) {
  for (const Point& p : {a, b, c}) {
    z.m_viIndex.push_back(static_cast<uint32_t>(z.m_vdVertex.size() / 3));
    z.m_vdVertex.insert(z.m_vdVertex.end(), p.begin(), p.end());
  }
}
inline void AddSquare(kiv::KivSceneFace& z, const Point& a, const Point& b, const Point& c, const Point& d) {
  AddTriangle(z, a, b, c);
  AddTriangle(z, a, c, d);
}

inline kiv::KivSceneFace Cube(double dSize, const Point& zAt = {0, 0, 0}) {
  const auto P = [&](int i) {
    return Point{zAt[0] + ((i & 1) != 0 ? dSize : 0), zAt[1] + ((i & 2) != 0 ? dSize : 0),
                 zAt[2] + ((i & 4) != 0 ? dSize : 0)};
  };
  kiv::KivSceneFace z;
  AddSquare(z, P(0), P(2), P(3), P(1));
  AddSquare(z, P(4), P(5), P(7), P(6));
  AddSquare(z, P(0), P(1), P(5), P(4));
  AddSquare(z, P(2), P(6), P(7), P(3));
  AddSquare(z, P(0), P(4), P(6), P(2));
  AddSquare(z, P(1), P(3), P(7), P(5));
  return z;
}

// A sphere of n rings; each point of it may lie a little in or out.
inline kiv::KivSceneFace Sphere(double dRadius, int n, double dWaves = 0) {
  const auto P = [&](int iRing, int iStep) -> Point {
    const double dPolar = std::numbers::pi * iRing / n;
    const double dAround = std::numbers::pi * (iStep % (2 * n)) / n;
    if (iRing == 0 || iRing == n) return {0, 0, iRing == 0 ? dRadius : -dRadius};
    const double r = dRadius + dWaves * std::sin(9 * dPolar) * std::sin(8 * dAround);
    return {r * std::sin(dPolar) * std::cos(dAround), r * std::sin(dPolar) * std::sin(dAround), r * std::cos(dPolar)};
  };
  kiv::KivSceneFace z;
  for (int i = 0; i < n; ++i)
    for (int k = 0; k < 2 * n; ++k) {
      if (i + 1 < n) AddTriangle(z, P(i, k), P(i + 1, k), P(i + 1, k + 1));
      if (i > 0) AddTriangle(z, P(i, k), P(i + 1, k + 1), P(i, k + 1));
    }
  return z;
}

inline kiv::KivScenePart MeshPart(std::vector<kiv::KivSceneFace> vzGroup, const kiv::KivWString& csName = u"part") {
  kiv::KivScenePart zPart;
  zPart.m_csName = csName;
  zPart.m_vzLevel.resize(1);
  for (uint32_t i = 0; i < vzGroup.size(); ++i) vzGroup[i].m_iId = i + 1;
  zPart.m_vzLevel[0].m_vzFace = std::move(vzGroup);
  return zPart;
}

// One part in one node.
inline kiv::KivScene MeshScene(std::vector<kiv::KivSceneFace> vzGroup) {
  kiv::KivScene zScene;
  zScene.m_vzPart.push_back(MeshPart(std::move(vzGroup)));
  zScene.m_vzNode.resize(1);
  zScene.m_vzNode[0].m_csName = u"root";
  zScene.m_vzNode[0].m_viPart = {0};
  return zScene;
}

// --- Distances ------------------------------------------------------------------------------------------------------

struct Triangle {
  std::array<Point, 3> m_az;
};

inline std::vector<Triangle> TrianglesOf(const kiv::KivSceneFace& z) {
  std::vector<Triangle> vz;
  for (size_t i = 0; i < z.m_viIndex.size(); i += 3) {
    Triangle& t = vz.emplace_back();
    for (size_t k = 0; k < 3; ++k) std::copy_n(&z.m_vdVertex[3 * size_t{z.m_viIndex[i + k]}], 3, t.m_az[k].begin());
  }
  return vz;
}
inline std::vector<Triangle> TrianglesOf(const kiv::KivMemoryBlockFaceEdge& zMesh) {
  std::vector<Triangle> vz;
  for (const kiv::KivMeshFace& z : zMesh.m_vzFace)
    for (size_t i = 0; i < z.m_viIndex.size(); i += 3) {
      Triangle& t = vz.emplace_back();
      for (size_t k = 0; k < 3; ++k) std::copy_n(&z.m_vfVertex[3 * size_t{z.m_viIndex[i + k]}], 3, t.m_az[k].begin());
    }
  return vz;
}

inline kiv::KivECoord3 Vec(const Point& p) {
  return {p[0], p[1], p[2]};
}
inline double Area(const std::vector<Triangle>& vz) {
  double d = 0;
  for (const Triangle& t : vz)
    d += (Vec(t.m_az[1]) - Vec(t.m_az[0])).Cross(Vec(t.m_az[2]) - Vec(t.m_az[0])).Length() / 2;
  return d;
}

inline double DistanceToSegment(const kiv::KivECoord3& p, const kiv::KivECoord3& a, const kiv::KivECoord3& b) {
  const kiv::KivECoord3 ab = b - a;
  const double t = ab.Dot(ab) > 0 ? std::clamp((p - a).Dot(ab) / ab.Dot(ab), 0.0, 1.0) : 0;
  return (p - (a + ab * t)).Length();
}
inline double DistanceToTriangle(const Point& zPoint, const Triangle& t) {
  const kiv::KivECoord3 p = Vec(zPoint), a = Vec(t.m_az[0]), b = Vec(t.m_az[1]), c = Vec(t.m_az[2]);
  const kiv::KivECoord3 n = (b - a).Cross(c - a);
  const double dArea = n.Length();
  if (dArea > 0 && (b - a).Cross(p - a).Dot(n) >= 0 && (c - b).Cross(p - b).Dot(n) >= 0 &&
      (a - c).Cross(p - c).Dot(n) >= 0)
    return std::abs((p - a).Dot(n)) / dArea;
  return std::min({DistanceToSegment(p, a, b), DistanceToSegment(p, b, c), DistanceToSegment(p, c, a)});
}
// Of corners, middles of edges and centres of the triangles of one mesh from the other mesh, the largest.
inline double LargestDistance(const std::vector<Triangle>& vzFrom, const std::vector<Triangle>& vzTo) {
  std::vector<std::array<double, 4>> vzBall;  // around each triangle
  for (const Triangle& t : vzTo) {
    double dRadius = 0;
    for (size_t k = 1; k < 3; ++k) dRadius = std::max(dRadius, (Vec(t.m_az[k]) - Vec(t.m_az[0])).Length());
    vzBall.push_back({t.m_az[0][0], t.m_az[0][1], t.m_az[0][2], dRadius});
  }
  double dLargest = 0;
  for (const Triangle& t : vzFrom)
    for (int i = 0; i < 7; ++i) {
      static constexpr double kWeight[7][3] = {
          {1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {.5, .5, 0}, {0, .5, .5}, {.5, 0, .5}, {1. / 3, 1. / 3, 1. / 3}};
      Point p = {0, 0, 0};
      for (size_t k = 0; k < 3; ++k)
        for (size_t x = 0; x < 3; ++x) p[x] += kWeight[i][k] * t.m_az[k][x];
      double dNearest = 1e300;
      for (size_t k = 0; k < vzTo.size(); ++k) {
        const double* pd = vzBall[k].data();
        const double dx = p[0] - pd[0], dy = p[1] - pd[1], dz = p[2] - pd[2], dReach = dNearest + pd[3];
        if (dx * dx + dy * dy + dz * dz < dReach * dReach)
          dNearest = std::min(dNearest, DistanceToTriangle(p, vzTo[k]));
      }
      dLargest = std::max(dLargest, dNearest);
    }
  return dLargest;
}

}  // namespace kivtest
