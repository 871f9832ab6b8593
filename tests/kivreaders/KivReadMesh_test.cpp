#include <gtest/gtest.h>

#include <cctype>
#include <limits>
#include <random>

#include "KivReadMeshTest.h"
#include "KivTestScale.h"

using namespace kiv;
using namespace kivtest;

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
  EXPECT_TRUE(HasText(ReadBytes(u"a.glb", BinaryStl()).m_strError, "it is no readable glTF file"));
  EXPECT_TRUE(HasText(ReadBytes(u"a.gltf", "{}").m_strError, "it is no readable glTF file"));
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

TEST(ReadMesh, AFileWithoutTrianglesAndLinesIsRefused) {
  EXPECT_EQ(ReadBytes(u"a.ply", PlyHead("ascii", "1", "0") + "0 0 0\n").m_strError,
            "it holds no triangles and no lines");
}
