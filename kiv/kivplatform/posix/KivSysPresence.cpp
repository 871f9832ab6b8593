#include "KivSysPresence.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "KivSysFolder.h"
#include "KivSysPosix.h"

namespace kiv {
namespace {

bool IsLiving(int iFd) {
  struct stat zStat;
  return fstat(iFd, &zStat) == 0 && zStat.st_nlink != 0 && (zStat.st_mode & S_ISVTX) != 0 &&
         sys::posix::BytesHeld(iFd, sys::posix::kLockOwner, 1);
}

}  // namespace

KivSysPresence::~KivSysPresence() {
  Forget();
}

void KivSysPresence::Forget() noexcept {
  if (m_iHandle != kNoHandle) close(static_cast<int>(m_iHandle));
  m_iHandle = kNoHandle;
}

bool KivSysPresence::Exists(const KivWString& csPath) {
  if (m_iHandle != kNoHandle) {
    if (IsLiving(static_cast<int>(m_iHandle))) return true;
    Forget();
  }
  if (!sys::PathExists(csPath)) return false;
  std::string strPath;
  if (!sys::posix::NativePath(csPath, strPath)) return true;
  const int iFd = open(strPath.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY);
  if (iFd < 0) return true;
  m_iHandle = iFd;
  if (!IsLiving(iFd)) Forget();  // no such file, or gone in this instant: the next question tells
  return true;
}

}  // namespace kiv
