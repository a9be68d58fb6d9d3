// Quoting text that somebody else wrote: a file, a model, a library.
#ifndef VORN_RUNTIME_HOST_COMMON_EXCERPT_H_
#define VORN_RUNTIME_HOST_COMMON_EXCERPT_H_

#include <cstddef>
#include <string>
#include <string_view>

namespace vorn::host {

inline constexpr size_t kLongestName = 60;  ///< bytes of a name or a value in a message

/// The text on one line, as UTF-8, of at most `longest` bytes: characters that steer a terminal or
/// break a line, and bytes that are no UTF-8, become '?'; where it is longer it is cut between two
/// characters, and "..." follows.
std::string Excerpt(std::string_view text, size_t longest = kLongestName);

/// The whole text on one line: the same characters and bytes become blanks, and those at its end
/// go.
std::string OneLine(std::string_view text);

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_COMMON_EXCERPT_H_
