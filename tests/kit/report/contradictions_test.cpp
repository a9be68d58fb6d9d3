#include "kit/report/contradictions.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "kit/report/answer.h"
#include "kit/report/made_run.h"
#include "kit/report/run_facts.h"
#include "support/files.h"

namespace vorn::kit {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

ReportRun RightRun() {
  ReportRun run;
  run.facts.state = RunState::kDone;
  run.facts.model.path = "net.onnx";
  run.facts.counts = {.inferences = 3, .done = 3};
  run.judgement.emplace();
  run.judgement->samples = 3;
  ReportOutput output;
  output.name = "x";
  output.verdict = ReportVerdict::kRight;
  output.samples = 3;
  run.judgement->outputs = {output};
  return run;
}

TEST(ContradictionsOf, FindsNoneInARunThatFits) {
  EXPECT_THAT(ContradictionsOf(RightRun(), 3), IsEmpty());
  EXPECT_THAT(ContradictionsOf(RightRun(), std::nullopt), IsEmpty());
  ReportRun running = RightRun();
  running.facts.state = RunState::kRunning;
  running.facts.counts.done = 1;
  running.judgement.reset();
  EXPECT_THAT(ContradictionsOf(running, std::nullopt), IsEmpty());
}

TEST(ContradictionsOf, HoldsCountsToEachOther) {
  ReportRun run = RightRun();
  run.facts.counts = {.inferences = 3, .done = 5};
  EXPECT_THAT(ContradictionsOf(run, 5),
              ElementsAre("run.json tells 5 done, 0 failed, 0 put aside and 0 missing of 3 "
                          "inferences"));
  run.facts.counts = {.inferences = 3, .done = UINT64_MAX, .failed = 4};
  EXPECT_THAT(ContradictionsOf(run, std::nullopt), Not(IsEmpty()));
  run.facts.counts = {.inferences = 3, .done = 2};
  EXPECT_THAT(ContradictionsOf(run, 2), Not(IsEmpty()));
  run.facts.counts = {.inferences = 3, .done = 3};
  EXPECT_THAT(ContradictionsOf(run, 2),
              ElementsAre("run.json tells 3 samples done, and samples.jsonl 2"));
}

TEST(ContradictionsOf, HoldsTheVerdictToTheRun) {
  ReportRun run = RightRun();
  run.judgement->samples = 40;
  EXPECT_THAT(ContradictionsOf(run, 3),
              ElementsAre("the verdict is on 40 samples, and the run has 3 inferences"));
  run = RightRun();
  run.judgement->outputs.clear();
  EXPECT_THAT(ContradictionsOf(run, 3),
              ElementsAre("the verdict says that all is right, and has no output that was "
                          "compared"));
  run = RightRun();
  run.judgement->outputs[0].wrongSamples = 1;
  EXPECT_THAT(ContradictionsOf(run, 3),
              ElementsAre("the verdict calls 'x' right and counts 1 wrong sample of it"));
  run.judgement->outputs[0].verdict = ReportVerdict::kWrong;
  run.judgement->outputs[0].wrongSamples = 5;
  run.judgement->status = 6;
  EXPECT_THAT(ContradictionsOf(run, 3),
              ElementsAre("the verdict counts 5 wrong of 3 samples of 'x'"));
}

TEST(ContradictionsOf, LetNoRunPassForRight) {
  ReportRun run = RightRun();
  run.judgement->outputs.clear();
  run.contradictions = ContradictionsOf(run, 3);
  const ReportAnswer answer = AnswerOf(run);
  EXPECT_EQ(answer.tone, ReportTone::kOpen);
  EXPECT_EQ(answer.verdict, "does not fit");
  EXPECT_THAT(answer.sentence, Not(HasSubstr("right in all")));
  EXPECT_THAT(answer.more,
              ElementsAre("Does not fit: the verdict says that all is right, and has no output "
                          "that was compared."));
}

TEST(ContradictionsOf, AreLookedForInEveryRun) {
  const support::TempDir folder;
  const MadeRun run(folder.Path() / "run");
  run.Write();
  const auto gather = [&] { return GatherRun(FindRuns(run.folder.string()).at(0), 8); };
  EXPECT_THAT(gather().contradictions, IsEmpty());
  // A sample that was run again stands there twice, and counts once.
  const std::string samples = support::ReadFile(run.folder / kSamplesFile);
  support::WriteFile(run.folder / kSamplesFile, samples + samples);
  EXPECT_THAT(gather().contradictions, IsEmpty());
  support::WriteFile(run.folder / kSamplesFile, samples.substr(0, samples.find('\n') + 1));
  EXPECT_THAT(gather().contradictions,
              ElementsAre("run.json tells 4 samples done, and samples.jsonl 1"));
}

}  // namespace
}  // namespace vorn::kit
