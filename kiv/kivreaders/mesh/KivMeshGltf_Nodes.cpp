#include "KivMeshGltf.h"

#include <algorithm>
#include <map>
#include <set>
#include <utility>

#include "KivSceneReader.h"

namespace kiv::gltf {
namespace {

constexpr size_t kDeepestNode = 1000;  // from a root on

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

bool WriteScene(Json& zFile, bool bFirst) {
  if (Member(zFile, "scene") != nullptr) return false;
  const Json& zScenes = Entries(Member(zFile, "scenes"));
  if (!zScenes.empty()) {
    if (bFirst && zScenes.is_object()) zFile["scene"] = zScenes.begin().key();
    return bFirst;
  }
  const Json& zNodes = Entries(Member(zFile, "nodes"));
  std::set<Json> setChild;
  for (const Json& zNode : zNodes)
    for (const Json& zChild : Entries(Member(zNode, "children"))) setChild.insert(zChild);
  Json zRoots = Json::array();
  size_t i = 0;
  for (auto it = zNodes.begin(); it != zNodes.end(); ++it, ++i) {
    const Json zName = zNodes.is_object() ? Json(it.key()) : Json(i);
    if (setChild.count(zName) == 0) zRoots.push_back(zName);
  }
  const Json zScene = Json::object({{"nodes", zRoots}});
  zFile["scenes"] = bFirst ? Json::object({{"shown", zScene}}) : Json::array({zScene});
  zFile["scene"] = bFirst ? Json("shown") : Json(0u);
  return true;
}

void CheckNodes(const Json& zFile, bool bFirst) {
  const Json* const pzRoots = SceneNodes(zFile, bFirst);
  Nodes(zFile, bFirst).Check(pzRoots);
  if (Entries(pzRoots).empty()) throw KivSceneError("its scene has no nodes");
}

}  // namespace kiv::gltf
