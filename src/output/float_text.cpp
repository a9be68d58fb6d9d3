// A float below 2^23 is m * 2^-s with a 24-bit m and s >= 1. Its sixteen digits behind the point
// come from one multiplication, 64 by 64 bits to 128, whose upper half is the digits as an integer
// and whose lower half is exactly what is rounded away:
//
//     s <= 64         m * 2^(64 - s), which drops the units, times 10^16
//     64 < s <= 80    m * 2^(80 - s) times 5^16, since 10^16 / 2^s = 5^16 * 2^(80 - s) / 2^64
//     s > 80          0, as the value is less than a tenth of the last digit's unit
//
// The rounding cannot carry into the units: a fraction has at most 24 bits there and leaves 2^-24
// up to 1. Nothing depends on whether a value is zero, subnormal or normal, and no branch on its
// sign: values of a network change both from one to the next, and a wrong guess costs more than the
// text.
#include "output/float_text.h"

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>

namespace vorn::run {
namespace {

__extension__ using Wide = unsigned __int128;

constexpr uint32_t kSignBit = 0x80000000;
constexpr int kMantissaBits = 23;
constexpr uint32_t kImplicitBit = 1u << kMantissaBits;
constexpr uint32_t kMantissaMask = kImplicitBit - 1;
constexpr int kExponentOfUnit = 127 + kMantissaBits;  // biased exponent at which m counts units
constexpr int kDecimals = 16;
constexpr uint64_t kTenPow16 = 10000000000000000;
constexpr uint64_t kFivePow16 = 152587890625;
constexpr uint64_t kBelowHalf = 0x7FFFFFFFFFFFFFFF;  // of the lower half, rounded away

struct Scale {
  uint64_t factor = 0;
  int lift = 0;  // m is shifted up by this before the multiplication
};

// By biased exponent. Row 0, zero and the subnormals, is like all rows whose digits are zeros.
constexpr auto kScales = [] {
  std::array<Scale, kExponentOfUnit> scales{};
  for (int exponent = 1; exponent < kExponentOfUnit; ++exponent) {
    const int shift = kExponentOfUnit - exponent;
    if (shift <= 64) {
      scales[exponent] = {kTenPow16, 64 - shift};
    } else if (shift <= 80) {
      scales[exponent] = {kFivePow16 << (80 - shift), 0};
    }
  }
  return scales;
}();

struct UnitsText {
  std::array<char, 4> text{};  // with the point
  uint32_t length = 0;
};

constexpr auto kSmallUnits = [] {
  std::array<UnitsText, 1000> table{};
  for (uint32_t units = 0; units < table.size(); ++units) {
    UnitsText& entry = table[units];
    for (uint32_t power = units < 10 ? 1 : units < 100 ? 10 : 100; power > 0; power /= 10) {
      entry.text[entry.length++] = static_cast<char>('0' + units / power % 10);
    }
    entry.text[entry.length++] = '.';
  }
  return table;
}();

constexpr auto kFourDigits = [] {
  std::array<std::array<char, 4>, 10000> table{};
  for (size_t i = 0; i < table.size(); ++i) {
    size_t rest = i;
    for (size_t digit = 4; digit-- > 0; rest /= 10) {
      table[i][digit] = static_cast<char>('0' + rest % 10);
    }
  }
  return table;
}();

char* WriteUnits(uint32_t units, char* text) {
  if (units < kSmallUnits.size()) [[likely]] {
    const UnitsText& entry = kSmallUnits[units];
    std::memcpy(text, entry.text.data(), entry.text.size());
    return text + entry.length;
  }
  text = std::to_chars(text, text + kMaxFloatText, units).ptr;
  *text = '.';
  return text + 1;
}

void WriteFourDigits(uint32_t value, char* text) {
  std::memcpy(text, kFourDigits[value].data(), 4);
}

char* WriteSixteenDigits(uint64_t value, char* text) {
  const auto high = static_cast<uint32_t>(value / 100000000);
  const auto low = static_cast<uint32_t>(value % 100000000);
  WriteFourDigits(high / 10000, text);
  WriteFourDigits(high % 10000, text + 4);
  WriteFourDigits(low / 10000, text + 8);
  WriteFourDigits(low % 10000, text + 12);
  return text + kDecimals;
}

// Half to even on the exact value.
uint64_t RoundToUpperHalf(Wide product) {
  const uint64_t odd = static_cast<uint64_t>(product >> 64) & 1;
  const uint64_t tiesToEven = kBelowHalf + odd;
  return static_cast<uint64_t>((product + tiesToEven) >> 64);
}

// From 2^23 on a float is an integer, infinite or not a number.
char* WriteRareText(float magnitude, char* text) {
  if (std::isnan(magnitude)) return std::copy_n("nan", 3, text);
  if (std::isinf(magnitude)) return std::copy_n("inf", 3, text);
  return std::to_chars(text, text + kMaxFloatText, static_cast<double>(magnitude),
                       std::chars_format::fixed, kDecimals)
      .ptr;
}

inline char* WriteText(float value, char* text) {
  const auto bits = std::bit_cast<uint32_t>(value);
  *text = '-';
  text += bits >> 31;

  const uint32_t biasedExponent = bits >> kMantissaBits & 0xFF;
  if (biasedExponent >= kExponentOfUnit) [[unlikely]] {
    return WriteRareText(std::bit_cast<float>(bits & ~kSignBit), text);
  }
  const Scale scale = kScales[biasedExponent];
  const uint64_t mantissa = (bits & kMantissaMask) | kImplicitBit;
  // In two steps, since 64 - lift is no valid shift for a lift of 0.
  const auto units = static_cast<uint32_t>(mantissa >> 1 >> (63 - scale.lift));
  text = WriteUnits(units, text);
  return WriteSixteenDigits(RoundToUpperHalf(Wide{mantissa << scale.lift} * scale.factor), text);
}

}  // namespace

char* WriteFloatText(float value, char* text) { return WriteText(value, text); }

char* WriteFloatLines(std::span<const float> values, char* text) {
  for (const float value : values) {
    text = WriteText(value, text);
    *text++ = '\n';
  }
  return text;
}

}  // namespace vorn::run
