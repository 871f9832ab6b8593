// What only the Linux backend has: its ways for older kernels and simpler file systems, its files' modes, what becomes
// of a mapping whose file is cut.
#ifndef _WIN32

#include "KivSysPosix.h"

#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <pty.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <clocale>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <thread>
#include <vector>

#include "KivPlatformTest.h"
#include "KivSysFileKind.h"
#include "KivSysFolder.h"
#include "KivSysLocale.h"
#include "KivSysMapping.h"
#include "KivSysTerminal.h"
#include "KivTestFolder.h"
#include "KivTestScale.h"

using namespace kiv;
using namespace kivtest;

namespace {

std::string Native(const KivWString& csPath) {
  return sys::WideToUtf8(csPath);
}

mode_t ModeOf(const KivWString& csPath) {
  struct stat zStat {};
  return stat(Native(csPath).c_str(), &zStat) == 0 ? zStat.st_mode & 07777 : 0;
}

size_t RawEntries(const KivWString& csFolder) {
  size_t nEntries = 0;
  DIR* const pDirectory = opendir(Native(csFolder).c_str());
  while (readdir(pDirectory) != nullptr) ++nEntries;
  closedir(pDirectory);
  return nEntries - 2;
}

// The ways of making a locked file.
enum Way { kWithoutName, kTemporaryNameLinked, kTemporaryNameRenamed };

void TakeWay(int iWay) {
  sys::posix::g_bNoTmpFile = iWay != kWithoutName;
  sys::posix::g_iLinkError = iWay == kTemporaryNameRenamed ? EPERM : 0;
}

class LockedFile : public testing::TestWithParam<int> {
 protected:
  void SetUp() override { TakeWay(GetParam()); }
  void TearDown() override { TakeWay(kWithoutName); }
};

// Turns switches of the backend back at the end.
struct Switches {
  ~Switches() {
    sys::posix::g_bNoFutexWaitv = false;
    sys::posix::g_bNoPidFd = false;
    sys::posix::g_iRenameError = 0;
    sys::posix::g_iLinkError = 0;
  }
};

}  // namespace

KIV_TEST_CHILD(PosixMarkerHolder) {
  TakeWay(vcsArgs[2][0] - u'0');
  const KivSysFile zMarker = MakeMarker(vcsArgs[1]);
  return zMarker.IsOpen() ? ReadyUntilKilled(vcsArgs[0]) : 1;
}

TEST_P(LockedFile, AMarkerLivesAndDiesWithItsProcess) {
  const TestFolder zFolder;
  const KivWString csPath = zFolder / u"KivProc1";
  ReadyChild zChild("PosixMarkerHolder", {csPath, KivWString(1, static_cast<char16_t>(u'0' + GetParam()))});
  ASSERT_TRUE(zChild.IsReady());
  EXPECT_TRUE(sys::PathExists(csPath));
  EXPECT_EQ(ModeOf(csPath), 01600u);
  EXPECT_EQ(RawEntries(zFolder.Path()), 1u) << "no temporary name is left";
  EXPECT_FALSE(MakeMarker(csPath).IsOpen());
  ASSERT_TRUE(zChild.Kill());
  EXPECT_EQ(RawEntries(zFolder.Path()), 1u) << "the corpse";
  EXPECT_FALSE(sys::PathExists(csPath));
  EXPECT_EQ(RawEntries(zFolder.Path()), 0u) << "removed by the test of existence";
}

TEST_P(LockedFile, OfManyWhoMakeTheSameMarkerExactlyOneWins) {
  const TestFolder zFolder;
  const KivWString csPath = zFolder / u"KivProc1";
  const uint64_t nRounds = Scaled(300, 50);
  for (uint64_t i = 0; i < nRounds; ++i) {
    std::atomic<int> nWinners{0}, nReady{0}, nTried{0};
    std::vector<std::thread> vzThreads;
    for (int j = 0; j < 4; ++j) {
      vzThreads.emplace_back([&] {
        ++nReady;
        while (nReady < 4) std::this_thread::yield();
        const KivSysFile zMarker = MakeMarker(csPath);
        if (zMarker.IsOpen()) {
          ++nWinners;
          EXPECT_TRUE(sys::PathExists(csPath));
        }
        ++nTried;
        while (nTried < 4) std::this_thread::yield();  // hold it until all have tried
      });
    }
    for (std::thread& zThread : vzThreads) zThread.join();
    ASSERT_EQ(nWinners, 1);
    ASSERT_EQ(RawEntries(zFolder.Path()), 0u);
  }
}

TEST_P(LockedFile, AMarkerNeverStandsUnlocked) {
  const TestFolder zFolder;
  const KivWString csPath = zFolder / u"KivProc1";
  std::atomic<bool> bStop{false};
  std::atomic<int> nTaken{0};
  // Tests of existence remove what is not locked: were the name ever unlocked, its maker would lose it.
  std::thread zTester([&] {
    while (!bStop) {
      sys::PathExists(csPath);
      std::vector<KivSysFolderEntry> vzEntries;
      sys::ListFolder(zFolder.Path(), vzEntries);
    }
  });
  const uint64_t nRounds = Scaled(20'000, 1'000);
  for (uint64_t i = 0; i < nRounds; ++i) {
    const KivSysFile zMarker = MakeMarker(csPath);
    if (!zMarker.IsOpen() || access(Native(csPath).c_str(), F_OK) != 0) ++nTaken;
  }
  bStop = true;
  zTester.join();
  EXPECT_EQ(nTaken, 0);
  EXPECT_EQ(RawEntries(zFolder.Path()), 0u);
}

INSTANTIATE_TEST_SUITE_P(Posix, LockedFile, testing::Values(kWithoutName, kTemporaryNameLinked, kTemporaryNameRenamed));

TEST(Posix, FilesAndFoldersAreForTheUserAlone) {
  const mode_t iBefore = umask(0);
  const TestFolder zFolder;
  OpenFile(zFolder / u"a", KivSysAccess::ReadWrite, KivSysShare::All, KivSysDisposition::CreateAlways);
  EXPECT_EQ(ModeOf(zFolder / u"a"), 0600u);
  ASSERT_TRUE(sys::MakeFolder(zFolder / u"f"));
  EXPECT_EQ(ModeOf(zFolder / u"f"), 0700u);
  chmod(Native(zFolder / u"a").c_str(), 0644);
  ASSERT_TRUE(sys::CopyFileTo(zFolder / u"a", zFolder / u"b"));
  EXPECT_EQ(ModeOf(zFolder / u"b"), 0600u);
  umask(iBefore);
  std::string strObjects;
  ASSERT_TRUE(sys::posix::PrivateObjectFolder(strObjects));
  EXPECT_EQ(ModeOf(sys::Utf8ToWide(strObjects)), 0700u);
}

TEST(Posix, AnEventLeavesNoFileBehind) {
  std::string strPath;
  const KivWString csName = UniqueName("File");
  ASSERT_TRUE(sys::posix::ObjectPath('e', csName, strPath));
  {
    bool bExisted = false;
    const KivSysEvent zFirst = KivSysEvent::Create(csName, bExisted);
    EXPECT_EQ(access(strPath.c_str(), F_OK), 0);
    EXPECT_EQ(ModeOf(sys::Utf8ToWide(strPath)), 0600u);
    const KivSysEvent zSecond = KivSysEvent::Open(csName);
  }
  EXPECT_NE(access(strPath.c_str(), F_OK), 0);
}

TEST(Posix, AnEventFileOfGarbageIsNoDanger) {
  std::string strPath;
  const KivWString csName = UniqueName("Garbage");
  ASSERT_TRUE(sys::posix::ObjectPath('e', csName, strPath));
  // Held by a living process, but too short for an event.
  const int iFd = open(strPath.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  ASSERT_TRUE(sys::posix::LockBytes(iFd, F_RDLCK, 0, 1));
  EXPECT_FALSE(KivSysEvent::Open(csName).IsOpen());
  bool bExisted = false;
  EXPECT_FALSE(KivSysEvent::Create(csName, bExisted).IsOpen());
  // Long enough, with any content: odd is on, even is off, and the calls work.
  ASSERT_EQ(pwrite(iFd, "\xff\xff\xff\xff\xff\xff\xff\xff", 8, 0), 8);
  KivSysEvent zEvent = KivSysEvent::Open(csName);
  ASSERT_TRUE(zEvent.IsOpen());
  EXPECT_EQ(zEvent.Wait(1), KivSysWait::Signalled);
  EXPECT_TRUE(zEvent.Reset());
  EXPECT_EQ(zEvent.Wait(1), KivSysWait::TimedOut);
  EXPECT_TRUE(zEvent.Set());
  EXPECT_EQ(zEvent.Wait(1), KivSysWait::Signalled);
  close(iFd);
}

TEST(Posix, WithoutFutexWaitvAWaitOnSeveralEventsStillWorks) {
  const Switches zSwitches;
  sys::posix::g_bNoFutexWaitv = true;
  bool bExisted = false;
  std::vector<KivSysEvent> vzEvents;
  std::vector<const KivSysEvent*> vpEvents;
  for (int i = 0; i < 70; ++i) vzEvents.push_back(KivSysEvent::Create(UniqueName("Poll"), bExisted));
  for (const KivSysEvent& zEvent : vzEvents) vpEvents.push_back(&zEvent);
  EXPECT_EQ(KivSysEvent::WaitAny(vpEvents, 3).m_iState, KivSysWait::TimedOut);
  const uint32_t nRounds = static_cast<uint32_t>(Scaled(2000, 200));
  KivSysEvent zAnswer = KivSysEvent::Create(UniqueName("Answer"), bExisted);
  std::thread zSetter([&] {
    for (uint32_t i = 0; i < nRounds; ++i) {
      vzEvents[i % 70].Set();
      if (zAnswer.Wait(kLong) != KivSysWait::Signalled) return;
      zAnswer.Reset();
    }
  });
  for (uint32_t i = 0; i < nRounds; ++i) {
    const KivSysWaitResult zResult = KivSysEvent::WaitAny(vpEvents, kLong);
    EXPECT_EQ(zResult.m_iState, KivSysWait::Signalled);
    EXPECT_EQ(zResult.m_iIndex, i % 70);
    vzEvents[i % 70].Reset();
    zAnswer.Set();
  }
  zSetter.join();
}

namespace {

// From here on this process gets an error from one system call, as under the filters of containers.
bool RefuseSystemCall(uint32_t iNumber, uint32_t iError) {
  sock_filter azFilter[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, iNumber, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | iError),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  sock_fprog zProgram{static_cast<unsigned short>(std::size(azFilter)), azFilter};
  return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 && prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &zProgram) == 0;
}

}  // namespace

KIV_TEST_CHILD(PosixWaitsWhereTheCallIsRefused) {
  constexpr uint32_t kFutexWaitv = 449;
  if (!RefuseSystemCall(kFutexWaitv, static_cast<uint32_t>(std::stoul(sys::WideToUtf8(vcsArgs[0]))))) return 90;
  bool bExisted = false;
  KivSysEvent zFirst = KivSysEvent::Create(UniqueName("Refused"), bExisted);
  KivSysEvent zSecond = KivSysEvent::Create(UniqueName("Refused"), bExisted);
  const KivSysEvent* const vpEvents[] = {&zFirst, &zSecond};
  // Long enough that a loaded machine makes the call at all before the time is over.
  if (KivSysEvent::WaitAny(vpEvents, 300).m_iState != KivSysWait::TimedOut) return 1;
  if (!sys::posix::g_bNoFutexWaitv) return 2;  // else each wait would be a loop of refused calls
  std::thread zSetter([&] { zSecond.Set(); });
  const KivSysWaitResult zResult = KivSysEvent::WaitAny(vpEvents, kLong);
  zSetter.join();
  return zResult.m_iState == KivSysWait::Signalled && zResult.m_iIndex == 1 ? 0 : 3;
}

TEST(Posix, AKernelOrAFilterThatRefusesFutexWaitvMakesWaitsPoll) {
  for (const int iError : {ENOSYS, EPERM, EINVAL}) {
    KivSysProcess zChild = StartTestChild("PosixWaitsWhereTheCallIsRefused", {sys::Utf8ToWide(std::to_string(iError))});
    ASSERT_EQ(zChild.Wait(kLong), KivSysWait::Signalled);
    int32_t iCode = -1;
    ASSERT_TRUE(zChild.GetExitCode(iCode));
    EXPECT_EQ(iCode, 0) << "refused with " << iError;
  }
}

TEST(Posix, WaitsOnSeveralEventsSleepInOneCallWhereTheKernelHasIt) {
  bool bExisted = false;
  std::vector<KivSysEvent> vzEvents;
  std::vector<const KivSysEvent*> vpEvents;
  for (int i = 0; i < 3; ++i) vzEvents.push_back(KivSysEvent::Create(UniqueName("Waitv"), bExisted));
  for (const KivSysEvent& zEvent : vzEvents) vpEvents.push_back(&zEvent);
  EXPECT_EQ(KivSysEvent::WaitAny(vpEvents, 3).m_iState, KivSysWait::TimedOut);
  // The kernel answers a call without anything to wait for with EINVAL if it knows the call.
  const bool bKnown = syscall(SYS_futex_waitv, nullptr, 0, 0, nullptr, 0) != 0 && errno == EINVAL;
  EXPECT_EQ(sys::posix::g_bNoFutexWaitv, !bKnown) << "a time-out is no refusal";
}

KIV_TEST_CHILD(PosixCountsDescriptors) {
  int nOpen = 0;
  for (int iFd = 3; iFd < 1000; ++iFd) nOpen += fcntl(iFd, F_GETFD) >= 0;
  return nOpen;
}

TEST(Posix, AChildInheritsNoDescriptors) {
  const TestFolder zFolder;
  const KivSysFile zMarker = MakeMarker(zFolder / u"KivProc1");
  bool bExisted = false;
  const KivSysEvent zEvent = KivSysEvent::Create(UniqueName("Inherit"), bExisted);
  const int iLoose = open("/dev/null", O_RDONLY);  // not marked to be closed
  KivSysProcess zChild = StartTestChild("PosixCountsDescriptors", {});
  ASSERT_EQ(zChild.Wait(kLong), KivSysWait::Signalled);
  int32_t iCode = -1;
  EXPECT_TRUE(zChild.GetExitCode(iCode));
  EXPECT_EQ(iCode, 0);
  close(iLoose);
}

TEST(Posix, ADroppedChildLeavesNoZombie) {
  std::vector<uint32_t> viIds;
  for (int i = 0; i < 8; ++i) viIds.push_back(StartTestChild("PosixCountsDescriptors", {}).GetId());
  for (const uint32_t iId : viIds) {
    EXPECT_TRUE(Eventually([&] {
      sys::posix::ProcessFacts zFacts;
      return !sys::posix::ReadProcessFacts(static_cast<int32_t>(iId), zFacts);
    })) << iId;
  }
}

KIV_TEST_CHILD(PosixIdles) {
  return ReadyUntilKilled(vcsArgs[0]);
}

TEST(Posix, WithoutPidDescriptorsWaitsAndReapingWork) {
  sys::posix::g_bNoPidFd = true;
  ReadyChild zChild("PosixIdles", {});
  ASSERT_TRUE(zChild.IsReady());
  EXPECT_EQ(zChild.Process().Wait(5), KivSysWait::TimedOut);
  EXPECT_TRUE(zChild.Kill());
  const uint32_t iId = StartTestChild("PosixCountsDescriptors", {}).GetId();
  EXPECT_TRUE(Eventually([&] {
    sys::posix::ProcessFacts zFacts;
    return !sys::posix::ReadProcessFacts(static_cast<int32_t>(iId), zFacts);
  }));
  sys::posix::g_bNoPidFd = false;
}

TEST(Posix, CommandLinesAreSplitAsOnWindows) {
  using Parts = std::vector<std::string>;
  const std::pair<const char16_t*, Parts> azCases[] = {
      {u"", {""}},
      {u"prog", {"prog"}},
      {u"\"my prog\" a", {"my prog", "a"}},
      {u"\"prog\"a b", {"prog", "a", "b"}},
      {u"C:\\dir\\prog \\\\", {"C:\\dir\\prog", "\\\\"}},
      {u"p \"a b\" c", {"p", "a b", "c"}},
      {u"p a\\\\b d\"e f\"g h", {"p", "a\\\\b", "de fg", "h"}},
      {u"p a\\\\\\\"b c d", {"p", "a\\\"b", "c", "d"}},
      {u"p a\\\\\\\\\"b c\" d e", {"p", "a\\\\b c", "d", "e"}},
      {u"p \"ab\\\"c\" \"\\\\\" d", {"p", "ab\"c", "\\", "d"}},
      {u"p \"\" x", {"p", "", "x"}},
      {u"p \"a\"\"b\" c", {"p", "a\"b", "c"}},
      {u"p  \t a ", {"p", "a"}},
      {u"p \"open", {"p", "open"}},
      {u"p -r\"/tmp/root\" -p\"12\" -j\"Job\"  ", {"p", "-r/tmp/root", "-p12", "-jJob"}},
      {u"\"\u00e4\" \u4e2d", {"\xc3\xa4", "\xe4\xb8\xad"}},
  };
  for (const auto& [szLine, vstrParts] : azCases)
    EXPECT_EQ(sys::posix::SplitCommandLine(szLine), vstrParts) << sys::WideToUtf8(szLine);
}

// Leaves its process group and session, as a program of its own mind may do.
KIV_TEST_CHILD(PosixLeavesTheGroup) {
  setsid();
  const KivSysFile zMarker =
      MakeMarker(vcsArgs[1] + u"/KivProc" + sys::Utf8ToWide(std::to_string(sys::CurrentProcessNumber())));
  return ReadyUntilKilled(vcsArgs[0]);
}

TEST(Posix, AJobFindsThoseThatLeftItsGroupByTheirMarkers) {
  for (const bool bNoPidFd : {false, true}) {
    sys::posix::g_bNoPidFd = bNoPidFd;
    const TestFolder zFolder;
    KivSysJob zJob = KivSysJob::Create(UniqueName("Job"));
    ReadyChild zChild("PosixLeavesTheGroup", {zFolder.Path()});
    ASSERT_TRUE(zChild.IsReady());
    // A marker with the own id must not make the root end itself, nor a dead one anybody.
    const KivSysFile zOwn =
        MakeMarker(zFolder / (u"KivProc" + sys::Utf8ToWide(std::to_string(sys::CurrentProcessNumber()))));
    zFolder.WriteBytes(u"KivProc1", "");
    zFolder.WriteBytes(u"KivProcX", "");
    EXPECT_TRUE(zJob.Terminate(5, zFolder.Path()));
    EXPECT_EQ(zChild.Process().Wait(kLong), KivSysWait::Signalled);
  }
  sys::posix::g_bNoPidFd = false;
}

TEST(Posix, AFileThatIsMappedForWritingIsNotCutThroughTheSeam) {
  const TestFolder zFolder;
  zFolder.WriteBytes(u"a", std::string(10'000, 'a'));
  KivSysFile zFile =
      OpenFile(zFolder / u"a", KivSysAccess::ReadWrite, KivSysShare::All, KivSysDisposition::OpenExisting);
  {
    KivSysMapping zMapping;
    ASSERT_TRUE(zMapping.Create(zFile, false, 0, u""));
    EXPECT_FALSE(zFile.SetLength(5'000));
    EXPECT_FALSE(
        OpenFile(zFolder / u"a", KivSysAccess::ReadWrite, KivSysShare::All, KivSysDisposition::CreateAlways).IsOpen());
    EXPECT_TRUE(zFile.SetLength(20'000));
    EXPECT_EQ(zMapping.MapView(0, 10'000)[9'999], 'a');
  }
  EXPECT_TRUE(zFile.SetLength(5'000));
}

TEST(Posix, AFileThatOthersCutReadsAsZerosAndSaysSo) {
  const TestFolder zFolder;
  zFolder.WriteBytes(u"a", std::string(3 * 65536, 'a'));
  KivSysFile zFile =
      OpenFile(zFolder / u"a", KivSysAccess::ReadWrite, KivSysShare::All, KivSysDisposition::OpenExisting);
  testing::internal::CaptureStderr();
  for (const bool bReadOnly : {true, false}) {
    KivSysMapping zMapping;
    ASSERT_TRUE(zMapping.Create(zFile, bReadOnly, 3 * 65536, u""));
    volatile uint8_t* const pView = zMapping.MapView(0, 3 * 65536);
    EXPECT_FALSE(zMapping.HasLostPages());
    ASSERT_EQ(truncate(Native(zFolder / u"a").c_str(), 65536), 0);
    EXPECT_EQ(pView[65535], 'a');
    EXPECT_FALSE(zMapping.HasLostPages());
    EXPECT_EQ(pView[2 * 65536], 0);
    EXPECT_TRUE(zMapping.HasLostPages());
    if (!bReadOnly) {
      pView[3 * 65536 - 1] = 1;
      EXPECT_EQ(pView[3 * 65536 - 1], 1);
    }
    ASSERT_EQ(truncate(Native(zFolder / u"a").c_str(), 3 * 65536), 0);
    // A new mapping in its place is whole again.
    ASSERT_TRUE(zMapping.Create(zFile, bReadOnly, 3 * 65536, u""));
    EXPECT_FALSE(zMapping.HasLostPages());
  }
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "a mapped file has lost a page: it was cut by others, or the disk failed\n")
      << "one line for the file, however often it happens";
}

TEST(Posix, APermissionIsThatOfTheFileToReplaceElseOfTheUsersMask) {
  const TestFolder zFolder;
  zFolder.WriteBytes(u"old", "");
  zFolder.WriteBytes(u"new", "");
  const auto ModeFor = [&](const KivWString& csTarget, mode_t iMask) {
    EXPECT_EQ(chmod(Native(zFolder / u"new").c_str(), 0600), 0);
    const mode_t iOld = umask(iMask);
    EXPECT_TRUE(sys::TakePermissionsFor(zFolder / u"new", zFolder / csTarget));
    umask(iOld);
    struct stat zStat {};
    EXPECT_EQ(stat(Native(zFolder / u"new").c_str(), &zStat), 0);
    return zStat.st_mode & 07777;
  };
  ASSERT_EQ(chmod(Native(zFolder / u"old").c_str(), 04640), 0);
  EXPECT_EQ(ModeFor(u"old", 022), 0640u) << "without its special bits";
  EXPECT_EQ(ModeFor(u"missing", 022), 0644u);
  EXPECT_EQ(ModeFor(u"missing", 0), 0666u);
  EXPECT_EQ(ModeFor(u"missing", 077), 0600u);
  ASSERT_EQ(symlink("old", Native(zFolder / u"link").c_str()), 0);
  EXPECT_EQ(ModeFor(u"link", 027), 0640u) << "a link is replaced, not what it leads to";
  EXPECT_FALSE(sys::TakePermissionsFor(zFolder / u"missing", zFolder / u"old"));
}

namespace {

// A file system of this size on the folder, for this process alone; false where that is not allowed.
bool MountSmallDisk(const std::string& strFolder, const char* szSize) {
  static const bool s_bOwn =
      unshare(CLONE_NEWNS) == 0 && mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
  return s_bOwn && mount("tmpfs", strFolder.c_str(), "tmpfs", 0, szSize) == 0;
}

}  // namespace

// Folder. Where no disk can be mounted, a kernel that gives no room stands for the full one.
KIV_TEST_CHILD(PosixUsesAFullDisk) {
  if (!MountSmallDisk(Native(vcsArgs[0]), "size=8m") || !MountSmallDisk("/dev/shm", "size=4k")) {
    if (!RefuseSystemCall(SYS_fallocate, ENOSPC)) return 90;
  }
  KivSysFile zFile =
      OpenFile(vcsArgs[0] + u"/a", KivSysAccess::ReadWrite, KivSysShare::All, KivSysDisposition::CreateAlways);
  const std::vector<char> vcBytes(65536, 'a');
  uint32_t nDone = 0;
  if (!zFile.WriteAt(0, vcBytes.data(), 65536, nDone)) return 91;
  // The first is less than what is asked for before it is taken, the second more.
  for (const uint64_t iLength : {uint64_t{12} << 20, uint64_t{20} << 20}) {
    KivSysMapping zMapping;
    if (zMapping.Create(zFile, false, iLength, u"") || zMapping.IsOpen()) return 1;
    if (sys::LastError() != ENOSPC) return 2;
    uint64_t nLength = 0;
    if (!zFile.GetLength(nLength) || nLength != vcBytes.size()) return 3;
  }
  // Events live in memory files of that size: one that has no room is not made, and nobody finds half of it.
  bool bExisted = false;
  const KivSysEvent zFirst = KivSysEvent::Create(u"KivTest_First", bExisted);
  if (zFirst.IsOpen() && zFirst.Test() != KivSysWait::TimedOut) return 4;
  const KivSysEvent zSecond = KivSysEvent::Create(u"KivTest_Second", bExisted);
  if (zSecond.IsOpen() || sys::LastError() != ENOSPC) return 5;
  return KivSysEvent::Open(u"KivTest_Second").IsOpen() ? 6 : 0;
}

TEST(Posix, AFullDiskFailsMappingsAndEventsAndRaisesNoSignal) {
  const TestFolder zFolder;
  KivSysProcess zChild = StartTestChild("PosixUsesAFullDisk", {zFolder.Path()});
  ASSERT_EQ(zChild.Wait(kLong), KivSysWait::Signalled);
  int32_t iCode = -1;
  ASSERT_TRUE(zChild.GetExitCode(iCode));
  EXPECT_EQ(iCode, 0);
}

TEST(Posix, AMappingLargerThanAnyDiskIsRefused) {
  const TestFolder zFolder;
  KivSysFile zFile =
      OpenFile(zFolder / u"a", KivSysAccess::ReadWrite, KivSysShare::All, KivSysDisposition::CreateAlways);
  KivSysMapping zMapping;
  EXPECT_FALSE(zMapping.Create(zFile, false, uint64_t{1} << 60, u""));
  EXPECT_FALSE(zMapping.IsOpen());
  EXPECT_NE(sys::LastError(), 0);
}

TEST(Posix, TheLanguageComesFromTheEnvironment) {
  unsetenv("LC_MESSAGES");
  const std::pair<const char*, uint32_t> azCases[] = {{"de_DE.UTF-8", 0x0407}, {"de_AT", 0x0C07}, {"ja_JP", 0x0411},
                                                      {"en_GB.UTF-8", 0x0809}, {"en_XX", 0x0409}, {"C", 0x0409},
                                                      {"de@euro", 0x0407},     {"pt_BR", 0x0416}};
  for (const auto& [szLocale, iId] : azCases) {
    setenv("LC_ALL", szLocale, 1);
    EXPECT_EQ(sys::LanguageId(), iId) << szLocale;
  }
  unsetenv("LC_ALL");
  setenv("LANG", "fr_FR.UTF-8", 1);
  EXPECT_EQ(sys::LanguageId(), 0x040Cu);
}

TEST(Posix, TheLocaleIsTheUsersButForNumbers) {
  setenv("LC_ALL", "C.UTF-8", 1);
  ASSERT_TRUE(sys::SetUserLocaleWithPoint());
  EXPECT_STREQ(std::setlocale(LC_CTYPE, nullptr), "C.UTF-8");
  EXPECT_STREQ(std::setlocale(LC_NUMERIC, nullptr), "C");
}

TEST(Posix, ATerminalBehindStandardErrorIsOne) {
  int iMaster = -1, iSlave = -1;
  ASSERT_EQ(openpty(&iMaster, &iSlave, nullptr, nullptr, nullptr), 0);
  const int iKept = dup(STDERR_FILENO);
  dup2(iSlave, STDERR_FILENO);
  const bool bTerminal = sys::IsErrorTerminal();
  dup2(iKept, STDERR_FILENO);
  EXPECT_TRUE(bTerminal);
  for (const int iFd : {iMaster, iSlave, iKept}) close(iFd);
}

TEST(PosixDeathTest, TheSecondRequestToStopEndsTheProcessAsUsual) {
  EXPECT_EXIT(
      {
        std::signal(SIGINT, SIG_DFL);
        sys::CatchStopRequests();
        std::raise(SIGINT);
        if (!sys::IsStopRequested()) std::_Exit(1);
        std::raise(SIGINT);
        std::_Exit(2);
      },
      testing::KilledBySignal(SIGINT), "");
}

TEST(PosixDeathTest, ASignalThatWasIgnoredIsNoRequest) {
  EXPECT_EXIT(
      {
        std::signal(SIGHUP, SIG_IGN);
        std::signal(SIGTERM, SIG_DFL);
        sys::CatchStopRequests();
        for (int i = 0; i < 3; ++i) std::raise(SIGHUP);
        if (sys::IsStopRequested()) std::_Exit(1);
        std::raise(SIGTERM);
        std::_Exit(sys::IsStopRequested() ? 7 : 2);
      },
      testing::ExitedWithCode(7), "");
}

TEST(PosixDeathTest, HeldRequestsAreOnlyNotedUntilTheyAreReleased) {
  EXPECT_EXIT(
      {
        std::signal(SIGTERM, SIG_DFL);
        sys::CatchStopRequests();
        sys::HoldStopRequests(true);
        for (int i = 0; i < 3; ++i) std::raise(SIGTERM);
        if (!sys::IsStopRequested()) std::_Exit(1);
        sys::HoldStopRequests(false);
        std::raise(SIGTERM);
        std::_Exit(2);
      },
      testing::KilledBySignal(SIGTERM), "");
}

TEST(Posix, NamesThatAreNoValidUtf8GoBothWays) {
  const TestFolder zFolder;
  const std::string strBase = Native(zFolder.Path()) + "/";
  const std::vector<std::string> vstrNames = {"\xff", "a\xc3", "\xc3\xa4\x80z", "\xed\xa0\x80", "\xf0\x9f\x98\x80\xb2"};
  for (const std::string& strName : vstrNames) {
    const int iFd = open((strBase + strName).c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0600);
    ASSERT_GE(iFd, 0);
    close(iFd);
    EXPECT_EQ(sys::posix::NativeName(sys::posix::WideName(strName)), strName);
  }
  std::vector<KivSysFolderEntry> vzEntries;
  ASSERT_TRUE(sys::ListFolder(zFolder.Path(), vzEntries));
  ASSERT_EQ(vzEntries.size(), vstrNames.size());
  for (const KivSysFolderEntry& zEntry : vzEntries) {
    EXPECT_TRUE(sys::PathExists(zFolder / zEntry.m_csName));
    KivSysFile zFile = KivSysFile::Open(zFolder / zEntry.m_csName, {});
    EXPECT_TRUE(zFile.IsOpen());
    EXPECT_EQ(zFile.GetName(), zFolder / zEntry.m_csName);
    zFile.Close();
    EXPECT_TRUE(sys::RemoveFileAt(zFolder / zEntry.m_csName));
  }
  EXPECT_EQ(RawEntries(zFolder.Path()), 0u);
  for (uint32_t iUnit = 1; iUnit <= 0xFFFF; ++iUnit) {
    const KivWString csUnit{u'a', static_cast<char16_t>(iUnit), u'b'};
    const bool bOtherSurrogate = (iUnit >= 0xD800 && iUnit < 0xDC80) || (iUnit > 0xDCFF && iUnit <= 0xDFFF);
    const KivWString csBack = sys::posix::WideName(sys::posix::NativeName(csUnit));
    if (bOtherSurrogate)
      EXPECT_EQ(csBack, u"a\uFFFDb");
    else
      ASSERT_EQ(csBack, csUnit) << iUnit;
  }
}

TEST(Posix, PathsThatAreNoValidUtf8HaveTheirAbsoluteAndRealOnes) {
  const TestFolder zFolder;
  const std::string strOdd = Native(zFolder.Path()) + "/odd\xff";
  ASSERT_EQ(mkdir(strOdd.c_str(), 0700), 0);
  const std::string strWas = std::filesystem::current_path().string();
  ASSERT_EQ(chdir(strOdd.c_str()), 0);
  KivWString csFound;
  EXPECT_TRUE(sys::AbsolutePath(sys::posix::WideName("a\xfe"), csFound));
  EXPECT_EQ(sys::posix::NativeName(csFound), strOdd + "/a\xfe");
  EXPECT_TRUE(sys::RealPath(u".", csFound));
  EXPECT_EQ(sys::posix::NativeName(csFound), strOdd);
  ASSERT_EQ(rmdir(strOdd.c_str()), 0);
  EXPECT_FALSE(sys::AbsolutePath(u"a", csFound)) << "the current folder has gone";
  ASSERT_EQ(chdir(strWas.c_str()), 0);
}

TEST(Posix, AWriteAboveTheUsersLimitOnFilesFailsAndDoesNotEndTheProgram) {
  const TestFolder zFolder;
  KivWString csProgram;
  ASSERT_TRUE(sys::ProgramPath(csProgram));
  csProgram.resize(csProgram.rfind(sys::kSeparator) + 1);
  const std::string strLine = "ulimit -f 0; '" + Native(csProgram) + "kivmain_probe' '" + Native(zFolder / u"seen") +
                              "' 0 text; [ $? -eq 101 ]";
  EXPECT_EQ(std::system(strLine.c_str()), 0);
}

TEST(Posix, ARenameReplacesNothingAlsoWhereTheKernelCannotRefuseTo) {
  const Switches zSwitches;
  const TestFolder zFolder;
  for (const int iLinkError : {0, EPERM}) {
    for (const int iError : {EINVAL, ENOSYS, EPERM}) {
      sys::posix::g_iRenameError = iError;
      sys::posix::g_iLinkError = iLinkError;
      zFolder.WriteBytes(u"from", "new");
      zFolder.WriteBytes(u"taken", "old");
      EXPECT_NE(sys::RenamePath(zFolder / u"from", zFolder / u"taken"), 0);
      EXPECT_EQ(sys::LastError(), EEXIST);
      EXPECT_EQ(zFolder.ReadBytes(u"taken"), "old");
      EXPECT_EQ(sys::RenamePath(zFolder / u"from", zFolder / u"to"), 0);
      EXPECT_EQ(zFolder.ReadBytes(u"to"), "new");
      EXPECT_FALSE(sys::PathExists(zFolder / u"from"));
      ASSERT_TRUE(sys::MakeFolder(zFolder / u"folder"));
      EXPECT_NE(sys::RenamePath(zFolder / u"folder", zFolder / u"to"), 0);
      EXPECT_EQ(sys::RenamePath(zFolder / u"folder", zFolder / u"moved"), 0);
      EXPECT_TRUE(sys::FolderExists(zFolder / u"moved"));
      EXPECT_TRUE(sys::RemoveFolder(zFolder / u"moved"));
      EXPECT_TRUE(sys::RemoveFileAt(zFolder / u"to"));
    }
  }
}

// As the rename of the other target does.
TEST(Posix, AFileMovesToAnotherFileSystemByACopyAndAFolderDoesNot) {
  const Switches zSwitches;
  const TestFolder zFolder;
  const std::string strBytes(100'000, 'x');
  sys::posix::g_iRenameError = EXDEV;
  zFolder.WriteBytes(u"from", strBytes);
  zFolder.WriteBytes(u"taken", "old");
  EXPECT_NE(sys::RenamePath(zFolder / u"from", zFolder / u"taken"), 0);
  EXPECT_EQ(zFolder.ReadBytes(u"taken"), "old");
  EXPECT_EQ(sys::RenamePath(zFolder / u"from", zFolder / u"to"), 0);
  EXPECT_TRUE(zFolder.ReadBytes(u"to") == strBytes);
  EXPECT_FALSE(sys::PathExists(zFolder / u"from"));
  ASSERT_TRUE(sys::MakeFolder(zFolder / u"folder"));
  EXPECT_NE(sys::RenamePath(zFolder / u"folder", zFolder / u"moved"), 0);
  EXPECT_EQ(sys::LastError(), EXDEV);
  EXPECT_TRUE(sys::FolderExists(zFolder / u"folder"));
  {
    KivSysFaultPlan zPlan;
    zPlan.m_iCall = KivSysCall::FileCopy;
    zPlan.m_iNth = 1;
    const KivSysFaultScope zFault(zPlan);
    EXPECT_NE(sys::RenamePath(zFolder / u"to", zFolder / u"again"), 0);
    EXPECT_TRUE(zFault.HasFired());
  }
  EXPECT_TRUE(zFolder.ReadBytes(u"to") == strBytes);
  EXPECT_FALSE(sys::PathExists(zFolder / u"again"));
}

TEST(Posix, PrivateTempFoldersAreLookedForInTheirOrder) {
  const TestFolder zRuntime, zTemp, zShared;
  const std::string strShared = Native(zShared.Path());
  const KivWString csPrivate = sys::Utf8ToWide("kiv-" + std::to_string(geteuid()));
  const KivWString csLast = u"/tmp/" + csPrivate;
  for (const TestFolder* pzFolder : {&zRuntime, &zTemp}) chmod(Native(pzFolder->Path()).c_str(), 0700);
  chmod(strShared.c_str(), 01777);
  const auto Ask = [](const std::string& strRuntime, const std::string& strTemp) {
    setenv("XDG_RUNTIME_DIR", strRuntime.c_str(), 1);
    setenv("TMPDIR", strTemp.c_str(), 1);
    return sys::PrivateTempFolder();
  };
  const std::string strRuntime = Native(zRuntime.Path());
  const std::string strTemp = Native(zTemp.Path());
  EXPECT_EQ(Ask(strRuntime, strTemp), zRuntime.Path());
  EXPECT_EQ(Ask(strRuntime + "//", strTemp), zRuntime.Path());
  EXPECT_EQ(Ask("", strTemp), zTemp.Path());
  EXPECT_EQ(Ask("relative", strTemp), zTemp.Path());
  EXPECT_EQ(Ask(strRuntime + "/missing", strTemp), zTemp.Path());
  EXPECT_EQ(Ask("", ""), csLast);
  unsetenv("XDG_RUNTIME_DIR");
  unsetenv("TMPDIR");
  EXPECT_EQ(sys::PrivateTempFolder(), csLast);
  EXPECT_EQ(ModeOf(csLast), 0700u);
  // In a shared folder one of the user's own.
  EXPECT_EQ(Ask("", strShared), zShared / csPrivate);
  EXPECT_EQ(ModeOf(zShared / csPrivate), 0700u);
  chmod(Native(zShared / csPrivate).c_str(), 0755);
  EXPECT_EQ(Ask("", strShared), zShared / csPrivate);
  EXPECT_EQ(ModeOf(zShared / csPrivate), 0700u) << "barred again";
  // Where somebody else holds that name, or could put something else there, the next one is taken.
  ASSERT_TRUE(sys::RemoveFolder(zShared / csPrivate));
  ASSERT_EQ(symlink(strTemp.c_str(), Native(zShared / csPrivate).c_str()), 0);
  EXPECT_EQ(Ask("", strShared), csLast);
  chmod(strTemp.c_str(), 0777);
  EXPECT_EQ(Ask(strTemp, strShared), csLast);
}

TEST(Posix, ObjectsOfKilledMakersAreSweptAndThoseOfLivingOnesStay) {
  const KivWString csLiving = UniqueName("Sweep");
  const KivWString csDead = UniqueName("Sweep");
  ReadyChild zChild("PosixMakesObjects", {csDead});
  ASSERT_TRUE(zChild.IsReady());
  std::string strFolder;
  ASSERT_TRUE(sys::posix::PrivateObjectFolder(strFolder));
  const std::string strTemporary = strFolder + "/.kiv1-" + Native(csDead);
  close(open(strTemporary.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0600));
  bool bExisted = false;
  const KivSysEvent zEvent = KivSysEvent::Create(csLiving, bExisted);
  const KivSysJob zJob = KivSysJob::Create(csLiving);
  const auto Stands = [](char cKind, const KivWString& csName) {
    std::string strPath;
    return sys::posix::ObjectPath(cKind, csName, strPath) && access(strPath.c_str(), F_OK) == 0;
  };
  EXPECT_TRUE(Stands('e', csDead) && Stands('j', csDead));
  sys::posix::SweepObjects();
  EXPECT_TRUE(Stands('e', csDead) && Stands('j', csDead)) << "their maker lives";
  ASSERT_TRUE(zChild.Kill());
  EXPECT_TRUE(Stands('e', csDead) && Stands('j', csDead));
  sys::posix::SweepObjects();
  EXPECT_FALSE(Stands('e', csDead));
  EXPECT_FALSE(Stands('j', csDead));
  EXPECT_NE(access(strTemporary.c_str(), F_OK), 0);
  EXPECT_TRUE(Stands('e', csLiving) && Stands('j', csLiving));
}

KIV_TEST_CHILD(PosixMakesObjects) {
  bool bExisted = false;
  const KivSysEvent zEvent = KivSysEvent::Create(vcsArgs[1], bExisted);
  const KivSysJob zJob = KivSysJob::Create(vcsArgs[1]);
  return zEvent.IsOpen() && zJob.IsOpen() ? ReadyUntilKilled(vcsArgs[0]) : 1;
}

TEST(Posix, ClearingReadOnlyOpensAFolderForItsUserAlone) {
  const TestFolder zFolder;
  ASSERT_TRUE(sys::MakeFolder(zFolder / u"sub"));
  for (const mode_t iMode : {0500u, 0400u, 0555u}) {
    ASSERT_EQ(chmod(Native(zFolder / u"sub").c_str(), iMode), 0);
    EXPECT_TRUE(sys::ClearReadOnly(zFolder / u"sub"));
    EXPECT_EQ(ModeOf(zFolder / u"sub"), iMode | 0300u);
  }
}

TEST(Posix, ALinkIsListedAsNoFolderAndItsTargetIsNotTouched) {
  const TestFolder zFolder;
  const TestFolder zTarget;
  const std::string strTarget = sys::WideToUtf8(zTarget.Path());
  ASSERT_EQ(chmod(strTarget.c_str(), 0555), 0);
  const KivWString csLink = zFolder / u"link";
  ASSERT_EQ(symlink(strTarget.c_str(), sys::WideToUtf8(csLink).c_str()), 0);
  std::vector<KivSysFolderEntry> vzEntries;
  ASSERT_TRUE(sys::ListFolder(zFolder.Path(), vzEntries));
  ASSERT_EQ(vzEntries.size(), 1u);
  EXPECT_FALSE(vzEntries[0].m_bFolder);
  EXPECT_TRUE(vzEntries[0].m_bLink);
  EXPECT_TRUE(sys::ClearReadOnly(csLink));
  struct stat zStat;
  ASSERT_EQ(stat(strTarget.c_str(), &zStat), 0);
  EXPECT_EQ(zStat.st_mode & 0777, 0555u);
  EXPECT_TRUE(sys::RemoveFileAt(csLink));
  EXPECT_TRUE(sys::FolderExists(zTarget.Path()));
  // One that leads nowhere is listed as well, so that it can be removed.
  ASSERT_EQ(symlink("missing", sys::WideToUtf8(csLink).c_str()), 0);
  ASSERT_TRUE(sys::ListFolder(zFolder.Path(), vzEntries));
  ASSERT_EQ(vzEntries.size(), 1u);
  EXPECT_TRUE(vzEntries[0].m_bLink);
  EXPECT_TRUE(sys::IsLink(csLink));
  EXPECT_TRUE(sys::RemoveFileAt(csLink));
  chmod(strTarget.c_str(), 0700);
}

#endif
