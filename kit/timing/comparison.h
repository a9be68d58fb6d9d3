// Slower, faster, alike, or cannot tell: the judgement over two series of times.
#ifndef VORN_KIT_TIMING_COMPARISON_H_
#define VORN_KIT_TIMING_COMPARISON_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "kit/timing/ratio_interval.h"

namespace vorn::kit {

/// What a difference has to be to be told.
struct Gates {
  double ratio = 1.03;        ///< the slower median by the faster one
  double absoluteNs = 10000;  ///< and their difference
  double level = 0.05;  ///< how often equal series may be called different, over all comparisons
};

enum class TimingVerdict {
  kSlower,
  kFaster,
  kAlike,  ///< the interval lies within the gates: any difference is one that does not matter
  kCannotTell,
  kNothing,  ///< a side has no time
};

/// Two series of times in nanoseconds, all positive.
struct Contest {
  std::span<const double> base;
  std::span<const double> other;
  bool isPaired = false;  ///< value i of one was measured next to value i of the other
};

struct Comparison {
  TimingVerdict verdict = TimingVerdict::kNothing;
  bool isPaired = false;
  size_t base = 0;  ///< how many values were compared
  size_t other = 0;
  RatioInterval interval;   ///< other by base: above 1 is slower
  double differenceNs = 0;  ///< of the medians
  double p = 1;             ///< corrected for dependent values and for several comparisons
  double leastP = 1;        ///< that so many values could reach
  double gate = 1;          ///< the ratio that both gates ask for at these medians
  double inflation = 1;     ///< of the variance, by values that depend on each other
  /// So many values a side would probably tell; empty where that needs no answer, or more than
  /// `kMostNeeded` would be.
  std::optional<size_t> needed;
};

inline constexpr size_t kMostNeeded = 1000000;

/// Fewer values a side are never judged: whether they depend on each other cannot be seen.
inline constexpr size_t kLeastJudged = 6;

/// "slower", "faster", "alike", "cannot tell", "nothing measured".
[[nodiscard]] std::string_view VerdictName(TimingVerdict verdict);

/// Judges each; with several of them, the level holds for all together. Slower and faster are
/// judged alike: the test has to reach the level, the interval has to leave out 1, and the ratio
/// has to reach the gate.
[[nodiscard]] std::vector<Comparison> Compare(std::span<const Contest> contests, const Gates& gates,
                                              const Bootstrap& bootstrap);

}  // namespace vorn::kit

#endif  // VORN_KIT_TIMING_COMPARISON_H_
