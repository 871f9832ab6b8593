#include "DorTreeTest.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include "DorAnswerText.h"
#include "KivSysDiag.h"
#include "KivSysFault.h"
#include "KivTestMachine.h"

using namespace kiv;
using namespace kivtest;

namespace kivtest {

// In a process of its own: this one is to become a client, whose work folder is not settled yet.
KIV_TEST_CHILD(WritesMachine) {
  return vcsArgs.size() == 1 && WriteMachine(vcsArgs[0]) ? 0 : 1;
}

void WriteModelFile(const KivWString& csPath) {
  KivSysProcess zChild = StartTestChild("WritesMachine", {csPath});
  EXPECT_EQ(EndOf(zChild), 0);
}

Footprint OwnFootprint() {
  KivSysMemoryCounters zCounters;
  sys::MemoryCounters(zCounters);
  return {static_cast<int64_t>(zCounters.m_iPageFile), static_cast<int64_t>(sys::CountHandles())};
}

KivByteBuffer FootprintPayload(const Footprint& zFootprint) {
  KivByteBuffer vc = IdPayload(zFootprint.m_iMemory);
  KivPutInt64(vc, zFootprint.m_iHandles);
  return vc;
}

DorClientOptions RealPrograms(const TestFolder& zFolder) {
  DorClientOptions zOptions;
  zOptions.m_csRelay =
      Join(Join(Join(KivGetModuleFolder(), u".."), u"bin"), u"DorRelay" + KivWString(sys::kExecutableSuffix));
  zOptions.m_csRootFolder = zFolder / u"root";
  return zOptions;
}

DorClientOptions OddPrograms(const TestFolder& zFolder, const std::string& strHandlerBody,
                             const std::vector<KivWString>& vcsHandlerArgs) {
  DorClientOptions zOptions;
  zOptions.m_csRelay = TestProgram();
  std::vector<KivWString> vcsArgs{Wide(strHandlerBody)};
  vcsArgs.insert(vcsArgs.end(), vcsHandlerArgs.begin(), vcsHandlerArgs.end());
  zOptions.m_csRelayArguments = BodyArguments("OddRelay", vcsArgs);
  zOptions.m_csRootFolder = zFolder / u"root";
  return zOptions;
}

}  // namespace kivtest

namespace {

class OddRuntime : public IDorRelayRuntime {
 public:
  explicit OddRuntime(const std::vector<KivWString>& vcsArgs)
      : m_csHandlerArguments(BodyArguments(sys::WideToUtf8(vcsArgs.at(0)),
                                           std::vector<KivWString>(vcsArgs.begin() + 1, vcsArgs.end()))) {}
  KivWString FindHandler() override { return TestProgram(); }
  int32_t StartChild(const KivWString& csPath, int32_t& iChildPid) override {
    return KivExProcLib_StartChild(csPath, m_csHandlerArguments, iChildPid);
  }
  int32_t SendRequest(int32_t iChildPid, const KivWString& csName, const KivByteBuffer& vcPayload, int64_t& iStatus,
                      KivByteBuffer& vcAnswer) override {
    return KivExProcLib_SendMessage(iChildPid, csName, vcPayload, iStatus, vcAnswer);
  }
  int32_t PostRequest(int32_t iChildPid, const KivWString& csName, const KivByteBuffer& vcPayload,
                      KivExProcAnswer pfnAnswer) override {
    return KivExProcLib_PostMessage(iChildPid, csName, vcPayload, pfnAnswer);
  }
  int32_t CloseChild(int32_t iChildPid) override { return KivExProcLib_CloseChild(iChildPid); }
  void YieldSlice() override { sys::SleepMs(0); }
  void CloseDown(int32_t iStatus) override { KivExProcLib_CloseDown(iStatus, true); }

 private:
  KivWString m_csHandlerArguments;
};

void Misbehave(const std::string& strWhat, int32_t& iStatus, KivByteBuffer& vcResult) {
  if (strWhat == "kill") sys::EndProcess(9);
  if (strWhat == "exit") std::exit(3);
  if (strWhat == "report") KivReportFailure("asked for", "tests", 1);
  if (strWhat.starts_with("status ")) iStatus = std::stoi(strWhat.substr(7));
  if (strWhat.starts_with("cut "))
    vcResult.resize(vcResult.size() -
                    std::min<size_t>(vcResult.size(), static_cast<size_t>(std::stoi(strWhat.substr(4)))));
  if (strWhat == "long") vcResult.push_back(0);
  if (strWhat.starts_with("wait ")) KivSysEvent::Open(Wide(strWhat.substr(5))).Wait(kLongMs);
  if (strWhat == "footprint") vcResult = FootprintPayload(OwnFootprint());
}

int32_t OddDispatch(const KivWString& csRequest, const KivByteBuffer& vcPayload, int32_t& iStatus,
                    KivByteBuffer& vcResult) {
  static std::string strOrder;
  uint64_t iCursor = 0;
  int64_t iModel = 0;
  KivGetInt64(iCursor, vcPayload, &iModel);
  std::string strWhen = "call";
  if (csRequest == kDorReadDor) {
    KivWString csPath;
    KivGetString(iCursor, vcPayload, &csPath);
    KivWString csFolder, csName;
    KivSplitPath(csPath, csFolder, csName);
    strOrder = sys::WideToUtf8(csName);
    strWhen = "read";
  } else if (csRequest == kDorClearModel) {
    strWhen = "clear";
  } else if (csRequest == kDorPickOneElement) {
    strOrder = "call " +
               std::string(vcPayload.begin() + 8,
                           vcPayload.begin() + 8 + static_cast<ptrdiff_t>(std::min<size_t>(vcPayload.size() - 8, 32)));
  }
  if (strWhen == "call") {
    vcResult = vcPayload;
  } else {
    const bool bHit = strOrder.starts_with(strWhen + " ");
    KivPutInt64(vcResult, bHit && strOrder.ends_with(" id") ? iModel + 1 : iModel);
    KivPutString(vcResult, bHit && strOrder.ends_with(" name") ? u"DorHandler_Undo" : csRequest);
  }
  if (strOrder.starts_with(strWhen + " ")) Misbehave(strOrder.substr(strWhen.size() + 1), iStatus, vcResult);
  return 0;
}

// What a client has to say of its tree.
struct Tree {
  explicit Tree(const DorClientOptions& zOptions) : m_zClient(zOptions) {}

  // The relay has ended: the request throws, and the client can still clean up.
  void ExpectRelayEnds(const KivWString& csRequest, const KivByteBuffer& vcPayload) {
    KivByteBuffer vcResult;
    EXPECT_THROW(
        {
          const uint64_t iEnd = sys::SteadyNs() + uint64_t{kLongMs} * 1000000;
          while (sys::SteadyNs() < iEnd) m_zClient.CallUnchecked(csRequest, vcPayload, vcResult);
        },
        DorClientError);
    EXPECT_EQ(CountLivingFiles(m_zClient.GetRootFolder()), 0u);
    EXPECT_TRUE(m_zClient.Close());
    EXPECT_FALSE(sys::PathExists(m_zClient.GetRootFolder()));
  }

  int32_t Status(int64_t iModel) {
    KivByteBuffer vcResult;
    return m_zClient.CallUnchecked(KivWString(kDorDoNothing), IdPayload(iModel), vcResult);
  }

  DorClient m_zClient;
};

KivByteBuffer PickPayload(int64_t iModel, const std::string& strTail) {
  KivByteBuffer vc = IdPayload(iModel);
  vc.insert(vc.end(), strTail.begin(), strTail.end());
  return vc;
}

}  // namespace

KIV_TEST_CHILD(OddRelay) {
  static OddRuntime zRuntime(vcsArgs);
  DorRelay_SetRuntime(&zRuntime);
  return RunMember(
      DorRelay_Tick, DorRelay_Poll,
      [](const KivWString& csRequest, const KivByteBuffer& vcPayload, int32_t& iStatus, KivByteBuffer& vcResult) {
        if (csRequest != kAskRelayFootprint) return DorRelay_Dispatch(csRequest, vcPayload, iStatus, vcResult);
        vcResult = FootprintPayload(OwnFootprint());
        return 0;
      });
}
KIV_TEST_CHILD(OddHandler) {
  return RunMember(nullptr, GoOn, OddDispatch);
}
// Is killed with a tree behind it: 0 when the relay is up, 1 while a model is being read, 2 with a model open.
KIV_TEST_CHILD(KilledHost) {
  TestFolder zFolder;
  DorClientOptions zOptions = OddPrograms(zFolder);
  zOptions.m_csRootFolder = vcsArgs.at(0);
  DorClient zClient(zOptions);
  if (vcsArgs.at(1) != u"0") {
    const int64_t iModel = zClient.StartOpen(zFolder / u"model");
    if (vcsArgs.at(1) == u"2") zClient.AwaitOpen(iModel);
  }
  std::filesystem::remove_all(std::filesystem::path(zFolder.Path()));
  sys::EndProcess(9);
}

// Work folders of these processes beside the real programs, which stand elsewhere than the tree's root folder.
size_t CountGeneratedFolders(const DorClientOptions& zOptions, const std::vector<int32_t>& viPids) {
  KivWString csFolder, csName;
  KivSplitPath(zOptions.m_csRelay, csFolder, csName);
  std::vector<KivSysFolderEntry> vzEntries;
  EXPECT_TRUE(sys::ListFolder(csFolder, vzEntries));
  size_t nFolders = 0;
  for (const KivSysFolderEntry& zEntry : vzEntries)
    for (int32_t iPid : viPids)
      if (zEntry.m_csName.starts_with(u"ZUR_TMP_FOLDER") && zEntry.m_csName.ends_with(u"-" + Decimal(iPid))) ++nFolders;
  return nFolders;
}

TEST(DorTree, AModelIsOpenedAskedAndClosedAndNothingIsLeftBehind) {
  TestFolder zFolder;
  WriteModelFile(zFolder / u"model.kiv");
  const DorClientOptions zOptions = RealPrograms(zFolder);
  DorClient zClient(zOptions);
  EXPECT_EQ(zClient.ListTree().size(), 2u);
  const int64_t iModel = zClient.Open(zFolder / u"model.kiv");
  EXPECT_EQ(iModel, 0);
  EXPECT_EQ(zClient.ListTree().size(), 3u);
  const DorAnswer zAnswer = zClient.Call(u"DorHandler_GetAsmTreeInfo", IdPayload(iModel));
  EXPECT_EQ(zAnswer.m_iStatus, 0);
  uint64_t iCursor = 0;
  int64_t iCode = -1;
  ASSERT_TRUE(KivGetInt64(iCursor, zAnswer.m_vcResult, &iCode));
  EXPECT_EQ(iCode, 0);
  const std::vector<int32_t> viPids = zClient.ListTree();
  EXPECT_GE(CountGeneratedFolders(zOptions, viPids), 1u);  // the relay's, beside its program
  zClient.Clear(iModel);
  const KivWString csRoot = zClient.GetRootFolder();
  EXPECT_TRUE(zClient.Close());
  EXPECT_FALSE(sys::PathExists(csRoot));
  EXPECT_EQ(CountGeneratedFolders(zOptions, viPids), 0u);
  EXPECT_TRUE(zClient.Close());
}

TEST(DorTree, ARelayThatEndsWithAReportLeavesNoFolderBehindEither) {
  TestFolder zFolder;
  WriteModelFile(zFolder / u"model.kiv");
  const DorClientOptions zOptions = RealPrograms(zFolder);
  DorClient zClient(zOptions);
  zClient.Open(zFolder / u"model.kiv");
  const std::vector<int32_t> viPids = zClient.ListTree();
  KivByteBuffer vcResult;
  EXPECT_THROW(zClient.CallUnchecked(u"DorHandler_CopyAsm", {}, vcResult), DorClientError);
  EXPECT_TRUE(zClient.Close());
  EXPECT_EQ(CountGeneratedFolders(zOptions, viPids), 0u);
  EXPECT_FALSE(sys::PathExists(zFolder / u"root"));
}

TEST(DorTree, TheRelaysExitCodeIsToldOnceItHasEnded) {
  TestFolder zFolder;
  DorClient zClient(RealPrograms(zFolder));
  int32_t iCode = 0;
  EXPECT_FALSE(zClient.GetRelayExitCode(iCode));
  KivByteBuffer vcResult;
  EXPECT_THROW(zClient.CallUnchecked(u"DorHandler_CopyAsm", {}, vcResult), DorClientError);
  EXPECT_TRUE(zClient.Close());
  EXPECT_TRUE(zClient.GetRelayExitCode(iCode));
  EXPECT_EQ(iCode, sys::kSeparator == u'\\' ? 999 : 231);
}

TEST(DorTree, FoldersOfAnEarlierTreeThatWasKilledGoWithTheNextClose) {
  TestFolder zFolder;
  // Ids beyond those of any process.
  const KivWString csOld = zFolder / u"ZUR_TMP_FOLDER-20200101-000000-999999999";
  ASSERT_TRUE(sys::MakeFolder(csOld));
  WriteFile(Join(csOld, u"KivLog.txt"), "old");
  DorClient zClient(OddPrograms(zFolder));
  EXPECT_TRUE(zClient.Close());
  EXPECT_FALSE(sys::PathExists(csOld));
  EXPECT_TRUE(sys::PathExists(zFolder.Path()));  // stays, although it is empty now
}

TEST(DorTree, AReportWhileTheRelayIsStartedIsAnErrorAndNothingIsLeftBehind) {
  TestFolder zFolder;
  KivSysFaultPlan zPlan;
  zPlan.m_iCall = KivSysCall::MappingCreate;
  zPlan.m_iNth = 2;  // the first one asks whether files can be mapped
  const KivSysFaultScope zFault(zPlan);
  EXPECT_THROW({ DorClient zClient(OddPrograms(zFolder)); }, DorClientError);
  EXPECT_TRUE(zFault.HasFired());
  EXPECT_FALSE(sys::PathExists(zFolder / u"root"));
}

TEST(DorTree, WhatIsNoModelGivesStatus2ToAllRequestsAndTheTreeGoesOn) {
  TestFolder zFolder;
  WriteModelFile(zFolder / u"good.kiv");
  WriteFile(zFolder / u"empty", "");
  WriteFile(zFolder / u"text", std::string(1000, 'x'));
  WriteFile(zFolder / u"short", std::string(8, '\x14'));
  WriteFile(zFolder / u"trailer", std::string(12, '\xFF') + "M1K2I3V4");
  WriteFile(zFolder / u"package", std::string(12, '\0') + "M1K2I3V4");
  WriteFile(zFolder / u"head",
            std::string(8, '\0') + std::string(8, '\x14') + std::string(8, '\xB0') + std::string(240, '\0'));
  DorClient zClient(RealPrograms(zFolder));
  for (const char16_t* szName : {u"empty", u"text", u"short", u"trailer", u"package", u"head", u"missing"}) {
    const int64_t iModel = zClient.StartOpen(zFolder / szName);
    EXPECT_THROW(zClient.AwaitOpen(iModel), DorReadError) << sys::WideToUtf8(szName);
    EXPECT_EQ(zClient.Call(u"DorHandler_GetAsmTreeInfo", IdPayload(iModel)).m_iStatus, 2);
    zClient.Clear(iModel);
  }
  EXPECT_EQ(zClient.Call(u"DorHandler_DoNothing", IdPayload(zClient.Open(zFolder / u"good.kiv"))).m_iStatus, 0);
}

TEST(DorTree, WhatTheHandlerDoesNotOfferIsAnsweredWithACodeAndAReason) {
  TestFolder zFolder;
  WriteModelFile(zFolder / u"model.kiv");
  DorClient zClient(RealPrograms(zFolder));
  const int64_t iModel = zClient.Open(zFolder / u"model.kiv");
  KivByteBuffer vcPayload = IdPayload(iModel);
  KivPutInt64(vcPayload, 3);
  KivPutInt64(vcPayload, -3);
  const DorAnswer zAnswer = zClient.Call(u"DorHandler_GetFilletIntCurve", vcPayload);
  EXPECT_EQ(zAnswer.m_iStatus, 0);
  uint64_t iCursor = 0;
  int64_t iCode = 0;
  KivWString csReason;
  ASSERT_TRUE(KivGetInt64(iCursor, zAnswer.m_vcResult, &iCode) && KivGetString(iCursor, zAnswer.m_vcResult, &csReason));
  EXPECT_NE(iCode, 0);
  EXPECT_NE(csReason.find(u"DorHandler_GetFilletIntCurve"), KivWString::npos);
  EXPECT_EQ(iCursor, zAnswer.m_vcResult.size());
}

TEST(DorTree, TheClientRefusesWhatWouldEndTheRelay) {
  TestFolder zFolder;
  WriteModelFile(zFolder / u"model.kiv");
  DorClient zClient(RealPrograms(zFolder));
  const int64_t iModel = zClient.Open(zFolder / u"model.kiv");
  EXPECT_THROW(zClient.Call(u"DorHandler_NoSuchRequest", IdPayload(iModel)), DorClientError);
  EXPECT_THROW(zClient.Call(u"DorHandler_CopyAsm", {}), DorClientError);
  EXPECT_THROW(zClient.Call(u"DorHandler_DoNothing", IdPayload(iModel + 1)), DorClientError);
  EXPECT_THROW(zClient.Call(u"DorHandler_DoNothing", {}), DorClientError);
  EXPECT_THROW(zClient.Clear(iModel + 1), DorClientError);
  KivByteBuffer vcCut = IdPayload(iModel);
  vcCut.pop_back();
  EXPECT_THROW(zClient.Call(u"DorHandler_DoNothing", vcCut), DorClientError);
  KivByteBuffer vcLong = IdPayload(iModel);
  vcLong.push_back(0);
  EXPECT_THROW(zClient.Call(u"DorHandler_DoNothing", vcLong), DorClientError);
  EXPECT_THROW(zClient.Call(u"DorHandler_ReadDor", Bytes("x")), DorClientError);
  EXPECT_EQ(zClient.Call(u"DorHandler_DoNothing", IdPayload(iModel)).m_iStatus, 0);
}

TEST(DorTree, ATextWithAZeroInItIsNotSentSinceTheHandlerWouldSeeAnotherOne) {
  TestFolder zFolder;
  WriteModelFile(zFolder / u"model.kiv");
  WriteFile(zFolder / u"other.kiv", "another's");
  const auto WithZero = [](const KivWString& cs) { return cs + KivWString(1, u'\0') + u"tail"; };
  DorClient zClient(RealPrograms(zFolder));
  const int64_t iModel = zClient.Open(zFolder / u"model.kiv");
  KivByteBuffer vcWrite = IdPayload(iModel);
  KivPutString(vcWrite, WithZero(zFolder / u"other.kiv"));
  for (const int64_t i : {1, 0, 0, 0}) KivPutInt64(vcWrite, i);
  EXPECT_THROW(zClient.Call(u"DorHandler_WriteDor", vcWrite), DorClientError);
  EXPECT_EQ(zFolder.ReadBytes(u"other.kiv"), "another's");
  EXPECT_THROW(zClient.Open(WithZero(zFolder / u"model.kiv")), DorClientError);
  const std::string strName("a\0b", 3);
  EXPECT_THROW(DorCallByName(zClient, iModel, "SetAsmInfo", {"1", strName}), DorWordError);
  EXPECT_EQ(zClient.Call(u"DorHandler_DoNothing", IdPayload(iModel)).m_iStatus, 0);
}

TEST(DorTree, ModelsThatAreReadAndClearedByTheirRequestsAreKnownToTheClient) {
  TestFolder zFolder;
  DorClient zClient(OddPrograms(zFolder));
  KivByteBuffer vcPath;
  KivPutString(vcPath, u"a");
  EXPECT_EQ(zClient.Call(KivWString(kDorReadDor), vcPath).m_vcResult, IdPayload(0));
  zClient.AwaitOpen(0);
  EXPECT_EQ(zClient.Call(KivWString(kDorClearModel), IdPayload(0)).m_iStatus, 0);
  EXPECT_THROW(zClient.Call(KivWString(kDorDoNothing), IdPayload(0)), DorClientError);
  EXPECT_THROW(zClient.Clear(0), DorClientError);
  EXPECT_EQ(zClient.Open(u"b"), 1);
}

TEST(DorTree, ATailForAModelThatCouldNotBeReadIsNotSentAndGivesStatus2) {
  TestFolder zFolder;
  DorClient zClient(OddPrograms(zFolder));
  const int64_t iModel = zClient.StartOpen(u"read status 10");
  EXPECT_THROW(zClient.AwaitOpen(iModel), DorReadError);
  EXPECT_EQ(zClient.Call(KivWString(kDorPickOneElement), PickPayload(iModel, "tail")).m_iStatus, 2);
  EXPECT_EQ(zClient.Open(u"b"), iModel + 1);  // the tree goes on
}

TEST(DorTree, ARelayThatCannotBeStartedIsAnErrorAndNothingIsLeftBehind) {
  TestFolder zFolder;
  DorClientOptions zOptions = RealPrograms(zFolder);
  zOptions.m_csRelay = zFolder / u"no relay";
  EXPECT_THROW({ DorClient zClient(zOptions); }, DorClientError);
  EXPECT_FALSE(sys::PathExists(zFolder / u"root"));
}

TEST(DorTree, TwoModelsAreReadByTwoHandlersInTheBackground) {
  TestFolder zFolder;
  Tree zTree(OddPrograms(zFolder));
  EXPECT_EQ(zTree.m_zClient.StartOpen(u"a"), 0);
  EXPECT_EQ(zTree.m_zClient.StartOpen(u"b"), 1);
  zTree.m_zClient.AwaitOpen(1);
  zTree.m_zClient.AwaitOpen(0);
  EXPECT_EQ(zTree.m_zClient.ListTree().size(), 4u);
  for (int64_t iModel : {0, 1})
    EXPECT_EQ(zTree.m_zClient
                  .Call(u"DorHandler_Undo",
                        [&] {
                          KivByteBuffer vc = IdPayload(iModel);
                          KivPutInt64(vc, 5);
                          return vc;
                        }())
                  .m_vcResult[0],
              iModel);
}

TEST(DorTree, AClearedModelsHandlerEndsAndItsIdIsUnknown) {
  TestFolder zFolder;
  Tree zTree(OddPrograms(zFolder));
  const int64_t iModel = zTree.m_zClient.Open(u"a");
  zTree.m_zClient.Clear(iModel);
  EXPECT_TRUE(Eventually([&] { return CountMarkers(zFolder / u"root") == 2; }));
  EXPECT_EQ(zTree.m_zClient.Open(u"b"), 1);  // ids are not used again
  zTree.ExpectRelayEnds(KivWString(kDorDoNothing), IdPayload(iModel));
}

TEST(DorTree, ARequestWhileTheClearIsWithTheHandlerGivesStatus3) {
  TestFolder zFolder;
  bool bExisted = false;
  const KivWString csEvent = u"KivTestGo" + OwnPid();
  KivSysEvent hGo = KivSysEvent::Create(csEvent, bExisted);
  Tree zTree(OddPrograms(zFolder));
  const int64_t iModel = zTree.m_zClient.Open(u"clear wait " + csEvent);
  KivByteBuffer vcResult;
  EXPECT_EQ(zTree.m_zClient.CallUnchecked(KivWString(kDorClearModel), IdPayload(iModel), vcResult), 0);
  int32_t iStatus = 0;
  // Served until the relay's poll has passed the clear on.
  EXPECT_TRUE(Eventually([&] { return (iStatus = zTree.Status(iModel)) != 0; }));
  EXPECT_EQ(iStatus, 3);
  hGo.Set();
  EXPECT_TRUE(Eventually([&] { return CountMarkers(zFolder / u"root") == 2; }));
}

TEST(DorTree, StatusesOfTheHandlerReachTheClientMapped) {
  TestFolder zFolder;
  Tree zTree(OddPrograms(zFolder));
  const int64_t iModel = zTree.m_zClient.Open(u"a");
  for (const auto& [strTail, iStatus] :
       {std::pair<std::string, int32_t>{"status 999", 999}, {"status 1999", 1999}, {"status 7", 4}, {"status -1", 4}}) {
    const DorAnswer z = zTree.m_zClient.Call(u"DorHandler_PickOneElement", PickPayload(iModel, strTail));
    EXPECT_EQ(z.m_iStatus, iStatus);
    EXPECT_TRUE(z.m_vcResult.empty());
  }
  const DorAnswer z = zTree.m_zClient.Call(u"DorHandler_PickOneElement", PickPayload(iModel, "goes on"));
  EXPECT_EQ(z.m_iStatus, 0);
  EXPECT_EQ(z.m_vcResult, PickPayload(iModel, "goes on"));
}

TEST(DorTree, AReadThatFailsKeepsItsHandlerUntilTheClear) {
  TestFolder zFolder;
  Tree zTree(OddPrograms(zFolder));
  const int64_t iModel = zTree.m_zClient.StartOpen(u"read status 10");
  EXPECT_THROW(zTree.m_zClient.AwaitOpen(iModel), DorReadError);
  EXPECT_EQ(CountMarkers(zFolder / u"root"), 3u);
  zTree.m_zClient.Clear(iModel);
  EXPECT_TRUE(Eventually([&] { return CountMarkers(zFolder / u"root") == 2; }));
}

TEST(DorTree, AHandlerThatEndsWhileReadingEndsTheTree) {
  for (const char16_t* szPath : {u"read kill", u"read exit", u"read report"}) {
    SCOPED_TRACE(sys::WideToUtf8(szPath));
    TestFolder zFolder;
    KivSysProcess zHost = StartTestChild("HostOfABrokenTree", {zFolder / u"root", szPath});
    EXPECT_EQ(EndOf(zHost), 70);
  }
}
// One tree in the life of a process: each case has a host of its own. 70: the relay ended and all was cleaned up.
KIV_TEST_CHILD(HostOfABrokenTree) {
  TestFolder zFolder;
  DorClientOptions zOptions = OddPrograms(zFolder);
  zOptions.m_csRootFolder = vcsArgs.at(0);
  DorClient zClient(zOptions);
  int iCode = 1;
  try {
    const int64_t iModel = zClient.StartOpen(vcsArgs.at(1));
    zClient.AwaitOpen(iModel);
    iCode = 2;
    if (vcsArgs.size() > 2)
      zClient.Call(u"DorHandler_PickOneElement", PickPayload(iModel, sys::WideToUtf8(vcsArgs[2])));
    zClient.Clear(iModel);
    const int64_t iOther = zClient.StartOpen(u"other");
    for (;;) zClient.GetReadStatus(iOther);
  } catch (const DorClientError&) {
    iCode = 70;
  } catch (const DorReadError&) {
    iCode = 3;
  }
  if (CountLivingFiles(vcsArgs.at(0)) != 0) iCode += 1000;
  if (!zClient.Close() || sys::PathExists(vcsArgs.at(0))) iCode += 100;
  return iCode;
}

TEST(DorTree, AnAnswerOfAHandlerThatTheRelayCannotTakeEndsTheTree) {
  for (const char16_t* szPath :
       {u"read cut 1", u"read long", u"read id", u"read cut 100", u"clear cut 1", u"clear long", u"clear id"}) {
    SCOPED_TRACE(sys::WideToUtf8(szPath));
    TestFolder zFolder;
    KivSysProcess zHost = StartTestChild("HostOfABrokenTree", {zFolder / u"root", szPath});
    EXPECT_EQ(EndOf(zHost), 70);
  }
}

TEST(DorTree, AHandlerThatEndsDuringACallOrAClearEndsTheTree) {
  for (const char16_t* szTail : {u"kill", u"exit", u"report"}) {
    SCOPED_TRACE(sys::WideToUtf8(szTail));
    TestFolder zFolder;
    KivSysProcess zHost = StartTestChild("HostOfABrokenTree", {zFolder / u"root", u"model", szTail});
    EXPECT_EQ(EndOf(zHost), 70);
  }
  for (const char16_t* szPath : {u"clear kill", u"clear exit"}) {
    SCOPED_TRACE(sys::WideToUtf8(szPath));
    TestFolder zFolder;
    KivSysProcess zHost = StartTestChild("HostOfABrokenTree", {zFolder / u"root", szPath});
    EXPECT_EQ(EndOf(zHost), 70);
  }
}

TEST(DorTree, BrokenPayloadsAndUnknownNamesEndTheTree) {
  struct Case {
    const char16_t* m_szRequest;
    std::string m_strBytes;
  };
  for (const Case& z : {Case{u"DorHandler_DoNothing", ""}, Case{u"DorHandler_DoNothing", std::string(7, '\0')},
                        Case{u"DorHandler_ReadDor", "x"}, Case{u"DorHandler_CopyAsm", ""},
                        Case{u"DorHandler_IsFilletFace", std::string(24, '\0')}, Case{u"No such name", ""},
                        Case{u"DorHandler_DoNothing", std::string(8, '\x55')}}) {
    SCOPED_TRACE(sys::WideToUtf8(z.m_szRequest));
    TestFolder zFolder;
    KivSysProcess zHost = StartTestChild("HostThatBreaksItsTree",
                                         {zFolder / u"root", z.m_szRequest, Wide("x" + ToHexText(z.m_strBytes))});
    EXPECT_EQ(EndOf(zHost), 70);
  }
}
KIV_TEST_CHILD(HostThatBreaksItsTree) {
  TestFolder zFolder;
  DorClientOptions zOptions = OddPrograms(zFolder);
  zOptions.m_csRootFolder = vcsArgs.at(0);
  DorClient zClient(zOptions);
  int iCode = 1;
  try {
    KivByteBuffer vcResult;
    zClient.CallUnchecked(vcsArgs.at(1), Bytes(FromHexText(sys::WideToUtf8(vcsArgs.at(2)).substr(1))), vcResult);
  } catch (const DorClientError&) {
    iCode = 70;
  }
  if (CountLivingFiles(vcsArgs.at(0)) != 0) iCode += 1000;
  if (!zClient.Close() || sys::PathExists(vcsArgs.at(0))) iCode += 100;
  return iCode;
}

TEST(DorTree, AHostThatIsKilledTakesRelayAndHandlersWithIt) {
  for (const char16_t* szStep : {u"0", u"1", u"2"}) {
    SCOPED_TRACE(sys::WideToUtf8(szStep));
    TestFolder zFolder;
    KivSysProcess zHost = StartTestChild("KilledHost", {zFolder / u"root", szStep});
    EXPECT_EQ(EndOf(zHost), 9);
    EXPECT_TRUE(TreeEnds(zFolder / u"root"));
    EXPECT_EQ(CountLivingFiles(zFolder / u"root"), 0u);
  }
}
