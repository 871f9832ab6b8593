// Byte buffers and the primitives of which every payload is composed.
//
//   PRIMITIVE    ENCODING (little-endian, unaligned)                                  WIDTH
//   integer      64-bit, signed or unsigned                                          8
//   float        IEEE 754 double, bit pattern                                        8
//   wide string  length in UTF-16 units as an integer, then the units, no terminator  8 + 2n
//   block        size in bytes as an integer, then the bytes                         8 + n
//   coordinate   three floats x, y, z                                                24
//   raw          n bytes; the reader knows n                                         n
//
// A buffer has no position of its own: readers take a cursor that the caller keeps and that only moves forward.
// A reader that fails reports (source "src\KivDataUtil"), gives false, and leaves the cursor where the last
// successful step put it. Nothing is allocated for a length that the buffer cannot hold.
#pragma once

#include <cstdint>
#include <vector>

#include "KivECoord3.h"
#include "KivSysText.h"

namespace kiv {

using KivByteBuffer = std::vector<uint8_t>;

// Gives the memory of a buffer that is used again and again back if it has grown past this.
constexpr uint64_t kKivKeptBufferBytes = uint64_t{16} << 20;
template <typename Buffer>
void KivDropLargeBuffer(Buffer& zBuffer) {
  if (zBuffer.capacity() * sizeof zBuffer[0] > kKivKeptBufferBytes) Buffer().swap(zBuffer);
}

bool KivGetBytes(uint64_t& iCursor, const KivByteBuffer& vcBuffer, void* pDestination, uint64_t nCount);
bool KivGetInt64(uint64_t& iCursor, const KivByteBuffer& vcBuffer, int64_t* piValue);
bool KivGetInt64(uint64_t& iCursor, const KivByteBuffer& vcBuffer, uint64_t* piValue);
bool KivGetDouble(uint64_t& iCursor, const KivByteBuffer& vcBuffer, double* pdValue);
// Ends at the first unit 0, although the cursor moves behind the whole text. The destination keeps its value on
// failure.
bool KivGetString(uint64_t& iCursor, const KivByteBuffer& vcBuffer, KivWString* pcsValue);
// Reports a stored size other than nExpected and leaves the cursor behind the size.
bool KivGetBlock(uint64_t& iCursor, const KivByteBuffer& vcBuffer, void* pDestination, uint64_t nExpected);

void KivPutBytes(KivByteBuffer& vcBuffer, const void* pSource, uint64_t nCount);  // zeros from a null source
void KivPutInt64(KivByteBuffer& vcBuffer, int64_t iValue);
void KivPutDouble(KivByteBuffer& vcBuffer, double dValue);
void KivPutString(KivByteBuffer& vcBuffer, const KivWString& csValue);
void KivPutBlock(KivByteBuffer& vcBuffer, const void* pSource, uint64_t nSize);
void KivPutCoord3(KivByteBuffer& vcBuffer, const KivECoord3& zCoord);
// Raises a process-wide counter by 1 and appends its new value.
void KivPutSequence(KivByteBuffer& vcBuffer);

}  // namespace kiv
