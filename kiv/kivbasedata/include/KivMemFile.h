// A read-only view of caller memory as a file. Its cache is on: it takes writes and snapshots like any cached file.
#pragma once

#include <cstdint>

#include "KivCacheUseFile.h"

namespace kiv {

class KivMemFile : public KivCacheUseFile {
 public:
  // The memory is not copied and must outlive the file.
  KivMemFile(const void* pData, uint64_t iSize)
      : KivCacheUseFile(true, true), m_pData(static_cast<const uint8_t*>(pData)), m_iSize(iSize) {}

  KivFile* CopyToSnapShot(KivFile* pSnapShot_arg) override;
  int32_t RestoreFromUndo(KivFile* pUndo_arg) override;
  KivFile* CreateInstance() override;

  uint64_t DoRead(uint64_t iOffset, void* lpBuf, uint64_t nCount) override;
  void DoWrite(uint64_t iOffset, const void* lpBuf, uint64_t nCount) override;
  void DoWriteZero(uint64_t iOffset, uint64_t nCount) override;
  bool DoSetLength(uint64_t iLength) override;
  void DoFlush() override;
  uint64_t DoGetLength() override { return m_iSize; }

  const uint8_t* m_pData;
  uint64_t m_iSize;
};

}  // namespace kiv
