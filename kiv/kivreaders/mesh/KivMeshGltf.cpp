// What the JSON of a glTF says about its nodes, where the library of formats walks them by calls of calls and makes a
// node anew for each node that names it; and about its scenes, of which the library gives one.
#include <cstring>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "KivMeshSource.h"
#include "KivSceneReader.h"

namespace kiv {
namespace {

constexpr size_t kDeepestText = 200;   // brackets
constexpr size_t kDeepestNode = 1000;  // nodes from a root on

// The JSON of a GLB stands in its first piece.
std::string_view JsonOf(std::string_view strBytes) {
  constexpr size_t kHead = 20;
  if (!strBytes.starts_with("glTF") || strBytes.size() < kHead) return strBytes;
  uint32_t nBytes = 0;
  std::memcpy(&nBytes, strBytes.data() + 12, sizeof nBytes);
  return strBytes.substr(kHead, nBytes);
}

void CheckBrackets(std::string_view strJson) {
  size_t nOpen = 0;
  bool bText = false;
  for (size_t i = 0; i < strJson.size(); ++i) {
    const char c = strJson[i];
    if (bText && c == '\\') {
      ++i;
    } else if (c == '"') {
      bText = !bText;
    } else if (!bText && (c == '{' || c == '[')) {
      if (++nOpen > kDeepestText) throw KivSceneError("its JSON is nested too deeply");
    } else if (!bText && (c == '}' || c == ']') && nOpen > 0) {
      --nOpen;
    }
  }
}

// Every node has one parent at most, so that what no root leads to are the nodes of circles.
void CheckNodes(const nlohmann::json& zNodes) {
  std::vector<std::vector<size_t>> vviChild(zNodes.size());
  std::vector<bool> vbChild(zNodes.size());
  for (size_t i = 0; i < zNodes.size(); ++i) {
    if (!zNodes[i].is_object() || !zNodes[i].contains("children") || !zNodes[i]["children"].is_array()) continue;
    for (const nlohmann::json& zChild : zNodes[i]["children"]) {
      if (!zChild.is_number_unsigned() || zChild.get<uint64_t>() >= zNodes.size()) continue;  // found by others
      const size_t iChild = zChild.get<size_t>();
      if (vbChild[iChild]) throw KivSceneError("a node stands below more than one other");
      vbChild[iChild] = true;
      vviChild[i].push_back(iChild);
    }
  }
  std::vector<size_t> viLevel;
  for (size_t i = 0; i < zNodes.size(); ++i)
    if (!vbChild[i]) viLevel.push_back(i);
  size_t nSeen = 0;
  for (size_t nDepth = 1; !viLevel.empty(); ++nDepth) {
    if (nDepth > kDeepestNode) throw KivSceneError("its nodes are nested too deeply");
    nSeen += viLevel.size();
    std::vector<size_t> viBelow;
    for (const size_t i : viLevel) viBelow.insert(viBelow.end(), vviChild[i].begin(), vviChild[i].end());
    viLevel.swap(viBelow);
  }
  if (nSeen != zNodes.size()) throw KivSceneError("a node stands below itself");
}

}  // namespace

// What is no JSON is left to the library, which tells where it breaks.
void KivCheckGltf(const std::vector<uint8_t>& vcBytes, std::vector<std::string>& vstrWarning) {
  const std::string_view strJson = JsonOf({reinterpret_cast<const char*>(vcBytes.data()), vcBytes.size()});
  CheckBrackets(strJson);
  const nlohmann::json zJson = nlohmann::json::parse(strJson, nullptr, false);
  if (!zJson.is_object()) return;
  const auto itNodes = zJson.find("nodes");
  if (itNodes != zJson.end() && itNodes->is_array()) CheckNodes(*itNodes);
  const auto itScenes = zJson.find("scenes");
  if (itScenes != zJson.end() && itScenes->is_structured() && itScenes->size() > 1)
    vstrWarning.push_back("further scenes are left out");
}

}  // namespace kiv
