#include "kit/history/step_chart.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <limits>

#include "kit/timing/statistics.h"

namespace vorn::kit {
namespace {

int Sign(double value) { return (value > 0 ? 1 : 0) - (value < 0 ? 1 : 0); }

struct Bound {
  size_t count;
  double bound;
};

// By `history_bench bounds`, between these on a straight line. Few values have few orders, so that
// the first ones go up and down; they are a little below a statistic that there is.
constexpr std::array kBounds{
    Bound{11, 2.7385}, Bound{12, 2.8822}, Bound{13, 2.8570},  Bound{14, 2.8401},
    Bound{15, 2.8722}, Bound{16, 2.8355}, Bound{17, 2.8459},  Bound{18, 2.8673},
    Bound{20, 2.8724}, Bound{26, 2.8908}, Bound{33, 2.9009},  Bound{43, 2.9080},
    Bound{60, 2.9181}, Bound{85, 2.9219}, Bound{120, 2.9255}, Bound{200, 2.9255},
};

double DistanceFromMedian(std::span<const double> values) {
  const double median = Median(values);
  double distance = 0;
  for (const double value : values) distance += std::abs(value - median);
  return distance;
}

// The split at which two levels explain the values best, near the one that ranks tell: of them the
// last value before the step belongs behind it if it was the largest so far.
size_t RefinedSplit(std::span<const double> values, size_t split) {
  constexpr size_t kMostMoved = 3;
  const size_t behind = values.size() - split;
  const size_t from = split - std::min(split - 1, kMostMoved);
  const size_t to = split + std::min(behind / 2, kMostMoved);
  size_t best = split;
  double least = std::numeric_limits<double>::infinity();
  for (size_t at = from; at <= to; ++at) {
    const double distance =
        DistanceFromMedian(values.first(at)) + DistanceFromMedian(values.subspan(at));
    if (distance >= least) continue;
    least = distance;
    best = at;
  }
  return best;
}

}  // namespace

double StepBound(size_t count) {
  if (count < kLeastForStep) return std::numeric_limits<double>::infinity();
  for (size_t i = 1; i < kBounds.size(); ++i) {
    const Bound& from = kBounds[i - 1];
    const Bound& to = kBounds[i];
    if (count > to.count) continue;
    const double share =
        static_cast<double>(count - from.count) / static_cast<double>(to.count - from.count);
    return from.bound + share * (to.bound - from.bound);
  }
  return kBounds.back().bound;
}

void StepChart::Clear() {
  values_.clear();
  rises_.clear();
  isConstant_ = false;
}

// The first value goes, and with it its pairs.
void StepChart::Forget() {
  int pairs = 0;
  for (size_t t = values_.size() - 1; t >= 1; --t) {
    pairs += Sign(values_[t] - values_[0]);
    rises_[t - 1] -= pairs;
  }
  values_.erase(values_.begin());
  rises_.erase(rises_.begin());  // that of the split behind the first one
  isConstant_ =
      std::adjacent_find(values_.begin(), values_.end(), std::not_equal_to<>()) == values_.end();
}

void StepChart::Take(double value) {
  // Nothing rises or falls among equal values, as which most figures of verdicts come.
  if (isConstant_ && value == values_.back()) {
    if (values_.size() == kStepWindow) return;
    values_.push_back(value);
    rises_.push_back(0);
    return;
  }
  if (values_.size() == kStepWindow) Forget();
  isConstant_ = values_.empty() || (isConstant_ && value == values_.back());
  if (!values_.empty()) rises_.push_back(0);
  int pairs = 0;
  for (size_t t = 0; t < values_.size(); ++t) {
    pairs += Sign(value - values_[t]);
    rises_[t] += pairs;
  }
  values_.push_back(value);
}

StepChart::Extreme StepChart::Largest() const {
  const auto count = static_cast<double>(values_.size());
  // The roots once, at the end: of the square the same split is the largest.
  double largest = 0;
  size_t at = 0;
  for (size_t t = 1; t < values_.size(); ++t) {
    const auto rise = static_cast<double>(rises_[t - 1]);
    const double before = static_cast<double>(t);
    const double square = rise * rise / (before * (count - before));
    if (square <= largest) continue;
    largest = square;
    at = t;
  }
  if (at == 0) return {};
  return {.statistic = std::sqrt(largest * 3 / (count + 1)), .behind = values_.size() - at};
}

std::optional<size_t> StepChart::Add(double value) {
  Take(value);
  if (values_.size() < kLeastForStep || isConstant_) return std::nullopt;
  const Extreme extreme = Largest();
  if (extreme.statistic < StepBound(values_.size())) return std::nullopt;
  const size_t split = RefinedSplit(values_, values_.size() - extreme.behind);
  const std::vector<double> behind(values_.begin() + static_cast<ptrdiff_t>(split), values_.end());
  Clear();
  for (const double kept : behind) Take(kept);
  return behind.size();
}

}  // namespace vorn::kit
