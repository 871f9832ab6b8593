#include "KivSysTextExact.h"

#include <gtest/gtest.h>

using namespace kiv;

TEST(TextExact, WellFormedTextIsUtf8) {
  const KivWString cs = u"a\u00e9\u20ac\U0001F600";
  EXPECT_EQ(sys::WideToExact(cs), sys::WideToUtf8(cs));
  EXPECT_EQ(sys::ExactToWide(sys::WideToUtf8(cs)), cs);
  EXPECT_TRUE(sys::IsWellFormed(cs));
  EXPECT_TRUE(sys::IsWellFormed(u""));
}

TEST(TextExact, LoneSurrogatesComeBackWhereverTheyStand) {
  const KivWString aszLone[] = {{0xDCFF},
                                {0xD800},
                                {0xD800, u'a'},
                                {u'a', 0xDFFF, u'b'},
                                {0xDC00, 0xD800},
                                {0xD83D, 0xD83D, 0xDE00},
                                {0xDE00, 0xD83D, 0xDE00}};
  for (const KivWString& cs : aszLone) {
    const std::string str = sys::WideToExact(cs);
    EXPECT_EQ(sys::ExactToWide(str), cs);
    EXPECT_NE(str, sys::WideToUtf8(cs));
    EXPECT_FALSE(sys::IsWellFormed(cs));
  }
}

TEST(TextExact, OtherBytesBecomeTheReplacementCharacter) {
  EXPECT_EQ(sys::ExactToWide("a\xff"), u"a\uFFFD");
  EXPECT_EQ(sys::ExactToWide("\xED\xA0"), sys::Utf8ToWide("\xED\xA0"));
  EXPECT_EQ(sys::ExactToWide("\xED\xA0zz"), sys::Utf8ToWide("\xED\xA0zz"));
}
