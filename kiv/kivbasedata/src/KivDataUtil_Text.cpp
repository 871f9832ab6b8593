#include <algorithm>
#include <cstring>

#include "KivDataUtil.h"
#include "KivException.h"

namespace kiv {
namespace {

constexpr char kSource[] = "src\\KivDataUtil";

KivWStringView UpToFirstZero(const KivWString& csText) {
  return KivWStringView(csText).substr(0, csText.find(u'\0'));
}

void AssignWithZero(const std::string& strText, std::vector<char>& vcText) {
  vcText.assign(strText.c_str(), strText.c_str() + strText.size() + 1);
}

void FromUtf8(std::string_view strText, KivWString& csText) {
  csText = sys::Utf8ToWide(strText);
  if (csText.empty() && !strText.empty()) KIV_FAIL();
}

}  // namespace

void KivToAnsi(const KivWString& csText, std::vector<char>& vcText) {
  vcText.clear();
  const KivWStringView csUsed = UpToFirstZero(csText);
  const uint64_t nMeasured = sys::MeasureAnsi(csUsed);
  if (nMeasured == 0 && !csUsed.empty()) {
    KIV_FAIL();
    return;
  }
  const uint64_t nLength = nMeasured + 1;
  AssignWithZero(sys::WideToAnsi(csUsed), vcText);
  const uint64_t iLength = vcText.size();
  KIV_CHECK(iLength == nLength);
}

void KivToUtf8(const KivWString& csText, std::vector<char>& vcText) {
  vcText.clear();
  const KivWStringView csUsed = UpToFirstZero(csText);
  const uint64_t nUTF8Length = sys::MeasureUtf8(csUsed) + 1;
  AssignWithZero(sys::WideToUtf8(csUsed), vcText);
  const uint64_t iLength = vcText.size();
  KIV_CHECK(iLength == nUTF8Length);
}

void KivFromUtf8(const char* szText, KivWString& csText) {
  csText.clear();
  if (szText == nullptr) {
    KIV_FAIL();
    return;
  }
  FromUtf8(std::string_view(szText), csText);
}

void KivFromUtf8(const std::vector<char>& vcText, KivWString& csText) {
  csText.clear();
  if (vcText.empty()) {
    KIV_FAIL();
    return;
  }
  const auto itEnd = std::find(vcText.begin(), vcText.end(), '\0');
  FromUtf8(std::string_view(vcText.data(), static_cast<size_t>(itEnd - vcText.begin())), csText);
}

std::vector<uint8_t>& KivGetScratchBytes() {
  // Never destroyed: destructors of other process-wide objects may still use it.
  static std::vector<uint8_t>& vcScratch = *new std::vector<uint8_t>;
  return vcScratch;
}

}  // namespace kiv
