#include "KivSysText.h"

#include <gtest/gtest.h>

#include <random>

using namespace kiv;

TEST(Text, GoesBothWaysForEveryCodePoint) {
  for (uint32_t iPoint = 0; iPoint <= 0x10FFFF; iPoint += iPoint < 0x3000 ? 1 : 37) {
    if (iPoint >= 0xD800 && iPoint <= 0xDFFF) continue;
    KivWString csText;
    if (iPoint < 0x10000) {
      csText = static_cast<char16_t>(iPoint);
    } else {
      csText += static_cast<char16_t>(0xD7C0 + (iPoint >> 10));
      csText += static_cast<char16_t>(0xDC00 + (iPoint & 0x3FF));
    }
    ASSERT_TRUE(sys::Utf8ToWide(sys::WideToUtf8(csText)) == csText) << iPoint;
  }
}

TEST(Text, KnownForms) {
  EXPECT_EQ(sys::WideToUtf8(u""), "");
  EXPECT_EQ(sys::WideToUtf8(u"a\u00e4\u20ac\U0001F600"), "a\xc3\xa4\xe2\x82\xac\xf0\x9f\x98\x80");
  EXPECT_TRUE(sys::Utf8ToWide("a\xc3\xa4\xe2\x82\xac\xf0\x9f\x98\x80") == u"a\u00e4\u20ac\U0001F600");
  const KivWString csWithZero(u"a\0b", 3);
  EXPECT_EQ(sys::WideToUtf8(csWithZero), std::string("a\0b", 3));
  EXPECT_TRUE(sys::Utf8ToWide(std::string("a\0b", 3)) == csWithZero);
}

TEST(Text, LoneSurrogatesBecomeTheReplacement) {
  EXPECT_EQ(sys::WideToUtf8(KivWString(1, 0xD800)), "\xef\xbf\xbd");
  EXPECT_EQ(sys::WideToUtf8(KivWString(1, 0xDFFF) + u"a"),
            "\xef\xbf\xbd"
            "a");
  EXPECT_EQ(sys::WideToUtf8(KivWString(2, 0xD800)), "\xef\xbf\xbd\xef\xbf\xbd");
  EXPECT_EQ(sys::WideToUtf8(KivWString(1, 0xDC00) + KivWString(1, 0xD800)), "\xef\xbf\xbd\xef\xbf\xbd");
}

TEST(Text, EachMaximalInvalidPartBecomesOneReplacement) {
  const std::pair<const char*, KivWString> azCases[] = {
      {"\x80", u"\ufffd"},
      {"\xff\xfe", u"\ufffd\ufffd"},
      {"\xc0\xaf", u"\ufffd\ufffd"},                      // overlong
      {"\xe0\x80\xaf", u"\ufffd\ufffd\ufffd"},            // overlong
      {"\xed\xa0\x80", u"\ufffd\ufffd\ufffd"},            // a surrogate
      {"\xf4\x90\x80\x80", u"\ufffd\ufffd\ufffd\ufffd"},  // behind the last code point
      {"\xf0\x90\x80", u"\ufffd"},                        // cut
      {"\xe2\x82"
       "a",
       u"\ufffd"
       u"a"},
      {"\xf1\x80\x80\xe1\x80\xc2"
       "b\x80"
       "c",
       u"\ufffd\ufffd\ufffd"
       u"b\ufffd"
       u"c"},
  };
  for (const auto& [szBytes, csText] : azCases) EXPECT_TRUE(sys::Utf8ToWide(szBytes) == csText) << szBytes;
}

TEST(Text, AConversionTakesTheRoomThatItsResultNeeds) {
  constexpr size_t kUnits = 100'000;
  for (const KivWString& csPiece : {KivWString(u"a"), KivWString(u"\u00e4"), KivWString(u"\u4e2d"),
                                    KivWString(u"\U0001F600"), KivWString{0xD800, u'x'}}) {
    KivWString csText;
    for (size_t i = 0; i < kUnits; ++i) csText += csPiece;
    const std::string strText = sys::WideToUtf8(csText);
    EXPECT_EQ(strText.capacity(), strText.size());
    const KivWString csBack = sys::Utf8ToWide(strText);
    EXPECT_EQ(csBack.capacity(), csBack.size());
    EXPECT_EQ(csBack.size(), csText.size());
  }
  EXPECT_EQ(sys::Utf8ToWide(std::string(kUnits, '\xff')).capacity(), kUnits);
}

TEST(Text, RandomBytesGiveValidText) {
  const uint32_t iSeed = std::random_device{}();
  SCOPED_TRACE(iSeed);
  std::mt19937 zRandom(iSeed);
  for (int i = 0; i < 20'000; ++i) {
    std::string strBytes(zRandom() % 24, 0);
    for (char& c : strBytes) c = static_cast<char>(zRandom() % 4 == 0 ? zRandom() % 128 : 0x80 + zRandom() % 128);
    const KivWString csText = sys::Utf8ToWide(strBytes);
    ASSERT_LE(csText.size(), strBytes.size());
    ASSERT_TRUE(sys::Utf8ToWide(sys::WideToUtf8(csText)) == csText);
  }
}

TEST(Text, AsciiIsTheSameInTheAnsiCodePage) {
  EXPECT_EQ(sys::WideToAnsi(u"error_config.txt"), "error_config.txt");
  EXPECT_TRUE(sys::AnsiToWide("error_config.txt") == u"error_config.txt");
  EXPECT_EQ(sys::WideToAnsi(u""), "");
  EXPECT_TRUE(sys::AnsiToWide("") == u"");
}
