// A float is m * 2^-s with an integer m below 2^24. Below 2^23 (s >= 1) its fraction is
// f = m mod 2^s, also below 2^24, and its sixteen digits are
//
//     f * 10^16 / 2^s  =  f * 5^16 / 2^(s - 16),    f * 5^16 < 2^62
//
// that is one 64-bit multiplication and one shift, rounded half to even on what is shifted out. The
// rounding cannot carry into the integer part: f <= 2^s - 1 leaves at least 2^-24 up to 1, far more
// than half a unit of the sixteenth digit.
#include "output/float_text.h"

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>

namespace {

constexpr uint32_t kSignBit = 0x80000000;
constexpr int kMantissaBits = 23;
constexpr uint32_t kMantissaMask = (1u << kMantissaBits) - 1;
constexpr int kExponentOfUnit = 127 + kMantissaBits;  // biased exponent at which m counts units
constexpr uint64_t kFivePow16 = 152587890625;
constexpr int kDecimals = 16;

constexpr std::array<char, 40000> MakeFourDigits() {
  std::array<char, 40000> table{};
  for (size_t i = 0; i < 10000; ++i) {
    table[4 * i] = static_cast<char>('0' + i / 1000);
    table[4 * i + 1] = static_cast<char>('0' + i / 100 % 10);
    table[4 * i + 2] = static_cast<char>('0' + i / 10 % 10);
    table[4 * i + 3] = static_cast<char>('0' + i % 10);
  }
  return table;
}
constexpr std::array<char, 40000> kFourDigits = MakeFourDigits();

void WriteFourDigits(size_t value, char* text) { std::memcpy(text, &kFourDigits[4 * value], 4); }

void WriteSixteenDigits(uint64_t value, char* text) {
  const auto high = static_cast<uint32_t>(value / 100000000);
  const auto low = static_cast<uint32_t>(value % 100000000);
  WriteFourDigits(high / 10000, text);
  WriteFourDigits(high % 10000, text + 4);
  WriteFourDigits(low / 10000, text + 8);
  WriteFourDigits(low % 10000, text + 12);
}

// The sixteen digits of fraction / 2^shift, for a fraction below 2^min(shift, 24).
uint64_t FractionDigits(uint64_t fraction, int shift) {
  const uint64_t scaled = fraction * kFivePow16;
  if (shift <= kDecimals) return scaled << (kDecimals - shift);
  // From 63 on everything is shifted out and is below one half, as at 63 itself.
  const int drop = std::min(shift - kDecimals, 63);
  const uint64_t half = uint64_t{1} << (drop - 1);
  const uint64_t odd = scaled >> drop & 1;
  return (scaled + (half - 1) + odd) >> drop;
}

char* WriteRareText(float magnitude, char* text) {
  if (std::isnan(magnitude)) return std::copy_n("nan", 3, text);
  if (std::isinf(magnitude)) return std::copy_n("inf", 3, text);
  return std::to_chars(text, text + kMaxFloatText, static_cast<double>(magnitude),
                       std::chars_format::fixed, kDecimals)
      .ptr;
}

}  // namespace

char* WriteFloatText(float value, char* text) {
  const auto bits = std::bit_cast<uint32_t>(value);
  *text = '-';
  text += bits >> 31;

  const auto biasedExponent = static_cast<int>(bits >> kMantissaBits & 0xFF);
  if (biasedExponent >= kExponentOfUnit) {
    return WriteRareText(std::bit_cast<float>(bits & ~kSignBit), text);
  }
  const bool isNormal = biasedExponent != 0;
  const uint64_t mantissa = (bits & kMantissaMask) | uint32_t{isNormal} << kMantissaBits;
  const int shift = kExponentOfUnit - biasedExponent - (isNormal ? 0 : 1);
  const int unitShift = std::min(shift, 63);
  const uint64_t units = mantissa >> unitShift;
  const uint64_t fraction = mantissa - (units << unitShift);

  text = units < 10 ? (*text = static_cast<char>('0' + units), text + 1)
                    : std::to_chars(text, text + kMaxFloatText, units).ptr;
  *text++ = '.';
  WriteSixteenDigits(FractionDigits(fraction, shift), text);
  return text + kDecimals;
}
