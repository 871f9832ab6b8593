// Words and lines of the texts that meshes stand in.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string_view>
#include <vector>

namespace kiv {

inline std::string_view TextOf(const std::vector<uint8_t>& vcBytes) {
  return {reinterpret_cast<const char*>(vcBytes.data()), vcBytes.size()};
}

inline void PassUtf8Mark(std::vector<uint8_t>& vcBytes) {
  constexpr std::string_view kMark = "\xEF\xBB\xBF";
  if (TextOf(vcBytes).starts_with(kMark)) vcBytes.erase(vcBytes.begin(), vcBytes.begin() + kMark.size());
}

inline bool IsBlank(char c) {
  return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\0';
}

inline char Lower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
}

// "-nan(ind)", "1.#QNAN" and the like.
inline bool IsNoNumber(std::string_view strWord) {
  if (strWord.starts_with('-') || strWord.starts_with('+')) strWord.remove_prefix(1);
  const auto Begins = [strWord](std::string_view strBegin) {
    return strWord.size() >= strBegin.size() &&
           std::equal(strBegin.begin(), strBegin.end(), strWord.begin(), [](char a, char b) { return a == Lower(b); });
  };
  return Begins("nan") || Begins("inf") || strWord.starts_with("1.#");
}

// The next word, which is passed; empty at the end.
inline std::string_view TakeWord(std::string_view& strText) {
  while (!strText.empty() && IsBlank(strText.front())) strText.remove_prefix(1);
  size_t n = 0;
  while (n < strText.size() && !IsBlank(strText[n])) ++n;
  const std::string_view strWord = strText.substr(0, n);
  strText.remove_prefix(n);
  return strWord;
}

}  // namespace kiv
