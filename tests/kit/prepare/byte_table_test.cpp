#include "kit/prepare/byte_table.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

namespace vorn::kit {
namespace {

constexpr std::byte kUntouched{0xa5};
constexpr size_t kBeyond = 64;

std::vector<std::byte> Noise(size_t bytes) {
  std::mt19937 random(static_cast<uint32_t>(bytes));
  std::vector<std::byte> noise(bytes);
  for (std::byte& byte : noise) byte = static_cast<std::byte>(random());
  return noise;
}

// Byte by byte; what is between and behind the elements stays.
std::vector<std::byte> SlowlyFound(const std::vector<std::byte>& elements, size_t elementBytes,
                                   const std::vector<std::byte>& from, size_t fromStep,
                                   size_t count, size_t toStep) {
  std::vector<std::byte> to(count * toStep * elementBytes + kBeyond, kUntouched);
  for (size_t i = 0; i < count; ++i) {
    const auto value = static_cast<size_t>(from[i * fromStep]);
    for (size_t b = 0; b < elementBytes; ++b) {
      to[i * toStep * elementBytes + b] = elements[value * elementBytes + b];
    }
  }
  return to;
}

TEST(ByteTable, LooksUpEachByteByAnyInstructions) {
  for (const size_t elementBytes : {1, 2, 4, 8}) {
    const std::vector<std::byte> elements = Noise(kByteValues * elementBytes);
    const ByteTable table(elementBytes, elements);
    for (const size_t fromStep : {1, 3, 4}) {
      for (const size_t toStep : {1, 3}) {
        for (const size_t count : {0, 1, 63, 64, 65, 85, 86, 127, 128, 129, 256, 640, 1001}) {
          // Exactly as many bytes as are read: a sanitizer sees one more.
          const std::vector<std::byte> from = Noise(count == 0 ? 0 : (count - 1) * fromStep + 1);
          const std::vector<std::byte> expected =
              SlowlyFound(elements, elementBytes, from, fromStep, count, toStep);
          std::vector<std::byte> to(expected.size(), kUntouched);
          const ByteRow row{reinterpret_cast<const uint8_t*>(from.data()), fromStep, count,
                            to.data(), toStep};
          table.LookUp(row);
          EXPECT_EQ(to, expected) << elementBytes << " " << fromStep << " " << toStep << " "
                                  << count;
          std::fill(to.begin(), to.end(), kUntouched);
          table.LookUpAnywhere(row);
          EXPECT_EQ(to, expected) << elementBytes << " " << fromStep << " " << toStep << " "
                                  << count;
        }
      }
    }
  }
}

TEST(ByteTable, FillsWithTheElementOfAValue) {
  for (const size_t elementBytes : {1, 2, 4, 8}) {
    const std::vector<std::byte> elements = Noise(kByteValues * elementBytes);
    const ByteTable table(elementBytes, elements);
    for (const size_t toStep : {1, 3}) {
      const std::vector<std::byte> from(7, std::byte{200});
      const std::vector<std::byte> expected =
          SlowlyFound(elements, elementBytes, from, 1, from.size(), toStep);
      std::vector<std::byte> to(expected.size(), kUntouched);
      table.Fill(200, from.size(), to.data(), toStep);
      EXPECT_EQ(to, expected) << elementBytes << " " << toStep;
    }
  }
}

}  // namespace
}  // namespace vorn::kit
