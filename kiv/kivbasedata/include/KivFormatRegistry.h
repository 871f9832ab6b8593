// The format values that a program registers once, before it uses a container or turns the report filter on.
#pragma once

#include <cstdint>

namespace kiv {

// A veto on a file's writer version: false refuses the file.
using KivFormatVeto = bool (*)(uint32_t iWriterVersion);

// Each value is set once. The same value again succeeds; another one is reported with "0", gives false, and the first
// one stays. The veto may be null, and must be set all the same.
bool KivSetFormatCompatibilityCallback(KivFormatVeto pfnVeto);
bool KivSetFormatVersion(uint32_t iVersion);
bool KivSetFormatApplication(uint32_t iApplication);

// The registered values; null or 0 before.
KivFormatVeto KivFormatCompatibilityCallback();
uint32_t KivFormatVersion();      // the software version that is written into headers
uint32_t KivFormatApplication();  // the application family; 0xFFFFFFFF means any

// True when all three values are set.
bool IsInitialized();

}  // namespace kiv
