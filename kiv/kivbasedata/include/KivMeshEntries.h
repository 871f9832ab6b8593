// The entries of mesh elements in memory, and the block that holds them. docs/mesh_elements.md has the records.
#pragma once

#include <cstdint>
#include <vector>

#include "KivElementFields.h"
#include "KivMemoryBlockFaceEdgeInterface.h"
#include "KivMeshCodec.h"

namespace kiv {

// 2: all corners of the first triangle, or both points of an edge, are one; 1: two corners are; 0: none of it.
uint32_t KivMeshDegenerateOf(const std::vector<uint32_t>& viIndex);

struct KivMeshFace {
  KivEntryFrame m_zFrame;
  uint32_t m_iValue0 = 0;  // the values are carried
  uint32_t m_iValue1 = 0;
  uint32_t m_iId = 0;
  uint32_t m_iValue3 = 0;
  uint32_t m_iVertexCount = 0;
  uint32_t m_iTriangleCount = 0;  // outside a strip
  uint32_t m_iIndexSize = 4;      // bytes of an index in the record: 1, 2 or 4
  uint32_t m_iDegenerate = 0;
  std::vector<float> m_vfVertex;  // x, y, z of each vertex
  std::vector<float> m_vfNormal;
  std::vector<uint32_t> m_viIndex;
  std::vector<KivAttribute> m_vzAttribute;

  void Clear();  // keeps the memory of the lists
  auto Lists() const { return std::tie(m_vfVertex, m_vfNormal, m_viIndex, m_vzAttribute); }
  KivMeshFaceView View() const;
};

struct KivMeshEdge {
  KivEntryFrame m_zFrame;
  uint32_t m_iValue0 = 0;
  uint32_t m_iValue1 = 0;
  uint32_t m_iId = 0;
  uint32_t m_iValue3 = 0;
  uint32_t m_iVertexCount = 0;
  uint32_t m_iDegenerate = 0;
  std::vector<float> m_vfVertex;
  std::vector<KivAttribute> m_vzAttribute;

  void Clear();
  auto Lists() const { return std::tie(m_vfVertex, m_vzAttribute); }
};

// The local flags of the entries of both lists, gaps with 0: those that a read for changed keys found, or those that a
// sizing has decided.
struct KivMeshFlags {
  std::vector<uint8_t> m_vcFace;
  std::vector<uint8_t> m_vcEdge;

  void Clear() {
    m_vcFace.clear();
    m_vcEdge.clear();
  }
};

// The streams of an entry, behind its counts.
bool KivVisitStreams(KivFieldReader& zFields, const KivMemoryBlockFaceEdgeInterface& zMesh, KivMeshFace& zFace,
                     uint32_t nNormals, uint8_t& iLocal);
bool KivVisitStreams(KivFieldSizer& zFields, const KivMemoryBlockFaceEdgeInterface& zMesh, const KivMeshFaceView& zFace,
                     uint8_t& iLocal);
bool KivVisitStreams(KivFieldWriter& zFields, const KivMemoryBlockFaceEdgeInterface& zMesh,
                     const KivMeshFaceView& zFace, uint8_t iLocal);
// bDerive: m_iDegenerate is found from the points as they are stored.
bool KivVisitStreams(KivFieldReader& zFields, const KivMemoryBlockFaceEdgeInterface& zMesh, KivMeshEdge& zEdge,
                     uint8_t& iLocal, bool bDerive);
bool KivVisitStreams(KivFieldSizer& zFields, const KivMemoryBlockFaceEdgeInterface& zMesh, KivMeshEdge& zEdge,
                     uint8_t& iLocal, bool bDerive);
bool KivVisitStreams(KivFieldWriter& zFields, const KivMemoryBlockFaceEdgeInterface& zMesh, KivMeshEdge& zEdge,
                     uint8_t iLocal, bool bDerive);

// A mesh block. Kind is the class derived from it, which has
//   kTag, kSource, kFaceKind, kEdgeKind, kDerivesEdges
//   template <typename Fields> bool VisitFace(Fields&, Face&, uint8_t& iLocal);   // behind m_iDegenerate
// A read finds the lists of a face as the face read before left them.
template <typename Kind, typename Face>
class KivMeshBlock : public KivMemoryBlockFaceEdgeInterface {
 public:
  using FaceType = Face;
  using Memory = KivMeshFlags;
  static constexpr bool kKeepsLayout = true;
  static constexpr bool kIsBulk = true;

  uint32_t GetFaceNum() const override { return static_cast<uint32_t>(m_vzFace.size()); }
  uint32_t GetEdgeNum() const override { return static_cast<uint32_t>(m_vzEdge.size()); }

  // A new entry. Callers count it in m_iEntryCount.
  Face& AddFace() {
    Face& zFace = m_vzFace.Add();
    zFace.m_zFrame.m_iKind = Kind::kFaceKind;
    return zFace;
  }
  KivMeshEdge& AddEdge() {
    KivMeshEdge& zEdge = m_vzEdge.Add();
    zEdge.m_zFrame.m_iKind = Kind::kEdgeKind;
    return zEdge;
  }

  void Clear() {
    static_cast<KivMemoryBlockFaceEdgeInterfaceData&>(*this) = KivMemoryBlockFaceEdgeInterfaceData();
    m_vzFace.Clear();
    m_vzEdge.Clear();
  }

  template <typename Fields>
  bool VisitBody(Fields& zFields, KivMeshFlags& zFlags) {
    return zFields.Numbers(m_iCoordWidth, m_fOrigin, m_fStep, m_iMeshFlags, m_iMeshValue, m_iDisplayValue) &&
           zFields.Check(m_iCoordWidth == 1 || m_iCoordWidth == 2 || m_iCoordWidth == 4,
                         static_cast<int64_t>(KivMeshSizing::BadCoordWidth)) &&
           zFields.FillTo(m_zHeader.m_iDataOffset) && VisitEntries(zFields, zFlags);
  }

  template <typename Keys>
  bool VisitKeys(Keys& zKeys) {
    for (Face& zFace : m_vzFace)
      if (!zKeys.Attributes(KivAttributeRow::Mesh, zFace.m_vzAttribute)) return false;
    for (KivMeshEdge& zEdge : m_vzEdge)
      if (!zKeys.Attributes(KivAttributeRow::Mesh, zEdge.m_vzAttribute)) return false;
    return true;
  }

  template <typename Visit>
  void VisitLists(Visit&& pfnList) {
    pfnList(m_vzFace);
    pfnList(m_vzEdge);
  }

  KivReusedList<Face> m_vzFace;
  KivReusedList<KivMeshEdge> m_vzEdge;

 private:
  Kind& Self() { return static_cast<Kind&>(*this); }

  // All faces, then all edges. A gap belongs to the edges as soon as there is one.
  bool VisitEntries(KivFieldReader& zFields, KivMeshFlags& zFlags) {
    static constexpr const char* kSource = Kind::kSource;
    static constexpr uint32_t kKinds[] = {kGapKind, Kind::kFaceKind, Kind::kEdgeKind};
    constexpr size_t kLeastEntry = kEntryFrameSize + 20 + kAttributeListMin;
    const size_t nAtMost = zFields.Record().Remaining() / kLeastEntry;
    m_vzFace.Reserve(std::min<size_t>(m_zHeader.m_iEntryCount, nAtMost));
    bool bEdges = false;
    const auto Read = [&](const KivEntryFrame& zFrame) {
      if (zFrame.m_iKind == Kind::kFaceKind && !KIV_ASSERT(!bEdges)) return false;
      if (zFrame.m_iKind == Kind::kEdgeKind) bEdges = true;
      return bEdges ? ReadEntry(zFields, m_vzEdge.Reuse(), zFrame, zFlags.m_vcEdge)
                    : ReadEntry(zFields, m_vzFace.Reuse(), zFrame, zFlags.m_vcFace);
    };
    return KivReadEntries(zFields.Record(), KivEntryCounting::Live, m_zHeader.m_iEntryCount, kKinds, Read);
  }

  // The lists of a live entry are not emptied before: to give them their length again would take a pass over them.
  template <typename Entry>
  bool ReadEntry(KivFieldReader& zFields, Entry& zEntry, const KivEntryFrame& zFrame, std::vector<uint8_t>& vcFlag) {
    uint8_t iLocal = 0;
    zEntry.m_iDegenerate = 0;
    const bool bRead = zFrame.IsGap() || VisitEntry(zFields, zEntry, iLocal);
    if (zFrame.IsGap() || !bRead) zEntry.Clear();
    zEntry.m_zFrame = zFrame;
    if (zFields.KeysOnly()) vcFlag.push_back(iLocal);
    return bRead;
  }

  template <typename Fields>
  bool VisitEntries(Fields& zFields, KivMeshFlags& zFlags) {
    static constexpr const char* kSource = Kind::kSource;
    static constexpr uint32_t kFaceKinds[] = {kGapKind, Kind::kFaceKind};
    static constexpr uint32_t kEdgeKinds[] = {kGapKind, Kind::kEdgeKind};
    if constexpr (Fields::kSizing) {
      zFlags.m_vcFace.assign(m_vzFace.size(), 0);
      zFlags.m_vcEdge.assign(m_vzEdge.size(), 0);
    }
    // Those of a read may be missing.
    if (!KIV_ASSERT(zFlags.m_vcFace.size() == m_vzFace.size() && zFlags.m_vcEdge.size() == m_vzEdge.size()))
      return false;
    const auto FaceAt = [&](auto& z, Face& zFace) {
      return VisitEntry(z, zFace, zFlags.m_vcFace[static_cast<size_t>(&zFace - m_vzFace.begin())]);
    };
    const auto EdgeAt = [&](auto& z, KivMeshEdge& zEdge) {
      return VisitEntry(z, zEdge, zFlags.m_vcEdge[static_cast<size_t>(&zEdge - m_vzEdge.begin())]);
    };
    return zFields.Entries(m_vzFace, KivEntryCounting::Live, 0, kFaceKinds, FaceAt) &&
           zFields.Entries(m_vzEdge, KivEntryCounting::Live, 0, kEdgeKinds, EdgeAt);
  }

  template <typename Fields>
  bool VisitEntry(Fields& zFields, Face& z, uint8_t& iLocal) {
    return zFields.Numbers(z.m_iValue0, z.m_iValue1, z.m_iId, z.m_iValue3) &&
           (zFields.Format() < 2 || zFields.Numbers(z.m_iDegenerate)) && Self().VisitFace(zFields, z, iLocal) &&
           zFields.Attributes(z.m_vzAttribute);
  }
  template <typename Fields>
  bool VisitEntry(Fields& zFields, KivMeshEdge& z, uint8_t& iLocal) {
    return zFields.Numbers(z.m_iValue0, z.m_iValue1, z.m_iId, z.m_iValue3) &&
           (zFields.Format() < 2 || zFields.Numbers(z.m_iDegenerate)) && zFields.Numbers(z.m_iVertexCount) &&
           KivVisitStreams(zFields, *this, z, iLocal, Kind::kDerivesEdges && zFields.Format() < 2) &&
           zFields.Attributes(z.m_vzAttribute);
  }
};

}  // namespace kiv
