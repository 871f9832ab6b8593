// A growable byte vector as a file, with full-copy snapshots.
//
// It grows by a write or by PrepareDirectBuffer and shrinks by GetDirectBuffer alone, which truncates: see there.
#pragma once

#include <cstdint>
#include <vector>

#include "KivHistoryFile.h"

namespace kiv {

class KivWritableMemFile : public KivHistoryFile {
 public:
  KivWritableMemFile() : KivHistoryFile(false) {}

  bool CanUseDirectBuffer() override { return true; }
  // Grows with zeros to iSize, never shrinks.
  bool PrepareDirectBuffer(uint64_t iSize) override;
  uint64_t GetDirectBufferSize() override { return m_vcData.size(); }

  KivFile* CopyToSnapShot(KivFile* pSnapShot_arg) override;
  int32_t RestoreFromUndo(KivFile* pUndo_arg) override;
  KivFile* CreateInstance() override;

  uint64_t DoRead(uint64_t iOffset, void* lpBuf, uint64_t nCount) override;
  void DoWrite(uint64_t iOffset, const void* lpBuf, uint64_t nCount) override;
  void DoWriteZero(uint64_t iOffset, uint64_t nCount) override;
  bool DoSetLength(uint64_t iLength) override;
  void DoFlush() override {}
  uint64_t DoGetLength() override { return m_vcData.size(); }

  // A range that ends before the end of the data cuts off what lies behind the range, whatever bReadOnly says. A range
  // that ends at or behind the end gives the address of its first byte and grows nothing: PrepareDirectBuffer comes
  // first. A range that begins behind the end is reported, and null. The pointer dies with the next resize.
  uint8_t* DoGetDirectBuffer(bool bReadOnly, uint64_t iOffset, uint64_t nCount) override;

  std::vector<uint8_t> m_vcData;

 private:
  // False, after a report, where memory does not go that far.
  bool Grow(uint64_t iOffset, uint64_t nCount);
};

}  // namespace kiv
