#include "KivOptions.h"

#include <CLI/CLI.hpp>
#include <charconv>
#include <cmath>

#include "KivSysTextExact.h"
#include "KivToolError.h"

namespace kiv {
namespace {

// Stands before a word whose first character the parser must not see, and before one that begins with it by itself.
constexpr char kCover = '\x01';

template <typename T>
bool ParseNumber(const std::string& str, T& value) {
  const char* pEnd = str.data() + str.size();
  const auto zResult = std::from_chars(str.data(), pEnd, value);
  return !str.empty() && zResult.ec == std::errc() && zResult.ptr == pEnd;
}

// What stands between commas, also where nothing does.
std::vector<std::string> PartsOf(const std::string& strWord) {
  std::vector<std::string> vstrPart(1);
  for (const char c : strWord)
    if (c == ',')
      vstrPart.emplace_back();
    else
      vstrPart.back() += c;
  return vstrPart;
}

}  // namespace

KivOptions::KivOptions(CLI::App& zApp) : m_zApp(zApp) {}
KivOptions::~KivOptions() = default;

std::string KivOptions::Pack(KivWStringView csWord) {
  const auto IsDigit = [](char16_t c) { return c >= u'0' && c <= u'9'; };
  const bool bNumber = csWord.size() > 1 && csWord[0] == u'-' && (IsDigit(csWord[1]) || csWord[1] == u'.');
  const bool bCovered = bNumber || (!csWord.empty() && csWord[0] == static_cast<char16_t>(kCover));
  return (bCovered ? std::string(1, kCover) : std::string()) + sys::WideToExact(csWord);
}

KivWString KivOptions::Unpack(std::string_view strWord) {
  if (!strWord.empty() && strWord[0] == kCover) strWord.remove_prefix(1);
  return sys::ExactToWide(strWord);
}

std::vector<std::string>& KivOptions::Words() {
  return *m_vpvstrWord.emplace_back(std::make_unique<std::vector<std::string>>());
}

void KivOptions::Argument(const char* szName, KivWString& csValue, const char* szHelp) {
  std::vector<std::string>& vstrWord = Words();
  m_zApp.add_option(szName, vstrWord, szHelp)->required()->expected(1)->allow_extra_args(false);
  m_vpfnStore.push_back([&vstrWord, &csValue] { csValue = Unpack(vstrWord.at(0)); });
}

void KivOptions::Flag(const char* szName, bool& bValue, const char* szHelp) {
  m_zApp.add_flag(szName, bValue, szHelp);
}

void KivOptions::Text(const char* szName, KivWString& csValue, const char* szHelp) {
  std::vector<std::string>& vstrWord = Words();
  m_zApp.add_option(szName, vstrWord, szHelp)->expected(1);
  m_vpfnStore.push_back([&vstrWord, &csValue, strName = std::string(szName)] {
    if (vstrWord.empty()) return;
    csValue = Unpack(vstrWord.back());
    if (csValue.empty()) throw KivToolError(strName + ": it is empty");
  });
}

void KivOptions::Whole(const char* szName, int64_t& iValue, int64_t iLeast, int64_t iMost, const char* szHelp) {
  std::vector<std::string>& vstrWord = Words();
  m_zApp.add_option(szName, vstrWord, szHelp)->expected(1);
  m_vpfnStore.push_back([&vstrWord, &iValue, iLeast, iMost, strName = std::string(szName)] {
    if (vstrWord.empty()) return;
    const std::string strWord = sys::WideToUtf8(Unpack(vstrWord.back()));
    int64_t iRead = 0;
    if (!ParseNumber(strWord, iRead)) throw KivToolError(strName + ": '" + strWord + "' is no whole number");
    if (iRead < iLeast || iRead > iMost)
      throw KivToolError(strName + ": " + strWord + " is outside " + std::to_string(iLeast) + " to " +
                         std::to_string(iMost));
    iValue = iRead;
  });
}

void KivOptions::Numbers(const char* szName, std::vector<double>& vdValue, const char* szHelp) {
  std::vector<std::string>& vstrWord = Words();
  m_zApp.add_option(szName, vstrWord, szHelp)->expected(1, 1000);
  m_vpfnStore.push_back([&vstrWord, &vdValue, strName = std::string(szName)] {
    if (vstrWord.empty()) return;
    vdValue.clear();
    for (const std::string& strPacked : vstrWord)
      for (const std::string& strWord : PartsOf(sys::WideToUtf8(Unpack(strPacked)))) {
        double dRead = 0;
        if (!ParseNumber(strWord, dRead) || !std::isfinite(dRead))
          throw KivToolError(strName + ": '" + strWord + "' is no number");
        vdValue.push_back(dRead);
      }
  });
}

void KivOptions::Store() {
  for (const auto& pfnStore : m_vpfnStore) pfnStore();
}

}  // namespace kiv
