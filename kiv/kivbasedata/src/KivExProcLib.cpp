#include "KivExProcLib.h"

#include <cstdlib>
#include <cstring>
#include <iterator>

#include "KivDataUtil.h"
#include "KivExProcLibInternal.h"
#include "KivLittleEndian.h"
#include "KivSysClock.h"
#include "KivSysDiag.h"
#include "KivSysFolder.h"

namespace kiv {
namespace {

constexpr char kSource[] = "src\\KivExProcLib";

KivWString g_csFirstFatalText = u"A fatal error has occurred.";
KivWString g_csSecondFatalText = u"Please save data and restart this program.";
bool g_bShowFatalError = true;

int32_t Code(KivExProcSendResult iResult) {
  return static_cast<int32_t>(iResult);
}

bool IsAlive(KivExProcChild& zChild) {
  return zChild.m_zPresence.Exists(zChild.m_csProcessFile);
}

KivExProcChild* FindChild(int32_t iPid) {
  for (KivExProcChild& zChild : KivExProcState::GetInstance().m_lstChildren)
    if (zChild.m_iPid == iPid) return &zChild;
  return nullptr;
}

void RemoveChild(int32_t iPid) {
  std::list<KivExProcChild>& lstChildren = KivExProcState::GetInstance().m_lstChildren;
  for (auto itChild = lstChildren.begin(); itChild != lstChildren.end(); ++itChild)
    if (itChild->m_iPid == iPid) {
      lstChildren.erase(itChild);
      return;
    }
}

// A child has gone. Comes back only in a process that survives it.
int32_t BuryChild(int32_t iPid) {
  if (!KivExProcState::GetInstance().m_bSurviveChildDeath) KivExProcLib_CloseDown(kKivExProcFatal, true);
  KivExProcLib_CloseDown(kKivExProcFatal, false);
  RemoveChild(iPid);  // if the close-down handler has left it in the list; closes its two events
  return Code(KivExProcSendResult::ChildDied);
}

// --- Messages -------------------------------------------------------------------------------------------------------

// Head and payload. What the slot did not take must not be announced: the reader would find an old message.
template <size_t nHead>
void WriteMessage(KivWinTmpShareFileOwner& zSlot, const uint8_t (&acHead)[nHead], const KivByteBuffer& vcPayload) {
  if (!zSlot.Write(0, acHead, nHead)) KivExProcFail(__LINE__);
  if (!vcPayload.empty() && !zSlot.Write(nHead, vcPayload.data(), vcPayload.size())) KivExProcFail(__LINE__);
}

// A reader for one message, let go of on every way out: it would hold the slot's name behind its owner's end.
class MessageReader {
 public:
  explicit MessageReader(KivWinTmpShareFileReader& zReader) : m_zReader(zReader) {}
  ~MessageReader() {
    try {
      m_zReader.Release();
    } catch (...) {
      // A destructor lets no exception out; the report has been made.
    }
  }
  MessageReader(const MessageReader&) = delete;
  MessageReader& operator=(const MessageReader&) = delete;

  KivWinTmpShareFileReader* operator->() const { return &m_zReader; }

 private:
  KivWinTmpShareFileReader& m_zReader;
};

// --- Senders --------------------------------------------------------------------------------------------------------

// Fills the slot and sets the request event; what both senders have in common.
int32_t StartExchange(int32_t iChildPid, const KivWString& csRequest, const KivByteBuffer& vcPayload,
                      KivExProcAnswer pfnAnswer, KivExProcSendResult iUnknownChild, KivExProcChild*& pzChild) {
  const KivExProcState& zState = KivExProcState::GetInstance();
  if (iChildPid == zState.m_iParentPid) return Code(KivExProcSendResult::TargetIsParent);
  if (csRequest.size() >= kRequestNameUnits) return Code(KivExProcSendResult::NameTooLong);
  if (csRequest.find(u'\0') != KivWString::npos) return Code(KivExProcSendResult::NameNotCopied);
  pzChild = FindChild(iChildPid);
  if (pzChild == nullptr) return Code(iUnknownChild);
  if (pzChild->m_hRequestEvent.Test() == KivSysWait::Signalled) return Code(KivExProcSendResult::RequestPending);
  if (pzChild->m_hAnswerEvent.Test() == KivSysWait::Signalled) return Code(KivExProcSendResult::AnswerPending);

  uint8_t acHead[kRequestHead] = {};
  KivStore<uint64_t>(acHead, vcPayload.size());
  std::memcpy(acHead + kRequestNameOffset, csRequest.data(), csRequest.size() * sizeof(char16_t));
  WriteMessage(pzChild->m_zInputFile.Owner(), acHead, vcPayload);
  pzChild->m_pfnAnswer = pfnAnswer;
  if (!pzChild->m_hRequestEvent.Set()) KivExProcFail(__LINE__);
  return Code(KivExProcSendResult::Done);
}

// Reads what the child has written. Anything that does not fit is fatal.
void ReadAnswer(KivExProcChild& zChild, int64_t& iStatus, KivByteBuffer& vcAnswer) {
  iStatus = 0;
  const MessageReader zReader(zChild.m_zAnswerReader);
  if (!zReader->Open(zChild.m_csAnswerFile)) KivExProcFail(__LINE__);
  const uint64_t iLength = zReader->GetLength();
  if (iLength < kAnswerLeast) {
    vcAnswer.clear();
    return;
  }
  uint8_t acHead[kAnswerHead];
  if (zReader->Read(0, acHead, 8) != 8) KivExProcFail(__LINE__);
  const uint64_t nPayload = KivLoad<uint64_t>(acHead);
  if (iLength < kAnswerHead || nPayload > iLength - kAnswerHead) KivExProcFail(__LINE__);
  if (zReader->Read(kAnswerStatusOffset, acHead + 8, 8) != 8) KivExProcFail(__LINE__);
  iStatus = KivLoad<int64_t>(acHead + 8);
  if (!zReader->ReadAll(kAnswerHead, nPayload, vcAnswer)) KivExProcFail(__LINE__);
}

// --- Service passes -------------------------------------------------------------------------------------------------

// Reads the request in the slot. False if the parent has closed its side; anything that does not fit is fatal.
bool ReadRequest(KivExProcState& zState) {
  const MessageReader zReader(zState.m_zRequestReader);
  if (!zReader->Open(zState.m_csInputFile)) return false;
  const uint64_t iLength = zReader->GetLength();
  if (iLength < kRequestHead) KivExProcFail(__LINE__);
  uint8_t acHead[kRequestHead];
  if (zReader->Read(0, acHead, kRequestHead) != kRequestHead) KivExProcFail(__LINE__);
  const uint64_t nPayload = KivLoad<uint64_t>(acHead);
  if (nPayload > iLength - kRequestHead) KivExProcFail(__LINE__);
  char16_t acName[kRequestNameUnits];
  std::memcpy(acName, acHead + kRequestNameOffset, sizeof acName);
  if (acName[kRequestNameUnits - 1] != 0) KivExProcFail(__LINE__);
  zState.m_csRequest.assign(acName);
  if (!zReader->ReadAll(kRequestHead, nPayload, zState.m_vcRequest)) KivExProcFail(__LINE__);
  return true;
}

void ServeRequest(KivExProcState& zState) {
  if (!ReadRequest(zState)) KivExProcLib_CloseDown(0, true);
  if (zState.m_pfnDispatch == nullptr) KivExProcFail(__LINE__);
  if (zState.m_csRequest == kKivExProcCloseRequest) KivExProcLib_CloseDown(kKivExProcFatal, true);

  int32_t iStatus = 0;
  zState.m_vcResult.clear();
  if (zState.m_pfnDispatch(zState.m_csRequest, zState.m_vcRequest, iStatus, zState.m_vcResult) != 0)
    KivExProcFail(__LINE__);
  KivDropLargeBuffer(zState.m_vcRequest);

  uint8_t acHead[kAnswerHead];
  KivStore<uint64_t>(acHead, zState.m_vcResult.size());
  KivStore<int64_t>(acHead + kAnswerStatusOffset, iStatus);
  WriteMessage(zState.m_zOutputFile.Owner(), acHead, zState.m_vcResult);
  KivDropLargeBuffer(zState.m_vcResult);
  // In this order: between the two the slot counts as full.
  if (!zState.m_hRequestEvent.Reset()) KivExProcFail(__LINE__);
  if (!zState.m_hAnswerEvent.Set()) KivExProcFail(__LINE__);
}

}  // namespace

void KivExProcFail(int32_t iLine) {
  KivReportFailure("0", kSource, iLine);
  KivExProcLib_CloseDown(kKivExProcFatal, true);
}

void KivExProcLib_SetCloseDownHandler(KivExProcHandler pfnCloseDown) {
  KivExProcState::GetInstance().m_pfnCloseDown = pfnCloseDown;
}

void KivExProcLib_SetSurviveChildDeath(bool bOn) {
  KivExProcState::GetInstance().m_bSurviveChildDeath = bOn;
}

KivWString KivExProcLib_GetRootFolder() {
  return KivExProcState::GetInstance().m_csRootFolder;
}

int32_t KivExProcLib_PostMessage(int32_t iChildPid, const KivWString& csRequest, const KivByteBuffer& vcPayload,
                                 KivExProcAnswer pfnAnswer) {
  KivExProcChild* pzChild = nullptr;
  return StartExchange(iChildPid, csRequest, vcPayload, pfnAnswer, KivExProcSendResult::PostUnknownChild, pzChild);
}

int32_t KivExProcLib_SendMessage(int32_t iChildPid, const KivWString& csRequest, const KivByteBuffer& vcPayload,
                                 int64_t& iStatus, KivByteBuffer& vcAnswer) {
  KivExProcChild* pzChild = nullptr;
  const int32_t iResult =
      StartExchange(iChildPid, csRequest, vcPayload, nullptr, KivExProcSendResult::SendUnknownChild, pzChild);
  if (iResult != 0) return iResult;
  for (;;) {
    if (!IsAlive(*pzChild)) return BuryChild(iChildPid);
    const KivSysWait iWait = pzChild->m_hAnswerEvent.Wait(kAnswerWaitMs);
    if (iWait == KivSysWait::Signalled) break;
    if (iWait != KivSysWait::TimedOut) KivExProcFail(__LINE__);
  }
  ReadAnswer(*pzChild, iStatus, vcAnswer);
  if (!pzChild->m_hAnswerEvent.Reset()) KivExProcFail(__LINE__);
  return Code(KivExProcSendResult::Done);
}

int32_t KivExProcLib_SendMessageRetry(int32_t iChildPid, const KivWString& csRequest, const KivByteBuffer& vcPayload,
                                      int64_t& iStatus, KivByteBuffer& vcAnswer) {
  const int32_t iResult = KivExProcLib_SendMessage(iChildPid, csRequest, vcPayload, iStatus, vcAnswer);
  if (iResult >= 0) return iResult;
  sys::SleepMs(0);
  return KivExProcLib_SendMessage(iChildPid, csRequest, vcPayload, iStatus, vcAnswer);
}

int32_t KivExProcLib_ServeChildren() {
  KivExProcState& zState = KivExProcState::GetInstance();
  std::vector<const KivSysEvent*>& vpEvents = zState.m_vpEvents;
  vpEvents.clear();
  for (KivExProcChild& zChild : zState.m_lstChildren) {
    if (!IsAlive(zChild)) return BuryChild(zChild.m_iPid);
    vpEvents.push_back(&zChild.m_hAnswerEvent);
  }
  const size_t nChildren = vpEvents.size();
  if (nChildren > kChildLimit) KivExProcFail(__LINE__);

  if (nChildren != 0) {
    // A request of the parent ends the wait early, like a time-out.
    if (zState.m_hRequestEvent.IsOpen() && nChildren < KivSysEvent::WaitLimit())
      vpEvents.push_back(&zState.m_hRequestEvent);
    const KivSysWaitResult zWait = KivSysEvent::WaitAny(vpEvents, kPassWaitMs);
    if (zWait.m_iState == KivSysWait::Signalled) {
      if (zWait.m_iIndex >= vpEvents.size()) KivExProcFail(__LINE__);
      if (zWait.m_iIndex < nChildren) {
        KivExProcChild& zChild = *std::next(zState.m_lstChildren.begin(), zWait.m_iIndex);
        const KivExProcAnswer pfnAnswer = zChild.m_pfnAnswer;
        int64_t iStatus = 0;
        // Its own during the callback, which may serve another pass.
        KivByteBuffer vcAnswer;
        vcAnswer.swap(zState.m_vcAnswer);
        if (pfnAnswer != nullptr) ReadAnswer(zChild, iStatus, vcAnswer);
        if (!zChild.m_hAnswerEvent.Reset()) KivExProcFail(__LINE__);
        // May take the child out of the list.
        if (pfnAnswer != nullptr) pfnAnswer(static_cast<int32_t>(iStatus), vcAnswer);
        KivDropLargeBuffer(vcAnswer);
        zState.m_vcAnswer.swap(vcAnswer);
      }
    } else if (zWait.m_iState != KivSysWait::TimedOut) {
      KivExProcFail(__LINE__);
    }
  }

  if (zState.m_pfnTick != nullptr) {
    const int32_t iTick = zState.m_pfnTick();
    if (iTick > 0) KivExProcFail(__LINE__);
    if (iTick < 0) return iTick;
  }
  return 0;
}

int32_t KivExProcLib_ServeParent() {
  KivExProcState& zState = KivExProcState::GetInstance();
  if (zState.m_csParentProcessFile.empty() || !zState.m_zParentPresence.Exists(zState.m_csParentProcessFile))
    KivExProcLib_CloseDown(kKivExProcFatal, true);

  // An answer of a child ends the wait early, like a time-out.
  std::vector<const KivSysEvent*>& vpEvents = zState.m_vpEvents;
  vpEvents.assign(1, &zState.m_hRequestEvent);
  if (zState.m_lstChildren.size() < KivSysEvent::WaitLimit())
    for (const KivExProcChild& zChild : zState.m_lstChildren) vpEvents.push_back(&zChild.m_hAnswerEvent);
  const KivSysWaitResult zWait = KivSysEvent::WaitAny(vpEvents, kPassWaitMs);
  if (zWait.m_iState == KivSysWait::Signalled) {
    if (zWait.m_iIndex == 0) ServeRequest(zState);
  } else if (zWait.m_iState != KivSysWait::TimedOut) {
    KivExProcFail(__LINE__);
  }

  if (zState.m_pfnPoll == nullptr) KivExProcFail(__LINE__);
  const int32_t iPoll = zState.m_pfnPoll();
  if (iPoll > 0) KivExProcFail(__LINE__);
  return iPoll < 0 ? iPoll : 0;
}

int32_t KivExProcLib_CloseChild(int32_t iChildPid) {
  const int32_t iResult = KivExProcLib_PostMessage(iChildPid, KivWString(kKivExProcCloseRequest), KivByteBuffer(),
                                                   [](int32_t, const KivByteBuffer&) -> int32_t { return 0; });
  if (iResult > 0) KivExProcFail(__LINE__);
  if (iResult < 0) return iResult;
  KivExProcChild* pzChild = FindChild(iChildPid);
  if (pzChild == nullptr) {
    KIV_FAIL();
    return static_cast<int32_t>(KivExProcCloseChildResult::NoChild);
  }
  pzChild->m_hRequestEvent.Close();
  pzChild->m_hAnswerEvent.Close();
  RemoveChild(iChildPid);
  return static_cast<int32_t>(KivExProcCloseChildResult::Done);
}

void KivExProcLib_CloseDown(int32_t iStatus, bool bExit) {
  KivExProcState& zState = KivExProcState::GetInstance();
  if (zState.m_hJob.IsOpen()) {
    const KivWString csProcessFolder = KivExProcProcessFolder(zState.m_csRootFolder);
    zState.m_hProcessFile.Close();  // what all children see on their next pass
    sys::SleepMs(kCloseDownPauseMs);
    const bool bRc = zState.m_hJob.Terminate(iStatus, csProcessFolder);
    KIV_CHECK(bRc);
    zState.m_hJob.Close();

    // Every process of the tree is gone when its marker is.
    const auto AnyMarker = [&] {
      std::vector<KivSysFolderEntry> vzEntries;
      if (!sys::ListFolder(csProcessFolder, vzEntries)) return false;
      for (const KivSysFolderEntry& zEntry : vzEntries)
        if (zEntry.m_csName.starts_with(u"KivProc")) return true;
      return false;
    };
    while (AnyMarker()) sys::SleepMs(kCloseDownPauseMs);

    for (KivExProcChild& zChild : zState.m_lstChildren) zChild.m_zInputFile.Owner().Release();
    if (bExit) KivRemoveTree(zState.m_csRootFolder);
  }
  if (zState.m_pfnCloseDown != nullptr) zState.m_pfnCloseDown();
  if (bExit) std::exit(iStatus);
}

void KivExProcLib_ShowFatalError(const KivWString& csSource, int32_t iLine, int32_t /*iArgument*/, bool /*bFlag*/) {
  if (!g_bShowFatalError) return;
  g_bShowFatalError = false;
  sys::ShowMessage(csSource + u" line " + KivExProcDecimal(iLine) + u".\n" + g_csFirstFatalText + u"\n" +
                   g_csSecondFatalText);
  KIV_FAIL();
}

void KivExProcLib_SetFatalMessages(const KivWString& csFirst, const KivWString& csSecond) {
  g_csFirstFatalText = csFirst;
  g_csSecondFatalText = csSecond;
}

}  // namespace kiv
