#include "KivFieldPrinter.h"

#include <cinttypes>

#include "KivModelMeaning.h"

namespace kiv {
namespace {

constexpr size_t kShownBytes = 64;

std::string HexOf(const std::vector<uint8_t>& vcBytes, size_t nMost) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string strHex;
  for (size_t i = 0; i < vcBytes.size() && i < nMost; ++i) {
    strHex += kDigits[vcBytes[i] >> 4];
    strHex += kDigits[vcBytes[i] & 15];
  }
  return strHex;
}

}  // namespace

void KivFieldPrinter::Print(const char* szName, const std::string& strValue) {
  m_zOutput.Line("%*s%s: %s", static_cast<int>(2 * m_iIndent), "", szName, strValue.c_str());
}

void KivFieldPrinter::Field(const char* szName, const char* szValue) {
  if (IsJson())
    Json().Value(szName, szValue);
  else
    Print(szName, szValue);
}

void KivFieldPrinter::Field(const char* szName, const KivWString& csValue) {
  if (IsJson())
    Json().Value(szName, sys::WideToUtf8(csValue));
  else
    Print(szName, "\"" + KivShown(csValue) + "\"");
}

void KivFieldPrinter::Field(const char* szName, const std::vector<uint8_t>& vcBytes) {
  const size_t nMost = m_bAll ? vcBytes.size() : kShownBytes;
  const std::string strHex = HexOf(vcBytes, nMost);
  if (IsJson()) {
    Json().BeginObject(szName);
    Json().Value("count", vcBytes.size());
    Json().Value("hex", strHex);
    Json().End();
    return;
  }
  Print(szName, "(" + std::to_string(vcBytes.size()) + ") " + strHex + (nMost < vcBytes.size() ? " ..." : ""));
}

void KivFieldPrinter::Field(const char* szName, const KivEMatrix4& zMatrix) {
  std::array<double, 16> ad;
  for (size_t i = 0; i < 16; ++i) ad[i] = zMatrix[i];
  Row(szName, ad);
}

void KivFieldPrinter::Field(const char* szName, const KivEntryFrame& zFrame) {
  if (IsJson()) {
    Json().BeginObject(szName);
    Json().Value("m_iOffset", zFrame.m_iOffset);
    Json().Value("m_iKind", zFrame.m_iKind);
    Json().Value("m_iSize", zFrame.m_iSize);
    Json().End();
    return;
  }
  Print(szName, "offset " + std::to_string(zFrame.m_iOffset) + ", kind " + std::to_string(zFrame.m_iKind) + ", size " +
                    std::to_string(zFrame.m_iSize));
}

// With the meaning of those that this project's programs know.
void KivFieldPrinter::Field(const char* szName, const std::vector<KivAttribute>& vzAttribute) {
  Items(szName, vzAttribute, [&](const KivAttribute& z) {
    const std::vector<KivAttribute> vzOne = {z};
    Field("m_iAttrib", z.m_iAttrib);
    Field("m_vcBytes", z.m_vcBytes);
    if (const auto fColour = KivGetColour(vzOne)) Field("colour", *fColour);
    if (const auto iLayer = KivGetLayer(vzOne)) Field("layer", *iLayer);
    if (const auto dUnit = KivGetUnit(vzOne)) Field("metres_per_unit", *dUnit);
  });
}

void KivFieldPrinter::BeginItems(const char* szName, size_t nItems, size_t nShown) {
  if (IsJson()) {
    Json().BeginObject(szName);
    Json().Value("count", nItems);
    Json().BeginArray("items");
    return;
  }
  const std::string strCut = nShown < nItems ? ", the first " + std::to_string(nShown) : "";
  Print(szName, "(" + std::to_string(nItems) + strCut + ")");
  ++m_iIndent;
}

void KivFieldPrinter::BeginItem(size_t i) {
  if (IsJson()) {
    Json().BeginObject();
    return;
  }
  m_zOutput.Line("%*s[%" PRIu64 "]", static_cast<int>(2 * m_iIndent), "", uint64_t{i});
  ++m_iIndent;
}

void KivFieldPrinter::EndItem() {
  if (IsJson())
    Json().End();
  else
    --m_iIndent;
}

void KivFieldPrinter::EndItems() {
  if (!IsJson()) {
    --m_iIndent;
    return;
  }
  Json().End();
  Json().End();
}

}  // namespace kiv
