// The element of placed parts: instances in a binary tree, each with a placement, a box, the keys of its meshes at each
// level of detail and of its exact geometry. docs/element_records.md has the record.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "KivAssemblyTree.h"
#include "KivElement.h"
#include "KivMatrixCode.h"

namespace kiv {

// The family of meshes that a level uses.
constexpr uint32_t kInstanceLevelFaceEdge = 10001;
constexpr uint32_t kInstanceLevelPolyElem = 10008;

struct KivInstanceLevel {
  uint64_t m_iFaceEdgeKey = 0;  // root of a tree of KivFaceEdgeData
  uint64_t m_iCommonKey = 0;    // of a mesh tree for all levels; from revision 3
  uint64_t m_iPolyElemKey = 0;  // of a tree of KivPolyElemData
  uint32_t m_iLevelValue = 0;   // carried
  uint32_t m_iLevelKind = kInstanceLevelFaceEdge;
  std::vector<KivAttribute> m_vzAttribute;

  auto Lists() const { return std::tie(m_vzAttribute); }
};

constexpr uint32_t kInstanceHasClass = 1u << 1;  // m_iMatrixFlags: m_iMatrixClass is valid, and stored

struct KivInstanceEntry {
  KivEntryFrame m_zFrame;
  std::array<uint32_t, 4> m_iInstanceData{};  // carried
  std::vector<KivInstanceLevel> m_vzLevel;
  uint64_t m_iBrepKey = 0;     // root of a tree of KivBrepData
  uint64_t m_iVertexKey = 0;   // of KivVertexData; from revision 4
  uint64_t m_iVertexKey2 = 0;  // of a second one; from revision 4
  uint64_t m_iExtraKey = 0;    // of any element; from revision 5
  uint32_t m_iMatrixFlags = 0;
  uint32_t m_iMatrixClass = kMatrixClassDefault;  // KivFillMatrixClass; 0 after a read without it
  KivEMatrix4 m_zMatrix;
  std::array<float, 6> m_fInstanceBox = kNoBox;  // from revision 3
  std::vector<KivAttribute> m_vzAttribute;

  void Clear();
  auto Lists() const { return std::tie(m_vzLevel, m_vzAttribute); }
};

class KivMemoryBlockInstance : public KivElementBlock {
 public:
  static constexpr uint32_t kTag = 2;
  static constexpr char kSource[] = "src\\KivInstance";
  static constexpr uint32_t kInstanceKind = 10003;

  void Clear();
  // A new instance, which is counted.
  KivInstanceEntry& AddInstance();

  // A write gives each entry that lacks it its class, unless only keys have changed.
  void BeforeSave(bool bModifyOnlyForPosition);

  template <typename Fields>
  bool VisitBody(Fields& zFields, Memory&) {
    static constexpr uint32_t kKinds[] = {kGapKind, kInstanceKind};
    uint32_t nEntries = m_zHeader.m_iEntryCount;
    if constexpr (!Fields::kReading) nEntries = static_cast<uint32_t>(m_vzInstance.size());
    if constexpr (Fields::kSizing) {
      if (!PlaceData()) return false;
    }
    if (!zFields.Numbers(m_iInstanceValue) || !zFields.List(m_vfLevelTolerance)) return false;
    if (!zFields.FillTo(m_zHeader.m_iDataOffset)) return false;
    if (zFields.Format() >= 2 && !zFields.Numbers(nEntries)) return false;
    if (!zFields.Entries(m_vzInstance, KivEntryCounting::All, nEntries, kKinds,
                         [](auto& z, KivInstanceEntry& zEntry) { return VisitEntry(z, zEntry); }))
      return false;
    if constexpr (Fields::kReading) {
      if (zFields.Format() < 2) CountLiveEntries();
    }
    return true;
  }

  bool MayVisitKeys(bool bReplacing) const { return bReplacing || KIV_ASSERT(GetLinkNum() > 0); }
  template <typename Keys>
  bool VisitKeys(Keys& zKeys) {
    for (KivInstanceEntry& z : m_vzInstance) {
      if (!zKeys.Keys(z.m_iBrepKey, z.m_iVertexKey, z.m_iVertexKey2, z.m_iExtraKey)) return false;
      for (KivInstanceLevel& zLevel : z.m_vzLevel)
        if (!zKeys.Keys(zLevel.m_iFaceEdgeKey, zLevel.m_iCommonKey, zLevel.m_iPolyElemKey)) return false;
    }
    for (KivInstanceEntry& z : m_vzInstance) {
      for (KivInstanceLevel& zLevel : z.m_vzLevel)
        if (!zKeys.Attributes(KivAttributeRow::InstanceLevel, zLevel.m_vzAttribute)) return false;
      if (!zKeys.Attributes(KivAttributeRow::Instance, z.m_vzAttribute)) return false;
    }
    return true;
  }

  template <typename Visit>
  void VisitLists(Visit&& pfnList) {
    pfnList(m_vzInstance);
  }

  uint32_t m_iInstanceValue = 0;                    // carried
  std::vector<float> m_vfLevelTolerance = {0.01f};  // of each level; entries may have more levels or fewer
  KivReusedList<KivInstanceEntry> m_vzInstance;

 private:
  static constexpr uint64_t kLevelSizeMin = 38;  // of the oldest revision

  template <typename Fields>
  static bool VisitLevel(Fields& zFields, KivInstanceLevel& z) {
    return zFields.Numbers(z.m_iFaceEdgeKey) && (zFields.Format() < 3 || zFields.Numbers(z.m_iCommonKey)) &&
           zFields.Numbers(z.m_iPolyElemKey, z.m_iLevelValue, z.m_iLevelKind) &&
           zFields.Check(z.m_iLevelKind == kInstanceLevelFaceEdge || z.m_iLevelKind == kInstanceLevelPolyElem) &&
           zFields.Attributes(z.m_vzAttribute);
  }
  template <typename Fields>
  static bool VisitEntry(Fields& zFields, KivInstanceEntry& z) {
    const uint32_t iFormat = zFields.Format();
    if (!zFields.Numbers(z.m_iInstanceData)) return false;
    if (!zFields.Items(z.m_vzLevel, kLevelSizeMin,
                       [](auto& f, KivInstanceLevel& zLevel) { return VisitLevel(f, zLevel); }))
      return false;
    if (!zFields.Numbers(z.m_iBrepKey)) return false;
    if (iFormat >= 4 && !zFields.Numbers(z.m_iVertexKey, z.m_iVertexKey2)) return false;
    if (iFormat >= 5 && !zFields.Numbers(z.m_iExtraKey)) return false;
    if (!zFields.Numbers(z.m_iMatrixFlags)) return false;
    if ((z.m_iMatrixFlags & kInstanceHasClass) != 0) {
      if (!zFields.Numbers(z.m_iMatrixClass)) return false;
    } else if constexpr (Fields::kReading) {
      z.m_iMatrixClass = 0;
    }
    for (size_t i = 0; i < 16; ++i)
      if (!zFields.Numbers(z.m_zMatrix[i])) return false;
    return (iFormat < 3 || zFields.Numbers(z.m_fInstanceBox)) && zFields.Attributes(z.m_vzAttribute);
  }
  bool PlaceData();
  void CountLiveEntries();
};

// Compiled once, in KivElementClasses.cpp.
extern template class KivOutOfCoreBlockNode<KivMemoryBlockInstance>;
extern template class KivElement<KivMemoryBlockInstance>;

class KivInstance : public KivElement<KivMemoryBlockInstance> {
 public:
  using KivElement::KivElement;
};

}  // namespace kiv
