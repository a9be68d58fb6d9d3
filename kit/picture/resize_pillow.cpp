// The rules of Pillow. A filter is as wide as it has to be so that no pixel is left out
// (antialias), columns come first and then rows, and the result between them is rounded to the type
// of the picture:
//
//     scale   = box / size             centre of output x = box.left + (x + 0.5) * scale
//     weights = filter((i + 0.5 - centre) / max(scale, 1)), all of one output scaled to the sum 1
//
// uint8 has the weights as whole numbers with 22 bits behind the point. uint16 is mode "I", whose
// whole numbers have 32 bits and a sign between columns and rows; float32 is mode "F". Both are
// added up as doubles, in the order of the pixels.
#ifdef __x86_64__
#include <immintrin.h>
#endif

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>
#include <numbers>
#include <optional>
#include <type_traits>
#include <utility>

#include "kit/picture/resize_rules.h"

namespace vorn::kit {
namespace {

constexpr int kWeightBits = 22;

struct Filter {
  double (*weight)(double);
  double support;
};

double BoxWeight(double x) { return x > -0.5 && x <= 0.5 ? 1 : 0; }

double BilinearWeight(double x) {
  x = std::abs(x);
  return x < 1 ? 1 - x : 0;
}

double HammingWeight(double x) {
  x = std::abs(x);
  if (x == 0) return 1;
  if (x >= 1) return 0;
  x *= std::numbers::pi;
  // These two are floats there, and show in the last bits.
  return std::sin(x) / x * (static_cast<double>(0.54F) + static_cast<double>(0.46F) * std::cos(x));
}

double BicubicWeight(double x) {
  constexpr double kA = -0.5;
  x = std::abs(x);
  if (x < 1) return ((kA + 2) * x - (kA + 3)) * x * x + 1;
  if (x < 2) return (((x - 5) * x + 8) * x - 4) * kA;
  return 0;
}

double Sinc(double x) {
  if (x == 0) return 1;
  x *= std::numbers::pi;
  return std::sin(x) / x;
}

double LanczosWeight(double x) { return x >= -3 && x < 3 ? Sinc(x) * Sinc(x / 3) : 0; }

Filter FilterOf(ResizeRule rule) {
  switch (rule) {
    case ResizeRule::kPilBox:
      return {BoxWeight, 0.5};
    case ResizeRule::kPilHamming:
      return {HammingWeight, 1};
    case ResizeRule::kPilBicubic:
      return {BicubicWeight, 2};
    case ResizeRule::kPilLanczos:
      return {LanczosWeight, 3};
    default:
      return {BilinearWeight, 1};
  }
}

// Which pixels an output takes, and how much of each. `most` weights for each output, side by side.
struct Taps {
  size_t most = 0;
  std::vector<uint32_t> first;
  std::vector<uint32_t> count;
  std::vector<double> weights;

  [[nodiscard]] uint32_t First() const { return first.front(); }
  [[nodiscard]] uint32_t End() const { return first.back() + count.back(); }

  // Of these outputs alone.
  [[nodiscard]] Taps Part(uint32_t begin, uint32_t outputs) const {
    const auto cut = [](const auto& all, size_t from, size_t many) {
      const auto start = all.begin() + static_cast<std::ptrdiff_t>(from);
      return std::decay_t<decltype(all)>(start, start + static_cast<std::ptrdiff_t>(many));
    };
    return {most, cut(first, begin, outputs), cut(count, begin, outputs),
            cut(weights, begin * most, outputs * most)};
  }

  // From now on counted from another pixel.
  void CountFrom(uint32_t pixel) {
    for (uint32_t& place : first) place -= pixel;
  }
};

Taps TapsOf(uint32_t inSize, float from, float to, uint32_t outSize, const Filter& filter) {
  const double scale = static_cast<double>(to - from) / outSize;
  const double widening = std::max(scale, 1.0);
  const double support = filter.support * widening;
  Taps taps;
  taps.most = static_cast<size_t>(std::ceil(support)) * 2 + 1;
  taps.first.resize(outSize);
  taps.count.resize(outSize);
  taps.weights.resize(taps.most * outSize);
  for (uint32_t out = 0; out < outSize; ++out) {
    const double centre = static_cast<double>(from) + (out + 0.5) * scale;
    const double narrowing = 1.0 / widening;
    // Pixels whose centres lie within the support, these rounded half up.
    const double lower = std::max(centre - support + 0.5, 0.0);
    const double upper = centre + support + 0.5;
    const auto first = static_cast<int64_t>(lower);
    const auto end = std::min(static_cast<int64_t>(upper), int64_t{inSize});
    const auto count = static_cast<uint32_t>(end - first);
    double* weights = taps.weights.data() + out * taps.most;
    double sum = 0;
    for (uint32_t i = 0; i < count; ++i) {
      weights[i] = filter.weight((static_cast<double>(i + first) - centre + 0.5) * narrowing);
      sum += weights[i];
    }
    if (sum != 0) {
      for (uint32_t i = 0; i < count; ++i) weights[i] /= sum;
    }
    taps.first[out] = static_cast<uint32_t>(first);
    taps.count[out] = count;
  }
  return taps;
}

// How the values of a type are added up. Value is what a picture has between columns and rows, too.
// Lanes are values that are worked on at once.
struct Bytes {
  using Value = uint8_t;
  using Weight = int32_t;
  using Sum = int32_t;
  static constexpr size_t kLanes = 16;
  static constexpr Sum kStart = 1 << (kWeightBits - 1);
  static Weight WeightOf(double weight) {
    const double scaled = weight * (1 << kWeightBits);
    return static_cast<Weight>(weight < 0 ? scaled - 0.5 : scaled + 0.5);
  }
  static Value ValueOf(Sum sum) {
    return static_cast<Value>(std::clamp(sum >> kWeightBits, 0, 255));
  }
};

struct Integers {
  using Value = int32_t;
  using Weight = double;
  using Sum = double;
  static constexpr size_t kLanes = 8;
  static constexpr Sum kStart = 0;
  static Weight WeightOf(double weight) { return weight; }
  static Value ValueOf(Sum sum) {
    return static_cast<Value>(sum >= 0 ? std::floor(sum + 0.5) : -std::floor(std::abs(sum) + 0.5));
  }
};

struct Floats {
  using Value = float;
  using Weight = double;
  using Sum = double;
  static constexpr size_t kLanes = 8;
  static constexpr Sum kStart = 0;
  static Weight WeightOf(double weight) { return weight; }
  static Value ValueOf(Sum sum) { return static_cast<Value>(sum); }
};

// A picture between columns and rows.
template <typename Value>
using Between = std::vector<Value, UnclearedAllocator<Value>>;

// Rows of values of somebody else's, `values` in each.
template <typename Value>
struct Rows {
  const Value* first;
  size_t values;
  uint32_t count;

  [[nodiscard]] const Value* Row(size_t y) const { return first + y * values; }
};

// Up to 16 of them, and of each the values that are wanted.
struct RowsOfBytes {
  const uint8_t* first;
  size_t stride;
  size_t values;
  size_t count;
};

// Of each output, `stride` of them.
template <typename Kind>
struct Weights {
  std::vector<typename Kind::Weight> values;
  size_t stride;
};

template <typename Kind>
Weights<Kind> WeightsOf(const Taps& taps) {
  Weights<Kind> weights{std::vector<typename Kind::Weight>(taps.weights.size()), taps.most};
  std::transform(taps.weights.begin(), taps.weights.end(), weights.values.begin(), Kind::WeightOf);
  return weights;
}

// What is inlined into a function for a newer processor is compiled for that.
#define VORN_ALWAYS_INLINE inline __attribute__((always_inline))

// As an array of fixed length, whose loops the compiler makes vector instructions of.
template <typename Kind>
struct Sums {
  typename Kind::Sum lanes[Kind::kLanes];

  VORN_ALWAYS_INLINE void Start() {
    for (size_t lane = 0; lane < Kind::kLanes; ++lane) lanes[lane] = Kind::kStart;
  }
  VORN_ALWAYS_INLINE void Add(const typename Kind::Value* values, typename Kind::Weight weight) {
    for (size_t lane = 0; lane < Kind::kLanes; ++lane) lanes[lane] += values[lane] * weight;
  }
  VORN_ALWAYS_INLINE void Store(typename Kind::Value* to) const {
    for (size_t lane = 0; lane < Kind::kLanes; ++lane) to[lane] = Kind::ValueOf(lanes[lane]);
  }
};

// Columns of several rows at once, which lie beside each other: from[place][channel][row], and so
// `to`.
template <typename Kind>
VORN_ALWAYS_INLINE void ResizeColumnsOfBlock(const typename Kind::Value* from, uint32_t channels,
                                             const Taps& taps, const Weights<Kind>& allWeights,
                                             typename Kind::Value* to) {
  const size_t pixel = channels * Kind::kLanes;
  const typename Kind::Weight* weights = allWeights.values.data();
  for (size_t x = 0; x < taps.first.size(); ++x, weights += allWeights.stride) {
    const typename Kind::Value* first = from + taps.first[x] * pixel;
    const uint32_t count = taps.count[x];
    for (uint32_t c = 0; c < channels; ++c, first += Kind::kLanes, to += Kind::kLanes) {
      Sums<Kind> sums;
      sums.Start();
      for (uint32_t i = 0; i < count; ++i) sums.Add(first + i * pixel, weights[i]);
      sums.Store(to);
    }
  }
}

// One row out of those that it takes, the first of which is `from`.
template <typename Kind>
VORN_ALWAYS_INLINE void ResizeOneRow(const typename Kind::Value* from, size_t values,
                                     uint32_t count, const typename Kind::Weight* weights,
                                     typename Kind::Value* to) {
  size_t x = 0;
  for (; x + Kind::kLanes <= values; x += Kind::kLanes) {
    Sums<Kind> sums;
    sums.Start();
    for (uint32_t i = 0; i < count; ++i) sums.Add(from + i * values + x, weights[i]);
    sums.Store(to + x);
  }
  for (; x < values; ++x) {
    typename Kind::Sum sum = Kind::kStart;
    for (uint32_t i = 0; i < count; ++i) sum += from[i * values + x] * weights[i];
    to[x] = Kind::ValueOf(sum);
  }
}

// What a block of rows becomes at the new width, and what rows become together.
template <typename Kind>
struct Loops {
  Weights<Kind> (*weights)(const Taps&);
  void (*columns)(const typename Kind::Value*, uint32_t channels, const Taps&, const Weights<Kind>&,
                  typename Kind::Value*);
  void (*row)(const typename Kind::Value*, size_t values, uint32_t count,
              const typename Kind::Weight*, typename Kind::Value*);
};

template <typename Kind>
void ResizeColumnsAnywhere(const typename Kind::Value* from, uint32_t channels, const Taps& taps,
                           const Weights<Kind>& weights, typename Kind::Value* to) {
  ResizeColumnsOfBlock<Kind>(from, channels, taps, weights, to);
}

template <typename Kind>
void ResizeRowAnywhere(const typename Kind::Value* from, size_t values, uint32_t count,
                       const typename Kind::Weight* weights, typename Kind::Value* to) {
  ResizeOneRow<Kind>(from, values, count, weights, to);
}

template <typename Kind>
constexpr Loops<Kind> kLoopsAnywhere{WeightsOf<Kind>, ResizeColumnsAnywhere<Kind>,
                                     ResizeRowAnywhere<Kind>};

#ifdef __x86_64__
template <typename Kind>
__attribute__((target("avx2"))) void ResizeColumnsWithAvx2(const typename Kind::Value* from,
                                                           uint32_t channels, const Taps& taps,
                                                           const Weights<Kind>& weights,
                                                           typename Kind::Value* to) {
  ResizeColumnsOfBlock<Kind>(from, channels, taps, weights, to);
}

template <typename Kind>
__attribute__((target("avx2"))) void ResizeRowWithAvx2(const typename Kind::Value* from,
                                                       size_t values, uint32_t count,
                                                       const typename Kind::Weight* weights,
                                                       typename Kind::Value* to) {
  ResizeOneRow<Kind>(from, values, count, weights, to);
}

// ---- Bytes by two taps at once. A processor multiplies pairs of words, and adds each two
// products, as fast as it does anything; whole numbers of 32 bits it multiplies slowly. So a weight
// is two words, of its lower 15 bits and of what is above them:
//
//     sum = pixels · lower + (pixels · upper << 15)      of 32 bits that wrap around, as all sums
//     do
//
// A weight is less than 2^30 by far: 1 is 2^22, and no filter goes beyond 2.
//
//     weights   output 0 | output 1 | …
//     output    lower words of taps 0 and 1 | upper words of them | those of 2 and 3 | …
constexpr int kLowerBits = 15;

int32_t Words(int32_t first, int32_t second) {
  return static_cast<int32_t>((static_cast<uint32_t>(first) & 0xffff) |
                              static_cast<uint32_t>(second) << 16);
}

Weights<Bytes> PairedWeights(const Taps& taps) {
  constexpr int32_t kLower = (1 << kLowerBits) - 1;
  const size_t stride = (taps.most + 1) / 2 * 2;
  Weights<Bytes> weights{std::vector<int32_t>(stride * taps.first.size()), stride};
  for (size_t out = 0; out < taps.first.size(); ++out) {
    const double* from = taps.weights.data() + out * taps.most;
    int32_t* to = weights.values.data() + out * stride;
    for (size_t i = 0; i < taps.count[out]; i += 2) {
      const int32_t first = Bytes::WeightOf(from[i]);
      const int32_t second = i + 1 < taps.count[out] ? Bytes::WeightOf(from[i + 1]) : 0;
      to[i] = Words(first & kLower, second & kLower);
      to[i + 1] = Words(first >> kLowerBits, second >> kLowerBits);
    }
  }
  return weights;
}

// The 16 sums of a vector of bytes, four a vector.
struct SumsOfSse2 {
  __m128i lower[4];
  __m128i upper[4];

  VORN_ALWAYS_INLINE void Start() {
    for (__m128i& sum : lower) sum = _mm_set1_epi32(Bytes::kStart);
    for (__m128i& sum : upper) sum = _mm_setzero_si128();
  }
  VORN_ALWAYS_INLINE void Add(const uint8_t* first, const uint8_t* second, const int32_t* weights) {
    const __m128i one = _mm_loadu_si128(reinterpret_cast<const __m128i*>(first));
    const __m128i other = _mm_loadu_si128(reinterpret_cast<const __m128i*>(second));
    const __m128i low = _mm_unpacklo_epi8(one, other);
    const __m128i high = _mm_unpackhi_epi8(one, other);
    const __m128i zero = _mm_setzero_si128();
    const __m128i words[4] = {_mm_unpacklo_epi8(low, zero), _mm_unpackhi_epi8(low, zero),
                              _mm_unpacklo_epi8(high, zero), _mm_unpackhi_epi8(high, zero)};
    const __m128i lowers = _mm_set1_epi32(weights[0]);
    const __m128i uppers = _mm_set1_epi32(weights[1]);
    for (size_t i = 0; i < 4; ++i) {
      lower[i] = _mm_add_epi32(lower[i], _mm_madd_epi16(words[i], lowers));
      upper[i] = _mm_add_epi32(upper[i], _mm_madd_epi16(words[i], uppers));
    }
  }
  VORN_ALWAYS_INLINE void Store(uint8_t* to) const {
    __m128i sums[4];
    for (size_t i = 0; i < 4; ++i) {
      sums[i] = _mm_srai_epi32(_mm_add_epi32(lower[i], _mm_slli_epi32(upper[i], kLowerBits)),
                               kWeightBits);
    }
    _mm_storeu_si128(
        reinterpret_cast<__m128i*>(to),
        _mm_packus_epi16(_mm_packs_epi32(sums[0], sums[1]), _mm_packs_epi32(sums[2], sums[3])));
  }
};

// The same, eight a vector.
struct SumsOfAvx2 {
  __m256i lower[2];
  __m256i upper[2];

  __attribute__((target("avx2"))) VORN_ALWAYS_INLINE void Start() {
    for (__m256i& sum : lower) sum = _mm256_set1_epi32(Bytes::kStart);
    for (__m256i& sum : upper) sum = _mm256_setzero_si256();
  }
  __attribute__((target("avx2"))) VORN_ALWAYS_INLINE void Add(const uint8_t* first,
                                                              const uint8_t* second,
                                                              const int32_t* weights) {
    const __m128i one = _mm_loadu_si128(reinterpret_cast<const __m128i*>(first));
    const __m128i other = _mm_loadu_si128(reinterpret_cast<const __m128i*>(second));
    const __m256i words[2] = {_mm256_cvtepu8_epi16(_mm_unpacklo_epi8(one, other)),
                              _mm256_cvtepu8_epi16(_mm_unpackhi_epi8(one, other))};
    const __m256i lowers = _mm256_set1_epi32(weights[0]);
    const __m256i uppers = _mm256_set1_epi32(weights[1]);
    for (size_t i = 0; i < 2; ++i) {
      lower[i] = _mm256_add_epi32(lower[i], _mm256_madd_epi16(words[i], lowers));
      upper[i] = _mm256_add_epi32(upper[i], _mm256_madd_epi16(words[i], uppers));
    }
  }
  __attribute__((target("avx2"))) VORN_ALWAYS_INLINE void Store(uint8_t* to) const {
    __m256i sums[2];
    for (size_t i = 0; i < 2; ++i) {
      sums[i] = _mm256_srai_epi32(
          _mm256_add_epi32(lower[i], _mm256_slli_epi32(upper[i], kLowerBits)), kWeightBits);
    }
    const __m256i words = _mm256_permute4x64_epi64(_mm256_packs_epi32(sums[0], sums[1]), 0xd8);
    _mm_storeu_si128(
        reinterpret_cast<__m128i*>(to),
        _mm_packus_epi16(_mm256_castsi256_si128(words), _mm256_extracti128_si256(words, 1)));
  }
};

// So many vectors of sums beside each other, `stride` from one tap to the next. The last tap of an
// odd number is taken twice, once for nothing.
using PairsFunction = void (*)(const uint8_t* first, size_t stride, uint32_t count,
                               const int32_t* weights, size_t vectors, uint8_t* to);

void AddPairsWithSse2(const uint8_t* first, size_t stride, uint32_t count, const int32_t* weights,
                      size_t vectors, uint8_t* to) {
  for (; vectors > 0; --vectors, first += Bytes::kLanes, to += Bytes::kLanes) {
    const uint8_t* tap = first;
    SumsOfSse2 sums;
    sums.Start();
    uint32_t i = 0;
    for (; i + 2 <= count; i += 2, tap += 2 * stride) sums.Add(tap, tap + stride, weights + i);
    if (i < count) sums.Add(tap, tap, weights + i);
    sums.Store(to);
  }
}

// The same again: a function for a newer processor is not inlined into one for all.
__attribute__((target("avx2"))) void AddPairsWithAvx2(const uint8_t* first, size_t stride,
                                                      uint32_t count, const int32_t* weights,
                                                      size_t vectors, uint8_t* to) {
  for (; vectors > 0; --vectors, first += Bytes::kLanes, to += Bytes::kLanes) {
    const uint8_t* tap = first;
    SumsOfAvx2 sums;
    sums.Start();
    uint32_t i = 0;
    for (; i + 2 <= count; i += 2, tap += 2 * stride) sums.Add(tap, tap + stride, weights + i);
    if (i < count) sums.Add(tap, tap, weights + i);
    sums.Store(to);
  }
}

template <PairsFunction kAddPairs>
void ResizePairedColumns(const uint8_t* from, uint32_t channels, const Taps& taps,
                         const Weights<Bytes>& weights, uint8_t* to) {
  const size_t pixel = channels * Bytes::kLanes;
  for (size_t x = 0; x < taps.first.size(); ++x, to += pixel) {
    kAddPairs(from + taps.first[x] * pixel, pixel, taps.count[x],
              weights.values.data() + x * weights.stride, channels, to);
  }
}

// Of less than a vector, value by value.
void ResizeShortRow(const uint8_t* from, size_t values, uint32_t count, const int32_t* weights,
                    uint8_t* to) {
  for (size_t x = 0; x < values; ++x) {
    uint32_t sum = Bytes::kStart;
    for (uint32_t i = 0; i < count; ++i) {
      const int shift = i % 2 * 16;
      const uint32_t lower = static_cast<uint32_t>(weights[i / 2 * 2]) >> shift & 0xffff;
      const int32_t upper = static_cast<int16_t>(weights[i / 2 * 2 + 1] >> shift);
      sum += from[i * values + x] * (lower + (static_cast<uint32_t>(upper) << kLowerBits));
    }
    to[x] = Bytes::ValueOf(static_cast<int32_t>(sum));
  }
}

template <PairsFunction kAddPairs>
void ResizePairedRow(const uint8_t* from, size_t values, uint32_t count, const int32_t* weights,
                     uint8_t* to) {
  if (values < Bytes::kLanes) return ResizeShortRow(from, values, count, weights, to);
  kAddPairs(from, values, count, weights, values / Bytes::kLanes, to);
  // What is left, and some of what was there again.
  const size_t last = values - Bytes::kLanes;
  if (values % Bytes::kLanes != 0) kAddPairs(from + last, values, count, weights, 1, to + last);
}

// ---- Bytes by four taps at once, for processors that add up four products of bytes. A weight is
// three signed digits of 256:
//
//     sum = pixels · digit 0 + (pixels · digit 1 << 8) + (pixels · digit 2 << 16)
//
// Rows are cut into fours of pixels, counted from the left border; what a four has of pixels that
// an output does not take has the weight 0.
//
//     block     four 0 | four 1 | …          of 16 rows
//     four      channel 0 | channel 1 | …
//     channel   row 0 | row 1 | …            of each row the four bytes
#define VORN_AVX512 __attribute__((target("avx512f,avx512bw,avx512vl,avx512vbmi,avx512vnni")))
constexpr size_t kDigits = 3;

struct FourTaps {
  size_t most = 0;
  std::vector<size_t> first;
  std::vector<size_t> count;
  std::vector<int32_t> digits;  // of a four the four digits 0, the four digits 1, the four digits 2
};

// None where a weight has more digits.
std::optional<FourTaps> FourTapsOf(const Taps& taps) {
  FourTaps fours;
  fours.most = (taps.most + 3 + 3) / 4;
  fours.digits.resize(fours.most * kDigits * taps.first.size());
  for (size_t out = 0; out < taps.first.size(); ++out) {
    const size_t lead = taps.first[out] % 4;
    fours.first.push_back(taps.first[out] / 4);
    fours.count.push_back((lead + taps.count[out] + 3) / 4);
    int32_t* to = fours.digits.data() + out * fours.most * kDigits;
    for (size_t i = 0; i < taps.count[out]; ++i) {
      int32_t rest = Bytes::WeightOf(taps.weights[out * taps.most + i]);
      const size_t place = lead + i;
      for (size_t digit = 0; digit < kDigits; ++digit) {
        const auto lowest = static_cast<int8_t>(rest & 0xff);
        to[place / 4 * kDigits + digit] |=
            static_cast<int32_t>(static_cast<uint32_t>(rest & 0xff) << place % 4 * 8);
        rest = (rest - lowest) / 256;
      }
      if (rest != 0) return std::nullopt;
    }
  }
  return fours;
}

VORN_AVX512 void TransposeDwords(__m512i* vectors) {
  __m512i pairs[16];
  for (size_t i = 0; i < 16; i += 2) {
    pairs[i] = _mm512_unpacklo_epi32(vectors[i], vectors[i + 1]);
    pairs[i + 1] = _mm512_unpackhi_epi32(vectors[i], vectors[i + 1]);
  }
  __m512i fours[16];
  for (size_t i = 0; i < 16; i += 4) {
    fours[i] = _mm512_unpacklo_epi64(pairs[i], pairs[i + 2]);
    fours[i + 1] = _mm512_unpackhi_epi64(pairs[i], pairs[i + 2]);
    fours[i + 2] = _mm512_unpacklo_epi64(pairs[i + 1], pairs[i + 3]);
    fours[i + 3] = _mm512_unpackhi_epi64(pairs[i + 1], pairs[i + 3]);
  }
  for (size_t i = 0; i < 4; ++i) {
    const __m512i even = _mm512_shuffle_i32x4(fours[i], fours[4 + i], 0x88);
    const __m512i odd = _mm512_shuffle_i32x4(fours[i], fours[4 + i], 0xdd);
    const __m512i evenBelow = _mm512_shuffle_i32x4(fours[8 + i], fours[12 + i], 0x88);
    const __m512i oddBelow = _mm512_shuffle_i32x4(fours[8 + i], fours[12 + i], 0xdd);
    vectors[i] = _mm512_shuffle_i32x4(even, evenBelow, 0x88);
    vectors[8 + i] = _mm512_shuffle_i32x4(even, evenBelow, 0xdd);
    vectors[4 + i] = _mm512_shuffle_i32x4(odd, oddBelow, 0x88);
    vectors[12 + i] = _mm512_shuffle_i32x4(odd, oddBelow, 0xdd);
  }
}

// Of up to 16 rows; those that are missing hold what the last one does.
VORN_AVX512 void CutIntoFours(const RowsOfBytes& rows, size_t channels, uint8_t* block) {
  const size_t taken = 16 / channels * channels;  // vectors of the block that 16 loads make
  alignas(64) uint8_t order[64];
  for (size_t i = 0; i < 64; ++i) {
    const size_t four = i / 4 / channels;
    const size_t channel = i / 4 % channels;
    order[i] = static_cast<uint8_t>((four * 4 + i % 4) * channels + channel);
  }
  const __m512i places = _mm512_load_si512(order);
  for (size_t at = 0; at < rows.values; at += taken * 4, block += taken * 64) {
    const size_t left = rows.values - at;
    const __mmask64 isThere = left < 64 ? (uint64_t{1} << left) - 1 : ~uint64_t{0};
    __m512i vectors[16];
    for (size_t row = 0; row < 16; ++row) {
      const uint8_t* bytes = rows.first + std::min(row, rows.count - 1) * rows.stride + at;
      vectors[row] = _mm512_permutexvar_epi8(places, _mm512_maskz_loadu_epi8(isThere, bytes));
    }
    TransposeDwords(vectors);
    for (size_t i = 0; i < taken; ++i) _mm512_storeu_si512(block + i * 64, vectors[i]);
  }
}

// All channels of an output at once: they take the same weights.
template <size_t kChannels>
VORN_AVX512 void AddFours(const uint8_t* block, const FourTaps& taps, uint8_t* to) {
  for (size_t x = 0; x < taps.first.size(); ++x) {
    const int32_t* digits = taps.digits.data() + x * taps.most * kDigits;
    const uint8_t* pixels = block + taps.first[x] * kChannels * 64;
    __m512i sums[kChannels][kDigits];
    for (auto& sum : sums) {
      sum[0] = _mm512_set1_epi32(Bytes::kStart);
      sum[1] = _mm512_setzero_si512();
      sum[2] = _mm512_setzero_si512();
    }
    for (size_t i = 0; i < taps.count[x]; ++i, digits += kDigits) {
      const __m512i weights[kDigits] = {_mm512_set1_epi32(digits[0]), _mm512_set1_epi32(digits[1]),
                                        _mm512_set1_epi32(digits[2])};
      for (size_t c = 0; c < kChannels; ++c, pixels += 64) {
        const __m512i bytes = _mm512_loadu_si512(pixels);
        for (size_t digit = 0; digit < kDigits; ++digit) {
          sums[c][digit] = _mm512_dpbusd_epi32(sums[c][digit], bytes, weights[digit]);
        }
      }
    }
    for (const auto& [digit0, digit1, digit2] : sums) {
      const __m512i upper =
          _mm512_add_epi32(_mm512_slli_epi32(digit1, 8), _mm512_slli_epi32(digit2, 16));
      const __m512i sum = _mm512_srai_epi32(_mm512_add_epi32(digit0, upper), kWeightBits);
      _mm_storeu_si128(reinterpret_cast<__m128i*>(to),
                       _mm512_cvtusepi32_epi8(_mm512_max_epi32(sum, _mm512_setzero_si512())));
      to += Bytes::kLanes;
    }
  }
}

auto AddFoursOf(uint32_t channels) {
  switch (channels) {
    case 1:
      return AddFours<1>;
    case 2:
      return AddFours<2>;
    case 3:
      return AddFours<3>;
    default:
      return AddFours<4>;
  }
}

template <typename Kind>
Loops<Kind> LoopsOf(Instructions instructions) {
  if (instructions < Instructions::kAvx2) return kLoopsAnywhere<Kind>;
  return {WeightsOf<Kind>, ResizeColumnsWithAvx2<Kind>, ResizeRowWithAvx2<Kind>};
}

template <>
Loops<Bytes> LoopsOf<Bytes>(Instructions instructions) {
  switch (instructions) {
    case Instructions::kAvx512:  // of rows, too: there are few
    case Instructions::kAvx2:
      return {PairedWeights, ResizePairedColumns<AddPairsWithAvx2>,
              ResizePairedRow<AddPairsWithAvx2>};
    case Instructions::kSse2:
      return {PairedWeights, ResizePairedColumns<AddPairsWithSse2>,
              ResizePairedRow<AddPairsWithSse2>};
    case Instructions::kPlain:
      break;
  }
  return kLoopsAnywhere<Bytes>;
}
#else
template <typename Kind>
Loops<Kind> LoopsOf(Instructions) {
  return kLoopsAnywhere<Kind>;
}
#endif

// to[column][row] = from[row][column]; strides from one row to the next.
template <typename Value>
void Transpose(const Value* from, size_t fromStride, size_t rows, size_t columns, Value* to,
               size_t toStride) {
  for (size_t row = 0; row < rows; ++row) {
    for (size_t column = 0; column < columns; ++column) {
      to[column * toStride + row] = from[row * fromStride + column];
    }
  }
}

// 16 times 16 bytes: four times, each vector of the one half is interleaved with one of the other.
typedef uint8_t SixteenBytes __attribute__((vector_size(16)));

VORN_ALWAYS_INLINE void Interleave(const SixteenBytes* from, SixteenBytes* to) {
  for (size_t i = 0; i < 8; ++i) {
    to[2 * i] = __builtin_shufflevector(from[i], from[i + 8], 0, 16, 1, 17, 2, 18, 3, 19, 4, 20, 5,
                                        21, 6, 22, 7, 23);
    to[2 * i + 1] = __builtin_shufflevector(from[i], from[i + 8], 8, 24, 9, 25, 10, 26, 11, 27, 12,
                                            28, 13, 29, 14, 30, 15, 31);
  }
}

void TransposeSquare(const uint8_t* from, size_t fromStride, uint8_t* to, size_t toStride) {
  SixteenBytes vectors[2][16];
  for (size_t i = 0; i < 16; ++i) std::memcpy(&vectors[0][i], from + i * fromStride, 16);
  Interleave(vectors[0], vectors[1]);
  Interleave(vectors[1], vectors[0]);
  Interleave(vectors[0], vectors[1]);
  Interleave(vectors[1], vectors[0]);
  for (size_t i = 0; i < 16; ++i) std::memcpy(to + i * toStride, &vectors[0][i], 16);
}

void Transpose(const uint8_t* from, size_t fromStride, size_t rows, size_t columns, uint8_t* to,
               size_t toStride) {
  const size_t wholeRows = rows / 16 * 16;
  const size_t wholeColumns = columns / 16 * 16;
  for (size_t row = 0; row < wholeRows; row += 16) {
    for (size_t column = 0; column < wholeColumns; column += 16) {
      TransposeSquare(from + row * fromStride + column, fromStride, to + column * toStride + row,
                      toStride);
    }
  }
  Transpose<uint8_t>(from + wholeColumns, fromStride, wholeRows, columns - wholeColumns,
                     to + wholeColumns * toStride, toStride);
  Transpose<uint8_t>(from + wholeRows * fromStride, fromStride, rows - wholeRows, columns,
                     to + wholeRows, toStride);
}

// Rows from `offset` on, at the new width; as many as `to` has room for.
template <typename Kind>
void ResizeColumns(const Rows<typename Kind::Value>& from, uint32_t channels, const Taps& taps,
                   uint32_t offset, const Loops<Kind>& loops, Between<typename Kind::Value>& to) {
  using Value = typename Kind::Value;
  const auto weights = loops.weights(taps);
  const size_t values = taps.first.size() * channels;
  const size_t count = to.size() / values;
  std::vector<Value> block(from.values * Kind::kLanes);
  std::vector<Value> resized(values * Kind::kLanes);
  for (size_t y = 0; y < count; y += Kind::kLanes) {
    const size_t rows = std::min(Kind::kLanes, count - y);  // the other lanes hold anything
    Transpose(from.Row(offset + y), from.values, rows, from.values, block.data(), Kind::kLanes);
    loops.columns(block.data(), channels, taps, weights, resized.data());
    Transpose(resized.data(), Kind::kLanes, values, rows, to.data() + y * values, values);
  }
}

// `offset`: which row of the picture is the first of `from`.
template <typename Kind>
void ResizeRows(const Rows<typename Kind::Value>& from, const Taps& taps, uint32_t offset,
                const Loops<Kind>& loops, typename Kind::Value* to) {
  const auto weights = loops.weights(taps);
  for (size_t y = 0; y < taps.first.size(); ++y, to += from.values) {
    loops.row(from.Row(taps.first[y] - offset), from.values, taps.count[y],
              weights.values.data() + y * weights.stride, to);
  }
}

// How a picture becomes another one.
struct Plan {
  uint32_t channels;
  uint32_t width;
  uint32_t height;
  uint32_t newWidth;
  uint32_t newHeight;
  Filter filter;
  ResizeBox box;
  Instructions instructions;

  [[nodiscard]] bool NeedsColumns() const {
    return width != newWidth || box.left != 0 || box.right != static_cast<float>(newWidth);
  }
  [[nodiscard]] bool NeedsRows() const {
    return height != newHeight || box.top != 0 || box.bottom != static_cast<float>(newHeight);
  }
};

template <typename Kind>
void ResizeValues(const typename Kind::Value* from, const Plan& plan, typename Kind::Value* to) {
  using Value = typename Kind::Value;
  Rows<Value> rows{from, size_t{plan.width} * plan.channels, plan.height};
  const Taps down = TapsOf(plan.height, plan.box.top, plan.box.bottom, plan.newHeight, plan.filter);
  uint32_t offset = 0;
  Between<Value> between;
  if (plan.NeedsColumns()) {
    const Taps across =
        TapsOf(plan.width, plan.box.left, plan.box.right, plan.newWidth, plan.filter);
    // All rows that a row of the result takes.
    if (plan.NeedsRows()) {
      offset = down.First();
      rows.count = down.End() - offset;
    }
    const size_t values = size_t{plan.newWidth} * plan.channels;
    between.resize(values * rows.count);
    ResizeColumns<Kind>(rows, plan.channels, across, offset, LoopsOf<Kind>(plan.instructions),
                        between);
    rows.first = between.data();
    rows.values = values;
  }
  if (plan.NeedsRows()) {
    ResizeRows<Kind>(rows, down, offset, LoopsOf<Kind>(plan.instructions), to);
  } else {
    std::copy_n(rows.first, rows.values * rows.count, to);
  }
}

// Columns of rows of bytes, 16 rows at a time.
class ByteColumns {
 public:
  // `across`: of the outputs that are wanted.
  ByteColumns(Taps across, uint32_t channels, Instructions instructions)
      : taps_(std::move(across)), channels_(channels), loops_(LoopsOf<Bytes>(instructions)) {
    firstValue_ = size_t{taps_.First()} * channels;
    taps_.CountFrom(taps_.First());
    values_ = size_t{taps_.End()} * channels;
    resized_.resize(taps_.first.size() * channels * Bytes::kLanes);
#ifdef __x86_64__
    if (instructions == Instructions::kAvx512) fours_ = FourTapsOf(taps_);
    if (fours_) {
      // As much as the loads make, of which the last one may reach beyond the row.
      block_.resize((values_ / 4 + 2 * 16) * 64);
      return;
    }
#endif
    weights_ = loops_.weights(taps_);
    block_.resize(values_ * Bytes::kLanes);
  }

  // Of `count` rows, 16 at most, `stride` from one to the next.
  void Resize(const uint8_t* rows, size_t stride, size_t count, uint8_t* to) {
    rows += firstValue_;
#ifdef __x86_64__
    if (fours_) {
      CutIntoFours({rows, stride, values_, count}, channels_, block_.data());
      AddFoursOf(channels_)(block_.data(), *fours_, resized_.data());
    } else
#endif
    {
      Transpose(rows, stride, count, values_, block_.data(), Bytes::kLanes);
      loops_.columns(block_.data(), channels_, taps_, weights_, resized_.data());
    }
    const size_t values = taps_.first.size() * channels_;
    Transpose(resized_.data(), Bytes::kLanes, values, count, to, values);
  }

 private:
  Taps taps_;
  uint32_t channels_;
  Loops<Bytes> loops_;
  size_t firstValue_ = 0;  // of a row
  size_t values_ = 0;      // of a row that are taken, from there on
  Weights<Bytes> weights_{};
#ifdef __x86_64__
  std::optional<FourTaps> fours_;
#endif
  Between<uint8_t> block_;
  Between<uint8_t> resized_;
};

// Rows of bytes as they come. What rows below still need stays at the new width, and no more.
class PillowRows final : public RowResizer {
 public:
  PillowRows(const Plan& plan, const PixelWindow& window, TakeRow take)
      : take_(std::move(take)),
        stride_(size_t{plan.width} * plan.channels),
        values_(size_t{window.width} * plan.channels),
        firstValue_(size_t{window.left} * plan.channels),
        first_(window.top),
        end_(window.top + window.height) {
    if (plan.NeedsColumns()) {
      const Taps across =
          TapsOf(plan.width, plan.box.left, plan.box.right, plan.newWidth, plan.filter);
      columns_.emplace(across.Part(window.left, window.width), plan.channels, plan.instructions);
    }
    if (plan.NeedsRows()) {
      const Taps down =
          TapsOf(plan.height, plan.box.top, plan.box.bottom, plan.newHeight, plan.filter);
      down_ = down.Part(window.top, window.height);
      first_ = down_->First();
      end_ = down_->End();
      loops_ = LoopsOf<Bytes>(plan.instructions);
      weights_ = loops_.weights(*down_);
    }
    keptFrom_ = narrowed_ = first_;
    kept_.resize(values_ * Room());
    row_.resize(values_);
  }

  void Add(const uint8_t* rows, uint32_t count) override {
    uint32_t y = std::max(next_, first_);
    const uint32_t end = std::min(next_ + count, end_);
    const uint8_t* from = rows + (y - next_) * stride_;
    next_ += count;
    while (y < end) {
      const auto many = static_cast<uint32_t>(std::min<size_t>(Bytes::kLanes, end - y));
      Narrow(from, many);
      TakeFinished();
      y += many;
      from += many * stride_;
    }
  }

 private:
  // Rows that are kept at most: moving them up is seldom.
  [[nodiscard]] size_t Room() const { return (down_ ? down_->most : 0) + 4 * Bytes::kLanes; }

  // The next ones, to behind those that are kept.
  void Narrow(const uint8_t* from, uint32_t count) {
    if (narrowed_ + count - keptFrom_ > Room()) {
      const uint32_t needed = down_ ? std::min(down_->first[done_], narrowed_) : narrowed_;
      uint8_t* const kept = kept_.data();
      std::copy(kept + (needed - keptFrom_) * values_, kept + (narrowed_ - keptFrom_) * values_,
                kept);
      keptFrom_ = needed;
    }
    uint8_t* to = kept_.data() + (narrowed_ - keptFrom_) * values_;
    narrowed_ += count;
    if (columns_) return columns_->Resize(from, stride_, count, to);
    for (uint32_t i = 0; i < count; ++i, to += values_) {
      std::copy_n(from + i * stride_ + firstValue_, values_, to);
    }
  }

  void TakeFinished() {
    if (!down_) {
      const uint32_t rows = narrowed_ - first_;
      for (; done_ < rows; ++done_) take_(done_, KeptRow(first_ + done_));
      return;
    }
    while (done_ < down_->first.size() && down_->first[done_] + down_->count[done_] <= narrowed_) {
      loops_.row(KeptRow(down_->first[done_]), values_, down_->count[done_],
                 weights_.values.data() + done_ * weights_.stride, row_.data());
      take_(done_, row_.data());
      ++done_;
    }
  }

  [[nodiscard]] const uint8_t* KeptRow(uint32_t y) const {
    return kept_.data() + (y - keptFrom_) * values_;
  }

  TakeRow take_;
  size_t stride_;      // of the rows that come
  size_t values_;      // of a row at the new width
  size_t firstValue_;  // of a row whose width stays
  uint32_t first_;     // row that is taken of those that come
  uint32_t end_;
  uint32_t next_ = 0;      // row to come
  uint32_t narrowed_ = 0;  // the row behind those that are kept
  uint32_t keptFrom_ = 0;
  uint32_t done_ = 0;  // rows of the result
  std::optional<ByteColumns> columns_;
  std::optional<Taps> down_;
  Loops<Bytes> loops_{};
  Weights<Bytes> weights_{};
  Between<uint8_t> kept_;
  Between<uint8_t> row_;
};

void ResizeBytes(const Picture& picture, const Plan& plan, Picture& resized) {
  PillowRows rows(plan, {0, 0, plan.newWidth, plan.newHeight}, [&](uint32_t y, const uint8_t* row) {
    std::copy_n(row, resized.RowValues(), resized.Row<uint8_t>(y));
  });
  rows.Add(picture.Row<uint8_t>(0), picture.height);
}

// By way of mode "I".
void ResizeWholeNumbers(const Picture& picture, const Plan& plan, Picture& resized) {
  const auto* from = picture.Row<uint16_t>(0);
  const std::vector<int32_t> values(from, from + picture.RowValues() * picture.height);
  std::vector<int32_t> results(resized.RowValues() * resized.height);
  ResizeValues<Integers>(values.data(), plan, results.data());
  std::transform(results.begin(), results.end(), resized.Row<uint16_t>(0),
                 [](int32_t value) { return static_cast<uint16_t>(std::clamp(value, 0, 65535)); });
}

uint8_t Of255(unsigned product) {
  product += 128;
  return static_cast<uint8_t>(((product >> 8) + product) >> 8);
}

Picture MultipliedByAlpha(const Picture& picture) {
  Picture multiplied = picture;
  const uint32_t colours = picture.channels - 1;
  auto* values = multiplied.Row<uint8_t>(0);
  for (size_t i = 0; i < multiplied.pixels.size(); i += picture.channels) {
    const unsigned alpha = values[i + colours];
    for (size_t c = i; c < i + colours; ++c) values[c] = Of255(values[c] * alpha);
  }
  return multiplied;
}

void DivideByAlpha(Picture& picture) {
  const uint32_t colours = picture.channels - 1;
  auto* values = picture.Row<uint8_t>(0);
  for (size_t i = 0; i < picture.pixels.size(); i += picture.channels) {
    const unsigned alpha = values[i + colours];
    if (alpha == 0 || alpha == 255) continue;
    for (size_t c = i; c < i + colours; ++c) {
      values[c] = static_cast<uint8_t>(std::min(255U, 255U * values[c] / alpha));
    }
  }
}

// Where each output is taken from: the places are added up, as Pillow does, and not multiplied.
std::vector<uint32_t> NearestPlaces(uint32_t inSize, float from, float to, uint32_t outSize) {
  const double step = static_cast<double>(to - from) / outSize;
  std::vector<uint32_t> places(outSize);
  double place = static_cast<double>(from) + step * 0.5;
  for (uint32_t& taken : places) {
    taken = std::min(static_cast<uint32_t>(place), inSize - 1);
    place += step;
  }
  return places;
}

Picture TakeNearest(const Picture& picture, uint32_t width, uint32_t height, const ResizeBox& box) {
  const auto columns = NearestPlaces(picture.width, box.left, box.right, width);
  const auto rows = NearestPlaces(picture.height, box.top, box.bottom, height);
  const size_t bytes = picture.channels * BytesOf(picture.type);
  Picture resized = MakeUnclearedPicture(width, height, picture.channels, picture.type);
  for (uint32_t y = 0; y < height; ++y) {
    const auto* from = picture.Row<std::byte>(rows[y]);
    auto* to = resized.Row<std::byte>(y);
    for (uint32_t x = 0; x < width; ++x, to += bytes) {
      std::memcpy(to, from + columns[x] * bytes, bytes);
    }
  }
  return resized;
}

}  // namespace

std::unique_ptr<RowResizer> MakePillowRows(const RowResize& resize, TakeRow take,
                                           Instructions instructions) {
  if (resize.rule == ResizeRule::kPilNearest) return nullptr;
  const Plan plan{resize.channels,
                  resize.width,
                  resize.height,
                  resize.newWidth,
                  resize.newHeight,
                  FilterOf(resize.rule),
                  {0, 0, static_cast<float>(resize.width), static_cast<float>(resize.height)},
                  instructions};
  return std::make_unique<PillowRows>(plan, resize.window, std::move(take));
}

Picture ResizeAsPillow(const Picture& picture, uint32_t width, uint32_t height, ResizeRule rule,
                       const ResizeBox& box, Instructions instructions) {
  if (picture.width == width && picture.height == height && box.left == 0 && box.top == 0 &&
      box.right == static_cast<float>(width) && box.bottom == static_cast<float>(height)) {
    return picture;
  }
  if (rule == ResizeRule::kPilNearest) return TakeNearest(picture, width, height, box);
  const Plan plan{picture.channels, picture.width, picture.height, width, height,
                  FilterOf(rule),   box,           instructions};
  Picture resized = MakeUnclearedPicture(width, height, picture.channels, picture.type);
  switch (picture.type) {
    case PixelType::kUint16:
      ResizeWholeNumbers(picture, plan, resized);
      return resized;
    case PixelType::kFloat32:
      ResizeValues<Floats>(picture.Row<float>(0), plan, resized.Row<float>(0));
      return resized;
    case PixelType::kUint8:
      break;
  }
  if (!picture.HasAlpha()) {
    ResizeBytes(picture, plan, resized);
    return resized;
  }
  ResizeBytes(MultipliedByAlpha(picture), plan, resized);
  DivideByAlpha(resized);
  return resized;
}

}  // namespace vorn::kit
