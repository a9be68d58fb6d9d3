#include "host/state/probe.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "host/memory/block_store.h"
#include "runtime/host/refusal.h"

// The linker's --wrap leads calls here, and leaves the function itself under the other name.
pid_t RealFork() asm("__real_fork");
pid_t WatchedFork() asm("__wrap_fork");

namespace {
thread_local bool isForkRefused = false;
}  // namespace

pid_t WatchedFork() {
  if (!isForkRefused) return RealFork();
  errno = EAGAIN;
  return -1;
}

namespace vorn::host {
namespace {

TEST(Probe, LeavesNothingBehind) {
  int value = 1;
  testing::internal::CaptureStderr();
  const ProbeResult result = Probe(0, [&] {
    value = 2;
    std::fputs("heard by nobody\n", stderr);
  });
  EXPECT_EQ(result.end, ProbeEnd::kReturned);
  EXPECT_EQ(value, 1);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(Probe, TakesWhatIsThrownForAReturn) {
  EXPECT_EQ(Probe(0, [] { throw std::runtime_error("seen again"); }).end, ProbeEnd::kReturned);
}

TEST(Probe, TellsTheSignalThatEndedIt) {
  const ProbeResult aborted = Probe(0, [] { std::abort(); });
  EXPECT_EQ(aborted.end, ProbeEnd::kEnded);
  EXPECT_EQ(aborted.how, "Aborted");
  EXPECT_EQ(Probe(0, [] { raise(SIGFPE); }).how, "Floating point exception");
  EXPECT_EQ(Probe(0, [] { std::terminate(); }).how, "Aborted");
}

TEST(Probe, TakesNoExitForAReturn) {
  const ProbeResult exited = Probe(0, [] { _exit(0); });
  EXPECT_EQ(exited.end, ProbeEnd::kEnded);
  EXPECT_EQ(exited.how, "exit status 0");
  EXPECT_EQ(Probe(0, [] { _exit(3); }).how, "exit status 3");
}

TEST(Probe, IsNotMisledByAProgramThatIgnoresItsChildren) {
  signal(SIGCHLD, SIG_IGN);
  EXPECT_EQ(Probe(0, [] {}).end, ProbeEnd::kReturned);
  const ProbeResult aborted = Probe(0, [] { std::abort(); });
  EXPECT_EQ(aborted.end, ProbeEnd::kEnded);
  EXPECT_EQ(aborted.how, "how is not known");
  const ProbeResult late = Probe(1, [] {
    for (;;) pause();
  });
  EXPECT_EQ(late.end, ProbeEnd::kTimeout);
  signal(SIGCHLD, SIG_DFL);
}

TEST(Probe, LeavesNoCore) {
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_CORE, &before), 0);
  if (before.rlim_max <= 1) GTEST_SKIP() << "no program here leaves one";
  const rlimit most = {.rlim_cur = before.rlim_max, .rlim_max = before.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_CORE, &most), 0);
  EXPECT_EQ(Probe(0,
                  [] {
                    rlimit within{};
                    getrlimit(RLIMIT_CORE, &within);
                    if (within.rlim_cur > 1) _exit(1);
                  })
                .end,
            ProbeEnd::kReturned);
  setrlimit(RLIMIT_CORE, &before);
}

TEST(Probe, ClosesTheEndThatItHasWhereTheOtherOneIsLeftOut) {
  const int in = dup(STDIN_FILENO);
  const int next = fcntl(in, F_DUPFD, STDERR_FILENO + 1);
  close(next);
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
  // One end gets the number 0 and has to move, and the other one takes the last number.
  close(STDIN_FILENO);
  const rlimit few = {.rlim_cur = static_cast<rlim_t>(next) + 1, .rlim_max = before.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
  const std::string reason = ReasonOf(VORN_ERROR_INTERNAL, [] { Probe(0, [] {}); });
  const bool isClosed = fcntl(next, F_GETFD) == -1;
  setrlimit(RLIMIT_NOFILE, &before);
  dup2(in, STDIN_FILENO);
  close(in);
  EXPECT_EQ(reason, "there is no process for a probe (Too many open files)");
  EXPECT_TRUE(isClosed);
}

TEST(Probe, SaysThatThereIsNoProcess) {
  isForkRefused = true;
  EXPECT_EQ(ReasonOf(VORN_ERROR_INTERNAL, [] { Probe(0, [] {}); }),
            "there is no process for a probe (Resource temporarily unavailable)");
  isForkRefused = false;
  EXPECT_EQ(Probe(0, [] {}).end, ProbeEnd::kReturned);
}

TEST(Probe, RunsNoHandlerOfTheProgram) {
  signal(SIGTERM, [](int) { _exit(7); });
  EXPECT_EQ(Probe(0, [] { raise(SIGTERM); }).how, "Terminated");
  signal(SIGTERM, SIG_DFL);
}

TEST(Probe, IsEndedAfterItsTime) {
  const ProbeResult result = Probe(1, [] {
    for (;;) pause();
  });
  EXPECT_EQ(result.end, ProbeEnd::kTimeout);
}

TEST(Probe, TakesTheEndsOfItsPipeForNoStandardStreams) {
  const int out = dup(STDOUT_FILENO);
  const int err = dup(STDERR_FILENO);
  close(STDOUT_FILENO);
  close(STDERR_FILENO);
  const ProbeResult result = Probe(0, [] {});
  dup2(out, STDOUT_FILENO);
  dup2(err, STDERR_FILENO);
  close(out);
  close(err);
  EXPECT_EQ(result.end, ProbeEnd::kReturned) << result.how;
}

// A child that cannot be silenced has not tried anything.
TEST(Probe, BlamesNoModelForAnOpenFileTooMany) {
  if (IsMemoryWatched()) GTEST_SKIP() << "a sanitizer takes descriptors to look at an object";
  const auto probe = [] {
    // Room for the two ends of a pipe.
    constexpr rlim_t kMost = STDERR_FILENO + 3;
    for (rlim_t open = STDERR_FILENO + 1; open < 100; ++open) close(static_cast<int>(open));
    const rlimit files{kMost, kMost};
    if (setrlimit(RLIMIT_NOFILE, &files) != 0) _exit(2);
    const std::string reason = ReasonOf(VORN_ERROR_INTERNAL, [] { Probe(0, [] {}); });
    std::fputs(reason.c_str(), stderr);
    _exit(0);
  };
  EXPECT_EXIT(probe(), testing::ExitedWithCode(0),
              "^/dev/null cannot be opened for a probe \\(Too many open files\\)$");
}

std::atomic<bool> isStopInForkAsked = false;
std::atomic<bool> isAnyInFork = false;
std::promise<void> goOn;

/// Holds the first fork that comes by, once that is asked for.
void StopInFork() {
  if (!isStopInForkAsked.exchange(false)) return;
  isAnyInFork = true;
  goOn.get_future().wait();
}

/// Two ends of a pipe, for a word between two processes.
struct Word {
  Word() { EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0); }
  ~Word() {
    close(ends[0]);
    close(ends[1]);
  }
  void Say() const { EXPECT_EQ(write(ends[1], "", 1), 1); }
  void Hear() const {
    char word = 0;
    EXPECT_EQ(read(ends[0], &word, 1), 1);
  }
  int ends[2];
};

TEST(Probe, WaitsForNoOtherProbe) {
  ASSERT_EQ(pthread_atfork(&StopInFork, nullptr, nullptr), 0);
  isStopInForkAsked = true;
  // Held between its pipe and its process, so that the other probe comes to be in between.
  std::future<ProbeResult> quick =
      std::async(std::launch::async, [] { return Probe(0, [] { _exit(3); }); });
  while (!isAnyInFork) std::this_thread::yield();
  const Word isRunning;
  const Word mayEnd;
  std::future<ProbeResult> slow = std::async(std::launch::async, [&] {
    return Probe(0, [&] {
      isRunning.Say();
      mayEnd.Hear();
    });
  });
  isRunning.Hear();
  goOn.set_value();
  const bool isThrough = quick.wait_for(std::chrono::seconds(20)) == std::future_status::ready;
  mayEnd.Say();
  EXPECT_TRUE(isThrough) << "before the slow one was";
  EXPECT_EQ(quick.get().how, "exit status 3");
  EXPECT_EQ(slow.get().end, ProbeEnd::kReturned);
}

TEST(Probe, TakesNoOtherProbesWordForItsOwn) {
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([i] {
      for (int round = 0; round < 25; ++round) {
        const ProbeResult result = Probe(0, [&] {
          if (i % 2 == 0) _exit(i);
        });
        EXPECT_EQ(result.end, i % 2 == 0 ? ProbeEnd::kEnded : ProbeEnd::kReturned);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

TEST(Probe, TellsTheEndsOfChildrenThatTheProgramTakes) {
  std::atomic<bool> isDone = false;
  std::thread taker([&] {
    while (!isDone) waitpid(-1, nullptr, WNOHANG);
  });
  for (int round = 0; round < 25; ++round) {
    EXPECT_EQ(Probe(0, [] {}).end, ProbeEnd::kReturned);
    EXPECT_EQ(Probe(0, [] { std::abort(); }).end, ProbeEnd::kEnded);
  }
  isDone = true;
  taker.join();
}

}  // namespace
}  // namespace vorn::host
