// The Khronos validator on exported files.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "KivSysText.h"

namespace kivtest {

// All at once, where there is a validator.
inline void ValidateGltf([[maybe_unused]] const std::vector<kiv::KivWString>& vcsFile) {
#ifdef KIV_TEST_NODE
  std::string strLine = "\"" KIV_TEST_NODE "\" \"" KIV_TEST_GLTF_SCRIPT "\" \"" KIV_TEST_GLTF_MODULES "\"";
  for (const kiv::KivWString& csFile : vcsFile) strLine += " \"" + kiv::sys::WideToUtf8(csFile) + "\"";
  EXPECT_EQ(std::system((strLine + " >&2").c_str()), 0);
#endif
}

}  // namespace kivtest
