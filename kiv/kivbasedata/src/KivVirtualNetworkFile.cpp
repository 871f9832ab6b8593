#include "KivVirtualNetworkFile.h"

#include <memory>
#include <utility>

#include "KivException.h"
#include "KivSysClock.h"

namespace kiv {
namespace {

constexpr char kSource[] = "src\\KivVirtualNetworkFile";

}  // namespace

KivVirtualNetworkFile::KivVirtualNetworkFile(KivSysFile hFile, uint32_t iDelay, bool bEnableCache,
                                             KivSysFile hFileForBackGroundRead)
    : KivWinMappedFile(std::move(hFile), true, bEnableCache, std::move(hFileForBackGroundRead)), m_iDelay(iDelay) {}

bool KivVirtualNetworkFile::PrepareDirectBuffer(uint64_t) {
  KIV_FAIL();
  return false;
}

uint64_t KivVirtualNetworkFile::GetDirectBufferSize() {
  KIV_FAIL();
  return 0;
}

KivFile* KivVirtualNetworkFile::CopyToSnapShot(KivFile* pSnapShot_arg) {
  std::unique_ptr<KivFile> pzNew;
  if (pSnapShot_arg == nullptr) {
    pzNew.reset(CreateInstance());
    pSnapShot_arg = pzNew.get();
  }
  auto* pSnapShot = dynamic_cast<KivVirtualNetworkFile*>(KivWinMappedFile::CopyToSnapShot(pSnapShot_arg));
  if (pSnapShot == nullptr) return nullptr;
  pSnapShot->m_iDelay = m_iDelay;
  pzNew.release();
  return pSnapShot;
}

int32_t KivVirtualNetworkFile::RestoreFromUndo(KivFile* pUndo_arg) {
  auto* pUndo = dynamic_cast<KivVirtualNetworkFile*>(pUndo_arg);
  if (pUndo == nullptr) {
    KIV_FAIL();
    return KivRestoreNoSnapShot;
  }
  if (KivWinMappedFile::RestoreFromUndo(pUndo) != KivRestoreDone) {
    KIV_FAIL();
    return KivRestoreBaseFailed;
  }
  m_iDelay = pUndo->m_iDelay;
  return KivRestoreDone;
}

KivFile* KivVirtualNetworkFile::CreateInstance() {
  return new KivVirtualNetworkFile;
}

void KivVirtualNetworkFile::Wait() {
  sys::SleepMs(m_iDelay);
}

uint64_t KivVirtualNetworkFile::DoRead(uint64_t iOffset, void* lpBuf, uint64_t nCount) {
  Wait();
  return KivWinMappedFile::DoRead(iOffset, lpBuf, nCount);
}

void KivVirtualNetworkFile::DoWrite(uint64_t iOffset, const void* lpBuf, uint64_t nCount) {
  KIV_FAIL();
  Wait();
  KivWinMappedFile::DoWrite(iOffset, lpBuf, nCount);
}

void KivVirtualNetworkFile::DoWriteZero(uint64_t iOffset, uint64_t nCount) {
  KIV_FAIL();
  Wait();
  KivWinMappedFile::DoWriteZero(iOffset, nCount);
}

bool KivVirtualNetworkFile::DoSetLength(uint64_t) {
  KIV_FAIL();
  return false;
}

void KivVirtualNetworkFile::DoFlush() {
  KIV_FAIL();
  Wait();
  KivWinMappedFile::DoFlush();
}

uint64_t KivVirtualNetworkFile::DoGetLength() {
  Wait();
  return KivWinMappedFile::DoGetLength();
}

uint8_t* KivVirtualNetworkFile::DoGetDirectBuffer(bool, uint64_t, uint64_t) {
  KIV_FAIL();
  return nullptr;
}

void KivVirtualNetworkFile::DoReleaseDirectBuffer() {
  KIV_FAIL();
}

}  // namespace kiv
