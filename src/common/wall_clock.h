// Wall-clock time in the two units that a run reports: milliseconds for durations, microseconds for
// the time stamps of file names.
#ifndef VORN_SRC_COMMON_WALL_CLOCK_H_
#define VORN_SRC_COMMON_WALL_CLOCK_H_

#include <cstdint>

namespace vorn::run {

/// Milliseconds of a `gettimeofday` result.
[[nodiscard]] double TimevalToMs(int64_t seconds, int64_t microseconds);

/// Milliseconds now; a duration is the difference of two.
[[nodiscard]] double GetCurrentTimeMs();

/// Microseconds since the epoch.
[[nodiscard]] uint64_t GetCurrentTimeUs();

}  // namespace vorn::run

#endif  // VORN_SRC_COMMON_WALL_CLOCK_H_
