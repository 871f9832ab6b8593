#include "KivMeshTree.h"

#include <set>

#include "KivElementWalk.h"
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

}  // namespace

bool KivAddMeshBlock(const KivMemoryBlock* pzBlock, KivMeshStatistics& zStatistics) {
  if (const auto* pzFaceEdge = dynamic_cast<const KivMemoryBlockFaceEdge*>(pzBlock)) {
    AddFaces(*pzFaceEdge, zStatistics);
  } else if (const auto* pzPolyElem = dynamic_cast<const KivMemoryBlockPolyElem*>(pzBlock)) {
    AddFaces(*pzPolyElem, zStatistics);
  } else {
    return false;
  }
  return true;
}

bool KivAddMeshTree(uint32_t iManagerKey, uint64_t iRootKey, KivMeshStatistics& zStatistics) {
  bool bMeshes = true;
  std::set<uint64_t> siSeen;
  const bool bAll = KivWalkTree(iManagerKey, iRootKey, siSeen, [&](KivOutOfCoreTreeNode& zElement) {
    // The walk has loaded it.
    if (KIV_ASSERT(KivAddMeshBlock(zElement.GetMemoryBlock(), zStatistics))) return;
    bMeshes = false;
  });
  return bAll && bMeshes;
}

}  // namespace kiv
