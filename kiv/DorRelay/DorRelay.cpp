#include "DorRelay.h"

#include "KivException.h"

namespace kiv {
namespace {

constexpr char kSource[] = "DorRelay";
constexpr int32_t kFatal = 999;
constexpr int64_t kCurveOfSixFloats = 0;
constexpr int64_t kCurveOfBlock = 1;

int32_t Code(DorDispatchResult iResult) {
  return static_cast<int32_t>(iResult);
}

// A broken protocol: the report ends the process; a host in which reports return goes down behind it.
int32_t ProtocolFailure(int32_t iLine) {
  KivReportFailure("0", kSource, iLine);
  DorRelay_Runtime().CloseDown(kFatal);
  return Code(DorDispatchResult::ClosedDown);
}

// Each Pass function reads one field and appends it to the forwarded payload; false where it cannot be read or has a
// value that the form does not allow.

bool PassInteger(uint64_t& iCursor, const KivByteBuffer& vcIn, KivByteBuffer& vcOut, int64_t& iValue) {
  if (!KivGetInt64(iCursor, vcIn, &iValue)) return false;
  KivPutInt64(vcOut, iValue);
  return true;
}

bool PassFloats(uint64_t& iCursor, const KivByteBuffer& vcIn, KivByteBuffer& vcOut, int32_t nFloats) {
  for (int32_t i = 0; i < nFloats; ++i) {
    double dValue = 0;
    if (!KivGetDouble(iCursor, vcIn, &dValue)) return false;
    KivPutDouble(vcOut, dValue);
  }
  return true;
}

bool PassString(uint64_t& iCursor, const KivByteBuffer& vcIn, KivByteBuffer& vcOut) {
  static KivWString csValue;
  if (!KivGetString(iCursor, vcIn, &csValue)) return false;
  KivPutString(vcOut, csValue);
  KivDropLargeBuffer(csValue);
  return true;
}

bool PassCurve(uint64_t& iCursor, const KivByteBuffer& vcIn, KivByteBuffer& vcOut) {
  int64_t iKind = 0;
  if (!PassInteger(iCursor, vcIn, vcOut, iKind)) return false;
  if (iKind == kCurveOfSixFloats) return PassFloats(iCursor, vcIn, vcOut, 6);
  if (iKind != kCurveOfBlock) return false;

  int64_t iSize = 0;
  if (!PassInteger(iCursor, vcIn, vcOut, iSize)) return false;
  if (iSize < 1) return false;
  const uint64_t nSize = static_cast<uint64_t>(iSize);
  if (nSize > vcIn.size() - iCursor) return KivGetBlock(iCursor, vcIn, nullptr, nSize);  // reports, reads nothing
  static KivByteBuffer vcBlock;
  if (vcBlock.size() < nSize) vcBlock.resize(nSize);
  if (!KivGetBlock(iCursor, vcIn, vcBlock.data(), nSize)) return false;
  KivPutBlock(vcOut, vcBlock.data(), nSize);
  KivDropLargeBuffer(vcBlock);
  return true;
}

bool PassCurves(uint64_t& iCursor, const KivByteBuffer& vcIn, KivByteBuffer& vcOut) {
  int64_t nCurves = 0;
  if (!PassInteger(iCursor, vcIn, vcOut, nCurves)) return false;
  if (nCurves != 1 && nCurves != 2) return false;
  for (int64_t i = 0; i < nCurves; ++i)
    if (!PassCurve(iCursor, vcIn, vcOut)) return false;
  return true;
}

bool PassField(char cKind, uint64_t& iCursor, const KivByteBuffer& vcIn, KivByteBuffer& vcOut) {
  int64_t iValue = 0;
  switch (cKind) {
    case 'i':
      return PassInteger(iCursor, vcIn, vcOut, iValue);
    case 'f':
      return PassFloats(iCursor, vcIn, vcOut, 1);
    case 'c':
      return PassFloats(iCursor, vcIn, vcOut, 3);
    case 's':
      return PassString(iCursor, vcIn, vcOut);
    case 'k':
      return PassCurve(iCursor, vcIn, vcOut);
    case 'n':
      return PassCurves(iCursor, vcIn, vcOut);
    default:
      return false;
  }
}

// The dispatcher's return value behind the report of a field that cannot be read; 0 where the process closes down.
int32_t ReadFailureCode(const DorRequestRow& zRow, int32_t iField, char cKind) {
  switch (zRow.m_iReadFailure) {
    case DorReadFailure::CodePerField:
      return Code(DorDispatchResult::FirstFieldUnread) * (iField + 1);
    case DorReadFailure::TenForFloats:
      return cKind == 'f' || cKind == 'c' ? Code(DorDispatchResult::FirstFieldUnread) : 0;
    case DorReadFailure::CloseDown:
      break;
  }
  return 0;
}

int32_t OpenModel(const KivWString& csRequest, const KivByteBuffer& vcPayload, KivByteBuffer& vcResult) {
  DorModelRecord zRecord;
  zRecord.m_csRequest = csRequest;
  zRecord.m_iModelId = g_iNextModelId;
  ++g_iNextModelId;
  uint64_t iCursor = 0;
  if (!KivGetString(iCursor, vcPayload, &zRecord.m_csPath)) return ProtocolFailure(__LINE__);
  if (iCursor != vcPayload.size()) return ProtocolFailure(__LINE__);
  KivPutInt64(vcResult, zRecord.m_iModelId);
  DorRelay_ModelTable().push_back(zRecord);
  return Code(DorDispatchResult::Served);
}

int32_t CloseModel(const KivWString& csRequest, const KivByteBuffer& vcPayload) {
  DorModelRecord zRecord;
  zRecord.m_csRequest = csRequest;
  uint64_t iCursor = 0;
  if (!KivGetInt64(iCursor, vcPayload, &zRecord.m_iModelId)) return ProtocolFailure(__LINE__);
  if (iCursor != vcPayload.size()) return ProtocolFailure(__LINE__);
  DorRelay_ModelTable().push_back(zRecord);
  return Code(DorDispatchResult::Served);
}

// Status of a model that cannot take a request now; true if it can.
bool PassGate(const DorModelRecord& zModel, int32_t& iStatus) {
  if (!zModel.m_bDone) {
    iStatus = kDorStatusReading;
    return false;
  }
  iStatus = kDorStatusNoChild;
  if (zModel.m_bFailed) {
    iStatus = kDorStatusReadFailed;
    return false;
  }
  return zModel.m_iChildPid != 0;
}

int32_t ForwardRequest(const DorRequestRow& zRow, const KivWString& csRequest, const KivByteBuffer& vcPayload,
                       int32_t& iStatus, KivByteBuffer& vcResult) {
  static KivByteBuffer vcForward;
  vcForward.clear();
  const bool bTail = zRow.m_csName == kDorPickOneElement;
  uint64_t iCursor = 0;

  int64_t iModelId = 0;
  if (!KivGetInt64(iCursor, vcPayload, &iModelId)) return ProtocolFailure(__LINE__);
  KivPutInt64(vcForward, iModelId);
  if (!bTail) {
    const char* szFields = zRow.m_szForm + 1;
    for (int32_t iField = 0; szFields[iField] != '\0'; ++iField) {
      if (PassField(szFields[iField], iCursor, vcPayload, vcForward)) continue;
      const int32_t iCode = ReadFailureCode(zRow, iField, szFields[iField]);
      if (iCode == 0) return ProtocolFailure(__LINE__);
      KIV_FAIL();
      return iCode;
    }
    if (iCursor != vcPayload.size()) return ProtocolFailure(__LINE__);
  }

  const DorModelRecord* pzModel = DorRelay_FindModel(iModelId);
  if (pzModel == nullptr) return ProtocolFailure(__LINE__);
  if (PassGate(*pzModel, iStatus)) {
    if (bTail) iCursor = vcPayload.size();
    // With a tail the new payload is the old one, byte for byte.
    DorRelay_Forward(pzModel->m_iChildPid, csRequest, bTail ? vcPayload : vcForward, iStatus, vcResult);
  } else if (bTail && iStatus == kDorStatusReading) {
    // Only here: on a failed model, or without a child, a tail is an excess of bytes.
    iCursor = vcPayload.size();
  }
  KivDropLargeBuffer(vcForward);

  if (iCursor != vcPayload.size()) return ProtocolFailure(__LINE__);
  return Code(DorDispatchResult::Served);
}

}  // namespace

int32_t DorRelay_Dispatch(const KivWString& csRequest, const KivByteBuffer& vcPayload, int32_t& iStatus,
                          KivByteBuffer& vcResult) {
  iStatus = kDorStatusServed;
  vcResult.clear();
  const DorRequestRow* pzRow = DorFindRequest(csRequest);
  if (pzRow == nullptr) {
    KIV_FAIL();
    iStatus = kDorStatusReading;
    return Code(DorDispatchResult::Served);
  }
  switch (pzRow->m_iFamily) {
    case DorRequestFamily::Open:
      return OpenModel(csRequest, vcPayload, vcResult);
    case DorRequestFamily::Close:
      return CloseModel(csRequest, vcPayload);
    case DorRequestFamily::Forward:
      return ForwardRequest(*pzRow, csRequest, vcPayload, iStatus, vcResult);
    case DorRequestFamily::Refused:
      break;
  }
  KIV_FAIL();
  if (!vcPayload.empty()) return ProtocolFailure(__LINE__);
  return Code(DorDispatchResult::Served);
}

void DorRelay_Forward(int32_t iChildPid, const KivWString& csRequest, const KivByteBuffer& vcPayload, int32_t& iStatus,
                      KivByteBuffer& vcResult) {
  IDorRelayRuntime& zRuntime = DorRelay_Runtime();
  int64_t iChildStatus = 0;
  vcResult.clear();
  int32_t iResult = zRuntime.SendRequest(iChildPid, csRequest, vcPayload, iChildStatus, vcResult);
  if (iResult < 0) {
    zRuntime.YieldSlice();
    iResult = zRuntime.SendRequest(iChildPid, csRequest, vcPayload, iChildStatus, vcResult);
  }
  if (iResult != 0) {
    iStatus = kDorStatusExchangeFailed;
  } else if (iChildStatus != 0) {
    const bool bPassed = iChildStatus == kDorStatus999 || iChildStatus == kDorStatus1999;
    iStatus = bPassed ? static_cast<int32_t>(iChildStatus) : kDorStatusRefused;
  } else {
    iStatus = kDorStatusServed;
  }
  if (iStatus != kDorStatusServed) vcResult.clear();
}

}  // namespace kiv
