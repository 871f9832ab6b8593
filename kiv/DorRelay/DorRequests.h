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
  // Names of the fields behind the model id, as in "i node, 16 f matrix" (DorAnswerForm.h); null where nobody has given
  // them a meaning yet.
  const char* m_szFields = nullptr;
  // The handler's answer behind the result code 0, in the same words; null for what it does not offer, and for the
  // requests whose answers are prescribed.
  const char* m_szAnswer = nullptr;
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

// The result code with which the handler's answers begin.
enum class DorAnswerCode : int64_t {
  Done = 0,
  NotOffered = 1,  // this handler has no answer to the request
  NoModel = 2,     // no model has been read
  BadPayload = 3,  // the fields do not fit the request
  Failed = 4,      // the work ended with a report, or for want of memory; nothing has changed
  UnknownNode = 5,
  UnknownInstance = 6,
  UnknownFace = 7,
  UnknownEdge = 8,
  NotANumber = 9,    // a float is no number, or too large for what is made of it
  BadMatrix = 10,    // a matrix that is singular or not affine
  BadArgument = 11,  // an integer or a text outside of what the request takes
  NothingToUndo = 12,
  NothingToRedo = 13,
  Damaged = 14,      // the model's records cannot be read where the request needs them
  NoMesh = 15,       // there is no triangle, or none that has an area
  NotEditable = 16,  // the model is of a kind that cannot be changed
  BadPath = 17,      // no absolute path of a file
  WouldOverwrite = 18,
  OwnFile = 19,  // the path leads to the file that is open as the model
  CannotWrite = 20
};
// A few words for people; "unknown code" for another number.
const char* DorAnswerCodeText(int64_t iCode);

// All rows, in the order of the documentation.
std::span<const DorRequestRow> DorRequestTable();
// The row of exactly this name, or null.
const DorRequestRow* DorFindRequest(KivWStringView csName);
// True if the payload fits the row's form to the last byte. Reports nothing, allocates nothing.
bool DorFitsForm(const DorRequestRow& zRow, const KivByteBuffer& vcPayload);
// True if a text among the fields has a zero in it. What reads it on the way hands on what stands before the zero:
// another text, or another file. So who makes the payload has to ask.
bool DorHasZeroInText(const DorRequestRow& zRow, const KivByteBuffer& vcPayload);

}  // namespace kiv
