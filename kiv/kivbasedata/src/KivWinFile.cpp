#include "KivWinFile.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>
#include <string>
#include <utility>

#include "KivDataUtil.h"
#include "KivException.h"
#include "KivFile_Zero.h"
#include "KivSysClock.h"

namespace kiv {
namespace {

constexpr uint64_t kMostBlocks = uint64_t{1} << 26;  // that a background reader keeps states of: 4 TiB
constexpr char kSource[] = "src\\KivWinFile";
constexpr uint64_t kMaxTransfer = 0x10000000;  // one transfer takes a 32-bit count
constexpr uint64_t kSmallCount = 0x10000;
constexpr uint64_t kEndOfOffsets = uint64_t{1} << 63;
constexpr uint64_t kSmallRoom = 0x1000000;
constexpr uint64_t kBlocksPerChunk = 10;
constexpr uint64_t kBlocksPerRead = 5;
constexpr size_t kIdleLimit = 100;
constexpr uint32_t kReaderStack = 0x100000;
constexpr uint32_t kNothingToSweepMs = 50;

enum BlockState : uint8_t { kNothing = 0, kUrgent = 1, kIdle = 2, kInMemory = 3 };

using Info = KivWinFileBackGroundReadInfo;
using Editor = KivWinFileBackGroundReadInfoEditor;

uint8_t* BlockInChunk(Info& zInfo, uint64_t iBlock) {
  std::vector<uint8_t>& vcChunk = zInfo.m_mapChunks[iBlock / kBlocksPerChunk];
  if (vcChunk.empty()) vcChunk.resize(kBlocksPerChunk * zInfo.m_iBlockSize);
  return vcChunk.data() + iBlock % kBlocksPerChunk * zInfo.m_iBlockSize;
}

// The entry that was served leaves its queue: it is at the back, or in front of those that were pushed meanwhile.
void DropServed(std::deque<uint64_t>& dqBlocks, uint64_t iBlock) {
  const auto pFound = std::find(dqBlocks.rbegin(), dqBlocks.rend(), iBlock);
  if (pFound != dqBlocks.rend()) dqBlocks.erase(std::next(pFound).base());
}

// The reader's work. Its file is prefetched from the end towards the start when nobody asks for anything.
class Reader {
 public:
  explicit Reader(Info& zInfo) : m_zInfo(zInfo) {
    const Editor zLock(false, m_zInfo.m_zLock);
    m_nBlockSize = m_zInfo.m_iBlockSize;
    m_iSweep = static_cast<int64_t>(m_zInfo.m_iBlockCount) - 1;
    m_vcBuffer.resize(kBlocksPerRead * m_nBlockSize);
  }

  void Run() {
    for (;;) {
      bool bUrgent = false;
      bool bWork = false;
      {
        const Editor zLock(false, m_zInfo.m_zLock);
        bUrgent = !m_zInfo.m_dqUrgent.empty();
        bWork = bUrgent || !m_zInfo.m_dqIdle.empty();
        KivSetReadQueueSizes(static_cast<uint32_t>(m_zInfo.m_dqUrgent.size()),
                             static_cast<uint32_t>(m_zInfo.m_dqIdle.size()));
        if (m_zInfo.m_bStopThread) return;
      }
      if (!bWork && !Sweep()) {
        if (m_iSweep < 0) sys::SleepMs(kNothingToSweepMs);
        sys::SleepMs(0);
        continue;
      }
      if (Serve(bUrgent)) sys::SleepMs(0);
    }
  }

 private:
  // Queues up to five blocks that nobody asked for; false if it found none.
  bool Sweep() {
    const Editor zLock(true, m_zInfo.m_zLock);
    bool bQueued = false;
    for (uint64_t i = 0; i < kBlocksPerRead; ++i) {
      if (m_iSweep >= 0) {
        uint8_t& iState = m_zInfo.m_vcBlockState[static_cast<size_t>(m_iSweep)];
        if (iState == kNothing || iState == kIdle) {
          iState = kIdle;
          m_zInfo.m_dqIdle.push_front(static_cast<uint64_t>(m_iSweep));
          bQueued = true;
        }
      }
      --m_iSweep;
    }
    return bQueued;
  }

  // Reads the next blocks of a queue; false if its newest entry needs nothing any more.
  bool Serve(bool bUrgent) {
    std::deque<uint64_t>& dqBlocks = bUrgent ? m_zInfo.m_dqUrgent : m_zInfo.m_dqIdle;
    const uint8_t iState = bUrgent ? kUrgent : kIdle;
    uint64_t iBlock = 0;
    uint64_t nBlocks = 0;
    {
      const Editor zLock(false, m_zInfo.m_zLock);
      if (dqBlocks.empty()) return false;
      iBlock = dqBlocks.back();
      while (nBlocks < kBlocksPerRead && iBlock + nBlocks < m_zInfo.m_iBlockCount &&
             m_zInfo.m_vcBlockState[iBlock + nBlocks] == iState)
        ++nBlocks;
    }
    if (nBlocks == 0) {
      const Editor zLock(true, m_zInfo.m_zLock);
      DropServed(dqBlocks, iBlock);
      return false;
    }
    uint32_t nRead = 0;
    const bool bRead = m_zInfo.m_hBackGroundFile.ReadAt(iBlock * m_nBlockSize, m_vcBuffer.data(),
                                                        static_cast<uint32_t>(nBlocks * m_nBlockSize), nRead);
    const Editor zLock(true, m_zInfo.m_zLock);
    for (uint64_t i = 0; bRead && i < nBlocks; ++i) {
      // A block counts when all of it came, or all that the file holds of it.
      const uint64_t iEnd = std::min((iBlock + i + 1) * m_nBlockSize, m_zInfo.m_iFileSize);
      if (iBlock * m_nBlockSize + nRead < iEnd) break;
      std::memcpy(BlockInChunk(m_zInfo, iBlock + i), m_vcBuffer.data() + i * m_nBlockSize, m_nBlockSize);
      m_zInfo.m_vcBlockState[iBlock + i] = kInMemory;
    }
    DropServed(dqBlocks, iBlock);
    return true;
  }

  Info& m_zInfo;
  uint64_t m_nBlockSize = 0;
  int64_t m_iSweep = -1;
  std::vector<uint8_t> m_vcBuffer;
};

void RunReader(Info& zInfo) noexcept {
  try {
    Reader(zInfo).Run();
  } catch (...) {
    // Out of memory: the file is read directly from here on.
  }
  {
    // Whoever set the stop flag has left the lock when this one is through.
    const Editor zLock(true, zInfo.m_zLock);
    zInfo.m_hBackGroundFile.Close();
  }
  zInfo.m_bThreadRunning.store(false, std::memory_order_release);
}

}  // namespace

KivWinFile::KivWinFile() : KivCacheUseFile(true, true) {}

KivWinFile::KivWinFile(KivSysFile hFile, bool bReadOnly, bool bEnableCache, KivSysFile hFileForBackGroundRead)
    : KivCacheUseFile(bReadOnly, bEnableCache), m_hFile(std::move(hFile)) {
  KIV_CHECK_AS(m_hFile.IsOpen(), "m_hFile != INVALID_HANDLE_VALUE");
  KIV_CHECK_AS(bReadOnly || !hFileForBackGroundRead.IsOpen(),
               "bReadOnly || hFileForBackGroundRead == INVALID_HANDLE_VALUE");
  Info& zInfo = m_zBackGroundReadInfo;
  zInfo.m_hBackGroundFile = std::move(hFileForBackGroundRead);
  m_bHasBackGroundFile = zInfo.m_hBackGroundFile.IsOpen();
  if (!m_bHasBackGroundFile) return;
  zInfo.m_iFileSize = DoGetLength();
  zInfo.m_iBlockSize = KivGetAllocationGranularity();
  const uint64_t nBlocks =
      zInfo.m_iFileSize / zInfo.m_iBlockSize + (zInfo.m_iFileSize % zInfo.m_iBlockSize != 0 ? 1 : 0);
  if (m_bLengthUnknown || nBlocks > kMostBlocks) {
    // Nothing is known of its blocks, or a length alone would claim their states: the file goes on without a reader.
    m_bHasBackGroundFile = false;
    zInfo.m_hBackGroundFile.Close();
    return;
  }
  zInfo.m_iBlockCount = nBlocks;
  zInfo.m_vcBlockState.resize(zInfo.m_iBlockCount);
}

KivWinFile::~KivWinFile() {
  m_hFile.Close();
  Info& zInfo = m_zBackGroundReadInfo;
  if (!zInfo.m_bThreadRunning.load(std::memory_order_acquire)) return;
  {
    const Editor zLock(true, zInfo.m_zLock);
    zInfo.m_bStopThread = true;
  }
  while (zInfo.m_bThreadRunning.load(std::memory_order_acquire)) sys::SleepMs(0);
}

bool KivWinFile::TakeWriteFailure() {
  return std::exchange(m_bWriteFailed, false);
}

bool KivWinFile::TakeReadFailure() {
  return std::exchange(m_bReadFailed, false);
}

// --- Snapshots ------------------------------------------------------------------------------------------------------

KivFile* KivWinFile::CopyToSnapShot(KivFile* pSnapShot_arg) {
  std::unique_ptr<KivFile> pzNew;
  if (pSnapShot_arg == nullptr) {
    pzNew.reset(CreateInstance());
    pSnapShot_arg = pzNew.get();
  }
  auto* pSnapShot = dynamic_cast<KivWinFile*>(KivCacheUseFile::CopyToSnapShot(pSnapShot_arg));
  if (pSnapShot == nullptr) return nullptr;
  pzNew.release();
  return pSnapShot;
}

int32_t KivWinFile::RestoreFromUndo(KivFile* pUndo_arg) {
  auto* pUndo = dynamic_cast<KivWinFile*>(pUndo_arg);
  if (pUndo == nullptr) {
    KIV_FAIL();
    return KivRestoreNoSnapShot;
  }
  if (KivCacheUseFile::RestoreFromUndo(pUndo) != KivRestoreDone) {
    KIV_FAIL();
    return KivRestoreBaseFailed;
  }
  KIV_CHECK_AS(m_hFile.IsOpen(), "m_hFile != INVALID_HANDLE_VALUE");
  return KivRestoreDone;
}

KivFile* KivWinFile::CreateInstance() {
  return new KivWinFile;
}

// --- Reading --------------------------------------------------------------------------------------------------------

uint64_t KivWinFile::DoRead(uint64_t iOffset, void* lpBuf, uint64_t nCount) {
  auto* const pBuffer = static_cast<uint8_t*>(lpBuf);
  if (m_bHasBackGroundFile) return ReadWithBackGround(iOffset, pBuffer, nCount);
  // Pieces behind the last offset would come from the start of the file.
  if (nCount > kEndOfOffsets || iOffset > kEndOfOffsets - nCount) {
    KIV_FAIL();
    return 0;
  }
  uint64_t iPos = 0;
  do {
    const auto nPiece = static_cast<uint32_t>(std::min(nCount - iPos, kMaxTransfer));
    uint32_t nRead = 0;
    const bool iRet = m_hFile.ReadAt(iOffset + iPos, pBuffer + iPos, nPiece, nRead);
    if (!iRet) {
      if (nRead == 0 || nRead != nPiece) return ReadInPieces(iOffset, pBuffer, nCount, iPos);
      KIV_CHECK_AS(iRet, "iRet != 0");
    }
    iPos += nRead;
    if (nRead < nPiece) break;
  } while (iPos < nCount);
  return iPos;
}

// A large single read can fail where small ones work.
uint64_t KivWinFile::ReadInPieces(uint64_t iOffset, uint8_t* pBuffer, uint64_t nCount, uint64_t iPos) {
  const int32_t iFirstError = sys::LastError();
  while (iPos < nCount) {
    const uint64_t iToRead = std::min(nCount - iPos, kSmallCount);
    uint32_t nRead = 0;
    if (!m_hFile.ReadAt(iOffset + iPos, pBuffer + iPos, static_cast<uint32_t>(iToRead), nRead)) {
      m_bReadFailed = true;
      ReportPiece(iOffset, nCount, iPos, iToRead, nRead, sys::LastError(), iFirstError);
      std::memset(pBuffer + iPos, 0, iToRead);
    } else if (nRead < iToRead) {
      return iPos + nRead;
    }
    iPos += iToRead;
  }
  return iPos;
}

void KivWinFile::ReportPiece(uint64_t iOffset, uint64_t nCount, uint64_t iPos, uint64_t iToRead, uint64_t nRead,
                             int32_t iError, int32_t iFirstError) {
  uint64_t iFileLength = 0;
  m_hFile.GetLength(iFileLength);
  KivSysCommTimeouts zTimeouts;
  int32_t iError2 = 0;
  if (!m_hFile.GetCommTimeouts(zTimeouts)) {
    iError2 = sys::LastError();
    zTimeouts = {};
  }
  const auto Number = [](uint64_t iValue) { return std::to_string(static_cast<int64_t>(iValue)); };
  std::string strText = "iOffset=" + Number(iOffset) + ", nCount=" + Number(nCount) + ", iPos=" + Number(iPos) +
                        ", iToRead=" + Number(iToRead) + ", liNumberOfBytesRead=" + Number(nRead) +
                        ", iSmallCount=" + Number(kSmallCount) + ", iError=" + std::to_string(iError) +
                        ", iFileLength=" + Number(iFileLength) + ", iError2=" + std::to_string(iError2) +
                        ", iError3=" + std::to_string(iFirstError) +
                        ", ReadIntervalTimeout=" + std::to_string(zTimeouts.m_iReadInterval) +
                        ", ReadTotalTimeoutMultiplier=" + std::to_string(zTimeouts.m_iReadTotalMultiplier) +
                        ", ReadTotalTimeoutConstant=" + std::to_string(zTimeouts.m_iReadTotalConstant);
  // The misspelling is part of the text.
  strText += " : FileNeme==" + sys::WideToUtf8(m_hFile.GetName());
  KivReportFailure(strText.c_str(), kSource, __LINE__);
}

uint64_t KivWinFile::ReadWithBackGround(uint64_t iOffset, uint8_t* pBuffer, uint64_t nCount) {
  uint32_t nFailed = 0;
  uint64_t nDone = 0;
  {
    Info& zInfo = m_zBackGroundReadInfo;
    const Editor zLock(false, zInfo.m_zLock);
    uint64_t iBlock = iOffset / zInfo.m_iBlockSize;
    uint64_t iInBlock = iOffset % zInfo.m_iBlockSize;
    do {
      if (iBlock >= zInfo.m_iBlockCount) break;
      const uint64_t nPart = std::min(zInfo.m_iBlockSize - iInBlock, nCount - nDone);
      const uint64_t nRead = ReadBlockPart(iBlock, iInBlock, pBuffer + nDone, nPart, nFailed);
      nDone += nRead;
      if (nRead < nPart) break;
      ++iBlock;
      iInBlock = 0;
    } while (nDone < nCount);
  }
  // A report may take long, and who hears of it may ask this file again.
  for (uint32_t i = 0; i < nFailed; ++i) KivReportFailure("iRet != 0", kSource, __LINE__);
  return nDone;
}

uint64_t KivWinFile::ReadBlockPart(uint64_t iBlock, uint64_t iInBlock, uint8_t* pBuffer, uint64_t nCount,
                                   uint32_t& nFailed) {
  const Info& zInfo = m_zBackGroundReadInfo;
  const uint64_t iStart = iBlock * zInfo.m_iBlockSize + iInBlock;
  if (zInfo.m_vcBlockState[iBlock] == kInMemory) {
    // The last block is whole in memory; what lies behind the file's end is not given out.
    const uint64_t nHeld = std::min(nCount, zInfo.m_iFileSize - std::min(iStart, zInfo.m_iFileSize));
    const auto pChunk = zInfo.m_mapChunks.find(iBlock / kBlocksPerChunk);
    if (pChunk == zInfo.m_mapChunks.end() || pChunk->second.empty())
      std::memset(pBuffer, 0, nHeld);  // as an empty chunk
    else
      std::memcpy(pBuffer, pChunk->second.data() + iBlock % kBlocksPerChunk * zInfo.m_iBlockSize + iInBlock, nHeld);
    return nHeld;
  }
  uint32_t nRead = 0;
  if (!m_hFile.ReadAt(iStart, pBuffer, static_cast<uint32_t>(nCount), nRead)) ++nFailed;
  return nRead;
}

// --- Writing --------------------------------------------------------------------------------------------------------

void KivWinFile::DoWrite(uint64_t iOffset, const void* lpBuf, uint64_t nCount) {
  KIV_CHECK_AS(m_hFile.IsOpen(), "m_hFile != INVALID_HANDLE_VALUE");
  if (m_bReadOnly) KIV_FAIL();
  const auto* pSource = static_cast<const uint8_t*>(lpBuf);
  do {
    const auto nPiece = static_cast<uint32_t>(std::min(nCount, kMaxTransfer));
    uint32_t nWritten = 0;
    const bool iRet = m_hFile.WriteAt(iOffset, pSource, nPiece, nWritten);
    if (!iRet || nWritten != nPiece) m_bWriteFailed = true;
    KIV_CHECK_AS(iRet, "iRet != 0");
    if (!KIV_CHECK_AS(nWritten == nPiece, "liNumberOfBytesWritten == (size_t)nCount")) return;
    pSource += nPiece;
    iOffset += nPiece;
    nCount -= nPiece;
  } while (nCount != 0);
}

bool KivWinFile::HasRoomFor(uint64_t nMore) const {
  uint64_t nFree = 0;
  return nMore <= kSmallRoom || !m_hFile.GetDiskRoom(nFree) || nMore <= nFree;
}

void KivWinFile::DoWriteZero(uint64_t iOffset, uint64_t nCount) {
  if (nCount == 0) return;
  KIV_CHECK_AS(m_hFile.IsOpen(), "m_hFile != INVALID_HANDLE_VALUE");
  if (m_bReadOnly) KIV_FAIL();
  // A count that the disk cannot take is refused before the disk is full.
  bool bPossible = nCount <= kEndOfOffsets && iOffset <= kEndOfOffsets - nCount;
  if (bPossible && nCount > kSmallRoom) {
    uint64_t iLength = 0;
    m_hFile.GetLength(iLength);
    const uint64_t iEnd = iOffset + nCount;
    bPossible = iEnd <= iLength || HasRoomFor(iEnd - std::max(iOffset, iLength));
  }
  if (!bPossible) {
    m_bWriteFailed = true;
    KIV_FAIL();
    return;
  }
  while (nCount != 0) {
    const auto nPiece = static_cast<uint32_t>(std::min(nCount, kKivZeroBytes));
    uint32_t nWritten = 0;
    const bool iRet = m_hFile.WriteAt(iOffset, g_acKivZero, nPiece, nWritten);
    if (!iRet || nWritten != nPiece) m_bWriteFailed = true;
    KIV_CHECK_AS(iRet, "iRet != 0");
    if (!KIV_CHECK_AS(nWritten == nPiece, "liNumberOfBytesWritten == (size_t)nCount")) return;
    iOffset += nPiece;
    nCount -= nPiece;
  }
}

bool KivWinFile::DoSetLength(uint64_t iLength) {
  uint64_t iNow = 0;
  if (!m_hFile.SetLength(iLength) || !m_hFile.GetLength(iNow) || iNow != iLength) KIV_FAIL();
  return true;
}

void KivWinFile::DoFlush() {
  if (!m_hFile.IsOpen()) {
    KIV_CHECK(IsSnapShotFile());
    return;
  }
  if (!m_hFile.Flush()) m_bWriteFailed = true;  // no report: a flush makes none
}

uint64_t KivWinFile::DoGetLength() {
  if (!m_hFile.IsOpen()) {
    KIV_CHECK(IsSnapShotFile());
    return 0;
  }
  uint64_t iLength = 0;
  if (!m_hFile.GetLength(iLength)) {
    m_bLengthUnknown = true;
    KIV_FAIL();
    return 0;
  }
  m_bLengthUnknown = false;
  return iLength;
}

// --- Background reads -----------------------------------------------------------------------------------------------

bool KivWinFile::StartReader() {
  Info& zInfo = m_zBackGroundReadInfo;
  zInfo.m_bThreadRunning.store(true, std::memory_order_release);
  Info* const pzInfo = &zInfo;
  if (sys::StartThread([pzInfo] { RunReader(*pzInfo); }, kReaderStack)) return true;
  zInfo.m_bThreadRunning.store(false, std::memory_order_release);
  return false;
}

void KivWinFile::RequestBackGroundRead(uint64_t iBlock, uint32_t iPriority) {
  if (iPriority == 0) {
    KIV_FAIL();
    return;
  }
  Info& zInfo = m_zBackGroundReadInfo;
  bool bRunning = true;
  {
    const Editor zLock(true, zInfo.m_zLock);
    // A reader that ran out of memory has closed its handle: the file is read directly from then on.
    if (!m_bHasBackGroundFile || !zInfo.m_hBackGroundFile.IsOpen() || iBlock >= zInfo.m_iBlockCount) return;
    bRunning = zInfo.m_bThreadRunning.load(std::memory_order_acquire) || StartReader();
    QueueBlock(iBlock, iPriority);
  }
  if (!bRunning) KIV_FAIL();
}

// The lock is held exclusively.
void KivWinFile::QueueBlock(uint64_t iBlock, uint32_t iPriority) {
  Info& zInfo = m_zBackGroundReadInfo;
  uint8_t& iState = zInfo.m_vcBlockState[iBlock];
  if (iPriority == 3) {
    if (iState == kInMemory) return;
    // Asked for again and again, a block stands at the back once.
    if (iState == kUrgent) {
      if (!zInfo.m_dqUrgent.empty() && zInfo.m_dqUrgent.back() == iBlock) return;
      std::erase(zInfo.m_dqUrgent, iBlock);
    }
    zInfo.m_dqUrgent.push_back(iBlock);  // before the state: without memory the block can be asked for again
    iState = kUrgent;
  } else if (iPriority == 2) {
    if (iState != kNothing && iState != kIdle) return;
    zInfo.m_dqUrgent.push_front(iBlock);
    iState = kUrgent;
  } else {
    if (iState == kUrgent || iState == kInMemory) return;
    zInfo.m_dqIdle.push_back(iBlock);
    iState = kIdle;
    while (zInfo.m_dqIdle.size() > kIdleLimit) zInfo.m_dqIdle.pop_front();
  }
}

bool KivWinFile::IsBackGroundReadDone(uint64_t iBlock) {
  Info& zInfo = m_zBackGroundReadInfo;
  const Editor zLock(false, zInfo.m_zLock);
  return m_bHasBackGroundFile && iBlock < zInfo.m_iBlockCount && zInfo.m_vcBlockState[iBlock] == kInMemory;
}

}  // namespace kiv
