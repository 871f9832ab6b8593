// Copies of a container: all at once beside a patch stream, and in slices.
#include <algorithm>

#include "KivDataUtil.h"
#include "KivException.h"
#include "KivFastFileContainerBase.h"
#include "KivFileFactory.h"
#include "KivSysClock.h"
#include "KivSysFile.h"
#include "KivSysFolder.h"
#include "KivWinFile.h"

namespace kiv {
namespace {

constexpr char kSource[] = "src\\KivFastFileContainerBase";

constexpr uint32_t kGranulesInChunk = 10;
constexpr char16_t kSideFile[] = u".urf";

KivSysFile CreateTarget(const KivWString& csPath) {
  KivSysOpenMode zMode;
  zMode.m_iAccess = KivSysAccess::ReadWrite;
  zMode.m_iShare = KivSysShare::None;
  zMode.m_iDisposition = KivSysDisposition::CreateAlways;
  zMode.m_iFlags = KivSysFileFlags::RandomAccess;
  return KivSysFile::Open(csPath, zMode);
}

// True if there is an empty file, which is then closed again.
bool IsEmptyFile(const KivWString& csPath) {
  KivSysFile zFile = KivSysFile::Open(csPath, KivSysOpenMode());
  if (!zFile.IsOpen()) return false;
  uint8_t acFirst[5];
  uint32_t nRead = 0;
  return zFile.ReadAt(0, acFirst, sizeof acFirst, nRead) && nRead == 0;
}

}  // namespace

bool KivFastFileContainerBase::SaveAs(const KivWString& csPath, bool bAlsoIntoPackage) {
  using H = KivContainerHeader;
  if (!m_bEndInsideFile) {
    KIV_FAIL();
    return false;
  }
  H zOnDisk;
  if (ReadBaseFile(H::kFilePosition, zOnDisk.Data(), H::kSize) != H::kSize) {
    KIV_FAIL();
    return false;
  }
  // The saved file gets the header of this moment by way of the main file. A failure behind this leaves it there.
  H zHeader = H::MakeDefault();
  zHeader.SetInfo(zHeaderInfo);
  PutMembers(zHeader);
  WriteBaseFile(H::kFilePosition, zHeader.Data(), H::kSize);

  if (!GetBaseFile()->SaveCache(csPath, m_iEndPosition)) {
    KIV_FAIL();
    return false;
  }
  // All of the image is at hand before its file is created.
  const uint64_t iLength = zHeader.U64(H::UnusedRecordFileLength);
  std::vector<uint8_t> vcImage(static_cast<size_t>(std::max<uint64_t>(iLength, 1)));
  if (ReadUnusedRecordFile(0, vcImage.data(), iLength) != iLength) {
    KIV_FAIL();
    return false;
  }
  const KivWString csSidePath = csPath + kSideFile;
  KivSysFile zFile = CreateTarget(csSidePath);
  if (!zFile.IsOpen()) {
    KIV_FAIL();
    return false;
  }
  const KivSharedPtr<ISnapShotFile> pzSide = KivCreateFile(std::move(zFile));
  pzSide->Write(0, vcImage.data(), iLength);
  if (auto* pSide = dynamic_cast<KivWinFile*>(pzSide.Get()); pSide != nullptr && pSide->TakeWriteFailure())
    return false;
  if (bAlsoIntoPackage && IsMultiFileContainer() && !AddSavedPatch(csPath, csSidePath)) {
    KIV_FAIL();
    return false;
  }
  WriteBaseFile(H::kFilePosition, zOnDisk.Data(), H::kSize);
  return true;
}

KivSaveInSlicesResult KivFastFileContainerBase::SaveInSlices(const KivWString& csPath, uint32_t iDeadline) {
  using H = KivContainerHeader;
  KIV_CHECK(!m_bContainerLocked);
  auto itTask = m_mapBackgroundSave.find(csPath);
  if (itTask == m_mapBackgroundSave.end()) {
    if (!csPath.empty() && KivFileExists(csPath)) {
      if (!IsEmptyFile(csPath)) {  // content is never overwritten
        KIV_FAIL();
        return KivSaveInSlicesResult::TargetExists;
      }
      sys::SleepMs(0);
      sys::RemoveFileAt(csPath);
    }
    KivSysFile zFile = CreateTarget(csPath);
    if (!zFile.IsOpen()) {
      KIV_FAIL();
      return KivSaveInSlicesResult::TargetNotCreated;
    }
    if (!m_bEndInsideFile || m_iEndPosition >= GetBaseFile()->GetLength()) {
      KIV_FAIL();
      return KivSaveInSlicesResult::NothingBehindRecords;
    }
    itTask = m_mapBackgroundSave.emplace(csPath, KivBackgroundSaveTask{KivCreateFile(std::move(zFile)), 0}).first;
  }
  KivBackgroundSaveTask& zTask = itTask->second;
  if (zTask.m_iNextChunk < 0) return KivSaveInSlicesResult::Done;

  const uint32_t iChunkSize = kGranulesInChunk * KivGetAllocationGranularity();
  std::vector<uint8_t> vcChunk(iChunkSize);
  // In 32 bits: this is meant, and limits slices to the first 4 GiB at every resumption.
  uint64_t iOffset = iChunkSize * static_cast<uint32_t>(zTask.m_iNextChunk);
  while (iOffset < m_iEndPosition) {
    const uint64_t iToRead = std::min<uint64_t>(iChunkSize, m_iEndPosition - iOffset);
    const uint64_t iRead = ReadBaseFile(iOffset, vcChunk.data(), iToRead);
    KIV_CHECK(iRead == iToRead);
    zTask.m_pzFile->Write(iOffset, vcChunk.data(), std::min(iRead, iToRead));
    iOffset += iToRead;
    ++zTask.m_iNextChunk;
    if (KivIsTimeOver(iDeadline)) return KivSaveInSlicesResult::Done;
  }

  H zHeader = H::MakeDefault();
  zHeader.SetInfo(zHeaderInfo);
  PutMembers(zHeader);
  zTask.m_pzFile->Write(H::kFilePosition, zHeader.Data(), H::kSize);
  const uint64_t iLength = zHeader.U64(H::UnusedRecordFileLength);
  if (CopyUnusedRecordFile(*zTask.m_pzFile, m_iEndPosition, iLength, false) != iLength) KIV_FAIL();
  zTask.m_pzFile.Release();
  zTask.m_iNextChunk = -1;
  return KivSaveInSlicesResult::Done;
}

bool KivFastFileContainerBase::IsSaveInSlicesComplete(const KivWString& csPath) {
  KIV_CHECK(!m_bContainerLocked);
  const auto itTask = m_mapBackgroundSave.find(csPath);
  return itTask != m_mapBackgroundSave.end() && itTask->second.m_iNextChunk < 0;
}

void KivFastFileContainerBase::CancelSaveInSlices(const KivWString& csPath) {
  KIV_CHECK(!m_bContainerLocked);
  const auto itTask = m_mapBackgroundSave.find(csPath);
  if (itTask == m_mapBackgroundSave.end()) {
    KIV_FAIL();
    return;
  }
  if (itTask->second.m_pzFile) {
    itTask->second.m_pzFile.Release();
    sys::RemoveFileAt(csPath);
  }
  m_mapBackgroundSave.erase(itTask);
}

}  // namespace kiv
