// Putting a dense tensor into a place of another shape.
//
// Both have the same count of dimensions. Along each, what the place has beyond the tensor is
// zero, and what the tensor has beyond the place is left out:
//
//     tensor [2, 3]       place [3, 2]
//       1 2 3               1 2
//       4 5 6               4 5
//                           0 0
#ifndef VORN_RUNTIME_HOST_TENSOR_TENSOR_FIT_H_
#define VORN_RUNTIME_HOST_TENSOR_TENSOR_FIT_H_

#include <cstddef>
#include <cstdint>

#include "host/tensor/shape.h"

namespace vorn::host {

/// Writes every element of the place. A tensor without elements leaves it all zero. The places do
/// not overlap; shapes without dimensions are one element.
void FitTensor(const std::byte* tensor, const Shape& tensorShape, std::byte* place,
               const Shape& placeShape, uint64_t elementBytes);

/// Whether some of a tensor of `shape` lies beyond `place`, both of the same count of dimensions.
bool ReachesBeyond(const Shape& shape, const Shape& place);

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_TENSOR_TENSOR_FIT_H_
