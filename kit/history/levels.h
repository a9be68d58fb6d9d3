// The levels that a figure of a series has stood at, one behind the other.
#ifndef VORN_KIT_HISTORY_LEVELS_H_
#define VORN_KIT_HISTORY_LEVELS_H_

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

namespace vorn::kit {

enum class FigureKind {
  kTime,   ///< nanoseconds: less is better
  kShare,  ///< of what was right, 0 to 1: more is better
  kError,  ///< a distance, from 0 on: less is better
};

/// What a difference of two middles has to be to count.
struct LevelGates {
  double ratio = 1.03;        ///< of times and errors, the larger by the smaller
  double absoluteNs = 10000;  ///< and of times their difference
  double share = 0.001;       ///< of shares their difference
};

[[nodiscard]] bool Counts(FigureKind kind, double before, double after, const LevelGates& gates);
[[nodiscard]] bool IsWorse(FigureKind kind, double before, double after);

struct FigureLevel {
  size_t first = 0;  ///< place of its first value
  size_t count = 0;
  double median = 0;
  size_t toldAt = 0;      ///< place of the value with which it showed
  bool isByHand = false;  ///< a person said that it begins there
};

/// Values that did not vary have no noise to be told apart from: behind so many equal ones another
/// one is a step, unless it is a time.
inline constexpr size_t kLeastForConstant = 5;

/// All levels of the values, at least one unless there are none. `begins` are places where a person
/// said that one begins, rising. Steps are told by StepChart; levels whose middles do not differ by
/// what counts are one.
[[nodiscard]] std::vector<FigureLevel> LevelsOf(FigureKind kind, std::span<const double> values,
                                                std::span<const size_t> begins,
                                                const LevelGates& gates);

/// The last values of a level that all lie beyond all others of it, by what counts, and are too few
/// to be told: 2 or more.
struct Suspicion {
  size_t count = 0;
  double before = 0;  ///< the middle of the others
  double after = 0;
};

[[nodiscard]] std::optional<Suspicion> SuspicionOf(FigureKind kind, std::span<const double> level,
                                                   const LevelGates& gates);

}  // namespace vorn::kit

#endif  // VORN_KIT_HISTORY_LEVELS_H_
