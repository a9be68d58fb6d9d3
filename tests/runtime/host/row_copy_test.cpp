#include "host/row_copy.h"

#include <gtest/gtest.h>

#include <vector>

namespace vorn::host {
namespace {

constexpr auto kUntouched = std::byte{0xee};

std::vector<std::byte> Counting(size_t count) {
  std::vector<std::byte> bytes(count);
  for (size_t i = 0; i < count; ++i) bytes[i] = static_cast<std::byte>(i % 200);
  return bytes;
}

TEST(CopyRows, MovesEveryByteOfARowAndNoPadding) {
  for (const uint64_t rows : {1, 2, 5}) {
    for (const uint64_t rowBytes : {1, 3, 16}) {
      for (const uint64_t fromPad : {0, 4}) {
        for (const uint64_t toPad : {0, 13}) {
          const uint64_t fromStride = rowBytes + fromPad;
          const uint64_t toStride = rowBytes + toPad;
          // Ends with the last row's last byte: a sanitizer sees a read or write of padding there.
          const auto from = Counting((rows - 1) * fromStride + rowBytes);
          std::vector<std::byte> to((rows - 1) * toStride + rowBytes, kUntouched);
          std::vector<std::byte> expected = to;
          for (uint64_t r = 0; r < rows; ++r) {
            for (uint64_t b = 0; b < rowBytes; ++b) {
              expected[r * toStride + b] = from[r * fromStride + b];
            }
          }
          CopyRows(from.data(), fromStride, to.data(), toStride, rowBytes, rows);
          EXPECT_EQ(to, expected);
        }
      }
    }
  }
}

TEST(CopyRows, DoesNothingForNoRows) {
  const auto from = Counting(4);
  std::vector<std::byte> to(4, kUntouched);
  CopyRows(from.data(), 2, to.data(), 4, 2, 0);
  EXPECT_EQ(to, std::vector<std::byte>(4, kUntouched));
}

}  // namespace
}  // namespace vorn::host
