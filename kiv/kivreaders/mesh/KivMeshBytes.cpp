// What the bytes of a source announce, where the library of formats believes more than it should: it fills up what a
// cut file lacks, or takes memory for whatever a header says.
#include <algorithm>
#include <charconv>
#include <cstring>
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
  bool m_bList = false;
  uint64_t m_nCountBytes = 0;  // of a list: what its count takes
  uint64_t m_nBytes = 0;       // of a value, or of one in the list
  bool m_bFloatCount = false;
};

struct PlyElement {
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

PlyProperty TakePlyProperty(std::string_view strLine) {
  PlyProperty z;
  std::string_view strType = TakeWord(strLine);
  z.m_bList = strType == "list";
  if (z.m_bList) {
    const std::string_view strCount = TakeWord(strLine);
    z.m_nCountBytes = PlyTypeBytes(strCount);
    z.m_bFloatCount = strCount.starts_with("float") || strCount.starts_with("double");
    strType = TakeWord(strLine);
  }
  z.m_nBytes = PlyTypeBytes(strType);
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
      TakeWord(strLine);  // its name
      const std::string_view strCount = TakeWord(strLine);
      uint64_t nEntries = 0;
      const auto [pEnd, iError] = std::from_chars(strCount.data(), strCount.data() + strCount.size(), nEntries);
      if (iError == std::errc::result_out_of_range) RefusePly();
      if (iError != std::errc()) throw KivSceneError("its header is damaged");
      zHeader.m_vzElement.push_back({nEntries, {}});
    }
    if (strWord == "property" && !zHeader.m_vzElement.empty())
      zHeader.m_vzElement.back().m_vzProperty.push_back(TakePlyProperty(strLine));
  }
}

// Every value must be there.
void CheckTextPly(const PlyHeader& zHeader, std::string_view strText) {
  for (const PlyElement& zElement : zHeader.m_vzElement)
    for (uint64_t i = 0; i < zElement.m_nEntries; ++i)
      for (const PlyProperty& zProperty : zElement.m_vzProperty) {
        const std::string_view strWord = TakeWord(strText);
        if (strWord.empty()) RefusePly();
        uint64_t nValues = 0;
        if (zProperty.m_bList) std::from_chars(strWord.data(), strWord.data() + strWord.size(), nValues);
        for (; nValues > 0; --nValues)
          if (TakeWord(strText).empty()) RefusePly();
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
  for (const PlyElement& zElement : zHeader.m_vzElement) {
    for (const PlyProperty& zProperty : zElement.m_vzProperty)
      if (zProperty.m_nBytes == 0 || (zProperty.m_bList && (zProperty.m_nCountBytes == 0 || zProperty.m_bFloatCount)))
        throw KivSceneError("its header is damaged: a property has no type that is known");
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
  if (zHeader.m_bText)
    CheckTextPly(zHeader, strText);
  else
    CheckBinaryPly(zHeader, strText);
}

}  // namespace

void KivCheckMeshBytes(const KivMeshFormat& zFormat, const std::vector<uint8_t>& vcBytes,
                       std::vector<std::string>& vstrWarning) {
  const std::string_view strSuffix = zFormat.m_szSuffix;
  if (strSuffix == "stl") CheckStl(vcBytes);
  if (strSuffix == "ply") CheckPly(std::string_view(reinterpret_cast<const char*>(vcBytes.data()), vcBytes.size()));
  if (strSuffix == "gltf" || strSuffix == "glb") KivCheckGltf(zFormat, vcBytes, vstrWarning);
  if (strSuffix == "obj" && std::find(vcBytes.begin(), vcBytes.end(), 0) != vcBytes.end() &&
      !(vcBytes.size() > 1 && (vcBytes[0] == 0xFE || vcBytes[0] == 0xFF)))  // two bytes for each character
    throw KivSceneError("it is no OBJ file");
}

}  // namespace kiv
