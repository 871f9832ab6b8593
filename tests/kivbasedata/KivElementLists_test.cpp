// The lists of each kind of block, as they are named for the memory that a block keeps.
#include <gtest/gtest.h>

#include <functional>

#include "KivAssemblyTree.h"
#include "KivBrepData.h"
#include "KivCamera.h"
#include "KivFaceEdgeData.h"
#include "KivInstance.h"
#include "KivLayerFilter.h"
#include "KivPMI.h"
#include "KivPolyElemData.h"
#include "KivTestElement.h"
#include "KivVertexData.h"

namespace {

using namespace kiv;
using namespace kivtest;

constexpr size_t kMany = 1 << 16;  // bytes and more, of a list

template <typename Block>
using Fills = std::vector<std::function<void(Block&)>>;

// At least so many bytes; of attributes the list, or the bytes of one.
template <typename List>
void Fill(List& v) {
  v.resize(kMany / sizeof(typename List::value_type) + 1);
}
void FillBytes(std::vector<KivAttribute>& vz) {
  vz.resize(1);
  Fill(vz[0].m_vcBytes);
}

// One for each list: adds an entry in which it is full.
Fills<KivMemoryBlockAssemblyTree> FillsOf(const KivMemoryBlockAssemblyTree&) {
  return {[](auto& z) { Fill(z.AddNode().m_viChildren); },     [](auto& z) { Fill(z.AddNode().m_strNodeName[0]); },
          [](auto& z) { Fill(z.AddNode().m_strNodeName[1]); }, [](auto& z) { Fill(z.AddNode().m_strNodeName[2]); },
          [](auto& z) { Fill(z.AddNode().m_vzAttribute); },    [](auto& z) { FillBytes(z.AddNode().m_vzAttribute); }};
}
Fills<KivMemoryBlockInstance> FillsOf(const KivMemoryBlockInstance&) {
  return {[](auto& z) { Fill(z.AddInstance().m_vzLevel); },
          [](auto& z) {
            auto& vzLevel = z.AddInstance().m_vzLevel;
            vzLevel.resize(2);
            Fill(vzLevel[1].m_vzAttribute);
          },
          [](auto& z) { Fill(z.AddInstance().m_vzAttribute); },
          [](auto& z) { FillBytes(z.AddInstance().m_vzAttribute); }};
}
Fills<KivMemoryBlockBrep> FillsOf(const KivMemoryBlockBrep&) {
  return {[](auto& z) { Fill(z.AddGeometry(kBrepNurbsKind).m_vcGeometry); },
          [](auto& z) { Fill(z.AddGeometry(kBrepNurbsKind).m_vzAttribute); }};
}
Fills<KivMemoryBlockVertex> FillsOf(const KivMemoryBlockVertex&) {
  return {[](auto& z) { Fill(z.AddVertex().m_vzAttribute); }};
}
Fills<KivMemoryBlockLayerFilter> FillsOf(const KivMemoryBlockLayerFilter&) {
  return {[](auto& z) { Fill(z.AddFilter().m_vzLayer); }, [](auto& z) { Fill(z.AddFilter().m_strFilterName); }};
}
template <typename Block>
Fills<Block> MeshFills() {
  return {[](auto& z) { Fill(z.AddFace().m_vfVertex); }, [](auto& z) { Fill(z.AddFace().m_vfNormal); },
          [](auto& z) { Fill(z.AddFace().m_viIndex); },  [](auto& z) { Fill(z.AddFace().m_vzAttribute); },
          [](auto& z) { Fill(z.AddEdge().m_vfVertex); }, [](auto& z) { Fill(z.AddEdge().m_vzAttribute); }};
}
Fills<KivMemoryBlockFaceEdge> FillsOf(const KivMemoryBlockFaceEdge&) {
  return MeshFills<KivMemoryBlockFaceEdge>();
}
Fills<KivMemoryBlockPolyElem> FillsOf(const KivMemoryBlockPolyElem&) {
  auto vpfnFill = MeshFills<KivMemoryBlockPolyElem>();
  vpfnFill.push_back([](auto& z) { Fill(z.AddFace().m_vfCompactVertex); });
  vpfnFill.push_back([](auto& z) { Fill(z.AddFace().m_vfCompactNormal); });
  vpfnFill.push_back([](auto& z) { Fill(z.AddFace().m_viCompactIndex); });
  return vpfnFill;
}

template <typename Block>
KivListBytes BytesOf(Block& zBlock) {
  KivListBytes zBytes;
  zBlock.VisitLists([&](const auto& vz) { vz.AddBytes(zBytes); });
  return zBytes;
}
template <typename Block>
void FreeAll(Block& zBlock) {
  zBlock.VisitLists([](auto& vz) { vz.Free(); });
  EXPECT_EQ(BytesOf(zBlock).m_nKept, 0u);
  EXPECT_EQ(BytesOf(zBlock).m_nUsed, 0u);
}

template <typename Block>
class BlockWithLists : public testing::Test {};

using BlocksWithLists =
    testing::Types<KivMemoryBlockAssemblyTree, KivMemoryBlockInstance, KivMemoryBlockBrep, KivMemoryBlockVertex,
                   KivMemoryBlockLayerFilter, KivMemoryBlockFaceEdge, KivMemoryBlockPolyElem>;
TYPED_TEST_SUITE(BlockWithLists, BlocksWithLists);

}  // namespace

TYPED_TEST(BlockWithLists, EachListOfAnEntryIsSeenAndGivenBack) {
  size_t i = 0;
  for (const auto& pfnFill : FillsOf(TypeParam())) {
    SCOPED_TRACE(testing::Message() << "list " << i++);
    auto pz = NewBlock<TypeParam>();
    EXPECT_LT(BytesOf(*pz).m_nKept, kMany);
    pfnFill(*pz);
    EXPECT_GE(BytesOf(*pz).m_nUsed, kMany);
    EXPECT_GE(BytesOf(*pz).m_nKept, BytesOf(*pz).m_nUsed);
    typename TypeParam::Memory zMemory;
    KivResetElement(*pz, zMemory);
    EXPECT_EQ(BytesOf(*pz).m_nUsed, 0u);
    EXPECT_GT(BytesOf(*pz).m_nKept, 0u);
    FreeAll(*pz);
  }
}

// The entries of PMI and cameras have lists in lists: they go as soon as the block is cleared, and only the room for
// the entries themselves is kept.
TEST(BlockThatKeepsNoLists, AClearedEntryHasNoMemoryAndTheRoomOfTheEntriesIsSeenAndGivenBack) {
  auto pzPMI = NewBlock<KivMemoryBlockPMI>();
  for (size_t i = 0; i < kMany / sizeof(KivPMIEntry) + 1; ++i) Fill(pzPMI->AddPMI().m_viPMIInts);
  EXPECT_GE(BytesOf(*pzPMI).m_nUsed, kMany);
  pzPMI->Clear();
  EXPECT_EQ(BytesOf(*pzPMI).m_nUsed, 0u);
  EXPECT_GE(BytesOf(*pzPMI).m_nKept, kMany);
  EXPECT_EQ(pzPMI->AddPMI().m_viPMIInts.capacity(), 0u);
  FreeAll(*pzPMI);

  auto pzCamera = NewBlock<KivMemoryBlockCamera>();
  for (size_t i = 0; i < kMany / sizeof(KivView) + 1; ++i) Fill(pzCamera->AddView().m_strViewName);
  const uint64_t nViews = BytesOf(*pzCamera).m_nUsed;
  EXPECT_GE(nViews, kMany);
  for (size_t i = 0; i < kMany / sizeof(KivViewGroup) + 1; ++i) Fill(pzCamera->AddGroup().m_vMember);
  EXPECT_GE(BytesOf(*pzCamera).m_nUsed, nViews + kMany);
  pzCamera->Clear();
  EXPECT_EQ(BytesOf(*pzCamera).m_nUsed, 0u);
  EXPECT_GE(BytesOf(*pzCamera).m_nKept, 2 * kMany);
  EXPECT_EQ(pzCamera->AddView().m_strViewName.capacity(), KivWString().capacity());
  EXPECT_EQ(pzCamera->AddGroup().m_vMember.capacity(), 0u);
  FreeAll(*pzCamera);
}
