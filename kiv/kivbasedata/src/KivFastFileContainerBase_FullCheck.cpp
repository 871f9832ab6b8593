// The full check: every record, every node, and their agreement.
#include <algorithm>

#include "KivFastFileContainerBase.h"

namespace kiv {
namespace {

constexpr uint64_t kCompareStep = 0x10000;
constexpr uint32_t kSmallestOrder = 2;
constexpr uint32_t kLargestOrder = 20;

using Kind = KivContainerFindingKind;

struct FreeRecord {
  Position m_iPosition;
  uint64_t m_iSize;
  bool operator<(const FreeRecord& zOther) const { return m_iPosition < zOther.m_iPosition; }
};

// A node that is still to be looked at, and what the nodes above it allow.
struct PendingNode {
  uint64_t m_iNode;
  uint64_t m_iParent;
  uint64_t m_iLowest;  // sizes that a removal would look for here
  uint64_t m_iHighest;
  uint64_t m_iDepth;
};

}  // namespace

KivContainerCheck KivFastFileContainerBase::FullCheck() {
  KivContainerCheck zCheck;
  std::vector<FreeRecord> vzFree;   // of the main file
  std::vector<FreeRecord> vzPairs;  // of the tree
  const KivSharedPtr<ISnapShotFile> pzFile = GetBaseFile();
  // Of a file that was too short at its opening, what was there and not what a capacity has added.
  const uint64_t iLength = m_bEndInsideFile ? GetBaseFileLength() : m_iKnownLength;

  // Records.
  uint64_t iEnd = m_iEndPosition;
  if (iEnd < kFirstRecord || iEnd > iLength) {
    zCheck.Add(Kind::EndOutsideFile, iEnd, iLength);
    iEnd = std::min(iEnd, iLength);
  }
  const auto ReadU64 = [&](uint64_t iOffset) {
    uint8_t acBytes[8] = {};
    ReadBaseFile(iOffset, acBytes, sizeof acBytes);
    return KivLoad<uint64_t>(acBytes);
  };
  std::vector<uint8_t> vcBuffer;
  const auto IsZero = [&](uint64_t iFrom, uint64_t iTo) {
    while (iFrom < iTo) {
      const uint64_t nCount = std::min(iTo - iFrom, kCompareStep);
      const uint8_t* pBytes = m_zBaseAccess.Bytes(*pzFile, true, iFrom, nCount);
      if (pBytes == nullptr) {
        vcBuffer.assign(kCompareStep, 0);
        ReadBaseFile(iFrom, vcBuffer.data(), nCount);
        pBytes = vcBuffer.data();
      }
      if (std::any_of(pBytes, pBytes + nCount, [](uint8_t c) { return c != 0; })) return false;
      iFrom += nCount;
    }
    return true;
  };
  Position iFile = kFirstRecord;
  bool bFreeInFront = false;
  while (iFile < iEnd) {
    if (iEnd - iFile < kFrameSize) {
      zCheck.Add(Kind::RecordOverrunsEnd, iFile, kFrameSize);
      break;
    }
    const uint64_t iRecordSize = ReadU64(iFile);
    const uint64_t iFileSize = ReadU64(iFile + 8);
    if (iRecordSize < kFrameSize) {
      zCheck.Add(Kind::RecordTooSmall, iFile, iRecordSize);
      break;
    }
    if (iRecordSize > iEnd - iFile) {
      zCheck.Add(Kind::RecordOverrunsEnd, iFile, iRecordSize);
      break;
    }
    const uint64_t iBack = ReadU64(iFile + iRecordSize - 8);
    if (iBack != iFile) zCheck.Add(Kind::BackPointer, iFile, iBack);
    if (iRecordSize == iFileSize) {
      ++zCheck.m_iFreeRecordNum;
      zCheck.m_iFreeBytes += iRecordSize;
      vzFree.push_back({iFile, iRecordSize});
      if (bFreeInFront) zCheck.Add(Kind::FreeNeighbours, iFile, iRecordSize);
      if (!IsZero(iFile + 16, iFile + iRecordSize - 8)) zCheck.Add(Kind::FreeNotZeroed, iFile, iRecordSize);
      bFreeInFront = true;
    } else {
      ++zCheck.m_iUsedRecordNum;
      zCheck.m_iUsedBytes += iRecordSize;
      if (iFileSize > iRecordSize - kFrameSize)
        zCheck.Add(Kind::PayloadTooLarge, iFile, iFileSize);
      else
        zCheck.m_iPayloadBytes += iFileSize;
      bFreeInFront = false;
    }
    iFile += iRecordSize;
  }

  // Nodes.
  if (m_iNodeOrder < kSmallestOrder || m_iNodeOrder > kLargestOrder) zCheck.Add(Kind::NodeOrder, 0, m_iNodeOrder);
  const uint64_t iSlots = std::min(NodeSlotsInFile(), m_iNodeNum);
  if (iSlots < m_iNodeNum) zCheck.Add(Kind::NodeCount, 0, m_iNodeNum);
  const auto IsSlot = [&](uint64_t iNode) {
    return iNode >= kFirstNode && (iNode - kFirstNode) % kNodeSize == 0 && (iNode - kFirstNode) / kNodeSize < iSlots;
  };
  const auto NodeField = [](const NodeBytes& acNode, uint64_t iOffset) { return KivLoad<uint64_t>(&acNode[iOffset]); };
  std::vector<bool> vbReached(static_cast<size_t>(iSlots));
  std::vector<PendingNode> vzPending{{m_iRootNode, 0, 0, UINT64_MAX, 1}};
  while (!vzPending.empty()) {
    const PendingNode zPending = vzPending.back();
    vzPending.pop_back();
    const uint64_t iNode = zPending.m_iNode;
    if (!IsSlot(iNode)) {
      zCheck.Add(Kind::NodePosition, iNode, zPending.m_iParent);
      continue;
    }
    const size_t iSlot = static_cast<size_t>((iNode - kFirstNode) / kNodeSize);
    if (vbReached[iSlot]) {
      zCheck.Add(Kind::NodeSharedOrCyclic, iNode, zPending.m_iParent);
      continue;
    }
    vbReached[iSlot] = true;
    ++zCheck.m_iNodeNum;
    zCheck.m_iDepth = std::max(zCheck.m_iDepth, zPending.m_iDepth);
    NodeBytes acNode{};
    ReadUnusedRecordFile(iNode, acNode.data(), kNodeSize);
    if (acNode[0] == 0) {
      zCheck.Add(Kind::NodeUnused, iNode, zPending.m_iParent);
      continue;
    }
    const uint64_t iMinSize = NodeField(acNode, 8);
    const uint64_t iMaxSize = NodeField(acNode, 16);
    const uint32_t iNum = acNode[2];
    const bool bBranch = acNode[1] != 0;
    if (NodeField(acNode, 32) != iNode) zCheck.Add(Kind::NodeOwnPosition, iNode, NodeField(acNode, 32));
    if (NodeField(acNode, 24) != zPending.m_iParent) zCheck.Add(Kind::NodeParent, iNode, NodeField(acNode, 24));
    if (iMinSize > iMaxSize) zCheck.Add(Kind::NodeRange, iNode, iMinSize);
    if (iNode == m_iRootNode && (iMinSize != 0 || iMaxSize != UINT64_MAX)) zCheck.Add(Kind::NodeRange, iNode, iMaxSize);
    const bool bEmpty = iNum == 0 && (bBranch || iNode != m_iRootNode);
    if (iNum > m_iNodeOrder || iNum > kLargestOrder || bEmpty) {
      zCheck.Add(Kind::NodeChildCount, iNode, iNum);
      continue;
    }
    const uint64_t iLowest = std::max(iMinSize, zPending.m_iLowest);
    const uint64_t iHighest = std::min(iMaxSize, zPending.m_iHighest);
    if (!bBranch) {
      uint64_t iPrevious = 0;
      for (uint32_t i = 0; i < iNum; ++i) {
        const uint64_t iSize = NodeField(acNode, 40 + 16 * i);
        if (iSize < iPrevious || iSize < iLowest || iSize > iHighest) zCheck.Add(Kind::PairOrder, iNode, iSize);
        iPrevious = iSize;
        vzPairs.push_back({NodeField(acNode, 48 + 16 * i), iSize});
      }
      continue;
    }
    // The children's ranges must cover the branch's, in ascending order and without a hole.
    uint64_t iCoveredTo = iMinSize;
    uint64_t iPreviousMin = 0;
    bool bRangeFits = true;
    for (uint32_t i = 0; i < iNum; ++i) {
      const uint64_t iChild = NodeField(acNode, 40 + 8 * i);
      vzPending.push_back({iChild, iNode, iLowest, iHighest, zPending.m_iDepth + 1});
      if (!IsSlot(iChild)) continue;
      NodeBytes acChild{};
      ReadUnusedRecordFile(iChild, acChild.data(), kNodeSize);
      const uint64_t iChildMin = NodeField(acChild, 8);
      const uint64_t iChildMax = NodeField(acChild, 16);
      if (iChildMin > iCoveredTo || iChildMin < iPreviousMin || iChildMax < iCoveredTo) bRangeFits = false;
      iPreviousMin = iChildMin;
      iCoveredTo = iChildMax;
    }
    if (iCoveredTo < iMaxSize) bRangeFits = false;
    if (!bRangeFits) zCheck.Add(Kind::NodeRange, iNode, iCoveredTo);
  }
  if (zCheck.m_iNodeNum != m_iValidNodeNum) zCheck.Add(Kind::NodeCount, 0, m_iValidNodeNum);
  for (uint64_t iSlot = 0; iSlot < iSlots; ++iSlot) {
    if (vbReached[static_cast<size_t>(iSlot)]) continue;
    uint8_t acUsed[8] = {};
    ReadUnusedRecordFile(kFirstNode + iSlot * kNodeSize, acUsed, sizeof acUsed);
    if (acUsed[0] != 0) zCheck.Add(Kind::NodeUnreachable, kFirstNode + iSlot * kNodeSize, iSlot);
  }

  // Agreement.
  zCheck.m_iPairNum = vzPairs.size();
  std::sort(vzPairs.begin(), vzPairs.end());
  size_t iPair = 0;
  for (const FreeRecord& zFree : vzFree) {
    while (iPair < vzPairs.size() && vzPairs[iPair].m_iPosition < zFree.m_iPosition) {
      zCheck.Add(Kind::PairWithoutRecord, vzPairs[iPair].m_iPosition, vzPairs[iPair].m_iSize);
      ++iPair;
    }
    if (iPair == vzPairs.size() || vzPairs[iPair].m_iPosition != zFree.m_iPosition) {
      zCheck.Add(Kind::RecordWithoutPair, zFree.m_iPosition, zFree.m_iSize);
      continue;
    }
    if (vzPairs[iPair].m_iSize != zFree.m_iSize)
      zCheck.Add(Kind::PairWithoutRecord, zFree.m_iPosition, vzPairs[iPair].m_iSize);
    ++iPair;
    for (; iPair < vzPairs.size() && vzPairs[iPair].m_iPosition == zFree.m_iPosition; ++iPair)
      zCheck.Add(Kind::PairTwice, zFree.m_iPosition, vzPairs[iPair].m_iSize);
  }
  for (; iPair < vzPairs.size(); ++iPair)
    zCheck.Add(Kind::PairWithoutRecord, vzPairs[iPair].m_iPosition, vzPairs[iPair].m_iSize);
  return zCheck;
}

}  // namespace kiv
