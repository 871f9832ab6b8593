// The full check of a container and the salvage of a damaged one.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "ISnapShotFile.h"
#include "KivSharedPtr.h"

namespace kiv {

enum class KivContainerFindingKind : uint32_t {
  EndOutsideFile,      // the end of the records lies before the first record or behind the file's end
  RecordTooSmall,      // a record size below 24; the walk of the records ends there
  RecordOverrunsEnd,   // a record reaches behind the end of the records; the walk ends there
  PayloadTooLarge,     // more payload than the record has room for
  BackPointer,         // the last 8 bytes of a record do not point back at it
  FreeNotZeroed,       // bytes of a free record that are not zero
  FreeNeighbours,      // two free records side by side
  NodeOrder,           // capacity of a node outside 2 to 20
  NodeCount,           // numbers of nodes that do not fit the file or the nodes that were found
  NodePosition,        // a node position outside the file or between two slots
  NodeSharedOrCyclic,  // a node that is reached twice
  NodeUnused,          // a node of the tree whose slot is marked free
  NodeOwnPosition,     // a node that names another position as its own
  NodeParent,          // a node that names another parent
  NodeChildCount,      // more pairs or children than a node may have, or none
  NodeRange,           // a range that is empty, does not fit the parent's, or leaves a hole
  NodeUnreachable,     // slots in use that no branch leads to
  PairOrder,           // pairs that are not sorted by size or lie outside their node's range
  PairWithoutRecord,   // a pair whose position holds no free record, or one of another size
  RecordWithoutPair,   // a free record that is in no leaf
  PairTwice            // a free record that is in the tree more than once
};

// The kind's name, as above.
const char* KivGetFindingName(KivContainerFindingKind iKind);

struct KivContainerFinding {
  KivContainerFindingKind m_iKind;
  uint64_t m_iPosition;  // of the record, or of the node in the unused record file
  uint64_t m_iValue;     // what was found there
};

struct KivContainerCheck {
  static constexpr uint64_t kMaxListed = 1000;

  std::vector<KivContainerFinding> m_vzFinding;  // the first kMaxListed
  uint64_t m_iFindingNum = 0;
  uint64_t m_iUsedRecordNum = 0;
  uint64_t m_iUsedBytes = 0;  // frames and slack included
  uint64_t m_iPayloadBytes = 0;
  uint64_t m_iFreeRecordNum = 0;
  uint64_t m_iFreeBytes = 0;
  uint64_t m_iNodeNum = 0;  // nodes that were reached
  uint64_t m_iPairNum = 0;
  uint64_t m_iDepth = 0;  // 1 for a tree that is one leaf

  bool IsSound() const { return m_iFindingNum == 0; }
  void Add(KivContainerFindingKind iKind, uint64_t iPosition, uint64_t iValue);
  std::string GetText() const;  // a line for each listed finding
};

// A stretch of the damaged file in which no whole record was found.
struct KivLostRange {
  uint64_t m_iPosition;
  uint64_t m_iSize;
};

struct KivSalvageReport {
  bool m_bDone = false;  // the new file was written
  // This process could open a file with the old header, and the new file has it. Otherwise it has a default one; the
  // generation and what concerns the position tables are still taken from the old one where its byte order is right.
  bool m_bHeaderKept = false;
  bool m_bPositionTableLost = false;  // the header named a first position table that is no record any more
  uint64_t m_iUsedRecordNum = 0;
  uint64_t m_iFreeRecordNum = 0;
  uint64_t m_iEndPosition = 0;
  std::vector<KivLostRange> m_vzLost;
  uint64_t m_iLostBytes = 0;

  std::string GetText() const;  // a line for each lost range
};

// Rebuilds header and tree of a damaged main file from its records, which describe themselves, into a new, empty one.
// Every record keeps its position; what was lost becomes free space. Where the walk meets no whole record it searches
// byte by byte for the next one. A record whose bytes cannot be read is lost too. Nothing that the damaged file reports
// ends the salvage; it is not changed. Memory is bounded by the number of records.
KivSalvageReport KivSalvageContainer(ISnapShotFile& zDamaged, const KivSharedPtr<ISnapShotFile>& pzNewFile);

}  // namespace kiv
