#include "host/tensor/presentation.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

#include "host/tensor/element_type.h"

namespace vorn::host {
namespace {

/// Two rows of two, with padding, as float32.
template <typename Value>
std::vector<float> Presented(vorn_data_type type, const std::vector<Value>& values) {
  std::vector<std::byte> from(2 * (2 * sizeof(Value) + 3));
  for (size_t i = 0; i < 4; ++i) {
    std::memcpy(&from[i / 2 * (2 * sizeof(Value) + 3) + i % 2 * sizeof(Value)], &values[i],
                sizeof(Value));
  }
  std::vector<float> to(6, -7);
  MoveRows({.from = from.data(),
            .fromStride = 2 * sizeof(Value) + 3,
            .to = reinterpret_cast<std::byte*>(to.data()),
            .toStride = 12,
            .rows = 2,
            .columns = 2,
            .fromType = type,
            .toType = VORN_FLOAT32});
  EXPECT_EQ(to[2], -7);
  EXPECT_EQ(to[5], -7);
  return {to[0], to[1], to[3], to[4]};
}

TEST(ShownOutputType, IsOneThatADumpShows) {
  const std::pair<vorn_data_type, vorn_data_type> types[] = {
      {VORN_FLOAT32, VORN_FLOAT32}, {VORN_FLOAT16, VORN_FLOAT32}, {VORN_INT8, VORN_INT8},
      {VORN_INT32, VORN_FLOAT32},   {VORN_UINT8, VORN_UINT8},     {VORN_UINT32, VORN_FLOAT32},
      {VORN_INT16, VORN_INT16},     {VORN_UINT16, VORN_UINT16},   {VORN_INT64, VORN_FLOAT32},
      {VORN_UINT64, VORN_FLOAT32},  {VORN_FLOAT64, VORN_FLOAT32}, {VORN_BOOL, VORN_UINT8},
      {kBfloat16, VORN_FLOAT32}};
  for (const auto& [native, shown] : types) {
    EXPECT_EQ(ShownOutputType(native, OutputTypes::kPresented), shown) << native;
  }
}

TEST(ShownOutputType, IsTheModelsOwnWhereThatIsAskedFor) {
  for (vorn_data_type type = VORN_FLOAT32; type <= VORN_BOOL; ++type) {
    EXPECT_EQ(ShownOutputType(type, OutputTypes::kNative), type);
    EXPECT_EQ(ShownInputType(type), type);
  }
  EXPECT_EQ(ShownOutputType(kBfloat16, OutputTypes::kNative), vorn_data_type{VORN_UINT16});
  EXPECT_EQ(ShownInputType(kBfloat16), vorn_data_type{VORN_UINT16});
}

TEST(MoveRows, ConvertsToFloat) {
  EXPECT_EQ(Presented<int32_t>(VORN_INT32, {-1, 2, INT32_MAX, INT32_MIN}),
            (std::vector<float>{-1, 2, 0x1p31F, -0x1p31F}));
  EXPECT_EQ(Presented<uint32_t>(VORN_UINT32, {0, 1, UINT32_MAX, 1u << 31}),
            (std::vector<float>{0, 1, 0x1p32F, 0x1p31F}));
  EXPECT_EQ(Presented<uint64_t>(VORN_UINT64, {0, 1, UINT64_MAX, 5}),
            (std::vector<float>{0, 1, 0x1p64F, 5}));
  EXPECT_EQ(Presented<uint16_t>(VORN_FLOAT16, {0x3c00, 0xc000, 0x0001, 0x7c00}),
            (std::vector<float>{1, -2, 0x1p-24F, std::numeric_limits<float>::infinity()}));
  EXPECT_EQ(Presented<uint16_t>(kBfloat16, {0x3f80, 0xc000, 0, 0x7f80}),
            (std::vector<float>{1, -2, 0, std::numeric_limits<float>::infinity()}));
  EXPECT_EQ(Presented<double>(VORN_FLOAT64, {0.1, -1e300, 1e-300, 4}),
            (std::vector<float>{0.1F, -std::numeric_limits<float>::infinity(), 0, 4}));
}

TEST(MoveRows, RoundsWholeNumbersBeyond24BitsToTheNearest) {
  const int64_t exact = int64_t{1} << 24;
  EXPECT_EQ(Presented<int64_t>(VORN_INT64, {exact, exact + 1, exact + 3, -exact}),
            (std::vector<float>{0x1p24F, 0x1p24F, 0x1p24F + 4, -0x1p24F}));
}

TEST(MoveRows, MakesTruthValuesOfAnyByte) {
  const std::vector<uint8_t> from = {0, 1, 2, 255};
  std::vector<uint8_t> to(4, 9);
  MoveRows({.from = reinterpret_cast<const std::byte*>(from.data()),
            .fromStride = 2,
            .to = reinterpret_cast<std::byte*>(to.data()),
            .toStride = 2,
            .rows = 2,
            .columns = 2,
            .fromType = VORN_BOOL,
            .toType = VORN_BOOL});
  EXPECT_EQ(to, (std::vector<uint8_t>{0, 1, 1, 1}));
  EXPECT_FALSE(IsSameBytes(VORN_BOOL, VORN_BOOL));
  EXPECT_TRUE(IsSameBytes(VORN_BOOL, VORN_UINT8));
}

TEST(MoveRows, LeavesBytesAsTheyAreWhereTheTypesAgree) {
  const std::vector<int16_t> from = {1, -2, 3, -4};
  std::vector<int16_t> to(6, 9);
  MoveRows({.from = reinterpret_cast<const std::byte*>(from.data()),
            .fromStride = 4,
            .to = reinterpret_cast<std::byte*>(to.data()),
            .toStride = 6,
            .rows = 2,
            .columns = 2,
            .fromType = VORN_INT16,
            .toType = VORN_INT16});
  EXPECT_EQ(to, (std::vector<int16_t>{1, -2, 9, 3, -4, 9}));
}

}  // namespace
}  // namespace vorn::host
