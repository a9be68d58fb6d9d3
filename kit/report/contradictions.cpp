#include "kit/report/contradictions.h"

#include <algorithm>
#include <array>

#include "kit/common/fault.h"
#include "kit/page/number_text.h"
#include "kit/report/answer.h"

namespace vorn::kit {
namespace {

// What is left of the inferences when those of each kind are taken away; empty where there are
// fewer.
std::optional<uint64_t> LeftOf(const SampleCounts& counts) {
  uint64_t left = counts.inferences;
  for (const uint64_t part : std::array{counts.done, counts.failed, counts.aside, counts.missing}) {
    if (part > left) return std::nullopt;
    left -= part;
  }
  return left;
}

void HoldCounts(const RunFacts& facts, std::vector<std::string>& found) {
  const SampleCounts& counts = facts.counts;
  const std::optional<uint64_t> left = LeftOf(counts);
  const bool hasEnded = facts.state == RunState::kDone;
  if (left && (*left == 0 || !hasEnded)) return;
  found.push_back("run.json tells " + CountText(counts.done) + " done, " +
                  CountText(counts.failed) + " failed, " + CountText(counts.aside) +
                  " put aside and " + CountText(counts.missing) + " missing of " +
                  CountedText(counts.inferences, "inference"));
}

void HoldOutput(const ReportOutput& output, std::vector<std::string>& found) {
  const bool isWrong = output.verdict == ReportVerdict::kWrong;
  if (output.verdict == ReportVerdict::kRight && output.wrongSamples > 0) {
    found.push_back("the verdict calls " + InQuotes(output.name) + " right and counts " +
                    CountedText(output.wrongSamples, "wrong sample") + " of it");
  } else if (isWrong && output.samples > 0 && output.wrongSamples > output.samples) {
    found.push_back("the verdict counts " + CountText(output.wrongSamples) + " wrong of " +
                    CountedText(output.samples, "sample") + " of " + InQuotes(output.name));
  }
}

void HoldJudgement(const ReportJudgement& judgement, const RunFacts& facts,
                   std::vector<std::string>& found) {
  const bool isDone = judgement.status == static_cast<int>(ExitStatus::kDone);
  if (isDone && judgement.outputs.empty()) {
    found.emplace_back("the verdict says that all is right, and has no output that was compared");
  }
  const bool isAnyWrong =
      std::any_of(judgement.outputs.begin(), judgement.outputs.end(),
                  [](const auto& output) { return output.verdict == ReportVerdict::kWrong; });
  if (isDone && isAnyWrong) {
    found.emplace_back("the verdict says that all is right, and calls outputs wrong");
  }
  for (const ReportOutput& output : judgement.outputs) HoldOutput(output, found);
  if (judgement.samples > facts.counts.inferences) {
    found.push_back("the verdict is on " + CountedText(judgement.samples, "sample") +
                    ", and the run has " + CountedText(facts.counts.inferences, "inference"));
  }
}

}  // namespace

std::vector<std::string> ContradictionsOf(const ReportRun& run,
                                          std::optional<uint64_t> doneSamples) {
  std::vector<std::string> found;
  HoldCounts(run.facts, found);
  if (doneSamples && *doneSamples != run.facts.counts.done) {
    found.push_back("run.json tells " + CountedText(run.facts.counts.done, "sample") +
                    " done, and samples.jsonl " + CountText(*doneSamples));
  }
  if (run.judgement) HoldJudgement(*run.judgement, run.facts, found);
  return found;
}

}  // namespace vorn::kit
