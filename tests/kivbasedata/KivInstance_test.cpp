#include "KivInstance.h"

#include <gtest/gtest.h>

#include <string>

#include "KivElementClasses.h"
#include "KivLittleEndian.h"
#include "KivTestElement.h"

namespace {

using namespace kiv;
using namespace kivtest;

using Block = KivMemoryBlockInstance;

// --- Records by hand ------------------------------------------------------------------------------------------------

// The box's low corner lies above its high one; nothing tests it here.
const std::string kLinksBoxState =
    "0A00000000000000 0B00000000000000 0C00000000000000"
    "0000803F 0000803F 0000803F  00000000 00000000 00000000  01000000";
const std::string kValueAndTolerances = "07000000  02000000 0AD7233C 0000003F";
const std::string kOne = "000000000000F03F";
const std::string kMoved = kOne + HexZeros(32) + kOne + HexZeros(32) + kOne + HexZeros(8) +
                           "0000000000000040 0000000000000840 0000000000001040" + kOne;

std::string Instance(uint32_t iFormat) {
  std::string str = "01000000 02000000 03000000 04000000  02000000";
  str += "2100000000000000";
  if (iFormat >= 3) str += "2200000000000000";
  str += "2300000000000000 05000000 11270000  01 03 01000000 99 00000000000000";
  str += HexZeros(8);
  if (iFormat >= 3) str += HexZeros(8);
  str += "2400000000000000 06000000 18270000" + HexZeros(14);
  str += "3100000000000000";
  if (iFormat >= 4) str += "3200000000000000 3300000000000000";
  if (iFormat >= 5) str += "3400000000000000";
  str += "02000000 22020000" + kMoved;
  if (iFormat >= 3) str += "00000000 00000000 00000000 0000803F 0000803F 0000803F";
  return str + "01 04 02000000 AABB 000000000000";
}
const std::string kGapFrame = "10270000 0E000000 0000";

// An instance with two levels and a gap of 14 bytes, in each revision; 0 is generation 19.
Bytes Golden(uint32_t iFormat = 5) {
  const std::string strHead = "02000000 01000000" + HexU32(iFormat) + "54000000" + kLinksBoxState + kValueAndTolerances;
  switch (iFormat) {
    case 5:
      return FromHex(strHead + "02000000" + HexFrame(88, 10003, 330) + Instance(5) + HexU32(418) + kGapFrame);
    case 4:
      return FromHex(strHead + "02000000" + HexFrame(88, 10003, 322) + Instance(4) + HexU32(410) + kGapFrame);
    case 3:
      return FromHex(strHead + "02000000" + HexFrame(88, 10003, 306) + Instance(3) + HexU32(394) + kGapFrame);
    case 2:
      return FromHex(strHead + "02000000" + HexFrame(88, 10003, 266) + Instance(2) + HexU32(354) + kGapFrame);
    case 1:  // the count in the header is that of all entries
      return FromHex("02000000 02000000 01000000 54000000" + kLinksBoxState + kValueAndTolerances +
                     HexFrame(84, 10003, 266) + Instance(1) + HexU32(350) + kGapFrame);
    default:
      return FromHex("02000000 02000000 50000000" + kLinksBoxState + kValueAndTolerances + HexFrame(80, 10003, 266) +
                     Instance(1) + HexU32(346) + kGapFrame);
  }
}

constexpr size_t kLevelKindAt = 88 + 12 + 20 + 28;
constexpr size_t kFlagsAt = 88 + 12 + 20 + 92 + 32;

}  // namespace

TEST(Instance, ARecordOfRevision5ReadsAsItIs) {
  auto pz = NewBlock<Block>();
  ASSERT_TRUE(ReadRecord(Golden(), *pz));
  EXPECT_EQ(pz->m_iInstanceValue, 7u);
  EXPECT_EQ(pz->m_vfLevelTolerance, (std::vector<float>{0.01f, 0.5f}));
  EXPECT_EQ(pz->m_zHeader.m_iEntryCount, 1u);
  ASSERT_EQ(pz->m_vzInstance.size(), 2u);
  const KivInstanceEntry& z = pz->m_vzInstance[0];
  EXPECT_EQ(z.m_iInstanceData, (std::array<uint32_t, 4>{1, 2, 3, 4}));
  ASSERT_EQ(z.m_vzLevel.size(), 2u);
  EXPECT_EQ(z.m_vzLevel[0].m_iFaceEdgeKey, 0x21u);
  EXPECT_EQ(z.m_vzLevel[0].m_iCommonKey, 0x22u);
  EXPECT_EQ(z.m_vzLevel[0].m_iPolyElemKey, 0x23u);
  EXPECT_EQ(z.m_vzLevel[0].m_iLevelValue, 5u);
  EXPECT_EQ(z.m_vzLevel[0].m_iLevelKind, 10001u);
  EXPECT_EQ(z.m_vzLevel[0].m_vzAttribute, (std::vector<KivAttribute>{{3, {0x99}}}));
  EXPECT_EQ(z.m_vzLevel[1].m_iPolyElemKey, 0x24u);
  EXPECT_EQ(z.m_vzLevel[1].m_iLevelKind, 10008u);
  EXPECT_EQ(z.m_iBrepKey, 0x31u);
  EXPECT_EQ(z.m_iVertexKey, 0x32u);
  EXPECT_EQ(z.m_iVertexKey2, 0x33u);
  EXPECT_EQ(z.m_iExtraKey, 0x34u);
  EXPECT_EQ(z.m_iMatrixFlags, 2u);
  EXPECT_EQ(z.m_iMatrixClass, 546u);
  EXPECT_EQ(z.m_zMatrix.GetTranslation(), (KivECoord3{2, 3, 4}));
  EXPECT_EQ(z.m_fInstanceBox, (std::array<float, 6>{0, 0, 0, 1, 1, 1}));
  EXPECT_EQ(z.m_vzAttribute, (std::vector<KivAttribute>{{4, {0xAA, 0xBB}}}));
  EXPECT_TRUE(pz->m_vzInstance[1].m_zFrame.IsGap());
  EXPECT_EQ(BuildRecord(*pz), Golden());
}

TEST(Instance, OldRevisionsReadWithTheirDefaultsAndAreWrittenAsRevision5) {
  auto pz = NewBlock<Block>();
  for (const uint32_t iFormat : {4u, 3u, 2u, 1u, 0u}) {
    ASSERT_TRUE(ReadRecord(Golden(iFormat), *pz, iFormat == 0)) << iFormat;
    EXPECT_EQ(pz->m_zHeader.m_iFormat, 5u);
    EXPECT_EQ(pz->m_zHeader.m_iEntryCount, 1u) << iFormat;
    const KivInstanceEntry& z = pz->m_vzInstance[0];
    EXPECT_EQ(z.m_iExtraKey, 0u);
    EXPECT_EQ(z.m_iVertexKey, iFormat >= 4 ? 0x32u : 0u);
    EXPECT_EQ(z.m_vzLevel[0].m_iCommonKey, iFormat >= 3 ? 0x22u : 0u);
    EXPECT_EQ(z.m_vzLevel[0].m_iPolyElemKey, 0x23u);
    EXPECT_EQ(z.m_fInstanceBox, iFormat >= 3 ? (std::array<float, 6>{0, 0, 0, 1, 1, 1}) : kNoBox);
    Bytes vcExpected = Golden();
    vcExpected[kFlagsAt - 8] = 0;
    if (iFormat < 4) vcExpected[kFlagsAt - 24] = vcExpected[kFlagsAt - 16] = 0;
    if (iFormat < 3) {
      vcExpected[88 + 12 + 20 + 8] = 0;
      for (size_t i = 0; i < 6; ++i) KivStore<float>(&vcExpected[kFlagsAt + 8 + 128 + 4 * i], kNoBox[i]);
    }
    EXPECT_EQ(BuildRecord(*pz), vcExpected) << iFormat;
  }
}

TEST(Instance, ALevelOfFormat1HasCommonKey0AndABoxOf1e30AndMinus1e30) {
  auto pz = NewBlock<Block>();
  ASSERT_TRUE(ReadRecord(Golden(1), *pz));
  EXPECT_EQ(pz->m_vzInstance[0].m_vzLevel[0].m_iCommonKey, 0u);
  EXPECT_EQ(pz->m_vzInstance[0].m_fInstanceBox, (std::array<float, 6>{1e30f, 1e30f, 1e30f, -1e30f, -1e30f, -1e30f}));
}

TEST(Instance, ANewBlockHasOneToleranceAndItsDataBehindIt) {
  auto pz = NewBlock<Block>();
  EXPECT_EQ(pz->m_vfLevelTolerance, std::vector<float>{0.01f});
  EXPECT_EQ(BuildRecord(*pz).size(), 84u);
  EXPECT_EQ(pz->m_zHeader.m_iDataOffset, 80u);
  pz->m_vfLevelTolerance.clear();
  EXPECT_EQ(BuildRecord(*pz).size(), 80u);
  EXPECT_EQ(pz->m_zHeader.m_iDataOffset, 76u);
  pz->m_vfLevelTolerance.assign(5, 1);
  const Bytes vc = BuildRecord(*pz);
  EXPECT_EQ(vc.size(), 100u);
  ASSERT_TRUE(ReadRecord(vc, *pz));
  EXPECT_EQ(pz->m_vfLevelTolerance.size(), 5u);
}

TEST(Instance, AClearedBlockDoesNotKeepALongListOfTolerances) {
  auto pz = NewBlock<Block>();
  pz->m_vfLevelTolerance.assign(100000, 1.0f);
  pz->Clear();
  EXPECT_EQ(pz->m_vfLevelTolerance, std::vector<float>{0.01f});
  EXPECT_LE(pz->m_vfLevelTolerance.capacity(), 64u);
}

TEST(Instance, ANewEntryHasTheIdentityNoFlagsAndClass546) {
  auto pz = NewBlock<Block>();
  const KivInstanceEntry& z = pz->AddInstance();
  EXPECT_TRUE(z.m_zMatrix.IsIdentityLike(KivEMatrix4()));
  EXPECT_EQ(z.m_iMatrixFlags, 0u);
  EXPECT_EQ(z.m_iMatrixClass, 546u);
  EXPECT_EQ(z.m_zFrame.m_iKind, 10003u);
  EXPECT_EQ(pz->m_zHeader.m_iEntryCount, 1u);
}

TEST(Instance, TheNumberOfLevelsMayDifferFromTheNumberOfTolerances) {
  auto pz = NewBlock<Block>();
  pz->AddInstance().m_vzLevel.resize(3);
  pz->AddInstance();
  const Bytes vc = BuildRecord(*pz);
  ASSERT_TRUE(ReadRecord(vc, *pz));
  EXPECT_EQ(pz->m_vzInstance[0].m_vzLevel.size(), 3u);
  EXPECT_EQ(pz->m_vzInstance[1].m_vzLevel.size(), 0u);
  EXPECT_EQ(pz->m_vfLevelTolerance.size(), 1u);
}

TEST(Instance, TheClassIsStoredOnlyWithBit1AndReadsAs0Without) {
  Bytes vc = Golden();
  vc[kFlagsAt] = 1;  // another bit
  vc.erase(vc.begin() + kFlagsAt + 4, vc.begin() + kFlagsAt + 8);
  vc.resize(vc.size() - 14);
  vc[84] = 1;
  auto pz = NewBlock<Block>();
  ASSERT_TRUE(ReadRecord(vc, *pz));
  EXPECT_EQ(pz->m_vzInstance[0].m_iMatrixFlags, 1u);
  EXPECT_EQ(pz->m_vzInstance[0].m_iMatrixClass, 0u);
  EXPECT_EQ(pz->m_vzInstance[0].m_zMatrix.GetTranslation(), (KivECoord3{2, 3, 4}));
  // A write for changed keys leaves it so; bytes of the entry's size are counted anew.
  pz->BeforeSave(true);
  EXPECT_EQ(SizeOf(*pz), static_cast<int64_t>(vc.size()));
  EXPECT_EQ(pz->m_vzInstance[0].m_iMatrixFlags, 1u);
  // Any other write fills it in.
  const Bytes vcOut = BuildRecord(*pz);
  EXPECT_EQ(vcOut[kFlagsAt], 3);
  EXPECT_EQ(KivLoad<uint32_t>(&vcOut[kFlagsAt + 4]), 0x22u);
}

TEST(Instance, AWriteFindsScalingAndMirroringButLeavesPairsThatAreSet) {
  const auto ClassOf = [](uint32_t iClass, uint32_t iFlags, double dX, double dY) {
    auto pz = NewBlock<Block>();
    KivInstanceEntry& z = pz->AddInstance();
    z.m_zMatrix.Scale(dX, dY, 1);
    z.m_iMatrixClass = iClass;
    z.m_iMatrixFlags = iFlags;
    EXPECT_FALSE(BuildRecord(*pz).empty());
    EXPECT_EQ(pz->m_vzInstance[0].m_iMatrixFlags & 2u, 2u);
    return pz->m_vzInstance[0].m_iMatrixClass;
  };
  EXPECT_EQ(ClassOf(0, 0, 1, 1), 0x22u);
  EXPECT_EQ(ClassOf(0, 0, 2, 1), 0x21u);
  EXPECT_EQ(ClassOf(0, 0, 1, -1), 0x12u);
  EXPECT_EQ(ClassOf(0, 0, -2, 1), 0x11u);
  EXPECT_EQ(ClassOf(0x300, 0, -2, 1), 0x311u);
  EXPECT_EQ(ClassOf(0x002, 0, -2, 1), 0x012u);  // the first pair is set
  EXPECT_EQ(ClassOf(546, 0, -2, 1), 546u);      // both are in a new entry
  EXPECT_EQ(ClassOf(0, 2, -2, 1), 0u);          // valid, so nothing is computed
}

TEST(Instance, AGapGetsNoClass) {
  auto pz = NewBlock<Block>();
  pz->m_vzInstance.Add().m_zFrame.m_iKind = kGapKind;
  EXPECT_FALSE(BuildRecord(*pz).empty());
  EXPECT_EQ(pz->m_vzInstance[0].m_iMatrixFlags, 0u);
}

TEST(Instance, ALevelKindOtherThan10001And10008FailsOnBothSides) {
  auto pz = NewBlock<Block>();
  for (const uint8_t iKind : {0x10, 0x12, 0x19}) {
    Bytes vc = Golden();
    vc[kLevelKindAt] = iKind;
    const uint64_t nBefore = QuietReports();
    EXPECT_FALSE(ReadRecord(vc, *pz));
    EXPECT_EQ(QuietReports(), nBefore + 1);
  }
  ASSERT_TRUE(ReadRecord(Golden(), *pz));
  pz->m_vzInstance[0].m_vzLevel[1].m_iLevelKind = 10002;
  EXPECT_EQ(SizeOf(*pz), 0);
}

TEST(Instance, TheSizingAnswersItsCodesAndTestsNoBox) {
  const auto With = [](auto&& pfnChange) {
    auto pz = NewBlock<Block>();
    EXPECT_TRUE(ReadRecord(Golden(), *pz));
    pfnChange(*pz);
    return SizeOf(*pz);
  };
  EXPECT_EQ(With([](Block&) {}), 432);
  EXPECT_EQ(With([](Block& z) { z.m_zHeader.m_iTag = 6; }), -10);
  EXPECT_EQ(With([](Block& z) { z.m_zHeader.m_iNodeState = 3; }), -50);
  EXPECT_EQ(With([](Block& z) { z.m_zHeader.m_iEntryCount = 2; }), -80);
  EXPECT_EQ(With([](Block& z) { z.m_vzInstance[0].m_zFrame.m_iKind = 10006; }), 0);
}

TEST(Instance, ABadHeaderFrameOrKindRefusesTheRecord) {
  auto pz = NewBlock<Block>();
  for (const auto& [iAt, iByte] : std::vector<std::pair<size_t, uint8_t>>{{0, 6},
                                                                          {12, 0x47},  // data below 72
                                                                          {64, 3},
                                                                          {75, 0x80},  // tolerances
                                                                          {84, 3},     // entries
                                                                          {88, 0x59},
                                                                          {92, 0x16},
                                                                          {96, 0},
                                                                          {119, 0x7F}}) {  // levels
    Bytes vc = Golden();
    vc[iAt] = iByte;
    if (iAt == 96) vc[97] = 0;
    const uint64_t nBefore = QuietReports();
    EXPECT_FALSE(ReadRecord(vc, *pz)) << iAt;
    EXPECT_GT(QuietReports(), nBefore) << iAt;
  }
}

TEST(Instance, EveryCutAndEveryDamagedByteOfEachRevisionIsRefusedOrHarmless) {
  for (const uint32_t iFormat : {5u, 4u, 3u, 2u, 1u, 0u})
    ExpectDamageIsRefusedOrHarmless<Block>(Golden(iFormat), iFormat == 0, Golden(iFormat).size());
}

TEST(Instance, DamageIsTheSameWithReportsThatDoNotThrow) {
  const NoThrowScope zNoThrow;
  ExpectDamageIsRefusedOrHarmless<Block>(Golden(), false, Golden().size());
  ExpectDamageIsRefusedOrHarmless<Block>(Golden(0), true, Golden(0).size());
}

TEST(Instance, RandomBytesAreRefusedOrHarmless) {
  ExpectRandomBytesAreHarmless<Block>(Golden(), 72, 63);
  ExpectRandomBytesAreHarmless<Block>(Golden(1), 72, 64);
}

// --- In a store -----------------------------------------------------------------------------------------------------

namespace {

class InstanceStore : public ElementStoreTest {
 protected:
  InstanceStore() { KivRegisterElementClasses(); }
};

}  // namespace

TEST_F(InstanceStore, KeysAreLinksThenThoseOfEntriesAndLevelsThenThoseOfTheirAttributes) {
  OpenEmpty();
  auto pzBlock = NewBlock<Block>();
  ASSERT_TRUE(ReadRecord(Golden(), *pzBlock));
  pzBlock->m_vzInstance[0].m_vzAttribute = {{kTestNoteIndex, {0x52, 0, 0, 0, 0, 0, 0, 0}}};
  pzBlock->m_vzInstance[0].m_vzLevel[1].m_vzAttribute = {{kTestNoteIndex, {0x51, 0, 0, 0, 0, 0, 0, 0}}};
  pzBlock->AddInstance().m_iBrepKey = 0x41;
  auto* pz = Put<KivInstance>(BuildRecord(*pzBlock));
  std::vector<uint64_t> viKey;
  ASSERT_TRUE(pz->GetAllPosition(viKey));
  EXPECT_EQ(viKey, (std::vector<uint64_t>{0x0A, 0x0B, 0x0C, 0x31, 0x32, 0x33, 0x34, 0x21, 0x22, 0x23, 0x24, 0x41, 0x51,
                                          0x52}));
  std::map<uint64_t, uint64_t> mapKey;
  for (const uint64_t iKey : viKey) mapKey[iKey] = iKey + 0x1000;
  ASSERT_TRUE(pz->ReplaceAllPosition(mapKey));
  std::vector<uint64_t> viNew;
  ASSERT_TRUE(pz->GetAllPosition(viNew));
  ASSERT_EQ(viNew.size(), viKey.size());
  for (size_t i = 0; i < viKey.size(); ++i) EXPECT_EQ(viNew[i], viKey[i] + 0x1000);
  mapKey.clear();
  EXPECT_NO_REPORT(EXPECT_FALSE(pz->ReplaceAllPosition(mapKey)));
}

TEST_F(InstanceStore, TheKeysOfAnElementWithoutALinkAreNotListed) {
  OpenEmpty();
  Bytes vc = Golden();
  vc[16] = vc[24] = vc[32] = 0;
  auto* pz = Put<KivInstance>(vc);
  std::vector<uint64_t> viKey;
  EXPECT_NO_REPORT(EXPECT_FALSE(pz->GetAllPosition(viKey)));
  vc[32] = 9;
  EXPECT_TRUE(Put<KivInstance>(vc)->GetAllPosition(viKey));
}

TEST_F(InstanceStore, ASaveForChangedKeysClassifiesNothing) {
  OpenEmpty();
  auto pzBlock = NewBlock<Block>();
  KivInstanceEntry& z = pzBlock->AddInstance();
  z.m_iMatrixClass = 0;
  pzBlock->BeforeSave(true);
  typename Block::Memory zMemory;
  Bytes vc(static_cast<size_t>(SizeOf(*pzBlock)));
  ASSERT_TRUE(KivWriteElement(std::span<uint8_t>(vc), 5, *pzBlock, zMemory));
  auto* pz = Put<KivInstance>(vc);
  EXPECT_EQ(pz->GetElementType(), 2u);
  ASSERT_NE(pz->GetMemoryBlockForWrite(), nullptr);
  ASSERT_TRUE(pz->Save(true));
  EXPECT_EQ(Stored(*pz), vc);
  ASSERT_TRUE(pz->Save(false));
  EXPECT_EQ(Stored(*pz).size(), vc.size() + 4);
}
