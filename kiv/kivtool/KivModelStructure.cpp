#include "KivModelStructure.h"

#include <algorithm>
#include <map>
#include <set>

#include "KivInstance.h"
#include "KivModel.h"
#include "KivModelMeaning.h"
#include "KivModelNote.h"
#include "KivProgress.h"

namespace kiv {
namespace {

KivToolPart PartOf(const KivInstanceEntry& zEntry) {
  KivToolPart zPart;
  for (const KivInstanceLevel& z : zEntry.m_vzLevel)
    zPart.m_vzLevel.push_back({z.m_iFaceEdgeKey, z.m_iCommonKey, z.m_iPolyElemKey});
  zPart.m_iBrepKey = zEntry.m_iBrepKey;
  zPart.m_iVertexKey = {zEntry.m_iVertexKey, zEntry.m_iVertexKey2};
  zPart.m_iExtraKey = zEntry.m_iExtraKey;
  return zPart;
}

void LoadInstances(KivToolModel& zModel, KivToolStructure& zStructure) {
  KivProgress zProgress("reading instances", 0);
  std::map<KivToolPart, size_t> mapPart;
  std::set<uint64_t> siSeen;
  std::vector<uint64_t> viToVisit = {zStructure.m_iInstanceRootKey};
  while (!viToVisit.empty()) {
    const uint64_t iKey = viToVisit.back();
    viToVisit.pop_back();
    if (iKey == 0 || !siSeen.insert(zModel.Resolve(iKey)).second) continue;
    const KivMemoryBlockInstance* pzBlock = zModel.LoadBlock<KivInstance>(iKey);
    if (pzBlock == nullptr) {
      zStructure.m_bComplete = false;
      continue;
    }
    if (siSeen.size() == 1) zStructure.m_vfLevelTolerance = pzBlock->m_vfLevelTolerance;
    for (size_t i = 0; i < pzBlock->m_vzInstance.size(); ++i) {
      if (i % 256 == 0) zProgress.Advance(0);
      const KivInstanceEntry& zEntry = pzBlock->m_vzInstance[i];
      if (zEntry.m_zFrame.IsGap()) continue;
      KivToolPart zPart = PartOf(zEntry);
      const auto [itPart, bNew] = mapPart.try_emplace(zPart, zStructure.m_vzPart.size());
      if (bNew) zStructure.m_vzPart.push_back(std::move(zPart));
      zStructure.m_vzInstance.push_back({iKey, static_cast<uint32_t>(i), zEntry.m_iInstanceData[0], itPart->second,
                                         zEntry.m_zMatrix, zEntry.m_fInstanceBox});
    }
    viToVisit.push_back(pzBlock->m_zHeader.m_aiLink[2]);
    viToVisit.push_back(pzBlock->m_zHeader.m_aiLink[1]);
  }
}

}  // namespace

size_t KivToolStructure::GetLevelNum() const {
  size_t nLevels = 0;
  for (const KivToolPart& zPart : m_vzPart) nLevels = std::max(nLevels, zPart.m_vzLevel.size());
  return nLevels;
}

bool KivIsBox(const std::array<float, 6>& fBox) {
  return fBox[0] <= fBox[3] && fBox[1] <= fBox[4] && fBox[2] <= fBox[5];
}

KivToolStructure KivLoadStructure(KivToolModel& zModel) {
  KivToolStructure zStructure;
  const KivMemoryBlockModel* pzModel = zModel.LoadBlock<KivModel>(kModelPosition);
  if (pzModel == nullptr) {
    zStructure.m_bComplete = false;
    return zStructure;
  }
  zStructure.m_iInstanceRootKey = pzModel->m_zHeader.m_aiLink[1];
  zStructure.m_iNoteKey = pzModel->m_zHeader.m_aiLink[2];
  std::copy_n(pzModel->m_fModelBoxMin.begin(), 3, zStructure.m_fBox.begin());
  std::copy_n(pzModel->m_fModelBoxMax.begin(), 3, zStructure.m_fBox.begin() + 3);

  if (zStructure.m_iNoteKey != 0) {
    if (const KivMemoryBlockModelNote* pzNote = zModel.LoadBlock<KivModelNote>(zStructure.m_iNoteKey)) {
      zStructure.m_iAssemblyKey = pzNote->m_iAssemblyKey;
      zStructure.m_iSecondKey = pzNote->m_iSecondKey;
      zStructure.m_dUnit = KivGetUnit(pzNote->m_vzAttribute);
    } else {
      zStructure.m_bComplete = false;
    }
  }
  if (zStructure.m_iAssemblyKey != 0) {
    if (const KivMemoryBlockAssemblyTree* pzTree = zModel.LoadBlock<KivAssemblyTree>(zStructure.m_iAssemblyKey))
      zStructure.m_vzNode.assign(pzTree->m_vzNode.begin(), pzTree->m_vzNode.end());
    else
      zStructure.m_bComplete = false;
  }
  if (zStructure.m_iInstanceRootKey != 0) LoadInstances(zModel, zStructure);
  return zStructure;
}

}  // namespace kiv
