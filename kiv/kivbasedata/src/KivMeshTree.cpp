#include "KivMeshTree.h"

#include <set>
#include <vector>

#include "KivFaceEdgeData.h"
#include "KivPolyElemData.h"

namespace kiv {
namespace {

constexpr char kSource[] = "src\\KivMeshCodec";

template <typename Block>
void AddFaces(const Block& zBlock, KivMeshStatistics& zStatistics) {
  for (const auto& zFace : zBlock.m_vzFace)
    if (!zFace.m_zFrame.IsGap()) zStatistics.AddFace(zBlock, zFace.View());
}

// Gives the element's block, null after a report.
KivMemoryBlock* BlockAt(uint32_t iManagerKey, uint64_t iKey) {
  try {
    auto* pzNode = dynamic_cast<KivOutOfCoreTreeNode*>(KivOutOfCoreManager::GetElement(iManagerKey, iKey));
    return pzNode != nullptr ? pzNode->GetMemoryBlock() : nullptr;
  } catch (...) {
    return nullptr;
  }
}

}  // namespace

bool KivAddMeshTree(uint32_t iManagerKey, uint64_t iRootKey, KivMeshStatistics& zStatistics) {
  bool bAll = true;
  std::set<uint64_t> siSeen;
  std::vector<uint64_t> viToVisit = {iRootKey};
  while (!viToVisit.empty()) {
    const uint64_t iKey = viToVisit.back();
    viToVisit.pop_back();
    if (iKey == 0 || !siSeen.insert(iKey).second) continue;
    KivMemoryBlock* pzBlock = BlockAt(iManagerKey, iKey);
    if (const auto* pzFaceEdge = dynamic_cast<const KivMemoryBlockFaceEdge*>(pzBlock)) {
      AddFaces(*pzFaceEdge, zStatistics);
    } else if (const auto* pzPolyElem = dynamic_cast<const KivMemoryBlockPolyElem*>(pzBlock)) {
      AddFaces(*pzPolyElem, zStatistics);
    } else {
      KIV_ASSERT_FAIL();
      bAll = false;
      continue;
    }
    const std::array<uint64_t, 3> aiLink = pzBlock->GetHeader().m_aiLink;
    viToVisit.push_back(aiLink[2]);
    viToVisit.push_back(aiLink[1]);
  }
  return bAll;
}

}  // namespace kiv
