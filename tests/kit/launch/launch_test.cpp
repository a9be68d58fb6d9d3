// `vorn launch` as a program: vorn-run on the scripted runtime, with a layer that stumbles over
// some inputs.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <filesystem>
#include <functional>
#include <numeric>
#include <random>
#include <stdexcept>
#include <thread>

#include "kit/json/json.h"
#include "kit/launch/dumps.h"
#include "kit/run/run_directory.h"
#include "support/call_record.h"
#include "support/command.h"
#include "support/files.h"
#include "support/json_schema.h"
#include "support/model_script.h"
#include "support/stage.h"

namespace {

namespace fs = std::filesystem;

using support::Outcome;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;
using vorn::kit::ReadRun;
using vorn::kit::ReadSamples;
using vorn::kit::ReadTimes;
using vorn::kit::RunState;
using vorn::kit::SampleRecord;
using vorn::kit::SampleStatus;

// How many launches are killed; some come to their end before. By hand VORN_KILLED_LAUNCHES=200
// makes it more of them, and others.
int KilledLaunches() {
  constexpr int kByDefault = 30;
  const char* asked = std::getenv("VORN_KILLED_LAUNCHES");
  return asked == nullptr ? kByDefault : std::atoi(asked);
}

constexpr auto kDone = SampleStatus::kDone;
constexpr auto kFailed = SampleStatus::kFailed;
constexpr auto kAside = SampleStatus::kAside;
constexpr auto kMissing = SampleStatus::kMissing;

class Launch : public testing::Test {
 protected:
  Launch() {
    support::WriteFile(Path("model.om"), "24 bytes of a model file");
    support::WriteFile(Path("vorn.json"), "{}");
    script_.Input({.name = "image", .dims = {1, 1, 2, 3}, .type = 4, .stride = 8, .size = 16});
    script_.Scratch();
    script_.Output({.name = "same", .dims = {1, 2, 3}, .type = 0, .stride = 16, .size = 32});
  }

  std::string Path(const std::string& name) const { return (folder_.Path() / name).string(); }
  std::string RunPath() const { return Path("run"); }

  /// A sample a character, which its file begins with.
  void Samples(const std::string& kinds) {
    std::string list;
    for (size_t i = 0; i < kinds.size(); ++i) {
      const std::string name = "in/" + std::to_string(i) + ".bin";
      support::WriteFile(Path(name), kinds.substr(i, 1) + support::CountingBytes(5, unsigned(i)));
      list += name + "\n";
    }
    support::WriteFile(Path("list.txt"), list);
  }

  static constexpr std::pair<const char*, const char*> kUsual[] = {
      {"-m", "model.om"}, {"-j", "vorn.json"}, {"-i", "list.txt"}, {"--run", "run"}};

  /// The usual options, but for those that are given.
  support::Command CommandFor(std::vector<std::string> more) const {
    support::WriteFile(Path("script"), script_.Text());
    support::Command command;
    command.program = VORN_COMMAND;
    command.arguments = {"launch"};
    for (const auto& [name, value] : kUsual) {
      const bool isGiven = std::find(more.begin(), more.end(), name) != more.end();
      if (!isGiven) command.arguments.insert(command.arguments.end(), {name, value});
    }
    command.arguments.insert(command.arguments.end(), more.begin(), more.end());
    command.directory = folder_.Path();
    command.environment = {{"VORN_SCRIPT", Path("script")},
                           {"VORN_RECORD", Path("record")},
                           {"LD_PRELOAD", VORN_STUMBLING_LAYER},
                           {"LD_LIBRARY_PATH", fs::path(VORN_SCRIPTED_LIBRARY).parent_path()},
                           {"XDG_CACHE_HOME", Path("cache")},
                           {"VORN_LOG", std::nullopt}};
    return command;
  }

  Outcome Run(std::vector<std::string> more = {}) const {
    return RunCommand(CommandFor(std::move(more)));
  }

  /// Inferences of which times are there, in the order of their lines' indices.
  std::vector<uint64_t> TimedInferences() const {
    std::vector<uint64_t> indices;
    for (const auto& record : ReadTimes(RunPath())) indices.push_back(record.index);
    std::sort(indices.begin(), indices.end());
    return indices;
  }

  static size_t Occurrences(const std::string& text, const std::string& what) {
    size_t count = 0;
    for (size_t at = text.find(what); at != text.npos; at = text.find(what, at + 1)) ++count;
    return count;
  }

  static std::vector<uint64_t> Counting(uint64_t count) {
    std::vector<uint64_t> numbers(count);
    std::iota(numbers.begin(), numbers.end(), 0);
    return numbers;
  }

  size_t ExecutionsRecorded() const {
    const std::string record = Path("record");
    if (!fs::exists(record)) return 0;
    return support::CallRecord(support::SplitLines(support::ReadFile(record)))
        .CallsOf("vorn_mdl_execute")
        .size();
  }

  /// Until the program has begun the file with this name.
  void AwaitFile(const std::string& file) const {
    const std::string log = RunPath() + "/log.txt";
    while (!fs::exists(log) || support::ReadFile(log).find(file + "]") == std::string::npos) {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
  }

  /// Ends the launch as soon as that is so.
  template <typename Process>
  void KillAt(Process& launch, const std::string& file) const {
    AwaitFile(file);
    launch.Stop(SIGKILL);
  }

  std::vector<SampleStatus> Statuses() const {
    std::vector<SampleStatus> statuses;
    for (const SampleRecord& record : ReadSamples(RunPath())) statuses.push_back(record.status);
    return statuses;
  }

  std::vector<std::string> Warnings() const {
    std::vector<std::string> ids;
    for (const auto& warning : ReadRun(RunPath()).warnings) ids.push_back(warning.id);
    return ids;
  }

  /// The dumps by inference and name, without their time stamps.
  std::map<std::string, std::string> DumpsOf(const std::string& folder) const {
    std::map<std::string, std::string> dumps;
    for (auto& [name, bytes] : support::ReadTree(folder)) {
      const size_t ending = name.rfind('.');
      const size_t stamp = name.rfind('.', ending - 1);
      const bool isNew = dumps.emplace(name.substr(0, stamp) + name.substr(ending), bytes).second;
      EXPECT_TRUE(isNew) << name;
    }
    return dumps;
  }

  std::map<std::string, std::string> DumpsOfVornRun() const {
    support::Command command = CommandFor({});
    fs::create_directories(Path("plain"));
    command.program = support::VornRunPath();
    command.arguments = {"-m", "model.om", "-j", "vorn.json", "-i", "list.txt", "-o", "plain"};
    command.environment["VORN_RECORD"] = std::nullopt;
    EXPECT_EQ(RunCommand(command).status, 0);
    return DumpsOf(Path("plain"));
  }

  void ExpectWhatTheSchemasSay() const {
    const std::string run = RunPath() + "/";
    EXPECT_EQ(support::FaultBySchema("run", support::ReadFile(run + "run.json")), "");
    EXPECT_EQ(support::FaultBySchema("model", support::ReadFile(run + "model.json")), "");
    for (const char* kind : {"samples", "times", "machine"}) {
      for (const std::string& line :
           support::SplitLines(support::ReadFile(run + kind + ".jsonl"))) {
        EXPECT_EQ(support::FaultBySchema(kind, line), "") << line;
      }
    }
  }

  support::TempDir folder_;
  support::ModelScript script_;
};

/// A launch that runs beside the test.
class Running {
 public:
  /// With the reading end of a pipe on standard input its other end is Input(); without it
  /// standard input is this process's own.
  enum class Stdin { kOwn, kPipe };
  explicit Running(const support::Command& command, Stdin in = Stdin::kOwn) {
    std::array<int, 2> pipe{-1, -1};
    if (in == Stdin::kPipe && pipe2(pipe.data(), O_CLOEXEC) != 0)
      throw std::runtime_error("no pipe can be had");
    input_ = pipe[1];
    pid_ = fork();
    if (pid_ != 0) {
      if (in == Stdin::kPipe) close(pipe[0]);
      return;
    }
    if (in == Stdin::kPipe) dup2(pipe[0], STDIN_FILENO);
    // Under nohup, or in the background of a script, it would wait for what it never hears.
    for (const int number : {SIGHUP, SIGINT, SIGTERM}) signal(number, SIG_DFL);
    for (const auto& [name, value] : command.environment) {
      value ? setenv(name.c_str(), value->c_str(), 1) : unsetenv(name.c_str());
    }
    std::vector<char*> words{const_cast<char*>(command.program.c_str())};
    for (const auto& word : command.arguments) words.push_back(const_cast<char*>(word.c_str()));
    words.push_back(nullptr);
    if (chdir(command.directory.c_str()) == 0 && freopen("launched", "w", stderr) != nullptr &&
        freopen("told", "w", stdout) != nullptr) {
      execv(words[0], words.data());
    }
    _exit(99);
  }
  ~Running() {
    if (!isOver_) Stop(SIGKILL);
    CloseInput();
  }
  Running(const Running&) = delete;
  Running& operator=(const Running&) = delete;

  void Send(int signal) const { kill(pid_, signal); }

  void CloseInput() {
    if (input_ >= 0) close(input_);
    input_ = -1;
  }

  /// Sends a signal and waits. Returns what the shell calls its status.
  int Stop(int signal) {
    Send(signal);
    return Wait();
  }

  int Wait() {
    int status = 0;
    waitpid(pid_, &status, 0);
    isOver_ = true;
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
  }

 private:
  pid_t pid_ = -1;
  int input_ = -1;
  bool isOver_ = false;
};

// ---- A run --------------------------------------------------------------------------------------

TEST_F(Launch, LeavesARunDirectory) {
  Samples("abc");
  const Outcome ended = Run();
  EXPECT_EQ(ended.status, 0) << ended.Describe();
  EXPECT_EQ(ended.out, "");
  EXPECT_EQ(ended.err, "vorn launch: 'run' has 3 of 3 inferences\n");
  ExpectWhatTheSchemasSay();

  const auto facts = ReadRun(RunPath());
  EXPECT_EQ(facts.state, RunState::kDone);
  EXPECT_EQ(facts.status, 0);
  EXPECT_EQ(facts.counts, (vorn::kit::SampleCounts{.inferences = 3, .done = 3}));
  EXPECT_EQ(facts.runtime->path, VORN_SCRIPTED_LIBRARY);
  EXPECT_THAT(facts.command, testing::Contains("--run"));
  EXPECT_THAT(facts.warnings, IsEmpty());

  const auto samples = ReadSamples(RunPath());
  ASSERT_THAT(samples, SizeIs(3));
  EXPECT_EQ(samples[2].inputs[0].line, 3U);
  EXPECT_EQ(samples[2].inputs[0].path, "in/2.bin");
  EXPECT_EQ(samples[2].outputs[0].name, "same");
  for (const SampleRecord& sample : samples) {
    EXPECT_TRUE(vorn::kit::DoesVerify(RunPath(), sample.outputs[0]));
  }

  const auto times = ReadTimes(RunPath());
  ASSERT_THAT(times, SizeIs(3));
  EXPECT_THAT(times[1].executeNs, SizeIs(1));
  EXPECT_EQ(times[1].index, 1U);
  EXPECT_THAT(vorn::kit::ReadMachine(RunPath()), Not(IsEmpty()));
  EXPECT_TRUE(fs::exists(RunPath() + "/trace.vtrace"));
  EXPECT_FALSE(fs::exists(RunPath() + "/chunks"));
}

TEST_F(Launch, DumpsWhatVornRunDumps) {
  Samples("abcde");
  ASSERT_EQ(Run().status, 0);
  EXPECT_THAT(DumpsOf(RunPath() + "/dumps"), SizeIs(10));
  EXPECT_EQ(DumpsOf(RunPath() + "/dumps"), DumpsOfVornRun());
}

TEST_F(Launch, NumbersDumpsThroughInChunks) {
  Samples("abcde");
  const Outcome ended = Run({"--chunk", "2"});
  EXPECT_EQ(ended.status, 0) << ended.Describe();
  EXPECT_EQ(DumpsOf(RunPath() + "/dumps"), DumpsOfVornRun());
  ExpectWhatTheSchemasSay();
  const auto times = ReadTimes(RunPath());
  ASSERT_THAT(times, SizeIs(5));
  EXPECT_EQ(times[4].index, 4U);
  EXPECT_EQ(times[4].chunk, 2U);
  EXPECT_EQ(times[3].chunk, 1U);
}

TEST_F(Launch, KeepsTheLinesOfTheProgramAsTheyCome) {
  Samples("ab");
  ASSERT_EQ(Run().status, 0);
  support::Command command = CommandFor({});
  fs::create_directories(Path("plain"));
  command.program = support::VornRunPath();
  command.arguments = {"-m", "model.om", "-i", "list.txt", "-j", "vorn.json", "-o", "plain"};
  EXPECT_EQ(support::ReadFile(RunPath() + "/log.txt"), RunCommand(command).out);
}

TEST_F(Launch, ExecutesAsOftenAsProfilingDoes) {
  Samples("ab");
  support::Command command = CommandFor({"-p"});
  command.environment["LD_PRELOAD"] = std::nullopt;  // which makes calls of its own
  ASSERT_EQ(RunCommand(command).status, 0);
  const auto times = ReadTimes(RunPath());
  ASSERT_THAT(times, SizeIs(2));
  EXPECT_THAT(times[1].executeNs, SizeIs(21));
  EXPECT_THAT(Warnings(), Not(testing::Contains("calls-dropped")));
}

TEST_F(Launch, HasRoomForTheCallsOfEveryKindOfModel) {
  for (const auto& [inputs, thresholds, outputs] :
       {std::array{1, 0, 1}, {4, 0, 1}, {1, 3, 1}, {1, 0, 6}, {3, 2, 3}}) {
    script_ = {};
    script_.Net(1);
    const auto name = [](char kind, int i) { return kind + std::to_string(i); };
    std::string list;
    std::string files;
    for (int i = 0; i < inputs; ++i) {
      script_.Input({.name = name('i', i), .dims = {1, 4}, .type = 4, .stride = 4, .size = 4});
      list += "f\n";
    }
    for (int i = 0; i < thresholds; ++i) {
      script_.Input({.name = name('t', i), .dims = {1, 4}, .stride = 16, .size = 16});
      files += (i == 0 ? "" : ",") + std::string("t");
    }
    script_.Scratch();
    for (int i = 0; i < outputs; ++i) {
      script_.Output({.name = name('o', i), .dims = {1, 4}, .stride = 16, .size = 16});
    }
    support::WriteFile(Path("f"), "1234");
    support::WriteFile(Path("t"), "1 2 3 4");
    support::WriteFile(Path("list.txt"), list + list + list);
    for (const bool isProfiled : {false, true}) {
      std::vector<std::string> words;
      if (thresholds > 0) words = {"-r", files};
      if (isProfiled) words.emplace_back("-p");
      fs::remove_all(RunPath());
      fs::remove_all(Path("cache"));
      support::Command command = CommandFor(words);
      command.environment["LD_PRELOAD"] = std::nullopt;
      const Outcome ended = RunCommand(command);
      ASSERT_EQ(ended.status, 0) << ended.Describe();
      EXPECT_THAT(Warnings(), IsEmpty());
      const auto times = ReadTimes(RunPath());
      ASSERT_THAT(times, SizeIs(3));
      EXPECT_THAT(times[2].executeNs, SizeIs(isProfiled ? 21 : 1));
    }
  }
}

TEST_F(Launch, RunsWithoutATrace) {
  Samples("ab");
  const Outcome ended = Run({"--no-trace"});
  EXPECT_EQ(ended.status, 0) << ended.Describe();
  EXPECT_THAT(ReadTimes(RunPath()), IsEmpty());
  EXPECT_FALSE(fs::exists(RunPath() + "/trace.vtrace"));
}

TEST_F(Launch, LeavesTextsAwayAndPutsArraysBeside) {
  Samples("abc");
  ASSERT_EQ(Run({"--chunk", "2", "--no-text", "--npy"}).status, 0);
  for (const auto& [name, bytes] : DumpsOf(RunPath() + "/dumps")) {
    EXPECT_THAT(name, testing::AnyOf(testing::EndsWith(".bin"), testing::EndsWith(".npy")));
  }
  EXPECT_THAT(DumpsOf(RunPath() + "/dumps"), SizeIs(6));
  EXPECT_EQ(ReadSamples(RunPath())[0].outputs[0].text, std::nullopt);
}

TEST_F(Launch, PrintsItsRecord) {
  Samples("a");
  const Outcome ended = Run({"--json", "--quiet"});
  EXPECT_EQ(ended.status, 0);
  EXPECT_EQ(ended.out, support::ReadFile(RunPath() + "/run.json"));
  EXPECT_EQ(ended.err, "");
}

// ---- Before -------------------------------------------------------------------------------------

TEST_F(Launch, RefusesSettingsOfTheLayerInOneLine) {
  Samples("a");
  support::Command command = CommandFor({});
  command.environment["VORN_TRACE_ONLY"] = "vorn_exec";
  const Outcome ended = RunCommand(command);
  EXPECT_EQ(ended.status, 2);
  EXPECT_THAT(ended.err, StartsWith("vorn launch: the trace layer: VORN_TRACE_ONLY: there is no "
                                    "operation of this name: "));
  EXPECT_EQ(std::count(ended.err.begin(), ended.err.end(), '\n'), 1);
  EXPECT_FALSE(fs::exists(RunPath()));
  command.arguments.emplace_back("--no-trace");
  EXPECT_EQ(RunCommand(command).status, 0);
}

TEST_F(Launch, RunsNothingOnADryRun) {
  Samples("abc");
  const Outcome ended = Run({"--dry-run"});
  EXPECT_EQ(ended.status, 0);
  EXPECT_EQ(ended.err, "vorn launch: nothing speaks against 3 inferences\n");
  EXPECT_FALSE(fs::exists(RunPath()));
}

TEST_F(Launch, TellsAllFaultsAtOnce) {
  Samples("abc");
  fs::remove(Path("in/1.bin"));
  support::WriteFile(Path("in/2.bin"), "12345");
  const Outcome ended = Run();
  EXPECT_EQ(ended.status, 3);
  EXPECT_EQ(ended.err,
            "vorn launch: list.txt:2: './in/1.bin' is not there\n"
            "vorn launch: list.txt:3: 'in/2.bin' has 5 bytes, and input 'image' takes 6 bytes "
            "(1x1x2x3 of uint8); the rest would hold what was there before\n");
  EXPECT_FALSE(fs::exists(RunPath()));
}

TEST_F(Launch, TellsWhatIsMissingWithoutAModelToo) {
  Samples("abc");
  fs::remove(Path("in/1.bin"));
  fs::remove(Path("model.om"));
  const Outcome ended = Run();
  EXPECT_EQ(ended.status, 3);  // the first of the table
  EXPECT_THAT(ended.err, AllOf(HasSubstr("the model 'model.om' cannot be opened"),
                               HasSubstr("list.txt:2: './in/1.bin' is not there")));
}

TEST_F(Launch, EndsWithAStatusForEachKindOfFault) {
  Samples("a");
  EXPECT_EQ(Run({"--chunk", "0"}).status, 2);
  EXPECT_EQ(Run({"-i", "no"}).status, 3);
  EXPECT_EQ(Run({"-i", "in"}).status, 3);
  EXPECT_EQ(Run({"-m", "no"}).status, 4);
  EXPECT_EQ(Run({"-j", "no"}).status, 4);
  EXPECT_EQ(Run({"--program", "no"}).status, 5);
  EXPECT_EQ(Run({"--program", "/bin/sh"}).status, 5);
  EXPECT_EQ(Run({"--run", "model.om/run"}).status, 2);
  support::WriteFile(Path("empty"), "");
  EXPECT_EQ(Run({"-i", "empty"}).status, 3);
  EXPECT_EQ(Run({"-m", "empty"}).status, 4);
  support::WriteFile(Path("model.om"), "a model that nothing is kept of");
  script_.Answer("vorn_mdl_get_desc", "always", "3");
  EXPECT_EQ(Run().status, 4);
  EXPECT_FALSE(fs::exists(RunPath()));
}

TEST_F(Launch, SaysWhyAConfigurationIsNeeded) {
  support::Command command;
  command.program = VORN_COMMAND;
  command.arguments = {"launch", "-m", "m", "-i", "l", "--run", "r"};
  EXPECT_EQ(RunCommand(command).err,
            "vorn launch: -j FILE is missing, without which vorn-run does not run; a file that "
            "holds {} is an empty configuration\n");
}

TEST_F(Launch, RefusesWhatNamesNothing) {
  Samples("a");
  EXPECT_EQ(Run({"--run", ""}).err, "vorn launch: --run names nothing\n");
  EXPECT_EQ(Run({"-m", ""}).err, "vorn launch: --model names nothing\n");
  EXPECT_EQ(Run({"-j", ""}).err, "vorn launch: --config names nothing\n");
  EXPECT_EQ(Run({"-i", ""}).status, 2);
  const Outcome ended = Run({"--run", "a\nb"});
  EXPECT_EQ(ended.status, 2);
  EXPECT_EQ(ended.err, "vorn launch: --run 'a\\x0Ab' holds a line end\n");
}

TEST_F(Launch, TakesAFolderWithSlashesBehindItsName) {
  Samples("a");
  EXPECT_EQ(Run({"--run", "run//"}).status, 0);
  EXPECT_THAT(Statuses(), ElementsAre(kDone));
}

TEST_F(Launch, TellsAHundredFaultsAndHowManyMore) {
  std::string list;
  for (int i = 0; i < 103; ++i) list += "no" + std::to_string(i) + ".bin\n";
  support::WriteFile(Path("list.txt"), list);
  const Outcome ended = Run();
  EXPECT_EQ(ended.status, 3);
  const std::vector<std::string> lines = support::SplitLines(ended.err);
  ASSERT_THAT(lines, SizeIs(101));
  EXPECT_EQ(lines[99], "vorn launch: list.txt:100: './no99.bin' is not there");
  EXPECT_EQ(lines[100], "vorn launch: and 3 more");
}

// An output of 256 PiB, which no disk has room for.
TEST_F(Launch, RunsNothingThatTheDiskHasNoRoomFor) {
  script_.Output(
      {.name = "vast", .dims = {1 << 18}, .type = 0, .stride = 1 << 20, .size = uint64_t{1} << 58});
  Samples("abc");
  Outcome ended = Run();
  EXPECT_EQ(ended.status, 7);
  EXPECT_THAT(ended.err, AllOf(HasSubstr("'.' has "), HasSubstr(" left, and the run takes "),
                               HasSubstr(" at least; --no-text keeps a fifth of it\n")));
  EXPECT_THAT(Run({"--no-text"}).err, HasSubstr(" at least; name another disk with --run\n"));
  EXPECT_FALSE(fs::exists(RunPath()));
}

TEST_F(Launch, SaysThatNothingSpeaksAgainstItOnlyWhereThatIsSo) {
  Samples("abc");
  fs::remove(Path("in/1.bin"));
  const Outcome ended = Run({"--dry-run", "--anyway"});
  EXPECT_EQ(ended.status, 3);
  EXPECT_EQ(ended.err, "vorn launch: list.txt:2: './in/1.bin' is not there\n");
}

TEST_F(Launch, NamesThresholdsThatAreNone) {
  script_ = {};
  script_.Net(1);
  script_.Input({.name = "image", .dims = {1, 1, 2, 3}, .type = 4, .stride = 8, .size = 16});
  script_.Input({.name = "limits", .dims = {1, 4}, .stride = 16, .size = 16, .format = 2});
  script_.Scratch();
  script_.Output({.name = "same", .dims = {1, 2, 3}, .type = 0, .stride = 16, .size = 32});
  Samples("a");
  support::WriteFile(Path("t"), "0.1 0.2 much 0.4");
  Outcome ended = Run({"-r", "t"});
  EXPECT_EQ(ended.status, 3);
  EXPECT_THAT(ended.err, HasSubstr("'t' hold something that is no number"));
  ended = Run({"-r", "no"});
  EXPECT_EQ(ended.status, 3);
  EXPECT_THAT(ended.err, HasSubstr("'no' is not there"));
}

TEST_F(Launch, FindsNoRuntimeWhereThereIsNone) {
  Samples("a");
  fs::copy_file(support::VornRunPath(), Path("alone"));
  support::Command command = CommandFor({"--program", "./alone"});
  command.environment["LD_LIBRARY_PATH"] = std::nullopt;
  const Outcome ended = RunCommand(command);
  EXPECT_EQ(ended.status, 5);
  EXPECT_EQ(ended.err,
            "vorn launch: './alone' finds no libvorn.so; name its folder in LD_LIBRARY_PATH\n");
}

// As people have them around an emulator.
TEST_F(Launch, RunsAScriptThatRunsTheProgram) {
  Samples("abSd");
  const auto script = [&](const std::string& front) {
    support::WriteFile(Path("wrapper"),
                       "#!/bin/sh\n" + front + "'" + support::VornRunPath() + "' \"$@\"\n");
    fs::permissions(Path("wrapper"), fs::perms::owner_all);
  };
  script("exec ");
  Outcome ended = Run({"--program", "./wrapper"});
  EXPECT_EQ(ended.status, 5) << ended.Describe();
  EXPECT_THAT(
      ended.err,
      StartsWith("vorn launch: the program './wrapper' is a script, or names no loader: its "
                 "libvorn.so was not looked at, nor the sizes of the inputs; --model-json "
                 "has these checked, and --chunk and --resume need it\n"));
  EXPECT_THAT(Statuses(), ElementsAre(kDone, kDone, kAside, kMissing));
  EXPECT_EQ(TimedInferences(), Counting(2));
  EXPECT_EQ(fs::canonical(ReadRun(RunPath()).runtime->path), fs::canonical(VORN_SCRIPTED_LIBRARY));
  ExpectWhatTheSchemasSay();

  fs::copy_file(RunPath() + "/model.json", Path("model.json"));
  EXPECT_EQ(Run({"--program", "./wrapper", "--resume"}).status, 2);
  script("");  // waits for it
  Samples("abcd");
  const std::vector<std::string> goingOn{"--program", "./wrapper",    "--resume",  "--chunk",
                                         "1",         "--model-json", "model.json"};
  ended = Run(goingOn);
  EXPECT_EQ(ended.status, 2);
  EXPECT_THAT(ended.err, HasSubstr("vorn launch: 'run' was begun with another program "
                                   "('./wrapper', which has changed); name another folder with "
                                   "--run, or go on with --anyway\n"));
  auto anyway = goingOn;
  anyway.emplace_back("--anyway");
  ended = Run(anyway);
  EXPECT_EQ(ended.status, 0) << ended.Describe();
  EXPECT_THAT(ended.err, HasSubstr("warning program-changed, 1 time: 'run' was begun with another "
                                   "program ('./wrapper', which has changed)\n"));
  EXPECT_THAT(ended.err, StartsWith("vorn launch: the program './wrapper' is a script, or names no "
                                    "loader: its libvorn.so was not looked at\n"));
  EXPECT_THAT(Statuses(), ElementsAre(kDone, kDone, kDone, kDone));
  EXPECT_EQ(TimedInferences(), Counting(4));
  EXPECT_EQ(DumpsOf(RunPath() + "/dumps"), DumpsOfVornRun());
  support::WriteFile(Path("in/3.bin"), "d");
  ended = Run({"--program", "./wrapper", "--run", "other", "--model-json", "model.json"});
  EXPECT_EQ(ended.status, 3);
  EXPECT_THAT(ended.err, HasSubstr("list.txt:4: 'in/3.bin' has 1 byte"));
}

// The program opens the list by itself.
TEST_F(Launch, TakesNoOutputsOfAListThatWasPutInThePlaceOfItsOwn) {
  Samples("abc");
  ASSERT_EQ(Run({"--run", "first"}).status, 0);
  fs::copy_file(Path("first/model.json"), Path("model.json"));
  const std::string list = support::ReadFile(Path("list.txt"));
  const std::vector<std::string> words{"--program", "./wrapper", "--model-json", "model.json"};
  for (const char* other : {"in/0.bin\nin/2.bin\nin/1.bin\n", "in/0.bin\nin/1.bin\n",
                            "in/0.bin\nin/1.bin\nin/2.bin\nin/0.bin\n"}) {
    support::WriteFile(Path("list.txt"), list);
    support::WriteFile(Path("other.txt"), other);
    support::WriteFile(Path("wrapper"), "#!/bin/sh\ncp other.txt list.txt\nexec '" +
                                            support::VornRunPath() + "' \"$@\"\n");
    fs::permissions(Path("wrapper"), fs::perms::owner_all);
    fs::remove_all(RunPath());
    const Outcome ended = Run(words);
    EXPECT_EQ(ended.status, 3) << ended.Describe();
    EXPECT_THAT(ended.err, HasSubstr("list.txt' was changed while the program started; start "
                                     "again\n"));
    EXPECT_THAT(Statuses(), IsEmpty());
    EXPECT_TRUE(fs::is_empty(RunPath() + "/chunks"));
    EXPECT_TRUE(fs::is_empty(RunPath() + "/dumps"));
  }
  // Once it has read it, what becomes of the file is of no matter.
  support::WriteFile(Path("list.txt"), list);
  support::WriteFile(Path("wrapper"), "#!/bin/sh\n'" + support::VornRunPath() +
                                          "' \"$@\" && cp other.txt list.txt\n");
  fs::remove_all(RunPath());
  const Outcome ended = Run(words);
  EXPECT_EQ(ended.status, 0) << ended.Describe();
  EXPECT_THAT(Statuses(), ElementsAre(kDone, kDone, kDone));
  EXPECT_NE(support::ReadFile(Path("list.txt")), list);
}

TEST_F(Launch, CountsNoInferencesThatItDoesNotKnow) {
  Samples("abc");
  support::WriteFile(Path("wrapper"), "#!/bin/sh\nexit 3\n");
  fs::permissions(Path("wrapper"), fs::perms::owner_all);
  const Outcome ended = Run({"--program", "./wrapper"});
  EXPECT_EQ(ended.status, 5) << ended.Describe();
  EXPECT_THAT(ended.err,
              HasSubstr("'run' has 0 of the inferences of 3 lines of the list; how many that are "
                        "is not known without the model's inputs\n"));
}

// Looked at once a second, and once more when the runtime's libraries are there.
TEST_F(Launch, LooksAtTheMachineOnceASecond) {
  Samples("abc");
  support::WriteFile(Path("wrapper"),
                     "#!/bin/sh\nsleep 1.5\nexec '" + support::VornRunPath() + "' \"$@\"\n");
  fs::permissions(Path("wrapper"), fs::perms::owner_all);
  ASSERT_EQ(Run({"--program", "./wrapper"}).status, 0);
  const auto moments = vorn::kit::ReadMachine(RunPath());
  ASSERT_GE(moments.size(), 2U);
  constexpr uint64_t kNearlyASecond = 900000000;
  int tooSoon = 0;
  for (size_t i = 1; i < moments.size(); ++i) {
    tooSoon += moments[i].realtimeNs - moments[i - 1].realtimeNs < kNearlyASecond ? 1 : 0;
  }
  EXPECT_LE(tooSoon, 1);
}

TEST_F(Launch, CountsWhileItRuns) {
  Samples("abHd");
  Running launch(CommandFor({}));
  const auto counts = [&] {
    return fs::exists(RunPath() + "/run.json") ? ReadRun(RunPath()).counts
                                               : vorn::kit::SampleCounts{};
  };
  while (counts().done != 2) std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_EQ(counts(), (vorn::kit::SampleCounts{
                          .inferences = 4, .done = 2, .failed = 0, .aside = 0, .missing = 2}));
  EXPECT_EQ(ReadRun(RunPath()).state, RunState::kRunning);
  EXPECT_EQ(launch.Stop(SIGTERM), 8);
}

TEST_F(Launch, CountsWhatWasPutAsideWhileItRuns) {
  Samples("aSbHcd");
  Running launch(CommandFor({"--chunk", "2"}));
  const auto counts = [&] {
    return fs::exists(RunPath() + "/run.json") ? ReadRun(RunPath()).counts
                                               : vorn::kit::SampleCounts{};
  };
  while (counts().done != 2) std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_EQ(counts().aside, 1U);
  EXPECT_EQ(launch.Stop(SIGTERM), 8);
}

// They are most of the bytes, and a disk may have no room for those of a whole process.
TEST_F(Launch, RemovesTextsWhileTheProgramRuns) {
  Samples("aH");
  Running launch(CommandFor({"--no-text"}));
  const auto filesOf = [&](const char* ending) {
    size_t count = 0;
    std::error_code error;  // they come and go
    for (const auto& entry : fs::recursive_directory_iterator(RunPath(), error)) {
      count += entry.path().string().ends_with(ending) ? 1 : 0;
    }
    return count;
  };
  const auto until = std::chrono::steady_clock::now() + std::chrono::minutes(1);
  while ((filesOf(".bin") == 0 || filesOf(".float") > 0) &&
         std::chrono::steady_clock::now() < until) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  EXPECT_EQ(filesOf(".bin"), 1U);
  EXPECT_EQ(filesOf(".float"), 0U);
  EXPECT_EQ(launch.Stop(SIGTERM), 8);
}

// The shell goes with its launch, and what it started does not.
TEST_F(Launch, WaitsForAProgramThatOutlivedItsLaunch) {
  Samples("aH");
  ASSERT_EQ(Run({"--dry-run"}).status, 0);
  support::WriteFile(Path("wrapper"), "#!/bin/sh\n'" + support::VornRunPath() +
                                          "' \"$@\" &\necho $! >child\nwait\n");
  fs::permissions(Path("wrapper"), fs::perms::owner_all);
  {
    Running launch(CommandFor({"--program", "./wrapper"}));
    KillAt(launch, "1.bin");
  }
  const pid_t child = std::stoi(support::ReadFile(Path("child")));
  Samples("ab");
  const Outcome ended = Run({"--resume"});
  EXPECT_EQ(ended.status, 2) << ended.Describe();
  EXPECT_EQ(ended.err,
            "vorn launch: 'run' belongs to a program that an earlier launch started and that still "
            "runs, with 'run/log.txt' open; end it, or name another with --run\n");
  kill(child, SIGKILL);
  EXPECT_EQ(Run({"--resume", "--anyway"}).status, 0);
}

TEST_F(Launch, RunsAnywayWhereItIsTold) {
  Samples("abc");
  support::WriteFile(Path("in/2.bin"), "c2345");
  const Outcome ended = Run({"--anyway"});
  EXPECT_EQ(ended.status, 0) << ended.Describe();
  EXPECT_THAT(ended.err, HasSubstr("list.txt:3: 'in/2.bin' has 5 bytes"));
  EXPECT_THAT(ended.err, HasSubstr("warning input-shape, 1 time: [WARN]  The input data shape"));
  EXPECT_THAT(Statuses(), ElementsAre(kDone, kDone, kDone));
}

TEST_F(Launch, LetsTheProgramHaveAnEmptyListAnyway) {
  support::WriteFile(Path("list.txt"), "\n");
  EXPECT_EQ(Run().status, 3);
  const Outcome ended = Run({"--anyway", "--chunk", "3"});
  EXPECT_EQ(ended.status, 0) << ended.Describe();
  EXPECT_THAT(support::ReadFile(RunPath() + "/log.txt"), HasSubstr("[INFO]  Model Iters : 0\n"));
  EXPECT_EQ(ReadRun(RunPath()).programStatus, 0);
}

TEST_F(Launch, TakesNoFolderThatHoldsSomething) {
  Samples("a");
  ASSERT_EQ(Run().status, 0);
  const auto before = support::ReadTree(RunPath());
  const Outcome again = Run();
  EXPECT_EQ(again.status, 2);
  EXPECT_THAT(again.err, HasSubstr("'run' is not empty"));
  EXPECT_EQ(support::ReadTree(RunPath()), before);
}

// ---- The description of the model ---------------------------------------------------------------

TEST_F(Launch, LoadsTheModelOnceAndKeepsWhatItLearned) {
  Samples("a");
  const auto loads = [&] {
    const auto lines = support::SplitLines(support::ReadFile(Path("record")));
    return std::count_if(lines.begin(), lines.end(), [](const std::string& line) {
      return line.starts_with("vorn_mdl_load_from_mem");
    });
  };
  ASSERT_EQ(Run().status, 0);
  EXPECT_EQ(loads(), 2);
  ASSERT_EQ(Run({"--run", "other"}).status, 0);
  EXPECT_EQ(loads(), 3);
  // What is kept and cannot be read is of no use, and no fault.
  for (const auto& [name, bytes] : support::ReadTree(Path("cache"))) {
    support::WriteFile(Path("cache/" + name), "{");
  }
  ASSERT_EQ(Run({"--run", "third"}).status, 0);
  EXPECT_EQ(loads(), 5);
  // Nor is a pipe waited for.
  for (const auto& [name, bytes] : support::ReadTree(Path("cache"))) {
    fs::remove(Path("cache/" + name));
    ASSERT_EQ(mkfifo(Path("cache/" + name).c_str(), 0600), 0);
  }
  ASSERT_EQ(Run({"--run", "piped"}).status, 0);
  EXPECT_EQ(loads(), 7);
  // Another model is another one.
  support::WriteFile(Path("model.om"), "25 bytes of a model file.");
  ASSERT_EQ(Run({"--run", "fourth"}).status, 0);
  EXPECT_EQ(loads(), 9);
}

TEST_F(Launch, TakesADescriptionOfThisModelOnly) {
  Samples("a");
  ASSERT_EQ(Run().status, 0);
  fs::copy_file(RunPath() + "/model.json", Path("model.json"));
  EXPECT_EQ(Run({"--run", "other", "--model-json", "model.json"}).status, 0);
  support::WriteFile(Path("model.om"), "25 bytes of a model file.");
  const Outcome ended = Run({"--run", "third", "--model-json", "model.json"});
  EXPECT_EQ(ended.status, 4);
  EXPECT_THAT(ended.err, HasSubstr("'model.json' describes another model than 'model.om'"));
}

// ---- Samples that go wrong ----------------------------------------------------------------------

TEST_F(Launch, PutsASampleAsideThatEndsItsProcess) {
  Samples("abcSefgh");
  const Outcome ended = Run({"--chunk", "5"});
  EXPECT_EQ(ended.status, 8) << ended.Describe();
  EXPECT_THAT(Statuses(), ElementsAre(kDone, kDone, kDone, kAside, kDone, kDone, kDone, kDone));
  EXPECT_THAT(ended.err, HasSubstr("inference 3 (list.txt:4) put aside: ended by SIGSEGV inside "
                                   "vorn_mdl_execute"));
  EXPECT_EQ(ReadSamples(RunPath())[3].reason, "ended by SIGSEGV inside vorn_mdl_execute");
  EXPECT_EQ(ReadRun(RunPath()).state, RunState::kDone);
  EXPECT_EQ(ReadRun(RunPath()).signal, "SIGSEGV");
  const auto times = ReadTimes(RunPath());
  EXPECT_THAT(times, SizeIs(7));
  EXPECT_EQ(times[3].attempt, 2U);  // the rest of its chunk
  EXPECT_EQ(times[3].index, 4U);
  EXPECT_FALSE(fs::exists(RunPath() + "/dumps/3"));
  // What is there is what vorn-run makes of these alone.
  Samples("abc");
  auto dumps = DumpsOf(RunPath() + "/dumps");
  for (const auto& [name, bytes] : DumpsOfVornRun()) EXPECT_EQ(dumps[name], bytes);
  ExpectWhatTheSchemasSay();
}

TEST_F(Launch, LosesTheRestInOnePiece) {
  Samples("abSde");
  const Outcome ended = Run();
  EXPECT_EQ(ended.status, 5) << ended.Describe();
  EXPECT_THAT(Statuses(), ElementsAre(kDone, kDone, kAside, kMissing, kMissing));
  EXPECT_EQ(ReadRun(RunPath()).state, RunState::kFailed);
  EXPECT_THAT(ended.err, HasSubstr("'run' has 2 of 5 inferences, 1 put aside, 2 not run\n"));
  EXPECT_THAT(ended.err, HasSubstr("to go on: vorn launch -m model.om -j vorn.json -i list.txt "
                                   "--run run --resume\n"));
}

TEST_F(Launch, GoesOnWithWhatIsMissingOnly) {
  Samples("abSde");
  ASSERT_EQ(Run().status, 5);
  Samples("abcde");  // it was mended, and the list is the same
  fs::remove(Path("record"));
  const Outcome ended = Run({"--resume"});
  EXPECT_EQ(ended.status, 0) << ended.Describe();
  EXPECT_THAT(ended.err, StartsWith("vorn launch: going on with 2 of 5 inferences done\n"));
  EXPECT_THAT(Statuses(), ElementsAre(kDone, kDone, kDone, kDone, kDone));
  const support::CallRecord record(support::SplitLines(support::ReadFile(Path("record"))));
  EXPECT_THAT(record.CallsOf("vorn_mdl_execute"), SizeIs(3));
  EXPECT_EQ(DumpsOf(RunPath() + "/dumps"), DumpsOfVornRun());
}

TEST_F(Launch, DoesAgainWhatDoesNotVerify) {
  Samples("abcd");
  ASSERT_EQ(Run().status, 0);
  const auto whole = DumpsOf(RunPath() + "/dumps");
  const auto samples = ReadSamples(RunPath());
  support::WriteFile(RunPath() + "/" + samples[1].outputs[0].path, "x");
  fs::remove_all(RunPath() + "/dumps/3");
  fs::remove(Path("record"));
  ASSERT_EQ(Run({"--resume", "--chunk", "2"}).status, 0);
  const support::CallRecord record(support::SplitLines(support::ReadFile(Path("record"))));
  EXPECT_THAT(record.CallsOf("vorn_mdl_execute"), SizeIs(2));
  EXPECT_EQ(DumpsOf(RunPath() + "/dumps"), whole);
  EXPECT_THAT(Statuses(), ElementsAre(kDone, kDone, kDone, kDone));
}

TEST_F(Launch, GoesOnWithTheSameFilesOnly) {
  Samples("abS");
  ASSERT_EQ(Run().status, 5);
  Samples("abcd");
  const Outcome ended = Run({"--resume"});
  EXPECT_EQ(ended.status, 2);
  EXPECT_THAT(ended.err, HasSubstr("'run' was begun with another list ('list.txt')"));
  EXPECT_EQ(Run({"--resume"}).status, 2);  // nor has it become that list's run
}

TEST_F(Launch, GoesOnWithTheSameOptionsAndRuntimeOnly) {
  Samples("abS");
  ASSERT_EQ(Run().status, 5);
  const auto before = support::ReadTree(RunPath());
  Outcome ended = Run({"--resume", "-p"});
  EXPECT_EQ(ended.status, 2);
  EXPECT_EQ(ended.err,
            "vorn launch: 'run' was begun with no options of vorn-run, and this is with '-p 1'; "
            "give the same, or name another folder with --run\n");
  EXPECT_EQ(support::ReadTree(RunPath()), before);
  auto facts = ReadRun(RunPath());
  facts.runtime->xxh3 = std::string(32, '0');
  support::WriteFile(RunPath() + "/run.json", ToJson(facts));
  ended = Run({"--resume"});
  EXPECT_EQ(ended.status, 2);
  EXPECT_THAT(ended.err, HasSubstr("'run' was begun with another runtime ("));
  // A record of an earlier build tells no options.
  facts = ReadRun(RunPath());
  facts.runtime.reset();
  facts.options.reset();
  support::WriteFile(RunPath() + "/run.json", ToJson(facts));
  Samples("abc");
  EXPECT_EQ(Run({"--resume"}).status, 0);
}

TEST_F(Launch, GoesOnAfterAnExecutionThatFailed) {
  Samples("aFc");
  const Outcome ended = Run({"--chunk", "3"});
  EXPECT_EQ(ended.status, 8) << ended.Describe();
  EXPECT_THAT(Statuses(), ElementsAre(kDone, kFailed, kDone));
  EXPECT_THAT(*ReadSamples(RunPath())[1].reason,
              StartsWith("ended with status 1 after 'execute model failed, modelId is 1': the "
                         "runtime failed to execute the model"));
  EXPECT_THAT(ended.err, HasSubstr("warning execute, 1 time: "));
  EXPECT_THAT(Warnings(), testing::Contains("execute-step"));
  EXPECT_THAT(ended.err, Not(HasSubstr("warning execute-step"))) << "it says which step failed";
}

TEST_F(Launch, EndsWithTheStatusOfTheCauseInOnePiece) {
  Samples("aFc");
  EXPECT_EQ(Run().status, 5);
  EXPECT_THAT(Statuses(), ElementsAre(kDone, kFailed, kMissing));
}

TEST_F(Launch, BelievesNoStatusOfZero) {
  Samples("aEc");
  const Outcome ended = Run({"--chunk", "3"});
  EXPECT_EQ(ended.status, 8) << ended.Describe();
  EXPECT_THAT(Statuses(), ElementsAre(kDone, kFailed, kDone));
  const Outcome whole = Run({"--run", "whole"});
  EXPECT_EQ(whole.status, 5) << whole.Describe();
  EXPECT_THAT(whole.err, HasSubstr("the program ended with status 0 after 1 of 3 inferences"));
}

TEST_F(Launch, TellsOfWhatIsNotFinite) {
  Samples("aNbN");
  const Outcome ended = Run();
  EXPECT_EQ(ended.status, 0);
  EXPECT_THAT(Warnings(), ElementsAre("not-finite"));
  EXPECT_EQ(ReadRun(RunPath()).warnings[0].count, 2U);
  EXPECT_THAT(
      ended.err,
      HasSubstr("warning not-finite, 2 times: outputs hold 6 NaN and 0 infinite values, first "
                "'same' of inference 1 (list.txt:2)"));
}

TEST_F(Launch, TellsOfOutputsThatAreThoseBefore) {
  Samples("abRd");
  const Outcome ended = Run();
  EXPECT_EQ(ended.status, 0);
  EXPECT_THAT(Warnings(), ElementsAre("output-repeated"));
  // The same inputs may well give the same outputs.
  support::WriteFile(Path("list.txt"), "in/0.bin\nin/0.bin\nin/1.bin\n");
  ASSERT_EQ(Run({"--run", "other"}).status, 0);
  EXPECT_THAT(ReadRun(Path("other")).warnings, IsEmpty());
}

TEST_F(Launch, StopsWhereNothingBegins) {
  Samples("abc");
  ASSERT_EQ(Run({"--dry-run"}).status, 0);  // the description is kept
  script_.Answer("vorn_rt_set_device", "always", "3");
  const Outcome ended = Run({"--chunk", "1"});
  EXPECT_EQ(ended.status, 5) << ended.Describe();
  EXPECT_THAT(Statuses(), ElementsAre(kMissing, kMissing, kMissing));
  EXPECT_THAT(ended.err, HasSubstr("the program ended with status 1 after 'vorn open device 0 "
                                   "failed': the device cannot be opened"));
  EXPECT_EQ(ReadRun(RunPath()).state, RunState::kFailed);
}

TEST_F(Launch, TranslatesASignalOfARefusedModel) {
  Samples("abc");
  ASSERT_EQ(Run({"--dry-run"}).status, 0);
  script_.Answer("vorn_mdl_get_desc", "always", "3");
  const Outcome ended = Run();
  EXPECT_EQ(ended.status, 5) << ended.Describe();
  EXPECT_THAT(ended.err, HasSubstr("the program ended by SIGFPE after 'get model description "
                                   "failed': the runtime refused the model"));
}

TEST_F(Launch, GivesUpWhereEverySampleEndsItsProcess) {
  Samples(std::string(30, 'S'));
  const Outcome ended = Run({"--chunk", "50"});
  EXPECT_EQ(ended.status, 5) << ended.Describe();
  EXPECT_EQ(ReadRun(RunPath()).counts.aside, 20U);
  EXPECT_EQ(ReadRun(RunPath()).counts.missing, 10U);
}

// ---- Limits and interruptions -------------------------------------------------------------------

TEST_F(Launch, EndsASampleThatDoesNotComeBack) {
  Samples("aHc");
  const Outcome ended = Run({"--chunk", "3", "--sample-timeout", "4"});
  EXPECT_EQ(ended.status, 7) << ended.Describe();
  EXPECT_THAT(Statuses(), ElementsAre(kDone, kAside, kDone));
  EXPECT_EQ(ReadSamples(RunPath())[1].reason,
            "was ended after 4 s, the time for one inference (--sample-timeout) inside "
            "vorn_mdl_execute");
}

TEST_F(Launch, EndsARunThatTakesTooLong) {
  Samples("aHc");
  const Outcome ended = Run({"--chunk", "3", "--timeout", "3"});
  EXPECT_EQ(ended.status, 7) << ended.Describe();
  EXPECT_THAT(Statuses(), ElementsAre(kDone, kMissing, kMissing));
  EXPECT_THAT(ended.err, HasSubstr("the program was ended after 3 s, the time for all (--timeout) "
                                   "inside vorn_mdl_execute"));
  EXPECT_EQ(ReadRun(RunPath()).state, RunState::kFailed);
}

TEST_F(Launch, StopsInOrder) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    fs::remove_all(RunPath());
    Samples("abHd");
    Running launch(CommandFor({}));
    AwaitFile("2.bin");
    EXPECT_EQ(launch.Stop(signal), 8);
    EXPECT_EQ(ReadRun(RunPath()).state, RunState::kInterrupted);
    EXPECT_THAT(Statuses(), ElementsAre(kDone, kDone, kMissing, kMissing));
    EXPECT_THAT(support::ReadFile(Path("launched")), HasSubstr("to go on: vorn launch "));
    ExpectWhatTheSchemasSay();
    Samples("abcd");
    EXPECT_EQ(Run({"--resume"}).status, 0);
  }
}

TEST_F(Launch, StopsInOrderWithItsLifeline) {
  struct Case {
    const char* seconds;
    bool isEnded;
    const char* why;
  };
  for (const Case& asked : {Case{"1000", true, "standard input came to its end (--lifeline)"},
                            {"1", false, "nothing came on standard input for 1 s (--lifeline)"}}) {
    fs::remove_all(RunPath());
    Samples("abHd");
    Running launch(CommandFor({"--lifeline", asked.seconds}), Running::Stdin::kPipe);
    if (asked.isEnded) {
      AwaitFile("2.bin");
      launch.CloseInput();
    }
    EXPECT_EQ(launch.Wait(), 8);
    EXPECT_EQ(ReadRun(RunPath()).state, RunState::kInterrupted);
    EXPECT_THAT(support::ReadFile(Path("launched")),
                HasSubstr("vorn launch: " + std::string(asked.why) + ": the run is ended\n"));
    EXPECT_THAT(support::ReadFile(Path("launched")), HasSubstr("to go on: vorn launch "));
    ExpectWhatTheSchemasSay();
    Samples("abcd");
    EXPECT_EQ(Run({"--resume"}).status, 0);
  }
}

TEST_F(Launch, RunsToItsEndWhileItsLifelineHolds) {
  Samples("abc");
  Running launch(CommandFor({"--chunk", "1", "--lifeline", "1000"}), Running::Stdin::kPipe);
  EXPECT_EQ(launch.Wait(), 0);
  EXPECT_THAT(Statuses(), ElementsAre(kDone, kDone, kDone));
}

TEST_F(Launch, TellsItsLifelineOnceTheDeviceIsFree) {
  const auto toldOf = [&](const std::string& kinds, const std::vector<std::string>& more) {
    fs::remove_all(RunPath());
    Samples(kinds);
    std::vector<std::string> words{"--lifeline", "1000", "--quiet"};
    words.insert(words.end(), more.begin(), more.end());
    (void)Running(CommandFor(words), Running::Stdin::kPipe).Wait();
    return support::ReadFile(Path("told"));
  };
  const std::string line = "vorn launch: the last process has ended\n";
  EXPECT_EQ(toldOf("abc", {}), line);
  EXPECT_EQ(toldOf("abc", {"--chunk", "1"}), line);
  EXPECT_EQ(toldOf("aSc", {"--chunk", "1"}), line);
  // Of others the run may start one more.
  EXPECT_EQ(toldOf("abS", {}), "");
  EXPECT_EQ(toldOf("aEc", {"--chunk", "2"}), line);
  EXPECT_EQ(toldOf("abE", {}), "");
  EXPECT_EQ(toldOf("abc", {"--interleave"}), "");
}

// Nothing is started for nobody.
TEST_F(Launch, StartsNothingWithoutItsLifeline) {
  Samples("abc");
  const Outcome ended = Run({"--lifeline", "1000"});  // nothing is on its standard input
  EXPECT_EQ(ended.status, 8) << ended.Describe();
  EXPECT_EQ(ReadRun(RunPath()).state, RunState::kInterrupted);
  EXPECT_EQ(ExecutionsRecorded(), 0U);
  ASSERT_EQ(Run({"--resume"}).status, 0);
  fs::remove_all(RunPath() + "/dumps/1");
  const Outcome again = Run({"--resume", "--lifeline", "1000"});
  EXPECT_EQ(again.status, 8) << again.Describe();
  EXPECT_THAT(again.err, HasSubstr("standard input came to its end (--lifeline): the run is ended\n"
                                   "vorn launch: was stopped while it looked at what is there; "
                                   "nothing was run\n"));
}

TEST_F(Launch, HasNoLifelineByATerminal) {
  const int controlling = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  ASSERT_GE(controlling, 0);
  ASSERT_EQ(unlockpt(controlling), 0);
  std::array<char, 64> terminal{};
  ASSERT_EQ(ptsname_r(controlling, terminal.data(), terminal.size()), 0);
  Samples("a");
  support::Command command = CommandFor({"--lifeline", "5"});
  command.arguments.insert(command.arguments.begin(),
                           {"-c", "exec \"$0\" \"$@\" <\"$TERMINAL\"", command.program});
  command.program = "/bin/sh";
  command.environment["TERMINAL"] = terminal.data();
  const Outcome ended = RunCommand(command);
  close(controlling);
  EXPECT_EQ(ended.status, 2);
  EXPECT_EQ(ended.err,
            "vorn launch: --lifeline: standard input is a terminal, where Ctrl-C ends the run; "
            "leave it out, or let a program write to a pipe now and then\n");
  EXPECT_FALSE(fs::exists(RunPath()));
}

// The moments are drawn; whatever they hit, the same has to hold.
TEST_F(Launch, SurvivesBeingKilledAtAnyMoment) {
  const auto seed = static_cast<uint32_t>(20261122 + KilledLaunches());
  std::mt19937 random(seed);
  Samples("abcdefghijkl");
  script_.Line("pause vorn_mdl_execute 2");
  const auto expected = DumpsOfVornRun();
  ASSERT_EQ(Run({"--dry-run"}).status, 0);
  int midway = 0;
  for (int round = 0; round < KilledLaunches(); ++round) {
    fs::remove_all(RunPath());
    const std::chrono::microseconds moment(random() % 400000);
    const auto words =
        round % 2 == 0 ? std::vector<std::string>{"--chunk", "3"} : std::vector<std::string>{};
    {
      Running launch(CommandFor(words));
      std::this_thread::sleep_for(moment);
      launch.Stop(SIGKILL);
    }
    if (fs::exists(RunPath() + "/samples.jsonl")) {
      const auto samples = ReadSamples(RunPath());
      midway += !samples.empty() && samples.size() < 12 ? 1 : 0;
      for (const SampleRecord& sample : samples) {
        ASSERT_EQ(sample.status, kDone);
        for (const auto& output : sample.outputs) {
          ASSERT_TRUE(vorn::kit::DoesVerify(RunPath(), output)) << "round " << round;
        }
      }
    }
    fs::remove(Path("record"));
    const std::string log = RunPath() + "/log.txt";
    const size_t dumped =
        fs::exists(log) ? Occurrences(support::ReadFile(log), "dump data success") : 0;
    auto again = words;
    again.emplace_back("--resume");
    const Outcome ended = Run(again);
    ASSERT_EQ(ended.status, 0) << "round " << round << ", " << moment.count() << " us\n"
                               << ended.Describe();
    // What was dumped counts: together all were executed as often as they were dumped.
    ASSERT_EQ(dumped + ExecutionsRecorded(), 12U) << "round " << round;
    ASSERT_EQ(TimedInferences(), Counting(12)) << "round " << round;
    ASSERT_EQ(DumpsOf(RunPath() + "/dumps"), expected) << "round " << round;
    ASSERT_EQ(ReadRun(RunPath()).counts.done, 12U);
    ExpectWhatTheSchemasSay();
    // Nothing is left of what was not finished.
    for (const auto& [name, bytes] : support::ReadTree(RunPath())) {
      ASSERT_THAT(name, Not(testing::EndsWith(".part")));
    }
  }
  std::printf("killed midway %d times (seed %u)\n", midway, seed);
}

TEST_F(Launch, CountsWhatAProcessHadDumpedThatWasKilledWithIt) {
  Samples("abHd");
  Running launch(CommandFor({}));
  KillAt(launch, "2.bin");
  Samples("abcd");
  fs::remove(Path("record"));
  const Outcome ended = Run({"--resume"});
  EXPECT_EQ(ended.status, 0) << ended.Describe();
  EXPECT_THAT(ended.err, StartsWith("vorn launch: going on with 2 of 4 inferences done, 2 of them "
                                    "by a process that was cut off\n"));
  EXPECT_EQ(ExecutionsRecorded(), 2U);
  EXPECT_THAT(Statuses(), ElementsAre(kDone, kDone, kDone, kDone));
  EXPECT_EQ(TimedInferences(), Counting(4));
  EXPECT_EQ(DumpsOf(RunPath() + "/dumps"), DumpsOfVornRun());
  EXPECT_THAT(Warnings(), IsEmpty());
  EXPECT_FALSE(fs::exists(RunPath() + "/chunks"));
  ExpectWhatTheSchemasSay();
}

TEST_F(Launch, KeepsWhatItWasInterruptedToLookAt) {
  for (const std::vector<std::string>& words : {std::vector<std::string>{}, {"--chunk", "3"}}) {
    fs::remove_all(RunPath());
    Samples("abK");
    ASSERT_EQ(Run(words).status, 8);
    EXPECT_EQ(ReadRun(RunPath()).state, RunState::kInterrupted);
    EXPECT_THAT(Statuses(), ElementsAre(kMissing, kMissing, kMissing));
    const auto phases = ReadRun(RunPath()).phases;
    Samples("abc");
    fs::remove(Path("record"));
    auto again = words;
    again.emplace_back("--resume");
    const Outcome ended = Run(again);
    EXPECT_EQ(ended.status, 0) << ended.Describe();
    EXPECT_EQ(ExecutionsRecorded(), 0U);
    EXPECT_THAT(Statuses(), ElementsAre(kDone, kDone, kDone));
    EXPECT_EQ(TimedInferences(), Counting(3));
    EXPECT_EQ(ReadRun(RunPath()).phases, phases);  // counted once
    EXPECT_FALSE(fs::exists(RunPath() + "/chunks"));
  }
}

// It was killed while it took over what its process had dumped.
TEST_F(Launch, CountsWhatWasMovedAlready) {
  Samples("abHd");
  Running launch(CommandFor({"--chunk", "4"}));
  KillAt(launch, "2.bin");
  fs::rename(RunPath() + "/chunks/0.1/dumps/0", RunPath() + "/dumps/0");
  Samples("abcd");
  fs::remove(Path("record"));
  EXPECT_EQ(Run({"--resume", "--chunk", "4"}).status, 0);
  EXPECT_EQ(ExecutionsRecorded(), 2U);
  EXPECT_EQ(TimedInferences(), Counting(4));
  EXPECT_EQ(DumpsOf(RunPath() + "/dumps"), DumpsOfVornRun());
}

TEST_F(Launch, DoesAgainWhatACutOffProcessLeftInPieces) {
  const auto executed = [&](const std::function<void(const std::string& job)>& harm,
                            const std::vector<std::string>& words) {
    fs::remove_all(RunPath());
    Samples("abHd");
    Running launch(CommandFor({}));
    KillAt(launch, "2.bin");
    harm(RunPath() + "/chunks/0.1");
    Samples("abcd");
    fs::remove(Path("record"));
    auto again = words;
    again.emplace_back("--resume");
    const Outcome ended = Run(again);
    EXPECT_EQ(ended.status, 0) << ended.Describe();
    EXPECT_EQ(TimedInferences(), Counting(4));
    return ExecutionsRecorded();
  };
  const auto nothing = [](const std::string&) {};
  EXPECT_EQ(executed(nothing, {}), 2U);
  EXPECT_EQ(executed(nothing, {"-m", "./model.om"}), 4U);  // it had other words
  EXPECT_EQ(executed(
                [](const std::string& job) {
                  for (const auto& file : fs::directory_iterator(job + "/dumps/1")) {
                    fs::resize_file(file.path(), 7);
                  }
                },
                {}),
            3U);
  EXPECT_EQ(executed([](const std::string& job) { fs::remove_all(job + "/dumps/0"); }, {}), 3U);
  // Of another start of the machine nobody knows what reached the disk.
  EXPECT_EQ(executed(
                [](const std::string& job) {
                  std::string record = support::ReadFile(job + "/job.json");
                  const size_t at = record.find("\"boot\":\"");
                  ASSERT_NE(at, record.npos);
                  record[at + 8] = record[at + 8] == '0' ? '1' : '0';
                  support::WriteFile(job + "/job.json", record);
                },
                {}),
            4U);
  EXPECT_EQ(
      executed([](const std::string& job) { support::WriteFile(job + "/job.json", "{"); }, {}), 4U);
  EXPECT_EQ(executed([](const std::string& job) { fs::remove(job + "/job.json"); }, {}), 4U);
}

// Its times were written, and it was killed before its samples were.
TEST_F(Launch, KeepsTheTimesOfWhatIsThereOnly) {
  Samples("abcdef");
  ASSERT_EQ(Run({"--chunk", "3"}).status, 0);
  const auto lines = support::SplitLines(support::ReadFile(RunPath() + "/samples.jsonl"));
  support::WriteFile(RunPath() + "/samples.jsonl",
                     lines[0] + "\n" + lines[1] + "\n" + lines[2] + "\n");
  ASSERT_EQ(Run({"--chunk", "3", "--resume"}).status, 0);
  EXPECT_EQ(TimedInferences(), Counting(6));
  const auto times = ReadTimes(RunPath());
  EXPECT_EQ(times[3].attempt, 2U);
  EXPECT_EQ(times[3].chunk, 1U);
  // As an earlier build left it: the last line of an inference counts.
  const std::string file = RunPath() + "/times.jsonl";
  const std::string before = support::ReadFile(file);
  support::WriteFile(file, ToLine(vorn::kit::TimesRecord{.index = 5,
                                                         .chunk = 7,
                                                         .attempt = 9,
                                                         .host = "h",
                                                         .startRealtimeNs = 1,
                                                         .executeNs = {5},
                                                         .series = {}}) +
                               before);
  ASSERT_EQ(Run({"--chunk", "3", "--resume"}).status, 0);
  EXPECT_EQ(support::ReadFile(file), before);
}

TEST_F(Launch, ForgetsWarningsThatNoLongerHold) {
  Samples("abSde");
  ASSERT_EQ(Run().status, 5);
  Samples("abcde");
  auto facts = ReadRun(RunPath());
  facts.warnings.push_back({.id = "not-traced", .count = 1, .message = "why"});
  facts.warnings.push_back({.id = "output-repeated", .count = 3, .message = "which"});
  facts.warnings.push_back({.id = "execute", .count = 2, .message = "what"});
  support::WriteFile(RunPath() + "/run.json", ToJson(facts));
  ASSERT_EQ(Run({"--resume"}).status, 0);
  EXPECT_THAT(Warnings(), ElementsAre("execute"));
  // What was not traced stays untraced.
  facts = ReadRun(RunPath());
  facts.warnings = {{.id = "not-traced", .count = 1, .message = "why"}};
  support::WriteFile(RunPath() + "/run.json", ToJson(facts));
  support::WriteFile(RunPath() + "/times.jsonl", "");
  ASSERT_EQ(Run({"--resume"}).status, 0);
  EXPECT_THAT(Warnings(), ElementsAre("not-traced"));
}

// Hashing what was said to be there takes minutes, and the time for all is a second.
TEST_F(Launch, EndsLookingAtWhatIsThereInTime) {
  constexpr uint64_t kSize = uint64_t{1} << 39;
  Samples("abS");
  ASSERT_EQ(Run().status, 5);
  auto samples = ReadSamples(RunPath());
  std::string lines;
  samples[0].outputs[0].sizeBytes = kSize;
  for (const SampleRecord& sample : samples) lines += ToLine(sample);
  support::WriteFile(RunPath() + "/samples.jsonl", lines);
  fs::resize_file(RunPath() + "/" + samples[0].outputs[0].path, kSize);
  const auto before = support::ReadTree(RunPath() + "/dumps/1");
  const Outcome ended = Run({"--resume", "--timeout", "1"});
  EXPECT_EQ(ended.status, 7) << ended.Describe();
  EXPECT_THAT(ended.err, HasSubstr("ended after 1 s, the time for all (--timeout), while it looked "
                                   "at what is there; nothing was run\n"));
  EXPECT_THAT(ended.err, HasSubstr("to go on: "));
  EXPECT_EQ(ReadRun(RunPath()).state, RunState::kFailed);
  EXPECT_EQ(support::ReadFile(RunPath() + "/samples.jsonl"), lines);
  EXPECT_EQ(support::ReadTree(RunPath() + "/dumps/1"), before);
  {
    Running launch(CommandFor({"--resume"}));
    // It goes by signals before it says that it runs.
    while (ReadRun(RunPath()).state != RunState::kRunning) {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    EXPECT_EQ(launch.Stop(SIGINT), 8);
  }
  EXPECT_EQ(ReadRun(RunPath()).state, RunState::kInterrupted);
  EXPECT_EQ(support::ReadFile(RunPath() + "/samples.jsonl"), lines);
}

TEST_F(Launch, TakesNothingElseForItsFiles) {
  Samples("aF");
  ASSERT_EQ(Run().status, 5);
  fs::create_directories(Path("kept"));
  for (const auto& entry : fs::directory_iterator(RunPath())) {
    fs::rename(entry.path(), Path("kept") + "/" + entry.path().filename().string());
  }
  const auto restore = [&] {
    fs::remove_all(RunPath());
    fs::copy(Path("kept"), RunPath(), fs::copy_options::recursive);
  };
  for (const std::string name : {"log.txt", "errors.txt", "run.json", "model.json", "samples.jsonl",
                                 "times.jsonl", "machine.jsonl", "trace.vtrace"}) {
    restore();
    fs::remove(RunPath() + "/" + name);
    ASSERT_EQ(mkfifo((RunPath() + "/" + name).c_str(), 0600), 0);
    support::Command command = CommandFor({"--resume"});
    command.timeout = std::chrono::seconds(20);
    Outcome ended = RunCommand(command);
    EXPECT_EQ(ended.status, 2) << name << "\n" << ended.Describe();
    EXPECT_EQ(ended.err, "vorn launch: 'run/" + name +
                             "' is no regular file, and the run needs one there; move it away\n");
    restore();
    fs::remove(RunPath() + "/" + name);
    fs::create_directories(RunPath() + "/" + name + "/x");
    ended = RunCommand(command);
    EXPECT_EQ(ended.status, 2) << name << "\n" << ended.Describe();
    EXPECT_EQ(ended.err, "vorn launch: 'run/" + name +
                             "' is a folder, and the run needs a file there; move it away\n");
    EXPECT_TRUE(fs::exists(RunPath() + "/" + name + "/x"));
  }
  for (const std::string name : {"log.txt", "samples.jsonl", "machine.jsonl", "dumps", "chunks"}) {
    restore();
    fs::create_directories(RunPath() + "/chunks");
    fs::remove_all(Path("elsewhere"));
    fs::rename(RunPath() + "/" + name, Path("elsewhere"));
    const auto before = support::ReadTree(Path("elsewhere"));
    fs::create_symlink(Path("elsewhere"), RunPath() + "/" + name);
    const Outcome ended = Run({"--resume"});
    EXPECT_EQ(ended.status, 2) << name << "\n" << ended.Describe();
    EXPECT_THAT(ended.err, StartsWith("vorn launch: 'run/" + name + "' is a link, and the run"));
    EXPECT_EQ(support::ReadTree(Path("elsewhere")), before);
    fs::remove(RunPath() + "/" + name);
  }
  for (const std::string name : {"dumps", "chunks"}) {
    restore();
    fs::remove_all(RunPath() + "/" + name);
    support::WriteFile(RunPath() + "/" + name, "mine");
    const Outcome ended = Run({"--resume"});
    EXPECT_EQ(ended.status, 2) << name << "\n" << ended.Describe();
    EXPECT_EQ(ended.err, "vorn launch: 'run/" + name +
                             "' is no folder, and the run needs one there; move it away\n");
    EXPECT_EQ(support::ReadFile(RunPath() + "/" + name), "mine");
  }
}

// ---- Processes of the program -------------------------------------------------------------------

bool IsRunning(const std::string& pid) {
  const std::string file = "/proc/" + pid + "/stat";
  if (!fs::exists(file)) return false;
  const std::string stat = support::ReadFile(file);
  const size_t name = stat.rfind(')');
  return name != stat.npos && stat.substr(name + 2, 1) != "Z";
}

TEST_F(Launch, LeavesNoChildOfTheProgramBehind) {
  Samples("aC");
  Outcome ended = Run();
  EXPECT_EQ(ended.status, 0) << ended.Describe();
  EXPECT_FALSE(IsRunning(support::ReadFile(Path("child"))));
  EXPECT_THAT(Warnings(), ElementsAre("left-processes"));
  EXPECT_THAT(ended.err, HasSubstr("warning left-processes, 1 time: the program ended and left a "
                                   "process of its group running, which was ended: process "));
  Samples("aCH");
  ended = Run({"--run", "other", "--timeout", "3"});
  EXPECT_EQ(ended.status, 7) << ended.Describe();
  EXPECT_FALSE(IsRunning(support::ReadFile(Path("child"))));
}

// What a launch leaves that is killed between its first files: run.json is the first of them.
TEST_F(Launch, GoesOnFromItsFirstFileOn) {
  Samples("ab");
  ASSERT_EQ(Run().status, 0);
  for (const auto& entry : fs::directory_iterator(RunPath())) {
    if (entry.path().filename() != "run.json") fs::remove_all(entry.path());
  }
  EXPECT_EQ(Run({"--resume"}).status, 0);
  EXPECT_THAT(Statuses(), ElementsAre(kDone, kDone));
}

TEST_F(Launch, LeavesNoProgramBehindWhenItIsKilled) {
  Samples("aH");
  Running launch(CommandFor({}));
  const std::string log = RunPath() + "/log.txt";
  while (!fs::exists(log) || support::ReadFile(log).find("1.bin]") == std::string::npos) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  launch.Stop(SIGKILL);
  // The lock went with it, and the program that hung did not stay: the run can be gone on with.
  Samples("ab");
  EXPECT_EQ(Run({"--resume"}).status, 0);
}

// ---- By turns -----------------------------------------------------------------------------------

class InTurns : public Launch {
 protected:
  InTurns() { support::WriteFile(Path("other.om"), "another 31 bytes of a model file"); }

  Outcome RunTurns(std::vector<std::string> more) const {
    more.insert(more.begin(), {"--interleave", "--b-model", "other.om"});
    return Run(more);
  }

  std::vector<vorn::kit::TimesRecord> Times() const { return ReadTimes(RunPath()); }
};

TEST_F(InTurns, RunsAChunkOfEachByTurns) {
  Samples("abcdefg");
  const Outcome ended = RunTurns({"--chunk", "2"});
  EXPECT_EQ(ended.status, 0) << ended.Describe();
  EXPECT_EQ(ended.err,
            "vorn launch: 'run/A' has 7 of 7 inferences\n"
            "vorn launch: 'run/B' has 7 of 7 inferences\n");
  std::string order;
  for (const auto& record : Times()) {
    order += record.series.value_or("-") + std::to_string(record.index);
    EXPECT_EQ(record.chunk, record.index / 2);
  }
  EXPECT_EQ(order, "A0A1B0B1B2B3A2A3A4A5B4B5B6A6");
  for (const std::string& line :
       support::SplitLines(support::ReadFile(RunPath() + "/times.jsonl"))) {
    EXPECT_EQ(support::FaultBySchema("times", line), "") << line;
  }
  EXPECT_EQ(DumpsOf(RunPath() + "/A/dumps"), DumpsOfVornRun());
  EXPECT_EQ(DumpsOf(RunPath() + "/B/dumps"), DumpsOf(RunPath() + "/A/dumps"));
  EXPECT_EQ(ReadRun(RunPath() + "/A").model.path, "model.om");
  EXPECT_EQ(ReadRun(RunPath() + "/B").model.path, "other.om");
}

TEST_F(InTurns, EndsBothWhereOneEnds) {
  Samples(std::string(60, 'S'));
  const Outcome ended = RunTurns({"--chunk", "30"});
  EXPECT_EQ(ended.status, 5) << ended.Describe();
  EXPECT_EQ(ReadRun(RunPath() + "/A").counts.aside, 20U);
  EXPECT_EQ(ReadRun(RunPath() + "/B").counts.missing, 60U);
  EXPECT_EQ(ReadRun(RunPath() + "/B").state, RunState::kFailed);
}

TEST_F(InTurns, IsGoneOnWithByTurns) {
  Samples("abcdHfgh");
  {
    Running launch(CommandFor({"--interleave", "--b-model", "other.om", "--chunk", "2"}));
    const std::string log = RunPath() + "/A/log.txt";
    while (!fs::exists(log) || support::ReadFile(log).find("in/4.bin]") == std::string::npos) {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    EXPECT_EQ(launch.Stop(SIGINT), 8);
  }
  EXPECT_EQ(ReadRun(RunPath() + "/A").state, RunState::kInterrupted);
  EXPECT_EQ(ReadRun(RunPath() + "/B").state, RunState::kInterrupted);
  EXPECT_THAT(Times(), SizeIs(8));
  Samples("abcdefgh");
  const Outcome ended = RunTurns({"--chunk", "2", "--resume"});
  EXPECT_EQ(ended.status, 0) << ended.Describe();
  EXPECT_THAT(Times(), SizeIs(16));
  EXPECT_EQ(ReadRun(RunPath() + "/A").counts.done, 8U);
  EXPECT_EQ(ReadRun(RunPath() + "/B").counts.done, 8U);
}

TEST_F(InTurns, RefusesWhatCannotTakeTurns) {
  Samples("ab");
  EXPECT_EQ(Run({"--b-model", "other.om"}).err,
            "vorn launch: --b-model is of B, which --interleave runs\n");
  Outcome ended = Run({"--interleave", "--b-model", "no.om"});
  EXPECT_EQ(ended.status, 4);
  EXPECT_THAT(ended.err, StartsWith("vorn launch: B: the model 'no.om' cannot be opened"));
  EXPECT_FALSE(fs::exists(RunPath()));
  fs::remove(Path("in/1.bin"));
  ended = RunTurns({});
  EXPECT_EQ(ended.err, "vorn launch: list.txt:2: './in/1.bin' is not there\n");  // once
  Samples("ab");
  ASSERT_EQ(Run().status, 0);
  ended = RunTurns({"--resume"});
  EXPECT_EQ(ended.status, 2);
  EXPECT_EQ(ended.err,
            "vorn launch: 'run' holds a run that took no turns; name another with --run\n");
  ASSERT_EQ(RunTurns({"--run", "turns"}).status, 0);
  ended = RunTurns({"--run", "turns"});
  EXPECT_EQ(ended.status, 2);
  EXPECT_THAT(ended.err, HasSubstr("'turns' is not empty"));
  support::WriteFile(Path("mine/times.jsonl"), "precious");
  EXPECT_EQ(RunTurns({"--run", "mine"}).status, 2);
  EXPECT_EQ(support::ReadFile(Path("mine/times.jsonl")), "precious");
  support::WriteFile(Path("notes/letter.txt"), "mine");
  EXPECT_THAT(RunTurns({"--run", "notes"}).err, HasSubstr("'notes' holds 'letter.txt'"));
}

TEST_F(InTurns, PrintsBothRecordsAsOneDocument) {
  Samples("ab");
  const Outcome ended = RunTurns({"--json"});
  ASSERT_EQ(ended.status, 0) << ended.Describe();
  const vorn::kit::Json both = vorn::kit::ParseJson(ended.out);
  ASSERT_THAT(both.Items(), SizeIs(2));
  EXPECT_EQ(both.Items()[1].At("counts").At("done").AsUnsigned(), 2U);
}

TEST_F(Launch, DoesAgainWhatHasOtherInputs) {
  Samples("abc");
  ASSERT_EQ(Run({"--chunk", "1"}).status, 0);
  fs::copy_file(Path("in/0.bin"), Path("in/1.bin"), fs::copy_options::overwrite_existing);
  const Outcome ended = Run({"--chunk", "1", "--resume"});
  EXPECT_EQ(ended.status, 0) << ended.Describe();
  EXPECT_THAT(ended.err, HasSubstr("going on with 2 of 3 inferences done"));
}

// Settings that somebody has for other programs would leave out the calls that times are made of.
TEST_F(Launch, TimesEveryExecutionWhateverSettingsThereAre) {
  Samples("abc");
  support::Command command = CommandFor({});
  command.environment["VORN_TRACE_ONLY"] = "vorn_rt_malloc";
  const Outcome ended = RunCommand(command);
  EXPECT_EQ(ended.status, 0) << ended.Describe();
  EXPECT_THAT(vorn::kit::ReadTimes(RunPath()), SizeIs(3));
}

// ---- Lists of all kinds -------------------------------------------------------------------------

TEST_F(Launch, TakesNamesOfAllKindsInChunks) {
  const std::vector<std::string> names{"a b", "c:d",       "\xFF\xFE", "\xC3\xA9'\"",
                                       "-x",  "with\ttab", "e"};
  std::string list;
  for (size_t i = 0; i < names.size(); ++i) {
    support::WriteFile(Path("data:1/" + names[i]),
                       std::string(1, static_cast<char>('a' + i)) + "12345");
    list += names[i] == "c:d" ? "/./link\n" : names[i] + "\n";
  }
  fs::create_symlink("c:d", Path("data:1/link"));
  support::WriteFile(Path("data:1/list.txt"), list);
  const Outcome ended = Run({"-i", "data:1/list.txt", "--chunk", "2"});
  EXPECT_EQ(ended.status, 0) << ended.Describe();
  EXPECT_THAT(DumpsOf(RunPath() + "/dumps"), SizeIs(2 * names.size()));
  for (size_t i = 0; i < names.size(); ++i) {
    const auto sample = ReadSamples(RunPath())[i];
    const std::string bytes = support::ReadFile(RunPath() + "/" + sample.outputs[0].path);
    EXPECT_EQ(bytes, std::string(24, static_cast<char>('a' + i))) << names[i];
  }
}

class NamedInputs : public Launch {
 protected:
  NamedInputs() {
    script_ = {};
    script_.Input({.name = "left", .dims = {1, 4}, .type = 4, .stride = 4, .size = 4});
    script_.Input({.name = "right", .dims = {1, 4}, .type = 4, .stride = 4, .size = 4});
    script_.Scratch();
    script_.Output({.name = "o.1/x", .dims = {1, 4}, .type = 2, .stride = 4, .size = 4});
  }
};

TEST_F(NamedInputs, AreSortedInChunksAsTheyAreInOnePiece) {
  std::string list;
  for (int i = 0; i < 5; ++i) {
    const std::string number = std::to_string(i);
    support::WriteFile(Path("l" + number), std::string(4, static_cast<char>('a' + i)));
    support::WriteFile(Path("r" + number), "rrrr");
    list += "right:r" + number + "\n\nleft:l" + number + "\n";
  }
  support::WriteFile(Path("list.txt"), list);
  ASSERT_EQ(Run({"--chunk", "2"}).status, 0);
  EXPECT_EQ(DumpsOf(RunPath() + "/dumps"), DumpsOfVornRun());
  const SampleRecord sample = ReadSamples(RunPath())[1];
  EXPECT_EQ(sample.inputs[0].name, "left");
  EXPECT_EQ(sample.inputs[0].path, "l1");
  EXPECT_EQ(sample.inputs[0].line, 6U);
  EXPECT_EQ(sample.inputs[1].line, 4U);
}

TEST_F(Launch, TakesThresholdsAndBatches) {
  script_ = {};
  script_.Net(1);
  script_.Input({.name = "image", .dims = {1, 1, 2, 3}, .type = 4, .stride = 8, .size = 16});
  script_.Input({.name = "limits", .dims = {1, 4}, .stride = 16, .size = 16, .format = 2});
  script_.Scratch();
  script_.Output({.name = "same", .dims = {1, 2, 3}, .type = 0, .stride = 16, .size = 32});
  support::WriteFile(Path("t"), "0.1 0.2 0.3 0.4");
  for (const char* name : {"a", "b", "c"}) {
    support::WriteFile(Path(name), std::string(12, name[0]));
  }
  support::WriteFile(Path("list.txt"), "a\nb\nc\n");
  const Outcome ended = Run({"-r", "t", "-b", "2", "--chunk", "1"});
  EXPECT_EQ(ended.status, 0) << ended.Describe();
  EXPECT_EQ(ReadSamples(RunPath())[2].outputs[0].sizeBytes, 2U * 24);
}

}  // namespace
