#include "kit/qualify/summary.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <optional>

#include "kit/common/printable.h"
#include "kit/common/text_table.h"
#include "kit/run/run_directory.h"
#include "kit/timing/statistics.h"
#include "kit/timing/times.h"

namespace vorn::kit {
namespace {

namespace fs = std::filesystem;

std::string MillisecondsText(double nanoseconds) {
  char text[40];
  std::snprintf(text, sizeof text, "%.4g ms", nanoseconds / 1e6);
  return text;
}

std::string CountsText(const SampleCounts& counts) {
  std::string text = std::to_string(counts.done) + " of " + Counted(counts.inferences, "sample");
  if (counts.failed > 0) text += ", " + std::to_string(counts.failed) + " failed";
  if (counts.aside > 0) text += ", " + std::to_string(counts.aside) + " put aside";
  if (counts.missing > 0) text += ", " + std::to_string(counts.missing) + " missing";
  return text;
}

struct Speed {
  std::string median;
  std::string spread;
  std::string first;
};

Speed SpeedOf(const std::string& run) {
  const MeasuredTimes measured = TimesOfRun(ReadTimes(run));
  Speed speed;
  if (measured.series.empty()) return speed;
  const Times& times = measured.series.front();
  if (!times.firstNs.empty()) speed.first = MillisecondsText(times.firstNs.front());
  if (times.timesNs.empty()) return speed;
  speed.median = MillisecondsText(Median(times.timesNs));
  speed.spread = MillisecondsText(MedianDeviation(times.timesNs));
  return speed;
}

void AddSide(TextTable& table, const std::vector<QualifyStep>& steps, const std::string& name,
             const std::string& run) {
  // A run that is there may be one of a time before.
  if (std::none_of(steps.begin(), steps.end(),
                   [&](const QualifyStep& step) { return step.name == "run the " + name; })) {
    table.Add({name, "did not run"});
    return;
  }
  try {
    const RunFacts facts = ReadRun(run);
    Speed speed;
    try {
      speed = SpeedOf(run);
    } catch (const Fault&) {
      speed = {};  // a run without times
    }
    const std::string runtime = facts.runtime ? facts.runtime->path : "";
    table.Add({name, facts.model.path, runtime, CountsText(facts.counts), speed.median,
               speed.spread, speed.first});
  } catch (const Fault&) {
    table.Add({name, "did not run"});
  }
}

const QualifyStep* FindStep(const std::vector<QualifyStep>& steps, const std::string& verb) {
  for (const QualifyStep& step : steps) {
    if (step.call.verb == verb) return &step;
  }
  return nullptr;
}

std::string HeadlineOf(const std::vector<QualifyStep>& steps) {
  const QualifyStep* judged = FindStep(steps, "judge");
  if (judged == nullptr) {
    const QualifyStep& last = steps.back();
    return "NOT JUDGED: could not " + last.name + " (status " +
           std::to_string(static_cast<int>(*last.status)) + ")";
  }
  switch (StatusOf(steps)) {
    case ExitStatus::kDone:
      return "QUALIFIED: every output is right";
    case ExitStatus::kDiffers:
      return "NOT QUALIFIED: outputs differ";
    case ExitStatus::kPartial:
      return *judged->status == ExitStatus::kDiffers
                 ? "NOT QUALIFIED: outputs differ, and some samples are missing"
                 : "NOT WHOLE: what is there is right, and some samples are missing";
    case ExitStatus::kNothing:
      return "NOT JUDGED: nothing could be compared";
    default:
      return "NOT QUALIFIED";
  }
}

}  // namespace

std::string SummaryText(const Qualification& qualification, const std::vector<QualifyStep>& steps) {
  if (steps.empty()) return "";
  const std::string& run = qualification.run;
  std::string text = HeadlineOf(steps) + "\n\n";
  TextTable sides({{""},
                   {"model"},
                   {"runtime"},
                   {"samples"},
                   {"median", true},
                   {"deviation", true},
                   {"first", true}});
  AddSide(sides, steps, "device", run + "/device");
  if (qualification.reference) AddSide(sides, steps, "reference", run + "/reference");
  text += sides.Text();
  if (const QualifyStep* judged = FindStep(steps, "judge")) text += "\n" + judged->out;
  const bool isJudged = FindStep(steps, "judge") != nullptr;
  text += "\nTo open: " + (isJudged ? run + "/verdict.json, " : "") + run +
          "/qualify.json (each step as a command)\n";
  return text;
}

}  // namespace vorn::kit
