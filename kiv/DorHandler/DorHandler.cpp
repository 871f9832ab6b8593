#include "DorHandler.h"

#include <exception>
#include <new>

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

constexpr size_t kPrescribedRoom = 128;  // bytes for an answer that the relay prescribes
// Taken when the program starts, for such an answer that finds no memory: the relay cannot go on without it.
KivByteBuffer g_vcPrescribedRoom(kPrescribedRoom);

void PutPrescribed(KivByteBuffer& vcResult, int64_t iModelId, KivWStringView csRequest) {
  try {
    vcResult.reserve(kPrescribedRoom);
    g_vcPrescribedRoom.reserve(kPrescribedRoom);  // for the next one
  } catch (const std::bad_alloc&) {
    if (vcResult.capacity() < kPrescribedRoom) vcResult.swap(g_vcPrescribedRoom);
  }
  vcResult.clear();
  KivPutInt64(vcResult, iModelId);
  KivPutInt64(vcResult, static_cast<int64_t>(csRequest.size()));
  KivPutBytes(vcResult, csRequest.data(), csRequest.size() * sizeof(char16_t));
}

// Nothing is open behind a read that finds no memory; the status tells it, the first report of the process is logged.
DorReadResult ReadOrClose(const KivByteBuffer& vcPayload, uint64_t& iCursor) {
  DorSession& zSession = Session();
  try {
    KivWString csPath;
    int64_t iReserved = 0;
    if (KivGetString(iCursor, vcPayload, &csPath) && KivGetInt64(iCursor, vcPayload, &iReserved) &&
        iCursor == vcPayload.size())
      return zSession.Read(csPath);
  } catch (const std::exception&) {
    zSession.Close();
  }
  return DorReadResult::Failed;
}

void ServeRead(const KivByteBuffer& vcPayload, int32_t& iStatus, KivByteBuffer& vcResult) {
  uint64_t iCursor = 0;
  int64_t iModelId = 0;
  const bool bId = KivGetInt64(iCursor, vcPayload, &iModelId);
  PutPrescribed(vcResult, iModelId, kDorReadDor);  // first, since the read may leave no memory
  iStatus = static_cast<int32_t>(DorReadResult::Failed);
  try {
    if (bId) iStatus = static_cast<int32_t>(ReadOrClose(vcPayload, iCursor));
  } catch (const std::exception&) {
    // Told by the status: not even the session could be made.
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
