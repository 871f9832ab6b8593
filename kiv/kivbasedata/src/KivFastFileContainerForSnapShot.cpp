#include "KivFastFileContainerForSnapShot.h"

#include <algorithm>
#include <limits>
#include <vector>

#include "KivDataUtil.h"
#include "KivException.h"
#include "KivFileFactory.h"
#include "KivHistoryFile.h"
#include "KivSysFile.h"
#include "KivWritableMemFile.h"

namespace kiv {
namespace {

constexpr char kSource[] = "src\\KivFastFileContainerForSnapShot";
constexpr uint64_t kCopyStep = 0x100000;

}  // namespace

KivFastFileContainerForSnapShot::KivFastFileContainerForSnapShot() : KivFastFileContainerBase(nullptr) {}

KivFastFileContainerForSnapShot::KivFastFileContainerForSnapShot(KivSharedPtr<ISnapShotFile> pzBaseFile,
                                                                 KivPositionTableManager* pzPositionTableManager,
                                                                 const KivWString& csSidePath,
                                                                 std::unique_ptr<IKivPatchPackage> pzPackage)
    : KivFastFileContainerBase(pzPositionTableManager),
      m_pzBaseFile(std::move(pzBaseFile)),
      m_pzMultiFile(std::move(pzPackage)) {
  SetCapacityForExisting();
  m_pzUnusedRecordFile = KivSharedPtr<ISnapShotFile>(new KivWritableMemFile);
  if (!csSidePath.empty() && KivFileExists(csSidePath) && !ReadSideFile(csSidePath)) return;
  Initialize();
}

// Fills the unused record file from a patch's side file.
bool KivFastFileContainerForSnapShot::ReadSideFile(const KivWString& csSidePath) {
  KivSysFile zFile =
      KivSysFile::Open(csSidePath, {KivSysAccess::Read, KivSysShare::Read, KivSysDisposition::OpenExisting,
                                    KivSysFileFlags::SequentialScan | KivSysFileFlags::Temporary});
  if (!zFile.IsOpen()) {
    KIV_FAIL();
    return false;
  }
  const KivSharedPtr<ISnapShotFile> pzSideFile = KivCreateReadOnlyFile(std::move(zFile), false);
  const uint64_t iLength = pzSideFile->GetLength();
  if (iLength > std::numeric_limits<uint32_t>::max()) {
    KIV_FAIL();
    return false;
  }
  std::vector<uint8_t> vcBuffer(static_cast<size_t>(std::min(iLength, kCopyStep)));
  for (uint64_t iDone = 0; iDone < iLength;) {
    const uint64_t nCount = std::min(iLength - iDone, kCopyStep);
    if (pzSideFile->Read(iDone, vcBuffer.data(), nCount) != nCount) {
      KIV_FAIL();
      return false;
    }
    m_pzUnusedRecordFile->Write(iDone, vcBuffer.data(), nCount);
    iDone += nCount;
  }
  return true;
}

KivFastFileContainerForSnapShot::~KivFastFileContainerForSnapShot() {
  m_pzMultiFile.reset();
  const auto Quietly = [](auto&& body) {
    try {
      body();
    } catch (...) {
      // A destructor lets no exception out; the report has been made.
    }
  };
  if (!m_bSnapShot) {
    if (GetStatus() == KivContainerStatus::Usable) Quietly([&] { Flush(); });
    return;
  }
  for (ISnapShotFile* pzFile : {m_pzBaseFile.Get(), m_pzUnusedRecordFile.Get()})
    if (pzFile != nullptr)
      Quietly([&] {
        if (pzFile->ReleaseSnapShot() != 0) KIV_FAIL();
      });
}

std::unique_ptr<KivFastFileContainerForSnapShot> KivFastFileContainerForSnapShot::CreateSnapShot() {
  std::unique_ptr<KivFastFileContainerForSnapShot> pSnapShot(new KivFastFileContainerForSnapShot);
  pSnapShot->m_bSnapShot = true;
  try {
    pSnapShot->m_pzBaseFile = m_pzBaseFile->CreateSnapShot();
    KIV_CHECK_AS(pSnapShot->m_pzBaseFile.Get() != nullptr, "pSnapShot->m_pzBaseFile != NULL");
    pSnapShot->m_pzUnusedRecordFile = m_pzUnusedRecordFile->CreateSnapShot();
    KIV_CHECK_AS(pSnapShot->m_pzUnusedRecordFile.Get() != nullptr, "pSnapShot->m_pzUnusedRecordFile != NULL");
  } catch (...) {
    pSnapShot->Abandon();
    throw;
  }
  pSnapShot->CopyState(*this);
  return pSnapShot;
}

void KivFastFileContainerForSnapShot::Abandon() {
  for (KivSharedPtr<ISnapShotFile>* ppzFile : {&m_pzBaseFile, &m_pzUnusedRecordFile}) {
    auto* pzFile = dynamic_cast<KivHistoryFile*>(ppzFile->Get());
    if (pzFile != nullptr && pzFile->IsSnapShotFile()) pzFile->TakeBack();
    *ppzFile = nullptr;
  }
}

KivContainerRestoreResult KivFastFileContainerForSnapShot::RestoreFromUndo(KivFastFileContainerForSnapShot& zUndo) {
  const KivFastFileContainerForSnapShot* const pUndo = &zUndo;
  if (m_pzBaseFile->RestoreSnapShot(zUndo.m_pzBaseFile) != 0) {
    KIV_FAIL();
    return KivContainerRestoreResult::BaseFile;
  }
  if (m_pzUnusedRecordFile->RestoreSnapShot(zUndo.m_pzUnusedRecordFile) != 0) {
    KIV_FAIL();
    return KivContainerRestoreResult::UnusedRecordFile;
  }
  KIV_CHECK(m_pzPositionTableManager == pUndo->m_pzPositionTableManager);
  CopyState(zUndo);
  return KivContainerRestoreResult::Done;
}

bool KivFastFileContainerForSnapShot::AddToMultiFile(const KivWString& csPath, const KivWString& csSidePath) {
  return m_pzMultiFile != nullptr && m_pzMultiFile->AddPatch(csPath, csSidePath);
}

bool KivFastFileContainerForSnapShot::AddSavedPatch(const KivWString& csPath, const KivWString& csSidePath) {
  return AddToMultiFile(csPath, csSidePath);
}

}  // namespace kiv
