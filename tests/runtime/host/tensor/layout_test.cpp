#include "host/tensor/layout.h"

#include <gtest/gtest.h>

#include <vector>

namespace vorn::host {
namespace {

/// Rows counted one by one, padding added byte by byte.
TensorLayout Slowly(const std::vector<int64_t>& dims, uint64_t elementBytes, uint64_t alignment) {
  TensorLayout expected;
  expected.elementBytes = elementBytes;
  expected.rows = 1;
  for (size_t i = 0; i + 1 < dims.size(); ++i) expected.rows *= static_cast<uint64_t>(dims[i]);
  expected.rowBytes = elementBytes * (dims.empty() ? 1 : static_cast<uint64_t>(dims.back()));
  expected.stride = expected.rowBytes;
  while (expected.stride % alignment != 0) ++expected.stride;
  return expected;
}

TEST(LayOut, PutsTheLastDimensionIntoRows) {
  const std::vector<std::vector<int64_t>> shapes = {{}, {1}, {7}, {2, 3}, {1, 3, 5, 7}, {4, 1}};
  for (const auto& shape : shapes) {
    for (const uint64_t elementBytes : {1, 2, 4, 8}) {
      for (const uint64_t alignment : {1, 2, 16, 64, 4096}) {
        const auto layout = LayOut(shape, elementBytes, alignment);
        const TensorLayout expected = Slowly(shape, elementBytes, alignment);
        ASSERT_TRUE(layout);
        EXPECT_EQ(layout->elementBytes, expected.elementBytes);
        EXPECT_EQ(layout->rows, expected.rows);
        EXPECT_EQ(layout->rowBytes, expected.rowBytes);
        EXPECT_EQ(layout->stride, expected.stride);
        EXPECT_EQ(layout->ItemBytes(), expected.rows * expected.stride);
        EXPECT_EQ(layout->DenseBytes(), expected.rows * expected.rowBytes);
      }
    }
  }
}

TEST(LayOut, RefusesADimensionBelowOne) {
  EXPECT_FALSE(LayOut(std::vector<int64_t>{2, 0}, 4, 16));
  EXPECT_FALSE(LayOut(std::vector<int64_t>{0, 2}, 4, 16));
  EXPECT_FALSE(LayOut(std::vector<int64_t>{-1}, 4, 16));
}

TEST(LayOut, RefusesWhatNoBlockHolds) {
  const int64_t big = INT64_C(1) << 40;
  EXPECT_FALSE(LayOut(std::vector<int64_t>{big, big}, 1, 1));
  EXPECT_FALSE(LayOut(std::vector<int64_t>{big, big, 1}, 1, 1));
  EXPECT_FALSE(LayOut(std::vector<int64_t>{INT64_MAX}, 8, 16));
  EXPECT_FALSE(LayOut(std::vector<int64_t>{INT64_MAX}, 1, 16));
  EXPECT_TRUE(LayOut(std::vector<int64_t>{INT64_MAX}, 1, 1));
}

TEST(RoundUp, RefusesWhatWrapsAround) {
  EXPECT_EQ(RoundUp(17, 16), 32u);
  EXPECT_EQ(RoundUp(16, 16), 16u);
  EXPECT_EQ(RoundUp(0, 16), 0u);
  EXPECT_FALSE(RoundUp(UINT64_MAX, 16));
}

TEST(Product, RefusesWhatWrapsAround) {
  EXPECT_EQ(Product(3, 5), 15u);
  EXPECT_EQ(Product(UINT64_MAX, 1), UINT64_MAX);
  EXPECT_FALSE(Product(UINT64_MAX, 2));
}

}  // namespace
}  // namespace vorn::host
