#include "NurbsModel.h"

#include <algorithm>
#include <cmath>
#include <functional>

#include "KivModelMeaning.h"

namespace kivtest {
namespace {

using kiv::KivAnalytic;
using kiv::KivBrepGeometry;
using kiv::KivECoord3;

// The smallest value over a square of parameters: a grid, then ever smaller grids around its best places.
double Smallest(const std::function<double(double, double)>& pfnValue, int nGrid, bool bTwo) {
  struct Place {
    double m_dValue, m_dU, m_dV;
  };
  std::vector<Place> vz;
  for (int i = 0; i <= nGrid; ++i)
    for (int j = 0; j <= (bTwo ? nGrid : 0); ++j) {
      const double dU = static_cast<double>(i) / nGrid, dV = static_cast<double>(j) / nGrid;
      vz.push_back({pfnValue(dU, dV), dU, dV});
    }
  std::sort(vz.begin(), vz.end(), [](const Place& a, const Place& b) { return a.m_dValue < b.m_dValue; });
  double dBest = vz[0].m_dValue;
  for (size_t k = 0; k < std::min<size_t>(vz.size(), 3); ++k) {
    Place zHere = vz[k];
    for (double dStep = 1.0 / nGrid; dStep > 1e-9 && dBest > 1e-7;) {
      Place zNext = zHere;
      for (int i = -1; i <= 1; ++i)
        for (int j = bTwo ? -1 : 0; j <= (bTwo ? 1 : 0); ++j) {
          const double dU = std::clamp(zHere.m_dU + i * dStep, 0.0, 1.0);
          const double dV = std::clamp(zHere.m_dV + j * dStep, 0.0, 1.0);
          if (const double d = pfnValue(dU, dV); d < zNext.m_dValue) zNext = {d, dU, dV};
        }
      if (zNext.m_dValue < zHere.m_dValue)
        zHere = zNext;
      else
        dStep /= 2;
      dBest = std::min(dBest, zHere.m_dValue);
    }
  }
  return dBest;
}

}  // namespace

std::vector<double> NurbsBasis(const KivBrepGeometry& z, double dAt) {
  const std::vector<double>& t = z.m_vdKnot;
  std::vector<double> vd(t.size() - 1, 0.0);
  // The span of dAt; the end of the range counts to the last one that is not empty.
  size_t iSpan = 0;
  for (size_t i = 0; i + 1 < t.size(); ++i)
    if (t[i] < t[i + 1] && t[i] <= dAt && t[i] < 1.0) iSpan = i;
  vd[iSpan] = 1;
  for (size_t nDegree = 1; nDegree < z.m_iOrder; ++nDegree)
    for (size_t i = 0; i + nDegree + 1 < t.size(); ++i) {
      const double dLeft = t[i + nDegree] - t[i], dRight = t[i + nDegree + 1] - t[i + 1];
      vd[i] = (dLeft > 0 ? (dAt - t[i]) / dLeft * vd[i] : 0) +
              (dRight > 0 ? (t[i + nDegree + 1] - dAt) / dRight * vd[i + 1] : 0);
    }
  vd.resize(z.m_vzPole.size());
  return vd;
}

KivECoord3 NurbsCurvePoint(const KivBrepGeometry& z, double dAt) {
  const std::vector<double> vdBasis = NurbsBasis(z, dAt);
  KivECoord3 zSum;
  double dWeight = 0;
  for (size_t i = 0; i < z.m_vzPole.size(); ++i) {
    const double d = vdBasis[i] * (z.m_vdWeight.empty() ? 1 : z.m_vdWeight[i]);
    zSum += z.m_vzPole[i] * d;
    dWeight += d;
  }
  return zSum * (1 / dWeight);
}

KivECoord3 NurbsSurface::Point(double dU, double dV) const {
  const std::vector<double> vdU = NurbsBasis(m_vzRow[0], dU), vdV = NurbsBasis(m_zProfile, dV);
  KivECoord3 zSum;
  double dWeight = 0;
  for (size_t j = 0; j < m_vzRow.size(); ++j) {
    if (vdV[j] == 0) continue;
    for (size_t i = 0; i < vdU.size(); ++i) {
      const double d = vdU[i] * vdV[j] * (m_vzRow[j].m_vdWeight.empty() ? 1 : m_vzRow[j].m_vdWeight[i]);
      zSum += m_vzRow[j].m_vzPole[i] * d;
      dWeight += d;
    }
  }
  return zSum * (1 / dWeight);
}

double DistanceFromAnalytic(const KivBrepGeometry& z, bool bFace, const KivECoord3& zPoint) {
  const KivECoord3 zFrom = zPoint - z.m_zPoint;
  KivECoord3 zAxis = z.m_zAxis;
  zAxis.Normalise();
  const double dAlong = zFrom.Dot(zAxis);
  const double dAside = (zFrom - zAxis * dAlong).Length();
  switch (static_cast<KivAnalytic>(z.m_iAnalyticType)) {
    case KivAnalytic::Plane:
      return std::abs(dAlong);
    case KivAnalytic::Cylinder:
      return std::abs(dAside - z.m_dRadius);
    case KivAnalytic::Round:
      return bFace ? std::abs(zFrom.Length() - z.m_dRadius) : std::hypot(dAlong, dAside - z.m_dRadius);
    case KivAnalytic::Line:
      return dAside;
    case KivAnalytic::Cone:  // the half that the axis points to
      return std::abs(dAside - dAlong * z.m_zAxis.Length()) / std::hypot(1.0, z.m_zAxis.Length());
  }
  return 1e30;
}

double DistanceFromCurve(const KivBrepGeometry& z, const KivECoord3& zPoint) {
  return Smallest([&](double dU, double) { return (NurbsCurvePoint(z, dU) - zPoint).Length(); }, 100, false);
}

double DistanceFromSurface(const NurbsSurface& z, const KivECoord3& zPoint) {
  return Smallest([&](double dU, double dV) { return (z.Point(dU, dV) - zPoint).Length(); }, 24, true);
}

}  // namespace kivtest
