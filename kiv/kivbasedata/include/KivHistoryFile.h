// A file that can be snapshotted: the root of all file classes that upper layers hold.
//
// A snapshot is a small object of the same class that remembers the state of its file at one moment. It holds no
// device and can only be read. The pointer that CreateSnapShot returns owns it: a snapshot that dies empties its place
// in its file; a file that dies first leaves its snapshots alive without a file, and reading them is reported.
#pragma once

#include <cstdint>
#include <vector>

#include "ISnapShotFile.h"
#include "KivFile.h"

namespace kiv {

class KivHistoryFile : public KivFile, public ISnapShotFile {
 public:
  explicit KivHistoryFile(bool bReadOnly) : KivFile(bReadOnly) {}
  ~KivHistoryFile() override;

  bool IsModified() override { return m_bModified; }

  bool AdvanceCaching(uint32_t iMilliSeconds) override;
  void GetCacheStatusMap(double (&adRate)[100]) override;
  bool SaveCache(const KivWString& csPath, uint64_t iSize) override;
  bool LoadCache(const KivWString& csPath) override;
  bool IsCacheEnabled() override;
  void DisableCache() override;
  void CheckFileStatus() override {}
  bool IsRangeCached(uint64_t iStart, uint64_t iEnd, uint32_t iPriority) override;
  void RequestBackGroundRead(uint64_t iBlock, uint32_t iPriority) override;
  bool IsBackGroundReadDone(uint64_t iBlock) override;
  uint8_t* GetDirectBuffer(bool bReadOnly, uint64_t iOffset, uint64_t nCount) override;
  void ReleaseDirectBuffer() override;
  bool CanUseDirectBuffer() override { return false; }
  bool PrepareDirectBuffer(uint64_t iSize) override;
  uint64_t GetDirectBufferSize() override;

  uint64_t Read(uint64_t iOffset, void* lpBuf, uint64_t nCount) override;
  uint64_t GetLength() override;

  void Write(uint64_t iOffset, const void* lpBuf, uint64_t nCount) override;
  void WriteZero(uint64_t iOffset, uint64_t nCount) override;
  bool SetLength(uint64_t iLength) override;
  void Flush() override;

  KivSharedPtr<ISnapShotFile> CreateSnapShot() override;
  int32_t RestoreSnapShot(KivSharedPtr<ISnapShotFile> pzSnapShot) override;
  int32_t ReleaseSnapShot() override;

  KivFile* CopyToSnapShot(KivFile* pSnapShot_arg) override;
  int32_t RestoreFromUndo(KivFile* pUndo_arg) override;
  void WriteData(uint64_t iOffset, const void* lpBuf, uint64_t nCount) override;
  void WriteZeroData(uint64_t iOffset, uint64_t nCount) override;

  // Called on a snapshot: it leaves its file, at the back of the list while the data space discards, else at the
  // front. 0 or a code of KivDetachResult. The snapshot cannot be read any more once it has left.
  virtual int32_t DetachSnapShot();
  virtual uint8_t* DoGetDirectBuffer(bool bReadOnly, uint64_t iOffset, uint64_t nCount);
  virtual void DoReleaseDirectBuffer() {}

  // Called on the newest snapshot, while nothing has been written since: its destruction gives back to the file what
  // the snapshot took over, as if it had never been taken.
  void TakeBack() { m_bHandedOut = false; }

  bool IsSnapShotFile() const { return m_pOriginal != nullptr || m_bLeft; }

  // Set by each write at this level and by each writable direct buffer, copied to a snapshot and taken back from one by
  // a restore; nothing else clears it.
  bool m_bModified = false;
  std::vector<KivHistoryFile*> m_vpSnapShotData;  // oldest first; null where one has gone from the front or has died
  uint64_t m_iFirstSnapShot = 0;  // index of the oldest living snapshot in m_vpSnapShotData, as far as one lives
  KivHistoryFile* m_pOriginal = nullptr;  // in a snapshot: the file that it was taken from

 protected:
  // The two halves of DetachSnapShot. The first says whether this snapshot may leave now: 0, or a code after a report.
  // The second cannot fail.
  int32_t CheckDetach();
  void LeaveList();
  // The snapshot is cut from its file: it stays a snapshot, without a file.
  virtual void LeaveOriginal();
  // How many places of m_vpSnapShotData stay when the next snapshot is taken: dead ones at the end must not keep it
  // from the place that the data space counts for it.
  size_t CountKeptPlaces() const;
  bool HasLivingSnapShot() const;

  bool m_bLeft = false;       // a snapshot that has no file any more
  bool m_bHandedOut = false;  // a snapshot that CreateSnapShot has given to its caller

 private:
  // A snapshot that died without a release must not keep the younger ones from leaving: m_iFirstSnapShot goes on to
  // the next place that is taken, or to the last one.
  void PassDeadSnapShots();
};

}  // namespace kiv
