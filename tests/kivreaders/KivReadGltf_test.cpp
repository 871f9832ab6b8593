#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "KivReadMeshTest.h"
#include "KivSysMemoryLimit.h"
#include "KivTestScale.h"

using namespace kiv;
using namespace kivtest;

namespace {

// Each text in place of another one, which must be there, and what the reason must hold.
struct Change {
  const char* m_szFrom;
  const char* m_szTo;
  const char* m_szReason;
};

void ExpectRefused(const std::string& strFile, const std::vector<Change>& vzChange) {
  for (const Change& z : vzChange) {
    SCOPED_TRACE(z.m_szTo);
    ASSERT_TRUE(HasText(strFile, z.m_szFrom)) << z.m_szFrom;
    const std::string strError = ReadBytes(u"a.gltf", Replaced(strFile, z.m_szFrom, z.m_szTo)).m_strError;
    EXPECT_TRUE(HasText(strError, z.m_szReason)) << strError;
  }
}

constexpr char kBehind[] = "numbers of it stand behind the end of their buffer";
constexpr char kNoCount[] = "of it is no count";

std::string Error(const std::string& strFile) {
  return ReadBytes(u"a.gltf", strFile).m_strError;
}

void ExpectPlacement(const KivSceneNode& zNode, const std::vector<double>& vdMust) {
  for (size_t i = 0; i < 16; ++i) EXPECT_NEAR(zNode.m_zMatrix[i], vdMust[i], 1e-14 * std::abs(vdMust[i]) + 1e-15) << i;
}

// The nodes' JSON in place of those of a file of one mesh, with these roots.
std::string WithNodes(const std::string& strNodes, const std::string& strRoots = "[0]") {
  return Replaced(Replaced(ChainGltf(1, ""), "\"nodes\":[{\"mesh\":0}]", "\"nodes\":[" + strNodes + "]"),
                  "[{\"nodes\":[0]}]", "[{\"nodes\":" + strRoots + "}]");
}

// Three corners of four floating-point numbers for the first piece, whose colours they are.
std::string WithColours(const std::vector<float>& vfColour) {
  const std::string strBuffer = GltfBuffer() + Floats(vfColour);
  std::string strFile = Gltf("data:application/octet-stream;base64," + Base64(strBuffer));
  strFile = Replaced(strFile, "{\"POSITION\":0,\"NORMAL\":1}", "{\"POSITION\":0,\"COLOR_0\":3}");
  strFile = Replaced(strFile, "\"SCALAR\"}]",
                     "\"SCALAR\"},{\"bufferView\":3,\"componentType\":5126,\"count\":3,\"type\":\"VEC4\"}]");
  strFile =
      Replaced(strFile, "\"byteLength\":6}]", "\"byteLength\":6},{\"buffer\":0,\"byteOffset\":80,\"byteLength\":48}]");
  return Replaced(strFile, "\"byteLength\":80", "\"byteLength\":128");
}

}  // namespace

TEST(ReadGltf, GltfKeepsNodesPlacementsSharedPartsColoursAndMetres) {
  for (const KivWString csName : {u"a.gltf", u"b.gltf", u"c.glb", u"d.gltf"}) {
    SCOPED_TRACE(sys::WideToUtf8(csName));
    const TestFolder zFolder;
    zFolder.WriteBytes(u"\u00e4 b.bin", GltfBuffer());
    zFolder.WriteBytes(u"a.gltf", EmbeddedGltf());
    zFolder.WriteBytes(u"b.gltf", Gltf(sys::WideToUtf8(u"\u00e4 b.bin")));
    zFolder.WriteBytes(u"c.glb", Glb());
    zFolder.WriteBytes(u"d.gltf", Gltf("%C3%A4%20b.bin"));
    const ReaderOutcome z = ReadMesh(zFolder / csName);
    ASSERT_EQ(z.m_strError, "");
    EXPECT_EQ(z.m_zScene.m_dMetresPerUnit, 1);
    ASSERT_EQ(z.m_zScene.m_vzPart.size(), 1u);
    EXPECT_EQ(z.m_zScene.m_vzPart[0].m_csName, u"bracket");
    const std::vector<KivSceneFace>& vzFace = z.m_zScene.m_vzPart[0].m_vzLevel[0].m_vzFace;
    ASSERT_EQ(vzFace.size(), 2u);
    EXPECT_EQ(vzFace[0].m_iId, 1u);
    EXPECT_EQ(vzFace[1].m_iId, 2u);
    EXPECT_EQ(vzFace[0].m_fColour, (KivColour{0.5f, 0.25f, 0.125f, 0.75f}));
    EXPECT_FALSE(vzFace[1].m_fColour.has_value());
    EXPECT_EQ(vzFace[0].m_vfNormal.size(), 9u);
    EXPECT_TRUE(vzFace[1].m_vfNormal.empty());
    EXPECT_EQ(vzFace[1].m_viIndex, (std::vector<uint32_t>{0, 1, 2}));
    ASSERT_EQ(z.m_zScene.m_vzNode.size(), 3u);
    EXPECT_EQ(z.m_zScene.m_vzNode[0].m_csName, u"assembly");
    EXPECT_EQ(z.m_zScene.m_vzNode[1].m_csName, u"left");
    EXPECT_EQ(z.m_zScene.m_vzNode[2].m_csName, u"right");
    EXPECT_EQ(z.m_zScene.m_vzNode[2].m_iParent, 0u);
    EXPECT_EQ(z.m_zScene.m_vzNode[1].m_viPart, std::vector<uint32_t>{0});
    EXPECT_EQ(z.m_zScene.m_vzNode[2].m_viPart, std::vector<uint32_t>{0});
    EXPECT_TRUE(z.m_zScene.m_vzNode[1].m_zMatrix.IsIdentityLike(KivEMatrix4()));
    const KivECoord3 zPoint = z.m_zScene.m_vzNode[2].m_zMatrix.TransformPoint(KivECoord3{1, 0, 0});
    EXPECT_NEAR(zPoint.m_dX, 10, 1e-6);
    EXPECT_NEAR(zPoint.m_dY, 2, 1e-6);
    EXPECT_NEAR(zPoint.m_dZ, 0, 1e-6);
    EXPECT_TRUE(z.m_zScene.m_vstrWarning.empty());
  }
}

TEST(ReadGltf, AGltfOfTheFirstVersionKeepsNodesAndTriangles) {
  const ReaderOutcome z = ReadBytes(u"a.gltf", FirstGltf());
  ASSERT_EQ(z.m_strError, "");
  EXPECT_EQ(z.m_zScene.m_vzNode.size(), 3u);
  ASSERT_EQ(z.m_zScene.m_vzPart.size(), 1u);
  const KivSceneFace& zFace = z.m_zScene.m_vzPart[0].m_vzLevel[0].m_vzFace[0];
  EXPECT_EQ(zFace.m_vdVertex, (std::vector<double>{0, 0, 0, 1, 0, 0, 0, 1, 0}));
  EXPECT_EQ(zFace.m_viIndex, (std::vector<uint32_t>{0, 1, 2}));
  EXPECT_EQ(zFace.m_vfNormal.size(), 9u);
}

TEST(ReadGltf, PlacementsOfAGltfKeepAllTheirDigits) {
  const std::vector<double> vdFar = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 4500000.123, 500000.456, 12.34, 1};
  for (const char* szPlace : {"\"translation\":[4500000.123,500000.456,12.34]",
                              "\"matrix\":[1,0,0,0,0,1,0,0,0,0,1,0,4500000.123,500000.456,12.34,1]"}) {
    SCOPED_TRACE(szPlace);
    const std::string strPlace = szPlace;
    const ReaderOutcome z = ReadBytes(u"a.gltf", Replaced(EmbeddedGltf(), "\"name\":\"left\",", strPlace + ","));
    ASSERT_EQ(z.m_strError, "");
    ExpectPlacement(z.m_zScene.m_vzNode[1], vdFar);
    const ReaderOutcome zPacked = ReadBytes(u"a.glb", Glb(Replaced(Gltf(""), "\"name\":\"left\",", strPlace + ",")));
    ASSERT_EQ(zPacked.m_strError, "");
    ExpectPlacement(zPacked.m_zScene.m_vzNode[1], vdFar);
    const ReaderOutcome zFirst =
        ReadBytes(u"a.gltf", Replaced(FirstGltf(), "\"left\":{", "\"left\":{" + strPlace + ","));
    ASSERT_EQ(zFirst.m_strError, "");
    ExpectPlacement(zFirst.m_zScene.m_vzNode[1], vdFar);
  }
}

TEST(ReadGltf, EachNodeOfAGltfWithSeveralRootsHasItsOwnPlacement) {
  const std::string strFile = WithNodes(
      "{\"mesh\":0,\"translation\":[0.1,0,0]},{\"children\":[4,3],\"translation\":[1.1,0,0]},{\"mesh\":0,"
      "\"translation\":[2.1,0,0]},{\"children\":[2],\"translation\":[3.1,0,0]},{\"mesh\":0,\"translation\":[4.1,0,0]}",
      "[1,0]");
  const ReaderOutcome z = ReadBytes(u"a.gltf", strFile);
  ASSERT_EQ(z.m_strError, "");
  ASSERT_EQ(z.m_zScene.m_vzNode.size(), 6u);
  EXPECT_EQ(z.m_zScene.m_vzNode[0].m_csName, u"a");
  const std::vector<double> vdX = {0, 1.1, 4.1, 3.1, 2.1, 0.1};
  const std::vector<uint32_t> viParent = {kNoSceneIndex, 0, 1, 1, 3, 0};
  for (size_t i = 0; i < 6; ++i) {
    EXPECT_EQ(z.m_zScene.m_vzNode[i].m_zMatrix[12], vdX[i]) << i;
    EXPECT_EQ(z.m_zScene.m_vzNode[i].m_iParent, viParent[i]) << i;
  }
}

TEST(ReadGltf, PartsOfAPlacementMultiplyAndATurnIsTakenAsItStands) {
  const std::string strParts = "\"rotation\":[0.3,-0.2,0.9,1.7],\"scale\":[1,-2,0.5],\"translation\":[1,2,3]";
  const std::vector<double> vdMust = {-0.7, 2.94, 1.22, 0, 6.36, 1.6, -1.32, 0, -0.07, -0.69, 0.37, 0, 1, 2, 3, 1};
  const ReaderOutcome z = ReadBytes(u"a.gltf", WithNodes("{\"mesh\":0," + strParts + "}"));
  ASSERT_EQ(z.m_strError, "");
  ExpectPlacement(z.m_zScene.m_vzNode[0], vdMust);
  const ReaderOutcome zFirst = ReadBytes(u"a.gltf", Replaced(FirstGltf(), "\"left\":{", "\"left\":{" + strParts + ","));
  ASSERT_EQ(zFirst.m_strError, "");
  ExpectPlacement(zFirst.m_zScene.m_vzNode[1], vdMust);
}

TEST(ReadGltf, PlacementsThatAreNoNumbersOrProjectionsAreRefused) {
  EXPECT_EQ(Error(WithNodes("{\"mesh\":0,\"matrix\":[1,0,0,0.5,0,1,0,0,0,0,1,0,0,0,0,1]}")),
            "a placement is a projection");
  EXPECT_EQ(Error(WithNodes("{\"mesh\":0,\"matrix\":[1,0,0,1e-60,0,1,0,0,0,0,1,0,0,0,0,1]}")), "");
  EXPECT_EQ(Error(WithNodes("{\"mesh\":0,\"translation\":[1e300,0,0]}")), "a placement is no number");
}

TEST(ReadGltf, NamesOfTheFirstVersionAreNamesElseTheTextsThatStandForThem) {
  const std::string strFile = Replaced(Replaced(FirstGltf(), "\"left\":{", "\"left\":{\"name\":\"links\","),
                                       "\"meshes\":{\"bracket\":{", "\"meshes\":{\"bracket\":{\"name\":\"Winkel\",");
  const ReaderOutcome z = ReadBytes(u"a.gltf", strFile);
  ASSERT_EQ(z.m_strError, "");
  EXPECT_EQ(z.m_zScene.m_vzPart[0].m_csName, u"Winkel");
  EXPECT_EQ(z.m_zScene.m_vzNode[0].m_csName, u"top");
  EXPECT_EQ(z.m_zScene.m_vzNode[1].m_csName, u"links");
  EXPECT_EQ(z.m_zScene.m_vzNode[2].m_csName, u"right");
  EXPECT_EQ(ReadBytes(u"a.gltf", FirstGltf()).m_zScene.m_vzPart[0].m_csName, u"bracket");
}

TEST(ReadGltf, CopiesAndAPlaceThatOnlyExtensionsTellAreToldToBeLeftOut) {
  const char* const szNode = "\"name\":\"left\",";
  const ReaderOutcome zCopies = ReadBytes(
      u"a.gltf", Replaced(EmbeddedGltf(), szNode,
                          "\"extensions\":{\"EXT_mesh_gpu_instancing\":{\"attributes\":{\"TRANSLATION\":0}}},"));
  ASSERT_EQ(zCopies.m_strError, "");
  EXPECT_TRUE(Warns(zCopies.m_zScene, "copies of a mesh (EXT_mesh_gpu_instancing) are left out but for one"));
  for (const std::string& strFile : {EmbeddedGltf(), FirstGltf()}) {
    const ReaderOutcome zFar =
        ReadBytes(u"a.gltf",
                  Replaced(strFile, "\"scene\":", "\"extensions\":{\"CESIUM_RTC\":{\"center\":[1e6,0,0]}},\"scene\":"));
    ASSERT_EQ(zFar.m_strError, "");
    EXPECT_TRUE(Warns(zFar.m_zScene, "the place of the whole (CESIUM_RTC) is left out"));
  }
}

TEST(ReadGltf, TheDiffuseColourOfASpecularMaterialIsItsColour) {
  const std::string strUsed = "\"extensionsUsed\":[\"KHR_materials_pbrSpecularGlossiness\"],\"scene\":";
  const ReaderOutcome zUsed = ReadBytes(
      u"a.gltf", Replaced(Replaced(EmbeddedGltf(), "\"scene\":", strUsed), "\"alphaMode\"",
                          "\"extensions\":{\"KHR_materials_pbrSpecularGlossiness\":{\"diffuseFactor\":[0,1,0.5,0.5]}},"
                          "\"alphaMode\""));
  ASSERT_EQ(zUsed.m_strError, "");
  ExpectColour(zUsed.m_zScene.m_vzPart[0].m_vzLevel[0].m_vzFace[0].m_fColour, {0, 1, 0.5f, 0.5f});
}

TEST(ReadGltf, AColourThatAllCornersShareMultipliesThatOfTheMaterial) {
  const std::vector<float> vfSame = {0.5f, 1, 0, 0.5f, 0.5f, 1, 0, 0.5f, 0.5f, 1, 0, 0.5f};
  std::string strFile = WithColours(vfSame);
  ReaderOutcome z = ReadBytes(u"a.gltf", strFile);
  ASSERT_EQ(z.m_strError, "");
  ExpectColour(z.m_zScene.m_vzPart[0].m_vzLevel[0].m_vzFace[0].m_fColour, {0.25f, 0.25f, 0, 0.375f});
  EXPECT_TRUE(z.m_zScene.m_vstrWarning.empty());
  z = ReadBytes(u"a.gltf", Replaced(strFile, ",\n\"alphaMode\":\"BLEND\"", ""));
  ASSERT_EQ(z.m_strError, "");
  ExpectColour(z.m_zScene.m_vzPart[0].m_vzLevel[0].m_vzFace[0].m_fColour, {0.25f, 0.25f, 0, 1});
  std::vector<float> vfOther = vfSame;
  vfOther[4] = 0.75f;
  z = ReadBytes(u"a.gltf", WithColours(vfOther));
  ASSERT_EQ(z.m_strError, "");
  ExpectColour(z.m_zScene.m_vzPart[0].m_vzLevel[0].m_vzFace[0].m_fColour, {0.5f, 0.25f, 0.125f, 0.75f});
  EXPECT_TRUE(Warns(z.m_zScene, "colours of single vertices are left out"));
}

TEST(ReadGltf, ABufferMayHoldMoreThanItTells) {
  const KivScene zPlain = ReadBytes(u"a.gltf", EmbeddedGltf()).m_zScene;
  for (const size_t nMore : {1, 2, 3, 50}) {
    SCOPED_TRACE(nMore);
    const std::string strBuffer = GltfBuffer() + std::string(nMore, 'x');
    const ReaderOutcome z = ReadBytes(u"a.gltf", Gltf("data:application/octet-stream;base64," + Base64(strBuffer)));
    ASSERT_EQ(z.m_strError, "");
    EXPECT_EQ(KivWriteScene(z.m_zScene), KivWriteScene(zPlain));
    const ReaderOutcome zPacked = ReadBytes(u"a.glb", Glb(Gltf(""), nMore));
    ASSERT_EQ(zPacked.m_strError, "");
    EXPECT_EQ(KivWriteScene(zPacked.m_zScene), KivWriteScene(zPlain));
    const ReaderOutcome zFirst = ReadBytes(u"a.gltf", Replaced(FirstGltf(), Base64(GltfBuffer()), Base64(strBuffer)));
    EXPECT_EQ(zFirst.m_strError, "");
  }
  EXPECT_NE(Error(Gltf("data:application/octet-stream;base64," + Base64(GltfBuffer().substr(0, 79)))), "");
  // What it tells still bounds the numbers.
  EXPECT_EQ(Error(Replaced(EmbeddedGltf(), "\"byteLength\":80", "\"byteLength\":76")), kBehind);
}

TEST(ReadGltf, WithoutScenesAllNodesThatAreNoChildAreShown) {
  const ReaderOutcome zOne =
      ReadBytes(u"a.gltf", Replaced(EmbeddedGltf(), "\"scene\":0,\"scenes\":[{\"nodes\":[0]}],", ""));
  ASSERT_EQ(zOne.m_strError, "");
  EXPECT_EQ(KivWriteScene(zOne.m_zScene), KivWriteScene(ReadBytes(u"a.gltf", EmbeddedGltf()).m_zScene));
  const ReaderOutcome zTwo = ReadBytes(
      u"a.gltf",
      Replaced(WithNodes("{\"mesh\":0,\"name\":\"b\"},{\"mesh\":0,\"name\":\"c\",\"children\":[0]},{\"mesh\":0,"
                         "\"name\":\"d\"}"),
               "\"scene\":0,\"scenes\":[{\"nodes\":[0]}],", "\"scenes\":[],"));
  ASSERT_EQ(zTwo.m_strError, "");
  ASSERT_EQ(zTwo.m_zScene.m_vzNode.size(), 4u);
  for (const size_t i : {size_t{1}, size_t{2}, size_t{3}})
    EXPECT_EQ(zTwo.m_zScene.m_vzNode[i].m_csName, (std::vector<KivWString>{u"c", u"b", u"d"})[i - 1]);
  EXPECT_TRUE(zTwo.m_zScene.m_vstrWarning.empty());
  const KivScene zFirst = ReadBytes(u"a.gltf", FirstGltf()).m_zScene;
  for (const char* szScene : {"\"scene\":\"all\",", "\"scene\":\"all\",\"scenes\":{\"all\":{\"nodes\":[\"top\"]}},"}) {
    const ReaderOutcome z = ReadBytes(u"a.gltf", Replaced(FirstGltf(), szScene, ""));
    ASSERT_EQ(z.m_strError, "") << szScene;
    EXPECT_EQ(KivWriteScene(z.m_zScene), KivWriteScene(zFirst));
  }
}

TEST(ReadGltf, ASceneWithoutNodesIsRefused) {
  const char szReason[] = "its scene has no nodes";
  EXPECT_EQ(Error(Replaced(EmbeddedGltf(), "[{\"nodes\":[0]}]", "[{\"nodes\":[]}]")), szReason);
  EXPECT_EQ(Error(Replaced(EmbeddedGltf(), "[{\"nodes\":[0]}]", "[{}]")), szReason);
  EXPECT_EQ(Error(Replaced(EmbeddedGltf(), "\"scene\":0", "\"scene\":7")), szReason);
  EXPECT_EQ(Error(Replaced(FirstGltf(), "{\"nodes\":[\"top\"]}", "{\"nodes\":[]}")), szReason);
  EXPECT_EQ(Error("{\"asset\":{\"version\":\"2.0\"}}"), szReason);
}

TEST(ReadGltf, AVersionThatIsNotReadIsNamed) {
  const std::string strVersion = "\"version\":\"2.0\"";
  const auto With = [&](const std::string& strTo) { return Error(Replaced(EmbeddedGltf(), strVersion, strTo)); };
  for (const char* szRead : {"\"version\":2.0", "\"version\":2", "\"version\":\"2.1\"", "\"version\":\"2\"",
                             "\"version\":\"2.0\",\"minVersion\":\"2.0\""})
    EXPECT_EQ(With(szRead), "") << szRead;
  EXPECT_EQ(Error(Replaced(FirstGltf(), "\"version\":\"1.0\"", "\"version\":1.0")), "");
  EXPECT_EQ(With("\"version\":\"3.0\""), "it is of version 3.0 of glTF; read are 1 and 2");
  EXPECT_EQ(With("\"version\":10"), "it is of version 10.0 of glTF; read are 1 and 2");
  for (const char* szNone : {"\"generator\":\"x\"", "\"version\":\"two\"", "\"version\":null", "\"version\":\"\""})
    EXPECT_EQ(With(szNone), "it is no readable glTF file: it does not tell its version") << szNone;
  EXPECT_EQ(With("\"version\":\"2.0\",\"minVersion\":\"2.1\""), "it needs version 2.1 of glTF; read are 1 and 2.0");
  std::string strPacked = Glb();
  strPacked[4] = 3;
  EXPECT_EQ(ReadBytes(u"a.glb", strPacked).m_strError, "it is of version 3 of GLB, which is not read");
}

TEST(ReadGltf, TextAndGlbAreToldByTheirBytes) {
  const KivScene zPlain = ReadBytes(u"a.gltf", EmbeddedGltf()).m_zScene;
  for (const auto& [csName, strFile] :
       {std::pair<KivWString, std::string>{u"a.gltf", Glb()}, {u"a.glb", EmbeddedGltf()}}) {
    const ReaderOutcome z = ReadBytes(csName, strFile);
    ASSERT_EQ(z.m_strError, "");
    EXPECT_EQ(KivWriteScene(z.m_zScene), KivWriteScene(zPlain));
  }
  for (const size_t nBytes : {size_t{4}, size_t{12}, size_t{19}, size_t{100}, Glb().size() - 1})
    EXPECT_EQ(ReadBytes(u"a.glb", Glb().substr(0, nBytes)).m_strError,
              "it is no readable GLB file: a piece of it is cut");
}

TEST(ReadGltf, PicturesOfAnyKindAreToldToBeLeftOut) {
  const auto Told = [](const std::string& strFile) {
    const ReaderOutcome z = ReadBytes(u"a.gltf", strFile);
    EXPECT_EQ(z.m_strError, "");
    size_t nTold = 0;
    for (const std::string& strWarning : z.m_zScene.m_vstrWarning)
      nTold += strWarning == "pictures on surfaces are left out";
    return nTold;
  };
  const std::string strPictures =
      Replaced(EmbeddedGltf(),
               "\"materials\":", "\"images\":[{\"uri\":\"x.png\"}],\"textures\":[{\"source\":0}],\"materials\":");
  EXPECT_EQ(Told(strPictures), 0u) << "none is named";
  for (const char* szNamed : {"\"normalTexture\":{\"index\":0},", "\"emissiveTexture\":{\"index\":0},",
                              "\"extensions\":{\"KHR_materials_clearcoat\":{\"clearcoatTexture\":{\"index\":0}}},"})
    EXPECT_EQ(Told(Replaced(strPictures, "\"alphaMode\"", szNamed + std::string("\"alphaMode\""))), 1u) << szNamed;
  const std::string strBasic = Replaced(strPictures, "\"pbrMetallicRoughness\":{",
                                        "\"pbrMetallicRoughness\":{\"baseColorTexture\":{\"index\":0},");
  EXPECT_EQ(Told(strBasic), 1u);
  EXPECT_EQ(Told(Replaced(strBasic, "{\"source\":0}", "{\"extensions\":{\"EXT_texture_webp\":{\"source\":0}}}")), 1u);
  EXPECT_EQ(Told(Replaced(strBasic, "\"material\":0", "\"extras\":0")), 0u) << "no piece has the material";
  const std::string strFirst =
      Replaced(Replaced(FirstGltf(), "\"mode\":4", "\"mode\":4,\"material\":\"paint\""), "\"buffers\":",
               "\"images\":{\"file\":{\"uri\":\"x.png\"}},\"textures\":{\"wood\":{\"source\":\"file\"}},\"materials\":{"
               "\"paint\":{"
               "\"name\":\"wood\",\"values\":{\"bump\":\"#\"}}},\"buffers\":");
  EXPECT_EQ(Told(strFirst), 0u);
  EXPECT_EQ(Told(Replaced(strFirst, "\"#\"", "\"wood\"")), 1u);
}

TEST(ReadGltf, MeshesThatStandInNoSceneAreToldToBeLeftOut) {
  const std::string strLost = "nodes that stand in no scene are left out";
  const auto Read = [](const std::string& strFile) {
    ReaderOutcome z = ReadBytes(u"a.gltf", strFile);
    EXPECT_EQ(z.m_strError, "");
    return z.m_zScene;
  };
  EXPECT_TRUE(Warns(Read(WithNodes("{\"mesh\":0},{\"children\":[2]},{\"mesh\":0}")), strLost));
  EXPECT_FALSE(Warns(Read(WithNodes("{\"mesh\":0},{}")), strLost)) << "it holds nothing";
  EXPECT_FALSE(Warns(Read(WithNodes("{\"mesh\":0},{\"mesh\":0}", "[0]},{\"nodes\":[1]")), strLost))
      << "another scene has it";
  EXPECT_TRUE(
      Warns(Read(Replaced(FirstGltf(), "\"nodes\":{", "\"nodes\":{\"more\":{\"meshes\":[\"bracket\"]},")), strLost));
}

// The library ends there by an assertion.
TEST(ReadGltf, IndicesBeyondTheCornersOfAClosedLineOrOfTheFirstVersionAreRefused) {
  const char szReason[] = "a face names a vertex that does not exist";
  std::string strBuffer = GltfBuffer();
  const std::string strRight = Base64(strBuffer);
  for (const size_t i : {size_t{0}, size_t{1}, size_t{2}}) {
    std::string strWrong = strBuffer;
    strWrong[72 + 2 * i] = 3;
    EXPECT_EQ(Error(Replaced(FirstGltf(), strRight, Base64(strWrong))), szReason) << i;
    strWrong[72 + 2 * i] = 0;
    strWrong[73 + 2 * i] = 1;
    EXPECT_EQ(Error(Replaced(FirstGltf(), strRight, Base64(strWrong))), szReason) << i;
    const std::string strLoop = Replaced(EmbeddedGltf(), "\"indices\":2", "\"indices\":2,\"mode\":2");
    EXPECT_EQ(Error(strLoop), "");
    EXPECT_EQ(Error(Replaced(strLoop, strRight, Base64(strWrong))), szReason) << i;
    std::string strPacked = Glb(Replaced(Gltf(""), "\"indices\":2", "\"indices\":2,\"mode\":2"));
    EXPECT_EQ(ReadBytes(u"a.glb", strPacked).m_strError, "");
    strPacked.replace(strPacked.size() - strWrong.size(), strWrong.size(), strWrong);
    EXPECT_EQ(ReadBytes(u"a.glb", strPacked).m_strError, szReason) << i;
  }
}

TEST(ReadGltf, OnlyAMaterialThatBlendsIsTransparent) {
  for (const char* szMode : {",\n\"alphaMode\":\"OPAQUE\"", ",\n\"alphaMode\":\"MASK\"", ""}) {
    const ReaderOutcome z = ReadBytes(u"a.gltf", Replaced(EmbeddedGltf(), ",\n\"alphaMode\":\"BLEND\"", szMode));
    ASSERT_EQ(z.m_strError, "");
    ExpectColour(z.m_zScene.m_vzPart[0].m_vzLevel[0].m_vzFace[0].m_fColour, {0.5f, 0.25f, 0.125f, 1});
  }
}

TEST(ReadGltf, NamesThatTheSourceDoesNotHaveStayEmptyButForTheRoots) {
  const std::string strNone =
      Replaced(Replaced(Replaced(EmbeddedGltf(), "\"name\":\"right\",", ""), "\"name\":\"assembly\",", ""),
               "\"name\":\"bracket\",", "");
  const ReaderOutcome zNone = ReadBytes(u"a.gltf", strNone);
  ASSERT_EQ(zNone.m_strError, "");
  EXPECT_EQ(zNone.m_zScene.m_vzNode[0].m_csName, u"a");
  EXPECT_EQ(zNone.m_zScene.m_vzNode[1].m_csName, u"left");
  EXPECT_EQ(zNone.m_zScene.m_vzNode[2].m_csName, u"");
  EXPECT_EQ(zNone.m_zScene.m_vzPart[0].m_csName, u"left");  // that of its first place
  const ReaderOutcome zOwn =
      ReadBytes(u"a.gltf", Replaced(Replaced(EmbeddedGltf(), "right", "nodes[2]"), "bracket", "meshes[0]"));
  ASSERT_EQ(zOwn.m_strError, "");
  EXPECT_EQ(zOwn.m_zScene.m_vzNode[2].m_csName, u"nodes[2]");
  EXPECT_EQ(zOwn.m_zScene.m_vzPart[0].m_csName, u"meshes[0]");
  const std::string strObj = "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n";
  const ReaderOutcome zObj = ReadBytes(u"a.obj", strObj);
  ASSERT_EQ(zObj.m_strError, "");
  EXPECT_EQ(zObj.m_zScene.m_vzNode[0].m_csName, u"a");
  EXPECT_EQ(zObj.m_zScene.m_vzNode[1].m_csName, u"");
  EXPECT_EQ(ReadBytes(u"a.obj", "o defaultobject\n" + strObj).m_zScene.m_vzNode[1].m_csName, u"defaultobject");
}

TEST(ReadGltf, FurtherScenesCamerasAndLightsAreToldToBeLeftOut) {
  const std::string strFile = Replaced(
      Replaced(EmbeddedGltf(), "[{\"nodes\":[0]}]",
               "[{\"nodes\":[0]},{\"nodes\":[1]}],\"extensionsUsed\":[\"KHR_lights_punctual\"],\"extensions\":"
               "{\"KHR_lights_punctual\":{\"lights\":[{\"type\":\"point\"}]}},"
               "\"cameras\":[{\"type\":\"perspective\",\"perspective\":{\"yfov\":1,\"znear\":1}}]"),
      "\"name\":\"left\",", "\"name\":\"left\",\"camera\":0,\"extensions\":{\"KHR_lights_punctual\":{\"light\":0}},");
  const ReaderOutcome z = ReadBytes(u"a.gltf", strFile);
  ASSERT_EQ(z.m_strError, "");
  for (const char* szWhat : {"further scenes are left out", "cameras are left out", "lights are left out"})
    EXPECT_TRUE(Warns(z.m_zScene, szWhat)) << szWhat;
}

TEST(ReadGltf, NodesOfAGltfThatAreNoShallowTreesAreRefused) {
  EXPECT_EQ(ReadBytes(u"a.gltf", ChainGltf(2, "#")).m_strError, "");
  EXPECT_EQ(ReadBytes(u"a.gltf", ChainGltf(900, "#")).m_strError, "");
  EXPECT_EQ(ReadBytes(u"a.gltf", ChainGltf(100000, "#")).m_strError, "its nodes are nested too deeply");
  EXPECT_EQ(ReadBytes(u"a.gltf", ChainGltf(30, "#,#")).m_strError, "a node stands below more than one other");
  EXPECT_EQ(ReadBytes(u"a.gltf", ChainGltf(2, "0")).m_strError, "a node stands below more than one other");
  EXPECT_EQ(ReadBytes(u"a.gltf", Replaced(ChainGltf(2, "0"), "[{\"nodes\":[0]}]", "[{\"nodes\":[1]}]")).m_strError,
            "a node stands below itself");
  EXPECT_EQ(ReadBytes(u"a.gltf", "{\"asset\":" + std::string(100000, '[')).m_strError, "its JSON is nested too deeply");
}

TEST(ReadGltf, ASmallSourceThatAsksForMoreMemoryThanTheBoundIsRefusedForIt) {
  if (!sys::CanLimitMemory()) GTEST_SKIP() << "no bound in builds with sanitizers and under Wine";
  EXPECT_EQ(ReadBytes(u"a.gltf", SparseGltf("400000000")).m_strError, "there is not enough memory to read it");
}

TEST(ReadGltf, AGltfWhoseBufferIsMissingOrElsewhereIsRefused) {
  const TestFolder zFolder;
  zFolder.WriteBytes(u"b.bin", GltfBuffer());
  EXPECT_TRUE(HasText(ReadBytes(u"a.gltf", Gltf("b.bin")).m_strError, "it is no readable glTF file"));
  EXPECT_TRUE(HasText(ReadBytes(u"a.gltf", Gltf(sys::WideToUtf8(zFolder / u"b.bin"))).m_strError,
                      "it is no readable glTF file"));
}

TEST(ReadGltf, AGltfWithAnIndexBeyondItsCornersIsRefused) {
  // Two triangles, of which the second one has it.
  std::string strBuffer = GltfBuffer().substr(0, 78);
  for (const uint16_t i : {0, 1, 3}) AddRaw<uint16_t>(strBuffer, i);
  const std::string strFile = Gltf("data:application/octet-stream;base64," + Base64(strBuffer), "6");
  EXPECT_EQ(ReadBytes(u"a.gltf", Replaced(Replaced(strFile, "\"byteLength\":6", "\"byteLength\":12"),
                                          "\"byteLength\":80", "\"byteLength\":84"))
                .m_strError,
            "a face names a vertex that does not exist");
}

TEST(ReadGltf, CornersOfAGltfThatMakeNoWholeTriangleAreAWarning) {
  const ReaderOutcome z =
      ReadBytes(u"a.gltf", Replaced(Replaced(EmbeddedGltf(), "5123,\"count\":3", "5123,\"count\":4"),
                                    "\"byteLength\":6", "\"byteLength\":8"));
  ASSERT_EQ(z.m_strError, "");
  EXPECT_TRUE(Warns(z.m_zScene, "vertices that make no whole triangle or line are left out"));
}

TEST(ReadGltf, ExtensionsThatAGltfNeedsAreReadOrTheReason) {
  for (const char* szKnown : {"KHR_materials_unlit", "KHR_texture_transform"})
    EXPECT_EQ(ReadBytes(u"a.gltf", Replaced(EmbeddedGltf(), "\"scene\":0",
                                            "\"scene\":0,\"extensionsRequired\":[\"" + std::string(szKnown) + "\"]"))
                  .m_strError,
              "");
  ExpectRefused(EmbeddedGltf(), {{"\"scene\":0", "\"scene\":0,\"extensionsRequired\":[\"KHR_mesh_quantization\"]",
                                  "it needs the extension 'KHR_mesh_quantization', which is not read"}});
}

TEST(ReadGltf, NumbersOfAGltfThatAreOfAnotherKindOrElsewhereAreRefused) {
  ExpectRefused(EmbeddedGltf(),
                {{"5126,\"count\":3,\"type\":\"VEC3\"}", "5122,\"count\":3,\"type\":\"VEC3\"}", "are no triples"},
                 {"\"VEC3\",\"min\"", "\"VEC2\",\"min\"", "are no triples"},
                 {"5123", "5126", kBehind},
                 {"5123", "5120", "indices of it are no unsigned numbers"},
                 {"5123", "5124", "have no type that is known"},
                 {"\"SCALAR\"", "\"VEC2\"", kBehind},
                 {"5123,\"count\":3", "5123,\"count\":4", kBehind},
                 {"5123,\"count\":3", "5123,\"count\":-3", kNoCount},
                 {"5123,\"count\":3", "5123,\"count\":3.0", kNoCount},
                 {"{\"bufferView\":0,", "{\"bufferView\":0,\"byteOffset\":4,", kBehind},
                 {"\"byteOffset\":36", "\"byteOffset\":48", kBehind},
                 {"\"byteLength\":36}", "\"byteLength\":36,\"byteStride\":16}", kBehind},
                 {"\"byteLength\":36}", "\"byteLength\":36,\"byteStride\":4}", "lie over each other"},
                 {"\"indices\":2", "\"indices\":2,\"indices\":0", "its JSON has a member twice"}});
}

TEST(ReadGltf, RootsChildrenAndPlacementsOfAGltfThatAreNoneAreRefused) {
  const std::string strFile = ChainGltf(3, "#");
  const auto Error = [&](const std::string& strRoots) {
    return ReadBytes(u"a.gltf", Replaced(strFile, "[{\"nodes\":[0]}]", "[{\"nodes\":" + strRoots + "}]")).m_strError;
  };
  EXPECT_EQ(Error("[0] "), "");
  EXPECT_EQ(Error("[0,0]"), "a node stands below more than one other");
  EXPECT_EQ(Error("[0,1]"), "a node stands below more than one other");
  for (const char* szRoots : {"[0,\"2\"]", "[0,3]", "[0,-1]", "[0.0]"})
    EXPECT_EQ(Error(szRoots), "it names a node that does not exist") << szRoots;
  for (const char* szChild : {"\"2\"", "2.0", "3", "-1"})
    EXPECT_EQ(ReadBytes(u"a.gltf", ChainGltf(3, szChild)).m_strError, "it names a node that does not exist") << szChild;
  for (const char* szPlacement : {"\"translation\":[\"10\",0,0]", "\"translation\":[10,0]", "\"matrix\":[1,0,0]",
                                  "\"rotation\":{}", "\"scale\":1"})
    EXPECT_TRUE(
        HasText(ReadBytes(u"a.gltf", Replaced(strFile, "{\"mesh\":0}", "{\"mesh\":0," + std::string(szPlacement) + "}"))
                    .m_strError,
                "of a node is no list of"))
        << szPlacement;
}

// The library reads them beyond their ends where their counts do not fit each other.
TEST(ReadGltf, SkeletonsAndMovementsOfAGltfAreLeftOutWhateverTheySay) {
  const std::string strSkin =
      "\"skins\":[{\"joints\":[0]}],\"animations\":[{\"samplers\":[{\"input\":0,\"output\":99,\"interpolation\":"
      "\"CUBICSPLINE\"}],\"channels\":[{\"sampler\":0,\"target\":{\"node\":0,\"path\":\"weights\"}}]}],\"meshes\"";
  const std::string strFile =
      Replaced(Replaced(Replaced(ChainGltf(2, "#"), "\"meshes\"", strSkin), "{\"mesh\":0}", "{\"mesh\":0,\"skin\":0}"),
               "\"attributes\":{", "\"attributes\":{\"WEIGHTS_1\":0,\"JOINTS_0\":99,");
  const ReaderOutcome zPlain = ReadBytes(u"a.gltf", ChainGltf(2, "#"));
  const ReaderOutcome z = ReadBytes(u"a.gltf", strFile);
  ASSERT_EQ(z.m_strError, "");
  EXPECT_TRUE(Warns(z.m_zScene, "movements are left out"));
  EXPECT_TRUE(Warns(z.m_zScene, "skeletons are left out: meshes stand in their basic form"));
  ASSERT_EQ(z.m_zScene.m_vzPart.size(), 1u);
  EXPECT_EQ(z.m_zScene.m_vzPart[0].m_vzLevel[0].m_vzFace[0].m_vdVertex,
            zPlain.m_zScene.m_vzPart[0].m_vzLevel[0].m_vzFace[0].m_vdVertex);
}

TEST(ReadGltf, AGlbWithoutItsMovementsKeepsItsBytes) {
  std::string strFile = Glb();
  const std::string strFrom = "\"meshes\":", strTo = "\"animations\":[],\"meshes\":";
  strFile.replace(strFile.find(strFrom), strFrom.size(), strTo);
  for (const size_t iAt : {size_t{8}, size_t{12}}) {  // the lengths of the file and of its JSON
    uint32_t n = 0;
    std::memcpy(&n, strFile.data() + iAt, sizeof n);
    n += static_cast<uint32_t>(strTo.size() - strFrom.size());
    std::memcpy(strFile.data() + iAt, &n, sizeof n);
  }
  KivScene zScene = ReadBytes(u"c.glb", strFile).m_zScene;
  const KivScene zPlain = ReadBytes(u"c.glb", Glb()).m_zScene;
  EXPECT_TRUE(Warns(zScene, "movements are left out"));
  zScene.m_vstrWarning = zPlain.m_vstrWarning;
  EXPECT_EQ(KivWriteScene(zScene), KivWriteScene(zPlain));
}

TEST(ReadGltf, ViewsNamesAndFormsOfAGltfThatTheLibraryBelievesAreRefusedOrLeftOut) {
  const std::string strFile = EmbeddedGltf();
  for (const char* szView : {"\"byteOffset\":18446744073709551608,\"byteLength\":16", "\"byteLength\":81"}) {
    const std::string strPicture = "\"images\":[{\"bufferView\":3,\"mimeType\":\"image/png\"}],\"bufferViews\"";
    EXPECT_NE(ReadBytes(u"a.gltf", Replaced(Replaced(strFile, "\"byteLength\":6}]",
                                                     "\"byteLength\":6},{\"buffer\":0," + std::string(szView) + "}]"),
                                            "\"bufferViews\"", strPicture))
                  .m_strError,
              "")
        << szView;
  }
  for (const char* szName : {"POSITION_0", "NORMAL_1"})
    EXPECT_EQ(ReadBytes(u"a.gltf", Replaced(strFile, "\"NORMAL\"", "\"" + std::string(szName) + "\"")).m_strError,
              "a mesh has numbers of a name that is not known");
  EXPECT_EQ(
      ReadBytes(u"a.gltf", Replaced(strFile, "{\"POSITION\":0},\"indices\"", "{},\"mode\":2,\"indices\"")).m_strError,
      "a piece of a mesh has no corners");
  std::string strOdd = Replaced(strFile, "\"indices\":2,", "\"targets\":[{\"POSITION_5\":0}],\"indices\":2,");
  strOdd = Replaced(strOdd, "\"pbrMetallicRoughness\":{",
                    "\"pbrMetallicRoughness\":{\"baseColorTexture\":{\"index\":0,\"extensions\":{"
                    "\"KHR_texture_transform\":{\"offset\":[]}}},");
  strOdd = Replaced(strOdd,
                    "\"materials\":", "\"images\":[{\"uri\":\"x.png\"}],\"textures\":[{\"source\":0}],\"materials\":");
  const ReaderOutcome z = ReadBytes(u"a.gltf", strOdd);
  EXPECT_EQ(z.m_strError, "");
  EXPECT_TRUE(Warns(z.m_zScene, "other forms of a mesh are left out"));
  EXPECT_TRUE(Warns(z.m_zScene, "pictures on surfaces are left out"));
}

TEST(ReadGltf, AColourOfThreeNumbersOfAGltfIsOpaque) {
  // The buffer's first three numbers stand for one colour of all corners.
  const std::string strFile =
      Replaced(Replaced(EmbeddedGltf(), "{\"POSITION\":0},", "{\"POSITION\":0,\"COLOR_0\":1},"), ",\"material\":0", "");
  const ReaderOutcome z = ReadBytes(u"a.gltf", strFile);
  ASSERT_EQ(z.m_strError, "");
  const std::vector<KivSceneFace>& vzFace = z.m_zScene.m_vzPart[0].m_vzLevel[0].m_vzFace;
  ASSERT_EQ(vzFace.size(), 2u);
  ExpectColour(vzFace[1].m_fColour, {0, 0, 1, 1});
  const ReaderOutcome zClear =
      ReadBytes(u"a.gltf", Replaced(strFile, "\"COLOR_0\":1},", "\"COLOR_0\":1},\"material\":0,"));
  ASSERT_EQ(zClear.m_strError, "");
  ExpectColour(zClear.m_zScene.m_vzPart[0].m_vzLevel[0].m_vzFace[1].m_fColour, {0, 0, 0.125f, 0.75f});
}

TEST(ReadGltf, ANameOfAMeshKeepsTheMarksItEndsWith) {
  const ReaderOutcome z = ReadBytes(u"a.gltf", Replaced(EmbeddedGltf(), "\"bracket\"", "\"bracket_-\""));
  ASSERT_EQ(z.m_strError, "");
  EXPECT_EQ(z.m_zScene.m_vzPart[0].m_csName, u"bracket_-");
}

TEST(ReadGltf, ManyNodesWithoutNamesInALongFileHaveNone) {
  const size_t nNodes = Scaled(4000, 400);
  std::string strNodes = "{\"mesh\":0}", strRoots = "[0";
  for (size_t i = 1; i < nNodes; ++i) {
    strNodes += ",{\"mesh\":0}";
    strRoots += ',' + std::to_string(i);
  }
  std::string strFile = Replaced(ChainGltf(1, ""), "\"nodes\":[{\"mesh\":0}]", "\"nodes\":[" + strNodes + "]");
  strFile = Replaced(strFile, "[{\"nodes\":[0]}]", "[{\"nodes\":" + strRoots + "]}]");
  strFile = Replaced(strFile, "\"asset\":{", "\"asset\":{\"extras\":\"nodes[7]" + std::string(1000000, 'n') + "\",");
  const ReaderOutcome z = ReadBytes(u"a.gltf", strFile);
  ASSERT_EQ(z.m_strError, "");
  ASSERT_EQ(z.m_zScene.m_vzNode.size(), nNodes + 1);
  EXPECT_EQ(z.m_zScene.m_vzNode[7].m_csName, u"");
  EXPECT_EQ(z.m_zScene.m_vzNode[8].m_csName, u"") << "the source has it elsewhere";
}

TEST(ReadGltf, NumbersOfAGltfThatAreGivenAnewAreHeldAgainstTheirViews) {
  const std::string strFile = Replaced(SparseGltf("3"), "\"count\":1,", "\"count\":1 ,");
  EXPECT_EQ(ReadBytes(u"a.gltf", strFile).m_strError, "");
  ExpectRefused(strFile, {{"\"count\":1 ,", "\"count\":2,", kBehind},
                          {"\"count\":1 ,", "\"count\":4294967295,", kBehind},
                          {"\"values\":{\"bufferView\":1}", "\"values\":{\"bufferView\":0}", kBehind},
                          {"\"values\":{\"bufferView\":1}", "\"values\":{\"bufferView\":1,\"byteOffset\":4}", kBehind},
                          {"\"values\":{\"bufferView\":1}", "\"values\":{}", "stand nowhere"},
                          {"\"values\":{\"bufferView\":1}", "\"values\":1", "stand nowhere"}});
}

TEST(ReadGltf, CountsThatNoBytesStandBehindTakeNoTime) {
  const std::string strCount = "4294967295", strView = "{\"bufferView\":0,\"componentType\":";
  const std::string strFile = R"({"asset":{"version":"2.0"},"scene":0,"scenes":[{"nodes":[0]}],"nodes":[{"mesh":0}],
"meshes":[{"primitives":[{"attributes":{"POSITION":0},"indices":1,"mode":2}]}],"accessors":[)" +
                              strView + "5126,\"count\":3,\"type\":\"VEC3\"}," + strView +
                              "5121,\"count\":" + strCount + ",\"type\":\"SCALAR\",\"sparse\":{\"count\":" + strCount +
                              ",\"indices\":" + strView + "5121},\"values\":{\"bufferView\":0}}}]," +
                              "\"bufferViews\":[{\"buffer\":0,\"byteLength\":" + strCount +
                              "}],\"buffers\":[{\"byteLength\":" + strCount + ",\"uri\":\"x.bin\"}]}";
  EXPECT_TRUE(HasText(ReadBytes(u"a.gltf", strFile).m_strError, "x.bin"));
  // Of 3 bytes that stand in the file itself.
  EXPECT_NE(ReadBytes(u"a.gltf", Replaced(strFile, "x.bin", "data:application/octet-stream;base64,AAAA")).m_strError,
            "");
}

TEST(ReadGltf, NumbersOfAGltfOfTheFirstVersionThatAreElsewhereAreRefused) {
  ExpectRefused(FirstGltf(),
                {{"\"byteOffset\":72", "\"byteOffset\":76", kBehind},
                 {"\"byteOffset\":36", "\"byteOffset\":100000", kBehind},
                 {"5123,\"count\":3", "5123,\"count\":100", kBehind},
                 {"\"byteStride\":12", "\"byteStride\":40", kBehind},
                 {"\"byteStride\":12", "\"byteStride\":1", "lie over each other"},
                 {"\"byteLength\":80", "\"byteLength\":\"80\"", kNoCount},
                 {"5126,\"count\":3,\"type\":\"VEC3\"}", "5126,\"count\":2,\"type\":\"VEC3\"}", "other normals"},
                 {"5126,\"count\":3,", "5126,", "a piece of a mesh has no corners"},
                 {"5126", "5123", "are no triples"},
                 {"\"POSITION\"", "\"POSITION_9\"", "other normals"},
                 {"\"NORMAL\"", "\"NORMAL_999999999\"", "of a name that is not known"},
                 {"\"NORMAL\"", "\"TEXCOORD_1\"", "a set of places in pictures is missing"},
                 {"\"mode\":4", "\"mode\":5,\"indices\":\"none\"", "its JSON has a member twice"},
                 {"\"indices\":\"corners\"", "\"indices\":\"none\"", "that does not exist"},
                 {"\"indices\":\"corners\"", "\"indices\":0", "that does not exist"},
                 {"\"buffer\":\"all\",", "", "stand in no buffer"},
                 {"\"bufferView\":\"shorts\",", "", "stand in no buffer"},
                 {"[{\"attributes\"", "[1,{\"attributes\"", "a piece of a mesh is no object"},
                 {"\"top\":{", "\"t\\u0000\":{},\"top\":{", "a name of it has a zero"},
                 {"\"scene\":", "\"extensionsUsed\":[\"KHR_binary_glTF\"],\"scene\":", "in its binary form"}});
}

TEST(ReadGltf, NodesOfAGltfOfTheFirstVersionThatAreNoTreesAreRefused) {
  ExpectRefused(FirstGltf(),
                {{"\"left\":{", "\"left\":{\"children\":[\"left\"],", "a node stands below more than one other"},
                 {"\"left\":{", "\"more\":{\"children\":[\"more\"]},\"left\":{", "a node stands below itself"},
                 {"[\"left\",\"right\"]", "[\"left\",\"left\"]", "a node stands below more than one other"},
                 {"[\"left\",\"right\"]", "[\"left\",\"none\"]", "it names a node that does not exist"},
                 {"[\"top\"]", "[\"top\",\"left\"]", "a node stands below more than one other"},
                 {"[\"bracket\"]}", "[\"bracket\",\"bracket\"]}", "a node names a mesh twice"}});
  std::string strChain;
  for (size_t i = 0; i < 3000; ++i)
    strChain += "\"n" + std::to_string(i) + "\":{\"children\":[\"n" + std::to_string(i + 1) + "\"]},";
  ExpectRefused(FirstGltf(), {{"\"nodes\":{\"top\"", ("\"nodes\":{" + strChain + "\"n3000\":{},\"top\"").c_str(),
                               "its nodes are nested too deeply"}});
}

TEST(ReadGltf, AMaterialOfTheNameThatTheLibraryMakesUpKeepsItsColour) {
  const ReaderOutcome z = ReadBytes(u"a.gltf", Replaced(EmbeddedGltf(), "\"paint\"", "\"DefaultMaterial\""));
  ASSERT_EQ(z.m_strError, "");
  ExpectColour(z.m_zScene.m_vzPart[0].m_vzLevel[0].m_vzFace[0].m_fColour, {0.5f, 0.25f, 0.125f, 0.75f});
  EXPECT_FALSE(z.m_zScene.m_vzPart[0].m_vzLevel[0].m_vzFace[1].m_fColour.has_value());
}
