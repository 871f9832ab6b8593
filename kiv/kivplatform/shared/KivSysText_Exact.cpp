#include "KivSysTextExact.h"

namespace kiv::sys {
namespace {

bool IsSurrogate(char16_t c) {
  return c >= 0xD800 && c <= 0xDFFF;
}

// The units of the character at the front of a text that is not empty: a lone surrogate is one.
size_t UnitsInFront(KivWStringView csText) {
  const bool bPair =
      csText.size() > 1 && csText[0] >= 0xD800 && csText[0] < 0xDC00 && csText[1] >= 0xDC00 && csText[1] <= 0xDFFF;
  return bPair ? 2 : 1;
}

bool IsLone(KivWStringView csCharacter) {
  return csCharacter.size() == 1 && IsSurrogate(csCharacter[0]);
}

void AppendLone(char16_t c, std::string& str) {
  str += static_cast<char>(0xE0 | c >> 12);
  str += static_cast<char>(0x80 | (c >> 6 & 0x3F));
  str += static_cast<char>(0x80 | (c & 0x3F));
}

// True for three bytes that AppendLone has written.
bool IsLoneInFront(std::string_view str) {
  const auto IsTail = [](char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; };
  return str.size() >= 3 && str[0] == '\xED' && static_cast<unsigned char>(str[1]) >= 0xA0 && IsTail(str[1]) &&
         IsTail(str[2]);
}
char16_t TakeLone(std::string_view str) {
  return static_cast<char16_t>(0xD000 | (str[1] & 0x3F) << 6 | (str[2] & 0x3F));
}

}  // namespace

std::string WideToExact(KivWStringView csText) {
  std::string strBytes;
  while (!csText.empty()) {
    const KivWStringView csCharacter = csText.substr(0, UnitsInFront(csText));
    if (IsLone(csCharacter))
      AppendLone(csCharacter[0], strBytes);
    else
      strBytes += WideToUtf8(csCharacter);
    csText.remove_prefix(csCharacter.size());
  }
  return strBytes;
}

KivWString ExactToWide(std::string_view strBytes) {
  KivWString csText;
  while (!strBytes.empty()) {
    size_t nPlain = 0;
    while (nPlain < strBytes.size() && !IsLoneInFront(strBytes.substr(nPlain))) ++nPlain;
    csText += Utf8ToWide(strBytes.substr(0, nPlain));
    strBytes.remove_prefix(nPlain);
    if (strBytes.empty()) break;
    csText += TakeLone(strBytes);
    strBytes.remove_prefix(3);
  }
  return csText;
}

bool IsWellFormed(KivWStringView csText) {
  while (!csText.empty()) {
    const size_t nUnits = UnitsInFront(csText);
    if (IsLone(csText.substr(0, nUnits))) return false;
    csText.remove_prefix(nUnits);
  }
  return true;
}

}  // namespace kiv::sys
