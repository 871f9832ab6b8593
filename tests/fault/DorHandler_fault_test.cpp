// The handler where memory is short: each allocation of a request fails once.
#include "DorHandler.h"

#include <gtest/gtest.h>

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

// Serves a request again and again, each time with the next allocation failing, until none fails; gives the answers.
std::vector<Answered> FailEachAllocation(const KivWString& csRequest, const KivByteBuffer& vcPayload) {
  std::vector<Answered> vz;
  for (uint64_t iNth = 1;; ++iNth) {
    Answered z;
    bool bFired = false;
    {
      const NoMemory zNone(iNth, false);
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
  const std::vector<Answered> vz = FailEachAllocation(KivWString(kDorReadDor), ReadPayload(zFolder / u"model.kiv"));
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
