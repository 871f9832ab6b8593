#include "KivJsonWriter.h"

#include <charconv>
#include <cmath>
#include <nlohmann/json.hpp>

namespace kiv {
namespace {

std::string Quoted(std::string_view str) {
  return nlohmann::json(str).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

template <typename T>
std::string Shortest(T value) {
  if constexpr (std::is_floating_point_v<T>)
    if (!std::isfinite(value)) return "null";
  char acText[64];
  const auto zResult = std::to_chars(acText, acText + sizeof acText, value);
  return std::string(acText, zResult.ptr);
}

}  // namespace

void KivJsonWriter::NewLine() {
  m_pfnWrite("\n");
  m_pfnWrite(std::string(2 * m_vzScope.size(), ' '));
}

// Goes to where the next value stands.
void KivJsonWriter::Place(std::string_view strName) {
  m_bBegun = true;
  if (m_vzScope.empty()) return;
  Scope& zScope = m_vzScope.back();
  if (!zScope.m_bEmpty) m_pfnWrite(zScope.m_bRow ? ", " : ",");
  zScope.m_bEmpty = false;
  if (!zScope.m_bRow) NewLine();
  if (zScope.m_cEnd == '}') {
    m_pfnWrite(Quoted(strName));
    m_pfnWrite(": ");
  }
}

void KivJsonWriter::Begin(std::string_view strName, char cBegin, bool bRow) {
  Place(strName);
  m_pfnWrite(std::string_view(&cBegin, 1));
  m_vzScope.push_back({cBegin == '{' ? '}' : ']', bRow});
}

void KivJsonWriter::End() {
  if (m_vzScope.empty()) return;
  const Scope zScope = m_vzScope.back();
  m_vzScope.pop_back();
  if (!zScope.m_bEmpty && !zScope.m_bRow) NewLine();
  m_pfnWrite(std::string_view(&zScope.m_cEnd, 1));
  if (m_vzScope.empty()) m_pfnWrite("\n");
}

void KivJsonWriter::EndTo(size_t iDepth) {
  while (m_vzScope.size() > iDepth) End();
}

void KivJsonWriter::Put(std::string_view strName, std::string_view strText) {
  Place(strName);
  m_pfnWrite(strText);
}

void KivJsonWriter::Value(std::string_view strName, std::string_view strValue) {
  Put(strName, Quoted(strValue));
}
void KivJsonWriter::Value(std::string_view strName, bool bValue) {
  Put(strName, bValue ? "true" : "false");
}
void KivJsonWriter::Value(std::string_view strName, double dValue) {
  Put(strName, Shortest(dValue));
}
void KivJsonWriter::Value(std::string_view strName, float fValue) {
  Put(strName, Shortest(fValue));
}
void KivJsonWriter::Null(std::string_view strName) {
  Put(strName, "null");
}
void KivJsonWriter::PutSigned(std::string_view strName, int64_t iValue) {
  Put(strName, Shortest(iValue));
}
void KivJsonWriter::PutUnsigned(std::string_view strName, uint64_t iValue) {
  Put(strName, Shortest(iValue));
}

}  // namespace kiv
