#include "KivToolOutput.h"

#include <gtest/gtest.h>

#include <cmath>
#include <nlohmann/json.hpp>

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

}  // namespace
