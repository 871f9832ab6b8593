// What a face or an edge is.
#include <cmath>

#include "DorMesh.h"
#include "DorRequest.h"

namespace kiv {
namespace {

struct LevelCounts {
  float m_fTolerance = 0;
  int64_t m_nVertices = 0, m_nTriangles = 0;
};

// Of all levels together; the finest one, which comes last, wins where there is one value.
struct Seen {
  std::vector<LevelCounts> m_vzLevel;
  std::optional<KivColour> m_zColour;
  std::optional<uint32_t> m_iLayer;

  void AddLevel(DorSession& zSession, size_t iLevel, int64_t nVertices, int64_t nTriangles,
                const std::vector<KivAttribute>& vzAttribute) {
    const std::vector<float> vf = zSession.Index().Tolerances();
    m_vzLevel.push_back({iLevel < vf.size() ? vf[iLevel] : 0, nVertices, nTriangles});
    m_zColour = KivGetColour(vzAttribute);
    m_iLayer = KivGetLayer(vzAttribute);
  }
};

void PutMarks(const Seen& zSeen, DorAnswerWriter& zAnswer) {
  zAnswer.List("colour", zSeen.m_zColour ? 1 : 0);
  if (zSeen.m_zColour) {
    const KivColour& z = *zSeen.m_zColour;
    zAnswer.Floats("rgba", {z[0], z[1], z[2], z[3]});
  }
  zAnswer.List("layer", zSeen.m_iLayer ? 1 : 0);
  if (zSeen.m_iLayer) zAnswer.Integer("layer", *zSeen.m_iLayer);
}

void PutAnalytic(const DorExact& zExact, DorAnswerWriter& zAnswer) {
  zAnswer.List("analytic", zExact.m_zAnalytic ? 1 : 0);
  if (!zExact.m_zAnalytic) return;
  zAnswer.Integer("type", zExact.m_zAnalytic->m_iAnalyticType);
  zAnswer.Coord("point", zExact.m_zAnalytic->m_zPoint);
  zAnswer.Coord("axis", zExact.m_zAnalytic->m_zAxis);
  zAnswer.Float("radius", zExact.m_zAnalytic->m_dRadius);
}

void PutKnots(std::string_view strList, const KivBrepGeometry& z, DorAnswerWriter& zAnswer) {
  zAnswer.List(strList, z.m_vdKnot.size());
  for (const double d : z.m_vdKnot) zAnswer.Float("knot", d);
}

void PutPoles(const std::vector<KivBrepGeometry>& vzRow, DorAnswerWriter& zAnswer) {
  size_t nPoles = 0;
  for (const KivBrepGeometry& z : vzRow) nPoles += z.m_vzPole.size();
  zAnswer.List("poles", nPoles);
  for (const KivBrepGeometry& z : vzRow)
    for (size_t i = 0; i < z.m_vzPole.size(); ++i) {
      zAnswer.Coord("pole", z.m_vzPole[i]);
      zAnswer.Float("weight", i < z.m_vdWeight.size() ? z.m_vdWeight[i] : 1);
    }
}

// Of the points as they stand in the model.
void AddPlaced(const std::vector<float>& vfVertex, const KivEMatrix4& zMatrix, DorBox& zBox) {
  for (size_t i = 0; i + 2 < vfVertex.size(); i += 3) {
    float afPlaced[3];
    zMatrix.TransformPoint(&vfVertex[i], afPlaced);
    zBox.Add(afPlaced);
  }
}

KivECoord3 PlacedPoint(const std::vector<float>& vfVertex, size_t i, const KivEMatrix4& zMatrix) {
  return zMatrix.TransformPoint(KivECoord3{vfVertex[3 * i], vfVertex[3 * i + 1], vfVertex[3 * i + 2]});
}

void ServeGetFaceInfo(DorSession& zSession, const DorRequestFields& zFields, DorAnswerWriter& zAnswer) {
  const DorEntity zFace = DorFindFace(zSession, zFields.Integer("instance"), zFields.Integer("face"));
  Seen zSeen;
  DorBox zBox;
  double dArea = 0;
  DorForEachFace(zSession, zFace, [&](size_t iLevel, const KivMemoryBlockFaceEdge&, const KivMeshFace& zMesh) {
    int64_t nTriangles = 0;
    dArea = 0;
    DorForEachTriangle(zMesh, [&](uint32_t a, uint32_t b, uint32_t c) {
      const KivECoord3 zA = PlacedPoint(zMesh.m_vfVertex, a, zFace.m_zMatrix);
      const KivECoord3 zB = PlacedPoint(zMesh.m_vfVertex, b, zFace.m_zMatrix);
      const KivECoord3 zC = PlacedPoint(zMesh.m_vfVertex, c, zFace.m_zMatrix);
      dArea += (zB - zA).Cross(zC - zA).Length() / 2;
      ++nTriangles;
    });
    zBox = DorBox();
    AddPlaced(zMesh.m_vfVertex, zFace.m_zMatrix, zBox);
    zSeen.AddLevel(zSession, iLevel, static_cast<int64_t>(zMesh.m_vfVertex.size() / 3), nTriangles,
                   zMesh.m_vzAttribute);
  });
  const DorExact zExact = DorReadExact(zSession, zFace, true);

  zAnswer.Integer("part", zFace.m_zPlace.m_iPart);
  zAnswer.Box(zBox);
  zAnswer.Float("area", dArea);
  zAnswer.List("levels", zSeen.m_vzLevel.size());
  for (const LevelCounts& z : zSeen.m_vzLevel) {
    zAnswer.Float("tolerance", z.m_fTolerance);
    zAnswer.Integer("vertices", z.m_nVertices);
    zAnswer.Integer("triangles", z.m_nTriangles);
  }
  PutMarks(zSeen, zAnswer);
  PutAnalytic(zExact, zAnswer);
  zAnswer.List("nurbs", zExact.HasNurbs() ? 1 : 0);
  if (!zExact.HasNurbs()) return;
  zAnswer.Integer("order_1", zExact.m_vzRow[0].m_iOrder);
  PutKnots("knots_1", zExact.m_vzRow[0], zAnswer);
  zAnswer.Integer("order_2", zExact.m_zProfile->m_iOrder);
  PutKnots("knots_2", *zExact.m_zProfile, zAnswer);
  zAnswer.Integer("rows", static_cast<int64_t>(zExact.m_vzRow.size()));
  PutPoles(zExact.m_vzRow, zAnswer);
}

void ServeGetEdgeInfo(DorSession& zSession, const DorRequestFields& zFields, DorAnswerWriter& zAnswer) {
  const DorEntity zEdge = DorFindEdge(zSession, zFields.Integer("instance"), zFields.Integer("edge"));
  Seen zSeen;
  DorBox zBox;
  double dLength = 0;
  DorForEachEdge(zSession, zEdge, [&](size_t iLevel, const KivMemoryBlockFaceEdge&, const KivMeshEdge& zMesh) {
    const size_t nPoints = zMesh.m_vfVertex.size() / 3;
    dLength = 0;
    for (size_t i = 1; i < nPoints; ++i)
      dLength +=
          (PlacedPoint(zMesh.m_vfVertex, i, zEdge.m_zMatrix) - PlacedPoint(zMesh.m_vfVertex, i - 1, zEdge.m_zMatrix))
              .Length();
    zBox = DorBox();
    AddPlaced(zMesh.m_vfVertex, zEdge.m_zMatrix, zBox);
    zSeen.AddLevel(zSession, iLevel, static_cast<int64_t>(nPoints), 0, zMesh.m_vzAttribute);
  });
  const DorExact zExact = DorReadExact(zSession, zEdge, false);

  zAnswer.Integer("part", zEdge.m_zPlace.m_iPart);
  zAnswer.Box(zBox);
  zAnswer.Float("length", dLength);
  zAnswer.List("levels", zSeen.m_vzLevel.size());
  for (const LevelCounts& z : zSeen.m_vzLevel) {
    zAnswer.Float("tolerance", z.m_fTolerance);
    zAnswer.Integer("points", z.m_nVertices);
  }
  PutMarks(zSeen, zAnswer);
  PutAnalytic(zExact, zAnswer);
  zAnswer.List("nurbs", zExact.HasNurbs() ? 1 : 0);
  if (!zExact.HasNurbs()) return;
  zAnswer.Integer("order", zExact.m_vzRow[0].m_iOrder);
  PutKnots("knots", zExact.m_vzRow[0], zAnswer);
  PutPoles({zExact.m_vzRow[0]}, zAnswer);
}

}  // namespace

std::span<const DorRequestWorkRow> DorWorksOfFaceInfo() {
  static constexpr DorRequestWorkRow kRows[] = {
      {u"DorHandler_GetFaceInfo", ServeGetFaceInfo},
      {u"DorHandler_GetEdgeInfo", ServeGetEdgeInfo},
  };
  return kRows;
}

}  // namespace kiv
