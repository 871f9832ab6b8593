// STL: a text with words in lower case and normals that are numbers, or as many bytes as it announces.
#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>

#include "KivMeshSource.h"
#include "KivMeshWords.h"
#include "KivSceneReader.h"

namespace kiv {
namespace {

// True for bytes that begin as a text does and are no binary one.
bool IsTextStl(const std::vector<uint8_t>& vcBytes) {
  constexpr uint64_t kHead = 84, kFacet = 50;
  if (vcBytes.size() >= kHead) {
    uint32_t nFacets = 0;
    std::memcpy(&nFacets, vcBytes.data() + 80, sizeof nFacets);
    if (vcBytes.size() == kHead + kFacet * nFacets) return false;  // a binary one, whatever it begins with
  }
  std::string_view strText = TextOf(vcBytes);
  if (strText.starts_with("\xEF\xBB\xBF")) strText.remove_prefix(3);
  constexpr std::string_view kWord = "solid";
  const size_t iFirst = std::min(strText.find_first_not_of(" \t\r\n"), strText.size());
  const std::string_view strWord = strText.substr(iFirst, kWord.size());
  return std::equal(strWord.begin(), strWord.end(), kWord.begin(), kWord.end(),
                    [](char a, char b) { return Lower(a) == b; }) &&
         strText.find('\0') == std::string_view::npos;
}

// A text STL ends with its last solid.
void CheckTextStl(std::string_view strText) {
  while (!strText.empty() && IsBlank(strText.back())) strText.remove_suffix(1);
  const size_t iLine = strText.find_last_of("\r\n");
  std::string_view strLast = iLine == std::string_view::npos ? strText : strText.substr(iLine + 1);
  while (!strLast.empty() && IsBlank(strLast.front())) strLast.remove_prefix(1);
  if (!strLast.starts_with("endsolid") && !strLast.starts_with("end solid"))
    throw KivSceneError("the file is cut: its last line is no 'endsolid'");
}

void CheckStl(const std::vector<uint8_t>& vcBytes) {
  constexpr uint64_t kHead = 84, kFacet = 50;
  if (IsTextStl(vcBytes)) return CheckTextStl({reinterpret_cast<const char*>(vcBytes.data()), vcBytes.size()});
  if (vcBytes.size() < kHead) throw KivSceneError("it is no STL file");
  uint32_t nFacets = 0;
  std::memcpy(&nFacets, vcBytes.data() + 80, sizeof nFacets);
  if (vcBytes.size() < kHead + kFacet * nFacets)
    throw KivSceneError("the file is cut, or no STL file: it announces " + std::to_string(nFacets) +
                        " triangles and has bytes for " + std::to_string((vcBytes.size() - kHead) / kFacet));
}

bool IsLineEnd(uint8_t c) {
  return c == '\n' || c == '\r';
}
bool IsSpace(uint8_t c) {
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
  while (iAt < vcBytes.size() && IsSpace(vcBytes[iAt])) ++iAt;
  return iAt;
}

// The normal of a triangle without an area is written as "-nan(ind)" or "1.#QNAN" by some. It is not used.
void ClearNormal(std::vector<uint8_t>& vcBytes, size_t iAt) {
  for (int iAxis = 0; iAxis < 3; ++iAxis) {
    iAt = PassBlanks(vcBytes, iAt);
    size_t iEnd = iAt;
    while (iEnd < vcBytes.size() && !IsSpace(vcBytes[iEnd]) && !IsLineEnd(vcBytes[iEnd])) ++iEnd;
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

// What stands behind the triangles of a binary one makes the library doubt its kind.
void EndBinaryStl(std::vector<uint8_t>& vcBytes) {
  constexpr uint64_t kHead = 84, kFacet = 50;
  if (vcBytes.size() < kHead) return;
  uint32_t nFacets = 0;
  std::memcpy(&nFacets, vcBytes.data() + 80, sizeof nFacets);
  if (vcBytes.size() > kHead + kFacet * nFacets) vcBytes.resize(kHead + kFacet * nFacets);
}

}  // namespace

void KivPrepareStl(std::vector<uint8_t>& vcBytes, std::vector<std::string>&) {
  const bool bText = IsTextStl(vcBytes);
  if (bText) PassUtf8Mark(vcBytes);
  if (bText) LowerStlWords(vcBytes);
  if (!bText) EndBinaryStl(vcBytes);
  CheckStl(vcBytes);
}

}  // namespace kiv
