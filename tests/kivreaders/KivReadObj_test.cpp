#include <gtest/gtest.h>

#include <cmath>

#include "KivReadMeshTest.h"
#include "KivTestScale.h"

using namespace kiv;
using namespace kivtest;

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

TEST(ReadObj, AnObjKeepsObjectsColoursNormalsAndLines) {
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

TEST(ReadObj, AListOfMaterialsMayStandInAFolderBelow) {
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

TEST(ReadObj, AListOfMaterialsThatIsMissingOrElsewhereIsAWarning) {
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

TEST(ReadObj, AListOfMaterialsThatIsNoneIsAWarning) {
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

TEST(ReadObj, ACutListOfMaterialsIsAShorterOneOrAWarning) {
  const TestFolder zFolder;
  zFolder.WriteBytes(u"thing.obj", Obj());
  const std::string strList = Mtl();
  for (size_t i = 1; i < strList.size(); i += Scaled(3, 11)) {
    zFolder.WriteBytes(u"colours.mtl", strList.substr(0, i));
    EXPECT_EQ(ReadMesh(zFolder / u"thing.obj").m_strError, "") << i;
  }
}

TEST(ReadObj, StatementsOfAListOfMaterialsThatSayNothingOfColoursArePassed) {
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

TEST(ReadObj, LinesThatDoNotFollowEachOtherAreTwo) {
  const ReaderOutcome z = ReadBytes(u"a.obj", "v 0 0 0\nv 1 0 0\nv 2 0 0\nv 3 0 0\nl 1 2\nl 3 4\n");
  ASSERT_EQ(z.m_strError, "");
  EXPECT_EQ(z.m_zScene.m_vzPart[0].m_vzLevel[0].m_vzEdge.size(), 2u);
}

// A text without an end mark: what is left may be a whole one.
TEST(ReadObj, ACutObjIsASoundSceneOrAReason) {
  const size_t nCuts = Scaled(20, 2);
  for (size_t i = 1; i < nCuts; ++i) ReadBytes(u"a.obj", Obj().substr(0, i * Obj().size() / nCuts));
}

TEST(ReadObj, ConcavePolygonsAreCutIntoTrianglesAndCrossedOnesAreAWarning) {
  const ReaderOutcome z = ReadBytes(u"a.obj", PolygonObj(5000, 2));
  ASSERT_EQ(z.m_strError, "");
  EXPECT_EQ(z.m_zScene.m_vzPart[0].m_vzLevel[0].m_vzFace[0].m_viIndex.size(), 3u * 2 * 4998);
  // A T, whose corners stand on one line across its stem.
  const std::string strT = "v 0 0 2\nv 0 0 3\nv 3 0 3\nv 3 0 2\nv 2 0 2\nv 2 0 0\nv 1 0 0\nv 1 0 2\n";
  const ReaderOutcome zT = ReadBytes(u"a.obj", strT + "f 1 2 3 4 5 6 7 8\n");
  ASSERT_EQ(zT.m_strError, "");
  EXPECT_TRUE(zT.m_zScene.m_vstrWarning.empty());
  const KivSceneFace& zFace = zT.m_zScene.m_vzPart[0].m_vzLevel[0].m_vzFace[0];
  ASSERT_EQ(zFace.m_viIndex.size(), 18u);
  double dArea = 0;
  for (size_t i = 0; i < 6; ++i) {
    const Point zA = Corner(zFace, i, 0), zB = Corner(zFace, i, 1), zC = Corner(zFace, i, 2);
    dArea += std::abs((zB[0] - zA[0]) * (zC[2] - zA[2]) - (zB[2] - zA[2]) * (zC[0] - zA[0])) / 2;
  }
  EXPECT_DOUBLE_EQ(dArea, 5);
  EXPECT_TRUE(Warns(ReadBytes(u"a.obj", strT + "f 1 2 3 4\nf 1 3 2 4\n").m_zScene, "1 polygons cross themselves"));
}

TEST(ReadObj, AFaceOfAnObjWithTwoCornersIsRefused) {
  for (const char* szFace : {"f 1 2", "f 2/1/1 3/1/1 # 4", "f 1 2 \\\n", "f"})
    EXPECT_EQ(ReadBytes(u"a.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n" + std::string(szFace) + "\n").m_strError,
              "a face has fewer than three corners: the file is cut or damaged")
        << szFace;
  EXPECT_EQ(ReadBytes(u"a.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 \\\n 3\n").m_strError, "");
}

TEST(ReadObj, AVertexOfAnObjHasThreeFourOrSixNumbers) {
  const auto Error = [](const std::string& strVertex) {
    return ReadBytes(u"a.obj", "v 0 0 0\n" + strVertex + "\nv 1 0 0\nv 0 1 0\nf 1 2 3\n").m_strError;
  };
  for (const char* szGood : {"v 5 5 5", "v +5 -5. .5e1 1", "v 5 5 5 0.5 0.5 0.5 # x y", "v 5 \\\n 5 5"})
    EXPECT_EQ(Error(szGood), "") << szGood;
  for (const char* szBad : {"v 5 5", "v abc 5 5", "v 5 5 5 7 7", "v 5 5 5 1 1 1 1", "v 1.#IND 5 5", "v"})
    EXPECT_EQ(Error(szBad), "a vertex has not three, four or six numbers") << szBad;
}

TEST(ReadObj, ACommentOfAnObjEndsWithItsLine) {
  const ReaderOutcome z = ReadBytes(u"a.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nv 1 1 0\nf 1 2 3\n# C:\\x\\\nf 2 4 3\n#\\");
  ASSERT_EQ(z.m_strError, "");
  EXPECT_EQ(z.m_zScene.m_vzPart[0].m_vzLevel[0].m_vzFace[0].m_viIndex.size(), 6u);
}

TEST(ReadObj, AMaterialThatNoListGivesAColourHasNone) {
  const TestFolder zFolder;
  zFolder.WriteBytes(u"thing.obj", Obj());
  for (const char* szList :
       {"newmtl glass\nKd 0 0 1\n", "newmtl red\nNs 10\nnewmtl glass\nKd 0 0 1 # blue\nd 0.5 #half\n"}) {
    zFolder.WriteBytes(u"colours.mtl", szList);
    const ReaderOutcome z = ReadMesh(zFolder / u"thing.obj");
    ASSERT_EQ(z.m_strError, "") << szList;
    EXPECT_FALSE(z.m_zScene.m_vzPart[0].m_vzLevel[0].m_vzFace[0].m_fColour.has_value()) << szList;
    ASSERT_TRUE(z.m_zScene.m_vzPart[1].m_vzLevel[0].m_vzEdge[0].m_fColour.has_value()) << szList;
    EXPECT_EQ((*z.m_zScene.m_vzPart[1].m_vzLevel[0].m_vzEdge[0].m_fColour)[2], 1) << szList;
    EXPECT_TRUE(z.m_zScene.m_vstrWarning.empty()) << szList;
  }
}

TEST(ReadObj, NormalsThatFacesOfAnObjNameAndThatAreNotThereAreAWarning) {
  const std::string strPlaces = "v 0 0 0\nv 1 0 0\nv 0 1 0\n", strWarning = "faces name normals that do not exist";
  for (const char* szFace :
       {"f 1//1 2//1 3//1", "f 1/1/9 2/1/9 3/1/9", "vn 0 0 1\nf 1//1 2//1 3//2", "f 1//-1 2//-1 3//-1\nvn 0 0 1"}) {
    const ReaderOutcome z = ReadBytes(u"a.obj", strPlaces + szFace + "\n");
    ASSERT_EQ(z.m_strError, "") << szFace;
    EXPECT_TRUE(Warns(z.m_zScene, strWarning)) << szFace;
  }
  for (const char* szFace : {"f 1 2 3", "f 1/1 2/1 3/1", "f 1// 2// 3//", "vn 0 0 1\nf 1//1 2//1 3//1",
                             "vn 0 0 1\nf 1//-1 2//-1 3//1", "f 1//1 2//1 3//1\nvn 0 0 1"})
    EXPECT_FALSE(Warns(ReadBytes(u"a.obj", strPlaces + szFace + "\n").m_zScene, strWarning)) << szFace;
}
