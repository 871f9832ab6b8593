#include "DorTriangle.h"

#include <algorithm>

namespace kiv {
namespace {

double Clamp01(double d) {
  return std::clamp(d, 0.0, 1.0);
}

void Keep(DorNearest& zBest, const KivECoord3& zFirst, const KivECoord3& zSecond) {
  const KivECoord3 zGap = zFirst - zSecond;
  const double dSquared = zGap.Dot(zGap);
  if (dSquared < zBest.m_dSquared) zBest = {dSquared, zFirst, zSecond};
}

// Two segments; one of length 0 is a point.
void KeepSegments(DorNearest& zBest, const KivECoord3& zP, const KivECoord3& zP2, const KivECoord3& zQ,
                  const KivECoord3& zQ2) {
  const KivECoord3 zU = zP2 - zP, zV = zQ2 - zQ, zW = zP - zQ;
  const double dUU = zU.Dot(zU), dVV = zV.Dot(zV), dVW = zV.Dot(zW);
  double dS = 0, dT = 0;
  if (dUU == 0) {
    dT = dVV == 0 ? 0 : Clamp01(dVW / dVV);
  } else {
    const double dUW = zU.Dot(zW);
    if (dVV == 0) {
      dS = Clamp01(-dUW / dUU);
    } else {
      const double dUV = zU.Dot(zV);
      const double dDenominator = dUU * dVV - dUV * dUV;
      if (dDenominator > 0) dS = Clamp01((dUV * dVW - dUW * dVV) / dDenominator);
      dT = (dUV * dS + dVW) / dVV;
      if (dT < 0) {
        dT = 0;
        dS = Clamp01(-dUW / dUU);
      } else if (dT > 1) {
        dT = 1;
        dS = Clamp01((dUV - dUW) / dUU);
      }
    }
  }
  Keep(zBest, zP + zU * dS, zQ + zV * dT);
}

// A triangle with what is asked of it again and again.
struct Face {
  explicit Face(const DorTriangle& z) : m_z(z), m_zNormal((z[1] - z[0]).Cross(z[2] - z[0])) {
    m_dNormalSquared = m_zNormal.Dot(m_zNormal);
  }
  bool IsFlat() const { return m_dNormalSquared == 0; }
  double Height(const KivECoord3& z) const { return m_zNormal.Dot(z - m_z[0]); }
  // Of a point in the plane, or of its foot there.
  bool IsInside(const KivECoord3& z) const {
    for (size_t i = 0; i < 3; ++i) {
      const KivECoord3& zFrom = m_z[i];
      const KivECoord3& zTo = m_z[(i + 1) % 3];
      if (m_zNormal.Dot((zTo - zFrom).Cross(z - zFrom)) < 0) return false;
    }
    return true;
  }

  const DorTriangle& m_z;
  KivECoord3 m_zNormal;
  double m_dNormalSquared = 0;
};

// The corners of one triangle above the inside of the other, and its edges through it. What happens on the border is
// found by the edges.
void KeepInside(DorNearest& zBest, const Face& zFace, const DorTriangle& zOther, bool bFaceFirst) {
  if (zFace.IsFlat()) return;
  std::array<double, 3> adHeight{};
  for (size_t i = 0; i < 3; ++i) adHeight[i] = zFace.Height(zOther[i]);
  const auto KeepPair = [&](const KivECoord3& zOnFace, const KivECoord3& zOnOther) {
    bFaceFirst ? Keep(zBest, zOnFace, zOnOther) : Keep(zBest, zOnOther, zOnFace);
  };
  for (size_t i = 0; i < 3; ++i) {
    if (adHeight[i] * adHeight[i] >= zBest.m_dSquared * zFace.m_dNormalSquared) continue;
    if (zFace.IsInside(zOther[i]))
      KeepPair(zOther[i] - zFace.m_zNormal * (adHeight[i] / zFace.m_dNormalSquared), zOther[i]);
  }
  for (size_t i = 0; i < 3; ++i) {
    const double dFrom = adHeight[i], dTo = adHeight[(i + 1) % 3];
    if ((dFrom > 0) == (dTo > 0) || dFrom == dTo) continue;
    const KivECoord3 zThrough = zOther[i] + (zOther[(i + 1) % 3] - zOther[i]) * (dFrom / (dFrom - dTo));
    if (zFace.IsInside(zThrough)) zBest = {0, zThrough, zThrough};
  }
}

}  // namespace

DorNearest DorNearestOfTriangles(const DorTriangle& zFirst, const DorTriangle& zSecond) {
  const KivECoord3 zGap = zFirst[0] - zSecond[0];
  DorNearest zBest{zGap.Dot(zGap), zFirst[0], zSecond[0]};
  for (size_t i = 0; i < 3; ++i)
    for (size_t k = 0; k < 3; ++k)
      KeepSegments(zBest, zFirst[i], zFirst[(i + 1) % 3], zSecond[k], zSecond[(k + 1) % 3]);
  KeepInside(zBest, Face(zFirst), zSecond, true);
  if (zBest.m_dSquared > 0) KeepInside(zBest, Face(zSecond), zFirst, false);
  return zBest;
}

}  // namespace kiv
