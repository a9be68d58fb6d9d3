// Rows, strides and sizes of tensors.
#include "host/tensor/layout.h"

namespace vorn::host {

std::optional<uint64_t> Product(uint64_t a, uint64_t b) {
  uint64_t product = 0;
  if (__builtin_mul_overflow(a, b, &product)) return std::nullopt;
  return product;
}

std::optional<uint64_t> RoundUp(uint64_t value, uint64_t alignment) {
  uint64_t padded = 0;
  if (__builtin_add_overflow(value, alignment - 1, &padded)) return std::nullopt;
  return padded & ~(alignment - 1);
}

std::optional<TensorLayout> LayOut(std::span<const int64_t> dims, uint64_t elementBytes,
                                   uint64_t rowAlignment) {
  std::optional<uint64_t> rows = 1;
  std::optional<uint64_t> rowBytes = elementBytes;
  for (size_t i = 0; i < dims.size(); ++i) {
    if (dims[i] < 1) return std::nullopt;
    std::optional<uint64_t>& factor = i + 1 == dims.size() ? rowBytes : rows;
    factor = Product(*factor, static_cast<uint64_t>(dims[i]));
    if (!factor) return std::nullopt;
  }
  const std::optional<uint64_t> stride = RoundUp(*rowBytes, rowAlignment);
  const std::optional<uint64_t> itemBytes = stride ? Product(*rows, *stride) : std::nullopt;
  if (!itemBytes || *itemBytes > INT64_MAX) return std::nullopt;
  return TensorLayout{
      .elementBytes = elementBytes, .rowBytes = *rowBytes, .rows = *rows, .stride = *stride};
}

}  // namespace vorn::host
