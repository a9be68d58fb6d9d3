#include "host/config/constant.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

#include "host/tensor/element_type.h"
#include "runtime/host/refusal.h"

namespace vorn::host {
namespace {

using testing::HasSubstr;

Number Whole(int64_t value) {
  return {.real = static_cast<double>(value), .whole = value, .isWhole = true};
}
Number Real(double value) { return {.real = value, .whole = 0, .isWhole = false}; }

template <typename Value>
std::vector<Value> Encode(vorn_data_type type, const Shape& shape,
                          const std::vector<Number>& numbers) {
  const std::vector<std::byte> bytes = EncodeConstant("c", type, shape, numbers);
  std::vector<Value> values(bytes.size() / sizeof(Value));
  if (!bytes.empty()) std::memcpy(values.data(), bytes.data(), bytes.size());
  return values;
}

std::string Refusal(vorn_data_type type, const Shape& shape, const std::vector<Number>& numbers) {
  return ReasonOf(VORN_ERROR_CONFIG, [&] { EncodeConstant("c", type, shape, numbers); });
}

TEST(EncodeConstant, TakesANumberForEachElementOrOneForAll) {
  EXPECT_EQ(Encode<int64_t>(VORN_INT64, {}, {Whole(16000)}), std::vector<int64_t>{16000});
  EXPECT_EQ(Encode<float>(VORN_FLOAT32, {2, 2}, {Real(0.5)}), std::vector<float>(4, 0.5F));
  EXPECT_EQ(Encode<float>(VORN_FLOAT32, {3}, {Whole(1), Real(2.5), Whole(-3)}),
            (std::vector<float>{1, 2.5F, -3}));
  EXPECT_TRUE(Encode<float>(VORN_FLOAT32, {0}, {}).empty());
  EXPECT_THAT(Refusal(VORN_FLOAT32, {3}, {Whole(1), Whole(2)}), HasSubstr("takes 3"));
  EXPECT_THAT(Refusal(VORN_FLOAT32, {3}, {}), HasSubstr("has 0 numbers"));
}

TEST(EncodeConstant, TakesEveryType) {
  EXPECT_EQ(Encode<double>(VORN_FLOAT64, {1}, {Real(0.1)}), std::vector<double>{0.1});
  EXPECT_EQ(Encode<uint16_t>(VORN_FLOAT16, {1}, {Real(-1.5)}), std::vector<uint16_t>{0xbe00});
  EXPECT_EQ(Encode<uint16_t>(kBfloat16, {1}, {Whole(1)}), std::vector<uint16_t>{0x3f80});
  EXPECT_EQ(Encode<int8_t>(VORN_INT8, {1}, {Whole(-128)}), std::vector<int8_t>{-128});
  EXPECT_EQ(Encode<uint8_t>(VORN_UINT8, {1}, {Whole(255)}), std::vector<uint8_t>{255});
  EXPECT_EQ(Encode<int16_t>(VORN_INT16, {1}, {Whole(-300)}), std::vector<int16_t>{-300});
  EXPECT_EQ(Encode<uint16_t>(VORN_UINT16, {1}, {Whole(65535)}), std::vector<uint16_t>{65535});
  EXPECT_EQ(Encode<int32_t>(VORN_INT32, {1}, {Whole(-70000)}), std::vector<int32_t>{-70000});
  EXPECT_EQ(Encode<uint32_t>(VORN_UINT32, {1}, {Whole(70000)}), std::vector<uint32_t>{70000});
  EXPECT_EQ(Encode<uint64_t>(VORN_UINT64, {1}, {Whole(7)}), std::vector<uint64_t>{7});
  EXPECT_EQ(Encode<uint8_t>(VORN_BOOL, {1}, {Whole(1)}), std::vector<uint8_t>{1});
  EXPECT_EQ(Encode<uint8_t>(VORN_BOOL, {1}, {Whole(0)}), std::vector<uint8_t>{0});
}

TEST(EncodeConstant, RefusesWhatTheTypeDoesNotHold) {
  for (const Number& number : {Whole(-129), Whole(128), Real(1.5)}) {
    EXPECT_THAT(Refusal(VORN_INT8, {1}, {number}), HasSubstr("does not hold"));
  }
  EXPECT_THAT(Refusal(VORN_UINT64, {1}, {Whole(-1)}), HasSubstr("does not hold"));
  for (const Number& number : {Whole(-1), Whole(2), Real(1)}) {
    EXPECT_THAT(Refusal(VORN_BOOL, {1}, {number}), HasSubstr("does not hold"));
  }
}

TEST(EncodeConstant, SaysWhatWasWrongAndWhatToChange) {
  EXPECT_EQ(Refusal(VORN_FLOAT32, {3}, {Whole(1), Whole(2)}),
            "constant 'c' has 2 numbers; its shape [3] takes 3, or one for all");
  EXPECT_EQ(Refusal(VORN_INT8, {1}, {Whole(128)}),
            "constant 'c' has the number 128, which its element type does not hold");
  EXPECT_EQ(Refusal(VORN_FLOAT32, {1 << 20, 1 << 20}, {Whole(0)}),
            "constant 'c' has the shape [1048576, 1048576]; 4294967296 bytes are the most");
}

TEST(EncodeConstant, RefusesWhatNoMemoryHolds) {
  EXPECT_THAT(Refusal(VORN_FLOAT32, {1 << 20, 1 << 20}, {Whole(0)}), HasSubstr("the most"));
  EXPECT_THAT(Refusal(VORN_INT8, {INT64_MAX, INT64_MAX}, {Whole(0)}), HasSubstr("the most"));
}

}  // namespace
}  // namespace vorn::host
