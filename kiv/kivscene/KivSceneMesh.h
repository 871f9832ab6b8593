// Meshes of a model from coordinates in double: how they are quantised, and their entries.
//
// The step of a level is a power of two: at the most a sixteenth of its tolerance, and a thousandth of the mesh's size,
// so that a mesh smaller than the tolerance keeps its shape. The finest level takes the smallest step that its
// coordinates hold. Coordinates take two bytes if these hold the size with such a step, else four, which hold
// a four-millionth of the size. Multiples of the step stay as they are: cells have them as their centres.
//
// A model's coordinates are 32-bit floats: far from the origin, where the distance of two such numbers is more than the
// step, coordinates are what a cast to float makes of them.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>

#include "KivFaceEdgeData.h"
#include "KivScene.h"

namespace kiv {

// A box in double; empty until something is added.
struct KivSceneBox {
  std::array<double, 3> m_adLow = {1e300, 1e300, 1e300};
  std::array<double, 3> m_adHigh = {-1e300, -1e300, -1e300};

  bool IsEmpty() const { return m_adLow[0] > m_adHigh[0]; }
  void Add(const double* pdPoint);
  void AddPoints(std::span<const double> vdPoint);  // x, y, z of each
  void Add(const KivSceneBox& zOther, const KivEMatrix4& zMatrix);
  double Size() const;               // its longest side
  double Diagonal() const;           // 0 of an empty box
  double LargestCoordinate() const;  // without its sign
};

// Coordinates beyond this, either way, are in no model.
constexpr double kSceneLargestCoordinate = 1e29;

class KivSceneMesh {
 public:
  // A tolerance of 0: none.
  KivSceneMesh(KivMemoryBlockFaceEdge& zMesh, const KivSceneBox& zBox, double dTolerance, bool bFinest);

  // Normals for all vertices, or none: zero normals are stored then. A face without triangles and an edge without
  // points are left out, with false.
  bool AddFace(uint32_t iId, std::span<const double> vdVertex, std::span<const float> vfNormal,
               std::span<const uint32_t> viIndex, const std::optional<KivColour>& fColour,
               const std::optional<uint32_t>& iLayer);
  bool AddEdge(uint32_t iId, std::span<const double> vdVertex, const std::optional<KivColour>& fColour,
               const std::optional<uint32_t>& iLayer);
  // Delta coding, if it makes the faces smaller.
  void Finish();

 private:
  void PutPoints(std::span<const double> vdVertex, std::vector<float>& vfVertex) const;

  KivMemoryBlockFaceEdge& m_zMesh;
};

}  // namespace kiv
