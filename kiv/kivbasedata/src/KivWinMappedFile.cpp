#include "KivWinMappedFile.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <utility>

#include "KivDataSpaceFields.h"
#include "KivDataUtil.h"
#include "KivException.h"
#include "KivSysProcess.h"

namespace kiv {
namespace {

constexpr char kSource[] = "src\\KivWinMappedFile";
constexpr uint64_t kMaxPart = 0x10000000;  // a view is sized by a 32-bit count

uint32_t g_nProbes = 0;
uint32_t g_nMappings = 0;

KivWString MappingName(const char* szKind, uint32_t iNumber) {
  const std::string strName =
      std::to_string(sys::CurrentProcessNumber()) + "_" + szKind + "_" + std::to_string(iNumber);
  return KivWString(strName.begin(), strName.end());
}

}  // namespace

KivWinMappedFile::KivWinMappedFile(KivSysFile hFile, bool bReadOnly, bool bEnableCache,
                                   KivSysFile hFileForBackGroundRead)
    : KivWinFile(std::move(hFile), bReadOnly, bEnableCache, std::move(hFileForBackGroundRead)),
      m_iBlockSize(KivGetAllocationGranularity()) {
  if (KivGetNoDirectBuffer() || HasBackGroundFile() || !m_hFile.IsOpen()) return;
  KivSysMapping zProbe;
  m_bCanUseDirectBuffer = zProbe.Create(m_hFile, m_bReadOnly, 1, MappingName("KivWinMappedFileCtr", ++g_nProbes));
}

KivWinMappedFile::~KivWinMappedFile() {
  UnmapView();
  m_zMapping.Close();
}

void KivWinMappedFile::UnmapView() noexcept {
  if (m_pView != nullptr) m_zMapping.UnmapView(m_pView, m_iViewEnd - m_iViewStart);
  m_pView = nullptr;
  m_iViewStart = 0;
  m_iViewEnd = 0;
}

uint8_t* KivWinMappedFile::GetDirectBuffer(bool bReadOnly, uint64_t iOffset, uint64_t nCount) {
  // The view in hand serves most requests; few instructions leave the processor free to have several on their way.
  const uint64_t nView = m_iViewEnd - m_iViewStart;
  const uint64_t iInView = iOffset - m_iViewStart;
  if (iInView < nView && nCount <= nView - iInView && nCount <= UINT32_MAX && !m_bNowUsingDirectBuffer &&
      (bReadOnly || !m_bReadOnly)) {
    if (!bReadOnly) m_bModified = true;
    m_bNowUsingDirectBuffer = true;
    return m_pView + iInView;
  }
  return KivWinFile::GetDirectBuffer(bReadOnly, iOffset, nCount);
}

void KivWinMappedFile::ReleaseDirectBuffer() {
  if (m_pView == nullptr || m_zMapping.HasLostPages()) {
    KivWinFile::ReleaseDirectBuffer();
    return;
  }
  m_bNowUsingDirectBuffer = false;
}

bool KivWinMappedFile::PrepareDirectBuffer(uint64_t iSize) {
  if (!KIV_CHECK(!IsSnapShotFile())) return false;
  if (!m_hFile.IsOpen()) return false;
  if (!m_bCanUseDirectBuffer) {
    KIV_FAIL();
    return false;
  }
  if (IsModified()) Flush();
  UnmapView();
  m_iMappingSize = 0;
  uint64_t iCapacity = 0;
  if (!m_bReadOnly) iCapacity = iSize != 0 ? std::max(iSize, m_iBlockSize) : 0;
  // The old mapping is replaced in place, so that its pages stay mapped where the system can do that.
  if (!m_zMapping.Create(m_hFile, m_bReadOnly, iCapacity, MappingName("KivWinMappedFile", ++g_nMappings))) {
    m_zMapping.Close();
    KIV_FAIL();
    return false;
  }
  m_iMappingSize = m_zMapping.GetCapacity();
  return true;
}

// --- Snapshots ------------------------------------------------------------------------------------------------------

KivFile* KivWinMappedFile::CopyToSnapShot(KivFile* pSnapShot_arg) {
  std::unique_ptr<KivFile> pzNew;
  if (pSnapShot_arg == nullptr) {
    pzNew.reset(CreateInstance());
    pSnapShot_arg = pzNew.get();
  }
  auto* pSnapShot2 = dynamic_cast<KivWinMappedFile*>(KivWinFile::CopyToSnapShot(pSnapShot_arg));
  if (pSnapShot2 == nullptr) return nullptr;
  pSnapShot2->m_iMappingSize = m_iMappingSize;
  pSnapShot2->m_bNowUsingDirectBuffer = m_bNowUsingDirectBuffer;
  pSnapShot2->m_bCanUseDirectBuffer = m_bCanUseDirectBuffer;
  KIV_CHECK(!(pSnapShot2->m_bNowUsingDirectBuffer));
  pzNew.release();
  return pSnapShot2;
}

int32_t KivWinMappedFile::RestoreFromUndo(KivFile* pUndo_arg) {
  auto* pUndo = dynamic_cast<KivWinMappedFile*>(pUndo_arg);
  if (pUndo == nullptr) {
    KIV_FAIL();
    return KivRestoreNoSnapShot;
  }
  if (KivWinFile::RestoreFromUndo(pUndo) != KivRestoreDone) {
    KIV_FAIL();
    return KivRestoreBaseFailed;
  }
  if (CanUseDirectBuffer() && !PrepareDirectBuffer(pUndo->m_iMappingSize)) {
    KIV_FAIL();
    return KivRestoreNotMapped;
  }
  m_bNowUsingDirectBuffer = pUndo->m_bNowUsingDirectBuffer;
  m_bCanUseDirectBuffer = pUndo->m_bCanUseDirectBuffer;
  return KivRestoreDone;
}

KivFile* KivWinMappedFile::CreateInstance() {
  return new KivWinMappedFile;
}

// --- Transfers ------------------------------------------------------------------------------------------------------

template <typename Part>
bool KivWinMappedFile::ForParts(bool bReadOnly, uint64_t iOffset, uint64_t nCount, Part&& pfnPart) {
  const auto Fail = [&] {
    m_bWriteFailed = m_bWriteFailed || !bReadOnly;
    KIV_FAIL();
    return false;
  };
  if (iOffset > m_iMappingSize || nCount > m_iMappingSize - iOffset) return Fail();
  for (uint64_t iPos = 0; iPos < nCount;) {
    const uint64_t nPart = std::min(nCount - iPos, kMaxPart);
    uint8_t* pBuffer = DoGetDirectBuffer(bReadOnly, iOffset + iPos, nPart);
    if (pBuffer == nullptr) return Fail();
    pfnPart(pBuffer, iPos, nPart);
    m_bNowUsingDirectBuffer = false;
    if (m_zMapping.HasLostPages()) return Fail();
    iPos += nPart;
  }
  return true;
}

uint64_t KivWinMappedFile::DoRead(uint64_t iOffset, void* lpBuf, uint64_t nCount) {
  if (!m_zMapping.IsOpen()) return KivWinFile::DoRead(iOffset, lpBuf, nCount);
  auto* const pTarget = static_cast<uint8_t*>(lpBuf);
  const bool bRead = ForParts(true, iOffset, nCount, [pTarget](const uint8_t* pBuffer, uint64_t iPos, uint64_t nPart) {
    std::memcpy(pTarget + iPos, pBuffer, nPart);
  });
  return bRead ? nCount : 0;
}

void KivWinMappedFile::DoWrite(uint64_t iOffset, const void* lpBuf, uint64_t nCount) {
  if (!m_zMapping.IsOpen()) {
    KivWinFile::DoWrite(iOffset, lpBuf, nCount);
    return;
  }
  const auto* const pSource = static_cast<const uint8_t*>(lpBuf);
  ForParts(false, iOffset, nCount,
           [pSource](uint8_t* pBuffer, uint64_t iPos, uint64_t nPart) { std::memcpy(pBuffer, pSource + iPos, nPart); });
}

void KivWinMappedFile::DoWriteZero(uint64_t iOffset, uint64_t nCount) {
  if (nCount == 0) return;
  if (!m_zMapping.IsOpen()) {
    KivWinFile::DoWriteZero(iOffset, nCount);
    return;
  }
  ForParts(false, iOffset, nCount, [](uint8_t* pBuffer, uint64_t, uint64_t nPart) { std::memset(pBuffer, 0, nPart); });
}

bool KivWinMappedFile::DoSetLength(uint64_t) {
  KIV_FAIL();
  return false;
}

void KivWinMappedFile::DoFlush() {
  if (!m_zMapping.IsOpen()) {
    KivWinFile::DoFlush();
    return;
  }
  if (!m_bReadOnly) UnmapView();
}

uint64_t KivWinMappedFile::DoGetLength() {
  return KivWinFile::DoGetLength();
}

uint8_t* KivWinMappedFile::DoGetDirectBuffer(bool bReadOnly, uint64_t iOffset, uint64_t nCount) {
  if (!bReadOnly && m_bReadOnly) return nullptr;
  if (!m_zMapping.IsOpen() || iOffset > m_iMappingSize || nCount > m_iMappingSize - iOffset || m_bNowUsingDirectBuffer)
    return nullptr;
  const uint64_t iEnd = iOffset + nCount;
  if (m_pView == nullptr || m_iViewStart > iOffset || m_iViewEnd < iEnd || nCount > UINT32_MAX) {
    UnmapView();
    // Two granules more than asked, so that neighbours are served by the same view. The count is taken as 32 bits.
    uint64_t iStart = iOffset - iOffset % m_iBlockSize;
    uint64_t nSize =
        std::min((static_cast<uint32_t>(nCount) / m_iBlockSize + 2) * m_iBlockSize, m_iMappingSize - iStart);
    const bool bCovers = iEnd - iStart <= nSize;
    if (bCovers && KivSysMapping::MapsWhole()) {
      iStart = 0;
      nSize = m_iMappingSize;
    }
    m_pView = m_zMapping.MapView(iStart, nSize);
    if (m_pView == nullptr) return nullptr;
    m_iViewStart = iStart;
    m_iViewEnd = iStart + nSize;
    if (!bCovers) {
      KIV_FAIL();
      return nullptr;
    }
  }
  m_bNowUsingDirectBuffer = true;
  return m_pView + (iOffset - m_iViewStart);
}

void KivWinMappedFile::DoReleaseDirectBuffer() {
  m_bNowUsingDirectBuffer = false;
  if (m_zMapping.HasLostPages()) KIV_FAIL();
}

}  // namespace kiv
