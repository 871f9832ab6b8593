// What a request's work is given: the fields of its payload, and the answer to fill, both by the names of the table in
// DorRequests.cpp.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <span>
#include <string_view>
#include <vector>

#include "DorAnswerForm.h"
#include "DorBox.h"
#include "DorRefusal.h"
#include "KivByteBuffer.h"

namespace kiv {

class DorSession;

// The fields of a payload that fits its form, behind the model id.
class DorRequestFields {
 public:
  // Refuses with NotANumber a float that is none, with BadArgument a text with a zero in it (a path with BadPath).
  DorRequestFields(const DorRequestRow& zRow, const KivByteBuffer& vcPayload);

  // By name. Asking for what the form does not have is std::logic_error.
  int64_t Integer(std::string_view strName, size_t i = 0) const;
  double Float(std::string_view strName, size_t i = 0) const;
  const KivWString& Text(std::string_view strName) const;

 private:
  const DorValue& Find(std::string_view strName, char cKind) const;

  std::vector<DorValue> m_vzValue;
};

// An answer in the making, behind the result code 0. Each field is put under its name, in the order of the form;
// anything else is std::logic_error.
class DorAnswerWriter {
 public:
  // An answer that would be longer is refused: small models can ask for terabytes, place by place.
  static constexpr size_t kMostBytes = size_t{256} << 20;

  // The form is that of the row, which must have one.
  DorAnswerWriter(const DorRequestRow& zRow, KivByteBuffer& vcResult, size_t nMostBytes = kMostBytes);

  void Integer(std::string_view strName, int64_t iValue);
  void Float(std::string_view strName, double dValue);
  void Floats(std::string_view strName, std::initializer_list<double> vd) { Floats(strName, vd.begin(), vd.size()); }
  void Floats(std::string_view strName, const double* pd, size_t n);
  void Text(std::string_view strName, const KivWString& csValue);
  void Coord(std::string_view strName, const KivECoord3& z);
  // The fields of the items come next, item by item.
  void List(std::string_view strName, size_t nItems);

  void Matrix(std::string_view strName, const KivEMatrix4& z) { Floats(strName, &const_cast<KivEMatrix4&>(z)[0], 16); }
  // A list box (c low, c high): nothing in it for an empty one.
  void Box(const DorBox& z);

  // All fields are there.
  void Finish() const;

 private:
  struct Level {
    const DorForm* m_pzForm;
    size_t m_iField;
    size_t m_nItems;  // still to come, this one included
  };
  const DorField& Next(std::string_view strName, char cKind);
  void Settle();

  KivByteBuffer& m_vcResult;
  size_t m_nMostBytes;
  std::vector<Level> m_vzLevel;
};

// A request's work: refuses by a DorRefusal, answers through the writer.
using DorRequestWork = void (*)(DorSession& zSession, const DorRequestFields& zFields, DorAnswerWriter& zAnswer);

struct DorRequestWorkRow {
  KivWStringView m_csName;
  DorRequestWork m_pfnWork;
  // A report that ends the work is one about a record that cannot be read: what else can fail is the session's, which
  // tells it by itself. Not so where histories and files are written.
  bool m_bReadsOnly = true;
};

// The row of a request that is answered, or null. Each source in requests/ defines DorWorksOf<its name>, which gives
// its rows; the build finds them. Those requests whose answers are prescribed have none.
const DorRequestWorkRow* DorFindWork(KivWStringView csRequest);

}  // namespace kiv
