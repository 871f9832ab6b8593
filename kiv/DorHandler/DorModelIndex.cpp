#include "DorModelIndex.h"

#include <algorithm>
#include <set>

#include "DorRefusal.h"
#include "KivBrepData.h"
#include "KivElementWalk.h"
#include "KivFaceEdgeData.h"
#include "KivOutOfCoreHandle.h"
#include "KivRecordBytes.h"

namespace kiv {
namespace {

template <typename Walk>
void NeedWhole(bool bAll, Walk szWhat) {
  if (!bAll) throw DorRefusal(DorAnswerCode::Damaged, std::string(szWhat) + " cannot be read as a whole");
}

void SortById(std::vector<DorEntryPlace>& vz) {
  std::stable_sort(vz.begin(), vz.end(), [](const auto& a, const auto& b) { return a.m_iId < b.m_iId; });
}

DorPartKeys KeysOf(const KivInstanceEntry& zEntry) {
  DorPartKeys z;
  for (const KivInstanceLevel& zLevel : zEntry.m_vzLevel)
    z.m_vaiMesh.push_back({zLevel.m_iFaceEdgeKey, zLevel.m_iCommonKey});
  z.m_iBrepKey = zEntry.m_iBrepKey;
  return z;
}

}  // namespace

// --- Instances ------------------------------------------------------------------------------------------------------

void DorModelIndex::ReadInstances() {
  if (m_bInstances) return;
  m_vzPlace.clear();
  m_vzElement.clear();
  m_vzPart.clear();
  m_vfTolerance.clear();
  KivModel* pzModel = DorNeed(KivGetModel(m_iManagerKey), "the model's root");
  const uint64_t iRoot = DorNeed(pzModel->GetMemoryBlock(), "the model's root")->m_zHeader.m_aiLink[1];
  std::map<DorPartKeys, uint32_t> mapPart;
  std::set<uint64_t> siSeen;
  const auto Visit = [&](KivOutOfCoreTreeNode& zElement) {
    auto* pzInstance = DorNeed(dynamic_cast<KivInstance*>(&zElement), "an element of the instance tree");
    const uint64_t iKey = pzInstance->GetPositionKey() != 0 ? pzInstance->GetPositionKey() : pzInstance->GetPosition();
    const KivMemoryBlockInstance& zBlock = *DorNeed(pzInstance->GetMemoryBlock(), "an element of the instance tree");
    if (m_vzElement.empty()) m_vfTolerance = zBlock.m_vfLevelTolerance;
    m_vzElement.push_back({iKey, {zBlock.m_zHeader.m_aiLink[1], zBlock.m_zHeader.m_aiLink[2]}});
    for (size_t i = 0; i < zBlock.m_vzInstance.size(); ++i) {
      const KivInstanceEntry& zEntry = zBlock.m_vzInstance[i];
      if (zEntry.m_zFrame.IsGap()) continue;
      const auto [it, bNew] = mapPart.emplace(KeysOf(zEntry), static_cast<uint32_t>(m_vzPart.size()));
      if (bNew) m_vzPart.push_back(it->first);
      m_vzPlace.push_back({iKey, static_cast<uint32_t>(i), zEntry.m_iInstanceData[0], it->second});
    }
  };
  if (iRoot != 0) NeedWhole(KivWalkTree(m_iManagerKey, iRoot, siSeen, Visit), "the instance tree");
  m_bInstances = true;
}

const std::vector<DorPlace>& DorModelIndex::Places() {
  ReadInstances();
  return m_vzPlace;
}

const std::vector<DorInstanceElement>& DorModelIndex::InstanceElements() {
  ReadInstances();
  return m_vzElement;
}

const std::vector<DorPartKeys>& DorModelIndex::Parts() {
  ReadInstances();
  return m_vzPart;
}

std::vector<float> DorModelIndex::Tolerances() {
  ReadInstances();
  return m_vfTolerance;
}

const DorPlace& DorModelIndex::PlaceOf(int64_t iInstance) {
  ReadInstances();
  if (iInstance < 0 || static_cast<uint64_t>(iInstance) >= m_vzPlace.size())
    throw DorRefusal(DorAnswerCode::UnknownInstance, "the model has no instance " + std::to_string(iInstance));
  return m_vzPlace[static_cast<size_t>(iInstance)];
}

KivInstanceEntry DorModelIndex::EntryOf(const DorPlace& zPlace) {
  const KivOutOfCoreHandle zHandle(m_iManagerKey, zPlace.m_iElementKey);
  auto* pzElement = DorNeed(zHandle.Fetch<KivInstance>(), "an element of the instance tree");
  const KivMemoryBlockInstance& zBlock = *DorNeed(pzElement->GetMemoryBlock(), "an element of the instance tree");
  DorNeed(zPlace.m_iEntry < zBlock.m_vzInstance.size(), "an instance");
  return zBlock.m_vzInstance[zPlace.m_iEntry];
}

// --- Parts ----------------------------------------------------------------------------------------------------------

const DorPartIndex& DorModelIndex::Part(uint32_t iPart) {
  ReadInstances();
  const auto it = m_mapPart.find(iPart);
  if (it != m_mapPart.end()) return it->second;
  DorPartIndex zPart;
  const DorPartKeys& zKeys = m_vzPart.at(iPart);
  for (const auto& [iOwn, iCommon] : zKeys.m_vaiMesh) {
    DorLevelIndex& zLevel = zPart.m_vzLevel.emplace_back();
    ReadMeshes(iOwn, zLevel);
    ReadMeshes(iCommon, zLevel);
    SortById(zLevel.m_vzFace);
    SortById(zLevel.m_vzEdge);
    zPart.m_nEntries += zLevel.m_vzFace.size() + zLevel.m_vzEdge.size();
  }
  ReadGeometry(zKeys.m_iBrepKey, zPart);
  SortById(zPart.m_vzGeometry);
  zPart.m_nEntries += zPart.m_vzGeometry.size();
  if (m_nEntries + zPart.m_nEntries > kMostEntries) ForgetParts();
  m_nEntries += zPart.m_nEntries;
  return m_mapPart.emplace(iPart, std::move(zPart)).first->second;
}

std::vector<uint32_t> DorModelIndex::PartsBeside(uint32_t iPart) {
  ReadInstances();
  std::set<uint64_t> siKey;
  for (const auto& aiKey : m_vzPart.at(iPart).m_vaiMesh) siKey.insert(aiKey.begin(), aiKey.end());
  siKey.erase(0);
  std::vector<uint32_t> viPart;
  for (uint32_t i = 0; i < m_vzPart.size(); ++i) {
    const auto& vaiMesh = m_vzPart[i].m_vaiMesh;
    if (std::any_of(vaiMesh.begin(), vaiMesh.end(),
                    [&](const auto& aiKey) { return siKey.count(aiKey[0]) + siKey.count(aiKey[1]) != 0; }))
      viPart.push_back(i);
  }
  return viPart;
}

void DorModelIndex::ReadMeshes(uint64_t iKey, DorLevelIndex& zLevel) {
  if (iKey == 0) return;
  std::set<uint64_t> siSeen;
  const auto Visit = [&](KivOutOfCoreTreeNode& zElement) {
    auto* pzMesh = dynamic_cast<KivFaceEdgeData*>(&zElement);
    if (pzMesh == nullptr) return;  // polygons have no ids
    const uint64_t iOwnKey = pzMesh->GetPositionKey() != 0 ? pzMesh->GetPositionKey() : pzMesh->GetPosition();
    const KivMemoryBlockFaceEdge& zBlock = *DorNeed(pzMesh->GetMemoryBlock(), "a mesh");
    for (size_t i = 0; i < zBlock.m_vzFace.size(); ++i) {
      const KivMeshFace& zFace = zBlock.m_vzFace[i];
      if (zFace.m_zFrame.IsGap()) continue;
      zLevel.m_vzFace.push_back({zFace.m_iId, static_cast<uint32_t>(i), iOwnKey});
      const uint64_t nLoose = std::min<uint64_t>(zFace.m_iTriangleCount, zFace.m_viIndex.size() / 3);
      const uint64_t nStrip = zFace.m_viIndex.size() - 3 * nLoose;
      zLevel.m_nTriangles += nLoose + (nStrip > 2 ? nStrip - 2 : 0);
    }
    for (size_t i = 0; i < zBlock.m_vzEdge.size(); ++i)
      if (!zBlock.m_vzEdge[i].m_zFrame.IsGap())
        zLevel.m_vzEdge.push_back({zBlock.m_vzEdge[i].m_iId, static_cast<uint32_t>(i), iOwnKey});
  };
  NeedWhole(KivWalkTree(m_iManagerKey, iKey, siSeen, Visit), "the meshes of a part");
}

void DorModelIndex::ReadGeometry(uint64_t iKey, DorPartIndex& zPart) {
  if (iKey == 0) return;
  std::set<uint64_t> siSeen;
  const auto Visit = [&](KivOutOfCoreTreeNode& zElement) {
    auto* pzBrep = DorNeed(dynamic_cast<KivBrepData*>(&zElement), "the exact geometry of a part");
    const uint64_t iOwnKey = pzBrep->GetPositionKey() != 0 ? pzBrep->GetPositionKey() : pzBrep->GetPosition();
    const KivMemoryBlockBrep& zBlock = *DorNeed(pzBrep->GetMemoryBlock(), "the exact geometry of a part");
    for (size_t i = 0; i < zBlock.m_vzGeometry.size(); ++i)
      if (!zBlock.m_vzGeometry[i].m_zFrame.IsGap())
        zPart.m_vzGeometry.push_back(
            {KivGeometryId::Unpack(zBlock.m_vzGeometry[i].m_iGeometryId).m_iId, static_cast<uint32_t>(i), iOwnKey});
  };
  NeedWhole(KivWalkTree(m_iManagerKey, iKey, siSeen, Visit), "the exact geometry of a part");
}

const DorEntryPlace* DorModelIndex::Find(const std::vector<DorEntryPlace>& vz, int64_t iId) {
  if (iId < 0 || iId > 0xFFFFFFFFll) return nullptr;
  const auto it = std::lower_bound(vz.begin(), vz.end(), static_cast<uint32_t>(iId),
                                   [](const DorEntryPlace& z, uint32_t i) { return z.m_iId < i; });
  return it != vz.end() && it->m_iId == static_cast<uint32_t>(iId) ? &*it : nullptr;
}

// From the headers alone: a mesh element is not decoded for its box.
DorBox DorModelIndex::PartBox(uint32_t iPart, const std::map<uint64_t, DorBox>& mapChanged) {
  ReadInstances();
  DorBox zBox;
  std::set<uint64_t> siSeen;
  std::vector<uint64_t> viToVisit;
  for (const auto& [iOwn, iCommon] : m_vzPart.at(iPart).m_vaiMesh) viToVisit.insert(viToVisit.end(), {iOwn, iCommon});
  const bool bVer19Data = DorNeed(KivOutOfCoreManager::Find(m_iManagerKey), "the store")->IsVer19Data();
  while (!viToVisit.empty()) {
    const uint64_t iKey = viToVisit.back();
    viToVisit.pop_back();
    if (iKey == 0 || !siSeen.insert(iKey).second) continue;
    KivElementFrame acFrame{};
    DorNeed(KivOutOfCoreManager::ReadElementHeader(m_iManagerKey, iKey, acFrame), "a mesh");
    // Behind the header of a mesh stand more fields, which are not looked at here.
    std::array<uint8_t, 2 * kKivElementFrameSize> acStart{};
    std::copy(acFrame.begin(), acFrame.end(), acStart.begin());
    KivRecordReader zReader(acStart.data(), acStart.size());
    KivMemoryBlockHeader zHeader;
    const KivElementRules* pzRules = KivFindElementRules(KivLoad<uint32_t>(acFrame.data()));
    DorNeed(pzRules != nullptr && KivReadElementHeader(zReader, *pzRules, bVer19Data, zHeader), "a mesh");
    viToVisit.push_back(zHeader.m_aiLink[1]);
    viToVisit.push_back(zHeader.m_aiLink[2]);
    const auto it = mapChanged.find(iKey);
    if (it != mapChanged.end())
      zBox.Add(it->second);
    else if (zHeader.m_iEntryCount != 0)
      zBox.Add(DorBox::OfHeader(zHeader));
  }
  return zBox;
}

}  // namespace kiv
