#include "KivSysDiag.h"

#include <gtest/gtest.h>

#include <atomic>
#include <regex>
#include <sstream>
#include <thread>

#include "KivPlatformTest.h"
#include "KivTestFolder.h"
#include "KivTestProgram.h"
#include "KivTestScale.h"

using namespace kiv;
using namespace kivtest;

#if defined(__GNUC__)
#define KIV_TEST_OWN_FRAME __attribute__((noinline, noipa))
#endif

KIV_TEST_OWN_FRAME KivSysStack KivTestInnerFrame(uint32_t nSkip) {
  KivSysStack zStack = sys::CaptureStack(nSkip);
  asm volatile("");  // no tail call
  return zStack;
}

KIV_TEST_OWN_FRAME KivSysStack KivTestOuterFrame(uint32_t nSkip) {
  KivSysStack zStack = KivTestInnerFrame(nSkip);
  asm volatile("");
  return zStack;
}

namespace {

std::vector<std::string> Lines(const KivSysStack& zStack) {
  std::istringstream zText(sys::WideToUtf8(sys::StackText(zStack)));
  std::vector<std::string> vstrLines;
  for (std::string strLine; std::getline(zText, strLine);) vstrLines.push_back(strLine);
  return vstrLines;
}

}  // namespace

TEST(Diag, TheStackNamesItsFunctionsInnermostFirst) {
  const std::vector<std::string> vstrLines = Lines(KivTestOuterFrame(1));
  ASSERT_GE(vstrLines.size(), 3u);
  EXPECT_NE(vstrLines[0].find("KivTestInnerFrame"), std::string::npos) << vstrLines[0];
  EXPECT_NE(vstrLines[1].find("KivTestOuterFrame"), std::string::npos) << vstrLines[1];
}

TEST(Diag, SkippedFramesAreLeftOut) {
  const std::vector<std::string> vstrLines = Lines(KivTestOuterFrame(2));
  ASSERT_GE(vstrLines.size(), 2u);
  EXPECT_NE(vstrLines[0].find("KivTestOuterFrame"), std::string::npos) << vstrLines[0];
  EXPECT_TRUE(Lines(KivTestOuterFrame(10'000)).empty());
}

TEST(Diag, FrameLinesHaveTheirForm) {
  const std::regex zForm(
      R"(0x[0-9A-F]{16}\(0x[0-9A-F]{8}\)[^:]+: .+?( \+ [0-9]+ bytes)?(\(.+, Line [0-9]+( \+ [0-9]+ bytes)?\))?)");
  const std::vector<std::string> vstrLines = Lines(KivTestOuterFrame(1));
  for (const std::string& strLine : vstrLines) {
    EXPECT_TRUE(std::regex_match(strLine, zForm)) << strLine;
    EXPECT_LT(strLine.size(), 520u);
  }
  ASSERT_FALSE(vstrLines.empty());
  EXPECT_NE(vstrLines[0].find(", Line "), std::string::npos) << "this program has debug information: " << vstrLines[0];
}

TEST(Diag, AnAddressWithoutModuleStaysWithOffsetZero) {
  KivSysStack zStack = KivTestOuterFrame(1);
  const size_t nLines = Lines(zStack).size();
  zStack.m_viAddress.insert(zStack.m_viAddress.begin(), 0x10);
  const std::vector<std::string> vstrLines = Lines(zStack);
  ASSERT_EQ(vstrLines.size(), nLines + 1);
  EXPECT_EQ(vstrLines[0], "0x0000000000000010(0x00000000)<Unknown Module>: <Unknown Symbol>");
  EXPECT_TRUE(sys::StackText({}).empty());
}

KIV_TEST_CHILD(DiagLooksForItsOwnFrames) {
  const std::string strText = sys::WideToUtf8(sys::StackText(KivTestOuterFrame(1)));
  if (strText.find("Unknown Module") != std::string::npos) return 1;
  return strText.find("KivTestInnerFrame") != std::string::npos ? 10 : 20;
}

// The list of modules knows the name up to the extension, a frame's module is looked up by its name up to the first
// dot: the frames of a program with a further dot are in no module of the list. Linux looks a frame's module up by its
// address.
TEST(Diag, FramesOfAModuleThatTheListDoesNotHoldVanishWithoutAMark) {
  EXPECT_EQ(TestProgram().Run("DiagLooksForItsOwnFrames"), 10);
  EXPECT_EQ(TestProgram(u"two.dots").Run("DiagLooksForItsOwnFrames"), IsWindows() ? 20 : 10);
}

TEST(Diag, SeveralThreadsMayTakeAndReadStacks) {
  std::vector<std::thread> vzThreads;
  std::atomic<int> nGood{0};
  for (int i = 0; i < 4; ++i)
    vzThreads.emplace_back([&] {
      for (int j = 0; j < 5; ++j) nGood += !sys::StackText(sys::CaptureStack(1)).empty();
    });
  for (std::thread& zThread : vzThreads) zThread.join();
  EXPECT_EQ(nGood, 20);
}

KIV_TEST_OWN_FRAME uint32_t KivTestDeepFrame(uint32_t nLevels, KivSysStack& zStack) {
  if (nLevels == 0)
    zStack = sys::CaptureStack(1);
  else
    KivTestDeepFrame(nLevels - 1, zStack);
  asm volatile("");
  return nLevels;
}

TEST(Diag, AtMost512FramesAreTaken) {
  KivSysStack zStack;
  KivTestDeepFrame(2000, zStack);
  EXPECT_EQ(zStack.m_viAddress.size(), 512u);
}

TEST(Diag, TheHookSeesWhatGoesToTheSystemLog) {
  KivWString csSeenSource, csSeenText;
  sys::SetSystemLogHook([&](const KivWString& csSource, const KivWString& csText) {
    csSeenSource = csSource;
    csSeenText = csText;
    return true;
  });
  EXPECT_TRUE(sys::WriteSystemLog(u"KivBase 20.10", u"text\nof two lines"));
  EXPECT_TRUE(csSeenSource == u"KivBase 20.10");
  EXPECT_TRUE(csSeenText == u"text\nof two lines");
  sys::SetSystemLogHook([](const KivWString&, const KivWString&) { return false; });
  EXPECT_FALSE(sys::WriteSystemLog(u"a", u"b"));
  sys::SetSystemLogHook(nullptr);
}

TEST(Diag, TheHookSeesMessages) {
  KivWString csSeen;
  sys::SetMessageHook([&](const KivWString& csText) { csSeen = csText; });
  sys::ShowMessage(u"A fatal error has occurred.");
  EXPECT_TRUE(csSeen == u"A fatal error has occurred.");
  sys::SetMessageHook(nullptr);
}

TEST(Diag, TheHeapsAreSound) {
  EXPECT_TRUE(sys::ValidateHeaps());
}

TEST(Diag, EachOpenFileCountsAsOneHandleUntilItIsClosed) {
  const TestFolder zFolder;
  const auto Make = [&](uint32_t i) {
    return OpenFile(zFolder / sys::Utf8ToWide("f" + std::to_string(i)), KivSysAccess::ReadWrite, KivSysShare::None,
                    KivSysDisposition::CreateAlways);
  };
  Make(0);
  sys::CountHandles();  // what the system opens once and keeps is there now
  const uint64_t nBefore = sys::CountHandles();
  EXPECT_GT(nBefore, 0u);
  EXPECT_EQ(sys::CountHandles(), nBefore);
  {
    std::vector<KivSysFile> vzOpen;
    for (uint32_t i = 1; i <= 100; ++i) {
      vzOpen.push_back(Make(i));
      EXPECT_EQ(sys::CountHandles(), nBefore + i);
    }
  }
  EXPECT_EQ(sys::CountHandles(), nBefore);
}
