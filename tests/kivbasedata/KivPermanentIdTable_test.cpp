#include "KivPermanentIdTable.h"

#include <gtest/gtest.h>

#include <string>

#include "KivElementClasses.h"
#include "KivLittleEndian.h"
#include "KivTestElement.h"

namespace {

using namespace kiv;
using namespace kivtest;

using Block = KivMemoryBlockPermanentIdTable;

const std::string kLinksBoxState = "0A00000000000000" + HexZeros(16) + HexZeros(24) + "02000000";
const std::string kBody = "03000000  04000000 4E423100  01000000 00  03000000 C3A400";

Bytes Golden() {
  return FromHex("09000000 63000000 01000000 44000000" + kLinksBoxState + kBody);
}
Bytes Golden19() {
  return FromHex("09000000 63000000 40000000" + kLinksBoxState + kBody);
}

}  // namespace

TEST(PermanentIdTable, ARecordReadsAsItIs) {
  auto pz = NewBlock<Block>();
  ASSERT_TRUE(ReadRecord(Golden(), *pz));
  EXPECT_EQ(pz->m_vstrPermanentId, (std::vector<KivWString>{u"NB1", u"", u"\u00e4"}));
  EXPECT_EQ(pz->m_zHeader.m_iNodeState, 2u);
  EXPECT_EQ(BuildRecord(*pz), Golden());
}

TEST(PermanentIdTable, AClearedTableKeepsNoMemory) {
  auto pz = NewBlock<Block>();
  ASSERT_TRUE(ReadRecord(Golden(), *pz));
  EXPECT_GE(pz->m_vstrPermanentId.capacity(), 3u);
  pz->Clear();
  EXPECT_EQ(pz->m_vstrPermanentId.capacity(), 0u);
}

TEST(PermanentIdTable, TheEntryCountIsKeptAndIsNotTheNumberOfStrings) {
  auto pz = NewBlock<Block>();
  ASSERT_TRUE(ReadRecord(Golden(), *pz));
  EXPECT_EQ(pz->m_zHeader.m_iEntryCount, 99u);
  pz->m_vstrPermanentId.push_back(u"x");
  EXPECT_EQ(KivLoad<uint32_t>(&BuildRecord(*pz)[4]), 99u);
}

TEST(PermanentIdTable, AnEmptyTableIsARecordOf72BytesWithCount0) {
  auto pz = NewBlock<Block>();
  const Bytes vc = BuildRecord(*pz);
  EXPECT_EQ(vc, FromHex("09000000 00000000 01000000 44000000" + HexZeros(52) + "00000000"));
  ASSERT_TRUE(ReadRecord(vc, *pz));
  EXPECT_TRUE(pz->m_vstrPermanentId.empty());
}

TEST(PermanentIdTable, AnEmptyStringIsStoredWithLength1AndASingle0) {
  auto pz = NewBlock<Block>();
  pz->m_vstrPermanentId = {u""};
  const Bytes vc = BuildRecord(*pz);
  EXPECT_EQ(Bytes(vc.begin() + 68, vc.end()), FromHex("01000000 01000000 00"));
}

TEST(PermanentIdTable, InGeneration19TheCountStandsAt64AndTheBlockCannotBeWritten) {
  auto pz = NewBlock<Block>();
  ASSERT_TRUE(ReadRecord(Golden19(), *pz, true));
  EXPECT_EQ(pz->m_vstrPermanentId.size(), 3u);
  EXPECT_EQ(pz->m_zHeader.m_iFormat, 0u);
  EXPECT_FALSE(KivRaiseElementFormat(KivRulesOf<Block>(), false, pz->m_zHeader));
  // The smallest record there, which lies below 72 bytes.
  ASSERT_TRUE(ReadRecord(FromHex("09000000 00000000 40000000" + HexZeros(52) + "00000000"), *pz, true));
}

TEST(PermanentIdTable, ADataOffsetBelow68RefusesTheRecordButInGeneration19) {
  auto pz = NewBlock<Block>();
  Bytes vc = Golden();
  vc[12] = 0x43;
  EXPECT_FALSE(ReadRecord(vc, *pz));
  Bytes vc19 = Golden19();
  vc19[8] = 0x01;
  EXPECT_TRUE(ReadRecord(vc19, *pz, true));
}

TEST(PermanentIdTable, TheSizingAnswersItsCodes) {
  auto pz = NewBlock<Block>();
  pz->m_zHeader.m_iTag = 3;
  EXPECT_EQ(SizeOf(*pz), -10);
  pz->m_zHeader.m_iTag = 9;
  pz->m_zHeader.m_iNodeState = 3;
  EXPECT_EQ(SizeOf(*pz), -50);
}

TEST(PermanentIdTable, EveryCutAndEveryDamagedByteIsRefusedOrHarmless) {
  ExpectDamageIsRefusedOrHarmless<Block>(Golden(), false, Golden().size());
  ExpectDamageIsRefusedOrHarmless<Block>(Golden19(), true, Golden19().size());
  ExpectRandomBytesAreHarmless<Block>(Golden(), 68, 73);
  const NoThrowScope zNoThrow;
  ExpectDamageIsRefusedOrHarmless<Block>(Golden(), false, Golden().size());
}

TEST(PermanentIdTable, ACountOfStringsIsComparedWithTheBytesThatRemain) {
  Bytes vc = Golden();
  auto pz = NewBlock<Block>();
  for (const uint32_t n : {4u, 6u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
    KivStore<uint32_t>(&vc[68], n);
    EXPECT_FALSE(ReadRecord(vc, *pz)) << n;
    EXPECT_LE(pz->m_vstrPermanentId.size(), 4u);
  }
}

// --- In a store -----------------------------------------------------------------------------------------------------

namespace {

class PermanentIdTableStore : public ElementStoreTest {
 protected:
  PermanentIdTableStore() { KivRegisterElementClasses(); }
};

}  // namespace

TEST_F(PermanentIdTableStore, ItIsSavedAndListsItsLinks) {
  OpenEmpty();
  auto* pz = Put<KivPermanentIdTable>(Golden());
  ASSERT_NE(pz, nullptr);
  EXPECT_EQ(pz->GetElementType(), 9u);
  std::vector<uint64_t> viKey;
  ASSERT_TRUE(pz->GetAllPosition(viKey));
  EXPECT_EQ(viKey, std::vector<uint64_t>{10});
  pz->GetMemoryBlockForWrite()->m_vstrPermanentId = {u"B2"};
  ASSERT_TRUE(pz->Save(false));
  EXPECT_EQ(pz->GetDataSize(), 72u + 7);
}

TEST_F(PermanentIdTableStore, AFormatOtherThan1IsReadAndNotWritten) {
  OpenEmpty();
  for (const uint8_t iFormat : {0, 2}) {
    Bytes vc = Golden();
    vc[8] = iFormat;
    auto* pz = Put<KivPermanentIdTable>(vc);
    ASSERT_NE(pz->GetMemoryBlockForWrite(), nullptr);
    EXPECT_FALSE(pz->Save(false));
    EXPECT_EQ(Stored(*pz), vc);
    pz->GetMemoryBlock()->m_zHeader.m_iFormat = 1;
    pz->GetMemoryBlock()->m_zHeader.m_iDataOffset = 67;
    EXPECT_FALSE(pz->Save(false));
    pz->GetMemoryBlock()->m_zHeader.m_iDataOffset = 68;
    EXPECT_TRUE(pz->Save(false));
  }
}
