#include "KivElementWalk.h"

#include "KivMeshTree.h"
#include "KivOutOfCoreManager.h"
#include "KivReportQuiet.h"

namespace kiv {
namespace {

constexpr char kSource[] = "src\\KivModel";

// Null after a report, which may be the store's own.
template <typename Element>
Element* ElementAt(uint32_t iManagerKey, uint64_t iKey) {
  try {
    auto* pzElement = dynamic_cast<Element*>(KivOutOfCoreManager::GetElement(iManagerKey, iKey));
    if (pzElement == nullptr) KIV_ASSERT_FAIL();
    return pzElement;
  } catch (...) {
    KivReportThrownHere(kSource, __LINE__);
    return nullptr;
  }
}

template <typename Element>
auto BlockOf(Element* pzElement) -> decltype(pzElement->GetMemoryBlock()) {
  try {
    return pzElement != nullptr ? pzElement->GetMemoryBlock() : nullptr;
  } catch (...) {
    KivReportThrownHere(kSource, __LINE__);
    return nullptr;
  }
}

// The keys of what hangs on assembly nodes and on instances.
struct Gathered {
  std::set<uint64_t> m_siNode;  // PMI, layer filters and cameras
  std::set<uint64_t> m_siMesh;
  std::set<uint64_t> m_siBrep;
  std::set<uint64_t> m_siVertex;
};

void AddKey(std::set<uint64_t>& siKey, uint64_t iKey) {
  if (iKey != 0) siKey.insert(iKey);
}

void GatherNodes(const KivMemoryBlockAssemblyTree& zTree, const std::set<uint32_t>& siTag, Gathered& zGathered) {
  for (const KivAssemblyNode& zNode : zTree.m_vzNode) {
    if (siTag.count(7) != 0) AddKey(zGathered.m_siNode, zNode.m_iPMIKey);
    if (siTag.count(11) != 0) AddKey(zGathered.m_siNode, zNode.m_iLayerFilterKey);
    if (siTag.count(12) != 0) AddKey(zGathered.m_siNode, zNode.m_iCameraKey);
  }
}

// True also where a model has no note or no assembly tree.
bool GatherFromTree(uint32_t iManagerKey, const std::set<uint32_t>& siTag, Gathered& zGathered) {
  const KivMemoryBlockModel* pzModel = BlockOf(KivGetModel(iManagerKey));
  if (pzModel == nullptr) return false;
  const uint64_t iNoteKey = pzModel->m_zHeader.m_aiLink[2];
  if (iNoteKey == 0) return true;
  const KivMemoryBlockModelNote* pzNote = BlockOf(ElementAt<KivModelNote>(iManagerKey, iNoteKey));
  if (pzNote == nullptr) return false;
  const uint64_t iTreeKey = pzNote->m_iAssemblyKey;
  if (iTreeKey == 0) return true;
  const KivMemoryBlockAssemblyTree* pzTree = BlockOf(ElementAt<KivAssemblyTree>(iManagerKey, iTreeKey));
  if (pzTree == nullptr) return false;
  GatherNodes(*pzTree, siTag, zGathered);
  return true;
}

void GatherLevel(const KivInstanceLevel& zLevel, const std::set<uint32_t>& siTag, bool bCommon, Gathered& zGathered) {
  if (siTag.count(1) != 0) AddKey(zGathered.m_siMesh, zLevel.m_iFaceEdgeKey);
  if (siTag.count(8) != 0) AddKey(zGathered.m_siMesh, zLevel.m_iPolyElemKey);
  if (bCommon && (siTag.count(1) != 0 || siTag.count(8) != 0)) AddKey(zGathered.m_siMesh, zLevel.m_iCommonKey);
}

void GatherInstances(const KivMemoryBlockInstance& zInstances, const std::set<uint32_t>& siTag, int32_t iLevel,
                     Gathered& zGathered) {
  for (const KivInstanceEntry& zEntry : zInstances.m_vzInstance) {
    if (siTag.count(5) != 0) AddKey(zGathered.m_siBrep, zEntry.m_iBrepKey);
    if (siTag.count(13) != 0) {
      AddKey(zGathered.m_siVertex, zEntry.m_iVertexKey);
      AddKey(zGathered.m_siVertex, zEntry.m_iVertexKey2);
    }
    for (size_t i = 0; i < zEntry.m_vzLevel.size(); ++i)
      if (iLevel < 0 || i == static_cast<size_t>(iLevel))
        GatherLevel(zEntry.m_vzLevel[i], siTag, iLevel < 0, zGathered);
  }
}

}  // namespace

KivModel* KivGetModel(uint32_t iManagerKey) {
  return ElementAt<KivModel>(iManagerKey, kModelPosition);
}

KivInstance* KivGetInstanceRoot(uint32_t iManagerKey) {
  const KivMemoryBlockModel* pzBlock = BlockOf(KivGetModel(iManagerKey));
  if (pzBlock == nullptr || !KIV_ASSERT(pzBlock->m_zHeader.m_aiLink[1] != 0)) return nullptr;
  return ElementAt<KivInstance>(iManagerKey, pzBlock->m_zHeader.m_aiLink[1]);
}

KivModelNote* KivGetModelNote(uint32_t iManagerKey) {
  const KivMemoryBlockModel* pzBlock = BlockOf(KivGetModel(iManagerKey));
  if (pzBlock == nullptr || pzBlock->m_zHeader.m_aiLink[2] == 0) return nullptr;
  return ElementAt<KivModelNote>(iManagerKey, pzBlock->m_zHeader.m_aiLink[2]);
}

KivAssemblyTree* KivGetAssemblyTree(uint32_t iManagerKey) {
  const KivMemoryBlockModelNote* pzBlock = BlockOf(KivGetModelNote(iManagerKey));
  if (pzBlock == nullptr || pzBlock->m_iAssemblyKey == 0) return nullptr;
  return ElementAt<KivAssemblyTree>(iManagerKey, pzBlock->m_iAssemblyKey);
}

KivOutOfCoreTreeNode* KivGetSecondElement(uint32_t iManagerKey) {
  const KivMemoryBlockModelNote* pzBlock = BlockOf(KivGetModelNote(iManagerKey));
  if (pzBlock == nullptr || pzBlock->m_iSecondKey == 0) return nullptr;
  return ElementAt<KivOutOfCoreTreeNode>(iManagerKey, pzBlock->m_iSecondKey);
}

bool KivWalkTree(uint32_t iManagerKey, uint64_t iRootKey, std::set<uint64_t>& siSeen,
                 const KivElementVisitor& pfnVisit) {
  bool bAll = true;
  std::vector<uint64_t> viToVisit = {iRootKey};
  while (!viToVisit.empty()) {
    const uint64_t iKey = viToVisit.back();
    viToVisit.pop_back();
    if (iKey == 0 || !siSeen.insert(iKey).second) continue;
    auto* pzElement = ElementAt<KivOutOfCoreTreeNode>(iManagerKey, iKey);
    const KivMemoryBlock* pzBlock = BlockOf(pzElement);
    if (!KIV_ASSERT(pzBlock != nullptr)) {
      bAll = false;
      continue;
    }
    // Before the visitor, who may evict the element.
    const std::array<uint64_t, 3> aiLink = pzBlock->GetHeader().m_aiLink;
    viToVisit.push_back(aiLink[2]);
    viToVisit.push_back(aiLink[1]);
    pfnVisit(*pzElement);
  }
  return bAll;
}

bool KivWalkElements(uint32_t iManagerKey, const std::set<uint32_t>& siTag, int32_t iLevel,
                     const KivElementVisitor& pfnVisit) {
  const auto Wants = [&](std::initializer_list<uint32_t> viTag) {
    for (const uint32_t iTag : viTag)
      if (siTag.count(iTag) != 0) return true;
    return false;
  };
  bool bAll = true;
  Gathered zGathered;
  // The trees of one kind. Each kind has its own record of what was seen: a damaged link from one into another must not
  // make the other look walked.
  const auto WalkTrees = [&](const std::set<uint64_t>& siRoot, const std::set<uint32_t>& siOwnTag) {
    std::set<uint64_t> siSeen;
    for (const uint64_t iKey : siRoot)
      bAll &= KivWalkTree(iManagerKey, iKey, siSeen, [&](KivOutOfCoreTreeNode& zElement) {
        const uint32_t iTag = zElement.GetElementType();
        if (!KIV_ASSERT(siOwnTag.count(iTag) != 0)) {
          bAll = false;
          return;
        }
        if (siTag.count(iTag) != 0) pfnVisit(zElement);
      });
  };
  if (Wants({7, 11, 12})) {
    bAll &= GatherFromTree(iManagerKey, siTag, zGathered);
    WalkTrees(zGathered.m_siNode, {7, 11, 12});
  }
  if (Wants({0, 1, 2, 5, 8, 13})) {
    const KivMemoryBlockModel* pzModel = BlockOf(KivGetModel(iManagerKey));
    const uint64_t iRootKey = pzModel != nullptr ? pzModel->m_zHeader.m_aiLink[1] : 0;
    if (!KIV_ASSERT(iRootKey != 0)) return false;
    std::set<uint64_t> siSeen;
    bAll &= KivWalkTree(iManagerKey, iRootKey, siSeen, [&](KivOutOfCoreTreeNode& zElement) {
      const auto* pzInstances = dynamic_cast<const KivMemoryBlockInstance*>(BlockOf(&zElement));
      if (!KIV_ASSERT(pzInstances != nullptr)) {
        bAll = false;
        return;
      }
      GatherInstances(*pzInstances, siTag, iLevel, zGathered);
      if (Wants({0, 2})) pfnVisit(zElement);
    });
    WalkTrees(zGathered.m_siBrep, {5});
    WalkTrees(zGathered.m_siVertex, {13});
    WalkTrees(zGathered.m_siMesh, {1, 8});
  }
  return bAll;
}

bool KivAddModelMeshes(uint32_t iManagerKey, int32_t iLevel, KivMeshStatistics& zStatistics) {
  return KivWalkElements(iManagerKey, {1, 8}, iLevel,
                         [&](KivOutOfCoreTreeNode& zElement) { KivAddMeshBlock(BlockOf(&zElement), zStatistics); });
}

}  // namespace kiv
