#include "kit/model/dump_array.h"

#include <algorithm>
#include <cstring>
#include <optional>

#include "vorn/vorn.h"

namespace vorn::kit {
namespace {

constexpr uint32_t kOfUnknownType = VORN_FLOAT32;

uint32_t TypeOf(const TensorDescription& output) { return output.type.value_or(kOfUnknownType); }

// As numpy names the elements of the array.
std::string_view ElementsOfArray(uint32_t type) {
  switch (type) {
    case VORN_INT32:
      return "<i4";
    case VORN_UINT32:
      return "<u4";
    case VORN_FLOAT16:
      return "<f2";
    default:
      return "<f4";
  }
}

// How many values one item has; empty where that does not fit.
std::optional<uint64_t> ValuesOfItem(const TensorDescription& output) {
  uint64_t product = 1;
  for (const int64_t dimension : output.shape) {
    const auto size = static_cast<uint64_t>(std::max<int64_t>(dimension, 0));
    if (__builtin_mul_overflow(product, size, &product)) return std::nullopt;
  }
  return product;
}

}  // namespace

bool AreValuesDumped(const TensorDescription& output) {
  const uint32_t type = TypeOf(output);
  return type != VORN_INT64 && type != VORN_UINT64 && type != VORN_FLOAT64 && type != VORN_BOOL;
}

std::string ArrayHeader(const TensorDescription& output, const std::vector<uint64_t>& shape) {
  constexpr size_t kAlignment = 64;
  std::string dimensions;
  for (const uint64_t dimension : shape) dimensions += std::to_string(dimension) + ", ";
  if (shape.size() > 1) dimensions.resize(dimensions.size() - 2);
  if (shape.size() == 1) dimensions.pop_back();  // "(7,)"
  std::string header = "{'descr': '" + std::string(ElementsOfArray(TypeOf(output))) +
                       "', 'fortran_order': False, 'shape': (" + dimensions + "), }";
  std::string front("\x93NUMPY\x01\x00", 8);
  const size_t fixed = front.size() + sizeof(uint16_t);
  while ((fixed + header.size() + 1) % kAlignment != 0) header += ' ';
  header += '\n';
  front += static_cast<char>(header.size() % 256);
  front += static_cast<char>(header.size() / 256);
  return front + header;
}

std::string ArrayValues(const TensorDescription& output, std::string_view dumped) {
  if (TypeOf(output) != VORN_FLOAT16) return std::string(dumped);
  std::string halves;
  for (; dumped.size() >= kDumpedValueBytes; dumped.remove_prefix(kDumpedValueBytes)) {
    float number = 0;
    std::memcpy(&number, dumped.data(), sizeof(number));
    constexpr float kMost = 65535;
    constexpr uint16_t kNan = 0x7E00;
    const auto bits = number >= 0 && number <= kMost ? static_cast<uint16_t>(number) : kNan;
    halves += static_cast<char>(bits % 256);
    halves += static_cast<char>(bits / 256);
  }
  return halves;
}

std::vector<uint64_t> ShapeOfDump(const TensorDescription& output, uint64_t batch,
                                  uint64_t values) {
  std::vector<uint64_t> shape;
  uint64_t product = 1;
  for (const int64_t dimension : output.shape) {
    shape.push_back(static_cast<uint64_t>(std::max<int64_t>(dimension, 0)));
    if (shape.size() == 1) shape.back() *= batch;
    if (__builtin_mul_overflow(product, shape.back(), &product)) return {values};
  }
  if (shape.empty() || product != values) return {values};
  return shape;
}

uint64_t BatchOfDump(const TensorDescription& output, uint64_t values) {
  const auto item = ValuesOfItem(output);
  if (!item || *item == 0 || values == 0 || values % *item != 0) return 1;
  return values / *item;
}

}  // namespace vorn::kit
