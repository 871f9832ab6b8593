// Numbers for people.
#pragma once

#include <cstdint>
#include <string>

namespace kiv {

// The shortest text that is read back as the same number.
std::string KivNumberText(float fValue);
std::string KivNumberText(double dValue);
// "24.1 KiB (24680 bytes)"; below one KiB bytes alone.
std::string KivBytesText(uint64_t nBytes);
// "0x108"
std::string KivHexText(uint64_t iValue);

}  // namespace kiv
