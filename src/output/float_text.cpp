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
#include <cstdint>
#include <cstring>

namespace vorn::run {
namespace {

__extension__ using Wide = unsigned __int128;

static_assert(std::endian::native == std::endian::little);  // text is put together in integers

constexpr uint32_t kSignBit = 0x80000000;
constexpr int kMantissaBits = 23;
constexpr uint32_t kImplicitBit = 1u << kMantissaBits;
constexpr uint32_t kMantissaMask = kImplicitBit - 1;
constexpr int kExponentOfUnit = 127 + kMantissaBits;  // biased exponent at which m counts units
constexpr uint32_t kExponentOfNoNumber = 255;
constexpr int kDecimals = 16;
constexpr uint32_t kTenPow8 = 100000000;
constexpr uint64_t kTenPow16 = 10000000000000000;
constexpr uint64_t kFivePow16 = 152587890625;
constexpr uint64_t kEightZeros = 0x3030303030303030;
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

uint64_t FourDigits(uint32_t value) {
  uint32_t text = 0;
  std::memcpy(&text, kFourDigits[value].data(), sizeof(text));
  return text;
}

// The text of a number below 10^8, its first digit in the lowest byte.
uint64_t EightDigits(uint32_t value) {
  return FourDigits(value / 10000) | FourDigits(value % 10000) << 32;
}

char* WriteEightDigits(uint32_t value, char* text) {
  const uint64_t digits = EightDigits(value);
  std::memcpy(text, &digits, sizeof(digits));
  return text + sizeof(digits);
}

char* WriteSixteenDigits(uint64_t value, char* text) {
  text = WriteEightDigits(static_cast<uint32_t>(value / kTenPow8), text);
  return WriteEightDigits(static_cast<uint32_t>(value % kTenPow8), text);
}

// Without leading zeros, which are shifted out: how many there are is hard to foretell, and would
// be a branch. Writes eight characters whatever it returns.
char* WriteUpToEightDigits(uint32_t value, char* text) {
  const uint64_t digits = EightDigits(value);
  const uint64_t lastCounts = uint64_t{1} << 56;
  const int zeroBits = std::countr_zero((digits ^ kEightZeros) | lastCounts) / 8 * 8;
  const uint64_t counting = digits >> zeroBits;
  std::memcpy(text, &counting, sizeof(counting));
  return text + 8 - zeroBits / 8;
}

char* WriteUnits(uint32_t units, char* text) {
  if (units < kSmallUnits.size()) [[likely]] {
    const UnitsText& entry = kSmallUnits[units];
    std::memcpy(text, entry.text.data(), entry.text.size());
    return text + entry.length;
  }
  text = WriteUpToEightDigits(units, text);
  *text = '.';
  return text + 1;
}

char* WriteInteger(uint64_t value, char* text) {
  if (value < kTenPow8) return WriteUpToEightDigits(static_cast<uint32_t>(value), text);
  if (value < kTenPow16) {
    text = WriteUpToEightDigits(static_cast<uint32_t>(value / kTenPow8), text);
    return WriteEightDigits(static_cast<uint32_t>(value % kTenPow8), text);
  }
  text = WriteUpToEightDigits(static_cast<uint32_t>(value / kTenPow16), text);
  return WriteSixteenDigits(value % kTenPow16, text);
}

// At most 39 digits, sixteen of them a step: the third one is below 10^7.
char* WriteWideInteger(Wide value, char* text) {
  if (value < kTenPow16) return WriteInteger(static_cast<uint64_t>(value), text);
  const Wide quotient = value / kTenPow16;
  text = WriteWideInteger(quotient, text);
  return WriteSixteenDigits(static_cast<uint64_t>(value - quotient * kTenPow16), text);
}

// Half to even on the exact value.
uint64_t RoundToUpperHalf(Wide product) {
  const uint64_t odd = static_cast<uint64_t>(product >> 64) & 1;
  const uint64_t tiesToEven = kBelowHalf + odd;
  return static_cast<uint64_t>((product + tiesToEven) >> 64);
}

// From 2^23 on a float is an integer, infinite or not a number.
char* WriteRareText(uint32_t magnitude, char* text) {
  const uint32_t biasedExponent = magnitude >> kMantissaBits;
  const uint32_t mantissa = magnitude & kMantissaMask;
  if (biasedExponent == kExponentOfNoNumber) {
    return std::copy_n(mantissa == 0 ? "inf" : "nan", 3, text);
  }
  const uint64_t significand = mantissa | kImplicitBit;
  const uint32_t shift = biasedExponent - kExponentOfUnit;
  text = shift <= 64 - kMantissaBits - 1 ? WriteInteger(significand << shift, text)
                                         : WriteWideInteger(Wide{significand} << shift, text);
  *text = '.';
  return std::fill_n(text + 1, kDecimals, '0');
}

inline char* WriteText(float value, char* text) {
  const auto bits = std::bit_cast<uint32_t>(value);
  *text = '-';
  text += bits >> 31;

  const uint32_t biasedExponent = bits >> kMantissaBits & 0xFF;
  if (biasedExponent >= kExponentOfUnit) [[unlikely]] {
    return WriteRareText(bits & ~kSignBit, text);
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
