#include "KivContainerCheck.h"

namespace kiv {

const char* KivGetFindingName(KivContainerFindingKind iKind) {
  static const char* const aszName[] = {"EndOutsideFile",  "RecordTooSmall", "RecordOverrunsEnd",  "PayloadTooLarge",
                                        "BackPointer",     "FreeNotZeroed",  "FreeNeighbours",     "NodeOrder",
                                        "NodeCount",       "NodePosition",   "NodeSharedOrCyclic", "NodeUnused",
                                        "NodeOwnPosition", "NodeParent",     "NodeChildCount",     "NodeRange",
                                        "NodeUnreachable", "PairOrder",      "PairWithoutRecord",  "RecordWithoutPair",
                                        "PairTwice"};
  const size_t iIndex = static_cast<size_t>(iKind);
  return iIndex < sizeof aszName / sizeof aszName[0] ? aszName[iIndex] : "Unknown";
}

void KivContainerCheck::Add(KivContainerFindingKind iKind, uint64_t iPosition, uint64_t iValue) {
  if (m_vzFinding.size() < kMaxListed) m_vzFinding.push_back({iKind, iPosition, iValue});
  ++m_iFindingNum;
}

std::string KivContainerCheck::GetText() const {
  std::string strText;
  for (const KivContainerFinding& zFinding : m_vzFinding) {
    strText += KivGetFindingName(zFinding.m_iKind);
    strText += " at " + std::to_string(zFinding.m_iPosition) + ", found " + std::to_string(zFinding.m_iValue) + "\n";
  }
  if (m_iFindingNum > m_vzFinding.size())
    strText += "and " + std::to_string(m_iFindingNum - m_vzFinding.size()) + " more\n";
  return strText;
}

}  // namespace kiv
