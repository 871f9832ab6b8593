#include <cerrno>
#include <charconv>
#include <cstdlib>

#include "DorAnswerForm.h"
#include "DorClient.h"
#include "KivSysTextExact.h"

namespace kiv {
namespace {

std::vector<std::string> Split(const std::string& strText, char cSeparator) {
  std::vector<std::string> vstrParts(1);
  for (char c : strText)
    if (c == cSeparator) {
      vstrParts.emplace_back();
    } else {
      vstrParts.back() += c;
    }
  return vstrParts;
}

bool PutInteger(const std::string& strWord, KivByteBuffer& vcPayload) {
  int64_t iValue = 0;
  const char* pEnd = strWord.data() + strWord.size();
  const auto [p, iError] = std::from_chars(strWord.data(), pEnd, iValue);
  if (iError != std::errc() || p != pEnd) return false;
  KivPutInt64(vcPayload, iValue);
  return true;
}

bool PutFloat(const std::string& strWord, KivByteBuffer& vcPayload) {
  double dValue = 0;
  const char* pEnd = strWord.data() + strWord.size();
  const auto [p, iError] = std::from_chars(strWord.data(), pEnd, dValue);
  if (iError != std::errc() || p != pEnd) return false;
  KivPutDouble(vcPayload, dValue);
  return true;
}

bool PutFloats(const std::string& strWord, size_t nFloats, KivByteBuffer& vcPayload) {
  const std::vector<std::string> vstrParts = Split(strWord, ',');
  if (vstrParts.size() != nFloats) return false;
  for (const std::string& strPart : vstrParts)
    if (!PutFloat(strPart, vcPayload)) return false;
  return true;
}

bool ReadHex(const std::string& strWord, KivByteBuffer& vcBytes) {
  if (strWord.size() % 2 != 0) return false;
  for (size_t i = 0; i < strWord.size(); i += 2) {
    uint8_t iByte = 0;
    const auto [p, iError] = std::from_chars(strWord.data() + i, strWord.data() + i + 2, iByte, 16);
    if (iError != std::errc() || p != strWord.data() + i + 2) return false;
    vcBytes.push_back(iByte);
  }
  return true;
}

bool PutCurve(const std::string& strWord, KivByteBuffer& vcPayload) {
  if (strWord.starts_with("line:")) {
    KivPutInt64(vcPayload, 0);
    return PutFloats(strWord.substr(5), 6, vcPayload);
  }
  KivByteBuffer vcBlock;
  if (!strWord.starts_with("block:") || !ReadHex(strWord.substr(6), vcBlock) || vcBlock.empty()) return false;
  KivPutInt64(vcPayload, 1);
  KivPutInt64(vcPayload, static_cast<int64_t>(vcBlock.size()));
  KivPutBlock(vcPayload, vcBlock.data(), vcBlock.size());
  return true;
}

const char* WordOf(char cKind) {
  switch (cKind) {
    case 'i':
      return "INT";
    case 'f':
      return "NUMBER";
    case 's':
      return "TEXT";
    case 'c':
      return "X,Y,Z";
    case 'k':
      return "CURVE";
    case 'n':
      return "CURVE [CURVE]";
    case 't':
      return "[HEX]";
    default:
      return "";
  }
}

}  // namespace

std::string DorDescribeForm(const DorRequestRow& zRow) {
  std::string strText;
  const auto Append = [&](const std::string& strWord) { strText += (strText.empty() ? "" : " ") + strWord; };
  if (const DorForm* pzFields = DorFieldsOf(zRow)) {
    for (const DorField& z : *pzFields)
      Append(z.m_strName + (z.m_nTimes > 1 ? "*" + std::to_string(z.m_nTimes) : z.m_cKind == 'c' ? "=X,Y,Z" : ""));
    return strText;
  }
  for (const char* p = zRow.m_szForm; *p != '\0'; ++p)
    if (*p != 'm') Append(WordOf(*p));
  return strText;
}

bool DorBuildPayload(const DorRequestRow& zRow, int64_t iModel, const std::vector<std::string>& vstrWords,
                     KivByteBuffer& vcPayload, std::string& strError) {
  vcPayload.clear();
  size_t iWord = 0;
  for (const char* p = zRow.m_szForm; *p != '\0'; ++p) {
    if (*p == 'm') {
      KivPutInt64(vcPayload, iModel);
      continue;
    }
    if (*p == 't') {
      if (iWord == vstrWords.size()) continue;
      if (!ReadHex(vstrWords[iWord++], vcPayload)) {
        strError = "the tail is no hex";
        return false;
      }
      continue;
    }
    if (iWord == vstrWords.size()) {
      strError = "too few arguments; expected: " + DorDescribeForm(zRow);
      return false;
    }
    const std::string strWord = vstrWords[iWord++];
    bool bGood = false;
    switch (*p) {
      case 'i':
        bGood = PutInteger(strWord, vcPayload);
        break;
      case 'f':
        bGood = PutFloat(strWord, vcPayload);
        break;
      case 'c':
        bGood = PutFloats(strWord, 3, vcPayload);
        break;
      case 'k':
        bGood = PutCurve(strWord, vcPayload);
        break;
      case 's':
        KivPutString(vcPayload, sys::ExactToWide(strWord));
        bGood = true;
        break;
      case 'n': {
        const bool bTwo = iWord < vstrWords.size();
        KivPutInt64(vcPayload, bTwo ? 2 : 1);
        bGood = PutCurve(strWord, vcPayload) && (!bTwo || PutCurve(vstrWords[iWord++], vcPayload));
        break;
      }
      default:
        break;
    }
    if (!bGood) {
      strError = "'" + strWord + "' is no " + WordOf(*p);
      return false;
    }
  }
  if (iWord == vstrWords.size()) return true;
  strError = "too many arguments; expected: " + DorDescribeForm(zRow);
  return false;
}

}  // namespace kiv
