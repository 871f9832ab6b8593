#include "KivSysMapping.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "KivSysPosix.h"

namespace kiv {

using sys::posix::FailWith;
using sys::posix::FailWithErrno;
using sys::posix::FaultAllows;

namespace {

uint64_t PageSize() {
  static const auto s_nPage = static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
  return s_nPage;
}

// Disk space for the bytes from iFrom to iTo, so that no store into the mapping can meet a full disk.
bool Reserve(int iFd, uint64_t iFrom, uint64_t iTo) {
  if (iFrom >= iTo) return true;
  int iError;
  do {
    iError = posix_fallocate(iFd, static_cast<off_t>(iFrom), static_cast<off_t>(iTo - iFrom));
  } while (iError == EINTR);
  return iError == 0 ? true : FailWith(iError);
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
  const bool bSameFile =
      IsOpen() && m_iFileIdentity[0] == zStat.st_dev && m_iFileIdentity[1] == zStat.st_ino && m_bReadOnly == bReadOnly;
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
  if (!bReadOnly && !Reserve(iFd, iReserved, iCapacity)) {
    Close();
    return false;
  }

  const uint64_t iMapped = (iCapacity + PageSize() - 1) / PageSize() * PageSize();
  if (!bSameFile) {
    void* const pBase = mmap(nullptr, iMapped, bReadOnly ? PROT_READ : PROT_READ | PROT_WRITE, MAP_SHARED, iFd, 0);
    if (pBase == MAP_FAILED) return FailWithErrno();
    m_pBase = static_cast<uint8_t*>(pBase);
    m_iMapped = iMapped;
  } else if (iMapped > m_iMapped) {
    void* const pBase = mremap(m_pBase, m_iMapped, iMapped, MREMAP_MAYMOVE);
    if (pBase == MAP_FAILED) {
      FailWithErrno();
      Close();
      return false;
    }
    m_pBase = static_cast<uint8_t*>(pBase);
    m_iMapped = iMapped;
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

}  // namespace kiv
