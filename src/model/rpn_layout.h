// Detection thresholds in the block of the rpn input, 32-bit floats as they were read.
//
//     single class   | v0 v1 v2 v3 0 ...
//     multi class    | v0 v1 v2 . | v3 v4 v5 . | v6 v7 v8 . | v9 v10 v11 . |     width 3
//                    |<- stride ->|   4 rows, one threshold kind each; a column is a class
#ifndef VORN_SRC_MODEL_RPN_LAYOUT_H_
#define VORN_SRC_MODEL_RPN_LAYOUT_H_

#include <cstddef>
#include <cstdint>
#include <span>

namespace vorn::run {

/// How many values a single class has, and how many rows the layout of several classes.
inline constexpr uint32_t kThresholdKinds = 4;

/// Writes the values into the zero-filled `block`: up to four as single class, more as multi class
/// with `width` values a row, rows starting at multiples of `stride` rounded down to whole floats.
/// Classes are written one after the other, so where rows overlap the later class stays. What would
/// lie outside of `block` is not written, and rows end where `values` end.
void WriteRpnValues(std::span<std::byte> block, std::span<const float> values, uint32_t width,
                    int32_t stride);

}  // namespace vorn::run

#endif  // VORN_SRC_MODEL_RPN_LAYOUT_H_
