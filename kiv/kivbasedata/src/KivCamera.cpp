#include "KivCamera.h"

#include <utility>

namespace kiv {

KivView& KivMemoryBlockCamera::AddView() {
  KivView& zView = m_vzView.Add();
  zView.m_zFrame.m_iKind = kViewKind;
  ++m_zHeader.m_iEntryCount;
  return zView;
}

KivViewGroup& KivMemoryBlockCamera::AddGroup() {
  KivViewGroup& zGroup = m_vzGroup.Add();
  zGroup.m_zFrame.m_iKind = kViewGroupKind;
  ++m_zHeader.m_iEntryCount;
  return zGroup;
}

bool KivViewLookup::Build(uint32_t iMode, const std::vector<KivViewShow>& vShow) {
  try {
    std::map<uint32_t, std::vector<KivLayer>> mapLayers;
    for (const KivViewShow& zShow : vShow) {
      std::vector<KivLayer>& vzLayer = mapLayers[zShow.m_iRef0];
      if (zShow.m_iState == 1 || zShow.m_iState == 2) vzLayer.push_back({zShow.m_iRef1, zShow.m_iState == 1});
    }
    std::map<uint32_t, KivLayerFilterLookup> mapTable;
    for (const auto& [iRef0, vzLayer] : mapLayers)
      if (!mapTable[iRef0].Build(vzLayer)) return false;
    m_mapTable = std::move(mapTable);
    m_iMode = iMode;
    return true;
  } catch (...) {
    KivReportThrownHere(KivMemoryBlockCamera::kSource, __LINE__);
    return false;
  }
}

bool KivViewLookup::Query(bool bDefaultOn, uint32_t iRef0, uint32_t iRef1) {
  const auto itEntry = m_mapTable.find(iRef0);
  if (itEntry != m_mapTable.end()) return itEntry->second.Query(bDefaultOn, iRef1);
  return m_iMode == 1 || (m_iMode != 2 && bDefaultOn);
}

const KivLayerFilterLookup* KivViewLookup::GetEntry(uint32_t iRef0) const {
  const auto itEntry = m_mapTable.find(iRef0);
  return itEntry != m_mapTable.end() ? &itEntry->second : nullptr;
}

}  // namespace kiv
