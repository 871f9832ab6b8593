// The one file type that upper layers hold. See docs/file_layers.md for the stack behind it.
//
// Offsets and counts are 64-bit byte numbers. One thread at a time.
#pragma once

#include <cstdint>

#include "KivSharedPtr.h"
#include "KivSysText.h"

namespace kiv {

class ISnapShotFile;

class IKivFile {
 public:
  virtual ~IKivFile() = default;
  virtual bool IsModified() = 0;
};

class ICacheFile : public IKivFile {
 public:
  // Copies blocks into the cache for a time budget; false when nothing is left to copy.
  virtual bool AdvanceCaching(uint32_t iMilliSeconds) = 0;
  // Fill rate, 0 to 1, of 100 slices of the file; the first slice of the file is the last entry.
  virtual void GetCacheStatusMap(double (&adRate)[100]) = 0;
  // Writes the changed blocks of the first iSize bytes to a patch stream.
  virtual bool SaveCache(const KivWString& csPath, uint64_t iSize) = 0;
  // Replays a patch stream into this file.
  virtual bool LoadCache(const KivWString& csPath) = 0;
  virtual bool IsCacheEnabled() = 0;
  virtual void DisableCache() = 0;
  // Writes the cache's counts to the timing log.
  virtual void CheckFileStatus() = 0;
  // True if the bytes from iStart to before iEnd are local; if not and iPriority is not 0, asks for them.
  virtual bool IsRangeCached(uint64_t iStart, uint64_t iEnd, uint32_t iPriority) = 0;
  virtual void RequestBackGroundRead(uint64_t iBlock, uint32_t iPriority) = 0;
  virtual bool IsBackGroundReadDone(uint64_t iBlock) = 0;
  // A pointer to the file's bytes, or null. Give it back before the next one is asked for.
  virtual uint8_t* GetDirectBuffer(bool bReadOnly, uint64_t iOffset, uint64_t nCount) = 0;
  virtual void ReleaseDirectBuffer() = 0;
  // Direct buffers are possible here; the caller then manages the capacity with PrepareDirectBuffer.
  virtual bool CanUseDirectBuffer() = 0;
  virtual bool PrepareDirectBuffer(uint64_t iSize) = 0;
  virtual uint64_t GetDirectBufferSize() = 0;
};

class IReadableFile : public ICacheFile {
 public:
  // The number of bytes read: fewer than nCount at the end of the file.
  virtual uint64_t Read(uint64_t iOffset, void* lpBuf, uint64_t nCount) = 0;
  virtual uint64_t GetLength() = 0;
};

class IWritableFile : public IReadableFile {
 public:
  virtual void Write(uint64_t iOffset, const void* lpBuf, uint64_t nCount) = 0;
  virtual void WriteZero(uint64_t iOffset, uint64_t nCount) = 0;
  virtual bool SetLength(uint64_t iLength) = 0;
  virtual void Flush() = 0;
};

class ISnapShotFile : public IWritableFile {
 public:
  // Remembers the file's present state; an empty pointer on failure.
  virtual KivSharedPtr<ISnapShotFile> CreateSnapShot() = 0;
  // Goes back to a snapshot of this file, which stays valid. 0 or a code.
  virtual int32_t RestoreSnapShot(KivSharedPtr<ISnapShotFile> pzSnapShot) = 0;
  // Called on a snapshot: it leaves its file. 0 or a code.
  virtual int32_t ReleaseSnapShot() = 0;
};

}  // namespace kiv
