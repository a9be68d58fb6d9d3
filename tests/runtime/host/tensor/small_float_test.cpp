#include "host/tensor/small_float.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace vorn::host {
namespace {

constexpr float kInfinity = std::numeric_limits<float>::infinity();

/// The value by the definition of the format.
double Float16ByDefinition(uint16_t bits) {
  const int exponent = bits >> 10 & 0x1f;
  const double fraction = (bits & 0x3ff) / 1024.0;
  const double magnitude =
      exponent == 0 ? fraction * std::pow(2, -14) : (1 + fraction) * std::pow(2, exponent - 15);
  return bits >> 15 == 0 ? magnitude : -magnitude;
}

TEST(SmallFloat, Float16IsWhatItsDefinitionSays) {
  for (uint32_t bits = 0; bits < 0x10000; ++bits) {
    if ((bits >> 10 & 0x1f) == 0x1f) continue;  // infinities and NaNs, below
    const float value = FromFloat16(static_cast<uint16_t>(bits));
    ASSERT_EQ(static_cast<double>(value), Float16ByDefinition(static_cast<uint16_t>(bits)));
    ASSERT_EQ(std::signbit(value), bits >> 15 == 1);
    ASSERT_EQ(ToFloat16(value), bits);
  }
  EXPECT_EQ(FromFloat16(0x7c00), kInfinity);
  EXPECT_EQ(FromFloat16(0xfc00), -kInfinity);
  EXPECT_TRUE(std::isnan(FromFloat16(0x7e00)));
}

TEST(SmallFloat, Float16RoundsToTheNearestAndTiesToEven) {
  EXPECT_EQ(ToFloat16(1 + 0x1p-11F), 0x3c00);             // half way, down to even
  EXPECT_EQ(ToFloat16(1 + 3 * 0x1p-11F), 0x3c02);         // half way, up to even
  EXPECT_EQ(ToFloat16(1 + 0x1p-11F + 0x1p-20F), 0x3c01);  // beyond half way
  EXPECT_EQ(ToFloat16(2 - 0x1p-12F), 0x4000);             // carries into the exponent
  EXPECT_EQ(ToFloat16(0x1p-14F - 0x1p-26F), 0x0400);      // carries into the normal numbers
  EXPECT_EQ(ToFloat16(0x1p-26F), 0x0000);
  EXPECT_EQ(ToFloat16(65519.0F), 0x7bff);
  EXPECT_EQ(ToFloat16(65520.0F), 0x7c00);
  EXPECT_EQ(ToFloat16(-kInfinity), 0xfc00);
  EXPECT_EQ(ToFloat16(std::nanf("")), 0x7e00);
  EXPECT_EQ(ToFloat16(-std::nanf("")), 0xfe00);
}

TEST(SmallFloat, Bfloat16IsTheUpperHalfOfAFloat) {
  EXPECT_EQ(FromBfloat16(0x3f80), 1.0F);
  EXPECT_EQ(FromBfloat16(0xc040), -3.0F);
  EXPECT_EQ(ToBfloat16(1.0F), 0x3f80);
  EXPECT_EQ(ToBfloat16(1 + 0x1p-8F), 0x3f80);
  EXPECT_EQ(ToBfloat16(1 + 3 * 0x1p-8F), 0x3f82);
  EXPECT_EQ(ToBfloat16(std::numeric_limits<float>::max()), 0x7f80);
  EXPECT_EQ(ToBfloat16(-kInfinity), 0xff80);
  EXPECT_EQ(ToBfloat16(std::nanf("")), 0x7fc0);
  EXPECT_EQ(ToBfloat16(-std::nanf("")), 0xffc0);
}

}  // namespace
}  // namespace vorn::host
