// The shortest way of a container to the bytes of one of its files.
#pragma once

#include <cstdint>

#include "ISnapShotFile.h"
#include "KivWinMappedFile.h"

namespace kiv {

// Transfers of a writable mapped file without a cache go straight to the mapped bytes, without a system call and
// without a copy in between. All others go through the file: a cached file's mapped bytes are those of the file below
// its cache, and asking a memory file for some of its bytes cuts off what lies behind them.
class KivContainerFileAccess {
 public:
  // Fewer than nCount at the end of the file.
  uint64_t Read(ISnapShotFile& zFile, uint64_t iOffset, void* lpBuf, uint64_t nCount);
  void Write(ISnapShotFile& zFile, uint64_t iOffset, const void* lpBuf, uint64_t nCount);
  void WriteZero(ISnapShotFile& zFile, uint64_t iOffset, uint64_t nCount);
  // The bytes themselves, or null where they cannot be had. They move when the file's capacity is set or the file is
  // flushed. To write them, ask with bReadOnly false: this marks the file as modified.
  uint8_t* Bytes(ISnapShotFile& zFile, bool bReadOnly, uint64_t iOffset, uint64_t nCount) {
    if (&zFile == m_pKnownFile && m_pzMapped != nullptr) {
      if (uint8_t* pBytes = m_pzMapped->PeekView(iOffset, nCount)) {
        if (!bReadOnly) m_pzMapped->m_bModified = true;
        m_pzMapped->KivWinMappedFile::ReleaseDirectBuffer();  // reports pages that others took from the file
        return pBytes;
      }
    }
    return MapBytes(zFile, bReadOnly, iOffset, nCount);
  }
  // Says that the bytes at an offset will be read soon.
  void Prefetch(ISnapShotFile& zFile, uint64_t iOffset) {
    if (&zFile != m_pKnownFile || m_pzMapped == nullptr) return;
    if (const uint8_t* pBytes = m_pzMapped->PeekView(iOffset, 1)) __builtin_prefetch(pBytes);
  }
  // All of them, iSize bytes from the start of the file.
  uint8_t* Window(ISnapShotFile& zFile, uint64_t& iSize);
  // Length of the file, without a system call where the bytes can be had.
  uint64_t GetLength(ISnapShotFile& zFile);
  // True if a cache answers for the file: its reads never come short.
  static bool IsCached(ISnapShotFile& zFile);

 private:
  void Look(ISnapShotFile& zFile);
  uint8_t* MapBytes(ISnapShotFile& zFile, bool bReadOnly, uint64_t iOffset, uint64_t nCount);

  const ISnapShotFile* m_pKnownFile = nullptr;
  KivWinMappedFile* m_pzMapped = nullptr;  // the known file, if its mapped bytes are the truth
};

}  // namespace kiv
