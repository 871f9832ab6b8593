// kiv import of STEP files, compared with what the library of shapes reads in them. Empty where that library is not.
#if __has_include(<STEPControl_Reader.hxx>)

#include <gtest/gtest.h>
#include <BRepBndLib.hxx>
#include <BRepGProp.hxx>
#include <BRepMesh_IncrementalMesh.hxx>
#include <BRep_Tool.hxx>
#include <Bnd_Box.hxx>
#include <GProp_GProps.hxx>
#include <Poly_Triangulation.hxx>
#include <STEPControl_Reader.hxx>
#include <TopExp.hxx>
#include <TopTools_IndexedMapOfShape.hxx>
#include <TopoDS.hxx>
#include <TopoDS_Edge.hxx>
#include <TopoDS_Face.hxx>
#include <TopoDS_Shape.hxx>

#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "KivGltfValidator.h"
#include "KivModelMeasure.h"
#include "KivTestFolder.h"
#include "KivToolTestModel.h"

namespace {

using namespace kiv;
using namespace kivtest;

struct Shape {
  Shape(const std::string& strPath, double dFinest) {
    STEPControl_Reader zReader;
    EXPECT_EQ(zReader.ReadFile(strPath.c_str()), IFSelect_RetDone);
    zReader.TransferRoots();
    const TopoDS_Shape zShape = zReader.OneShape();
    Bnd_Box zBox;
    BRepBndLib::AddOptimal(zShape, zBox, Standard_False, Standard_False);
    zBox.Get(m_adLow[0], m_adLow[1], m_adLow[2], m_adHigh[0], m_adHigh[1], m_adHigh[2]);
    GProp_GProps zProperties;
    BRepGProp::SurfaceProperties(zShape, zProperties);
    m_dArea = zProperties.Mass();
    TopTools_IndexedMapOfShape zFaces, zEdges;
    TopExp::MapShapes(zShape, TopAbs_FACE, zFaces);
    TopExp::MapShapes(zShape, TopAbs_EDGE, zEdges);
    m_nFaces = zFaces.Extent();
    for (int i = 1; i <= zEdges.Extent(); ++i) m_nEdges += BRep_Tool::Degenerated(TopoDS::Edge(zEdges(i))) ? 0 : 1;
    // As docs/step.md says.
    const BRepMesh_IncrementalMesh zMesher(zShape, dFinest, Standard_False, 0.8, Standard_False);
    for (int i = 1; i <= m_nFaces; ++i) {
      TopLoc_Location zLocation;
      m_nTriangles += BRep_Tool::Triangulation(TopoDS::Face(zFaces(i)), zLocation)->NbTriangles();
    }
  }
  double m_adLow[3], m_adHigh[3];
  double m_dArea;
  int m_nFaces, m_nEdges = 0, m_nTriangles = 0;
};

void ImportLikeTheLibrary(const char* szName, const char* szFinest) {
  const double dFinest = std::atof(szFinest);
  const std::string strPath = std::string(KIV_TEST_OCCT_DATA "/step/") + szName;
  ASSERT_TRUE(std::filesystem::exists(strPath)) << strPath << ": the package occt-misc has it";
  const TestFolder zFolder;
  const KivWString csModel = zFolder / u"model.kiv";
  const ToolRun zRun = RunKiv(
      {u"import", sys::Utf8ToWide(strPath), csModel, u"--json", u"--tolerance", u"0.1," + sys::Utf8ToWide(szFinest)});
  ASSERT_EQ(zRun.m_iExit, 0) << zRun.m_strErr;
  const ToolRun zCheck = RunKiv({u"check", csModel});
  EXPECT_EQ(zCheck.m_iExit, 0) << zCheck.m_strOut;
  EXPECT_NE(zCheck.m_strOut.find(": 0 errors, 0 warnings; "), std::string::npos) << zCheck.m_strOut;
  const KivWString csExport = zFolder / u"model.glb";
  const ToolRun zExport = RunKiv({u"export", csModel, csExport, u"--edges"});
  EXPECT_EQ(zExport.m_iExit, 0) << zExport.m_strErr;
  ValidateGltf({csExport});
  const Shape zShape(strPath, dFinest);
  const nlohmann::json zSummary = nlohmann::json::parse(zRun.m_strOut);
  EXPECT_EQ(zSummary["faces"], zShape.m_nFaces);
  EXPECT_EQ(zSummary["edges"], zShape.m_nEdges);
  EXPECT_EQ(zSummary["parts"], 1);
  EXPECT_GT(zSummary["geometries"], zShape.m_nFaces);
  EXPECT_EQ(zSummary["levels"][1]["triangles"], zShape.m_nTriangles);
  const Measure zModel = MeasureModel(csModel);
  EXPECT_EQ(zModel.m_nTriangles, static_cast<uint64_t>(zShape.m_nTriangles));
  EXPECT_NEAR(zModel.m_dArea, zShape.m_dArea, 1e-3 * zShape.m_dArea);
  for (size_t i = 0; i < 3; ++i) {  // the tolerance, and the step of coordinates
    EXPECT_NEAR(zModel.m_zBox.m_adLow[i], zShape.m_adLow[i], 1.2 * dFinest);
    EXPECT_NEAR(zModel.m_zBox.m_adHigh[i], zShape.m_adHigh[i], 1.2 * dFinest);
  }
  EXPECT_GT(zModel.m_dVolume, 0);
  ExpectSameForm(MeasureSource(csExport), zModel, 0.001);  // metres
}

}  // namespace

TEST(ImportStep, AToleranceThatIsTooFineIsRefusedAndSaid) {
  const TestFolder zFolder;
  const std::string strPath = KIV_TEST_OCCT_DATA "/step/screw.step";
  const ToolRun zRun =
      RunKiv({u"import", sys::Utf8ToWide(strPath), zFolder / u"model.kiv", u"--tolerance", u"0.1,0.0000009"});
  EXPECT_EQ(zRun.m_iExit, 2);
  EXPECT_NE(zRun.m_strErr.find("no tolerance below 0.000001 millimetres"), std::string::npos) << zRun.m_strErr;
  EXPECT_TRUE(std::filesystem::is_empty(zFolder.Path()));
}

TEST(ImportStep, AScrewIsAsTheLibraryReadsIt) {
  ImportLikeTheLibrary("screw.step", "0.01");
}
TEST(ImportStep, ARodOfManyFreeFormsIsAsTheLibraryReadsIt) {
  ImportLikeTheLibrary("linkrods.step", "0.001");
}

TEST(ImportStep, TheSameFileGivesTheSameModel) {
  const TestFolder zFolder;
  const KivWString csSource = sys::Utf8ToWide(KIV_TEST_OCCT_DATA "/step/screw.step");
  for (const char16_t* szName : {u"a.kiv", u"b.kiv"})
    EXPECT_EQ(RunKiv({u"import", csSource, zFolder / szName, u"--tolerance", u"1,0.1"}).m_iExit, 0);
  EXPECT_GT(zFolder.ReadBytes(u"a.kiv").size(), 300000u);
  EXPECT_TRUE(zFolder.ReadBytes(u"a.kiv") == zFolder.ReadBytes(u"b.kiv"));
}

#endif
