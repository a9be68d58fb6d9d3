#include "kit/history/read_run.h"

#include <algorithm>
#include <cmath>
#include <map>

#include "kit/common/fault.h"
#include "kit/common/file_identity.h"
#include "kit/common/file_place.h"
#include "kit/common/printable.h"
#include "kit/json/json.h"
#include "kit/json/json_members.h"
#include "kit/timing/statistics.h"
#include "kit/timing/times.h"

namespace vorn::kit {
namespace {

constexpr uint64_t kMostFileBytes = 64 << 20;

std::vector<uint64_t> Whole(const std::vector<double>& times) {
  std::vector<uint64_t> whole;
  whole.reserve(times.size());
  for (const double time : times) whole.push_back(static_cast<uint64_t>(std::llround(time)));
  return whole;
}

// A run of one side has lines of that side alone, so that one series of both is empty.
const Times* OwnSeries(const MeasuredTimes& measured) {
  const Times* own = nullptr;
  for (const Times& times : measured.series) {
    const bool isEmpty = times.timesNs.empty() && times.firstNs.empty();
    if (own == nullptr || !isEmpty) own = &times;
  }
  return own;
}

void TakeTimes(const std::string& path, RunEntry& run) {
  MeasuredTimes measured;
  const std::vector<TimesRecord> records = ReadTimes(path);
  try {
    measured = TimesOfRun(records);
  } catch (const Fault& fault) {
    throw Fault(fault.Status(),
                "the times of the run " + Quoted(path + "/" + kTimesFile) + ": " + fault.what());
  }
  const Times* times = OwnSeries(measured);
  if (times == nullptr) return;
  run.executions = times->timesNs.size();
  if (!times->firstNs.empty()) run.firstNs = Median(times->firstNs);
  if (!times->timesNs.empty()) {
    run.medianNs = Median(times->timesNs);
    run.madNs = MedianDeviation(times->timesNs);
  }
  run.times.firstNs = Whole(times->firstNs);
  run.times.timesNs = Whole(times->timesNs);
  if (run.times.timesNs.size() > kMostTimesKept) {
    run.times.leftOut = run.times.timesNs.size() - kMostTimesKept;
    run.times.timesNs.resize(kMostTimesKept);
  }
}

void TakeMachine(const std::string& path, RunEntry& run) {
  double sum = 0;
  uint64_t count = 0;
  for (const MachineMoment& moment : ReadMachine(path)) {
    for (const uint64_t frequency : moment.frequencyKhz) {
      sum += static_cast<double>(frequency);
      ++count;
    }
    for (const auto& [zone, temperature] : moment.temperatureMilliC) {
      run.temperatureMilliC = std::max(run.temperatureMilliC.value_or(temperature), temperature);
    }
  }
  constexpr double kMostKhz = 1e12;
  const double mean = count == 0 ? 0 : sum / static_cast<double>(count);
  if (mean > 0 && mean < kMostKhz) run.frequencyKhz = static_cast<uint64_t>(mean);
}

std::string VerdictWord(int64_t status) {
  switch (static_cast<ExitStatus>(status)) {
    case ExitStatus::kDone:
      return "right";
    case ExitStatus::kDiffers:
      return "wrong";
    case ExitStatus::kPartial:
      return "partial";
    default:
      return "not judged";
  }
}

// What JSON has no number for was not measured.
void AddMetric(RunEntry& run, std::map<std::pair<std::string, std::string>, size_t>& places,
               RunMetric metric) {
  if (!std::isfinite(metric.value)) return;
  if (metric.expected && !std::isfinite(*metric.expected)) metric.expected.reset();
  const auto [place, isNew] =
      places.emplace(std::pair(metric.output, metric.metric), run.metrics.size());
  if (isNew) run.metrics.push_back(std::move(metric));
}

}  // namespace

void TakeVerdict(std::string_view text, RunEntry& run) {
  const Json verdict = ParseJson(text);
  HoldToSchema(verdict, kVerdictSchema);
  run.verdict = VerdictWord(verdict.At("status").AsSigned());
  std::map<std::pair<std::string, std::string>, size_t> places;
  for (const Json& accuracy : verdict.At("accuracy").Items()) {
    AddMetric(run, places,
              {.output = accuracy.At("output").AsText(),
               .metric = accuracy.At("metric").AsText(),
               .value = accuracy.At("actual").AsNumber(),
               .expected = accuracy.At("expected").AsNumber()});
  }
  size_t outputs = 0;
  for (const Json& output : verdict.At("outputs").Items()) {
    if (++outputs > kMostOutputsKept) break;
    const std::string& name = output.At("name").AsText();
    if (const Json* rmse = output.At("census").Find("rmse")) {
      AddMetric(
          run, places,
          {.output = name, .metric = "RMSE", .value = rmse->AsNumber(), .expected = std::nullopt});
    }
    const Json* agreement = output.Find("agreement");
    if (agreement == nullptr) continue;
    const double items = agreement->At("items").AsNumber();
    AddMetric(run, places,
              {.output = name,
               .metric = "top-1 agreement",
               .value = agreement->At("top1").AsNumber() / items,
               .expected = std::nullopt});
  }
  std::sort(run.metrics.begin(), run.metrics.end(), [](const auto& one, const auto& other) {
    return std::tie(one.output, one.metric) < std::tie(other.output, other.metric);
  });
}

RunEntry ReadRunEntry(const std::string& run, const std::optional<std::string>& board) {
  const std::string facts =
      ReadWholeFile(run + "/" + kRunFile, "the run", ExitStatus::kInput, kMostFileBytes);
  std::string content = Xxh3Of(facts);
  RunEntry entry;
  try {
    entry = EntryOf(RunFromJson(facts), SideOf(run));
  } catch (const JsonError& error) {
    throw Fault(ExitStatus::kInput,
                "the run '" + Printable(run + "/" + kRunFile) + "': " + error.what());
  }
  entry.path = Absolute(run);
  if (board) entry.board = *board;
  if (const std::string times = run + "/" + kTimesFile; IsThere(times)) {
    TakeTimes(run, entry);
    content += IdentifyFile(times, "the times", ExitStatus::kInput).xxh3.value_or("");
  }
  if (IsThere(run + "/" + kMachineFile)) TakeMachine(run, entry);
  if (const std::string path = VerdictPathOf(run); IsThere(path)) {
    const std::string verdict =
        ReadWholeFile(path, "the verdict", ExitStatus::kInput, kMostFileBytes);
    try {
      TakeVerdict(verdict, entry);
    } catch (const JsonError& error) {
      throw Fault(ExitStatus::kInput, "the verdict '" + Printable(path) + "': " + error.what());
    }
    content += Xxh3Of(verdict);
  }
  entry.content = Xxh3Of(content);
  if (const std::string why = WhyNotKept(entry); !why.empty()) {
    throw Fault(ExitStatus::kInput, "the run " + Quoted(run) + ": " + why + "; it is damaged");
  }
  return entry;
}

}  // namespace vorn::kit
