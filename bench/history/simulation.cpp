#include "history/simulation.h"

#include <algorithm>
#include <cmath>
#include <random>

#include "kit/history/levels.h"
#include "kit/history/step_chart.h"

namespace vorn::bench {
namespace {

constexpr double kUsualNs = 10e6;
constexpr size_t kLongSeries = 500;

bool IsTold(const std::vector<double>& values) {
  return kit::LevelsOf(kit::FigureKind::kTime, values, {}, {}).size() > 1;
}

}  // namespace

std::string_view NoiseName(RunNoise noise) {
  switch (noise) {
    case RunNoise::kLogNormal:
      return "log-normal, 1 %";
    case RunNoise::kOutliers:
      return "and 1 in 20 half as slow again";
    case RunNoise::kAutocorrelated:
      return "autocorrelated, 0.5";
    case RunNoise::kRounded:
      return "rounded to 1 %";
  }
  return "";
}

std::vector<double> MakeRuns(RunNoise noise, size_t count, size_t stepAt, double factor,
                             uint64_t seed) {
  constexpr double kNoise = 0.01;
  constexpr double kFollows = 0.5;
  std::mt19937_64 random(seed);
  std::normal_distribution<double> normal;
  std::uniform_real_distribution<double> uniform;
  std::vector<double> values;
  double deviation = normal(random);
  for (size_t i = 0; i < count; ++i) {
    deviation = noise == RunNoise::kAutocorrelated
                    ? kFollows * deviation + std::sqrt(1 - kFollows * kFollows) * normal(random)
                    : normal(random);
    double value = kUsualNs * (i >= stepAt ? factor : 1) * std::exp(kNoise * deviation);
    if (noise == RunNoise::kOutliers && uniform(random) < 0.05) value *= 1.5;
    if (noise == RunNoise::kRounded) {
      value = std::round(value / (kUsualNs * kNoise)) * kUsualNs * kNoise;
    }
    values.push_back(value);
  }
  return values;
}

FalseAlarms CountFalseAlarms(RunNoise noise, size_t trials, uint64_t seed) {
  FalseAlarms alarms;
  for (size_t trial = 0; trial < trials; ++trial) {
    const std::vector<double> values =
        MakeRuns(noise, kLongSeries, kLongSeries, 1, seed * 1000003 + trial);
    alarms.runs += values.size();
    kit::StepChart chart;
    bool isFirst = true;
    for (const double value : values) {
      alarms.runsToFirst += isFirst ? 1 : 0;
      if (!chart.Add(value)) continue;
      ++alarms.byRanks;
      alarms.first += isFirst ? 1 : 0;
      isFirst = false;
    }
    const auto levels = kit::LevelsOf(kit::FigureKind::kTime, values, {}, {});
    alarms.counting += levels.size() - 1;
    const auto isWithin = [&](size_t count) {
      return IsTold(
          std::vector<double>(values.begin(), values.begin() + static_cast<ptrdiff_t>(count)));
    };
    alarms.within5 += isWithin(5) ? 1 : 0;
    alarms.within20 += isWithin(20) ? 1 : 0;
    alarms.within100 += isWithin(100) ? 1 : 0;
  }
  return alarms;
}

std::vector<size_t> MeasureDelays(RunNoise noise, size_t before, double factor, size_t trials,
                                  uint64_t seed) {
  std::vector<size_t> delays;
  for (size_t trial = 0; trial < trials; ++trial) {
    const std::vector<double> all =
        MakeRuns(noise, before + kLongest, before, factor, seed * 1000003 + trial);
    std::vector<double> values(all.begin(), all.begin() + static_cast<ptrdiff_t>(before));
    if (IsTold(values)) continue;
    size_t delay = kNever;
    for (size_t behind = 1; behind <= kLongest && delay == kNever; ++behind) {
      values.push_back(all[before + behind - 1]);
      if (IsTold(values)) delay = behind;
    }
    delays.push_back(delay);
  }
  return delays;
}

std::vector<FoundBound> FindBounds(size_t trials, uint64_t seed) {
  std::mt19937_64 random(seed);
  std::uniform_real_distribution<double> uniform;
  std::vector<kit::StepChart> charts(trials);
  std::vector<FoundBound> bounds;
  std::vector<std::pair<double, size_t>> statistics;
  for (size_t count = 1; count <= kit::kStepWindow; ++count) {
    statistics.clear();
    for (size_t i = 0; i < charts.size(); ++i) {
      charts[i].Take(uniform(random));
      if (count >= kit::kLeastForStep) statistics.emplace_back(charts[i].Largest().statistic, i);
    }
    if (count < kit::kLeastForStep) continue;
    std::sort(statistics.begin(), statistics.end());
    // The least value that no more than the share reach; of few values many are alike.
    const auto share =
        static_cast<size_t>(kit::kStepFalseAlarms * static_cast<double>(statistics.size()));
    size_t from = statistics.size() - share;
    while (from < statistics.size() && from > 0 &&
           statistics[from].first == statistics[from - 1].first) {
      ++from;
    }
    const double bound = from < statistics.size() ? statistics[from].first
                                                  : std::nextafter(statistics.back().first, 1e9);
    bounds.push_back({.count = count, .bound = bound, .alive = statistics.size()});
    std::vector<kit::StepChart> alive;
    alive.reserve(from);
    for (size_t i = 0; i < from; ++i) alive.push_back(std::move(charts[statistics[i].second]));
    charts = std::move(alive);
  }
  return bounds;
}

}  // namespace vorn::bench
