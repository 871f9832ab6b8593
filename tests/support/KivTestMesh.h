// Meshes for tests, and a second coder for them: slow, one value at a time, written from the tables of
// docs/mesh_codec.md and sharing nothing with the library.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "KivMeshCodec.h"

namespace kivtest {

using Bytes = std::vector<uint8_t>;

struct TestMesh {
  kiv::KivMemoryBlockFaceEdgeInterfaceData m_zHeader;
  float m_afBox[6] = {-1e30f, -1e30f, -1e30f, 1e30f, 1e30f, 1e30f};
  std::vector<float> m_vfVertex;
  std::vector<float> m_vfNormal;
  std::vector<uint32_t> m_viIndex;
  uint32_t m_iTriangleCount = 0;
  uint32_t m_iIndexSize = 4;

  kiv::KivMeshFaceView View() const {
    kiv::KivMeshFaceView zView;
    zView.m_iVertexCount = static_cast<uint32_t>(m_vfVertex.size() / 3);
    zView.m_iTriangleCount = m_iTriangleCount;
    zView.m_iIndexSize = m_iIndexSize;
    zView.m_iNormalCount = zView.m_iVertexCount;
    zView.m_vfVertex = m_vfVertex;
    zView.m_vfNormal = m_vfNormal;
    zView.m_viIndex = m_viIndex;
    return zView;
  }
  // The element's box around the vertices.
  void FitBox() {
    for (int i = 0; i < 3; ++i) {
      m_afBox[i] = 1e30f;
      m_afBox[3 + i] = -1e30f;
      for (size_t k = static_cast<size_t>(i); k < m_vfVertex.size(); k += 3) {
        m_afBox[i] = std::min(m_afBox[i], m_vfVertex[k]);
        m_afBox[3 + i] = std::max(m_afBox[3 + i], m_vfVertex[k]);
      }
    }
  }
};

// --- The second coder -----------------------------------------------------------------------------------------------

class SlowCoder {
 public:
  explicit SlowCoder(const TestMesh& zMesh) : m_z(zMesh), m_zHeader(zMesh.m_zHeader) {}

  Bytes Face() {
    const bool bLocal = Local();
    m_vcOut.assign(1, bLocal ? 1 : 0);
    Vertices(bLocal, true);
    Normals();
    Indices();
    return m_vcOut;
  }
  Bytes Edge() {
    const bool bLocal = Local();
    m_vcOut.assign(1, bLocal ? 1 : 0);
    Vertices(bLocal, false);
    return m_vcOut;
  }

  static uint32_t Cell(float c, float o, float step) {
    if (step == 0) return 0;
    double q = std::trunc((static_cast<double>(c) - static_cast<double>(o)) * (1.0 / static_cast<double>(step)));
    if (std::isnan(q) || q < 0) return 0;
    if (q > 4294967000.0) q = 4294967000.0;
    return static_cast<uint32_t>(q);
  }

  static uint16_t NormalCode(float fx, float fy, float fz) {
    const double x = std::fabs(static_cast<double>(fx)), y = std::fabs(static_cast<double>(fy)),
                 z = std::fabs(static_cast<double>(fz));
    const int s = (fx < 0 ? 1 : 0) + (fy < 0 ? 2 : 0) + (fz < 0 ? 4 : 0);
    int m;
    if (x >= y)
      m = z > x ? 2 : 0;
    else
      m = y >= z ? 1 : 2;
    const double c[3] = {x, y, z};
    if (c[m] < 0.01) return 6144;
    const double scale = 44.99995440244675 / c[m];
    const int i = static_cast<int>(c[(m + 1) % 3] * scale), j = static_cast<int>(c[(m + 2) % 3] * scale);
    return static_cast<uint16_t>(((s * 4 + m) << 11) + i * 45 + j);
  }

  static void NormalOf(uint16_t code, float out[3]) {
    const int cell = code & 0x7FF, m = (code >> 11) & 3, s = code >> 13;
    out[0] = out[1] = out[2] = 0;
    if (m == 3) return;
    const int i = cell / 45, j = cell % 45;
    double u = i * 0.01, v = j * 0.01, w = 0.44;
    const double length = std::sqrt((j * j + i * i) * 0.0001 + 0.1936);
    u = u / length;
    v = v / length;
    w = w / length;
    out[(m + 1) % 3] = static_cast<float>(u);
    out[(m + 2) % 3] = static_cast<float>(v);
    out[m] = static_cast<float>(w);
    for (int k = 0; k < 3; ++k)
      if (s >> k & 1) out[k] = -out[k];
  }

 private:
  void Little(uint64_t v, int n) {
    for (int i = 0; i < n; ++i) m_vcOut.push_back(static_cast<uint8_t>(v >> (8 * i)));
  }
  void Big(uint64_t v, int n) {
    for (int i = n; i-- > 0;) m_vcOut.push_back(static_cast<uint8_t>(v >> (8 * i)));
  }

  void Bounds(float low[3], float high[3]) const {
    for (size_t a = 0; a < 3; ++a) {
      low[a] = m_z.m_afBox[3 + a];
      high[a] = m_z.m_afBox[a];
      for (size_t k = a; k < m_z.m_vfVertex.size(); k += 3) {
        if (m_z.m_vfVertex[k] < low[a]) low[a] = m_z.m_vfVertex[k];
        if (m_z.m_vfVertex[k] > high[a]) high[a] = m_z.m_vfVertex[k];
      }
    }
  }
  bool Local() const {
    if (m_zHeader.m_iCoordWidth == 1 || m_z.m_vfVertex.empty()) return false;
    float low[3], high[3];
    Bounds(low, high);
    for (int a = 0; a < 3; ++a)
      if (!(high[a] - low[a] < m_zHeader.m_fStep * 250.0f)) return false;
    return true;
  }

  void Vertices(bool bLocal, bool bFace) {
    uint32_t origin[3] = {0, 0, 0};
    const int width = bLocal ? 1 : static_cast<int>(m_zHeader.m_iCoordWidth);
    if (bLocal) {
      float low[3], high[3];
      Bounds(low, high);
      for (int a = 0; a < 3; ++a) {
        origin[a] = Cell(low[a], m_zHeader.m_fOrigin[a], m_zHeader.m_fStep);
        if (m_zHeader.m_iCoordWidth == 2 && origin[a] > 65535) origin[a] = 65535;
        Little(origin[a], m_zHeader.m_iCoordWidth == 2 ? 2 : 4);
      }
    }
    std::vector<int64_t> cells;
    for (size_t k = 0; k < m_z.m_vfVertex.size(); ++k) {
      int64_t q = Cell(m_z.m_vfVertex[k], m_zHeader.m_fOrigin[k % 3], m_zHeader.m_fStep);
      if (bLocal) q -= origin[k % 3];
      if (q < 0) q = 0;
      if (width == 1 && q > 255) q = 255;
      if (width == 2 && q > 65535) q = 65535;
      cells.push_back(q);
    }
    const bool bDelta = bFace && (m_zHeader.m_iMeshFlags & 8) && cells.size() >= 101 && width == 1;
    if (!bDelta) {
      for (const int64_t q : cells) Little(static_cast<uint64_t>(q), width);
      return;
    }
    for (size_t k = 0; k < cells.size(); k += 3) {
      if (k == 0) {
        for (size_t a = 0; a < 3; ++a) Little(static_cast<uint64_t>(cells[a]), 1);
        continue;
      }
      const int64_t dx = cells[k] - cells[k - 3], dy = cells[k + 1] - cells[k - 2], dz = cells[k + 2] - cells[k - 1];
      const auto in = [](int64_t d, int64_t limit) { return -limit <= d && d <= limit; };
      if (in(dx, 2) && in(dy, 2) && in(dz, 2)) {
        Big(static_cast<uint64_t>((dx + 2) * 25 + (dy + 2) * 5 + dz + 2), 1);
      } else if (in(dx, 7) && in(dy, 15) && in(dz, 15)) {
        Big(static_cast<uint64_t>(0x8000 + (dx + 7) * 1024 + (dy + 15) * 32 + dz + 15), 2);
      } else if (in(dx, 63) && in(dy, 63) && in(dz, 63)) {
        Big(static_cast<uint64_t>(0xC00000 + (dx + 63) * 16384 + (dy + 63) * 128 + dz + 63), 3);
      } else {
        Big(0xE0, 1);
        for (size_t a = 0; a < 3; ++a) Big(static_cast<uint64_t>(cells[k + a]), 1);
      }
    }
  }

  void Normals() {
    std::vector<uint16_t> codes;
    for (size_t k = 0; k < m_z.m_vfNormal.size(); k += 3)
      codes.push_back(NormalCode(m_z.m_vfNormal[k], m_z.m_vfNormal[k + 1], m_z.m_vfNormal[k + 2]));
    std::vector<std::pair<int, uint16_t>> runs;
    for (const uint16_t code : codes) {
      if (!runs.empty() && runs.back().first < 255 && runs.back().second == code)
        ++runs.back().first;
      else
        runs.emplace_back(1, code);
    }
    if (2.0 * static_cast<double>(codes.size()) > 1.5 * 3.0 * static_cast<double>(runs.size())) {
      Little(1, 1);
      for (const auto& [count, code] : runs) {
        Little(static_cast<uint64_t>(count), 1);
        Little(code, 2);
      }
    } else {
      Little(0, 1);
      for (const uint16_t code : codes) Little(code, 2);
    }
  }

  void Indices() {
    const auto& v = m_z.m_viIndex;
    const int size = static_cast<int>(m_z.m_iIndexSize);
    if (m_zHeader.m_iMeshFlags & 1) Little(v.size(), 4);
    if (!(m_zHeader.m_iMeshFlags & 8) || size == 1) {
      for (const uint32_t i : v) Little(i, size);
      return;
    }
    for (size_t k = 0; k < v.size(); ++k) {
      if (k == 0) {
        Big(v[0], size == 2 ? 2 : 4);
        continue;
      }
      const int64_t d = static_cast<int64_t>(v[k]) - static_cast<int64_t>(v[k - 1]);
      const int64_t magnitude = d < 0 ? -d : d;
      if (magnitude < 64)
        Big(static_cast<uint64_t>(d + 63), 1);
      else if (magnitude < 8192)
        Big(static_cast<uint64_t>(0x8000 + d + 8191), 2);
      else if (magnitude < 0x100000)
        Big(static_cast<uint64_t>(0xC00000 + d + 0xFFFFF), 3);
      else
        Big(0xE0000000u | (static_cast<uint64_t>(d + 0xFFFFFFF) & 0x1FFFFFFF), 4);
    }
  }

  const TestMesh& m_z;
  const kiv::KivMemoryBlockFaceEdgeInterfaceData& m_zHeader;
  Bytes m_vcOut;
};

// --- Random meshes --------------------------------------------------------------------------------------------------

// Numbers that are the same on every machine.
class TestRandom {
 public:
  explicit TestRandom(uint64_t iSeed) : m_z(iSeed) {}
  uint64_t Next() { return m_z(); }
  uint32_t Below(uint32_t n) { return static_cast<uint32_t>(m_z() % n); }
  // 0 to 1 in steps of 2 to the -24.
  float Unit() { return static_cast<float>(m_z() >> 40) * (1.0f / 16777216.0f); }
  float Within(float fLow, float fHigh) { return fLow + (fHigh - fLow) * Unit(); }

 private:
  std::mt19937_64 m_z;
};

// Any width, flags, size and smoothness; every value within what its form can hold.
inline TestMesh RandomMesh(TestRandom& zRandom) {
  TestMesh zMesh;
  kiv::KivMemoryBlockFaceEdgeInterfaceData& zHeader = zMesh.m_zHeader;
  zHeader.m_iCoordWidth = 1u << zRandom.Below(3);
  zHeader.m_fStep = zRandom.Below(2) ? 0.01f : zRandom.Within(0.001f, 3.0f);
  for (float& f : zHeader.m_fOrigin) f = zRandom.Below(2) ? 0.0f : zRandom.Within(-100.0f, 100.0f);
  zHeader.m_iMeshFlags = (zRandom.Below(2) ? kiv::kMeshIndexCount : 0) | (zRandom.Below(3) ? kiv::kMeshDelta : 0);

  static constexpr float kReach[] = {2, 100, 248, 260, 30000, 60000};
  const float fReach = std::min(kReach[zRandom.Below(6)], zHeader.m_iCoordWidth == 1 ? 248.0f : 1e9f);
  const float fStart = zHeader.m_iCoordWidth == 1 ? 0.5f : zRandom.Within(0.5f, 5000.0f);
  static constexpr float kStride[] = {1.5f, 8, 60, 1e9f};
  const float fStride = kStride[zRandom.Below(4)];
  static constexpr uint32_t kVertices[] = {1, 2, 3, 5, 33, 34, 35, 257, 700};
  const uint32_t nVertices = kVertices[zRandom.Below(9)];
  float afCell[3];
  for (float& f : afCell) f = zRandom.Within(0, fReach);
  for (uint32_t i = 0; i < nVertices; ++i) {
    for (size_t a = 0; a < 3; ++a) {
      afCell[a] += zRandom.Within(-fStride, fStride);
      if (!(afCell[a] >= 0 && afCell[a] <= fReach)) afCell[a] = zRandom.Within(0, fReach);
      zMesh.m_vfVertex.push_back(zHeader.m_fOrigin[a] + (fStart + afCell[a]) * zHeader.m_fStep);
    }
  }
  zMesh.FitBox();

  const uint32_t nLongestRun = 1 + zRandom.Below(4) * zRandom.Below(200);
  float afNormal[3] = {0, 0, 1};
  for (uint32_t i = 0, nRun = 0; i < nVertices; ++i, --nRun) {
    if (nRun == 0) {
      nRun = 1 + zRandom.Below(nLongestRun);
      for (float& f : afNormal) f = zRandom.Below(8) ? zRandom.Within(-1, 1) : 0.0f;
    }
    zMesh.m_vfNormal.insert(zMesh.m_vfNormal.end(), afNormal, afNormal + 3);
  }

  static constexpr uint32_t kIndexEnd[] = {256, 65536, 0x7FFFFFFF};
  const uint32_t iSize = zRandom.Below(3);
  zMesh.m_iIndexSize = 1u << iSize;
  zMesh.m_iTriangleCount = 1 + zRandom.Below(400);
  uint32_t nIndices = 3 * zMesh.m_iTriangleCount;
  if (zHeader.m_iMeshFlags & kiv::kMeshIndexCount) nIndices += zRandom.Below(50);
  static constexpr uint32_t kJump[] = {60, 5000, 1000000, 60000000};
  uint32_t iIndex = 0;
  const uint32_t nRange = std::min(kIndexEnd[iSize], 4 * kJump[zRandom.Below(4)]);
  const uint32_t nJump = kJump[zRandom.Below(4)];
  for (uint32_t i = 0; i < nIndices; ++i) {
    iIndex = (iIndex + nRange + zRandom.Below(std::min(nJump, nRange)) - std::min(nJump, nRange) / 2) % nRange;
    if (zRandom.Below(20) == 0) iIndex = zRandom.Below(nRange);
    zMesh.m_viIndex.push_back(iIndex);
  }
  return zMesh;
}

inline uint64_t HashOf(uint64_t iHash, const void* pBytes, size_t nBytes) {
  const uint8_t* p = static_cast<const uint8_t*>(pBytes);
  for (size_t i = 0; i < nBytes; ++i) iHash = (iHash ^ p[i]) * 0x100000001B3u;
  return iHash;
}
constexpr uint64_t kHashStart = 0xCBF29CE484222325u;

// "0A FF" as bytes.
inline Bytes FromHex(const std::string& strHex) {
  Bytes vcBytes;
  int iHalf = -1;
  for (const char c : strHex) {
    const int i = c >= '0' && c <= '9' ? c - '0' : c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
    if (i < 0) continue;
    if (iHalf < 0) {
      iHalf = i;
    } else {
      vcBytes.push_back(static_cast<uint8_t>(iHalf * 16 + i));
      iHalf = -1;
    }
  }
  return vcBytes;
}

}  // namespace kivtest
