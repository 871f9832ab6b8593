#include "KivInstance.h"

#include <algorithm>
#include <limits>

namespace kiv {

void KivInstanceEntry::Clear() {
  m_zFrame = KivEntryFrame();
  m_iInstanceData = {};
  m_vzLevel.clear();
  m_iBrepKey = m_iVertexKey = m_iVertexKey2 = m_iExtraKey = 0;
  m_iMatrixFlags = 0;
  m_iMatrixClass = kMatrixClassDefault;
  m_zMatrix = KivEMatrix4();
  m_fInstanceBox = kNoBox;
  m_vzAttribute.clear();
}

namespace {
constexpr size_t kLevelsKept = 64;
}

void KivMemoryBlockInstance::Clear() {
  m_iInstanceValue = 0;
  // A longer list than models have keeps no memory.
  if (m_vfLevelTolerance.capacity() > kLevelsKept) m_vfLevelTolerance = std::vector<float>();
  m_vfLevelTolerance.assign(1, 0.01f);
  m_vzInstance.Clear();
}

KivInstanceEntry& KivMemoryBlockInstance::AddInstance() {
  KivInstanceEntry& zEntry = m_vzInstance.Add();
  zEntry.m_zFrame.m_iKind = kInstanceKind;
  ++m_zHeader.m_iEntryCount;
  return zEntry;
}

void KivMemoryBlockInstance::BeforeSave(bool bModifyOnlyForPosition) {
  if (bModifyOnlyForPosition) return;
  for (KivInstanceEntry& zEntry : m_vzInstance) {
    if (zEntry.m_zFrame.IsGap() || (zEntry.m_iMatrixFlags & kInstanceHasClass) != 0) continue;
    zEntry.m_iMatrixClass = KivFillMatrixClass(zEntry.m_zMatrix, zEntry.m_iMatrixClass);
    zEntry.m_iMatrixFlags |= kInstanceHasClass;
  }
}

// The entries begin right behind the tolerances.
bool KivMemoryBlockInstance::PlaceData() {
  const uint64_t iDataOffset = 76 + uint64_t{sizeof(float)} * m_vfLevelTolerance.size();
  if (!KIV_ASSERT(iDataOffset <= std::numeric_limits<uint32_t>::max())) return false;
  m_zHeader.m_iDataOffset = static_cast<uint32_t>(iDataOffset);
  return true;
}

void KivMemoryBlockInstance::CountLiveEntries() {
  m_zHeader.m_iEntryCount = static_cast<uint32_t>(std::count_if(
      m_vzInstance.begin(), m_vzInstance.end(), [](const auto& zEntry) { return !zEntry.m_zFrame.IsGap(); }));
}

}  // namespace kiv
