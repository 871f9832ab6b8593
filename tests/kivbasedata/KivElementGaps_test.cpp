// What the smallest entries, gaps of 12 bytes, cost in memory: a record can hold many of them.
#include <gtest/gtest.h>

#include "KivAssemblyTree.h"
#include "KivCamera.h"
#include "KivFaceEdgeData.h"
#include "KivInstance.h"
#include "KivLayerFilter.h"
#include "KivPMI.h"
#include "KivPolyElemData.h"
#include "KivTestElement.h"

using namespace kiv;
using namespace kivtest;

namespace {

constexpr size_t kGaps = 10000;

// What a read of kGaps gaps takes from the heap, all in all.
template <typename Block, typename Base, typename Entry>
uint64_t HeapForGaps(KivReusedList<Entry> Base::*pzList) {
  auto pzBlock = NewBlock<Block>();
  for (size_t i = 0; i < kGaps; ++i) ((*pzBlock).*pzList).Add().m_zFrame.m_iKind = kGapKind;
  const Bytes vc = BuildRecord(*pzBlock);
  EXPECT_LT(vc.size(), 12 * kGaps + 200);
  auto pzRead = NewBlock<Block>();
  typename Block::Memory zMemory;
  const HeapUse zHeap;
  EXPECT_TRUE(KivReadElement(std::span<const uint8_t>(vc), false, false, *pzRead, zMemory));
  const uint64_t nBytes = zHeap.Bytes();
  EXPECT_EQ(((*pzRead).*pzList).size(), kGaps);
  EXPECT_LE(nBytes, MostHeapFor(vc));
  return nBytes;
}

}  // namespace

TEST(ElementGaps, AGapTakesTheMemoryOfOneEntryAndNoMore) {
  const auto ExpectOneEntryEach = []<typename Block, typename Entry>(KivReusedList<Entry> Block::*pzList) {
    EXPECT_LE(HeapForGaps<Block>(pzList), kGaps * sizeof(Entry) + 1024);
  };
  ExpectOneEntryEach(&KivMemoryBlockAssemblyTree::m_vzNode);
  ExpectOneEntryEach(&KivMemoryBlockInstance::m_vzInstance);
  ExpectOneEntryEach(&KivMemoryBlockPMI::m_vzPMI);
  ExpectOneEntryEach(&KivMemoryBlockLayerFilter::m_vzFilter);
  ExpectOneEntryEach(&KivMemoryBlockCamera::m_vzView);
  ExpectOneEntryEach(&KivMemoryBlockCamera::m_vzGroup);
  static_assert(sizeof(KivView) <= 45 * kEntryFrameSize, "the largest entry in memory, as the page on records says");
}

// Meshes have room for their live entries from the start; the list for their gaps grows by doubling.
TEST(ElementGaps, AGapOfAMeshStaysWithinWhatARecordMayTake) {
  HeapForGaps<KivMemoryBlockFaceEdge>(&KivMemoryBlockFaceEdge::m_vzFace);
  HeapForGaps<KivMemoryBlockPolyElem>(&KivMemoryBlockPolyElem::m_vzFace);
}
