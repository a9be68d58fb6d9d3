// How one batch item of a tensor lies in a block: dense rows, each at the start of a stride.
//
//     | row 0: rowBytes | pad .. stride | row 1: rowBytes | pad | ... | row R-1 | pad |  <-
//     itemBytes
//
// The last dimension is the row, so R is the product of the others. A tensor without dimensions is
// one row of one element.
#ifndef VORN_RUNTIME_HOST_TENSOR_LAYOUT_H_
#define VORN_RUNTIME_HOST_TENSOR_LAYOUT_H_

#include <cstdint>
#include <optional>
#include <span>

namespace vorn::host {

/// a * b, or nothing where that does not fit.
std::optional<uint64_t> Product(uint64_t a, uint64_t b);

/// `value` rounded up to a multiple of `alignment`, a power of two; nothing where that does not
/// fit.
std::optional<uint64_t> RoundUp(uint64_t value, uint64_t alignment);

struct TensorLayout {
  uint64_t elementBytes;
  uint64_t rowBytes;
  uint64_t rows;
  uint64_t stride;  ///< bytes, >= rowBytes

  uint64_t ItemBytes() const { return rows * stride; }
  uint64_t DenseBytes() const { return rows * rowBytes; }
};

/// The layout of `dims` with rows rounded up to `rowAlignment`. Nothing if a dimension is below 1
/// or an item exceeds 2^63 - 1 bytes.
std::optional<TensorLayout> LayOut(std::span<const int64_t> dims, uint64_t elementBytes,
                                   uint64_t rowAlignment);

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_TENSOR_LAYOUT_H_
