// The base services at work: a work folder, the timing log, a byte buffer there and back, and a report that is caught
// with its call stack. Leaves nothing behind.
#include <cinttypes>
#include <cstdio>
#include <string>

#include "KivByteBuffer.h"
#include "KivDataUtil.h"
#include "KivException.h"

namespace {

std::string Utf8(const kiv::KivWString& csText) {
  return kiv::sys::WideToUtf8(csText);
}

kiv::KivByteBuffer WriteMessage() {
  kiv::KivByteBuffer vcMessage;
  kiv::KivPutInt64(vcMessage, 42);
  kiv::KivPutString(vcMessage, u"M\u00F6bius strip");
  kiv::KivPutCoord3(vcMessage, {1.0, 2.5, -3.0});
  return vcMessage;
}

// Reads what WriteMessage wrote. A reader must end exactly at the end of its buffer.
void ReadMessage(const kiv::KivByteBuffer& vcMessage) {
  uint64_t iCursor = 0;
  int64_t iId = 0;
  kiv::KivWString csName;
  double adCoord[3] = {};
  kiv::KivGetInt64(iCursor, vcMessage, &iId);
  kiv::KivGetString(iCursor, vcMessage, &csName);
  for (double& dValue : adCoord) kiv::KivGetDouble(iCursor, vcMessage, &dValue);
  std::printf("  read      id %" PRId64 ", name \"%s\", at (%g, %g, %g); cursor %" PRIu64 " of %zu bytes\n", iId,
              Utf8(csName).c_str(), adCoord[0], adCoord[1], adCoord[2], iCursor, vcMessage.size());
}

void PrintLines(const char* szPrefix, const std::string& strText, size_t nMost) {
  size_t iStart = 0;
  for (size_t n = 0; n < nMost && iStart < strText.size(); ++n) {
    size_t iEnd = strText.find('\n', iStart);
    if (iEnd == std::string::npos) iEnd = strText.size();
    std::printf("%s%s\n", szPrefix, strText.substr(iStart, iEnd - iStart).c_str());
    iStart = iEnd + 1;
  }
}

}  // namespace

int main() {
  std::printf("Work folder\n");
  const kiv::KivWString csFolder = kiv::KivGetWorkFolder();
  std::printf("  made      %s\n", Utf8(csFolder).c_str());

  std::printf("Timing log\n");
  kiv::KivWriteLog(u"the first line");
  kiv::KivLogDouble(3.14159, u"a number and a text");
  std::printf("  memory    %s (bytes: now, peak, page file, peak)\n", Utf8(kiv::KivGetMemoryText()).c_str());

  std::printf("Byte buffer\n");
  kiv::KivByteBuffer vcMessage = WriteMessage();
  std::printf("  written   %zu bytes\n", vcMessage.size());
  ReadMessage(vcMessage);

  std::printf("Report\n");
  vcMessage.pop_back();  // a message that lost its last byte on the way
  bool bCaught = false;
  try {
    ReadMessage(vcMessage);
  } catch (const kiv::KivException& zError) {
    bCaught = true;
    std::printf("  caught    %s\n", zError.what());
    PrintLines("  stack     ", Utf8(zError.GetCallStack()), 4);
  }

  kiv::KivCloseLog();
  const bool bClean = kiv::KivRemoveTree(csFolder) == kiv::KivRemoveTreeResult::Done;
  std::printf("Removed the work folder: %s\n", bClean ? "yes" : "no");
  return bCaught && bClean ? 0 : 1;
}
