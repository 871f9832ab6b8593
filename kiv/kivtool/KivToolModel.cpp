#include "KivToolModel.h"

#include <algorithm>

#include "KivDataSpaceBase.h"
#include "KivDataUtil.h"
#include "KivElementClasses.h"
#include "KivException.h"
#include "KivLittleEndian.h"
#include "KivPositionTableManager.h"
#include "KivSysFileKind.h"
#include "KivSysFolder.h"
#include "KivToolError.h"
#include "KivToolOutput.h"

namespace kiv {
namespace {

// Above 1, so that memory stays flat; blocks are one for each class in any case.
constexpr int32_t kActiveElements = 32;
constexpr uint64_t kModelHead = KivContainerHeader::kFilePosition + KivContainerHeader::kSize;

// Reports return to their caller while one lives.
class NoThrow {
 public:
  explicit NoThrow(bool bOn) : m_bWas(KivGetReportSwitches().m_bNoThrow) {
    if (bOn) KivSetReportNoThrow(true);
  }
  ~NoThrow() { KivSetReportNoThrow(m_bWas); }

 private:
  bool m_bWas;
};

}  // namespace

void KivPrepareToolProcess() {
  static const bool bOnce = [] {
    KivRegisterOwnFormat();
    KivRegisterElementClasses();
    KivDataSpaceBase::GetInstance()->SetKeepRawData(0);
    return true;
  }();
  (void)bOnce;
}

void KivRemoveToolWorkFolder() noexcept {
  try {
    if (KivIsWorkFolderSettled()) KivRemoveTree(KivGetWorkFolder());
  } catch (const std::exception&) {
  }
}

KivModelProbe KivProbeForTool(const KivWString& csPath) {
  const std::string strPath = KivShown(csPath);
  if (csPath.empty()) throw KivToolError("the file has no name");
  if (sys::FolderExists(csPath)) throw KivToolError(strPath + ": is a folder");
  if (sys::IsNoRegularFile(csPath)) throw KivToolError(strPath + ": is no regular file");
  KivModelProbe zProbe = KivProbeModelFile(csPath);
  if (!zProbe.m_bOpened)
    throw KivToolError(strPath + (sys::PathExists(csPath) ? ": cannot be read" : ": does not exist"));
  if (zProbe.m_eKind == KivModelFileKind::Unknown) {
    if (zProbe.m_iLength == 0) throw KivToolError(strPath + ": is empty");
    throw KivToolError(strPath + (zProbe.m_iLength < kModelHead ? ": is too short to be a model" : ": is no model"));
  }
  return zProbe;
}

KivToolModel::KivToolModel(const KivWString& csPath) : KivToolModel(csPath, false) {}

KivToolModel::KivToolModel(const KivWString& csPath, bool bDamaged) : m_csPath(csPath) {
  KivPrepareToolProcess();
  m_zProbe = KivProbeForTool(csPath);
  const std::string strPath = KivShown(csPath);
  if (m_zProbe.m_eKind == KivModelFileKind::Package)
    throw KivToolError(strPath + ": is a package, and only single models can be opened");
  if (m_zProbe.m_zHeader.U32(KivContainerHeader::FormatMinorVersion) > KivContainerHeader::kMinorVersion)
    throw KivToolError(strPath + ": was written by a newer program");
  if (!IsCompatibleHeader(m_zProbe.m_zHeader))
    throw KivToolError(strPath + ": is damaged: its header is not one of a model");
  Open(bDamaged);
}

void KivToolModel::Open(bool bDamaged) {
  const uint64_t nReports = KivGetReportCount();
  KivAddModelResult eResult = KivAddModelResult::NotOpened;
  try {
    const NoThrow zNoThrow(bDamaged);
    eResult = KivDataSpaceBase::GetInstance()->AddModel(m_csPath, KivModelOpenInfo(), &m_pzModel);
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception&) {
    eResult = KivAddModelResult::NotOpened;
  }
  if (eResult != KivAddModelResult::Done || m_pzModel == nullptr || m_pzModel->GetManager() == nullptr ||
      m_pzModel->GetManager()->GetContainer() == nullptr) {
    if (eResult == KivAddModelResult::Done) KivDataSpaceBase::GetInstance()->RemoveModel(m_pzModel);
    throw KivToolError(KivShown(m_csPath) + ": is damaged: its container cannot be opened");
  }
  m_bSound = KivGetReportCount() == nReports;
  KivOutOfCoreManager::SetMaxActiveOutOfCoreElement(Key(), kActiveElements);
}

KivToolModel::~KivToolModel() {
  try {
    KivDataSpaceBase::GetInstance()->RemoveModel(m_pzModel);
  } catch (const std::exception&) {
    // Nothing was changed, and nothing can be lost.
  }
}

uint64_t KivToolModel::Resolve(uint64_t iKey) noexcept {
  if (iKey == 0 || !KivPositionTableManager::IsTableKey(iKey)) return iKey;
  try {
    KivPositionTableManager* pzTables = Manager().GetPositionTableManager();
    return pzTables != nullptr ? pzTables->ResolveKey(iKey) : 0;
  } catch (...) {
    return 0;
  }
}

KivOutOfCoreTreeNode* KivToolModel::Load(uint64_t iKey) noexcept {
  if (iKey == 0) return nullptr;
  try {
    auto* pzElement = dynamic_cast<KivOutOfCoreTreeNode*>(KivOutOfCoreManager::GetElement(Key(), iKey));
    return pzElement != nullptr && pzElement->GetMemoryBlock() != nullptr ? pzElement : nullptr;
  } catch (...) {
    return nullptr;
  }
}

// --- Records --------------------------------------------------------------------------------------------------------

KivRecordWalk::KivRecordWalk(KivToolModel& zModel)
    : m_pzFile(zModel.Container().GetBaseFile()),
      m_iEnd(zModel.Container().GetEndPosition()),
      m_bVer19Data(zModel.IsVer19Data()) {
  if (m_iEnd < m_iNext || m_iEnd > m_pzFile->GetLength()) m_bBroken = true;
}

bool KivRecordWalk::Break() {
  m_bBroken = true;
  return false;
}

bool KivRecordWalk::Next(KivToolRecord& zRecord) {
  try {
    return Read(zRecord);
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception&) {  // the file cannot be read there
    return Break();
  }
}

bool KivRecordWalk::Read(KivToolRecord& zRecord) {
  zRecord = KivToolRecord();
  zRecord.m_iPosition = m_iNext;
  if (m_bBroken || m_iNext == m_iEnd) return false;
  constexpr uint64_t kHead = 16;
  const uint64_t nLeft = m_iEnd - m_iNext;
  if (nLeft < KivFastFileContainerBase::kFrameSize) return Break();
  uint8_t acHead[kHead + 12];
  const uint64_t nHead = std::min<uint64_t>(sizeof acHead, nLeft);
  if (m_pzFile->Read(m_iNext, acHead, nHead) != nHead) return Break();
  zRecord.m_iRecordSize = KivLoad<uint64_t>(acHead);
  zRecord.m_iPayloadSize = KivLoad<uint64_t>(acHead + 8);
  zRecord.m_bFree = zRecord.m_iRecordSize == zRecord.m_iPayloadSize;
  if (zRecord.m_iRecordSize < KivFastFileContainerBase::kFrameSize || zRecord.m_iRecordSize > nLeft) return Break();
  if (!zRecord.m_bFree && zRecord.m_iPayloadSize > zRecord.m_iRecordSize - KivFastFileContainerBase::kFrameSize)
    return Break();
  if (!zRecord.m_bFree && zRecord.m_iPayloadSize >= kKivElementFrameSize - (m_bVer19Data ? 4 : 0)) {
    const uint32_t iWord = KivLoad<uint32_t>(acHead + kHead);
    zRecord.m_bHasTag = true;
    zRecord.m_iTag = iWord & 0xFFFF;
    zRecord.m_iTypeIndex = iWord >> 16 & 0xFF;
    if (!m_bVer19Data || zRecord.m_iTag == 11 || zRecord.m_iTag == 12)
      zRecord.m_iFormat = KivLoad<uint32_t>(acHead + kHead + 8);
  }
  m_iNext += zRecord.m_iRecordSize;
  return true;
}

const char* KivElementName(uint32_t iTag, uint32_t iTypeIndex) {
  static const char* const kName[kElementTagNum] = {
      "unknown",          "KivFaceEdgeData", "KivInstance", "KivModel",        "KivModelNote",
      "KivBrepData",      "KivAssemblyTree", "KivPMI",      "KivPolyElemData", "KivPermanentIdTable",
      "KivPositionTable", "KivLayerFilter",  "KivCamera",   "KivVertexData"};
  if (iTypeIndex != 0) return "registered type";
  return iTag < kElementTagNum ? kName[iTag] : kName[0];
}

}  // namespace kiv
