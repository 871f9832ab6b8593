// What the sources of the Linux backend share, and the switches that let tests take the ways of older kernels and of
// simpler file systems.
//
// Locks on a file (open file description locks, far behind any data; read locks unless told otherwise):
//   BYTE  HELD BY AN OPEN
//   0     with delete-on-close: the owner lives
//   1     that writes
//   2     that reads
//   3     that lets nobody else write
//   4     that lets nobody else delete
//   5     that lets nobody else read
//   6     a writable mapping of the file: it is not cut meanwhile
// The order makes each usual set of bytes one range. A file with the sticky bit is a delete-on-close file: its name
// counts only while byte 0 is locked.
#pragma once

#include <sys/stat.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "KivSysFault.h"
#include "KivSysText.h"

namespace kiv::sys::posix {

// Test switches. Each is off at the start; set them before the calls under test. The backend itself turns
// g_bNoFutexWaitv on when the kernel refuses the call.
extern std::atomic<bool> g_bNoTmpFile;     // delete-on-close files: a temporary name that is linked in
extern std::atomic<bool> g_bNoFutexWaitv;  // waits on several events: plain futex with a short poll
extern std::atomic<bool> g_bNoPidFd;       // waits on children: a short poll
extern std::atomic<int> g_iRenameError;    // what a rename that replaces nothing answers; 0: the kernel is asked
extern std::atomic<int> g_iLinkError;      // what a hard link answers

// Keeps errno for sys::LastError and gives false.
bool FailWithErrno() noexcept;
bool FailWith(int iError) noexcept;

// Asks the fault plan; false with the last error set when the call is to fail.
inline bool FaultAllows(KivSysCall iCall) noexcept {
  return AskFault(iCall) != FaultAnswer::Fail;
}

// Names of the system as wide text and back. A byte that is no valid UTF-8 stands as the unit 0xDC00 + byte, so that
// every name of the system goes both ways.
KivWString WideName(std::string_view strName);
std::string NativeName(KivWStringView csName);
// A path as the system takes it; false with the last error set for an empty one and one that holds a NUL.
bool NativePath(KivWStringView csPath, std::string& strPath);

class Descriptor {
 public:
  Descriptor() noexcept = default;
  explicit Descriptor(int iFd) noexcept : m_iFd(iFd) {}
  Descriptor(Descriptor&& zOther) noexcept : m_iFd(zOther.Release()) {}
  Descriptor& operator=(Descriptor&& zOther) noexcept;
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() { Reset(); }

  bool IsOpen() const noexcept { return m_iFd >= 0; }
  int Get() const noexcept { return m_iFd; }
  int Release() noexcept;
  void Reset(int iFd = -1) noexcept;

 private:
  int m_iFd = -1;
};

constexpr int kLockOwner = 0, kLockWrites = 1, kLockReads = 2, kLockDeniesWrite = 3, kLockDeniesDelete = 4,
              kLockDeniesRead = 5, kLockCount = 6, kLockMapped = 6, kLockJobList = 7;
constexpr int64_t kLockBase = 0x4000000000000000;

// iType is F_RDLCK, F_WRLCK or F_UNLCK; false if another open holds what contradicts, or with errno set otherwise.
bool LockBytes(int iFd, short iType, int iFirst, int iCount) noexcept;
// True if another open holds any of the bytes.
bool BytesHeld(int iFd, int iFirst, int iCount) noexcept;

// The general existence test: stat first; of a marked file the lock decides, and a dead one's name is removed.
bool ExistsAt(int iFolderFd, const char* szName, struct stat& zStat) noexcept;
// Removes the name if it belongs to a delete-on-close file without an owner.
void RemoveIfDead(int iFolderFd, const char* szName) noexcept;
// True if another open of the file does not share deletion.
bool DeletionDenied(const char* szPath) noexcept;

// A new file in the folder of szPath that gets its name when it is locked: bytes of iLockSet (a bit for each) and,
// with bSticky, the mark, and a length. -1 with errno; EEXIST if the name is taken.
int MakeLockedFile(const char* szPath, uint32_t iLockSet, bool bSticky, int64_t iLength = 0) noexcept;

// Renames; EEXIST if the new name is taken. 0, or -1 with errno.
int RenameNoReplace(const char* szFrom, const char* szTo) noexcept;
int LinkName(const char* szFrom, const char* szTo) noexcept;

// Makes the folder, or takes an old one of this user and bars everybody else. False if it is another user's, or a link.
bool SafeFolder(const std::string& strFolder);

// The user's private folder for events and jobs, "/dev/shm/kiv-<user>"; false if it is not to be had or not safe.
bool PrivateObjectFolder(std::string& strFolder);
// File in that folder that stands for a named object of the kind ('e', 'j').
bool ObjectPath(char cKind, const KivWString& csName, std::string& strPath);
// Removes an event's file if no process holds it. False if one does.
bool RemoveUnheld(const char* szPath) noexcept;
// Names of killed holders that nobody asks for again would stay in memory: looks through the folder, once in a process.
void SweepObjectsOnce();
void SweepObjects();

uint64_t NowNs() noexcept;

// The parts of a command line by the rules of CommandLineToArgvW, as UTF-8; at least one.
std::vector<std::string> SplitCommandLine(KivWStringView csLine);

// sys::StartThread without its question to the fault plan.
bool StartDetached(std::function<void()> pfnBody, uint32_t iStackSize);

// Start time of a process in clock ticks since the boot, its group and its state; false if there is no such process.
struct ProcessFacts {
  uint64_t m_iStartTicks = 0;
  int32_t m_iGroup = 0;
  char m_cState = 0;
  bool IsAlive() const noexcept { return m_cState != 'Z' && m_cState != 'X'; }
};
bool ReadProcessFacts(int32_t iId, ProcessFacts& zFacts) noexcept;

}  // namespace kiv::sys::posix
