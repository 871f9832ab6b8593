#include "KivSysPresence.h"

#include <gtest/gtest.h>

#include "KivPlatformTest.h"
#include "KivTestFolder.h"

using namespace kiv;
using namespace kivtest;

KIV_TEST_CHILD(PresenceMarkerHolder) {
  const KivSysFile zMarker = MakeMarker(vcsArgs[1]);
  return zMarker.IsOpen() ? ReadyUntilKilled(vcsArgs[0]) : 1;
}

TEST(Presence, WhatIsNotThereDoesNotExist) {
  const TestFolder zFolder;
  for (const KivWString& csPath : {KivWString(), zFolder / u"missing", zFolder / KivWString(5000, u'x')}) {
    KivSysPresence zPresence;
    EXPECT_FALSE(zPresence.Exists(csPath));
    EXPECT_FALSE(zPresence.Exists(csPath));
  }
}

TEST(Presence, AnswersAsTheExistenceTestDoesForPlainFilesAndFolders) {
  const TestFolder zFolder;
  KivSysPresence zFile;
  KivSysPresence zSub;
  for (int i = 0; i < 2; ++i) {
    EXPECT_FALSE(zFile.Exists(zFolder / u"file"));
    EXPECT_FALSE(zSub.Exists(zFolder / u"sub"));
    zFolder.WriteBytes(u"file", "x");
    ASSERT_TRUE(sys::MakeFolder(zFolder / u"sub"));
    for (int j = 0; j < 2; ++j) {
      EXPECT_TRUE(zFile.Exists(zFolder / u"file"));
      EXPECT_TRUE(zSub.Exists(zFolder / u"sub"));
    }
    ASSERT_TRUE(sys::RemoveFileAt(zFolder / u"file"));
    ASSERT_TRUE(sys::RemoveFolder(zFolder / u"sub"));
  }
}

TEST(Presence, SeesAMarkerComeAndGoAgainAndAgain) {
  const TestFolder zFolder;
  const KivWString csPath = zFolder / u"KivProc1";
  KivSysPresence zPresence;
  for (int i = 0; i < 3; ++i) {
    EXPECT_FALSE(zPresence.Exists(csPath));
    const KivSysFile zMarker = MakeMarker(csPath);
    ASSERT_TRUE(zMarker.IsOpen());
    for (int j = 0; j < 3; ++j) EXPECT_TRUE(zPresence.Exists(csPath));
  }
  EXPECT_FALSE(zPresence.Exists(csPath));
}

TEST(Presence, TheMarkerOfAKilledProcessIsGoneAlsoForOneThatAskedBefore) {
  const TestFolder zFolder;
  const KivWString csPath = zFolder / u"KivProc1";
  ReadyChild zChild("PresenceMarkerHolder", {csPath});
  ASSERT_TRUE(zChild.IsReady());
  KivSysPresence zPresence;
  EXPECT_TRUE(zPresence.Exists(csPath));
  EXPECT_TRUE(zPresence.Exists(csPath));
  ASSERT_TRUE(zChild.Kill());
  EXPECT_TRUE(Eventually([&] { return !zPresence.Exists(csPath); }));
  const KivSysFile zNew = MakeMarker(csPath);
  ASSERT_TRUE(zNew.IsOpen()) << "asking keeps nothing back";
  EXPECT_TRUE(zPresence.Exists(csPath));
}

TEST(Presence, ItsQuestionsDoNotKeepTheMarkerFromItsOwner) {
  const TestFolder zFolder;
  const KivWString csPath = zFolder / u"KivProc1";
  KivSysPresence zPresence;
  {
    const KivSysFile zMarker = MakeMarker(csPath);
    EXPECT_TRUE(zPresence.Exists(csPath));
  }
  EXPECT_FALSE(sys::PathExists(csPath));
  EXPECT_TRUE(sys::RemoveFolder(zFolder.Path()));
}
