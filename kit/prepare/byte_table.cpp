#include "kit/prepare/byte_table.h"

#ifdef __x86_64__
#include <immintrin.h>
#endif

#include <algorithm>
#include <type_traits>

namespace vorn::kit {
namespace {

template <typename Element>
void LookUpElements(const Element* elements, const ByteRow& row) {
  const uint8_t* from = row.from;
  auto* to = reinterpret_cast<Element*>(row.to);
  for (size_t i = 0; i < row.count; ++i, from += row.fromStep, to += row.toStep) {
    *to = elements[*from];
  }
}

// `function` of the elements as the whole numbers that have as many bytes.
template <typename Function>
void WithElements(size_t elementBytes, const std::byte* elements, const Function& function) {
  switch (elementBytes) {
    case 1:
      return function(reinterpret_cast<const uint8_t*>(elements));
    case 2:
      return function(reinterpret_cast<const uint16_t*>(elements));
    case 4:
      return function(reinterpret_cast<const uint32_t*>(elements));
    default:
      return function(reinterpret_cast<const uint64_t*>(elements));
  }
}

#ifdef __x86_64__
#define VORN_VBMI __attribute__((target("avx512f,avx512bw,avx512vbmi")))

bool HasVbmi() {
  static const bool hasVbmi = __builtin_cpu_supports("avx512f") != 0 &&
                              __builtin_cpu_supports("avx512bw") != 0 &&
                              __builtin_cpu_supports("avx512vbmi") != 0;
  return hasVbmi;
}

// The lowest bits of a mask.
uint64_t Lowest(size_t bits) { return bits < 64 ? (uint64_t{1} << bits) - 1 : ~uint64_t{0}; }

template <size_t kStep>
constexpr std::array<uint8_t, 64> kOrder = [] {
  std::array<uint8_t, 64> order{};
  for (size_t i = 0; i < order.size(); ++i) {
    order[i] = static_cast<uint8_t>((i / 4 % 4 * 16 + i / 16 * 4 + i % 4) * kStep);
  }
  return order;
}();

// Elements of 4 bytes, one behind the other, 64 at a time. The table is taken apart into four of
// bytes, each in four registers, of which an instruction looks 64 bytes up in two. Interleaved by
// bytes and by words, the four results are the elements, in an order that follows from how these
// instructions work within 128 bits each; so the bytes are taken in another order to begin with:
//
//     place 16 · l + 4 · k + j of the vector is byte 16 · k + 4 · l + j of the row
VORN_VBMI void LookUpDwords(const std::array<std::array<uint8_t, kByteValues>, 4>& bytes,
                            const ByteRow& row) {
  __m512i tables[4][4];
  for (size_t i = 0; i < 4; ++i) {
    for (size_t j = 0; j < 4; ++j) tables[i][j] = _mm512_loadu_si512(bytes[i].data() + j * 64);
  }
  const __m512i places = _mm512_loadu_si512((row.fromStep == 1 ? kOrder<1> : kOrder<3>).data());
  // Of a step of 3, those that lie behind the first 128 bytes.
  const __mmask64 areBehind = row.fromStep == 1 ? 0 : _mm512_movepi8_mask(places);
  auto* to = reinterpret_cast<uint32_t*>(row.to);
  for (size_t at = 0; at < row.count; at += 64, to += 64) {
    const uint8_t* from = row.from + at * row.fromStep;
    const size_t left = (row.count - at - 1) * row.fromStep + 1;
    __m512i taken = _mm512_maskz_loadu_epi8(Lowest(left), from);
    if (row.fromStep == 1) {
      taken = _mm512_permutexvar_epi8(places, taken);
    } else {
      const __m512i second = _mm512_maskz_loadu_epi8(left > 64 ? Lowest(left - 64) : 0, from + 64);
      const __m512i third =
          _mm512_maskz_loadu_epi8(left > 128 ? Lowest(left - 128) : 0, from + 128);
      taken = _mm512_permutex2var_epi8(taken, places, second);
      taken = _mm512_mask_permutexvar_epi8(taken, areBehind, places, third);
    }
    const __mmask64 areUpper = _mm512_movepi8_mask(taken);
    __m512i found[4];
    for (size_t i = 0; i < 4; ++i) {
      found[i] = _mm512_mask_blend_epi8(
          areUpper, _mm512_permutex2var_epi8(tables[i][0], taken, tables[i][1]),
          _mm512_permutex2var_epi8(tables[i][2], taken, tables[i][3]));
    }
    const __m512i words[4] = {
        _mm512_unpacklo_epi8(found[0], found[1]), _mm512_unpacklo_epi8(found[2], found[3]),
        _mm512_unpackhi_epi8(found[0], found[1]), _mm512_unpackhi_epi8(found[2], found[3])};
    const __m512i dwords[4] = {
        _mm512_unpacklo_epi16(words[0], words[1]), _mm512_unpackhi_epi16(words[0], words[1]),
        _mm512_unpacklo_epi16(words[2], words[3]), _mm512_unpackhi_epi16(words[2], words[3])};
    const uint64_t isThere = Lowest(row.count - at);
    for (size_t i = 0; i < 4; ++i) {
      _mm512_mask_storeu_epi32(to + i * 16, static_cast<__mmask16>(isThere >> i * 16), dwords[i]);
    }
  }
}
#endif

}  // namespace

ByteTable::ByteTable(size_t elementBytes, std::span<const std::byte> elements)
    : elementBytes_(elementBytes) {
  std::copy(elements.begin(), elements.end(), elements_.begin());
  if (elementBytes != bytes_.size()) return;
  for (size_t value = 0; value < kByteValues; ++value) {
    for (size_t i = 0; i < bytes_.size(); ++i) {
      bytes_[i][value] = static_cast<uint8_t>(elements_[value * elementBytes + i]);
    }
  }
}

void ByteTable::LookUpAnywhere(const ByteRow& row) const {
  WithElements(elementBytes_, elements_.data(),
               [&](const auto* elements) { LookUpElements(elements, row); });
}

void ByteTable::LookUp(const ByteRow& row) const {
#ifdef __x86_64__
  constexpr size_t kLeast = 64;  // fewer are not worth loading the tables
  const bool isFitting = elementBytes_ == sizeof(uint32_t) && row.toStep == 1 &&
                         (row.fromStep == 1 || row.fromStep == 3);
  if (isFitting && row.count >= kLeast && HasVbmi()) {
    LookUpDwords(bytes_, row);
    return;
  }
#endif
  LookUpAnywhere(row);
}

void ByteTable::Fill(uint8_t value, size_t count, std::byte* to, size_t toStep) const {
  if (toStep != 1) return LookUpAnywhere({&value, 0, count, to, toStep});
  WithElements(elementBytes_, elements_.data(), [&](const auto* elements) {
    std::fill_n(reinterpret_cast<std::decay_t<decltype(*elements)>*>(to), count, elements[value]);
  });
}

}  // namespace vorn::kit
