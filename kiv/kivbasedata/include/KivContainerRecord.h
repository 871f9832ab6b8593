// What goes into a container as a record and what comes out of it.
#pragma once

#include <cstdint>

#include "ISnapShotFile.h"
#include "KivSharedPtr.h"

namespace kiv {

// A record's byte offset in the main file, the first record being at 264. With the top bit set it is a key into the
// position table instead.
using Position = uint64_t;
constexpr Position NULL_FILE_INDEX = 0;

// A payload to be stored. The bytes are borrowed.
struct KivContainerData {
  // A padding larger than the size is reported (source "KivFastFileContainer") and becomes the size.
  KivContainerData(const void* pzData, uint32_t iSize, uint32_t iPaddingSize = 0);

  const uint8_t* m_pzData;  // m_iSize - m_iPaddingSize bytes
  uint32_t m_iSize;         // payload bytes in the record
  uint32_t m_iPaddingSize;  // how many of them, at the end, are zeros that m_pzData does not provide
};

// The place of a record's payload in the main file. m_pzFile is empty in the null form.
struct KivContainerRecord {
  KivSharedPtr<ISnapShotFile> m_pzFile;
  uint64_t m_iOffset = 0;
  uint32_t m_iFileSize = 0;  // payload bytes
};

// The same with both sizes, which a free record has too.
struct KivContainerRecordWithSizes {
  KivSharedPtr<ISnapShotFile> m_pzFile;
  uint64_t m_iOffset = 0;
  uint64_t m_iRecordSize = 0;  // the whole record, its frame of 24 bytes included
  uint64_t m_iFileSize = 0;    // payload bytes; equal to m_iRecordSize in a free record
};

}  // namespace kiv
