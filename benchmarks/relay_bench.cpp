// A request through two hops and back, the answer as large as the request: our client, relay and handler beside a Unix
// socket, ZeroMQ and bare shared memory, each with three processes, in one run.
//
// usage: relay_bench [SECONDS_PER_CASE]
#include <linux/futex.h>
#include <sched.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zmq.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <new>
#include <string>
#include <vector>

#include "DorClient.h"
#include "KivDataUtil.h"
#include "KivExProcLib.h"
#include "KivSysClock.h"
#include "KivSysProcess.h"

using namespace kiv;

namespace {

double g_dSeconds = 1.5;

struct Numbers {
  double m_dMedian = 0, m_dP99 = 0, m_dPerSecond = 0;
};

// The numbers of all cases, also of those that ran in a child.
struct Record {
  size_t m_nCases = 0;
  struct {
    char m_szName[40];
    Numbers m_zNumbers;
  } m_azCases[32];
};
Record* g_pzRecord = nullptr;

void Check(bool bGood, const char* szWhat) {
  if (bGood) return;
  std::fprintf(stderr, "relay_bench: %s failed\n", szWhat);
  std::exit(1);
}

Numbers Measure(const std::string& strName, const std::function<void()>& pfnRequest) {
  std::vector<double> vdMicroSeconds;
  vdMicroSeconds.reserve(1 << 20);
  const uint64_t iWarm = sys::SteadyNs() + static_cast<uint64_t>(g_dSeconds * 2e8);
  while (sys::SteadyNs() < iWarm) pfnRequest();
  const uint64_t iStart = sys::SteadyNs();
  const uint64_t iEnd = iStart + static_cast<uint64_t>(g_dSeconds * 1e9);
  uint64_t iNow = iStart;
  while (iNow < iEnd) {
    const uint64_t iBefore = iNow;
    pfnRequest();
    iNow = sys::SteadyNs();
    vdMicroSeconds.push_back(static_cast<double>(iNow - iBefore) / 1e3);
  }
  Numbers z;
  z.m_dPerSecond = static_cast<double>(vdMicroSeconds.size()) / (static_cast<double>(iNow - iStart) / 1e9);
  std::sort(vdMicroSeconds.begin(), vdMicroSeconds.end());
  z.m_dMedian = vdMicroSeconds[vdMicroSeconds.size() / 2];
  z.m_dP99 = vdMicroSeconds[vdMicroSeconds.size() * 99 / 100];
  std::printf("%-34s %10.0f/s  median %9.1f us  p99 %9.1f us\n", strName.c_str(), z.m_dPerSecond, z.m_dMedian,
              z.m_dP99);
  std::fflush(stdout);
  auto& zCase = g_pzRecord->m_azCases[g_pzRecord->m_nCases++ % 32];
  std::snprintf(zCase.m_szName, sizeof zCase.m_szName, "%s", strName.c_str());
  zCase.m_zNumbers = z;
  return z;
}

// How much longer each peer takes than we do, by the median and by p99.
void PrintRatios(const std::string& strSize) {
  const auto Find = [](const std::string& strName) {
    for (size_t i = 0; i < g_pzRecord->m_nCases; ++i)
      if (strName == g_pzRecord->m_azCases[i].m_szName) return g_pzRecord->m_azCases[i].m_zNumbers;
    return Numbers();
  };
  const Numbers zOurs = Find("ours, " + strSize);
  for (const char* szPeer : {"Unix socket, ", "ZeroMQ ipc, ", "bare shared memory, "}) {
    const Numbers zPeer = Find(szPeer + strSize);
    std::printf("%-34s %10s  median %9.2f     p99 %9.2f   times ours\n", (szPeer + strSize).c_str(), "",
                zPeer.m_dMedian / zOurs.m_dMedian, zPeer.m_dP99 / zOurs.m_dP99);
  }
}

// --- Unix sockets ---------------------------------------------------------------------------------------------------

void ReadAll(int iFd, void* pBuffer, size_t nBytes) {
  for (char* p = static_cast<char*>(pBuffer); nBytes != 0;) {
    const ssize_t n = read(iFd, p, nBytes);
    if (n <= 0) _exit(0);
    p += n;
    nBytes -= static_cast<size_t>(n);
  }
}

void WriteAll(int iFd, const void* pBuffer, size_t nBytes) {
  for (const char* p = static_cast<const char*>(pBuffer); nBytes != 0;) {
    const ssize_t n = write(iFd, p, nBytes);
    if (n <= 0) _exit(0);
    p += n;
    nBytes -= static_cast<size_t>(n);
  }
}

// A message is its size and its bytes, in one buffer.
void PutMessage(int iFd, const std::vector<char>& vcMessage) {
  WriteAll(iFd, vcMessage.data(), vcMessage.size());
}
void GetMessage(int iFd, std::vector<char>& vcMessage) {
  uint64_t nBytes = 0;
  ReadAll(iFd, &nBytes, sizeof nBytes);
  vcMessage.resize(sizeof nBytes + nBytes);
  std::memcpy(vcMessage.data(), &nBytes, sizeof nBytes);
  ReadAll(iFd, vcMessage.data() + sizeof nBytes, nBytes);
}

void BenchSocket(const std::string& strName, size_t nBytes) {
  int aiFirst[2], aiSecond[2];
  Check(socketpair(AF_UNIX, SOCK_STREAM, 0, aiFirst) == 0 && socketpair(AF_UNIX, SOCK_STREAM, 0, aiSecond) == 0,
        "socketpair");
  const pid_t iHandler = fork();
  if (iHandler == 0) {
    for (int iFd : {aiFirst[0], aiFirst[1], aiSecond[0]}) close(iFd);
    for (std::vector<char> vc;;) GetMessage(aiSecond[1], vc), PutMessage(aiSecond[1], vc);
  }
  const pid_t iRelay = fork();
  if (iRelay == 0) {
    for (int iFd : {aiFirst[0], aiSecond[1]}) close(iFd);
    for (std::vector<char> vc;;) {
      GetMessage(aiFirst[1], vc);
      PutMessage(aiSecond[0], vc);
      GetMessage(aiSecond[0], vc);
      PutMessage(aiFirst[1], vc);
    }
  }
  for (int iFd : {aiFirst[1], aiSecond[0], aiSecond[1]}) close(iFd);
  std::vector<char> vcRequest(8 + nBytes, 'x'), vcAnswer;
  const uint64_t nField = nBytes;
  std::memcpy(vcRequest.data(), &nField, sizeof nField);
  Measure(strName, [&] {
    PutMessage(aiFirst[0], vcRequest);
    GetMessage(aiFirst[0], vcAnswer);
  });
  close(aiFirst[0]);
  waitpid(iRelay, nullptr, 0);
  waitpid(iHandler, nullptr, 0);
}

// --- ZeroMQ ---------------------------------------------------------------------------------------------------------

void Forward(void* pFrom, void* pTo) {
  zmq_msg_t zMessage;
  zmq_msg_init(&zMessage);
  if (zmq_msg_recv(&zMessage, pFrom, 0) < 0) _exit(0);
  if (zmq_msg_size(&zMessage) == 0) _exit(0);
  zmq_msg_send(&zMessage, pTo, 0);
}

void BenchZeroMq(const std::string& strName, size_t nBytes, const std::string& strFolder) {
  const std::string strFirst = "ipc://" + strFolder + "/zmq1", strSecond = "ipc://" + strFolder + "/zmq2";
  const auto Socket = [](void* pContext, const std::string& strAt, bool bBind) {
    void* pSocket = zmq_socket(pContext, ZMQ_PAIR);
    const int iLinger = 0;
    zmq_setsockopt(pSocket, ZMQ_LINGER, &iLinger, sizeof iLinger);
    Check((bBind ? zmq_bind(pSocket, strAt.c_str()) : zmq_connect(pSocket, strAt.c_str())) == 0, "zmq");
    return pSocket;
  };
  const pid_t iHandler = fork();
  if (iHandler == 0) {
    void* pSocket = Socket(zmq_ctx_new(), strSecond, true);
    for (;;) Forward(pSocket, pSocket);
  }
  const pid_t iRelay = fork();
  if (iRelay == 0) {
    void* pContext = zmq_ctx_new();
    void* pUp = Socket(pContext, strFirst, true);
    void* pDown = Socket(pContext, strSecond, false);
    for (;;) Forward(pUp, pDown), Forward(pDown, pUp);
  }
  void* pContext = zmq_ctx_new();
  void* pSocket = Socket(pContext, strFirst, false);
  std::vector<char> vcRequest(nBytes, 'x'), vcAnswer(nBytes);
  Measure(strName, [&] {
    Check(zmq_send(pSocket, vcRequest.data(), nBytes, 0) >= 0, "zmq_send");
    Check(zmq_recv(pSocket, vcAnswer.data(), nBytes, 0) == static_cast<int>(nBytes), "zmq_recv");
  });
  for (pid_t iPid : {iRelay, iHandler}) {
    kill(iPid, SIGKILL);
    waitpid(iPid, nullptr, 0);
  }
  zmq_close(pSocket);
  zmq_ctx_destroy(pContext);
}

// --- Bare shared memory ---------------------------------------------------------------------------------------------

struct Slot {
  std::atomic<uint32_t> m_iTurn;  // raised by whoever has written
  uint64_t m_nBytes;
  char m_acData[1 << 21];
};

// The same look before the sleep as our events have.
void AwaitTurn(Slot& zSlot, uint32_t iOld) {
  const uint64_t iUntil = sys::SteadyNs() + 50000;
  while (zSlot.m_iTurn.load(std::memory_order_acquire) == iOld) {
    if (sys::SteadyNs() < iUntil) {
      sched_yield();
    } else {
      syscall(SYS_futex, &zSlot.m_iTurn, FUTEX_WAIT, iOld, nullptr, nullptr, 0);
    }
  }
}

void PutSlot(Slot& zSlot, const char* pBytes, size_t nBytes) {
  std::memcpy(zSlot.m_acData, pBytes, nBytes);
  zSlot.m_nBytes = nBytes;
  zSlot.m_iTurn.fetch_add(1, std::memory_order_release);
  syscall(SYS_futex, &zSlot.m_iTurn, FUTEX_WAKE, INT_MAX, nullptr, nullptr, 0);
}

void BenchSharedMemory(const std::string& strName, size_t nBytes) {
  void* pMemory = mmap(nullptr, 4 * sizeof(Slot), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  Check(pMemory != MAP_FAILED, "mmap");
  Slot* azSlots = static_cast<Slot*>(pMemory);  // up request, down request, down answer, up answer
  const auto Serve = [&](Slot& zFrom, Slot& zTo, uint32_t& iTurn, std::vector<char>& vcBytes) {
    AwaitTurn(zFrom, iTurn++);
    vcBytes.resize(zFrom.m_nBytes);
    std::memcpy(vcBytes.data(), zFrom.m_acData, zFrom.m_nBytes);
    PutSlot(zTo, vcBytes.data(), vcBytes.size());
  };
  const pid_t iHandler = fork();
  if (iHandler == 0) {
    std::vector<char> vcBytes;
    for (uint32_t iTurn = 0;;) Serve(azSlots[1], azSlots[2], iTurn, vcBytes);
  }
  const pid_t iRelay = fork();
  if (iRelay == 0) {
    std::vector<char> vcBytes;
    for (uint32_t iUp = 0, iDown = 0;;) {
      Serve(azSlots[0], azSlots[1], iUp, vcBytes);
      Serve(azSlots[2], azSlots[3], iDown, vcBytes);
    }
  }
  std::vector<char> vcRequest(nBytes, 'x'), vcAnswer(nBytes);
  uint32_t iTurn = 0;
  Measure(strName, [&] {
    PutSlot(azSlots[0], vcRequest.data(), nBytes);
    AwaitTurn(azSlots[3], iTurn++);
    std::memcpy(vcAnswer.data(), azSlots[3].m_acData, nBytes);
  });
  for (pid_t iPid : {iRelay, iHandler}) {
    kill(iPid, SIGKILL);
    waitpid(iPid, nullptr, 0);
  }
  munmap(pMemory, 4 * sizeof(Slot));
}

// --- Ours -----------------------------------------------------------------------------------------------------------

// The handler of this benchmark: answers with what it gets; ends itself when asked to.
int32_t EchoDispatch(const KivWString& csRequest, const KivByteBuffer& vcPayload, int32_t&, KivByteBuffer& vcResult) {
  if (csRequest == kDorReadDor || csRequest == kDorClearModel) {
    vcResult.assign(vcPayload.begin(), vcPayload.begin() + 8);
    KivPutString(vcResult, csRequest);
    return 0;
  }
  if (csRequest == u"DorHandler_Undo") {
    const char* szFile = std::getenv("KIV_BENCH_DEATH");
    if (szFile != nullptr) std::ofstream(szFile) << sys::SteadyNs() << std::flush;
    sys::EndProcess(1);
  }
  vcResult = vcPayload;
  return 0;
}

int RunHandler(const std::vector<KivWString>& vcsArguments) {
  const KivExProcHandler pfnGoOn = []() -> int32_t { return 0; };
  KivExProcLib_SetHandlers(pfnGoOn, pfnGoOn, EchoDispatch);
  const int32_t iResult = KivExProcLib_Run(vcsArguments);
  KivExProcLib_CloseDown(iResult, true);
  return iResult;
}

DorClientOptions Options(const std::string& strFolder) {
  DorClientOptions zOptions;
  zOptions.m_csRelay = sys::Utf8ToWide(strFolder + "/DorRelay");
  zOptions.m_csRootFolder = sys::Utf8ToWide(strFolder + "/root" + std::to_string(getpid()));
  return zOptions;
}

constexpr char kEndAtOnce[] = "--end-at-once";

void PrintMs(const char* szName, std::vector<double>& vdMs) {
  std::sort(vdMs.begin(), vdMs.end());
  std::printf("%-34s %12s  median %9.2f ms  p99 %9.2f ms\n", szName, "", vdMs[vdMs.size() / 2],
              vdMs[vdMs.size() * 99 / 100]);
}

void BenchOurs(size_t nBytes, const std::string& strSize, const std::string& strFolder) {
  DorClient zClient(Options(strFolder));
  std::vector<double> vdOpenMs;
  int64_t iModel = 0;
  const KivWString csRequest(kDorPickOneElement);
  KivByteBuffer vcPayload, vcResult;
  for (const int nIdle : {0, 63}) {
    while (static_cast<int>(vdOpenMs.size()) < nIdle + 1) {
      const uint64_t iStart = sys::SteadyNs();
      iModel = zClient.Open(u"/any");
      vdOpenMs.push_back(static_cast<double>(sys::SteadyNs() - iStart) / 1e6);
    }
    vcPayload.clear();
    KivPutInt64(vcPayload, iModel);
    vcPayload.resize(nBytes, 'x');
    Measure("ours, " + strSize + (nIdle == 0 ? "" : ", 63 idle handlers"),
            [&] { Check(zClient.CallUnchecked(csRequest, vcPayload, vcResult) == 0, "request"); });
    Check(vcResult == vcPayload, "echo");
  }
  PrintMs("open of a model", vdOpenMs);
}

// The start of a child to the end of its handshake, beside a process that is started and ends at once.
void BenchStart(const std::string& strFolder) {
  constexpr int kStarts = 100;
  DorClient zClient(Options(strFolder));
  const KivWString csHandler = sys::Utf8ToWide(strFolder + "/DorHandler");
  std::vector<double> vdChildMs, vdBareMs;
  for (int i = 0; i < kStarts; ++i) {
    int32_t iPid = 0;
    uint64_t iStart = sys::SteadyNs();
    Check(KivExProcLib_StartChild(csHandler, iPid) == 0, "start of a child");
    vdChildMs.push_back(static_cast<double>(sys::SteadyNs() - iStart) / 1e6);
    Check(KivExProcLib_CloseChild(iPid) == 0, "end of a child");

    KivSysProcessStart zStart;
    zStart.m_csCommandLine = u"\"" + csHandler + u"\" " + sys::Utf8ToWide(kEndAtOnce);
    iStart = sys::SteadyNs();
    KivSysProcess zProcess = KivSysProcess::Start(zStart);
    Check(zProcess.Wait(KivSysEvent::kInfinite) == KivSysWait::Signalled, "bare process");
    vdBareMs.push_back(static_cast<double>(sys::SteadyNs() - iStart) / 1e6);
  }
  PrintMs("start of a child", vdChildMs);
  PrintMs("bare process, start to end", vdBareMs);
}

// From a handler's death to the moment at which the client knows of it, and to the end of the clean-up.
void BenchDeath(const std::string& strFolder) {
  const std::string strFile = strFolder + "/death";
  setenv("KIV_BENCH_DEATH", strFile.c_str(), 1);
  DorClient zClient(Options(strFolder));
  const int64_t iModel = zClient.Open(u"/any");
  KivByteBuffer vcPayload, vcResult;
  KivPutInt64(vcPayload, iModel);
  KivPutInt64(vcPayload, 0);
  try {
    zClient.CallUnchecked(u"DorHandler_Undo", vcPayload, vcResult);
  } catch (const DorClientError&) {
  }
  const uint64_t iKnown = sys::SteadyNs();
  zClient.Close();
  const uint64_t iClean = sys::SteadyNs();
  uint64_t iDeath = 0;
  std::ifstream(strFile) >> iDeath;
  std::printf(
      "%-34s known and tree ended after %.1f ms (100 ms of them the prescribed pause), cleaned up after %.1f ms\n",
      "death of a handler", static_cast<double>(iKnown - iDeath) / 1e6, static_cast<double>(iClean - iDeath) / 1e6);
}

// One client in the life of a process.
void InChild(const std::function<void()>& pfnBody) {
  std::fflush(stdout);
  const pid_t iPid = fork();
  if (iPid == 0) {
    pfnBody();
    std::fflush(stdout);
    _exit(0);
  }
  waitpid(iPid, nullptr, 0);
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<KivWString> vcsArguments;
  for (int i = 0; i < argc; ++i) vcsArguments.push_back(sys::Utf8ToWide(argv[i]));
  for (const KivWString& csArgument : vcsArguments)
    if (csArgument.starts_with(u"-p")) return RunHandler(vcsArguments);
  if (argc > 1 && std::string(argv[1]) == kEndAtOnce) return 0;
  if (argc > 1) g_dSeconds = std::atof(argv[1]);
  void* pRecord = mmap(nullptr, sizeof(Record), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  Check(pRecord != MAP_FAILED, "mmap");
  g_pzRecord = new (pRecord) Record;

  // The relay looks for its handler beside itself.
  const std::string strFolder = std::filesystem::temp_directory_path() / ("relay_bench-" + std::to_string(getpid()));
  std::filesystem::create_directory(strFolder);
  std::filesystem::copy_file(KIV_BENCH_RELAY, strFolder + "/DorRelay");
  std::filesystem::copy_file("/proc/self/exe", strFolder + "/DorHandler");

  for (const auto& [nBytes, strSize] : {std::pair<size_t, std::string>{64, "64 B"}, {1 << 20, "1 MiB"}}) {
    InChild([&] { BenchOurs(nBytes, strSize, strFolder); });
    InChild([&] { BenchSocket("Unix socket, " + strSize, nBytes); });
    InChild([&] { BenchZeroMq("ZeroMQ ipc, " + strSize, nBytes, strFolder); });
    InChild([&] { BenchSharedMemory("bare shared memory, " + strSize, nBytes); });
    PrintRatios(strSize);
  }
  InChild([&] { BenchStart(strFolder); });
  for (int i = 0; i < 3; ++i) InChild([&] { BenchDeath(strFolder); });
  std::filesystem::remove_all(strFolder);
  return 0;
}
