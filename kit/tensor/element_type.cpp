#include "kit/tensor/element_type.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <stdexcept>

namespace vorn::kit {
namespace {

struct TypeRow {
  ElementType type;
  std::string_view name;
  size_t bytes;
};

constexpr std::array kTypes{
    TypeRow{ElementType::kFloat32, "float32", 4},   TypeRow{ElementType::kFloat16, "float16", 2},
    TypeRow{ElementType::kBfloat16, "bfloat16", 2}, TypeRow{ElementType::kFloat64, "float64", 8},
    TypeRow{ElementType::kInt8, "int8", 1},         TypeRow{ElementType::kUint8, "uint8", 1},
    TypeRow{ElementType::kInt16, "int16", 2},       TypeRow{ElementType::kUint16, "uint16", 2},
    TypeRow{ElementType::kInt32, "int32", 4},       TypeRow{ElementType::kUint32, "uint32", 4},
    TypeRow{ElementType::kInt64, "int64", 8},       TypeRow{ElementType::kUint64, "uint64", 8},
    TypeRow{ElementType::kBool, "bool", 1},
};

const TypeRow& RowOf(ElementType type) {
  for (const TypeRow& row : kTypes) {
    if (row.type == type) return row;
  }
  throw std::logic_error("an element type without a row");
}

template <typename Element>
Element Swapped(Element value) {
  std::array<std::byte, sizeof(Element)> bytes{};
  std::memcpy(bytes.data(), &value, sizeof(Element));
  std::reverse(bytes.begin(), bytes.end());
  std::memcpy(&value, bytes.data(), sizeof(Element));
  return value;
}

// `valueOf` is a template argument, so that the loop has no call in it.
template <typename Element, auto valueOf>
void Convert(bool isSwapped, const std::byte* from, std::span<float> to) {
  const size_t count = to.size();
  if (isSwapped) {
    for (size_t i = 0; i < count; ++i) {
      Element element;
      std::memcpy(&element, from + i * sizeof(Element), sizeof(Element));
      to[i] = valueOf(Swapped(element));
    }
    return;
  }
  for (size_t i = 0; i < count; ++i) {
    Element element;
    std::memcpy(&element, from + i * sizeof(Element), sizeof(Element));
    to[i] = valueOf(element);
  }
}

template <typename Element>
float NumberValue(Element element) {
  return static_cast<float>(element);
}

// A double beyond the range of float is undefined to convert.
float DoubleValue(double value) {
  if (std::abs(value) <= static_cast<double>(std::numeric_limits<float>::max())) {
    return static_cast<float>(value);
  }
  if (std::isnan(value)) return std::numeric_limits<float>::quiet_NaN();
  // What still rounds down to the largest float lies less than half a step above it.
  constexpr double kHalfStepAbove = 0x1.ffffffp127;
  const float huge = std::abs(value) < kHalfStepAbove ? std::numeric_limits<float>::max()
                                                      : std::numeric_limits<float>::infinity();
  return std::copysign(huge, value < 0 ? -1.0F : 1.0F);
}

float TruthValue(uint8_t byte) { return byte == 0 ? 0.0F : 1.0F; }

}  // namespace

size_t ElementBytes(ElementType type) { return RowOf(type).bytes; }

std::string_view ElementName(ElementType type) { return RowOf(type).name; }

std::optional<ElementType> ElementNamed(std::string_view name) {
  for (const TypeRow& row : kTypes) {
    if (row.name == name) return row.type;
  }
  return std::nullopt;
}

std::optional<ElementType> ElementOfCode(uint32_t code) {
  // By the code, of those that vorn.h has.
  constexpr std::array kByCode{
      ElementType::kFloat32, ElementType::kFloat16, ElementType::kInt8,    ElementType::kInt32,
      ElementType::kUint8,   ElementType::kUint32,  ElementType::kInt16,   ElementType::kUint16,
      ElementType::kInt64,   ElementType::kUint64,  ElementType::kFloat64, ElementType::kBool,
  };
  if (code >= kByCode.size()) return std::nullopt;
  return kByCode[code];
}

float Float16Value(uint16_t bits) {
  const uint32_t sign = static_cast<uint32_t>(bits & 0x8000U) << 16;
  const uint32_t magnitude = bits & 0x7FFFU;
  constexpr uint32_t kInfinity = 0x7C00;
  // The exponent's bias differs by 112; multiplying serves values without a leading one as well.
  const float finite = std::bit_cast<float>(magnitude << 13) * 0x1p112F;
  const uint32_t value =
      magnitude < kInfinity ? std::bit_cast<uint32_t>(finite) : (magnitude << 13 | 0x7F800000U);
  return std::bit_cast<float>(value | sign);
}

float Bfloat16Value(uint16_t bits) {
  return std::bit_cast<float>(static_cast<uint32_t>(bits) << 16);
}

float RoundedToFloat16(float value) {
  if (!std::isfinite(value)) return value;
  const double magnitude = std::abs(static_cast<double>(value));
  constexpr double kLeastInfinite = 65520;  // half a step above the largest
  if (magnitude >= kLeastInfinite) {
    return std::copysign(std::numeric_limits<float>::infinity(), value);
  }
  int exponent = 0;
  std::frexp(magnitude, &exponent);
  // 11 digits, fewer below 2^-14. nearbyint ties to even.
  const double step = std::ldexp(1.0, std::max(exponent, -13) - 11);
  return std::copysign(static_cast<float>(std::nearbyint(magnitude / step) * step), value);
}

float RoundedToBfloat16(float value) {
  if (!std::isfinite(value)) return value;
  const auto bits = std::bit_cast<uint32_t>(value);
  const uint32_t rounded = bits + 0x7FFFU + (bits >> 16 & 1U);
  return std::bit_cast<float>(rounded & 0xFFFF0000U);
}

namespace {

// The bits of a float of 16 bits with `digits` binary digits, the leading one included, whose least
// normal value is 2^(leastExponent - 1).
uint16_t SmallFloatBits(double value, int digits, int leastExponent) {
  const auto sign = static_cast<uint32_t>(std::signbit(value) ? 0x8000 : 0);
  const uint32_t infinity = 0x7FFFU >> (digits - 1) << (digits - 1);
  if (std::isnan(value)) return static_cast<uint16_t>(sign | infinity | 1U << (digits - 2));
  if (std::isinf(value)) return static_cast<uint16_t>(sign | infinity);
  int exponent = leastExponent;
  if (value != 0) std::frexp(value, &exponent);
  exponent = std::max(exponent, leastExponent);
  // With all digits used the leading one adds one to the exponent's bits. nearbyint ties to even.
  const double units = std::nearbyint(std::ldexp(std::abs(value), digits - exponent));
  const int64_t bits = (int64_t{exponent} - leastExponent) * (int64_t{1} << (digits - 1)) +
                       static_cast<int64_t>(units);
  return static_cast<uint16_t>(sign | std::min<int64_t>(bits, infinity));
}

}  // namespace

uint16_t Float16Bits(double value) { return SmallFloatBits(value, 11, -13); }

uint16_t Bfloat16Bits(double value) { return SmallFloatBits(value, 8, -125); }

void ToFloats(ElementType type, bool isSwapped, const std::byte* from, std::span<float> to) {
  switch (type) {
    case ElementType::kFloat32:
      if (!isSwapped) {
        if (!to.empty()) std::memcpy(to.data(), from, to.size_bytes());
      } else {
        // As a whole number, since a swapped pattern held as a float may be a signalling NaN.
        Convert<uint32_t, std::bit_cast<float, uint32_t>>(isSwapped, from, to);
      }
      return;
    case ElementType::kFloat16:
      return Convert<uint16_t, Float16Value>(isSwapped, from, to);
    case ElementType::kBfloat16:
      return Convert<uint16_t, Bfloat16Value>(isSwapped, from, to);
    case ElementType::kFloat64:
      return Convert<double, DoubleValue>(isSwapped, from, to);
    case ElementType::kInt8:
      return Convert<int8_t, NumberValue<int8_t>>(isSwapped, from, to);
    case ElementType::kUint8:
      return Convert<uint8_t, NumberValue<uint8_t>>(isSwapped, from, to);
    case ElementType::kInt16:
      return Convert<int16_t, NumberValue<int16_t>>(isSwapped, from, to);
    case ElementType::kUint16:
      return Convert<uint16_t, NumberValue<uint16_t>>(isSwapped, from, to);
    case ElementType::kInt32:
      return Convert<int32_t, NumberValue<int32_t>>(isSwapped, from, to);
    case ElementType::kUint32:
      return Convert<uint32_t, NumberValue<uint32_t>>(isSwapped, from, to);
    case ElementType::kInt64:
      return Convert<int64_t, NumberValue<int64_t>>(isSwapped, from, to);
    case ElementType::kUint64:
      return Convert<uint64_t, NumberValue<uint64_t>>(isSwapped, from, to);
    case ElementType::kBool:
      return Convert<uint8_t, TruthValue>(isSwapped, from, to);
  }
}

}  // namespace vorn::kit
