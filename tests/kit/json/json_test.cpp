#include "kit/json/json.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <nlohmann/json.hpp>
#include <random>
#include <string>
#include <vector>

namespace vorn::kit {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Lt;
using testing::Not;
using testing::SizeIs;
using testing::ThrowsMessage;

constexpr uint64_t kMostUnsigned = std::numeric_limits<uint64_t>::max();
constexpr int64_t kLeastSigned = std::numeric_limits<int64_t>::min();

TEST(ParseJson, ReadsEveryKind) {
  const Json value = ParseJson(
      R"( {"null": null, "yes": true, "whole": -3, "real": 0.5, "text": "a\u00e9\n",
           "array": [1, [], {}], "object": {"b": 1, "a": 2}} )");
  EXPECT_TRUE(value.At("null").IsNull());
  EXPECT_TRUE(value.At("yes").AsBool());
  EXPECT_EQ(value.At("whole").AsSigned(), -3);
  EXPECT_EQ(value.At("real").AsNumber(), 0.5);
  EXPECT_EQ(value.At("text").AsText(), "a\xc3\xa9\n");
  ASSERT_EQ(value.At("array").Items().size(), 3U);
  EXPECT_EQ(value.At("array").Items()[0].AsUnsigned(), 1U);
  EXPECT_TRUE(value.At("array").Items()[1].IsArray());
  EXPECT_TRUE(value.At("array").Items()[2].IsObject());
  ASSERT_EQ(value.At("object").Members().size(), 2U);
  EXPECT_EQ(value.At("object").Members()[0].first, "b");
  EXPECT_EQ(value.At("object").Members()[1].first, "a");
}

TEST(ParseJson, KeepsWholeNumbersToTheirEnds) {
  const Json value = ParseJson("[18446744073709551615, -9223372036854775808]");
  EXPECT_EQ(value.Items()[0].AsUnsigned(), kMostUnsigned);
  EXPECT_EQ(value.Items()[1].AsSigned(), kLeastSigned);
}

TEST(ParseJson, SaysAtWhichByteATextIsWrong) {
  EXPECT_THAT([] { (void)ParseJson("[1,"); },
              ThrowsMessage<JsonError>(HasSubstr("at byte 4: syntax error while parsing value")));
  EXPECT_THAT([] { (void)ParseJson(""); }, ThrowsMessage<JsonError>(HasSubstr("at byte 1")));
  EXPECT_THAT([] { (void)ParseJson("1 2"); }, ThrowsMessage<JsonError>(HasSubstr("at byte 3")));
  EXPECT_THAT([] { (void)ParseJson("\"\xff\""); },
              ThrowsMessage<JsonError>(HasSubstr("at byte 2")));
  EXPECT_THAT([] { (void)ParseJson("1e999"); }, ThrowsMessage<JsonError>(HasSubstr("overflow")));
}

TEST(ParseJson, QuotesAnythingInALineThatCanBeRead) {
  EXPECT_THAT([] { (void)ParseJson("{\x7f"); },
              ThrowsMessage<JsonError>(AllOf(HasSubstr("at byte 2"), Not(HasSubstr("\x7f")))));
  EXPECT_THAT([] { (void)ParseJson("{\"\\n\": 1, \"\\n\": 2}"); },
              ThrowsMessage<JsonError>("the key '\\x0A' stands twice in an object"));
  EXPECT_THAT([] { (void)ParseJson("\"" + std::string(100'000, 'x')); },
              ThrowsMessage<JsonError>(SizeIs(Lt(300))));
}

TEST(ParseJson, RefusesAKeyThatStandsTwice) {
  EXPECT_THAT([] { (void)ParseJson(R"([{"b": 1, "a": 2, "b": 3}])"); },
              ThrowsMessage<JsonError>("the key 'b' stands twice in an object"));
}

TEST(ParseJson, BoundsHowDeepBracketsGo) {
  const auto nested = [](size_t depth) {
    return std::string(depth, '[') + std::string(depth, ']');
  };
  EXPECT_TRUE(ParseJson(nested(64)).IsArray());
  EXPECT_THAT([&] { (void)ParseJson(nested(65)); },
              ThrowsMessage<JsonError>("more than 64 brackets within each other"));
  EXPECT_THROW((void)ParseJson(std::string(1'000'000, '[')), JsonError);
}

TEST(Json, FindsMembersOfObjectsAlone) {
  const Json value = Json::Object({{"name", "x"}});
  EXPECT_EQ(value.Find("name")->AsText(), "x");
  EXPECT_EQ(value.Find("size"), nullptr);
  EXPECT_EQ(Json::Array({1}).Find("name"), nullptr);
  EXPECT_THAT([&] { (void)value.At("size"); }, ThrowsMessage<JsonError>("'size' is missing"));
  EXPECT_THAT([] { (void)Json(1).At("size"); },
              ThrowsMessage<JsonError>("expected an object, found a number"));
}

TEST(Json, RefusesToBeWhatItIsNot) {
  const Json object = Json::Object();
  EXPECT_THAT([&] { (void)object.AsBool(); },
              ThrowsMessage<JsonError>("expected a truth value, found an object"));
  EXPECT_THAT([] { (void)Json(true).AsSigned(); },
              ThrowsMessage<JsonError>("expected a whole number, found a truth value"));
  EXPECT_THAT([] { (void)Json(1.5).AsUnsigned(); },
              ThrowsMessage<JsonError>("expected a whole number, found a number"));
  EXPECT_THAT([] { (void)Json("one").AsNumber(); },
              ThrowsMessage<JsonError>("expected a number, found a text"));
  EXPECT_THAT([] { (void)Json(nullptr).AsText(); },
              ThrowsMessage<JsonError>("expected a text, found null"));
  EXPECT_THAT([&] { (void)object.Items(); },
              ThrowsMessage<JsonError>("expected an array, found an object"));
  EXPECT_THAT([] { (void)Json::Array().Members(); },
              ThrowsMessage<JsonError>("expected an object, found an array"));
}

TEST(Json, RefusesNumbersOutOfRange) {
  EXPECT_EQ(Json(kMostUnsigned / 2).AsSigned(), std::numeric_limits<int64_t>::max());
  EXPECT_THAT([] { (void)Json(kMostUnsigned / 2 + 1).AsSigned(); },
              ThrowsMessage<JsonError>("the number 9223372036854775808 is too large"));
  EXPECT_EQ(Json(0).AsUnsigned(), 0U);
  EXPECT_THAT([] { (void)Json(-1).AsUnsigned(); },
              ThrowsMessage<JsonError>("the number -1 is negative"));
  EXPECT_EQ(Json(-1).AsNumber(), -1.0);
  EXPECT_EQ(Json(2U).AsNumber(), 2.0);
}

TEST(Json, ReplacesAMemberWhereItStands) {
  Json value = Json::Object({{"a", 1}, {"b", 2}});
  value.Set("a", "x");
  value.Set("c", Json::ArrayOf(std::vector{1, 2}));
  EXPECT_EQ(ToText(value), R"({"a":"x","b":2,"c":[1,2]})");
}

TEST(ToText, IsReadBackAsTheSame) {
  const std::string text =
      R"({"z":[1,-2,0.1,1e+300,true,false,null],"a":{"":"\"\\\u0001/é"},"big":18446744073709551615})";
  EXPECT_EQ(ToText(ParseJson(text)), text);
  EXPECT_EQ(ToText(ParseJson(ToText(ParseJson(text), 2))), text);
}

TEST(ToText, IndentsWhereItIsAsked) {
  EXPECT_EQ(ToText(Json::Object({{"a", Json::Array({1})}}), 2), "{\n  \"a\": [\n    1\n  ]\n}");
}

// Each kind as the library behind the reader prints it, which is read here by itself.
TEST(ToText, PrintsAsTheLibraryDoes) {
  std::vector<std::string> texts{"",
                                 "plain ~",
                                 "\"",
                                 "\\",
                                 "/",
                                 "\n\t\r\b\f",
                                 std::string(1, '\0'),
                                 "\x1f",
                                 "\x7f",
                                 "\xc3\xa4",
                                 "\xf0\x9f\x98\x80",
                                 "\xff",
                                 "a\xc3",
                                 "\xed\xa0\x80z"};
  std::vector<double> numbers{0,
                              -0.0,
                              1,
                              -1.5,
                              0.1,
                              1e15,
                              1e16,
                              123456789.125,
                              1e20,
                              1e-5,
                              1e-4,
                              5e-324,
                              1.7976931348623157e308,
                              2.5e-10,
                              1e21};
  std::mt19937_64 random(7);
  for (int i = 0; i < 2000; ++i) {
    std::string text;
    for (uint64_t left = random() % 12; left > 0; --left) text += static_cast<char>(random());
    texts.push_back(text);
    const double number = std::bit_cast<double>(random());
    if (std::isfinite(number)) numbers.push_back(number);
  }
  Json value = Json::Object({{"empty", Json::Object()}, {"none", Json::Array()}});
  nlohmann::ordered_json same;
  same["empty"] = nlohmann::ordered_json::object();
  same["none"] = nlohmann::ordered_json::array();
  const auto set = [&](const std::string& key, auto kind) {
    value.Set(key, Json::Array({Json(kind), Json::Object({{key, Json(kind)}})}));
    nlohmann::ordered_json inner;
    inner[key] = kind;
    same[key] = nlohmann::ordered_json::array({kind, inner});
  };
  for (size_t i = 0; i < texts.size(); ++i) set(std::to_string(i) + texts[i], texts[i]);
  for (size_t i = 0; i < numbers.size(); ++i) set("d" + std::to_string(i), numbers[i]);
  set("least", std::numeric_limits<int64_t>::min());
  set("most", std::numeric_limits<uint64_t>::max());
  set("true", true);
  set("null", nullptr);
  const auto replace = nlohmann::ordered_json::error_handler_t::replace;
  EXPECT_EQ(ToText(value), same.dump(-1, ' ', false, replace));
  EXPECT_EQ(ToText(value, 2), same.dump(2, ' ', false, replace));
}

TEST(ToText, WritesNumbersThatJsonHasNotAsTexts) {
  const double infinity = std::numeric_limits<double>::infinity();
  const Json value = Json::Array({std::numeric_limits<double>::quiet_NaN(), infinity, -infinity});
  const std::string text = ToText(value);
  EXPECT_EQ(text, R"(["NaN","Infinity","-Infinity"])");
  const Json again = ParseJson(text);
  EXPECT_TRUE(again.Items()[0].AsNumber() != again.Items()[0].AsNumber());
  EXPECT_EQ(again.Items()[1].AsNumber(), infinity);
  EXPECT_EQ(again.Items()[2].AsNumber(), -infinity);
}

TEST(ToText, WritesBytesThatAreNoUtf8AsReplacement) {
  EXPECT_EQ(ToText(Json::Object({{"\xff", "a\xfe"}})), "{\"\xef\xbf\xbd\":\"a\xef\xbf\xbd\"}");
}

}  // namespace
}  // namespace vorn::kit
