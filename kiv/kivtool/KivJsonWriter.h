// Writes one JSON document piece by piece, in the order of the calls, so that long lists take no memory.
//
//   KivJsonWriter zJson(pfnWrite);
//   zJson.BeginObject();
//   zJson.Value("file", strPath);
//   zJson.BeginArray("rows");
//   zJson.BeginObject(); ... zJson.End();
//   zJson.End();
//   zJson.End();
//
// Values in an array have no name. Numbers that JSON does not have become null, bytes that are no text U+FFFD.
#pragma once

#include <concepts>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace kiv {

class KivJsonWriter {
 public:
  using Sink = std::function<void(std::string_view)>;
  explicit KivJsonWriter(Sink pfnWrite) : m_pfnWrite(std::move(pfnWrite)) {}

  void BeginObject(std::string_view strName = {}) { Begin(strName, '{', false); }
  void BeginArray(std::string_view strName = {}) { Begin(strName, '[', false); }
  // An array of plain values in one line.
  void BeginRow(std::string_view strName = {}) { Begin(strName, '[', true); }
  void End();
  // Ends all but the first iDepth open objects and arrays.
  void EndTo(size_t iDepth);
  size_t GetDepth() const { return m_vzScope.size(); }
  bool IsBegun() const { return m_bBegun; }

  void Value(std::string_view strName, std::string_view strValue);
  void Value(std::string_view strName, const char* szValue) { Value(strName, std::string_view(szValue)); }
  void Value(std::string_view strName, bool bValue);
  void Value(std::string_view strName, double dValue);
  void Value(std::string_view strName, float fValue);
  void Value(std::string_view strName, std::integral auto iValue) {
    if constexpr (std::is_signed_v<decltype(iValue)>)
      PutSigned(strName, iValue);
    else
      PutUnsigned(strName, iValue);
  }
  void Null(std::string_view strName);
  // A row of numbers.
  template <typename T>
  void Row(std::string_view strName, const T& vValue) {
    BeginRow(strName);
    for (const auto& value : vValue) Value({}, value);
    End();
  }

 private:
  struct Scope {
    char m_cEnd;
    bool m_bRow;
    bool m_bEmpty = true;
  };
  void Begin(std::string_view strName, char cBegin, bool bRow);
  void Put(std::string_view strName, std::string_view strText);
  void PutSigned(std::string_view strName, int64_t iValue);
  void PutUnsigned(std::string_view strName, uint64_t iValue);
  void Place(std::string_view strName);
  void NewLine();

  Sink m_pfnWrite;
  std::vector<Scope> m_vzScope;
  bool m_bBegun = false;
};

}  // namespace kiv
