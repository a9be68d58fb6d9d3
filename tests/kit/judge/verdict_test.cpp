#include "kit/judge/verdict.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <string>
#include <utility>

#include "kit/json/json.h"
#include "support/json_schema.h"

namespace vorn::kit {
namespace {

using testing::HasSubstr;
using testing::Not;

OutputVerdict RightOutput(const std::string& name) {
  OutputVerdict output;
  output.name = name;
  output.shape = {2, 3};
  output.rules = RulesFor({}, name, ElementType::kFloat32, {});
  CensusTaker taker(output.rules.tolerance.tolerance, 5);
  taker.Take(std::vector<float>{1, 2, 3, 4, 5, 6}, std::vector<float>{1, 2, 3, 4, 5, 6});
  output.census = taker.Result();
  output.samples.push_back({0, true, 0, 0, 0, 1});
  return output;
}

OutputVerdict WrongOutput(const std::string& name) {
  OutputVerdict output = RightOutput(name);
  output.samples.push_back({7, false, 1, INFINITY, NAN, 0.5});
  output.wrong.push_back({7, {"1 NaN where a number is expected"}});
  output.worst.push_back({7, {4, NAN, 5, INFINITY}});
  output.causes.push_back({7, {{"isolated", "1 element is wrong", 0.95}}});
  output.agreement = {.items = 2, .top1 = 1, .top5 = 2};
  return output;
}

OutputVerdict OutputNotJudged(const std::string& name) {
  OutputVerdict output;
  output.name = name;
  output.notJudged.push_back({0, {"a dump does not hold such values"}});
  return output;
}

Verdict VerdictOf(std::vector<OutputVerdict> outputs) {
  Verdict verdict;
  verdict.actualPath = "run";
  verdict.expectedPath = "reference";
  verdict.samples = 1;
  verdict.outputs = std::move(outputs);
  return verdict;
}

TEST(Verdict, HasTheFirstStatusThatHolds) {
  EXPECT_EQ(VerdictOf({RightOutput("a")}).Status(), ExitStatus::kDone);
  EXPECT_EQ(VerdictOf({}).Status(), ExitStatus::kNothing);
  EXPECT_EQ(VerdictOf({RightOutput("a"), OutputNotJudged("b")}).Status(), ExitStatus::kNothing);
  EXPECT_EQ(VerdictOf({OutputNotJudged("b"), WrongOutput("a")}).Status(), ExitStatus::kDiffers);
  OutputVerdict damaged = RightOutput("c");
  damaged.notJudged.push_back({4, {"the dump has 5 bytes"}, true});
  EXPECT_EQ(VerdictOf({WrongOutput("a"), damaged}).Status(), ExitStatus::kInput);
  Verdict partial = VerdictOf({WrongOutput("a")});
  partial.missing.push_back({3, true, "ended by SIGSEGV"});
  EXPECT_EQ(partial.Status(), ExitStatus::kPartial);
}

TEST(VerdictText, TellsPeopleWhatIsWrong) {
  Verdict verdict = VerdictOf({RightOutput("good"), WrongOutput("bad"), OutputNotJudged("odd")});
  verdict.missing.push_back({3, true, "ended by SIGSEGV"});
  verdict.accuracy.push_back({"bad", "top 1", 0.75, 1});
  const std::string text = VerdictText(verdict);
  EXPECT_THAT(text, HasSubstr("good    right"));
  EXPECT_THAT(text, HasSubstr("bad     WRONG"));
  EXPECT_THAT(text, HasSubstr("odd     not judged"));
  EXPECT_THAT(text, HasSubstr("|a − r| ≤ 1e-05 + 1.3e-06·|r| (float32, as torch.testing"));
  EXPECT_THAT(text, HasSubstr("  sample 7: 1 NaN where a number is expected\n"));
  EXPECT_THAT(text, HasSubstr("  sample 7 at [1, 1]: nan, expected 5\n"));
  EXPECT_THAT(text, HasSubstr("  sample 7: 1 element is wrong; that explains at least 95 % of what "
                              "differs\n"));
  EXPECT_THAT(text, HasSubstr("sample 3 is missing: ended by SIGSEGV\n"));
  EXPECT_THAT(text, HasSubstr("bad, top 1: 0.75, expected side 1, difference -0.25\n"));
  EXPECT_THAT(text, HasSubstr("1 sample, 3 outputs: 1 wrong, 1 not judged everywhere, "
                              "1 sample missing\n"));
}

// Forty lines of elements that are all a little off say less than this one.
TEST(VerdictText, FoldsWhatRoundingExplains) {
  OutputVerdict output = WrongOutput("bad");
  output.causes = {{7, {{"rounded-bfloat16", "it is rounded to bfloat16", 0.99}}},
                   {8, {{"rounded-bfloat16", "it is rounded to bfloat16", 0.98}}}};
  std::string text = VerdictText(VerdictOf({output}));
  EXPECT_THAT(text,
              HasSubstr("  1 sample is wrong: it is rounded to bfloat16; that explains at least "
                        "98 % of what differs\n"));
  EXPECT_THAT(text, Not(HasSubstr("  sample 7")));
  // Another cause among them is worth its lines.
  output.causes[1].causes[0].id = "stale";
  text = VerdictText(VerdictOf({output}));
  EXPECT_THAT(text, HasSubstr("  sample 7 at"));
}

TEST(VerdictText, TellsOnceOfCausesThatSamplesShare) {
  OutputVerdict output = WrongOutput("bad");
  const Cause stale{"stale", "it is the output of the sample before: stale", 0.9};
  output.causes = {{7, {{"isolated", "1 element is wrong", 0.95}}},
                   {8, {stale}},
                   {9, {{"isolated", "2 elements are wrong", 0.875}}},
                   {10, {stale}},
                   {11, {stale}},
                   {12, {stale}},
                   {14, {}},
                   {16, {}}};
  const auto text = [&] { return VerdictText(VerdictOf({output})); };
  EXPECT_THAT(text(),
              HasSubstr("  samples 7 and 9: 1 element is wrong, others alike; that explains at "
                        "least 87.5 % of what differs\n"
                        "  samples 8 and 10 to 12: it is the output of the sample before: stale; "
                        "that explains at least 90 % of what differs\n"
                        "  samples 14 and 16: no known cause explains them\n"));
  EXPECT_THAT(text(), Not(HasSubstr("looked for")));
  output.wrong.resize(20, output.wrong.front());
  EXPECT_THAT(text(), HasSubstr("  causes were looked for in 8 of 20 wrong samples\n"));
}

TEST(VerdictText, ShowsTwoOfSamplesThatAreThoseOfOthers) {
  OutputVerdict output = WrongOutput("bad");
  const auto copied = [](const std::string& text) {
    return std::vector<Cause>{{"other-sample", text, 0.9}};
  };
  output.causes = {{8, copied("it is A")}, {9, copied("it is B")}, {10, copied("it is C")}};
  EXPECT_THAT(
      VerdictText(VerdictOf({output})),
      HasSubstr("  samples 8 to 10: it is A; sample 9: it is B; others alike; that explains "
                "at least 90 % of what differs\n"));
}

TEST(VerdictText, TellsAnExchangeInOneLineAndWhatMayBelongToIt) {
  OutputVerdict output = WrongOutput("bad");
  for (const uint64_t sample : {8, 9, 12, 13}) {
    output.causes.push_back({sample, {{"other-sample", "it is " + std::to_string(sample), 0.9}}});
  }
  output.stretches = {{NeighbourPattern::kExchanged, {8, 9, 12, 13}, {10, 11}, {}}};
  const Verdict verdict = VerdictOf({output});
  EXPECT_THAT(
      VerdictText(verdict),
      HasSubstr(
          "  samples 8, 9, 12 and 13: each holds the output of its neighbour, 8 that "
          "of 9 and 9 that of 8, and so on by pairs; that explains at least 90 % of "
          "what differs\n"
          "  Whether samples 10 and 11 among the exchanged ones were exchanged, too, cannot be "
          "decided: their neighbours' outputs are alike, and what came passes as "
          "either.\n"));
  EXPECT_EQ(support::FaultBySchema("verdict", VerdictJson(verdict)), "");
  const Json json = ParseJson(VerdictJson(verdict));
  const Json& stretch = json.At("outputs").Items()[0].At("stretches").Items()[0];
  EXPECT_EQ(stretch.At("pattern").AsText(), "exchanged");
  EXPECT_EQ(stretch.At("undecided").Items().size(), 2U);
}

TEST(VerdictText, ShowsNothingThatSteersATerminal) {
  EXPECT_THAT(VerdictText(VerdictOf({WrongOutput("\x1b[31m")})), Not(HasSubstr("\x1b")));
}

TEST(VerdictJson, IsWhatTheSchemaSays) {
  Verdict verdict = VerdictOf({RightOutput("good"), WrongOutput("bad"), OutputNotJudged("odd")});
  verdict.outputs[0].expectedName = "other";
  verdict.missing.push_back({3, false, "nothing is expected of it"});
  verdict.accuracy.push_back({"good", "top 1", 0.5, NAN});
  verdict.remarks.emplace_back("a remark");
  EXPECT_EQ(support::FaultBySchema("verdict", VerdictJson(verdict)), "");
  EXPECT_EQ(support::FaultBySchema("verdict", VerdictJson(VerdictOf({}))), "");
}

TEST(VerdictText, TellsWhereTheToleranceDecidesNothing) {
  OutputVerdict output = RightOutput("a");
  constexpr const char* kUndecided = "only the rules below decide, and outside is counted by |a";
  EXPECT_THAT(VerdictText(VerdictOf({output})), Not(HasSubstr(kUndecided)));
  output.rules.metrics = {{"*", Metric::kCosine, true, 0.9}};
  EXPECT_THAT(VerdictText(VerdictOf({output})), HasSubstr(kUndecided));
  output.rules.metrics.push_back({"*", Metric::kOutsideShare, false, 0.1});
  EXPECT_THAT(VerdictText(VerdictOf({output})), Not(HasSubstr(kUndecided)));
}

TEST(Verdict, ShowsTheRulesThatHeld) {
  Verdict verdict = VerdictOf({RightOutput("good")});
  verdict.outputs[0].rules = RulesFor(ParseRules(R"({"schema": 1, "rules": [
      {"output": "*", "atol": 0.5, "rtol": 0.25},
      {"output": "*", "metric": "cosine", "atLeast": 0.75},
      {"output": "*", "metric": "maxAbs", "atMost": 2}]})",
                                                 "r"),
                                      "good", ElementType::kFloat32, {});
  const Json json = ParseJson(VerdictJson(verdict));
  const Json& rules = json.At("outputs").Items()[0].At("rules");
  EXPECT_EQ(rules.At("atol").AsNumber(), 0.5);
  EXPECT_EQ(rules.At("rtol").AsNumber(), 0.25);
  std::map<std::string, std::pair<std::string, double>> metrics;
  for (const Json& rule : rules.At("metrics").Items()) {
    const std::string bound = rule.Find("atLeast") != nullptr ? "atLeast" : "atMost";
    metrics[rule.At("metric").AsText()] = {bound, rule.At(bound).AsNumber()};
  }
  EXPECT_EQ(metrics["cosine"], std::pair(std::string("atLeast"), 0.75));
  EXPECT_EQ(metrics["maxAbs"], std::pair(std::string("atMost"), 2.0));
  EXPECT_THAT(VerdictText(verdict), HasSubstr("  rule: cosine ≥ 0.75\n  rule: maxAbs ≤ 2\n"));
}

TEST(VerdictJson, TellsHowOftenLabelsAreMet) {
  Verdict verdict = VerdictOf({RightOutput("good")});
  verdict.accuracy.push_back({"good", "top 1", 0.5, 0.25});
  const Json json = ParseJson(VerdictJson(verdict));
  ASSERT_EQ(json.At("accuracy").Items().size(), 1U);
  const Json& one = json.At("accuracy").Items()[0];
  EXPECT_EQ(one.At("output").AsText(), "good");
  EXPECT_EQ(one.At("actual").AsNumber(), 0.5);
  EXPECT_EQ(one.At("expected").AsNumber(), 0.25);
}

TEST(VerdictJson, IsHeldToItsSchema) {
  std::string text = VerdictJson(VerdictOf({RightOutput("good")}));
  text.replace(text.find("\"right\""), 7, "\"fine\"");
  EXPECT_NE(support::FaultBySchema("verdict", text), "");
}

TEST(VerdictJson, TellsOfTensorsInsideAsTheSchemaSays) {
  Verdict verdict = VerdictOf({RightOutput("conv"), WrongOutput("prob")});
  Inside& inside = verdict.inside.emplace();
  inside.order = "that of the files";
  for (const OutputVerdict& output : verdict.outputs) {
    inside.tensors.push_back({output.name, InsideState::kRight, output.census});
  }
  inside.tensors.push_back({"odd", InsideState::kNotJudged, {}});
  inside.unpaired = {{"inner", false}};
  EXPECT_EQ(support::FaultBySchema("verdict", VerdictJson(verdict)), "");  // nothing begins
  inside.tensors[1].state = InsideState::kWrong;
  inside.tensors[1].census.sumSquares = 1;
  const std::string text = VerdictJson(verdict);
  EXPECT_EQ(support::FaultBySchema("verdict", text), "");
  for (const char* key : {"\"begin\"", "\"greatest\"", "\"largestStep\""}) {
    EXPECT_THAT(text, HasSubstr(key));
    std::string renamed = text;
    const size_t at = renamed.find("\"place\"", renamed.find(key));
    EXPECT_NE(support::FaultBySchema("verdict", renamed.replace(at, 7, "\"plaxe\"")), "") << key;
  }
  std::string other = text;
  other.replace(other.rfind("\"side\": \"expected\""), 18, "\"side\": \"middle\"");
  EXPECT_NE(support::FaultBySchema("verdict", other), "");
}

TEST(VerdictJson, TellsOfTheFloorAsTheSchemaSays) {
  Verdict verdict = VerdictOf({RightOutput("prob")});
  verdict.floor = FloorReport{"rounded", "int8", 1.25, {}};
  verdict.floor->outputs = {{"prob", 1, verdict.outputs[0].census, verdict.outputs[0].census, ""},
                            {"odd", 0, {}, {}, "gone"}};
  const std::string text = VerdictJson(verdict);
  EXPECT_EQ(support::FaultBySchema("verdict", text), "");
  EXPECT_THAT(text, HasSubstr("\"answer\": \"within\""));
  std::string other = text;
  other.replace(other.find("\"within\""), 8, "\"better\"");
  EXPECT_NE(support::FaultBySchema("verdict", other), "");
}

TEST(VerdictJson, HoldsAnyName) {
  const std::string text = VerdictJson(VerdictOf({RightOutput("a\"\n\xff")}));
  EXPECT_EQ(support::FaultBySchema("verdict", text), "");
}

TEST(VerdictJUnit, TellsFailuresFromErrors) {
  Verdict verdict = VerdictOf({RightOutput("good"), WrongOutput("bad"), OutputNotJudged("odd")});
  verdict.missing.push_back({3, true, "ended by <SIGSEGV>"});
  verdict.actualPath = "runs/1.2";
  const std::string text = VerdictJUnit(verdict);
  EXPECT_THAT(text, HasSubstr("tests=\"4\" failures=\"1\" errors=\"2\" skipped=\"0\""));
  EXPECT_THAT(text, HasSubstr("<testcase classname=\"judge.runs/1_2\" name=\"good\"/>"));
  EXPECT_THAT(text, HasSubstr("name=\"bad\">\n      <failure message=\"1 sample wrong\">\nbad: "));
  EXPECT_THAT(text, HasSubstr("1 NaN where a number is expected"));
  EXPECT_THAT(text, HasSubstr("name=\"odd\">\n      <error message=\"could not be judged\">"));
  EXPECT_THAT(text, HasSubstr("name=\"sample 3\">\n      <error message=\"missing\">\n"
                              "ended by &lt;SIGSEGV&gt;"));
}

TEST(VerdictJUnit, IsNotEmptyWhereNothingWasCompared) {
  EXPECT_THAT(VerdictJUnit(VerdictOf({})), HasSubstr("errors=\"1\""));
}

TEST(VerdictJUnit, HoldsAnyName) {
  const std::string text = VerdictJUnit(VerdictOf({WrongOutput("<&\"\x01\xff>")}));
  EXPECT_THAT(text, HasSubstr("name=\"&lt;&amp;&quot;\\x01\\xFF&gt;\""));
}

}  // namespace
}  // namespace vorn::kit
