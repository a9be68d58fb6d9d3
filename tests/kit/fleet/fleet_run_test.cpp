// `vorn fleet` as a program: boards with an sshd of their own on this machine, vorn-run on the
// scripted runtime, and a layer that stumbles over some inputs.
#include "kit/fleet/fleet_run.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <thread>

#include "kit/fleet/fleet_plan.h"
#include "kit/fleet/fleet_state.h"
#include "kit/fleet/journal.h"
#include "kit/json/json.h"
#include "kit/run/run_directory.h"
#include "support/boards.h"
#include "support/command.h"
#include "support/files.h"
#include "support/json_schema.h"
#include "support/model_script.h"

namespace {

namespace fs = std::filesystem;

using support::Outcome;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using vorn::kit::AttemptOutcome;
using vorn::kit::Blame;
using vorn::kit::ChunkStatus;
using vorn::kit::FleetPlan;
using vorn::kit::FleetState;
using vorn::kit::JournalEvent;
using vorn::kit::JournalRecord;
using vorn::kit::Json;
using vorn::kit::SampleRecord;
using vorn::kit::SampleStatus;

void Await(const std::function<bool()>& isSo) {
  while (!isSo()) std::this_thread::sleep_for(std::chrono::milliseconds(5));
}

/// A process that runs beside the test.
class Running {
 public:
  explicit Running(const support::Command& command) {
    pid_ = fork();
    if (pid_ != 0) return;
    for (const int number : {SIGHUP, SIGINT, SIGTERM}) signal(number, SIG_DFL);
    for (const auto& [name, value] : command.environment) {
      value ? setenv(name.c_str(), value->c_str(), 1) : unsetenv(name.c_str());
    }
    std::vector<char*> words{const_cast<char*>(command.program.c_str())};
    for (const auto& word : command.arguments) words.push_back(const_cast<char*>(word.c_str()));
    words.push_back(nullptr);
    if (chdir(command.directory.c_str()) == 0 && freopen("said", "w", stderr) != nullptr) {
      execv(words[0], words.data());
    }
    _exit(99);
  }
  ~Running() {
    if (!isOver_) Stop(SIGKILL);
  }
  Running(const Running&) = delete;
  Running& operator=(const Running&) = delete;

  /// Sends a signal and waits. Returns what the shell calls its status.
  int Stop(int signal) {
    kill(pid_, signal);
    return Wait();
  }

  int Wait() {
    int status = 0;
    waitpid(pid_, &status, 0);
    isOver_ = true;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }

 private:
  pid_t pid_ = -1;
  bool isOver_ = false;
};

class Fleet : public testing::Test {
 protected:
  Fleet() {
    support::WriteFile(Path("model.om"), "24 bytes of a model file");
    support::WriteFile(Path("vorn.json"), "{}");
    script_.Input({.name = "image", .dims = {1, 1, 2, 3}, .type = 4, .stride = 8, .size = 16});
    script_.Scratch();
    script_.Output({.name = "same", .dims = {1, 2, 3}, .type = 0, .stride = 16, .size = 32});
  }

  std::string Path(const std::string& name) const { return (folder_.Path() / name).string(); }

  /// A sample a character, which its file begins with.
  void Samples(const std::string& kinds) {
    kinds_ = kinds;
    std::string list;
    for (size_t i = 0; i < kinds.size(); ++i) {
      const std::string name = "in/" + std::to_string(i) + ".bin";
      support::WriteFile(Path(name), kinds.substr(i, 1) + support::CountingBytes(5, unsigned(i)));
      list += name + "\n";
    }
    support::WriteFile(Path("list.txt"), list);
  }

  support::Command CommandFor(const std::vector<std::string>& words) const {
    support::WriteFile(Path("script"), script_.Text());
    support::Command command;
    command.program = VORN_COMMAND;
    command.arguments = {"fleet"};
    command.arguments.insert(command.arguments.end(), words.begin(), words.end());
    command.directory = folder_.Path();
    command.environment = {{"VORN_SCRIPT", Path("script")},
                           {"VORN_RECORD", std::nullopt},
                           {"LD_PRELOAD", std::nullopt},
                           {"LD_LIBRARY_PATH", fs::path(VORN_SCRIPTED_LIBRARY).parent_path()},
                           {"XDG_CACHE_HOME", Path("cache")},
                           {"VORN_LOG", std::nullopt}};
    return command;
  }

  Outcome Run(const std::vector<std::string>& words) const { return RunCommand(CommandFor(words)); }

  Outcome Plan(std::vector<std::string> more = {"--chunk", "4"}) const {
    std::vector<std::string> words{"plan", "-m", "model.om", "-j", "vorn.json"};
    for (const auto& [name, value] : {std::pair("-i", "list.txt"), {"-o", "fleet"}}) {
      if (std::find(more.begin(), more.end(), name) != more.end()) continue;
      words.insert(words.end(), {name, value});
    }
    words.insert(words.end(), more.begin(), more.end());
    return Run(words);
  }

  // ---- Plans and journals -----------------------------------------------------------------------

  FleetPlan ReadPlan() const { return vorn::kit::ReadFleetPlan(Path(fleet_)); }
  FleetState State() const { return ReadFleetState(Path(fleet_), ReadPlan()); }

  std::vector<JournalRecord> Records(const std::function<bool(const JournalRecord&)>& is) const {
    std::vector<JournalRecord> records;
    (void)vorn::kit::ReadJournals(Path(fleet_), [&](const JournalRecord& record) {
      if (is(record)) records.push_back(record);
    });
    return records;
  }

  std::vector<JournalRecord> Ends() const {
    return Records([](const JournalRecord& record) { return record.event == JournalEvent::kEnd; });
  }

  /// Attempts at chunks that were done, by their chunks: a chunk stands there once if nothing was
  /// done twice.
  std::vector<uint64_t> DoneChunks() const {
    std::vector<uint64_t> chunks;
    for (const JournalRecord& record : Ends()) {
      if (record.chunk && record.outcome == AttemptOutcome::kDone) chunks.push_back(*record.chunk);
    }
    std::sort(chunks.begin(), chunks.end());
    return chunks;
  }

  // ---- Outputs ----------------------------------------------------------------------------------

  /// The byte that the output of each inference is filled with, by the attempts that count; '.'
  /// where there is none, '?' where it is not of one byte.
  std::string Outputs() const {
    const FleetPlan plan = ReadPlan();
    const FleetState state = State();
    std::string outputs(plan.inferences, '.');
    for (uint64_t chunk = 0; chunk < plan.chunks.size(); ++chunk) {
      if (state.chunks.at(chunk).attempt == 0) continue;
      const std::string run = vorn::kit::ChunkFolder(Path(fleet_), chunk) + "/" +
                              std::to_string(state.chunks[chunk].attempt);
      for (const SampleRecord& sample : vorn::kit::ReadSamples(run)) {
        if (sample.status != SampleStatus::kDone) continue;
        const std::string bytes = support::ReadFile(run + "/" + sample.outputs.at(0).path);
        const bool isOne = bytes.size() == 24 && bytes == std::string(bytes.size(), bytes[0]);
        outputs.at(plan.chunks[chunk].first + sample.index) = isOne ? bytes[0] : '?';
      }
    }
    return outputs;
  }

  void ExpectWhatTheSchemasSay() const {
    EXPECT_EQ(support::FaultBySchema("fleet_plan", support::ReadFile(Path(fleet_ + "/plan.json"))),
              "");
    for (const auto& [name, text] : support::ReadTree(Path(fleet_ + "/journal"))) {
      for (const std::string& line : support::SplitLines(text)) {
        EXPECT_EQ(support::FaultBySchema("journal", line), "") << name << ": " << line;
      }
    }
    for (const std::string& line :
         support::SplitLines(support::ReadFile(Path(fleet_ + "/inputs.jsonl")))) {
      EXPECT_EQ(support::FaultBySchema("samples", line), "") << line;
    }
  }

  std::string kinds_;
  std::string fleet_ = "fleet";
  support::TempDir folder_;
  support::ModelScript script_;
};

/// With boards that can be reached.
class FleetOnBoards : public Fleet {
 protected:
  void SetUp() override {
    if (!support::CanHaveBoards()) GTEST_SKIP() << "there is no sshd";
    support::Command ask;
    ask.program = "/bin/sh";
    ask.arguments = {"-c", "parallel --plain --will-cite --version | grep -q '^GNU parallel'"};
    if (RunCommand(ask).status != 0) GTEST_SKIP() << "there is no GNU parallel";
  }

  void Start(int count) {
    boards_ = std::make_unique<support::Boards>(count);
    for (int i = 1; i <= count; ++i) items_.push_back(ItemOf("b" + std::to_string(i)));
    WriteBoards();
  }

  Json ItemOf(const std::string& name) const {
    Json environment = Json::Object({{"LD_PRELOAD", VORN_STUMBLING_LAYER},
                                     {"VORN_SCRIPT", Path("script")},
                                     {"VORN_GATE", Path("gate")},
                                     {"VORN_RECORD", Path("record." + name)}});
    return Json::Object({{"name", name},
                         {"host", name},
                         {"work", Path("work of " + name)},
                         {"runtime", VORN_SCRIPTED_LIBRARY},
                         {"environment", std::move(environment)},
                         {"ssh", Json::Array({"-F", boards_->SshConfig()})}});
  }

  void WriteBoards() const {
    support::WriteFile(Path("boards.json"),
                       ToText(Json::Object({{"schema", 1}, {"boards", Json::ArrayOf(items_)}})));
  }

  std::vector<std::string> RunWords() const { return {"run", fleet_, "--boards", "boards.json"}; }
  Outcome RunFleet() const { return Run(RunWords()); }
  Outcome Resume(const std::vector<std::string>& more = {}) const {
    std::vector<std::string> words{"resume", fleet_};
    words.insert(words.end(), more.begin(), more.end());
    return Run(words);
  }

  void OpenGate() const { support::WriteFile(Path("gate"), ""); }
  void AwaitGate() const {
    Await([&] { return fs::exists(Path("gate.waits")); });
  }

  /// Processes of vorn-run on boards, which know the script by their environment.
  size_t RunsOnBoards() const {
    size_t count = 0;
    for (const auto& entry : fs::directory_iterator("/proc")) {
      std::ifstream file(entry.path() / "environ");
      const std::string text{std::istreambuf_iterator<char>(file), {}};
      if (text.find("VORN_GATE=" + Path("gate")) != text.npos) ++count;
    }
    return count;
  }

  void AwaitNobodyOnBoards() const {
    Await([&] { return RunsOnBoards() == 0; });
  }

  /// The jobs' folders on a board, which go with their jobs.
  std::vector<std::string> JobsOn(const std::string& board) const {
    std::vector<std::string> jobs;
    for (const auto& entry : fs::directory_iterator(Path("work of " + board + "/jobs"))) {
      jobs.push_back(entry.path().filename());
    }
    return jobs;
  }

  std::unique_ptr<support::Boards> boards_;
  std::vector<Json> items_;
};

// ---- All goes well ------------------------------------------------------------------------------

TEST_F(FleetOnBoards, DoAllOfAList) {
  Samples("abcdefghijklmnopqrstuvwxyz");
  Outcome outcome = Plan();
  EXPECT_EQ(outcome.status, 0) << outcome.Describe();
  Start(2);
  outcome = RunFleet();
  EXPECT_EQ(outcome.status, 0) << outcome.Describe();
  EXPECT_THAT(outcome.err, HasSubstr("26 of 26 inferences done, 7 of 7 chunks"));
  EXPECT_EQ(Outputs(), kinds_);
  EXPECT_THAT(DoneChunks(), ElementsAre(0, 1, 2, 3, 4, 5, 6));
  const FleetState state = State();
  EXPECT_EQ(state.boards.size(), 2U);
  for (const auto& [name, board] : state.boards) {
    EXPECT_TRUE(board.checked) << name;
    EXPECT_NE(board.host, "") << name;
    EXPECT_THAT(JobsOn(name), IsEmpty());
  }
  EXPECT_THAT(DisagreeingBoards(state), IsEmpty());
  ExpectWhatTheSchemasSay();
}

}  // namespace
