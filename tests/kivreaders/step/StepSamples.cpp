#include "StepSamples.h"

#include <BRepBndLib.hxx>
#include <BRepBuilderAPI_MakeEdge.hxx>
#include <BRepBuilderAPI_MakeFace.hxx>
#include <BRepBuilderAPI_MakeVertex.hxx>
#include <BRepBuilderAPI_MakeWire.hxx>
#include <BRepGProp.hxx>
#include <BRepPrimAPI_MakeBox.hxx>
#include <BRepPrimAPI_MakeSphere.hxx>
#include <BRepPrimAPI_MakeTorus.hxx>
#include <BRep_Builder.hxx>
#include <Bnd_Box.hxx>
#include <GProp_GProps.hxx>
#include <GeomAPI_PointsToBSplineSurface.hxx>
#include <GeomConvert.hxx>
#include <Geom_BSplineCurve.hxx>
#include <Geom_BSplineSurface.hxx>
#include <Geom_ConicalSurface.hxx>
#include <Geom_Ellipse.hxx>
#include <Geom_Hyperbola.hxx>
#include <Geom_OffsetSurface.hxx>
#include <Geom_SurfaceOfLinearExtrusion.hxx>
#include <Geom_SurfaceOfRevolution.hxx>
#include <Geom_ToroidalSurface.hxx>
#include <Geom_TrimmedCurve.hxx>
#include <Interface_Static.hxx>
#include <Message.hxx>
#include <Message_Messenger.hxx>
#include <Quantity_Color.hxx>
#include <STEPCAFControl_Controller.hxx>
#include <STEPCAFControl_Writer.hxx>
#include <STEPControl_Reader.hxx>
#include <STEPControl_Writer.hxx>
#include <TColgp_Array2OfPnt.hxx>
#include <TDataStd_Name.hxx>
#include <TDocStd_Document.hxx>
#include <TopExp.hxx>
#include <TopTools_IndexedMapOfShape.hxx>
#include <TopoDS_Compound.hxx>
#include <XCAFApp_Application.hxx>
#include <XCAFDoc_ColorTool.hxx>
#include <XCAFDoc_DocumentTool.hxx>
#include <XCAFDoc_GraphNode.hxx>
#include <XCAFDoc_LayerTool.hxx>
#include <XCAFDoc_ShapeTool.hxx>
#include <cmath>
#include <vector>

namespace kivtest {
namespace {

bool Write(const std::string& strPath, const std::vector<TopoDS_Shape>& vzShape, const char* szUnit = "MM") {
  Message::DefaultMessenger()->ChangePrinters().Clear();
  STEPCAFControl_Controller::Init();
  Interface_Static::SetCVal("write.step.unit", szUnit);
  STEPControl_Writer zWriter;
  for (const TopoDS_Shape& zShape : vzShape)
    if (zWriter.Transfer(zShape, STEPControl_AsIs) != IFSelect_RetDone) return false;
  const bool bWritten = zWriter.Write(strPath.c_str()) == IFSelect_RetDone;
  Interface_Static::SetCVal("write.step.unit", "MM");
  return bWritten;
}

Handle(TDocStd_Document) NewDocument() {
  Message::DefaultMessenger()->ChangePrinters().Clear();
  STEPCAFControl_Controller::Init();
  Handle(TDocStd_Document) zDocument;
  XCAFApp_Application::GetApplication()->NewDocument("BinXCAF", zDocument);
  return zDocument;
}

bool WriteDocument(const Handle(TDocStd_Document) & zDocument, const std::string& strPath,
                   const char* szPartFiles = nullptr) {
  STEPCAFControl_Writer zWriter;
  zWriter.SetColorMode(Standard_True);
  zWriter.SetNameMode(Standard_True);
  zWriter.SetLayerMode(Standard_True);
  zWriter.SetSHUOMode(Standard_True);
  const bool bWritten =
      zWriter.Transfer(zDocument, STEPControl_AsIs, szPartFiles) && zWriter.Write(strPath.c_str()) == IFSelect_RetDone;
  zDocument->Close();
  return bWritten;
}

Handle(Geom_BSplineCurve) Spline() {
  TColgp_Array1OfPnt zPoles(1, 6);
  for (int i = 1; i <= 6; ++i) zPoles(i) = gp_Pnt(10.0 * i, 3 * std::sin(1.0 * i), i % 2 == 0 ? 4 : 0);
  TColStd_Array1OfReal zKnots(1, 4);
  for (int i = 1; i <= 4; ++i) zKnots(i) = i * i;
  TColStd_Array1OfInteger zTimes(1, 4);
  zTimes.Init(1);
  zTimes(1) = zTimes(4) = 4;
  return new Geom_BSplineCurve(zPoles, zKnots, zTimes, 3);
}

Handle(Geom_BSplineSurface) Hill() {
  TColgp_Array2OfPnt zPoints(1, 7, 1, 5);
  for (int i = 1; i <= 7; ++i)
    for (int j = 1; j <= 5; ++j) zPoints(i, j) = gp_Pnt(10 * i, 12 * j, 4 * std::sin(0.8 * i) * std::cos(0.9 * j));
  return GeomAPI_PointsToBSplineSurface(zPoints).Surface();
}

}  // namespace

StepMeasures MeasureStep(const std::string& strPath) {
  Message::DefaultMessenger()->ChangePrinters().Clear();
  STEPControl_Reader zReader;
  StepMeasures z;
  if (zReader.ReadFile(strPath.c_str()) != IFSelect_RetDone) return z;
  zReader.TransferRoots();
  const TopoDS_Shape zShape = zReader.OneShape();
  GProp_GProps zVolume, zArea;
  BRepGProp::VolumeProperties(zShape, zVolume, 1e-6);
  BRepGProp::SurfaceProperties(zShape, zArea, 1e-6);
  z.m_dVolume = zVolume.Mass();
  z.m_dArea = zArea.Mass();
  Bnd_Box zBox;
  BRepBndLib::AddOptimal(zShape, zBox, Standard_False, Standard_False);
  zBox.Get(z.m_adBoxMin[0], z.m_adBoxMin[1], z.m_adBoxMin[2], z.m_adBoxMax[0], z.m_adBoxMax[1], z.m_adBoxMax[2]);
  return z;
}

bool WriteStepKinds(const std::string& strPath) {
  const gp_Ax3 zAxis(gp_Pnt(5, -3, 2), gp_Dir(1, 2, 2));
  const gp_Ax2 zPlane(gp_Pnt(0, 0, 40), gp_Dir(0, 0.6, 0.8));
  const double dPi = M_PI;
  const auto FaceOf = [](const Handle(Geom_Surface) & zSurface, double u1, double u2, double v1, double v2) {
    return BRepBuilderAPI_MakeFace(zSurface, u1, u2, v1, v2, 1e-7).Face();
  };
  const Handle(Geom_Surface) zTorus = new Geom_ToroidalSurface(zAxis, 20, 5);
  const Handle(Geom_BSplineSurface) zRational = GeomConvert::SurfaceToBSplineSurface(zTorus);
  const Handle(Geom_Surface) zTurned = new Geom_SurfaceOfRevolution(Spline(), gp_Ax1(gp_Pnt(0, -20, 0), gp::DX()));
  const Handle(Geom_BSplineSurface) zHill = Hill();
  Standard_Real u1, u2, v1, v2;
  zHill->Bounds(u1, u2, v1, v2);
  std::vector<TopoDS_Shape> vz;
  vz.push_back(BRepPrimAPI_MakeTorus(zAxis.Ax2(), 20, 5).Shape());
  vz.push_back(BRepPrimAPI_MakeSphere(zAxis.Ax2(), 7).Shape());
  vz.push_back(FaceOf(zTorus, 0.3, 2.5, 6.0, 8.0));  // across the end of the parameters
  vz.push_back(BRepBuilderAPI_MakeFace(zRational, 1e-7).Face());
  vz.push_back(BRepBuilderAPI_MakeFace(zHill, 1e-7).Face());
  vz.push_back(FaceOf(zHill, u1 + 0.2 * (u2 - u1), u1 + 0.7 * (u2 - u1), v1, v1 + 0.55 * (v2 - v1)));
  vz.push_back(FaceOf(new Geom_SurfaceOfLinearExtrusion(Spline(), gp_Dir(0, 1, 3)), 2, 15, -4, 9));
  vz.push_back(FaceOf(zTurned, 1, 4, 1, 16));
  vz.push_back(FaceOf(zTurned, 0, 2 * dPi, 1, 16));
  vz.push_back(FaceOf(new Geom_OffsetSurface(zHill, 1.5), u1, u2, v1, v2));
  vz.push_back(FaceOf(new Geom_ConicalSurface(zAxis, -0.4, 6), 1, 3, 0, 8));
  vz.push_back(FaceOf(new Geom_ConicalSurface(zAxis, 0.4, 6), 1, 3, -30, -20));  // beyond the apex
  vz.push_back(BRepBuilderAPI_MakeEdge(new Geom_Ellipse(zPlane, 9, 4)).Edge());
  vz.push_back(BRepBuilderAPI_MakeEdge(new Geom_Ellipse(zPlane, 9, 4), 5.5, 7.5).Edge());
  vz.push_back(BRepBuilderAPI_MakeEdge(new Geom_Hyperbola(zPlane, 3, 2), -1, 0.7).Edge());
  vz.push_back(BRepBuilderAPI_MakeEdge(Spline()).Edge());
  vz.push_back(BRepBuilderAPI_MakeEdge(Spline(), 2.5, 11).Edge());
  const TopoDS_Edge zLine = BRepBuilderAPI_MakeEdge(gp_Pnt(0, 0, -9), gp_Pnt(5, 0, -9)).Edge();
  const TopoDS_Edge zNext = BRepBuilderAPI_MakeEdge(gp_Pnt(5, 0, -9), gp_Pnt(5, 7, -9)).Edge();
  vz.push_back(BRepBuilderAPI_MakeWire(zLine, zNext).Wire());
  vz.push_back(BRepBuilderAPI_MakeVertex(gp_Pnt(1, 2, 3)).Vertex());
  return Write(strPath, vz);
}

bool WriteStepInches(const std::string& strPath) {
  return Write(strPath, {BRepPrimAPI_MakeBox(25.4, 50.8, 76.2).Shape()}, "INCH");
}

bool WriteStepPoint(const std::string& strPath) {
  return Write(strPath, {BRepBuilderAPI_MakeVertex(gp_Pnt(1, 2, 3)).Vertex()});
}

bool WriteStepStyles(const std::string& strPath) {
  const Handle(TDocStd_Document) zDocument = NewDocument();
  const Handle(XCAFDoc_ShapeTool) zShapes = XCAFDoc_DocumentTool::ShapeTool(zDocument->Main());
  const Handle(XCAFDoc_ColorTool) zColours = XCAFDoc_DocumentTool::ColorTool(zDocument->Main());
  const Handle(XCAFDoc_LayerTool) zLayers = XCAFDoc_DocumentTool::LayerTool(zDocument->Main());
  TopoDS_Compound zBoth;
  BRep_Builder zBuilder;
  zBuilder.MakeCompound(zBoth);
  const TopoDS_Shape zFirst = BRepPrimAPI_MakeBox(10, 10, 10).Shape();
  const TopoDS_Shape zSecond = BRepPrimAPI_MakeBox(gp_Pnt(20, 0, 0), 5, 5, 5).Shape();
  zBuilder.Add(zBoth, zFirst);
  zBuilder.Add(zBoth, zSecond);
  const TDF_Label zPart = zShapes->AddShape(zBoth, Standard_False);
  TDataStd_Name::Set(zPart, TCollection_ExtendedString("Gr\xC3\xB6\xC3\x9F"
                                                       "e \xE9\x83\xA8\xE5\x93\x81",
                                                       Standard_True));
  const TDF_Label zInside = zShapes->AddSubShape(zPart, zSecond);
  zColours->SetColor(zInside, Quantity_Color(1, 0, 0, Quantity_TOC_RGB), XCAFDoc_ColorSurf);
  zLayers->SetLayer(zInside, TCollection_ExtendedString("Inside"));
  TopTools_IndexedMapOfShape zEdges, zFaces;
  TopExp::MapShapes(zFirst, TopAbs_EDGE, zEdges);
  zColours->SetColor(zShapes->AddSubShape(zPart, zEdges(1)), Quantity_Color(0, 1, 0, Quantity_TOC_RGB),
                     XCAFDoc_ColorCurv);
  // One face of the red solid is blue.
  TopExp::MapShapes(zSecond, TopAbs_FACE, zFaces);
  zColours->SetColor(zShapes->AddSubShape(zPart, zFaces(2)), Quantity_Color(0, 0, 1, Quantity_TOC_RGB),
                     XCAFDoc_ColorSurf);
  zLayers->SetLayer(zPart, TCollection_ExtendedString("One"));
  zLayers->SetLayer(zPart, TCollection_ExtendedString("Two"));
  TDF_Label zTwo;
  if (zLayers->FindLayer(TCollection_ExtendedString("Two"), zTwo)) zLayers->SetVisibility(zTwo, Standard_False);
  return WriteDocument(zDocument, strPath);
}

bool WriteStepUsage(const std::string& strPath) {
  const Handle(TDocStd_Document) zDocument = NewDocument();
  const Handle(XCAFDoc_ShapeTool) zShapes = XCAFDoc_DocumentTool::ShapeTool(zDocument->Main());
  const Handle(XCAFDoc_ColorTool) zColours = XCAFDoc_DocumentTool::ColorTool(zDocument->Main());
  const auto Place = [&](const TDF_Label& zAssembly, const TDF_Label& zShape, double dX, const char* szName) {
    gp_Trsf zWhere;
    zWhere.SetTranslation(gp_Vec(dX, 0, 0));
    const TDF_Label zPlace = zShapes->AddComponent(zAssembly, zShape, TopLoc_Location(zWhere));
    TDataStd_Name::Set(zPlace, TCollection_ExtendedString(szName));
    return zPlace;
  };
  const TDF_Label zBox = zShapes->AddShape(BRepPrimAPI_MakeBox(1, 1, 1).Shape(), Standard_False);
  TDataStd_Name::Set(zBox, TCollection_ExtendedString("Box"));
  zColours->SetColor(zBox, Quantity_Color(0, 1, 0, Quantity_TOC_RGB), XCAFDoc_ColorSurf);
  const TDF_Label zSub = zShapes->NewShape(), zWhole = zShapes->NewShape();
  TDataStd_Name::Set(zSub, TCollection_ExtendedString("Sub"));
  TDataStd_Name::Set(zWhole, TCollection_ExtendedString("Whole"));
  const TDF_Label zInner = Place(zSub, zBox, 3, "Inner");
  Place(zWhole, zSub, 10, "Left");
  const TDF_Label zRight = Place(zWhole, zSub, 20, "Right");
  zShapes->UpdateAssemblies();
  TDF_LabelSequence zWay;
  zWay.Append(zRight);
  zWay.Append(zInner);
  Handle(XCAFDoc_GraphNode) zUsage;
  if (!zShapes->SetSHUO(zWay, zUsage)) return false;
  zColours->SetColor(zUsage->Label(), Quantity_Color(1, 0, 0, Quantity_TOC_RGB), XCAFDoc_ColorSurf);
  return WriteDocument(zDocument, strPath);
}

bool WriteStepReference(const std::string& strPath) {
  const Handle(TDocStd_Document) zDocument = NewDocument();
  const Handle(XCAFDoc_ShapeTool) zShapes = XCAFDoc_DocumentTool::ShapeTool(zDocument->Main());
  const TDF_Label zBox = zShapes->AddShape(BRepPrimAPI_MakeBox(2, 3, 4).Shape(), Standard_False);
  TDataStd_Name::Set(zBox, TCollection_ExtendedString("Box"));
  const TDF_Label zWhole = zShapes->NewShape();
  TDataStd_Name::Set(zWhole, TCollection_ExtendedString("Whole"));
  gp_Trsf zWhere;
  zWhere.SetTranslation(gp_Vec(5, 0, 0));
  zShapes->AddComponent(zWhole, zBox, TopLoc_Location(zWhere));
  zShapes->UpdateAssemblies();
  return WriteDocument(zDocument, strPath, "part-");
}

}  // namespace kivtest
