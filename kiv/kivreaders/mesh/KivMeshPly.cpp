// PLY: what its header announces is there, in a form that the library of formats takes.
#include <algorithm>
#include <charconv>
#include <limits>
#include <string>
#include <string_view>
#include <utility>

#include "KivMeshSource.h"
#include "KivMeshWords.h"
#include "KivSceneReader.h"

namespace kiv {
namespace {

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

std::string_view TakeLine(std::string_view& strText) {
  const size_t n = std::min(strText.find('\n'), strText.size());
  const std::string_view strLine = strText.substr(0, n);
  strText.remove_prefix(std::min(n + 1, strText.size()));
  return strLine;
}

struct PlyProperty {
  std::string_view m_strLine;  // its types and its name
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
  std::string_view m_strBytes;  // of all its entries
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
  z.m_strLine = strLine;
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
  bool bForm = false;
  for (;;) {
    if (strText.empty()) throw KivSceneError("the file is cut: its header has no end");
    std::string_view strLine = TakeLine(strText);
    const std::string_view strWord = TakeWord(strLine);
    if (strWord == "end_header") {
      if (!bForm) throw KivSceneError("its header is damaged: it tells no form that is known");
      return zHeader;
    }
    if (strWord == "format") {
      const std::string_view strForm = TakeWord(strLine);
      zHeader.m_bText = strForm == "ascii";
      zHeader.m_bBigEndian = strForm == "binary_big_endian";
      bForm = zHeader.m_bText || zHeader.m_bBigEndian || strForm == "binary_little_endian";
    }
    if (strWord == "element") {
      const std::string_view strName = TakeWord(strLine);
      const std::string_view strCount = TakeWord(strLine);
      uint64_t nEntries = 0;
      const auto [pEnd, iError] = std::from_chars(strCount.data(), strCount.data() + strCount.size(), nEntries);
      if (iError == std::errc::result_out_of_range) RefusePly();
      if (iError != std::errc()) throw KivSceneError("its header is damaged");
      zHeader.m_vzElement.push_back({strName, nEntries, {}, {}});
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

// A component of one. Such a one of no length is written as no number by some.
bool IsNormal(const PlyProperty& z) {
  return !z.m_bList && z.m_bFloat && (z.m_strName == "nx" || z.m_strName == "ny" || z.m_strName == "nz");
}

// Every value must be there, those of an entry on a line of its own.
void CheckTextPly(PlyHeader& zHeader, std::string_view strText, std::vector<uint8_t>& vcBytes) {
  for (PlyElement& zElement : zHeader.m_vzElement) {
    zElement.m_strBytes = strText;
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
        if (IsNormal(zProperty) && IsNoNumber(strWord))
          std::fill_n(vcBytes.begin() + (strWord.data() - TextOf(vcBytes).data()), strWord.size(), uint8_t{'0'});
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
    zElement.m_strBytes.remove_suffix(strText.size());
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
void CheckBinaryPly(PlyHeader& zHeader, std::string_view strBytes) {
  for (PlyElement& zElement : zHeader.m_vzElement) {
    zElement.m_strBytes = strBytes;
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
    zElement.m_strBytes.remove_suffix(strBytes.size());
  }
}

// Each entry of an element takes a byte at least.
PlyHeader CheckPly(std::vector<uint8_t>& vcBytes) {
  std::string_view strText = TextOf(vcBytes);
  if (!strText.starts_with("ply")) throw KivSceneError("it is no PLY file");
  PlyHeader zHeader = TakePlyHeader(strText);
  uint64_t nEntries = 0;
  for (const PlyElement& zElement : zHeader.m_vzElement) {
    if (zElement.m_nEntries > strText.size()) RefusePly();
    nEntries += zElement.m_nEntries;
  }
  if (nEntries > strText.size()) RefusePly();
  CheckPlyHeader(zHeader);
  if (zHeader.m_bText)
    CheckTextPly(zHeader, strText, vcBytes);
  else
    CheckBinaryPly(zHeader, strText);
  return zHeader;
}

// The elements that the library reads, vertices first, since it goes by their order. What else says something of the
// mesh is a warning.
std::vector<const PlyElement*> KeptElements(const PlyHeader& zHeader, std::vector<std::string>& vstrWarning) {
  std::vector<const PlyElement*> vpzKept;
  for (const char* szKept : {"vertex", "face", "material"})
    for (const PlyElement& z : zHeader.m_vzElement)
      if (z.m_strName == szKept) vpzKept.push_back(&z);
  // Which material is which face's the library does not look at.
  if (!vpzKept.empty() && vpzKept.back()->m_strName == "material" && vpzKept.back()->m_nEntries > 1) {
    vstrWarning.push_back("materials of single faces are left out");
    vpzKept.pop_back();
  }
  for (const PlyElement& zElement : zHeader.m_vzElement) {
    if (zElement.m_strName == "edge" && zElement.m_nEntries > 0) vstrWarning.push_back("edges are left out");
    if (zElement.m_strName != "face") continue;
    for (const PlyProperty& z : zElement.m_vzProperty)
      if (z.m_strName == "red" || z.m_strName == "diffuse_red") {
        vstrWarning.push_back("colours of single faces are left out");
        break;
      }
  }
  return vpzKept;
}

// Colours of vertices have two names.
std::string PropertyLine(const PlyElement& zElement, const PlyProperty& z) {
  constexpr std::string_view kDiffuse = "diffuse_";
  std::string strLine = "property" + std::string(z.m_strLine);
  while (!strLine.empty() && IsBlank(strLine.back())) strLine.pop_back();
  if (zElement.m_strName == "vertex" && z.m_strName.starts_with(kDiffuse))
    strLine.replace(strLine.rfind(kDiffuse), kDiffuse.size(), "");
  return strLine + "\n";
}

// Without comments, which may stand where the library does not look for them.
std::vector<uint8_t> WritePly(const PlyHeader& zHeader, const std::vector<const PlyElement*>& vpzElement) {
  std::string strHeader = "ply\nformat ";
  strHeader += zHeader.m_bText ? "ascii" : zHeader.m_bBigEndian ? "binary_big_endian" : "binary_little_endian";
  strHeader += " 1.0\n";
  size_t nBytes = 0;
  for (const PlyElement* const pz : vpzElement) {
    strHeader += "element " + std::string(pz->m_strName) + " " + std::to_string(pz->m_nEntries) + "\n";
    for (const PlyProperty& z : pz->m_vzProperty) strHeader += PropertyLine(*pz, z);
    nBytes += pz->m_strBytes.size() + 1;
  }
  // The library passes a line end behind the header whatever ends it, so that a value that begins like one would be
  // lost.
  strHeader += zHeader.m_bText ? "end_header\n" : "end_header\r\n";
  std::vector<uint8_t> vcBytes;
  vcBytes.reserve(strHeader.size() + nBytes);
  vcBytes.assign(strHeader.begin(), strHeader.end());
  for (const PlyElement* const pz : vpzElement) {
    vcBytes.insert(vcBytes.end(), pz->m_strBytes.begin(), pz->m_strBytes.end());
    if (zHeader.m_bText) vcBytes.push_back('\n');
  }
  if (zHeader.m_bText) std::replace(vcBytes.begin(), vcBytes.end(), uint8_t{'\r'}, uint8_t{' '});
  return vcBytes;
}

}  // namespace

void KivPreparePly(std::vector<uint8_t>& vcBytes, std::vector<std::string>& vstrWarning) {
  PassUtf8Mark(vcBytes);
  EndPlyLines(vcBytes);
  const PlyHeader zHeader = CheckPly(vcBytes);
  vcBytes = WritePly(zHeader, KeptElements(zHeader, vstrWarning));
}

}  // namespace kiv
