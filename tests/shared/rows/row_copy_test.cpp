#include "shared/rows/row_copy.h"

#include <gtest/gtest.h>

#include <vector>

namespace vorn {
namespace {

constexpr auto kUntouched = std::byte{0xee};

std::vector<std::byte> Counting(size_t count) {
  std::vector<std::byte> bytes(count);
  for (size_t i = 0; i < count; ++i) bytes[i] = static_cast<std::byte>(i % 200);
  return bytes;
}

/// Rows one after the other and byte by byte. Both places end with the last row's last byte, where
/// a sanitizer sees a read or write of padding; between the rows the comparison sees it.
void ExpectRowsMove(uint64_t rowBytes, uint64_t fromStride, uint64_t toStride, uint64_t rows) {
  const auto from = Counting((rows - 1) * fromStride + rowBytes);
  std::vector<std::byte> to((rows - 1) * toStride + rowBytes, kUntouched);
  std::vector<std::byte> expected = to;
  for (uint64_t r = 0; r < rows; ++r) {
    for (uint64_t b = 0; b < rowBytes; ++b) expected[r * toStride + b] = from[r * fromStride + b];
  }
  CopyRows(from.data(), fromStride, to.data(), toStride, rowBytes, rows);
  EXPECT_EQ(to, expected) << rows << " rows of " << rowBytes << " bytes, from a stride of "
                          << fromStride << " to one of " << toStride;
}

TEST(CopyRows, MovesEveryByteOfARowAndNoPadding) {
  // Beyond 64 bytes every size goes the same way.
  for (uint64_t rowBytes = 1; rowBytes <= 130; ++rowBytes) {
    for (const uint64_t rows : {1, 2, 5}) {
      for (const uint64_t fromPad : {0, 1, 16}) {
        for (const uint64_t toPad : {0, 1, 13}) {
          ExpectRowsMove(rowBytes, rowBytes + fromPad, rowBytes + toPad, rows);
        }
      }
    }
  }
}

TEST(CopyRows, TakesStridesUpToTheWidestAlignment) {
  for (const uint64_t rowBytes : {1, 2, 4, 12, 16, 64, 65, 900}) {
    for (const uint64_t stride : {912, 4096}) {
      ExpectRowsMove(rowBytes, stride, rowBytes, 3);
      ExpectRowsMove(rowBytes, rowBytes, stride, 3);
    }
  }
}

TEST(CopyRows, LeavesTheLaterOfRowsThatShareBytes) {
  for (const uint64_t rowBytes : {2, 3, 4, 7, 8, 12, 16, 31, 64, 65, 130}) {
    for (const uint64_t stride : {uint64_t{0}, uint64_t{1}, rowBytes - 1}) {
      ExpectRowsMove(rowBytes, rowBytes, stride, 5);
      ExpectRowsMove(rowBytes, stride, rowBytes, 5);
      ExpectRowsMove(rowBytes, stride, stride, 5);
    }
  }
}

TEST(CopyRows, DoesNothingForNoRows) {
  const auto from = Counting(4);
  std::vector<std::byte> to(4, kUntouched);
  CopyRows(from.data(), 2, to.data(), 4, 2, 0);
  EXPECT_EQ(to, std::vector<std::byte>(4, kUntouched));
}

TEST(CopyRows, DoesNothingForRowsWithoutBytes) {
  for (const uint64_t fromStride : {16, 1, 0}) {
    for (const uint64_t toStride : {16, 1, 0}) {
      // Rows start at an allocation's first byte, where a sanitizer sees what is touched before it.
      const auto from = Counting(17);
      std::vector<std::byte> to(17, kUntouched);
      CopyRows(from.data(), fromStride, to.data(), toStride, 0, 2);
      EXPECT_EQ(to, std::vector<std::byte>(17, kUntouched));
      CopyRows(nullptr, fromStride, nullptr, toStride, 0, 2);  // such places need not be there
    }
  }
}

}  // namespace
}  // namespace vorn
