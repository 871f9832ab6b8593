#include "KivTestMachine.h"

#include <cmath>

#include "KivBrepEncode.h"
#include "KivContainerHeader.h"
#include "KivModelMeaning.h"

using namespace kiv;

namespace kivtest {
namespace {

constexpr float kStep = 1.0f / 64;

KivMemoryBlockFaceEdge& Mesh(KivModelBuilder& zBuilder, size_t iPart, size_t iLevel) {
  KivMemoryBlockFaceEdge& zMesh = zBuilder.FaceEdge(iPart, iLevel);
  zMesh.m_fStep = kStep;
  for (float& f : zMesh.m_fOrigin) f = -16 - kStep / 2;  // multiples of the step are the centres of cells
  return zMesh;
}

// nSide x nSide squares over 10 x 10, each of two triangles.
KivMeshFace& AddSquare(KivMemoryBlockFaceEdge& zMesh, uint32_t iId, uint32_t nSide, float fZ) {
  std::vector<float> vf;
  std::vector<uint32_t> vi;
  for (uint32_t y = 0; y <= nSide; ++y)
    for (uint32_t x = 0; x <= nSide; ++x)
      vf.insert(vf.end(), {10.0f * static_cast<float>(x) / static_cast<float>(nSide),
                           10.0f * static_cast<float>(y) / static_cast<float>(nSide), fZ});
  for (uint32_t y = 0; y < nSide; ++y)
    for (uint32_t x = 0; x < nSide; ++x) {
      const uint32_t a = y * (nSide + 1) + x, b = a + nSide + 1;
      vi.insert(vi.end(), {a, a + 1, b + 1, a, b + 1, b});
    }
  return AddMachineFace(zMesh, iId, vf, vi);
}

void AddEdge(KivMemoryBlockFaceEdge& zMesh, uint32_t nPoints) {
  KivMeshEdge& z = zMesh.AddEdge();
  z.m_iId = 1;
  z.m_iVertexCount = nPoints;
  for (uint32_t i = 0; i < nPoints; ++i)
    z.m_vfVertex.insert(z.m_vfVertex.end(), {10.0f * static_cast<float>(i) / static_cast<float>(nPoints - 1), 0, 0});
}

float Snapped(double d) {
  return static_cast<float>(std::round(d * 64) / 64);
}

void AddBolt(KivMemoryBlockFaceEdge& zMesh) {
  std::vector<float> vfSide, vfCap{0, 0, 0};
  std::vector<uint32_t> viSide, viCap;
  for (uint32_t i = 0; i < 8; ++i) {
    const double dAngle = 3.14159265358979 / 4 * i;
    const float fX = Snapped(std::cos(dAngle)), fY = Snapped(std::sin(dAngle));
    vfSide.insert(vfSide.end(), {fX, fY, 0, fX, fY, 4});
    vfCap.insert(vfCap.end(), {fX, fY, 0});
    const uint32_t a = 2 * i, b = 2 * ((i + 1) % 8);
    viSide.insert(viSide.end(), {a, b, b + 1, a, b + 1, a + 1});
    viCap.insert(viCap.end(), {0, 1 + (i + 1) % 8, 1 + i});
  }
  AddMachineFace(zMesh, 1, vfSide, viSide);
  AddMachineFace(zMesh, 2, vfCap, viCap);
}

void AddGeometry(KivMemoryBlockBrep& zBrep, const KivBrepGeometry& zGeometry, KivGeometryId zId) {
  KivBrepEntry& z = zBrep.AddGeometry(zGeometry.m_iKind);
  z.m_iGeometryId = zId.Pack();
  z.m_vcGeometry = KivEncodeBrepGeometry(zGeometry);
}

KivBrepGeometry Analytic(KivAnalytic eType, const KivECoord3& zPoint, const KivECoord3& zAxis, double dRadius = 0) {
  KivBrepGeometry z;
  z.m_iKind = kBrepAnalyticKind;
  z.m_iAnalyticType = static_cast<uint32_t>(eType);
  z.m_zPoint = zPoint;
  z.m_zAxis = zAxis;
  z.m_dRadius = dRadius;
  return z;
}

// Order 2 over two poles.
KivBrepGeometry Nurbs(const KivECoord3& zFirst, const KivECoord3& zSecond) {
  KivBrepGeometry z;
  z.m_iKind = kBrepNurbsKind;
  z.m_iOrder = 2;
  z.m_vdKnot = {0, 0, 1, 1};
  z.m_vzPole = {zFirst, zSecond};
  return z;
}

KivEMatrix4 Translated(double dX, double dY, double dZ) {
  KivEMatrix4 z;
  z.Translate({dX, dY, dZ});
  return z;
}

}  // namespace

KivMeshFace& AddMachineFace(KivMemoryBlockFaceEdge& zMesh, uint32_t iId, const std::vector<float>& vfVertex,
                            const std::vector<uint32_t>& viIndex) {
  KivMeshFace& z = zMesh.AddFace();
  z.m_iId = iId;
  z.m_iVertexCount = static_cast<uint32_t>(vfVertex.size() / 3);
  z.m_iTriangleCount = static_cast<uint32_t>(viIndex.size() / 3);
  z.m_vfVertex = vfVertex;
  z.m_vfNormal.resize(vfVertex.size());
  for (size_t i = 2; i < z.m_vfNormal.size(); i += 3) z.m_vfNormal[i] = 1;
  z.m_viIndex = viIndex;
  return z;
}

void FillMachine(KivModelBuilder& z) {
  z.SetLevels({1.0f, 0.1f});
  KivSetUnit(z.NoteAttributes(), 0.001);
  const size_t iPlate = z.AddPart();
  for (size_t iLevel = 0; iLevel < 2; ++iLevel) {
    KivMemoryBlockFaceEdge& zMesh = Mesh(z, iPlate, iLevel);
    KivSetLayer(AddSquare(zMesh, 1, iLevel == 0 ? 1 : 2, 0).m_vzAttribute, 2);
    KivSetColour(AddSquare(zMesh, 2, 1, -1).m_vzAttribute, {0, 0, 1, 1});
    AddEdge(zMesh, iLevel == 0 ? 2 : 3);
  }
  KivMemoryBlockBrep& zPlate = z.Brep(iPlate);
  AddGeometry(zPlate, Analytic(KivAnalytic::Plane, {0, 0, 0}, {0, 0, 1}), {1, KivGeometryUse::Face, 0});
  AddGeometry(zPlate, Nurbs({0, 0, -1}, {10, 0, -1}), {2, KivGeometryUse::SurfaceRow, 0});
  AddGeometry(zPlate, Nurbs({0, 10, -1}, {10, 10, -1}), {2, KivGeometryUse::SurfaceRow, 1});
  AddGeometry(zPlate, Nurbs({}, {}), {2, KivGeometryUse::SurfaceProfile, 0});
  AddGeometry(zPlate, Analytic(KivAnalytic::Line, {0, 0, 0}, {1, 0, 0}), {1, KivGeometryUse::Edge, 0});
  const size_t iBolt = z.AddPart();
  for (size_t iLevel = 0; iLevel < 2; ++iLevel) AddBolt(Mesh(z, iBolt, iLevel));
  AddGeometry(z.Brep(iBolt), Analytic(KivAnalytic::Cylinder, {0, 0, 0}, {0, 0, 1}, 1), {1, KivGeometryUse::Face, 0});

  const size_t iRoot = z.AddNode(u"machine");
  const size_t iPlateNode = z.AddNode(u"plate", iRoot);
  const size_t iBolts = z.AddNode(u"bolts", iRoot);
  const size_t iA = z.AddNode(u"bolt A", iBolts);
  const size_t iB = z.AddNode(u"bolt B", iBolts);
  z.Node(iPlateNode).m_strNodeName[1] = u"PLATE";
  z.Node(iA).m_strNodeName[1] = z.Node(iB).m_strNodeName[1] = u"BOLT";
  KivSetColour(z.Node(iPlateNode).m_vzAttribute, {1, 0, 0, 1});
  z.Node(iBolts).m_zMatrix = Translated(0, 0, 5);
  z.Node(iA).m_zMatrix = Translated(2, 2, 0);
  z.Node(iB).m_zMatrix = Translated(8, 8, 0);
  z.PlaceInstance(iPlate, KivEMatrix4(), iPlateNode);
  z.PlaceInstance(iBolt, Translated(2, 2, 5), iA);
  z.PlaceInstance(iBolt, Translated(8, 8, 5), iB);
  for (uint32_t iLayer : {1u, 2u}) {
    KivLayerFilterEntry& zFilter = z.LayerFilter(iRoot).AddFilter();
    zFilter.m_strFilterName = iLayer == 1 ? u"steel" : u"paint";
    zFilter.m_vzLayer = {{iLayer, true}};
  }
}

bool WriteMachine(const KivWString& csPath) {
  KivRegisterOwnFormat();
  KivModelBuilder zBuilder;
  FillMachine(zBuilder);
  return zBuilder.Save(csPath);
}

}  // namespace kivtest
