// Step counts of long tests: whole natively, reduced where each step is far slower.
#pragma once

#include <cstdint>
#include <cstdlib>

#include "KivSysEvent.h"

namespace kivtest {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

inline bool IsWindows() {
  return kiv::KivSysEvent::WaitLimit() == 64;
}

// nReduced under a sanitizer and on Windows (where the tests run under Wine).
inline uint64_t Scaled(uint64_t nWhole, uint64_t nReduced) {
  return kSanitized || IsWindows() ? nReduced : nWhole;
}

// Steps of a random program, everywhere the same; KIV_TEST_FACTOR in the environment multiplies them for a longer run.
inline uint64_t Steps(uint64_t nSteps) {
  const char* szFactor = std::getenv("KIV_TEST_FACTOR");
  const uint64_t nFactor = szFactor != nullptr ? std::strtoull(szFactor, nullptr, 10) : 1;
  return nSteps * (nFactor != 0 ? nFactor : 1);
}

// The same, a tenth of them where each is far slower.
inline uint64_t ScaledSteps(uint64_t nSteps) {
  return Steps(Scaled(nSteps, nSteps / 10));
}

}  // namespace kivtest
