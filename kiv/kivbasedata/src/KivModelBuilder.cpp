#include "KivModelBuilder.h"

#include <algorithm>
#include <array>
#include <stdexcept>

#include "KivElementClasses.h"
#include "KivElementWalk.h"
#include "KivFastFileContainerBase.h"
#include "KivModel.h"
#include "KivOutOfCoreHandle.h"
#include "KivOutOfCoreManager.h"
#include "KivOutOfCorePositionTables.h"
#include "KivReportQuiet.h"

namespace kiv {
namespace {

constexpr char kSource[] = "src\\KivModelBuilder";
constexpr size_t kInstancesPerElement = 256;

template <typename Block>
std::unique_ptr<Block> NewBlock() {
  auto pzBlock = std::make_unique<Block>();
  typename Block::Memory zMemory;
  KivResetElement(*pzBlock, zMemory);
  return pzBlock;
}

template <typename Block>
Block& Made(std::unique_ptr<Block>& pzBlock) {
  if (pzBlock == nullptr) pzBlock = NewBlock<Block>();
  return *pzBlock;
}

// No entry stays behind a block that finds no memory.
template <typename Block>
Block& Made(std::map<size_t, std::unique_ptr<Block>>& mapBlock, size_t iKey) {
  auto it = mapBlock.find(iKey);
  if (it == mapBlock.end()) it = mapBlock.emplace(iKey, NewBlock<Block>()).first;
  return *it->second;
}

// A box that grows; empty until something is added, and along each axis until it gets a number there.
struct Box {
  std::array<float, 6> m_af = kNoBox;

  bool IsEmpty() const { return m_af[0] > m_af[3] || m_af[1] > m_af[4] || m_af[2] > m_af[5]; }
  void Add(const float* pPoint) {
    for (size_t i = 0; i < 3; ++i) {
      m_af[i] = std::min(m_af[i], pPoint[i]);
      m_af[3 + i] = std::max(m_af[3 + i], pPoint[i]);
    }
  }
  void Add(const Box& zOther) {
    if (zOther.IsEmpty()) return;
    Add(&zOther.m_af[0]);
    Add(&zOther.m_af[3]);
  }
  void AddPoints(const std::vector<float>& vfPoint) {
    for (size_t i = 0; i + 2 < vfPoint.size(); i += 3) Add(&vfPoint[i]);
  }
  Box Transformed(const KivEMatrix4& zMatrix) const {
    Box zOut;
    if (IsEmpty()) return zOut;
    float afCorner[24], afMoved[24];
    for (size_t i = 0; i < 8; ++i)
      for (size_t k = 0; k < 3; ++k) afCorner[3 * i + k] = m_af[((i >> k) & 1) != 0 ? 3 + k : k];
    zMatrix.TransformBoxCorners(afCorner, afMoved);
    for (size_t i = 0; i < 8; ++i) zOut.Add(&afMoved[3 * i]);
    return zOut.IsEmpty() ? Box() : zOut;
  }
  // A header's box is never upside down; an empty one is 0.
  void PutInto(KivMemoryBlockHeader& zHeader) const {
    for (size_t i = 0; i < 3; ++i) {
      zHeader.m_afBoxMin[i] = IsEmpty() ? 0 : m_af[i];
      zHeader.m_afBoxMax[i] = IsEmpty() ? 0 : m_af[3 + i];
    }
  }
};

template <typename List>
uint32_t LiveNum(const List& vzEntry) {
  return static_cast<uint32_t>(
      std::count_if(vzEntry.begin(), vzEntry.end(), [](const auto& z) { return !z.m_zFrame.IsGap(); }));
}

// Counts the entries of a mesh and gives it its box; without vertices it keeps the caller's.
template <typename Block>
void Finish(Block& zMesh, Box& zPartBox) {
  Box zBox;
  for (const auto& zFace : zMesh.m_vzFace) zBox.AddPoints(zFace.m_vfVertex);
  for (const auto& zEdge : zMesh.m_vzEdge) zBox.AddPoints(zEdge.m_vfVertex);
  if (!zBox.IsEmpty()) zBox.PutInto(zMesh.m_zHeader);
  zMesh.m_zHeader.m_iEntryCount = LiveNum(zMesh.m_vzFace) + LiveNum(zMesh.m_vzEdge);
  zPartBox.Add(zBox);
}

}  // namespace

// --- Building -------------------------------------------------------------------------------------------------------

KivModelBuilder::KivModelBuilder() {
  KivElementBlock::Memory zMemory;
  KivResetElement(m_zAssembly, zMemory);
  KivResetElement(m_zNote, zMemory);
}

size_t KivModelBuilder::AddPart() {
  m_vzPart.emplace_back();
  return m_vzPart.size() - 1;
}

KivMemoryBlockFaceEdge& KivModelBuilder::FaceEdge(size_t iPart, size_t iLevel) {
  return Made(m_vzPart.at(iPart).m_mapFaceEdge, iLevel);
}
KivMemoryBlockPolyElem& KivModelBuilder::PolyElem(size_t iPart, size_t iLevel) {
  return Made(m_vzPart.at(iPart).m_mapPolyElem, iLevel);
}
KivMemoryBlockBrep& KivModelBuilder::Brep(size_t iPart) {
  return Made(m_vzPart.at(iPart).m_pzBrep);
}
KivMemoryBlockVertex& KivModelBuilder::Vertices(size_t iPart) {
  return Made(m_vzPart.at(iPart).m_pzVertex);
}

size_t KivModelBuilder::AddNode(const KivWString& csName, size_t iParent) {
  const size_t iNode = m_zAssembly.m_vzNode.size();
  if (iParent < iNode) {  // room first: without memory there is no new node
    auto& viChildren = Node(iParent).m_viChildren;
    if (viChildren.size() == viChildren.capacity()) viChildren.reserve(2 * viChildren.size() + 1);
  }
  KivWString csOwn(csName);
  m_zAssembly.AddNode().m_strNodeName[0].swap(csOwn);
  if (iParent < iNode) {
    Node(iParent).m_viChildren.push_back(iNode);
  } else if (iParent != kNoNode) {
    m_bParentsExist = false;
  }
  return iNode;
}

KivAssemblyNode& KivModelBuilder::Node(size_t iNode) {
  if (iNode >= m_zAssembly.m_vzNode.size()) throw std::out_of_range("no such node");
  return m_zAssembly.m_vzNode[iNode];
}

size_t KivModelBuilder::PlaceInstance(size_t iPart, const KivEMatrix4& zMatrix, size_t iNode) {
  m_vzPlaced.push_back({iPart, iNode, zMatrix, {}});
  return m_vzPlaced.size() - 1;
}

KivMemoryBlockPMI& KivModelBuilder::PMI(size_t iNode) {
  return Made(m_mapPMI, iNode);
}
KivMemoryBlockLayerFilter& KivModelBuilder::LayerFilter(size_t iNode) {
  return Made(m_mapLayerFilter, iNode);
}
KivMemoryBlockCamera& KivModelBuilder::Camera(size_t iNode) {
  return Made(m_mapCamera, iNode);
}
KivMemoryBlockPermanentIdTable& KivModelBuilder::PermanentIds() {
  return Made(m_pzPermanentIds);
}

// --- Saving ---------------------------------------------------------------------------------------------------------

// Writes parents before their children where a child's link names the parent, and gives them the children's keys
// afterwards: keys outlive the growth of a record.
class KivModelBuilder::Writer {
 public:
  Writer(KivModelBuilder& zBuilder, uint32_t iKey) : m_z(zBuilder), m_iKey(iKey) {}

  bool WriteAll() {
    return CheckNodes() && WriteParts() && WriteInstances() && WriteNote() && WriteAssembly() && WriteSecond() &&
           WriteRoot();
  }

  // The empty model and the first position table behind it.
  static bool MakeKeyedContainer(const KivWString& csPath) {
    KivStoreSource zSource;
    zSource.m_csPath = csPath;
    const KivOutOfCoreManagerKeyOwner zOwner(zSource);
    KivOutOfCoreManager* pzManager = zOwner.GetManager();
    if (!KIV_ASSERT(pzManager != nullptr && pzManager->GetContainer() != nullptr)) return false;
    auto pzModel = std::make_unique<KivModel>(zOwner.GetKey());
    if (!KIV_ASSERT(pzModel->GetMemoryBlockForWrite() != nullptr)) return false;
    if (!KIV_ASSERT(KivStoreNewElement(std::move(pzModel)).GetPosition() == kModelPosition)) return false;
    KivOutOfCorePositionTables zTables(zOwner.GetKey());
    const uint64_t iTable = zTables.NewTable();
    if (!KIV_ASSERT(iTable != 0)) return false;
    zTables.SetFirstPositionTable(iTable);
    pzManager->GetContainer()->SetFilePositionTableMode(1);
    pzManager->GetContainer()->SetHeaderDirty();
    pzManager->GetContainer()->Flush();
    return true;
  }

 private:
  template <typename Element, typename Block>
  uint64_t Store(const Block& zBlock) {
    auto pzElement = std::make_unique<Element>(m_iKey);
    Block* pzTarget = pzElement->GetMemoryBlockForWrite();
    if (pzTarget == nullptr) return 0;
    *pzTarget = zBlock;
    return KivStoreNewElement(std::move(pzElement)).GetPosition();
  }
  // Changes a stored element, and stores it again.
  template <typename Element, typename Change>
  bool Edit(uint64_t iKey, Change&& pfnChange) {
    KivOutOfCoreHandle zHandle(m_iKey, iKey);
    auto* pzElement = zHandle.Fetch<Element>();
    auto* pzBlock = pzElement != nullptr ? pzElement->GetMemoryBlockForWrite() : nullptr;
    if (pzBlock == nullptr) return false;
    pfnChange(*pzBlock);
    return zHandle.Commit();
  }
  template <typename Element, typename Block>
  bool StoreWithParent(Block& zBlock, uint64_t iParent, uint64_t& iKey) {
    zBlock.m_zHeader.m_aiLink = {iParent, 0, 0};
    iKey = Store<Element>(zBlock);
    return KIV_ASSERT(iKey != 0);
  }

  bool CheckNodes() {
    const KivReusedList<KivAssemblyNode>& vzNode = m_z.m_zAssembly.m_vzNode;
    if (!KIV_ASSERT_AS(m_z.m_bParentsExist, "the parent of each node exists")) return false;
    std::vector<uint8_t> vbHasParent(vzNode.size(), 0);
    for (size_t i = 0; i < vzNode.size(); ++i) {
      // Its parent, if it has one, stands before it.
      if (!KIV_ASSERT_AS(i == 0 || vbHasParent[i] != 0, "each node but the first has a parent")) return false;
      for (const uint64_t iChild : vzNode[i].m_viChildren) {
        if (!KIV_ASSERT_AS(iChild > i && iChild < vzNode.size(), "children exist and stand behind their parent"))
          return false;
        if (!KIV_ASSERT_AS(vbHasParent[iChild] == 0, "no node has two parents")) return false;
        vbHasParent[iChild] = 1;
      }
    }
    return true;
  }

  // Several instances may share a part's trees, so that their roots have no parent.
  bool WriteParts() {
    std::vector<uint8_t> vbPlaced(m_z.m_vzPart.size(), 0);
    for (const Placed& zPlaced : m_z.m_vzPlaced)
      if (zPlaced.m_iPart < vbPlaced.size()) vbPlaced[zPlaced.m_iPart] = 1;
    for (size_t i = 0; i < m_z.m_vzPart.size(); ++i) {
      Part& zPart = m_z.m_vzPart[i];
      Stored& zStored = m_vzStored.emplace_back();
      if (vbPlaced[i] == 0) continue;  // nothing would lead to it
      for (auto& [iLevel, pzMesh] : zPart.m_mapFaceEdge) {
        if (!KIV_ASSERT(iLevel < kMostLevels)) return false;
        Finish(*pzMesh, zStored.m_zBox);
        KivInstanceLevel& zLevel = LevelOf(zStored, iLevel);
        if (!StoreWithParent<KivFaceEdgeData>(*pzMesh, 0, zLevel.m_iFaceEdgeKey)) return false;
      }
      for (auto& [iLevel, pzMesh] : zPart.m_mapPolyElem) {
        if (!KIV_ASSERT(iLevel < kMostLevels)) return false;
        Finish(*pzMesh, zStored.m_zBox);
        KivInstanceLevel& zLevel = LevelOf(zStored, iLevel);
        if (zLevel.m_iFaceEdgeKey == 0) zLevel.m_iLevelKind = kInstanceLevelPolyElem;
        if (!StoreWithParent<KivPolyElemData>(*pzMesh, 0, zLevel.m_iPolyElemKey)) return false;
      }
      if (zPart.m_pzBrep != nullptr) {
        zPart.m_pzBrep->m_zHeader.m_iEntryCount = LiveNum(zPart.m_pzBrep->m_vzGeometry);
        if (!zStored.m_zBox.IsEmpty()) zStored.m_zBox.PutInto(zPart.m_pzBrep->m_zHeader);
        if (!StoreWithParent<KivBrepData>(*zPart.m_pzBrep, 0, zStored.m_iBrepKey)) return false;
      }
      if (zPart.m_pzVertex != nullptr) {
        zPart.m_pzVertex->m_zHeader.m_iEntryCount = static_cast<uint32_t>(zPart.m_pzVertex->m_vzVertex.size());
        if (!zStored.m_zBox.IsEmpty()) zStored.m_zBox.PutInto(zPart.m_pzVertex->m_zHeader);
        if (!StoreWithParent<KivVertexData>(*zPart.m_pzVertex, 0, zStored.m_iVertexKey)) return false;
      }
    }
    return true;
  }

  // A balanced tree: element i has the children 2i + 1 and 2i + 2. Children come first, then their parent's links.
  bool WriteInstances() {
    const size_t nElements =
        std::max<size_t>(1, (m_z.m_vzPlaced.size() + kInstancesPerElement - 1) / kInstancesPerElement);
    std::vector<uint64_t> viKey(nElements, 0);
    std::vector<Box> vzBox(nElements);
    m_vzNodeBox.assign(m_z.m_zAssembly.m_vzNode.size(), Box());
    for (size_t i = nElements; i-- > 0;) {
      auto pzElement = std::make_unique<KivInstance>(m_iKey);
      KivMemoryBlockInstance* pzBlock = pzElement->GetMemoryBlockForWrite();
      if (!KIV_ASSERT(pzBlock != nullptr)) return false;
      pzBlock->m_vfLevelTolerance = m_z.m_vfLevelTolerance;
      const size_t iFirst = i * kInstancesPerElement;
      const size_t iEnd = std::min(iFirst + kInstancesPerElement, m_z.m_vzPlaced.size());
      for (size_t k = iFirst; k < iEnd; ++k) {
        if (!FillInstance(m_z.m_vzPlaced[k], *pzBlock, vzBox[i])) return false;
      }
      pzBlock->m_zHeader.m_aiLink[0] = i == 0 ? kModelPosition : 0;  // the others get theirs below
      for (size_t iChild = 0; iChild < 2; ++iChild) {
        const size_t c = 2 * i + 1 + iChild;
        if (c >= nElements) continue;
        pzBlock->m_zHeader.m_aiLink[1 + iChild] = viKey[c];
        vzBox[i].Add(vzBox[c]);
      }
      vzBox[i].PutInto(pzBlock->m_zHeader);
      viKey[i] = KivStoreNewElement(std::move(pzElement)).GetPosition();
      if (!KIV_ASSERT(viKey[i] != 0)) return false;
    }
    for (size_t i = 1; i < nElements; ++i)
      if (!Edit<KivInstance>(viKey[i], [&](auto& zBlock) { zBlock.m_zHeader.m_aiLink[0] = viKey[(i - 1) / 2]; }))
        return false;
    m_iInstanceKey = viKey[0];
    m_zModelBox = vzBox[0];
    return true;
  }
  bool FillInstance(const Placed& zPlaced, KivMemoryBlockInstance& zBlock, Box& zElementBox) {
    if (!KIV_ASSERT(zPlaced.m_iPart < m_vzStored.size() && zPlaced.m_iNode < m_vzNodeBox.size())) return false;
    const Stored& zPart = m_vzStored[zPlaced.m_iPart];
    KivInstanceEntry& zEntry = zBlock.AddInstance();
    zEntry.m_iInstanceData[0] = static_cast<uint32_t>(zPlaced.m_iNode);
    zEntry.m_vzLevel = zPart.m_vzLevel;
    zEntry.m_iBrepKey = zPart.m_iBrepKey;
    zEntry.m_iVertexKey = zPart.m_iVertexKey;
    zEntry.m_zMatrix = zPlaced.m_zMatrix;
    zEntry.m_iMatrixClass &= ~0xFFu;  // the first two pairs are found by the write
    const Box zBox = zPart.m_zBox.Transformed(zPlaced.m_zMatrix);
    zEntry.m_fInstanceBox = zBox.m_af;
    zEntry.m_vzAttribute = zPlaced.m_vzAttribute;
    zElementBox.Add(zBox);
    m_vzNodeBox[zPlaced.m_iNode].Add(zBox);
    return true;
  }

  bool WriteNote() {
    m_zModelBox.PutInto(m_z.m_zNote.m_zHeader);
    m_z.m_zNote.m_iParamSize = kModelNoteParamSizeMax;
    m_z.m_zNote.m_iAssemblyKey = m_z.m_zNote.m_iSecondKey = 0;
    return StoreWithParent<KivModelNote>(m_z.m_zNote, kModelPosition, m_iNoteKey);
  }

  bool WriteAssembly() {
    KivMemoryBlockAssemblyTree& zTree = m_z.m_zAssembly;
    zTree.m_zHeader.m_iEntryCount = LiveNum(zTree.m_vzNode);
    m_zModelBox.PutInto(zTree.m_zHeader);
    for (size_t i = zTree.m_vzNode.size(); i-- > 0;) {  // children before their parent, whose box holds theirs
      KivAssemblyNode& zNode = zTree.m_vzNode[i];
      for (const uint64_t iChild : zNode.m_viChildren) m_vzNodeBox[i].Add(m_vzNodeBox[iChild]);
      zNode.m_fNodeBox = m_vzNodeBox[i].m_af;
      zNode.m_iPMIKey = zNode.m_iLayerFilterKey = zNode.m_iCameraKey = 0;
      const KivNodeType eType = i == 0                       ? KivNodeType::Root
                                : zNode.m_viChildren.empty() ? KivNodeType::Leaf
                                                             : KivNodeType::Inner;
      zNode.m_iNodeType = static_cast<uint32_t>(eType);
    }
    uint64_t iTreeKey = 0;
    if (!StoreWithParent<KivAssemblyTree>(zTree, m_iNoteKey, iTreeKey)) return false;
    if (!WriteOnNodes<KivPMI>(m_z.m_mapPMI, iTreeKey, &KivMemoryBlockPMI::m_vzPMI, &KivAssemblyNode::m_iPMIKey) ||
        !WriteOnNodes<KivLayerFilter>(m_z.m_mapLayerFilter, iTreeKey, &KivMemoryBlockLayerFilter::m_vzFilter,
                                      &KivAssemblyNode::m_iLayerFilterKey))
      return false;
    for (auto& [iNode, pzCamera] : m_z.m_mapCamera) {
      pzCamera->m_zHeader.m_iEntryCount = LiveNum(pzCamera->m_vzView) + LiveNum(pzCamera->m_vzGroup);
      if (!WriteOnNode<KivCamera>(iNode, *pzCamera, iTreeKey, &KivAssemblyNode::m_iCameraKey)) return false;
    }
    m_iTreeKey = iTreeKey;
    // The nodes now know their keys.
    return Edit<KivAssemblyTree>(iTreeKey, [&](KivMemoryBlockAssemblyTree& zBlock) {
      for (size_t i = 0; i < zTree.m_vzNode.size(); ++i) zBlock.m_vzNode[i] = zTree.m_vzNode[i];
    });
  }
  template <typename Element, typename Map, typename List>
  bool WriteOnNodes(Map& mapBlock, uint64_t iTreeKey, List pList, uint64_t KivAssemblyNode::*piKey) {
    for (auto& [iNode, pzBlock] : mapBlock) {
      pzBlock->m_zHeader.m_iEntryCount = LiveNum((*pzBlock).*pList);
      if (!WriteOnNode<Element>(iNode, *pzBlock, iTreeKey, piKey)) return false;
    }
    return true;
  }
  template <typename Element, typename Block>
  bool WriteOnNode(size_t iNode, Block& zBlock, uint64_t iTreeKey, uint64_t KivAssemblyNode::*piKey) {
    if (!KIV_ASSERT(iNode < m_z.m_zAssembly.m_vzNode.size())) return false;
    return StoreWithParent<Element>(zBlock, iTreeKey, m_z.m_zAssembly.m_vzNode[iNode].*piKey);
  }

  bool WriteSecond() {
    uint64_t iSecondKey = 0;
    if (m_z.m_pzPermanentIds != nullptr &&
        !StoreWithParent<KivPermanentIdTable>(*m_z.m_pzPermanentIds, m_iNoteKey, iSecondKey))
      return false;
    return Edit<KivModelNote>(m_iNoteKey, [&](KivMemoryBlockModelNote& zBlock) {
      zBlock.m_iAssemblyKey = m_iTreeKey;
      zBlock.m_iSecondKey = iSecondKey;
    });
  }

  bool WriteRoot() {
    return Edit<KivModel>(kModelPosition, [&](KivMemoryBlockModel& zBlock) {
      zBlock.m_zHeader.m_aiLink = {0, m_iInstanceKey, m_iNoteKey};
      m_zModelBox.PutInto(zBlock.m_zHeader);
      zBlock.m_fModelBoxMin = zBlock.m_zHeader.m_afBoxMin;
      zBlock.m_fModelBoxMax = zBlock.m_zHeader.m_afBoxMax;
    });
  }

  // A part's elements.
  struct Stored {
    std::vector<KivInstanceLevel> m_vzLevel;
    uint64_t m_iBrepKey = 0;
    uint64_t m_iVertexKey = 0;
    Box m_zBox;
  };
  static KivInstanceLevel& LevelOf(Stored& zStored, size_t iLevel) {
    if (zStored.m_vzLevel.size() <= iLevel) zStored.m_vzLevel.resize(iLevel + 1);
    return zStored.m_vzLevel[iLevel];
  }

  KivModelBuilder& m_z;
  uint32_t m_iKey;
  std::deque<Stored> m_vzStored;
  std::vector<Box> m_vzNodeBox;
  Box m_zModelBox;
  uint64_t m_iInstanceKey = 0, m_iNoteKey = 0, m_iTreeKey = 0;
};

bool KivModelBuilder::Save(const KivWString& csPath) {
  KivRegisterElementClasses();
  try {
    return Writer::MakeKeyedContainer(csPath) && WriteInto(csPath) && KIV_ASSERT(IsWhole(csPath));
  } catch (...) {
    KivReportThrownHere(kSource, __LINE__);
    return false;
  }
}

bool KivModelBuilder::WriteInto(const KivWString& csPath) {
  KivStoreSource zSource;
  zSource.m_csPath = csPath;
  zSource.m_eMode = KivStoreMode::ReadWrite;
  const KivOutOfCoreManagerKeyOwner zOwner(zSource);
  KivOutOfCoreManager* pzManager = zOwner.GetManager();
  if (!KIV_ASSERT(pzManager != nullptr && pzManager->GetContainer() != nullptr)) return false;
  if (!Writer(*this, zOwner.GetKey()).WriteAll() || !KIV_ASSERT(pzManager->SaveChanges())) return false;
  pzManager->GetContainer()->Flush();  // here, since the end of the store tells nobody what failed
  return KIV_ASSERT(KivOutOfCoreManager::FlushMainFile(zOwner.GetKey()));
}

// Reads all elements back: where reports return, a write that failed is seen by nothing else. What had been stored
// before its keys were known may be there as it was then, so that what the keys lead to is counted.
bool KivModelBuilder::IsWhole(const KivWString& csPath) const {
  std::array<size_t, 14> anFound{};  // by tag
  bool bParents = true;
  const bool bAll = KivReadWholeModel(csPath, [&](KivOutOfCoreTreeNode& zElement) {
    const uint32_t iTag = zElement.GetElementType();
    if (iTag < anFound.size()) ++anFound[iTag];
    if (iTag != KivInstance::kTag) return;
    const KivMemoryBlock* pzBlock = zElement.GetMemoryBlock();
    if (pzBlock == nullptr || pzBlock->GetHeader().m_aiLink[0] == 0) bParents = false;
  });
  return bAll && bParents && anFound[KivModelNote::kTag] == 1 && anFound[KivAssemblyTree::kTag] == 1 &&
         anFound[KivPermanentIdTable::kTag] == (m_pzPermanentIds != nullptr ? 1 : 0) &&
         anFound[KivPMI::kTag] == m_mapPMI.size() && anFound[KivLayerFilter::kTag] == m_mapLayerFilter.size() &&
         anFound[KivCamera::kTag] == m_mapCamera.size();
}

}  // namespace kiv
