#include "KivModelInfo.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "KivTestFolder.h"
#include "KivTestScale.h"
#include "KivToolTestModel.h"

namespace {

using namespace kiv;
using kivtest::RunKiv;
using kivtest::TestFolder;
using nlohmann::ordered_json;

TEST(ModelInfo, TellsWhatTheBuilderMade) {
  const TestFolder zFolder;
  kivtest::MakeToolModel(zFolder / u"m.kiv");
  KivToolModel zModel(zFolder / u"m.kiv");
  for (const bool bDeep : {false, true}) {
    const KivModelInfo z = KivGetModelInfo(zModel, bDeep);
    EXPECT_EQ(z.m_iGeneration, 20u);
    EXPECT_TRUE(z.m_bKeyed);
    EXPECT_GT(z.m_nKeys, 10u);
    EXPECT_TRUE(z.m_bRecordsWhole);
    EXPECT_TRUE(z.m_bStructureWhole);
    EXPECT_EQ(z.m_nNodes, 5u);
    EXPECT_EQ(z.m_nInstances, 3u);
    EXPECT_EQ(z.m_nParts, 2u);
    const uint64_t anExpected[kElementTagNum] = {0, 3, 1, 1, 1, 1, 1, 1, 0, 1, 1, 1, 1, 1};
    for (uint32_t i = 0; i < kElementTagNum; ++i) EXPECT_EQ(z.m_azType[i].m_nElements, anExpected[i]) << i;
    EXPECT_EQ(z.m_iFileLength > z.m_nUsedBytes + z.m_nFreeBytes, true);
    ASSERT_EQ(z.m_vzLevel.size(), 2u);
    EXPECT_EQ(z.m_vzLevel[0].m_fTolerance, 1.0f);
    EXPECT_EQ(z.m_vzLevel[0].m_zCount.m_nFaces, 2u);
    EXPECT_EQ(z.m_vzLevel[0].m_zCount.m_nEdges, 2u);
    EXPECT_EQ(z.m_vzLevel[0].m_zCount.m_nTriangles, 4u);
    EXPECT_EQ(z.m_vzLevel[0].m_zCount.m_nVertices, 8u);
    EXPECT_EQ(z.m_vzLevel[1].m_fTolerance, 0.1f);
    EXPECT_EQ(z.m_vzLevel[1].m_zCount.m_nTriangles, 4u);  // of the bolt once, though it is placed twice
    EXPECT_TRUE(z.m_vzLevel[0].m_zCount.m_bExact && z.m_vzLevel[1].m_zCount.m_bExact);
    EXPECT_TRUE(z.m_bBox);
    EXPECT_NEAR(z.m_fBox[5], 55, 0.1);
    EXPECT_EQ(z.m_dMetresPerUnit, 0.001);
  }
}

TEST(ModelInfo, StripsAreCountedWhenTheMeshesAreLoaded) {
  const TestFolder zFolder;
  KivPrepareToolProcess();
  KivModelBuilder zBuilder;
  const size_t iPart = zBuilder.AddPart();
  KivMemoryBlockFaceEdge& zMesh = zBuilder.FaceEdge(iPart, 0);
  kivtest::AddSquare(zMesh, 1, 10, 0);
  zMesh.m_iMeshFlags = kMeshIndexCount;
  zMesh.m_vzFace[0].m_viIndex = {0, 1, 2, 0, 1, 3, 2};
  zMesh.m_vzFace[0].m_iTriangleCount = 1;
  zBuilder.PlaceInstance(iPart, KivEMatrix4(), zBuilder.AddNode(u"root"));
  ASSERT_TRUE(zBuilder.Save(zFolder / u"m.kiv"));
  KivToolModel zModel(zFolder / u"m.kiv");
  const KivModelInfo zFast = KivGetModelInfo(zModel, false);
  EXPECT_EQ(zFast.m_vzLevel[0].m_zCount.m_nTriangles, 1u);
  EXPECT_FALSE(zFast.m_vzLevel[0].m_zCount.m_bExact);
  const KivModelInfo zDeep = KivGetModelInfo(zModel, true);
  EXPECT_EQ(zDeep.m_vzLevel[0].m_zCount.m_nTriangles, 3u);
  EXPECT_TRUE(zDeep.m_vzLevel[0].m_zCount.m_bExact);
}

TEST(ModelInfo, OfAModelWithoutAnything) {
  const TestFolder zFolder;
  KivPrepareToolProcess();
  KivModelBuilder zBuilder;
  ASSERT_TRUE(zBuilder.Save(zFolder / u"m.kiv"));
  KivToolModel zModel(zFolder / u"m.kiv");
  const KivModelInfo z = KivGetModelInfo(zModel, false);
  EXPECT_TRUE(z.m_bStructureWhole);
  EXPECT_EQ(z.m_nNodes + z.m_nInstances + z.m_nParts + z.m_vzLevel.size(), 0u);
  EXPECT_FALSE(z.m_bBox);
  EXPECT_FALSE(z.m_dMetresPerUnit.has_value());
}

TEST(InfoCommand, PrintsTextOrOneDocument) {
  const TestFolder zFolder;
  // On Windows the shell that starts the program takes its arguments through the code page.
  const KivWString csModel = zFolder / (kivtest::IsWindows() ? u"m a.kiv" : u"m \u00e4.kiv");
  kivtest::MakeToolModel(csModel);
  const kivtest::ToolRun zText = RunKiv({u"info", csModel});
  EXPECT_EQ(zText.m_iExit, 0) << zText.m_strErr;
  EXPECT_NE(zText.m_strOut.find("5 nodes, 3 instances of 2 parts\n"), std::string::npos) << zText.m_strOut;
  EXPECT_EQ(zText.m_strErr, "");
  const kivtest::ToolRun zJson = RunKiv({u"info", u"--json", u"--deep", csModel});
  EXPECT_EQ(zJson.m_iExit, 0);
  const ordered_json z = ordered_json::parse(zJson.m_strOut);
  EXPECT_EQ(z["kind"], "model");
  EXPECT_EQ(z["levels"][1]["triangles"], 4);
  EXPECT_EQ(z["metres_per_unit"], 0.001);
  EXPECT_EQ(z["deep"], true);
}

TEST(InfoCommand, TellsAPackage) {
  const TestFolder zFolder;
  std::string strTrailer(16, '\0');
  for (int i = 0; i < 4; ++i) strTrailer[8 + 2 * i] = "MKIV"[i];
  zFolder.WriteBytes(u"p", std::string(40, 'x') + strTrailer);
  const kivtest::ToolRun zRun = RunKiv({u"info", zFolder / u"p"});
  EXPECT_EQ(zRun.m_iExit, 0);
  EXPECT_NE(zRun.m_strOut.find("package, 56 bytes"), std::string::npos);
  EXPECT_EQ(RunKiv({u"tree", zFolder / u"p"}).m_iExit, 2);
}

}  // namespace
