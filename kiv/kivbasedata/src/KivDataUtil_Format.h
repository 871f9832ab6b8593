// Text from numbers, for the sources of this folder.
#pragma once

#include <cstdarg>
#include <string>

#include "KivSysText.h"

namespace kiv {

// vsnprintf into a string of the needed length. The format is ASCII.
#if defined(__clang__)
__attribute__((format(printf, 1, 2)))
#elif defined(__GNUC__)
__attribute__((format(gnu_printf, 1, 2)))
#endif
std::string
KivFormatText(const char* szFormat, ...);

// The same for a wide text; only ASCII may come out.
inline KivWString KivWidenAscii(const std::string& strText) {
  return KivWString(strText.begin(), strText.end());
}

}  // namespace kiv
