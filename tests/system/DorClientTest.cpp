// What a client leaves behind when its tree does not come up, and when its relay does not keep to the protocol.
#include <algorithm>

#include "DorTreeTest.h"
#include "KivSysFault.h"

using namespace kiv;
using namespace kivtest;

namespace {

// Generated work folders of this process.
size_t CountOwnGeneratedFolders() {
  size_t nFolders = 0;
  for (const KivWString& csParent : {KivGetModuleFolder(), sys::PrivateTempFolder()}) {
    std::vector<KivSysFolderEntry> vzEntries;
    sys::ListFolder(csParent, vzEntries);
    nFolders += static_cast<size_t>(std::count_if(vzEntries.begin(), vzEntries.end(), [](const auto& zEntry) {
      return zEntry.m_csName.starts_with(u"ZUR_TMP_FOLDER") && zEntry.m_csName.ends_with(u"-" + OwnPid());
    }));
  }
  return nFolders;
}

KivSysFaultPlan FirstFails(KivSysCall iCall) {
  KivSysFaultPlan zPlan;
  zPlan.m_iCall = iCall;
  zPlan.m_iNth = 1;
  return zPlan;
}

void ExpectNoTree(const DorClientOptions& zOptions) {
  EXPECT_THROW({ DorClient zClient(zOptions); }, DorClientError);
  EXPECT_EQ(CountOwnGeneratedFolders(), 0u);
}

class DorClientWithoutTree : public testing::TestWithParam<KivSysCall> {};

std::string NameOfCall(const testing::TestParamInfo<KivSysCall>& zInfo) {
  switch (zInfo.param) {
    case KivSysCall::Clock:
      return "NoLocalTime";
    case KivSysCall::FileOpen:
      return "NoMarker";
    case KivSysCall::FolderMake:
      return "NoRootFolder";
    default:
      return "NoJob";
  }
}

}  // namespace

TEST_P(DorClientWithoutTree, ARootFolderThatItHasMadeGoes) {
  TestFolder zFolder;
  const KivSysFaultScope zFault(FirstFails(GetParam()));
  ExpectNoTree(OddPrograms(zFolder));
  EXPECT_TRUE(zFault.HasFired());
  EXPECT_FALSE(sys::PathExists(zFolder / u"root"));
}

TEST_P(DorClientWithoutTree, AGeneratedRootFolderGoes) {
  TestFolder zFolder;
  DorClientOptions zOptions = OddPrograms(zFolder);
  zOptions.m_csRootFolder.clear();
  const KivSysFaultScope zFault(FirstFails(GetParam()));
  ExpectNoTree(zOptions);
  EXPECT_TRUE(zFault.HasFired());
}

TEST_P(DorClientWithoutTree, AFolderThatTheHostHasSettledStays) {
  TestFolder zFolder;
  ASSERT_TRUE(KivSetWorkFolder(zFolder / u"root"));
  WriteFile(zFolder / u"root" + sys::kSeparator + u"of the host", "x");
  const KivSysFaultScope zFault(FirstFails(GetParam()));
  ExpectNoTree(OddPrograms(zFolder));
  EXPECT_TRUE(zFault.HasFired());
  std::vector<KivSysFolderEntry> vzEntries;
  ASSERT_TRUE(sys::ListFolder(zFolder / u"root", vzEntries));
  ASSERT_EQ(vzEntries.size(), 1u);
  EXPECT_EQ(vzEntries[0].m_csName, u"of the host");
}
INSTANTIATE_TEST_SUITE_P(Step, DorClientWithoutTree,
                         testing::Values(KivSysCall::Clock, KivSysCall::FileOpen, KivSysCall::FolderMake,
                                         KivSysCall::JobCreate),
                         NameOfCall);

TEST(DorClientStart, ARootFolderThatExistsIsAnErrorAndStaysAndNothingIsLeftBesideIt) {
  TestFolder zFolder;
  ASSERT_TRUE(sys::MakeFolder(zFolder / u"root"));
  WriteFile(Join(zFolder / u"root", u"of somebody"), "x");
  ExpectNoTree(OddPrograms(zFolder));
  EXPECT_TRUE(sys::PathExists(Join(zFolder / u"root", u"of somebody")));
}

TEST(DorClientStart, AFileInPlaceOfTheRootFolderIsAnErrorAndStays) {
  TestFolder zFolder;
  WriteFile(zFolder / u"root", "x");
  ExpectNoTree(OddPrograms(zFolder));
  EXPECT_TRUE(sys::PathExists(zFolder / u"root"));
  EXPECT_FALSE(sys::FolderExists(zFolder / u"root"));
}

TEST(DorClientStart, TheWorkFolderThatTheHostHasSettledServesAsTheRootFolder) {
  TestFolder zFolder;
  ASSERT_TRUE(KivSetWorkFolder(zFolder / u"root"));
  DorClient zClient(OddPrograms(zFolder));
  EXPECT_EQ(zClient.GetRootFolder(), zFolder / u"root");
  EXPECT_EQ(zClient.Open(u"model"), 0);
  EXPECT_TRUE(zClient.Close());
}

// The relay is a child by hand: it answers each request with this image.
TEST(DorClientEnd, BehindAnAnswerThatLiesTheClientCleansUpAll) {
  for (const std::string& strImage : {AnswerImage(4, 0, "abc"), std::string(12, '\0')}) {
    TestFolder zFolder;
    KivSysProcess zHost = StartTestChild("HostOfALyingRelay", {zFolder / u"root", Wide("x" + ToHexText(strImage))});
    EXPECT_EQ(EndOf(zHost), 70);
    EXPECT_FALSE(sys::PathExists(zFolder / u"root"));
  }
}
KIV_TEST_CHILD(HostOfALyingRelay) {
  DorClientOptions zOptions;
  zOptions.m_csRelay = TestProgram();
  zOptions.m_csRelayArguments = BodyArguments("HandMadeChild", {vcsArgs.at(1), u"file"});
  zOptions.m_csRootFolder = vcsArgs.at(0);
  DorClient zClient(zOptions);
  KivByteBuffer vcResult;
  try {
    zClient.CallUnchecked(KivWString(kDorDoNothing), IdPayload(0), vcResult);
    return 1;
  } catch (const DorClientError&) {
  }
  try {
    zClient.CallUnchecked(KivWString(kDorDoNothing), IdPayload(0), vcResult);
    return 2;
  } catch (const DorClientError&) {
  }
  return zClient.Close() && zClient.Close() ? 70 : 3;
}

TEST(DorClientEnd, ARelayThatCannotBeAskedToEndDiesWithTheTreeAndNothingIsLeft) {
  TestFolder zFolder;
  DorClient zClient(OddPrograms(zFolder));
  zClient.Open(u"model");
  const KivSysFaultScope zFault(FirstFails(KivSysCall::EventSignal));
  EXPECT_TRUE(zClient.Close());
  EXPECT_TRUE(zFault.HasFired());
  EXPECT_FALSE(sys::PathExists(zFolder / u"root"));
  EXPECT_FALSE(zClient.IsOpen());
  EXPECT_TRUE(zClient.Close());
}
