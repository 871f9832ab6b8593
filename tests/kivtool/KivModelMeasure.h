// Triangles, area, volume and box of a model's finest level, and of what the library of formats reads in a file.
#pragma once

#include <array>
#include <filesystem>

#include "KivECoord3.h"
#include "KivSceneMesh.h"
#include "KivSysText.h"

namespace kivtest {

struct Measure {
  uint64_t m_nTriangles = 0;  // without those that have two corners at one place
  double m_dArea = 0;
  double m_dVolume = 0;  // between the triangles and the origin: of the other sign where they turn the other way
  kiv::KivSceneBox m_zBox;

  void Add(const std::array<kiv::KivECoord3, 3>& azCorner);
};

// With all placements. What cannot be loaded is a failure of the test.
Measure MeasureModel(const kiv::KivWString& csPath);
Measure MeasureSource(const std::filesystem::path& zPath);

// Numbers of triangles are the same, the others as close as the steps of coordinates allow. dUnits is how many units of
// zIs are one of zMust.
void ExpectSameForm(const Measure& zIs, const Measure& zMust, double dUnits = 1);

}  // namespace kivtest
