// Texts as the library of formats wants them: without the mark of their encoding, with line ends and words that it
// knows.
#include <algorithm>
#include <cstring>
#include <string_view>

#include "KivMeshSource.h"

namespace kiv {
namespace {

constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";

std::string_view TextOf(const std::vector<uint8_t>& vcBytes) {
  return {reinterpret_cast<const char*>(vcBytes.data()), vcBytes.size()};
}

char Lower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
}

bool IsLineEnd(uint8_t c) {
  return c == '\n' || c == '\r';
}
bool IsBlank(uint8_t c) {
  return c == ' ' || c == '\t';
}

// The word at iAt in lower case, if it is the one that is asked for.
bool LowerWord(std::vector<uint8_t>& vcBytes, size_t iAt, std::string_view strWord) {
  if (vcBytes.size() - iAt < strWord.size()) return false;
  for (size_t i = 0; i < strWord.size(); ++i)
    if (Lower(static_cast<char>(vcBytes[iAt + i])) != strWord[i]) return false;
  std::memcpy(vcBytes.data() + iAt, strWord.data(), strWord.size());
  return true;
}

size_t PassBlanks(const std::vector<uint8_t>& vcBytes, size_t iAt) {
  while (iAt < vcBytes.size() && IsBlank(vcBytes[iAt])) ++iAt;
  return iAt;
}

bool IsNoNumber(std::string_view strWord) {
  if (strWord.starts_with('-') || strWord.starts_with('+')) strWord.remove_prefix(1);
  const auto Begins = [strWord](std::string_view strBegin) {
    return strWord.size() >= strBegin.size() &&
           std::equal(strBegin.begin(), strBegin.end(), strWord.begin(), [](char a, char b) { return a == Lower(b); });
  };
  return Begins("nan") || Begins("inf") || strWord.starts_with("1.#");
}

// The normal of a triangle without an area is written as "-nan(ind)" or "1.#QNAN" by some. It is not used.
void ClearNormal(std::vector<uint8_t>& vcBytes, size_t iAt) {
  for (int iAxis = 0; iAxis < 3; ++iAxis) {
    iAt = PassBlanks(vcBytes, iAt);
    size_t iEnd = iAt;
    while (iEnd < vcBytes.size() && !IsBlank(vcBytes[iEnd]) && !IsLineEnd(vcBytes[iEnd])) ++iEnd;
    if (IsNoNumber(TextOf(vcBytes).substr(iAt, iEnd - iAt)))
      std::fill(vcBytes.begin() + static_cast<ptrdiff_t>(iAt), vcBytes.begin() + static_cast<ptrdiff_t>(iEnd),
                uint8_t{'0'});
    iAt = iEnd;
  }
}

// The words that lines of an STL begin with; names of solids stay as they are.
void LowerStlWords(std::vector<uint8_t>& vcBytes) {
  constexpr std::string_view kWords[] = {"endsolid", "end solid", "solid",   "facet",
                                         "outer",    "vertex",    "endloop", "endfacet"};
  constexpr std::string_view kNormal = "normal";
  bool bBegin = true;
  for (size_t i = 0; i < vcBytes.size(); ++i) {
    if (bBegin) {
      i = PassBlanks(vcBytes, i);
      for (const std::string_view strWord : kWords) {
        if (!LowerWord(vcBytes, i, strWord)) continue;
        const size_t iNext = PassBlanks(vcBytes, i + strWord.size());
        if (strWord == "facet" && LowerWord(vcBytes, iNext, kNormal)) ClearNormal(vcBytes, iNext + kNormal.size());
        if (strWord == "outer") LowerWord(vcBytes, iNext, "loop");
        break;
      }
    }
    bBegin = i < vcBytes.size() && IsLineEnd(vcBytes[i]);
  }
}

// Only in the header where the values behind it are bytes.
void EndPlyLines(std::vector<uint8_t>& vcBytes) {
  constexpr std::string_view kHead = "ply\r", kEnd = "end_header\r";
  const std::string_view strText = TextOf(vcBytes);
  if (!strText.starts_with(kHead) || strText.substr(kHead.size()).starts_with('\n')) return;
  const size_t iEnd = strText.find(kEnd);
  if (iEnd == std::string_view::npos) return;
  const bool bText = strText.substr(0, iEnd).find("\rformat ascii") != std::string_view::npos;
  const auto itEnd = bText ? vcBytes.end() : vcBytes.begin() + static_cast<ptrdiff_t>(iEnd + kEnd.size());
  std::replace(vcBytes.begin(), itEnd, uint8_t{'\r'}, uint8_t{'\n'});
}

// The library wants the line of the format to be the second one.
void MovePlyFormat(std::vector<uint8_t>& vcBytes) {
  constexpr std::string_view kFormat = "\nformat ";
  const std::string_view strText = TextOf(vcBytes);
  const size_t iFirst = strText.find('\n'), iFormat = strText.find(kFormat);
  if (iFormat == std::string_view::npos || iFormat == iFirst) return;
  for (size_t i = iFirst; i != iFormat; i = strText.find('\n', i + 1)) {
    const std::string_view strLine = strText.substr(i + 1);
    if (!strLine.starts_with("comment") && !strLine.starts_with("obj_info")) return;
  }
  vcBytes.erase(vcBytes.begin() + static_cast<ptrdiff_t>(iFirst), vcBytes.begin() + static_cast<ptrdiff_t>(iFormat));
}

// The library passes a line end behind the header whatever ends it, so that a value that begins like one would lose it.
void EndBinaryPlyHeader(std::vector<uint8_t>& vcBytes) {
  constexpr std::string_view kEnd = "\nend_header\n";
  const std::string_view strText = TextOf(vcBytes);
  const size_t iEnd = strText.find(kEnd);
  if (iEnd == std::string_view::npos || strText.substr(0, iEnd).find("\nformat ascii") != std::string_view::npos)
    return;
  vcBytes.insert(vcBytes.begin() + static_cast<ptrdiff_t>(iEnd + kEnd.size() - 1), uint8_t{'\r'});
}

// A backslash at the end of a comment would take the next line into it.
void EndObjComments(std::vector<uint8_t>& vcBytes) {
  bool bBegin = true, bComment = false;
  for (size_t i = 0; i < vcBytes.size(); ++i) {
    const uint8_t c = vcBytes[i];
    if (IsLineEnd(c)) {
      bBegin = true;
      bComment = false;
    } else if (bBegin && !IsBlank(c)) {
      bBegin = false;
      bComment = c == '#';
    }
    if (bComment && c == '\\' && (i + 1 == vcBytes.size() || IsLineEnd(vcBytes[i + 1]))) vcBytes[i] = ' ';
  }
}

// What stands behind the triangles of a binary one makes the library doubt its kind.
void EndBinaryStl(std::vector<uint8_t>& vcBytes) {
  constexpr uint64_t kHead = 84, kFacet = 50;
  if (vcBytes.size() < kHead) return;
  uint32_t nFacets = 0;
  std::memcpy(&nFacets, vcBytes.data() + 80, sizeof nFacets);
  if (vcBytes.size() > kHead + kFacet * nFacets) vcBytes.resize(kHead + kFacet * nFacets);
}

}  // namespace

bool KivIsTextStl(const std::vector<uint8_t>& vcBytes) {
  constexpr uint64_t kHead = 84, kFacet = 50;
  if (vcBytes.size() >= kHead) {
    uint32_t nFacets = 0;
    std::memcpy(&nFacets, vcBytes.data() + 80, sizeof nFacets);
    if (vcBytes.size() == kHead + kFacet * nFacets) return false;  // a binary one, whatever it begins with
  }
  std::string_view strText = TextOf(vcBytes);
  if (strText.starts_with(kUtf8Mark)) strText.remove_prefix(kUtf8Mark.size());
  constexpr std::string_view kWord = "solid";
  const size_t iFirst = std::min(strText.find_first_not_of(" \t\r\n"), strText.size());
  const std::string_view strWord = strText.substr(iFirst, kWord.size());
  return std::equal(strWord.begin(), strWord.end(), kWord.begin(), kWord.end(),
                    [](char a, char b) { return Lower(a) == b; }) &&
         strText.find('\0') == std::string_view::npos;
}

void KivNormaliseMeshText(const KivMeshFormat& zFormat, std::vector<uint8_t>& vcBytes) {
  const std::string_view strSuffix = zFormat.m_szSuffix;
  const bool bStl = strSuffix == "stl", bTextStl = bStl && KivIsTextStl(vcBytes);
  if (TextOf(vcBytes).starts_with(kUtf8Mark) && (!bStl || bTextStl))
    vcBytes.erase(vcBytes.begin(), vcBytes.begin() + kUtf8Mark.size());
  if (bTextStl) LowerStlWords(vcBytes);
  if (bStl && !bTextStl) EndBinaryStl(vcBytes);
  if (strSuffix == "ply") EndPlyLines(vcBytes);
  if (strSuffix == "ply") MovePlyFormat(vcBytes);
  if (strSuffix == "ply") EndBinaryPlyHeader(vcBytes);
  if (strSuffix == "obj") EndObjComments(vcBytes);
}

}  // namespace kiv
