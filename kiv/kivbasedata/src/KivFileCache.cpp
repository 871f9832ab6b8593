#include "KivFileCache.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>
#include <utility>

#include "KivCacheUseFile.h"
#include "KivDataSpaceFields.h"
#include "KivDataUtil.h"
#include "KivException.h"
#include "KivFileFactory.h"
#include "KivLittleEndian.h"
#include "KivWinMappedFile.h"

namespace kiv {
namespace {

constexpr char kSource[] = "src\\KivFileCache";
constexpr uint64_t kEndOfOffsets = uint64_t{1} << 63;
constexpr uint64_t kReach = uint64_t{1} << 40;
constexpr uint64_t kFillPiece = 0x1000000;
constexpr uint64_t kMostWords = uint64_t{1} << 26;
constexpr size_t kWantedLimit = 10000;
constexpr uint64_t kBufferAlignment = 16;

// Block buffers that are too large for the stack, one for each level of nested use. They are never destroyed: files
// that are themselves static may still be read at the end of the process.
std::vector<std::unique_ptr<std::vector<uint8_t>>>& ScratchBlocks() {
  static auto& vpScratch = *new std::vector<std::unique_ptr<std::vector<uint8_t>>>;
  return vpScratch;
}
size_t g_nScratchLevel = 0;

class ScratchBlock {
 public:
  explicit ScratchBlock(uint64_t nSize) {
    auto& vpScratch = ScratchBlocks();
    if (vpScratch.size() == g_nScratchLevel) vpScratch.push_back(std::make_unique<std::vector<uint8_t>>());
    std::vector<uint8_t>& vcScratch = *vpScratch[g_nScratchLevel];
    if (vcScratch.size() < nSize) vcScratch.resize(nSize);
    m_pBytes = vcScratch.data();
    ++g_nScratchLevel;
  }
  ~ScratchBlock() { --g_nScratchLevel; }
  ScratchBlock(const ScratchBlock&) = delete;
  ScratchBlock& operator=(const ScratchBlock&) = delete;
  uint8_t* Get() const { return m_pBytes; }

 private:
  uint8_t* m_pBytes;
};

uint8_t* Align(uint8_t* pBytes) {
  const auto iAddress = reinterpret_cast<uintptr_t>(pBytes);
  return pBytes + (kBufferAlignment - iAddress % kBufferAlignment) % kBufferAlignment;
}

}  // namespace

KivFileCache::KivFileCache(KivCacheUseFile* pzOwner)
    : m_pzOwner(pzOwner), m_iBlockSize(KivGetAllocationGranularity()) {}

KivFileCache::~KivFileCache() {
  if (m_pOriginal == nullptr) return;
  auto& vpStatus = m_pOriginal->m_vpSnapShotStatus;
  std::replace(vpStatus.begin(), vpStatus.end(), &m_vcCacheStatus, static_cast<std::vector<uint32_t>*>(nullptr));
}

// --- The work file --------------------------------------------------------------------------------------------------

std::unique_ptr<KivWinMappedFile> KivFileCache::OpenWorkFile(uint64_t iSize) {
  KivSysOpenMode zMode;
  zMode.m_iAccess = KivSysAccess::ReadWrite;
  zMode.m_iShare = KivSysShare::None;
  zMode.m_iDisposition = KivSysDisposition::CreateAlways;
  zMode.m_iFlags = KivSysFileFlags::RandomAccess | KivSysFileFlags::DeleteOnClose | KivSysFileFlags::Temporary;
  KivSysFile hFile = KivSysFile::Open(KivGetWorkCacheName(), zMode);
  if (!KIV_CHECK_AS(hFile.IsOpen(), "INVALID_HANDLE_VALUE != hFile")) return nullptr;
  hFile.SetSparse();  // without it the file takes more disk
  if (iSize != 0) {
    uint64_t nLength = 0;
    if (!hFile.SetLength(iSize))
      KIV_FAIL();
    else
      KIV_CHECK_AS(hFile.GetLength(nLength) && nLength == iSize, "i.QuadPart == j.QuadPart");
  }
  return std::make_unique<KivWinMappedFile>(std::move(hFile), false, false, KivSysFile());
}

KivWinMappedFile* KivFileCache::GetWorkFile() {
  if (m_pzCacheFile == nullptr) {
    m_pzCacheFile = OpenWorkFile(0);
    m_bWorkLengthKnown = false;
  }
  return m_pzCacheFile.get();
}

uint64_t KivFileCache::GetWorkLength() {
  if (m_pzCacheFile == nullptr) return 0;
  if (!m_bWorkLengthKnown) {
    m_iWorkLength = m_pzCacheFile->GetLength();
    m_bWorkLengthKnown = !m_pzCacheFile->IsLengthUnknown();
  }
  return m_iWorkLength;
}

void KivFileCache::FlushWork() {
  if (m_pzCacheFile != nullptr) m_pzCacheFile->Flush();
}

bool KivFileCache::WriteWork(KivWinMappedFile& zWork, uint64_t iOffset, const void* lpBuf, uint64_t nCount) {
  const uint64_t nLength = GetWorkLength();
  const bool bKnown = m_bWorkLengthKnown;
  m_bWorkLengthKnown = false;
  zWork.TakeWriteFailure();  // of a write that left by an exception
  zWork.Write(iOffset, lpBuf, nCount);
  if (zWork.TakeWriteFailure()) return false;
  m_iWorkLength = std::max(nLength, iOffset + nCount);
  m_bWorkLengthKnown = bKnown;
  return true;
}

bool KivFileCache::ReadWorkBlock(KivWinMappedFile& zWork, uint64_t iBlock, uint8_t* pBuffer) const {
  const uint64_t iAllocationGranularity = m_iBlockSize;
  zWork.TakeReadFailure();  // of a read that left by an exception
  const uint64_t iRead = zWork.DoRead(iBlock * m_iBlockSize, pBuffer, iAllocationGranularity);
  return KIV_CHECK(iRead == iAllocationGranularity) && !zWork.TakeReadFailure();
}

// --- Blocks ---------------------------------------------------------------------------------------------------------

bool KivFileCache::GrowStatus(uint64_t nWords) {
  if (m_vcCacheStatus.size() >= nWords) return true;
  bool bGrown = false;
  if (nWords <= kMostWords) {
    try {
      m_vcCacheStatus.resize(nWords);
      bGrown = true;
    } catch (const std::bad_alloc&) {
      // Reported below.
    }
  }
  if (!bGrown) KIV_FAIL();
  return bGrown;
}

KivCacheUseFile* KivFileCache::BaseFile() const {
  if (m_pzOwner == nullptr || !m_pzOwner->IsSnapShotFile()) return m_pzOwner;
  return dynamic_cast<KivCacheUseFile*>(m_pzOwner->m_pOriginal);
}

bool KivFileCache::IsInReach(uint64_t iOffset, uint64_t nCount) {
  if (nCount >= kEndOfOffsets || iOffset >= kEndOfOffsets - nCount) return false;
  const uint64_t iEnd = iOffset + nCount;
  if (iEnd / m_iBlockSize < m_vcCacheStatus.size()) return true;
  KivCacheUseFile* const pBase = BaseFile();
  if (pBase == nullptr) return false;
  uint64_t iKnown = std::max<uint64_t>(GetWorkLength(), m_vcCacheStatus.size() * m_iBlockSize);
  iKnown = std::max(iKnown, pBase->GetOrgFileSize());
  return iEnd <= iKnown || iEnd - iKnown <= kReach;
}

bool KivFileCache::HasRoomFor(uint64_t iOffset, uint64_t nCount) {
  KivWinMappedFile* const pWork = GetWorkFile();
  if (pWork == nullptr) return false;
  const uint64_t iFirst = iOffset / m_iBlockSize;
  const uint64_t iEnd = (iOffset + (nCount - 1)) / m_iBlockSize + 1;
  uint64_t nHeld = 0;
  for (uint64_t i = iFirst; i < std::min<uint64_t>(iEnd, m_vcCacheStatus.size()); ++i) nHeld += HasOwn(i) ? 1 : 0;
  return pWork->HasRoomFor((iEnd - iFirst - nHeld) * m_iBlockSize);
}

bool KivFileCache::IsWithSnapShot(uint64_t iBlock, uint64_t iFrom) const {
  const KivCacheUseFile* const pBase = BaseFile();
  const uint32_t iWord = iBlock < m_vcCacheStatus.size() ? m_vcCacheStatus[iBlock] : 0;
  if (pBase == nullptr || iWord < 4) return false;
  const uint64_t k = std::max<uint64_t>((iWord >> 2) - 1, pBase->m_iFirstCache);
  if (k < iFrom || k >= pBase->m_vpCacheSnapShot.size()) return false;
  const KivFileCache* const pSnapShot = pBase->m_vpCacheSnapShot[k];
  return pSnapShot != nullptr && pSnapShot->HasWorkFile() && pSnapShot->HasOwn(iBlock);
}

bool KivFileCache::EnsureCached(uint64_t iOffset, uint64_t nCount, KivWinMappedFile& zWork) {
  if (nCount == 0) return true;
  const uint64_t iLast = (iOffset + (nCount - 1)) / m_iBlockSize;
  for (uint64_t i = iOffset / m_iBlockSize; i <= iLast; ++i) {
    if (HasOwn(i)) continue;
    if (!FetchBlock(i, zWork)) return false;
  }
  return true;
}

bool KivFileCache::FetchBlock(uint64_t iBlock, KivWinMappedFile& zWork) {
  const uint64_t nBuffer = m_iBlockSize + kBufferAlignment;
  if (10 * m_iBlockSize >= 9 * uint64_t{KivDataSpaceFields::GetInstance()->m_iStackBufferLimit}) {
    const ScratchBlock zScratch(nBuffer);
    return FetchBlockInto(iBlock, zWork, Align(zScratch.Get()));
  }
  return FetchBlockInto(iBlock, zWork, Align(static_cast<uint8_t*>(__builtin_alloca(nBuffer))));
}

bool KivFileCache::ReadBase(uint64_t iBlock, uint8_t* pBuffer) {
  KivCacheUseFile* const pBase = BaseFile();
  if (pBase == nullptr) {
    KIV_FAIL();
    return false;
  }
  const uint64_t iAllocationGranularity = m_iBlockSize;
  const uint64_t iCurPos = iBlock * m_iBlockSize;
  const uint64_t iOrgFileSize = pBase->GetOrgFileSize();
  uint64_t iRead = 0;
  if (iCurPos >= iOrgFileSize) {
    std::memset(pBuffer, 0, m_iBlockSize);
    return true;
  }
  if (iOrgFileSize - iCurPos >= iAllocationGranularity) {
    iRead = pBase->DoRead(iCurPos, pBuffer, iAllocationGranularity);
    KIV_CHECK(iRead == iAllocationGranularity);
  } else {
    iRead = pBase->DoRead(iCurPos, pBuffer, iOrgFileSize - iCurPos);
    KIV_CHECK(iRead == iOrgFileSize - iCurPos);
  }
  if (iRead < m_iBlockSize) std::memset(pBuffer + iRead, 0, m_iBlockSize - iRead);
  return true;
}

bool KivFileCache::FetchBlockInto(uint64_t iBlock, KivWinMappedFile& zWork, uint8_t* pBuffer) {
  KivCacheUseFile* const pBase = BaseFile();
  // Without the base's length nobody can say what the block holds.
  if (pBase == nullptr || !pBase->KnowsOrgFileSize()) {
    KIV_FAIL();
    return false;
  }
  if (!GrowStatus(iBlock + 1)) return false;
  const uint64_t iStart = iBlock * m_iBlockSize;
  const uint64_t iOrgFileSize = pBase->GetOrgFileSize();
  const bool bInside = iStart < iOrgFileSize && iOrgFileSize - iStart >= m_iBlockSize;
  const bool bBehind = iStart >= iOrgFileSize;
  const uint32_t iWord = m_vcCacheStatus[iBlock];
  uint32_t iNewWord = bInside ? 1 : 3;
  bool bFromBase = true;
  if (iWord == 2) {
    KIV_FAIL();
    iNewWord = 3;
  } else if (iWord >= 4) {
    const uint64_t k = std::max<uint64_t>((iWord >> 2) - 1, pBase->m_iFirstCache);
    KivFileCache* const pFrom = k < pBase->m_vpCacheSnapShot.size() ? pBase->m_vpCacheSnapShot[k] : nullptr;
    if (k >= pBase->m_vpCacheSnapShot.size()) {
      KIV_FAIL();
      iNewWord = 3;
    } else if (!IsWithSnapShot(iBlock)) {
      // The snapshot's cache is off, and its blocks are gone with it.
      KIV_FAIL();
      iNewWord = 1;
    } else if (iBlock < pFrom->m_vbForeign.size() && pFrom->m_vbForeign[iBlock]) {
      KIV_FAIL();
      return false;
    } else {
      // Half a block must not take the place of what was written before: it stays with the snapshot.
      if (!ReadWorkBlock(*pFrom->m_pzCacheFile, iBlock, pBuffer)) return false;
      iNewWord = (iWord & 2) + 1;
      bFromBase = false;
    }
  }
  if (bFromBase && !ReadBase(iBlock, pBuffer)) return false;
  if (!WriteWork(zWork, iStart, pBuffer, m_iBlockSize)) return false;
  m_vcCacheStatus[iBlock] = iNewWord;
  const uint64_t i = iBlock;
  if (bBehind) KIV_CHECK((m_vcCacheStatus[static_cast<size_t>(i)] & 1) > 0);
  return true;
}

uint64_t KivFileCache::ReadCached(uint64_t iOffset, uint64_t nCount, void* lpBuf) {
  KivWinMappedFile* pWork = GetWorkFile();
  if (pWork == nullptr || nCount == 0) return 0;
  if (!IsInReach(iOffset, nCount) || !m_vbForeign.empty()) {
    KIV_FAIL();
    return 0;
  }
  if (!EnsureCached(iOffset, nCount, *pWork)) return 0;
  return pWork->DoRead(iOffset, lpBuf, nCount);
}

bool KivFileCache::WriteCached(uint64_t iOffset, uint64_t nCount, const void* lpBuf) {
  KivWinMappedFile* pWork = GetWorkFile();
  if (nCount == 0 && pWork != nullptr) return true;
  if (pWork == nullptr || !IsInReach(iOffset, nCount)) {
    KIV_FAIL();
    return false;
  }
  if (!EnsureCached(iOffset, nCount, *pWork)) return false;
  // Marked first: a write that fails half way has changed its blocks too.
  const uint64_t iLast = (iOffset + (nCount - 1)) / m_iBlockSize;
  for (uint64_t i = iOffset / m_iBlockSize; i <= iLast; ++i) m_vcCacheStatus[i] |= 2;
  return WriteWork(*pWork, iOffset, lpBuf, nCount);
}

void KivFileCache::FillCached(uint64_t iOffset, uint64_t nCount, const void* lpBuf) {
  if (nCount == 0) return;
  if (!KIV_CHECK(lpBuf != NULL)) return;
  KivWinMappedFile* pWork = GetWorkFile();
  if (pWork == nullptr || !IsInReach(iOffset, nCount)) {
    KIV_FAIL();
    return;
  }
  const uint64_t iAllocationGranularity = m_iBlockSize;
  if (iOffset == 0) {
    if (!KIV_CHECK(m_vcCacheStatus.empty())) return;
  } else {
    if (!KIV_CHECK(m_vcCacheStatus.size() == 1 + (iOffset - 1) / iAllocationGranularity)) return;
    for (size_t i = 0; i < m_vcCacheStatus.size(); ++i)
      if (!KIV_CHECK(m_vcCacheStatus[i] == 1)) return;
  }
  const auto* pSource = static_cast<const uint8_t*>(lpBuf);
  const uint64_t iEnd = iOffset + nCount;
  while (iOffset < iEnd) {
    const uint64_t nPiece = std::min(iEnd - iOffset, kFillPiece - iOffset % kFillPiece);
    if (!WriteWork(*pWork, iOffset, pSource, nPiece)) return;
    pSource += nPiece;
    iOffset += nPiece;
  }
  const uint64_t nWords = (iEnd - 1) / m_iBlockSize + 1;
  if (m_vcCacheStatus.size() < nWords) m_vcCacheStatus.resize(nWords, 1);
}

// --- Caching ahead --------------------------------------------------------------------------------------------------

bool KivFileCache::IsRangeCached(uint64_t iStart, uint64_t iEnd, uint32_t iPriority) {
  // An empty range inside a block asks for that block, one at a block's start for none.
  const uint64_t iFirst = iStart - iStart % m_iBlockSize;
  if (iFirst >= iEnd) return true;
  if (m_pzOwner == nullptr || !IsInReach(iFirst, iEnd - iFirst)) {
    KIV_FAIL();
    return false;
  }
  if (!GrowStatus((iEnd - 1) / m_iBlockSize + 1)) return false;
  bool bCached = true;
  const uint64_t iLast = (iEnd - 1) / m_iBlockSize;
  for (uint64_t i = iFirst / m_iBlockSize; i <= iLast; ++i) {
    if (m_vcCacheStatus[i] != 0) continue;  // present: nothing to ask for
    const bool bInMemory = m_pzOwner->IsBackGroundReadDone(i);
    bCached = bCached && bInMemory;
    if (iPriority == 0) continue;
    m_dqWanted.push_back(i);
    if (m_dqWanted.size() > kWantedLimit) m_dqWanted.pop_front();
    if (!bInMemory) m_pzOwner->RequestBackGroundRead(i, iPriority);
  }
  return bCached;
}

bool KivFileCache::AdvanceCaching(uint32_t iMilliSeconds) {
  KivWinMappedFile* pWork = GetWorkFile();
  if (pWork == nullptr || m_pzOwner == nullptr) return false;
  const uint64_t iStart = KivGetTimeMs();
  uint64_t iLastReading = iStart;
  while (m_dqWanted.size() > kWantedLimit) m_dqWanted.pop_front();
  const uint64_t nBlocks = m_pzOwner->DoGetLength() / m_iBlockSize;
  if (!GrowStatus(nBlocks + 1)) return false;
  uint64_t nBatch = 1;
  const uint64_t iDeadline = iStart + iMilliSeconds;
  std::vector<uint8_t> vcBlock;
  for (;;) {
    const uint64_t iNow = KivGetTimeMs();
    if (iNow > iDeadline || iNow < iStart) return true;
    if (iNow == iLastReading && nBatch < UINT32_MAX) nBatch *= 2;
    iLastReading = iNow;
    uint64_t nDone = 0;
    while (nDone < nBatch) {
      if (m_iSweptBlocks >= nBlocks) return false;
      const bool bWanted = !m_dqWanted.empty();
      const uint64_t i = bWanted ? m_dqWanted.back() : nBlocks - m_iSweptBlocks - 1;
      if (!GrowStatus(i + 1)) return false;
      const uint32_t iWord = m_vcCacheStatus[i];
      if (iWord == 0 || iWord == 2) {
        if (iWord == 2) KIV_FAIL();
        if (i < nBlocks) {
          vcBlock.resize(m_iBlockSize);
          const uint64_t iAllocationGranularity = m_iBlockSize;
          const uint64_t iRead = m_pzOwner->DoRead(i * m_iBlockSize, vcBlock.data(), iAllocationGranularity);
          KIV_CHECK(iRead == iAllocationGranularity);
          if (iRead < m_iBlockSize) std::memset(vcBlock.data() + iRead, 0, m_iBlockSize - iRead);
          if (WriteWork(*pWork, i * m_iBlockSize, vcBlock.data(), m_iBlockSize))
            m_vcCacheStatus[i] = iWord == 0 ? 1 : 3;
        } else {
          // A block that was asked for and is no whole block of the base file.
          EnsureCached(i * m_iBlockSize, 1, *pWork);
        }
        ++nDone;
      }
      if (bWanted)
        m_dqWanted.pop_back();
      else
        ++m_iSweptBlocks;
    }
  }
}

void KivFileCache::GetCacheStatusMap(double (&adRate)[100]) {
  if (m_pzOwner == nullptr) return;
  const uint64_t nBlocks = m_pzOwner->DoGetLength() / m_iBlockSize;
  if (!GrowStatus(nBlocks + 1)) return;
  for (int i = 0; i < 100; ++i) {
    int nCached = 0;
    for (int k = 0; k < 10; ++k) {
      const double dBlock = std::floor(static_cast<double>(nBlocks) * (10 * i + k) * 0.001);
      if (m_vcCacheStatus[std::min(static_cast<uint64_t>(dBlock), nBlocks)] != 0) ++nCached;
    }
    adRate[99 - i] = 0.1 * nCached;
  }
}

void KivFileCache::CheckFileStatus() const {
  const auto nNotCached = std::count(m_vcCacheStatus.begin(), m_vcCacheStatus.end(), 0U);
  const auto nCached = static_cast<int64_t>(m_vcCacheStatus.size()) - nNotCached;
  const std::string strText = "iCached = " + std::to_string(nCached) + ", iNotCached = " + std::to_string(nNotCached);
  KivLogNumber(0, KivWString(strText.begin(), strText.end()));
}

// --- Patch ----------------------------------------------------------------------------------------------------------

bool KivFileCache::SaveCache(const KivWString& csPath, uint64_t iSize) {
  if (!KIV_CHECK(!IsSnapShotFile())) return false;
  if (m_pzOwner == nullptr || !m_pzOwner->KnowsOrgFileSize() || iSize >= kEndOfOffsets) {
    KIV_FAIL();
    return false;
  }
  const uint64_t iOrgFileSize = m_pzOwner->GetOrgFileSize();
  const auto IsInPatch = [this, iOrgFileSize](uint64_t i) {
    const uint64_t iStart = i * m_iBlockSize;
    const bool bInside = iStart < iOrgFileSize && iOrgFileSize - iStart >= m_iBlockSize;
    return !(i < m_vcCacheStatus.size() && bInside && (m_vcCacheStatus[i] & 2) == 0);
  };
  // What the disk cannot take is refused before it is full.
  const uint64_t nBlocks = iSize / m_iBlockSize + (iSize % m_iBlockSize != 0 ? 1 : 0);
  const uint64_t nWithWord = std::min<uint64_t>(nBlocks, m_vcCacheStatus.size());
  uint64_t nRecords = nBlocks - nWithWord;
  uint64_t nFetches = nRecords;
  for (uint64_t i = 0; i < nWithWord; ++i) {
    if (!IsInPatch(i)) continue;
    ++nRecords;
    if (!HasOwn(i)) ++nFetches;
  }
  KivWinMappedFile* const pWork = GetWorkFile();
  if (pWork == nullptr || !pWork->HasRoomFor(nFetches * m_iBlockSize)) {
    KIV_FAIL();
    return false;
  }
  KivSysOpenMode zMode;
  zMode.m_iAccess = KivSysAccess::ReadWrite;
  zMode.m_iShare = KivSysShare::None;
  zMode.m_iDisposition = KivSysDisposition::CreateAlways;
  zMode.m_iFlags = KivSysFileFlags::RandomAccess;
  KivSysFile hFile = KivSysFile::Open(csPath, zMode);
  if (!hFile.IsOpen()) {
    KIV_FAIL();
    return false;
  }
  const KivSharedPtr<ISnapShotFile> pzPatch = KivCreateFile(std::move(hFile));
  auto* pPatch = dynamic_cast<KivWinFile*>(pzPatch.Get());
  if (pPatch == nullptr || !pPatch->HasRoomFor(nRecords * m_iBlockSize)) {
    KIV_FAIL();
    return false;
  }
  std::vector<uint8_t> vcRecord(16 + m_iBlockSize);
  uint64_t iCursor = 0;
  for (uint64_t i = 0; i < nBlocks; ++i) {
    if (!IsInPatch(i)) continue;
    const uint64_t iStart = i * m_iBlockSize;
    const uint64_t nLength = std::min(iSize - iStart, m_iBlockSize);
    const uint64_t iRead = ReadCached(iStart, nLength, vcRecord.data() + 16);
    if (iRead == 0) continue;
    if (iRead < nLength) std::memset(vcRecord.data() + 16 + iRead, 0, nLength - iRead);
    KivStore<uint64_t>(vcRecord.data(), i);
    KivStore<uint64_t>(vcRecord.data() + 8, iRead);
    pzPatch->Write(iCursor, vcRecord.data(), 16 + nLength);
    if (pPatch->TakeWriteFailure()) return false;
    iCursor += 16 + nLength;
  }
  return true;
}

}  // namespace kiv
