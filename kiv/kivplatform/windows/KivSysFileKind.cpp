#include "KivSysFileKind.h"

#include "KivSysWindows.h"

namespace kiv::sys {
namespace {

// No access is asked for, so that a file that another has open can be looked at as well; folders need the flag.
class LookedAt {
 public:
  explicit LookedAt(const KivWString& csPath) {
    if (IsUsableName(csPath))
      m_hFile = CreateFileW(ToSystem(csPath).c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                            nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
  }
  ~LookedAt() {
    if (IsThere()) CloseHandle(m_hFile);
  }
  LookedAt(const LookedAt&) = delete;
  LookedAt& operator=(const LookedAt&) = delete;

  bool IsThere() const { return m_hFile != INVALID_HANDLE_VALUE; }
  bool IsOnDisk() const { return GetFileType(m_hFile) == FILE_TYPE_DISK; }
  bool GetInformation(BY_HANDLE_FILE_INFORMATION& zInformation) const {
    return GetFileInformationByHandle(m_hFile, &zInformation) != FALSE;
  }

 private:
  HANDLE m_hFile = INVALID_HANDLE_VALUE;
};

}  // namespace

bool IsNoRegularFile(const KivWString& csPath) {
  const LookedAt zFile(csPath);
  if (!zFile.IsThere()) return false;
  BY_HANDLE_FILE_INFORMATION zInformation;
  return !zFile.IsOnDisk() ||
         (zFile.GetInformation(zInformation) && (zInformation.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0);
}

std::optional<KivSysFileIdentity> FindFileIdentity(const KivWString& csPath) {
  const LookedAt zFile(csPath);
  BY_HANDLE_FILE_INFORMATION zInformation;
  if (!zFile.IsThere() || !zFile.GetInformation(zInformation)) return std::nullopt;
  return KivSysFileIdentity{zInformation.dwVolumeSerialNumber,
                            static_cast<uint64_t>(zInformation.nFileIndexHigh) << 32 | zInformation.nFileIndexLow};
}

bool TakePermissionsFor(const KivWString&, const KivWString&) {
  return true;
}

}  // namespace kiv::sys
