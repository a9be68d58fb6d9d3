// The ways in which WriteFloatLines can go, for itself, its tests and its benchmarks.
#ifndef VORN_SRC_OUTPUT_FLOAT_LINES_H_
#define VORN_SRC_OUTPUT_FLOAT_LINES_H_

#include <span>

namespace vorn::run {

/// As WriteFloatLines of float_text.h; all ways write the same bytes into the same room.
using FloatLinesWriter = char* (*)(std::span<const float> values, char* text);

/// Value after value, on any processor. What the other ways are held to.
[[nodiscard]] char* WriteFloatLinesPlain(std::span<const float> values, char* text);

/// Eight values at once, with AVX-512. Null where the processor or the operating system does not
/// offer what it takes (F, BW, DQ, VL and IFMA), and where the program is not for x86-64.
[[nodiscard]] FloatLinesWriter Avx512FloatLines();

}  // namespace vorn::run

#endif  // VORN_SRC_OUTPUT_FLOAT_LINES_H_
