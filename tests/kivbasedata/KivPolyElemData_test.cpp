#include "KivPolyElemData.h"

#include <gtest/gtest.h>

#include <string>

#include "KivElementClasses.h"
#include "KivFaceEdgeData.h"
#include "KivLittleEndian.h"
#include "KivTestElement.h"
#include "KivTestMeshRecord.h"

namespace {

using namespace kiv;
using namespace kivtest;

using Block = KivMemoryBlockPolyElem;

// --- Records by hand ------------------------------------------------------------------------------------------------

const std::string kHeader =
    "08000000 02000000 02000000 64000000"
    "0000000000000000 0000000000000000 0000000000000000"
    "00000000 00000000 00000000  0000803F 0000803F 00000000  00000000"
    "04000000 00000000 00000000 00000000 0000803F 00000000 0B000000 00000000";
// Two triangles over four vertices, one looking along z and one along x, at 100.
const std::string kFlatFace =
    "64000000 18270000 5F000000  01000000 02000000 00000000 00000000  00000000 01"
    "04000000 02000000 01000000  01 00000000 00000000 00000000  000000 010000 000100 010100"
    "00 0010 0000  00 01 02 01 03 02  00 00000000000000000000000000";
// Two points, at 195.
const std::string kEdge =
    "C3000000 19270000 45000000  05000000 06000000 08000000 09000000  00000000  02000000"
    "01 00000000 00000000 00000000  000000 010100  00 00000000000000000000000000";

Bytes Golden() {
  return FromHex(kHeader + kFlatFace + kEdge);
}
Bytes Golden1() {
  return AsRevision1(Golden());
}
Bytes Golden19() {
  return AsGeneration19(Golden());
}
// The same triangles with a normal for each vertex.
Bytes GoldenPerVertex() {
  Bytes vc = FromHex(kHeader +
                     "64000000 18270000 5E000000  01000000 02000000 00000000 00000000  00000000 00"
                     "04000000 02000000 01000000  01 00000000 00000000 00000000  000000 010000 000100 010100"
                     "01 04 0010  00 01 02 01 03 02  00 00000000000000000000000000");
  vc[4] = 1;
  return vc;
}

const std::vector<float> kSixVertices = {0.5f, 0.5f, 0.5f, 1.5f, 0.5f, 0.5f, 0.5f, 1.5f, 0.5f,
                                         1.5f, 0.5f, 0.5f, 1.5f, 1.5f, 0.5f, 0.5f, 1.5f, 0.5f};
const std::vector<float> kSixNormals = {0, 0, 1, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0, 0, 1, 0, 0};

constexpr size_t kFlatAt = 132;     // m_bFlatNormals of the face
constexpr size_t kIndicesAt = 175;  // its indices

}  // namespace

TEST(PolyElemData, AFlatMeshOfTwoTrianglesOverFourVerticesReadsSixOfEach) {
  auto pz = NewBlock<Block>();
  ASSERT_TRUE(ReadRecord(Golden(), *pz));
  EXPECT_FALSE(pz->IsFaceEdge());
  const KivPolyFace& z = pz->m_vzFace[0];
  EXPECT_TRUE(z.IsFlat());
  EXPECT_EQ(z.m_iVertexCount, 6u);
  EXPECT_EQ(z.m_iTriangleCount, 2u);
  EXPECT_EQ(z.m_vfVertex, kSixVertices);
  EXPECT_EQ(z.m_vfNormal, kSixNormals);
  EXPECT_EQ(z.m_viIndex, (std::vector<uint32_t>{0, 1, 2, 3, 4, 5}));
  EXPECT_EQ(z.m_viCompactIndex, (std::vector<uint32_t>{0, 1, 2, 1, 3, 2}));
  EXPECT_EQ(z.m_vfCompactVertex.size(), 12u);
  EXPECT_EQ(z.m_vfCompactNormal.size(), 6u);
  EXPECT_EQ(pz->m_vzEdge[0].m_iId, 8u);
}

TEST(PolyElemData, AWriteAfterSuchAReadStoresFourVerticesAndTwoNormalsAgainAndTwiceTheSame) {
  auto pz = NewBlock<Block>();
  ASSERT_TRUE(ReadRecord(Golden(), *pz));
  EXPECT_EQ(BuildRecord(*pz), Golden());
  EXPECT_EQ(pz->m_vzFace[0].m_vfVertex, kSixVertices);  // expanded again
  EXPECT_EQ(pz->m_vzFace[0].m_iVertexCount, 6u);
  EXPECT_EQ(BuildRecord(*pz), Golden());
}

TEST(PolyElemData, AMeshWithANormalForEachVertexStaysAsItIs) {
  auto pz = NewBlock<Block>();
  ASSERT_TRUE(ReadRecord(GoldenPerVertex(), *pz));
  const KivPolyFace& z = pz->m_vzFace[0];
  EXPECT_EQ(z.m_iVertexCount, 4u);
  EXPECT_EQ(z.m_vfNormal.size(), 12u);
  EXPECT_TRUE(z.m_viCompactIndex.empty());
  EXPECT_EQ(BuildRecord(*pz), GoldenPerVertex());
}

TEST(PolyElemData, AFlatNormalsByteThatIsNot1ReadsLike0) {
  Bytes vc = GoldenPerVertex();
  vc[kFlatAt] = 2;
  auto pz = NewBlock<Block>();
  ASSERT_TRUE(ReadRecord(vc, *pz));
  EXPECT_FALSE(pz->m_vzFace[0].IsFlat());
  EXPECT_EQ(pz->m_vzFace[0].m_vfNormal.size(), 12u);
}

TEST(PolyElemData, ABlockThatWasMadeCompactIsWrittenAsItIs) {
  auto pz = NewBlock<Block>();
  pz->m_fStep = 1;
  pz->m_iMeshValue = 11;
  pz->m_zHeader.m_afBoxMax = {1, 1, 0};
  pz->m_zHeader.m_iEntryCount = 2;
  KivPolyFace& z = pz->AddFace();
  z.m_iValue0 = 1;
  z.m_iValue1 = 2;
  z.m_bFlatNormals = 1;
  z.m_iVertexCount = 4;
  z.m_iTriangleCount = 2;
  z.m_iIndexSize = 1;
  z.m_vfVertex = {0, 0, 0, 1, 0, 0, 0, 1, 0, 1, 1, 0};
  z.m_vfNormal = {0, 0, 1, 1, 0, 0};
  z.m_viIndex = {0, 1, 2, 1, 3, 2};
  KivMeshEdge& zEdge = pz->AddEdge();
  zEdge.m_iValue0 = 5;
  zEdge.m_iValue1 = 6;
  zEdge.m_iId = 8;
  zEdge.m_iValue3 = 9;
  zEdge.m_iVertexCount = 2;
  zEdge.m_vfVertex = {0, 0, 0, 1, 1, 0};
  EXPECT_EQ(BuildRecord(*pz), Golden());
}

TEST(PolyElemData, ASaveMakesAnExpandedMeshFlatWhateverItsByteSays) {
  auto pz = NewBlock<Block>();
  ASSERT_TRUE(ReadRecord(Golden(), *pz));
  pz->m_vzFace[0].m_bFlatNormals = 0;
  EXPECT_EQ(BuildRecord(*pz), Golden());
  EXPECT_TRUE(pz->m_vzFace[0].IsFlat());
}

TEST(PolyElemData, OldRevisionsReadTheSameAndAreWrittenAsRevision2) {
  auto pz = NewBlock<Block>();
  ASSERT_TRUE(ReadRecord(Golden1(), *pz));
  EXPECT_EQ(BuildRecord(*pz), Golden());
  ASSERT_TRUE(ReadRecord(Golden19(), *pz, true));
  EXPECT_EQ(pz->m_zHeader.m_iFormat, 0u);
  pz->m_zHeader.m_iDataOffset = 100;
  EXPECT_EQ(BuildRecord(*pz), Golden());
}

TEST(PolyElemData, AFlatFaceOfRevision1GetsDegenerateFromTheStoredIndices) {
  Bytes vc = Golden1();
  vc[kIndicesAt - 4 + 1] = 0;  // (0, 0, 2)
  auto pz = NewBlock<Block>();
  ASSERT_TRUE(ReadRecord(vc, *pz));
  EXPECT_EQ(pz->m_vzFace[0].m_iDegenerate, 1u);
  EXPECT_EQ(pz->m_vzFace[0].m_viIndex[1], 1u);
}

TEST(PolyElemData, AnEdgeOfTwoIdenticalPointsInAFormat1RecordKeepsDegenerate0) {
  Bytes vc = Golden1();
  const size_t iSecond = vc.size() - 14 - 3;
  vc[iSecond] = vc[iSecond + 1] = 0;
  auto pz = NewBlock<Block>();
  ASSERT_TRUE(ReadRecord(vc, *pz));
  EXPECT_EQ(pz->m_vzEdge[0].m_iDegenerate, 0u);
}

TEST(PolyElemData, AnEntryOfKind10001FailsTheRead) {
  auto pz = NewBlock<Block>();
  for (const uint8_t iKind : {0x11, 0x12}) {
    Bytes vc = Golden();
    vc[104] = iKind;
    EXPECT_FALSE(ReadRecord(vc, *pz));
  }
  // And a polygon face fails the read of faces and edges.
  Bytes vc = Golden();
  vc[0] = 1;
  auto pzFaces = NewBlock<KivMemoryBlockFaceEdge>();
  EXPECT_FALSE(ReadRecord(vc, *pzFaces));
  EXPECT_EQ(pzFaces->GetFaceNum(), 0u);
}

TEST(PolyElemData, AFlatIndexBeyondTheVerticesRefusesTheRecord) {
  Bytes vc = Golden();
  vc[kIndicesAt + 4] = 4;
  auto pz = NewBlock<Block>();
  const uint64_t nBefore = QuietReports();
  EXPECT_FALSE(ReadRecord(vc, *pz));
  EXPECT_EQ(QuietReports(), nBefore + 1);
  vc = GoldenPerVertex();
  vc[vc.size() - 14 - 2] = 4;  // nothing looks at it in a mesh that is not flat
  EXPECT_TRUE(ReadRecord(vc, *pz));
}

TEST(PolyElemData, AFlatTriangleWithoutANormalAndAFlatStripRefuseTheRecord) {
  // Six stored indices, but one triangle and one normal.
  Bytes vc = Golden();
  vc[4] = 1;
  vc[88] = 1;
  vc[137] = 1;
  vc.erase(vc.begin() + 173, vc.begin() + 175);
  vc.insert(vc.begin() + 173, {6, 0, 0, 0});
  auto pz = NewBlock<Block>();
  EXPECT_FALSE(ReadRecord(vc, *pz));
  vc[173] = 3;  // the other three are then taken as attributes: none, and zeros
  vc[177 + 3] = 0;
  EXPECT_TRUE(ReadRecord(vc, *pz));
  EXPECT_EQ(pz->m_vzFace[0].m_iVertexCount, 3u);
  ASSERT_TRUE(ReadRecord(Golden(), *pz));
  pz->m_iMeshFlags = kMeshIndexCount;
  pz->m_vzFace[0].m_viCompactIndex.push_back(0);
  pz->BeforeSave(false);
  EXPECT_EQ(SizeOf(*pz), -150);  // what could not be read again is not written either
  pz->AfterSave();
}

TEST(PolyElemData, AFlatFaceThatLiesAboutItsTrianglesIsRefusedBeforeMemoryIsTaken) {
  // One vertex, and runs of 255 normals where the indices should be: 3 bytes that would become 3060.
  constexpr uint32_t kRuns = 2000;
  Bytes vc = FromHex(kHeader +
                     "64000000 18270000 0C000000  00000000 00000000 00000000 00000000  00000000 01"
                     "01000000 00000000 01000000  00 00000000 00000000 00000000  01");
  vc[4] = 1;
  KivStore<uint32_t>(&vc[137], 255 * kRuns);
  for (uint32_t i = 0; i < kRuns; ++i) vc.insert(vc.end(), {255, 0, 0x10});
  for (const uint8_t iFlags : {0, 1, 8, 9}) {
    vc[88] = iFlags;
    auto pz = NewBlock<Block>();
    EXPECT_FALSE(ReadRecord(vc, *pz));
    ASSERT_EQ(pz->GetFaceNum(), 1u);
    EXPECT_EQ(pz->m_vzFace[0].m_vfNormal.capacity() + pz->m_vzFace[0].m_vfCompactNormal.capacity(), 0u) << int{iFlags};
  }
}

TEST(PolyElemData, AFlatMeshWithoutIndicesStaysAsItIs) {
  auto pz = NewBlock<Block>();
  pz->m_fStep = 1;
  pz->m_iMeshFlags = kMeshIndexCount;
  pz->m_zHeader.m_iEntryCount = 1;
  KivPolyFace& z = pz->AddFace();
  z.m_bFlatNormals = 1;
  z.m_iVertexCount = 1;
  z.m_vfVertex = {0.5f, 0.5f, 0.5f};
  const Bytes vc = BuildRecord(*pz);
  ASSERT_FALSE(vc.empty());
  ASSERT_TRUE(ReadRecord(vc, *pz));
  EXPECT_EQ(pz->m_vzFace[0].m_iVertexCount, 1u);
  EXPECT_EQ(BuildRecord(*pz), vc);
  // But not where it says that it has triangles.
  pz->m_vzFace[0].m_iTriangleCount = 1;
  EXPECT_EQ(SizeOf(*pz), -150);
  Bytes vcBad = vc;
  vcBad[137] = 1;
  vcBad.insert(vcBad.begin() + 100 + 46 + 12, {0, 0x10});
  EXPECT_FALSE(ReadRecord(vcBad, *pz));
}

TEST(PolyElemData, ABlockThatHeldAFlatMeshForgetsItsListsWithTheNextRecord) {
  auto pz = NewBlock<Block>();
  ASSERT_TRUE(ReadRecord(Golden(), *pz));
  ASSERT_TRUE(ReadRecord(GoldenPerVertex(), *pz));
  EXPECT_TRUE(pz->m_vzFace[0].m_viCompactIndex.empty());
  EXPECT_EQ(BuildRecord(*pz), GoldenPerVertex());
  ASSERT_TRUE(ReadRecord(Golden(), *pz));
  EXPECT_EQ(BuildRecord(*pz), Golden());
  // A gap in the place of the face, and a face that ends in the middle.
  Bytes vc = FromHex(kHeader + "64000000 10270000 0C000000");
  vc[4] = 0;
  ASSERT_TRUE(ReadRecord(vc, *pz));
  EXPECT_EQ(pz->m_vzFace[0].m_vfVertex.size() + pz->m_vzFace[0].m_viCompactIndex.size(), 0u);
  ASSERT_TRUE(ReadRecord(Golden(), *pz));
  vc = Golden();
  vc.resize(170);
  ASSERT_FALSE(ReadRecord(vc, *pz));
  EXPECT_EQ(pz->m_vzFace[0].m_vfVertex.size() + pz->m_vzFace[0].m_viCompactIndex.size(), 0u);
}

TEST(PolyElemData, TheSizingAnswersMinus90AndMinus95ForFacesAlone) {
  const auto With = [](auto&& pfnChange) {
    auto pz = NewBlock<Block>();
    EXPECT_TRUE(ReadRecord(GoldenPerVertex(), *pz));
    pfnChange(*pz);
    return SizeOf(*pz);
  };
  EXPECT_EQ(With([](Block&) {}), 194);
  EXPECT_EQ(With([](Block& z) { z.m_vzFace[0].m_iId = 1; }), -90);
  EXPECT_EQ(With([](Block& z) { z.m_vzFace[0].m_iValue3 = 1; }), -95);
  EXPECT_EQ(With([](Block& z) { z.m_vzFace[0].m_iVertexCount = 0; }), -100);
  EXPECT_EQ(With([](Block& z) { z.m_vzFace[0].m_iVertexCount = 5; }), -130);
  EXPECT_EQ(With([](Block& z) { z.m_vzFace[0].m_viIndex[0] = 300; }), -160);
  EXPECT_EQ(With([](Block& z) { z.m_iCoordWidth = 5; }), -55);
  EXPECT_EQ(With([](Block& z) { z.m_zHeader.m_iEntryCount = 2; }), -580);
  EXPECT_GT(With([](Block& z) {
              KivMeshEdge& zEdge = z.AddEdge();
              zEdge.m_iVertexCount = 1;
              zEdge.m_vfVertex = {0, 0, 0};
              zEdge.m_iId = zEdge.m_iValue3 = 7;
              ++z.m_zHeader.m_iEntryCount;
            }),
            0);
}

TEST(PolyElemData, RandomFlatMeshesComeBackAsTheyWere) {
  TestRandom zRandom(7331);
  auto pz = NewBlock<Block>();
  for (int n = 0; n < 40; ++n) {
    KivMeshFlags zFlags;
    KivResetElement(*pz, zFlags);
    const TestMesh zMesh = RandomMesh(zRandom);
    static_cast<KivMemoryBlockFaceEdgeInterfaceData&>(*pz) = zMesh.m_zHeader;
    pz->m_zHeader.m_afBoxMin = {-1e30f, -1e30f, -1e30f};
    pz->m_zHeader.m_afBoxMax = {1e30f, 1e30f, 1e30f};
    pz->m_zHeader.m_iEntryCount = 1;
    KivPolyFace& z = pz->AddFace();
    z.m_bFlatNormals = 1;
    z.m_vfVertex = zMesh.m_vfVertex;
    z.m_iVertexCount = static_cast<uint32_t>(z.m_vfVertex.size() / 3);
    z.m_iTriangleCount = zMesh.m_iTriangleCount;
    for (uint32_t i = 0; i < 3 * z.m_iTriangleCount; ++i) {
      z.m_viIndex.push_back(zRandom.Below(std::min(z.m_iVertexCount, 256u)));
      if (i % 3 == 0)
        for (int k = 0; k < 3; ++k) z.m_vfNormal.push_back(zRandom.Within(0.1f, 1));
    }
    const std::vector<uint32_t> viStored = z.m_viIndex;
    z.m_iIndexSize = 1u << zRandom.Below(3);
    const Bytes vc = BuildRecord(*pz);
    ASSERT_FALSE(vc.empty()) << n;
    ASSERT_TRUE(ReadRecord(vc, *pz)) << n;
    const KivPolyFace& zRead = pz->m_vzFace[0];
    ASSERT_EQ(zRead.m_vfVertex.size(), 3 * viStored.size());
    EXPECT_EQ(zRead.m_viCompactIndex, viStored);
    for (size_t j = 0; j < viStored.size(); ++j)
      ASSERT_EQ(zRead.m_vfVertex[3 * j + 1], zRead.m_vfCompactVertex[3 * viStored[j] + 1]);
    const Bytes vcAgain = BuildRecord(*pz);
    ASSERT_TRUE(ReadRecord(vcAgain, *pz)) << n;
    EXPECT_EQ(BuildRecord(*pz), vcAgain) << n;
  }
}

TEST(PolyElemData, EveryCutAndEveryDamagedByteOfEachRevisionIsRefusedOrHarmless) {
  ExpectDamageIsRefusedOrHarmless<Block>(Golden(), false, Golden().size());
  ExpectDamageIsRefusedOrHarmless<Block>(GoldenPerVertex(), false, GoldenPerVertex().size());
  ExpectDamageIsRefusedOrHarmless<Block>(Golden1(), false, Golden1().size());
  ExpectDamageIsRefusedOrHarmless<Block>(Golden19(), true, Golden19().size());
}

TEST(PolyElemData, RandomBytesAreRefusedOrHarmless) {
  ExpectRandomBytesAreHarmless<Block>(Golden(), 100, 3);
  ExpectRandomBytesAreHarmless<Block>(GoldenPerVertex(), 112, 4);
}

TEST(PolyElemData, ALaterReadOfARecordTakesNothingFromTheHeap) {
  // Flat meshes of several lengths and one with a normal for each vertex.
  auto pz = NewBlock<Block>();
  ASSERT_TRUE(ReadRecord(Golden(), *pz));
  const KivPolyFace zFlat = pz->m_vzFace[0];
  for (uint32_t n = 1; n <= 8; ++n) {
    KivPolyFace& z = pz->m_vzFace.Add();
    z = zFlat;
    z.m_viCompactIndex.insert(z.m_viCompactIndex.end(), 3 * n, n % 4);
    z.m_vfCompactNormal.insert(z.m_vfCompactNormal.end(), 3 * n, 0.5f);
    z.m_vzAttribute = {{1, Bytes(n)}};
  }
  KivPolyFace& zPerVertex = pz->m_vzFace.Add();
  zPerVertex = zFlat;
  zPerVertex.m_bFlatNormals = 0;
  zPerVertex.ClearCompact();
  pz->m_zHeader.m_iEntryCount += 9;
  const Bytes vc = BuildRecord(*pz);
  ASSERT_FALSE(vc.empty());
  ExpectLaterReadsTakeNothingFromTheHeap<Block>(vc);
}

// --- In a store -----------------------------------------------------------------------------------------------------

namespace {

class PolyElemStore : public ElementStoreTest {
 protected:
  PolyElemStore() { KivRegisterElementClasses(); }
  KivPolyElemData* Put(const Bytes& vc) { return ElementStoreTest::Put<KivPolyElemData>(vc); }
};

}  // namespace

TEST_F(PolyElemStore, SavingTwiceGivesTheSameBytesAndTheBlockIsExpandedAfterEach) {
  OpenEmpty();
  auto* pz = Put(Golden());
  ASSERT_NE(pz, nullptr);
  EXPECT_EQ(pz->GetElementType(), 8u);
  ASSERT_NE(pz->GetMemoryBlockForWrite(), nullptr);
  for (int n = 0; n < 2; ++n) {
    ASSERT_TRUE(pz->Save(false));
    EXPECT_EQ(Stored(*pz), Golden());
    EXPECT_EQ(pz->GetMemoryBlock()->m_vzFace[0].m_vfNormal, kSixNormals);
  }
}

TEST_F(PolyElemStore, ASaveThatIsRefusedLeavesTheBlockExpanded) {
  OpenEmpty();
  auto* pz = Put(Golden());
  Block* pzBlock = pz->GetMemoryBlockForWrite();
  ASSERT_NE(pzBlock, nullptr);
  pzBlock->m_zHeader.m_iEntryCount = 7;
  EXPECT_FALSE(pz->Save(false));
  EXPECT_EQ(pzBlock->m_vzFace[0].m_vfVertex, kSixVertices);
  pzBlock->m_zHeader.m_iEntryCount = 2;
  EXPECT_TRUE(pz->Save(false));
}

TEST_F(PolyElemStore, AKeyOnlyWriteOfAnExpandedFlatMeshStoresTheCompactMesh) {
  OpenEmpty();
  for (const Bytes& vc : {Golden(), Golden1()}) {
    Bytes vcLinked = vc;
    vcLinked[24] = 5;
    auto* pz = Put(vcLinked);
    ASSERT_TRUE(pz->Activate(true));
    ASSERT_TRUE(pz->ReplaceAllPosition({{5, 6}}));
    ASSERT_TRUE(pz->Save(true));
    vcLinked[24] = 6;
    EXPECT_EQ(Stored(*pz), vcLinked);
    EXPECT_EQ(pz->GetMemoryBlock()->m_vzFace[0].m_vfVertex, kSixVertices);
  }
}

TEST_F(PolyElemStore, TheFlatFormHasTheExpandedMesh) {
  Space().SetKeepRawData(2);
  OpenEmpty();
  auto* pz = Put(Golden());
  const Bytes* pvc = pz->GetFlatForm();
  ASSERT_NE(pvc, nullptr);
  ASSERT_GT(pvc->size(), 180u);
  const size_t iFace = KivLoad<uint32_t>(&(*pvc)[112]);
  EXPECT_EQ(iFace, 120u);
  EXPECT_EQ(KivLoad<uint32_t>(&(*pvc)[iFace + 28]), 6u);  // vertices
  EXPECT_EQ(KivLoad<uint32_t>(&(*pvc)[iFace + 44]), 18u);
  EXPECT_EQ(KivLoad<uint32_t>(&(*pvc)[iFace + 48]), 18u);
  EXPECT_EQ(KivLoad<uint32_t>(&(*pvc)[iFace + 52]), 6u);
  pz->GetMemoryBlockForWrite();
  ASSERT_TRUE(pz->Save(false));
  EXPECT_EQ(KivLoad<uint32_t>(&(*pvc)[iFace + 28]), 6u);  // after a save as well
}
