#include "KivSceneLevels.h"

#include <algorithm>
#include <cmath>

#include <meshoptimizer.h>

namespace kiv {
namespace {

constexpr uint32_t kNone = 0xFFFFFFFFu;
constexpr double kCoarsestShare = 0.001;  // of the diagonal: the coarsest default tolerance
constexpr double kMostError = 0.05;       // of the mesh's size
// The simplifier bounds the mean distance of the planes that a vertex has left, not the largest one.
constexpr double kErrorShare = 0.5;

std::vector<uint32_t> RegionOfEachVertex(const KivSceneRegions& zRegions) {
  std::vector<uint32_t> viRegion(zRegions.m_viPlace.size());
  for (size_t r = 0; r < zRegions.RegionNum(); ++r)
    std::fill(viRegion.begin() + zRegions.m_viFirstVertex[r], viRegion.begin() + zRegions.m_viFirstVertex[r + 1],
              static_cast<uint32_t>(r));
  return viRegion;
}

// Region by region; one that has lost all its triangles keeps those of the source.
std::vector<uint32_t> InOrderOfRegions(const KivSceneRegions& zRegions, const std::vector<uint32_t>& viIndex) {
  const std::vector<uint32_t> viRegion = RegionOfEachVertex(zRegions);
  const size_t nRegions = zRegions.RegionNum();
  std::vector<size_t> viNext(nRegions + 1, 0);
  for (size_t i = 0; i < viIndex.size(); i += 3) viNext[viRegion[viIndex[i]] + 1] += 3;
  std::vector<uint32_t> viLost;
  for (size_t r = 0; r < nRegions; ++r) {
    if (viNext[r + 1] == 0) {
      viLost.push_back(static_cast<uint32_t>(r));
      viNext[r + 1] = 3 * size_t{zRegions.m_viFirstTriangle[r + 1] - zRegions.m_viFirstTriangle[r]};
    }
    viNext[r + 1] += viNext[r];
  }
  std::vector<uint32_t> viSorted(viNext[nRegions]);
  for (const uint32_t r : viLost)
    std::copy(zRegions.m_viIndex.begin() + 3 * std::ptrdiff_t{zRegions.m_viFirstTriangle[r]},
              zRegions.m_viIndex.begin() + 3 * std::ptrdiff_t{zRegions.m_viFirstTriangle[r + 1]},
              viSorted.begin() + static_cast<std::ptrdiff_t>(viNext[r]));
  for (size_t i = 0; i < viIndex.size(); i += 3) {
    size_t& iNext = viNext[viRegion[viIndex[i]]];
    std::copy_n(&viIndex[i], 3, &viSorted[iNext]);
    iNext += 3;
  }
  return viSorted;
}

double InTwoDigits(double d) {
  const double dDigits = std::pow(10, 1 - std::floor(std::log10(d)));
  return std::round(d * dDigits) / dDigits;
}

}  // namespace

std::vector<double> KivDefaultTolerances(double dDiagonal, double dMetresPerUnit) {
  const bool bUnit = dMetresPerUnit > 0;
  const double dMetre = bUnit ? 1 / dMetresPerUnit : 0;
  double dCoarsest = (dDiagonal > dMetre ? dDiagonal : bUnit ? dMetre : 1 / kCoarsestShare) * kCoarsestShare;
  if (bUnit && dDiagonal > dMetre) dCoarsest = InTwoDigits(dCoarsest);
  return {dCoarsest, dCoarsest / 10, dCoarsest / 100};
}

std::vector<uint32_t> KivSimplifyRegions(const KivSceneRegions& zRegions, const std::vector<uint32_t>& viIndex,
                                         const KivSceneBox& zBox, double dTolerance) {
  if (viIndex.empty()) return {};
  // From the middle of the box and by its size, so that floats do.
  const double dScale = zBox.Size() > 0 ? 1 / zBox.Size() : 1;
  const size_t nVertices = zRegions.m_viPlace.size();
  std::vector<float> vfVertex(3 * nVertices);
  for (size_t i = 0; i < vfVertex.size(); ++i) {
    const double d = zRegions.m_vdPlace[3 * size_t{zRegions.m_viPlace[i / 3]} + i % 3];
    vfVertex[i] = static_cast<float>((d - (zBox.m_adLow[i % 3] / 2 + zBox.m_adHigh[i % 3] / 2)) * dScale);
  }
  constexpr size_t kStride = 3 * sizeof(float);
  const double dSimplifierScale =
      std::max(1e-30, static_cast<double>(meshopt_simplifyScale(vfVertex.data(), nVertices, kStride)));
  const double dError = std::min(dTolerance * dScale, kMostError) * kErrorShare / dSimplifierScale;
  std::vector<uint32_t> viSimple(viIndex.size());
  viSimple.resize(meshopt_simplify(viSimple.data(), viIndex.data(), viIndex.size(), vfVertex.data(), nVertices, kStride,
                                   0, static_cast<float>(dError), 0, nullptr));
  vfVertex = {};
  return InOrderOfRegions(zRegions, viSimple);
}

void KivPutRegions(const KivSceneRegions& zRegions, const std::vector<uint32_t>& viIndex,
                   const std::vector<KivSceneGroup>& vzGroup, KivSceneMesh& zMesh) {
  std::vector<bool> vbUsed(zRegions.m_vdPlace.size() / 3, false);
  std::vector<uint32_t> viNumber(zRegions.m_viPlace.size(), kNone);  // of each vertex in its face
  std::vector<double> vdVertex;
  std::vector<float> vfNormal;
  std::vector<uint32_t> viFaceIndex;
  const auto PutPlace = [&](uint32_t iPlace) {
    vdVertex.insert(vdVertex.end(), &zRegions.m_vdPlace[3 * size_t{iPlace}],
                    &zRegions.m_vdPlace[3 * size_t{iPlace}] + 3);
  };
  size_t i = 0;
  for (size_t r = 0; r < zRegions.RegionNum(); ++r) {
    vdVertex.clear();
    vfNormal.clear();
    viFaceIndex.clear();
    for (; i < viIndex.size() && viIndex[i] < zRegions.m_viFirstVertex[r + 1]; ++i) {
      const uint32_t iVertex = viIndex[i];
      if (viNumber[iVertex] == kNone) {
        viNumber[iVertex] = static_cast<uint32_t>(vdVertex.size() / 3);
        PutPlace(zRegions.m_viPlace[iVertex]);
        vfNormal.insert(vfNormal.end(), &zRegions.m_vfNormal[3 * size_t{iVertex}],
                        &zRegions.m_vfNormal[3 * size_t{iVertex}] + 3);
        vbUsed[zRegions.m_viPlace[iVertex]] = true;
      }
      viFaceIndex.push_back(viNumber[iVertex]);
    }
    const KivSceneGroup& zGroup = vzGroup[zRegions.m_viGroup[r]];
    zMesh.AddFace(static_cast<uint32_t>(r + 1), vdVertex, vfNormal, viFaceIndex, zGroup.m_fColour, zGroup.m_iLayer);
  }
  for (size_t iLine = 0; iLine < zRegions.LineNum(); ++iLine) {
    const std::span<const uint32_t> viPlace = zRegions.Line(iLine);
    const bool bClosed = viPlace.front() == viPlace.back();
    vdVertex.clear();
    for (size_t k = 0; k < viPlace.size(); ++k)
      if (k == 0 || k + 1 == viPlace.size() || vbUsed[viPlace[k]]) PutPlace(viPlace[k]);
    if (bClosed && vdVertex.size() < 3 * 4) {  // nothing would be left of it
      vdVertex.clear();
      for (const uint32_t iPlace : viPlace) PutPlace(iPlace);
    }
    zMesh.AddEdge(static_cast<uint32_t>(iLine + 1), vdVertex, std::nullopt, std::nullopt);
  }
}

}  // namespace kiv
