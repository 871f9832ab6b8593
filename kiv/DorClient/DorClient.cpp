#include "DorClient.h"

#include <algorithm>

#include "KivDataUtil.h"
#include "KivExProcLib.h"
#include "KivException.h"
#include "KivSysClock.h"
#include "KivSysFile.h"
#include "KivSysFolder.h"
#include "KivSysProcess.h"

namespace kiv {
namespace {

constexpr KivWStringView kMarkerPrefix = u"KivProc";
constexpr KivWStringView kGeneratedPrefix = u"ZUR_TMP_FOLDER";
constexpr uint32_t kFirstPauseMs = 1;
constexpr uint32_t kLongestPauseMs = 20;
constexpr int kCleanUpTries = 40;
constexpr uint32_t kCleanUpPauseMs = 50;

KivWString Decimal(int64_t iValue) {
  return sys::Utf8ToWide(std::to_string(iValue));
}

// Where a program stands that was started by this path.
KivWString FolderOfProgram(const KivWString& csPath) {
  KivWString csFolder, csName;
  KivSplitPath(csPath, csFolder, csName);
  if (csFolder.empty()) return KivGetModuleFolder();
  KivWString csReal, csRealFolder;
  if (!sys::RealPath(csPath, csReal)) return DorAbsolutePath(csFolder);
  KivSplitPath(csReal, csRealFolder, csName);
  return csRealFolder;
}

// Removes the work folders of dead processes and leaves the folder itself, also when nothing else stands in it.
void RemoveOrphansIn(const KivWString& csFolder) {
  const KivSysFile hKeeper =
      KivSysFile::Open(csFolder + sys::kSeparator + u"dor_clean_" + Decimal(sys::CurrentProcessNumber()),
                       {KivSysAccess::ReadWrite, KivSysShare::None, KivSysDisposition::CreateAlways,
                        KivSysFileFlags::Temporary | KivSysFileFlags::DeleteOnClose});
  KivRemoveOrphanFolders(csFolder, true);
}

// True if a work folder of one of these processes stands in the folder.
bool HasFolderOf(const std::set<int32_t>& spPids, const KivWString& csFolder) {
  std::vector<KivSysFolderEntry> vzEntries;
  sys::ListFolder(csFolder, vzEntries);
  return std::any_of(vzEntries.begin(), vzEntries.end(), [&](const KivSysFolderEntry& zEntry) {
    if (!zEntry.m_bFolder || !zEntry.m_csName.starts_with(kGeneratedPrefix)) return false;
    return std::any_of(spPids.begin(), spPids.end(),
                       [&](int32_t iPid) { return zEntry.m_csName.ends_with(u"-" + Decimal(iPid)); });
  });
}

// Root mode serves its own loop only until the tick ends it: from then on the host is in charge.
int32_t EndLoopAtOnce() {
  return -1;
}

}  // namespace

// Handlers run in the root folder.
KivWString DorAbsolutePath(const KivWString& csPath) {
  if (csPath.empty() || !sys::IsRelativePath(csPath)) return csPath;
  KivWString csAbsolute;
  return sys::AbsolutePath(csPath, csAbsolute) ? csAbsolute : csPath;
}

DorClient::DorClient(const DorClientOptions& zOptions) {
  StartTree(zOptions.m_csRootFolder.empty() ? KivWString() : DorAbsolutePath(zOptions.m_csRootFolder));

  KivWString csRelay;
  std::string strWhy;
  try {
    const int32_t iStart = StartRelay(zOptions, csRelay);
    if (iStart == 0) return;
    strWhy = "code " + std::to_string(iStart);
  } catch (const std::exception& e) {
    strWhy = e.what();
  }
  try {
    Close();
  } catch (const std::exception&) {
    // The report has been made; what the caller must hear of is why there is no relay.
  }
  throw DorClientError("the relay " + sys::WideToUtf8(csRelay) + " could not be started (" + strWhy + ")");
}

void DorClient::StartTree(const KivWString& csRootFolder) {
  KivExProcLib_SetHandlers(EndLoopAtOnce, nullptr, nullptr);
  KivExProcLib_SetSurviveChildDeath(true);
  std::vector<KivWString> vcsArguments{u"client"};
  if (!csRootFolder.empty()) vcsArguments.push_back(u"-r" + csRootFolder);
  const bool bWasSettled = KivIsWorkFolderSettled();
  const bool bWasThere = !csRootFolder.empty() && sys::PathExists(csRootFolder);
  std::string strWhy;
  try {
    const int32_t iRun = KivExProcLib_Run(vcsArguments);
    m_bOpen = iRun == 0;
    strWhy = "code " + std::to_string(iRun);
  } catch (const std::exception& e) {
    strWhy = e.what();
  }
  m_csRootFolder = KivExProcLib_GetRootFolder();
  if (m_bOpen) return;

  // What the start has made: the root folder, a generated one that an existing root folder was compared with, or no
  // more than the folder of the markers in a folder of the host's.
  if (!bWasSettled && KivIsWorkFolderSettled() && (!bWasThere || KivGetWorkFolder() != csRootFolder)) {
    KivCloseLog();
    KivRemoveTree(KivGetWorkFolder());
  } else if (!m_csRootFolder.empty()) {
    sys::RemoveFolder(m_csRootFolder + sys::kSeparator + u"Process");
  }
  throw DorClientError("the process tree could not be started (" + strWhy + ")");
}

int32_t DorClient::StartRelay(const DorClientOptions& zOptions, KivWString& csRelay) {
  csRelay = zOptions.m_csRelay.empty() ? KivFindModule(u"DorRelay") : zOptions.m_csRelay;
  m_csRelayFolder = FolderOfProgram(csRelay);
  const int32_t iStart = KivExProcLib_StartChild(csRelay, zOptions.m_csRelayArguments, m_iRelayPid);
  if (iStart == 0) m_zRelay = KivSysProcess::TakeBack(static_cast<uint32_t>(m_iRelayPid));
  RememberTree();
  return iStart;
}

DorClient::~DorClient() {
  try {
    Close();
  } catch (...) {
    // A destructor lets no exception out; the report has been made.
  }
}

int32_t DorClient::CallUnchecked(const KivWString& csRequest, const KivByteBuffer& vcPayload, KivByteBuffer& vcResult) {
  if (!m_bOpen || m_bRelayEnded) throw DorClientError("the relay has ended");
  int64_t iStatus = 0;
  int32_t iResult = 0;
  try {
    iResult = KivExProcLib_SendMessage(m_iRelayPid, csRequest, vcPayload, iStatus, vcResult);
  } catch (const std::exception& e) {
    // A relay that ends behind its answer takes the answer with it.
    m_bRelayEnded = true;
    KivExProcLib_CloseDown(kKivExProcFatal, false);
    throw DorClientError(std::string("the relay has ended in an exchange: ") + e.what());
  }
  if (iResult == static_cast<int32_t>(KivExProcSendResult::ChildDied)) {
    m_bRelayEnded = true;
    throw DorClientError("the relay has ended");
  }
  if (iResult != 0) throw DorClientError("the request could not be sent (code " + std::to_string(iResult) + ")");
  return static_cast<int32_t>(iStatus);
}

int64_t DorClient::CheckRequest(const DorRequestRow* pzRow, const KivWString& csRequest,
                                const KivByteBuffer& vcPayload) const {
  if (pzRow == nullptr || pzRow->m_iFamily == DorRequestFamily::Refused)
    throw DorClientError("the relay does not serve " + sys::WideToUtf8(csRequest));
  if (!DorFitsForm(*pzRow, vcPayload)) throw DorClientError("the payload does not fit " + sys::WideToUtf8(csRequest));
  if (DorHasZeroInText(*pzRow, vcPayload)) throw DorClientError("a text has a zero in it");
  if (pzRow->m_iFamily == DorRequestFamily::Open) return -1;
  uint64_t iCursor = 0;
  int64_t iModel = 0;
  KivGetInt64(iCursor, vcPayload, &iModel);
  if (!m_mapModels.contains(iModel)) throw DorClientError("model " + std::to_string(iModel) + " is not open");
  return iModel;
}

DorAnswer DorClient::Call(const KivWString& csRequest, const KivByteBuffer& vcPayload) {
  const DorRequestRow* pzRow = DorFindRequest(csRequest);
  const int64_t iModel = CheckRequest(pzRow, csRequest, vcPayload);
  DorAnswer zAnswer;
  if (csRequest == kDorPickOneElement && vcPayload.size() > sizeof iModel && !m_mapModels[iModel]) {
    // A tail for a model that could not be read would end the relay.
    zAnswer.m_iStatus = GetReadStatus(iModel);
    if (zAnswer.m_iStatus != kDorStatusServed) return zAnswer;
  }
  if (pzRow->m_iFamily == DorRequestFamily::Close) {
    RememberTree();
    m_mapModels.erase(iModel);
  }
  zAnswer.m_iStatus = CallUnchecked(csRequest, vcPayload, zAnswer.m_vcResult);
  if (pzRow->m_iFamily == DorRequestFamily::Open) {
    uint64_t iCursor = 0;
    int64_t iNew = 0;
    if (zAnswer.m_iStatus != 0 || zAnswer.m_vcResult.size() != sizeof iNew ||
        !KivGetInt64(iCursor, zAnswer.m_vcResult, &iNew))
      throw DorClientError("the relay gave no model id");
    m_mapModels[iNew] = false;
  } else if (pzRow->m_iFamily == DorRequestFamily::Forward && zAnswer.m_iStatus == kDorStatusServed) {
    m_mapModels[iModel] = true;
  }
  return zAnswer;
}

int64_t DorClient::StartOpen(const KivWString& csPath) {
  KivByteBuffer vcPayload;
  KivPutString(vcPayload, DorAbsolutePath(csPath));
  const DorAnswer zAnswer = Call(KivWString(kDorReadDor), vcPayload);
  uint64_t iCursor = 0;
  int64_t iModel = 0;
  KivGetInt64(iCursor, zAnswer.m_vcResult, &iModel);
  return iModel;
}

int32_t DorClient::GetReadStatus(int64_t iModel) {
  KivByteBuffer vcPayload;
  KivPutInt64(vcPayload, iModel);
  return Call(KivWString(kDorDoNothing), vcPayload).m_iStatus;
}

void DorClient::AwaitOpen(int64_t iModel, const std::function<bool()>& pfnWaiting) {
  uint32_t iPauseMs = kFirstPauseMs;
  for (;;) {
    const int32_t iStatus = GetReadStatus(iModel);
    if (iStatus != kDorStatusReading) RememberTree();  // its handler is up
    if (iStatus == kDorStatusReadFailed)
      throw DorReadError("the model could not be read: the file is no model, or a damaged one");
    if (iStatus != kDorStatusReading) return;
    if (pfnWaiting != nullptr && !pfnWaiting()) throw DorReadError("gave up waiting for the model");
    sys::SleepMs(iPauseMs);
    iPauseMs = std::min(iPauseMs * 2, kLongestPauseMs);
  }
}

int64_t DorClient::Open(const KivWString& csPath, const std::function<bool()>& pfnWaiting) {
  const int64_t iModel = StartOpen(csPath);
  AwaitOpen(iModel, pfnWaiting);
  return iModel;
}

void DorClient::Clear(int64_t iModel) {
  KivByteBuffer vcPayload;
  KivPutInt64(vcPayload, iModel);
  Call(KivWString(kDorClearModel), vcPayload);
}

std::vector<int32_t> DorClient::ListHandlers() const {
  std::vector<int32_t> viPids = ListTree();
  viPids.erase(viPids.begin());
  std::erase(viPids, m_iRelayPid);
  return viPids;
}

std::vector<int32_t> DorClient::ListTree() const {
  std::vector<int32_t> viPids{static_cast<int32_t>(sys::CurrentProcessNumber())};
  std::vector<KivSysFolderEntry> vzEntries;
  sys::ListFolder(m_csRootFolder + sys::kSeparator + u"Process", vzEntries);
  for (const KivSysFolderEntry& zEntry : vzEntries) {
    if (!zEntry.m_csName.starts_with(kMarkerPrefix)) continue;
    const std::string strPid = sys::WideToUtf8(zEntry.m_csName.substr(kMarkerPrefix.size()));
    const int32_t iPid = static_cast<int32_t>(std::strtol(strPid.c_str(), nullptr, 10));
    if (iPid != viPids.front()) viPids.push_back(iPid);
  }
  std::sort(viPids.begin() + 1, viPids.end());
  return viPids;
}

void DorClient::RememberTree() {
  for (int32_t iPid : ListTree()) m_spSeenPids.insert(iPid);
}

bool DorClient::Close() {
  if (!m_bOpen) return m_bClean;
  m_bOpen = false;
  RememberTree();
  try {
    if (m_iRelayPid != 0 && !m_bRelayEnded) KivExProcLib_CloseChild(m_iRelayPid);
  } catch (const std::exception&) {
    // A relay that cannot be asked to end is killed with the tree.
  }
  KivExProcLib_CloseDown(0, false);

  KivCloseLog();  // of a report in this process; it would hold the folder back
  const KivRemoveTreeResult iRemoved = KivRemoveTree(m_csRootFolder);
  const bool bClean = iRemoved == KivRemoveTreeResult::Done || !sys::PathExists(m_csRootFolder);
  m_bClean = RemoveGeneratedFolders() && bClean;
  return m_bClean;
}

bool DorClient::RemoveGeneratedFolders() {
  KivWString csBesideRoot, csName;
  KivSplitPath(m_csRootFolder, csBesideRoot, csName);
  // Programs generate their folders beside themselves or, where they cannot write, in the user's temporary folder.
  std::set<KivWString> scsFolders{csBesideRoot, m_csRelayFolder};
  const KivWString csTemp = sys::PrivateTempFolder();
  if (HasFolderOf(m_spSeenPids, csTemp)) scsFolders.insert(csTemp);
  bool bLeft = false;
  for (const KivWString& csFolder : scsFolders) {
    if (!sys::FolderExists(csFolder)) continue;
    // The folders can go when the system has forgotten the processes.
    for (int iTry = 0; iTry < kCleanUpTries; ++iTry) {
      if (iTry != 0) sys::SleepMs(kCleanUpPauseMs);
      RemoveOrphansIn(csFolder);
      if (!HasFolderOf(m_spSeenPids, csFolder)) break;
    }
    if (HasFolderOf(m_spSeenPids, csFolder)) bLeft = true;
  }
  return !bLeft;
}

}  // namespace kiv
