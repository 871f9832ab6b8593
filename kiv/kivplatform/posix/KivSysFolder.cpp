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

bool IsUsableFolder(const char* szFolder) {
  struct stat zStat;
  return szFolder != nullptr && szFolder[0] == '/' && stat(szFolder, &zStat) == 0 && S_ISDIR(zStat.st_mode) &&
         access(szFolder, W_OK | X_OK) == 0;
}

// Calls pfnEntry for each entry that exists, dead delete-on-close files being removed on the way.
template <typename Entry>
bool ForEntries(const std::string& strFolder, Entry&& pfnEntry) {
  const Directory pDirectory(opendir(strFolder.c_str()));
  if (pDirectory == nullptr) return FailWithErrno();
  const int iFolderFd = dirfd(pDirectory.get());
  while (const dirent* pEntry = readdir(pDirectory.get())) {
    const char* const szName = pEntry->d_name;
    if (std::strcmp(szName, ".") == 0 || std::strcmp(szName, "..") == 0) continue;
    if (pEntry->d_type == DT_DIR) {
      pfnEntry(szName, true);
      continue;
    }
    struct stat zStat;
    if (fstatat(iFolderFd, szName, &zStat, AT_SYMLINK_NOFOLLOW) == 0 && S_ISLNK(zStat.st_mode))
      pfnEntry(szName, false);  // never a folder: who removes a tree must not leave it
    else if (posix::ExistsAt(iFolderFd, szName, zStat))
      pfnEntry(szName, S_ISDIR(zStat.st_mode));
  }
  return true;
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
  if (!NativePath(csPath, strPath)) return false;
  struct stat zStat;
  return posix::ExistsAt(AT_FDCWD, strPath.c_str(), zStat);
}

bool FolderExists(const KivWString& csPath) {
  std::string strPath;
  struct stat zStat;
  return NativePath(csPath, strPath) && stat(strPath.c_str(), &zStat) == 0 && S_ISDIR(zStat.st_mode);
}

bool ListFolder(const KivWString& csFolder, std::vector<KivSysFolderEntry>& vzEntries) {
  vzEntries.clear();
  std::string strFolder;
  if (!FaultAllows(KivSysCall::FolderList) || !NativePath(csFolder, strFolder)) return false;
  return ForEntries(strFolder, [&vzEntries](const char* szName, bool bFolder) {
    vzEntries.push_back({Utf8ToWide(szName), bFolder});
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
  ForEntries(strFolder, [](const char*, bool) {});
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
  if (S_ISLNK(zStat.st_mode) || (zStat.st_mode & S_IWUSR)) return true;  // what a link leads to is not touched
  return chmod(strPath.c_str(), (zStat.st_mode & 07777) | S_IWUSR) == 0 ? true : FailWithErrno();
}

int32_t RenamePath(const KivWString& csFrom, const KivWString& csTo) {
  constexpr int32_t kFailed = -1;
  std::string strFrom, strTo;
  if (!FaultAllows(KivSysCall::FileMove) || !NativePath(csFrom, strFrom) || !NativePath(csTo, strTo)) return kFailed;
  struct stat zStat;
  if (!posix::ExistsAt(AT_FDCWD, strFrom.c_str(), zStat)) return FailWith(ENOENT), kFailed;
  if (S_ISREG(zStat.st_mode) && posix::DeletionDenied(strFrom.c_str())) return FailWith(EBUSY), kFailed;
  if (posix::ExistsAt(AT_FDCWD, strTo.c_str(), zStat)) return FailWith(EEXIST), kFailed;
  if (renameat2(AT_FDCWD, strFrom.c_str(), AT_FDCWD, strTo.c_str(), RENAME_NOREPLACE) == 0) return 0;
  if (errno != EINVAL && errno != ENOSYS) return FailWithErrno(), kFailed;
  // A file system that cannot refuse to replace: link fails where the name is taken, and folders replace no folder
  // that holds anything.
  if (link(strFrom.c_str(), strTo.c_str()) == 0) {
    unlink(strFrom.c_str());
    return 0;
  }
  if (errno == EEXIST || access(strTo.c_str(), F_OK) == 0) return FailWith(EEXIST), kFailed;
  return std::rename(strFrom.c_str(), strTo.c_str()) == 0 ? 0 : (FailWithErrno(), kFailed);
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

bool ProgramPath(KivWString& csPath) {
  char szPath[4096];
  const ssize_t nPath = readlink("/proc/self/exe", szPath, sizeof szPath);
  if (nPath <= 0) return FailWithErrno();
  if (static_cast<size_t>(nPath) == sizeof szPath) return FailWith(ENAMETOOLONG);
  csPath = Utf8ToWide({szPath, static_cast<size_t>(nPath)});
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
  for (const char* szVariable : {"XDG_RUNTIME_DIR", "TMPDIR"}) {
    const char* const szFolder = std::getenv(szVariable);
    if (!IsUsableFolder(szFolder)) continue;
    std::string strFolder = szFolder;
    while (strFolder.size() > 1 && strFolder.back() == '/') strFolder.pop_back();
    return Utf8ToWide(strFolder);
  }
  return u"/tmp";
}

bool EnvironmentText(const KivWString& csName, KivWString& csValue) {
  const char* const szValue = std::getenv(WideToUtf8(csName).c_str());
  if (szValue == nullptr) return false;
  csValue = Utf8ToWide(szValue);
  return true;
}

}  // namespace kiv::sys
