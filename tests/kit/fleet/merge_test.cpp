#include "kit/fleet/merge.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <random>

#include "kit/common/file_identity.h"
#include "kit/fleet/made_fleet.h"
#include "kit/json/json.h"
#include "kit/launch/run_folder.h"
#include "support/files.h"
#include "support/json_schema.h"

namespace {

namespace fs = std::filesystem;

using fleet_test::MadeAttempt;
using fleet_test::MadeFleet;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::Field;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using vorn::kit::ExitStatus;
using vorn::kit::Json;
using vorn::kit::RunFacts;
using vorn::kit::RunState;
using vorn::kit::SampleRecord;

struct Merged {
  ExitStatus status = ExitStatus::kOwnFault;
  std::string said;
  std::string fault;  // of one that did not come to its end
};

Merged Merge(const std::string& fleet, const std::string& run) {
  Merged merged;
  testing::internal::CaptureStderr();
  try {
    vorn::kit::Console console(false, "fleet");
    merged.status = vorn::kit::MergeFleet(
        {.fleet = fleet, .run = run, .command = {"vorn", "fleet", "merge"}, .version = "0.1.0"},
        console);
  } catch (const vorn::kit::Fault& fault) {
    merged.status = fault.Status();
    merged.fault = fault.what();
  }
  merged.said = testing::internal::GetCapturedStderr();
  return merged;
}

Merged Merge(const MadeFleet& fleet) { return Merge(fleet.Folder(), fleet.Path("run")); }

RunFacts Facts(const MadeFleet& fleet) { return vorn::kit::ReadRun(fleet.Path("run")); }

Json Boards(const MadeFleet& fleet) {
  const std::string text = support::ReadFile(fleet.Path("run/boards.json"));
  EXPECT_EQ(support::FaultBySchema("boards", text), "");
  return vorn::kit::ParseJson(text);
}

const Json& BoardOf(const Json& boards, const std::string& name) {
  for (const Json& board : boards.At("boards").Items()) {
    if (board.At("name").AsText() == name) return board;
  }
  throw std::runtime_error("no board " + name);
}

std::string Samples(const MadeFleet& fleet) {
  return support::ReadFile(fleet.Path("run/samples.jsonl"));
}

// Of a run of the whole list on a machine that is right.
std::string RightSamples(const MadeFleet& fleet) {
  std::string lines;
  for (uint64_t i = 0; i < fleet.Plan().inferences; ++i) {
    lines += ToLine(fleet.WholeRecord(i, MadeFleet::OutputOf(i)));
  }
  return lines;
}

std::string DumpOf(const MadeFleet& fleet, uint64_t inference) {
  return fleet.Path("run/dumps/" + std::to_string(inference) + "/same.0.17.bin");
}

ino_t InodeOf(const std::string& path) {
  struct stat about {};
  EXPECT_EQ(lstat(path.c_str(), &about), 0) << path;
  return about.st_ino;
}

std::vector<std::string> WarningIds(const RunFacts& facts) {
  std::vector<std::string> ids;
  for (const auto& warning : facts.warnings) ids.push_back(warning.id);
  return ids;
}

// ---- All is there -------------------------------------------------------------------------------

TEST(Merge, IsTheRunOfOneMachine) {
  for (const uint64_t chunk : {1, 3, 4, 7, 10}) {
    const MadeFleet fleet(10, chunk);
    fleet.AllDone({"b1", "b2"});
    const Merged merged = Merge(fleet);
    EXPECT_EQ(merged.status, ExitStatus::kDone) << merged.fault << merged.said;
    EXPECT_EQ(Samples(fleet), RightSamples(fleet));
    for (uint64_t i = 0; i < 10; ++i) {
      EXPECT_EQ(support::ReadFile(DumpOf(fleet, i)), std::string(4, MadeFleet::OutputOf(i)));
    }
    EXPECT_EQ(support::ReadTree(fleet.Path("run/dumps")).size(), 20U);
    EXPECT_EQ(support::ReadFile(fleet.Path("run/model.json")), "{\"schema\": 1}\n");
    EXPECT_THAT(merged.said, HasSubstr("has 10 of 10 inferences\n"));
  }
}

TEST(Merge, LinksTheDumpsAndLeavesTheFleetAsItIs) {
  const MadeFleet fleet(4, 2);
  fleet.AllDone();
  const auto before = support::ReadTree(fleet.Folder());
  EXPECT_EQ(Merge(fleet).status, ExitStatus::kDone);
  EXPECT_EQ(support::ReadTree(fleet.Folder()), before);
  EXPECT_EQ(InodeOf(DumpOf(fleet, 3)),
            InodeOf(fleet.Folder() + "/chunks/1/1/dumps/1/same.0.17.bin"));
}

TEST(Merge, TellsTheWholeInRunJson) {
  const MadeFleet fleet(4, 2);
  MadeAttempt first;
  first.beginNs = 50;
  first.endNs = 900;
  first.change = [](RunFacts& facts) {
    facts.warnings = {{.id = "not-finite", .count = 2, .message = "outputs hold 1 NaN"},
                      {.id = "output-repeated", .count = 9, .message = "of before"},
                      {.id = "program-end", .count = 1, .message = "ended"}};
    facts.mapped = {{.path = "/lib/a.so", .buildId = "00"}};
    facts.machine.cores = 4;
    facts.machine.governor = "powersave";
  };
  MadeAttempt second;
  second.board = "b2";
  second.beginNs = 40;
  second.endNs = 800;
  second.change = [](RunFacts& facts) {
    facts.warnings = {{.id = "not-finite", .count = 3, .message = "outputs hold 2 NaN"}};
    facts.mapped = {{.path = "/lib/a.so", .buildId = "00"}, {.path = "/lib/b.so", .buildId = {}}};
    facts.machine.cores = 4;
    facts.machine.governor = "performance";
  };
  fleet.Attempt(0, 1, first);
  fleet.Attempt(1, 1, second);
  EXPECT_EQ(Merge(fleet).status, ExitStatus::kDone);
  const std::string text = support::ReadFile(fleet.Path("run/run.json"));
  EXPECT_EQ(support::FaultBySchema("run", text), "");
  const RunFacts facts = Facts(fleet);
  EXPECT_EQ(facts.state, RunState::kDone);
  EXPECT_EQ(facts.status, 0);
  EXPECT_EQ(facts.fleet, fleet.Plan().id);
  EXPECT_EQ(facts.model, fleet.Plan().model);
  EXPECT_EQ(facts.configuration, fleet.Plan().configuration);
  EXPECT_EQ(facts.list, fleet.Plan().list);
  EXPECT_EQ(facts.runtime->path, "/opt/libvorn.so");
  EXPECT_EQ(facts.mapped.size(), 2U);
  EXPECT_EQ(facts.startRealtimeNs, 40U);
  EXPECT_EQ(facts.endRealtimeNs, 900U);
  EXPECT_EQ(facts.phases.at("execute"), 14U);
  EXPECT_EQ(facts.counts, (vorn::kit::SampleCounts{
                              .inferences = 4, .done = 4, .failed = 0, .aside = 0, .missing = 0}));
  EXPECT_EQ(facts.machine.host, "host of b1, host of b2");
  EXPECT_EQ(facts.machine.cores, 4U);
  EXPECT_EQ(facts.machine.governor, std::nullopt);
  ASSERT_EQ(facts.warnings.size(), 1U);
  EXPECT_EQ(facts.warnings[0].count, 5U);
  EXPECT_EQ(facts.warnings[0].message, "chunk 0, attempt 1 on 'b1': outputs hold 1 NaN");
}

TEST(Merge, GivesTimesTheirPlaceInTheList) {
  const MadeFleet fleet(5, 2);
  fleet.AllDone({"b1", "b2"});
  EXPECT_EQ(Merge(fleet).status, ExitStatus::kDone);
  const auto times = vorn::kit::ReadTimes(fleet.Path("run"));
  ASSERT_EQ(times.size(), 5U);
  for (uint64_t i = 0; i < 5; ++i) {
    EXPECT_EQ(times[i].index, i);
    EXPECT_EQ(times[i].chunk, i / 2);
    EXPECT_EQ(times[i].attempt, 1U);
    EXPECT_EQ(times[i].host, i / 2 % 2 == 0 ? "host of b1" : "host of b2");
    EXPECT_THAT(times[i].executeNs, ElementsAre(100 + i));
  }
}

TEST(Merge, TellsOfEachBoard) {
  const MadeFleet fleet(6, 2, {1});
  fleet.AllDone({"b1", "b2"});
  fleet.CrossCheck(1, {});
  const std::string trace = fleet.Folder() + "/chunks/1/1/trace.vtrace";
  support::WriteFile(trace, "a trace");
  EXPECT_EQ(Merge(fleet).status, ExitStatus::kDone);
  const Json boards = Boards(fleet);
  EXPECT_EQ(boards.At("fleet").AsText(), fleet.Plan().id);
  ASSERT_EQ(boards.At("boards").Items().size(), 2U);
  const Json& one = BoardOf(boards, "b1");
  EXPECT_EQ(one.At("samples").AsUnsigned(), 4U);
  EXPECT_EQ(one.At("chunksDone").AsUnsigned(), 2U);
  EXPECT_EQ(one.At("boots").AsUnsigned(), 1U);
  EXPECT_EQ(one.At("host").AsText(), "host of b1");
  EXPECT_TRUE(one.At("isChecked").AsBool());
  EXPECT_FALSE(BoardOf(boards, "b2").At("isChecked").AsBool());
  // Two chunks at once in two seconds.
  EXPECT_DOUBLE_EQ(one.At("samplesPerSecond").AsNumber(), 2);
  EXPECT_EQ(one.At("medianSampleNs").AsUnsigned(), 500'000'000U);
  EXPECT_EQ(one.At("highestTemperatureMilliC").AsSigned(), 50000);
  EXPECT_EQ(one.At("lowestFrequencyKhz").AsUnsigned(), 1001U);
  EXPECT_EQ(support::ReadFile(fleet.Path("run/boards/b2/1.1.vtrace")), "a trace");
  EXPECT_EQ(
      support::SplitLines(support::ReadFile(fleet.Path("run/boards/b1/machine.jsonl"))).size(), 3U);
  EXPECT_THAT(WarningIds(Facts(fleet)), ElementsAre("board-not-checked"));
}

TEST(Merge, FindsOutputsThatRepeatOverTheBoundsOfChunks) {
  const MadeFleet fleet(4, 2);
  fleet.AllDone();
  MadeAttempt same;
  same.outputs = "bd";  // inference 1 is "b", too
  fs::remove_all(fleet.Folder() + "/chunks/1");
  fleet.Attempt(1, 2, same);
  EXPECT_EQ(Merge(fleet).status, ExitStatus::kDone);
  const RunFacts facts = Facts(fleet);
  ASSERT_EQ(facts.warnings.size(), 1U);
  EXPECT_EQ(facts.warnings[0].id, "output-repeated");
  EXPECT_THAT(facts.warnings[0].message, HasSubstr("first inference 2 (list.txt:3)"));
}

TEST(Merge, SaysThatBoardsHadOtherRuntimesAndConfigurations) {
  const MadeFleet fleet(4, 2);
  fleet.Attempt(0, 1);
  MadeAttempt other;
  other.board = "b2";
  other.change = [](RunFacts& facts) {
    facts.runtime->xxh3 = std::string(32, '0');
    facts.configuration->xxh3 = std::string(32, '1');
  };
  fleet.Attempt(1, 1, other);
  EXPECT_EQ(Merge(fleet).status, ExitStatus::kDone);
  EXPECT_THAT(WarningIds(Facts(fleet)), ElementsAre("configurations-differ", "runtimes-differ"));
}

TEST(Merge, DoesWithoutJournals) {
  const MadeFleet fleet(4, 2);
  MadeAttempt silent;
  silent.isNoted = false;
  fleet.Attempt(0, 1, silent);
  fleet.Attempt(1, 1, silent);
  EXPECT_EQ(Merge(fleet).status, ExitStatus::kDone);
  EXPECT_EQ(Samples(fleet), RightSamples(fleet));
  EXPECT_EQ(BoardOf(Boards(fleet), "host of b1").At("samples").AsUnsigned(), 4U);
}

// ---- Several attempts ---------------------------------------------------------------------------

TEST(Merge, TakesFromOneAttemptWhatAnotherLacks) {
  const MadeFleet fleet(4, 4);
  MadeAttempt first;
  first.outputs = "ab.A";
  MadeAttempt second;
  second.board = "b2";
  second.outputs = ".Fcd";
  fleet.Attempt(0, 1, first);
  fleet.Attempt(0, 2, second);
  EXPECT_EQ(Merge(fleet).status, ExitStatus::kDone);
  EXPECT_EQ(Samples(fleet), RightSamples(fleet));
  const auto times = vorn::kit::ReadTimes(fleet.Path("run"));
  ASSERT_EQ(times.size(), 4U);
  EXPECT_EQ(times[1].attempt, 1U);
  EXPECT_EQ(times[2].attempt, 2U);
  EXPECT_EQ(BoardOf(Boards(fleet), "b2").At("samples").AsUnsigned(), 2U);
}

TEST(Merge, TakesTheLowestOfThoseThatAreTheSame) {
  const MadeFleet fleet(2, 2);
  fleet.Attempt(0, 2);
  const std::string first = fleet.Attempt(0, 10);
  fleet.Attempt(0, 3);
  EXPECT_EQ(Merge(fleet).status, ExitStatus::kDone);
  EXPECT_EQ(InodeOf(DumpOf(fleet, 0)),
            InodeOf(fleet.Folder() + "/chunks/0/2/dumps/0/same.0.17.bin"));
  EXPECT_EQ(vorn::kit::ReadTimes(fleet.Path("run"))[0].attempt, 2U);
}

TEST(Merge, NamesWhatDidNotGiveTheSameTwice) {
  const MadeFleet fleet(4, 2);
  fleet.AllDone();
  MadeAttempt other;
  other.board = "b2";
  other.outputs = "cX";
  fleet.Attempt(1, 2, other);
  const Merged merged = Merge(fleet);
  EXPECT_EQ(merged.status, ExitStatus::kDiffers);
  EXPECT_THAT(merged.said,
              HasSubstr("inference 3 (list.txt:4) did not give the same twice: 'b1' in "
                        "attempt 1, 'b2' in attempt 2\n"));
  EXPECT_EQ(Facts(fleet).status, 6);
  EXPECT_THAT(WarningIds(Facts(fleet)), ElementsAre("not-deterministic"));
  const Json boards = Boards(fleet);
  EXPECT_EQ(boards.At("notDeterministic").AsUnsigned(), 1U);
  const auto& unequal = boards.At("unequalSamples").Items();
  ASSERT_EQ(unequal.size(), 1U);
  EXPECT_EQ(unequal[0].At("index").AsUnsigned(), 3U);
  EXPECT_EQ(unequal[0].At("attempts").Items().size(), 2U);
}

// ---- Holes --------------------------------------------------------------------------------------

TEST(Merge, ListsHolesByTheLinesOfTheList) {
  const MadeFleet fleet(8, 4);
  MadeAttempt partial;
  partial.outputs = "aA..";
  fleet.Attempt(0, 1, partial);
  MadeAttempt failed;
  failed.outputs = "..Fh";
  fleet.Attempt(1, 1, failed);
  const Merged merged = Merge(fleet);
  EXPECT_EQ(merged.status, ExitStatus::kPartial);
  EXPECT_THAT(merged.said,
              AllOf(HasSubstr("list.txt:2 (1 inference) put aside: ended by SIGSEGV\n"),
                    HasSubstr("list.txt:3-6 (4 inferences) not run: was not run\n"),
                    HasSubstr("list.txt:7 (1 inference) failed: output 'same' was not"),
                    HasSubstr("has 2 of 8 inferences, 1 failed, 1 put aside, 4 not run"),
                    HasSubstr("vorn fleet resume")));
  const RunFacts facts = Facts(fleet);
  EXPECT_EQ(facts.state, RunState::kDone);
  EXPECT_EQ(facts.status, 8);
  EXPECT_EQ(facts.counts, (vorn::kit::SampleCounts{
                              .inferences = 8, .done = 2, .failed = 1, .aside = 1, .missing = 4}));
  const auto records = vorn::kit::ReadSamples(fleet.Path("run"));
  ASSERT_EQ(records.size(), 8U);
  // As a launch notes what it has not run: nobody has read the input.
  EXPECT_EQ(ToLine(records[2]),
            R"({"schema":1,"index":2,"status":"missing","inputs":[{"line":3,"path":"in/2.bin",)"
            R"("file":{"path":"./in/2.bin"}}],"outputs":[],"reason":"was not run"})"
            "\n");
  EXPECT_EQ(records[1].inputs[0].file.xxh3, fleet.WholeRecord(1, 'b').inputs[0].file.xxh3);
}

TEST(Merge, FillsHolesWhenItIsRunAgain) {
  const MadeFleet fleet(4, 2);
  MadeAttempt partial;
  partial.outputs = "a.";
  fleet.Attempt(0, 1, partial);
  EXPECT_EQ(Merge(fleet).status, ExitStatus::kPartial);
  fleet.Attempt(0, 2);
  fleet.Attempt(1, 1);
  EXPECT_EQ(Merge(fleet).status, ExitStatus::kDone);
  EXPECT_EQ(Samples(fleet), RightSamples(fleet));
  EXPECT_EQ(vorn::kit::ReadTimes(fleet.Path("run")).size(), 4U);
}

TEST(Merge, LeavesNothingOfAMergeBefore) {
  const MadeFleet fleet(4, 2);
  fleet.Attempt(0, 1);
  EXPECT_EQ(Merge(fleet).status, ExitStatus::kPartial);
  // The attempt that it was made of is lost, and what stands there is nobody's.
  fs::remove_all(fleet.Folder() + "/chunks/0");
  support::WriteFile(fleet.Path("run/dumps/2/same.0.99.bin"), "of an attempt before");
  support::WriteFile(fleet.Path("run/boards/gone/machine.jsonl"), "");
  support::WriteFile(fleet.Path("run/boards.json.77.part"), "");
  fleet.Attempt(1, 1);
  EXPECT_EQ(Merge(fleet).status, ExitStatus::kPartial);
  EXPECT_EQ(support::ReadTree(fleet.Path("run/dumps")).size(), 4U);
  EXPECT_FALSE(fs::exists(fleet.Path("run/boards/gone")));
  EXPECT_FALSE(fs::exists(fleet.Path("run/boards.json.77.part")));
}

// ---- What does not count ------------------------------------------------------------------------

struct Damage {
  const char* name;
  std::function<void(const std::string& run)> make;
  const char* told;
};

std::string TextOf(const std::string& run, const char* file) {
  return support::ReadFile(run + "/" + file);
}

void Replace(const std::string& run, const char* file, const std::string& what,
             const std::string& by) {
  std::string text = TextOf(run, file);
  const size_t at = text.find(what);
  ASSERT_NE(at, std::string::npos) << what;
  text.replace(at, what.size(), by);
  support::WriteFile(run + "/" + file, text);
}

const std::string kDump = "/dumps/1/same.0.17.bin";
const std::string kText = "/dumps/1/same.0.17.float";

// Of inference 1 of its chunk.
const Damage kDamages[] = {
    {"another byte", [](const std::string& run) { support::WriteFile(run + kDump, "bbbX"); },
     "has not the size and hash that were noted"},
    {"a byte more", [](const std::string& run) { support::WriteFile(run + kDump, "bbbbb"); },
     "has not the size and hash that were noted"},
    {"no dump", [](const std::string& run) { fs::remove(run + kDump); }, "is not there"},
    {"no text", [](const std::string& run) { fs::remove(run + kText); }, "is not there"},
    {"a link instead of a dump",
     [](const std::string& run) {
       support::WriteFile(run + "/elsewhere", "bbbb");
       fs::remove(run + kDump);
       fs::create_symlink("../../elsewhere", run + kDump);
     },
     "is no regular file"},
    {"a link instead of a text",
     [](const std::string& run) {
       fs::remove(run + kText);
       fs::create_symlink("/etc/passwd", run + kText);
     },
     "is no regular file"},
    {"a link instead of a folder",
     [](const std::string& run) {
       fs::rename(run + "/dumps/1", run + "/hidden");
       fs::create_symlink("../hidden", run + "/dumps/1");
     },
     "its folder of outputs is not there"},
    {"a pipe instead of a dump",
     [](const std::string& run) {
       fs::remove(run + kDump);
       ASSERT_EQ(mkfifo((run + kDump).c_str(), 0600), 0);
     },
     "is no regular file"},
};

TEST(Merge, TakesNoDamagedOutputs) {
  for (const Damage& damage : kDamages) {
    const MadeFleet fleet(4, 2);
    fleet.AllDone();
    damage.make(fleet.Folder() + "/chunks/0/1");
    Merged merged = Merge(fleet);
    EXPECT_EQ(merged.status, ExitStatus::kPartial) << damage.name << merged.fault;
    EXPECT_THAT(merged.said, AllOf(HasSubstr("list.txt:2 (1 inference) not run: attempt 1 does not "
                                             "count: "),
                                   HasSubstr(damage.told)))
        << damage.name;
    EXPECT_FALSE(fs::exists(fleet.Path("run/dumps/1"))) << damage.name;
    EXPECT_EQ(Boards(fleet).At("unfitAttempts").AsUnsigned(), 1U) << damage.name;
    // Another attempt has it.
    fleet.Attempt(0, 2);
    EXPECT_EQ(Merge(fleet).status, ExitStatus::kDone) << damage.name;
    EXPECT_EQ(Samples(fleet), RightSamples(fleet)) << damage.name;
  }
}

// Of the whole attempt, which nobody noted the outputs of.
const Damage kUnfit[] = {
    {"another model",
     [](const std::string& run) {
       Replace(run, "run.json", vorn::kit::Xxh3Of("the model"), std::string(32, '0'));
     },
     "it ran another model"},
    {"no run.json", [](const std::string& run) { fs::remove(run + "/run.json"); },
     "its run.json is not there"},
    {"a link instead of run.json",
     [](const std::string& run) {
       fs::rename(run + "/run.json", run + "/other.json");
       fs::create_symlink("other.json", run + "/run.json");
     },
     "its run.json is not there, or no regular file"},
    {"a broken run.json",
     [](const std::string& run) { support::WriteFile(run + "/run.json", "{\"schema\": 1"); },
     "run.json"},
    {"a broken line",
     [](const std::string& run) { Replace(run, "samples.jsonl", "\"status\"", "\"stat\""); },
     "samples.jsonl"},
    {"too many inferences",
     [](const std::string& run) { Replace(run, "samples.jsonl", "\"index\":1,", "\"index\":7,"); },
     "it has inference 7 of 2"},
};

TEST(Merge, TakesNothingOfAnAttemptThatIsNotOfThePlan) {
  for (const Damage& damage : kUnfit) {
    const MadeFleet fleet(4, 2);
    MadeAttempt silent;
    silent.isNoted = false;
    fleet.Attempt(0, 1, silent);
    fleet.Attempt(1, 1);
    damage.make(fleet.Folder() + "/chunks/0/1");
    const Merged merged = Merge(fleet);
    EXPECT_EQ(merged.status, ExitStatus::kPartial) << damage.name << merged.fault;
    EXPECT_THAT(merged.said, AllOf(HasSubstr("list.txt:1-2 (2 inferences) not run: attempt 1 does "
                                             "not count: "),
                                   HasSubstr(damage.told)))
        << damage.name;
    EXPECT_EQ(Facts(fleet).counts.done, 2U) << damage.name;
  }
}

TEST(Merge, TakesNoSampleMadeOfOtherInputs) {
  const MadeFleet fleet(2, 2);
  MadeAttempt silent;
  silent.isNoted = false;
  const std::string run = fleet.Attempt(0, 1, silent);
  Replace(run, "samples.jsonl", "\"xxh3_128\":\"" + vorn::kit::Xxh3Of("input 1"),
          "\"xxh3_128\":\"" + std::string(32, '0'));
  const Merged merged = Merge(fleet);
  EXPECT_EQ(merged.status, ExitStatus::kPartial);
  EXPECT_THAT(merged.said,
              HasSubstr("list.txt:2 (1 inference) not run: attempt 1 does not count: it "
                        "was made of other inputs than planned\n"));
}

TEST(Merge, TakesNoSamplesThatWereChangedAfterTheyWereNoted) {
  const MadeFleet fleet(2, 2);
  const std::string run = fleet.Attempt(0, 1);
  support::WriteFile(run + kDump, "XXXX");
  Replace(run, "samples.jsonl", vorn::kit::Xxh3Of("bbbb"), vorn::kit::Xxh3Of("XXXX"));
  const Merged merged = Merge(fleet);
  EXPECT_EQ(merged.status, ExitStatus::kPartial);
  EXPECT_THAT(merged.said, HasSubstr("its samples are not those that were noted when it ended"));
}

TEST(Merge, FollowsNoPathOutOfAnAttempt) {
  for (const std::string path :
       {"dumps/1/../../../../../../secret", "/etc/passwd", "dumps/0/same.0.17.bin", "dumps/1/",
        "dumps/1/..", "secret", R"(dumps/1/same.0.17.bin\u0000x)"}) {
    const MadeFleet fleet(2, 2);
    MadeAttempt silent;
    silent.isNoted = false;
    const std::string run = fleet.Attempt(0, 1, silent);
    support::WriteFile(fleet.Path("secret"), "bbbb");
    support::WriteFile(run + "/secret", "bbbb");
    Replace(run, "samples.jsonl", "dumps/1/same.0.17.bin", path);
    EXPECT_EQ(Merge(fleet).status, ExitStatus::kPartial) << path;
    EXPECT_EQ(Facts(fleet).counts.done, 1U) << path;
    EXPECT_EQ(support::ReadTree(fleet.Path("run/dumps")).size(), 2U) << path;
  }
}

TEST(Merge, DoesWithoutMeasurementsThatAreDamaged) {
  const MadeFleet fleet(4, 2);
  fleet.AllDone();
  support::WriteFile(fleet.Folder() + "/chunks/0/1/times.jsonl", "{\"schema\": \n");
  support::WriteFile(fleet.Folder() + "/chunks/0/1/machine.jsonl", "no JSON\n");
  fs::remove(fleet.Folder() + "/chunks/1/1/machine.jsonl");
  EXPECT_EQ(Merge(fleet).status, ExitStatus::kDone);
  EXPECT_EQ(vorn::kit::ReadTimes(fleet.Path("run")).size(), 2U);
  EXPECT_THAT(WarningIds(Facts(fleet)), ElementsAre("attempt-file-damaged"));
}

TEST(Merge, RefusesInputsThatAreNotThoseOfThePlan) {
  const MadeFleet fleet(4, 2);
  fleet.AllDone();
  Replace(fleet.Folder(), "inputs.jsonl", "\"index\":3", "\"index\":2");
  const Merged merged = Merge(fleet);
  EXPECT_EQ(merged.status, ExitStatus::kInput);
  EXPECT_THAT(merged.fault, HasSubstr("has inference 2 where inference 3 is planned"));
  EXPECT_EQ(Facts(fleet).state, RunState::kFailed);
}

// ---- Boards that disagree -----------------------------------------------------------------------

TEST(Merge, NamesABoardThatDisagreesAndDoubtsWhatItDid) {
  const MadeFleet fleet(6, 2, {0, 3});
  fleet.AllDone({"b1", "b2", "b3"});
  for (const char* board : {"b1", "b2", "b3"}) {
    MadeAttempt check;
    check.board = board;
    if (check.board == "b2") check.outputs = "aX";
    fleet.CrossCheck(1, check);
  }
  const Merged merged = Merge(fleet);
  EXPECT_EQ(merged.status, ExitStatus::kDiffers);
  EXPECT_THAT(merged.said, HasSubstr("board 'b2' has other outputs than the others at inference 3; "
                                     "all that was taken from it is in doubt\n"));
  EXPECT_THAT(WarningIds(Facts(fleet)), ElementsAre("board-disagrees", "samples-in-doubt"));
  EXPECT_EQ(Facts(fleet).warnings[1].count, 2U);
  const Json boards = Boards(fleet);
  EXPECT_EQ(BoardOf(boards, "b2").At("samplesInDoubt").AsUnsigned(), 2U);
  EXPECT_EQ(BoardOf(boards, "b2").At("disagreesAt").Items()[0].AsUnsigned(), 3U);
  EXPECT_EQ(BoardOf(boards, "b1").At("samplesInDoubt").AsUnsigned(), 0U);
  EXPECT_THAT(BoardOf(boards, "b3").At("disagreesAt").Items(), IsEmpty());
}

TEST(Merge, PrefersABoardThatIsNotInDoubt) {
  const MadeFleet fleet(2, 2, {0});
  for (const char* board : {"b1", "b2", "b3"}) {
    MadeAttempt check;
    check.board = board;
    if (check.board == "b1") check.outputs = "X";
    fleet.CrossCheck(1, check);
  }
  fleet.Attempt(0, 1);
  MadeAttempt second;
  second.board = "b2";
  fleet.Attempt(0, 2, second);
  EXPECT_EQ(Merge(fleet).status, ExitStatus::kDiffers);
  EXPECT_EQ(BoardOf(Boards(fleet), "b2").At("samples").AsUnsigned(), 2U);
  EXPECT_EQ(BoardOf(Boards(fleet), "b1").At("samples").AsUnsigned(), 0U);
}

TEST(Merge, LooksAtTheCrossCheckItselfAndNotAtWhatWasNoted) {
  const MadeFleet fleet(4, 2, {0});
  fleet.AllDone({"b1", "b2"});
  for (const char* board : {"b1", "b2"}) {
    MadeAttempt check;
    check.board = board;
    fleet.CrossCheck(1, check);
  }
  support::WriteFile(fleet.Folder() + "/cross/b2/1/dumps/0/same.0.17.bin", "XXXX");
  EXPECT_EQ(Merge(fleet).status, ExitStatus::kDone);
  EXPECT_THAT(WarningIds(Facts(fleet)), ElementsAre("board-not-checked"));
  EXPECT_FALSE(BoardOf(Boards(fleet), "b2").At("isChecked").AsBool());
}

TEST(Merge, ComparesChunksWithWhatAllBoardsAgreeOn) {
  const MadeFleet fleet(4, 2, {3});
  MadeAttempt wrong;
  wrong.outputs = "cX";
  fleet.Attempt(0, 1);
  fleet.Attempt(1, 1, wrong);
  fleet.CrossCheck(1, {});
  const Merged merged = Merge(fleet);
  EXPECT_EQ(merged.status, ExitStatus::kDiffers);
  EXPECT_THAT(merged.said,
              HasSubstr("inference 3 (list.txt:4) did not give the same twice: 'b1' in "
                        "attempt 1, 'b1' at the cross-check\n"));
}

// ---- Where it goes ------------------------------------------------------------------------------

TEST(Merge, TakesNoFolderOfAnother) {
  const MadeFleet fleet(2, 2);
  fleet.AllDone();
  const auto refused = [&](const std::string& run, const char* what) {
    const Merged merged = Merge(fleet.Folder(), run);
    EXPECT_EQ(merged.status, ExitStatus::kUsage) << run;
    EXPECT_THAT(merged.fault, HasSubstr(what)) << run;
  };
  const auto before = support::ReadTree(fleet.Folder());
  refused(fleet.Folder(), "holds something else than a run");
  refused(fleet.Folder() + "/chunks/0/1", "holds a run that is no merge of a fleet");
  EXPECT_EQ(support::ReadTree(fleet.Folder()), before);
  EXPECT_EQ(Merge(fleet).status, ExitStatus::kDone);
  refused(fleet.Path("run"), "holds the merge of this fleet, whole");
  const MadeFleet other(3, 2);
  EXPECT_THAT(Merge(other.Folder(), fleet.Path("run")).fault,
              HasSubstr("holds the merge of another fleet"));
}

TEST(Merge, IsAloneInItsFolder) {
  const MadeFleet fleet(2, 2);
  fleet.AllDone();
  const vorn::kit::RunFolder other(fleet.Path("run"), true);
  const Merged merged = Merge(fleet);
  EXPECT_EQ(merged.status, ExitStatus::kUsage);
  EXPECT_THAT(merged.fault, HasSubstr("belongs to a launch or a merge that runs now"));
}

TEST(Merge, WritesThroughNoLinkInItsFolder) {
  const MadeFleet fleet(2, 2);
  fleet.Attempt(0, 1, {.board = "b1", .outputs = "a."});
  EXPECT_EQ(Merge(fleet).status, ExitStatus::kPartial);
  support::WriteFile(fleet.Path("victim/file"), "untouched");
  for (const char* name : {"boards.json", "boards", "dumps/0", "dumps/1"}) {
    fs::remove_all(fleet.Path("run/" + std::string(name)));
    const bool isFile = std::string(name) == "boards.json";
    fs::create_symlink(fleet.Path(isFile ? "victim/file" : "victim"),
                       fleet.Path("run/" + std::string(name)));
  }
  EXPECT_EQ(Merge(fleet).status, ExitStatus::kPartial);
  EXPECT_EQ(support::ReadTree(fleet.Path("victim")),
            (std::map<std::string, std::string>{{"file", "untouched"}}));
  EXPECT_EQ(support::ReadTree(fleet.Path("run/dumps")).size(), 2U);
}

TEST(Merge, TakesBoardsOfAnyName) {
  const MadeFleet fleet(6, 2);
  fleet.AllDone({"../../b", "b\n\x1b[31m", std::string(300, 'n')});
  EXPECT_EQ(Merge(fleet).status, ExitStatus::kDone);
  const Json boards = Boards(fleet);
  EXPECT_EQ(BoardOf(boards, "../../b").At("folder").AsText(), "boards/%2E.%2F..%2Fb");
  for (const Json& board : boards.At("boards").Items()) {
    EXPECT_TRUE(fs::exists(fleet.Path("run/" + board.At("folder").AsText() + "/machine.jsonl")));
  }
  EXPECT_FALSE(fs::exists(fleet.Path("b")));
}

// ---- What ends it -------------------------------------------------------------------------------

// Runs `work` in a child process, which is killed after so many microseconds.
void KilledAfter(unsigned microseconds, const std::function<void()>& work) {
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    work();
    _exit(0);
  }
  usleep(microseconds);
  kill(child, SIGKILL);
  ASSERT_EQ(waitpid(child, nullptr, 0), child);
}

TEST(Merge, IsRunAgainAfterItWasKilledAtAnyMoment) {
  std::mt19937 random(4);
  for (int round = 0; round < 12; ++round) {
    const MadeFleet fleet(30, 4, {1});
    fleet.AllDone({"b1", "b2"});
    const auto before = support::ReadTree(fleet.Folder());
    KilledAfter(static_cast<unsigned>(random() % 20000), [&] { (void)Merge(fleet); });
    EXPECT_EQ(support::ReadTree(fleet.Folder()), before);
    const Merged merged = Merge(fleet);
    if (merged.status == ExitStatus::kUsage) {  // it had come to its end
      EXPECT_THAT(merged.fault, HasSubstr("whole"));
    } else {
      EXPECT_EQ(merged.status, ExitStatus::kDone) << merged.fault;
    }
    EXPECT_EQ(Samples(fleet), RightSamples(fleet));
    EXPECT_EQ(support::ReadTree(fleet.Path("run/dumps")).size(), 60U);
    EXPECT_EQ(vorn::kit::ReadTimes(fleet.Path("run")).size(), 30U);
    EXPECT_EQ(
        support::SplitLines(support::ReadFile(fleet.Path("run/boards/b1/machine.jsonl"))).size(),
        4U);
    for (const auto& [name, bytes] : support::ReadTree(fleet.Path("run"))) {
      EXPECT_THAT(name, Not(HasSubstr(".part")));
    }
  }
}

// No file of more than so many bytes can be written, as on a disk that is full.
TEST(Merge, SaysThatTheDiskIsFull) {
  const MadeFleet fleet(300, 50);
  fleet.AllDone();
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{.rlim_cur = 30000, .rlim_max = 30000};
    setrlimit(RLIMIT_FSIZE, &limit);
    Merged merged;
    try {
      vorn::kit::Console console(true, "fleet");
      (void)vorn::kit::MergeFleet(
          {.fleet = fleet.Folder(), .run = fleet.Path("run"), .command = {}, .version = ""},
          console);
    } catch (const vorn::kit::Fault& fault) {
      merged.status = fault.Status();
      merged.fault = fault.what();
    }
    const bool isTold = merged.status == ExitStatus::kLimit &&
                        merged.fault.find("cannot write") != std::string::npos;
    _exit(isTold ? 0 : 1);
  }
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(Facts(fleet).state, RunState::kFailed);
  EXPECT_EQ(Facts(fleet).status, 7);
  EXPECT_FALSE(fs::exists(fleet.Path("run/samples.jsonl")));
  EXPECT_EQ(Merge(fleet).status, ExitStatus::kDone);
  EXPECT_EQ(Samples(fleet), RightSamples(fleet));
}

TEST(Merge, SaysThatThereIsNoFleet) {
  const support::TempDir folder;
  const Merged merged = Merge(folder.Path() / "fleet", folder.Path() / "run");
  EXPECT_EQ(merged.status, ExitStatus::kInput);
  EXPECT_FALSE(fs::exists(folder.Path() / "run"));
}

}  // namespace
