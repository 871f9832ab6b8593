// Answers for people, and requests by words: what a program needs that talks to its user.
#pragma once

#include <string>
#include <vector>

#include "DorAnswerForm.h"
#include "DorClient.h"

namespace kiv {

// The row of a request that a client may call by name; "DorHandler_" may be left out. Null for all others.
const DorRequestRow* DorFindCallable(const std::string& strName);

struct DorSpoken {
  const DorRequestRow* m_pzRow = nullptr;
  DorAnswer m_zAnswer;
  bool m_bDecoded = false;  // the result is an answer of the handler that keeps to its form
  DorDecodedAnswer m_zDecoded;
  double m_dMilliseconds = 0;

  bool IsGood() const { return m_zAnswer.m_iStatus == kDorStatusServed && (!m_bDecoded || m_zDecoded.m_iCode == 0); }
};

// Why a request by words was not sent; DorClient's own errors are its own.
class DorWordError : public std::runtime_error {
 public:
  explicit DorWordError(const std::string& strWhat) : std::runtime_error(strWhat), m_strText(strWhat) {}
  // The whole of it: what() ends at a zero, which a word of the user may hold.
  const std::string& GetText() const { return m_strText; }

 private:
  std::string m_strText;
};

// Words may be such as KivSysTextExact.h gives: paths are what they are, other texts must be well formed.
bool DorTextsAreWellFormed(const DorRequestRow& zRow, const std::vector<std::string>& vstrWords);
inline constexpr const char* kDorIllFormed = "a text is no UTF-8";

// Sends a request with the words of DorBuildPayload. A field "path" means this process's current folder. Throws
// DorWordError, and sends nothing, for a name that cannot be called or words that do not fit.
DorSpoken DorCallByName(DorClient& zClient, int64_t iModel, const std::string& strName,
                        const std::vector<std::string>& vstrWords);

// A line for the status: "the model is still being read".
const char* DorStatusText(int32_t iStatus);
// The whole answer, several lines, each with its end.
std::string DorAnswerText(const DorSpoken& zSpoken);
// A list of values as such lines, from so many blanks on.
std::string DorValuesText(const std::vector<DorValue>& vzValue, size_t nBlanks);

// Splits a line into words as a shell does: blanks separate, '...' and "..." hold them together, a backslash takes the
// sign behind it as it is (within '...' it is a sign like others), # at the start of a word begins a comment. False,
// with the reason, for a quote that does not end.
bool DorSplitWords(const std::string& strLine, std::vector<std::string>& vstrWords, std::string& strError);

}  // namespace kiv
