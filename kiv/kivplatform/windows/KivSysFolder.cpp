#include "KivSysFolder.h"

#include <direct.h>
#include <shlwapi.h>

#include <atomic>
#include <cstdio>

#include "KivSysFile.h"
#include "KivSysProcess.h"
#include "KivSysWindows.h"

namespace kiv::sys {
namespace {

// A path that the system would cut at a zero unit names nothing.
bool IsUsable(const KivWString& csPath) {
  return !csPath.empty() && csPath.find(u'\0') == KivWString::npos;
}

DWORD Attributes(const KivWString& csPath) {
  return IsUsable(csPath) ? GetFileAttributesW(ToSystem(csPath).c_str()) : INVALID_FILE_ATTRIBUTES;
}

// A reparse point that stands for another name; others (such as those of cloud storage) are files and folders like any.
bool IsLink(const WIN32_FIND_DATAW& zFound) {
  const bool bReparse = (zFound.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
  return bReparse && (zFound.dwReserved0 == 0 || IsReparseTagNameSurrogate(zFound.dwReserved0));
}

// A text that the system gives by pfnGet(buffer, its units): the units that it has written, those that it needs with
// the zero at the end if the buffer is too small, or 0 on failure.
template <typename Get>
bool TakeWhole(Get&& pfnGet, KivWString& csText) {
  std::wstring csFound(260, L'\0');
  for (;;) {
    const DWORD nLength = pfnGet(csFound.data(), static_cast<DWORD>(csFound.size()));
    if (nLength == 0) return false;
    if (nLength < csFound.size()) {
      csText = FromSystem(std::wstring_view(csFound.data(), nLength));
      return true;
    }
    csFound.resize(nLength + 1);
  }
}

}  // namespace

const char16_t kSeparator = u'\\';
const KivWStringView kExecutableSuffix = u".exe";

bool PathExists(const KivWString& csPath) {
  return !FaultFails(KivSysCall::PathExists) && Attributes(csPath) != INVALID_FILE_ATTRIBUTES;
}

bool FolderExists(const KivWString& csPath) {
  const DWORD iAttributes = Attributes(csPath);
  return iAttributes != INVALID_FILE_ATTRIBUTES && (iAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

bool IsLink(const KivWString& csPath) {
  KivWString csName = csPath;
  while (!csName.empty() && (csName.back() == u'\\' || csName.back() == u'/')) csName.pop_back();
  const DWORD iAttributes = Attributes(csName);
  if (iAttributes == INVALID_FILE_ATTRIBUTES || (iAttributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0) return false;
  WIN32_FIND_DATAW zFound;
  const HANDLE hFind = FindFirstFileW(ToSystem(csName).c_str(), &zFound);
  if (hFind == INVALID_HANDLE_VALUE) return false;
  FindClose(hFind);
  return IsLink(zFound);
}

bool ListFolder(const KivWString& csFolder, std::vector<KivSysFolderEntry>& vzEntries) {
  vzEntries.clear();
  if (!IsUsable(csFolder) || FaultFails(KivSysCall::FolderList)) return false;
  WIN32_FIND_DATAW zFound;
  const HANDLE hFind = FindFirstFileW(ToSystem(csFolder + u"\\*").c_str(), &zFound);
  if (hFind == INVALID_HANDLE_VALUE) return GetLastError() == ERROR_FILE_NOT_FOUND && FolderExists(csFolder);
  do {
    KivSysFolderEntry zEntry;
    zEntry.m_csName = FromSystem(zFound.cFileName);
    zEntry.m_bLink = IsLink(zFound);
    zEntry.m_bFolder = !zEntry.m_bLink && (zFound.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    if (zEntry.m_csName != u"." && zEntry.m_csName != u"..") vzEntries.push_back(std::move(zEntry));
  } while (FindNextFileW(hFind, &zFound));
  const bool bWhole = GetLastError() == ERROR_NO_MORE_FILES;
  FindClose(hFind);
  return bWhole;
}

bool MakeFolder(const KivWString& csFolder) {
  if (!IsUsable(csFolder) || FaultFails(KivSysCall::FolderMake)) return false;
  return _wmkdir(ToSystem(csFolder).c_str()) == 0;
}

bool RemoveFolder(const KivWString& csFolder) {
  if (!IsUsable(csFolder) || FaultFails(KivSysCall::FolderRemove)) return false;
  return RemoveDirectoryW(ToSystem(csFolder).c_str()) != FALSE;
}

bool RemoveFileAt(const KivWString& csPath) {
  if (!IsUsable(csPath) || FaultFails(KivSysCall::FileRemove)) return false;
  const std::wstring csSystem = ToSystem(csPath);
  if (FolderExists(csPath) && IsLink(csPath)) return RemoveDirectoryW(csSystem.c_str()) != FALSE;  // the link alone
  return DeleteFileW(csSystem.c_str()) != FALSE;
}

bool ClearReadOnly(const KivWString& csPath) {
  const DWORD iAttributes = Attributes(csPath);
  if (iAttributes == INVALID_FILE_ATTRIBUTES) return false;
  if ((iAttributes & FILE_ATTRIBUTE_READONLY) == 0) return true;
  return SetFileAttributesW(ToSystem(csPath).c_str(), iAttributes & ~static_cast<DWORD>(FILE_ATTRIBUTE_READONLY)) !=
         FALSE;
}

int32_t RenamePath(const KivWString& csFrom, const KivWString& csTo) {
  if (!IsUsable(csFrom) || !IsUsable(csTo) || FaultFails(KivSysCall::FileMove)) return -1;
  return _wrename(ToSystem(csFrom).c_str(), ToSystem(csTo).c_str());
}

int32_t ReplacePath(const KivWString& csFrom, const KivWString& csTo) {
  if (!IsUsable(csFrom) || !IsUsable(csTo) || FaultFails(KivSysCall::FileMove)) return -1;
  const DWORD iFrom = Attributes(csFrom);
  if (iFrom == INVALID_FILE_ATTRIBUTES || (iFrom & FILE_ATTRIBUTE_DIRECTORY) != 0) return -1;
  return MoveFileExW(ToSystem(csFrom).c_str(), ToSystem(csTo).c_str(), MOVEFILE_REPLACE_EXISTING) != FALSE ? 0 : -1;
}

bool CopyFileTo(const KivWString& csFrom, const KivWString& csTo) {
  if (!IsUsable(csFrom) || !IsUsable(csTo) || FaultFails(KivSysCall::FileCopy)) return false;
  return CopyFileW(ToSystem(csFrom).c_str(), ToSystem(csTo).c_str(), TRUE) != FALSE;
}

bool IsRelativePath(const KivWString& csPath) {
  // PathIsRelativeW takes no path of 260 units or more; the beginning decides.
  return PathIsRelativeW(ToSystem(csPath.substr(0, 200)).c_str()) != FALSE;
}

bool AbsolutePath(const KivWString& csPath, KivWString& csAbsolute) {
  if (!IsUsable(csPath)) return SetLastError(ERROR_INVALID_NAME), false;
  const std::wstring csSystem = ToSystem(csPath);
  return TakeWhole([&csSystem](wchar_t* pc, DWORD n) { return GetFullPathNameW(csSystem.c_str(), n, pc, nullptr); },
                   csAbsolute);
}

bool RealPath(const KivWString& csPath, KivWString& csReal) {
  if (!IsUsable(csPath)) return SetLastError(ERROR_INVALID_NAME), false;
  const HANDLE hFile = CreateFileW(ToSystem(csPath).c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                   nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
  if (hFile == INVALID_HANDLE_VALUE) return false;
  KivWString csFound;
  const bool bFound =
      TakeWhole([hFile](wchar_t* pc, DWORD n) { return GetFinalPathNameByHandleW(hFile, pc, n, 0); }, csFound);
  CloseHandle(hFile);
  if (!bFound) return false;
  if (csFound.starts_with(u"\\\\?\\UNC\\"))
    csFound.replace(0, 8, u"\\\\");
  else if (csFound.starts_with(u"\\\\?\\"))
    csFound.erase(0, 4);
  return csReal = csFound, true;
}

bool ProgramPath(KivWString& csPath) {
  if (FaultFails(KivSysCall::ProgramPath)) return false;
  wchar_t acPath[260] = {};
  const DWORD nLength = GetModuleFileNameW(nullptr, acPath, 260);
  if (nLength == 0 || nLength >= 260) return false;
  csPath = FromSystem(std::wstring_view(acPath, nLength));
  return true;
}

bool CanWriteFolder(const KivWString& csFolder) {
  if (!FolderExists(csFolder)) return false;
  static std::atomic<uint32_t> iCounter{0};
  KivSysOpenMode zMode;
  zMode.m_iAccess = KivSysAccess::ReadWrite;
  zMode.m_iShare = KivSysShare::None;
  zMode.m_iDisposition = KivSysDisposition::CreateNew;
  zMode.m_iFlags = KivSysFileFlags::Temporary | KivSysFileFlags::DeleteOnClose;
  const std::string strName =
      "\\kiv_write_test_" + std::to_string(CurrentProcessNumber()) + "_" + std::to_string(++iCounter);
  return KivSysFile::Open(csFolder + AnsiToWide(strName), zMode).IsOpen();
}

KivWString PrivateTempFolder() {
  wchar_t acPath[MAX_PATH + 2] = {};
  const DWORD nLength = GetTempPathW(MAX_PATH + 1, acPath);
  KivWString csPath = nLength == 0 || nLength > MAX_PATH ? KivWString(u"C:\\tmp") : FromSystem(acPath);
  while (csPath.size() > 3 && csPath.back() == u'\\') csPath.pop_back();
  return csPath;
}

bool EnvironmentText(const KivWString& csName, KivWString& csValue) {
  const std::wstring csSystem = ToSystem(csName);
  std::wstring csText(256, L'\0');
  for (;;) {
    SetLastError(NO_ERROR);
    const DWORD nLength = GetEnvironmentVariableW(csSystem.c_str(), csText.data(), static_cast<DWORD>(csText.size()));
    if (nLength == 0 && GetLastError() == ERROR_ENVVAR_NOT_FOUND) return false;
    if (nLength < csText.size()) {
      csValue = FromSystem(std::wstring_view(csText.data(), nLength));
      return true;
    }
    csText.resize(nLength + 1);
  }
}

}  // namespace kiv::sys
