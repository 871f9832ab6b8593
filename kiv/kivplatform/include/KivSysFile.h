// Files by handle: open, positioned transfer, length.
#pragma once

#include <cstdint>

#include "KivSysText.h"

namespace kiv {

enum class KivSysAccess : uint32_t { Read = 1, Write = 2, ReadWrite = 3 };

// What others may do while the file is open here. An open that contradicts a living one fails, in either order.
enum class KivSysShare : uint32_t { None = 0, Read = 1, Write = 2, ReadWrite = 3, Delete = 4, All = 7 };

enum class KivSysDisposition {
  CreateNew,     // fails if the name exists
  CreateAlways,  // an old file loses its content; one held open elsewhere without sharing fails the call
  OpenExisting,
  OpenAlways
};

enum class KivSysFileFlags : uint32_t {
  None = 0,
  Temporary = 1,      // the data need not reach the disk
  DeleteOnClose = 2,  // the name goes with the last handle, also when the process is killed
  RandomAccess = 4,
  SequentialScan = 8
};

constexpr KivSysFileFlags operator|(KivSysFileFlags a, KivSysFileFlags b) {
  return static_cast<KivSysFileFlags>(static_cast<uint32_t>(a) | static_cast<uint32_t>(b));
}
constexpr bool HasFlag(KivSysFileFlags iSet, KivSysFileFlags iFlag) {
  return (static_cast<uint32_t>(iSet) & static_cast<uint32_t>(iFlag)) != 0;
}

struct KivSysOpenMode {
  KivSysAccess m_iAccess = KivSysAccess::Read;
  KivSysShare m_iShare = KivSysShare::Read;
  KivSysDisposition m_iDisposition = KivSysDisposition::OpenExisting;
  KivSysFileFlags m_iFlags = KivSysFileFlags::None;
};

// The time-outs of a communication device, as the diagnostics of a failed read show them.
struct KivSysCommTimeouts {
  uint32_t m_iReadInterval = 0;
  uint32_t m_iReadTotalMultiplier = 0;
  uint32_t m_iReadTotalConstant = 0;
};

// Owns one open file. Movable; the destructor closes. Transfers take their position with them and may run on one
// object from one thread at a time. Children do not inherit the handle.
class KivSysFile {
 public:
  KivSysFile() noexcept = default;
  KivSysFile(KivSysFile&& zOther) noexcept;
  KivSysFile& operator=(KivSysFile&& zOther) noexcept;
  KivSysFile(const KivSysFile&) = delete;
  KivSysFile& operator=(const KivSysFile&) = delete;
  ~KivSysFile();

  // An object that is not open on failure; sys::LastError() says why. Files are made private to the user.
  static KivSysFile Open(const KivWString& csPath, const KivSysOpenMode& zMode);

  bool IsOpen() const noexcept { return m_iHandle != kNoHandle; }
  void Close() noexcept;

  // One transfer. True with the number of bytes done, which is less than nCount at the end of the file (0 at or
  // behind it) or on a short device transfer; false on failure, with what the system says was done (as a rule 0).
  bool ReadAt(uint64_t iOffset, void* pBuffer, uint32_t nCount, uint32_t& nDone);
  bool WriteAt(uint64_t iOffset, const void* pBuffer, uint32_t nCount, uint32_t& nDone);

  bool GetLength(uint64_t& iLength) const;
  bool SetLength(uint64_t iLength);
  // Bytes that the file's disk can still take from this user. False where that cannot be told.
  bool GetDiskRoom(uint64_t& nFree) const;
  bool Flush();
  // Time of the last write, in units of 100 ns since the start of the year 1601 (UTC).
  bool GetWriteTime(uint64_t& iTime) const;
  // Unwritten ranges take no space and read as zero. False where the file system cannot.
  bool SetSparse();
  // False for what is no communication device, with sys::LastError() set.
  bool GetCommTimeouts(KivSysCommTimeouts& zTimeouts) const;
  // True if the path of a delete-on-close file that is open here for reading still leads to it and its owner lives;
  // iLength is its present length then. False where that cannot be told (always on Windows).
  bool IsStillThere(uint64_t& iLength) const;
  // True if a reader may keep a delete-on-close file open without being seen. Not on Windows, where a handle that is
  // left open holds the name of a deleted file back.
  static bool ReadersMayStay() noexcept;
  // The file's name found from the handle (a device path on Windows); empty on failure.
  KivWString GetName() const;

  intptr_t GetNativeHandle() const noexcept { return m_iHandle; }

 private:
  static constexpr intptr_t kNoHandle = -1;
  intptr_t m_iHandle = kNoHandle;
  // Posix: the name to remove at the close, as the system takes it; only for delete-on-close files.
  std::string m_strDeletePath;
};

namespace sys {

// The system's number of the last failure of a call of this seam on this thread (GetLastError, errno). Valid right
// after that failure: on Windows a call that succeeds may change it, on Linux it leaves it alone.
int32_t LastError() noexcept;
void SetLastErrorNumber(int32_t iError) noexcept;

}  // namespace sys
}  // namespace kiv
