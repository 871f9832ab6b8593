#include "DorHandler.h"

#include <exception>

#include "KivFileFactory.h"
#include "KivLittleEndian.h"
#include "KivSysFile.h"

namespace kiv {
namespace {

// The first bytes of a model file:
//   OFFSET   SIZE   FIELD
//   0        8      not looked at
//   8        8      format generation, one byte repeated; the first one counts
//   16       8      format mark, the same
//   264             records
constexpr uint64_t kGenerationOffset = 8;
constexpr uint64_t kMarkOffset = 16;
constexpr uint64_t kModelHead = 264;
constexpr uint8_t kGeneration = 0x14;
constexpr uint8_t kPreviousGeneration = 0x13;
constexpr uint8_t kMark = 0xB0;
// The last bytes of a package: offset of the table, then the four letters of its mark at every second byte.
constexpr uint64_t kTrailer = 16;
constexpr uint64_t kLeastTable = 4;
constexpr uint8_t kTrailerMark[4] = {'M', 'K', 'I', 'V'};

struct Model {
  bool m_bRead = false;
  KivWString m_csPath;
  DorFileKind m_iKind = DorFileKind::Unknown;
  uint64_t m_iLength = 0;
};
Model g_zModel;

void PutCode(KivByteBuffer& vcResult, DorAnswerCode iCode) {
  KivPutInt64(vcResult, static_cast<int64_t>(iCode));
}

void Refuse(KivByteBuffer& vcResult, DorAnswerCode iCode, const KivWString& csReason) {
  vcResult.clear();
  PutCode(vcResult, iCode);
  KivPutString(vcResult, csReason);
}

void PutPrescribed(KivByteBuffer& vcResult, int64_t iModelId, KivWStringView csRequest) {
  vcResult.clear();
  KivPutInt64(vcResult, iModelId);
  KivPutString(vcResult, KivWString(csRequest));
}

int32_t ReadModel(const KivWString& csPath) {
  bool bOpened = false;
  uint64_t iLength = 0;
  const DorFileKind iKind = DorProbeModelFile(csPath, bOpened, iLength);
  if (!bOpened) return static_cast<int32_t>(DorReadResult::NotOpened);
  if (iKind == DorFileKind::Unknown) return static_cast<int32_t>(DorReadResult::NotAModel);
  g_zModel.m_bRead = true;
  g_zModel.m_csPath = csPath;
  g_zModel.m_iKind = iKind;
  g_zModel.m_iLength = iLength;
  return static_cast<int32_t>(DorReadResult::Done);
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
      iStatus = ReadModel(csPath);
    PutPrescribed(vcResult, iModelId, kDorReadDor);
  } catch (const std::exception&) {
    // Told by the status; the first report of the process stands in the log.
    g_zModel = Model();
    iStatus = static_cast<int32_t>(DorReadResult::Failed);
    PutPrescribed(vcResult, iModelId, kDorReadDor);
  }
}

void ServeTreeInfo(KivByteBuffer& vcResult) {
  PutCode(vcResult, DorAnswerCode::Done);
  KivPutInt64(vcResult, static_cast<int64_t>(g_zModel.m_iKind));
  KivPutInt64(vcResult, static_cast<int64_t>(g_zModel.m_iLength));
  KivPutString(vcResult, g_zModel.m_csPath);
}

void Serve(const KivWString& csRequest, const KivByteBuffer& vcPayload, KivByteBuffer& vcResult) {
  uint64_t iCursor = 0;
  int64_t iModelId = 0;
  if (vcPayload.size() < sizeof iModelId) return Refuse(vcResult, DorAnswerCode::BadPayload, u"no model id");
  KivGetInt64(iCursor, vcPayload, &iModelId);
  if (csRequest == kDorClearModel) {
    g_zModel = Model();
    return PutPrescribed(vcResult, iModelId, kDorClearModel);
  }
  if (!g_zModel.m_bRead) return Refuse(vcResult, DorAnswerCode::NoModel, u"no model has been read");
  if (csRequest == kDorDoNothing) return PutCode(vcResult, DorAnswerCode::Done);
  if (csRequest == kDorGetAsmTreeInfo) return ServeTreeInfo(vcResult);
  Refuse(vcResult, DorAnswerCode::NotOffered, csRequest + u" is not offered by this handler");
}

}  // namespace

DorFileKind DorProbeModelFile(const KivWString& csPath, bool& bOpened, uint64_t& iLength) {
  iLength = 0;
  KivSysFile hFile = KivSysFile::Open(
      csPath, {KivSysAccess::Read, KivSysShare::Read, KivSysDisposition::OpenExisting, KivSysFileFlags::RandomAccess});
  bOpened = false;
  if (!hFile.IsOpen()) return DorFileKind::Unknown;
  const auto pzFile = KivCreateReadOnlyFile(std::move(hFile), false);
  bOpened = static_cast<bool>(pzFile);  // empty where memory is short
  if (!bOpened) return DorFileKind::Unknown;
  iLength = pzFile->GetLength();

  uint8_t acHead[kMarkOffset + 1];
  if (iLength >= kModelHead && pzFile->Read(0, acHead, sizeof acHead) == sizeof acHead &&
      (acHead[kGenerationOffset] == kGeneration || acHead[kGenerationOffset] == kPreviousGeneration) &&
      acHead[kMarkOffset] == kMark)
    return DorFileKind::Model;

  uint8_t acTrailer[kTrailer];
  if (iLength < kTrailer + kLeastTable || pzFile->Read(iLength - kTrailer, acTrailer, kTrailer) != kTrailer)
    return DorFileKind::Unknown;
  for (int i = 0; i < 4; ++i)
    if (acTrailer[8 + 2 * i] != kTrailerMark[i]) return DorFileKind::Unknown;
  const uint64_t iTable = KivLoad<uint64_t>(acTrailer);
  return iTable <= iLength - kTrailer - kLeastTable ? DorFileKind::Package : DorFileKind::Unknown;
}

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
  } catch (const std::exception& e) {
    // Not only reports: memory that this request does not get must not end the handler, and with it the whole tree.
    Refuse(vcResult, DorAnswerCode::Failed, sys::Utf8ToWide(e.what()));
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
