// A file on a handle with direct buffers: pointers into a mapped view of its bytes.
//
// PrepareDirectBuffer sets the capacity, and extends a writable file to it. From then on every transfer goes through
// the view, and one that reaches behind the capacity is reported. One direct buffer is out at a time. The direct
// buffers of a read-only file show its bytes on the device, whatever was written to the cache.
#pragma once

#include <cstdint>

#include "KivSysMapping.h"
#include "KivWinFile.h"

namespace kiv {

class KivWinMappedFile : public KivWinFile {
 public:
  KivWinMappedFile() = default;
  KivWinMappedFile(KivSysFile hFile, bool bReadOnly, bool bEnableCache, KivSysFile hFileForBackGroundRead);
  ~KivWinMappedFile() override;

  uint8_t* GetDirectBuffer(bool bReadOnly, uint64_t iOffset, uint64_t nCount) override;
  void ReleaseDirectBuffer() override;
  bool CanUseDirectBuffer() override { return m_bCanUseDirectBuffer; }
  // Makes the mapping: of the whole file if it is read-only, else of iSize bytes but at least one block; 0 stands for
  // the present length. Pointers into the old mapping die.
  bool PrepareDirectBuffer(uint64_t iSize) override;
  uint64_t GetDirectBufferSize() override { return m_iMappingSize; }
  bool HasLostPages() const noexcept { return m_zMapping.HasLostPages(); }  // see KivSysMapping

  // The bytes of a range that the present view holds, else null; nothing is mapped for it and no direct buffer is out
  // behind it. They move with the next call that maps or unmaps. Who writes them sets m_bModified. Null also once pages
  // were lost: the transfer that is made instead reports it.
  uint8_t* PeekView(uint64_t iOffset, uint64_t nCount) const noexcept {
    if (m_bNowUsingDirectBuffer || iOffset < m_iViewStart || iOffset > m_iViewEnd || nCount > m_iViewEnd - iOffset ||
        m_zMapping.HasLostPages())
      return nullptr;
    return m_pView != nullptr ? m_pView + (iOffset - m_iViewStart) : nullptr;
  }

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

  bool m_bNowUsingDirectBuffer = false;  // a direct buffer is out
  bool m_bCanUseDirectBuffer = false;    // the probe at construction succeeded

 private:
  void UnmapView() noexcept;
  // Calls pfnPart(pointer, offset in the range, count) for each part of a range that one view holds.
  template <typename Part>
  bool ForParts(bool bReadOnly, uint64_t iOffset, uint64_t nCount, Part&& pfnPart);

  KivSysMapping m_zMapping;
  uint64_t m_iMappingSize = 0;  // capacity of the mapping
  uint8_t* m_pView = nullptr;
  uint64_t m_iViewStart = 0;  // file offsets
  uint64_t m_iViewEnd = 0;
  uint64_t m_iBlockSize = 0;
};

}  // namespace kiv
