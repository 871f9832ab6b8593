#include "KivSysMapping.h"

#include <array>
#include <cstdio>
#include <mutex>
#include <string>
#include <utility>

#include "KivSysDiag.h"
#include "KivSysWindows.h"

namespace kiv {
namespace {

// A page that the system cannot bring in (the share has gone, the disk failed) raises an in-page error where it is
// used. Nothing can take its place there, and the process ends by it; the handler sees to it that this is not without a
// report. It knows the views of all mappings; those that find no place here go without.
struct View {
  std::atomic<uintptr_t> m_iBase{0};  // 0: nothing here
  std::atomic<uintptr_t> m_nBytes{0};
};
std::array<View, 1024> g_vzViews;

LONG CALLBACK OnInPageError(EXCEPTION_POINTERS* pzInfo) {
  const EXCEPTION_RECORD& zRecord = *pzInfo->ExceptionRecord;
  if (zRecord.ExceptionCode != static_cast<DWORD>(EXCEPTION_IN_PAGE_ERROR) || zRecord.NumberParameters < 3)
    return EXCEPTION_CONTINUE_SEARCH;
  const uintptr_t iAddress = zRecord.ExceptionInformation[1];
  for (const View& zView : g_vzViews) {
    const uintptr_t iBase = zView.m_iBase.load(std::memory_order_acquire);
    if (iBase == 0 || iAddress < iBase || iAddress - iBase >= zView.m_nBytes.load(std::memory_order_relaxed)) continue;
    char szText[160];
    const int nText = std::snprintf(szText, sizeof szText,
                                    "a mapped file has lost a page: its share has gone, or the disk failed (%08lX)\n",
                                    static_cast<unsigned long>(zRecord.ExceptionInformation[2]));
    DWORD nWritten = 0;
    WriteFile(GetStdHandle(STD_ERROR_HANDLE), szText, static_cast<DWORD>(nText), &nWritten, nullptr);
    sys::WriteSystemLog(u"KivBase", KivWString(szText, szText + nText - 1));
    break;
  }
  return EXCEPTION_CONTINUE_SEARCH;
}

void NoteView(const void* pView, uint64_t nSize) {
  static std::once_flag s_zOnce;
  std::call_once(s_zOnce, [] { AddVectoredExceptionHandler(1, OnInPageError); });
  for (View& zView : g_vzViews) {
    if (zView.m_iBase.load(std::memory_order_relaxed) != 0) continue;
    uintptr_t iNothing = 0;
    if (!zView.m_iBase.compare_exchange_strong(iNothing, reinterpret_cast<uintptr_t>(pView))) continue;
    zView.m_nBytes.store(nSize, std::memory_order_relaxed);
    return;
  }
}

void ForgetView(const void* pView) {
  for (View& zView : g_vzViews) {
    if (zView.m_iBase.load(std::memory_order_relaxed) != reinterpret_cast<uintptr_t>(pView)) continue;
    zView.m_nBytes.store(0, std::memory_order_relaxed);
    zView.m_iBase.store(0, std::memory_order_release);
    return;
  }
}

}  // namespace

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
  void* const pView = MapViewOfFile(sys::ToHandle(m_iHandle), m_bReadOnly ? FILE_MAP_READ : FILE_MAP_ALL_ACCESS,
                                    static_cast<DWORD>(iOffset >> 32), static_cast<DWORD>(iOffset & 0xFFFFFFFF), nSize);
  if (pView != nullptr) NoteView(pView, nSize);
  return static_cast<uint8_t*>(pView);
}

void KivSysMapping::UnmapView(uint8_t* pView, uint64_t) noexcept {
  if (pView == nullptr) return;
  ForgetView(pView);
  UnmapViewOfFile(pView);
}

bool KivSysMapping::MapsWhole() noexcept {
  return false;
}

}  // namespace kiv
