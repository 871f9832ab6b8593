// The element of polygon models: meshes without B-rep faces behind them, which may carry one flat normal per triangle.
// docs/mesh_elements.md has the record.
#pragma once

#include "KivMeshElement.h"

namespace kiv {

// A mesh of flat normals is stored indexed, with a normal for each triangle, and is in memory unindexed, with a normal
// for each corner. The compact lists keep the stored form; they are empty in any other mesh. Whoever changes an
// expanded mesh changes the compact lists, which are what is written, or clears them and m_bFlatNormals.
struct KivPolyFace : KivMeshFace {
  uint8_t m_bFlatNormals = 0;  // 1: one normal per triangle
  std::vector<float> m_vfCompactVertex;
  std::vector<float> m_vfCompactNormal;
  std::vector<uint32_t> m_viCompactIndex;

  bool IsFlat() const { return m_bFlatNormals == 1; }
  void Clear();
  auto Lists() const {
    return std::tuple_cat(KivMeshFace::Lists(), std::tie(m_vfCompactVertex, m_vfCompactNormal, m_viCompactIndex));
  }
  KivMeshFaceView View() const;

  bool HasThreeIndicesPerTriangle() const { return m_viIndex.size() == 3 * static_cast<uint64_t>(m_iTriangleCount); }

  // Before the streams of a flat mesh are read: the compact lists lend their memory. False, after a report, if nBytes,
  // what remains of the record, cannot hold the indices of the triangles.
  bool BeginExpand(uint64_t nBytes);
  // From the stored form to the one in memory. False, after a report, for an index beyond the vertices, and where there
  // are not three indices for each triangle. A mesh without indices stays as it is.
  bool Expand();
  void ClearCompact();
  // Puts the stored form in the place of the expanded one, if there is one, and back again.
  void SwapForSave();
  void SwapAfterSave();

 private:
  void Swap();
  void SwapLists();

  bool m_bSwapped = false;
};

class KivMemoryBlockPolyElem : public KivMeshBlock<KivMemoryBlockPolyElem, KivPolyFace> {
 public:
  static constexpr uint32_t kTag = 8;
  static constexpr char kSource[] = "src\\KivPolyElemData";
  static constexpr uint32_t kFaceKind = 10008;
  static constexpr uint32_t kEdgeKind = 10009;
  static constexpr bool kDerivesEdges = false;

  bool IsFaceEdge() const override { return false; }

  template <typename Fields>
  bool VisitFace(Fields& zFields, KivPolyFace& z, uint8_t& iLocal) {
    if (!zFields.Numbers(z.m_bFlatNormals, z.m_iVertexCount, z.m_iTriangleCount, z.m_iIndexSize)) return false;
    if constexpr (Fields::kReading) {
      if (!z.IsFlat())
        z.ClearCompact();
      else if (!z.BeginExpand(zFields.Record().Remaining()))
        return false;
      const uint32_t nNormals = z.IsFlat() ? z.m_iTriangleCount : z.m_iVertexCount;
      if (!KivVisitStreams(zFields, *this, z, nNormals, iLocal)) return false;
      if (zFields.Format() < 2) z.m_iDegenerate = KivMeshDegenerateOf(z.m_viIndex);
      return !z.IsFlat() || z.Expand();
    } else {
      if constexpr (Fields::kSizing) {
        if (!zFields.Check(z.m_iId == 0, static_cast<int64_t>(KivMeshSizing::IdNotZero)) ||
            !zFields.Check(z.m_iValue3 == 0, static_cast<int64_t>(KivMeshSizing::ValueNotZero)))
          return false;
      }
      return KivVisitStreams(zFields, *this, z.View(), iLocal) &&
             (!Fields::kSizing || !z.IsFlat() ||
              zFields.Check(z.HasThreeIndicesPerTriangle(), static_cast<int64_t>(KivMeshSizing::IndexCount)));
    }
  }

  void BeforeSave(bool bModifyOnlyForPosition);
  void AfterSave();
};

// Compiled once, in KivElementClasses.cpp.
extern template class KivOutOfCoreBlockNode<KivMemoryBlockPolyElem>;
extern template class KivElement<KivMemoryBlockPolyElem>;
extern template class KivMeshElement<KivMemoryBlockPolyElem>;

class KivPolyElemData : public KivMeshElement<KivMemoryBlockPolyElem> {
 public:
  using KivMeshElement::KivMeshElement;
};

}  // namespace kiv
