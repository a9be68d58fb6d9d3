#include "output/destride.h"

#include <gtest/gtest.h>

#include <bit>
#include <cstring>
#include <new>
#include <random>

namespace vorn::run {
namespace {

template <typename Element>
std::vector<float> Destrided(const std::vector<Element>& block, const RowShape& shape) {
  ValueBuffer buffer;
  const auto values = RemoveStride<Element>(std::as_bytes(std::span(block)), shape, buffer);
  return {values.begin(), values.end()};
}

TEST(RemoveStride, DropsThePaddingOfEachRow) {
  const std::vector<float> block{1, 2, 3, 99, 4, 5, 6, 99};
  EXPECT_EQ(Destrided(block, {.rows = 2, .rowElements = 4, .lastDim = 3}),
            (std::vector<float>{1, 2, 3, 4, 5, 6}));
}

TEST(RemoveStride, UsesTheMemoryOfABufferAgain) {
  const std::vector<float> block{1, 2, 3};
  const auto bytes = std::as_bytes(std::span(block));
  ValueBuffer buffer;
  const auto first =
      RemoveStride<float>(bytes, {.rows = 1, .rowElements = 3, .lastDim = 3}, buffer);
  const auto next = RemoveStride<float>(bytes, {.rows = 2, .rowElements = 1, .lastDim = 1}, buffer);
  EXPECT_EQ(next.data(), first.data());
  EXPECT_EQ(std::vector<float>(next.begin(), next.end()), (std::vector<float>{1, 2}));
}

TEST(RemoveStride, EndsWhereNoMemoryHoldsTheRepeatedRow) {
  const std::vector<float> block{1, 2, 3, 4};
  for (const uint64_t rows : {uint64_t{1} << 62, uint64_t{1} << 60, ~uint64_t{0}}) {
    EXPECT_THROW(Destrided(block, {.rows = rows, .rowElements = 0, .lastDim = 4}), std::bad_alloc);
  }
}

TEST(RemoveStride, ConvertsIntegersByTheirValue) {
  const RowShape row{.rows = 1, .rowElements = 2, .lastDim = 2};
  EXPECT_EQ(Destrided(std::vector<int8_t>{-1, 127}, row), (std::vector<float>{-1, 127}));
  EXPECT_EQ(Destrided(std::vector<uint8_t>{255, 128}, row), (std::vector<float>{255, 128}));
  EXPECT_EQ(Destrided(std::vector<int16_t>{-1, -32768}, row), (std::vector<float>{-1, -32768}));
  EXPECT_EQ(Destrided(std::vector<uint16_t>{65535, 1}, row), (std::vector<float>{65535, 1}));
}

TEST(RemoveStride, KeepsTheBitPatternOfFloats) {
  const std::vector<float> block{std::bit_cast<float>(1U), std::bit_cast<float>(0x7FA00001U)};
  const auto values = Destrided(block, {.rows = 1, .rowElements = 2, .lastDim = 2});
  EXPECT_EQ(std::bit_cast<uint32_t>(values[0]), 1U);
  EXPECT_EQ(std::bit_cast<uint32_t>(values[1]), 0x7FA00001U);
}

TEST(RemoveStride, GivesNothingForNoRows) {
  EXPECT_TRUE(
      Destrided(std::vector<float>{1, 2}, {.rows = 0, .rowElements = 2, .lastDim = 2}).empty());
}

TEST(RemoveStride, EndsWhereTheBlockEnds) {
  const std::vector<float> block{1, 2, 3, 4, 5};
  EXPECT_EQ(Destrided(block, {.rows = 4, .rowElements = 4, .lastDim = 3}),
            (std::vector<float>{1, 2, 3, 5}));
  EXPECT_EQ(Destrided(block, {.rows = 1, .rowElements = 4, .lastDim = 1000}),
            (std::vector<float>{1, 2, 3, 4, 5}));
  // Three and a half elements are three.
  ValueBuffer buffer;
  const auto values = RemoveStride<float>(std::as_bytes(std::span(block)).first(14),
                                          {.rows = 1, .rowElements = 4, .lastDim = 4}, buffer);
  EXPECT_EQ(std::vector<float>(values.begin(), values.end()), (std::vector<float>{1, 2, 3}));
}

TEST(RemoveStride, ReadsRowsThatOverlap) {
  const std::vector<uint8_t> block{1, 2, 3, 4};
  EXPECT_EQ(Destrided(block, {.rows = 2, .rowElements = 2, .lastDim = 3}),
            (std::vector<float>{1, 2, 3, 3, 4}));
  EXPECT_EQ(Destrided(block, {.rows = 3, .rowElements = 0, .lastDim = 1}),
            (std::vector<float>{1, 1, 1}));
}

// One element at a time, as a reader of the layout would do it by hand.
std::vector<float> SlowReference(const std::vector<int16_t>& block, const RowShape& shape) {
  std::vector<float> values;
  for (uint64_t row = 0; row < shape.rows; ++row) {
    for (uint64_t k = 0; k < shape.lastDim; ++k) {
      if (row * shape.rowElements + k >= block.size()) return values;
      values.push_back(block[row * shape.rowElements + k]);
    }
  }
  return values;
}

TEST(RemoveStride, AgreesWithTheSlowWayForRandomShapes) {
  constexpr uint32_t kSeed = 7;
  SCOPED_TRACE(kSeed);
  std::mt19937 random(kSeed);
  for (int round = 0; round < 2000; ++round) {
    std::vector<int16_t> block(1 + random() % 300);
    for (int16_t& element : block) element = static_cast<int16_t>(random());
    const RowShape shape{random() % 20, random() % 40, random() % 40};
    ASSERT_EQ(Destrided(block, shape), SlowReference(block, shape)) << round;
  }
}

}  // namespace
}  // namespace vorn::run
