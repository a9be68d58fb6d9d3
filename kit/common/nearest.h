// Which of some names somebody meant.
#ifndef VORN_KIT_COMMON_NEAREST_H_
#define VORN_KIT_COMMON_NEAREST_H_

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace vorn::kit {

/// How many characters have to be put in, left out or changed, or neighbours exchanged, to make one
/// word of the other.
[[nodiscard]] size_t EditDistance(std::string_view one, std::string_view other);

/// The name that is least far from `word`, if it is as near as a slip of the keyboard: a third of
/// its length, and one at least; the first of several. Where none is, the only one that begins with
/// `word`, of four characters or more.
[[nodiscard]] std::optional<std::string> NearestName(std::string_view word,
                                                     std::span<const std::string> names);

/// "; did you mean 'NAME'?" for the nearest name, else nothing.
[[nodiscard]] std::string DidYouMean(std::string_view word, std::span<const std::string> names);

}  // namespace vorn::kit

#endif  // VORN_KIT_COMMON_NEAREST_H_
