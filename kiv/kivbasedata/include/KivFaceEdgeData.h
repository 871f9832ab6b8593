// The tessellation element: triangle meshes of faces and polylines of edges, quantised against one origin and step.
// docs/mesh_elements.md has the record.
#pragma once

#include "KivMeshElement.h"

namespace kiv {

class KivMemoryBlockFaceEdge : public KivMeshBlock<KivMemoryBlockFaceEdge, KivMeshFace> {
 public:
  static constexpr uint32_t kTag = 1;
  static constexpr char kSource[] = "src\\KivFaceEdgeData";
  static constexpr uint32_t kFaceKind = 10001;
  static constexpr uint32_t kEdgeKind = 10002;
  static constexpr bool kDerivesEdges = true;

  bool IsFaceEdge() const override { return true; }

  template <typename Fields>
  bool VisitFace(Fields& zFields, KivMeshFace& z, uint8_t& iLocal) {
    if (!zFields.Numbers(z.m_iVertexCount, z.m_iTriangleCount, z.m_iIndexSize)) return false;
    if constexpr (Fields::kReading) {
      if (!KivVisitStreams(zFields, *this, z, z.m_iVertexCount, iLocal)) return false;
      if (zFields.Format() < 2) z.m_iDegenerate = KivMeshDegenerateOf(z.m_viIndex);
      return true;
    } else {
      return KivVisitStreams(zFields, *this, z.View(), iLocal);
    }
  }
};

// Compiled once, in KivElementClasses.cpp.
extern template class KivOutOfCoreBlockNode<KivMemoryBlockFaceEdge>;
extern template class KivElement<KivMemoryBlockFaceEdge>;
extern template class KivMeshElement<KivMemoryBlockFaceEdge>;

class KivFaceEdgeData : public KivMeshElement<KivMemoryBlockFaceEdge> {
 public:
  using KivMeshElement::KivMeshElement;
};

}  // namespace kiv
