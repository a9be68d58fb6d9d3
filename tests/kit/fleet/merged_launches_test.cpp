// A run in one piece beside the same list in chunks, each launched by itself and then merged:
// nothing but stamps in names tells them apart.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <regex>

#include "kit/fleet/fleet_plan.h"
#include "kit/run/run_directory.h"
#include "support/command.h"
#include "support/files.h"
#include "support/json_schema.h"
#include "support/model_script.h"

namespace {

namespace fs = std::filesystem;

using support::Outcome;
using testing::HasSubstr;

class MergedLaunches : public testing::Test {
 protected:
  MergedLaunches() {
    support::WriteFile(Path("model.om"), "24 bytes of a model file");
    support::WriteFile(Path("vorn.json"), "{}");
    script_.Input({.name = "image", .dims = {1, 1, 2, 3}, .type = 4, .stride = 8, .size = 16});
    script_.Scratch();
    script_.Output({.name = "same", .dims = {1, 2, 3}, .type = 0, .stride = 16, .size = 32});
    script_.Output({.name = "sa.me", .dims = {1, 1, 4}, .type = 0, .stride = 16, .size = 16});
  }

  std::string Path(const std::string& name) const { return (folder_.Path() / name).string(); }

  /// A sample a character, which its file begins with; with an empty line between some of them.
  void Samples(const std::string& kinds, const std::string& name = "") {
    list_.clear();
    std::string list;
    for (size_t i = 0; i < kinds.size(); ++i) {
      const std::string file = "in/" + std::to_string(i) + " of it.bin";
      support::WriteFile(Path(file), kinds.substr(i, 1) + support::CountingBytes(5, unsigned(i)));
      list_.push_back(name + file);
      list += (i % 5 == 2 ? "\n" : "") + list_.back() + "\n";
    }
    support::WriteFile(Path("list.txt"), list);
    support::WriteFile(Path("script"), script_.Text());
  }

  Outcome Vorn(std::vector<std::string> words) const {
    support::Command command;
    command.program = VORN_COMMAND;
    command.arguments = std::move(words);
    command.directory = folder_.Path();
    command.environment = {{"VORN_SCRIPT", Path("script")},
                           {"LD_PRELOAD", VORN_STUMBLING_LAYER},
                           {"LD_LIBRARY_PATH", fs::path(VORN_SCRIPTED_LIBRARY).parent_path()},
                           {"XDG_CACHE_HOME", Path("cache")},
                           {"VORN_LOG", std::nullopt}};
    return RunCommand(command);
  }

  Outcome Launch(const std::string& list, const std::string& run,
                 std::vector<std::string> more = {}) const {
    std::vector<std::string> words{"launch", "-m", "model.om", "-j", "vorn.json",
                                   "-i",     list, "--run",    run,  "--quiet"};
    words.insert(words.end(), more.begin(), more.end());
    return Vorn(words);
  }

  /// The list in chunks of `size`, each launched once. Returns what the merge said.
  Outcome MergeChunks(uint64_t size, const std::vector<std::string>& more = {}) const {
    fs::remove_all(Path("fleet"));
    fs::remove_all(Path("merged"));
    std::vector<std::string> words{
        "fleet",    "plan", "-m",    "model.om",      "-j", "vorn.json", "-i",
        "list.txt", "-o",   "fleet", "--cross-check", "0",  "--chunk",   std::to_string(size)};
    words.insert(words.end(), more.begin(), more.end());
    const Outcome planned = Vorn(words);
    EXPECT_EQ(planned.status, 0) << planned.Describe();
    const vorn::kit::FleetPlan plan = vorn::kit::ReadFleetPlan(Path("fleet"));
    EXPECT_EQ(plan.chunks.size(), (list_.size() + size - 1) / size);
    for (uint64_t chunk = 0; chunk < plan.chunks.size(); ++chunk) {
      const auto& about = plan.chunks[chunk];
      std::string list;
      for (uint64_t i = 0; i < about.inferences; ++i) list += list_[about.first + i] + "\n";
      support::WriteFile(Path("part.txt"), list);
      std::vector<std::string> options{"--chunk", std::to_string(size)};
      options.insert(options.end(), more.begin(), more.end());
      fs::create_directories(vorn::kit::ChunkFolder(Path("fleet"), chunk));
      Launch("part.txt", vorn::kit::ChunkFolder(Path("fleet"), chunk) + "/1", options);
    }
    return Vorn({"fleet", "merge", "fleet", "--run", "merged"});
  }

  /// samples.jsonl, the microseconds in names of dumps left out.
  std::string SamplesOf(const std::string& run) const {
    const std::regex stamp("[.][0-9]+[.](bin|float)\"");
    return std::regex_replace(support::ReadFile(Path(run + "/samples.jsonl")), stamp, ".$1\"");
  }

  std::map<std::string, std::string> DumpsOf(const std::string& run) const {
    std::map<std::string, std::string> dumps;
    for (const auto& [name, bytes] : support::ReadTree(Path(run + "/dumps"))) {
      const std::string plain =
          std::regex_replace(name, std::regex(R"(\.\d+\.(bin|float|npy)$)"), ".$1");
      EXPECT_TRUE(dumps.emplace(plain, bytes).second) << name;
    }
    return dumps;
  }

  void ExpectSameRun(const std::string& run, const std::string& other) const {
    EXPECT_EQ(SamplesOf(run), SamplesOf(other));
    EXPECT_EQ(DumpsOf(run), DumpsOf(other));
    EXPECT_EQ(support::ReadFile(Path(run + "/model.json")),
              support::ReadFile(Path(other + "/model.json")));
    const auto facts = vorn::kit::ReadRun(Path(run));
    const auto others = vorn::kit::ReadRun(Path(other));
    EXPECT_EQ(facts.counts, others.counts);
    EXPECT_EQ(facts.options, others.options);
    EXPECT_EQ(facts.model, others.model);
    EXPECT_EQ(facts.configuration, others.configuration);
    EXPECT_EQ(facts.list, others.list);
    EXPECT_EQ(facts.runtime, others.runtime);
    EXPECT_EQ(facts.program, others.program);
    std::map<std::string, uint64_t> warnings;
    std::map<std::string, uint64_t> otherWarnings;
    for (const auto& warning : facts.warnings) warnings[warning.id] = warning.count;
    for (const auto& warning : others.warnings) otherWarnings[warning.id] = warning.count;
    EXPECT_EQ(warnings, otherWarnings);
    std::vector<uint64_t> timed;
    std::vector<uint64_t> otherTimed;
    for (const auto& times : vorn::kit::ReadTimes(Path(run))) timed.push_back(times.index);
    for (const auto& times : vorn::kit::ReadTimes(Path(other))) otherTimed.push_back(times.index);
    EXPECT_EQ(timed, otherTimed);
    EXPECT_EQ(support::FaultBySchema("run", support::ReadFile(Path(run + "/run.json"))), "");
    EXPECT_EQ(support::FaultBySchema("boards", support::ReadFile(Path(run + "/boards.json"))), "");
  }

  support::TempDir folder_;
  support::ModelScript script_;
  std::vector<std::string> list_;
};

TEST_F(MergedLaunches, AreARunInOnePiece) {
  Samples("abcdefghijkl");
  EXPECT_EQ(Launch("list.txt", "whole").status, 0);
  for (const uint64_t size : {1, 2, 5, 6, 11, 12}) {
    const Outcome merged = MergeChunks(size);
    EXPECT_EQ(merged.status, 0) << merged.Describe();
    ExpectSameRun("merged", "whole");
  }
}

TEST_F(MergedLaunches, KeepWhatTheLaunchKeeps) {
  Samples("abcde", "image:");
  const std::vector<std::string> options{"--no-text", "--npy", "-b", "1"};
  EXPECT_EQ(Launch("list.txt", "whole", options).status, 0);
  const Outcome merged = MergeChunks(2, options);
  EXPECT_EQ(merged.status, 0) << merged.Describe();
  ExpectSameRun("merged", "whole");
  EXPECT_EQ(DumpsOf("merged").size(), 20U);
}

// Values that are not finite, outputs that repeat themselves over the bounds of chunks, too.
TEST_F(MergedLaunches, WarnAsTheLaunchDoes) {
  Samples("aNbbbNcc");
  EXPECT_EQ(Launch("list.txt", "whole").status, 0);
  for (const uint64_t size : {1, 3, 4, 8}) {
    const Outcome merged = MergeChunks(size);
    EXPECT_EQ(merged.status, 0) << merged.Describe();
    ExpectSameRun("merged", "whole");
  }
}

TEST_F(MergedLaunches, PutAsideWhatTheLaunchPutsAside) {
  Samples("abScdSe");
  EXPECT_EQ(Launch("list.txt", "whole", {"--chunk", "7"}).status, 8);
  for (const uint64_t size : {2, 3, 7}) {
    const Outcome merged = MergeChunks(size);
    EXPECT_EQ(merged.status, 8) << merged.Describe();
    EXPECT_THAT(merged.err, HasSubstr("list.txt:4 (1 inference) put aside: "));
    EXPECT_EQ(SamplesOf("merged"), SamplesOf("whole"));
    EXPECT_EQ(DumpsOf("merged"), DumpsOf("whole"));
    EXPECT_EQ(vorn::kit::ReadRun(Path("merged")).counts, vorn::kit::ReadRun(Path("whole")).counts);
  }
}

TEST_F(MergedLaunches, AreReadByTheOtherVerbs) {
  Samples("abcdefgh");
  EXPECT_EQ(Launch("list.txt", "whole").status, 0);
  EXPECT_EQ(MergeChunks(3).status, 0);
  const Outcome judged = Vorn({"judge", "merged", "--expected", "whole"});
  EXPECT_EQ(judged.status, 0) << judged.Describe();
  const Outcome timed = Vorn({"timing", "merged"});
  EXPECT_EQ(timed.status, 0) << timed.Describe();
  const Outcome status = Vorn({"fleet", "status", "fleet", "--json"});
  EXPECT_EQ(status.status, 0) << status.Describe();
  EXPECT_EQ(support::FaultBySchema("fleet_status", status.out), "");
  const Outcome again = Vorn({"fleet", "merge", "fleet", "--run", "merged"});
  EXPECT_EQ(again.status, 2) << again.Describe();
}

}  // namespace
