#include "kit/report/answer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace vorn::kit {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

ReportRun Ran() {
  ReportRun run;
  run.facts.state = RunState::kDone;
  run.facts.model.path = "nets/net.onnx";
  run.facts.machine.host = "b";
  run.facts.counts.inferences = 200;
  run.facts.counts.done = 200;
  return run;
}

ReportRun Judged(int status, ReportVerdict verdict, uint64_t wrong) {
  ReportRun run = Ran();
  run.judgement.emplace();
  run.judgement->status = status;
  run.judgement->expected = "ref";
  run.judgement->samples = 200;
  ReportOutput output;
  output.name = "x";
  output.verdict = verdict;
  output.samples = 200;
  output.wrongSamples = wrong;
  run.judgement->outputs = {output};
  return run;
}

TEST(AnswerOf, SaysThatARunWasNotJudged) {
  const ReportAnswer answer = AnswerOf(Ran());
  EXPECT_EQ(answer.tone, ReportTone::kOpen);
  EXPECT_EQ(answer.sentence,
            "'net.onnx' on the host 'b' ran, with 200 of 200 samples done, and was not judged.");
  EXPECT_THAT(answer.more, IsEmpty());
}

TEST(AnswerOf, SaysHowARunStopped) {
  ReportRun run = Ran();
  run.facts.state = RunState::kFailed;
  run.facts.signal = "SIGSEGV";
  run.facts.counts.done = 7;
  run.facts.counts.missing = 193;
  run.undone = {{7, "missing", "the program ended", {}}};
  const ReportAnswer answer = AnswerOf(run);
  EXPECT_EQ(answer.tone, ReportTone::kBad);
  EXPECT_EQ(answer.sentence,
            "'net.onnx' on the host 'b' failed, ended by SIGSEGV, with 7 of 200 samples done, 193 "
            "missing.");
  EXPECT_THAT(answer.more, ElementsAre("Sample 7: the program ended."));
  run.facts.warnings = {{"w", 1, "the program ended with status 127"}};
  EXPECT_THAT(AnswerOf(run).more, Contains("the program ended with status 127."));
  run.facts.state = RunState::kInterrupted;
  EXPECT_EQ(AnswerOf(run).verdict, "interrupted");
  run.facts.state = RunState::kRunning;
  EXPECT_EQ(AnswerOf(run).verdict, "running");
  run.facts.state = RunState::kDone;
  EXPECT_EQ(AnswerOf(run).verdict, "not whole");
}

TEST(AnswerOf, SaysRightAndWrong) {
  const ReportAnswer right = AnswerOf(Judged(0, ReportVerdict::kRight, 0));
  EXPECT_EQ(right.tone, ReportTone::kGood);
  EXPECT_EQ(right.sentence,
            "'net.onnx' on the host 'b' is right in all 200 samples of 1 output, measured against "
            "'ref'.");
  ReportRun one = Judged(0, ReportVerdict::kRight, 0);
  one.judgement->samples = 1;
  EXPECT_THAT(AnswerOf(one).sentence, HasSubstr("is right in its one sample of 1 output, "));
  const ReportAnswer wrong = AnswerOf(Judged(6, ReportVerdict::kWrong, 2));
  EXPECT_EQ(wrong.tone, ReportTone::kBad);
  EXPECT_EQ(
      wrong.sentence,
      "'net.onnx' on the host 'b' is wrong in 2 of 200 samples of 'x', measured against 'ref'.");
  const ReportAnswer open = AnswerOf(Judged(9, ReportVerdict::kNotJudged, 0));
  EXPECT_EQ(open.verdict, "not judged");
  const ReportAnswer partial = AnswerOf(Judged(8, ReportVerdict::kRight, 0));
  EXPECT_EQ(partial.verdict, "not whole");
  EXPECT_EQ(partial.tone, ReportTone::kOpen);
  EXPECT_EQ(AnswerOf(Judged(8, ReportVerdict::kWrong, 1)).tone, ReportTone::kBad);
}

TEST(AnswerOf, NamesTheRuntimeBeforeTheHost) {
  ReportRun run = Ran();
  run.facts.runtime.emplace();
  run.facts.runtime->path = "/opt/npu/libvorn.so";
  run.facts.machine.processor = "Cortex-A55";
  EXPECT_THAT(AnswerOf(run).sentence,
              testing::StartsWith(
                  "'net.onnx' by the runtime 'npu/libvorn.so' on the host 'b' (Cortex-A55) ran,"));
  run.facts.runtime->path = "libvorn.so";
  EXPECT_THAT(AnswerOf(run).sentence, HasSubstr("by the runtime 'libvorn.so' on"));
  run.facts.program = FileIdentity{.path = "/opt/bin/vorn-run", .sizeBytes = {}, .xxh3 = {}};
  EXPECT_THAT(AnswerOf(run).sentence, HasSubstr("by the runtime 'libvorn.so' on"));
  run.facts.program->path = "board/spoil.sh";
  EXPECT_THAT(AnswerOf(run).sentence,
              HasSubstr("by the runtime 'libvorn.so' through 'spoil.sh' on"));
}

TEST(AnswerOf, TellsTheMedianWithItsIntervalAndThatThereIsNoTarget) {
  ReportRun run = Ran();
  ReportSeries series;
  series.count = 199;
  series.medianOfAllNs = 36700;
  series.lowNs = 36500;
  series.highNs = 36900;
  run.times.series = {series};
  EXPECT_THAT(AnswerOf(run).sentence, HasSubstr("; an execution takes 36.7 µs (median of 199)."));
  EXPECT_THAT(
      AnswerOf(run).more,
      ElementsAre("The median of an execution lies between 36.5 µs and 36.9 µs (95 % sure); "
                  "no target was given that would call it fast or slow."));
  run.facts.machine.cores = 2;
  run.facts.machine.loadAverage = 1.9;
  EXPECT_THAT(AnswerOf(run).more, testing::SizeIs(1));
  run.facts.machine.loadAverage = 4.07;
  EXPECT_THAT(AnswerOf(run).more,
              testing::Contains("The host was busy before the run (load 4.07 of 2 cores): alone it "
                                "may take less."));
}

TEST(AnswerOf, CountsManyWrongOutputs) {
  ReportRun run = Judged(6, ReportVerdict::kWrong, 2);
  run.judgement->outputs.resize(5, run.judgement->outputs[0]);
  EXPECT_THAT(AnswerOf(run).sentence,
              HasSubstr("wrong in 5 of 5 outputs, first in 2 of 200 samples of 'x',"));
}

TEST(AnswerOf, NamesTheWrongSamplesAndEveryKindOfFault) {
  ReportRun run = Judged(6, ReportVerdict::kWrong, 4);
  run.precision = "int8";
  run.judgement->outputs[0].wrong = {{17, {"1 NaN"}, {}, 1, 0},
                                     {58, {}, {{"stale", "it is stale", 0.8}}},
                                     {59, {}, {{"stale", "it is stale", 0.9}}},
                                     {130, {}, {{"constant", "every element is 0.1", 1}}}};
  run.judgement->preparation = {"the input"};
  const ReportAnswer answer = AnswerOf(run);
  EXPECT_EQ(answer.sentence,
            "'net.onnx', rounded to int8, on the host 'b' is wrong in 4 of 200 samples of 'x': the "
            "output "
            "of the sample before in 2 samples, NaN in 1, one value throughout in 1; measured "
            "against 'ref'.");
  EXPECT_THAT(
      answer.more,
      ElementsAre("Of 200 samples 17, 58, 59 and 130 are wrong.",
                  "Samples 58 and 59: it is stale. That explains at least 80 % of what differs.",
                  "Sample 17: 1 element is wrong by NaN.",
                  "Sample 130: every element is 0.1. That explains all that differs.",
                  "Suspect: the input."));
}

TEST(AnswerOf, DoesNotLeaveThoseThatPassAmongAnExchangeUntold) {
  ReportRun run = Judged(6, ReportVerdict::kWrong, 4);
  ReportOutput& output = run.judgement->outputs.at(0);
  output.stretches = {{NeighbourPattern::kExchanged, {80, 81, 84, 85}, {82, 83}, {}}};
  EXPECT_THAT(AnswerOf(run).more,
              testing::Contains(
                  "Whether samples 82 and 83 among the exchanged ones were exchanged, too, cannot "
                  "be decided: their neighbours' outputs are alike, and what came "
                  "passes as either."));
}

TEST(AnswerOf, NamesTheFirstOfManySamples) {
  ReportRun run = Judged(6, ReportVerdict::kWrong, 30);
  for (uint64_t sample = 0; sample < 30; ++sample) {
    run.judgement->outputs[0].wrong.push_back({sample, {"far off"}, {}});
  }
  EXPECT_THAT(AnswerOf(run).sentence, HasSubstr(": differences in 30 samples; measured against"));
  EXPECT_THAT(AnswerOf(run).more,
              ElementsAre(testing::StartsWith("Samples 0 to 29: what differs")));
}

TEST(AnswerOf, TellsInsideFloorAndAccuracy) {
  ReportRun run = Judged(6, ReportVerdict::kWrong, 3);
  run.judgement->inside.emplace();
  run.judgement->inside->tensors.resize(1);
  run.judgement->inside->tensors[0].name = "conv";
  run.judgement->inside->begin = 0;
  run.judgement->floor.emplace();
  run.judgement->floor->precision = "int8";
  run.judgement->floor->outputs.resize(2);
  run.judgement->floor->outputs[0].answer = "worse";
  run.judgement->accuracy = {{"x", "top 1", 0.5, 0.75, -0.25}};
  EXPECT_THAT(AnswerOf(run).more,
              ElementsAre("Along the graph the difference begins at 'conv'.",
                          "1 of 2 outputs loses more than int8 has to lose.",
                          "By the labels 'x' has the label's class first in 50 %, and what it is "
                          "measured against in 75 %: 25 percentage points less."));
}

TEST(AnswerOf, IsBadWhereAVerdictGotWorseThoughFaster) {
  ReportComparison comparison;
  comparison.times.verdict = TimingVerdict::kFaster;
  comparison.times.interval = {0.5, 0.4, 0.6};
  ReportRun base;
  base.name = "old";
  ReportRun other;
  other.name = "new";
  ReportAnswer answer = AnswerOf(comparison, base, other);
  EXPECT_EQ(answer.tone, ReportTone::kGood);
  EXPECT_EQ(answer.verdict, "faster");
  EXPECT_EQ(answer.sentence,
            "'new' is faster than 'old': 0.5 times its time (0.4 to 0.6); no sample of both has "
            "outputs to compare.");
  comparison.verdicts = {{"x", "right", "wrong"}};
  answer = AnswerOf(comparison, base, other);
  EXPECT_EQ(answer.tone, ReportTone::kBad);
  EXPECT_EQ(answer.verdict, "wrong now");
  EXPECT_THAT(answer.more, ElementsAre("'x' was right and is wrong."));
  // Wrong before and behind.
  comparison.verdicts.clear();
  other.answer.tone = ReportTone::kBad;
  other.answer.verdict = "wrong";
  EXPECT_EQ(AnswerOf(comparison, base, other).verdict, "wrong");
}

// Outputs may have changed all the same.
TEST(AnswerOf, SaysAsFastOfTimesThatAreAlike) {
  ReportComparison comparison;
  comparison.times.verdict = TimingVerdict::kAlike;
  EXPECT_EQ(AnswerOf(comparison, ReportRun{}, ReportRun{}).verdict, "as fast");
}

}  // namespace
}  // namespace vorn::kit
