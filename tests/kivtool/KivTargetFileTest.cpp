#include "KivTargetFileTest.h"

#include <gtest/gtest.h>

#include "KivSysFileKind.h"
#include "KivSysFolder.h"
#include "KivTargetFile.h"
#include "KivTestFolder.h"
#include "KivToolError.h"

namespace {

using kiv::KivTargetFile;
using kiv::KivToolError;
using kivtest::EntryNum;
using kivtest::NameIn;
using kivtest::TestFolder;
namespace sys = kiv::sys;

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

TEST(TargetFile, AFolderIsNoRegularFileAFileAndNothingAreNoOther) {
  const TestFolder zFolder;
  zFolder.WriteBytes(u"file", "file");
  EXPECT_TRUE(sys::IsNoRegularFile(zFolder.Path()));
  EXPECT_FALSE(sys::IsNoRegularFile(zFolder / u"file"));
  EXPECT_FALSE(sys::IsNoRegularFile(zFolder / u"missing"));
  EXPECT_FALSE(sys::IsNoRegularFile(u""));
}

TEST(TargetFile, AFileOfAnotherWithANameBesideTheTargetStays) {
  const TestFolder zFolder;
  kiv::KivWString csFirst;
  {
    const KivTargetFile zTarget(zFolder / u"out", false);
    csFirst = NameIn(zFolder, zTarget);
  }
  zFolder.WriteBytes(csFirst + u".scene", "mine");
  {
    KivTargetFile zTarget(zFolder / u"out", false);
    EXPECT_NE(NameIn(zFolder, zTarget), csFirst);
  }
  EXPECT_EQ(zFolder.ReadBytes(csFirst + u".scene"), "mine");
}

TEST(TargetFile, TwoOfOneTargetHaveTwoNames) {
  const TestFolder zFolder;
  const KivTargetFile zFirst(zFolder / u"out", false);
  zFolder.WriteBytes(NameIn(zFolder, zFirst), "one");
  const KivTargetFile zSecond(zFolder / u"out", false);
  EXPECT_NE(zFirst.GetTemporaryPath(), zSecond.GetTemporaryPath());
}

}  // namespace
