#include "DorMesh.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "KivBrepData.h"
#include "KivOutOfCoreHandle.h"

namespace kiv {
namespace {

DorEntity FindEntity(DorSession& zSession, int64_t iInstance, int64_t iId, bool bFace) {
  DorModelIndex& zIndex = zSession.Index();
  DorEntity z{iInstance, iId, zIndex.PlaceOf(iInstance), {}};
  bool bThere = false;
  for (const DorLevelIndex& zLevel : zIndex.Part(z.m_zPlace.m_iPart).m_vzLevel)
    bThere |= DorModelIndex::Find(bFace ? zLevel.m_vzFace : zLevel.m_vzEdge, iId) != nullptr;
  if (!bThere)
    throw DorRefusal(bFace ? DorAnswerCode::UnknownFace : DorAnswerCode::UnknownEdge,
                     "part " + std::to_string(z.m_zPlace.m_iPart) + " of instance " + std::to_string(iInstance) +
                         " has no " + (bFace ? "face " : "edge ") + std::to_string(iId));
  z.m_zMatrix = zIndex.EntryOf(z.m_zPlace).m_zMatrix;
  return z;
}

bool IsNumber(const KivECoord3& z) {
  return std::isfinite(z.m_dX) && std::isfinite(z.m_dY) && std::isfinite(z.m_dZ);
}

}  // namespace

DorEntity DorFindFace(DorSession& zSession, int64_t iInstance, int64_t iFace) {
  return FindEntity(zSession, iInstance, iFace, true);
}

DorEntity DorFindEdge(DorSession& zSession, int64_t iInstance, int64_t iEdge) {
  return FindEntity(zSession, iInstance, iEdge, false);
}

const KivMemoryBlockFaceEdge& DorMeshBlock(DorSession& zSession, uint64_t iElementKey) {
  auto* pzMesh = DorNeed(KivOutOfCoreHandle(zSession.Key(), iElementKey).Fetch<KivFaceEdgeData>(), "a mesh");
  return *DorNeed(pzMesh->GetMemoryBlock(), "a mesh");
}

std::vector<DorTriangle> DorPlacedTriangles(DorSession& zSession, const DorEntity& zFace) {
  std::vector<DorTriangle> vzTriangle;
  DorForEachFace(zSession, zFace, [&](size_t, const KivMemoryBlockFaceEdge&, const KivMeshFace& zMesh) {
    std::vector<KivECoord3> vzPoint(zMesh.m_vfVertex.size() / 3);
    for (size_t i = 0; i < vzPoint.size(); ++i) {
      const float* pf = &zMesh.m_vfVertex[3 * i];
      vzPoint[i] = zFace.m_zMatrix.TransformPoint(KivECoord3{pf[0], pf[1], pf[2]});
    }
    vzTriangle.clear();  // of the coarser level
    vzTriangle.reserve(zMesh.m_viIndex.size() / 3);
    DorForEachTriangle(zMesh, [&](uint32_t a, uint32_t b, uint32_t c) {
      if (IsNumber(vzPoint[a]) && IsNumber(vzPoint[b]) && IsNumber(vzPoint[c]))
        vzTriangle.push_back({vzPoint[a], vzPoint[b], vzPoint[c]});
    });
  });
  if (vzTriangle.empty())
    throw DorRefusal(DorAnswerCode::NoMesh, "face " + std::to_string(zFace.m_iId) + " has no triangles");
  return vzTriangle;
}

double DorFinestStep(DorSession& zSession, const DorEntity& zFace) {
  double dStep = 0;
  DorForEachFace(zSession, zFace, [&](size_t, const KivMemoryBlockFaceEdge& zBlock, const KivMeshFace& zMesh) {
    float fLargest = 0;
    for (const float f : zMesh.m_vfVertex)
      if (std::isfinite(f)) fLargest = std::max(fLargest, std::abs(f));
    constexpr double kRounding = std::numeric_limits<float>::epsilon();
    dStep = std::max(static_cast<double>(zBlock.m_fStep), kRounding * static_cast<double>(fLargest));
  });
  return dStep;
}

DorExact DorReadExact(DorSession& zSession, const DorEntity& zEntity, bool bFace) {
  DorExact zExact;
  const std::vector<DorEntryPlace>& vz = zSession.Index().Part(zEntity.m_zPlace.m_iPart).m_vzGeometry;
  const DorEntryPlace* pz = DorModelIndex::Find(vz, zEntity.m_iId);
  if (pz == nullptr) return zExact;
  bool bGap = false;
  for (; pz != vz.data() + vz.size() && pz->m_iId == static_cast<uint32_t>(zEntity.m_iId); ++pz) {
    auto* pzBrep =
        DorNeed(KivOutOfCoreHandle(zSession.Key(), pz->m_iElementKey).Fetch<KivBrepData>(), "exact geometry");
    const KivMemoryBlockBrep& zBlock = *DorNeed(pzBrep->GetMemoryBlock(), "exact geometry");
    DorNeed(pz->m_iEntry < zBlock.m_vzGeometry.size(), "exact geometry");
    const KivBrepEntry& zEntry = zBlock.m_vzGeometry[pz->m_iEntry];
    const KivGeometryId zId = KivGeometryId::Unpack(zEntry.m_iGeometryId);
    if ((zId.m_eUse == KivGeometryUse::Edge) == bFace) continue;
    KivBrepGeometry zGeometry;
    if (!KivDecodeBrepGeometry(zEntry.m_zFrame.m_iKind, zEntry.m_vcGeometry, zGeometry)) {
      bGap = true;
    } else if (zEntry.m_zFrame.m_iKind == kBrepAnalyticKind) {
      if (!zExact.m_zAnalytic) zExact.m_zAnalytic = std::move(zGeometry);
    } else if (zId.m_eUse == KivGeometryUse::SurfaceProfile) {
      zExact.m_zProfile = std::move(zGeometry);
    } else {
      bGap |= zId.m_eUse == KivGeometryUse::SurfaceRow && zId.m_iRow != zExact.m_vzRow.size();
      bGap |= !zExact.m_vzRow.empty() && zGeometry.m_vzPole.size() != zExact.m_vzRow[0].m_vzPole.size();
      zExact.m_vzRow.push_back(std::move(zGeometry));
    }
  }
  if (bFace) bGap |= zExact.HasNurbs() != zExact.m_zProfile.has_value();
  if (bGap) zExact.m_vzRow.clear();
  return zExact;
}

}  // namespace kiv
