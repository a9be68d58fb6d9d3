// What there is to read is counted first; then rows are copied or converted whole.
#include "output/destride.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>
#include <type_traits>

#include "shared/rows/row_copy.h"

namespace vorn::run {
namespace {

constexpr uint64_t kMostValues = std::numeric_limits<ptrdiff_t>::max() / sizeof(float);

// What lies inside the block: whole rows, then elements of one more row that the block's end cuts.
struct Extent {
  uint64_t wholeRows = 0;
  uint64_t cutElements = 0;
};

Extent ExtentOf(const RowShape& shape, uint64_t blockElements) {
  if (shape.rows == 0 || shape.lastDim == 0) return {};
  if (blockElements < shape.lastDim) return {0, blockElements};
  if (shape.rowElements == 0) return {shape.rows, 0};
  const uint64_t wholeRows = (blockElements - shape.lastDim) / shape.rowElements + 1;
  if (wholeRows >= shape.rows) return {shape.rows, 0};
  const uint64_t nextRow = wholeRows * shape.rowElements;
  return {wholeRows, nextRow < blockElements ? blockElements - nextRow : 0};
}

constexpr size_t kAtOnce = 16;

template <typename Element>
void Convert(const std::byte* elements, size_t count, float* values) {
  for (size_t i = 0; i < count; ++i) {
    Element element;  // read by copy: a row may start anywhere
    std::memcpy(&element, elements + i * sizeof(Element), sizeof(Element));
    values[i] = static_cast<float>(element);
  }
}

// Always sixteen at once, which are vector instructions. The last sixteen may overlap the ones
// before: converting an element twice takes less time than converting a few one by one.
template <typename Element>
void ConvertRow(const std::byte* row, size_t count, float* values) {
  if (count < kAtOnce) return Convert<Element>(row, count, values);
  size_t done = 0;
  for (; done + kAtOnce <= count; done += kAtOnce) {
    Convert<Element>(row + done * sizeof(Element), kAtOnce, values + done);
  }
  if (done == count) return;
  done = count - kAtOnce;
  Convert<Element>(row + done * sizeof(Element), kAtOnce, values + done);
}

// Rows of `lastDim` elements from the block's start on.
template <typename Element>
void ConvertRows(const std::byte* block, const RowShape& shape, float* values) {
  const uint64_t stride = shape.rowElements * sizeof(Element);
  if constexpr (std::is_same_v<Element, float>) {
    const uint64_t rowBytes = shape.lastDim * sizeof(float);
    CopyRows(block, stride, reinterpret_cast<std::byte*>(values), rowBytes, rowBytes, shape.rows);
  } else {
    for (uint64_t row = 0; row < shape.rows; ++row) {
      ConvertRow<Element>(block + row * stride, shape.lastDim, values + row * shape.lastDim);
    }
  }
}

}  // namespace

template <typename Element>
std::span<const float> RemoveStride(std::span<const std::byte> block, const RowShape& shape,
                                    ValueBuffer& buffer) {
  const Extent extent = ExtentOf(shape, block.size() / sizeof(Element));
  // One row repeated can be more than any memory holds.
  if (extent.wholeRows > kMostValues / std::max<uint64_t>(shape.lastDim, 1)) throw std::bad_alloc();
  const uint64_t wholeElements = extent.wholeRows * shape.lastDim;
  const std::span<float> values = buffer.Get(wholeElements + extent.cutElements);
  ConvertRows<Element>(block.data(), {extent.wholeRows, shape.rowElements, shape.lastDim},
                       values.data());
  if (extent.cutElements > 0) {
    const uint64_t start = extent.wholeRows * shape.rowElements * sizeof(Element);
    ConvertRows<Element>(block.data() + start, {1, 0, extent.cutElements},
                         values.data() + wholeElements);
  }
  return values;
}

template std::span<const float> RemoveStride<float>(std::span<const std::byte>, const RowShape&,
                                                    ValueBuffer&);
template std::span<const float> RemoveStride<int8_t>(std::span<const std::byte>, const RowShape&,
                                                     ValueBuffer&);
template std::span<const float> RemoveStride<uint8_t>(std::span<const std::byte>, const RowShape&,
                                                      ValueBuffer&);
template std::span<const float> RemoveStride<int16_t>(std::span<const std::byte>, const RowShape&,
                                                      ValueBuffer&);
template std::span<const float> RemoveStride<uint16_t>(std::span<const std::byte>, const RowShape&,
                                                       ValueBuffer&);

}  // namespace vorn::run
