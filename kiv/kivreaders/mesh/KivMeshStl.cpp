// STL: a text with words in lower case, normals that are numbers and names in one word, or as many bytes as it
// announces and at most one colour.
#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>

#include "KivMeshNames.h"
#include "KivMeshSource.h"
#include "KivMeshWords.h"
#include "KivSceneReader.h"

namespace kiv {
namespace {

// Bytes of a binary one: of its first text, of all that stands before the triangles, and of each.
constexpr uint64_t kText = 80, kHead = 84, kFacet = 50;

uint64_t CountFacets(const std::vector<uint8_t>& vcBytes) {
  uint32_t nFacets = 0;
  std::memcpy(&nFacets, vcBytes.data() + kText, sizeof nFacets);
  return nFacets;
}

// True for bytes that begin as a text does and are no binary one.
bool IsTextStl(const std::vector<uint8_t>& vcBytes) {
  // A binary one, whatever it begins with.
  if (vcBytes.size() >= kHead && vcBytes.size() == kHead + kFacet * CountFacets(vcBytes)) return false;
  std::string_view strText = TextOf(vcBytes);
  if (strText.starts_with("\xEF\xBB\xBF")) strText.remove_prefix(3);
  constexpr std::string_view kWord = "solid";
  const size_t iFirst = std::min(strText.find_first_not_of(" \t\r\n"), strText.size());
  const std::string_view strWord = strText.substr(iFirst, kWord.size());
  const size_t iEnd = iFirst + kWord.size();
  return std::equal(strWord.begin(), strWord.end(), kWord.begin(), kWord.end(),
                    [](char a, char b) { return Lower(a) == b; }) &&
         (iEnd == strText.size() || IsBlank(strText[iEnd])) && strText.find('\0') == std::string_view::npos;
}

void CheckBinaryStl(const std::vector<uint8_t>& vcBytes) {
  if (vcBytes.size() < kHead) throw KivSceneError("it is no STL file");
  const uint64_t nFacets = CountFacets(vcBytes);
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

// Walks over the words of a text STL, makes them lower case, and holds each triangle to its three corners. Names of
// solids stay, in one word; what stands between solids becomes blank.
class TextStl {
 public:
  explicit TextStl(std::vector<uint8_t>& vcBytes) : m_vcBytes(vcBytes) {}

  void Prepare() {
    while (Next()) m_bSolid ? Inside() : Outside();
    if (m_bSolid) throw KivSceneError("the file is cut: its last solid has no 'endsolid'");
  }

 private:
  // The next word, from m_iWord to m_iAt. False at the end.
  bool Next() {
    m_iWord = m_iAt;
    while (m_iWord < m_vcBytes.size() && (IsSpace(m_vcBytes[m_iWord]) || IsLineEnd(m_vcBytes[m_iWord]))) ++m_iWord;
    m_iAt = m_iWord;
    while (m_iAt < m_vcBytes.size() && !IsSpace(m_vcBytes[m_iAt]) && !IsLineEnd(m_vcBytes[m_iAt])) ++m_iAt;
    return m_iWord < m_iAt;
  }
  bool Is(std::string_view strWord) const { return m_iAt - m_iWord == strWord.size() && IsAt(m_iWord, strWord); }
  bool IsAt(size_t iAt, std::string_view strWord) const {
    if (m_vcBytes.size() - iAt < strWord.size()) return false;
    for (size_t i = 0; i < strWord.size(); ++i)
      if (Lower(static_cast<char>(m_vcBytes[iAt + i])) != strWord[i]) return false;
    return true;
  }
  void Fill(size_t iFrom, size_t iTo, char c) {
    std::fill(m_vcBytes.begin() + static_cast<ptrdiff_t>(iFrom), m_vcBytes.begin() + static_cast<ptrdiff_t>(iTo),
              static_cast<uint8_t>(c));
  }
  void MakeLower() {
    for (size_t i = m_iWord; i < m_iAt; ++i)
      m_vcBytes[i] = static_cast<uint8_t>(Lower(static_cast<char>(m_vcBytes[i])));
  }
  bool IsEnd(size_t i) const { return i >= m_vcBytes.size() || IsLineEnd(m_vcBytes[i]); }  // of a line

  static constexpr const char* kOutside = "a triangle stands outside of the solids";

  void Outside() {
    if (Is("facet")) throw KivSceneError(kOutside);
    if (!Is("solid")) return Fill(m_iWord, m_iAt, ' ');
    MakeLower();
    m_bSolid = true;
    TakeName();
  }

  // Where the first triangle begins in what is left of a line, or its end.
  size_t FirstFacet(size_t iFrom) const {
    size_t i = iFrom;
    for (; !IsEnd(i); ++i) {
      if (!IsSpace(m_vcBytes[i - 1]) || !IsAt(i, "facet")) continue;
      const size_t iNext = PassBlanks(m_vcBytes, i + 5);
      if (iNext > i + 5 && IsAt(iNext, "normal") && HasNumberAt(iNext + 6)) break;
    }
    return i;
  }

  // Where the last solid begins before a triangle of the same line, or iTo.
  size_t LastSolid(size_t iFrom, size_t iTo) const {
    for (size_t i = iTo; i > iFrom; --i)
      if (IsSpace(m_vcBytes[i - 1]) && IsAt(i, "solid") && (i + 5 == iTo || IsSpace(m_vcBytes[i + 5]))) return i;
    return iTo;
  }

  // To the end of the line; or to the first triangle, where all stands in one line.
  void TakeName() {
    const size_t iFrom = PassBlanks(m_vcBytes, m_iAt);
    size_t iTo = FirstFacet(iFrom);
    m_iAt = iTo;
    while (iTo > iFrom && IsSpace(m_vcBytes[iTo - 1])) --iTo;
    const size_t nKept = KivKeptName(TextOf(m_vcBytes).substr(iFrom, iTo - iFrom)).size();
    Fill(iFrom + nKept, iTo, ' ');
    for (size_t i = iFrom; i < iFrom + nKept; ++i)
      m_vcBytes[i] = static_cast<uint8_t>(KivByteInName(static_cast<char>(m_vcBytes[i])));
  }
  bool HasNumberAt(size_t i) const {
    const size_t iNumber = PassBlanks(m_vcBytes, i);
    if (iNumber == i || iNumber >= m_vcBytes.size()) return false;
    const char c = static_cast<char>(m_vcBytes[iNumber]);
    return (c >= '0' && c <= '9') || c == '-' || c == '+' || c == '.';
  }

  void Inside() {
    const bool bEndSolid = Is("end") && IsAt(PassBlanks(m_vcBytes, m_iAt), "solid");
    if (bEndSolid) {  // in two words
      m_iAt = PassBlanks(m_vcBytes, m_iAt) + 5;
      Fill(m_iWord, m_iAt, ' ');
      constexpr std::string_view kWord = "endsolid";
      std::copy(kWord.begin(), kWord.end(), m_vcBytes.begin() + static_cast<ptrdiff_t>(m_iWord));
    }
    if (bEndSolid || Is("endsolid")) {
      MakeLower();
      EndFacet();
      m_bSolid = false;
      // Its name, and the next solid where that stands in the same line.
      const size_t iFacet = FirstFacet(m_iAt);
      const size_t iSolid = IsEnd(iFacet) ? iFacet : LastSolid(m_iAt, iFacet);
      if (!IsEnd(iFacet) && iSolid == iFacet) throw KivSceneError(kOutside);
      m_iAt = iSolid;
      if (!IsEnd(iSolid)) m_vcBytes[iSolid - 1] = '\n';  // where the library looks for the next one
    } else if (Is("facet")) {
      MakeLower();
      EndFacet();
      m_bFacet = true;
      m_nCorners = 0;
    } else if (Is("endfacet")) {
      MakeLower();
      EndFacet();
    } else if (Is("normal")) {
      MakeLower();
      ClearNormal(m_vcBytes, m_iAt);
    } else if (Is("vertex")) {
      MakeLower();
      ++m_nCorners;
    } else if (Is("outer") || Is("loop") || Is("endloop")) {
      MakeLower();
    }
  }
  void EndFacet() {
    if (m_bFacet && m_nCorners != 3)
      throw KivSceneError("a triangle has " + std::to_string(m_nCorners) +
                          " corners: the file is damaged, or none of triangles");
    m_bFacet = false;
  }

  std::vector<uint8_t>& m_vcBytes;
  size_t m_iWord = 0, m_iAt = 0;
  bool m_bSolid = false, m_bFacet = false;  // a solid and a triangle have begun
  uint64_t m_nCorners = 0;                  // of the triangle
};

// The library knows a text by its first word, which no blank line may stand before.
void PrepareTextStl(std::vector<uint8_t>& vcBytes) {
  PassUtf8Mark(vcBytes);
  size_t n = 0;
  while (n < vcBytes.size() && (IsSpace(vcBytes[n]) || IsLineEnd(vcBytes[n]))) ++n;
  vcBytes.erase(vcBytes.begin(), vcBytes.begin() + static_cast<ptrdiff_t>(n));
  TextStl(vcBytes).Prepare();
}

// --- Binary ones ----------------------------------------------------------------------------------------------------

constexpr std::string_view kColourMark = "COLOR=";

// Where the bytes for red, green, blue and opacity stand in the head; 0 for a head without them.
size_t HeadColour(const std::vector<uint8_t>& vcBytes) {
  const size_t i = TextOf(vcBytes).substr(0, kText).find(kColourMark);
  return i == std::string_view::npos || i + kColourMark.size() + 4 > kText ? 0 : i + kColourMark.size();
}

uint16_t FacetWord(const std::vector<uint8_t>& vcBytes, uint64_t iFacet) {
  uint16_t iWord = 0;
  std::memcpy(&iWord, vcBytes.data() + kHead + kFacet * iFacet + kFacet - sizeof iWord, sizeof iWord);
  return iWord;
}

// In a file with a colour in its head a triangle with the upper bit takes that one, and one without it a colour of its
// own, five bits each from red upwards; where all have 0, none is meant. The library takes it the other way round: what
// holds for all triangles goes to the head, anything else is left out.
void PrepareColours(std::vector<uint8_t>& vcBytes, std::vector<std::string>& vstrWarning) {
  if (TextOf(vcBytes).substr(0, kText).find(kColourMark) == std::string_view::npos) return;
  const size_t iColour = HeadColour(vcBytes);
  const uint64_t nFacets = CountFacets(vcBytes);
  if (iColour == 0) std::fill_n(vcBytes.begin(), kText, uint8_t{' '});  // a mark without its bytes
  if (iColour == 0 || nFacets == 0) return;
  constexpr uint16_t kOfHead = 0x8000;
  const auto Meant = [&vcBytes](uint64_t iFacet) {
    const uint16_t iWord = FacetWord(vcBytes, iFacet);
    return (iWord & kOfHead) != 0 ? kOfHead : iWord;
  };
  const uint16_t iFirst = Meant(0);
  bool bSame = true;
  for (uint64_t i = 0; i < nFacets; ++i) {
    bSame = bSame && Meant(i) == iFirst;
    std::fill_n(vcBytes.begin() + static_cast<ptrdiff_t>(kHead + kFacet * i + kFacet - 2), 2, uint8_t{0});
  }
  const auto itColour = vcBytes.begin() + static_cast<ptrdiff_t>(iColour);
  if (!bSame) {
    vstrWarning.push_back("colours of single vertices are left out");
    std::fill_n(vcBytes.begin(), kText, uint8_t{' '});
  } else if (iFirst != kOfHead && iFirst != 0) {
    for (int i = 0; i < 3; ++i) itColour[i] = static_cast<uint8_t>(((iFirst >> (5 * i) & 31) * 255 + 15) / 31);
    itColour[3] = 255;
  }
}

// What stands behind the triangles makes the library doubt its kind.
void PrepareBinaryStl(std::vector<uint8_t>& vcBytes, std::vector<std::string>& vstrWarning) {
  CheckBinaryStl(vcBytes);
  vcBytes.resize(kHead + kFacet * CountFacets(vcBytes));
  PrepareColours(vcBytes, vstrWarning);
}

}  // namespace

std::optional<KivMeshMaterial> KivStlHeadMaterial(const std::vector<uint8_t>& vcBytes) {
  if (vcBytes.size() < kHead || IsTextStl(vcBytes)) return std::nullopt;
  const size_t i = HeadColour(vcBytes);
  if (i == 0) return std::nullopt;
  const auto Part = [&vcBytes, i](size_t iPart) { return static_cast<float>(vcBytes[i + iPart]) / 255; };
  KivMeshMaterial zMaterial;
  zMaterial.m_fColour = {Part(0), Part(1), Part(2)};
  zMaterial.m_fOpacity = Part(3);
  return zMaterial;
}

void KivPrepareStl(std::vector<uint8_t>& vcBytes, std::vector<std::string>& vstrWarning) {
  if (IsTextStl(vcBytes)) return PrepareTextStl(vcBytes);
  PrepareBinaryStl(vcBytes, vstrWarning);
}

}  // namespace kiv
