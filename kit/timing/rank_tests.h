// Whether two series of times differ by more than chance: tests that go by the order of values
// alone, so that neither a long tail nor two heaps mislead them.
#ifndef VORN_KIT_TIMING_RANK_TESTS_H_
#define VORN_KIT_TIMING_RANK_TESTS_H_

#include <cstddef>
#include <span>
#include <vector>

namespace vorn::kit {

/// Up to so many values a side every arrangement is counted, with more the normal distribution
/// stands for them. Both respect equal values.
inline constexpr size_t kMostCounted = 20;

/// The two-sided p of Mann and Whitney: how often equal distributions give series at least so far
/// apart. 1 if a side is empty.
[[nodiscard]] double MannWhitney(std::span<const double> one, std::span<const double> other);

/// The two-sided p of Wilcoxon's signed ranks, for differences within pairs. Pairs without a
/// difference are left out.
[[nodiscard]] double SignedRanks(std::span<const double> differences);

/// The least p that so many values can give, however far apart they are: 3 against 3 never come
/// below 0.1.
[[nodiscard]] double LeastMannWhitney(size_t one, size_t other);
[[nodiscard]] double LeastSignedRanks(size_t pairs);

/// A p of values that depend on each other, as if it came from fewer ones: `inflation` is that of
/// their variance.
[[nodiscard]] double Deflate(double p, double inflation);

/// Holm's correction for several comparisons: each p in its place, raised so that none of them is
/// below a level by chance more often than the level says.
[[nodiscard]] std::vector<double> Holm(std::span<const double> all);

}  // namespace vorn::kit

#endif  // VORN_KIT_TIMING_RANK_TESTS_H_
