// The text file of a dump: a line a value.
#ifndef VORN_SRC_OUTPUT_TEXT_LINES_H_
#define VORN_SRC_OUTPUT_TEXT_LINES_H_

#include <span>

namespace vorn::run {

/// Writes every value as `WriteFloatText` does, and a line feed, to the open file `fd`. What leaves
/// at once ends on a line feed. An error of the file ends the writing, and is ignored.
void WriteTextLines(int fd, std::span<const float> values);

}  // namespace vorn::run

#endif  // VORN_SRC_OUTPUT_TEXT_LINES_H_
