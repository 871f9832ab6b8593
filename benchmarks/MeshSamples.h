// Generated meshes of any size, in the two kinds that matter: one smooth surface with a regular grid, and many small
// parts with plane and round faces, whose indices are local to each face.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

namespace bench {

struct Mesh {
  std::vector<float> m_vfVertex;
  std::vector<float> m_vfNormal;
  std::vector<uint32_t> m_viIndex;
  size_t Triangles() const { return m_viIndex.size() / 3; }
  size_t Vertices() const { return m_vfVertex.size() / 3; }
  size_t OutputBytes() const { return 4 * (m_vfVertex.size() + m_vfNormal.size() + m_viIndex.size()); }
};

// A torus of radius 1 and 0.4 with waves on it, as a grid of about nTriangles triangles.
inline Mesh WavyTorus(size_t nTriangles) {
  const size_t nAround = std::max<size_t>(8, static_cast<size_t>(std::sqrt(static_cast<double>(nTriangles))));
  const size_t nAcross = std::max<size_t>(4, nTriangles / (2 * nAround));
  Mesh z;
  for (size_t i = 0; i <= nAround; ++i) {
    for (size_t k = 0; k <= nAcross; ++k) {
      const double u = 6.283185307179586 * static_cast<double>(i) / static_cast<double>(nAround);
      const double v = 6.283185307179586 * static_cast<double>(k) / static_cast<double>(nAcross);
      const double dRadius = 0.4 + 0.02 * std::sin(9 * u) * std::cos(7 * v);
      const double dNormal[3] = {std::cos(u) * std::cos(v), std::sin(u) * std::cos(v), std::sin(v)};
      z.m_vfVertex.push_back(static_cast<float>(std::cos(u) + dRadius * dNormal[0]));
      z.m_vfVertex.push_back(static_cast<float>(std::sin(u) + dRadius * dNormal[1]));
      z.m_vfVertex.push_back(static_cast<float>(dRadius * dNormal[2]));
      for (const double d : dNormal) z.m_vfNormal.push_back(static_cast<float>(d));
    }
  }
  const uint32_t nRow = static_cast<uint32_t>(nAcross + 1);
  for (uint32_t i = 0; i < nAround; ++i) {
    for (uint32_t k = 0; k < nAcross; ++k) {
      const uint32_t a = i * nRow + k;
      for (const uint32_t iIndex : {a, a + nRow, a + 1, a + 1, a + nRow, a + nRow + 1}) z.m_viIndex.push_back(iIndex);
    }
  }
  return z;
}

// The faces of boxes (two triangles) and cylinders (a strip of quads and two fans), each a mesh of its own.
inline std::vector<Mesh> PartFaces(size_t nTriangles) {
  std::vector<Mesh> vzFaces;
  size_t nDone = 0;
  for (size_t iPart = 0; nDone < nTriangles; ++iPart) {
    const float x = static_cast<float>(iPart % 37) * 0.07f;
    const float y = static_cast<float>(iPart / 37 % 37) * 0.07f;
    const float zAt = static_cast<float>(iPart % 11) * 0.05f;
    if (iPart % 3 == 0) {
      for (int iAxis = 0; iAxis < 3; ++iAxis) {
        for (int iSide = 0; iSide < 2; ++iSide) {
          Mesh zFace;
          for (int k = 0; k < 4; ++k) {
            float af[3] = {x, y, zAt};
            af[iAxis] += iSide ? 0.04f : 0.0f;
            af[(iAxis + 1) % 3] += k & 1 ? 0.03f : 0.0f;
            af[(iAxis + 2) % 3] += k & 2 ? 0.02f : 0.0f;
            zFace.m_vfVertex.insert(zFace.m_vfVertex.end(), af, af + 3);
            for (int n = 0; n < 3; ++n) zFace.m_vfNormal.push_back(n != iAxis ? 0.0f : iSide ? 1.0f : -1.0f);
          }
          zFace.m_viIndex = {0, 1, 2, 2, 1, 3};
          nDone += 2;
          vzFaces.push_back(zFace);
        }
      }
      continue;
    }
    const uint32_t nSegments = 16 + static_cast<uint32_t>(iPart % 5) * 16;
    Mesh zRound;
    for (uint32_t k = 0; k <= nSegments; ++k) {
      const float fAngle = 6.2831853f * static_cast<float>(k) / static_cast<float>(nSegments);
      for (int iEnd = 0; iEnd < 2; ++iEnd) {
        const float af[3] = {x + 0.02f * std::cos(fAngle), y + 0.02f * std::sin(fAngle), zAt + (iEnd ? 0.05f : 0.0f)};
        zRound.m_vfVertex.insert(zRound.m_vfVertex.end(), af, af + 3);
        const float afNormal[3] = {std::cos(fAngle), std::sin(fAngle), 0};
        zRound.m_vfNormal.insert(zRound.m_vfNormal.end(), afNormal, afNormal + 3);
      }
    }
    for (uint32_t k = 0; k < nSegments; ++k)
      for (const uint32_t i : {0u, 2u, 1u, 1u, 2u, 3u}) zRound.m_viIndex.push_back(2 * k + i);
    nDone += zRound.Triangles();
    for (int iEnd = 0; iEnd < 2; ++iEnd) {
      Mesh zCap;
      for (uint32_t k = 0; k < nSegments; ++k) {
        const float fAngle = 6.2831853f * static_cast<float>(k) / static_cast<float>(nSegments);
        const float af[3] = {x + 0.02f * std::cos(fAngle), y + 0.02f * std::sin(fAngle), zAt + (iEnd ? 0.05f : 0.0f)};
        zCap.m_vfVertex.insert(zCap.m_vfVertex.end(), af, af + 3);
        const float afNormal[3] = {0, 0, iEnd ? 1.0f : -1.0f};
        zCap.m_vfNormal.insert(zCap.m_vfNormal.end(), afNormal, afNormal + 3);
      }
      for (uint32_t k = 2; k < nSegments; ++k)
        for (const uint32_t i : {0u, k - 1, k}) zCap.m_viIndex.push_back(i);
      nDone += zCap.Triangles();
      vzFaces.push_back(zCap);
    }
    vzFaces.push_back(zRound);
  }
  return vzFaces;
}

}  // namespace bench
