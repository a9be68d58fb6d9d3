// Eight values at once. Each is in a lane of 64 bits all along:
//
//     bits of the float    | sign | exponent | mantissa |      value = m * 2^-s, s from -3 to 150
//     units                m >> s                              below 10^8
//     sixteen digits       f * 5^16 / 2^(s - 16), rounded      f = m mod 2^s; below 2^61.2
//
// The digits of a number come in three steps, from one of eight digits to two of four, to four of
// two, to eight of one, a byte each: dividing is multiplying by the reciprocal, and the remainder
// is left beside the quotient.
//
// Values are prepared 64 at a time and written afterwards. Preparing takes some hundred cycles from
// a float to its digits but hardly any of the processor's units; with the writing in between, too
// few values would be under way at a time.
//
// Only the functions here are for AVX-512, each one by its attribute. With an option for the whole
// file, an inline function of a header could be compiled for it too and, since the linker keeps one
// of several copies, run on a processor without.
#include "output/float_lines.h"

#if defined(__x86_64__)

#include <immintrin.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#define VORN_AVX512 __attribute__((target("avx512f,avx512bw,avx512dq,avx512vl,avx512ifma")))
#define VORN_AVX512_INLINE VORN_AVX512 __attribute__((always_inline)) inline

namespace vorn::run {
namespace {

constexpr size_t kLanes = 8;
constexpr uint64_t kAllLanes = 0xFF;
constexpr size_t kMostPrepared = 64;
constexpr int kDecimals = 16;
constexpr uint32_t kMagnitudeMask = 0x7FFFFFFF;
// Anything larger has more than eight digits in front of the point, or none at all.
constexpr uint32_t kLargestMagnitude = std::bit_cast<uint32_t>(99999992.0F);

// The same number in each lane, in a way that the compiler knows nothing about: otherwise it makes
// the constants anew for every eight values, and replaces multiplications by what takes longer.
VORN_AVX512_INLINE __m512i InEachLane(uint64_t value) {
  __m512i lanes = _mm512_set1_epi64(static_cast<int64_t>(value));
  asm("" : "+v"(lanes));
  return lanes;
}

struct Constants {
  __m512i mantissaMask, implicitBit, highestScale, scaleOfTies, wholeBits, one, belowHalf;
  __m512i fivePow16Low, fivePow16High, perFivePow8, tenPow8;
  __m512i perTenPow4, tenPow4, moveRemainder, perHundred, hundred, perTen, moveUnit;
  __m512i asciiZeros, lastDigit, allOnes, topBits, eight, twenty;
};

VORN_AVX512_INLINE Constants MakeConstants() {
  return {
      .mantissaMask = InEachLane(0x7FFFFF),
      .implicitBit = InEachLane(0x800000),
      .highestScale = InEachLane(154),
      .scaleOfTies = InEachLane(21),
      .wholeBits = InEachLane(64),
      .one = InEachLane(1),
      .belowHalf = InEachLane(0x7FFFFFFFFFFFFFFF),
      .fivePow16Low = InEachLane(152587890625 & 0xFFFFFFFF),
      .fivePow16High = InEachLane(152587890625 >> 32),
      .perFivePow8 = InEachLane(3022314549036573),  // 2^70 / 5^8, rounded up
      .tenPow8 = InEachLane(100000000),
      .perTenPow4 = InEachLane(109951163),  // 2^40 / 10^4, rounded up
      .tenPow4 = InEachLane(10000),
      .moveRemainder = InEachLane(10000 * 65536 - 1),
      .perHundred = InEachLane(5243 * 0x0001000100010001),  // 2^19 / 100, rounded up
      .hundred = InEachLane(100 * 0x0001000100010001),
      .perTen = InEachLane(6554 * 0x0001000100010001),  // 2^16 / 10, rounded up
      .moveUnit = InEachLane((10 * 256 - 1) * 0x0001000100010001),
      .asciiZeros = InEachLane('0' * 0x0101010101010101),
      .lastDigit = InEachLane(uint64_t{1} << 56),
      .allOnes = InEachLane(~uint64_t{0}),
      .topBits = InEachLane(0x8080808080808080),
      .eight = InEachLane(8),
      .twenty = InEachLane(20),
  };
}

// What a line is put together from.
struct Prepared {
  alignas(64) std::array<uint64_t, kMostPrepared> units;  // their text, without leading zeros
  alignas(
      64) std::array<uint64_t, kMostPrepared> pointAt;  // the line's characters before the point
  // Sixteen characters a value. Of eight values those with an even index come first.
  alignas(64) std::array<std::array<char, kDecimals>, kMostPrepared> decimals;
};

struct Parts {
  __m512i units;
  __m512i decimals;  // as an integer below 10^16
};

// The scale is counted from 4 bits below m, so that values up to 2^27 have a shift to the right
// too. Shifts by 64 and more give 0, which is what values have that print as zero. Subnormal ones
// do, so it does not matter that the implicit bit is not theirs.
VORN_AVX512_INLINE Parts Split(__m512i magnitude, const Constants& k) {
  const __m512i scale = _mm512_sub_epi64(k.highestScale, _mm512_srli_epi64(magnitude, 23));
  const __m512i mantissa = _mm512_slli_epi64(
      _mm512_or_si512(_mm512_and_si512(magnitude, k.mantissaMask), k.implicitBit), 4);
  const __m512i units = _mm512_srlv_epi64(mantissa, scale);
  const __m512i fraction =
      _mm512_srli_epi64(_mm512_sub_epi64(mantissa, _mm512_sllv_epi64(units, scale)), 4);

  // At least one bit is rounded away, a zero where the fraction has no more than 16.
  const __m512i lifted = _mm512_sllv_epi64(fraction, _mm512_subs_epu16(k.scaleOfTies, scale));
  const __m512i shift = _mm512_sub_epi64(_mm512_max_epi32(scale, k.scaleOfTies), k.twenty);
  const __m512i product =
      _mm512_add_epi64(_mm512_mul_epu32(lifted, k.fivePow16Low),
                       _mm512_slli_epi64(_mm512_mul_epu32(lifted, k.fivePow16High), 32));
  // Half to even on the exact value.
  const __m512i odd = _mm512_and_si512(_mm512_srlv_epi64(product, shift), k.one);
  const __m512i belowHalf = _mm512_srlv_epi64(k.belowHalf, _mm512_sub_epi64(k.wholeBits, shift));
  const __m512i rounded = _mm512_add_epi64(product, _mm512_add_epi64(belowHalf, odd));
  return {.units = units, .decimals = _mm512_srlv_epi64(rounded, shift)};
}

// Lanes below 10^8, by 10^4.
VORN_AVX512_INLINE __m512i QuotientOfTenPow4(__m512i value, const Constants& k) {
  return _mm512_srli_epi64(_mm512_mul_epu32(value, k.perTenPow4), 40);
}

// From a lane below 10^8 two words below 10^4, the quotient first. q + 2^16 * (v - 10^4 * q) is
// 2^16 * v - (2^16 * 10^4 - 1) * q.
VORN_AVX512_INLINE __m512i WordsOfFour(__m512i value, const Constants& k) {
  return _mm512_sub_epi64(_mm512_slli_epi64(value, 16),
                          _mm512_mul_epu32(QuotientOfTenPow4(value, k), k.moveRemainder));
}

VORN_AVX512_INLINE __m512i QuotientOfHundred(__m512i words, const Constants& k) {
  return _mm512_srli_epi16(_mm512_mulhi_epu16(words, k.perHundred), 3);
}

// From words below 100 two bytes below 10 each, the quotient first.
VORN_AVX512_INLINE __m512i BytesOfOne(__m512i words, const Constants& k) {
  const __m512i tens = _mm512_mulhi_epu16(words, k.perTen);
  return _mm512_sub_epi16(_mm512_slli_epi16(words, 8), _mm512_mullo_epi16(tens, k.moveUnit));
}

// `first` with the lower halves of `second`'s lanes as its upper ones.
VORN_AVX512_INLINE __m512i JoinLowerHalves(__m512i first, __m512i second) {
  constexpr __mmask16 kUpperHalves = 0xAAAA;
  return _mm512_mask_shuffle_epi32(first, kUpperHalves, second, _MM_PERM_CCAA);
}

VORN_AVX512_INLINE void PrepareDecimals(__m512i decimals, const Constants& k, char* texts) {
  // 10^8 is 2^8 * 5^8, and 2^8 is taken off first: the multiplication takes 52 bits.
  const __m512i high = _mm512_srli_epi64(
      _mm512_madd52hi_epu64(_mm512_setzero_si512(), _mm512_srli_epi64(decimals, 8), k.perFivePow8),
      18);
  const __m512i low = _mm512_sub_epi64(decimals, _mm512_mul_epu32(high, k.tenPow8));
  const __m512i fours = JoinLowerHalves(WordsOfFour(high, k), WordsOfFour(low, k));
  const __m512i hundreds = QuotientOfHundred(fours, k);
  const __m512i rests = _mm512_sub_epi16(fours, _mm512_mullo_epi16(hundreds, k.hundred));
  const __m512i former = BytesOfOne(hundreds, k);
  const __m512i latter = BytesOfOne(rests, k);
  const __m512i even = _mm512_or_si512(_mm512_unpacklo_epi16(former, latter), k.asciiZeros);
  const __m512i odd = _mm512_or_si512(_mm512_unpackhi_epi16(former, latter), k.asciiZeros);
  _mm512_store_si512(texts, even);
  _mm512_store_si512(texts + sizeof(__m512i), odd);
}

struct UnitsText {
  __m512i text;          // eight digits, then shifted so that the first one that counts is first
  __m512i leadingZeros;  // how many were shifted out
};

VORN_AVX512_INLINE UnitsText TextOfUnits(__m512i units, const Constants& k) {
  const __m512i quotients = QuotientOfTenPow4(units, k);
  const __m512i remainders = _mm512_sub_epi64(units, _mm512_mul_epu32(quotients, k.tenPow4));
  const __m512i fours = JoinLowerHalves(quotients, remainders);
  const __m512i hundreds = QuotientOfHundred(fours, k);
  const __m512i rests = _mm512_sub_epi16(fours, _mm512_mullo_epi16(hundreds, k.hundred));
  const __m512i digits = BytesOfOne(_mm512_or_si512(hundreds, _mm512_slli_epi32(rests, 16)), k);
  // x ^ (x - 1) is ones up to the lowest one of x; its bytes that are all ones are leading zeros,
  // of which the last digit is none. What adds their top bits up gives 128 for each.
  const __m512i counted = _mm512_or_si512(digits, k.lastDigit);
  const __m512i upToFirst = _mm512_xor_si512(counted, _mm512_add_epi64(counted, k.allOnes));
  const __m512i zeros =
      _mm512_sad_epu8(_mm512_and_si512(upToFirst, k.topBits), _mm512_setzero_si512());
  return {
      .text = _mm512_srlv_epi64(_mm512_or_si512(digits, k.asciiZeros), _mm512_srli_epi64(zeros, 4)),
      .leadingZeros = _mm512_srli_epi64(zeros, 7)};
}

// Eight values. Returns a bit for each that is too large to be prepared.
VORN_AVX512_INLINE uint64_t PrepareEight(const float* values, const Constants& k, size_t at,
                                         Prepared& prepared) {
  const __m256i bits = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(values));
  const __m256i magnitudes = _mm256_and_si256(bits, _mm256_set1_epi32(kMagnitudeMask));
  const uint64_t large = _mm256_cmpgt_epi32_mask(magnitudes, _mm256_set1_epi32(kLargestMagnitude));
  if (large == kAllLanes) return large;

  const Parts parts = Split(_mm512_cvtepu32_epi64(magnitudes), k);
  PrepareDecimals(parts.decimals, k, prepared.decimals[at].data());
  const UnitsText units = TextOfUnits(parts.units, k);
  const __m512i signs = _mm512_cvtepu32_epi64(_mm256_srli_epi32(bits, 31));
  _mm512_store_si512(&prepared.units[at], units.text);
  _mm512_store_si512(&prepared.pointAt[at],
                     _mm512_sub_epi64(_mm512_add_epi64(signs, k.eight), units.leadingZeros));
  return large;
}

constexpr size_t PlaceOfDecimals(size_t i) {
  return i / kLanes * kLanes + i % 2 * (kLanes / 2) + i % kLanes / 2;
}

// At most 27 characters. The units' eight end before the decimals do.
VORN_AVX512_INLINE char* WriteLine(float value, const Prepared& prepared, size_t i, char* text) {
  *text = '-';
  std::memcpy(text + (std::bit_cast<uint32_t>(value) >> 31), &prepared.units[i], sizeof(uint64_t));
  text += prepared.pointAt[i];
  *text = '.';
  std::memcpy(text + 1, prepared.decimals[PlaceOfDecimals(i)].data(), kDecimals);
  text[1 + kDecimals] = '\n';
  return text + 1 + kDecimals + 1;
}

// `large` has a bit for each value that was not prepared.
VORN_AVX512_INLINE char* WriteEight(const float* values, const Prepared& prepared, size_t at,
                                    uint64_t large, char* text) {
  if (large == 0) [[likely]] {
    for (size_t i = 0; i < kLanes; ++i) text = WriteLine(values[i], prepared, at + i, text);
    return text;
  }
  if (large == kAllLanes) return WriteFloatLinesPlain({values, kLanes}, text);
  for (size_t i = 0; i < kLanes; ++i) {
    text = (large >> i & 1) != 0 ? WriteFloatLinesPlain({values + i, 1}, text)
                                 : WriteLine(values[i], prepared, at + i, text);
  }
  return text;
}

VORN_AVX512 char* WriteAvx512(std::span<const float> values, char* text) {
  const Constants constants = MakeConstants();
  Prepared prepared;
  while (values.size() >= kLanes) {
    const size_t count = std::min(values.size() / kLanes * kLanes, kMostPrepared);
    uint64_t large = 0;
    for (size_t i = 0; i < count; i += kLanes) {
      large |= PrepareEight(values.data() + i, constants, i, prepared) << i;
    }
    for (size_t i = 0; i < count; i += kLanes) {
      text = WriteEight(values.data() + i, prepared, i, large >> i & kAllLanes, text);
    }
    values = values.subspan(count);
  }
  return WriteFloatLinesPlain(values, text);
}

}  // namespace

FloatLinesWriter Avx512FloatLines() {
  // This asks the processor, and whether the operating system keeps the registers.
  const bool isThere = __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
                       __builtin_cpu_supports("avx512dq") && __builtin_cpu_supports("avx512vl") &&
                       __builtin_cpu_supports("avx512ifma");
  return isThere ? WriteAvx512 : nullptr;
}

}  // namespace vorn::run

#else

namespace vorn::run {

FloatLinesWriter Avx512FloatLines() { return nullptr; }

}  // namespace vorn::run

#endif
