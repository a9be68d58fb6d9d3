// Whether the level of a series has changed, looked at anew with each value that comes: the
// change-point chart of Hawkins and Deng, "A Nonparametric Change-Point Control Chart", Journal of
// Quality Technology 42 (2010).
//
// Each split of the values so far is a test of Mann and Whitney: of n values the t first against
// the others, by how many pairs rise and how many fall,
//
//     U(t) = sum over i <= t < j of sign(x[j] - x[i]),    of variance t (n - t) (n + 1) / 3
//
// and the largest |U(t)| / sqrt(variance) is held against a bound that, of series without a change,
// one in 200 passes at each value at which it has not done so before. The bounds hang on n alone,
// whatever the values are distributed like, and were found by simulation (bench/history). Ranks
// saturate: one wild value never makes a step, nor do two.
#ifndef VORN_KIT_HISTORY_STEP_CHART_H_
#define VORN_KIT_HISTORY_STEP_CHART_H_

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

namespace vorn::kit {

/// Fewer values never tell of a step, whatever they are: no order of them is rare enough.
inline constexpr size_t kLeastForStep = 11;

/// Only so many of the latest values are looked at: an addition costs as much as there are.
inline constexpr size_t kStepWindow = 200;

/// At each value, of series without a change, the share that is told to have one.
inline constexpr double kStepFalseAlarms = 0.005;

/// What the chart's statistic has to reach with `count` values; infinite below kLeastForStep.
[[nodiscard]] double StepBound(size_t count);

class StepChart {
 public:
  /// Takes the next value. If there is a step among those that it holds, it forgets what was before
  /// the step and returns how many values there are from the step on; 1 or more.
  std::optional<size_t> Add(double value);

  /// The same without asking whether there is a step; nothing is forgotten but beyond the window.
  void Take(double value);

  /// The largest statistic of all splits, 0 with fewer than two values; and how many values lie
  /// behind that split.
  struct Extreme {
    double statistic = 0;
    size_t behind = 0;
  };
  [[nodiscard]] Extreme Largest() const;

  /// Forgets all.
  void Clear();

  /// Whether all values that it holds are equal, and there is one.
  [[nodiscard]] bool IsConstant() const { return isConstant_; }

  [[nodiscard]] const std::vector<double>& Values() const { return values_; }

 private:
  void Forget();

  std::vector<double> values_;
  std::vector<int> rises_;  ///< U(t) for t from 1 on
  bool isConstant_ = false;
};

}  // namespace vorn::kit

#endif  // VORN_KIT_HISTORY_STEP_CHART_H_
