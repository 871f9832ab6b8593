#include <cmath>
#include <limits>
#include <set>
#include <utility>

#include "KivMeshGltf.h"
#include "KivSceneReader.h"

namespace kiv::gltf {
namespace {

constexpr char kInstances[] = "EXT_mesh_gpu_instancing", kCentre[] = "CESIUM_RTC";

double NumberOf(const Json& z) {
  return z.is_number() ? z.get<double>() : 0;
}

// Throws KivSceneError for what the library's numbers do not hold.
void CheckNumbers(const KivEMatrix4& zMatrix) {
  for (size_t i = 0; i < 16; ++i)
    if (!(std::abs(zMatrix[i]) <= static_cast<double>(std::numeric_limits<float>::max())))
      throw KivSceneError("a placement is no number");
}

// For row vectors, whose matrix has the order of the list that a file has for columns.
KivEMatrix4 PlacementOf(const Json& zNode) {
  KivEMatrix4 zMatrix;
  if (const Json* const pzMatrix = Member(zNode, "matrix")) {
    for (size_t i = 0; i < 16; ++i) zMatrix[i] = NumberOf((*pzMatrix)[i]);
    CheckNumbers(zMatrix);
    // What is none in the library's numbers is none here.
    for (const size_t i : {3, 7, 11, 15}) zMatrix[i] = static_cast<double>(static_cast<float>(zMatrix[i]));
    return zMatrix;
  }
  const auto Part = [&zNode](const char* szPart, size_t i, double dNone) {
    const Json* const pzPart = Member(zNode, szPart);
    return pzPart == nullptr ? dNone : NumberOf((*pzPart)[i]);
  };
  const double x = Part("rotation", 0, 0), y = Part("rotation", 1, 0), z = Part("rotation", 2, 0),
               w = Part("rotation", 3, 1);
  const double adTurn[3][3] = {{1 - 2 * (y * y + z * z), 2 * (x * y + z * w), 2 * (x * z - y * w)},
                               {2 * (x * y - z * w), 1 - 2 * (x * x + z * z), 2 * (y * z + x * w)},
                               {2 * (x * z + y * w), 2 * (y * z - x * w), 1 - 2 * (x * x + y * y)}};
  for (size_t i = 0; i < 3; ++i) {
    const double dScale = Part("scale", i, 1);
    for (size_t k = 0; k < 3; ++k) zMatrix[4 * i + k] = dScale * adTurn[i][k];
    zMatrix[12 + i] = Part("translation", i, 0);
  }
  CheckNumbers(zMatrix);
  return zMatrix;
}

// True if anything within z names a picture: in version 2 an object with its index, under a name that ends so, in
// version 1 its text.
bool NamesPicture(const Json& z, const Json& zTextures, bool bFirst) {
  if (z.is_string()) return bFirst && zTextures.is_object() && zTextures.contains(z.get_ref<const std::string&>());
  if (!z.is_structured()) return false;
  for (auto it = z.begin(); it != z.end(); ++it) {
    if (z.is_object() && (it.key() == "name" || it.key() == "technique" || it.key() == "extras")) continue;
    if (!bFirst && z.is_object() && it.key().ends_with("Texture") && Member(*it, "index") != nullptr) return true;
    if (NamesPicture(*it, zTextures, bFirst)) return true;
  }
  return false;
}

class Shown {
 public:
  Shown(const Json& zFile, bool bFirst)
      : m_zFile(zFile),
        m_bFirst(bFirst),
        m_zNodes(Entries(Member(zFile, "nodes"))),
        m_zMeshes(Entries(Member(zFile, "meshes"))) {}

  KivMeshPlaces Walk() {
    std::vector<Named> vzRoot = ListOf(SceneNodes(m_zFile, m_bFirst), m_zNodes);
    KivMeshPlaces vzPlace;
    // The library puts a root of its own above several.
    if (vzRoot.size() != 1) vzPlace.emplace_back().m_nChildren = vzRoot.size();
    std::vector<Named> vzWaiting(vzRoot.rbegin(), vzRoot.rend());
    while (!vzWaiting.empty()) {
      const Named zNode = vzWaiting.back();
      vzWaiting.pop_back();
      m_setNode.insert(zNode.m_pzEntry);
      const std::vector<Named> vzChild = ListOf(Member(*zNode.m_pzEntry, "children"), m_zNodes);
      vzWaiting.insert(vzWaiting.end(), vzChild.rbegin(), vzChild.rend());
      KivMeshPlace& zPlace = vzPlace.emplace_back();
      zPlace.m_nChildren = vzChild.size();
      zPlace.m_strName = zNode.m_strName;
      zPlace.m_zMatrix = PlacementOf(*zNode.m_pzEntry);
      for (const Named& zMesh : MeshesOf(*zNode.m_pzEntry)) {
        zPlace.m_vstrMesh.push_back(zMesh.m_strName);
        m_setMesh.insert(zMesh.m_pzEntry);
      }
    }
    return vzPlace;
  }

  void Warn(std::vector<std::string>& vstrWarning) const {
    if (HasLostNode()) vstrWarning.push_back("nodes that stand in no scene are left out");
    for (const Json* const pzNode : m_setNode)
      if (Member(Entries(Member(*pzNode, "extensions")), kInstances) != nullptr) {
        vstrWarning.push_back(std::string("copies of a mesh (") + kInstances + ") are left out but for one");
        break;
      }
    if (Member(Entries(Member(m_zFile, "extensions")), kCentre) != nullptr)
      vstrWarning.push_back(std::string("the place of the whole (") + kCentre + ") is left out");
    if (HasPicture()) vstrWarning.push_back("pictures on surfaces are left out");
  }

 private:
  struct Named {
    const Json* m_pzEntry;
    std::string m_strName;  // in version 1 the text that stands for it, if it has no name
  };

  // Those that exist.
  std::vector<Named> ListOf(const Json* pzList, const Json& zSection) const {
    std::vector<Named> vzEntry;
    for (const Json& zName : Entries(pzList)) Add(zName, zSection, vzEntry);
    return vzEntry;
  }
  void Add(const Json& zName, const Json& zSection, std::vector<Named>& vzEntry) const {
    const Json* pzEntry = nullptr;
    if (m_bFirst && zName.is_string()) pzEntry = Member(zSection, zName.get_ref<const std::string&>().c_str());
    if (!m_bFirst && zName.is_number_unsigned() && zSection.is_array() && zName.get<uint64_t>() < zSection.size())
      pzEntry = &zSection[zName.get<size_t>()];
    if (pzEntry == nullptr) return;
    std::string strName = Text(*pzEntry, "name");
    if (strName.empty() && m_bFirst) strName = zName.get<std::string>();
    vzEntry.push_back({pzEntry, std::move(strName)});
  }

  std::vector<Named> MeshesOf(const Json& zNode) const {
    if (m_bFirst) return ListOf(Member(zNode, "meshes"), m_zMeshes);
    std::vector<Named> vzMesh;
    if (const Json* const pzMesh = Member(zNode, "mesh")) Add(*pzMesh, m_zMeshes, vzMesh);
    return vzMesh;
  }

  // One with a mesh, which no scene leads to.
  bool HasLostNode() const {
    std::set<const Json*> setPlaced;
    std::vector<Named> vzWaiting;
    for (const Json& zScene : Entries(Member(m_zFile, "scenes")))
      for (Named& z : ListOf(Member(zScene, "nodes"), m_zNodes)) vzWaiting.push_back(std::move(z));
    while (!vzWaiting.empty()) {
      const Json* const pzNode = vzWaiting.back().m_pzEntry;
      vzWaiting.pop_back();
      if (!setPlaced.insert(pzNode).second) continue;
      for (Named& z : ListOf(Member(*pzNode, "children"), m_zNodes)) vzWaiting.push_back(std::move(z));
    }
    for (const Json& zNode : m_zNodes)
      if (setPlaced.count(&zNode) == 0 && !MeshesOf(zNode).empty()) return true;
    return false;
  }

  bool HasPicture() const {
    static const Json s_zNone;
    const Json& zMaterials = Entries(Member(m_zFile, "materials"));
    const Json* const pzTextures = Member(m_zFile, "textures");
    std::set<const Json*> setMaterial;
    for (const Json* const pzMesh : m_setMesh)
      for (const Json& zPiece : Entries(Member(*pzMesh, "primitives"))) {
        std::vector<Named> vzMaterial;
        if (const Json* const pzMaterial = Member(zPiece, "material")) Add(*pzMaterial, zMaterials, vzMaterial);
        for (const Named& z : vzMaterial)
          if (setMaterial.insert(z.m_pzEntry).second &&
              NamesPicture(*z.m_pzEntry, pzTextures == nullptr ? s_zNone : *pzTextures, m_bFirst))
            return true;
      }
    return false;
  }

  const Json& m_zFile;
  bool m_bFirst;
  const Json& m_zNodes;
  const Json& m_zMeshes;
  std::set<const Json*> m_setNode, m_setMesh;  // of the shown scene
};

}  // namespace

KivMeshPlaces ShownPlaces(const Json& zFile, bool bFirst, std::vector<std::string>& vstrWarning) {
  Shown zShown(zFile, bFirst);
  KivMeshPlaces vzPlace = zShown.Walk();
  zShown.Warn(vstrWarning);
  return vzPlace;
}

}  // namespace kiv::gltf
