#include "KivDataUtil_Format.h"

#include <cstdio>

namespace kiv {

std::string KivFormatText(const char* szFormat, ...) {
  va_list zArgs;
  va_start(zArgs, szFormat);
  va_list zAgain;
  va_copy(zAgain, zArgs);
  const int nLength = std::vsnprintf(nullptr, 0, szFormat, zArgs);
  va_end(zArgs);
  std::string strText(nLength > 0 ? static_cast<size_t>(nLength) : 0, '\0');
  if (nLength > 0) std::vsnprintf(strText.data(), strText.size() + 1, szFormat, zAgain);
  va_end(zAgain);
  return strText;
}

}  // namespace kiv
