// Changes of a face of a part, which stands wherever the part does.
#include <cmath>
#include <limits>

#include "DorAssembly.h"
#include "DorMesh.h"
#include "DorRequestWorks.h"
#include "KivBrepData.h"

namespace kiv {
namespace {

int64_t CountPlaces(DorSession& zSession, uint32_t iPart) {
  int64_t n = 0;
  for (const DorPlace& z : zSession.Index().Places()) n += z.m_iPart == iPart;
  return n;
}

// The face's mesh elements, by level, with the place of the entry in each. An element that serves several levels comes
// once.
std::map<uint64_t, uint32_t> PlacesOfFace(DorSession& zSession, const DorEntity& zFace) {
  std::map<uint64_t, uint32_t> mapPlace;
  for (const DorLevelIndex& zLevel : zSession.Index().Part(zFace.m_zPlace.m_iPart).m_vzLevel)
    if (const DorEntryPlace* pz = DorModelIndex::Find(zLevel.m_vzFace, zFace.m_iId))
      mapPlace.emplace(pz->m_iElementKey, pz->m_iEntry);
  return mapPlace;
}

// Closes the gap that an entry leaves in a list.
template <typename List>
void Remove(List& vz, size_t iEntry) {
  for (size_t i = iEntry + 1; i < vz.size(); ++i) std::swap(vz[i - 1], vz[i]);
  vz.Cut(vz.size() - 1);
}

DorBox BoxOf(const KivMemoryBlockFaceEdge& zBlock) {
  DorBox zBox;
  for (const KivMeshFace& z : zBlock.m_vzFace)
    if (!z.m_zFrame.IsGap()) zBox.AddPoints(z.m_vfVertex);
  for (const KivMeshEdge& z : zBlock.m_vzEdge)
    if (!z.m_zFrame.IsGap()) zBox.AddPoints(z.m_vfVertex);
  return zBox;
}

void RemoveGeometry(DorSession& zSession, const DorEntity& zFace, DorChange& zChange) {
  const std::vector<DorEntryPlace>& vz = zSession.Index().Part(zFace.m_zPlace.m_iPart).m_vzGeometry;
  for (const DorEntryPlace& z : vz) {
    if (z.m_iId != static_cast<uint32_t>(zFace.m_iId)) continue;
    auto* pzBrep = DorNeed(KivOutOfCoreHandle(zSession.Key(), z.m_iElementKey).Fetch<KivBrepData>(), "exact geometry");
    const KivMemoryBlockBrep& zStored = *DorNeed(pzBrep->GetMemoryBlock(), "exact geometry");
    DorNeed(z.m_iEntry < zStored.m_vzGeometry.size(), "exact geometry");
    const uint64_t iGeometryId = zStored.m_vzGeometry[z.m_iEntry].m_iGeometryId;
    if (KivGeometryId::Unpack(iGeometryId).m_eUse == KivGeometryUse::Edge) continue;
    auto& zBlock = zChange.Edit<KivBrepData>(z.m_iElementKey);
    for (size_t i = zBlock.m_vzGeometry.size(); i-- > 0;) {
      if (zBlock.m_vzGeometry[i].m_zFrame.IsGap() || zBlock.m_vzGeometry[i].m_iGeometryId != iGeometryId) continue;
      Remove(zBlock.m_vzGeometry, i);
      --zBlock.m_zHeader.m_iEntryCount;
    }
  }
}

}  // namespace

void DorServeSetFaceInfo(DorSession& zSession, const DorRequestFields& zFields, DorAnswerWriter& zAnswer) {
  const DorEntity zFace = DorFindFace(zSession, zFields.Integer("instance"), zFields.Integer("face"));
  KivColour zColour{};
  for (size_t i = 0; i < zColour.size(); ++i) {
    const double d = zFields.Float("rgba", i);
    if (d < 0 || d > 1) throw DorRefusal(DorAnswerCode::BadArgument, "the parts of a colour are 0 to 1");
    zColour[i] = static_cast<float>(d);
  }
  zSession.RequireEditable();
  auto pzChange = std::make_unique<DorChange>(zSession.Key());
  for (const auto& [iKey, iEntry] : PlacesOfFace(zSession, zFace)) {
    auto& zBlock = pzChange->Edit<KivFaceEdgeData>(iKey);
    DorNeed(iEntry < zBlock.m_vzFace.size(), "a face");
    KivSetColour(zBlock.m_vzFace[iEntry].m_vzAttribute, zColour);
  }
  zAnswer.Integer("instances", CountPlaces(zSession, zFace.m_zPlace.m_iPart));
  zAnswer.Finish();
  zSession.Commit(std::move(pzChange), true);
}

void DorServeDelFaceInfo(DorSession& zSession, const DorRequestFields& zFields, DorAnswerWriter& zAnswer) {
  const DorEntity zFace = DorFindFace(zSession, zFields.Integer("instance"), zFields.Integer("face"));
  zSession.RequireEditable();
  auto pzChange = std::make_unique<DorChange>(zSession.Key());
  DorMoved zMoved;
  zMoved.m_viPart = {zFace.m_zPlace.m_iPart};
  for (const auto& [iKey, iEntry] : PlacesOfFace(zSession, zFace)) {
    auto& zBlock = pzChange->Edit<KivFaceEdgeData>(iKey);
    for (size_t i = zBlock.m_vzFace.size(); i-- > 0;) {
      if (zBlock.m_vzFace[i].m_zFrame.IsGap() || zBlock.m_vzFace[i].m_iId != static_cast<uint32_t>(zFace.m_iId))
        continue;
      Remove(zBlock.m_vzFace, i);
      --zBlock.m_zHeader.m_iEntryCount;
    }
    const DorBox zBox = BoxOf(zBlock);
    zBox.PutInto(zBlock.m_zHeader);
    zMoved.m_mapMeshBox[iKey] = zBox;
  }
  RemoveGeometry(zSession, zFace, *pzChange);
  const int64_t nInstances = static_cast<int64_t>(DorFollow(zSession, zMoved, *pzChange));
  zAnswer.Integer("instances", nInstances);
  zAnswer.Finish();
  zSession.Commit(std::move(pzChange), true);
}

}  // namespace kiv
