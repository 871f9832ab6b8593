#include "DorRequest.h"

#include <cmath>
#include <stdexcept>

#include "KivLittleEndian.h"

namespace kiv {

// --- Fields ---------------------------------------------------------------------------------------------------------

// The payload has been found to fit the row's form, of which the names are another view.
DorRequestFields::DorRequestFields(const DorRequestRow& zRow, const KivByteBuffer& vcPayload) {
  uint64_t iCursor = sizeof(int64_t);
  for (const DorField& zField : *DorFieldsOf(zRow)) {
    DorValue& z = m_vzValue.emplace_back();
    z.m_pzField = &zField;
    if (zField.m_cKind == 's') {
      const uint64_t iText = iCursor + sizeof(int64_t);
      KivGetString(iCursor, vcPayload, &z.m_csText);
      // What is read ends at a zero: it would be another text, or another file, than the one that was sent.
      if (z.m_csText.size() * sizeof(char16_t) != iCursor - iText)
        throw DorRefusal(zField.m_strName == "path" ? DorAnswerCode::BadPath : DorAnswerCode::BadArgument,
                         zField.m_strName + " has a zero in it");
      continue;
    }
    const size_t n = zField.m_cKind == 'c' ? 3 : zField.m_nTimes;
    for (size_t i = 0; i < n; ++i) {
      if (zField.m_cKind == 'i') {
        KivGetInt64(iCursor, vcPayload, &z.m_viInteger.emplace_back());
        continue;
      }
      KivGetDouble(iCursor, vcPayload, &z.m_vdFloat.emplace_back());
      if (!std::isfinite(z.m_vdFloat.back()))
        throw DorRefusal(DorAnswerCode::NotANumber, zField.m_strName + " is not a number");
    }
  }
}

const DorValue& DorRequestFields::Find(std::string_view strName, char cKind) const {
  const DorValue* pz = DorFindValue(m_vzValue, strName);
  if (pz == nullptr || (pz->m_pzField->m_cKind != cKind && pz->m_pzField->m_cKind != 'c'))
    throw std::logic_error("a request has no field " + std::string(strName));
  return *pz;
}

int64_t DorRequestFields::Integer(std::string_view strName, size_t i) const {
  return Find(strName, 'i').m_viInteger.at(i);
}

double DorRequestFields::Float(std::string_view strName, size_t i) const {
  return Find(strName, 'f').m_vdFloat.at(i);
}

const KivWString& DorRequestFields::Text(std::string_view strName) const {
  return Find(strName, 's').m_csText;
}

// --- Answer ---------------------------------------------------------------------------------------------------------

DorAnswerWriter::DorAnswerWriter(const DorRequestRow& zRow, KivByteBuffer& vcResult, size_t nMostBytes)
    : m_vcResult(vcResult), m_nMostBytes(nMostBytes) {
  m_vcResult.clear();
  m_vcResult.reserve(256);  // short answers take no memory behind a change
  KivPutInt64(m_vcResult, static_cast<int64_t>(DorAnswerCode::Done));
  m_vzLevel.push_back({DorAnswerFormOf(zRow), 0, 1});
}

const DorField& DorAnswerWriter::Next(std::string_view strName, char cKind) {
  if (m_vcResult.size() > m_nMostBytes)
    throw DorRefusal(DorAnswerCode::Failed, "the answer has more than " + std::to_string(m_nMostBytes) + " bytes");
  Level& zLevel = m_vzLevel.back();
  if (zLevel.m_iField < zLevel.m_pzForm->size()) {
    const DorField& zField = (*zLevel.m_pzForm)[zLevel.m_iField];
    if (zField.m_strName == strName && zField.m_cKind == cKind) {
      ++zLevel.m_iField;
      return zField;
    }
  }
  throw std::logic_error("an answer does not keep to its form at " + std::string(strName));
}

// Goes on to the next item, or behind the list, where the fields of an item are complete.
void DorAnswerWriter::Settle() {
  while (m_vzLevel.size() > 1 && m_vzLevel.back().m_iField == m_vzLevel.back().m_pzForm->size()) {
    Level& zLevel = m_vzLevel.back();
    zLevel.m_iField = 0;
    if (--zLevel.m_nItems != 0) return;
    m_vzLevel.pop_back();
  }
}

void DorAnswerWriter::Integer(std::string_view strName, int64_t iValue) {
  Next(strName, 'i');
  KivPutInt64(m_vcResult, iValue);
  Settle();
}

void DorAnswerWriter::Float(std::string_view strName, double dValue) {
  Floats(strName, &dValue, 1);
}

void DorAnswerWriter::Floats(std::string_view strName, const double* pd, size_t n) {
  if (Next(strName, 'f').m_nTimes != n)
    throw std::logic_error("an answer does not keep to its form at " + std::string(strName));
  for (size_t i = 0; i < n; ++i) KivPutDouble(m_vcResult, pd[i]);
  Settle();
}

void DorAnswerWriter::Text(std::string_view strName, const KivWString& csValue) {
  Next(strName, 's');
  KivPutString(m_vcResult, csValue);
  Settle();
}

void DorAnswerWriter::Coord(std::string_view strName, const KivECoord3& z) {
  Next(strName, 'c');
  KivPutCoord3(m_vcResult, z);
  Settle();
}

void DorAnswerWriter::List(std::string_view strName, size_t nItems) {
  const DorField& zField = Next(strName, 'l');
  KivPutInt64(m_vcResult, static_cast<int64_t>(nItems));
  if (nItems != 0)
    m_vzLevel.push_back({&zField.m_vzItem, 0, nItems});
  else
    Settle();
}

void DorAnswerWriter::Box(const DorBox& z) {
  List("box", z.IsEmpty() ? 0 : 1);
  if (z.IsEmpty()) return;
  Coord("low", z.Low());
  Coord("high", z.High());
}

void DorAnswerWriter::Finish() const {
  if (m_vzLevel.size() != 1 || m_vzLevel[0].m_iField != m_vzLevel[0].m_pzForm->size())
    throw std::logic_error("an answer has not all fields of its form");
}

}  // namespace kiv
