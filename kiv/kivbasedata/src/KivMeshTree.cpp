#include "KivMeshTree.h"

#include <set>

#include "KivElementWalk.h"
#include "KivFaceEdgeData.h"
#include "KivPolyElemData.h"
#include "KivReportQuiet.h"

namespace kiv {
namespace {

constexpr char kSource[] = "src\\KivMeshCodec";

template <typename Block>
void AddFaces(const Block& zBlock, KivMeshStatistics& zStatistics) {
  for (const auto& zFace : zBlock.m_vzFace)
    if (!zFace.m_zFrame.IsGap()) zStatistics.AddFace(zBlock, zFace.View());
}

bool AddBlock(const KivMemoryBlock* pzBlock, KivMeshStatistics& zStatistics) {
  if (const auto* pzFaceEdge = dynamic_cast<const KivMemoryBlockFaceEdge*>(pzBlock)) {
    AddFaces(*pzFaceEdge, zStatistics);
  } else if (const auto* pzPolyElem = dynamic_cast<const KivMemoryBlockPolyElem*>(pzBlock)) {
    AddFaces(*pzPolyElem, zStatistics);
  } else {
    return false;
  }
  return true;
}

// The store may throw when it is asked for the block.
bool AddElement(KivOutOfCoreTreeNode& zElement, KivMeshStatistics& zStatistics) noexcept {
  try {
    return KIV_ASSERT(AddBlock(zElement.GetMemoryBlock(), zStatistics));
  } catch (...) {
    KivReportThrownHere(kSource, __LINE__);
    return false;
  }
}

// pfnWalk(visitor) answers whether it came to all elements.
template <typename Walk>
bool AddWalked(Walk&& pfnWalk, KivMeshStatistics& zStatistics) noexcept {
  try {
    bool bMeshes = true;
    const bool bAll = pfnWalk([&](KivOutOfCoreTreeNode& zElement) { bMeshes &= AddElement(zElement, zStatistics); });
    return bAll && bMeshes;
  } catch (...) {
    KivReportThrownHere(kSource, __LINE__);
    return false;
  }
}

}  // namespace

bool KivAddMeshTree(uint32_t iManagerKey, uint64_t iRootKey, KivMeshStatistics& zStatistics) {
  return AddWalked(
      [&](const KivElementVisitor& pfnVisit) {
        std::set<uint64_t> siSeen;
        return KivWalkTree(iManagerKey, iRootKey, siSeen, pfnVisit);
      },
      zStatistics);
}

bool KivAddModelMeshes(uint32_t iManagerKey, int32_t iLevel, KivMeshStatistics& zStatistics) {
  return AddWalked(
      [&](const KivElementVisitor& pfnVisit) {
        return KivWalkElements(iManagerKey, {1, 8}, iLevel, pfnVisit);
      },
      zStatistics);
}

}  // namespace kiv
