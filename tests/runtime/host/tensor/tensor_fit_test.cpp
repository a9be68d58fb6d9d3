#include "host/tensor/tensor_fit.h"

#include <gtest/gtest.h>

#include <vector>

namespace vorn::host {
namespace {

/// The tensor 1, 2, 3, ... of `from` in a place of `to` that was full of nines.
std::vector<uint16_t> Fitted(const Shape& from, const Shape& to) {
  const auto count = [](const Shape& shape) {
    int64_t elements = 1;
    for (const int64_t dim : shape) elements *= dim;
    return static_cast<size_t>(elements);
  };
  std::vector<uint16_t> tensor(count(from));
  for (size_t i = 0; i < tensor.size(); ++i) tensor[i] = static_cast<uint16_t>(i + 1);
  std::vector<uint16_t> place(count(to), 9);
  FitTensor(reinterpret_cast<const std::byte*>(tensor.data()), from,
            reinterpret_cast<std::byte*>(place.data()), to, sizeof(uint16_t));
  return place;
}

TEST(FitTensor, FillsUpWithZeros) {
  EXPECT_EQ(Fitted({2, 3}, {3, 3}), (std::vector<uint16_t>{1, 2, 3, 4, 5, 6, 0, 0, 0}));
  EXPECT_EQ(Fitted({2, 2}, {2, 3}), (std::vector<uint16_t>{1, 2, 0, 3, 4, 0}));
  EXPECT_EQ(Fitted({1, 1, 1}, {2, 1, 2}), (std::vector<uint16_t>{1, 0, 0, 0}));
}

TEST(FitTensor, CutsOffWhatIsBeyond) {
  EXPECT_EQ(Fitted({3, 2}, {2, 2}), (std::vector<uint16_t>{1, 2, 3, 4}));
  EXPECT_EQ(Fitted({2, 3}, {2, 2}), (std::vector<uint16_t>{1, 2, 4, 5}));
  EXPECT_EQ(Fitted({2, 3}, {3, 2}), (std::vector<uint16_t>{1, 2, 4, 5, 0, 0}));
}

TEST(FitTensor, TakesWhatHasNoElementsOrNoDimensions) {
  EXPECT_EQ(Fitted({0, 3}, {2, 2}), (std::vector<uint16_t>{0, 0, 0, 0}));
  EXPECT_EQ(Fitted({2, 0}, {2, 2}), (std::vector<uint16_t>{0, 0, 0, 0}));
  EXPECT_EQ(Fitted({}, {}), (std::vector<uint16_t>{1}));
}

TEST(ReachesBeyond, LooksAtEveryDimension) {
  EXPECT_FALSE(ReachesBeyond({2, 3}, {2, 3}));
  EXPECT_FALSE(ReachesBeyond({1, 0}, {2, 3}));
  EXPECT_TRUE(ReachesBeyond({3, 3}, {2, 3}));
  EXPECT_TRUE(ReachesBeyond({1, 4}, {2, 3}));
}

}  // namespace
}  // namespace vorn::host
