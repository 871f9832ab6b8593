// kiv import on real files, compared with what the library of formats reads in them.
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <set>

#include "KivGltfValidator.h"
#include "KivModelMeasure.h"
#include "KivSysFolder.h"
#include "KivTestFolder.h"
#include "KivToolTestModel.h"

namespace {

using namespace kiv;
using namespace kivtest;
namespace fs = std::filesystem;

const fs::path kModels = KIV_TEST_ASSIMP_MODELS;
const fs::path kShapes = KIV_TEST_OCCT_DATA;

bool OnWindows() {
  return sys::kSeparator == u'\\';
}

KivWString Wide(const fs::path& zPath) {
  return zPath.u16string();
}

std::vector<fs::path> FilesBelow(const fs::path& zFolder, const std::set<std::string>& setSuffix) {
  std::vector<fs::path> vzFile;
  if (!fs::is_directory(zFolder)) return vzFile;
  for (const fs::directory_entry& z : fs::recursive_directory_iterator(zFolder)) {
    std::string strSuffix = z.path().extension().string();
    for (char& c : strSuffix) c = static_cast<char>(std::tolower(c));
    if (z.is_regular_file() && setSuffix.count(strSuffix) != 0 && z.file_size() < 10000000) vzFile.push_back(z.path());
  }
  std::sort(vzFile.begin(), vzFile.end());
  return vzFile;
}

class Import : public testing::Test {
 protected:
  // The import, the check of what it made, and the export, which has the same form.
  nlohmann::json ImportAndCheck(const fs::path& zPath) {
    const ToolRun zRun = RunKiv({u"import", Wide(zPath), m_csTarget, u"--force", u"--json"});
    EXPECT_EQ(zRun.m_iExit, 0) << zRun.m_strErr;
    if (zRun.m_iExit != 0) return nlohmann::json();
    const ToolRun zCheck = RunKiv({u"check", m_csTarget});
    EXPECT_EQ(zCheck.m_iExit, 0) << zCheck.m_strErr;
    EXPECT_NE(zCheck.m_strOut.find(": 0 errors, 0 warnings; "), std::string::npos) << zCheck.m_strOut;
    const KivWString csExport = m_zFolder / (sys::Utf8ToWide(std::to_string(m_vcsExport.size())) + u".glb");
    const ToolRun zExport = RunKiv({u"export", m_csTarget, csExport, u"--edges"});
    EXPECT_EQ(zExport.m_iExit, 0) << zExport.m_strErr;
    m_vcsExport.push_back(csExport);
    m_zModel = MeasureModel(m_csTarget);
    ExpectSameForm(MeasureSource(csExport), m_zModel);
    return nlohmann::json::parse(zRun.m_strOut);
  }

  void ImportLikeTheLibrary(const fs::path& zPath) {
    SCOPED_TRACE(zPath.string());
    const nlohmann::json zSummary = ImportAndCheck(zPath);
    if (zSummary.is_null()) return;
    ExpectSameForm(m_zModel, MeasureSource(zPath));
    const auto& zLevels = zSummary["levels"];
    ASSERT_EQ(zLevels.size(), 3u);
    EXPECT_LE(zLevels[0]["triangles"], zLevels[1]["triangles"]);
    EXPECT_LE(zLevels[1]["triangles"], zLevels[2]["triangles"]);
  }

  // One line, exit code 2, and nothing in the folder that was not there.
  void ExpectRefused(const std::vector<KivWString>& vcsArguments) {
    const size_t nBefore = NumInFolder();
    const ToolRun zRun = RunKiv(vcsArguments);
    EXPECT_EQ(zRun.m_iExit, 2);
    EXPECT_EQ(zRun.m_strOut, "");
    EXPECT_EQ(std::count(zRun.m_strErr.begin(), zRun.m_strErr.end(), '\n'), 1) << zRun.m_strErr;
    EXPECT_EQ(NumInFolder(), nBefore);
  }
  size_t NumInFolder() const {
    return static_cast<size_t>(std::distance(fs::directory_iterator(m_zFolder.Path()), fs::directory_iterator()));
  }

  // All files of a folder but those whose names, from the folder on, are listed: they are refused, or have placements
  // of their own.
  void ImportFolder(const fs::path& zFolder, const std::set<std::string>& setSuffix,
                    const std::set<std::string>& setRefused, size_t nAtLeast,
                    const std::set<std::string>& setPlaced = {}) {
    const std::vector<fs::path> vzFile = FilesBelow(zFolder, setSuffix);
    ASSERT_GE(vzFile.size(), nAtLeast) << zFolder << ": the packages assimp-testmodels and occt-misc have these files";
    for (const fs::path& zPath : vzFile) {
      const std::string strName = fs::relative(zPath, zFolder).generic_string();
      if (setPlaced.count(strName) != 0) continue;
      if (setRefused.count(strName) == 0) {
        ImportLikeTheLibrary(zPath);
        continue;
      }
      SCOPED_TRACE(zPath.string());
      fs::remove(m_csTarget);
      ExpectRefused({u"import", Wide(zPath), m_csTarget});
    }
    if (!m_vcsExport.empty()) ValidateGltf(m_vcsExport);
  }

  std::vector<KivWString> m_vcsExport;
  Measure m_zModel;
  TestFolder m_zFolder;
  const KivWString m_csTarget = m_zFolder / u"model.kiv";
};

constexpr char kTriangle[] = "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n";

}  // namespace

TEST_F(Import, StlFilesAreAsTheLibraryReadsThem) {
  ImportFolder(kModels / "STL", {".stl"}, {}, 6);
}
TEST_F(Import, StlFilesOfTheShapeLibraryAreAsTheLibraryReadsThem) {
  ImportFolder(kShapes / "stl", {".stl"}, {}, 3);
}
TEST_F(Import, ObjFilesAreAsTheLibraryReadsThem) {
  ImportFolder(kModels / "OBJ", {".obj"},
               {"box_UTF16BE.obj", "number_formats.obj" /* 3.1+e2 */, "point_cloud.obj", "testpoints.obj"}, 15);
}
TEST_F(Import, PlyFilesAreAsTheLibraryReadsThem) {
  ImportFolder(kModels / "PLY", {".ply"}, {"issue623.ply", "points.ply", "pond.0.ply"}, 5);
}
TEST_F(Import, FilesThatAreMeantToBeBadAreRefused) {
  ImportFolder(kModels / "invalid", {".obj", ".ply"}, {"empty.obj", "empty.ply", "malformed.obj", "malformed2.obj"}, 4);
}
TEST_F(Import, GltfFilesOfTheFirstVersionAreAsTheLibraryReadsThem) {
  ImportFolder(kModels / "glTF", {".gltf", ".glb"}, {"BoxTextured-glTF-Binary/BoxTextured.glb"}, 5,
               {"CesiumMilkTruck/CesiumMilkTruck.gltf"});
}
// The library turns the translations of its two axles, which stand at one height then no more.
TEST_F(Import, AGltfOfTheFirstVersionKeepsTranslationsBesideRotations) {
  ImportAndCheck(kModels / "glTF/CesiumMilkTruck/CesiumMilkTruck.gltf");
  EXPECT_NEAR(m_zModel.m_zBox.m_adLow[1], 0.00145, 1e-4);  // their height without the radius of a wheel
}
TEST_F(Import, GltfFilesAreAsTheLibraryReadsThem) {
  std::set<std::string> setRefused = {
      "BoxWithInfinites-glTF-Binary/BoxWithInfinites.glb",
      "IndexOutOfRange/AllIndicesOutOfRange.gltf",
      "IndexOutOfRange/IndexOutOfRange.gltf",  // one of 36 indices is 255, of 24 corners
      "MissingBin/BoxTextured.gltf",
      "RecursiveNodes/RecursiveNodes.gltf",
      "SchemaFailures/sceneWrongType.gltf",
      "TestNoRootNode/NoScene.gltf",
      "TestNoRootNode/SceneWithoutNodes.gltf",
      "glTF-Asset-Generator/Mesh_PrimitiveMode/Mesh_PrimitiveMode_00.gltf",
      "glTF-Asset-Generator/Mesh_PrimitiveMode/Mesh_PrimitiveMode_07.gltf",
      "issue_3269/texcoord_crash.gltf",
      "wrongTypes/badArray.gltf",
      "wrongTypes/badExtension.gltf",
      "wrongTypes/badNumber.gltf",
      "wrongTypes/badObject.gltf",
      "wrongTypes/badString.gltf",
      "wrongTypes/badUint.gltf",
  };
  if (OnWindows()) setRefused.insert("draco/2CylinderEngine.gltf");  // its build is without that library
  ImportFolder(kModels / "glTF2", {".gltf", ".glb"}, setRefused, 30);
}

TEST_F(Import, TheSameFileGivesTheSameModel) {
  const fs::path zPath = kModels / "glTF2/2CylinderEngine-glTF-Binary/2CylinderEngine.glb";
  std::string astrModel[2], astrExport[2];
  for (size_t i = 0; i < 2; ++i) {
    ImportAndCheck(zPath);
    astrModel[i] = m_zFolder.ReadBytes(u"model.kiv");
    astrExport[i] = m_zFolder.ReadBytes(i == 0 ? u"0.glb" : u"1.glb");
  }
  EXPECT_GT(astrModel[0].size(), 300000u);
  EXPECT_TRUE(astrModel[0] == astrModel[1]);
  EXPECT_TRUE(astrExport[0] == astrExport[1]);
}

TEST_F(Import, LevelsAreThoseThatAreAskedFor) {
  m_zFolder.WriteBytes(u"a.obj", kTriangle);
  const ToolRun zRun = RunKiv({u"import", m_zFolder / u"a.obj", m_csTarget, u"--json", u"--tolerance", u"0.5,0.25"});
  ASSERT_EQ(zRun.m_iExit, 0) << zRun.m_strErr;
  const nlohmann::json zSummary = nlohmann::json::parse(zRun.m_strOut);
  ASSERT_EQ(zSummary["levels"].size(), 2u);
  EXPECT_EQ(zSummary["levels"][1]["tolerance"], 0.25);
  EXPECT_EQ(zSummary["faces"], 1);
}

TEST_F(Import, AnExistingTargetStaysWithoutForce) {
  m_zFolder.WriteBytes(u"a.obj", kTriangle);
  m_zFolder.WriteBytes(u"model.kiv", "mine");
  ExpectRefused({u"import", m_zFolder / u"a.obj", m_csTarget});
  EXPECT_EQ(m_zFolder.ReadBytes(u"model.kiv"), "mine");
  // Nor is it touched when the source turns out to be bad.
  m_zFolder.WriteBytes(u"bad.obj", "f 1 2 3\n");
  ExpectRefused({u"import", m_zFolder / u"bad.obj", m_csTarget, u"--force"});
  EXPECT_EQ(m_zFolder.ReadBytes(u"model.kiv"), "mine");
  EXPECT_EQ(RunKiv({u"import", m_zFolder / u"a.obj", m_csTarget, u"--force"}).m_iExit, 0);
  EXPECT_NE(m_zFolder.ReadBytes(u"model.kiv"), "mine");
  EXPECT_EQ(RunKiv({u"import", m_zFolder / u"a.obj", m_zFolder / u"B.KIV"}).m_iExit, 0);
}

TEST_F(Import, PlacesAndNamesThatDoNotServeAreRefused) {
  m_zFolder.WriteBytes(u"a.obj", kTriangle);
  m_zFolder.WriteBytes(u"a.xyz", kTriangle);
  m_zFolder.WriteBytes(u"obj", kTriangle);
  ExpectRefused({u"import", m_zFolder / u"a.obj", m_zFolder / u"missing" + KivWString(1, sys::kSeparator) + u"m.kiv"});
  for (const char16_t* szName : {u"a.obj", u"a.mtl", u"model", u"m.kiv.obj"})
    ExpectRefused({u"import", m_zFolder / u"a.obj", m_zFolder / szName, u"--force"});
  m_zFolder.WriteBytes(u"a.kiv", kTriangle);
  ExpectRefused({u"import", m_zFolder / u"a.kiv", m_zFolder / u"a.kiv", u"--format", u"obj", u"--force"});
  EXPECT_EQ(m_zFolder.ReadBytes(u"a.obj"), kTriangle);
  EXPECT_EQ(m_zFolder.ReadBytes(u"a.kiv"), kTriangle);
  ExpectRefused({u"import", m_zFolder / u"a.obj", m_zFolder.Path(), u"--force"});
  ExpectRefused({u"import", m_zFolder / u"a.xyz", m_csTarget});
  ExpectRefused({u"import", m_zFolder / u"obj", m_csTarget});
  ExpectRefused({u"import", m_zFolder / u"missing.stl", m_csTarget});
  ExpectRefused({u"import", m_zFolder.Path(), m_csTarget});
}

TEST_F(Import, AFormatThatIsNamedCountsWhateverTheNameOfTheFileIs) {
  m_zFolder.WriteBytes(u"a.xyz", kTriangle);
  m_zFolder.WriteBytes(u"b.stl", kTriangle);
  for (const char16_t* szName : {u"a.xyz", u"b.stl"})
    EXPECT_EQ(RunKiv({u"import", m_zFolder / szName, m_csTarget, u"--format", u"obj", u"--force"}).m_iExit, 0);
  ExpectRefused({u"import", m_zFolder / u"b.stl", m_csTarget, u"--force"});
  for (const char16_t* szFormat : {u"xyz", u"OBJ", u".obj"})
    ExpectRefused({u"import", m_zFolder / u"a.xyz", m_csTarget, u"--format", szFormat});
}

TEST_F(Import, ASourceOfTrianglesWithTwoCornersAtOnePlaceAloneIsRefused) {
  m_zFolder.WriteBytes(u"a.obj", "v 0 0 0\nv 1 0 0\nv 1 0 0\nf 1 2 3\nf 1 1 2\n");
  ExpectRefused({u"import", m_zFolder / u"a.obj", m_csTarget});
}

TEST_F(Import, TolerancesAndAnglesThatMakeNoSenseAreRefused) {
  m_zFolder.WriteBytes(u"a.obj", kTriangle);
  for (const char16_t* sz : {u"0", u"-1", u"x", u"0.1,1", u"1,1", u"1e300", u"1e-300"})
    ExpectRefused({u"import", m_zFolder / u"a.obj", m_csTarget, u"--tolerance", sz});
  for (const char16_t* sz : {u"-1", u"181", u"x", u"10,20"})
    ExpectRefused({u"import", m_zFolder / u"a.obj", m_csTarget, u"--angle", sz});
}

TEST_F(Import, AnEmptyEntryAmongTolerancesIsRefused) {
  m_zFolder.WriteBytes(u"a.obj", kTriangle);
  for (const char16_t* sz : {u"1,,0.1", u"1,", u",1", u",", u""}) {
    ExpectRefused({u"import", m_zFolder / u"a.obj", m_csTarget, u"--tolerance", sz});
    EXPECT_NE(
        RunKiv({u"import", m_zFolder / u"a.obj", m_csTarget, u"--tolerance", sz}).m_strErr.find("'' is no number"),
        std::string::npos);
  }
}

TEST_F(Import, TolerancesOfAnOptionThatStandsAgainComeBehindTheOthers) {
  m_zFolder.WriteBytes(u"a.obj", kTriangle);
  const ToolRun zRun = RunKiv({u"import", m_zFolder / u"a.obj", m_csTarget, u"--json", u"--tolerance", u"1", u"0.5",
                               u"--tolerance", u"0.25,0.125"});
  ASSERT_EQ(zRun.m_iExit, 0) << zRun.m_strErr;
  const nlohmann::json zLevels = nlohmann::json::parse(zRun.m_strOut)["levels"];
  ASSERT_EQ(zLevels.size(), 4u);
  EXPECT_EQ(zLevels[3]["tolerance"], 0.125);
}

TEST_F(Import, AFormatThatIsEmptyIsRefused) {
  m_zFolder.WriteBytes(u"a.obj", kTriangle);
  ExpectRefused({u"import", m_zFolder / u"a.obj", m_csTarget, u"--format", u""});
}

TEST_F(Import, FilesWithoutANameAreSaid) {
  m_zFolder.WriteBytes(u"a.obj", kTriangle);
  EXPECT_EQ(RunKiv({u"import", u"", m_csTarget}).m_strErr, "kiv: the file has no name\n");
  EXPECT_EQ(RunKiv({u"import", m_zFolder / u"a.obj", u""}).m_strErr, "kiv: the target has no name\n");
  EXPECT_EQ(RunKiv({u"export", m_zFolder / u"a.kiv", u""}).m_strErr, "kiv: the target has no name\n");
}

TEST_F(Import, EmptyCutRandomAndForeignBytesAreRefused) {
  std::string strRandom;
  for (uint32_t i = 0, n = 1; i < 3000; ++i) strRandom += static_cast<char>((n = n * 1664525 + 1013904223) >> 24);
  const std::map<KivWString, std::string> mapGood = {
      {u"stl",
       "solid a\nfacet normal 0 0 1\nouter loop\nvertex 0 0 0\nvertex 1 0 0\nvertex 0 1 0\nendloop\nendfacet\n"
       "endsolid a\n"},
      {u"ply",
       "ply\nformat ascii 1.0\nelement vertex 3\nproperty float x\nproperty float y\nproperty float z\n"
       "element face 1\nproperty list uchar int vertex_indices\nend_header\n0 0 0\n1 0 0\n0 1 0\n3 0 1 2\n"},
      {u"obj", kTriangle},
      {u"gltf", "{\"asset\":{\"version\":\"2.0\"}}"},
      {u"glb", "glTF"},
      {u"step", "ISO-10303-21;\nHEADER;\n"},
  };
  for (const auto& [csSuffix, strGood] : mapGood) {
    SCOPED_TRACE(sys::WideToUtf8(csSuffix));
    const KivWString csName = u"bad." + csSuffix;
    const KivWString csForeign = csSuffix == u"ply" ? u"stl" : u"ply";
    for (const std::string& strBad : {std::string(), strRandom, strGood.substr(0, strGood.size() / 2),
                                      mapGood.at(csForeign), std::string(500, '\0'), std::string("\n")}) {
      m_zFolder.WriteBytes(csName, strBad);
      ExpectRefused({u"import", m_zFolder / csName, m_csTarget});
    }
  }
}
