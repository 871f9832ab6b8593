#include "KivSysText.h"

namespace kiv::sys {

// The code page of narrow texts is UTF-8 here.
std::string WideToAnsi(KivWStringView csText) {
  return WideToUtf8(csText);
}

KivWString AnsiToWide(std::string_view strText) {
  return Utf8ToWide(strText);
}

}  // namespace kiv::sys
