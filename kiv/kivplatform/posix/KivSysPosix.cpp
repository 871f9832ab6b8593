#include "KivSysPosix.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>
#include <utf8.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "KivSysFile.h"

namespace kiv {
namespace sys {
namespace {

thread_local int32_t t_iLastError = 0;

}  // namespace

int32_t LastError() noexcept {
  return t_iLastError;
}
void SetLastErrorNumber(int32_t iError) noexcept {
  t_iLastError = iError;
}

}  // namespace sys

namespace sys::posix {

std::atomic<bool> g_bNoTmpFile{false};
std::atomic<bool> g_bNoFutexWaitv{false};
std::atomic<bool> g_bNoPidFd{false};
std::atomic<int> g_iRenameError{0};
std::atomic<int> g_iLinkError{0};

bool FailWith(int iError) noexcept {
  SetLastErrorNumber(iError);
  return false;
}

bool FailWithErrno() noexcept {
  return FailWith(errno);
}

KivWString WideName(std::string_view strName) {
  KivWString csName;
  while (!strName.empty()) {
    const auto itInvalid = utf8::find_invalid(strName.begin(), strName.end());
    const auto nValid = static_cast<size_t>(itInvalid - strName.begin());
    csName += Utf8ToWide(strName.substr(0, nValid));
    if (nValid == strName.size()) break;
    csName += static_cast<char16_t>(0xDC00 + static_cast<unsigned char>(strName[nValid]));
    strName.remove_prefix(nValid + 1);
  }
  return csName;
}

std::string NativeName(KivWStringView csName) {
  std::string strName;
  size_t iStart = 0;
  for (size_t i = 0; i < csName.size(); ++i) {
    if ((csName[i] & 0xFC00) == 0xD800 && i + 1 < csName.size() && (csName[i + 1] & 0xFC00) == 0xDC00) {
      ++i;
    } else if (csName[i] >= 0xDC80 && csName[i] <= 0xDCFF) {
      strName += WideToUtf8(csName.substr(iStart, i - iStart));
      strName += static_cast<char>(csName[i] - 0xDC00);
      iStart = i + 1;
    }
  }
  return strName + WideToUtf8(csName.substr(iStart));
}

bool NativePath(KivWStringView csPath, std::string& strPath) {
  if (csPath.empty()) return FailWith(ENOENT);
  if (csPath.find(u'\0') != KivWStringView::npos) return FailWith(EINVAL);
  strPath = NativeName(csPath);
  return true;
}

int RenameNoReplace(const char* szFrom, const char* szTo) noexcept {
  if (const int iError = g_iRenameError.load(std::memory_order_relaxed)) {
    errno = iError;
    return -1;
  }
  return renameat2(AT_FDCWD, szFrom, AT_FDCWD, szTo, RENAME_NOREPLACE);
}

int LinkName(const char* szFrom, const char* szTo) noexcept {
  if (const int iError = g_iLinkError.load(std::memory_order_relaxed)) {
    errno = iError;
    return -1;
  }
  return link(szFrom, szTo);
}

Descriptor& Descriptor::operator=(Descriptor&& zOther) noexcept {
  if (this != &zOther) Reset(zOther.Release());
  return *this;
}

int Descriptor::Release() noexcept {
  const int iFd = m_iFd;
  m_iFd = -1;
  return iFd;
}

void Descriptor::Reset(int iFd) noexcept {
  if (m_iFd >= 0) {
    const int iError = errno;
    close(m_iFd);
    errno = iError;
  }
  m_iFd = iFd;
}

bool LockBytes(int iFd, short iType, int iFirst, int iCount) noexcept {
  struct flock zLock {};
  zLock.l_type = iType;
  zLock.l_whence = SEEK_SET;
  zLock.l_start = kLockBase + iFirst;
  zLock.l_len = iCount;
  return fcntl(iFd, F_OFD_SETLK, &zLock) == 0;
}

bool BytesHeld(int iFd, int iFirst, int iCount) noexcept {
  struct flock zLock {};
  zLock.l_type = F_WRLCK;
  zLock.l_whence = SEEK_SET;
  zLock.l_start = kLockBase + iFirst;
  zLock.l_len = iCount;
  if (fcntl(iFd, F_OFD_GETLK, &zLock) != 0) return false;
  return zLock.l_type != F_UNLCK;
}

void RemoveIfDead(int iFolderFd, const char* szName) noexcept {
  const Descriptor zFd(openat(iFolderFd, szName, O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY));
  if (!zFd.IsOpen() || !LockBytes(zFd.Get(), F_WRLCK, kLockOwner, 1)) return;
  struct stat zOpen, zNamed;
  if (fstat(zFd.Get(), &zOpen) != 0 || fstatat(iFolderFd, szName, &zNamed, AT_SYMLINK_NOFOLLOW) != 0) return;
  if (!S_ISREG(zOpen.st_mode) || !(zOpen.st_mode & S_ISVTX)) return;
  if (zOpen.st_ino != zNamed.st_ino || zOpen.st_dev != zNamed.st_dev) return;  // the name has a new file by now
  unlinkat(iFolderFd, szName, 0);
}

bool ExistsAt(int iFolderFd, const char* szName, struct stat& zStat) noexcept {
  if (fstatat(iFolderFd, szName, &zStat, 0) != 0) return false;
  if (!S_ISREG(zStat.st_mode) || !(zStat.st_mode & S_ISVTX)) return true;
  const Descriptor zFd(openat(iFolderFd, szName, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  if (!zFd.IsOpen()) return errno != ENOENT;
  if (BytesHeld(zFd.Get(), kLockOwner, 1)) return true;
  RemoveIfDead(iFolderFd, szName);
  return false;
}

bool DeletionDenied(const char* szPath) noexcept {
  const Descriptor zFd(open(szPath, O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY));
  return zFd.IsOpen() && BytesHeld(zFd.Get(), kLockDeniesDelete, 1);
}

namespace {

bool Prepare(int iFd, uint32_t iLockSet, mode_t iMode, off_t iLength) noexcept {
  for (int iFirst = 0; iFirst < kLockCount; ++iFirst) {
    if (!(iLockSet >> iFirst & 1)) continue;
    int iEnd = iFirst;
    while (iEnd < kLockCount && (iLockSet >> iEnd & 1)) ++iEnd;
    if (!LockBytes(iFd, F_RDLCK, iFirst, iEnd - iFirst)) return false;
    iFirst = iEnd;
  }
  if (fchmod(iFd, iMode) != 0) return false;
  if (iLength == 0) return true;
  // The room is taken now: a full disk would otherwise end the process at the first write through a mapping.
  int iError;
  do iError = posix_fallocate(iFd, 0, iLength);
  while (iError == EINTR);
  if (iError != 0) errno = iError;
  return iError == 0;
}

int MakeByTmpFile(const char* szPath, const std::string& strFolder, uint32_t iLockSet, mode_t iMode,
                  off_t iLength) noexcept {
  Descriptor zFd(open(strFolder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, iMode));
  if (!zFd.IsOpen()) return -1;
  if (!Prepare(zFd.Get(), iLockSet, iMode, iLength)) return -1;
  char szSelf[64];
  std::snprintf(szSelf, sizeof szSelf, "/proc/self/fd/%d", zFd.Get());
  if (linkat(AT_FDCWD, szSelf, AT_FDCWD, szPath, AT_SYMLINK_FOLLOW) != 0) return -1;
  return zFd.Release();
}

int MakeByTmpName(const char* szPath, const std::string& strFolder, uint32_t iLockSet, mode_t iMode, off_t iLength) {
  static std::atomic<uint32_t> s_iCount{0};
  for (int iTry = 0; iTry < 100; ++iTry) {
    const std::string strTemp = strFolder + "/.kiv" + std::to_string(getpid()) + "-" +
                                std::to_string(s_iCount.fetch_add(1)) + "-" + std::to_string(NowNs());
    Descriptor zFd(open(strTemp.c_str(), O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC, iMode));
    if (!zFd.IsOpen()) {
      if (errno == EEXIST) continue;
      return -1;
    }
    if (!Prepare(zFd.Get(), iLockSet, iMode, iLength)) {
      const int iError = errno;
      unlink(strTemp.c_str());
      // Somebody's existence test may have found the name between its birth and its lock, and hold the lock.
      if (iError == EAGAIN || iError == EACCES) continue;
      errno = iError;
      return -1;
    }
    const int iResult = LinkName(strTemp.c_str(), szPath);
    const int iError = errno;
    if (iResult != 0 && (iError == EPERM || iError == EOPNOTSUPP || iError == EMLINK)) {
      // A file system without hard links.
      if (RenameNoReplace(strTemp.c_str(), szPath) == 0) return zFd.Release();
      const int iRenameError = errno;
      if (iRenameError == ENOENT) continue;  // taken for dead and removed before it was locked
      unlink(strTemp.c_str());
      errno = iRenameError;
      return -1;
    }
    unlink(strTemp.c_str());
    if (iResult == 0) return zFd.Release();
    if (iError == ENOENT) continue;  // taken for dead and removed before it was locked
    errno = iError;
    return -1;
  }
  errno = EBUSY;
  return -1;
}

}  // namespace

int MakeLockedFile(const char* szPath, uint32_t iLockSet, bool bSticky, int64_t iLength) noexcept try {
  const char* const pSlash = std::strrchr(szPath, '/');
  const std::string strFolder = pSlash == nullptr  ? "."
                                : pSlash == szPath ? "/"
                                                   : std::string(szPath, static_cast<size_t>(pSlash - szPath));
  const mode_t iMode = bSticky ? 01600 : 0600;
  if (!g_bNoTmpFile.load(std::memory_order_relaxed)) {
    const int iFd = MakeByTmpFile(szPath, strFolder, iLockSet, iMode, iLength);
    // These say that the kernel, the file system or a missing /proc does not let us; all else is the answer.
    if (iFd >= 0 || (errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL && errno != ENOENT)) return iFd;
  }
  return MakeByTmpName(szPath, strFolder, iLockSet, iMode, iLength);
} catch (const std::bad_alloc&) {
  errno = ENOMEM;
  return -1;
}

bool SafeFolder(const std::string& strFolder) {
  if (mkdir(strFolder.c_str(), 0700) != 0 && errno != EEXIST) return FailWithErrno();
  struct stat zStat;
  if (lstat(strFolder.c_str(), &zStat) != 0) return FailWithErrno();
  if (!S_ISDIR(zStat.st_mode) || zStat.st_uid != geteuid()) return FailWith(EPERM);
  if ((zStat.st_mode & 077) != 0 && chmod(strFolder.c_str(), 0700) != 0) return FailWithErrno();
  return true;
}

bool PrivateObjectFolder(std::string& strFolder) {
  const std::string strName = "/kiv-" + std::to_string(geteuid());
  // The same for every process of the user, whatever its environment.
  for (const char* szBase : {"/dev/shm", "/tmp"}) {
    struct stat zStat;
    if (stat(szBase, &zStat) != 0 || !S_ISDIR(zStat.st_mode) || access(szBase, W_OK | X_OK) != 0) continue;
    strFolder = szBase + strName;
    return SafeFolder(strFolder);
  }
  return FailWith(ENOENT);
}

bool ObjectPath(char cKind, const KivWString& csName, std::string& strPath) {
  if (csName.empty() || csName.find(u'\0') != KivWString::npos) return FailWith(EINVAL);
  if (!PrivateObjectFolder(strPath)) return false;
  KivWStringView csRest = csName;
  if (csRest.substr(0, 6) == u"Local\\") csRest.remove_prefix(6);
  static const char* const szHex = "0123456789ABCDEF";
  std::string strName;
  uint64_t iHash = 0xcbf29ce484222325;
  for (const char16_t c : csRest) {
    iHash = (iHash ^ c) * 0x100000001b3;
    if ((c >= u'0' && c <= u'9') || (c >= u'A' && c <= u'Z') || (c >= u'a' && c <= u'z') || c == u'-' || c == u'_') {
      strName += static_cast<char>(c);
    } else {
      strName += '%';
      for (int iShift = 12; iShift >= 0; iShift -= 4) strName += szHex[c >> iShift & 15];
    }
  }
  if (strName.size() > 200) {  // a file's name has a limit; the hash keeps long names apart
    char szHash[24];
    std::snprintf(szHash, sizeof szHash, "~%016llx", static_cast<unsigned long long>(iHash));
    strName = strName.substr(0, 180) + szHash;
  }
  strPath = strPath + "/" + cKind + "-" + strName;
  return true;
}

bool RemoveUnheld(const char* szPath) noexcept {
  const Descriptor zFd(open(szPath, O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY));
  if (!zFd.IsOpen()) return errno == ENOENT;
  if (!LockBytes(zFd.Get(), F_WRLCK, 0, 1)) return false;
  struct stat zOpen, zNamed;
  if (fstat(zFd.Get(), &zOpen) != 0 || lstat(szPath, &zNamed) != 0 || zOpen.st_ino != zNamed.st_ino) return true;
  unlink(szPath);
  return true;
}

void SweepObjects() {
  std::string strFolder;
  if (!PrivateObjectFolder(strFolder)) return;
  DIR* const pDirectory = opendir(strFolder.c_str());
  if (pDirectory == nullptr) return;
  int nLooked = 0;
  while (const dirent* pEntry = readdir(pDirectory)) {
    // Events, and temporary names whose makers were killed before they gave them their own: both live by their lock.
    if (std::strncmp(pEntry->d_name, "e-", 2) == 0 || std::strncmp(pEntry->d_name, ".kiv", 4) == 0)
      RemoveUnheld((strFolder + "/" + pEntry->d_name).c_str());
    else if (std::strncmp(pEntry->d_name, "j-", 2) == 0)
      RemoveIfDead(dirfd(pDirectory), pEntry->d_name);
    else
      continue;
    if (++nLooked == 1000) break;
  }
  closedir(pDirectory);
}

void SweepObjectsOnce() {
  static std::atomic<bool> s_bDone{false};
  if (!s_bDone.exchange(true)) SweepObjects();
}

uint64_t NowNs() noexcept {
  timespec zTime{};
  clock_gettime(CLOCK_MONOTONIC, &zTime);
  return static_cast<uint64_t>(zTime.tv_sec) * 1000000000u + static_cast<uint64_t>(zTime.tv_nsec);
}

bool ReadProcessFacts(int32_t iId, ProcessFacts& zFacts) noexcept {
  char szPath[40];
  std::snprintf(szPath, sizeof szPath, "/proc/%d/stat", iId);
  const Descriptor zFd(open(szPath, O_RDONLY | O_CLOEXEC));
  if (!zFd.IsOpen()) return false;
  char szText[1024];
  const ssize_t nRead = read(zFd.Get(), szText, sizeof szText - 1);
  if (nRead <= 0) return false;
  szText[nRead] = 0;
  const char* pRest = std::strrchr(szText, ')');  // the program's name may hold anything
  if (pRest == nullptr) return false;
  char cState = 0;
  int iGroup = 0;
  unsigned long long iStart = 0;
  if (std::sscanf(pRest + 1, " %c %*d %d %*d %*d %*d %*u %*u %*u %*u %*u %*u %*u %*d %*d %*d %*d %*d %*d %llu", &cState,
                  &iGroup, &iStart) != 3)
    return false;
  zFacts.m_cState = cState;
  zFacts.m_iGroup = iGroup;
  zFacts.m_iStartTicks = iStart;
  return true;
}

}  // namespace sys::posix
}  // namespace kiv
