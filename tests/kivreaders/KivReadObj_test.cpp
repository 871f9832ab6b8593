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

const std::string kPlaces = "v 0 0 0\nv 1 0 0\nv 0 1 0\nv 0 0 1\n";

// Names of the parts.
std::vector<KivWString> PartNames(const KivScene& zScene) {
  std::vector<KivWString> vcsName;
  for (const KivScenePart& z : zScene.m_vzPart) vcsName.push_back(z.m_csName);
  return vcsName;
}
const std::optional<KivColour>& FaceColour(const KivScene& zScene, size_t iPart, size_t iFace = 0) {
  return zScene.m_vzPart.at(iPart).m_vzLevel.at(0).m_vzFace.at(iFace).m_fColour;
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
  for (const char* szWeight : {"v 5 5 5 0", "v 5 5 5 -0.0", "v 5 5 5 0e7"})
    EXPECT_EQ(Error(szWeight), "a vertex has a weight of 0") << szWeight;
  EXPECT_EQ(Error("v 5 5 5 1e999"), "a coordinate is no number");
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

TEST(ReadObj, NumbersMayBeginWithAPointOrAPlus) {
  const ReaderOutcome z =
      ReadBytes(u"a.obj", "v 9 9 9\nv .5 +.25 -.5\nv 1 1e0 1000000000000000000000e-21\nv +0 -0. 2.5E+0\nf 2 3 4\n");
  ASSERT_EQ(z.m_strError, "");
  EXPECT_EQ(z.m_zScene.m_vzPart[0].m_vzLevel[0].m_vzFace[0].m_vdVertex,
            (std::vector<double>{0.5, 0.25, -0.5, 1, 1, 1, 0, 0, 2.5}));
  EXPECT_EQ(ReadBytes(u"a.obj", "v 0 0 1e-400\n" + kPlaces + "f 2 3 4\n").m_strError, "");
  for (const char* szNumber : {"nan", "inf", "1e400"})
    EXPECT_EQ(ReadBytes(u"a.obj", "v 0 0 " + std::string(szNumber) + "\n" + kPlaces + "f 2 3 4\n").m_strError,
              "a coordinate is no number");
}

TEST(ReadObj, StatementsMayStandBehindBlanksAndBeforeComments) {
  const ReaderOutcome z =
      ReadBytes(u"a.obj",
                " v 0 0 0 # one\n\tv 1 0 0 #two\n v 0 1 0\n  v 0 0 1\n\to A # first\n  f 1 2 3 # c\n"
                "\to B\n\tf\t1  2\t4 #c\n f 1 2 \\  \n\n");
  EXPECT_EQ(z.m_strError, "a face has fewer than three corners: the file is cut or damaged");
  const ReaderOutcome zGood = ReadBytes(u"a.obj",
                                        " v 0 0 0 # one\n\tv 1 0 0 #two\n v 0 1 0\n  v 0 0 1\n\to A # first\n"
                                        "  f 1 2 3 # c\n\to B\n\tf\t1  2\t4 #c\n  f 1 \\\n 3 4\\\n\nf 2 3 4");
  ASSERT_EQ(zGood.m_strError, "");
  EXPECT_EQ(PartNames(zGood.m_zScene), (std::vector<KivWString>{u"A", u"B"}));
  EXPECT_EQ(zGood.m_zScene.m_vzPart[0].m_vzLevel[0].m_vzFace[0].m_viIndex.size(), 3u);
  EXPECT_EQ(zGood.m_zScene.m_vzPart[1].m_vzLevel[0].m_vzFace[0].m_viIndex.size(), 9u);
}

TEST(ReadObj, IndicesBelowZeroCountBackFromTheirFace) {
  const ReaderOutcome z = ReadBytes(u"a.obj", kPlaces + "vn 0 0 1\nf -4//-1 -3/7/-1 -2//1\nv 5 5 5\nf -1 -3 -2\n");
  ASSERT_EQ(z.m_strError, "");
  const KivSceneFace& zFace = z.m_zScene.m_vzPart[0].m_vzLevel[0].m_vzFace[0];
  EXPECT_EQ(Corner(zFace, 0, 1), (Point{1, 0, 0}));
  EXPECT_EQ(Corner(zFace, 1, 0), (Point{5, 5, 5}));
  for (const char* szFace : {"f -5 -3 -2", "f 1 2 0", "f 1 2 5", "f 1 2 99999999999999999999"})
    EXPECT_EQ(ReadBytes(u"a.obj", kPlaces + szFace).m_strError, "a face names a vertex that does not exist") << szFace;
  for (const char* szFace : {"f 1 2 x", "f 1 2 3/x", "f 1 2 3/1/1/1", "f 1 2 3.5"})
    EXPECT_EQ(ReadBytes(u"a.obj", kPlaces + szFace).m_strError, "a corner of a face is no number") << szFace;
}

TEST(ReadObj, NamesWithBlanksAreKeptWhole) {
  for (const char* szKind : {"o", "g"}) {
    const std::string strKind = szKind;
    const ReaderOutcome z =
        ReadBytes(u"a.obj", kPlaces + strKind + " Body 1\nf 1 2 3\n" + strKind + " Body #2\nf 1 2 4\n" + strKind +
                                "  C:\\x\\ y \nf 1 3 4\n" + strKind + " a \\\nb # c\nf 2 3 4\n");
    ASSERT_EQ(z.m_strError, "");
    EXPECT_EQ(PartNames(z.m_zScene), (std::vector<KivWString>{u"Body 1", u"Body #2", u"C:\\x\\ y", u"a b"})) << szKind;
    EXPECT_TRUE(z.m_zScene.m_vstrWarning.empty());
  }
  const ReaderOutcome z = ReadBytes(u"a.obj", kPlaces + "o " + std::string(2000, 'x') + "\nf 1 2 3\n");
  ASSERT_EQ(z.m_strError, "");
  EXPECT_EQ(PartNames(z.m_zScene), (std::vector<KivWString>{KivWString(960, u'x')}));
}

TEST(ReadObj, AnObjectThatComesAgainIsOneOfItsOwn) {
  const ReaderOutcome z = ReadBytes(u"a.obj", kPlaces + "o A\nf 1 2 3\no B\nf 1 2 4\no A\nf 1 3 4\no A\nf 2 3 4\n");
  ASSERT_EQ(z.m_strError, "");
  EXPECT_EQ(PartNames(z.m_zScene), (std::vector<KivWString>{u"A", u"B", u"A"}));
  EXPECT_EQ(z.m_zScene.m_vzPart[2].m_vzLevel[0].m_vzFace[0].m_viIndex.size(), 6u);
}

TEST(ReadObj, MaterialsMayHaveNamesWithBlanksAndThatOfTheLibrarysOwn) {
  const TestFolder zFolder;
  zFolder.WriteBytes(u"a.mtl",
                     "newmtl red paint\nKd 1 0 0\nnewmtl red\nKd 0 0 1\nnewmtl DefaultMaterial # own\nKd 0 1 0\n");
  zFolder.WriteBytes(u"a.obj", "mtllib a.mtl\n" + kPlaces +
                                   "o A\nusemtl red paint\nf 1 2 3\no B\nusemtl DefaultMaterial\nf 1 2 4\n"
                                   "o C\nusemtl red # c\nf 1 3 4\n");
  const ReaderOutcome z = ReadMesh(zFolder / u"a.obj");
  ASSERT_EQ(z.m_strError, "");
  ExpectColour(FaceColour(z.m_zScene, 0), {1, 0, 0, 1});
  ExpectColour(FaceColour(z.m_zScene, 1), {0, 1, 0, 1});
  ExpectColour(FaceColour(z.m_zScene, 2), {0, 0, 1, 1});
}

TEST(ReadObj, FacesWithoutAMaterialHaveNoColour) {
  const TestFolder zFolder;
  zFolder.WriteBytes(u"a.mtl", "newmtl red\nKd 1 0 0\nnewmtl clear\nd 0.5\nnewmtl blue\nKd 0 0 1\n");
  zFolder.WriteBytes(u"a.obj", "mtllib a.mtl\n" + kPlaces +
                                   "o A\nf 1 2 3\no B\nf 1 2 4\nusemtl red\nf 1 3 4\nusemtl clear\nf 2 3 4\n"
                                   "o C\nusemtl green\nf 1 2 3\nusemtl\nf 1 2 4\no D\nusemtl red\nf 2 3 4\n");
  const ReaderOutcome z = ReadMesh(zFolder / u"a.obj");
  ASSERT_EQ(z.m_strError, "");
  ASSERT_EQ(z.m_zScene.m_vzPart.size(), 4u);
  EXPECT_FALSE(FaceColour(z.m_zScene, 0).has_value());
  EXPECT_FALSE(FaceColour(z.m_zScene, 1, 0).has_value());
  ExpectColour(FaceColour(z.m_zScene, 1, 1), {1, 0, 0, 1});
  EXPECT_FALSE(FaceColour(z.m_zScene, 1, 2).has_value());
  EXPECT_FALSE(FaceColour(z.m_zScene, 2, 0).has_value());
  EXPECT_FALSE(FaceColour(z.m_zScene, 2, 1).has_value());
  ExpectColour(FaceColour(z.m_zScene, 3), {1, 0, 0, 1});
  EXPECT_EQ(PartNames(z.m_zScene)[0], u"A");
}

TEST(ReadObj, AStatementMayNameSeveralListsOfMaterials) {
  const TestFolder zFolder;
  zFolder.WriteBytes(u"one.mtl", "newmtl red\nKd 1 0 0\n");
  zFolder.WriteBytes(u"two.mtl", "newmtl glass\nKd 0 0 1\n");
  for (const char* szLists : {"one.mtl two.mtl", "two.mtl\tone.mtl # both", "one.mtl\nmtllib two.mtl"}) {
    zFolder.WriteBytes(u"thing.obj", Obj(szLists));
    const ReaderOutcome z = ReadMesh(zFolder / u"thing.obj");
    ASSERT_EQ(z.m_strError, "") << szLists;
    ExpectColour(FaceColour(z.m_zScene, 0), {1, 0, 0, 1});
    ExpectColour(z.m_zScene.m_vzPart[1].m_vzLevel[0].m_vzEdge[0].m_fColour, {0, 0, 1, 1});
    EXPECT_TRUE(z.m_zScene.m_vstrWarning.empty()) << szLists;
  }
  zFolder.WriteBytes(u"thing.obj", Obj("one.mtl three.mtl"));
  const ReaderOutcome zMissing = ReadMesh(zFolder / u"thing.obj");
  ExpectColour(FaceColour(zMissing.m_zScene, 0), {1, 0, 0, 1});
  EXPECT_EQ(zMissing.m_zScene.m_vstrWarning,
            (std::vector<std::string>{"a file that it names cannot be read: three.mtl"}));
  zFolder.WriteBytes(u"one.mtl two.mtl", "newmtl red\nKd 0 1 0\n");
  zFolder.WriteBytes(u"thing.obj", Obj("one.mtl two.mtl"));
  ExpectColour(FaceColour(ReadMesh(zFolder / u"thing.obj").m_zScene, 0), {0, 1, 0, 1});
}

TEST(ReadObj, AListOfMaterialsOfAnotherFolderMayStandBesideTheFile) {
  const TestFolder zFolder;
  zFolder.WriteBytes(u"colours.mtl", Mtl());
  zFolder.WriteBytes(u"thing.obj", Obj("C:\\work\\colours.mtl"));
  const ReaderOutcome z = ReadMesh(zFolder / u"thing.obj");
  ASSERT_EQ(z.m_strError, "");
  ExpectColour(FaceColour(z.m_zScene, 0), {1, kLinearOfQuarter, 0, 1});
  EXPECT_TRUE(Warns(z.m_zScene, "a file that it names cannot be read: C:\\work\\colours.mtl"));
}

TEST(ReadObj, AnOpacityCountsBeforeATransparency) {
  const TestFolder zFolder;
  zFolder.WriteBytes(u"a.obj",
                     "mtllib a.mtl\n" + kPlaces + "usemtl a\nf 1 2 3\nusemtl b\nf 1 2 4\nusemtl c\nf 1 3 4\n");
  zFolder.WriteBytes(u"a.mtl",
                     "newmtl a\nKd 1 0 0\nd 1\nTr 1\nnewmtl b\nTr 0\nd 0.25\nKd 1 0 0\nnewmtl c\nTr 0.25\nKd 1\n");
  const ReaderOutcome z = ReadMesh(zFolder / u"a.obj");
  ASSERT_EQ(z.m_strError, "");
  ExpectColour(FaceColour(z.m_zScene, 0, 0), {1, 0, 0, 1});
  ExpectColour(FaceColour(z.m_zScene, 0, 1), {1, 0, 0, 0.25f});
  ExpectColour(FaceColour(z.m_zScene, 0, 2), {1, 1, 1, 0.75f});
}

TEST(ReadObj, FreeFormsAndCalledFilesAreLeftOutWithAWarning) {
  const ReaderOutcome z = ReadBytes(
      u"a.obj", kPlaces + "f 1 2 3\ncstype bezier\ndeg 3 3\nsurf 0 1 0 1 1 2 3 4\nparm u 0 1\nend\nf 1 2 4\n");
  ASSERT_EQ(z.m_strError, "");
  EXPECT_EQ(z.m_zScene.m_vzPart[0].m_vzLevel[0].m_vzFace[0].m_viIndex.size(), 6u);
  EXPECT_EQ(z.m_zScene.m_vstrWarning, (std::vector<std::string>{"free-form curves and surfaces are left out"}));
  EXPECT_TRUE(Warns(ReadBytes(u"a.obj", kPlaces + "f 1 2 3\ncurv 0 1 1 2\n").m_zScene, "free-form curves"));
  EXPECT_TRUE(
      Warns(ReadBytes(u"a.obj", kPlaces + "f 1 2 3\ncall x.obj\n").m_zScene, "other files that the file calls"));
}

TEST(ReadObj, ColoursThatOnlySomeVerticesHaveAreLeftOutWithAWarning) {
  for (const char* szPlaces : {"v 0 0 0 1 0 0\nv 1 0 0 1 0 0\nv 0 1 0 1 0 0\nv 0 0 1\nv 1 0 1\nv 0 1 1\n",
                               "v 0 0 0\nv 1 0 0\nv 0 1 0\nv 0 0 1 1 0 0\nv 1 0 1 1 0 0\nv 0 1 1 1 0 0\n"}) {
    const ReaderOutcome z = ReadBytes(u"a.obj", szPlaces + std::string("o A\nf 1 2 3\no B\nf 4 5 6\n"));
    ASSERT_EQ(z.m_strError, "");
    EXPECT_FALSE(FaceColour(z.m_zScene, 0).has_value());
    EXPECT_FALSE(FaceColour(z.m_zScene, 1).has_value());
    EXPECT_EQ(z.m_zScene.m_vstrWarning, (std::vector<std::string>{"colours of single vertices are left out"}));
  }
  ExpectColour(FaceColour(ReadBytes(u"a.obj", "v 0 0 0 1 0 0\nv 1 0 0 1 0 0\nv 0 1 0 1 0 0\nf 1 2 3\n").m_zScene, 0),
               {1, 0, 0, 1});
}

TEST(ReadObj, NamesThatAreNoUtf8TextAreToldOnce) {
  const ReaderOutcome z = ReadBytes(u"a.obj", kPlaces + "o Geh\xE4use\nf 1 2 3\no Schl\xFCssel\nf 1 2 4\n");
  ASSERT_EQ(z.m_strError, "");
  EXPECT_EQ(z.m_zScene.m_vstrWarning, (std::vector<std::string>{"names that are no UTF-8 text are changed"}));
  EXPECT_TRUE(ReadBytes(u"a.obj", kPlaces + "o Geh\xC3\xA4use\nf 1 2 3\n").m_zScene.m_vstrWarning.empty());
}
