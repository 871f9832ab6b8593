#include "KivMeshCodec.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <memory>

#include "KivDataUtil.h"
#include "KivReportQuiet.h"
#include "KivSysProcess.h"
#include "KivTestFolder.h"
#include "KivTestMesh.h"
#include "KivTestScale.h"

using namespace kiv;
using namespace kivtest;

namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kWideBox[6] = {-1e30f, -1e30f, -1e30f, 1e30f, 1e30f, 1e30f};  // leaves the entry's own box as it is

uint64_t Reports() {
  return KivLastQuietReport().m_iNumber;
}

KivMemoryBlockFaceEdgeInterfaceData Header(uint32_t iCoordWidth, float fStep, uint32_t iMeshFlags = 0) {
  KivMemoryBlockFaceEdgeInterfaceData z;
  z.m_iCoordWidth = iCoordWidth;
  z.m_fStep = fStep;
  z.m_iMeshFlags = iMeshFlags;
  return z;
}

// The vertex stream as written into exactly the room that the sizing asked for.
Bytes PutVertices(const KivMemoryBlockFaceEdgeInterfaceData& zHeader, KivMeshEntryType eType, uint8_t iLocal,
                  const std::vector<float>& vfVertex) {
  Bytes vc(KivMeshVertexStreamSize(zHeader, eType, kWideBox, iLocal, vfVertex));
  KivRecordWriter zWriter(vc.data(), vc.size());
  EXPECT_TRUE(KivMeshPutVertexStream(zWriter, zHeader, eType, kWideBox, iLocal, vfVertex));
  EXPECT_EQ(zWriter.Remaining(), 0u);
  return vc;
}

std::vector<float> GetVertices(const KivMemoryBlockFaceEdgeInterfaceData& zHeader, KivMeshEntryType eType,
                               uint8_t iLocal, uint32_t nVertices, const Bytes& vc) {
  std::vector<float> vf;
  KivRecordReader zReader(vc.data(), vc.size());
  EXPECT_TRUE(KivMeshGetVertexStream(zReader, zHeader, eType, iLocal, nVertices, vf));
  EXPECT_EQ(zReader.Remaining(), 0u);
  return vf;
}

Bytes PutNormals(const std::vector<float>& vf, uint32_t nNormals) {
  Bytes vc(KivMeshNormalStreamSize(vf, nNormals));
  KivRecordWriter zWriter(vc.data(), vc.size());
  EXPECT_TRUE(KivMeshPutNormalStream(zWriter, vf, nNormals));
  EXPECT_EQ(zWriter.Remaining(), 0u);
  return vc;
}

bool GetNormals(const Bytes& vc, uint32_t nNormals, std::vector<float>& vf) {
  KivRecordReader zReader(vc.data(), vc.size());
  return KivMeshGetNormalStream(zReader, nNormals, vf);
}

Bytes PutIndices(const KivMemoryBlockFaceEdgeInterfaceData& zHeader, uint32_t nTriangles, uint32_t iIndexSize,
                 const std::vector<uint32_t>& vi) {
  Bytes vc(KivMeshIndexStreamSize(zHeader, iIndexSize, vi));
  KivRecordWriter zWriter(vc.data(), vc.size());
  EXPECT_TRUE(KivMeshPutIndexStream(zWriter, zHeader, nTriangles, iIndexSize, vi));
  EXPECT_EQ(zWriter.Remaining(), 0u);
  return vc;
}

bool GetIndices(const KivMemoryBlockFaceEdgeInterfaceData& zHeader, uint32_t nTriangles, uint32_t iIndexSize,
                const Bytes& vc, std::vector<uint32_t>& vi) {
  KivRecordReader zReader(vc.data(), vc.size());
  return KivMeshGetIndexStream(zReader, zHeader, nTriangles, iIndexSize, vi) && zReader.Remaining() == 0;
}

Bytes PutFace(const TestMesh& zMesh, uint8_t iLocal, size_t nBytes) {
  Bytes vc(nBytes);
  KivRecordWriter zWriter(vc.data(), vc.size());
  EXPECT_TRUE(KivMeshPutFace(zWriter, zMesh.m_zHeader, zMesh.m_afBox, zMesh.View(), iLocal));
  EXPECT_EQ(zWriter.Remaining(), 0u);
  return vc;
}

// The bytes stand in an allocation of exactly their size, so that a sanitizer sees a read behind them.
bool GetFace(const TestMesh& zLike, const uint8_t* pBytes, size_t nBytes, TestMesh& zMesh, uint8_t& iLocal) {
  const std::unique_ptr<uint8_t[]> pOwn(new uint8_t[nBytes]);
  if (nBytes > 0) std::memcpy(pOwn.get(), pBytes, nBytes);
  const KivMeshFaceView zView = zLike.View();
  zMesh.m_zHeader = zLike.m_zHeader;
  zMesh.m_iTriangleCount = zLike.m_iTriangleCount;
  zMesh.m_iIndexSize = zLike.m_iIndexSize;
  std::copy(zLike.m_afBox, zLike.m_afBox + 6, zMesh.m_afBox);
  KivRecordReader zReader(pOwn.get(), nBytes);
  return KivMeshGetFace(zReader, zMesh.m_zHeader, zView.m_iVertexCount, zView.m_iTriangleCount, zView.m_iNormalCount,
                        zView.m_iIndexSize, iLocal, zMesh.m_vfVertex, zMesh.m_vfNormal, zMesh.m_viIndex) &&
         zReader.Remaining() == 0;
}

}  // namespace

// --- Quantising -----------------------------------------------------------------------------------------------------

TEST(MeshCodecQuantise, TruncatesTowardZeroAndClampsBelow) {
  EXPECT_EQ(KivMeshQuantise(1.99f, 0, 1), 1u);
  EXPECT_EQ(KivMeshQuantise(2.0f, 0, 1), 2u);
  EXPECT_EQ(KivMeshQuantise(-0.99f, 0, 1), 0u);
  EXPECT_EQ(KivMeshQuantise(-5.0f, 0, 1), 0u);
  EXPECT_EQ(KivMeshQuantise(-5.0f, -10, 0.5f), 10u);
}

TEST(MeshCodecQuantise, WhatLiesAboveTheLastCellIsStoredAsTheLastCellAndDoesNotWrap) {
  EXPECT_EQ(KivMeshQuantise(4294967040.0f, 0, 1), 4294967000u);
  EXPECT_EQ(KivMeshQuantise(1e30f, 0, 1), 4294967000u);
  EXPECT_EQ(KivMeshQuantise(std::numeric_limits<float>::infinity(), 0, 1), 4294967000u);
  EXPECT_EQ(PutVertices(Header(4, 1), KivMeshEntryType::Edge, 0, {1e30f, 4294966784.0f, 0}),
            FromHex("D8 FE FF FF  00 FE FF FF  00 00 00 00"));
}

TEST(MeshCodecQuantise, NoNumberAndAStepOfZeroAreReportedAndGiveZero) {
  const uint64_t nBefore = Reports();
  EXPECT_EQ(KivMeshQuantise(kNaN, 0, 1), 0u);
  EXPECT_EQ(Reports(), nBefore + 1);
  EXPECT_EQ(KivMeshQuantise(7, 0, 0), 0u);
  EXPECT_EQ(Reports(), nBefore + 2);
  EXPECT_EQ(PutVertices(Header(2, 1), KivMeshEntryType::Edge, 0, {kNaN, 3, 4}), FromHex("00 00 03 00 04 00"));
  EXPECT_EQ(Reports(), nBefore + 3);
  EXPECT_EQ(PutVertices(Header(2, 0), KivMeshEntryType::Edge, 0, {9, 3, 4}), FromHex("00 00 00 00 00 00"));
  EXPECT_EQ(Reports(), nBefore + 4);
}

TEST(MeshCodecQuantise, ACellIsReadAsItsCentre) {
  EXPECT_EQ(KivMeshCellCentre(0, 0, 1), 0.5f);
  EXPECT_EQ(KivMeshCellCentre(9, -1, 0.25f), 1.375f);
  EXPECT_EQ(KivMeshCellCentre(4294967000u, 0, 1), 4294967040.0f);
}

// --- Local offset ---------------------------------------------------------------------------------------------------

TEST(MeshCodecLocal, AnEntryIsLocalBelow250StepsOnAllAxesExactly) {
  const std::vector<float> vfAt = {10, 10, 10, 260, 10, 10};
  const std::vector<float> vfBelow = {10, 10, 10, 259.75f, 10, 10};
  EXPECT_EQ(KivMeshIsLocal(Header(4, 1), kWideBox, vfAt), 0);
  EXPECT_EQ(KivMeshIsLocal(Header(4, 1), kWideBox, vfBelow), 1);
  EXPECT_EQ(KivMeshIsLocal(Header(2, 1), kWideBox, vfBelow), 1);
}

TEST(MeshCodecLocal, WidthOneAndNoVerticesAreNeverLocal) {
  EXPECT_EQ(KivMeshIsLocal(Header(1, 1), kWideBox, std::vector<float>{1, 1, 1}), 0);
  EXPECT_EQ(KivMeshIsLocal(Header(4, 1), kWideBox, {}), 0);
}

TEST(MeshCodecLocal, TheElementsBoxIsTheFirstValueOnBothSides) {
  // The vertices alone span one step, but the box's high corner lies 300 below them.
  const float afBelow[6] = {-400, 0, 0, -300, 2, 2};
  EXPECT_EQ(KivMeshIsLocal(Header(4, 1), afBelow, std::vector<float>{0, 1, 1}), 0);
  const float afAround[6] = {-400, 0, 0, 300, 2, 2};
  EXPECT_EQ(KivMeshIsLocal(Header(4, 1), afAround, std::vector<float>{0, 1, 1}), 1);
}

TEST(MeshCodecLocal, ACoordinateThatIsNoNumberLeavesTheBoxAlone) {
  std::vector<float> vf = {5, 5, 5, kNaN, 6, 6, 7, 7, 7, 8, 8, 8, 9, kNaN, 9};
  EXPECT_EQ(KivMeshIsLocal(Header(4, 1), kWideBox, vf), 1);
  EXPECT_EQ(PutVertices(Header(4, 1), KivMeshEntryType::Edge, 1, vf),
            FromHex("05000000 05000000 05000000  00 00 00  00 01 01  02 02 02  03 03 03  04 00 04"));
}

// --- Vertex stream --------------------------------------------------------------------------------------------------

TEST(MeshCodecVertex, PlainFormsByWidth) {
  const std::vector<float> vf = {1, 2, 3, 254.5f, 255, 0};
  EXPECT_EQ(PutVertices(Header(1, 1), KivMeshEntryType::Face, 0, vf), FromHex("01 02 03 FE FF 00"));
  EXPECT_EQ(PutVertices(Header(2, 1), KivMeshEntryType::Face, 0, vf), FromHex("0100 0200 0300 FE00 FF00 0000"));
  EXPECT_EQ(PutVertices(Header(4, 1), KivMeshEntryType::Face, 0, vf),
            FromHex("01000000 02000000 03000000 FE000000 FF000000 00000000"));
  EXPECT_EQ(GetVertices(Header(2, 1), KivMeshEntryType::Face, 0, 2, FromHex("0100 0200 0300 FE00 FF00 FFFF")),
            (std::vector<float>{1.5f, 2.5f, 3.5f, 254.5f, 255.5f, 65535.5f}));
}

TEST(MeshCodecVertex, LocalVerticesStandBehindTheirOrigin) {
  const std::vector<float> vf = {1000, 2000, 70000, 1002, 2249, 70001};
  EXPECT_EQ(PutVertices(Header(4, 1), KivMeshEntryType::Face, 1, vf),
            FromHex("E8030000 D0070000 70110100  00 00 00  02 F9 01"));
  EXPECT_EQ(GetVertices(Header(4, 1), KivMeshEntryType::Face, 1, 1, FromHex("E8030000 D0070000 70110100 02 F9 01")),
            (std::vector<float>{1002.5f, 2249.5f, 70001.5f}));
  EXPECT_EQ(GetVertices(Header(2, 1), KivMeshEntryType::Edge, 1, 1, FromHex("E803 D007 FFFF 02 F9 01")),
            (std::vector<float>{1002.5f, 2249.5f, 65536.5f}));
}

TEST(MeshCodecVertex, AClampedLocalOriginIsTheOneThatVerticesAreTakenAgainst) {
  const uint64_t nBefore = Reports();
  EXPECT_EQ(PutVertices(Header(2, 1), KivMeshEntryType::Face, 1, {65600, 1, 1, 65601, 2, 2}),
            FromHex("FFFF 0100 0100  41 00 00  42 01 01"));
  EXPECT_EQ(Reports(), nBefore + 1);
}

TEST(MeshCodecVertex, ValuesBeyondTheirFormAreClampedWithOneReportInTheWritingPass) {
  const uint64_t nBefore = Reports();
  const std::vector<float> vf = {300, 1, 2, 400, 5, 66000};
  KivMeshVertexStreamSize(Header(1, 1, kMeshDelta), KivMeshEntryType::Face, kWideBox, 0, vf);
  EXPECT_EQ(Reports(), nBefore);
  EXPECT_EQ(PutVertices(Header(1, 1), KivMeshEntryType::Face, 0, vf), FromHex("FF 01 02 FF 05 FF"));
  EXPECT_EQ(Reports(), nBefore + 1);
  EXPECT_EQ(PutVertices(Header(2, 1), KivMeshEntryType::Face, 0, vf), FromHex("2C01 0100 0200 9001 0500 FFFF"));
  EXPECT_EQ(Reports(), nBefore + 2);
  // A flag kept from a read, for vertices that have left their place since.
  EXPECT_EQ(PutVertices(Header(4, 1), KivMeshEntryType::Edge, 1, {10, 10, 10, 400, 11, 11}),
            FromHex("0A000000 0A000000 0A000000  00 00 00  FF 01 01"));
  EXPECT_EQ(Reports(), nBefore + 3);
}

TEST(MeshCodecVertex, WhatLiesBelowTheLocalOriginIsReportedAndBecomesZero) {
  // A coordinate that is no number counts as 0, and 0 is below this origin: one report for each.
  const uint64_t nBefore = Reports();
  EXPECT_EQ(PutVertices(Header(4, 1), KivMeshEntryType::Edge, 1, {10, 10, 10, kNaN, 10, 10}),
            FromHex("0A000000 0A000000 0A000000  00 00 00  00 00 00"));
  EXPECT_EQ(Reports(), nBefore + 2);
}

TEST(MeshCodecVertex, ThirtyThreeVerticesAreNotDeltaCodedThirtyFourAre) {
  const std::vector<float> vf33(99, 7);
  const std::vector<float> vf34(102, 7);
  const KivMemoryBlockFaceEdgeInterfaceData zHeader = Header(1, 1, kMeshDelta);
  EXPECT_EQ(KivMeshVertexStreamSize(zHeader, KivMeshEntryType::Face, kWideBox, 0, vf33), 99u);
  EXPECT_EQ(KivMeshVertexStreamSize(zHeader, KivMeshEntryType::Face, kWideBox, 0, vf34), 36u);
  EXPECT_EQ(KivMeshVertexStreamSize(zHeader, KivMeshEntryType::Edge, kWideBox, 0, vf34), 102u);
  EXPECT_EQ(KivMeshVertexStreamSize(Header(1, 1), KivMeshEntryType::Face, kWideBox, 0, vf34), 102u);
  EXPECT_EQ(KivMeshVertexStreamSize(Header(2, 1, kMeshDelta), KivMeshEntryType::Face, kWideBox, 0, vf34), 204u);
  EXPECT_EQ(KivMeshVertexStreamSize(Header(2, 1, kMeshDelta), KivMeshEntryType::Face, kWideBox, 1, vf34), 42u);
}

namespace {

// 34 vertices, the last ones as given, delta-coded with steps of 1 and a width of 1.
Bytes DeltaTail(const std::vector<std::array<int, 3>>& vaiLast) {
  std::vector<float> vf(3 * (34 - vaiLast.size()), 100.5f);
  for (const auto& ai : vaiLast)
    for (const int i : ai) vf.push_back(static_cast<float>(i) + 0.5f);
  const Bytes vc = PutVertices(Header(1, 1, kMeshDelta), KivMeshEntryType::Face, 0, vf);
  EXPECT_EQ(GetVertices(Header(1, 1, kMeshDelta), KivMeshEntryType::Face, 0, 34, vc), vf);
  const size_t nHead = 3 + (34 - vaiLast.size() - 1);
  for (size_t i = 3; i < nHead; ++i) EXPECT_EQ(vc[i], 62);  // no difference
  return Bytes(vc.begin() + static_cast<ptrdiff_t>(nHead), vc.end());
}

}  // namespace

TEST(MeshCodecVertex, EachDeltaClassAtItsLimits) {
  EXPECT_EQ(DeltaTail({{98, 98, 98}}), FromHex("00"));
  EXPECT_EQ(DeltaTail({{102, 102, 102}}), FromHex("7C"));
  EXPECT_EQ(DeltaTail({{103, 100, 100}}), FromHex("A9 EF"));  // (3+7) * 1024 + 15 * 32 + 15
  EXPECT_EQ(DeltaTail({{93, 85, 115}}), FromHex("80 1E"));
  EXPECT_EQ(DeltaTail({{107, 115, 85}}), FromHex("BB C0"));
  EXPECT_EQ(DeltaTail({{108, 100, 100}}), FromHex("D1 DF BF"));  // x leaves PM7 at 8, y and z at 16
  EXPECT_EQ(DeltaTail({{100, 116, 100}}), FromHex("CF E7 BF"));
  EXPECT_EQ(DeltaTail({{37, 163, 100}}), FromHex("C0 3F 3F"));
  EXPECT_EQ(DeltaTail({{164, 100, 100}}), FromHex("E0 A4 64 64"));
}

TEST(MeshCodecVertex, ByteDifferencesDoNotWrapAround) {
  EXPECT_EQ(DeltaTail({{250, 100, 100}, {3, 100, 100}}), FromHex("E0 FA 64 64  E0 03 64 64"));
}

TEST(MeshCodecVertex, ADecodedCoordinateStaysAByte) {
  Bytes vc = FromHex("00 FF 01");
  vc.insert(vc.end(), 32, 62);
  vc.push_back(0);  // -2 -2 -2
  const std::vector<float> vf = GetVertices(Header(1, 1, kMeshDelta), KivMeshEntryType::Face, 0, 34, vc);
  EXPECT_EQ(vf[99], 254.5f);
  EXPECT_EQ(vf[100], 253.5f);
  EXPECT_EQ(vf[101], 255.5f);
}

TEST(MeshCodecVertex, FlagBytesOtherThanOneReadLikeZero) {
  EXPECT_EQ(GetVertices(Header(1, 1), KivMeshEntryType::Face, 2, 1, FromHex("01 02 03")),
            (std::vector<float>{1.5f, 2.5f, 3.5f}));
}

TEST(MeshCodecVertex, AWidthOtherThanOneTwoFourIsRefused) {
  for (const uint32_t iWidth : {0u, 3u, 5u, 8u}) {
    for (const uint8_t iLocal : {0, 1}) {
      const Bytes vc(100, 1);
      std::vector<float> vf;
      KivRecordReader zReader(vc.data(), vc.size());
      const uint64_t nBefore = Reports();
      EXPECT_FALSE(KivMeshGetVertexStream(zReader, Header(iWidth, 1), KivMeshEntryType::Face, iLocal, 2, vf));
      EXPECT_EQ(Reports(), nBefore + 1);
    }
  }
}

TEST(MeshCodecVertex, AListThatIsNotWholeVerticesIsReportedByTheDeltaCoder) {
  const std::vector<float> vf(103, 1);
  Bytes vc(1000);
  KivRecordWriter zWriter(vc.data(), vc.size());
  EXPECT_FALSE(KivMeshPutVertexStream(zWriter, Header(1, 1, kMeshDelta), KivMeshEntryType::Face, kWideBox, 0, vf));
  EXPECT_STREQ(KivLastQuietReport().m_szCondition,
               "viVertexPoint.size() > 0 && 3 * (viVertexPoint.size() / 3) == viVertexPoint.size()");
}

// --- Normals --------------------------------------------------------------------------------------------------------

TEST(MeshCodecNormal, AShortNormalIsTheZeroNormalAndBack) {
  EXPECT_EQ(KivMeshNormalCode(0, 0, 0), 6144);
  EXPECT_EQ(KivMeshNormalCode(0.0099f, -0.0099f, 0.005f), 6144);
  EXPECT_NE(KivMeshNormalCode(0.0101f, 0, 0), 6144);
  float af[3] = {1, 1, 1};
  EXPECT_TRUE(KivMeshNormalOfCode(6144, af));
  EXPECT_EQ(std::vector<float>(af, af + 3), (std::vector<float>{0, 0, 0}));
}

TEST(MeshCodecNormal, EveryCodeWithAxisThreeIsTheZeroNormal) {
  for (const uint16_t iCode : {0x1800, 0x1FFF, 0xF801, 0xFFFF}) {
    float af[3] = {1, 1, 1};
    EXPECT_TRUE(KivMeshNormalOfCode(iCode, af));
    for (const float f : af) EXPECT_FALSE(f != 0 || std::signbit(f));
  }
}

TEST(MeshCodecNormal, NoNumberGivesTheZeroNormalOnEachAxis) {
  for (size_t i = 0; i < 3; ++i) {
    for (const float fOther : {0.0f, 0.02f, 1.0f}) {
      float af[3] = {fOther, 1, fOther};
      af[i] = kNaN;
      EXPECT_EQ(KivMeshNormalCode(af[0], af[1], af[2]), 6144);
    }
  }
}

TEST(MeshCodecNormal, CodesOfPlainDirections) {
  EXPECT_EQ(KivMeshNormalCode(1, 0, 0), 0 << 11);
  EXPECT_EQ(KivMeshNormalCode(0, 1, 0), 1 << 11);
  EXPECT_EQ(KivMeshNormalCode(0, 0, 1), 2 << 11);
  EXPECT_EQ(KivMeshNormalCode(-1, 0, 0), 1 << 13);
  EXPECT_EQ(KivMeshNormalCode(0, -1, 0), (2 << 13) + (1 << 11));
  EXPECT_EQ(KivMeshNormalCode(0, 0, -1), (4 << 13) + (2 << 11));
  EXPECT_EQ(KivMeshNormalCode(1, 1, 0), 44 * 45);  // of equal components x, then y
  EXPECT_EQ(KivMeshNormalCode(0, 1, 1), (1 << 11) + 44 * 45);
  EXPECT_EQ(KivMeshNormalCode(1, 0, 1), 44);
  EXPECT_EQ(KivMeshNormalCode(1, 0.5f, 0.25f), 22 * 45 + 11);
}

TEST(MeshCodecNormal, ACellIsReadAsARatioOf44ths) {
  float af[3];
  ASSERT_TRUE(KivMeshNormalOfCode(static_cast<uint16_t>((2 << 13) + 22 * 45 + 11), af));
  EXPECT_NEAR(af[1] / af[0], -0.5f, 1e-6f);
  EXPECT_NEAR(af[2] / af[0], 0.25f, 1e-6f);
  EXPECT_NEAR(af[0] * af[0] + af[1] * af[1] + af[2] * af[2], 1.0f, 1e-6f);
}

TEST(MeshCodecNormal, EveryCodeDecodesAsTheSlowCoderSays) {
  for (uint32_t iCode = 0; iCode < 0x10000; ++iCode) {
    const bool bCell = (iCode & 0x7FF) < 2025 || (iCode >> 11 & 3) == 3;
    float af[3], afSlow[3];
    ASSERT_EQ(KivMeshNormalOfCode(static_cast<uint16_t>(iCode), af), bCell);
    if (!bCell) continue;
    SlowCoder::NormalOf(static_cast<uint16_t>(iCode), afSlow);
    ASSERT_EQ(std::memcmp(af, afSlow, 12), 0) << iCode;
  }
}

TEST(MeshCodecNormal, ADecodedNormalCodesToItselfBelowTheLastCell) {
  for (uint32_t iCode = 0; iCode < 0x10000; ++iCode) {
    const uint32_t iCell = iCode & 0x7FF;
    const uint32_t iAxis = iCode >> 11 & 3;
    if (iAxis == 3 || iCell / 45 >= 44 || iCell % 45 >= 44) continue;  // a tie of axes may go to another one
    float af[3];
    ASSERT_TRUE(KivMeshNormalOfCode(static_cast<uint16_t>(iCode), af));
    uint32_t iSigns = iCode >> 13;  // the sign of a component that is 0 is lost
    if (iCell / 45 == 0) iSigns &= ~(1u << (iAxis + 1) % 3);
    if (iCell % 45 == 0) iSigns &= ~(1u << (iAxis + 2) % 3);
    ASSERT_EQ(KivMeshNormalCode(af[0], af[1], af[2]), iSigns << 13 | (iCode & 0x1FFF)) << iCode;
  }
}

TEST(MeshCodecNormal, ARunOf256IsAGroupOf255AndOneOf1) {
  std::vector<float> vf;
  for (int i = 0; i < 256; ++i) vf.insert(vf.end(), {0, 0, 1});
  EXPECT_EQ(PutNormals(vf, 256), FromHex("01  FF 00 10  01 00 10"));
  std::vector<float> vfBack;
  EXPECT_TRUE(GetNormals(FromHex("01  FF 00 10  01 00 10"), 256, vfBack));
  EXPECT_EQ(vfBack, vf);
}

TEST(MeshCodecNormal, EqualNormalsAreRunLengthCodedAndTwoDifferentOnesAreNot) {
  EXPECT_EQ(PutNormals({1, 0, 0, 1, 0, 0, 1, 0, 0}, 3), FromHex("01 03 00 00"));
  EXPECT_EQ(PutNormals({1, 0, 0, 0, 1, 0}, 2), FromHex("00 00 00 00 08"));
  // Two of one kind: 4 bytes are not more than 1.5 * 3.
  EXPECT_EQ(PutNormals({1, 0, 0, 1, 0, 0}, 2), FromHex("00 00 00 00 00"));
}

TEST(MeshCodecNormal, MissingNormalsAreZeroNormalsAndMoreAreLeftOut) {
  EXPECT_EQ(PutNormals({}, 4), FromHex("01 04 00 18"));
  EXPECT_EQ(PutNormals({1, 0, 0, 0, 1, 0}, 1), FromHex("00 00 00"));
  EXPECT_EQ(PutNormals({}, 0), FromHex("00"));
}

TEST(MeshCodecNormal, ARunTotalThatOvershootsIsRefused) {
  std::vector<float> vf;
  const uint64_t nBefore = Reports();
  EXPECT_FALSE(GetNormals(FromHex("01 03 00 00"), 2, vf));
  EXPECT_FALSE(GetNormals(FromHex("01 01 00 00 FF 00 00"), 255, vf));
  EXPECT_EQ(Reports(), nBefore + 2);
  EXPECT_TRUE(vf.empty());
}

TEST(MeshCodecNormal, GroupsOfNoneAreReadAndFormBytesOtherThanOneArePlain) {
  std::vector<float> vf;
  EXPECT_TRUE(GetNormals(FromHex("01 00 00 00 02 00 10"), 2, vf));
  EXPECT_EQ(vf, (std::vector<float>{0, 0, 1, 0, 0, 1}));
  EXPECT_TRUE(GetNormals(FromHex("07 00 10"), 1, vf));
  EXPECT_EQ(vf, (std::vector<float>{0, 0, 1}));
}

TEST(MeshCodecNormal, ACellOutsideTheTableIsRefused) {
  std::vector<float> vf;
  EXPECT_TRUE(GetNormals(FromHex("00 E8 07"), 1, vf));   // cell 2024
  EXPECT_FALSE(GetNormals(FromHex("00 E9 07"), 1, vf));  // cell 2025
  EXPECT_FALSE(GetNormals(FromHex("01 05 FF E7"), 5, vf));
}

TEST(MeshCodecNormal, NoMemoryIsTakenForACountThatTheBytesCannotHold) {
  std::vector<float> vf;
  EXPECT_FALSE(GetNormals(FromHex("00 00 00"), 0xFFFFFFFF, vf));
  EXPECT_FALSE(GetNormals(FromHex("01 FF 00 00"), 0xFFFFFFFF, vf));
  EXPECT_EQ(vf.capacity(), 0u);
}

// --- Indices --------------------------------------------------------------------------------------------------------

TEST(MeshCodecIndex, PlainFormsBySize) {
  EXPECT_EQ(PutIndices(Header(4, 1), 1, 1, {1, 2, 255}), FromHex("01 02 FF"));
  EXPECT_EQ(PutIndices(Header(4, 1), 1, 2, {1, 2, 65535}), FromHex("0100 0200 FFFF"));
  EXPECT_EQ(PutIndices(Header(4, 1), 1, 4, {1, 2, 0xFFFFFFFE}), FromHex("01000000 02000000 FEFFFFFF"));
  // A size of 1 is plain with delta coding allowed, too.
  EXPECT_EQ(PutIndices(Header(4, 1, kMeshDelta), 1, 1, {1, 2, 3}), FromHex("01 02 03"));
}

TEST(MeshCodecIndex, TheCountStandsBeforeTheIndicesWhereItIsStored) {
  const KivMemoryBlockFaceEdgeInterfaceData zHeader = Header(4, 1, kMeshIndexCount);
  EXPECT_EQ(PutIndices(zHeader, 1, 1, {0, 1, 2, 3, 4}), FromHex("05000000 00 01 02 03 04"));
  std::vector<uint32_t> vi;
  EXPECT_TRUE(GetIndices(zHeader, 1, 1, FromHex("05000000 00 01 02 03 04"), vi));
  EXPECT_EQ(vi, (std::vector<uint32_t>{0, 1, 2, 3, 4}));
  EXPECT_TRUE(GetIndices(zHeader, 1, 1, FromHex("00000000"), vi));
  EXPECT_TRUE(vi.empty());
}

TEST(MeshCodecIndex, ADifferenceOf64TakesTwoBytesAndOneOfMinus63One) {
  const KivMemoryBlockFaceEdgeInterfaceData zHeader = Header(4, 1, kMeshDelta);
  EXPECT_EQ(PutIndices(zHeader, 1, 2, {100, 164, 101}), FromHex("00 64  A0 3F  00"));
  EXPECT_EQ(PutIndices(zHeader, 1, 2, {100, 163, 99}), FromHex("00 64  7E  9F BF"));
}

TEST(MeshCodecIndex, EachDeltaClassAtItsLimits) {
  const KivMemoryBlockFaceEdgeInterfaceData zHeader = Header(4, 1, kMeshDelta);
  EXPECT_EQ(PutIndices(zHeader, 1, 4, {8191, 0, 8191}), FromHex("00 00 1F FF  80 00  BF FE"));
  EXPECT_EQ(PutIndices(zHeader, 1, 4, {8192, 0, 8192}), FromHex("00 00 20 00  CF DF FF  D0 1F FF"));
  EXPECT_EQ(PutIndices(zHeader, 1, 4, {0xFFFFF, 0, 0xFFFFF}), FromHex("00 0F FF FF  C0 00 00  DF FF FE"));
  EXPECT_EQ(PutIndices(zHeader, 1, 4, {0x100000, 0, 0x100000}), FromHex("00 10 00 00  EF EF FF FF  F0 0F FF FF"));
  EXPECT_EQ(PutIndices(zHeader, 1, 4, {0xFFFFFFF, 0, 0x10000000}), FromHex("0F FF FF FF  E0 00 00 00  FF FF FF FF"));
}

TEST(MeshCodecIndex, ADifferenceBeyond28BitsWrapsInTheFourByteClass) {
  const KivMemoryBlockFaceEdgeInterfaceData zHeader = Header(4, 1, kMeshDelta);
  EXPECT_EQ(PutIndices(zHeader, 1, 4, {0, 0x10000001, 0x10000001}), FromHex("00 00 00 00  E0 00 00 00  3F"));
  std::vector<uint32_t> vi;
  EXPECT_TRUE(GetIndices(zHeader, 1, 4, FromHex("00 00 00 00  E0 00 00 00  3F"), vi));
  EXPECT_EQ(vi, (std::vector<uint32_t>{0, 0xF0000001, 0xF0000001}));
}

TEST(MeshCodecIndex, AnIndexThatDoesNotFitFailsTheWriteInBothForms) {
  for (const uint32_t iFlags : {0u, kMeshDelta}) {
    Bytes vc(100);
    KivRecordWriter zWriter(vc.data(), vc.size());
    EXPECT_FALSE(KivMeshPutIndexStream(zWriter, Header(4, 1, iFlags), 1, 1, std::vector<uint32_t>{1, 2, 256}));
    EXPECT_FALSE(KivMeshPutIndexStream(zWriter, Header(4, 1, iFlags), 1, 2, std::vector<uint32_t>{1, 2, 65536}));
  }
}

TEST(MeshCodecIndex, AListOfAnotherLengthThanTheTrianglesFailsTheWriteWithoutACount) {
  Bytes vc(100);
  KivRecordWriter zWriter(vc.data(), vc.size());
  EXPECT_FALSE(KivMeshPutIndexStream(zWriter, Header(4, 1), 1, 4, std::vector<uint32_t>{1, 2, 3, 4}));
  EXPECT_TRUE(KivMeshPutIndexStream(zWriter, Header(4, 1, kMeshIndexCount), 1, 4, std::vector<uint32_t>{1, 2, 3, 4}));
}

TEST(MeshCodecIndex, AnEmptyListInDeltaFormIsReportedAndTakesNoBytes) {
  const uint64_t nBefore = Reports();
  EXPECT_EQ(PutIndices(Header(4, 1, kMeshDelta | kMeshIndexCount), 0, 4, {}), FromHex("00000000"));
  EXPECT_EQ(Reports(), nBefore + 1);
  EXPECT_STREQ(KivLastQuietReport().m_szCondition, "viTriVtxIndex.size() > 0");
}

TEST(MeshCodecIndex, AnIndexSizeOtherThanOneTwoFourIsRefusedOnARead) {
  std::vector<uint32_t> vi;
  EXPECT_FALSE(GetIndices(Header(4, 1), 1, 3, Bytes(9), vi));
  EXPECT_FALSE(GetIndices(Header(4, 1), 1, 0, Bytes(9), vi));
}

TEST(MeshCodecIndex, NoMemoryIsTakenForACountThatTheBytesCannotHold) {
  std::vector<uint32_t> vi;
  EXPECT_FALSE(GetIndices(Header(4, 1, kMeshIndexCount), 1, 4, FromHex("FFFFFFFF 00000000"), vi));
  EXPECT_FALSE(GetIndices(Header(4, 1, kMeshIndexCount | kMeshDelta), 1, 4, FromHex("FFFFFFFF 00000000"), vi));
  EXPECT_FALSE(GetIndices(Header(4, 1), 0xFFFFFFFF, 1, Bytes(64), vi));
  EXPECT_EQ(vi.capacity(), 0u);
}

// --- Sizing of entries ----------------------------------------------------------------------------------------------

namespace {

TestMesh OneTriangle() {
  TestMesh z;
  z.m_vfVertex = {0, 0, 0, 1, 0, 0, 0, 1, 0};
  z.m_vfNormal = {0, 0, 1, 0, 0, 1, 0, 0, 1};
  z.m_viIndex = {0, 1, 2};
  z.m_iTriangleCount = 1;
  z.m_zHeader.m_fStep = 1;
  z.FitBox();
  return z;
}

int64_t SizeOf(const TestMesh& zMesh, uint32_t iVertexCount) {
  KivMeshFaceView zView = zMesh.View();
  zView.m_iVertexCount = iVertexCount;
  uint8_t iLocal = 9;
  return KivMeshFaceSize(zMesh.m_zHeader, zMesh.m_afBox, zView, iLocal);
}

}  // namespace

TEST(MeshCodecSizing, EachInconsistencyHasItsCode) {
  TestMesh z = OneTriangle();
  EXPECT_EQ(SizeOf(z, 3), 1 + 12 + 9 + 1 + 3 + 12);
  z.m_zHeader.m_iCoordWidth = 3;
  EXPECT_EQ(SizeOf(z, 3), -55);
  z = OneTriangle();
  EXPECT_EQ(SizeOf(z, 0), -100);
  z.m_iTriangleCount = 0;
  EXPECT_EQ(SizeOf(z, 3), -110);
  z.m_zHeader.m_iMeshFlags = kMeshIndexCount;
  EXPECT_EQ(SizeOf(z, 3), 1 + 12 + 9 + 1 + 3 + 4 + 12);
  z.m_iIndexSize = 3;
  EXPECT_EQ(SizeOf(z, 3), -120);
  z = OneTriangle();
  EXPECT_EQ(SizeOf(z, 4), -130);
  z.m_viIndex.push_back(0);
  EXPECT_EQ(SizeOf(z, 3), -150);
  z = OneTriangle();
  z.m_viIndex[2] = 65536;
  EXPECT_EQ(SizeOf(z, 3), 38);
  z.m_iIndexSize = 2;
  EXPECT_EQ(SizeOf(z, 3), -170);
  z.m_zHeader.m_iMeshFlags = kMeshDelta;
  EXPECT_EQ(SizeOf(z, 3), -170);
  z.m_iIndexSize = 1;
  EXPECT_EQ(SizeOf(z, 3), -160);
}

TEST(MeshCodecSizing, AnEdgeHasItsOwnCodes) {
  const std::vector<float> vf = {0, 0, 0, 1, 1, 1};
  uint8_t iLocal = 9;
  EXPECT_EQ(KivMeshEdgeSize(Header(4, 1), kWideBox, 2, vf, iLocal), 1 + 12 + 6);
  EXPECT_EQ(iLocal, 1);
  EXPECT_EQ(KivMeshEdgeSize(Header(4, 1), kWideBox, 0, vf, iLocal), -300);
  EXPECT_EQ(KivMeshEdgeSize(Header(4, 1), kWideBox, 3, vf, iLocal), -330);
  EXPECT_EQ(KivMeshEdgeSize(Header(9, 1), kWideBox, 2, vf, iLocal), -55);
}

TEST(MeshCodecEntry, AFaceByHand) {
  const TestMesh z = OneTriangle();
  uint8_t iLocal = 9;
  const int64_t nBytes = KivMeshFaceSize(z.m_zHeader, z.m_afBox, z.View(), iLocal);
  EXPECT_EQ(PutFace(z, iLocal, static_cast<size_t>(nBytes)),
            FromHex("01  00000000 00000000 00000000  00 00 00  01 00 00  00 01 00"
                    "01  03 00 10"
                    "00000000 01000000 02000000"));
}

// --- Random meshes --------------------------------------------------------------------------------------------------

TEST(MeshCodecRandom, BytesAreThoseOfTheSlowCoderAndTheSizingAgrees) {
  const uint64_t iSeed = 20260101;
  SCOPED_TRACE(iSeed);
  const uint64_t nBefore = Reports();
  TestRandom zRandom(iSeed);
  for (uint64_t i = 0; i < Scaled(3000, 300); ++i) {
    const TestMesh zMesh = RandomMesh(zRandom);
    uint8_t iLocal = 9;
    const int64_t nBytes = KivMeshFaceSize(zMesh.m_zHeader, zMesh.m_afBox, zMesh.View(), iLocal);
    const Bytes vcSlow = SlowCoder(zMesh).Face();
    ASSERT_EQ(nBytes, static_cast<int64_t>(vcSlow.size())) << "mesh " << i;
    ASSERT_EQ(PutFace(zMesh, iLocal, vcSlow.size()), vcSlow) << "mesh " << i;

    const Bytes vcSlowEdge = SlowCoder(zMesh).Edge();
    const uint32_t nVertices = zMesh.View().m_iVertexCount;
    ASSERT_EQ(KivMeshEdgeSize(zMesh.m_zHeader, zMesh.m_afBox, nVertices, zMesh.m_vfVertex, iLocal),
              static_cast<int64_t>(vcSlowEdge.size()));
    Bytes vcEdge(vcSlowEdge.size());
    KivRecordWriter zWriter(vcEdge.data(), vcEdge.size());
    ASSERT_TRUE(KivMeshPutEdge(zWriter, zMesh.m_zHeader, zMesh.m_afBox, zMesh.m_vfVertex, iLocal));
    ASSERT_EQ(vcEdge, vcSlowEdge) << "mesh " << i;
  }
  EXPECT_EQ(Reports(), nBefore);
}

TEST(MeshCodecRandom, DecodedValuesAreTheCentresAndEncodeToTheSameBytesAgain) {
  const uint64_t iSeed = 20260202;
  SCOPED_TRACE(iSeed);
  TestRandom zRandom(iSeed);
  for (uint64_t i = 0; i < Scaled(2000, 200); ++i) {
    const TestMesh zMesh = RandomMesh(zRandom);
    const Bytes vc = SlowCoder(zMesh).Face();
    TestMesh zBack;
    uint8_t iLocal = 9;
    ASSERT_TRUE(GetFace(zMesh, vc.data(), vc.size(), zBack, iLocal)) << "mesh " << i;
    ASSERT_EQ(iLocal, vc[0]);
    ASSERT_EQ(zBack.m_viIndex, zMesh.m_viIndex) << "mesh " << i;
    const auto& zHeader = zMesh.m_zHeader;
    for (size_t k = 0; k < zMesh.m_vfVertex.size(); ++k) {
      const uint32_t iCell = SlowCoder::Cell(zMesh.m_vfVertex[k], zHeader.m_fOrigin[k % 3], zHeader.m_fStep);
      ASSERT_EQ(zBack.m_vfVertex[k], KivMeshCellCentre(iCell, zHeader.m_fOrigin[k % 3], zHeader.m_fStep)) << k;
    }
    for (size_t k = 0; k < zMesh.m_vfNormal.size(); k += 3) {
      float af[3];
      SlowCoder::NormalOf(SlowCoder::NormalCode(zMesh.m_vfNormal[k], zMesh.m_vfNormal[k + 1], zMesh.m_vfNormal[k + 2]),
                          af);
      ASSERT_EQ(std::memcmp(af, &zBack.m_vfNormal[k], 12), 0);
    }

    // Of the normals only a tie of axes changes, and only once.
    TestMesh zAgain = zBack;
    zAgain.m_vfNormal = zMesh.m_vfNormal;
    ASSERT_EQ(PutFace(zAgain, iLocal, vc.size()), vc) << "mesh " << i;
    const Bytes vcNormals = PutNormals(zBack.m_vfNormal, zBack.View().m_iVertexCount);
    std::vector<float> vfNormal;
    ASSERT_TRUE(GetNormals(vcNormals, zBack.View().m_iVertexCount, vfNormal));
    ASSERT_EQ(PutNormals(vfNormal, zBack.View().m_iVertexCount), vcNormals);
  }
}

TEST(MeshCodecRandom, BothTargetsGiveTheSameBits) {
  TestRandom zRandom(4711);
  uint64_t iHash = kHashStart;
  for (int i = 0; i < 200; ++i) {
    const TestMesh zMesh = RandomMesh(zRandom);
    uint8_t iLocal = 9;
    const int64_t nBytes = KivMeshFaceSize(zMesh.m_zHeader, zMesh.m_afBox, zMesh.View(), iLocal);
    ASSERT_GT(nBytes, 0);
    const Bytes vc = PutFace(zMesh, iLocal, static_cast<size_t>(nBytes));
    TestMesh zBack;
    ASSERT_TRUE(GetFace(zMesh, vc.data(), vc.size(), zBack, iLocal));
    iHash = HashOf(iHash, vc.data(), vc.size());
    iHash = HashOf(iHash, zBack.m_vfVertex.data(), zBack.m_vfVertex.size() * sizeof(float));
    iHash = HashOf(iHash, zBack.m_vfNormal.data(), zBack.m_vfNormal.size() * sizeof(float));
    iHash = HashOf(iHash, zBack.m_viIndex.data(), zBack.m_viIndex.size() * sizeof(uint32_t));
  }
  EXPECT_EQ(iHash, 13696828388554007406u);
}

TEST(MeshCodecRandom, EveryTruncationOfAFaceIsRefusedWithAReport) {
  TestRandom zRandom(99);
  for (uint64_t i = 0; i < Scaled(40, 10); ++i) {
    TestMesh zMesh = RandomMesh(zRandom);
    const Bytes vc = SlowCoder(zMesh).Face();
    const size_t nStep = 1 + vc.size() / 200;
    for (size_t nBytes = 0; nBytes < vc.size(); nBytes += nBytes + 40 < vc.size() && nBytes > 40 ? nStep : 1) {
      TestMesh zBack;
      uint8_t iLocal = 9;
      const uint64_t nBefore = Reports();
      ASSERT_FALSE(GetFace(zMesh, vc.data(), nBytes, zBack, iLocal));
      ASSERT_EQ(Reports(), nBefore + 1);
    }
  }
}

TEST(MeshCodecRandom, AnyChangedByteIsReadWithinTheRecordOrRefused) {
  TestRandom zRandom(5);
  for (uint64_t i = 0; i < Scaled(20, 4); ++i) {
    TestMesh zMesh = RandomMesh(zRandom);
    const Bytes vc = SlowCoder(zMesh).Face();
    for (size_t k = 0; k < vc.size(); k += 1 + vc.size() / 150) {
      for (int iChange = 0; iChange < 10; ++iChange) {
        Bytes vcChanged = vc;
        vcChanged[k] = iChange < 8    ? static_cast<uint8_t>(vc[k] ^ 1 << iChange)
                       : iChange == 8 ? uint8_t{0}
                                      : uint8_t{0xFF};
        TestMesh zBack;
        uint8_t iLocal = 9;
        if (!GetFace(zMesh, vcChanged.data(), vcChanged.size(), zBack, iLocal)) continue;
        ASSERT_EQ(zBack.m_vfVertex.size(), zMesh.m_vfVertex.size());
        ASSERT_EQ(zBack.m_vfNormal.size(), zMesh.m_vfVertex.size());
      }
    }
  }
}

TEST(MeshCodecRandom, AWriterThatIsOneByteShortIsRefused) {
  TestRandom zRandom(17);
  for (int i = 0; i < 100; ++i) {
    const TestMesh zMesh = RandomMesh(zRandom);
    uint8_t iLocal = 9;
    const int64_t nBytes = KivMeshFaceSize(zMesh.m_zHeader, zMesh.m_afBox, zMesh.View(), iLocal);
    const size_t nShort = static_cast<size_t>(nBytes) - 1;
    const std::unique_ptr<uint8_t[]> pOwn(new uint8_t[nShort]);
    KivRecordWriter zWriter(pOwn.get(), nShort);
    ASSERT_FALSE(KivMeshPutFace(zWriter, zMesh.m_zHeader, zMesh.m_afBox, zMesh.View(), iLocal));
  }
}

// --- Statistics -----------------------------------------------------------------------------------------------------

TEST(MeshStatistics, CountsAndLines) {
  KivMeshStatistics zStatistics;
  TestMesh z;
  z.m_zHeader = Header(4, 0.5f, kMeshIndexCount);
  z.m_vfVertex = {0.25f, 0.25f,  0.25f, 1.25f, 0.25f, 0.25f,  // 2 steps
                  4.75f, 7.75f,  0.25f,                       // 7 and 15 steps
                  8.75f, 7.75f,  0.25f,                       // 8 steps
                  8.75f, 40.75f, 0.25f};                      // 66 steps
  z.m_viIndex = {0, 1, 2, 100, 9000, 2000000, 0, 0x7FFFFFFF};
  z.m_iTriangleCount = 1;
  z.m_iIndexSize = 4;
  const uint64_t nBefore = Reports();
  zStatistics.AddFace(z.m_zHeader, z.View());
  EXPECT_EQ(Reports(), nBefore + 1);  // the last difference
  z.m_viIndex = {0, 1, 2};
  z.m_vfVertex.resize(3);
  z.m_iIndexSize = 2;
  zStatistics.AddFace(z.m_zHeader, z.View());
  z.m_iIndexSize = 1;
  zStatistics.AddFace(z.m_zHeader, z.View());
  EXPECT_EQ(Reports(), nBefore + 1);
  z.m_iIndexSize = 3;
  zStatistics.AddFace(z.m_zHeader, z.View());
  EXPECT_EQ(Reports(), nBefore + 2);
  const std::vector<KivWString> vcsLine = zStatistics.Lines();
  ASSERT_EQ(vcsLine.size(), 4u);
  EXPECT_EQ(vcsLine[0], u"iTriVertex = 8, iNormalTri = 4, iStripTri = 3");
  EXPECT_EQ(vcsLine[1], u"iTri1ByteVtxNum = 3, iTri2ByteVtxNum = 3, iTri4ByteVtxNum = 8");
  EXPECT_EQ(vcsLine[2], u"iDiff6BitVtxNum = 8, iDiff13BitVtxNum = 1, iDiff20BitVtxNum = 1, iDiff27BitVtxNum = 2");
  EXPECT_EQ(vcsLine[3], u"iVtxPM2XYZ = 1, iVtxPM7XYZ = 1, iVtxPM63XYZ = 1, iVtxPM255XYZ = 1");
}

TEST(MeshStatistics, TheFourLinesGoToTheTimingLog) {
  const kivtest::TestFolder zFolder;
  KivSetWorkFolder(zFolder.Path());
  KivMeshStatistics zStatistics;
  zStatistics.m_iTriVertex = 24;
  zStatistics.m_iVtxPM255XYZ = 7;
  zStatistics.WriteLog();
  const std::string strName = "KivLog" + std::to_string(sys::CurrentProcessNumber()) + ".txt";
  const std::string strText = zFolder.ReadBytes(sys::Utf8ToWide(strName));
  KivCloseLog();
  EXPECT_EQ(std::count(strText.begin(), strText.end(), '\n'), 4);
  size_t iAt = 0;
  for (const KivWString& csLine : zStatistics.Lines()) {
    iAt = strText.find("," + sys::WideToUtf8(csLine) + "\n", iAt);
    ASSERT_NE(iAt, std::string::npos) << sys::WideToUtf8(csLine);
  }
}

TEST(MeshStatistics, ADifferenceIsTruncatedAfterAThousandthOfAStepIsAdded) {
  KivMeshStatistics zStatistics;
  TestMesh z;
  z.m_zHeader = Header(4, 1);
  z.m_vfVertex = {3, 0, 0, 5.9995f, 0, 0, 3, 0, 0};  // 2.9995 is 3, and -2.9995 is -2
  zStatistics.AddFace(z.m_zHeader, z.View());
  EXPECT_EQ(zStatistics.m_iVtxPM2XYZ, 1);
  EXPECT_EQ(zStatistics.m_iVtxPM7XYZ, 1);
}
