// Reports that never leave the operation that makes them.
//
// Reading and writing of model data answer with false or a code. A report made on the way is a full one (recorded if it
// is the first of the process, filtered if the filter is on), and whatever it throws ends here. Tools that want to
// say what was wrong ask for the last report.
#pragma once

#include <cstdint>

namespace kiv {

// Reports like KivReportFailure and always returns. The two texts must live as long as the process.
void KivReportHere(const char* szCondition, const char* szSource, int32_t iLine) noexcept;

// In a catch of everything: reports what was thrown as "0", unless it is the exception of a report, which has been
// made.
void KivReportThrownHere(const char* szSource, int32_t iLine) noexcept;

struct KivQuietReport {
  uint64_t m_iNumber = 0;          // reports made by KivReportHere so far, this one included; 0: none yet
  const char* m_szCondition = "";  // the condition; "0" where none is tested
  const char* m_szSource = "";
  int32_t m_iLine = 0;
};
// The last report made by KivReportHere. No lock.
const KivQuietReport& KivLastQuietReport() noexcept;

}  // namespace kiv

// As KIV_CHECK, KIV_CHECK_AS and KIV_FAIL, but the report stays here:
//   if (!KIV_ASSERT(iNodeState <= 2)) return false;
#define KIV_ASSERT_AS(condition, text) \
  (static_cast<bool>(condition) ? true : (::kiv::KivReportHere(text, kSource, __LINE__), false))
#define KIV_ASSERT(condition) KIV_ASSERT_AS(condition, #condition)
#define KIV_ASSERT_FAIL() ::kiv::KivReportHere("0", kSource, __LINE__)
