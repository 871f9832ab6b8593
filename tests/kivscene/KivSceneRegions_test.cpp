#include "KivSceneRegions.h"

#include <gtest/gtest.h>

#include <set>

#include "KivTestScene.h"

namespace {

using namespace kiv;
using namespace kivtest;

KivSceneRegions Find(std::vector<KivSceneFace> vzGroup, double dAngle = 30) {
  return KivFindSceneRegions(vzGroup, dAngle);
}
size_t TriangleNum(const KivSceneRegions& z) {
  return z.m_viIndex.size() / 3;
}
bool IsClosed(const KivSceneRegions& z, size_t iLine) {
  return z.Line(iLine).front() == z.Line(iLine).back();
}
std::vector<size_t> LineLengths(const KivSceneRegions& z) {
  std::vector<size_t> viLength;
  for (size_t i = 0; i < z.LineNum(); ++i) viLength.push_back(z.Line(i).size());
  return viLength;
}
void SetNormals(KivSceneFace& z, const Point& zNormal, size_t iFirstVertex, size_t iEndVertex) {
  z.m_vfNormal.resize(z.m_vdVertex.size());
  for (size_t i = 3 * iFirstVertex; i < 3 * iEndVertex; ++i) z.m_vfNormal[i] = static_cast<float>(zNormal[i % 3]);
}
// Two squares that meet at the y axis, the second one dAngle degrees out of the plane of the first.
KivSceneFace Folded(double dAngle) {
  const double d = dAngle * std::numbers::pi / 180;
  KivSceneFace z;
  AddSquare(z, {-1, 0, 0}, {0, 0, 0}, {0, 1, 0}, {-1, 1, 0});
  AddSquare(z, {0, 0, 0}, {std::cos(d), 0, std::sin(d)}, {std::cos(d), 1, std::sin(d)}, {0, 1, 0});
  return z;
}

}  // namespace

TEST(SceneRegions, ACubeHasSixRegionsAndTwelveLines) {
  const KivSceneRegions z = Find({Cube(2)});
  EXPECT_EQ(z.m_vdPlace.size(), 3u * 8);
  EXPECT_EQ(z.m_viPlace.size(), 24u);
  ASSERT_EQ(z.RegionNum(), 6u);
  EXPECT_EQ(z.m_viFirstTriangle, (std::vector<uint32_t>{0, 2, 4, 6, 8, 10, 12}));
  EXPECT_EQ(z.m_viFirstVertex, (std::vector<uint32_t>{0, 4, 8, 12, 16, 20, 24}));
  EXPECT_EQ(LineLengths(z), std::vector<size_t>(12, 2));
  std::set<std::set<uint32_t>> siLine;
  for (size_t i = 0; i < 12; ++i) siLine.insert({z.Line(i)[0], z.Line(i)[1]});
  EXPECT_EQ(siLine.size(), 12u);
  // Flat inside a region.
  for (size_t i = 0; i < 4; ++i) {
    EXPECT_EQ(z.m_vfNormal[3 * i], 0);
    EXPECT_EQ(z.m_vfNormal[3 * i + 1], 0);
    EXPECT_EQ(z.m_vfNormal[3 * i + 2], -1);
  }
  EXPECT_EQ(z.m_nDegenerate, 0u);
}

TEST(SceneRegions, ASphereIsOneRegionWithoutLinesAndWithNormalsFromItsCentre) {
  const KivSceneRegions z = Find({Sphere(5, 24)});
  EXPECT_EQ(z.RegionNum(), 1u);
  EXPECT_EQ(z.LineNum(), 0u);
  EXPECT_EQ(z.m_viPlace.size(), 23u * 48 + 2);
  for (size_t i = 0; i < z.m_viPlace.size(); ++i) {
    double dDot = 0;
    for (size_t k = 0; k < 3; ++k)
      dDot += z.m_vdPlace[3 * size_t{z.m_viPlace[i]} + k] / 5 * static_cast<double>(z.m_vfNormal[3 * i + k]);
    EXPECT_GT(dDot, 0.995) << i;
  }
}

TEST(SceneRegions, TrianglesThatMeetAtLessThanTheAngleAreOneRegion) {
  EXPECT_EQ(Find({Folded(29)}).RegionNum(), 1u);
  EXPECT_EQ(Find({Folded(31)}).RegionNum(), 2u);
  EXPECT_EQ(Find({Folded(29)}, 20).RegionNum(), 2u);
  EXPECT_EQ(Find({Folded(80)}, 90).RegionNum(), 1u);
  const KivSceneRegions z = Find({Folded(31)});
  EXPECT_EQ(LineLengths(z), (std::vector<size_t>{4, 2, 4}));  // open, between the two, open
}

TEST(SceneRegions, NormalsOfTheSourceThatAgreeJoinWhatTheAngleParts) {
  KivSceneFace z = Folded(60);
  const Point zMean = {-0.5, 0, std::sqrt(0.75)};
  SetNormals(z, {0, 0, 1}, 0, 12);
  for (size_t i = 0; i < 12; ++i)
    if (z.m_vdVertex[3 * i] == 0) SetNormals(z, zMean, i, i + 1);
  const KivSceneRegions zJoined = Find({z});
  EXPECT_EQ(zJoined.RegionNum(), 1u);
  for (size_t i = 0; i < zJoined.m_viPlace.size(); ++i) {
    if (zJoined.m_vdPlace[3 * size_t{zJoined.m_viPlace[i]}] != 0) continue;
    EXPECT_NEAR(zJoined.m_vfNormal[3 * i], -0.5, 1e-6);
  }
  // At one end only.
  for (size_t i = 6; i < 12; ++i)
    if (z.m_vdVertex[3 * i] == 0 && z.m_vdVertex[3 * i + 1] == 1) SetNormals(z, {-1, 0, 0}, i, i + 1);
  EXPECT_EQ(Find({z}).RegionNum(), 2u);
}

TEST(SceneRegions, NormalsOfFacetsBecomeSmoothInsideARegion) {
  KivSceneFace z = Folded(20);
  const double d = 20 * std::numbers::pi / 180;
  SetNormals(z, {0, 0, 1}, 0, 6);
  SetNormals(z, {-std::sin(d), 0, std::cos(d)}, 6, 12);
  const KivSceneRegions zRegions = Find({z});
  ASSERT_EQ(zRegions.RegionNum(), 1u);
  EXPECT_EQ(zRegions.m_viPlace.size(), 6u);
  for (size_t i = 0; i < 6; ++i) {
    if (zRegions.m_vdPlace[3 * size_t{zRegions.m_viPlace[i]}] == 0) {
      EXPECT_NEAR(zRegions.m_vfNormal[3 * i], -std::sin(d / 2), 1e-6);
    }
  }
}

TEST(SceneRegions, NoNormalsOfTheSourceAreThoseOfTheTriangle) {
  KivSceneFace z;
  AddTriangle(z, {0, 0, 0}, {1, 0, 0}, {0, 1, 0});
  SetNormals(z, {0, 0, 0}, 0, 3);
  const KivSceneRegions zRegions = Find({z});
  for (size_t i = 0; i < 3; ++i) EXPECT_EQ(zRegions.m_vfNormal[3 * i + 2], 1);
}

TEST(SceneRegions, GroupsOfTheSourceAreNeverJoined) {
  KivSceneFace zA, zB;
  AddTriangle(zA, {0, 0, 0}, {1, 0, 0}, {1, 1, 0});
  AddTriangle(zB, {0, 0, 0}, {1, 1, 0}, {0, 1, 0});
  const KivSceneRegions z = Find({zA, zB});
  EXPECT_EQ(z.m_viGroup, (std::vector<uint32_t>{0, 1}));
  EXPECT_EQ(z.m_vdPlace.size(), 3u * 4);
  EXPECT_EQ(LineLengths(z), (std::vector<size_t>{3, 2, 3}));
}

TEST(SceneRegions, AnEdgeOfThreeTrianglesPartsThemAll) {
  KivSceneFace z;
  AddTriangle(z, {0, 0, 0}, {0, 1, 0}, {1, 0, 0});
  AddTriangle(z, {0, 1, 0}, {0, 0, 0}, {-1, 0, 0});
  AddTriangle(z, {0, 0, 0}, {0, 1, 0}, {0, 0, 1});
  const KivSceneRegions zRegions = Find({z});
  EXPECT_EQ(zRegions.RegionNum(), 3u);
  EXPECT_EQ(LineLengths(zRegions), (std::vector<size_t>{2, 3, 3, 3}));
}

TEST(SceneRegions, ATriangleThatIsThereTwiceStaysTwice) {
  KivSceneFace z;
  AddSquare(z, {0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0});
  AddTriangle(z, {0, 0, 0}, {1, 0, 0}, {1, 1, 0});
  const KivSceneRegions zRegions = Find({z});
  EXPECT_EQ(TriangleNum(zRegions), 3u);
  EXPECT_EQ(zRegions.m_viFirstTriangle, (std::vector<uint32_t>{0, 2, 3}));  // the twins meet at their outer edges
}

TEST(SceneRegions, TrianglesWithTwoCornersAtOnePlaceAreDropped) {
  KivSceneFace z;
  AddTriangle(z, {0, 0, 0}, {1, 0, 0}, {0, 1, 0});
  AddTriangle(z, {0, 0, 0}, {0, 0, 0}, {0, 1, 0});
  AddTriangle(z, {2, 0, 0}, {0, 1, 0}, {2, 0, 0});
  AddTriangle(z, {0.0, 0, 0}, {-0.0, 0, 0}, {3, 1, 0});  // one place
  const KivSceneRegions zRegions = Find({z});
  EXPECT_EQ(TriangleNum(zRegions), 1u);
  EXPECT_EQ(zRegions.m_nDegenerate, 3u);
  const KivSceneRegions zNothing = Find({KivSceneFace()});
  EXPECT_EQ(zNothing.RegionNum(), 0u);
  EXPECT_EQ(zNothing.LineNum(), 0u);
  EXPECT_EQ(Find({}).RegionNum(), 0u);
}

TEST(SceneRegions, ATriangleWithoutAnAreaGoesWithItsNeighbourAndJoinsNoTwo) {
  // Two walls of a corner, between them a triangle whose corners lie on the line where they meet.
  KivSceneFace z;
  AddTriangle(z, {0, 0, 0}, {0, 2, 0}, {-1, 0, 0});
  AddTriangle(z, {0, 0, 0}, {0, 1, 0}, {0, 2, 0});
  AddTriangle(z, {0, 1, 0}, {0, 0, 0}, {0, 0, 1});
  AddTriangle(z, {0, 2, 0}, {0, 1, 0}, {0, 0, 1});
  const KivSceneRegions zRegions = Find({z});
  EXPECT_EQ(TriangleNum(zRegions), 4u);
  ASSERT_EQ(zRegions.RegionNum(), 2u);
  EXPECT_EQ(zRegions.m_viFirstTriangle, (std::vector<uint32_t>{0, 2, 4}));  // over the longest edge
  for (const float f : zRegions.m_vfNormal) EXPECT_TRUE(std::isfinite(f));
  KivSceneFace zAlone;
  AddTriangle(zAlone, {0, 0, 0}, {0, 1, 0}, {0, 2, 0});
  const KivSceneRegions zFlat = Find({zAlone});
  EXPECT_EQ(zFlat.RegionNum(), 1u);
  EXPECT_EQ(zFlat.m_vfNormal, std::vector<float>(9, 0));
}

TEST(SceneRegions, TheRimOfAnOpenMeshIsAClosedLine) {
  KivSceneFace z;
  for (int i = 0; i < 12; ++i) {
    const double a = std::numbers::pi * i / 6, b = std::numbers::pi * ((i + 1) % 12) / 6;
    AddTriangle(z, {0, 0, 0}, {std::cos(a), std::sin(a), 0}, {std::cos(b), std::sin(b), 0});
  }
  const KivSceneRegions zDisc = Find({z});
  ASSERT_EQ(zDisc.LineNum(), 1u);
  EXPECT_EQ(zDisc.Line(0).size(), 13u);
  EXPECT_TRUE(IsClosed(zDisc, 0));
}

TEST(SceneRegions, LinesEndWhereMoreThanTwoMeet) {
  // Two discs that touch in one point: a figure of eight, two closed lines through the point.
  KivSceneFace z;
  AddTriangle(z, {0, 0, 0}, {1, -1, 0}, {1, 1, 0});
  AddTriangle(z, {0, 0, 0}, {-1, 1, 0}, {-1, -1, 0});
  const KivSceneRegions zEight = Find({z});
  EXPECT_EQ(zEight.RegionNum(), 2u);
  EXPECT_EQ(LineLengths(zEight), (std::vector<size_t>{4, 4}));
  EXPECT_TRUE(IsClosed(zEight, 0));
  EXPECT_TRUE(IsClosed(zEight, 1));
  EXPECT_EQ(zEight.Line(0)[0], 0u);  // from the corner
}

TEST(SceneRegions, WindingsThatDisagreePartTriangles) {
  KivSceneFace z;
  AddTriangle(z, {0, 0, 0}, {1, 0, 0}, {1, 1, 0});
  AddTriangle(z, {0, 0, 0}, {0, 1, 0}, {1, 1, 0});
  EXPECT_EQ(Find({z}).RegionNum(), 2u);
}

TEST(SceneRegions, TheSameMeshGivesTheSameNumbers) {
  const KivSceneRegions zA = Find({Sphere(3, 6), Cube(2, {1, 1, 1})}, 20);
  const KivSceneRegions zB = Find({Sphere(3, 6), Cube(2, {1, 1, 1})}, 20);
  EXPECT_GT(zA.RegionNum(), 6u);
  EXPECT_EQ(zA.m_viIndex, zB.m_viIndex);
  EXPECT_EQ(zA.m_viLinePlace, zB.m_viLinePlace);
  EXPECT_EQ(zA.m_viFirstLinePlace, zB.m_viFirstLinePlace);
  EXPECT_EQ(zA.m_vfNormal, zB.m_vfNormal);
}

TEST(SceneRegions, HugeAndTinyMeshesHaveTheSameRegions) {
  for (const double d : {1e-30, 1e-9, 1e12, 1e28}) {
    const KivSceneRegions z = Find({Cube(d)});
    EXPECT_EQ(z.RegionNum(), 6u) << d;
    EXPECT_EQ(z.LineNum(), 12u) << d;
    for (size_t i = 0; i < z.m_vfNormal.size(); i += 3)
      EXPECT_NEAR(std::hypot(z.m_vfNormal[i], z.m_vfNormal[i + 1], z.m_vfNormal[i + 2]), 1, 1e-6) << d;
  }
}
