// kiv on a terminal: its bar, and the end that a user asks for with Ctrl-C.
#ifndef _WIN32

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>

#include "KivProgress.h"
#include "KivStopGuard.h"
#include "KivSysClock.h"
#include "KivSysTerminal.h"
#include "KivTargetFile.h"
#include "KivTestFolder.h"
#include "KivToolTestModel.h"

namespace {

using namespace kiv;
using namespace kivtest;

struct TerminalRun {
  int m_iExit = -1;
  std::string m_strShown;
  bool m_bAsked = false;  // Ctrl-C was pressed before it ended
};

// Runs kiv on a terminal of its own. Once pfnWhen is true of what was shown Ctrl-C is pressed there so many times.
TerminalRun RunOnTerminal(const std::vector<KivWString>& vcsArguments,
                          const std::function<bool(const std::string&)>& pfnWhen, int nPresses,
                          const KivWString& csKiv = KivProgramPath()) {
  std::vector<std::string> vstrWord = {sys::WideToUtf8(csKiv)};
  for (const KivWString& cs : vcsArguments) vstrWord.push_back(sys::WideToUtf8(cs));
  std::vector<char*> vpcWord;
  for (std::string& str : vstrWord) vpcWord.push_back(str.data());
  vpcWord.push_back(nullptr);
  TerminalRun z;
  int iTerminal = -1;
  const pid_t iChild = forkpty(&iTerminal, nullptr, nullptr, nullptr);
  if (iChild == 0) {
    std::signal(SIGINT, SIG_DFL);
    execv(vpcWord[0], vpcWord.data());
    _exit(126);
  }
  EXPECT_GT(iChild, 0);
  fd_set zSet;
  for (char acBytes[4096];;) {
    timeval zWait{0, 500};
    FD_ZERO(&zSet);
    FD_SET(iTerminal, &zSet);
    if (select(iTerminal + 1, &zSet, nullptr, nullptr, &zWait) > 0) {
      const ssize_t nBytes = read(iTerminal, acBytes, sizeof acBytes);
      if (nBytes <= 0) break;
      z.m_strShown.append(acBytes, static_cast<size_t>(nBytes));
    }
    if (!z.m_bAsked && pfnWhen(z.m_strShown)) {
      z.m_bAsked = true;
      for (int i = 0; i < nPresses; ++i) EXPECT_EQ(write(iTerminal, "\x03", 1), 1);
    }
  }
  int iStatus = 0;
  EXPECT_EQ(waitpid(iChild, &iStatus, 0), iChild);
  close(iTerminal);
  z.m_iExit = WIFEXITED(iStatus) ? WEXITSTATUS(iStatus) : -WTERMSIG(iStatus);
  return z;
}

// Files with bytes, and this in their names.
size_t NumOf(const TestFolder& zFolder, const KivWString& csInName) {
  size_t nFiles = 0;
  std::error_code iError;
  for (const auto& zEntry : std::filesystem::directory_iterator(zFolder.Path()))
    if (zEntry.path().u16string().find(csInName) != KivWString::npos && zEntry.file_size(iError) > 0 && !iError)
      ++nFiles;
  return nFiles;
}

// A wavy sheet of 2 n n triangles.
std::string WavySheet(size_t n) {
  std::string strStl(84 + 2 * n * n * 50, '\0');
  const uint32_t nTriangles = static_cast<uint32_t>(2 * n * n);
  std::copy_n(reinterpret_cast<const char*>(&nTriangles), 4, &strStl[80]);
  char* pc = &strStl[84];
  for (size_t i = 0; i < n * n; ++i)
    for (const auto& aiCorner : {std::array<size_t, 6>{0, 0, 1, 0, 1, 1}, std::array<size_t, 6>{0, 0, 1, 1, 0, 1}}) {
      for (size_t k = 0; k < 3; ++k) {
        const float x = static_cast<float>(i % n + aiCorner[2 * k]),
                    y = static_cast<float>(i / n + aiCorner[2 * k + 1]);
        const float af[3] = {x, y, std::sin(x / 5) * std::cos(y / 7) * 9};
        std::copy_n(reinterpret_cast<const char*>(af), 12, pc + 12 + 12 * k);
      }
      pc += 50;
    }
  return strStl;
}

// Presses Ctrl-C at that time of an import; with a larger source, if it was over before.
void ExpectStopped(const std::function<bool(const TestFolder&)>& pfnWhen, int nPresses) {
  const TestFolder zFolder;
  TerminalRun z;
  for (size_t n = 200; n <= 800 && z.m_iExit != 2; n *= 2) {
    zFolder.WriteBytes(u"a.stl", WavySheet(n));
    z = RunOnTerminal(
        {u"import", zFolder / u"a.stl", zFolder / u"out.kiv", u"--force"},
        [&](const std::string&) { return pfnWhen(zFolder); }, nPresses);
    EXPECT_TRUE(z.m_iExit == 2 || z.m_iExit == 0) << z.m_iExit;
  }
  EXPECT_EQ(z.m_iExit, 2);
  EXPECT_NE(z.m_strShown.find("stopped\r\n"), std::string::npos) << z.m_strShown;
  EXPECT_TRUE(std::filesystem::remove(zFolder / u"a.stl"));
  std::filesystem::remove(zFolder / u"out.kiv");  // of an import that was over too soon
  EXPECT_TRUE(std::filesystem::is_empty(zFolder.Path()));
}

}  // namespace

TEST(ToolStop, ABarTellsTheSecondsAndCtrlCEndsTheReading) {
  // Beside this kiv stands a reader that takes for ever, whatever is pressed.
  const TestFolder zPrograms;
  const KivWString csKiv = zPrograms / u"kiv";
  std::filesystem::copy_file(std::filesystem::path(KivProgramPath()), std::filesystem::path(csKiv));
  zPrograms.WriteBytes(u"kiv-read-mesh", "#!/bin/sh\ntrap '' INT\nexec sleep 1000\n");
  std::filesystem::permissions(std::filesystem::path(zPrograms / u"kiv-read-mesh"), std::filesystem::perms::owner_all);
  const TestFolder zFolder;
  zFolder.WriteBytes(u"a.obj", "v 0 0 0\n");
  const TerminalRun z = RunOnTerminal(
      {u"import", zFolder / u"a.obj", zFolder / u"out.kiv"},
      [](const std::string& str) { return str.find("a.obj  [") != std::string::npos; }, 1, csKiv);
  EXPECT_TRUE(z.m_bAsked) << z.m_strShown;
  EXPECT_EQ(z.m_iExit, 2);
  EXPECT_NE(z.m_strShown.find("stopped\r\n"), std::string::npos) << z.m_strShown;
  EXPECT_EQ(NumOf(zFolder, u""), 1u);
}

TEST(ToolStop, ABarMakesRoomForRowsAndStaysInItsLine) {
  int aiGo[2] = {-1, -1};  // a byte for each step
  ASSERT_EQ(pipe2(aiGo, O_CLOEXEC), 0);
  constexpr size_t kColumns = 60;
  winsize zSize{};
  zSize.ws_row = 25;
  zSize.ws_col = kColumns;
  int iTerminal = -1;
  const pid_t iChild = forkpty(&iTerminal, nullptr, nullptr, &zSize);
  if (iChild == 0) {
    const auto Step = [&] {
      char c = 0;
      if (read(aiGo[0], &c, 1) != 1) _exit(3);
    };
    std::FILE* const pTerminal = fdopen(STDOUT_FILENO, "w");  // stdout itself is what it was before
    KivProgress zProgress("reading a name that is too long for the line.step", 0);
    Step();
    KivToolOutput zText(false, pTerminal, stderr);
    zText.Line("a row");
    Step();
    KivToolOutput zJson(true, pTerminal, stderr);
    zJson.Json().BeginObject();
    zJson.Json().Value("a", 1);
    zJson.Json().Value("b", 2);
    zJson.Finish();
    Step();
    KivProgress::EndAll();
    zText.Note("a note");
    _exit(0);
  }
  ASSERT_GT(iChild, 0);
  close(aiGo[0]);
  // The next step comes once a bar stands behind the row of the last one.
  std::string strShown;
  const std::vector<std::string> vstrRow = {"", "a row\r\n", "}\r\n"};
  size_t nSteps = 0;
  char acBytes[4096];
  for (ssize_t n = 0; (n = read(iTerminal, acBytes, sizeof acBytes)) > 0;) {
    strShown.append(acBytes, static_cast<size_t>(n));
    if (nSteps == vstrRow.size()) continue;
    const size_t iRow = strShown.find(vstrRow[nSteps]);
    if (iRow == std::string::npos || strShown.find("line.step  [", iRow) == std::string::npos) continue;
    EXPECT_EQ(write(aiGo[1], "x", 1), 1);
    ++nSteps;
  }
  int iStatus = 0;
  EXPECT_EQ(waitpid(iChild, &iStatus, 0), iChild);
  close(iTerminal);
  close(aiGo[1]);
  EXPECT_EQ(iStatus, 0);
  EXPECT_EQ(nSteps, vstrRow.size()) << strShown;
  // Each row begins a line, or stands where a bar was taken away.
  for (const char* szRow : {"a row\r\n", "{\r\n", "}\r\n", "kiv: a note\r\n"}) {
    const size_t iRow = strShown.find(szRow);
    ASSERT_NE(iRow, std::string::npos) << szRow << " in " << strShown;
    const std::string strBefore = strShown.substr(0, iRow);
    EXPECT_TRUE(strBefore.ends_with("\r\033[K") || strBefore.ends_with("\n")) << szRow << " in " << strShown;
  }
  size_t nBars = 0;
  for (size_t iEnd = 0; (iEnd = strShown.find(" s\033[K", iEnd)) != std::string::npos; ++iEnd, ++nBars)
    EXPECT_LE(iEnd + 2 - strShown.rfind('\r', iEnd) - 1, kColumns - 1) << strShown;
  EXPECT_GE(nBars, vstrRow.size());
}

TEST(ToolStop, CtrlCWhileTheModelIsMadeLeavesNothing) {
  ExpectStopped([](const TestFolder& zFolder) { return NumOf(zFolder, u".scene") != 0; }, 1);
}

TEST(ToolStop, CtrlCTwiceWhileTheModelIsWrittenLeavesNothing) {
  ExpectStopped(
      [](const TestFolder& zFolder) { return NumOf(zFolder, u".part") != 0 && NumOf(zFolder, u".scene") == 0; }, 2);
}

TEST(ToolStopDeathTest, AGuardEndsACommandThatDoesNotAsk) {
  const TestFolder zFolder;
  EXPECT_EXIT(
      {
        std::signal(SIGINT, SIG_DFL);
        sys::CatchStopRequests();
        KivToolOutput zOutput(false);
        KivTargetFile zTarget(zFolder / u"out", false);
        const KivStopGuard zGuard([&] { return zTarget.Abandon(); }, zOutput);
        for (const char16_t* szSuffix : {u"", u".urf", u".scene", u".bin"}) {
          const KivWString csPath = zTarget.GetTemporaryPath() + szSuffix;
          zFolder.WriteBytes(csPath.substr(zFolder.Path().size() + 1), "begun");
        }
        std::raise(SIGINT);
        std::raise(SIGINT);
        for (;;) sys::SleepMs(1000);
      },
      testing::ExitedWithCode(2), "^kiv: stopped\n$");
  EXPECT_EQ(NumOf(zFolder, u""), 0u);
}

TEST(ToolStopDeathTest, AfterTheCommitAGuardEndsNothing) {
  const TestFolder zFolder;
  EXPECT_EXIT(
      {
        std::signal(SIGINT, SIG_DFL);
        sys::CatchStopRequests();
        KivToolOutput zOutput(false);
        KivTargetFile zTarget(zFolder / u"out", false);
        const KivStopGuard zGuard([&] { return zTarget.Abandon(); }, zOutput);
        zFolder.WriteBytes(zTarget.GetTemporaryPath().substr(zFolder.Path().size() + 1), "whole");
        zTarget.Commit();
        std::raise(SIGINT);
        sys::SleepMs(600);  // longer than a guard's patience
        std::_Exit(7);
      },
      testing::ExitedWithCode(7), "^$");
  EXPECT_EQ(zFolder.ReadBytes(u"out"), "whole");
}

#endif
