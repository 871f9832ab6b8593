#include "KivFile.h"

#include <cstddef>

#include "KivException.h"

namespace kiv {
namespace {

constexpr char kSource[] = "src\\KivFile";

}  // namespace

KivFile* KivFile::CopyToSnapShot(KivFile* pSnapShot) {
  if (!KIV_CHECK(pSnapShot != NULL)) return nullptr;
  pSnapShot->m_bReadOnly = m_bReadOnly;
  return pSnapShot;
}

int32_t KivFile::RestoreFromUndo(KivFile* pUndo) {
  if (pUndo == nullptr) {
    KIV_FAIL();
    return KivRestoreNoSnapShot;
  }
  KIV_CHECK(m_bReadOnly == pUndo->m_bReadOnly);
  return KivRestoreDone;
}

uint64_t KivFile::ReadData(uint64_t iOffset, void* lpBuf, uint64_t nCount) {
  return DoRead(iOffset, lpBuf, nCount);
}

void KivFile::WriteData(uint64_t iOffset, const void* lpBuf, uint64_t nCount) {
  DoWrite(iOffset, lpBuf, nCount);
}

void KivFile::WriteZeroData(uint64_t iOffset, uint64_t nCount) {
  DoWriteZero(iOffset, nCount);
}

bool KivFile::SetDataLength(uint64_t iLength) {
  return DoSetLength(iLength);
}

void KivFile::FlushData() {
  DoFlush();
}

uint64_t KivFile::GetDataLength() {
  return DoGetLength();
}

}  // namespace kiv
