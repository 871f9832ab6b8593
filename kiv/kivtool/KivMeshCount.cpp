#include "KivMeshCount.h"

#include <algorithm>
#include <vector>

#include "KivFaceEdgeData.h"
#include "KivPolyElemData.h"

namespace kiv {
namespace {

constexpr uint64_t kMeshHeader = 100;
constexpr uint64_t kEntryHead = 45;  // up to the triangle count, in either kind and revision

// The part of a face that this needs, behind the frame:
//   OFFSET   FACE   POLYGON FACE
//   vertices 20     21             4 more from revision 2 on
//   triangles behind them
KivMeshCount CountFace(const uint8_t* pEntry, bool bPoly, uint32_t iFormat) {
  const size_t iVertices = kEntryFrameSize + 16 + (iFormat >= 2 ? 4 : 0) + (bPoly ? 1 : 0);
  KivMeshCount zCount;
  zCount.m_nFaces = 1;
  zCount.m_nVertices = KivLoad<uint32_t>(pEntry + iVertices);
  zCount.m_nTriangles = KivLoad<uint32_t>(pEntry + iVertices + 4);
  return zCount;
}

// One element by its frames. The links go to aiLink. False if it is no mesh, or not as its frames say.
bool CountElement(ISnapShotFile& zFile, const KivContainerRecord& zRecord, bool bVer19Data, KivMeshCount& zCount,
                  std::array<uint64_t, 3>& aiLink) {
  uint8_t acHead[kMeshHeader] = {};
  const uint64_t nHead = std::min<uint64_t>(sizeof acHead, zRecord.m_iFileSize);
  if (nHead < kElementHeaderSizeVer19 || zFile.Read(zRecord.m_iOffset, acHead, nHead) != nHead) return false;
  const KivElementRules* pzRules = KivFindElementRules(KivLoad<uint32_t>(acHead));
  if (pzRules == nullptr ||
      (pzRules->m_iTag != KivMemoryBlockFaceEdge::kTag && pzRules->m_iTag != KivMemoryBlockPolyElem::kTag))
    return false;
  const bool bPoly = pzRules->m_iTag == KivMemoryBlockPolyElem::kTag;
  KivRecordReader zReader(acHead, nHead);
  KivMemoryBlockHeader zHeader;
  if (!KivReadElementHeader(zReader, *pzRules, bVer19Data, zHeader)) return false;
  aiLink = zHeader.m_aiLink;
  uint32_t iFlags = 0;
  if (!zReader.Skip(20) || !zReader.Get(iFlags)) return false;
  if ((iFlags & kMeshIndexCount) != 0) zCount.m_bExact = false;

  const uint32_t iFormat = KivReadAsFormat(*pzRules, zHeader.m_iFormat);
  const uint32_t iFaceKind = bPoly ? KivMemoryBlockPolyElem::kFaceKind : KivMemoryBlockFaceEdge::kFaceKind;
  const uint32_t iEdgeKind = bPoly ? KivMemoryBlockPolyElem::kEdgeKind : KivMemoryBlockFaceEdge::kEdgeKind;
  uint64_t iAt = zHeader.m_iDataOffset;
  for (uint32_t nLive = 0; nLive < zHeader.m_iEntryCount;) {
    uint8_t acEntry[kEntryHead] = {};
    if (iAt > zRecord.m_iFileSize) return false;
    const uint64_t nEntry = std::min<uint64_t>(sizeof acEntry, zRecord.m_iFileSize - iAt);
    if (nEntry < kEntryFrameSize || zFile.Read(zRecord.m_iOffset + iAt, acEntry, nEntry) != nEntry) return false;
    const uint32_t iOffset = KivLoad<uint32_t>(acEntry), iKind = KivLoad<uint32_t>(acEntry + 4),
                   iSize = KivLoad<uint32_t>(acEntry + 8);
    if (iOffset != iAt || iSize < kEntryFrameSize) return false;
    if (iKind != kGapKind) {
      if (nEntry < kEntryHead || (iKind != iFaceKind && iKind != iEdgeKind)) return false;
      if (iKind == iFaceKind)
        zCount += CountFace(acEntry, bPoly, iFormat);
      else
        ++zCount.m_nEdges;
      ++nLive;
    }
    iAt += iSize;
  }
  return true;
}

// Calls pfnElement(position, links) for each element of a tree that is not in siSeen.
template <typename Element>
void WalkTree(KivToolModel& zModel, uint64_t iRootKey, std::set<uint64_t>& siSeen, KivMeshCount& zCount,
              Element&& pfnElement) {
  std::vector<uint64_t> viToVisit = {iRootKey};
  while (!viToVisit.empty()) {
    const uint64_t iKey = viToVisit.back();
    viToVisit.pop_back();
    if (iKey == 0) continue;
    const uint64_t iPosition = zModel.Resolve(iKey);
    if (iPosition != 0 && !siSeen.insert(iPosition).second) continue;
    std::array<uint64_t, 3> aiLink{};
    if (iPosition == 0 || !pfnElement(iPosition, aiLink)) zCount.m_bExact = zCount.m_bWhole = false;
    viToVisit.push_back(aiLink[2]);
    viToVisit.push_back(aiLink[1]);
  }
}

template <typename Block>
void CountBlock(const Block& zBlock, KivMeshCount& zCount) {
  for (const auto& zFace : zBlock.m_vzFace) {
    if (zFace.m_zFrame.IsGap()) continue;
    ++zCount.m_nFaces;
    zCount.m_nVertices += zFace.m_iVertexCount;
    zCount.m_nTriangles += KivCountTriangles(zFace);
  }
  for (const KivMeshEdge& zEdge : zBlock.m_vzEdge)
    if (!zEdge.m_zFrame.IsGap()) ++zCount.m_nEdges;
}

}  // namespace

KivMeshCount& KivMeshCount::operator+=(const KivMeshCount& z) {
  m_nFaces += z.m_nFaces;
  m_nEdges += z.m_nEdges;
  m_nTriangles += z.m_nTriangles;
  m_nVertices += z.m_nVertices;
  m_bExact = m_bExact && z.m_bExact;
  m_bWhole = m_bWhole && z.m_bWhole;
  return *this;
}

KivMeshCount KivCountMeshTree(KivToolModel& zModel, uint64_t iRootKey, std::set<uint64_t>& siSeen) {
  KivMeshCount zCount;
  WalkTree(zModel, iRootKey, siSeen, zCount, [&](uint64_t iPosition, std::array<uint64_t, 3>& aiLink) {
    try {
      KivContainerRecord zRecord;
      KivOutOfCoreMemoryStorage* pzStorage = zModel.Manager().GetStorage();
      return pzStorage->FindRecord(iPosition, zRecord) == KivStorageResult::Done &&
             CountElement(*zRecord.m_pzFile, zRecord, zModel.IsVer19Data(), zCount, aiLink);
    } catch (...) {
      return false;
    }
  });
  return zCount;
}

KivMeshCount KivCountMeshTreeDeep(KivToolModel& zModel, uint64_t iRootKey, std::set<uint64_t>& siSeen) {
  KivMeshCount zCount;
  WalkTree(zModel, iRootKey, siSeen, zCount, [&](uint64_t iPosition, std::array<uint64_t, 3>& aiLink) {
    KivOutOfCoreTreeNode* pzElement = zModel.Load(iPosition);
    const KivMemoryBlock* pzBlock = pzElement != nullptr ? pzElement->GetMemoryBlock() : nullptr;
    if (pzBlock == nullptr) return false;
    aiLink = pzBlock->GetHeader().m_aiLink;
    if (const auto* pzFaceEdge = dynamic_cast<const KivMemoryBlockFaceEdge*>(pzBlock))
      CountBlock(*pzFaceEdge, zCount);
    else if (const auto* pzPoly = dynamic_cast<const KivMemoryBlockPolyElem*>(pzBlock))
      CountBlock(*pzPoly, zCount);
    else
      return false;
    return true;
  });
  return zCount;
}

}  // namespace kiv
