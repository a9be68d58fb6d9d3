#include "kit/launch/program.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <stdexcept>

#include "kit/common/fault.h"
#include "support/files.h"

namespace {

using std::chrono::milliseconds;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using vorn::kit::ExitStatus;
using vorn::kit::Fault;
using vorn::kit::Lifeline;
using vorn::kit::Program;
using vorn::kit::ProgramEnd;
using vorn::kit::ProgramRequest;
using vorn::kit::StopSignals;

class Programs : public testing::Test {
 protected:
  Programs() {
    request_.out = Path("out"), request_.err = Path("err");
    // A shell in the background of another ignores it, and what it starts can set no trap.
    std::signal(SIGINT, SIG_DFL);
  }

  std::string Path(const std::string& name) const { return (folder_.Path() / name).string(); }

  void Shell(const std::string& words) { request_.command = {"/bin/sh", "-c", words}; }

  // Until the end that is sure to come.
  ProgramEnd End(Program& program) {
    while (true) {
      if (const auto end = program.Poll()) return *end;
      signals_.Wait(milliseconds(1000));
    }
  }

  // Until the program has written that much.
  void AwaitOut(const std::string& text) {
    while (support::ReadFile(request_.out).find(text) == std::string::npos) usleep(1000);
  }

  static bool IsAlive(const std::string& process) {
    try {
      const std::string stat = support::ReadFile("/proc/" + process + "/stat");
      return stat.substr(stat.rfind(')') + 2, 1) != "Z";
    } catch (const std::runtime_error&) {
      return false;
    }
  }

  ExitStatus StatusOfRefusal(std::string& message) const {
    try {
      const Program program(request_, signals_);
    } catch (const Fault& fault) {
      message = fault.what();
      return fault.Status();
    }
    return ExitStatus::kDone;
  }

  StopSignals signals_;
  ProgramRequest request_;

 private:
  support::TempDir folder_;
};

TEST_F(Programs, WriteBehindWhatIsThere) {
  support::WriteFile(Path("out"), "before\n");
  Shell("echo out; echo err >&2; exit 3");
  Program program(request_, signals_);
  const ProgramEnd end = End(program);
  EXPECT_EQ(end.status, 3);
  EXPECT_EQ(end.signal, std::nullopt);
  EXPECT_EQ(support::ReadFile(Path("out")), "before\nout\n");
  EXPECT_EQ(support::ReadFile(Path("err")), "err\n");
  EXPECT_EQ(program.Poll()->status, 3);  // once more
  EXPECT_EQ(signals_.Asked(), 0);
}

TEST_F(Programs, HaveTheirEnvironmentNoInputAndAGroupOfTheirOwn) {
  request_.environment = {{"VORN_ONE", "1"}, {"HOME", "/changed"}};
  Shell("echo \"$VORN_ONE $HOME\"; cat; cut -d' ' -f5 /proc/$$/stat");
  Program program(request_, signals_);
  EXPECT_EQ(End(program).status, 0);
  EXPECT_EQ(support::ReadFile(Path("out")), "1 /changed\n" + std::to_string(program.Pid()) + "\n");
}

// The signals that are blocked here are not blocked there.
TEST_F(Programs, HearSignals) {
  Shell("kill -TERM $$; echo went on");
  Program program(request_, signals_);
  const ProgramEnd end = End(program);
  EXPECT_EQ(end.signal, SIGTERM);
  EXPECT_EQ(end.status, std::nullopt);
  EXPECT_EQ(support::ReadFile(Path("out")), "");
}

TEST_F(Programs, ThatCannotBeStartedAreNamed) {
  std::string message;
  request_.command = {"/no/such\nprogram"};
  EXPECT_EQ(StatusOfRefusal(message), ExitStatus::kRuntime);
  EXPECT_EQ(message,
            "cannot start '/no/such\\x0Aprogram': No such file or directory; --program names "
            "another");
}

TEST_F(Programs, WriteToRegularFilesOnly) {
  Shell("true");
  std::string message;
  ASSERT_EQ(mkfifo(Path("pipe").c_str(), 0600), 0);
  request_.err = Path("pipe");
  EXPECT_EQ(StatusOfRefusal(message), ExitStatus::kLimit);
  EXPECT_EQ(message, "cannot write '" + Path("pipe") + "': No such device or address");
  request_.err = "/dev/null";
  EXPECT_EQ(StatusOfRefusal(message), ExitStatus::kLimit);
  EXPECT_EQ(message, "cannot write '/dev/null': it is no regular file");
  request_.err = Path("no/folder");
  EXPECT_EQ(StatusOfRefusal(message), ExitStatus::kLimit);
  EXPECT_EQ(message, "cannot write '" + Path("no/folder") + "': No such file or directory");
}

// There is room for the files of its output, and for nothing more.
TEST_F(Programs, SayThatThereIsNoRoomForAPipe) {
  Shell("true");
  const int next = open("/dev/null", O_RDONLY | O_CLOEXEC);
  ASSERT_GE(next, 0);
  close(next);
  rlimit before{};
  getrlimit(RLIMIT_NOFILE, &before);
  const rlimit two{.rlim_cur = static_cast<rlim_t>(next) + 2, .rlim_max = before.rlim_max};
  setrlimit(RLIMIT_NOFILE, &two);
  std::string message;
  const ExitStatus status = StatusOfRefusal(message);
  setrlimit(RLIMIT_NOFILE, &before);
  EXPECT_EQ(status, ExitStatus::kLimit);
  EXPECT_EQ(message, "cannot make a pipe: Too many open files");
}

TEST_F(Programs, AreKilledWithWhatTheyStarted) {
  Shell("sleep 1000 & echo $!; wait");
  pid_t group = 0;
  {
    const Program program(request_, signals_);
    group = program.Pid();
    AwaitOut("\n");
    EXPECT_EQ(kill(-group, 0), 0);
  }
  // Who waits for the child now is not known, nor when.
  const std::string child = support::SplitLines(support::ReadFile(Path("out"))).at(0);
  for (int round = 0; round < 100000 && IsAlive(child); ++round) usleep(1000);
  EXPECT_FALSE(IsAlive(child));
}

TEST_F(Programs, LeaveNothingBehindThatIsNotEnded) {
  Shell("trap '' TERM; sleep 1000 & echo started; exit 4");
  Program program(request_, signals_);
  EXPECT_THAT(program.EndRest(milliseconds(1)), IsEmpty());  // it runs still, as far as is known
  EXPECT_EQ(End(program).status, 4);
  const std::vector<std::string> rest = program.EndRest(milliseconds(100));
  ASSERT_THAT(rest, SizeIs(1));
  EXPECT_THAT(rest[0], testing::MatchesRegex("process [0-9]+ \\((sleep|sh)\\)"));
  EXPECT_THAT(program.EndRest(milliseconds(1)), IsEmpty());
}

TEST_F(Programs, ThatLeaveNothingHaveNoRest) {
  Shell("exit 0");
  Program program(request_, signals_);
  EXPECT_EQ(End(program).status, 0);
  EXPECT_THAT(program.EndRest(milliseconds(1000)), IsEmpty());
}

TEST_F(Programs, AreSentSignalsWithTheirGroup) {
  Shell("trap 'echo asked; exit 5' INT; echo ready; while :; do sleep 0.01; done");
  Program program(request_, signals_);
  AwaitOut("ready\n");
  program.Send(SIGINT);
  const ProgramEnd end = End(program);
  EXPECT_EQ(end.status, 5);
  EXPECT_THAT(support::ReadFile(Path("out")), HasSubstr("asked\n"));
}

// ---- Signals that ask to stop -------------------------------------------------------------------

TEST(StopSignals, AreTheFirstThatAsks) {
  StopSignals signals;
  EXPECT_EQ(signals.Asked(), 0);
  raise(SIGHUP);
  signals.Wait(milliseconds(100000));
  EXPECT_EQ(signals.Asked(), SIGHUP);
  raise(SIGTERM);
  signals.Wait(milliseconds(100000));
  EXPECT_EQ(signals.Asked(), SIGHUP);
}

TEST(StopSignals, WaitNoLongerThanTheyAreToldTo) {
  StopSignals signals;
  signals.Wait(milliseconds(1));
  signals.Wait(milliseconds(0));
  EXPECT_EQ(signals.Asked(), 0);
}

TEST(StopSignals, AreAskedByALifelineThatIsGone) {
  std::array<int, 2> ends{};
  ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
  Lifeline lifeline(ends[0], std::chrono::hours(1), std::chrono::steady_clock::now());
  StopSignals signals(&lifeline);
  signals.Wait(milliseconds(0));
  EXPECT_EQ(signals.Asked(), 0);
  EXPECT_EQ(signals.WhyLifelineIsGone(), "");
  close(ends[1]);
  signals.Wait(milliseconds(0));
  EXPECT_EQ(signals.Asked(), SIGHUP);
  EXPECT_EQ(signals.WhyLifelineIsGone(), "standard input came to its end (--lifeline)");
  close(ends[0]);
}

TEST(StopSignals, LeaveTheReasonToTheSignalThatCameFirst) {
  std::array<int, 2> ends{};
  ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
  close(ends[1]);
  Lifeline lifeline(ends[0], std::chrono::hours(1), std::chrono::steady_clock::now());
  StopSignals signals(&lifeline);
  raise(SIGTERM);
  signals.Wait(milliseconds(100000));
  signals.Wait(milliseconds(0));
  EXPECT_EQ(signals.Asked(), SIGTERM);
  EXPECT_EQ(signals.WhyLifelineIsGone(), "");
  close(ends[0]);
}

// Whoever read what is said here is gone with the lifeline.
TEST(StopSignals, WithALifelineOutliveTheirReader) {
  std::array<int, 2> ends{};
  ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
  close(ends[0]);
  const support::TempDir folder;
  Lifeline lifeline(STDIN_FILENO, std::chrono::hours(1), std::chrono::steady_clock::now());
  {
    StopSignals signals(&lifeline);
    EXPECT_EQ(write(ends[1], "a", 1), -1);
    EXPECT_EQ(errno, EPIPE);
    // The program is told of its own readers as ever.
    Program program({.command = {"/bin/sh", "-c", "kill -PIPE $$; echo went on"},
                     .environment = {},
                     .out = folder.Path() / "out",
                     .err = folder.Path() / "err"},
                    signals);
    std::optional<ProgramEnd> end;
    while (!(end = program.Poll())) usleep(1000);
    EXPECT_EQ(end->signal, SIGPIPE);
  }
  sigset_t pending;
  sigpending(&pending);
  EXPECT_EQ(sigismember(&pending, SIGPIPE), 0);
  sigset_t mask;
  sigprocmask(SIG_BLOCK, nullptr, &mask);
  EXPECT_EQ(sigismember(&mask, SIGPIPE), 0);
  close(ends[1]);
}

// As under nohup: what is ignored stays so. And all is as it was, afterwards.
TEST(StopSignals, LeaveWhatIsIgnoredAndPutAllBack) {
  struct sigaction ignored {};
  ignored.sa_handler = SIG_IGN;
  struct sigaction hangup {};
  struct sigaction child {};
  sigaction(SIGHUP, &ignored, &hangup);
  sigaction(SIGCHLD, &ignored, &child);
  {
    StopSignals signals;
    struct sigaction now {};
    sigaction(SIGCHLD, nullptr, &now);
    EXPECT_EQ(now.sa_handler, SIG_DFL);
    raise(SIGHUP);
    signals.Wait(milliseconds(0));
    EXPECT_EQ(signals.Asked(), 0);
  }
  struct sigaction now {};
  sigaction(SIGCHLD, nullptr, &now);
  EXPECT_EQ(now.sa_handler, SIG_IGN);
  sigset_t mask;
  sigprocmask(SIG_BLOCK, nullptr, &mask);
  EXPECT_EQ(sigismember(&mask, SIGTERM), 0);
  EXPECT_EQ(sigismember(&mask, SIGCHLD), 0);
  sigaction(SIGHUP, &hangup, nullptr);
  sigaction(SIGCHLD, &child, nullptr);
}

}  // namespace
