#include "KivModelBuilder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <limits>
#include <map>
#include <set>
#include <stdexcept>
#include <string>

#include "KivElementClasses.h"
#include "KivElementWalk.h"
#include "KivMeshTree.h"
#include "KivPositionTableManager.h"
#include "KivTestElement.h"
#include "KivTestModel.h"
#include "KivTestScale.h"

namespace {

using namespace kiv;
using namespace kivtest;

class ModelBuilder : public ElementStoreTest {
 protected:
  ModelBuilder() { KivRegisterElementClasses(); }

  // Two parts with meshes at two levels, three nodes, nInstances instances, and one of everything else.
  void BuildSample(KivModelBuilder& z, size_t nInstances = 3) {
    z.SetLevels({0.5f, 0.01f});
    const size_t iPlate = z.AddPart();
    AddRibbons(z.FaceEdge(iPlate, 0), 1, 1, 1);
    AddRibbons(z.FaceEdge(iPlate, 1), 4, 1, 1);
    KivBrepEntry& zGeometry = z.Brep(iPlate).AddGeometry(kBrepAnalyticKind);
    zGeometry.m_vcGeometry = FromHex("40 01" + HexZeros(48));
    zGeometry.m_vcGeometry[49] = 0x40;
    z.Vertices(iPlate).AddVertex().m_iVertexData[0] = 5;
    const size_t iCloud = z.AddPart();
    AddRibbons(z.PolyElem(iCloud, 0), 2, 1, 2);
    const size_t iRoot = z.AddNode(u"machine");
    const size_t iA = z.AddNode(u"plate", iRoot);
    const size_t iB = z.AddNode(u"cloud", iRoot);
    for (size_t i = 0; i < nInstances; ++i) {
      KivEMatrix4 zMatrix;
      zMatrix.Translate({static_cast<double>(i), 0, 0});
      z.PlaceInstance(i % 3 == 2 ? iCloud : iPlate, zMatrix, i % 3 == 2 ? iB : iA);
    }
    z.PMI(iA).AddPMI().m_viPMIInts = {1, 2, 3};
    KivLayerFilterEntry& zFilter = z.LayerFilter(iRoot).AddFilter();
    zFilter.m_strFilterName = u"visible";
    zFilter.m_vzLayer = {{1, true}, {2, false}};
    z.Camera(iRoot).AddView().m_strViewName = u"front";
    z.Camera(iRoot).AddGroup().m_strGroupName = u"all";
    z.PermanentIds().m_vstrPermanentId = {u"NB1"};
    z.Parameters().m_iParam3 = 4;
  }
  uint32_t Reopen(const KivWString& csPath, bool bForWrite, int32_t iLimit) {
    m_pzModel = Open(csPath, bForWrite, iLimit);
    return m_pzModel != nullptr ? m_pzModel->GetKey() : 0xFFFFFFFF;
  }
  static std::map<uint32_t, int> Walked(uint32_t iKey, const std::set<uint32_t>& siTag, int32_t iLevel = kAllLevels) {
    std::map<uint32_t, int> mapNum;
    EXPECT_TRUE(KivWalkElements(iKey, siTag, iLevel,
                                [&](KivOutOfCoreTreeNode& zElement) { ++mapNum[zElement.GetElementType()]; }));
    return mapNum;
  }
};

using Counts = std::map<uint32_t, int>;

}  // namespace

TEST_F(ModelBuilder, AModelIsSavedReopenedAndFoundFromItsRoot) {
  KivModelBuilder zBuilder;
  BuildSample(zBuilder);
  const KivWString csPath = m_zFolder / u"machine.kiv";
  ASSERT_TRUE(zBuilder.Save(csPath));
  for (const int32_t iLimit : {1, 3, 1000}) {
    const uint32_t iKey = Reopen(csPath, false, iLimit);
    KivModel* pzModel = KivGetModel(iKey);
    ASSERT_NE(pzModel, nullptr);
    const KivMemoryBlockModel* pzBlock = pzModel->GetMemoryBlock();
    EXPECT_TRUE(KivPositionTableManager::IsTableKey(pzBlock->m_zHeader.m_aiLink[1]));
    EXPECT_TRUE(KivPositionTableManager::IsTableKey(pzBlock->m_zHeader.m_aiLink[2]));
    EXPECT_EQ(pzBlock->m_fModelBoxMin, (std::array<float, 3>{0, 0, 0}));
    EXPECT_EQ(pzBlock->m_fModelBoxMax, (std::array<float, 3>{4, 2, 0}));
    KivModelNote* pzNote = KivGetModelNote(iKey);
    ASSERT_NE(pzNote, nullptr);
    EXPECT_EQ(pzNote->GetMemoryBlock()->m_iParam3, 4u);
    auto* pzIds = dynamic_cast<KivPermanentIdTable*>(KivGetSecondElement(iKey));
    ASSERT_NE(pzIds, nullptr);
    EXPECT_EQ(pzIds->GetMemoryBlock()->m_vstrPermanentId, (std::vector<KivWString>{u"NB1"}));
    KivAssemblyTree* pzTree = KivGetAssemblyTree(iKey);
    ASSERT_NE(pzTree, nullptr);
    const KivMemoryBlockAssemblyTree& zTree = *pzTree->GetMemoryBlock();
    ASSERT_EQ(zTree.m_vzNode.size(), 3u);
    EXPECT_EQ(zTree.m_vzNode[0].m_strNodeName[0], u"machine");
    EXPECT_EQ(zTree.m_vzNode[0].m_iNodeType, 3u);
    EXPECT_EQ(zTree.m_vzNode[0].m_viChildren, (std::vector<uint64_t>{1, 2}));
    EXPECT_EQ(zTree.m_vzNode[1].m_iNodeType, 1u);
    EXPECT_EQ(zTree.m_vzNode[1].m_fNodeBox, (std::array<float, 6>{0, 0, 0, 2, 1, 0}));
    EXPECT_EQ(zTree.m_vzNode[0].m_fNodeBox, (std::array<float, 6>{0, 0, 0, 4, 2, 0}));  // of its children
    EXPECT_NE(zTree.m_vzNode[1].m_iPMIKey, 0u);
    KivInstance* pzInstance = KivGetInstanceRoot(iKey);
    ASSERT_NE(pzInstance, nullptr);
    const KivMemoryBlockInstance& zInstances = *pzInstance->GetMemoryBlock();
    ASSERT_EQ(zInstances.m_vzInstance.size(), 3u);
    EXPECT_EQ(zInstances.m_vfLevelTolerance, (std::vector<float>{0.5f, 0.01f}));
    EXPECT_EQ(zInstances.m_vzInstance[1].m_iInstanceData[0], 1u);
    EXPECT_EQ(zInstances.m_vzInstance[1].m_zMatrix.GetTranslation(), (KivECoord3{1, 0, 0}));
    EXPECT_EQ(zInstances.m_vzInstance[0].m_iMatrixClass, 0x222u);
    EXPECT_EQ(zInstances.m_vzInstance[0].m_iBrepKey, zInstances.m_vzInstance[1].m_iBrepKey);  // of one part
    EXPECT_EQ(zInstances.m_vzInstance[2].m_vzLevel.at(0).m_iLevelKind, kInstanceLevelPolyElem);
    Close(m_pzModel);
  }
}

TEST_F(ModelBuilder, TheFirstPositionTableStandsRightBehindTheModelRecord) {
  KivModelBuilder zBuilder;
  BuildSample(zBuilder);
  const KivWString csPath = m_zFolder / u"machine.kiv";
  ASSERT_TRUE(zBuilder.Save(csPath));
  const uint32_t iKey = Reopen(csPath, false, 4);
  KivModel* pzModel = KivGetModel(iKey);
  ASSERT_NE(pzModel, nullptr);
  EXPECT_EQ(pzModel->GetPosition(), 264u);
  const uint64_t iTable = KivOutOfCoreManager::GetFirstPositionTable(iKey);
  // A record is its payload in a frame of two u64 before and one behind it.
  EXPECT_EQ(iTable, 264 + 16 + pzModel->GetRecordSize() + 8);
  EXPECT_EQ(ManagerOf(m_pzModel)->GetPositionTableManager()->GetFilePositionTableMode(), 1u);
}

TEST_F(ModelBuilder, EveryElementListsItsKeysAndEachOfThemLeadsToAnElement) {
  KivModelBuilder zBuilder;
  BuildSample(zBuilder, 1000);
  const KivWString csPath = m_zFolder / u"machine.kiv";
  ASSERT_TRUE(zBuilder.Save(csPath));
  const uint32_t iKey = Reopen(csPath, false, 4);
  std::set<uint64_t> siSeen;
  std::vector<uint64_t> viToVisit = {kModelPosition};
  Counts mapNum;
  while (!viToVisit.empty()) {
    const uint64_t iAt = viToVisit.back();
    viToVisit.pop_back();
    if (!siSeen.insert(iAt).second) continue;
    auto* pz = KivOutOfCoreHandle(iKey, iAt).Fetch<KivOutOfCoreTreeNode>();
    ASSERT_NE(pz, nullptr) << iAt;
    ++mapNum[pz->GetElementType()];
    std::vector<uint64_t> viKey;
    ASSERT_TRUE(pz->GetAllPosition(viKey)) << pz->GetElementType();
    viToVisit.insert(viToVisit.end(), viKey.begin(), viKey.end());
  }
  EXPECT_EQ(
      mapNum,
      (Counts{{1, 2}, {2, 4}, {3, 1}, {4, 1}, {5, 1}, {6, 1}, {7, 1}, {8, 1}, {9, 1}, {11, 1}, {12, 1}, {13, 1}}));
}

TEST_F(ModelBuilder, AnElementGrowsAndMovesAndAllReferencesToItHold) {
  KivModelBuilder zBuilder;
  BuildSample(zBuilder);
  const KivWString csPath = m_zFolder / u"machine.kiv";
  ASSERT_TRUE(zBuilder.Save(csPath));
  uint32_t iKey = Reopen(csPath, true, 4);
  for (int n = 0; n < 3; ++n) {
    KivAssemblyTree* pzTree = KivGetAssemblyTree(iKey);
    ASSERT_NE(pzTree, nullptr);
    const uint64_t iBefore = pzTree->GetPosition();
    KivMemoryBlockAssemblyTree* pzBlock = pzTree->GetMemoryBlockForWrite();
    for (int i = 0; i < 200; ++i) pzBlock->AddNode().m_strNodeName[1] = u"a node that was added";
    KivOutOfCoreHandle zHandle(iKey, pzTree->GetPositionKey());
    ASSERT_TRUE(zHandle.Commit());
    pzTree = KivGetAssemblyTree(iKey);
    ASSERT_NE(pzTree, nullptr);
    EXPECT_NE(pzTree->GetPosition(), iBefore);
  }
  Close(m_pzModel);
  iKey = Reopen(csPath, false, 4);
  KivAssemblyTree* pzTree = KivGetAssemblyTree(iKey);
  ASSERT_NE(pzTree, nullptr);
  EXPECT_EQ(pzTree->GetMemoryBlock()->m_vzNode.size(), 603u);
  EXPECT_EQ(Walked(iKey, {7, 11, 12}), (Counts{{7, 1}, {11, 1}, {12, 1}}));
  KivOutOfCoreTreeNode* pzSecond = KivGetSecondElement(iKey);
  EXPECT_NE(dynamic_cast<KivPermanentIdTable*>(pzSecond), nullptr);
}

TEST_F(ModelBuilder, ABuilderCanSaveTwice) {
  KivModelBuilder zBuilder;
  BuildSample(zBuilder);
  ASSERT_TRUE(zBuilder.Save(m_zFolder / u"a.kiv"));
  ASSERT_TRUE(zBuilder.Save(m_zFolder / u"b.kiv"));
  for (const char16_t* szName : {u"a.kiv", u"b.kiv"}) {
    const uint32_t iKey = Reopen(m_zFolder / szName, false, 4);
    EXPECT_EQ(Walked(iKey, {1, 8, 5}), (Counts{{1, 2}, {5, 1}, {8, 1}}));
    Close(m_pzModel);
  }
}

TEST_F(ModelBuilder, AnEmptyModelIsAModel) {
  KivModelBuilder zBuilder;
  ASSERT_TRUE(zBuilder.Save(m_zFolder / u"a.kiv"));
  const uint32_t iKey = Reopen(m_zFolder / u"a.kiv", false, 4);
  ASSERT_NE(KivGetInstanceRoot(iKey), nullptr);
  ASSERT_NE(KivGetAssemblyTree(iKey), nullptr);
  EXPECT_EQ(KivGetSecondElement(iKey), nullptr);
  EXPECT_EQ(Walked(iKey, {0, 1, 2, 5, 7, 8, 11, 12, 13}), (Counts{{2, 1}}));
}

TEST_F(ModelBuilder, WhatCannotBeSavedIsFalseWithoutAnException) {
  KivModelBuilder zBuilder;
  zBuilder.PlaceInstance(7, KivEMatrix4(), 0);  // no such part
  EXPECT_NO_REPORT(EXPECT_FALSE(zBuilder.Save(m_zFolder / u"a.kiv")));
  KivModelBuilder zNoNode;
  zNoNode.PMI(3);
  EXPECT_NO_REPORT(EXPECT_FALSE(zNoNode.Save(m_zFolder / u"b.kiv")));
  KivModelBuilder zBadValue;
  zBadValue.Parameters().m_iParam6 = 0;
  EXPECT_NO_REPORT(EXPECT_FALSE(zBadValue.Save(m_zFolder / u"c.kiv")));
  const NoThrowScope zNoThrow;
  EXPECT_FALSE(zBuilder.Save(m_zFolder / u"d.kiv"));
}

TEST_F(ModelBuilder, AnIndexOfANodeThatDoesNotExistIsRefused) {
  const auto IsRefused = [&](const std::function<void(KivModelBuilder&)>& pfnSpoil) {
    KivModelBuilder zBuilder;
    BuildSample(zBuilder);
    pfnSpoil(zBuilder);
    const uint64_t nBefore = QuietReports();
    const bool bSaved = zBuilder.Save(m_zFolder / u"a.kiv");
    return !bSaved && QuietReports() > nBefore;
  };
  EXPECT_FALSE(IsRefused([](KivModelBuilder&) {}));
  EXPECT_TRUE(IsRefused([](KivModelBuilder& z) { z.AddNode(u"", 3); }));  // itself
  EXPECT_TRUE(IsRefused([](KivModelBuilder& z) { z.AddNode(u"", KivModelBuilder::kNoNode - 1); }));
  EXPECT_TRUE(IsRefused([](KivModelBuilder& z) { z.PlaceInstance(0, KivEMatrix4(), 3); }));
  EXPECT_TRUE(IsRefused([](KivModelBuilder& z) { z.PlaceInstance(0, KivEMatrix4(), KivModelBuilder::kNoNode); }));
  EXPECT_TRUE(IsRefused([](KivModelBuilder& z) { z.PlaceInstance(2, KivEMatrix4(), 0); }));
  EXPECT_TRUE(IsRefused([](KivModelBuilder& z) { z.Node(2).m_viChildren = {3}; }));
  EXPECT_TRUE(IsRefused([](KivModelBuilder& z) { z.Node(2).m_viChildren = {2}; }));
  EXPECT_TRUE(IsRefused([](KivModelBuilder& z) { z.Node(2).m_viChildren = {0}; }));
  KivModelBuilder zBuilder;
  BuildSample(zBuilder);
  EXPECT_THROW(zBuilder.Node(3), std::out_of_range);
  EXPECT_THROW(zBuilder.InstanceAttributes(3), std::out_of_range);
  EXPECT_THROW(zBuilder.FaceEdge(2, 0), std::out_of_range);
}

TEST_F(ModelBuilder, EachNodeButTheFirstHasOneParentElseTheModelIsRefusedWithTheReason) {
  const auto ReasonOf = [&](const std::function<void(KivModelBuilder&)>& pfnSpoil) {
    KivModelBuilder zBuilder;
    BuildSample(zBuilder);
    pfnSpoil(zBuilder);
    const uint64_t nBefore = QuietReports();
    EXPECT_NO_REPORT(EXPECT_FALSE(zBuilder.Save(m_zFolder / u"a.kiv")));
    return QuietReports() > nBefore ? KivLastQuietReport().m_szCondition : "";
  };
  const auto zNoParent = [](KivModelBuilder& z) { z.AddNode(u"apart"); };
  EXPECT_STREQ(ReasonOf(zNoParent), "each node but the first has a parent");
  EXPECT_STREQ(ReasonOf([](KivModelBuilder& z) { z.Node(0).m_viChildren = {2}; }),
               "each node but the first has a parent");
  EXPECT_STREQ(ReasonOf([](KivModelBuilder& z) { z.Node(1).m_viChildren = {2}; }), "no node has two parents");
  EXPECT_STREQ(ReasonOf([](KivModelBuilder& z) { z.Node(0).m_viChildren = {1, 2, 1}; }), "no node has two parents");
  EXPECT_STREQ(ReasonOf([](KivModelBuilder& z) { z.AddNode(u"", 7); }), "the parent of each node exists");
  EXPECT_STREQ(ReasonOf([](KivModelBuilder& z) { z.Node(1).m_viChildren = {1}; }),
               "children exist and stand behind their parent");
  const NoThrowScope zNoThrow;
  EXPECT_STREQ(ReasonOf(zNoParent), "each node but the first has a parent");
}

TEST_F(ModelBuilder, ABoxWithoutANumberOnOneAxisIsNone) {
  const float fNone = std::numeric_limits<float>::quiet_NaN();
  for (size_t iAxis = 0; iAxis < 3; ++iAxis) {
    KivModelBuilder zBuilder;
    BuildSample(zBuilder, 2);
    KivEMatrix4 zMatrix;
    zMatrix[12 + iAxis] = fNone;
    zBuilder.PlaceInstance(0, zMatrix, 1);
    const size_t iBad = zBuilder.AddPart();
    AddRibbons(zBuilder.FaceEdge(iBad, 0), 1, 1, 1);
    std::vector<float>& vf = zBuilder.FaceEdge(iBad, 0).m_vzFace[0].m_vfVertex;
    for (size_t i = iAxis; i < vf.size(); i += 3) vf[i] = fNone;
    zBuilder.PlaceInstance(iBad, KivEMatrix4(), 2);
    ASSERT_TRUE(zBuilder.Save(m_zFolder / u"a.kiv")) << iAxis << KivLastQuietReport().m_szCondition;
    const uint32_t iKey = Reopen(m_zFolder / u"a.kiv", false, 4);
    KivInstance* pzInstance = KivGetInstanceRoot(iKey);
    ASSERT_NE(pzInstance, nullptr);
    const auto& vzInstance = pzInstance->GetMemoryBlock()->m_vzInstance;
    ASSERT_EQ(vzInstance.size(), 4u);
    EXPECT_EQ(vzInstance[1].m_fInstanceBox, (std::array<float, 6>{1, 0, 0, 2, 1, 0}));
    EXPECT_EQ(vzInstance[2].m_fInstanceBox, kNoBox);
    EXPECT_EQ(vzInstance[3].m_fInstanceBox, kNoBox);
    EXPECT_EQ(KivGetModel(iKey)->GetMemoryBlock()->m_fModelBoxMax, (std::array<float, 3>{2, 1, 0}));
    Close(m_pzModel);
  }
}

TEST_F(ModelBuilder, TheCallersBoxStaysWhereNoMeshGivesOne) {
  KivModelBuilder zBuilder;
  const size_t iSolid = zBuilder.AddPart(), iBoth = zBuilder.AddPart();
  const size_t iRoot = zBuilder.AddNode(u"root");
  for (const size_t iPart : {iSolid, iBoth}) {
    for (KivMemoryBlockHeader* pzHeader :
         {&zBuilder.Brep(iPart).m_zHeader, &zBuilder.Vertices(iPart).m_zHeader, &zBuilder.PolyElem(iPart, 0).m_zHeader})
      pzHeader->m_afBoxMax = {7, 8, 9};
    zBuilder.PlaceInstance(iPart, KivEMatrix4(), iRoot);
  }
  AddRibbons(zBuilder.FaceEdge(iBoth, 0), 1, 1, 2);
  ASSERT_TRUE(zBuilder.Save(m_zFolder / u"a.kiv"));
  const uint32_t iKey = Reopen(m_zFolder / u"a.kiv", false, 4);
  std::multiset<std::pair<uint32_t, float>> ssTop;
  ASSERT_TRUE(KivWalkElements(iKey, {2, 5, 8, 13}, kAllLevels, [&](KivOutOfCoreTreeNode& zElement) {
    ssTop.emplace(zElement.GetElementType(), zElement.GetMemoryBlock()->GetHeader().m_afBoxMax[1]);
  }));
  // The mesh of polygons has no vertices in either part.
  EXPECT_EQ(ssTop, (std::multiset<std::pair<uint32_t, float>>{
                       {2, 2.0f}, {5, 2.0f}, {5, 8.0f}, {8, 8.0f}, {8, 8.0f}, {13, 2.0f}, {13, 8.0f}}));
}

TEST_F(ModelBuilder, NamesAndAttributesOfFacesEdgesAndInstancesComeBackFromAPartOfAMillionTriangles) {
  const uint32_t nTriangles = static_cast<uint32_t>(Scaled(1000000, 100000));
  KivModelBuilder zBuilder;
  const size_t iOneFace = zBuilder.AddPart(), iManyFaces = zBuilder.AddPart();
  KivMemoryBlockFaceEdge& zOne = zBuilder.FaceEdge(iOneFace, 0);
  AddRibbons(zOne, 1, nTriangles, 1);
  zOne.m_fStep = 0.5f;
  zOne.m_vzFace[0].m_vzAttribute = {{200, {1, 2, 3}}, {0, {}}};
  KivMeshEdge& zEdge = zOne.AddEdge();
  zEdge.m_iVertexCount = 2;
  zEdge.m_vfVertex = {0, 0, 0, 1, 0, 0};
  zEdge.m_vzAttribute = {{201, {9}}};
  KivMemoryBlockFaceEdge& zMany = zBuilder.FaceEdge(iManyFaces, 0);
  AddRibbons(zMany, nTriangles / 10, 10, 1);
  for (uint32_t i = 0; i < nTriangles / 10; ++i) {
    zMany.m_vzFace[i].m_iId = i;
    zMany.m_vzFace[i].m_vzAttribute = {{static_cast<uint8_t>(i), std::vector<uint8_t>(i % 40, 5)}};
  }
  const size_t iRoot = zBuilder.AddNode(u"K\u00F6rper \U0001F527");
  zBuilder.Node(iRoot).m_strNodeName[2] = u"third";
  zBuilder.Node(iRoot).m_vzAttribute = {{3, {7, 7}}};
  zBuilder.PlaceInstance(iOneFace, KivEMatrix4(), iRoot);
  const size_t iPlaced = zBuilder.PlaceInstance(iManyFaces, KivEMatrix4(), iRoot);
  zBuilder.InstanceAttributes(iPlaced) = {{4, {1}}, {5, std::vector<uint8_t>(300, 2)}};
  ASSERT_TRUE(zBuilder.Save(m_zFolder / u"a.kiv"));

  const uint32_t iKey = Reopen(m_zFolder / u"a.kiv", false, 4);
  KivAssemblyTree* pzTree = KivGetAssemblyTree(iKey);
  ASSERT_NE(pzTree, nullptr);
  const KivAssemblyNode& zNode = pzTree->GetMemoryBlock()->m_vzNode[0];
  EXPECT_EQ(zNode.m_strNodeName[0], u"K\u00F6rper \U0001F527");
  EXPECT_EQ(zNode.m_strNodeName[2], u"third");
  EXPECT_EQ(zNode.m_vzAttribute, zBuilder.Node(iRoot).m_vzAttribute);
  KivInstance* pzInstances = KivGetInstanceRoot(iKey);
  ASSERT_NE(pzInstances, nullptr);
  const auto& vzInstance = pzInstances->GetMemoryBlock()->m_vzInstance;
  ASSERT_EQ(vzInstance.size(), 2u);
  EXPECT_EQ(vzInstance[0].m_vzAttribute.size(), 0u);
  EXPECT_EQ(vzInstance[1].m_vzAttribute, zBuilder.InstanceAttributes(iPlaced));
  const uint64_t iOneKey = vzInstance[0].m_vzLevel.at(0).m_iFaceEdgeKey;
  const uint64_t iManyKey = vzInstance[1].m_vzLevel.at(0).m_iFaceEdgeKey;

  auto* pzMesh = KivOutOfCoreHandle(iKey, iOneKey).Fetch<KivFaceEdgeData>();
  ASSERT_NE(pzMesh, nullptr);
  const KivMemoryBlockFaceEdge* pzBlock = pzMesh->GetMemoryBlock();
  ASSERT_TRUE(pzBlock != nullptr && pzBlock->m_vzFace.size() == 1 && pzBlock->m_vzEdge.size() == 1);
  EXPECT_EQ(pzBlock->m_vzFace[0].m_iTriangleCount, nTriangles);
  EXPECT_TRUE(pzBlock->m_vzFace[0].m_viIndex == zOne.m_vzFace[0].m_viIndex);
  EXPECT_EQ(pzBlock->m_vzFace[0].m_vzAttribute, zOne.m_vzFace[0].m_vzAttribute);
  EXPECT_EQ(pzBlock->m_vzEdge[0].m_vzAttribute, zEdge.m_vzAttribute);
  for (size_t i = 0; i < zOne.m_vzFace[0].m_vfVertex.size(); ++i)
    ASSERT_NEAR(pzBlock->m_vzFace[0].m_vfVertex.at(i), zOne.m_vzFace[0].m_vfVertex[i], 0.25f) << i;

  pzMesh = KivOutOfCoreHandle(iKey, iManyKey).Fetch<KivFaceEdgeData>();
  ASSERT_NE(pzMesh, nullptr);
  pzBlock = pzMesh->GetMemoryBlock();
  ASSERT_TRUE(pzBlock != nullptr && pzBlock->m_vzFace.size() == nTriangles / 10);
  for (uint32_t i = 0; i < nTriangles / 10; ++i) {
    ASSERT_EQ(pzBlock->m_vzFace[i].m_iId, i);
    ASSERT_EQ(pzBlock->m_vzFace[i].m_vzAttribute, zMany.m_vzFace[i].m_vzAttribute) << i;
  }
}

// --- Walk -----------------------------------------------------------------------------------------------------------

TEST_F(ModelBuilder, AWalkVisitsTheElementsWithItsTagsOnce) {
  KivModelBuilder zBuilder;
  BuildSample(zBuilder, 1000);
  ASSERT_TRUE(zBuilder.Save(m_zFolder / u"a.kiv"));
  for (const int32_t iLimit : {1, 4}) {
    const uint32_t iKey = Reopen(m_zFolder / u"a.kiv", false, iLimit);
    EXPECT_EQ(Walked(iKey, {}), (Counts{}));
    EXPECT_EQ(Walked(iKey, {7}), (Counts{{7, 1}}));
    EXPECT_EQ(Walked(iKey, {2}), (Counts{{2, 4}}));
    EXPECT_EQ(Walked(iKey, {0}), (Counts{{2, 4}}));
    EXPECT_EQ(Walked(iKey, {1}), (Counts{{1, 2}}));
    EXPECT_EQ(Walked(iKey, {1}, 1), (Counts{{1, 1}}));
    EXPECT_EQ(Walked(iKey, {1, 8}, 0), (Counts{{1, 1}, {8, 1}}));
    EXPECT_EQ(Walked(iKey, {8}, 1), (Counts{}));
    EXPECT_EQ(Walked(iKey, {1, 8}, 7), (Counts{}));
    EXPECT_EQ(Walked(iKey, {5, 13}), (Counts{{5, 1}, {13, 1}}));
    EXPECT_EQ(Walked(iKey, {1, 2, 5, 7, 8, 11, 12, 13}),
              (Counts{{1, 2}, {2, 4}, {5, 1}, {7, 1}, {8, 1}, {11, 1}, {12, 1}, {13, 1}}));
    Close(m_pzModel);
  }
}

TEST_F(ModelBuilder, TheStatisticsCountTheFacesOfALevelOrOfAllOnce) {
  KivModelBuilder zBuilder;
  BuildSample(zBuilder, 10);
  ASSERT_TRUE(zBuilder.Save(m_zFolder / u"a.kiv"));
  const uint32_t iKey = Reopen(m_zFolder / u"a.kiv", false, 4);
  for (const auto& [iLevel, nTriangles] : {std::pair{0, 3}, {1, 4}, {kAllLevels, 7}}) {
    KivMeshStatistics z;
    ASSERT_TRUE(KivAddModelMeshes(iKey, iLevel, z));
    EXPECT_EQ(z.m_iNormalTri, nTriangles) << iLevel;
    EXPECT_EQ(z.m_iTriVertex, 3 * nTriangles) << iLevel;
  }
}

TEST_F(ModelBuilder, TheCommonMeshBelongsToAWalkOverAllLevels) {
  KivModelBuilder zBuilder;
  BuildSample(zBuilder, 1);
  ASSERT_TRUE(zBuilder.Save(m_zFolder / u"a.kiv"));
  const uint32_t iKey = Reopen(m_zFolder / u"a.kiv", true, 4);
  auto pzMesh = std::make_unique<KivFaceEdgeData>(iKey);
  ASSERT_NE(pzMesh->GetMemoryBlockForWrite(), nullptr);
  const uint64_t iCommon = KivStoreNewElement(std::move(pzMesh)).GetPosition();
  KivInstance* pzInstance = KivGetInstanceRoot(iKey);
  ASSERT_NE(pzInstance, nullptr);
  pzInstance->GetMemoryBlockForWrite()->m_vzInstance[0].m_vzLevel.at(0).m_iCommonKey = iCommon;
  EXPECT_EQ(Walked(iKey, {1}, 0), (Counts{{1, 1}}));
  EXPECT_EQ(Walked(iKey, {1}, kAllLevels), (Counts{{1, 3}}));
  EXPECT_EQ(Walked(iKey, {8}, kAllLevels), (Counts{}));
}

TEST_F(ModelBuilder, AWalkOverTheVerticesFollowsBothTreesOfAnInstance) {
  KivModelBuilder zBuilder;
  BuildSample(zBuilder, 1);
  ASSERT_TRUE(zBuilder.Save(m_zFolder / u"a.kiv"));
  const uint32_t iKey = Reopen(m_zFolder / u"a.kiv", true, 4);
  const auto NewVertices = [&](uint64_t iChild) {
    auto pzVertices = std::make_unique<KivVertexData>(iKey);
    pzVertices->GetMemoryBlockForWrite()->m_zHeader.m_aiLink[2] = iChild;
    return KivStoreNewElement(std::move(pzVertices)).GetPosition();
  };
  const uint64_t iSecond = NewVertices(NewVertices(0));
  EXPECT_EQ(Walked(iKey, {13}), (Counts{{13, 1}}));
  KivInstance* pzInstance = KivGetInstanceRoot(iKey);
  ASSERT_NE(pzInstance, nullptr);
  pzInstance->GetMemoryBlockForWrite()->m_vzInstance[0].m_iVertexKey2 = iSecond;
  EXPECT_EQ(Walked(iKey, {13}), (Counts{{13, 3}}));
  EXPECT_EQ(Walked(iKey, {5}), (Counts{{5, 1}}));
}

TEST_F(ModelBuilder, AWalkLeavesOutWhatCannotBeLoadedAndDoesNotFollowACircleTwice) {
  KivModelBuilder zBuilder;
  BuildSample(zBuilder, 1000);
  ASSERT_TRUE(zBuilder.Save(m_zFolder / u"a.kiv"));
  const uint32_t iKey = Reopen(m_zFolder / u"a.kiv", true, 4);
  const uint64_t iRoot = KivGetInstanceRoot(iKey)->GetPositionKey();
  const uint64_t iChild = KivGetInstanceRoot(iKey)->GetMemoryBlock()->m_zHeader.m_aiLink[2];
  auto* pzChild = KivOutOfCoreHandle(iKey, iChild).Fetch<KivInstance>();
  ASSERT_NE(pzChild, nullptr);
  pzChild->GetMemoryBlockForWrite()->m_zHeader.m_aiLink[1] = iRoot;
  EXPECT_EQ(Walked(iKey, {2}), (Counts{{2, 4}}));
  pzChild = KivOutOfCoreHandle(iKey, iChild).Fetch<KivInstance>();
  pzChild->GetMemoryBlockForWrite()->m_zHeader.m_aiLink[1] = 0x8000000000007777u;
  int nSeen = 0;
  EXPECT_NO_REPORT(EXPECT_FALSE(KivWalkElements(iKey, {2}, kAllLevels, [&](KivOutOfCoreTreeNode&) { ++nSeen; })));
  EXPECT_EQ(nSeen, 4);
  const NoThrowScope zNoThrow;
  EXPECT_FALSE(KivWalkElements(iKey, {2}, kAllLevels, [&](KivOutOfCoreTreeNode&) { ++nSeen; }));
  EXPECT_EQ(nSeen, 8);
}

TEST_F(ModelBuilder, ALinkFromOneKindOfTreeIntoAnotherIsReportedAndHidesNothing) {
  KivModelBuilder zBuilder;
  BuildSample(zBuilder, 1000);
  ASSERT_TRUE(zBuilder.Save(m_zFolder / u"a.kiv"));
  const uint32_t iKey = Reopen(m_zFolder / u"a.kiv", true, 4);
  const uint64_t iInstances = KivGetInstanceRoot(iKey)->GetPositionKey();
  const auto Walk = [&](bool bGood) {
    Counts mapSeen;
    EXPECT_NO_REPORT(
        EXPECT_EQ(KivWalkElements(iKey, {1, 2, 7}, kAllLevels,
                                  [&](KivOutOfCoreTreeNode& zElement) { ++mapSeen[zElement.GetElementType()]; }),
                  bGood));
    return mapSeen;
  };
  const Counts mapWhole = Walk(true);
  EXPECT_EQ(mapWhole.at(2), 4);
  EXPECT_GT(mapWhole.at(1), 0);
  const uint64_t iMesh = KivGetInstanceRoot(iKey)->GetMemoryBlock()->m_vzInstance[0].m_vzLevel.at(0).m_iFaceEdgeKey;
  auto* pzMesh = KivOutOfCoreHandle(iKey, iMesh).Fetch<KivFaceEdgeData>();
  ASSERT_NE(pzMesh, nullptr);
  pzMesh->GetMemoryBlockForWrite()->m_zHeader.m_aiLink[1] = iInstances;
  EXPECT_EQ(Walk(false), mapWhole);
}

TEST_F(ModelBuilder, LinksOfWhatNodesReferToAreNotFollowed) {
  KivModelBuilder zBuilder;
  BuildSample(zBuilder, 1);
  ASSERT_TRUE(zBuilder.Save(m_zFolder / u"a.kiv"));
  const uint32_t iKey = Reopen(m_zFolder / u"a.kiv", true, 4);
  uint64_t iPMI = 0;
  for (const KivAssemblyNode& zNode : KivGetAssemblyTree(iKey)->GetMemoryBlock()->m_vzNode)
    if (zNode.m_iPMIKey != 0) iPMI = zNode.m_iPMIKey;
  auto* pzPMI = KivOutOfCoreHandle(iKey, iPMI).Fetch<KivPMI>();
  ASSERT_NE(pzPMI, nullptr);
  auto& aiLink = pzPMI->GetMemoryBlockForWrite()->m_zHeader.m_aiLink;
  aiLink = {0, aiLink[0], 0};  // one link is set, whichever
  Counts mapSeen;
  EXPECT_NO_REPORT(EXPECT_TRUE(KivWalkElements(
      iKey, {2, 7}, kAllLevels, [&](KivOutOfCoreTreeNode& zElement) { ++mapSeen[zElement.GetElementType()]; })));
  EXPECT_EQ(mapSeen, (Counts{{2, 1}, {7, 1}}));
}

TEST_F(ModelBuilder, APartThatNothingPlacesIsNotStored) {
  KivModelBuilder zBuilder;
  BuildSample(zBuilder, 1);
  ASSERT_TRUE(zBuilder.Save(m_zFolder / u"a.kiv"));
  AddRibbons(zBuilder.FaceEdge(zBuilder.AddPart(), 0), 4, 1, 1);
  ASSERT_TRUE(zBuilder.Save(m_zFolder / u"b.kiv"));
  EXPECT_EQ(std::filesystem::file_size(std::filesystem::path(m_zFolder / u"a.kiv")),
            std::filesystem::file_size(std::filesystem::path(m_zFolder / u"b.kiv")));
}

TEST_F(ModelBuilder, ReferencesStayGoodWhileTheBuilderGrows) {
  KivModelBuilder zBuilder;
  const size_t iPart = zBuilder.AddPart();
  const size_t iNode = zBuilder.AddNode(u"root");
  const size_t iFirst = zBuilder.PlaceInstance(iPart, KivEMatrix4(), iNode);
  std::vector<KivAttribute>& vzFirst = zBuilder.InstanceAttributes(iFirst);
  for (int i = 0; i < 1000; ++i) zBuilder.PlaceInstance(iPart, KivEMatrix4(), iNode);
  EXPECT_EQ(&vzFirst, &zBuilder.InstanceAttributes(iFirst));
}

TEST_F(ModelBuilder, AWalkOverATreeThatCannotBeReachedIsFalse) {
  KivModelBuilder zBuilder;
  BuildSample(zBuilder, 1);
  ASSERT_TRUE(zBuilder.Save(m_zFolder / u"a.kiv"));
  const uint32_t iKey = Reopen(m_zFolder / u"a.kiv", true, 4);
  const auto Walks = [&] { return KivWalkElements(iKey, {7}, kAllLevels, [](KivOutOfCoreTreeNode&) {}); };
  EXPECT_TRUE(Walks());
  const uint64_t iInstances = KivGetInstanceRoot(iKey)->GetPositionKey();
  KivModelNote* pzNote = KivGetModelNote(iKey);
  ASSERT_NE(pzNote, nullptr);
  pzNote->GetMemoryBlockForWrite()->m_iAssemblyKey = iInstances;  // an element of another class
  EXPECT_NO_REPORT(EXPECT_FALSE(Walks()));
  KivGetModelNote(iKey)->GetMemoryBlockForWrite()->m_iAssemblyKey = 0;
  EXPECT_TRUE(Walks());
  KivGetModel(iKey)->GetMemoryBlockForWrite()->m_zHeader.m_aiLink[2] = iInstances;
  EXPECT_NO_REPORT(EXPECT_FALSE(Walks()));
}

TEST_F(ModelBuilder, AModelWithoutAnInstanceTreeIsReportedOneWithoutANoteIsNot) {
  OpenEmpty(4, false);
  auto pzModel = std::make_unique<KivModel>(m_pzModel->GetKey());
  ASSERT_NE(pzModel->GetMemoryBlockForWrite(), nullptr);
  ASSERT_EQ(KivStoreNewElement(std::move(pzModel)).GetPosition(), kModelPosition);
  const uint32_t iKey = m_pzModel->GetKey();
  uint64_t nBefore = QuietReports();
  EXPECT_NO_REPORT(EXPECT_EQ(KivGetInstanceRoot(iKey), nullptr));
  EXPECT_EQ(QuietReports(), nBefore + 1);
  nBefore = QuietReports();
  EXPECT_EQ(KivGetModelNote(iKey), nullptr);
  EXPECT_EQ(KivGetAssemblyTree(iKey), nullptr);
  EXPECT_EQ(KivGetSecondElement(iKey), nullptr);
  EXPECT_EQ(QuietReports(), nBefore);
  EXPECT_EQ(Walked(iKey, {7, 11, 12}), (Counts{}));
  EXPECT_NO_REPORT(EXPECT_FALSE(KivWalkElements(iKey, {1}, 0, [](KivOutOfCoreTreeNode&) {})));
}
