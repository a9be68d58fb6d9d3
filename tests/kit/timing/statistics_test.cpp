#include "kit/timing/statistics.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <random>

namespace vorn::kit {
namespace {

using testing::DoubleNear;
using testing::ElementsAre;
using testing::IsEmpty;
using Values = std::vector<double>;

TEST(Median, IsTheMiddleOrTheMeanOfTwo) {
  EXPECT_EQ(Median(Values{5}), 5);
  EXPECT_EQ(Median(Values{9, 1, 4}), 4);
  EXPECT_EQ(Median(Values{9, 1, 4, 6}), 5);
}

TEST(MedianDeviation, IsTheMedianDistance) {
  EXPECT_EQ(MedianDeviation(Values{1, 1, 2, 2, 4, 6, 9}), 1);
  EXPECT_EQ(MedianDeviation(Values{3, 3, 3}), 0);
}

// Against sorting, with many equal values and without.
TEST(Median, IsThatOfSortedValues) {
  std::mt19937 random(3);
  for (int round = 0; round < 200; ++round) {
    Values values(1 + random() % 60);
    for (double& value : values)
      value = static_cast<double>(random() % (round % 2 == 0 ? 5 : 1000));
    Values sorted = values;
    std::sort(sorted.begin(), sorted.end());
    const size_t half = sorted.size() / 2;
    const double middle =
        sorted.size() % 2 == 1 ? sorted[half] : (sorted[half - 1] + sorted[half]) / 2;
    EXPECT_EQ(Median(values), middle);
    for (double& value : sorted) value = std::abs(value - middle);
    EXPECT_EQ(MedianDeviation(values), Median(sorted));
  }
}

TEST(Percentile, IsTheSmallestValueThatTheShareIsNotAbove) {
  Values values(400);
  std::iota(values.begin(), values.end(), 1.0);
  std::shuffle(values.begin(), values.end(), std::mt19937(1));
  EXPECT_EQ(Percentile(values, 0.99), 396);
  EXPECT_EQ(Percentile(values, 0.9), 360);
}

// The chance that n values all lie below the true percentile is share^n; the counts at which it
// falls below one in twenty are in every table of distribution-free limits.
TEST(Percentile, IsToldOnlyWhereTheCountCarriesIt) {
  for (const auto& [share, least] : {std::pair{0.9, 29}, {0.95, 59}, {0.99, 299}}) {
    EXPECT_FALSE(Percentile(Values(static_cast<size_t>(least - 1), 1.0), share));
    EXPECT_TRUE(Percentile(Values(static_cast<size_t>(least), 1.0), share));
  }
  EXPECT_FALSE(Percentile(Values{}, 0.9));
}

TEST(Spread, IsTheMiddleHalfByTheMedian) {
  EXPECT_EQ(Spread(Values{1, 2, 3, 4, 5, 6, 7, 8}), (6 - 2) / 4.5);
  EXPECT_FALSE(Spread(Values{1, 2, 3}));
  EXPECT_FALSE(Spread(Values{0, 0, 0, 0}));
}

TEST(FindOutliers, PointsAtWhatLiesFarOff) {
  EXPECT_THAT(FindOutliers(Values{100, 101, 99, 100, 102, 98, 300}), ElementsAre(6));
  EXPECT_THAT(FindOutliers(Values{100, 101, 99, 100, 102, 98, 115}), ElementsAre(6));
  EXPECT_THAT(FindOutliers(Values{100, 101, 99, 100, 102, 98, 114}), IsEmpty());
  EXPECT_THAT(FindOutliers(Values{5, 5, 5, 5, 900}), IsEmpty());
  EXPECT_THAT(FindOutliers(Values{}), IsEmpty());
}

Values Noise(size_t count, unsigned seed) {
  std::mt19937 random(seed);
  std::normal_distribution<double> normal(100, 1);
  Values values(count);
  for (double& value : values) value = normal(random);
  return values;
}

TEST(FindDrift, SeesARiseAndAFall) {
  Values rising = Noise(60, 2);
  for (size_t i = 0; i < rising.size(); ++i) rising[i] += static_cast<double>(i) / 6;
  const auto drift = FindDrift(rising);
  ASSERT_TRUE(drift);
  EXPECT_THAT(*drift, DoubleNear(0.065, 0.02));
  std::reverse(rising.begin(), rising.end());
  ASSERT_TRUE(FindDrift(rising));
  EXPECT_LT(*FindDrift(rising), -0.04);
  EXPECT_FALSE(FindDrift(Values(rising.begin(), rising.begin() + 11)));
}

TEST(FindDrift, SeldomSeesOneInNoise) {
  int seen = 0;
  for (unsigned seed = 0; seed < 500; ++seed) seen += FindDrift(Noise(40, seed)) ? 1 : 0;
  EXPECT_LE(seen, 15);  // 1 in 100, and chance
  EXPECT_FALSE(FindDrift(Values(40, 7.0)));
}

// Logarithms of times that follow each other by `alike` and vary by `spread`; one in twenty is far
// off.
Values MadeTimes(size_t count, double alike, double spread, std::mt19937& random) {
  std::normal_distribution<double> normal;
  Values times;
  double level = normal(random);
  for (size_t i = 0; i < count; ++i) {
    level = alike * level + std::sqrt(1 - alike * alike) * normal(random);
    times.push_back(20000 * std::exp(spread * level) * (random() % 20 == 0 ? 3 : 1));
  }
  return times;
}

TEST(FindSteps, FindsThePlacesWhereTheLevelChanges) {
  std::mt19937 random(11);
  Values times = MadeTimes(199, 0, 0.05, random);
  for (size_t i = 120; i < times.size(); ++i) times[i] *= 1.6;
  auto steps = FindSteps(times, 1.1, 8);
  ASSERT_EQ(steps.size(), 1U);
  EXPECT_NEAR(static_cast<double>(steps[0]), 120, 2);
  // And back again, between values that follow each other.
  times = MadeTimes(300, 0.4, 0.05, random);
  for (size_t i = 100; i < 180; ++i) times[i] *= 1.6;
  steps = FindSteps(times, 1.1, 8);
  ASSERT_EQ(steps.size(), 2U);
  EXPECT_NEAR(static_cast<double>(steps[0]), 100, 3);
  EXPECT_NEAR(static_cast<double>(steps[1]), 180, 3);
  EXPECT_EQ(FindSteps(times, 1.1, 1).size(), 1U);
}

TEST(FindSteps, LeavesOutWhatIsTooSmallOrTooShort) {
  std::mt19937 random(12);
  Values times = MadeTimes(200, 0, 0.01, random);
  for (size_t i = 100; i < times.size(); ++i) times[i] *= 1.05;
  EXPECT_THAT(FindSteps(times, 1.1, 8), IsEmpty());
  EXPECT_THAT(FindSteps(times, 1.03, 8), testing::SizeIs(1));
  times = MadeTimes(200, 0, 0.01, random);
  for (size_t i = 196; i < times.size(); ++i) times[i] *= 2;
  EXPECT_THAT(FindSteps(times, 1.1, 8), IsEmpty());
  EXPECT_THAT(FindSteps(Values{}, 1.1, 8), IsEmpty());
  EXPECT_THAT(FindSteps(Values(500, 7.0), 1.1, 8), IsEmpty());
}

// Of values as they come from a machine, whatever they follow.
TEST(FindSteps, SeldomFindsOneInNoise) {
  std::mt19937 random(13);
  for (const double alike : {0.0, 0.5, 0.8}) {
    for (const double spread : {0.05, 0.3}) {
      int found = 0;
      constexpr int kRounds = 500;
      for (int round = 0; round < kRounds; ++round) {
        found += FindSteps(MadeTimes(199, alike, spread, random), 1.1, 8).empty() ? 0 : 1;
      }
      RecordProperty("of " + std::to_string(alike) + " " + std::to_string(spread), found);
      EXPECT_LE(found, kRounds / 50) << alike << ", " << spread;
    }
  }
}

TEST(Autocorrelation, FindsWhatASeriesWasMadeWith) {
  std::mt19937 random(3);
  std::normal_distribution<double> normal;
  for (const double share : {0.0, 0.3, 0.6, 0.9}) {
    double sum = 0;
    for (int round = 0; round < 50; ++round) {
      Values values{normal(random)};
      while (values.size() < 400) {
        values.push_back(share * values.back() + std::sqrt(1 - share * share) * normal(random));
      }
      sum += Autocorrelation(values);
    }
    EXPECT_THAT(sum / 50, DoubleNear(share, 0.04)) << share;
  }
}

TEST(Autocorrelation, IsNoneOfFewOrEqualOrAlternatingValues) {
  EXPECT_EQ(Autocorrelation(Values{1, 2, 3, 4, 5}), 0);
  EXPECT_EQ(Autocorrelation(Values(50, 3.0)), 0);
  Values alternating;
  for (int i = 0; i < 40; ++i) alternating.push_back(i % 2);
  EXPECT_EQ(Autocorrelation(alternating), 0);
  EXPECT_EQ(VarianceInflation(alternating), 1);
}

// The variance of the median of what drifts by 0.15 with noise of 0.05, found by drawing it.
TEST(MedianInflation, IsThatOfMediansOfSeriesThatDrift) {
  std::mt19937 random(8);
  std::normal_distribution<double> normal(0, 0.05);
  const auto draw = [&](double drift) {
    Values values(60);
    for (size_t i = 0; i < 60; ++i)
      values[i] = drift * static_cast<double>(i) / 60 + normal(random);
    return values;
  };
  double medians = 0;  // variance of their medians, and of those of the same values in any order
  double mixed = 0;
  double told = 0;
  constexpr int kRounds = 3000;
  for (int round = 0; round < kRounds; ++round) {
    const Values values = draw(0.15);
    medians += (Median(values) - 0.15 / 2) * (Median(values) - 0.15 / 2) / kRounds;
    Values any = values;
    for (double& value : any)
      value = 0.15 * (static_cast<double>(random() % 6000) / 6000) + normal(random);
    mixed += (Median(any) - 0.15 / 2) * (Median(any) - 0.15 / 2) / kRounds;
    if (round < 300) told += MedianInflation(values) / 300;
  }
  EXPECT_LT(medians / mixed, 0.85);
  EXPECT_THAT(told, DoubleNear(medians / mixed, 0.25));
  EXPECT_LT(told, 1.05);
}

TEST(MedianInflation, IsThatOfTheVarianceWithoutAClearDrift) {
  std::mt19937 random(9);
  std::normal_distribution<double> normal;
  Values values(40);
  for (double& value : values) value = normal(random);
  ASSERT_FALSE(FindDrift(values));
  EXPECT_EQ(MedianInflation(values), VarianceInflation(values));
  std::sort(values.begin(), values.end());
  EXPECT_LT(MedianInflation(values), VarianceInflation(values) / 2);
  // Of fewer values what follows and what drifts are not told apart.
  const auto few = std::span(values).first(kLeastForDriftTakenOut - 1);
  EXPECT_EQ(MedianInflation(few), VarianceInflation(few));
}

TEST(Ranks, ShareTheMeanOfEqualValues) {
  EXPECT_THAT(Ranks(Values{30, 10, 20, 10, 10}), ElementsAre(5, 2, 4, 2, 2));
  EXPECT_THAT(Ranks(Values{}), IsEmpty());
}

TEST(NormalShare, IsAsInTheTables) {
  EXPECT_THAT(NormalShare(0), DoubleNear(0.5, 1e-12));
  EXPECT_THAT(NormalShare(-1.959964), DoubleNear(0.025, 1e-7));
  EXPECT_THAT(NormalQuantile(0.025), DoubleNear(-1.959964, 1e-6));
  EXPECT_THAT(NormalQuantile(0.999), DoubleNear(3.090232, 1e-6));
}

}  // namespace
}  // namespace vorn::kit
