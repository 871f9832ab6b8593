// The relay between one client and its handlers: checks each request to the last byte, keeps the table of models, has
// one handler process for each model and passes requests on to it.
//
// Process-wide state, main thread only, no lock. Reports carry the source name "DorRelay"; a report of a broken
// protocol is followed by a close-down of the process with 999.
#pragma once

#include <cstdint>
#include <list>

#include "DorRequests.h"
#include "KivByteBuffer.h"
#include "KivExProcLib.h"

namespace kiv {

// One model that is being read or is open, or one request to clear a model.
struct DorModelRecord {
  KivWString m_csPath;     // model file; empty in a row of DorHandler_ClearModel
  KivWString m_csRequest;  // the request that made the row: DorHandler_ReadDor or DorHandler_ClearModel
  int64_t m_iModelId = 0;
  bool m_bDone = false;       // the child has answered DorHandler_ReadDor
  bool m_bFailed = false;     // with a status other than 0
  int32_t m_iChildPid = 0;    // 0 while there is none
  bool m_bClearSent = false;  // DorHandler_ClearModel is with the child
};

// What the relay asks of the process runtime. The default goes to KivExProcLib; tests set their own.
class IDorRelayRuntime {
 public:
  virtual ~IDorRelayRuntime() = default;
  virtual KivWString FindHandler() = 0;
  virtual int32_t StartChild(const KivWString& csPath, int32_t& iChildPid) = 0;
  virtual int32_t SendRequest(int32_t iChildPid, const KivWString& csName, const KivByteBuffer& vcPayload,
                              int64_t& iStatus, KivByteBuffer& vcAnswer) = 0;
  virtual int32_t PostRequest(int32_t iChildPid, const KivWString& csName, const KivByteBuffer& vcPayload,
                              KivExProcAnswer pfnAnswer) = 0;
  virtual int32_t CloseChild(int32_t iChildPid) = 0;
  virtual void YieldSlice() = 0;
  // Ends the process with this status and does not return, except in tests.
  virtual void CloseDown(int32_t iStatus) = 0;
};
// Null goes back to the default. The object outlives its use.
void DorRelay_SetRuntime(IDorRelayRuntime* pzRuntime);

// What DorRelay_Dispatch returns. Anything but Served is fatal for the process.
enum class DorDispatchResult : int32_t {
  Served = 0,
  FirstFieldUnread = 10,
  SecondFieldUnread = 20,
  ThirdFieldUnread = 30,
  FourthFieldUnread = 40,
  FifthFieldUnread = 50,
  ClosedDown = 999  // seen only where the close-down returned
};

// Serves one request of the client: one of DorStatus in iStatus, the result in vcResult (a handler's answer, or the id
// of a model that is to be read). A broken payload is reported and ends the process.
int32_t DorRelay_Dispatch(const KivWString& csRequest, const KivByteBuffer& vcPayload, int32_t& iStatus,
                          KivByteBuffer& vcResult);
// Passes a checked request on to a child and maps what comes back to DorStatus.
void DorRelay_Forward(int32_t iChildPid, const KivWString& csRequest, const KivByteBuffer& vcPayload, int32_t& iStatus,
                      KivByteBuffer& vcResult);

// One pass over the model table: at most one child is started or one clear sent. Always 0.
int32_t DorRelay_Poll();
// Always 0; a relay without a parent serves for ever.
int32_t DorRelay_Tick();
// Takes the answer of a child to DorHandler_ReadDor or DorHandler_ClearModel: the id and the request's name. Always 0.
int32_t DorRelay_OnAnswer(int32_t iStatus, const KivByteBuffer& vcAnswer);

bool DorRelay_IsModelReady(int64_t iModelId);    // false for an unknown id
int32_t DorRelay_GetChildPid(int64_t iModelId);  // 0 for an unknown id
// "<clock>_<process id>_<counter>"; never the same twice in a process.
KivWString DorRelay_MakeUniqueName();

extern int64_t g_iNextModelId;
// In order of arrival.
std::list<DorModelRecord>& DorRelay_ModelTable();
// The first row of DorHandler_ReadDor with this id, or null.
DorModelRecord* DorRelay_FindModel(int64_t iModelId);
IDorRelayRuntime& DorRelay_Runtime();

}  // namespace kiv
