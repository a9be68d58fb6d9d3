// Removing the stride: from rows with padding in an output block to a dense sequence of floats.
//
//     block    | e e e e e . . . | e e e e e . . . | ...     e: element, .: padding
//              |<- lastDim ->|
//              |<- rowElements ->|
//     result   f f f f f f f f f f ...
#ifndef VORN_SRC_OUTPUT_DESTRIDE_H_
#define VORN_SRC_OUTPUT_DESTRIDE_H_

#include <cstddef>
#include <cstdint>
#include <span>

#include "output/value_buffer.h"

namespace vorn::run {

struct RowShape {
  uint64_t rows = 0;
  uint64_t rowElements = 0;  ///< from one row's start to the next row's; 0 repeats the first row
  uint64_t lastDim = 0;      ///< elements of a row that are data
};

/// Returns `lastDim` elements of each row, converted to float, in the memory of `buffer`. Positions
/// count in elements of `Element`, which is float, int8_t, uint8_t, int16_t or uint16_t; a float
/// keeps its bit pattern. Reading ends for good at the first element that is not wholly inside
/// `block`: the rows may ask for more than was allocated, since a batch can grow after its blocks
/// were sized.
template <typename Element>
[[nodiscard]] std::span<const float> RemoveStride(std::span<const std::byte> block,
                                                  const RowShape& shape, ValueBuffer& buffer);

}  // namespace vorn::run

#endif  // VORN_SRC_OUTPUT_DESTRIDE_H_
