#include "KivSysTerminal.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <optional>
#include <string>
#include <vector>

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

namespace {

using In = KivSysInput;

// What a cutter makes of pieces: the lines, "!" for one that is too long.
std::vector<std::string> Cut(const std::vector<std::string>& vstrPiece, size_t nLongest) {
  KivSysLineCutter zCutter(nLongest);
  std::vector<std::string> vstr;
  std::string strLine;
  const auto Take = [&] {
    for (;;) {
      const std::optional<In> iResult = zCutter.Next(strLine);
      if (!iResult || *iResult == In::End) return iResult;
      vstr.push_back(*iResult == In::TooLong ? "!" : strLine);
    }
  };
  for (const std::string& strPiece : vstrPiece) {
    zCutter.Put(strPiece);
    EXPECT_EQ(Take(), std::nullopt) << "there is no end yet";
  }
  zCutter.PutEnd();
  EXPECT_EQ(Take(), std::optional(In::End));
  EXPECT_EQ(Take(), std::optional(In::End)) << "for good";
  return vstr;
}

using Lines = std::vector<std::string>;

}  // namespace

TEST(LineCutter, LinesAreTheSameHoweverTheBytesCome) {
  const std::string strAll = "one\n\ntwo\r\n12345\n123456\n1234567890123\nthree";
  const Lines vstrExpected{"one", "", "two\r", "12345", "!", "!", "three"};
  for (size_t nPiece = 1; nPiece <= strAll.size(); ++nPiece) {
    std::vector<std::string> vstrPiece;
    for (size_t i = 0; i < strAll.size(); i += nPiece) vstrPiece.push_back(strAll.substr(i, nPiece));
    EXPECT_EQ(Cut(vstrPiece, 5), vstrExpected) << nPiece;
  }
}

TEST(LineCutter, TheLastLineNeedsNoEndAndMayBeTooLong) {
  EXPECT_EQ(Cut({}, 5), Lines());
  EXPECT_EQ(Cut({"\n"}, 5), Lines{""});
  EXPECT_EQ(Cut({"12345"}, 5), Lines{"12345"});
  EXPECT_EQ(Cut({"123456", "789", "0"}, 5), Lines{"!"});
}
