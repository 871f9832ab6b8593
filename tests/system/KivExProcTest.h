// Trees of test processes. A test is the root itself where its end is orderly, and starts one where the root is to
// end; the other side of a channel may be played by hand, with raw images in the slots.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "KivDataUtil.h"
#include "KivExProcLib.h"
#include "KivSysClock.h"
#include "KivSysEvent.h"
#include "KivSysFile.h"
#include "KivSysFolder.h"
#include "KivSysProcess.h"
#include "KivTestChild.h"
#include "KivTestFolder.h"
#include "KivTestReport.h"

namespace kivtest {

// What a parent sees of an exit code: Linux keeps eight bits.
inline int32_t SeenCode(int32_t iCode) {
  return kiv::sys::kSeparator == u'/' ? iCode & 255 : iCode;
}

// Generous, for machines with sanitizers and few cores; a test that is right never waits so long.
constexpr uint32_t kLongMs = 120000;

// The exit code of a process that ends by itself; -1 if it does not.
inline int32_t EndOf(kiv::KivSysProcess& zProcess) {
  int32_t iCode = -1;
  if (zProcess.Wait(kLongMs) != kiv::KivSysWait::Signalled || !zProcess.GetExitCode(iCode)) return -1;
  return iCode;
}

template <typename Condition>
bool Eventually(Condition&& pfnCondition) {
  const uint64_t iEnd = kiv::sys::SteadyNs() + uint64_t{kLongMs} * 1000000;
  while (!pfnCondition()) {
    if (kiv::sys::SteadyNs() > iEnd) return false;
    kiv::sys::SleepMs(1);
  }
  return true;
}

inline kiv::KivWString Wide(const std::string& strText) {
  return kiv::sys::Utf8ToWide(strText);
}
inline kiv::KivWString Decimal(int64_t iValue) {
  return Wide(std::to_string(iValue));
}
inline kiv::KivWString OwnPid() {
  return Decimal(kiv::sys::CurrentProcessNumber());
}
inline kiv::KivWString Join(const kiv::KivWString& csFolder, const kiv::KivWString& csName) {
  return csFolder + kiv::sys::kSeparator + csName;
}
inline kiv::KivByteBuffer Bytes(const std::string& strText) {
  return {strText.begin(), strText.end()};
}
inline std::string Text(const kiv::KivByteBuffer& vcBytes) {
  return {vcBytes.begin(), vcBytes.end()};
}

inline kiv::KivWString ProcessFolder(const kiv::KivWString& csRoot) {
  return Join(csRoot, u"Process");
}
inline kiv::KivWString MarkerOf(const kiv::KivWString& csRoot, const kiv::KivWString& csPid) {
  return Join(ProcessFolder(csRoot), u"KivProc" + csPid);
}
inline kiv::KivWString PairFolder(const kiv::KivWString& csRoot, const kiv::KivWString& csWriter,
                                  const kiv::KivWString& csReader) {
  return Join(csRoot, u"KivExProc_" + csWriter + u"-" + csReader);
}
inline kiv::KivWString EventName(const kiv::KivWString& csFirst, const kiv::KivWString& csSecond) {
  return u"KivExProcEvent_" + csFirst + u"-" + csSecond;
}

size_t CountMarkers(const kiv::KivWString& csRoot);
// All processes of the tree end.
bool TreeEnds(const kiv::KivWString& csRoot);
// Files that live with their owner, markers and slots, below the root.
size_t CountLivingFiles(const kiv::KivWString& csFolder);
void WriteFile(const kiv::KivWString& csPath, const std::string& strBytes);

// Makes this process a root with the given folder; its loop ends at once, so that the test is in charge.
int32_t BecomeRoot(const kiv::KivWString& csRoot);
// Ends the tree without ending this process, and removes the root folder.
void EndRoot();
// Runs this process as a member of the tree with the arguments that its parent gave; does not return.
int32_t RunMember(kiv::KivExProcHandler pfnTick, kiv::KivExProcHandler pfnPoll, kiv::KivExProcDispatch pfnDispatch);
// The root folder and the parent's id among the arguments of this process.
kiv::KivWString GivenRoot();
kiv::KivWString GivenParent();

kiv::KivWString TestProgram();
// The extra arguments that make a started test program run a child body.
kiv::KivWString BodyArguments(const std::string& strBody, const std::vector<kiv::KivWString>& vcsArgs = {});
// Starts a body as a child of this root.
int32_t StartBody(const std::string& strBody, int32_t& iPid, const std::vector<kiv::KivWString>& vcsArgs = {});

// Serves "echo" (the payload), "status" (an integer becomes the status), "wait" (answers when the named event is on),
// "start" (starts a body; status, and its id as text), "send" (sends "echo" to a child), "fail" (a dispatch that
// fails), "report", "exit", "kill"; any other name is answered with its length as text.
int32_t EchoDispatch(const kiv::KivWString& csRequest, const kiv::KivByteBuffer& vcPayload, int32_t& iStatus,
                     kiv::KivByteBuffer& vcResult);
int32_t GoOn();

// Sets a variable of the environment of this process and of those that it starts.
void SetVariable(const char* szName, const std::string& strValue);

// Files that live with the returned object, as a slot or a marker does.
kiv::KivSysFile MakeSlot(const kiv::KivWString& csPath, const std::string& strBytes);
kiv::KivSysFile MakeMarker(const kiv::KivWString& csPath);

std::string RequestImage(uint64_t nSizeField, const kiv::KivWString& csName, const std::string& strPayload);
std::string AnswerImage(uint64_t nSizeField, int64_t iStatus, const std::string& strPayload);
// Images travel as hex among the arguments.
std::string ToHexText(const std::string& strBytes);
std::string FromHexText(const std::string& strHex);

}  // namespace kivtest
