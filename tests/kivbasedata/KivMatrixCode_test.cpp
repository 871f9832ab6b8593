#include "KivMatrixCode.h"

#include <gtest/gtest.h>

#include <limits>

#include "KivLittleEndian.h"
#include "KivTestMesh.h"

using namespace kiv;

namespace {

uint8_t CodeOf(const KivEMatrix4& z) {
  uint8_t acPayload[kMatrixPayloadMax];
  return KivEncodeMatrix(z, acPayload);
}

KivEMatrix4 RoundTrip(const KivEMatrix4& z) {
  uint8_t acPayload[kMatrixPayloadMax];
  const uint8_t iCode = KivEncodeMatrix(z, acPayload);
  return KivDecodeMatrix(iCode, acPayload);
}

}  // namespace

TEST(MatrixCode, PayloadSizesByForm) {
  EXPECT_EQ(KivMatrixPayloadSize(0), 128u);
  EXPECT_EQ(KivMatrixPayloadSize(1), 0u);
  EXPECT_EQ(KivMatrixPayloadSize(2), 24u);
  EXPECT_EQ(KivMatrixPayloadSize(3), 0u);
  EXPECT_EQ(KivMatrixPayloadSize(0xFE), 24u);
}

TEST(MatrixCode, WhatIsWithin1e12thOfTheIdentityIsTheIdentity) {
  KivEMatrix4 z;
  z[1] = 1e-12;
  z[12] = -1e-12;
  EXPECT_EQ(CodeOf(z), 1);
  EXPECT_EQ(RoundTrip(z)[1], 0);
}

TEST(MatrixCode, AQuarterTurnAboutZWithATranslationIsForm2) {
  KivEMatrix4 z;
  z.RotateZ(3.14159265358979323846 / 2);
  z.Translate({1, 2, 3});
  uint8_t acPayload[kMatrixPayloadMax];
  EXPECT_EQ(KivEncodeMatrix(z, acPayload), 1 << 6 | 2);
  EXPECT_EQ(KivLoad<double>(acPayload), 1);
  EXPECT_EQ(KivLoad<double>(acPayload + 8), 2);
  EXPECT_EQ(KivLoad<double>(acPayload + 16), 3);
  EXPECT_TRUE(RoundTrip(z).IsIdentityLike(z));
}

TEST(MatrixCode, ATranslationAloneHasNoTurns) {
  KivEMatrix4 z;
  z.Translate({0, 0, -5});
  EXPECT_EQ(CodeOf(z), 2);
  EXPECT_TRUE(RoundTrip(z).IsIdentityLike(z));
}

TEST(MatrixCode, TurnsAboutEachAxisHaveBitsOfTheirOwn) {
  KivEMatrix4 zX, zY, zZ;
  zX.RotateX(0, 1);
  zY.RotateY(0, 1);
  zZ.RotateZ(0, 1);
  EXPECT_EQ(CodeOf(zX), 1 << 2 | 3);
  EXPECT_EQ(CodeOf(zY), 1 << 4 | 3);
  EXPECT_EQ(CodeOf(zZ), 1 << 6 | 3);
  // X first, then Y, then Z.
  KivEMatrix4 z;
  z.RotateX(0, 1);
  z.RotateY(-1, 0);
  z.RotateZ(0, -1);
  EXPECT_TRUE(KivDecodeMatrix(3 << 6 | 2 << 4 | 1 << 2 | 3, nullptr).IsIdentityLike(z));
}

TEST(MatrixCode, EachCombinationOfQuarterTurnsComesBack) {
  for (unsigned i = 0; i < 64; ++i) {
    static constexpr double kCosine[4] = {1, 0, -1, 0}, kSine[4] = {0, 1, 0, -1};
    KivEMatrix4 z;
    z.RotateX(kCosine[i >> 4], kSine[i >> 4]);
    z.RotateY(kCosine[i >> 2 & 3], kSine[i >> 2 & 3]);
    z.RotateZ(kCosine[i & 3], kSine[i & 3]);
    EXPECT_EQ(CodeOf(z) & 3, z.IsIdentityLike(KivEMatrix4()) ? 1 : 3);
    EXPECT_TRUE(RoundTrip(z).IsIdentityLike(z));
    z.Translate({1e-12, 1e-11, 0});
    EXPECT_EQ(CodeOf(z) & 3, 2);
    EXPECT_TRUE(RoundTrip(z).IsIdentityLike(z));
  }
}

TEST(MatrixCode, OfEqualTurnsTheFirstInTheOrderXYZIsTaken) {
  KivEMatrix4 z;  // two half turns about X and Y are one about Z
  z.RotateX(-1, 0);
  z.RotateY(-1, 0);
  EXPECT_EQ(CodeOf(z), 2 << 6 | 3);
}

TEST(MatrixCode, AScaleOf1Point0000001IsStoredWhole) {
  KivEMatrix4 z;
  z[5] = 1.0000001;
  EXPECT_EQ(CodeOf(z), 0);
  EXPECT_EQ(RoundTrip(z)[5], 1.0000001);
}

TEST(MatrixCode, AnElement15OtherThanOneIsStoredWholeAndComesBackWithItsTranslation) {
  KivEMatrix4 z;
  z[15] = 2;
  z.Translate({1, 2, 3});
  EXPECT_EQ(CodeOf(z), 0);
  EXPECT_EQ(RoundTrip(z).GetTranslation(), (KivECoord3{2, 4, 6}));
}

TEST(MatrixCode, AnyMatrixComesBackBitForBit) {
  KivEMatrix4 z;
  for (size_t i = 0; i < 16; ++i) z[i] = 1.0 / (3.0 + static_cast<double>(i));
  z[7] = std::numeric_limits<double>::quiet_NaN();
  z[8] = std::numeric_limits<double>::infinity();
  const KivEMatrix4 zBack = RoundTrip(z);
  for (size_t i = 0; i < 16; ++i) EXPECT_EQ(std::bit_cast<uint64_t>(zBack[i]), std::bit_cast<uint64_t>(z[i]));
}

TEST(MatrixClass, PairsThatAreZeroAreFilledIn) {
  KivEMatrix4 z;
  EXPECT_EQ(KivFillMatrixClass(z, 0), 0x22u);
  z.Scale(2, 2, 2);
  EXPECT_EQ(KivFillMatrixClass(z, 0), 0x21u);
  z.Scale(-1, 1, 1);
  EXPECT_EQ(KivFillMatrixClass(z, 0), 0x11u);
  EXPECT_EQ(KivFillMatrixClass(z, 0x200), 0x211u);
  EXPECT_EQ(KivFillMatrixClass(z, kMatrixClassDefault), kMatrixClassDefault);
}

TEST(MatrixClass, ScalingIsMeasuredOnTheFirstRowAgainstM15AndM3) {
  KivEMatrix4 z;
  z *= 4;  // the homogeneous 4 takes the scale back
  EXPECT_EQ(KivFillMatrixClass(z, 0) & 3, 2u);
  KivEMatrix4 zRow;
  zRow[0] = 1 + 4e-7;
  EXPECT_EQ(KivFillMatrixClass(zRow, 0) & 3, 2u);
  zRow[0] = 1 + 6e-7;
  EXPECT_EQ(KivFillMatrixClass(zRow, 0) & 3, 1u);
  KivEMatrix4 zNoW;
  zNoW[15] = 1e-12;  // the divisor is 1
  EXPECT_EQ(KivFillMatrixClass(zNoW, 0x20) & 3, 2u);
  KivEMatrix4 zBoth;  // a row of length 2, and m15 + m3 = 2
  zBoth.Scale(2, 2, 2);
  zBoth[3] = 1;
  EXPECT_EQ(KivFillMatrixClass(zBoth, 0x20) & 3, 2u);
  zBoth[15] = 0;
  EXPECT_EQ(KivFillMatrixClass(zBoth, 0x20) & 3, 1u);
}

TEST(MatrixClass, AMirrorIsFoundBehindTheDivisionByW) {
  KivEMatrix4 z;
  z[15] = -1;  // all points change their sides
  EXPECT_EQ(KivFillMatrixClass(z, 0), 0x12u);
  z.Scale(-1, 1, 1);
  EXPECT_EQ(KivFillMatrixClass(z, 0), 0x22u);
  KivEMatrix4 zOneAxis;  // the unit point of the X axis alone
  zOneAxis[3] = -2;
  EXPECT_EQ(KivFillMatrixClass(zOneAxis, 0), 0x12u);
}
