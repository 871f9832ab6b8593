// The model of a scene. docs/import.md tells what becomes of what.
//
// The same scene and options give the same records.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "KivModelBuilder.h"
#include "KivScene.h"

namespace kiv {

struct KivImportOptions {
  // Of each level, the coarsest first: in millimetres if the scene tells its unit, else in its units. Empty:
  // those of the levels that the reader made, else KivDefaultTolerances. Such levels keep the tolerances that it tells.
  std::vector<double> m_vdTolerance;
  double m_dAngle = 30;  // degrees: triangles of bare meshes that meet at less are one region
  // Told the share of the work that is done, 0 to 1. May be empty.
  std::function<void(double)> m_pfnProgress;
};

struct KivImportSummary {
  uint64_t m_nParts = 0, m_nNodes = 0, m_nInstances = 0;
  uint64_t m_nFaces = 0, m_nEdges = 0;     // of all parts, each part once
  uint64_t m_nGeometries = 0;              // exact geometry strings
  std::vector<double> m_vdTolerance;       // of each level, in the model's units
  std::vector<uint64_t> m_vnTriangles;     // of each level, each part once
  std::vector<std::string> m_vstrWarning;  // the scene's, then those of the import
};

// Those of the scene's diagonal and unit (KivSceneLevels.h).
std::vector<double> KivDefaultTolerances(const KivScene& zScene);

// Fills a new builder; the scene's parts are freed on the way. False, with the reason, for what no model can hold.
// The scene must be one that KivReadScene accepts; one without nodes gets a root with all parts.
bool KivSceneToModel(KivScene& zScene, const KivImportOptions& zOptions, KivModelBuilder& zBuilder,
                     KivImportSummary& zSummary, std::string& strError);

}  // namespace kiv
