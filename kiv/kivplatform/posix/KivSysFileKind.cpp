#include "KivSysFileKind.h"

#include <sys/stat.h>

#include <string>

#include "KivSysPosix.h"

namespace kiv::sys {

bool IsNoRegularFile(const KivWString& csPath) {
  std::string strPath;
  struct stat zStat;
  return posix::NativePath(csPath, strPath) && stat(strPath.c_str(), &zStat) == 0 && !S_ISREG(zStat.st_mode);
}

}  // namespace kiv::sys
