#include "KivLayerFilter.h"

#include <algorithm>
#include <utility>

namespace kiv {

void KivLayerFilterEntry::Clear() {
  m_zFrame = KivEntryFrame();
  m_vzLayer.clear();
  m_iFilterValue = 0;
  m_strFilterName.clear();
}

KivLayerFilterEntry& KivMemoryBlockLayerFilter::AddFilter() {
  KivLayerFilterEntry& zFilter = m_vzFilter.Add();
  zFilter.m_zFrame.m_iKind = kFilterKind;
  ++m_zHeader.m_iEntryCount;
  return zFilter;
}

void KivLayerFilterLookup::Members::Build(const std::vector<KivLayer>& vzLayer, bool bOn) {
  size_t nMembers = 0;
  uint32_t iLargest = 0;
  for (const KivLayer& zLayer : vzLayer) {
    if (zLayer.m_bOn != bOn) continue;
    ++nMembers;
    iLargest = std::max(iLargest, zLayer.m_iLayer);
  }
  if (nMembers == 0) return;
  m_eForm = nMembers <= kListMax ? Form::List : iLargest > kBitsMax ? Form::Set : Form::Bits;
  if (m_eForm == Form::Bits) m_nBits = size_t{iLargest} + 1;
  for (const KivLayer& zLayer : vzLayer) {
    if (zLayer.m_bOn != bOn) continue;
    const uint32_t iLayer = zLayer.m_iLayer;
    if (m_eForm == Form::List)
      m_aiList[m_nList++] = iLayer;
    else if (m_eForm == Form::Bits)
      m_aiBits[iLayer / 64] |= uint64_t{1} << (iLayer % 64);
    else
      m_viSet.push_back(iLayer);
  }
  std::sort(m_viSet.begin(), m_viSet.end());
}

bool KivLayerFilterLookup::Members::Has(uint32_t iLayer) const {
  switch (m_eForm) {
    case Form::List:
      for (size_t i = 0; i < m_nList; ++i)
        if (m_aiList[i] == iLayer) return true;
      return false;
    case Form::Bits:
      return iLayer < m_nBits && (m_aiBits[iLayer / 64] >> (iLayer % 64) & 1) != 0;
    case Form::Set:
      return std::binary_search(m_viSet.begin(), m_viSet.end(), iLayer);
    default:
      return false;
  }
}

bool KivLayerFilterLookup::Build(const std::vector<KivLayer>& vzLayer) {
  try {
    KivLayerFilterLookup zNew;
    zNew.m_zOn.Build(vzLayer, true);
    zNew.m_zOff.Build(vzLayer, false);
    zNew.m_bMemoAnswer = zNew.Find(zNew.m_bMemoDefaultOn, zNew.m_iMemoLayer);
    *this = std::move(zNew);
    return true;
  } catch (...) {
    KivReportThrownHere(KivMemoryBlockLayerFilter::kSource, __LINE__);
    return false;
  }
}

bool KivLayerFilterLookup::Build(const KivLayerFilterEntry* pEntry) {
  static const std::vector<KivLayer> vzNone;
  return Build(pEntry != nullptr ? pEntry->m_vzLayer : vzNone);
}

}  // namespace kiv
