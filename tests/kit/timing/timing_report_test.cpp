#include "kit/timing/timing_report.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "support/json_schema.h"

namespace vorn::kit {
namespace {

using testing::HasSubstr;
using testing::Not;

MeasuredTimes Source(const std::string& name, size_t count, double middleNs, unsigned seed = 1) {
  std::mt19937 random(seed);
  std::normal_distribution<double> normal(0, 0.01);
  MeasuredTimes source{.kind = "list", .series = {{}}};
  source.series[0].name = name;
  for (size_t i = 0; i < count; ++i) {
    source.series[0].timesNs.push_back(middleNs * std::exp(normal(random)));
  }
  return source;
}

TimingResult ResultOf(const std::vector<MeasuredTimes>& sources) {
  return CompareTimes(sources, {}, {});
}

TEST(StatusOf, FollowsTheOrderOfTheContract) {
  const MeasuredTimes base = Source("base", 30, 1e6);
  const MeasuredTimes alike = Source("alike", 30, 1e6, 2);
  const MeasuredTimes slower = Source("slower", 30, 2e6, 3);
  const MeasuredTimes faster = Source("faster", 30, 0.5e6, 3);
  const MeasuredTimes few = Source("few", 4, 1e6, 4);
  const MeasuredTimes none = Source("none", 0, 1e6);
  EXPECT_EQ(StatusOf(ResultOf({base, alike})), ExitStatus::kDone);
  EXPECT_EQ(StatusOf(ResultOf({base, faster})), ExitStatus::kDone);
  EXPECT_EQ(StatusOf(ResultOf({base, few})), ExitStatus::kCannotTell);
  EXPECT_EQ(StatusOf(ResultOf({base, few, none})), ExitStatus::kNothing);
  EXPECT_EQ(StatusOf(ResultOf({base, few, none, slower})), ExitStatus::kSlower);
  EXPECT_EQ(StatusOf(ResultOf({none, slower})), ExitStatus::kNothing);
  EXPECT_EQ(StatusOf(ResultOf({base})), ExitStatus::kDone);
  EXPECT_EQ(StatusOf(ResultOf({none})), ExitStatus::kNothing);
}

TEST(TimingText, TellsSlowerWithItsIntervalAndFasterAsWell) {
  const std::string text =
      TimingText(ResultOf({Source("base", 30, 1.5e6), Source("x\ny", 30, 3e6, 2)}));
  EXPECT_THAT(text, HasSubstr("1  list  base\n2  list  x\\x0Ay\n"));
  EXPECT_THAT(text, HasSubstr("median ms"));
  EXPECT_THAT(text, HasSubstr("\n2 against 1: slower. +"));
  EXPECT_THAT(text, HasSubstr(", 19 times in 20), +1.5"));
  EXPECT_THAT(TimingText(ResultOf({Source("base", 30, 1e6), Source("other", 30, 5e5, 2)})),
              HasSubstr("\n2 against 1: faster. -49.8"));
}

TEST(TimingText, TellsWhatItWouldTake) {
  const std::string few = TimingText(ResultOf({Source("a", 5, 1e6), Source("b", 50, 1e6, 2)}));
  EXPECT_THAT(few, HasSubstr("cannot tell with 50 and 5 times: 6 a side is the least\n"));
  MeasuredTimes wide = Source("wide", 10, 1e6, 3);
  for (size_t i = 0; i < 10; ++i) wide.series[0].timesNs[i] *= i % 2 == 0 ? 1 : 1.5;
  EXPECT_THAT(TimingText(ResultOf({Source("a", 10, 1.25e6), wide})),
              HasSubstr(" times a side would tell\n"));
}

TEST(TimingText, PointsAtWhatMakesASeriesDoubtful) {
  MeasuredTimes source = Source("a", 60, 1e6);
  for (size_t i = 0; i < 60; ++i) source.series[0].timesNs[i] *= 1 + static_cast<double>(i) / 200;
  source.series[0].timesNs[40] *= 9;
  source.series[0].failed = 2;
  const std::string text = TimingText(ResultOf({source}));
  EXPECT_THAT(text, HasSubstr("1: 2 executions failed and are left out\n"));
  EXPECT_THAT(text, HasSubstr("1: the times drift by +19.7"));
  EXPECT_THAT(text, HasSubstr("1: neighbours are alike, so that these 60 times are worth "));
  source.series[0].repeated = 1;
  source.series[0].isUnfinished = true;
  EXPECT_THAT(TimingText(ResultOf({source})), HasSubstr("1: the run has not ended"));
  EXPECT_THAT(TimingText(ResultOf({source})),
              HasSubstr("1: 1 line of times.jsonl of inferences that stand there again"));
  // Ten times that rise are worth a part of one by the figures.
  MeasuredTimes rising = Source("a", 10, 1e6);
  for (size_t i = 0; i < 10; ++i) rising.series[0].timesNs[i] = 1e6 + 1e5 * static_cast<double>(i);
  EXPECT_THAT(TimingText(ResultOf({rising})), HasSubstr("these 10 times are worth 1\n"));
  const std::string calm = TimingText(ResultOf({Source("a", 60, 1e6)}));
  EXPECT_THAT(calm, Not(HasSubstr("1: ")));
}

TEST(TimingText, SaysThatNothingWasMeasured) {
  EXPECT_THAT(TimingText(ResultOf({Source("a", 9, 1e6), Source("b", 0, 1e6)})),
              HasSubstr("2 against 1: nothing measured in 2\n"));
  EXPECT_THAT(TimingText(ResultOf({Source("a", 0, 1e6), Source("b", 9, 1e6)})),
              HasSubstr("2 against 1: nothing measured in 1\n"));
}

TEST(TimingJson, KeepsToItsSchema) {
  MeasuredTimes turns = Source("A", 20, 1e6);
  turns.kind = "run";
  turns.series.push_back(Source("B", 20, 1.2e6, 2).series[0]);
  turns.series[0].firstNs = {3e6};
  turns.isPaired = true;
  for (const auto& sources : std::vector<std::vector<MeasuredTimes>>{
           {turns},
           {Source("a", 300, 1e6)},
           {Source("a", 60, 1e6), Source("b", 4, 1e6), Source("c", 0, 1), Source("d", 60, 3e6)},
           {Source("a", 7, 1e6), Source("b", 7, 1.02e6)}}) {
    const std::string text = TimingJson(ResultOf(sources));
    EXPECT_EQ(support::FaultBySchema("timing", text), "") << text;
  }
  EXPECT_THAT(TimingJson(ResultOf({turns})), HasSubstr("\"paired\": true"));
  EXPECT_THAT(TimingJson(ResultOf({turns})), HasSubstr("\"verdict\": \"slower\""));
}

TEST(CompareTimes, TakesWhatTookNoTurnsWithoutPairs) {
  MeasuredTimes run = Source("run A", 20, 1e6);
  run.series.push_back(Source("run B", 25, 1.2e6, 2).series[0]);
  const TimingResult result = ResultOf({run});
  ASSERT_EQ(result.pairs.size(), 1U);
  EXPECT_FALSE(result.pairs[0].comparison.isPaired);
  EXPECT_EQ(result.pairs[0].comparison.other, 25U);
  EXPECT_THAT(TimingText(result), HasSubstr("\nthey took no turns: most"));
  EXPECT_THAT(TimingText(result), HasSubstr("counts\n\n2 against 1: slower. +"));
  run.isPaired = true;
  run.series[1].timesNs.resize(20);
  EXPECT_THAT(TimingText(ResultOf({run})), Not(HasSubstr("no turns")));
}

TEST(CompareTimes, RefusesATurnTakingRunAmongOthers) {
  MeasuredTimes turns = Source("run A", 20, 1e6);
  turns.series.push_back(Source("B", 20, 1.2e6, 2).series[0]);
  EXPECT_THROW((void)ResultOf({turns, Source("a", 9, 1e6)}), Fault);
}

}  // namespace
}  // namespace vorn::kit
