// Runs the readers that stand beside the programs of this build.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "KivDataUtil.h"
#include "KivSceneReader.h"
#include "KivSysFolder.h"
#include "KivTestFolder.h"

namespace kivtest {

struct ReaderOutcome {
  kiv::KivScene m_zScene;
  std::string m_strError;  // empty: the scene is there
};

// szReader without the suffix of programs; the format is the ending of the source's name. What does not hold in every
// case is expected here: no crash, and a sentence where there is no scene.
inline ReaderOutcome RunReader(const char16_t* szReader, const kiv::KivWString& csSource,
                               const std::vector<double>& vdTolerance = {1, 0.1}) {
  const TestFolder zWork;
  const kiv::KivWString csReader = kiv::KivGetModuleFolder() + kiv::sys::kSeparator + u".." + kiv::sys::kSeparator +
                                   u"bin" + kiv::sys::kSeparator + szReader +
                                   kiv::KivWString(kiv::sys::kExecutableSuffix);
  ReaderOutcome z;
  const bool bRead = kiv::KivRunSceneReader(csReader, {kiv::KivLowerSuffix(csSource), csSource, vdTolerance},
                                            zWork / u"scene", z.m_zScene, z.m_strError, {});
  EXPECT_EQ(bRead, z.m_strError.empty());
  EXPECT_EQ(z.m_strError.find("crashed"), std::string::npos) << z.m_strError;
  EXPECT_EQ(z.m_strError.find("result"), std::string::npos) << z.m_strError;
  EXPECT_EQ(z.m_strError.find("cannot be started"), std::string::npos) << z.m_strError;
  EXPECT_EQ(z.m_strError.find('\n'), std::string::npos) << z.m_strError;
  EXPECT_FALSE(kiv::sys::PathExists(zWork / u"scene"));
  return z;
}

inline bool HasText(const std::string& strText, const std::string& strPart) {
  return strText.find(strPart) != std::string::npos;
}
inline bool Warns(const kiv::KivScene& zScene, const std::string& strPart) {
  return std::any_of(zScene.m_vstrWarning.begin(), zScene.m_vstrWarning.end(),
                     [&](const std::string& str) { return HasText(str, strPart); });
}

}  // namespace kivtest
