#include "KivSysMain.h"

#include <gtest/gtest.h>

#include <cstring>

#include "KivPlatformTest.h"
#include "KivTestFolder.h"

using namespace kiv;
using namespace kivtest;

namespace {

// Runs the program with these further parts of its command line; gives what it saw of them, each with a line feed.
int32_t RunProbe(const TestFolder& zFolder, const KivWString& csCode, const KivWString& csRest, KivWString& csSeen) {
  KivWString csProgram;
  sys::ProgramPath(csProgram);
  csProgram.resize(csProgram.rfind(sys::kSeparator) + 1);
  KivSysProcessStart zStart;
  zStart.m_csCommandLine = u"\"" + csProgram + u"kivmain_probe" + KivWString(sys::kExecutableSuffix) + u"\" \"" +
                           (zFolder / u"seen") + u"\" " + csCode + u" " + csRest;
  KivSysProcess zProbe = KivSysProcess::Start(zStart);
  int32_t iCode = -1;
  if (zProbe.Wait(kLong) != KivSysWait::Signalled || !zProbe.GetExitCode(iCode)) return -1;
  const std::string strSeen = zFolder.ReadBytes(u"seen");
  csSeen.resize(strSeen.size() / sizeof(char16_t));
  std::memcpy(csSeen.data(), strSeen.data(), csSeen.size() * sizeof(char16_t));
  return iCode;
}

}  // namespace

TEST(Main, GivesTheExitCodeOfKivMain) {
  const TestFolder zFolder;
  KivWString csSeen;
  EXPECT_EQ(RunProbe(zFolder, u"0", u"", csSeen), 0);
  EXPECT_EQ(RunProbe(zFolder, u"57", u"", csSeen), 57);
  EXPECT_EQ(csSeen, u"");
}

TEST(Main, PassesArgumentsOfAllScriptsWithTheirBlanksAndQuotes) {
  const TestFolder zFolder;
  KivWString csSeen;
  EXPECT_EQ(RunProbe(zFolder, u"0", u"-r\"a b\" \"\" \"q\\\"q\" \u00e4\u4e2d\U0001F600", csSeen), 0);
  EXPECT_EQ(csSeen, u"-ra b\n\nq\"q\n\u00e4\u4e2d\U0001F600\n");
}

// A name that is no valid text to the system comes through as it is: bytes that are no UTF-8 on Linux, a lone
// surrogate on Windows.
TEST(Main, PassesArgumentsThatAreNoValidText) {
  const TestFolder zFolder;
  KivWString csSeen;
  const KivWString csOdd{u'a', 0xDCFF, u'b'};
  EXPECT_EQ(RunProbe(zFolder, u"0", csOdd, csSeen), 0);
  EXPECT_EQ(csSeen, csOdd + u"\n");
}
