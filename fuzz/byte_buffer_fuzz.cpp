// Input: the first byte counts the steps, the next ones choose a reader each, the rest is the buffer. Each reader must
// stay inside the buffer, move the cursor only forward, and leave its destination alone on failure; what it gave
// must be the same bytes again when it is put.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "KivByteBuffer.h"
#include "KivException.h"

namespace {

void Demand(bool bHolds, const char* szWhat) {
  if (bHolds) return;
  std::fprintf(stderr, "byte_buffer_fuzz: %s\n", szWhat);
  std::abort();
}

// Without the switch a failure would leave by an exception, and with a record of the first one.
void TurnReportsOff() {
  kiv::KivSetReportNoThrow(true);
  kiv::KivSetReported(true);
}

bool SameBytes(const kiv::KivByteBuffer& vcPut, const kiv::KivByteBuffer& vcBuffer, uint64_t iFrom) {
  return std::memcmp(vcPut.data(), vcBuffer.data() + iFrom, vcPut.size()) == 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t nSize) {
  TurnReportsOff();
  if (nSize == 0) return 0;
  const size_t nSteps = pData[0] < nSize - 1 ? pData[0] : nSize - 1;
  const uint8_t* const pSteps = pData + 1;
  const kiv::KivByteBuffer vcBuffer(pSteps + nSteps, pData + nSize);

  uint64_t iCursor = 0;
  for (size_t i = 0; i < nSteps; ++i) {
    const uint64_t iBefore = iCursor;
    kiv::KivByteBuffer vcPut;
    bool bGood = false;
    switch (pSteps[i] % 5) {
      case 0: {
        int64_t iValue = 0;
        bGood = kiv::KivGetInt64(iCursor, vcBuffer, &iValue);
        if (bGood) kiv::KivPutInt64(vcPut, iValue);
        break;
      }
      case 1: {
        double dValue = 0;
        bGood = kiv::KivGetDouble(iCursor, vcBuffer, &dValue);
        if (bGood) kiv::KivPutDouble(vcPut, dValue);
        break;
      }
      case 2: {
        kiv::KivWString csValue = u"before";
        bGood = kiv::KivGetString(iCursor, vcBuffer, &csValue);
        Demand(bGood || csValue == u"before", "a failed read changed its destination");
        Demand(csValue.find(u'\0') == kiv::KivWString::npos, "a text holds a zero");
        if (bGood && csValue.size() * 2 == iCursor - iBefore - 8) kiv::KivPutString(vcPut, csValue);
        break;
      }
      case 3: {
        uint8_t acBlock[64];
        const uint64_t nExpected = pSteps[i] / 5;
        bGood = kiv::KivGetBlock(iCursor, vcBuffer, acBlock, nExpected);
        if (bGood) kiv::KivPutBlock(vcPut, acBlock, nExpected);
        break;
      }
      default: {
        uint8_t acBytes[64];
        const uint64_t nCount = pSteps[i] / 5;
        bGood = kiv::KivGetBytes(iCursor, vcBuffer, acBytes, nCount);
        if (bGood) kiv::KivPutBytes(vcPut, acBytes, nCount);
        break;
      }
    }
    Demand(iCursor >= iBefore && iCursor <= vcBuffer.size(), "the cursor left the buffer");
    if (bGood && !vcPut.empty()) {
      Demand(vcPut.size() == iCursor - iBefore, "another length than was read");
      Demand(SameBytes(vcPut, vcBuffer, iBefore), "other bytes than were read");
    }
  }
  return 0;
}
