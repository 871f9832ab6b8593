// OBJ: the statements that are read, anew in the form that the library of formats surely takes: one blank between
// words, no comments and continued lines, numbers with a digit before the point, names in one word, and indices from 1
// on.
#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <string>
#include <string_view>

#include "KivMeshNames.h"
#include "KivMeshSource.h"
#include "KivMeshWords.h"
#include "KivSceneReader.h"

namespace kiv {
namespace {

constexpr const char* kNoVertex = "a face names a vertex that does not exist";

// Ends as those of any system.
std::string_view TakeObjLine(std::string_view& strText) {
  size_t n = 0;
  while (n < strText.size() && strText[n] != '\n' && strText[n] != '\r') ++n;
  const std::string_view strLine = strText.substr(0, n);
  strText.remove_prefix(n);
  strText.remove_prefix(strText.starts_with("\r\n") ? 2 : strText.empty() ? 0 : 1);
  return strLine;
}

// The words of a statement, without its comment. A line that ends with a backslash goes on in the next one.
class Statement {
 public:
  explicit Statement(std::string_view& strText) : m_strText(strText), m_strLine(TakeObjLine(strText)) {}

  // Empty at the end.
  std::string_view Next() {
    for (;;) {
      std::string_view strWord = TakeWord(m_strLine);
      if (strWord.starts_with('#')) m_strLine = strWord = {};
      if (!strWord.ends_with('\\') || !IsAllBlank(m_strLine)) return strWord;
      m_strLine = TakeObjLine(m_strText);
      strWord.remove_suffix(1);
      if (!strWord.empty()) return strWord;
    }
  }

  // What is left, with the blanks that stand within it.
  std::string Rest() {
    std::string strRest;
    for (;;) {
      std::string_view strLine = Trimmed(m_strLine);
      const bool bGoesOn = strLine.ends_with('\\') && !m_strText.empty();
      if (strLine.ends_with('\\')) strLine = Trimmed(strLine.substr(0, strLine.size() - 1));
      if (!strRest.empty() && !strLine.empty()) strRest += ' ';
      strRest += strLine;
      if (!bGoesOn) return std::string(KivNameWithoutComment(strRest));
      m_strLine = TakeObjLine(m_strText);
    }
  }

 private:
  static std::string_view Trimmed(std::string_view str) {
    while (!str.empty() && IsBlank(str.front())) str.remove_prefix(1);
    while (!str.empty() && IsBlank(str.back())) str.remove_suffix(1);
    return str;
  }
  static bool IsAllBlank(std::string_view str) { return std::all_of(str.begin(), str.end(), IsBlank); }

  std::string_view& m_strText;
  std::string_view m_strLine;
};

// "-12.5": up to 15 digits before the point, and nothing that the library reads in another way or not at all.
bool IsPlain(std::string_view strNumber) {
  const auto PassDigits = [&strNumber] {
    size_t n = 0;
    while (n < strNumber.size() && strNumber[n] >= '0' && strNumber[n] <= '9') ++n;
    strNumber.remove_prefix(n);
    return n;
  };
  if (strNumber.starts_with('-')) strNumber.remove_prefix(1);
  const size_t nDigits = PassDigits();
  if (nDigits == 0 || nDigits > 15) return false;
  if (strNumber.starts_with('.')) {
    strNumber.remove_prefix(1);
    PassDigits();
  }
  return strNumber.empty();
}

// False for a word that is no number; one that is too large is infinite.
bool TakeDecimal(std::string_view strWord, double& dNumber) {
  if (strWord.starts_with('+')) strWord.remove_prefix(1);
  const char* const pEnd = strWord.data() + strWord.size();
  const auto [pNumber, iError] = std::from_chars(strWord.data(), pEnd, dNumber);
  if (iError == std::errc::invalid_argument || pNumber != pEnd) return false;
  if (iError == std::errc::result_out_of_range) dNumber = std::strtod(std::string(strWord).c_str(), nullptr);
  return true;
}

// "3" or "-1", which is passed.
int64_t TakeIndex(std::string_view& strCorner) {
  if (strCorner.starts_with('+')) strCorner.remove_prefix(1);
  int64_t iIndex = 0;
  const auto [pEnd, iError] = std::from_chars(strCorner.data(), strCorner.data() + strCorner.size(), iIndex);
  if (iError == std::errc::result_out_of_range) throw KivSceneError(kNoVertex);
  if (iError != std::errc()) throw KivSceneError("a corner of a face is no number");
  strCorner.remove_prefix(static_cast<size_t>(pEnd - strCorner.data()));
  return iIndex;
}

bool TakeSlash(std::string_view& strCorner) {
  const bool bSlash = strCorner.starts_with('/');
  if (bSlash) strCorner.remove_prefix(1);
  return bSlash;
}

class Writer {
 public:
  Writer(std::string_view strText, bool bColours) : m_strText(strText), m_bColours(bColours) {
    m_vcOut.reserve(strText.size() + 256);
  }

  void Run() {
    while (!m_strText.empty()) Write();
    if (m_iLastVertex > m_nVertices) throw KivSceneError(kNoVertex);
    if (!m_bElements) throw KivSceneError("it holds no triangles and no lines");
  }

  std::vector<uint8_t>& Out() { return m_vcOut; }
  bool SomeHaveColours() const { return m_nColoured > 0 && m_nColoured < m_nVertices; }
  void AddWarnings(std::vector<std::string>& vstrWarning) const {
    if (m_bNoNormal || m_iLastNormal > m_nNormals)
      vstrWarning.push_back("faces name normals that do not exist: those of their meshes are left out");
    if (m_bFreeForm) vstrWarning.push_back("free-form curves and surfaces are left out");
    if (m_bCalls) vstrWarning.push_back("other files that the file calls are left out");
  }

 private:
  struct Corner {
    int64_t m_iVertex, m_iNormal;  // from 1 on; no normal: 0
  };

  void Write() {
    Statement zStatement(m_strText);
    const std::string_view strKind = zStatement.Next();
    if (strKind == "v") return WriteVertex(zStatement);
    if (strKind == "vn") return WriteNormal(zStatement);
    if (strKind == "f" || strKind == "fo") return WriteFace(zStatement);
    if (strKind == "l" || strKind == "p") return WriteLine(strKind, zStatement);
    if (strKind == "o" || strKind == "g") return WriteObject(strKind, zStatement.Rest());
    if (strKind == "usemtl") return UseMaterial(zStatement.Rest());
    if (strKind == "mtllib") return WriteLists(zStatement.Rest());
    for (const std::string_view strFreeForm : {"surf", "curv", "curv2", "bzp", "bsp", "cdc", "cdp"})
      if (strKind == strFreeForm) m_bFreeForm = true;
    if (strKind == "call") m_bCalls = true;
    while (!zStatement.Next().empty()) {
    }
  }

  void Add(std::string_view str) { m_vcOut.insert(m_vcOut.end(), str.begin(), str.end()); }
  template <typename T>
  void AddNumber(T number) {
    char szText[32];
    Add({szText, std::to_chars(szText, szText + sizeof szText, number).ptr});
  }
  void AddDecimal(std::string_view strWord, double dNumber) {
    Add(" ");
    if (IsPlain(strWord)) return Add(strWord);
    AddNumber(dNumber);
  }

  void WriteVertex(Statement& zStatement) {
    constexpr size_t kMost = 6;
    std::string_view strWord[kMost];
    double dNumber[kMost] = {};
    size_t n = 0;
    for (std::string_view str = zStatement.Next(); !str.empty(); str = zStatement.Next(), ++n) {
      if (n == kMost || (!IsPlain(str) && !TakeDecimal(str, dNumber[n]))) n = kMost + 1;
      if (n > kMost) break;
      if (!std::isfinite(dNumber[n])) throw KivSceneError("a coordinate is no number");
      strWord[n] = str;
    }
    if (n != 3 && n != 4 && n != 6) throw KivSceneError("a vertex has not three, four or six numbers");
    if (n == 4 && IsPlain(strWord[3])) TakeDecimal(strWord[3], dNumber[3]);
    if (n == 4 && dNumber[3] == 0) throw KivSceneError("a vertex has a weight of 0");
    Add("v");
    for (size_t i = 0; i < (n == 6 && !m_bColours ? 3 : n); ++i) AddDecimal(strWord[i], dNumber[i]);
    Add("\n");
    ++m_nVertices;
    if (n == 6) ++m_nColoured;
  }

  // One without a direction for what is none, so that the others keep their numbers.
  void WriteNormal(Statement& zStatement) {
    std::string_view strWord[3];
    double dNumber[3] = {};
    bool bSound = true;
    for (size_t i = 0; i < 3; ++i) {
      strWord[i] = zStatement.Next();
      bSound = bSound && (IsPlain(strWord[i]) || (TakeDecimal(strWord[i], dNumber[i]) && std::isfinite(dNumber[i])));
    }
    while (!zStatement.Next().empty()) {
    }
    Add("vn");
    for (size_t i = 0; i < 3; ++i) AddDecimal(bSound ? strWord[i] : "0", dNumber[i]);
    Add("\n");
    ++m_nNormals;
  }

  // Indices below zero count back from the last one before the statement.
  int64_t VertexOf(int64_t iIndex) {
    if (iIndex < 0) iIndex += m_nVertices + 1;
    if (iIndex <= 0) throw KivSceneError(kNoVertex);
    m_iLastVertex = std::max(m_iLastVertex, iIndex);
    return iIndex;
  }
  int64_t NormalOf(int64_t iIndex) {
    constexpr int64_t kNone = 2147483647;  // the library drops normals of a mesh that names one beyond the last
    if (iIndex < 0) iIndex += m_nNormals + 1;
    m_bNoNormal = m_bNoNormal || iIndex <= 0;
    if (iIndex > 0) m_iLastNormal = std::max(m_iLastNormal, iIndex);
    return iIndex > 0 ? std::min(iIndex, kNone) : kNone;
  }

  // "1", "1/2", "1//3", "1/2/3": of a vertex, a place in a picture, which is not used, and a normal.
  Corner TakeCorner(std::string_view strWord) {
    Corner z{VertexOf(TakeIndex(strWord)), 0};
    if (TakeSlash(strWord)) {
      if (!strWord.empty() && strWord.front() != '/') TakeIndex(strWord);
      if (TakeSlash(strWord) && !strWord.empty()) z.m_iNormal = NormalOf(TakeIndex(strWord));
    }
    if (!strWord.empty()) throw KivSceneError("a corner of a face is no number");
    return z;
  }

  void WriteFace(Statement& zStatement) {
    m_vzCorner.clear();
    for (std::string_view str = zStatement.Next(); !str.empty(); str = zStatement.Next())
      m_vzCorner.push_back(TakeCorner(str));
    if (m_vzCorner.size() < 3) throw KivSceneError("a face has fewer than three corners: the file is cut or damaged");
    const bool bNormals =
        std::none_of(m_vzCorner.begin(), m_vzCorner.end(), [](const Corner& z) { return z.m_iNormal == 0; });
    BeginElement("f");
    for (const Corner& z : m_vzCorner) {
      Add(" ");
      AddNumber(z.m_iVertex);
      if (!bNormals) continue;
      Add("//");
      AddNumber(z.m_iNormal);
    }
    Add("\n");
  }

  // Of points too.
  void WriteLine(std::string_view strKind, Statement& zStatement) {
    std::string_view str = zStatement.Next();
    if (str.empty()) return;
    BeginElement(strKind);
    for (; !str.empty(); str = zStatement.Next()) {
      Add(" ");
      AddNumber(TakeCorner(str).m_iVertex);
    }
    Add("\n");
  }

  // Names its material before the first element of an object and wherever it changes; the library would take the last
  // one of a list where there is none.
  void BeginElement(std::string_view strKind) {
    if (!m_bMaterialStands) WriteName("usemtl", m_strMaterial);
    m_bMaterialStands = m_bElements = true;
    Add(strKind);
  }

  // A number behind the name makes the library begin an object where it has one of that name.
  void WriteObject(std::string_view strKind, std::string strName) {
    if (strKind == "o" && strName.empty()) return;
    std::string strObject = std::string(strKind) + ' ' + strName;
    if (strObject == m_strObject) return;
    m_strObject = std::move(strObject);
    m_bMaterialStands = false;
    WriteName(strKind, strName, ++m_nObjects);
  }

  void UseMaterial(std::string strName) {
    if (m_bMaterialStands && strName == m_strMaterial) return;
    m_strMaterial = std::move(strName);
    m_bMaterialStands = false;
  }

  void WriteLists(const std::string& strNames) {
    if (!strNames.empty()) WriteName("mtllib", strNames);
  }

  void WriteName(std::string_view strKind, std::string_view strName, uint64_t iNumber = 0) {
    Add(strKind);
    Add(" ");
    strName = KivKeptName(strName);
    for (const char c : strName) m_vcOut.push_back(static_cast<uint8_t>(KivByteInName(c)));
    if (iNumber > 0 || strName.empty()) {
      m_vcOut.push_back(static_cast<uint8_t>(kNumberInName));
      AddNumber(iNumber);
    }
    Add("\n");
  }

  std::string_view m_strText;
  const bool m_bColours;  // of vertices are written
  std::vector<uint8_t> m_vcOut;
  std::vector<Corner> m_vzCorner;
  std::string m_strObject, m_strMaterial;  // the last ones
  uint64_t m_nObjects = 0;
  int64_t m_nVertices = 0, m_nColoured = 0, m_nNormals = 0;
  int64_t m_iLastVertex = 0, m_iLastNormal = 0;  // the greatest numbers that are named
  bool m_bNoNormal = false;                      // one before the first is named
  bool m_bMaterialStands = false;                // the last material is written, behind the last object
  bool m_bElements = false, m_bFreeForm = false, m_bCalls = false;
};

}  // namespace

void KivPrepareObj(std::vector<uint8_t>& vcBytes, std::vector<std::string>& vstrWarning) {
  std::string_view strText = TextOf(vcBytes);
  if (strText.starts_with("\xFE\xFF") || strText.starts_with("\xFF\xFE"))
    throw KivSceneError("an OBJ with two bytes for each character is not read");
  if (strText.find('\0') != std::string_view::npos) throw KivSceneError("it is no OBJ file");
  if (strText.starts_with("\xEF\xBB\xBF")) strText.remove_prefix(3);
  for (const bool bColours : {true, false}) {
    Writer zWriter(strText, bColours);
    zWriter.Run();
    // The library makes those black that have none.
    if (bColours && zWriter.SomeHaveColours()) continue;
    zWriter.AddWarnings(vstrWarning);
    if (zWriter.SomeHaveColours()) vstrWarning.push_back("colours of single vertices are left out");
    vcBytes.swap(zWriter.Out());
    return;
  }
}

}  // namespace kiv
