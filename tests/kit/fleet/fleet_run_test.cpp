// `vorn fleet` as a program: boards with an sshd of their own on this machine, vorn-run on the
// scripted runtime, and a layer that stumbles over some inputs.
#include "kit/fleet/fleet_run.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <thread>

#include "kit/common/file_identity.h"
#include "kit/fleet/fleet_plan.h"
#include "kit/fleet/fleet_state.h"
#include "kit/fleet/journal.h"
#include "kit/fleet/made_fleet.h"
#include "kit/fleet/make_plan.h"
#include "kit/fleet/ssh_board.h"
#include "kit/fleet/tools.h"
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
using testing::SizeIs;
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
  /// With `asked` it finds that signal waiting for it.
  explicit Running(const support::Command& command, int asked = 0) {
    pid_ = fork();
    if (pid_ != 0) return;
    for (const int number : {SIGHUP, SIGINT, SIGTERM}) signal(number, SIG_DFL);
    if (asked != 0) {
      sigset_t held;
      sigemptyset(&held);
      sigaddset(&held, asked);
      sigprocmask(SIG_BLOCK, &held, nullptr);
      raise(asked);
    }
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

  /// The same with tools that lie there already: they need not be sent each time.
  void StartWithTools(
      int count, const std::function<void()>& change = [] {}) {
    Start(count);
    const fs::path build = fs::path(VORN_COMMAND).parent_path();
    fs::create_directories(Path("tools"));
    for (const char* name : {"vorn-launch", "vorn-run", "libvorn-trace.so"}) {
      fs::copy_file(build / name, Path("tools/") + name);  // else libvorn.so is looked for there
    }
    change();
    vorn::kit::StopSignals signals;
    const std::string id = vorn::kit::FindTools(Path("tools"), Path("none"), signals).id;
    for (Json& item : items_) {
      const std::string place = item.At("work").AsText() + "/tools";
      fs::create_directories(place);
      fs::create_directory_symlink(Path("tools"), place + "/" + id);
      item.Set("tools", Path("tools"));
    }
    WriteBoards();
  }

  Json ItemOf(const std::string& name) const {
    Json environment = Json::Object({{"LD_PRELOAD", VORN_STUMBLING_LAYER},
                                     {"VORN_SCRIPT", Path("script")},
                                     {"VORN_GATE", GateOf(name)},
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

  // ---- A sample that waits ----------------------------------------------------------------------

  std::string GateOf(const std::string& board) const { return Path("gate of " + board); }

  void OpenGates() const {
    for (const Json& item : items_) support::WriteFile(GateOf(item.At("name").AsText()), "");
  }

  /// The board on which a sample waits.
  std::string AwaitGate() const {
    std::string found;
    Await([&] {
      for (const Json& item : items_) {
        const std::string name = item.At("name").AsText();
        if (fs::exists(GateOf(name) + ".waits")) found = name;
      }
      return !found.empty();
    });
    return found;
  }

  /// Processes of boards that know the gate by their environment.
  size_t RunsOnBoards() const {
    size_t count = 0;
    for (const auto& entry : fs::directory_iterator("/proc")) {
      std::ifstream file(entry.path() / "environ");
      const std::string text{std::istreambuf_iterator<char>(file), {}};
      if (text.find("VORN_GATE=" + Path("gate of ")) != text.npos) ++count;
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

TEST_F(FleetOnBoards, AreBroughtTheNextFilesWhileOneRuns) {
  // Either chunk may be the first: both wait.
  Samples("WaWb");
  ASSERT_EQ(Plan({"--chunk", "2", "--cross-check", "0"}).status, 0);
  StartWithTools(1);
  Running fleet(CommandFor(RunWords()));
  (void)AwaitGate();
  // Model, configuration, and the four inputs of both.
  const auto filesThere = [&] {
    return std::distance(fs::directory_iterator(Path("work of b1/files")),
                         fs::directory_iterator());
  };
  Await([&] { return filesThere() == 6; });
  EXPECT_THAT(Records([](const JournalRecord& record) { return record.chunk.has_value(); }),
              SizeIs(1));
  OpenGates();
  EXPECT_EQ(fleet.Wait(), 0) << support::ReadFile(Path("said"));
  EXPECT_EQ(Outputs(), kinds_);
  EXPECT_THAT(Ends(), SizeIs(2));
}

TEST_F(FleetOnBoards, BeginTheNextWhileTheDumpsOfOneAreLookedAt) {
  Samples("ab");
  ASSERT_EQ(Plan({"--chunk", "1", "--cross-check", "0"}).status, 0);
  StartWithTools(1, [&] {
    fs::rename(Path("tools/vorn-launch"), Path("tools/real"));
    support::WriteFile(
        Path("tools/vorn-launch"),
        "#!/bin/sh\n"
        "\"$(dirname \"$0\")/real\" --program \"$(dirname \"$0\")/vorn-run\" \"$@\"\n"
        "while [ ! -e '" +
            Path("looked") + "' ]; do sleep 0.05; done\n");
    fs::permissions(Path("tools/vorn-launch"), fs::perms::owner_all);
  });
  Running fleet(CommandFor(RunWords()));
  // Two began and none has ended.
  Await([&] {
    return Records([](const JournalRecord& record) { return record.chunk.has_value(); }).size() ==
           2;
  });
  EXPECT_THAT(Ends(), IsEmpty());
  support::WriteFile(Path("looked"), "");
  EXPECT_EQ(fleet.Wait(), 0) << support::ReadFile(Path("said"));
  EXPECT_EQ(Outputs(), kinds_);
}

// ---- Boards that fail ---------------------------------------------------------------------------

TEST_F(FleetOnBoards, GiveBackWhatWaitsBehindOneThatHangs) {
  Samples("Wbcdefgh");
  ASSERT_EQ(Plan({"--chunk", "1", "--cross-check", "0"}).status, 0);
  StartWithTools(2);
  Running fleet(CommandFor(RunWords()));
  (void)AwaitGate();
  Await([&] { return DoneChunks().size() == 7; });
  OpenGates();
  EXPECT_EQ(fleet.Wait(), 0) << support::ReadFile(Path("said"));
  EXPECT_EQ(Outputs(), kinds_);
  EXPECT_THAT(DoneChunks(), ElementsAre(0, 1, 2, 3, 4, 5, 6, 7));
  // What was given back left nothing behind it.
  EXPECT_THAT(Ends(), SizeIs(8));
  for (int chunk = 0; chunk < 8; ++chunk) {
    EXPECT_EQ(std::distance(fs::directory_iterator(Path("fleet/chunks/" + std::to_string(chunk))),
                            fs::directory_iterator()),
              1);
  }
}

TEST_F(FleetOnBoards, AreDoneWithoutOneThatHasNoRuntime) {
  Samples("abcd");
  ASSERT_EQ(Plan({"--chunk", "1"}).status, 0);
  StartWithTools(2);
  items_[0].Set("runtime", "/no/such/libvorn.so");
  WriteBoards();
  const Outcome outcome = RunFleet();
  EXPECT_EQ(outcome.status, 0) << outcome.Describe();
  EXPECT_EQ(Outputs(), kinds_);
  const FleetState state = State();
  EXPECT_EQ(state.boards.at("b1").done, 0U);
  EXPECT_THAT(state.boards.at("b1").reason, HasSubstr("libvorn.so"));
  for (const auto& chunk : state.chunks) EXPECT_THAT(chunk.failed, IsEmpty());
}

TEST_F(FleetOnBoards, PutOneAsideThatFailsThreeTimes) {
  Samples("abcd");
  ASSERT_EQ(Plan({"--chunk", "1"}).status, 0);
  StartWithTools(1);
  items_[0].Set("runtime", "/no/such/libvorn.so");
  WriteBoards();
  Outcome outcome = RunFleet();
  EXPECT_EQ(outcome.status, 8) << outcome.Describe();
  EXPECT_THAT(outcome.err, HasSubstr("board b1 is put aside: 3 failures one after the other"));
  EXPECT_EQ(Ends().size(), 3U);
  EXPECT_TRUE(State().boards.at("b1").isAside);
  // Once somebody has seen to it, it is tried again.
  items_[0].Set("runtime", VORN_SCRIPTED_LIBRARY);
  WriteBoards();
  outcome = Resume({"--boards", "boards.json"});
  EXPECT_EQ(outcome.status, 0) << outcome.Describe();
  EXPECT_EQ(Outputs(), kinds_);
  EXPECT_FALSE(State().boards.at("b1").isAside);
}

TEST_F(FleetOnBoards, AreDoneWithoutOneThatLosesItsPower) {
  Samples("aWbc");
  ASSERT_EQ(Plan({"--chunk", "2", "--cross-check", "0"}).status, 0);
  StartWithTools(2);
  Running fleet(CommandFor(RunWords()));
  const std::string lost = AwaitGate();
  boards_->Do("kill", lost);
  OpenGates();
  EXPECT_EQ(fleet.Wait(), 0) << support::ReadFile(Path("said"));
  EXPECT_EQ(Outputs(), kinds_);
  EXPECT_THAT(DoneChunks(), ElementsAre(0, 1));
  EXPECT_THAT(State().boards.at(lost).reason, HasSubstr("lost on the way"));
}

TEST_F(FleetOnBoards, GoOnWhenAConnectionIsCut) {
  Samples("aWbc");
  ASSERT_EQ(Plan({"--chunk", "2", "--cross-check", "0"}).status, 0);
  StartWithTools(1);
  Running fleet(CommandFor(RunWords()));
  boards_->Do("cut", AwaitGate());
  EXPECT_EQ(fleet.Wait(), 8) << support::ReadFile(Path("said"));
  AwaitNobodyOnBoards();  // of its own lifeline
  EXPECT_EQ(Outputs(), "..bc");
  OpenGates();
  // There is no other board that could do it.
  const Outcome outcome = Resume();
  EXPECT_EQ(outcome.status, 0) << outcome.Describe();
  EXPECT_EQ(Outputs(), kinds_);
  EXPECT_THAT(DoneChunks(), ElementsAre(0, 1));
}

TEST_F(FleetOnBoards, GoOnWhenAConnectionStandsStill) {
  Samples("aWbc");
  ASSERT_EQ(Plan({"--chunk", "2", "--cross-check", "0"}).status, 0);
  StartWithTools(2);
  for (Json& item : items_) {
    item.Set("ssh", Json::Array({"-F", boards_->SshConfig(), "-o", "ServerAliveInterval=2", "-o",
                                 "ServerAliveCountMax=3"}));
  }
  WriteBoards();
  Running fleet(CommandFor(RunWords()));
  const std::string lost = AwaitGate();
  boards_->Do("freeze", lost);
  fs::remove(GateOf(lost) + ".waits");
  support::WriteFile(GateOf(lost == "b1" ? "b2" : "b1"), "");
  EXPECT_EQ(fleet.Wait(), 0) << support::ReadFile(Path("said"));
  boards_->Do("thaw", lost);
  AwaitNobodyOnBoards();
  EXPECT_EQ(Outputs(), kinds_);
  EXPECT_THAT(DoneChunks(), ElementsAre(0, 1));
}

// ---- Samples that fail --------------------------------------------------------------------------

TEST_F(FleetOnBoards, PutASampleAsideThatEndsItsProcess) {
  Samples("abScde");
  ASSERT_EQ(Plan({"--chunk", "3", "--cross-check", "2"}).status, 0);
  StartWithTools(2);
  const Outcome outcome = RunFleet();
  EXPECT_EQ(outcome.status, 8) << outcome.Describe();
  EXPECT_EQ(Outputs(), "ab.cde");
  EXPECT_THAT(outcome.err, HasSubstr("5 of 6 inferences done"));
  EXPECT_THAT(outcome.err, HasSubstr("1 inference not done, first 2: "));
  const FleetState state = State();
  EXPECT_EQ(state.chunks[0].status, ChunkStatus::kPartial);
  EXPECT_THAT(state.chunks[0].failed, ElementsAre("b1", "b2"));
  for (const auto& [name, board] : state.boards) EXPECT_FALSE(board.isAside) << name;
}

TEST_F(FleetOnBoards, PutAChunkAsideThatTwoBoardsFail) {
  Samples("SSab");
  ASSERT_EQ(Plan({"--chunk", "2", "--cross-check", "0"}).status, 0);
  StartWithTools(2);
  Outcome outcome = RunFleet();
  EXPECT_EQ(outcome.status, 8) << outcome.Describe();
  EXPECT_EQ(Outputs(), "..ab");
  EXPECT_EQ(State().chunks[0].status, ChunkStatus::kAside);
  EXPECT_THAT(outcome.err, HasSubstr("--again"));
  // Nothing is to do until somebody says so.
  const size_t ends = Ends().size();
  outcome = Resume();
  EXPECT_EQ(outcome.status, 8) << outcome.Describe();
  EXPECT_EQ(Ends().size(), ends);
}

// ---- Whoever runs it is ended -------------------------------------------------------------------

TEST_F(FleetOnBoards, AreStoppedAndGoOn) {
  Samples("aWbc");
  ASSERT_EQ(Plan({"--chunk", "2", "--cross-check", "0"}).status, 0);
  StartWithTools(1);
  Running fleet(CommandFor(RunWords()));
  AwaitGate();
  const int status = fleet.Stop(SIGINT);
  EXPECT_TRUE(status == 8 || status == 128 + SIGINT) << status;
  EXPECT_THAT(support::ReadFile(Path("said")), HasSubstr("was stopped"));
  AwaitNobodyOnBoards();
  for (const auto& end : Ends()) EXPECT_EQ(end.blame, Blame::kNobody) << end.reason;
  OpenGates();
  const Outcome outcome = Resume();
  EXPECT_EQ(outcome.status, 0) << outcome.Describe();
  EXPECT_EQ(Outputs(), kinds_);
  EXPECT_THAT(DoneChunks(), ElementsAre(0, 1));
  EXPECT_EQ(State().boards.at("b1").failed, 0U);
}

TEST_F(FleetOnBoards, AreLeftByNobodyAndGoOnWhenTheControlIsKilled) {
  Samples("aWbc");
  ASSERT_EQ(Plan({"--chunk", "2", "--cross-check", "0"}).status, 0);
  StartWithTools(1);
  {
    Running fleet(CommandFor(RunWords()));
    AwaitGate();
    EXPECT_EQ(fleet.Stop(SIGKILL), 128 + SIGKILL);
  }
  AwaitNobodyOnBoards();
  OpenGates();
  std::string sockets = support::ReadFile(Path("fleet/sockets"));
  sockets.resize(sockets.find(' '));
  EXPECT_TRUE(fs::exists(sockets));
  const Outcome outcome = Resume();
  EXPECT_EQ(outcome.status, 0) << outcome.Describe();
  EXPECT_EQ(Outputs(), kinds_);
  EXPECT_THAT(DoneChunks(), ElementsAre(0, 1));
  EXPECT_THAT(JobsOn("b1"), IsEmpty());
  ExpectWhatTheSchemasSay();
  EXPECT_FALSE(fs::exists(sockets));
  EXPECT_FALSE(fs::exists(Path("fleet/sockets")));
}

TEST_F(FleetOnBoards, RemoveNothingThatIsNoFolderOfSockets) {
  Samples("a");
  ASSERT_EQ(Plan().status, 0);
  StartWithTools(1);
  support::TempDir stranger;  // in /tmp as well
  support::WriteFile(stranger.Path() / "kept", "kept");
  const fs::path link =
      "/tmp/vorn-fleet.aaaa" + stranger.Path().string().substr(stranger.Path().string().size() - 2);
  fs::create_directory_symlink(stranger.Path(), link);
  for (const std::string& path : {stranger.Path().string(), link.string()}) {
    struct stat about {};
    ASSERT_EQ(stat(Path("fleet").c_str(), &about), 0);
    support::WriteFile(Path("fleet/sockets"), path + " " + std::to_string(about.st_ino) + "\n");
    (void)Resume();
    EXPECT_TRUE(fs::exists(stranger.Path() / "kept")) << path;
  }
  fs::remove(link);
  // One that was copied with its note leaves what the other needs.
  const fs::path other = link;
  fs::create_directory(other);
  support::WriteFile(Path("fleet/sockets"), other.string() + " 1\n");
  (void)Resume();
  EXPECT_TRUE(fs::remove(other));
}

TEST_F(FleetOnBoards, DoAnewWhatWasDamagedMeanwhile) {
  Samples("abcd");
  ASSERT_EQ(Plan({"--chunk", "2", "--cross-check", "1"}).status, 0);
  StartWithTools(1);
  ASSERT_EQ(RunFleet().status, 0);
  const std::string run = Path("fleet/chunks/1/1/");
  support::WriteFile(run + vorn::kit::ReadSamples(run).at(0).outputs.at(0).path, "damaged");
  Outcome outcome = Resume();
  EXPECT_EQ(outcome.status, 0) << outcome.Describe();
  EXPECT_THAT(outcome.err, HasSubstr("1 attempts do not verify any more"));
  EXPECT_EQ(Outputs(), kinds_);
  EXPECT_THAT(DoneChunks(), ElementsAre(0, 1, 1));
  // All that a merge holds against an attempt.
  support::WriteFile(Path("fleet/chunks/0/1/run.json"), "{");
  const std::string samples = Path("fleet/chunks/1/2/samples.jsonl");
  std::string text = support::ReadFile(samples);
  const size_t at = text.find("\"status\":\"done\"");
  ASSERT_NE(at, text.npos) << text;
  support::WriteFile(samples, text.replace(at, 15, "\"status\":\"failed\""));
  outcome = Resume();
  EXPECT_EQ(outcome.status, 0) << outcome.Describe();
  EXPECT_THAT(outcome.err, HasSubstr("2 attempts do not verify any more"));
  outcome = Run({"merge", "fleet", "--run", "whole"});
  EXPECT_EQ(outcome.status, 0) << outcome.Describe();
  EXPECT_THAT(outcome.err, HasSubstr("'whole' has 4 of 4 inferences"));
}

TEST_F(FleetOnBoards, RefuseASecondRunMeanwhileAndBehindIt) {
  Samples("Wa");
  ASSERT_EQ(Plan({"--chunk", "2", "--cross-check", "0"}).status, 0);
  StartWithTools(1);
  Running fleet(CommandFor(RunWords()));
  AwaitGate();
  for (const auto& words : {RunWords(), {"resume", "fleet"}}) {
    const Outcome second = Run(words);
    EXPECT_EQ(second.status, 2) << second.Describe();
    EXPECT_THAT(second.err, HasSubstr("fleet"));
  }
  OpenGates();
  EXPECT_EQ(fleet.Wait(), 0);
  const Outcome behind = RunFleet();
  EXPECT_EQ(behind.status, 2);
  EXPECT_THAT(behind.err, HasSubstr("was run before; go on with 'vorn fleet resume'"));
  EXPECT_EQ(Outputs(), kinds_);
}

// ---- What is sent -------------------------------------------------------------------------------

TEST_F(FleetOnBoards, AreNotSentTwiceWhatTheyHave) {
  Samples("abcd");
  ASSERT_EQ(Plan({"--chunk", "2"}).status, 0);
  ASSERT_EQ(Plan({"--chunk", "2", "-o", "second"}).status, 0);
  StartWithTools(1);
  ASSERT_EQ(RunFleet().status, 0);
  uint64_t sent = 0;
  for (const auto& end : Ends()) sent += end.sentBytes;
  EXPECT_GT(sent, 0U);
  fleet_ = "second";
  const Outcome outcome = RunFleet();
  EXPECT_EQ(outcome.status, 0) << outcome.Describe();
  EXPECT_EQ(Outputs(), kinds_);
  for (const auto& end : Ends()) EXPECT_EQ(end.sentBytes, 0U);
}

TEST_F(FleetOnBoards, GetAFileAgainThatIsNotWhatItsNameSays) {
  Samples("abcd");
  ASSERT_EQ(Plan({"--chunk", "4", "--cross-check", "0"}).status, 0);
  StartWithTools(1);
  const std::string hash = vorn::kit::Xxh3Of(support::ReadFile(Path("in/2.bin")));
  support::WriteFile(Path("work of b1/files/") + hash, "Xother");
  const Outcome outcome = RunFleet();
  EXPECT_EQ(outcome.status, 0) << outcome.Describe();
  EXPECT_EQ(Outputs(), kinds_);
}

// As a loss of power or a card that grows old leaves them.
TEST_F(FleetOnBoards, GetModelAndConfigurationAgainThatWereDamaged) {
  Samples("abcd");
  StartWithTools(1);
  for (const char* name : {"model.om", "vorn.json"}) {
    fleet_ = std::string("fleet of ") + name;
    ASSERT_EQ(Plan({"--chunk", "4", "--cross-check", "0", "-o", fleet_}).status, 0);
    const std::string bytes = support::ReadFile(Path(name));
    const std::string there = Path("work of b1/files/") + vorn::kit::Xxh3Of(bytes);
    support::WriteFile(there, bytes + " ");  // it can be loaded all the same
    Outcome outcome = RunFleet();
    EXPECT_EQ(outcome.status, 0) << outcome.Describe();
    EXPECT_EQ(Outputs(), kinds_);
    EXPECT_EQ(support::ReadFile(there), bytes);
    outcome = Run({"merge", fleet_, "--run", fleet_ + ".whole"});
    EXPECT_EQ(outcome.status, 0) << outcome.Describe();
  }
}

TEST_F(FleetOnBoards, GetAConfigurationAgainByWhichNothingRuns) {
  Samples("abcd");
  ASSERT_EQ(Plan({"--chunk", "4", "--cross-check", "0"}).status, 0);
  StartWithTools(1);
  const std::string hash = vorn::kit::Xxh3Of("{}");
  support::WriteFile(Path("work of b1/files/") + hash, "{");
  const Outcome outcome = RunFleet();
  EXPECT_EQ(outcome.status, 0) << outcome.Describe();
  EXPECT_EQ(Outputs(), kinds_);
  EXPECT_THAT(Ends(), SizeIs(2));  // the first one found it out
}

TEST_F(FleetOnBoards, GetProgramsAgainThatWereDamaged) {
  Samples("abcd");
  ASSERT_EQ(Plan({"--chunk", "4", "--cross-check", "0"}).status, 0);
  ASSERT_EQ(Plan({"--chunk", "4", "--cross-check", "0", "-o", "second"}).status, 0);
  Start(1);
  Outcome outcome = RunFleet();
  ASSERT_EQ(outcome.status, 0) << outcome.Describe();
  const fs::path tools = fs::directory_iterator(Path("work of b1/tools"))->path();
  support::WriteFile(tools / "vorn-launch", "#!/bin/sh\nexit 99\n");
  fleet_ = "second";
  outcome = RunFleet();
  EXPECT_EQ(outcome.status, 0) << outcome.Describe();
  EXPECT_EQ(Outputs(), kinds_);
  ASSERT_EQ(Ends().size(), 2U);  // the first one found it out
  EXPECT_EQ(Ends()[0].blame, Blame::kBoard);
  EXPECT_THAT(Ends()[0].reason, HasSubstr("status 99"));
  EXPECT_GT(Ends()[1].sentBytes, 0U);
}

// ---- A disk that is full ------------------------------------------------------------------------

/// A file system of its own, with room for `bytes`; empty where nobody may make one.
class SmallDisk {
 public:
  SmallDisk(std::string path, uint64_t bytes) : path_(std::move(path)) {
    fs::create_directories(path_);
    isThere_ =
        mount("tmpfs", path_.c_str(), "tmpfs", 0, ("size=" + std::to_string(bytes)).c_str()) == 0;
  }
  ~SmallDisk() {
    if (isThere_) umount2(path_.c_str(), MNT_DETACH);
  }
  SmallDisk(const SmallDisk&) = delete;
  SmallDisk& operator=(const SmallDisk&) = delete;
  [[nodiscard]] bool IsThere() const { return isThere_; }

  /// Puts so much onto it that so much is left.
  void Leave(uint64_t bytes) const {
    const std::string ballast = path_ + "/ballast";
    fs::remove(ballast);
    const uint64_t room = fs::space(path_).available;
    support::WriteFile(ballast, std::string(room - std::min(room, bytes), 'x'));
  }

 private:
  std::string path_;
  bool isThere_ = false;
};

// Whatever it is that finds no room first.
TEST_F(FleetOnBoards, AreNotBlamedForADiskThatIsFullHere) {
  constexpr uint64_t kDisk = 8 << 20;
  const SmallDisk disk(Path("disk"), kDisk);
  if (!disk.IsThere()) GTEST_SKIP() << "this user may not mount a small disk";
  Samples("abcdef");
  fleet_ = "disk/fleet";
  ASSERT_EQ(Plan({"--chunk", "2", "-o", fleet_}).status, 0);
  StartWithTools(2);
  int refused = 0;
  Outcome outcome;
  for (uint64_t left = 8 << 10; left < kDisk; left *= 2) {
    disk.Leave(left);
    outcome = Resume({"--boards", "boards.json"});
    if (outcome.status == 0) break;
    ++refused;
    EXPECT_EQ(outcome.status, 7) << left << ": " << outcome.Describe();
    for (const auto& [name, board] : State().boards) {
      EXPECT_EQ(board.failed, 0U) << left << ": " << name << ": " << board.reason;
      EXPECT_FALSE(board.isAside) << left << ": " << name;
    }
  }
  EXPECT_GT(refused, 0);
  EXPECT_EQ(outcome.status, 0) << outcome.Describe();
  EXPECT_EQ(Outputs(), kinds_);
}

// ---- Names and options --------------------------------------------------------------------------

TEST_F(FleetOnBoards, TakeFilesOfAllNames) {
  const std::vector<std::string> names{"a b.bin",   "it's \"q\".bin", "$(touch x)`y`;&|.bin",
                                       "-o.bin",    "\\n\\x41.bin",   "\xFF\xC3(.bin",
                                       "*?[a].bin", "\xC3\xA4.bin"};
  std::string list;
  for (size_t i = 0; i < names.size(); ++i) {
    const char kind = static_cast<char>('a' + i);
    kinds_ += kind;
    support::WriteFile(Path("in/" + names[i]), kind + support::CountingBytes(5, unsigned(i)));
    list += "in/" + names[i] + "\n";
  }
  support::WriteFile(Path("list.txt"), list);
  fleet_ = "it's a \"fleet\" $(of) `mine`";
  Outcome outcome = Plan({"--chunk", "4", "--cross-check", "1", "-o", fleet_});
  ASSERT_EQ(outcome.status, 0) << outcome.Describe();
  StartWithTools(1);
  outcome = RunFleet();
  EXPECT_EQ(outcome.status, 0) << outcome.Describe();
  EXPECT_EQ(Outputs(), kinds_);
  EXPECT_FALSE(fs::exists(Path("x")));
  ExpectWhatTheSchemasSay();
}

TEST_F(FleetOnBoards, KeepNamesOfInputsAndOptions) {
  script_ = {};
  script_.Input({.name = "image", .dims = {1, 1, 2, 3}, .type = 4, .stride = 8, .size = 16});
  script_.Input({.name = "mask", .dims = {1, 1, 2, 3}, .type = 4, .stride = 8, .size = 16});
  script_.Scratch();
  script_.Output({.name = "same", .dims = {1, 2, 3}, .type = 0, .stride = 16, .size = 32});
  kinds_ = "abc";
  std::string list;
  for (size_t i = 0; i < 3; ++i) {
    const std::string at = std::to_string(i);
    support::WriteFile(Path("in/" + at), kinds_.substr(i, 1) + support::CountingBytes(5));
    support::WriteFile(Path("in/mask:" + at), "0" + support::CountingBytes(5));
    list += "mask:in/mask:" + at + "\nimage:in/" + at + "\n";
  }
  support::WriteFile(Path("list.txt"), list);
  support::WriteFile(Path("t 1"), "0.5\n");
  Outcome outcome = Plan({"--chunk", "2", "--cross-check", "1", "-b", "1", "-p", "--no-text"});
  ASSERT_EQ(outcome.status, 0) << outcome.Describe();
  EXPECT_TRUE(ReadPlan().areNamesKept);
  EXPECT_EQ(ReadPlan().perInference, 2U);
  StartWithTools(1);
  outcome = RunFleet();
  EXPECT_EQ(outcome.status, 0) << outcome.Describe();
  EXPECT_EQ(Outputs(), kinds_);
  const auto facts = vorn::kit::ReadRun(Path("fleet/chunks/0/1"));
  EXPECT_THAT(facts.options.value(), ElementsAre("-b", "1", "-p", "1"));
  EXPECT_FALSE(vorn::kit::ReadSamples(Path("fleet/chunks/0/1")).at(0).outputs.at(0).text);
}

TEST_F(FleetOnBoards, HaveAConfigurationOfTheirOwn) {
  Samples("ab");
  ASSERT_EQ(Plan({"--chunk", "1", "--cross-check", "1"}).status, 0);
  StartWithTools(2);
  support::WriteFile(Path("b2.json"), "{ }");
  items_[1].Set("config", "b2.json");
  WriteBoards();
  const Outcome outcome = RunFleet();
  EXPECT_EQ(outcome.status, 0) << outcome.Describe();
  EXPECT_EQ(Outputs(), kinds_);
  for (const char* board : {"b1", "b2"}) {
    const auto facts = vorn::kit::ReadRun(Path("fleet/cross/") + board + "/1");
    EXPECT_EQ(facts.configuration.value().xxh3,
              vorn::kit::Xxh3Of(board == std::string("b1") ? "{}" : "{ }"));
  }
}

TEST_F(FleetOnBoards, FindWhatTheConfigurationNames) {
  Samples("ab");
  support::WriteFile(Path("vorn.json"), R"({"ranges": "x/it's a \"file\".json"})");
  support::WriteFile(Path("x/it's a \"file\".json"), "what it names");
  Outcome outcome = Plan({"--chunk", "2", "--cross-check", "0"});
  ASSERT_EQ(outcome.status, 0) << outcome.Describe();
  StartWithTools(1);
  outcome = RunFleet();
  EXPECT_EQ(outcome.status, 0) << outcome.Describe();
  EXPECT_EQ(Outputs(), kinds_);
  const auto files = vorn::kit::ReadRun(Path("fleet/chunks/0/1")).configurationFiles.value();
  ASSERT_EQ(files.size(), 1U);
  EXPECT_EQ(files[0].path, "x/it's a \"file\".json");
  EXPECT_EQ(files[0].xxh3, vorn::kit::Xxh3Of("what it names"));
}

// ---- Plans --------------------------------------------------------------------------------------

TEST_F(Fleet, PlansOneInferenceAsOneChunk) {
  Samples("a");
  const Outcome outcome = Plan({"--cross-check", "0"});
  ASSERT_EQ(outcome.status, 0) << outcome.Describe();
  ASSERT_EQ(ReadPlan().chunks.size(), 1U);
  EXPECT_EQ(ReadPlan().chunks[0].inferences, 1U);
  EXPECT_FALSE(ReadPlan().cost);
}

TEST_F(Fleet, PlansByWhatItMeasures) {
  Samples("abc");
  const Outcome outcome = Plan({"--cross-check", "2"});
  ASSERT_EQ(outcome.status, 0) << outcome.Describe();
  const FleetPlan plan = ReadPlan();
  ASSERT_TRUE(plan.cost);
  EXPECT_GT(plan.cost->sampleNs, 0U);
  EXPECT_EQ(plan.crossCheck, (std::vector<uint64_t>{0, 1}));
  EXPECT_EQ(plan.chunks.at(0).inferences, ChunkFor(*plan.cost, 3));
  EXPECT_FALSE(fs::exists(Path("fleet/journal")));
  EXPECT_FALSE(fs::exists(Path("fleet/cross")));
  ExpectWhatTheSchemasSay();
}

TEST_F(Fleet, TakesTheFolderOfAPlanThatCouldNotBeMade) {
  Samples("abc");
  script_.Answer("vorn_mdl_execute", "always", "3");
  Outcome outcome = Plan({"--cross-check", "0"});
  EXPECT_EQ(outcome.status, 5) << outcome.Describe();
  EXPECT_THAT(outcome.err, HasSubstr("a chunk cannot be sized by what a process costs here"));
  EXPECT_THAT(outcome.err, HasSubstr("say how many inferences with --chunk"));
  outcome = Plan();
  EXPECT_EQ(outcome.status, 0) << outcome.Describe();
}

TEST_F(Fleet, PlansNothingThatCannotBeRun) {
  Samples("abc");
  const auto refuses = [&](int status, const std::string& why) {
    const Outcome outcome = Plan();
    EXPECT_EQ(outcome.status, status) << outcome.Describe();
    EXPECT_THAT(outcome.err, HasSubstr(why));
    EXPECT_FALSE(fs::exists(Path("fleet/plan.json")));
  };
  fs::remove(Path("in/1.bin"));
  refuses(3, "in/1.bin");
  support::WriteFile(Path("in/1.bin"), "too short");
  refuses(3, "in/1.bin");
  support::WriteFile(Path("list.txt"), "");
  refuses(3, "list.txt");
  Samples("abc");
  support::WriteFile(Path("fleet/mine"), "");
  refuses(2, "is not empty; name another folder with -o");
  fs::remove(Path("fleet/mine"));
  const Outcome outcome = Plan({"--chunk", "4", "-o", "line\nend"});
  EXPECT_EQ(outcome.status, 2) << outcome.Describe();
  EXPECT_THAT(outcome.err, HasSubstr("-o 'line\\x0Aend' holds a line end"));
  EXPECT_EQ(Plan().status, 0);
}

// What cannot be told of a path in plan.json, or in a line of paths.txt, would be found missing
// board by board.
TEST_F(Fleet, PlansNothingOfPathsThatItCannotHold) {
  for (const char* name : {"line\nend", "no \xFF UTF-8", "both \\ and \xFF"}) {
    const std::string folder = Path(name);
    fs::create_directories(folder + "/in");
    support::WriteFile(folder + "/in/0.bin", "abcdef");
    support::WriteFile(folder + "/list.txt", "in/0.bin\n");
    support::WriteFile(folder + "/model.om", "24 bytes of a model file");
    support::WriteFile(folder + "/vorn.json", "{}");
    support::Command command = CommandFor({"plan", "-m", "model.om", "-j", "vorn.json", "-i",
                                           "list.txt", "-o", "fleet", "--chunk", "1"});
    command.directory = folder;
    const Outcome outcome = RunCommand(command);
    EXPECT_EQ(outcome.status, 2) << outcome.Describe();
    EXPECT_THAT(outcome.err, HasSubstr("has a name that a plan cannot hold")) << name;
    EXPECT_FALSE(fs::exists(folder + "/fleet/plan.json"));
  }
  // A backslash is a character as any other.
  Samples("a");
  fs::rename(Path("model.om"), Path("a\\b.om"));
  const Outcome outcome = Run({"plan", "-m", "a\\b.om", "-j", "vorn.json", "-i", "list.txt", "-o",
                               "fleet", "--chunk", "1"});
  EXPECT_EQ(outcome.status, 0) << outcome.Describe();
  EXPECT_EQ(ReadPlan().model.path, "a\\b.om");
}

// ---- What is there ------------------------------------------------------------------------------

TEST(VerifyAttempts, NotesNothingMoreOnceItIsStopped) {
  const fleet_test::MadeFleet fleet(8, 4);
  fleet.AllDone();
  support::WriteFile(fleet.Folder() + "/chunks/1/1/samples.jsonl", "damaged\n");
  const auto lost = [&] {
    size_t count = 0;
    (void)vorn::kit::ReadJournals(fleet.Folder(), [&](const JournalRecord& record) {
      if (record.event == JournalEvent::kLost) ++count;
    });
    return count;
  };
  vorn::kit::Console console(true, "fleet");
  signal(SIGTERM, SIG_DFL);
  {
    vorn::kit::StopSignals signals;
    raise(SIGTERM);
    EXPECT_FALSE(VerifyAttempts(fleet.Folder(), fleet.Plan(), false, console, signals));
    EXPECT_EQ(lost(), 0U);
  }
  vorn::kit::StopSignals signals;
  EXPECT_TRUE(VerifyAttempts(fleet.Folder(), fleet.Plan(), false, console, signals));
  EXPECT_EQ(lost(), 1U);
}

TEST_F(Fleet, EndsWithALineWhenItIsStoppedWhileItLooks) {
  Samples("abcd");
  ASSERT_EQ(Plan().status, 0);
  support::WriteFile(Path("fleet/boards.json"), R"({"schema":1,"boards":[{"host":"none"}]})");
  fs::create_directories(Path("fleet/chunks/0/1"));
  Running resume(CommandFor({"resume", "fleet"}), SIGINT);
  EXPECT_EQ(resume.Wait(), 8);
  EXPECT_EQ(support::ReadFile(Path("said")),
            "vorn fleet: was stopped while it looked at what is there, and nothing is lost; go on "
            "with 'vorn fleet resume fleet'\n");
}

// ---- What is refused ----------------------------------------------------------------------------

TEST_F(Fleet, SaysWhatItNeeds) {
  Samples("ab");
  const auto refuses = [&](const std::vector<std::string>& words, const std::string& why) {
    const Outcome outcome = Run(words);
    EXPECT_EQ(outcome.status, 2) << outcome.Describe();
    EXPECT_THAT(outcome.err, HasSubstr(why));
    EXPECT_FALSE(fs::exists(Path("fleet")));
  };
  refuses({}, "what to do is missing: plan, run, resume, status or merge");
  refuses({"fly"}, "there is no 'vorn fleet fly'; plan, run, resume, status and merge are there");
  refuses({"stat"}, "there is no 'vorn fleet stat'; did you mean 'status'?");
  refuses({"plam"}, "there is no 'vorn fleet plam'; did you mean 'plan'?");
  refuses({"plan"}, "--model");
  refuses({"plan", "-m", "model.om", "-j", "vorn.json", "-i", "list.txt"}, "--output");
  refuses({"plan", "-m", "", "-j", "vorn.json", "-i", "list.txt", "-o", "fleet"},
          "--model names nothing");
  refuses({"plan", "fleet"}, "takes nothing but options");
  refuses({"run"}, "needs the folder of a fleet");
  refuses({"run", "fleet"}, "--boards");
  refuses({"run", "fleet", "--boards", "b", "--chunk", "3"}, "'vorn fleet run' takes no --chunk");
  refuses({"run", "fleet", "--boards", "b", "--again"}, "'vorn fleet run' takes no --again");
  refuses({"plan", "--boards", "b"}, "'vorn fleet plan' takes no --boards");
  for (const char* number : {"0", "-1", "x", "99999999999"}) {
    refuses({"plan", "-m", "model.om", "-j", "vorn.json", "-i", "list.txt", "-o", "fleet",
             "--chunk", number},
            "--chunk");
  }
  refuses(
      {"plan", "-m", "model.om", "-j", "vorn.json", "-i", "list.txt", "-o", "fleet", "--no-trace"},
      "give --chunk N, or leave out --no-trace");
}

TEST_F(Fleet, TellsOfEachThingThatItDoesAlone) {
  Outcome outcome = Run({"plan", "--help"});
  EXPECT_EQ(outcome.status, 0) << outcome.Describe();
  EXPECT_THAT(outcome.out, AllOf(HasSubstr("vorn fleet plan -m MODEL"), HasSubstr("--cross-check"),
                                 HasSubstr("--quiet"), Not(HasSubstr("--boards")),
                                 Not(HasSubstr("vorn fleet run"))));
  outcome = Run({"merge", "-h"});
  EXPECT_THAT(outcome.out, AllOf(HasSubstr("--run RUN"), Not(HasSubstr("--watch"))));
  for (const char* form : {"--help", "--help=page", "--help=man", "--help=names"}) {
    outcome = Run({form});
    EXPECT_EQ(outcome.status, 0) << outcome.Describe();
    for (const char* internal : {"sockets", "ticket", "tasks", "after "}) {
      EXPECT_THAT(outcome.out, Not(HasSubstr(internal))) << form;
    }
  }
  EXPECT_THAT(Run({"resume", "--help"}).out, Not(HasSubstr("--after")));
}

TEST_F(Fleet, RefusesAFolderThatIsNoFleet) {
  for (const char* action : {"run", "resume"}) {
    const Outcome outcome = Run({action, "none", "--boards", "boards.json"});
    EXPECT_EQ(outcome.status, 3) << outcome.Describe();
    EXPECT_THAT(outcome.err,
                HasSubstr("none' is no folder of a fleet: there is no plan.json in it; name one, "
                          "or make one with 'vorn fleet plan -o'"));
    EXPECT_FALSE(fs::exists(Path("none")));
  }
}

TEST_F(Fleet, TakesNoFileOfItsPlanThatWasDamaged) {
  Samples("abc");
  ASSERT_EQ(Plan().status, 0);
  for (const char* name : {"inputs.jsonl", "model.json"}) {
    const std::string path = Path(std::string("fleet/") + name);
    const std::string text = support::ReadFile(path);
    std::string damaged = text;
    damaged.at(damaged.rfind("image") == damaged.npos ? damaged.find("in/1") + 3
                                                      : damaged.rfind("image")) = 'j';
    support::WriteFile(path, damaged);
    const Outcome outcome = Run({"merge", "fleet", "--run", "run"});
    EXPECT_EQ(outcome.status, 3) << outcome.Describe();
    EXPECT_THAT(outcome.err, HasSubstr(std::string(name) + "' was changed since the plan"));
    EXPECT_FALSE(fs::exists(Path("run/run.json")));
    support::WriteFile(path, text);
  }
  EXPECT_EQ(Run({"merge", "fleet", "--run", "run"}).status, 8);
}

TEST_F(Fleet, SaysWhatToDoWithoutTheBoardsOfBefore) {
  Samples("abc");
  ASSERT_EQ(Plan().status, 0);
  Outcome outcome = Run({"resume", "fleet"});
  EXPECT_EQ(outcome.status, 2) << outcome.Describe();
  EXPECT_THAT(outcome.err,
              HasSubstr("holds no boards of a run before; name a file of boards with --boards"));
  support::WriteFile(Path("fleet/boards.json"), "{");
  outcome = Run({"resume", "fleet"});
  EXPECT_EQ(outcome.status, 3) << outcome.Describe();
  EXPECT_THAT(outcome.err, HasSubstr("fleet/boards.json"));
  EXPECT_THAT(outcome.err, HasSubstr("name a file of boards with --boards once more"));
}

TEST_F(Fleet, RefusesBoardsBeforeAnythingIsTouched) {
  Samples("ab");
  ASSERT_EQ(Plan().status, 0);
  Outcome outcome = Run({"run", "fleet", "--boards", "none.json"});
  EXPECT_EQ(outcome.status, 3) << outcome.Describe();
  support::WriteFile(Path("bad.json"), R"({"schema":1,"boards":[{"host":"-oProxyCommand=x"}]})");
  outcome = Run({"run", "fleet", "--boards", "bad.json"});
  EXPECT_EQ(outcome.status, 3) << outcome.Describe();
  EXPECT_THAT(outcome.err, HasSubstr("bad.json: boards[0].host: takes "));
  outcome = Run({"resume", "fleet"});
  EXPECT_EQ(outcome.status, 2) << outcome.Describe();
  EXPECT_THAT(outcome.err, HasSubstr("holds no boards"));
}

}  // namespace
