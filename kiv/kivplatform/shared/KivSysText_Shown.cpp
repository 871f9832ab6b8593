#include <cstdio>

#include "KivSysText.h"

namespace kiv {

std::string KivShown(KivWStringView csText) {
  const std::string strUtf8 = sys::WideToUtf8(csText);
  std::string strShown;
  strShown.reserve(strUtf8.size());
  for (size_t i = 0; i < strUtf8.size(); ++i) {
    const unsigned char c = static_cast<unsigned char>(strUtf8[i]);
    // U+0080 to U+009F, which terminals may take as controls as well
    const bool bHigh = c == 0xC2 && i + 1 < strUtf8.size() && static_cast<unsigned char>(strUtf8[i + 1]) < 0xA0;
    if (c >= 0x20 && c != 0x7F && !bHigh) {
      strShown += strUtf8[i];
      continue;
    }
    if (c == '\n' || c == '\t' || c == '\r') {
      strShown += c == '\n' ? "\\n" : c == '\t' ? "\\t" : "\\r";
      continue;
    }
    char acEscape[8];
    std::snprintf(acEscape, sizeof acEscape, "\\x%02x", bHigh ? static_cast<unsigned char>(strUtf8[++i]) : c);
    strShown += acEscape;
  }
  return strShown;
}

}  // namespace kiv
