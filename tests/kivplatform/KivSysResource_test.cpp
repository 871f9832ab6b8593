#include "KivSysResource.h"

#include <gtest/gtest.h>

#include "KivPlatformTest.h"

using namespace kiv;
using namespace kivtest;

TEST(Resource, AProgramWithoutTheDataSaysNo) {
  EXPECT_FALSE(sys::HasKivDataResource());
}

TEST(Resource, AProgramThatWasBuiltWithTheDataSaysYes) {
  KivWString csProgram;
  ASSERT_TRUE(sys::ProgramPath(csProgram));
  csProgram.resize(csProgram.rfind(sys::kSeparator) + 1);
  KivSysProcessStart zStart;
  zStart.m_csCommandLine = u"\"" + csProgram + u"kivresource_probe" + KivWString(sys::kExecutableSuffix) + u"\"";
  KivSysProcess zProbe = KivSysProcess::Start(zStart);
  ASSERT_TRUE(zProbe.IsOpen());
  ASSERT_EQ(zProbe.Wait(kLong), KivSysWait::Signalled);
  int32_t iCode = -1;
  EXPECT_TRUE(zProbe.GetExitCode(iCode));
  EXPECT_EQ(iCode, 42);
}
