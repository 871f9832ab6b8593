// A file whose read-only form takes writes and snapshots: blocks go through a private copy-on-write cache, and the
// device below is never written. See docs/file_layers.md.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "KivFileCache.h"
#include "KivHistoryFile.h"

namespace kiv {

class KivCacheUseFile : public KivHistoryFile {
 public:
  KivCacheUseFile(bool bReadOnly, bool bEnableCache) : KivHistoryFile(bReadOnly), m_bEnableCache(bEnableCache) {}
  ~KivCacheUseFile() override;

  // The first call fetches up to all of the base file, from its end towards its start; the last, partial block is left
  // out unless it was asked for.
  bool AdvanceCaching(uint32_t iMilliSeconds) override;
  void GetCacheStatusMap(double (&adRate)[100]) override;
  bool SaveCache(const KivWString& csPath, uint64_t iSize) override;
  bool LoadCache(const KivWString& csPath) override;
  bool IsCacheEnabled() override { return m_bEnableCache; }
  void DisableCache() override;
  void CheckFileStatus() override;
  bool IsRangeCached(uint64_t iStart, uint64_t iEnd, uint32_t iPriority) override;

  KivFile* CopyToSnapShot(KivFile* pSnapShot_arg) override;
  int32_t RestoreFromUndo(KivFile* pUndo_arg) override;
  uint64_t ReadData(uint64_t iOffset, void* lpBuf, uint64_t nCount) override;
  void WriteData(uint64_t iOffset, const void* lpBuf, uint64_t nCount) override;
  void WriteZeroData(uint64_t iOffset, uint64_t nCount) override;
  bool SetDataLength(uint64_t iLength) override;
  void FlushData() override;
  uint64_t GetDataLength() override;
  int32_t DetachSnapShot() override;

  // Bytes that arrive in order from the start of the file go into the work file directly.
  void FillCached(uint64_t iOffset, uint64_t nCount, const void* lpBuf);
  // The cache, made on first need; null when the cache is off.
  KivFileCache* GetCache();
  // The device's length, fetched on first need and then kept. 0 also where the device cannot tell (a report has been
  // made then, and the next call asks again); KnowsOrgFileSize tells that from an empty file.
  uint64_t GetOrgFileSize();
  bool KnowsOrgFileSize();
  // True after a DoGetLength that failed, until one comes through.
  bool IsLengthUnknown() const { return m_bLengthUnknown; }

  bool m_bEnableCache;  // may go off, never on again
  std::unique_ptr<KivFileCache> m_pzFileCache;
  uint64_t m_iOrgFileSize = 0;  // 0: not yet fetched
  // The cache of each snapshot, parallel to m_vpSnapShotData. That of a snapshot which died without a release stays
  // until its blocks have moved on; null where they have.
  std::vector<KivFileCache*> m_vpCacheSnapShot;
  uint64_t m_iFirstCache = 0;  // index of the oldest cache in m_vpCacheSnapShot: it has the blocks of those before it

 protected:
  void LeaveOriginal() override;

  bool m_bLengthUnknown = false;  // set by a device whose DoGetLength has failed

 private:
  KivCacheUseFile* CachedOriginal() const { return dynamic_cast<KivCacheUseFile*>(m_pOriginal); }
  bool CanUseCache() const { return m_bReadOnly && m_bEnableCache; }
  // Takes this snapshot's cache out of the lists of its file.
  void UnlinkCache();
  // This snapshot dies without a release: what it holds stays with its file, without an end of its own. Cannot fail.
  void LeaveCacheToOriginal();
  // The oldest snapshot is going: its blocks move to the next living one, or to the file if it is the last, and so do
  // those of the dead ones before it. False, after a report, if some could not be moved: the snapshot must stay.
  bool HandOverBlocks();
  // Fetches each block that the live cache still has with the snapshots from this index on. False after a report.
  bool FetchFromSnapShots(uint64_t iFrom);
  // Makes the place of the next snapshot free of what dead ones have left there. False, after a report, if the blocks
  // could not be fetched before.
  bool ClearNextPlace();
  void ForgetCache(uint64_t iIndex);
  // The lists of caches become as long as that of the snapshots, whose end may have been cut off.
  void CutCacheLists(size_t nSnapShots);

  // The caches of dead snapshots; each stands in m_vpCacheSnapShot too. Has room for those of all living ones.
  std::vector<std::unique_ptr<KivFileCache>> m_vpzLeftCache;
};

}  // namespace kiv
