#include "kit/tensor/element_type.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

namespace vorn::kit {
namespace {

// The value of a float16 by its definition.
double SlowFloat16(unsigned bits) {
  const double sign = (bits & 0x8000U) != 0 ? -1 : 1;
  const int exponent = static_cast<int>(bits >> 10 & 31U);
  const double fraction = bits & 1023U;
  if (exponent == 31) return fraction == 0 ? sign * INFINITY : NAN;
  if (exponent == 0) return sign * fraction * std::pow(2, -24);
  return sign * (1 + fraction / 1024) * std::pow(2, exponent - 15);
}

TEST(Float16Value, IsWhatTheBitsMeanForAllOfThem) {
  for (unsigned bits = 0; bits < 0x10000; ++bits) {
    const float value = Float16Value(static_cast<uint16_t>(bits));
    if (std::isnan(SlowFloat16(bits))) {
      EXPECT_TRUE(std::isnan(value)) << bits;
    } else {
      EXPECT_EQ(static_cast<double>(value), SlowFloat16(bits)) << bits;
      EXPECT_EQ(std::signbit(value), (bits & 0x8000U) != 0) << bits;
    }
  }
}

TEST(RoundedToFloat16, IsTheNearestAndTiesToEven) {
  for (unsigned bits = 0; bits < 0x7BFF; ++bits) {
    const double low = SlowFloat16(bits);
    const double high = SlowFloat16(bits + 1);
    const auto middle = static_cast<float>((low + high) / 2);
    const double even = bits % 2 == 0 ? low : high;
    EXPECT_EQ(static_cast<double>(RoundedToFloat16(static_cast<float>(low))), low);
    EXPECT_EQ(static_cast<double>(RoundedToFloat16(middle)), even) << bits;
    EXPECT_EQ(static_cast<double>(RoundedToFloat16(std::nextafter(middle, 0.0F))), low) << bits;
    EXPECT_EQ(static_cast<double>(RoundedToFloat16(-std::nextafter(middle, 1e6F))), -high) << bits;
  }
  EXPECT_EQ(RoundedToFloat16(65519.996F), 65504.0F);
  EXPECT_EQ(RoundedToFloat16(65520.0F), INFINITY);
  EXPECT_TRUE(std::isnan(RoundedToFloat16(NAN)));
}

TEST(RoundedToBfloat16, IsTheNearestAndTiesToEven) {
  EXPECT_EQ(RoundedToBfloat16(1.0F), 1.0F);
  EXPECT_EQ(RoundedToBfloat16(1.00390625F), 1.0F);       // 1 + 2^-8, a tie
  EXPECT_EQ(RoundedToBfloat16(1.01171875F), 1.015625F);  // 1 + 3 * 2^-8, a tie
  EXPECT_EQ(RoundedToBfloat16(1.0039064F), 1.0078125F);  // just above the tie
  EXPECT_EQ(RoundedToBfloat16(-INFINITY), -INFINITY);
  EXPECT_EQ(RoundedToBfloat16(std::numeric_limits<float>::max()), INFINITY);
}

template <typename Element>
std::vector<float> Converted(ElementType type, std::vector<Element> elements, bool isSwapped) {
  std::vector<std::byte> bytes(elements.size() * sizeof(Element) + 1);
  // One byte off, so that nothing is aligned.
  for (size_t i = 0; i < elements.size(); ++i) {
    std::byte* place = bytes.data() + 1 + i * sizeof(Element);
    std::memcpy(place, &elements[i], sizeof(Element));
    if (isSwapped) std::reverse(place, place + sizeof(Element));
  }
  std::vector<float> values(elements.size());
  ToFloats(type, isSwapped, bytes.data() + 1, values);
  return values;
}

// The slow way: of all values of 16 bits the nearest one, of two the one with an even last bit.
uint16_t NearestBits(double value, float (*valueOf)(uint16_t)) {
  uint16_t best = 0;
  for (uint32_t bits = 0; bits < 0x8000; ++bits) {
    const double candidate = valueOf(static_cast<uint16_t>(bits));
    if (!std::isfinite(candidate)) break;
    const double distance = std::abs(candidate - value);
    const double bestDistance = std::abs(static_cast<double>(valueOf(best)) - value);
    if (distance < bestDistance || (distance == bestDistance && bits % 2 == 0)) {
      best = static_cast<uint16_t>(bits);
    }
  }
  return best;
}

TEST(Float16Bits, AreThoseOfTheNearestValue) {
  std::mt19937_64 random(7);
  std::uniform_real_distribution<double> exponents(-28, 15.9);
  for (int i = 0; i < 60; ++i) {
    const double value = std::exp2(exponents(random));
    EXPECT_EQ(Float16Bits(value), NearestBits(value, Float16Value)) << value;
    EXPECT_EQ(Float16Bits(-value), NearestBits(value, Float16Value) | 0x8000) << value;
  }
  EXPECT_EQ(Float16Bits(65519), 0x7BFF);
  EXPECT_EQ(Float16Bits(65520), 0x7C00);
  EXPECT_EQ(Float16Bits(-1e300), 0xFC00);
  EXPECT_EQ(Float16Bits(INFINITY), 0x7C00);
  EXPECT_EQ(Float16Bits(NAN), 0x7E00);
  // By way of a float this would be a tie, and go to the even one below.
  EXPECT_EQ(Float16Bits(1 + 0x1p-11 + 0x1p-40), 0x3C01);
}

TEST(Float16Bits, BringAllOfThemBack) {
  for (uint32_t bits = 0; bits < 0x10000; ++bits) {
    const float value = Float16Value(static_cast<uint16_t>(bits));
    if (std::isnan(value)) continue;
    ASSERT_EQ(Float16Bits(value), bits) << value;
  }
}

TEST(Bfloat16Bits, BringAllOfThemBackAndRoundToEven) {
  for (uint32_t bits = 0; bits < 0x10000; ++bits) {
    const float value = Bfloat16Value(static_cast<uint16_t>(bits));
    if (std::isnan(value)) continue;
    ASSERT_EQ(Bfloat16Bits(value), bits) << value;
  }
  EXPECT_EQ(Bfloat16Bits(1 + 0x1p-8), 0x3F80);
  EXPECT_EQ(Bfloat16Bits(1 + 0x3p-8), 0x3F82);
  EXPECT_EQ(Bfloat16Bits(1 + 0x1p-8 + 0x1p-40), 0x3F81);
  EXPECT_EQ(Bfloat16Bits(3.5e38), 0x7F80);
  EXPECT_EQ(Bfloat16Bits(NAN), 0x7FC0);
}

TEST(ElementOfCode, FollowsTheHeader) {
  EXPECT_EQ(ElementOfCode(0), ElementType::kFloat32);
  EXPECT_EQ(ElementOfCode(3), ElementType::kInt32);
  EXPECT_EQ(ElementOfCode(11), ElementType::kBool);
  EXPECT_EQ(ElementOfCode(12), std::nullopt);
}

TEST(ToFloats, ReadsEveryTypeInBothByteOrders) {
  using Values = std::vector<float>;
  for (const bool isSwapped : {false, true}) {
    EXPECT_EQ(Converted<float>(ElementType::kFloat32, {1.5F, -2.0F}, isSwapped),
              (Values{1.5F, -2.0F}));
    EXPECT_EQ(Converted<uint16_t>(ElementType::kFloat16, {0x3C00, 0xC000}, isSwapped),
              (Values{1, -2}));
    EXPECT_EQ(Converted<uint16_t>(ElementType::kBfloat16, {0x3F80, 0xC000}, isSwapped),
              (Values{1, -2}));
    EXPECT_EQ(Converted<double>(ElementType::kFloat64, {0.5, -1e300, 1e300}, isSwapped),
              (Values{0.5F, -INFINITY, INFINITY}));
    EXPECT_EQ(Converted<int16_t>(ElementType::kInt16, {-300, 7}, isSwapped), (Values{-300, 7}));
    EXPECT_EQ(Converted<uint16_t>(ElementType::kUint16, {65535, 7}, isSwapped), (Values{65535, 7}));
    EXPECT_EQ(Converted<int32_t>(ElementType::kInt32, {-70000, 16777217}, isSwapped),
              (Values{-70000, 16777216}));
    EXPECT_EQ(Converted<uint32_t>(ElementType::kUint32, {4000000000U}, isSwapped),
              (Values{4000000000.0F}));
    EXPECT_EQ(Converted<int64_t>(ElementType::kInt64, {-5000000000}, isSwapped),
              (Values{-5000000000.0F}));
    EXPECT_EQ(Converted<uint64_t>(ElementType::kUint64, {1ULL << 63}, isSwapped),
              (Values{0x1p63F}));
  }
  EXPECT_EQ(Converted<int8_t>(ElementType::kInt8, {-128, 127}, false), (Values{-128, 127}));
  EXPECT_EQ(Converted<uint8_t>(ElementType::kUint8, {255, 0}, false), (Values{255, 0}));
  EXPECT_EQ(Converted<uint8_t>(ElementType::kBool, {2, 0, 1}, false), (Values{1, 0, 1}));
}

TEST(ToFloats, RoundsDoublesBesideTheEndOfTheRange) {
  const double most = static_cast<double>(std::numeric_limits<float>::max());
  const auto values = Converted<double>(
      ElementType::kFloat64, {0x1.fffffefp127, 0x1.ffffffp127, -0x1.fffffefp127, NAN}, false);
  EXPECT_EQ(static_cast<double>(values[0]), most);
  EXPECT_EQ(values[1], INFINITY);
  EXPECT_EQ(static_cast<double>(values[2]), -most);
  EXPECT_TRUE(std::isnan(values[3]));
}

TEST(ToFloats, KeepsTheBitsOfAnyFloat) {
  for (const bool isSwapped : {false, true}) {
    const auto values = Converted<uint32_t>(ElementType::kFloat32, {0x7FA00001U}, isSwapped);
    EXPECT_EQ(std::bit_cast<uint32_t>(values[0]), 0x7FA00001U);
  }
}

TEST(ElementNamed, FindsEveryNameAndNoOther) {
  for (const ElementType type : {ElementType::kFloat32, ElementType::kBool, ElementType::kInt64}) {
    EXPECT_EQ(ElementNamed(ElementName(type)), type);
  }
  EXPECT_EQ(ElementNamed("float"), std::nullopt);
}

}  // namespace
}  // namespace vorn::kit
