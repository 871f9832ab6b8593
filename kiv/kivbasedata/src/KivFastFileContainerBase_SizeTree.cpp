// The tree of free records, ordered by size, in the unused record file.
//
// Unused record file:
//   OFFSET       SIZE  FIELD
//   0            8     zeros
//   8 + 360 * i  360   node slot i
//
// Node (KivFreeRecordNode), 360 bytes:
//   OFFSET  TYPE      FIELD
//   0       u8        bUsed: 1 while the slot holds a node
//   1       u8        bBranch: 0 leaf, 1 branch
//   2       u8        iChildNum: pairs of a leaf, children of a branch
//   3       5 x u8    reserved
//   8       u64       iMinSize, lowest size that the subtree covers
//   16      u64       iMaxSize, highest size
//   24      u64       iParentNode, 0 for the root
//   32      u64       iThisNode, the node's own position
//   40      40 x u64  apChildPointer: leaf: pairs of size and position by ascending size;
//                     branch: positions of the children in ascending range order
//
// The tree is not balanced, and which slot a new node takes is part of the format. A walk reads each node once from
// the top; nodes of a mapped file are read and edited where they lie.
#include <algorithm>
#include <cstring>

#include "KivException.h"
#include "KivFastFileContainerBase.h"

namespace kiv {
namespace {

constexpr char kSource[] = "src\\KivFastFileContainerBase";

constexpr uint64_t kUsed = 0;
constexpr uint64_t kBranch = 1;
constexpr uint64_t kChildNum = 2;
constexpr uint64_t kMinSize = 8;
constexpr uint64_t kMaxSize = 16;
constexpr uint64_t kParentNode = 24;
constexpr uint64_t kThisNode = 32;
constexpr uint64_t kChildPointer = 40;

constexpr uint32_t kSmallestOrder = 2;
constexpr uint32_t kLargestOrder = 20;  // 40 numbers are 20 pairs
constexpr uint64_t kLastNode = 0x3FFFFFFFFFFFFFFF;

constexpr double kProbeFactor = 0.31415926;
constexpr int kProbeNum = 10;

constexpr uint64_t kUncheckedVisits = 4096;

bool IsUsed(const uint8_t* pzNode) {
  return pzNode[kUsed] != 0;
}
bool IsBranch(const uint8_t* pzNode) {
  return pzNode[kBranch] != 0;
}
uint32_t ChildNum(const uint8_t* pzNode) {
  return pzNode[kChildNum];
}
void SetChildNum(uint8_t* pzNode, uint32_t iNum) {
  pzNode[kChildNum] = static_cast<uint8_t>(iNum);
}
uint64_t Field(const uint8_t* pzNode, uint64_t iOffset) {
  return KivLoad<uint64_t>(pzNode + iOffset);
}
void SetField(uint8_t* pzNode, uint64_t iOffset, uint64_t iValue) {
  KivStore<uint64_t>(pzNode + iOffset, iValue);
}
uint64_t Pointer(const uint8_t* pzNode, uint32_t iIndex) {
  return KivLoad<uint64_t>(pzNode + kChildPointer + 8 * iIndex);
}
void SetPointer(uint8_t* pzNode, uint32_t iIndex, uint64_t iValue) {
  KivStore<uint64_t>(pzNode + kChildPointer + 8 * iIndex, iValue);
}
uint64_t PairSize(const uint8_t* pzNode, uint32_t i) {
  return Pointer(pzNode, 2 * i);
}
Position PairPosition(const uint8_t* pzNode, uint32_t i) {
  return Pointer(pzNode, 2 * i + 1);
}
// Moves iNum numbers of the pointer array from one index to another.
void MovePointers(uint8_t* pzNode, uint32_t iTo, uint32_t iFrom, uint32_t iNum) {
  std::memmove(pzNode + kChildPointer + 8 * iTo, pzNode + kChildPointer + 8 * iFrom, 8 * iNum);
}
// Index of a child, or the number of children.
uint32_t FindChild(const uint8_t* pzNode, uint64_t iChild) {
  uint32_t i = 0;
  while (i < ChildNum(pzNode) && Pointer(pzNode, i) != iChild) ++i;
  return i;
}
bool Covers(const uint8_t* pzNode, uint64_t iSize) {
  return iSize >= Field(pzNode, kMinSize) && iSize <= Field(pzNode, kMaxSize);
}

}  // namespace

// --- Nodes ---------------------------------------------------------------------------------------

// How many whole slots the file has room for.
uint64_t KivFastFileContainerBase::NodeSlotsInFile() {
  const KivSharedPtr<ISnapShotFile> pzFile = GetUnusedRecordFile();
  const uint64_t iLength = m_zUnusedRecordAccess.GetLength(*pzFile);
  return iLength > kFirstNode ? (iLength - kFirstNode) / kNodeSize : 0;
}

// The bytes again if they are a used node that can be worked with; otherwise null, with a report.
uint8_t* KivFastFileContainerBase::CheckNode(uint64_t iNode, uint8_t* pzNode) {
  // A node is written to the position that it names.
  if (pzNode != nullptr && IsUsed(pzNode) && Field(pzNode, kThisNode) == iNode && ChildNum(pzNode) <= m_iNodeOrder)
    return pzNode;
  KIV_FAIL();
  return nullptr;
}

// The node's bytes: those of the mapped file, or the buffer. Null, with a report, for what is no node in use.
uint8_t* KivFastFileContainerBase::ReadNode(uint64_t iNode, NodeBytes& acBuffer) {
  if (iNode < kFirstNode || iNode > kLastNode) return CheckNode(iNode, nullptr);
  const KivSharedPtr<ISnapShotFile> pzFile = GetUnusedRecordFile();
  uint8_t* pzNode = m_zUnusedRecordAccess.Bytes(*pzFile, true, iNode, kNodeSize);
  if (pzNode == nullptr && pzFile->Read(iNode, acBuffer.data(), kNodeSize) == kNodeSize) pzNode = acBuffer.data();
  return CheckNode(iNode, pzNode);
}

void KivFastFileContainerBase::WriteNode(const uint8_t* pzNode) {
  const uint64_t iThisNode = Field(pzNode, kThisNode);
  if (!KIV_CHECK_AS(iThisNode >= sizeof(Position), "pzNode->iThisNode >= sizeof(Position)")) return;
  const KivSharedPtr<ISnapShotFile> pzFile = GetUnusedRecordFile();
  uint8_t* pBytes = m_zUnusedRecordAccess.Bytes(*pzFile, false, iThisNode, kNodeSize);
  if (pBytes == pzNode) return;  // edited in place
  if (pBytes != nullptr)
    std::memcpy(pBytes, pzNode, kNodeSize);
  else
    pzFile->Write(iThisNode, pzNode, kNodeSize);
}

void KivFastFileContainerBase::WriteEmptyRoot(uint64_t iNode) {
  NodeBytes acRoot{};
  acRoot[kUsed] = 1;
  SetField(acRoot.data(), kMaxSize, UINT64_MAX);
  SetField(acRoot.data(), kThisNode, iNode);
  WriteNode(acRoot.data());
}

// Position of a slot for a new node, or 0, with a report, where a damaged header gives no place. Which slot it is, is
// part of the format: ten tries to hit a free one, then a new one at the end, even if free ones remain.
uint64_t KivFastFileContainerBase::AllocateNodeSlot() {
  if (m_iNodeNum != m_iValidNodeNum && m_iNodeNum != 0) {
    for (int i = 0; i < kProbeNum; ++i) {
      const double dProduct = static_cast<double>(static_cast<int64_t>(m_iNodeCursor)) * kProbeFactor;
      const uint64_t iProduct = static_cast<uint64_t>(static_cast<int64_t>(dProduct));
      m_iNodeCursor = (iProduct + m_iNodeCursor + 1) % m_iNodeNum;
      uint8_t acUsed[8] = {};
      uint64_t nRead = 0;
      if (m_iNodeCursor <= kLastNode / kNodeSize)
        nRead = ReadUnusedRecordFile(m_iNodeCursor * kNodeSize + kFirstNode, acUsed, sizeof acUsed);
      if (!KIV_CHECK_AS(nRead == sizeof acUsed, "nRead == sizeof(Position)")) continue;
      if (acUsed[0] == 0) {
        ++m_iValidNodeNum;
        return m_iNodeCursor * kNodeSize + kFirstNode;
      }
    }
  }
  if (m_iNodeNum > NodeSlotsInFile()) {
    KIV_FAIL();
    return 0;
  }
  const uint64_t iNode = m_iNodeNum * kNodeSize + kFirstNode;
  const NodeBytes acZero{};
  WriteUnusedRecordFile(iNode, acZero.data(), kNodeSize);
  ++m_iNodeNum;
  ++m_iValidNodeNum;
  return iNode;
}

// --- Walk ----------------------------------------------------------------------------------------

// Asks the nodes from iNode (0: the root) downward: a node that bAdmits refuses is passed over, a branch asks its
// children in order, a leaf is bLeaf's to answer. True with the first leaf that says so.
template <typename Admits, typename Leaf>
bool KivFastFileContainerBase::WalkTree(uint64_t iNode, const Admits& bAdmits, const Leaf& bLeaf) {
  if (m_iNodeOrder < kSmallestOrder || m_iNodeOrder > kLargestOrder) {
    KIV_FAIL();
    return false;
  }
  if (iNode == 0) iNode = m_iRootNode;
  if (iNode == 0) {
    KIV_FAIL();
    return false;
  }
  m_vzPath.clear();
  const KivSharedPtr<ISnapShotFile> pzFile = GetUnusedRecordFile();
  uint64_t iWindow = 0;  // the nodes that lie in mapped memory
  uint8_t* const pWindow = m_zUnusedRecordAccess.Window(*pzFile, iWindow);
  const uint64_t iLastInWindow = iWindow >= kNodeSize ? iWindow - kNodeSize : 0;
  uint64_t nVisits = 0;
  for (;;) {
    // A tree whose nodes form a ring would never end.
    if (++nVisits > kUncheckedVisits && nVisits > NodeSlotsInFile()) {
      KIV_FAIL();
      return false;
    }
    uint8_t* pzNode;
    if (pWindow != nullptr && iNode >= kFirstNode && iNode <= iLastInWindow) {
      pzNode = CheckNode(iNode, pWindow + iNode);
    } else {
      const size_t iDepth = m_vzPath.size();
      if (m_vpzNodeBuffer.size() <= iDepth) m_vpzNodeBuffer.push_back(std::make_unique<NodeBytes>());
      pzNode = ReadNode(iNode, *m_vpzNodeBuffer[iDepth]);
    }
    if (pzNode != nullptr && bAdmits(pzNode)) {
      if (!IsBranch(pzNode)) {
        if (bLeaf(pzNode)) return true;
      } else {
        m_vzPath.push_back({pzNode, 0});
        if (pWindow != nullptr)  // the heads of the children, which are asked next, one after the other
          for (uint32_t i = 0; i < ChildNum(pzNode); ++i)
            if (Pointer(pzNode, i) <= iLastInWindow) __builtin_prefetch(pWindow + Pointer(pzNode, i));
      }
    }
    while (!m_vzPath.empty() && m_vzPath.back().m_iNextChild >= ChildNum(m_vzPath.back().m_pNode)) m_vzPath.pop_back();
    if (m_vzPath.empty()) return false;
    PathEntry& zTop = m_vzPath.back();
    iNode = Pointer(zTop.m_pNode, zTop.m_iNextChild++);
  }
}

// --- Search, insertion, removal ------------------------------------------------------------------

// The smallest free record of at least iSize bytes; among equals of one leaf the one that was freed last.
bool KivFastFileContainerBase::FindFreeRecord(uint64_t iNode, uint64_t iSize, uint64_t& iFoundSize,
                                              Position& iFoundPosition) {
  return WalkTree(
      iNode, [&](const uint8_t* pzNode) { return Field(pzNode, kMaxSize) >= iSize; },
      [&](const uint8_t* pzLeaf) {
        for (uint32_t i = 0; i < ChildNum(pzLeaf); ++i) {
          if (PairSize(pzLeaf, i) < iSize) continue;
          iFoundSize = PairSize(pzLeaf, i);
          iFoundPosition = PairPosition(pzLeaf, i);
          return true;
        }
        return false;
      });
}

bool KivFastFileContainerBase::InsertFreeRecord(uint64_t iNode, uint64_t iSize, Position iFile) {
  return WalkTree(
      iNode, [&](const uint8_t* pzNode) { return Covers(pzNode, iSize); },
      [&](uint8_t* pzLeaf) {
        if (ChildNum(pzLeaf) < m_iNodeOrder) return InsertIntoLeaf(pzLeaf, iSize, iFile);
        uint64_t iLeft = 0;
        uint64_t iRight = 0;
        if (!SplitLeaf(pzLeaf, iLeft, iRight)) return false;
        if (!OfferToLeaf(iLeft, iSize, iFile)) OfferToLeaf(iRight, iSize, iFile);
        return true;
      });
}

// Puts a pair in front of the first one that is not smaller.
bool KivFastFileContainerBase::InsertIntoLeaf(uint8_t* pzNode, uint64_t iSize, Position iFile) {
  const uint32_t iNum = ChildNum(pzNode);
  uint32_t i = 0;
  while (i < iNum && PairSize(pzNode, i) < iSize) ++i;
  MovePointers(pzNode, 2 * i + 2, 2 * i, 2 * (iNum - i));
  SetPointer(pzNode, 2 * i, iSize);
  SetPointer(pzNode, 2 * i + 1, iFile);
  SetChildNum(pzNode, iNum + 1);
  WriteNode(pzNode);
  return true;
}

bool KivFastFileContainerBase::OfferToLeaf(uint64_t iNode, uint64_t iSize, Position iFile) {
  NodeBytes acBuffer;
  uint8_t* pzNode = ReadNode(iNode, acBuffer);
  if (pzNode == nullptr || IsBranch(pzNode)) return false;
  if (!Covers(pzNode, iSize) || ChildNum(pzNode) >= m_iNodeOrder) return false;
  return InsertIntoLeaf(pzNode, iSize, iFile);
}

// Two leaves take the place of a full one. If its parent is full, or it has none, it becomes their parent itself: the
// tree gets deeper there, and the split does not travel upward.
bool KivFastFileContainerBase::SplitLeaf(uint8_t* pzNode, uint64_t& iLeft, uint64_t& iRight) {
  if (!IsUsed(pzNode) || IsBranch(pzNode) || ChildNum(pzNode) != m_iNodeOrder) {
    KIV_FAIL();
    return false;
  }
  NodeBytes acOld;  // new slots may move the file's bytes
  std::memcpy(acOld.data(), pzNode, kNodeSize);
  uint8_t* pzOld = acOld.data();
  const uint64_t iOld = Field(pzOld, kThisNode);
  const uint64_t iParent = Field(pzOld, kParentNode);
  const uint32_t iHalf = m_iNodeOrder / 2;
  const uint64_t iBoundary = PairSize(pzOld, iHalf - 1);

  // Each new node is written at once, since the allocator looks at the slot's first byte.
  const auto NewLeaf = [&](NodeBytes& acLeaf) {
    acLeaf.fill(0);
    const uint64_t iLeaf = AllocateNodeSlot();
    if (iLeaf == 0) return iLeaf;
    acLeaf[kUsed] = 1;
    SetField(acLeaf.data(), kThisNode, iLeaf);
    WriteNode(acLeaf.data());
    return iLeaf;
  };
  NodeBytes acLeft;
  NodeBytes acRight;
  iLeft = NewLeaf(acLeft);
  iRight = iLeft != 0 ? NewLeaf(acRight) : 0;
  if (iRight == 0) return false;

  uint8_t* pzLeft = acLeft.data();
  SetChildNum(pzLeft, iHalf);
  SetField(pzLeft, kMinSize, Field(pzOld, kMinSize));
  SetField(pzLeft, kMaxSize, iBoundary);
  SetField(pzLeft, kParentNode, iOld);
  std::memcpy(pzLeft + kChildPointer, pzOld + kChildPointer, 16 * iHalf);
  uint8_t* pzRight = acRight.data();
  const uint32_t iRest = m_iNodeOrder - iHalf;
  SetChildNum(pzRight, iRest);
  SetField(pzRight, kMinSize, iBoundary);
  SetField(pzRight, kMaxSize, Field(pzOld, kMaxSize));
  SetField(pzRight, kParentNode, iOld);
  std::memcpy(pzRight + kChildPointer, pzOld + kChildPointer + 16 * iHalf, 16 * iRest);
  WriteNode(pzLeft);
  WriteNode(pzRight);

  NodeBytes acParent;
  uint8_t* pzParent = iParent != 0 ? ReadNode(iParent, acParent) : nullptr;
  if (iParent != 0 && pzParent == nullptr) return false;
  if (pzParent == nullptr || ChildNum(pzParent) == m_iNodeOrder) {
    pzOld[kBranch] = 1;
    SetChildNum(pzOld, 2);
    std::memset(pzOld + kChildPointer, 0, kNodeSize - kChildPointer);
    SetPointer(pzOld, 0, iLeft);
    SetPointer(pzOld, 1, iRight);
    WriteNode(pzOld);
    return true;
  }

  const uint32_t iNum = ChildNum(pzParent);
  const uint32_t iIndex = FindChild(pzParent, iOld);
  if (iIndex == iNum) {
    KIV_FAIL();
    return false;
  }
  MovePointers(pzParent, iIndex + 2, iIndex + 1, iNum - iIndex - 1);
  SetPointer(pzParent, iIndex, iLeft);
  SetPointer(pzParent, iIndex + 1, iRight);
  SetChildNum(pzParent, iNum + 1);
  WriteNode(pzParent);
  pzOld[kUsed] = 0;
  WriteNode(pzOld);
  if (m_iValidNodeNum == 0)
    KIV_FAIL();
  else
    --m_iValidNodeNum;
  SetField(pzLeft, kParentNode, iParent);
  SetField(pzRight, kParentNode, iParent);
  WriteNode(pzLeft);
  WriteNode(pzRight);
  return true;
}

bool KivFastFileContainerBase::RemoveFreeRecord(uint64_t iNode, uint64_t iSize, Position iFile) {
  const uint64_t iFileSize = iSize;
  return WalkTree(
      iNode, [&](const uint8_t* pzNode) { return Covers(pzNode, iSize); },
      [&](uint8_t* pzLeaf) {
        const uint32_t iNum = ChildNum(pzLeaf);
        uint32_t i = 0;
        while (i < iNum && PairPosition(pzLeaf, i) != iFile) ++i;
        if (i == iNum) return false;
        KIV_CHECK_AS(iFileSize == PairSize(pzLeaf, i), "iFileSize == zNode.apChildPointer[2 * i]");
        MovePointers(pzLeaf, 2 * i, 2 * i + 2, 2 * (iNum - i - 1));
        SetChildNum(pzLeaf, iNum - 1);
        if (iNum == 1) return RemoveNode(pzLeaf);
        WriteNode(pzLeaf);
        return true;
      });
}

// An emptied node leaves the tree, and so does every parent that has no other child. The range goes to a neighbour.
bool KivFastFileContainerBase::RemoveNode(uint8_t* pzNode) {
  NodeBytes acNode;
  for (;;) {
    const uint64_t iNode = Field(pzNode, kThisNode);
    const uint64_t iParent = Field(pzNode, kParentNode);
    if (iParent == 0) {
      pzNode[kBranch] = 0;
      SetChildNum(pzNode, 0);
      WriteNode(pzNode);
      return true;
    }
    const uint64_t iMinSize = Field(pzNode, kMinSize);
    const uint64_t iMaxSize = Field(pzNode, kMaxSize);
    pzNode[kUsed] = 0;
    WriteNode(pzNode);
    if (m_iValidNodeNum == 0)
      KIV_FAIL();
    else
      --m_iValidNodeNum;

    NodeBytes acParent;
    uint8_t* pzParent = ReadNode(iParent, acParent);
    if (pzParent == nullptr) return false;
    const uint32_t iNum = ChildNum(pzParent);
    const uint32_t iIndex = FindChild(pzParent, iNode);
    if (iIndex == iNum) return false;
    if (iNum >= 2) {
      const uint64_t iNeighbour = Pointer(pzParent, iIndex == 0 ? 1 : iIndex - 1);
      NodeBytes acNeighbour;
      uint8_t* pzNeighbour = ReadNode(iNeighbour, acNeighbour);
      if (pzNeighbour == nullptr) return false;
      SetField(pzNeighbour, kMinSize, std::min(Field(pzNeighbour, kMinSize), iMinSize));
      SetField(pzNeighbour, kMaxSize, std::max(Field(pzNeighbour, kMaxSize), iMaxSize));
      WriteNode(pzNeighbour);
      if (!PushRangeDown(iNeighbour)) KIV_FAIL();
      MovePointers(pzParent, iIndex, iIndex + 1, iNum - iIndex - 1);
      SetChildNum(pzParent, iNum - 1);
      WriteNode(pzParent);
      return true;
    }
    // Each round marks a node as unused, so even a ring of parents ends.
    if (pzParent == acParent.data()) {
      acNode = acParent;
      pzParent = acNode.data();
    }
    pzNode = pzParent;
  }
}

// Keeps the children of a widened node covering its range.
bool KivFastFileContainerBase::PushRangeDown(uint64_t iNode) {
  NodeBytes acNode;
  NodeBytes acChild;
  for (uint64_t nVisits = 0; nVisits <= kUncheckedVisits || nVisits <= NodeSlotsInFile(); ++nVisits) {
    const uint8_t* pzNode = ReadNode(iNode, acNode);
    if (pzNode == nullptr) return false;
    if (!IsBranch(pzNode)) return true;
    const uint32_t iNum = ChildNum(pzNode);
    if (iNum == 0) {
      KIV_FAIL();
      return false;
    }
    const uint64_t iMinSize = Field(pzNode, kMinSize);
    const uint64_t iMaxSize = Field(pzNode, kMaxSize);
    const uint64_t iFirst = Pointer(pzNode, 0);
    const uint64_t iLast = Pointer(pzNode, iNum - 1);
    // Only one side per call: this is meant.
    uint8_t* pzChild = ReadNode(iFirst, acChild);
    if (pzChild == nullptr) return false;
    if (Field(pzChild, kMinSize) > iMinSize) {
      SetField(pzChild, kMinSize, iMinSize);
      WriteNode(pzChild);
      iNode = iFirst;
      continue;
    }
    pzChild = ReadNode(iLast, acChild);
    if (pzChild == nullptr) return false;
    if (Field(pzChild, kMaxSize) >= iMaxSize) return true;
    SetField(pzChild, kMaxSize, iMaxSize);
    WriteNode(pzChild);
    iNode = iLast;
  }
  KIV_FAIL();
  return false;
}

}  // namespace kiv
