// What the smallest entries, gaps of 12 bytes, cost in memory: a record can hold many of them.
#include <gtest/gtest.h>

#include "KivAssemblyTree.h"
#include "KivBrepData.h"
#include "KivCamera.h"
#include "KivFaceEdgeData.h"
#include "KivInstance.h"
#include "KivLayerFilter.h"
#include "KivLittleEndian.h"
#include "KivPMI.h"
#include "KivPolyElemData.h"
#include "KivTestElement.h"

using namespace kiv;
using namespace kivtest;

namespace {

constexpr size_t kGaps = 10000;

// What a read of kGaps gaps takes from the heap, all in all. iCountAt: where the record has the number of entries; one
// that is far too large refuses the record and costs no more.
template <typename Block, typename Base, typename Entry>
uint64_t HeapForGaps(KivReusedList<Entry> Base::*pzList, size_t iCountAt = 4) {
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
  Bytes vcBad = vc;
  KivStore<uint32_t>(&vcBad[iCountAt], 0xFFFFFFFF);
  auto pzBad = NewBlock<Block>();
  EXPECT_FALSE(ReadRecord(vcBad, *pzBad));  // tests the heap, too
  return nBytes;
}

}  // namespace

TEST(ElementGaps, AGapTakesTheMemoryOfOneEntryAndNoMore) {
  const auto ExpectOneEntryEach = []<typename Block, typename Entry>(KivReusedList<Entry> Block::*pzList,
                                                                     size_t iCountAt) {
    EXPECT_LE(HeapForGaps<Block>(pzList, iCountAt), kGaps * sizeof(Entry) + 1024);
  };
  ExpectOneEntryEach(&KivMemoryBlockAssemblyTree::m_vzNode, 68);
  ExpectOneEntryEach(&KivMemoryBlockInstance::m_vzInstance, 80);
  ExpectOneEntryEach(&KivMemoryBlockPMI::m_vzPMI, 4);
  ExpectOneEntryEach(&KivMemoryBlockLayerFilter::m_vzFilter, 4);
  ExpectOneEntryEach(&KivMemoryBlockCamera::m_vzView, 68);
  ExpectOneEntryEach(&KivMemoryBlockCamera::m_vzGroup, 72);
  static_assert(sizeof(KivView) <= 45 * kEntryFrameSize, "the largest entry in memory, as the page on records says");
}

// Meshes have room for their live entries from the start; the list for their gaps grows by doubling.
TEST(ElementGaps, AGapOfAMeshStaysWithinWhatARecordMayTake) {
  HeapForGaps<KivMemoryBlockFaceEdge>(&KivMemoryBlockFaceEdge::m_vzFace);
  HeapForGaps<KivMemoryBlockPolyElem>(&KivMemoryBlockPolyElem::m_vzFace);
}

TEST(ElementGaps, ABrepOfGapsIsRefusedAtTheFirstOne) {
  auto pzBlock = NewBlock<KivMemoryBlockBrep>();
  for (size_t i = 0; i < kGaps; ++i) pzBlock->m_vzGeometry.Add().m_zFrame.m_iKind = kGapKind;
  const Bytes vc = BuildRecord(*pzBlock);
  auto pzRead = NewBlock<KivMemoryBlockBrep>();
  const HeapUse zHeap;
  EXPECT_FALSE(ReadRecord(vc, *pzRead));
  EXPECT_LT(zHeap.Bytes(), vc.size() + 64 * 1024);  // the bytes and the report
  EXPECT_EQ(pzRead->m_vzGeometry.size(), 0u);
}
