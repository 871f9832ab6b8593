// KivTargetFile where files have permissions and pipes have names, and a stop is a signal.
#ifndef _WIN32

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>

#include "KivSysFileKind.h"
#include "KivSysFolder.h"
#include "KivSysTerminal.h"
#include "KivTargetFile.h"
#include "KivTargetFileTest.h"
#include "KivTestFolder.h"
#include "KivTestPipe.h"
#include "KivToolError.h"

namespace {

using kiv::KivTargetFile;
using kiv::KivToolError;
using kivtest::EntryNum;
using kivtest::NameIn;
using kivtest::TestFolder;
namespace sys = kiv::sys;

TEST(TargetFile, WhatIsReplacedHandsItsPermissionsOn) {
  const TestFolder zFolder;
  zFolder.WriteBytes(u"a", "old");
  using std::filesystem::perms;
  const perms iMode = perms::owner_read | perms::owner_write | perms::others_read;
  std::filesystem::permissions(std::filesystem::path(zFolder / u"a"), iMode);
  KivTargetFile zTarget(zFolder / u"a", true);
  zFolder.WriteBytes(NameIn(zFolder, zTarget), "new");
  zTarget.Commit();
  EXPECT_EQ(zFolder.ReadBytes(u"a"), "new");
  EXPECT_EQ(std::filesystem::status(std::filesystem::path(zFolder / u"a")).permissions(), iMode);
}

TEST(TargetFile, APipeIsNeverReplacedNotEvenByForceOrThroughALink) {
  const TestFolder zFolder;
  ASSERT_TRUE(kivtest::MakePipe(zFolder, u"pipe"));
  const std::filesystem::path zLink(zFolder / u"link");
  std::filesystem::create_symlink(std::filesystem::path(zFolder / u"pipe"), zLink);
  std::filesystem::create_symlink(std::filesystem::path(zFolder / u"missing"), zFolder / u"loose");
  for (const char16_t* szName : {u"pipe", u"link"}) {
    EXPECT_TRUE(sys::IsNoRegularFile(zFolder / szName));
    for (const bool bForce : {false, true}) EXPECT_THROW(KivTargetFile(zFolder / szName, bForce), KivToolError);
  }
  EXPECT_FALSE(sys::IsNoRegularFile(zFolder / u"loose"));
  EXPECT_TRUE(kivtest::IsPipe(zFolder, u"pipe"));
  EXPECT_TRUE(std::filesystem::is_symlink(zLink));
  EXPECT_EQ(EntryNum(zFolder), 3u);
}

TEST(TargetFile, APipeThatComesUpMeanwhileStays) {
  const TestFolder zFolder;
  {
    KivTargetFile zTarget(zFolder / u"out", true);
    zFolder.WriteBytes(NameIn(zFolder, zTarget), "new");
    ASSERT_TRUE(kivtest::MakePipe(zFolder, u"out"));
    EXPECT_THROW(zTarget.Commit(), KivToolError);
  }
  EXPECT_TRUE(kivtest::IsPipe(zFolder, u"out"));
  EXPECT_EQ(EntryNum(zFolder), 1u);
}

// In a process of its own, which the request stays with.
TEST(TargetFileDeathTest, AStopBeforeTheCommitLeavesNothing) {
  const TestFolder zFolder;
  zFolder.WriteBytes(u"out", "old");
  EXPECT_EXIT(
      {
        std::signal(SIGINT, SIG_DFL);
        sys::CatchStopRequests();
        int iCode = 1;
        try {
          KivTargetFile zTarget(zFolder / u"out", true);
          zFolder.WriteBytes(NameIn(zFolder, zTarget), "new");
          std::raise(SIGINT);
          zTarget.Commit();
        } catch (const KivToolError& e) {
          iCode = std::string(e.what()) == "stopped" ? 7 : 2;
        }
        std::_Exit(iCode);
      },
      testing::ExitedWithCode(7), "");
  EXPECT_EQ(zFolder.ReadBytes(u"out"), "old");
  EXPECT_EQ(EntryNum(zFolder), 1u);
}

TEST(TargetFile, ANameThatLeavesNoRoomForASuffixServes) {
  const TestFolder zFolder;
  const kiv::KivWString csName(250, u'n');
  {
    KivTargetFile zTarget(zFolder / csName, false);
    EXPECT_LT(NameIn(zFolder, zTarget).size(), 100u);
    zFolder.WriteBytes(NameIn(zFolder, zTarget), "new");
    zFolder.WriteBytes(NameIn(zFolder, zTarget) + u".scene", "half");
    zTarget.Commit();
  }
  EXPECT_EQ(zFolder.ReadBytes(csName), "new");
  EXPECT_EQ(EntryNum(zFolder), 1u);
}

}  // namespace

#endif
