// `vorn trace` as a program, over vorn-run on the scripted runtime and over others.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <random>
#include <regex>
#include <thread>

#include "kit/trace/trace_file.h"
#include "support/call_record.h"
#include "support/command.h"
#include "support/files.h"
#include "support/stage.h"

namespace {

using support::Outcome;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class Trace : public testing::Test {
 protected:
  Trace() {
    stage_.File("in.bin", support::CountingBytes(6)).List({"in.bin"});
    stage_.script.Input(
        {.name = "image", .dims = {1, 1, 2, 3}, .type = 4, .stride = 8, .size = 16});
    stage_.script.Scratch();
    stage_.script.Output({.name = "same", .dims = {2, 3}, .type = 4, .stride = 8, .size = 16});
    stage_.launcher = {VORN_COMMAND, "trace", "-o", Path("run.vtrace"), "--"};
  }

  std::string Path(const std::string& name) const { return (folder_.Path() / name).string(); }

  Outcome Run(std::vector<std::string> words) const {
    words.insert(words.begin(), {"trace", "-o", Path("run.vtrace")});
    support::Command command;
    command.program = VORN_COMMAND;
    command.arguments = std::move(words);
    return RunCommand(command);
  }

  std::vector<std::string> Files() const {
    std::vector<std::string> names;
    for (const auto& [name, bytes] : support::ReadTree(folder_.Path())) names.push_back(name);
    return names;
  }

  support::TempDir folder_;
  support::Stage stage_;
};

TEST_F(Trace, ReportsBehindTheProgramAndChangesNothingOfIt) {
  const support::Transcript traced = stage_.Run();
  stage_.launcher.clear();
  const support::Transcript plain = stage_.Run();
  EXPECT_EQ(traced.status, 0) << traced.Describe();
  EXPECT_EQ(traced.lines, plain.lines);
  EXPECT_EQ(traced.files, plain.files);
  EXPECT_EQ(traced.record.Calls(), plain.record.Calls());
  EXPECT_THAT(traced.err, HasSubstr("vorn_mdl_execute "));
  EXPECT_THAT(traced.err, HasSubstr("\nwhole "));
  EXPECT_THAT(traced.err, HasSubstr("\ntrace    " + Path("run.vtrace") + "\n"));
  EXPECT_THAT(Files(), ElementsAre("run.vtrace"));
  // What was reserved for more calls is gone.
  EXPECT_EQ(std::filesystem::file_size(Path("run.vtrace")),
            8192 + 128 * plain.record.Calls().size());
}

TEST_F(Trace, ReadsATraceAnew) {
  ASSERT_EQ(stage_.Run().status, 0);
  support::Command command;
  command.program = VORN_COMMAND;
  command.arguments = {"trace", "--read", Path("run.vtrace")};
  const Outcome read = RunCommand(command);
  EXPECT_EQ(read.status, 0);
  EXPECT_THAT(read.out, StartsWith("program  "));
  EXPECT_EQ(read.err, "");
  command.arguments.back() = "/dev/null";
  EXPECT_EQ(RunCommand(command).status, 125);
  command.arguments.push_back("program");
  EXPECT_EQ(RunCommand(command).err,
            "vorn trace: --read reads a trace and runs nothing; leave out the program\n");
}

TEST_F(Trace, ReportsAsJson) {
  stage_.launcher = {VORN_COMMAND, "trace", "--json", "-o", Path("run.vtrace"), "--"};
  const support::Transcript traced = stage_.Run();
  EXPECT_EQ(traced.status, 0);
  EXPECT_THAT(traced.err, StartsWith("{\"schema\":1,\"trace\":\"" + Path("run.vtrace")));
  support::Command command;
  command.program = VORN_COMMAND;
  command.arguments = {"trace", "--json", "--read", Path("run.vtrace")};
  EXPECT_EQ(RunCommand(command).out, traced.err);
}

TEST_F(Trace, TakesSettingsFromOptionsAndAFile) {
  support::WriteFile(Path("settings"), "trace.calls = 3\n");
  stage_.launcher = {VORN_COMMAND,     "trace", "--only",           "vorn_rt_*", "--settings",
                     Path("settings"), "-o",    Path("run.vtrace"), "--"};
  const support::Transcript traced = stage_.Run();
  EXPECT_EQ(traced.status, 0) << traced.Describe();
  EXPECT_THAT(traced.err,
              HasSubstr(" calls are not in the trace: the setting 'only' left them out\n"));
  EXPECT_THAT(traced.err, HasSubstr(" later calls are not in the trace: there was no room"));
  EXPECT_EQ(std::filesystem::file_size(Path("run.vtrace")), 8192U + 3 * 128);
  EXPECT_THAT(support::ReadFile(Path("run.vtrace")), HasSubstr("\ncalls=3\nonly=vorn_rt_*\n"));
  EXPECT_EQ(Run({"--settings", "/no/file", "true"}).status, 125);
}

// One fault, one line, and the program is not run without what was asked for.
TEST_F(Trace, RefusesSettingsBeforeItRunsTheProgram) {
  const auto refused = [&](const std::vector<std::string>& words, const std::string& calls) {
    support::Command command;
    command.program = VORN_COMMAND;
    command.arguments = {"trace", "-o", Path("run.vtrace")};
    command.arguments.insert(command.arguments.end(), words.begin(), words.end());
    command.arguments.insert(command.arguments.end(), {"touch", Path("ran")});
    if (!calls.empty()) command.environment["VORN_TRACE_CALLS"] = calls;
    const Outcome ended = RunCommand(command);
    EXPECT_EQ(ended.status, 125) << ended.Describe();
    EXPECT_EQ(std::count(ended.err.begin(), ended.err.end(), '\n'), 1) << ended.err;
    EXPECT_TRUE(!std::filesystem::exists(Path("ran")));
    EXPECT_TRUE(Files().empty() || Files()[0] == "settings");
    return ended.err;
  };
  EXPECT_THAT(refused({"--only", "vorn_exec"}, ""),
              StartsWith("vorn trace: VORN_TRACE_ONLY: there is no operation of this name: "));
  EXPECT_EQ(refused({}, "many"),
            "vorn trace: VORN_TRACE_CALLS takes a whole number from 1 to 16777216, and is 'many'; "
            "nothing is traced\n");
  support::WriteFile(Path("settings"), "trace.cals = 3\n");
  EXPECT_THAT(refused({"--settings", Path("settings")}, ""),
              HasSubstr("settings, line 1: there is no setting 'cals' of the layer trace"));
  EXPECT_EQ(Run({"--only", "vorn_rt_*", "true"}).status, 0);
}

TEST_F(Trace, ReadsTheTracesOfAFolder) {
  ASSERT_EQ(stage_.Run().status, 0);
  std::filesystem::create_directories(Path("run/chunks/3.1"));
  std::filesystem::create_directories(Path("run/dumps.vtrace"));
  std::filesystem::copy_file(Path("run.vtrace"), Path("run/trace.vtrace"));
  std::filesystem::copy_file(Path("run.vtrace"), Path("run/trace.vtrace.77"));
  std::filesystem::copy_file(Path("run.vtrace"), Path("run/chunks/3.1/trace.vtrace.1.2.part"));
  support::WriteFile(Path("run/run.json"), "{}");
  const auto read = [&](const std::vector<std::string>& words) {
    support::Command command;
    command.program = VORN_COMMAND;
    command.arguments = {"trace", "--read", Path("run")};
    command.arguments.insert(command.arguments.end(), words.begin(), words.end());
    return RunCommand(command);
  };
  Outcome ended = read({});
  EXPECT_EQ(ended.status, 0) << ended.Describe();
  EXPECT_EQ(ended.err, "");
  size_t at = 0;
  for (const char* name : {"trace.vtrace", "trace.vtrace.77", "chunks/3.1/trace.vtrace.1.2.part"}) {
    at = ended.out.find("\ntrace    " + Path("run/") + name + "\n", at);
    ASSERT_NE(at, std::string::npos) << name << "\n" << ended.out;
  }
  ended = read({"--json"});
  EXPECT_EQ(std::count(ended.out.begin(), ended.out.end(), '\n'), 3);
  // One that is none keeps back none of the others.
  support::WriteFile(Path("run/a.vtrace"), "no");
  ended = read({"--json"});
  EXPECT_EQ(ended.status, 125);
  EXPECT_EQ(std::count(ended.out.begin(), ended.out.end(), '\n'), 3);
  EXPECT_THAT(ended.err,
              StartsWith("vorn trace: '" + Path("run/a.vtrace") + "': this is no trace: "));
  std::filesystem::remove_all(Path("run"));
  std::filesystem::create_directories(Path("run"));
  ended = read({});
  EXPECT_EQ(ended.status, 125);
  EXPECT_THAT(ended.err, StartsWith("vorn trace: '" + Path("run") + "' holds no trace; "));
}

// The moments are drawn. The program is none of the launcher's business any more: it comes to its
// end, and all that it called is in the trace.
TEST_F(Trace, LeavesTheProgramAloneWhenItIsKilled) {
  constexpr int kRounds = 25;
  std::mt19937 random(20261122);
  stage_.script.Line("pause vorn_mdl_execute 30");
  const std::string script = stage_.script.Text();
  support::WriteFile(Path("script"), script);
  int traced = 0;
  for (int round = 0; round < kRounds; ++round) {
    const std::string here = Path("round" + std::to_string(round));
    std::filesystem::create_directories(here + "/out");
    support::WriteFile(here + "/model.om", "24 bytes of a model file");
    support::WriteFile(here + "/vorn.json", "{}");
    support::WriteFile(here + "/in.bin", "123456");
    support::WriteFile(here + "/list.txt", "in.bin\nin.bin\n");
    std::array<int, 2> pipe{};
    ASSERT_EQ(pipe2(pipe.data(), 0), 0);
    const pid_t launcher = fork();
    if (launcher == 0) {
      close(pipe[0]);
      const std::string runtime = std::filesystem::path(VORN_SCRIPTED_LIBRARY).parent_path();
      setenv("VORN_SCRIPT", Path("script").c_str(), 1);
      setenv("VORN_RECORD", (here + "/record").c_str(), 1);
      setenv("LD_LIBRARY_PATH", runtime.c_str(), 1);
      if (chdir(here.c_str()) != 0 || freopen("said", "w", stdout) == nullptr) _exit(99);
      execl(VORN_COMMAND, VORN_COMMAND, "trace", "-q", "--calls", "1000", "-o", "run.vtrace", "--",
            support::VornRunPath().c_str(), "-m", "model.om", "-j", "vorn.json", "-i", "list.txt",
            "-o", "out", nullptr);
      _exit(99);
    }
    close(pipe[1]);
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 100000));
    kill(launcher, SIGKILL);
    ASSERT_EQ(waitpid(launcher, nullptr, 0), launcher);
    char byte = 0;
    while (read(pipe[0], &byte, 1) > 0) {
    }
    close(pipe[0]);  // whoever had the other end has ended
    std::string trace;
    for (const auto& [name, bytes] : support::ReadTree(here)) {
      if (name.starts_with("run.vtrace")) trace = bytes;
    }
    if (trace.empty()) continue;  // the program was not there yet
    ++traced;
    EXPECT_THAT(support::ReadFile(here + "/said"), HasSubstr("[INFO]  end to reset device"))
        << "round " << round;
    const auto file = vorn::kit::ParseTrace(trace);
    const support::CallRecord record(support::SplitLines(support::ReadFile(here + "/record")));
    EXPECT_EQ(file.calls.size(), record.Calls().size()) << "round " << round;
    EXPECT_TRUE(file.endedNs.has_value()) << "round " << round;
    for (const auto& call : file.calls) EXPECT_TRUE(call.endedNs.has_value());
  }
  EXPECT_GT(traced, 0);
}

TEST_F(Trace, NamesTheCallThatHangsWhileItHangs) {
  stage_.script.Line("pause vorn_mdl_execute 60000");
  stage_.launcher = {
      "/bin/sh", "-c", "exec \"$@\" 2> \"$0\"", Path("said"), VORN_COMMAND, "trace", "--stuck",
      "50ms",    "-o", Path("run.vtrace"),      "--"};
  std::optional<int> status;
  std::thread run([&] { status = stage_.Run().status; });
  std::string said;
  const std::regex line(
      "vorn trace: thread ([0-9]+) of process ([0-9]+) has been inside call [0-9]+, "
      "vorn_mdl_execute, for [0-9.]+ s\n");
  std::smatch found;
  while (!std::regex_search(said, found, line)) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    if (std::filesystem::exists(Path("said"))) said = support::ReadFile(Path("said"));
  }
  kill(std::stoi(found[2]), SIGTERM);
  run.join();
  EXPECT_EQ(status, 128 + SIGTERM);
  EXPECT_EQ(found[1], found[2]);  // the program has one thread
}

// The second begins, ends and names its trace while the first is inside of a call.
TEST_F(Trace, BearsASecondOneForTheSameOutput) {
  support::Stage hanging;
  hanging.File("in.bin", support::CountingBytes(6)).List({"in.bin"});
  hanging.script = stage_.script;
  hanging.script.Line("pause vorn_mdl_execute 60000");
  hanging.launcher = {
      "/bin/sh", "-c", "exec \"$@\" 2> \"$0\"", Path("said"), VORN_COMMAND, "trace", "--stuck",
      "20ms",    "-o", Path("run.vtrace"),      "--"};
  std::optional<support::Transcript> first;
  std::thread run([&] { first = hanging.Run(); });
  const std::regex line("of process ([0-9]+) has been inside call [0-9]+, vorn_mdl_execute");
  std::string said;
  std::smatch found;
  while (!std::regex_search(said, found, line)) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    if (std::filesystem::exists(Path("said"))) said = support::ReadFile(Path("said"));
  }

  const support::Transcript second = stage_.Run();
  EXPECT_EQ(second.status, 0) << second.Describe();
  EXPECT_THAT(second.err, HasSubstr("\ntrace    " + Path("run.vtrace") + "\n"));
  EXPECT_EQ(std::filesystem::file_size(Path("run.vtrace")),
            8192 + 128 * second.record.Calls().size());

  kill(std::stoi(found[1]), SIGKILL);
  run.join();
  EXPECT_EQ(first->status, 128 + SIGKILL) << support::ReadFile(Path("said"));
  EXPECT_THAT(support::ReadFile(Path("said")),
              HasSubstr("vorn_mdl_execute, had not returned after "));
  EXPECT_THAT(Files(), ElementsAre("run.vtrace", "said"));
}

TEST_F(Trace, RemovesWhatAKilledLauncherLeft) {
  const support::Transcript traced = stage_.Run();
  ASSERT_EQ(traced.status, 0);
  // Two numbers that no process has.
  std::string bytes = support::ReadFile(Path("run.vtrace"));
  const uint32_t nobody = 0x7ffffffe;
  std::memcpy(bytes.data() + 28, &nobody, sizeof(nobody));
  support::WriteFile(Path("run.vtrace.2147483646.2147483646.part"), bytes);
  support::WriteFile(Path("run.vtrace.2147483646.1.part"), "of somebody else");
  support::WriteFile(Path("run.vtrace.part"), "too");
  EXPECT_EQ(stage_.Run().status, 0);
  EXPECT_THAT(Files(),
              ElementsAre("run.vtrace", "run.vtrace.2147483646.1.part", "run.vtrace.part"));
}

TEST_F(Trace, RefusesATimeThatIsNone) {
  for (const char* time : {"10", "0s", "-1s", "soon"}) {
    EXPECT_EQ(Run({"--stuck", time, "true"}).err,
              "vorn trace: --stuck takes a time with its unit, such as 10s or 500ms, and got '" +
                  std::string(time) + "'\n");
  }
}

// Its status with SIGCHLD ignored, as some parents leave it.
int StatusWithoutNewsOfChildren(const std::string& output, std::vector<std::string> program) {
  std::vector<std::string> words{VORN_COMMAND, "trace", "-q", "-o", output, "--"};
  words.insert(words.end(), program.begin(), program.end());
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    (void)std::signal(SIGCHLD, SIG_IGN);
    execv(argv[0], argv.data());
    _exit(99);
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST_F(Trace, EndsAsTheProgramDoesWhereTheEndOfChildrenIsIgnored) {
  const std::string output = Path("ignored.vtrace");
  EXPECT_EQ(StatusWithoutNewsOfChildren(output, {"sh", "-c", "exit 5"}), 5);
  // The program finds it as it was: SIGCHLD is the bit 16.
  const std::string ignored = "SigIgn:[[:space:]]*[0-9a-f]*[13579bdf][0-9a-f]\\{4\\}$";
  EXPECT_EQ(StatusWithoutNewsOfChildren(output, {"grep", "-q", ignored, "/proc/self/status"}), 0);
  EXPECT_EQ(Run({"grep", "-q", ignored, "/proc/self/status"}).status, 1);
}

TEST_F(Trace, EndsAsTheProgramDoes) {
  EXPECT_EQ(Run({"--", "sh", "-c", "exit 3"}).status, 3);
  EXPECT_EQ(Run({"sh", "-c", "kill -SEGV $$"}).status, 128 + SIGSEGV);
  const Outcome help = Run({"echo", "--help", "-o"});
  EXPECT_EQ(help.status, 0);
  EXPECT_EQ(Run({"printf", "%s", "--quiet"}).out, "--quiet");
}

TEST_F(Trace, SaysThatAProgramMadeNoCall) {
  const Outcome ended = Run({"true"});
  EXPECT_EQ(ended.status, 0);
  EXPECT_EQ(ended.err, "vorn trace: the program made no call by way of the layer\n");
  EXPECT_TRUE(Files().empty());
  EXPECT_EQ(Run({"--quiet", "true"}).err, "");
}

// It has a runtime, as every process of it does, and comes to no call.
TEST_F(Trace, SaysTheSameOfAProgramThatIsLinkedWithARuntime) {
  const Outcome ended = Run({support::VornRunPath()});
  EXPECT_EQ(ended.status, 1);
  EXPECT_THAT(ended.err,
              testing::EndsWith("vorn trace: the program made no call by way of the layer\n"));
}

TEST_F(Trace, TellsThatTheProgramOpenedItsRuntimeByName) {
  const Outcome ended = Run({VORN_OPENING_PROGRAM, VORN_SCRIPTED_LIBRARY});
  EXPECT_EQ(ended.status, 125);
  EXPECT_THAT(ended.err,
              StartsWith("vorn trace: the program called " VORN_SCRIPTED_LIBRARY
                         " without the layer, as programs do that open it by its name."));
  EXPECT_TRUE(Files().empty());
}

TEST_F(Trace, LeavesAFileForEachProcessWithCalls) {
  stage_.launcher = {VORN_COMMAND, "trace", "-o", Path("run.vtrace"),
                     "--",         "sh",    "-c", "\"$0\" \"$@\" && \"$0\" \"$@\""};
  EXPECT_EQ(stage_.Run().status, 0);
  EXPECT_EQ(Files().size(), 2U);
  EXPECT_THAT(Files()[1], StartsWith("run.vtrace."));
}

TEST_F(Trace, KeepsWhatWasPreloadedBefore) {
  support::Command command;
  command.program = VORN_COMMAND;
  command.arguments = {"trace", "-q", "-o", Path("run.vtrace"), "sh", "-c", "echo \"$LD_PRELOAD\""};
  command.environment["LD_PRELOAD"] = "libm.so.6";
  EXPECT_THAT(RunCommand(command).out, testing::EndsWith("/libvorn-trace.so:libm.so.6\n"));
}

TEST_F(Trace, TellsWhyAProgramCannotStart) {
  const Outcome missing = Run({"/no/such/program"});
  EXPECT_EQ(missing.status, 127);
  EXPECT_EQ(missing.err,
            "vorn trace: cannot start '/no/such/program': No such file or directory\n");
  support::WriteFile(Path("data"), "no program");
  const Outcome data = Run({Path("data")});
  EXPECT_EQ(data.status, 126);
  EXPECT_THAT(data.err, HasSubstr("Permission denied"));
}

TEST_F(Trace, TellsThatAStaticProgramCannotBeTraced) {
  const Outcome ended = Run({VORN_STATIC_PROGRAM});
  EXPECT_EQ(ended.status, 125);
  EXPECT_EQ(ended.err, "vorn trace: the layer was not loaded into '" VORN_STATIC_PROGRAM
                       "': it is linked statically, so that nothing can be preloaded; link it with "
                       "libvorn.so\n");
}

TEST_F(Trace, TellsThatThereIsNoPlaceForATrace) {
  support::Command command;
  command.program = VORN_COMMAND;
  command.arguments = {"trace", "-o", "/no/folder/run.vtrace", "true"};
  Outcome ended = RunCommand(command);
  EXPECT_EQ(ended.status, 125);
  EXPECT_EQ(ended.err,
            "vorn trace: no trace can be made in '/no/folder': No such file or directory; --output "
            "names another place\n");
  command.arguments = {"trace", "-o", Path(""), "true"};
  ended = RunCommand(command);
  EXPECT_EQ(ended.status, 125);
  EXPECT_THAT(ended.err, testing::EndsWith("' is a folder, and the trace has to be a file\n"));
}

TEST_F(Trace, RefusesWordsThatMeanNothing) {
  EXPECT_EQ(Run({}).status, 125);
  EXPECT_EQ(Run({}).err, "vorn trace: the program is missing: vorn trace -- PROGRAM [WORD...]\n");
  EXPECT_EQ(Run({"--calls", "0", "true"}).err,
            "vorn trace: --calls takes a whole number from 1 to 16777216, and got '0'\n");
  EXPECT_EQ(Run({"--outptu", "x", "true"}).err,
            "vorn trace: there is no option '--outptu'; did you mean '--output'?; --help lists "
            "them\n");
}

TEST_F(Trace, HelpsInFrontOfAProgramOnly) {
  support::Command command;
  command.program = VORN_COMMAND;
  command.arguments = {"trace", "--output", "--help", "--help"};
  const Outcome ended = RunCommand(command);
  EXPECT_EQ(ended.status, 0);
  EXPECT_THAT(ended.out, StartsWith("vorn trace: every call of a program"));
  EXPECT_THAT(Run({"cat", "--help"}).out, Not(HasSubstr("vorn trace")));
}

}  // namespace
