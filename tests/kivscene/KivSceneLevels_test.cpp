#include "KivSceneLevels.h"

#include <gtest/gtest.h>

#include <map>
#include <set>

#include "KivReportQuiet.h"
#include "KivTestElement.h"
#include "KivTestScene.h"

namespace {

using namespace kiv;
using namespace kivtest;

KivSceneBox BoxOf(const KivSceneFace& z) {
  KivSceneBox zBox;
  zBox.AddPoints(z.m_vdVertex);
  return zBox;
}

struct Level {
  explicit Level(const std::vector<KivSceneFace>& vzGroup, double dTolerance, bool bFinest = false) {
    KivSceneBox zBox;
    for (const KivSceneFace& z : vzGroup) zBox.AddPoints(z.m_vdVertex);
    std::vector<KivSceneFace> vzCopy = vzGroup;
    m_zRegions = KivFindSceneRegions(vzCopy, 30);
    m_pzBlock = NewBlock<KivMemoryBlockFaceEdge>();
    KivSceneMesh zMesh(*m_pzBlock, zBox, dTolerance, bFinest);
    m_viIndex = bFinest ? m_zRegions.m_viIndex : KivSimplifyRegions(m_zRegions, m_zRegions.m_viIndex, zBox, dTolerance);
    KivPutRegions(m_zRegions, m_viIndex, std::vector<KivSceneGroup>(vzGroup.size()), zMesh);
    zMesh.Finish();
  }
  std::vector<Triangle> Triangles() const { return TrianglesOf(*m_pzBlock); }

  KivSceneRegions m_zRegions;
  std::vector<uint32_t> m_viIndex;
  std::unique_ptr<KivMemoryBlockFaceEdge> m_pzBlock;
};

KivMemoryBlockFaceEdgeInterfaceData Quantised(const KivSceneFace& z, double dTolerance, bool bFinest) {
  const auto pzBlock = NewBlock<KivMemoryBlockFaceEdge>();
  KivSceneMesh zMesh(*pzBlock, BoxOf(z), dTolerance, bFinest);
  EXPECT_TRUE(zMesh.AddFace(1, z.m_vdVertex, {}, z.m_viIndex, std::nullopt, std::nullopt));
  // What is put is what comes back.
  const uint64_t nReports = QuietReports();
  for (size_t i = 0; i < z.m_vdVertex.size(); ++i) {
    const float f = pzBlock->m_vzFace[0].m_vfVertex[i];
    const uint32_t iCell = KivMeshQuantise(f, pzBlock->m_fOrigin[i % 3], pzBlock->m_fStep);
    EXPECT_EQ(KivMeshCellCentre(iCell, pzBlock->m_fOrigin[i % 3], pzBlock->m_fStep), f);
    EXPECT_LT(iCell, pzBlock->m_iCoordWidth == 2 ? 65536u : 8388608u);
    const double dFloats = std::abs(static_cast<double>(std::nextafter(f, 1e38f)) - static_cast<double>(f));
    EXPECT_LE(std::abs(static_cast<double>(f) - z.m_vdVertex[i]),
              0.5001 * static_cast<double>(pzBlock->m_fStep) + dFloats);
  }
  EXPECT_EQ(QuietReports(), nReports);
  return *pzBlock;
}

}  // namespace

// --- Quantising -----------------------------------------------------------------------------------------------------

TEST(SceneMesh, TheStepIsAPowerOfTwoOfASixteenthOfTheToleranceAtTheMost) {
  const auto zCoarse = Quantised(Cube(1000), 1, false);
  EXPECT_EQ(zCoarse.m_fStep, 0.0625f);
  EXPECT_EQ(zCoarse.m_iCoordWidth, 2u);
  const auto zFine = Quantised(Cube(1000), 0.01, false);
  EXPECT_EQ(zFine.m_iCoordWidth, 4u);
  EXPECT_EQ(zFine.m_fStep, 0.00048828125f);
}

TEST(SceneMesh, TheFinestLevelTakesTheSmallestStepOfItsWidth) {
  const auto zWide = Quantised(Cube(1000), 0.01, true);
  EXPECT_EQ(zWide.m_iCoordWidth, 4u);
  EXPECT_EQ(zWide.m_fStep, 0x1p-12f);
  const auto zShort = Quantised(Cube(1000), 1, true);
  EXPECT_EQ(zShort.m_iCoordWidth, 2u);
  EXPECT_EQ(zShort.m_fStep, 0x1p-6f);
}

TEST(SceneMesh, AMeshSmallerThanTheToleranceKeepsAThousandStepsOfItsSize) {
  const auto z = Quantised(Cube(0.5), 1000, false);
  EXPECT_EQ(z.m_iCoordWidth, 2u);
  EXPECT_LE(z.m_fStep, 0.5f / 1024);
}

TEST(SceneMesh, NiceCoordinatesStayExact) {
  const auto pzBlock = NewBlock<KivMemoryBlockFaceEdge>();
  const KivSceneFace z = Cube(100, {-50, 0.5, 1000.25});
  KivSceneMesh zMesh(*pzBlock, BoxOf(z), 1, false);
  zMesh.AddFace(1, z.m_vdVertex, {}, z.m_viIndex, std::nullopt, std::nullopt);
  for (size_t i = 0; i < z.m_vdVertex.size(); ++i)
    EXPECT_EQ(static_cast<double>(pzBlock->m_vzFace[0].m_vfVertex[i]), z.m_vdVertex[i]);
}

TEST(SceneMesh, FarFromTheOriginCoordinatesAreAsExactAsFloats) {
  for (const double dFar : {1e3, 12345.678, 1e5, 1e6, -1e7, 3e8}) {
    const auto pzBlock = NewBlock<KivMemoryBlockFaceEdge>();
    const KivSceneFace z = Cube(10, {dFar, -dFar, dFar / 3});
    KivSceneMesh zMesh(*pzBlock, BoxOf(z), 1e-5, true);
    zMesh.AddFace(1, z.m_vdVertex, {}, z.m_viIndex, std::nullopt, std::nullopt);
    for (size_t i = 0; i < z.m_vdVertex.size(); ++i)
      EXPECT_NEAR(pzBlock->m_vzFace[0].m_vfVertex[i], static_cast<float>(z.m_vdVertex[i]), 10 * 0x1p-21) << dFar;
    Quantised(z, 1e-5, true);
    Quantised(z, 100, true);
    Quantised(z, 100, false);
  }
}

TEST(SceneMesh, HugeTinyAndFlatMeshesAreHeld) {
  for (const double d : {1e-35, 1e-20, 1e-3, 1e15, 9e28})
    for (const bool bFinest : {false, true}) {
      Quantised(Cube(d), 0.01, bFinest);
      Quantised(Cube(d), 0, bFinest);
      Quantised(Cube(d), d / 100, bFinest);
    }
  KivSceneFace zPoint;
  AddTriangle(zPoint, {7, 7, 7}, {7, 7, 7}, {7, 7, 7});
  Quantised(zPoint, 0.01, true);
  Quantised(zPoint, 0, false);
  KivSceneFace zFlat;
  AddTriangle(zFlat, {0, 0, 5}, {1, 0, 5}, {0, 1, 5});
  EXPECT_EQ(Quantised(zFlat, 0.1, true).m_iCoordWidth, 2u);
}

TEST(SceneMesh, IndicesTakeTheSmallestSizeAndDeltaCodingOnlyWhereItHelps) {
  const Level zSmall({Cube(1)}, 0.1, true);
  for (const KivMeshFace& z : zSmall.m_pzBlock->m_vzFace) EXPECT_EQ(z.m_iIndexSize, 1u);
  EXPECT_EQ(zSmall.m_pzBlock->m_iMeshFlags, 0u);  // nothing to win
  const Level zLarge({Sphere(10, 24)}, 0.1, true);
  EXPECT_EQ(zLarge.m_pzBlock->m_vzFace[0].m_iIndexSize, 2u);
  EXPECT_EQ(zLarge.m_pzBlock->m_iMeshFlags, kMeshDelta);
}

TEST(SceneMesh, FacesWithoutTrianglesAndEdgesWithoutPointsAreLeftOut) {
  const auto pzBlock = NewBlock<KivMemoryBlockFaceEdge>();
  KivSceneBox zBox;
  KivSceneMesh zMesh(*pzBlock, zBox, 1, true);
  EXPECT_FALSE(zMesh.AddFace(1, {}, {}, {}, std::nullopt, std::nullopt));
  EXPECT_FALSE(zMesh.AddEdge(1, {}, std::nullopt, std::nullopt));
  EXPECT_EQ(pzBlock->m_vzFace.size() + pzBlock->m_vzEdge.size(), 0u);
}

// --- Levels ---------------------------------------------------------------------------------------------------------

TEST(SceneLevels, NoPointIsFartherFromTheSourceThanTheTolerance) {
  const std::vector<std::vector<KivSceneFace>> vvzMesh = {
      {Sphere(50, 10)}, {Sphere(50, 9, 1)}, {Sphere(50, 8), Cube(60, {20, 20, 20})}};
  for (const std::vector<KivSceneFace>& vzMesh : vvzMesh) {
    std::vector<Triangle> vzSource;
    for (const KivSceneFace& z : vzMesh) {
      const std::vector<Triangle> vz = TrianglesOf(z);
      vzSource.insert(vzSource.end(), vz.begin(), vz.end());
    }
    size_t nBefore = vzSource.size() + 1;
    for (const double dTolerance : {0.3, 1.0, 2.5}) {
      const std::vector<Triangle> vz = Level(vzMesh, dTolerance).Triangles();
      const double dThere = LargestDistance(vz, vzSource), dBack = LargestDistance(vzSource, vz);
      EXPECT_LE(dThere, dTolerance);
      EXPECT_LE(dBack, dTolerance);
      EXPECT_LE(vz.size(), nBefore);
      nBefore = vz.size();
    }
    EXPECT_LT(nBefore, vzSource.size());
  }
}

TEST(SceneLevels, TheFinestLevelHasTheTrianglesOfTheSource) {
  const KivSceneFace zSource = Sphere(50, 12, 0.5);
  const Level zLevel({zSource}, 1, true);
  const std::vector<Triangle> vzSource = TrianglesOf(zSource), vz = zLevel.Triangles();
  ASSERT_EQ(vz.size(), vzSource.size());
  for (size_t i = 0; i < vz.size(); ++i)
    for (size_t k = 0; k < 3; ++k)
      for (size_t x = 0; x < 3; ++x) ASSERT_NEAR(vz[i].m_az[k][x], vzSource[i].m_az[k][x], 100. / 65000);
}

TEST(SceneLevels, RegionsKeepMeetingAlongTheirLines) {
  // Each wall of a cube as a grid: its inside goes, the corners stay, and no gap opens.
  KivSceneFace z;
  const auto Wall = [&](auto&& pfnPoint) {
    constexpr int n = 8;
    for (int i = 0; i < n; ++i)
      for (int k = 0; k < n; ++k)
        AddSquare(z, pfnPoint(i, k), pfnPoint(i + 1, k), pfnPoint(i + 1, k + 1), pfnPoint(i, k + 1));
  };
  Wall([](double i, double k) { return Point{k, i, 0}; });
  Wall([](double i, double k) { return Point{i, k, 8}; });
  Wall([](double i, double k) { return Point{i, 0, k}; });
  Wall([](double i, double k) { return Point{k, 8, i}; });
  Wall([](double i, double k) { return Point{0, k, i}; });
  Wall([](double i, double k) { return Point{8, i, k}; });
  const Level zLevel({z}, 0.1);
  ASSERT_EQ(zLevel.m_pzBlock->m_vzFace.size(), 6u);
  ASSERT_EQ(zLevel.m_pzBlock->m_vzEdge.size(), 12u);
  EXPECT_LT(zLevel.Triangles().size(), 60u);  // of 768
  EXPECT_NEAR(Area(zLevel.Triangles()), 6 * 64, 1e-9);
  for (const KivMeshEdge& zEdge : zLevel.m_pzBlock->m_vzEdge) EXPECT_LT(zEdge.m_iVertexCount, 5u);
  std::map<std::set<Point>, int> mapEdge;
  for (const Triangle& t : zLevel.Triangles())
    for (size_t k = 0; k < 3; ++k) ++mapEdge[{t.m_az[k], t.m_az[(k + 1) % 3]}];
  for (const auto& [zEdge, n] : mapEdge) EXPECT_EQ(n, 2);
}

TEST(SceneLevels, EachRegionAndLineStaysInEachLevelUnderItsNumber) {
  // Small islands of another group on a plate, far below the tolerance.
  KivSceneFace zPlate, zIsland;
  for (int i = 0; i < 20; ++i)
    for (int k = 0; k < 20; ++k) {
      KivSceneFace& z = i % 5 == 2 && k % 5 == 2 ? zIsland : zPlate;
      const double x = i, y = k;
      AddSquare(z, {x, y, 0}, {x + 1, y, 0}, {x + 1, y + 1, 0}, {x, y + 1, 0});
    }
  const Level zFine({zPlate, zIsland}, 1e-3, true), zCoarse({zPlate, zIsland}, 100);
  ASSERT_EQ(zFine.m_pzBlock->m_vzFace.size(), 17u);
  ASSERT_EQ(zCoarse.m_pzBlock->m_vzFace.size(), 17u);
  ASSERT_EQ(zFine.m_pzBlock->m_vzEdge.size(), zCoarse.m_pzBlock->m_vzEdge.size());
  for (uint32_t i = 0; i < 17; ++i) EXPECT_EQ(zCoarse.m_pzBlock->m_vzFace[i].m_iId, i + 1);
  for (const KivMeshEdge& z : zCoarse.m_pzBlock->m_vzEdge) EXPECT_GE(z.m_iVertexCount, 2u);
  EXPECT_LT(zCoarse.Triangles().size(), 200u);
}

TEST(SceneLevels, PointsOfLinesAreVerticesOfTheLevel) {
  const Level zLevel({Sphere(50, 24), Cube(60, {20, 20, 20})}, 1.5);
  std::set<Point> siVertex;
  for (const Triangle& t : zLevel.Triangles()) siVertex.insert(t.m_az.begin(), t.m_az.end());
  for (const KivMeshEdge& z : zLevel.m_pzBlock->m_vzEdge)
    for (size_t i = 0; i < z.m_vfVertex.size(); i += 3)
      EXPECT_TRUE(siVertex.count({z.m_vfVertex[i], z.m_vfVertex[i + 1], z.m_vfVertex[i + 2]}));
}

TEST(SceneLevels, AMeshSmallerThanTheToleranceIsStillAMesh) {
  const Level zLevel({Sphere(0.001, 16)}, 1000);
  EXPECT_GT(Area(zLevel.Triangles()), 0.6 * 4 * std::numbers::pi * 1e-6);
}
