#include "kit/history/step_chart.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "history/simulation.h"

namespace vorn::kit {
namespace {

// By the definition: every pair of every split.
StepChart::Extreme Reference(const std::vector<double>& values) {
  StepChart::Extreme largest;
  const auto count = static_cast<double>(values.size());
  for (size_t t = 1; t < values.size(); ++t) {
    double rises = 0;
    for (size_t i = 0; i < t; ++i) {
      for (size_t j = t; j < values.size(); ++j) {
        rises += values[j] > values[i] ? 1 : 0;
        rises -= values[j] < values[i] ? 1 : 0;
      }
    }
    const auto before = static_cast<double>(t);
    const double statistic =
        std::abs(rises) / std::sqrt(before * (count - before) * (count + 1) / 3);
    if (statistic > largest.statistic * (1 + 1e-12)) {
      largest = {.statistic = statistic, .behind = values.size() - t};
    }
  }
  return largest;
}

TEST(StepChart, TakesTheLargestOfAllSplits) {
  std::mt19937_64 random(7);
  // Few different values, so that many are equal.
  std::uniform_int_distribution<int> value(0, 9);
  StepChart chart;
  std::vector<double> values;
  for (size_t i = 0; i < 2 * kStepWindow + 30; ++i) {
    chart.Take(value(random));
    values.push_back(chart.Values().back());
    if (values.size() > kStepWindow) values.erase(values.begin());
    if (i % 17 != 0 && i > 30) continue;
    const StepChart::Extreme expected = Reference(values);
    const StepChart::Extreme found = chart.Largest();
    ASSERT_NEAR(found.statistic, expected.statistic, 1e-9) << i;
    ASSERT_EQ(chart.Values(), values) << i;
    if (expected.statistic > 0) {
      ASSERT_EQ(found.behind, expected.behind) << i;
    }
  }
}

TEST(StepChart, TellsWhereTheStepIs) {
  StepChart chart;
  for (int i = 0; i < 20; ++i) EXPECT_EQ(chart.Add(100 + i * 7 % 5), std::nullopt) << i;
  int behind = 0;
  std::optional<size_t> told;
  while (!told && behind < 20) told = chart.Add(110 + (++behind * 7) % 5);
  ASSERT_TRUE(told.has_value());
  EXPECT_EQ(*told, static_cast<size_t>(behind));
  EXPECT_LE(behind, 6);
  EXPECT_EQ(chart.Values().size(), *told);
}

// The ranks alone would have the step a run earlier.
TEST(StepChart, TellsTheStepBehindTheLargestOfTheOldValues) {
  StepChart chart;
  for (int i = 0; i < 20; ++i) EXPECT_EQ(chart.Add(100 + i * 7 % 5), std::nullopt) << i;
  EXPECT_EQ(chart.Add(105), std::nullopt);
  int behind = 0;
  std::optional<size_t> told;
  while (!told && behind < 20) told = chart.Add(120 + (++behind * 7) % 5);
  EXPECT_EQ(told, static_cast<size_t>(behind));
}

TEST(StepChart, IsNotMovedByTwoWildValues) {
  for (size_t wild = 0; wild <= 2; ++wild) {
    StepChart chart;
    for (int i = 0; i < 150; ++i) ASSERT_EQ(chart.Add(100 + i * 37 % 50), std::nullopt);
    for (size_t i = 0; i < wild; ++i) EXPECT_EQ(chart.Add(1e9), std::nullopt) << wild;
  }
}

TEST(StepChart, TellsNothingOfFewOrEqualValues) {
  StepChart chart;
  for (int i = 0; i < 5; ++i) EXPECT_EQ(chart.Add(1), std::nullopt);
  for (int i = 0; i < 5; ++i) EXPECT_EQ(chart.Add(2), std::nullopt);
  StepChart equal;
  for (int i = 0; i < 500; ++i) EXPECT_EQ(equal.Add(3), std::nullopt);
  EXPECT_TRUE(equal.IsConstant());
  EXPECT_EQ(equal.Largest().statistic, 0);
}

TEST(StepChart, KnowsWhetherItIsConstant) {
  StepChart chart;
  EXPECT_FALSE(chart.IsConstant());
  chart.Take(1);
  EXPECT_TRUE(chart.IsConstant());
  chart.Take(2);
  EXPECT_FALSE(chart.IsConstant());
  for (size_t i = 0; i < kStepWindow; ++i) chart.Take(2);
  EXPECT_TRUE(chart.IsConstant());
  chart.Clear();
  EXPECT_FALSE(chart.IsConstant());
}

TEST(StepBound, IsThereFromTheLeastCountOn) {
  EXPECT_TRUE(std::isinf(StepBound(kLeastForStep - 1)));
  for (size_t count = kLeastForStep; count <= kStepWindow; ++count) {
    EXPECT_GT(StepBound(count), 2.7) << count;
    EXPECT_LT(StepBound(count), 3) << count;
  }
  EXPECT_EQ(StepBound(kStepWindow + 1), StepBound(kStepWindow));
}

// The bench measures it over far more series; seeds are fixed, so that this holds or does not.
TEST(StepBound, KeepsFalseAlarmsAsRareAsItSays) {
  const bench::FalseAlarms alarms = bench::CountFalseAlarms(bench::RunNoise::kLogNormal, 100, 3);
  const double share = static_cast<double>(alarms.first) / static_cast<double>(alarms.runsToFirst);
  EXPECT_GT(share, kStepFalseAlarms / 2);
  EXPECT_LT(share, kStepFalseAlarms * 1.5);
  EXPECT_EQ(alarms.within5, 0U);
}

}  // namespace
}  // namespace vorn::kit
