// The clock is gettimeofday throughout.
#include "common/wall_clock.h"

#include <sys/time.h>

namespace vorn::run {

double TimevalToMs(int64_t seconds, int64_t microseconds) {
  return (static_cast<double>(seconds) * 1000000.0 + static_cast<double>(microseconds)) / 1000.0;
}

double GetCurrentTimeMs() {
  timeval now{};
  gettimeofday(&now, nullptr);
  return TimevalToMs(now.tv_sec, now.tv_usec);
}

uint64_t GetCurrentTimeUs() {
  timeval now{};
  gettimeofday(&now, nullptr);
  return static_cast<uint64_t>(now.tv_sec) * 1000000 + static_cast<uint64_t>(now.tv_usec);
}

}  // namespace vorn::run
