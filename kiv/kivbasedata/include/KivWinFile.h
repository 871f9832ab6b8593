// A file on a handle that the caller opened, with a fallback for large reads that fail and an optional background
// reader that pulls the whole file into memory.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <vector>

#include "KivCacheUseFile.h"
#include "KivSysFile.h"
#include "KivSysThread.h"

namespace kiv {

// What a file and its reader thread share. Block b lies in chunk b / 10 at (b % 10) * m_iBlockSize.
struct KivWinFileBackGroundReadInfo {
  KivSysSharedLock m_zLock;                   // guards everything below but the handle
  std::atomic<bool> m_bThreadRunning{false};  // cleared by the reader as its last step
  bool m_bStopThread = false;
  KivSysFile m_hBackGroundFile;  // the reader's own handle; not open: no background reads at all
  uint64_t m_iFileSize = 0;      // at construction
  uint64_t m_iBlockSize = 0x10000;
  uint64_t m_iBlockCount = 0;
  std::deque<uint64_t> m_dqUrgent;      // served first, from the back
  std::deque<uint64_t> m_dqIdle;        // served second, from the back; 100 at most
  std::vector<uint8_t> m_vcBlockState;  // 0 nothing, 1 queued urgent, 2 queued idle, 3 in memory
  std::map<uint64_t, std::vector<uint8_t>> m_mapChunks;
};

// Holds the lock for its lifetime, exclusively or shared.
class KivWinFileBackGroundReadInfoEditor {
 public:
  KivWinFileBackGroundReadInfoEditor(bool bExclusive, KivSysSharedLock& zLock)
      : m_bExclusive(bExclusive), m_zLock(zLock) {
    if (m_bExclusive)
      m_zLock.lock();
    else
      m_zLock.lock_shared();
  }
  ~KivWinFileBackGroundReadInfoEditor() {
    if (m_bExclusive)
      m_zLock.unlock();
    else
      m_zLock.unlock_shared();
  }
  KivWinFileBackGroundReadInfoEditor(const KivWinFileBackGroundReadInfoEditor&) = delete;
  KivWinFileBackGroundReadInfoEditor& operator=(const KivWinFileBackGroundReadInfoEditor&) = delete;

 private:
  const bool m_bExclusive;
  KivSysSharedLock& m_zLock;
};

class KivWinFile : public KivCacheUseFile {
 public:
  // An object for CreateInstance: read-only, cache on, no handle.
  KivWinFile();
  // hFileForBackGroundRead is a second handle of the same file, or one that is not open. A writable file takes none.
  KivWinFile(KivSysFile hFile, bool bReadOnly, bool bEnableCache, KivSysFile hFileForBackGroundRead);
  // Waits for the reader to end.
  ~KivWinFile() override;

  // iPriority: 1 idle, 2 urgent behind all that is urgent, 3 urgent and next; 0 is reported. The first request starts
  // the reader.
  void RequestBackGroundRead(uint64_t iBlock, uint32_t iPriority) override;
  bool IsBackGroundReadDone(uint64_t iBlock) override;

  KivFile* CopyToSnapShot(KivFile* pSnapShot_arg) override;
  int32_t RestoreFromUndo(KivFile* pUndo_arg) override;
  KivFile* CreateInstance() override;
  uint64_t DoRead(uint64_t iOffset, void* lpBuf, uint64_t nCount) override;
  void DoWrite(uint64_t iOffset, const void* lpBuf, uint64_t nCount) override;
  void DoWriteZero(uint64_t iOffset, uint64_t nCount) override;
  bool DoSetLength(uint64_t iLength) override;
  void DoFlush() override;
  uint64_t DoGetLength() override;

  // For readers that keep a delete-on-close file open between uses: see KivSysFile.
  bool IsStillThere(uint64_t& iLength) const { return m_hFile.IsStillThere(iLength); }

  // True once after a write that the device or its view did not take whole, for a host whose reports return.
  bool TakeWriteFailure();
  // True once after a read with a piece that failed and reads as zeros.
  bool TakeReadFailure();
  // False if the file's disk surely cannot take nMore bytes. Up to 16 MiB nobody asks the disk.
  bool HasRoomFor(uint64_t nMore) const;

 protected:
  bool HasBackGroundFile() const { return m_bHasBackGroundFile; }

  KivSysFile m_hFile;           // not open in a snapshot
  bool m_bWriteFailed = false;  // for TakeWriteFailure
  bool m_bReadFailed = false;   // for TakeReadFailure

 private:
  friend struct KivWinFileTestAccess;
  uint64_t ReadInPieces(uint64_t iOffset, uint8_t* pBuffer, uint64_t nCount, uint64_t iPos);
  void ReportPiece(uint64_t iOffset, uint64_t nCount, uint64_t iPos, uint64_t iToRead, uint64_t nRead, int32_t iError,
                   int32_t iFirstError);
  uint64_t ReadWithBackGround(uint64_t iOffset, uint8_t* pBuffer, uint64_t nCount);
  // Part of one block, from memory or from the device. The lock is held, so that nothing is reported here: nFailed
  // counts the device's failures.
  uint64_t ReadBlockPart(uint64_t iBlock, uint64_t iInBlock, uint8_t* pBuffer, uint64_t nCount, uint32_t& nFailed);
  bool StartReader();
  void QueueBlock(uint64_t iBlock, uint32_t iPriority);

  bool m_bHasBackGroundFile = false;
  KivWinFileBackGroundReadInfo m_zBackGroundReadInfo;
};

}  // namespace kiv
