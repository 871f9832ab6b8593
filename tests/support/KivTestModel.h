// Simple meshes for the models of tests and benchmarks.
#pragma once

#include <cstdint>

#include "KivModelBuilder.h"

namespace kivtest {

// A flat ribbon of triangles, fSize wide and long for each two of them, at the height fZ.
template <typename Block>
auto& AddRibbon(Block& zMesh, uint32_t nTriangles, float fSize, float fZ = 0) {
  const uint32_t nVertices = nTriangles + 2;
  auto& z = zMesh.AddFace();
  z.m_iVertexCount = nVertices;
  z.m_iTriangleCount = nTriangles;
  z.m_iIndexSize = nVertices <= 0x100 ? 1 : nVertices <= 0x10000 ? 2 : 4;
  for (uint32_t i = 0; i < nVertices; ++i) {
    const float fX = (i & 1) != 0 ? fSize : 0, fY = static_cast<float>(i / 2) * fSize;
    z.m_vfVertex.insert(z.m_vfVertex.end(), {fX, fY, fZ});
    z.m_vfNormal.insert(z.m_vfNormal.end(), {0, 0, 1});
  }
  for (uint32_t i = 0; i < nTriangles; ++i) {
    const uint32_t iOdd = i & 1;
    z.m_viIndex.insert(z.m_viIndex.end(), {i, i + 1 + iOdd, i + 2 - iOdd});
  }
  return z;
}

// nFaces times the same ribbon.
template <typename Block>
void AddRibbons(Block& zMesh, uint32_t nFaces, uint32_t nTriangles, float fSize) {
  zMesh.m_fStep = 0.001f;
  for (uint32_t i = 0; i < nFaces; ++i) AddRibbon(zMesh, nTriangles, fSize);
}

}  // namespace kivtest
