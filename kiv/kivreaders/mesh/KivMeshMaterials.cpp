// The list of materials of an OBJ: what it says of colours.
#include <algorithm>
#include <charconv>
#include <cmath>
#include <optional>
#include <string>
#include <string_view>

#include "KivMeshNames.h"
#include "KivMeshSource.h"

namespace kiv {
namespace {

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

// The next word as a number; none without a word or for anything else.
std::optional<float> TakeNumber(std::string_view& strLine) {
  std::string_view strWord = TakeWord(strLine);
  if (strWord.starts_with('+')) strWord.remove_prefix(1);
  double dNumber = 0;
  const auto [pEnd, iError] = std::from_chars(strWord.data(), strWord.data() + strWord.size(), dNumber);
  if (iError != std::errc() || pEnd != strWord.data() + strWord.size() || !(std::abs(dNumber) <= 1e6)) return {};
  return static_cast<float>(dNumber);
}

std::string_view WithoutComment(std::string_view strLine) {
  size_t i = strLine.find('#');
  while (i != std::string_view::npos && i > 0 && !IsBlank(strLine[i - 1])) i = strLine.find('#', i + 1);
  return Trimmed(strLine.substr(0, i));
}

// A list that is read.
struct List {
  KivMeshMaterials m_mapMaterial;
  KivMeshMaterial* m_pzLast = nullptr;
};

// False for a statement that breaks the list; one that says nothing of colours adds nothing.
bool AddStatement(std::string_view strLine, List& zList) {
  const std::string_view strWord = TakeWord(strLine);
  if (strWord.empty() || strWord.starts_with('#')) return true;
  if (strWord == "newmtl") {
    std::string strName(KivKeptName(KivNameWithoutComment(strLine)));
    std::replace(strName.begin(), strName.end(), '\t', ' ');
    zList.m_pzLast = &zList.m_mapMaterial[strName];
    return true;
  }
  if (zList.m_pzLast == nullptr) return false;
  KivMeshMaterial& zMaterial = *zList.m_pzLast;
  strLine = WithoutComment(strLine);
  if (strWord == "Kd") {
    if (strLine.starts_with("spectral") || strLine.starts_with("xyz")) return true;  // not read
    const std::optional<float> fRed = TakeNumber(strLine);
    const bool bOne = strLine.empty();  // for all three
    const std::optional<float> fGreen = bOne ? fRed : TakeNumber(strLine);
    const std::optional<float> fBlue = bOne ? fRed : TakeNumber(strLine);
    if (!fRed || !fGreen || !fBlue) return false;
    zMaterial.m_fColour = {*fRed, *fGreen, *fBlue};
  } else if (strWord == "d" || strWord == "Tr") {
    if (strLine.starts_with("-halo")) TakeWord(strLine);
    const std::optional<float> fNumber = TakeNumber(strLine);
    if (!fNumber) return false;
    if (strWord == "d") zMaterial.m_fOpacity = fNumber;
    if (strWord == "Tr") zMaterial.m_fTransparency = fNumber;
  } else if (strWord == "map_Kd") {
    zMaterial.m_bPicture = true;
  }
  return true;
}

}  // namespace

bool KivReadMaterials(std::string_view strText, KivMeshMaterials& mapMaterial) {
  if (strText.starts_with("\xEF\xBB\xBF")) strText.remove_prefix(3);
  for (const char c : strText)
    if (static_cast<unsigned char>(c) < 0x20 && c != '\n' && c != '\r' && !IsBlank(c)) return false;
  List zList;
  while (!strText.empty()) {
    const size_t nLine = std::min(strText.find_first_of("\r\n"), strText.size());
    if (!AddStatement(Trimmed(strText.substr(0, nLine)), zList)) return false;
    strText.remove_prefix(std::min(nLine + 1, strText.size()));
  }
  if (zList.m_pzLast == nullptr) return false;
  for (auto& [strName, zMaterial] : zList.m_mapMaterial) mapMaterial.insert_or_assign(strName, std::move(zMaterial));
  return true;
}

}  // namespace kiv
