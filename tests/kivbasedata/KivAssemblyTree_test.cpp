#include "KivAssemblyTree.h"

#include <gtest/gtest.h>

#include <string>

#include "KivElementClasses.h"
#include "KivTestElement.h"

namespace {

using namespace kiv;
using namespace kivtest;

using Block = KivMemoryBlockAssemblyTree;

// --- Records by hand ------------------------------------------------------------------------------------------------

const std::string kLinksBoxState =
    "0A00000000000000 0000000000000000 0000000000000000"
    "00000000 00000000 00000000  0000803F 0000803F 0000803F  00000000";
const std::string kNoBoxHex = "CAF24971 CAF24971 CAF24971 CAF249F1 CAF249F1 CAF249F1";
const std::string kOne = "000000000000F03F";

// A root with a quarter turn about Z and the translation (1, 2, 3); in revisions 2 to 4 its type is still 0.
std::string Root(uint32_t iFormat) {
  std::string str = "01000000 02000000 03000000 04000000  1100000000000000";
  if (iFormat >= 4) str += "2200000000000000 3300000000000000";
  str += "0500000000000000 0600000000000000  42 000000000000F03F 0000000000000040 0000000000000840";
  str += "00000000 00000000 00000000 0000803F 0000803F 0000803F  07000000";
  if (iFormat >= 2) str += iFormat >= 5 ? "03000000" : "00000000";
  str += "0800000000000000 0900000000000000 0A00000000000000";
  if (iFormat >= 5) str += "0B00000000000000";
  str += "02000000 0C00000000000000 0D00000000000000";
  str += "03000000 616200  01000000 00  03000000 C3A400";
  return str + "01 07 03000000 010203 0000000000";
}
// A leaf that has nothing.
std::string Leaf(uint32_t iFormat) {
  std::string str = HexZeros(16 + 8);
  if (iFormat >= 4) str += HexZeros(16);
  str += HexZeros(16) + "01" + kNoBoxHex + "00000000";
  if (iFormat >= 2) str += iFormat >= 5 ? "01000000" : "00000000";
  str += HexZeros(24);
  if (iFormat >= 5) str += HexZeros(8);
  return str + "00000000 0100000000 0100000000 0100000000" + HexZeros(14);
}
const std::string kGapFrame = "10270000 10000000 00000000";

// The root, a gap of 16 bytes and the leaf, in each revision; 0 is generation 19.
Bytes Golden(uint32_t iFormat = 5) {
  switch (iFormat) {
    case 5:
      return FromHex("06000000 02000000 05000000 44000000" + kLinksBoxState + "03000000" + HexFrame(72, 10006, 210) +
                     Root(5) + HexU32(282) + kGapFrame + HexFrame(298, 10006, 166) + Leaf(5));
    case 4:
      return FromHex("06000000 02000000 04000000 44000000" + kLinksBoxState + "03000000" + HexFrame(72, 10006, 202) +
                     Root(4) + HexU32(274) + kGapFrame + HexFrame(290, 10006, 158) + Leaf(4));
    case 3:
      return FromHex("06000000 02000000 03000000 44000000" + kLinksBoxState + "03000000" + HexFrame(72, 10006, 186) +
                     Root(3) + HexU32(258) + kGapFrame + HexFrame(274, 10006, 142) + Leaf(3));
    case 2:  // the count in the header is that of all entries
      return FromHex("06000000 03000000 02000000 44000000" + kLinksBoxState + HexFrame(68, 10006, 186) + Root(2) +
                     HexU32(254) + kGapFrame + HexFrame(270, 10006, 142) + Leaf(2));
    case 1:
      return FromHex("06000000 03000000 01000000 44000000" + kLinksBoxState + HexFrame(68, 10006, 182) + Root(1) +
                     HexU32(250) + kGapFrame + HexFrame(266, 10006, 138) + Leaf(1));
    default:
      return FromHex("06000000 03000000 40000000" + kLinksBoxState + HexFrame(64, 10006, 182) + Root(1) + HexU32(246) +
                     kGapFrame + HexFrame(262, 10006, 138) + Leaf(1));
  }
}

constexpr size_t kKindAt = 76;  // of the root's frame in revision 5
constexpr size_t kTypeAt = 72 + 12 + 109;

KivEMatrix4 TurnedAndMoved() {
  return KivEMatrix4({0, 1, 0, 0, -1, 0, 0, 0, 0, 0, 1, 0, 1, 2, 3, 1});
}

}  // namespace

TEST(AssemblyTree, ARecordOfRevision5ReadsAsItIs) {
  auto pz = NewBlock<Block>();
  ASSERT_TRUE(ReadRecord(Golden(), *pz));
  EXPECT_EQ(pz->m_zHeader.m_iEntryCount, 2u);
  ASSERT_EQ(pz->m_vzNode.size(), 3u);
  const KivAssemblyNode& z = pz->m_vzNode[0];
  EXPECT_EQ(z.m_iNodeValue, (std::array<uint32_t, 4>{1, 2, 3, 4}));
  EXPECT_EQ(z.m_iPMIKey, 0x11u);
  EXPECT_EQ(z.m_iLayerFilterKey, 0x22u);
  EXPECT_EQ(z.m_iCameraKey, 0x33u);
  EXPECT_EQ(z.m_iNodeData, (std::array<uint64_t, 2>{5, 6}));
  EXPECT_TRUE(z.m_zMatrix.IsIdentityLike(TurnedAndMoved()));
  EXPECT_EQ(z.m_fNodeBox, (std::array<float, 6>{0, 0, 0, 1, 1, 1}));
  EXPECT_EQ(z.m_iNodeState2, 7u);
  EXPECT_EQ(z.m_iNodeType, 3u);
  EXPECT_EQ(z.m_iNodeRef, (std::array<uint64_t, 3>{8, 9, 10}));
  EXPECT_EQ(z.m_iNodeRef3, 11u);
  EXPECT_EQ(z.m_viChildren, (std::vector<uint64_t>{12, 13}));
  EXPECT_EQ(z.m_strNodeName[0], u"ab");
  EXPECT_EQ(z.m_strNodeName[1], u"");
  EXPECT_EQ(z.m_strNodeName[2], u"\u00e4");
  EXPECT_EQ(z.m_vzAttribute, (std::vector<KivAttribute>{{7, {1, 2, 3}}}));
  EXPECT_TRUE(pz->m_vzNode[1].m_zFrame.IsGap());
  EXPECT_EQ(pz->m_vzNode[1].m_fNodeBox, kNoBox);
  EXPECT_EQ(pz->m_vzNode[2].m_iNodeType, 1u);
  EXPECT_EQ(pz->m_vzNode[2].m_fNodeBox, kNoBox);
  EXPECT_EQ(BuildRecord(*pz), Golden());
}

TEST(AssemblyTree, OldRevisionsReadWithTheirDefaultsAndCountLiveEntriesAfterwards) {
  auto pz = NewBlock<Block>();
  for (const uint32_t iFormat : {4u, 3u, 2u, 1u, 0u}) {
    ASSERT_TRUE(ReadRecord(Golden(iFormat), *pz, iFormat == 0)) << iFormat;
    EXPECT_EQ(pz->m_zHeader.m_iFormat, 5u);
    EXPECT_EQ(pz->m_zHeader.m_iDataOffset, 68u);
    EXPECT_EQ(pz->m_zHeader.m_iEntryCount, 2u) << iFormat;
    ASSERT_EQ(pz->m_vzNode.size(), 3u);
    const KivAssemblyNode& z = pz->m_vzNode[0];
    EXPECT_EQ(z.m_iLayerFilterKey, iFormat >= 4 ? 0x22u : 0u);
    EXPECT_EQ(z.m_iCameraKey, iFormat >= 4 ? 0x33u : 0u);
    EXPECT_EQ(z.m_iNodeRef3, 10u);  // the third of the others
    EXPECT_EQ(z.m_strNodeName[0], u"ab");
    EXPECT_EQ(z.m_vzAttribute.size(), 1u);
    // A write makes revision 5 of it.
    Bytes vcExpected = Golden();
    vcExpected[kTypeAt + 4 + 24] = 10;
    if (iFormat < 4) vcExpected[72 + 12 + 24] = vcExpected[72 + 12 + 32] = 0;
    EXPECT_EQ(BuildRecord(*pz), vcExpected) << iFormat;
  }
}

TEST(AssemblyTree, TheFirstNodeOfAnOlderRecordWithNodeType0Reads3TheOthersByTheirChildren) {
  auto pz = NewBlock<Block>();
  for (const uint32_t iFormat : {4u, 3u, 2u, 1u, 0u}) {
    ASSERT_TRUE(ReadRecord(Golden(iFormat), *pz, iFormat == 0));
    EXPECT_EQ(pz->m_vzNode[0].m_iNodeType, 3u) << iFormat;
    EXPECT_EQ(pz->m_vzNode[2].m_iNodeType, 1u) << iFormat;
  }
  // Behind the leaf one with a child.
  const Bytes vc = FromHex("06000000 02000000 01000000 44000000" + kLinksBoxState + HexFrame(68, 10006, 138) + Leaf(1) +
                           HexFrame(206, 10006, 182) + Root(1));
  ASSERT_TRUE(ReadRecord(vc, *pz));
  EXPECT_EQ(pz->m_vzNode[0].m_iNodeType, 3u);
  EXPECT_EQ(pz->m_vzNode[1].m_iNodeType, 2u);
  // A type that is set stays.
  Bytes vc4 = Golden(4);
  vc4[kTypeAt] = 2;
  ASSERT_TRUE(ReadRecord(vc4, *pz));
  EXPECT_EQ(pz->m_vzNode[0].m_iNodeType, 2u);
}

TEST(AssemblyTree, BehindALeadingGapNoNodeBecomesARoot) {
  const Bytes vc = FromHex("06000000 01000000 03000000 44000000" + kLinksBoxState + "02000000" + HexU32(72) +
                           kGapFrame + HexFrame(88, 10006, 142) + Leaf(3));
  auto pz = NewBlock<Block>();
  ASSERT_TRUE(ReadRecord(vc, *pz));
  EXPECT_EQ(pz->m_vzNode[0].m_iNodeType, 0u);
  EXPECT_EQ(pz->m_vzNode[1].m_iNodeType, 1u);
}

TEST(AssemblyTree, InRevision5ANodeType0Stays) {
  Bytes vc = Golden();
  vc[kTypeAt] = 0;
  auto pz = NewBlock<Block>();
  ASSERT_TRUE(ReadRecord(vc, *pz));
  EXPECT_EQ(pz->m_vzNode[0].m_iNodeType, 0u);
}

TEST(AssemblyTree, ANodeWithTheIdentityMeasures166BytesWithATranslation190WithAnyMatrix294) {
  auto pz = NewBlock<Block>();
  pz->m_zHeader.m_iDataOffset = 68;
  pz->AddNode();
  EXPECT_EQ(SizeOf(*pz), 72 + 152 + 14);
  EXPECT_EQ(pz->m_vzNode[0].m_zFrame.m_iSize, 166u);
  pz->m_vzNode[0].m_zMatrix.Translate({1, 0, 0});
  EXPECT_EQ(SizeOf(*pz), 72 + 176 + 14);
  pz->m_vzNode[0].m_zMatrix.Scale(2, 2, 2);
  EXPECT_EQ(SizeOf(*pz), 72 + 280 + 14);
}

TEST(AssemblyTree, AQuarterTurnAboutZWithATranslationIsForm2AndDecodesToTheSameMatrix) {
  auto pz = NewBlock<Block>();
  KivAssemblyNode& z = pz->AddNode();
  z.m_zMatrix.RotateZ(1.5707963267948966);
  z.m_zMatrix.Translate({1, 2, 3});
  const Bytes vc = BuildRecord(*pz);
  ASSERT_GT(vc.size(), 160u);
  EXPECT_EQ(vc[72 + 12 + 56], 0x42);
  ASSERT_TRUE(ReadRecord(vc, *pz));
  EXPECT_TRUE(pz->m_vzNode[0].m_zMatrix.IsIdentityLike(TurnedAndMoved()));
}

TEST(AssemblyTree, AMatrixThatScalesByATenMillionthIsStoredWhole) {
  auto pz = NewBlock<Block>();
  KivAssemblyNode& z = pz->AddNode();
  z.m_zMatrix[0] = 1.0000001;
  const Bytes vc = BuildRecord(*pz);
  EXPECT_EQ(vc.size(), 72u + 280 + 14);
  EXPECT_EQ(vc[72 + 12 + 56], 0x00);
  ASSERT_TRUE(ReadRecord(vc, *pz));
  EXPECT_EQ(pz->m_vzNode[0].m_zMatrix[0], 1.0000001);
}

TEST(AssemblyTree, AMatrixWithElement15Of2IsStoredWhole) {
  auto pz = NewBlock<Block>();
  pz->AddNode().m_zMatrix[15] = 2;
  const Bytes vc = BuildRecord(*pz);
  EXPECT_EQ(vc[72 + 12 + 56], 0x00);
  EXPECT_EQ(Bytes(vc.begin() + 72 + 12 + 57, vc.begin() + 72 + 12 + 65), FromHex(kOne));
  ASSERT_TRUE(ReadRecord(vc, *pz));
  EXPECT_EQ(pz->m_vzNode[0].m_zMatrix[15], 2.0);
}

TEST(AssemblyTree, TheSizingAnswersItsCodes) {
  const auto With = [](auto&& pfnChange) {
    auto pz = NewBlock<Block>();
    EXPECT_TRUE(ReadRecord(Golden(), *pz));
    pfnChange(*pz);
    return SizeOf(*pz);
  };
  EXPECT_EQ(With([](Block&) {}), 464);
  EXPECT_EQ(With([](Block& z) { z.m_zHeader.m_iTag = 2; }), -10);
  EXPECT_EQ(With([](Block& z) { z.m_zHeader.m_afBoxMin[1] = 2; }), -40);
  EXPECT_EQ(With([](Block& z) { z.m_zHeader.m_iNodeState = 3; }), -50);
  EXPECT_EQ(With([](Block& z) { z.m_zHeader.m_iEntryCount = 3; }), -80);
  EXPECT_EQ(With([](Block& z) { z.m_vzNode[2].m_zFrame.m_iKind = 10003; }), 0);
  EXPECT_EQ(With([](Block& z) { z.m_vzNode[1].m_zFrame.m_iSize = 11; }), 0);
}

TEST(AssemblyTree, ABadHeaderFrameOrKindRefusesTheRecord) {
  auto pz = NewBlock<Block>();
  for (const auto& [iAt, iByte] : std::vector<std::pair<size_t, uint8_t>>{{0, 2},             // the tag
                                                                          {12, 0x43},         // the data offset
                                                                          {43, 0x40},         // the box
                                                                          {64, 3},            // the node state
                                                                          {72, 0x49},         // an entry's offset
                                                                          {kKindAt, 0x13},    // its kind
                                                                          {kKindAt + 4, 11},  // its size
                                                                          {68, 4}}) {         // the number of entries
    Bytes vc = Golden();
    vc[iAt] = iByte;
    const uint64_t nBefore = QuietReports();
    EXPECT_FALSE(ReadRecord(vc, *pz)) << iAt;
    EXPECT_GT(QuietReports(), nBefore) << iAt;
  }
}

TEST(AssemblyTree, AnEmptyTreeIsARecordOf72Bytes) {
  auto pz = NewBlock<Block>();
  const Bytes vc = BuildRecord(*pz);
  EXPECT_EQ(vc.size(), 72u);
  ASSERT_TRUE(ReadRecord(vc, *pz));
  EXPECT_TRUE(pz->m_vzNode.empty());
}

TEST(AssemblyTree, ADataOffsetAboveTheLeastIsKept) {
  auto pz = NewBlock<Block>();
  pz->m_zHeader.m_iDataOffset = 80;
  pz->AddNode();
  const Bytes vc = BuildRecord(*pz);
  EXPECT_EQ(vc.size(), 84u + 166);
  ASSERT_TRUE(ReadRecord(vc, *pz));
  EXPECT_EQ(pz->m_zHeader.m_iDataOffset, 80u);
  EXPECT_EQ(pz->m_vzNode[0].m_zFrame.m_iOffset, 84u);
}

TEST(AssemblyTree, EveryCutAndEveryDamagedByteOfEachRevisionIsRefusedOrHarmless) {
  for (const uint32_t iFormat : {5u, 4u, 3u, 2u, 1u, 0u})
    ExpectDamageIsRefusedOrHarmless<Block>(Golden(iFormat), iFormat == 0, Golden(iFormat).size());
}

TEST(AssemblyTree, DamageIsTheSameWithReportsThatDoNotThrow) {
  const NoThrowScope zNoThrow;
  ExpectDamageIsRefusedOrHarmless<Block>(Golden(), false, Golden().size());
  ExpectDamageIsRefusedOrHarmless<Block>(Golden(0), true, Golden(0).size());
}

TEST(AssemblyTree, RandomBytesAreRefusedOrHarmless) {
  ExpectRandomBytesAreHarmless<Block>(Golden(), 72, 61);
  ExpectRandomBytesAreHarmless<Block>(Golden(2), 68, 62);
}

// --- In a store -----------------------------------------------------------------------------------------------------

namespace {

class AssemblyTreeStore : public ElementStoreTest {
 protected:
  AssemblyTreeStore() { KivRegisterElementClasses(); }
};

// Two nodes with keys, in fields and in an attribute of the type that has handlers.
Bytes WithKeys() {
  Bytes vc = Golden();
  auto pz = NewBlock<Block>();
  EXPECT_TRUE(ReadRecord(vc, *pz));
  pz->m_vzNode[0].m_vzAttribute = {{kTestNoteIndex, {0x44, 0, 0, 0, 0, 0, 0, 0}}, {200, {0x55}}};
  pz->m_vzNode[2].m_iCameraKey = 0x66;
  return BuildRecord(*pz);
}

}  // namespace

TEST_F(AssemblyTreeStore, AnOldRecordIsUpgradedByASave) {
  OpenEmpty();
  auto* pz = Put<KivAssemblyTree>(Golden(1));
  ASSERT_NE(pz, nullptr);
  EXPECT_EQ(pz->GetElementType(), 6u);
  ASSERT_NE(pz->GetMemoryBlockForWrite(), nullptr);
  ASSERT_TRUE(pz->Save(false));
  const Bytes vc = Stored(*pz);
  ASSERT_EQ(vc.size(), 464u);
  EXPECT_EQ(vc[8], 5);
  EXPECT_EQ(vc[68], 3);
}

TEST_F(AssemblyTreeStore, KeysAreTheLinkThenThoseOfEachNodeThenThoseOfAttributes) {
  OpenEmpty();
  auto* pz = Put<KivAssemblyTree>(WithKeys());
  std::vector<uint64_t> viKey;
  ASSERT_TRUE(pz->GetAllPosition(viKey));
  EXPECT_EQ(viKey, (std::vector<uint64_t>{0x0A, 0x11, 0x22, 0x33, 0x66, 0x44}));
  ASSERT_TRUE(pz->ReplaceAllPosition(
      {{0x0A, 0x1A}, {0x11, 0x111}, {0x22, 0x122}, {0x33, 0x133}, {0x66, 0x166}, {0x44, 0x144}}));
  ASSERT_TRUE(pz->GetAllPosition(viKey));
  EXPECT_EQ(viKey, (std::vector<uint64_t>{0x1A, 0x111, 0x122, 0x133, 0x166, 0x144}));
  EXPECT_EQ(pz->GetMemoryBlock()->m_vzNode[0].m_viChildren, (std::vector<uint64_t>{12, 13}));  // no keys
  EXPECT_EQ(pz->GetMemoryBlock()->m_vzNode[0].m_iNodeRef[0], 8u);
  EXPECT_NO_REPORT(EXPECT_FALSE(pz->ReplaceAllPosition({{0x1A, 0x0A}})));
}

TEST_F(AssemblyTreeStore, TheKeysOfATreeWithoutALinkOrWithTwoAreNotListed) {
  OpenEmpty();
  for (const uint8_t iSecond : {0, 9}) {
    Bytes vc = Golden();
    vc[16] = iSecond;
    vc[24] = iSecond;
    auto* pz = Put<KivAssemblyTree>(vc);
    std::vector<uint64_t> viKey;
    EXPECT_NO_REPORT(EXPECT_FALSE(pz->GetAllPosition(viKey)));
    const NoThrowScope zNoThrow;
    EXPECT_FALSE(pz->GetAllPosition(viKey));
  }
}

TEST_F(AssemblyTreeStore, ARecordThatIsRefusedStaysAndTheElementCanBeLoadedAgain) {
  OpenEmpty();
  Bytes vc = Golden();
  vc[68] = 9;
  auto* pz = Put<KivAssemblyTree>(vc);
  EXPECT_REPORT(pz->GetMemoryBlock(), "0");  // of the activation; the load's own went no further
  {
    const NoThrowScope zNoThrow;
    EXPECT_EQ(pz->GetMemoryBlock(), nullptr);
  }
  EXPECT_EQ(Stored(*pz), vc);
  EXPECT_NE(Put<KivAssemblyTree>(Golden())->GetMemoryBlock(), nullptr);
}
