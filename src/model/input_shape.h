// Shape arithmetic of an input file: how many bytes, batch items or frames a shape stands for.
// Unsigned 64-bit throughout, wrapping; a negative dimension counts as its two's complement.
#ifndef VORN_SRC_MODEL_INPUT_SHAPE_H_
#define VORN_SRC_MODEL_INPUT_SHAPE_H_

#include <cstdint>
#include <span>
#include <string>

namespace vorn::run {

/// "1,3,224,224".
[[nodiscard]] std::string JoinDimensions(std::span<const int64_t> dimensions);

/// Bytes of the dense tensor, batch dimension included: `elementSize` for no dimensions.
[[nodiscard]] uint64_t DenseBytes(std::span<const int64_t> dimensions, uint64_t elementSize);

/// Bytes of one frame of a recurrent input: all dimensions but the first.
[[nodiscard]] uint64_t FrameBytes(std::span<const int64_t> dimensions, uint64_t elementSize);

/// Elements of a row, the last dimension; 0 for no dimensions.
[[nodiscard]] int64_t RowElements(std::span<const int64_t> dimensions);

}  // namespace vorn::run

#endif  // VORN_SRC_MODEL_INPUT_SHAPE_H_
