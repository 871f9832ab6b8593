#include "KivMeshGltf.h"

#include <algorithm>
#include <map>
#include <utility>

#include "KivSceneReader.h"

namespace kiv::gltf {
namespace {

constexpr size_t kDeepestNode = 1000;  // from a root on

// The roots that the shown scene names; null without it.
const Json* SceneNodes(const Json& zFile, bool bFirst) {
  const Json& zScenes = Entries(Member(zFile, "scenes"));
  if (bFirst) {
    const Json* const pzScene = Member(zScenes, Text(zFile, "scene").c_str());
    return pzScene == nullptr ? nullptr : Member(*pzScene, "nodes");
  }
  const uint64_t iScene = Count(zFile, "scene");
  return zScenes.is_array() && iScene < zScenes.size() ? Member(zScenes[static_cast<size_t>(iScene)], "nodes")
                                                       : nullptr;
}

// By names and numbers.
class Nodes {
 public:
  Nodes(const Json& zFile, bool bFirst) : m_bFirst(bFirst), m_zNodes(Entries(Member(zFile, "nodes"))) {
    if (bFirst && m_zNodes.is_object())
      for (auto it = m_zNodes.begin(); it != m_zNodes.end(); ++it) m_mapNode.emplace(it.key(), m_mapNode.size());
  }

  // Every node has one parent at most, so that what no root leads to are the nodes of circles.
  void Check(const Json* pzSceneNodes) {
    m_vviChild.resize(m_zNodes.size());
    m_vbChild.resize(m_zNodes.size());
    std::vector<size_t> viLevel;
    size_t i = 0;
    for (const Json& zNode : m_zNodes) {
      CheckPlacement(zNode);
      AddChildren(Member(zNode, "children"), m_vviChild[i++]);
    }
    AddChildren(pzSceneNodes, viLevel);
    for (i = 0; i < m_zNodes.size(); ++i)
      if (!m_vbChild[i]) viLevel.push_back(i);
    size_t nSeen = 0;
    for (size_t nDepth = 1; !viLevel.empty(); ++nDepth) {
      if (nDepth > kDeepestNode) throw KivSceneError("its nodes are nested too deeply");
      nSeen += viLevel.size();
      std::vector<size_t> viBelow;
      for (const size_t iNode : viLevel)
        viBelow.insert(viBelow.end(), m_vviChild[iNode].begin(), m_vviChild[iNode].end());
      viLevel.swap(viBelow);
    }
    if (nSeen != m_zNodes.size()) throw KivSceneError("a node stands below itself");
  }

 private:
  // The library passes over what has other numbers.
  static void CheckPlacement(const Json& zNode) {
    constexpr std::pair<const char*, size_t> kParts[] = {
        {"translation", 3}, {"rotation", 4}, {"scale", 3}, {"matrix", 16}};
    for (const auto& [szPart, nNumbers] : kParts) {
      const Json* const pzPart = Member(zNode, szPart);
      if (pzPart == nullptr) continue;
      const bool bNumbers =
          std::all_of(pzPart->begin(), pzPart->end(), [](const Json& zNumber) { return zNumber.is_number(); });
      if (!pzPart->is_array() || pzPart->size() != nNumbers || !bNumbers)
        throw KivSceneError(std::string("the '") + szPart + "' of a node is no list of " + std::to_string(nNumbers) +
                            " numbers");
    }
  }

  void AddChildren(const Json* pzList, std::vector<size_t>& viChild) {
    for (const Json& zChild : Entries(pzList)) {
      size_t iChild = 0;
      if (m_bFirst) {
        if (!zChild.is_string()) continue;
        const auto it = m_mapNode.find(zChild.get<std::string>());
        if (it == m_mapNode.end()) throw KivSceneError("it names a node that does not exist");
        iChild = it->second;
      } else {
        if (!zChild.is_number_unsigned() || zChild.get<uint64_t>() >= m_zNodes.size())
          throw KivSceneError("it names a node that does not exist");
        iChild = zChild.get<size_t>();
      }
      if (m_vbChild[iChild]) throw KivSceneError("a node stands below more than one other");
      m_vbChild[iChild] = true;
      viChild.push_back(iChild);
    }
  }

  bool m_bFirst;
  const Json& m_zNodes;
  std::map<std::string, size_t> m_mapNode;
  std::vector<std::vector<size_t>> m_vviChild;
  std::vector<bool> m_vbChild;
};

}  // namespace

void CheckNodes(const Json& zFile, bool bFirst) {
  Nodes(zFile, bFirst).Check(SceneNodes(zFile, bFirst));
}

}  // namespace kiv::gltf
