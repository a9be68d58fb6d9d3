// Causes that are planted by hand, and a confusion table over outputs of a real network.
#include "kit/judge/cause.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <iostream>
#include <limits>

#include "judge/faults.h"
#include "kit/judge/cause_evidence.h"
#include "kit/tensor/element_type.h"

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

float Turned(float value) {
  return std::bit_cast<float>(__builtin_bswap32(std::bit_cast<uint32_t>(value)));
}

TEST(FindCauses, TellsTheOrderOfBytes) {
  const Values wave = Wave(2304);
  Values turned = wave;
  for (float& value : turned) value = Turned(value);
  EXPECT_EQ(FirstText(Find(turned, wave)),
            "byte-order: the bytes of each float32 stand in the other order");
  const auto turned16 = [](uint16_t bits) { return static_cast<uint16_t>(bits << 8 | bits >> 8); };
  Values half(200);
  Values turnedHalf(200);
  Values brain(200);
  Values turnedBrain(200);
  for (uint16_t i = 0; i < 200; ++i) {
    const auto halfBits = static_cast<uint16_t>(0x3000 + 37 * i);
    half[i] = Float16Value(halfBits);
    turnedHalf[i] = Float16Value(turned16(halfBits));
    const auto brainBits = static_cast<uint16_t>(0x3F00 + 3 * i);
    brain[i] = Bfloat16Value(brainBits);
    turnedBrain[i] = Bfloat16Value(turned16(brainBits));
  }
  EXPECT_EQ(FirstText(Find(turnedHalf, half)),
            "byte-order: the bytes of each float16 stand in the other order");
  EXPECT_EQ(FirstText(Find(turnedBrain, brain)),
            "byte-order: the bytes of each bfloat16 stand in the other order");
}

TEST(FindCauses, TellsTheOrderOfBytesOfWholeNumbers) {
  Values small(200);
  Values turned16(200);
  Values turnedUnsigned(200);
  Values wide(200);
  Values turned32(200);
  for (size_t i = 0; i < 200; ++i) {
    const auto number = static_cast<int16_t>(static_cast<int>(i * 5) - 400);
    const auto bits = static_cast<uint16_t>(number);
    small[i] = number;
    turned16[i] = static_cast<int16_t>(static_cast<uint16_t>(bits << 8 | bits >> 8));
    turnedUnsigned[i] = static_cast<uint16_t>(i << 8);
    wide[i] = static_cast<float>(i % 100);
    turned32[i] = static_cast<float>(static_cast<int32_t>(static_cast<uint32_t>(i % 100) << 24));
  }
  EXPECT_EQ(FirstText(Find(turned16, small)),
            "byte-order: the bytes of each int16 stand in the other order");
  Values counted(200);
  for (size_t i = 0; i < 200; ++i) counted[i] = static_cast<float>(i);
  // 256 times as much, too, but for what a device would have to do to make it so.
  EXPECT_EQ(Find(turnedUnsigned, counted).at(0).certainty, 1);
  EXPECT_EQ(FirstText(Find(turned32, wide)),
            "byte-order: the bytes of each int32 stand in the other order");
}

TEST(FindCauses, TellsWhichChannelsAreExchanged) {
  const Values wave = Wave(240);
  const Shape first{1, 6, 5, 8};
  const Shape last{1, 5, 8, 6};
  Values exchanged = wave;
  for (size_t i = 0; i < 40; ++i) std::swap(exchanged[40 + i], exchanged[160 + i]);
  EXPECT_EQ(FirstText(Find(exchanged, wave, first)),
            "channels-exchanged: channels 1 and 4 of 6 are exchanged");
  exchanged = wave;
  for (size_t i = 0; i < 40; ++i) std::swap(exchanged[i * 6 + 2], exchanged[i * 6 + 5]);
  EXPECT_EQ(FirstText(Find(exchanged, wave, last)),
            "channels-exchanged: channels 2 and 5 of 6 are exchanged");
  Values turned = wave;  // 0, 1, 2 to 1, 2, 0
  for (size_t i = 0; i < 40; ++i) {
    turned[i] = wave[40 + i];
    turned[40 + i] = wave[80 + i];
    turned[80 + i] = wave[i];
  }
  EXPECT_EQ(FirstText(Find(turned, wave, first)),
            "channels-exchanged: 3 of 6 channels are exchanged: channel 0 holds what belongs to "
            "channel 1");
}

TEST(FindCauses, TellsWhichChannelIsOff) {
  const Values wave = Wave(240);
  const Shape first{1, 6, 5, 8};
  Values off = wave;
  std::fill(off.begin() + 80, off.begin() + 120, 0.0F);
  EXPECT_EQ(FirstText(Find(off, wave, first)),
            "channel-off: channel 2 of 6 alone is wrong: every element is 0");
  off = wave;
  for (size_t i = 0; i < 40; ++i) off[i * 6 + 3] *= 2.5F;
  EXPECT_EQ(
      FirstText(Find(off, wave, {1, 5, 8, 6})),
      "channel-off: channel 3 of 6 alone is wrong: every value is 2.5 times the expected one");
  // Where nothing else holds anything, nothing tells whether the others would be right.
  Values alone(240, 0);
  std::copy(wave.begin() + 80, wave.begin() + 120, alone.begin() + 80);
  Values doubled = alone;
  for (float& value : doubled) value *= 2;
  EXPECT_EQ(FirstText(Find(doubled, alone, first)),
            "scaled: every value is 2 times the expected one");
}

// Next to nothing was expected of this sample, and a device of 8 bits makes nothing of it.
TEST(FindCauses, IsNotMisledByFaintSamples) {
  Values faint = Wave(400);
  for (float& value : faint) value *= 0.002F;
  const Values zeros(400, 0);
  CauseQuestion question;
  question.actual = zeros;
  question.expected = faint;
  question.shape = {1, 1, 20, 20};
  question.before = zeros;
  question.other = zeros;
  question.otherSample = 3;
  const auto unknown = FindCauses(question);
  EXPECT_EQ(FirstText(unknown), "constant: every element is 0");
  EXPECT_EQ(unknown.size(), 1U);  // what is blank looks like every blank sample
  question.reach = 1;
  const auto causes = FindCauses(question);
  EXPECT_EQ(FirstText(causes),
            "rounded-int8: no difference is more than half a step of 8 bits over the values of all "
            "samples, about 0.00787402: rounded to 8 bits");
  EXPECT_LE(causes.at(0).certainty, 0.7);
  ASSERT_EQ(causes.size(), 2U);
  EXPECT_EQ(causes[1].text, "every element is 0");
  EXPECT_LE(causes[1].certainty, 0.5);
  // Of a tensor that is the whole reach of the output it is a fault.
  question.reach = 0.002;
  EXPECT_EQ(FirstText(FindCauses(question)), "constant: every element is 0");
}

// The only value stood last, and comes first.
TEST(FindCauses, TellsAShiftThatGoesRound) {
  const Values expected{9e-9F, 2e-8F, 5e-11F, 4e-8F, 7e-9F, 5e-7F, 1e-9F, 4e-13F, 2e-5F, 0.999975F};
  const Values actual{0.999975F, 9e-9F, 2e-8F, 5e-11F, 4e-8F, 7e-9F, 5e-7F, 1e-9F, 4e-13F, 2e-5F};
  CauseQuestion question;
  question.actual = actual;
  question.expected = expected;
  question.shape = {1, 10};
  question.reach = 1;
  EXPECT_EQ(FirstText(FindCauses(question)),
            "shifted: everything stands 1 element too late, and what is beyond one end comes in at "
            "the other");
}

// A sure classifier at half of its only value: far more than a step of any 8 bits.
TEST(FindCauses, TakesNoHalvedValueForRounding) {
  const Values expected{9e-9F, 2e-8F,     5e-11F, 4e-8F, 7e-9F,
                        5e-7F, 0.999975F, 4e-13F, 2e-5F, 3e-11F};
  const Values actual{0, 0, 0, 0, 0, 0, 0.5F, 0, 0, 0};
  CauseQuestion question;
  question.actual = actual;
  question.expected = expected;
  question.shape = {1, 10};
  question.reach = 1;
  for (const Cause& cause : FindCauses(question)) EXPECT_NE(cause.id, "rounded-int8") << cause.text;
}

// One class of ten stood where another one was expected: a single value was moved.
TEST(FindCauses, TellsStaleScoresOfFewLevels) {
  const Values before{0, 0, 0, 0.9999F, 0, 0.0001F, 0, 0, 0, 0};
  const Values stale{0, 0, 0, 1, 0, 0, 0, 0, 0, 0};
  const Values expected{0, 0.0003F, 0, 0, 0, 0, 0, 0.9996F, 0.0001F, 0};
  CauseQuestion question;
  question.actual = stale;
  question.expected = expected;
  question.shape = {1, 10};
  question.before = before;
  question.reach = 1;
  EXPECT_THAT(FirstText(FindCauses(question)), HasSubstr("stale"));
}

// A score of 1 and noughts, of 0.9995 and the like.
TEST(FindCauses, TellsRoundedScoresOfTwoLevels) {
  const Values scores{0.0001F, 0.0002F, 0.9995F, 0.0002F};
  const Values rounded{0, 0, 1, 0};
  CauseQuestion question;
  question.actual = rounded;
  question.expected = scores;
  question.shape = {1, 4};
  EXPECT_THAT(FirstText(FindCauses(question)), Not(HasSubstr("8 bits")));
  question.reach = 1;
  EXPECT_THAT(FirstText(FindCauses(question)), HasSubstr("rounded to 8 bits"));
}

// Nearly all is 0 on both sides, and the rest has nothing to do with each other.
TEST(FindCauses, SeesNoOrderInNoughts) {
  Values expected(2000, 0);
  Values actual(2000, 0);
  const Values wave = Wave(200);
  for (size_t i = 0; i < 200; ++i) {
    expected[i * 9 + 4] = 1 + std::abs(wave[i]);
    if (i % 9 == 0) actual[i * 9 + 7] = 2;
  }
  EXPECT_THAT(FirstText(Find(actual, expected)), Not(HasSubstr("order-kept")));
}

// Differences have grown far beyond a step, and every value still is one that the type holds.
TEST(FindCauses, TellsWhatWasComputedIn) {
  const Values wave = Wave(500);
  Values brain = wave;
  Values half = wave;
  for (size_t i = 0; i < 500; ++i) {
    const float off = 0.3F * std::sin(static_cast<float>(i) * 1.7F);
    brain[i] = RoundedToBfloat16(wave[i] + off);
    half[i] = RoundedToFloat16(wave[i] + off);
  }
  EXPECT_THAT(FirstText(Find(brain, wave)), HasSubstr("every value is one of bfloat16"));
  EXPECT_THAT(FirstText(Find(half, wave)), HasSubstr("every value is one of float16"));
  EXPECT_LE(Find(half, wave).at(0).certainty, 0.5);
}

// Some differences are greater than others, and none of the rest is as expected.
TEST(FindCauses, CallsNothingIsolatedAmongWhatIsWrong) {
  const Values wave = Wave(2304);
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
  // Half of what stands before it is wrong, too.
  for (size_t i = 0; i < 80; i += 2) tail[i] = 7 - tail[i];
  EXPECT_THAT(FirstText(Find(tail, wave)), Not(HasSubstr("tail-unwritten")));
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

// A NaN is like no other value and hides none that more than half of the elements have: that the
// last ones are missing is no shift.
TEST(FindCauses, IsNotMisledByZerosAroundANan) {
  Values expected(400, 0);
  for (size_t i = 390; i < 400; ++i) expected[i] = static_cast<float>(i);
  Values actual(400, 0);
  actual[0] = NAN;
  EXPECT_THAT(FirstText(Find(actual, expected)), Not(HasSubstr("shifted")));
}

// Numbers too large for float16 have bits of their own there. Next to what was expected they are as
// good as nothing, and so is what is not they.
TEST(FindCauses, TellsBitsOfFloat16FromNothing) {
  Values expected(100);
  Values actual(100);
  for (size_t i = 0; i < 100; ++i) {
    expected[i] = 1e30F * static_cast<float>(1 + i % 7);
    actual[i] = static_cast<float>(i % 5);
  }
  EXPECT_EQ(FirstText(Find(actual, expected)), "none");
}

// What repeats itself looks right at hundreds of strides, and each of them would take a look at all
// elements: of four millions for minutes.
TEST(FindCauses, HoldsFewStridesAgainstAllElements) {
  constexpr size_t kRow = 50000;
  Values expected(2 * kRow);
  for (size_t i = 0; i < expected.size(); ++i) {
    expected[i] = std::sin(static_cast<float>(i % 100) * 0.06283185F);
  }
  Values actual = expected;
  for (size_t i = 0; i < kRow; ++i) actual[kRow + i] = expected[i + 25];
  for (size_t i = 0; i < kRow; i += 5) actual[i] = std::sin(static_cast<float>(i * i) * 0.3F);
  CauseQuestion question;
  question.actual = actual;
  question.expected = expected;
  question.shape = {2, kRow};
  const Scales scales(question);
  std::vector<Cause> causes;
  FindOrderCauses(question, scales, causes);
  EXPECT_EQ(FirstText(causes), "none");
  EXPECT_GT(scales.WholeWeighed(), 20U);
  EXPECT_LE(scales.WholeWeighed(), 100U);
}

TEST(FindCauses, TellsManyIsolatedElements) {
  Values spots = Wave(20200);
  for (size_t i = 0; i < 20200; i += 101) spots[20199 - i] += 50 + static_cast<float>(i % 7);
  EXPECT_EQ(FirstText(Find(spots, Wave(20200))),
            "isolated: 200 elements are wrong, the first at 100, and all others as expected or "
            "nearly so");
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
