// The state of the process runtime and the paths, names and message layouts of its protocol.
#pragma once

#include <list>
#include <vector>

#include "KivExProcLib.h"
#include "KivSysEvent.h"
#include "KivSysFile.h"
#include "KivSysPresence.h"
#include "KivSysProcess.h"
#include "KivWinTmpShareFile.h"

namespace kiv {

// Request in the slot "input":
//   OFFSET   SIZE   FIELD
//   0        8      payload size, unsigned
//   8        512    name: 256 UTF-16 units, zero-filled, the last one always 0
//   520      n      payload
constexpr uint64_t kRequestNameOffset = 8;
constexpr uint64_t kRequestNameUnits = 256;
constexpr uint64_t kRequestHead = 520;
// Answer in the slot "output":
//   0        8      payload size, unsigned
//   8        8      status, signed
//   16       n      payload
constexpr uint64_t kAnswerStatusOffset = 8;
constexpr uint64_t kAnswerHead = 16;
constexpr uint64_t kAnswerLeast = 9;  // a shorter file reads as status 0 without a payload

constexpr uint32_t kPassWaitMs = 50;
constexpr uint32_t kAnswerWaitMs = 25;
constexpr uint32_t kCloseDownPauseMs = 100;
constexpr uint32_t kChildLimit = 64;  // answer events that one pass may wait on

// A started child.
struct KivExProcChild {
  int32_t m_iPid = 0;
  KivWString m_csPid;
  KivWString m_csProcessFile;    // marker of the child
  KivSysProcess m_hProcess;      // held during the start only
  KivWString m_csRequestFolder;  // KivExProc_<own>-<child>
  KivWString m_csAnswerFolder;   // KivExProc_<child>-<own>
  KivSysEvent m_hRequestEvent;
  KivSysEvent m_hAnswerEvent;
  KivWinTmpShareFileCopiable m_zInputFile;  // slot of the requests
  KivExProcAnswer m_pfnAnswer = nullptr;    // of the posted request that is out
  KivWString m_csAnswerFile;                // slot of the answers
  KivWinTmpShareFileReader m_zAnswerReader;
  KivSysPresence m_zPresence;  // of m_csProcessFile
};

struct KivExProcState {
  static KivExProcState& GetInstance();

  KivWString m_csRootFolder;
  KivWString m_csJobName;
  KivSysJob m_hJob;  // open in the root only
  int32_t m_iPid = 0;
  KivWString m_csPid;
  KivWString m_csProcessFile;
  KivSysFile m_hProcessFile;
  std::list<KivExProcChild> m_lstChildren;  // living ones, in order of start
  int32_t m_iParentPid = 0;                 // 0 in the root
  KivWString m_csParentPid;
  KivWString m_csParentProcessFile;
  KivWString m_csInputFolder;   // the parent's side of the pair
  KivWString m_csOutputFolder;  // this process's side
  KivSysEvent m_hRequestEvent;
  KivSysEvent m_hAnswerEvent;
  KivWinTmpShareFileCopiable m_zOutputFile;  // slot of the answers to the parent
  KivExProcHandler m_pfnTick = nullptr;      // null in a child
  KivExProcHandler m_pfnPoll = nullptr;
  KivExProcDispatch m_pfnDispatch = nullptr;
  KivExProcHandler m_pfnCloseDown = nullptr;
  KivExProcHandler m_pfnBeforeStart = nullptr;
  bool m_bSurviveChildDeath = false;

  // Reused from message to message, so that a request costs no allocation.
  KivSysPresence m_zParentPresence;  // of m_csParentProcessFile
  KivWString m_csInputFile;
  KivWinTmpShareFileReader m_zRequestReader;
  std::vector<const KivSysEvent*> m_vpEvents;
  KivWString m_csRequest;
  KivByteBuffer m_vcRequest;
  KivByteBuffer m_vcResult;
  KivByteBuffer m_vcAnswer;
};

// The arguments of a process of the tree.
struct KivExProcArguments {
  KivWString m_csRootFolder;
  KivWString m_csJobName;
  int32_t m_iParentPid = 0;
};
// False for an argument that does not begin with '-'. The program's name stands first and is passed over.
bool KivExProcParse(const std::vector<KivWString>& vcsArguments, KivExProcArguments& zArguments);
// Blanks, a sign, digits; clamped to 32 bits; 0 without digits.
int32_t KivExProcNumber(const KivWString& csText);
KivWString KivExProcDecimal(int64_t iValue);

KivWString KivExProcPath(const KivWString& csFolder, const KivWString& csName);
KivWString KivExProcProcessFolder(const KivWString& csRoot);
KivWString KivExProcMarkerPath(const KivWString& csRoot, const KivWString& csPid);
KivWString KivExProcPairFolder(const KivWString& csRoot, const KivWString& csWriter, const KivWString& csReader);
KivWString KivExProcEventName(const KivWString& csFirst, const KivWString& csSecond);
// "<path>" -r"<root>" -p"<pid>" -j"<job>" <extra> and a closing blank; nothing is escaped.
KivWString KivExProcCommandLine(const KivWString& csExecutable, const KivWString& csRoot, const KivWString& csPid,
                                const KivWString& csJobName, const KivWString& csExtraArguments);

// Opens the own marker: read and write, nobody else, gone with this process.
KivSysFile KivExProcMakeMarker(const KivWString& csPath);

// The child's part of the handshake; one of KivExProcRunResult.
int32_t KivExProcJoinParent(KivExProcState& zState);

// Reports the broken protocol and closes down with 999.
void KivExProcFail(int32_t iLine);

}  // namespace kiv
