#include "KivSceneToModel.h"

#include <algorithm>
#include <cmath>

#include "KivSceneLevels.h"

namespace kiv {
namespace {

constexpr double kMetresPerMillimetre = 0.001;

// Where a node stands in the model, and what its faces inherit.
struct Place {
  KivEMatrix4 m_zMatrix;
  std::optional<KivColour> m_fColour;
  std::optional<uint32_t> m_iLayer;
};

// A further root hangs below the first one.
size_t ParentOf(const KivSceneNode& zNode, size_t iNode) {
  if (iNode == 0) return KivModelBuilder::kNoNode;
  return zNode.m_iParent < iNode ? zNode.m_iParent : 0;
}

std::vector<Place> FindPlaces(const KivScene& zScene) {
  std::vector<Place> vzPlace;
  vzPlace.reserve(zScene.m_vzNode.size());
  for (const KivSceneNode& zNode : zScene.m_vzNode) {
    Place z = {zNode.m_zMatrix, zNode.m_fColour, zNode.m_iLayer};
    if (!vzPlace.empty()) {
      const Place& zParent = vzPlace[ParentOf(zNode, vzPlace.size())];
      z.m_zMatrix *= zParent.m_zMatrix;
      if (!z.m_fColour) z.m_fColour = zParent.m_fColour;
      if (!z.m_iLayer) z.m_iLayer = zParent.m_iLayer;
    }
    vzPlace.push_back(z);
  }
  return vzPlace;
}

KivSceneBox BoxOf(const KivScenePart& zPart) {
  KivSceneBox zBox;
  for (const KivSceneLevel& zLevel : zPart.m_vzLevel) {
    for (const KivSceneFace& z : zLevel.m_vzFace) zBox.AddPoints(z.m_vdVertex);
    for (const KivSceneEdge& z : zLevel.m_vzEdge) zBox.AddPoints(z.m_vdVertex);
  }
  return zBox;
}

// How much longer than in the part a distance may be in the model.
double ScaleOf(const KivEMatrix4& z) {
  double dLargest = 0;
  for (size_t i = 0; i < 12; i += 4) dLargest = std::max(dLargest, std::hypot(z[i], z[i + 1], z[i + 2]));
  return dLargest;
}

KivSceneBox ModelBox(const KivScene& zScene, const std::vector<Place>& vzPlace, const std::vector<KivSceneBox>& vzBox) {
  KivSceneBox zModel;
  for (size_t i = 0; i < vzPlace.size(); ++i)
    for (const uint32_t iPart : zScene.m_vzNode[i].m_viPart) zModel.Add(vzBox[iPart], vzPlace[i].m_zMatrix);
  return zModel;
}

// Those that the reader tells of the levels that it made; empty if it made none or does not know them.
std::vector<double> TolerancesOfReader(const KivScene& zScene) {
  for (const KivScenePart& zPart : zScene.m_vzPart) {
    if (!zPart.m_bHasFaces) continue;
    std::vector<double> vdTolerance;
    for (const KivSceneLevel& zLevel : zPart.m_vzLevel)
      if (zLevel.m_dTolerance > 0) vdTolerance.push_back(zLevel.m_dTolerance);
    return vdTolerance.size() == zPart.m_vzLevel.size() ? vdTolerance : std::vector<double>();
  }
  return {};
}

// Part names in messages.
std::string Quoted(const KivWString& csName) {
  return "\"" + sys::WideToUtf8(csName) + "\"";
}

class SceneToModel {
 public:
  SceneToModel(KivScene& zScene, const KivImportOptions& zOptions, KivModelBuilder& zBuilder,
               KivImportSummary& zSummary, std::string& strError)
      : m_zScene(zScene), m_zOptions(zOptions), m_zBuilder(zBuilder), m_zSummary(zSummary), m_strError(strError) {}

  bool Make() {
    m_zSummary = KivImportSummary();
    m_zSummary.m_vstrWarning = m_zScene.m_vstrWarning;
    GiveRoot();
    m_vzPlace = FindPlaces(m_zScene);
    for (const KivScenePart& zPart : m_zScene.m_vzPart) m_vzBox.push_back(BoxOf(zPart));
    FindScales();
    if (!AreCoordinatesInRange()) return false;
    FindTolerances();
    for (size_t i = 0; i < m_zScene.m_vzPart.size(); ++i) {
      if (!PutPart(i)) return false;
      Tell(i, 1);
    }
    if (!m_zScene.m_vzPart.empty() && m_zSummary.m_nFaces == 0 && m_zSummary.m_nEdges == 0)
      return m_strError = "it holds no lines, and no triangles with three corners", false;
    PutNodes();
    PutLayers();
    if (m_zScene.m_dMetresPerUnit > 0) KivSetUnit(m_zBuilder.NoteAttributes(), m_zScene.m_dMetresPerUnit);
    std::vector<float> vfTolerance(m_zSummary.m_vdTolerance.begin(), m_zSummary.m_vdTolerance.end());
    m_zBuilder.SetLevels(vfTolerance);
    WarnOf(m_nDegenerate, "triangle", "two corners at one place: left out");
    WarnOf(m_nEmptyFaces, "face", "no triangles: left out");
    WarnOf(m_nBadGeometries, "geometry string", "a form that is not valid: left out");
    WarnOf(m_nFarParts, "part",
           "coordinates so large that 32-bit floats hold them less closely than the finest tolerance");
    return true;
  }

 private:
  // --- Before the parts ---------------------------------------------------------------------------------------------

  void GiveRoot() {
    if (!m_zScene.m_vzNode.empty()) return;
    KivSceneNode& zRoot = m_zScene.m_vzNode.emplace_back();
    for (uint32_t i = 0; i < m_zScene.m_vzPart.size(); ++i) zRoot.m_viPart.push_back(i);
  }

  void FindScales() {
    m_vdScale.assign(m_zScene.m_vzPart.size(), 0);
    for (size_t i = 0; i < m_vzPlace.size(); ++i)
      for (const uint32_t iPart : m_zScene.m_vzNode[i].m_viPart)
        m_vdScale[iPart] = std::max(m_vdScale[iPart], ScaleOf(m_vzPlace[i].m_zMatrix));
    for (double& d : m_vdScale)
      if (!(d > 0)) d = 1;
  }

  bool AreCoordinatesInRange() {
    double dLargest = ModelBox(m_zScene, m_vzPlace, m_vzBox).LargestCoordinate();
    for (const KivSceneBox& zBox : m_vzBox) dLargest = std::max(dLargest, zBox.LargestCoordinate());
    for (const Place& zPlace : m_vzPlace)
      for (size_t i = 0; i < 16; ++i)
        if (!std::isfinite(zPlace.m_zMatrix[i])) dLargest = 2 * kSceneLargestCoordinate;
    if (dLargest <= kSceneLargestCoordinate) return true;
    m_strError = "its coordinates are too large for a model";
    return false;
  }

  void FindTolerances() {
    std::vector<double>& vdTolerance = m_zSummary.m_vdTolerance;
    vdTolerance = m_zOptions.m_vdTolerance;
    if (m_zScene.m_dMetresPerUnit > 0)
      for (double& d : vdTolerance) d *= kMetresPerMillimetre / m_zScene.m_dMetresPerUnit;
    if (vdTolerance.empty()) vdTolerance = TolerancesOfReader(m_zScene);
    if (vdTolerance.empty())
      vdTolerance = KivDefaultTolerances(ModelBox(m_zScene, m_vzPlace, m_vzBox).Diagonal(), m_zScene.m_dMetresPerUnit);
    // What readers tell of their levels is true of the model where no part is scaled.
    for (const KivScenePart& zPart : m_zScene.m_vzPart) {
      if (!zPart.m_bHasFaces) continue;
      for (size_t i = 0; i < zPart.m_vzLevel.size(); ++i) {
        const double dLevel = zPart.m_vzLevel[i].m_dTolerance;
        if (i >= vdTolerance.size()) vdTolerance.push_back(dLevel > 0 ? dLevel : vdTolerance.back());
      }
    }
    m_zSummary.m_vnTriangles.assign(vdTolerance.size(), 0);
  }

  // --- Parts --------------------------------------------------------------------------------------------------------

  // How far a part is; the share of it that is done is 0 to 1.
  void Tell(size_t iPart, double dShare) const {
    if (m_zOptions.m_pfnProgress) m_zOptions.m_pfnProgress((double(iPart) + dShare) / double(m_zScene.m_vzPart.size()));
  }

  bool PutPart(size_t iPart) {
    KivScenePart& zPart = m_zScene.m_vzPart[iPart];
    const size_t iNew = m_zBuilder.AddPart();  // the same number
    ++m_zSummary.m_nParts;
    const double dFinest = m_zSummary.m_vdTolerance.back() / m_vdScale[iPart];
    if (m_vzBox[iPart].LargestCoordinate() * 0x1p-24 > dFinest) ++m_nFarParts;
    PutGeometry(zPart, iNew);
    const bool bDone = zPart.m_bHasFaces ? PutFaces(zPart, iNew) : PutMesh(zPart, iNew);
    zPart.m_vzLevel = {};
    zPart.m_vzGeometry = {};
    return bDone;
  }

  double Tolerance(size_t iPart, size_t iLevel) const { return m_zSummary.m_vdTolerance[iLevel] / m_vdScale[iPart]; }

  // A source with faces and levels of its own.
  bool PutFaces(KivScenePart& zPart, size_t iPart) {
    for (size_t iLevel = 0; iLevel < zPart.m_vzLevel.size(); ++iLevel) {
      KivSceneLevel& zLevel = zPart.m_vzLevel[iLevel];
      const bool bFinest = iLevel + 1 == zPart.m_vzLevel.size();
      const double dTolerance = zLevel.m_dTolerance > 0 ? zLevel.m_dTolerance : Tolerance(iPart, iLevel);
      KivMemoryBlockFaceEdge& zBlock = m_zBuilder.FaceEdge(iPart, iLevel);
      KivSceneMesh zMesh(zBlock, m_vzBox[iPart], dTolerance, bFinest);
      for (KivSceneFace& z : zLevel.m_vzFace) {
        if (!zMesh.AddFace(z.m_iId, z.m_vdVertex, z.m_vfNormal, z.m_viIndex, z.m_fColour, z.m_iLayer) && bFinest)
          ++m_nEmptyFaces;
        z = {};
      }
      for (KivSceneEdge& z : zLevel.m_vzEdge) {
        zMesh.AddEdge(z.m_iId, z.m_vdVertex, z.m_fColour, z.m_iLayer);
        z = {};
      }
      zMesh.Finish();
      CountLevel(zBlock, iLevel, bFinest);
      Tell(iPart, double(iLevel + 1) / double(zPart.m_vzLevel.size()));
    }
    return true;
  }

  // A bare mesh: its regions, simplified for all levels but the finest. Lines of the source are numbered behind those
  // between regions, the same in all levels.
  bool PutMesh(KivScenePart& zPart, size_t iPart) {
    if (zPart.m_vzLevel.empty()) return true;
    std::vector<KivSceneFace>& vzSource = zPart.m_vzLevel.back().m_vzFace;
    std::vector<KivSceneGroup> vzGroup;
    size_t nCorners = 0;
    for (const KivSceneFace& z : vzSource) {
      vzGroup.push_back({z.m_fColour, z.m_iLayer});
      nCorners += z.m_viIndex.size();
    }
    if (nCorners >= kNoSceneIndex) {
      m_strError = "the mesh " + Quoted(zPart.m_csName) + " has too many triangles for a model";
      return false;
    }
    const size_t nLevels = m_zSummary.m_vdTolerance.size();
    const double dSteps = 1 + 2 * static_cast<double>(nLevels);  // the regions; of each level its triangles, its entry
    double dStep = 0;
    const KivSceneRegions zRegions = KivFindSceneRegions(vzSource, m_zOptions.m_dAngle);
    Tell(iPart, ++dStep / dSteps);
    const std::vector<KivSceneEdge> vzEdge = std::move(zPart.m_vzLevel.back().m_vzEdge);
    zPart.m_vzLevel.clear();
    m_nDegenerate += zRegions.m_nDegenerate;
    if (zRegions.RegionNum() == 0 && vzEdge.empty()) return true;
    std::vector<uint32_t> viIndex = zRegions.m_viIndex;
    for (size_t iLevel = nLevels; iLevel-- > 0;) {
      const bool bFinest = iLevel + 1 == nLevels;
      const double dTolerance = Tolerance(iPart, iLevel);
      // From the level before it, which has taken its share of the tolerance already; the finest one is the source.
      const double dTaken = iLevel + 2 < nLevels ? Tolerance(iPart, iLevel + 1) : 0;
      if (!bFinest) viIndex = KivSimplifyRegions(zRegions, viIndex, m_vzBox[iPart], dTolerance - dTaken);
      Tell(iPart, ++dStep / dSteps);
      KivMemoryBlockFaceEdge& zBlock = m_zBuilder.FaceEdge(iPart, iLevel);
      KivSceneMesh zMesh(zBlock, m_vzBox[iPart], dTolerance, bFinest);
      KivPutRegions(zRegions, viIndex, vzGroup, zMesh);
      for (size_t i = 0; i < vzEdge.size(); ++i)
        zMesh.AddEdge(static_cast<uint32_t>(zRegions.LineNum() + i + 1), vzEdge[i].m_vdVertex, vzEdge[i].m_fColour,
                      vzEdge[i].m_iLayer);
      zMesh.Finish();
      CountLevel(zBlock, iLevel, bFinest);
      Tell(iPart, ++dStep / dSteps);
    }
    return true;
  }

  void CountLevel(const KivMemoryBlockFaceEdge& zBlock, size_t iLevel, bool bFinest) {
    for (const KivMeshFace& zFace : zBlock.m_vzFace) m_zSummary.m_vnTriangles[iLevel] += zFace.m_iTriangleCount;
    if (!bFinest) return;
    m_zSummary.m_nFaces += zBlock.m_vzFace.size();
    m_zSummary.m_nEdges += zBlock.m_vzEdge.size();
  }

  void PutGeometry(const KivScenePart& zPart, size_t iPart) {
    for (const KivSceneGeometry& zGeometry : zPart.m_vzGeometry) {
      KivBrepEntry zEntry;
      zEntry.m_zFrame.m_iKind = zGeometry.m_iKind;
      zEntry.m_iGeometryId = zGeometry.m_zId.Pack();
      zEntry.m_vcGeometry = zGeometry.m_vcGeometry;
      const bool bKind = zGeometry.m_iKind == kBrepNurbsKind || zGeometry.m_iKind == kBrepAnalyticKind;
      if (!bKind || zEntry.m_vcGeometry.empty() || !KivBrepData::ValidateGeometry(zEntry)) {
        ++m_nBadGeometries;
        continue;
      }
      m_zBuilder.Brep(iPart).AddGeometry(zGeometry.m_iKind) = std::move(zEntry);
      ++m_zSummary.m_nGeometries;
    }
  }

  // --- Structure ----------------------------------------------------------------------------------------------------

  void PutNodes() {
    for (size_t i = 0; i < m_zScene.m_vzNode.size(); ++i) {
      const KivSceneNode& zNode = m_zScene.m_vzNode[i];
      const size_t iNode = m_zBuilder.AddNode(zNode.m_csName, ParentOf(zNode, i));
      KivAssemblyNode& zNew = m_zBuilder.Node(iNode);
      zNew.m_zMatrix = zNode.m_zMatrix;
      zNew.m_strNodeName[1] = NameOfParts(zNode);
      // A node with parts tells all that its faces inherit.
      const bool bParts = !zNode.m_viPart.empty();
      const std::optional<KivColour>& fColour = bParts ? m_vzPlace[i].m_fColour : zNode.m_fColour;
      const std::optional<uint32_t>& iLayer = bParts ? m_vzPlace[i].m_iLayer : zNode.m_iLayer;
      if (fColour) KivSetColour(zNew.m_vzAttribute, *fColour);
      if (iLayer) KivSetLayer(zNew.m_vzAttribute, *iLayer);
      for (const uint32_t iPart : zNode.m_viPart) {
        m_zBuilder.PlaceInstance(iPart, m_vzPlace[i].m_zMatrix, iNode);
        ++m_zSummary.m_nInstances;
      }
      ++m_zSummary.m_nNodes;
    }
  }
  KivWString NameOfParts(const KivSceneNode& zNode) const {
    for (const uint32_t iPart : zNode.m_viPart)
      if (!m_zScene.m_vzPart[iPart].m_csName.empty()) return m_zScene.m_vzPart[iPart].m_csName;
    return KivWString();
  }

  void PutLayers() {
    for (const KivSceneLayer& zLayer : m_zScene.m_vzLayer) {
      KivLayerFilterEntry& zFilter = m_zBuilder.LayerFilter(0).AddFilter();
      zFilter.m_strFilterName = zLayer.m_csName;
      zFilter.m_vzLayer = {{zLayer.m_iLayer, zLayer.m_bOn}};
    }
  }

  void WarnOf(uint64_t n, const char* szWhat, const char* szWhy) {
    if (n == 0) return;
    m_zSummary.m_vstrWarning.push_back(std::to_string(n) + " " + szWhat + (n == 1 ? " has " : "s have ") + szWhy);
  }

  KivScene& m_zScene;
  const KivImportOptions& m_zOptions;
  KivModelBuilder& m_zBuilder;
  KivImportSummary& m_zSummary;
  std::string& m_strError;
  std::vector<Place> m_vzPlace;      // of each node
  std::vector<KivSceneBox> m_vzBox;  // of each part, in its own coordinates
  std::vector<double> m_vdScale;     // of each part, the largest of its places
  uint64_t m_nDegenerate = 0, m_nEmptyFaces = 0, m_nBadGeometries = 0, m_nFarParts = 0;
};

}  // namespace

std::vector<double> KivDefaultTolerances(const KivScene& zScene) {
  std::vector<KivSceneBox> vzBox;
  for (const KivScenePart& zPart : zScene.m_vzPart) vzBox.push_back(BoxOf(zPart));
  return KivDefaultTolerances(ModelBox(zScene, FindPlaces(zScene), vzBox).Diagonal(), zScene.m_dMetresPerUnit);
}

bool KivSceneToModel(KivScene& zScene, const KivImportOptions& zOptions, KivModelBuilder& zBuilder,
                     KivImportSummary& zSummary, std::string& strError) {
  return SceneToModel(zScene, zOptions, zBuilder, zSummary, strError).Make();
}

}  // namespace kiv
