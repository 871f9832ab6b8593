#include <gtest/gtest.h>

#include "KivReadMeshTest.h"

using namespace kiv;
using namespace kivtest;

namespace {

// A binary one with this beginning of its head and these words behind its two triangles.
std::string ColouredStl(const std::string& strHead, uint16_t iFirst, uint16_t iSecond) {
  std::string strFile = BinaryStl();
  strFile.replace(0, strHead.size(), strHead);
  for (size_t i = 0; i < 2; ++i) {
    std::string strWord;
    AddRaw(strWord, i == 0 ? iFirst : iSecond);
    strFile.replace(84 + 50 * i + 48, 2, strWord);
  }
  return strFile;
}
const std::string kRedHead = "a part COLOR=\xFF\x80" + std::string(1, '\0') + "\xFF,MATERIAL=";

}  // namespace

TEST(ReadStl, ABinaryStlIsTrianglesWithoutNormalsAndTheUnitIsUnknown) {
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

TEST(ReadStl, ATextStlWithTwoSolidsIsTwoParts) {
  const ReaderOutcome z = ReadBytes(u"two.stl", TextStl());
  ASSERT_EQ(z.m_strError, "");
  ASSERT_EQ(z.m_zScene.m_vzPart.size(), 2u);
  EXPECT_EQ(z.m_zScene.m_vzPart[0].m_csName, u"plate");
  EXPECT_EQ(z.m_zScene.m_vzPart[1].m_csName, u"lid");
  const KivSceneFace& zFace = z.m_zScene.m_vzPart[1].m_vzLevel[0].m_vzFace[0];
  ASSERT_EQ(zFace.m_viIndex.size(), 6u);
  EXPECT_EQ(Corner(zFace, 1, 2), (Point{0, 1, 0.5}));
}

TEST(ReadStl, ANormalOfATextStlMayBeNoNumber) {
  for (const char* szNormal :
       {"nan nan nan", "-nan(ind) -nan(ind) -NAN(IND)", "1.#QNAN -1.#IND 0", "inf -Infinity 0"}) {
    const ReaderOutcome z = ReadBytes(u"a.stl", Replaced(TextStl(), "normal 0 0 1", std::string("normal ") + szNormal));
    ASSERT_EQ(z.m_strError, "") << szNormal;
    EXPECT_EQ(Corner(z.m_zScene.m_vzPart[1].m_vzLevel[0].m_vzFace[0], 1, 2), (Point{0, 1, 0.5})) << szNormal;
  }
  EXPECT_NE(ReadBytes(u"a.stl", Replaced(TextStl(), "vertex 1 0 0", "vertex nan(ind) 0 0")).m_strError, "");
}

TEST(ReadStl, BytesBehindABinaryStlArePassed) {
  EXPECT_EQ(KivWriteScene(ReadBytes(u"a.stl", BinaryStl() + "more").m_zScene),
            KivWriteScene(ReadBytes(u"a.stl", BinaryStl()).m_zScene));
}

TEST(ReadStl, AReasonIsCutToALengthThatCanBeRead) {
  const std::string strFile = Replaced(TextStl(), "vertex 1 0 0", "vertex x" + std::string(4000, 'y') + " 0 0");
  const std::string strError = ReadBytes(u"a.stl", strFile).m_strError;
  EXPECT_NE(strError, "");
  EXPECT_LT(strError.size(), 400u);
}

TEST(ReadStl, ANameOfASolidIsKeptWhole) {
  for (const KivWString csName : {u"my part", u"C:\\parts\\my part.stl", u"facet vertex endsolid",
                                  u"a facet normal to b", u"endsolid", u"Geh\u00E4use  1"}) {
    const ReaderOutcome z =
        ReadBytes(u"a.stl", Replaced(TextStl(), "solid plate", "solid  " + sys::WideToUtf8(csName) + "\t"));
    ASSERT_EQ(z.m_strError, "") << sys::WideToUtf8(csName);
    ASSERT_EQ(z.m_zScene.m_vzPart.size(), 2u);
    EXPECT_EQ(z.m_zScene.m_vzPart[0].m_csName, csName);
    EXPECT_EQ(z.m_zScene.m_vzPart[1].m_csName, u"lid");
    EXPECT_EQ(z.m_zScene.m_vzPart[1].m_vzLevel[0].m_vzFace[0].m_viIndex.size(), 6u);
    EXPECT_TRUE(z.m_zScene.m_vstrWarning.empty());
  }
  const ReaderOutcome z = ReadBytes(u"a.stl", Replaced(TextStl(), "solid plate", "solid " + std::string(3000, 'x')));
  ASSERT_EQ(z.m_strError, "");
  EXPECT_EQ(z.m_zScene.m_vzPart[0].m_csName, KivWString(960, u'x'));
}

TEST(ReadStl, ATriangleOfATextStlHasThreeCorners) {
  const std::string strCorner = "  vertex 0 1 0.5\n";
  EXPECT_EQ(ReadBytes(u"a.stl", Replaced(TextStl(), strCorner, strCorner + strCorner)).m_strError,
            "a triangle has 4 corners: the file is damaged, or none of triangles");
  EXPECT_EQ(ReadBytes(u"a.stl", Replaced(TextStl(), strCorner, "")).m_strError,
            "a triangle has 2 corners: the file is damaged, or none of triangles");
  EXPECT_EQ(ReadBytes(u"a.stl", Replaced(Replaced(TextStl(), strCorner, ""), "endfacet\n", "")).m_strError,
            "a triangle has 2 corners: the file is damaged, or none of triangles");
}

TEST(ReadStl, AllSolidsOfATextStlMayStandInOneLine) {
  const ReaderOutcome z = ReadBytes(u"a.stl", Replaced(TextStl(), "\n", " "));
  ASSERT_EQ(z.m_strError, "");
  ASSERT_EQ(z.m_zScene.m_vzPart.size(), 2u);
  EXPECT_EQ(z.m_zScene.m_vzPart[0].m_csName, u"plate");
  EXPECT_EQ(z.m_zScene.m_vzPart[1].m_csName, u"lid");
  EXPECT_EQ(z.m_zScene.m_vzPart[1].m_vzLevel[0].m_vzFace[0].m_viIndex.size(), 6u);
}

TEST(ReadStl, AWordThatOnlyBeginsLikeThatOfASolidIsNone) {
  for (const char* szText : {"solidx", "solid$a\nfac.l n", "solids\nfacet normal 0 0 1\nendsolid\n"})
    EXPECT_EQ(ReadBytes(u"a.stl", szText).m_strError, "it is no STL file") << szText;
}

TEST(ReadStl, ATextStlMayHaveOtherLines) {
  const std::vector<uint8_t> vcScene = KivWriteScene(ReadBytes(u"a.stl", TextStl()).m_zScene);
  for (const std::string& strFile :
       {"\n\r\n \n" + TextStl(), "\xEF\xBB\xBF\n" + TextStl(), TextStl() + "\n; made by a tool\n",
        Replaced(TextStl(), "\nsolid lid", "\n; the next one\n\nSOLID lid"),
        Replaced(TextStl(), "endsolid", "END Solid"), Replaced(Replaced(TextStl(), "\n", " "), " solid", "\nsolid")}) {
    const ReaderOutcome z = ReadBytes(u"a.stl", strFile);
    ASSERT_EQ(z.m_strError, "") << strFile;
    EXPECT_EQ(KivWriteScene(z.m_zScene), vcScene) << strFile;
  }
  for (const std::string& strFile :
       {Replaced(TextStl(), "\nsolid lid\n", "\n"), Replaced(TextStl(), "\nsolid lid\n", " ")})
    EXPECT_EQ(ReadBytes(u"a.stl", strFile).m_strError, "a triangle stands outside of the solids") << strFile;
}

TEST(ReadStl, AColourInTheHeadOfABinaryStlIsThatOfItsFaces) {
  for (const auto& [iFirst, iSecond] : {std::pair<uint16_t, uint16_t>{0, 0}, {0x8000, 0x8000}, {0x801F, 0x8000}}) {
    const ReaderOutcome z = ReadBytes(u"a.stl", ColouredStl(kRedHead, iFirst, iSecond));
    ASSERT_EQ(z.m_strError, "");
    ExpectColour(z.m_zScene.m_vzPart[0].m_vzLevel[0].m_vzFace[0].m_fColour, {1, kLinearOf128, 0, 1});
    EXPECT_TRUE(z.m_zScene.m_vstrWarning.empty());
  }
}

TEST(ReadStl, ColoursOfSingleTrianglesBelowAColourInTheHeadAreOneColourOrLeftOut) {
  const ReaderOutcome zBlue = ReadBytes(u"a.stl", ColouredStl(kRedHead, 31 << 10, 31 << 10));
  ExpectColour(zBlue.m_zScene.m_vzPart[0].m_vzLevel[0].m_vzFace[0].m_fColour, {0, 0, 1, 1});
  for (const auto& [iFirst, iSecond] : {std::pair<uint16_t, uint16_t>{0, 0x8000}, {31, 31 << 5}, {0x8000, 31}}) {
    const ReaderOutcome z = ReadBytes(u"a.stl", ColouredStl(kRedHead, iFirst, iSecond));
    ASSERT_EQ(z.m_strError, "");
    EXPECT_FALSE(z.m_zScene.m_vzPart[0].m_vzLevel[0].m_vzFace[0].m_fColour.has_value());
    EXPECT_EQ(z.m_zScene.m_vstrWarning, (std::vector<std::string>{"colours of single vertices are left out"}));
  }
}

TEST(ReadStl, ColoursOfTrianglesWithoutOneInTheHeadAreOneColourOrLeftOut) {
  ExpectColour(
      ReadBytes(u"a.stl", ColouredStl("x", 0xFC00, 0xFC00)).m_zScene.m_vzPart[0].m_vzLevel[0].m_vzFace[0].m_fColour,
      {1, 0, 0, 1});
  const std::string strCutHead = std::string(72, ' ') + "COLOR=";
  ExpectColour(ReadBytes(u"a.stl", ColouredStl(strCutHead, 0xFC00, 0xFC00))
                   .m_zScene.m_vzPart[0]
                   .m_vzLevel[0]
                   .m_vzFace[0]
                   .m_fColour,
               {1, 0, 0, 1});
  for (const auto& [iFirst, iSecond] : {std::pair<uint16_t, uint16_t>{0x801F, 0x8000}, {0x801F, 0}, {31, 31}}) {
    const ReaderOutcome z = ReadBytes(u"a.stl", ColouredStl("x", iFirst, iSecond));
    ASSERT_EQ(z.m_strError, "");
    EXPECT_FALSE(z.m_zScene.m_vzPart[0].m_vzLevel[0].m_vzFace[0].m_fColour.has_value());
    EXPECT_EQ(Warns(z.m_zScene, "colours of single vertices are left out"), iFirst >= 0x8000);
  }
}
