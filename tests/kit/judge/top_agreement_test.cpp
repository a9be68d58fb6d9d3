#include "kit/judge/top_agreement.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

namespace vorn::kit {
namespace {

using Values = std::vector<float>;

TEST(TopFive, AreTheGreatestAsSortingHasThem) {
  std::mt19937 random(3);
  for (int round = 0; round < 200; ++round) {
    Values values(1 + random() % 20);
    for (float& value : values) value = static_cast<float>(random() % 6);
    std::vector<uint64_t> order(values.size());
    for (size_t i = 0; i < order.size(); ++i) order[i] = i;
    std::stable_sort(order.begin(), order.end(),
                     [&](uint64_t a, uint64_t b) { return values[a] > values[b]; });
    TopFive top;
    for (size_t i = 0; i < values.size(); ++i) top.Take(values[i], i);
    ASSERT_EQ(top.Count(), std::min<size_t>(values.size(), 5));
    for (size_t i = 0; i < top.Count(); ++i) EXPECT_EQ(top.Index(i), order[i]);
  }
}

TEST(TopFive, LeaveNanOut) {
  TopFive top;
  top.Take(NAN, 0);
  top.Take(-1, 1);
  EXPECT_EQ(top.Count(), 1U);
  EXPECT_TRUE(top.Holds(1));
  EXPECT_FALSE(top.Holds(0));
}

TopAgreement Take(const Values& actual, const Values& expected, uint64_t classes) {
  TopAgreementTaker taker(classes);
  // In two blocks, which need not end where an item does.
  const size_t half = actual.size() / 2;
  taker.Take(std::span(actual).first(half), std::span(expected).first(half));
  taker.Take(std::span(actual).subspan(half), std::span(expected).subspan(half));
  return taker.Result();
}

TEST(TopAgreement, CountsItemsOfProbabilities) {
  const TopAgreement both = Take({0.1F, 0.9F, 0, 0.6F, 0.4F, 0}, {0.2F, 0.8F, 0, 0.4F, 0.6F, 0}, 3);
  EXPECT_EQ(both.items, 2U);
  EXPECT_EQ(both.top1, 1U);
  EXPECT_EQ(both.top5, 2U);
  EXPECT_EQ(Take({3, 4, 5}, {3, 4, 5}, 3).items, 0U);
  EXPECT_EQ(Take({1, 0}, {1.5F, -0.5F}, 2).items, 0U);
  EXPECT_EQ(Take({NAN, NAN}, {1, 0}, 2).top1, 0U);
}

// An int8 output has many equal values, of which none comes first.
TEST(TopAgreement, TellsItemsApartThatEqualValuesDecide) {
  const TopAgreement actual = Take({0.5F, 0.5F, 0}, {0.4F, 0.6F, 0}, 3);
  EXPECT_EQ(actual.top1, 0U);
  EXPECT_EQ(actual.tied1, 1U);
  EXPECT_TRUE(actual.pairs.empty());
  const TopAgreement expected = Take({0.4F, 0.6F, 0}, {0.5F, 0.5F, 0}, 3);
  EXPECT_EQ(expected.tied1, 1U);
  const TopAgreement other = Take({0.2F, 0.2F, 0.6F}, {0.5F, 0.5F, 0}, 3);
  EXPECT_EQ(other.tied1, 0U);
  EXPECT_EQ(other.pairs.size(), 1U);
  // Nothing agrees with an output of one value throughout but what the order has it.
  const TopAgreement constant = Take({0, 0, 0}, {0, 0, 1}, 3);
  EXPECT_EQ(constant.top1, 0U);
  EXPECT_EQ(constant.tied1, 1U);
  const Values last{0, 0, 0, 0, 0, 0, 1};
  EXPECT_EQ(Take({1, 0, 0, 0, 0, 0, 0}, last, 7).top5, 0U);
  EXPECT_EQ(Take({1, 0, 0, 0, 0, 0, 0}, last, 7).tied5, 1U);
  EXPECT_EQ(Take({1, 0.5F, 0.5F, 0.5F, 0.5F, 0, 0}, last, 7).tied5, 0U);
  // A NaN is as great as nothing.
  EXPECT_EQ(Take({NAN, 0.5F, 0.4F}, {0.5F, 0.5F, 0}, 3).tied1, 1U);
  EXPECT_EQ(Take({NAN, 0.5F, 0.5F}, {1, 0, 0}, 3).tied1, 0U);
  EXPECT_EQ(Take({NAN, 0.5F, 0.5F}, {1, 0, 0}, 3).tied5, 0U);
}

TEST(TopAgreement, CountsPairsOfClasses) {
  TopAgreement both = Take({0.1F, 0.9F, 0, 0.6F, 0.4F, 0}, {0.2F, 0.8F, 0, 0.4F, 0.6F, 0}, 3);
  using Pairs = std::map<std::pair<uint64_t, uint64_t>, uint64_t>;
  EXPECT_EQ(both.pairs, (Pairs{{{1, 1}, 1}, {{1, 0}, 1}}));
  both.Merge(Take({0, 1, 0}, {0, 1, 0}, 3));
  EXPECT_EQ(both.pairs, (Pairs{{{1, 1}, 2}, {{1, 0}, 1}}));
}

TEST(TopAgreement, HoldsSoManyPairsAndNoMore) {
  TopAgreement agreement;
  for (uint64_t i = 0; i < TopAgreement::kMostPairs + 7; ++i) agreement.TakePair({i, i}, 1);
  agreement.TakePair({0, 0}, 5);
  EXPECT_EQ(agreement.pairs.size(), TopAgreement::kMostPairs);
  EXPECT_EQ(agreement.pairsLeftOut, 7U);
  EXPECT_EQ(agreement.pairs.at({0, 0}), 6U);
}

TEST(TopAgreement, TellsTheFifthFromTheSixth) {
  const Values expected{1, 0, 0, 0, 0, 0, 0};
  EXPECT_EQ(Take({3, 7, 6, 5, 4, 0, 0}, expected, 7).top5, 1U);
  EXPECT_EQ(Take({2, 7, 6, 5, 4, 3, 0}, expected, 7).top5, 0U);
}

TEST(ClassesOf, AreInOneDimensionBehindTheFirst) {
  EXPECT_EQ(ClassesOf({10}), 10U);
  EXPECT_EQ(ClassesOf({4, 10}), 10U);
  EXPECT_EQ(ClassesOf({4, 1000, 1, 1}), 1000U);
  EXPECT_EQ(ClassesOf({4, 1, 1, 1000}), 1000U);
  EXPECT_EQ(ClassesOf({4, 3, 2}), std::nullopt);
  EXPECT_EQ(ClassesOf({4, 1}), std::nullopt);
  EXPECT_EQ(ClassesOf({}), std::nullopt);
  EXPECT_EQ(ClassesOf({1, 100000}), 100000U);
  EXPECT_EQ(ClassesOf({1, 100001}), std::nullopt);
}

}  // namespace
}  // namespace vorn::kit
