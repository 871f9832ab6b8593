#include "KivSysFolder.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/sendfile.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "KivSysFile.h"
#include "KivSysPosix.h"

namespace kiv::sys {

using posix::Descriptor;
using posix::FailWith;
using posix::FailWithErrno;
using posix::FaultAllows;
using posix::NativePath;

const char16_t kSeparator = u'/';
const KivWStringView kExecutableSuffix = u"";

namespace {

struct CloseDirectory {
  void operator()(DIR* pDirectory) const { closedir(pDirectory); }
};
using Directory = std::unique_ptr<DIR, CloseDirectory>;

struct FreeText {
  void operator()(char* pcText) const { std::free(pcText); }
};
using FreedText = std::unique_ptr<char, FreeText>;

// The folder itself if nobody else can write there, a private one in it if it is shared; false if it is neither.
bool PrivateFolderIn(const char* szBase, std::string& strFolder) {
  struct stat zStat;
  if (szBase == nullptr || szBase[0] != '/' || stat(szBase, &zStat) != 0 || !S_ISDIR(zStat.st_mode)) return false;
  if (access(szBase, W_OK | X_OK) != 0) return false;
  strFolder = szBase;
  while (strFolder.size() > 1 && strFolder.back() == '/') strFolder.pop_back();
  if (zStat.st_uid == geteuid() && (zStat.st_mode & 022) == 0) return true;
  if ((zStat.st_mode & S_ISVTX) == 0) return false;  // others can put another folder in the place of one made here
  strFolder += "/kiv-" + std::to_string(geteuid());
  return posix::SafeFolder(strFolder);
}

// Calls pfnEntry for each entry that exists, dead delete-on-close files being removed on the way.
template <typename Entry>
bool ForEntries(const std::string& strFolder, Entry&& pfnEntry) {
  const Directory pDirectory(opendir(strFolder.c_str()));
  if (pDirectory == nullptr) return FailWithErrno();
  const int iFolderFd = dirfd(pDirectory.get());
  for (;;) {
    errno = 0;
    const dirent* const pEntry = readdir(pDirectory.get());
    if (pEntry == nullptr) return errno == 0 || FailWithErrno();
    const char* const szName = pEntry->d_name;
    if (std::strcmp(szName, ".") == 0 || std::strcmp(szName, "..") == 0) continue;
    struct stat zStat;
    if (pEntry->d_type == DT_DIR)
      pfnEntry(szName, true, false);
    else if (fstatat(iFolderFd, szName, &zStat, AT_SYMLINK_NOFOLLOW) == 0 && S_ISLNK(zStat.st_mode))
      pfnEntry(szName, false, true);
    else if (posix::ExistsAt(iFolderFd, szName, zStat))
      pfnEntry(szName, S_ISDIR(zStat.st_mode), false);
  }
}

bool CopyBytes(int iFrom, int iTo) {
  for (;;) {
    ssize_t nCopied = copy_file_range(iFrom, nullptr, iTo, nullptr, 1 << 30, 0);
    if (nCopied < 0 && (errno == EXDEV || errno == EINVAL || errno == ENOSYS || errno == EOPNOTSUPP))
      nCopied = sendfile(iTo, iFrom, nullptr, 1 << 30);
    if (nCopied == 0) return true;
    if (nCopied < 0 && errno != EINTR) return FailWithErrno();
  }
}

}  // namespace

bool PathExists(const KivWString& csPath) {
  std::string strPath;
  if (!FaultAllows(KivSysCall::PathExists) || !NativePath(csPath, strPath)) return false;
  struct stat zStat;
  return posix::ExistsAt(AT_FDCWD, strPath.c_str(), zStat);
}

bool FolderExists(const KivWString& csPath) {
  std::string strPath;
  struct stat zStat;
  return NativePath(csPath, strPath) && stat(strPath.c_str(), &zStat) == 0 && S_ISDIR(zStat.st_mode);
}

bool IsLink(const KivWString& csPath) {
  std::string strPath;
  if (!NativePath(csPath, strPath)) return false;
  while (strPath.size() > 1 && strPath.back() == '/') strPath.pop_back();  // a path with one at its end is the target's
  struct stat zStat;
  return lstat(strPath.c_str(), &zStat) == 0 && S_ISLNK(zStat.st_mode);
}

bool ListFolder(const KivWString& csFolder, std::vector<KivSysFolderEntry>& vzEntries) {
  vzEntries.clear();
  std::string strFolder;
  if (!FaultAllows(KivSysCall::FolderList) || !NativePath(csFolder, strFolder)) return false;
  return ForEntries(strFolder, [&vzEntries](const char* szName, bool bFolder, bool bLink) {
    vzEntries.push_back({posix::WideName(szName), bFolder, bLink});
  });
}

bool MakeFolder(const KivWString& csFolder) {
  std::string strFolder;
  if (!FaultAllows(KivSysCall::FolderMake) || !NativePath(csFolder, strFolder)) return false;
  return mkdir(strFolder.c_str(), 0700) == 0 ? true : FailWithErrno();
}

bool RemoveFolder(const KivWString& csFolder) {
  std::string strFolder;
  if (!FaultAllows(KivSysCall::FolderRemove) || !NativePath(csFolder, strFolder)) return false;
  if (rmdir(strFolder.c_str()) == 0) return true;
  if (errno != ENOTEMPTY && errno != EEXIST) return FailWithErrno();
  // Dead delete-on-close files do not count.
  ForEntries(strFolder, [](const char*, bool, bool) {});
  return rmdir(strFolder.c_str()) == 0 ? true : FailWithErrno();
}

bool RemoveFileAt(const KivWString& csPath) {
  std::string strPath;
  if (!FaultAllows(KivSysCall::FileRemove) || !NativePath(csPath, strPath)) return false;
  if (posix::DeletionDenied(strPath.c_str())) return FailWith(EBUSY);
  struct stat zStat;
  if (lstat(strPath.c_str(), &zStat) == 0 && S_ISREG(zStat.st_mode) && (zStat.st_mode & S_ISVTX) &&
      !posix::ExistsAt(AT_FDCWD, strPath.c_str(), zStat))
    return FailWith(ENOENT);
  return unlink(strPath.c_str()) == 0 ? true : FailWithErrno();
}

bool ClearReadOnly(const KivWString& csPath) {
  std::string strPath;
  struct stat zStat;
  if (!NativePath(csPath, strPath)) return false;
  if (lstat(strPath.c_str(), &zStat) != 0) return FailWithErrno();
  if (S_ISLNK(zStat.st_mode)) return true;
  const mode_t iNeeded = S_ISDIR(zStat.st_mode) ? S_IWUSR | S_IXUSR : S_IWUSR;
  if ((zStat.st_mode & iNeeded) == iNeeded) return true;
  return chmod(strPath.c_str(), (zStat.st_mode & 07777) | iNeeded) == 0 ? true : FailWithErrno();
}

namespace {

constexpr int32_t kRenameFailed = -1;

// To another file system.
int32_t MoveByCopy(const KivWString& csFrom, const KivWString& csTo) {
  if (!CopyFileTo(csFrom, csTo)) return kRenameFailed;
  RemoveFileAt(csFrom);
  return 0;
}

// On a file system that cannot refuse to replace: a link fails where the name is taken, and folders replace no folder
// that holds anything.
int32_t MoveByLink(const char* szFrom, const char* szTo) {
  if (posix::LinkName(szFrom, szTo) == 0) {
    if (unlink(szFrom) == 0) return 0;
    FailWithErrno();
    unlink(szTo);
    return kRenameFailed;
  }
  struct stat zStat;
  if (errno == EEXIST || lstat(szTo, &zStat) == 0) return FailWith(EEXIST), kRenameFailed;
  return std::rename(szFrom, szTo) == 0 ? 0 : (FailWithErrno(), kRenameFailed);
}

}  // namespace

int32_t RenamePath(const KivWString& csFrom, const KivWString& csTo) {
  std::string strFrom, strTo;
  if (!FaultAllows(KivSysCall::FileMove) || !NativePath(csFrom, strFrom) || !NativePath(csTo, strTo))
    return kRenameFailed;
  struct stat zFrom, zTo;
  if (!posix::ExistsAt(AT_FDCWD, strFrom.c_str(), zFrom)) return FailWith(ENOENT), kRenameFailed;
  if (S_ISREG(zFrom.st_mode) && posix::DeletionDenied(strFrom.c_str())) return FailWith(EBUSY), kRenameFailed;
  if (posix::ExistsAt(AT_FDCWD, strTo.c_str(), zTo)) return FailWith(EEXIST), kRenameFailed;
  if (posix::RenameNoReplace(strFrom.c_str(), strTo.c_str()) == 0) return 0;
  if (errno == EXDEV && S_ISREG(zFrom.st_mode)) return MoveByCopy(csFrom, csTo);
  // A file system or a kernel without this call, or a filter of system calls; EPERM may be meant, and is met again.
  if (errno == EINVAL || errno == ENOSYS || errno == EPERM) return MoveByLink(strFrom.c_str(), strTo.c_str());
  return FailWithErrno(), kRenameFailed;
}

int32_t ReplacePath(const KivWString& csFrom, const KivWString& csTo) {
  std::string strFrom, strTo;
  if (!FaultAllows(KivSysCall::FileMove) || !NativePath(csFrom, strFrom) || !NativePath(csTo, strTo))
    return kRenameFailed;
  struct stat zFrom, zTo;
  if (!posix::ExistsAt(AT_FDCWD, strFrom.c_str(), zFrom)) return FailWith(ENOENT), kRenameFailed;
  if (!S_ISREG(zFrom.st_mode)) return FailWith(EISDIR), kRenameFailed;
  const bool bThere = lstat(strTo.c_str(), &zTo) == 0;
  if (posix::DeletionDenied(strFrom.c_str()) ||
      (bThere && S_ISREG(zTo.st_mode) && posix::DeletionDenied(strTo.c_str())))
    return FailWith(EBUSY), kRenameFailed;
  return std::rename(strFrom.c_str(), strTo.c_str()) == 0 ? 0 : (FailWithErrno(), kRenameFailed);
}

bool CopyFileTo(const KivWString& csFrom, const KivWString& csTo) {
  std::string strTo;
  if (!FaultAllows(KivSysCall::FileCopy) || !NativePath(csTo, strTo)) return false;
  const KivSysFile zFrom = KivSysFile::Open(
      csFrom, {KivSysAccess::Read, KivSysShare::All, KivSysDisposition::OpenExisting, KivSysFileFlags::None});
  if (!zFrom.IsOpen()) return false;
  KivSysFile zTo = KivSysFile::Open(
      csTo, {KivSysAccess::ReadWrite, KivSysShare::None, KivSysDisposition::CreateNew, KivSysFileFlags::None});
  if (!zTo.IsOpen()) return false;
  const int iFrom = static_cast<int>(zFrom.GetNativeHandle());
  const int iTo = static_cast<int>(zTo.GetNativeHandle());
  struct stat zStat;
  bool bDone = fstat(iFrom, &zStat) == 0 ? CopyBytes(iFrom, iTo) : FailWithErrno();
  if (bDone) {
    const timespec viTimes[2] = {zStat.st_atim, zStat.st_mtim};
    bDone = futimens(iTo, viTimes) == 0 && fchmod(iTo, zStat.st_mode & 0700) == 0 ? true : FailWithErrno();
  }
  if (!bDone) unlink(strTo.c_str());
  return bDone;
}

bool IsRelativePath(const KivWString& csPath) {
  return csPath.empty() || csPath[0] != kSeparator;
}

bool AbsolutePath(const KivWString& csPath, KivWString& csAbsolute) {
  std::string strPath;
  if (!NativePath(csPath, strPath)) return false;
  if (!IsRelativePath(csPath)) return csAbsolute = csPath, true;
  const FreedText pcFolder(getcwd(nullptr, 0));
  if (pcFolder == nullptr) return FailWithErrno();
  // A current folder that the system cannot reach from the root has a name in brackets.
  if (*pcFolder != '/') return FailWith(ENOENT);
  KivWString csFolder = posix::WideName(pcFolder.get());
  if (csFolder.back() != kSeparator) csFolder += kSeparator;
  return csAbsolute = csFolder + csPath, true;
}

bool RealPath(const KivWString& csPath, KivWString& csReal) {
  std::string strPath;
  if (!NativePath(csPath, strPath)) return false;
  const FreedText pcReal(realpath(strPath.c_str(), nullptr));
  if (pcReal == nullptr) return FailWithErrno();
  return csReal = posix::WideName(pcReal.get()), true;
}

bool ProgramPath(KivWString& csPath) {
  if (!FaultAllows(KivSysCall::ProgramPath)) return false;
  char szPath[4096];
  const ssize_t nPath = readlink("/proc/self/exe", szPath, sizeof szPath);
  if (nPath <= 0) return FailWithErrno();
  if (static_cast<size_t>(nPath) == sizeof szPath) return FailWith(ENAMETOOLONG);
  csPath = posix::WideName({szPath, static_cast<size_t>(nPath)});
  return true;
}

bool CanWriteFolder(const KivWString& csFolder) {
  std::string strFolder;
  if (!NativePath(csFolder, strFolder)) return false;
  struct stat zStat;
  if (stat(strFolder.c_str(), &zStat) != 0) return FailWithErrno();
  if (!S_ISDIR(zStat.st_mode)) return FailWith(ENOTDIR);
  return access(strFolder.c_str(), W_OK | X_OK) == 0 ? true : FailWithErrno();
}

KivWString PrivateTempFolder() {
  std::string strFolder;
  const char* const vszBases[] = {std::getenv("XDG_RUNTIME_DIR"), std::getenv("TMPDIR"), "/tmp"};
  for (const char* szBase : vszBases)
    if (PrivateFolderIn(szBase, strFolder)) return posix::WideName(strFolder);
  return u"/dev/null";  // others hold the name everywhere: nothing can be made below this one
}

bool EnvironmentText(const KivWString& csName, KivWString& csValue) {
  const char* const szValue = std::getenv(posix::NativeName(csName).c_str());
  if (szValue == nullptr) return false;
  csValue = posix::WideName(szValue);
  return true;
}

}  // namespace kiv::sys
