#include "KivStepGeometry.h"

#include <BRepTools.hxx>
#include <BRep_Tool.hxx>
#include <GeomConvert.hxx>
#include <Geom_BSplineCurve.hxx>
#include <Geom_BSplineSurface.hxx>
#include <Geom_Circle.hxx>
#include <Geom_ConicalSurface.hxx>
#include <Geom_CylindricalSurface.hxx>
#include <Geom_Line.hxx>
#include <Geom_Plane.hxx>
#include <Geom_RectangularTrimmedSurface.hxx>
#include <Geom_SphericalSurface.hxx>
#include <Geom_TrimmedCurve.hxx>
#include <Precision.hxx>
#include <Standard_Failure.hxx>
#include <TopoDS.hxx>
#include <TopoDS_Edge.hxx>
#include <TopoDS_Face.hxx>
#include <algorithm>
#include <cmath>
#include <gp_Lin.hxx>
#include <optional>

#include "KivBrepEncode.h"

namespace kiv {
namespace {

// The strings of one face or edge.
using Strings = std::vector<KivSceneGeometry>;

KivECoord3 ToCoord(const gp_XYZ& z) {
  return {z.X(), z.Y(), z.Z()};
}

bool Add(Strings& vz, const KivGeometryId& zId, const KivBrepGeometry& zGeometry) {
  KivSceneGeometry& z = vz.emplace_back();
  z.m_iKind = zGeometry.m_iKind;
  z.m_zId = zId;
  z.m_vcGeometry = KivEncodeBrepGeometry(zGeometry);
  return !z.m_vcGeometry.empty();
}

// --- Analytic forms -------------------------------------------------------------------------------------------------

KivBrepGeometry Analytic(KivAnalytic eType, const gp_Pnt& zPoint, const gp_XYZ& zAxis, double dRadius = 0) {
  KivBrepGeometry z;
  z.m_iKind = kBrepAnalyticKind;
  z.m_iAnalyticType = static_cast<uint32_t>(eType);
  z.m_zPoint = ToCoord(zPoint.XYZ());
  z.m_zAxis = ToCoord(zAxis);
  z.m_dRadius = dRadius;
  return z;
}

// The tangent of the half angle; negative if the face opens against the direction of the axis.
double ConeSlope(const TopoDS_Face& zFace, const Geom_ConicalSurface& zCone) {
  Standard_Real dLowU, dHighU, dLowV, dHighV;
  BRepTools::UVBounds(zFace, dLowU, dHighU, dLowV, dHighV);
  // Beyond the apex the radius is negative.
  const bool bBeyond = zCone.RefRadius() + (dLowV + dHighV) / 2 * std::sin(zCone.SemiAngle()) < 0;
  return bBeyond ? -std::tan(zCone.SemiAngle()) : std::tan(zCone.SemiAngle());
}

std::optional<KivBrepGeometry> AnalyticSurface(const TopoDS_Face& zFace, const Handle(Geom_Surface) & zSurface) {
  if (const auto z = Handle(Geom_Plane)::DownCast(zSurface); !z.IsNull())
    return Analytic(KivAnalytic::Plane, z->Location(), z->Axis().Direction().XYZ());
  if (const auto z = Handle(Geom_CylindricalSurface)::DownCast(zSurface); !z.IsNull())
    return Analytic(KivAnalytic::Cylinder, z->Location(), z->Axis().Direction().XYZ(), z->Radius());
  if (const auto z = Handle(Geom_SphericalSurface)::DownCast(zSurface); !z.IsNull())
    return Analytic(KivAnalytic::Round, z->Location(), z->Axis().Direction().XYZ(), z->Radius());
  if (const auto z = Handle(Geom_ConicalSurface)::DownCast(zSurface); !z.IsNull())
    return Analytic(KivAnalytic::Cone, z->Apex(), z->Axis().Direction().XYZ() * ConeSlope(zFace, *z));
  return std::nullopt;
}

std::optional<KivBrepGeometry> AnalyticCurve(const Handle(Geom_Curve) & zCurve) {
  if (const auto z = Handle(Geom_Line)::DownCast(zCurve); !z.IsNull())
    return Analytic(KivAnalytic::Line, z->Lin().Location(), z->Lin().Direction().XYZ());
  if (const auto z = Handle(Geom_Circle)::DownCast(zCurve); !z.IsNull())
    return Analytic(KivAnalytic::Round, z->Location(), z->Axis().Direction().XYZ(), z->Radius());
  return std::nullopt;
}

// --- NURBS ----------------------------------------------------------------------------------------------------------

// Knots for parameters from 0 to 1.
std::vector<double> UnitKnots(const TColStd_Array1OfReal& zKnots, Standard_Integer nDegree) {
  const double dFirst = zKnots(zKnots.Lower() + nDegree);
  const double dLast = zKnots(zKnots.Upper() - nDegree);
  std::vector<double> vd;
  for (const double d : zKnots) vd.push_back((d - dFirst) / (dLast - dFirst));
  return vd;
}

KivBrepGeometry Nurbs(Standard_Integer nDegree, const TColStd_Array1OfReal& zKnots) {
  KivBrepGeometry z;
  z.m_iKind = kBrepNurbsKind;
  z.m_iOrder = static_cast<uint32_t>(nDegree) + 1;
  z.m_vdKnot = UnitKnots(zKnots, nDegree);
  return z;
}

bool AddCurve(const Geom_BSplineCurve& zCurve, uint32_t iId, Strings& vz) {
  KivBrepGeometry zGeometry = Nurbs(zCurve.Degree(), zCurve.KnotSequence());
  bool bWeights = false;
  for (Standard_Integer i = 1; i <= zCurve.NbPoles(); ++i) {
    zGeometry.m_vzPole.push_back(ToCoord(zCurve.Pole(i).XYZ()));
    zGeometry.m_vdWeight.push_back(zCurve.Weight(i));
    bWeights = bWeights || zGeometry.m_vdWeight.back() != zGeometry.m_vdWeight.front();
  }
  if (!bWeights) zGeometry.m_vdWeight.clear();
  return Add(vz, {iId, KivGeometryUse::Edge, 0}, zGeometry);
}

bool AddSurface(const Geom_BSplineSurface& zSurface, uint32_t iId, Strings& vz) {
  const Standard_Integer nU = zSurface.NbUPoles(), nV = zSurface.NbVPoles();
  bool bWeights = false;
  for (Standard_Integer v = 1; v <= nV; ++v)
    for (Standard_Integer u = 1; u <= nU; ++u) bWeights = bWeights || zSurface.Weight(u, v) != zSurface.Weight(1, 1);
  KivBrepGeometry zRow = Nurbs(zSurface.UDegree(), zSurface.UKnotSequence());
  for (Standard_Integer v = 1; v <= nV; ++v) {
    zRow.m_vzPole.clear();
    zRow.m_vdWeight.clear();
    for (Standard_Integer u = 1; u <= nU; ++u) {
      zRow.m_vzPole.push_back(ToCoord(zSurface.Pole(u, v).XYZ()));
      if (bWeights) zRow.m_vdWeight.push_back(zSurface.Weight(u, v));
    }
    if (!Add(vz, {iId, KivGeometryUse::SurfaceRow, static_cast<uint32_t>(v - 1)}, zRow)) return false;
  }
  KivBrepGeometry zProfile = Nurbs(zSurface.VDegree(), zSurface.VKnotSequence());
  zProfile.m_vzPole.resize(static_cast<size_t>(nV));
  return Add(vz, {iId, KivGeometryUse::SurfaceProfile, 0}, zProfile);
}

// --- Trimming -------------------------------------------------------------------------------------------------------

// One direction of parameters: what the whole surface or curve has, and what the face or edge takes of it.
struct Range {
  double m_dWholeLow = 0, m_dWholeHigh = 0;
  double m_dLow = 0, m_dHigh = 0;
  bool m_bPeriodic = false;

  // False for what has no length or no end.
  bool Fit() {
    if (!m_bPeriodic) {
      m_dLow = std::max(m_dLow, m_dWholeLow);
      m_dHigh = std::min(m_dHigh, m_dWholeHigh);
    }
    return !Precision::IsInfinite(m_dLow) && !Precision::IsInfinite(m_dHigh) &&
           m_dHigh - m_dLow > Precision::PConfusion();
  }
  bool IsWhole() const {
    const double dMissing = (m_dWholeHigh - m_dWholeLow) - (m_dHigh - m_dLow);
    return dMissing <= Precision::PConfusion();
  }
};

Handle(Geom_BSplineSurface) ToNurbs(const TopoDS_Face& zFace, const Handle(Geom_Surface) & zSurface) {
  Range zU, zV;
  zSurface->Bounds(zU.m_dWholeLow, zU.m_dWholeHigh, zV.m_dWholeLow, zV.m_dWholeHigh);
  zU.m_bPeriodic = zSurface->IsUPeriodic();
  zV.m_bPeriodic = zSurface->IsVPeriodic();
  BRepTools::UVBounds(zFace, zU.m_dLow, zU.m_dHigh, zV.m_dLow, zV.m_dHigh);
  if (!zU.Fit() || !zV.Fit()) return {};
  Handle(Geom_Surface) zTrimmed = zSurface;
  if (!zU.IsWhole() && !zV.IsWhole())
    zTrimmed = new Geom_RectangularTrimmedSurface(zSurface, zU.m_dLow, zU.m_dHigh, zV.m_dLow, zV.m_dHigh);
  else if (!zU.IsWhole())
    zTrimmed = new Geom_RectangularTrimmedSurface(zSurface, zU.m_dLow, zU.m_dHigh, Standard_True);
  else if (!zV.IsWhole())
    zTrimmed = new Geom_RectangularTrimmedSurface(zSurface, zV.m_dLow, zV.m_dHigh, Standard_False);
  const Handle(Geom_BSplineSurface) zNurbs = GeomConvert::SurfaceToBSplineSurface(zTrimmed);
  if (zNurbs.IsNull()) return {};
  if (zNurbs->IsUPeriodic()) zNurbs->SetUNotPeriodic();
  if (zNurbs->IsVPeriodic()) zNurbs->SetVNotPeriodic();
  return zNurbs;
}

Handle(Geom_BSplineCurve) ToNurbs(const Handle(Geom_Curve) & zCurve, double dFrom, double dTo) {
  Range zRange = {zCurve->FirstParameter(), zCurve->LastParameter(), dFrom, dTo, zCurve->IsPeriodic() != 0};
  if (!zRange.Fit()) return {};
  const Handle(Geom_BSplineCurve) zNurbs =
      GeomConvert::CurveToBSplineCurve(new Geom_TrimmedCurve(zCurve, zRange.m_dLow, zRange.m_dHigh));
  if (zNurbs.IsNull()) return {};
  if (zNurbs->IsPeriodic()) zNurbs->SetNotPeriodic();
  const auto IsNear = [&](const gp_Pnt& zEnd, double d) {
    return zEnd.Distance(zCurve->Value(d)) <= Precision::Confusion();
  };
  return IsNear(zNurbs->StartPoint(), dFrom) && IsNear(zNurbs->EndPoint(), dTo) ? zNurbs : Handle(Geom_BSplineCurve)();
}

bool DescribeFace(const TopoDS_Face& zFace, uint32_t iId, Strings& vz) {
  Handle(Geom_Surface) zSurface = BRep_Tool::Surface(zFace);
  while (const auto zTrimmed = Handle(Geom_RectangularTrimmedSurface)::DownCast(zSurface))
    zSurface = zTrimmed->BasisSurface();
  if (zSurface.IsNull()) return false;
  if (const std::optional<KivBrepGeometry> zAnalytic = AnalyticSurface(zFace, zSurface))
    return Add(vz, {iId, KivGeometryUse::Face, 0}, *zAnalytic);
  const Handle(Geom_BSplineSurface) zNurbs = ToNurbs(zFace, zSurface);
  return !zNurbs.IsNull() && AddSurface(*zNurbs, iId, vz);
}

bool DescribeEdge(const TopoDS_Edge& zEdge, uint32_t iId, Strings& vz) {
  Standard_Real dFrom = 0, dTo = 0;
  Handle(Geom_Curve) zCurve = BRep_Tool::Curve(zEdge, dFrom, dTo);
  while (const auto zTrimmed = Handle(Geom_TrimmedCurve)::DownCast(zCurve)) zCurve = zTrimmed->BasisCurve();
  if (zCurve.IsNull()) return false;
  if (const std::optional<KivBrepGeometry> zAnalytic = AnalyticCurve(zCurve))
    return Add(vz, {iId, KivGeometryUse::Edge, 0}, *zAnalytic);
  const Handle(Geom_BSplineCurve) zNurbs = ToNurbs(zCurve, dFrom, dTo);
  return !zNurbs.IsNull() && AddCurve(*zNurbs, iId, vz);
}

// Adds all strings of a face or edge, or none.
template <typename Describe>
void Collect(Strings& vzAll, uint32_t& nWithout, Describe pfnDescribe) {
  Strings vz;
  bool bGood = false;
  try {
    bGood = pfnDescribe(vz);
  } catch (const Standard_Failure&) {  // a conversion that is not possible
  }
  if (bGood)
    vzAll.insert(vzAll.end(), std::make_move_iterator(vz.begin()), std::make_move_iterator(vz.end()));
  else
    ++nWithout;
}

}  // namespace

KivStepGeometry KivGetStepGeometry(const KivStepShape& zShape) {
  KivStepGeometry z;
  for (Standard_Integer i = 1; i <= zShape.m_zFaces.Extent(); ++i)
    Collect(z.m_vzGeometry, z.m_nFacesWithout,
            [&](Strings& vz) { return DescribeFace(TopoDS::Face(zShape.m_zFaces(i)), static_cast<uint32_t>(i), vz); });
  for (Standard_Integer i = 1; i <= zShape.m_zEdges.Extent(); ++i) {
    const TopoDS_Edge& zEdge = TopoDS::Edge(zShape.m_zEdges(i));
    if (BRep_Tool::Degenerated(zEdge)) continue;
    Collect(z.m_vzGeometry, z.m_nEdgesWithout,
            [&](Strings& vz) { return DescribeEdge(zEdge, static_cast<uint32_t>(i), vz); });
  }
  return z;
}

}  // namespace kiv
