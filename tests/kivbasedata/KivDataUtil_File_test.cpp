#include <gtest/gtest.h>

#include <filesystem>

#include "KivDataUtil.h"
#include "KivSysFault.h"
#include "KivSysFile.h"
#include "KivSysFolder.h"
#include "KivSysProcess.h"
#include "KivTestChild.h"
#include "KivTestFolder.h"
#include "KivTestReport.h"

using namespace kiv;

namespace {

KivWString NumberText(uint32_t iNumber) {
  const std::string strNumber = std::to_string(iNumber);
  return KivWString(strNumber.begin(), strNumber.end());
}

KivWString TempName(uint32_t iProcess) {
  return u"ZUR_TMP_FOLDER-20240101-101112-" + NumberText(iProcess);
}

// A number that no process has: that of a child which has ended, as long as nobody else got it.
uint32_t EndedProcess() {
  KivSysProcess zChild = kivtest::StartTestChild("EndsAtOnce", {});
  const uint32_t iId = zChild.GetId();
  EXPECT_EQ(zChild.Wait(KivSysEvent::kInfinite), KivSysWait::Signalled);
  return iId;
}

KIV_TEST_CHILD(EndsAtOnce) {
  return 0;
}

KIV_TEST_CHILD(WaitsForItsEvent) {
  KivSysEvent zReady = KivSysEvent::Open(vcsArgs[0]);
  KivSysEvent zGo = KivSysEvent::Open(vcsArgs[1]);
  if (!zReady.Set()) return 2;
  return zGo.Wait(KivSysEvent::kInfinite) == KivSysWait::Signalled ? 0 : 1;
}

}  // namespace

TEST(SplitPath, TheLastSeparatorOfEitherKindSplitsAndGoesToNeitherOutput) {
  struct Case {
    KivWString m_csPath, m_csFolder, m_csName;
  };
  for (const Case& zCase : std::initializer_list<Case>{{u"a\\b/c", u"a\\b", u"c"},
                                                       {u"a/b\\c", u"a/b", u"c"},
                                                       {u"name", u"", u"name"},
                                                       {u"", u"", u""},
                                                       {u"/name", u"", u"name"},
                                                       {u"folder\\", u"folder", u""},
                                                       {u"\\\\", u"\\", u""}}) {
    KivWString csFolder = u"x";
    KivWString csName = u"y";
    KivSplitPath(zCase.m_csPath, csFolder, csName);
    EXPECT_EQ(csFolder, zCase.m_csFolder) << testing::PrintToString(zCase.m_csPath);
    EXPECT_EQ(csName, zCase.m_csName) << testing::PrintToString(zCase.m_csPath);
  }
}

TEST(SplitPath, AnOutputMayBeTheInput) {
  KivWString csPath = u"a/b/c";
  KivWString csFolder;
  KivSplitPath(csPath, csFolder, csPath);
  EXPECT_EQ(csFolder, u"a/b");
  EXPECT_EQ(csPath, u"c");
}

TEST(FileExists, FilesAndFoldersExistAndNothingElse) {
  kivtest::TestFolder zFolder;
  zFolder.WriteBytes(u"file", "x");
  EXPECT_TRUE(KivFileExists(zFolder / u"file"));
  EXPECT_TRUE(KivFileExists(zFolder.Path()));
  EXPECT_FALSE(KivFileExists(zFolder / u"missing"));
  EXPECT_FALSE(KivFileExists(u""));
  EXPECT_FALSE(KivFileExists(KivWString(100000, u'a')));
  EXPECT_FALSE(KivFileExists(zFolder / KivWString(5000, u'a')));
}

TEST(Paths, EmptyTooLongAndCutByAZeroTheyGetTheFailureOfTheirFunction) {
  kivtest::TestFolder zFolder;
  zFolder.WriteBytes(u"file", "kept");
  KivSetWorkFolder(zFolder.Path());
  const KivWString csZero = zFolder / KivWString(u"file\0x", 6);
  for (const KivWString& csPath :
       {KivWString(), csZero, KivWString(1, u'\0'), zFolder / KivWString(300, u'a'), KivWString(100'000, u'a')}) {
    EXPECT_FALSE(KivFileExists(csPath));
    EXPECT_EQ(static_cast<uint32_t>(KivRemoveTree(csPath)), 10u);
    EXPECT_TRUE(KivRemoveOrphanFolders(csPath, false));
    KivWriteLog(u"line");
    EXPECT_EQ(static_cast<uint32_t>(KivCopyLog(csPath)), 30u);
  }
  // A move is tried for half a second and more.
  EXPECT_NE(KivMoveFile(zFolder / u"file", csZero + u"y", false), 0);
  EXPECT_NE(KivMoveFile(csZero, zFolder / u"to", false), 0);
  EXPECT_EQ(zFolder.ReadBytes(u"file"), "kept");
  EXPECT_FALSE(KivFileExists(zFolder / u"to"));
  KivCloseLog();
}

TEST(RemoveTree, APathThatIsEmptyOrNotThereIsTen) {
  kivtest::TestFolder zFolder;
  EXPECT_EQ(static_cast<uint32_t>(KivRemoveTree(u"")), 10u);
  EXPECT_EQ(static_cast<uint32_t>(KivRemoveTree(zFolder / u"missing")), 10u);
  EXPECT_EQ(static_cast<uint32_t>(KivRemoveTree(zFolder / KivWString(5000, u'a'))), 10u);
}

TEST(RemoveTree, AFolderThatCannotBeListedIsTwenty) {
  kivtest::TestFolder zFolder;
  zFolder.WriteBytes(u"file", "x");
  EXPECT_EQ(static_cast<uint32_t>(KivRemoveTree(zFolder / u"file")), 20u);
  EXPECT_TRUE(KivFileExists(zFolder / u"file"));
}

TEST(RemoveTree, FoldersAndReadOnlyFilesGoWithIt) {
  kivtest::TestFolder zFolder;
  const std::filesystem::path zTop(zFolder / u"top");
  std::filesystem::create_directories(zTop / "a" / "b");
  std::filesystem::create_directories(zTop / "empty");
  zFolder.WriteBytes(u"top/file", "1");
  zFolder.WriteBytes(u"top/a/b/deep", "2");
  std::filesystem::permissions(zTop / "file", std::filesystem::perms::owner_write,
                               std::filesystem::perm_options::remove);
  EXPECT_EQ(static_cast<uint32_t>(KivRemoveTree(zFolder / u"top")), 0u);
  EXPECT_FALSE(std::filesystem::exists(zTop));
}

TEST(RemoveTree, LinksInTheTreeGoAndWhatTheyLeadToStays) {
  const kivtest::TestFolder zTarget;
  kivtest::TestFolder zTop;
  zTarget.WriteBytes(u"kept", "x");
  sys::MakeFolder(zTarget / u"sub");
  std::filesystem::create_directories(std::filesystem::path(zTop.Path()) / "a" / "b");
  zTop.WriteBytes(u"a/file", "x");
  const kivtest::TestFolder::Link iLink = zTop.LinkToFolder(u"link", zTarget);
  ASSERT_NE(iLink, kivtest::TestFolder::Link::None);
  const bool bStuck = iLink == kivtest::TestFolder::Link::Stuck;
  EXPECT_EQ(static_cast<uint32_t>(KivRemoveTree(zTop.Path())), bStuck ? 30u : 0u);
  EXPECT_EQ(KivFileExists(zTop.Path()), bStuck);
  EXPECT_FALSE(KivFileExists(zTop / u"a"));
  EXPECT_EQ(zTarget.ReadBytes(u"kept"), "x");
  EXPECT_TRUE(KivFileExists(zTarget / u"sub"));
}

TEST(RemoveTree, ALinkInThePlaceOfTheFolderGoesAloneAndWhatItLeadsToStays) {
  for (const KivWString& csEnd : {KivWString(), KivWString(1, sys::kSeparator)}) {
    const kivtest::TestFolder zTarget;
    kivtest::TestFolder zFolder;
    zTarget.WriteBytes(u"kept", "x");
    const kivtest::TestFolder::Link iLink = zFolder.LinkToFolder(u"link", zTarget);
    ASSERT_NE(iLink, kivtest::TestFolder::Link::None);
    const bool bStuck = iLink == kivtest::TestFolder::Link::Stuck;
    EXPECT_EQ(static_cast<uint32_t>(KivRemoveTree((zFolder / u"link") + csEnd)), bStuck ? 30u : 0u);
    EXPECT_EQ(KivFileExists(zFolder / u"link"), bStuck);
    EXPECT_EQ(zTarget.ReadBytes(u"kept"), "x");
  }
}

TEST(RemoveTree, ALinkThatCannotBeRemovedIsThirty) {
  const kivtest::TestFolder zTarget;
  kivtest::TestFolder zFolder;
  ASSERT_NE(zFolder.LinkToFolder(u"link", zTarget), kivtest::TestFolder::Link::None);
  {
    KivSysFaultScope zFault({KivSysCall::FileRemove, 1, true, KivSysFaultKind::Fail, false});
    EXPECT_EQ(static_cast<uint32_t>(KivRemoveTree(zFolder / u"link")), 30u);
    EXPECT_TRUE(zFault.HasFired());
  }
  EXPECT_TRUE(sys::IsLink(zFolder / u"link"));
}

TEST(RemoveTree, AFolderThatCannotBeRemovedIsThirtyAfterFiveMoreTries) {
  kivtest::TestFolder zFolder;
  sys::MakeFolder(zFolder / u"top");
  KivSysFaultScope zFault({KivSysCall::FolderRemove, 1, true, KivSysFaultKind::Fail, false});
  EXPECT_EQ(static_cast<uint32_t>(KivRemoveTree(zFolder / u"top")), 30u);
  EXPECT_EQ(zFault.GetCount(KivSysCall::FolderRemove), 6u);
}

TEST(RemoveTree, ALaterTryThatSucceedsIsASuccess) {
  kivtest::TestFolder zFolder;
  sys::MakeFolder(zFolder / u"top");
  KivSysFaultScope zFault({KivSysCall::FolderRemove, 1, false, KivSysFaultKind::Fail, false});
  EXPECT_EQ(static_cast<uint32_t>(KivRemoveTree(zFolder / u"top")), 0u);
  EXPECT_TRUE(zFault.HasFired());
}

TEST(RemoveTree, AFileThatCannotBeDeletedIsPassedOver) {
  kivtest::TestFolder zFolder;
  sys::MakeFolder(zFolder / u"top");
  zFolder.WriteBytes(u"top/one", "x");
  zFolder.WriteBytes(u"top/two", "x");
  KivSysFaultScope zFault({KivSysCall::FileRemove, 1, false, KivSysFaultKind::Fail, false});
  EXPECT_EQ(static_cast<uint32_t>(KivRemoveTree(zFolder / u"top")), 30u);
  EXPECT_NE(KivFileExists(zFolder / u"top/one"), KivFileExists(zFolder / u"top/two"));
}

TEST(OrphanFolders, AFolderOfALivingProcessIsKeptAndGoesWhenTheProcessHasEnded) {
  kivtest::TestFolder zFolder;
  const KivWString csTag = NumberText(sys::CurrentProcessNumber());
  bool bExisted = false;
  KivSysEvent zReady = KivSysEvent::Create(u"kivtest-orphan-ready-" + csTag, bExisted);
  KivSysEvent zGo = KivSysEvent::Create(u"kivtest-orphan-go-" + csTag, bExisted);
  KivSysProcess zChild =
      kivtest::StartTestChild("WaitsForItsEvent", {u"kivtest-orphan-ready-" + csTag, u"kivtest-orphan-go-" + csTag});
  ASSERT_EQ(zReady.Wait(KivSysEvent::kInfinite), KivSysWait::Signalled);
  sys::MakeFolder(zFolder / u"sub");
  const KivWString csOrphan = zFolder / TempName(zChild.GetId());
  sys::MakeFolder(csOrphan);
  EXPECT_TRUE(KivRemoveOrphanFolders(zFolder.Path(), false));
  EXPECT_TRUE(KivFileExists(csOrphan));
  zGo.Set();
  ASSERT_EQ(zChild.Wait(KivSysEvent::kInfinite), KivSysWait::Signalled);
  int32_t iCode = -1;
  ASSERT_TRUE(zChild.GetExitCode(iCode));
  EXPECT_EQ(iCode, 0);
  zChild.Close();
  EXPECT_TRUE(KivRemoveOrphanFolders(zFolder.Path(), false));
  EXPECT_FALSE(KivFileExists(csOrphan));
}

// A process that starts while the orphans are looked for, with a folder made in that instant.
TEST(OrphanFolders, AProcessThatStartsMeanwhileKeepsItsFolder) {
  kivtest::TestFolder zFolder;
  sys::MakeFolder(zFolder / u"sub");
  const KivWString csTag = NumberText(sys::CurrentProcessNumber());
  const KivWString csReady = u"kivtest-orphan-ready-" + csTag;
  const KivWString csGo = u"kivtest-orphan-go-" + csTag;
  bool bExisted = false;
  const KivSysEvent zReady = KivSysEvent::Create(csReady, bExisted);
  KivSysEvent zGo = KivSysEvent::Create(csGo, bExisted);
  KivSysProcess zChild;
  KivWString csOwn;
  KivSysFaultPlan zPlan;
  zPlan.m_iCall = KivSysCall::FolderList;
  zPlan.m_iNth = 1;
  zPlan.m_iKind = KivSysFaultKind::Meanwhile;
  zPlan.m_pfnMeanwhile = [&] {
    zChild = kivtest::StartTestChild("WaitsForItsEvent", {csReady, csGo});
    zReady.Wait(KivSysEvent::kInfinite);
    csOwn = zFolder / TempName(zChild.GetId());
    sys::MakeFolder(csOwn);
  };
  {
    const KivSysFaultScope zFault(zPlan);
    EXPECT_TRUE(KivRemoveOrphanFolders(zFolder.Path(), false));
    ASSERT_TRUE(zFault.HasFired());
  }
  EXPECT_TRUE(KivFileExists(csOwn));
  zGo.Set();
  zChild.Wait(KivSysEvent::kInfinite);
}

TEST(OrphanFolders, ALinkWithTheNameOfAnOrphanDoesNotLeadToADeletion) {
  const kivtest::TestFolder zTarget;
  kivtest::TestFolder zFolder;
  zTarget.WriteBytes(u"kept", "x");
  ASSERT_NE(zFolder.LinkToFolder(u"ZUR_TMP_FOLDER-", zTarget), kivtest::TestFolder::Link::None);
  EXPECT_TRUE(KivRemoveOrphanFolders(zFolder.Path(), false));
  EXPECT_EQ(zTarget.ReadBytes(u"kept"), "x");
  EXPECT_TRUE(sys::IsLink(zFolder / u"ZUR_TMP_FOLDER-")) << "a link is no sub-folder";
}

TEST(OrphanFolders, TheKeepMarkerSavesAFolder) {
  kivtest::TestFolder zFolder;
  const uint32_t iEnded = EndedProcess();
  const KivWString csKept = zFolder / TempName(iEnded);
  sys::MakeFolder(csKept);
  zFolder.WriteBytes(TempName(iEnded) + u"/_keep_folder.dat", "");
  EXPECT_TRUE(KivRemoveOrphanFolders(zFolder.Path(), true));
  EXPECT_TRUE(KivFileExists(csKept));
  sys::RemoveFileAt(zFolder / (TempName(iEnded) + sys::kSeparator + u"_keep_folder.dat"));
  EXPECT_TRUE(KivRemoveOrphanFolders(zFolder.Path(), true));
  EXPECT_FALSE(KivFileExists(csKept));
}

TEST(OrphanFolders, TheOwnFolderIsAnOrphanOnlyWithTheFlag) {
  kivtest::TestFolder zFolder;
  const KivWString csOwn = zFolder / TempName(sys::CurrentProcessNumber());
  sys::MakeFolder(zFolder / u"sub");
  sys::MakeFolder(csOwn);
  EXPECT_TRUE(KivRemoveOrphanFolders(zFolder.Path(), false));
  EXPECT_TRUE(KivFileExists(csOwn));
  EXPECT_TRUE(KivRemoveOrphanFolders(zFolder.Path(), true));
  EXPECT_FALSE(KivFileExists(csOwn));
}

TEST(OrphanFolders, NumbersAreComparedAsTextAndANameWithoutADashIsAnOrphan) {
  kivtest::TestFolder zFolder;
  sys::MakeFolder(zFolder / u"sub");
  const KivWString csOwn = NumberText(sys::CurrentProcessNumber());
  for (const KivWString& csName :
       {u"ZUR_TMP_FOLDER-0" + csOwn, u"ZUR_TMP_FOLDER" + csOwn, KivWString(u"ZUR_TMP_FOLDER"),
        KivWString(u"ZUR_TMP_FOLDER-"), u"ZUR_TMP_FOLDER-" + csOwn + u"x"}) {
    sys::MakeFolder(zFolder / csName);
    zFolder.WriteBytes(csName + u"/content", "x");
    EXPECT_TRUE(KivRemoveOrphanFolders(zFolder.Path(), false));
    EXPECT_FALSE(KivFileExists(zFolder / csName)) << testing::PrintToString(csName);
  }
}

TEST(OrphanFolders, OnlyFoldersOfTheWordGo) {
  kivtest::TestFolder zFolder;
  sys::MakeFolder(zFolder / u"zur_tmp_folder-1");
  sys::MakeFolder(zFolder / u"OTHER-ZUR_TMP_FOLDER-1");
  zFolder.WriteBytes(u"ZUR_TMP_FOLDER-file", "x");
  EXPECT_TRUE(KivRemoveOrphanFolders(zFolder.Path(), false));
  EXPECT_TRUE(KivFileExists(zFolder / u"zur_tmp_folder-1"));
  EXPECT_TRUE(KivFileExists(zFolder / u"OTHER-ZUR_TMP_FOLDER-1"));
  EXPECT_TRUE(KivFileExists(zFolder / u"ZUR_TMP_FOLDER-file"));
}

TEST(OrphanFolders, TheFolderItselfGoesIfItHasBecomeEmpty) {
  kivtest::TestFolder zFolder;
  const KivWString csParent = zFolder / u"parent";
  sys::MakeFolder(csParent);
  sys::MakeFolder(csParent + sys::kSeparator + u"ZUR_TMP_FOLDER-");
  EXPECT_TRUE(KivRemoveOrphanFolders(csParent, false));
  EXPECT_FALSE(KivFileExists(csParent));
}

TEST(OrphanFolders, ADeletionThatFailsGivesFalseAndTheOthersGoOn) {
  kivtest::TestFolder zFolder;
  sys::MakeFolder(zFolder / u"ZUR_TMP_FOLDER-a");
  sys::MakeFolder(zFolder / u"ZUR_TMP_FOLDER-b");
  sys::MakeFolder(zFolder / u"ZUR_TMP_FOLDER-c");
  {
    // The second listing is that of the first orphan.
    KivSysFaultScope zFault({KivSysCall::FolderList, 2, false, KivSysFaultKind::Fail, false});
    EXPECT_FALSE(KivRemoveOrphanFolders(zFolder.Path(), false));
    EXPECT_TRUE(zFault.HasFired());
  }
  std::vector<KivSysFolderEntry> vzLeft;
  ASSERT_TRUE(sys::ListFolder(zFolder.Path(), vzLeft));
  EXPECT_EQ(vzLeft.size(), 1u);
}

TEST(OrphanFolders, WhoCannotTellTheLivingDeletesNothing) {
  kivtest::TestFolder zFolder;
  sys::MakeFolder(zFolder / u"ZUR_TMP_FOLDER-a");
  {
    const KivSysFaultScope zFault({KivSysCall::ProcessList, 1, false, KivSysFaultKind::Fail, false});
    EXPECT_FALSE(KivRemoveOrphanFolders(zFolder.Path(), false));
    EXPECT_TRUE(zFault.HasFired());
  }
  EXPECT_TRUE(KivFileExists(zFolder / u"ZUR_TMP_FOLDER-a"));
  EXPECT_TRUE(KivRemoveOrphanFolders(zFolder.Path(), false));
  EXPECT_FALSE(KivFileExists(zFolder / u"ZUR_TMP_FOLDER-a"));
}

TEST(OrphanFolders, AFolderThatIsNotThereHasNoOrphans) {
  kivtest::TestFolder zFolder;
  EXPECT_TRUE(KivRemoveOrphanFolders(zFolder / u"missing", false));
  EXPECT_TRUE(KivRemoveOrphanFolders(u"", false));
}

TEST(MoveFile, AMoveTakesTheNameAway) {
  kivtest::TestFolder zFolder;
  for (bool bCopy : {false, true}) {
    zFolder.WriteBytes(u"from", "content");
    EXPECT_EQ(KivMoveFile(zFolder / u"from", zFolder / u"to", bCopy), 0);
    EXPECT_FALSE(KivFileExists(zFolder / u"from"));
    EXPECT_EQ(zFolder.ReadBytes(u"to"), "content");
    sys::RemoveFileAt(zFolder / u"to");
  }
}

TEST(MoveFile, AnExistingTargetIsNotOverwritten) {
  kivtest::TestFolder zFolder;
  zFolder.WriteBytes(u"from", "new");
  zFolder.WriteBytes(u"to", "old");
  for (bool bCopy : {false, true}) {
    EXPECT_NE(KivMoveFile(zFolder / u"from", zFolder / u"to", bCopy), 0);
    EXPECT_EQ(zFolder.ReadBytes(u"from"), "new");
    EXPECT_EQ(zFolder.ReadBytes(u"to"), "old");
  }
}

TEST(MoveFile, AMissingSourceFails) {
  kivtest::TestFolder zFolder;
  EXPECT_NE(KivMoveFile(zFolder / u"missing", zFolder / u"to", false), 0);
  EXPECT_NE(KivMoveFile(u"", zFolder / u"to", false), 0);
  EXPECT_FALSE(KivFileExists(zFolder / u"to"));
}

TEST(MoveFile, EachWayIsTriedSixTimes) {
  kivtest::TestFolder zFolder;
  zFolder.WriteBytes(u"from", "content");
  {
    KivSysFaultScope zFault({KivSysCall::FileCopy, 1, true, KivSysFaultKind::Fail, false});
    EXPECT_EQ(KivMoveFile(zFolder / u"from", zFolder / u"to", true), 0);
    EXPECT_EQ(zFault.GetCount(KivSysCall::FileCopy), 6u);
    EXPECT_EQ(zFault.GetCount(KivSysCall::FileMove), 1u);
  }
  KivSysFaultScope zFault({KivSysCall::FileMove, 1, true, KivSysFaultKind::Fail, false});
  EXPECT_NE(KivMoveFile(zFolder / u"to", zFolder / u"from", false), 0);
  EXPECT_EQ(zFault.GetCount(KivSysCall::FileMove), 6u);
  EXPECT_EQ(zFolder.ReadBytes(u"to"), "content");
}

TEST(MoveFile, ALaterTryThatSucceedsIsASuccess) {
  kivtest::TestFolder zFolder;
  zFolder.WriteBytes(u"from", "content");
  KivSysFaultScope zFault({KivSysCall::FileMove, 1, false, KivSysFaultKind::Fail, false});
  EXPECT_EQ(KivMoveFile(zFolder / u"from", zFolder / u"to", false), 0);
  EXPECT_EQ(zFolder.ReadBytes(u"to"), "content");
}
