// The smallest program on an installed KivBase.
#include <cstdio>

#include "KivByteBuffer.h"

int main() {
  kiv::KivByteBuffer vcBuffer;
  kiv::KivPutString(vcBuffer, u"DorHandler_DoNothing");
  uint64_t iCursor = 0;
  kiv::KivWString csName;
  if (!kiv::KivGetString(iCursor, vcBuffer, &csName) || csName != u"DorHandler_DoNothing") return 1;
  std::printf("read back %d units\n", static_cast<int>(csName.size()));
  return 0;
}
