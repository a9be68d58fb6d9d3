// The time of day, which whoever wants the same bytes twice may tell.
#ifndef VORN_KIT_COMMON_TOLD_TIME_H_
#define VORN_KIT_COMMON_TOLD_TIME_H_

#include <cstdint>

namespace vorn::kit {

/// Nanoseconds since 1970: what SOURCE_DATE_EPOCH says, in seconds, or the clock where it is not
/// set, or empty. Throws a Fault of kUsage for what is no such number, or past the year 2262. The
/// variable is that of the Reproducible Builds project.
[[nodiscard]] uint64_t ToldTimeNs();

}  // namespace vorn::kit

#endif  // VORN_KIT_COMMON_TOLD_TIME_H_
