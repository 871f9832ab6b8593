#include "KivSysText.h"

#include <climits>

#include "KivSysWindows.h"

namespace kiv::sys {
namespace {

constexpr size_t kMost = INT_MAX;  // what the system converts in one call; a longer text gives an empty one

}  // namespace

uint64_t MeasureAnsi(KivWStringView csText) {
  if (FaultFails(KivSysCall::TextMeasure) || csText.empty() || csText.size() > kMost) return 0;
  const std::wstring csSystem = ToSystem(csText);
  const int nUnits = static_cast<int>(csSystem.size());
  return static_cast<uint64_t>(WideCharToMultiByte(CP_ACP, 0, csSystem.data(), nUnits, nullptr, 0, nullptr, nullptr));
}

std::string WideToAnsi(KivWStringView csText) {
  const FaultAnswer iAnswer = AskFault(KivSysCall::TextConvert);
  if (iAnswer == FaultAnswer::Fail || csText.empty() || csText.size() > kMost) return {};
  const std::wstring csSystem = ToSystem(csText);
  const int nUnits = static_cast<int>(csSystem.size());
  const int nBytes = WideCharToMultiByte(CP_ACP, 0, csSystem.data(), nUnits, nullptr, 0, nullptr, nullptr);
  std::string strText(static_cast<size_t>(nBytes), '\0');
  WideCharToMultiByte(CP_ACP, 0, csSystem.data(), nUnits, strText.data(), nBytes, nullptr, nullptr);
  if (iAnswer == FaultAnswer::Short && !strText.empty()) strText.pop_back();
  return strText;
}

KivWString AnsiToWide(std::string_view strText) {
  if (strText.empty() || strText.size() > kMost) return {};
  const int nBytes = static_cast<int>(strText.size());
  const int nUnits = MultiByteToWideChar(CP_ACP, 0, strText.data(), nBytes, nullptr, 0);
  std::wstring csText(static_cast<size_t>(nUnits), L'\0');
  MultiByteToWideChar(CP_ACP, 0, strText.data(), nBytes, csText.data(), nUnits);
  return FromSystem(csText);
}

}  // namespace kiv::sys
