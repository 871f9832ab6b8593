#include "KivSysEvent.h"

#include <utility>

#include "KivSysWindows.h"

namespace kiv {
namespace {

KivSysWait FromWait(DWORD iResult) {
  switch (iResult) {
    case WAIT_OBJECT_0:
      return KivSysWait::Signalled;
    case WAIT_TIMEOUT:
      return KivSysWait::TimedOut;
    case WAIT_ABANDONED:
      return KivSysWait::Abandoned;
    default:
      return KivSysWait::Failed;
  }
}

}  // namespace

KivSysEvent::KivSysEvent(KivSysEvent&& zOther) noexcept : m_iHandle(std::exchange(zOther.m_iHandle, 0)) {}

KivSysEvent& KivSysEvent::operator=(KivSysEvent&& zOther) noexcept {
  if (this != &zOther) {
    Close();
    m_iHandle = std::exchange(zOther.m_iHandle, 0);
  }
  return *this;
}

KivSysEvent::~KivSysEvent() {
  Close();
}

KivSysEvent KivSysEvent::Create(const KivWString& csName, bool& bExisted) {
  KivSysEvent zEvent;
  bExisted = false;
  if (!sys::IsUsableName(csName) || sys::FaultFails(KivSysCall::EventCreate)) return zEvent;
  SetLastError(NO_ERROR);
  const HANDLE hEvent = CreateEventW(nullptr, TRUE, FALSE, sys::ToSystem(csName).c_str());
  bExisted = hEvent != nullptr && GetLastError() == ERROR_ALREADY_EXISTS;
  zEvent.m_iHandle = sys::FromHandle(hEvent);
  return zEvent;
}

KivSysEvent KivSysEvent::Open(const KivWString& csName) {
  KivSysEvent zEvent;
  if (!sys::IsUsableName(csName) || sys::FaultFails(KivSysCall::EventOpen)) return zEvent;
  zEvent.m_iHandle = sys::FromHandle(OpenEventW(EVENT_ALL_ACCESS, FALSE, sys::ToSystem(csName).c_str()));
  return zEvent;
}

void KivSysEvent::Close() noexcept {
  if (IsOpen()) CloseHandle(sys::ToHandle(std::exchange(m_iHandle, 0)));
}

bool KivSysEvent::Set() {
  if (sys::FaultFails(KivSysCall::EventSignal)) return false;
  return SetEvent(sys::ToHandle(m_iHandle)) != FALSE;
}

bool KivSysEvent::Reset() {
  if (sys::FaultFails(KivSysCall::EventSignal)) return false;
  return ResetEvent(sys::ToHandle(m_iHandle)) != FALSE;
}

KivSysWait KivSysEvent::Test() const {
  return Wait(0);
}

KivSysWait KivSysEvent::Wait(uint32_t iMilliSeconds) const {
  if (!IsOpen() || sys::FaultFails(KivSysCall::EventWait)) return KivSysWait::Failed;
  return FromWait(WaitForSingleObject(sys::ToHandle(m_iHandle), iMilliSeconds));
}

KivSysWaitResult KivSysEvent::WaitAny(std::span<const KivSysEvent* const> vpEvents, uint32_t iMilliSeconds) {
  KivSysWaitResult zResult;
  if (vpEvents.empty() || vpEvents.size() > WaitLimit()) return zResult;
  if (sys::FaultFails(KivSysCall::EventWait)) return zResult;
  HANDLE ahEvent[MAXIMUM_WAIT_OBJECTS];
  const DWORD nEvents = static_cast<DWORD>(vpEvents.size());
  for (DWORD i = 0; i < nEvents; ++i) {
    if (vpEvents[i] == nullptr || !vpEvents[i]->IsOpen()) return zResult;
    ahEvent[i] = sys::ToHandle(vpEvents[i]->m_iHandle);
  }
  const DWORD iResult = WaitForMultipleObjects(nEvents, ahEvent, FALSE, iMilliSeconds);
  if (iResult < WAIT_OBJECT_0 + nEvents) {
    zResult.m_iState = KivSysWait::Signalled;
    zResult.m_iIndex = iResult - WAIT_OBJECT_0;
  } else if (iResult == WAIT_TIMEOUT) {
    zResult.m_iState = KivSysWait::TimedOut;
  } else if (iResult >= WAIT_ABANDONED_0 && iResult < WAIT_ABANDONED_0 + nEvents) {
    zResult.m_iState = KivSysWait::Abandoned;
  }
  return zResult;
}

uint32_t KivSysEvent::WaitLimit() noexcept {
  return MAXIMUM_WAIT_OBJECTS;
}

}  // namespace kiv
