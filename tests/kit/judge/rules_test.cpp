#include "kit/judge/rules.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

#include "kit/common/fault.h"

namespace vorn::kit {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

Rules Parse(const std::string& rules) {
  return ParseRules(R"({"schema": 1, "rules": [)" + rules + "]}", "the rules 'r'");
}

std::string Refusal(const std::string& rules) {
  try {
    (void)Parse(rules);
  } catch (const Fault& fault) {
    EXPECT_EQ(fault.Status(), ExitStatus::kInput);
    return fault.what();
  }
  return "taken";
}

Census TakeCensus(const std::vector<float>& actual, const std::vector<float>& expected,
                  const OutputRules& rules) {
  CensusTaker taker(rules.tolerance.tolerance, 0);
  taker.Take(actual, expected);
  return taker.Result();
}

std::vector<std::string> Broken(const OutputRules& rules, const std::vector<float>& actual,
                                const std::vector<float>& expected) {
  return BrokenRules(rules, TakeCensus(actual, expected, rules), {});
}

OutputRules For(const std::string& rules, const std::string& output = "prob") {
  return RulesFor(Parse(rules), output, ElementType::kFloat32, {});
}

TEST(RulesFor, TakesThePresetOfTheTypeWhereNothingIsSaid) {
  const OutputRules floats = RulesFor({}, "prob", ElementType::kFloat32, {});
  EXPECT_EQ(floats.tolerance.tolerance.atol, 1e-5);
  EXPECT_EQ(floats.tolerance.tolerance.rtol, 1.3e-6);
  EXPECT_THAT(floats.tolerance.source, HasSubstr("torch.testing"));
  EXPECT_EQ(RulesFor({}, "p", ElementType::kFloat16, {}).tolerance.tolerance.rtol, 1e-3);
  EXPECT_EQ(RulesFor({}, "p", ElementType::kInt8, {}).tolerance.tolerance.atol, 0);
  EXPECT_EQ(RulesFor({}, "p", ElementType::kInt8, 0.25).tolerance.tolerance.atol, 0.25);
  ASSERT_EQ(floats.metrics.size(), 1U);
  EXPECT_EQ(TextOf(floats.metrics[0]), "outside ≤ 0");
}

TEST(RulesFor, TakesTheFirstToleranceThatFits) {
  const std::string rules = R"({"output": "pro*", "atol": 0.5}, {"output": "*", "exact": true})";
  EXPECT_EQ(For(rules).tolerance.tolerance.atol, 0.5);
  EXPECT_EQ(For(rules).tolerance.source, "the rules file");
  EXPECT_EQ(For(rules, "boxes").tolerance.source, "exact");
}

TEST(RulesFor, LetsMetricsAloneDecideWhereNothingElseFits) {
  const OutputRules rules = For(R"({"output": "*", "metric": "cosine", "atLeast": 0.9})");
  EXPECT_THAT(Broken(rules, {1, 1.1F}, {1, 1}), IsEmpty());
  EXPECT_THAT(Broken(rules, {1, -1}, {1, 1}),
              ElementsAre("cosine is 0, and has to be at least 0.9"));
}

TEST(RulesFor, HoldsToleranceAndMetricsWhereBothFit) {
  const OutputRules rules =
      For(R"({"output": "*", "atol": 0.2}, {"output": "*", "metric": "maxAbs", "atMost": 0.05})");
  EXPECT_THAT(Broken(rules, {1.1F}, {1}), ElementsAre("maxAbs is 0.1, and has to be at most 0.05"));
  EXPECT_EQ(Broken(rules, {1.5F}, {1}).size(), 2U);
}

TEST(RulesFor, AllowsSomeElementsOutside) {
  const OutputRules rules =
      For(R"({"output": "*", "exact": true}, {"output": "*", "metric": "outside", "atMost": 1})");
  EXPECT_THAT(Broken(rules, {2, 1}, {1, 1}), IsEmpty());
  EXPECT_THAT(Broken(rules, {2, 2}, {1, 1}), ElementsAre("outside is 2, and has to be at most 1"));
}

TEST(BrokenRules, HoldABoundOfZero) {
  const OutputRules rules = For(R"({"output": "*", "metric": "maxAbs", "atMost": 0})");
  EXPECT_THAT(Broken(rules, {1}, {1}), IsEmpty());
  EXPECT_EQ(Broken(rules, {std::nextafter(1.0F, 2.0F)}, {1}).size(), 1U);
}

TEST(BrokenRules, NeverLetNanPassByAccident) {
  const std::vector<std::string> generous{R"({"output": "*", "atol": 1e30, "rtol": 1})",
                                          R"({"output": "*", "metric": "cosine", "atLeast": -1})",
                                          R"({"output": "*", "metric": "outside", "atMost": 1000})",
                                          R"({"output": "*", "atol": "Infinity"})"};
  for (const std::string& rules : generous) {
    SCOPED_TRACE(rules);
    EXPECT_THAT(Broken(For(rules), {NAN}, {1}),
                testing::Contains(HasSubstr("1 NaN where a number")));
    EXPECT_THAT(Broken(For(rules), {1}, {NAN}), testing::Contains(HasSubstr("numbers where NaN")));
    EXPECT_THAT(Broken(For(rules), {NAN}, {NAN}),
                testing::Contains(HasSubstr("NaN on both sides")));
    EXPECT_THAT(Broken(For(rules), {INFINITY}, {1}),
                testing::Contains(HasSubstr("infinities that are not expected")));
    EXPECT_THAT(Broken(For(rules), {1}, {INFINITY}),
                testing::Contains(HasSubstr("infinities expected that are none")));
    EXPECT_THAT(Broken(For(rules), {INFINITY}, {-INFINITY}),
                testing::Contains(HasSubstr("of the other sign")));
    EXPECT_THAT(Broken(For(rules), {INFINITY, -INFINITY}, {INFINITY, -INFINITY}), IsEmpty());
  }
}

TEST(BrokenRules, LetExpectedNanPassWhereItIsAskedFor) {
  const OutputRules rules = For(R"({"output": "*", "exact": true, "nan": "where expected"})");
  EXPECT_THAT(Broken(rules, {NAN, 1}, {NAN, 1}), IsEmpty());
  EXPECT_EQ(Broken(rules, {NAN}, {1}).size(), 2U);
}

TEST(BrokenRules, FailAMetricThatTheOutputDoesNotHave) {
  const OutputRules rules = For(R"({"output": "*", "metric": "top1", "atLeast": 0})");
  EXPECT_THAT(Broken(rules, {1}, {1}), ElementsAre(HasSubstr("it holds no probabilities")));
  EXPECT_THAT(BrokenRules(rules, {}, {.items = 2, .top1 = 1, .top5 = 2}), IsEmpty());
}

TEST(BrokenRules, KnowEveryMetric) {
  for (const char* name : {"outside", "outsideShare", "maxAbs", "meanAbs", "maxRel", "rmse",
                           "ulpMedian", "ulp99", "ulpMax"}) {
    const OutputRules rules =
        For(R"({"output": "*", "metric": ")" + std::string(name) + R"(", "atMost": 0})");
    EXPECT_EQ(Broken(rules, {1.5F, 7}, {1, 6}).size(), 1U) << name;
    EXPECT_THAT(Broken(rules, {1, 6}, {1, 6}), IsEmpty()) << name;
  }
  for (const char* name : {"cosine", "snrDb", "psnrDb"}) {
    const OutputRules rules =
        For(R"({"output": "*", "metric": ")" + std::string(name) + R"(", "atLeast": 1})");
    EXPECT_EQ(Broken(rules, {-1.5F, 7}, {1, -6}).size(), 1U) << name;
    EXPECT_THAT(Broken(rules, {1, 6}, {1, 6}), IsEmpty()) << name;
  }
}

TEST(ParseRules, SaysWhichRuleIsWrong) {
  EXPECT_THAT(Refusal(R"({"output": "*", "exact": true}, {"output": "*"})"),
              HasSubstr("the rules 'r': rule 2: a rule needs one of"));
  EXPECT_THAT(Refusal(R"({"output": "*", "metric": "cosin", "atLeast": 1})"),
              HasSubstr("no metric 'cosin'; did you mean 'cosine'?"));
  EXPECT_THAT(Refusal(R"({"output": "*", "metric": "rmse"})"), HasSubstr("either atMost or"));
  EXPECT_THAT(Refusal(R"({"output": "*", "metric": "rmse", "atMost": 1, "atLeast": 1})"),
              HasSubstr("either atMost or"));
  EXPECT_THAT(Refusal(R"({"output": "*", "metric": "rmse", "atMost": "NaN"})"),
              HasSubstr("has to be 0 or more"));
  EXPECT_THAT(Refusal(R"({"output": "*", "atol": -1})"), HasSubstr("atol is -1"));
  EXPECT_THAT(Refusal(R"({"output": "*", "preset": "float8"})"), HasSubstr("no preset 'float8'"));
  EXPECT_THAT(Refusal(R"({"output": "*", "exact": false})"), HasSubstr("exact can only be true"));
  EXPECT_THAT(Refusal(R"({"output": "*", "exact": true, "nan": true})"), HasSubstr("rule 1: "));
  EXPECT_THAT(Refusal(R"({"output": "*", "exact": true, "atoll": 1})"),
              HasSubstr("no key 'atoll'; did you mean 'atol'?"));
  EXPECT_THAT(Refusal(R"({"exact": true})"), HasSubstr("'output' is missing"));
}

TEST(TextOf, NamesTheRule) {
  EXPECT_EQ(TextOf(Tolerance{.atol = 1e-5, .rtol = 1e-3}), "|a − r| ≤ 1e-05 + 0.001·|r|");
  EXPECT_EQ(TextOf(Tolerance{.atol = 0.5}), "|a − r| ≤ 0.5");
  EXPECT_EQ(TextOf(Tolerance{}), "a = r");
  const Rules rules = ParseRules(R"({"schema": 1, "rules": [
      {"output": "*", "metric": "cosine", "atLeast": 0.5},
      {"output": "*", "metric": "maxAbs", "atMost": 2}]})",
                                 "r");
  EXPECT_EQ(TextOf(rules.metrics[0]), "cosine ≥ 0.5");
  EXPECT_EQ(TextOf(rules.metrics[1]), "maxAbs ≤ 2");
}

}  // namespace
}  // namespace vorn::kit
