// Creation, opening and flush of a container, and its way to its two files.
#include "KivFastFileContainerBase.h"

#include <algorithm>

#include "KivDataUtil.h"
#include "KivException.h"
#include "KivPositionTableManager.h"

namespace kiv {
namespace {

constexpr char kSource[] = "src\\KivFastFileContainerBase";

constexpr uint64_t kCopyStep = 0x100000;
constexpr uint64_t kNewCapacity = 1024;
constexpr uint64_t kDummySize = 8;
constexpr uint64_t kCredibleImage = 0x4000000;  // a longer one that the file does not have is not believed

}  // namespace

KivFastFileContainerBase::KivFastFileContainerBase(KivPositionTableManager* pzPositionTableManager)
    : m_pzPositionTableManager(pzPositionTableManager) {}

KivFastFileContainerBase::~KivFastFileContainerBase() = default;

bool KivFastFileContainerBase::AddSavedPatch(const KivWString&, const KivWString&) {
  return false;
}

void KivFastFileContainerBase::CopyState(const KivFastFileContainerBase& zOther) {
  m_pzPositionTableManager = zOther.m_pzPositionTableManager;
  m_iEndPosition = zOther.m_iEndPosition;
  m_bContainerLocked = zOther.m_bContainerLocked;
  m_bOpenedExisting = zOther.m_bOpenedExisting;
  m_iStatus = zOther.m_iStatus;
  zHeaderInfo = zOther.zHeaderInfo;
  m_iValidNodeNum = zOther.m_iValidNodeNum;
  m_iNodeNum = zOther.m_iNodeNum;
  m_iRootNode = zOther.m_iRootNode;
  m_iNodeCursor = zOther.m_iNodeCursor;
  m_iFirstPositionTable = zOther.m_iFirstPositionTable;
  m_iNodeOrder = zOther.m_iNodeOrder;
  m_iMultiFilePositionExtension = zOther.m_iMultiFilePositionExtension;
  m_iIndexForMultiFilePositionExtension = zOther.m_iIndexForMultiFilePositionExtension;
  m_iFilePositionTableMode = zOther.m_iFilePositionTableMode;
  m_bHeaderDirty = zOther.m_bHeaderDirty;
  m_bEndInsideFile = zOther.m_bEndInsideFile;
  m_iKnownLength = zOther.m_iKnownLength;
  m_azZeroed.fill(ZeroedRecord());  // other bytes stand in the file now
}

// --- Files ---------------------------------------------------------------------------------------

uint64_t KivFastFileContainerBase::ReadBaseFile(uint64_t iOffset, void* lpBuf, uint64_t nCount) {
  const KivSharedPtr<ISnapShotFile> pzFile = GetBaseFile();
  return m_zBaseAccess.Read(*pzFile, iOffset, lpBuf, nCount);
}

void KivFastFileContainerBase::WriteBaseFile(uint64_t iOffset, const void* lpBuf, uint64_t nCount) {
  const KivSharedPtr<ISnapShotFile> pzFile = GetBaseFile();
  m_zBaseAccess.Write(*pzFile, iOffset, lpBuf, nCount);
}

uint64_t KivFastFileContainerBase::ReadUnusedRecordFile(uint64_t iOffset, void* lpBuf, uint64_t nCount) {
  const KivSharedPtr<ISnapShotFile> pzFile = GetUnusedRecordFile();
  return m_zUnusedRecordAccess.Read(*pzFile, iOffset, lpBuf, nCount);
}

void KivFastFileContainerBase::WriteUnusedRecordFile(uint64_t iOffset, const void* lpBuf, uint64_t nCount) {
  const KivSharedPtr<ISnapShotFile> pzFile = GetUnusedRecordFile();
  m_zUnusedRecordAccess.Write(*pzFile, iOffset, lpBuf, nCount);
}

// Length of the main file as its records see it.
uint64_t KivFastFileContainerBase::GetBaseFileLength() {
  const KivSharedPtr<ISnapShotFile> pzFile = GetBaseFile();
  return KivContainerFileAccess::IsCached(*pzFile) ? m_iKnownLength : m_zBaseAccess.GetLength(*pzFile);
}

bool KivFastFileContainerBase::IsInBaseFile(uint64_t iOffset, uint64_t nCount) {
  if (iOffset <= m_iKnownLength && nCount <= m_iKnownLength - iOffset) return true;
  const uint64_t iLength = GetBaseFileLength();
  return iOffset <= iLength && nCount <= iLength - iOffset;
}

// Copies the first iLength bytes of the unused record file to an offset of the main file or of zTarget. Gives the
// number of bytes copied.
uint64_t KivFastFileContainerBase::CopyUnusedRecordFile(IWritableFile& zTarget, uint64_t iOffset, uint64_t iLength,
                                                        bool bBaseFile) {
  std::vector<uint8_t> vcBuffer(static_cast<size_t>(std::min(iLength, kCopyStep)));
  uint64_t iDone = 0;
  while (iDone < iLength) {
    const uint64_t nCount = std::min(iLength - iDone, kCopyStep);
    const uint64_t iRead = std::min(ReadUnusedRecordFile(iDone, vcBuffer.data(), nCount), nCount);
    if (bBaseFile)
      WriteBaseFile(iOffset + iDone, vcBuffer.data(), iRead);
    else
      zTarget.Write(iOffset + iDone, vcBuffer.data(), iRead);
    iDone += iRead;
    if (iRead != nCount) break;
  }
  return iDone;
}

// --- Creation ------------------------------------------------------------------------------------

void KivFastFileContainerBase::SetCapacityForNew() {
  if (!GetBaseFile()->CanUseDirectBuffer()) return;
  if (!GetBaseFile()->PrepareDirectBuffer(kNewCapacity)) KIV_FAIL();
  if (!GetUnusedRecordFile()->PrepareDirectBuffer(kNewCapacity)) KIV_FAIL();
}

void KivFastFileContainerBase::CreateNew() {
  m_bOpenedExisting = false;
  m_iNodeOrder = KivContainerHeader::kNodeOrder;
  const uint8_t acDummy[kDummySize] = {};
  WriteBaseFile(0, acDummy, sizeof acDummy);
  const KivContainerHeader zHeader = KivContainerHeader::MakeDefault();
  zHeader.GetInfo(zHeaderInfo);
  WriteBaseFile(KivContainerHeader::kFilePosition, zHeader.Data(), KivContainerHeader::kSize);
  m_iEndPosition = kFirstRecord;
  m_iKnownLength = kFirstRecord;

  WriteUnusedRecordFile(0, acDummy, sizeof acDummy);
  m_iValidNodeNum = 0;
  m_iNodeNum = 0;
  m_iRootNode = 0;
  const uint64_t iRoot = AllocateNodeSlot();
  WriteEmptyRoot(iRoot);
  m_iRootNode = iRoot;
  CopyExtensionToManager();
  m_iStatus = static_cast<uint32_t>(KivContainerStatus::Usable);
}

void KivFastFileContainerBase::CopyExtensionToManager() {
  if (m_pzPositionTableManager == nullptr) return;
  m_pzPositionTableManager->SetExtension(m_iMultiFilePositionExtension, m_iIndexForMultiFilePositionExtension,
                                         m_iFilePositionTableMode);
}

// --- Opening -------------------------------------------------------------------------------------

void KivFastFileContainerBase::SetCapacityForExisting() {
  const KivSharedPtr<ISnapShotFile> pzFile = GetBaseFile();
  m_iKnownLength = pzFile->GetLength();  // a capacity is a block at least, and the file then as long
  if (!pzFile->CanUseDirectBuffer()) return;
  if (!pzFile->PrepareDirectBuffer(m_iKnownLength)) KIV_FAIL();
}

void KivFastFileContainerBase::Initialize() {
  using H = KivContainerHeader;
  const auto Refuse = [this](KivContainerStatus iStatus) {
    m_iStatus = static_cast<uint32_t>(iStatus);
    KivLogNumber(static_cast<int32_t>(iStatus), u"failed in KivFastFileContainerBase::Initialize()");
  };
  m_bOpenedExisting = true;
  m_iNodeOrder = H::kNodeOrder;
  const H zDefault = H::MakeDefault();
  H zHeader = zDefault;
  // The length is asked before anything is read: a cached file never reads short and then ends with a whole block.
  if (m_iKnownLength == 0) m_iKnownLength = GetBaseFile()->GetLength();
  const uint64_t iLength = m_iKnownLength;
  uint64_t iRead = 0;
  if (iLength >= H::kFilePosition + H::kSize) iRead = ReadBaseFile(H::kFilePosition, zHeader.Data(), H::kSize);
  if (!KIV_CHECK(iRead == 256)) return Refuse(KivContainerStatus::ShortHeader);
  if (!IsCompatibleHeader(zHeader, zDefault)) return Refuse(KivContainerStatus::IncompatibleHeader);

  zHeader.GetInfo(zHeaderInfo);
  UpgradeHeader(zHeaderInfo);
  m_iEndPosition = zHeader.U64(H::EndPosition);
  m_bEndInsideFile = m_iEndPosition >= kFirstRecord && m_iEndPosition <= iLength;
  if (GetUnusedRecordFile()->GetLength() == 0) RestoreUnusedRecordFile(zHeader.U64(H::UnusedRecordFileLength), iLength);
  if (!m_bEndInsideFile) KIV_FAIL();

  m_iValidNodeNum = zHeader.U64(H::ValidNodeNum);
  m_iNodeNum = zHeader.U64(H::NodeNum);
  m_iRootNode = zHeader.U64(H::RootNode);
  m_iNodeCursor = zHeader.U64(H::NodeCursor);
  m_iFirstPositionTable = zHeader.U64(H::FirstPositionTable);
  m_iNodeOrder = zHeader.U32(H::NodeOrder);
  m_iMultiFilePositionExtension = zHeader.U32(H::MultiFilePositionExtension);
  m_iIndexForMultiFilePositionExtension = zHeader.U32(H::IndexForMultiFilePositionExtension);
  m_iFilePositionTableMode = zHeader.U32(H::FilePositionTableMode);
  CopyExtensionToManager();
  m_iStatus = static_cast<uint32_t>(KivContainerStatus::Usable);
}

// Fills the empty unused record file from the image behind the records. A short image keeps its full length, with
// zeros for what is missing, unless that length cannot be meant.
void KivFastFileContainerBase::RestoreUnusedRecordFile(uint64_t iLength, uint64_t iFileLength) {
  const uint64_t iRest = iFileLength - std::min(m_iEndPosition, iFileLength);
  const uint64_t iPresent = std::min(iLength, iRest);
  KIV_CHECK_AS(iPresent == iLength, "iRead == zHeaderInfo.zBaseFileHeaderInfo.m_iUnusedRecordFileLength");
  if (iLength > std::max(iFileLength, kCredibleImage)) iLength = iPresent;
  if (iPresent == iLength && MayRestoreLater())
    m_iImageToRestore = iLength;
  else
    CopyImage(iLength, iPresent);
}

void KivFastFileContainerBase::RestoreImage() {
  if (m_bRestoringImage) return;  // the copy asks for the file that it fills
  // A copy that ends half-way stays to be made: what is there so far must not be taken for the image.
  struct Flag {
    explicit Flag(bool& bFlag) : m_bFlag(bFlag) { m_bFlag = true; }
    ~Flag() { m_bFlag = false; }
    bool& m_bFlag;
  } zRestoring(m_bRestoringImage);
  CopyImage(m_iImageToRestore, m_iImageToRestore);
  m_iImageToRestore = 0;
}

void KivFastFileContainerBase::CopyImage(uint64_t iLength, uint64_t iPresent) {
  const KivSharedPtr<ISnapShotFile> pzTarget = GetUnusedRecordFile();
  if (pzTarget->CanUseDirectBuffer() && iLength != 0 && !pzTarget->PrepareDirectBuffer(iLength)) KIV_FAIL();
  std::vector<uint8_t> vcBuffer(static_cast<size_t>(std::min(iLength, kCopyStep)));
  for (uint64_t iDone = 0; iDone < iLength;) {
    const uint64_t nCount = std::min(iLength - iDone, kCopyStep);
    const uint64_t nPresent = iDone < iPresent ? std::min(nCount, iPresent - iDone) : 0;
    const uint64_t iRead =
        nPresent != 0 ? std::min(ReadBaseFile(m_iEndPosition + iDone, vcBuffer.data(), nPresent), nPresent) : 0;
    KIV_CHECK_AS(iRead == nPresent, "iRead == zHeaderInfo.zBaseFileHeaderInfo.m_iUnusedRecordFileLength");
    std::fill(vcBuffer.begin() + static_cast<ptrdiff_t>(iRead), vcBuffer.end(), uint8_t{0});
    WriteUnusedRecordFile(iDone, vcBuffer.data(), nCount);
    iDone += nCount;
  }
}

// --- Flush ---------------------------------------------------------------------------------------

// The values that live in members between flushes.
void KivFastFileContainerBase::PutMembers(KivContainerHeader& zHeader) {
  using H = KivContainerHeader;
  zHeader.SetU64(H::EndPosition, m_iEndPosition);
  zHeader.SetU64(H::UnusedRecordFileLength, GetUnusedRecordFile()->GetLength());
  zHeader.SetU64(H::ValidNodeNum, m_iValidNodeNum);
  zHeader.SetU64(H::NodeNum, m_iNodeNum);
  zHeader.SetU64(H::RootNode, m_iRootNode);
  zHeader.SetU64(H::NodeCursor, m_iNodeCursor);
  zHeader.SetU64(H::FirstPositionTable, m_iFirstPositionTable);
  zHeader.SetU32(H::NodeOrder, m_iNodeOrder);
  zHeader.SetU32(H::MultiFilePositionExtension, m_iMultiFilePositionExtension);
  zHeader.SetU32(H::IndexForMultiFilePositionExtension, m_iIndexForMultiFilePositionExtension);
  zHeader.SetU32(H::FilePositionTableMode, m_iFilePositionTableMode);
}

void KivFastFileContainerBase::Flush() {
  using H = KivContainerHeader;
  KIV_CHECK(!m_bContainerLocked);
  const KivSharedPtr<ISnapShotFile> pzFile = GetBaseFile();
  if (pzFile->IsModified())
    m_bHeaderDirty = true;
  else if (!m_bHeaderDirty && m_bOpenedExisting)
    return;

  if (!m_bEndInsideFile) {
    KIV_FAIL();
    return;
  }
  // Fields that are not members keep their value on disk.
  H zHeader = H::MakeDefault();
  const uint64_t iRead = ReadBaseFile(H::kFilePosition, zHeader.Data(), H::kSize);
  KIV_CHECK(iRead == 256);
  PutMembers(zHeader);
  WriteBaseFile(H::kFilePosition, zHeader.Data(), H::kSize);

  const uint64_t iLength = zHeader.U64(H::UnusedRecordFileLength);
  const uint64_t iCapacity = m_iEndPosition + iLength;
  if (pzFile->CanUseDirectBuffer() && pzFile->GetDirectBufferSize() < iCapacity &&
      !pzFile->PrepareDirectBuffer(iCapacity))
    KIV_FAIL();
  const uint64_t iCopied = CopyUnusedRecordFile(*pzFile, m_iEndPosition, iLength, true);
  m_iKnownLength = std::max(m_iKnownLength, m_iEndPosition + iCopied);
  KIV_CHECK_AS(iCopied == iLength, "iRead == zHeaderInfo.zBaseFileHeaderInfo.m_iUnusedRecordFileLength");
}

void KivFastFileContainerBase::FlushBaseFile() {
  KIV_CHECK(!m_bContainerLocked);
  GetBaseFile()->Flush();
}

}  // namespace kiv
