// The element with a model's product structure: a flat list of nodes, each with a placement, names and the keys of its
// PMI, layer filter and camera. docs/element_records.md has the record.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "KivElement.h"
#include "KivMatrixCode.h"

namespace kiv {

// A box around nothing, as low and high corner.
constexpr std::array<float, 6> kNoBox = {1e30f, 1e30f, 1e30f, -1e30f, -1e30f, -1e30f};

enum class KivNodeType : uint32_t { Leaf = 1, Inner = 2, Root = 3 };

// What is called carried has no meaning here: children are the business of whoever writes them, and are no keys.
struct KivAssemblyNode {
  KivEntryFrame m_zFrame;
  std::array<uint32_t, 4> m_iNodeValue{};  // carried
  uint64_t m_iPMIKey = 0;
  uint64_t m_iLayerFilterKey = 0;         // from revision 4
  uint64_t m_iCameraKey = 0;              // from revision 4
  std::array<uint64_t, 2> m_iNodeData{};  // carried
  KivEMatrix4 m_zMatrix;
  std::array<float, 6> m_fNodeBox = kNoBox;
  uint32_t m_iNodeState2 = 0;            // carried
  uint32_t m_iNodeType = 0;              // a KivNodeType; from revision 2; in old records with 0 found on reading
  std::array<uint64_t, 3> m_iNodeRef{};  // carried
  uint64_t m_iNodeRef3 = 0;              // carried; from revision 5, before it m_iNodeRef[2]
  std::vector<uint64_t> m_viChildren;
  std::array<KivWString, 3> m_strNodeName;
  std::vector<KivAttribute> m_vzAttribute;

  void Clear();
  auto Lists() const {
    return std::tie(m_viChildren, m_strNodeName[0], m_strNodeName[1], m_strNodeName[2], m_vzAttribute);
  }
};

class KivMemoryBlockAssemblyTree : public KivElementBlock {
 public:
  static constexpr uint32_t kTag = 6;
  static constexpr char kSource[] = "src\\KivAssemblyTree";
  static constexpr uint32_t kNodeKind = 10006;

  void Clear() { m_vzNode.Clear(); }
  // A new node, which is counted.
  KivAssemblyNode& AddNode();

  template <typename Fields>
  bool VisitBody(Fields& zFields, Memory&) {
    static constexpr uint32_t kKinds[] = {kGapKind, kNodeKind};
    uint32_t nNodes = m_zHeader.m_iEntryCount;
    if constexpr (!Fields::kReading) nNodes = static_cast<uint32_t>(m_vzNode.size());
    if (!zFields.FillTo(m_zHeader.m_iDataOffset)) return false;
    if (zFields.Format() >= 3 && !zFields.Numbers(nNodes)) return false;
    if (!zFields.Entries(m_vzNode, KivEntryCounting::All, nNodes, kKinds,
                         [](auto& z, KivAssemblyNode& zNode) { return VisitNode(z, zNode); }))
      return false;
    if constexpr (Fields::kReading) {
      if (zFields.Format() < 3) CountLiveNodes();
      if (zFields.Format() < 5) FindNodeTypes();
    }
    return true;
  }

  bool MayVisitKeys(bool bReplacing) const { return bReplacing || KIV_ASSERT(GetLinkNum() == 1); }
  template <typename Keys>
  bool VisitKeys(Keys& zKeys) {
    for (KivAssemblyNode& z : m_vzNode)
      if (!zKeys.Keys(z.m_iPMIKey, z.m_iLayerFilterKey, z.m_iCameraKey)) return false;
    for (KivAssemblyNode& z : m_vzNode)
      if (!zKeys.Attributes(KivAttributeRow::AssemblyNode, z.m_vzAttribute)) return false;
    return true;
  }

  template <typename Visit>
  void VisitLists(Visit&& pfnList) {
    pfnList(m_vzNode);
  }

  KivReusedList<KivAssemblyNode> m_vzNode;

 private:
  template <typename Fields>
  static bool VisitNode(Fields& zFields, KivAssemblyNode& z) {
    const uint32_t iFormat = zFields.Format();
    if (!zFields.Numbers(z.m_iNodeValue, z.m_iPMIKey)) return false;
    if (iFormat >= 4 && !zFields.Numbers(z.m_iLayerFilterKey, z.m_iCameraKey)) return false;
    if (!zFields.Numbers(z.m_iNodeData) || !KivVisitMatrix(zFields, z.m_zMatrix)) return false;
    if (!zFields.Numbers(z.m_fNodeBox, z.m_iNodeState2)) return false;
    if (iFormat >= 2 && !zFields.Numbers(z.m_iNodeType)) return false;
    if (!zFields.Numbers(z.m_iNodeRef)) return false;
    if (iFormat >= 5) {
      if (!zFields.Numbers(z.m_iNodeRef3)) return false;
    } else {
      z.m_iNodeRef3 = z.m_iNodeRef[2];
    }
    if (!zFields.List(z.m_viChildren)) return false;
    for (KivWString& strName : z.m_strNodeName)
      if (!zFields.Text(strName)) return false;
    return zFields.Attributes(z.m_vzAttribute);
  }
  void CountLiveNodes();
  void FindNodeTypes();
};

// Compiled once, in KivElementClasses.cpp.
extern template class KivOutOfCoreBlockNode<KivMemoryBlockAssemblyTree>;
extern template class KivElement<KivMemoryBlockAssemblyTree>;

class KivAssemblyTree : public KivElement<KivMemoryBlockAssemblyTree> {
 public:
  using KivElement::KivElement;
};

}  // namespace kiv
