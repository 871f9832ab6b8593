#include "KivToolTestModel.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

#include "KivFormatRegistry.h"
#include "KivModelMeaning.h"
#include "KivSysFolder.h"
#include "KivTestFolder.h"
#include "KivToolModel.h"

using namespace kiv;

namespace kivtest {

void AddSquare(KivMemoryBlockFaceEdge& zMesh, uint32_t iId, float fSize, float fZ) {
  KivMeshFace& zFace = zMesh.AddFace();
  zFace.m_iId = iId;
  zFace.m_iVertexCount = 4;
  zFace.m_iTriangleCount = 2;
  zFace.m_vfVertex = {0, 0, fZ, fSize, 0, fZ, fSize, fSize, fZ, 0, fSize, fZ};
  zFace.m_vfNormal = {0, 0, 1, 0, 0, 1, 0, 0, 1, 0, 0, 1};
  zFace.m_viIndex = {0, 1, 2, 0, 2, 3};
  KivMeshEdge& zEdge = zMesh.AddEdge();
  zEdge.m_iId = iId;
  zEdge.m_iVertexCount = 5;
  zEdge.m_vfVertex = {0, 0, fZ, fSize, 0, fZ, fSize, fSize, fZ, 0, fSize, fZ, 0, 0, fZ};
}

ToolModelParts FillToolModel(KivModelBuilder& z) {
  ToolModelParts zParts;
  z.SetLevels({1.0f, 0.1f});
  zParts.m_iBolt = z.AddPart();
  zParts.m_iPlate = z.AddPart();
  AddSquare(z.FaceEdge(zParts.m_iBolt, 0), 1, 10, 0);
  AddSquare(z.FaceEdge(zParts.m_iBolt, 1), 1, 10, 0);
  AddSquare(z.FaceEdge(zParts.m_iBolt, 1), 2, 10, 5);
  AddSquare(z.FaceEdge(zParts.m_iPlate, 0), 1, 100, 0);
  KivSetColour(z.FaceEdge(zParts.m_iBolt, 1).m_vzFace[0].m_vzAttribute, {1, 0, 0, 1});
  KivSetLayer(z.FaceEdge(zParts.m_iBolt, 1).m_vzFace[1].m_vzAttribute, 2);

  KivBrepEntry& zPlane = z.Brep(zParts.m_iBolt).AddGeometry(kBrepAnalyticKind);
  zPlane.m_iGeometryId = KivGeometryId{1, KivGeometryUse::Face, 0}.Pack();
  zPlane.m_vcGeometry.assign(50, 0);
  zPlane.m_vcGeometry[0] = 64;
  zPlane.m_vcGeometry[1] = static_cast<uint8_t>(KivAnalytic::Plane);
  KivStore<double>(zPlane.m_vcGeometry.data() + 42, 1.0);
  z.Vertices(zParts.m_iPlate).AddVertex().m_iVertexData = {1, 2, 3, 4, 5, 6, 7};

  zParts.m_iRoot = z.AddNode(u"machine");
  zParts.m_iGroup = z.AddNode(u"group", zParts.m_iRoot);
  const size_t iLeft = z.AddNode(u"left", zParts.m_iGroup);
  const size_t iRight = z.AddNode(u"right", zParts.m_iGroup);
  const size_t iPlate = z.AddNode(u"plate \u00e4", zParts.m_iRoot);
  KivEMatrix4 zGroup, zRight;
  zGroup.Translate({0, 0, 50});
  zRight.RotateZ(1.5707963267948966);
  zRight.Translate({20, 0, 0});
  z.Node(zParts.m_iGroup).m_zMatrix = zGroup;
  z.Node(iRight).m_zMatrix = zRight;
  z.Node(iLeft).m_strNodeName[1] = u"bolt";
  z.Node(iRight).m_strNodeName[1] = u"bolt";
  KivSetColour(z.Node(iPlate).m_vzAttribute, {0, 0, 1, 0.5f});
  KivSetLayer(z.Node(iPlate).m_vzAttribute, 1);
  z.PlaceInstance(zParts.m_iBolt, zGroup, iLeft);
  z.PlaceInstance(zParts.m_iBolt, zRight * zGroup, iRight);
  z.PlaceInstance(zParts.m_iPlate, KivEMatrix4(), iPlate);

  z.PMI(iPlate).AddPMI().m_viPMIInts = {1, 2};
  KivLayerFilterEntry& zLayers = z.LayerFilter(zParts.m_iRoot).AddFilter();
  zLayers.m_strFilterName = u"plates";
  zLayers.m_vzLayer = {{1, true}, {2, false}};
  z.Camera(zParts.m_iRoot).AddView().m_strViewName = u"front";
  z.PermanentIds().m_vstrPermanentId = {u"one", u"two"};
  KivSetUnit(z.NoteAttributes(), 0.001);
  return zParts;
}

void MakeToolModel(const KivWString& csPath) {
  KivPrepareToolProcess();
  KivModelBuilder zBuilder;
  FillToolModel(zBuilder);
  ASSERT_TRUE(zBuilder.Save(csPath));
}

namespace {

// As std::filesystem sees it.
std::string TextOf(const KivWString& csFile) {
  std::ifstream zFile(std::filesystem::path(csFile), std::ios::binary);
  std::stringstream zText;
  zText << zFile.rdbuf();
  return zText.str();
}

}  // namespace

KivWString KivProgramPath() {
  KivWString csProgram;
  EXPECT_TRUE(sys::ProgramPath(csProgram));
  const std::filesystem::path zFolder = std::filesystem::path(csProgram).parent_path().parent_path() / "bin";
  return zFolder.u16string() + sys::kSeparator + u"kiv" + KivWString(sys::kExecutableSuffix);
}

ToolRun RunKiv(const std::vector<KivWString>& vcsArguments) {
  const TestFolder zFolder;
  const KivWString csOut = zFolder / u"out", csErr = zFolder / u"err";
  KivWString csLine = u"\"" + KivProgramPath() + u"\"";
  for (const KivWString& cs : vcsArguments) csLine += u" \"" + cs + u"\"";
  std::string strLine = sys::WideToUtf8(csLine + u" >\"" + csOut + u"\" 2>\"" + csErr + u"\"");
  if (sys::kSeparator == u'\\') strLine = "\"" + strLine + "\"";  // the shell there takes off one pair of quotes
  const int iStatus = std::system(strLine.c_str());
  ToolRun zRun;
  zRun.m_iExit = sys::kSeparator == u'\\' ? iStatus : (iStatus & 0x7F) != 0 ? -iStatus : iStatus >> 8 & 0xFF;
  zRun.m_strOut = TextOf(csOut);
  zRun.m_strErr = TextOf(csErr);
  std::erase(zRun.m_strOut, '\r');
  std::erase(zRun.m_strErr, '\r');
  return zRun;
}

}  // namespace kivtest
