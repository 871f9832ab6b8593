#include <gtest/gtest.h>

#include <filesystem>
#include <regex>

#include "KivDataUtil.h"
#include "KivException.h"
#include "KivSysFault.h"
#include "KivSysFile.h"
#include "KivSysFolder.h"
#include "KivSysProcess.h"
#include "KivTestProgram.h"
#include "KivTestReport.h"

using namespace kiv;

namespace {

KivWString Suffix() {
  return KivWString(sys::kExecutableSuffix);
}

KivWString NumberText(uint32_t iNumber) {
  const std::string strNumber = std::to_string(iNumber);
  return KivWString(strNumber.begin(), strNumber.end());
}

KivWString OwnNumber() {
  return NumberText(sys::CurrentProcessNumber());
}

KivWString Join(const KivWString& csFolder, const KivWString& csName) {
  return csFolder + sys::kSeparator + csName;
}

bool IsGeneratedName(const KivWString& csName) {
  const KivWString csOwn = OwnNumber();
  return std::regex_match(std::string(csName.begin(), csName.end()),
                          std::regex("ZUR_TMP_FOLDER-20[0-9]{6}-[0-9]{6}-" + std::string(csOwn.begin(), csOwn.end())));
}

}  // namespace

TEST(WorkFolder, ANameAfterItIsSettledIsRefusedAndAnEmptyTextIsHarmless) {
  kivtest::TestFolder zFolder;
  EXPECT_TRUE(KivSetWorkFolder(zFolder / u"work"));
  EXPECT_EQ(KivGetWorkFolder(), zFolder / u"work");
  EXPECT_FALSE(KivSetWorkFolder(zFolder / u"other"));
  EXPECT_FALSE(KivSetWorkFolder(zFolder / u"work"));
  EXPECT_TRUE(KivSetWorkFolder(u""));
  EXPECT_EQ(KivGetWorkFolder(), zFolder / u"work");
  EXPECT_FALSE(sys::FolderExists(zFolder / u"other"));
}

TEST(WorkFolder, AnAbsoluteOneIsTakenAsItIsAndMade) {
  kivtest::TestFolder zFolder;
  EXPECT_TRUE(KivSetWorkFolder(zFolder / u"work"));
  EXPECT_TRUE(sys::FolderExists(zFolder / u"work"));
  EXPECT_EQ(KivGetWorkFolderName(), zFolder / u"work");
}

TEST(WorkFolder, OneThatCannotBeMadeIsTakenAllTheSame) {
  kivtest::TestFolder zFolder;
  const KivWString csPath = Join(zFolder / u"missing", u"work");
  EXPECT_NO_REPORT(EXPECT_TRUE(KivSetWorkFolder(csPath)));
  EXPECT_EQ(KivGetWorkFolder(), csPath);
  EXPECT_NO_REPORT(KivWriteLog(u"dropped"));
}

TEST(WorkFolder, ATextThatIsTooLongForAPathIsTakenAllTheSame) {
  kivtest::TestFolder zFolder;
  const KivWString csPath = zFolder / KivWString(40000, u'a');
  EXPECT_NO_REPORT(EXPECT_TRUE(KivSetWorkFolder(csPath)));
  EXPECT_EQ(KivGetWorkFolder(), csPath);
  EXPECT_NO_REPORT(KivWriteLog(u"dropped"));
}

TEST(WorkFolder, NamesOfItsFiles) {
  kivtest::TestFolder zFolder;
  KivSetWorkFolder(zFolder.Path());
  EXPECT_EQ(KivGetWorkFileName(), zFolder / (u"work" + OwnNumber() + u".kiv"));
  EXPECT_EQ(KivGetWorkCacheName(), zFolder / (u"work" + OwnNumber() + u"-1.cache"));
  EXPECT_EQ(KivGetWorkCacheName(), zFolder / (u"work" + OwnNumber() + u"-2.cache"));
  EXPECT_EQ(KivGetShaderFolder(), zFolder / u"shader_resource");
  EXPECT_FALSE(KivFileExists(KivGetShaderFolder()));
}

TEST(WorkFolder, AGeneratedNameIsDateTimeAndProcessAndMakesNothing) {
  kivtest::TestFolder zFolder;
  KivSetWorkFolder(zFolder.Path());
  EXPECT_TRUE(IsGeneratedName(KivMakeTempFolderName()));
  EXPECT_FALSE(KivFileExists(Join(KivGetModuleFolder(), KivMakeTempFolderName())));
}

TEST(WorkFolder, AFailingLocalTimeIsReported) {
  kivtest::TestFolder zFolder;
  KivSetWorkFolder(zFolder.Path());
  KivSysFaultScope zFault({KivSysCall::Clock, 1, true, KivSysFaultKind::Fail, false});
  EXPECT_REPORT(KivMakeTempFolderName(), "err == 0");
  kivtest::NoThrowScope zNoThrow;
  EXPECT_EQ(KivMakeTempFolderName(), u"ZUR_TMP_FOLDER-00000000-000000-" + OwnNumber());
}

namespace {

KIV_TEST_CHILD(GeneratesWorkFolder) {
  KivWString csProgram;
  KivWString csFolder;
  KivWString csName;
  CHILD_CHECK(sys::ProgramPath(csProgram));
  KivSplitPath(csProgram, csFolder, csName);
  CHILD_CHECK(KivGetModuleFolder() == csFolder);
  CHILD_CHECK(IsGeneratedName(KivGetWorkFolderName()));
  CHILD_CHECK(KivGetWorkFolder() == Join(csFolder, KivGetWorkFolderName()));
  CHILD_CHECK(sys::FolderExists(KivGetWorkFolder()));
  CHILD_CHECK(!KivSetWorkFolder(u"name"));
  CHILD_CHECK(KivGetLogFolder() == Join(Join(KivGetWorkFolder(), u".."), u"Log"));
  CHILD_CHECK(sys::FolderExists(Join(csFolder, u"Log")));
  CHILD_CHECK(KivGetErrorLogPath() == Join(KivGetLogFolder(), u"Error.log"));
  return 0;
}

KIV_TEST_CHILD(GeneratesWorkFolderElsewhere) {
  CHILD_CHECK(!sys::CanWriteFolder(KivGetModuleFolder()));
  CHILD_CHECK(IsGeneratedName(KivGetWorkFolderName()));
  CHILD_CHECK(KivGetWorkFolder() == Join(sys::PrivateTempFolder(), KivGetWorkFolderName()));
  CHILD_CHECK(sys::FolderExists(KivGetWorkFolder()));
  KivWriteLog(u"a line");
  KivCloseLog();
  CHILD_CHECK(KivRemoveTree(KivGetWorkFolder()) == KivRemoveTreeResult::Done);
  return 0;
}

KIV_TEST_CHILD(RelativeWorkFolder) {
  // The current folder is another one than the program's.
  std::filesystem::current_path(std::filesystem::path(vcsArgs[0]));
  CHILD_CHECK(KivSetWorkFolder(u"relative"));
  CHILD_CHECK(KivGetWorkFolder() == Join(KivGetModuleFolder(), u"relative"));
  CHILD_CHECK(KivGetWorkFolderName() == u"relative");
  CHILD_CHECK(sys::FolderExists(KivGetWorkFolder()));
  CHILD_CHECK(!std::filesystem::exists("relative"));
  return 0;
}

KIV_TEST_CHILD(EmptyLogFolder) {
  CHILD_CHECK(KivSetLogFolder(u""));
  CHILD_CHECK(KivGetLogFolder() == Join(KivGetModuleFolder(), u"Log"));
  CHILD_CHECK(sys::FolderExists(KivGetLogFolder()));
  return 0;
}

KIV_TEST_CHILD(RelativeLogFolder) {
  CHILD_CHECK(KivSetLogFolder(u"logs"));
  CHILD_CHECK(KivGetLogFolder() == Join(KivGetModuleFolder(), u"logs"));
  return 0;
}

KIV_TEST_CHILD(FindsModules) {
  const KivWString csModule = KivGetModuleFolder();
  CHILD_CHECK(KivSetWorkFolder(u"work"));
  const auto writeFile = [](const KivWString& csPath) {
    KivSysOpenMode zMode;
    zMode.m_iAccess = KivSysAccess::Write;
    zMode.m_iDisposition = KivSysDisposition::CreateAlways;
    return KivSysFile::Open(csPath, zMode).IsOpen();
  };
  // Neither exists: the last one is taken without a test.
  CHILD_CHECK(KivFindModule(u"Nowhere") == Join(csModule, u"Nowhere" + Suffix()));
  // In the module folder "_x64" comes first.
  CHILD_CHECK(writeFile(Join(csModule, u"Tool" + Suffix())));
  CHILD_CHECK(writeFile(Join(csModule, u"Tool_x64" + Suffix())));
  CHILD_CHECK(KivFindModule(u"Tool") == Join(csModule, u"Tool_x64" + Suffix()));
  // The work folder comes before it.
  CHILD_CHECK(writeFile(Join(csModule, u"Other_x64" + Suffix())));
  CHILD_CHECK(writeFile(Join(KivGetWorkFolder(), u"Other" + Suffix())));
  CHILD_CHECK(KivFindModule(u"Other") == Join(KivGetWorkFolder(), u"Other" + Suffix()));
  // A known one does not touch the disk.
  CHILD_CHECK(sys::RemoveFileAt(Join(csModule, u"Tool_x64" + Suffix())));
  CHILD_CHECK(KivFindModule(u"Tool") == Join(csModule, u"Tool_x64" + Suffix()));
  CHILD_CHECK(writeFile(Join(csModule, u"Nowhere_x64" + Suffix())));
  CHILD_CHECK(KivFindModule(u"Nowhere") == Join(csModule, u"Nowhere" + Suffix()));
  // The empty name is the program itself.
  KivWString csProgram;
  CHILD_CHECK(sys::ProgramPath(csProgram));
  CHILD_CHECK(KivFindModule(u"") == csProgram);
  return 0;
}

// The program's own path, which the system does not tell at first; that failure is not remembered.
KIV_TEST_CHILD(FindsItselfLater) {
  {
    const KivSysFaultScope zFault({KivSysCall::ProgramPath, 1, true, KivSysFaultKind::Fail, false});
    CHILD_CHECK(kivtest::ReportOf([] { KivFindModule(u""); }) == u"0");
    const kivtest::NoThrowScope zNoThrow;
    CHILD_CHECK(KivFindModule(u"").empty());
  }
  KivWString csProgram;
  CHILD_CHECK(sys::ProgramPath(csProgram));
  CHILD_CHECK(KivFindModule(u"") == csProgram);
  return 0;
}

// The file calls of a look-up, the second one of the same name included.
KIV_TEST_CHILD(RemembersModules) {
  KivSetWorkFolder(u"work");
  {
    const KivSysFaultScope zCounts({KivSysCall::PathExists, 0, false, KivSysFaultKind::Fail, false});
    KivFindModule(u"Tool");
    CHILD_CHECK(zCounts.GetCount(KivSysCall::PathExists) > 0);
  }
  const KivSysFaultScope zFault({KivSysCall::Count, 1, true, KivSysFaultKind::Fail, true});
  const KivWString& csAgain = KivFindModule(u"Tool");
  CHILD_CHECK(!zFault.HasFired());
  CHILD_CHECK(&csAgain == &KivFindModule(u"Tool"));
  return 0;
}

}  // namespace

TEST(WorkFolder, OneIsGeneratedBesideTheProgramAtFirstUse) {
  EXPECT_EQ(kivtest::TestProgram().Run("GeneratesWorkFolder"), 0);
}

// An installed program of a Linux system. The super-user can write everywhere and starts the program as another user.
TEST(WorkFolder, OneIsGeneratedInAPrivateFolderWhereTheProgramsFolderCannotBeWritten) {
  const kivtest::TestProgram zProgram;
  if (sys::kSeparator == u'\\') {
    EXPECT_EQ(zProgram.Run("GeneratesWorkFolder"), 0);  // on Windows it stays beside the program
    return;
  }
  const std::filesystem::path zFolder(zProgram.Folder().Path());
  std::filesystem::permissions(zFolder, std::filesystem::perms(0555));
  if (sys::CanWriteFolder(zProgram.Folder().Path())) {
    KivSysProcessStart zStart;
    const KivWString csLine = kivtest::TestChildCommandLine("GeneratesWorkFolderElsewhere", {});
    zStart.m_csCommandLine = u"\"/usr/bin/setpriv\" --reuid=65534 --regid=65534 --clear-groups \"" + zProgram.Path() +
                             csLine.substr(csLine.find(u'"', 1));
    KivSysProcess zChild = KivSysProcess::Start(zStart);
    int32_t iCode = -1;
    EXPECT_EQ(zChild.Wait(KivSysEvent::kInfinite), KivSysWait::Signalled);
    EXPECT_TRUE(zChild.GetExitCode(iCode));
    EXPECT_EQ(iCode, 0);
  } else {
    EXPECT_EQ(zProgram.Run("GeneratesWorkFolderElsewhere"), 0);
  }
  std::filesystem::permissions(zFolder, std::filesystem::perms(0755));
}

TEST(WorkFolder, ARelativeOneIsTakenFromTheModuleFolderAndNotFromTheCurrentOne) {
  const kivtest::TestFolder zOther;
  EXPECT_EQ(kivtest::TestProgram().Run("RelativeWorkFolder", {zOther.Path()}), 0);
}

TEST(LogFolder, AnEmptyTextIsLogUnderTheModuleFolder) {
  EXPECT_EQ(kivtest::TestProgram().Run("EmptyLogFolder"), 0);
}

TEST(LogFolder, ARelativeOneIsTakenFromTheModuleFolder) {
  EXPECT_EQ(kivtest::TestProgram().Run("RelativeLogFolder"), 0);
}

TEST(LogFolder, ANameAfterItIsSettledIsRefusedAndAnEmptyTextIsHarmless) {
  kivtest::TestFolder zFolder;
  EXPECT_TRUE(KivSetLogFolder(zFolder / u"logs"));
  EXPECT_FALSE(KivSetLogFolder(zFolder / u"other"));
  EXPECT_TRUE(KivSetLogFolder(u""));
  EXPECT_EQ(KivGetLogFolder(), zFolder / u"logs");
  EXPECT_TRUE(sys::FolderExists(zFolder / u"logs"));
  EXPECT_EQ(KivGetErrorLogPath(), Join(zFolder / u"logs", u"Error.log"));
}

TEST(LogFolder, ItStandsBesideTheWorkFolderByDefault) {
  kivtest::TestFolder zFolder;
  KivSetWorkFolder(zFolder / u"work");
  EXPECT_EQ(KivGetLogFolder(), Join(Join(zFolder / u"work", u".."), u"Log"));
  EXPECT_TRUE(sys::FolderExists(zFolder / u"Log"));
}

TEST(FindModule, WorkFolderThenX64ThenPlainName) {
  EXPECT_EQ(kivtest::TestProgram().Run("FindsModules"), 0);
}

TEST(FindModule, AProgramPathThatTheSystemDoesNotTellIsReportedAndAskedForAgain) {
  EXPECT_EQ(kivtest::TestProgram().Run("FindsItselfLater"), 0);
}

TEST(FindModule, TheSecondLookUpDoesNotTouchTheDisk) {
  EXPECT_EQ(kivtest::TestProgram().Run("RemembersModules"), 0);
}
