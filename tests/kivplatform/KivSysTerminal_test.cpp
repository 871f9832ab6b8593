#include "KivSysTerminal.h"

#include <gtest/gtest.h>

#include <cstdio>

#include "KivPlatformTest.h"
#include "KivTestFolder.h"

using namespace kiv;
using namespace kivtest;

KIV_TEST_CHILD(TerminalWritesErrorsToAFile) {
  if (std::freopen(sys::WideToUtf8(vcsArgs[0]).c_str(), "w", stderr) == nullptr) return 90;
  return sys::IsErrorTerminal() ? 1 : 0;
}

TEST(Terminal, AFileIsNoTerminal) {
  const TestFolder zFolder;
  KivSysProcess zChild = StartTestChild("TerminalWritesErrorsToAFile", {zFolder / u"errors"});
  ASSERT_EQ(zChild.Wait(kLong), KivSysWait::Signalled);
  int32_t iCode = -1;
  ASSERT_TRUE(zChild.GetExitCode(iCode));
  EXPECT_EQ(iCode, 0);
}
