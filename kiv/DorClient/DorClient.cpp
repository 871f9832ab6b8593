#include "DorClient.h"

#include <algorithm>
#include <filesystem>

#include "KivDataUtil.h"
#include "KivExProcLib.h"
#include "KivException.h"
#include "KivSysClock.h"
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

// Handlers run in the root folder.
KivWString AbsolutePath(const KivWString& csPath) {
  return sys::IsRelativePath(csPath) ? std::filesystem::absolute(csPath).u16string() : csPath;
}

// Root mode serves its own loop only until the tick ends it: from then on the host is in charge.
int32_t EndLoopAtOnce() {
  return -1;
}

}  // namespace

DorClient::DorClient(const DorClientOptions& zOptions) {
  KivExProcLib_SetHandlers(EndLoopAtOnce, nullptr, nullptr);
  KivExProcLib_SetSurviveChildDeath(true);
  std::vector<KivWString> vcsArguments{u"client"};
  if (!zOptions.m_csRootFolder.empty()) vcsArguments.push_back(u"-r" + zOptions.m_csRootFolder);
  const int32_t iRun = KivExProcLib_Run(vcsArguments);
  if (iRun != 0) throw DorClientError("the process tree could not be started (code " + std::to_string(iRun) + ")");
  m_csRootFolder = KivExProcLib_GetRootFolder();
  m_bOpen = true;

  const KivWString csRelay = zOptions.m_csRelay.empty() ? KivFindModule(u"DorRelay") : zOptions.m_csRelay;
  const int32_t iStart = KivExProcLib_StartChild(csRelay, zOptions.m_csRelayArguments, m_iRelayPid);
  if (iStart == 0) return;
  Close();
  throw DorClientError("the relay " + sys::WideToUtf8(csRelay) + " could not be started (code " +
                       std::to_string(iStart) + ")");
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
  } catch (const KivException& e) {
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

void DorClient::CheckRequest(const KivWString& csRequest, const KivByteBuffer& vcPayload) const {
  const DorRequestRow* pzRow = DorFindRequest(csRequest);
  if (pzRow == nullptr || pzRow->m_iFamily == DorRequestFamily::Refused)
    throw DorClientError("the relay does not serve " + sys::WideToUtf8(csRequest));
  if (pzRow->m_iFamily == DorRequestFamily::Open) return;
  uint64_t iCursor = 0;
  int64_t iModel = 0;
  if (vcPayload.size() < sizeof iModel) throw DorClientError("the request has no model id");
  KivGetInt64(iCursor, vcPayload, &iModel);
  if (std::find(m_viModels.begin(), m_viModels.end(), iModel) == m_viModels.end())
    throw DorClientError("model " + std::to_string(iModel) + " is not open");
}

DorAnswer DorClient::Call(const KivWString& csRequest, const KivByteBuffer& vcPayload) {
  CheckRequest(csRequest, vcPayload);
  DorAnswer zAnswer;
  zAnswer.m_iStatus = CallUnchecked(csRequest, vcPayload, zAnswer.m_vcResult);
  return zAnswer;
}

int64_t DorClient::StartOpen(const KivWString& csPath) {
  KivByteBuffer vcPayload, vcResult;
  KivPutString(vcPayload, AbsolutePath(csPath));
  const int32_t iStatus = CallUnchecked(KivWString(kDorReadDor), vcPayload, vcResult);
  uint64_t iCursor = 0;
  int64_t iModel = 0;
  if (iStatus != 0 || vcResult.size() != sizeof iModel || !KivGetInt64(iCursor, vcResult, &iModel))
    throw DorClientError("the relay gave no model id");
  m_viModels.push_back(iModel);
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
    if (iStatus == kDorStatusReadFailed) throw DorReadError("the model could not be read");
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
  const auto itModel = std::find(m_viModels.begin(), m_viModels.end(), iModel);
  if (itModel == m_viModels.end()) throw DorClientError("model " + std::to_string(iModel) + " is not open");
  for (int32_t iPid : ListTree())
    if (std::find(m_viSeenPids.begin(), m_viSeenPids.end(), iPid) == m_viSeenPids.end()) m_viSeenPids.push_back(iPid);
  KivByteBuffer vcPayload, vcResult;
  KivPutInt64(vcPayload, iModel);
  m_viModels.erase(itModel);
  CallUnchecked(KivWString(kDorClearModel), vcPayload, vcResult);
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

bool DorClient::Close() {
  if (!m_bOpen) return true;
  m_bOpen = false;
  std::vector<int32_t> viPids = ListTree();
  viPids.insert(viPids.end(), m_viSeenPids.begin(), m_viSeenPids.end());
  if (m_iRelayPid != 0 && !m_bRelayEnded) KivExProcLib_CloseChild(m_iRelayPid);
  KivExProcLib_CloseDown(0, false);

  KivWString csFolder, csName;
  KivSplitPath(m_csRootFolder, csFolder, csName);
  KivCloseLog();  // of a report in this process; it would hold the folder back
  const KivRemoveTreeResult iRemoved = KivRemoveTree(m_csRootFolder);
  const bool bClean = iRemoved == KivRemoveTreeResult::Done || !sys::PathExists(m_csRootFolder);

  // The work folders that relay and handlers generated go when the system has forgotten the processes.
  const auto HasFolderOfTree = [&] {
    std::vector<KivSysFolderEntry> vzEntries;
    sys::ListFolder(csFolder, vzEntries);
    return std::any_of(vzEntries.begin(), vzEntries.end(), [&](const KivSysFolderEntry& zEntry) {
      if (!zEntry.m_bFolder || !zEntry.m_csName.starts_with(kGeneratedPrefix)) return false;
      return std::any_of(viPids.begin(), viPids.end(),
                         [&](int32_t iPid) { return zEntry.m_csName.ends_with(u"-" + Decimal(iPid)); });
    });
  };
  bool bLeft = HasFolderOfTree();
  for (int iTry = 0; bLeft && iTry < kCleanUpTries; ++iTry) {
    if (iTry != 0) sys::SleepMs(kCleanUpPauseMs);
    KivRemoveOrphanFolders(csFolder, true);
    bLeft = HasFolderOfTree();
  }
  return bClean && !bLeft;
}

}  // namespace kiv
