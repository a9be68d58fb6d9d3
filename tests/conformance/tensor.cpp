// Filling, taking out and comparing rows.
#include "tensor.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>

namespace conformance {
namespace {

template <typename Value>
void Store(std::byte* place, Value value) {
  std::memcpy(place, &value, sizeof value);
}

template <typename Value>
Value Load(const std::byte* place) {
  Value value;
  std::memcpy(&value, place, sizeof value);
  return value;
}

/// The half-precision number `eighths` / 8, for -8 to 8.
uint16_t HalfOfEighths(int eighths) {
  constexpr uint16_t kPositive[] = {0,      0x3000, 0x3400, 0x3600, 0x3800,
                                    0x3900, 0x3A00, 0x3B00, 0x3C00};
  const int sign = eighths < 0 ? 0x8000 : 0;
  return static_cast<uint16_t>(kPositive[std::abs(eighths)] | sign);
}

double ValueOfHalf(uint16_t bits) {
  const int exponent = bits >> 10 & 0x1f;
  const double fraction = bits & 0x3ff;
  double value = std::ldexp(1024 + fraction, exponent - 25);
  if (exponent == 0) value = std::ldexp(fraction, -24);
  if (exponent == 31) value = fraction == 0 ? HUGE_VAL : NAN;
  return (bits & 0x8000) != 0 ? -value : value;
}

/// An element of any type: a float of `eighths` / 8, an integer of `small`, a wide one of `tiny`.
struct Element {
  int eighths;  // -8 to 8
  int small;    // 0 to 100
  int tiny;     // 0 or 1
};

void StoreElement(std::byte* place, const Tensor& tensor, const Element& element) {
  switch (tensor.type) {
    case VORN_FLOAT32:
      return Store(place, static_cast<float>(element.eighths) / 8);
    case VORN_FLOAT64:
      return Store(place, element.eighths / 8.0);
    case VORN_FLOAT16:
      return Store(place, HalfOfEighths(element.eighths));
    case VORN_INT8:
    case VORN_UINT8:
      return Store(place, static_cast<uint8_t>(element.small));
    case VORN_INT16:
    case VORN_UINT16:
      return Store(place, static_cast<uint16_t>(element.small));
    default:  // wide integers, truth values and what is not known: the lowest byte comes first
      std::fill_n(place, tensor.elementBytes, std::byte{0});
      *place = static_cast<std::byte>(element.tiny);
  }
}

template <typename Action>
void ForEachRow(size_t blockBytes, const Tensor& tensor, Action action) {
  for (uint64_t at = 0; at + tensor.stride <= blockBytes; at += tensor.stride) action(at);
}

template <typename Next>
void FillElements(std::span<std::byte> block, const Tensor& tensor, Next next) {
  ForEachRow(block.size(), tensor, [&](uint64_t row) {
    for (uint64_t at = 0; at < tensor.RowBytes(); at += tensor.elementBytes) {
      StoreElement(block.data() + row + at, tensor, next());
    }
  });
}

bool IsFloat(const Tensor& tensor) {
  return tensor.type == VORN_FLOAT32 || tensor.type == VORN_FLOAT16 || tensor.type == VORN_FLOAT64;
}

double ValueOf(const std::byte* place, const Tensor& tensor) {
  if (tensor.type == VORN_FLOAT32) return Load<float>(place);
  if (tensor.type == VORN_FLOAT64) return Load<double>(place);
  return ValueOfHalf(Load<uint16_t>(place));
}

bool IsSame(const std::byte* expected, const std::byte* actual, const Tensor& tensor,
            double tolerance) {
  if (std::memcmp(expected, actual, tensor.elementBytes) == 0) return true;
  if (tolerance == 0 || !IsFloat(tensor)) return false;
  const double a = ValueOf(expected, tensor);
  const double b = ValueOf(actual, tensor);
  if (std::isnan(a) && std::isnan(b)) return true;
  return std::abs(a - b) <= tolerance * std::max({1.0, std::abs(a), std::abs(b)});
}

std::string Text(const std::byte* place, const Tensor& tensor) {
  if (IsFloat(tensor)) return std::to_string(ValueOf(place, tensor));
  std::string text = "bytes";
  for (uint64_t i = 0; i < tensor.elementBytes; ++i) {
    text += " " + std::to_string(std::to_integer<int>(place[i]));
  }
  return text;
}

}  // namespace

void FillRows(std::span<std::byte> block, const Tensor& tensor, uint32_t seed) {
  std::mt19937 random(seed);
  const auto below = [&](uint32_t count) { return static_cast<int>(random() % count); };
  FillElements(block, tensor, [&] {
    return Element{.eighths = below(17) - 8, .small = below(101), .tiny = below(2)};
  });
}

void FillRowsWith(std::span<std::byte> block, const Tensor& tensor, int value) {
  FillElements(block, tensor,
               [&] { return Element{.eighths = 8 * value, .small = value, .tiny = value}; });
}

void FillPadding(std::span<std::byte> block, const Tensor& tensor, std::byte fill) {
  ForEachRow(block.size(), tensor, [&](uint64_t row) {
    std::fill_n(block.data() + row + tensor.RowBytes(), tensor.stride - tensor.RowBytes(), fill);
  });
}

Bytes DenseRows(std::span<const std::byte> block, const Tensor& tensor) {
  Bytes dense;
  ForEachRow(block.size(), tensor, [&](uint64_t row) {
    const std::byte* begin = block.data() + row;
    dense.insert(dense.end(), begin, begin + tensor.RowBytes());
  });
  return dense;
}

void PutRows(std::span<std::byte> block, const Tensor& tensor, std::span<const std::byte> dense) {
  ForEachRow(block.size(), tensor, [&](uint64_t row) {
    const uint64_t from = row / tensor.stride * tensor.RowBytes();
    if (from + tensor.RowBytes() > dense.size()) return;
    std::memcpy(block.data() + row, dense.data() + from, tensor.RowBytes());
  });
}

std::string Difference(const Bytes& expected, const Bytes& actual, const Tensor& tensor,
                       double tolerance) {
  if (expected.size() != actual.size()) {
    return std::to_string(actual.size()) + " bytes instead of " + std::to_string(expected.size());
  }
  for (size_t at = 0; at < expected.size(); at += tensor.elementBytes) {
    if (IsSame(&expected[at], &actual[at], tensor, tolerance)) continue;
    return "'" + tensor.name + "' has " + Text(&actual[at], tensor) + " instead of " +
           Text(&expected[at], tensor) + " at element " + std::to_string(at / tensor.elementBytes);
  }
  return "";
}

}  // namespace conformance
