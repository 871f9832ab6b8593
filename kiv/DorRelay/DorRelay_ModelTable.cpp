#include <algorithm>
#include <ctime>

#include "DorRelay.h"
#include "KivDataUtil.h"
#include "KivException.h"
#include "KivSysClock.h"
#include "KivSysProcess.h"

namespace kiv {

int64_t g_iNextModelId = 0;

namespace {

constexpr char kSource[] = "DorRelay";
constexpr int32_t kFatal = 999;
constexpr char16_t kHandlerName[] = u"DorHandler";

std::list<DorModelRecord> g_lstModels;

class RealRuntime : public IDorRelayRuntime {
 public:
  KivWString FindHandler() override { return KivFindModule(kHandlerName); }
  int32_t StartChild(const KivWString& csPath, int32_t& iChildPid) override {
    return KivExProcLib_StartChild(csPath, KivWString(), iChildPid);
  }
  int32_t SendRequest(int32_t iChildPid, const KivWString& csName, const KivByteBuffer& vcPayload, int64_t& iStatus,
                      KivByteBuffer& vcAnswer) override {
    return KivExProcLib_SendMessage(iChildPid, csName, vcPayload, iStatus, vcAnswer);
  }
  int32_t PostRequest(int32_t iChildPid, const KivWString& csName, const KivByteBuffer& vcPayload,
                      KivExProcAnswer pfnAnswer) override {
    return KivExProcLib_PostMessage(iChildPid, csName, vcPayload, pfnAnswer);
  }
  int32_t CloseChild(int32_t iChildPid) override { return KivExProcLib_CloseChild(iChildPid); }
  void YieldSlice() override { sys::SleepMs(0); }
  void CloseDown(int32_t iStatus) override { KivExProcLib_CloseDown(iStatus, true); }
};

RealRuntime g_zRealRuntime;
IDorRelayRuntime* g_pzRuntime = &g_zRealRuntime;

void Fatal(int32_t iLine) {
  KivReportFailure("0", kSource, iLine);
  g_pzRuntime->CloseDown(kFatal);
}

bool IsRead(const DorModelRecord& zRow) {
  return zRow.m_csRequest == kDorReadDor;
}
bool IsClear(const DorModelRecord& zRow) {
  return zRow.m_csRequest == kDorClearModel;
}

// Blocks until the child has finished its handshake, then gives it the model to read.
void StartRead(DorModelRecord& zRow) {
  const KivWString csPath = g_pzRuntime->FindHandler();
  int32_t iChildPid = 0;
  if (g_pzRuntime->StartChild(csPath, iChildPid) != 0 || iChildPid == 0) {
    Fatal(__LINE__);
    return;
  }
  zRow.m_iChildPid = iChildPid;
  KivByteBuffer vcPayload;
  KivPutInt64(vcPayload, zRow.m_iModelId);
  KivPutString(vcPayload, zRow.m_csPath);
  KivPutInt64(vcPayload, 0);
  if (g_pzRuntime->PostRequest(iChildPid, KivWString(kDorReadDor), vcPayload, DorRelay_OnAnswer) != 0) Fatal(__LINE__);
}

}  // namespace

void DorRelay_SetRuntime(IDorRelayRuntime* pzRuntime) {
  g_pzRuntime = pzRuntime != nullptr ? pzRuntime : &g_zRealRuntime;
}

IDorRelayRuntime& DorRelay_Runtime() {
  return *g_pzRuntime;
}

std::list<DorModelRecord>& DorRelay_ModelTable() {
  return g_lstModels;
}

DorModelRecord* DorRelay_FindModel(int64_t iModelId) {
  for (DorModelRecord& zRow : g_lstModels)
    if (zRow.m_iModelId == iModelId && IsRead(zRow)) return &zRow;
  return nullptr;
}

int32_t DorRelay_Tick() {
  return 0;
}

int32_t DorRelay_Poll() {
  for (auto itRow = g_lstModels.begin(); itRow != g_lstModels.end(); ++itRow) {
    DorModelRecord& zRow = *itRow;
    if (zRow.m_iChildPid == 0 && !zRow.m_bDone) {
      if (IsRead(zRow)) {
        StartRead(zRow);
        return 0;
      }
      if (IsClear(zRow)) {
        const DorModelRecord* pzModel = DorRelay_FindModel(zRow.m_iModelId);
        zRow.m_iChildPid = pzModel != nullptr ? pzModel->m_iChildPid : 0;
      }
    }
    if (!IsClear(zRow)) continue;

    DorModelRecord* pzModel = DorRelay_FindModel(zRow.m_iModelId);
    if (pzModel == nullptr) continue;  // an unknown id: the row stays for good
    if (!pzModel->m_bDone || pzModel->m_bClearSent) continue;
    if (zRow.m_iChildPid == 0) {
      KIV_FAIL();
      g_lstModels.erase(itRow);
      return 0;
    }
    KivByteBuffer vcPayload;
    KivPutInt64(vcPayload, zRow.m_iModelId);
    if (g_pzRuntime->PostRequest(zRow.m_iChildPid, KivWString(kDorClearModel), vcPayload, DorRelay_OnAnswer) != 0)
      Fatal(__LINE__);
    pzModel->m_bClearSent = true;
    g_lstModels.erase(itRow);
    return 0;
  }
  return 0;
}

int32_t DorRelay_OnAnswer(int32_t iStatus, const KivByteBuffer& vcAnswer) {
  uint64_t iCursor = 0;
  int64_t iModelId = 0;
  KivWString csRequest;
  if (!KivGetInt64(iCursor, vcAnswer, &iModelId) || !KivGetString(iCursor, vcAnswer, &csRequest) ||
      iCursor != vcAnswer.size()) {
    Fatal(__LINE__);
    return 0;
  }
  if (csRequest != kDorReadDor && csRequest != kDorClearModel) return 0;

  const auto itRow = std::find_if(g_lstModels.begin(), g_lstModels.end(),
                                  [&](const DorModelRecord& zRow) { return zRow.m_iModelId == iModelId; });
  if (itRow == g_lstModels.end()) {
    Fatal(__LINE__);
    return 0;
  }
  if (csRequest == kDorReadDor) {
    itRow->m_bDone = true;
    if (iStatus != 0) itRow->m_bFailed = true;
    return 0;
  }
  if (itRow->m_iChildPid != 0) {
    const int32_t iRc2 = g_pzRuntime->CloseChild(itRow->m_iChildPid);
    KIV_CHECK(iRc2 == 0);
  }
  g_lstModels.erase(itRow);
  return 0;
}

bool DorRelay_IsModelReady(int64_t iModelId) {
  const DorModelRecord* pzModel = DorRelay_FindModel(iModelId);
  return pzModel != nullptr && pzModel->m_bDone;
}

int32_t DorRelay_GetChildPid(int64_t iModelId) {
  const DorModelRecord* pzModel = DorRelay_FindModel(iModelId);
  return pzModel != nullptr ? pzModel->m_iChildPid : 0;
}

KivWString DorRelay_MakeUniqueName() {
  static int32_t iCounter = 0;
  ++iCounter;
  const std::string strName = std::to_string(static_cast<int32_t>(std::clock())) + "_" +
                              std::to_string(static_cast<int32_t>(sys::CurrentProcessNumber())) + "_" +
                              std::to_string(iCounter);
  return KivWString(strName.begin(), strName.end());
}

}  // namespace kiv
