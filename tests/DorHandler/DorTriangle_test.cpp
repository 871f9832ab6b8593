// Nearest points of triangles and of faces, against a slow search.
#include "DorTriangle.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

#include "DorFaceTree.h"
#include "DorRefusal.h"

using namespace kiv;

namespace {

// How far a point lies beside a triangle: from its edges, and from its inside by the coordinates of the point there.
double DistanceTo(const DorTriangle& z, const KivECoord3& zPoint) {
  double dBest = 1e30;
  for (size_t i = 0; i < 3; ++i) {
    const KivECoord3 zEdge = z[(i + 1) % 3] - z[i];
    const double dSquared = zEdge.Dot(zEdge);
    const double t = dSquared == 0 ? 0 : std::clamp(zEdge.Dot(zPoint - z[i]) / dSquared, 0.0, 1.0);
    dBest = std::min(dBest, (z[i] + zEdge * t - zPoint).Length());
  }
  const KivECoord3 zU = z[1] - z[0], zV = z[2] - z[0], zW = zPoint - z[0];
  const double dUU = zU.Dot(zU), dUV = zU.Dot(zV), dVV = zV.Dot(zV), dUW = zU.Dot(zW), dVW = zV.Dot(zW);
  const double dArea = dUU * dVV - dUV * dUV;
  if (dArea <= 1e-12 * dUU * dVV) return dBest;  // a line
  const double u = (dVV * dUW - dUV * dVW) / dArea, v = (dUU * dVW - dUV * dUW) / dArea;
  return u < 0 || v < 0 || u + v > 1 ? dBest : std::min(dBest, (zU * u + zV * v - zW).Length());
}

// Points of the triangles so far apart: it cannot be too small.
double Distance(const DorTriangle& zA, const DorTriangle& zB) {
  const DorNearest z = DorNearestOfTriangles(zA, zB);
  EXPECT_LE(DistanceTo(zA, z.m_zFirst), 1e-9);
  EXPECT_LE(DistanceTo(zB, z.m_zSecond), 1e-9);
  EXPECT_NEAR((z.m_zFirst - z.m_zSecond).Length(), std::sqrt(z.m_dSquared), 1e-9);
  EXPECT_NEAR(std::sqrt(DorNearestOfTriangles(zB, zA).m_dSquared), std::sqrt(z.m_dSquared), 1e-9) << "other way round";
  return std::sqrt(z.m_dSquared);
}

KivECoord3 On(const DorTriangle& z, double u, double v) {
  if (u + v > 1) u = 1 - u, v = 1 - v;
  return z[0] + (z[1] - z[0]) * u + (z[2] - z[0]) * v;
}

constexpr DorTriangle kFlat = {KivECoord3{0, 0, 0}, KivECoord3{4, 0, 0}, KivECoord3{0, 4, 0}};

std::mt19937 g_zRandom(20251122);

KivECoord3 RandomPoint(double dSize) {
  std::uniform_real_distribution<double> z(-dSize, dSize);
  return {z(g_zRandom), z(g_zRandom), z(g_zRandom)};
}

DorTriangle RandomTriangle(double dSpread, double dSize) {
  const KivECoord3 z = RandomPoint(dSpread);
  DorTriangle zTriangle{z, z + RandomPoint(dSize), z + RandomPoint(dSize)};
  switch (g_zRandom() % 8) {
    case 0:
      zTriangle[2] = zTriangle[0] + (zTriangle[1] - zTriangle[0]) * 0.5;
      break;
    case 1:
      zTriangle[1] = zTriangle[2] = zTriangle[0];
      break;
    default:
      break;
  }
  return zTriangle;
}

}  // namespace

TEST(DorTriangle, NearestPointsAreOnCornersEdgesAndInsides) {
  EXPECT_DOUBLE_EQ(Distance(kFlat, {KivECoord3{1, 1, 3}, {9, 9, 9}, {5, 9, 9}}), 3);                     // inside
  EXPECT_DOUBLE_EQ(Distance(kFlat, {KivECoord3{-3, -4, 0}, {-9, -9, 0}, {-5, -9, 0}}), 5);               // corners
  EXPECT_DOUBLE_EQ(Distance(kFlat, {KivECoord3{2, -2, -1}, {2, -2, 1}, {2, -9, 0}}), 2);                 // edges
  EXPECT_DOUBLE_EQ(Distance(kFlat, {KivECoord3{0, 0, 2}, {4, 0, 2}, {0, 4, 2}}), 2);                     // parallel
  EXPECT_NEAR(Distance(kFlat, {KivECoord3{4, 4, 0}, {9, 4, 0}, {4, 9, 0}}), 2 * std::sqrt(2.0), 1e-12);  // same plane
}

TEST(DorTriangle, TrianglesThatMeetHaveNoDistanceAndACommonPoint) {
  EXPECT_EQ(Distance(kFlat, kFlat), 0);
  EXPECT_EQ(Distance(kFlat, {KivECoord3{1, 1, -1}, {1, 1, 1}, {9, 9, 9}}), 0) << "pierced";
  EXPECT_NEAR(Distance(kFlat, {KivECoord3{4, 0, 0}, {9, 0, 0}, {9, 0, 5}}), 0, 1e-12) << "a corner in common";
  EXPECT_NEAR(Distance(kFlat, {KivECoord3{1, 1, 0}, {1.5, 1, 0}, {1, 1.5, 0}}), 0, 1e-12) << "one in the other";
  EXPECT_NEAR(Distance(kFlat, {KivECoord3{-1, 1, 0}, {9, 1, 0}, {4, 1.5, 0}}), 0, 1e-12) << "across, in the plane";
}

TEST(DorTriangle, LinesAndPointsAreTrianglesToo) {
  const DorTriangle zPoint{KivECoord3{1, 1, 7}, {1, 1, 7}, {1, 1, 7}}, zLine{KivECoord3{1, 1, 7}, {1, 1, 9}, {1, 1, 8}};
  EXPECT_DOUBLE_EQ(Distance(kFlat, zPoint), 7);
  EXPECT_DOUBLE_EQ(Distance(kFlat, zLine), 7);
  EXPECT_DOUBLE_EQ(Distance(zPoint, zPoint), 0);
  EXPECT_DOUBLE_EQ(Distance(zLine, {KivECoord3{4, 5, 8}, {4, 5, 8}, {4, 5, 8}}), 5);
  EXPECT_NEAR(Distance(kFlat, {KivECoord3{1, 1, -1}, {1, 1, 1}, {1, 1, 0}}), 0, 1e-12) << "a needle through it";
}

TEST(DorTriangle, NoPairOfRandomPointsIsNearer) {
  for (int i = 0; i < 3000; ++i) {
    const DorTriangle zA = RandomTriangle(2, 2), zB = RandomTriangle(2, 2);
    const double d = Distance(zA, zB);
    double dSeen = 1e30;
    std::uniform_real_distribution<double> z(0, 1);
    for (int k = 0; k < 60; ++k)
      dSeen = std::min(dSeen, (On(zA, z(g_zRandom), z(g_zRandom)) - On(zB, z(g_zRandom), z(g_zRandom))).Length());
    ASSERT_LE(d, dSeen + 1e-9) << i;
  }
}

// A point of one triangle is moved to the nearest one of the other and back: where this ends there is nothing nearer.
TEST(DorTriangle, TheNearestPointsAreNearestToEachOther) {
  const auto Project = [](const KivECoord3& zPoint, const DorTriangle& z) {
    return DorNearestOfTriangles({zPoint, zPoint, zPoint}, z).m_zSecond;
  };
  for (int i = 0; i < 2000; ++i) {
    const DorTriangle zA = RandomTriangle(2, 2), zB = RandomTriangle(2, 2);
    const double d = Distance(zA, zB);
    KivECoord3 zOn = On(zA, 0.3, 0.3), zOther;
    for (int k = 0; k < 400; ++k) {
      zOther = Project(zOn, zB);
      zOn = Project(zOther, zA);
    }
    ASSERT_LE(d, (zOn - zOther).Length() + 1e-9) << i;
  }
}

TEST(DorFaceTree, RandomFacesHaveTheDistanceOfTheirNearestTriangles) {
  for (const size_t nTriangles : {1u, 2u, 4u, 5u, 9u, 40u, 150u}) {
    for (int i = 0; i < 12; ++i) {
      std::vector<DorTriangle> vzA, vzB;
      for (size_t k = 0; k < nTriangles; ++k) vzA.push_back(RandomTriangle(5, 1));
      for (size_t k = 0; k < nTriangles / 2 + 1; ++k) vzB.push_back(RandomTriangle(5, 1));
      for (DorTriangle& zTriangle : vzB)
        for (KivECoord3& z : zTriangle) z += {i < 6 ? 8.0 + i : 0.0, 0, 0};
      double dBest = 1e30;
      for (const DorTriangle& a : vzA)
        for (const DorTriangle& b : vzB) dBest = std::min(dBest, DorNearestOfTriangles(a, b).m_dSquared);
      const DorFaceTree zA(vzA), zB(vzB);
      const DorNearest z = zA.NearestTo(zB);
      ASSERT_EQ(z.m_dSquared, dBest) << nTriangles << " " << i;
      ASSERT_NEAR(zB.NearestTo(zA).m_dSquared, dBest, 1e-12) << "the other way round it is rounded differently";
      ASSERT_NEAR((z.m_zFirst - z.m_zSecond).Length(), std::sqrt(dBest), 1e-9);
      const auto IsOn = [](const std::vector<DorTriangle>& vz, const KivECoord3& zPoint) {
        return std::any_of(vz.begin(), vz.end(), [&](const auto& zOne) { return DistanceTo(zOne, zPoint) <= 1e-9; });
      };
      ASSERT_TRUE(IsOn(vzA, z.m_zFirst) && IsOn(vzB, z.m_zSecond)) << nTriangles << " " << i;
    }
  }
}

// A sphere keeps an even gap from a larger one: most of their triangles are about equally near.
TEST(DorFaceTree, ASearchThatTakesTooLongIsRefusedByEachOfItsLimits) {
  const auto Sphere = [](double dRadius, double dTurn) {
    constexpr int kSteps = 12;
    constexpr double kPi = 3.14159265358979;
    const auto At = [&](int i, int k) {
      const double t = kPi * i / kSteps, p = kPi * k / kSteps + dTurn;
      return KivECoord3{std::sin(t) * std::cos(p), std::sin(t) * std::sin(p), std::cos(t)} * dRadius;
    };
    std::vector<DorTriangle> vz;
    for (int i = 0; i < kSteps; ++i)
      for (int k = 0; k < 2 * kSteps; ++k) {
        vz.push_back({At(i, k), At(i + 1, k), At(i + 1, k + 1)});
        vz.push_back({At(i, k), At(i + 1, k + 1), At(i, k + 1)});
      }
    return std::make_unique<DorFaceTree>(vz);
  };
  const auto pzSmall = Sphere(1, 0), pzLarge = Sphere(1.5, 0.1);
  EXPECT_NEAR(std::sqrt(pzSmall->NearestTo(*pzLarge).m_dSquared), 0.48, 0.02) << "the limits that are shipped";
  DorSearchLimits zFewPairs, zFewWaiting, zEnough;
  zFewPairs.m_nMostPairs = 50;
  zFewWaiting.m_nMostWaiting = 50;
  zEnough.m_nMostPairs = zEnough.m_nMostWaiting = 40'000;
  for (const DorSearchLimits& zLimits : {zFewPairs, zFewWaiting}) {
    try {
      pzSmall->NearestTo(*pzLarge, zLimits);
      ADD_FAILURE() << "not refused";
    } catch (const DorRefusal& e) {
      EXPECT_EQ(e.m_iCode, DorAnswerCode::Failed);
      EXPECT_EQ(e.m_strReason, "too many triangles of the faces are about equally near");
    }
  }
  EXPECT_NO_THROW(pzSmall->NearestTo(*pzLarge, zEnough));
  EXPECT_EQ(DorSearchLimits().m_nMostPairs, 4'000'000u) << "docs/requests.md says so";
  EXPECT_EQ(DorSearchLimits().m_nMostWaiting, 1'000'000u);
}

TEST(DorFaceTrees, TheOneThatWasUsedLongestAgoGoesFirst) {
  DorFaceTrees zTrees(5000);
  int nMade = 0;
  const auto Get = [&](int64_t iFace, size_t nTriangles) {
    return zTrees.Get({0, iFace}, [&] {
      ++nMade;
      return std::vector<DorTriangle>(nTriangles, kFlat);
    });
  };
  Get(1, 8);
  Get(2, 8);
  Get(1, 8);
  EXPECT_EQ(nMade, 2);
  Get(3, 36);
  EXPECT_EQ(nMade, 3);
  EXPECT_LE(zTrees.GetByteNum(), 5000u);
  Get(1, 8);
  EXPECT_EQ(nMade, 3) << "still there";
  Get(2, 8);
  EXPECT_EQ(nMade, 4);
  const auto pzLarge = Get(4, 1000);
  EXPECT_EQ(pzLarge->GetTriangleNum(), 1000u) << "is given, but not kept";
  EXPECT_LE(zTrees.GetByteNum(), 5000u);
  zTrees.Clear();
  EXPECT_EQ(zTrees.GetByteNum(), 0u);
}
