#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>

#include "KivDataUtil.h"
#include "KivException.h"
#include "KivSysFault.h"
#include "KivSysFile.h"
#include "KivSysFolder.h"
#include "KivSysProcess.h"
#include "KivTestFolder.h"
#include "KivTestReport.h"

using namespace kiv;

namespace {

// The process's log in a folder of its own.
class TimingLog : public testing::Test {
 protected:
  TimingLog() {
    KivSetWorkFolder(m_zFolder.Path());
    const std::string strNumber = std::to_string(sys::CurrentProcessNumber());
    m_csName = u"KivLog" + KivWString(strNumber.begin(), strNumber.end()) + u".txt";
  }
  ~TimingLog() override { KivCloseLog(); }

  std::string Text() const { return m_zFolder.ReadBytes(m_csName); }
  // What stands behind the memory text in each line.
  std::vector<std::string> Messages() const {
    std::vector<std::string> vstrMessages;
    const std::string strText = Text();
    size_t iStart = 0;
    for (size_t iEnd; (iEnd = strText.find('\n', iStart)) != std::string::npos; iStart = iEnd + 1) {
      size_t iMessage = iStart;
      for (int i = 0; i < 5; ++i) iMessage = strText.find(',', iMessage) + 1;
      vstrMessages.push_back(strText.substr(iMessage, iEnd - iMessage));
    }
    EXPECT_EQ(iStart, strText.size()) << "a line without its end";
    return vstrMessages;
  }

  kivtest::TestFolder m_zFolder;
  KivWString m_csName;
};

using testing::ElementsAre;

}  // namespace

TEST_F(TimingLog, ALineIsSecondsMemoryTextAndMessageEndedByALineFeed) {
  KivWriteLog(u"first");
  KivWriteLog(u"second, with a comma");
  const std::string strLine = " {0,6}[0-9]+\\.[0-9]{3}, *[0-9]+, *[0-9]+, *[0-9]+, *[0-9]+,";
  EXPECT_TRUE(std::regex_match(Text(), std::regex(strLine + "first\n" + strLine + "second, with a comma\n"))) << Text();
}

TEST_F(TimingLog, TheFirstLineShowsATimeOfZero) {
  KivWriteLog(u"first");
  EXPECT_EQ(Text().substr(0, 8), "  0.000,");
}

TEST_F(TimingLog, TheMemoryTextIsFourNumbersOfWidthTen) {
  const KivWString csText = KivGetMemoryText();
  const std::string strText(csText.begin(), csText.end());
  EXPECT_TRUE(std::regex_match(strText, std::regex("[ 0-9]{9}[0-9],[ 0-9]{9}[0-9],[ 0-9]{9}[0-9],[ 0-9]{9}[0-9]")))
      << strText;
  EXPECT_GT(std::stoull(strText), 0u);
}

TEST_F(TimingLog, TheMemoryTextIsFourZerosWhenTheCallFails) {
  const KivSysFaultScope zFault({KivSysCall::MemoryCounters, 1, true, KivSysFaultKind::Fail, false});
  EXPECT_NO_REPORT({ EXPECT_EQ(KivGetMemoryText(), u"         0,         0,         0,         0"); });
}

TEST_F(TimingLog, NumbersStandBeforeTheMessage) {
  KivLogNumber(-12, u"a");
  KivLogNumber(2147483647, u"b");
  KivLogDouble(0.00005, u"c");
  KivLogDouble(-1234.56789, u"d");
  EXPECT_THAT(Messages(), ElementsAre("-12,a", "2147483647,b", "0.0001,c", "-1234.5679,d"));
}

TEST_F(TimingLog, AVeryLargeDoubleIsWrittenWhole) {
  KivLogDouble(1e308, u"x");
  ASSERT_EQ(Messages().size(), 1u);
  EXPECT_EQ(Messages()[0].size(), 309u + 5u + 2u);
}

TEST_F(TimingLog, AMessageEndsAtItsFirstZero) {
  KivWriteLog(KivWString(u"ab\0cd", 5));
  EXPECT_THAT(Messages(), ElementsAre("ab"));
}

TEST_F(TimingLog, EachLineIsThereAsSoonAsItIsWritten) {
  for (int i = 0; i < 20; ++i) {
    KivLogNumber(i, u"");
    EXPECT_EQ(Messages().size(), static_cast<size_t>(i) + 1);
  }
}

TEST_F(TimingLog, AnOldFileOfTheNameIsReplaced) {
  m_zFolder.WriteBytes(m_csName, std::string(5000, 'x'));
  KivWriteLog(u"new");
  EXPECT_THAT(Messages(), ElementsAre("new"));
}

TEST_F(TimingLog, OthersMayReadTheOpenLogAndNotWriteIt) {
  KivWriteLog(u"line");
  KivSysOpenMode zMode;
  zMode.m_iShare = KivSysShare::ReadWrite;
  EXPECT_TRUE(KivSysFile::Open(m_zFolder / m_csName, zMode).IsOpen());
  zMode.m_iAccess = KivSysAccess::Write;
  EXPECT_FALSE(KivSysFile::Open(m_zFolder / m_csName, zMode).IsOpen());
}

TEST_F(TimingLog, ALogThatCannotBeOpenedDropsTheLineAndTheNextCallTriesAgain) {
  {
    KivSysFaultScope zFault({KivSysCall::FileOpen, 1, false, KivSysFaultKind::Fail, false});
    EXPECT_NO_REPORT(KivWriteLog(u"dropped"));
    EXPECT_TRUE(zFault.HasFired());
  }
  EXPECT_EQ(Text(), "");
  KivWriteLog(u"written");
  EXPECT_THAT(Messages(), ElementsAre("written"));
}

TEST_F(TimingLog, AFullDiskLosesNoLineAlreadyWritten) {
  KivWriteLog(u"one");
  KivWriteLog(u"two");
  {
    KivSysFaultScope zFault({KivSysCall::FileWrite, 1, true, KivSysFaultKind::DiskFull, false});
    EXPECT_NO_REPORT(KivWriteLog(u"lost"));
    EXPECT_NO_REPORT(KivWriteLog(u"lost too"));
    EXPECT_TRUE(zFault.HasFired());
    EXPECT_THAT(Messages(), ElementsAre("one", "two"));
  }
  KivWriteLog(u"three");
  EXPECT_THAT(Messages(), ElementsAre("one", "two", "three"));
}

TEST_F(TimingLog, AShortWriteIsContinued) {
  KivSysFaultScope zFault({KivSysCall::FileWrite, 1, false, KivSysFaultKind::ShortCount, false});
  KivWriteLog(u"a line in two pieces");
  EXPECT_TRUE(zFault.HasFired());
  EXPECT_THAT(Messages(), ElementsAre("a line in two pieces"));
}

TEST_F(TimingLog, AnyFailingCallIsSilent) {
  for (uint64_t iNth = 1;; ++iNth) {
    KivSysFaultScope zFault({KivSysCall::Count, iNth, false, KivSysFaultKind::Fail, true});
    EXPECT_NO_REPORT({
      KivWriteLog(u"one");
      KivWriteLog(u"two");
      KivCopyLog(m_zFolder / u"copy.txt");
      KivWriteLog(u"three");
      KivCloseLog();
    });
    sys::RemoveFileAt(m_zFolder / u"copy.txt");
    if (!zFault.HasFired()) break;
    ASSERT_LT(iNth, 1000u);
  }
}

TEST_F(TimingLog, CopyWithoutAnOpenLogIsTen) {
  EXPECT_EQ(static_cast<uint32_t>(KivCopyLog(m_zFolder / u"copy.txt")), 10u);
  EXPECT_FALSE(sys::PathExists(m_zFolder / u"copy.txt"));
}

TEST_F(TimingLog, CopyGivesTheLinesSoFarAndTheLogGoesOn) {
  KivWriteLog(u"one");
  EXPECT_EQ(static_cast<uint32_t>(KivCopyLog(m_zFolder / u"copy.txt")), 0u);
  const std::string strCopy = m_zFolder.ReadBytes(u"copy.txt");
  EXPECT_EQ(strCopy, Text());
  KivWriteLog(u"two");
  EXPECT_THAT(Messages(), ElementsAre("one", "two"));
  EXPECT_EQ(m_zFolder.ReadBytes(u"copy.txt"), strCopy);
}

TEST_F(TimingLog, TheReopenedLogStillBarsOthersFromWriting) {
  KivWriteLog(u"one");
  KivCopyLog(m_zFolder / u"copy.txt");
  KivSysOpenMode zMode;
  zMode.m_iAccess = KivSysAccess::Write;
  zMode.m_iShare = KivSysShare::ReadWrite;
  EXPECT_FALSE(KivSysFile::Open(m_zFolder / m_csName, zMode).IsOpen());
}

TEST_F(TimingLog, CopyToAnExistingFileLeavesTheLogClosedAndTheNextLineRestartsIt) {
  m_zFolder.WriteBytes(u"copy.txt", "old");
  KivWriteLog(u"one");
  EXPECT_EQ(static_cast<uint32_t>(KivCopyLog(m_zFolder / u"copy.txt")), 20u);
  EXPECT_EQ(m_zFolder.ReadBytes(u"copy.txt"), "old");
  EXPECT_EQ(KivCopyLog(m_zFolder / u"other.txt"), KivCopyLogResult::NoLogOpen);
  EXPECT_THAT(Messages(), ElementsAre("one"));
  KivWriteLog(u"two");
  EXPECT_THAT(Messages(), ElementsAre("two"));
}

TEST_F(TimingLog, ACopyThatFailsIsThirtyAndLeavesTheLogClosed) {
  KivWriteLog(u"one");
  EXPECT_EQ(static_cast<uint32_t>(KivCopyLog(m_zFolder / u"missing" + sys::kSeparator + u"copy.txt")), 30u);
  EXPECT_EQ(KivCopyLog(m_zFolder / u"other.txt"), KivCopyLogResult::NoLogOpen);
}

TEST_F(TimingLog, CloseDeletesTheFile) {
  KivWriteLog(u"one");
  KivCloseLog();
  EXPECT_FALSE(sys::PathExists(m_zFolder / m_csName));
}

TEST_F(TimingLog, CloseWithNoLogOpenDoesNothing) {
  m_zFolder.WriteBytes(m_csName, "not ours");
  EXPECT_NO_REPORT(KivCloseLog());
  EXPECT_EQ(Text(), "not ours");
  KivWriteLog(u"one");
  m_zFolder.WriteBytes(u"copy.txt", "old");
  KivCopyLog(m_zFolder / u"copy.txt");
  KivCloseLog();
  EXPECT_THAT(Messages(), ElementsAre("one"));
}

TEST_F(TimingLog, AWorkFolderThatIsGoneDropsTheLine) {
  sys::RemoveFolder(m_zFolder.Path());
  EXPECT_NO_REPORT(KivWriteLog(u"dropped"));
  sys::MakeFolder(m_zFolder.Path());
  KivWriteLog(u"written");
  EXPECT_THAT(Messages(), ElementsAre("written"));
}
