#include "kit/tensor/stored_tensor.h"

#include <gtest/gtest.h>

namespace vorn::kit {
namespace {

TEST(TextOf, NamesTheSizes) {
  EXPECT_EQ(TextOf(Shape{2, 3, 4}), "2x3x4");
  EXPECT_EQ(TextOf(Shape{}), "scalar");
}

TEST(PlaceText, CountsByDimensions) {
  EXPECT_EQ(PlaceText(23, {2, 3, 4}), "[1, 2, 3]");
  EXPECT_EQ(PlaceText(7, {10}), "[7]");
  EXPECT_EQ(PlaceText(0, {}), "[]");
}

TEST(CountElements, IsEmptyBeyondWhatFits) {
  EXPECT_EQ(CountElements({2, 3, 4}), 24U);
  EXPECT_EQ(CountElements({}), 1U);
  EXPECT_EQ(CountElements({UINT64_MAX, 2}), std::nullopt);
  EXPECT_EQ(CountElements({UINT64_MAX, 2, 0}), 0U);
}

}  // namespace
}  // namespace vorn::kit
