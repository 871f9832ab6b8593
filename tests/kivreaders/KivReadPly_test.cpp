#include <gtest/gtest.h>

#include <cstring>

#include "KivReadMeshTest.h"

using namespace kiv;
using namespace kivtest;

TEST(ReadPly, APlySharesItsVerticesInTextAndInBytes) {
  for (const std::string& strFile : {TextPly(), BinaryPly()}) {
    const ReaderOutcome z = ReadBytes(u"a.ply", strFile);
    ASSERT_EQ(z.m_strError, "");
    const KivSceneFace& zFace = z.m_zScene.m_vzPart[0].m_vzLevel[0].m_vzFace[0];
    EXPECT_EQ(zFace.m_vdVertex, (std::vector<double>{0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0.25}));
    EXPECT_EQ(zFace.m_viIndex, (std::vector<uint32_t>{0, 1, 2, 0, 2, 3}));
  }
}

TEST(ReadPly, AColourThatAllVerticesOfAPlyShareBecomesLinear) {
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

TEST(ReadPly, ABinaryListIsComparedWithTheBytesThatAreLeft) {
  const ReaderOutcome z = ReadBytes(u"a.ply", PlyWithList(3));
  ASSERT_EQ(z.m_strError, "");
  EXPECT_EQ(z.m_zScene.m_vzPart[0].m_vzLevel[0].m_vzFace[0].m_viIndex, (std::vector<uint32_t>{0, 1, 2}));
  for (const uint32_t nCount : {4u, 60000000u, 0x3FFFFFFFu, 0x80000000u, 0xFFFFFFFFu})
    EXPECT_EQ(ReadBytes(u"a.ply", PlyWithList(nCount)).m_strError,
              "the file is cut: its header announces more than it holds")
        << nCount;
}

TEST(ReadPly, AnEntryOfATextPlyStandsOnALineOfItsOwn) {
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

TEST(ReadPly, CountsAndIndicesOfATextPlyAreWholeNumbers) {
  for (const char* szFace : {"3 0 2 x", "3 0 2 2.9", "3 0 2 4294967298", "3.0 0 2 3", "3.5 0 2 3", "3, 0, 2, 3"})
    EXPECT_EQ(ReadBytes(u"a.ply", TextPly(szFace)).m_strError, "a count or index of it is no whole number of 32 bits")
        << szFace;
  EXPECT_EQ(ReadBytes(u"a.ply", TextPly("-3 0 2 3")).m_strError, "a list of it has a count below 0");
}

TEST(ReadPly, APlyWhoseHeaderLacksPlacesOrTypesIsRefused) {
  const std::string strFile = TextPly();
  for (const char* szTo : {"property float w", "property list uchar float x"})
    EXPECT_EQ(ReadBytes(u"a.ply", Replaced(strFile, "property float x", szTo)).m_strError,
              "its header is damaged: a vertex has not one x, y and z each")
        << szTo;
  EXPECT_EQ(ReadBytes(u"a.ply", Replaced(strFile, "property float x", "property real x")).m_strError,
            "its header is damaged: a property has no type that is known");
}

TEST(ReadPly, TwoElementsOfOneKindAndStripsOfAPlyAreRefused) {
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

TEST(ReadPly, PlacesInPicturesOfAPlyAreThoseOfItsCorners) {
  const auto Read = [](const std::string& strFace) {
    std::string strFile = TextPly(strFace);
    strFile.insert(strFile.find("end_header"), "property list uchar float texcoord\n");
    return ReadBytes(u"a.ply", Replaced(strFile, "3 0 1 2\n", "3 0 1 2 0\n"));
  };
  EXPECT_EQ(Read("3 0 2 3 6 0 0 1 0 1 1").m_strError, "");
  EXPECT_EQ(Read("3 0 2 3 8 0 0 1 0 1 1 0 1").m_strError, "a face has more places in pictures than corners");
  EXPECT_EQ(Read("0 6 0 0 1 0 1 1").m_strError, "a face has more places in pictures than corners");
}

TEST(ReadPly, ABinaryPlyMayBeginWithAnyByte) {
  for (const char c : {'\n', '\r', ' ', '\t', '\0'}) {
    float fFirst = 0;
    const char acBytes[] = {c, '\n', 0, 0x3F};
    std::memcpy(&fFirst, acBytes, sizeof fFirst);
    const ReaderOutcome z = ReadBytes(u"a.ply", BinaryPly({fFirst, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0.25f}));
    ASSERT_EQ(z.m_strError, "") << static_cast<int>(c);
    EXPECT_EQ(z.m_zScene.m_vzPart[0].m_vzLevel[0].m_vzFace[0].m_vdVertex[0], static_cast<double>(fFirst));
  }
}

TEST(ReadPly, CommentsOfAPlyMayStandBeforeItsFormat) {
  for (const char* szEnd : {"\n", "\r\n", "\r"}) {
    const std::string strFile = Replaced(TextPly(), "ply\nformat", "ply\ncomment format of it\nobj_info 7\nformat");
    const ReaderOutcome z = ReadBytes(u"a.ply", Replaced(strFile, "\n", szEnd));
    ASSERT_EQ(z.m_strError, "");
    EXPECT_EQ(z.m_zScene.m_vzPart[0].m_vzLevel[0].m_vzFace[0].m_viIndex.size(), 6u);
  }
  EXPECT_NE(ReadBytes(u"a.ply", Replaced(TextPly(), "ply\nformat", "ply\nelement vertex 4\nformat")).m_strError, "");
}

TEST(ReadPly, OtherElementsMayStandAnywhere) {
  const std::string strCamera = "element camera 1\nproperty float view_px\nproperty list uchar int more\n";
  const auto WithCamera = [&](std::string strFile, const std::string& strBefore, const std::string& strBytes) {
    strFile.insert(strFile.find(strBefore), strCamera);
    return strFile.insert(strFile.find("end_header\n") + 11, strBytes);
  };
  const KivByteBuffer vcPlain = KivWriteScene(ReadBytes(u"a.ply", TextPly()).m_zScene);
  EXPECT_EQ(KivWriteScene(ReadBytes(u"a.ply", WithCamera(TextPly(), "element vertex", "7 2 1 1\n")).m_zScene), vcPlain);
  std::string strBytes = Floats({7});
  AddRaw<uint8_t>(strBytes, 1);
  AddRaw<int32_t>(strBytes, 9);
  EXPECT_EQ(KivWriteScene(ReadBytes(u"a.ply", WithCamera(BinaryPly(), "element vertex", strBytes)).m_zScene), vcPlain);
  // Between the two, and faces before vertices.
  std::string strFile = TextPly();
  strFile.insert(strFile.find("element face"), strCamera);
  strFile.insert(strFile.find("3 0 1 2"), "7 0\n");
  EXPECT_EQ(KivWriteScene(ReadBytes(u"a.ply", strFile).m_zScene), vcPlain);
  EXPECT_EQ(
      KivWriteScene(ReadBytes(u"a.ply",
                              "ply\nformat ascii 1.0\nelement face 2\nproperty list uchar int vertex_indices\n"
                              "element vertex 4\nproperty float x\nproperty float y\nproperty float z\nend_header\n"
                              "3 0 1 2\n3 0 2 3\n0 0 0\n1 0 0\n1 1 0\n0 1 0.25\n")
                        .m_zScene),
      vcPlain);
}

TEST(ReadPly, EdgesAndColoursOfFacesAndMaterialsAreToldToBeLeftOut) {
  std::string strFile =
      Replaced(TextPly(), "end_header", "element edge 1\nproperty int vertex1\nproperty int vertex2\nend_header") +
      "0 1\n";
  EXPECT_EQ(ReadBytes(u"a.ply", strFile).m_zScene.m_vstrWarning, (std::vector<std::string>{"edges are left out"}));
  strFile =
      Replaced(TextPly(), "end_header", "property uchar red\nproperty uchar green\nproperty uchar blue\nend_header");
  strFile = Replaced(Replaced(strFile, "3 0 1 2", "3 0 1 2 255 0 0"), "3 0 2 3", "3 0 2 3 0 0 255");
  EXPECT_EQ(ReadBytes(u"a.ply", strFile).m_zScene.m_vstrWarning,
            (std::vector<std::string>{"colours of single faces are left out"}));
  const std::string strMaterial =
      "property int material_index\nelement material 1\nproperty uchar diffuse_red\n"
      "property uchar diffuse_green\nproperty uchar diffuse_blue\nend_header";
  strFile = Replaced(Replaced(Replaced(TextPly(), "end_header", strMaterial), "3 0 1 2", "3 0 1 2 0"), "3 0 2 3",
                     "3 0 2 3 0");
  const ReaderOutcome zOne = ReadBytes(u"a.ply", strFile + "255 0 0\n");
  EXPECT_TRUE(zOne.m_zScene.m_vstrWarning.empty());
  ExpectColour(zOne.m_zScene.m_vzPart[0].m_vzLevel[0].m_vzFace[0].m_fColour, {1, 0, 0, 1});
  const ReaderOutcome zTwo = ReadBytes(u"a.ply", Replaced(strFile, "material 1", "material 2") + "255 0 0\n0 0 255\n");
  EXPECT_TRUE(Warns(zTwo.m_zScene, "materials of single faces are left out"));
  EXPECT_FALSE(zTwo.m_zScene.m_vzPart[0].m_vzLevel[0].m_vzFace[0].m_fColour.has_value());
}

TEST(ReadPly, ColoursOfVerticesHaveTwoNames) {
  std::string strFile = Replaced(TextPly(), "property float z\n",
                                 "property float z\nproperty uchar diffuse_red\nproperty uchar diffuse_green\n"
                                 "property uchar diffuse_blue\n");
  for (const char* szVertex : {"\n0 0 0", "\n1 0 0", "\n1 1 0", "\n0 1 0.25"})
    strFile = Replaced(strFile, std::string(szVertex) + "\n", std::string(szVertex) + " 0 255 0\n");
  const ReaderOutcome z = ReadBytes(u"a.ply", strFile);
  ASSERT_EQ(z.m_strError, "");
  ExpectColour(z.m_zScene.m_vzPart[0].m_vzLevel[0].m_vzFace[0].m_fColour, {0, 1, 0, 1});
}

TEST(ReadPly, ANormalMayBeNoNumber) {
  std::string strFile = Replaced(TextPly(), "property float z\n",
                                 "property float z\nproperty float nx\nproperty float ny\nproperty float nz\n");
  for (const char* szVertex : {"\n0 0 0", "\n1 0 0", "\n1 1 0", "\n0 1 0.25"})
    strFile = Replaced(strFile, std::string(szVertex) + "\n", std::string(szVertex) + " -nan(ind) nan 1.#QNAN\n");
  const ReaderOutcome z = ReadBytes(u"a.ply", strFile);
  ASSERT_EQ(z.m_strError, "");
  EXPECT_TRUE(Warns(z.m_zScene, "normals without a direction are left out"));
  EXPECT_EQ(z.m_zScene.m_vzPart[0].m_vzLevel[0].m_vzFace[0].m_viIndex.size(), 6u);
}
