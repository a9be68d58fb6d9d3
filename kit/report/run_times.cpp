#include "kit/report/run_times.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numeric>
#include <set>
#include <string_view>
#include <tuple>
#include <utility>

#include "kit/page/number_text.h"
#include "kit/timing/ratio_interval.h"
#include "kit/timing/statistics.h"
#include "kit/timing/times.h"

namespace vorn::kit {
namespace {

constexpr size_t kHistogramBins = 48;

// ---- Executions in order ------------------------------------------------------------------------

struct Execution {
  uint64_t sample = 0;
  uint64_t startNs = 0;
  double timeNs = 0;
  bool isWarmUp = false;
};

// Smaller differences of two levels are those of any machine.
constexpr double kLeastStepRatio = 1.1;

uint64_t Since(uint64_t startRealtimeNs, uint64_t realtimeNs) {
  return realtimeNs > startRealtimeNs ? realtimeNs - startRealtimeNs : 0;
}

// All that ran, those of an inference that was run again, too.
std::vector<Execution> ExecutionsOf(const std::vector<TimesRecord>& records,
                                    const std::string& series, uint64_t startRealtimeNs) {
  std::vector<const TimesRecord*> own;
  for (const TimesRecord& record : records) {
    if (record.series.value_or("") == series) own.push_back(&record);
  }
  std::stable_sort(own.begin(), own.end(), [](const TimesRecord* one, const TimesRecord* other) {
    return one->startRealtimeNs < other->startRealtimeNs;
  });
  std::set<std::tuple<std::string_view, uint64_t, uint64_t>> processes;
  std::vector<Execution> executions;
  for (const TimesRecord* record : own) {
    if (record->executeNs.empty()) continue;
    bool isWarmUp = processes.emplace(record->host, record->chunk, record->attempt).second;
    for (const uint64_t time : record->executeNs) {
      executions.push_back({record->index, Since(startRealtimeNs, record->startRealtimeNs),
                            static_cast<double>(std::max<uint64_t>(time, 1)), isWarmUp});
      isWarmUp = false;
    }
  }
  return executions;
}

void TakeExecutionsRow(std::span<const Execution> row, ReportSeries& series) {
  std::vector<double> times;
  bool isWarmUp = false;
  for (const Execution& execution : row) {
    times.push_back(execution.timeNs);
    isWarmUp = isWarmUp || execution.isWarmUp;
  }
  series.sample.push_back(row.front().sample);
  series.startNs.push_back(row.front().startNs);
  series.isWarmUp.push_back(isWarmUp ? 1 : 0);
  series.medianNs.push_back(Median(times));
  if (series.executionsPerRow == 1) return;
  series.leastNs.push_back(*std::min_element(times.begin(), times.end()));
  series.mostNs.push_back(*std::max_element(times.begin(), times.end()));
}

void TakeRows(const std::vector<Execution>& executions, ReportSeries& series) {
  series.executionsPerRow =
      std::max<size_t>((executions.size() + kMostReportTimes - 1) / kMostReportTimes, 1);
  for (size_t first = 0; first < executions.size(); first += series.executionsPerRow) {
    const size_t count = std::min<size_t>(series.executionsPerRow, executions.size() - first);
    TakeExecutionsRow(std::span(executions).subspan(first, count), series);
  }
}

// ---- What the series is like --------------------------------------------------------------------

void TakeHistogram(const std::vector<double>& times, ReportSeries& series) {
  series.histogramLowNs = *std::min_element(times.begin(), times.end());
  series.histogramHighNs = *std::max_element(times.begin(), times.end());
  const double width = std::log(series.histogramHighNs / series.histogramLowNs);
  series.histogram.assign(width > 0 ? kHistogramBins : 1, 0);
  for (const double time : times) {
    const double share = width > 0 ? std::log(time / series.histogramLowNs) / width : 0;
    const auto bin = static_cast<size_t>(share * static_cast<double>(series.histogram.size()));
    ++series.histogram[std::min(bin, series.histogram.size() - 1)];
  }
}

// Executions in the order in which they ran, without warm-ups, and what they are between steps.
class TimeLevels {
 public:
  explicit TimeLevels(const std::vector<Execution>& executions) : executions_(executions) {
    for (size_t i = 0; i < executions.size(); ++i) {
      if (executions[i].isWarmUp) continue;
      times_.push_back(executions[i].timeNs);
      places_.push_back(i);
    }
    begins_ = FindSteps(times_, kLeastStepRatio, kMostReportSteps);
    begins_.insert(begins_.begin(), 0);
    begins_.push_back(times_.size());
  }

  void Take(ReportSeries& series) const {
    for (size_t level = 1; level + 1 < begins_.size(); ++level) {
      const auto before = Of(level - 1);
      const auto behind = Of(level);
      series.steps.push_back({.execution = places_[begins_[level]],
                              .sample = executions_[places_[begins_[level]]].sample,
                              .countBefore = before.size(),
                              .countBehind = behind.size(),
                              .beforeNs = Median(before),
                              .behindNs = Median(behind)});
    }
    TakeFarOff(series);
  }

 private:
  [[nodiscard]] std::span<const double> Of(size_t level) const {
    return std::span(times_).subspan(begins_[level], begins_[level + 1] - begins_[level]);
  }

  // Far off from their own level: a level that lies above the others is no row of outliers.
  void TakeFarOff(ReportSeries& series) const {
    uint64_t outliers = 0;
    std::vector<size_t> slow;
    for (size_t level = 0; level + 1 < begins_.size(); ++level) {
      const auto times = Of(level);
      if (times.empty()) continue;
      const double middle = Median(times);
      for (const size_t at : FindOutliers(times)) {
        ++outliers;
        if (times[at] > middle) slow.push_back(begins_[level] + at);
      }
    }
    if (!series.steps.empty()) series.outliers = outliers;
    std::stable_sort(slow.begin(), slow.end(),
                     [&](size_t one, size_t other) { return times_[one] > times_[other]; });
    slow.resize(std::min(slow.size(), kMostReportSlow));
    for (const size_t at : slow) {
      series.slowest.push_back({places_[at], executions_[places_[at]].sample, times_[at]});
    }
  }

  const std::vector<Execution>& executions_;
  std::vector<double> times_;
  std::vector<size_t> places_;  // among all executions
  std::vector<size_t> begins_;  // of levels, and behind the last one the end
};

void TakeStatistics(const Times& times, ReportSeries& series) {
  series.warmUps = times.firstNs.size();
  series.count = times.timesNs.size();
  series.failed = times.failed;
  series.repeated = times.repeated;
  if (!times.firstNs.empty()) series.firstNs = times.firstNs.front();
  if (times.timesNs.empty()) return;
  const std::vector<double>& all = times.timesNs;
  series.medianOfAllNs = Median(all);
  series.deviationNs = MedianDeviation(all);
  series.p90Ns = Percentile(all, 0.90);
  series.p95Ns = Percentile(all, 0.95);
  series.p99Ns = Percentile(all, 0.99);
  series.leastOfAllNs = *std::min_element(all.begin(), all.end());
  series.mostOfAllNs = *std::max_element(all.begin(), all.end());
  series.outliers = FindOutliers(all).size();
  series.drift = FindDrift(all);
  series.lowNs = series.leastOfAllNs;
  series.highNs = series.mostOfAllNs;
  if (all.size() >= kLeastJudged) {
    // Of a base that is always 1 the ratio is the median itself.
    const std::array<double, 1> one{1};
    Bootstrap bootstrap;
    bootstrap.confidence = series.confidence;
    const RatioInterval interval = RatioOfMedians(one, all, bootstrap);
    series.lowNs = interval.low;
    series.highNs = interval.high;
  }
  TakeHistogram(all, series);
}

// ---- Machine ------------------------------------------------------------------------------------

std::vector<std::string> ShownZones(const std::vector<MachineMoment>& moments) {
  std::map<std::string, int64_t> highest;
  for (const MachineMoment& moment : moments) {
    for (const auto& [zone, milliC] : moment.temperatureMilliC) {
      const auto [at, isNew] = highest.emplace(zone, milliC);
      if (!isNew) at->second = std::max(at->second, milliC);
    }
  }
  std::vector<std::pair<std::string, int64_t>> zones(highest.begin(), highest.end());
  std::stable_sort(zones.begin(), zones.end(),
                   [](const auto& one, const auto& other) { return one.second > other.second; });
  std::vector<std::string> names;
  for (size_t i = 0; i < std::min(zones.size(), kMostReportZones); ++i) {
    names.push_back(zones[i].first);
  }
  std::sort(names.begin(), names.end());
  return names;
}

void TakeMoment(const MachineMoment& moment, uint64_t startRealtimeNs, ReportMachine& machine) {
  machine.atNs.push_back(Since(startRealtimeNs, moment.realtimeNs));
  // Asked while it begins, a program holds a few pages yet, which are no figure to show.
  constexpr uint64_t kLeastOfAProgram = 1 << 20;
  const bool hasBegun = moment.rssBytes.value_or(0) >= kLeastOfAProgram;
  machine.rssBytes.push_back(hasBegun ? moment.rssBytes : std::nullopt);
  machine.memoryAvailableBytes.push_back(moment.memoryAvailableBytes);
  const auto& cores = moment.frequencyKhz;
  const bool isKnown = !cores.empty();
  const auto [least, most] = std::minmax_element(cores.begin(), cores.end());
  machine.leastFrequencyKhz.push_back(isKnown ? std::optional(*least) : std::nullopt);
  machine.mostFrequencyKhz.push_back(isKnown ? std::optional(*most) : std::nullopt);
  for (ReportMachine::Zone& zone : machine.zones) {
    const auto at = moment.temperatureMilliC.find(zone.name);
    const bool isThere = at != moment.temperatureMilliC.end();
    zone.milliC.push_back(isThere ? std::optional(at->second) : std::nullopt);
  }
}

}  // namespace

std::vector<ReportSeries> SeriesOf(const std::vector<TimesRecord>& records,
                                   uint64_t startRealtimeNs) {
  std::vector<ReportSeries> all;
  for (const Times& times : TimesOfRun(records).series) {
    ReportSeries series;
    series.name = times.name;
    const auto executions = ExecutionsOf(records, times.name, startRealtimeNs);
    if (executions.empty()) continue;
    TakeRows(executions, series);
    TakeStatistics(times, series);
    TimeLevels(executions).Take(series);
    for (const Execution& execution : executions) series.sumNs += execution.timeNs;
    all.push_back(std::move(series));
  }
  return all;
}

std::vector<ReportPhase> PhasesOf(const std::map<std::string, uint64_t>& phases,
                                  uint64_t& wholeNs) {
  constexpr std::array<std::pair<const char*, const char*>, 7> kKnown{{
      {"start", "up to the first call"},
      {"load", "loading the model, inside the runtime"},
      {"copyIn", "reading inputs, outside the runtime"},
      {"execute", "executing, inside the runtime"},
      {"write", "writing dumps, outside the runtime"},
      {"otherCalls", "all other calls, inside the runtime"},
      {"other", "outside the runtime"},
  }};
  std::vector<ReportPhase> parts;
  uint64_t sumNs = 0;
  const auto add = [&](const std::string& id, const std::string& text, uint64_t duration) {
    // What is beyond 64 bits is no time.
    duration = std::min(duration, UINT64_MAX - sumNs);
    parts.push_back({id, text, sumNs, duration});
    sumNs += duration;
  };
  std::set<std::string> told{"whole"};
  for (const auto& [id, text] : kKnown) {
    told.insert(id);
    const auto at = phases.find(id);
    if (at != phases.end()) add(id, text, at->second);
  }
  // The longest of those of another version; what is left of them is one part.
  constexpr size_t kMostOthers = 20;
  std::vector<std::pair<std::string, uint64_t>> others;
  for (const auto& phase : phases) {
    if (told.count(phase.first) == 0) others.emplace_back(phase);
  }
  std::stable_sort(others.begin(), others.end(),
                   [](const auto& one, const auto& other) { return one.second > other.second; });
  const size_t shown = std::min(others.size(), kMostOthers);
  std::sort(others.begin(), others.begin() + static_cast<std::ptrdiff_t>(shown));
  for (size_t i = 0; i < shown; ++i) add(others[i].first, others[i].first, others[i].second);
  if (others.size() > shown) {
    uint64_t restNs = 0;
    for (size_t i = shown; i < others.size(); ++i) {
      restNs += std::min(others[i].second, UINT64_MAX - restNs);
    }
    add("further", CountedText(others.size() - shown, "further phase"), restNs);
  }
  const auto whole = phases.find("whole");
  if (whole != phases.end() && whole->second > sumNs) {
    add("notTold", "not told by any phase", whole->second - sumNs);
  }
  wholeNs = sumNs;
  return parts;
}

ReportMachine MachineOf(const std::vector<MachineMoment>& moments, uint64_t startRealtimeNs) {
  ReportMachine machine;
  machine.momentsPerRow =
      std::max<size_t>((moments.size() + kMostReportMoments - 1) / kMostReportMoments, 1);
  for (std::string& name : ShownZones(moments)) machine.zones.push_back({std::move(name), {}});
  for (size_t at = 0; at < moments.size(); at += machine.momentsPerRow) {
    TakeMoment(moments[at], startRealtimeNs, machine);
  }
  return machine;
}

}  // namespace vorn::kit
