// Wide text as bytes from which it comes back, whatever it is: paths and arguments are not always well formed.
#pragma once

#include <string>
#include <string_view>

#include "KivSysText.h"

namespace kiv::sys {

// UTF-8, in which a lone surrogate is three bytes, as other units of its size are.
std::string WideToExact(KivWStringView csText);
// What of the bytes WideToExact cannot give becomes U+FFFD, as in Utf8ToWide.
KivWString ExactToWide(std::string_view strBytes);

// No lone surrogate.
bool IsWellFormed(KivWStringView csText);

}  // namespace kiv::sys
