#include "KivOptions.h"

#include <CLI/CLI.hpp>
#include <charconv>
#include <cmath>

#include "KivToolError.h"

namespace kiv {
namespace {

constexpr char kHiddenSign = '\x01';

template <typename T>
bool ParseNumber(const std::string& str, T& value) {
  const char* pEnd = str.data() + str.size();
  const auto zResult = std::from_chars(str.data(), pEnd, value);
  return !str.empty() && zResult.ec == std::errc() && zResult.ptr == pEnd;
}

}  // namespace

KivOptions::KivOptions(CLI::App& zApp) : m_zApp(zApp) {}
KivOptions::~KivOptions() = default;

std::string KivOptions::HideSign(std::string strWord) {
  const auto IsDigit = [](char c) { return c >= '0' && c <= '9'; };
  if (strWord.size() > 1 && strWord[0] == '-' && (IsDigit(strWord[1]) || strWord[1] == '.')) strWord[0] = kHiddenSign;
  return strWord;
}

std::string KivOptions::ShowSign(std::string strWord) {
  if (!strWord.empty() && strWord[0] == kHiddenSign) strWord[0] = '-';
  return strWord;
}

std::vector<std::string>& KivOptions::Words() {
  return *m_vpvstrWord.emplace_back(std::make_unique<std::vector<std::string>>());
}

void KivOptions::Argument(const char* szName, KivWString& csValue, const char* szHelp) {
  std::vector<std::string>& vstrWord = Words();
  m_zApp.add_option(szName, vstrWord, szHelp)->required()->expected(1)->allow_extra_args(false);
  m_vpfnStore.push_back([&vstrWord, &csValue] { csValue = sys::Utf8ToWide(ShowSign(vstrWord.at(0))); });
}

void KivOptions::Flag(const char* szName, bool& bValue, const char* szHelp) {
  m_zApp.add_flag(szName, bValue, szHelp);
}

void KivOptions::Text(const char* szName, KivWString& csValue, const char* szHelp) {
  std::vector<std::string>& vstrWord = Words();
  m_zApp.add_option(szName, vstrWord, szHelp)->expected(1);
  m_vpfnStore.push_back([&vstrWord, &csValue] {
    if (!vstrWord.empty()) csValue = sys::Utf8ToWide(ShowSign(vstrWord.back()));
  });
}

void KivOptions::Whole(const char* szName, int64_t& iValue, int64_t iLeast, int64_t iMost, const char* szHelp) {
  std::vector<std::string>& vstrWord = Words();
  m_zApp.add_option(szName, vstrWord, szHelp)->expected(1);
  m_vpfnStore.push_back([&vstrWord, &iValue, iLeast, iMost, strName = std::string(szName)] {
    if (vstrWord.empty()) return;
    const std::string strWord = ShowSign(vstrWord.back());
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
  m_zApp.add_option(szName, vstrWord, szHelp)->expected(1, 1000)->delimiter(',');
  m_vpfnStore.push_back([&vstrWord, &vdValue, strName = std::string(szName)] {
    if (vstrWord.empty()) return;
    vdValue.clear();
    for (const std::string& strHidden : vstrWord) {
      const std::string strWord = ShowSign(strHidden);
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
