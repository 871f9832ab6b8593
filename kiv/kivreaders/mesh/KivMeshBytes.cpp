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
  bool m_bSignedCount = false;
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
    z.m_bSignedCount = !strCount.starts_with('u');
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

// The library takes places in pictures to be there for all corners and no others.
class PlyFace {
 public:
  void Add(const PlyProperty& zProperty, uint64_t nValues) {
    if (zProperty.m_strName == "vertex_indices" || zProperty.m_strName == "vertex_index") m_nCorners = nValues;
    if (zProperty.m_strName == "texcoord") m_nTexture = nValues;
  }
  void Check() const {
    if (m_nTexture > 2 * m_nCorners) throw KivSceneError("a face has more places in pictures than corners");
  }

 private:
  uint64_t m_nCorners = 0;
  uint64_t m_nTexture = 0;  // two for each corner
};

// Every value must be there, those of an entry on a line of its own.
void CheckTextPly(const PlyHeader& zHeader, std::string_view strText) {
  for (const PlyElement& zElement : zHeader.m_vzElement)
    for (uint64_t i = 0; i < zElement.m_nEntries; ++i) {
      std::string_view strLine, strRest;
      do {
        if (strText.empty()) RefusePly();
        strRest = strLine = TakeLine(strText);
      } while (TakeWord(strRest).empty());
      PlyFace zFace;
      for (const PlyProperty& zProperty : zElement.m_vzProperty) {
        const std::string_view strWord = TakeWord(strLine);
        if (strWord.empty()) RefusePly();
        const int64_t nValues = zProperty.m_bList ? WholePlyNumber(strWord) : 0;
        if (nValues < 0) throw KivSceneError("a list of it has a count below 0");
        if (zProperty.m_bList) zFace.Add(zProperty, static_cast<uint64_t>(nValues));
        for (int64_t iValue = 0; iValue < nValues; ++iValue) {
          const std::string_view strValue = TakeWord(strLine);
          if (strValue.empty()) RefusePly();
          if (!zProperty.m_bFloat) WholePlyNumber(strValue);
        }
      }
      zFace.Check();
      if (!TakeWord(strLine).empty()) throw KivSceneError("a line of it has more numbers than its header announces");
    }
}

// What the library would take for zeros, pass over, or write into the room of another element.
void CheckPlyHeader(const PlyHeader& zHeader) {
  size_t nVertexElements = 0, nFaceElements = 0;
  for (const PlyElement& zElement : zHeader.m_vzElement) {
    const bool bStrips = zElement.m_strName == "tristrips";
    if (zElement.m_strName == "vertex") ++nVertexElements;
    if (zElement.m_strName == "face" || bStrips) ++nFaceElements;
    if (nVertexElements > 1 || nFaceElements > 1)
      throw KivSceneError("its header is damaged: it has more than one element of vertices or of faces");
    if (zElement.m_nEntries == 0) continue;
    if (bStrips) throw KivSceneError("strips of triangles in a PLY are not read");
    if (zElement.m_vzProperty.empty()) throw KivSceneError("its header is damaged: an element has no property");
    std::string strPlaces;
    for (const PlyProperty& z : zElement.m_vzProperty) {
      if (z.m_nBytes == 0 || (z.m_bList && (z.m_nCountBytes == 0 || z.m_bFloatCount)))
        throw KivSceneError("its header is damaged: a property has no type that is known");
      if (!z.m_bList && (z.m_strName == "x" || z.m_strName == "y" || z.m_strName == "z")) strPlaces += z.m_strName;
    }
    std::sort(strPlaces.begin(), strPlaces.end());
    if (zElement.m_strName == "vertex" && strPlaces != "xyz")
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
    for (uint64_t i = 0; i < zElement.m_nEntries; ++i) {
      PlyFace zFace;
      for (const PlyProperty& zProperty : zElement.m_vzProperty) {
        uint64_t nValues = 1;
        if (zProperty.m_bList) {
          if (strBytes.size() < zProperty.m_nCountBytes) RefusePly();
          nValues = TakePlyCount(zHeader, zProperty, strBytes);
          if (zProperty.m_bSignedCount && nValues >> (8 * zProperty.m_nCountBytes - 1) != 0)
            throw KivSceneError("a list of it has a count below 0");
          strBytes.remove_prefix(zProperty.m_nCountBytes);
          zFace.Add(zProperty, nValues);
        }
        if (nValues > strBytes.size() / zProperty.m_nBytes) RefusePly();
        strBytes.remove_prefix(nValues * zProperty.m_nBytes);
      }
      zFace.Check();
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

// Ends as those of any system.
std::string_view TakeObjLine(std::string_view& strText) {
  const size_t n = std::min(strText.find_first_of("\r\n"), strText.size());
  const std::string_view strLine = strText.substr(0, n);
  strText.remove_prefix(n);
  strText.remove_prefix(strText.starts_with("\r\n") ? 2 : strText.empty() ? 0 : 1);
  return strLine;
}

// The words of a statement, without its comment. A line that ends with a backslash goes on in the next one.
void TakeObjStatement(std::string_view& strText, std::vector<std::string_view>& vstrWord) {
  vstrWord.clear();
  std::string_view strLine = TakeObjLine(strText);
  for (std::string_view strWord = TakeWord(strLine); !strWord.empty(); strWord = TakeWord(strLine)) {
    if (strWord.starts_with('#')) return;
    const bool bGoesOn = strWord.ends_with('\\');
    if (bGoesOn) strWord.remove_suffix(1);
    if (!strWord.empty()) vstrWord.push_back(strWord);
    if (bGoesOn) strLine = TakeObjLine(strText);
  }
}

bool IsDecimal(std::string_view strWord) {
  if (strWord.starts_with('+')) strWord.remove_prefix(1);
  double dNumber = 0;
  const auto [pEnd, iError] = std::from_chars(strWord.data(), strWord.data() + strWord.size(), dNumber);
  return iError != std::errc::invalid_argument && pEnd == strWord.data() + strWord.size();
}

// The library drops a vertex with other numbers, so that all later ones have other indices, and makes a line of a face
// with two corners.
void CheckObjStatement(const std::vector<std::string_view>& vstrWord) {
  if (vstrWord.empty()) return;
  const size_t nWords = vstrWord.size() - 1;
  if (vstrWord[0] == "f" && nWords < 3)
    throw KivSceneError("a face has fewer than three corners: the file is cut or damaged");
  if (vstrWord[0] == "v" &&
      ((nWords != 3 && nWords != 4 && nWords != 6) || !std::all_of(vstrWord.begin() + 1, vstrWord.end(), IsDecimal)))
    throw KivSceneError("a vertex has not three, four or six numbers");
}

// The number of the normal that a corner names, from 1 on or from -1 back; 0 for none. "1//3" or "1/2/3".
int64_t NormalOf(std::string_view strCorner) {
  for (int iPart = 0; iPart < 2; ++iPart) {
    const size_t i = strCorner.find('/');
    if (i == std::string_view::npos) return 0;
    strCorner.remove_prefix(i + 1);
  }
  int64_t iNormal = 0;
  std::from_chars(strCorner.data(), strCorner.data() + strCorner.size(), iNormal);
  return iNormal;
}

// Of a mesh with a normal that does not exist the library drops all normals, without a word.
class ObjNormals {
 public:
  void Add(const std::vector<std::string_view>& vstrWord) {
    if (vstrWord.empty()) return;
    if (vstrWord[0] == "vn") ++m_nNormals;
    if (vstrWord[0] != "f") return;
    for (size_t i = 1; i < vstrWord.size(); ++i) {
      const int64_t iNormal = NormalOf(vstrWord[i]);
      m_iLast = std::max(m_iLast, iNormal);
      m_bBefore = m_bBefore || iNormal < -m_nNormals;
    }
  }
  bool AllExist() const { return m_iLast <= m_nNormals && !m_bBefore; }

 private:
  int64_t m_nNormals = 0;
  int64_t m_iLast = 0;     // the greatest number that is named
  bool m_bBefore = false;  // one before the first is named
};

void CheckObj(std::string_view strText, std::vector<std::string>& vstrWarning) {
  if (strText.starts_with("\xFE\xFF") || strText.starts_with("\xFF\xFE"))
    throw KivSceneError("an OBJ with two bytes for each character is not read");
  if (strText.find('\0') != std::string_view::npos) throw KivSceneError("it is no OBJ file");
  ObjNormals zNormals;
  for (std::vector<std::string_view> vstrWord; !strText.empty();) {
    TakeObjStatement(strText, vstrWord);
    CheckObjStatement(vstrWord);
    zNormals.Add(vstrWord);
  }
  if (!zNormals.AllExist())
    vstrWarning.push_back("faces name normals that do not exist: those of their meshes are left out");
}

}  // namespace

void KivCheckMeshBytes(const KivMeshFormat& zFormat, std::vector<uint8_t>& vcBytes,
                       std::vector<std::string>& vstrWarning) {
  const std::string_view strSuffix = zFormat.m_szSuffix;
  if (strSuffix == "stl") CheckStl(vcBytes);
  const std::string_view strText(reinterpret_cast<const char*>(vcBytes.data()), vcBytes.size());
  if (strSuffix == "ply") CheckPly(strText);
  if (strSuffix == "obj") CheckObj(strText, vstrWarning);
  if (strSuffix == "gltf" || strSuffix == "glb") KivCheckGltf(zFormat, vcBytes, vstrWarning);
}

}  // namespace kiv
