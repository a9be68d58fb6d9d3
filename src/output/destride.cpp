// Rows are copied or converted whole.
#include "output/destride.h"

#include <algorithm>
#include <cstring>
#include <type_traits>

namespace {

template <typename Element>
void ConvertRow(const std::byte* row, size_t count, float* values) {
  if constexpr (std::is_same_v<Element, float>) {
    std::memcpy(values, row, count * sizeof(float));
  } else {
    for (size_t i = 0; i < count; ++i) {
      Element element;  // read by copy: a row may start anywhere
      std::memcpy(&element, row + i * sizeof(Element), sizeof(Element));
      values[i] = static_cast<float>(element);
    }
  }
}

}  // namespace

template <typename Element>
void RemoveStride(std::span<const std::byte> block, const RowShape& shape,
                  std::vector<float>& values) {
  const uint64_t blockElements = block.size() / sizeof(Element);
  uint64_t start = 0;
  for (uint64_t row = 0; row < shape.rows && start < blockElements; ++row) {
    const uint64_t count = std::min(shape.lastDim, blockElements - start);
    const size_t filled = values.size();
    values.resize(filled + count);
    ConvertRow<Element>(block.data() + start * sizeof(Element), count, values.data() + filled);
    if (count < shape.lastDim) return;
    start += shape.rowElements;
  }
}

template void RemoveStride<float>(std::span<const std::byte>, const RowShape&, std::vector<float>&);
template void RemoveStride<int8_t>(std::span<const std::byte>, const RowShape&,
                                   std::vector<float>&);
template void RemoveStride<uint8_t>(std::span<const std::byte>, const RowShape&,
                                    std::vector<float>&);
template void RemoveStride<int16_t>(std::span<const std::byte>, const RowShape&,
                                    std::vector<float>&);
template void RemoveStride<uint16_t>(std::span<const std::byte>, const RowShape&,
                                     std::vector<float>&);
