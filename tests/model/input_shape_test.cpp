#include "model/input_shape.h"

#include <gtest/gtest.h>

#include <vector>

namespace vorn::run {
namespace {

using Dims = std::vector<int64_t>;

TEST(JoinDimensions, PutsCommasBetween) {
  EXPECT_EQ(JoinDimensions(Dims{1, 3, 224, 224}), "1,3,224,224");
  EXPECT_EQ(JoinDimensions(Dims{-1}), "-1");
  EXPECT_EQ(JoinDimensions(Dims{}), "");
}

TEST(DenseBytes, MultipliesAllDimensions) {
  EXPECT_EQ(DenseBytes(Dims{1, 3, 4, 5}, 2), 120U);
  EXPECT_EQ(DenseBytes(Dims{}, 4), 4U);
  EXPECT_EQ(DenseBytes(Dims{5, 0}, 4), 0U);
  EXPECT_EQ(DenseBytes(Dims{-1}, 4), uint64_t{0} - 4);
}

TEST(FrameBytes, LeavesTheFirstDimensionOut) {
  EXPECT_EQ(FrameBytes(Dims{8, 3, 2}, 4), 24U);
  EXPECT_EQ(FrameBytes(Dims{8}, 4), 4U);
  EXPECT_EQ(FrameBytes(Dims{}, 4), 4U);
}

TEST(RowElements, IsTheLastDimension) {
  EXPECT_EQ(RowElements(Dims{2, 7}), 7);
  EXPECT_EQ(RowElements(Dims{}), 0);
}

}  // namespace
}  // namespace vorn::run
