// The slot through which two processes exchange a message: a file that exists only while its owner holds it, that every
// process may open, and that is reached through a mapping. One writing owner, any number of short-lived readers, kept
// apart by events. The file's size is a capacity; what stands behind the message is old content.
//
// One thread at a time.
#pragma once

#include <cstdint>
#include <set>

#include "KivByteBuffer.h"
#include "KivSharedPtr.h"
#include "KivSysText.h"
#include "KivWinMappedFile.h"

namespace kiv {

class KivWinTmpShareFileOwner {
 public:
  KivWinTmpShareFileOwner() = default;
  virtual ~KivWinTmpShareFileOwner() = default;
  KivWinTmpShareFileOwner(const KivWinTmpShareFileOwner&) = delete;
  KivWinTmpShareFileOwner& operator=(const KivWinTmpShareFileOwner&) = delete;

  // Makes the file anew with 64 KiB of capacity. False for an empty path or a file that cannot be made.
  bool Create(const KivWString& csPath);
  // Doubles the capacity until the range fits. Does nothing without a file, and reports a range that no doubling
  // reaches. Where reports return, false says that the file has not taken the bytes.
  bool Write(uint64_t iOffset, const void* pSource, uint64_t nSize);
  uint64_t GetCapacity() const noexcept { return m_iCapacity; }
  bool IsOpen() const noexcept { return static_cast<bool>(m_pzFile); }
  // Lets go of the file, which vanishes.
  void Release();

 private:
  KivSharedPtr<KivWinMappedFile> m_pzFile;
  uint64_t m_iCapacity = 0;  // bytes
};

class KivWinTmpShareFileWithCount : public KivWinTmpShareFileOwner {
 public:
  int32_t m_iCount = 1;
};

// A handle on an owner; copies share it, and the last one destroys it.
class KivWinTmpShareFileCopiable {
 public:
  KivWinTmpShareFileCopiable();
  KivWinTmpShareFileCopiable(const KivWinTmpShareFileCopiable& zOther);
  KivWinTmpShareFileCopiable& operator=(const KivWinTmpShareFileCopiable& zOther);
  virtual ~KivWinTmpShareFileCopiable();

  KivWinTmpShareFileOwner& Owner() const noexcept { return *m_pzImpl; }
  int32_t GetCount() const noexcept { return m_pzImpl->m_iCount; }

 private:
  friend struct KivWinTmpShareFileTestAccess;
  void DropImpl();

  KivWinTmpShareFileWithCount* m_pzImpl;
  std::set<int32_t> m_spReserved;  // always empty; not copied
};

// Opened for one message. Between messages it may keep what it has opened where that cannot be seen from outside; the
// next Open then still fails when the owner has gone.
class KivWinTmpShareFileReader {
 public:
  KivWinTmpShareFileReader() = default;
  virtual ~KivWinTmpShareFileReader() = default;
  KivWinTmpShareFileReader(const KivWinTmpShareFileReader&) = delete;
  KivWinTmpShareFileReader& operator=(const KivWinTmpShareFileReader&) = delete;

  // False for an empty path or a file that cannot be opened.
  bool Open(const KivWString& csPath);
  uint64_t GetLength() const noexcept { return m_iLength; }  // at the open
  // The number of bytes read.
  uint64_t Read(uint64_t iOffset, void* pDestination, uint64_t nSize);
  // Makes vcBytes hold exactly this range, which ends before the length. False if not all of it could be read.
  bool ReadAll(uint64_t iOffset, uint64_t nSize, KivByteBuffer& vcBytes);
  // The message has been read.
  void Release();

 private:
  KivSharedPtr<KivWinMappedFile> m_pzFile;
  KivWString m_csPath;  // of m_pzFile
  uint64_t m_iLength = 0;
};

}  // namespace kiv
