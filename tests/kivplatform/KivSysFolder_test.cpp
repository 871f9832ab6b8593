#include "KivSysFolder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "KivPlatformTest.h"
#include "KivTestFolder.h"
#include "KivTestScale.h"

using namespace kiv;
using namespace kivtest;

TEST(Folder, MakesListsAndRemoves) {
  const TestFolder zFolder;
  EXPECT_FALSE(sys::FolderExists(zFolder / u"sub"));
  EXPECT_TRUE(sys::MakeFolder(zFolder / u"sub"));
  EXPECT_FALSE(sys::MakeFolder(zFolder / u"sub")) << "it is there already";
  EXPECT_FALSE(sys::MakeFolder(zFolder / u"x" + sys::kSeparator + u"y")) << "one level only";
  EXPECT_TRUE(sys::FolderExists(zFolder / u"sub"));
  EXPECT_TRUE(sys::PathExists(zFolder / u"sub"));
  zFolder.WriteBytes(u"file", "x");
  EXPECT_FALSE(sys::FolderExists(zFolder / u"file"));
  std::vector<KivSysFolderEntry> vzEntries;
  ASSERT_TRUE(sys::ListFolder(zFolder.Path(), vzEntries));
  ASSERT_EQ(vzEntries.size(), 2u);
  for (const KivSysFolderEntry& zEntry : vzEntries) EXPECT_EQ(zEntry.m_bFolder, zEntry.m_csName == u"sub");
  EXPECT_TRUE(sys::RemoveFolder(zFolder / u"sub"));
  EXPECT_FALSE(sys::RemoveFolder(zFolder.Path())) << "not empty";
  EXPECT_FALSE(sys::ListFolder(zFolder / u"sub", vzEntries));
  EXPECT_TRUE(vzEntries.empty());
}

TEST(Folder, ListsManyEntries) {
  const TestFolder zFolder;
  for (int i = 0; i < 500; ++i) zFolder.WriteBytes(sys::Utf8ToWide("f" + std::to_string(i)), "");
  std::vector<KivSysFolderEntry> vzEntries;
  ASSERT_TRUE(sys::ListFolder(zFolder.Path(), vzEntries));
  std::set<KivWString> setNames;
  for (const KivSysFolderEntry& zEntry : vzEntries) setNames.insert(zEntry.m_csName);
  EXPECT_EQ(setNames.size(), 500u);
}

TEST(Folder, BadPathsFail) {
  const TestFolder zFolder;
  std::vector<KivSysFolderEntry> vzEntries;
  for (const KivWString& csPath : {KivWString(), zFolder / u"missing", zFolder / KivWString(5000, u'x')}) {
    EXPECT_FALSE(sys::PathExists(csPath));
    EXPECT_FALSE(sys::FolderExists(csPath));
    EXPECT_FALSE(sys::ListFolder(csPath, vzEntries));
    EXPECT_FALSE(sys::RemoveFolder(csPath));
    EXPECT_FALSE(sys::RemoveFileAt(csPath));
    EXPECT_FALSE(sys::ClearReadOnly(csPath));
    EXPECT_FALSE(sys::CanWriteFolder(csPath));
    EXPECT_NE(sys::RenamePath(csPath, zFolder / u"to"), 0);
    EXPECT_FALSE(sys::CopyFileTo(csPath, zFolder / u"to"));
    EXPECT_FALSE(sys::PathExists(zFolder / u"to"));
  }
}

TEST(Folder, RenameMovesAndReplacesNothing) {
  const TestFolder zFolder;
  zFolder.WriteBytes(u"a", "a");
  zFolder.WriteBytes(u"b", "b");
  EXPECT_NE(sys::RenamePath(zFolder / u"a", zFolder / u"b"), 0);
  EXPECT_EQ(zFolder.ReadBytes(u"b"), "b");
  EXPECT_EQ(sys::RenamePath(zFolder / u"a", zFolder / u"c"), 0);
  EXPECT_FALSE(sys::PathExists(zFolder / u"a"));
  EXPECT_EQ(zFolder.ReadBytes(u"c"), "a");
  EXPECT_TRUE(sys::MakeFolder(zFolder / u"d"));
  EXPECT_EQ(sys::RenamePath(zFolder / u"d", zFolder / u"e"), 0);
  EXPECT_TRUE(sys::FolderExists(zFolder / u"e"));
}

TEST(Folder, ReplacingMovesAFileOverAnother) {
  const TestFolder zFolder;
  zFolder.WriteBytes(u"a", "a");
  zFolder.WriteBytes(u"b", "b");
  EXPECT_EQ(sys::ReplacePath(zFolder / u"a", zFolder / u"b"), 0);
  EXPECT_FALSE(sys::PathExists(zFolder / u"a"));
  EXPECT_EQ(zFolder.ReadBytes(u"b"), "a");
  EXPECT_EQ(sys::ReplacePath(zFolder / u"b", zFolder / u"c"), 0);
  EXPECT_EQ(zFolder.ReadBytes(u"c"), "a");
}

TEST(Folder, ReplacingTakesNoFolders) {
  const TestFolder zFolder;
  zFolder.WriteBytes(u"a", "a");
  ASSERT_TRUE(sys::MakeFolder(zFolder / u"d"));
  ASSERT_TRUE(sys::MakeFolder(zFolder / u"e"));
  EXPECT_NE(sys::ReplacePath(zFolder / u"a", zFolder / u"d"), 0);
  EXPECT_NE(sys::ReplacePath(zFolder / u"d", zFolder / u"a"), 0);
  EXPECT_NE(sys::ReplacePath(zFolder / u"d", zFolder / u"e"), 0);
  EXPECT_NE(sys::ReplacePath(zFolder / u"missing", zFolder / u"a"), 0);
  EXPECT_NE(sys::ReplacePath(KivWString(), zFolder / u"a"), 0);
  EXPECT_EQ(zFolder.ReadBytes(u"a"), "a");
  EXPECT_TRUE(sys::FolderExists(zFolder / u"d"));
}

TEST(Folder, CopyMakesTheSameBytesAndReplacesNothing) {
  const TestFolder zFolder;
  std::string strBytes(3'000'000, 'x');
  for (size_t i = 0; i < strBytes.size(); ++i) strBytes[i] = static_cast<char>(i * 7 + i / 256);
  zFolder.WriteBytes(u"a", strBytes);
  zFolder.WriteBytes(u"empty", "");
  EXPECT_TRUE(sys::CopyFileTo(zFolder / u"a", zFolder / u"b"));
  EXPECT_TRUE(zFolder.ReadBytes(u"b") == strBytes);
  EXPECT_FALSE(sys::CopyFileTo(zFolder / u"empty", zFolder / u"b"));
  EXPECT_TRUE(zFolder.ReadBytes(u"b") == strBytes);
  EXPECT_TRUE(sys::CopyFileTo(zFolder / u"empty", zFolder / u"c"));
  EXPECT_TRUE(sys::PathExists(zFolder / u"c"));
}

TEST(Folder, ReadOnlyFilesCanBeRemovedOnceCleared) {
  const TestFolder zFolder;
  zFolder.WriteBytes(u"a", "a");
  std::filesystem::permissions(std::filesystem::path(zFolder / u"a"), std::filesystem::perms::owner_write,
                               std::filesystem::perm_options::remove);
  EXPECT_TRUE(sys::ClearReadOnly(zFolder / u"a"));
  EXPECT_TRUE(
      OpenFile(zFolder / u"a", KivSysAccess::Write, KivSysShare::All, KivSysDisposition::OpenExisting).IsOpen());
  EXPECT_TRUE(sys::RemoveFileAt(zFolder / u"a"));
  EXPECT_FALSE(sys::RemoveFileAt(zFolder / u"a"));
}

TEST(Folder, ALinkToAFolderIsListedAsALinkAndGoesWithoutItsTarget) {
  const TestFolder zTarget;
  TestFolder zFolder;
  zTarget.WriteBytes(u"kept", "x");
  const TestFolder::Link iLink = zFolder.LinkToFolder(u"link", zTarget);
  ASSERT_NE(iLink, TestFolder::Link::None);
  ASSERT_TRUE(sys::MakeFolder(zFolder / u"sub"));
  zFolder.WriteBytes(u"file", "x");
  std::vector<KivSysFolderEntry> vzEntries;
  ASSERT_TRUE(sys::ListFolder(zFolder.Path(), vzEntries));
  ASSERT_EQ(vzEntries.size(), 3u);
  for (const KivSysFolderEntry& zEntry : vzEntries) {
    EXPECT_EQ(zEntry.m_bLink, zEntry.m_csName == u"link");
    EXPECT_EQ(zEntry.m_bFolder, zEntry.m_csName == u"sub");
  }
  EXPECT_TRUE(sys::IsLink(zFolder / u"link"));
  EXPECT_TRUE(sys::IsLink((zFolder / u"link") + sys::kSeparator));
  EXPECT_FALSE(sys::IsLink(zFolder / u"sub"));
  EXPECT_FALSE(sys::IsLink(zFolder / u"file"));
  EXPECT_FALSE(sys::IsLink(zFolder / u"missing"));
  EXPECT_FALSE(sys::IsLink(u""));
  EXPECT_TRUE(sys::FolderExists(zFolder / u"link")) << "it leads to one";
  EXPECT_TRUE(sys::ClearReadOnly(zFolder / u"link"));
  EXPECT_EQ(sys::RemoveFileAt(zFolder / u"link"), iLink == TestFolder::Link::Whole);
  EXPECT_EQ(sys::PathExists(zFolder / u"link"), iLink == TestFolder::Link::Stuck);
  EXPECT_EQ(zTarget.ReadBytes(u"kept"), "x");
}

TEST(Folder, RelativeAndAbsolutePaths) {
  KivWString csProgram;
  ASSERT_TRUE(sys::ProgramPath(csProgram));
  EXPECT_FALSE(sys::IsRelativePath(csProgram));
  EXPECT_TRUE(sys::IsRelativePath(u"a"));
  EXPECT_TRUE(sys::IsRelativePath(KivWString(u"a") + sys::kSeparator + u"b"));
  EXPECT_TRUE(sys::IsRelativePath(u""));
}

TEST(Folder, ARelativePathMeansTheCurrentFolderAndAnAbsoluteOneItself) {
  KivWString csProgram, csFound;
  ASSERT_TRUE(sys::ProgramPath(csProgram));
  ASSERT_TRUE(sys::AbsolutePath(csProgram, csFound));
  EXPECT_EQ(csFound, csProgram);
  ASSERT_TRUE(sys::AbsolutePath(u"nothing here", csFound));
  EXPECT_FALSE(sys::IsRelativePath(csFound));
  EXPECT_TRUE(csFound.ends_with(KivWString(1, sys::kSeparator) + u"nothing here"));
  KivWString csFolder, csReal;
  ASSERT_TRUE(sys::RealPath(u".", csFolder));
  ASSERT_TRUE(sys::RealPath(csFound.substr(0, csFound.size() - 13), csReal));
  EXPECT_EQ(csReal, csFolder);
  for (const KivWString& csBad : {KivWString(), KivWString(u"a\0b", 3)}) {
    csFound = u"kept";
    EXPECT_FALSE(sys::AbsolutePath(csBad, csFound));
    EXPECT_FALSE(sys::RealPath(csBad, csFound));
    EXPECT_EQ(csFound, u"kept");
  }
}

TEST(Folder, TheRealPathIsThatBehindLinksAndOfNothingThereIsNone) {
  TestFolder zFolder, zTarget;
  KivWString csReal, csThroughLink;
  EXPECT_FALSE(sys::RealPath(zFolder / u"nothing", csReal));
  zTarget.WriteBytes(u"file", "x");
  ASSERT_TRUE(sys::RealPath(zTarget / u"file", csReal));
  EXPECT_TRUE(sys::PathExists(csReal));
  ASSERT_NE(zFolder.LinkToFolder(u"link", zTarget), TestFolder::Link::None);
  ASSERT_TRUE(sys::RealPath((zFolder / u"link") + sys::kSeparator + u"file", csThroughLink));
  EXPECT_EQ(csThroughLink, csReal);
}

TEST(Folder, TheProgramIsThereAndHasTheSuffix) {
  KivWString csProgram;
  ASSERT_TRUE(sys::ProgramPath(csProgram));
  EXPECT_TRUE(sys::PathExists(csProgram));
  ASSERT_GE(csProgram.size(), sys::kExecutableSuffix.size());
  EXPECT_EQ(csProgram.substr(csProgram.size() - sys::kExecutableSuffix.size()), sys::kExecutableSuffix);
}

TEST(Folder, PrivateTempFolderCanBeWrittenAndEndsWithoutSeparator) {
  const KivWString csFolder = sys::PrivateTempFolder();
  EXPECT_TRUE(sys::FolderExists(csFolder));
  EXPECT_TRUE(sys::CanWriteFolder(csFolder));
  EXPECT_NE(csFolder.back(), sys::kSeparator);
}

TEST(Folder, EnvironmentText) {
  KivWString csValue;
  EXPECT_TRUE(sys::EnvironmentText(u"PATH", csValue));
  EXPECT_FALSE(csValue.empty());
  EXPECT_FALSE(sys::EnvironmentText(u"KIV_TEST_THAT_IS_NOT_SET", csValue));
}
