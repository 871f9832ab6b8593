#include "KivModelCheck.h"

#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <limits>
#include <nlohmann/json.hpp>
#include <random>
#include <set>
#include <sstream>
#include <utility>

#include "KivDataSpaceBase.h"
#include "KivElementWalk.h"
#include "KivMemoryBlockPositionTable.h"
#include "KivModelMeaning.h"
#include "KivOutOfCoreHandle.h"
#include "KivPMI.h"
#include "KivSysFault.h"
#include "KivTestFolder.h"
#include "KivToolError.h"
#include "KivToolTestModel.h"

namespace {

using namespace kiv;
using kivtest::RunKiv;
using kivtest::TestFolder;
using nlohmann::ordered_json;

struct Checked {
  KivCheckResult m_zResult;
  std::set<std::string> m_ssCode;
  std::string m_strText;
};

Checked Check(const KivWString& csPath) {
  Checked z;
  KivToolModel zModel(csPath, true);
  z.m_zResult = KivCheckModel(zModel, [&](const KivCheckFinding& zFinding) {
    z.m_ssCode.insert(zFinding.m_szCode);
    z.m_strText += std::string(zFinding.m_szCode) + ": " + zFinding.m_strSentence + "\n";
  });
  return z;
}

class ModelCheck : public testing::Test {
 protected:
  ModelCheck() {
    KivPrepareToolProcess();
    m_zParts = kivtest::FillToolModel(m_zBuilder);
  }
  Checked Saved() {
    EXPECT_TRUE(m_zBuilder.Save(m_csPath));
    return Check(m_csPath);
  }
  // Changes the stored model by way of the store, and checks it.
  template <typename Change>
  Checked Changed(Change&& pfnChange) {
    EXPECT_TRUE(m_zBuilder.Save(m_csPath));
    KivModelOpenInfo zInfo;
    zInfo.m_bOpenForWrite = true;
    KivModelStatusBase* pzModel = nullptr;
    EXPECT_EQ(KivDataSpaceBase::GetInstance()->AddModel(m_csPath, zInfo, &pzModel), KivAddModelResult::Done);
    pfnChange(pzModel->GetKey());
    EXPECT_TRUE(pzModel->SaveChanges());
    EXPECT_EQ(KivDataSpaceBase::GetInstance()->RemoveModel(pzModel), KivRemoveModelResult::Done);
    return Check(m_csPath);
  }
  template <typename Element, typename Edit>
  static void EditElement(uint32_t iManager, uint64_t iKey, Edit&& pfnEdit) {
    KivOutOfCoreHandle zHandle(iManager, iKey);
    pfnEdit(*zHandle.Fetch<Element>()->GetMemoryBlockForWrite());
    EXPECT_TRUE(zHandle.Commit());
  }
  static KivInstanceEntry FirstInstance(uint32_t iManager) {
    return KivGetInstanceRoot(iManager)->GetMemoryBlock()->m_vzInstance[0];
  }

  TestFolder m_zFolder;
  KivWString m_csPath = m_zFolder / u"m.kiv";
  KivModelBuilder m_zBuilder;
  kivtest::ToolModelParts m_zParts;
};

TEST_F(ModelCheck, AGoodModelHasNoFindings) {
  const Checked z = Saved();
  EXPECT_EQ(z.m_strText, "");
  EXPECT_EQ(z.m_zResult.m_nErrors + z.m_zResult.m_nWarnings, 0u);
  EXPECT_EQ(z.m_zResult.m_nElements, 13u);  // all but the position table
  EXPECT_EQ(z.m_zResult.m_nFaces, 4u);
  EXPECT_EQ(z.m_zResult.m_nEdges, 4u);
  EXPECT_EQ(z.m_zResult.m_nTriangles, 8u);
  EXPECT_EQ(z.m_zResult.m_nGeometries, 1u);
}

TEST_F(ModelCheck, AnEmptyModelHasNoErrors) {
  KivModelBuilder zEmpty;
  ASSERT_TRUE(zEmpty.Save(m_csPath));
  EXPECT_EQ(Check(m_csPath).m_zResult.m_nErrors, 0u);
}

TEST_F(ModelCheck, FindsAnIndexBeyondTheVertices) {
  m_zBuilder.FaceEdge(m_zParts.m_iBolt, 0).m_vzFace[0].m_viIndex[4] = 4;
  EXPECT_EQ(Saved().m_ssCode, std::set<std::string>{"mesh-index"});
}

TEST_F(ModelCheck, FindsTwoFacesWithOneId) {
  m_zBuilder.FaceEdge(m_zParts.m_iBolt, 1).m_vzFace[1].m_iId = 1;
  const Checked z = Saved();
  EXPECT_EQ(z.m_ssCode, std::set<std::string>{"mesh-id-twice"});
  EXPECT_EQ(z.m_zResult.m_nErrors, 0u);
}

TEST_F(ModelCheck, FindsABadGeometryStringAndABadId) {
  m_zBuilder.Brep(m_zParts.m_iBolt).m_vzGeometry[0].m_vcGeometry[1] = 9;
  m_zBuilder.Brep(m_zParts.m_iBolt).m_vzGeometry[0].m_iGeometryId = 0;
  EXPECT_EQ(Saved().m_ssCode, (std::set<std::string>{"geometry-invalid", "geometry-id"}));
}

TEST_F(ModelCheck, FindsBadIndicesOfNodesAndInstances) {
  const size_t iApart = m_zBuilder.AddNode(u"apart", m_zParts.m_iRoot);
  const Checked z = Changed([&](uint32_t iManager) {
    EditElement<KivAssemblyTree>(iManager, KivGetAssemblyTree(iManager)->GetPositionKey(),
                                 [&](KivMemoryBlockAssemblyTree& zBlock) {
                                   std::erase(zBlock.m_vzNode[m_zParts.m_iRoot].m_viChildren, iApart);
                                   auto& viChildren = zBlock.m_vzNode[m_zParts.m_iGroup].m_viChildren;
                                   viChildren.insert(viChildren.end(), {99, m_zParts.m_iRoot, viChildren[0]});
                                 });
    EditElement<KivInstance>(iManager, KivGetInstanceRoot(iManager)->GetPositionKey(),
                             [](KivMemoryBlockInstance& zBlock) {
                               zBlock.m_vzInstance[0].m_iInstanceData[0] = 77;
                               zBlock.m_vzInstance[1].m_zMatrix[12] += 1;
                             });
  });
  EXPECT_EQ(z.m_ssCode, (std::set<std::string>{"node-child", "node-circle", "node-two-parents", "node-root",
                                               "instance-node", "instance-placement"}))
      << z.m_strText;
}

TEST_F(ModelCheck, FindsNumbersThatAreNone) {
  m_zBuilder.Node(m_zParts.m_iGroup).m_zMatrix[12] = NAN;
  EXPECT_TRUE(Saved().m_ssCode.count("node-matrix"));
}

TEST_F(ModelCheck, FindsKeysThatLeadNowhereAndToOtherTypes) {
  const Checked z = Changed([](uint32_t iManager) {
    const uint64_t iBrep = FirstInstance(iManager).m_iBrepKey;
    EditElement<KivInstance>(iManager, KivGetInstanceRoot(iManager)->GetPositionKey(),
                             [&](KivMemoryBlockInstance& zBlock) {
                               zBlock.m_vzInstance[0].m_vzLevel[0].m_iFaceEdgeKey = iBrep;
                               zBlock.m_vzInstance[1].m_iVertexKey = 265;
                               zBlock.m_vzInstance[2].m_iVertexKey2 = 0x8000000000001000;
                             });
  });
  EXPECT_EQ(z.m_zResult.m_mapCode.count("key-type"), 1u) << z.m_strText;
  EXPECT_TRUE(z.m_ssCode.count("key-dangling")) << z.m_strText;
  EXPECT_GE(z.m_zResult.m_mapCode.at("key-dangling"), 2u);
}

TEST_F(ModelCheck, FindsWhatNoKeyLeadsTo) {
  const Checked z = Changed([](uint32_t iManager) {
    EditElement<KivModelNote>(iManager, KivGetModelNote(iManager)->GetPositionKey(),
                              [](KivMemoryBlockModelNote& zBlock) { zBlock.m_iSecondKey = 0; });
  });
  EXPECT_EQ(z.m_ssCode, std::set<std::string>{"element-unreachable"});
  EXPECT_EQ(z.m_zResult.m_nErrors, 0u);
}

TEST_F(ModelCheck, WhatNoKeyLeadsToIsCheckedAllTheSame) {
  uint64_t iBrep = 0;
  const auto Release = [&](uint32_t iManager) {
    const uint64_t iKey = FirstInstance(iManager).m_iBrepKey;
    iBrep = KivOutOfCoreManager::GetElement(iManager, iKey)->GetPosition();
    EditElement<KivInstance>(iManager, KivGetInstanceRoot(iManager)->GetPositionKey(),
                             [](KivMemoryBlockInstance& zBlock) {
                               for (KivInstanceEntry& z : zBlock.m_vzInstance) z.m_iBrepKey = 0;
                             });
  };
  m_zBuilder.Brep(m_zParts.m_iBolt).m_vzGeometry[0].m_vcGeometry[1] = 9;
  const Checked z = Changed(Release);
  EXPECT_EQ(z.m_ssCode, (std::set<std::string>{"element-unreachable", "geometry-invalid"})) << z.m_strText;
  EXPECT_EQ(z.m_zResult.m_nElements, 13u);
  std::string strBytes = m_zFolder.ReadBytes(u"m.kiv");
  strBytes[iBrep + 16 + 72 + 4] = 77;  // the kind of its entry
  m_zFolder.WriteBytes(u"m.kiv", strBytes);
  const Checked zCut = Check(m_csPath);
  EXPECT_EQ(zCut.m_ssCode, (std::set<std::string>{"element-unreachable", "element-unloadable"})) << zCut.m_strText;
}

TEST_F(ModelCheck, KeysOfWhatNoKeyLeadsToAreChecked) {
  const Checked z = Changed([&](uint32_t iManager) {
    const uint64_t iTree = KivGetAssemblyTree(iManager)->GetPositionKey();
    const std::vector<KivInstanceLevel> vzLevel = FirstInstance(iManager).m_vzLevel;
    EditElement<KivFaceEdgeData>(iManager, vzLevel[0].m_iFaceEdgeKey, [&](KivMemoryBlockFaceEdge& zBlock) {
      zBlock.m_zHeader.m_aiLink = {0, vzLevel[1].m_iFaceEdgeKey, 0};
    });
    EditElement<KivFaceEdgeData>(iManager, vzLevel[1].m_iFaceEdgeKey, [&](KivMemoryBlockFaceEdge& zBlock) {
      zBlock.m_zHeader.m_aiLink = {0x8000000000001000, 0, iTree};  // a parent that is not there, a mesh that is none
    });
    EditElement<KivInstance>(iManager, KivGetInstanceRoot(iManager)->GetPositionKey(),
                             [](KivMemoryBlockInstance& zBlock) {
                               for (KivInstanceEntry& zEntry : zBlock.m_vzInstance) zEntry.m_vzLevel.clear();
                             });
    uint64_t iPMI = 0;
    EditElement<KivAssemblyTree>(iManager, iTree, [&](KivMemoryBlockAssemblyTree& zBlock) {
      for (KivAssemblyNode& zNode : zBlock.m_vzNode)
        if (zNode.m_iPMIKey != 0) iPMI = std::exchange(zNode.m_iPMIKey, 0);
    });
    EditElement<KivPMI>(iManager, iPMI, [&](KivMemoryBlockPMI& zBlock) {
      zBlock.m_zHeader.m_aiLink = {iTree, iTree, 0};
    });
  });
  EXPECT_EQ(z.m_ssCode, (std::set<std::string>{"element-unreachable", "key-dangling", "key-type", "keys-refused",
                                               "link-parent", "link-twice"}))
      << z.m_strText;
  EXPECT_EQ(z.m_zResult.m_mapCode.at("element-unreachable"), 4u) << z.m_strText;
  EXPECT_EQ(z.m_zResult.m_mapCode.at("link-parent"), 1u) << z.m_strText;
  EXPECT_EQ(z.m_zResult.m_mapCode.at("key-dangling"), 1u) << z.m_strText;
}

TEST_F(ModelCheck, TrianglesOfStripsAreCounted) {
  KivMemoryBlockFaceEdge& zMesh = m_zBuilder.FaceEdge(m_zParts.m_iBolt, 0);
  zMesh.m_iMeshFlags |= kMeshIndexCount;
  zMesh.m_vzFace[0].m_viIndex = {0, 1, 2, 0, 2, 3, 0, 1, 3, 2};  // two, and a strip of two
  const Checked z = Saved();
  EXPECT_EQ(z.m_strText, "");
  EXPECT_EQ(z.m_zResult.m_nTriangles, 10u);
}

TEST_F(ModelCheck, FindsCirclesOfLinksAndWrongParents) {
  const Checked z = Changed([](uint32_t iManager) {
    const uint64_t iBrep = FirstInstance(iManager).m_iBrepKey;
    EditElement<KivBrepData>(iManager, iBrep, [&](KivMemoryBlockBrep& zBlock) {
      zBlock.m_zHeader.m_aiLink = {kModelPosition, iBrep, iBrep};
    });
  });
  EXPECT_EQ(z.m_ssCode, (std::set<std::string>{"link-twice", "link-parent"})) << z.m_strText;
}

TEST_F(ModelCheck, FindsAnElementThatCannotBeRead) {
  uint64_t iMesh = 0;
  Changed([&](uint32_t iManager) {
    iMesh =
        KivOutOfCoreManager::GetElement(iManager, FirstInstance(iManager).m_vzLevel[0].m_iFaceEdgeKey)->GetPosition();
  });
  std::string strBytes = m_zFolder.ReadBytes(u"m.kiv");
  strBytes[iMesh + 16 + 100 + 4] = 77;  // the kind of the first entry
  m_zFolder.WriteBytes(u"m.kiv", strBytes);
  const Checked z = Check(m_csPath);
  EXPECT_EQ(z.m_ssCode, std::set<std::string>{"element-unloadable"}) << z.m_strText;
}

// --- Codes of single faults -----------------------------------------------------------------------------------------

TEST_F(ModelCheck, FindsMoreLevelsThanTolerances) {
  m_zBuilder.SetLevels({1.0f});
  const Checked z = Saved();
  EXPECT_EQ(z.m_ssCode, std::set<std::string>{"instance-levels"});
  EXPECT_EQ(z.m_zResult.m_nErrors, 0u);
}

TEST_F(ModelCheck, FindsVerticesOutsideTheBoxOfTheirElement) {
  const Checked z = Changed([](uint32_t iManager) {
    EditElement<KivFaceEdgeData>(
        iManager, FirstInstance(iManager).m_vzLevel[0].m_iFaceEdgeKey,
        [](KivMemoryBlockFaceEdge& zBlock) { zBlock.m_zHeader.m_afBoxMax[0] = zBlock.m_zHeader.m_afBoxMin[0]; });
  });
  EXPECT_EQ(z.m_ssCode, std::set<std::string>{"mesh-box"}) << z.m_strText;
}

TEST_F(ModelCheck, FindsBoxesOfInstancesNodesAndTheModelThatAreNone) {
  const float fInfinity = std::numeric_limits<float>::infinity();
  const Checked z = Changed([&](uint32_t iManager) {
    EditElement<KivModel>(iManager, kModelPosition, [](KivMemoryBlockModel& zBlock) {
      zBlock.m_fModelBoxMax[1] = zBlock.m_fModelBoxMin[1] - 1;
      zBlock.m_zHeader.m_afBoxMin[2] = NAN;
    });
    EditElement<KivInstance>(iManager, KivGetInstanceRoot(iManager)->GetPositionKey(),
                             [&](KivMemoryBlockInstance& zBlock) {
                               zBlock.m_vzInstance[0].m_fInstanceBox[5] = NAN;
                               zBlock.m_vzInstance[1].m_fInstanceBox[0] = 1e30f;
                               zBlock.m_vzInstance[2].m_fInstanceBox = kNoBox;  // absent
                               zBlock.m_zHeader.m_afBoxMax[0] = fInfinity;
                             });
    EditElement<KivAssemblyTree>(iManager, KivGetAssemblyTree(iManager)->GetPositionKey(),
                                 [&](KivMemoryBlockAssemblyTree& zBlock) {
                                   zBlock.m_vzNode[0].m_fNodeBox = kNoBox;
                                   zBlock.m_vzNode[1].m_fNodeBox[3] = -fInfinity;
                                 });
  });
  EXPECT_EQ(z.m_ssCode, std::set<std::string>{"box-invalid"}) << z.m_strText;
  EXPECT_EQ(z.m_zResult.m_nErrors, 6u) << z.m_strText;
}

TEST_F(ModelCheck, FindsAnInstanceWhoseMatrixHasNoNumbers) {
  const Checked z = Changed([](uint32_t iManager) {
    EditElement<KivInstance>(iManager, KivGetInstanceRoot(iManager)->GetPositionKey(),
                             [](KivMemoryBlockInstance& zBlock) { zBlock.m_vzInstance[0].m_zMatrix[12] = NAN; });
  });
  EXPECT_EQ(z.m_ssCode, std::set<std::string>{"instance-matrix"}) << z.m_strText;
}

TEST_F(ModelCheck, FindsAnElementThatDoesNotListItsKeys) {
  const Checked z = Changed([](uint32_t iManager) {
    EditElement<KivModelNote>(iManager, KivGetModelNote(iManager)->GetPositionKey(),
                              [](KivMemoryBlockModelNote& zBlock) { zBlock.m_zHeader.m_aiLink[0] = 0; });
  });
  EXPECT_TRUE(z.m_ssCode.count("keys-refused")) << z.m_strText;
}

TEST_F(ModelCheck, FindsAttributesThatMakeNoColourLayerOrUnit) {
  const float fNan = std::nanf("");
  KivSetColour(m_zBuilder.FaceEdge(m_zParts.m_iBolt, 0).m_vzFace[0].m_vzAttribute, {fNan, 0, 0, 1});
  KivSetLayer(m_zBuilder.FaceEdge(m_zParts.m_iBolt, 0).m_vzEdge[0].m_vzAttribute, 1);
  m_zBuilder.FaceEdge(m_zParts.m_iBolt, 0).m_vzEdge[0].m_vzAttribute[0].m_vcBytes.pop_back();
  KivSetColour(m_zBuilder.Node(m_zParts.m_iGroup).m_vzAttribute, {1, 1, 1, 1});
  m_zBuilder.Node(m_zParts.m_iGroup).m_vzAttribute[0].m_vcBytes.push_back(0);
  KivSetColour(m_zBuilder.Node(m_zParts.m_iRoot).m_vzAttribute, {1, 1, 1, 1.5f});
  KivSetColour(m_zBuilder.FaceEdge(m_zParts.m_iBolt, 1).m_vzFace[0].m_vzAttribute, {0, -0.1f, 0, 1});
  KivSetUnit(m_zBuilder.NoteAttributes(), -1);
  const Checked z = Saved();
  EXPECT_EQ(z.m_ssCode, std::set<std::string>{"attribute-invalid"}) << z.m_strText;
  EXPECT_EQ(z.m_zResult.m_nWarnings, 6u) << z.m_strText;
}

TEST_F(ModelCheck, FindsListsThatDoNotFitTheirCounts) {
  KivMemoryBlockFaceEdge& zMesh = m_zBuilder.FaceEdge(m_zParts.m_iBolt, 0);
  zMesh.m_iMeshFlags |= kMeshIndexCount;
  zMesh.m_vzFace[0].m_viIndex = {0, 1, 2};  // of two triangles
  EXPECT_EQ(Saved().m_ssCode, std::set<std::string>{"mesh-length"}) << Check(m_csPath).m_strText;
}

TEST_F(ModelCheck, FindsMoreInTheContainerThanIsListed) {
  ASSERT_TRUE(m_zBuilder.Save(m_csPath));
  std::string strBytes = m_zFolder.ReadBytes(u"m.kiv");
  {
    KivToolModel zModel(m_csPath);
    KivRecordWalk zWalk(zModel);
    KivToolRecord zTable;
    while (zWalk.Next(zTable) && zTable.m_iTag != KivMemoryBlockPositionTable::kElementType) continue;
    // Small ones in its place, which do not end as records do.
    uint64_t iAt = zTable.m_iPosition, nSize = 24 + zTable.m_iRecordSize % 24;
    for (const uint64_t iEnd = iAt + zTable.m_iRecordSize; iAt < iEnd; iAt += nSize, nSize = 24) {
      uint8_t* const pc = reinterpret_cast<uint8_t*>(&strBytes[iAt]);
      KivStore<uint64_t>(pc, nSize);
      KivStore<uint64_t>(pc + 8, 0);
      KivStore<uint64_t>(pc + nSize - 8, 0);
    }
  }
  m_zFolder.WriteBytes(u"m.kiv", strBytes);
  const Checked z = Check(m_csPath);
  EXPECT_EQ(z.m_zResult.m_mapCode.at("container-BackPointer"), KivContainerCheck::kMaxListed);
  EXPECT_EQ(z.m_zResult.m_mapCode.count("container-more"), 1u);
}

TEST_F(ModelCheck, AContainerThatCannotBeReadIsAFinding) {
  ASSERT_TRUE(m_zBuilder.Save(m_csPath));
  KivToolModel zModel(m_csPath, true);
  std::set<std::string> ssCode;
  KivSysFaultPlan zPlan;
  zPlan.m_bAnyCall = true;
  zPlan.m_iNth = 1;
  zPlan.m_bFromThenOn = true;
  {
    const KivSysFaultScope zScope(zPlan);
    KivCheckModel(zModel, [&](const KivCheckFinding& z) { ssCode.insert(z.m_szCode); });
    EXPECT_TRUE(zScope.HasFired());
  }
  EXPECT_TRUE(ssCode.count("container-unreadable")) << testing::PrintToString(ssCode);
}

// The bytes of the stored model with one changed in the record of an element.
class ChangedRecord : public ModelCheck {
 protected:
  // Offset in the payload; the key is that of the element, asked for in the open model.
  template <typename KeyOf>
  Checked With(KeyOf&& pfnKeyOf, size_t iOffset, char cValue) {
    uint64_t iPosition = 0;
    Changed([&](uint32_t iManager) {
      iPosition = KivOutOfCoreManager::GetElement(iManager, pfnKeyOf(iManager))->GetPosition();
    });
    std::string strBytes = m_zFolder.ReadBytes(u"m.kiv");
    strBytes[iPosition + 16 + iOffset] = cValue;
    m_zFolder.WriteBytes(u"m.kiv", strBytes);
    return Check(m_csPath);
  }
};

TEST_F(ChangedRecord, AFirstRecordThatIsNoModelIsFound) {
  const Checked z = With([](uint32_t) { return uint64_t{kModelPosition}; }, 0, 77);
  EXPECT_TRUE(z.m_ssCode.count("model-missing")) << z.m_strText;
}

TEST_F(ChangedRecord, AnElementOfAnApplicationsOwnTypeIsAWarning) {
  const Checked z = With([](uint32_t iManager) { return FirstInstance(iManager).m_vzLevel[0].m_iFaceEdgeKey; }, 2, 5);
  EXPECT_EQ(z.m_ssCode, std::set<std::string>{"element-foreign"}) << z.m_strText;
}

TEST_F(ChangedRecord, CoordinatesThatBecomeNoNumbersAreFound) {
  constexpr size_t kStepExponent = 72 + 12 + 3;  // behind the header with the width, and the origin
  const Checked z =
      With([](uint32_t iManager) { return FirstInstance(iManager).m_vzLevel[0].m_iFaceEdgeKey; }, kStepExponent, 0x7F);
  EXPECT_EQ(z.m_ssCode, std::set<std::string>{"mesh-number"}) << z.m_strText;
}

TEST_F(ChangedRecord, ABoxOfAMeshThatBecomesNoNumberIsFound) {
  constexpr size_t kHighX = 52;  // 100, which the one byte makes 0x7FC80000
  const Checked z = With(
      [](uint32_t iManager) {
        return KivGetInstanceRoot(iManager)->GetMemoryBlock()->m_vzInstance[2].m_vzLevel[0].m_iFaceEdgeKey;
      },
      kHighX + 3, 0x7F);
  EXPECT_EQ(z.m_ssCode, std::set<std::string>{"box-invalid"}) << z.m_strText;
}

TEST_F(ChangedRecord, ATreeThatCannotBeLoadedLeavesTheStructureUnchecked) {
  const Checked z = With([](uint32_t iManager) { return KivGetAssemblyTree(iManager)->GetPositionKey(); }, 0, 77);
  EXPECT_TRUE(z.m_ssCode.count("structure-incomplete")) << z.m_strText;
}

TEST_F(ModelCheck, AKeyThatNobodyHoldsIsFoundWhereItLeadsNowhere) {
  EXPECT_TRUE(m_zBuilder.Save(m_csPath));
  KivToolRecord zTable;
  {
    KivToolModel zModel(m_csPath);
    KivRecordWalk zWalk(zModel);
    while (zWalk.Next(zTable) && zTable.m_iTag != KivMemoryBlockPositionTable::kElementType) continue;
  }
  const std::string strGood = m_zFolder.ReadBytes(u"m.kiv");
  const uint64_t iTable = zTable.m_iPosition + 16;
  for (const uint64_t iPosition : {uint64_t{0}, kModelPosition + 1, uint64_t{1} << 60, kModelPosition}) {
    std::string strBytes = strGood;
    uint8_t* const pcTable = reinterpret_cast<uint8_t*>(&strBytes[iTable]);
    uint8_t* const pcNum = pcTable + KivMemoryBlockPositionTable::kRecordSize - 8;
    const uint64_t nKeys = KivLoad<uint64_t>(pcNum);
    KivStore<uint64_t>(pcTable + KivMemoryBlockPositionTable::kHeaderSize + 8 * nKeys, iPosition);
    KivStore<uint64_t>(pcNum, nKeys + 1);
    m_zFolder.WriteBytes(u"m.kiv", strBytes);
    const Checked z = Check(m_csPath);
    const bool bLeadsNowhere = iPosition != 0 && iPosition != kModelPosition;
    EXPECT_EQ(z.m_ssCode, bLeadsNowhere ? std::set<std::string>{"key-stale"} : std::set<std::string>{}) << z.m_strText;
    EXPECT_EQ(z.m_zResult.m_nErrors, 0u);
  }
}

TEST_F(ModelCheck, AContainerThatOpensWithAReportIsFound) {
  EXPECT_TRUE(m_zBuilder.Save(m_csPath));
  const std::string strGood = m_zFolder.ReadBytes(u"m.kiv");
  m_zFolder.WriteBytes(u"m.kiv", strGood.substr(0, strGood.size() - 1));
  EXPECT_TRUE(Check(m_csPath).m_ssCode.count("container-reported")) << Check(m_csPath).m_strText;
}

TEST_F(ModelCheck, EveryCodeIsInTheTableOnceAndInTheDocument) {
  std::ifstream zFile(KIV_TEST_DOCS_DIR "/kiv.md");
  std::stringstream zDocument;
  zDocument << zFile.rdbuf();
  std::set<std::string> ssCode;
  for (const KivCheckCode& z : KivListCheckCodes()) {
    EXPECT_TRUE(ssCode.insert(z.m_szCode).second) << z.m_szCode;
    const std::string strRow = std::string("| `") + z.m_szCode + "` | " +
                               (z.m_eSeverity == KivCheckSeverity::Error ? "error" : "warning") + " | " +
                               z.m_szMeaning + " |";
    EXPECT_NE(zDocument.str().find(strRow), std::string::npos) << strRow;
  }
}

// Damage of any kind ends in findings or in one line.
class DamagedModel : public ModelCheck {
 protected:
  void SetUp() override {
    ASSERT_TRUE(m_zBuilder.Save(m_csPath));
    m_strGood = m_zFolder.ReadBytes(u"m.kiv");
  }
  // Errors found; -1 if the file is not opened.
  int64_t ErrorsOf(const std::string& strBytes) {
    m_zFolder.WriteBytes(u"damaged.kiv", strBytes);
    try {
      const Checked z = Check(m_zFolder / u"damaged.kiv");
      return static_cast<int64_t>(z.m_zResult.m_nErrors);
    } catch (const KivToolError& e) {
      EXPECT_NE(std::string(e.what()), "");
      return -1;
    }
  }
  std::string m_strGood;
};

TEST_F(DamagedModel, EveryCutIsSeen) {
  // The one table of positions has most of the bytes: inside of it steps are larger.
  const size_t nTail = 6000;
  for (size_t nLength = 0; nLength < m_strGood.size();
       nLength += nLength < 600 || nLength + nTail > m_strGood.size() ? 7 : 4999)
    EXPECT_NE(ErrorsOf(m_strGood.substr(0, nLength)), 0) << nLength;
}

TEST_F(DamagedModel, FlippedBytesAreNoCrash) {
  std::mt19937 zRandom(20);
  size_t nSeen = 0;
  for (int i = 0; i < 300; ++i) {
    std::string strBytes = m_strGood;
    // Most of them outside of the large table: in the head, and in the elements and the image of the free space.
    const size_t iEnd = static_cast<size_t>(KivLoad<uint64_t>(reinterpret_cast<const uint8_t*>(&strBytes[8 + 72])));
    const size_t iTableEnd = 264 + KivMemoryBlockPositionTable::kRecordSize;
    const size_t iAt = i % 4 == 0 ? zRandom() % 400 : iTableEnd + zRandom() % (iEnd + 400 - iTableEnd);
    strBytes[iAt] = static_cast<char>(strBytes[iAt] ^ (1 + zRandom() % 255));
    nSeen += ErrorsOf(strBytes) != 0;
  }
  EXPECT_GT(nSeen, 100u);
}

TEST_F(ModelCheck, TheCommandGives1ForErrorsAnd0ForWarnings) {
  kivtest::MakeToolModel(m_zFolder / u"good.kiv");
  const kivtest::ToolRun zGood = RunKiv({u"check", m_zFolder / u"good.kiv"});
  EXPECT_EQ(zGood.m_iExit, 0);
  EXPECT_NE(zGood.m_strOut.find(" 0 errors, 0 warnings; 13 elements"), std::string::npos) << zGood.m_strOut;
  m_zBuilder.FaceEdge(m_zParts.m_iBolt, 1).m_vzFace[1].m_iId = 1;
  ASSERT_TRUE(m_zBuilder.Save(m_csPath));
  EXPECT_EQ(RunKiv({u"check", m_csPath}).m_iExit, 0);
  m_zBuilder.FaceEdge(m_zParts.m_iBolt, 0).m_vzFace[0].m_viIndex[4] = 4;
  ASSERT_TRUE(m_zBuilder.Save(m_csPath));
  const kivtest::ToolRun zBad = RunKiv({u"check", u"--json", m_csPath});
  EXPECT_EQ(zBad.m_iExit, 1);
  const ordered_json z = ordered_json::parse(zBad.m_strOut);
  EXPECT_EQ(z["errors"], 1);
  EXPECT_EQ(z["warnings"], 1);
  EXPECT_EQ(z["codes"]["mesh-index"], 1);
  EXPECT_EQ(z["findings"].size(), 2u);
  EXPECT_GT(z["findings"][0]["position"], 264);
}

}  // namespace
