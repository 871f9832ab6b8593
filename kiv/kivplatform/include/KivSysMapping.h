// A file mapping with a capacity, and views of it.
#pragma once

#include <atomic>
#include <cstdint>

#include "KivSysFile.h"

namespace kiv {

// Movable. Views die with the mapping. One thread at a time.
class KivSysMapping {
 public:
  KivSysMapping() noexcept;
  KivSysMapping(KivSysMapping&& zOther) noexcept;
  KivSysMapping& operator=(KivSysMapping&& zOther) noexcept;
  KivSysMapping(const KivSysMapping&) = delete;
  KivSysMapping& operator=(const KivSysMapping&) = delete;
  ~KivSysMapping();

  // Maps the first iCapacity bytes of the file; 0 means its present length, and an empty file fails. A writable
  // mapping extends the file to its capacity and reserves the disk space first, so that a full disk is a failure here
  // and no signal later. Called on a mapping that is in place it takes its place (all views are gone); where the
  // file is the same one, pages already mapped are kept. csName names the object on Windows (empty: none).
  bool Create(KivSysFile& zFile, bool bReadOnly, uint64_t iCapacity, const KivWString& csName);
  bool IsOpen() const noexcept;
  uint64_t GetCapacity() const noexcept;
  void Close() noexcept;

  // A view of nSize bytes from iOffset, a multiple of the allocation granularity; both inside the capacity, else
  // null. A view inside what is already mapped costs no system call on Linux.
  uint8_t* MapView(uint64_t iOffset, uint64_t nSize);
  void UnmapView(uint8_t* pView, uint64_t nSize) noexcept;
  // True where Create maps everything at once and a view is an address in it (Linux).
  static bool MapsWhole() noexcept;

  // True once a view was used behind the end of a file that others had cut meanwhile, or where the disk failed: the
  // bytes there read as zero, and what is written there is lost. Linux; elsewhere the system keeps a mapped file from
  // being cut.
  bool HasLostPages() const noexcept { return m_pLost != nullptr && m_pLost->load(std::memory_order_relaxed); }

 private:
  intptr_t m_iHandle = 0;
  uint8_t* m_pBase = nullptr;
  uint64_t m_iMapped = 0;
  uint64_t m_iCapacity = 0;
  uint64_t m_iFileIdentity[2] = {0, 0};
  bool m_bReadOnly = true;
  const std::atomic<bool>* m_pLost = nullptr;  // Linux
};

}  // namespace kiv
