// Against conversions by value (tensor/small_float.h), and grids spelt out in double.
#include "host/graph/rounding.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <vector>

#include "host/tensor/small_float.h"

namespace vorn::host {
namespace {

using testing::ElementsAre;

constexpr float kInfinity = std::numeric_limits<float>::infinity();

/// Every number of 16 bits with its neighbours, the middles between two, and numbers of any kind.
std::vector<float> Samples() {
  std::vector<float> samples;
  for (uint32_t bits = 0; bits <= 0xffff; ++bits) {
    for (const float exact :
         {FromFloat16(static_cast<uint16_t>(bits)), FromBfloat16(static_cast<uint16_t>(bits))}) {
      samples.push_back(exact);
      samples.push_back(std::nextafter(exact, kInfinity));
      samples.push_back(std::nextafter(exact, -kInfinity));
    }
    const float here = FromFloat16(static_cast<uint16_t>(bits & 0x7bff));
    const float next = FromFloat16(static_cast<uint16_t>((bits & 0x7bff) + 1));
    const float middle = here / 2 + next / 2;
    if (!std::isfinite(middle)) continue;
    for (const float value :
         {middle, std::nextafter(middle, 0.0F), std::nextafter(middle, kInfinity)}) {
      samples.push_back(value);
      samples.push_back(-value);
    }
    samples.push_back(std::bit_cast<float>(bits << 16 | 0x8000U));
  }
  std::mt19937 random(20261122);
  for (int i = 0; i < 100000; ++i)
    samples.push_back(std::bit_cast<float>(static_cast<uint32_t>(random())));
  return samples;
}

template <typename Round, typename Reference>
void ExpectLike(Round round, Reference reference) {
  const std::vector<float> from = Samples();
  std::vector<float> to(from.size());
  round(from.data(), to.data(), from.size());
  size_t differences = 0;
  for (size_t i = 0; i < from.size() && differences < 5; ++i) {
    const float wanted = reference(from[i]);
    const bool isSame = std::isnan(wanted)
                            ? std::isnan(to[i])
                            : std::bit_cast<uint32_t>(wanted) == std::bit_cast<uint32_t>(to[i]);
    if (isSame) continue;
    ++differences;
    ADD_FAILURE() << std::hexfloat << from[i] << " becomes " << to[i] << " and not " << wanted;
  }
}

TEST(RoundToFloat16, IsThereAndBack) {
  ExpectLike(RoundToFloat16, [](float value) { return FromFloat16(ToFloat16(value)); });
}

TEST(RoundToBfloat16, IsThereAndBack) {
  ExpectLike(RoundToBfloat16, [](float value) { return FromBfloat16(ToBfloat16(value)); });
}

TEST(RoundToFloat16, EndsAtInfinity) {
  std::vector<float> values = {65519.9F, 65520.0F, -1e9F, 0x1p-25F, 0x1.8p-25F};
  RoundToFloat16(values.data(), values.data(), values.size());
  EXPECT_THAT(values, ElementsAre(65504.0F, kInfinity, -kInfinity, 0.0F, 0x1p-24F));
}

/// A whole number of the type, moved by its zero point, and back.
float Quantised(float value, double scale, int zero, int least, int most) {
  const double step = std::nearbyint(static_cast<double>(value) / scale) + zero;
  const double inside = std::fmin(std::fmax(step, least), most);
  return static_cast<float>((inside - zero) * scale);
}

TEST(RoundToGrid, IsAnUnsignedNumberWithItsZeroPoint) {
  for (const Range range : {Range{-3.96875, 4}, Range{0, 7.96875}, Range{1, 7.96875},
                            Range{-7.96875, 0}, Range{-7.96875, -2}, Range{-0.5, 7.46875}}) {
    const double least = std::fmin(range.min, 0);
    const double scale = (std::fmax(range.max, 0) - least) / 255;
    ASSERT_EQ(scale, 0x1p-5);
    const int zero = static_cast<int>(std::nearbyint(-least / scale));
    std::vector<float> values;
    for (int i = -1200; i <= 1200; ++i) values.push_back(static_cast<float>(i) * 0x1p-7F);
    std::vector<float> wanted;
    for (const float value : values) wanted.push_back(Quantised(value, scale, zero, 0, 255));
    RoundToGrid(GridFor(range), values.data(), values.data(), values.size());
    EXPECT_EQ(values, wanted) << range.min << ' ' << range.max;
  }
}

TEST(RoundToGrid, SaturatesAndKeepsWhatIsNoNumber) {
  std::vector<float> values = {kInfinity, -kInfinity, 1e30F, NAN};
  RoundToGrid(GridFor({-3.96875, 4}), values.data(), values.data(), values.size());
  EXPECT_EQ(values[0], 4.0F);
  EXPECT_EQ(values[1], -3.96875F);
  EXPECT_EQ(values[2], 4.0F);
  EXPECT_TRUE(std::isnan(values[3]));
}

TEST(GridFor, HasZeroInside) {
  for (const Range range : {Range{-1e-3, 7}, Range{3, 9}, Range{-9, -3}, Range{-1, 2}}) {
    std::vector<float> zero = {0.0F, -0.0F};
    const Grid grid = GridFor(range);
    RoundToGrid(grid, zero.data(), zero.data(), zero.size());
    EXPECT_THAT(zero, ElementsAre(0.0F, 0.0F));
    EXPECT_EQ(grid.high - grid.low, 255);
  }
}

TEST(GridFor, TakesNothingButZeroForZero) {
  for (const Range range : {Range{0, 0}, Range{0, 1e-60}}) {
    std::vector<float> values = {1.0F, -1.0F, 0.0F};
    RoundToGrid(GridFor(range), values.data(), values.data(), values.size());
    EXPECT_THAT(values, ElementsAre(0.0F, 0.0F, 0.0F));
  }
}

TEST(SymmetricGridFor, ReachesToTheLargestFiniteValue) {
  std::vector<float> values = {-127, 63.4F, 1, NAN, kInfinity};
  const Grid grid = SymmetricGridFor(values);
  EXPECT_EQ(grid, (Grid{.scale = 1, .low = -127, .high = 127}));
  RoundToGrid(grid, values.data(), values.data(), 3);
  EXPECT_THAT(std::vector<float>(values.begin(), values.begin() + 3), ElementsAre(-127, 63, 1));
  EXPECT_EQ(SymmetricGridFor(std::vector<float>{0, 0}), Grid());
  EXPECT_EQ(SymmetricGridFor({}), Grid());
}

}  // namespace
}  // namespace vorn::host
