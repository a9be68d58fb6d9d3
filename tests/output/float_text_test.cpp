#include "output/float_text.h"

#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <cstdio>
#include <random>
#include <string>

namespace vorn::run {
namespace {

std::string Text(float value) {
  char text[kMaxFloatText];
  return {text, WriteFloatText(value, text)};
}

std::string Reference(float value) {
  char text[128];
  return {text, static_cast<size_t>(
                    std::snprintf(text, sizeof(text), "%.16f", static_cast<double>(value)))};
}

void ExpectAsPrintf(uint32_t bits) {
  const auto value = std::bit_cast<float>(bits);
  ASSERT_EQ(Text(value), Reference(value)) << std::hex << bits;
}

TEST(WriteFloatText, WritesSixteenDigitsBehindThePoint) {
  EXPECT_EQ(Text(1.5F), "1.5000000000000000");
  EXPECT_EQ(Text(-2.0F), "-2.0000000000000000");
  EXPECT_EQ(Text(0.1F), "0.1000000014901161");
  EXPECT_EQ(Text(8388607.5F), "8388607.5000000000000000");
}

TEST(WriteFloatText, WritesZerosInfinitiesAndNotANumberWithTheirSigns) {
  EXPECT_EQ(Text(0.0F), "0.0000000000000000");
  EXPECT_EQ(Text(-0.0F), "-0.0000000000000000");
  EXPECT_EQ(Text(std::bit_cast<float>(0x7F800000U)), "inf");
  EXPECT_EQ(Text(std::bit_cast<float>(0xFF800000U)), "-inf");
  EXPECT_EQ(Text(std::bit_cast<float>(0x7FC00000U)), "nan");
  EXPECT_EQ(Text(std::bit_cast<float>(0xFFC00001U)), "-nan");
}

TEST(WriteFloatText, RoundsTiesToEven) {
  // 2^-17 has 17 digits behind the point, the last a 5.
  EXPECT_EQ(Text(0x1p-17F), "0.0000076293945312");
  EXPECT_EQ(Text(0x3p-17F), "0.0000228881835938");
}

TEST(WriteFloatText, FitsTheLongestText) { EXPECT_EQ(Text(-3.40282347e38F).size(), kMaxFloatText); }

TEST(WriteFloatText, AgreesWithPrintfAtEveryExponent) {
  for (uint32_t signAndExponent = 0; signAndExponent < 512; ++signAndExponent) {
    for (const uint32_t mantissa : {0U, 1U, 2U, 3U, 0x2AAAAAU, 0x3FFFFFU, 0x400000U, 0x400001U,
                                    0x555555U, 0x7FFFFEU, 0x7FFFFFU}) {
      ExpectAsPrintf(signAndExponent << 23 | mantissa);
    }
  }
}

TEST(WriteFloatText, AgreesWithPrintfForRandomPatterns) {
  constexpr uint32_t kSeed = 20240607;
  SCOPED_TRACE(kSeed);
  std::mt19937 random(kSeed);
  for (int i = 0; i < 300000; ++i) ExpectAsPrintf(static_cast<uint32_t>(random()));
}

TEST(WriteFloatText, AgreesWithPrintfForEveryHalfwayCase) {
  // All multiples of 2^-17 in [0, 1) with an odd numerator end on a 5 in the 17th digit.
  for (int numerator = 1; numerator < 1 << 17; numerator += 2) {
    ExpectAsPrintf(std::bit_cast<uint32_t>(static_cast<float>(numerator) * 0x1p-17F));
  }
}

TEST(WriteFloatLines, FitsTheLongestLine) {
  const float longest = -3.40282347e38F;
  char text[2 * kMaxFloatText];
  EXPECT_EQ(WriteFloatLines({&longest, 1}, text) - text, ptrdiff_t{kMaxFloatLine});
}

TEST(WriteFloatLines, EndsEachTextOnALineFeed) {
  const float values[] = {0.5F, -1234.25F, 1e10F, -0.0F};
  char text[std::size(values) * kMaxFloatLine];
  EXPECT_EQ(std::string(text, WriteFloatLines(values, text)),
            "0.5000000000000000\n-1234.2500000000000000\n10000000000.0000000000000000\n"
            "-0.0000000000000000\n");
}

}  // namespace
}  // namespace vorn::run
