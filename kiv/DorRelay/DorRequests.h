// The request vocabulary as data: one row for each name, with the form of its payload. The relay, the client, the
// handler and the page docs/requests.md are kept in step by this table.
//
// A payload is a sequence of the primitives of KivByteBuffer.h. Letters of a row's form:
//   m  model id, an integer
//   i  integer
//   f  float
//   s  wide string
//   c  coordinate, three floats
//   k  curve: integer kind; kind 0: six floats; kind 1: integer size (at least 1), then a block of that size
//   n  integer count, 1 or 2, then so many curves
//   t  raw bytes to the end of the payload
#pragma once

#include <cstdint>
#include <span>

#include "KivByteBuffer.h"
#include "KivSysText.h"

namespace kiv {

enum class DorRequestFamily { Open, Close, Forward, Refused };

// What a field that cannot be read leads to, behind the report.
enum class DorReadFailure {
  CloseDown,     // the process ends with 999
  CodePerField,  // the dispatcher returns 10, 20, ... for the first, second, ... field behind the model id
  TenForFloats   // the dispatcher returns 10 for a float or a coordinate
};

struct DorRequestRow {
  KivWStringView m_csName;
  DorRequestFamily m_iFamily;
  const char* m_szForm;
  DorReadFailure m_iReadFailure = DorReadFailure::CloseDown;
};

constexpr KivWStringView kDorReadDor = u"DorHandler_ReadDor";
constexpr KivWStringView kDorClearModel = u"DorHandler_ClearModel";
constexpr KivWStringView kDorDoNothing = u"DorHandler_DoNothing";
constexpr KivWStringView kDorPickOneElement = u"DorHandler_PickOneElement";
constexpr KivWStringView kDorGetAsmTreeInfo = u"DorHandler_GetAsmTreeInfo";

// Statuses of an answer as the client sees them.
enum DorStatus : int32_t {
  kDorStatusReading = -1,        // the model's read is still running; also an unknown name
  kDorStatusServed = 0,          // the handler's answer is the result
  kDorStatusNoChild = 1,         // the read has ended well but no child is there
  kDorStatusReadFailed = 2,      // the model could not be read
  kDorStatusExchangeFailed = 3,  // the exchange with the child failed
  kDorStatusRefused = 4,         // the child answered a status of its own
  kDorStatus999 = 999,           // the child answered 999
  kDorStatus1999 = 1999          // the child answered 1999
};

// All rows, in the order of the documentation.
std::span<const DorRequestRow> DorRequestTable();
// The row of exactly this name, or null.
const DorRequestRow* DorFindRequest(KivWStringView csName);
// True if the payload fits the row's form to the last byte. Reports nothing, allocates nothing.
bool DorFitsForm(const DorRequestRow& zRow, const KivByteBuffer& vcPayload);

}  // namespace kiv
