// Conversions by value, which leaves rounding to the arithmetic.
#include "host/tensor/small_float.h"

#include <bit>
#include <cmath>

namespace vorn::host {
namespace {

constexpr uint32_t kFloat16Infinity = 0x7c00;

uint32_t SignOf(float value) { return std::signbit(value) ? 0x8000u : 0u; }

}  // namespace

float FromFloat16(uint16_t bits) {
  const uint32_t sign = uint32_t{bits} >> 15 << 31;
  const int exponent = bits >> 10 & 0x1f;
  const uint32_t fraction = bits & 0x3ffu;
  if (exponent == 0x1f) return std::bit_cast<float>(sign | 0x7f800000u | fraction << 13);
  const float magnitude = exponent == 0
                              ? std::ldexp(static_cast<float>(fraction), -24)
                              : std::ldexp(static_cast<float>(fraction | 0x400u), exponent - 25);
  return sign == 0 ? magnitude : -magnitude;
}

float FromBfloat16(uint16_t bits) { return std::bit_cast<float>(uint32_t{bits} << 16); }

uint16_t ToFloat16(float value) {
  const uint32_t sign = SignOf(value);
  if (std::isnan(value)) return static_cast<uint16_t>(sign | kFloat16Infinity | 0x200u);
  const float magnitude = std::fabs(value);
  if (magnitude >= 65520.0F) return static_cast<uint16_t>(sign | kFloat16Infinity);
  // In units of the last place: a power of two that depends on the exponent, the least one below
  // the normal numbers. A fraction that rounds up to 0x800 carries into the exponent by itself.
  const int exponent = magnitude < 0x1p-14F ? -14 : std::ilogb(magnitude);
  const auto units = static_cast<uint32_t>(std::nearbyint(std::ldexp(magnitude, 10 - exponent)));
  return static_cast<uint16_t>(sign | ((static_cast<uint32_t>(exponent + 14) << 10) + units));
}

uint16_t ToBfloat16(float value) {
  if (std::isnan(value)) return static_cast<uint16_t>(SignOf(value) | 0x7fc0u);
  const auto bits = std::bit_cast<uint32_t>(value);
  return static_cast<uint16_t>((bits + 0x7fffu + (bits >> 16 & 1u)) >> 16);
}

}  // namespace vorn::host
