#include "KivGltfExport.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <nlohmann/json.hpp>
#include <random>

#include "KivGltfValidator.h"
#include "KivMatrixSplit.h"
#include "KivModelMeaning.h"
#include "KivSysFolder.h"
#include "KivTestFolder.h"
#include "KivToolError.h"
#include "KivToolTestModel.h"

namespace {

using namespace kiv;
using kivtest::RunKiv;
using kivtest::TestFolder;
using nlohmann::ordered_json;

constexpr double kPi = 3.14159265358979323846;

// The point as a node with this form shows it.
KivECoord3 Apply(const KivGltfTrs& z, const KivECoord3& zPoint) {
  const KivECoord3 p = {zPoint.m_dX * z.m_dScale[0], zPoint.m_dY * z.m_dScale[1], zPoint.m_dZ * z.m_dScale[2]};
  const KivECoord3 u = {z.m_dRotation[0], z.m_dRotation[1], z.m_dRotation[2]};
  const double w = z.m_dRotation[3];
  const KivECoord3 zTurned = p + 2.0 * (w * u.Cross(p) + u.Cross(u.Cross(p)));
  return zTurned + KivECoord3{z.m_dTranslation[0], z.m_dTranslation[1], z.m_dTranslation[2]};
}

void ExpectSame(const KivEMatrix4& zMatrix) {
  KivGltfTrs zInner, zOuter;
  KivSplitPlacement(zMatrix, zInner, zOuter);
  double dLength = 0;
  for (const double d : zOuter.m_dRotation) dLength += d * d;
  EXPECT_NEAR(dLength, 1, 1e-9);
  for (const KivECoord3& zPoint : {KivECoord3{1, 0, 0}, KivECoord3{0, 1, 0}, KivECoord3{3, -2, 5}, KivECoord3{}}) {
    const KivECoord3 zIs = Apply(zOuter, Apply(zInner, zPoint));
    const KivECoord3 zMust = zMatrix.TransformPoint(zPoint);
    EXPECT_NEAR((zIs - zMust).Length(), 0, 1e-9 * (1 + zMust.Length()));
  }
}

TEST(MatrixSplit, AnyAffineMatrixIsTwoNodes) {
  std::mt19937 zRandom(5);
  std::uniform_real_distribution<double> zNumber(-3, 3);
  for (int i = 0; i < 200; ++i) {
    KivEMatrix4 z;
    for (const size_t k : {0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14}) z[k] = zNumber(zRandom);
    ExpectSame(z);
  }
}

TEST(MatrixSplit, FlatMirroredAndTurnedOnes) {
  for (const std::array<double, 3>& ad :
       {std::array<double, 3>{1, 1, 0}, {0, 0, 0}, {0, 2, 0}, {-1, 1, 1}, {-1, -1, -1}, {1e-9, 1e9, 1}, {1, 2, 3}}) {
    KivEMatrix4 z;
    z.Scale(ad[0], ad[1], ad[2]);
    ExpectSame(z);
    z.RotateAxis(kPi, {1, 2, 3});
    z.Translate({5, 6, 7});
    ExpectSame(z);
  }
}

TEST(MatrixSplit, PlainPlacementsAreRotationsAndMirroringsOfOneScale) {
  KivEMatrix4 z;
  EXPECT_TRUE(KivIsPlainPlacement(z));
  z.RotateX(0.3);
  z.Scale(-25.4, 25.4, 25.4);
  z.Translate({1, 2, 3});
  EXPECT_TRUE(KivIsPlainPlacement(z));
  z.Scale(1, 1, 1.001);
  EXPECT_FALSE(KivIsPlainPlacement(z));
  EXPECT_FALSE(KivIsPlainPlacement(KivEMatrix4() * 0.0));
}

// The document and the bytes of a .glb, which is taken apart by the rules of the format.
struct Glb {
  ordered_json m_zJson;
  std::string m_strBinary;
};

uint32_t Word(const std::string& str, size_t i) {
  return KivLoad<uint32_t>(reinterpret_cast<const uint8_t*>(str.data()) + i);
}

class GltfExport : public testing::Test {
 protected:
  GltfExport() { KivPrepareToolProcess(); }

  KivGltfSummary Export(const KivGltfOptions& zOptions = {}) {
    EXPECT_TRUE(m_zBuilder.Save(m_zFolder / u"m.kiv"));
    sys::RemoveFileAt(m_zFolder / u"m.glb");
    KivGltfSummary zSummary;
    {
      KivToolModel zModel(m_zFolder / u"m.kiv");
      zSummary = KivExportGltf(zModel, zOptions, m_zFolder / u"m.glb", u"m.glb");
    }
    const std::string str = m_zFolder.ReadBytes(u"m.glb");
    EXPECT_EQ(str.size(), zSummary.m_nBytes);
    EXPECT_FALSE(sys::PathExists(m_zFolder / u"m.glb.bin"));
    EXPECT_EQ(str.substr(0, 4), "glTF");
    EXPECT_EQ(Word(str, 4), 2u);
    EXPECT_EQ(Word(str, 8), str.size());
    const size_t nJson = Word(str, 12);
    EXPECT_EQ(nJson % 4, 0u);
    m_zGlb.m_zJson = ordered_json::parse(str.substr(20, nJson));
    m_zGlb.m_strBinary = str.size() > 28 + nJson ? str.substr(28 + nJson) : "";
    kivtest::ValidateGltf({m_zFolder / u"m.glb"});
    return zSummary;
  }

  float Float(uint32_t iAccessor, size_t i) {
    const auto& zView =
        m_zGlb.m_zJson["bufferViews"][m_zGlb.m_zJson["accessors"][iAccessor]["bufferView"].get<size_t>()];
    return KivLoad<float>(reinterpret_cast<const uint8_t*>(m_zGlb.m_strBinary.data()) +
                          zView["byteOffset"].get<size_t>() + 4 * i);
  }

  TestFolder m_zFolder;
  KivModelBuilder m_zBuilder;
  Glb m_zGlb;
};

#ifdef KIV_TEST_NODE
TEST_F(GltfExport, TheValidatorRefusesABadFile) {
  m_zFolder.WriteBytes(u"bad.gltf", R"({"asset":{"version":"2.0"},"scene":7})");
  EXPECT_FALSE(kivtest::AreValidGltf({m_zFolder / u"bad.gltf"}));
}
#endif

TEST_F(GltfExport, SharedPartsAreOneMeshAndColoursAreMaterials) {
  kivtest::FillToolModel(m_zBuilder);
  const KivGltfSummary zSummary = Export();
  const ordered_json& z = m_zGlb.m_zJson;
  EXPECT_EQ(zSummary.m_nTriangles, 6u);
  ASSERT_EQ(z["nodes"].size(), 6u);
  const ordered_json& zRoot = z["nodes"][z["scenes"][0]["nodes"][0].get<size_t>()];
  EXPECT_EQ(zRoot["scale"], (std::vector<double>{0.001, 0.001, 0.001}));
  std::map<std::string, ordered_json> mapNode;
  for (const auto& zNode : z["nodes"]) mapNode[zNode["name"]] = zNode;
  EXPECT_EQ(mapNode["left"]["mesh"], mapNode["right"]["mesh"]);
  EXPECT_NE(mapNode["left"]["mesh"], mapNode["plate \xC3\xA4"]["mesh"]);
  EXPECT_EQ(mapNode["group"]["matrix"], (std::vector<double>{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 50, 1}));
  EXPECT_FALSE(mapNode["machine"].contains("matrix"));
  EXPECT_EQ(z["meshes"].size(), 2u);
  // The bolt's red face, its face without a colour, the plate's in its node's colour.
  EXPECT_EQ(z["meshes"][0]["primitives"].size(), 2u);
  ASSERT_EQ(z["materials"].size(), 2u);
  EXPECT_EQ(z["materials"][0]["pbrMetallicRoughness"]["baseColorFactor"], (std::vector<double>{1, 0, 0, 1}));
  EXPECT_EQ(z["materials"][1]["pbrMetallicRoughness"]["baseColorFactor"], (std::vector<double>{0, 0, 1, 0.5}));
  EXPECT_EQ(z["materials"][1]["alphaMode"], "BLEND");
  const uint32_t iNormal = z["meshes"][0]["primitives"][0]["attributes"]["NORMAL"];
  EXPECT_EQ(Float(iNormal, 2), 1.0f);
}

TEST_F(GltfExport, LevelsEdgesAndFacesAreChosen) {
  const auto zParts = kivtest::FillToolModel(m_zBuilder);
  KivGltfOptions zOptions;
  zOptions.m_iLevel = 0;
  EXPECT_EQ(Export(zOptions).m_nTriangles, 4u);
  zOptions.m_iLevel = 2;
  EXPECT_THROW(Export(zOptions), KivToolError);
  zOptions = KivGltfOptions();
  zOptions.m_bEdges = true;
  EXPECT_EQ(Export(zOptions).m_nLines, 12u);
  size_t nLines = 0;
  for (const auto& zMesh : m_zGlb.m_zJson["meshes"])
    for (const auto& z : zMesh["primitives"]) nLines += z.contains("mode") && z["mode"] == 1;
  EXPECT_EQ(nLines, 2u);
  m_zBuilder.FaceEdge(zParts.m_iBolt, 1).m_vzFace[0].m_vzAttribute.clear();
  EXPECT_EQ((Export(), m_zGlb.m_zJson["meshes"][0]["primitives"].size()), 1u);
  zOptions = KivGltfOptions();
  zOptions.m_bFaces = true;
  EXPECT_EQ((Export(zOptions), m_zGlb.m_zJson["meshes"][0]["primitives"].size()), 2u);
}

TEST_F(GltfExport, AnEmptyModelIsAValidFile) {
  const KivGltfSummary zSummary = Export();
  EXPECT_EQ(zSummary.m_nNodes, 0u);
  EXPECT_FALSE(m_zGlb.m_zJson.contains("nodes"));
  EXPECT_EQ(m_zGlb.m_strBinary, "");
}

TEST_F(GltfExport, NodesWithoutMeshesAndPartsWithoutFaces) {
  const size_t iPart = m_zBuilder.AddPart();
  m_zBuilder.FaceEdge(iPart, 0);
  const size_t iRoot = m_zBuilder.AddNode(u"");
  m_zBuilder.PlaceInstance(iPart, KivEMatrix4(), m_zBuilder.AddNode(u"\"quoted\"\n", iRoot));
  Export();
  EXPECT_FALSE(m_zGlb.m_zJson.contains("meshes"));
  EXPECT_FALSE(m_zGlb.m_zJson.contains("accessors"));
}

TEST_F(GltfExport, OddPlacementsAreValidNodes) {
  const size_t iPart = m_zBuilder.AddPart();
  kivtest::AddSquare(m_zBuilder.FaceEdge(iPart, 0), 1, 10, 0);
  const size_t iRoot = m_zBuilder.AddNode(u"root");
  KivEMatrix4 azMatrix[6];
  azMatrix[0].Scale(1, 2, 3);
  azMatrix[0].RotateX(1);
  azMatrix[0].Scale(3, 2, 1);
  azMatrix[1].Scale(1, 0, 1);
  azMatrix[2].Scale(-1, 1, 1);
  azMatrix[3] = KivEMatrix4() * 0.0;
  azMatrix[3][15] = 1;
  azMatrix[4].Scale(1e-7, 1e-7, 1e-7);
  azMatrix[5][3] = 0.5;
  for (const KivEMatrix4& z : azMatrix) {
    const size_t iNode = m_zBuilder.AddNode(u"n", iRoot);
    m_zBuilder.Node(iNode).m_zMatrix = z;
    m_zBuilder.PlaceInstance(iPart, z, iNode);
    // Where its node does not place it.
    KivEMatrix4 zApart = z;
    zApart[12] += 100;
    m_zBuilder.PlaceInstance(iPart, zApart, iNode);
  }
  const KivGltfSummary zSummary = Export();
  EXPECT_EQ(zSummary.m_nMeshes, 1u);
  size_t nPlaced = 0;
  for (const auto& z : m_zGlb.m_zJson["nodes"]) nPlaced += z.contains("mesh");
  EXPECT_EQ(nPlaced, 12u);
}

TEST_F(GltfExport, BadMeshesLeaveOutWhatCannotBeShown) {
  const size_t iPart = m_zBuilder.AddPart();
  KivMemoryBlockFaceEdge& zMesh = m_zBuilder.FaceEdge(iPart, 0);
  zMesh.m_iMeshFlags = kMeshIndexCount;
  for (uint32_t i = 1; i <= 4; ++i) kivtest::AddSquare(zMesh, i, 10, static_cast<float>(i));
  zMesh.m_vzFace[0].m_viIndex = {0, 1, 2, 0, 2, 9};
  zMesh.m_vzFace[1].m_vfNormal = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
  zMesh.m_vzFace[2].m_viIndex = {0, 1, 1, 0, 2, 3};
  zMesh.m_vzFace[3].m_viIndex = {0, 1, 2, 3, 0, 1, 2};
  zMesh.m_vzFace[3].m_iTriangleCount = 1;
  m_zBuilder.PlaceInstance(iPart, KivEMatrix4(), m_zBuilder.AddNode(u"root"));
  const KivGltfSummary zSummary = Export();
  EXPECT_EQ(zSummary.m_nTriangles, 1u + 2 + 1 + 3);
  ASSERT_EQ(zSummary.m_vstrNote.size(), 1u);
  // One with normals, one without.
  EXPECT_EQ(m_zGlb.m_zJson["meshes"][0]["primitives"].size(), 2u);
}

TEST_F(GltfExport, AMissingNormalIsThatOfTheTrianglesAround) {
  const size_t iPart = m_zBuilder.AddPart();
  KivMeshFace& zFace =
      (kivtest::AddSquare(m_zBuilder.FaceEdge(iPart, 0), 1, 10, 0), m_zBuilder.FaceEdge(iPart, 0).m_vzFace[0]);
  zFace.m_vfNormal = {1, 0, 0, 1, 0, 0, 0, 0, 0, 1, 0, 0};
  m_zBuilder.PlaceInstance(iPart, KivEMatrix4(), m_zBuilder.AddNode(u"root"));
  Export();
  const uint32_t iNormal = m_zGlb.m_zJson["meshes"][0]["primitives"][0]["attributes"]["NORMAL"];
  EXPECT_EQ(Float(iNormal, 0), 1.0f);
  EXPECT_EQ(Float(iNormal, 6), 0.0f);
  EXPECT_EQ(Float(iNormal, 8), 1.0f);
}

TEST_F(GltfExport, ManyVerticesTakeWideIndices) {
  const size_t iPart = m_zBuilder.AddPart();
  KivMemoryBlockFaceEdge& zMesh = m_zBuilder.FaceEdge(iPart, 0);
  for (uint32_t i = 0; i < 16385; ++i) kivtest::AddSquare(zMesh, i + 1, 10, static_cast<float>(i));
  m_zBuilder.PlaceInstance(iPart, KivEMatrix4(), m_zBuilder.AddNode(u"root"));
  Export();
  EXPECT_EQ(m_zGlb.m_zJson["accessors"][2]["componentType"], 5125);
  EXPECT_EQ(m_zGlb.m_zJson["accessors"][0]["count"], 65540);
}

TEST_F(GltfExport, TheCommandReplacesByForceAloneAndLeavesNothingHalf) {
  kivtest::MakeToolModel(m_zFolder / u"m.kiv");
  const KivWString csOut = m_zFolder / u"out.glb";
  EXPECT_EQ(RunKiv({u"export", m_zFolder / u"m.kiv", csOut}).m_iExit, 0);
  kivtest::ValidateGltf({csOut});
  const std::string strFirst = m_zFolder.ReadBytes(u"out.glb");
  const kivtest::ToolRun zAgain = RunKiv({u"export", m_zFolder / u"m.kiv", csOut, u"--edges"});
  EXPECT_EQ(zAgain.m_iExit, 2);
  EXPECT_NE(zAgain.m_strErr.find("--force"), std::string::npos);
  EXPECT_EQ(m_zFolder.ReadBytes(u"out.glb"), strFirst);
  const kivtest::ToolRun zForced = RunKiv({u"export", m_zFolder / u"m.kiv", csOut, u"--edges", u"--force", u"--json"});
  EXPECT_EQ(zForced.m_iExit, 0);
  EXPECT_EQ(ordered_json::parse(zForced.m_strOut)["lines"], 12);
  EXPECT_NE(m_zFolder.ReadBytes(u"out.glb"), strFirst);
  EXPECT_EQ(RunKiv({u"export", m_zFolder / u"m.kiv", m_zFolder / u"x.glb", u"--level", u"7"}).m_iExit, 2);
  EXPECT_EQ(RunKiv({u"export", m_zFolder / u"m.kiv", m_zFolder / u"x.txt"}).m_iExit, 2);
  EXPECT_EQ(RunKiv({u"export", m_zFolder / u"missing.kiv", m_zFolder / u"x.glb"}).m_iExit, 2);
  std::vector<KivSysFolderEntry> vzEntry;
  ASSERT_TRUE(sys::ListFolder(m_zFolder.Path(), vzEntry));
  EXPECT_EQ(vzEntry.size(), 2u);
}

}  // namespace
