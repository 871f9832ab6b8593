#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <limits>

#include "KivBrepGeometry.h"
#include "KivScene.h"

using namespace kiv;

namespace {

using Bytes = std::vector<uint8_t>;

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinite = std::numeric_limits<double>::infinity();

// Every field differs from its default, and from its neighbours.
KivScene SmallScene() {
  KivScene zScene;
  zScene.m_dMetresPerUnit = 0.001;
  KivScenePart& zPart = zScene.m_vzPart.emplace_back();
  zPart.m_csName = u"B\u00fcgel \xD800";  // a lone surrogate passes
  zPart.m_bHasFaces = true;
  for (const double dTolerance : {1.0, 0.25}) {
    KivSceneLevel& zLevel = zPart.m_vzLevel.emplace_back();
    zLevel.m_dTolerance = dTolerance;
    KivSceneFace& zFace = zLevel.m_vzFace.emplace_back();
    zFace.m_iId = 3;
    zFace.m_vdVertex = {0, 0, 0, 1, 0, 0, 0, 1, 0, 1, 1, dTolerance};
    zFace.m_vfNormal = {0, 0, 1, 0, 0, 1, 0, 1, 0, 1, 0, 0};
    zFace.m_viIndex = {0, 1, 2, 1, 3, 2};
    zFace.m_fColour = KivColour{0.1f, 0.2f, 0.3f, 0.4f};
    zFace.m_iLayer = 7;
    zLevel.m_vzFace.emplace_back().m_iId = 1;  // an empty one
    KivSceneEdge& zEdge = zLevel.m_vzEdge.emplace_back();
    zEdge.m_iId = 3;
    zEdge.m_vdVertex = {5, 6, 7, 8, 9, 10};
    zEdge.m_fColour = KivColour{1, 0, 0, 1};
    zEdge.m_iLayer = 0;
  }
  zPart.m_vzGeometry.push_back({kBrepAnalyticKind, {3, KivGeometryUse::Face, 0}, {1, 2, 3}});
  zPart.m_vzGeometry.push_back({kBrepNurbsKind, {9, KivGeometryUse::SurfaceRow, 4}, {}});
  zScene.m_vzPart.emplace_back().m_vzLevel.emplace_back();
  zScene.m_vzNode.emplace_back().m_csName = u"root";
  KivSceneNode zNode;
  zNode.m_csName = u"place";
  zNode.m_iParent = 0;
  zNode.m_zMatrix.Translate({10, 20, 30});
  zNode.m_viPart = {0, 1, 0};
  zNode.m_fColour = KivColour{0, 0.5f, 0, 1};
  zNode.m_iLayer = 12;
  zScene.m_vzNode.push_back(zNode);
  zScene.m_vzLayer.push_back({12, u"screws", false});
  zScene.m_vstrWarning = {"something is left out", ""};
  return zScene;
}

bool SameStyle(const auto& a, const auto& b) {
  return a.m_fColour == b.m_fColour && a.m_iLayer == b.m_iLayer;
}

void ExpectSame(const KivScenePart& a, const KivScenePart& b) {
  EXPECT_EQ(a.m_csName, b.m_csName);
  EXPECT_EQ(a.m_bHasFaces, b.m_bHasFaces);
  ASSERT_EQ(a.m_vzLevel.size(), b.m_vzLevel.size());
  for (size_t i = 0; i < a.m_vzLevel.size(); ++i) {
    const KivSceneLevel &zA = a.m_vzLevel[i], &zB = b.m_vzLevel[i];
    EXPECT_EQ(zA.m_dTolerance, zB.m_dTolerance);
    ASSERT_EQ(zA.m_vzFace.size(), zB.m_vzFace.size());
    for (size_t k = 0; k < zA.m_vzFace.size(); ++k) {
      EXPECT_EQ(zA.m_vzFace[k].m_iId, zB.m_vzFace[k].m_iId);
      EXPECT_EQ(zA.m_vzFace[k].m_vdVertex, zB.m_vzFace[k].m_vdVertex);
      EXPECT_EQ(zA.m_vzFace[k].m_vfNormal, zB.m_vzFace[k].m_vfNormal);
      EXPECT_EQ(zA.m_vzFace[k].m_viIndex, zB.m_vzFace[k].m_viIndex);
      EXPECT_TRUE(SameStyle(zA.m_vzFace[k], zB.m_vzFace[k]));
    }
    ASSERT_EQ(zA.m_vzEdge.size(), zB.m_vzEdge.size());
    for (size_t k = 0; k < zA.m_vzEdge.size(); ++k) {
      EXPECT_EQ(zA.m_vzEdge[k].m_iId, zB.m_vzEdge[k].m_iId);
      EXPECT_EQ(zA.m_vzEdge[k].m_vdVertex, zB.m_vzEdge[k].m_vdVertex);
      EXPECT_TRUE(SameStyle(zA.m_vzEdge[k], zB.m_vzEdge[k]));
    }
  }
  ASSERT_EQ(a.m_vzGeometry.size(), b.m_vzGeometry.size());
  for (size_t i = 0; i < a.m_vzGeometry.size(); ++i) {
    EXPECT_EQ(a.m_vzGeometry[i].m_iKind, b.m_vzGeometry[i].m_iKind);
    EXPECT_EQ(a.m_vzGeometry[i].m_zId.Pack(), b.m_vzGeometry[i].m_zId.Pack());
    EXPECT_EQ(a.m_vzGeometry[i].m_vcGeometry, b.m_vzGeometry[i].m_vcGeometry);
  }
}

void ExpectSame(const KivScene& a, const KivScene& b) {
  EXPECT_EQ(a.m_dMetresPerUnit, b.m_dMetresPerUnit);
  ASSERT_EQ(a.m_vzPart.size(), b.m_vzPart.size());
  for (size_t i = 0; i < a.m_vzPart.size(); ++i) ExpectSame(a.m_vzPart[i], b.m_vzPart[i]);
  ASSERT_EQ(a.m_vzNode.size(), b.m_vzNode.size());
  for (size_t i = 0; i < a.m_vzNode.size(); ++i) {
    EXPECT_EQ(a.m_vzNode[i].m_csName, b.m_vzNode[i].m_csName);
    EXPECT_EQ(a.m_vzNode[i].m_iParent, b.m_vzNode[i].m_iParent);
    for (size_t k = 0; k < 16; ++k) EXPECT_EQ(a.m_vzNode[i].m_zMatrix[k], b.m_vzNode[i].m_zMatrix[k]);
    EXPECT_EQ(a.m_vzNode[i].m_viPart, b.m_vzNode[i].m_viPart);
    EXPECT_TRUE(SameStyle(a.m_vzNode[i], b.m_vzNode[i]));
  }
  ASSERT_EQ(a.m_vzLayer.size(), b.m_vzLayer.size());
  for (size_t i = 0; i < a.m_vzLayer.size(); ++i) {
    EXPECT_EQ(a.m_vzLayer[i].m_iLayer, b.m_vzLayer[i].m_iLayer);
    EXPECT_EQ(a.m_vzLayer[i].m_csName, b.m_vzLayer[i].m_csName);
    EXPECT_EQ(a.m_vzLayer[i].m_bOn, b.m_vzLayer[i].m_bOn);
  }
  EXPECT_EQ(a.m_vstrWarning, b.m_vstrWarning);
}

bool IsEmpty(const KivScene& z) {
  return z.m_vzPart.empty() && z.m_vzNode.empty() && z.m_vzLayer.empty() && z.m_vstrWarning.empty();
}

std::string ReasonOf(const Bytes& vcBytes) {
  KivScene zScene = SmallScene();
  std::string strError;
  EXPECT_FALSE(KivReadScene(vcBytes, zScene, strError));
  EXPECT_TRUE(IsEmpty(zScene));
  EXPECT_FALSE(strError.empty());
  return strError;
}

Bytes FromHex(const char* szHex) {
  Bytes vcBytes;
  for (const char* p = szHex; *p != '\0';) {
    if (*p == ' ') {
      ++p;
      continue;
    }
    vcBytes.push_back(static_cast<uint8_t>(std::stoul(std::string(p, 2), nullptr, 16)));
    p += 2;
  }
  return vcBytes;
}

}  // namespace

TEST(SceneStream, EveryFieldComesBack) {
  const KivScene zScene = SmallScene();
  std::string strError;
  ASSERT_TRUE(KivCheckScene(zScene, strError)) << strError;
  KivScene zRead;
  zRead.m_vstrWarning = {"of an older scene"};
  ASSERT_TRUE(KivReadScene(KivWriteScene(zScene), zRead, strError)) << strError;
  ExpectSame(zScene, zRead);
}

TEST(SceneStream, AnEmptySceneComesBack) {
  KivScene zRead;
  std::string strError;
  ASSERT_TRUE(KivReadScene(KivWriteScene(KivScene()), zRead, strError)) << strError;
  EXPECT_TRUE(IsEmpty(zRead));
}

TEST(SceneStream, ASmallFileIsByteForByteWhatTheTableSays) {
  KivScene zScene;
  zScene.m_dMetresPerUnit = 1;
  zScene.m_vzNode.emplace_back().m_csName = u"A";
  zScene.m_vzNode[0].m_iLayer = 5;
  zScene.m_vstrWarning = {"w"};
  const Bytes vcGolden = FromHex(
      "4b69765363656e65 01000000 00000000"
      "000000000000f03f 0000000000000000"
      "0100000000000000"
      "0100000000000000 4100 ffffffff"
      "000000000000f03f 0000000000000000 0000000000000000 0000000000000000"
      "0000000000000000 000000000000f03f 0000000000000000 0000000000000000"
      "0000000000000000 0000000000000000 000000000000f03f 0000000000000000"
      "0000000000000000 0000000000000000 0000000000000000 000000000000f03f"
      "0000000000000000 00 01 05000000"
      "0000000000000000"
      "0100000000000000 0100000000000000 77");
  EXPECT_EQ(KivWriteScene(zScene), vcGolden);
}

TEST(SceneStream, EveryCutIsRefused) {
  const Bytes vcWhole = KivWriteScene(SmallScene());
  for (size_t n = 0; n < vcWhole.size(); ++n)
    ReasonOf(Bytes(vcWhole.begin(), vcWhole.begin() + static_cast<ptrdiff_t>(n)));
  const Bytes vcFailure = KivWriteSceneFailure("it is empty");
  for (size_t n = 0; n < vcFailure.size(); ++n)
    EXPECT_NE(ReasonOf(Bytes(vcFailure.begin(), vcFailure.begin() + static_cast<ptrdiff_t>(n))), "it is empty");
}

TEST(SceneStream, AByteBehindTheEndIsRefused) {
  for (Bytes vcBytes : {KivWriteScene(SmallScene()), KivWriteSceneFailure("it is empty")}) {
    vcBytes.push_back(0);
    EXPECT_NE(ReasonOf(vcBytes), "it is empty");
  }
}

TEST(SceneStream, AnotherMagicVersionOrFormIsRefused) {
  const Bytes vcWhole = KivWriteScene(SmallScene());
  for (const size_t iAt : {0u, 7u, 8u, 11u, 12u, 15u}) {
    Bytes vcBytes = vcWhole;
    vcBytes[iAt] ^= 0x40;
    ReasonOf(vcBytes);
  }
}

// Wherever a count stands, it may say anything. What is read all the same must be sound.
TEST(SceneStream, NoCountTakesMemoryThatTheFileCannotFill) {
  const Bytes vcWhole = KivWriteScene(SmallScene());
  size_t nRefused = 0;
  for (size_t iAt = 16; iAt + 8 <= vcWhole.size(); ++iAt)
    for (const uint64_t iCount : {~uint64_t{0}, uint64_t{1} << 63, uint64_t{1} << 61, uint64_t{0xFFFFFFFF}}) {
      Bytes vcBytes = vcWhole;
      std::memcpy(vcBytes.data() + iAt, &iCount, sizeof iCount);
      KivScene zScene;
      std::string strError;
      if (KivReadScene(vcBytes, zScene, strError)) {
        EXPECT_TRUE(KivCheckScene(zScene, strError)) << strError;
      } else {
        ++nRefused;
      }
    }
  EXPECT_GT(nRefused, vcWhole.size());
}

TEST(SceneStream, FlippedBytesGiveASoundSceneOrNone) {
  const Bytes vcWhole = KivWriteScene(SmallScene());
  for (size_t iAt = 0; iAt < vcWhole.size(); ++iAt)
    for (const uint8_t iFlip : {0x01, 0x80, 0xFF}) {
      Bytes vcBytes = vcWhole;
      vcBytes[iAt] ^= iFlip;
      KivScene zScene;
      std::string strError;
      if (KivReadScene(vcBytes, zScene, strError)) {
        EXPECT_EQ(KivWriteScene(zScene), vcBytes);
      } else {
        EXPECT_TRUE(IsEmpty(zScene));
      }
    }
}

TEST(SceneStream, WhatNoModelCanBeMadeOfIsRefusedWithItsReason) {
  using Change = std::function<void(KivScene&)>;
  const auto Face = [](KivScene& z) -> KivSceneFace& { return z.m_vzPart[0].m_vzLevel[1].m_vzFace[0]; };
  const auto Edge = [](KivScene& z) -> KivSceneEdge& { return z.m_vzPart[0].m_vzLevel[1].m_vzEdge[0]; };
  const std::vector<std::pair<const char*, Change>> vzCases = {
      {"the unit of length is no number", [](KivScene& z) { z.m_dMetresPerUnit = kNan; }},
      {"the unit of length is no number", [](KivScene& z) { z.m_dMetresPerUnit = -1; }},
      {"the unit of length is too small or too large", [](KivScene& z) { z.m_dMetresPerUnit = 1e-320; }},
      {"the unit of length is too small or too large", [](KivScene& z) { z.m_dMetresPerUnit = 1.1e12; }},
      {"a tolerance is no number", [](KivScene& z) { z.m_vzPart[0].m_vzLevel[0].m_dTolerance = kInfinite; }},
      {"a tolerance is no number", [](KivScene& z) { z.m_vzPart[0].m_vzLevel[0].m_dTolerance = -0.5; }},
      {"a bare mesh has more than one level", [](KivScene& z) { z.m_vzPart[0].m_bHasFaces = false; }},
      {"a list of vertices or triangles is no whole one", [&](KivScene& z) { Face(z).m_vdVertex.pop_back(); }},
      {"a list of vertices or triangles is no whole one", [&](KivScene& z) { Face(z).m_viIndex.pop_back(); }},
      {"a list of vertices or triangles is no whole one", [&](KivScene& z) { Edge(z).m_vdVertex.pop_back(); }},
      {"a face has another number of normals", [&](KivScene& z) { Face(z).m_vfNormal.pop_back(); }},
      {"a coordinate is no number", [&](KivScene& z) { Face(z).m_vdVertex[11] = kNan; }},
      {"a coordinate is no number", [&](KivScene& z) { Face(z).m_vdVertex[0] = -kInfinite; }},
      {"a coordinate is no number", [&](KivScene& z) { Edge(z).m_vdVertex[5] = kInfinite; }},
      {"a normal is no number", [&](KivScene& z) { Face(z).m_vfNormal[2] = std::numeric_limits<float>::infinity(); }},
      {"a triangle names a vertex that does not exist", [&](KivScene& z) { Face(z).m_viIndex[4] = 4; }},
      {"a triangle names a vertex that does not exist", [&](KivScene& z) { Face(z).m_viIndex[0] = 0xFFFFFFFF; }},
      {"a triangle names a vertex that does not exist",
       [](KivScene& z) {
         z.m_vzPart[0].m_vzLevel[0].m_vzFace[1].m_viIndex = {0, 0, 0};
       }},
      {"a colour is no number",
       [&](KivScene& z) { (*Face(z).m_fColour)[3] = std::numeric_limits<float>::quiet_NaN(); }},
      {"a colour is no number",
       [&](KivScene& z) { (*Edge(z).m_fColour)[0] = std::numeric_limits<float>::quiet_NaN(); }},
      {"a face or an edge has the number 0", [&](KivScene& z) { Face(z).m_iId = 0; }},
      {"two faces or edges have the same number", [&](KivScene& z) { Face(z).m_iId = 1; }},
      {"a geometry string has an unknown kind", [](KivScene& z) { z.m_vzPart[0].m_vzGeometry[0].m_iKind = 1; }},
      {"a geometry string has an unknown use",
       [](KivScene& z) { z.m_vzPart[0].m_vzGeometry[0].m_zId.m_eUse = static_cast<KivGeometryUse>(4); }},
      {"a node's parent is no earlier node", [](KivScene& z) { z.m_vzNode[0].m_iParent = 0; }},
      {"a node's parent is no earlier node", [](KivScene& z) { z.m_vzNode[1].m_iParent = 1; }},
      {"a node's parent is no earlier node", [](KivScene& z) { z.m_vzNode[1].m_iParent = kNoSceneIndex; }},
      {"a placement is no number", [](KivScene& z) { z.m_vzNode[1].m_zMatrix[15] = kNan; }},
      {"a node names a part that does not exist", [](KivScene& z) { z.m_vzNode[1].m_viPart[2] = 2; }},
      {"a colour is no number",
       [](KivScene& z) { (*z.m_vzNode[1].m_fColour)[1] = std::numeric_limits<float>::infinity(); }},
  };
  for (size_t i = 0; i < vzCases.size(); ++i) {
    KivScene zScene = SmallScene();
    vzCases[i].second(zScene);
    std::string strError;
    EXPECT_FALSE(KivCheckScene(zScene, strError)) << i;
    EXPECT_EQ(strError, vzCases[i].first) << i;
    EXPECT_EQ(ReasonOf(KivWriteScene(zScene)), vzCases[i].first) << i;
  }
}

TEST(SceneStream, AFailureGivesItsReason) {
  EXPECT_EQ(ReasonOf(KivWriteSceneFailure("the file is cut")), "the file is cut");
  EXPECT_EQ(ReasonOf(KivWriteSceneFailure("")), "the reader gives no reason");
  EXPECT_EQ(KivWriteSceneFailure("no"), FromHex("4b69765363656e65 01000000 01000000 0200000000000000 6e6f"));
}

TEST(SceneStream, ALongReasonIsCut) {
  EXPECT_EQ(ReasonOf(KivWriteSceneFailure(std::string(100'000, 'x'))), std::string(kSceneReasonMax, 'x'));
  Bytes vcLong = KivWriteSceneFailure(std::string(kSceneReasonMax, 'x'));
  const uint64_t nOneMore = kSceneReasonMax + 1;
  std::memcpy(vcLong.data() + 16, &nOneMore, sizeof nOneMore);
  vcLong.push_back('x');
  EXPECT_EQ(ReasonOf(vcLong), "the scene file is damaged");
}
