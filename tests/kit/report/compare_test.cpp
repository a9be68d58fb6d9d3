#include "kit/report/compare.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "kit/common/fault.h"
#include "kit/report/made_run.h"
#include "support/files.h"

namespace vorn::kit {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

std::vector<std::string> WhatChanged(const std::vector<ReportChange>& changes) {
  std::vector<std::string> what;
  for (const ReportChange& change : changes) what.push_back(change.what);
  return what;
}

TEST(EnvironmentChanges, NamesWhatIsNotTheSame) {
  RunFacts base;
  base.model = {"a/net.onnx", 10, std::string(32, '1')};
  base.runtime = FileIdentity{"a/libvorn.so", 5, std::string(32, '2')};
  base.machine.governor = "performance";
  base.machine.cores = 4;
  base.mapped = {{"/lib/libc.so.6", "aa"}, {"/lib/libm.so.6", "bb"}};
  RunFacts other = base;
  EXPECT_THAT(EnvironmentChanges(base, other), IsEmpty());
  other.model.path = "b/net.onnx";  // the same bytes
  other.mapped[0].path = "/usr/lib/libc.so.6";
  EXPECT_THAT(EnvironmentChanges(base, other), IsEmpty());
  other.runtime->xxh3 = std::string(32, '3');
  other.configuration = FileIdentity{"c.json", {}, {}};
  other.machine.governor = "powersave";
  other.machine.cores.reset();
  other.mapped[1].buildId = "cc";
  other.mapped.push_back({"/lib/libdl.so.2", "dd"});  // of a process that lasted longer
  const auto changes = EnvironmentChanges(base, other);
  EXPECT_THAT(WhatChanged(changes),
              ElementsAre("configuration", "runtime", "cores", "governor", "library libm.so.6"));
  EXPECT_EQ(changes[0].base, "none");
  EXPECT_EQ(changes[1].other, "a/libvorn.so, 5 bytes, 33333333");
  EXPECT_EQ(changes[2].base, "4");
  EXPECT_EQ(changes[2].other, "none");
}

class CompareTest : public testing::Test {
 protected:
  [[nodiscard]] std::vector<ReportComparison> Compare(const MadeRun& base, const MadeRun& other) {
    base.Write();
    other.Write();
    std::vector<RunPlace> places;
    std::vector<ReportRun> runs;
    for (const MadeRun* run : {&base, &other}) {
      places.push_back(FindRuns(run->folder.string()).at(0));
      runs.push_back(GatherRun(places.back(), 0));
      runs.back().name = run->folder.filename();
    }
    return CompareRuns(places, runs);
  }

  support::TempDir folder_;
  MadeRun base_{folder_.Path() / "base"};
  MadeRun other_{folder_.Path() / "other"};
};

TEST_F(CompareTest, TellsASlowerRunWithItsInterval) {
  base_.samples.assign(60, {1, 0, 0, 0});
  other_.samples = base_.samples;
  other_.samples[41] = {0, 1, 0, 0};
  other_.facts.machine.governor = "powersave";
  base_.timesNs.clear();
  other_.timesNs.clear();
  for (uint64_t i = 0; i < 60; ++i) {
    base_.timesNs.push_back(1'000'000 + (i * 7919) % 1000);
    other_.timesNs.push_back(2'000'000 + (i * 104729) % 1000);
  }
  const auto comparisons = Compare(base_, other_);
  ASSERT_THAT(comparisons, SizeIs(1));
  const ReportComparison& comparison = comparisons[0];
  EXPECT_EQ(comparison.times.verdict, TimingVerdict::kSlower);
  EXPECT_GT(comparison.times.interval.low, 1.9);
  EXPECT_LT(comparison.times.interval.high, 2.1);
  EXPECT_EQ(comparison.answer.tone, ReportTone::kBad);
  EXPECT_THAT(comparison.answer.sentence, HasSubstr("'other' is slower than 'base': 2 times its"));
  EXPECT_THAT(comparison.answer.sentence, HasSubstr("1 of 1 output changed, in up to 1 sample"));
  EXPECT_THAT(comparison.answer.more, ElementsAre("Not the same: governor."));
  ASSERT_THAT(comparison.outputs, SizeIs(1));
  EXPECT_EQ(comparison.outputs[0].equal, 59U);
  EXPECT_EQ(comparison.outputs[0].different, 1U);
  EXPECT_EQ(comparison.outputs[0].firstDifferent, 41U);
}

TEST_F(CompareTest, CannotTellByThreeTimes) {
  const auto comparisons = Compare(base_, other_);
  EXPECT_EQ(comparisons.at(0).times.verdict, TimingVerdict::kCannotTell);
  EXPECT_EQ(comparisons[0].answer.tone, ReportTone::kOpen);
  EXPECT_THAT(comparisons[0].answer.sentence, HasSubstr("are the same to the byte"));
}

TEST_F(CompareTest, SaysWhatCouldNotBeCompared) {
  other_.timesNs.clear();
  other_.output = "another";
  base_.Write();
  other_.Write();
  std::filesystem::remove(other_.folder / kTimesFile);
  std::vector<RunPlace> places{FindRuns(base_.folder.string()).at(0),
                               FindRuns(other_.folder.string()).at(0)};
  const std::vector<ReportRun> runs{GatherRun(places[0], 0), GatherRun(places[1], 0)};
  const auto comparisons = CompareRuns(places, runs);
  EXPECT_EQ(comparisons.at(0).times.verdict, TimingVerdict::kNothing);
  EXPECT_THAT(comparisons[0].remarks, SizeIs(1));
  ASSERT_THAT(comparisons[0].outputs, SizeIs(2));
  EXPECT_EQ(comparisons[0].outputs[0].onlyBase, 4U);
  EXPECT_EQ(comparisons[0].outputs[1].onlyOther, 4U);
}

TEST_F(CompareTest, HoldsNoMoreThanThereIsRoomFor) {
  base_.Write();
  SampleRecord record;
  record.index = uint64_t{1} << 60;
  record.status = SampleStatus::kDone;
  record.outputs.push_back({0, "prob", "dumps/x.bin", std::nullopt, 4, std::string(32, 'a')});
  support::WriteFile(base_.folder / kSamplesFile, ToLine(record));
  try {
    (void)OutputChanges(base_.folder.string(), base_.folder.string());
    FAIL();
  } catch (const Fault& fault) {
    EXPECT_EQ(fault.Status(), ExitStatus::kLimit);
  }
}

TEST(VerdictChanges, NamesOutputsThatBecameWrong) {
  ReportRun base;
  ReportRun other;
  EXPECT_THAT(VerdictChanges(base, other), IsEmpty());
  base.judgement.emplace();
  other.judgement.emplace();
  ReportOutput output;
  output.name = "x";
  output.verdict = ReportVerdict::kRight;
  base.judgement->outputs = {output};
  output.verdict = ReportVerdict::kWrong;
  other.judgement->outputs = {output};
  const auto changes = VerdictChanges(base, other);
  ASSERT_THAT(changes, SizeIs(1));
  EXPECT_EQ(changes[0].base, "right");
  EXPECT_EQ(changes[0].other, "wrong");
}

}  // namespace
}  // namespace vorn::kit
