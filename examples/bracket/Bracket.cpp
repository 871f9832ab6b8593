#include "Bracket.h"

#include <APIHeaderSection_MakeHeader.hxx>
#include <BRepAdaptor_Curve.hxx>
#include <BRepAdaptor_Surface.hxx>
#include <BRepAlgoAPI_Common.hxx>
#include <BRepAlgoAPI_Cut.hxx>
#include <BRepAlgoAPI_Fuse.hxx>
#include <BRepBuilderAPI_MakeFace.hxx>
#include <BRepBuilderAPI_MakePolygon.hxx>
#include <BRepFilletAPI_MakeFillet.hxx>
#include <BRepPrimAPI_MakeBox.hxx>
#include <BRepPrimAPI_MakeCone.hxx>
#include <BRepPrimAPI_MakeCylinder.hxx>
#include <BRepPrimAPI_MakePrism.hxx>
#include <Interface_Static.hxx>
#include <Message.hxx>
#include <Message_Messenger.hxx>
#include <Quantity_Color.hxx>
#include <STEPCAFControl_Controller.hxx>
#include <STEPCAFControl_Writer.hxx>
#include <ShapeUpgrade_UnifySameDomain.hxx>
#include <StepData_StepModel.hxx>
#include <TDataStd_Name.hxx>
#include <TDocStd_Document.hxx>
#include <TopExp.hxx>
#include <TopExp_Explorer.hxx>
#include <TopTools_IndexedMapOfShape.hxx>
#include <TopoDS.hxx>
#include <TopoDS_Edge.hxx>
#include <XCAFApp_Application.hxx>
#include <XCAFDoc_ColorTool.hxx>
#include <XCAFDoc_DocumentTool.hxx>
#include <XCAFDoc_LayerTool.hxx>
#include <XCAFDoc_ShapeTool.hxx>
#include <cmath>
#include <functional>
#include <vector>

namespace {

// Millimetres.
constexpr double kLength = 80, kWidth = 60, kHeight = 50, kThickness = 8;
constexpr double kCornerRound = 8, kInnerRound = 5;
constexpr double kHole = 6.6;
constexpr double kRibAt = 5, kRibWidth = 4, kRibSize = 30;
constexpr double kWasherOuter = 12, kWasherInner = 6.4, kWasherHeight = 1.6, kWasherRound = 0.5;
constexpr double kBolt = 6, kBoltLength = 20, kBoltTip = 1, kHeadWidth = 10, kHeadHeight = 4;
const gp_Vec kPlatePlace(-kLength / 2, 0, 0);
// On the plate, in its own coordinates.
const gp_Pnt kBoltPlace[4] = {{30, -20, kThickness}, {30, 20, kThickness}, {65, -20, kThickness}, {65, 20, kThickness}};

// The edges that are straight and run as the function wants them.
std::vector<TopoDS_Edge> StraightEdges(const TopoDS_Shape& zShape,
                                       const std::function<bool(const gp_Pnt&, const gp_Pnt&)>& pfnWanted) {
  TopTools_IndexedMapOfShape zEdges;
  TopExp::MapShapes(zShape, TopAbs_EDGE, zEdges);
  std::vector<TopoDS_Edge> vzWanted;
  for (int i = 1; i <= zEdges.Extent(); ++i) {
    const BRepAdaptor_Curve zCurve(TopoDS::Edge(zEdges(i)));
    if (zCurve.GetType() != GeomAbs_Line) continue;
    if (pfnWanted(zCurve.Value(zCurve.FirstParameter()), zCurve.Value(zCurve.LastParameter())))
      vzWanted.push_back(TopoDS::Edge(zEdges(i)));
  }
  return vzWanted;
}

bool Near(double dA, double dB) {
  return std::abs(dA - dB) < 1e-6;
}

TopoDS_Shape Unified(const TopoDS_Shape& zShape) {
  ShapeUpgrade_UnifySameDomain zUnify(zShape);
  zUnify.Build();
  return zUnify.Shape();
}

// The first solid of a result of boolean operations.
TopoDS_Shape Solid(const TopoDS_Shape& zShape) {
  const TopExp_Explorer zSolids(zShape, TopAbs_SOLID);
  return zSolids.More() ? zSolids.Current() : zShape;
}

TopoDS_Shape MakeRib(double dFrom) {
  BRepBuilderAPI_MakePolygon zTriangle;
  zTriangle.Add(gp_Pnt(kThickness - 1, dFrom, kThickness - 1));
  zTriangle.Add(gp_Pnt(kThickness + kRibSize, dFrom, kThickness - 1));
  zTriangle.Add(gp_Pnt(kThickness + kRibSize, dFrom, kThickness));
  zTriangle.Add(gp_Pnt(kThickness, dFrom, kThickness + kRibSize));
  zTriangle.Add(gp_Pnt(kThickness - 1, dFrom, kThickness + kRibSize));
  zTriangle.Close();
  return BRepPrimAPI_MakePrism(BRepBuilderAPI_MakeFace(zTriangle.Wire()).Face(), gp_Vec(0, kRibWidth, 0)).Shape();
}

TopoDS_Shape MakePlate() {
  const TopoDS_Shape zBase = BRepPrimAPI_MakeBox(gp_Pnt(0, -kWidth / 2, 0), kLength, kWidth, kThickness).Shape();
  const TopoDS_Shape zUpright = BRepPrimAPI_MakeBox(gp_Pnt(0, -kWidth / 2, 0), kThickness, kWidth, kHeight).Shape();
  TopoDS_Shape zPlate = Unified(BRepAlgoAPI_Fuse(zBase, zUpright).Shape());
  BRepFilletAPI_MakeFillet zRounds(zPlate);
  for (const TopoDS_Edge& zEdge : StraightEdges(zPlate, [](const gp_Pnt&zA, const gp_Pnt&zB) {
         return Near(zA.X(), kThickness) && Near(zB.X(), kThickness) && Near(zA.Z(), kThickness) &&
                Near(zB.Z(), kThickness);
       }))
    zRounds.Add(kInnerRound, zEdge);
  for (const TopoDS_Edge& zEdge : StraightEdges(zPlate, [](const gp_Pnt&zA, const gp_Pnt&zB) {
         const bool bOfBase = Near(zA.X(), kLength) && Near(zB.X(), kLength) && Near(zA.Y(), zB.Y());
         const bool bOfUpright = Near(zA.Z(), kHeight) && Near(zB.Z(), kHeight) && Near(zA.Y(), zB.Y());
         return bOfBase || bOfUpright;
       }))
    zRounds.Add(kCornerRound, zEdge);
  zPlate = zRounds.Shape();
  zPlate = BRepAlgoAPI_Fuse(zPlate, MakeRib(kRibAt)).Shape();
  zPlate = BRepAlgoAPI_Fuse(zPlate, MakeRib(-kRibAt - kRibWidth)).Shape();
  for (const gp_Pnt& zPlace : kBoltPlace) {
    const gp_Ax2 zAxis(gp_Pnt(zPlace.X(), zPlace.Y(), -1), gp::DZ());
    zPlate = BRepAlgoAPI_Cut(zPlate, BRepPrimAPI_MakeCylinder(zAxis, kHole / 2, kThickness + 2).Shape()).Shape();
  }
  return Solid(Unified(zPlate));
}

// Its middle is at 0.
TopoDS_Shape MakeWasher() {
  const gp_Ax2 zLow(gp_Pnt(0, 0, -kWasherHeight / 2), gp::DZ()), zLower(gp_Pnt(0, 0, -kWasherHeight), gp::DZ());
  const TopoDS_Shape zDisc = BRepPrimAPI_MakeCylinder(zLow, kWasherOuter / 2, kWasherHeight).Shape();
  const TopoDS_Shape zHole = BRepPrimAPI_MakeCylinder(zLower, kWasherInner / 2, 2 * kWasherHeight).Shape();
  const TopoDS_Shape zWasher = BRepAlgoAPI_Cut(zDisc, zHole).Shape();
  BRepFilletAPI_MakeFillet zRounds(zWasher);
  TopTools_IndexedMapOfShape zEdges;
  TopExp::MapShapes(zWasher, TopAbs_EDGE, zEdges);
  for (int i = 1; i <= zEdges.Extent(); ++i) {
    const BRepAdaptor_Curve zCurve(TopoDS::Edge(zEdges(i)));
    if (zCurve.GetType() != GeomAbs_Circle || !Near(zCurve.Circle().Radius(), kWasherOuter / 2)) continue;
    if (zCurve.Circle().Location().Z() > 0) zRounds.Add(kWasherRound, TopoDS::Edge(zEdges(i)));
  }
  return Solid(zRounds.Shape());
}

// The head's lower side is at 0, the shaft points downwards.
TopoDS_Shape MakeBolt() {
  BRepBuilderAPI_MakePolygon zHexagon;
  const double dCorner = kHeadWidth / std::sqrt(3.0);
  const double adX[6] = {1, 0.5, -0.5, -1, -0.5, 0.5}, adY[6] = {0, 1, 1, 0, -1, -1};
  for (int i = 0; i < 6; ++i) zHexagon.Add(gp_Pnt(dCorner * adX[i], kHeadWidth / 2 * adY[i], 0));
  zHexagon.Close();
  const TopoDS_Shape zPrism =
      BRepPrimAPI_MakePrism(BRepBuilderAPI_MakeFace(zHexagon.Wire()).Face(), gp_Vec(0, 0, kHeadHeight)).Shape();
  // Takes the corners off the top.
  const double dTop = kHeadWidth / 2 * 0.95, dSlope = 1.7;
  const TopoDS_Shape zCone = BRepPrimAPI_MakeCone(dTop + kHeadHeight * dSlope, dTop, kHeadHeight).Shape();
  const TopoDS_Shape zHead = BRepAlgoAPI_Common(zPrism, zCone).Shape();

  const gp_Ax2 zDown(gp_Pnt(0, 0, 0), -gp::DZ());
  const gp_Ax2 zTip(gp_Pnt(0, 0, kBoltTip - kBoltLength), -gp::DZ());
  const TopoDS_Shape zShaft = BRepPrimAPI_MakeCylinder(zDown, kBolt / 2, kBoltLength - kBoltTip).Shape();
  const TopoDS_Shape zEnd = BRepPrimAPI_MakeCone(zTip, kBolt / 2, kBolt / 2 - kBoltTip, kBoltTip).Shape();
  return Solid(Unified(BRepAlgoAPI_Fuse(BRepAlgoAPI_Fuse(zShaft, zEnd).Shape(), zHead).Shape()));
}

void Name(const TDF_Label& zLabel, const char* szName) {
  TDataStd_Name::Set(zLabel, TCollection_ExtendedString(szName));
}

// A place that is that of the assembly itself would lose its name in the file.
TDF_Label Place(XCAFDoc_ShapeTool& zShapes, const TDF_Label& zAssembly, const TDF_Label& zShape, const gp_Trsf& zWhere,
                const std::string& strName) {
  const TDF_Label zPlace = zShapes.AddComponent(zAssembly, zShape, TopLoc_Location(zWhere));
  Name(zPlace, strName.c_str());
  return zPlace;
}

gp_Trsf Shift(const gp_Vec& zBy) {
  gp_Trsf zWhere;
  zWhere.SetTranslation(zBy);
  return zWhere;
}

Quantity_Color Rgb(double dRed, double dGreen, double dBlue) {
  return {dRed, dGreen, dBlue, Quantity_TOC_sRGB};
}

// The walls of the holes, and the front of the upright.
void ColourFaces(const TDF_Label& zPlate, XCAFDoc_ShapeTool& zShapes, XCAFDoc_ColorTool& zColours) {
  TopTools_IndexedMapOfShape zFaces;
  TopExp::MapShapes(XCAFDoc_ShapeTool::GetShape(zPlate), TopAbs_FACE, zFaces);
  for (int i = 1; i <= zFaces.Extent(); ++i) {
    const BRepAdaptor_Surface zSurface(TopoDS::Face(zFaces(i)));
    const bool bHole = zSurface.GetType() == GeomAbs_Cylinder && Near(zSurface.Cylinder().Radius(), kHole / 2);
    const bool bFront = zSurface.GetType() == GeomAbs_Plane && Near(zSurface.Plane().Location().X(), 0) &&
                        std::abs(zSurface.Plane().Axis().Direction().X()) > 0.999;
    if (bHole) zColours.SetColor(zShapes.AddSubShape(zPlate, zFaces(i)), Rgb(1, 0.5, 0), XCAFDoc_ColorSurf);
    if (bFront) zColours.SetColor(zShapes.AddSubShape(zPlate, zFaces(i)), Rgb(0, 0.6, 0.2), XCAFDoc_ColorSurf);
  }
}

void FillDocument(const Handle(TDocStd_Document) & zDocument) {
  const Handle(XCAFDoc_ShapeTool) zShapes = XCAFDoc_DocumentTool::ShapeTool(zDocument->Main());
  const Handle(XCAFDoc_ColorTool) zColours = XCAFDoc_DocumentTool::ColorTool(zDocument->Main());
  const Handle(XCAFDoc_LayerTool) zLayers = XCAFDoc_DocumentTool::LayerTool(zDocument->Main());
  const auto AddPart = [&](const TopoDS_Shape& zShape, const char* szName, const char* szLayer) {
    const TDF_Label zPart = zShapes->AddShape(zShape, Standard_False);
    Name(zPart, szName);
    zLayers->SetLayer(zPart, TCollection_ExtendedString(szLayer));
    return zPart;
  };
  const TDF_Label zPlate = AddPart(MakePlate(), "Bracket plate", "Plates");
  const TDF_Label zBolt = AddPart(MakeBolt(), "Bolt M6x20", "Fasteners");
  const TDF_Label zWasher = AddPart(MakeWasher(), "Washer 6", "Fasteners");
  zColours->SetColor(zPlate, Rgb(0.45, 0.6, 0.8), XCAFDoc_ColorSurf);
  zColours->SetColor(zWasher, Rgb(0.8, 0.75, 0.3), XCAFDoc_ColorSurf);
  ColourFaces(zPlate, *zShapes, *zColours);

  const TDF_Label zFastener = zShapes->NewShape();
  Name(zFastener, "Fastener");
  Place(*zShapes, zFastener, zBolt, Shift(gp_Vec(0, 0, kWasherHeight)), "Bolt");
  Place(*zShapes, zFastener, zWasher, Shift(gp_Vec(0, 0, kWasherHeight / 2)), "Washer");

  const TDF_Label zAssembly = zShapes->NewShape();
  Name(zAssembly, "Bracket assembly");
  Place(*zShapes, zAssembly, zPlate, Shift(kPlatePlace), "Plate");
  for (int i = 0; i < 4; ++i) {
    gp_Trsf zWhere;
    if (i == 3) zWhere.SetRotation(gp::OZ(), 0.25);
    zWhere.SetTranslationPart(kPlatePlace + gp_Vec(kBoltPlace[i].XYZ()));
    const TDF_Label zPlace = Place(*zShapes, zAssembly, zFastener, zWhere, "Fastener " + std::to_string(i + 1));
    zColours->SetColor(zPlace, i == 3 ? Rgb(0.9, 0.1, 0.1) : Rgb(0.3, 0.3, 0.32), XCAFDoc_ColorSurf);
  }
  zShapes->UpdateAssemblies();
}

}  // namespace

bool WriteBracket(const std::string& strPath) {
  Message::DefaultMessenger()->ChangePrinters().Clear();
  XCAFDoc_ShapeTool::SetAutoNaming(Standard_False);
  STEPCAFControl_Controller::Init();
  Interface_Static::SetCVal("write.step.unit", "MM");
  Interface_Static::SetCVal("write.step.product.name", "Bracket");
  Handle(TDocStd_Document) zDocument;
  XCAFApp_Application::GetApplication()->NewDocument("BinXCAF", zDocument);
  FillDocument(zDocument);
  STEPCAFControl_Writer zWriter;
  zWriter.SetColorMode(Standard_True);
  zWriter.SetNameMode(Standard_True);
  zWriter.SetLayerMode(Standard_True);
  if (!zWriter.Transfer(zDocument, STEPControl_AsIs)) return false;
  APIHeaderSection_MakeHeader zHeader(zWriter.ChangeWriter().Model());
  zHeader.SetName(new TCollection_HAsciiString("Bracket"));
  zHeader.SetTimeStamp(new TCollection_HAsciiString("2024-01-01T00:00:00"));
  const bool bWritten = zWriter.Write(strPath.c_str()) == IFSelect_RetDone;
  zDocument->Close();
  return bWritten;
}
