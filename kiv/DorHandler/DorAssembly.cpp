#include "DorAssembly.h"

#include <algorithm>
#include <set>

#include "KivElementWalk.h"

namespace kiv {
namespace {

uint64_t NoteKeyOf(DorSession& zSession) {
  const auto* pzRoot = DorNeed(KivGetModel(zSession.Key()), "the model's root")->GetMemoryBlock();
  return DorNeed(pzRoot, "the model's root")->m_zHeader.m_aiLink[2];
}

uint64_t TreeKeyOf(DorSession& zSession) {
  if (NoteKeyOf(zSession) == 0) return 0;
  KivModelNote* pzNote = DorNeed(KivGetModelNote(zSession.Key()), "the model's note");
  return DorNeed(pzNote->GetMemoryBlock(), "the model's note")->m_iAssemblyKey;
}

// --- Boxes that follow ----------------------------------------------------------------------------------------------

class Follower {
 public:
  Follower(DorSession& zSession, const DorMoved& zMoved, DorChange& zChange)
      : m_zSession(zSession), m_zMoved(zMoved), m_zChange(zChange) {}

  size_t Run() {
    FindInstances();
    if (m_mapBox.empty()) return 0;
    ChangeElements();
    ChangeTree();
    ChangeModel();
    return m_mapBox.size();
  }

 private:
  void FindInstances() {
    DorModelIndex& zIndex = m_zSession.Index();
    const std::set<uint32_t> siPart(m_zMoved.m_viPart.begin(), m_zMoved.m_viPart.end());
    std::map<uint32_t, DorBox> mapPartBox;
    const std::vector<DorPlace>& vzPlace = zIndex.Places();
    for (size_t i = 0; i < vzPlace.size(); ++i) {
      const auto it = m_zMoved.m_mapMatrix.find(static_cast<int64_t>(i));
      if (it == m_zMoved.m_mapMatrix.end() && siPart.count(vzPlace[i].m_iPart) == 0) continue;
      const uint32_t iPart = vzPlace[i].m_iPart;
      if (mapPartBox.count(iPart) == 0) mapPartBox[iPart] = zIndex.PartBox(iPart, m_zMoved.m_mapMeshBox);
      const KivEMatrix4 zMatrix = it != m_zMoved.m_mapMatrix.end() ? it->second : zIndex.EntryOf(vzPlace[i]).m_zMatrix;
      const DorBox zBox = mapPartBox[iPart].Moved(zMatrix);
      if (!zBox.IsFinite()) throw DorRefusal(DorAnswerCode::NotANumber, "a box would leave the range of numbers");
      m_mapBox.emplace(i, zBox);
      m_siNode.insert(vzPlace[i].m_iNode);
      m_siElement.insert(vzPlace[i].m_iElementKey);
    }
  }

  // Children stand behind their parents, so that their boxes are known first when we go backwards.
  void ChangeElements() {
    for (const auto& [i, zBox] : m_mapBox) {
      const DorPlace& zPlace = m_zSession.Index().Places()[i];
      auto& zBlock = m_zChange.Edit<KivInstance>(zPlace.m_iElementKey);
      KivInstanceEntry& zEntry = zBlock.m_vzInstance[zPlace.m_iEntry];
      const auto it = m_zMoved.m_mapMatrix.find(static_cast<int64_t>(i));
      if (it != m_zMoved.m_mapMatrix.end()) {
        zEntry.m_zMatrix = it->second;
        zEntry.m_iMatrixClass = 0;  // found by the write
      }
      zEntry.m_fInstanceBox = zBox.m_af;
    }
    const auto& vzElement = m_zSession.Index().InstanceElements();
    std::map<uint64_t, DorBox> mapChanged;
    for (size_t i = vzElement.size(); i-- > 0;) {
      const DorInstanceElement& z = vzElement[i];
      const bool bChild = mapChanged.count(z.m_aiChild[0]) != 0 || mapChanged.count(z.m_aiChild[1]) != 0;
      if (!bChild && m_siElement.count(z.m_iKey) == 0) continue;
      auto& zBlock = m_zChange.Edit<KivInstance>(z.m_iKey);
      DorBox zBox;
      for (const KivInstanceEntry& zEntry : zBlock.m_vzInstance)
        if (!zEntry.m_zFrame.IsGap()) zBox.Add(DorBox{zEntry.m_fInstanceBox});
      for (const uint64_t iChild : z.m_aiChild) {
        if (iChild == 0) continue;
        const auto it = mapChanged.find(iChild);
        zBox.Add(it != mapChanged.end() ? it->second : StoredBox(iChild));
      }
      zBox.PutInto(zBlock.m_zHeader);
      mapChanged[z.m_iKey] = zBox;
    }
    m_zModelBox = mapChanged[vzElement[0].m_iKey];
  }
  // A header's box is around what is below it as well. That of an element without instances may be the 0 that stands
  // for nothing, so that those below it are asked.
  DorBox StoredBox(uint64_t iKey) {
    DorBox zBox;
    std::set<uint64_t> siSeen{0};
    for (std::vector<uint64_t> viToVisit{iKey}; !viToVisit.empty();) {
      const uint64_t iNext = viToVisit.back();
      viToVisit.pop_back();
      if (!siSeen.insert(iNext).second) continue;
      auto* pz = DorNeed(KivOutOfCoreHandle(m_zSession.Key(), iNext).Fetch<KivInstance>(), "the instance tree");
      const KivMemoryBlockInstance& zBlock = *DorNeed(pz->GetMemoryBlock(), "the instance tree");
      const bool bLive = std::any_of(zBlock.m_vzInstance.begin(), zBlock.m_vzInstance.end(),
                                     [](const KivInstanceEntry& z) { return !z.m_zFrame.IsGap(); });
      if (bLive)
        zBox.Add(DorBox::OfHeader(zBlock.m_zHeader));
      else
        viToVisit.insert(viToVisit.end(), {zBlock.m_zHeader.m_aiLink[1], zBlock.m_zHeader.m_aiLink[2]});
    }
    return zBox;
  }

  // A node's box is around its own instances and its children.
  void ChangeTree() {
    const uint64_t iTreeKey = TreeKeyOf(m_zSession);
    if (iTreeKey == 0) return;
    auto& zTree = m_zChange.Edit<KivAssemblyTree>(iTreeKey);
    m_zModelBox.PutInto(zTree.m_zHeader);
    const std::vector<int64_t> viParent = DorParents(zTree);
    // The nodes that instances stand in and all above them change, the lowest first.
    std::vector<bool> vbChanged(viParent.size());
    for (const uint32_t iNode : m_siNode)
      for (int64_t i = iNode < viParent.size() ? iNode : kDorNoNode;
           i != kDorNoNode && !vbChanged[static_cast<size_t>(i)]; i = viParent[static_cast<size_t>(i)])
        vbChanged[static_cast<size_t>(i)] = true;
    std::vector<int64_t> viNode = DorTopDown(viParent);
    std::reverse(viNode.begin(), viNode.end());
    const auto vviInstance = DorInstancesOfNodes(m_zSession, zTree.m_vzNode.size());
    std::vector<std::vector<size_t>> vviChild(viParent.size());
    for (size_t i = 0; i < viParent.size(); ++i)
      if (viParent[i] != kDorNoNode) vviChild[static_cast<size_t>(viParent[i])].push_back(i);
    for (const int64_t iNode : viNode) {
      if (!vbChanged[static_cast<size_t>(iNode)]) continue;
      DorBox zBox;
      for (const int64_t i : vviInstance[static_cast<size_t>(iNode)]) zBox.Add(InstanceBox(static_cast<size_t>(i)));
      for (const size_t iChild : vviChild[static_cast<size_t>(iNode)])
        zBox.Add(DorBox{zTree.m_vzNode[iChild].m_fNodeBox});
      zTree.m_vzNode[static_cast<size_t>(iNode)].m_fNodeBox = zBox.m_af;
    }
  }
  DorBox InstanceBox(size_t i) {
    const auto it = m_mapBox.find(i);
    if (it != m_mapBox.end()) return it->second;
    return DorBox{m_zSession.Index().EntryOf(m_zSession.Index().Places()[i]).m_fInstanceBox};
  }

  void ChangeModel() {
    const uint64_t iNoteKey = NoteKeyOf(m_zSession);
    if (iNoteKey != 0) m_zModelBox.PutInto(m_zChange.Edit<KivModelNote>(iNoteKey).m_zHeader);
    auto& zModel = m_zChange.Edit<KivModel>(kModelPosition);
    m_zModelBox.PutInto(zModel.m_zHeader);
    zModel.m_fModelBoxMin = zModel.m_zHeader.m_afBoxMin;
    zModel.m_fModelBoxMax = zModel.m_zHeader.m_afBoxMax;
  }

  DorSession& m_zSession;
  const DorMoved& m_zMoved;
  DorChange& m_zChange;
  std::map<size_t, DorBox> m_mapBox;  // of instances
  std::set<uint32_t> m_siNode;
  std::set<uint64_t> m_siElement;
  DorBox m_zModelBox;
};

}  // namespace

// --- Nodes ----------------------------------------------------------------------------------------------------------

const KivMemoryBlockAssemblyTree* DorAssemblyBlock(DorSession& zSession) {
  if (TreeKeyOf(zSession) == 0) return nullptr;
  return DorNeed(DorNeed(KivGetAssemblyTree(zSession.Key()), "the assembly tree")->GetMemoryBlock(),
                 "the assembly tree");
}

uint64_t DorAssemblyKey(DorSession& zSession) {
  const uint64_t iKey = TreeKeyOf(zSession);
  if (iKey == 0) throw DorRefusal(DorAnswerCode::UnknownNode, "the model has no nodes");
  return iKey;
}

const KivAssemblyNode& DorNodeOf(const KivMemoryBlockAssemblyTree* pzTree, int64_t iNode) {
  if (pzTree == nullptr || iNode < 0 || static_cast<uint64_t>(iNode) >= pzTree->m_vzNode.size() ||
      pzTree->m_vzNode[static_cast<size_t>(iNode)].m_zFrame.IsGap())
    throw DorRefusal(DorAnswerCode::UnknownNode, "the model has no node " + std::to_string(iNode));
  return pzTree->m_vzNode[static_cast<size_t>(iNode)];
}

std::vector<int64_t> DorParents(const KivMemoryBlockAssemblyTree& zTree) {
  const size_t nNodes = zTree.m_vzNode.size();
  std::vector<int64_t> viParent(nNodes, kDorNoNode);
  for (size_t i = 0; i < nNodes; ++i)
    for (const uint64_t iChild : zTree.m_vzNode[i].m_viChildren)
      if (iChild < nNodes && iChild != i && viParent[static_cast<size_t>(iChild)] == kDorNoNode)
        viParent[static_cast<size_t>(iChild)] = static_cast<int64_t>(i);
  // Circles are cut where they are met again.
  std::vector<uint8_t> vcState(nNodes, 0);  // 1: on the way up from the node in hand, 2: leads to a node without parent
  for (size_t i = 0; i < nNodes; ++i) {
    std::vector<size_t> viWay;
    for (size_t k = i; vcState[k] != 2;) {
      vcState[k] = 1;
      viWay.push_back(k);
      if (viParent[k] == kDorNoNode) break;
      const size_t iUp = static_cast<size_t>(viParent[k]);
      if (vcState[iUp] == 1) {
        viParent[k] = kDorNoNode;
        break;
      }
      k = iUp;
    }
    for (const size_t k : viWay) vcState[k] = 2;
  }
  return viParent;
}

std::vector<int64_t> DorTopDown(const std::vector<int64_t>& viParent) {
  std::vector<std::vector<int64_t>> vviChild(viParent.size());
  std::vector<int64_t> viNode;
  viNode.reserve(viParent.size());
  for (size_t i = 0; i < viParent.size(); ++i)
    (viParent[i] == kDorNoNode ? viNode : vviChild[static_cast<size_t>(viParent[i])])
        .push_back(static_cast<int64_t>(i));
  for (size_t i = 0; i < viNode.size(); ++i) {
    const std::vector<int64_t>& viChild = vviChild[static_cast<size_t>(viNode[i])];
    viNode.insert(viNode.end(), viChild.begin(), viChild.end());
  }
  return viNode;
}

std::vector<KivEMatrix4> DorAbsoluteMatrices(const KivMemoryBlockAssemblyTree& zTree,
                                             const std::vector<int64_t>& viParent) {
  std::vector<KivEMatrix4> vz(viParent.size());
  for (const int64_t iNode : DorTopDown(viParent)) {
    const size_t i = static_cast<size_t>(iNode);
    vz[i] = zTree.m_vzNode[i].m_zMatrix;
    if (viParent[i] != kDorNoNode) vz[i] *= vz[static_cast<size_t>(viParent[i])];
  }
  return vz;
}

std::vector<std::vector<int64_t>> DorInstancesOfNodes(DorSession& zSession, size_t nNodes) {
  std::vector<std::vector<int64_t>> vvi(nNodes);
  const std::vector<DorPlace>& vzPlace = zSession.Index().Places();
  for (size_t i = 0; i < vzPlace.size(); ++i)
    if (vzPlace[i].m_iNode < nNodes) vvi[vzPlace[i].m_iNode].push_back(static_cast<int64_t>(i));
  return vvi;
}

size_t DorFollow(DorSession& zSession, const DorMoved& zMoved, DorChange& zChange) {
  return Follower(zSession, zMoved, zChange).Run();
}

}  // namespace kiv
