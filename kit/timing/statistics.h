// What a series of times is like: pure functions over numbers, none of which knows a unit.
#ifndef VORN_KIT_TIMING_STATISTICS_H_
#define VORN_KIT_TIMING_STATISTICS_H_

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

namespace vorn::kit {

/// Of an even count the mean of the two in the middle. There has to be one value at least.
[[nodiscard]] double Median(std::span<const double> values);

/// The median of the distances from the median.
[[nodiscard]] double MedianDeviation(std::span<const double> values);

/// The smallest value that `share` (0 to 1) of all are not above, if the values can carry it: so
/// many that, 19 times in 20, one of them lies beyond the true one. The 90th of a hundred takes 29
/// values, the 95th 59, the 99th 299.
[[nodiscard]] std::optional<double> Percentile(std::span<const double> values, double share);

/// How wide the middle half is, by the median: 0.04 if it is 4 % of it. Of four values on, and of
/// positive ones.
[[nodiscard]] std::optional<double> Spread(std::span<const double> values);

/// Places of values that lie more than `kOutlierDeviations` robust standard deviations from the
/// median. They are pointed at, never left out: a slow run is a run.
inline constexpr double kOutlierDeviations = 10;
[[nodiscard]] std::vector<size_t> FindOutliers(std::span<const double> values);

/// The median of the last third by that of the first, less 1, where the values rise or fall with
/// their place and would do so by chance once in a hundred times; else nothing, and with fewer than
/// `kLeastForDrift` values.
inline constexpr size_t kLeastForDrift = 12;
[[nodiscard]] std::optional<double> FindDrift(std::span<const double> values);

/// Places from which on the values stand at another level, rising: each splits the values between
/// its neighbours so that chance, with neighbours as alike as these are, would do so once in a
/// thousand times, and the medians of both sides differ by `ratio`, the larger by the smaller. No
/// level is shorter than `kLeastForLevel` values. The first `most` of them.
inline constexpr size_t kLeastForLevel = 10;
[[nodiscard]] std::vector<size_t> FindSteps(std::span<const double> values, double ratio,
                                            size_t most);

/// How much a value tells of the next one, of `kLeastForAutocorrelation` values on: the
/// autocorrelation of the ranks at a distance of one, corrected for what so few values show too
/// little of it. 0 to 0.95; what is below 0 counts as 0.
inline constexpr size_t kLeastForAutocorrelation = 6;
[[nodiscard]] double Autocorrelation(std::span<const double> values);

/// By how much the variance of a middle is larger than that of independent values: 1 and more. A
/// series of n values is worth n by this.
[[nodiscard]] double VarianceInflation(std::span<const double> values);

/// The same for the median of values that may drift. A clear drift of `kLeastForDriftTakenOut`
/// values and more is no dependence of neighbours: it is taken out, and what it leaves of the
/// variance counts, since a median goes by how many values lie on either side, and of those at the
/// ends of a drift that is nearly certain. So the result may be below 1.
inline constexpr size_t kLeastForDriftTakenOut = 20;
[[nodiscard]] double MedianInflation(std::span<const double> values);

/// Places from 1, equal values sharing the mean of theirs.
[[nodiscard]] std::vector<double> Ranks(std::span<const double> values);

/// Of the normal distribution: the share below `z`, and the z below which the share is `p`.
[[nodiscard]] double NormalShare(double z);
[[nodiscard]] double NormalQuantile(double p);

}  // namespace vorn::kit

#endif  // VORN_KIT_TIMING_STATISTICS_H_
