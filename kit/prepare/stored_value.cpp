#include "kit/prepare/stored_value.h"

#include <cmath>
#include <concepts>
#include <cstdio>
#include <cstring>
#include <limits>
#include <utility>

#include "kit/common/fault.h"
#include "kit/common/printable.h"

namespace vorn::kit {
namespace {

// Floats of 16 bits, told apart from whole numbers by their type.
struct Half {
  uint16_t bits;
};
struct Brain {
  uint16_t bits;
};
struct Truth {
  uint8_t byte;
};

template <typename Function>
auto WithType(ElementType type, Function function) {
  switch (type) {
    case ElementType::kFloat32:
      return function(float{});
    case ElementType::kFloat16:
      return function(Half{});
    case ElementType::kBfloat16:
      return function(Brain{});
    case ElementType::kFloat64:
      return function(double{});
    case ElementType::kInt8:
      return function(int8_t{});
    case ElementType::kUint8:
      return function(uint8_t{});
    case ElementType::kInt16:
      return function(int16_t{});
    case ElementType::kUint16:
      return function(uint16_t{});
    case ElementType::kInt32:
      return function(int32_t{});
    case ElementType::kUint32:
      return function(uint32_t{});
    case ElementType::kInt64:
      return function(int64_t{});
    case ElementType::kUint64:
      return function(uint64_t{});
    case ElementType::kBool:
      break;
  }
  return function(Truth{});
}

// What an element means: itself, or a double.
template <typename Element>
auto MeaningOf(Element element) {
  if constexpr (std::same_as<Element, Half>) {
    return static_cast<double>(Float16Value(element.bits));
  } else if constexpr (std::same_as<Element, Brain>) {
    return static_cast<double>(Bfloat16Value(element.bits));
  } else if constexpr (std::same_as<Element, float>) {
    return static_cast<double>(element);
  } else if constexpr (std::same_as<Element, Truth>) {
    return static_cast<uint8_t>(element.byte == 0 ? 0 : 1);
  } else {
    return element;
  }
}

template <typename Whole>
bool HoldsWhole(double value) {
  // The upper end itself may round to a power of two that does not fit; below it all do.
  const double end = std::ldexp(1.0, std::numeric_limits<Whole>::digits);
  const double least = std::is_signed_v<Whole> ? -end : 0.0;
  return value >= least && value < end && value == std::trunc(value);
}

float NearestFloat(double value) {
  float nearest = 0;
  ToFloats(ElementType::kFloat64, false, reinterpret_cast<const std::byte*>(&value),
           std::span(&nearest, 1));
  return nearest;
}

template <typename Element, typename Meaning>
std::optional<Element> Stored(Meaning value) {
  if constexpr (std::same_as<Element, Truth>) {
    if (value == Meaning{0} || value == Meaning{1}) {
      return Truth{static_cast<uint8_t>(value == Meaning{1} ? 1 : 0)};
    }
    return std::nullopt;
  } else if constexpr (std::same_as<Element, Half>) {
    return Half{Float16Bits(static_cast<double>(value))};
  } else if constexpr (std::same_as<Element, Brain>) {
    return Brain{Bfloat16Bits(static_cast<double>(value))};
  } else if constexpr (std::same_as<Element, float>) {
    if constexpr (std::integral<Meaning>) return static_cast<float>(value);
    return NearestFloat(static_cast<double>(value));
  } else if constexpr (std::same_as<Element, double>) {
    return static_cast<double>(value);
  } else if constexpr (std::integral<Meaning>) {
    if (std::in_range<Element>(value)) return static_cast<Element>(value);
    return std::nullopt;
  } else {
    if (HoldsWhole<Element>(value)) return static_cast<Element>(value);
    return std::nullopt;
  }
}

// As ONNX's QuantizeLinear has it, in float32.
template <typename Element>
std::optional<Element> Quantised(float value, const StoredScale& quantisation) {
  if constexpr (std::integral<Element>) {
    if (std::isnan(value)) return std::nullopt;
    const double units = static_cast<double>(std::nearbyint(value / quantisation.scale)) +
                         static_cast<double>(quantisation.zeroPoint);
    constexpr auto kLeast = std::numeric_limits<Element>::min();
    constexpr auto kMost = std::numeric_limits<Element>::max();
    if (units <= static_cast<double>(kLeast)) return kLeast;
    if (units >= static_cast<double>(kMost)) return kMost;
    return static_cast<Element>(units);
  } else {
    // A float that stands for others is not held to whole numbers.
    return Stored<Element>(
        static_cast<double>(value / quantisation.scale + quantisation.zeroPoint));
  }
}

template <typename Element>
std::optional<Element> StoredFloat(float value, const std::optional<StoredScale>& quantisation) {
  return quantisation ? Quantised<Element>(value, *quantisation)
                      : Stored<Element>(static_cast<double>(value));
}

template <typename Meaning>
std::string TextOfMeaning(Meaning value) {
  if constexpr (std::integral<Meaning>) {
    return std::to_string(value);
  } else {
    return TextOfValue(value);
  }
}

[[noreturn]] void RefuseValue(const std::string& what, const std::string& value, uint64_t element,
                              const Shape& shape, ElementType type) {
  throw Fault(ExitStatus::kInput,
              what + " holds " + value + " at " + PlaceText(element, shape) +
                  ", which is no value of " + std::string(ElementName(type)) +
                  "; give values that the input takes, or a recipe with a quantisation");
}

template <typename From, typename To>
std::vector<std::byte> Convert(const Array& array, const std::optional<StoredScale>& quantisation,
                               ElementType type, const std::string& what) {
  const uint64_t elements = array.Elements();
  std::vector<std::byte> bytes(elements * sizeof(To));
  for (uint64_t i = 0; i < elements; ++i) {
    From from;
    std::memcpy(&from, &array.bytes[i * sizeof(From)], sizeof(From));
    const auto value = MeaningOf(from);
    std::optional<To> stored;
    if (quantisation) {
      stored = Quantised<To>(NearestFloat(static_cast<double>(value)), *quantisation);
    } else {
      stored = Stored<To>(value);
    }
    if (!stored) RefuseValue(what, TextOfMeaning(value), i, array.shape, type);
    std::memcpy(&bytes[i * sizeof(To)], &*stored, sizeof(To));
  }
  return bytes;
}

}  // namespace

std::string TextOfValue(double value) {
  char text[40];
  std::snprintf(text, sizeof text, "%.9g", value);
  return text;
}

bool StoreValue(float value, ElementType type, const std::optional<StoredScale>& quantisation,
                std::byte* to) {
  return WithType(type, [&](auto element) {
    const auto stored = StoredFloat<decltype(element)>(value, quantisation);
    if (stored) std::memcpy(to, &*stored, sizeof element);
    return stored.has_value();
  });
}

std::vector<std::byte> StoreArray(const Array& array, ElementType type,
                                  const std::optional<StoredScale>& quantisation,
                                  const std::string& what) {
  if (array.type == type && !quantisation && type != ElementType::kBool) return array.bytes;
  return WithType(array.type, [&](auto from) {
    return WithType(type, [&](auto to) {
      return Convert<decltype(from), decltype(to)>(array, quantisation, type, what);
    });
  });
}

std::vector<float> FloatsOf(const Array& array) {
  std::vector<float> values(array.Elements());
  ToFloats(array.type, false, array.bytes.data(), values);
  return values;
}

}  // namespace vorn::kit
