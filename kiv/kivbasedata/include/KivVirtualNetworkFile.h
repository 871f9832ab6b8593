// A read-only file that sleeps before each operation on its device, to stand in for a slow network share.
#pragma once

#include <cstdint>

#include "KivWinMappedFile.h"

namespace kiv {

class KivVirtualNetworkFile : public KivWinMappedFile {
 public:
  KivVirtualNetworkFile() = default;
  KivVirtualNetworkFile(KivSysFile hFile, uint32_t iDelay, bool bEnableCache, KivSysFile hFileForBackGroundRead);

  bool CanUseDirectBuffer() override { return false; }
  bool PrepareDirectBuffer(uint64_t iSize) override;
  uint64_t GetDirectBufferSize() override;

  KivFile* CopyToSnapShot(KivFile* pSnapShot_arg) override;
  int32_t RestoreFromUndo(KivFile* pUndo_arg) override;
  KivFile* CreateInstance() override;
  uint64_t DoRead(uint64_t iOffset, void* lpBuf, uint64_t nCount) override;
  void DoWrite(uint64_t iOffset, const void* lpBuf, uint64_t nCount) override;
  void DoWriteZero(uint64_t iOffset, uint64_t nCount) override;
  bool DoSetLength(uint64_t iLength) override;
  void DoFlush() override;
  uint64_t DoGetLength() override;
  uint8_t* DoGetDirectBuffer(bool bReadOnly, uint64_t iOffset, uint64_t nCount) override;
  void DoReleaseDirectBuffer() override;

  uint32_t m_iDelay = 0;  // milliseconds

 protected:
  virtual void Wait();  // once in each of the operations that wait
};

}  // namespace kiv
