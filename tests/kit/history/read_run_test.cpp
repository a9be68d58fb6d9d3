#include "kit/history/read_run.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kit/common/fault.h"
#include "kit/history/made_run.h"
#include "kit/json/json.h"
#include "support/files.h"

namespace vorn::kit {
namespace {

using support::MadeFacts;
using support::MakeRun;
using support::MakeVerdict;
using support::TimesAround;
using testing::HasSubstr;

class ReadRunEntryTest : public testing::Test {
 protected:
  std::string Run() const { return folder_.Path() / "run"; }

  std::string Refusal() const {
    try {
      (void)ReadRunEntry(Run());
    } catch (const Fault& fault) {
      EXPECT_EQ(fault.Status(), ExitStatus::kInput);
      return fault.what();
    }
    return "none";
  }

  support::TempDir folder_;
};

TEST_F(ReadRunEntryTest, TellsTimesMachineAndVerdict) {
  MakeRun(Run(), MadeFacts(3), TimesAround(1000000));
  MakeVerdict(Run(), 6, 0.5);
  MachineMoment moment;
  moment.frequencyKhz = {1000000, 2000000};
  moment.temperatureMilliC = {{"cpu", 50000}, {"board", 30000}};
  support::WriteFile(Run() + "/machine.jsonl", ToLine(moment));
  const RunEntry run = ReadRunEntry(Run());
  EXPECT_EQ(run.path, Run());
  EXPECT_EQ(run.executions, 40U);
  EXPECT_EQ(run.medianNs, 1000000);
  EXPECT_EQ(run.firstNs, 2000000);
  EXPECT_EQ(run.times.timesNs, TimesAround(1000000));
  EXPECT_EQ(run.times.firstNs, std::vector<uint64_t>{2000000});
  EXPECT_EQ(run.frequencyKhz, 1500000U);
  EXPECT_EQ(run.temperatureMilliC, 50000);
  EXPECT_EQ(run.verdict, "wrong");
  ASSERT_EQ(run.metrics.size(), 3U);
  EXPECT_EQ(run.metrics[0], (RunMetric{"probabilities", "RMSE", 0.25, std::nullopt}));
  EXPECT_EQ(run.metrics[1], (RunMetric{"probabilities", "top 1", 0.5, 0.98}));
  EXPECT_EQ(run.metrics[2], (RunMetric{"probabilities", "top-1 agreement", 0.75, std::nullopt}));
}

TEST_F(ReadRunEntryTest, TakesTheVerdictBesideTheDeviceOfAQualification) {
  const std::string device = folder_.Path() / "device";
  const std::string reference = folder_.Path() / "reference";
  MakeRun(device, MadeFacts(3), TimesAround(1000000));
  MakeRun(reference, MadeFacts(3), TimesAround(1000000));
  MakeVerdict(folder_.Path(), 6, 0.5);
  EXPECT_EQ(ReadRunEntry(device).verdict, "") << "whose it is nobody says";
  support::WriteFile(folder_.Path() / "qualify.json", "{}\n");
  EXPECT_EQ(ReadRunEntry(device).verdict, "wrong");
  EXPECT_EQ(ReadRunEntry(device + "/").metrics.size(), 3U);
  EXPECT_EQ(ReadRunEntry(reference).verdict, "");
  MakeVerdict(device, 0);
  EXPECT_EQ(ReadRunEntry(device).verdict, "right") << "its own comes first";
}

TEST_F(ReadRunEntryTest, TakesARunAlone) {
  MakeRun(Run(), MadeFacts(3), {});
  const RunEntry run = ReadRunEntry(Run(), "a board of a container");
  EXPECT_EQ(run.executions, 0U);
  EXPECT_EQ(run.medianNs, std::nullopt);
  EXPECT_EQ(run.verdict, "");
  EXPECT_EQ(run.board, "a board of a container");
}

TEST_F(ReadRunEntryTest, KnowsWhetherAnythingChanged) {
  MakeRun(Run(), MadeFacts(3), TimesAround(1000000));
  const RunEntry before = ReadRunEntry(Run());
  EXPECT_EQ(ReadRunEntry(Run()), before);
  MakeVerdict(Run(), 0);
  const RunEntry judged = ReadRunEntry(Run());
  EXPECT_EQ(judged.identity, before.identity);
  EXPECT_NE(judged.content, before.content);
  MakeRun(Run(), MadeFacts(3), TimesAround(1000001));
  EXPECT_NE(ReadRunEntry(Run()).content, judged.content);
}

TEST_F(ReadRunEntryTest, KeepsTheFirstOfVeryManyTimes) {
  std::vector<uint64_t> times(kMostTimesKept + 5, 1000);
  times.back() = 999999;
  MakeRun(Run(), MadeFacts(3), times);
  const RunEntry run = ReadRunEntry(Run());
  EXPECT_EQ(run.executions, kMostTimesKept + 5);
  EXPECT_EQ(run.times.timesNs.size(), kMostTimesKept);
  EXPECT_EQ(run.times.leftOut, 5U);
}

TEST_F(ReadRunEntryTest, TakesTheOwnSideOfARunInTurns) {
  MakeRun(Run(), MadeFacts(3), {});
  TimesRecord record;
  record.series = "B";
  record.executeNs = {9000, 5000, 5000, 5000};
  support::WriteFile(Run() + "/times.jsonl", ToLine(record));
  EXPECT_EQ(ReadRunEntry(Run()).medianNs, 5000);
}

TEST_F(ReadRunEntryTest, NamesTheFileThatIsDamaged) {
  EXPECT_THAT(Refusal(), HasSubstr("run.json"));
  MakeRun(Run(), MadeFacts(3), TimesAround(1000000));
  support::WriteFile(Run() + "/verdict.json", "{");
  EXPECT_THAT(Refusal(), HasSubstr("verdict.json': "));
  std::filesystem::remove(Run() + "/verdict.json");
  support::WriteFile(Run() + "/times.jsonl", "{}\n");
  EXPECT_THAT(Refusal(), HasSubstr("times.jsonl"));
  support::WriteFile(Run() + "/run.json", "[]");
  EXPECT_THAT(Refusal(), HasSubstr("run.json"));
}

TEST_F(ReadRunEntryTest, NamesTheRunWhoseNumbersNothingReaches) {
  vorn::kit::RunFacts facts = MadeFacts(3);
  facts.startRealtimeNs = uint64_t{1} << 63;
  MakeRun(Run(), facts, {});
  EXPECT_EQ(Refusal(), "the run '" + Run() +
                           "': 'startRealtimeNs' is a number that no clock or counter reaches; it "
                           "is damaged");
  MakeRun(Run(), MadeFacts(3), {5, UINT64_MAX});
  EXPECT_THAT(Refusal(), HasSubstr("the times of the run '" + Run() + "/times.jsonl': inference"));
}

TEST(TakeVerdict, TakesACensusWithoutMeasures) {
  RunEntry run;
  TakeVerdict(
      R"({"schema":1,"status":0,"accuracy":[],"outputs":[{"name":"a","census":{"elements":1}},)"
      R"({"name":"b","census":{"rmse":0.5}}]})",
      run);
  ASSERT_EQ(run.metrics.size(), 1U);
  EXPECT_EQ(run.metrics[0].output, "b");
}

TEST(TakeVerdict, TellsTheStatusInAWord) {
  const auto word = [](int status) {
    RunEntry run;
    TakeVerdict(
        R"({"schema":1,"status":)" + std::to_string(status) + R"(,"accuracy":[],"outputs":[]})",
        run);
    return run.verdict;
  };
  EXPECT_EQ(word(0), "right");
  EXPECT_EQ(word(6), "wrong");
  EXPECT_EQ(word(8), "partial");
  EXPECT_EQ(word(9), "not judged");
  EXPECT_EQ(word(3), "not judged");
}

TEST(TakeVerdict, RefusesAnotherSchema) {
  for (const char* schema : {"0", "2", "\"1\"", "null"}) {
    RunEntry run;
    EXPECT_THROW(TakeVerdict(std::string(R"({"schema":)") + schema +
                                 R"(,"status":0,"accuracy":[],"outputs":[]})",
                             run),
                 JsonError)
        << schema;
  }
}

TEST(TakeVerdict, KeepsFiguresOfTheFirstOutputsThatHaveThem) {
  std::string outputs;
  for (size_t i = 0; i < kMostOutputsKept + 3; ++i) {
    outputs += std::string(i == 0 ? "" : ",") + R"({"name":"t)" + std::to_string(i) +
               R"(","census":{"rmse":)" + (i == 1 ? "\"NaN\"" : "1") + "}}";
  }
  RunEntry run;
  TakeVerdict(R"({"schema":1,"status":0,"accuracy":[],"outputs":[)" + outputs + "]}", run);
  EXPECT_EQ(run.metrics.size(), kMostOutputsKept - 1);
}

}  // namespace
}  // namespace vorn::kit
