#include "kit/prepare/random_values.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <set>
#include <vector>

namespace vorn::kit {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

constexpr size_t kMany = 200000;

RandomRecipe Recipe(const std::string& text) { return ParseRandomRecipe(ParseJson(text)); }

std::vector<double> Series(const RandomRecipe& recipe, size_t count,
                           const std::string& input = "input:0", uint64_t sample = 7) {
  RandomSeries series(recipe, input, sample);
  std::vector<double> values(count);
  series.Fill(values);
  return values;
}

std::vector<double> Series(const std::string& text, size_t count) {
  return Series(Recipe(text), count);
}

std::string Refusal(const std::string& text) {
  try {
    (void)Recipe(text);
  } catch (const JsonError& error) {
    return error.what();
  }
  return "taken";
}

// ---- Known answers ------------------------------------------------------------------------------

// As other implementations of the same generators give them.
TEST(RandomWords, AreThoseOfTheGenerator) {
  RandomWords words({1, 2, 3, 4});
  for (const uint64_t expected :
       {uint64_t{11520}, uint64_t{0}, uint64_t{1509978240}, uint64_t{1215971899390074240},
        uint64_t{1216172134540287360}, uint64_t{607988272756665600}}) {
    EXPECT_EQ(words.Next(), expected);
  }
}

TEST(NextSplitMix, GivesWhatTheGeneratorGives) {
  uint64_t state = 0;
  EXPECT_EQ(NextSplitMix(state), 0xE220A8397B1DCDAFU);
  EXPECT_EQ(NextSplitMix(state), 0x6E789E6AA1B965F4U);
  EXPECT_EQ(NextSplitMix(state), 0x06C45D188009454FU);
}

// Of a second implementation, in Python, after what the header tells.
TEST(RandomSeries, IsTheSameOnEveryMachine) {
  EXPECT_THAT(Series(R"({"distribution": "uniform", "low": -1, "high": 1, "seed": 42})", 4),
              ElementsAre(-0x1.679e350ffee98p-2, -0x1.42fc5ce5147d0p-3, 0x1.7bd2314bcb79ep-1,
                          0x1.a61bf8fae3cc0p-5));
  EXPECT_THAT(Series(R"({"distribution": "normal", "seed": 42})", 6),
              ElementsAre(-0x1.c855e02eb6311p+0, -0x1.99d9e83a2f320p-1, 0x1.15fda90a2ec0bp+0,
                          0x1.34f10b2df073cp-4, 0x1.5640ed288293dp+0, 0x1.d2b0e23d06fbap-1));
  EXPECT_THAT(Series(R"({"distribution": "integers", "low": -3, "high": 6, "seed": 42})", 12),
              ElementsAre(2, 3, 5, 2, -3, 3, 1, 6, 5, -1, -3, 5));
  EXPECT_THAT(Series(R"({"distribution": "bool", "share": 0.25, "seed": 42})", 12),
              ElementsAre(0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0));
  RandomWords words = WordsFor(42, "input:0", 7);
  EXPECT_EQ(words.Next(), 0x530C395E0022D33CU);
  EXPECT_EQ(words.Next(), 0x6BD03A31AEB8341DU);
}

// ---- Which series -------------------------------------------------------------------------------

TEST(RandomSeries, IsAnotherForEachSeedInputAndSample) {
  const RandomRecipe recipe;
  RandomRecipe seeded;
  seeded.seed = 1;
  std::set<std::vector<double>> seen;
  for (uint64_t sample = 0; sample < 100; ++sample) {
    for (const char* input : {"", "a", "b", "ab"}) {
      seen.insert(Series(recipe, 3, input, sample));
      seen.insert(Series(seeded, 3, input, sample));
    }
  }
  EXPECT_EQ(seen.size(), 800U);
}

TEST(RandomSeries, IsTheSameInPiecesOfAnySize) {
  for (const char* text : {R"({"distribution": "uniform"})", R"({"distribution": "normal"})",
                           R"({"distribution": "integers", "low": 0, "high": 9})"}) {
    const std::vector<double> whole = Series(text, 30);
    RandomSeries series(Recipe(text), "input:0", 7);
    std::vector<double> pieces(30);
    for (size_t at = 0, size = 1; at < pieces.size(); at += size++) {
      series.Fill(std::span(pieces).subspan(at, std::min(size, pieces.size() - at)));
    }
    EXPECT_EQ(pieces, whole) << text;
  }
}

// ---- How they are distributed -------------------------------------------------------------------

// The greatest distance between the share of values up to x and what it should be.
template <typename Cumulated>
double Distance(std::vector<double> values, Cumulated cumulated) {
  std::sort(values.begin(), values.end());
  const auto count = static_cast<double>(values.size());
  double distance = 0;
  for (size_t i = 0; i < values.size(); ++i) {
    const double wanted = cumulated(values[i]);
    distance = std::max({distance, std::abs(static_cast<double>(i) / count - wanted),
                         std::abs(static_cast<double>(i + 1) / count - wanted)});
  }
  return distance;
}

// What the distance exceeds by chance once in a thousand (Kolmogorov).
const double kFar = 1.95 / std::sqrt(static_cast<double>(kMany));

double MeanOf(const std::vector<double>& values) {
  double sum = 0;
  for (const double value : values) sum += value;
  return sum / static_cast<double>(values.size());
}

// Pearson's, of values that should all come as often.
double ChiSquare(const std::map<double, uint64_t>& counts, double wanted) {
  double sum = 0;
  for (const auto& [value, count] : counts) {
    sum += (static_cast<double>(count) - wanted) * (static_cast<double>(count) - wanted) / wanted;
  }
  return sum;
}

TEST(RandomSeries, IsUniformFromLowToBelowHigh) {
  const auto values =
      Series(R"({"distribution": "uniform", "low": -3, "high": 5, "seed": 1})", kMany);
  EXPECT_LT(Distance(values, [](double x) { return (x + 3) / 8; }), kFar);
  EXPECT_GE(*std::min_element(values.begin(), values.end()), -3);
  EXPECT_LT(*std::max_element(values.begin(), values.end()), 5);
}

TEST(RandomSeries, NeverReachesHighByRounding) {
  // Two doubles only: without care the upper one would be high, every second time.
  RandomRecipe recipe;
  recipe.low = 1;
  recipe.high = std::nextafter(1.0, 2.0);
  for (const double value : Series(recipe, 1000)) EXPECT_EQ(value, 1);
}

TEST(RandomSeries, IsNormalAroundItsMean) {
  const auto values =
      Series(R"({"distribution": "normal", "mean": 10, "deviation": 2, "seed": 1})", kMany);
  const auto cumulated = [](double x) { return std::erfc(-(x - 10) / 2 / std::sqrt(2.0)) / 2; };
  EXPECT_LT(Distance(values, cumulated), kFar);
  // Four deviations out there are 0.0063 % of them, 12.7 of these.
  const auto far = std::count_if(values.begin(), values.end(),
                                 [](double value) { return std::abs(value - 10) > 8; });
  EXPECT_GT(far, 2);
  EXPECT_LT(far, 30);
}

TEST(RandomSeries, HasNormalNumbersWithoutAnyCorrelation) {
  const auto values = Series(R"({"distribution": "normal", "seed": 3})", kMany);
  for (const size_t lag : {1, 2, 3}) {
    double sum = 0;
    for (size_t i = lag; i < values.size(); ++i) sum += values[i] * values[i - lag];
    EXPECT_LT(std::abs(sum / static_cast<double>(kMany)), 4 / std::sqrt(double{kMany})) << lag;
  }
}

TEST(RandomSeries, HasADeviationOfNothing) {
  EXPECT_THAT(Series(R"({"distribution": "normal", "mean": 3, "deviation": 0})", 3),
              ElementsAre(3, 3, 3));
}

// 10 does not divide a power of two: remainders would favour some.
TEST(RandomSeries, HasIntegersAllAsOften) {
  std::map<double, uint64_t> counts;
  for (const double value :
       Series(R"({"distribution": "integers", "low": -4, "high": 5})", kMany)) {
    ++counts[value];
  }
  ASSERT_EQ(counts.size(), 10U);
  EXPECT_EQ(counts.begin()->first, -4);
  EXPECT_EQ(counts.rbegin()->first, 5);
  EXPECT_LT(ChiSquare(counts, kMany / 10.0), 27.9);  // once in a thousand, 9 degrees of freedom
}

TEST(RandomSeries, HasIntegersOfTheWidestRange) {
  const auto values = Series(
      R"({"distribution": "integers", "low": -9007199254740992, "high": 9007199254740992})", kMany);
  EXPECT_LT(Distance(values, [](double x) { return x / 0x1p54 + 0.5; }), kFar);
  for (const double value : values) EXPECT_EQ(value, std::trunc(value));
}

TEST(RandomSeries, HasOneIntegerWhereOneIsAllowed) {
  EXPECT_THAT(Series(R"({"distribution": "integers", "low": 5, "high": 5})", 2), ElementsAre(5, 5));
}

TEST(RandomSeries, HasTheShareOfOnes) {
  const auto values = Series(R"({"distribution": "bool", "share": 0.2})", kMany);
  EXPECT_NEAR(MeanOf(values), 0.2, 4 * std::sqrt(0.2 * 0.8 / kMany));
  EXPECT_EQ(MeanOf(Series(R"({"distribution": "bool", "share": 1})", 1000)), 1);
  EXPECT_EQ(MeanOf(Series(R"({"distribution": "bool", "share": 0})", 1000)), 0);
}

// ---- What is asked for --------------------------------------------------------------------------

TEST(ParseRandomRecipe, ComesBackWhole) {
  for (const char* text :
       {R"({"distribution":"uniform","low":-1.5,"high":2.5,"seed":18446744073709551615})",
        R"({"distribution":"normal","mean":0.5,"deviation":0.25,"seed":1})",
        R"({"distribution":"integers","low":0,"high":255,"seed":0})",
        R"({"distribution":"bool","share":0.5,"seed":0})"}) {
    EXPECT_EQ(ToText(ToJson(Recipe(text))), text);
  }
}

TEST(ParseRandomRecipe, RefusesWhatIsNotMeant) {
  EXPECT_THAT(Refusal("{}"), HasSubstr("distribution"));
  EXPECT_THAT(Refusal(R"({"distribution": "unifrom"})"),
              HasSubstr("no distribution 'unifrom'; did you mean 'uniform'?; there are uniform, "));
  EXPECT_EQ(Refusal(R"({"distribution": "normal", "low": 0})"),
            "random numbers of the distribution normal have no key 'low'");
  EXPECT_THAT(Refusal(R"({"distribution": "normal", "maen": 0})"), HasSubstr("'mean'?"));
  EXPECT_EQ(Refusal(R"({"distribution": "uniform", "low": 1})"),
            "random numbers from 1.0 to 1.0: low has to be less than high, by a finite number");
  EXPECT_THAT(Refusal(R"({"distribution": "uniform", "low": -1e308, "high": 1e308})"),
              HasSubstr("by a finite number"));
  EXPECT_THAT(Refusal(R"({"distribution": "uniform", "high": "Infinity"})"),
              HasSubstr("high is \"Infinity\", and has to be finite"));
  EXPECT_THAT(Refusal(R"({"distribution": "integers", "low": 0})"), HasSubstr("high"));
  EXPECT_THAT(Refusal(R"({"distribution": "integers", "low": 0.5, "high": 2})"),
              HasSubstr("low is 0.5, and has to be a whole number between -2^53 and 2^53"));
  EXPECT_THAT(Refusal(R"({"distribution": "integers", "low": 0, "high": 9007199254740994})"),
              HasSubstr("high is 9007199254740994"));
  EXPECT_EQ(Refusal(R"({"distribution": "integers", "low": 2, "high": 1})"),
            "random numbers from 2 to 1: high has to be low or more");
  EXPECT_THAT(Refusal(R"({"distribution": "normal", "deviation": -1})"),
              HasSubstr("deviation is -1, and has to be 0 or more"));
  EXPECT_THAT(Refusal(R"({"distribution": "bool", "share": 1.5})"),
              HasSubstr("share is 1.5, and has to be from 0 to 1"));
  EXPECT_THAT(Refusal(R"({"distribution": "uniform", "seed": -1})"), HasSubstr("-1"));
}

}  // namespace
}  // namespace vorn::kit
