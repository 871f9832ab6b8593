#include "KivModelTree.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "KivTestFolder.h"
#include "KivToolTestModel.h"

namespace {

using namespace kiv;
using Kind = KivTreeRow::Kind;
using kivtest::RunKiv;
using kivtest::TestFolder;
using nlohmann::ordered_json;

KivToolStructure Nodes(const std::vector<std::vector<uint64_t>>& vviChildren) {
  KivToolStructure z;
  for (const auto& viChildren : vviChildren) {
    KivAssemblyNode& zNode = z.m_vzNode.emplace_back();
    zNode.m_zFrame.m_iKind = KivMemoryBlockAssemblyTree::kNodeKind;
    zNode.m_viChildren = viChildren;
  }
  return z;
}

std::vector<KivTreeRow> RowsOf(const KivToolStructure& z) {
  std::vector<KivTreeRow> vzRow;
  KivWalkAssembly(z, [&](const KivTreeRow& zRow) { vzRow.push_back(zRow); });
  return vzRow;
}

TEST(WalkAssembly, ParentsComeBeforeTheirChildrenInOrder) {
  const auto vzRow = RowsOf(Nodes({{2, 1}, {3}, {}, {}}));
  ASSERT_EQ(vzRow.size(), 4u);
  const uint64_t aiNode[] = {0, 2, 1, 3};
  const size_t aiDepth[] = {0, 1, 1, 2};
  for (size_t i = 0; i < 4; ++i) {
    EXPECT_EQ(vzRow[i].m_iNode, aiNode[i]);
    EXPECT_EQ(vzRow[i].m_iDepth, aiDepth[i]);
    EXPECT_EQ(vzRow[i].m_eKind, Kind::Node);
  }
  EXPECT_FALSE(vzRow[1].m_bLast);
  EXPECT_TRUE(vzRow[2].m_bLast);
}

TEST(WalkAssembly, CirclesAreCutAndNodesOfACircleAloneAreShown) {
  auto vzRow = RowsOf(Nodes({{1}, {0}}));
  ASSERT_EQ(vzRow.size(), 3u);
  EXPECT_EQ(vzRow[2].m_eKind, Kind::Circle);
  EXPECT_EQ(vzRow[2].m_iNode, 0u);
  vzRow = RowsOf(Nodes({{0}}));
  ASSERT_EQ(vzRow.size(), 2u);
  EXPECT_EQ(vzRow[1].m_eKind, Kind::Circle);
}

TEST(WalkAssembly, ANodeWithTwoParentsIsFollowedOnce) {
  // Each level names the next one twice: as a tree this has 2^64 leaves.
  std::vector<std::vector<uint64_t>> vviChildren;
  for (uint64_t i = 0; i < 64; ++i) vviChildren.push_back({i + 1, i + 1});
  vviChildren.push_back({});
  const auto vzRow = RowsOf(Nodes(vviChildren));
  EXPECT_EQ(vzRow.size(), 129u);
  EXPECT_EQ(vzRow.back().m_eKind, Kind::Again);
}

TEST(WalkAssembly, ChildrenAndNodesThatDoNotExistAreRows) {
  KivToolStructure z = Nodes({{7, UINT64_MAX}});
  z.m_vzInstance.push_back({});
  z.m_vzInstance.back().m_iNode = 5;
  const auto vzRow = RowsOf(z);
  ASSERT_EQ(vzRow.size(), 4u);
  EXPECT_EQ(vzRow[1].m_eKind, Kind::Missing);
  EXPECT_EQ(vzRow[2].m_eKind, Kind::Missing);
  EXPECT_EQ(vzRow[3].m_eKind, Kind::NoNode);
  EXPECT_EQ(vzRow[3].m_iNode, 5u);
}

TEST(WalkAssembly, AHundredThousandLevelsTakeNoStack) {
  std::vector<std::vector<uint64_t>> vviChildren(100'000);
  for (uint64_t i = 0; i + 1 < vviChildren.size(); ++i) vviChildren[i] = {i + 1};
  const KivToolStructure z = Nodes(vviChildren);
  size_t iDeepest = 0;
  KivWalkAssembly(z, [&](const KivTreeRow& zRow) { iDeepest = zRow.m_iDepth; });
  EXPECT_EQ(iDeepest, 99'999u);
}

TEST(PlacementText, NamesWhatAMatrixDoes) {
  EXPECT_EQ(KivPlacementText(KivEMatrix4()), "");
  KivEMatrix4 z;
  z.RotateX(1.5707963267948966);
  z.Translate({1, -2.5, 0});
  EXPECT_EQ(KivPlacementText(z), "at 1 -2.5 0, turned 90 deg");
  z = KivEMatrix4();
  z.Scale(2, 2, 2);
  EXPECT_EQ(KivPlacementText(z), "scaled 2");
  z = KivEMatrix4();
  z.Scale(-1, 1, 1);
  EXPECT_EQ(KivPlacementText(z), "mirrored, turned 180 deg");
  z = KivEMatrix4();
  z.Scale(1, 2, 1);
  EXPECT_EQ(KivPlacementText(z), "distorted");
  z = KivEMatrix4();
  z.Scale(1, 0, 1);
  EXPECT_EQ(KivPlacementText(z), "flattened");
  z[3] = NAN;
  EXPECT_EQ(KivPlacementText(z), "placement has values that are no numbers");
}

TEST(TreeCommand, DrawsTheAssembly) {
  const TestFolder zFolder;
  kivtest::MakeToolModel(zFolder / u"m.kiv");
  const kivtest::ToolRun zRun = RunKiv({u"tree", zFolder / u"m.kiv"});
  EXPECT_EQ(zRun.m_iExit, 0);
  EXPECT_EQ(zRun.m_strErr, "");
  EXPECT_EQ(zRun.m_strOut,
            "machine  root, camera, layers \"plates\" 1 2 (off)\n"
            "|-- group  inner, at 0 0 50\n"
            "|   |-- left \"bolt\"  leaf, part #0\n"
            "|   `-- right \"bolt\"  leaf, at 20 0 0, turned 90 deg, part #0\n"
            "`-- plate \xC3\xA4  leaf, part #1, colour 0 0 1 0.5, layer 1, PMI\n");
  EXPECT_EQ(RunKiv({u"tree", u"--depth", u"0", zFolder / u"m.kiv"}).m_strOut,
            "machine  root, camera, layers \"plates\" 1 2 (off)\n");
  const ordered_json z = ordered_json::parse(RunKiv({u"tree", u"--json", zFolder / u"m.kiv"}).m_strOut);
  ASSERT_EQ(z["rows"].size(), 5u);
  EXPECT_EQ(z["rows"][3]["name"], "right");
  EXPECT_EQ(z["rows"][3]["parent"], 1);
  EXPECT_EQ(z["rows"][3]["instances"][0]["part"], 0);
  EXPECT_EQ(z["rows"][4]["colour"], (std::vector<double>{0, 0, 1, 0.5}));
}

TEST(RecordsCommand, ListsRecordsByKind) {
  const TestFolder zFolder;
  kivtest::MakeToolModel(zFolder / u"m.kiv");
  const ordered_json zAll = ordered_json::parse(RunKiv({u"records", u"--json", zFolder / u"m.kiv"}).m_strOut);
  EXPECT_EQ(zAll["whole"], true);
  EXPECT_EQ(zAll["count"], zAll["records"].size());
  EXPECT_EQ(zAll["records"][0]["position"], 264);
  EXPECT_EQ(zAll["records"][0]["type"], "KivModel");
  uint64_t iNext = 264, nFree = 0, nMesh = 0;
  for (const auto& zRow : zAll["records"]) {
    EXPECT_EQ(zRow["position"], iNext);
    iNext += zRow["size"].get<uint64_t>();
    nFree += zRow["free"].get<bool>();
    nMesh += zRow.contains("tag") && zRow["tag"] == 1;
  }
  EXPECT_EQ(nMesh, 3u);
  EXPECT_EQ(ordered_json::parse(RunKiv({u"records", u"--json", u"--free", zFolder / u"m.kiv"}).m_strOut)["count"],
            nFree);
  for (const char16_t* szType : {u"1", u"FaceEdge", u"kivfaceedgedata"})
    EXPECT_EQ(
        ordered_json::parse(RunKiv({u"records", u"--json", u"--type", szType, zFolder / u"m.kiv"}).m_strOut)["count"],
        3);
  EXPECT_EQ(RunKiv({u"records", u"--type", u"nothing", zFolder / u"m.kiv"}).m_iExit, 2);
}

}  // namespace
