#include "KivMeshTree.h"

#include <gtest/gtest.h>

#include "KivElementClasses.h"
#include "KivFaceEdgeData.h"
#include "KivPolyElemData.h"
#include "KivTestElement.h"

namespace {

using namespace kiv;
using namespace kivtest;

class MeshTree : public ElementStoreTest {
 protected:
  MeshTree() { KivRegisterElementClasses(); }

  template <typename Block>
  uint64_t Add(uint64_t iLeft, uint64_t iRight, uint32_t nFaces) {
    auto pz = NewBlock<Block>();
    pz->m_fStep = 1;
    pz->m_iMeshFlags = kMeshIndexCount;
    pz->m_zHeader.m_aiLink = {0, iLeft, iRight};
    for (uint32_t i = 0; i < nFaces; ++i) {
      auto& z = pz->AddFace();
      z.m_iVertexCount = 4;
      z.m_iTriangleCount = 1;
      z.m_iIndexSize = 2;
      z.m_vfVertex = {0, 0, 0, 1, 0, 0, 20, 0, 0, 200, 0, 0};
      z.m_vfNormal.assign(12, 1);
      z.m_viIndex = {0, 1, 2, 1, 2, 3, 0};  // a triangle and a strip of two
    }
    pz->m_zHeader.m_iEntryCount = nFaces;
    pz->m_vzFace.Add().m_zFrame = {0, kGapKind, 12};
    const Bytes vc = BuildRecord(*pz);
    EXPECT_FALSE(vc.empty());
    uint64_t iPosition = 0;
    const KivContainerData zData(vc.data(), static_cast<uint32_t>(vc.size()), 0);
    EXPECT_EQ(ManagerOf(m_pzModel)->GetStorage()->AddRecord(zData, iPosition), KivStorageResult::Done);
    return iPosition;
  }
  void Link(uint64_t iPosition, size_t iLink, uint64_t iTo) {
    auto* pz = KivOutOfCoreHandle(m_pzModel->GetKey(), iPosition).Fetch<KivFaceEdgeData>();
    ASSERT_NE(pz, nullptr);
    pz->GetMemoryBlockForWrite()->m_zHeader.m_aiLink[iLink] = iTo;
    ASSERT_TRUE(pz->Deactivate());
  }
};

}  // namespace

TEST_F(MeshTree, TheFacesOfAllElementsOfBothKindsAreCountedAndGapsAreNot) {
  OpenEmpty(2);
  const uint64_t iLeaf = Add<KivMemoryBlockPolyElem>(0, 0, 2);
  const uint64_t iOther = Add<KivMemoryBlockFaceEdge>(0, 0, 3);
  const uint64_t iRoot = Add<KivMemoryBlockFaceEdge>(iLeaf, iOther, 1);
  KivMeshStatistics z;
  ASSERT_TRUE(KivAddMeshTree(m_pzModel->GetKey(), iRoot, z));
  EXPECT_EQ(z.m_iTriVertex, 6 * 4);
  EXPECT_EQ(z.m_iNormalTri, 6);
  EXPECT_EQ(z.m_iStripTri, 6 * 2);
  EXPECT_EQ(z.m_iTri2ByteVtxNum, 6 * 7);
  EXPECT_EQ(z.m_iDiff6BitVtxNum, 6 * 6);
  EXPECT_EQ(z.m_iVtxPM2XYZ, 6);
  EXPECT_EQ(z.m_iVtxPM63XYZ, 6);   // 19 steps along x
  EXPECT_EQ(z.m_iVtxPM255XYZ, 6);  // 180
  const std::vector<KivWString> vcsLine = z.Lines();
  ASSERT_EQ(vcsLine.size(), 4u);
  EXPECT_EQ(vcsLine[0], u"iTriVertex = 24, iNormalTri = 6, iStripTri = 12");
  EXPECT_EQ(vcsLine[3], u"iVtxPM2XYZ = 6, iVtxPM7XYZ = 0, iVtxPM63XYZ = 6, iVtxPM255XYZ = 6");
}

TEST_F(MeshTree, AnEmptyTreeHasNothingToCount) {
  OpenEmpty();
  KivMeshStatistics z;
  EXPECT_TRUE(KivAddMeshTree(m_pzModel->GetKey(), 0, z));
  EXPECT_EQ(z.m_iTriVertex, 0);
}

TEST_F(MeshTree, LinksThatFormACircleAreFollowedOnce) {
  OpenEmpty();
  const uint64_t iLeaf = Add<KivMemoryBlockFaceEdge>(0, 0, 1);
  const uint64_t iRoot = Add<KivMemoryBlockFaceEdge>(iLeaf, iLeaf, 1);
  Link(iLeaf, 1, iRoot);
  KivMeshStatistics z;
  EXPECT_TRUE(KivAddMeshTree(m_pzModel->GetKey(), iRoot, z));
  EXPECT_EQ(z.m_iNormalTri, 2);
}

TEST_F(MeshTree, WhatCannotBeLoadedIsReportedAndTheRestIsCounted) {
  OpenEmpty();
  const uint64_t iLeaf = Add<KivMemoryBlockFaceEdge>(0, 0, 1);
  const uint64_t iRoot = Add<KivMemoryBlockFaceEdge>(12345, iLeaf, 1);
  KivMeshStatistics z;
  const uint64_t nBefore = QuietReports();
  EXPECT_NO_REPORT(EXPECT_FALSE(KivAddMeshTree(m_pzModel->GetKey(), iRoot, z)));
  EXPECT_GT(QuietReports(), nBefore);
  EXPECT_EQ(z.m_iNormalTri, 2);
}
