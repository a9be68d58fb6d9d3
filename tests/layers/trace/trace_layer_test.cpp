// The trace layer in vorn-run and in a program of its own, on the scripted runtime, whose record
// says what really came through.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <random>
#include <stdexcept>
#include <thread>

#include "kit/common/fault.h"
#include "kit/trace/trace_file.h"
#include "support/command.h"
#include "support/files.h"
#include "support/stage.h"

namespace {

using support::Outcome;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;
using vorn::kit::ParseTrace;
using vorn::kit::TracedCall;
using vorn::kit::TraceFile;

std::string NameOf(const TraceFile& file, const TracedCall& call) {
  return file.operations[call.operation];
}

std::vector<std::string> NamesOf(const TraceFile& file) {
  std::vector<std::string> names;
  for (const TracedCall& call : file.calls) names.push_back(NameOf(file, call));
  return names;
}

class TraceLayer : public testing::Test {
 protected:
  TraceLayer() {
    stage_.File("in.bin", support::CountingBytes(6)).List({"in.bin"});
    stage_.script.Input(
        {.name = "image", .dims = {1, 1, 2, 3}, .type = 4, .stride = 8, .size = 16});
    stage_.script.Scratch();
    stage_.script.Output({.name = "same", .dims = {2, 3}, .type = 4, .stride = 8, .size = 16});
    stage_.script.Line("write 0 copy 0");
  }

  std::filesystem::path Traces() const { return folder_.Path(); }

  std::map<std::string, std::optional<std::string>> Environment() const {
    return {{"LD_PRELOAD", VORN_TRACE_LAYER},
            {"VORN_TRACE_FILE", (Traces() / "%p").string()},
            {"VORN_TRACE_CALLS", "5000"}};
  }

  // The traces with calls, those with the most first.
  std::vector<TraceFile> Read() const {
    std::vector<TraceFile> files;
    for (const auto& [name, bytes] : support::ReadTree(Traces())) {
      TraceFile file = ParseTrace(bytes);
      if (!file.calls.empty()) files.push_back(file);
    }
    std::sort(files.begin(), files.end(), [](const TraceFile& one, const TraceFile& two) {
      return one.calls.size() > two.calls.size();
    });
    return files;
  }

  Outcome RunCaller(std::vector<std::string> words,
                    const std::map<std::string, std::optional<std::string>>& more = {}) {
    support::Command command;
    command.program = VORN_CALLER;
    command.arguments = std::move(words);
    command.environment = Environment();
    for (const auto& [name, value] : more) command.environment[name] = value;
    return RunCommand(command);
  }

  support::TempDir folder_;
  support::TempDir place_;
  support::Stage stage_;
};

TEST_F(TraceLayer, NotesEveryCallInItsOrder) {
  const support::Transcript without = stage_.Run({"-p", "1"});
  stage_.environment = Environment();
  const support::Transcript with = stage_.Run({"-p", "1"});
  EXPECT_EQ(with.status, 0) << with.Describe();
  EXPECT_EQ(with.lines, without.lines);
  EXPECT_EQ(with.err, without.err);
  EXPECT_EQ(with.files, without.files);

  const auto files = Read();
  ASSERT_EQ(files.size(), 1U);
  const TraceFile& trace = files[0];
  EXPECT_EQ(trace.dropped, 0U);
  EXPECT_TRUE(trace.endedNs.has_value());
  EXPECT_THAT(trace.program, testing::EndsWith("/vorn-run"));
  EXPECT_EQ(trace.runtime, VORN_SCRIPTED_LIBRARY);
  std::vector<std::string> recorded;
  for (const std::string& call : with.record.Calls()) {
    recorded.push_back(call.substr(0, call.find('(')));
  }
  EXPECT_EQ(NamesOf(trace), recorded);
  uint64_t before = trace.monotonicNs;
  for (size_t i = 0; i < trace.calls.size(); ++i) {
    EXPECT_EQ(trace.calls[i].number, i + 1);
    EXPECT_EQ(trace.calls[i].thread, trace.pid);
    ASSERT_TRUE(trace.calls[i].endedNs.has_value());
    EXPECT_GE(trace.calls[i].beganNs, before);
    EXPECT_GE(*trace.calls[i].endedNs, trace.calls[i].beganNs);
    before = *trace.calls[i].endedNs;
  }
}

TEST_F(TraceLayer, NotesArgumentsAndResults) {
  stage_.environment = Environment();
  ASSERT_EQ(stage_.Run().status, 0);
  const TraceFile trace = Read().at(0);
  uint64_t block = 0;
  for (const TracedCall& call : trace.calls) {
    const std::string name = NameOf(trace, call);
    if (name == "vorn_rt_malloc" && block == 0) {
      ASSERT_EQ(call.arguments.size(), 3U);
      EXPECT_EQ(call.arguments[1], 25U);  // the model's file
      EXPECT_EQ(call.arguments[2], 2U);
      ASSERT_EQ(call.results.size(), 2U);
      EXPECT_EQ(call.results[0], 0U);
      block = call.results[1];
      EXPECT_NE(block, 0U);
    } else if (name == "vorn_mdl_load_from_mem") {
      EXPECT_EQ(call.arguments.at(0), block);
      EXPECT_THAT(call.results, ElementsAre(0, 1));  // the model's id
    } else if (name == "vorn_mdl_get_num_inputs") {
      EXPECT_THAT(call.results, ElementsAre(3));
    } else if (name == "vorn_mdl_get_input_dims") {
      EXPECT_THAT(call.results, ElementsAre(0));  // the record does not fit
    } else if (name == "vorn_finalize") {
      EXPECT_TRUE(call.arguments.empty());
    }
  }
}

TEST_F(TraceLayer, NotesNoResultOfAFailure) {
  stage_.script.Answer("vorn_rt_create_context", "1", "5");
  stage_.environment = Environment();
  EXPECT_EQ(stage_.Run().status, 1);
  const TraceFile trace = Read().at(0);
  for (const TracedCall& call : trace.calls) {
    if (NameOf(trace, call) == "vorn_rt_create_context") {
      EXPECT_THAT(call.results, ElementsAre(5));
    }
  }
}

TEST_F(TraceLayer, KeepsTheCallThatAKilledProcessWasInside) {
  stage_.script.Line("pause vorn_mdl_execute 60000");
  stage_.environment = Environment();
  std::thread run([this] { (void)stage_.Run(); });
  const auto isInside = [](const std::vector<TraceFile>& files) {
    return !files.empty() && NameOf(files[0], files[0].calls.back()) == "vorn_mdl_execute";
  };
  // While it is made the file is no trace yet.
  const auto isInsideByNow = [&] {
    try {
      return isInside(Read());
    } catch (const vorn::kit::Fault&) {
      return false;
    }
  };
  while (!isInsideByNow()) std::this_thread::sleep_for(std::chrono::milliseconds(5));
  kill(static_cast<pid_t>(Read().at(0).pid), SIGKILL);
  run.join();
  const TraceFile trace = Read().at(0);
  EXPECT_FALSE(trace.endedNs.has_value());
  ASSERT_FALSE(trace.calls.empty());
  EXPECT_EQ(NameOf(trace, trace.calls.back()), "vorn_mdl_execute");
  EXPECT_FALSE(trace.calls.back().endedNs.has_value());
  for (size_t i = 0; i + 1 < trace.calls.size(); ++i) {
    EXPECT_TRUE(trace.calls[i].endedNs.has_value()) << i;
  }
}

// The counter that a caller shares with this process: who it is, and how many calls came back.
class SharedCounter {
 public:
  explicit SharedCounter(const std::string& path) {
    support::WriteFile(path, std::string(16, '\0'));
    const int fd = open(path.c_str(), O_RDWR | O_CLOEXEC);
    void* shared = mmap(nullptr, 16, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    close(fd);
    if (shared == MAP_FAILED) throw std::runtime_error("cannot map " + path);
    words_ = static_cast<uint64_t*>(shared);
  }
  ~SharedCounter() { munmap(words_, 16); }
  SharedCounter(const SharedCounter&) = delete;
  SharedCounter& operator=(const SharedCounter&) = delete;

  uint64_t CameBack() const { return std::atomic_ref(words_[1]).load(); }

 private:
  uint64_t* words_ = nullptr;
};

// 200 moments, each told by how many calls had come back by then: no clock decides.
TEST_F(TraceLayer, KeepsEveryCallThatCameBackWheneverItIsKilled) {
  constexpr uint64_t kRoom = 1000;
  const std::string counter = (place_.Path() / "counter").string();
  const std::string trace = (Traces() / "trace").string();
  setenv("VORN_TRACE_FILE", trace.c_str(), 1);
  setenv("VORN_TRACE_CALLS", std::to_string(kRoom).c_str(), 1);
  std::mt19937 random(1);
  for (int round = 0; round < 200; ++round) {
    const SharedCounter shared(counter);
    const uint64_t wanted = random() % 300;
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      setenv("LD_PRELOAD", VORN_TRACE_LAYER, 1);
      execl(VORN_CALLER, VORN_CALLER, "count", counter.c_str(), nullptr);
      _exit(127);
    }
    while (shared.CameBack() < wanted) usleep(20);
    kill(child, SIGKILL);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status)) << status;
    const uint64_t cameBack = std::min(shared.CameBack(), kRoom);
    if (!std::filesystem::exists(trace)) {  // before the layer was loaded
      ASSERT_EQ(cameBack, 0U);
      continue;
    }
    const std::string bytes = support::ReadFile(trace);
    std::filesystem::remove(trace);
    if (cameBack == 0) continue;  // its header may not be there yet
    const TraceFile file = ParseTrace(bytes);
    ASSERT_GE(file.calls.size(), cameBack) << "round " << round;
    for (uint64_t i = 0; i < cameBack; ++i) {
      const TracedCall& call = file.calls[i];
      const bool isWhole = call.number == i + 1 && call.endedNs && call.results.at(0) == 32;
      ASSERT_TRUE(isWhole) << "round " << round << ", call " << i + 1;
    }
  }
  unsetenv("VORN_TRACE_FILE");
  unsetenv("VORN_TRACE_CALLS");
}

TEST_F(TraceLayer, CountsWhatItHasNoRoomFor) {
  stage_.environment = Environment();
  stage_.environment["VORN_TRACE_CALLS"] = "10";
  const support::Transcript run = stage_.Run();
  EXPECT_EQ(run.status, 0);
  const TraceFile trace = Read().at(0);
  EXPECT_EQ(trace.calls.size(), 10U);
  EXPECT_EQ(trace.dropped, run.record.Calls().size() - 10);
}

TEST_F(TraceLayer, NotesTheCallsThatAreAskedForAndCountsTheOthers) {
  stage_.environment = Environment();
  stage_.environment["VORN_TRACE_ONLY"] = "vorn_rt_malloc/2,1-3";
  const support::Transcript run = stage_.Run();
  EXPECT_EQ(run.status, 0);
  std::vector<std::string> wanted;
  std::vector<uint64_t> numbers;
  size_t mallocs = 0;
  const std::vector<std::string> calls = run.record.Calls();
  for (size_t i = 0; i < calls.size(); ++i) {
    const std::string name = calls[i].substr(0, calls[i].find('('));
    if (name == "vorn_rt_malloc") ++mallocs;
    const bool isSecond = name == "vorn_rt_malloc" && mallocs % 2 == 0;
    if (i >= 3 && !isSecond) continue;
    wanted.push_back(name);
    numbers.push_back(i + 1);
  }
  const TraceFile trace = Read().at(0);
  EXPECT_EQ(NamesOf(trace), wanted);
  for (size_t i = 0; i < trace.calls.size(); ++i) EXPECT_EQ(trace.calls[i].number, numbers[i]);
  EXPECT_EQ(trace.passed, calls.size() - wanted.size());
  EXPECT_EQ(trace.dropped, 0U);
  EXPECT_GT(trace.calls.size(), 4U);
}

TEST_F(TraceLayer, WritesItsSettingsIntoTheTrace) {
  support::WriteFile(place_.Path() / "settings",
                     "trace.only = vorn_data_*\ntrace.calls = 7\nvalidate.zone = 1\n");
  EXPECT_EQ(
      RunCaller({"exit"}, {{"VORN_LAYER_SETTINGS", (place_.Path() / "settings").string()}}).status,
      7);
  const TraceFile trace = Read().at(0);
  EXPECT_EQ(trace.settings, "file=" + (Traces() / "%p").string() +
                                "\ncalls=5000\nonly=vorn_data_*\n");  // calls: the environment's
  EXPECT_EQ(trace.calls.size(), 1U);
}

TEST_F(TraceLayer, RefusesSettingsThatItDoesNotHave) {
  const Outcome ended = RunCaller({"exit"}, {{"VORN_TRACE_CALL", "7"}});
  EXPECT_EQ(ended.status, 7);
  EXPECT_EQ(ended.err,
            "vorn-layer: environment: there is no setting 'CALL' of the layer trace, which has "
            "file, calls, only; it does nothing\n");
  EXPECT_EQ(RunCaller({"exit"}, {{"VORN_TRACE_ONLY", "vorn_exec"}}).err,
            "vorn-layer: VORN_TRACE_ONLY: there is no operation of this name: vorn_exec; nothing "
            "is traced\n");
  EXPECT_TRUE(support::ReadTree(Traces()).empty());
}

TEST_F(TraceLayer, TellsThreadsApart) {
  EXPECT_EQ(RunCaller({"threads"}).status, 0);
  const TraceFile trace = Read().at(0);
  EXPECT_EQ(trace.calls.size(), 2000U);
  std::map<uint32_t, int> counts;
  for (const TracedCall& call : trace.calls) {
    EXPECT_TRUE(call.endedNs.has_value());
    ++counts[call.thread];
  }
  EXPECT_EQ(counts.size(), 4U);
  for (const auto& [thread, count] : counts) EXPECT_EQ(count, 500) << thread;
}

TEST_F(TraceLayer, GivesAChildOfForkItsOwnFile) {
  EXPECT_EQ(RunCaller({"fork"}).status, 0);
  const auto files = Read();
  ASSERT_EQ(files.size(), 2U);
  for (const TraceFile& file : files) {
    EXPECT_EQ(file.calls.size(), 2U);
    for (const TracedCall& call : file.calls) EXPECT_EQ(call.thread, file.pid);
  }
  EXPECT_NE(files[0].pid, files[1].pid);
}

TEST_F(TraceLayer, NeedsNoDescriptorAndNoFolderOfTheProgram) {
  support::Command command;
  command.program = VORN_CALLER;
  command.arguments = {"close"};
  command.directory = folder_.Path();
  command.environment = Environment();
  command.environment["VORN_TRACE_FILE"] =
      "here.%p.%%";  // from the folder that the process begins in
  EXPECT_EQ(RunCommand(command).status, 0);
  const auto tree = support::ReadTree(Traces());
  ASSERT_EQ(tree.size(), 1U);
  EXPECT_THAT(tree.begin()->first, StartsWith("here."));
  EXPECT_THAT(tree.begin()->first, testing::EndsWith(".%%"));
  EXPECT_EQ(Read().at(0).calls.size(), 1U);
}

TEST_F(TraceLayer, BearsEveryWayToEnd) {
  EXPECT_EQ(RunCaller({"exit"}).status, 7);
  EXPECT_EQ(Read().at(0).calls.size(), 1U);
  EXPECT_EQ(RunCaller({"abort"}).signal, SIGABRT);
  EXPECT_EQ(Read().size(), 2U);
  EXPECT_EQ(RunCaller({"again"}).status, 0);
  EXPECT_THAT(NamesOf(Read().at(0)),
              ElementsAre("vorn_init", "vorn_finalize", "vorn_init", "vorn_finalize"));
}

TEST_F(TraceLayer, LeavesAFileWithoutCallsOfAProgramThatMakesNone) {
  EXPECT_EQ(RunCaller({}).status, 0);
  EXPECT_TRUE(Read().empty());
  const auto tree = support::ReadTree(Traces());
  ASSERT_EQ(tree.size(), 1U);
  EXPECT_LT(tree.begin()->second.size(), 16384U);  // no room was made
}

// ---- In a runtime's place -----------------------------------------------------------------------

class TraceStandIn : public TraceLayer {
 protected:
  TraceStandIn() { std::filesystem::copy_file(VORN_TRACE_LAYER, place_.Path() / "libvorn.so"); }

  Outcome Open(const std::string& next) {
    return RunCaller({"open", (place_.Path() / "libvorn.so").string()},
                     {{"LD_PRELOAD", std::nullopt}, {"VORN_NEXT", next}});
  }
};

TEST_F(TraceStandIn, CallsTheRuntimeThatIsNamed) {
  const Outcome ended = Open(VORN_SCRIPTED_LIBRARY);
  EXPECT_EQ(ended.status, 0) << ended.Describe();
  EXPECT_EQ(ended.err, "");
  const TraceFile trace = Read().at(0);
  EXPECT_THAT(NamesOf(trace), ElementsAre("vorn_data_type_size"));
  EXPECT_THAT(trace.calls[0].results, ElementsAre(32));
  EXPECT_EQ(trace.runtime, VORN_SCRIPTED_LIBRARY);
}

TEST_F(TraceStandIn, RefusesToCallItself) {
  const Outcome ended = Open((place_.Path() / "libvorn.so").string());
  EXPECT_EQ(ended.status, 0);
  EXPECT_EQ(ended.err,
            "vorn-layer: VORN_NEXT names this layer itself; name the runtime behind it\n");
}

TEST_F(TraceStandIn, TellsWhatItCannotOpen) {
  EXPECT_THAT(Open("/no/libvorn.so").err, StartsWith("vorn-layer: cannot open VORN_NEXT: /no/"));
  EXPECT_EQ(Open("libm.so.6").err,
            "vorn-layer: there is no libvorn.so behind this layer; name one with VORN_NEXT\n");
}

// ---- What goes wrong with the file --------------------------------------------------------------

TEST_F(TraceLayer, RefusesARoomThatIsNoNumber) {
  for (const char* value : {"0", "-1", "x", "16777217", "1e3"}) {
    const Outcome ended = RunCaller({"exit"}, {{"VORN_TRACE_CALLS", value}});
    EXPECT_EQ(ended.status, 7);
    EXPECT_EQ(ended.err,
              "vorn-layer: VORN_TRACE_CALLS takes a whole number from 1 to 16777216, and is '" +
                  std::string(value) + "'; nothing is traced\n");
  }
  EXPECT_TRUE(support::ReadTree(Traces()).empty());
}

TEST_F(TraceLayer, LetsTheProgramRunWhereNoFileCanBeMade) {
  const Outcome ended = RunCaller({"exit"}, {{"VORN_TRACE_FILE", "/no/such/folder/%p"}});
  EXPECT_EQ(ended.status, 7);
  EXPECT_THAT(ended.err, StartsWith("vorn-layer: cannot open '/no/such/folder/"));
  EXPECT_THAT(ended.err, HasSubstr("No such file or directory; nothing is traced\n"));
  EXPECT_EQ(RunCaller({"exit"}, {{"VORN_TRACE_FILE", std::string(5000, 'x')}}).err,
            "vorn-layer: the name in VORN_TRACE_FILE is too long; nothing is traced\n");
}

// A file that may not grow is told of before the program writes behind its end.
TEST_F(TraceLayer, LetsTheProgramRunWhereThereIsNoRoom) {
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
  const rlimit low{65536, before.rlim_max};
  const auto ignored = std::signal(SIGXFSZ, SIG_IGN);
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &low), 0);
  const Outcome ended = RunCaller({"exit"});
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
  std::signal(SIGXFSZ, ignored);
  EXPECT_EQ(ended.status, 7) << ended.Describe();
  EXPECT_THAT(ended.err, StartsWith("vorn-layer: cannot reserve 640000 bytes for '"));
  EXPECT_THAT(ended.err, HasSubstr("File too large; nothing is traced"));
}

}  // namespace
