#include "KivSceneReader.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <limits>
#include <new>
#include <stdexcept>

#include "KivSysClock.h"
#include "KivSysFile.h"
#include "KivSysFolder.h"
#include "KivSysMemoryLimit.h"
#include "KivSysProcess.h"
#include "KivTestChild.h"
#include "KivTestFolder.h"
#include "KivTestScale.h"

using namespace kiv;
using namespace kivtest;

namespace {

KivScene OneTriangle() {
  KivScene zScene;
  KivSceneFace& zFace = zScene.m_vzPart.emplace_back().m_vzLevel.emplace_back().m_vzFace.emplace_back();
  zFace.m_iId = 1;
  zFace.m_vdVertex = {0, 0, 0, 1, 0, 0, 0, 1, 0};
  zFace.m_viIndex = {0, 1, 2};
  zScene.m_vzNode.emplace_back().m_viPart = {0};
  return zScene;
}

int Write(const KivWString& csPath, const std::vector<uint8_t>& vcBytes, int iCode) {
  KivSysFile zFile = KivSysFile::Open(
      csPath, {KivSysAccess::Write, KivSysShare::None, KivSysDisposition::CreateAlways, KivSysFileFlags::None});
  uint32_t nDone = 0;
  zFile.WriteAt(0, vcBytes.data(), static_cast<uint32_t>(vcBytes.size()), nDone);
  return iCode;
}

struct Outcome {
  bool m_bRead = false;
  std::string m_strError;
  KivScene m_zScene;
  bool m_bLeftFile = false;
};

// Runs this test program as the reader: its child body is asked for in the source's place.
Outcome RunReader(const std::string& strBody, const KivWString& csWorkName = u"work",
                  const std::function<bool()>& pfnTurn = {}, const std::vector<double>& vdTolerance = {0.5}) {
  const TestFolder zFolder;
  const KivWString csWork = zFolder / csWorkName;
  KivWString csProgram;
  sys::ProgramPath(csProgram);
  Outcome z;
  z.m_bRead = KivRunSceneReader(csProgram, {u"stl", TestChildArgument(strBody), vdTolerance}, csWork, z.m_zScene,
                                z.m_strError, pfnTurn);
  z.m_bLeftFile = sys::PathExists(csWork);
  EXPECT_EQ(z.m_bRead, z.m_strError.empty());
  EXPECT_EQ(z.m_bRead, !z.m_zScene.m_vzNode.empty());
  EXPECT_FALSE(z.m_bLeftFile);
  return z;
}

int Main(const KivSceneReaderBody& pfnRead) {
  return KivSceneReaderMain(ProcessArguments(), pfnRead);
}

}  // namespace

KIV_TEST_CHILD(ReadsOneTriangle) {
  return Main([](const KivSceneRequest& zRequest, KivScene& zScene) {
    std::puts("printed by the reader");
    zScene = OneTriangle();
    for (const double d : zRequest.m_vdTolerance) zScene.m_vstrWarning.push_back(std::to_string(d));
  });
}

TEST(SceneReader, GivesTheSceneAndPassesTheTolerances) {
  const Outcome z = RunReader("ReadsOneTriangle", u"work", {}, {10, 0.125});
  ASSERT_TRUE(z.m_bRead) << z.m_strError;
  EXPECT_EQ(KivWriteScene(z.m_zScene).size(), KivWriteScene(OneTriangle()).size() + 2 * 8 + 9 + 8);
  EXPECT_EQ(z.m_zScene.m_vstrWarning, (std::vector<std::string>{"10.000000", "0.125000"}));
}

TEST(SceneReader, BlanksQuotesAndBackslashesInANamePass) {
  // On Windows this test program takes its arguments through the code page.
  for (const KivWString& csName :
       IsWindows() ? std::vector<KivWString>{u"a b", u"a  ' b"}
                   : std::vector<KivWString>{u"a b", u"a\"b", u"a\\", u"a b\\\\\"", u"\\\"", u"\u00e4 '$(x)"})
    EXPECT_TRUE(RunReader("ReadsOneTriangle", csName).m_bRead) << sys::WideToUtf8(csName);
}

TEST(SceneReader, ATextThatIsNoToleranceIsARefusal) {
  for (const double d : {0.0, -1.0, std::numeric_limits<double>::quiet_NaN()})
    EXPECT_NE(RunReader("ReadsOneTriangle", u"work", {}, {d}).m_strError.find("a tolerance is no number above 0"),
              std::string::npos);
}

KIV_TEST_CHILD(GivesUp) {
  return Main([](const KivSceneRequest&, KivScene& zScene) {
    zScene = OneTriangle();
    throw KivSceneError("the file is cut");
  });
}
KIV_TEST_CHILD(HasNoMemory) {
  return Main([](const KivSceneRequest&, KivScene&) { throw std::bad_alloc(); });
}
KIV_TEST_CHILD(BreaksDown) {
  return Main([](const KivSceneRequest&, KivScene&) { throw std::runtime_error("odd"); });
}
KIV_TEST_CHILD(ThrowsANumber) {
  return Main([](const KivSceneRequest&, KivScene&) { throw 7; });
}
KIV_TEST_CHILD(ReadsNonsense) {
  return Main([](const KivSceneRequest&, KivScene& zScene) {
    zScene = OneTriangle();
    zScene.m_vzNode[0].m_viPart = {1};
  });
}

TEST(SceneReader, WhateverTheReaderThrowsIsAReason) {
  EXPECT_EQ(RunReader("GivesUp").m_strError, "the file is cut");
  EXPECT_EQ(RunReader("HasNoMemory").m_strError, "there is not enough memory to read it");
  EXPECT_EQ(RunReader("BreaksDown").m_strError, "the reader broke down: odd");
  EXPECT_EQ(RunReader("ThrowsANumber").m_strError, "the reader broke down");
  EXPECT_EQ(RunReader("ReadsNonsense").m_strError, "a node names a part that does not exist");
}

KIV_TEST_CHILD(WantsMemoryWhereNothingIsCaught) {
  return Main([](const KivSceneRequest&, KivScene&) noexcept {
    std::vector<char> vc(std::numeric_limits<ptrdiff_t>::max() / 2);
    vc[0] = 1;
  });
}
KIV_TEST_CHILD(UsesUpMemoryWhereNothingIsCaught) {
  return Main([](const KivSceneRequest&, KivScene&) {
    for (void* volatile p = nullptr;;)  // each stays
      if (p = std::malloc(16 << 20); p == nullptr) std::terminate();
  });
}

TEST(SceneReader, WantOfMemoryWhereNothingIsCaughtIsTheSameReason) {
  if (!sys::CanLimitMemory()) GTEST_SKIP() << "no bound in builds with sanitizers and under Wine";
  for (const char* szBody : {"WantsMemoryWhereNothingIsCaught", "UsesUpMemoryWhereNothingIsCaught"})
    EXPECT_EQ(RunReader(szBody).m_strError, "there is not enough memory to read it") << szBody;
}

KIV_TEST_CHILD(Crashes) {
  sys::EndProcess(77);
}
KIV_TEST_CHILD(CannotCatch) {
  return Main([](const KivSceneRequest&, KivScene&) { std::terminate(); });
}
KIV_TEST_CHILD(WritesNothing) {
  return 0;
}
KIV_TEST_CHILD(WritesACutScene) {
  std::vector<uint8_t> vcBytes = KivWriteScene(OneTriangle());
  vcBytes.pop_back();
  return Write(ProcessArguments()[3], vcBytes, 0);
}
KIV_TEST_CHILD(WritesASceneAndFails) {
  return Write(ProcessArguments()[3], KivWriteScene(OneTriangle()), 2);
}
KIV_TEST_CHILD(WritesAFailureAndIsContent) {
  return Write(ProcessArguments()[3], KivWriteSceneFailure("it is empty"), 0);
}

TEST(SceneReader, ACrashAndADamagedResultAreOneSentence) {
  EXPECT_NE(RunReader("Crashes").m_strError.find("crashed (exit code 77)"), std::string::npos);
  EXPECT_NE(RunReader("CannotCatch").m_strError.find("crashed (exit code 3)"), std::string::npos);
  EXPECT_NE(RunReader("WritesNothing").m_strError.find("left no result"), std::string::npos);
  EXPECT_NE(RunReader("WritesACutScene").m_strError.find("left a damaged result: the scene file is cut"),
            std::string::npos);
  EXPECT_NE(RunReader("WritesASceneAndFails").m_strError.find("left a damaged result"), std::string::npos);
  EXPECT_NE(RunReader("WritesAFailureAndIsContent").m_strError.find("left a damaged result"), std::string::npos);
}

TEST(SceneReader, AReaderThatIsNotThereIsSaid) {
  const TestFolder zFolder;
  KivScene zScene;
  std::string strError;
  EXPECT_FALSE(
      KivRunSceneReader(zFolder / u"no-reader", {u"stl", u"source", {1}}, zFolder / u"work", zScene, strError, {}));
  EXPECT_EQ(strError, "the reader no-reader cannot be started");
}

TEST(SceneReader, AFileThatStandsInTheWayStays) {
  const TestFolder zFolder;
  zFolder.WriteBytes(u"work", "mine");
  KivWString csProgram;
  sys::ProgramPath(csProgram);
  KivScene zScene;
  std::string strError;
  EXPECT_FALSE(KivRunSceneReader(csProgram, {u"stl", TestChildArgument("ReadsOneTriangle"), {1}}, zFolder / u"work",
                                 zScene, strError, {}));
  EXPECT_NE(strError.find("exists"), std::string::npos) << strError;
  // Nor does a reader write over what has come up meanwhile.
  const auto Read = [](const KivSceneRequest&, KivScene& z) { z = OneTriangle(); };
  EXPECT_EQ(KivSceneReaderMain({u"reader", u"stl", u"source", zFolder / u"work", u"1"}, Read), 2);
  EXPECT_EQ(zFolder.ReadBytes(u"work"), "mine");
}

KIV_TEST_CHILD(ReadsForEver) {
  Write(ProcessArguments()[3], KivWriteScene(OneTriangle()), 0);
  for (;;) sys::SleepMs(1000);
}

TEST(SceneReader, AWishToStopEndsTheReader) {
  int nTurns = 0;
  EXPECT_EQ(RunReader("ReadsForEver", u"work", [&] { return ++nTurns < 3; }).m_strError, "stopped");
  EXPECT_EQ(nTurns, 3);
}

TEST(SceneReader, WhatTheTurnThrowsEndsTheReaderAndPasses) {
  const TestFolder zFolder;
  KivWString csProgram;
  sys::ProgramPath(csProgram);
  KivScene zScene;
  std::string strError;
  EXPECT_THROW(KivRunSceneReader(csProgram, {u"stl", TestChildArgument("ReadsForEver"), {1}}, zFolder / u"work", zScene,
                                 strError, []() -> bool { throw std::runtime_error("enough"); }),
               std::runtime_error);
  EXPECT_FALSE(sys::PathExists(zFolder / u"work"));
}

TEST(SceneReader, TooFewArgumentsAndAPlaceThatCannotBeWrittenAreFailures) {
  const auto Read = [](const KivSceneRequest&, KivScene& zScene) { zScene = OneTriangle(); };
  const TestFolder zFolder;
  EXPECT_EQ(KivSceneReaderMain({u"reader", u"stl", u"source"}, Read), 2);
  EXPECT_FALSE(sys::PathExists(zFolder / u"work"));
  EXPECT_EQ(KivSceneReaderMain({u"reader", u"stl", u"source", (zFolder / u"missing") + sys::kSeparator + u"work", u"1"},
                               Read),
            2);
  EXPECT_EQ(KivSceneReaderMain({u"reader", u"stl", u"source", zFolder / u"work", u"1"}, Read), 0);
  EXPECT_TRUE(sys::PathExists(zFolder / u"work"));
}

TEST(SceneReader, WithoutTolerancesTheReaderIsAskedToChooseThem) {
  const TestFolder zFolder;
  std::vector<double> vdAsked = {1};
  const auto Read = [&](const KivSceneRequest& zRequest, KivScene& zScene) {
    vdAsked = zRequest.m_vdTolerance;
    zScene = OneTriangle();
  };
  EXPECT_EQ(KivSceneReaderMain({u"reader", u"stl", u"source", zFolder / u"work"}, Read), 0);
  EXPECT_TRUE(vdAsked.empty());
}

TEST(SceneReader, ASourceThatIsNoFileWithBytesIsRefused) {
  const TestFolder zFolder;
  const auto ReasonOf = [&](const KivWString& csPath) -> std::string {
    try {
      KivReadSceneSource(csPath, 10);
    } catch (const KivSceneError& e) {
      return e.what();
    }
    return "";
  };
  zFolder.WriteBytes(u"empty", "");
  zFolder.WriteBytes(u"ten", "0123456789");
  zFolder.WriteBytes(u"eleven", "0123456789a");
  EXPECT_EQ(ReasonOf(zFolder.Path()), "it is a folder");
  EXPECT_EQ(ReasonOf(zFolder / u"missing"), "it does not exist");
  EXPECT_EQ(ReasonOf(zFolder / u"empty"), "it is empty");
  EXPECT_EQ(ReasonOf(zFolder / u"eleven"), "it is larger than the reader can take");
  EXPECT_EQ(ReasonOf(zFolder / u"ten"), "");
  EXPECT_EQ(KivReadSceneSource(zFolder / u"ten", 10).size(), 10u);
}
