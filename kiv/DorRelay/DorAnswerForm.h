// What the fields of requests and answers are called, and answers taken apart by it.
//
// A form is a text: fields, separated by commas.
//   i NAME               integer              f NAME   float
//   s NAME               wide string          c NAME   coordinate, three floats
//   N i NAME, N f NAME   so many of them
//   list NAME (FIELDS)   an integer n, then n times the fields
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "DorRequests.h"
#include "KivByteBuffer.h"

namespace kiv {

struct DorField {
  char m_cKind = 'i';  // i, f, s, c; l for a list
  uint32_t m_nTimes = 1;
  std::string m_strName;
  std::vector<DorField> m_vzItem;  // of a list
};
using DorForm = std::vector<DorField>;

// Throws std::logic_error for a text that is no form.
DorForm DorParseForm(const char* szForm);
// The parsed forms of a row of the table, made once; null where the row has none. Not for several threads.
const DorForm* DorFieldsOf(const DorRequestRow& zRow);
const DorForm* DorAnswerFormOf(const DorRequestRow& zRow);

// One field of an answer, with its value by its kind.
struct DorValue {
  const DorField* m_pzField = nullptr;
  std::vector<int64_t> m_viInteger;
  std::vector<double> m_vdFloat;  // three of a coordinate
  KivWString m_csText;
  // Of a list. Items of numbers alone, which may be millions, stand one behind the other in the two vectors above.
  size_t m_nItems = 0;
  std::vector<std::vector<DorValue>> m_vvzItem;  // items with texts or lists in them

  // The fields of an item of a list, below m_nItems.
  std::vector<DorValue> Item(size_t i) const;
};

struct DorDecodedAnswer {
  int64_t m_iCode = 0;  // a DorAnswerCode
  KivWString m_csReason;
  std::vector<DorValue> m_vzValue;  // behind the code 0
};

// False for bytes that do not fit to the last one: they are not trusted, and nothing is reported. The values refer to
// the row's form, which lives as long as the process.
bool DorDecodeAnswer(const DorRequestRow& zRow, const KivByteBuffer& vcResult, DorDecodedAnswer& zAnswer);

// The value of a name in a list of values, or null.
const DorValue* DorFindValue(const std::vector<DorValue>& vzValue, std::string_view strName);

}  // namespace kiv
