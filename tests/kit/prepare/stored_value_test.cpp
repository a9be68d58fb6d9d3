#include "kit/prepare/stored_value.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>

#include "kit/common/fault.h"

namespace vorn::kit {
namespace {

template <typename Value>
Array ArrayOf(ElementType type, const std::vector<Value>& values, Shape shape = {}) {
  Array array{type, shape.empty() ? Shape{values.size()} : std::move(shape), {}};
  array.bytes.resize(values.size() * sizeof(Value));
  std::memcpy(array.bytes.data(), values.data(), array.bytes.size());
  return array;
}

template <typename Value>
std::vector<Value> ValuesOf(const std::vector<std::byte>& bytes) {
  std::vector<Value> values(bytes.size() / sizeof(Value));
  std::memcpy(values.data(), bytes.data(), bytes.size());
  return values;
}

std::string WhyNot(const Array& array, ElementType type) {
  try {
    (void)StoreArray(array, type, std::nullopt, "the array");
  } catch (const Fault& fault) {
    return fault.what();
  }
  return "it is stored";
}

TEST(StoreArray, KeepsWholeNumbersOfAnyWidth) {
  const std::vector<int64_t> wide{0, 1, INT32_MAX};
  EXPECT_EQ(ValuesOf<int32_t>(StoreArray(ArrayOf(ElementType::kInt64, wide), ElementType::kInt32,
                                         std::nullopt, "x")),
            (std::vector<int32_t>{0, 1, INT32_MAX}));
  // 2^24 + 1, which no float32 holds.
  EXPECT_EQ(ValuesOf<uint32_t>(StoreArray(ArrayOf<double>(ElementType::kFloat64, {16777217}),
                                          ElementType::kUint32, std::nullopt, "x")),
            (std::vector<uint32_t>{16777217}));
  EXPECT_EQ(ValuesOf<uint64_t>(StoreArray(ArrayOf<uint64_t>(ElementType::kUint64, {UINT64_MAX}),
                                          ElementType::kUint64, std::nullopt, "x")),
            (std::vector<uint64_t>{UINT64_MAX}));
}

TEST(StoreArray, RefusesWhatTheTypeDoesNotHoldAndNamesThePlace) {
  EXPECT_EQ(WhyNot(ArrayOf<int64_t>(ElementType::kInt64, {1, 2, 3, 256, 5, 6}, {2, 3}),
                   ElementType::kUint8),
            "the array holds 256 at [1, 0], which is no value of uint8; give values that the input "
            "takes, or a recipe with a quantisation");
  EXPECT_NE(WhyNot(ArrayOf<float>(ElementType::kFloat32, {0, 0.5F}), ElementType::kInt8),
            "it is stored");
  EXPECT_NE(WhyNot(ArrayOf<float>(ElementType::kFloat32, {NAN}), ElementType::kInt8),
            "it is stored");
  EXPECT_NE(WhyNot(ArrayOf<double>(ElementType::kFloat64, {0x1p63}), ElementType::kInt64),
            "it is stored");
  EXPECT_EQ(WhyNot(ArrayOf<double>(ElementType::kFloat64, {-0x1p63}), ElementType::kInt64),
            "it is stored");
  EXPECT_NE(WhyNot(ArrayOf<int8_t>(ElementType::kInt8, {-1}), ElementType::kUint64),
            "it is stored");
  EXPECT_NE(WhyNot(ArrayOf<int8_t>(ElementType::kInt8, {2}), ElementType::kBool), "it is stored");
}

TEST(StoreArray, TakesTheNearestFloat) {
  EXPECT_EQ(ValuesOf<float>(StoreArray(ArrayOf<double>(ElementType::kFloat64, {0.1, 1e300, -0.0}),
                                       ElementType::kFloat32, std::nullopt, "x")),
            (std::vector<float>{0.1F, INFINITY, -0.0F}));
  EXPECT_EQ(ValuesOf<uint16_t>(StoreArray(ArrayOf<float>(ElementType::kFloat32, {1, -2, 65520}),
                                          ElementType::kFloat16, std::nullopt, "x")),
            (std::vector<uint16_t>{0x3C00, 0xC000, 0x7C00}));
}

TEST(StoreArray, MakesTruthOfZeroAndOne) {
  EXPECT_EQ(ValuesOf<uint8_t>(StoreArray(ArrayOf<float>(ElementType::kFloat32, {0, 1}),
                                         ElementType::kBool, std::nullopt, "x")),
            (std::vector<uint8_t>{0, 1}));
  // Any other byte of a bool is one.
  EXPECT_EQ(ValuesOf<uint8_t>(StoreArray(ArrayOf<uint8_t>(ElementType::kBool, {0, 7}),
                                         ElementType::kBool, std::nullopt, "x")),
            (std::vector<uint8_t>{0, 1}));
}

TEST(StoreValue, QuantisesAsOnnxDoes) {
  const StoredScale scale{.scale = 0.5F, .zeroPoint = 3};
  const auto stored = [&](float value) {
    int8_t to = 0;
    EXPECT_TRUE(StoreValue(value, ElementType::kInt8, scale, reinterpret_cast<std::byte*>(&to)));
    return static_cast<int>(to);
  };
  EXPECT_EQ(stored(0), 3);
  EXPECT_EQ(stored(1), 5);
  EXPECT_EQ(stored(0.25F), 3);  // half a step: to the even one
  EXPECT_EQ(stored(0.75F), 5);
  EXPECT_EQ(stored(-0.75F), 1);
  EXPECT_EQ(stored(1000), 127);
  EXPECT_EQ(stored(-INFINITY), -128);
  int8_t to = 77;
  EXPECT_FALSE(StoreValue(NAN, ElementType::kInt8, scale, reinterpret_cast<std::byte*>(&to)));
  EXPECT_EQ(to, 77);
}

TEST(FloatsOf, AreTheValues) {
  EXPECT_EQ(FloatsOf(ArrayOf<int16_t>(ElementType::kInt16, {-3, 4})), (std::vector<float>{-3, 4}));
}

}  // namespace
}  // namespace vorn::kit
