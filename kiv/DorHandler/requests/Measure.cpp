// Planes and distances.
#include <algorithm>
#include <cmath>

#include "DorMesh.h"
#include "DorRequest.h"

namespace kiv {
namespace {

struct Plane {
  KivECoord3 m_zPoint;
  KivECoord3 m_zNormal;     // length 1
  double m_dDeviation = 0;  // the largest distance of a point from it
};

// Of length 1, or 0 for a vector that is 0. Safe for lengths whose squares leave the range of numbers.
KivECoord3 Unit(KivECoord3 v) {
  const double d = std::max({std::abs(v.m_dX), std::abs(v.m_dY), std::abs(v.m_dZ)});
  if (!(d > 0) || !std::isfinite(d)) return KivECoord3{};
  v = {v.m_dX / d, v.m_dY / d, v.m_dZ / d};
  return v * (1 / v.Length());
}

// Of length 1. Points are row vectors, and the translation has no part in it.
KivECoord3 PlacedDirection(const KivEMatrix4& z, const KivECoord3& v) {
  return Unit({v.m_dX * z[0] + v.m_dY * z[4] + v.m_dZ * z[8], v.m_dX * z[1] + v.m_dY * z[5] + v.m_dZ * z[9],
               v.m_dX * z[2] + v.m_dY * z[6] + v.m_dZ * z[10]});
}

// A plane's normal goes with the directions in the plane, not with the matrix itself. It stays on its side.
KivECoord3 PlacedNormal(const KivEMatrix4& z, const KivECoord3& v) {
  const KivECoord3 zNormal = Unit(v);
  const KivECoord3 zAxis = std::abs(zNormal.m_dX) < 0.6 ? KivECoord3{1, 0, 0} : KivECoord3{0, 1, 0};
  const KivECoord3 zAcross = Unit(zNormal.Cross(zAxis));
  const KivECoord3 zOut = Unit(PlacedDirection(z, zAcross).Cross(PlacedDirection(z, zNormal.Cross(zAcross))));
  return zOut.Dot(PlacedDirection(z, zNormal)) < 0 ? -zOut : zOut;
}

// Twice the triangle's area long.
KivECoord3 NormalOf(const DorTriangle& z) {
  return (z[1] - z[0]).Cross(z[2] - z[0]);
}

// Triangles are wound as seen from outside of the part; what is mirrored shows its other side.
bool IsMirrored(const KivEMatrix4& z) {
  return PlacedDirection(z, {1, 0, 0}).Cross(PlacedDirection(z, {0, 1, 0})).Dot(PlacedDirection(z, {0, 0, 1})) < 0;
}

// The axis of a face's exact plane, turned to the side to which its triangles look; as it is where they do not tell.
KivECoord3 OutwardAxis(DorSession& zSession, DorEntity zFace, const KivECoord3& zAxis) {
  zFace.m_zMatrix = KivEMatrix4();
  KivECoord3 zSum;
  try {
    for (const DorTriangle& z : DorPlacedTriangles(zSession, zFace)) zSum += NormalOf(z);
  } catch (const DorRefusal& e) {
    if (e.m_iCode != DorAnswerCode::NoMesh) throw;
  }
  return zSum.Dot(zAxis) < 0 ? -zAxis : zAxis;
}

// By the sum of the triangles' normals, each as long as its area; nothing if they cancel out or have no area.
std::optional<Plane> PlaneOf(const std::vector<DorTriangle>& vzTriangle, double& dSize) {
  Plane zPlane;
  double dArea = 0;
  KivECoord3 zLow = vzTriangle[0][0], zHigh = zLow, zSum, zCentre;
  for (const DorTriangle& z : vzTriangle) {
    const KivECoord3 zNormal = NormalOf(z);
    const double d = zNormal.Length();
    dArea += d;
    zSum += zNormal;
    zCentre += (z[0] + z[1] + z[2]) * (d / 3);
    for (const KivECoord3& p : z) {
      zLow = {std::min(zLow.m_dX, p.m_dX), std::min(zLow.m_dY, p.m_dY), std::min(zLow.m_dZ, p.m_dZ)};
      zHigh = {std::max(zHigh.m_dX, p.m_dX), std::max(zHigh.m_dY, p.m_dY), std::max(zHigh.m_dZ, p.m_dZ)};
    }
  }
  dSize = (zHigh - zLow).Length();
  if (!(dArea > 0) || !std::isfinite(dArea))
    throw DorRefusal(DorAnswerCode::NoMesh, "the face has no triangle with an area");
  if (zSum.Length() < 0.5 * dArea) return std::nullopt;
  zPlane.m_zPoint = zCentre * (1 / dArea);
  zPlane.m_zNormal = zSum * (1 / zSum.Length());
  for (const DorTriangle& z : vzTriangle)
    for (const KivECoord3& p : z)
      zPlane.m_dDeviation = std::max(zPlane.m_dDeviation, std::abs((p - zPlane.m_zPoint).Dot(zPlane.m_zNormal)));
  return zPlane;
}

void PutPlane(bool bPlanar, bool bExact, const Plane& zPlane, DorAnswerWriter& zAnswer) {
  zAnswer.Integer("planar", bPlanar ? 1 : 0);
  zAnswer.Integer("exact", bExact ? 1 : 0);
  zAnswer.Coord("point", zPlane.m_zPoint);
  zAnswer.Coord("normal", zPlane.m_zNormal + KivECoord3{});  // no -0
  zAnswer.Float("deviation", zPlane.m_dDeviation);
}

// The most that a length grows by a placement.
double ScaleOf(const KivEMatrix4& z) {
  double dSquares = 0;
  for (size_t i = 0; i < 3; ++i)
    for (size_t k = 0; k < 3; ++k) dSquares += z[4 * i + k] * z[4 * i + k];
  return std::sqrt(dSquares);
}

std::shared_ptr<const DorFaceTree> TreeOf(DorSession& zSession, int64_t iInstance, int64_t iFace) {
  return zSession.Trees().Get({iInstance, iFace},
                              [&] { return DorPlacedTriangles(zSession, DorFindFace(zSession, iInstance, iFace)); });
}

void ServeIsPlanarFace(DorSession& zSession, const DorRequestFields& zFields, DorAnswerWriter& zAnswer) {
  const DorEntity zFace = DorFindFace(zSession, zFields.Integer("instance"), zFields.Integer("face"));
  const DorExact zExact = DorReadExact(zSession, zFace, true);
  if (zExact.m_zAnalytic) {
    const bool bPlane = zExact.m_zAnalytic->m_iAnalyticType == static_cast<uint32_t>(KivAnalytic::Plane);
    Plane zPlane;
    if (bPlane)
      zPlane = {zFace.m_zMatrix.TransformPoint(zExact.m_zAnalytic->m_zPoint),
                PlacedNormal(zFace.m_zMatrix, OutwardAxis(zSession, zFace, zExact.m_zAnalytic->m_zAxis)), 0};
    return PutPlane(bPlane, true, zPlane, zAnswer);
  }
  double dSize = 0;
  std::optional<Plane> zPlane = PlaneOf(DorPlacedTriangles(zSession, zFace), dSize);
  if (!zPlane) return PutPlane(false, false, Plane(), zAnswer);
  if (IsMirrored(zFace.m_zMatrix)) zPlane->m_zNormal = -zPlane->m_zNormal;
  // A stored vertex lies up to half a step, or half of a float's last bit, beside the true one along each axis.
  const double dTolerance = std::max(1e-6 * dSize, DorFinestStep(zSession, zFace) * ScaleOf(zFace.m_zMatrix));
  PutPlane(zPlane->m_dDeviation <= dTolerance, false, *zPlane, zAnswer);
}

void ServeCalcDistFaceFace(DorSession& zSession, const DorRequestFields& zFields, DorAnswerWriter& zAnswer) {
  const auto pzFirst = TreeOf(zSession, zFields.Integer("instance_1"), zFields.Integer("face_1"));
  const auto pzSecond = TreeOf(zSession, zFields.Integer("instance_2"), zFields.Integer("face_2"));
  if (zFields.Integer("option") != 0) throw DorRefusal(DorAnswerCode::BadArgument, "the option is 0");
  const DorNearest zNearest = pzFirst->NearestTo(*pzSecond);
  zAnswer.Float("distance", std::sqrt(zNearest.m_dSquared));
  zAnswer.Coord("point_1", zNearest.m_zFirst);
  zAnswer.Coord("point_2", zNearest.m_zSecond);
  zAnswer.Integer("triangles_1", static_cast<int64_t>(pzFirst->GetTriangleNum()));
  zAnswer.Integer("triangles_2", static_cast<int64_t>(pzSecond->GetTriangleNum()));
}

}  // namespace

std::span<const DorRequestWorkRow> DorWorksOfMeasure() {
  static constexpr DorRequestWorkRow kRows[] = {
      {u"DorHandler_IsPlanarFace", ServeIsPlanarFace},
      {u"DorHandler_CalcDistFaceFace", ServeCalcDistFaceFace},
  };
  return kRows;
}

}  // namespace kiv
