#include "DorAnswerText.h"

#include <algorithm>
#include <cstdio>

#include "KivSysClock.h"
#include "KivSysFolder.h"
#include "KivSysTextExact.h"

namespace kiv {
namespace {

constexpr const char* kPrefix = "DorHandler_";
constexpr size_t kShownBytes = 256;
constexpr size_t kShownItems = 1000;  // of a list

std::string Number(double d) {
  char acText[32];
  std::snprintf(acText, sizeof acText, "%.9g", d);
  return acText;
}

std::string Numbers(const DorValue& z) {
  std::string strText;
  for (size_t i = 0; i < z.m_vdFloat.size(); ++i)
    strText += (i == 0 ? "" : i % 4 == 0 && z.m_vdFloat.size() == 16 ? " | " : " ") + Number(z.m_vdFloat[i]);
  return strText;
}

// Names may come from anywhere.
std::string Quoted(const KivWString& csText) {
  std::string strText = "\"";
  for (const char c : KivShown(csText)) strText += c == '"' ? "\\\"" : std::string(1, c);
  return strText + "\"";
}

std::string Scalar(const DorValue& z) {
  switch (z.m_pzField->m_cKind) {
    case 's':
      return Quoted(z.m_csText);
    case 'i': {
      std::string strText;
      for (const int64_t i : z.m_viInteger) strText += (strText.empty() ? "" : " ") + std::to_string(i);
      return strText;
    }
    default:
      return Numbers(z);
  }
}

bool IsList(const DorValue& z) {
  return z.m_pzField->m_cKind == 'l';
}

// A list whose items are one plain value each takes one line.
void AppendPlainItems(const DorValue& zList, std::string& strText) {
  const size_t nShown = std::min(zList.m_nItems, kShownItems);
  for (size_t i = 0; i < nShown; ++i) strText += (i == 0 ? "" : ", ") + Scalar(zList.Item(i)[0]);
  if (nShown < zList.m_nItems) strText += ", ...";
  strText += '\n';
}

void AppendItems(const DorValue& zList, size_t nBlanks, std::string& strText);

void AppendList(const DorValue& zList, size_t nBlanks, std::string& strText) {
  const std::vector<DorField>& vzItem = zList.m_pzField->m_vzItem;
  strText += std::string(nBlanks, ' ') + zList.m_pzField->m_strName + ": ";
  if (zList.m_nItems == 0) {
    strText += "none\n";
  } else if (vzItem.size() == 1 && vzItem[0].m_cKind != 'l') {
    AppendPlainItems(zList, strText);
  } else {
    strText += std::to_string(zList.m_nItems) + "\n";
    AppendItems(zList, nBlanks + 2, strText);
  }
}

// The plain values of an item on one line, its lists below.
void AppendItems(const DorValue& zList, size_t nBlanks, std::string& strText) {
  for (size_t i = 0; i < zList.m_nItems; ++i) {
    if (i == kShownItems) {
      strText += std::string(nBlanks, ' ') + "...\n";
      return;
    }
    const std::vector<DorValue> vzItem = zList.Item(i);
    std::string strLine;
    for (const DorValue& z : vzItem)
      if (!IsList(z)) strLine += (strLine.empty() ? "" : ", ") + z.m_pzField->m_strName + " " + Scalar(z);
    strText += std::string(nBlanks, ' ') + "- " + strLine + "\n";
    for (const DorValue& z : vzItem)
      if (IsList(z) && z.m_nItems != 0) AppendList(z, nBlanks + 4, strText);
  }
}

std::string Hex(const KivByteBuffer& vcBytes) {
  std::string strHex;
  char acByte[3];
  for (size_t i = 0; i < vcBytes.size() && i < kShownBytes; ++i) {
    std::snprintf(acByte, sizeof acByte, "%02x", vcBytes[i]);
    strHex += acByte;
  }
  return strHex + (vcBytes.size() > kShownBytes ? "..." : "");
}

// Visits the words that are texts, and whether they are paths.
template <typename Words, typename Visit>
void ForTexts(const DorRequestRow& zRow, Words& vstrWords, Visit&& pfnVisit) {
  const DorForm* pzFields = DorFieldsOf(zRow);
  if (pzFields == nullptr) return;
  size_t iWord = 0;
  for (const DorField& zField : *pzFields) {
    if (iWord < vstrWords.size() && zField.m_cKind == 's') pfnVisit(vstrWords[iWord], zField.m_strName == "path");
    iWord += zField.m_nTimes;
  }
}

std::vector<std::string> WithAbsolutePaths(const DorRequestRow& zRow, std::vector<std::string> vstrWords) {
  ForTexts(zRow, vstrWords, [](std::string& strWord, bool bPath) {
    if (bPath && !strWord.empty()) strWord = sys::WideToExact(DorAbsolutePath(sys::ExactToWide(strWord)));
  });
  return vstrWords;
}

}  // namespace

const DorRequestRow* DorFindCallable(const std::string& strName) {
  const DorRequestRow* pzRow = DorFindRequest(sys::Utf8ToWide(strName));
  if (pzRow == nullptr) pzRow = DorFindRequest(sys::Utf8ToWide(kPrefix + strName));
  return pzRow != nullptr && pzRow->m_iFamily == DorRequestFamily::Forward ? pzRow : nullptr;
}

bool DorTextsAreWellFormed(const DorRequestRow& zRow, const std::vector<std::string>& vstrWords) {
  bool bGood = true;
  ForTexts(zRow, vstrWords, [&](const std::string& strWord, bool bPath) {
    if (!bPath && !sys::IsWellFormed(sys::ExactToWide(strWord))) bGood = false;
  });
  return bGood;
}

DorSpoken DorCallByName(DorClient& zClient, int64_t iModel, const std::string& strName,
                        const std::vector<std::string>& vstrWords) {
  DorSpoken z;
  z.m_pzRow = DorFindCallable(strName);
  if (z.m_pzRow == nullptr) throw DorWordError("the relay serves no request '" + strName + "'");
  KivByteBuffer vcPayload;
  std::string strError;
  if (!DorBuildPayload(*z.m_pzRow, iModel, WithAbsolutePaths(*z.m_pzRow, vstrWords), vcPayload, strError))
    throw DorWordError(strName + ": " + strError);
  if (!DorTextsAreWellFormed(*z.m_pzRow, vstrWords)) throw DorWordError(strName + ": " + kDorIllFormed);
  if (DorHasZeroInText(*z.m_pzRow, vcPayload)) throw DorWordError(strName + ": a text has a zero in it");
  const KivWString csRequest(z.m_pzRow->m_csName);
  const uint64_t iStart = sys::SteadyNs();
  z.m_zAnswer = zClient.Call(csRequest, vcPayload);
  z.m_dMilliseconds = static_cast<double>(sys::SteadyNs() - iStart) / 1e6;
  z.m_bDecoded =
      z.m_zAnswer.m_iStatus == kDorStatusServed && DorDecodeAnswer(*z.m_pzRow, z.m_zAnswer.m_vcResult, z.m_zDecoded);
  return z;
}

const char* DorStatusText(int32_t iStatus) {
  switch (iStatus) {
    case kDorStatusReading:
      return "the model is still being read";
    case kDorStatusServed:
      return "served";
    case kDorStatusNoChild:
      return "no handler is there";
    case kDorStatusReadFailed:
      return "the model could not be read";
    case kDorStatusExchangeFailed:
      return "the exchange with the handler failed";
    case kDorStatusRefused:
      return "the handler refused";
    default:
      return "the handler's own status";
  }
}

std::string DorValuesText(const std::vector<DorValue>& vzValue, size_t nBlanks) {
  std::string strText;
  for (const DorValue& z : vzValue) {
    if (IsList(z))
      AppendList(z, nBlanks, strText);
    else
      strText += std::string(nBlanks, ' ') + z.m_pzField->m_strName + ": " + Scalar(z) + "\n";
  }
  return strText;
}

std::string DorAnswerText(const DorSpoken& zSpoken) {
  char acTime[32];
  std::snprintf(acTime, sizeof acTime, "%.3f ms", zSpoken.m_dMilliseconds);
  const DorAnswer& zAnswer = zSpoken.m_zAnswer;
  std::string strText = sys::WideToUtf8(zSpoken.m_pzRow->m_csName) + ": " + DorStatusText(zAnswer.m_iStatus) +
                        " (status " + std::to_string(zAnswer.m_iStatus) + "), " +
                        std::to_string(zAnswer.m_vcResult.size()) + " bytes, " + acTime + "\n";
  if (!zSpoken.m_bDecoded) {
    if (!zAnswer.m_vcResult.empty()) strText += "  " + Hex(zAnswer.m_vcResult) + "\n";
  } else if (zSpoken.m_zDecoded.m_iCode != 0) {
    strText += "  code " + std::to_string(zSpoken.m_zDecoded.m_iCode) + ", " +
               DorAnswerCodeText(zSpoken.m_zDecoded.m_iCode) + ": " + KivShown(zSpoken.m_zDecoded.m_csReason) + "\n";
  } else {
    strText += DorValuesText(zSpoken.m_zDecoded.m_vzValue, 2);
  }
  return strText;
}

bool DorSplitWords(const std::string& strLine, std::vector<std::string>& vstrWords, std::string& strError) {
  vstrWords.clear();
  std::string strWord;
  bool bWord = false;
  char cQuote = '\0';
  for (size_t i = 0; i < strLine.size(); ++i) {
    const char c = strLine[i];
    if (cQuote != '\0') {
      if (c == cQuote)
        cQuote = '\0';
      else if (c == '\\' && cQuote == '"' && i + 1 < strLine.size())
        strWord += strLine[++i];
      else
        strWord += c;
    } else if (c == ' ' || c == '\t' || c == '\r' || c == '\n') {
      if (bWord) vstrWords.push_back(strWord);
      strWord.clear();
      bWord = false;
    } else if (c == '#' && !bWord) {
      return true;
    } else {
      bWord = true;
      if (c == '\'' || c == '"')
        cQuote = c;
      else if (c == '\\' && i + 1 < strLine.size())
        strWord += strLine[++i];
      else
        strWord += c;
    }
  }
  if (cQuote != '\0') {
    strError = "a quote does not end";
    return false;
  }
  if (bWord) vstrWords.push_back(strWord);
  return true;
}

}  // namespace kiv
