#include "KivFaceEdgeData.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "KivContainerHeader.h"
#include "KivElementClasses.h"
#include "KivLittleEndian.h"
#include "KivTestElement.h"
#include "KivTestMeshRecord.h"

namespace {

using namespace kiv;
using namespace kivtest;

using Block = KivMemoryBlockFaceEdge;

// --- Records by hand ------------------------------------------------------------------------------------------------

const std::string kHeader =
    "01000000 02000000 02000000 64000000"
    "0000000000000000 0000000000000000 0000000000000000"
    "00000000 00000000 00000000  0000803F 0000803F 00000000  00000000"
    "04000000 00000000 00000000 00000000 0000803F 00000000 0B000000 00000000";
// One triangle with one normal, at 100.
const std::string kFace =
    "64000000 11270000 60000000  01000000 02000000 07000000 04000000  00000000  03000000 01000000 04000000"
    "01 00000000 00000000 00000000  000000 010000 000100  01 030010  00000000 01000000 02000000"
    "00 00000000000000000000000000";
// Two points, at 196.
const std::string kEdge =
    "C4000000 12270000 45000000  05000000 06000000 08000000 09000000  00000000  02000000"
    "01 00000000 00000000 00000000  000000 010100"
    "00 00000000000000000000000000";

Bytes Golden() {
  return FromHex(kHeader + kFace + kEdge);
}
Bytes Golden1() {
  return AsRevision1(Golden());
}
Bytes Golden19() {
  return AsGeneration19(Golden());
}
// With a gap of 14 bytes, full of AB, before the edge and one of 12 bytes behind it.
Bytes GoldenWithGaps() {
  Bytes vc = FromHex(kHeader + kFace + "C4000000 10270000 0E000000 ABAB" + kEdge + "17010000 10270000 0C000000");
  vc[196 + 14] = 0xD2;
  return vc;
}

// A face of two triangles, as unlike the triangle above as possible, or the triangle itself.
void AddTriangle(Block& zBlock) {
  KivMeshFace& z = zBlock.AddFace();
  z.m_iVertexCount = 3;
  z.m_iTriangleCount = 1;
  z.m_vfVertex = {0, 0, 0, 1, 0, 0, 0, 1, 0};
  z.m_vfNormal = {0, 0, 1, 0, 0, 1, 0, 0, 1};
  z.m_viIndex = {0, 1, 2};
  ++zBlock.m_zHeader.m_iEntryCount;
}
void AddLine(Block& zBlock) {
  KivMeshEdge& z = zBlock.AddEdge();
  z.m_iVertexCount = 2;
  z.m_vfVertex = {0, 0, 0, 1, 1, 0};
  ++zBlock.m_zHeader.m_iEntryCount;
}

}  // namespace

TEST(FaceEdgeData, ARecordOfRevision2ReadsAndWritesTheSameBytes) {
  auto pz = NewBlock<Block>();
  ASSERT_TRUE(ReadRecord(Golden(), *pz));
  EXPECT_EQ(pz->m_iCoordWidth, 4u);
  EXPECT_EQ(pz->m_fStep, 1.0f);
  EXPECT_EQ(pz->m_iMeshValue, 11u);
  EXPECT_EQ(pz->GetFaceNum(), 1u);
  EXPECT_EQ(pz->GetEdgeNum(), 1u);
  EXPECT_TRUE(pz->IsFaceEdge());
  const KivMeshFace& zFace = pz->m_vzFace[0];
  EXPECT_EQ(zFace.m_iValue0, 1u);
  EXPECT_EQ(zFace.m_iValue1, 2u);
  EXPECT_EQ(zFace.m_iId, 7u);
  EXPECT_EQ(zFace.m_iValue3, 4u);
  EXPECT_EQ(zFace.m_iIndexSize, 4u);
  EXPECT_EQ(zFace.m_vfVertex, (std::vector<float>{0.5f, 0.5f, 0.5f, 1.5f, 0.5f, 0.5f, 0.5f, 1.5f, 0.5f}));
  EXPECT_EQ(zFace.m_vfNormal, (std::vector<float>{0, 0, 1, 0, 0, 1, 0, 0, 1}));
  EXPECT_EQ(zFace.m_viIndex, (std::vector<uint32_t>{0, 1, 2}));
  const KivMeshEdge& zEdge = pz->m_vzEdge[0];
  EXPECT_EQ(zEdge.m_iValue0, 5u);
  EXPECT_EQ(zEdge.m_iId, 8u);
  EXPECT_EQ(zEdge.m_iValue3, 9u);
  EXPECT_EQ(zEdge.m_vfVertex, (std::vector<float>{0.5f, 0.5f, 0.5f, 1.5f, 1.5f, 0.5f}));
  EXPECT_EQ(BuildRecord(*pz), Golden());
}

TEST(FaceEdgeData, ABlockOfRawValuesIsWrittenAsThoseBytes) {
  auto pz = NewBlock<Block>();
  pz->m_fStep = 1;
  pz->m_iMeshValue = 11;
  pz->m_zHeader.m_afBoxMax = {1, 1, 0};
  AddTriangle(*pz);
  KivMeshFace& zFace = pz->m_vzFace[0];
  zFace.m_iValue0 = 1;
  zFace.m_iValue1 = 2;
  zFace.m_iId = 7;
  zFace.m_iValue3 = 4;
  AddLine(*pz);
  KivMeshEdge& zEdge = pz->m_vzEdge[0];
  zEdge.m_iValue0 = 5;
  zEdge.m_iValue1 = 6;
  zEdge.m_iId = 8;
  zEdge.m_iValue3 = 9;
  EXPECT_EQ(BuildRecord(*pz), Golden());
}

TEST(FaceEdgeData, ARecordOfRevision1ReadsTheSameAndIsWrittenAsRevision2) {
  auto pz = NewBlock<Block>();
  ASSERT_TRUE(ReadRecord(Golden1(), *pz));
  EXPECT_EQ(pz->m_zHeader.m_iFormat, 1u);
  EXPECT_EQ(BuildRecord(*pz), Golden());
}

TEST(FaceEdgeData, ARecordOfGeneration19ReadsTheSameWithRevision0) {
  auto pz = NewBlock<Block>();
  ASSERT_TRUE(ReadRecord(Golden19(), *pz, true));
  EXPECT_EQ(pz->m_zHeader.m_iFormat, 0u);
  EXPECT_EQ(pz->m_zHeader.m_iDataOffset, 96u);
  pz->m_zHeader.m_iDataOffset = 100;
  EXPECT_EQ(BuildRecord(*pz), Golden());
}

TEST(FaceEdgeData, ARecordWithEntryCount0AndDataOffset100IsValid) {
  Bytes vc = FromHex(kHeader);
  vc[4] = 0;
  auto pz = NewBlock<Block>();
  ASSERT_TRUE(ReadRecord(vc, *pz));
  EXPECT_EQ(pz->GetFaceNum() + pz->GetEdgeNum(), 0u);
  EXPECT_EQ(BuildRecord(*pz), vc);
  vc.pop_back();
  EXPECT_FALSE(ReadRecord(vc, *pz));
}

TEST(FaceEdgeData, ANewBlockHasTheDefaultsOfTheMeshHeader) {
  auto pz = NewBlock<Block>();
  pz->m_iCoordWidth = 1;
  pz->m_iMeshFlags = 9;
  AddLine(*pz);
  ASSERT_TRUE(ReadRecord(Bytes(), *pz));
  EXPECT_EQ(pz->m_iCoordWidth, 4u);
  EXPECT_EQ(pz->m_fStep, 0.01f);
  EXPECT_EQ(pz->m_fOrigin[1], 0.0f);
  EXPECT_EQ(pz->m_iMeshFlags, 0u);
  EXPECT_EQ(pz->GetEdgeNum(), 0u);
  EXPECT_EQ(pz->m_zHeader.m_iDataOffset, 100u);
  EXPECT_EQ(pz->m_zHeader.m_iFormat, 2u);
}

// --- Old records ----------------------------------------------------------------------------------------------------

TEST(FaceEdgeData, AnEdgeOfTwoIdenticalPointsInAFormat1RecordReadsDegenerate2) {
  Bytes vc = Golden1();
  const size_t iSecond = vc.size() - 14 - 3;
  vc[iSecond] = vc[iSecond + 1] = 0;
  auto pz = NewBlock<Block>();
  ASSERT_TRUE(ReadRecord(vc, *pz));
  EXPECT_EQ(pz->m_vzEdge[0].m_iDegenerate, 2u);
  vc[iSecond + 2] = 1;  // one axis differs
  ASSERT_TRUE(ReadRecord(vc, *pz));
  EXPECT_EQ(pz->m_vzEdge[0].m_iDegenerate, 0u);
}

TEST(FaceEdgeData, TheTwoPointsAreComparedAsTheyAreStored) {
  // Cells of 4 bytes that are the same float.
  Bytes vc = FromHex(kHeader +
                     "64000000 12270000 4B000000  00000000 00000000 00000000 00000000  02000000"
                     "00  00000080 00000000 00000000  01000080 00000000 00000000  00 00000000000000000000000000");
  vc[4] = 1;
  vc[8] = 1;
  auto pz = NewBlock<Block>();
  ASSERT_TRUE(ReadRecord(vc, *pz));
  EXPECT_EQ(pz->m_vzEdge[0].m_vfVertex[0], pz->m_vzEdge[0].m_vfVertex[3]);
  EXPECT_EQ(pz->m_vzEdge[0].m_iDegenerate, 0u);
  vc[100 + 12 + 16 + 4 + 1 + 12] = 0;
  ASSERT_TRUE(ReadRecord(vc, *pz));
  EXPECT_EQ(pz->m_vzEdge[0].m_iDegenerate, 2u);
}

TEST(FaceEdgeData, AFaceWhoseFirstTriangleIs557InAFormat1RecordReadsDegenerate1) {
  const size_t iIndex = 192 - 14 - 12;
  auto pz = NewBlock<Block>();
  for (const auto& [aiIndex, iDegenerate] : {std::pair<std::array<uint8_t, 3>, uint32_t>{{5, 5, 7}, 1},
                                             {{5, 7, 5}, 1},
                                             {{7, 5, 5}, 1},
                                             {{5, 5, 5}, 2},
                                             {{5, 6, 7}, 0}}) {
    Bytes vc = Golden1();
    for (size_t i = 0; i < 3; ++i) vc[iIndex + 4 * i] = aiIndex[i];
    ASSERT_TRUE(ReadRecord(vc, *pz));
    EXPECT_EQ(pz->m_vzFace[0].m_iDegenerate, iDegenerate);
  }
}

TEST(FaceEdgeData, InRevision2DegenerateIsWhatIsStored) {
  Bytes vc = Golden();
  vc[100 + 28] = 77;
  vc[196 + 28] = 78;
  auto pz = NewBlock<Block>();
  ASSERT_TRUE(ReadRecord(vc, *pz));
  EXPECT_EQ(pz->m_vzFace[0].m_iDegenerate, 77u);
  EXPECT_EQ(pz->m_vzEdge[0].m_iDegenerate, 78u);
  EXPECT_EQ(BuildRecord(*pz), vc);
}

// --- Order, gaps, refusals ------------------------------------------------------------------------------------------

TEST(FaceEdgeData, AFaceEntryAfterAnEdgeEntryFailsTheRead) {
  Bytes vc = FromHex(kHeader + kEdge + kFace);
  vc[100] = 0x64;
  vc[169] = 0xA9;
  auto pz = NewBlock<Block>();
  EXPECT_FALSE(ReadRecord(vc, *pz));
}

TEST(FaceEdgeData, AGapBeforeTheFirstEdgeIsAFaceAndOneAtTheEndOfTheEdgesStaysInTheEdgeList) {
  auto pz = NewBlock<Block>();
  ASSERT_TRUE(ReadRecord(GoldenWithGaps(), *pz));
  ASSERT_EQ(pz->GetFaceNum(), 2u);
  EXPECT_TRUE(pz->m_vzFace[1].m_zFrame.IsGap());
  EXPECT_EQ(pz->m_vzFace[1].m_zFrame.m_iOffset, 196u);
  EXPECT_EQ(pz->m_vzFace[1].m_zFrame.m_iSize, 14u);
  ASSERT_EQ(pz->GetEdgeNum(), 2u);
  EXPECT_TRUE(pz->m_vzEdge[1].m_zFrame.IsGap());
  EXPECT_EQ(pz->m_zHeader.m_iEntryCount, 2u);
  Bytes vcZeroed = GoldenWithGaps();
  vcZeroed[208] = vcZeroed[209] = 0;
  EXPECT_EQ(BuildRecord(*pz), vcZeroed);
}

TEST(FaceEdgeData, KindsOfOtherElementsAndOffsetsThatAreNotTheRunningOneFailTheRead) {
  auto pz = NewBlock<Block>();
  for (const auto& [iAt, iValue] :
       {std::pair<size_t, uint8_t>{104, 0x18}, {104, 0x13}, {100, 0x65}, {108, 11}, {68, 3}, {68, 0}}) {
    Bytes vc = Golden();
    vc[iAt] = iValue;
    if (iAt == 108) vc[109] = 0;
    EXPECT_FALSE(ReadRecord(vc, *pz)) << iAt;
  }
  Bytes vc = Golden();
  vc[108] = 12;  // the size of a live entry says nothing more
  EXPECT_TRUE(ReadRecord(vc, *pz));
}

TEST(FaceEdgeData, BytesBehindTheLastEntryAreIgnoredAndNotKept) {
  Bytes vc = Golden();
  vc.insert(vc.end(), 40, 0x5A);
  auto pz = NewBlock<Block>();
  ASSERT_TRUE(ReadRecord(vc, *pz));
  EXPECT_EQ(BuildRecord(*pz), Golden());
}

TEST(FaceEdgeData, AHigherDataOffsetIsHonouredAndKeptAndFilledWithZeros) {
  Bytes vc = Golden();
  vc.insert(vc.begin() + 100, {1, 2, 3, 4});
  vc[12] = 104;
  vc[104] = 104;
  vc[200] = 200;
  auto pz = NewBlock<Block>();
  ASSERT_TRUE(ReadRecord(vc, *pz));
  std::fill_n(vc.begin() + 100, 4, uint8_t{0});
  EXPECT_EQ(BuildRecord(*pz), vc);
  vc[12] = 99;
  EXPECT_FALSE(ReadRecord(vc, *pz));
}

TEST(FaceEdgeData, AttributesStandBehindTheStreamsOfBoth) {
  auto pz = NewBlock<Block>();
  ASSERT_TRUE(ReadRecord(Golden(), *pz));
  pz->m_vzFace[0].m_vzAttribute = {{1, {9, 9}}, {2, Bytes(20, 7)}};
  pz->m_vzEdge[0].m_vzAttribute = {{3, {}}};
  const Bytes vc = BuildRecord(*pz);
  EXPECT_EQ(vc.size(), Golden().size() + 33 - 14);
  auto pzRead = NewBlock<Block>();
  ASSERT_TRUE(ReadRecord(vc, *pzRead));
  EXPECT_EQ(pzRead->m_vzFace[0].m_vzAttribute, pz->m_vzFace[0].m_vzAttribute);
  EXPECT_EQ(pzRead->m_vzEdge[0].m_vzAttribute, pz->m_vzEdge[0].m_vzAttribute);
}

// --- Sizing ---------------------------------------------------------------------------------------------------------

TEST(FaceEdgeData, TheSizingAnswersACodeForEachFault) {
  const auto With = [](auto&& pfnChange) {
    auto pz = NewBlock<Block>();
    pz->m_fStep = 1;
    AddTriangle(*pz);
    AddLine(*pz);
    pfnChange(*pz);
    return SizeOf(*pz);
  };
  EXPECT_EQ(With([](Block&) {}), 265);
  EXPECT_EQ(With([](Block& z) { z.m_zHeader.m_iTag = 8; }), -10);
  EXPECT_EQ(With([](Block& z) { z.m_zHeader.m_afBoxMin[0] = 2; }), -40);
  EXPECT_EQ(With([](Block& z) { z.m_zHeader.m_iNodeState = 3; }), -50);
  EXPECT_EQ(With([](Block& z) { z.m_iCoordWidth = 3; }), -55);
  EXPECT_EQ(With([](Block& z) { z.m_vzFace[0].m_iVertexCount = 0; }), -100);
  EXPECT_EQ(With([](Block& z) { z.m_vzFace[0].m_iTriangleCount = 0; }), -110);
  EXPECT_EQ(With([](Block& z) { z.m_vzFace[0].m_iIndexSize = 3; }), -120);
  EXPECT_EQ(With([](Block& z) { z.m_vzFace[0].m_vfVertex.pop_back(); }), -130);
  EXPECT_EQ(With([](Block& z) { z.m_vzFace[0].m_viIndex.pop_back(); }), -150);
  EXPECT_EQ(With([](Block& z) {
              z.m_vzFace[0].m_iIndexSize = 1;
              z.m_vzFace[0].m_viIndex[2] = 256;
            }),
            -160);
  EXPECT_EQ(With([](Block& z) {
              z.m_vzFace[0].m_iIndexSize = 2;
              z.m_vzFace[0].m_viIndex[2] = 65536;
            }),
            -170);
  EXPECT_EQ(With([](Block& z) { z.m_vzEdge[0].m_iVertexCount = 0; }), -300);
  EXPECT_EQ(With([](Block& z) { z.m_vzEdge[0].m_vfVertex.pop_back(); }), -330);
  EXPECT_EQ(With([](Block& z) { z.m_zHeader.m_iEntryCount = 3; }), -580);
  EXPECT_EQ(With([](Block& z) { z.m_vzFace[0].m_zFrame.m_iKind = 10008; }), 0);
  // With stored counts no triangle outside a strip is needed, and counts of normals are never tested.
  EXPECT_GT(With([](Block& z) {
              z.m_iMeshFlags = kMeshIndexCount;
              z.m_vzFace[0].m_iTriangleCount = 0;
              z.m_vzFace[0].m_vfNormal.clear();
            }),
            0);
}

TEST(FaceEdgeData, RandomMeshesComeBackAsTheyWereAndTheSizingAgreesWithTheWriter) {
  TestRandom zRandom(20251);
  auto pz = NewBlock<Block>();
  auto pzRead = NewBlock<Block>();
  for (int n = 0; n < 60; ++n) {
    KivMeshFlags zFlags;
    KivResetElement(*pz, zFlags);
    const TestMesh zFirst = RandomMesh(zRandom);
    static_cast<KivMemoryBlockFaceEdgeInterfaceData&>(*pz) = zFirst.m_zHeader;
    pz->m_zHeader.m_afBoxMin = {-1e30f, -1e30f, -1e30f};
    pz->m_zHeader.m_afBoxMax = {1e30f, 1e30f, 1e30f};
    for (int i = 0; i < 3; ++i) {
      KivMeshFace& z = pz->AddFace();
      z.m_iId = zRandom.Below(100);
      z.m_iVertexCount = static_cast<uint32_t>(zFirst.m_vfVertex.size() / 3);
      z.m_iTriangleCount = zFirst.m_iTriangleCount;
      z.m_iIndexSize = zFirst.m_iIndexSize;
      z.m_vfVertex = zFirst.m_vfVertex;
      z.m_vfNormal = zFirst.m_vfNormal;
      z.m_viIndex = zFirst.m_viIndex;
      if (i == 1) z.m_vzAttribute = {{4, Bytes(zRandom.Below(30))}};
      KivMeshEdge& zEdge = pz->AddEdge();
      zEdge.m_iVertexCount = z.m_iVertexCount;
      zEdge.m_vfVertex = z.m_vfVertex;
      pz->m_zHeader.m_iEntryCount += 2;
    }
    KivMeshEdge& zGap = pz->m_vzEdge.Add();
    zGap.m_zFrame = {0, kGapKind, 12 + zRandom.Below(9)};
    const Bytes vc = BuildRecord(*pz);
    ASSERT_FALSE(vc.empty()) << n;
    ASSERT_TRUE(ReadRecord(vc, *pzRead)) << n;
    EXPECT_EQ(pzRead->m_vzFace[2].m_viIndex, zFirst.m_viIndex);
    EXPECT_EQ(pzRead->GetEdgeNum(), 4u);
    // A first decoding may lose the signs of zeros in normals and move a mesh across the limit of local ones.
    const Bytes vcAgain = BuildRecord(*pzRead);
    ASSERT_TRUE(ReadRecord(vcAgain, *pzRead)) << n;
    EXPECT_EQ(BuildRecord(*pzRead), vcAgain) << n;
  }
}

// --- Bad bytes ------------------------------------------------------------------------------------------------------

TEST(FaceEdgeData, EveryCutAndEveryDamagedByteOfEachRevisionIsRefusedOrHarmless) {
  ExpectDamageIsRefusedOrHarmless<Block>(Golden(), false, Golden().size());
  ExpectDamageIsRefusedOrHarmless<Block>(Golden1(), false, Golden1().size());
  ExpectDamageIsRefusedOrHarmless<Block>(Golden19(), true, Golden19().size());
  // The last gap is behind the last live entry: a record without it, or with a part of it, is good.
  ExpectDamageIsRefusedOrHarmless<Block>(GoldenWithGaps(), false, GoldenWithGaps().size() - 12);
}

TEST(FaceEdgeData, RandomBytesAreRefusedOrHarmless) {
  ExpectRandomBytesAreHarmless<Block>(Golden(), 100, 1);
  ExpectRandomBytesAreHarmless<Block>(GoldenWithGaps(), 112, 2);
}

TEST(FaceEdgeData, DamagedPackedStreamsAreRefusedOrHarmless) {
  auto pz = NewBlock<Block>();
  pz->m_fStep = 1;
  pz->m_iMeshFlags = kMeshDelta | kMeshIndexCount;
  pz->m_zHeader.m_afBoxMax = {40, 40, 40};
  AddTriangle(*pz);
  KivMeshFace& z = pz->m_vzFace[0];
  z.m_iVertexCount = 40;
  z.m_iIndexSize = 2;
  z.m_vfVertex.clear();
  z.m_vfNormal.assign(120, 0.5f);
  for (uint32_t i = 0; i < 40; ++i)
    for (uint32_t k = 0; k < 3; ++k) z.m_vfVertex.push_back(static_cast<float>((i * i * (k + 1)) % 200));
  z.m_viIndex = {0, 39, 1, 38, 2, 37, 3};
  const Bytes vc = BuildRecord(*pz);
  ASSERT_FALSE(vc.empty());
  ExpectDamageIsRefusedOrHarmless<Block>(vc, false, vc.size());
}

TEST(FaceEdgeData, LyingCountsAreRefusedBeforeMemoryIsTaken) {
  auto pz = NewBlock<Block>();
  // Entries, vertices, triangles, attributes of the face; points of the edge.
  for (const size_t iAt : {4u, 132u, 136u, 196u + 32u}) {
    for (const uint32_t n : {1000u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
      Bytes vc = Golden();
      KivStore<uint32_t>(&vc[iAt], n);
      auto pzFresh = NewBlock<Block>();
      EXPECT_FALSE(ReadRecord(vc, *pzFresh)) << iAt;
      for (const KivMeshFace& z : pzFresh->m_vzFace) {
        EXPECT_LT(z.m_vfVertex.capacity() + z.m_vfNormal.capacity() + z.m_viIndex.capacity(), 10000u);
      }
      EXPECT_LT(pzFresh->GetFaceNum() + pzFresh->GetEdgeNum(), 10u);
    }
  }
  Bytes vc = Golden();
  vc[196 - 14] = 255;
  EXPECT_FALSE(ReadRecord(vc, *pz));
}

// --- Memory ---------------------------------------------------------------------------------------------------------

namespace {

// Faces and edges of several lengths, with attributes and a gap.
Bytes ManyEntries() {
  auto pz = NewBlock<Block>();
  pz->m_iMeshFlags = kMeshDelta;
  pz->m_zHeader.m_afBoxMax = {200, 200, 200};
  for (uint32_t n = 1; n <= 12; ++n) {
    AddTriangle(*pz);
    KivMeshFace& z = pz->m_vzFace[n - 1];
    z.m_iVertexCount = 30 + n;
    z.m_iIndexSize = 2;
    z.m_vfVertex.assign(3 * z.m_iVertexCount, static_cast<float>(n));
    z.m_vfNormal.assign(3 * z.m_iVertexCount, 0.5f);
    z.m_vzAttribute = {{1, Bytes(n)}, {2, Bytes(30)}};
    AddLine(*pz);
    pz->m_vzEdge[n - 1].m_vzAttribute = {{3, Bytes(2 * n)}};
  }
  pz->m_vzEdge.Add().m_zFrame = {0, kGapKind, 20};
  return BuildRecord(*pz);
}

}  // namespace

TEST(FaceEdgeData, ALaterReadOfARecordTakesNothingFromTheHeap) {
  ExpectLaterReadsTakeNothingFromTheHeap<Block>(ManyEntries());
}

// --- In a store -----------------------------------------------------------------------------------------------------

namespace {

class FaceEdgeStore : public ElementStoreTest {
 protected:
  FaceEdgeStore() { KivRegisterElementClasses(); }
  KivFaceEdgeData* Put(const Bytes& vc) { return ElementStoreTest::Put<KivFaceEdgeData>(vc); }
};

// With an attribute of a type that holds a key, in the face and in the edge.
Bytes RecordWithKeys() {
  auto pz = NewBlock<Block>();
  EXPECT_TRUE(ReadRecord(Golden(), *pz));
  pz->m_zHeader.m_aiLink = {11, 22, 33};
  pz->m_vzFace[0].m_vzAttribute = {{kTestNoteIndex, {44, 0, 0, 0, 0, 0, 0, 0}}};
  pz->m_vzEdge[0].m_vzAttribute = {{kTestBagIndex, {55, 0, 0, 0, 0, 0, 0, 0}}};
  return BuildRecord(*pz);
}

}  // namespace

TEST_F(FaceEdgeStore, AnElementIsStoredAndReadThroughTheStore) {
  OpenEmpty();
  auto pzNew = std::make_unique<KivFaceEdgeData>(m_pzModel->GetKey());
  Block* pzBlock = pzNew->GetMemoryBlockForWrite();
  ASSERT_NE(pzBlock, nullptr);
  pzBlock->m_fStep = 1;
  AddTriangle(*pzBlock);
  AddLine(*pzBlock);
  KivOutOfCoreHandle zHandle = KivStoreNewElement(std::move(pzNew));
  auto* pz = zHandle.Fetch<KivFaceEdgeData>();
  ASSERT_NE(pz, nullptr);
  EXPECT_EQ(pz->GetElementType(), 1u);
  ASSERT_NE(pz->GetMemoryBlock(), nullptr);
  EXPECT_EQ(pz->GetMemoryBlock()->m_vzFace[0].m_viIndex.size(), 3u);
  EXPECT_EQ(pz->GetDataSize(), 265u);
}

TEST_F(FaceEdgeStore, TheTreeLevelIs1WithADisplayValueAboveZeroElse2) {
  OpenEmpty();
  auto* pz = Put(Golden());
  EXPECT_EQ(pz->GetOutOfCoreTreeLevel(), 2u);
  Bytes vc = Golden();
  vc[96] = 5;
  pz = Put(vc);
  ASSERT_NE(pz->GetMemoryBlockForWrite(), nullptr);
  EXPECT_EQ(pz->GetOutOfCoreTreeLevel(), 1u);
  ASSERT_TRUE(pz->Unload());
  EXPECT_EQ(pz->GetOutOfCoreTreeLevel(), 1u);
  pz->GetMemoryBlockForWrite()->m_iDisplayValue = 0;
  EXPECT_EQ(pz->GetOutOfCoreTreeLevel(), 2u);
  // It is known from the header on, even where the entries cannot be read.
  vc[104] = 0;
  pz = Put(vc);
  const NoThrowScope zNoThrow;
  EXPECT_EQ(pz->GetMemoryBlock(), nullptr);
  EXPECT_EQ(pz->GetOutOfCoreTreeLevel(), 1u);
}

TEST_F(FaceEdgeStore, KeysAreTheLinksThenTheAttributesOfFacesThenOfEdges) {
  OpenEmpty();
  auto* pz = Put(RecordWithKeys());
  std::vector<uint64_t> viKey;
  ASSERT_TRUE(pz->GetAllPosition(viKey));
  EXPECT_EQ(viKey, (std::vector<uint64_t>{11, 22, 33, 44, 55}));
}

TEST_F(FaceEdgeStore, KeysAreReplacedInAKeyOnlyWriteThatChangesNothingElse) {
  for (const uint8_t iFormat : {2, 1}) {
    OpenEmpty();
    const Bytes vc = iFormat == 1 ? AsRevision1(RecordWithKeys()) : RecordWithKeys();
    auto* pz = Put(vc);
    std::vector<uint64_t> viKey;
    ASSERT_TRUE(pz->GetAllPosition(viKey));
    ASSERT_TRUE(pz->ReplaceAllPosition({{11, 12}, {22, 23}, {33, 34}, {44, 45}, {55, 56}}));
    ASSERT_TRUE(pz->Save(true));
    Bytes vcExpected = vc;
    int nChanged = 0;
    for (size_t i = 0; i < vc.size(); ++i) {
      const bool bKey = i == 16 || i == 24 || i == 32 || vc[i] == 44 || vc[i] == 55;
      if (bKey) ++vcExpected[i], ++nChanged;
    }
    ASSERT_EQ(nChanged, 5);
    EXPECT_EQ(Stored(*pz), vcExpected) << int{iFormat};
    ASSERT_TRUE(pz->GetAllPosition(viKey));
    EXPECT_EQ(viKey, (std::vector<uint64_t>{12, 23, 34, 45, 56}));
    Close(m_pzModel);
  }
}

TEST_F(FaceEdgeStore, AKeyOnlyWriteLeavesGapBytesAsTheyWere) {
  OpenEmpty();
  const Bytes vc = GoldenWithGaps();
  auto* pz = Put(vc);
  ASSERT_TRUE(pz->Activate(true));
  pz->MarkModified();  // the old bytes come from the store
  ASSERT_TRUE(pz->Save(true));
  EXPECT_EQ(Stored(*pz), vc);
}

TEST_F(FaceEdgeStore, AMeshThatShrankInPlaceTakesAKeyOnlyWriteAfterItIsOpenedAgain) {
  const KivWString csPath = MakeFile(u"shrunk.kiv");
  m_pzModel = Open(csPath, true);
  ASSERT_NE(m_pzModel, nullptr);
  const Bytes vc = RecordWithKeys();
  auto* pz = Put(vc);
  Block* pzBlock = pz->GetMemoryBlockForWrite();
  ASSERT_NE(pzBlock, nullptr);
  pzBlock->m_vzEdge.Clear();
  pzBlock->m_zHeader.m_iEntryCount = 1;
  ASSERT_TRUE(pz->Deactivate());
  Close(m_pzModel);

  m_pzModel = Open(csPath, true);
  ASSERT_NE(m_pzModel, nullptr);
  pz = Fetch<KivFaceEdgeData>();
  ASSERT_NE(pz, nullptr);
  ASSERT_EQ(pz->GetDataSize(), vc.size());  // the container knows no other size
  std::vector<uint64_t> viKey;
  ASSERT_TRUE(pz->GetAllPosition(viKey));
  ASSERT_EQ(viKey, (std::vector<uint64_t>{11, 22, 33, 44}));
  const Bytes vcBefore = Stored(*pz);
  ASSERT_TRUE(pz->ReplaceAllPosition({{11, 12}, {22, 23}, {33, 34}, {44, 45}}));
  ASSERT_TRUE(pz->Save(true));
  const Bytes vcAfter = Stored(*pz);
  ASSERT_EQ(vcAfter.size(), vcBefore.size());
  int nChanged = 0;
  for (size_t i = 0; i < vcAfter.size(); ++i) nChanged += vcAfter[i] != vcBefore[i];
  EXPECT_EQ(nChanged, 4);
  ASSERT_TRUE(pz->GetAllPosition(viKey));
  EXPECT_EQ(viKey, (std::vector<uint64_t>{12, 23, 34, 45}));
}

TEST_F(FaceEdgeStore, AKeyOnlyWriteUsesTheFlagsOfTheReadWhereANormalOneDecidesAnew) {
  OpenEmpty();
  // A triangle that could be local, stored in 4 bytes per coordinate.
  Bytes vc =
      FromHex(kHeader +
              "64000000 11270000 6F000000  00000000 00000000 00000000 00000000  00000000  03000000 01000000 04000000"
              "00  00000000 00000000 00000000  01000000 00000000 00000000  00000000 01000000 00000000"
              "01 030010  00000000 01000000 02000000  00 00000000000000000000000000");
  vc[4] = 1;
  auto* pz = Put(vc);
  ASSERT_TRUE(pz->Activate(true));
  ASSERT_TRUE(pz->Save(true));
  EXPECT_EQ(Stored(*pz), vc);
  ASSERT_TRUE(pz->Save(false));
  EXPECT_EQ(Stored(*pz)[144], 1);
  EXPECT_EQ(pz->GetDataSize(), 196u);
}

TEST_F(FaceEdgeStore, AKeyOnlyWriteWithoutTheFlagsOfAReadForKeysIsRefused) {
  OpenEmpty();
  auto* pz = Put(Golden());
  ASSERT_TRUE(pz->Activate(false));
  EXPECT_FALSE(pz->Save(true));
  ASSERT_TRUE(pz->Unload());
  ASSERT_TRUE(pz->Activate(true));
  ASSERT_TRUE(pz->Load(false));  // forgets them
  EXPECT_FALSE(pz->Save(true));
  EXPECT_EQ(Stored(*pz), Golden());
}

TEST_F(FaceEdgeStore, AKeyOnlyWriteOfAnElementWithoutARecordIsRefused) {
  OpenEmpty();
  KivFaceEdgeData zNew(m_pzModel->GetKey());
  ASSERT_TRUE(zNew.Load(true));
  EXPECT_FALSE(zNew.Save(true));
  zNew.Release();
}

TEST_F(FaceEdgeStore, AnEntryIsFoundByElementAndIdAndTheFirstOneCounts) {
  OpenEmpty();
  auto pzBlock = NewBlock<Block>();
  pzBlock->m_fStep = 1;
  for (const uint32_t iValue : {1u, 2u, 3u}) {
    AddTriangle(*pzBlock);
    pzBlock->m_vzFace[iValue - 1].m_iId = iValue == 1 ? 6 : 5;
    pzBlock->m_vzFace[iValue - 1].m_iValue0 = iValue;
  }
  AddLine(*pzBlock);
  pzBlock->m_vzFace.Add().m_zFrame = {0, kGapKind, 12};
  Put(BuildRecord(*pzBlock));
  const uint32_t iKey = m_pzModel->GetKey();
  const KivMeshFace* pzFace = KivFaceEdgeData::FindFace(iKey, m_iPosition, 5);
  ASSERT_NE(pzFace, nullptr);
  EXPECT_EQ(pzFace->m_iValue0, 2u);
  EXPECT_EQ(KivFaceEdgeData::FindFace(iKey, m_iPosition, 0), nullptr);  // a gap has no id
  EXPECT_NE(KivFaceEdgeData::FindEdge(iKey, m_iPosition, 0), nullptr);
  EXPECT_EQ(KivFaceEdgeData::FindEdge(iKey, m_iPosition, 5), nullptr);
  EXPECT_NO_REPORT(EXPECT_EQ(KivFaceEdgeData::FindFace(iKey, 5, 5), nullptr));
}

TEST_F(FaceEdgeStore, AFormatAbove2OrOfGeneration19IsNotWritten) {
  OpenEmpty();
  Bytes vc = Golden();
  vc[8] = 3;
  auto* pz = Put(vc);
  ASSERT_TRUE(pz->Activate(true));
  EXPECT_FALSE(pz->Save(false));
  EXPECT_FALSE(pz->Save(true));
  EXPECT_EQ(Stored(*pz), vc);
}

TEST_F(FaceEdgeStore, AnElementOfAGeneration19StoreReadsRevision0AndCannotBeWritten) {
  const KivWString csPath = MakeFile(u"old.kiv");
  m_pzModel = Open(csPath, true);
  ASSERT_NE(m_pzModel, nullptr);
  Put(Golden19());
  Close(m_pzModel);
  PatchHeader(csPath, KivContainerHeader::FormatVersion, std::string(8, '\x13'));
  m_pzModel = Open(csPath, false);
  ASSERT_NE(m_pzModel, nullptr);
  ASSERT_TRUE(ManagerOf(m_pzModel)->IsVer19Data());
  auto* pz = Fetch<KivFaceEdgeData>();
  ASSERT_NE(pz, nullptr);
  float fX = 0;
  std::memcpy(&fX, pz->GetBoxCorners() + 12, 4);
  EXPECT_EQ(fX, 1.0f);
  Block* pzBlock = pz->GetMemoryBlock();
  ASSERT_NE(pzBlock, nullptr);
  EXPECT_EQ(pzBlock->m_zHeader.m_iFormat, 0u);
  EXPECT_EQ(pzBlock->m_vzFace[0].m_iId, 7u);
  EXPECT_FALSE(pz->Save(false));
  EXPECT_FALSE(pz->Save(true));
  EXPECT_EQ(Stored(*pz), Golden19());
}

TEST_F(FaceEdgeStore, AReloadOfTheOneBlockReusesTheMemoryOfItsEntries) {
  OpenEmpty();
  auto* pz = Put(Golden());
  Block* pzBlock = pz->GetMemoryBlock();
  ASSERT_NE(pzBlock, nullptr);
  const void* const apBefore[] = {pzBlock->m_vzFace.begin(), pzBlock->m_vzFace[0].m_vfVertex.data(),
                                  pzBlock->m_vzFace[0].m_viIndex.data(), pzBlock->m_vzEdge[0].m_vfVertex.data()};
  pz = Put(Golden1());
  ASSERT_EQ(pz->GetMemoryBlock(), pzBlock);
  const void* const apAfter[] = {pzBlock->m_vzFace.begin(), pzBlock->m_vzFace[0].m_vfVertex.data(),
                                 pzBlock->m_vzFace[0].m_viIndex.data(), pzBlock->m_vzEdge[0].m_vfVertex.data()};
  EXPECT_TRUE(std::equal(std::begin(apBefore), std::end(apBefore), apAfter));
}

TEST_F(FaceEdgeStore, AReloadFromTheRawBytesTakesNothingFromTheHeap) {
  OpenEmpty();
  auto* pz = Put(ManyEntries());
  ASSERT_TRUE(pz->Activate(false));
  const HeapUse zHeap;
  const bool bLoaded = pz->Load(false);
  EXPECT_EQ(zHeap.Calls(), 0u);
  EXPECT_TRUE(bLoaded);
}

TEST_F(FaceEdgeStore, AReloadOnTheStackTakesNothingFromTheHeapForItsEntries) {
  Space().SetKeepRawData(0);
  OpenEmpty();
  uint64_t anCalls[2] = {};
  int i = 0;
  for (const Bytes& vc : {Golden(), ManyEntries()}) {
    auto* pz = Put(vc);
    ASSERT_TRUE(pz->Activate(false));
    ASSERT_TRUE(pz->Load(false));
    const HeapUse zHeap;
    const bool bLoaded = pz->Load(false);
    anCalls[i++] = zHeap.Calls();
    EXPECT_TRUE(bLoaded);
  }
  EXPECT_EQ(anCalls[0], anCalls[1]);
}

TEST_F(FaceEdgeStore, AValueThatIsClampedIsReportedOnceAndTheRecordStores) {
  OpenEmpty();
  auto* pz = Put(Golden());
  Block* pzBlock = pz->GetMemoryBlockForWrite();
  ASSERT_NE(pzBlock, nullptr);
  pzBlock->m_iCoordWidth = 1;
  pzBlock->m_vzFace[0].m_vfVertex[0] = 1e6f;
  const uint64_t nBefore = QuietReports();
  EXPECT_TRUE(pz->Save(false));
  EXPECT_EQ(QuietReports(), nBefore + 1);
  EXPECT_EQ(Stored(*pz)[145], 255);
}

// --- Flat form ------------------------------------------------------------------------------------------------------

TEST_F(FaceEdgeStore, TheFlatFormHoldsHeaderPlacesAndDecodedEntries) {
  Space().SetKeepRawData(2);
  OpenEmpty();
  Bytes vc = RecordWithKeys();
  auto* pz = Put(vc);
  const Bytes* pvc = pz->GetFlatForm();
  ASSERT_NE(pvc, nullptr);
  const Bytes vcExpected = FromHex(
      "01000000 02000000 02000000 64000000"
      "0B00000000000000 1600000000000000 2100000000000000"
      "00000000 00000000 00000000  0000803F 0000803F 00000000  00000000 00000000"
      "04000000 00000000 00000000 00000000 0000803F 00000000 0B000000 00000000"
      "01000000 01000000 78000000 15010000"
      // the face, at 120
      "64000000 11270000 60000000  01000000 02000000 07000000 04000000  03000000 01000000 04000000 00000000"
      "09000000 09000000 03000000"
      "0000003F 0000003F 0000003F 0000C03F 0000003F 0000003F 0000003F 0000C03F 0000003F"
      "00000000 00000000 0000803F 00000000 00000000 0000803F 00000000 00000000 0000803F"
      "00000000 01000000 02000000"
      "01000000 01 08000000 2C00000000000000"
      // the edge, at 277
      "C4000000 12270000 45000000  05000000 06000000 08000000 09000000  02000000 00000000"
      "06000000 0000003F 0000003F 0000003F 0000C03F 0000C03F 0000003F"
      "01000000 02 08000000 3700000000000000");
  EXPECT_EQ(*pvc, vcExpected);
}

TEST_F(FaceEdgeStore, TheFlatFormIsBuiltOnlyIfTheSettingsAskForItAndGoesWithAChange) {
  OpenEmpty();
  auto* pz = Put(Golden());
  const Bytes* pvc = pz->GetFlatForm();
  ASSERT_NE(pvc, nullptr);
  EXPECT_TRUE(pvc->empty());
  Space().SetKeepRawData(2);
  pvc = pz->GetFlatForm();  // loads anew
  ASSERT_NE(pvc, nullptr);
  EXPECT_FALSE(pvc->empty());
  pz->GetMemoryBlockForWrite()->m_iMeshValue = 0x77;
  EXPECT_TRUE(pvc->empty());
  ASSERT_TRUE(pz->Save(false));
  EXPECT_EQ((*pvc)[96], 0x77);
  pz->MarkModified();
  Space().SetBlockPerElement(true);
  ASSERT_TRUE(pz->Save(false));
  EXPECT_TRUE(pvc->empty());
  Space().SetBlockPerElement(false);
}
