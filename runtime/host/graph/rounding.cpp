// Loops without branches, which compilers turn into vector instructions.
#include "host/graph/rounding.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>

namespace vorn::host {
namespace {

constexpr float kSteps = 255;
constexpr float kSymmetricSteps = 127;

/// Adding and taking away what has its last binary place where the result is to have it rounds
/// there, ties to even, as every addition does.
constexpr float kWholeNumbers = 0x1.8p23F;
constexpr float kTinyFloat16 = 0x1p-1F;  // last place 2^-24, as in float16 below 2^-14

/// With `bits` places of the fraction less; a carry goes into the exponent.
template <unsigned bits>
uint32_t WithoutPlaces(uint32_t value) {
  const uint32_t even = value >> bits & 1U;
  return (value + (1U << (bits - 1)) - 1U + even) & ~((1U << bits) - 1U);
}

/// By the bits, which are ordered as the magnitudes are: whole numbers are compared without a
/// thought for NaN, which lies beyond infinity.
float ToFloat16AndBack(float value) {
  constexpr auto kLeastNormal = std::bit_cast<uint32_t>(0x1p-14F);
  constexpr auto kTooLarge = std::bit_cast<uint32_t>(65520.0F);
  constexpr uint32_t kInfinity = 0x7f800000U;
  const auto bits = std::bit_cast<uint32_t>(value);
  const uint32_t sign = bits & 0x80000000U;
  const uint32_t magnitude = bits ^ sign;
  const uint32_t normal = WithoutPlaces<13>(magnitude);
  const auto tiny =
      std::bit_cast<uint32_t>((std::bit_cast<float>(magnitude) + kTinyFloat16) - kTinyFloat16);
  uint32_t rounded = magnitude < kLeastNormal ? tiny : normal;
  rounded = magnitude >= kTooLarge ? kInfinity : rounded;
  rounded = magnitude > kInfinity ? magnitude : rounded;
  return std::bit_cast<float>(rounded | sign);
}

float ToBfloat16AndBack(float value) {
  const auto rounded = std::bit_cast<float>(WithoutPlaces<16>(std::bit_cast<uint32_t>(value)));
  return value != value ? value : rounded;
}

}  // namespace

Grid GridFor(const Range& range) {
  const double least = std::min(range.min, 0.0);
  const double most = std::max(range.max, 0.0);
  Grid grid;
  grid.scale = static_cast<float>((most - least) / double{kSteps});
  // A range of nothing but zero, or one too narrow for a float: everything is zero.
  if (grid.scale == 0) return {};
  const double zero = std::nearbyint(-least / double{grid.scale});
  grid.low = static_cast<float>(-std::min(zero, double{kSteps}));
  grid.high = kSteps + grid.low;
  return grid;
}

Grid SymmetricGridFor(std::span<const float> values) {
  float most = 0;
  for (const float value : values) {
    if (std::isfinite(value)) most = std::max(most, std::fabs(value));
  }
  const float scale = most / kSymmetricSteps;
  if (scale == 0) return {};
  return {.scale = scale, .low = -kSymmetricSteps, .high = kSymmetricSteps};
}

void RoundToFloat16(const float* from, float* to, size_t count) {
  for (size_t i = 0; i < count; ++i) to[i] = ToFloat16AndBack(from[i]);
}

void RoundToBfloat16(const float* from, float* to, size_t count) {
  for (size_t i = 0; i < count; ++i) to[i] = ToBfloat16AndBack(from[i]);
}

void RoundToGrid(const Grid& grid, const float* from, float* to, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    float step = from[i] / grid.scale;
    step = step < grid.low ? grid.low : step;
    step = step > grid.high ? grid.high : step;
    to[i] = ((step + kWholeNumbers) - kWholeNumbers) * grid.scale;
  }
}

}  // namespace vorn::host
