#include "KivBrepEncode.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <random>

namespace kiv {
namespace {

constexpr size_t kFlags = 0;

KivBrepGeometry Nurbs(uint32_t iOrder, std::vector<double> vdKnot, std::vector<KivECoord3> vzPole) {
  KivBrepGeometry z;
  z.m_iKind = kBrepNurbsKind;
  z.m_iOrder = iOrder;
  z.m_vdKnot = std::move(vdKnot);
  z.m_vzPole = std::move(vzPole);
  return z;
}

std::vector<double> UniformKnots(uint32_t iOrder, uint32_t nPoles) {
  std::vector<double> vdKnot(iOrder, 0.0);
  for (uint32_t i = iOrder; i < nPoles; ++i) vdKnot.push_back(vdKnot.back() + 1.0 / (nPoles - iOrder + 1.0));
  vdKnot.insert(vdKnot.end(), iOrder, 1.0);
  return vdKnot;
}

// Poles of which no number is the value of a short integer.
std::vector<KivECoord3> OddPoles(size_t nPoles) {
  std::vector<KivECoord3> vzPole;
  for (size_t i = 0; i < nPoles; ++i) {
    const double d = static_cast<double>(i);
    vzPole.push_back({std::sin(d + 0.3), std::cos(1.7 * d), std::sqrt(d + 2)});
  }
  return vzPole;
}

std::vector<uint64_t> Bits(const KivBrepGeometry& z) {
  std::vector<uint64_t> vi = {z.m_iKind, z.m_iAnalyticType, z.m_iOrder};
  const auto Add = [&](double d) { vi.push_back(std::bit_cast<uint64_t>(d)); };
  const auto AddPoint = [&](const KivECoord3& zPoint) {
    Add(zPoint.m_dX);
    Add(zPoint.m_dY);
    Add(zPoint.m_dZ);
  };
  AddPoint(z.m_zPoint);
  AddPoint(z.m_zAxis);
  Add(z.m_dRadius);
  for (const double d : z.m_vdKnot) Add(d);
  for (const KivECoord3& zPole : z.m_vzPole) AddPoint(zPole);
  for (const double d : z.m_vdWeight) Add(d);
  return vi;
}

// The string, after it was seen that it is decoded to the same bits.
std::vector<uint8_t> Encode(const KivBrepGeometry& z) {
  const std::vector<uint8_t> vc = KivEncodeBrepGeometry(z);
  KivBrepGeometry zDecoded;
  EXPECT_TRUE(KivDecodeBrepGeometry(z.m_iKind, vc, zDecoded));
  EXPECT_EQ(Bits(z), Bits(zDecoded));
  return vc.empty() ? std::vector<uint8_t>(64) : vc;
}

TEST(BrepEncode, AnalyticStringsAreThoseOfTheTable) {
  KivBrepGeometry z;
  z.m_iKind = kBrepAnalyticKind;
  z.m_zPoint = {1, 2, 0.5};
  z.m_zAxis = {0, 0, 1};
  for (uint32_t iType = 1; iType <= 5; ++iType) {
    const bool bRadius = iType == 2 || iType == 3;
    z.m_iAnalyticType = iType;
    z.m_dRadius = bRadius ? 2.5 : 0;
    const std::vector<uint8_t> vc = Encode(z);
    EXPECT_EQ(vc.size(), bRadius ? 58u : 50u);
    EXPECT_EQ(vc[0], 64);
    EXPECT_EQ(vc[1], iType);
  }
}

TEST(BrepEncode, WhatNoAnalyticStringHoldsGivesNone) {
  KivBrepGeometry zGood;
  zGood.m_iKind = kBrepAnalyticKind;
  zGood.m_iAnalyticType = 1;
  zGood.m_zAxis = {0, 0, 1};
  EXPECT_FALSE(KivEncodeBrepGeometry(zGood).empty());
  KivBrepGeometry z = zGood;
  z.m_iAnalyticType = 6;
  EXPECT_TRUE(KivEncodeBrepGeometry(z).empty());
  z.m_iAnalyticType = 0;
  EXPECT_TRUE(KivEncodeBrepGeometry(z).empty());
  z = zGood;
  z.m_iAnalyticType = 2;  // without a radius
  EXPECT_TRUE(KivEncodeBrepGeometry(z).empty());
  z = zGood;
  z.m_dRadius = 1;  // a plane has none
  EXPECT_TRUE(KivEncodeBrepGeometry(z).empty());
  z = zGood;
  z.m_zAxis = {0, 0, 1e-13};
  EXPECT_TRUE(KivEncodeBrepGeometry(z).empty());
  z = zGood;
  z.m_zPoint.m_dY = std::numeric_limits<double>::quiet_NaN();
  EXPECT_TRUE(KivEncodeBrepGeometry(z).empty());
  z = zGood;
  z.m_iKind = 10006;
  EXPECT_TRUE(KivEncodeBrepGeometry(z).empty());
}

TEST(BrepEncode, WhatNoNurbsStringHoldsGivesNone) {
  const KivBrepGeometry zGood = Nurbs(2, {0, 0, 1, 1}, OddPoles(2));
  EXPECT_FALSE(KivEncodeBrepGeometry(zGood).empty());
  KivBrepGeometry z = zGood;
  z.m_iOrder = 0;
  EXPECT_TRUE(KivEncodeBrepGeometry(z).empty());
  z = zGood;
  z.m_iOrder = 3;  // fewer poles than the order
  EXPECT_TRUE(KivEncodeBrepGeometry(z).empty());
  z = zGood;
  z.m_vdKnot.pop_back();
  EXPECT_TRUE(KivEncodeBrepGeometry(z).empty());
  z = zGood;
  z.m_vdWeight = {1};
  EXPECT_TRUE(KivEncodeBrepGeometry(z).empty());
  z = zGood;
  z.m_vzPole[1].m_dZ = std::numeric_limits<double>::infinity();
  EXPECT_TRUE(KivEncodeBrepGeometry(z).empty());
  z = zGood;
  z.m_dRadius = 1;
  EXPECT_TRUE(KivEncodeBrepGeometry(z).empty());
  EXPECT_TRUE(KivEncodeBrepGeometry(KivBrepGeometry()).empty());
}

TEST(BrepEncode, CountsTakeTheSmallestForm) {
  struct Case {
    uint32_t m_iOrder, m_nPoles;
    uint8_t m_iForm;
  };
  for (const Case& zCase : {Case{7, 31, 3}, Case{8, 31, 0}, Case{7, 32, 0}, Case{1, 1, 3}, Case{255, 255, 0},
                            Case{2, 256, 1}, Case{300, 65535, 1}, Case{4, 65536, 2}}) {
    SCOPED_TRACE(testing::Message() << zCase.m_iOrder << " of " << zCase.m_nPoles);
    const KivBrepGeometry z =
        Nurbs(zCase.m_iOrder, UniformKnots(zCase.m_iOrder, zCase.m_nPoles), OddPoles(zCase.m_nPoles));
    EXPECT_EQ(Encode(z)[kFlags] & 3, zCase.m_iForm);
  }
}

TEST(BrepEncode, ClampedKnotsWithEqualStepsTakeNoBytes) {
  for (const uint32_t nPoles : {4u, 5u, 7u, 11u, 30u}) {
    const std::vector<uint8_t> vc = Encode(Nurbs(4, UniformKnots(4, nPoles), OddPoles(nPoles)));
    EXPECT_EQ(vc[kFlags], 3 | 8 | 16);
    EXPECT_EQ(vc.size(), 3u + 24 * nPoles);
  }
}

TEST(BrepEncode, ClampedKnotsThatMissTheEqualStepsByOneBitKeepTheirSteps) {
  KivBrepGeometry z = Nurbs(3, UniformKnots(3, 6), OddPoles(6));
  z.m_vdKnot[4] = std::nextafter(z.m_vdKnot[4], 1.0);
  const std::vector<uint8_t> vc = Encode(z);
  EXPECT_EQ(vc[kFlags], 3 | 8);
  EXPECT_EQ(vc.size(), 3u + 8 * 3 + 24 * 6);
}

TEST(BrepEncode, KnotsThatAreNotClampedFromZeroToOneStayAsTheyAre) {
  EXPECT_EQ(Encode(Nurbs(2, {0, 0, 2, 2}, OddPoles(2)))[kFlags], 3);
  EXPECT_EQ(Encode(Nurbs(2, {0, 0.1, 1, 1}, OddPoles(2)))[kFlags], 3);
  EXPECT_EQ(Encode(Nurbs(2, {-0.0, 0, 1, 1}, OddPoles(2)))[kFlags], 3);
  EXPECT_EQ(Encode(Nurbs(3, {5, 4, 3, 2, 1, 0}, OddPoles(3)))[kFlags], 3);
}

TEST(BrepEncode, AKnotThatNoStepReachesKeepsTheKnotsAsTheyAre) {
  // From -1 on no step comes to this number: it has more digits than a sum there.
  const double dSmall = std::ldexp(1.0, -80) * 1.37;
  KivBrepGeometry z = Nurbs(2, {0, 0, -1.0, dSmall, 1, 1}, OddPoles(4));
  EXPECT_EQ(Encode(z)[kFlags], 3);
}

TEST(BrepEncode, AnAxisThatStaysIsStoredOnce) {
  const std::vector<KivECoord3> vzPole = {{0.1, 0.2, 0.3}, {0.4, 0.2, 0.3}, {0.7, 0.9, 0.3}};
  for (uint32_t iMask = 0; iMask < 8; ++iMask) {
    std::vector<KivECoord3> vz = vzPole;
    for (size_t i = 1; i < vz.size(); ++i)
      vz[i] = {(iMask & 1) != 0 ? vz[i].m_dX : vz[0].m_dX, (iMask & 2) != 0 ? 0.2 + 0.31 * static_cast<double>(i) : 0.2,
               (iMask & 4) != 0 ? std::sqrt(static_cast<double>(i)) : 0.3};
    const std::vector<uint8_t> vc = Encode(Nurbs(3, {0, 0, 0, 1, 1, 1}, vz));
    EXPECT_EQ(vc[2], iMask);
    EXPECT_EQ(vc.size(), 3u + 24 + 2 * 8 * static_cast<size_t>(std::popcount(iMask)));
  }
  // Zeros of different sign are not the same number.
  EXPECT_EQ(Encode(Nurbs(2, {0, 0, 1, 1}, {{0.0, 0.1, 0.2}, {-0.0, 0.1, 0.2}}))[2], 1);
}

TEST(BrepEncode, AProfileWithoutPolesTakesTheFirstOnly) {
  const std::vector<uint8_t> vc = Encode(Nurbs(4, UniformKnots(4, 20), std::vector<KivECoord3>(20)));
  EXPECT_EQ(vc.size(), 3u + 24);
}

TEST(BrepEncode, PolesOnAGridAreQuantised) {
  std::vector<KivECoord3> vzPole;
  for (int i = 0; i <= 15; ++i) vzPole.push_back({17.0 * i - 5, 255.0 - 17 * i, 3});
  const std::vector<uint8_t> vc = Encode(Nurbs(2, UniformKnots(2, 16), vzPole));
  EXPECT_EQ(vc[kFlags], 3 | 8 | 16 | 32);
  EXPECT_EQ(vc[3], 1);  // one byte for each coordinate
  EXPECT_EQ(vc.size(), 3u + 33 + 3 + 15 * 2);
  // Two bytes, for a grid of 1 / 65535 parts.
  vzPole.clear();
  for (int i = 0; i <= 30; ++i) vzPole.push_back({2184.0 * i + (i % 2), 65535.0 - 2184 * i, 0});
  vzPole[30].m_dX = 65535;
  const std::vector<uint8_t> vcTwo = Encode(Nurbs(2, UniformKnots(2, 31), vzPole));
  EXPECT_EQ(vcTwo[kFlags] & 32, 32);
  EXPECT_EQ(vcTwo[3], 2);
}

TEST(BrepEncode, PolesAreNotQuantisedWhereABitWouldBeLostOrNothingWon) {
  std::vector<KivECoord3> vzPole;
  for (int i = 0; i <= 15; ++i) vzPole.push_back({17.0 * i, 255.0 - 17 * i, 3});
  vzPole[7].m_dX = std::nextafter(vzPole[7].m_dX, 0.0);
  EXPECT_EQ(Encode(Nurbs(2, UniformKnots(2, 16), vzPole))[kFlags] & 32, 0);
  // The header of the quantised form costs more than one coordinate wins.
  EXPECT_EQ(Encode(Nurbs(2, UniformKnots(2, 2), {{0, 0, 0}, {1, 0, 0}}))[kFlags] & 32, 0);
  // Weights and quantised poles exclude each other.
  KivBrepGeometry z = Nurbs(2, UniformKnots(2, 16), vzPole);
  z.m_vdWeight.assign(16, 1.0);
  EXPECT_EQ(Encode(z)[kFlags] & (32 | 4), 4);
}

TEST(BrepEncode, RandomGeometryComesBackBitByBit) {
  std::mt19937_64 zRandom(20);
  const auto Below = [&](uint64_t n) { return zRandom() % n; };
  const auto Number = [&]() -> double {
    switch (Below(6)) {
      case 0:
        return 0;
      case 1:
        return static_cast<double>(Below(256));
      case 2:
        return -0.25 * static_cast<double>(Below(64));
      case 3:
        return std::ldexp(static_cast<double>(zRandom() >> 11), -53);
      case 4:
        return std::ldexp(static_cast<double>(zRandom()), static_cast<int>(Below(200)) - 160);
      default:
        return -std::ldexp(static_cast<double>(zRandom() >> 11), -50);
    }
  };
  size_t nCompact = 0, nQuantised = 0;
  for (int iRound = 0; iRound < 8000; ++iRound) {
    const uint32_t iOrder = 1 + static_cast<uint32_t>(Below(9));
    const uint32_t nPoles = iOrder + static_cast<uint32_t>(Below(Below(10) == 0 ? 300 : 12));
    std::vector<double> vdKnot = UniformKnots(iOrder, nPoles);
    const uint64_t iKnots = Below(3);
    for (double& d : vdKnot)
      if (iKnots == 2 || (iKnots == 1 && d != 0 && d != 1)) d = Number();
    std::vector<KivECoord3> vzPole;
    const bool bGrid = Below(2) == 0;
    const uint64_t iStill = Below(8);
    const KivECoord3 zFirst = {Number(), Number(), Number()};
    for (uint32_t i = 0; i < nPoles; ++i) {
      KivECoord3 z = bGrid
                         ? KivECoord3{static_cast<double>(Below(256)), static_cast<double>(Below(256)), 255.0 * (i % 2)}
                         : KivECoord3{Number(), Number(), Number()};
      if ((iStill & 1) != 0) z.m_dX = zFirst.m_dX;
      if ((iStill & 2) != 0) z.m_dY = zFirst.m_dY;
      if ((iStill & 4) != 0) z.m_dZ = zFirst.m_dZ;
      vzPole.push_back(z);
    }
    KivBrepGeometry z = Nurbs(iOrder, std::move(vdKnot), std::move(vzPole));
    if (Below(3) == 0)
      for (uint32_t i = 0; i < nPoles; ++i) z.m_vdWeight.push_back(Number());
    const std::vector<uint8_t> vc = Encode(z);
    ASSERT_FALSE(HasFailure()) << "round " << iRound;
    nCompact += (vc[kFlags] & 8) != 0 ? 1 : 0;
    nQuantised += (vc[kFlags] & 32) != 0 ? 1 : 0;
    ASSERT_LE(vc.size(), 11 + 8u * (iOrder + nPoles) + 32u * nPoles);
  }
  // The rounds have met both compact forms, and not only these.
  EXPECT_GT(nCompact, 1000u);
  EXPECT_LT(nCompact, 7000u);
  EXPECT_GT(nQuantised, 100u);
}

}  // namespace
}  // namespace kiv
