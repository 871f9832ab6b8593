#include "KivSysFile.h"

#include <string>
#include <utility>

#include "KivSysWindows.h"
// Need windows.h before them.
#include <psapi.h>
#include <winioctl.h>

namespace kiv {
namespace {

DWORD SystemAccess(KivSysAccess iAccess) {
  DWORD iSystem = 0;
  if ((static_cast<uint32_t>(iAccess) & static_cast<uint32_t>(KivSysAccess::Read)) != 0) iSystem |= GENERIC_READ;
  if ((static_cast<uint32_t>(iAccess) & static_cast<uint32_t>(KivSysAccess::Write)) != 0) iSystem |= GENERIC_WRITE;
  return iSystem;
}

DWORD SystemShare(KivSysShare iShare) {
  const uint32_t iBits = static_cast<uint32_t>(iShare);
  DWORD iSystem = 0;
  if ((iBits & static_cast<uint32_t>(KivSysShare::Read)) != 0) iSystem |= FILE_SHARE_READ;
  if ((iBits & static_cast<uint32_t>(KivSysShare::Write)) != 0) iSystem |= FILE_SHARE_WRITE;
  if ((iBits & static_cast<uint32_t>(KivSysShare::Delete)) != 0) iSystem |= FILE_SHARE_DELETE;
  return iSystem;
}

DWORD SystemDisposition(KivSysDisposition iDisposition) {
  switch (iDisposition) {
    case KivSysDisposition::CreateNew:
      return CREATE_NEW;
    case KivSysDisposition::CreateAlways:
      return CREATE_ALWAYS;
    case KivSysDisposition::OpenAlways:
      return OPEN_ALWAYS;
    case KivSysDisposition::OpenExisting:
      break;
  }
  return OPEN_EXISTING;
}

DWORD SystemFlags(KivSysFileFlags iFlags) {
  DWORD iSystem = 0;
  if (HasFlag(iFlags, KivSysFileFlags::Temporary)) iSystem |= FILE_ATTRIBUTE_TEMPORARY;
  if (HasFlag(iFlags, KivSysFileFlags::DeleteOnClose)) iSystem |= FILE_FLAG_DELETE_ON_CLOSE;
  if (HasFlag(iFlags, KivSysFileFlags::RandomAccess)) iSystem |= FILE_FLAG_RANDOM_ACCESS;
  if (HasFlag(iFlags, KivSysFileFlags::SequentialScan)) iSystem |= FILE_FLAG_SEQUENTIAL_SCAN;
  return iSystem;
}

bool Seek(HANDLE hFile, uint64_t iOffset) {
  LONG iHigh = static_cast<LONG>(iOffset >> 32);
  const DWORD iLow = SetFilePointer(hFile, static_cast<LONG>(iOffset & 0xFFFFFFFF), &iHigh, FILE_BEGIN);
  return iLow != INVALID_SET_FILE_POINTER || GetLastError() == NO_ERROR;
}

// A cut transfer is half as long, and at least one byte shorter than asked.
uint32_t CutCount(uint32_t nCount) {
  return nCount / 2;
}

}  // namespace

KivSysFile::KivSysFile(KivSysFile&& zOther) noexcept : m_iHandle(std::exchange(zOther.m_iHandle, kNoHandle)) {}

KivSysFile& KivSysFile::operator=(KivSysFile&& zOther) noexcept {
  if (this != &zOther) {
    Close();
    m_iHandle = std::exchange(zOther.m_iHandle, kNoHandle);
  }
  return *this;
}

KivSysFile::~KivSysFile() {
  Close();
}

KivSysFile KivSysFile::Open(const KivWString& csPath, const KivSysOpenMode& zMode) {
  KivSysFile zFile;
  if (sys::FaultFails(KivSysCall::FileOpen)) return zFile;
  if (csPath.find(u'\0') != KivWString::npos) {
    SetLastError(ERROR_INVALID_NAME);
    return zFile;
  }
  const HANDLE hFile =
      CreateFileW(sys::ToSystem(csPath).c_str(), SystemAccess(zMode.m_iAccess), SystemShare(zMode.m_iShare), nullptr,
                  SystemDisposition(zMode.m_iDisposition), SystemFlags(zMode.m_iFlags), nullptr);
  zFile.m_iHandle = sys::FromHandle(hFile);
  return zFile;
}

void KivSysFile::Close() noexcept {
  if (IsOpen()) CloseHandle(sys::ToHandle(std::exchange(m_iHandle, kNoHandle)));
}

bool KivSysFile::ReadAt(uint64_t iOffset, void* pBuffer, uint32_t nCount, uint32_t& nDone) {
  nDone = 0;
  const sys::FaultAnswer iAnswer = sys::AskFault(KivSysCall::FileRead);
  if (iAnswer == sys::FaultAnswer::Fail) return false;
  if (iAnswer == sys::FaultAnswer::Short) nCount = CutCount(nCount);
  const HANDLE hFile = sys::ToHandle(m_iHandle);
  if (!Seek(hFile, iOffset)) return false;
  DWORD nRead = 0;
  const BOOL bOk = ReadFile(hFile, pBuffer, nCount, &nRead, nullptr);
  nDone = nRead;
  return bOk != FALSE;
}

bool KivSysFile::WriteAt(uint64_t iOffset, const void* pBuffer, uint32_t nCount, uint32_t& nDone) {
  nDone = 0;
  const sys::FaultAnswer iAnswer = sys::AskFault(KivSysCall::FileWrite);
  if (iAnswer == sys::FaultAnswer::Fail) return false;
  if (iAnswer == sys::FaultAnswer::Short) nCount = CutCount(nCount);
  const HANDLE hFile = sys::ToHandle(m_iHandle);
  if (!Seek(hFile, iOffset)) return false;
  DWORD nWritten = 0;
  const BOOL bOk = WriteFile(hFile, pBuffer, nCount, &nWritten, nullptr);
  nDone = nWritten;
  return bOk != FALSE;
}

bool KivSysFile::GetLength(uint64_t& iLength) const {
  iLength = 0;
  if (sys::FaultFails(KivSysCall::FileLength)) return false;
  DWORD iHigh = 0;
  const DWORD iLow = GetFileSize(sys::ToHandle(m_iHandle), &iHigh);
  if (iLow == INVALID_FILE_SIZE && GetLastError() != NO_ERROR) return false;
  iLength = (static_cast<uint64_t>(iHigh) << 32) | iLow;
  return true;
}

bool KivSysFile::SetLength(uint64_t iLength) {
  if (sys::FaultFails(KivSysCall::FileSetLength)) return false;
  const HANDLE hFile = sys::ToHandle(m_iHandle);
  LARGE_INTEGER zTarget;
  zTarget.QuadPart = static_cast<LONGLONG>(iLength);
  if (iLength > INT64_MAX) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return false;
  }
  return SetFilePointerEx(hFile, zTarget, nullptr, FILE_BEGIN) != FALSE && SetEndOfFile(hFile) != FALSE;
}

bool KivSysFile::GetDiskRoom(uint64_t& nFree) const {
  nFree = 0;
  if (sys::FaultFails(KivSysCall::FreeSpace)) return true;
  wchar_t acName[1024] = {};
  const DWORD nName = GetFinalPathNameByHandleW(sys::ToHandle(m_iHandle), acName, 1024, FILE_NAME_NORMALIZED);
  if (nName == 0 || nName >= 1024) return false;
  std::wstring strFolder(acName, nName);
  strFolder.resize(strFolder.rfind(L'\\') + 1);
  ULARGE_INTEGER zFree = {};
  if (!GetDiskFreeSpaceExW(strFolder.c_str(), &zFree, nullptr, nullptr)) return false;
  nFree = zFree.QuadPart;
  return true;
}

bool KivSysFile::IsStillThere(uint64_t&) const {
  return false;
}

bool KivSysFile::ReadersMayStay() noexcept {
  return false;
}

bool KivSysFile::Flush() {
  if (sys::FaultFails(KivSysCall::FileFlush)) return false;
  return FlushFileBuffers(sys::ToHandle(m_iHandle)) != FALSE;
}

bool KivSysFile::GetWriteTime(uint64_t& iTime) const {
  iTime = 0;
  FILETIME zWrite = {};
  if (!GetFileTime(sys::ToHandle(m_iHandle), nullptr, nullptr, &zWrite)) return false;
  iTime = (static_cast<uint64_t>(zWrite.dwHighDateTime) << 32) | zWrite.dwLowDateTime;
  return true;
}

bool KivSysFile::SetSparse() {
  DWORD nReturned = 0;
  return DeviceIoControl(sys::ToHandle(m_iHandle), FSCTL_SET_SPARSE, nullptr, 0, nullptr, 0, &nReturned, nullptr) !=
         FALSE;
}

bool KivSysFile::GetCommTimeouts(KivSysCommTimeouts& zTimeouts) const {
  COMMTIMEOUTS zSystem = {};
  if (!::GetCommTimeouts(sys::ToHandle(m_iHandle), &zSystem)) return false;
  zTimeouts.m_iReadInterval = zSystem.ReadIntervalTimeout;
  zTimeouts.m_iReadTotalMultiplier = zSystem.ReadTotalTimeoutMultiplier;
  zTimeouts.m_iReadTotalConstant = zSystem.ReadTotalTimeoutConstant;
  return true;
}

namespace {

// The mapping's name is one for all threads and processes: who asks while another one does would be given the other's
// file, and hold it so that it cannot be cut. They wait for each other; where that cannot be, the name is asked anyway.
class OneAtATime {
 public:
  OneAtATime() : m_hMutex(CreateMutexW(nullptr, FALSE, L"GetFileNameFromHandleMutex")) {
    constexpr DWORD kPatienceMs = 200;  // a thousand times what it takes; who has it may hang
    if (m_hMutex == nullptr) return;
    const DWORD iWait = WaitForSingleObject(m_hMutex, kPatienceMs);
    m_bHeld = iWait == WAIT_OBJECT_0 || iWait == WAIT_ABANDONED;
  }
  ~OneAtATime() {
    if (m_bHeld) ReleaseMutex(m_hMutex);
    if (m_hMutex != nullptr) CloseHandle(m_hMutex);
  }
  OneAtATime(const OneAtATime&) = delete;
  OneAtATime& operator=(const OneAtATime&) = delete;

 private:
  HANDLE m_hMutex;
  bool m_bHeld = false;
};

}  // namespace

KivWString KivSysFile::GetName() const {
  KivWString csName;
  const OneAtATime zAlone;
  const HANDLE hMapping =
      CreateFileMappingW(sys::ToHandle(m_iHandle), nullptr, PAGE_READONLY, 0, 1, L"GetFileNameFromHandleMapping");
  if (hMapping == nullptr) return csName;
  void* pView = MapViewOfFile(hMapping, FILE_MAP_READ, 0, 0, 1);
  if (pView != nullptr) {
    wchar_t acName[260] = {};
    if (K32GetMappedFileNameW(GetCurrentProcess(), pView, acName, 260) != 0) {
      wchar_t acDrives[512] = {};
      GetLogicalDriveStringsW(511, acDrives);  // the name stays a device path
      csName = sys::FromSystem(acName);
    }
    UnmapViewOfFile(pView);
  }
  CloseHandle(hMapping);
  return csName;
}

namespace sys {

int32_t LastError() noexcept {
  return static_cast<int32_t>(GetLastError());
}
void SetLastErrorNumber(int32_t iError) noexcept {
  SetLastError(static_cast<DWORD>(iError));
}

}  // namespace sys
}  // namespace kiv
