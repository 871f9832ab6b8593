#include "KivPMI.h"

#include <gtest/gtest.h>

#include <string>

#include "KivElementClasses.h"
#include "KivTestElement.h"

namespace {

using namespace kiv;
using namespace kivtest;

using Block = KivMemoryBlockPMI;

const std::string kLinksBoxState =
    "0A00000000000000 0000000000000000 0000000000000000"
    "00000000 00000000 00000000  0000803F 0000803F 0000803F  00000000";

// An annotation with one of everything.
std::string Annotation(uint32_t iFormat) {
  std::string str = "02000000 03000000  01000000 02000000 03000000 04000000 05000000 06000000 07000000 08000000";
  if (iFormat >= 3) str += "09000000";
  str += "02000000 0A000000 0B000000";
  if (iFormat >= 4)
    str +=
        "01000000 0C00000000000000  03000000 AABBCC"
        "01000000 02000000 03000000 04000000 05000000 06000000 07000000 08000000 09000000  0D000000";
  if (iFormat >= 3) str += "01000000 0E000000";
  str += "01000000 0F000000";
  str +=
      "01000000  02000000 02000000 4100 01000000 00  1000000000000000 11000000 12000000 131415"
      "01 06 01000000 77 00000000000000";
  if (iFormat >= 2) str += "01000000 16000000 17000000 18000000  01 07 00000000 0000000000000000";
  return str;
}

// A gap of 12 bytes and an annotation; 0 is generation 19.
Bytes Golden(uint32_t iFormat = 4) {
  static constexpr uint32_t kSize[] = {124, 124, 154, 166, 225};
  const std::string strFormat = iFormat == 0 ? "40000000" : HexU32(iFormat) + "44000000";
  const uint32_t iData = iFormat == 0 ? 64 : 68;
  return FromHex("07000000 01000000" + strFormat + kLinksBoxState + HexFrame(iData, 10000, 12) +
                 HexFrame(iData + 12, 10007, kSize[iFormat]) + Annotation(iFormat));
}

}  // namespace

TEST(PMI, ARecordOfRevision4ReadsAsItIs) {
  auto pz = NewBlock<Block>();
  ASSERT_TRUE(ReadRecord(Golden(), *pz));
  ASSERT_EQ(pz->m_vzPMI.size(), 2u);
  EXPECT_TRUE(pz->m_vzPMI[0].m_zFrame.IsGap());
  const KivPMIEntry& z = pz->m_vzPMI[1];
  EXPECT_EQ(z.m_iPMIType, 2u);
  EXPECT_EQ(z.m_iPMISubType, 3u);
  EXPECT_EQ(z.m_iPMIData, (std::array<uint32_t, 8>{1, 2, 3, 4, 5, 6, 7, 8}));
  EXPECT_EQ(z.m_iPMIData8, 9u);
  EXPECT_EQ(z.m_viPMIInts, (std::vector<uint32_t>{10, 11}));
  EXPECT_EQ(z.m_viPMIRefs, (std::vector<uint64_t>{12}));
  EXPECT_EQ(z.m_vcPMIBytes, (Bytes{0xAA, 0xBB, 0xCC}));
  EXPECT_EQ(z.m_iPMIVector[0], (std::array<uint32_t, 3>{1, 2, 3}));
  EXPECT_EQ(z.m_iPMIVector[2], (std::array<uint32_t, 3>{7, 8, 9}));
  EXPECT_EQ(z.m_iPMIData9, 13u);
  EXPECT_EQ(z.m_viPMIInts2, (std::vector<uint32_t>{14}));
  EXPECT_EQ(z.m_viPMIInts3, (std::vector<uint32_t>{15}));
  ASSERT_EQ(z.m_vTextBlock.size(), 1u);
  EXPECT_EQ(z.m_vTextBlock[0].m_vstrText, (std::vector<KivWString>{u"A", u""}));
  EXPECT_EQ(z.m_vTextBlock[0].m_iTextValue, 16u);
  EXPECT_EQ(z.m_vTextBlock[0].m_iTextData, (std::array<uint32_t, 2>{17, 18}));
  EXPECT_EQ(z.m_vTextBlock[0].m_acTextColour, (std::array<uint8_t, 3>{0x13, 0x14, 0x15}));
  EXPECT_EQ(z.m_vTextBlock[0].m_vzAttribute, (std::vector<KivAttribute>{{6, {0x77}}}));
  EXPECT_EQ(z.m_vPMITriple.at(0), (std::array<uint32_t, 3>{22, 23, 24}));
  EXPECT_EQ(z.m_vzAttribute, (std::vector<KivAttribute>{{7, {}}}));
  EXPECT_EQ(BuildRecord(*pz), Golden());
}

TEST(PMI, OldRevisionsReadWithTheirDefaultsAndAreWrittenWhole) {
  auto pz = NewBlock<Block>();
  for (const uint32_t iFormat : {3u, 2u, 1u, 0u}) {
    ASSERT_TRUE(ReadRecord(Golden(iFormat), *pz, iFormat == 0)) << iFormat;
    const KivPMIEntry& z = pz->m_vzPMI[1];
    EXPECT_EQ(z.m_iPMIData8, iFormat >= 3 ? 9u : 0u);
    EXPECT_EQ(z.m_viPMIInts.size(), 2u);
    EXPECT_EQ(z.m_viPMIInts2.size(), iFormat >= 3 ? 1u : 0u);
    EXPECT_EQ(z.m_viPMIInts3, (std::vector<uint32_t>{15}));
    EXPECT_TRUE(z.m_viPMIRefs.empty());
    EXPECT_EQ(z.m_iPMIData9, 0u);
    EXPECT_EQ(z.m_vTextBlock.size(), 1u);
    EXPECT_EQ(z.m_vPMITriple.size(), iFormat >= 2 ? 1u : 0u);
    EXPECT_EQ(z.m_vzAttribute.size(), iFormat >= 2 ? 1u : 0u);
    if (iFormat == 0) continue;  // cannot be written
    const Bytes vc = BuildRecord(*pz);
    EXPECT_EQ(vc.size(), Golden().size() - 8 - 3 - (iFormat < 3 ? 4 : 0) - (iFormat < 2 ? 12 : 0)) << iFormat;
    EXPECT_EQ(vc[8], 4);
  }
}

TEST(PMI, AFormat1EntryReadsType1AndSubType0xFFFFFFFFWhateverStandsThere) {
  auto pz = NewBlock<Block>();
  for (const uint32_t iFormat : {1u, 0u}) {
    ASSERT_TRUE(ReadRecord(Golden(iFormat), *pz, iFormat == 0));
    EXPECT_EQ(pz->m_vzPMI[1].m_iPMIType, 1u);
    EXPECT_EQ(pz->m_vzPMI[1].m_iPMISubType, 0xFFFFFFFFu);
  }
}

TEST(PMI, AFormat3EntryHasNoBytesAndAVectorOf0) {
  auto pz = NewBlock<Block>();
  ASSERT_TRUE(ReadRecord(Golden(3), *pz));
  EXPECT_TRUE(pz->m_vzPMI[1].m_vcPMIBytes.empty());
  EXPECT_EQ(pz->m_vzPMI[1].m_iPMIVector, (std::array<std::array<uint32_t, 3>, 3>{}));
}

TEST(PMI, AnEmptyEntryMeasures124And14AndStillHoldsTheCountOfTextBlocks) {
  auto pz = NewBlock<Block>();
  pz->AddPMI();
  const Bytes vc = BuildRecord(*pz);
  EXPECT_EQ(vc.size(), 68u + 124 + 14);
  EXPECT_EQ(vc, FromHex("07000000 01000000 04000000 44000000" + HexZeros(52) + HexFrame(68, 10007, 138) +
                        "01000000 FFFFFFFF" + HexZeros(124 - 20 + 14)));
  ASSERT_TRUE(ReadRecord(vc, *pz));
  EXPECT_TRUE(pz->m_vzPMI[0].m_vTextBlock.empty());
}

TEST(PMI, ARecordBelow68BytesIsRefusedInAnyStore) {
  auto pz = NewBlock<Block>();
  Bytes vc = FromHex("07000000 00000000 40000000" + kLinksBoxState + "00000000");
  ASSERT_EQ(vc.size(), 68u);
  EXPECT_TRUE(ReadRecord(vc, *pz, true));
  vc.resize(67);
  EXPECT_FALSE(ReadRecord(vc, *pz, true));
}

TEST(PMI, TheSizingAnswersItsCodes) {
  const auto With = [](auto&& pfnChange) {
    auto pz = NewBlock<Block>();
    EXPECT_TRUE(ReadRecord(Golden(), *pz));
    pfnChange(*pz);
    return SizeOf(*pz);
  };
  EXPECT_EQ(With([](Block&) {}), 305);
  EXPECT_EQ(With([](Block& z) { z.m_zHeader.m_iTag = 2; }), -10);
  EXPECT_EQ(With([](Block& z) { z.m_zHeader.m_afBoxMin[1] = 2; }), -40);
  EXPECT_EQ(With([](Block& z) { z.m_zHeader.m_iNodeState = 3; }), -50);
  EXPECT_EQ(With([](Block& z) { z.m_zHeader.m_iEntryCount = 2; }), -80);
  EXPECT_EQ(With([](Block& z) { z.m_vzPMI[1].m_zFrame.m_iKind = 10006; }), 0);
}

TEST(PMI, ABadHeaderOrFrameRefusesTheRecord) {
  auto pz = NewBlock<Block>();
  for (const size_t iAt : {0u, 12u, 43u, 64u, 80u, 84u}) {
    Bytes vc = Golden();
    vc[iAt] = iAt == 12 ? 0x43 : 0x70;
    EXPECT_FALSE(ReadRecord(vc, *pz)) << iAt;
  }
  Bytes vc = Golden();
  vc[88] = 11;  // the size of the entry
  EXPECT_FALSE(ReadRecord(vc, *pz));
}

TEST(PMI, EveryCutAndEveryDamagedByteOfEachRevisionIsRefusedOrHarmless) {
  for (const uint32_t iFormat : {4u, 3u, 2u, 1u, 0u})
    ExpectDamageIsRefusedOrHarmless<Block>(Golden(iFormat), iFormat == 0, Golden(iFormat).size());
  ExpectRandomBytesAreHarmless<Block>(Golden(), 68, 91);
  const NoThrowScope zNoThrow;
  ExpectDamageIsRefusedOrHarmless<Block>(Golden(), false, Golden().size());
}

// --- In a store -----------------------------------------------------------------------------------------------------

namespace {

class PMIStore : public ElementStoreTest {
 protected:
  PMIStore() { KivRegisterElementClasses(); }
};

}  // namespace

TEST_F(PMIStore, KeysAreTheLinkAndThoseOfAttributesOfTextBlocksThenOfTheEntry) {
  OpenEmpty();
  auto pzBlock = NewBlock<Block>();
  ASSERT_TRUE(ReadRecord(Golden(), *pzBlock));
  pzBlock->m_vzPMI[1].m_vzAttribute = {{kTestNoteIndex, {0x52, 0, 0, 0, 0, 0, 0, 0}}};
  pzBlock->m_vzPMI[1].m_vTextBlock[0].m_vzAttribute = {{kTestNoteIndex, {0x51, 0, 0, 0, 0, 0, 0, 0}}};
  auto* pz = Put<KivPMI>(BuildRecord(*pzBlock));
  ASSERT_NE(pz, nullptr);
  EXPECT_EQ(pz->GetElementType(), 7u);
  std::vector<uint64_t> viKey;
  ASSERT_TRUE(pz->GetAllPosition(viKey));
  EXPECT_EQ(viKey, (std::vector<uint64_t>{0x0A, 0x51, 0x52}));
  ASSERT_TRUE(pz->ReplaceAllPosition({{0x0A, 0x1A}, {0x51, 0x151}, {0x52, 0x152}}));
  ASSERT_TRUE(pz->GetAllPosition(viKey));
  EXPECT_EQ(viKey, (std::vector<uint64_t>{0x1A, 0x151, 0x152}));
  EXPECT_NO_REPORT(EXPECT_FALSE(pz->ReplaceAllPosition({{0x1A, 1}, {0x151, 2}})));
}

TEST_F(PMIStore, TheKeysOfAnElementWithoutALinkOrWithTwoAreNeitherListedNorReplaced) {
  OpenEmpty();
  const auto Refuses = [](auto&& pfnKeys) {
    const uint64_t nBefore = QuietReports();
    bool bDone = true;
    EXPECT_NO_REPORT(bDone = pfnKeys());
    return !bDone && QuietReports() > nBefore;
  };
  for (const uint8_t iSecond : {0, 9}) {
    Bytes vc = Golden();
    vc[16] = vc[24] = iSecond;
    auto* pz = Put<KivPMI>(vc);
    std::vector<uint64_t> viKey = {1};
    EXPECT_TRUE(Refuses([&] { return pz->GetAllPosition(viKey); })) << int{iSecond};
    EXPECT_TRUE(viKey.empty());
    EXPECT_TRUE(Refuses([&] { return pz->ReplaceAllPosition({{9, 19}}); })) << int{iSecond};
    EXPECT_EQ(pz->GetMemoryBlock()->m_zHeader.m_aiLink, (std::array<uint64_t, 3>{iSecond, iSecond, 0}));
    EXPECT_FALSE(pz->IsModified());
  }
}

TEST_F(PMIStore, AnOldRevisionSavedForItsKeysAloneIsHarmlessAndAWholeSaveMendsIt) {
  OpenEmpty();
  for (const uint32_t iFormat : {1u, 2u, 3u}) {
    const std::unique_ptr<Block> pz = SavedForKeysAloneThenWhole<KivPMI, Block>(Golden(iFormat), 4);
    ASSERT_NE(pz, nullptr);
    EXPECT_EQ(pz->m_vzPMI[1].m_viPMIInts3, (std::vector<uint32_t>{15}));
    EXPECT_EQ(pz->m_vzPMI[1].m_vTextBlock.at(0).m_iTextValue, 16u);
  }
}
