// The text of a float in a dump: fixed notation with 16 digits behind the point.
#ifndef VORN_SRC_OUTPUT_FLOAT_TEXT_H_
#define VORN_SRC_OUTPUT_FLOAT_TEXT_H_

#include <cstddef>
#include <span>

namespace vorn::run {

/// The longest text: sign, the 39 digits of the largest float, point, 16 digits.
inline constexpr size_t kMaxFloatText = 1 + 39 + 1 + 16;
inline constexpr size_t kMaxFloatLine = kMaxFloatText + 1;

/// Writes `value` to `text` exactly as `printf("%.16f")` does (correctly rounded, ties to even;
/// "inf", "nan" and "-nan" included), without a zero at the end, and returns where the text ends.
/// `text` has room for `kMaxFloatText` characters.
[[nodiscard]] char* WriteFloatText(float value, char* text);

/// Writes the text of each value and a line feed behind it, and returns where that ends. `text` has
/// room for `kMaxFloatLine` characters a value.
[[nodiscard]] char* WriteFloatLines(std::span<const float> values, char* text);

}  // namespace vorn::run

#endif  // VORN_SRC_OUTPUT_FLOAT_TEXT_H_
