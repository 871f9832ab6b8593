#include "KivModel.h"

#include <gtest/gtest.h>

#include <string>

#include "KivElementClasses.h"
#include "KivTestElement.h"

namespace {

using namespace kiv;
using namespace kivtest;

using Block = KivMemoryBlockModel;

const std::string kLinks = "0000000000000000 2100000000000080 2200000000000080";

Bytes Golden() {
  return FromHex("03000000 00000000 02000000 48000000" + kLinks +
                 "00000000 00000000 00000000  0000803F 0000803F 0000803F  01000000  2A000000"
                 "0000803F 00000040 00004040  00008040 0000A040 0000C040");
}
Bytes Golden1() {
  return FromHex("03000000 00000000 01000000 48000000" + kLinks +
                 "00000000 00000000 00000000  0000803F 0000803F 0000803F  01000000  2A000000");
}
Bytes Golden19() {
  return FromHex("03000000 00000000 44000000" + kLinks +
                 "00000000 00000000 00000000  0000803F 0000803F 0000803F  01000000  2A000000");
}

constexpr std::array<float, 3> kHigh = {1e30f, 1e30f, 1e30f};
constexpr std::array<float, 3> kLow = {-1e30f, -1e30f, -1e30f};

}  // namespace

TEST(Model, ARecordIsAlways96Bytes) {
  auto pz = NewBlock<Block>();
  EXPECT_EQ(BuildRecord(*pz).size(), 96u);
  ASSERT_TRUE(ReadRecord(Golden(), *pz));
  EXPECT_EQ(pz->m_iModelValue, 42u);
  EXPECT_EQ(pz->m_zHeader.m_aiLink[1], 0x8000000000000021u);
  EXPECT_EQ(pz->m_fModelBoxMin, (std::array<float, 3>{1, 2, 3}));
  EXPECT_EQ(pz->m_fModelBoxMax, (std::array<float, 3>{4, 5, 6}));
  EXPECT_EQ(BuildRecord(*pz), Golden());
  // A data offset above the least moves nothing: there are no entries.
  Bytes vc = Golden();
  vc[12] = 0x60;
  ASSERT_TRUE(ReadRecord(vc, *pz));
  EXPECT_EQ(pz->m_fModelBoxMin[0], 1.0f);
  EXPECT_EQ(BuildRecord(*pz), vc);
}

TEST(Model, InAFreshBlockBothBoxesAreZero) {
  auto pz = NewBlock<Block>();
  ASSERT_TRUE(ReadRecord(Golden1(), *pz));
  ASSERT_TRUE(ReadRecord(Bytes(), *pz));
  EXPECT_EQ(pz->m_fModelBoxMin, (std::array<float, 3>{}));
  EXPECT_EQ(pz->m_fModelBoxMax, (std::array<float, 3>{}));
  EXPECT_EQ(pz->m_zHeader.m_afBoxMin, (std::array<float, 3>{}));
  EXPECT_EQ(pz->m_iModelValue, 0u);
}

TEST(Model, AModelOfFormat1GetsABoxOf1e30AndMinus1e30AndIsWrittenAsFormat2WithIt) {
  auto pz = NewBlock<Block>();
  for (const bool bVer19 : {false, true}) {
    ASSERT_TRUE(ReadRecord(bVer19 ? Golden19() : Golden1(), *pz, bVer19));
    EXPECT_EQ(pz->m_iModelValue, 42u);
    EXPECT_EQ(pz->m_fModelBoxMin, kHigh);
    EXPECT_EQ(pz->m_fModelBoxMax, kLow);
    if (bVer19) continue;  // cannot be written
    EXPECT_EQ(BuildRecord(*pz), FromHex("03000000 00000000 02000000 48000000" + kLinks +
                                        "00000000 00000000 00000000  0000803F 0000803F 0000803F  01000000  2A000000"
                                        "CAF24971 CAF24971 CAF24971 CAF249F1 CAF249F1 CAF249F1"));
  }
}

TEST(Model, TheBoxOfTheHeaderAndTheNumberOfEntriesAreNotTested) {
  Bytes vc = Golden();
  vc[43] = 0x7F;
  vc[4] = 9;
  auto pz = NewBlock<Block>();
  ASSERT_TRUE(ReadRecord(vc, *pz));
  EXPECT_EQ(BuildRecord(*pz), vc);
}

TEST(Model, InGeneration19ARecordBelow72BytesIsAcceptedAndRefusedWithAFormat) {
  auto pz = NewBlock<Block>();
  EXPECT_EQ(Golden19().size(), 68u);
  EXPECT_TRUE(ReadRecord(Golden19(), *pz, true));
  Bytes vc = Golden1();
  vc.resize(71);
  EXPECT_FALSE(ReadRecord(vc, *pz));
}

TEST(Model, TheSizingAnswersItsCodes) {
  auto pz = NewBlock<Block>();
  pz->m_zHeader.m_iTag = 4;
  EXPECT_EQ(SizeOf(*pz), -10);
  pz->m_zHeader.m_iTag = 3;
  pz->m_zHeader.m_iNodeState = 3;
  EXPECT_EQ(SizeOf(*pz), -50);
}

TEST(Model, EveryCutAndEveryDamagedByteOfEachRevisionIsRefusedOrHarmless) {
  ExpectDamageIsRefusedOrHarmless<Block>(Golden(), false, 96);
  ExpectDamageIsRefusedOrHarmless<Block>(Golden1(), false, 72);
  ExpectDamageIsRefusedOrHarmless<Block>(Golden19(), true, 68);
  ExpectRandomBytesAreHarmless<Block>(Golden(), 68, 71);
  const NoThrowScope zNoThrow;
  ExpectDamageIsRefusedOrHarmless<Block>(Golden(), false, 96);
}

// --- In a store -----------------------------------------------------------------------------------------------------

namespace {

class ModelStore : public ElementStoreTest {
 protected:
  ModelStore() { KivRegisterElementClasses(); }
};

}  // namespace

TEST_F(ModelStore, TheFirstRecordOfAContainerHasTheModelsPosition) {
  OpenEmpty(4, false);
  auto* pz = Put<KivModel>(Golden1());
  ASSERT_NE(pz, nullptr);
  EXPECT_EQ(m_iPosition, kModelPosition);
  EXPECT_EQ(pz->GetElementType(), 3u);
  std::vector<uint64_t> viKey;
  ASSERT_TRUE(pz->GetAllPosition(viKey));
  EXPECT_EQ(viKey, (std::vector<uint64_t>{0x8000000000000021u, 0x8000000000000022u}));
  pz->GetMemoryBlockForWrite()->m_iModelValue = 43;
  ASSERT_TRUE(pz->Save(false));
  EXPECT_EQ(Stored(*pz).size(), 96u);
  EXPECT_EQ(Stored(*pz)[68], 43);
  EXPECT_EQ(Stored(*pz)[8], 2);
}
