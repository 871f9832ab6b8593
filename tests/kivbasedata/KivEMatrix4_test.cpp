#include "KivEMatrix4.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "KivReportQuiet.h"
#include "KivTestMesh.h"

using namespace kiv;
using kivtest::TestRandom;

namespace {

constexpr double kPi = 3.14159265358979323846;

uint64_t Reports() {
  return KivLastQuietReport().m_iNumber;
}

KivEMatrix4 RandomMatrix(TestRandom& zRandom) {
  KivEMatrix4 z;
  for (size_t i = 0; i < 16; ++i) z[i] = static_cast<double>(zRandom.Within(-2, 2));
  return z;
}

bool SameBits(const KivEMatrix4& zA, const KivEMatrix4& zB) {
  for (size_t i = 0; i < 16; ++i)
    if (std::bit_cast<uint64_t>(zA[i]) != std::bit_cast<uint64_t>(zB[i])) return false;
  return true;
}

void ExpectPoint(const KivECoord3& z, double dX, double dY, double dZ) {
  EXPECT_NEAR(z.m_dX, dX, 1e-12);
  EXPECT_NEAR(z.m_dY, dY, 1e-12);
  EXPECT_NEAR(z.m_dZ, dZ, 1e-12);
}

}  // namespace

TEST(Coord3, AVectorShorterThan1e30thStaysAsItIs) {
  KivECoord3 z = {0, 9e-31, 0};
  z.Normalise();
  EXPECT_EQ(z, (KivECoord3{0, 9e-31, 0}));
  z = {0, 3, 4};
  z.Normalise();
  ExpectPoint(z, 0, 0.6, 0.8);
}

TEST(Matrix4, ADefaultMatrixIsTheIdentity) {
  const KivEMatrix4 z;
  for (size_t i = 0; i < 16; ++i) EXPECT_EQ(z[i], i % 5 == 0 ? 1.0 : 0.0);
  EXPECT_TRUE(z.IsAffine());
  EXPECT_FALSE(z.IsMirror());
}

TEST(Matrix4, PointsAreRowsAndTheFirstOperationStandsLeft) {
  KivEMatrix4 zTurn, zMove;
  zTurn.RotateZ(0, 1);
  zMove.Translate({10, 0, 0});
  ExpectPoint((zTurn * zMove).TransformPoint(KivECoord3{1, 0, 0}), 10, 1, 0);
  ExpectPoint((zMove * zTurn).TransformPoint(KivECoord3{1, 0, 0}), 0, 11, 0);
  KivEMatrix4 zBoth = zTurn;
  zBoth.Translate({10, 0, 0});
  EXPECT_TRUE(SameBits(zBoth, zTurn * zMove));
}

TEST(Matrix4, BasicRotationsHaveTheirElements) {
  KivEMatrix4 zX, zY, zZ;
  zX.RotateX(0.25, 0.5);
  EXPECT_TRUE(zX[5] == 0.25 && zX[6] == 0.5 && zX[9] == -0.5 && zX[10] == 0.25);
  zY.RotateY(0.25, 0.5);
  EXPECT_TRUE(zY[0] == 0.25 && zY[2] == -0.5 && zY[8] == 0.5 && zY[10] == 0.25);
  zZ.RotateZ(0.25, 0.5);
  EXPECT_TRUE(zZ[0] == 0.25 && zZ[1] == 0.5 && zZ[4] == -0.5 && zZ[5] == 0.25);
}

TEST(Matrix4, RotationsMultiplyOntoTheRight) {
  TestRandom zRandom(3);
  for (int i = 0; i < 50; ++i) {
    const KivEMatrix4 z = RandomMatrix(zRandom);
    const double dAngle = static_cast<double>(zRandom.Within(-7, 7));
    KivEMatrix4 zX = z, zY = z, zZ = z, zTurnX, zTurnY, zTurnZ;
    zX.RotateX(dAngle);
    zY.RotateY(dAngle);
    zZ.RotateZ(dAngle);
    zTurnX.RotateX(dAngle);
    zTurnY.RotateY(dAngle);
    zTurnZ.RotateZ(dAngle);
    EXPECT_TRUE(zX.IsIdentityLike(z * zTurnX));
    EXPECT_TRUE(zY.IsIdentityLike(z * zTurnY));
    EXPECT_TRUE(zZ.IsIdentityLike(z * zTurnZ));
  }
}

TEST(Matrix4, AProductIsTheSumOfFourInOrder) {
  TestRandom zRandom(4);
  const KivEMatrix4 zA = RandomMatrix(zRandom), zB = RandomMatrix(zRandom);
  const KivEMatrix4 zProduct = zA * zB;
  for (size_t i = 0; i < 4; ++i) {
    for (size_t k = 0; k < 4; ++k) {
      volatile double d = zA[4 * i] * zB[k];
      for (size_t n = 1; n < 4; ++n) {
        const volatile double dPart = zA[4 * i + n] * zB[4 * n + k];
        d = d + dPart;
      }
      EXPECT_EQ(zProduct[4 * i + k], d);
    }
  }
}

TEST(Matrix4, AMatrixMayBeMultipliedByItself) {
  TestRandom zRandom(4);
  KivEMatrix4 z = RandomMatrix(zRandom);
  const KivEMatrix4 zCopy = z;
  z *= z;
  EXPECT_TRUE(SameBits(z, zCopy * zCopy));
}

TEST(Matrix4, AScalarGoesToAll16Elements) {
  KivEMatrix4 z;
  z[3] = 3;
  const KivEMatrix4 zTwice = z * 2;
  EXPECT_EQ(zTwice[0], 2);
  EXPECT_EQ(zTwice[3], 6);
  EXPECT_EQ(zTwice[15], 2);
  EXPECT_EQ((z / 4)[15], 0.25);
}

TEST(Matrix4, DividingBy1e13thLeavesTheMatrixAndIsReported) {
  TestRandom zRandom(4);
  const KivEMatrix4 z = RandomMatrix(zRandom);
  const uint64_t nBefore = Reports();
  EXPECT_TRUE(SameBits(z / 1e-13, z));
  EXPECT_EQ(Reports(), nBefore + 1);
  EXPECT_FALSE(SameBits(z / 1e-12, z));
  EXPECT_EQ(Reports(), nBefore + 1);
}

TEST(Matrix4, DividingByASingularMatrixMultipliesByItAsItIs) {
  TestRandom zRandom(4);
  const KivEMatrix4 z = RandomMatrix(zRandom);
  KivEMatrix4 zFlat;
  zFlat[10] = 0;
  const uint64_t nBefore = Reports();
  EXPECT_TRUE(SameBits(z / zFlat, z * zFlat));
  EXPECT_EQ(Reports(), nBefore + 1);
}

TEST(Matrix4, InvertGivesTheInverse) {
  TestRandom zRandom(8);
  for (int i = 0; i < 200; ++i) {
    const KivEMatrix4 z = RandomMatrix(zRandom);
    KivEMatrix4 zInverse = z;
    ASSERT_TRUE(zInverse.Invert());
    const KivEMatrix4 zProduct = z * zInverse;
    for (size_t k = 0; k < 16; ++k) ASSERT_NEAR(zProduct[k], k % 5 == 0 ? 1 : 0, 1e-9);
    const KivEMatrix4 zOther = RandomMatrix(zRandom);
    ASSERT_TRUE(SameBits(zOther / z, zOther * zInverse)) << "the divisor's inverse stands on the right";
  }
}

TEST(Matrix4, ASingularMatrixFailsToInvertAndStays) {
  KivEMatrix4 zNothing;
  for (size_t i = 0; i < 16; ++i) zNothing[i] = 0;
  KivEMatrix4 z = zNothing;
  const uint64_t nBefore = Reports();
  EXPECT_FALSE(z.Invert());
  EXPECT_TRUE(SameBits(z, zNothing));
  KivEMatrix4 zTwoRows;  // equal rows: the pivot vanishes
  for (size_t i = 0; i < 4; ++i) zTwoRows[4 + i] = zTwoRows[i];
  const KivEMatrix4 zBefore = zTwoRows;
  EXPECT_FALSE(zTwoRows.Invert());
  EXPECT_TRUE(SameBits(zTwoRows, zBefore));
  KivEMatrix4 zSmall;  // rows and pivots are large enough, their product is not
  for (size_t i = 0; i < 4; ++i) zSmall[5 * i] = 1e-6;
  EXPECT_FALSE(zSmall.Invert());
  KivEMatrix4 zNoNumber;
  zNoNumber[6] = std::numeric_limits<double>::quiet_NaN();
  zNoNumber[5] = std::numeric_limits<double>::quiet_NaN();
  EXPECT_FALSE(zNoNumber.Invert());
  EXPECT_EQ(Reports(), nBefore);
}

TEST(Matrix4, ARowIsSingularBelow1e20th) {
  for (const double dLargest : {1e-20, 0.99e-20}) {
    KivEMatrix4 z;
    z[0] = dLargest;
    z[5] = 1e5;  // the determinant is large enough
    EXPECT_EQ(z.Invert(), dLargest >= 1e-20);
    EXPECT_EQ(z[0], dLargest >= 1e-20 ? 1 / dLargest : dLargest);
  }
}

TEST(Matrix4, InvertExchangesRowsWhereTheDiagonalIsZero) {
  KivEMatrix4 z;
  z[0] = 0;
  z[1] = 2;
  z[4] = 4;
  z[5] = 0;
  ASSERT_TRUE(z.Invert());
  EXPECT_EQ(z[1], 0.25);
  EXPECT_EQ(z[4], 0.5);
}

TEST(Matrix4, TransposeSwapsRowsAndColumns) {
  KivEMatrix4 z;
  for (size_t i = 0; i < 16; ++i) z[i] = static_cast<double>(i);
  z.Transpose();
  for (size_t i = 0; i < 16; ++i) EXPECT_EQ(z[i], static_cast<double>(i % 4 * 4 + i / 4));
}

TEST(Matrix4, RotateAxisTurnsAboutAnyAxis) {
  KivEMatrix4 z;
  z.RotateAxis(2 * kPi / 3, {1, 1, 1});
  ExpectPoint(z.TransformPoint(KivECoord3{1, 0, 0}), 0, 1, 0);
  ExpectPoint(z.TransformPoint(KivECoord3{0, 1, 0}), 0, 0, 1);
  KivEMatrix4 zAboutZ, zSame;
  zAboutZ.RotateAxis(0.7, {0, 0, 5});
  zSame.RotateZ(0.7);
  EXPECT_TRUE(zAboutZ.IsIdentityLike(zSame));
  KivEMatrix4 zBack, zOther;
  zBack.RotateAxis(0.7, {0, 0, -5});
  zOther.RotateZ(-0.7);
  EXPECT_TRUE(zBack.IsIdentityLike(zOther));
}

TEST(Matrix4, RotateToCarriesOneDirectionToAnother) {
  TestRandom zRandom(9);
  for (int i = 0; i < 100; ++i) {
    KivECoord3 zFrom = {zRandom.Within(-1, 1), zRandom.Within(-1, 1), zRandom.Within(-1, 1)};
    KivECoord3 zTo = {zRandom.Within(-1, 1), zRandom.Within(-1, 1), zRandom.Within(-1, 1)};
    KivEMatrix4 z;
    z.RotateTo(zFrom, zTo);
    zFrom.Normalise();
    zTo.Normalise();
    ExpectPoint(z.TransformPoint(zFrom), zTo.m_dX, zTo.m_dY, zTo.m_dZ);
  }
}

TEST(Matrix4, RotateAxisAboutNothingReportsAndGoesOn) {
  KivEMatrix4 z;
  const uint64_t nBefore = Reports();
  z.RotateAxis(0.5, {0, 0, 0});
  EXPECT_EQ(Reports(), nBefore + 1);
  EXPECT_TRUE(std::isnan(z[0]));
}

TEST(Matrix4, RotateToTurnsFromASineOf1e12thOn) {
  KivEMatrix4 z;
  z.RotateTo({1, 0, 0}, {1, 9.9e-13, 0});
  EXPECT_TRUE(SameBits(z, KivEMatrix4()));
  z.RotateTo({1, 0, 0}, {1, 1.01e-12, 0});
  EXPECT_NEAR(z[1], 1.01e-12, 1e-20);
}

TEST(Matrix4, RotateToOfAVectorToItsOppositeLeavesTheMatrix) {
  TestRandom zRandom(4);
  const KivEMatrix4 z = RandomMatrix(zRandom);
  for (const double d : {-1.0, 1.0, 0.0}) {
    KivEMatrix4 zTurned = z;
    zTurned.RotateTo({1, 2, 3}, {d, 2 * d, 3 * d});
    EXPECT_TRUE(SameBits(zTurned, z));
  }
}

TEST(Matrix4, ScaleTouchesThreeColumnsInAllRows) {
  KivEMatrix4 z;
  for (size_t i = 0; i < 16; ++i) z[i] = 1;
  z.Scale(2, 3, 4);
  for (size_t i = 0; i < 16; i += 4) EXPECT_TRUE(z[i] == 2 && z[i + 1] == 3 && z[i + 2] == 4 && z[i + 3] == 1);
}

TEST(Matrix4, TranslateAddsM15TimesTheVector) {
  KivEMatrix4 z;
  z[15] = 2;
  z.Translate({1, 2, 3});
  EXPECT_EQ(z.GetTranslation(), (KivECoord3{2, 4, 6}));
}

TEST(Matrix4, EqualityIsWithin1e12thIncludingIt) {
  KivEMatrix4 z, zOther;
  z[4] = 1e-12;
  EXPECT_TRUE(z.IsIdentityLike(zOther));
  z[4] = 1.1e-12;
  EXPECT_FALSE(z.IsIdentityLike(zOther));
  z[4] = std::numeric_limits<double>::quiet_NaN();
  EXPECT_FALSE(z.IsIdentityLike(z));
}

TEST(Matrix4, AMirrorHasANegativeTripleProduct) {
  KivEMatrix4 z;
  z.Scale(1, -1, 1);
  EXPECT_TRUE(z.IsMirror());
  z.Scale(-1, 1, 1);
  EXPECT_FALSE(z.IsMirror());
  z.Scale(0, 1, 1);
  EXPECT_FALSE(z.IsMirror());
  KivEMatrix4 zTiny;  // small enough to vanish in f32
  zTiny.Scale(1e-50, -1e-50, 1e-50);
  EXPECT_TRUE(zTiny.IsMirror());
}

TEST(Matrix4, AHomogeneousPointIsDividedByW) {
  KivEMatrix4 z;
  z[3] = 1;
  z[15] = 2;
  const float afIn[3] = {2, 4, 8};
  float afOut[3];
  z.TransformPoint(afIn, afOut);
  EXPECT_EQ(afOut[0], 0.5f);
  EXPECT_EQ(afOut[1], 1.0f);
  EXPECT_EQ(afOut[2], 2.0f);
}

TEST(Matrix4, AHomogeneousWOf1e13thUsesOne) {
  KivEMatrix4 z;
  z[15] = 1e-13;
  const uint64_t nBefore = Reports();
  ExpectPoint(z.TransformPoint(KivECoord3{1, 2, 3}), 1, 2, 3);
  EXPECT_EQ(Reports(), nBefore + 1);
  z[15] = 1e-12;
  EXPECT_EQ(z.TransformPoint(KivECoord3{1, 2, 3}).m_dX, 1 / 1e-12);
  EXPECT_EQ(Reports(), nBefore + 1);
}

TEST(Matrix4, BoxCornersAreTransformedLikePoints) {
  TestRandom zRandom(12);
  for (int i = 0; i < 100; ++i) {
    KivEMatrix4 z = RandomMatrix(zRandom);
    if (i % 2 == 0) {
      z[3] = z[7] = z[11] = 0;
      z[15] = 1;
    }
    float afIn[24], afOut[24], afExpected[24];
    for (float& f : afIn) f = zRandom.Within(-10, 10);
    for (size_t k = 0; k < 24; k += 3) z.TransformPoint(afIn + k, afExpected + k);
    z.TransformBoxCorners(afIn, afOut);
    ASSERT_EQ(std::memcmp(afOut, afExpected, sizeof afOut), 0);
    z.TransformBoxCorners(afIn, afIn);
    ASSERT_EQ(std::memcmp(afIn, afExpected, sizeof afIn), 0);
  }
}

TEST(Matrix4, ABoxCornerWithAWOf1e13thIsDividedByOne) {
  float afIn[24], afOut[24];
  for (size_t i = 0; i < 24; ++i) afIn[i] = static_cast<float>(i);
  KivEMatrix4 z;
  z[15] = 1e-13;
  const uint64_t nBefore = Reports();
  z.TransformBoxCorners(afIn, afOut);
  EXPECT_EQ(std::memcmp(afIn, afOut, sizeof afIn), 0);
  EXPECT_EQ(Reports(), nBefore + 8);
  z[15] = -1e-12;
  z.TransformBoxCorners(afIn, afOut);
  EXPECT_EQ(afOut[23], static_cast<float>(23 / -1e-12));
  EXPECT_EQ(Reports(), nBefore + 8);
}

TEST(Matrix4, BothTargetsGiveTheSameBits) {
  TestRandom zRandom(77);
  uint64_t iHash = kivtest::kHashStart;
  for (int i = 0; i < 500; ++i) {
    KivEMatrix4 z = RandomMatrix(zRandom) * RandomMatrix(zRandom);
    z.RotateAxis(0.6, 0.8, {zRandom.Within(-1, 1), zRandom.Within(-1, 1), zRandom.Within(-1, 1)});
    z.RotateTo({zRandom.Within(-1, 1), 1, 0}, {0, zRandom.Within(-1, 1), 1});
    ASSERT_TRUE(z.Invert());
    z.Translate({zRandom.Within(-9, 9), 0, 1});
    float afCorner[24];
    for (float& f : afCorner) f = zRandom.Within(-10, 10);
    z.TransformBoxCorners(afCorner, afCorner);
    for (size_t k = 0; k < 16; ++k) {
      const double d = z[k];
      iHash = kivtest::HashOf(iHash, &d, sizeof d);
    }
    iHash = kivtest::HashOf(iHash, afCorner, sizeof afCorner);
  }
  EXPECT_EQ(iHash, 10133255185364355829u);
}
