// The handler where memory is short: allocations of a request fail one by one.
#include "DorHandler.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "DorClient.h"
#include "KivTestFolder.h"
#include "KivTestHeap.h"
#include "KivTestMachine.h"
#include "KivTestReport.h"

using namespace kiv;
using namespace kivtest;

namespace {

struct Answered {
  int32_t m_iReturn = -1, m_iStatus = -1;
  KivByteBuffer m_vcResult;
};

// Serves a request again and again, each time with the next allocation failing, or all from the next one on, until none
// fails; gives the answers.
std::vector<Answered> FailEachAllocation(const KivWString& csRequest, const KivByteBuffer& vcPayload,
                                         bool bFromThenOn = false) {
  std::vector<Answered> vz;
  for (uint64_t iNth = 1;; ++iNth) {
    Answered z;
    bool bFired = false;
    {
      const NoMemory zNone(iNth, bFromThenOn);
      EXPECT_NO_THROW(z.m_iReturn = DorHandlerDispatch(csRequest, vcPayload, z.m_iStatus, z.m_vcResult));
      bFired = zNone.HasFired();
    }
    EXPECT_EQ(z.m_iReturn, 0);
    vz.push_back(z);
    if (!bFired) return vz;
  }
}

KivByteBuffer ReadPayload(const KivWString& csPath) {
  KivByteBuffer vc;
  KivPutInt64(vc, 5);
  KivPutString(vc, csPath);
  KivPutInt64(vc, 0);
  return vc;
}

int64_t FirstInteger(const KivByteBuffer& vcResult) {
  uint64_t iCursor = 0;
  int64_t iValue = -1;
  EXPECT_TRUE(KivGetInt64(iCursor, vcResult, &iValue));
  return iValue;
}

}  // namespace

TEST(DorHandlerWithoutMemory, AReadFailsWithItsStatusAndItsAnswerAndTheHandlerGoesOn) {
  const TestFolder zFolder;
  ASSERT_TRUE(WriteMachine(zFolder / u"model.kiv"));
  for (const bool bFromThenOn : {false, true}) {
    SCOPED_TRACE(bFromThenOn);
    const std::vector<Answered> vz =
        FailEachAllocation(KivWString(kDorReadDor), ReadPayload(zFolder / u"model.kiv"), bFromThenOn);
    ASSERT_GT(vz.size(), 2u);
    size_t nFailed = 0;
    for (const Answered& z : vz) {
      if (z.m_iStatus != 0) ++nFailed;
      EXPECT_EQ(FirstInteger(z.m_vcResult), 5);
      EXPECT_EQ(z.m_vcResult, vz.back().m_vcResult);
    }
    EXPECT_GT(nFailed, 0u);
    EXPECT_EQ(vz.back().m_iStatus, 0);
  }
}

TEST(DorHandlerWithoutMemory, ARequestIsAnsweredWithACodeAndTheHandlerGoesOn) {
  KivByteBuffer vcPayload;
  KivPutInt64(vcPayload, 5);
  Answered zCleared;
  DorHandlerDispatch(KivWString(kDorClearModel), vcPayload, zCleared.m_iStatus, zCleared.m_vcResult);
  const std::vector<Answered> vz = FailEachAllocation(KivWString(kDorGetAsmTreeInfo), vcPayload);
  ASSERT_GT(vz.size(), 1u);
  for (const Answered& z : vz) EXPECT_EQ(z.m_iStatus, 0);
  for (size_t i = 0; i + 1 < vz.size(); ++i)
    EXPECT_EQ(FirstInteger(vz[i].m_vcResult), static_cast<int64_t>(DorAnswerCode::Failed)) << i;
  EXPECT_EQ(FirstInteger(vz.back().m_vcResult), static_cast<int64_t>(DorAnswerCode::NoModel));
}

namespace {

KivByteBuffer Words(const char* szName, const std::vector<std::string>& vstrWords) {
  KivByteBuffer vcPayload;
  std::string strError;
  const DorRequestRow* pzRow = DorFindRequest(sys::Utf8ToWide(std::string("DorHandler_") + szName));
  EXPECT_TRUE(DorBuildPayload(*pzRow, 5, vstrWords, vcPayload, strError)) << strError;
  return vcPayload;
}

KivByteBuffer Serve(const char* szName, const std::vector<std::string>& vstrWords = {}) {
  int32_t iStatus = -1;
  KivByteBuffer vcResult;
  DorHandlerDispatch(sys::Utf8ToWide(std::string("DorHandler_") + szName), Words(szName, vstrWords), iStatus, vcResult);
  return vcResult;
}

KivByteBuffer WholeState() {
  KivByteBuffer vcAll = Serve("GetAsmTreeInfo");
  for (const char* szNode : {"0", "1", "2", "3", "4"})
    for (const uint8_t c : Serve("GetAsmInfo", {szNode})) vcAll.push_back(c);
  for (const char* szInstance : {"0", "1"})
    for (const char* szFace : {"1", "2"})
      for (const uint8_t c : Serve("GetFaceInfo", {szInstance, szFace})) vcAll.push_back(c);
  return vcAll;
}

constexpr uint64_t kEach = UINT64_MAX;
constexpr uint64_t kSome = 12;

// A request on a model of its own, with allocations failing one by one, or some of them: it is done or nothing has
// changed.
void ChangeIsWholeOrNotThere(const char* szName, const std::vector<std::string>& vstrWords,
                             const std::function<void()>& pfnBefore, uint64_t iSkip = kEach) {
  SCOPED_TRACE(szName);
  const TestFolder zFolder;
  ASSERT_TRUE(WriteMachine(zFolder / u"model.kiv"));
  const KivWString csName = sys::Utf8ToWide(std::string("DorHandler_") + szName);
  const KivByteBuffer vcPayload = Words(szName, vstrWords), vcRead = ReadPayload(zFolder / u"model.kiv");
  size_t nRefused = 0;
  for (uint64_t iNth = 1;; iNth += 1 + iNth / iSkip) {
    Answered z;
    DorHandlerDispatch(KivWString(kDorReadDor), vcRead, z.m_iStatus, z.m_vcResult);
    ASSERT_EQ(z.m_iStatus, 0);
    pfnBefore();
    const KivByteBuffer vcBefore = WholeState();
    bool bFired = false;
    {
      const NoMemory zNone(iNth, false);
      z.m_iReturn = DorHandlerDispatch(csName, vcPayload, z.m_iStatus, z.m_vcResult);
      bFired = zNone.HasFired();
    }
    ASSERT_EQ(z.m_iReturn, 0);
    EXPECT_EQ(z.m_iStatus, 0);
    const int64_t iCode = FirstInteger(z.m_vcResult);
    if (!bFired) {
      EXPECT_EQ(iCode, 0);
      break;
    }
    if (iCode == 0) continue;
    ++nRefused;
    EXPECT_EQ(iCode, static_cast<int64_t>(DorAnswerCode::Failed)) << iNth;
    const KivByteBuffer vcAfter = WholeState();
    const auto [itAfter, itBefore] = std::mismatch(vcAfter.begin(), vcAfter.end(), vcBefore.begin(), vcBefore.end());
    EXPECT_TRUE(vcAfter == vcBefore) << "allocation " << iNth << ", from byte " << itAfter - vcAfter.begin() << " of "
                                     << vcAfter.size() << ", before " << vcBefore.size();
  }
  EXPECT_GT(nRefused, 0u);
}

const std::vector<std::string> kMoved = {"2", "1", "0", "0", "0", "0", "1", "0", "0",
                                         "0", "0", "1", "0", "0", "0", "9", "1"};

}  // namespace

TEST(DorHandlerWithoutMemory, AChangeIsWholeOrNotThere) {
  const auto Nothing = [] {};
  ChangeIsWholeOrNotThere("SetAsmInfo", {"3", std::string(3000, 'n')}, Nothing);
  ChangeIsWholeOrNotThere("SetInstPathPartMatrix", kMoved, Nothing);
  ChangeIsWholeOrNotThere("SetFaceInfo", {"1", "1", "0", "1", "0", "1"}, Nothing);
  ChangeIsWholeOrNotThere("DelFaceInfo", {"0", "2"}, Nothing);
}

TEST(DorHandlerWithoutMemory, HistoryGoesOnWhereItWas) {
  const auto Changed = [] {
    Serve("SnapShot");
    Serve("SetAsmInfo", {"3", "changed"});
  };
  ChangeIsWholeOrNotThere("SnapShot", {}, Changed, kSome);
  ChangeIsWholeOrNotThere("Undo", {"1"}, Changed, kSome);
  // Restores as an undo does, without the snapshot before it.
  ChangeIsWholeOrNotThere("Redo", {"1"}, [&] {
    Changed();
    Serve("Undo", {"1"});
  });
}

TEST(DorHandlerWithoutMemory, WhatLooksIsAnsweredOrRefused) {
  const auto Nothing = [] {};
  ChangeIsWholeOrNotThere("GetFaceInfo", {"0", "2"}, Nothing);
  ChangeIsWholeOrNotThere("CalcDistFaceFace", {"0", "1", "1", "1", "0", "0,0,0"}, Nothing);
}
