#include "KivSysDiag.h"

#include <cxxabi.h>
#include <dirent.h>
#include <elfutils/libdwfl.h>
#include <syslog.h>
#include <unistd.h>
#include <unwind.h>

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>
#include <mutex>
#include <string>

#include "KivSysPosix.h"

namespace kiv::sys {
namespace {

constexpr size_t kMaxFrames = 512;
constexpr size_t kMaxLine = 520;
constexpr size_t kMaxSymbol = 260;

struct Walk {
  uint32_t m_nSkip = 0;
  size_t m_nFrames = 0;
  uint64_t m_viAddress[kMaxFrames];
};

_Unwind_Reason_Code TakeFrame(_Unwind_Context* pContext, void* pArgument) {
  auto& zWalk = *static_cast<Walk*>(pArgument);
  const uint64_t iAddress = _Unwind_GetIP(pContext);
  if (iAddress == 0) return _URC_END_OF_STACK;
  if (zWalk.m_nSkip != 0) {
    --zWalk.m_nSkip;
    return _URC_NO_REASON;
  }
  if (zWalk.m_nFrames == kMaxFrames) return _URC_END_OF_STACK;
  zWalk.m_viAddress[zWalk.m_nFrames++] = iAddress;
  return _URC_NO_REASON;
}

// The symbol engine: reads the debug information of all modules of this process once. One thread at a time.
class SymbolEngine {
 public:
  SymbolEngine() {
    m_zCallbacks.find_elf = dwfl_linux_proc_find_elf;
    // Files of this machine alone: the standard look-up may ask a server, and a report does not wait for one.
    m_zCallbacks.find_debuginfo = dwfl_build_id_find_debuginfo;
    m_pDwfl = dwfl_begin(&m_zCallbacks);
    Report();
  }
  SymbolEngine(const SymbolEngine&) = delete;
  SymbolEngine& operator=(const SymbolEngine&) = delete;

  Dwfl_Module* Find(uint64_t iAddress) {
    if (m_pDwfl == nullptr) return nullptr;
    Dwfl_Module* pModule = dwfl_addrmodule(m_pDwfl, iAddress);
    if (pModule == nullptr) {  // perhaps a library that was loaded since
      Report();
      pModule = dwfl_addrmodule(m_pDwfl, iAddress);
    }
    Dwarf_Addr iFirst = 0, iEnd = 0;  // the gap behind a module counts as a part of it otherwise
    if (pModule != nullptr) dwfl_module_info(pModule, nullptr, &iFirst, &iEnd, nullptr, nullptr, nullptr, nullptr);
    return iAddress >= iFirst && iAddress < iEnd ? pModule : nullptr;
  }

  // False where the modules of this process cannot be told at all.
  bool IsOpen() const noexcept { return m_pDwfl != nullptr; }

 private:
  void Report() {
    if (m_pDwfl == nullptr) return;
    dwfl_report_begin_add(m_pDwfl);
    dwfl_linux_proc_report(m_pDwfl, getpid());
    dwfl_report_end(m_pDwfl, nullptr, nullptr);
  }

  Dwfl_Callbacks m_zCallbacks{};
  Dwfl* m_pDwfl = nullptr;
};

std::string Demangled(const char* szSymbol) {
  int iStatus = 0;
  const std::unique_ptr<char, decltype(&std::free)> pText(abi::__cxa_demangle(szSymbol, nullptr, nullptr, &iStatus),
                                                          &std::free);
  std::string strSymbol = iStatus == 0 && pText != nullptr ? pText.get() : szSymbol;
  if (strSymbol.size() > kMaxSymbol) strSymbol.resize(kMaxSymbol);
  return strSymbol;
}

// The frame of an address that no module holds.
std::string UnknownFrameLine(uint64_t iAddress) {
  char szLine[96];
  std::snprintf(szLine, sizeof szLine, "0x%0*" PRIX64 "(0x%08X)<Unknown Module>: <Unknown Symbol>\n", 16, iAddress, 0u);
  return szLine;
}

std::string FrameLine(Dwfl_Module* pModule, uint64_t iAddress) {
  Dwarf_Addr iModuleBase = 0;
  const char* szFile = nullptr;
  const char* const szModule =
      dwfl_module_info(pModule, nullptr, &iModuleBase, nullptr, nullptr, nullptr, &szFile, nullptr);
  if (szFile == nullptr) szFile = szModule;
  const char* const pSlash = szFile == nullptr ? nullptr : std::strrchr(szFile, '/');

  char szPiece[64];
  std::snprintf(szPiece, sizeof szPiece, "0x%0*" PRIX64 "(0x%08X)", 16, iAddress,
                static_cast<unsigned>(iAddress - iModuleBase));
  std::string strLine = szPiece;
  strLine += szFile == nullptr ? "<Unknown Module>" : pSlash == nullptr ? szFile : pSlash + 1;
  strLine += ": ";

  // The address itself at the start of a symbol. Any other is a return address and belongs to the call before it; the
  // displacements stay those of the address.
  GElf_Off iSymbolOffset = 0;
  GElf_Sym zSymbol;
  const char* szSymbol = dwfl_module_addrinfo(pModule, iAddress, &iSymbolOffset, &zSymbol, nullptr, nullptr, nullptr);
  const bool bStart = szSymbol != nullptr && iSymbolOffset == 0;
  const uint64_t iCall = bStart ? iAddress : iAddress - 1;
  if (!bStart) {
    szSymbol = dwfl_module_addrinfo(pModule, iCall, &iSymbolOffset, &zSymbol, nullptr, nullptr, nullptr);
    ++iSymbolOffset;
  }
  if (szSymbol == nullptr) {
    strLine += "<Unknown Symbol>";
  } else {
    strLine += Demangled(szSymbol);
    if (iSymbolOffset != 0) {
      std::snprintf(szPiece, sizeof szPiece, " + %" PRIu64 " bytes", static_cast<uint64_t>(iSymbolOffset));
      strLine += szPiece;
    }
  }

  Dwarf_Addr iLineStart = 0;
  int iLine = 0;
  Dwfl_Line* const pLine = dwfl_module_getsrc(pModule, iCall);
  const char* const szSource =
      pLine == nullptr ? nullptr : dwfl_lineinfo(pLine, &iLineStart, &iLine, nullptr, nullptr, nullptr);
  if (szSource != nullptr) {
    strLine += "(" + std::string(szSource) + ", Line " + std::to_string(iLine);
    if (iAddress != iLineStart) {
      std::snprintf(szPiece, sizeof szPiece, " + %" PRIu64 " bytes", static_cast<uint64_t>(iAddress - iLineStart));
      strLine += szPiece;
    }
    strLine += ")";
  }
  if (strLine.size() > kMaxLine - 1) strLine.resize(kMaxLine - 1);
  return strLine + "\n";
}

std::mutex g_zSymbolLock;

std::mutex g_zHookLock;
std::function<bool(const KivWString&, const KivWString&)> g_pfnSystemLog;
std::function<void(const KivWString&)> g_pfnMessage;

}  // namespace

__attribute__((noinline)) KivSysStack CaptureStack(uint32_t nSkip) noexcept {
  Walk zWalk;
  zWalk.m_nSkip = nSkip;
  // The walk begins with this function.
  _Unwind_Backtrace(TakeFrame, &zWalk);
  KivSysStack zStack;
  try {
    zStack.m_viAddress.assign(zWalk.m_viAddress, zWalk.m_viAddress + zWalk.m_nFrames);
  } catch (const std::exception&) {
    // The report goes on without its frames.
  }
  return zStack;
}

KivWString StackText(const KivSysStack& zStack) {
  const std::lock_guard zGuard(g_zSymbolLock);
  static SymbolEngine* const s_pzEngine = new SymbolEngine;  // reports may come until the very end of the process
  std::string strText;
  for (const uint64_t iAddress : zStack.m_viAddress) {
    Dwfl_Module* const pModule = s_pzEngine->Find(iAddress);
    if (pModule != nullptr)
      strText += FrameLine(pModule, iAddress);
    else if (s_pzEngine->IsOpen())
      strText += UnknownFrameLine(iAddress);
  }
  return Utf8ToWide(strText);
}

bool WriteSystemLog(const KivWString& csSource, const KivWString& csText) {
  std::function<bool(const KivWString&, const KivWString&)> pfnHook;
  {
    const std::lock_guard zGuard(g_zHookLock);
    pfnHook = g_pfnSystemLog;
  }
  if (pfnHook) return pfnHook(csSource, csText);
  if (access("/dev/log", F_OK) != 0) return false;
  const std::string strSource = WideToUtf8(csSource);
  openlog(strSource.c_str(), LOG_PID, LOG_USER);
  syslog(LOG_ERR, "%s", WideToUtf8(csText).c_str());
  closelog();  // the name must not outlive this call
  return true;
}

void SetSystemLogHook(std::function<bool(const KivWString&, const KivWString&)> pfnHook) {
  const std::lock_guard zGuard(g_zHookLock);
  g_pfnSystemLog = std::move(pfnHook);
}

void ShowMessage(const KivWString& csText) {
  std::function<void(const KivWString&)> pfnHook;
  {
    const std::lock_guard zGuard(g_zHookLock);
    pfnHook = g_pfnMessage;
  }
  if (pfnHook)
    pfnHook(csText);
  else
    std::fprintf(stderr, "%s\n", WideToUtf8(csText).c_str());
}

void SetMessageHook(std::function<void(const KivWString&)> pfnHook) {
  const std::lock_guard zGuard(g_zHookLock);
  g_pfnMessage = std::move(pfnHook);
}

bool ValidateSystemHeaps() {
  return true;
}

uint64_t CountHandles() {
  DIR* const pFolder = opendir("/proc/self/fd");
  if (pFolder == nullptr) return 0;
  uint64_t nHandles = 0;
  while (const dirent* pEntry = readdir(pFolder)) nHandles += pEntry->d_name[0] == '.' ? 0 : 1;
  closedir(pFolder);
  return nHandles - 1;  // the folder's own
}

}  // namespace kiv::sys
