// Wide text and its conversions.
#pragma once

#include <string>
#include <string_view>

namespace kiv {

// UTF-16 text, on every target. Not necessarily well formed: lone surrogates pass through everything but a conversion.
using KivWString = std::u16string;
using KivWStringView = std::u16string_view;

namespace sys {

// The conversions stop nowhere but at the end of the text (an embedded 0 is converted like any other unit).
// What is no valid text becomes U+FFFD, one for each maximal invalid part.
std::string WideToUtf8(KivWStringView csText);
// Bytes that WideToUtf8 gives.
uint64_t MeasureUtf8(KivWStringView csText);
KivWString Utf8ToWide(std::string_view strText);

// Through the system's ANSI code page: the active one on Windows, UTF-8 on Linux.
// Bytes that WideToAnsi gives; 0 for an empty text and when the system cannot say.
uint64_t MeasureAnsi(KivWStringView csText);
// Empty when it fails.
std::string WideToAnsi(KivWStringView csText);
KivWString AnsiToWide(std::string_view strText);

}  // namespace sys

// Text from a file or a user for a terminal: UTF-8, control characters as \n or \x1b.
std::string KivShown(KivWStringView csText);

}  // namespace kiv
