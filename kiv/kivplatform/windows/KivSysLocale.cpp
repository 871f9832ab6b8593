#include "KivSysLocale.h"

#include <clocale>
#include <cwchar>

#include "KivSysWindows.h"

namespace kiv::sys {
namespace {

template <typename Function>
Function FindFunction(const wchar_t* szModule, const char* szName) {
  const HMODULE hModule = GetModuleHandleW(szModule);
  if (hModule == nullptr) return nullptr;
  return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(hModule, szName)));
}

bool IsVersionAtLeast(DWORD iMajor, DWORD iMinor) {
  OSVERSIONINFOEXW zAsked = {};
  zAsked.dwOSVersionInfoSize = sizeof zAsked;
  zAsked.dwMajorVersion = iMajor;
  zAsked.dwMinorVersion = iMinor;
  DWORDLONG iMask = VerSetConditionMask(0, VER_MAJORVERSION, VER_GREATER_EQUAL);
  iMask = VerSetConditionMask(iMask, VER_MINORVERSION, VER_GREATER_EQUAL);
  return VerifyVersionInfoW(&zAsked, VER_MAJORVERSION | VER_MINORVERSION, iMask) != FALSE;
}

}  // namespace

bool SetUserLocaleWithPoint() {
  _wsetlocale(LC_ALL, L"");
  const wchar_t* szNumeric = _wsetlocale(LC_NUMERIC, nullptr);
  if (szNumeric != nullptr && std::wcscmp(szNumeric, L"C") == 0) return true;
  return _wsetlocale(LC_NUMERIC, L"C") != nullptr;
}

uint32_t LanguageId() {
  using SystemLanguage = LANGID(WINAPI*)();
  const auto pfnLanguage = FindFunction<SystemLanguage>(L"Kernel32.dll", "GetSystemDefaultLangID");
  const uint32_t iLanguage = pfnLanguage != nullptr ? pfnLanguage() & 0xFFFFu : 0;
  return iLanguage != 0 ? iLanguage : GetUserDefaultLCID() & 0xFFFFu;
}

void SystemVersion(uint32_t& iMajor, uint32_t& iMinor) {
  using RtlGetVersionFunction = LONG(WINAPI*)(OSVERSIONINFOEXW*);
  OSVERSIONINFOEXW zVersion = {};
  static_assert(sizeof zVersion == 284);
  zVersion.dwOSVersionInfoSize = sizeof zVersion;
  const auto pfnVersion = FindFunction<RtlGetVersionFunction>(L"ntdll.dll", "RtlGetVersion");
  if (pfnVersion != nullptr && pfnVersion(&zVersion) == 0) {
    iMajor = zVersion.dwMajorVersion;
    iMinor = zVersion.dwMinorVersion;
    return;
  }
  iMajor = 4;
  iMinor = 0;
  while (IsVersionAtLeast(iMajor + 1, 0)) ++iMajor;
  while (IsVersionAtLeast(iMajor, iMinor + 1)) ++iMinor;
}

uint32_t AllocationGranularity() {
  SYSTEM_INFO zInfo = {};
  GetSystemInfo(&zInfo);
  return zInfo.dwAllocationGranularity;
}

bool SystemDnsDomain(KivSysDomain iDomain, KivWString& csDomain) {
  const auto iFormat = iDomain == KivSysDomain::Logical ? ComputerNameDnsDomain : ComputerNamePhysicalDnsDomain;
  DWORD nLength = 0;
  GetComputerNameExW(iFormat, nullptr, &nLength);
  std::wstring csText(nLength + 1, L'\0');
  nLength = static_cast<DWORD>(csText.size());
  if (!GetComputerNameExW(iFormat, csText.data(), &nLength)) return false;
  csDomain = FromSystem(std::wstring_view(csText.data(), nLength));
  return true;
}

}  // namespace kiv::sys
