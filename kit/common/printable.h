// Texts of others on their way to a person.
#ifndef VORN_KIT_COMMON_PRINTABLE_H_
#define VORN_KIT_COMMON_PRINTABLE_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace vorn::kit {

/// The text with what would steer a terminal, or is no UTF-8, as \xHH and the backslash doubled, so
/// that it stays one line and can be told apart from any other.
[[nodiscard]] std::string Printable(std::string_view text);

/// The same of a text that may be long: of its first 200 bytes, and "..." where there are more.
[[nodiscard]] std::string PrintableExcerpt(std::string_view text);

/// The text between quotes, as Printable has it.
[[nodiscard]] std::string Quoted(std::string_view text);

/// The words of a command line as a shell would read them again.
[[nodiscard]] std::string QuotedCommand(const std::vector<std::string>& words);

/// "1 file", "2 files".
[[nodiscard]] std::string Counted(uint64_t count, std::string_view one);

/// How many places of a terminal a text takes, each code point as one.
[[nodiscard]] size_t DisplayWidth(std::string_view text);

/// "64 bytes", "39.6 KiB", "1.2 GiB".
[[nodiscard]] std::string SizeText(uint64_t bytes);

/// What the system says of an errno.
[[nodiscard]] std::string SystemReason(int error);

}  // namespace vorn::kit

#endif  // VORN_KIT_COMMON_PRINTABLE_H_
