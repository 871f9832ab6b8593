#include "KivMeshGltf.h"

#include <algorithm>
#include <map>
#include <set>
#include <string_view>
#include <utility>

#include "KivSceneReader.h"

namespace kiv::gltf {
namespace {

constexpr size_t kLongestName = 900;  // bytes of a mesh's name, to which the library adds the numbers of its pieces

constexpr uint64_t kFloat = 5126;

constexpr uint64_t kClosedLine = 2;  // the mode of a piece

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
  Meshes(const Json& zFile, bool bFirst, std::string_view strBinary)
      : m_zFile(zFile), m_bFirst(bFirst), m_strBinary(strBinary) {}

  void Check() {
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
    if (!m_bFirst && !m_strBinary.empty() && Member(*pzBuffer, "uri") == nullptr)
      nBuffer = std::min<uint64_t>(nBuffer, m_strBinary.size());
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

  // Numbers of a list in a view, as many as there are bytes for in the file itself.
  struct Numbers {
    BufferBytes m_zBytes;
    uint64_t m_iFrom, m_nStep, m_nBytes, m_nNumbers;
    uint64_t operator[](uint64_t i) const { return m_zBytes.NumberAt(m_iFrom + i * m_nStep, m_nBytes); }
  };

  // zWhere names the view; the step is that of a list without gaps where it is 0.
  Numbers NumbersOf(const Json& zWhere, uint64_t iType, uint64_t nStep, uint64_t nNumbers) const {
    const Json& zView = *Named("bufferViews", Member(zWhere, "bufferView"));
    Numbers z{BufferBytes(*Named("buffers", Member(zView, "buffer")), m_bFirst ? std::string_view() : m_strBinary),
              Count(zView, "byteOffset") + Count(zWhere, "byteOffset"), nStep, BytesOfComponent(iType), 0};
    if (z.m_nStep == 0) z.m_nStep = z.m_nBytes;
    const uint64_t nSize = z.m_zBytes.Size();
    if (nSize >= z.m_nBytes && z.m_iFrom <= nSize - z.m_nBytes)
      z.m_nNumbers = std::min(nNumbers, (nSize - z.m_nBytes - z.m_iFrom) / z.m_nStep + 1);
    return z;
  }

  // Of an accessor that CheckAccessor has passed; 0 where its bytes do not stand in the file itself.
  uint64_t LargestIndex(const Json& zAccessor) {
    const auto [it, bNew] = m_mapLargest.try_emplace(&zAccessor, 0);
    const uint64_t nEntries = Count(zAccessor, "count"), iType = Count(zAccessor, "componentType");
    if (!bNew || nEntries == 0) return it->second;
    std::map<uint64_t, uint64_t> mapNew;  // given anew
    if (const Json* const pzSparse = m_bFirst ? nullptr : Member(zAccessor, "sparse")) {
      const Json &zWhere = (*pzSparse)["indices"], &zWhat = (*pzSparse)["values"];
      const uint64_t nNew = Count(*pzSparse, "count");
      const Numbers zEntry = NumbersOf(zWhere, Count(zWhere, "componentType"), 0, nNew),
                    zIndex = NumbersOf(zWhat, iType, 0, nNew);
      for (uint64_t i = 0; i < std::min(zEntry.m_nNumbers, zIndex.m_nNumbers); ++i) mapNew[zEntry[i]] = zIndex[i];
    }
    for (const auto& [iEntry, iIndex] : mapNew)
      if (iEntry < nEntries) it->second = std::max(it->second, iIndex);
    const Json* const pzView = Named("bufferViews", Member(zAccessor, "bufferView"));
    if (pzView == nullptr) return it->second;
    const Numbers zIndex = NumbersOf(zAccessor, iType, Count(m_bFirst ? zAccessor : *pzView, "byteStride"), nEntries);
    for (uint64_t i = 0; i < zIndex.m_nNumbers; ++i)
      if (mapNew.count(i) == 0) it->second = std::max(it->second, zIndex[i]);
    return it->second;
  }

  // The names that the library knows, of which it counts some.
  void CheckFirstName(const std::string& strName, std::set<size_t>& setTexture) const {
    for (const std::string strKind : {"TEXCOORD", "COLOR", "JOINT", "WEIGHT"}) {
      if (!strName.starts_with(strKind)) continue;
      const std::string strRest = strName.substr(strKind.size());
      const bool bDigit = strRest.size() == 2 && strRest[0] == '_' && strRest[1] >= '0' && strRest[1] <= '7';
      if (!bDigit && !strRest.empty() && strName != "JOINTMATRIX")
        throw KivSceneError("a mesh has numbers of a name that is not known");
      if (strKind == "TEXCOORD") setTexture.insert(bDigit ? static_cast<size_t>(strRest[1] - '0') : 0);
    }
  }

  void CheckPiece(const Json& zPiece) {
    if (!zPiece.is_object()) throw KivSceneError("a piece of a mesh is no object");
    if (const Json* const pzPacked = Member(Entries(Member(zPiece, "extensions")), "KHR_draco_mesh_compression"))
      CheckView(*pzPacked);
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
      // The library compares beginnings.
      if ((strName.starts_with("POSITION") && strName != "POSITION") ||
          (strName.starts_with("NORMAL") && strName != "NORMAL"))
        throw KivSceneError("a mesh has numbers of a name that is not known");
      if (!m_bFirst) continue;
      CheckFirstName(strName, setTexture);
      const bool bTexture = strName.starts_with("TEXCOORD");
      if (bTexture && (!bFloat || (strType != "VEC2" && strType != "VEC3")))
        throw KivSceneError("places in pictures are no floating-point numbers");
      if (bTexture && Count(*pzAccessor, "count") != nCorners)
        throw KivSceneError("a piece of a mesh has other places in pictures than corners");
    }
    if (!setTexture.empty() && *setTexture.rbegin() + 1 != setTexture.size())
      throw KivSceneError("a set of places in pictures is missing");
    if (nCorners == 0 && (m_bFirst || Member(zPiece, "indices") != nullptr))
      throw KivSceneError("a piece of a mesh has no corners");
    const uint64_t iMode = Member(zPiece, "mode") == nullptr ? 4 : Count(zPiece, "mode");
    if (const Json* const pzIndices = CheckNamed(Member(zPiece, "indices"))) {
      const uint64_t iType = Count(*pzIndices, "componentType");
      if ((iType != 5121 && iType != 5123 && iType != 5125) || Text(*pzIndices, "type") != "SCALAR")
        throw KivSceneError("indices of it are no unsigned numbers");
      // Of others the library tells it itself.
      if ((m_bFirst || iMode == kClosedLine) && LargestIndex(*pzIndices) >= nCorners)
        throw KivSceneError("a face names a vertex that does not exist");
      nCorners = Count(*pzIndices, "count");
    }
    const uint64_t nLeast = iMode == kClosedLine || iMode == 3 ? 2 : iMode == 5 || iMode == 6 ? 3 : 0;
    if (nCorners < nLeast) throw KivSceneError("a line or a row of triangles has too few corners");
  }

  // The bytes of a view that are taken whole: a picture's, or those of a compressed mesh.
  void CheckView(const Json& zOwner) const {
    if (m_bFirst) return;
    if (const Json* const pzView = Named("bufferViews", Member(zOwner, "bufferView"))) CheckRange(*pzView, 0, 1, 0, 0);
  }

  // Pictures are left out, but the library looks for what stands behind the slash of their kind.
  void CheckImage(const Json& zImage) const {
    CheckView(zImage);
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
  std::string_view m_strBinary;
  std::map<const Json*, uint64_t> m_mapLargest;  // of accessors of indices
};

}  // namespace

void CheckMeshes(const Json& zFile, bool bFirst, std::string_view strBinary) {
  Meshes(zFile, bFirst, strBinary).Check();
}

}  // namespace kiv::gltf
