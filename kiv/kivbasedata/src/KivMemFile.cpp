#include "KivMemFile.h"

#include <cstring>
#include <memory>

#include "KivException.h"

namespace kiv {
namespace {

constexpr char kSource[] = "src\\KivMemFile";

}  // namespace

KivFile* KivMemFile::CopyToSnapShot(KivFile* pSnapShot_arg) {
  std::unique_ptr<KivFile> pzNew;
  if (pSnapShot_arg == nullptr) {
    pzNew.reset(CreateInstance());
    pSnapShot_arg = pzNew.get();
  }
  auto* pSnapShot = dynamic_cast<KivMemFile*>(KivCacheUseFile::CopyToSnapShot(pSnapShot_arg));
  if (pSnapShot == nullptr) return nullptr;
  pSnapShot->m_pData = m_pData;
  pSnapShot->m_iSize = m_iSize;
  pzNew.release();
  return pSnapShot;
}

int32_t KivMemFile::RestoreFromUndo(KivFile* pUndo_arg) {
  auto* pUndo = dynamic_cast<KivMemFile*>(pUndo_arg);
  if (pUndo == nullptr) {
    KIV_FAIL();
    return KivRestoreNoSnapShot;
  }
  if (KivCacheUseFile::RestoreFromUndo(pUndo) != KivRestoreDone) {
    KIV_FAIL();
    return KivRestoreBaseFailed;
  }
  m_pData = pUndo->m_pData;
  m_iSize = pUndo->m_iSize;
  return KivRestoreDone;
}

KivFile* KivMemFile::CreateInstance() {
  return new KivMemFile(nullptr, 0);
}

uint64_t KivMemFile::DoRead(uint64_t iOffset, void* lpBuf, uint64_t nCount) {
  if (iOffset > m_iSize || nCount > m_iSize - iOffset) {
    KIV_FAIL();
    if (iOffset >= m_iSize) return 0;
    nCount = m_iSize - iOffset;
  }
  if (nCount != 0) std::memcpy(lpBuf, m_pData + iOffset, nCount);
  return nCount;
}

void KivMemFile::DoWrite(uint64_t, const void*, uint64_t) {
  KIV_FAIL();
}

void KivMemFile::DoWriteZero(uint64_t, uint64_t) {
  KIV_FAIL();
}

bool KivMemFile::DoSetLength(uint64_t) {
  KIV_FAIL();
  return false;
}

void KivMemFile::DoFlush() {
  KIV_FAIL();
}

}  // namespace kiv
