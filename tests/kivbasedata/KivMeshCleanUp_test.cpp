#include "KivMeshCleanUp.h"

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <tuple>

#include "KivReportQuiet.h"
#include "KivTestMesh.h"

using namespace kiv;
using kivtest::TestRandom;

namespace {

using Triples = std::vector<uint32_t>;

Triples Kept(const Triples& vi, uint32_t n) {
  return Triples(vi.begin(), vi.begin() + 3 * static_cast<ptrdiff_t>(n));
}

}  // namespace

TEST(MeshCleanUp, OfConsecutiveEqualPointsTheFirstStays) {
  std::vector<float> vf = {1, 1, 1, 1, 1, 1, 2, 2, 2, 1, 1, 1, 1, 1, 1};
  EXPECT_EQ(KivDropConsecutivePoints(vf.data(), 5, false), 3u);
  vf.resize(9);
  EXPECT_EQ(vf, (std::vector<float>{1, 1, 1, 2, 2, 2, 1, 1, 1}));
}

TEST(MeshCleanUp, PointsAreComparedByTheirBits) {
  std::vector<float> vf = {0, 0, 0, -0.0f, 0, 0};
  EXPECT_EQ(KivDropConsecutivePoints(vf.data(), 2, false), 2u);
}

TEST(MeshCleanUp, APolylineOfOnePointKeepsTwoOnRequest) {
  std::vector<float> vf = {3, 4, 5, 3, 4, 5, 3, 4, 5};
  EXPECT_EQ(KivDropConsecutivePoints(vf.data(), 3, true), 2u);
  EXPECT_EQ(vf[3], 3);
  EXPECT_EQ(KivDropConsecutivePoints(vf.data(), 3, false), 1u);
  EXPECT_EQ(KivDropConsecutivePoints(vf.data(), 1, true), 1u);
  EXPECT_EQ(KivDropConsecutivePoints(nullptr, 0, true), 0u);
}

TEST(MeshCleanUp, TrianglesWithThreeDifferentIndicesStayWithTheirValues) {
  Triples vi = {0, 0, 1, 1, 2, 3, 4, 5, 4, 6, 7, 8};
  std::vector<uint16_t> viValue = {10, 11, 12, 13};
  ASSERT_EQ(KivDropDegenerateTriangles(4, vi.data(), viValue.data(), false), 2u);
  EXPECT_EQ(Kept(vi, 2), (Triples{1, 2, 3, 6, 7, 8}));
  EXPECT_EQ(viValue[0], 11);
  EXPECT_EQ(viValue[1], 13);
}

TEST(MeshCleanUp, WithoutAnyTwoDifferentIndicesAreEnoughAndThenTheFirstAlone) {
  Triples vi = {5, 5, 5, 1, 1, 2, 3, 4, 3};
  EXPECT_EQ(KivDropDegenerateTriangles(3, vi.data(), nullptr, false), 0u);
  ASSERT_EQ(KivDropDegenerateTriangles(3, vi.data(), nullptr, true), 2u);
  EXPECT_EQ(Kept(vi, 2), (Triples{1, 1, 2, 3, 4, 3}));
  Triples viEqual = {5, 5, 5, 6, 6, 6};
  EXPECT_EQ(KivDropDegenerateTriangles(2, viEqual.data(), nullptr, true), 1u);
  EXPECT_EQ(viEqual[0], 5u);
  EXPECT_EQ(KivDropDegenerateTriangles(0, nullptr, nullptr, true), 0u);
}

TEST(MeshCleanUp, TheFirstOfEachPointStaysInOrder) {
  Triples vi = {1, 2, 3, 3, 2, 1, 1, 2, 3, 9, 9, 9, 3, 2, 1};
  std::vector<uint16_t> viValue = {1, 2, 3, 4, 5};
  ASSERT_EQ(KivDropRepeatedPoints(5, vi.data(), viValue.data()), 3u);
  EXPECT_EQ(Kept(vi, 3), (Triples{1, 2, 3, 3, 2, 1, 9, 9, 9}));
  EXPECT_EQ(viValue[2], 4);
}

TEST(MeshCleanUp, WeldingAddsNormalsAndClosesUp) {
  Triples viTriangle = {0, 1, 2, 3, 4, 5};
  Triples viPoint = {0, 0, 0, 1, 0, 0, 0, 1, 0, 1, 0, 0, 5, 5, 5, 0, 1, 0};
  std::vector<KivWeldVertex> vz(6);
  for (auto& z : vz) z.m_zNormal = {0, 0, 1};
  vz[3].m_zNormal = {1, 0, 0};
  ASSERT_EQ(KivWeldVertices(2, viTriangle.data(), 6, viPoint.data(), vz.data()), 4u);
  EXPECT_EQ(viTriangle, (Triples{0, 1, 2, 1, 3, 2}));
  EXPECT_EQ(Kept(viPoint, 4), (Triples{0, 0, 0, 1, 0, 0, 0, 1, 0, 5, 5, 5}));
  EXPECT_NEAR(vz[1].m_zNormal.m_dX, std::sqrt(0.5), 1e-15);
  EXPECT_NEAR(vz[1].m_zNormal.m_dZ, std::sqrt(0.5), 1e-15);
  EXPECT_EQ(vz[2].m_zNormal, (KivECoord3{0, 0, 1}));
  for (size_t i = 0; i < 4; ++i) EXPECT_EQ(vz[i].m_iMergeNum, 1u);
}

TEST(MeshCleanUp, NormalsThatCancelStayAsTheyAre) {
  Triples viTriangle = {0, 1, 0};
  Triples viPoint = {7, 7, 7, 7, 7, 7};
  std::vector<KivWeldVertex> vz(2);
  vz[0].m_zNormal = {0, 0, 1};
  vz[1].m_zNormal = {0, 0, -1};
  ASSERT_EQ(KivWeldVertices(1, viTriangle.data(), 2, viPoint.data(), vz.data()), 1u);
  EXPECT_EQ(vz[0].m_zNormal, KivECoord3());
}

TEST(MeshCleanUp, ASurvivorOfOneVertexIsNotNormalised) {
  Triples viTriangle = {0, 0, 0};
  Triples viPoint = {7, 7, 7};
  KivWeldVertex z;
  z.m_zNormal = {0, 0, 9};
  ASSERT_EQ(KivWeldVertices(1, viTriangle.data(), 1, viPoint.data(), &z), 1u);
  EXPECT_EQ(z.m_zNormal.m_dZ, 9);
}

TEST(MeshCleanUp, WeldingOnEdgesNeedsAnEdgeBetweenTheTwo) {
  // 0, 2 and 4 share a point; only 2 and 4 are joined.
  Triples viTriangle = {0, 1, 3, 2, 4, 3};
  Triples viPoint = {7, 7, 7, 1, 1, 1, 7, 7, 7, 2, 2, 2, 7, 7, 7};
  std::vector<KivWeldVertex> vz(5);
  ASSERT_EQ(KivWeldVerticesOnEdges(2, viTriangle.data(), 5, viPoint.data(), vz.data()), 4u);
  EXPECT_EQ(viTriangle, (Triples{0, 1, 3, 2, 2, 3}));
}

TEST(MeshCleanUp, AMergedVertexIsNoCandidateForALaterOne) {
  // 1 merges into 0; 2 is joined to 1 only, and stays.
  Triples viTriangle = {0, 1, 3, 1, 2, 3};
  Triples viPoint = {7, 7, 7, 7, 7, 7, 7, 7, 7, 2, 2, 2};
  std::vector<KivWeldVertex> vz(4);
  ASSERT_EQ(KivWeldVerticesOnEdges(2, viTriangle.data(), 4, viPoint.data(), vz.data()), 3u);
  EXPECT_EQ(viTriangle, (Triples{0, 0, 2, 0, 1, 2}));
}

TEST(MeshCleanUp, AnIndexBeyondTheVerticesIsReportedAndChangesNothing) {
  Triples viTriangle = {0, 1, 2};
  Triples viPoint = {7, 7, 7, 7, 7, 7};
  std::vector<KivWeldVertex> vz(2);
  const uint64_t nBefore = KivLastQuietReport().m_iNumber;
  EXPECT_EQ(KivWeldVertices(1, viTriangle.data(), 2, viPoint.data(), vz.data()), 2u);
  EXPECT_EQ(KivWeldVerticesOnEdges(1, viTriangle.data(), 2, viPoint.data(), vz.data()), 2u);
  EXPECT_EQ(KivWeldPoints(1, viTriangle.data(), 2, viPoint.data()), 2u);
  EXPECT_EQ(KivLastQuietReport().m_iNumber, nBefore + 3);
  EXPECT_EQ(viTriangle, (Triples{0, 1, 2}));
}

TEST(MeshCleanUp, RandomWeldsAgreeWithAPlainModel) {
  const uint64_t iSeed = 31;
  SCOPED_TRACE(iSeed);
  TestRandom zRandom(iSeed);
  for (int iRound = 0; iRound < 300; ++iRound) {
    const uint32_t nVertices = 1 + zRandom.Below(60);
    const uint32_t nTriangles = zRandom.Below(80);
    const uint32_t nPlaces = 1 + zRandom.Below(3);
    Triples viPoint, viTriangle;
    for (uint32_t i = 0; i < 3 * nVertices; ++i) viPoint.push_back(zRandom.Below(nPlaces));
    for (uint32_t i = 0; i < 3 * nTriangles; ++i) viTriangle.push_back(zRandom.Below(nVertices));
    const bool bOnEdges = iRound % 2 == 1;

    // The model: each vertex looks through all earlier survivors.
    const auto Point = [&](uint32_t i) { return std::tuple(viPoint[3 * i], viPoint[3 * i + 1], viPoint[3 * i + 2]); };
    std::set<std::pair<uint32_t, uint32_t>> spEdge;
    for (uint32_t i = 0; i < 3 * nTriangles; i += 3)
      for (uint32_t k = 0; k < 3; ++k) spEdge.insert(std::minmax({viTriangle[i + k], viTriangle[i + (k + 1) % 3]}));
    std::vector<uint32_t> viSurvivor, viNew(nVertices);
    for (uint32_t i = 0; i < nVertices; ++i) {
      uint32_t iInto = static_cast<uint32_t>(viSurvivor.size());
      for (uint32_t k = 0; k < viSurvivor.size(); ++k) {
        if (Point(viSurvivor[k]) != Point(i) || (bOnEdges && !spEdge.contains({viSurvivor[k], i}))) continue;
        iInto = k;
        break;
      }
      if (iInto == viSurvivor.size()) viSurvivor.push_back(i);
      viNew[i] = iInto;
    }
    Triples viExpected, viExpectedPoint;
    for (const uint32_t i : viTriangle) viExpected.push_back(viNew[i]);
    for (const uint32_t i : viSurvivor)
      viExpectedPoint.insert(viExpectedPoint.end(), {viPoint[3 * i], viPoint[3 * i + 1], viPoint[3 * i + 2]});

    std::vector<KivWeldVertex> vz(nVertices);
    Triples viPlainTriangle = viTriangle, viPlainPoint = viPoint;
    const uint32_t nLeft =
        bOnEdges ? KivWeldVerticesOnEdges(nTriangles, viTriangle.data(), nVertices, viPoint.data(), vz.data())
                 : KivWeldVertices(nTriangles, viTriangle.data(), nVertices, viPoint.data(), vz.data());
    ASSERT_EQ(nLeft, viSurvivor.size());
    ASSERT_EQ(viTriangle, viExpected);
    ASSERT_EQ(Kept(viPoint, nLeft), viExpectedPoint);
    if (bOnEdges) continue;
    ASSERT_EQ(KivWeldPoints(nTriangles, viPlainTriangle.data(), nVertices, viPlainPoint.data()), nLeft);
    ASSERT_EQ(viPlainTriangle, viExpected);
  }
}
