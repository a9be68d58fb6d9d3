#include "kit/timing/statistics.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <utility>

namespace vorn::kit {
namespace {

constexpr double kDeviationsOfMedian = 1.4826;  // standard deviations in a median deviation
constexpr double kChanceOfNoneBeyond = 0.05;
constexpr double kDriftLevel = 0.01;
constexpr double kMostAutocorrelation = 0.95;

std::vector<double> CopyOf(std::span<const double> values) {
  return {values.begin(), values.end()};
}

// What would stand at a place if the values were sorted. Brings them into another order: smaller
// ones before it, larger ones behind it. Of a million values that takes a tenth of sorting them.
double AtPlace(std::vector<double>& values, size_t place) {
  const auto at = values.begin() + static_cast<std::ptrdiff_t>(place);
  std::nth_element(values.begin(), at, values.end());
  return *at;
}

double MedianOf(std::vector<double>& values) {
  const size_t upper = values.size() / 2;
  const double above = AtPlace(values, upper);
  if (values.size() % 2 == 1) return above;
  const auto end = values.begin() + static_cast<std::ptrdiff_t>(upper);
  return std::midpoint(*std::max_element(values.begin(), end), above);
}

double AtShare(std::vector<double>& values, double share) {
  const auto rank = static_cast<size_t>(std::ceil(share * static_cast<double>(values.size())));
  return AtPlace(values, std::clamp<size_t>(rank, 1, values.size()) - 1);
}

double Mean(std::span<const double> values) {
  return std::accumulate(values.begin(), values.end(), 0.0) / static_cast<double>(values.size());
}

// Of two series of one length, both of which vary.
double Correlation(std::span<const double> one, std::span<const double> other) {
  const double meanOfOne = Mean(one);
  const double meanOfOther = Mean(other);
  double both = 0;
  double ofOne = 0;
  double ofOther = 0;
  for (size_t i = 0; i < one.size(); ++i) {
    both += (one[i] - meanOfOne) * (other[i] - meanOfOther);
    ofOne += (one[i] - meanOfOne) * (one[i] - meanOfOne);
    ofOther += (other[i] - meanOfOther) * (other[i] - meanOfOther);
  }
  return ofOne > 0 && ofOther > 0 ? both / std::sqrt(ofOne * ofOther) : 0;
}

std::vector<double> PlacesOf(std::span<const double> values) {
  std::vector<double> places(values.size());
  std::iota(places.begin(), places.end(), 1.0);
  return places;
}

struct Trend {
  bool isClear = false;      ///< chance makes it once in a hundred times
  std::vector<double> rest;  ///< the ranks without it
};

Trend TakeTrendOut(std::span<const double> values) {
  Trend trend{.isClear = false, .rest = Ranks(values)};
  const std::vector<double> places = PlacesOf(values);
  const double slope = Correlation(trend.rest, places);
  for (size_t i = 0; i < places.size(); ++i) trend.rest[i] -= slope * places[i];
  // Values that follow each other rise and fall for a while without a trend.
  const double z =
      slope * std::sqrt(static_cast<double>(values.size() - 1) / VarianceInflation(trend.rest));
  trend.isClear = 2 * NormalShare(-std::abs(z)) <= kDriftLevel;
  return trend;
}

// Of Pettitt's test, "A Non-Parametric Approach to the Change-Point Problem", Applied Statistics 28
// (1979): with
//
//     U(t) = 2 · (sum of the first t ranks) − t (n + 1)
//
// the largest |U(t)| of all t passes K without a change by a chance of 2 exp(−6 K² / (n³ + n²)) at
// most. Ranks saturate, so that no wild value makes a step. Values that follow each other make
// longer waves: K² is worth less by as much as the series is worth fewer values.
struct Split {
  size_t at = 0;  // 0: none
  double size = 0;

  [[nodiscard]] double Chance(double count, double inflation) const {
    return 2 * std::exp(-6 * size * size / ((count * count * count + count * count) * inflation));
  }
};

// The largest from `from` up to `to`.
Split LargestSplit(std::span<const double> values, size_t from, size_t to) {
  const std::vector<double> ranks = Ranks(values);
  const auto count = static_cast<double>(values.size());
  Split split;
  double sum = 0;
  for (size_t t = 1; t <= to; ++t) {
    sum += ranks[t - 1];
    const double size = std::abs(2 * sum - static_cast<double>(t) * (count + 1));
    if (t >= from && size > split.size) split = {t, size};
  }
  return split;
}

class StepSearch {
 public:
  StepSearch(std::span<const double> values, double ratio) : values_(values), ratio_(ratio) {}

  // Each place is looked for as if values did not follow each other, and however little it is: of a
  // level between two others that are alike no single split shows much. Then each has to hold
  // between its neighbours, with what all of them leave of that.
  std::vector<size_t> Run(size_t most) {
    Look(0, values_.size());
    std::sort(steps_.begin(), steps_.end());
    while (!steps_.empty()) {
      const double inflation = VarianceInflation(Rest());
      size_t weakest = 0;
      double chance = -1;
      for (size_t i = 0; i < steps_.size(); ++i) {
        const double one = ChanceOf(i, inflation);
        if (one <= chance) continue;
        chance = one;
        weakest = i;
      }
      if (chance <= kMostChance) break;
      steps_.erase(steps_.begin() + static_cast<std::ptrdiff_t>(weakest));
    }
    steps_.resize(std::min(steps_.size(), most));
    return std::move(steps_);
  }

 private:
  static constexpr double kMostChance = 0.001;
  static constexpr size_t kMostLooked = 32;

  [[nodiscard]] bool IsApart(std::span<const double> part, size_t at) const {
    const double before = Median(part.first(at));
    const double behind = Median(part.subspan(at));
    const double least = std::min(before, behind);
    return least > 0 && std::max(before, behind) >= ratio_ * least;
  }

  void Look(size_t first, size_t count) {
    if (steps_.size() == kMostLooked || count < 2 * kLeastForLevel) return;
    const Split split =
        LargestSplit(values_.subspan(first, count), kLeastForLevel, count - kLeastForLevel);
    if (split.at == 0 || split.Chance(static_cast<double>(count), 1) > kMostChance) return;
    steps_.push_back(first + split.at);
    Look(first, split.at);
    Look(first + split.at, count - split.at);
  }

  [[nodiscard]] size_t BeginOf(size_t level) const { return level == 0 ? 0 : steps_[level - 1]; }
  [[nodiscard]] size_t EndOf(size_t level) const {
    return level == steps_.size() ? values_.size() : steps_[level];
  }

  // The values without their levels.
  [[nodiscard]] std::vector<double> Rest() const {
    std::vector<double> rest = CopyOf(values_);
    for (size_t level = 0; level <= steps_.size(); ++level) {
      const size_t begin = BeginOf(level);
      const double middle = Median(values_.subspan(begin, EndOf(level) - begin));
      for (size_t i = begin; i < EndOf(level); ++i) rest[i] -= middle;
    }
    return rest;
  }

  // Between its neighbours; 1 where the levels beside it are no longer apart.
  [[nodiscard]] double ChanceOf(size_t step, double inflation) const {
    const size_t begin = BeginOf(step);
    const auto part = values_.subspan(begin, EndOf(step + 1) - begin);
    const size_t at = steps_[step] - begin;
    if (!IsApart(part, at)) return 1;
    return LargestSplit(part, at, at).Chance(static_cast<double>(part.size()), inflation);
  }

  std::span<const double> values_;
  double ratio_;
  std::vector<size_t> steps_;
};

// How much of the variance of being above the median is left without a straight trend of it.
double ShareWithoutTrend(std::span<const double> values) {
  const double middle = Median(values);
  std::vector<double> isAbove;
  isAbove.reserve(values.size());
  for (const double value : values) {
    isAbove.push_back(value > middle ? 1 : value < middle ? 0 : 0.5);
  }
  const double correlation = Correlation(isAbove, PlacesOf(values));
  const auto count = static_cast<double>(values.size());
  return std::min(1.0, (1 - correlation * correlation) * (count - 1) / (count - 2));
}

}  // namespace

double Median(std::span<const double> values) {
  std::vector<double> copy = CopyOf(values);
  return MedianOf(copy);
}

double MedianDeviation(std::span<const double> values) {
  std::vector<double> distances = CopyOf(values);
  const double middle = MedianOf(distances);
  for (double& distance : distances) distance = std::abs(distance - middle);
  return MedianOf(distances);
}

std::optional<double> Percentile(std::span<const double> values, double share) {
  if (values.empty()) return std::nullopt;
  const double none = std::pow(share, static_cast<double>(values.size()));
  if (none > kChanceOfNoneBeyond) return std::nullopt;
  std::vector<double> copy = CopyOf(values);
  return AtShare(copy, share);
}

std::optional<double> Spread(std::span<const double> values) {
  constexpr size_t kLeast = 4;
  if (values.size() < kLeast) return std::nullopt;
  std::vector<double> copy = CopyOf(values);
  const double middle = MedianOf(copy);
  if (middle <= 0) return std::nullopt;
  return (AtShare(copy, 0.75) - AtShare(copy, 0.25)) / middle;
}

std::vector<size_t> FindOutliers(std::span<const double> values) {
  std::vector<size_t> places;
  if (values.empty()) return places;
  const double middle = Median(values);
  const double deviation = kDeviationsOfMedian * MedianDeviation(values);
  if (deviation <= 0) return places;  // more than half are one value: there is no scale
  for (size_t i = 0; i < values.size(); ++i) {
    if (std::abs(values[i] - middle) > kOutlierDeviations * deviation) places.push_back(i);
  }
  return places;
}

std::optional<double> FindDrift(std::span<const double> values) {
  if (values.size() < kLeastForDrift || !TakeTrendOut(values).isClear) return std::nullopt;
  const double first = Median(values.first(values.size() / 3));
  if (first <= 0) return std::nullopt;
  return Median(values.last(values.size() / 3)) / first - 1;
}

std::vector<size_t> FindSteps(std::span<const double> values, double ratio, size_t most) {
  return StepSearch(values, ratio).Run(most);
}

double Autocorrelation(std::span<const double> values) {
  if (values.size() < kLeastForAutocorrelation) return 0;
  const std::vector<double> ranks = Ranks(values);
  const double mean = Mean(ranks);
  double all = 0;
  double next = 0;
  for (size_t i = 0; i < ranks.size(); ++i) {
    all += (ranks[i] - mean) * (ranks[i] - mean);
    if (i > 0) next += (ranks[i] - mean) * (ranks[i - 1] - mean);
  }
  if (all <= 0) return 0;
  // A short series shows its correlation r less (1 + 4 r) / n, since its mean is its own.
  const auto count = static_cast<double>(values.size());
  return std::clamp((count * next / all + 1) / (count - 4), 0.0, kMostAutocorrelation);
}

double VarianceInflation(std::span<const double> values) {
  const double correlation = Autocorrelation(values);
  return (1 + correlation) / (1 - correlation);
}

double MedianInflation(std::span<const double> values) {
  if (values.size() < kLeastForDriftTakenOut) return VarianceInflation(values);
  const Trend trend = TakeTrendOut(values);
  if (!trend.isClear) return VarianceInflation(values);
  return VarianceInflation(trend.rest) * ShareWithoutTrend(values);
}

std::vector<double> Ranks(std::span<const double> values) {
  // Values lie beside their places, since following places to values meets memory in no order.
  std::vector<std::pair<double, size_t>> order;
  order.reserve(values.size());
  for (size_t i = 0; i < values.size(); ++i) order.emplace_back(values[i], i);
  std::sort(order.begin(), order.end());
  std::vector<double> ranks(values.size());
  for (size_t begin = 0; begin < order.size();) {
    size_t end = begin + 1;
    while (end < order.size() && order[end].first == order[begin].first) ++end;
    for (size_t i = begin; i < end; ++i) {
      ranks[order[i].second] = static_cast<double>(begin + end + 1) / 2;
    }
    begin = end;
  }
  return ranks;
}

double NormalShare(double z) { return std::erfc(-z / std::sqrt(2.0)) / 2; }

double NormalQuantile(double p) {
  double low = -40;
  double high = 40;
  constexpr int kHalvings = 100;
  for (int i = 0; i < kHalvings; ++i) {
    const double middle = std::midpoint(low, high);
    (NormalShare(middle) < p ? low : high) = middle;
  }
  return std::midpoint(low, high);
}

}  // namespace vorn::kit
