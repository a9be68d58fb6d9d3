#include "host/config/model_settings.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/config/json_values.h"
#include "runtime/host/refusal.h"

namespace vorn::host {
namespace {

using testing::HasSubstr;

std::string Refusal(const std::string& text) {
  return ReasonOf(VORN_ERROR_CONFIG, [&] { ParseModelSettings(text); });
}

TEST(ParseModelSettings, TakesAnEmptyObject) {
  const ModelSettings settings = ParseModelSettings("{}");
  EXPECT_EQ(settings.netType, vorn_net_type{VORN_NET_FEED_FORWARD});
  EXPECT_EQ(settings.sequence, Sequence::kWhole);
  EXPECT_EQ(settings.maxFrames, 0);
}

TEST(ParseModelSettings, TakesEveryKey) {
  const ModelSettings settings = ParseModelSettings(R"({
    "netType": "recurrent", "dims": {"n": 3}, "inputDims": {"x": [-1, 5]},
    "outputDims": {"y": [7], "scalar": []}, "constants": {"rate": 16000, "mask": [true, 0.5]},
    "rpn": "t", "sequence": "steps", "maxFrames": 9, "frames": "x", "flags": "f", "length": "l",
    "timeAxis": 1, "context": 64, "states": {"h": "hn"},
    "expose": ["a", "b"], "until": "c"})");
  EXPECT_EQ(settings.netType, vorn_net_type{VORN_NET_RECURRENT});
  EXPECT_EQ(settings.dims.at("n"), 3);
  EXPECT_EQ(settings.inputDims.at("x"), (Shape{kDimOfModel, 5}));
  EXPECT_EQ(settings.outputDims.at("y"), Shape{7});
  EXPECT_EQ(settings.outputDims.at("scalar"), Shape{});
  EXPECT_EQ(settings.constants.at("rate").at(0).whole, 16000);
  EXPECT_EQ(settings.constants.at("mask").at(0).whole, 1);
  EXPECT_EQ(settings.constants.at("mask").at(1).real, 0.5);
  EXPECT_FALSE(settings.constants.at("mask").at(1).isWhole);
  EXPECT_EQ(settings.rpn, std::vector<std::string>{"t"});
  EXPECT_EQ(settings.sequence, Sequence::kSteps);
  EXPECT_EQ(settings.maxFrames, 9);
  EXPECT_EQ(settings.frames, "x");
  EXPECT_EQ(settings.flags, "f");
  EXPECT_EQ(settings.length, "l");
  EXPECT_EQ(settings.timeAxis, 1);
  EXPECT_EQ(settings.context, 64);
  EXPECT_EQ(settings.states.at("h"), "hn");
  EXPECT_EQ(settings.expose, (std::vector<std::string>{"a", "b"}));
  EXPECT_FALSE(settings.exposeAll);
  EXPECT_EQ(settings.until, std::vector<std::string>{"c"});
}

TEST(ParseModelSettings, LeavesWhatIsNotMentionedAsItWas) {
  const ModelSettings own = ParseModelSettings(R"({"maxFrames": 9, "context": 64})");
  const ModelSettings settings = ParseModelSettings(R"({"maxFrames": 3})", own);
  EXPECT_EQ(settings.maxFrames, 3);
  EXPECT_EQ(settings.context, 64);
}

TEST(ParseModelSettings, TellsAllFromATensorOfThatName) {
  EXPECT_TRUE(ParseModelSettings(R"({"expose": "all"})").exposeAll);
  const ModelSettings named = ParseModelSettings(R"({"expose": ["all"]})");
  EXPECT_FALSE(named.exposeAll);
  EXPECT_EQ(named.expose, std::vector<std::string>{"all"});
  EXPECT_FALSE(ParseModelSettings(R"({"expose": []})", ParseModelSettings(R"({"expose": "all"})"))
                   .exposeAll);
}

TEST(ParseModelSettings, TakesEveryPrecision) {
  EXPECT_EQ(ParseModelSettings("{}").round, Rounding::kNone);
  EXPECT_EQ(ParseModelSettings(R"({"round": "float16"})").round, Rounding::kToFloat16);
  EXPECT_EQ(ParseModelSettings(R"({"round": "bfloat16"})").round, Rounding::kToBfloat16);
  const ModelSettings here =
      ParseModelSettings(R"({"round": {"int8": {"a": {"min": 0, "max": 1}}}})");
  EXPECT_EQ(here.round, Rounding::kToInt8);
  EXPECT_EQ(here.ranges.at("a"), (Range{0, 1}));
  const ModelSettings file = ParseModelSettings(R"({"round": {"int8": "ranges.json"}})", here);
  EXPECT_EQ(file.rangesFile, "ranges.json");
  EXPECT_TRUE(file.ranges.empty());
  EXPECT_EQ(ParseModelSettings(R"({"round": "float16"})", file).rangesFile, "");
  EXPECT_TRUE(file.isFused);
  const ModelSettings apart =
      ParseModelSettings(R"({"round": {"fuse": false, "int8": "ranges.json"}})");
  EXPECT_FALSE(apart.isFused);
  EXPECT_EQ(apart.rangesFile, "ranges.json");
  EXPECT_TRUE(ParseModelSettings(R"({"round": {"int8": "ranges.json"}})", apart).isFused);
}

TEST(ParseModelSettings, RefusesPrecisionsThatAreNone) {
  for (const char* wrong : {R"("int8")", R"("float32")", "16", "{}", "null", "[]"}) {
    EXPECT_THAT(Refusal(std::string(R"({"round": )") + wrong + "}"),
                HasSubstr(R"(give "float16", "bfloat16" or {"int8": ranges})"))
        << wrong;
  }
  EXPECT_THAT(Refusal(R"({"round": {"int4": {}}})"), HasSubstr("'model.round.int4' is not known"));
  EXPECT_THAT(Refusal(R"({"round": {"fuse": true}})"), HasSubstr(R"({"int8": ranges})"));
  EXPECT_THAT(Refusal(R"({"round": {"int8": {}, "fuse": 1}})"), HasSubstr("'model.round.fuse'"));
  EXPECT_THAT(Refusal(R"({"round": {"int8": 1}})"), HasSubstr("'model.round.int8'"));
  EXPECT_THAT(Refusal(R"({"round": {"int8": ""}})"), HasSubstr("'model.round.int8'"));
  EXPECT_THAT(Refusal(R"({"round": {"int8": {"a": 1}}})"), HasSubstr("'model.round.int8.a'"));
}

TEST(ParseModelSettings, TakesSeveralInputsOfThresholds) {
  EXPECT_EQ(ParseModelSettings(R"({"rpn": ["a", "b"]})").rpn, (std::vector<std::string>{"a", "b"}));
}

TEST(ParseModelSettings, RefusesWrongValuesByKey) {
  EXPECT_THAT(Refusal("["), HasSubstr("'model' is not JSON"));
  EXPECT_THAT(Refusal("[]"), HasSubstr("give a JSON object"));
  EXPECT_THAT(Refusal(R"({"nettype": "detection"})"), HasSubstr("'model.nettype' is not known"));
  EXPECT_THAT(Refusal(R"({"netType": 2})"),
              HasSubstr(R"(give "feedForward", "detection" or "recurrent")"));
  EXPECT_THAT(Refusal(R"({"inputDims": {"x": 5}})"), HasSubstr("'model.inputDims.x'"));
  EXPECT_THAT(Refusal(R"({"inputDims": {"x": [-2]}})"), HasSubstr("'model.inputDims.x'"));
  EXPECT_THAT(Refusal(R"({"inputDims": {"x": [-1.0]}})"), HasSubstr("'model.inputDims.x'"));
  EXPECT_THAT(Refusal(R"({"outputDims": {"y": [-1]}})"), HasSubstr("'model.outputDims.y'"));
  EXPECT_THAT(Refusal(R"({"outputDims": [1]})"), HasSubstr("'model.outputDims'"));
  EXPECT_THAT(Refusal(R"({"constants": {"c": "1"}})"), HasSubstr("'model.constants.c'"));
  EXPECT_THAT(Refusal(R"({"constants": {"c": 18446744073709551615}})"),
              HasSubstr("'model.constants.c'"));
  EXPECT_THAT(Refusal(R"({"rpn": 1})"), HasSubstr("'model.rpn'"));
  EXPECT_THAT(Refusal(R"({"rpn": [""]})"), HasSubstr("'model.rpn'"));
  EXPECT_THAT(Refusal(R"({"expose": 1})"), HasSubstr("'model.expose'"));
  EXPECT_THAT(Refusal(R"({"expose": [""]})"), HasSubstr("'model.expose'"));
  EXPECT_THAT(Refusal(R"({"until": {}})"), HasSubstr("'model.until'"));
  EXPECT_THAT(Refusal(R"({"sequence": "step"})"), HasSubstr("'model.sequence'"));
  EXPECT_THAT(Refusal(R"({"states": {"h": 1}})"), HasSubstr("'model.states.h'"));
  EXPECT_THAT(Refusal(R"({"context": -1})"), HasSubstr("'model.context'"));
  EXPECT_THAT(Refusal(R"({"timeAxis": 128})"), HasSubstr("'model.timeAxis'"));
}

TEST(ParseModelSettings, SaysWhatAKeyTakes) {
  EXPECT_EQ(Refusal(R"({"inputDims": {"x": 5}})"),
            "'model.inputDims.x' is 5; give a list such as [-1, 3, 224, 224]");
  EXPECT_EQ(Refusal(R"({"inputDims": 5})"),
            "'model.inputDims' is 5; give an object such as {\"image\": [-1, 3, 224, 224]}");
  EXPECT_EQ(Refusal(R"({"inputDims": {"x": [-2]}})"),
            "'model.inputDims.x' is -2; give a whole number from -1 to 2147483647");
  EXPECT_EQ(Refusal(R"({"outputDims": {"y": 5}})"),
            "'model.outputDims.y' is 5; give a list such as [100, 4]");
  EXPECT_EQ(Refusal(R"({"outputDims": 5})"),
            "'model.outputDims' is 5; give an object such as {\"boxes\": [100, 4]}");
  EXPECT_EQ(Refusal(R"({"constants": 5})"),
            "'model.constants' is 5; give an object such as {\"rate\": 16000}");
  EXPECT_EQ(Refusal(R"({"constants": {"c": "1"}})"),
            "'model.constants.c' is \"1\"; give a number or a list of numbers");
  EXPECT_EQ(Refusal(R"({"states": 5})"),
            "'model.states' is 5; give an object such as {\"hidden\": \"hiddenOut\"}");
  EXPECT_EQ(Refusal(R"({"dims": 5})"),
            "'model.dims' is 5; give an object such as {\"sequence\": 128}");
  EXPECT_EQ(Refusal(R"({"frames": ""})"), "'model.frames' is \"\"; give a name in quotes");
  EXPECT_EQ(Refusal(R"({"sequence": 1})"), "'model.sequence' is 1; give \"whole\" or \"steps\"");
  EXPECT_EQ(Refusal(R"({"timeAxis": 128})"),
            "'model.timeAxis' is 128; give a whole number from 0 to 127");
  EXPECT_EQ(Refusal(R"({"context": -1})"),
            "'model.context' is -1; give a whole number from 0 to 2147483647");
}

TEST(ParseModelSettings, RefusesWhatIsNestedTooDeep) {
  for (const char* bracket : {"[", R"({"dims":)"}) {
    std::string text;
    for (int i = 0; i < 100'000; ++i) text += bracket;
    EXPECT_THAT(Refusal(text), HasSubstr("more than 16 deep"));
  }
  const std::string closed = std::string(100'000, '[') + std::string(100'000, ']');
  EXPECT_THAT(Refusal(R"({"rpn": )" + closed + "}"), HasSubstr("more than 16 deep"));
}

TEST(ParseModelSettings, RefusesAKeyThatIsGivenTwice) {
  EXPECT_THAT(Refusal(R"({"constants": {"c": 1, "c": 2}})"),
              HasSubstr("gives 'constants.c' twice"));
}

TEST(ParseModelSettings, RefusesATextThatIsTooLong) {
  EXPECT_THAT(Refusal("{" + std::string(kMaxJsonBytes, ' ') + "}"), HasSubstr("is longer than"));
}

}  // namespace
}  // namespace vorn::host
