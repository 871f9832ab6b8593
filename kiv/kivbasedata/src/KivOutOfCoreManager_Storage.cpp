// The files of a store: how they are opened, and the records in them.
#include <exception>
#include <limits>
#include <utility>

#include "KivDataSpaceFields.h"
#include "KivDataUtil.h"
#include "KivException.h"
#include "KivFastFileContainer.h"
#include "KivFastFileContainerForSnapShot.h"
#include "KivFileFactory.h"
#include "KivMemFile.h"
#include "KivOutOfCoreManager.h"
#include "KivOutOfCorePositionTables.h"
#include "KivPositionTableManager.h"
#include "KivSysClock.h"
#include "KivSysFile.h"
#include "KivSysFolder.h"

namespace kiv {
namespace {

constexpr char kSource[] = "src\\KivOutOfCoreManager";

constexpr KivSysOpenMode kCreateMain = {KivSysAccess::ReadWrite, KivSysShare::None, KivSysDisposition::CreateAlways,
                                        KivSysFileFlags::RandomAccess};
constexpr KivSysOpenMode kCreateSub = {
    KivSysAccess::ReadWrite, KivSysShare::None, KivSysDisposition::CreateAlways,
    KivSysFileFlags::RandomAccess | KivSysFileFlags::DeleteOnClose | KivSysFileFlags::Temporary};
constexpr KivSysOpenMode kOpenForReading = {KivSysAccess::Read, KivSysShare::ReadWrite, KivSysDisposition::OpenExisting,
                                            KivSysFileFlags::RandomAccess | KivSysFileFlags::Temporary};
constexpr KivSysOpenMode kOpenForWriting = {KivSysAccess::ReadWrite, KivSysShare::None, KivSysDisposition::OpenExisting,
                                            KivSysFileFlags::RandomAccess | KivSysFileFlags::Temporary};
// Pauses between the tries to open a file for writing, in milliseconds.
constexpr uint32_t kWritePause[] = {10, 100, 1000};

const KivWString kSideFileSuffix = u".urf";

bool IsUrl(const KivWString& csPath) {
  constexpr char16_t kHttp[] = u"http";
  if (csPath.size() < 4) return false;
  for (size_t i = 0; i < 4; ++i) {
    char16_t iUnit = csPath[i];
    if (iUnit >= u'A' && iUnit <= u'Z') iUnit = static_cast<char16_t>(iUnit - u'A' + u'a');
    if (iUnit != kHttp[i]) return false;
  }
  return true;
}

// A file of the local file system, read-only and with its cache on.
KivSharedPtr<ISnapShotFile> OpenPath(const KivWString& csPath) {
  KivSysFile zFile = KivSysFile::Open(csPath, kOpenForReading);
  if (!zFile.IsOpen()) {
    KIV_FAIL();
    return nullptr;
  }
  KivSysFile zBackGround;
  if (KivDataSpaceFields::GetInstance()->m_bBackGroundRead) zBackGround = KivSysFile::Open(csPath, kOpenForReading);
  KivSharedPtr<ISnapShotFile> pzFile = KivCreateReadOnlyMappedFile(std::move(zFile), std::move(zBackGround));
  if (!pzFile) KIV_FAIL();
  return pzFile;
}

// What the container is read from. URLs have no file class yet and so never come up.
KivSharedPtr<ISnapShotFile> OpenSource(const KivStoreSource& zSource) {
  if (zSource.m_pvData != nullptr)
    return KivSharedPtr<ISnapShotFile>(new KivMemFile(zSource.m_pvData, zSource.m_iDataSize));
  if (IsUrl(zSource.m_csPath)) {
    KivLogNumber(0, u"HttpFileError");
    return nullptr;
  }
  return OpenPath(zSource.m_csPath);
}

// Replays a patch stream into the main file.
bool ApplyPatch(ISnapShotFile& zMainFile, const KivWString& csPatchPath) {
  return zMainFile.LoadCache(csPatchPath);
}

// What a constructor of a container throws was reported there and means that the file is none of ours.
template <typename Make>
std::unique_ptr<KivFastFileContainerBase> MakeContainer(const char16_t* szWords, Make&& make) {
  try {
    std::unique_ptr<KivFastFileContainerBase> pzContainer = make();
    if (pzContainer->GetStatus() == KivContainerStatus::Usable) return pzContainer;
  } catch (const std::exception&) {
    KivLogNumber(0, szWords);
  }
  return nullptr;
}

}  // namespace

// --- Opening --------------------------------------------------------------------------------------------------------

KivOutOfCoreMemoryStorage::KivOutOfCoreMemoryStorage(const KivStoreSource& zSource, uint32_t iManagerKey)
    : m_eMode(zSource.m_eMode) {
  bool bMainMade = false;
  // A main file that was made for nothing goes again.
  const auto Undo = [&] {
    DropFiles();
    if (bMainMade) sys::RemoveFileAt(zSource.m_csPath);
  };
  try {
    switch (m_eMode) {
      case KivStoreMode::NewTemporary:
        CreateTemporary(zSource, iManagerKey, bMainMade);
        break;
      case KivStoreMode::Read:
        OpenForReading(zSource, iManagerKey);
        break;
      case KivStoreMode::ReadWrite:
        OpenForWriting(zSource, iManagerKey);
        break;
      default:
        KIV_FAIL();
        break;
    }
  } catch (...) {
    Undo();
    throw;
  }
  if (m_pzFileContainer == nullptr) Undo();
}

KivOutOfCoreMemoryStorage::KivOutOfCoreMemoryStorage() = default;

KivOutOfCoreMemoryStorage::~KivOutOfCoreMemoryStorage() {
  if (m_bSnapShot)
    m_pzFileContainer.reset();
  else
    DropFiles();
}

void KivOutOfCoreMemoryStorage::DropFiles() {
  m_pzFileContainer.reset();
  delete m_pzPositionTableManager;
  m_pzPositionTableManager = nullptr;
  m_pzTableStore.reset();
  m_pzMainFile = nullptr;
  m_pzSubFile = nullptr;
}

void KivOutOfCoreMemoryStorage::MakePositionTableManager(uint32_t iManagerKey) {
  m_pzTableStore = std::make_unique<KivOutOfCorePositionTables>(iManagerKey);
  m_pzPositionTableManager = new KivPositionTableManager(iManagerKey);
  m_pzPositionTableManager->SetStore(m_pzTableStore.get());
}

void KivOutOfCoreMemoryStorage::CreateTemporary(const KivStoreSource& zSource, uint32_t iManagerKey, bool& bMainMade) {
  const void* const pvData = zSource.m_pvData;
  KIV_CHECK(pvData == NULL);
  KivSysFile zMain = KivSysFile::Open(zSource.m_csPath, kCreateMain);
  if (!zMain.IsOpen()) {
    KIV_FAIL();
    return;
  }
  bMainMade = true;
  KivSysFile zSub = KivSysFile::Open(zSource.m_csPath + kSideFileSuffix, kCreateSub);
  if (!zSub.IsOpen()) {
    KIV_FAIL();
    return;
  }
  KivSharedPtr<ISnapShotFile> pKivFile = KivCreateMappedFile(std::move(zMain));
  if (!KIV_CHECK_AS(pKivFile.Get() != nullptr, "pKivFile != NULL")) return;
  KivSharedPtr<ISnapShotFile> pSubFile = KivCreateMappedFile(std::move(zSub));
  if (!KIV_CHECK_AS(pSubFile.Get() != nullptr, "pSubFile != 0")) return;
  m_pzMainFile = pKivFile;
  m_pzSubFile = pSubFile;
  MakePositionTableManager(iManagerKey);
  m_pzFileContainer = MakeContainer(u"Fail to create file", [&] {
    return std::make_unique<KivFastFileContainer>(m_pzMainFile, m_pzSubFile, m_pzPositionTableManager);
  });
}

// Formats that wrap a container (an attachment, a package, a compressed stream) are unwrapped between the source and
// the main file, in this order; a source that is none of them is the main file itself.
void KivOutOfCoreMemoryStorage::OpenForReading(const KivStoreSource& zSource, uint32_t iManagerKey) {
  m_pzMainFile = OpenSource(zSource);
  if (m_pzMainFile.Get() == nullptr) return;
  KivWString csSidePath;
  if (!zSource.m_csPatchPath.empty()) {
    if (!ApplyPatch(*m_pzMainFile, zSource.m_csPatchPath)) {
      KIV_FAIL();
      return;
    }
    csSidePath = zSource.m_csPatchPath + kSideFileSuffix;
  }
  MakePositionTableManager(iManagerKey);
  m_pzFileContainer = MakeContainer(u"Incompatible file", [&] {
    return std::make_unique<KivFastFileContainerForSnapShot>(m_pzMainFile, m_pzPositionTableManager, csSidePath,
                                                             nullptr);
  });
}

void KivOutOfCoreMemoryStorage::OpenForWriting(const KivStoreSource& zSource, uint32_t iManagerKey) {
  const void* const pvData = zSource.m_pvData;
  KIV_CHECK(pvData == NULL);
  KivSysFile zMain = KivSysFile::Open(zSource.m_csPath, kOpenForWriting);
  for (const uint32_t iPause : kWritePause) {
    if (zMain.IsOpen()) break;
    sys::SleepMs(iPause);
    zMain = KivSysFile::Open(zSource.m_csPath, kOpenForWriting);
  }
  if (!zMain.IsOpen()) {
    KIV_FAIL();
    return;
  }
  m_pzMainFile = KivCreateMappedFile(std::move(zMain));
  if (m_pzMainFile.Get() == nullptr) {
    KIV_FAIL();
    return;
  }
  MakePositionTableManager(iManagerKey);
  m_pzFileContainer = MakeContainer(u"Incompatible file", [&] {
    return std::make_unique<KivFastFileContainer>(m_pzMainFile, m_pzPositionTableManager);
  });
}

// --- Records --------------------------------------------------------------------------------------------------------

KivStorageResult KivOutOfCoreMemoryStorage::FindRecord(uint64_t iPosition, KivContainerRecord& zRecord) {
  if (m_pzFileContainer == nullptr) return KivStorageResult::NoContainer;
  const uint64_t iEnd = m_pzFileContainer->GetEndPosition();
  if (iPosition < KivFastFileContainerBase::kFirstRecord || iPosition >= iEnd ||
      iEnd - iPosition < KivFastFileContainerBase::kFrameSize)
    return KivStorageResult::BadArgument;
  KivContainerRecordWithSizes zFound = m_pzFileContainer->GetRecordWithSizes(iPosition);
  if (zFound.m_pzFile.Get() == nullptr || zFound.m_iRecordSize > iEnd - iPosition ||
      zFound.m_iFileSize > std::numeric_limits<uint32_t>::max())
    return KivStorageResult::NoRecord;
  zRecord.m_pzFile = std::move(zFound.m_pzFile);
  zRecord.m_iOffset = zFound.m_iOffset;
  zRecord.m_iFileSize = static_cast<uint32_t>(zFound.m_iFileSize);
  return KivStorageResult::Done;
}

KivStorageResult KivOutOfCoreMemoryStorage::ReadRecord(uint64_t iPosition, void* pBuffer, uint64_t nCount,
                                                       KivContainerRecord& zRecord) {
  if (m_pzFileContainer == nullptr) return KivStorageResult::NoContainer;
  if (pBuffer == nullptr && nCount != 0) return KivStorageResult::BadArgument;
  if (zRecord.m_pzFile.Get() == nullptr) {
    const KivStorageResult iResult = FindRecord(iPosition, zRecord);
    if (iResult != KivStorageResult::Done) return iResult;
  }
  if (nCount > zRecord.m_iFileSize) return KivStorageResult::NoRecord;
  if (zRecord.m_pzFile->Read(zRecord.m_iOffset, pBuffer, nCount) == nCount) return KivStorageResult::Done;
  zRecord = KivContainerRecord();
  return KivStorageResult::ShortRead;
}

KivStorageResult KivOutOfCoreMemoryStorage::ReadElementHeader(uint64_t iPosition, KivElementFrame& acFrame,
                                                              KivContainerRecord& zRecord) {
  zRecord = KivContainerRecord();
  return ReadRecord(iPosition, acFrame.data(), acFrame.size(), zRecord);
}

KivStorageResult KivOutOfCoreMemoryStorage::OverwriteRecord(uint64_t iPosition, const void* pBuffer, uint64_t nCount) {
  if (pBuffer == nullptr && nCount != 0) return KivStorageResult::BadArgument;
  KivContainerRecord zRecord;
  const KivStorageResult iResult = FindRecord(iPosition, zRecord);
  if (iResult != KivStorageResult::Done) return iResult;
  if (zRecord.m_iFileSize < nCount) return KivStorageResult::NoRecord;
  zRecord.m_pzFile->Write(zRecord.m_iOffset, pBuffer, nCount);
  return KivStorageResult::Done;
}

KivStorageResult KivOutOfCoreMemoryStorage::AddRecord(const KivContainerData& zData, uint64_t& iPosition) {
  iPosition = 0;
  if (m_pzFileContainer == nullptr) return KivStorageResult::NoContainer;
  iPosition = m_pzFileContainer->AddRecord(zData);
  return iPosition != 0 ? KivStorageResult::Done : KivStorageResult::BadArgument;
}

KivStorageResult KivOutOfCoreMemoryStorage::FreeRecord(uint64_t iPosition) {
  KivContainerRecord zRecord;
  const KivStorageResult iResult = FindRecord(iPosition, zRecord);
  if (iResult != KivStorageResult::Done) return iResult;
  m_pzFileContainer->DeleteRecordChecked(iPosition);
  // A record without a whole frame was reported and left alone.
  const KivContainerRecordWithSizes zGone = m_pzFileContainer->GetRecordWithSizes(iPosition);
  return zGone.m_iRecordSize == zGone.m_iFileSize ? KivStorageResult::Done : KivStorageResult::NoRecord;
}

KivStorageResult KivOutOfCoreMemoryStorage::MoveRecord(uint64_t iPosition, uint64_t& iStart, uint64_t& iMovedTo,
                                                       uint64_t& iStoredAt) {
  iMovedTo = 0;
  iStoredAt = iPosition;
  KivContainerRecord zRecord;
  const KivStorageResult iResult = FindRecord(iPosition, zRecord);
  if (iResult != KivStorageResult::Done) return iResult;
  iMovedTo = m_pzFileContainer->MoveRecord(iPosition, iStart, &iStoredAt);
  if (iMovedTo != 0) iStoredAt = iMovedTo;
  return iStoredAt != 0 ? KivStorageResult::Done : KivStorageResult::NoRecord;
}

}  // namespace kiv
