// A model is saved while each single call of the system fails: what counts as saved is whole.
#include "KivModelBuilder.h"

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <stdexcept>
#include <vector>

#include "KivDataSpaceFields.h"
#include "KivElementWalk.h"
#include "KivException.h"
#include "KivLittleEndian.h"
#include "KivMeshTree.h"
#include "KivSysFault.h"
#include "KivTestElement.h"
#include "KivTestHeap.h"
#include "KivTestModel.h"

using namespace kiv;
using namespace kivtest;

namespace {

using Records = std::map<uint64_t, Bytes>;  // by key

class ModelBuilderFault : public ElementStoreTest {
 protected:
  // Enough instances for two elements, and one of everything.
  static void Build(KivModelBuilder& z) {
    const size_t iPart = z.AddPart();
    for (const size_t iLevel : {0, 1}) {
      auto& zMesh = z.FaceEdge(iPart, iLevel);
      zMesh.m_fStep = 0.001f;
      for (int i = 0; i < 50; ++i) AddRibbon(zMesh, 1, static_cast<float>(i + 1));
    }
    AddRibbons(z.PolyElem(iPart, 0), 1, 1, 1);
    KivBrepEntry& zGeometry = z.Brep(iPart).AddGeometry(kBrepAnalyticKind);
    zGeometry.m_vcGeometry.resize(50);
    zGeometry.m_vcGeometry[0] = 64;
    z.Vertices(iPart).AddVertex().m_iVertexData[0] = 5;
    const size_t iRoot = z.AddNode(u"root");
    const size_t iNode = z.AddNode(u"part", iRoot);
    for (int i = 0; i < 300; ++i) z.PlaceInstance(iPart, KivEMatrix4(), iNode);
    z.PMI(iNode).AddPMI().m_viPMIInts = {1, 2, 3};
    z.LayerFilter(iRoot).AddFilter().m_strFilterName = u"visible";
    z.Camera(iRoot).AddView().m_strViewName = u"front";
    z.PermanentIds().m_vstrPermanentId = {u"NB1"};
  }
  // The records of all elements that keys lead to from the root; empty if one cannot be had, or its parent is not among
  // them.
  Records RecordsOf(const KivWString& csPath) {
    m_pzModel = Open(csPath, false);
    if (m_pzModel == nullptr) return {};
    Records mapRecord;
    bool bWhole = true;
    std::set<uint64_t> siParent;
    std::vector<uint64_t> viToVisit = {kModelPosition};
    while (bWhole && !viToVisit.empty()) {
      const uint64_t iAt = viToVisit.back();
      viToVisit.pop_back();
      if (mapRecord.count(iAt) != 0) continue;
      auto* pz = KivOutOfCoreHandle(m_pzModel->GetKey(), iAt).Fetch<KivOutOfCoreTreeNode>();
      std::vector<uint64_t> viKey;
      bWhole = pz != nullptr && pz->GetAllPosition(viKey);
      if (!bWhole) break;
      viToVisit.insert(viToVisit.end(), viKey.begin(), viKey.end());
      siParent.insert(pz->GetMemoryBlock()->GetHeader().m_aiLink[0]);
      mapRecord[iAt] = Stored(*pz);
    }
    siParent.erase(0);
    for (const uint64_t iParent : siParent) bWhole = bWhole && mapRecord.count(iParent) != 0;
    Close(m_pzModel);
    return bWhole ? mapRecord : Records();
  }
  static std::map<uint32_t, int> TagsOf(const Records& mapRecord) {
    std::map<uint32_t, int> mapNum;
    for (const auto& [iKey, vc] : mapRecord) ++mapNum[KivLoad<uint32_t>(vc.data())];
    return mapNum;
  }

  struct Calls {
    uint64_t m_nFailed = 0;
    uint64_t m_nRefused = 0;
  };
  // Saves once while the fault lasts that pfnFault gives. What counts as saved is whole, what does not is reported.
  // False if the fault did not fire.
  template <typename Fault>
  bool SaveUnder(KivModelBuilder& zBuilder, const Records& mapWhole, Fault&& pfnFault, Calls& zCalls) {
    const KivWString csPath = m_zFolder / u"failing.kiv";
    const uint64_t nBefore = KivGetReportCount();
    bool bSaved = false, bFired = false;
    {
      const auto zFault = pfnFault();
      bSaved = zBuilder.Save(csPath);
      bFired = zFault.HasFired();
    }
    if (bSaved) {
      EXPECT_TRUE(RecordsOf(csPath) == mapWhole);
    } else {
      EXPECT_GT(KivGetReportCount(), nBefore);
      ++zCalls.m_nRefused;
    }
    EXPECT_TRUE(bFired || bSaved);
    zCalls.m_nFailed += bFired;
    return bFired;
  }
  // Saves again and again, each time with the next call of this kind failing, until no call is left.
  Calls SaveWithEachCallFailing(KivModelBuilder& zBuilder, const Records& mapWhole, KivSysCall iCall,
                                bool bFromThenOn) {
    Calls zCalls;
    for (uint64_t iNth = 1; iNth < 5000; ++iNth) {
      SCOPED_TRACE(testing::Message() << "call " << static_cast<int>(iCall) << ", number " << iNth
                                      << (bFromThenOn ? " and all behind it" : ""));
      KivSysFaultPlan zPlan;
      zPlan.m_iCall = iCall;
      zPlan.m_iNth = iNth;
      zPlan.m_bFromThenOn = bFromThenOn;
      if (!SaveUnder(
              zBuilder, mapWhole, [&] { return KivSysFaultScope(zPlan); }, zCalls))
        return zCalls;
    }
    ADD_FAILURE() << "calls without end";
    return zCalls;
  }
};

struct WithoutMapping {
  WithoutMapping() { KivSetNoDirectBuffer(true); }
  ~WithoutMapping() { KivSetNoDirectBuffer(false); }
};

}  // namespace

TEST_F(ModelBuilderFault, WhatCountsAsSavedIsWholeWhicheverCallFailed) {
  KivModelBuilder zBuilder;
  Build(zBuilder);
  const KivWString csPath = m_zFolder / u"model.kiv";
  ASSERT_TRUE(zBuilder.Save(csPath));
  const Records mapWhole = RecordsOf(csPath);
  ASSERT_EQ(TagsOf(mapWhole),
            (std::map<uint32_t, int>{
                {1, 2}, {2, 2}, {3, 1}, {4, 1}, {5, 1}, {6, 1}, {7, 1}, {8, 1}, {9, 1}, {11, 1}, {12, 1}, {13, 1}}));
  struct Kind {
    KivSysCall m_iCall;
    bool m_bFromThenOn;  // a disk that is full stays full
    bool m_bMapped;
    bool m_bRefuses;
  };
  for (const bool bThrow : {true, false})
    for (const Kind& z : {Kind{KivSysCall::FileOpen, false, true, true},
                          {KivSysCall::FileRead, false, true, false},
                          {KivSysCall::FileWrite, true, true, true},
                          {KivSysCall::FileWrite, false, true, false},
                          {KivSysCall::MappingCreate, false, true, false},
                          {KivSysCall::MappingView, false, true, false},
                          {KivSysCall::FileWrite, false, false, true}}) {
      SCOPED_TRACE(testing::Message() << "throws " << bThrow << ", mapped " << z.m_bMapped);
      std::optional<NoThrowScope> zNoThrow;
      if (!bThrow) zNoThrow.emplace();
      std::optional<WithoutMapping> zWithoutMapping;
      if (!z.m_bMapped) zWithoutMapping.emplace();
      const Calls zCalls = SaveWithEachCallFailing(zBuilder, mapWhole, z.m_iCall, z.m_bFromThenOn);
      EXPECT_GT(zCalls.m_nFailed, 0u) << "a call that is not made tests nothing: " << static_cast<int>(z.m_iCall);
      if (z.m_bRefuses) {
        EXPECT_GT(zCalls.m_nRefused, 0u) << static_cast<int>(z.m_iCall);
      }
    }
}

TEST_F(ModelBuilderFault, ALackOfMemoryIsReportedAndWhatCountsAsSavedIsWhole) {
  KivModelBuilder zBuilder;
  Build(zBuilder);
  const KivWString csPath = m_zFolder / u"model.kiv";
  ASSERT_TRUE(zBuilder.Save(csPath));
  const Records mapWhole = RecordsOf(csPath);
  Calls zCalls;
  bool bFired = true;
  for (uint64_t iNth = 1; bFired; iNth += iNth < 200 ? 1 : iNth / 16) {
    SCOPED_TRACE(testing::Message() << "allocation " << iNth);
    bFired = SaveUnder(
        zBuilder, mapWhole, [&] { return NoMemory(iNth, false); }, zCalls);
  }
  EXPECT_GT(zCalls.m_nRefused, 10u);
}

TEST_F(ModelBuilderFault, WithoutMemoryForANodeThereIsNoneAndTheNextOneTakesItsPlace) {
  KivModelBuilder zBuilder;
  const size_t iRoot = zBuilder.AddNode(u"root");
  uint64_t nFailed = 0;
  std::vector<uint64_t> viChildren;
  while (viChildren.size() < 9) {
    const size_t iNext = viChildren.size() + 1;
    bool bAdded = false;
    for (uint64_t iNth = 1; !bAdded; ++iNth) {
      try {
        const KivWString csName(50, u'n');
        {
          const NoMemory zNoMemory(iNth, false);
          zBuilder.AddNode(csName, iRoot);
        }
        bAdded = true;
      } catch (const std::bad_alloc&) {
        ++nFailed;
        EXPECT_THROW(zBuilder.Node(iNext), std::out_of_range);
        EXPECT_EQ(zBuilder.Node(iRoot).m_viChildren, viChildren);
      }
    }
    viChildren.push_back(iNext);
    EXPECT_EQ(zBuilder.Node(iNext).m_strNodeName[0], KivWString(50, u'n'));
    EXPECT_EQ(zBuilder.Node(iRoot).m_viChildren, viChildren);
  }
  EXPECT_GT(nFailed, 12u);  // names, and lists that grow
  EXPECT_TRUE(zBuilder.Save(m_zFolder / u"model.kiv"));
}

TEST_F(ModelBuilderFault, AnElementThatIsNotFoundForLackOfMemoryIsReported) {
  KivModelBuilder zBuilder;
  Build(zBuilder);
  const KivWString csPath = m_zFolder / u"model.kiv";
  ASSERT_TRUE(zBuilder.Save(csPath));
  for (const bool bThrow : {true, false}) {
    uint64_t nNull = 0;
    for (uint64_t iNth = 1;; ++iNth) {
      KivModelStatusBase* pzModel = Open(csPath, false);
      ASSERT_NE(pzModel, nullptr);
      const uint64_t nBefore = KivGetReportCount();
      bool bFound = false, bFired = false;
      {
        std::optional<NoThrowScope> zNoThrow;
        if (!bThrow) zNoThrow.emplace();
        const NoMemory zNoMemory(iNth, false);
        bFound = KivGetInstanceRoot(pzModel->GetKey()) != nullptr;
        bFired = zNoMemory.HasFired();
      }
      if (!bFound) {
        EXPECT_GT(KivGetReportCount(), nBefore) << iNth;
        ++nNull;
      }
      Close(pzModel);
      if (!bFired) break;
    }
    EXPECT_GT(nNull, 2u);
  }
}

TEST_F(ModelBuilderFault, AWalkWithoutMemoryForWhatItNotesIsFalseAfterAReport) {
  KivModelBuilder zBuilder;
  Build(zBuilder);
  const KivWString csPath = m_zFolder / u"model.kiv";
  ASSERT_TRUE(zBuilder.Save(csPath));
  const std::set<uint32_t> siTag = {0, 1, 2, 5, 7, 8, 11, 12, 13};
  KivModelStatusBase* pzModel = Open(csPath, false, 1000);
  ASSERT_NE(pzModel, nullptr);
  const uint32_t iKey = pzModel->GetKey();
  int64_t nElements = 0;
  const KivElementVisitor pfnCount = [&](KivOutOfCoreTreeNode&) { ++nElements; };
  ASSERT_TRUE(KivWalkElements(iKey, siTag, kAllLevels, pfnCount));
  const int64_t nWhole = nElements;
  ASSERT_EQ(nWhole, 10);
  KivInstance* pzInstances = KivGetInstanceRoot(iKey);
  ASSERT_NE(pzInstances, nullptr);
  const uint64_t iMeshKey = pzInstances->GetMemoryBlock()->m_vzInstance[0].m_vzLevel.at(0).m_iFaceEdgeKey;
  KivMeshStatistics zStatistics;
  const std::function<bool()> apfnWalk[] = {[&] { return KivWalkElements(iKey, siTag, kAllLevels, pfnCount); },
                                            [&] { return KivAddModelMeshes(iKey, kAllLevels, zStatistics); },
                                            [&] { return KivAddMeshTree(iKey, iMeshKey, zStatistics); }};
  for (const bool bThrow : {true, false})
    for (size_t iWalk = 0; iWalk < 3; ++iWalk) {
      uint64_t nFalse = 0;
      for (uint64_t iNth = 1;; ++iNth) {
        SCOPED_TRACE(testing::Message() << "allocation " << iNth << ", walk " << iWalk);
        const uint64_t nBefore = KivGetReportCount();
        bool bAll = false, bFired = false;
        nElements = 0;
        {
          std::optional<NoThrowScope> zNoThrow;
          if (!bThrow) zNoThrow.emplace();
          const NoMemory zNoMemory(iNth, false);
          EXPECT_NO_THROW(bAll = apfnWalk[iWalk]());
          bFired = zNoMemory.HasFired();
        }
        if (bAll) {
          EXPECT_EQ(nElements, iWalk == 0 ? nWhole : 0);
        } else {
          EXPECT_GT(KivGetReportCount(), nBefore);
          ++nFalse;
        }
        if (!bFired) {
          EXPECT_TRUE(bAll) << KivLastQuietReport().m_szSource << KivLastQuietReport().m_iLine;
          break;
        }
      }
      EXPECT_GT(nFalse, iWalk < 2 ? 10u : 1u);
    }
  Close(pzModel);
}

TEST_F(ModelBuilderFault, AFileThatIsReadWholeWithoutMemoryIsFalseAndNothingLeavesIt) {
  KivModelBuilder zBuilder;
  Build(zBuilder);
  const KivWString csPath = m_zFolder / u"model.kiv";
  ASSERT_TRUE(zBuilder.Save(csPath));
  int64_t nElements = 0;
  const KivElementVisitor pfnCount = [&](KivOutOfCoreTreeNode&) { ++nElements; };
  ASSERT_TRUE(KivReadWholeModel(csPath, pfnCount));
  const int64_t nWhole = nElements;
  for (const bool bThrow : {true, false}) {
    uint64_t nFalse = 0;
    for (uint64_t iNth = 1;; iNth += 1 + iNth / 16) {
      SCOPED_TRACE(testing::Message() << "allocation " << iNth);
      bool bAll = false, bFired = false;
      nElements = 0;
      {
        std::optional<NoThrowScope> zNoThrow;
        if (!bThrow) zNoThrow.emplace();
        const NoMemory zNoMemory(iNth, false);
        EXPECT_NO_THROW(bAll = KivReadWholeModel(csPath, pfnCount));
        bFired = zNoMemory.HasFired();
      }
      if (bAll)
        EXPECT_EQ(nElements, nWhole);
      else
        ++nFalse;
      if (!bFired) {
        EXPECT_TRUE(bAll);
        break;
      }
    }
    EXPECT_GT(nFalse, 10u);
  }
}

TEST_F(ModelBuilderFault, WhatAVisitorThrowsEndsTheWalkAndPassesThroughIt) {
  KivModelBuilder zBuilder;
  Build(zBuilder);
  const KivWString csPath = m_zFolder / u"model.kiv";
  ASSERT_TRUE(zBuilder.Save(csPath));
  KivModelStatusBase* pzModel = Open(csPath, false);
  ASSERT_NE(pzModel, nullptr);
  for (const uint32_t iTag : {1u, 2u}) {
    int nSeen = 0;
    const uint64_t nBefore = KivGetReportCount();
    EXPECT_THROW(KivWalkElements(pzModel->GetKey(), {iTag}, kAllLevels,
                                 [&](KivOutOfCoreTreeNode&) {
                                   ++nSeen;
                                   throw std::out_of_range("the visitor's own");
                                 }),
                 std::out_of_range);
    EXPECT_EQ(nSeen, 1);
    EXPECT_EQ(KivGetReportCount(), nBefore);
  }
  Close(pzModel);
}

TEST(ViewLookupFault, ALookupThatFindsNoMemoryIsReportedAndStaysAsItWas) {
  KivLayerFilterLookup zLayers;
  ASSERT_TRUE(zLayers.Build({{7, true}, {8, false}}));
  std::vector<KivLayer> vzLayer;
  for (uint32_t i = 0; i < 5; ++i)
    for (const bool bOn : {true, false}) vzLayer.push_back({10000 - 1000 * i, bOn});  // two sets
  KivViewLookup zView;
  ASSERT_TRUE(zView.Build(1, {{3, kPmiEntryKind, 9, 2}}));
  KivView zOther;
  for (uint32_t i = 0; i < 5; ++i) zOther.m_vPMIShow.push_back({i / 2, kPmiEntryKind, 1000 * i, 1});
  zOther.m_vLayerShow = zOther.m_vPMIShow;
  const auto EachAllocation = [](auto&& pfnBuild, auto&& pfnExpectAsBefore) {
    uint64_t nRefused = 0;
    for (uint64_t iNth = 1;; ++iNth) {
      SCOPED_TRACE(testing::Message() << "allocation " << iNth);
      const uint64_t nBefore = KivGetReportCount();
      bool bBuilt = false, bFired = false;
      {
        const NoMemory zNoMemory(iNth, false);
        EXPECT_NO_THROW(bBuilt = pfnBuild());
        bFired = zNoMemory.HasFired();
      }
      EXPECT_EQ(bBuilt, !bFired);
      EXPECT_EQ(KivGetReportCount(), nBefore + (bFired ? 1 : 0));
      if (!bFired) return nRefused;
      ++nRefused;
      pfnExpectAsBefore();
    }
  };
  EXPECT_GE(EachAllocation([&] { return zLayers.Build(vzLayer); },
                           [&] {
                             EXPECT_TRUE(zLayers.Query(false, 7));
                             EXPECT_FALSE(zLayers.Query(true, 8));
                             EXPECT_FALSE(zLayers.Query(false, 9));
                           }),
            2u);
  EXPECT_TRUE(zLayers.Query(false, 6000));
  EXPECT_FALSE(zLayers.Query(false, 7));
  EXPECT_GT(EachAllocation([&] { return zView.Build(2, zOther.m_vPMIShow); },
                           [&] {
                             EXPECT_FALSE(zView.Query(true, 3, 9));
                             EXPECT_TRUE(zView.Query(false, 1, 9));  // mode 1
                           }),
            3u);
  EXPECT_FALSE(zView.Query(true, 9, 9));  // mode 2
  EXPECT_GT(EachAllocation([&] { return KivViewDisplay(zOther).m_bWhole; }, [] {}), 6u);
}

TEST(BrepGeometryFault, ALackOfMemoryRefusesAStringAfterAReport) {
  // Clamped, uniform, of order 2, with 1000 poles that are all the first one.
  std::vector<uint8_t> vc = {1 | 8 | 16, 2, 0, 0xE8, 3, 0};
  vc.resize(vc.size() + 24);
  KivBrepGeometry zGeometry;
  ASSERT_TRUE(KivDecodeBrepGeometry(kBrepNurbsKind, vc, zGeometry));
  ASSERT_EQ(zGeometry.m_vzPole.size(), 1000u);
  uint64_t nRefused = 0;
  for (uint64_t iNth = 1;; ++iNth) {
    const uint64_t nBefore = KivGetReportCount();
    bool bDecoded = false, bFired = false;
    {
      const NoMemory zNoMemory(iNth, false);
      bDecoded = KivDecodeBrepGeometry(kBrepNurbsKind, vc, zGeometry);
      bFired = zNoMemory.HasFired();
    }
    EXPECT_EQ(bDecoded, !bFired);
    EXPECT_EQ(KivGetReportCount(), nBefore + (bFired ? 1 : 0));
    if (!bFired) break;
    ++nRefused;
  }
  EXPECT_EQ(nRefused, 2u);  // one list of knots and one of poles
}

TEST_F(ModelBuilderFault, AMeshOfALevelThatNoModelHasIsRefused) {
  KivModelBuilder zBuilder;
  Build(zBuilder);
  zBuilder.FaceEdge(0, SIZE_MAX);
  EXPECT_FALSE(zBuilder.Save(m_zFolder / u"model.kiv"));
}
