// Splits the work of a program over a tree of processes that talk through files and events in one root folder. The
// root has no parent, every other process has one; requests go down, answers come up. docs/process_protocol.md shows
// folders, files, events, messages and the order of a start.
//
// Process-wide state, main thread only, no lock. What breaks the protocol is reported (source "src\KivExProcLib") and
// ends the process with 999. A process does not outlive its parent, nor a dead child, unless it was told to.
#pragma once

#include <cstdint>
#include <vector>

#include "KivByteBuffer.h"
#include "KivSysText.h"

namespace kiv {

// Tick and poll: 0 goes on, negative ends the service loop, positive is fatal.
using KivExProcHandler = int32_t (*)();
// Serves a request. iStatus is 0 and vcResult empty at first; both go to the parent. Anything but 0 is fatal.
using KivExProcDispatch = int32_t (*)(const KivWString& csRequest, const KivByteBuffer& vcPayload, int32_t& iStatus,
                                      KivByteBuffer& vcResult);
// Takes the answer of a posted request; the return value is not looked at.
using KivExProcAnswer = int32_t (*)(int32_t iStatus, const KivByteBuffer& vcAnswer);

constexpr int32_t kKivExProcFatal = 999;
// Asks a child to end; never reaches a dispatch handler.
constexpr KivWStringView kKivExProcCloseRequest = u"KivExProcLib_CloseChildProcess";

// --- The life of a process ------------------------------------------------------------------------------------------

enum class KivExProcRunResult : int32_t {
  Done = 0,
  BadArgument = 10,    // also: no tick handler (root), or the root folder exists and is not the work folder
  NoPollHandler = 20,  // root: the default root folder could not be set up
  RootFolderNotMade = 22,
  NoDispatchHandler = 25,  // root: no local time
  NoProcessFolder = 30,
  MarkerExists = 40,
  MarkerNotMade = 50,
  MarkerNotThere = 60,
  OutputNotMade = 62,
  ParentGone = 65,
  RequestEventNotOpen = 70,  // root: the job could not be created
  AnswerEventNotOpen = 80
};

// The handlers that KivExProcLib_Run installs. A root needs a tick, a child a poll and a dispatch.
void KivExProcLib_SetHandlers(KivExProcHandler pfnTick, KivExProcHandler pfnPoll, KivExProcDispatch pfnDispatch);
// Called by close-down before the process ends.
void KivExProcLib_SetCloseDownHandler(KivExProcHandler pfnCloseDown);
// Called in a child before its marker is made.
void KivExProcLib_SetBeforeStartHandler(KivExProcHandler pfnBeforeStart);
// On: a child's death does not end this process. In a root it ends the tree all the same: the marker goes, all children
// are killed and no later one can be started; the root folder stays. Elsewhere that one child is forgotten and the
// others live on.
void KivExProcLib_SetSurviveChildDeath(bool bOn);
// Root folder of a root process that is started without -r; empty (a generated work folder) unless set.
void KivExProcLib_SetDefaultRootFolder(const KivWString& csFolder);

// Runs the process from the arguments -r<root folder>, -p<parent's process id>, -j<job name> (the program's name
// first) to the end of its service loop. One of KivExProcRunResult, to be given to KivExProcLib_CloseDown.
int32_t KivExProcLib_Run(const std::vector<KivWString>& vcsArguments);
// The root's part of KivExProcLib_Run. An existing folder must be the work folder. With a code other than Done no
// marker is left; folders that it has made are.
int32_t KivExProcLib_StartRoot(const KivWString& csRootFolder);
KivWString KivExProcLib_GetRootFolder();

// Ends the process with this status; a root ends its whole tree first and removes the root folder. Returns only with
// the flag off, which leaves the process and the root folder.
void KivExProcLib_CloseDown(int32_t iStatus, bool bExit);

// --- Children -------------------------------------------------------------------------------------------------------

enum class KivExProcStartResult : int32_t {
  Done = 0,
  NoPath = 5,
  NotStarted = 10,
  NoJob = 12,
  NoRequestFolder = 30,
  NoAnswerFolder = 50,
  NoInput = 55,
  NoRequestEvent = 60,
  NoAnswerEvent = 70,
  ReadyExists = 80,
  ReadyNotMade = 90,
  WaitFailed = 92,
  ChildEnded = 94,
  WaitAbandoned = 96
};

// Starts a program of this runtime as a child; blocks until both can exchange messages. One of KivExProcStartResult;
// iChildPid is 0 unless the child is up. A started process is not ended by a failure behind its start.
int32_t KivExProcLib_StartChild(const KivWString& csExecutable, const KivWString& csExtraArguments, int32_t& iChildPid);
int32_t KivExProcLib_StartChild(const KivWString& csExecutable, int32_t& iChildPid);

enum class KivExProcCloseChildResult : int32_t { Done = 0, NoChild = 10 };
// Sends a child away without waiting for its end. One of KivExProcCloseChildResult, or the negative code of a busy
// channel, with nothing changed.
int32_t KivExProcLib_CloseChild(int32_t iChildPid);

// --- Messages -------------------------------------------------------------------------------------------------------

enum class KivExProcSendResult : int32_t {
  Done = 0,
  ChildDied = 1,  // a send only, in a process that survives it
  TargetIsParent = 10,
  NameTooLong = 12,  // 256 or more code units
  NameNotCopied = 14,
  PostUnknownChild = 30,
  SendUnknownChild = 40,
  RequestPending = -10,  // the child has not finished the last request
  AnswerPending = -20    // an answer is waiting to be read
};

// Sends a request and returns; the answer comes to the callback in a later service pass. A null callback drops it.
int32_t KivExProcLib_PostMessage(int32_t iChildPid, const KivWString& csRequest, const KivByteBuffer& vcPayload,
                                 KivExProcAnswer pfnAnswer);
// Sends a request and waits for the answer for as long as the child lives. The outputs are set with Done only.
int32_t KivExProcLib_SendMessage(int32_t iChildPid, const KivWString& csRequest, const KivByteBuffer& vcPayload,
                                 int64_t& iStatus, KivByteBuffer& vcAnswer);
// Tries once more when the channel is busy.
int32_t KivExProcLib_SendMessageRetry(int32_t iChildPid, const KivWString& csRequest, const KivByteBuffer& vcPayload,
                                      int64_t& iStatus, KivByteBuffer& vcAnswer);

// One pass over the children: notices their death, takes one posted answer, calls the tick. 0 goes on, 1 a child has
// gone and was survived, negative ends the loop. Waits up to 50 ms if there are children.
int32_t KivExProcLib_ServeChildren();
// One pass for the parent: notices its death, serves one request, calls the poll. 0 goes on, negative ends the loop.
// Waits up to 50 ms.
int32_t KivExProcLib_ServeParent();

// --- The fatal message ----------------------------------------------------------------------------------------------

// Shows the place and the two fatal texts to the user, once in a process, then reports. The last two arguments are not
// used.
void KivExProcLib_ShowFatalError(const KivWString& csSource, int32_t iLine, int32_t iArgument, bool bFlag);
void KivExProcLib_SetFatalMessages(const KivWString& csFirst, const KivWString& csSecond);

}  // namespace kiv
