#include "KivAssemblyTree.h"

#include <algorithm>

namespace kiv {

void KivAssemblyNode::Clear() {
  m_zFrame = KivEntryFrame();
  m_iNodeValue = {};
  m_iPMIKey = m_iLayerFilterKey = m_iCameraKey = 0;
  m_iNodeData = {};
  m_zMatrix = KivEMatrix4();
  m_fNodeBox = kNoBox;
  m_iNodeState2 = 0;
  m_iNodeType = 0;
  m_iNodeRef = {};
  m_iNodeRef3 = 0;
  m_viChildren.clear();
  for (KivWString& strName : m_strNodeName) strName.clear();
  m_vzAttribute.clear();
}

KivAssemblyNode& KivMemoryBlockAssemblyTree::AddNode() {
  KivAssemblyNode& zNode = m_vzNode.Add();
  zNode.m_zFrame.m_iKind = kNodeKind;
  ++m_zHeader.m_iEntryCount;
  return zNode;
}

void KivMemoryBlockAssemblyTree::CountLiveNodes() {
  m_zHeader.m_iEntryCount = static_cast<uint32_t>(
      std::count_if(m_vzNode.begin(), m_vzNode.end(), [](const auto& zNode) { return !zNode.m_zFrame.IsGap(); }));
}

// The first entry of the record is the root; behind a leading gap there is none.
void KivMemoryBlockAssemblyTree::FindNodeTypes() {
  for (KivAssemblyNode& zNode : m_vzNode) {
    if (zNode.m_zFrame.IsGap() || zNode.m_iNodeType != 0) continue;
    const KivNodeType eType = &zNode == m_vzNode.begin()   ? KivNodeType::Root
                              : zNode.m_viChildren.empty() ? KivNodeType::Leaf
                                                           : KivNodeType::Inner;
    zNode.m_iNodeType = static_cast<uint32_t>(eType);
  }
}

}  // namespace kiv
