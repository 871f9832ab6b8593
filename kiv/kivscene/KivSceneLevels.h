// Levels of detail of a bare mesh: its regions with fewer triangles (meshoptimizer's simplifier).
//
// The whole mesh is simplified at once, each region keeping its own vertices, so that regions keep meeting along their
// lines: vertices on a line move along it only, corners of lines stay. Levels have subsets of the mesh's vertices.
#pragma once

#include <cstdint>
#include <vector>

#include "KivSceneMesh.h"
#include "KivSceneRegions.h"

namespace kiv {

// Where nobody asks for others: 1, 0.1 and 0.01 millimetres, in the model's units, as long as its diagonal is at most a
// metre; beyond, a thousandth of the diagonal in two digits, a tenth and a hundredth of that. For units of no length (0
// metres) an exact thousandth and so on; a diagonal of 0 counts as a thousand units then.
std::vector<double> KivDefaultTolerances(double dDiagonal, double dMetresPerUnit);

// The indices of a level, region by region in their order; each region has a triangle at the least. The simplifier's
// error is bounded by half of the tolerance, or of a twentieth of the mesh's size: it is a mean over the planes
// around a vertex, so that a single point, where many narrow triangles meet, may lie a few times farther away.
// viIndex is the list of indices of the source, or of a finer level; the tolerance is that of this step.
std::vector<uint32_t> KivSimplifyRegions(const KivSceneRegions& zRegions, const std::vector<uint32_t>& viIndex,
                                         const KivSceneBox& zBox, double dTolerance);

// Puts the regions as faces and the lines as edges, both numbered from 1, with the colours and layers of their groups.
// viIndex is the source's list of indices or that of a level, whose lines have only points that the level uses.
struct KivSceneGroup {
  std::optional<KivColour> m_fColour;
  std::optional<uint32_t> m_iLayer;
};
void KivPutRegions(const KivSceneRegions& zRegions, const std::vector<uint32_t>& viIndex,
                   const std::vector<KivSceneGroup>& vzGroup, KivSceneMesh& zMesh);

}  // namespace kiv
