#include "KivSysFileKind.h"

#include "KivSysWindows.h"

namespace kiv::sys {

bool IsNoRegularFile(const KivWString& csPath) {
  if (!IsUsableName(csPath)) return false;
  // No access is asked for, so that a file that another has open tells its kind as well; folders need the flag.
  const HANDLE hFile = CreateFileW(ToSystem(csPath).c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                   nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
  if (hFile == INVALID_HANDLE_VALUE) return false;
  bool bRegular = GetFileType(hFile) == FILE_TYPE_DISK;
  BY_HANDLE_FILE_INFORMATION zInformation;
  if (bRegular && GetFileInformationByHandle(hFile, &zInformation) != FALSE)
    bRegular = (zInformation.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
  CloseHandle(hFile);
  return !bRegular;
}

bool TakePermissionsFor(const KivWString&, const KivWString&) {
  return true;
}

}  // namespace kiv::sys
