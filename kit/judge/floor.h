// What a device loses beside what its precision has to lose: its outputs and those of a reference
// that was rounded to that precision, the floor, both against what is expected.
#ifndef VORN_KIT_JUDGE_FLOOR_H_
#define VORN_KIT_JUDGE_FLOOR_H_

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "kit/json/json.h"
#include "kit/judge/census.h"

namespace vorn::kit {

/// An RMSE of at most so many times the floor's is within what has to be lost: rounding in another
/// order, or with ranges measured elsewhere, moves it by that much.
inline constexpr double kFloorRatio = 1.25;

/// RMSE of one census as times that of another; 1 where both are 0, infinite where the floor's
/// alone is, no number where nothing finite was compared.
[[nodiscard]] double TimesFloor(const Census& actual, const Census& floor);

/// The nearest multiple of `step`, as tables show it; what is not finite stays.
[[nodiscard]] double RoundedTo(double value, double step);

/// Whether hardly anything of what was expected is left in the floor: below an SNR of 3 dB whatever
/// is as good as it is no better than nothing.
[[nodiscard]] bool HasLostIt(const Census& floor);

enum class FloorAnswer {
  kWithin,       ///< what the precision has to lose, or less
  kWorse,        ///< more than that, or numbers that are none where the floor has some
  kNotMeasured,  ///< no sample is on all three sides, or nothing of it is finite
};

/// One output of the samples that all three sides have.
struct FloorComparison {
  std::string output;
  uint64_t samples = 0;
  Census actual;
  Census floor;
  /// Why a sample was left out, the first reason; empty if none was.
  std::string leftOut;

  [[nodiscard]] FloorAnswer Answer(double most) const;
};

struct FloorReport {
  std::string path;
  std::string precision;  ///< "int8", as the run's log says; empty where it does not
  double most = kFloorRatio;
  std::vector<FloorComparison> outputs;
};

/// By how many dB the SNR is below the floor's: 0 where both are the same, less where it is better.
/// Both as Census::CappedSnr has them.
[[nodiscard]] double DecibelsBelow(const FloorComparison& comparison);

/// "within", "worse", "notMeasured".
[[nodiscard]] std::string_view AnswerName(FloorAnswer answer);

/// A table, and the answer in words for each output.
[[nodiscard]] std::string FloorText(const FloorReport& report);

/// "floor" of verdict.json.
[[nodiscard]] Json FloorJson(const FloorReport& report);

}  // namespace vorn::kit

#endif  // VORN_KIT_JUDGE_FLOOR_H_
