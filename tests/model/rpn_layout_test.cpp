#include "model/rpn_layout.h"

#include <gtest/gtest.h>

#include <numeric>
#include <vector>

namespace vorn::run {
namespace {

// The floats of a zero-filled block after the values have been written.
std::vector<float> Written(size_t blockFloats, size_t values, uint32_t width, int32_t stride) {
  std::vector<float> block(blockFloats);
  std::vector<float> input(values);
  std::iota(input.begin(), input.end(), 1.0F);
  WriteRpnValues(std::as_writable_bytes(std::span(block)), input, width, stride);
  return block;
}

TEST(WriteRpnValues, WritesFourValuesInARow) {
  EXPECT_EQ(Written(6, 4, 4, 16), (std::vector<float>{1, 2, 3, 4, 0, 0}));
}

TEST(WriteRpnValues, TakesFourValuesForASingleClassWhateverTheStride) {
  EXPECT_EQ(Written(8, 4, 1, 8), (std::vector<float>{1, 2, 3, 4, 0, 0, 0, 0}));
}

TEST(WriteRpnValues, StartsTheRowsOfAMultiClassAtTheStride) {
  EXPECT_EQ(Written(16, 12, 3, 16),
            (std::vector<float>{1, 2, 3, 0, 4, 5, 6, 0, 7, 8, 9, 0, 10, 11, 12, 0}));
}

TEST(WriteRpnValues, RoundsTheStrideDownToWholeFloats) {
  EXPECT_EQ(Written(9, 8, 2, 11), (std::vector<float>{1, 2, 3, 4, 5, 6, 7, 8, 0}));
}

TEST(WriteRpnValues, RoundsANegativeStrideDown) {
  // Rows start at 0, -1, -2 and -3 floats: of row k the classes from k on lie in the block.
  EXPECT_EQ(Written(3, 12, 3, -2), (std::vector<float>{9, 6, 3}));
}

TEST(WriteRpnValues, LetsTheLaterClassStayWhereRowsOverlap) {
  EXPECT_EQ(Written(9, 12, 3, 8), (std::vector<float>{1, 2, 3, 5, 6, 8, 9, 11, 12}));
}

TEST(WriteRpnValues, WritesNothingOutsideTheBlock) {
  EXPECT_EQ(Written(2, 4, 4, 16), (std::vector<float>{1, 2}));
  EXPECT_EQ(Written(5, 12, 3, 16), (std::vector<float>{1, 2, 3, 0, 4}));
  EXPECT_EQ(Written(3, 12, 3, -16), (std::vector<float>{1, 2, 3}));
  EXPECT_EQ(Written(0, 4, 4, 16), (std::vector<float>{}));
  // The last row starts 4 GiB and 20 bytes behind the block's start.
  EXPECT_EQ(Written(8, 8, 2, 0x5555555C), (std::vector<float>{1, 2, 0, 0, 0, 0, 0, 0}));
}

TEST(WriteRpnValues, EndsWhereTheValuesEnd) {
  EXPECT_EQ(Written(8, 5, 1000000, 16), (std::vector<float>{1, 2, 3, 4, 5, 0, 0, 0}));
}

TEST(WriteRpnValues, WritesFourRowsOfWhateverIsThere) {
  EXPECT_EQ(Written(10, 12, 2, 8), (std::vector<float>{1, 2, 3, 4, 5, 6, 7, 8, 0, 0}));
}

TEST(WriteRpnValues, ReadsNothingBehindTheValues) {
  const std::vector<float> values = {1, 2, 3, 4, 5, 99};
  std::vector<float> block(8);
  WriteRpnValues(std::as_writable_bytes(std::span(block)), std::span(values).first(5), 3, 12);
  EXPECT_EQ(block, (std::vector<float>{1, 2, 3, 4, 5, 0, 0, 0}));
}

}  // namespace
}  // namespace vorn::run
