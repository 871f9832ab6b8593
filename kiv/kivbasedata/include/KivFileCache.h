// The block cache of one file: a sparse work file and a status word for each block.
//
// Block i covers the bytes from i * KivGetAllocationGranularity(). Its status word:
//
//   0              not cached: the base file holds the block
//   bit 0          the block lies in this cache's own work file
//   bit 1          the block differs from the base file: it was written, or reaches behind the base file's end
//   4 and above,   the block lies in the work file of a snapshot: (word >> 2) - 1 is its index, raised to the oldest
//   bit 0 clear    whose blocks have not moved on; bit 1 as above
//
// A missing word counts as 0. A 2 cannot be; where found it is reported and counts as 0.
//
// One thread at a time. A snapshot's cache keeps the work file of its moment.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <vector>

#include "KivSysText.h"

namespace kiv {

class KivCacheUseFile;
class KivWinMappedFile;

class KivFileCache {
 public:
  explicit KivFileCache(KivCacheUseFile* pzOwner);
  virtual ~KivFileCache();
  KivFileCache(const KivFileCache&) = delete;
  KivFileCache& operator=(const KivFileCache&) = delete;

  // The work file, opened if there is none; null after a report if it cannot be.
  KivWinMappedFile* GetWorkFile();
  bool HasWorkFile() const { return m_pzCacheFile != nullptr; }
  uint64_t GetWorkLength();
  void FlushWork();

  // 0 when the blocks cannot be had; else all of nCount, also behind the end of the file. Only in the last block that
  // FillCached has brought so far a read ends where the bytes do.
  uint64_t ReadCached(uint64_t iOffset, uint64_t nCount, void* lpBuf);
  bool WriteCached(uint64_t iOffset, uint64_t nCount, const void* lpBuf);
  // Stores bytes that arrive in order from the start of the file. Reports what is out of order and stores nothing.
  void FillCached(uint64_t iOffset, uint64_t nCount, const void* lpBuf);
  bool IsRangeCached(uint64_t iStart, uint64_t iEnd, uint32_t iPriority);
  bool AdvanceCaching(uint32_t iMilliSeconds);
  void GetCacheStatusMap(double (&adRate)[100]);
  // Writes the blocks that a patch needs, in ascending order:
  //   OFFSET   SIZE   FIELD
  //   0        8      block number
  //   8        8      count of bytes, 1 to the block size
  //   16       L      the block's bytes
  bool SaveCache(const KivWString& csPath, uint64_t iSize);
  void CheckFileStatus() const;

  // The ranges that a cache takes: no end at or behind 2^63, and none more than 1 TiB behind all that is known.
  bool IsInReach(uint64_t iOffset, uint64_t nCount);
  // False if the disk cannot take the blocks of this range, not empty, that the work file does not hold yet.
  bool HasRoomFor(uint64_t iOffset, uint64_t nCount);
  // True if the block's word names a snapshot and that one, or the one that took its blocks over, has it; of those at
  // iFrom and behind.
  bool IsWithSnapShot(uint64_t iBlock, uint64_t iFrom = 0) const;

  // The new cache takes the work file over; this one goes on in a fresh one. Null after a report, and nothing is
  // changed.
  std::unique_ptr<KivFileCache> CreateSnapShot();
  // Undoes CreateSnapShot before anything else was done.
  void TakeBack(KivFileCache& zSnapShot);
  // Goes back to a snapshot's state with an empty work file. False, after a report, with nothing changed.
  bool RestoreFrom(const KivFileCache& zUndo);
  // Moves the blocks of this snapshot's cache, the oldest, into the next one: the two swap work files. False, after a
  // report, with the next one as it was; this one then has lost blocks and reports when it is read or restored, until
  // a later call comes to its end.
  bool MergeCacheSnapShot(KivFileCache& zNext);
  bool IsSnapShotFile() const { return m_bSnapShot; }

  KivCacheUseFile* m_pzOwner;  // the device side; null when it has gone before its snapshot
  std::unique_ptr<KivWinMappedFile> m_pzCacheFile;
  std::vector<uint32_t> m_vcCacheStatus;
  std::deque<uint64_t> m_dqWanted;                         // blocks that IsRangeCached asked for, newest at the back
  uint64_t m_iSweptBlocks = 0;                             // how far the sweep of AdvanceCaching has come, from the end
  std::vector<std::vector<uint32_t>*> m_vpSnapShotStatus;  // status words of each snapshot
  KivFileCache* m_pOriginal = nullptr;                     // in a snapshot: the cache that it came from

 private:
  std::unique_ptr<KivWinMappedFile> OpenWorkFile(uint64_t iSize);
  KivCacheUseFile* BaseFile() const;
  bool EnsureCached(uint64_t iOffset, uint64_t nCount, KivWinMappedFile& zWork);
  bool FetchBlock(uint64_t iBlock, KivWinMappedFile& zWork);
  bool FetchBlockInto(uint64_t iBlock, KivWinMappedFile& zWork, uint8_t* pBuffer);
  // Fills one block from the base file; zeros behind what it gives.
  bool ReadBase(uint64_t iBlock, uint8_t* pBuffer);
  // A whole block of a work file. False, after a report, if it could not be read.
  bool ReadWorkBlock(KivWinMappedFile& zWork, uint64_t iBlock, uint8_t* pBuffer) const;
  // False if the device did not take all of it, in a host whose reports return.
  bool WriteWork(KivWinMappedFile& zWork, uint64_t iOffset, const void* lpBuf, uint64_t nCount);
  // False after a report: words for more than 4 TiB, which only the length of an empty file can claim, or no memory.
  bool GrowStatus(uint64_t nWords);
  bool HasOwn(uint64_t iBlock) const { return iBlock < m_vcCacheStatus.size() && (m_vcCacheStatus[iBlock] & 1) != 0; }
  // A last block that FillCached left short becomes whole, with zeros.
  bool CompleteLastBlock();
  // Status words as the live cache holds them after a snapshot: its own blocks now lie with snapshot iBase.
  std::vector<uint32_t> WordsBehindSnapShot(const std::vector<uint32_t>& vcStatus, int32_t iBase) const;

  bool m_bSnapShot = false;
  std::vector<bool> m_vbForeign;  // blocks that a merge overwrote with those of the next snapshot; empty without one
  uint64_t m_iBlockSize;
  uint64_t m_iWorkLength = 0;
  bool m_bWorkLengthKnown = false;
};

}  // namespace kiv
