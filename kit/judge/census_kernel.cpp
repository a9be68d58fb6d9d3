// Compiled with -O3, since only then loops become vector instructions. Sums go in several lanes of
// doubles, which the compiler may not make of one sum by itself; their order is fixed, and so is
// the result on every machine with the same rounding.
#include "kit/judge/census_kernel.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

// Twice, for processors with wider registers as well: what is counted, or divided element by
// element, comes out the same in any width. Sums do not and stay as they are. A sanitizer is not
// there yet when the loader chooses.
#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__) && \
    !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
#define VORN_IN_ANY_WIDTH __attribute__((target_clones("avx2", "default")))
#else
#define VORN_IN_ANY_WIDTH
#endif

namespace vorn::kit {
namespace {

// As many doubles as the plainest vector register holds: wider ones are taken apart badly.
constexpr size_t kLanes = 2;
using Floats = float __attribute__((vector_size(kLanes * sizeof(float))));
using Doubles = double __attribute__((vector_size(kLanes * sizeof(double))));
using Longs = int64_t __attribute__((vector_size(kLanes * sizeof(int64_t))));

constexpr int64_t kMagnitudeBits = INT64_MAX;

// Two loops, since the sums of one would not fit the registers.
struct DifferenceSums {
  Doubles abs{};
  Doubles squares{};
  Doubles maxAbs{};
  Longs outside{};
};

struct ProductSums {
  Doubles actualSquares{};
  Doubles expectedSquares{};
  Doubles products{};
  Floats least{};
  Floats greatest{};
};

struct LaneSums {
  DifferenceSums differences;
  ProductSums products;
};

Doubles DoublesAt(const float* values) {
#if defined(__SSE2__)
  // The compiler converts one after the other by itself.
  return reinterpret_cast<Doubles>(
      _mm_cvtps_pd(_mm_castsi128_ps(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(values)))));
#else
  Floats floats;
  std::memcpy(&floats, values, sizeof(Floats));
  return __builtin_convertvector(floats, Doubles);
#endif
}

// In both `count` is a multiple of kLanes.
void SumDifferences(const Tolerance& tolerance, const float* actual, const float* expected,
                    size_t count, DifferenceSums& sums) {
  DifferenceSums lanes = sums;
  const double atol = tolerance.atol;
  const double rtol = tolerance.rtol;
  for (size_t i = 0; i < count; i += kLanes) {
    const Doubles e = DoublesAt(expected + i);
    const Doubles difference = DoublesAt(actual + i) - e;
    const auto magnitude =
        reinterpret_cast<Doubles>(reinterpret_cast<Longs>(difference) & kMagnitudeBits);
    const auto size = reinterpret_cast<Doubles>(reinterpret_cast<Longs>(e) & kMagnitudeBits);
    lanes.abs += magnitude;
    lanes.squares += difference * difference;
    lanes.maxAbs = magnitude > lanes.maxAbs ? magnitude : lanes.maxAbs;
    lanes.outside -= magnitude > atol + rtol * size;  // −1 in each lane where it holds
  }
  sums = lanes;
}

void SumProducts(const float* actual, const float* expected, size_t count, ProductSums& sums) {
  ProductSums lanes = sums;
  for (size_t i = 0; i < count; i += kLanes) {
    Floats expectedFloats;
    std::memcpy(&expectedFloats, expected + i, sizeof(Floats));
    const Doubles a = DoublesAt(actual + i);
    const Doubles e = DoublesAt(expected + i);
    lanes.actualSquares += a * a;
    lanes.expectedSquares += e * e;
    lanes.products += a * e;
    lanes.least = expectedFloats < lanes.least ? expectedFloats : lanes.least;
    lanes.greatest = expectedFloats > lanes.greatest ? expectedFloats : lanes.greatest;
  }
  sums = lanes;
}

void SumLanes(const Tolerance& tolerance, const float* actual, const float* expected, size_t count,
              LaneSums& sums) {
  SumDifferences(tolerance, actual, expected, count, sums.differences);
  SumProducts(actual, expected, count, sums.products);
}

template <typename Lanes>
auto SumOf(const Lanes& lanes) {
  return lanes[0] + lanes[1];
}

// Floats in their order as whole numbers, 0 and −0 the same.
uint32_t Ordered(float value) {
  const auto bits = std::bit_cast<uint32_t>(value);
  const uint32_t isNegative = 0U - (bits >> 31);
  return (isNegative & (0x80000000U - bits)) | (~isNegative & bits);
}

uint32_t DistanceOf(float one, float other) {
  const auto a = static_cast<int32_t>(Ordered(one));
  const auto b = static_cast<int32_t>(Ordered(other));
  const uint32_t forward = static_cast<uint32_t>(a) - static_cast<uint32_t>(b);
  return a > b ? forward : 0U - forward;
}

// The float of a distance has its power of two and eighths in the upper 12 bits.
uint32_t Bucket(uint32_t distance) {
  constexpr uint32_t kBelowOne = 1015;
  const auto whole = static_cast<int32_t>(distance > 0x7FFFFF00U ? 0x7FFFFF00U : distance);
  const uint32_t upper = std::bit_cast<uint32_t>(static_cast<float>(whole)) >> 20;
  return upper > kBelowOne ? upper - kBelowOne : 0;
}

// How many pairs are equal.
VORN_IN_ANY_WIDTH size_t AddUlps(const float* actual, const float* expected, size_t count,
                                 Census& census) {
  std::array<uint32_t, kCensusChunk> buckets;
  uint32_t most = 0;
  uint32_t equal = 0;
  for (size_t i = 0; i < count; ++i) {
    const uint32_t distance = DistanceOf(actual[i], expected[i]);
    most = most > distance ? most : distance;
    equal += distance == 0 ? 1 : 0;
    buckets[i] = Bucket(distance);
  }
  census.maxUlp = std::max(census.maxUlp, most);
  for (size_t i = 0; i < count; ++i) census.ulp.Add(buckets[i], 1);
  return equal;
}

VORN_IN_ANY_WIDTH void AddRelatives(const float* actual, const float* expected, size_t count,
                                    Census& census) {
  std::array<float, kCensusChunk> relatives;
  std::array<uint32_t, kCensusChunk> exponents;
  for (size_t i = 0; i < count; ++i) {
    relatives[i] = std::abs(actual[i] - expected[i]) / std::abs(expected[i]);
    exponents[i] = std::bit_cast<uint32_t>(expected[i]) >> 23 & 0xFFU;
  }
  // 0 / 0 compares false.
  for (size_t i = 0; i < count; ++i) {
    float& most = census.maxRelByExponent[exponents[i]];
    most = relatives[i] > most ? relatives[i] : most;
  }
}

}  // namespace

VORN_IN_ANY_WIDTH bool AreAllFinite(const float* values, size_t count) {
  uint32_t found = 0;
  for (size_t i = 0; i < count; ++i) {
    uint32_t bits = 0;
    std::memcpy(&bits, values + i, sizeof(bits));
    found |= static_cast<uint32_t>((bits & 0x7F800000U) == 0x7F800000U);
  }
  return found == 0;
}

double AddFinitePairs(const Tolerance& tolerance, const float* actual, const float* expected,
                      size_t count, Census& census) {
  LaneSums sums;
  sums.products.least += census.leastExpected;
  sums.products.greatest += census.greatestExpected;
  const size_t whole = count - count % kLanes;
  SumLanes(tolerance, actual, expected, whole, sums);
  if (whole < count) {
    // Zeros on both sides add nothing and are not outside; they are no expected value, though.
    std::array<float, kLanes> lastActual{};
    std::array<float, kLanes> lastExpected{};
    std::copy(actual + whole, actual + count, lastActual.begin());
    std::copy(expected + whole, expected + count, lastExpected.begin());
    SumDifferences(tolerance, lastActual.data(), lastExpected.data(), kLanes, sums.differences);
    const Floats least = sums.products.least;
    const Floats greatest = sums.products.greatest;
    SumProducts(lastActual.data(), lastExpected.data(), kLanes, sums.products);
    sums.products.least = least;
    sums.products.greatest = greatest;
    for (size_t i = whole; i < count; ++i) {
      census.leastExpected = std::min(census.leastExpected, expected[i]);
      census.greatestExpected = std::max(census.greatestExpected, expected[i]);
    }
  }
  double maxAbs = 0;
  for (size_t lane = 0; lane < kLanes; ++lane) {
    maxAbs = std::max(maxAbs, sums.differences.maxAbs[lane]);
    census.leastExpected = std::min(census.leastExpected, sums.products.least[lane]);
    census.greatestExpected = std::max(census.greatestExpected, sums.products.greatest[lane]);
  }
  const auto outside = static_cast<uint64_t>(SumOf(sums.differences.outside));
  const uint64_t equal = AddUlps(actual, expected, count, census);
  census.outside += outside;
  census.equal += equal;
  census.within += count - outside - equal;
  census.finite += count;
  census.sumAbs += SumOf(sums.differences.abs);
  census.sumSquares += SumOf(sums.differences.squares);
  census.sumActualSquares += SumOf(sums.products.actualSquares);
  census.sumExpectedSquares += SumOf(sums.products.expectedSquares);
  census.sumProducts += SumOf(sums.products.products);
  census.maxAbs = std::max(census.maxAbs, maxAbs);
  AddRelatives(actual, expected, count, census);
  return maxAbs;
}

}  // namespace vorn::kit
