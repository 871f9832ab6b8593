// Zero bytes to write from.
#pragma once

#include <cstdint>

namespace kiv {

inline constexpr uint64_t kKivZeroBytes = 0x40000;
inline uint8_t g_acKivZero[kKivZeroBytes];  // never written

}  // namespace kiv
