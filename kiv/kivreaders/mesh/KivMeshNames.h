// Names as the library of formats takes them whole: it ends them at blanks, and lines at a backslash.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace kiv {

// Bytes that stand in such a name for others, and one that a number stands behind which is no part of the name.
constexpr char kBackslashInName = '\x1C', kNumberInName = '\x1E', kBlankInName = '\x1F';

constexpr size_t kMostNameBytes = 960;  // the library knows up to 1023

// What is kept of a name: a shorter one ends with a whole character of UTF-8.
inline std::string_view KivKeptName(std::string_view strName) {
  if (strName.size() <= kMostNameBytes) return strName;
  size_t n = kMostNameBytes;
  while (n > 0 && (static_cast<uint8_t>(strName[n]) & 0xC0) == 0x80) --n;
  return strName.substr(0, n);
}

// Without a comment behind it, which begins with a # that stands alone: "Body #2" is a name.
inline std::string_view KivNameWithoutComment(std::string_view strName) {
  const auto IsBlankAt = [strName](size_t i) { return i >= strName.size() || strName[i] == ' ' || strName[i] == '\t'; };
  for (size_t i = strName.find('#'); i != std::string_view::npos; i = strName.find('#', i + 1)) {
    if ((i > 0 && !IsBlankAt(i - 1)) || !IsBlankAt(i + 1)) continue;
    strName = strName.substr(0, i);
    while (!strName.empty() && IsBlankAt(strName.size() - 1)) strName.remove_suffix(1);
  }
  return strName;
}

inline char KivByteInName(char c) {
  return c == ' ' || c == '\t' ? kBlankInName : c == '\\' ? kBackslashInName : c;
}

// The name that stands in such a form.
inline std::string KivNameOf(std::string_view strTaken) {
  std::string strName(strTaken.substr(0, strTaken.find(kNumberInName)));
  for (char& c : strName) c = c == kBlankInName ? ' ' : c == kBackslashInName ? '\\' : c;
  return strName;
}

}  // namespace kiv
