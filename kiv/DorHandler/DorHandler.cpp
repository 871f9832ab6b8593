#include "DorHandler.h"

#include <exception>

#include "DorRefusal.h"
#include "DorRequest.h"
#include "KivDataSpaceBase.h"
#include "KivException.h"

namespace kiv {
namespace {

// Ends before the data space, which is built first.
DorSession& Session() {
  KivDataSpaceBase::GetInstance();
  static DorSession zSession;
  return zSession;
}

void Refuse(KivByteBuffer& vcResult, DorAnswerCode iCode, const KivWString& csReason) {
  vcResult.clear();
  KivPutInt64(vcResult, static_cast<int64_t>(iCode));
  KivPutString(vcResult, csReason);
}

// Also where there is no memory: then by an answer that was made before.
void RefuseAnyway(KivByteBuffer& vcResult, DorAnswerCode iCode, const char* szReason) noexcept {
  static KivByteBuffer vcSpare;
  const auto Try = [&](KivByteBuffer& vc, DorAnswerCode i, const char* sz) {
    try {
      Refuse(vc, i, sys::Utf8ToWide(sz));
      return true;
    } catch (const std::exception&) {
      return false;
    }
  };
  if (vcSpare.empty() && !Try(vcSpare, DorAnswerCode::Failed, "no memory")) vcSpare.clear();
  if (Try(vcResult, iCode, szReason) || Try(vcResult, DorAnswerCode::Failed, "no memory")) return;
  vcResult.clear();
  vcResult.swap(vcSpare);
}

void PutPrescribed(KivByteBuffer& vcResult, int64_t iModelId, KivWStringView csRequest) {
  vcResult.clear();
  KivPutInt64(vcResult, iModelId);
  KivPutString(vcResult, KivWString(csRequest));
}

void ServeRead(const KivByteBuffer& vcPayload, int32_t& iStatus, KivByteBuffer& vcResult) {
  uint64_t iCursor = 0;
  int64_t iModelId = 0;
  iStatus = static_cast<int32_t>(DorReadResult::Failed);
  try {
    KivWString csPath;
    int64_t iReserved = 0;
    if (KivGetInt64(iCursor, vcPayload, &iModelId) && KivGetString(iCursor, vcPayload, &csPath) &&
        KivGetInt64(iCursor, vcPayload, &iReserved) && iCursor == vcPayload.size())
      iStatus = static_cast<int32_t>(Session().Read(csPath));
    PutPrescribed(vcResult, iModelId, kDorReadDor);
  } catch (const std::exception&) {
    // Told by the status; the first report of the process stands in the log.
    Session().Close();
    iStatus = static_cast<int32_t>(DorReadResult::Failed);
    PutPrescribed(vcResult, iModelId, kDorReadDor);
  }
}

void Serve(const KivWString& csRequest, const KivByteBuffer& vcPayload, KivByteBuffer& vcResult) {
  DorSession& zSession = Session();
  if (csRequest == kDorClearModel) {
    uint64_t iCursor = 0;
    int64_t iModelId = 0;
    if (vcPayload.size() < sizeof iModelId) throw DorRefusal(DorAnswerCode::BadPayload, "no model id");
    KivGetInt64(iCursor, vcPayload, &iModelId);
    zSession.Close();
    return PutPrescribed(vcResult, iModelId, kDorClearModel);
  }
  const DorRequestRow* pzRow = DorFindRequest(csRequest);
  const DorRequestWorkRow* pzWork = DorFindWork(csRequest);
  if (vcPayload.size() < sizeof(int64_t)) throw DorRefusal(DorAnswerCode::BadPayload, "no model id");
  if (!zSession.IsOpen()) throw DorRefusal(DorAnswerCode::NoModel, "no model has been read");
  if (pzRow == nullptr || pzWork == nullptr)
    return Refuse(vcResult, DorAnswerCode::NotOffered, csRequest + u" is not offered by this handler");
  if (!DorFitsForm(*pzRow, vcPayload)) throw DorRefusal(DorAnswerCode::BadPayload, "the fields do not fit the request");
  zSession.Settle();
  const DorRequestFields zFields(*pzRow, vcPayload);
  const auto Work = [&] {
    DorAnswerWriter zAnswer(*pzRow, vcResult);
    try {
      pzWork->m_pfnWork(zSession, zFields, zAnswer);
    } catch (const KivException& e) {  // the log tells more
      if (pzWork->m_bReadsOnly) throw DorRefusal(DorAnswerCode::Damaged, "a record of the model cannot be read");
      throw DorRefusal(DorAnswerCode::Failed, std::string("the model's store has reported a failure: ") + e.what());
    }
    zAnswer.Finish();
  };
  try {
    return Work();
  } catch (const DorRefusal& e) {
    if (e.m_iCode != DorAnswerCode::Damaged) throw;
  }
  Work();  // elements tell a lack of memory like damage: what was short for a moment is there now
}

}  // namespace

int32_t DorHandlerDispatch(const KivWString& csRequest, const KivByteBuffer& vcPayload, int32_t& iStatus,
                           KivByteBuffer& vcResult) {
  iStatus = 0;
  vcResult.clear();
  if (csRequest == kDorReadDor) {
    ServeRead(vcPayload, iStatus, vcResult);
    return 0;
  }
  try {
    Serve(csRequest, vcPayload, vcResult);
  } catch (const DorRefusal& e) {
    RefuseAnyway(vcResult, e.m_iCode, e.m_strReason.c_str());
  } catch (const std::exception& e) {
    // Not only reports: memory that this request does not get must not end the handler, and with it the whole tree.
    RefuseAnyway(vcResult, DorAnswerCode::Failed, e.what());
  }
  return 0;
}

int32_t DorHandlerPoll() {
  return 0;
}

int32_t DorHandlerTick() {
  return 0;
}

}  // namespace kiv
