#include "KivMeshPolygon.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <random>

#include "KivSceneReader.h"
#include "KivTestScale.h"

using namespace kiv;
using namespace kivtest;

namespace {

using Point = KivPolygonCutter::Point;
using Outline = std::vector<Point>;

// Twice the area of a triangle in the plane of x and y.
double Turn(const Point& zA, const Point& zB, const Point& zC) {
  return (zB[0] - zA[0]) * (zC[1] - zA[1]) - (zB[1] - zA[1]) * (zC[0] - zA[0]);
}

double Area(const Outline& vz) {
  double d = 0;
  for (size_t i = 1; i + 1 < vz.size(); ++i) d += Turn(vz[0], vz[i], vz[i + 1]) / 2;
  return d;
}

// Triangles that all turn as the polygon does, whose borders are the polygon's: since those add up to how often the
// polygon goes around a point, each point inside lies in one of them. nFewer: corners that make no triangle.
void ExpectCut(const Outline& vz, size_t nFewer = 0) {
  KivPolygonCutter zCutter;
  std::vector<uint32_t> viCorner;
  EXPECT_TRUE(zCutter.Cut(vz, viCorner));
  ASSERT_EQ(viCorner.size(), 3 * (vz.size() - 2 - nFewer));
  const double dSign = Area(vz) < 0 ? -1 : 1;
  double dArea = 0;
  for (size_t i = 0; i < viCorner.size(); i += 3) {
    ASSERT_LT(*std::max_element(&viCorner[i], &viCorner[i] + 3), vz.size());
    const double dTurn = Turn(vz[viCorner[i]], vz[viCorner[i + 1]], vz[viCorner[i + 2]]);
    EXPECT_GT(dTurn * dSign, 0) << "triangle " << i / 3;
    dArea += dTurn / 2;
  }
  EXPECT_NEAR(dArea, Area(vz), 1e-9 * std::abs(Area(vz)));
}

// In both senses of rotation, from each corner on, and seen along each axis.
void ExpectCutEveryWay(const Outline& vz, size_t nFewer = 0) {
  for (size_t iFirst = 0; iFirst < vz.size(); ++iFirst) {
    Outline vzTurned = vz;
    std::rotate(vzTurned.begin(), vzTurned.begin() + static_cast<ptrdiff_t>(iFirst), vzTurned.end());
    ExpectCut(vzTurned, nFewer);
    std::reverse(vzTurned.begin(), vzTurned.end());
    ExpectCut(vzTurned, nFewer);
  }
  KivPolygonCutter zCutter;
  for (size_t iAxis = 0; iAxis < 3; ++iAxis) {
    Outline vzStanding;
    for (const Point& z : vz) {
      Point zStanding;
      for (size_t i = 0; i < 3; ++i) zStanding[(i + iAxis) % 3] = z[i];
      vzStanding.push_back(zStanding);
    }
    std::vector<uint32_t> viFlat, viStanding;
    zCutter.Cut(vz, viFlat);
    EXPECT_TRUE(zCutter.Cut(vzStanding, viStanding));
    EXPECT_EQ(viStanding, viFlat) << iAxis;
  }
}

Outline Flat(const std::vector<std::pair<double, double>>& vz) {
  Outline vzOutline;
  for (const auto& [dX, dY] : vz) vzOutline.push_back({dX, dY, 0});
  return vzOutline;
}

// Walls up and down between two lines, some of the same height.
Outline Battlement(std::mt19937& zRandom, int nTeeth) {
  std::uniform_int_distribution<int> zHeight(1, 4);
  std::vector<std::pair<double, double>> vz{{0, 0}, {2.0 * nTeeth, 0}};
  for (int i = nTeeth; i > 0; --i) {
    const double dHeight = zHeight(zRandom);
    vz.push_back({2.0 * i, dHeight + 0.1});
    vz.push_back({2.0 * i - 1, dHeight + 0.1});
    vz.push_back({2.0 * i - 1, 1});
    vz.push_back({2.0 * i - 2, 1});
  }
  // A corner that stands twice is none of a battlement.
  vz.erase(std::unique(vz.begin(), vz.end()), vz.end());
  return Flat(vz);
}

Outline Star(std::mt19937& zRandom, int nCorners) {
  std::uniform_real_distribution<double> zRadius(0.1, 10);
  std::vector<std::pair<double, double>> vz;
  for (int i = 0; i < nCorners; ++i) {
    const double dAngle = 2 * std::numbers::pi * i / nCorners, dRadius = zRadius(zRandom);
    vz.push_back({static_cast<double>(static_cast<float>(dRadius * std::cos(dAngle))),
                  static_cast<double>(static_cast<float>(dRadius * std::sin(dAngle)))});
  }
  return Flat(vz);
}

// Two arms that wind around each other.
Outline Spiral(int nCorners) {
  Outline vz;
  for (int i = 0; i < nCorners / 2; ++i) {
    const double dAngle = 0.1 * i;
    vz.push_back({(1 + dAngle) * std::cos(dAngle), (1 + dAngle) * std::sin(dAngle), 0});
  }
  for (int i = nCorners / 2; i-- > 0;) {
    const double dAngle = 0.1 * i;
    vz.push_back({(3 + dAngle) * std::cos(dAngle), (3 + dAngle) * std::sin(dAngle), 0});
  }
  return vz;
}

}  // namespace

TEST(MeshPolygon, ConvexOnesAreCut) {
  ExpectCutEveryWay(Flat({{0, 0}, {1, 0}, {1, 1}, {0, 1}}));
  Outline vzRound;
  for (int i = 0; i < 100; ++i) vzRound.push_back({std::cos(0.06 * i), std::sin(0.06 * i), 0});
  ExpectCut(vzRound);
  KivPolygonCutter zCutter;
  std::vector<uint32_t> viCorner;
  EXPECT_TRUE(zCutter.Cut(Flat({{0, 0}, {1, 0}, {1, 1}, {0, 1}}), viCorner));
  EXPECT_EQ(viCorner, (std::vector<uint32_t>{0, 1, 2, 0, 2, 3}));
}

TEST(MeshPolygon, ProfilesWithCornersOnOneLineAcrossAGapAreCut) {
  ExpectCutEveryWay(Flat({{0, 0}, {4, 0}, {4, 1}, {0, 3}, {-1, 1}, {0, 1}}));
  // T, I, a hat, and a comb
  ExpectCutEveryWay(Flat({{0, 20}, {0, 30}, {30, 30}, {30, 20}, {20, 20}, {20, 0}, {10, 0}, {10, 20}}));
  ExpectCutEveryWay(Flat(
      {{0, 0}, {30, 0}, {30, 3}, {18, 3}, {18, 27}, {30, 27}, {30, 30}, {0, 30}, {0, 27}, {12, 27}, {12, 3}, {0, 3}}));
  ExpectCutEveryWay(Flat({{0, 0},
                          {10, 0},
                          {10, 20},
                          {20, 20},
                          {20, 0},
                          {30, 0},
                          {30, 10},
                          {40, 10},
                          {40, 30},
                          {-10, 30},
                          {-10, 10},
                          {0, 10}}));
  ExpectCutEveryWay(Flat({{0, 0},
                          {7, 0},
                          {7, 1},
                          {6, 1},
                          {6, 0.1},
                          {5, 0.1},
                          {5, 1},
                          {4, 1},
                          {4, 0.1},
                          {3, 0.1},
                          {3, 1},
                          {2, 1},
                          {2, 0.1},
                          {1, 0.1},
                          {1, 1},
                          {0, 1}}));
}

TEST(MeshPolygon, CornersOnStraightLinesBecomeCornersOfTriangles) {
  ExpectCutEveryWay(Flat({{0, 0}, {1, 0}, {2, 0}, {3, 0}, {3, 3}}));
  ExpectCutEveryWay(Flat({{0, 0}, {1, 0}, {2, 0}, {2, 1}, {2, 2}, {1, 2}, {0, 2}, {0, 1}}));
}

TEST(MeshPolygon, RandomOutlinesAreCut) {
  std::mt19937 zRandom(7);
  for (size_t i = 0; i < Scaled(300, 30); ++i) {
    SCOPED_TRACE(i);
    ExpectCut(Battlement(zRandom, 2 + static_cast<int>(i % 9)));
    ExpectCut(Star(zRandom, 5 + static_cast<int>(i % 60)));
  }
}

TEST(MeshPolygon, ASlitLeadsToAHole) {
  // A square with a square hole; the slit from one to the other is passed twice.
  ExpectCutEveryWay(Flat({{0, 0}, {9, 0}, {9, 9}, {0, 9}, {0, 0}, {3, 3}, {3, 6}, {6, 6}, {6, 3}, {3, 3}}));
  // Two holes, slits from the same corner.
  ExpectCutEveryWay(Flat({{0, 0},
                          {9, 0},
                          {9, 9},
                          {0, 9},
                          {0, 0},
                          {1, 5},
                          {1, 6},
                          {2, 6},
                          {2, 5},
                          {1, 5},
                          {0, 0},
                          {5, 1},
                          {5, 2},
                          {6, 2},
                          {6, 1},
                          {5, 1}}));
}

TEST(MeshPolygon, ItMayTouchItselfInACorner) {
  ExpectCutEveryWay(Flat({{0, 0}, {2, 2}, {4, 0}, {4, 4}, {2, 2}, {0, 4}}), 2);
  ExpectCutEveryWay(Flat({{0, 0}, {4, 0}, {4, 4}, {2, 0}, {0, 4}}), 1);
}

TEST(MeshPolygon, CornersThatStandTwiceAndWaysThereAndBackMakeNoTriangle) {
  ExpectCutEveryWay(Flat({{0, 0}, {1, 0}, {1, 0}, {1, 1}, {0, 1}}), 1);
  ExpectCut(Flat({{0, 0}, {2, 0}, {3, -1}, {2, 0}, {2, 2}, {0, 2}}), 2);
}

TEST(MeshPolygon, OneALittleOutsideAPlaneIsCut) {
  KivPolygonCutter zCutter;
  std::vector<uint32_t> viCorner;
  EXPECT_TRUE(zCutter.Cut({{0, 0, 0.1}, {1, 0, -0.1}, {1, 1, 0.1}, {0, 1, -0.1}}, viCorner));
  EXPECT_EQ(viCorner.size(), 6u);
  // Corners that lie above each other are no one place.
  EXPECT_TRUE(zCutter.Cut({{0, 0, 0}, {1, 0, 0}, {1, 0, 0.1}, {1, 1, 0}, {0, 1, 0}}, viCorner));
  EXPECT_EQ(viCorner.size(), 9u);
  EXPECT_EQ(std::count(viCorner.begin(), viCorner.end(), 2u), 2);
}

TEST(MeshPolygon, OneThatCrossesItselfIsTold) {
  KivPolygonCutter zCutter;
  std::vector<uint32_t> viCorner;
  EXPECT_FALSE(zCutter.Cut(Flat({{0, 0}, {2, 2}, {2, 0}, {0, 1}}), viCorner));
  EXPECT_EQ(viCorner.size(), 6u);
  EXPECT_FALSE(zCutter.Cut(Flat({{0, 0}, {1, 1}, {1, 0}, {0, 1}}), viCorner)) << "as much to the right as to the left";
  EXPECT_FALSE(zCutter.Cut(Flat({{0, 0}, {1, 0}, {2, 0}, {3, 0}}), viCorner));
  EXPECT_TRUE(viCorner.empty()) << "no area";
  EXPECT_FALSE(zCutter.Cut(Flat({{1, 1}, {1, 1}, {1, 1}, {1, 1}}), viCorner));
  EXPECT_TRUE(viCorner.empty());
}

TEST(MeshPolygon, RandomCornersGiveTrianglesOfThem) {
  std::mt19937 zRandom(11);
  std::uniform_int_distribution<int> zPlace(0, 5);
  KivPolygonCutter zCutter;
  std::vector<uint32_t> viCorner;
  for (size_t iRun = 0; iRun < Scaled(3000, 300); ++iRun) {
    Outline vz(4 + iRun % 30);
    for (Point& z : vz)
      for (double& d : z) d = zPlace(zRandom);
    zCutter.Cut(vz, viCorner);
    ASSERT_LE(viCorner.size(), 3 * (vz.size() - 2));
    for (const uint32_t i : viCorner) ASSERT_LT(i, vz.size());
  }
}

TEST(MeshPolygon, ALongSpiralIsCut) {
  ExpectCut(Spiral(static_cast<int>(Scaled(5000, 500))));
}

TEST(MeshPolygon, MoreWorkThanTheBoundIsGivenUp) {
  KivPolygonCutter zCutter(100000);
  std::vector<uint32_t> viCorner;
  Outline vzRound;
  for (int i = 0; i < 300; ++i) vzRound.push_back({std::cos(0.02 * i), std::sin(0.02 * i), 0});
  EXPECT_TRUE(zCutter.Cut(vzRound, viCorner));
  EXPECT_THROW(zCutter.Cut(vzRound, viCorner), KivSceneError) << "all polygons together";
}
