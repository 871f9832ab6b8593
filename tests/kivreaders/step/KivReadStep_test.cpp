#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <set>

#include "Bracket.h"
#include "KivSceneReader.h"
#include "KivStepDocument.h"
#include "KivSysFolder.h"
#include "KivTestFolder.h"
#include "NurbsModel.h"
#include "StepSamples.h"

namespace kiv {
namespace {

using kivtest::StepMeasures;
using kivtest::TestFolder;
using testing::Each;
using testing::HasSubstr;

const std::vector<double> kTolerances = {1, 0.1, 0.01};

// A file that a function writes, and its scene.
class Sample {
 public:
  explicit Sample(bool (*pfnWrite)(const std::string&), const std::vector<double>& vdTolerance = kTolerances) {
    EXPECT_TRUE(pfnWrite(Utf8Path()));
    KivReadStep(Path(), vdTolerance, m_zScene);
    std::string strError;
    EXPECT_TRUE(KivCheckScene(m_zScene, strError)) << strError;
  }
  KivWString Path() const { return m_zFolder / u"sample.step"; }
  std::string Utf8Path() const { return sys::WideToUtf8(Path()); }
  const TestFolder& Folder() const { return m_zFolder; }
  const KivScene& Scene() const { return m_zScene; }
  // The only one with this name.
  const KivScenePart& Part(const KivWString& csName) const {
    for (const KivScenePart& z : m_zScene.m_vzPart)
      if (z.m_csName == csName) return z;
    throw std::runtime_error("no such part");
  }

 private:
  TestFolder m_zFolder;
  KivScene m_zScene;
};

// The sample assembly is read once for all tests of a process.
const Sample& Bracket() {
  static const Sample s_zBracket(WriteBracket);
  return s_zBracket;
}

KivECoord3 Vertex(const std::vector<double>& vd, size_t i) {
  return {vd[3 * i], vd[3 * i + 1], vd[3 * i + 2]};
}

KivEMatrix4 InModel(const KivScene& zScene, uint32_t iNode) {
  KivEMatrix4 zMatrix;
  for (; iNode != kNoSceneIndex; iNode = zScene.m_vzNode[iNode].m_iParent)
    zMatrix = zMatrix * zScene.m_vzNode[iNode].m_zMatrix;
  return zMatrix;
}

struct MeshMeasures {
  double m_dVolume = 0, m_dArea = 0;
  KivECoord3 m_zMin{1e30, 1e30, 1e30}, m_zMax{-1e30, -1e30, -1e30};
};

// Of all parts where they stand.
MeshMeasures Measure(const KivScene& zScene, size_t iLevel) {
  MeshMeasures z;
  for (uint32_t iNode = 0; iNode < zScene.m_vzNode.size(); ++iNode) {
    const KivEMatrix4 zMatrix = InModel(zScene, iNode);
    for (const uint32_t iPart : zScene.m_vzNode[iNode].m_viPart)
      for (const KivSceneFace& zFace : zScene.m_vzPart[iPart].m_vzLevel[iLevel].m_vzFace)
        for (size_t i = 0; i < zFace.m_viIndex.size(); i += 3) {
          KivECoord3 az[3];
          for (size_t k = 0; k < 3; ++k) {
            az[k] = zMatrix.TransformPoint(Vertex(zFace.m_vdVertex, zFace.m_viIndex[i + k]));
            z.m_zMin = {std::min(z.m_zMin.m_dX, az[k].m_dX), std::min(z.m_zMin.m_dY, az[k].m_dY),
                        std::min(z.m_zMin.m_dZ, az[k].m_dZ)};
            z.m_zMax = {std::max(z.m_zMax.m_dX, az[k].m_dX), std::max(z.m_zMax.m_dY, az[k].m_dY),
                        std::max(z.m_zMax.m_dZ, az[k].m_dZ)};
          }
          const KivECoord3 zArea = (az[1] - az[0]).Cross(az[2] - az[0]);
          z.m_dArea += zArea.Length() / 2;
          z.m_dVolume += zArea.Dot(az[0]) / 6;
        }
  }
  return z;
}

std::string Refusal(const KivWString& csSource) {
  KivScene zScene;
  try {
    KivReadStep(csSource, {1}, zScene);
  } catch (const KivSceneError& e) {
    return e.what();
  }
  return "";
}

// --- The tree -------------------------------------------------------------------------------------------------------

TEST(ReadStep, TheTreeHasTheNamesOfPlacesAndTheirPlacements) {
  const KivScene& zScene = Bracket().Scene();
  EXPECT_EQ(zScene.m_dMetresPerUnit, 0.001);
  EXPECT_THAT(zScene.m_vstrWarning, testing::IsEmpty());
  ASSERT_EQ(zScene.m_vzNode.size(), 14u);
  EXPECT_EQ(zScene.m_vzNode[0].m_csName, u"Bracket assembly");
  EXPECT_EQ(zScene.m_vzNode[0].m_iParent, kNoSceneIndex);
  EXPECT_TRUE(zScene.m_vzNode[0].m_viPart.empty());
  EXPECT_EQ(zScene.m_vzNode[1].m_csName, u"Plate");
  EXPECT_EQ(zScene.m_vzNode[1].m_zMatrix.GetTranslation(), (KivECoord3{-40, 0, 0}));
  const KivECoord3 azPlace[4] = {{-10, -20, 8}, {-10, 20, 8}, {25, -20, 8}, {25, 20, 8}};
  for (uint32_t i = 0; i < 4; ++i) {
    const uint32_t iNode = 2 + 3 * i;
    const KivSceneNode& zFastener = zScene.m_vzNode[iNode];
    EXPECT_EQ(zFastener.m_csName, u"Fastener " + KivWString(1, static_cast<char16_t>(u'1' + i)));
    EXPECT_EQ(zFastener.m_iParent, 0u);
    EXPECT_EQ(zFastener.m_zMatrix.GetTranslation(), azPlace[i]);
    EXPECT_EQ(zScene.m_vzNode[iNode + 1].m_csName, u"Bolt");
    EXPECT_EQ(zScene.m_vzNode[iNode + 2].m_csName, u"Washer");
    EXPECT_EQ(zScene.m_vzNode[iNode + 1].m_iParent, iNode);
    EXPECT_EQ(zScene.m_vzNode[iNode + 2].m_iParent, iNode);
  }
  // The last one is turned by 0.25 from x to y: a row vector (1, 0, 0) becomes the first row.
  const KivEMatrix4& zTurned = zScene.m_vzNode[11].m_zMatrix;
  EXPECT_NEAR(zTurned[0], std::cos(0.25), 1e-9);
  EXPECT_NEAR(zTurned[1], std::sin(0.25), 1e-9);
  EXPECT_NEAR(zTurned[4], -std::sin(0.25), 1e-9);
  EXPECT_TRUE(zTurned.IsAffine());
}

TEST(ReadStep, PartsThatAreTheSameInTheSourceAreOnePart) {
  const KivScene& zScene = Bracket().Scene();
  ASSERT_EQ(zScene.m_vzPart.size(), 3u);
  std::map<KivWString, int> vnUsed;
  for (const KivSceneNode& zNode : zScene.m_vzNode)
    for (const uint32_t iPart : zNode.m_viPart) ++vnUsed[zScene.m_vzPart[iPart].m_csName];
  EXPECT_EQ(vnUsed, (std::map<KivWString, int>{{u"Bracket plate", 1}, {u"Bolt M6x20", 4}, {u"Washer 6", 4}}));
}

TEST(ReadStep, ColoursStandAtPlacesAndAtFacesThatHaveTheirOwn) {
  const KivScene& zScene = Bracket().Scene();
  const auto Linear = [](double d) { return d <= 0.04045 ? d / 12.92 : std::pow((d + 0.055) / 1.055, 2.4); };
  const auto ExpectColour = [&](const std::optional<KivColour>& fColour, double dRed, double dGreen, double dBlue) {
    ASSERT_TRUE(fColour.has_value());
    EXPECT_NEAR((*fColour)[0], Linear(dRed), 1e-5);
    EXPECT_NEAR((*fColour)[1], Linear(dGreen), 1e-5);
    EXPECT_NEAR((*fColour)[2], Linear(dBlue), 1e-5);
    EXPECT_EQ((*fColour)[3], 1);
  };
  ExpectColour(zScene.m_vzNode[1].m_fColour, 0.45, 0.6, 0.8);  // of the part
  ExpectColour(zScene.m_vzNode[2].m_fColour, 0.3, 0.3, 0.32);  // of the place
  ExpectColour(zScene.m_vzNode[11].m_fColour, 0.9, 0.1, 0.1);
  EXPECT_FALSE(zScene.m_vzNode[12].m_fColour.has_value());  // the bolt takes that of its place
  ExpectColour(zScene.m_vzNode[13].m_fColour, 0.8, 0.75, 0.3);
  for (const KivSceneLevel& zLevel : Bracket().Part(u"Bracket plate").m_vzLevel) {
    size_t nHoles = 0, nFronts = 0;
    for (const KivSceneFace& zFace : zLevel.m_vzFace) {
      if (!zFace.m_fColour) continue;
      const bool bHole = (*zFace.m_fColour)[0] > 0.9;
      if (bHole)
        ExpectColour(zFace.m_fColour, 1, 0.5, 0);
      else
        ExpectColour(zFace.m_fColour, 0, 0.6, 0.2);
      ++(bHole ? nHoles : nFronts);
      for (size_t i = 0; i < zFace.m_vdVertex.size() && !bHole; i += 3) EXPECT_NEAR(zFace.m_vdVertex[i], 0, 1e-9);
    }
    EXPECT_EQ(nHoles, 4u);
    EXPECT_EQ(nFronts, 1u);
  }
}

TEST(ReadStep, LayersOfPartsStandAtTheirPlaces) {
  const KivScene& zScene = Bracket().Scene();
  ASSERT_EQ(zScene.m_vzLayer.size(), 2u);
  std::map<uint32_t, KivWString> vcsLayer;
  for (const KivSceneLayer& z : zScene.m_vzLayer) {
    EXPECT_TRUE(z.m_bOn);
    vcsLayer[z.m_iLayer] = z.m_csName;
  }
  for (const KivSceneNode& zNode : zScene.m_vzNode) {
    if (zNode.m_viPart.empty()) {
      EXPECT_FALSE(zNode.m_iLayer.has_value());
      continue;
    }
    ASSERT_TRUE(zNode.m_iLayer.has_value());
    EXPECT_EQ(vcsLayer[*zNode.m_iLayer], zNode.m_csName == u"Plate" ? u"Plates" : u"Fasteners");
  }
}

TEST(ReadStep, StylesInsideAPartGoToItsFacesAndTheInnerOneCounts) {
  const Sample zSample(kivtest::WriteStepStyles);
  const KivScene& zScene = zSample.Scene();
  ASSERT_EQ(zScene.m_vzPart.size(), 1u);
  EXPECT_EQ(zScene.m_vzPart[0].m_csName, u"Gr\u00f6\u00dfe \u90e8\u54c1");
  std::map<KivWString, bool> vbOn;
  std::map<KivWString, uint32_t> viLayer;
  for (const KivSceneLayer& z : zScene.m_vzLayer) {
    vbOn[z.m_csName] = z.m_bOn;
    viLayer[z.m_csName] = z.m_iLayer;
  }
  EXPECT_EQ(vbOn, (std::map<KivWString, bool>{{u"Inside", true}, {u"One", true}, {u"Two", false}}));
  EXPECT_THAT(zScene.m_vstrWarning, testing::ElementsAre(HasSubstr("several layers")));
  const KivSceneLevel& zLevel = zScene.m_vzPart[0].m_vzLevel[0];
  ASSERT_EQ(zLevel.m_vzFace.size(), 12u);
  size_t nRed = 0, nBlue = 0;
  for (const KivSceneFace& zFace : zLevel.m_vzFace) {
    EXPECT_EQ(zFace.m_fColour.has_value(), zFace.m_iId > 6);
    // The file puts both solids into the part's layers.
    EXPECT_EQ(zFace.m_iLayer, viLayer[zFace.m_iId > 6 ? u"Inside" : u"One"]);
    if (zFace.m_fColour == KivColour{1, 0, 0, 1}) ++nRed;
    if (zFace.m_fColour == KivColour{0, 0, 1, 1}) ++nBlue;
  }
  EXPECT_EQ(nRed, 5u);
  EXPECT_EQ(nBlue, 1u);
  size_t nGreen = 0;
  for (const KivSceneEdge& zEdge : zLevel.m_vzEdge)
    if (zEdge.m_fColour == KivColour{0, 1, 0, 1}) ++nGreen;
  EXPECT_EQ(nGreen, 1u);
}

TEST(ReadStep, AColourForOneUseOfAComponentStandsAtThatNodeAlone) {
  const Sample zSample(kivtest::WriteStepUsage, {1});
  const KivScene& zScene = zSample.Scene();
  ASSERT_EQ(zScene.m_vzNode.size(), 5u);
  EXPECT_EQ(zScene.m_vzPart.size(), 1u);
  for (const KivSceneNode& zNode : zScene.m_vzNode) {
    const bool bInner = zNode.m_csName == u"Inner";
    EXPECT_EQ(zNode.m_fColour.has_value(), bInner);
    if (!bInner) continue;
    const bool bRight = zScene.m_vzNode[zNode.m_iParent].m_csName == u"Right";
    EXPECT_EQ(zNode.m_fColour, (bRight ? KivColour{1, 0, 0, 1} : KivColour{0, 1, 0, 1}));
  }
}

// --- Meshes ---------------------------------------------------------------------------------------------------------

TEST(ReadStep, EveryLevelHasTheSameFacesAndEdgesAndFinerOnesHaveMoreTriangles) {
  const std::map<KivWString, std::pair<size_t, size_t>> vnExpected = {
      {u"Bracket plate", {25, 69}}, {u"Bolt M6x20", {12, 25}}, {u"Washer 6", {5, 8}}};
  for (const KivScenePart& zPart : Bracket().Scene().m_vzPart) {
    EXPECT_TRUE(zPart.m_bHasFaces);
    ASSERT_EQ(zPart.m_vzLevel.size(), 3u);
    size_t nBefore = 0;
    for (size_t i = 0; i < 3; ++i) {
      const KivSceneLevel& zLevel = zPart.m_vzLevel[i];
      EXPECT_EQ(zLevel.m_dTolerance, kTolerances[i]);
      ASSERT_EQ(zLevel.m_vzFace.size(), vnExpected.at(zPart.m_csName).first);
      ASSERT_EQ(zLevel.m_vzEdge.size(), vnExpected.at(zPart.m_csName).second);
      for (uint32_t k = 0; k < zLevel.m_vzFace.size(); ++k) EXPECT_EQ(zLevel.m_vzFace[k].m_iId, k + 1);
      for (uint32_t k = 0; k < zLevel.m_vzEdge.size(); ++k) EXPECT_EQ(zLevel.m_vzEdge[k].m_iId, k + 1);
      size_t nTriangles = 0;
      for (const KivSceneFace& zFace : zLevel.m_vzFace) nTriangles += zFace.m_viIndex.size() / 3;
      EXPECT_GT(nTriangles, nBefore);
      nBefore = nTriangles;
    }
  }
}

TEST(ReadStep, SolidsHaveClosedMeshesWithEdgesOfTheSamePoints) {
  using Key = std::array<int64_t, 3>;
  const auto KeyOf = [](const KivECoord3& z) {
    return Key{std::llround(z.m_dX * 1e6), std::llround(z.m_dY * 1e6), std::llround(z.m_dZ * 1e6)};
  };
  for (const KivScenePart& zPart : Bracket().Scene().m_vzPart)
    for (const KivSceneLevel& zLevel : zPart.m_vzLevel) {
      std::map<std::pair<Key, Key>, int> vnSide;
      for (const KivSceneFace& zFace : zLevel.m_vzFace)
        for (size_t i = 0; i < zFace.m_viIndex.size(); ++i) {
          const size_t iNext = i % 3 == 2 ? i - 2 : i + 1;
          const Key zA = KeyOf(Vertex(zFace.m_vdVertex, zFace.m_viIndex[i]));
          const Key zB = KeyOf(Vertex(zFace.m_vdVertex, zFace.m_viIndex[iNext]));
          ++vnSide[{zA, zB}];
          --vnSide[{zB, zA}];
        }
      // Each side of a triangle is that of another one, the other way round.
      for (const auto& [zSide, n] : vnSide) ASSERT_EQ(n, 0);
      for (const KivSceneEdge& zEdge : zLevel.m_vzEdge)
        for (size_t i = 0; i + 1 < zEdge.m_vdVertex.size() / 3; ++i)
          ASSERT_EQ(vnSide.count({KeyOf(Vertex(zEdge.m_vdVertex, i)), KeyOf(Vertex(zEdge.m_vdVertex, i + 1))}), 1u)
              << "edge " << zEdge.m_iId;
    }
}

TEST(ReadStep, VolumeAreaAndBoxAreThoseOfTheExactShapes) {
  const StepMeasures zExact = kivtest::MeasureStep(Bracket().Utf8Path());
  ASSERT_GT(zExact.m_dVolume, 50000);  // cubic millimetres
  const double adBox[6] = {zExact.m_adBoxMin[0], zExact.m_adBoxMin[1], zExact.m_adBoxMin[2],
                           zExact.m_adBoxMax[0], zExact.m_adBoxMax[1], zExact.m_adBoxMax[2]};
  double dBefore = 1e30;
  for (size_t i = 0; i < kTolerances.size(); ++i) {
    const MeshMeasures z = Measure(Bracket().Scene(), i);
    const double dOff = std::abs(z.m_dVolume - zExact.m_dVolume);
    EXPECT_LT(dOff, zExact.m_dArea * kTolerances[i]);
    EXPECT_LT(dOff, dBefore);
    EXPECT_NEAR(z.m_dArea, zExact.m_dArea, zExact.m_dArea * 0.03);
    const double adMesh[6] = {z.m_zMin.m_dX, z.m_zMin.m_dY, z.m_zMin.m_dZ, z.m_zMax.m_dX, z.m_zMax.m_dY, z.m_zMax.m_dZ};
    for (size_t k = 0; k < 6; ++k) EXPECT_NEAR(adMesh[k], adBox[k], kTolerances[i] + 1e-6);
    dBefore = dOff;
  }
  EXPECT_NEAR(Measure(Bracket().Scene(), 2).m_dVolume, zExact.m_dVolume, zExact.m_dVolume * 1e-4);
}

TEST(ReadStep, NormalsAreThoseOfTheSurfaceAndPointOutwards) {
  for (const KivScenePart& zPart : Bracket().Scene().m_vzPart) {
    std::map<uint32_t, KivBrepGeometry> vzAnalytic;
    for (const KivSceneGeometry& z : zPart.m_vzGeometry)
      if (z.m_zId.m_eUse == KivGeometryUse::Face) {
        ASSERT_TRUE(KivDecodeBrepGeometry(z.m_iKind, z.m_vcGeometry, vzAnalytic[z.m_zId.m_iId]));
      }
    for (const KivSceneFace& zFace : zPart.m_vzLevel[0].m_vzFace) {
      ASSERT_EQ(zFace.m_vfNormal.size(), zFace.m_vdVertex.size());
      const auto Normal = [&](size_t i) {
        return KivECoord3{zFace.m_vfNormal[3 * i], zFace.m_vfNormal[3 * i + 1], zFace.m_vfNormal[3 * i + 2]};
      };
      for (size_t i = 0; i < zFace.m_viIndex.size(); i += 3) {
        const KivECoord3 zA = Vertex(zFace.m_vdVertex, zFace.m_viIndex[i]);
        KivECoord3 zTriangle = (Vertex(zFace.m_vdVertex, zFace.m_viIndex[i + 1]) - zA)
                                   .Cross(Vertex(zFace.m_vdVertex, zFace.m_viIndex[i + 2]) - zA);
        zTriangle.Normalise();
        for (size_t k = 0; k < 3; ++k) {
          EXPECT_NEAR(Normal(zFace.m_viIndex[i + k]).Length(), 1, 1e-6);
          EXPECT_GT(Normal(zFace.m_viIndex[i + k]).Dot(zTriangle), 0.5) << "face " << zFace.m_iId;
        }
      }
      const auto it = vzAnalytic.find(zFace.m_iId);
      if (it == vzAnalytic.end() || it->second.m_iAnalyticType != static_cast<uint32_t>(KivAnalytic::Cylinder))
        continue;
      for (size_t i = 0; i < zFace.m_vdVertex.size() / 3; ++i) {
        KivECoord3 zOut = Vertex(zFace.m_vdVertex, i) - it->second.m_zPoint;
        zOut -= it->second.m_zAxis * zOut.Dot(it->second.m_zAxis);
        zOut.Normalise();
        EXPECT_NEAR(std::abs(Normal(i).Dot(zOut)), 1, 1e-6);
      }
    }
  }
}

TEST(ReadStep, AFileInInchesComesInMillimetres) {
  const Sample zSample(kivtest::WriteStepInches, {1});
  const MeshMeasures z = Measure(zSample.Scene(), 0);
  EXPECT_EQ(zSample.Scene().m_dMetresPerUnit, 0.001);
  EXPECT_NEAR(z.m_zMax.m_dX - z.m_zMin.m_dX, 25.4, 1e-9);
  EXPECT_NEAR(z.m_zMax.m_dZ - z.m_zMin.m_dZ, 76.2, 1e-9);
  EXPECT_NEAR(z.m_dVolume, 25.4 * 50.8 * 76.2, 1e-6);
}

// --- Exact geometry -------------------------------------------------------------------------------------------------

// Decodes all strings of a part and compares them with the mesh: the points of faces and edges lie on them.
class GeometryOnMesh {
 public:
  explicit GeometryOnMesh(const KivScenePart& zPart) {
    for (const KivSceneGeometry& z : zPart.m_vzGeometry) {
      KivBrepGeometry zDecoded;
      EXPECT_TRUE(KivDecodeBrepGeometry(z.m_iKind, z.m_vcGeometry, zDecoded));
      if (zDecoded.m_iKind == kBrepAnalyticKind)
        ++m_vnAnalytic[zDecoded.m_iAnalyticType];
      else
        ++(zDecoded.m_vdWeight.empty() ? m_nPlain : m_nRational);
      switch (z.m_zId.m_eUse) {
        case KivGeometryUse::Face:
          m_vzFace[z.m_zId.m_iId] = zDecoded;
          break;
        case KivGeometryUse::Edge:
          m_vzEdge[z.m_zId.m_iId] = zDecoded;
          break;
        case KivGeometryUse::SurfaceRow:
          EXPECT_EQ(z.m_zId.m_iRow, m_vzSurface[z.m_zId.m_iId].m_vzRow.size());
          m_vzSurface[z.m_zId.m_iId].m_vzRow.push_back(zDecoded);
          break;
        case KivGeometryUse::SurfaceProfile:
          m_vzSurface[z.m_zId.m_iId].m_zProfile = zDecoded;
          break;
      }
    }
    const KivSceneLevel& zLevel = zPart.m_vzLevel.front();
    for (const KivSceneFace& zFace : zLevel.m_vzFace) CheckFace(zFace);
    for (const KivSceneEdge& zEdge : zLevel.m_vzEdge) CheckEdge(zEdge);
  }

  std::map<uint32_t, size_t> m_vnAnalytic;  // strings of each analytic type
  size_t m_nPlain = 0, m_nRational = 0;     // NURBS strings
  std::map<uint32_t, KivBrepGeometry> m_vzFace, m_vzEdge;
  std::map<uint32_t, kivtest::NurbsSurface> m_vzSurface;

 private:
  static constexpr double kNear = 2e-5;  // what the search leaves

  void CheckFace(const KivSceneFace& zFace) {
    SCOPED_TRACE(testing::Message() << "face " << zFace.m_iId);
    const size_t nVertices = zFace.m_vdVertex.size() / 3;
    if (const auto it = m_vzFace.find(zFace.m_iId); it != m_vzFace.end()) {
      for (size_t i = 0; i < nVertices; ++i)
        EXPECT_LT(kivtest::DistanceFromAnalytic(it->second, true, Vertex(zFace.m_vdVertex, i)), 1e-6);
      return;
    }
    const auto it = m_vzSurface.find(zFace.m_iId);
    ASSERT_TRUE(it != m_vzSurface.end());
    ASSERT_EQ(it->second.m_zProfile.m_vzPole.size(), it->second.m_vzRow.size());
    for (size_t i = 0; i < nVertices; i += 1 + nVertices / 12)
      EXPECT_LT(kivtest::DistanceFromSurface(it->second, Vertex(zFace.m_vdVertex, i)), kNear);
  }

  void CheckEdge(const KivSceneEdge& zEdge) {
    SCOPED_TRACE(testing::Message() << "edge " << zEdge.m_iId);
    const size_t nVertices = zEdge.m_vdVertex.size() / 3;
    const auto it = m_vzEdge.find(zEdge.m_iId);
    ASSERT_TRUE(it != m_vzEdge.end());
    const bool bAnalytic = it->second.m_iKind == kBrepAnalyticKind;
    for (size_t i = 0; i < nVertices; ++i) {
      const KivECoord3 zPoint = Vertex(zEdge.m_vdVertex, i);
      if (bAnalytic) {
        EXPECT_LT(kivtest::DistanceFromAnalytic(it->second, false, zPoint), 1e-6);
      } else {
        EXPECT_LT(kivtest::DistanceFromCurve(it->second, zPoint), kNear);
      }
    }
    if (bAnalytic) return;
    // A curve is as long as its edge.
    const KivECoord3 zFirst = Vertex(zEdge.m_vdVertex, 0), zLast = Vertex(zEdge.m_vdVertex, nVertices - 1);
    const KivECoord3 zFrom = kivtest::NurbsCurvePoint(it->second, 0), zTo = kivtest::NurbsCurvePoint(it->second, 1);
    EXPECT_LT(std::min((zFirst - zFrom).Length() + (zLast - zTo).Length(),
                       (zFirst - zTo).Length() + (zLast - zFrom).Length()),
              1e-6);
  }
};

TEST(ReadStep, GeometryStringsOfTheSampleLieOnItsMesh) {
  const GeometryOnMesh zPlate(Bracket().Part(u"Bracket plate"));
  EXPECT_EQ(zPlate.m_vnAnalytic, (std::map<uint32_t, size_t>{{1, 14}, {2, 11}, {3, 22}, {4, 47}}));
  EXPECT_EQ(zPlate.m_vzFace.size(), 25u);
  EXPECT_EQ(zPlate.m_vzEdge.size(), 69u);
  const GeometryOnMesh zBolt(Bracket().Part(u"Bolt M6x20"));
  EXPECT_EQ(zBolt.m_vnAnalytic.at(static_cast<uint32_t>(KivAnalytic::Cone)), 2u);
  EXPECT_EQ(zBolt.m_nRational, 6u);  // hyperbolas, where the cone cuts the head's sides
  const GeometryOnMesh zWasher(Bracket().Part(u"Washer 6"));
  EXPECT_EQ(zWasher.m_vzSurface.size(), 1u);  // the round is a piece of a torus
}

TEST(ReadStep, EveryKindOfSurfaceAndCurveHasItsExactGeometry) {
  const Sample zSample(kivtest::WriteStepKinds, {0.1});
  // All of it but the point; shapes side by side are parts of their own.
  EXPECT_EQ(zSample.Scene().m_vzPart.size(), 18u);
  EXPECT_EQ(zSample.Scene().m_vzNode[0].m_iParent, kNoSceneIndex);
  EXPECT_TRUE(zSample.Scene().m_vzNode[0].m_viPart.empty());
  EXPECT_EQ(zSample.Scene().m_vzNode[0].m_csName, u"sample");  // as the file
  EXPECT_THAT(zSample.Scene().m_vstrWarning, testing::ElementsAre(HasSubstr("neither faces nor edges")));
  size_t nRational = 0, nPlain = 0, nSurfaces = 0, nRound = 0, nCone = 0;
  for (const KivScenePart& zPart : zSample.Scene().m_vzPart) {
    SCOPED_TRACE(testing::Message() << "part " << &zPart - zSample.Scene().m_vzPart.data());
    GeometryOnMesh z(zPart);
    nRational += z.m_nRational;
    nPlain += z.m_nPlain;
    nSurfaces += z.m_vzSurface.size();
    nRound += z.m_vnAnalytic[static_cast<uint32_t>(KivAnalytic::Round)];
    nCone += z.m_vnAnalytic[static_cast<uint32_t>(KivAnalytic::Cone)];
  }
  EXPECT_GT(nRational, 0u);
  EXPECT_GT(nPlain, 0u);
  EXPECT_GE(nSurfaces, 8u);
  EXPECT_GT(nRound, 0u);
  EXPECT_EQ(nCone, 2u);
}

// --- The program ----------------------------------------------------------------------------------------------------

std::vector<uint8_t> ReadByProgram(const Sample& zSample, const KivWString& csName) {
  KivScene zScene;
  std::string strError;
  const bool bGood = KivRunSceneReader(sys::Utf8ToWide(KIV_TEST_STEP_READER), {u"step", zSample.Path(), kTolerances},
                                       zSample.Folder() / csName, zScene, strError, [] { return true; });
  EXPECT_TRUE(bGood) << strError;
  return KivWriteScene(zScene);
}

TEST(ReadStep, EveryRunOfTheProgramGivesTheSameScene) {
  const Sample zSample(WriteBracket);
  const std::vector<uint8_t> vcHere = KivWriteScene(zSample.Scene());
  EXPECT_EQ(ReadByProgram(zSample, u"one"), vcHere);
  EXPECT_EQ(ReadByProgram(zSample, u"two"), vcHere);
}

TEST(ReadStep, TheProgramTellsTheReasonOfARefusal) {
  const TestFolder zFolder;
  zFolder.WriteBytes(u"mesh.step", "solid nothing\nendsolid\n");
  KivScene zScene;
  std::string strError;
  EXPECT_FALSE(KivRunSceneReader(sys::Utf8ToWide(KIV_TEST_STEP_READER), {u"step", zFolder / u"mesh.step", {1}},
                                 zFolder / u"scene", zScene, strError, [] { return true; }));
  EXPECT_THAT(strError, HasSubstr("no STEP file"));
}

// --- Sizes and memory ------------------------------------------------------------------------------------------------

// The sample with its millimetres taken for metres, so that it is larger than a house.
std::string BracketInMetres() {
  std::string strText = Bracket().Folder().ReadBytes(u"sample.step");
  const std::string strUnit = "SI_UNIT(.MILLI.,.METRE.)";
  int nUnits = 0;
  for (size_t i = 0; (i = strText.find(strUnit, i)) != std::string::npos; ++nUnits)
    strText.replace(i, strUnit.size(), "SI_UNIT($,.METRE.)");
  EXPECT_GT(nUnits, 0);
  return strText;
}

std::vector<double> TolerancesOf(const KivScene& zScene) {
  std::vector<double> vdTolerance;
  for (const KivSceneLevel& z : zScene.m_vzPart.at(0).m_vzLevel) vdTolerance.push_back(z.m_dTolerance);
  return vdTolerance;
}

TEST(ReadStep, WithoutTolerancesALargeModelHasThousandthsOfItsDiagonalAndASmallOneMillimetres) {
  EXPECT_EQ(TolerancesOf(Sample(WriteBracket, {}).Scene()), kTolerances);
  const TestFolder zFolder;
  zFolder.WriteBytes(u"large.step", BracketInMetres());
  KivScene zScene;
  KivReadStep(zFolder / u"large.step", {}, zScene);
  const MeshMeasures z = Measure(zScene, 2);
  const double dDiagonal = (z.m_zMax - z.m_zMin).Length();
  EXPECT_GT(dDiagonal, 80000);
  const std::vector<double> vdTolerance = TolerancesOf(zScene);
  ASSERT_EQ(vdTolerance.size(), 3u);
  EXPECT_NEAR(vdTolerance[0], dDiagonal / 1000, 0.1 * dDiagonal / 1000);  // in two digits
  EXPECT_NEAR(vdTolerance[1], vdTolerance[0] / 10, 1e-9);
  EXPECT_NEAR(vdTolerance[2], vdTolerance[0] / 100, 1e-9);
  // And by the program.
  const TestFolder zWork;
  KivScene zByProgram;
  std::string strError;
  EXPECT_TRUE(KivRunSceneReader(sys::Utf8ToWide(KIV_TEST_STEP_READER), {u"step", zFolder / u"large.step", {}},
                                zWork / u"scene", zByProgram, strError, {}))
      << strError;
  EXPECT_EQ(TolerancesOf(zByProgram), vdTolerance);
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
// The program with ever less memory: it gives the whole scene, or none.
TEST(ReadStep, WantOfMemoryIsSaidAndNeverLeavesAFaceOut) {
  const TestFolder zFolder;
  zFolder.WriteBytes(u"large.step", BracketInMetres());
  const auto Run = [&](const std::string& strLimit) {
    sys::RemoveFileAt(zFolder / u"scene");
    const std::string strLine = "cd '" + sys::WideToUtf8(zFolder.Path()) + "' && (" + strLimit + "exec '" +
                                KIV_TEST_STEP_READER + "' step large.step scene 1) >/dev/null 2>&1";
    return std::system(strLine.c_str());
  };
  ASSERT_EQ(Run(""), 0);
  const std::string strWhole = zFolder.ReadBytes(u"scene");
  ASSERT_FALSE(strWhole.empty());
  int nSaid = 0, nWhole = 0;
  for (int nMiB = 84; nMiB <= 300 && nWhole < 3; nMiB += 2) {
    if (Run("ulimit -v " + std::to_string(nMiB << 10) + "; ") == 0) {
      ++nWhole;
      EXPECT_TRUE(zFolder.ReadBytes(u"scene") == strWhole) << nMiB;
    } else if (sys::PathExists(zFolder / u"scene")) {
      EXPECT_THAT(zFolder.ReadBytes(u"scene"), HasSubstr("there is not enough memory to read it")) << nMiB;
      ++nSaid;
    }
  }
  EXPECT_GT(nSaid, 0);
  EXPECT_EQ(nWhole, 3);
}
#endif

// --- Bad files ------------------------------------------------------------------------------------------------------

TEST(ReadStep, WhatIsNoStepFileIsRefusedWithAReason) {
  const TestFolder zFolder;
  EXPECT_THAT(Refusal(zFolder / u"missing.step"), testing::Not(testing::IsEmpty()));
  EXPECT_THAT(Refusal(zFolder.Path()), testing::Not(testing::IsEmpty()));
  zFolder.WriteBytes(u"empty.step", "");
  EXPECT_THAT(Refusal(zFolder / u"empty.step"), testing::Not(testing::IsEmpty()));
  zFolder.WriteBytes(u"mesh.step", "solid nothing\nfacet normal 0 0 1\nendsolid\n");
  EXPECT_THAT(Refusal(zFolder / u"mesh.step"), HasSubstr("no STEP file"));
  std::mt19937 zRandom(7);
  std::string strRandom(10000, '\0');
  for (char& c : strRandom) c = static_cast<char>(zRandom());
  zFolder.WriteBytes(u"random.step", strRandom);
  EXPECT_THAT(Refusal(zFolder / u"random.step"), HasSubstr("no STEP file"));
  zFolder.WriteBytes(u"framed.step", "ISO-10303-21;\n" + strRandom + "\nEND-ISO-10303-21;\n");
  EXPECT_THAT(Refusal(zFolder / u"framed.step"), testing::Not(testing::IsEmpty()));
  zFolder.WriteBytes(
      u"bare.step",
      "ISO-10303-21;\nHEADER;\nENDSEC;\nDATA;\n#1=DIRECTION('',(0.,0.,1.));\nENDSEC;\nEND-ISO-10303-21;\n");
  EXPECT_THAT(Refusal(zFolder / u"bare.step"), HasSubstr("no shapes"));
}

TEST(ReadStep, AFileThatIsCutAnywhereIsRefused) {
  const std::string strWhole = Bracket().Folder().ReadBytes(u"sample.step");
  const TestFolder zFolder;
  for (size_t i = 0; i < 40; ++i) {
    const size_t nBytes = 1 + (strWhole.size() - 30) * i / 39;
    zFolder.WriteBytes(u"cut.step", strWhole.substr(0, nBytes));
    EXPECT_THAT(Refusal(zFolder / u"cut.step"), testing::AnyOf(HasSubstr("not whole"), HasSubstr("no STEP file")))
        << nBytes << " bytes";
  }
}

TEST(ReadStep, AFileWithAHoleIsReadOrRefusedWithAReason) {
  const std::string strWhole = Bracket().Folder().ReadBytes(u"sample.step");
  const TestFolder zFolder;
  for (size_t i = 1; i < 12; ++i) {
    const size_t iAt = strWhole.size() * i / 12;
    std::string strHole = strWhole;
    strHole.erase(iAt, 300);
    zFolder.WriteBytes(u"hole.step", strHole);
    KivScene zScene;
    std::string strError;
    // In a process of its own, as always: the library may break down.
    if (KivRunSceneReader(sys::Utf8ToWide(KIV_TEST_STEP_READER), {u"step", zFolder / u"hole.step", {1}},
                          zFolder / u"scene", zScene, strError, [] { return true; })) {
      EXPECT_FALSE(zScene.m_vzPart.empty());
    } else {
      EXPECT_FALSE(strError.empty());
    }
  }
}

TEST(ReadStep, EntitiesWithWrongReferencesAreToldOf) {
  std::string strBad = Bracket().Folder().ReadBytes(u"sample.step");
  const std::string strStyle = "FILL_AREA_STYLE_COLOUR('',#";
  const size_t iAt = strBad.find(strStyle);
  ASSERT_NE(iAt, std::string::npos);
  const size_t iNumber = iAt + strStyle.size();
  strBad.replace(iNumber, strBad.find(')', iNumber) - iNumber, "1");  // no colour
  const TestFolder zFolder;
  zFolder.WriteBytes(u"bad.step", strBad);
  KivScene zScene;
  std::string strError;
  EXPECT_TRUE(KivRunSceneReader(sys::Utf8ToWide(KIV_TEST_STEP_READER), {u"step", zFolder / u"bad.step", {1}},
                                zFolder / u"scene", zScene, strError, {}))
      << strError;
  EXPECT_THAT(zScene.m_vstrWarning, testing::Contains(HasSubstr("Entities with wrong references or values: 1.")));
  EXPECT_THAT(Bracket().Scene().m_vstrWarning, Each(testing::Not(HasSubstr("Entities"))));
}

TEST(ReadStep, FilesThatAreNamedAreReadFromTheFolderAndFromNowhereElse) {
  const Sample zSample(kivtest::WriteStepReference, {1});
  ASSERT_EQ(zSample.Scene().m_vzPart.size(), 1u);
  EXPECT_NEAR(Measure(zSample.Scene(), 0).m_dVolume, 24, 1e-9);
  EXPECT_NEAR(Measure(zSample.Scene(), 0).m_zMin.m_dX, 5, 1e-9);
  const std::string strWhole = zSample.Folder().ReadBytes(u"sample.step");
  const size_t iName = strWhole.find("'part-");
  ASSERT_NE(iName, std::string::npos);
  for (const char* szPrefix : {"../", "/tmp/", "below/../../"}) {
    std::string strOutside = strWhole;
    for (size_t i = strOutside.find("'part-"); i != std::string::npos; i = strOutside.find("'part-", i + 1))
      strOutside.insert(i + 1, szPrefix);
    zSample.Folder().WriteBytes(u"outside.step", strOutside);
    EXPECT_THAT(Refusal(zSample.Folder() / u"outside.step"), HasSubstr("outside of its folder"));
  }
}

// The text with another name in each place of a name.
std::string Renamed(std::string str, const std::string& strFrom, const std::string& strTo) {
  for (size_t i = str.find(strFrom); i != std::string::npos; i = str.find(strFrom, i + strTo.size()))
    str.replace(i, strFrom.size(), strTo);
  return str;
}

TEST(ReadStep, AFileThatIsNamedMayNameOthersByTheSameRule) {
  const Sample zSample(kivtest::WriteStepReference, {1});
  const TestFolder& zFolder = zSample.Folder();
  const std::string strWhole = zFolder.ReadBytes(u"sample.step");
  const std::string strName = "'part-Box.stp'";
  ASSERT_NE(strWhole.find(strName), std::string::npos);
  ASSERT_TRUE(sys::MakeFolder(zFolder / u"sub"));
  zFolder.WriteBytes(u"main.step", Renamed(strWhole, strName, "'sub/middle.step'"));
  const std::string strPart = zFolder.ReadBytes(u"part-Box.stp");
  zFolder.WriteBytes(u"sub/last.step", strPart);
  zFolder.WriteBytes(u"x.step", strPart);
  const KivWString csMain = zFolder / u"main.step";

  zFolder.WriteBytes(u"sub/middle.step", Renamed(strWhole, strName, "'last.step'"));
  KivScene zScene;
  KivReadStep(csMain, {1}, zScene);
  EXPECT_EQ(zScene.m_vzPart.size(), 1u);
  EXPECT_TRUE(zScene.m_vstrWarning.empty());
  for (const char* szOutside : {"'../x.step'", "'/tmp/x.step'"}) {
    zFolder.WriteBytes(u"sub/middle.step", Renamed(strWhole, strName, szOutside));
    EXPECT_THAT(Refusal(csMain), HasSubstr("outside of its folder")) << szOutside;
  }
  zFolder.WriteBytes(u"sub/middle.step", Renamed(strWhole, strName, "'last.step'"));
  zFolder.WriteBytes(u"sub/last.step", strPart.substr(0, strPart.size() / 2));
  EXPECT_THAT(Refusal(csMain), HasSubstr("not whole"));
  zFolder.WriteBytes(u"main.step", Renamed(strWhole, strName, "'missing.step'"));
  zScene = {};
  std::string strError;
  try {
    KivReadStep(csMain, {1}, zScene);
  } catch (const KivSceneError& e) {
    strError = e.what();
  }
  EXPECT_THAT(zScene.m_vstrWarning, testing::Contains(HasSubstr("missing.step"))) << strError;
}

TEST(ReadStep, FilesThatNameEachOtherOrThemselvesAreRefused) {
  const Sample zSample(kivtest::WriteStepReference, {1});
  const TestFolder& zFolder = zSample.Folder();
  const std::string strWhole = zFolder.ReadBytes(u"sample.step");
  const std::string strName = "'part-Box.stp'";
  ASSERT_NE(strWhole.find(strName), std::string::npos);
  zFolder.WriteBytes(u"a.step", Renamed(strWhole, strName, "'b.step'"));
  zFolder.WriteBytes(u"b.step", Renamed(strWhole, strName, "'a.step'"));
  zFolder.WriteBytes(u"self.step", Renamed(strWhole, strName, "'self.step'"));
  for (const char16_t* szName : {u"a.step", u"self.step"}) {
    KivScene zScene;
    std::string strError;
    const bool bRead = KivRunSceneReader(sys::Utf8ToWide(KIV_TEST_STEP_READER), {u"step", zFolder / szName, {1}},
                                         zFolder / u"scene", zScene, strError, {});
    EXPECT_FALSE(bRead);
    EXPECT_THAT(strError, HasSubstr("refer back to it"));
  }
}

TEST(ReadStep, AFileWithNothingToShowIsRefused) {
  const TestFolder zFolder;
  const KivWString csPoint = zFolder / u"point.step";
  ASSERT_TRUE(kivtest::WriteStepPoint(sys::WideToUtf8(csPoint)));
  EXPECT_THAT(Refusal(csPoint), HasSubstr("no "));
}

TEST(ReadStep, TheNameOfTheFileMayHaveAnyLetters) {
  const TestFolder zFolder;
  zFolder.WriteBytes(u"Gr\u00f6\u00dfe \u90e8\u54c1.step", Bracket().Folder().ReadBytes(u"sample.step"));
  KivScene zScene;
  KivReadStep(zFolder / u"Gr\u00f6\u00dfe \u90e8\u54c1.step", {1}, zScene);
  EXPECT_EQ(zScene.m_vzPart.size(), 3u);
}

}  // namespace
}  // namespace kiv
