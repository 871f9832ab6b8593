#include "KivSysText.h"

#include "KivSysFault.h"

namespace kiv::sys {

// The code page of narrow texts is UTF-8 here.
uint64_t MeasureAnsi(KivWStringView csText) {
  return AskFault(KivSysCall::TextMeasure) == FaultAnswer::Fail ? 0 : MeasureUtf8(csText);
}

std::string WideToAnsi(KivWStringView csText) {
  const FaultAnswer iAnswer = AskFault(KivSysCall::TextConvert);
  if (iAnswer == FaultAnswer::Fail) return {};
  std::string strText = WideToUtf8(csText);
  if (iAnswer == FaultAnswer::Short && !strText.empty()) strText.pop_back();
  return strText;
}

KivWString AnsiToWide(std::string_view strText) {
  return Utf8ToWide(strText);
}

}  // namespace kiv::sys
