// The implementation side of a file: what a device class writes (the Do group) and what a layer in between takes over
// (the Data group), so that a device never sees a write that the cache takes.
#pragma once

#include <cstdint>

namespace kiv {

// Codes of RestoreFromUndo and RestoreSnapShot. Every code but Done comes with a report.
enum KivRestoreResult : int32_t {
  KivRestoreDone = 0,
  KivRestoreNoSnapShot = 10,  // no argument, or one of another class
  KivRestoreBaseFailed = 20,
  KivRestoreCacheOff = 30,
  KivRestoreNotMapped = 30,  // a mapped file: the mapping could not be made again
  KivRestoreNoCache = 40,
  KivRestoreNeverTaken = 50,  // this file has no snapshot
  KivRestoreCacheNotReset = 60
};

// Codes of DetachSnapShot and ReleaseSnapShot. Every code but Done comes with a report.
enum KivDetachResult : int32_t {
  KivDetachDone = 0,
  KivDetachNoOriginal = 10,  // no snapshot, or one that has left already
  KivDetachCacheOff = 15,
  KivDetachOriginalNotCached = 18,
  KivDetachListEmpty = 20,
  KivDetachBehindList = 30,  // behind the end of the list; or the snapshot's blocks could not be moved
  KivDetachNullEntry = 40,
  KivDetachNotOldest = 50
};

class KivFile {
 public:
  explicit KivFile(bool bReadOnly) : m_bReadOnly(bReadOnly) {}
  virtual ~KivFile() = default;
  KivFile(const KivFile&) = delete;
  KivFile& operator=(const KivFile&) = delete;

  // Fills a snapshot and returns it, or null after a report. An override makes the object with CreateInstance when
  // the argument is null, has its base class fill it, then copies its own fields. Whoever made the object destroys
  // it when the result is null; a snapshot that is destroyed before CreateSnapShot has handed it out gives back what
  // it took over.
  virtual KivFile* CopyToSnapShot(KivFile* pSnapShot_arg);
  virtual int32_t RestoreFromUndo(KivFile* pUndo);
  virtual KivFile* CreateInstance() = 0;  // a new empty object of the same class

  virtual uint64_t DoRead(uint64_t iOffset, void* lpBuf, uint64_t nCount) = 0;
  virtual void DoWrite(uint64_t iOffset, const void* lpBuf, uint64_t nCount) = 0;
  virtual void DoWriteZero(uint64_t iOffset, uint64_t nCount) = 0;
  virtual bool DoSetLength(uint64_t iLength) = 0;
  virtual void DoFlush() = 0;
  virtual uint64_t DoGetLength() = 0;

  virtual uint64_t ReadData(uint64_t iOffset, void* lpBuf, uint64_t nCount);
  virtual void WriteData(uint64_t iOffset, const void* lpBuf, uint64_t nCount);
  virtual void WriteZeroData(uint64_t iOffset, uint64_t nCount);
  virtual bool SetDataLength(uint64_t iLength);
  virtual void FlushData();
  virtual uint64_t GetDataLength();

  bool m_bReadOnly;  // the device below must not be written
};

}  // namespace kiv
