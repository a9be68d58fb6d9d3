// The command line.
#ifndef VORN_SRC_APP_PARSE_ARGS_H_
#define VORN_SRC_APP_PARSE_ARGS_H_

#include <cstdint>
#include <string>

#include "common/sample_options.h"

namespace vorn::run {

/// Fills `options` from the command line and prints the numbers it took, and the usage line for an
/// option that it does not know. The n-th option's value is the word at position 2n, whichever
/// words stand in between: scripts rely on that pairing. A value past the end of the command line
/// raises `std::logic_error`; see `StringToInt` for numbers.
void ParseArgs(SampleOptions& options, int argc, char** argv);

/// The number at the start of `text`, base 10, as `strtol` sees it; what follows it is ignored.
/// Raises `std::invalid_argument` when there is none and `std::out_of_range` beyond 32 bits.
[[nodiscard]] int32_t StringToInt(const std::string& text);

}  // namespace vorn::run

#endif  // VORN_SRC_APP_PARSE_ARGS_H_
