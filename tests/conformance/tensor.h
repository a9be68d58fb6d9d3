// Tensors as vorn.h lays them out, and their values.
//
//     | row 0 .. rowBytes | pad .. stride | row 1 | pad | ... | row R-1 | pad |   <- one item
//
// Rows are filled and compared; what pads them is filled with something else, and never compared.
#ifndef VORN_TESTS_CONFORMANCE_TENSOR_H_
#define VORN_TESTS_CONFORMANCE_TENSOR_H_

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "vorn/vorn.h"

namespace conformance {

using Bytes = std::vector<std::byte>;

/// What a description says of one input or output, known to fit together.
struct Tensor {
  std::string name;
  std::vector<int64_t> dims;
  vorn_data_type type = VORN_FLOAT32;
  uint64_t elementBytes = 0;
  uint64_t size = 0;    ///< bytes of one item
  uint64_t stride = 0;  ///< bytes

  uint64_t RowBytes() const { return static_cast<uint64_t>(dims.back()) * elementBytes; }
  uint64_t Rows() const { return size / stride; }  ///< of one item
  bool HasPadding() const { return RowBytes() < stride; }
};

/// Fills all rows of a block with values that suit any model: floats of -1 to 1 in steps of 1/8,
/// bytes and 16-bit integers of 0 to 100, wider integers and truth values of 0 and 1. The same seed
/// gives the same values. Leaves the padding alone.
void FillRows(std::span<std::byte> block, const Tensor& tensor, uint32_t seed);

/// Fills all elements of a block, and leaves the padding alone; `value` is 0 or 1.
void FillRowsWith(std::span<std::byte> block, const Tensor& tensor, int value);

/// Fills what lies between the rows.
void FillPadding(std::span<std::byte> block, const Tensor& tensor, std::byte fill);

/// The rows of a block, one after the other.
Bytes DenseRows(std::span<const std::byte> block, const Tensor& tensor);

/// Puts dense rows into a block.
void PutRows(std::span<std::byte> block, const Tensor& tensor, std::span<const std::byte> dense);

/// The first difference between two lists of values of that type, in words; empty if they agree.
/// Floats agree within `tolerance` times the larger of 1 and their magnitude, and bit by bit where
/// that is 0.
std::string Difference(const Bytes& expected, const Bytes& actual, const Tensor& tensor,
                       double tolerance);

}  // namespace conformance

#endif  // VORN_TESTS_CONFORMANCE_TENSOR_H_
