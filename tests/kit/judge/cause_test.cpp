// Causes that are planted by hand, and a confusion table over outputs of a real network.
#include "kit/judge/cause.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <iostream>
#include <limits>

#include "judge/faults.h"

namespace vorn::kit {
namespace {

using testing::HasSubstr;
using testing::Not;
using Values = std::vector<float>;

// Nothing in it repeats.
Values Wave(size_t count) {
  Values values(count);
  for (size_t i = 0; i < count; ++i) values[i] = std::sin(static_cast<float>(i * i) * 0.37F);
  return values;
}

std::vector<Cause> Find(const Values& actual, const Values& expected, const Shape& shape = {}) {
  CauseQuestion question;
  question.actual = actual;
  question.expected = expected;
  question.shape = shape.empty() ? Shape{actual.size()} : shape;
  return FindCauses(question);
}

std::string FirstText(const std::vector<Cause>& causes) {
  return causes.empty() ? "none" : causes[0].id + ": " + causes[0].text;
}

TEST(FindCauses, NamesNothingWhereNothingDiffers) {
  EXPECT_TRUE(Find(Wave(100), Wave(100)).empty());
  EXPECT_TRUE(Find({}, {}).empty());
  EXPECT_TRUE(Find({1}, {2}).empty());
}

TEST(FindCauses, NamesNothingForNoiseOrForRubbish) {
  Values noisy = Wave(1000);
  for (size_t i = 0; i < noisy.size(); ++i) {
    noisy[i] *= 1 + 1e-5F * std::sin(static_cast<float>(i * i * i));
  }
  EXPECT_TRUE(Find(noisy, Wave(1000), {10, 10, 10}).empty());
  Values rubbish(1000);
  for (size_t i = 0; i < rubbish.size(); ++i) {
    rubbish[i] = std::sin(static_cast<float>(i) * static_cast<float>(i % 97) * 1.7F + 2);
  }
  EXPECT_EQ(FirstText(Find(rubbish, Wave(1000), {10, 10, 10})), "none");
}

TEST(FindCauses, TellsWhereTheOutputIs) {
  const Values wave = Wave(120);
  Values shifted(120, 0);
  std::copy(wave.begin(), wave.end() - 10, shifted.begin() + 10);
  EXPECT_EQ(FirstText(Find(shifted, wave, {12, 10})), "shifted: everything stands 1 row too late");
  EXPECT_EQ(FirstText(Find(shifted, wave)), "shifted: everything stands 10 elements too late");
}

TEST(FindCauses, TellsWhichStride) {
  const Values wave = Wave(100);
  Values padded(100, 0);
  for (size_t i = 0; i < 100; ++i) {
    if (i % 16 < 10) padded[i] = wave[i / 16 * 10 + i % 16];
  }
  EXPECT_EQ(FirstText(Find(padded, wave, {10, 10})),
            "stride-left-in: rows of 10 elements stand 16 apart: the padding was left in");
  Values first(100);
  for (size_t i = 0; i < 100; ++i) first[i] = wave[i % 10];
  EXPECT_EQ(FirstText(Find(first, wave, {1, 10, 10})),
            "stride-wrong: the first row stands in every row");
}

// Some differences are greater than others, and none of the rest is as expected.
TEST(FindCauses, CallsNothingIsolatedAmongWhatIsWrong) {
  const Values wave = Wave(2304);
  Values swapped = wave;
  for (float& value : swapped) {
    value = std::bit_cast<float>(__builtin_bswap32(std::bit_cast<uint32_t>(value)));
  }
  EXPECT_THAT(FirstText(Find(swapped, wave)), Not(HasSubstr("isolated")));
  Values holed = wave;
  for (size_t i = 0; i < holed.size(); i += 2) holed[i] = NAN;
  EXPECT_THAT(FirstText(Find(holed, wave)), Not(HasSubstr("isolated")));
}

TEST(FindCauses, TellsWhichValues) {
  const Values wave = Wave(100);
  Values scaled = wave;
  for (float& value : scaled) value = value * 3 + 0.5F;
  EXPECT_EQ(FirstText(Find(scaled, wave)),
            "scaled: every value is 3 times the expected one, plus 0.5");
  Values one = wave;
  one[7] = -one[7];
  EXPECT_EQ(FirstText(Find(one, wave)),
            "isolated: 1 element is wrong, the first at 7, and all others as expected or nearly "
            "so; a single bit differs");
  Values cut = wave;
  for (float& value : cut) value = std::min(value, 0.5F);
  EXPECT_THAT(FirstText(Find(cut, wave)), HasSubstr("saturated at 0.5"));
  Values tail = wave;
  std::fill(tail.begin() + 80, tail.end(), 0.0F);
  EXPECT_EQ(FirstText(Find(tail, wave)),
            "tail-unwritten: the last 20 elements from 80 on were not written: every one is 0");
  EXPECT_EQ(FirstText(Find(Values(100, NAN), wave)), "constant: every element is nan");
}

// The scores of a sure classifier; those of another sample of its class are nearly the same.
TEST(FindCauses, TellsRoundedScoresOfFewLevels) {
  const Values scores{0.0003F, 0.0121F, 0.0002F, 0.9852F, 0.0004F,
                      0.0009F, 0.0004F, 0.0001F, 0.0002F, 0.0002F};
  Values rounded = scores;
  for (float& score : rounded) score = std::nearbyint(score * 255) / 255;
  Values other = rounded;
  for (size_t i = 0; i < other.size(); ++i) other[i] += 1e-6F * static_cast<float>(i % 3);
  CauseQuestion question;
  question.actual = rounded;
  question.expected = scores;
  question.shape = {1, 10};
  question.before = other;
  EXPECT_EQ(FirstText(FindCauses(question)),
            "rounded-int8: the values are the expected ones in steps of 0.00392157, at most 256 of "
            "them: rounded to 8 bits");
  // Nor is a step seen in values that are whole, or in what was rounded before.
  EXPECT_THAT(FirstText(Find({0, 1, 0, 0, 0, 0, 0, 0, 0, 0}, scores)), Not(HasSubstr("8 bits")));
  EXPECT_THAT(FirstText(Find(rounded, {0, 3.0F / 255, 0, 250.0F / 255, 0, 0, 0, 0, 0, 2.0F / 255})),
              Not(HasSubstr("8 bits")));
}

TEST(FindCauses, TellsWhichRounding) {
  const Values wave = Wave(100);
  Values steps = wave;
  for (float& value : steps) value = std::nearbyint(value / 0.0078125F) * 0.0078125F;
  EXPECT_EQ(FirstText(Find(steps, wave)),
            "rounded-int8: the values are the expected ones in steps of 0.0078125, at most 256 of "
            "them: rounded to 8 bits");
  EXPECT_EQ(Find(steps, wave)[0].certainty, 1);
}

// Of values whose exponential is none that a float holds.
TEST(FindCauses, TellsThatASoftmaxIsMissing) {
  Values logits = Wave(100);
  for (float& value : logits) value = value * 3 + 200;
  Values expected(100);
  for (size_t item = 0; item < 10; ++item) {
    double sum = 0;
    for (size_t i = 0; i < 10; ++i) sum += std::exp(static_cast<double>(logits[item * 10 + i]));
    for (size_t i = item * 10; i < item * 10 + 10; ++i) {
      expected[i] = static_cast<float>(std::exp(static_cast<double>(logits[i])) / sum);
    }
  }
  EXPECT_EQ(FirstText(Find(logits, expected, {10, 10})),
            "activation-missing: the softmax at the end is missing");
  EXPECT_EQ(FirstText(Find(expected, logits, {10, 10})),
            "activation-added: a softmax too many was applied");
}

// Nearly every element is 0 on both sides, as in a quantised map of something rare: what explains
// the zeros explains nothing.
TEST(FindCauses, IsNotMisledByZeros) {
  Values expected(400, 0);
  for (size_t i = 0; i < 8; ++i) expected[i * 41 + 3] = static_cast<float>(60 + i);
  Values actual = expected;
  for (float& value : actual) value = std::nearbyint(value * 2.5F);
  EXPECT_EQ(FirstText(Find(actual, expected, {20, 20})).substr(0, 7), "scaled:");
  Values moved(400, 0);
  std::copy(expected.begin(), expected.end() - 5, moved.begin() + 5);
  EXPECT_EQ(FirstText(Find(moved, expected)), "shifted: everything stands 5 elements too late");
}

// Bits of numbers below 0 are NaN as floats, each another one.
TEST(FindCauses, TellsBitsOfNegativeNumbersFromOneNan) {
  Values expected(50);
  Values actual(50);
  for (size_t i = 0; i < 50; ++i) {
    expected[i] = -static_cast<float>(i % 17) - 1;
    actual[i] = std::bit_cast<float>(static_cast<int32_t>(expected[i]));
  }
  EXPECT_EQ(FirstText(Find(actual, expected)),
            "int32-as-float: the bits of int32 were read as floats");
}

TEST(FindCauses, TellsNumbersThatAreAllBelowZeroFromAnOffset) {
  Values expected(50);
  Values actual(50);
  for (size_t i = 0; i < 50; ++i) {
    expected[i] = -static_cast<float>(i % 17) - 1;
    actual[i] = expected[i] + 256;
  }
  EXPECT_EQ(Find(actual, expected).at(0).id, "signed-as-unsigned");
}

TEST(FindCauses, KnowsNoLayoutsOfOneChannel) {
  const Values wave = Wave(144);
  Values exchanged(144);
  for (size_t i = 0; i < 144; ++i) exchanged[i] = wave[i % 12 * 12 + i / 12];
  for (const Shape& shape : {Shape{1, 1, 12, 12}, Shape{1, 12, 12}}) {
    EXPECT_EQ(FirstText(Find(exchanged, wave, shape)),
              "rows-columns: rows and columns are exchanged");
  }
}

TEST(FindCauses, BearsAnyValues) {
  constexpr float kMost = std::numeric_limits<float>::max();
  const std::vector<Values> hostile{
      Values(64, NAN),
      Values(64, INFINITY),
      Values(64, 0),
      Values(64, kMost),
      Values(64, std::numeric_limits<float>::denorm_min()),
      Wave(64),
  };
  Values mixed = Wave(64);
  for (size_t i = 0; i < mixed.size(); i += 3) {
    mixed[i] = i % 2 == 0 ? NAN : i % 5 == 0 ? -INFINITY : i % 7 == 0 ? kMost : 0;
  }
  for (const Shape& shape : {Shape{64}, Shape{4, 4, 4}, Shape{1, 4, 4, 4}, Shape{64, 1, 1},
                             Shape{2, 3}, Shape{0}, Shape{UINT64_MAX, 2}}) {
    for (const Values& one : hostile) {
      for (const Values& other : hostile) (void)Find(one, other, shape);
      (void)Find(mixed, one, shape);
      (void)Find(one, mixed, shape);
    }
  }
}

// What bench/README.md shows, with fewer cases and a seed of its own.
TEST(FindCauses, NamesPlantedFaultsAndNoHonestDifference) {
  auto outputs = bench::ReadOutputs(VORN_SOURCE_FOLDER "/tests/kit/judge/outputs");
  outputs.push_back(bench::ReadOutputs(VORN_SOURCE_FOLDER "/examples/digits/expected.npy").front());
  constexpr uint64_t kSeed = 20240917;
  constexpr size_t kRounds = 4;
  const bench::Confusion confusion = bench::Confuse(outputs, kRounds, kSeed);
  SCOPED_TRACE(confusion.Table());
  EXPECT_GE(confusion.Right(), 0.95);
  EXPECT_LE(confusion.HonestNamed(), 0.01);
}

}  // namespace
}  // namespace vorn::kit
