// Trees with what only a Linux file system holds: names that are no valid text, folders that keep their entries, links
// to files.
#ifndef _WIN32

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "KivDataUtil.h"
#include "KivTestChild.h"
#include "KivTestFolder.h"
#include "KivTestProgram.h"

using namespace kiv;

namespace {

std::string Native(const KivWString& csPath) {
  return sys::WideToUtf8(csPath);
}

bool MakeFile(const std::string& strPath, mode_t iMode) {
  const int iFd = open(strPath.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, iMode);
  return iFd >= 0 && close(iFd) == 0;
}

// As a user whose rights the modes of files bound.
KIV_TEST_CHILD(RemovesTreeAsAPlainUser) {
  if (geteuid() == 0 && (setegid(65534) != 0 || seteuid(65534) != 0)) return 90;
  const std::string strTop = Native(vcsArgs[0]) + "/top";
  CHILD_CHECK(mkdir(strTop.c_str(), 0700) == 0 && mkdir((strTop + "/sub").c_str(), 0700) == 0);
  CHILD_CHECK(mkdir((strTop + "/sub/empty").c_str(), 0500) == 0);
  CHILD_CHECK(MakeFile(strTop + "/file", 0400) && MakeFile(strTop + "/sub/file", 0000));
  CHILD_CHECK(chmod((strTop + "/sub").c_str(), 0500) == 0 && chmod(strTop.c_str(), 0400) == 0);
  CHILD_CHECK(unlink((strTop + "/file").c_str()) != 0);
  CHILD_CHECK(KivRemoveTree(vcsArgs[0] + u"/top") == KivRemoveTreeResult::Done);
  CHILD_CHECK(access(strTop.c_str(), F_OK) != 0);
  // One that must not be read cannot be listed.
  CHILD_CHECK(mkdir(strTop.c_str(), 0300) == 0);
  CHILD_CHECK(KivRemoveTree(vcsArgs[0] + u"/top") == KivRemoveTreeResult::NotListed);
  CHILD_CHECK(rmdir(strTop.c_str()) == 0);
  return 0;
}

}  // namespace

TEST(RemoveTree, ReadOnlyFoldersGoWithTheirEntries) {
  const kivtest::TestFolder zFolder;
  ASSERT_EQ(chmod(Native(zFolder.Path()).c_str(), 0777), 0);
  // The search for leaks needs rights that the child gives up.
  setenv("ASAN_OPTIONS", "detect_leaks=0", 1);
  KivSysProcess zChild = kivtest::StartTestChild("RemovesTreeAsAPlainUser", {zFolder.Path()});
  ASSERT_EQ(zChild.Wait(KivSysEvent::kInfinite), KivSysWait::Signalled);
  int32_t iCode = -1;
  ASSERT_TRUE(zChild.GetExitCode(iCode));
  EXPECT_EQ(iCode, 0);
}

TEST(RemoveTree, NamesThatAreNoValidTextGoWithIt) {
  const kivtest::TestFolder zFolder;
  const std::string strTop = Native(zFolder / u"top");
  ASSERT_EQ(mkdir(strTop.c_str(), 0700), 0);
  ASSERT_EQ(mkdir((strTop + "/\xff\xfe").c_str(), 0700), 0);
  ASSERT_TRUE(MakeFile(strTop + "/\xff\xfe/a\xc3", 0600));
  ASSERT_TRUE(MakeFile(strTop + "/\x80", 0600));
  EXPECT_EQ(KivRemoveTree(zFolder / u"top"), KivRemoveTreeResult::Done);
  EXPECT_NE(access(strTop.c_str(), F_OK), 0);
}

TEST(RemoveTree, LinksToFilesAndToNothingGoAndTheirTargetsKeepContentAndMode) {
  const kivtest::TestFolder zFolder;
  zFolder.WriteBytes(u"kept", "x");
  const std::string strKept = Native(zFolder / u"kept");
  ASSERT_EQ(chmod(strKept.c_str(), 0400), 0);
  const std::string strTop = Native(zFolder / u"top");
  ASSERT_EQ(mkdir(strTop.c_str(), 0700), 0);
  ASSERT_EQ(symlink(strKept.c_str(), (strTop + "/link").c_str()), 0);
  ASSERT_EQ(symlink("missing", (strTop + "/dangling").c_str()), 0);
  ASSERT_EQ(symlink(".", (strTop + "/loop").c_str()), 0);
  ASSERT_EQ(symlink("..", (strTop + "/up").c_str()), 0);
  EXPECT_EQ(KivRemoveTree(zFolder / u"top"), KivRemoveTreeResult::Done);
  EXPECT_NE(access(strTop.c_str(), F_OK), 0);
  EXPECT_EQ(zFolder.ReadBytes(u"kept"), "x");
  struct stat zStat {};
  ASSERT_EQ(stat(strKept.c_str(), &zStat), 0);
  EXPECT_EQ(zStat.st_mode & 0777, 0400u);
}

#endif
