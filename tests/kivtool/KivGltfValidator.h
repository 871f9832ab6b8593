// The Khronos validator on exported files.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "KivSysText.h"

namespace kivtest {

// All at once. True in builds without a validator: only the native stage of test.sh has one, and fails if it cannot be
// installed.
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
