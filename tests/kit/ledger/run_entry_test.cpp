#include "kit/ledger/run_entry.h"

#include <gtest/gtest.h>

#include <limits>

#include "kit/history/made_run.h"
#include "support/files.h"
#include "support/json_schema.h"

namespace vorn::kit {
namespace {

using support::MadeEntry;
using support::MadeFacts;

TEST(EntryOf, TellsFilesByNameAndContents) {
  const RunEntry run = EntryOf(MadeFacts(3), "A");
  EXPECT_EQ(run.model, "digits.onnx");
  EXPECT_EQ(run.modelXxh3, std::string(32, '1'));
  EXPECT_EQ(run.configuration, "device.json");
  EXPECT_EQ(run.list, "list.txt");
  EXPECT_EQ(run.runtime, "libvorn.so");
  EXPECT_EQ(run.mapped, "libvorn.so\t0a1b2c3d4e5f\n");
  EXPECT_EQ(run.options, "-b 2");
  EXPECT_EQ(run.board, "board7");
  EXPECT_EQ(run.side, "A");
  EXPECT_EQ(run.state, "done");
}

TEST(EntryOf, CountsWhatAConfigurationNames) {
  RunFacts facts = MadeFacts(3);
  const std::string alone = EntryOf(facts, "").configurationXxh3;
  facts.configurationFiles = {{"/a/ranges.json", 5, std::string(32, 'a')}};
  const std::string with = EntryOf(facts, "").configurationXxh3;
  facts.configurationFiles = {{"/b/ranges.json", 5, std::string(32, 'b')}};
  const std::string other = EntryOf(facts, "").configurationXxh3;
  EXPECT_EQ(alone, std::string(32, '2'));
  EXPECT_NE(with, alone);
  EXPECT_NE(other, with);
}

TEST(EntryOf, KnowsARunHoweverFarItIs) {
  RunFacts facts = MadeFacts(3);
  const std::string identity = EntryOf(facts, "").identity;
  facts.state = RunState::kRunning;
  facts.endRealtimeNs.reset();
  facts.counts.done = 7;
  facts.runtime.reset();
  EXPECT_EQ(EntryOf(facts, "A").identity, identity);
  facts.startRealtimeNs += 1;
  EXPECT_NE(EntryOf(facts, "").identity, identity);
  EXPECT_NE(EntryOf(MadeFacts(4), "").identity, identity);
  facts = MadeFacts(3);
  facts.machine.host = "board8";
  EXPECT_NE(EntryOf(facts, "").identity, identity);
}

// A merge that has fewer holes than before is of other boards, and began earlier.
TEST(EntryOf, KnowsTheRunOfAFleet) {
  RunFacts facts = MadeFacts(3);
  facts.fleet = "a plan";
  const std::string identity = EntryOf(facts, "").identity;
  facts.machine.host = "board7, board8";
  facts.startRealtimeNs -= 5;
  EXPECT_EQ(EntryOf(facts, "").identity, identity);
}

TEST(SideOf, IsThatOfARunInTurns) {
  const support::TempDir folder;
  const std::string run = folder.Path() / "run";
  support::WriteFile(run + "/A/run.json", "");
  EXPECT_EQ(SideOf(run + "/A"), "");
  support::WriteFile(run + "/B/run.json", "");
  EXPECT_EQ(SideOf(run + "/A"), "A");
  EXPECT_EQ(SideOf(run + "/./B/"), "B");
  EXPECT_EQ(SideOf(run), "");
}

TEST(RunEntryJson, GoesOutAndComesIn) {
  RunEntry run = MadeEntry(3, 1.25e6);
  run.id = 12;
  run.side = "B";
  run.loadAverage = 0.25;
  run.frequencyKhz = 1800000;
  run.temperatureMilliC = -3;
  run.status = -1;
  run.verdict = "right";
  run.metrics = {{.output = "p", .metric = "top 1", .value = 0.5, .expected = 0.75},
                 {.output = "q", .metric = "RMSE", .value = 1e-9, .expected = {}}};
  run.level = RunLevel{.reason = "new firmware", .setRealtimeNs = 77};
  const std::string line = ToText(ToJson(run, true));
  EXPECT_EQ(support::FaultBySchema("history_run", line), "");
  RunEntry read = EntryFromJson(ParseJson(line));
  EXPECT_EQ(read.id, 0);  // another history's
  read.id = run.id;
  EXPECT_EQ(read, run);
}

TEST(RunEntryJson, RefusesWhatIsNoRun) {
  EXPECT_THROW((void)EntryFromJson(ParseJson(R"({"schema":1,"metrics":[]})")), JsonError);
  EXPECT_THROW((void)EntryFromJson(ParseJson(R"({"schema":1})")), JsonError);
  EXPECT_THROW((void)EntryFromJson(ParseJson("[]")), JsonError);
}

// An export that a person has edited.
TEST(RunEntryJson, RefusesWhatNoRunTells) {
  const auto refusal = [](const char* key, const Json& value) -> std::string {
    Json object = ToJson(MadeEntry(3, 5), true);
    object.Set(key, value);
    try {
      (void)EntryFromJson(object);
    } catch (const JsonError& error) {
      return error.what();
    }
    return "none";
  };
  EXPECT_EQ(refusal("state", "done"), "none");
  EXPECT_EQ(refusal("state", "finished"),
            "'state' is 'finished', and no running, done, failed or interrupted");
  EXPECT_EQ(refusal("verdict", "good"),
            "'verdict' is 'good', and no right, wrong, partial or not judged");
  EXPECT_EQ(refusal("side", "C"), "'side' is 'C', and no A or B");
  EXPECT_EQ(refusal("medianNs", -1.5), "'medianNs' is below 0");
  EXPECT_EQ(refusal("madNs", -1), "'madNs' is below 0");
  EXPECT_EQ(refusal("startRealtimeNs", UINT64_MAX),
            "'startRealtimeNs' is a number that no clock or counter reaches");
  EXPECT_EQ(refusal("startRealtimeNs", INT64_MAX - 1), "none");
  EXPECT_EQ(refusal("endRealtimeNs", INT64_MAX),
            "'endRealtimeNs' is a number that no clock or counter reaches");
  EXPECT_EQ(refusal("executions", 3),
            "'executions' is 3, and 'times' tells 2; what vorn history export writes has all of "
            "them");
  EXPECT_EQ(refusal("kernel", std::string(33 << 20, 'k')), "its names have 33.0 MiB in all");
}

TEST(RunEntryJson, NeedsEachCount) {
  const Json whole = ToJson(MadeEntry(3, 5), true);
  for (const char* key : {"startRealtimeNs", "inferences", "done", "failed", "aside", "missing",
                          "executions", "addedRealtimeNs"}) {
    Json object = Json::Object({});
    for (const auto& [name, value] : whole.Members()) {
      if (name != key) object.Set(name, value);
    }
    try {
      (void)EntryFromJson(object);
      ADD_FAILURE() << key;
    } catch (const JsonError& error) {
      EXPECT_EQ(std::string(error.what()), "'" + std::string(key) + "' is missing");
    }
  }
}

TEST(PackTimes, ComesBack) {
  const std::vector<uint64_t> times{0,     1,     127,     128,
                                    16383, 16384, 5000000, std::numeric_limits<uint64_t>::max()};
  EXPECT_EQ(UnpackTimes(PackTimes(times)), times);
  EXPECT_EQ(PackTimes({300}), "\xac\x02");  // 0b10'0101100
  EXPECT_EQ(UnpackTimes(""), std::vector<uint64_t>{});
}

TEST(PackTimes, RefusesBytesThatAreNone) {
  EXPECT_EQ(UnpackTimes("\x80"), std::nullopt);
  EXPECT_EQ(UnpackTimes(std::string(10, '\xff')), std::nullopt);
  EXPECT_EQ(UnpackTimes(std::string(9, '\xff') + "\x02"), std::nullopt);
  EXPECT_EQ(UnpackTimes(std::string(20, '\x80') + "\x01"), std::nullopt);
}

}  // namespace
}  // namespace vorn::kit
