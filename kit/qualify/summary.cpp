#include "kit/qualify/summary.h"

#include <algorithm>
#include <cstdio>
#include <optional>

#include "kit/common/file_identity.h"
#include "kit/common/printable.h"
#include "kit/common/text_table.h"
#include "kit/json/json.h"
#include "kit/run/run_directory.h"
#include "kit/timing/statistics.h"
#include "kit/timing/times.h"

namespace vorn::kit {
namespace {

constexpr uint64_t kMostManifestBytes = uint64_t{2} << 30;
constexpr uint64_t kMostVerdictBytes = 256 << 20;

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

// Of a run of which samples are missing, which is what the status of judge says first.
std::string PartialHeadline(const std::string& run) {
  std::string wrong = "NOT QUALIFIED: outputs differ, and some samples are missing";
  try {
    const Json verdict = ParseJson(ReadWholeFile(run + "/" + kVerdictFile, "the verdict",
                                                 ExitStatus::kInput, kMostVerdictBytes));
    bool isAnyThere = false;
    for (const Json& output : verdict.At("outputs").Items()) {
      if (output.At("verdict").AsText() == "wrong") return wrong;
      isAnyThere = isAnyThere || output.At("samples").AsUnsigned() > 0;
    }
    return isAnyThere ? "NOT WHOLE: what is there is right, and some samples are missing"
                      : "NOT JUDGED: all samples are missing";
  } catch (const Fault&) {
    return "NOT JUDGED: the verdict cannot be read";
  } catch (const JsonError&) {
    return "NOT JUDGED: the verdict cannot be read";
  }
}

std::string HeadlineOf(const std::string& run, const std::vector<QualifyStep>& steps) {
  if (steps.back().wasStopped) {
    return "STOPPED: could not " + steps.back().name + "; the same command goes on";
  }
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
      return PartialHeadline(run);
    case ExitStatus::kNothing:
      return "NOT JUDGED: nothing could be compared";
    default:
      return "NOT QUALIFIED";
  }
}

// ---- What was left out --------------------------------------------------------------------------

// The sources that `vorn prepare --keep-going` could not use.
std::vector<std::string> LeftOutOf(const std::string& run, const std::vector<QualifyStep>& steps,
                                   const std::string& name) {
  const auto isIt = [&](const QualifyStep& step) {
    return step.name == "prepare the " + name + "'s inputs" && step.status == ExitStatus::kPartial;
  };
  std::vector<std::string> sources;
  if (std::none_of(steps.begin(), steps.end(), isIt)) return sources;
  try {
    const Json manifest =
        ParseJson(ReadWholeFile(run + "/" + name + ".inputs/manifest.json", "the manifest",
                                ExitStatus::kInput, kMostManifestBytes));
    for (const Json& left : manifest.At("left").Items()) {
      sources.push_back(left.At("source").AsText());
    }
  } catch (const Fault&) {
    sources.clear();
  } catch (const JsonError&) {
    sources.clear();
  }
  return sources;
}

std::string NamesText(const std::vector<std::string>& names) {
  constexpr size_t kMostNames = 5;
  std::string text = Counted(names.size(), "source") + ": ";
  for (size_t i = 0; i < std::min(names.size(), kMostNames); ++i) {
    text += (i == 0 ? "" : ", ") + Quoted(names[i]);
  }
  if (names.size() > kMostNames) {
    text += " and " + std::to_string(names.size() - kMostNames) + " more";
  }
  return text + "\n";
}

std::string LeftText(const Qualification& qualification, const std::vector<QualifyStep>& steps) {
  const std::vector<std::string> device = LeftOutOf(qualification.run, steps, "device");
  const std::vector<std::string> reference = LeftOutOf(qualification.run, steps, "reference");
  if (device.empty() && reference.empty()) return "";
  if (!qualification.reference || device == reference) return "\nleft out: " + NamesText(device);
  std::string text = "\n";
  if (!device.empty()) text += "left out of the device's inputs: " + NamesText(device);
  if (!reference.empty()) text += "left out of the reference's inputs: " + NamesText(reference);
  return text +
         "not the same on both sides: samples behind the first of these are not of the same "
         "picture; leave them out of both\n";
}

// ---- What to do about it ------------------------------------------------------------------------

// "bfloat16", of an output that looks so in a sample at least.
std::string RoundedTo(const Json& output) {
  constexpr std::string_view kFront = "rounded-";
  for (const Json& sample : output.At("causes").Items()) {
    for (const Json& cause : sample.At("causes").Items()) {
      const std::string& id = cause.At("id").AsText();
      if (id.starts_with(kFront)) return id.substr(kFront.size());
    }
  }
  return "";
}

// The one precision that all outputs, which are all wrong, look rounded to; empty: none.
std::string PrecisionOfAll(const Json& verdict) {
  std::string precision;
  for (const Json& output : verdict.At("outputs").Items()) {
    const bool isByFloat32 =
        output.At("verdict").AsText() == "wrong" && output.At("type").AsText() == "float32" &&
        output.At("rules").At("source").AsText().find("float32") != std::string::npos;
    const std::string rounded = isByFloat32 ? RoundedTo(output) : "";
    if (rounded.empty() || (!precision.empty() && rounded != precision)) return "";
    precision = rounded;
  }
  return precision;
}

bool AreAllWithinFloor(const Json& verdict) {
  const Json* floor = verdict.Find("floor");
  if (floor == nullptr) return false;
  const auto& outputs = floor->At("outputs").Items();
  return !outputs.empty() && std::all_of(outputs.begin(), outputs.end(), [](const Json& output) {
    return output.At("answer").AsText() == "within" && !output.At("isFloorLost").AsBool();
  });
}

std::string HintFor(const Qualification& qualification, const Json& verdict) {
  if (AreAllWithinFloor(verdict)) {
    return "hint: every output is within what the floor has to lose; to let that decide, give "
           "--rules FILE with {\"schema\": 1, \"rules\": [{\"output\": \"*\", \"metric\": "
           "\"overFloor\", \"atMost\": 1.25}]}\n";
  }
  if (qualification.floor) return "";
  const std::string precision = PrecisionOfAll(verdict);
  if (precision.empty()) return "";
  return "hint: the outputs look rounded to " + precision +
         ", and were held to what float32 gives: say with --rules FILE" +
         (precision == "int8" ? "" : " or --preset " + precision) + " how near is right" +
         (qualification.reference
              ? ", or give --floor CONFIG, which rounds the reference alike, to see what that "
                "has to lose"
              : "") +
         "\n";
}

std::string HintText(const Qualification& qualification, const std::vector<QualifyStep>& steps) {
  const QualifyStep* judged = FindStep(steps, "judge");
  if (judged == nullptr || judged->status != ExitStatus::kDiffers) return "";
  try {
    const std::string hint =
        HintFor(qualification,
                ParseJson(ReadWholeFile(qualification.run + "/" + kVerdictFile, "the verdict",
                                        ExitStatus::kInput, kMostVerdictBytes)));
    return hint.empty() ? "" : "\n" + hint;
  } catch (const Fault&) {
    return "";
  } catch (const JsonError&) {
    return "";
  }
}

}  // namespace

std::string SummaryText(const Qualification& qualification, const std::vector<QualifyStep>& steps) {
  if (steps.empty()) return "";
  const std::string& run = qualification.run;
  std::string text = HeadlineOf(run, steps) + "\n\n";
  TextTable sides({{""},
                   {"model"},
                   {"runtime"},
                   {"samples"},
                   {"median", true},
                   {"deviation", true},
                   {"first", true}});
  AddSide(sides, steps, "device", run + "/device");
  if (qualification.reference) AddSide(sides, steps, "reference", run + "/reference");
  if (qualification.floor) AddSide(sides, steps, "floor", run + "/floor");
  text += sides.Text() + LeftText(qualification, steps);
  if (const QualifyStep* judged = FindStep(steps, "judge")) text += "\n" + judged->out;
  const bool isJudged = FindStep(steps, "judge") != nullptr;
  text += HintText(qualification, steps);
  if (isJudged) {
    text += "\nA page of it: " + QuotedCommand({"vorn", "report", run, "-o", "report.html"}) + "\n";
  }
  text += "\nTo open: " + (isJudged ? run + "/verdict.json, " : "") + run +
          "/qualify.json (each step as a command)\n";
  return text;
}

}  // namespace vorn::kit
