// Naive evaluation of decoded geometry strings, for comparing them with meshes.
#pragma once

#include <vector>

#include "KivBrepGeometry.h"
#include "KivScene.h"

namespace kivtest {

// Cox and de Boor, without any short cut; dAt from 0 to 1.
std::vector<double> NurbsBasis(const kiv::KivBrepGeometry& z, double dAt);
kiv::KivECoord3 NurbsCurvePoint(const kiv::KivBrepGeometry& z, double dAt);

// A surface of rows and a profile (KivModelMeaning.h).
struct NurbsSurface {
  std::vector<kiv::KivBrepGeometry> m_vzRow;
  kiv::KivBrepGeometry m_zProfile;
  kiv::KivECoord3 Point(double dU, double dV) const;
};

// The distance of a point from what a string describes: of an analytic one exactly, of a NURBS by a search.
double DistanceFromAnalytic(const kiv::KivBrepGeometry& z, bool bFace, const kiv::KivECoord3& zPoint);
double DistanceFromCurve(const kiv::KivBrepGeometry& z, const kiv::KivECoord3& zPoint);
double DistanceFromSurface(const NurbsSurface& z, const kiv::KivECoord3& zPoint);

}  // namespace kivtest
