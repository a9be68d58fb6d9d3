#include "timing/simulation.h"

#include <cmath>
#include <random>
#include <vector>

namespace vorn::bench {
namespace {

using Random = std::mt19937_64;
using Series = std::vector<double>;

constexpr double kMedianNs = 1e6;

// Each value follows the one before by `share`, and varies by 1 all the same.
class Following {
 public:
  Following(double share, Random& random) : share_(share), now_(normal_(random)) {}
  double Next(Random& random) {
    const double value = now_;
    now_ = share_ * now_ + std::sqrt(1 - share_ * share_) * normal_(random);
    return value;
  }

 private:
  double share_;
  std::normal_distribution<double> normal_;
  double now_;
};

Series Draw(Course course, size_t count, Random& random) {
  std::normal_distribution<double> normal;
  Following following(0.6, random);
  Series series;
  for (size_t i = 0; i < count; ++i) {
    const double own = normal(random);
    double logarithm = 0;
    switch (course) {
      case Course::kLogNormal:
        logarithm = 0.1 * own;
        break;
      case Course::kBimodal:
        logarithm = 0.02 * own + (random() % 10 < 3 ? std::log(1.25) : 0);
        break;
      case Course::kDrifting:
        logarithm = 0.05 * own + 0.15 * static_cast<double>(i) / static_cast<double>(count);
        break;
      case Course::kAutocorrelated:
        logarithm = 0.05 * following.Next(random);
        break;
      case Course::kInterleaved:
        logarithm = 0.05 * own;
        break;
    }
    series.push_back(kMedianNs * std::exp(logarithm));
  }
  return series;
}

void ShareWhatChanges(Series& one, Series& other, Random& random) {
  Following following(0.6, random);
  for (size_t i = 0; i < one.size(); ++i) {
    const double shared = std::exp(0.05 * following.Next(random));
    one[i] *= shared;
    other[i] *= shared;
  }
}

}  // namespace

std::string_view CourseName(Course course) {
  switch (course) {
    case Course::kLogNormal:
      return "log-normal";
    case Course::kBimodal:
      return "bimodal";
    case Course::kDrifting:
      return "drifting";
    case Course::kAutocorrelated:
      return "autocorrelated";
    case Course::kInterleaved:
      return "interleaved";
  }
  return "";
}

Outcomes Simulate(const Simulation& simulation) {
  Random random(simulation.seed);
  Outcomes outcomes;
  const kit::Gates open{.ratio = 1, .absoluteNs = 0};
  for (size_t trial = 0; trial < simulation.trials; ++trial) {
    Series base = Draw(simulation.course, simulation.count, random);
    Series other = Draw(simulation.course, simulation.count, random);
    const bool isPaired = simulation.course == Course::kInterleaved;
    if (isPaired) ShareWhatChanges(base, other, random);
    for (double& value : other) value *= simulation.factor;
    const kit::Contest contest{.base = base, .other = other, .isPaired = isPaired};
    const kit::Comparison found =
        kit::Compare({&contest, 1}, open, {.resamples = simulation.resamples, .seed = random()})[0];
    if (found.verdict == kit::TimingVerdict::kSlower) ++outcomes.slower;
    if (found.verdict == kit::TimingVerdict::kFaster) ++outcomes.faster;
    const bool isCovered =
        found.interval.low <= simulation.factor && simulation.factor <= found.interval.high;
    if (isCovered) ++outcomes.covered;
  }
  return outcomes;
}

}  // namespace vorn::bench
