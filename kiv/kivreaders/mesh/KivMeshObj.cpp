// OBJ: statements that the library of formats takes as they are meant.
#include <algorithm>
#include <charconv>
#include <string>
#include <string_view>

#include "KivMeshSource.h"
#include "KivMeshWords.h"
#include "KivSceneReader.h"

namespace kiv {
namespace {

// A backslash at the end of a comment would take the next line into it.
void EndObjComments(std::vector<uint8_t>& vcBytes) {
  bool bBegin = true, bComment = false;
  for (size_t i = 0; i < vcBytes.size(); ++i) {
    const uint8_t c = vcBytes[i];
    if ((c == '\n' || c == '\r')) {
      bBegin = true;
      bComment = false;
    } else if (bBegin && !IsBlank(c)) {
      bBegin = false;
      bComment = c == '#';
    }
    if (bComment && c == '\\' && (i + 1 == vcBytes.size() || vcBytes[i + 1] == '\n' || vcBytes[i + 1] == '\r'))
      vcBytes[i] = ' ';
  }
}

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

void KivPrepareObj(std::vector<uint8_t>& vcBytes, std::vector<std::string>& vstrWarning) {
  PassUtf8Mark(vcBytes);
  EndObjComments(vcBytes);
  CheckObj(TextOf(vcBytes), vstrWarning);
}

}  // namespace kiv
