// UTF-8 is the same on every target, so that texts in files come out alike.
#include <utf8.h>

#include <cstdint>
#include <iterator>

#include "KivSysText.h"

namespace kiv::sys {
namespace {

constexpr char16_t kReplacement = 0xFFFD;

bool IsHigh(char16_t c) {
  return c >= 0xD800 && c <= 0xDBFF;
}
bool IsLow(char16_t c) {
  return c >= 0xDC00 && c <= 0xDFFF;
}

// Length of the maximal part at the front that begins a character but is none; at least 1. The front is known to
// be invalid.
size_t InvalidPart(std::string_view strText) {
  const auto iLead = static_cast<uint8_t>(strText[0]);
  size_t nMore = 0;
  uint8_t iLow = 0x80;
  uint8_t iHigh = 0xBF;
  if (iLead >= 0xC2 && iLead <= 0xDF) {
    nMore = 1;
  } else if (iLead >= 0xE0 && iLead <= 0xEF) {
    nMore = 2;
    if (iLead == 0xE0) iLow = 0xA0;
    if (iLead == 0xED) iHigh = 0x9F;  // no surrogates
  } else if (iLead >= 0xF0 && iLead <= 0xF4) {
    nMore = 3;
    if (iLead == 0xF0) iLow = 0x90;
    if (iLead == 0xF4) iHigh = 0x8F;  // nothing behind U+10FFFF
  }
  size_t nPart = 1;
  for (; nPart <= nMore && nPart < strText.size(); ++nPart) {
    const auto iNext = static_cast<uint8_t>(strText[nPart]);
    if (iNext < iLow || iNext > iHigh) break;
    iLow = 0x80;
    iHigh = 0xBF;
  }
  return nPart;
}

size_t MeasureWide(std::string_view strText) {
  size_t nUnits = 0;
  while (!strText.empty()) {
    const auto itInvalid = utf8::find_invalid(strText.begin(), strText.end());
    for (auto it = strText.begin(); it != itInvalid; ++it) {
      const auto iByte = static_cast<uint8_t>(*it);
      nUnits += (iByte & 0xC0) != 0x80;
      nUnits += iByte >= 0xF0;
    }
    strText.remove_prefix(static_cast<size_t>(itInvalid - strText.begin()));
    if (strText.empty()) break;
    ++nUnits;
    strText.remove_prefix(InvalidPart(strText));
  }
  return nUnits;
}

}  // namespace

// Both measures are exact: a text takes what it needs, and not what its length may need at most.
uint64_t MeasureUtf8(KivWStringView csText) {
  uint64_t nBytes = 0;
  for (size_t i = 0; i < csText.size(); ++i) {
    const char16_t c = csText[i];
    const bool bPair = IsHigh(c) && i + 1 < csText.size() && IsLow(csText[i + 1]);
    nBytes += c < 0x80 ? 1 : c < 0x800 ? 2 : bPair ? 4 : 3;
    if (bPair) ++i;
  }
  return nBytes;
}

std::string WideToUtf8(KivWStringView csText) {
  std::string strText;
  strText.reserve(MeasureUtf8(csText));
  for (size_t i = 0; i < csText.size(); ++i) {
    const char16_t c = csText[i];
    if (c < 0x80) {
      strText += static_cast<char>(c);
      continue;
    }
    uint32_t iPoint = c;
    if (IsHigh(c) && i + 1 < csText.size() && IsLow(csText[i + 1])) {
      iPoint = 0x10000u + ((static_cast<uint32_t>(c) - 0xD800u) << 10) + (csText[i + 1] - 0xDC00u);
      ++i;
    } else if (IsHigh(c) || IsLow(c)) {
      iPoint = kReplacement;
    }
    utf8::unchecked::append(iPoint, std::back_inserter(strText));
  }
  return strText;
}

KivWString Utf8ToWide(std::string_view strText) {
  KivWString csText;
  csText.reserve(MeasureWide(strText));
  while (!strText.empty()) {
    const auto itInvalid = utf8::find_invalid(strText.begin(), strText.end());
    utf8::unchecked::utf8to16(strText.begin(), itInvalid, std::back_inserter(csText));
    strText.remove_prefix(static_cast<size_t>(itInvalid - strText.begin()));
    if (strText.empty()) break;
    csText += kReplacement;
    strText.remove_prefix(InvalidPart(strText));
  }
  return csText;
}

}  // namespace kiv::sys
