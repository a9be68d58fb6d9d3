// Series of runs that are made up, to find out how often vorn history tells of a step where there
// is none, and how late where there is one.
#ifndef VORN_BENCH_HISTORY_SIMULATION_H_
#define VORN_BENCH_HISTORY_SIMULATION_H_

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace vorn::bench {

enum class RunNoise {
  kLogNormal,       ///< medians of runs vary by 1 %
  kOutliers,        ///< and one in twenty is half as slow again: another program was busy
  kAutocorrelated,  ///< each follows the one before by 0.5
  kRounded,         ///< and a clock that counts in steps of 1 %, so that many are equal
};
inline constexpr RunNoise kRunNoises[] = {RunNoise::kLogNormal, RunNoise::kOutliers,
                                          RunNoise::kAutocorrelated, RunNoise::kRounded};
[[nodiscard]] std::string_view NoiseName(RunNoise noise);

/// Medians of runs in nanoseconds, 10 ms each but for the noise; from `stepAt` on they are slower
/// by `factor`.
[[nodiscard]] std::vector<double> MakeRuns(RunNoise noise, size_t count, size_t stepAt,
                                           double factor, uint64_t seed);

struct FalseAlarms {
  size_t runs = 0;
  size_t byRanks = 0;      ///< steps that the chart told; a false one often brings one back
  size_t first = 0;        ///< series in which it told one
  size_t runsToFirst = 0;  ///< until then, or all of a series
  size_t counting = 0;     ///< of these that count by their size
  /// Series of whose first 5, 20 and 100 runs a step was told that counts.
  size_t within5 = 0;
  size_t within20 = 0;
  size_t within100 = 0;
};

/// `trials` series of 500 runs without a change.
[[nodiscard]] FalseAlarms CountFalseAlarms(RunNoise noise, size_t trials, uint64_t seed);

/// How many runs of the new level it took until the step was told, each trial; `kNever` where that
/// was not within `kLongest`. A trial with a false alarm before the step is left out.
inline constexpr size_t kLongest = 40;
inline constexpr size_t kNever = kLongest + 1;
[[nodiscard]] std::vector<size_t> MeasureDelays(RunNoise noise, size_t before, double factor,
                                                size_t trials, uint64_t seed);

struct FoundBound {
  size_t count = 0;
  double bound = 0;
  size_t alive = 0;  ///< series without an alarm before
};

/// What the chart's statistic has to reach with each count of values up to its window, so that of
/// series without a change, and without an alarm before, kStepFalseAlarms of them do.
[[nodiscard]] std::vector<FoundBound> FindBounds(size_t trials, uint64_t seed);

}  // namespace vorn::bench

#endif  // VORN_BENCH_HISTORY_SIMULATION_H_
