#include "host/tensor/frame_rows.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

namespace vorn::host {
namespace {

/// A block of 12 rows of 4 bytes, counting upwards.
class FrameRowsTest : public testing::Test {
 protected:
  FrameRowsTest() : bytes(48) {
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<std::byte>(i);
  }
  BlockView Block() { return {bytes.data(), bytes.size(), 4}; }

  /// What comes out of the block, for both outer places or one.
  std::vector<int> Out(const FrameRows& rows, FrameSpan span, size_t count) {
    std::vector<std::byte> dense(count, std::byte{0xee});
    for (uint64_t outer = 0; outer < rows.outer; ++outer) {
      MoveRows(MoveOutOfBlock(rows, Block(), VORN_UINT8, dense.data(), span.count, span, outer));
    }
    std::vector<int> values;
    for (const std::byte byte : dense) values.push_back(std::to_integer<int>(byte));
    return values;
  }

  std::vector<std::byte> bytes;
};

TEST_F(FrameRowsTest, AreRowsBelowTheirDimension) {
  const FrameRows rows = FrameRowsOf({3, 2, 3}, 0);  // three frames of two rows of three
  EXPECT_EQ(Out(rows, {.first = 1, .count = 1}, 6), (std::vector<int>{8, 9, 10, 12, 13, 14}));
  EXPECT_EQ(Out(rows, {.first = 0, .count = 3}, 18)[17], 22);
}

TEST_F(FrameRowsTest, RepeatForWhatIsOutside) {
  const FrameRows rows = FrameRowsOf({2, 3, 2}, 1);  // twice three frames of a row of two
  EXPECT_EQ(Out(rows, {.first = 1, .count = 2}, 8), (std::vector<int>{4, 5, 8, 9, 16, 17, 20, 21}));
}

TEST_F(FrameRowsTest, AreElementsAlongTheLastDimension) {
  const FrameRows rows = FrameRowsOf({2, 4}, 1);
  EXPECT_EQ(Out(rows, {.first = 1, .count = 2}, 4), (std::vector<int>{1, 2, 5, 6}));
}

TEST_F(FrameRowsTest, ComeBackToWhereTheyWere) {
  const FrameRows rows = FrameRowsOf({2, 3, 2}, 1);
  const std::vector<std::byte> before = bytes;
  std::vector<std::byte> dense(8);
  const FrameSpan span = {.first = 1, .count = 2};
  for (uint64_t outer = 0; outer < 2; ++outer) {
    MoveRows(MoveOutOfBlock(rows, Block(), VORN_UINT8, dense.data(), 2, span, outer));
  }
  ZeroFrames(rows, Block(), VORN_UINT8, span);
  EXPECT_EQ(bytes[4], std::byte{0});
  EXPECT_EQ(bytes[17], std::byte{0});
  EXPECT_EQ(bytes[6], std::byte{6});  // padding
  EXPECT_EQ(bytes[0], std::byte{0});
  EXPECT_EQ(bytes[1], std::byte{1});  // the frame before
  for (uint64_t outer = 0; outer < 2; ++outer) {
    MoveRows(MoveIntoBlock(rows, Block(), VORN_UINT8, VORN_UINT8, dense.data(), 2, span, outer));
  }
  EXPECT_EQ(bytes, before);
}

TEST_F(FrameRowsTest, ThatAreNoneZeroNothing) {
  const std::vector<std::byte> before = bytes;
  ZeroFrames(FrameRowsOf({3, 2, 3}, 0), Block(), VORN_UINT8, {.first = 3, .count = 0});
  EXPECT_EQ(bytes, before);
}

}  // namespace
}  // namespace vorn::host
