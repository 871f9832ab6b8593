#include "KivSysMapping.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <mutex>
#include <utility>

#include "KivSysPosix.h"

namespace kiv {

using sys::posix::FailWith;
using sys::posix::FailWithErrno;
using sys::posix::FaultAllows;

namespace {

constexpr uint64_t kSmallRoom = 0x1000000;  // reserved without asking how much is free

uint64_t PageSize() {
  static const auto s_nPage = static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
  return s_nPage;
}

// Disk space for the bytes from iFrom to iTo, so that no store into the mapping can meet a full disk. What the disk can
// surely not hold is refused before any of it is taken.
bool Reserve(KivSysFile& zFile, uint64_t iLength, uint64_t iFrom, uint64_t iTo) {
  if (iFrom >= iTo) return true;
  const int iFd = static_cast<int>(zFile.GetNativeHandle());
  const uint64_t nNew = iTo - std::min(iTo, std::max(iFrom, iLength));
  uint64_t nFree = 0;
  if (nNew > kSmallRoom && zFile.GetDiskRoom(nFree) && nNew > nFree) return FailWith(ENOSPC);
  int iError;
  do {
    iError = posix_fallocate(iFd, static_cast<off_t>(iFrom), static_cast<off_t>(iTo - iFrom));
  } while (iError == EINTR);
  if (iError == 0) return true;
  // Some of it may have been taken before the disk was full.
  struct stat zStat;
  if (iError == ENOSPC && fstat(iFd, &zStat) == 0 && static_cast<uint64_t>(zStat.st_size) > iLength &&
      ftruncate(iFd, static_cast<off_t>(iLength)) != 0) {
    // The file stays longer than it was; the failure that counts is the first one.
  }
  return FailWith(iError);
}

// A page of a mapping that has no file behind it any more (cut by others, or the disk failed) raises SIGBUS where it
// is used. The handler looks the address up here, puts a page of zeros in its place and marks the mapping. All other
// cases go to whoever handled the signal before.
struct Range {
  std::atomic<uintptr_t> m_iBase{0};
  std::atomic<uintptr_t> m_nBytes{0};  // 0: nothing here
  std::atomic<bool> m_bWritable{false};
  std::atomic<bool> m_bLost{false};
  std::atomic<bool> m_bTaken{false};
  std::atomic<uint64_t> m_iFile{0};
};
std::array<Range, 4096> g_vzRanges;
struct sigaction g_zFormerAction;

// Files that were told about: their users map them again and again.
std::array<std::atomic<uint64_t>, 64> g_viTold;

uint64_t FileNumber(const struct stat& zStat) {
  return (static_cast<uint64_t>(zStat.st_dev) << 40 ^ static_cast<uint64_t>(zStat.st_ino)) | uint64_t{1} << 63;
}

// Once for each file, for the first ones.
void TellOfLoss(uint64_t iFile) {
  for (std::atomic<uint64_t>& iTold : g_viTold) {
    uint64_t iFree = 0;
    if (iTold.load() == iFile) return;
    if (!iTold.compare_exchange_strong(iFree, iFile)) {
      if (iFree == iFile) return;
      continue;
    }
    constexpr char kText[] = "a mapped file has lost a page: it was cut by others, or the disk failed\n";
    if (write(STDERR_FILENO, kText, sizeof kText - 1) < 0) {
      // Nobody to tell; the mark stands.
    }
    return;
  }
}

void OnBusError(int iSignal, siginfo_t* pInfo, void* pContext) {
  const int iError = errno;
  const auto iAddress = reinterpret_cast<uintptr_t>(pInfo->si_addr);
  for (Range& zRange : g_vzRanges) {
    const uintptr_t nBytes = zRange.m_nBytes.load(std::memory_order_acquire);
    const uintptr_t iBase = zRange.m_iBase.load(std::memory_order_relaxed);
    if (nBytes == 0 || iAddress < iBase || iAddress - iBase >= nBytes || pInfo->si_code <= 0) continue;
    void* const pPage = reinterpret_cast<void*>(iAddress / PageSize() * PageSize());
    const int iProtection = zRange.m_bWritable.load(std::memory_order_relaxed) ? PROT_READ | PROT_WRITE : PROT_READ;
    if (mmap(pPage, PageSize(), iProtection, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0) == MAP_FAILED) break;
    zRange.m_bLost.store(true, std::memory_order_relaxed);
    TellOfLoss(zRange.m_iFile.load(std::memory_order_relaxed));
    errno = iError;
    return;
  }
  if ((g_zFormerAction.sa_flags & SA_SIGINFO) != 0 && g_zFormerAction.sa_sigaction != nullptr) {
    g_zFormerAction.sa_sigaction(iSignal, pInfo, pContext);
  } else if (g_zFormerAction.sa_handler != SIG_DFL && g_zFormerAction.sa_handler != SIG_IGN) {
    g_zFormerAction.sa_handler(iSignal);
  } else {
    signal(SIGBUS, SIG_DFL);  // the instruction runs again and ends the process
  }
  errno = iError;
}

// Null if there are too many mappings; the one in hand goes without protection then.
Range* TakeRange() {
  static std::once_flag s_zOnce;
  std::call_once(s_zOnce, [] {
    static_cast<void>(PageSize());  // known before the handler needs it
    struct sigaction zAction {};
    zAction.sa_sigaction = OnBusError;
    zAction.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_NODEFER;
    sigemptyset(&zAction.sa_mask);
    sigaction(SIGBUS, &zAction, &g_zFormerAction);
  });
  for (Range& zRange : g_vzRanges) {
    if (zRange.m_bTaken.load(std::memory_order_relaxed) || zRange.m_bTaken.exchange(true)) continue;
    zRange.m_bLost.store(false, std::memory_order_relaxed);
    return &zRange;
  }
  return nullptr;
}

Range* RangeOf(const std::atomic<bool>* pLost) {
  if (pLost == nullptr) return nullptr;
  for (Range& zRange : g_vzRanges)
    if (&zRange.m_bLost == pLost) return &zRange;
  return nullptr;
}

void SetRange(Range* pzRange, const void* pBase, uint64_t nBytes, bool bReadOnly) {
  if (pzRange == nullptr) return;
  pzRange->m_nBytes.store(0, std::memory_order_release);
  pzRange->m_iBase.store(reinterpret_cast<uintptr_t>(pBase), std::memory_order_relaxed);
  pzRange->m_bWritable.store(!bReadOnly, std::memory_order_relaxed);
  pzRange->m_nBytes.store(nBytes, std::memory_order_release);
}

// A writable mapping goes through an open of its own, whose lock says that the file is mapped: KivSysFile cuts no such
// file. The mapping keeps that open, and with it the lock. Readers go without: they come and go with each message, and
// the open would cost as much as the mapping.
void* MapFile(int iFd, uint64_t nBytes, bool bReadOnly) {
  if (bReadOnly) return mmap(nullptr, nBytes, PROT_READ, MAP_SHARED, iFd, 0);
  char szSelf[64];
  std::snprintf(szSelf, sizeof szSelf, "/proc/self/fd/%d", iFd);
  const sys::posix::Descriptor zFd(open(szSelf, O_RDWR | O_CLOEXEC));
  if (zFd.IsOpen()) sys::posix::LockBytes(zFd.Get(), F_RDLCK, sys::posix::kLockMapped, 1);
  return mmap(nullptr, nBytes, PROT_READ | PROT_WRITE, MAP_SHARED, zFd.IsOpen() ? zFd.Get() : iFd, 0);
}

}  // namespace

KivSysMapping::KivSysMapping() noexcept = default;

KivSysMapping::KivSysMapping(KivSysMapping&& zOther) noexcept {
  *this = std::move(zOther);
}

KivSysMapping& KivSysMapping::operator=(KivSysMapping&& zOther) noexcept {
  if (this != &zOther) {
    Close();
    m_iHandle = std::exchange(zOther.m_iHandle, 0);
    m_pBase = std::exchange(zOther.m_pBase, nullptr);
    m_iMapped = std::exchange(zOther.m_iMapped, 0);
    m_iCapacity = std::exchange(zOther.m_iCapacity, 0);
    m_iFileIdentity[0] = zOther.m_iFileIdentity[0];
    m_iFileIdentity[1] = zOther.m_iFileIdentity[1];
    m_bReadOnly = zOther.m_bReadOnly;
    m_pLost = std::exchange(zOther.m_pLost, nullptr);
  }
  return *this;
}

KivSysMapping::~KivSysMapping() {
  Close();
}

bool KivSysMapping::Create(KivSysFile& zFile, bool bReadOnly, uint64_t iCapacity, const KivWString&) {
  struct stat zStat;
  const int iFd = static_cast<int>(zFile.GetNativeHandle());
  if (!FaultAllows(KivSysCall::MappingCreate) || (fstat(iFd, &zStat) != 0 && !FailWithErrno())) {
    Close();
    return false;
  }
  const bool bSameFile = IsOpen() && !HasLostPages() && m_iFileIdentity[0] == zStat.st_dev &&
                         m_iFileIdentity[1] == zStat.st_ino && m_bReadOnly == bReadOnly;
  if (!bSameFile) Close();

  const auto iLength = static_cast<uint64_t>(zStat.st_size);
  if (iCapacity == 0) iCapacity = iLength;
  const bool bPossible = S_ISREG(zStat.st_mode) && iCapacity != 0 && iCapacity <= 0x3FFFFFFFFFFFFFFF &&
                         (!bReadOnly || iCapacity <= iLength);
  if (!bPossible) {
    Close();
    return FailWith(EINVAL);
  }
  // What this mapping covered is reserved already, unless the file was cut meanwhile.
  const uint64_t iReserved = bSameFile && m_iCapacity <= iLength ? m_iCapacity : 0;
  if (!bReadOnly && !Reserve(zFile, iLength, iReserved, iCapacity)) {
    Close();
    return false;
  }

  const uint64_t iMapped = (iCapacity + PageSize() - 1) / PageSize() * PageSize();
  if (!bSameFile) {
    void* const pBase = MapFile(iFd, iMapped, bReadOnly);
    if (pBase == MAP_FAILED) return FailWithErrno();
    m_pBase = static_cast<uint8_t*>(pBase);
    m_iMapped = iMapped;
    Range* const pzRange = TakeRange();
    if (pzRange != nullptr) pzRange->m_iFile.store(FileNumber(zStat), std::memory_order_relaxed);
    SetRange(pzRange, m_pBase, m_iMapped, bReadOnly);
    m_pLost = pzRange == nullptr ? nullptr : &pzRange->m_bLost;
  } else if (iMapped > m_iMapped) {
    Range* const pzRange = RangeOf(m_pLost);
    SetRange(pzRange, nullptr, 0, bReadOnly);
    void* const pBase = mremap(m_pBase, m_iMapped, iMapped, MREMAP_MAYMOVE);
    if (pBase == MAP_FAILED) {
      FailWithErrno();
      Close();
      return false;
    }
    m_pBase = static_cast<uint8_t*>(pBase);
    m_iMapped = iMapped;
    SetRange(pzRange, m_pBase, m_iMapped, bReadOnly);
  }
  m_iHandle = 1;
  m_iCapacity = iCapacity;
  m_bReadOnly = bReadOnly;
  m_iFileIdentity[0] = zStat.st_dev;
  m_iFileIdentity[1] = zStat.st_ino;
  return true;
}

bool KivSysMapping::IsOpen() const noexcept {
  return m_iHandle != 0;
}

uint64_t KivSysMapping::GetCapacity() const noexcept {
  return m_iCapacity;
}

void KivSysMapping::Close() noexcept {
  if (Range* const pzRange = RangeOf(m_pLost)) {
    SetRange(pzRange, nullptr, 0, true);
    pzRange->m_bTaken.store(false);
  }
  m_pLost = nullptr;
  if (m_pBase != nullptr) munmap(m_pBase, m_iMapped);
  m_pBase = nullptr;
  m_iMapped = 0;
  m_iCapacity = 0;
  m_iHandle = 0;
}

uint8_t* KivSysMapping::MapView(uint64_t iOffset, uint64_t nSize) {
  if (!FaultAllows(KivSysCall::MappingView)) return nullptr;
  const bool bInside = IsOpen() && nSize != 0 && iOffset < m_iCapacity && nSize <= m_iCapacity - iOffset;
  if (!bInside || iOffset % PageSize() != 0) {
    FailWith(EINVAL);
    return nullptr;
  }
  return m_pBase + iOffset;
}

void KivSysMapping::UnmapView(uint8_t*, uint64_t) noexcept {}

bool KivSysMapping::MapsWhole() noexcept {
  return true;
}

}  // namespace kiv
