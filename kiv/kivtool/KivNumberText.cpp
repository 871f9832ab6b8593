#include "KivNumberText.h"

#include <charconv>
#include <cinttypes>
#include <cstdio>

namespace kiv {
namespace {

template <typename T>
std::string Shortest(T value) {
  char acText[64];
  const auto zResult = std::to_chars(acText, acText + sizeof acText, value);
  return std::string(acText, zResult.ptr);
}

}  // namespace

std::string KivNumberText(float fValue) {
  return Shortest(fValue);
}
std::string KivNumberText(double dValue) {
  return Shortest(dValue);
}

std::string KivBytesText(uint64_t nBytes) {
  char acText[64];
  if (nBytes < 1024) {
    std::snprintf(acText, sizeof acText, "%" PRIu64 " bytes", nBytes);
    return acText;
  }
  double dValue = static_cast<double>(nBytes);
  const char* szUnit = "";
  for (const char* szNext : {"KiB", "MiB", "GiB", "TiB"}) {
    if (dValue < 1024) break;
    dValue /= 1024;
    szUnit = szNext;
  }
  std::snprintf(acText, sizeof acText, "%.1f %s (%" PRIu64 " bytes)", dValue, szUnit, nBytes);
  return acText;
}

std::string KivHexText(uint64_t iValue) {
  char acText[24];
  std::snprintf(acText, sizeof acText, "0x%" PRIx64, iValue);
  return acText;
}

}  // namespace kiv
