#include "KivToolOutput.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>
#include <string>

#include "KivProgress.h"

namespace {

using kiv::KivJsonWriter;
using nlohmann::ordered_json;

TEST(JsonWriter, WritesWhatAParserReadsBack) {
  std::string strText;
  KivJsonWriter zJson([&](std::string_view str) { strText += str; });
  zJson.BeginObject();
  zJson.Value("text", "a \"b\"\n\x01 \xC3\xA4");
  zJson.Value("no text", std::string_view("\xFF\xFE"));
  zJson.Value("yes", true);
  zJson.Value("least", INT64_MIN);
  zJson.Value("most", UINT64_MAX);
  zJson.Value("tenth", 0.1f);
  zJson.Value("third", 1.0 / 3);
  zJson.Value("nan", std::nan(""));
  zJson.Null("null");
  zJson.Row("row", std::vector<int>{1, 2, 3});
  zJson.BeginArray("empty");
  zJson.End();
  zJson.BeginArray("objects");
  zJson.BeginObject();
  zJson.Value("a", 1);
  zJson.End();
  zJson.BeginObject();
  zJson.End();
  zJson.End();
  zJson.End();
  const ordered_json z = ordered_json::parse(strText);
  EXPECT_EQ(z["text"], "a \"b\"\n\x01 \xC3\xA4");
  EXPECT_EQ(z["no text"], "\xEF\xBF\xBD\xEF\xBF\xBD");
  EXPECT_EQ(z["yes"], true);
  EXPECT_EQ(z["least"], INT64_MIN);
  EXPECT_EQ(z["most"], UINT64_MAX);
  EXPECT_NE(strText.find("\"tenth\": 0.1,"), std::string::npos);
  EXPECT_EQ(z["third"], 1.0 / 3);
  EXPECT_TRUE(z["nan"].is_null());
  EXPECT_EQ(z["row"], (std::vector<int>{1, 2, 3}));
  EXPECT_NE(strText.find("[1, 2, 3]"), std::string::npos);
  EXPECT_EQ(z["empty"], ordered_json::array());
  EXPECT_EQ(z["objects"].size(), 2u);
  EXPECT_EQ(z.begin().key(), "text");
  EXPECT_EQ(strText.back(), '\n');
}

TEST(JsonWriter, EndToEndsWhatIsOpen) {
  std::string strText;
  KivJsonWriter zJson([&](std::string_view str) { strText += str; });
  zJson.BeginObject();
  zJson.BeginArray("a");
  zJson.BeginObject();
  zJson.Value("b", 1);
  zJson.EndTo(1);
  zJson.Value("error", "why");
  zJson.EndTo(0);
  EXPECT_EQ(ordered_json::parse(strText), ordered_json::parse(R"({"a": [{"b": 1}], "error": "why"})"));
}

TEST(Shown, ControlsAreSpelledOut) {
  EXPECT_EQ(kiv::KivShown(u"a\nb\tc\x1b[31m\u0085\u00e4"), "a\\nb\\tc\\x1b[31m\\x85\xC3\xA4");
  EXPECT_EQ(kiv::KivShown(u""), "");
}

const std::string kFull = "##############################", kNone = "..............................";

TEST(Progress, ABarTellsTheShareThatIsDone) {
  const auto Line = [](uint64_t nDone, uint64_t nTotal) {
    return kiv::KivProgress::Line("it", nDone, nTotal, 7, 0, 80);
  };
  EXPECT_EQ(Line(0, 1), "it  [" + kNone + "]   0 %  7 s");
  EXPECT_EQ(Line(1, 2), "it  [" + kFull.substr(15) + kNone.substr(15) + "]  50 %  7 s");
  EXPECT_EQ(Line(5, 5), "it  [" + kFull + "] 100 %  7 s");
  EXPECT_EQ(Line(UINT64_MAX, 5), Line(5, 5));
}

TEST(Progress, ABarWithoutATotalMovesToAndFro) {
  const auto Line = [](uint64_t iFrame) { return kiv::KivProgress::Line("it", 3, 0, 7, iFrame, 80); };
  const std::string strBlock = kFull.substr(24), strWay = kNone.substr(6);
  EXPECT_EQ(Line(0), "it  [" + strBlock + strWay + "]  7 s");
  EXPECT_EQ(Line(24), "it  [" + strWay + strBlock + "]  7 s");
  EXPECT_EQ(Line(23), Line(25));
  EXPECT_EQ(Line(47), Line(1));
  EXPECT_EQ(Line(48), Line(0));
}

TEST(Progress, ALineIsShorterThanTheTerminal) {
  const std::string strWhat =
      "reading /home/\xC3\xA4\xE4\xB8\xAD/a b c d e f g h i j k l m n o p q r s t u v w x y z.step";
  for (size_t nColumns = 0; nColumns < 150; ++nColumns) {
    const std::string strLine = kiv::KivProgress::Line(strWhat, 1, 2, 100, 0, nColumns);
    const auto nTails = std::count_if(strLine.begin(), strLine.end(), [](char c) { return (c & 0xC0) == 0x80; });
    EXPECT_LT(strLine.size() - static_cast<size_t>(nTails), std::max<size_t>(nColumns, 1)) << strLine;
    EXPECT_EQ(strLine.find(" s") != std::string::npos, nColumns > 7) << nColumns;
    EXPECT_EQ(strLine.find("]  50 %") != std::string::npos, nColumns > 59) << nColumns;
  }
  EXPECT_EQ(kiv::KivProgress::Line(strWhat, 1, 2, 100, 0, 24), "... w x y z.step  100 s");
  EXPECT_EQ(kiv::KivProgress::Line("\xE4\xB8\xAD\xE4\xB8\xAD\xE4\xB8\xAD", 1, 2, 1, 0, 11), "...\xE4\xB8\xAD  1 s");
}

}  // namespace
