#include "KivSysMapping.h"

#include <utility>

#include "KivSysWindows.h"

namespace kiv {

KivSysMapping::KivSysMapping() noexcept = default;

KivSysMapping::KivSysMapping(KivSysMapping&& zOther) noexcept
    : m_iHandle(std::exchange(zOther.m_iHandle, 0)),
      m_iCapacity(std::exchange(zOther.m_iCapacity, 0)),
      m_bReadOnly(zOther.m_bReadOnly) {}

KivSysMapping& KivSysMapping::operator=(KivSysMapping&& zOther) noexcept {
  if (this != &zOther) {
    Close();
    m_iHandle = std::exchange(zOther.m_iHandle, 0);
    m_iCapacity = std::exchange(zOther.m_iCapacity, 0);
    m_bReadOnly = zOther.m_bReadOnly;
  }
  return *this;
}

KivSysMapping::~KivSysMapping() {
  Close();
}

bool KivSysMapping::Create(KivSysFile& zFile, bool bReadOnly, uint64_t iCapacity, const KivWString& csName) {
  Close();
  if (sys::FaultFails(KivSysCall::MappingCreate)) return false;
  const HANDLE hMapping =
      CreateFileMappingW(sys::ToHandle(zFile.GetNativeHandle()), nullptr, bReadOnly ? PAGE_READONLY : PAGE_READWRITE,
                         static_cast<DWORD>(iCapacity >> 32), static_cast<DWORD>(iCapacity & 0xFFFFFFFF),
                         csName.empty() ? nullptr : sys::ToSystem(csName).c_str());
  if (hMapping == nullptr) return false;
  if (iCapacity == 0 && !zFile.GetLength(iCapacity)) {
    CloseHandle(hMapping);
    return false;
  }
  m_iHandle = sys::FromHandle(hMapping);
  m_iCapacity = iCapacity;
  m_bReadOnly = bReadOnly;
  return true;
}

bool KivSysMapping::IsOpen() const noexcept {
  return m_iHandle != 0;
}
uint64_t KivSysMapping::GetCapacity() const noexcept {
  return m_iCapacity;
}

void KivSysMapping::Close() noexcept {
  if (IsOpen()) CloseHandle(sys::ToHandle(std::exchange(m_iHandle, 0)));
  m_iCapacity = 0;
}

uint8_t* KivSysMapping::MapView(uint64_t iOffset, uint64_t nSize) {
  if (!IsOpen() || nSize == 0 || iOffset > m_iCapacity || nSize > m_iCapacity - iOffset) return nullptr;
  if (sys::FaultFails(KivSysCall::MappingView)) return nullptr;
  return static_cast<uint8_t*>(
      MapViewOfFile(sys::ToHandle(m_iHandle), m_bReadOnly ? FILE_MAP_READ : FILE_MAP_ALL_ACCESS,
                    static_cast<DWORD>(iOffset >> 32), static_cast<DWORD>(iOffset & 0xFFFFFFFF), nSize));
}

void KivSysMapping::UnmapView(uint8_t* pView, uint64_t) noexcept {
  if (pView != nullptr) UnmapViewOfFile(pView);
}

bool KivSysMapping::MapsWhole() noexcept {
  return false;
}

}  // namespace kiv
