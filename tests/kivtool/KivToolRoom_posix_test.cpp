// kiv where something is missing: a reader, room on a disk; and names that are bytes.
#ifndef _WIN32

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include "KivSysFolder.h"
#include "KivTestFolder.h"
#include "KivTestPipe.h"
#include "KivToolTestModel.h"

namespace {

using namespace kiv;
using namespace kivtest;

constexpr char kTriangle[] = "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n";

// A line of the shell behind "cd FOLDER &&", with KIV for the program; what it says to standard error is in "errors".
int RunLine(const TestFolder& zFolder, std::string strLine) {
  for (size_t i = 0; (i = strLine.find("KIV")) != std::string::npos;)
    strLine.replace(i, 3, "'" + sys::WideToUtf8(KivProgramPath()) + "'");
  const int iStatus =
      std::system(("cd '" + sys::WideToUtf8(zFolder.Path()) + "' && { " + strLine + "; } 2>errors").c_str());
  return (iStatus & 0x7F) != 0 ? -iStatus : iStatus >> 8 & 0xFF;
}

void ExpectOneLine(const TestFolder& zFolder, const std::string& strPart) {
  const std::string strErrors = zFolder.ReadBytes(u"errors");
  EXPECT_EQ(std::count(strErrors.begin(), strErrors.end(), '\n'), 1) << strErrors;
  EXPECT_NE(strErrors.find(strPart), std::string::npos) << strErrors;
}

size_t NumIn(const TestFolder& zFolder) {
  return static_cast<size_t>(std::distance(std::filesystem::directory_iterator(std::filesystem::path(zFolder.Path())),
                                           std::filesystem::directory_iterator()));
}

}  // namespace

TEST(ToolRoom, AReaderThatIsNotInstalledIsSaid) {
  const TestFolder zFolder;
  zFolder.WriteBytes(u"a.obj", kTriangle);
  std::filesystem::copy_file(std::filesystem::path(KivProgramPath()), std::filesystem::path(zFolder / u"kiv"));
  EXPECT_EQ(RunLine(zFolder, "./kiv import a.obj a.kiv"), 2);
  ExpectOneLine(zFolder, "the program kiv-read-mesh is not installed beside kiv");
  EXPECT_EQ(NumIn(zFolder), 3u);
}

TEST(ToolRoom, APipeIsNoSourceAndNoModel) {
  const TestFolder zFolder;
  for (const char16_t* szName : {u"pipe.stl", u"pipe.step", u"pipe.kiv"}) ASSERT_TRUE(MakePipe(zFolder, szName));
  for (const char* szCommand : {"import pipe.stl a.kiv", "info pipe.kiv", "export pipe.kiv a.glb"}) {
    EXPECT_EQ(RunLine(zFolder, "KIV " + std::string(szCommand)), 2) << szCommand;
    ExpectOneLine(zFolder, "is no regular file");
  }
  EXPECT_EQ(NumIn(zFolder), 4u);
}

TEST(ToolRoom, AFullDeviceBehindStandardOutputIsSaidAndTheTargetStands) {
  const TestFolder zFolder;
  MakeToolModel(zFolder / u"m.kiv");
  for (const char* szCommand : {"info m.kiv", "tree m.kiv --json", "export m.kiv m.glb"}) {
    EXPECT_EQ(RunLine(zFolder, "KIV " + std::string(szCommand) + " >/dev/full"), 2) << szCommand;
    ExpectOneLine(zFolder, "standard output cannot be written");
  }
  EXPECT_EQ(NumIn(zFolder), 3u);
}

// A file may have 100 blocks here: enough for the scene, and not for the model.
TEST(ToolRoom, WhereATargetHasNoRoomNothingHalfStays) {
  const TestFolder zFolder;
  zFolder.WriteBytes(u"a.obj", kTriangle);
  zFolder.WriteBytes(u"a.kiv", "old");
  EXPECT_EQ(RunLine(zFolder, "ulimit -f 100; KIV import a.obj a.kiv --force >out"), 2);
  ExpectOneLine(zFolder, "a.kiv: cannot be written whole");
  EXPECT_EQ(zFolder.ReadBytes(u"a.kiv"), "old");
  EXPECT_EQ(zFolder.ReadBytes(u"out"), "");
  EXPECT_EQ(NumIn(zFolder), 4u);
}

TEST(ToolRoom, AnExportWithoutRoomNamesItsTargetAndNotThePartThatItWrites) {
  const TestFolder zFolder;
  constexpr int kSide = 200;  // its export is larger than its model, which the limit must let be read
  std::string strGrid;
  for (int i = 0; i <= kSide; ++i)
    for (int j = 0; j <= kSide; ++j) strGrid += "v " + std::to_string(i) + " " + std::to_string(j) + " 0\n";
  for (int i = 0; i < kSide; ++i) {
    for (int j = 1; j <= kSide; ++j) {
      const auto At = [i, j](int iRow, int iColumn) {
        return " " + std::to_string((i + iRow) * (kSide + 1) + j + iColumn);
      };
      strGrid += "f" + At(0, 0) + At(1, 0) + At(1, 1) + "\nf" + At(0, 0) + At(1, 1) + At(0, 1) + "\n";
    }
  }
  zFolder.WriteBytes(u"m.obj", strGrid);
  ASSERT_EQ(RunLine(zFolder, "KIV import m.obj m.kiv --tolerance 0.01 >out && KIV export m.kiv m.glb >out"), 0);
  const std::string strWhole = zFolder.ReadBytes(u"m.glb");
  ASSERT_GT(strWhole.size(), zFolder.ReadBytes(u"m.kiv").size() + 100000);
  const std::string strBlocks = std::to_string(strWhole.size() / 512 - 1);
  EXPECT_EQ(RunLine(zFolder, "ulimit -f " + strBlocks + "; KIV export m.kiv m.glb --force >out"), 2);
  EXPECT_EQ(zFolder.ReadBytes(u"errors"), "kiv: m.glb: cannot be written\n");
  EXPECT_TRUE(zFolder.ReadBytes(u"m.glb") == strWhole);
  EXPECT_EQ(NumIn(zFolder), 5u);
}

TEST(AllCommands, NamesOfOddBytesAreFoundAndWritten) {
  const TestFolder zFolder;
  MakeToolModel(zFolder / u"m.kiv");
  const std::string strFolder = sys::WideToUtf8(zFolder.Path()) + "/";
  for (const std::string& strName : {std::string("bad\xff.kiv"), std::string("\x01-5.kiv"), std::string("[a,b]")}) {
    const std::filesystem::path zModel(strFolder + strName), zTarget(strFolder + strName + "\xc3.glb");
    std::filesystem::copy_file(zFolder / u"m.kiv", zModel);
    const std::string strLine = "cd '" + strFolder + "' && '" + sys::WideToUtf8(KivProgramPath()) + "' export '" +
                                strName + "' '" + zTarget.string() + "' >/dev/null";
    EXPECT_EQ(std::system(strLine.c_str()), 0) << strLine;
    EXPECT_TRUE(std::filesystem::remove(zTarget)) << strLine;
    std::filesystem::remove(zModel);
  }
}

#endif
