#include "KivModelNote.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>

#include "KivElementClasses.h"
#include "KivLittleEndian.h"
#include "KivTestElement.h"

namespace {

using namespace kiv;
using namespace kivtest;

using Block = KivMemoryBlockModelNote;

const std::string kLinksBoxState =
    "0801000000000000 0000000000000000 0000000000000000"
    "00000000 00000000 00000000  0000803F 0000803F 0000803F  00000000";
const std::string kAttributes = "01 05 02000000 AABB 000000000000";
const std::string kIntegers = "02000000 03000000 03000000 04000000 00000000 07000000 14000000 0F000000";
const std::string kDoubles =
    "000000000000E03F 0000000000000040 0000000000805640 0000000000000000 000000000000503F 000000000000F03F"
    "0000000000000840";
const std::string kRest = "1100000000000000 2200000000000000 0000000000009040 07000000";

Bytes Golden() {
  return FromHex("04000000 00000000 01000000 44000000" + kLinksBoxState + kAttributes + "74000000" + kIntegers +
                 kDoubles + kRest);
}
Bytes Golden19() {
  return FromHex("04000000 00000000 40000000" + kLinksBoxState + kAttributes + "74000000" + kIntegers + kDoubles +
                 kRest);
}
Bytes WithParamSize(uint32_t nSize) {
  Bytes vc = Golden();
  KivStore<uint32_t>(&vc[82], nSize);
  vc.resize(86 + std::min<size_t>(nSize, 116));
  return vc;
}

constexpr size_t kParamsAt = 86;

template <typename T>
bool IsReadWith(size_t iAt, T value) {
  Bytes vc = Golden();
  KivStore<T>(&vc[iAt], value);
  auto pz = NewBlock<Block>();
  const uint64_t nBefore = QuietReports();
  const bool bRead = ReadRecord(vc, *pz);
  EXPECT_EQ(QuietReports() - nBefore, bRead ? 0u : 1u);
  if (bRead) {
    EXPECT_EQ(BuildRecord(*pz), vc);
  }
  return bRead;
}

}  // namespace

TEST(ModelNote, ARecordReadsAsItIs) {
  auto pz = NewBlock<Block>();
  ASSERT_TRUE(ReadRecord(Golden(), *pz));
  EXPECT_EQ(pz->m_vzAttribute, (std::vector<KivAttribute>{{5, {0xAA, 0xBB}}}));
  EXPECT_EQ(pz->m_iParamSize, 116u);
  EXPECT_EQ(pz->m_iParam0, 2u);
  EXPECT_EQ(pz->m_iParam3, 4u);
  EXPECT_EQ(pz->m_iParam7, 15u);
  EXPECT_EQ(pz->m_dParam8, 0.5);
  EXPECT_EQ(pz->m_dParam10, 90.0);
  EXPECT_EQ(pz->m_dParam14, 3.0);
  EXPECT_EQ(pz->m_iAssemblyKey, 0x11u);
  EXPECT_EQ(pz->m_iSecondKey, 0x22u);
  EXPECT_EQ(pz->m_dParam15, 1024.0);
  EXPECT_EQ(pz->m_iParam16, 7u);
  EXPECT_EQ(BuildRecord(*pz), Golden());
  ASSERT_TRUE(ReadRecord(Golden19(), *pz, true));
  EXPECT_EQ(pz->m_iParam16, 7u);
  EXPECT_EQ(pz->m_zHeader.m_iFormat, 0u);
}

TEST(ModelNote, ANewNoteHas202BytesAndGoodDefaults) {
  auto pz = NewBlock<Block>();
  ASSERT_TRUE(ReadRecord(Golden(), *pz));
  ASSERT_TRUE(ReadRecord(Bytes(), *pz));
  EXPECT_EQ(BuildRecord(*pz),
            FromHex("04000000 00000000 01000000 44000000" + HexZeros(52) + HexZeros(14) +
                    "74000000"
                    "01000000 01000000 01000000 01000000 01000000 01000000 0A000000 00000000"
                    "000000000000F0BF 0000000000001040 0000000000002440 0000000000002440 8DEDB5A0F7C6B03E"
                    "000000000000F03F 0000000000000000 0000000000000000 0000000000000000 00000000006AF840 00000000"));
}

TEST(ModelNote, ParamSize32KeepsTheDefaultsFromParam8Onward) {
  auto pz = NewBlock<Block>();
  ASSERT_TRUE(ReadRecord(WithParamSize(32), *pz));
  EXPECT_EQ(pz->m_iParam7, 15u);
  EXPECT_EQ(pz->m_dParam8, -1.0);
  EXPECT_EQ(pz->m_dParam13, 1.0);
  EXPECT_EQ(pz->m_iAssemblyKey, 0u);
  EXPECT_EQ(pz->m_dParam15, 100000.0);
  EXPECT_EQ(pz->m_iParamSize, 32u);
  EXPECT_EQ(BuildRecord(*pz), WithParamSize(32));
}

TEST(ModelNote, ParamSize200ReadsAs116) {
  Bytes vc = WithParamSize(200);
  vc.resize(86 + 200, 0xEE);
  auto pz = NewBlock<Block>();
  ASSERT_TRUE(ReadRecord(vc, *pz));
  EXPECT_EQ(pz->m_iParamSize, 116u);
  EXPECT_EQ(BuildRecord(*pz), Golden());
  pz->m_iParamSize = 0xFFFFFFFF;
  EXPECT_EQ(BuildRecord(*pz), Golden());
}

TEST(ModelNote, AParameterThatCrossesTheEndRefusesTheRecord) {
  auto pz = NewBlock<Block>();
  const auto IsEnd = [](uint32_t n) {
    if (n <= 32) return n % 4 == 0;
    return n <= 112 ? n % 8 == 0 : n == 116;
  };
  for (uint32_t n = 0; n <= 116; ++n) {
    EXPECT_EQ(ReadRecord(WithParamSize(n), *pz), IsEnd(n)) << n;
    // The same on a write.
    ASSERT_TRUE(ReadRecord(Golden(), *pz));
    pz->m_iParamSize = n;
    EXPECT_EQ(SizeOf(*pz), IsEnd(n) ? 86 + int64_t{n} : 0) << n;
  }
}

TEST(ModelNote, Param8OfMinus1IsValidAnd0005IsNot) {
  EXPECT_TRUE(IsReadWith<double>(kParamsAt + 32, -1.0));
  EXPECT_FALSE(IsReadWith<double>(kParamsAt + 32, 0.005));
}

TEST(ModelNote, EachParameterIsTestedOnReading) {
  const auto Integers = [](size_t i, const std::vector<uint32_t>& viGood, const std::vector<uint32_t>& viBad) {
    for (const uint32_t n : viGood) EXPECT_TRUE(IsReadWith<uint32_t>(kParamsAt + i, n)) << i << ": " << n;
    for (const uint32_t n : viBad) EXPECT_FALSE(IsReadWith<uint32_t>(kParamsAt + i, n)) << i << ": " << n;
  };
  Integers(0, {0, 1, 2}, {3, 0xFFFFFFFF});
  Integers(4, {0, 1, 7, 0xFFFFFFFF}, {2, 4});
  Integers(8, {1, 3}, {0, 2, 4});
  Integers(12, {0, 4}, {5});
  Integers(16, {0, 1}, {2});
  Integers(20, {0, 1, 3, 7, 8, 9}, {2, 4, 6, 10});
  Integers(24, {1, 0xFFFFFFFF}, {0});
  Integers(28, {0, 15}, {16});
  Integers(112, {0, 7}, {8});
  const double dNaN = std::numeric_limits<double>::quiet_NaN();
  const auto Doubles = [](size_t i, const std::vector<double>& vdGood, const std::vector<double>& vdBad) {
    for (const double d : vdGood) EXPECT_TRUE(IsReadWith<double>(kParamsAt + i, d)) << i << ": " << d;
    for (const double d : vdBad) EXPECT_FALSE(IsReadWith<double>(kParamsAt + i, d)) << i << ": " << d;
  };
  Doubles(32, {-1e300, -1e-300, 0.009999999, 5}, {0, 0.0099999989, dNaN});
  Doubles(40, {1.0000001, 1e30}, {1.0, 0, -1, dNaN});
  Doubles(48, {1e-300, 90}, {0, -1, 90.000001, dNaN});
  Doubles(56, {-0.01, 0, 90}, {-0.010000001, 90.000001, dNaN});
  Doubles(64, {9.989999999999999e-13, 1e-6, 0.01001}, {9.98e-13, 0.010010001, 0, dNaN});
  Doubles(72, {0.999, 1, 1.0009999999999999e30}, {0.9989999, 1.0011e30, dNaN});
  Doubles(80, {0, -0.0, 1e300, dNaN}, {-1e-300});
  Doubles(104, {0.999, 1.0009999999999999e30}, {0.9989999, 1.0011e30, dNaN});
}

TEST(ModelNote, AWriteTestsOnlyTheParametersThatItStores) {
  auto pz = NewBlock<Block>();
  ASSERT_TRUE(ReadRecord(Golden(), *pz));
  pz->m_dParam10 = 91;
  EXPECT_EQ(SizeOf(*pz), 0);
  pz->m_iParamSize = 48;
  EXPECT_EQ(SizeOf(*pz), 86 + 48);
  pz->m_iParam6 = 0;
  EXPECT_EQ(SizeOf(*pz), 0);
}

TEST(ModelNote, AValueOutOfRangeLeavesTheBlockHalfFilled) {
  Bytes vc = Golden();
  vc[kParamsAt + 8] = 2;
  auto pz = NewBlock<Block>();
  EXPECT_FALSE(ReadRecord(vc, *pz));
  EXPECT_EQ(pz->m_iParam1, 3u);
  EXPECT_EQ(pz->m_iParam3, 1u);
}

TEST(ModelNote, TheNumberOfEntriesIsCarriedWithoutATest) {
  Bytes vc = Golden();
  vc[4] = 77;
  auto pz = NewBlock<Block>();
  ASSERT_TRUE(ReadRecord(vc, *pz));
  EXPECT_EQ(BuildRecord(*pz), vc);
}

TEST(ModelNote, TheSizingAnswersItsCodes) {
  auto pz = NewBlock<Block>();
  pz->m_zHeader.m_iTag = 3;
  EXPECT_EQ(SizeOf(*pz), -10);
  pz->m_zHeader.m_iTag = 4;
  pz->m_zHeader.m_afBoxMin[0] = 1;
  EXPECT_EQ(SizeOf(*pz), -40);
  pz->m_zHeader.m_afBoxMin[0] = 0;
  pz->m_zHeader.m_iNodeState = 3;
  EXPECT_EQ(SizeOf(*pz), -50);
}

TEST(ModelNote, EveryCutAndEveryDamagedByteIsRefusedOrHarmless) {
  ExpectDamageIsRefusedOrHarmless<Block>(Golden(), false, 202);
  ExpectDamageIsRefusedOrHarmless<Block>(Golden19(), true, 198);
  ExpectRandomBytesAreHarmless<Block>(Golden(), 68, 72);
  const NoThrowScope zNoThrow;
  ExpectDamageIsRefusedOrHarmless<Block>(Golden(), false, 202);
}

// --- In a store -----------------------------------------------------------------------------------------------------

namespace {

class ModelNoteStore : public ElementStoreTest {
 protected:
  ModelNoteStore() { KivRegisterElementClasses(); }
};

}  // namespace

TEST_F(ModelNoteStore, KeysAreTheLinksTheTwoKeysAndThoseOfAttributes) {
  OpenEmpty();
  auto pzBlock = NewBlock<Block>();
  ASSERT_TRUE(ReadRecord(Golden(), *pzBlock));
  pzBlock->m_vzAttribute = {{kTestNoteIndex, {0x44, 0, 0, 0, 0, 0, 0, 0}}};
  auto* pz = Put<KivModelNote>(BuildRecord(*pzBlock));
  ASSERT_NE(pz, nullptr);
  EXPECT_EQ(pz->GetElementType(), 4u);
  std::vector<uint64_t> viKey;
  ASSERT_TRUE(pz->GetAllPosition(viKey));
  EXPECT_EQ(viKey, (std::vector<uint64_t>{264, 0x11, 0x22, 0x44}));
  ASSERT_TRUE(pz->ReplaceAllPosition({{264, 264}, {0x11, 0x111}, {0x22, 0x122}, {0x44, 0x144}}));
  ASSERT_TRUE(pz->GetAllPosition(viKey));
  EXPECT_EQ(viKey, (std::vector<uint64_t>{264, 0x111, 0x122, 0x144}));
  EXPECT_NO_REPORT(EXPECT_FALSE(pz->ReplaceAllPosition({{264, 264}, {0x111, 1}, {0x144, 2}})));
}

TEST_F(ModelNoteStore, WithoutALinkKeysAreNeitherListedNorReplaced) {
  OpenEmpty();
  Bytes vc = Golden();
  vc[16] = vc[17] = 0;
  auto* pz = Put<KivModelNote>(vc);
  std::vector<uint64_t> viKey;
  EXPECT_NO_REPORT(EXPECT_FALSE(pz->GetAllPosition(viKey)));
  EXPECT_NO_REPORT(EXPECT_FALSE(pz->ReplaceAllPosition({{0x11, 1}, {0x22, 2}})));
  EXPECT_EQ(pz->GetMemoryBlock()->m_iAssemblyKey, 0x11u);
  EXPECT_FALSE(pz->IsModified());
}
