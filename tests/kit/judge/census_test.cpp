#include "kit/judge/census.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <random>
#include <vector>

namespace vorn::kit {
namespace {

constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
constexpr float kInf = std::numeric_limits<float>::infinity();

using Values = std::vector<float>;

Census Take(const Values& actual, const Values& expected, const Tolerance& tolerance = {}) {
  CensusTaker taker(tolerance, 3);
  taker.Take(actual, expected);
  return taker.Result();
}

// Counts floats one by one.
uint64_t SlowUlps(float one, float other) {
  uint64_t count = 0;
  for (float at = std::min(one, other); at < std::max(one, other); ++count) {
    at = std::nextafter(at, kInf);
  }
  return count;
}

TEST(Census, OfNothingHasNoFigures) {
  const auto nothing = {Take({}, {}), Take({NAN, kInf, -kInf}, {NAN, kInf, 5})};
  for (const Census& census : nothing) {
    EXPECT_EQ(census.finite, 0U);
    for (const double figure : {census.Rmse(), census.MeanAbs(), census.MaxRel(), census.Cosine(),
                                census.Snr(), census.Psnr()}) {
      EXPECT_TRUE(std::isnan(figure)) << figure;
    }
    EXPECT_EQ(census.ulp.Percentile(0.5), 0U);
  }
}

TEST(Census, TellsEqualWithinAndOutside) {
  const Census census =
      Take({1, -0.0F, 2.5F, 103, 200}, {1, 0.0F, 2, 100, 100}, {.atol = 0.5, .rtol = 0.03});
  EXPECT_EQ(census.elements, 5U);
  EXPECT_EQ(census.equal, 2U);
  EXPECT_EQ(census.within, 2U);
  EXPECT_EQ(census.outside, 1U);
}

TEST(Census, HoldsABoundOfZero) {
  const Census census = Take({1, std::nextafter(1.0F, 2.0F)}, {1, 1});
  EXPECT_EQ(census.equal, 1U);
  EXPECT_EQ(census.outside, 1U);
  EXPECT_EQ(census.maxUlp, 1U);
}

TEST(Census, ComparesWithTheBoundItself) {
  // In float both differences would round to the bound.
  const Tolerance tolerance{.atol = 1};
  EXPECT_EQ(Take({16777216}, {16777215}, tolerance).outside, 0U);
  EXPECT_EQ(Take({1 + 1.2e-7F}, {0}, tolerance).outside, 1U);
}

TEST(Census, CountsWhatIsNoNumber) {
  const Census census = Take({kNan, kNan, 1, kInf, kInf, kInf, 1, -kInf, kInf},
                             {kNan, 1, kNan, kInf, -kInf, 1, kInf, -kInf, kNan}, {.atol = 1e30});
  EXPECT_EQ(census.actualNan, 2U);
  EXPECT_EQ(census.expectedNan, 3U);
  EXPECT_EQ(census.onlyActualNan, 1U);
  EXPECT_EQ(census.onlyExpectedNan, 2U);
  EXPECT_EQ(census.actualInfinite, 5U);
  EXPECT_EQ(census.expectedInfinite, 4U);
  EXPECT_EQ(census.onlyActualInfinite, 2U);
  EXPECT_EQ(census.onlyExpectedInfinite, 1U);
  EXPECT_EQ(census.oppositeInfinite, 1U);
  EXPECT_EQ(census.equal, 2U);
  EXPECT_EQ(census.within, 0U);
  EXPECT_EQ(census.outside, 7U);
  EXPECT_EQ(census.finite, 0U);
}

TEST(Census, LetsNanPassOnlyWhereItIsAskedForAndExpected) {
  EXPECT_EQ(Take({kNan}, {kNan}, {.atol = kInf}).outside, 1U);
  const Tolerance asked{.isNanExpected = true};
  EXPECT_EQ(Take({kNan}, {kNan}, asked).within, 1U);
  EXPECT_EQ(Take({kNan}, {1}, asked).outside, 1U);
  EXPECT_EQ(Take({1}, {kNan}, asked).outside, 1U);
}

TEST(Census, LetsAnUnboundedToleranceNotHideAnInfinity) {
  const Tolerance unbounded{.atol = kInf, .rtol = 1};
  EXPECT_EQ(Take({kInf}, {1}, unbounded).outside, 1U);
  EXPECT_EQ(Take({1}, {-kInf}, unbounded).outside, 1U);
}

TEST(Census, MeasuresRelativeDifferencesWhereTheReferenceMatters) {
  // 1e-6 is far less than a thousandth of 8.
  EXPECT_NEAR(Take({8, 4.4F, 1e-3F}, {8, 4, 1e-6F}).MaxRel(), 0.1, 1e-6);
  EXPECT_NEAR(Take({0.011F}, {0.01F}).MaxRel(), 0.1, 1e-6);
  EXPECT_EQ(Take({1}, {0}).MaxRel(), 0);
}

TEST(Census, HasTheUsualMeasures) {
  const Census census = Take({3, 4}, {4, 3});
  EXPECT_DOUBLE_EQ(census.maxAbs, 1);
  EXPECT_DOUBLE_EQ(census.MeanAbs(), 1);
  EXPECT_DOUBLE_EQ(census.Rmse(), 1);
  EXPECT_DOUBLE_EQ(census.Cosine(), 24.0 / 25);
  EXPECT_DOUBLE_EQ(census.Snr(), 10 * std::log10(25.0 / 2));
  EXPECT_DOUBLE_EQ(census.Psnr(), 0);  // the range is 1, and so is the error
  EXPECT_EQ(Take({0, 0}, {0, 0}).Cosine(), 1);
  EXPECT_EQ(Take({0, 0}, {1, 0}).Cosine(), 0);
  EXPECT_EQ(Take({2, 2}, {1, 1}).Cosine(), 1);
}

// Against sums that are taken one by one, over lengths around those of lanes and chunks.
TEST(Census, AgreesWithASlowOneForAnyLength) {
  std::mt19937 random(7);
  std::normal_distribution<float> normal;
  for (const size_t count : {1U, 2U, 3U, 5U, 1023U, 1024U, 1025U, 5000U}) {
    SCOPED_TRACE(count);
    Values actual(count);
    Values expected(count);
    for (size_t i = 0; i < count; ++i) {
      expected[i] = normal(random) - 5;
      actual[i] = random() % 4 == 0 ? expected[i] : expected[i] + 1e-3F * normal(random);
      if (random() % 50 == 0) actual[i] = kNan;
    }
    const Tolerance tolerance{.atol = 1e-4, .rtol = 1e-4};
    uint64_t outside = 0;
    uint64_t equal = 0;
    double squares = 0;
    double maxAbs = 0;
    double sum = 0;
    double least = INFINITY;
    std::vector<uint64_t> ulps;
    for (size_t i = 0; i < count; ++i) {
      if (std::isnan(actual[i])) {
        ++outside;
        continue;
      }
      const double difference = static_cast<double>(actual[i]) - static_cast<double>(expected[i]);
      const double size = std::abs(static_cast<double>(expected[i]));
      outside += std::abs(difference) > 1e-4 + 1e-4 * size ? 1 : 0;
      equal += difference == 0 ? 1 : 0;
      squares += difference * difference;
      sum += std::abs(difference);
      maxAbs = std::max(maxAbs, std::abs(difference));
      least = std::min(least, static_cast<double>(expected[i]));
      ulps.push_back(SlowUlps(actual[i], expected[i]));
    }
    const Census census = Take(actual, expected, tolerance);
    EXPECT_EQ(census.outside, outside);
    EXPECT_EQ(census.equal, equal);
    EXPECT_EQ(census.elements, census.equal + census.within + census.outside);
    EXPECT_NEAR(census.sumSquares, squares, 1e-12 * squares);
    EXPECT_NEAR(census.sumAbs, sum, 1e-12 * sum);
    EXPECT_DOUBLE_EQ(census.maxAbs, maxAbs);
    EXPECT_EQ(static_cast<double>(census.leastExpected), least);
    std::sort(ulps.begin(), ulps.end());
    EXPECT_EQ(census.maxUlp, ulps.back());
    const uint64_t median = ulps[(ulps.size() + 1) / 2 - 1];
    EXPECT_LE(census.ulp.Percentile(0.5), median);
    EXPECT_GE(static_cast<double>(census.ulp.Percentile(0.5)) * 1.125, static_cast<double>(median));
  }
}

TEST(Census, CountsUlpsAcrossZeroAndToTheEndsOfTheRange) {
  constexpr float kLeast = std::numeric_limits<float>::denorm_min();
  EXPECT_EQ(Take({kLeast}, {-kLeast}).maxUlp, 2U);
  EXPECT_EQ(Take({-0.0F}, {0.0F}).maxUlp, 0U);
  constexpr float kMost = std::numeric_limits<float>::max();
  EXPECT_EQ(Take({kMost}, {-kMost}).maxUlp, 2 * std::bit_cast<uint32_t>(kMost));
}

TEST(UlpHistogram, TellsSmallDistancesExactly) {
  for (unsigned distance = 0; distance <= 16; ++distance) {
    const float apart = std::bit_cast<float>(std::bit_cast<uint32_t>(1.0F) + distance);
    EXPECT_EQ(Take({apart}, {1}).ulp.Percentile(0.5), distance);
  }
}

TEST(Census, MergesIntoOneOfAll) {
  const Values actual{1, 2, kNan, 4, 5, 6};
  const Values expected{1, 2.5F, 3, -kInf, 5.25F, 7};
  Census parts;
  parts.Merge(Take({1, 2, kNan}, {1, 2.5F, 3}));
  parts.Merge(Take({4, 5, 6}, {-kInf, 5.25F, 7}));
  const Census whole = Take(actual, expected);
  EXPECT_EQ(parts.elements, whole.elements);
  EXPECT_EQ(parts.outside, whole.outside);
  EXPECT_EQ(parts.onlyActualNan, whole.onlyActualNan);
  EXPECT_EQ(parts.onlyExpectedInfinite, whole.onlyExpectedInfinite);
  EXPECT_DOUBLE_EQ(parts.Rmse(), whole.Rmse());
  EXPECT_DOUBLE_EQ(parts.Cosine(), whole.Cosine());
  EXPECT_EQ(parts.maxUlp, whole.maxUlp);
  EXPECT_EQ(parts.ulp.Percentile(0.99), whole.ulp.Percentile(0.99));
  EXPECT_EQ(parts.greatestExpected, 7);
}

std::vector<uint64_t> WorstPlaces(const Values& actual, const Values& expected, size_t most,
                                  const Tolerance& tolerance = {}) {
  CensusTaker taker(tolerance, most);
  taker.Take(actual, expected);
  std::vector<uint64_t> places;
  for (const Difference& difference : taker.Worst()) places.push_back(difference.index);
  return places;
}

TEST(CensusTaker, KeepsTheWorstInOrder) {
  using testing::ElementsAre;
  EXPECT_THAT(WorstPlaces({1, 5, 3, 9, 3}, {1, 1, 1, 1, 1}, 3), ElementsAre(3, 1, 2));
  EXPECT_THAT(WorstPlaces({2, 2, 2, 2}, {1, 1, 1, 1}, 2), ElementsAre(0, 1));
  EXPECT_THAT(WorstPlaces({9, kNan, kInf}, {1, 1, 1}, 3), ElementsAre(1, 2, 0));
  EXPECT_THAT(WorstPlaces({1.5F, 3}, {1, 1}, 3, {.atol = 1}), ElementsAre(1));
  EXPECT_THAT(WorstPlaces({2, 2}, {1, 1}, 0), ElementsAre());
}

TEST(CensusTaker, FindsTheWorstOfManyBlocks) {
  std::mt19937 random(11);
  Values actual(100000);
  const Values expected(actual.size(), 0);
  for (float& value : actual) value = static_cast<float>(random() % 1000000);
  std::vector<uint64_t> order(actual.size());
  for (size_t i = 0; i < order.size(); ++i) order[i] = i;
  std::stable_sort(order.begin(), order.end(),
                   [&](uint64_t a, uint64_t b) { return actual[a] > actual[b]; });
  order.resize(5);
  EXPECT_EQ(WorstPlaces(actual, expected, 5), order);
}

}  // namespace
}  // namespace vorn::kit
