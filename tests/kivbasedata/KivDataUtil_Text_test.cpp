#include <gtest/gtest.h>

#include "KivDataUtil.h"
#include "KivSysFault.h"
#include "KivTestReport.h"

using namespace kiv;

namespace {

std::string Utf8Of(const KivWString& csText) {
  std::vector<char> vcText(3, 'x');
  KivToUtf8(csText, vcText);
  EXPECT_FALSE(vcText.empty());
  EXPECT_EQ(vcText.back(), '\0');
  return std::string(vcText.begin(), vcText.end() - 1);
}

KivWString WideOf(const char* szText) {
  KivWString csText = u"before";
  KivFromUtf8(szText, csText);
  return csText;
}

}  // namespace

TEST(Text, Utf8HoldsTheTerminatorAndReplacesWhatWasInTheArray) {
  std::vector<char> vcText(10, 'x');
  KivToUtf8(u"ab", vcText);
  EXPECT_EQ(vcText, (std::vector<char>{'a', 'b', '\0'}));
  KivToUtf8(u"", vcText);
  EXPECT_EQ(vcText, (std::vector<char>{'\0'}));
}

TEST(Text, AnsiHoldsTheTerminatorAndReplacesWhatWasInTheArray) {
  std::vector<char> vcText(10, 'x');
  KivToAnsi(u"ab", vcText);
  EXPECT_EQ(vcText, (std::vector<char>{'a', 'b', '\0'}));
  KivToAnsi(u"", vcText);
  EXPECT_EQ(vcText, (std::vector<char>{'\0'}));
}

TEST(Text, AnAnsiTextThatCannotBeMeasuredIsReportedAndTheArrayIsEmpty) {
  std::vector<char> vcText(10, 'x');
  const KivSysFaultScope zFault({KivSysCall::TextMeasure, 1, true, KivSysFaultKind::Fail, false});
  EXPECT_REPORT(KivToAnsi(u"ab", vcText), "0");
  EXPECT_TRUE(vcText.empty());
  kivtest::NoThrowScope zNoThrow;
  vcText.assign(10, 'x');
  KivToAnsi(u"ab", vcText);
  EXPECT_TRUE(vcText.empty());
}

TEST(Text, AnAnsiTextOfAnotherLengthThanMeasuredIsReported) {
  std::vector<char> vcText;
  const KivSysFaultScope zFault({KivSysCall::TextConvert, 1, true, KivSysFaultKind::ShortCount, false});
  EXPECT_REPORT(KivToAnsi(u"ab", vcText), "iLength == nLength");
  kivtest::NoThrowScope zNoThrow;
  KivToAnsi(u"ab", vcText);
  EXPECT_EQ(vcText, (std::vector<char>{'a', '\0'}));
}

TEST(Text, EveryLengthOfUtf8ComesBack) {
  const KivWString csText = u"a\u00E9\u20AC\U0001F600z";
  EXPECT_EQ(Utf8Of(csText), "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80z");
  EXPECT_EQ(WideOf("a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80z"), csText);
}

TEST(Text, ALoneSurrogateBecomesTheReplacementCharacter) {
  EXPECT_EQ(Utf8Of(KivWString{u'a', 0xD800, u'b'}),
            "a\xEF\xBF\xBD"
            "b");
  EXPECT_EQ(Utf8Of(KivWString{0xDC00}), "\xEF\xBF\xBD");
  EXPECT_EQ(Utf8Of(KivWString{0xD800}), "\xEF\xBF\xBD");
  EXPECT_EQ(Utf8Of(KivWString{0xD800, 0xD83D, 0xDE00}), "\xEF\xBF\xBD\xF0\x9F\x98\x80");
}

TEST(Text, InvalidUtf8BecomesTheReplacementCharacter) {
  EXPECT_EQ(WideOf("a\xFFz"), u"a\uFFFDz");
  EXPECT_EQ(WideOf("a\xC3"), u"a\uFFFD");
}

TEST(Text, AWideTextEndsAtItsFirstZero) {
  EXPECT_EQ(Utf8Of(KivWString(u"ab\0cd", 5)), "ab");
  std::vector<char> vcText;
  KivToAnsi(KivWString(u"ab\0cd", 5), vcText);
  EXPECT_EQ(vcText, (std::vector<char>{'a', 'b', '\0'}));
}

TEST(Text, AnArrayEndsAtItsFirstZeroOrItsEnd) {
  KivWString csText;
  KivFromUtf8(std::vector<char>{'a', 'b', '\0', 'c'}, csText);
  EXPECT_EQ(csText, u"ab");
  KivFromUtf8(std::vector<char>{'a', 'b', 'c'}, csText);
  EXPECT_EQ(csText, u"abc");
}

TEST(Text, NullInputIsReportedAndGivesAnEmptyText) {
  KivWString csText = u"before";
  EXPECT_REPORT(KivFromUtf8(static_cast<const char*>(nullptr), csText), "0");
  kivtest::NoThrowScope zNoThrow;
  csText = u"before";
  KivFromUtf8(static_cast<const char*>(nullptr), csText);
  EXPECT_EQ(csText, u"");
}

TEST(Text, AnEmptyArrayIsReportedAndGivesAnEmptyText) {
  KivWString csText = u"before";
  EXPECT_REPORT(KivFromUtf8(std::vector<char>(), csText), "0");
  kivtest::NoThrowScope zNoThrow;
  csText = u"before";
  KivFromUtf8(std::vector<char>(), csText);
  EXPECT_EQ(csText, u"");
}

TEST(Text, AnEmptyInputGivesAnEmptyText) {
  EXPECT_EQ(WideOf(""), u"");
}

TEST(Text, TheMeasureHoldsForEveryUnitAndPair) {
  KivWString csText;
  for (uint32_t iUnit = 1; iUnit <= 0xFFFF; ++iUnit) csText.push_back(static_cast<char16_t>(iUnit));
  std::vector<char> vcText;
  EXPECT_NO_REPORT(KivToUtf8(csText, vcText));
  KivWString csReversed(csText.rbegin(), csText.rend());
  EXPECT_NO_REPORT(KivToUtf8(csReversed, vcText));
}

TEST(Text, TheScratchArrayIsOneAndKeepsItsSize) {
  KivGetScratchBytes().resize(1000, 7);
  EXPECT_EQ(KivGetScratchBytes().size(), 1000u);
  EXPECT_EQ(&KivGetScratchBytes(), &KivGetScratchBytes());
}
