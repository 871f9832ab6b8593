#include "KivSceneReader.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <exception>
#include <new>
#include <system_error>

#include "KivSysEvent.h"
#include "KivSysFile.h"
#include "KivSysFileKind.h"
#include "KivSysFolder.h"
#include "KivSysMemoryLimit.h"
#include "KivSysProcess.h"
#include "KivSysTerminal.h"

namespace kiv {
namespace {

constexpr int32_t kExitGood = 0;
constexpr int32_t kExitFailed = 2;
constexpr int32_t kExitUncaught = 3;       // an exception that nobody could catch
constexpr int32_t kExitNoMemory = 4;       // the same, for want of memory
constexpr uint32_t kTransfer = 64u << 20;  // bytes
constexpr uint32_t kTurnMilliSeconds = 100;
constexpr const char* kNoMemory = "there is not enough memory to read it";

// A reader may take this much, whatever it reads, and so much more for each byte that it reads.
constexpr uint64_t kMemoryFloor = uint64_t{2} << 30;
constexpr uint64_t kMemoryForByte = 64;
constexpr size_t kMemoryReserve = size_t{256} << 20;  // with less than this left, a crash is for want of memory

// --- Files ----------------------------------------------------------------------------------------------------------

bool ReadWhole(KivSysFile& zFile, uint64_t nBytes, std::vector<uint8_t>& vcBytes) {
  vcBytes.resize(nBytes);
  for (uint64_t iAt = 0; iAt < nBytes;) {
    uint32_t nDone = 0;
    const uint32_t nAsked = static_cast<uint32_t>(std::min<uint64_t>(nBytes - iAt, kTransfer));
    if (!zFile.ReadAt(iAt, vcBytes.data() + iAt, nAsked, nDone) || nDone == 0) return false;
    iAt += nDone;
  }
  return true;
}

bool WriteAll(KivSysFile& zFile, const std::vector<uint8_t>& vcBytes) {
  for (uint64_t iAt = 0; iAt < vcBytes.size();) {
    uint32_t nDone = 0;
    const uint32_t nAsked = static_cast<uint32_t>(std::min<uint64_t>(vcBytes.size() - iAt, kTransfer));
    if (!zFile.WriteAt(iAt, vcBytes.data() + iAt, nAsked, nDone) || nDone == 0) return false;
    iAt += nDone;
  }
  return true;
}

// Leaves nothing where it fails; what stood there stays, and a link is not followed.
bool WriteNewFile(const KivWString& csPath, const std::vector<uint8_t>& vcBytes) {
  KivSysOpenMode zMode;
  zMode.m_iAccess = KivSysAccess::Write;
  zMode.m_iShare = KivSysShare::None;
  zMode.m_iDisposition = KivSysDisposition::CreateNew;
  KivSysFile zFile = KivSysFile::Open(csPath, zMode);
  if (!zFile.IsOpen()) return false;
  if (WriteAll(zFile, vcBytes)) return true;
  zFile.Close();
  sys::RemoveFileAt(csPath);
  return false;
}

// --- In the reader --------------------------------------------------------------------------------------------------

uint64_t g_nMemory = 0;  // what the process may take; 0: without a bound

// Never more than the machine has.
void BoundMemory(uint64_t nBytes) {
  const uint64_t nMachine = sys::PhysicalMemory();
  g_nMemory = nMachine == 0 ? nBytes : std::min(nBytes, nMachine);
  sys::LimitMemory(g_nMemory);
}

// While one lives an exception that nobody can catch ends the process with one of the two codes above. The libraries
// take memory by other ways than operator new, too, and have exceptions of their own for want of it: whether it is used
// up is seen by asking for more.
class UncaughtEnd {
 public:
  UncaughtEnd() : m_pfnWas(std::get_terminate()) {
    sys::SetUncaughtExitCode(kExitUncaught);
    std::set_terminate([] { sys::EndProcess(IsBadAlloc() || KivIsMemoryUsedUp() ? kExitNoMemory : kExitUncaught); });
  }
  ~UncaughtEnd() { std::set_terminate(m_pfnWas); }
  UncaughtEnd(const UncaughtEnd&) = delete;
  UncaughtEnd& operator=(const UncaughtEnd&) = delete;

 private:
  static bool IsBadAlloc() {
    try {
      if (const std::exception_ptr pzException = std::current_exception()) std::rethrow_exception(pzException);
    } catch (const std::bad_alloc&) {
      return true;
    } catch (...) {
    }
    return false;
  }

  std::terminate_handler m_pfnWas;
};

bool ParseTolerance(const KivWString& csText, double& dTolerance) {
  const std::string str = sys::WideToUtf8(csText);
  const auto [pEnd, iError] = std::from_chars(str.data(), str.data() + str.size(), dTolerance);
  return iError == std::errc() && pEnd == str.data() + str.size() && std::isfinite(dTolerance) && dTolerance > 0;
}

// Gives the bytes for the scene file; empty if there is no memory even for a reason.
std::vector<uint8_t> ReadToBytes(const std::vector<KivWString>& vcsArguments, const KivSceneReaderBody& pfnRead,
                                 int32_t& iExit) noexcept {
  iExit = kExitFailed;
  try {
    try {
      KivSceneRequest zRequest{vcsArguments[1], vcsArguments[2], {}};
      for (size_t i = 4; i < vcsArguments.size(); ++i)
        if (!ParseTolerance(vcsArguments[i], zRequest.m_vdTolerance.emplace_back()))
          throw KivSceneError("a tolerance is no number above 0: " + sys::WideToUtf8(vcsArguments[i]));
      KivScene zScene;
      pfnRead(zRequest, zScene);
      std::string strError;
      if (!KivCheckScene(zScene, strError)) throw KivSceneError(strError);
      std::vector<uint8_t> vcBytes = KivWriteScene(zScene);
      iExit = kExitGood;
      return vcBytes;
    } catch (const std::bad_alloc&) {
      return KivWriteSceneFailure(kNoMemory);
    } catch (const std::length_error&) {
      return KivWriteSceneFailure(kNoMemory);
    } catch (const KivSceneError& e) {
      return KivWriteSceneFailure(e.what());
    } catch (const std::exception& e) {
      return KivWriteSceneFailure(std::string("the reader broke down: ") + e.what());
    } catch (...) {
      return KivWriteSceneFailure("the reader broke down");
    }
  } catch (...) {
    return {};
  }
}

// --- In the tool ----------------------------------------------------------------------------------------------------

// Quoted by the rules of CommandLineToArgvW.
KivWString Quote(const KivWString& csText) {
  KivWString csQuoted = u"\"";
  size_t nBackslash = 0;
  for (const char16_t c : csText) {
    if (c == u'"') csQuoted.append(nBackslash + 1, u'\\');
    nBackslash = c == u'\\' ? nBackslash + 1 : 0;
    csQuoted += c;
  }
  csQuoted.append(nBackslash, u'\\');
  return csQuoted + u"\"";
}

KivWString NumberText(double dNumber) {
  char szText[64];
  const auto [pEnd, iError] = std::to_chars(szText, szText + sizeof szText, dNumber);
  return iError == std::errc() ? sys::Utf8ToWide(std::string_view(szText, static_cast<size_t>(pEnd - szText))) : u"0";
}

// Takes the file away at the end, whatever it is.
class WorkFile {
 public:
  explicit WorkFile(const KivWString& csPath) : m_csPath(csPath) {}
  ~WorkFile() { sys::RemoveFileAt(m_csPath); }
  WorkFile(const WorkFile&) = delete;
  WorkFile& operator=(const WorkFile&) = delete;

  bool Read(std::vector<uint8_t>& vcBytes) const {
    KivSysOpenMode zMode;
    zMode.m_iFlags = KivSysFileFlags::SequentialScan;
    KivSysFile zFile = KivSysFile::Open(m_csPath, zMode);
    uint64_t nBytes = 0;
    return zFile.IsOpen() && zFile.GetLength(nBytes) && ReadWhole(zFile, nBytes, vcBytes);
  }

 private:
  const KivWString& m_csPath;
};

// Waits for its end; false if it had to be ended.
bool WaitForEnd(KivSysProcess& zProcess, const std::function<bool()>& pfnTurn) {
  bool bGoOn = true;
  const auto End = [&zProcess] {
    zProcess.Terminate(kExitFailed);
    zProcess.Wait(KivSysEvent::kInfinite);
  };
  try {
    KivSysWait iWait = KivSysWait::TimedOut;
    while (bGoOn && (iWait = zProcess.Wait(kTurnMilliSeconds)) == KivSysWait::TimedOut)
      bGoOn = !sys::IsStopRequested() && (!pfnTurn || pfnTurn());
    if (iWait == KivSysWait::Failed) bGoOn = false;
  } catch (...) {
    End();
    throw;
  }
  if (!bGoOn) End();
  return bGoOn && !sys::IsStopRequested();
}

// The name of a path, for messages.
std::string NameOf(const KivWString& csPath) {
  const size_t iSeparator = csPath.find_last_of(KivWString(u"/") + sys::kSeparator);
  return sys::WideToUtf8(iSeparator == KivWString::npos ? csPath : csPath.substr(iSeparator + 1));
}

}  // namespace

int32_t KivSceneReaderMain(const std::vector<KivWString>& vcsArguments, const KivSceneReaderBody& pfnRead) {
  if (vcsArguments.size() < 4) return kExitFailed;
  const UncaughtEnd zUncaughtEnd;
  BoundMemory(kMemoryFloor);
  int32_t iExit = kExitFailed;
  const std::vector<uint8_t> vcBytes = ReadToBytes(vcsArguments, pfnRead, iExit);
  return vcBytes.empty() || !WriteNewFile(vcsArguments[3], vcBytes) ? kExitFailed : iExit;
}

void KivAllowSceneMemory(uint64_t nBytes) {
  constexpr uint64_t kMost = uint64_t{1} << 62;
  if (g_nMemory != 0 && nBytes < kMost / kMemoryForByte && g_nMemory < kMost)
    BoundMemory(g_nMemory + nBytes * kMemoryForByte);
}

bool KivIsMemoryUsedUp() {
  void* volatile p = std::malloc(kMemoryReserve);
  const bool bUsedUp = p == nullptr;
  std::free(p);
  return bUsedUp;
}

std::vector<uint8_t> KivReadSceneSource(const KivWString& csSource, uint64_t nMax) {
  if (sys::FolderExists(csSource)) throw KivSceneError("it is a folder");
  if (!sys::PathExists(csSource)) throw KivSceneError("it does not exist");
  if (sys::IsNoRegularFile(csSource)) throw KivSceneError("it is no regular file");
  KivSysOpenMode zMode;
  zMode.m_iShare = KivSysShare::All;
  zMode.m_iFlags = KivSysFileFlags::SequentialScan;
  KivSysFile zFile = KivSysFile::Open(csSource, zMode);
  uint64_t nBytes = 0;
  std::vector<uint8_t> vcBytes;
  if (!zFile.IsOpen() || !zFile.GetLength(nBytes)) throw KivSceneError("it cannot be opened");
  if (nBytes == 0) throw KivSceneError("it is empty");
  if (nBytes > nMax) throw KivSceneError("it is larger than the reader can take");
  KivAllowSceneMemory(nBytes);
  if (!ReadWhole(zFile, nBytes, vcBytes)) throw KivSceneError("it cannot be read");
  return vcBytes;
}

KivWString KivLowerSuffix(const KivWString& csPath) {
  const size_t iDot = csPath.find_last_of(KivWString(u"./") + sys::kSeparator);
  if (iDot == KivWString::npos || csPath[iDot] != u'.') return KivWString();
  KivWString csSuffix = csPath.substr(iDot + 1);
  for (char16_t& c : csSuffix)
    if (c >= u'A' && c <= u'Z') c = static_cast<char16_t>(c + (u'a' - u'A'));
  return csSuffix;
}

KivWString KivProgramBeside(const KivWString& csName) {
  KivWString csPath;
  sys::ProgramPath(csPath);
  const size_t iSeparator = csPath.find_last_of(KivWString(u"/") + sys::kSeparator);
  csPath.resize(iSeparator == KivWString::npos ? 0 : iSeparator + 1);
  return csPath + csName + KivWString(sys::kExecutableSuffix);
}

bool KivRunSceneReader(const KivWString& csReader, const KivSceneRequest& zRequest, const KivWString& csWorkFile,
                       KivScene& zScene, std::string& strError, const std::function<bool()>& pfnTurn) {
  zScene = KivScene();
  const std::string strReader = NameOf(csReader);
  if (sys::PathExists(csWorkFile) || sys::IsLink(csWorkFile))
    return strError = "the file " + NameOf(csWorkFile) + ", which the reader would make, exists", false;
  const WorkFile zWorkFile(csWorkFile);
  KivSysProcessStart zStart;
  zStart.m_bNoStreams = true;
  zStart.m_csCommandLine = u"\"" + csReader + u"\"";
  for (const KivWString* pcs : {&zRequest.m_csFormat, &zRequest.m_csSource, &csWorkFile})
    zStart.m_csCommandLine += u" " + Quote(*pcs);
  for (const double d : zRequest.m_vdTolerance) zStart.m_csCommandLine += u" " + NumberText(d);
  KivSysProcess zProcess = KivSysProcess::Start(zStart);
  if (!zProcess.IsOpen()) return strError = "the reader " + strReader + " cannot be started", false;
  if (!WaitForEnd(zProcess, pfnTurn)) return strError = "stopped", false;

  int32_t iExit = -1;
  const bool bEnded = zProcess.GetExitCode(iExit);
  if (bEnded && iExit == kExitNoMemory) return strError = kNoMemory, false;
  if (!bEnded || (iExit != kExitGood && iExit != kExitFailed))
    return strError = "the reader " + strReader + " crashed (exit code " + std::to_string(iExit) + ")", false;
  std::vector<uint8_t> vcBytes;
  if (!zWorkFile.Read(vcBytes))
    return strError = "the reader " + strReader + " left no result (no memory, or no room on the disk)", false;
  const bool bRead = KivReadScene(vcBytes, zScene, strError);
  if (bRead && iExit == kExitGood) return true;
  zScene = KivScene();
  if (bRead || iExit == kExitGood)
    strError = "the reader " + strReader + " left a damaged result" + (bRead ? "" : ": " + strError);
  return false;
}

}  // namespace kiv
