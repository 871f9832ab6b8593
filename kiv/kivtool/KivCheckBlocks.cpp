// What the check asks of the content of one element.
#include <algorithm>
#include <cmath>
#include <vector>

#include "KivAssemblyTree.h"
#include "KivBrepData.h"
#include "KivCheckWalk.h"
#include "KivFaceEdgeData.h"
#include "KivInstance.h"
#include "KivMeshCount.h"
#include "KivModel.h"
#include "KivModelMeaning.h"
#include "KivModelNote.h"
#include "KivNumberText.h"
#include "KivPolyElemData.h"

namespace kiv {
namespace {

class BlockCheck {
 public:
  BlockCheck(uint64_t iPosition, uint64_t iKey, KivCheckSink& zSink)
      : m_iPosition(iPosition), m_iKey(iKey), m_zSink(zSink) {}

  void Header(const KivMemoryBlockHeader& zHeader) {
    m_bBox = Box(zHeader.m_afBoxMin.data(), zHeader.m_afBoxMax.data(), "the element");
  }

  void Model(const KivMemoryBlockModel& zBlock) {
    Box(zBlock.m_fModelBoxMin.data(), zBlock.m_fModelBoxMax.data(), "the model");
  }

  void Instances(const KivMemoryBlockInstance& zBlock) {
    for (size_t i = 0; i < zBlock.m_vzInstance.size(); ++i) {
      const KivInstanceEntry& z = zBlock.m_vzInstance[i];
      if (!z.m_zFrame.IsGap()) Box(&z.m_fInstanceBox[0], &z.m_fInstanceBox[3], "instance " + std::to_string(i));
    }
  }

  template <typename Block>
  void Mesh(const Block& zBlock) {
    m_dSlack = 2 * static_cast<double>(zBlock.m_fStep);
    for (int i = 0; i < 3; ++i) {
      m_adLow[i] = static_cast<double>(zBlock.m_zHeader.m_afBoxMin[i]);
      m_adHigh[i] = static_cast<double>(zBlock.m_zHeader.m_afBoxMax[i]);
    }
    std::vector<uint32_t> viId;
    for (size_t i = 0; i < zBlock.m_vzFace.size(); ++i) {
      const auto& zFace = zBlock.m_vzFace[i];
      if (zFace.m_zFrame.IsGap()) continue;
      ++m_zSink.m_zResult.m_nFaces;
      Face(zFace, i, (zBlock.m_iMeshFlags & kMeshIndexCount) != 0);
      if (zFace.m_iId != 0) viId.push_back(zFace.m_iId);
    }
    Ids("face", viId);
    viId.clear();
    for (size_t i = 0; i < zBlock.m_vzEdge.size(); ++i) {
      const KivMeshEdge& zEdge = zBlock.m_vzEdge[i];
      if (zEdge.m_zFrame.IsGap()) continue;
      ++m_zSink.m_zResult.m_nEdges;
      Edge(zEdge, i);
      if (zEdge.m_iId != 0) viId.push_back(zEdge.m_iId);
    }
    Ids("edge", viId);
  }

  void Nodes(const KivMemoryBlockAssemblyTree& zBlock) {
    for (size_t i = 0; i < zBlock.m_vzNode.size(); ++i) {
      const KivAssemblyNode& z = zBlock.m_vzNode[i];
      if (z.m_zFrame.IsGap()) continue;
      const std::string strWhich = "node " + std::to_string(i);
      Box(&z.m_fNodeBox[0], &z.m_fNodeBox[3], strWhich);
      Styles(z.m_vzAttribute, strWhich);
    }
  }

  void Note(const KivMemoryBlockModelNote& zBlock) {
    if (KivHasMeaning(zBlock.m_vzAttribute, KivMeaning::Unit) && !KivGetUnit(zBlock.m_vzAttribute))
      Add("attribute-invalid", "the model's unit is none");
  }

  void Brep(const KivMemoryBlockBrep& zBlock) {
    for (size_t i = 0; i < zBlock.m_vzGeometry.size(); ++i) {
      const KivBrepEntry& zEntry = zBlock.m_vzGeometry[i];
      if (zEntry.m_zFrame.IsGap()) continue;
      ++m_zSink.m_zResult.m_nGeometries;
      const std::string strWhich = "geometry " + std::to_string(i);
      if (!KivBrepData::ValidateGeometry(zEntry)) Add("geometry-invalid", strWhich + " is not well-formed");
      const KivGeometryId zId = KivGeometryId::Unpack(zEntry.m_iGeometryId);
      if (zId.m_eUse > KivGeometryUse::SurfaceProfile || zId.m_iId == 0)
        Add("geometry-id", strWhich + " does not say which face or edge it describes");
    }
  }

 private:
  void Add(const char* szCode, const std::string& strSentence) {
    m_zSink.Add(szCode, m_iPosition, m_iKey, strSentence);
  }

  // A box that is absent has values of its own.
  bool Box(const float* pfLow, const float* pfHigh, const std::string& strWhich) {
    if (std::equal(pfLow, pfLow + 3, &kNoBox[0]) && std::equal(pfHigh, pfHigh + 3, &kNoBox[3])) return true;
    for (int i = 0; i < 3; ++i) {
      if (std::isfinite(pfLow[i]) && std::isfinite(pfHigh[i]) && pfLow[i] <= pfHigh[i]) continue;
      Add("box-invalid", strWhich + " has a box that is none: from " + KivNumberText(static_cast<double>(pfLow[i])) +
                             " to " + KivNumberText(static_cast<double>(pfHigh[i])) + " along " + "xyz"[i]);
      return false;
    }
    return true;
  }

  void Styles(const std::vector<KivAttribute>& vzAttribute, const std::string& strWhich) {
    if (KivHasMeaning(vzAttribute, KivMeaning::Colour) && !KivGetColour(vzAttribute))
      Add("attribute-invalid", strWhich + " has a colour that is none");
    if (KivHasMeaning(vzAttribute, KivMeaning::Layer) && !KivGetLayer(vzAttribute))
      Add("attribute-invalid", strWhich + " has a layer that is none");
  }

  // In memory a flat mesh has a vertex for each corner.
  static size_t VertexNum(const KivMeshFace& zFace) { return zFace.m_iVertexCount; }
  static size_t VertexNum(const KivPolyFace& zFace) {
    return zFace.IsFlat() && !zFace.m_viIndex.empty() ? zFace.m_viIndex.size() : zFace.m_iVertexCount;
  }

  static bool AllFinite(const std::vector<float>& vf) {
    return std::all_of(vf.begin(), vf.end(), [](float f) { return std::isfinite(f); });
  }

  void Vertices(const std::vector<float>& vfVertex, const std::string& strWhich) {
    if (!AllFinite(vfVertex)) {
      Add("mesh-number", strWhich + " has coordinates that are no finite numbers");
      return;
    }
    if (!m_bBox) return;
    for (size_t i = 0; i < vfVertex.size(); ++i) {
      const double d = static_cast<double>(vfVertex[i]);
      const double dSlack = m_dSlack + 1e-5 * std::abs(d);
      if (d < m_adLow[i % 3] - dSlack || d > m_adHigh[i % 3] + dSlack) {
        Add("mesh-box", strWhich + " has vertices outside the box of its element");
        return;
      }
    }
  }

  template <typename AnyFace>
  void Face(const AnyFace& zFace, size_t iFace, bool bStrips) {
    const std::string strWhich = "face " + std::to_string(iFace) + " (id " + std::to_string(zFace.m_iId) + ")";
    const size_t nVertices = zFace.m_vfVertex.size() / 3, nIndices = zFace.m_viIndex.size();
    const size_t nPlain = 3 * static_cast<size_t>(zFace.m_iTriangleCount);
    m_zSink.m_zResult.m_nTriangles += KivCountTriangles(zFace);
    if (zFace.m_vfVertex.size() % 3 != 0 || nVertices != VertexNum(zFace) ||
        (!zFace.m_vfNormal.empty() && zFace.m_vfNormal.size() != zFace.m_vfVertex.size()) ||
        (bStrips ? nIndices < nPlain : nIndices != nPlain && nIndices != 0))
      Add("mesh-length", strWhich + " has lists that do not fit its counts");
    if (std::any_of(zFace.m_viIndex.begin(), zFace.m_viIndex.end(), [&](uint32_t i) { return i >= nVertices; }))
      Add("mesh-index", strWhich + " has an index beyond its " + std::to_string(nVertices) + " vertices");
    if (!AllFinite(zFace.m_vfNormal)) Add("mesh-number", strWhich + " has normals that are no finite numbers");
    Vertices(zFace.m_vfVertex, strWhich);
    Styles(zFace.m_vzAttribute, strWhich);
  }

  void Edge(const KivMeshEdge& zEdge, size_t iEdge) {
    const std::string strWhich = "edge " + std::to_string(iEdge) + " (id " + std::to_string(zEdge.m_iId) + ")";
    if (zEdge.m_vfVertex.size() != 3 * static_cast<size_t>(zEdge.m_iVertexCount) || zEdge.m_iVertexCount == 0)
      Add("mesh-length", strWhich + " has lists that do not fit its counts");
    Vertices(zEdge.m_vfVertex, strWhich);
    Styles(zEdge.m_vzAttribute, strWhich);
  }

  void Ids(const char* szWhat, std::vector<uint32_t>& viId) {
    std::sort(viId.begin(), viId.end());
    const auto it = std::adjacent_find(viId.begin(), viId.end());
    if (it != viId.end())
      Add("mesh-id-twice", std::string("two entries have the ") + szWhat + " id " + std::to_string(*it));
  }

  uint64_t m_iPosition;
  uint64_t m_iKey;
  KivCheckSink& m_zSink;
  bool m_bBox = true;  // the element's box is one
  double m_adLow[3] = {}, m_adHigh[3] = {}, m_dSlack = 0;
};

}  // namespace

void KivCheckBlock(const KivMemoryBlock& zBlock, uint64_t iPosition, uint64_t iKey, KivCheckSink& zSink) {
  BlockCheck zCheck(iPosition, iKey, zSink);
  zCheck.Header(zBlock.GetHeader());
  if (const auto* pzFaceEdge = dynamic_cast<const KivMemoryBlockFaceEdge*>(&zBlock))
    zCheck.Mesh(*pzFaceEdge);
  else if (const auto* pzPoly = dynamic_cast<const KivMemoryBlockPolyElem*>(&zBlock))
    zCheck.Mesh(*pzPoly);
  else if (const auto* pzBrep = dynamic_cast<const KivMemoryBlockBrep*>(&zBlock))
    zCheck.Brep(*pzBrep);
  else if (const auto* pzTree = dynamic_cast<const KivMemoryBlockAssemblyTree*>(&zBlock))
    zCheck.Nodes(*pzTree);
  else if (const auto* pzNote = dynamic_cast<const KivMemoryBlockModelNote*>(&zBlock))
    zCheck.Note(*pzNote);
  else if (const auto* pzInstances = dynamic_cast<const KivMemoryBlockInstance*>(&zBlock))
    zCheck.Instances(*pzInstances);
  else if (const auto* pzModel = dynamic_cast<const KivMemoryBlockModel*>(&zBlock))
    zCheck.Model(*pzModel);
}

}  // namespace kiv
