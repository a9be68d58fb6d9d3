#include "kit/report/run_facts.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <regex>
#include <string>

#include "kit/common/fault.h"
#include "kit/report/made_run.h"
#include "support/files.h"

namespace vorn::kit {
namespace {

using testing::Contains;
using testing::Field;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

class RunFactsTest : public testing::Test {
 protected:
  // A run and its reference, from which sample 2 differs, judged.
  void WriteJudged() {
    reference_.Write();
    MadeRun run(folder_.Path() / "run");
    run.samples[2] = {0.7F, 0.1F, 0.1F, 0.1F};
    run.Write();
    JudgeRuns(run.folder, reference_.folder);
  }

  [[nodiscard]] std::string Run() const { return (folder_.Path() / "run").string(); }

  [[nodiscard]] ReportRun Gather() const { return GatherRun(FindRuns(Run()).at(0), 8); }

  void Remove(const char* name) const { std::filesystem::remove(folder_.Path() / "run" / name); }
  void Spoil(const char* name, const std::string& text) const {
    support::WriteFile(folder_.Path() / "run" / name, text);
  }

  static bool HasRemark(const ReportRun& run, ReportRemark::Kind kind, const std::string& part) {
    return std::any_of(run.remarks.begin(), run.remarks.end(), [&](const ReportRemark& remark) {
      return remark.kind == kind && remark.text.find(part) != std::string::npos;
    });
  }

  support::TempDir folder_;
  MadeRun reference_{folder_.Path() / "reference"};
};

constexpr auto kMissing = ReportRemark::Kind::kMissing;
constexpr auto kWarning = ReportRemark::Kind::kWarning;

TEST_F(RunFactsTest, TellsARunThatIsWrong) {
  WriteJudged();
  const ReportRun run = Gather();
  EXPECT_EQ(run.answer.tone, ReportTone::kBad);
  EXPECT_THAT(run.answer.sentence,
              HasSubstr("'digits.onnx' on the host 'board-7' (Cortex-A55) is wrong in 1 of 4 "
                        "samples of 'prob': the output of another sample in 1 sample; measured "
                        "against '"));
  EXPECT_THAT(run.answer.sentence, HasSubstr("an execution takes 1.01 µs (median of 3)"));
  ASSERT_TRUE(run.judgement.has_value());
  ASSERT_THAT(run.judgement->outputs, SizeIs(1));
  const ReportOutput& output = run.judgement->outputs[0];
  EXPECT_EQ(output.verdict, ReportVerdict::kWrong);
  EXPECT_THAT(output.columns.isWrong, testing::ElementsAre(0, 0, 1, 0));
  ASSERT_THAT(run.details, SizeIs(1));
  EXPECT_EQ(run.details[0].sample, 2U);
  EXPECT_EQ(run.details[0].obstacle, "");
  EXPECT_EQ(run.times.wholeNs, 100U);
  EXPECT_TRUE(run.machine.has_value());
  EXPECT_THAT(run.tensors, Contains(Field(&ReportTensor::name, "picture")));
  EXPECT_THAT(run.commands,
              Contains(Field(&ReportCommand::purpose, HasSubstr("once more, into a folder"))));
}

TEST_F(RunFactsTest, TellsARunThatIsRight) {
  reference_.Write();
  const MadeRun run(folder_.Path() / "run");
  run.Write();
  JudgeRuns(run.folder, reference_.folder);
  const ReportRun gathered = Gather();
  EXPECT_EQ(gathered.answer.tone, ReportTone::kGood);
  EXPECT_THAT(gathered.answer.sentence, HasSubstr("is right in all 4 samples of 1 output"));
  EXPECT_THAT(gathered.details, IsEmpty());
}

TEST_F(RunFactsTest, TellsWhatIsMissing) {
  WriteJudged();
  for (const char* name : {"verdict.json", kModelFile, kSamplesFile, kTimesFile, kMachineFile}) {
    Remove(name);
  }
  const ReportRun run = Gather();
  for (const char* part :
       {"verdict", "model.json", "samples.jsonl", "times.jsonl", "machine.jsonl", "trace"}) {
    EXPECT_TRUE(HasRemark(run, kMissing, part)) << part;
  }
  EXPECT_EQ(run.answer.tone, ReportTone::kOpen);
  EXPECT_EQ(run.answer.verdict, "not judged");
  EXPECT_THAT(run.times.series, IsEmpty());
}

TEST_F(RunFactsTest, NeedsRunJson) {
  WriteJudged();
  Spoil(kRunFile, "{");
  try {
    (void)Gather();
    FAIL() << "a spoilt run.json was read";
  } catch (const Fault& fault) {
    EXPECT_EQ(fault.Status(), ExitStatus::kInput);
    EXPECT_THAT(fault.what(), HasSubstr("run.json"));
  }
  Remove(kRunFile);
  EXPECT_THROW((void)FindRuns(Run()), Fault);
  EXPECT_THROW((void)FindRuns((folder_.Path() / "nowhere").string()), Fault);
}

TEST_F(RunFactsTest, SaysThatAFolderMayNotBeRead) {
  namespace fs = std::filesystem;
  const fs::path closed = folder_.Path() / "closed";
  fs::create_directory(closed);
  fs::permissions(closed, fs::perms::none);
  fs::permissions(folder_.Path(), fs::perms::all);
  const uid_t user = geteuid();
  constexpr uid_t kNobody = 65534;
  // Who may look into all of them, is none to try it with.
  ASSERT_EQ(seteuid(user == 0 ? kNobody : user), 0);
  std::string message;
  try {
    (void)FindRuns(closed.string());
  } catch (const Fault& fault) {
    message = fault.what();
  }
  ASSERT_EQ(seteuid(user), 0);
  fs::permissions(closed, fs::perms::all);
  EXPECT_EQ(message, "'" + closed.string() + "' cannot be read: Permission denied");
}

// Each part alone: the others are told as if nothing was.
TEST_F(RunFactsTest, SurvivesPartsThatAreSpoilt) {
  for (const char* name : {"verdict.json", kModelFile, kSamplesFile, kTimesFile, kMachineFile,
                           kTraceFile, "findings.jsonl", "boards.json"}) {
    WriteJudged();
    Spoil(name, "{\"schema\": 1, \x80 [[[\n");
    const ReportRun run = Gather();
    EXPECT_TRUE(HasRemark(run, kWarning, name)) << name;
    if (std::string(name) != "verdict.json") {
      EXPECT_EQ(run.answer.tone, ReportTone::kBad) << name;
    }
    Remove(name);
  }
}

TEST_F(RunFactsTest, ShowsTheLinesBeforeASpoiltOne) {
  WriteJudged();
  const std::string times = support::ReadFile(folder_.Path() / "run" / kTimesFile);
  Spoil(kTimesFile, times + "{\"schema\": 1, \"index\": \n");
  const ReportRun run = Gather();
  ASSERT_THAT(run.times.series, SizeIs(1));
  EXPECT_EQ(run.times.series[0].count, 3U);
  EXPECT_TRUE(HasRemark(run, kWarning, "what stands before is shown"));
}

// A process that was killed while it wrote leaves a line without its end.
TEST_F(RunFactsTest, ReadsARunThatWasKilled) {
  MadeRun run(folder_.Path() / "run");
  run.facts.state = RunState::kRunning;
  run.facts.status.reset();
  run.facts.endRealtimeNs.reset();
  run.Write();
  for (const char* name : {kSamplesFile, kTimesFile, kMachineFile}) {
    const std::string text = support::ReadFile(run.folder / name);
    support::WriteFile(run.folder / name, text + text.substr(0, text.size() / 2));
  }
  const ReportRun gathered = Gather();
  EXPECT_EQ(gathered.answer.verdict, "running");
  EXPECT_THAT(gathered.answer.sentence, HasSubstr("has not ended"));
  EXPECT_TRUE(HasRemark(gathered, kWarning, "has not ended, or was killed"));
  ASSERT_THAT(gathered.times.series, SizeIs(1));
}

TEST_F(RunFactsTest, TellsSamplesThatAreNotDone) {
  MadeRun run(folder_.Path() / "run");
  run.Write();
  std::string lines;
  for (uint64_t i = 0; i < kMostReportUndone + 50; ++i) {
    SampleRecord record;
    record.index = i;
    record.status = i == 0 ? SampleStatus::kAside : SampleStatus::kMissing;
    record.reason = "ended by SIGSEGV";
    lines += ToLine(record);
  }
  // Sample 1 was run again.
  SampleRecord again;
  again.index = 1;
  again.status = SampleStatus::kDone;
  support::WriteFile(run.folder / kSamplesFile, lines + ToLine(again));
  const ReportRun gathered = Gather();
  ASSERT_THAT(gathered.undone, SizeIs(kMostReportUndone - 1));
  EXPECT_EQ(gathered.undone[0].status, "aside");
  EXPECT_EQ(gathered.undone[0].reason, "ended by SIGSEGV");
  EXPECT_EQ(gathered.undone[1].sample, 2U);
}

TEST_F(RunFactsTest, DoubtsAVerdictThatIsOlderThanTheRun) {
  WriteJudged();
  EXPECT_FALSE(HasRemark(Gather(), kWarning, "older than the end of the run"));
  std::filesystem::last_write_time(
      folder_.Path() / "run" / "verdict.json",
      std::filesystem::file_time_type::clock::from_sys(
          std::chrono::sys_seconds(std::chrono::seconds(1'600'000'000))));
  EXPECT_TRUE(HasRemark(Gather(), kWarning, "older than the end of the run"));
}

// Outputs of neighbours may be the same bytes, which a run cannot tell from a fault, and a verdict
// can.
TEST_F(RunFactsTest, LetsTheVerdictSayWhichRepeatedOutputsAreWrong) {
  reference_.samples[1] = reference_.samples[0];
  reference_.Write();
  MadeRun run(folder_.Path() / "run");
  run.samples[1] = run.samples[0];
  run.samples[3] = run.samples[2];
  run.facts.warnings = {{kRepeatedWarning, 2, "whatever"}};
  run.Write();
  const std::string told = "2 samples have, byte for byte, the outputs of the one before";
  EXPECT_FALSE(HasRemark(Gather(), kWarning, told));
  EXPECT_TRUE(HasRemark(Gather(), kWarning, "whatever"));
  JudgeRuns(run.folder, reference_.folder);
  EXPECT_TRUE(HasRemark(Gather(), kWarning, told));
  EXPECT_TRUE(HasRemark(Gather(), kWarning,
                        "1 of them is right, the answers being the same, and sample 3 is wrong, of "
                        "which the answer on top says what fits"));
  EXPECT_FALSE(HasRemark(Gather(), kWarning, "whatever"));
  // What the verdict has cleared is nothing to be warned of.
  reference_.samples[3] = reference_.samples[2];
  reference_.Write();
  JudgeRuns(run.folder, reference_.folder);
  EXPECT_FALSE(HasRemark(Gather(), kWarning, told));
  EXPECT_TRUE(HasRemark(Gather(), ReportRemark::Kind::kNote, told));
}

TEST_F(RunFactsTest, TakesAScriptForNoProgram) {
  MadeRun run(folder_.Path() / "run");
  run.facts.mapped = {{"/lib/ld-linux.so.2", "aa"}, {"/usr/lib/libvorn.so.1", "bb"}};
  run.Write();
  EXPECT_THAT(Gather().facts.mapped, SizeIs(2));
  EXPECT_EQ(Gather().machine->rssBytes.at(0), uint64_t{40} << 20);
  run.facts.mapped = {{"/lib/ld-linux.so.2", "aa"}};
  run.Write();
  const ReportRun gathered = Gather();
  EXPECT_THAT(gathered.facts.mapped, IsEmpty());
  EXPECT_EQ(gathered.machine->rssBytes.at(0), std::nullopt);
  EXPECT_TRUE(HasRemark(gathered, kMissing, "had no libvorn.so"));
  // Of a script of which nothing was seen the memory is its own all the same.
  run.facts.mapped.clear();
  run.facts.program = FileIdentity{"/home/a/run.sh", {}, {}};
  run.Write();
  EXPECT_EQ(Gather().machine->rssBytes.at(0), std::nullopt);
  run.facts.program->path = "/usr/bin/vorn-run";
  run.Write();
  EXPECT_EQ(Gather().machine->rssBytes.at(0), uint64_t{40} << 20);
}

// A program that has just begun holds a few pages, which are no figure to show.
TEST_F(RunFactsTest, TakesNoMemoryThatWasReadBeforeTheFirstExecution) {
  MadeRun run(folder_.Path() / "run");
  run.Write();
  EXPECT_NE(Gather().machine->rssBytes.at(0), std::nullopt);
  const std::string times = support::ReadFile(run.folder / "times.jsonl");
  const std::string later =
      std::regex_replace(times, std::regex("\"startRealtimeNs\":\\d"), "\"startRealtimeNs\":9");
  ASSERT_NE(times, later);
  support::WriteFile(run.folder / "times.jsonl", later);
  const ReportRun gathered = Gather();
  EXPECT_EQ(gathered.machine->rssBytes.at(0), std::nullopt);
  EXPECT_TRUE(HasRemark(gathered, kMissing, "before its first execution alone"));
}

TEST_F(RunFactsTest, SaysWhatTheRunWasRoundedTo) {
  MadeRun run(folder_.Path() / "run");
  run.facts.standardError =
      "vorn: vorn_mdl_load: rounded 7 weights, 0 inputs and 8 results to int8\n";
  run.Write();
  EXPECT_EQ(Gather().precision, "int8");
  EXPECT_THAT(Gather().answer.sentence,
              HasSubstr("'digits.onnx', rounded to int8, on the host 'board-7'"));
}

TEST_F(RunFactsTest, TellsPathsWithoutDetours) {
  MadeRun run(folder_.Path() / "run");
  run.facts.model.path = (folder_.Path() / "run/../run/net.onnx").string();
  run.facts.command = {
      "vorn", "launch", "-m", run.facts.model.path, "--run", run.folder.string(), "--resume"};
  run.Write();
  const ReportRun gathered = Gather();
  EXPECT_EQ(gathered.facts.model.path, (folder_.Path() / "run/net.onnx").string());
  ASSERT_FALSE(gathered.commands.empty());
  EXPECT_EQ(gathered.commands[0].command, "vorn launch -m " +
                                              (folder_.Path() / "run/net.onnx").string() +
                                              " --run " + run.folder.string() + ".again");
}

TEST_F(RunFactsTest, SaysFromWhereACommandCountsItsPaths) {
  MadeRun run(folder_.Path() / "run");
  run.facts.command = {"vorn", "launch", "-m", "net.onnx", "--run", "run"};
  run.Write();
  EXPECT_EQ(Gather().commands.at(0).command,
            "cd " + folder_.Path().string() + "/ && vorn launch -m net.onnx --run run.again");
}

TEST_F(RunFactsTest, TakesTheDeviceOfAQualification) {
  WriteJudged();
  const auto whole = folder_.Path() / "whole";
  std::filesystem::create_directories(whole);
  support::WriteFile(whole / "qualify.json", "{}");
  EXPECT_THROW((void)FindRuns(whole.string()), Fault);
  std::filesystem::copy(folder_.Path() / "run", whole / "device",
                        std::filesystem::copy_options::recursive);
  std::filesystem::rename(whole / "device" / "verdict.json", whole / "verdict.json");
  const auto places = FindRuns(whole.string());
  ASSERT_THAT(places, SizeIs(1));
  const ReportRun run = GatherRun(places[0], 8);
  EXPECT_EQ(run.path, whole.string());
  EXPECT_EQ(run.answer.verdict, "wrong");
}

TEST_F(RunFactsTest, TakesBothOfARunThatTookTurns) {
  const auto both = folder_.Path() / "both";
  MadeRun(both / "A").Write();
  MadeRun(both / "B").Write();
  support::WriteFile(both / kTimesFile, "");
  const auto places = FindRuns(both.string() + "/");
  ASSERT_THAT(places, SizeIs(2));
  EXPECT_EQ(places[0].run, (both / "A").string());
  EXPECT_EQ(places[1].turns, (both / kTimesFile).string());
}

TEST_F(RunFactsTest, TakesFindingsAndBoards) {
  WriteJudged();
  Spoil("findings.jsonl",
        R"({"schema": 1, "id": "buffer-overrun", "severity": "error", "count": 3, "message": "m"})"
        "\n");
  Spoil("boards.json",
        R"({"schema": 1, "fleet": "f", "boards": [{"name": "b1", "folder": "boards/b1"}]})");
  const ReportRun run = Gather();
  ASSERT_THAT(run.findings, SizeIs(1));
  EXPECT_EQ(run.findings[0].id, "buffer-overrun");
  EXPECT_EQ(run.findings[0].count, 3U);
  ASSERT_TRUE(run.fleet.has_value());
  EXPECT_EQ(run.fleet->boards.at(0).name, "b1");
}

}  // namespace
}  // namespace vorn::kit
