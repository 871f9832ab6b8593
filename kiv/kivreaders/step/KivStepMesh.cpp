#include "KivStepMesh.h"

#include <BRepAdaptor_Curve.hxx>
#include <BRepMesh_IncrementalMesh.hxx>
#include <BRepTools.hxx>
#include <BRep_Tool.hxx>
#include <GCPnts_TangentialDeflection.hxx>
#include <GeomLib.hxx>
#include <IMeshData_Status.hxx>
#include <Poly_Polygon3D.hxx>
#include <Poly_PolygonOnTriangulation.hxx>
#include <Poly_Triangulation.hxx>
#include <TopoDS.hxx>
#include <TopoDS_Edge.hxx>
#include <TopoDS_Face.hxx>
#include <algorithm>
#include <new>

#include "KivECoord3.h"
#include "KivSceneReader.h"

namespace kiv {
namespace {

constexpr double kAngle = 0.8;  // between neighbours along a curve, radians: a circle has eight at the least
constexpr double kNormalTolerance = 1e-9;

void Append(std::vector<double>& vd, const gp_Pnt& zPoint) {
  vd.insert(vd.end(), {zPoint.X(), zPoint.Y(), zPoint.Z()});
}

KivECoord3 PointAt(const std::vector<double>& vd, uint32_t i) {
  return {vd[3 * size_t{i}], vd[3 * size_t{i} + 1], vd[3 * size_t{i} + 2]};
}

// Of each vertex the normal of the surface, outwards; where the surface has none, the mean of the triangles' normals.
void AddNormals(const TopoDS_Face& zFace, const Poly_Triangulation& zMesh, const gp_Trsf& zPlacement, bool bReversed,
                KivSceneFace& zSceneFace) {
  TopLoc_Location zLocation;
  const Handle(Geom_Surface) zSurface = BRep_Tool::Surface(zFace, zLocation);
  std::vector<KivECoord3> vzNormal(static_cast<size_t>(zMesh.NbNodes()));
  std::vector<bool> vbOfSurface(vzNormal.size(), false);
  for (Standard_Integer i = 1; i <= zMesh.NbNodes() && zMesh.HasUVNodes() && !zSurface.IsNull(); ++i) {
    gp_Dir zNormal;
    if (GeomLib::NormEstim(zSurface, zMesh.UVNode(i), kNormalTolerance, zNormal) > 1) continue;
    zNormal.Transform(zPlacement);
    if (bReversed != zPlacement.IsNegative()) zNormal.Reverse();
    const size_t iNode = static_cast<size_t>(i - 1);
    vzNormal[iNode] = {zNormal.X(), zNormal.Y(), zNormal.Z()};
    vbOfSurface[iNode] = true;
  }
  for (size_t i = 0; i < zSceneFace.m_viIndex.size(); i += 3) {
    const uint32_t* const piCorner = &zSceneFace.m_viIndex[i];
    const KivECoord3 zA = PointAt(zSceneFace.m_vdVertex, piCorner[0]);
    const KivECoord3 zArea =
        (PointAt(zSceneFace.m_vdVertex, piCorner[1]) - zA).Cross(PointAt(zSceneFace.m_vdVertex, piCorner[2]) - zA);
    for (int k = 0; k < 3; ++k)
      if (!vbOfSurface[piCorner[k]]) vzNormal[piCorner[k]] += zArea;
  }
  for (KivECoord3& z : vzNormal) {
    z.Normalise();
    if (!(z.Length() > 0.5)) z = {0, 0, 1};  // of a vertex whose triangles have no area
    for (const double d : {z.m_dX, z.m_dY, z.m_dZ}) zSceneFace.m_vfNormal.push_back(static_cast<float>(d));
  }
}

bool MeshFace(const TopoDS_Face& zFace, KivSceneFace& zSceneFace) {
  TopLoc_Location zLocation;
  const Handle(Poly_Triangulation) zMesh = BRep_Tool::Triangulation(zFace, zLocation);
  if (zMesh.IsNull() || zMesh->NbTriangles() == 0) return false;
  const gp_Trsf zPlacement = zLocation.Transformation();
  const bool bReversed = zFace.Orientation() == TopAbs_REVERSED;
  for (Standard_Integer i = 1; i <= zMesh->NbNodes(); ++i)
    Append(zSceneFace.m_vdVertex, zMesh->Node(i).Transformed(zPlacement));
  for (Standard_Integer i = 1; i <= zMesh->NbTriangles(); ++i) {
    Standard_Integer a, b, c;
    zMesh->Triangle(i).Get(a, b, c);
    if (a == b || b == c || c == a) continue;
    // A mirroring placement turns surface and triangles alike.
    if (bReversed) std::swap(b, c);
    for (const Standard_Integer iNode : {a, b, c}) zSceneFace.m_viIndex.push_back(static_cast<uint32_t>(iNode - 1));
  }
  if (zSceneFace.m_viIndex.empty()) return false;
  AddNormals(zFace, *zMesh, zPlacement, bReversed, zSceneFace);
  return true;
}

bool MeshEdge(const TopoDS_Edge& zEdge, double dTolerance, KivSceneEdge& zSceneEdge) {
  if (BRep_Tool::Degenerated(zEdge)) return false;
  std::vector<double>& vd = zSceneEdge.m_vdVertex;
  // On the mesh of a face, so that both have the same points.
  Handle(Poly_PolygonOnTriangulation) zOnMesh;
  Handle(Poly_Triangulation) zMesh;
  TopLoc_Location zLocation;
  BRep_Tool::PolygonOnTriangulation(zEdge, zOnMesh, zMesh, zLocation);
  if (!zOnMesh.IsNull() && !zMesh.IsNull()) {
    for (Standard_Integer i = 1; i <= zOnMesh->NbNodes(); ++i)
      Append(vd, zMesh->Node(zOnMesh->Node(i)).Transformed(zLocation.Transformation()));
    return zOnMesh->NbNodes() >= 2;
  }
  const Handle(Poly_Polygon3D) zPolygon = BRep_Tool::Polygon3D(zEdge, zLocation);
  if (!zPolygon.IsNull()) {
    for (const gp_Pnt& zPoint : zPolygon->Nodes()) Append(vd, zPoint.Transformed(zLocation.Transformation()));
    return zPolygon->NbNodes() >= 2;
  }
  const BRepAdaptor_Curve zCurve(zEdge);
  if (!zCurve.Is3DCurve() && !zCurve.IsCurveOnSurface()) return false;
  const GCPnts_TangentialDeflection zPoints(zCurve, kAngle, dTolerance);
  for (Standard_Integer i = 1; i <= zPoints.NbPoints(); ++i) Append(vd, zPoints.Value(i));
  return zPoints.NbPoints() >= 2;
}

}  // namespace

KivSceneLevel KivMeshStepShape(const KivStepShape& zShape, double dTolerance) {
  KivSceneLevel zLevel;
  zLevel.m_dTolerance = dTolerance;
  // A coarser mesh would be kept where a finer one stands.
  BRepTools::Clean(zShape.m_zShape, Standard_True);
  // In one thread, so that every reading gives the same.
  const BRepMesh_IncrementalMesh zMesher(zShape.m_zShape, dTolerance, Standard_False, kAngle, Standard_False);
  // It leaves out what it has no memory for.
  if ((zMesher.GetStatusFlags() & IMeshData_Failure) != 0 && KivIsMemoryUsedUp()) throw std::bad_alloc();
  for (Standard_Integer i = 1; i <= zShape.m_zFaces.Extent(); ++i) {
    KivSceneFace zFace;
    zFace.m_iId = static_cast<uint32_t>(i);
    if (MeshFace(TopoDS::Face(zShape.m_zFaces(i)), zFace)) zLevel.m_vzFace.push_back(std::move(zFace));
  }
  for (Standard_Integer i = 1; i <= zShape.m_zEdges.Extent(); ++i) {
    KivSceneEdge zEdge;
    zEdge.m_iId = static_cast<uint32_t>(i);
    if (MeshEdge(TopoDS::Edge(zShape.m_zEdges(i)), dTolerance, zEdge)) zLevel.m_vzEdge.push_back(std::move(zEdge));
  }
  BRepTools::Clean(zShape.m_zShape, Standard_True);
  return zLevel;
}

}  // namespace kiv
