// A runtime that records what the relay asks of it, and payloads made from a row's form.
#pragma once

#include <deque>
#include <string>
#include <vector>

#include "DorRelay.h"
#include "KivTestReport.h"

namespace kivtest {

struct ClosedDown {
  int32_t m_iStatus;
};

class FakeRuntime : public kiv::IDorRelayRuntime {
 public:
  struct Message {
    int32_t m_iChildPid;
    kiv::KivWString m_csName;
    kiv::KivByteBuffer m_vcPayload;
  };
  struct Reply {
    int32_t m_iResult;
    int64_t m_iStatus;
    kiv::KivByteBuffer m_vcAnswer;
  };

  // The relay as it is at the start of its process.
  FakeRuntime() {
    kiv::DorRelay_SetRuntime(this);
    kiv::DorRelay_ModelTable().clear();
    kiv::g_iNextModelId = 0;
  }
  ~FakeRuntime() override { kiv::DorRelay_SetRuntime(nullptr); }

  kiv::KivWString FindHandler() override { return u"handler"; }
  int32_t StartChild(const kiv::KivWString& csPath, int32_t& iChildPid) override {
    m_vcsStarted.push_back(csPath);
    iChildPid = m_iStartResult == 0 ? m_iNextPid++ : 0;
    return m_iStartResult;
  }
  int32_t SendRequest(int32_t iChildPid, const kiv::KivWString& csName, const kiv::KivByteBuffer& vcPayload,
                      int64_t& iStatus, kiv::KivByteBuffer& vcAnswer) override {
    m_vzSent.push_back({iChildPid, csName, vcPayload});
    if (m_dqReplies.empty()) return 0;
    const Reply zReply = m_dqReplies.front();
    m_dqReplies.pop_front();
    iStatus = zReply.m_iStatus;
    vcAnswer = zReply.m_vcAnswer;
    return zReply.m_iResult;
  }
  int32_t PostRequest(int32_t iChildPid, const kiv::KivWString& csName, const kiv::KivByteBuffer& vcPayload,
                      kiv::KivExProcAnswer pfnAnswer) override {
    EXPECT_EQ(pfnAnswer, kiv::DorRelay_OnAnswer);
    m_vzPosted.push_back({iChildPid, csName, vcPayload});
    return m_iPostResult;
  }
  int32_t CloseChild(int32_t iChildPid) override {
    m_viClosed.push_back(iChildPid);
    return m_iCloseResult;
  }
  void YieldSlice() override { ++m_nYields; }
  void CloseDown(int32_t iStatus) override { throw ClosedDown{iStatus}; }

  std::vector<kiv::KivWString> m_vcsStarted;
  std::vector<Message> m_vzSent, m_vzPosted;
  std::vector<int32_t> m_viClosed;
  std::deque<Reply> m_dqReplies;
  int32_t m_iNextPid = 100;
  int32_t m_iStartResult = 0, m_iPostResult = 0, m_iCloseResult = 0;
  int32_t m_nYields = 0;
};

// A payload of a form with recognisable values; curves of the first kind unless a block size is given.
inline kiv::KivByteBuffer MakePayload(const std::string& strForm, int64_t iModelId, uint64_t nBlock = 0,
                                      int64_t nCurves = 1) {
  kiv::KivByteBuffer vc;
  int64_t iNext = 11;
  const auto Float = [&] { kiv::KivPutDouble(vc, static_cast<double>(iNext++) + 0.25); };
  const auto Curve = [&] {
    kiv::KivPutInt64(vc, nBlock == 0 ? 0 : 1);
    if (nBlock == 0) {
      for (int i = 0; i < 6; ++i) Float();
      return;
    }
    kiv::KivPutInt64(vc, static_cast<int64_t>(nBlock));
    const kiv::KivByteBuffer vcBlock(nBlock, 0xA5);
    kiv::KivPutBlock(vc, vcBlock.data(), nBlock);
  };
  for (char c : strForm) switch (c) {
      case 'm':
        kiv::KivPutInt64(vc, iModelId);
        break;
      case 'i':
        kiv::KivPutInt64(vc, -iNext++);
        break;
      case 'f':
        Float();
        break;
      case 'c':
        for (int i = 0; i < 3; ++i) Float();
        break;
      case 's':
        kiv::KivPutString(vc, u"gr\u00fcn");
        break;
      case 'k':
        Curve();
        break;
      case 'n':
        kiv::KivPutInt64(vc, nCurves);
        for (int64_t i = 0; i < nCurves; ++i) Curve();
        break;
      default:
        break;  // an empty tail
    }
  return vc;
}

struct Dispatched {
  int32_t m_iReturn = 0;
  int32_t m_iStatus = 0;
  kiv::KivByteBuffer m_vcResult;
  int32_t m_iClosedDown = 0;  // 999 if the process was closed down
  bool m_bReported = false;   // a report was thrown
};

inline Dispatched Dispatch(kiv::KivWStringView csName, const kiv::KivByteBuffer& vcPayload) {
  Dispatched z;
  z.m_iStatus = 77;
  z.m_vcResult = {1, 2, 3};
  try {
    z.m_iReturn = kiv::DorRelay_Dispatch(kiv::KivWString(csName), vcPayload, z.m_iStatus, z.m_vcResult);
  } catch (const ClosedDown& zEnd) {
    z.m_iClosedDown = zEnd.m_iStatus;
  } catch (const kiv::KivException&) {
    z.m_bReported = true;
  }
  return z;
}

// How a broken payload ends: by the report; or, where reports return, by a close-down or the given return value.
inline void ExpectBroken(kiv::KivWStringView csName, const kiv::KivByteBuffer& vcPayload, int32_t iReturn = 0) {
  SCOPED_TRACE(kiv::sys::WideToUtf8(csName) + ", " + std::to_string(vcPayload.size()) + " bytes");
  EXPECT_TRUE(Dispatch(csName, vcPayload).m_bReported);
  NoThrowScope zNoThrow;
  const Dispatched z = Dispatch(csName, vcPayload);
  EXPECT_EQ(z.m_iClosedDown, iReturn == 0 ? 999 : 0);
  EXPECT_EQ(z.m_iReturn, iReturn);
}

inline kiv::KivByteBuffer ModelPayload(int64_t iModelId) {
  kiv::KivByteBuffer vc;
  kiv::KivPutInt64(vc, iModelId);
  return vc;
}

inline kiv::KivByteBuffer PathPayload(const kiv::KivWString& csPath) {
  kiv::KivByteBuffer vc;
  kiv::KivPutString(vc, csPath);
  return vc;
}

inline kiv::KivByteBuffer ChildAnswer(int64_t iModelId, kiv::KivWStringView csName) {
  kiv::KivByteBuffer vc = ModelPayload(iModelId);
  kiv::KivPutString(vc, kiv::KivWString(csName));
  return vc;
}

// Reads a model to its end; gives its id.
inline int64_t OpenModel(int32_t iReadStatus = 0) {
  const int64_t iModelId = kiv::g_iNextModelId;
  Dispatch(kiv::kDorReadDor, PathPayload(u"model.kiv"));
  kiv::DorRelay_Poll();
  kiv::DorRelay_OnAnswer(iReadStatus, ChildAnswer(iModelId, kiv::kDorReadDor));
  return iModelId;
}

}  // namespace kivtest
