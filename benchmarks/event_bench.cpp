// Events and markers: the round trip between two processes beside a FIFO, a Unix socket and a bare futex word, the test
// of an event, and the test of a marker. Linux only, as its peers are.
//
// usage: event_bench [rounds]
#include <fcntl.h>
#include <linux/futex.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "KivSysClock.h"
#include "KivSysEvent.h"
#include "KivSysFile.h"
#include "KivSysFolder.h"
#include "KivSysProcess.h"

using namespace kiv;

namespace {

// Median of a run in microseconds for each of the two sides' turns; the child is the process forked for it.
struct RoundTrip {
  std::function<void()> m_pfnAsk;     // parent: one round
  std::function<void()> m_pfnAnswer;  // child: one round
};

double MedianUs(std::vector<uint64_t>& viNs) {
  std::sort(viNs.begin(), viNs.end());
  return static_cast<double>(viNs[viNs.size() / 2]) / 1000.0;
}

double MeasureRounds(const RoundTrip& zTrip, int nRounds) {
  std::fflush(stdout);
  const pid_t iChild = fork();
  if (iChild == 0) {
    for (int i = 0; i < nRounds + 1000; ++i) zTrip.m_pfnAnswer();
    _exit(0);
  }
  for (int i = 0; i < 1000; ++i) zTrip.m_pfnAsk();
  std::vector<uint64_t> viNs;
  for (int i = 0; i < nRounds; ++i) {
    const uint64_t iBefore = sys::SteadyNs();
    zTrip.m_pfnAsk();
    viNs.push_back(sys::SteadyNs() - iBefore);
  }
  waitpid(iChild, nullptr, 0);
  return MedianUs(viNs);
}

// Nanoseconds of one call: the median of batches.
double MeasureCall(const std::function<void()>& pfnCall, int nCalls) {
  std::vector<double> vfNs;
  for (int iBatch = 0; iBatch < 9; ++iBatch) {
    const uint64_t iBefore = sys::SteadyNs();
    for (int i = 0; i < nCalls; ++i) pfnCall();
    vfNs.push_back(static_cast<double>(sys::SteadyNs() - iBefore) / nCalls);
  }
  std::sort(vfNs.begin(), vfNs.end());
  return vfNs[vfNs.size() / 2];
}

void Expect(bool bTrue, const char* szWhat) {
  if (bTrue) return;
  std::fprintf(stderr, "event_bench: %s failed\n", szWhat);
  std::exit(1);
}

KivWString Name(const char* szWhat) {
  return sys::Utf8ToWide("KivBench_" + std::string(szWhat) + std::to_string(getpid()));
}

void ReadByte(int iFd) {
  char c;
  Expect(read(iFd, &c, 1) == 1, "read");
}

void WriteByte(int iFd) {
  Expect(write(iFd, "x", 1) == 1, "write");
}

void Trips(int nRounds) {
  bool bExisted = false;
  KivSysEvent zPing = KivSysEvent::Create(Name("Ping"), bExisted);
  KivSysEvent zPong = KivSysEvent::Create(Name("Pong"), bExisted);
  const KivSysEvent zIdle = KivSysEvent::Create(Name("Idle"), bExisted);
  Expect(zPing.IsOpen() && zPong.IsOpen() && zIdle.IsOpen(), "creating events");
  const auto Wait = [](KivSysEvent& zEvent) {
    Expect(zEvent.Wait(60'000) == KivSysWait::Signalled, "wait");
    zEvent.Reset();
  };
  const double fEvent = MeasureRounds({[&] { zPing.Set(), Wait(zPong); }, [&] { Wait(zPing), zPong.Set(); }}, nRounds);

  const KivSysEvent* const vpPing[] = {&zIdle, &zPing};
  const KivSysEvent* const vpPong[] = {&zIdle, &zPong};
  const auto WaitAny = [](const KivSysEvent* const* vpEvents, KivSysEvent& zEvent) {
    Expect(KivSysEvent::WaitAny({vpEvents, 2}, 60'000).m_iIndex == 1, "wait for any");
    zEvent.Reset();
  };
  const double fAny = MeasureRounds(
      {[&] { zPing.Set(), WaitAny(vpPong, zPong); }, [&] { WaitAny(vpPing, zPing), zPong.Set(); }}, nRounds);

  int viPing[2], viPong[2], viSocket[2];
  Expect(pipe(viPing) == 0 && pipe(viPong) == 0 && socketpair(AF_UNIX, SOCK_STREAM, 0, viSocket) == 0, "peers");
  const double fFifo = MeasureRounds(
      {[&] { WriteByte(viPing[1]), ReadByte(viPong[0]); }, [&] { ReadByte(viPing[0]), WriteByte(viPong[1]); }},
      nRounds);
  const double fSocket = MeasureRounds(
      {[&] { WriteByte(viSocket[0]), ReadByte(viSocket[0]); }, [&] { ReadByte(viSocket[1]), WriteByte(viSocket[1]); }},
      nRounds);

  auto* const pWords = static_cast<std::atomic<uint32_t>*>(
      mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  const auto FutexSet = [](std::atomic<uint32_t>& iWord) {
    iWord = 1;
    syscall(SYS_futex, &iWord, FUTEX_WAKE, INT_MAX, nullptr, nullptr, 0);
  };
  const auto FutexWait = [](std::atomic<uint32_t>& iWord) {
    while (iWord == 0) syscall(SYS_futex, &iWord, FUTEX_WAIT, 0, nullptr, nullptr, 0);
    iWord = 0;
  };
  const double fFutex = MeasureRounds(
      {[&] { FutexSet(pWords[0]), FutexWait(pWords[16]); }, [&] { FutexWait(pWords[0]), FutexSet(pWords[16]); }},
      nRounds);

  std::printf("Round trip between two processes, median of %d\n", nRounds);
  const auto Print = [fEvent](const char* szName, double fUs) {
    std::printf("  %-34s %8.2f us   %5.2f x the event\n", szName, fUs, fUs / fEvent);
  };
  Print("event", fEvent);
  Print("event, wait for any of two", fAny);
  Print("bare futex word, always asleep", fFutex);
  Print("FIFO", fFifo);
  Print("Unix socket", fSocket);
}

void Tests() {
  bool bExisted = false;
  KivSysEvent zEvent = KivSysEvent::Create(Name("Test"), bExisted);
  int viPipe[2];
  Expect(pipe(viPipe) == 0, "pipe");
  const double fTest = MeasureCall([&] { Expect(zEvent.Test() == KivSysWait::TimedOut, "test"); }, 1'000'000);
  const double fPoll = MeasureCall(
      [&] {
        pollfd zPoll{viPipe[0], POLLIN, 0};
        Expect(poll(&zPoll, 1, 0) == 0, "poll");
      },
      100'000);
  const double fSet = MeasureCall([&] { zEvent.Set(), zEvent.Reset(); }, 1'000'000);
  std::printf("\nOne call\n");
  std::printf("  %-34s %8.1f ns\n", "event test", fTest);
  std::printf("  %-34s %8.1f ns   %5.0f x the event\n", "FIFO test (poll)", fPoll, fPoll / fTest);
  std::printf("  %-34s %8.1f ns\n", "event set and reset, nobody waits", fSet);

  char szFolder[] = "/dev/shm/kivbench-XXXXXX";
  Expect(mkdtemp(szFolder) != nullptr, "mkdtemp");
  const KivWString csFolder = sys::Utf8ToWide(szFolder);
  const KivWString csMarker = csFolder + u"/KivProc1";
  const KivWString csPlain = csFolder + u"/plain";
  const KivSysOpenMode zMarkerMode{
      KivSysAccess::ReadWrite, KivSysShare::None, KivSysDisposition::CreateAlways,
      KivSysFileFlags::Temporary | KivSysFileFlags::RandomAccess | KivSysFileFlags::DeleteOnClose};
  {
    const KivSysFile zMarker = KivSysFile::Open(csMarker, zMarkerMode);
    KivSysFile::Open(csPlain,
                     {KivSysAccess::Write, KivSysShare::None, KivSysDisposition::CreateAlways, KivSysFileFlags::None});
    const double fMarked = MeasureCall([&] { Expect(sys::PathExists(csMarker), "marker"); }, 50'000);
    const double fPlain = MeasureCall([&] { Expect(sys::PathExists(csPlain), "plain file"); }, 50'000);
    const KivWString csNone = csFolder + u"/none";
    const double fMissing = MeasureCall([&] { Expect(!sys::PathExists(csNone), "no file"); }, 50'000);
    const std::string strPlain = sys::WideToUtf8(csPlain);
    const double fStat = MeasureCall(
        [&] {
          struct stat zStat;
          Expect(stat(strPlain.c_str(), &zStat) == 0, "stat");
        },
        50'000);
    const double fMake = MeasureCall(
        [&] { Expect(KivSysFile::Open(csFolder + u"/KivProc2", zMarkerMode).IsOpen(), "making a marker"); }, 5'000);
    const int iFd = open(sys::WideToUtf8(csMarker).c_str(), O_RDONLY | O_CLOEXEC);
    const double fKept = MeasureCall(
        [&] {
          struct flock zLock {};
          zLock.l_type = F_WRLCK;
          zLock.l_whence = SEEK_SET;
          zLock.l_start = 0x4000000000000000;
          zLock.l_len = 1;
          Expect(fcntl(iFd, F_OFD_GETLK, &zLock) == 0 && zLock.l_type != F_UNLCK, "lock");
        },
        50'000);
    std::printf("  %-34s %8.1f ns\n", "stat alone", fStat);
    std::printf("  %-34s %8.1f ns   %5.2f x stat\n", "existence, plain file", fPlain, fPlain / fStat);
    std::printf("  %-34s %8.1f ns   %5.2f x stat\n", "existence, no file", fMissing, fMissing / fStat);
    std::printf("  %-34s %8.1f ns   %5.2f x stat\n", "existence, marker", fMarked, fMarked / fStat);
    std::printf("  %-34s %8.1f ns   %5.2f x stat\n", "lock of a marker kept open", fKept, fKept / fStat);
    std::printf("  %-34s %8.1f ns\n", "making and closing a marker", fMake);
    close(iFd);
  }
  sys::RemoveFileAt(csPlain);
  Expect(rmdir(szFolder) == 0, "rmdir");
}

}  // namespace

int main(int argc, char** argv) {
  const int nRounds = argc > 1 ? std::atoi(argv[1]) : 100'000;
  Trips(nRounds > 0 ? nRounds : 100'000);
  Tests();
  return 0;
}
