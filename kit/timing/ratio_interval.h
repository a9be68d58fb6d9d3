// By how much one series is slower than another: a ratio of medians, and where the true one lies.
#ifndef VORN_KIT_TIMING_RATIO_INTERVAL_H_
#define VORN_KIT_TIMING_RATIO_INTERVAL_H_

#include <cstdint>
#include <span>

namespace vorn::kit {

struct RatioInterval {
  double ratio = 1;
  double low = 1;
  double high = 1;
};

struct Bootstrap {
  double confidence = 0.95;
  int resamples = 10000;
  uint64_t seed = 1;
};

/// The median of `other` by that of `base`, and the percentile interval of the bootstrap. Both
/// sides have one value at least, and all are positive. Where values depend on each other, each
/// resample's distance from the middle grows by the root of the variance's inflation, and a clear
/// drift is taken out of it. With 20 values a side the interval is a little narrower than the
/// bootstrap's own, which holds the truth more often than it says: bench/README.md.
[[nodiscard]] RatioInterval RatioOfMedians(std::span<const double> base,
                                           std::span<const double> other,
                                           const Bootstrap& bootstrap);

/// The same of pairs, by the median of each pair's own ratio: what changes slowly meets both of a
/// pair and goes out.
[[nodiscard]] RatioInterval MedianOfRatios(std::span<const double> base,
                                           std::span<const double> other,
                                           const Bootstrap& bootstrap);

}  // namespace vorn::kit

#endif  // VORN_KIT_TIMING_RATIO_INTERVAL_H_
