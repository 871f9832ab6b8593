// Prints the fields of an element by name, as indented lines or as JSON.
//
// Long lists are cut: in JSON a list is {"count": n, "values": [...]}, a list of items {"count": n, "items": [...]}.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <type_traits>
#include <vector>

#include "KivEMatrix4.h"
#include "KivElementRecord.h"
#include "KivNumberText.h"
#include "KivToolOutput.h"

namespace kiv {

class KivFieldPrinter {
 public:
  // bAll: lists are not cut.
  KivFieldPrinter(KivToolOutput& zOutput, bool bAll) : m_zOutput(zOutput), m_bAll(bAll) {}

  template <typename T>
  requires std::is_arithmetic_v<T>
  void Field(const char* szName, T value) {
    if (IsJson())
      Json().Value(szName, value);
    else
      Print(szName, NumberText(value));
  }
  template <typename T, size_t n>
  void Field(const char* szName, const std::array<T, n>& aValue) {
    Row(szName, aValue);
  }
  template <typename T>
  requires std::is_arithmetic_v<T>
  void Field(const char* szName, const std::vector<T>& vValue) { Values(szName, vValue); }
  void Field(const char* szName, const char* szValue);
  void Field(const char* szName, const KivWString& csValue);
  void Field(const char* szName, const std::vector<uint8_t>& vcBytes);  // in hexadecimal
  void Field(const char* szName, const KivEMatrix4& zMatrix);
  void Field(const char* szName, const std::vector<KivAttribute>& vzAttribute);
  void Field(const char* szName, const KivEntryFrame& zFrame);

  // pfnItem(i, item) prints the fields of an item; gaps of entries are the caller's.
  template <typename List, typename Item>
  void Items(const char* szName, const List& vzItem, Item&& pfnItem) {
    const size_t nShown = m_bAll ? vzItem.size() : std::min(vzItem.size(), kItems);
    BeginItems(szName, vzItem.size(), nShown);
    for (size_t i = 0; i < nShown; ++i) {
      BeginItem(i);
      pfnItem(vzItem[i]);
      EndItem();
    }
    EndItems();
  }

 private:
  static constexpr size_t kValues = 24;
  static constexpr size_t kItems = 8;

  bool IsJson() const { return m_zOutput.IsJson(); }
  KivJsonWriter& Json() { return m_zOutput.Json(); }
  void Print(const char* szName, const std::string& strValue);
  void BeginItems(const char* szName, size_t nItems, size_t nShown);
  void BeginItem(size_t i);
  void EndItem();
  void EndItems();

  template <typename T>
  static std::string NumberText(T value) {
    if constexpr (std::is_same_v<T, bool>)
      return value ? "true" : "false";
    else if constexpr (std::is_floating_point_v<T>)
      return KivNumberText(value);
    else
      return std::to_string(value);
  }
  template <typename T>
  static void Append(std::string& strText, const T& value) {
    if constexpr (std::is_arithmetic_v<T>) {
      strText += (strText.empty() ? "" : " ") + NumberText(value);
    } else {
      for (const auto& inner : value) Append(strText, inner);
    }
  }
  template <typename T>
  void PutJson(const T& value) {
    if constexpr (std::is_arithmetic_v<T>) {
      Json().Value({}, value);
    } else {
      Json().BeginRow();
      for (const auto& inner : value) PutJson(inner);
      Json().End();
    }
  }
  template <typename T, size_t n>
  void Row(const char* szName, const std::array<T, n>& aValue) {
    if (IsJson()) {
      Json().BeginRow(szName);
      for (const auto& value : aValue) PutJson(value);
      Json().End();
      return;
    }
    std::string strText;
    Append(strText, aValue);
    Print(szName, strText);
  }
  template <typename T>
  void Values(const char* szName, const std::vector<T>& vValue) {
    const size_t nShown = m_bAll ? vValue.size() : std::min(vValue.size(), kValues);
    if (IsJson()) {
      Json().BeginObject(szName);
      Json().Value("count", vValue.size());
      Json().BeginRow("values");
      for (size_t i = 0; i < nShown; ++i) PutJson(vValue[i]);
      Json().End();
      Json().End();
      return;
    }
    std::string strText;
    for (size_t i = 0; i < nShown; ++i) Append(strText, vValue[i]);
    Print(szName, "(" + std::to_string(vValue.size()) + ") " + strText + (nShown < vValue.size() ? " ..." : ""));
  }

  KivToolOutput& m_zOutput;
  bool m_bAll;
  size_t m_iIndent = 0;
};

// All fields of a block behind its header, by its type.
void KivShowBlock(const class KivMemoryBlock& zBlock, KivFieldPrinter& zPrinter);

}  // namespace kiv
