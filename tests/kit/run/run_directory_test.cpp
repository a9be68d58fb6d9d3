// What is written is read back, is what the schemas say, and is passed over where it is not known.
#include "kit/run/run_directory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <thread>

#include "kit/json/json.h"
#include "kit/model/model_json.h"
#include "support/files.h"
#include "support/json_schema.h"

namespace {

using support::FaultBySchema;
using testing::ElementsAre;
using testing::HasSubstr;
using vorn::kit::FileIdentity;
using vorn::kit::MachineMoment;
using vorn::kit::RunFacts;
using vorn::kit::SampleRecord;
using vorn::kit::SampleStatus;
using vorn::kit::TimesRecord;

const std::string kHash = "0123456789abcdef0123456789abcdef";

FileIdentity File(const std::string& path) {
  return {.path = path, .sizeBytes = 64, .xxh3 = kHash};
}

SampleRecord FullSample() {
  return {.index = 7,
          .status = SampleStatus::kFailed,
          .inputs = {{.line = 15, .name = "picture", .path = "a b.bin", .file = File("/p/a b.bin")},
                     {.line = 16, .name = {}, .path = "c", .file = File("/p/c")}},
          .outputs = {{.index = 1,
                       .name = "out:0",
                       .path = "dumps/7/out:0.0.12.bin",
                       .text = "dumps/7/out:0.0.12.float",
                       .sizeBytes = 40,
                       .xxh3 = kHash}},
          .reason = "output 0 is missing"};
}

TimesRecord FullTimes() {
  return {.index = 7,
          .chunk = 2,
          .attempt = 3,
          .host = "board",
          .startRealtimeNs = 1795255343761818000,
          .executeNs = {5, 18446744073709551615U},
          .series = "B"};
}

MachineMoment FullMoment() {
  return {.realtimeNs = 1,
          .frequencyKhz = {1200000, 800000},
          .temperatureMilliC = {{"cpu-thermal", 45200}, {"outside", -5000}},
          .rssBytes = 3,
          .memoryAvailableBytes = 4};
}

RunFacts FullRun() {
  RunFacts facts;
  facts.state = vorn::kit::RunState::kInterrupted;
  facts.status = 8;
  facts.programStatus = 1;
  facts.signal = "SIGFPE";
  facts.command = {"vorn", "launch", "-m", "a\nb"};
  facts.version = "0.1.0";
  facts.options = {{"-b", "2"}};
  facts.model = File("model.om");
  facts.configuration = File("c.json");
  facts.list = File("list.txt");
  facts.runtime = File("libvorn.so");
  facts.mapped = {{.path = "/lib/libvorn.so", .buildId = "00ff"}, {.path = "/x", .buildId = {}}};
  facts.machine = {.host = "board",
                   .kernel = "Linux 4.19",
                   .processor = "some",
                   .cores = 4,
                   .governor = "performance",
                   .loadAverage = 0.25,
                   .memoryTotalBytes = 1,
                   .memoryAvailableBytes = 0,
                   .container = "docker"};
  facts.startRealtimeNs = 5;
  facts.endRealtimeNs = 6;
  facts.counts = {.inferences = 10, .done = 4, .failed = 3, .aside = 2, .missing = 1};
  facts.phases = {{"execute", 9}, {"load", 8}};
  facts.warnings = {{.id = "batch-reset", .count = 2, .message = "the batch was reset"}};
  facts.standardError = "a\nb";
  facts.fleet = kHash;
  return facts;
}

// ---- What is written is read back ---------------------------------------------------------------

TEST(RunDirectory, ReadsWhatItWrites) {
  EXPECT_EQ(vorn::kit::SampleFromLine(ToLine(FullSample())), FullSample());
  EXPECT_EQ(vorn::kit::TimesFromLine(ToLine(FullTimes())), FullTimes());
  EXPECT_EQ(vorn::kit::MachineFromLine(ToLine(FullMoment())), FullMoment());
  EXPECT_EQ(vorn::kit::RunFromJson(ToJson(FullRun())), FullRun());
}

TEST(RunDirectory, LeavesOutWhatIsNotKnown) {
  EXPECT_EQ(ToLine(SampleRecord{}),
            R"({"schema":1,"index":0,"status":"missing","inputs":[],"outputs":[]})"
            "\n");
  EXPECT_EQ(vorn::kit::SampleFromLine(ToLine(SampleRecord{})), SampleRecord{});
  EXPECT_EQ(vorn::kit::TimesFromLine(ToLine(TimesRecord{})), TimesRecord{});
  EXPECT_EQ(vorn::kit::MachineFromLine(ToLine(MachineMoment{})), MachineMoment{});
  EXPECT_EQ(vorn::kit::RunFromJson(ToJson(RunFacts{})), RunFacts{});
}

TEST(RunDirectory, PassesOverWhatALaterVersionSays) {
  EXPECT_EQ(vorn::kit::TimesFromLine(R"({"schema":2,"index":1,"chunk":0,"attempt":1,"host":"h",)"
                                     R"("startRealtimeNs":2,"executeNs":[3],"energyNj":[{}]})"),
            (TimesRecord{.index = 1,
                         .chunk = 0,
                         .attempt = 1,
                         .host = "h",
                         .startRealtimeNs = 2,
                         .executeNs = {3},
                         .series = {}}));
}

TEST(RunDirectory, TellsWhatIsWrongWithALine) {
  const auto fault = [](const std::string& line) -> std::string {
    try {
      (void)vorn::kit::SampleFromLine(line);
    } catch (const vorn::kit::JsonError& error) {
      return error.what();
    }
    return "";
  };
  EXPECT_THAT(fault(R"({"schema":1})"), HasSubstr("index"));
  EXPECT_EQ(fault(R"({"schema":0})"), "it has schema 0, which never was; the first one is 1");
  EXPECT_EQ(fault(R"({"schema":1,"index":0,"status":"dine","inputs":[],"outputs":[]})"),
            "'dine' is not known here");
  EXPECT_NE(fault(R"({"schema":1,"index":-1,"status":"done","inputs":[],"outputs":[]})"), "");
  EXPECT_NE(fault("[]"), "");
}

// ---- The schemas --------------------------------------------------------------------------------

TEST(RunDirectory, WritesWhatTheSchemasSay) {
  for (const SampleRecord& record : {FullSample(), SampleRecord{}}) {
    EXPECT_EQ(FaultBySchema("samples", ToLine(record)), "");
  }
  EXPECT_EQ(FaultBySchema("times", ToLine(FullTimes())), "");
  EXPECT_EQ(FaultBySchema("machine", ToLine(FullMoment())), "");
  EXPECT_EQ(FaultBySchema("machine", ToLine(MachineMoment{})), "");
  EXPECT_EQ(FaultBySchema("run", ToJson(FullRun())), "");
  EXPECT_EQ(FaultBySchema("run", ToJson(RunFacts{})), "");
}

TEST(RunDirectory, WritesModelsAsTheSchemaSays) {
  vorn::kit::ModelDescription description;
  description.netType = 1;
  description.model = File("m");
  description.runtime = File("r");
  description.inputs.emplace_back().shape = {1, -3};
  auto& output = description.outputs.emplace_back();
  output.role = vorn::kit::TensorRole::kOutput;
  output.name = "out";
  output.shape = {1, 3};
  output.type = 0;
  output.elementBits = 32;
  output.format = 2;
  output.strideBytes = output.deviceBytes = 16;
  EXPECT_EQ(FaultBySchema("model", ToJson(description)), "");
}

// Of each schema something that it has to refuse, so that the test above can fail.
TEST(RunDirectory, SchemasRefuseWhatIsWrong) {
  EXPECT_EQ(FaultBySchema("times", "{"), "this is no JSON");
  EXPECT_EQ(FaultBySchema("times", "[]"), "times has no \"schema\"");
  EXPECT_EQ(FaultBySchema("times", R"({"schema":1})"), "times has no \"index\"");
  const auto changed = [](const std::string& line, const std::string& what,
                          const std::string& into) {
    std::string text = line;
    EXPECT_NE(text.find(what), std::string::npos) << what;
    return text.replace(text.find(what), what.size(), into);
  };
  EXPECT_EQ(FaultBySchema("times", changed(ToLine(FullTimes()), "[5,", "[-5,")),
            "times/executeNs/0 is below 0");
  EXPECT_EQ(FaultBySchema("samples", changed(ToLine(FullSample()), "failed", "faild")),
            R"(samples/status is none of ["done","failed","aside","missing"])");
  EXPECT_EQ(FaultBySchema("samples", changed(ToLine(FullSample()), "89ab", "89AB")),
            R"(samples/inputs/0/file/xxh3_128 is no "^[0-9a-f]{32}$")");
  EXPECT_EQ(FaultBySchema("machine", changed(ToLine(FullMoment()), "45200", "45.2")),
            "machine/temperatureMilliC/cpu-thermal is no \"integer\"");
  EXPECT_EQ(FaultBySchema("run", changed(ToJson(FullRun()), "\"version\"", "\"versoin\"")),
            "run/versoin is not in the schema");
  EXPECT_EQ(FaultBySchema("run", changed(ToJson(FullRun()), "\"status\": 8", "\"status\": 800")),
            "run/status is above 255");
}

// ---- A directory --------------------------------------------------------------------------------

class Directory : public testing::Test {
 protected:
  void Write(const std::string& name, const std::string& bytes) {
    support::WriteFile(folder_.Path() / name, bytes);
  }
  std::string Run() const { return folder_.Path().string(); }

  std::string FaultOf(const std::function<void()>& action) const {
    try {
      action();
    } catch (const vorn::kit::Fault& fault) {
      EXPECT_EQ(fault.Status(), vorn::kit::ExitStatus::kInput);
      return fault.what();
    }
    return "";
  }

  support::TempDir folder_;
};

TEST_F(Directory, ReadsEachFile) {
  Write("run.json", ToJson(FullRun()));
  Write("samples.jsonl", ToLine(FullSample()));
  Write("times.jsonl", ToLine(FullTimes()) + ToLine(TimesRecord{}));
  Write("machine.jsonl", ToLine(FullMoment()));
  EXPECT_EQ(vorn::kit::ReadRun(Run()), FullRun());
  EXPECT_THAT(vorn::kit::ReadSamples(Run()), ElementsAre(FullSample()));
  EXPECT_THAT(vorn::kit::ReadTimes(Run()), ElementsAre(FullTimes(), TimesRecord{}));
  EXPECT_THAT(vorn::kit::ReadMachine(Run()), ElementsAre(FullMoment()));
}

TEST_F(Directory, TakesTheLastLineOfAnIndexAndPutsThemInOrder) {
  SampleRecord early = FullSample();
  early.index = 3;
  SampleRecord again = early;
  again.status = SampleStatus::kDone;
  Write("samples.jsonl", ToLine(FullSample()) + ToLine(early) + ToLine(again));
  EXPECT_THAT(vorn::kit::ReadSamples(Run()), ElementsAre(again, FullSample()));
}

TEST_F(Directory, PassesOverALineThatIsBeingWritten) {
  const std::string line = ToLine(FullTimes());
  for (size_t size = 0; size < line.size(); ++size) {
    Write("times.jsonl", line + line.substr(0, size));
    EXPECT_THAT(vorn::kit::ReadTimes(Run()), ElementsAre(FullTimes())) << size;
  }
}

// Pieces that the file is read in end within a line.
TEST_F(Directory, ReadsManyLines) {
  std::string text;
  for (uint64_t i = 0; i < 2000; ++i) {
    TimesRecord record = FullTimes();
    record.index = i;
    text += ToLine(record);
  }
  Write("times.jsonl", text);
  const auto times = vorn::kit::ReadTimes(Run());
  ASSERT_EQ(times.size(), 2000U);
  for (uint64_t i = 0; i < 2000; ++i) EXPECT_EQ(times[i].index, i);
}

// A link to a device would be read until all memory is taken.
TEST_F(Directory, ReadsRegularFilesAlone) {
  std::filesystem::create_symlink("/dev/zero", folder_.Path() / "times.jsonl");
  EXPECT_EQ(FaultOf([&] { (void)vorn::kit::ReadTimes(Run()); }),
            "the times of the run '" + Run() + "/times.jsonl' is no regular file");
  std::filesystem::remove(folder_.Path() / "times.jsonl");
  ASSERT_EQ(mkfifo((Run() + "/times.jsonl").c_str(), 0600), 0);
  EXPECT_THAT(FaultOf([&] { (void)vorn::kit::ReadTimes(Run()); }), HasSubstr("no regular file"));
}

TEST_F(Directory, RefusesALineWithoutEnd) {
  Write("times.jsonl", ToLine(FullTimes()));
  std::filesystem::resize_file(folder_.Path() / "times.jsonl", uint64_t{1} << 40);
  EXPECT_EQ(FaultOf([&] { (void)vorn::kit::ReadTimes(Run()); }),
            "the times of the run '" + Run() +
                "/times.jsonl', line 2 is longer than 64.0 MiB, which none of its kind is");
}

TEST_F(Directory, TakesTheLastLineOfWhatAPersonNamed) {
  const auto linesOf = [](const std::string& path) {
    std::vector<std::string> lines;
    vorn::kit::ForEachLine(
        path, "the lines", vorn::kit::ExitStatus::kInput,
        [&](std::string_view line) { lines.emplace_back(line); }, vorn::kit::LineSource::kNamed);
    return lines;
  };
  Write("lines", "a\n\nb");
  EXPECT_THAT(linesOf(Run() + "/lines"), ElementsAre("a", "", "b"));
  Write("lines", "a\n");
  EXPECT_THAT(linesOf(Run() + "/lines"), ElementsAre("a"));
  Write("lines", "");
  EXPECT_THAT(linesOf(Run() + "/lines"), testing::IsEmpty());
  const std::string pipe = Run() + "/pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  std::thread writer([&] { support::WriteFile(pipe, "c\nd"); });
  EXPECT_THAT(linesOf(pipe), ElementsAre("c", "d"));
  writer.join();
}

TEST_F(Directory, NamesFileAndLineOfAFault) {
  Write("times.jsonl", ToLine(FullTimes()) + "{}\n");
  EXPECT_EQ(FaultOf([&] { (void)vorn::kit::ReadTimes(Run()); }),
            "the times of the run '" + Run() + "/times.jsonl', line 2: 'schema' is missing");
  EXPECT_EQ(FaultOf([&] { (void)vorn::kit::ReadSamples(Run()); }),
            "the samples of the run '" + Run() +
                "/samples.jsonl' cannot be opened: No such file or directory");
  Write("run.json", "{");
  EXPECT_THAT(FaultOf([&] { (void)vorn::kit::ReadRun(Run()); }),
              HasSubstr("the record of the run '" + Run() + "/run.json': "));
  Write("machine.jsonl/x", "");
  EXPECT_THAT(FaultOf([&] { (void)vorn::kit::ReadMachine(Run()); }), HasSubstr("cannot be read"));
}

TEST(FrontOfSample, IsWhatTheWholeLineSays) {
  for (const auto status : {vorn::kit::SampleStatus::kDone, vorn::kit::SampleStatus::kFailed}) {
    vorn::kit::SampleRecord record;
    record.index = 1234567890123;
    record.status = status;
    const auto front = vorn::kit::FrontOfSample(ToLine(record));
    ASSERT_TRUE(front.has_value());
    EXPECT_EQ(front->index, record.index);
    EXPECT_EQ(front->isDone, status == vorn::kit::SampleStatus::kDone);
  }
}

// These have to be read whole.
TEST(FrontOfSample, TellsNothingOfLinesThatBeginOtherwise) {
  for (const char* line :
       {"", "{", R"({"index":1,"schema":1})", R"({"schema":1,"index":1.5,"status":"done"})",
        R"({"schema":1,"index":12)", R"({"schema":1,"index":-1,"status":"done"})",
        R"({"schema":1,"index":99999999999999999999,"status":"done"})",
        R"({"schema":1, "index":1,"status":"done"})"}) {
    EXPECT_FALSE(vorn::kit::FrontOfSample(line).has_value()) << line;
  }
}

}  // namespace
