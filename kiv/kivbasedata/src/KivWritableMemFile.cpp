#include "KivWritableMemFile.h"

#include <cstring>
#include <memory>
#include <new>
#include <stdexcept>
#include <utility>
#include <vector>

#include "KivException.h"

namespace kiv {
namespace {

constexpr char kSource[] = "src\\KivWritableMemFile";

}  // namespace

bool KivWritableMemFile::Grow(uint64_t iOffset, uint64_t nCount) {
  bool bGrown = nCount <= UINT64_MAX - iOffset;
  try {
    if (bGrown && m_vcData.size() < iOffset + nCount) m_vcData.resize(iOffset + nCount);
  } catch (const std::bad_alloc&) {
    bGrown = false;
  } catch (const std::length_error&) {
    bGrown = false;
  }
  if (!bGrown) KIV_FAIL();
  return bGrown;
}

bool KivWritableMemFile::PrepareDirectBuffer(uint64_t iSize) {
  if (!KIV_CHECK(!IsSnapShotFile())) return false;
  return Grow(0, iSize);
}

KivFile* KivWritableMemFile::CopyToSnapShot(KivFile* pSnapShot_arg) {
  std::unique_ptr<KivFile> pzNew;
  if (pSnapShot_arg == nullptr) {
    pzNew.reset(CreateInstance());
    pSnapShot_arg = pzNew.get();
  }
  auto* pSnapShot = dynamic_cast<KivWritableMemFile*>(KivHistoryFile::CopyToSnapShot(pSnapShot_arg));
  if (pSnapShot == nullptr) return nullptr;
  pSnapShot->m_vcData = m_vcData;
  pzNew.release();
  return pSnapShot;
}

int32_t KivWritableMemFile::RestoreFromUndo(KivFile* pUndo_arg) {
  auto* pUndo = dynamic_cast<KivWritableMemFile*>(pUndo_arg);
  if (pUndo == nullptr) {
    KIV_FAIL();
    return KivRestoreNoSnapShot;
  }
  std::vector<uint8_t> vcData = pUndo->m_vcData;  // can fail, and then nothing has changed
  if (KivHistoryFile::RestoreFromUndo(pUndo) != KivRestoreDone) {
    KIV_FAIL();
    return KivRestoreBaseFailed;
  }
  m_vcData = std::move(vcData);
  return KivRestoreDone;
}

KivFile* KivWritableMemFile::CreateInstance() {
  return new KivWritableMemFile;
}

uint64_t KivWritableMemFile::DoRead(uint64_t iOffset, void* lpBuf, uint64_t nCount) {
  const uint64_t nLength = m_vcData.size();
  if (iOffset > nLength || nCount > nLength - iOffset) {
    KIV_FAIL();
    if (iOffset >= nLength) return 0;
    nCount = nLength - iOffset;
  }
  if (nCount != 0) std::memcpy(lpBuf, m_vcData.data() + iOffset, nCount);
  return nCount;
}

void KivWritableMemFile::DoWrite(uint64_t iOffset, const void* lpBuf, uint64_t nCount) {
  if (lpBuf == nullptr || nCount == 0 || !Grow(iOffset, nCount)) return;
  std::memcpy(m_vcData.data() + iOffset, lpBuf, nCount);
}

void KivWritableMemFile::DoWriteZero(uint64_t iOffset, uint64_t nCount) {
  if (nCount == 0 || !Grow(iOffset, nCount)) return;
  std::memset(m_vcData.data() + iOffset, 0, nCount);
}

bool KivWritableMemFile::DoSetLength(uint64_t) {
  KIV_FAIL();
  return false;
}

uint8_t* KivWritableMemFile::DoGetDirectBuffer(bool, uint64_t iOffset, uint64_t nCount) {
  const uint64_t nLength = m_vcData.size();
  if (iOffset > nLength) {
    KIV_FAIL();
    return nullptr;
  }
  if (nCount < nLength - iOffset) m_vcData.resize(iOffset + nCount);
  return m_vcData.data() + iOffset;
}

}  // namespace kiv
