// UTF-8 is the same on every target, so that texts in files come out alike.
#include <utf8.h>

#include <iterator>

#include "KivSysText.h"

namespace kiv::sys {
namespace {

constexpr char16_t kReplacement = u'\xFFFD';

bool IsHighSurrogate(char16_t c) {
  return c >= 0xD800 && c <= 0xDBFF;
}
bool IsLowSurrogate(char16_t c) {
  return c >= 0xDC00 && c <= 0xDFFF;
}

}  // namespace

std::string WideToUtf8(KivWStringView csText) {
  KivWString csValid(csText);
  for (size_t i = 0; i < csValid.size(); ++i) {
    if (IsHighSurrogate(csValid[i]) && i + 1 < csValid.size() && IsLowSurrogate(csValid[i + 1]))
      ++i;
    else if (IsHighSurrogate(csValid[i]) || IsLowSurrogate(csValid[i]))
      csValid[i] = kReplacement;
  }
  std::string strText;
  strText.reserve(csValid.size());
  utf8::utf16to8(csValid.begin(), csValid.end(), std::back_inserter(strText));
  return strText;
}

KivWString Utf8ToWide(std::string_view strText) {
  std::string strValid;
  if (!utf8::is_valid(strText.begin(), strText.end())) {
    strValid.reserve(strText.size() + 8);
    utf8::replace_invalid(strText.begin(), strText.end(), std::back_inserter(strValid));
    strText = strValid;
  }
  KivWString csText;
  csText.reserve(strText.size());
  utf8::utf8to16(strText.begin(), strText.end(), std::back_inserter(csText));
  return csText;
}

}  // namespace kiv::sys
