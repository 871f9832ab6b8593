// What the JSON of a glTF says, where the library of formats believes it: it walks nodes by calls of calls and makes a
// node anew for each node that names it, it reads where accessors lead it, and takes any numbers for coordinates. In
// version 2 the parts of a file stand in lists and are named by numbers, in version 1 they stand in objects and are
// named by texts; most rules are the same.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <limits>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "KivMeshSource.h"
#include "KivSceneReader.h"

namespace kiv {
namespace {

using Json = nlohmann::json;

constexpr size_t kDeepestText = 200;   // brackets
constexpr size_t kDeepestNode = 1000;  // nodes from a root on
constexpr size_t kLongestName = 900;   // bytes of a mesh's name, to which the library adds the numbers of its pieces

constexpr size_t kHead = 20;  // of a GLB, with that of its first piece

uint32_t NumberAt(std::string_view strBytes, size_t i) {
  uint32_t n = 0;
  if (strBytes.size() >= sizeof n && i <= strBytes.size() - sizeof n) std::memcpy(&n, strBytes.data() + i, sizeof n);
  return n;
}

bool IsBinary(std::string_view strBytes) {
  return strBytes.starts_with("glTF") && strBytes.size() >= kHead;
}

// The JSON of a GLB stands in its first piece.
std::string_view JsonOf(std::string_view strBytes) {
  return IsBinary(strBytes) ? strBytes.substr(kHead, NumberAt(strBytes, 12)) : strBytes;
}

// Bytes of the second piece of a GLB, of which as many are there.
uint64_t BinaryOf(std::string_view strBytes) {
  const uint64_t iPiece = kHead + ((uint64_t{NumberAt(strBytes, 12)} + 3) & ~uint64_t{3}), iData = iPiece + 8;
  if (!IsBinary(strBytes) || iData > strBytes.size()) return 0;
  return std::min<uint64_t>(NumberAt(strBytes, iPiece), strBytes.size() - iData);
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

// Of a member that stands twice the library takes the first one, others the last one.
class UniqueMembers : public nlohmann::json_sax<Json> {
 public:
  bool null() override { return true; }
  bool boolean(bool) override { return true; }
  bool number_integer(number_integer_t) override { return true; }
  bool number_unsigned(number_unsigned_t) override { return true; }
  bool number_float(number_float_t, const string_t&) override { return true; }
  bool string(string_t&) override { return true; }
  bool binary(binary_t&) override { return true; }
  bool start_array(std::size_t) override { return true; }
  bool end_array() override { return true; }
  bool start_object(std::size_t) override {
    m_vsetName.emplace_back();
    return true;
  }
  bool end_object() override {
    m_vsetName.pop_back();
    return true;
  }
  bool key(string_t& strName) override {
    if (!m_vsetName.back().insert(strName).second) throw KivSceneError("its JSON has a member twice");
    return true;
  }
  bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception&) override { return false; }

 private:
  std::vector<std::set<std::string>> m_vsetName;  // of the objects that are open
};

// Discarded where it is no JSON. A pass of its own looks for names, since one with a call back for each part takes
// quadratic time for long lists of objects.
Json Parsed(std::string_view strJson) {
  UniqueMembers zUnique;
  if (!Json::sax_parse(strJson, &zUnique)) return Json(Json::value_t::discarded);
  return Json::parse(strJson, nullptr, false);
}

// As the library tells it: by the first character.
bool IsFirstVersion(const Json& zFile) {
  const auto itAsset = zFile.find("asset");
  if (itAsset == zFile.end() || !itAsset->is_object()) return false;
  const auto itVersion = itAsset->find("version");
  if (itVersion == itAsset->end()) return false;
  if (itVersion->is_string()) return itVersion->get<std::string>().starts_with("1");
  if (!itVersion->is_number()) return false;
  char szVersion[4];
  std::snprintf(szVersion, sizeof szVersion, "%.1f", itVersion->get<double>());
  return szVersion[0] == '1';
}

// --- Members --------------------------------------------------------------------------------------------------------

// Null without it, or where zObject is no object.
const Json* Member(const Json& zObject, const char* szName) {
  if (!zObject.is_object()) return nullptr;
  const auto it = zObject.find(szName);
  return it == zObject.end() ? nullptr : &*it;
}

// The entries of a list or object; none of anything else.
const Json& Entries(const Json* pzMember) {
  static const Json s_zNone = Json::array();
  return pzMember != nullptr && pzMember->is_structured() ? *pzMember : s_zNone;
}

uint64_t Count(const Json& zObject, const char* szName) {
  const Json* const pzCount = Member(zObject, szName);
  if (pzCount == nullptr) return 0;
  if (!pzCount->is_number_unsigned() || pzCount->get<uint64_t>() > std::numeric_limits<uint32_t>::max())
    throw KivSceneError(std::string("a '") + szName + "' of it is no count");
  return pzCount->get<uint64_t>();
}

std::string Text(const Json& zObject, const char* szName) {
  const Json* const pzText = Member(zObject, szName);
  return pzText != nullptr && pzText->is_string() ? pzText->get<std::string>() : std::string();
}

// --- Nodes ----------------------------------------------------------------------------------------------------------

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

// --- Meshes ---------------------------------------------------------------------------------------------------------

constexpr uint64_t kFloat = 5126;

uint64_t BytesOfComponent(uint64_t iType) {
  switch (iType) {
    case 5120:
    case 5121:
      return 1;
    case 5122:
    case 5123:
      return 2;
    case 5125:
    case kFloat:
      return 4;
    default:
      throw KivSceneError("numbers of it have no type that is known");
  }
}

uint64_t NumComponents(const std::string& strType) {
  constexpr std::pair<std::string_view, uint64_t> kTypes[] = {{"SCALAR", 1}, {"VEC2", 2}, {"VEC3", 3}, {"VEC4", 4},
                                                              {"MAT2", 4},   {"MAT3", 9}, {"MAT4", 16}};
  for (const auto& [strName, nComponents] : kTypes)
    if (strType == strName) return nComponents;
  throw KivSceneError("numbers of it have no type that is known");
}

class Meshes {
 public:
  Meshes(const Json& zFile, bool bFirst, uint64_t nBinary) : m_zFile(zFile), m_bFirst(bFirst), m_nBinary(nBinary) {}

  void Check() const {
    for (const Json& zMesh : Entries(Member(m_zFile, "meshes"))) {
      if (Text(zMesh, "name").size() > kLongestName) throw KivSceneError("the name of a mesh is too long");
      if (m_bFirst && Member(zMesh, "extensions") != nullptr) throw KivSceneError("a mesh of it is compressed");
      for (const Json& zPiece : Entries(Member(zMesh, "primitives"))) CheckPiece(zPiece);
    }
    for (const Json& zImage : Entries(Member(m_zFile, "images"))) CheckImage(zImage);
    if (m_bFirst) CheckFirst();
  }

 private:
  // An object; null without a name.
  const Json* Named(const char* szSection, const Json* pzName) const {
    if (pzName == nullptr) return nullptr;
    const Json* const pzSection = Member(m_zFile, szSection);
    const Json* pzNamed = nullptr;
    if (m_bFirst && pzName->is_string() && pzSection != nullptr)
      pzNamed = Member(*pzSection, pzName->get<std::string>().c_str());
    if (!m_bFirst && pzName->is_number_unsigned() && pzSection != nullptr && pzSection->is_array() &&
        pzName->get<uint64_t>() < pzSection->size())
      pzNamed = &(*pzSection)[pzName->get<size_t>()];
    if (pzNamed == nullptr || !pzNamed->is_object())
      throw KivSceneError(std::string("it names an entry of its '") + szSection + "' that does not exist");
    return pzNamed;
  }

  // Bytes from iFrom on, iStep from one entry to the next one, within the view and its buffer.
  void CheckRange(const Json& zView, uint64_t iFrom, uint64_t nEntries, uint64_t nStep, uint64_t nEntry) const {
    if (nEntries == 0) return;
    const Json* const pzBuffer = Named("buffers", Member(zView, "buffer"));
    if (pzBuffer == nullptr) throw KivSceneError("numbers of it stand in no buffer");
    const uint64_t iView = Count(zView, "byteOffset"), nView = Count(zView, "byteLength");
    uint64_t nBuffer = Count(*pzBuffer, "byteLength");
    if (!m_bFirst && m_nBinary > 0 && Member(*pzBuffer, "uri") == nullptr) nBuffer = std::min(nBuffer, m_nBinary);
    // All are below 2^32, so that nothing overflows.
    if (iView > nBuffer || nView > nBuffer - iView || iFrom > nView || nEntry > nView - iFrom ||
        (nEntries - 1) * nStep > nView - iFrom - nEntry)
      throw KivSceneError("numbers of it stand behind the end of their buffer");
  }

  // Of version 2: some entries are given anew.
  void CheckSparse(const Json& zAccessor, const Json& zSparse, uint64_t nEntry, uint64_t nStep) const {
    const uint64_t nNew = Count(zSparse, "count");
    for (const char* szPart : {"indices", "values"}) {
      const Json* const pzPart = Member(zSparse, szPart);
      const Json* const pzView = pzPart == nullptr ? nullptr : Named("bufferViews", Member(*pzPart, "bufferView"));
      if (pzView == nullptr) throw KivSceneError("numbers that are given anew stand nowhere");
      const uint64_t nBytes = szPart[0] == 'v' ? nEntry : BytesOfComponent(Count(*pzPart, "componentType"));
      CheckRange(*pzView, Count(*pzPart, "byteOffset"), nNew, nBytes, nBytes);
    }
    if (nNew > Count(zAccessor, "count")) throw KivSceneError("more numbers are given anew than there are");
    // The library takes the entries together, and then steps over them as if they were not.
    if (nStep != nEntry) throw KivSceneError("numbers with gaps are given anew");
  }

  void CheckAccessor(const Json& zAccessor) const {
    const uint64_t nEntries = Count(zAccessor, "count");
    const uint64_t nEntry =
        BytesOfComponent(Count(zAccessor, "componentType")) * NumComponents(Text(zAccessor, "type"));
    const Json* const pzView = Named("bufferViews", Member(zAccessor, "bufferView"));
    if (pzView == nullptr && m_bFirst) throw KivSceneError("numbers of it stand in no buffer");
    uint64_t nStep = pzView == nullptr ? 0 : Count(m_bFirst ? zAccessor : *pzView, "byteStride");
    if (nStep == 0) nStep = nEntry;
    if (nStep < nEntry) throw KivSceneError("numbers of it lie over each other");
    if (pzView != nullptr) CheckRange(*pzView, Count(zAccessor, "byteOffset"), nEntries, nStep, nEntry);
    if (m_bFirst) return;
    if (const Json* const pzSparse = Member(zAccessor, "sparse")) CheckSparse(zAccessor, *pzSparse, nEntry, nStep);
  }

  const Json* CheckNamed(const Json* pzName) const {
    const Json* const pzAccessor = Named("accessors", pzName);
    if (pzAccessor != nullptr) CheckAccessor(*pzAccessor);
    return pzAccessor;
  }

  // The names that the library knows, of which it counts some.
  void CheckFirstName(const std::string& strName, std::set<size_t>& setTexture) const {
    if (strName == "POSITION" || strName == "NORMAL") return;
    for (const std::string strKind : {"POSITION", "NORMAL", "TEXCOORD", "COLOR", "JOINT", "WEIGHT"}) {
      if (!strName.starts_with(strKind)) continue;
      const std::string strRest = strName.substr(strKind.size());
      const bool bDigit = strRest.size() == 2 && strRest[0] == '_' && strRest[1] >= '0' && strRest[1] <= '7';
      if (strKind == "POSITION" || strKind == "NORMAL" || (!bDigit && !strRest.empty() && strName != "JOINTMATRIX"))
        throw KivSceneError("a mesh has numbers of a name that is not known");
      if (strKind == "TEXCOORD") setTexture.insert(bDigit ? static_cast<size_t>(strRest[1] - '0') : 0);
    }
  }

  void CheckPiece(const Json& zPiece) const {
    if (!zPiece.is_object()) throw KivSceneError("a piece of a mesh is no object");
    const Json* const pzAttributes = Member(zPiece, "attributes");
    uint64_t nCorners = 0;
    if (pzAttributes != nullptr)
      if (const Json* const pzPosition = Named("accessors", Member(*pzAttributes, "POSITION")))
        nCorners = Count(*pzPosition, "count");
    std::set<size_t> setTexture;
    const Json& zAttributes = Entries(pzAttributes);
    if (!zAttributes.is_object() && !zAttributes.empty()) throw KivSceneError("a piece of a mesh is damaged");
    for (auto it = zAttributes.begin(); it != zAttributes.end(); ++it) {
      const Json* const pzAccessor = CheckNamed(&*it);
      if (pzAccessor == nullptr) continue;
      const std::string strName = it.key(), strType = Text(*pzAccessor, "type");
      const bool bFloat = Count(*pzAccessor, "componentType") == kFloat;
      if ((strName == "POSITION" || strName == "NORMAL") && (!bFloat || strType != "VEC3"))
        throw KivSceneError("places or normals of it are no triples of floating-point numbers, which are not read");
      if (strName == "NORMAL" && Count(*pzAccessor, "count") != nCorners)
        throw KivSceneError("a piece of a mesh has other normals than corners");
      if (!m_bFirst) continue;
      CheckFirstName(strName, setTexture);
      const bool bTexture = strName.starts_with("TEXCOORD");
      if (bTexture && (!bFloat || (strType != "VEC2" && strType != "VEC3")))
        throw KivSceneError("places in pictures are no floating-point numbers");
      if (bTexture && Count(*pzAccessor, "count") != nCorners)
        throw KivSceneError("a piece of a mesh has other places in pictures than corners");
    }
    if (!setTexture.empty() && *setTexture.rbegin() + 1 != setTexture.size())
      throw KivSceneError("places in pictures are left out");
    if (m_bFirst && nCorners == 0) throw KivSceneError("a piece of a mesh has no corners");
    for (const Json& zForm : Entries(Member(zPiece, "targets")))
      for (const Json& zName : Entries(&zForm)) CheckNamed(&zName);
    if (const Json* const pzIndices = CheckNamed(Member(zPiece, "indices"))) {
      const uint64_t iType = Count(*pzIndices, "componentType");
      if ((iType != 5121 && iType != 5123 && iType != 5125) || Text(*pzIndices, "type") != "SCALAR")
        throw KivSceneError("indices of it are no unsigned numbers");
      nCorners = Count(*pzIndices, "count");
    }
    const uint64_t iMode = Member(zPiece, "mode") == nullptr ? 4 : Count(zPiece, "mode");
    const uint64_t nLeast = iMode == 2 || iMode == 3 ? 2 : iMode == 5 || iMode == 6 ? 3 : 0;
    if (nCorners < nLeast) throw KivSceneError("a line or a row of triangles has too few corners");
  }

  // Pictures are left out, but the library looks for what stands behind the slash of their kind.
  static void CheckImage(const Json& zImage) {
    const std::string strUri = Text(zImage, "uri"), strKind = Text(zImage, "mimeType");
    const std::string strOf = strUri.starts_with("data:") ? strUri.substr(5, strUri.find_first_of(";,") - 5) : "";
    for (const std::string& str : {strOf, strKind})
      if (!str.empty() && (str.find('/') == std::string::npos || str.find('/') > str.find('\0')))
        throw KivSceneError("a picture has no kind that is known");
  }

  void CheckFirst() const {
    for (const Json& zUsed : Entries(Member(m_zFile, "extensionsUsed")))
      if (zUsed.is_string() && zUsed.get<std::string>().starts_with("KHR_binary_glTF"))
        throw KivSceneError("glTF 1 in its binary form is not read");
    const Json& zMeshes = Entries(Member(m_zFile, "meshes"));
    for (auto it = zMeshes.begin(); zMeshes.is_object() && it != zMeshes.end(); ++it)
      if (it.key().size() > kLongestName) throw KivSceneError("the name of a mesh is too long");
    for (const Json& zNode : Entries(Member(m_zFile, "nodes"))) {
      std::set<std::string> setMesh;
      for (const Json& zMesh : Entries(Member(zNode, "meshes")))
        if (zMesh.is_string() && !setMesh.insert(zMesh.get<std::string>()).second)
          throw KivSceneError("a node names a mesh twice");
    }
    if (const Json* const pzCommon = Member(Entries(Member(m_zFile, "extensions")), "KHR_materials_common"))
      for (const Json& zLight : Entries(Member(*pzCommon, "lights")))
        if (!Text(zLight, Text(zLight, "type").c_str()).empty()) throw KivSceneError("a light of it is damaged");
  }

  const Json& m_zFile;
  bool m_bFirst;
  uint64_t m_nBinary;
};

// --- What is not read -----------------------------------------------------------------------------------------------

// Of version 2: skeletons and movements are taken away, since the library reads them by counts that it does not hold
// against each other. True if there was any.
bool TakeAwayMovements(Json& zFile, std::vector<std::string>& vstrWarning) {
  bool bTaken = false;
  const auto Take = [&bTaken](Json& zObject, const char* szName) {
    const bool bThere = zObject.is_object() && zObject.erase(szName) > 0;
    bTaken = bTaken || bThere;
    return bThere;
  };
  const auto EachOf = [](Json& zObject, const char* szList, const auto& pfnEntry) {
    if (!zObject.is_object() || !zObject.contains(szList) || !zObject[szList].is_structured()) return;
    for (Json& zEntry : zObject[szList]) pfnEntry(zEntry);
  };
  if (Take(zFile, "animations")) vstrWarning.push_back("movements are left out");
  bool bSkeleton = false;
  EachOf(zFile, "nodes", [&](Json& zNode) { bSkeleton = Take(zNode, "skin") || bSkeleton; });
  EachOf(zFile, "meshes", [&](Json& zMesh) {
    EachOf(zMesh, "primitives", [&](Json& zPiece) {
      if (!zPiece.is_object() || !zPiece.contains("attributes") || !zPiece["attributes"].is_object()) return;
      Json& zAttributes = zPiece["attributes"];
      for (auto it = zAttributes.begin(); it != zAttributes.end();) {
        const bool bJoint = it.key().starts_with("JOINT") || it.key().starts_with("WEIGHT");
        bTaken = bTaken || bJoint;
        it = bJoint ? zAttributes.erase(it) : std::next(it);
      }
    });
  });
  Take(zFile, "skins");
  if (bSkeleton) vstrWarning.push_back("skeletons are left out: meshes stand in their basic form");
  return bTaken;
}

// A GLB keeps its other pieces.
void ReplaceJson(std::vector<uint8_t>& vcBytes, std::string strJson) {
  const std::string_view strBytes(reinterpret_cast<const char*>(vcBytes.data()), vcBytes.size());
  if (!IsBinary(strBytes)) return vcBytes.assign(strJson.begin(), strJson.end());
  strJson.resize((strJson.size() + 3) & ~size_t{3}, ' ');
  const uint64_t iRest = kHead + ((uint64_t{NumberAt(strBytes, 12)} + 3) & ~uint64_t{3});
  const std::string_view strRest = iRest < strBytes.size() ? strBytes.substr(static_cast<size_t>(iRest)) : "";
  const auto Number = [](size_t nNumber) {
    const uint32_t n = static_cast<uint32_t>(nNumber);
    std::string strNumber(sizeof n, '\0');
    std::memcpy(strNumber.data(), &n, sizeof n);
    return strNumber;
  };
  std::string strNew(strBytes.substr(0, 8));
  strNew += Number(kHead + strJson.size() + strRest.size()) + Number(strJson.size());
  strNew.append(strBytes.substr(16, 4)).append(strJson).append(strRest);
  vcBytes.assign(strNew.begin(), strNew.end());
}

// Those that tell of pictures, materials and lights alone say nothing of the form.
void CheckRequired(const Json& zFile) {
  static const std::set<std::string> s_setKnown = {"KHR_draco_mesh_compression", "KHR_lights_punctual",
                                                   "KHR_technique_webgl",        "KHR_texture_basisu",
                                                   "KHR_texture_transform",      "EXT_texture_webp"};
  for (const Json& zName : Entries(Member(zFile, "extensionsRequired"))) {
    if (!zName.is_string()) continue;
    const std::string strName = zName.get<std::string>();
    if (s_setKnown.count(strName) == 0 && !strName.starts_with("KHR_materials_"))
      throw KivSceneError("it needs the extension '" + strName.substr(0, 100) + "', which is not read");
  }
}

}  // namespace

void KivCheckGltf(const KivMeshFormat& zFormat, std::vector<uint8_t>& vcBytes, std::vector<std::string>& vstrWarning) {
  const std::string_view strBytes(reinterpret_cast<const char*>(vcBytes.data()), vcBytes.size());
  const std::string_view strJson = JsonOf(strBytes);
  CheckBrackets(strJson);
  Json zFile = Parsed(strJson);
  if (!zFile.is_object())
    throw KivSceneError(std::string("it is no readable ") + zFormat.m_szName + " file: its JSON is damaged or missing");
  const bool bFirst = IsFirstVersion(zFile);
  if (IsBinary(strBytes) && (bFirst || NumberAt(strBytes, 4) == 1))
    throw KivSceneError("glTF 1 in its binary form is not read");
  // The library takes names to end there.
  if (bFirst && strJson.find("\\u0000") != std::string_view::npos) throw KivSceneError("a name of it has a zero");
  CheckRequired(zFile);
  Nodes(zFile, bFirst).Check(SceneNodes(zFile, bFirst));
  const bool bTaken = !bFirst && TakeAwayMovements(zFile, vstrWarning);
  Meshes(zFile, bFirst, BinaryOf(strBytes)).Check();
  if (Entries(Member(zFile, "scenes")).size() > 1) vstrWarning.push_back("further scenes are left out");
  if (bTaken) ReplaceJson(vcBytes, zFile.dump());
}

}  // namespace kiv
