// Changes of a face of a part, which stands wherever the part does.
#include <algorithm>
#include <map>
#include <set>

#include "DorAssembly.h"
#include "DorMesh.h"
#include "DorRequest.h"
#include "KivBrepData.h"

namespace kiv {
namespace {

// What a change of a face reaches: the mesh elements that hold it, and all parts that share one of them.
struct Reach {
  std::set<uint64_t> m_siElement;
  std::vector<uint32_t> m_viPart;
  std::vector<uint32_t> m_viBare;  // those of the parts that have no other entry of the face; ascending
};

// The elements in which a part has entries of a face, in all levels.
std::set<uint64_t> ElementsOfFace(DorSession& zSession, uint32_t iPart, int64_t iFace) {
  std::set<uint64_t> siElement;
  for (const DorLevelIndex& zLevel : zSession.Index().Part(iPart).m_vzLevel) {
    const DorEntryPlace* pz = DorModelIndex::Find(zLevel.m_vzFace, iFace);
    const DorEntryPlace* const pEnd = zLevel.m_vzFace.data() + zLevel.m_vzFace.size();
    for (; pz != nullptr && pz != pEnd && pz->m_iId == static_cast<uint32_t>(iFace); ++pz)
      siElement.insert(pz->m_iElementKey);
  }
  return siElement;
}

Reach ReachOf(DorSession& zSession, const DorEntity& zFace) {
  Reach z;
  z.m_siElement = ElementsOfFace(zSession, zFace.m_zPlace.m_iPart, zFace.m_iId);
  for (const uint32_t iPart : zSession.Index().PartsBeside(zFace.m_zPlace.m_iPart)) {
    const std::set<uint64_t> siElement = ElementsOfFace(zSession, iPart, zFace.m_iId);
    const auto IsReached = [&](uint64_t iKey) { return z.m_siElement.count(iKey) != 0; };
    if (!std::any_of(siElement.begin(), siElement.end(), IsReached)) continue;
    z.m_viPart.push_back(iPart);
    if (std::all_of(siElement.begin(), siElement.end(), IsReached)) z.m_viBare.push_back(iPart);
  }
  return z;
}

int64_t CountPlaces(DorSession& zSession, const Reach& zReach) {
  const std::set<uint32_t> siPart(zReach.m_viPart.begin(), zReach.m_viPart.end());
  int64_t n = 0;
  for (const DorPlace& z : zSession.Index().Places()) n += siPart.count(z.m_iPart) != 0;
  return n;
}

// The entries of the face in an element; gaps keep their ids and are none.
bool IsEntry(const KivMeshFace& zMesh, const DorEntity& zFace) {
  return !zMesh.m_zFrame.IsGap() && zMesh.m_iId == static_cast<uint32_t>(zFace.m_iId);
}

// Takes the entries out of one of the block's lists; the others keep their order.
template <typename Block, typename List, typename Goes>
void Remove(Block& zBlock, List& vz, Goes&& pfnGoes) {
  size_t nKept = 0;
  for (size_t i = 0; i < vz.size(); ++i) {
    if (pfnGoes(vz[i])) continue;
    if (nKept != i) std::swap(vz[nKept], vz[i]);
    ++nKept;
  }
  zBlock.m_zHeader.m_iEntryCount -= static_cast<uint32_t>(vz.size() - nKept);
  vz.Cut(nKept);
}

DorBox BoxOf(const KivMemoryBlockFaceEdge& zBlock) {
  DorBox zBox;
  for (const KivMeshFace& z : zBlock.m_vzFace)
    if (!z.m_zFrame.IsGap()) zBox.AddPoints(z.m_vfVertex);
  for (const KivMeshEdge& z : zBlock.m_vzEdge)
    if (!z.m_zFrame.IsGap()) zBox.AddPoints(z.m_vfVertex);
  return zBox;
}

void RemoveGeometry(DorSession& zSession, uint32_t iPart, const DorEntity& zFace, DorChange& zChange) {
  const auto IsOfFace = [&](const KivBrepEntry& z) {
    const KivGeometryId zId = KivGeometryId::Unpack(z.m_iGeometryId);
    return !z.m_zFrame.IsGap() && zId.m_iId == static_cast<uint32_t>(zFace.m_iId) && zId.m_eUse != KivGeometryUse::Edge;
  };
  std::set<uint64_t> siElement;
  for (const DorEntryPlace& z : zSession.Index().Part(iPart).m_vzGeometry)
    if (z.m_iId == static_cast<uint32_t>(zFace.m_iId)) siElement.insert(z.m_iElementKey);
  for (const uint64_t iKey : siElement) {
    auto* pzBrep = DorNeed(KivOutOfCoreHandle(zSession.Key(), iKey).Fetch<KivBrepData>(), "exact geometry");
    const auto& vzStored = DorNeed(pzBrep->GetMemoryBlock(), "exact geometry")->m_vzGeometry;
    if (std::none_of(vzStored.begin(), vzStored.end(), IsOfFace)) continue;
    auto& zBlock = zChange.Edit<KivBrepData>(iKey);
    Remove(zBlock, zBlock.m_vzGeometry, IsOfFace);
  }
}

// The trees of exact geometry in which the face is needed no more, each with a part that has it: no part that is left
// with entries of the face has the same tree.
std::map<uint64_t, uint32_t> TreesWithoutFace(DorSession& zSession, const DorEntity& zFace, const Reach& zReach) {
  DorModelIndex& zIndex = zSession.Index();
  const std::vector<DorPartKeys>& vzKeys = zIndex.Parts();
  std::map<uint64_t, uint32_t> mapTree;
  for (const uint32_t iPart : zReach.m_viBare) mapTree.emplace(vzKeys[iPart].m_iBrepKey, iPart);
  for (uint32_t iPart = 0; iPart < vzKeys.size(); ++iPart) {
    const auto it = mapTree.find(vzKeys[iPart].m_iBrepKey);
    if (it == mapTree.end() || std::binary_search(zReach.m_viBare.begin(), zReach.m_viBare.end(), iPart)) continue;
    if (!ElementsOfFace(zSession, iPart, zFace.m_iId).empty()) mapTree.erase(it);
  }
  return mapTree;
}

void ServeSetFaceInfo(DorSession& zSession, const DorRequestFields& zFields, DorAnswerWriter& zAnswer) {
  const DorEntity zFace = DorFindFace(zSession, zFields.Integer("instance"), zFields.Integer("face"));
  KivColour zColour{};
  for (size_t i = 0; i < zColour.size(); ++i) {
    const double d = zFields.Float("rgba", i);
    if (d < 0 || d > 1) throw DorRefusal(DorAnswerCode::BadArgument, "the parts of a colour are 0 to 1");
    zColour[i] = static_cast<float>(d);
  }
  zSession.RequireEditable();
  auto pzChange = std::make_unique<DorChange>(zSession.Key());
  const Reach zReach = ReachOf(zSession, zFace);
  for (const uint64_t iKey : zReach.m_siElement)
    for (KivMeshFace& zMesh : pzChange->Edit<KivFaceEdgeData>(iKey).m_vzFace)
      if (IsEntry(zMesh, zFace)) KivSetColour(zMesh.m_vzAttribute, zColour);
  zAnswer.Integer("instances", CountPlaces(zSession, zReach));
  zAnswer.Finish();
  zSession.Commit(std::move(pzChange), true);
}

void ServeDelFaceInfo(DorSession& zSession, const DorRequestFields& zFields, DorAnswerWriter& zAnswer) {
  const DorEntity zFace = DorFindFace(zSession, zFields.Integer("instance"), zFields.Integer("face"));
  zSession.RequireEditable();
  auto pzChange = std::make_unique<DorChange>(zSession.Key());
  DorMoved zMoved;
  const Reach zReach = ReachOf(zSession, zFace);
  zMoved.m_viPart = zReach.m_viPart;
  for (const uint64_t iKey : zReach.m_siElement) {
    auto& zBlock = pzChange->Edit<KivFaceEdgeData>(iKey);
    Remove(zBlock, zBlock.m_vzFace, [&](const KivMeshFace& z) { return IsEntry(z, zFace); });
    const DorBox zBox = BoxOf(zBlock);
    zBox.PutInto(zBlock.m_zHeader);
    zMoved.m_mapMeshBox[iKey] = zBox;
  }
  for (const auto& [iTree, iPart] : TreesWithoutFace(zSession, zFace, zReach))
    RemoveGeometry(zSession, iPart, zFace, *pzChange);
  const int64_t nInstances = static_cast<int64_t>(DorFollow(zSession, zMoved, *pzChange));
  zAnswer.Integer("instances", nInstances);
  zAnswer.Finish();
  zSession.Commit(std::move(pzChange), true);
}

}  // namespace

std::span<const DorRequestWorkRow> DorWorksOfFaceChange() {
  static constexpr DorRequestWorkRow kRows[] = {
      {u"DorHandler_SetFaceInfo", ServeSetFaceInfo},
      {u"DorHandler_DelFaceInfo", ServeDelFaceInfo},
  };
  return kRows;
}

}  // namespace kiv
