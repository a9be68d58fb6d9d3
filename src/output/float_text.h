// The text of a float in a dump: fixed notation with 16 digits behind the point.
#ifndef VORN_SRC_OUTPUT_FLOAT_TEXT_H_
#define VORN_SRC_OUTPUT_FLOAT_TEXT_H_

#include <cstddef>

/// The longest text: sign, the 39 digits of the largest float, point, 16 digits.
inline constexpr size_t kMaxFloatText = 1 + 39 + 1 + 16;

/// Writes `value` to `text` exactly as `printf("%.16f")` does (correctly rounded, ties to even;
/// "inf", "nan" and "-nan" included), without a zero at the end, and returns where the text ends.
/// `text` has room for `kMaxFloatText` characters.
[[nodiscard]] char* WriteFloatText(float value, char* text);

#endif  // VORN_SRC_OUTPUT_FLOAT_TEXT_H_
