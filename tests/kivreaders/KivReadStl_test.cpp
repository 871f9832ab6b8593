#include <gtest/gtest.h>

#include "KivReadMeshTest.h"

using namespace kiv;
using namespace kivtest;

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
