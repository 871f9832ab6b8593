#include "KivBrepGeometry.h"

#include <gtest/gtest.h>

#include <limits>
#include <memory>
#include <string>

#include "KivBrepData.h"
#include "KivLittleEndian.h"
#include "KivTestElement.h"

namespace {

using namespace kiv;
using namespace kivtest;

const std::string kOne = "000000000000F03F";
const std::string kTwo = "0000000000000040";
const std::string kHalf = "000000000000E03F";

// From a fresh allocation of just these bytes.
bool Decode(uint32_t iKind, const Bytes& vc, KivBrepGeometry& z) {
  const std::unique_ptr<uint8_t[]> pOwn(new uint8_t[vc.size()]);
  std::copy(vc.begin(), vc.end(), pOwn.get());
  return KivDecodeBrepGeometry(iKind, std::span<const uint8_t>(pOwn.get(), vc.size()), z);
}
bool IsGood(uint32_t iKind, const Bytes& vc) {
  KivBrepGeometry z;
  return Decode(iKind, vc, z);
}

Bytes Analytic(uint8_t iType, bool bRadius) {
  Bytes vc = FromHex("40 00" + kOne + kTwo + kHalf + HexZeros(16) + kTwo + (bRadius ? kHalf : ""));
  vc[1] = iType;
  return vc;
}
// A line from (1, 2, 0.5) to (2, 1, 0.5): order 2, two poles, raw knots 0, 0, 1, 1.
Bytes Line() {
  return FromHex("00 02 02 03" + HexZeros(16) + kOne + kOne + kOne + kTwo + kHalf + kTwo + kOne);
}
// Order 2, three rational poles that change in x, uniform knots.
Bytes Rational() {
  return FromHex("1C 02 03 01" + kOne + kTwo + kHalf + kOne + kTwo + kHalf + kOne + kOne);
}
// Order 1, two poles of two bytes a coordinate, from (1, 2, 0.5) with a range of 1; an inner knot's delta.
Bytes Quantised() {
  return FromHex("28 01 02 07" + kHalf + "02" + kOne + kTwo + kHalf + kOne + "0000 FFFF 0000  FFFF 0000 FFFF");
}
// Both counts in one byte.
Bytes OneCountByte(uint32_t nPoles, uint32_t iOrder) {
  Bytes vc = FromHex("1B 00 00" + HexZeros(24));  // a pole that nothing changes
  vc[1] = static_cast<uint8_t>(nPoles | iOrder << 5);
  return vc;
}

void ExpectReport(uint32_t iKind, const Bytes& vc, const char* szText) {
  const uint64_t nBefore = QuietReports();
  EXPECT_FALSE(IsGood(iKind, vc));
  EXPECT_EQ(QuietReports(), nBefore + 1);
  EXPECT_STREQ(KivLastQuietReport().m_szCondition, szText);
  EXPECT_STREQ(KivLastQuietReport().m_szSource, "src\\KivBrepData");
}

}  // namespace

TEST(BrepGeometry, AnalyticFormsAreDecoded) {
  KivBrepGeometry z;
  for (const uint8_t iType : {1, 4, 5}) {
    ASSERT_TRUE(Decode(kBrepAnalyticKind, Analytic(iType, false), z));
    EXPECT_EQ(z.m_iAnalyticType, iType);
    EXPECT_EQ(z.m_zPoint, (KivECoord3{1, 2, 0.5}));
    EXPECT_EQ(z.m_zAxis, (KivECoord3{0, 0, 2}));
    EXPECT_EQ(z.m_dRadius, 0.0);
  }
  for (const uint8_t iType : {2, 3}) {
    ASSERT_TRUE(Decode(kBrepAnalyticKind, Analytic(iType, true), z));
    EXPECT_EQ(z.m_dRadius, 0.5);
  }
}

TEST(BrepGeometry, AStringOf50BytesWithType2FailsAndOneOf58BytesWithType1) {
  for (const uint8_t iType : {2, 3})
    ExpectReport(kBrepAnalyticKind, Analytic(iType, false), "iDataByte >= iDataByteCount + 8");
  for (const uint8_t iType : {1, 4, 5}) EXPECT_FALSE(IsGood(kBrepAnalyticKind, Analytic(iType, true)));
}

TEST(BrepGeometry, AnAxisOfZeroZeroAndTinyFails) {
  const double dNaN = std::numeric_limits<double>::quiet_NaN();
  for (const auto& [dAxis, bGood] :
       {std::pair{1e-13, false}, {1.0001e-12, true}, {1e-11, true}, {0.0, false}, {dNaN, false}}) {
    Bytes vc = Analytic(1, false);
    KivStore<double>(&vc[42], dAxis);
    EXPECT_EQ(IsGood(kBrepAnalyticKind, vc), bGood) << dAxis;
  }
}

TEST(BrepGeometry, MagicTypeAndRadiusAreTested) {
  Bytes vc = Analytic(2, true);
  vc[0] = 65;
  EXPECT_FALSE(IsGood(kBrepAnalyticKind, vc));
  EXPECT_FALSE(IsGood(kBrepAnalyticKind, Analytic(0, false)));
  EXPECT_FALSE(IsGood(kBrepAnalyticKind, Analytic(6, false)));
  const double dNaN = std::numeric_limits<double>::quiet_NaN();
  for (const auto& [dRadius, bGood] : {std::pair{0.0, false}, {-1.0, false}, {1e-300, true}, {dNaN, false}}) {
    vc = Analytic(3, true);
    KivStore<double>(&vc[50], dRadius);
    EXPECT_EQ(IsGood(kBrepAnalyticKind, vc), bGood) << dRadius;
  }
}

TEST(BrepGeometry, AnEmptyStringIsFalseWithoutAReportAndAnotherKindIsReported) {
  const uint64_t nBefore = QuietReports();
  EXPECT_FALSE(IsGood(kBrepAnalyticKind, Bytes()));
  EXPECT_FALSE(IsGood(kBrepNurbsKind, Bytes()));
  EXPECT_FALSE(IsGood(kGapKind, Bytes()));
  EXPECT_EQ(QuietReports(), nBefore);
  EXPECT_FALSE(IsGood(10006, Analytic(1, false)));
  EXPECT_EQ(QuietReports(), nBefore + 1);
}

TEST(BrepGeometry, ALineInThePlaneStoresTwoCoordinatesBehindTheFirstPole) {
  KivBrepGeometry z;
  ASSERT_TRUE(Decode(kBrepNurbsKind, Line(), z));
  EXPECT_EQ(z.GetDegree(), 1u);
  EXPECT_EQ(z.m_vdKnot, (std::vector<double>{0, 0, 1, 1}));
  EXPECT_EQ(z.m_vzPole, (std::vector<KivECoord3>{{1, 2, 0.5}, {2, 1, 0.5}}));
  EXPECT_TRUE(z.m_vdWeight.empty());
}

TEST(BrepGeometry, Order4With4PolesAndUniformKnotsHasNoInnerKnot) {
  KivBrepGeometry z;
  ASSERT_TRUE(Decode(kBrepNurbsKind, FromHex("18 04 04 00" + kOne + kTwo + kHalf), z));
  EXPECT_EQ(z.m_vdKnot, (std::vector<double>{0, 0, 0, 0, 1, 1, 1, 1}));
  EXPECT_EQ(z.m_vzPole, std::vector<KivECoord3>(4, KivECoord3{1, 2, 0.5}));
}

TEST(BrepGeometry, UniformInnerKnotsGrowByOneStep) {
  KivBrepGeometry z;
  ASSERT_TRUE(Decode(kBrepNurbsKind, FromHex("18 02 05 00" + HexZeros(24)), z));
  EXPECT_EQ(z.m_vdKnot, (std::vector<double>{0, 0, 0.25, 0.5, 0.75, 1, 1}));
}

TEST(BrepGeometry, InnerKnotsAreDeltasThatAddUp) {
  KivBrepGeometry z;
  ASSERT_TRUE(Decode(kBrepNurbsKind, FromHex("08 01 03 00" + kHalf + kTwo + HexZeros(24)), z));
  EXPECT_EQ(z.m_vdKnot, (std::vector<double>{0, 0.5, 2.5, 1}));
}

TEST(BrepGeometry, RationalPolesAlwaysHaveAWeight) {
  KivBrepGeometry z;
  ASSERT_TRUE(Decode(kBrepNurbsKind, Rational(), z));
  EXPECT_EQ(z.m_vdKnot, (std::vector<double>{0, 0, 0.5, 1, 1}));
  EXPECT_EQ(z.m_vzPole, (std::vector<KivECoord3>{{1, 2, 0.5}, {2, 2, 0.5}, {1, 2, 0.5}}));
  EXPECT_EQ(z.m_vdWeight, (std::vector<double>{1, 0.5, 1}));
}

TEST(BrepGeometry, QuantisedPolesSpanTheirRange) {
  KivBrepGeometry z;
  ASSERT_TRUE(Decode(kBrepNurbsKind, Quantised(), z));
  EXPECT_EQ(z.m_vzPole, (std::vector<KivECoord3>{{1, 3, 0.5}, {2, 2, 1.5}}));
  // All lengths: the largest integer is the end of the range.
  for (uint32_t n = 1; n <= 7; ++n) {
    Bytes vc = FromHex("20 01 01 07" + kOne + kOne + "00" + kOne + kTwo + kHalf + kTwo);
    vc[20] = static_cast<uint8_t>(n);
    vc.insert(vc.end(), 3 * n, 0xFF);
    ASSERT_TRUE(Decode(kBrepNurbsKind, vc, z)) << n;
    EXPECT_EQ(z.m_vzPole[0], (KivECoord3{3, 4, 2.5})) << n;
  }
}

TEST(BrepGeometry, OtherPoleBytesAreSoManyBytesDividedBy255) {
  KivBrepGeometry z;
  for (const uint32_t n : {0u, 8u, 9u, 255u}) {
    Bytes vc = FromHex("20 01 01 07" + kOne + kOne + "00" + kOne + kTwo + kHalf + kTwo);
    vc[20] = static_cast<uint8_t>(n);
    for (int k = 0; k < 3 && n > 0; ++k) {
      vc.push_back(255);
      vc.insert(vc.end(), n - 1, 0);
    }
    ASSERT_TRUE(Decode(kBrepNurbsKind, vc, z)) << n;
    EXPECT_EQ(z.m_vzPole[0], n == 0 ? (KivECoord3{1, 2, 0.5}) : (KivECoord3{3, 4, 2.5})) << n;
  }
}

TEST(BrepGeometry, FlagsWithoutTheirCompanionHaveNoEffect) {
  Bytes vc = Line();
  vc[0] |= 1 << 4;  // uniform without clamped
  KivBrepGeometry z;
  ASSERT_TRUE(Decode(kBrepNurbsKind, vc, z));
  EXPECT_EQ(z.m_vdKnot, (std::vector<double>{0, 0, 1, 1}));
  vc = Rational();
  vc[0] |= 1 << 5;  // quantised with rational
  ASSERT_TRUE(Decode(kBrepNurbsKind, vc, z));
  EXPECT_EQ(z.m_vdWeight.size(), 3u);
}

TEST(BrepGeometry, SizeForm3With31PolesAndOrder7TakesASingleCountByte) {
  KivBrepGeometry z;
  ASSERT_TRUE(Decode(kBrepNurbsKind, OneCountByte(31, 7), z));
  EXPECT_EQ(z.m_iOrder, 7u);
  EXPECT_EQ(z.m_vzPole.size(), 31u);
  EXPECT_EQ(z.m_vdKnot.size(), 38u);
}

TEST(BrepGeometry, CountsOfTwoAndFourBytes) {
  KivBrepGeometry z;
  ASSERT_TRUE(Decode(kBrepNurbsKind, FromHex("19 0200 2C01 00" + HexZeros(24)), z));
  EXPECT_EQ(z.m_vzPole.size(), 300u);
  ASSERT_TRUE(Decode(kBrepNurbsKind, FromHex("1A 02000000 70110100 00" + HexZeros(24)), z));
  EXPECT_EQ(z.m_vzPole.size(), 70000u);
}

TEST(BrepGeometry, CountsFlagsAndMaskOutOfRangeFail) {
  EXPECT_TRUE(IsGood(kBrepNurbsKind, OneCountByte(1, 1)));
  EXPECT_FALSE(IsGood(kBrepNurbsKind, OneCountByte(0, 1)));
  EXPECT_FALSE(IsGood(kBrepNurbsKind, OneCountByte(1, 0)));
  EXPECT_FALSE(IsGood(kBrepNurbsKind, OneCountByte(2, 3)));
  for (const uint8_t iBit : {0x40, 0x80}) {
    Bytes vc = Line();
    vc[0] |= iBit;
    EXPECT_FALSE(IsGood(kBrepNurbsKind, vc));
  }
  Bytes vc = Line();
  vc[3] = 8;
  EXPECT_FALSE(IsGood(kBrepNurbsKind, vc));
}

TEST(BrepGeometry, OneTrailingByteMakesTheStringInvalid) {
  for (Bytes vc : {Line(), Rational(), Quantised(), OneCountByte(31, 7)}) {
    EXPECT_TRUE(IsGood(kBrepNurbsKind, vc));
    vc.push_back(0);
    EXPECT_FALSE(IsGood(kBrepNurbsKind, vc));
  }
}

TEST(BrepGeometry, AShortfallIsReportedOnceByItsText) {
  ExpectReport(kBrepNurbsKind, FromHex("00"), "iDataByte >= iDataByteCount + 1");
  ExpectReport(kBrepNurbsKind, FromHex("01 02"), "iDataByte >= iDataByteCount + 2");
  ExpectReport(kBrepNurbsKind, FromHex("02 020000"), "iDataByte >= iDataByteCount + 4");
  ExpectReport(kBrepNurbsKind, FromHex("00 02 02 03 000000"), "iDataByte >= iDataByteCount + 8");
  const NoThrowScope zNoThrow;
  ExpectReport(kBrepNurbsKind, FromHex("00 02 02 03 000000"), "iDataByte >= iDataByteCount + 8");
}

TEST(BrepGeometry, EachCutOfAStringFailsAndEachDamagedByteIsHarmless) {
  for (const auto& [iKind, vc] : {std::pair{kBrepNurbsKind, Line()},
                                  {kBrepNurbsKind, Rational()},
                                  {kBrepNurbsKind, Quantised()},
                                  {kBrepNurbsKind, OneCountByte(31, 7)},
                                  {kBrepAnalyticKind, Analytic(2, true)},
                                  {kBrepAnalyticKind, Analytic(1, false)}}) {
    ASSERT_TRUE(IsGood(iKind, vc));
    for (size_t n = 0; n < vc.size(); ++n)
      EXPECT_FALSE(IsGood(iKind, Bytes(vc.begin(), vc.begin() + static_cast<ptrdiff_t>(n)))) << n;
    for (size_t i = 0; i < vc.size(); ++i) {
      for (int k = 0; k < 10; ++k) {
        Bytes vcBad = vc;
        vcBad[i] = k < 8 ? static_cast<uint8_t>(vc[i] ^ (1 << k)) : k == 8 ? 0x00 : 0xFF;
        KivBrepGeometry z;
        if (Decode(iKind, vcBad, z) && iKind == kBrepNurbsKind) {
          EXPECT_EQ(z.m_vdKnot.size(), z.m_iOrder + z.m_vzPole.size());
        }
      }
    }
  }
}

TEST(BrepGeometry, RandomBytesAreRefusedOrHarmless) {
  TestRandom zRandom(52);
  size_t nGood = 0;
  for (int n = 0; n < 20000; ++n) {
    // Of any length; half of them with flags, or a type, that let the decoder go on.
    const uint32_t iKind = n % 4 == 0 ? kBrepAnalyticKind : kBrepNurbsKind;
    Bytes vc(iKind == kBrepAnalyticKind && n % 8 == 0 ? 50 + 8 * zRandom.Below(2) : 1 + zRandom.Below(200));
    for (uint8_t& i : vc) i = static_cast<uint8_t>(zRandom.Below(n % 3 == 0 ? 4 : 256));
    if (iKind == kBrepAnalyticKind && n % 8 == 0) vc[0] = 64;
    if (iKind == kBrepNurbsKind && n % 2 == 0) vc[0] &= 0x3F;
    KivBrepGeometry z;
    const uint64_t nBefore = QuietReports();
    if (Decode(iKind, vc, z)) {
      ++nGood;
      if (iKind == kBrepNurbsKind) {
        ASSERT_EQ(z.m_vdKnot.size(), z.m_iOrder + z.m_vzPole.size()) << n;
      }
    } else {
      ASSERT_GT(QuietReports(), nBefore) << n;
    }
  }
  EXPECT_GT(nGood, 10u);
}

TEST(BrepGeometry, RepeatsAreBoundedBeforeMemoryIsTaken) {
  // Poles that take no bytes, up to the bound.
  Bytes vc = FromHex("1A 01000000 00000000 00" + HexZeros(24));
  KivStore<uint32_t>(&vc[5], static_cast<uint32_t>(kBrepRepeatMax - 1));
  EXPECT_TRUE(IsGood(kBrepNurbsKind, vc));
  KivBrepGeometry z;
  for (const uint32_t n : {static_cast<uint32_t>(kBrepRepeatMax), 0x7FFFFFFFu, 0xFFFFFFFFu}) {
    KivStore<uint32_t>(&vc[5], n);
    EXPECT_FALSE(Decode(kBrepNurbsKind, vc, z)) << n;
    EXPECT_EQ(z.m_vdKnot.capacity() + z.m_vzPole.capacity(), 0u);
    KivStore<uint32_t>(&vc[1], n);
    EXPECT_FALSE(Decode(kBrepNurbsKind, vc, z)) << n;
    EXPECT_EQ(z.m_vdKnot.capacity() + z.m_vzPole.capacity(), 0u);
    KivStore<uint32_t>(&vc[1], 1);
  }
}

TEST(BrepGeometry, ValidateAnswersForAnEntry) {
  KivBrepEntry z;
  EXPECT_FALSE(KivBrepData::ValidateGeometry(z));
  z.m_zFrame.m_iKind = kBrepNurbsKind;
  z.m_vcGeometry = Line();
  EXPECT_TRUE(KivBrepData::ValidateGeometry(z));
  z.m_zFrame.m_iKind = kBrepAnalyticKind;
  EXPECT_NO_REPORT(EXPECT_FALSE(KivBrepData::ValidateGeometry(z)));
}
