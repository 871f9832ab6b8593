#include "KivSysDiag.h"

#include "KivSysWindows.h"
// Needs windows.h before it.
#include <dbghelp.h>

#include <algorithm>
#include <array>
#include <cinttypes>
#include <cstdio>
#include <exception>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <utility>

namespace kiv::sys {
namespace {

constexpr uint32_t kMostFrames = 512;
constexpr size_t kMostLineBytes = 520;
constexpr DWORD kMostSymbolUnits = 260;

std::mutex g_zSymbolLock;  // the debug-help library serves one thread at a time
std::mutex g_zHookLock;
std::function<bool(const KivWString&, const KivWString&)> g_pfnSystemLogHook;
std::function<void(const KivWString&)> g_pfnMessageHook;

// The system's list of the handles of all processes, as the native interface gives it.
struct SystemHandle {
  void* m_pObject;
  ULONG_PTR m_iProcess;
  ULONG_PTR m_iHandle;
  ULONG m_iAccess;
  USHORT m_iTrace;
  USHORT m_iType;
  ULONG m_iAttributes;
  ULONG m_iReserved;
};
struct SystemHandleList {
  ULONG_PTR m_nHandles;
  ULONG_PTR m_iReserved;
  SystemHandle m_vzHandle[1];
};
constexpr ULONG kSystemHandleInformation = 64;
constexpr LONG kLengthMismatch = static_cast<LONG>(0xC0000004);
constexpr size_t kMostListBytes = size_t{1} << 28;

// For systems that do not keep the count of one process (Wine 8 says 0).
uint64_t CountInSystemList() {
  using Query = LONG(WINAPI*)(ULONG, PVOID, ULONG, PULONG);
  const auto pfnQuery = reinterpret_cast<Query>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "NtQuerySystemInformation")));
  if (pfnQuery == nullptr) return 0;
  for (size_t nBytes = size_t{1} << 16; nBytes <= kMostListBytes; nBytes *= 2) {
    const auto pList = std::make_unique<ULONG_PTR[]>(nBytes / sizeof(ULONG_PTR));
    const LONG iStatus = pfnQuery(kSystemHandleInformation, pList.get(), static_cast<ULONG>(nBytes), nullptr);
    if (iStatus == kLengthMismatch) continue;
    if (iStatus < 0) return 0;
    const auto* const pzList = reinterpret_cast<const SystemHandleList*>(pList.get());
    const ULONG_PTR iSelf = GetCurrentProcessId();
    return static_cast<uint64_t>(std::count_if(pzList->m_vzHandle, pzList->m_vzHandle + pzList->m_nHandles,
                                               [iSelf](const SystemHandle& z) { return z.m_iProcess == iSelf; }));
  }
  return 0;
}

bool InitializeSymbols() {
  static const bool bOk = [] {
    // Deferred: a module's symbols are read when a frame of it is turned into text.
    SymSetOptions(SymGetOptions() | SYMOPT_LOAD_LINES | SYMOPT_DEFERRED_LOADS);
    return SymInitialize(GetCurrentProcess(), nullptr, TRUE) != FALSE;
  }();
  return bOk;
}

struct ModuleList {
  std::map<std::string, uint64_t> m_mapBase;
  bool m_bNoMemory = false;
};

// No exception may pass through the library that calls this: without memory the list ends.
BOOL CALLBACK AddModule(PCSTR szName, DWORD64 iBase, PVOID pContext) noexcept {
  auto* pzList = static_cast<ModuleList*>(pContext);
  try {
    pzList->m_mapBase[szName] = iBase;
    return TRUE;
  } catch (const std::exception&) {
    pzList->m_bNoMemory = true;
    return FALSE;
  }
}

// File name of an image path, up to its first dot: the name that the module list knows.
std::string ModuleKey(const char* szImage) {
  std::string strName = szImage;
  const size_t iSlash = strName.find_last_of("\\/");
  if (iSlash != std::string::npos) strName.erase(0, iSlash + 1);
  return strName.substr(0, strName.find('.'));
}

std::string ImageFileName(const char* szImage) {
  const std::string strName = szImage;
  const size_t iSlash = strName.find_last_of("\\/");
  return iSlash == std::string::npos ? strName : strName.substr(iSlash + 1);
}

void AppendSymbol(HANDLE hProcess, uint64_t iAddress, std::string& strLine) {
  union {
    IMAGEHLP_SYMBOL64 m_zSymbol;
    char m_acRoom[sizeof(IMAGEHLP_SYMBOL64) + kMostSymbolUnits];
  } zRecord = {};
  zRecord.m_zSymbol.SizeOfStruct = sizeof(IMAGEHLP_SYMBOL64);
  zRecord.m_zSymbol.MaxNameLength = kMostSymbolUnits;
  DWORD64 iDisplacement = 0;
  if (!SymGetSymFromAddr64(hProcess, iAddress, &iDisplacement, &zRecord.m_zSymbol)) {
    strLine += "<Unknown Symbol>";
    return;
  }
  strLine += zRecord.m_zSymbol.Name;
  if (iDisplacement != 0) strLine += " + " + std::to_string(static_cast<int64_t>(iDisplacement)) + " bytes";
}

void AppendLine(HANDLE hProcess, uint64_t iAddress, std::string& strLine) {
  IMAGEHLP_LINE64 zLine = {};
  zLine.SizeOfStruct = sizeof zLine;
  DWORD iDisplacement = 0;
  if (!SymGetLineFromAddr64(hProcess, iAddress, &iDisplacement, &zLine)) return;
  strLine += "(" + std::string(zLine.FileName) + ", Line " + std::to_string(zLine.LineNumber);
  if (iDisplacement != 0) strLine += " + " + std::to_string(iDisplacement) + " bytes";
  strLine += ")";
}

// The frames behind the first nSkip, this function counted as the first. The unwind tables of the system are enough for
// the addresses: no symbol is read here, and no other thread is needed to read this one's registers.
[[gnu::noinline]] KivSysStack WalkStack(uint32_t nSkip) {
  std::array<void*, kMostFrames> apFrames;
  const USHORT nFrames = RtlCaptureStackBackTrace(nSkip, kMostFrames, apFrames.data(), nullptr);
  KivSysStack zStack;
  zStack.m_viAddress.reserve(nFrames);
  for (USHORT i = 0; i < nFrames; ++i) {
    const auto iAddress = reinterpret_cast<uintptr_t>(apFrames[i]);
    DWORD64 iBase = 0;
    // Behind the start of the thread the walk may go on over what is no code.
    if (RtlLookupFunctionEntry(iAddress, &iBase, nullptr) == nullptr) break;
    zStack.m_viAddress.push_back(iAddress);
  }
  return zStack;
}

}  // namespace

[[gnu::noinline]] KivSysStack CaptureStack(uint32_t nSkip) noexcept {
  try {
    return WalkStack(nSkip + 1);
  } catch (const std::exception&) {
    return {};  // the report goes on without its frames
  }
}

KivWString StackText(const KivSysStack& zStack) {
  const std::lock_guard zGuard(g_zSymbolLock);
  const HANDLE hProcess = GetCurrentProcess();
  ModuleList zModules;
  if (!InitializeSymbols() || zStack.m_viAddress.empty()) return {};
  const bool bListed = SymEnumerateModules64(hProcess, AddModule, &zModules) != FALSE;
  if (zModules.m_bNoMemory) throw std::bad_alloc();
  if (!bListed) return {};
  std::string strText;
  for (const uint64_t iAddress : zStack.m_viAddress) {
    IMAGEHLP_MODULE64 zModule = {};
    zModule.SizeOfStruct = sizeof zModule;
    const bool bModule = SymGetModuleInfo64(hProcess, iAddress, &zModule) != FALSE;
    uint64_t iOffset = 0;
    if (bModule) {
      const auto itModule = zModules.m_mapBase.find(ModuleKey(zModule.ImageName));
      if (itModule == zModules.m_mapBase.end()) continue;
      iOffset = iAddress - itModule->second;
    }
    char acAddress[64];
    std::snprintf(acAddress, sizeof acAddress, "0x%0*" PRIX64 "(0x%08" PRIX32 ")", 16, iAddress,
                  static_cast<uint32_t>(iOffset));
    std::string strLine = acAddress;
    strLine += (bModule ? ImageFileName(zModule.ImageName) : std::string("<Unknown Module>")) + ": ";
    AppendSymbol(hProcess, iAddress, strLine);
    AppendLine(hProcess, iAddress, strLine);
    if (strLine.size() > kMostLineBytes - 1) strLine.resize(kMostLineBytes - 1);
    strText += strLine + "\n";
  }
  return AnsiToWide(strText);
}

bool WriteSystemLog(const KivWString& csSource, const KivWString& csText) {
  {
    std::unique_lock zGuard(g_zHookLock);
    if (const auto pfnHook = g_pfnSystemLogHook) {
      zGuard.unlock();
      return pfnHook(csSource, csText);
    }
  }
  const HANDLE hLog = RegisterEventSourceW(nullptr, ToSystem(csSource).c_str());
  if (hLog == nullptr) return false;
  const std::wstring csSystem = ToSystem(csText);
  const wchar_t* aszText[] = {csSystem.c_str()};
  const BOOL bOk = ReportEventW(hLog, EVENTLOG_ERROR_TYPE, 0, 0, nullptr, 1, 0, aszText, nullptr);
  DeregisterEventSource(hLog);
  return bOk != FALSE;
}

void SetSystemLogHook(std::function<bool(const KivWString&, const KivWString&)> pfnHook) {
  const std::lock_guard zGuard(g_zHookLock);
  g_pfnSystemLogHook = std::move(pfnHook);
}

void ShowMessage(const KivWString& csText) {
  {
    std::unique_lock zGuard(g_zHookLock);
    if (const auto pfnHook = g_pfnMessageHook) {
      zGuard.unlock();
      pfnHook(csText);
      return;
    }
  }
  MessageBoxW(nullptr, ToSystem(csText).c_str(), nullptr, MB_OK | MB_ICONEXCLAMATION);
}

void SetMessageHook(std::function<void(const KivWString&)> pfnHook) {
  const std::lock_guard zGuard(g_zHookLock);
  g_pfnMessageHook = std::move(pfnHook);
}

bool ValidateSystemHeaps() {
  HANDLE ahHeap[100];
  const DWORD nHeaps = GetProcessHeaps(100, ahHeap);
  bool bSound = true;
  for (DWORD i = 0; i < nHeaps && i < 100; ++i) bSound = HeapValidate(ahHeap[i], 0, nullptr) != FALSE && bSound;
  return bSound;
}

uint64_t CountHandles() {
  DWORD nHandles = 0;
  if (GetProcessHandleCount(GetCurrentProcess(), &nHandles) != FALSE && nHandles != 0) return nHandles;
  return CountInSystemList();
}

}  // namespace kiv::sys
