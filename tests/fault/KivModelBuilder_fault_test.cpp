// A model is saved while each single call of the system fails: what counts as saved is whole.
#include "KivModelBuilder.h"

#include <gtest/gtest.h>

#include <optional>
#include <set>
#include <stdexcept>
#include <vector>

#include "KivElementWalk.h"
#include "KivException.h"
#include "KivSysFault.h"
#include "KivTestHeap.h"
#include "KivTestModel.h"
#include "KivTestStore.h"

using namespace kiv;
using namespace kivtest;

namespace {

class ModelBuilderFault : public StoreTest {
 protected:
  static void Build(KivModelBuilder& z) {
    const size_t iPart = z.AddPart();
    for (const size_t iLevel : {0, 1}) {
      auto& zMesh = z.FaceEdge(iPart, iLevel);
      zMesh.m_fStep = 0.001f;
      for (int i = 0; i < 50; ++i) AddRibbon(zMesh, 1, static_cast<float>(i + 1));
    }
    const size_t iNode = z.AddNode(u"part");
    for (int i = 0; i < 300; ++i) z.PlaceInstance(iPart, KivEMatrix4(), iNode);
    z.PermanentIds().m_vstrPermanentId = {u"NB1"};
  }
  // Elements of the model that the walk loads; -1 if something is missing.
  int64_t Count(const KivWString& csPath) {
    KivModelStatusBase* pzModel = Open(csPath, false);
    if (pzModel == nullptr) return -1;
    const uint32_t iKey = pzModel->GetKey();
    int64_t nElements = 0;
    const bool bWhole = KivGetSecondElement(iKey) != nullptr &&
                        KivWalkElements(iKey, {0, 1, 2, 8}, kAllLevels, [&](KivOutOfCoreTreeNode&) { ++nElements; });
    Close(pzModel);
    return bWhole ? nElements : -1;
  }
};

}  // namespace

TEST_F(ModelBuilderFault, WhatCountsAsSavedIsWholeWhicheverCallFailed) {
  KivModelBuilder zBuilder;
  Build(zBuilder);
  const KivWString csPath = m_zFolder / u"model.kiv";
  ASSERT_TRUE(zBuilder.Save(csPath));
  const int64_t nElements = Count(csPath);
  ASSERT_GT(nElements, 3);
  for (const bool bThrow : {true, false})
    for (const KivSysCall iCall : {KivSysCall::FileOpen, KivSysCall::FileRead, KivSysCall::FileWrite,
                                   KivSysCall::MappingCreate, KivSysCall::MappingView}) {
      uint64_t nRefused = 0, nCalls = 0;
      for (uint64_t iNth = 1;; ++iNth) {
        SCOPED_TRACE(testing::Message() << "call " << static_cast<int>(iCall) << ", number " << iNth);
        const uint64_t nBefore = KivGetReportCount();
        bool bSaved = false, bFired = false;
        {
          KivSysFaultPlan zPlan;
          zPlan.m_iCall = iCall;
          zPlan.m_iNth = iNth;
          zPlan.m_bFromThenOn = iCall == KivSysCall::FileWrite;  // a disk that is full stays full
          const KivSysFaultScope zFault(zPlan);
          if (bThrow) {
            bSaved = zBuilder.Save(csPath);
          } else {
            const NoThrowScope zNoThrow;
            bSaved = zBuilder.Save(csPath);
          }
          bFired = zFault.HasFired();
        }
        if (bSaved) {
          EXPECT_EQ(Count(csPath), nElements);
        } else {
          EXPECT_GT(KivGetReportCount(), nBefore);
          ++nRefused;
        }
        nCalls += bFired;
        if (!bFired) {
          EXPECT_TRUE(bSaved);
          break;
        }
        ASSERT_LT(iNth, 5000u);
      }
      EXPECT_GT(nCalls, 0u) << "a call that is not made tests nothing: " << static_cast<int>(iCall);
      if (iCall == KivSysCall::FileOpen || iCall == KivSysCall::FileWrite) {
        EXPECT_GT(nRefused, 0u) << static_cast<int>(iCall);
      }
    }
}

TEST_F(ModelBuilderFault, ALackOfMemoryIsReportedAndWhatCountsAsSavedIsWhole) {
  KivModelBuilder zBuilder;
  Build(zBuilder);
  const KivWString csPath = m_zFolder / u"model.kiv";
  ASSERT_TRUE(zBuilder.Save(csPath));
  const int64_t nElements = Count(csPath);
  uint64_t nRefused = 0;
  for (uint64_t iNth = 1;; iNth += iNth < 200 ? 1 : iNth / 16) {
    SCOPED_TRACE(testing::Message() << "allocation " << iNth);
    const uint64_t nBefore = KivGetReportCount();
    bool bSaved = false, bFired = false;
    {
      const NoMemory zNoMemory(iNth, false);
      bSaved = zBuilder.Save(csPath);
      bFired = zNoMemory.HasFired();
    }
    if (bSaved) {
      EXPECT_EQ(Count(csPath), nElements);
    } else {
      EXPECT_GT(KivGetReportCount(), nBefore);
      ++nRefused;
    }
    if (!bFired) {
      EXPECT_TRUE(bSaved);
      break;
    }
  }
  EXPECT_GT(nRefused, 10u);
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
  zBuilder.PMI(0).AddPMI();
  zBuilder.Vertices(0).AddVertex();
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
  ASSERT_EQ(nWhole, 6);
  for (const bool bThrow : {true, false})
    for (const bool bMeshes : {false, true}) {
      uint64_t nFalse = 0;
      for (uint64_t iNth = 1;; ++iNth) {
        SCOPED_TRACE(testing::Message() << "allocation " << iNth << ", meshes " << bMeshes);
        const uint64_t nBefore = KivGetReportCount();
        bool bAll = false, bFired = false;
        nElements = 0;
        KivMeshStatistics zStatistics;
        {
          std::optional<NoThrowScope> zNoThrow;
          if (!bThrow) zNoThrow.emplace();
          const NoMemory zNoMemory(iNth, false);
          EXPECT_NO_THROW(bAll = bMeshes ? KivAddModelMeshes(iKey, kAllLevels, zStatistics)
                                         : KivWalkElements(iKey, siTag, kAllLevels, pfnCount));
          bFired = zNoMemory.HasFired();
        }
        if (bAll) {
          EXPECT_EQ(nElements, bMeshes ? 0 : nWhole);
        } else {
          EXPECT_GT(KivGetReportCount(), nBefore);
          ++nFalse;
        }
        if (!bFired) {
          EXPECT_TRUE(bAll) << KivLastQuietReport().m_szSource << KivLastQuietReport().m_iLine;
          break;
        }
      }
      EXPECT_GT(nFalse, 10u);
    }
  Close(pzModel);
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
