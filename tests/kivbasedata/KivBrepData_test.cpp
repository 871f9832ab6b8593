#include "KivBrepData.h"

#include <gtest/gtest.h>

#include <string>

#include "KivElementClasses.h"
#include "KivLittleEndian.h"
#include "KivTestElement.h"
#include "KivVertexData.h"

namespace {

using namespace kiv;
using namespace kivtest;

using Block = KivMemoryBlockBrep;
using Vertices = KivMemoryBlockVertex;

const std::string kLinksBoxState =
    "0A00000000000000 0B00000000000000 0C00000000000000"
    "00000000 00000000 00000000  0000803F 0000803F 0000803F  00000000";
const std::string kEntries = "0700000000000000 00000000 03000000 AABBCC  01 04 01000000 99 00000000000000";
const std::string kSecond = "0800000000000000 00000000 01000000 40" + HexZeros(14);

Bytes Golden() {
  return FromHex("05000000 02000000 01000000 48000000" + kLinksBoxState + "2A000000" + HexFrame(72, 10004, 45) +
                 kEntries + HexFrame(117, 10005, 43) + kSecond);
}
Bytes Golden19() {
  return FromHex("05000000 02000000 44000000" + kLinksBoxState + "2A000000" + HexFrame(68, 10004, 45) + kEntries +
                 HexFrame(113, 10005, 43) + kSecond);
}

const std::string kTwoVertices = "01000000 02000000 03000000 04000000 05000000 06000000 07000000  01 04 01000000 99" +
                                 HexZeros(7) + HexZeros(28) + HexZeros(14);
Bytes GoldenVertices() {
  return FromHex("0D000000 02000000 01000000 48000000" + kLinksBoxState + "2A000000" + kTwoVertices);
}
Bytes GoldenVertices19() {
  return FromHex("0D000000 02000000 44000000" + kLinksBoxState + "2A000000" + kTwoVertices);
}

template <typename AnyBlock>
void ExpectDamageIsHarmless(const Bytes& vc, const Bytes& vc19, uint64_t iSeed) {
  ExpectDamageIsRefusedOrHarmless<AnyBlock>(vc, false, vc.size());
  ExpectDamageIsRefusedOrHarmless<AnyBlock>(vc19, true, vc19.size());
  ExpectRandomBytesAreHarmless<AnyBlock>(vc, 72, iSeed);
  const NoThrowScope zNoThrow;
  ExpectDamageIsRefusedOrHarmless<AnyBlock>(vc, false, vc.size());
}

class BrepStore : public ElementStoreTest {
 protected:
  BrepStore() { KivRegisterElementClasses(); }

  // The links 10 to 12 and the key in an attribute of the second of the block's entries.
  template <typename Element, typename AnyBlock, typename Entry>
  void ExpectKeys(const Bytes& vc, KivReusedList<Entry> AnyBlock::*pzList) {
    auto pzBlock = NewBlock<AnyBlock>();
    ASSERT_TRUE(ReadRecord(vc, *pzBlock));
    ((*pzBlock).*pzList)[1].m_vzAttribute = {{kTestNoteIndex, {0x51, 0, 0, 0, 0, 0, 0, 0}}};
    auto* pz = Put<Element>(BuildRecord(*pzBlock));
    ASSERT_NE(pz, nullptr);
    EXPECT_EQ(pz->GetElementType(), AnyBlock::kTag);
    std::vector<uint64_t> viKey;
    ASSERT_TRUE(pz->GetAllPosition(viKey));
    EXPECT_EQ(viKey, (std::vector<uint64_t>{10, 11, 12, 0x51}));
    ASSERT_TRUE(pz->ReplaceAllPosition({{10, 20}, {11, 21}, {12, 22}, {0x51, 0x61}}));
    ASSERT_TRUE(pz->GetAllPosition(viKey));
    EXPECT_EQ(viKey, (std::vector<uint64_t>{20, 21, 22, 0x61}));
  }
};

}  // namespace

// --- B-rep ----------------------------------------------------------------------------------------------------------

TEST(BrepData, ARecordReadsAsItIs) {
  auto pz = NewBlock<Block>();
  ASSERT_TRUE(ReadRecord(Golden(), *pz));
  EXPECT_EQ(pz->m_iBrepValue, 42u);
  ASSERT_EQ(pz->m_vzGeometry.size(), 2u);
  EXPECT_EQ(pz->m_vzGeometry[0].m_zFrame.m_iKind, kBrepNurbsKind);
  EXPECT_EQ(pz->m_vzGeometry[0].m_iGeometryId, 7u);
  EXPECT_EQ(pz->m_vzGeometry[0].m_vcGeometry, (Bytes{0xAA, 0xBB, 0xCC}));
  EXPECT_EQ(pz->m_vzGeometry[0].m_vzAttribute, (std::vector<KivAttribute>{{4, {0x99}}}));
  EXPECT_EQ(pz->m_vzGeometry[1].m_zFrame.m_iKind, kBrepAnalyticKind);
  EXPECT_EQ(pz->m_vzGeometry[1].m_vcGeometry, (Bytes{0x40}));
  EXPECT_EQ(BuildRecord(*pz), Golden());
  ASSERT_TRUE(ReadRecord(Golden19(), *pz, true));
  EXPECT_EQ(pz->m_vzGeometry[1].m_iGeometryId, 8u);
  EXPECT_EQ(pz->m_zHeader.m_iFormat, 0u);
}

TEST(BrepData, ADataOffsetAboveTheLeastIsKept) {
  auto pz = NewBlock<Block>();
  pz->m_zHeader.m_iDataOffset = 80;
  pz->AddGeometry(kBrepNurbsKind).m_vcGeometry = {1};
  const Bytes vc = BuildRecord(*pz);
  EXPECT_EQ(vc.size(), 80u + 28 + 1 + 14);
  ASSERT_TRUE(ReadRecord(vc, *pz));
  EXPECT_EQ(pz->m_vzGeometry[0].m_zFrame.m_iOffset, 80u);
}

TEST(BrepData, AGapIsWrittenAs12BytesAndCannotBeReadBack) {
  auto pz = NewBlock<Block>();
  for (const bool bBehind : {false, true}) {
    KivElementBlock::Memory zMemory;
    KivResetElement(*pz, zMemory);
    if (bBehind) pz->AddGeometry(kBrepNurbsKind).m_vcGeometry = {1};
    KivBrepEntry& zGap = pz->m_vzGeometry.Add();
    zGap.m_zFrame.m_iKind = kGapKind;
    zGap.m_zFrame.m_iSize = 40;
    if (!bBehind) pz->AddGeometry(kBrepNurbsKind).m_vcGeometry = {1};
    const Bytes vc = BuildRecord(*pz);
    EXPECT_EQ(vc.size(), 72u + 12 + 43);
    const uint64_t nBefore = QuietReports();
    EXPECT_FALSE(ReadRecord(vc, *pz)) << bBehind;
    EXPECT_EQ(QuietReports(), nBefore + 1);
  }
}

TEST(BrepData, AnEmptyGeometryFailsOnBothSidesANonZeroWordOnAWrite) {
  auto pz = NewBlock<Block>();
  Bytes vc = Golden();
  vc[117 + 24] = 0;
  EXPECT_FALSE(ReadRecord(vc, *pz));
  vc = Golden();
  vc[117 + 20] = 1;
  ASSERT_TRUE(ReadRecord(vc, *pz));
  EXPECT_EQ(pz->m_vzGeometry[1].m_iGeometryZero, 1u);
  EXPECT_EQ(SizeOf(*pz), -90);
}

TEST(BrepData, TheSizingAnswersItsCodes) {
  const auto With = [](auto&& pfnChange) {
    auto pz = NewBlock<Block>();
    EXPECT_TRUE(ReadRecord(Golden(), *pz));
    pfnChange(*pz);
    return SizeOf(*pz);
  };
  EXPECT_EQ(With([](Block&) {}), 160);
  EXPECT_EQ(With([](Block& z) { z.m_zHeader.m_iTag = 13; }), -10);
  EXPECT_EQ(With([](Block& z) { z.m_zHeader.m_afBoxMin[0] = 2; }), -40);
  EXPECT_EQ(With([](Block& z) { z.m_zHeader.m_iNodeState = 3; }), -50);
  EXPECT_EQ(With([](Block& z) { z.m_vzGeometry[1].m_iGeometryZero = 5; }), -90);
  EXPECT_EQ(With([](Block& z) { z.m_vzGeometry[0].m_vcGeometry.clear(); }), -100);
  EXPECT_EQ(With([](Block& z) { z.m_zHeader.m_iEntryCount = 3; }), -580);
  EXPECT_EQ(With([](Block& z) { z.m_vzGeometry[0].m_zFrame.m_iKind = 10006; }), 0);
}

TEST(BrepData, ABoxWithALowCornerAboveItsHighOneFailsTheRead) {
  Bytes vc = Golden();
  vc[43] = 0x70;
  auto pz = NewBlock<Block>();
  EXPECT_FALSE(ReadRecord(vc, *pz));
}

TEST(BrepData, EveryCutAndEveryDamagedByteIsRefusedOrHarmless) {
  ExpectDamageIsHarmless<Block>(Golden(), Golden19(), 95);
}

TEST_F(BrepStore, KeysAreLinksAndThoseOfAttributes) {
  OpenEmpty();
  ExpectKeys<KivBrepData>(Golden(), &Block::m_vzGeometry);
}

// --- Vertices -------------------------------------------------------------------------------------------------------

TEST(VertexData, ARecordReadsAsItIs) {
  auto pz = NewBlock<Vertices>();
  ASSERT_TRUE(ReadRecord(GoldenVertices(), *pz));
  EXPECT_EQ(pz->m_iVertexValue, 42u);
  ASSERT_EQ(pz->m_vzVertex.size(), 2u);
  EXPECT_EQ(pz->m_vzVertex[0].m_iVertexData, (std::array<uint32_t, 7>{1, 2, 3, 4, 5, 6, 7}));
  EXPECT_EQ(pz->m_vzVertex[0].m_vzAttribute, (std::vector<KivAttribute>{{4, {0x99}}}));
  EXPECT_EQ(pz->m_vzVertex[1].m_iVertexData, (std::array<uint32_t, 7>{}));
  EXPECT_EQ(BuildRecord(*pz), GoldenVertices());
  ASSERT_TRUE(ReadRecord(GoldenVertices19(), *pz, true));
  EXPECT_EQ(pz->m_vzVertex[0].m_iVertexData[6], 7u);
}

TEST(VertexData, TheSizingAnswersItsCodes) {
  const auto With = [](auto&& pfnChange) {
    auto pz = NewBlock<Vertices>();
    EXPECT_TRUE(ReadRecord(GoldenVertices(), *pz));
    pfnChange(*pz);
    return SizeOf(*pz);
  };
  EXPECT_EQ(With([](Vertices&) {}), 72 + 2 * 42);
  EXPECT_EQ(With([](Vertices& z) { z.m_zHeader.m_iTag = 5; }), -10);
  EXPECT_EQ(With([](Vertices& z) { z.m_zHeader.m_afBoxMin[0] = 2; }), -40);
  EXPECT_EQ(With([](Vertices& z) { z.m_zHeader.m_iNodeState = 3; }), -50);
  EXPECT_EQ(With([](Vertices& z) { z.m_zHeader.m_iEntryCount = 1; }), -580);
}

TEST(VertexData, ANumberOfVerticesIsComparedWithTheBytesThatRemain) {
  Bytes vc = GoldenVertices();
  auto pz = NewBlock<Vertices>();
  for (const uint8_t n : {3, 0x7F, 0xFF}) {
    vc[4] = vc[7] = n;
    EXPECT_FALSE(ReadRecord(vc, *pz));
    EXPECT_EQ(pz->m_vzVertex.size(), 0u);
  }
}

TEST(VertexData, EveryCutAndEveryDamagedByteIsRefusedOrHarmless) {
  ExpectDamageIsHarmless<Vertices>(GoldenVertices(), GoldenVertices19(), 96);
}

TEST_F(BrepStore, AVertexElementIsLoadedAnewForItsKeysWhichStandInTheRowOfMeshes) {
  OpenEmpty();
  for (const uint32_t iKeep : {1u, 0u}) {
    Space().SetKeepRawData(iKeep);
    ExpectKeys<KivVertexData>(GoldenVertices(), &Vertices::m_vzVertex);
  }
}

// --- Memory that is kept ---------------------------------------------------------------------------------------------

namespace {

// Entries of one byte each, the last one of nBytes.
Bytes RecordWithALargeEntryAt(uint32_t iLast, uint32_t nBytes) {
  auto pzBlock = NewBlock<KivMemoryBlockBrep>();
  Bytes vc = BuildRecord(*pzBlock);
  KivStore<uint32_t>(&vc[4], iLast + 1);
  for (uint32_t i = 0; i <= iLast; ++i) {
    const uint32_t nGeometry = i == iLast ? nBytes : 1, iAt = static_cast<uint32_t>(vc.size());
    const Bytes vcHead =
        FromHex(HexFrame(iAt, kBrepNurbsKind, 28 + nGeometry + 14) + HexZeros(8 + 4) + HexU32(nGeometry));
    vc.insert(vc.end(), vcHead.begin(), vcHead.end());
    vc.insert(vc.end(), nGeometry, static_cast<uint8_t>(i));
    vc.insert(vc.end(), 14, 0);  // no attributes
  }
  return vc;
}

uint64_t KeptBy(KivMemoryBlockBrep& zBlock) {
  KivListBytes zBytes;
  zBlock.VisitLists([&](const auto& vz) { vz.AddBytes(zBytes); });
  return zBytes.m_nKept;
}

constexpr uint32_t kElements = 30, kLarge = 300000;
constexpr uint64_t kMostKept = 10 * kLarge + (2 << 20);
static_assert(kMostKept < kElements * kLarge / 3 * 2, "far below what all of them take");

class KeptMemory : public BrepStore {
 protected:
  // As if the process had seen no element yet.
  void StartAnew() {
    OpenEmpty();
    KivMemoryBlockBrep* pzBlock = Put<KivBrepData>(RecordWithALargeEntryAt(0, 1))->GetMemoryBlock();
    ASSERT_NE(pzBlock, nullptr);
    pzBlock->VisitLists([](auto& vz) { vz.Free(); });
    pzBlock->m_zTraffic.m_nLargest = pzBlock->m_zTraffic.m_nSince = 0;
  }
  // The most that the block kept while elements were read that have their large entry in different places.
  uint64_t MostKeptByReading() {
    uint64_t nMost = 0;
    for (uint32_t i = 0; i < kElements; ++i) {
      KivMemoryBlockBrep* pzBlock = Put<KivBrepData>(RecordWithALargeEntryAt(i, kLarge))->GetMemoryBlock();
      if (pzBlock == nullptr || pzBlock->m_vzGeometry.size() != i + 1) return 0;
      EXPECT_EQ(pzBlock->m_vzGeometry[i].m_vcGeometry, Bytes(kLarge, static_cast<uint8_t>(i)));
      nMost = std::max(nMost, KeptBy(*pzBlock));
    }
    return nMost;
  }
};

}  // namespace

TEST_F(KeptMemory, ItIsBoundedByTheLargestElementReadWhereverItsLargeEntryStands) {
  StartAnew();
  const uint64_t nMost = MostKeptByReading();
  EXPECT_GE(nMost, kLarge);
  EXPECT_LT(nMost, kMostKept);
}

TEST_F(KeptMemory, ItIsBoundedByTheLargestElementWrittenAndABlockThatIsAssignedBringsNoneOfItsOwn) {
  StartAnew();
  uint64_t nMost = 0;
  for (uint32_t i = 0; i < kElements; ++i) {
    auto pzSource = NewBlock<KivMemoryBlockBrep>();
    ASSERT_TRUE(ReadRecord(RecordWithALargeEntryAt(i, kLarge), *pzSource));
    auto pz = std::make_unique<KivBrepData>(m_pzModel->GetKey());
    KivMemoryBlockBrep* pzBlock = pz->GetMemoryBlockForWrite();
    ASSERT_NE(pzBlock, nullptr);
    *pzBlock = *pzSource;
    nMost = std::max(nMost, KeptBy(*pzBlock));
    ASSERT_NE(KivStoreNewElement(std::move(pz)).GetPosition(), 0u);
  }
  EXPECT_GE(nMost, kLarge);
  EXPECT_LT(nMost, kMostKept);
}

TEST_F(KeptMemory, ARecordThatIsRefusedSetsNoMeasure) {
  StartAnew();
  Bytes vc = RecordWithALargeEntryAt(0, 16 * kLarge);
  vc[64] = 3;  // the node state
  EXPECT_NO_REPORT(EXPECT_FALSE(Put<KivBrepData>(vc)->Load(false)));
  const uint64_t nMost = MostKeptByReading();
  EXPECT_GE(nMost, kLarge);
  EXPECT_LT(nMost, kMostKept);
}

TEST_F(KeptMemory, ThatOfALargeElementIsGivenBackWhenManyTimesItsSizeHasGoneThrough) {
  StartAnew();
  constexpr uint32_t kHuge = 10 * kLarge;
  ASSERT_NE(Put<KivBrepData>(RecordWithALargeEntryAt(5, kHuge))->GetMemoryBlock(), nullptr);
  auto* pz = Put<KivBrepData>(RecordWithALargeEntryAt(0, kLarge));
  KivMemoryBlockBrep* pzBlock = pz->GetMemoryBlock();
  ASSERT_NE(pzBlock, nullptr);
  EXPECT_GE(KeptBy(*pzBlock), kHuge);
  for (int i = 0; i < 60; ++i) ASSERT_TRUE(pz->Load(false));
  EXPECT_GE(KeptBy(*pzBlock), kLarge);
  EXPECT_LT(KeptBy(*pzBlock), kHuge);
}

TEST_F(KeptMemory, RecordsOfOneSizeFindTheMemoryOfTheOnesBefore) {
  StartAnew();
  auto* pz = Put<KivBrepData>(RecordWithALargeEntryAt(9, 300000));
  ASSERT_NE(pz, nullptr);
  const KivMemoryBlockBrep* pzBlock = pz->GetMemoryBlock();
  ASSERT_NE(pzBlock, nullptr);
  const uint8_t* const pLarge = pzBlock->m_vzGeometry[9].m_vcGeometry.data();
  for (int i = 0; i < 50; ++i) {
    ASSERT_TRUE(pz->Load(false));
    ASSERT_EQ(pzBlock->m_vzGeometry[9].m_vcGeometry.data(), pLarge) << i;
  }
}
