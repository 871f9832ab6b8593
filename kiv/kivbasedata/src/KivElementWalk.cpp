#include "KivElementWalk.h"

#include <algorithm>
#include <initializer_list>
#include <optional>
#include <span>

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

// For what a walk itself does, which may find no memory. False after a report.
template <typename Step>
bool Do(Step&& pfnStep) noexcept {
  try {
    pfnStep();
    return true;
  } catch (...) {
    KivReportThrownHere(kSource, __LINE__);
    return false;
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
  return pzTree != nullptr && Do([&] { GatherNodes(*pzTree, siTag, zGathered); });
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
  std::vector<uint64_t> viToVisit;
  bool bAll = Do([&] { viToVisit.push_back(iRootKey); });
  while (!viToVisit.empty()) {
    const uint64_t iKey = viToVisit.back();
    viToVisit.pop_back();
    if (iKey == 0) continue;
    bool bNew = false;
    bAll &= Do([&] { bNew = siSeen.insert(iKey).second; });
    if (!bNew) continue;
    auto* pzElement = ElementAt<KivOutOfCoreTreeNode>(iManagerKey, iKey);
    const KivMemoryBlock* pzBlock = BlockOf(pzElement);
    if (!KIV_ASSERT(pzBlock != nullptr)) {
      bAll = false;
      continue;
    }
    // Before the visitor, who may evict the element.
    const std::array<uint64_t, 3> aiLink = pzBlock->GetHeader().m_aiLink;
    bAll &= Do([&] {
      viToVisit.push_back(aiLink[2]);
      viToVisit.push_back(aiLink[1]);
    });
    pfnVisit(*pzElement);
  }
  return bAll;
}

namespace {

// One walk. What the visitor throws passes through; all else is reported.
class ElementWalk {
 public:
  ElementWalk(uint32_t iManagerKey, const std::set<uint32_t>& siTag, int32_t iLevel, const KivElementVisitor& pfnVisit)
      : m_iManagerKey(iManagerKey), m_siTag(siTag), m_iLevel(iLevel), m_pfnVisit(pfnVisit) {}

  bool Run() {
    if (Wants({7, 11, 12})) {
      m_bAll &= GatherFromTree(m_iManagerKey, m_siTag, m_zGathered);
      VisitNodes();
    }
    if (Wants({0, 1, 2, 5, 8, 13})) {
      const KivMemoryBlockModel* pzModel = BlockOf(KivGetModel(m_iManagerKey));
      const uint64_t iRootKey = pzModel != nullptr ? pzModel->m_zHeader.m_aiLink[1] : 0;
      if (!KIV_ASSERT(iRootKey != 0)) return false;
      WalkInstances(iRootKey);
      WalkTrees(m_zGathered.m_siBrep, {5});
      WalkTrees(m_zGathered.m_siVertex, {13});
      WalkTrees(m_zGathered.m_siMesh, {1, 8});
    }
    return m_bAll;
  }

 private:
  using Tags = std::initializer_list<uint32_t>;

  bool Wants(Tags viTag) const {
    return std::any_of(viTag.begin(), viTag.end(), [this](uint32_t iTag) { return m_siTag.count(iTag) != 0; });
  }

  static constexpr std::array<uint32_t, 3> kNodeTags = {7, 11, 12};

  // What nodes refer to has no tree of its own: its links lead elsewhere, and are not followed.
  void VisitNodes() {
    for (const uint64_t iKey : m_zGathered.m_siNode) {
      auto* pzElement = ElementAt<KivOutOfCoreTreeNode>(m_iManagerKey, iKey);
      if (KIV_ASSERT(BlockOf(pzElement) != nullptr))
        Visit(*pzElement, kNodeTags);
      else
        m_bAll = false;
    }
  }

  // An element that must have one of some tags.
  void Visit(KivOutOfCoreTreeNode& zElement, std::span<const uint32_t> viOwnTag) {
    const uint32_t iTag = zElement.GetElementType();
    if (!KIV_ASSERT(std::find(viOwnTag.begin(), viOwnTag.end(), iTag) != viOwnTag.end())) {
      m_bAll = false;
      return;
    }
    if (m_siTag.count(iTag) != 0) m_pfnVisit(zElement);
  }

  void WalkInstances(uint64_t iRootKey) {
    std::set<uint64_t> siSeen;
    // Visitors here capture no more than a std::function holds without memory.
    m_bAll &= KivWalkTree(m_iManagerKey, iRootKey, siSeen, [this](KivOutOfCoreTreeNode& zElement) {
      const auto* pzInstances = dynamic_cast<const KivMemoryBlockInstance*>(BlockOf(&zElement));
      if (!KIV_ASSERT(pzInstances != nullptr)) {
        m_bAll = false;
        return;
      }
      m_bAll &= Do([&] { GatherInstances(*pzInstances, m_siTag, m_iLevel, m_zGathered); });
      if (Wants({0, 2})) m_pfnVisit(zElement);
    });
  }

  // The trees of one kind, of elements with its own tags. Each kind has its own record of what was seen: a damaged link
  // from one into another must not make the other look walked.
  void WalkTrees(const std::set<uint64_t>& siRoot, Tags viOwnTag) {
    m_viOwnTag = viOwnTag;
    std::set<uint64_t> siSeen;
    for (const uint64_t iKey : siRoot)
      m_bAll &= KivWalkTree(m_iManagerKey, iKey, siSeen,
                            [this](KivOutOfCoreTreeNode& zElement) { Visit(zElement, m_viOwnTag); });
  }

  const uint32_t m_iManagerKey;
  const std::set<uint32_t>& m_siTag;
  const int32_t m_iLevel;
  const KivElementVisitor& m_pfnVisit;
  Gathered m_zGathered;
  std::span<const uint32_t> m_viOwnTag;  // of the kind of tree that is walked
  bool m_bAll = true;
};

}  // namespace

bool KivWalkElements(uint32_t iManagerKey, const std::set<uint32_t>& siTag, int32_t iLevel,
                     const KivElementVisitor& pfnVisit) {
  return ElementWalk(iManagerKey, siTag, iLevel, pfnVisit).Run();
}

bool KivReadWholeModel(const KivWString& csPath, const KivElementVisitor& pfnVisit) {
  std::optional<KivOutOfCoreManagerKeyOwner> zOwner;
  std::set<uint32_t> siTag;
  const bool bOpen = Do([&] {
    KivStoreSource zSource;
    zSource.m_csPath = csPath;
    zSource.m_eMode = KivStoreMode::Read;
    zOwner.emplace(zSource);
    siTag = {0, 1, 2, 5, 7, 8, 11, 12, 13};
  });
  if (!bOpen) return false;
  const KivOutOfCoreManager* pzManager = zOwner->GetManager();
  if (pzManager == nullptr || pzManager->GetContainer() == nullptr) return false;
  const uint32_t iKey = zOwner->GetKey();
  const auto VisitOne = [&](KivOutOfCoreTreeNode* pzElement) {
    if (BlockOf(pzElement) == nullptr) return false;
    pfnVisit(*pzElement);
    return true;
  };
  KivModel* pzModel = KivGetModel(iKey);
  if (!VisitOne(pzModel)) return false;
  // By their keys: what is there but cannot be had is not the same as what is not there.
  const KivMemoryBlockModel* pzRoot = BlockOf(pzModel);
  if (pzRoot == nullptr) return false;
  bool bAll = true;
  if (pzRoot->m_zHeader.m_aiLink[2] != 0) {
    bAll &= VisitOne(KivGetModelNote(iKey));
    const KivMemoryBlockModelNote* pzNote = BlockOf(KivGetModelNote(iKey));
    if (pzNote == nullptr) return false;
    const uint64_t iTreeKey = pzNote->m_iAssemblyKey, iSecondKey = pzNote->m_iSecondKey;
    if (iTreeKey != 0) bAll &= VisitOne(KivGetAssemblyTree(iKey));
    if (iSecondKey != 0) bAll &= VisitOne(KivGetSecondElement(iKey));
  }
  return KivWalkElements(iKey, siTag, kAllLevels, pfnVisit) && bAll;
}

}  // namespace kiv
