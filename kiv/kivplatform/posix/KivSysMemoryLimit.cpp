#include "KivSysMemoryLimit.h"

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>

namespace kiv::sys {

uint64_t PhysicalMemory() {
  const long nPages = sysconf(_SC_PHYS_PAGES);
  const long nPage = sysconf(_SC_PAGESIZE);
  return nPages > 0 && nPage > 0 ? static_cast<uint64_t>(nPages) * static_cast<uint64_t>(nPage) : 0;
}

bool CanLimitMemory() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  return false;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer)
  return false;
#else
  return true;
#endif
#else
  return true;
#endif
}

// Only the soft limit, so that it can be raised again.
bool LimitMemory(uint64_t nBytes) {
  if (!CanLimitMemory()) return true;
  rlimit zLimit{};
  if (getrlimit(RLIMIT_AS, &zLimit) != 0) return false;
  zLimit.rlim_cur = static_cast<rlim_t>(std::min<uint64_t>(nBytes, zLimit.rlim_max));
  return setrlimit(RLIMIT_AS, &zLimit) == 0;
}

}  // namespace kiv::sys
