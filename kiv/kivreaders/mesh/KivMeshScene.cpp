#include "KivMeshScene.h"

#include <assimp/GltfMaterial.h>
#include <assimp/material.h>
#include <algorithm>
#include <cmath>
#include <map>
#include <set>
#include <string_view>
#include <utility>

#include "KivMeshPolygon.h"
#include "KivSceneReader.h"

namespace kiv {
namespace {

// The library may cut a long name within a character.
std::string_view Text(const aiString& str) {
  const std::string_view strText(str.data, std::min<size_t>(str.length, sizeof str.data - 1));
  if (strText.size() + 1 < sizeof str.data) return strText;
  size_t nBegin = strText.size() - 1;  // of the last character
  while (nBegin > 0 && (static_cast<uint8_t>(strText[nBegin]) & 0xC0) == 0x80) --nBegin;
  const uint8_t cFirst = static_cast<uint8_t>(strText[nBegin]);
  const size_t nBytes = cFirst >= 0xF0 ? 4 : cFirst >= 0xE0 ? 3 : cFirst >= 0xC0 ? 2 : 1;
  return strText.substr(0, nBegin + nBytes > strText.size() ? nBegin : strText.size());
}

bool IsNumber(const aiVector3D& z) {
  return std::isfinite(z.x) && std::isfinite(z.y) && std::isfinite(z.z);
}

class Maker {
 public:
  Maker(const aiScene& zSource, const KivMeshFormat& zFormat, const KivMeshSource& zBytes, const KivMeshPlaces& vzPlace,
        KivScene& zScene)
      : m_zSource(zSource), m_zFormat(zFormat), m_zBytes(zBytes), m_vzPlace(vzPlace), m_zScene(zScene) {}

  void Run(const KivWString& csName) {
    m_zScene.m_dMetresPerUnit = m_zFormat.m_dMetresPerUnit;
    AddNodes(csName);
    if (m_zScene.m_vzPart.empty()) throw KivSceneError("it holds no triangles and no lines");
    if (m_zSource.mNumAnimations > 0) Warn("movements are left out");
    if (m_zSource.mNumCameras > 0) Warn("cameras are left out");
    if (m_zSource.mNumLights > 0) Warn("lights are left out");
    if (m_nCrossed > 0)
      Warn(std::to_string(m_nCrossed) +
           " polygons cross themselves or have no area: what they cover may be told wrongly");
    if (m_nPoints > 0) Warn(std::to_string(m_nPoints) + " single points are left out");
    for (const std::string& strTold : m_zScene.m_vstrWarning) m_setWarning.erase(strTold);
    m_zScene.m_vstrWarning.insert(m_zScene.m_vstrWarning.end(), m_setWarning.begin(), m_setWarning.end());
  }

 private:
  void Warn(const std::string& strWarning) { m_setWarning.insert(strWarning); }

  // True if the nodes of the source have as many children each as those of the library.
  bool PlacesFit() const {
    size_t nSeen = 0;
    std::vector<const aiNode*> vpzWaiting{m_zSource.mRootNode};
    while (!vpzWaiting.empty()) {
      const aiNode* const pzNode = vpzWaiting.back();
      vpzWaiting.pop_back();
      if (pzNode == nullptr || nSeen == m_vzPlace.size() || pzNode->mNumChildren != m_vzPlace[nSeen++].m_nChildren)
        return false;
      for (unsigned int i = pzNode->mNumChildren; i > 0; --i) vpzWaiting.push_back(pzNode->mChildren[i - 1]);
    }
    return nSeen == m_vzPlace.size();
  }

  // In the order of a walk from the root, each node before its children.
  void AddNodes(const KivWString& csName) {
    struct Waiting {
      const aiNode* m_pzNode;
      uint32_t m_iParent;
    };
    const bool bPlaces = PlacesFit();
    std::vector<Waiting> vzWaiting{{m_zSource.mRootNode, kNoSceneIndex}};
    while (!vzWaiting.empty()) {
      const auto [pzNode, iParent] = vzWaiting.back();
      vzWaiting.pop_back();
      if (pzNode == nullptr) continue;
      const uint32_t iNode = static_cast<uint32_t>(m_zScene.m_vzNode.size());
      KivSceneNode zNode;
      const KivMeshPlace* const pzPlace = bPlaces ? &m_vzPlace[iNode] : nullptr;
      zNode.m_csName = Wide(pzPlace != nullptr ? pzPlace->m_strName : OwnName(pzNode->mName));
      if (zNode.m_csName.empty() && iParent == kNoSceneIndex) zNode.m_csName = csName;
      zNode.m_iParent = iParent;
      zNode.m_zMatrix = Checked(pzPlace != nullptr ? pzPlace->m_zMatrix : Placement(pzNode->mTransformation));
      if (pzNode->mNumMeshes > 0) AddPart(*pzNode, pzPlace, zNode);
      m_zScene.m_vzNode.push_back(std::move(zNode));
      for (unsigned int i = pzNode->mNumChildren; i > 0; --i) vzWaiting.push_back({pzNode->mChildren[i - 1], iNode});
    }
  }

  // "nodes[3]", "meshes[0]", "meshes[0]-1".
  static bool IsNumbered(std::string_view strName) {
    if (!strName.starts_with("nodes[") && !strName.starts_with("meshes[")) return false;
    return strName.find_first_not_of("0123456789]-", strName.find('[') + 1) == std::string_view::npos;
  }

  // Empty for a name that the library of formats makes up where the source has none.
  std::string OwnName(const aiString& strSource) const {
    const std::string strName = m_zBytes.NameOf(Text(strSource));
    if (strName.size() < Text(strSource).size()) return strName;  // with a number that the reader gave
    if (strName == m_zBytes.GetName()) return {};                 // the name that the library knows the file by
    const bool bLikeMadeUp = (strName.starts_with("<") && strName.find('>') == strName.size() - 1) ||
                             strName == "ROOT" || strName == "defaultobject" || IsNumbered(strName);
    // The library counts the pieces of a mesh behind its name.
    const std::string strSought = IsNumbered(strName) ? strName.substr(0, strName.find(']') + 1) : strName;
    return bLikeMadeUp && !m_zBytes.Holds(strSought) ? std::string() : strName;
  }

  KivWString Wide(const std::string& strName) {
    const KivWString csName = sys::Utf8ToWide(strName);
    if (sys::WideToUtf8(csName) != strName) Warn("names that are no UTF-8 text are changed");
    return csName;
  }

  // For row vectors, where the source multiplies columns.
  static KivEMatrix4 Placement(const aiMatrix4x4& zSource) {
    KivEMatrix4 zMatrix;
    for (unsigned int i = 0; i < 4; ++i)
      for (unsigned int j = 0; j < 4; ++j) zMatrix[4 * j + i] = static_cast<double>(zSource[i][j]);
    return zMatrix;
  }
  static const KivEMatrix4& Checked(const KivEMatrix4& zMatrix) {
    for (size_t i = 0; i < 16; ++i)
      if (!std::isfinite(zMatrix[i])) throw KivSceneError("a placement is no number");
    if (!zMatrix.IsAffine()) throw KivSceneError("a placement is a projection");
    return zMatrix;
  }

  void AddPart(const aiNode& zSource, const KivMeshPlace* pzPlace, KivSceneNode& zNode) {
    const std::vector<unsigned int> viMesh(zSource.mMeshes, zSource.mMeshes + zSource.mNumMeshes);
    const auto [itPart, bNew] = m_mapPart.try_emplace(viMesh, static_cast<uint32_t>(m_zScene.m_vzPart.size()));
    if (!bNew) {
      if (itPart->second != kNoSceneIndex) zNode.m_viPart.push_back(itPart->second);
      return;
    }
    KivScenePart zPart;
    KivSceneLevel& zLevel = zPart.m_vzLevel.emplace_back();
    for (const unsigned int iMesh : viMesh) {
      if (iMesh >= m_zSource.mNumMeshes) throw KivSceneError("a node names a mesh that does not exist");
      AddMesh(*m_zSource.mMeshes[iMesh], zLevel);
    }
    if (zLevel.m_vzFace.empty() && zLevel.m_vzEdge.empty()) {
      itPart->second = kNoSceneIndex;  // single points, or nothing at all
      return;
    }
    std::vector<std::string> vstrName;
    if (pzPlace != nullptr) vstrName = pzPlace->m_vstrMesh;
    if (vstrName.empty())
      for (const unsigned int iMesh : viMesh) vstrName.push_back(OwnName(m_zSource.mMeshes[iMesh]->mName));
    zPart.m_csName = PartName(vstrName, zNode.m_csName);
    zNode.m_viPart.push_back(itPart->second);
    m_zScene.m_vzPart.push_back(std::move(zPart));
  }

  // What the names of the meshes have in common: the file counts the pieces of one mesh.
  KivWString PartName(const std::vector<std::string>& vstrName, const KivWString& csNode) {
    std::string strName = vstrName[0];
    bool bCut = false;
    for (const std::string& strOther : vstrName) {
      const auto [itEnd, itOther] = std::mismatch(strName.begin(), strName.end(), strOther.begin(), strOther.end());
      bCut = bCut || itEnd != strName.end() || itOther != strOther.end();
      size_t nSame = static_cast<size_t>(itEnd - strName.begin());
      while (nSame > 0 && nSame < strName.size() && (static_cast<uint8_t>(strName[nSame]) & 0xC0) == 0x80) --nSame;
      strName.resize(nSame);
    }
    // The mark between name and number.
    if (bCut && (strName.ends_with('-') || strName.ends_with('_'))) strName.pop_back();
    return strName.empty() ? csNode : Wide(strName);
  }

  void AddMesh(const aiMesh& zMesh, KivSceneLevel& zLevel) {
    if (zMesh.HasBones()) Warn("skeletons are left out: meshes stand in their basic form");
    if (zMesh.mNumAnimMeshes > 0) Warn("other forms of a mesh are left out");
    KivSceneFace zFace;
    for (unsigned int i = 0; i < zMesh.mNumFaces; ++i) {
      const aiFace& z = zMesh.mFaces[i];
      if (z.mNumIndices == 1) ++m_nPoints;
      if (z.mNumIndices == 3) zFace.m_viIndex.insert(zFace.m_viIndex.end(), z.mIndices, z.mIndices + 3);
      if (z.mNumIndices > 3) AddPolygon(zMesh, z, zFace);
    }
    const std::optional<KivColour> fColour = Colour(zMesh);
    if (!zFace.m_viIndex.empty()) {
      zFace.m_iId = static_cast<uint32_t>(zLevel.m_vzFace.size() + 1);
      zFace.m_fColour = fColour;
      zFace.m_vdVertex.resize(size_t{3} * zMesh.mNumVertices);
      for (size_t i = 0; i < zMesh.mNumVertices; ++i) {
        zFace.m_vdVertex[3 * i] = static_cast<double>(zMesh.mVertices[i].x);
        zFace.m_vdVertex[3 * i + 1] = static_cast<double>(zMesh.mVertices[i].y);
        zFace.m_vdVertex[3 * i + 2] = static_cast<double>(zMesh.mVertices[i].z);
      }
      if (zMesh.HasNormals() && m_zFormat.m_bNormals) AddNormals(zMesh, zFace);
      DropUnused(zFace);
      zLevel.m_vzFace.push_back(std::move(zFace));
    }
    AddLines(zMesh, fColour, zLevel);
  }

  void AddPolygon(const aiMesh& zMesh, const aiFace& zPolygon, KivSceneFace& zFace) {
    m_vzCorner.clear();
    for (unsigned int i = 0; i < zPolygon.mNumIndices; ++i) {
      const aiVector3D& z = zMesh.mVertices[zPolygon.mIndices[i]];
      m_vzCorner.push_back({static_cast<double>(z.x), static_cast<double>(z.y), static_cast<double>(z.z)});
    }
    if (!m_zCutter.Cut(m_vzCorner, m_viCorner)) ++m_nCrossed;
    for (const uint32_t i : m_viCorner) zFace.m_viIndex.push_back(zPolygon.mIndices[i]);
  }

  void AddNormals(const aiMesh& zMesh, KivSceneFace& zFace) {
    std::vector<float> vfNormal(size_t{3} * zMesh.mNumVertices);
    for (size_t i = 0; i < zMesh.mNumVertices; ++i) {
      const aiVector3D& z = zMesh.mNormals[i];
      const float fLength = std::sqrt(z.x * z.x + z.y * z.y + z.z * z.z);
      if (!std::isfinite(fLength) || fLength < 1e-6f) return Warn("normals without a direction are left out");
      vfNormal[3 * i] = z.x / fLength;
      vfNormal[3 * i + 1] = z.y / fLength;
      vfNormal[3 * i + 2] = z.z / fLength;
    }
    zFace.m_vfNormal = std::move(vfNormal);
  }

  // Vertices that no triangle names; the others keep their order.
  static void DropUnused(KivSceneFace& zFace) {
    std::vector<uint32_t> viNew(zFace.m_vdVertex.size() / 3, kNoSceneIndex);
    for (const uint32_t i : zFace.m_viIndex) viNew[i] = 0;
    uint32_t nUsed = 0;
    for (size_t i = 0; i < viNew.size(); ++i) {
      if (viNew[i] == kNoSceneIndex) continue;
      viNew[i] = nUsed;
      for (size_t iAxis = 0; nUsed != i && iAxis < 3; ++iAxis) {
        zFace.m_vdVertex[3 * nUsed + iAxis] = zFace.m_vdVertex[3 * i + iAxis];
        if (!zFace.m_vfNormal.empty()) zFace.m_vfNormal[3 * nUsed + iAxis] = zFace.m_vfNormal[3 * i + iAxis];
      }
      ++nUsed;
    }
    if (nUsed == viNew.size()) return;
    zFace.m_vdVertex.resize(size_t{3} * nUsed);
    if (!zFace.m_vfNormal.empty()) zFace.m_vfNormal.resize(size_t{3} * nUsed);
    for (uint32_t& i : zFace.m_viIndex) i = viNew[i];
  }

  // Lines that follow each other become one polyline: by their places, since a vertex may come once for each line.
  static void AddLines(const aiMesh& zMesh, const std::optional<KivColour>& fColour, KivSceneLevel& zLevel) {
    const auto AddVertex = [&zMesh](KivSceneEdge& zEdge, unsigned int i) {
      for (unsigned int iAxis = 0; iAxis < 3; ++iAxis)
        zEdge.m_vdVertex.push_back(static_cast<double>(zMesh.mVertices[i][iAxis]));
    };
    bool bOpen = false;
    aiVector3D zLast;
    for (unsigned int i = 0; i < zMesh.mNumFaces; ++i) {
      const aiFace& z = zMesh.mFaces[i];
      if (z.mNumIndices != 2) continue;
      if (!bOpen || zMesh.mVertices[z.mIndices[0]] != zLast) {
        KivSceneEdge& zEdge = zLevel.m_vzEdge.emplace_back();
        zEdge.m_iId = static_cast<uint32_t>(zLevel.m_vzEdge.size());
        zEdge.m_fColour = fColour;
        AddVertex(zEdge, z.mIndices[0]);
      }
      AddVertex(zLevel.m_vzEdge.back(), z.mIndices[1]);
      zLast = zMesh.mVertices[z.mIndices[1]];
      bOpen = true;
    }
  }

  // Of the material, if the source has one; of the vertices, if they agree. A glTF multiplies the two.
  std::optional<KivColour> Colour(const aiMesh& zMesh) {
    const std::optional<KivColour> fMaterial = MaterialColour(zMesh);
    if (zMesh.mColors[0] == nullptr || zMesh.mNumVertices == 0) return fMaterial;
    const aiColor4D zFirst = zMesh.mColors[0][0];
    const bool bSame = std::all_of(zMesh.mColors[0], zMesh.mColors[0] + zMesh.mNumVertices,
                                   [&](const aiColor4D& z) { return z == zFirst; });
    if (!bSame) Warn("colours of single vertices are left out");
    if (!bSame || (fMaterial && !m_zFormat.m_bLinear)) return fMaterial;
    // Without a material a glTF is opaque; the library gives colours of three numbers an opacity of 0.
    std::optional<KivColour> fColour = Clamped(zFirst, m_zFormat.m_bLinear ? 1.0f : zFirst.a);
    if (!fMaterial || !fColour) return fMaterial ? fMaterial : fColour;
    for (size_t i = 0; i < 3; ++i) (*fColour)[i] *= (*fMaterial)[i];
    const bool bClear = AlphaMode(*m_zSource.mMaterials[zMesh.mMaterialIndex]) == "BLEND" && zFirst.a > 0;
    (*fColour)[3] = (*fMaterial)[3] * (bClear ? std::min(zFirst.a, 1.0f) : 1.0f);
    return fColour;
  }

  // Empty for what is no glTF 2.
  static std::string AlphaMode(const aiMaterial& zMaterial) {
    aiString strMode;
    return zMaterial.Get(AI_MATKEY_GLTF_ALPHAMODE, strMode) == aiReturn_SUCCESS ? std::string(Text(strMode)) : "";
  }

  std::optional<KivColour> MaterialColour(const aiMesh& zMesh) {
    if (zMesh.mMaterialIndex >= m_zSource.mNumMaterials) return std::nullopt;
    const aiMaterial& zMaterial = *m_zSource.mMaterials[zMesh.mMaterialIndex];
    for (const aiTextureType iType : {aiTextureType_DIFFUSE, aiTextureType_BASE_COLOR})
      if (zMaterial.GetTextureCount(iType) > 0) Warn("pictures on surfaces are left out");
    aiString strName;
    const bool bNamed = zMaterial.Get(AI_MATKEY_NAME, strName) == aiReturn_SUCCESS && strName.length > 0;
    if (m_zBytes.HasMaterials()) return ToldColour(m_zBytes.FindMaterial(Text(strName)));
    // One that the library makes up, unless a glTF has its own of that name.
    const bool bOwn = m_zFormat.m_bLinear && m_zBytes.Holds(AI_DEFAULT_MATERIAL_NAME);
    if (bNamed && Text(strName) == AI_DEFAULT_MATERIAL_NAME && !bOwn) return std::nullopt;
    aiColor4D zColour;
    // Where a glTF gives both they differ by the extension for specular surfaces alone, whose diffuse colour counts.
    if (zMaterial.Get(AI_MATKEY_COLOR_DIFFUSE, zColour) != aiReturn_SUCCESS &&
        zMaterial.Get(AI_MATKEY_BASE_COLOR, zColour) != aiReturn_SUCCESS)
      return std::nullopt;
    // glTF stands in for a material that is missing with the last one, white and without a name.
    const bool bLast = zMesh.mMaterialIndex + 1 == m_zSource.mNumMaterials;
    if (!bNamed && bLast && zColour == aiColor4D(1, 1, 1, 1)) return std::nullopt;
    float fOpacity = zColour.a;
    float fOfMaterial = 1;
    if (zMaterial.Get(AI_MATKEY_OPACITY, fOfMaterial) == aiReturn_SUCCESS) fOpacity = std::min(fOpacity, fOfMaterial);
    const std::string strMode = AlphaMode(zMaterial);
    if (!strMode.empty() && strMode != "BLEND") fOpacity = 1;
    return Clamped(zColour, fOpacity);
  }

  std::optional<KivColour> ToldColour(const KivMeshMaterial* pzMaterial) {
    if (pzMaterial != nullptr && pzMaterial->m_bPicture) Warn("pictures on surfaces are left out");
    if (pzMaterial == nullptr || !pzMaterial->m_fColour) return std::nullopt;
    const auto [fRed, fGreen, fBlue] = *pzMaterial->m_fColour;
    const float fOpacity = pzMaterial->m_fOpacity.value_or(1 - pzMaterial->m_fTransparency.value_or(0));
    return Clamped(aiColor4D(fRed, fGreen, fBlue, 1), fOpacity);
  }

  std::optional<KivColour> Clamped(const aiColor4D& z, float fOpacity) {
    KivColour fColour{z.r, z.g, z.b, fOpacity};
    for (float& f : fColour) {
      if (!std::isfinite(f)) return Warn("a colour that is no number is left out"), std::nullopt;
      f = std::clamp(f, 0.0f, 1.0f);
    }
    for (size_t i = 0; !m_zFormat.m_bLinear && i < 3; ++i) fColour[i] = LinearOfSrgb(fColour[i]);
    return fColour;
  }
  static float LinearOfSrgb(float f) {
    const double d = static_cast<double>(f);
    return static_cast<float>(d <= 0.04045 ? d / 12.92 : std::pow((d + 0.055) / 1.055, 2.4));
  }

  const aiScene& m_zSource;
  const KivMeshFormat& m_zFormat;
  const KivMeshSource& m_zBytes;
  const KivMeshPlaces& m_vzPlace;
  KivScene& m_zScene;
  std::map<std::vector<unsigned int>, uint32_t> m_mapPart;
  std::set<std::string> m_setWarning;
  uint64_t m_nPoints = 0;
  uint64_t m_nCrossed = 0;  // polygons
  KivPolygonCutter m_zCutter;
  std::vector<KivPolygonCutter::Point> m_vzCorner;  // of one polygon
  std::vector<uint32_t> m_viCorner;                 // of its triangles
};

}  // namespace

void KivCheckMeshes(const aiScene& zSource, const KivMeshFormat& zFormat) {
  for (unsigned int iMesh = 0; iMesh < zSource.mNumMeshes; ++iMesh) {
    const aiMesh& zMesh = *zSource.mMeshes[iMesh];
    if (zMesh.mNumVertices > 0 && zMesh.mVertices == nullptr) throw KivSceneError("a mesh has no vertices");
    for (unsigned int i = 0; i < zMesh.mNumVertices; ++i)
      if (!IsNumber(zMesh.mVertices[i])) throw KivSceneError("a coordinate is no number");
    for (unsigned int i = 0; i < zMesh.mNumFaces; ++i) {
      const aiFace& z = zMesh.mFaces[i];
      if (z.mNumIndices < (zFormat.m_bLines ? 1u : 3u))
        throw KivSceneError("a face has fewer than three corners: the file is cut or damaged");
      for (unsigned int iCorner = 0; iCorner < z.mNumIndices; ++iCorner)
        if (z.mIndices[iCorner] >= zMesh.mNumVertices) throw KivSceneError("a face names a vertex that does not exist");
    }
  }
}

void KivSceneFromMeshes(const aiScene& zSource, const KivMeshFormat& zFormat, const KivMeshSource& zBytes,
                        const KivMeshPlaces& vzPlace, const KivWString& csName, KivScene& zScene) {
  Maker(zSource, zFormat, zBytes, vzPlace, zScene).Run(csName);
}

}  // namespace kiv
