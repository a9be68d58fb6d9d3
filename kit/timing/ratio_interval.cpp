// A resample draws n of n values with putting back. Its median depends on one or two of the places
// drawn only, the middle ones of n uniform numbers, whose distribution is known: they are drawn at
// once instead of all n, so that a million values take no longer than ten.
#include "kit/timing/ratio_interval.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <random>
#include <vector>

#include "kit/timing/statistics.h"

namespace vorn::kit {
namespace {

using Random = std::mt19937_64;

double DrawBeta(double one, double other, Random& random) {
  const double first = std::gamma_distribution<double>(one)(random);
  const double second = std::gamma_distribution<double>(other)(random);
  return first / (first + second);
}

// Draws logarithms of medians, as distances from the series' own.
class ResampledMedian {
 public:
  ResampledMedian(std::span<const double> logarithms, double inflation)
      : sorted_(logarithms.begin(), logarithms.end()), scale_(std::sqrt(inflation)) {
    std::sort(sorted_.begin(), sorted_.end());
    middle_ = std::midpoint(sorted_[(sorted_.size() - 1) / 2], sorted_[sorted_.size() / 2]);
  }

  [[nodiscard]] double Middle() const { return middle_; }

  double Draw(Random& random) const {
    const auto count = static_cast<double>(sorted_.size());
    double median = 0;
    if (sorted_.size() % 2 == 1) {
      median = At(DrawBeta((count + 1) / 2, (count + 1) / 2, random));
    } else {
      const double lower = DrawBeta(count / 2, count / 2 + 1, random);
      // The least of the n / 2 that lie above.
      const double drawn = std::uniform_real_distribution<double>()(random);
      const double upper = lower + (1 - lower) * (1 - std::pow(drawn, 2 / count));
      median = std::midpoint(At(lower), At(upper));
    }
    return scale_ * (median - middle_);
  }

 private:
  [[nodiscard]] double At(double place) const {
    const auto index = static_cast<size_t>(place * static_cast<double>(sorted_.size()));
    return sorted_[std::min(index, sorted_.size() - 1)];
  }

  std::vector<double> sorted_;
  double middle_ = 0;
  double scale_ = 1;
};

std::vector<double> Logarithms(std::span<const double> values) {
  std::vector<double> logarithms;
  logarithms.reserve(values.size());
  for (const double value : values) logarithms.push_back(std::log(value));
  return logarithms;
}

ResampledMedian Resampled(std::span<const double> values) {
  const std::vector<double> logarithms = Logarithms(values);
  return {logarithms, MedianInflation(logarithms)};
}

// The interval of two medians holds the truth one time in a hundred more often than it is asked to,
// by simulation: the median of a resample is one of few values, and no dependence is estimated to
// be below none. With fewer values dependence is seen too badly to give any of that away.
double ConfidenceToAsk(double wanted, size_t count) {
  constexpr size_t kLeast = 20;
  constexpr double kMoreOutside = 1.2;
  return count < kLeast ? wanted : 1 - kMoreOutside * (1 - wanted);
}

RatioInterval FromDraws(double middle, std::vector<double> draws, double confidence) {
  std::sort(draws.begin(), draws.end());
  const auto outside =
      static_cast<size_t>((1 - confidence) / 2 * static_cast<double>(draws.size()));
  return {std::exp(middle), std::exp(middle + draws[outside]),
          std::exp(middle + draws[draws.size() - 1 - outside])};
}

}  // namespace

RatioInterval RatioOfMedians(std::span<const double> base, std::span<const double> other,
                             const Bootstrap& bootstrap) {
  Random random(bootstrap.seed);
  const ResampledMedian ofBase = Resampled(base);
  const ResampledMedian ofOther = Resampled(other);
  std::vector<double> draws(static_cast<size_t>(bootstrap.resamples));
  for (double& draw : draws) draw = ofOther.Draw(random) - ofBase.Draw(random);
  RatioInterval interval =
      FromDraws(ofOther.Middle() - ofBase.Middle(), std::move(draws),
                ConfidenceToAsk(bootstrap.confidence, std::min(base.size(), other.size())));
  // Of an even count the middle of two logarithms is not quite that of the two values.
  interval.ratio = Median(other) / Median(base);
  return interval;
}

RatioInterval MedianOfRatios(std::span<const double> base, std::span<const double> other,
                             const Bootstrap& bootstrap) {
  Random random(bootstrap.seed);
  std::vector<double> ratios = Logarithms(other);
  for (size_t i = 0; i < ratios.size(); ++i) ratios[i] -= std::log(base[i]);
  const ResampledMedian ofRatios(ratios, VarianceInflation(ratios));
  std::vector<double> draws(static_cast<size_t>(bootstrap.resamples));
  for (double& draw : draws) draw = ofRatios.Draw(random);
  return FromDraws(ofRatios.Middle(), std::move(draws), bootstrap.confidence);
}

}  // namespace vorn::kit
