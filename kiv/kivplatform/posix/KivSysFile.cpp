#include "KivSysFile.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/statvfs.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include "KivSysFolder.h"
#include "KivSysPosix.h"

namespace kiv {

using sys::posix::Descriptor;
using sys::posix::FailWith;
using sys::posix::FailWithErrno;
using sys::posix::FaultAllows;

namespace {

constexpr uint64_t kMaxOffset = 0x3FFFFFFFFFFFFFFF;  // below the bytes of the locks
constexpr uint32_t kMaxTransfer = 0x7FFFF000;        // what the kernel moves in one call

bool HasAccess(const KivSysOpenMode& zMode, KivSysAccess iAccess) {
  return (static_cast<uint32_t>(zMode.m_iAccess) & static_cast<uint32_t>(iAccess)) != 0;
}

bool Shares(const KivSysOpenMode& zMode, KivSysShare iShare) {
  return (static_cast<uint32_t>(zMode.m_iShare) & static_cast<uint32_t>(iShare)) != 0;
}

struct LockSets {
  uint32_t m_iTake = 0;      // bytes that this open locks
  uint32_t m_iConflict = 0;  // bytes that no other open may hold
};

LockSets LocksOf(const KivSysOpenMode& zMode) {
  LockSets zSets;
  const auto Add = [&zSets](bool bUses, bool bShares, int iUse, int iDeny) {
    if (bUses) zSets.m_iTake |= 1u << iUse, zSets.m_iConflict |= 1u << iDeny;
    if (!bShares) zSets.m_iTake |= 1u << iDeny, zSets.m_iConflict |= 1u << iUse;
  };
  Add(HasAccess(zMode, KivSysAccess::Read), Shares(zMode, KivSysShare::Read), sys::posix::kLockReads,
      sys::posix::kLockDeniesRead);
  Add(HasAccess(zMode, KivSysAccess::Write), Shares(zMode, KivSysShare::Write), sys::posix::kLockWrites,
      sys::posix::kLockDeniesWrite);
  Add(HasFlag(zMode.m_iFlags, KivSysFileFlags::DeleteOnClose), Shares(zMode, KivSysShare::Delete),
      sys::posix::kLockOwner, sys::posix::kLockDeniesDelete);
  return zSets;
}

// Calls pfnRange(first, count) for each run of set bits until it gives false.
template <typename Range>
bool ForRanges(uint32_t iSet, Range&& pfnRange) {
  for (int iFirst = 0; iFirst < sys::posix::kLockCount; ++iFirst) {
    if (!(iSet >> iFirst & 1)) continue;
    int iEnd = iFirst;
    while (iEnd < sys::posix::kLockCount && (iSet >> iEnd & 1)) ++iEnd;
    if (!pfnRange(iFirst, iEnd - iFirst)) return false;
    iFirst = iEnd;
  }
  return true;
}

// Takes the locks of a sharing mode. Two opens that contradict each other at the same instant may both see the other
// one; looking again lets one of them through.
bool TakeSharing(int iFd, const KivSysOpenMode& zMode) {
  const LockSets zSets = LocksOf(zMode);
  for (int iTry = 0;; ++iTry) {
    const bool bTaken = ForRanges(
        zSets.m_iTake, [iFd](int iFirst, int iCount) { return sys::posix::LockBytes(iFd, F_RDLCK, iFirst, iCount); });
    if (!bTaken && errno != EAGAIN && errno != EACCES) return true;  // a file system without locks, or a device
    const bool bFree = bTaken && ForRanges(zSets.m_iConflict, [iFd](int iFirst, int iCount) {
                         return !sys::posix::BytesHeld(iFd, iFirst, iCount);
                       });
    if (bFree) return true;
    sys::posix::LockBytes(iFd, F_UNLCK, 0, sys::posix::kLockCount);
    if (iTry == 2) return FailWith(EBUSY);
    sched_yield();
  }
}

// Sets the length; a file that is mapped for writing anywhere does not become shorter.
bool Cut(int iFd, uint64_t iLength, off_t iPresent) {
  if (iLength < static_cast<uint64_t>(iPresent) && sys::posix::BytesHeld(iFd, sys::posix::kLockMapped, 1))
    return FailWith(EBUSY);
  if (iLength == static_cast<uint64_t>(iPresent)) return true;
  return ftruncate(iFd, static_cast<off_t>(iLength)) == 0 ? true : FailWithErrno();
}

enum class Attempt { Done, Failed, Again };

// Opens the file that has the name now, or makes a plain one if iCreate says so.
Attempt OpenNamed(const std::string& strPath, const KivSysOpenMode& zMode, int iCreate, Descriptor& zFd) {
  const int iCommon = O_CLOEXEC | O_NOCTTY | O_NONBLOCK | iCreate;
  // Writers read as well, since a lock that others may share needs a readable descriptor.
  int iFd = open(strPath.c_str(), (HasAccess(zMode, KivSysAccess::Write) ? O_RDWR : O_RDONLY) | iCommon, 0600);
  if (iFd < 0 && errno == EACCES && zMode.m_iAccess == KivSysAccess::Write)
    iFd = open(strPath.c_str(), O_WRONLY | iCommon, 0600);
  if (iFd < 0) {
    if (errno == EEXIST) {
      struct stat zStat;
      if (!sys::posix::ExistsAt(AT_FDCWD, strPath.c_str(), zStat)) return Attempt::Again;  // a dead one, now removed
      errno = EEXIST;
    }
    FailWithErrno();
    return Attempt::Failed;
  }
  zFd.Reset(iFd);
  struct stat zStat;
  if (fstat(iFd, &zStat) != 0) {
    FailWithErrno();
    return Attempt::Failed;
  }
  if (S_ISDIR(zStat.st_mode)) {
    FailWith(EISDIR);
    return Attempt::Failed;
  }
  if (!S_ISREG(zStat.st_mode)) {
    if (!S_ISFIFO(zStat.st_mode)) fcntl(iFd, F_SETFL, fcntl(iFd, F_GETFL) & ~O_NONBLOCK);
    return Attempt::Done;
  }
  if ((zStat.st_mode & S_ISVTX) && !sys::posix::BytesHeld(iFd, sys::posix::kLockOwner, 1)) {
    zFd.Reset();
    sys::posix::RemoveIfDead(AT_FDCWD, strPath.c_str());
    return Attempt::Again;
  }
  if (!TakeSharing(iFd, zMode)) return Attempt::Failed;
  // A delete-on-close file: its owner went while we took the locks. A plain one that somebody removed in this instant
  // has been opened or made all the same; to make it again would bring back what the other one is done with.
  if (fstat(iFd, &zStat) == 0 && zStat.st_nlink == 0 && (zStat.st_mode & S_ISVTX) != 0) {
    zFd.Reset();
    return Attempt::Again;
  }
  if (zMode.m_iDisposition == KivSysDisposition::CreateAlways && !Cut(iFd, 0, zStat.st_size)) return Attempt::Failed;
  return Attempt::Done;
}

int CreateFlags(KivSysDisposition iDisposition) {
  switch (iDisposition) {
    case KivSysDisposition::CreateNew:
      return O_CREAT | O_EXCL;
    case KivSysDisposition::CreateAlways:
    case KivSysDisposition::OpenAlways:
      return O_CREAT;
    case KivSysDisposition::OpenExisting:
      break;
  }
  return 0;
}

Attempt OpenDeleteOnClose(const std::string& strPath, const KivSysOpenMode& zMode, Descriptor& zFd) {
  if (zMode.m_iDisposition != KivSysDisposition::OpenExisting) {
    const int iFd = sys::posix::MakeLockedFile(strPath.c_str(), LocksOf(zMode).m_iTake, true);
    if (iFd >= 0) {
      zFd.Reset(iFd);
      return Attempt::Done;
    }
    if (errno != EEXIST) {
      FailWithErrno();
      return Attempt::Failed;
    }
    struct stat zStat;
    if (!sys::posix::ExistsAt(AT_FDCWD, strPath.c_str(), zStat)) return Attempt::Again;
    if (zMode.m_iDisposition == KivSysDisposition::CreateNew) {
      FailWith(EEXIST);
      return Attempt::Failed;
    }
  }
  const Attempt iAttempt = OpenNamed(strPath, zMode, 0, zFd);
  if (iAttempt == Attempt::Failed && zMode.m_iDisposition != KivSysDisposition::OpenExisting &&
      sys::LastError() == ENOENT)
    return Attempt::Again;
  if (iAttempt != Attempt::Done) return iAttempt;
  if (fchmod(zFd.Get(), 01600) != 0) {
    FailWithErrno();
    return Attempt::Failed;
  }
  return Attempt::Done;
}

std::string AbsolutePath(const std::string& strPath) {
  if (strPath[0] == '/') return strPath;
  char szFolder[4096];
  if (getcwd(szFolder, sizeof szFolder) == nullptr) return strPath;
  return std::string(szFolder) + "/" + strPath;
}

}  // namespace

KivSysFile::KivSysFile(KivSysFile&& zOther) noexcept
    : m_iHandle(std::exchange(zOther.m_iHandle, kNoHandle)), m_strDeletePath(std::move(zOther.m_strDeletePath)) {
  zOther.m_strDeletePath.clear();
}

KivSysFile& KivSysFile::operator=(KivSysFile&& zOther) noexcept {
  if (this != &zOther) {
    Close();
    m_iHandle = std::exchange(zOther.m_iHandle, kNoHandle);
    m_strDeletePath = std::move(zOther.m_strDeletePath);
    zOther.m_strDeletePath.clear();
  }
  return *this;
}

KivSysFile::~KivSysFile() {
  Close();
}

KivSysFile KivSysFile::Open(const KivWString& csPath, const KivSysOpenMode& zMode) {
  KivSysFile zFile;
  std::string strPath;
  if (!FaultAllows(KivSysCall::FileOpen) || !sys::posix::NativePath(csPath, strPath)) return zFile;
  const bool bDelete = HasFlag(zMode.m_iFlags, KivSysFileFlags::DeleteOnClose);
  Descriptor zFd;
  Attempt iAttempt = Attempt::Again;
  for (int iTry = 0; iAttempt == Attempt::Again; ++iTry) {
    if (iTry == 1000) {  // others make and remove the name without end
      FailWith(EBUSY);
      return zFile;
    }
    iAttempt = bDelete ? OpenDeleteOnClose(strPath, zMode, zFd)
                       : OpenNamed(strPath, zMode, CreateFlags(zMode.m_iDisposition), zFd);
  }
  if (iAttempt == Attempt::Failed) return zFile;
  if (!HasFlag(zMode.m_iFlags, KivSysFileFlags::Temporary)) {
    if (HasFlag(zMode.m_iFlags, KivSysFileFlags::RandomAccess)) posix_fadvise(zFd.Get(), 0, 0, POSIX_FADV_RANDOM);
    if (HasFlag(zMode.m_iFlags, KivSysFileFlags::SequentialScan)) posix_fadvise(zFd.Get(), 0, 0, POSIX_FADV_SEQUENTIAL);
  }
  if (bDelete) zFile.m_strDeletePath = AbsolutePath(strPath);
  zFile.m_iHandle = zFd.Release();
  return zFile;
}

void KivSysFile::Close() noexcept {
  if (m_iHandle == kNoHandle) return;
  const int iFd = static_cast<int>(m_iHandle);
  if (!m_strDeletePath.empty()) {
    struct stat zOpen, zNamed;
    if (fstat(iFd, &zOpen) == 0 && lstat(m_strDeletePath.c_str(), &zNamed) == 0 && zOpen.st_ino == zNamed.st_ino &&
        zOpen.st_dev == zNamed.st_dev)
      unlink(m_strDeletePath.c_str());
    m_strDeletePath.clear();
  }
  close(iFd);
  m_iHandle = kNoHandle;
}

bool KivSysFile::ReadAt(uint64_t iOffset, void* pBuffer, uint32_t nCount, uint32_t& nDone) {
  nDone = 0;
  const sys::FaultAnswer iAnswer = sys::AskFault(KivSysCall::FileRead);
  if (iAnswer == sys::FaultAnswer::Fail) return false;
  if (!IsOpen()) return FailWith(EBADF);
  if (iOffset > kMaxOffset) return FailWith(EINVAL);
  if (iAnswer == sys::FaultAnswer::Short) nCount /= 2;
  const int iFd = static_cast<int>(m_iHandle);
  auto* const pBytes = static_cast<uint8_t*>(pBuffer);
  while (nDone < nCount) {
    const uint32_t nPart = std::min(nCount - nDone, kMaxTransfer);
    ssize_t nRead = pread(iFd, pBytes + nDone, nPart, static_cast<off_t>(iOffset + nDone));
    if (nRead < 0 && errno == ESPIPE) nRead = read(iFd, pBytes + nDone, nPart);  // a device without positions
    if (nRead < 0 && errno == EINTR) continue;
    if (nRead < 0) {
      FailWithErrno();
      nDone = 0;
      return false;
    }
    nDone += static_cast<uint32_t>(nRead);
    if (static_cast<uint32_t>(nRead) < kMaxTransfer) break;
  }
  return true;
}

bool KivSysFile::WriteAt(uint64_t iOffset, const void* pBuffer, uint32_t nCount, uint32_t& nDone) {
  nDone = 0;
  const sys::FaultAnswer iAnswer = sys::AskFault(KivSysCall::FileWrite);
  if (iAnswer == sys::FaultAnswer::Fail) return false;
  if (!IsOpen()) return FailWith(EBADF);
  if (iOffset > kMaxOffset) return FailWith(EINVAL);
  if (iAnswer == sys::FaultAnswer::Short) nCount /= 2;
  const int iFd = static_cast<int>(m_iHandle);
  const auto* const pBytes = static_cast<const uint8_t*>(pBuffer);
  while (nDone < nCount) {
    const uint32_t nPart = std::min(nCount - nDone, kMaxTransfer);
    ssize_t nWritten = pwrite(iFd, pBytes + nDone, nPart, static_cast<off_t>(iOffset + nDone));
    if (nWritten < 0 && errno == ESPIPE) nWritten = write(iFd, pBytes + nDone, nPart);
    if (nWritten < 0 && errno == EINTR) continue;
    if (nWritten < 0) {
      FailWithErrno();
      nDone = 0;
      return false;
    }
    nDone += static_cast<uint32_t>(nWritten);
    if (static_cast<uint32_t>(nWritten) < kMaxTransfer) break;
  }
  return true;
}

bool KivSysFile::GetLength(uint64_t& iLength) const {
  if (!FaultAllows(KivSysCall::FileLength)) return false;
  struct stat zStat;
  if (fstat(static_cast<int>(m_iHandle), &zStat) != 0) return FailWithErrno();
  iLength = static_cast<uint64_t>(zStat.st_size);
  return true;
}

bool KivSysFile::SetLength(uint64_t iLength) {
  if (!FaultAllows(KivSysCall::FileSetLength)) return false;
  if (iLength > kMaxOffset) return FailWith(EFBIG);
  struct stat zStat;
  if (fstat(static_cast<int>(m_iHandle), &zStat) != 0) return FailWithErrno();
  return Cut(static_cast<int>(m_iHandle), iLength, zStat.st_size);
}

bool KivSysFile::GetDiskRoom(uint64_t& nFree) const {
  nFree = 0;
  if (!FaultAllows(KivSysCall::FreeSpace)) return true;
  struct statvfs zSystem;
  if (fstatvfs(static_cast<int>(m_iHandle), &zSystem) != 0) return FailWithErrno();
  if (__builtin_mul_overflow(uint64_t{zSystem.f_bavail}, uint64_t{zSystem.f_frsize}, &nFree)) nFree = UINT64_MAX;
  return zSystem.f_blocks != 0;  // a file system that counts no blocks
}

bool KivSysFile::IsStillThere(uint64_t& iLength) const {
  struct stat zStat;
  if (!IsOpen() || fstat(static_cast<int>(m_iHandle), &zStat) != 0 || zStat.st_nlink == 0 ||
      (zStat.st_mode & S_ISVTX) == 0 || !sys::posix::BytesHeld(static_cast<int>(m_iHandle), sys::posix::kLockOwner, 1))
    return false;
  iLength = static_cast<uint64_t>(zStat.st_size);
  return true;
}

bool KivSysFile::ReadersMayStay() noexcept {
  return true;
}

bool KivSysFile::Flush() {
  if (!FaultAllows(KivSysCall::FileFlush)) return false;
  if (fdatasync(static_cast<int>(m_iHandle)) != 0) {
    if (errno == EINVAL || errno == EROFS) return true;  // nothing behind it that could be flushed
    return FailWithErrno();
  }
  return true;
}

bool KivSysFile::GetWriteTime(uint64_t& iTime) const {
  struct stat zStat;
  if (fstat(static_cast<int>(m_iHandle), &zStat) != 0) return FailWithErrno();
  constexpr int64_t kSecondsFrom1601 = 11644473600;
  iTime = static_cast<uint64_t>(zStat.st_mtim.tv_sec + kSecondsFrom1601) * 10000000u +
          static_cast<uint64_t>(zStat.st_mtim.tv_nsec) / 100u;
  return true;
}

bool KivSysFile::SetSparse() {
  struct stat zStat;
  if (fstat(static_cast<int>(m_iHandle), &zStat) != 0) return FailWithErrno();
  return S_ISREG(zStat.st_mode) ? true : FailWith(EINVAL);  // every regular file may have holes
}

bool KivSysFile::GetCommTimeouts(KivSysCommTimeouts& zTimeouts) const {
  struct termios zTerminal;
  if (tcgetattr(static_cast<int>(m_iHandle), &zTerminal) != 0) return FailWithErrno();
  zTimeouts = {};
  zTimeouts.m_iReadInterval = static_cast<uint32_t>(zTerminal.c_cc[VTIME]) * 100u;
  return true;
}

KivWString KivSysFile::GetName() const {
  if (!IsOpen()) return u"";
  // The descriptor of a file that was linked in later still shows no name.
  if (!m_strDeletePath.empty()) return sys::posix::WideName(m_strDeletePath);
  char szLink[64];
  std::snprintf(szLink, sizeof szLink, "/proc/self/fd/%d", static_cast<int>(m_iHandle));
  char szName[4096];
  const ssize_t nName = readlink(szLink, szName, sizeof szName);
  if (nName <= 0 || static_cast<size_t>(nName) == sizeof szName) {
    FailWithErrno();
    return u"";
  }
  return sys::posix::WideName({szName, static_cast<size_t>(nName)});
}

}  // namespace kiv
