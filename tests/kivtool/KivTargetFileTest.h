// What the tests of KivTargetFile look at.
#pragma once

#include <gtest/gtest.h>

#include "KivSysFolder.h"
#include "KivTargetFile.h"
#include "KivTestFolder.h"

namespace kivtest {

inline size_t EntryNum(const TestFolder& zFolder) {
  std::vector<kiv::KivSysFolderEntry> vzEntry;
  EXPECT_TRUE(kiv::sys::ListFolder(zFolder.Path(), vzEntry));
  return vzEntry.size();
}

inline kiv::KivWString NameIn(const TestFolder& zFolder, const kiv::KivTargetFile& zTarget) {
  return zTarget.GetTemporaryPath().substr((zFolder / u"").size());
}

}  // namespace kivtest
