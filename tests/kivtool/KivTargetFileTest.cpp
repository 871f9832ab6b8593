#include "KivTargetFile.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>

#include "KivSysFileKind.h"
#include "KivSysFolder.h"
#include "KivSysTerminal.h"
#include "KivTestFolder.h"
#include "KivTestPipe.h"
#include "KivToolError.h"

namespace {

using kiv::KivTargetFile;
using kiv::KivToolError;
using kivtest::TestFolder;
namespace sys = kiv::sys;

size_t EntryNum(const TestFolder& zFolder) {
  std::vector<kiv::KivSysFolderEntry> vzEntry;
  EXPECT_TRUE(sys::ListFolder(zFolder.Path(), vzEntry));
  return vzEntry.size();
}

kiv::KivWString NameIn(const TestFolder& zFolder, const KivTargetFile& zTarget) {
  return zTarget.GetTemporaryPath().substr((zFolder / u"").size());
}

TEST(TargetFile, ComesIntoPlaceOnlyWhenItIsWhole) {
  const TestFolder zFolder;
  {
    KivTargetFile zTarget(zFolder / u"out", false);
    EXPECT_EQ(EntryNum(zFolder), 0u);
    zFolder.WriteBytes(NameIn(zFolder, zTarget), "new");
    EXPECT_FALSE(sys::PathExists(zFolder / u"out"));
    zTarget.Commit();
  }
  EXPECT_EQ(zFolder.ReadBytes(u"out"), "new");
  EXPECT_EQ(EntryNum(zFolder), 1u);
}

TEST(TargetFile, LeavesNothingBehindWithoutACommit) {
  const TestFolder zFolder;
  zFolder.WriteBytes(u"out", "old");
  {
    KivTargetFile zTarget(zFolder / u"out", true);
    zFolder.WriteBytes(NameIn(zFolder, zTarget), "half");
    zFolder.WriteBytes(NameIn(zFolder, zTarget) + u".urf", "half");
  }
  EXPECT_EQ(zFolder.ReadBytes(u"out"), "old");
  EXPECT_EQ(EntryNum(zFolder), 1u);
}

TEST(TargetFile, AnExistingOneIsReplacedByForceAlone) {
  const TestFolder zFolder;
  zFolder.WriteBytes(u"out", "old");
  EXPECT_THROW(KivTargetFile(zFolder / u"out", false), KivToolError);
  KivTargetFile zTarget(zFolder / u"out", true);
  zFolder.WriteBytes(NameIn(zFolder, zTarget), "new");
  zTarget.Commit();
  EXPECT_EQ(zFolder.ReadBytes(u"out"), "new");
  EXPECT_EQ(EntryNum(zFolder), 1u);
}

TEST(TargetFile, OneThatComesUpMeanwhileStays) {
  const TestFolder zFolder;
  {
    KivTargetFile zTarget(zFolder / u"out", false);
    zFolder.WriteBytes(NameIn(zFolder, zTarget), "new");
    zFolder.WriteBytes(u"out", "another's");
    EXPECT_THROW(zTarget.Commit(), KivToolError);
  }
  EXPECT_EQ(zFolder.ReadBytes(u"out"), "another's");
  EXPECT_EQ(EntryNum(zFolder), 1u);
}

TEST(TargetFile, ASourceAFolderAndAPlaceThatIsNotThereAreRefused) {
  const TestFolder zFolder;
  zFolder.WriteBytes(u"in", "in");
  ASSERT_TRUE(sys::MakeFolder(zFolder / u"folder"));
  EXPECT_THROW(KivTargetFile(zFolder / u"in", true, {zFolder / u"in"}), KivToolError);
  EXPECT_THROW(KivTargetFile(zFolder / u"folder/../in", true, {zFolder / u"in"}), KivToolError);
  EXPECT_THROW(KivTargetFile(zFolder / u"folder", true), KivToolError);
  EXPECT_THROW(KivTargetFile(zFolder / u"missing/out", false), KivToolError);
  EXPECT_THROW(KivTargetFile(u"", true), KivToolError);
  EXPECT_EQ(EntryNum(zFolder), 2u);
  EXPECT_EQ(zFolder.ReadBytes(u"in"), "in");
}

TEST(TargetFile, WhatIsReplacedHandsItsPermissionsOn) {
  if (sys::kSeparator == u'\\') GTEST_SKIP() << "a new file takes its folder's";
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

TEST(TargetFile, AFolderIsNoRegularFileAFileAndNothingAreNoOther) {
  const TestFolder zFolder;
  zFolder.WriteBytes(u"file", "file");
  EXPECT_TRUE(sys::IsNoRegularFile(zFolder.Path()));
  EXPECT_FALSE(sys::IsNoRegularFile(zFolder / u"file"));
  EXPECT_FALSE(sys::IsNoRegularFile(zFolder / u"missing"));
  EXPECT_FALSE(sys::IsNoRegularFile(u""));
}

TEST(TargetFile, APipeIsNeverReplacedNotEvenByForceOrThroughALink) {
  if (sys::kSeparator == u'\\') GTEST_SKIP() << "pipes are no files here";
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
  if (sys::kSeparator == u'\\') GTEST_SKIP() << "pipes are no files here";
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
  if (sys::kSeparator == u'\\') GTEST_SKIP() << "a console's request is no signal here";
  const TestFolder zFolder;
  zFolder.WriteBytes(u"out", "old");
  EXPECT_EXIT(
      {
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

TEST(TargetFile, TwoOfOneTargetHaveTwoNames) {
  const TestFolder zFolder;
  const KivTargetFile zFirst(zFolder / u"out", false);
  zFolder.WriteBytes(NameIn(zFolder, zFirst), "one");
  const KivTargetFile zSecond(zFolder / u"out", false);
  EXPECT_NE(zFirst.GetTemporaryPath(), zSecond.GetTemporaryPath());
}

}  // namespace
