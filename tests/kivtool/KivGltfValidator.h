// The Khronos validator on exported files.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "KivSysText.h"

namespace kivtest {

// The validator is found when the build is configured; the test GltfExport.TheValidatorIsThere tells where it is not.
#ifdef KIV_TEST_NODE
constexpr bool kHasGltfValidator = true;
#else
constexpr bool kHasGltfValidator = false;
#endif

// All at once. True where there is no validator.
inline bool AreValidGltf([[maybe_unused]] const std::vector<kiv::KivWString>& vcsFile) {
#ifdef KIV_TEST_NODE
  std::string strLine = "\"" KIV_TEST_NODE "\" \"" KIV_TEST_GLTF_SCRIPT "\" \"" KIV_TEST_GLTF_MODULES "\"";
  for (const kiv::KivWString& csFile : vcsFile) strLine += " \"" + kiv::sys::WideToUtf8(csFile) + "\"";
  return std::system((strLine + " >&2").c_str()) == 0;
#else
  return true;
#endif
}
inline void ValidateGltf(const std::vector<kiv::KivWString>& vcsFile) {
  EXPECT_TRUE(AreValidGltf(vcsFile));
}

}  // namespace kivtest
