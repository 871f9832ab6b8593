// The list of materials of an OBJ, of which the library of formats reads more than it checks.
#include <algorithm>
#include <charconv>
#include <cmath>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "KivMeshSource.h"

namespace kiv {
namespace {

constexpr size_t kMostNumberText = 40;

bool IsBlank(char c) {
  return c == ' ' || c == '\t' || c == '\f';
}

std::string_view Trimmed(std::string_view str) {
  while (!str.empty() && IsBlank(str.front())) str.remove_prefix(1);
  while (!str.empty() && IsBlank(str.back())) str.remove_suffix(1);
  return str;
}

// The first word, which is passed together with the blanks behind it.
std::string_view TakeWord(std::string_view& strLine) {
  size_t n = 0;
  while (n < strLine.size() && !IsBlank(strLine[n])) ++n;
  const std::string_view strWord = strLine.substr(0, n);
  strLine = Trimmed(strLine.substr(n));
  return strWord;
}

// The next word as a number, in a form that the library reads; none without a word or for anything else.
std::optional<std::string> TakeNumber(std::string_view& strLine) {
  std::string_view strWord = TakeWord(strLine);
  if (strWord.starts_with('+')) strWord.remove_prefix(1);
  double dNumber = 0;
  const auto [pEnd, iError] = std::from_chars(strWord.data(), strWord.data() + strWord.size(), dNumber);
  if (iError != std::errc() || pEnd != strWord.data() + strWord.size() || !(std::abs(dNumber) <= 1e6)) return {};
  char szText[kMostNumberText];
  const auto [pText, iTextError] = std::to_chars(szText, szText + sizeof szText, dNumber, std::chars_format::fixed, 9);
  if (iTextError != std::errc()) return {};
  return std::string(szText, pText);
}

std::string_view WithoutComment(std::string_view strLine) {
  size_t i = strLine.find('#');
  while (i != std::string_view::npos && i > 0 && !IsBlank(strLine[i - 1])) i = strLine.find('#', i + 1);
  return Trimmed(strLine.substr(0, i));
}

// The list that is made, and the names of those materials in it that have a colour.
struct List {
  std::string m_strText = "# list of materials\n";
  std::optional<std::string> m_fstrMaterial;  // the last one
  std::set<std::string, std::less<>> m_setColoured;
};

// False for a statement that breaks the list; one that says nothing of colours adds nothing.
bool AddStatement(std::string_view strLine, List& zList) {
  const std::string_view strWord = TakeWord(strLine);
  if (strWord.empty() || strWord.starts_with('#')) return true;
  std::string& strList = zList.m_strText;
  if (strWord == "newmtl") {
    zList.m_fstrMaterial = strLine;
    strList += "newmtl " + *zList.m_fstrMaterial + "\n";
    return true;
  }
  if (!zList.m_fstrMaterial) return false;
  strLine = WithoutComment(strLine);
  if (strWord == "Kd") {
    if (strLine.starts_with("spectral") || strLine.starts_with("xyz")) return true;  // not read
    const std::optional<std::string> strRed = TakeNumber(strLine);
    const bool bOne = strLine.empty();  // for all three
    const std::optional<std::string> strGreen = bOne ? strRed : TakeNumber(strLine);
    const std::optional<std::string> strBlue = bOne ? strRed : TakeNumber(strLine);
    if (!strRed || !strGreen || !strBlue) return false;
    strList += "Kd " + *strRed + " " + *strGreen + " " + *strBlue + "\n";
    zList.m_setColoured.insert(*zList.m_fstrMaterial);
  } else if (strWord == "d" || strWord == "Tr") {
    if (strLine.starts_with("-halo")) TakeWord(strLine);
    const std::optional<std::string> strOpacity = TakeNumber(strLine);
    if (!strOpacity) return false;
    strList += std::string(strWord) + " " + *strOpacity + "\n";
    zList.m_setColoured.insert(*zList.m_fstrMaterial);
  } else if (strWord == "map_Kd") {
    strList += "map_Kd picture\n\n";  // told to be left out
  }
  return true;
}

}  // namespace

bool KivCleanMaterials(std::vector<uint8_t>& vcBytes, std::set<std::string, std::less<>>& setColoured) {
  std::string_view strText(reinterpret_cast<const char*>(vcBytes.data()), vcBytes.size());
  if (strText.starts_with("\xEF\xBB\xBF")) strText.remove_prefix(3);
  for (const char c : strText)
    if (static_cast<unsigned char>(c) < 0x20 && c != '\n' && c != '\r' && !IsBlank(c)) return false;
  List zList;
  while (!strText.empty()) {
    const size_t nLine = std::min(strText.find_first_of("\r\n"), strText.size());
    if (!AddStatement(Trimmed(strText.substr(0, nLine)), zList)) return false;
    strText.remove_prefix(std::min(nLine + 1, strText.size()));
  }
  if (!zList.m_fstrMaterial) return false;
  vcBytes.assign(zList.m_strText.begin(), zList.m_strText.end());
  setColoured.merge(zList.m_setColoured);
  return true;
}

}  // namespace kiv
