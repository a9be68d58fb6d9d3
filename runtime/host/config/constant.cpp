// Numbers to elements.
#include "host/config/constant.h"

#include <cstring>
#include <limits>
#include <optional>
#include <utility>

#include "host/common/failure.h"
#include "host/tensor/element_type.h"
#include "host/tensor/layout.h"
#include "host/tensor/small_float.h"

namespace vorn::host {
namespace {

constexpr uint64_t kMostConstantBytes = uint64_t{1} << 32;

using Buffer = std::vector<std::byte>;

template <typename Element>
void Append(Buffer& bytes, Element element) {
  const size_t at = bytes.size();
  bytes.resize(at + sizeof(element));
  std::memcpy(bytes.data() + at, &element, sizeof(element));
}

/// False where the type does not hold the number.
template <typename Element>
bool AppendWhole(Buffer& bytes, const Number& number) {
  if (!number.isWhole || !std::in_range<Element>(number.whole)) return false;
  Append(bytes, static_cast<Element>(number.whole));
  return true;
}

bool AppendElement(Buffer& bytes, vorn_data_type type, const Number& number) {
  switch (type) {
    case VORN_FLOAT32:
      return Append(bytes, static_cast<float>(number.real)), true;
    case VORN_FLOAT64:
      return Append(bytes, number.real), true;
    case VORN_FLOAT16:
      return Append(bytes, ToFloat16(static_cast<float>(number.real))), true;
    case kBfloat16:
      return Append(bytes, ToBfloat16(static_cast<float>(number.real))), true;
    case VORN_INT8:
      return AppendWhole<int8_t>(bytes, number);
    case VORN_UINT8:
      return AppendWhole<uint8_t>(bytes, number);
    case VORN_INT16:
      return AppendWhole<int16_t>(bytes, number);
    case VORN_UINT16:
      return AppendWhole<uint16_t>(bytes, number);
    case VORN_INT32:
      return AppendWhole<int32_t>(bytes, number);
    case VORN_UINT32:
      return AppendWhole<uint32_t>(bytes, number);
    case VORN_INT64:
      return AppendWhole<int64_t>(bytes, number);
    case VORN_UINT64:
      return AppendWhole<uint64_t>(bytes, number);
    case VORN_BOOL:
      return number.whole >= 0 && number.whole <= 1 && AppendWhole<uint8_t>(bytes, number);
    default:
      return false;
  }
}

/// Elements of the shape; fails beyond what a constant may have.
uint64_t CountOf(const std::string& name, vorn_data_type type, const Shape& shape) {
  std::optional<uint64_t> count = 1;
  for (const int64_t dim : shape) {
    if (count) count = Product(*count, static_cast<uint64_t>(dim));
  }
  const std::optional<uint64_t> bytes = count ? Product(*count, ElementBytes(type)) : count;
  if (!bytes || *bytes > kMostConstantBytes) {
    throw Failure(VORN_ERROR_CONFIG, "constant '", name, "' has the shape ", ShapeText(shape), "; ",
                  kMostConstantBytes, " bytes are the most");
  }
  return *count;
}

}  // namespace

std::vector<std::byte> EncodeConstant(const std::string& name, vorn_data_type type,
                                      const Shape& shape, std::span<const Number> numbers) {
  const uint64_t count = CountOf(name, type, shape);
  if (numbers.size() != count && numbers.size() != 1) {
    throw Failure(VORN_ERROR_CONFIG, "constant '", name, "' has ", numbers.size(),
                  " numbers; its shape ", ShapeText(shape), " takes ", count, ", or one for all");
  }
  std::vector<std::byte> bytes;
  bytes.reserve(count * ElementBytes(type));
  for (uint64_t i = 0; i < count; ++i) {
    const Number& number = numbers[numbers.size() == 1 ? 0 : i];
    if (!AppendElement(bytes, type, number)) {
      throw Failure(VORN_ERROR_CONFIG, "constant '", name, "' has the number ", number.real,
                    ", which its element type does not hold");
    }
  }
  return bytes;
}

}  // namespace vorn::host
