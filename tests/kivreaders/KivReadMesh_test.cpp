#include <gtest/gtest.h>

#include <cctype>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>

#include "KivMeshFiles.h"
#include "KivReaderTest.h"
#include "KivSysMemoryLimit.h"
#include "KivTestScale.h"

using namespace kiv;
using namespace kivtest;

namespace {

ReaderOutcome ReadMesh(const KivWString& csPath) {
  return RunReader(u"kiv-read-mesh", csPath);
}

// Of a file with these bytes.
ReaderOutcome ReadBytes(const KivWString& csName, const std::string& strBytes) {
  const TestFolder zFolder;
  zFolder.WriteBytes(csName, strBytes);
  return ReadMesh(zFolder / csName);
}

// Corner k of triangle i.
std::vector<double> Corner(const KivSceneFace& z, size_t i, size_t k) {
  const size_t iAt = 3 * size_t{z.m_viIndex[3 * i + k]};
  return {z.m_vdVertex[iAt], z.m_vdVertex[iAt + 1], z.m_vdVertex[iAt + 2]};
}

using Point = std::vector<double>;

void ExpectColour(const std::optional<KivColour>& fIs, const KivColour& fMust) {
  ASSERT_TRUE(fIs.has_value());
  for (size_t i = 0; i < 4; ++i) EXPECT_NEAR((*fIs)[i], fMust[i], 1e-6) << i;
}

constexpr float kLinearOfQuarter = 0.050876088f, kLinearOf128 = 0.215860501f;  // of 0.25 and 128 / 255

std::string Replaced(std::string str, const std::string& strFrom, const std::string& strTo) {
  for (size_t i = 0; (i = str.find(strFrom, i)) != std::string::npos; i += strTo.size())
    str.replace(i, strFrom.size(), strTo);
  return str;
}

}  // namespace

// --- What is kept
// -----------------------------------------------------------------------------------------------------

TEST(ReadMesh, ABinaryStlIsTrianglesWithoutNormalsAndTheUnitIsUnknown) {
  const ReaderOutcome z = ReadBytes(u"Plate 7.STL", BinaryStl());
  ASSERT_EQ(z.m_strError, "");
  EXPECT_EQ(z.m_zScene.m_dMetresPerUnit, 0);
  ASSERT_EQ(z.m_zScene.m_vzPart.size(), 1u);
  EXPECT_FALSE(z.m_zScene.m_vzPart[0].m_bHasFaces);
  ASSERT_EQ(z.m_zScene.m_vzPart[0].m_vzLevel.size(), 1u);
  EXPECT_EQ(z.m_zScene.m_vzPart[0].m_vzLevel[0].m_dTolerance, 0);
  ASSERT_EQ(z.m_zScene.m_vzPart[0].m_vzLevel[0].m_vzFace.size(), 1u);
  const KivSceneFace& zFace = z.m_zScene.m_vzPart[0].m_vzLevel[0].m_vzFace[0];
  EXPECT_EQ(zFace.m_iId, 1u);
  ASSERT_EQ(zFace.m_viIndex.size(), 6u);
  EXPECT_EQ(Corner(zFace, 0, 1), (Point{1, 0, 0}));
  EXPECT_EQ(Corner(zFace, 1, 2), (Point{0, 1, 0}));
  EXPECT_TRUE(zFace.m_vfNormal.empty());
  EXPECT_FALSE(zFace.m_fColour.has_value());
  EXPECT_EQ(z.m_zScene.m_vzNode[0].m_csName, u"Plate 7");
  EXPECT_TRUE(z.m_zScene.m_vstrWarning.empty());
}

TEST(ReadMesh, ATextStlWithTwoSolidsIsTwoParts) {
  const ReaderOutcome z = ReadBytes(u"two.stl", TextStl());
  ASSERT_EQ(z.m_strError, "");
  ASSERT_EQ(z.m_zScene.m_vzPart.size(), 2u);
  EXPECT_EQ(z.m_zScene.m_vzPart[0].m_csName, u"plate");
  EXPECT_EQ(z.m_zScene.m_vzPart[1].m_csName, u"lid");
  const KivSceneFace& zFace = z.m_zScene.m_vzPart[1].m_vzLevel[0].m_vzFace[0];
  ASSERT_EQ(zFace.m_viIndex.size(), 6u);
  EXPECT_EQ(Corner(zFace, 1, 2), (Point{0, 1, 0.5}));
}

TEST(ReadMesh, AnObjKeepsObjectsColoursNormalsAndLines) {
  const TestFolder zFolder;
  zFolder.WriteBytes(u"thing.obj", Obj());
  zFolder.WriteBytes(u"colours.mtl", Mtl());
  const ReaderOutcome z = ReadMesh(zFolder / u"thing.obj");
  ASSERT_EQ(z.m_strError, "");
  EXPECT_EQ(z.m_zScene.m_vzNode[0].m_csName, u"thing");
  ASSERT_EQ(z.m_zScene.m_vzPart.size(), 2u);
  EXPECT_EQ(z.m_zScene.m_vzPart[0].m_csName, u"plate");
  const KivSceneLevel& zPlate = z.m_zScene.m_vzPart[0].m_vzLevel[0];
  ASSERT_EQ(zPlate.m_vzFace.size(), 1u);
  EXPECT_EQ(zPlate.m_vzFace[0].m_viIndex.size(), 6u);
  ASSERT_EQ(zPlate.m_vzFace[0].m_vfNormal.size(), zPlate.m_vzFace[0].m_vdVertex.size());
  EXPECT_EQ(zPlate.m_vzFace[0].m_vfNormal[2], 1);
  ExpectColour(zPlate.m_vzFace[0].m_fColour, {1, kLinearOfQuarter, 0, 1});
  EXPECT_EQ(z.m_zScene.m_vzPart[1].m_csName, u"wire");
  const KivSceneLevel& zWire = z.m_zScene.m_vzPart[1].m_vzLevel[0];
  EXPECT_TRUE(zWire.m_vzFace.empty());
  ASSERT_EQ(zWire.m_vzEdge.size(), 1u);
  EXPECT_EQ(zWire.m_vzEdge[0].m_fColour, (KivColour{0, 0, 1, 0.5f}));
  EXPECT_EQ(zWire.m_vzEdge[0].m_vdVertex, (std::vector<double>{0, 0, 5, 1, 0, 5, 1, 1, 5}));
  EXPECT_TRUE(z.m_zScene.m_vstrWarning.empty());
}

TEST(ReadMesh, AListOfMaterialsMayStandInAFolderBelow) {
  const TestFolder zFolder;
  ASSERT_TRUE(sys::MakeFolder(zFolder / u"more"));
  zFolder.WriteBytes(KivWString(u"more") + sys::kSeparator + u"colours.mtl", Mtl());
  for (const char* szLibrary : {"more/colours.mtl", "more\\colours.mtl", "./more/colours.mtl"}) {
    zFolder.WriteBytes(u"thing.obj", Obj(szLibrary));
    const ReaderOutcome z = ReadMesh(zFolder / u"thing.obj");
    ASSERT_EQ(z.m_strError, "");
    SCOPED_TRACE(szLibrary);
    ExpectColour(z.m_zScene.m_vzPart[0].m_vzLevel[0].m_vzFace[0].m_fColour, {1, kLinearOfQuarter, 0, 1});
  }
}

TEST(ReadMesh, AListOfMaterialsThatIsMissingOrElsewhereIsAWarning) {
  const TestFolder zFolder;
  zFolder.WriteBytes(u"outside.mtl", Mtl());
  for (const std::string& strLibrary :
       {std::string("colours.mtl"), std::string("%2E%2E/colours.mtl"),
        "../" + sys::WideToUtf8(zFolder.Path()) + "/outside.mtl", sys::WideToUtf8(zFolder / u"outside.mtl")}) {
    const ReaderOutcome z = ReadBytes(u"thing.obj", Obj(strLibrary));
    ASSERT_EQ(z.m_strError, "");
    EXPECT_TRUE(Warns(z.m_zScene, "a file that it names cannot be read: "));
    EXPECT_FALSE(z.m_zScene.m_vzPart[0].m_vzLevel[0].m_vzFace[0].m_fColour.has_value());
  }
}

TEST(ReadMesh, AListOfMaterialsThatIsNoneIsAWarning) {
  const std::string strRandom = "\x01\x7F\xFF\x80Kd newmtl";
  for (const std::string& strList :
       {std::string("map_Kd x.png\n"), std::string("Kd 1 0 0\nnewmtl red\n"), std::string("newmtl red\nKd"),
        std::string("newmtl red\nKd 1 0\n"), std::string("newmtl red\nKd red 0 0\n"),
        std::string("newmtl red\nd nan\n"), std::string("newmtl red\nTr\n"), std::string("\n"), strRandom, BinaryStl(),
        TextStl(), TextPly(), BinaryPly(), Glb(), EmbeddedGltf(), Obj()}) {
    const TestFolder zFolder;
    zFolder.WriteBytes(u"thing.obj", Obj());
    zFolder.WriteBytes(u"colours.mtl", strList);
    const ReaderOutcome z = ReadMesh(zFolder / u"thing.obj");
    SCOPED_TRACE(strList.substr(0, 20));
    ASSERT_EQ(z.m_strError, "");
    EXPECT_TRUE(Warns(z.m_zScene, "a file that it names cannot be read: colours.mtl"));
    EXPECT_FALSE(z.m_zScene.m_vzPart[0].m_vzLevel[0].m_vzFace[0].m_fColour.has_value());
  }
}

TEST(ReadMesh, ACutListOfMaterialsIsAShorterOneOrAWarning) {
  const TestFolder zFolder;
  zFolder.WriteBytes(u"thing.obj", Obj());
  const std::string strList = Mtl();
  for (size_t i = 1; i < strList.size(); i += Scaled(3, 11)) {
    zFolder.WriteBytes(u"colours.mtl", strList.substr(0, i));
    EXPECT_EQ(ReadMesh(zFolder / u"thing.obj").m_strError, "") << i;
  }
}

TEST(ReadMesh, StatementsOfAListOfMaterialsThatSayNothingOfColoursArePassed) {
  const TestFolder zFolder;
  zFolder.WriteBytes(u"thing.obj", Obj());
  zFolder.WriteBytes(u"colours.mtl",
                     "\xEF\xBB\xBF# a list\r\n\r\nnewmtl red\r\n\tKa x\r\n\tKd +1 2.5e-1 0\r\n\tillum\r\n\taniso -\r\n"
                     "\tTr 0.5\r\n\tmap_Kd -clamp on x.png\r\n\tmap_Bump\r\nnewmtl glass\r\nKd 0.25\r\nd -halo 0.5");
  const ReaderOutcome z = ReadMesh(zFolder / u"thing.obj");
  ASSERT_EQ(z.m_strError, "");
  ExpectColour(z.m_zScene.m_vzPart[0].m_vzLevel[0].m_vzFace[0].m_fColour, {1, kLinearOfQuarter, 0, 0.5f});
  ExpectColour(z.m_zScene.m_vzPart[1].m_vzLevel[0].m_vzEdge[0].m_fColour,
               {kLinearOfQuarter, kLinearOfQuarter, kLinearOfQuarter, 0.5f});
  EXPECT_EQ(z.m_zScene.m_vstrWarning, (std::vector<std::string>{"pictures on surfaces are left out"}));
}

TEST(ReadMesh, APlySharesItsVerticesInTextAndInBytes) {
  for (const std::string& strFile : {TextPly(), BinaryPly()}) {
    const ReaderOutcome z = ReadBytes(u"a.ply", strFile);
    ASSERT_EQ(z.m_strError, "");
    const KivSceneFace& zFace = z.m_zScene.m_vzPart[0].m_vzLevel[0].m_vzFace[0];
    EXPECT_EQ(zFace.m_vdVertex, (std::vector<double>{0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0.25}));
    EXPECT_EQ(zFace.m_viIndex, (std::vector<uint32_t>{0, 1, 2, 0, 2, 3}));
  }
}

TEST(ReadMesh, PolygonsBecomeTriangles) {
  const ReaderOutcome z = ReadBytes(u"a.ply", TextPly("4 0 1 2 3"));
  ASSERT_EQ(z.m_strError, "");
  EXPECT_EQ(z.m_zScene.m_vzPart[0].m_vzLevel[0].m_vzFace[0].m_viIndex.size(), 9u);
}

TEST(ReadMesh, VerticesThatNoTriangleNamesAreDropped) {
  const ReaderOutcome z = ReadBytes(u"a.ply", TextPly("3 1 2 0"));
  ASSERT_EQ(z.m_strError, "");
  EXPECT_EQ(z.m_zScene.m_vzPart[0].m_vzLevel[0].m_vzFace[0].m_vdVertex,
            (std::vector<double>{0, 0, 0, 1, 0, 0, 1, 1, 0}));
}

TEST(ReadMesh, GltfKeepsNodesPlacementsSharedPartsColoursAndMetres) {
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

TEST(ReadMesh, AGltfOfTheFirstVersionKeepsNodesAndTriangles) {
  const ReaderOutcome z = ReadBytes(u"a.gltf", FirstGltf());
  ASSERT_EQ(z.m_strError, "");
  EXPECT_EQ(z.m_zScene.m_vzNode.size(), 3u);
  ASSERT_EQ(z.m_zScene.m_vzPart.size(), 1u);
  const KivSceneFace& zFace = z.m_zScene.m_vzPart[0].m_vzLevel[0].m_vzFace[0];
  EXPECT_EQ(zFace.m_vdVertex, (std::vector<double>{0, 0, 0, 1, 0, 0, 0, 1, 0}));
  EXPECT_EQ(zFace.m_viIndex, (std::vector<uint32_t>{0, 1, 2}));
  EXPECT_EQ(zFace.m_vfNormal.size(), 9u);
}

TEST(ReadMesh, LinesThatDoNotFollowEachOtherAreTwo) {
  const ReaderOutcome z = ReadBytes(u"a.obj", "v 0 0 0\nv 1 0 0\nv 2 0 0\nv 3 0 0\nl 1 2\nl 3 4\n");
  ASSERT_EQ(z.m_strError, "");
  EXPECT_EQ(z.m_zScene.m_vzPart[0].m_vzLevel[0].m_vzEdge.size(), 2u);
}

TEST(ReadMesh, AColourThatAllVerticesOfAPlyShareBecomesLinear) {
  std::string strFile = Replaced(TextPly(), "float z\n",
                                 "float z\nproperty uchar red\nproperty uchar green\n"
                                 "property uchar blue\nproperty uchar alpha\n");
  for (const char* szPoint : {"0 0 0\n", "1 0 0\n", "1 1 0\n", "0 1 0.25\n"})
    strFile = Replaced(strFile, "\n" + std::string(szPoint),
                       "\n" + std::string(szPoint, std::strlen(szPoint) - 1) + " 128 0 255 128\n");
  const ReaderOutcome z = ReadBytes(u"a.ply", strFile);
  ASSERT_EQ(z.m_strError, "");
  ExpectColour(z.m_zScene.m_vzPart[0].m_vzLevel[0].m_vzFace[0].m_fColour, {kLinearOf128, 0, 1, 128 / 255.0f});
}

TEST(ReadMesh, OnlyAMaterialThatBlendsIsTransparent) {
  for (const char* szMode : {",\n\"alphaMode\":\"OPAQUE\"", ",\n\"alphaMode\":\"MASK\"", ""}) {
    const ReaderOutcome z = ReadBytes(u"a.gltf", Replaced(EmbeddedGltf(), ",\n\"alphaMode\":\"BLEND\"", szMode));
    ASSERT_EQ(z.m_strError, "");
    ExpectColour(z.m_zScene.m_vzPart[0].m_vzLevel[0].m_vzFace[0].m_fColour, {0.5f, 0.25f, 0.125f, 1});
  }
}

TEST(ReadMesh, NamesThatTheSourceDoesNotHaveStayEmptyButForTheRoots) {
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

TEST(ReadMesh, FurtherScenesCamerasAndLightsAreToldToBeLeftOut) {
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

TEST(ReadMesh, TextsOfOtherSystemsAreRead) {
  const std::string strMark = "\xEF\xBB\xBF", strObj = "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n";
  std::string strUpper = TextStl();
  for (char& c : strUpper) c = static_cast<char>(std::toupper(c));
  const std::pair<KivWString, std::string> aCase[] = {
      {u"a.stl", Replaced(TextStl(), "endsolid", "EndSolid")},
      {u"a.stl", strUpper},
      {u"a.stl", strMark + TextStl()},
      {u"a.stl", Replaced(TextStl(), "\n", "\r")},
      {u"a.ply", Replaced(TextPly(), "\n", "\r")},
      {u"a.ply", Replaced(TextPly(), "\n", "\r\n")},
      {u"a.ply", strMark + TextPly()},
      {u"a.ply", Replaced(PlyHead("binary_little_endian"), "\n", "\r") +
                     BinaryPly().substr(PlyHead("binary_little_endian").size())},
      {u"a.obj", strMark + strObj},
      {u"a.obj", Replaced(strObj, "\n", "\r")},
      {u"a.gltf", strMark + EmbeddedGltf()},
  };
  for (const auto& [csName, strFile] : aCase) {
    SCOPED_TRACE(strFile.substr(0, 40));
    const ReaderOutcome z = ReadBytes(csName, strFile);
    ASSERT_EQ(z.m_strError, "");
    EXPECT_FALSE(z.m_zScene.m_vzPart[0].m_vzLevel[0].m_vzFace.empty());
  }
}

TEST(ReadMesh, TheSameFileGivesTheSameScene) {
  const TestFolder zFolder;
  zFolder.WriteBytes(u"a.glb", Glb());
  EXPECT_EQ(KivWriteScene(ReadMesh(zFolder / u"a.glb").m_zScene), KivWriteScene(ReadMesh(zFolder / u"a.glb").m_zScene));
}

// --- What is refused
// --------------------------------------------------------------------------------------------------

TEST(ReadMesh, WhatIsNoFileOfItsKindIsRefusedWithAReason) {
  const TestFolder zFolder;
  EXPECT_EQ(ReadMesh(zFolder / u"missing.stl").m_strError, "it does not exist");
  zFolder.WriteBytes(u"empty.obj", "");
  EXPECT_EQ(ReadMesh(zFolder / u"empty.obj").m_strError, "it is empty");
  ASSERT_TRUE(sys::MakeFolder(zFolder / u"folder.ply"));
  EXPECT_EQ(ReadMesh(zFolder / u"folder.ply").m_strError, "it is a folder");
  sys::RemoveFolder(zFolder / u"folder.ply");
  for (const KivWString csName : {u"a.step", u"a", u"a.stl.txt", u"stl"})
    EXPECT_TRUE(HasText(ReadBytes(csName, BinaryStl()).m_strError, "the reader does not know the format '"))
        << csName.size();
}

TEST(ReadMesh, AFileOfAnotherKindThanItsNameSaysIsRefused) {
  EXPECT_NE(ReadBytes(u"a.stl", "\xFF\xD8\xFF\xE0" + std::string(100, 'x')).m_strError, "");
  EXPECT_EQ(ReadBytes(u"a.ply", BinaryStl()).m_strError, "it is no PLY file");
  EXPECT_EQ(ReadBytes(u"a.obj", BinaryStl()).m_strError, "it is no OBJ file");
  EXPECT_NE(ReadBytes(u"a.stl", TextPly()).m_strError, "");
  EXPECT_TRUE(HasText(ReadBytes(u"a.glb", BinaryStl()).m_strError, "it is no readable GLB file"));
  EXPECT_TRUE(HasText(ReadBytes(u"a.gltf", "{}").m_strError, "it is no readable glTF file"));
  EXPECT_TRUE(HasText(ReadBytes(u"a.gltf", Glb()).m_strError, "it is no readable glTF file"));
}

TEST(ReadMesh, RandomBytesAreRefused) {
  std::mt19937 zRandom(1);
  for (const KivWString csName : {u"a.stl", u"a.obj", u"a.ply", u"a.gltf", u"a.glb"}) {
    std::string strBytes(3000, '\0');
    for (char& c : strBytes) c = static_cast<char>(zRandom());
    EXPECT_NE(ReadBytes(csName, strBytes).m_strError, "");
  }
}

// But for a text that loses the end of its last line.
TEST(ReadMesh, ACutFileIsRefused) {
  struct Case {
    KivWString m_csName;
    std::string m_strFile;
    size_t m_nFirst;  // the shortest cut
  };
  const Case aCases[] = {
      {u"a.stl", BinaryStl(), 1},     {u"a.stl", TextStl().substr(0, TextStl().find("solid lid")), 8},
      {u"a.ply", TextPly(), 2},       {u"a.ply", BinaryPly(), 1},
      {u"a.gltf", EmbeddedGltf(), 1}, {u"a.glb", Glb(), 1}};
  const size_t nCuts = Scaled(12, 2);
  for (const Case& z : aCases)
    for (size_t i = 0; i < nCuts; ++i) {
      const size_t nCut = z.m_nFirst + i * (z.m_strFile.size() - z.m_nFirst - 1) / nCuts;
      EXPECT_NE(ReadBytes(z.m_csName, z.m_strFile.substr(0, z.m_strFile.size() - nCut)).m_strError, "")
          << z.m_strFile.substr(0, 20) << " without its last " << nCut;
    }
}

// A text without an end mark: what is left may be a whole one.
TEST(ReadMesh, ACutObjIsASoundSceneOrAReason) {
  const size_t nCuts = Scaled(20, 2);
  for (size_t i = 1; i < nCuts; ++i) ReadBytes(u"a.obj", Obj().substr(0, i * Obj().size() / nCuts));
}

TEST(ReadMesh, CoordinatesThatAreNoNumbersAreRefused) {
  for (const float f : {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity()}) {
    EXPECT_EQ(ReadBytes(u"a.stl", BinaryStl({0, 0, 0, 1, f, 0, 1, 1, 0, 0, 1, 0})).m_strError,
              "a coordinate is no number");
    EXPECT_EQ(ReadBytes(u"a.ply", BinaryPly({0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, f})).m_strError,
              "a coordinate is no number");
  }
}

TEST(ReadMesh, FacesThatNameNoVertexAreRefused) {
  for (const char* szFace : {"3 0 2 4", "3 0 1 -1", "5 0 1 2 3 4", "3 0 1 4294967295"})
    EXPECT_EQ(ReadBytes(u"a.ply", TextPly(szFace)).m_strError, "a face names a vertex that does not exist") << szFace;
  EXPECT_EQ(ReadBytes(u"a.ply", TextPly("2 0 1")).m_strError,
            "a face has fewer than three corners: the file is cut or damaged");
  for (const char* szIndex : {"9", "0", "-9", "99999999999"})
    EXPECT_NE(ReadBytes(u"a.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 " + std::string(szIndex) + "\n").m_strError, "")
        << szIndex;
}

TEST(ReadMesh, CountsBeyondTheFileAreRefusedBeforeMemoryIsTaken) {
  EXPECT_TRUE(HasText(ReadBytes(u"a.ply", PlyHead("ascii", "4000000000") + "0 0 0\n").m_strError, "the file is cut"));
  EXPECT_TRUE(HasText(ReadBytes(u"a.ply", PlyHead("ascii", "3", "99999999999999999999") + "0 0 0\n").m_strError,
                      "the file is cut"));
  std::string strStl = BinaryStl();
  for (size_t i = 80; i < 84; ++i) strStl[i] = '\xFF';
  EXPECT_TRUE(HasText(ReadBytes(u"a.stl", strStl).m_strError, "the file is cut, or no STL file"));
  EXPECT_NE(ReadBytes(u"a.gltf", Gltf("data:application/octet-stream;base64," + Base64(GltfBuffer()), "4000000000"))
                .m_strError,
            "");
}

TEST(ReadMesh, ABinaryListIsComparedWithTheBytesThatAreLeft) {
  const ReaderOutcome z = ReadBytes(u"a.ply", PlyWithList(3));
  ASSERT_EQ(z.m_strError, "");
  EXPECT_EQ(z.m_zScene.m_vzPart[0].m_vzLevel[0].m_vzFace[0].m_viIndex, (std::vector<uint32_t>{0, 1, 2}));
  for (const uint32_t nCount : {4u, 60000000u, 0x3FFFFFFFu, 0x80000000u, 0xFFFFFFFFu})
    EXPECT_EQ(ReadBytes(u"a.ply", PlyWithList(nCount)).m_strError,
              "the file is cut: its header announces more than it holds")
        << nCount;
}

namespace {

// A polygon in a circle, nFaces times.
std::string PolygonObj(int nCorners, int nFaces) {
  std::string strFile, strFace = "f";
  for (int i = 0; i < nCorners; ++i) {
    const double dAngle = 6.283185307179586 * i / nCorners;
    strFile += "v " + std::to_string(std::cos(dAngle)) + ' ' + std::to_string(std::sin(dAngle)) + " 0\n";
    strFace += ' ' + std::to_string(i + 1);
  }
  for (int i = 0; i < nFaces; ++i) strFile += strFace + '\n';
  return strFile;
}

}  // namespace

TEST(ReadMesh, APolygonOfMoreThanFiveThousandCornersIsRefused) {
  EXPECT_EQ(ReadBytes(u"a.obj", PolygonObj(5001, 1)).m_strError, "a face has more than 5000 corners");
  EXPECT_EQ(ReadBytes(u"a.obj", PolygonObj(5000, 11)).m_strError, "too many faces have more than 500 corners");
  const ReaderOutcome z = ReadBytes(u"a.obj", PolygonObj(2000, 1));
  ASSERT_EQ(z.m_strError, "");
  EXPECT_EQ(z.m_zScene.m_vzPart[0].m_vzLevel[0].m_vzFace[0].m_viIndex.size(), 3u * 1998);
}

TEST(ReadMesh, AFaceOfAnObjWithTwoCornersIsRefused) {
  for (const char* szFace : {"f 1 2", "f 2/1/1 3/1/1 # 4", "f 1 2 \\\n", "f"})
    EXPECT_EQ(ReadBytes(u"a.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n" + std::string(szFace) + "\n").m_strError,
              "a face has fewer than three corners: the file is cut or damaged")
        << szFace;
  EXPECT_EQ(ReadBytes(u"a.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 \\\n 3\n").m_strError, "");
}

TEST(ReadMesh, AnEntryOfATextPlyStandsOnALineOfItsOwn) {
  const std::string strMore = "a line of it has more numbers than its header announces",
                    strCut = "the file is cut: its header announces more than it holds";
  EXPECT_EQ(ReadBytes(u"a.ply", PlyHead("ascii", "4", "1") + "0 0 0 1 0 0\n1 1 0\n0 1 0\n3 0 1 2\n").m_strError,
            strMore);
  EXPECT_EQ(ReadBytes(u"a.ply", TextPly("3 0 1 2 3 0 2 3")).m_strError, strMore);
  EXPECT_EQ(ReadBytes(u"a.ply", TextPly("3 0 1 2 0 0 0 0")).m_strError, strMore);
  EXPECT_EQ(ReadBytes(u"a.ply", TextPly("3 0 1\n2")).m_strError, strCut);
  EXPECT_EQ(ReadBytes(u"a.ply", TextPly("3 0 1 2 \t") + "\n").m_strError, "");
  const ReaderOutcome z = ReadBytes(u"a.ply", TextPly("\n3 0 1 2"));
  ASSERT_EQ(z.m_strError, "");
  EXPECT_EQ(z.m_zScene.m_vzPart[0].m_vzLevel[0].m_vzFace[0].m_viIndex, (std::vector<uint32_t>{0, 1, 2, 0, 1, 2}));
}

TEST(ReadMesh, CountsAndIndicesOfATextPlyAreWholeNumbers) {
  for (const char* szFace : {"3 0 2 x", "3 0 2 2.9", "3 0 2 4294967298", "3.0 0 2 3", "3.5 0 2 3", "3, 0, 2, 3"})
    EXPECT_EQ(ReadBytes(u"a.ply", TextPly(szFace)).m_strError, "a count or index of it is no whole number of 32 bits")
        << szFace;
  EXPECT_EQ(ReadBytes(u"a.ply", TextPly("-3 0 2 3")).m_strError, "a list of it has a count below 0");
}

TEST(ReadMesh, APlyWhoseHeaderLacksPlacesOrTypesIsRefused) {
  const std::string strFile = TextPly();
  for (const char* szTo : {"property float w", "property list uchar float x"})
    EXPECT_EQ(ReadBytes(u"a.ply", Replaced(strFile, "property float x", szTo)).m_strError,
              "its header is damaged: a vertex has not one x, y and z each")
        << szTo;
  EXPECT_EQ(ReadBytes(u"a.ply", Replaced(strFile, "property float x", "property real x")).m_strError,
            "its header is damaged: a property has no type that is known");
}

TEST(ReadMesh, NodesOfAGltfThatAreNoShallowTreesAreRefused) {
  EXPECT_EQ(ReadBytes(u"a.gltf", ChainGltf(2, "#")).m_strError, "");
  EXPECT_EQ(ReadBytes(u"a.gltf", ChainGltf(900, "#")).m_strError, "");
  EXPECT_EQ(ReadBytes(u"a.gltf", ChainGltf(100000, "#")).m_strError, "its nodes are nested too deeply");
  EXPECT_EQ(ReadBytes(u"a.gltf", ChainGltf(30, "#,#")).m_strError, "a node stands below more than one other");
  EXPECT_EQ(ReadBytes(u"a.gltf", ChainGltf(2, "0")).m_strError, "a node stands below more than one other");
  EXPECT_EQ(ReadBytes(u"a.gltf", Replaced(ChainGltf(2, "0"), "[{\"nodes\":[0]}]", "[{\"nodes\":[1]}]")).m_strError,
            "a node stands below itself");
  EXPECT_EQ(ReadBytes(u"a.gltf", "{\"asset\":" + std::string(100000, '[')).m_strError, "its JSON is nested too deeply");
}

TEST(ReadMesh, ASmallSourceThatAsksForMoreMemoryThanTheBoundIsRefusedForIt) {
  if (!sys::CanLimitMemory()) GTEST_SKIP() << "no bound in builds with sanitizers and under Wine";
  EXPECT_EQ(ReadBytes(u"a.gltf", SparseGltf("400000000")).m_strError, "there is not enough memory to read it");
}

TEST(ReadMesh, AFileWithoutTrianglesAndLinesIsRefused) {
  EXPECT_EQ(ReadBytes(u"a.ply", PlyHead("ascii", "1", "0") + "0 0 0\n").m_strError,
            "it holds no triangles and no lines");
}

TEST(ReadMesh, AGltfWhoseBufferIsMissingOrElsewhereIsRefused) {
  const TestFolder zFolder;
  zFolder.WriteBytes(u"b.bin", GltfBuffer());
  EXPECT_TRUE(HasText(ReadBytes(u"a.gltf", Gltf("b.bin")).m_strError, "it is no readable glTF file"));
  EXPECT_TRUE(HasText(ReadBytes(u"a.gltf", Gltf(sys::WideToUtf8(zFolder / u"b.bin"))).m_strError,
                      "it is no readable glTF file"));
}

// --- What a glTF says of its numbers
// ------------------------------------------------------------------------------------

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

}  // namespace

TEST(ReadMesh, AGltfWithAnIndexBeyondItsCornersIsRefused) {
  // Two triangles, of which the second one has it.
  std::string strBuffer = GltfBuffer().substr(0, 78);
  for (const uint16_t i : {0, 1, 3}) AddRaw<uint16_t>(strBuffer, i);
  const std::string strFile = Gltf("data:application/octet-stream;base64," + Base64(strBuffer), "6");
  EXPECT_EQ(ReadBytes(u"a.gltf", Replaced(Replaced(strFile, "\"byteLength\":6", "\"byteLength\":12"),
                                          "\"byteLength\":80", "\"byteLength\":84"))
                .m_strError,
            "a face names a vertex that does not exist");
}

TEST(ReadMesh, CornersOfAGltfThatMakeNoWholeTriangleAreAWarning) {
  const ReaderOutcome z =
      ReadBytes(u"a.gltf", Replaced(Replaced(EmbeddedGltf(), "5123,\"count\":3", "5123,\"count\":4"),
                                    "\"byteLength\":6", "\"byteLength\":8"));
  ASSERT_EQ(z.m_strError, "");
  EXPECT_TRUE(Warns(z.m_zScene, "vertices that make no whole triangle or line are left out"));
}

TEST(ReadMesh, ExtensionsThatAGltfNeedsAreReadOrTheReason) {
  for (const char* szKnown : {"KHR_materials_unlit", "KHR_texture_transform"})
    EXPECT_EQ(ReadBytes(u"a.gltf", Replaced(EmbeddedGltf(), "\"scene\":0",
                                            "\"scene\":0,\"extensionsRequired\":[\"" + std::string(szKnown) + "\"]"))
                  .m_strError,
              "");
  ExpectRefused(EmbeddedGltf(), {{"\"scene\":0", "\"scene\":0,\"extensionsRequired\":[\"KHR_mesh_quantization\"]",
                                  "it needs the extension 'KHR_mesh_quantization', which is not read"}});
}

TEST(ReadMesh, NumbersOfAGltfThatAreOfAnotherKindOrElsewhereAreRefused) {
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

TEST(ReadMesh, RootsChildrenAndPlacementsOfAGltfThatAreNoneAreRefused) {
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
TEST(ReadMesh, SkeletonsAndMovementsOfAGltfAreLeftOutWhateverTheySay) {
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

TEST(ReadMesh, AGlbWithoutItsMovementsKeepsItsBytes) {
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

TEST(ReadMesh, ViewsNamesAndFormsOfAGltfThatTheLibraryBelievesAreRefusedOrLeftOut) {
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

TEST(ReadMesh, AColourOfThreeNumbersOfAGltfIsOpaque) {
  // The buffer's first three numbers stand for one colour of all corners.
  const std::string strFile =
      Replaced(Replaced(EmbeddedGltf(), "{\"POSITION\":0},", "{\"POSITION\":0,\"COLOR_0\":1},"), ",\"material\":0", "");
  const ReaderOutcome z = ReadBytes(u"a.gltf", strFile);
  ASSERT_EQ(z.m_strError, "");
  const std::vector<KivSceneFace>& vzFace = z.m_zScene.m_vzPart[0].m_vzLevel[0].m_vzFace;
  ASSERT_EQ(vzFace.size(), 2u);
  ExpectColour(vzFace[1].m_fColour, {0, 0, 1, 1});
}

TEST(ReadMesh, TwoElementsOfOneKindAndStripsOfAPlyAreRefused) {
  for (const char* szMore : {"element face 5\nproperty list uchar int vertex_indices\n",
                             "element tristrips 5\nproperty list uchar int vertex_indices\n",
                             "element vertex 5\nproperty float x\nproperty float y\nproperty float z\n"}) {
    std::string strFile = TextPly();
    strFile.insert(strFile.find("end_header"), szMore);
    for (int i = 0; i < 5; ++i) strFile += "3 0 1\n";
    EXPECT_EQ(ReadBytes(u"a.ply", strFile).m_strError,
              "its header is damaged: it has more than one element of vertices or of faces")
        << szMore;
  }
  EXPECT_EQ(ReadBytes(u"a.ply", Replaced(TextPly(), "element face", "element tristrips")).m_strError,
            "strips of triangles in a PLY are not read");
}

TEST(ReadMesh, PlacesInPicturesOfAPlyAreThoseOfItsCorners) {
  const auto Read = [](const std::string& strFace) {
    std::string strFile = TextPly(strFace);
    strFile.insert(strFile.find("end_header"), "property list uchar float texcoord\n");
    return ReadBytes(u"a.ply", Replaced(strFile, "3 0 1 2\n", "3 0 1 2 0\n"));
  };
  EXPECT_EQ(Read("3 0 2 3 6 0 0 1 0 1 1").m_strError, "");
  EXPECT_EQ(Read("3 0 2 3 8 0 0 1 0 1 1 0 1").m_strError, "a face has more places in pictures than corners");
  EXPECT_EQ(Read("0 6 0 0 1 0 1 1").m_strError, "a face has more places in pictures than corners");
}

TEST(ReadMesh, ABinaryPlyMayBeginWithAnyByte) {
  for (const char c : {'\n', '\r', ' ', '\t', '\0'}) {
    float fFirst = 0;
    const char acBytes[] = {c, '\n', 0, 0x3F};
    std::memcpy(&fFirst, acBytes, sizeof fFirst);
    const ReaderOutcome z = ReadBytes(u"a.ply", BinaryPly({fFirst, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0.25f}));
    ASSERT_EQ(z.m_strError, "") << static_cast<int>(c);
    EXPECT_EQ(z.m_zScene.m_vzPart[0].m_vzLevel[0].m_vzFace[0].m_vdVertex[0], static_cast<double>(fFirst));
  }
}

TEST(ReadMesh, AVertexOfAnObjHasThreeFourOrSixNumbers) {
  const auto Error = [](const std::string& strVertex) {
    return ReadBytes(u"a.obj", "v 0 0 0\n" + strVertex + "\nv 1 0 0\nv 0 1 0\nf 1 2 3\n").m_strError;
  };
  for (const char* szGood : {"v 5 5 5", "v +5 -5. .5e1 1", "v 5 5 5 0.5 0.5 0.5 # x y", "v 5 \\\n 5 5"})
    EXPECT_EQ(Error(szGood), "") << szGood;
  for (const char* szBad : {"v 5 5", "v abc 5 5", "v 5 5 5 7 7", "v 5 5 5 1 1 1 1", "v 1.#IND 5 5", "v"})
    EXPECT_EQ(Error(szBad), "a vertex has not three, four or six numbers") << szBad;
}

TEST(ReadMesh, ACommentOfAnObjEndsWithItsLine) {
  const ReaderOutcome z = ReadBytes(u"a.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nv 1 1 0\nf 1 2 3\n# C:\\x\\\nf 2 4 3\n#\\");
  ASSERT_EQ(z.m_strError, "");
  EXPECT_EQ(z.m_zScene.m_vzPart[0].m_vzLevel[0].m_vzFace[0].m_viIndex.size(), 6u);
}

TEST(ReadMesh, BytesBehindABinaryStlArePassed) {
  EXPECT_EQ(KivWriteScene(ReadBytes(u"a.stl", BinaryStl() + "more").m_zScene),
            KivWriteScene(ReadBytes(u"a.stl", BinaryStl()).m_zScene));
}

TEST(ReadMesh, ManyNodesWithoutNamesInALongFileHaveNone) {
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
  EXPECT_EQ(z.m_zScene.m_vzNode[8].m_csName, u"nodes[7]") << "the source has it";
}

TEST(ReadMesh, NumbersOfAGltfThatAreGivenAnewAreHeldAgainstTheirViews) {
  const std::string strFile = Replaced(SparseGltf("3"), "\"count\":1,", "\"count\":1 ,");
  EXPECT_EQ(ReadBytes(u"a.gltf", strFile).m_strError, "");
  ExpectRefused(strFile, {{"\"count\":1 ,", "\"count\":2,", kBehind},
                          {"\"count\":1 ,", "\"count\":4294967295,", kBehind},
                          {"\"values\":{\"bufferView\":1}", "\"values\":{\"bufferView\":0}", kBehind},
                          {"\"values\":{\"bufferView\":1}", "\"values\":{\"bufferView\":1,\"byteOffset\":4}", kBehind},
                          {"\"values\":{\"bufferView\":1}", "\"values\":{}", "stand nowhere"},
                          {"\"values\":{\"bufferView\":1}", "\"values\":1", "stand nowhere"}});
}

TEST(ReadMesh, NumbersOfAGltfOfTheFirstVersionThatAreElsewhereAreRefused) {
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

TEST(ReadMesh, NodesOfAGltfOfTheFirstVersionThatAreNoTreesAreRefused) {
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

TEST(ReadMesh, AReasonIsCutToALengthThatCanBeRead) {
  const std::string strFile = Replaced(TextStl(), "vertex 1 0 0", "vertex x" + std::string(4000, 'y') + " 0 0");
  const std::string strError = ReadBytes(u"a.stl", strFile).m_strError;
  EXPECT_NE(strError, "");
  EXPECT_LT(strError.size(), 400u);
}
