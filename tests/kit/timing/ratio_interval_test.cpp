#include "kit/timing/ratio_interval.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "kit/timing/statistics.h"

namespace vorn::kit {
namespace {

using testing::DoubleNear;
using Values = std::vector<double>;

Values Independent(size_t count, double middle, unsigned seed) {
  // In an order in which no value follows the one before, so that nothing is widened.
  std::mt19937 random(seed);
  std::normal_distribution<double> normal(0, 0.1);
  Values values(count);
  do {
    for (double& value : values) value = middle * std::exp(normal(random));
  } while (VarianceInflation(values) > 1);
  return values;
}

// Draws n of n values again and again, as the book has it.
Values SlowDraws(const Values& base, const Values& other) {
  std::mt19937 random(9);
  const auto draw = [&](const Values& values) {
    Values drawn;
    for (size_t i = 0; i < values.size(); ++i) {
      drawn.push_back(std::log(values[random() % values.size()]));
    }
    return Median(drawn);
  };
  Values ratios;
  for (int i = 0; i < 20000; ++i) ratios.push_back(std::exp(draw(other) - draw(base)));
  std::sort(ratios.begin(), ratios.end());
  return ratios;
}

TEST(RatioOfMedians, IsTheIntervalOfDrawingAllValues) {
  for (const auto& [ofBase, ofOther] : {std::pair{5, 6}, {6, 5}, {20, 31}, {40, 40}}) {
    const Values base = Independent(static_cast<size_t>(ofBase), 100, 1);
    const Values other = Independent(static_cast<size_t>(ofOther), 120, 2);
    const RatioInterval interval = RatioOfMedians(base, other, {.resamples = 20000});
    const Values slow = SlowDraws(base, other);
    EXPECT_DOUBLE_EQ(interval.ratio, Median(other) / Median(base));
    // As a share of all draws: neighbours of few values lie far apart.
    const auto below = [&](double bound) {
      return static_cast<double>(std::lower_bound(slow.begin(), slow.end(), bound - 1e-9) -
                                 slow.begin()) /
             static_cast<double>(slow.size());
    };
    const auto notAbove = [&](double bound) {
      return static_cast<double>(std::upper_bound(slow.begin(), slow.end(), bound + 1e-9) -
                                 slow.begin()) /
             static_cast<double>(slow.size());
    };
    const double outside = std::min(ofBase, ofOther) < 20 ? 0.025 : 0.03;
    EXPECT_LE(below(interval.low), outside + 0.004) << ofBase;
    EXPECT_GE(notAbove(interval.low), outside - 0.004) << ofBase;
    EXPECT_LE(below(interval.high), 1 - outside + 0.004) << ofBase;
    EXPECT_GE(notAbove(interval.high), 1 - outside - 0.004) << ofBase;
  }
}

TEST(RatioOfMedians, IsTheSameEachTimeAndAnotherWithAnotherSeed) {
  const Values base = Independent(30, 100, 3);
  const Values other = Independent(30, 100, 4);
  const RatioInterval one = RatioOfMedians(base, other, {.resamples = 500, .seed = 7});
  const RatioInterval two = RatioOfMedians(base, other, {.resamples = 500, .seed = 7});
  EXPECT_EQ(one.low, two.low);
  EXPECT_EQ(one.high, two.high);
  const RatioInterval three = RatioOfMedians(base, other, {.resamples = 500, .seed = 8});
  EXPECT_NE(std::pair(one.low, one.high), std::pair(three.low, three.high));
}

TEST(RatioOfMedians, IsWiderWhereValuesFollowEachOther) {
  Values mixed = Independent(40, 100, 5);
  // Up and down again, which is no drift.
  Values sorted = mixed;
  std::sort(sorted.begin(), sorted.end());
  Values waves(40);
  for (size_t i = 0; i < 40; ++i) waves[i % 2 == 0 ? i / 2 : 39 - i / 2] = sorted[i];
  const Values other = Independent(40, 100, 6);
  const RatioInterval narrow = RatioOfMedians(mixed, other, {});
  const RatioInterval wide = RatioOfMedians(waves, other, {});
  EXPECT_EQ(narrow.ratio, wide.ratio);
  EXPECT_GT(wide.high / wide.low, 1.5 * narrow.high / narrow.low - 0.5);
}

TEST(RatioOfMedians, HasNoWidthWithoutASpread) {
  const RatioInterval interval = RatioOfMedians(Values(8, 100.0), Values(9, 150.0), {});
  EXPECT_DOUBLE_EQ(interval.low, 1.5);
  EXPECT_DOUBLE_EQ(interval.high, 1.5);
}

TEST(MedianOfRatios, LeavesOutWhatBothOfAPairShare) {
  Values base = Independent(30, 100, 7);
  Values other = base;
  const Values noise = Independent(30, 1.1, 8);
  for (size_t i = 0; i < base.size(); ++i) {
    const double shared = i < 15 ? 1 : 3;
    base[i] = 100 * shared;
    other[i] = 100 * shared * noise[i];
  }
  const RatioInterval interval = MedianOfRatios(base, other, {});
  EXPECT_THAT(interval.ratio, DoubleNear(Median(noise), 0.005));
  EXPECT_LT(interval.high / interval.low, 1.15);
}

}  // namespace
}  // namespace vorn::kit
