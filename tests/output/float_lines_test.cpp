#include "output/float_lines.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <random>
#include <span>
#include <string>
#include <vector>

#include "output/float_text.h"

namespace vorn::run {
namespace {

constexpr float kLongest = -3.40282347e38F;

// Each test runs in each way, whatever WriteFloatLines would choose.
class FloatLines : public testing::TestWithParam<const char*> {
 protected:
  void SetUp() override {
    if (writer == nullptr) GTEST_SKIP() << "no AVX-512 with BW, DQ, VL and IFMA here";
  }

  [[nodiscard]] FloatLinesWriter Writer() const { return writer; }

  // The room is an allocation of its own, and so are the values: a sanitizer sees every step beyond
  // them. What lies behind the room for the lines must stay as it is without one too.
  [[nodiscard]] std::string Lines(std::span<const float> values) const {
    constexpr size_t kBehind = 64;
    constexpr char kUntouched = '#';
    const size_t room = values.size() * kMaxFloatLine;
    const auto text = std::make_unique<char[]>(room + kBehind);
    std::fill_n(text.get() + room, kBehind, kUntouched);
    const std::vector<float> copy(values.begin(), values.end());
    const std::string lines(text.get(), writer(copy, text.get()));
    EXPECT_EQ(std::count(text.get() + room, text.get() + room + kBehind, kUntouched),
              ptrdiff_t{kBehind})
        << "written behind the room";

    const auto exact = std::make_unique_for_overwrite<char[]>(room);
    EXPECT_TRUE(std::string(exact.get(), writer(copy, exact.get())) == lines);
    return lines;
  }

 private:
  FloatLinesWriter writer =
      std::string(GetParam()) == "plain" ? WriteFloatLinesPlain : Avx512FloatLines();
};

INSTANTIATE_TEST_SUITE_P(Ways, FloatLines, testing::Values("plain", "avx512"),
                         [](const auto& instance) { return std::string(instance.param); });

std::string Reference(std::span<const float> values) {
  std::string lines;
  char line[128];
  for (const float value : values) {
    const int length = std::snprintf(line, sizeof(line), "%.16f\n", static_cast<double>(value));
    lines.append(line, static_cast<size_t>(length));
  }
  return lines;
}

std::vector<float> Floats(std::span<const uint32_t> patterns) {
  std::vector<float> values;
  for (const uint32_t bits : patterns) values.push_back(std::bit_cast<float>(bits));
  return values;
}

TEST_P(FloatLines, WritesEveryExponentAsPrintfDoes) {
  std::vector<uint32_t> patterns;
  for (uint32_t signAndExponent = 0; signAndExponent < 512; ++signAndExponent) {
    for (const uint32_t mantissa : {0U, 1U, 2U, 3U, 0x2AAAAAU, 0x3FFFFFU, 0x400000U, 0x400001U,
                                    0x555555U, 0x7FFFFEU, 0x7FFFFFU}) {
      patterns.push_back(signAndExponent << 23 | mantissa);
    }
  }
  const std::vector<float> values = Floats(patterns);
  EXPECT_EQ(Lines(values), Reference(values));
}

TEST_P(FloatLines, WritesRandomPatternsAsPrintfDoes) {
  constexpr uint32_t kSeed = 20240607;
  SCOPED_TRACE(kSeed);
  std::mt19937 random(kSeed);
  std::vector<uint32_t> patterns(200000);
  for (uint32_t& bits : patterns) bits = static_cast<uint32_t>(random());
  const std::vector<float> values = Floats(patterns);
  EXPECT_TRUE(Lines(values) == Reference(values));
}

TEST_P(FloatLines, WritesMagnitudesOfNetworksAsPrintfDoes) {
  constexpr uint32_t kSeed = 3;
  SCOPED_TRACE(kSeed);
  std::mt19937 random(kSeed);
  std::uniform_real_distribution<float> exponent(-18, 9);
  std::vector<float> values(200000);
  for (float& value : values) {
    value = std::pow(10.0F, exponent(random)) * (random() % 2 == 0 ? 1.0F : -1.0F);
  }
  EXPECT_TRUE(Lines(values) == Reference(values));
}

TEST_P(FloatLines, RoundsEveryHalfwayCaseToEven) {
  // All multiples of 2^-17 in [0, 1) with an odd numerator end on a 5 in the 17th digit.
  std::vector<float> values;
  for (int numerator = 1; numerator < 1 << 17; numerator += 2) {
    values.push_back(static_cast<float>(numerator) * 0x1p-17F);
  }
  EXPECT_TRUE(Lines(values) == Reference(values));
}

TEST_P(FloatLines, WritesTheUnitsAroundEveryPowerOfTen) {
  std::vector<float> values;
  for (float power = 1; power < 1e20F; power *= 10) {
    for (const float start : {power, -power}) {
      float below = start;
      float above = start;
      for (int step = 0; step < 20; ++step) {
        below = std::nextafter(below, 0.0F);
        above = std::nextafter(above, start * 2);
        values.insert(values.end(), {below, start, above});
      }
    }
  }
  EXPECT_EQ(Lines(values), Reference(values));
}

TEST_P(FloatLines, WritesAnyCountOfValues) {
  std::vector<float> values;
  for (int i = 0; i < 200; ++i) {
    EXPECT_EQ(Lines(values), Reference(values)) << i << " values";
    values.push_back(static_cast<float>(i * i - 500) / 7);
  }
}

TEST_P(FloatLines, FitsAnyCountOfLongestLinesIntoTheirRoom) {
  for (size_t count = 0; count < 80; ++count) {
    const std::vector<float> longest(count, kLongest);
    EXPECT_EQ(Lines(longest).size(), count * kMaxFloatLine);
  }
}

TEST_P(FloatLines, WritesLargeValuesAtAnyPlaceAmongOthers) {
  const float others[] = {0.0F, -1.5F, 3e-30F, -99999992.0F, 12345678.0F, 7.25F, -0.0F};
  for (size_t place = 0; place < 24; ++place) {
    for (const float large :
         {kLongest, 1e8F, std::bit_cast<float>(0x7FC00000U), std::bit_cast<float>(0xFF800000U)}) {
      std::vector<float> values(24);
      for (size_t i = 0; i < values.size(); ++i) values[i] = others[i % std::size(others)];
      values[place] = large;
      EXPECT_EQ(Lines(values), Reference(values));
    }
  }
}

}  // namespace
}  // namespace vorn::run
