// What the bytes of a source announce, where the library of formats believes more than it should: it fills up what a
// cut file lacks, or takes memory for whatever a header says.
#include <algorithm>
#include <charconv>
#include <cstring>
#include <limits>
#include <string>
#include <string_view>
#include <utility>

#include "KivMeshSource.h"
#include "KivSceneReader.h"

namespace kiv {
namespace {

bool IsBlank(char c) {
  return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\0';
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
  if (KivIsTextStl(vcBytes)) return CheckTextStl({reinterpret_cast<const char*>(vcBytes.data()), vcBytes.size()});
  if (vcBytes.size() < kHead) throw KivSceneError("it is no STL file");
  uint32_t nFacets = 0;
  std::memcpy(&nFacets, vcBytes.data() + 80, sizeof nFacets);
  if (vcBytes.size() < kHead + kFacet * nFacets)
    throw KivSceneError("the file is cut, or no STL file: it announces " + std::to_string(nFacets) +
                        " triangles and has bytes for " + std::to_string((vcBytes.size() - kHead) / kFacet));
}

// --- PLY ------------------------------------------------------------------------------------------------------------

// The next word, which is passed; empty at the end.
std::string_view TakeWord(std::string_view& strText) {
  while (!strText.empty() && IsBlank(strText.front())) strText.remove_prefix(1);
  size_t n = 0;
  while (n < strText.size() && !IsBlank(strText[n])) ++n;
  const std::string_view strWord = strText.substr(0, n);
  strText.remove_prefix(n);
  return strWord;
}

std::string_view TakeLine(std::string_view& strText) {
  const size_t n = std::min(strText.find('\n'), strText.size());
  const std::string_view strLine = strText.substr(0, n);
  strText.remove_prefix(std::min(n + 1, strText.size()));
  return strLine;
}

struct PlyProperty {
  std::string_view m_strName;
  bool m_bList = false;
  uint64_t m_nCountBytes = 0;  // of a list: what its count takes
  uint64_t m_nBytes = 0;       // of a value, or of one in the list
  bool m_bFloatCount = false;
  bool m_bFloat = false;
};

struct PlyElement {
  std::string_view m_strName;
  uint64_t m_nEntries = 0;
  std::vector<PlyProperty> m_vzProperty;
};

struct PlyHeader {
  bool m_bText = false;
  bool m_bBigEndian = false;
  std::vector<PlyElement> m_vzElement;
};

// 0 for a type that there is none of.
uint64_t PlyTypeBytes(std::string_view strType) {
  constexpr std::pair<std::string_view, uint64_t> kTypes[] = {
      {"char", 1},  {"uchar", 1},  {"short", 2},   {"ushort", 2}, {"int", 4},   {"uint", 4},
      {"float", 4}, {"double", 8}, {"int8", 1},    {"uint8", 1},  {"int16", 2}, {"uint16", 2},
      {"int32", 4}, {"uint32", 4}, {"float32", 4}, {"float64", 8}};
  for (const auto& [strName, nBytes] : kTypes)
    if (strType == strName) return nBytes;
  return 0;
}

bool IsFloat(std::string_view strType) {
  return strType.starts_with("float") || strType.starts_with("double");
}

PlyProperty TakePlyProperty(std::string_view strLine) {
  PlyProperty z;
  std::string_view strType = TakeWord(strLine);
  z.m_bList = strType == "list";
  if (z.m_bList) {
    const std::string_view strCount = TakeWord(strLine);
    z.m_nCountBytes = PlyTypeBytes(strCount);
    z.m_bFloatCount = IsFloat(strCount);
    strType = TakeWord(strLine);
  }
  z.m_nBytes = PlyTypeBytes(strType);
  z.m_bFloat = IsFloat(strType);
  z.m_strName = TakeWord(strLine);
  return z;
}

[[noreturn]] void RefusePly() {
  throw KivSceneError("the file is cut: its header announces more than it holds");
}

// Passes the header.
PlyHeader TakePlyHeader(std::string_view& strText) {
  PlyHeader zHeader;
  for (;;) {
    if (strText.empty()) throw KivSceneError("the file is cut: its header has no end");
    std::string_view strLine = TakeLine(strText);
    const std::string_view strWord = TakeWord(strLine);
    if (strWord == "end_header") return zHeader;
    if (strWord == "format") {
      const std::string_view strForm = TakeWord(strLine);
      zHeader.m_bText = strForm == "ascii";
      zHeader.m_bBigEndian = strForm == "binary_big_endian";
    }
    if (strWord == "element") {
      const std::string_view strName = TakeWord(strLine);
      const std::string_view strCount = TakeWord(strLine);
      uint64_t nEntries = 0;
      const auto [pEnd, iError] = std::from_chars(strCount.data(), strCount.data() + strCount.size(), nEntries);
      if (iError == std::errc::result_out_of_range) RefusePly();
      if (iError != std::errc()) throw KivSceneError("its header is damaged");
      zHeader.m_vzElement.push_back({strName, nEntries, {}});
    }
    if (strWord == "property" && !zHeader.m_vzElement.empty())
      zHeader.m_vzElement.back().m_vzProperty.push_back(TakePlyProperty(strLine));
  }
}

// A whole number of 32 bits, with a sign or without.
int64_t WholePlyNumber(std::string_view strWord) {
  int64_t iNumber = 0;
  const auto [pEnd, iError] = std::from_chars(strWord.data(), strWord.data() + strWord.size(), iNumber);
  if (iError != std::errc() || pEnd != strWord.data() + strWord.size() ||
      iNumber < std::numeric_limits<int32_t>::min() || iNumber > std::numeric_limits<uint32_t>::max())
    throw KivSceneError("a count or index of it is no whole number of 32 bits");
  return iNumber;
}

// Every value must be there, those of an entry on a line of its own.
void CheckTextPly(const PlyHeader& zHeader, std::string_view strText) {
  for (const PlyElement& zElement : zHeader.m_vzElement)
    for (uint64_t i = 0; i < zElement.m_nEntries; ++i) {
      std::string_view strLine, strRest;
      do {
        if (strText.empty()) RefusePly();
        strRest = strLine = TakeLine(strText);
      } while (TakeWord(strRest).empty());
      for (const PlyProperty& zProperty : zElement.m_vzProperty) {
        const std::string_view strWord = TakeWord(strLine);
        if (strWord.empty()) RefusePly();
        const int64_t nValues = zProperty.m_bList ? WholePlyNumber(strWord) : 0;
        if (nValues < 0) throw KivSceneError("a list of it has a count below 0");
        for (int64_t iValue = 0; iValue < nValues; ++iValue) {
          const std::string_view strValue = TakeWord(strLine);
          if (strValue.empty()) RefusePly();
          if (!zProperty.m_bFloat) WholePlyNumber(strValue);
        }
      }
      if (!TakeWord(strLine).empty()) throw KivSceneError("a line of it has more numbers than its header announces");
    }
}

// What the library would take for zeros, or not pass.
void CheckPlyHeader(const PlyHeader& zHeader) {
  for (const PlyElement& zElement : zHeader.m_vzElement) {
    if (zElement.m_nEntries == 0) continue;
    if (zElement.m_vzProperty.empty()) throw KivSceneError("its header is damaged: an element has no property");
    size_t nPlaces = 0;
    for (const PlyProperty& z : zElement.m_vzProperty) {
      if (z.m_nBytes == 0 || (z.m_bList && (z.m_nCountBytes == 0 || z.m_bFloatCount)))
        throw KivSceneError("its header is damaged: a property has no type that is known");
      if (!z.m_bList && (z.m_strName == "x" || z.m_strName == "y" || z.m_strName == "z")) ++nPlaces;
    }
    if (zElement.m_strName == "vertex" && nPlaces != 3)
      throw KivSceneError("its header is damaged: a vertex has not one x, y and z each");
  }
}

// A count of up to four bytes.
uint64_t TakePlyCount(const PlyHeader& zHeader, const PlyProperty& zProperty, std::string_view strBytes) {
  uint64_t nCount = 0;
  for (uint64_t i = 0; i < zProperty.m_nCountBytes; ++i) {
    const uint64_t iAt = zHeader.m_bBigEndian ? i : zProperty.m_nCountBytes - 1 - i;
    nCount = nCount << 8 | static_cast<uint8_t>(strBytes[iAt]);
  }
  return nCount;
}

// Every value must be there; a list is passed by its count before memory is taken for it.
void CheckBinaryPly(const PlyHeader& zHeader, std::string_view strBytes) {
  for (const PlyElement& zElement : zHeader.m_vzElement)
    for (uint64_t i = 0; i < zElement.m_nEntries; ++i)
      for (const PlyProperty& zProperty : zElement.m_vzProperty) {
        uint64_t nValues = 1;
        if (zProperty.m_bList) {
          if (strBytes.size() < zProperty.m_nCountBytes) RefusePly();
          nValues = TakePlyCount(zHeader, zProperty, strBytes);
          strBytes.remove_prefix(zProperty.m_nCountBytes);
        }
        if (nValues > strBytes.size() / zProperty.m_nBytes) RefusePly();
        strBytes.remove_prefix(nValues * zProperty.m_nBytes);
      }
}

// Each entry of an element takes a byte at least.
void CheckPly(std::string_view strText) {
  if (!strText.starts_with("ply")) throw KivSceneError("it is no PLY file");
  const PlyHeader zHeader = TakePlyHeader(strText);
  uint64_t nEntries = 0;
  for (const PlyElement& zElement : zHeader.m_vzElement) {
    if (zElement.m_nEntries > strText.size()) RefusePly();
    nEntries += zElement.m_nEntries;
  }
  if (nEntries > strText.size()) RefusePly();
  CheckPlyHeader(zHeader);
  if (zHeader.m_bText)
    CheckTextPly(zHeader, strText);
  else
    CheckBinaryPly(zHeader, strText);
}

// --- OBJ ------------------------------------------------------------------------------------------------------------

// A face of two corners would become a line. A line that ends with a backslash goes on in the next one.
void CheckObjFaces(std::string_view strText) {
  while (!strText.empty()) {
    std::string_view strLine = TakeLine(strText);
    if (TakeWord(strLine) != "f") continue;
    size_t nCorners = 0;
    for (std::string_view strWord = TakeWord(strLine); !strWord.empty(); strWord = TakeWord(strLine)) {
      if (strWord.starts_with('#')) break;
      if (strWord != "\\") ++nCorners;
      if (strWord.ends_with('\\')) strLine = TakeLine(strText);
    }
    if (nCorners < 3) throw KivSceneError("a face has fewer than three corners: the file is cut or damaged");
  }
}

void CheckObj(std::string_view strText) {
  const bool bWide = strText.size() > 1 && (strText[0] == '\xFE' || strText[0] == '\xFF');  // two bytes for a character
  if (bWide) return;
  if (strText.find('\0') != std::string_view::npos) throw KivSceneError("it is no OBJ file");
  CheckObjFaces(strText);
}

}  // namespace

void KivCheckMeshBytes(const KivMeshFormat& zFormat, std::vector<uint8_t>& vcBytes,
                       std::vector<std::string>& vstrWarning) {
  const std::string_view strSuffix = zFormat.m_szSuffix;
  if (strSuffix == "stl") CheckStl(vcBytes);
  const std::string_view strText(reinterpret_cast<const char*>(vcBytes.data()), vcBytes.size());
  if (strSuffix == "ply") CheckPly(strText);
  if (strSuffix == "obj") CheckObj(strText);
  if (strSuffix == "gltf" || strSuffix == "glb") KivCheckGltf(zFormat, vcBytes, vstrWarning);
}

}  // namespace kiv
