#include "kit/timing/rank_tests.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <random>

#include "kit/timing/statistics.h"

namespace vorn::kit {
namespace {

using testing::DoubleNear;
using testing::ElementsAre;
using testing::Pointwise;
using Values = std::vector<double>;

// Every way to take as many of all values as one side has, and how often the pairs of them are won
// as clearly: without ranks.
double SlowMannWhitney(const Values& one, const Values& other) {
  Values all = one;
  all.insert(all.end(), other.begin(), other.end());
  const auto distance = [&](uint32_t chosen) {
    double wins = 0;
    for (size_t i = 0; i < all.size(); ++i) {
      for (size_t k = 0; k < all.size(); ++k) {
        if ((chosen >> i & 1) == 0 || (chosen >> k & 1) == 1) continue;
        wins += all[i] > all[k] ? 1 : all[i] == all[k] ? 0.5 : 0;
      }
    }
    return std::abs(wins - static_cast<double>(one.size() * other.size()) / 2);
  };
  const double seen = distance((1U << one.size()) - 1);
  double far = 0;
  double ways = 0;
  for (uint32_t chosen = 0; chosen < 1U << all.size(); ++chosen) {
    if (static_cast<size_t>(__builtin_popcount(chosen)) != one.size()) continue;
    ++ways;
    far += distance(chosen) >= seen - 1e-9 ? 1 : 0;
  }
  return far / ways;
}

double Below(unsigned most, std::mt19937& random) { return static_cast<double>(random() % most); }

TEST(MannWhitney, CountsEveryArrangement) {
  std::mt19937 random(4);
  for (int round = 0; round < 60; ++round) {
    const unsigned kinds = round % 2 == 0 ? 1000 : 5;  // the second with many equal values
    Values one(1 + random() % 5);
    Values other(1 + random() % 5);
    for (double& value : one) value = Below(kinds, random);
    for (double& value : other) value = Below(kinds, random);
    EXPECT_THAT(MannWhitney(one, other), DoubleNear(SlowMannWhitney(one, other), 1e-12));
  }
}

TEST(MannWhitney, ComesDownToWhatSoManyCanReach) {
  EXPECT_THAT(MannWhitney(Values{1, 2, 3}, Values{4, 5, 6}), DoubleNear(0.1, 1e-12));
  EXPECT_THAT(LeastMannWhitney(3, 3), DoubleNear(0.1, 1e-12));
  EXPECT_THAT(LeastMannWhitney(4, 4), DoubleNear(2.0 / 70, 1e-12));
  EXPECT_THAT(LeastMannWhitney(6, 6), DoubleNear(2.0 / 924, 1e-12));
  Values low(20);
  Values high(20);
  for (size_t i = 0; i < low.size(); ++i) {
    low[i] = static_cast<double>(i);
    high[i] = 100 + low[i];
  }
  EXPECT_THAT(MannWhitney(low, high) / LeastMannWhitney(20, 20), DoubleNear(1, 1e-9));
}

TEST(MannWhitney, GoesOverToTheNormalDistributionWithoutAStep) {
  std::mt19937 random(5);
  for (int round = 0; round < 20; ++round) {
    Values one(20);
    Values other(20);
    for (double& value : one) value = Below(60, random);
    for (double& value : other) value = Below(60, random) + static_cast<double>(round);
    const double counted = MannWhitney(one, other);
    // One value more, which lies in the middle, hardly changes it.
    one.push_back(30 + static_cast<double>(round) / 2);
    EXPECT_THAT(MannWhitney(one, other), DoubleNear(counted, 0.02 + counted / 4)) << counted;
  }
}

TEST(MannWhitney, TellsNothingOfNothing) {
  EXPECT_EQ(MannWhitney(Values{}, Values{1}), 1);
  EXPECT_EQ(MannWhitney(Values{1, 1, 1}, Values{1, 1, 1}), 1);
  EXPECT_EQ(MannWhitney(Values(30, 1.0), Values(30, 1.0)), 1);
}

// Every way to give the distances their signs.
double SlowSignedRanks(const Values& differences) {
  Values distances;
  for (const double difference : differences) {
    if (difference != 0) distances.push_back(std::abs(difference));
  }
  const auto rank = [&](size_t of) {
    double sum = 0.5;
    for (const double distance : distances) {
      sum += distance < distances[of] ? 1 : distance == distances[of] ? 0.5 : 0;
    }
    return sum;
  };
  double seen = 0;
  size_t at = 0;
  for (const double difference : differences) {
    if (difference != 0) seen += (difference > 0 ? 1 : -1) * rank(at++);
  }
  double far = 0;
  const uint32_t ways = 1U << distances.size();
  for (uint32_t signs = 0; signs < ways; ++signs) {
    double sum = 0;
    for (size_t i = 0; i < distances.size(); ++i) sum += (signs >> i & 1) != 0 ? rank(i) : -rank(i);
    far += std::abs(sum) >= std::abs(seen) - 1e-9 ? 1 : 0;
  }
  return far / ways;
}

TEST(SignedRanks, CountsEverySign) {
  std::mt19937 random(6);
  for (int round = 0; round < 60; ++round) {
    Values differences(1 + random() % 9);
    for (double& difference : differences) difference = Below(9, random) - 3;
    EXPECT_THAT(SignedRanks(differences), DoubleNear(SlowSignedRanks(differences), 1e-12));
  }
  EXPECT_EQ(SignedRanks(Values{}), 1);
  EXPECT_EQ(SignedRanks(Values{0, 0}), 1);
  EXPECT_THAT(LeastSignedRanks(6), DoubleNear(2.0 / 64, 1e-12));
}

TEST(SignedRanks, GoesOverToTheNormalDistributionWithoutAStep) {
  std::mt19937 random(7);
  std::normal_distribution<double> normal(0.2, 1);
  for (int round = 0; round < 20; ++round) {
    Values differences(40);
    for (double& difference : differences) difference = normal(random);
    const double counted = SignedRanks(differences);
    differences.push_back(1e-9);
    EXPECT_THAT(SignedRanks(differences), DoubleNear(counted, 0.01 + counted / 10));
  }
}

TEST(Deflate, MakesAChanceOfFewerValues) {
  EXPECT_THAT(Deflate(0.05, 1), DoubleNear(0.05, 1e-12));
  // 1.96 / 2 standard deviations
  EXPECT_THAT(Deflate(0.05, 4), DoubleNear(0.3271, 1e-4));
  EXPECT_EQ(Deflate(1, 4), 1);
  EXPECT_GT(Deflate(0, 4), 0);
}

TEST(Holm, RaisesEachByHowManyAreLeft) {
  EXPECT_THAT(Holm(Values{0.01, 0.04, 0.03, 0.005}),
              Pointwise(DoubleNear(1e-12), {0.03, 0.06, 0.06, 0.02}));
  EXPECT_THAT(Holm(Values{0.7, 0.8}), ElementsAre(1, 1));
  EXPECT_THAT(Holm(Values{0.04}), ElementsAre(0.04));
  EXPECT_TRUE(Holm(Values{}).empty());
}

}  // namespace
}  // namespace vorn::kit
