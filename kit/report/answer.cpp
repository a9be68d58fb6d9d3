#include "kit/report/answer.h"

#include <algorithm>
#include <cmath>
#include <set>
#include <utility>
#include <vector>

#include "kit/common/fault.h"
#include "kit/common/number_ranges.h"
#include "kit/common/printable.h"
#include "kit/judge/cause.h"
#include "kit/page/number_text.h"
#include "kit/report/bounds.h"
#include "kit/report/fault_kinds.h"

namespace vorn::kit {
namespace {

// ---- Parts of a sentence ------------------------------------------------------------------------

// "'digits.onnx', rounded to int8, by the runtime 'npu/libvorn.so' through 'run.sh' on the host
// 'board-7' (Cortex-A55)". A host is no device: which one answers is the runtime's affair.
std::string Subject(const ReportRun& run) {
  const RunFacts& facts = run.facts;
  std::string text = FileName(facts.model.path);
  if (!run.precision.empty()) text += ", rounded to " + run.precision + ",";
  if (facts.runtime && !facts.runtime->path.empty()) {
    text += " by the runtime " + InQuotes(WithFolderAbove(facts.runtime->path));
  }
  // Another program stands between, as a script that runs vorn-run does: a fault may be its own.
  const std::string program = facts.program ? facts.program->path : "";
  const bool isAnother = !program.empty() && program.substr(program.rfind('/') + 1) != "vorn-run";
  if (isAnother) text += " through " + FileName(program);
  if (!facts.machine.host.empty()) text += " on the host " + InQuotes(facts.machine.host);
  if (!facts.machine.processor.empty()) text += " (" + facts.machine.processor + ")";
  return text;
}

const ReportSeries* MeasuredSeries(const ReportRun& run) {
  for (const ReportSeries& series : run.times.series) {
    if (series.count > 0) return &series;
  }
  return nullptr;
}

// "; an execution takes 36.7 µs (median of 199)".
std::string Speed(const ReportRun& run) {
  const ReportSeries* series = MeasuredSeries(run);
  if (series == nullptr) return "";
  return "; an execution takes " + TimeText(series->medianOfAllNs) + " (median of " +
         std::to_string(series->count) + ")";
}

// "7 of 200 samples".
std::string SomeOf(uint64_t some, uint64_t all) {
  return std::to_string(some) + " of " + Counted(all, "sample");
}

std::vector<const ReportOutput*> WrongOutputs(const ReportJudgement& judgement) {
  std::vector<const ReportOutput*> wrong;
  for (const ReportOutput& output : judgement.outputs) {
    if (output.verdict == ReportVerdict::kWrong) wrong.push_back(&output);
  }
  return wrong;
}

std::string WrongPart(const ReportOutput& output) {
  const uint64_t all = std::max(output.samples, output.wrongSamples);
  return "in " + SomeOf(output.wrongSamples, all) + " of " + InQuotes(output.name);
}

// ": NaN in 1 sample, the output of the sample before in 2": which these are stands beneath.
std::string KindsText(const ReportJudgement& judgement) {
  constexpr size_t kMostKinds = 6;
  const std::vector<FaultKind> kinds = FaultKindsOf(judgement);
  std::string text;
  for (size_t i = 0; i < std::min(kinds.size(), kMostKinds); ++i) {
    text += (i == 0 ? ": " : ", ") + kinds[i].words + " in " +
            (i == 0 ? Counted(kinds[i].samples.size(), "sample")
                    : std::to_string(kinds[i].samples.size()));
  }
  if (kinds.size() > kMostKinds) {
    text += " and " + Counted(kinds.size() - kMostKinds, "further kind") + " of fault";
  }
  return text + (kinds.empty() ? ", measured" : "; measured");
}

// "wrong in 2 of 200 samples of 'probabilities': NaN in 2 samples; measured against
// 'build/reference'".
std::string WrongText(const ReportJudgement& judgement) {
  constexpr size_t kMostNamed = 2;
  const auto wrong = WrongOutputs(judgement);
  std::string text = "wrong ";
  if (wrong.size() <= kMostNamed) {
    for (size_t i = 0; i < wrong.size(); ++i) {
      text += (i == 0 ? "" : " and ") + WrongPart(*wrong[i]);
    }
  } else {
    text += "in " + std::to_string(wrong.size()) + " of " +
            std::to_string(judgement.outputs.size()) + " outputs, first " + WrongPart(*wrong[0]);
  }
  return text + KindsText(judgement) + " against " + InQuotes(judgement.expected);
}

bool IsCountedOut(const SampleCounts& counts) { return counts.done < counts.inferences; }

std::string CountsText(const SampleCounts& counts) {
  std::string text = SomeOf(counts.done, counts.inferences) + " done";
  if (counts.failed > 0) text += ", " + std::to_string(counts.failed) + " failed";
  if (counts.aside > 0) text += ", " + std::to_string(counts.aside) + " put aside";
  if (counts.missing > 0) text += ", " + std::to_string(counts.missing) + " missing";
  if (counts.done > counts.inferences) {
    // "5 of 3 samples done" is no sentence.
    text = Counted(counts.done, "sample") + " done where there are " +
           std::to_string(counts.inferences);
  }
  return text;
}

// ---- What belongs to it -------------------------------------------------------------------------

// Since when, and whether it ended: "Of 200 samples 60 to 63 and 150 to 199 are wrong.".
void TellWrongSamples(const ReportJudgement& judgement, ReportAnswer& answer) {
  constexpr size_t kFewest = 3;
  constexpr size_t kMostPlaces = 12;
  std::set<uint64_t> all;
  for (const ReportOutput& output : judgement.outputs) {
    if (output.wrong.size() < output.wrongSamples) return;  // not all are named
    for (const ReportFault& fault : output.wrong) all.insert(fault.sample);
  }
  // Of one kind the line about it tells the same.
  if (all.size() < kFewest || FaultKindsOf(judgement).size() == 1) return;
  const std::vector<uint64_t> wrong(all.begin(), all.end());
  answer.more.push_back("Of " + Counted(judgement.samples, "sample") + " " +
                        RangesText(wrong, kMostPlaces) + " are wrong.");
}

// The most frequent kinds first.
void TellKinds(const ReportJudgement& judgement, ReportAnswer& answer) {
  constexpr size_t kMostKinds = 5;
  const std::vector<FaultKind> kinds = FaultKindsOf(judgement);
  for (size_t i = 0; i < std::min(kinds.size(), kMostKinds); ++i) {
    const FaultKind& kind = kinds[i];
    std::string text = SamplesText(kind.samples);
    text[0] = 'S';
    text += ": " + kind.sentence;
    if (kind.explained > 0) {
      text += ". That " + ExplainedText(kind.explained);
    }
    answer.more.push_back(text + ".");
  }
}

// That a sample passes among those that hold what belongs to their neighbours need not mean that
// it is its own.
void TellPassing(const ReportJudgement& judgement, ReportAnswer& answer) {
  constexpr size_t kMostSentences = 4;
  std::vector<std::string> sentences;
  const bool areSeveral = WrongOutputs(judgement).size() > 1;
  for (const ReportOutput& output : judgement.outputs) {
    for (const NeighbourStretch& stretch : output.stretches) {
      for (const std::string& text : PassingTexts(stretch)) {
        sentences.push_back(areSeveral ? "Of " + InQuotes(output.name) + ": " + text : text);
      }
    }
  }
  for (size_t i = 0; i < std::min(sentences.size(), kMostSentences); ++i) {
    answer.more.push_back(sentences[i]);
  }
  if (sentences.size() > kMostSentences) {
    answer.more.push_back("And " + CountText(sentences.size() - kMostSentences) +
                          " more of this kind, which stand with their outputs.");
  }
}

void TellInside(const ReportJudgement& judgement, ReportAnswer& answer) {
  if (!judgement.inside || !judgement.inside->begin) return;
  const auto& inside = *judgement.inside;
  answer.more.push_back("Along the graph the difference begins at " +
                        InQuotes(inside.tensors[*inside.begin].name) + ".");
}

void TellFloor(const ReportJudgement& judgement, ReportAnswer& answer) {
  if (!judgement.floor || judgement.floor->outputs.empty()) return;
  const auto& outputs = judgement.floor->outputs;
  const auto worse = std::count_if(outputs.begin(), outputs.end(),
                                   [](const auto& output) { return output.answer == "worse"; });
  const std::string precision =
      judgement.floor->precision.empty() ? "its precision" : judgement.floor->precision;
  answer.more.push_back(
      worse == 0 ? "No output loses more than " + precision + " has to lose."
                 : std::to_string(worse) + " of " + Counted(outputs.size(), "output") + " lose" +
                       (worse == 1 ? "s" : "") + " more than " + precision + " has to lose.");
}

// "top 1" and "top 5" are of the field; what they count is said.
std::string AccuracyText(const ReportAccuracy& accuracy) {
  std::string has = " has a " + accuracy.metric + " of ";
  const char* of = "one of ";
  if (accuracy.metric == "top 1" || accuracy.metric == "top 5") {
    has = std::string(" has the label's class ") +
          (accuracy.metric == "top 1" ? "first" : "among its first five") + " in ";
    of = "in ";
  }
  const double difference = accuracy.difference;
  return "By the labels " + InQuotes(accuracy.output) + has + PercentText(accuracy.actual) +
         ", and what it is measured against " + of + PercentText(accuracy.expected) + ": " +
         (difference == 0
              ? std::string("no difference")
              : PercentagePointsText(std::abs(difference)) + (difference < 0 ? " less" : " more")) +
         ".";
}

// The first of them; the part about outputs has all.
void TellSome(const std::vector<std::string>& sentences, const char* front, ReportAnswer& answer) {
  constexpr size_t kMost = 5;
  for (size_t i = 0; i < std::min(sentences.size(), kMost); ++i) {
    answer.more.push_back(front + sentences[i] + ".");
  }
  if (sentences.size() > kMost) {
    answer.more.push_back("And " + CountText(sentences.size() - kMost) + " more of this kind.");
  }
}

void TellAccuracy(const ReportJudgement& judgement, ReportAnswer& answer) {
  if (judgement.accuracy.empty()) return;
  const ReportAccuracy& accuracy = judgement.accuracy.front();
  answer.more.push_back(AccuracyText(accuracy));
}

// Nothing is fast or slow by itself.
void TellSpeed(const ReportRun& run, ReportAnswer& answer) {
  const ReportSeries* series = MeasuredSeries(run);
  if (series == nullptr || !(series->lowNs > 0)) return;
  answer.more.push_back("The median of an execution lies between " + TimeText(series->lowNs) +
                        " and " + TimeText(series->highNs) + " (" +
                        PercentText(series->confidence) +
                        " sure); no target was given that would call it fast or slow.");
  const MachineFacts& machine = run.facts.machine;
  const bool isBusy = machine.loadAverage && machine.cores &&
                      *machine.loadAverage >= static_cast<double>(*machine.cores);
  if (isBusy) {
    answer.more.push_back("The host was busy before the run (load " +
                          NumberText(*machine.loadAverage) + " of " +
                          Counted(*machine.cores, "core") + "): alone it may take less.");
  }
}

void TellMissing(const ReportRun& run, ReportAnswer& answer) {
  const SampleCounts& counts = run.facts.counts;
  if (run.judgement && IsCountedOut(counts)) answer.more.push_back(CountsText(counts) + ".");
  const bool isFailed = run.facts.state == RunState::kFailed;
  if (isFailed && !run.facts.warnings.empty()) {
    answer.more.push_back(run.facts.warnings.front().message + ".");
  }
  if (!run.undone.empty() && !run.undone.front().reason.empty()) {
    const ReportUndone& first = run.undone.front();
    answer.more.push_back("Sample " + std::to_string(first.sample) + ": " + first.reason + ".");
  }
}

// ---- One run ------------------------------------------------------------------------------------

ReportAnswer Unjudged(const ReportRun& run) {
  const RunFacts& facts = run.facts;
  const std::string subject = Subject(run);
  const std::string counts = CountsText(facts.counts);
  switch (facts.state) {
    case RunState::kRunning:
      return {ReportTone::kOpen,
              "running",
              subject + " has not ended, with " + counts + Speed(run) + ".",
              {}};
    case RunState::kInterrupted:
      return {ReportTone::kOpen,
              "interrupted",
              subject + " was interrupted, with " + counts + Speed(run) + ".",
              {}};
    case RunState::kFailed: {
      const std::string by = facts.signal ? ", ended by " + *facts.signal : "";
      return {ReportTone::kBad,
              "failed",
              subject + " failed" + by + ", with " + counts + Speed(run) + ".",
              {}};
    }
    case RunState::kDone:
      break;
  }
  const bool isWhole = !IsCountedOut(facts.counts);
  return {ReportTone::kOpen,
          isWhole ? "not judged" : "not whole",
          subject + " ran, with " + counts + ", and was not judged" + Speed(run) + ".",
          {}};
}

ReportAnswer Judged(const ReportRun& run, const ReportJudgement& judgement) {
  const std::string subject = Subject(run);
  if (!WrongOutputs(judgement).empty()) {
    return {
        ReportTone::kBad, "wrong", subject + " is " + WrongText(judgement) + Speed(run) + ".", {}};
  }
  const std::string against = ", measured against " + InQuotes(judgement.expected);
  const std::string outputs = Counted(judgement.outputs.size(), "output");
  if (judgement.status == static_cast<int>(ExitStatus::kDone) && !run.contradictions.empty()) {
    return {ReportTone::kOpen,
            "does not fit",
            subject + " is called right, and what files of the run say does not fit together" +
                against + Speed(run) + ".",
            {}};
  }
  if (judgement.status == static_cast<int>(ExitStatus::kDone)) {
    return {ReportTone::kGood,
            "right",
            subject + " is right in " +
                (judgement.samples == 1 ? "its one sample"
                                        : "all " + Counted(judgement.samples, "sample")) +
                " of " + outputs + against + Speed(run) + ".",
            {}};
  }
  if (judgement.status == static_cast<int>(ExitStatus::kPartial) && judgement.samples > 0) {
    return {ReportTone::kOpen,
            "not whole",
            subject + " is right in the " + Counted(judgement.samples, "sample") +
                " that are there, and " + Counted(judgement.missingSamples, "sample") +
                " are missing" + against + Speed(run) + ".",
            {}};
  }
  return {ReportTone::kOpen,
          "not judged",
          subject + " could not be judged everywhere" + against + Speed(run) + ".",
          {}};
}

// ---- Two runs -----------------------------------------------------------------------------------

std::string TimesText(const ReportComparison& comparison, const std::string& other,
                      const std::string& base) {
  const Comparison& times = comparison.times;
  const std::string interval = NumberText(times.interval.ratio, 3) + " times its time (" +
                               NumberText(times.interval.low, 3) + " to " +
                               NumberText(times.interval.high, 3) + ")";
  switch (times.verdict) {
    case TimingVerdict::kSlower:
      return other + " is slower than " + base + ": " + interval;
    case TimingVerdict::kFaster:
      return other + " is faster than " + base + ": " + interval;
    case TimingVerdict::kAlike:
      return other + " is as fast as " + base + ": " + interval;
    case TimingVerdict::kCannotTell:
      return "whether " + other + " is slower or faster than " + base +
             " cannot be told by so few times: " + interval;
    case TimingVerdict::kNothing:
      break;
  }
  return other + " and " + base + " have no times to compare";
}

std::string OutputsText(const ReportComparison& comparison) {
  uint64_t different = 0;
  uint64_t equal = 0;
  size_t changed = 0;
  for (const ReportOutputChange& output : comparison.outputs) {
    different = std::max(different, output.different);
    equal = std::max(equal, output.equal);
    changed += output.different > 0 ? 1 : 0;
  }
  if (different + equal == 0) return "; no sample of both has outputs to compare";
  if (changed == 0) {
    return "; all outputs of " + Counted(equal, "sample") + " are the same to the byte";
  }
  return "; " + std::to_string(changed) + " of " + Counted(comparison.outputs.size(), "output") +
         " changed, in up to " + Counted(different, "sample");
}

void TellChanges(const ReportComparison& comparison, ReportAnswer& answer) {
  constexpr size_t kMostNamed = 8;
  for (const ReportChange& change : comparison.verdicts) {
    answer.more.push_back(InQuotes(change.what) + " was " + change.base + " and is " +
                          change.other + ".");
    if (answer.more.size() == kMostNamed) break;
  }
  if (comparison.environment.empty()) return;
  std::string text = "Not the same: ";
  const auto& all = comparison.environment;
  for (size_t i = 0; i < std::min(all.size(), kMostNamed); ++i) {
    text += (i == 0 ? "" : ", ") + all[i].what;
  }
  if (all.size() > kMostNamed) text += " and " + std::to_string(all.size() - kMostNamed) + " more";
  answer.more.push_back(text + ".");
}

bool IsAnyWorse(const ReportComparison& comparison) {
  return std::any_of(comparison.verdicts.begin(), comparison.verdicts.end(),
                     [](const ReportChange& change) { return change.other == "wrong"; });
}

// What is wrong is not "alike" or "faster", whatever its times are.
std::string ComparisonWord(const ReportComparison& comparison, const ReportRun& other) {
  if (IsAnyWorse(comparison)) return "wrong now";
  if (other.answer.tone == ReportTone::kBad) return other.answer.verdict;
  const TimingVerdict times = comparison.times.verdict;
  return times == TimingVerdict::kAlike ? "as fast" : std::string(VerdictName(times));
}

}  // namespace

std::string InQuotes(const std::string& text) {
  constexpr size_t kMostInASentence = 240;
  std::string shown = text;
  CutText(shown, kMostInASentence);
  return "'" + shown + "'";
}

std::string WithFolderAbove(const std::string& path) {
  const size_t slash = path.rfind('/');
  const size_t before =
      slash == std::string::npos || slash == 0 ? std::string::npos : path.rfind('/', slash - 1);
  return before == std::string::npos ? path : path.substr(before + 1);
}

std::string FileName(const std::string& path) {
  const size_t slash = path.rfind('/');
  return InQuotes(slash == std::string::npos ? path : path.substr(slash + 1));
}

ReportAnswer AnswerOf(const ReportRun& run) {
  ReportAnswer answer = run.judgement ? Judged(run, *run.judgement) : Unjudged(run);
  TellSome(run.contradictions, "Does not fit: ", answer);
  if (run.judgement) {
    const ReportJudgement& judgement = *run.judgement;
    TellWrongSamples(judgement, answer);
    TellKinds(judgement, answer);
    TellPassing(judgement, answer);
    TellInside(judgement, answer);
    TellFloor(judgement, answer);
    TellSome(judgement.preparation, "Suspect: ", answer);
    TellAccuracy(judgement, answer);
    TellSome(judgement.unfinished, "", answer);
  }
  TellSpeed(run, answer);
  TellMissing(run, answer);
  return answer;
}

ReportAnswer AnswerOf(const ReportComparison& comparison, const ReportRun& base,
                      const ReportRun& other) {
  ReportAnswer answer;
  answer.verdict = ComparisonWord(comparison, other);
  answer.sentence = TimesText(comparison, InQuotes(other.name), InQuotes(base.name)) +
                    OutputsText(comparison) + ".";
  switch (comparison.times.verdict) {
    case TimingVerdict::kSlower:
      answer.tone = ReportTone::kBad;
      break;
    case TimingVerdict::kFaster:
    case TimingVerdict::kAlike:
      answer.tone = ReportTone::kGood;
      break;
    case TimingVerdict::kCannotTell:
    case TimingVerdict::kNothing:
      answer.tone = ReportTone::kOpen;
      break;
  }
  if (IsAnyWorse(comparison) || other.answer.tone == ReportTone::kBad) {
    answer.tone = ReportTone::kBad;
  }
  TellChanges(comparison, answer);
  return answer;
}

}  // namespace vorn::kit
