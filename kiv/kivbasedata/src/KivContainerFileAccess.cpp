#include "KivContainerFileAccess.h"

#include <cstring>

#include "KivCacheUseFile.h"

namespace kiv {
namespace {

// A mapped file takes the size of a direct buffer as 32 bits and makes its view somewhat wider.
constexpr uint64_t kMaxWindow = 0xFFFC0000;

}  // namespace

void KivContainerFileAccess::Look(ISnapShotFile& zFile) {
  m_pKnownFile = &zFile;
  m_pzMapped = dynamic_cast<KivWinMappedFile*>(&zFile);
  if (m_pzMapped == nullptr) return;
  if (m_pzMapped->m_bReadOnly || m_pzMapped->IsSnapShotFile() || !zFile.CanUseDirectBuffer() || zFile.IsCacheEnabled())
    m_pzMapped = nullptr;
}

uint8_t* KivContainerFileAccess::MapBytes(ISnapShotFile& zFile, bool bReadOnly, uint64_t iOffset, uint64_t nCount) {
  if (&zFile != m_pKnownFile) Look(zFile);
  if (m_pzMapped == nullptr) return nullptr;
  const uint64_t iCapacity = zFile.GetDirectBufferSize();
  if (iOffset > iCapacity || nCount > iCapacity - iOffset || iCapacity > kMaxWindow) return nullptr;
  // Asking for the whole file each time gives one view that stays in place until the capacity changes.
  uint8_t* pWindow = zFile.GetDirectBuffer(bReadOnly, 0, iCapacity);
  if (pWindow == nullptr) return nullptr;
  zFile.ReleaseDirectBuffer();
  return pWindow + iOffset;
}

uint8_t* KivContainerFileAccess::Window(ISnapShotFile& zFile, uint64_t& iSize) {
  if (&zFile != m_pKnownFile) Look(zFile);
  iSize = 0;
  if (m_pzMapped == nullptr) return nullptr;
  const uint64_t iCapacity = m_pzMapped->GetDirectBufferSize();
  uint8_t* pWindow = Bytes(zFile, true, 0, iCapacity);
  if (pWindow != nullptr) iSize = iCapacity;
  return pWindow;
}

uint64_t KivContainerFileAccess::GetLength(ISnapShotFile& zFile) {
  if (&zFile != m_pKnownFile) Look(zFile);
  if (m_pzMapped == nullptr) return zFile.GetLength();
  const uint64_t iCapacity = zFile.GetDirectBufferSize();
  return iCapacity != 0 ? iCapacity : zFile.GetLength();
}

bool KivContainerFileAccess::IsCached(ISnapShotFile& zFile) {
  const auto* pzFile = dynamic_cast<KivCacheUseFile*>(&zFile);
  return pzFile != nullptr && pzFile->m_bEnableCache;
}

uint64_t KivContainerFileAccess::Read(ISnapShotFile& zFile, uint64_t iOffset, void* lpBuf, uint64_t nCount) {
  if (const uint8_t* pBytes = Bytes(zFile, true, iOffset, nCount)) {
    std::memcpy(lpBuf, pBytes, nCount);
    return nCount;
  }
  return zFile.Read(iOffset, lpBuf, nCount);
}

void KivContainerFileAccess::Write(ISnapShotFile& zFile, uint64_t iOffset, const void* lpBuf, uint64_t nCount) {
  if (uint8_t* pBytes = Bytes(zFile, false, iOffset, nCount)) {
    std::memcpy(pBytes, lpBuf, nCount);
    return;
  }
  zFile.Write(iOffset, lpBuf, nCount);
}

void KivContainerFileAccess::WriteZero(ISnapShotFile& zFile, uint64_t iOffset, uint64_t nCount) {
  if (uint8_t* pBytes = Bytes(zFile, false, iOffset, nCount)) {
    std::memset(pBytes, 0, nCount);
    return;
  }
  zFile.WriteZero(iOffset, nCount);
}

}  // namespace kiv
