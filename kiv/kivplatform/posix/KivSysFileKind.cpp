#include "KivSysFileKind.h"

#include <sys/stat.h>

#include <cstdio>
#include <memory>
#include <string>

#include "KivSysPosix.h"

namespace kiv::sys {
namespace {

// The process's mask, read without setting it: other threads may make files meanwhile. All bits if it cannot be read.
mode_t PresentMask() {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> pzStatus(std::fopen("/proc/self/status", "re"), std::fclose);
  char szLine[256];
  unsigned iMask = 0;
  while (pzStatus != nullptr && std::fgets(szLine, sizeof szLine, pzStatus.get()) != nullptr)
    if (std::sscanf(szLine, "Umask: %o", &iMask) == 1) return static_cast<mode_t>(iMask);
  return 0777;
}

bool Look(const KivWString& csPath, struct stat& zStat) {
  std::string strPath;
  return posix::NativePath(csPath, strPath) && stat(strPath.c_str(), &zStat) == 0;
}

}  // namespace

bool IsNoRegularFile(const KivWString& csPath) {
  struct stat zStat;
  return Look(csPath, zStat) && !S_ISREG(zStat.st_mode);
}

std::optional<KivSysFileIdentity> FindFileIdentity(const KivWString& csPath) {
  struct stat zStat;
  if (!Look(csPath, zStat)) return std::nullopt;
  return KivSysFileIdentity{static_cast<uint64_t>(zStat.st_dev), static_cast<uint64_t>(zStat.st_ino)};
}

bool TakePermissionsFor(const KivWString& csNew, const KivWString& csTarget) {
  std::string strNew, strTarget;
  if (!posix::NativePath(csNew, strNew) || !posix::NativePath(csTarget, strTarget)) return false;
  struct stat zStat;
  const bool bThere = lstat(strTarget.c_str(), &zStat) == 0 && S_ISREG(zStat.st_mode);
  const mode_t iMode = bThere ? zStat.st_mode & 0777 : 0600 | (0666 & ~PresentMask());
  return chmod(strNew.c_str(), iMode) == 0 ? true : posix::FailWithErrno();
}

}  // namespace kiv::sys
