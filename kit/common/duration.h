// Times as a person writes them.
#ifndef VORN_KIT_COMMON_DURATION_H_
#define VORN_KIT_COMMON_DURATION_H_

#include <optional>
#include <string>
#include <string_view>

namespace vorn::kit {

/// Nanoseconds of "ns", "us", "ms", "s", "min", "h"; nothing for any other word.
[[nodiscard]] std::optional<double> UnitNs(std::string_view unit);

/// Nanoseconds of "10s", "0.5ms", "2min": a number from 0 on and its unit right behind it. Nothing
/// if it is not that.
[[nodiscard]] std::optional<double> DurationNs(std::string_view text);

}  // namespace vorn::kit

#endif  // VORN_KIT_COMMON_DURATION_H_
