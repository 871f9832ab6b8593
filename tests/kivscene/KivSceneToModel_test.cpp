#include "KivSceneToModel.h"

#include <gtest/gtest.h>

#include "KivElementClasses.h"
#include "KivElementWalk.h"
#include "KivSceneLevels.h"
#include "KivTestElement.h"
#include "KivTestScene.h"

namespace {

using namespace kiv;
using namespace kivtest;

class SceneToModel : public ElementStoreTest {
 protected:
  SceneToModel() { KivRegisterElementClasses(); }

  bool Import(KivScene zScene, const KivImportOptions& zOptions = {}, const KivWString& csName = u"model.kiv") {
    KivModelBuilder zBuilder;
    m_strError.clear();
    if (!KivSceneToModel(zScene, zOptions, zBuilder, m_zSummary, m_strError)) return false;
    if (!zBuilder.Save(m_zFolder / csName)) return false;
    m_pzModel = Open(m_zFolder / csName, false, 1000);
    return m_pzModel != nullptr;
  }
  uint32_t Key() const { return m_pzModel->GetKey(); }
  KivMemoryBlockAssemblyTree& Tree() const { return *KivGetAssemblyTree(Key())->GetMemoryBlock(); }
  KivMemoryBlockInstance& Instances() const { return *KivGetInstanceRoot(Key())->GetMemoryBlock(); }
  KivMemoryBlockFaceEdge& Mesh(size_t iInstance, size_t iLevel) const {
    const uint64_t iKey = Instances().m_vzInstance[iInstance].m_vzLevel.at(iLevel).m_iFaceEdgeKey;
    return *dynamic_cast<KivFaceEdgeData*>(KivOutOfCoreManager::GetElement(Key(), iKey))->GetMemoryBlock();
  }

  KivImportSummary m_zSummary;
  std::string m_strError;
};

KivEMatrix4 Moved(double x, double y, double z) {
  KivEMatrix4 zMatrix;
  zMatrix.Translate({x, y, z});
  return zMatrix;
}

KivSceneNode NewNode(const KivWString& csName, uint32_t iParent, const KivEMatrix4& zMatrix,
                     std::vector<uint32_t> viPart = {}) {
  KivSceneNode z;
  z.m_csName = csName;
  z.m_iParent = iParent;
  z.m_zMatrix = zMatrix;
  z.m_viPart = std::move(viPart);
  return z;
}

constexpr KivColour kRed = {1, 0, 0, 1};
constexpr KivColour kBlue = {0, 0, 1, 0.5f};

}  // namespace

TEST_F(SceneToModel, ACubeComesBackWithItsFacesEdgesAndLevels) {
  ASSERT_TRUE(Import(MeshScene({Cube(10)})));
  EXPECT_EQ(m_zSummary.m_nParts, 1u);
  EXPECT_EQ(m_zSummary.m_nNodes, 1u);
  EXPECT_EQ(m_zSummary.m_nInstances, 1u);
  EXPECT_EQ(m_zSummary.m_nFaces, 6u);
  EXPECT_EQ(m_zSummary.m_nEdges, 12u);
  EXPECT_EQ(m_zSummary.m_vnTriangles, (std::vector<uint64_t>{12, 12, 12}));
  EXPECT_TRUE(m_zSummary.m_vstrWarning.empty());
  for (size_t iLevel = 0; iLevel < 3; ++iLevel) {
    const KivMemoryBlockFaceEdge& zMesh = Mesh(0, iLevel);
    ASSERT_EQ(zMesh.m_vzFace.size(), 6u);
    ASSERT_EQ(zMesh.m_vzEdge.size(), 12u);
    for (uint32_t i = 0; i < 6; ++i) EXPECT_EQ(zMesh.m_vzFace[i].m_iId, i + 1);
    for (uint32_t i = 0; i < 12; ++i) EXPECT_EQ(zMesh.m_vzEdge[i].m_iId, i + 1);
    EXPECT_NEAR(Area(TrianglesOf(zMesh)), 600, 1e-6);
    EXPECT_EQ(zMesh.m_zHeader.m_afBoxMin, (std::array<float, 3>{0, 0, 0}));
    EXPECT_EQ(zMesh.m_zHeader.m_afBoxMax, (std::array<float, 3>{10, 10, 10}));
  }
}

TEST_F(SceneToModel, TheDefaultTolerancesAreMillimetresOrThousandthsOfTheDiagonal) {
  KivScene zScene = MeshScene({Cube(10)});
  const double dDiagonal = std::sqrt(300.0);
  EXPECT_NEAR(KivDefaultTolerances(zScene)[0], dDiagonal / 1000, 1e-12);
  EXPECT_NEAR(KivDefaultTolerances(zScene)[2], dDiagonal / 100000, 1e-12);
  zScene.m_dMetresPerUnit = 0.0254;
  EXPECT_NEAR(KivDefaultTolerances(zScene)[1], 0.1 / 25.4, 1e-12);
  ASSERT_TRUE(Import(zScene));
  EXPECT_NEAR(Instances().m_vfLevelTolerance.at(0), 1 / 25.4, 1e-6);
  EXPECT_EQ(KivGetUnit(KivGetModelNote(Key())->GetMemoryBlock()->m_vzAttribute), 0.0254);
  KivImportOptions zOptions;
  zOptions.m_vdTolerance = {2, 1};
  ASSERT_TRUE(Import(zScene, zOptions, u"inches.kiv"));
  EXPECT_EQ(m_zSummary.m_vdTolerance.size(), 2u);
  EXPECT_NEAR(m_zSummary.m_vdTolerance[0], 2 / 25.4, 1e-12);
  zScene.m_dMetresPerUnit = 0;
  ASSERT_TRUE(Import(zScene, zOptions, u"plain.kiv"));
  EXPECT_EQ(Instances().m_vfLevelTolerance, (std::vector<float>{2, 1}));
  EXPECT_EQ(KivGetUnit(KivGetModelNote(Key())->GetMemoryBlock()->m_vzAttribute), std::nullopt);
  EXPECT_EQ(KivDefaultTolerances(KivScene()), (std::vector<double>{1, 0.1, 0.01}));
}

TEST_F(SceneToModel, AboveAMetreTheDefaultTolerancesGrowWithTheDiagonal) {
  EXPECT_EQ(KivDefaultTolerances(1000, 0.001), (std::vector<double>{1, 0.1, 0.01}));
  EXPECT_EQ(KivDefaultTolerances(0, 0.001), (std::vector<double>{1, 0.1, 0.01}));
  EXPECT_NEAR(KivDefaultTolerances(80000, 0.001).at(0), 80, 1e-9);
  EXPECT_NEAR(KivDefaultTolerances(80000, 0.001).at(2), 0.8, 1e-9);
  EXPECT_EQ(KivDefaultTolerances(116825.3, 0.001), (std::vector<double>{120, 12, 1.2}));
  EXPECT_NEAR(KivDefaultTolerances(80, 1).at(1), 0.008, 1e-12);
  KivScene zScene = MeshScene({Cube(10)});
  zScene.m_dMetresPerUnit = 1;
  ASSERT_TRUE(Import(zScene));
  EXPECT_NEAR(m_zSummary.m_vdTolerance.at(0), 0.017, 1e-12);
}

TEST_F(SceneToModel, PartsStandWhereTheirNodesAndTheNodesAboveThemPutThem) {
  KivScene zScene;
  zScene.m_vzPart = {MeshPart({Cube(1)}, u"bolt"), MeshPart({Cube(2)}, u"nut")};
  KivEMatrix4 zTurned;
  zTurned.RotateZ(std::numbers::pi / 2);
  zScene.m_vzNode = {NewNode(u"machine", kNoSceneIndex, KivEMatrix4()), NewNode(u"arm", 0, zTurned * Moved(100, 0, 0)),
                     NewNode(u"first", 1, Moved(10, 0, 0), {0}), NewNode(u"second", 0, Moved(0, 0, 7), {0, 1})};
  ASSERT_TRUE(Import(zScene));
  ASSERT_EQ(Tree().m_vzNode.size(), 4u);
  EXPECT_EQ(Tree().m_vzNode[0].m_viChildren, (std::vector<uint64_t>{1, 3}));
  EXPECT_EQ(Tree().m_vzNode[1].m_viChildren, (std::vector<uint64_t>{2}));
  EXPECT_EQ(Tree().m_vzNode[2].m_strNodeName[0], u"first");
  EXPECT_EQ(Tree().m_vzNode[2].m_strNodeName[1], u"bolt");
  EXPECT_EQ(Tree().m_vzNode[2].m_zMatrix.GetTranslation(), (KivECoord3{10, 0, 0}));
  ASSERT_EQ(Instances().m_vzInstance.size(), 3u);
  EXPECT_EQ(Instances().m_vzInstance[0].m_iInstanceData[0], 2u);
  EXPECT_EQ(Instances().m_vzInstance[1].m_iInstanceData[0], 3u);
  EXPECT_EQ(Instances().m_vzInstance[2].m_iInstanceData[0], 3u);
  // The bolt is 10 out on the arm's own x axis, which points along y.
  const KivECoord3 z = Instances().m_vzInstance[0].m_zMatrix.TransformPoint(KivECoord3{0, 0, 0});
  EXPECT_NEAR((z - KivECoord3{100, 10, 0}).Length(), 0, 1e-9);
  EXPECT_EQ(Instances().m_vzInstance[1].m_zMatrix.GetTranslation(), (KivECoord3{0, 0, 7}));
  // One mesh for both bolts.
  EXPECT_EQ(Instances().m_vzInstance[0].m_vzLevel[2].m_iFaceEdgeKey,
            Instances().m_vzInstance[1].m_vzLevel[2].m_iFaceEdgeKey);
  EXPECT_NE(Instances().m_vzInstance[0].m_vzLevel[2].m_iFaceEdgeKey,
            Instances().m_vzInstance[2].m_vzLevel[2].m_iFaceEdgeKey);
  EXPECT_EQ(m_zSummary.m_nFaces, 12u);
}

TEST_F(SceneToModel, ColoursAndLayersAreTheFacesOwnOrThoseOfTheNearestNode) {
  KivScene zScene;
  KivSceneFace zPlain = Cube(1), zPainted = Cube(1, {5, 0, 0});
  zPainted.m_fColour = kRed;
  zPainted.m_iLayer = 4;
  zScene.m_vzPart = {MeshPart({zPlain, zPainted})};
  zScene.m_vzNode = {NewNode(u"root", kNoSceneIndex, KivEMatrix4()), NewNode(u"between", 0, KivEMatrix4()),
                     NewNode(u"blue below", 1, KivEMatrix4(), {0}), NewNode(u"red itself", 1, KivEMatrix4(), {0})};
  zScene.m_vzNode[0].m_fColour = kBlue;
  zScene.m_vzNode[0].m_iLayer = 9;
  zScene.m_vzNode[3].m_fColour = kRed;
  zScene.m_vzLayer = {{4, u"painted", true}, {9, u"all", false}};
  ASSERT_TRUE(Import(zScene));
  EXPECT_EQ(KivGetColour(Tree().m_vzNode[0].m_vzAttribute), kBlue);
  EXPECT_EQ(KivGetColour(Tree().m_vzNode[1].m_vzAttribute), std::nullopt);
  EXPECT_EQ(KivGetColour(Tree().m_vzNode[2].m_vzAttribute), kBlue);
  EXPECT_EQ(KivGetLayer(Tree().m_vzNode[2].m_vzAttribute), 9u);
  EXPECT_EQ(KivGetColour(Tree().m_vzNode[3].m_vzAttribute), kRed);
  const uint64_t iFilterKey = Tree().m_vzNode[0].m_iLayerFilterKey;
  ASSERT_NE(iFilterKey, 0u);
  for (size_t iLevel = 0; iLevel < 3; ++iLevel) {
    const KivMemoryBlockFaceEdge& zMesh = Mesh(0, iLevel);
    ASSERT_EQ(zMesh.m_vzFace.size(), 12u);
    for (size_t i = 0; i < 12; ++i) {
      EXPECT_EQ(KivGetColour(zMesh.m_vzFace[i].m_vzAttribute), i < 6 ? std::nullopt : std::optional(kRed));
      EXPECT_EQ(KivGetLayer(zMesh.m_vzFace[i].m_vzAttribute), i < 6 ? std::nullopt : std::optional<uint32_t>(4));
    }
  }
  auto* pzFilter = dynamic_cast<KivLayerFilter*>(KivOutOfCoreManager::GetElement(Key(), iFilterKey));
  ASSERT_NE(pzFilter, nullptr);
  const KivMemoryBlockLayerFilter& zFilter = *pzFilter->GetMemoryBlock();
  ASSERT_EQ(zFilter.m_vzFilter.size(), 2u);
  EXPECT_EQ(zFilter.m_vzFilter[1].m_strFilterName, u"all");
  EXPECT_EQ(zFilter.m_vzFilter[1].m_vzLayer.at(0).m_iLayer, 9u);
  EXPECT_FALSE(zFilter.m_vzFilter[1].m_vzLayer.at(0).m_bOn);
}

TEST_F(SceneToModel, ASourceWithFacesKeepsItsIdsLevelsAndGeometry) {
  KivScene zScene = MeshScene({});
  KivScenePart& zPart = zScene.m_vzPart[0];
  zPart.m_bHasFaces = true;
  zPart.m_vzLevel.assign(2, KivSceneLevel());
  for (size_t iLevel = 0; iLevel < 2; ++iLevel) {
    KivSceneLevel& zLevel = zPart.m_vzLevel[iLevel];
    zLevel.m_dTolerance = iLevel == 0 ? 0.5 : 0.05;
    for (const uint32_t iId : {7u, 3u}) {
      KivSceneFace z;
      AddSquare(z, {0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0});
      z.m_vfNormal.assign(z.m_vdVertex.size(), 0);
      for (size_t i = 2; i < z.m_vfNormal.size(); i += 3) z.m_vfNormal[i] = 1;
      z.m_iId = iId;
      zLevel.m_vzFace.push_back(z);
    }
    KivSceneEdge zEdge;
    zEdge.m_iId = 11;
    zEdge.m_vdVertex = {0, 0, 0, 1, 0, 0};
    zEdge.m_fColour = kBlue;
    zLevel.m_vzEdge.push_back(zEdge);
  }
  zPart.m_vzLevel[1].m_vzFace.emplace_back().m_iId = 8;  // without triangles
  KivSceneGeometry zGood, zBad;
  zGood.m_iKind = kBrepAnalyticKind;
  zGood.m_zId = {7, KivGeometryUse::Face, 0};
  zGood.m_vcGeometry = FromHex("40 01" + HexZeros(48));
  zGood.m_vcGeometry[49] = 0x40;
  zBad = zGood;
  zBad.m_vcGeometry.pop_back();
  zPart.m_vzGeometry = {zGood, zBad};
  KivImportOptions zOptions;
  zOptions.m_vdTolerance = {0.5, 0.05};
  ASSERT_TRUE(Import(zScene, zOptions));
  EXPECT_EQ(m_zSummary.m_nFaces, 2u);
  EXPECT_EQ(m_zSummary.m_nGeometries, 1u);
  EXPECT_EQ(m_zSummary.m_vstrWarning.size(), 2u);  // of the face, of the geometry
  ASSERT_EQ(Instances().m_vzInstance[0].m_vzLevel.size(), 2u);
  for (size_t iLevel = 0; iLevel < 2; ++iLevel) {
    EXPECT_EQ(Mesh(0, iLevel).m_vzFace.size(), 2u);
    EXPECT_EQ(Mesh(0, iLevel).m_vzFace[0].m_iId, 7u);
    EXPECT_EQ(Mesh(0, iLevel).m_vzEdge[0].m_iId, 11u);
    EXPECT_EQ(KivGetColour(Mesh(0, iLevel).m_vzEdge[0].m_vzAttribute), kBlue);
  }
  EXPECT_NE(Instances().m_vzInstance[0].m_iBrepKey, 0u);
}

TEST_F(SceneToModel, LevelsOfAReaderTellTheirTolerancesWhereNoneAreAskedFor) {
  KivScene zScene = MeshScene({});
  zScene.m_dMetresPerUnit = 0.001;
  KivScenePart& zPart = zScene.m_vzPart[0];
  zPart.m_bHasFaces = true;
  zPart.m_vzLevel.clear();
  for (const double d : {7.0, 0.7}) {
    KivSceneLevel& zLevel = zPart.m_vzLevel.emplace_back();
    zLevel.m_dTolerance = d;
    KivSceneFace& z = zLevel.m_vzFace.emplace_back();
    AddSquare(z, {0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0});
    z.m_vfNormal.assign(z.m_vdVertex.size(), 0);
    for (size_t i = 2; i < z.m_vfNormal.size(); i += 3) z.m_vfNormal[i] = 1;
    z.m_iId = 1;
  }
  ASSERT_TRUE(Import(zScene));
  EXPECT_EQ(m_zSummary.m_vdTolerance, (std::vector<double>{7, 0.7}));
  EXPECT_EQ(Instances().m_vfLevelTolerance, (std::vector<float>{7, 0.7f}));
}

TEST_F(SceneToModel, LinesOfABareMeshAreNumberedBehindThoseBetweenItsRegions) {
  KivScene zScene = MeshScene({Cube(1)});
  KivSceneEdge zEdge;
  zEdge.m_vdVertex = {0, 0, 0, 3, 3, 3, 4, 3, 3};
  zEdge.m_iLayer = 2;
  zScene.m_vzPart[0].m_vzLevel[0].m_vzEdge = {zEdge, zEdge};
  ASSERT_TRUE(Import(zScene));
  for (size_t iLevel = 0; iLevel < 3; ++iLevel) {
    ASSERT_EQ(Mesh(0, iLevel).m_vzEdge.size(), 14u);
    EXPECT_EQ(Mesh(0, iLevel).m_vzEdge[13].m_iId, 14u);
    EXPECT_EQ(Mesh(0, iLevel).m_vzEdge[13].m_iVertexCount, 3u);
    EXPECT_EQ(KivGetLayer(Mesh(0, iLevel).m_vzEdge[13].m_vzAttribute), 2u);
  }
  zScene.m_vzPart[0].m_vzLevel[0].m_vzFace.clear();
  ASSERT_TRUE(Import(zScene, {}, u"lines.kiv"));
  EXPECT_EQ(m_zSummary.m_nEdges, 2u);
}

TEST_F(SceneToModel, ScenesWithoutPartsOrNodesAreModels) {
  ASSERT_TRUE(Import(KivScene()));
  EXPECT_EQ(m_zSummary.m_nNodes, 1u);
  EXPECT_EQ(m_zSummary.m_nInstances, 0u);
  KivScene zScene = MeshScene({Cube(1)});
  zScene.m_vzNode.clear();
  zScene.m_vzPart.push_back(MeshPart({}));
  zScene.m_vzPart.push_back(KivScenePart());
  ASSERT_TRUE(Import(zScene, {}, u"loose.kiv"));
  EXPECT_EQ(m_zSummary.m_nInstances, 3u);
  EXPECT_TRUE(Instances().m_vzInstance[1].m_vzLevel.empty());
}

TEST_F(SceneToModel, AFurtherRootHangsBelowTheFirst) {
  KivScene zScene = MeshScene({Cube(1)});
  zScene.m_vzNode.push_back(NewNode(u"other", kNoSceneIndex, Moved(1, 0, 0), {0}));
  ASSERT_TRUE(Import(zScene));
  EXPECT_EQ(Tree().m_vzNode[0].m_viChildren, (std::vector<uint64_t>{1}));
}

TEST_F(SceneToModel, APartThatIsEnlargedHasFinerLevels) {
  KivScene zScene = MeshScene({Sphere(1, 16)});
  KivImportOptions zOptions;
  zOptions.m_vdTolerance = {0.1, 0.01};
  ASSERT_TRUE(Import(zScene, zOptions));
  const uint64_t nPlain = m_zSummary.m_vnTriangles[0];
  zScene.m_vzNode[0].m_zMatrix.Scale(100, 100, 100);
  ASSERT_TRUE(Import(zScene, zOptions, u"large.kiv"));
  EXPECT_LT(nPlain, m_zSummary.m_vnTriangles[0]);
  EXPECT_EQ(m_zSummary.m_vnTriangles[0], m_zSummary.m_vnTriangles[1]);
}

TEST_F(SceneToModel, DroppedTrianglesAndFarPartsAreWarnings) {
  KivSceneFace z = Cube(1, {1e7, 0, 0});
  AddTriangle(z, {1e7, 0, 0}, {1e7, 0, 0}, {1e7, 1, 0});
  KivScene zScene = MeshScene({z});
  zScene.m_vstrWarning = {"from the reader"};
  ASSERT_TRUE(Import(zScene));
  ASSERT_EQ(m_zSummary.m_vstrWarning.size(), 3u);
  EXPECT_EQ(m_zSummary.m_vstrWarning[0], "from the reader");
  EXPECT_EQ(m_zSummary.m_vstrWarning[1], "1 triangle has two corners at one place: left out");
}

TEST_F(SceneToModel, CoordinatesBeyondAModelAreRefused) {
  EXPECT_FALSE(Import(MeshScene({Cube(1e30)})));
  EXPECT_EQ(m_strError, "its coordinates are too large for a model");
  KivScene zScene = MeshScene({Cube(1)});
  zScene.m_vzNode[0].m_zMatrix.Scale(1e200, 1, 1);
  zScene.m_vzNode.push_back(NewNode(u"", 0, zScene.m_vzNode[0].m_zMatrix));
  EXPECT_FALSE(Import(zScene));
  KivWString csName = u"sized";
  for (const double d : {1e-30, 1e-9, 1e9, 9e28}) EXPECT_TRUE(Import(MeshScene({Cube(d)}), {}, csName += u"x")) << d;
}

TEST_F(SceneToModel, TheSameSceneGivesTheSameBytesAndProgressEndsAtOne) {
  const KivScene zScene = MeshScene({Sphere(3, 8), Cube(2, {1, 1, 1})});
  double dDone = 0;
  KivImportOptions zOptions;
  zOptions.m_pfnProgress = [&](double d) {
    EXPECT_GE(d, dDone);
    dDone = d;
  };
  ASSERT_TRUE(Import(zScene, zOptions, u"a.kiv"));
  EXPECT_EQ(dDone, 1);
  Close(m_pzModel);
  ASSERT_TRUE(Import(zScene, {}, u"b.kiv"));
  Close(m_pzModel);
  EXPECT_EQ(m_zFolder.ReadBytes(u"a.kiv"), m_zFolder.ReadBytes(u"b.kiv"));
}
