#include "KivOutOfCoreTreeNode.h"

#include "KivException.h"
#include "KivMemoryBlock.h"

namespace kiv {
namespace {

constexpr char kSource[] = "src\\KivOutOfCoreData";

}  // namespace

bool KivOutOfCoreTreeNode::GetAllPosition(std::vector<uint64_t>& viPosition) {
  viPosition.clear();
  KivMemoryBlock* pzBlock = GetMemoryBlock();
  if (pzBlock == nullptr) {
    KIV_FAIL();
    return false;
  }
  for (const uint64_t* piLink : pzBlock->GetLinks())
    if (*piLink != 0) viPosition.push_back(*piLink);
  return true;
}

bool KivOutOfCoreTreeNode::ReplaceAllPosition(const std::map<uint64_t, uint64_t>& mapPosition) {
  KivMemoryBlock* pzBlock = GetMemoryBlockForWrite();
  if (pzBlock == nullptr) {
    KIV_FAIL();
    return false;
  }
  for (uint64_t* piLink : pzBlock->GetLinks()) {
    if (*piLink == 0) continue;
    const auto itNew = mapPosition.find(*piLink);
    if (itNew == mapPosition.end()) {
      KIV_FAIL();
      return false;
    }
    *piLink = itNew->second;
  }
  return true;
}

void KivOutOfCoreTreeNode::SetBoxFromFrame(const uint32_t* pzFrameBox) {
  uint32_t* piCorner = m_aiBoxCorner;
  for (int iCorner = 0; iCorner < 8; ++iCorner) {
    *piCorner++ = pzFrameBox[(iCorner & 4) != 0 ? 3 : 0];
    *piCorner++ = pzFrameBox[(iCorner & 2) != 0 ? 4 : 1];
    *piCorner++ = pzFrameBox[(iCorner & 1) != 0 ? 5 : 2];
  }
}

}  // namespace kiv
