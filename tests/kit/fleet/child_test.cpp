#include "kit/fleet/child.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include "kit/common/fault.h"
#include "support/files.h"

namespace {

namespace fs = std::filesystem;

using std::chrono::milliseconds;
using testing::HasSubstr;
using vorn::kit::ChildEnd;
using vorn::kit::ChildRequest;
using vorn::kit::DescribeChildEnd;
using vorn::kit::LastLineOf;
using vorn::kit::RunChild;
using vorn::kit::StopSignals;

class Child : public testing::Test {
 protected:
  std::string Path(const std::string& name) const { return (folder_.Path() / name).string(); }
  std::string Out() const { return support::ReadFile(Path("out")); }
  std::string Err() const { return support::ReadFile(Path("err")); }

  ChildRequest Request(std::vector<std::string> command) const {
    return {.command = std::move(command),
            .folder = {},
            .input = {},
            .inputFile = {},
            .isKeptAlive = false,
            .out = Path("out"),
            .err = Path("err"),
            .limit = {}};
  }
  ChildRequest Shell(const std::string& text) const { return Request({"sh", "-c", text, "sh"}); }

  ChildEnd Run(const ChildRequest& request) {
    StopSignals signals;
    return RunChild(request, signals);
  }

  support::TempDir folder_;
};

// Until nothing of that number is there, and its number is nobody's.
void AwaitNobody(pid_t pid) {
  while (kill(pid, 0) == 0) std::this_thread::sleep_for(milliseconds(1));
}

// ---- How it ends --------------------------------------------------------------------------------

TEST_F(Child, EndsWithItsStatusAndWhatItSaid) {
  const ChildRequest request = Shell("echo said; echo told >&2; exit 7");
  const ChildEnd end = Run(request);
  EXPECT_EQ(end.status, 7);
  EXPECT_FALSE(end.IsDone());
  EXPECT_EQ(Out(), "said\n");
  EXPECT_EQ(Err(), "told\n");
  EXPECT_EQ(DescribeChildEnd(end), "ended with status 7");
  EXPECT_TRUE(Run(Shell("exit 0")).IsDone());
  EXPECT_EQ(Out(), "");  // the files are made anew
}

TEST_F(Child, EndsByASignal) {
  const ChildRequest request = Shell("kill -SEGV $$");
  const ChildEnd end = Run(request);
  EXPECT_EQ(end.signal, SIGSEGV);
  EXPECT_EQ(DescribeChildEnd(end), "ended by SIGSEGV");
}

TEST_F(Child, ThatIsNotThereSaysSo) {
  const ChildEnd end = Run(Request({"no-such-program"}));
  EXPECT_EQ(end.status, 127);
  EXPECT_EQ(LastLineOf(Path("err")), "no-such-program: No such file or directory");
}

TEST_F(Child, RunsInAFolder) {
  fs::create_directories(Path("in a folder"));
  ChildRequest request = Shell("pwd -P");
  request.folder = Path("in a folder");
  EXPECT_TRUE(Run(request).IsDone());
  EXPECT_EQ(Out(), Path("in a folder") + "\n");
  request.folder = Path("none");
  EXPECT_EQ(Run(request).status, 127);
}

TEST_F(Child, HasNoWordChanged) {
  ChildRequest request = Request({"printf", "%s\n", "a b", "'\"$x`", "\xFF\n", ""});
  EXPECT_TRUE(Run(request).IsDone());
  EXPECT_EQ(Out(), "a b\n'\"$x`\n\xFF\n\n\n");
}

TEST_F(Child, SaysWhatCannotBeOpened) {
  for (std::string ChildRequest::*file :
       {&ChildRequest::out, &ChildRequest::err, &ChildRequest::inputFile}) {
    ChildRequest request = Shell("exit 0");
    request.*file = Path("none/file");
    try {
      (void)Run(request);
      FAIL() << "it ran";
    } catch (const vorn::kit::Fault& fault) {
      EXPECT_EQ(fault.Status(), vorn::kit::ExitStatus::kLimit);
      EXPECT_THAT(fault.what(), HasSubstr("none/file"));
    }
  }
}

// ---- What it reads ------------------------------------------------------------------------------

TEST_F(Child, ReadsTextAndThenAFile) {
  const std::string text = support::CountingBytes(300'000, 1);
  const std::string file = support::CountingBytes(500'000, 7);
  support::WriteFile(Path("in"), file);
  ChildRequest request = Request({"cat"});
  request.input = text;
  EXPECT_TRUE(Run(request).IsDone());
  EXPECT_EQ(Out(), text);
  request.inputFile = Path("in");
  EXPECT_TRUE(Run(request).IsDone());
  EXPECT_EQ(Out(), text + file);
  request.input.clear();
  EXPECT_TRUE(Run(request).IsDone());
  EXPECT_EQ(Out(), file);
  request.inputFile.clear();
  EXPECT_TRUE(Run(request).IsDone());
  EXPECT_EQ(Out(), "");
}

// An archive of hundreds of megabytes is not to go through here piece by piece.
TEST_F(Child, HasAFileAloneForItsStandardInput) {
  support::WriteFile(Path("in"), "x");
  ChildRequest request = Request({"readlink", "/proc/self/fd/0"});
  request.inputFile = Path("in");
  EXPECT_TRUE(Run(request).IsDone());
  EXPECT_EQ(Out(), Path("in") + "\n");
}

TEST_F(Child, ReadsAFileFromSomeByteOn) {
  support::WriteFile(Path("input"), "Welcome\nto all\n");
  ChildRequest request = Request({"cat"});
  request.inputFile = Path("input");
  request.inputFrom = 8;
  EXPECT_TRUE(Run(request).IsDone());
  EXPECT_EQ(Out(), "to all\n");
  request.input = "and ";
  EXPECT_TRUE(Run(request).IsDone());
  EXPECT_EQ(Out(), "and to all\n");
}

TEST_F(Child, ThatReadsNothingOfItsInputEndsAsItWants) {
  support::WriteFile(Path("in"), std::string(1 << 20, 'x'));
  for (const char* text : {"exit 3", "exec 0<&-; exit 3", "head -c 10 >/dev/null; exit 3"}) {
    ChildRequest request = Shell(text);
    request.input = std::string(1 << 20, 'y');
    request.inputFile = Path("in");
    EXPECT_EQ(Run(request).status, 3) << text;
    request.isKeptAlive = true;
    EXPECT_EQ(Run(request).status, 3) << text;
  }
}

TEST_F(Child, ThatIsKeptAliveSeesNoEndOfItsInput) {
  ChildRequest request = Shell("read line; echo \"$line\"; read beat; echo \"<$beat>\"; exit 0");
  request.input = "first\n";
  request.isKeptAlive = true;
  EXPECT_TRUE(Run(request).IsDone());
  EXPECT_EQ(Out(), "first\n<>\n");
}

// ---- How it is ended ----------------------------------------------------------------------------

TEST_F(Child, ThatHangsIsLate) {
  ChildRequest request = Shell("sleep 1000");
  request.limit = milliseconds(100);
  const ChildEnd end = Run(request);
  EXPECT_TRUE(end.wasLate);
  EXPECT_EQ(end.signal, SIGTERM);
  EXPECT_FALSE(end.IsDone());
  EXPECT_EQ(DescribeChildEnd(end), "took longer than 1 s");
}

// As a board does at its first chunk while others do theirs, and nothing else tells what is long.
TEST_F(Child, ThatHangsIsLateByALimitThatIsKnownLater) {
  ChildRequest request = Shell("sleep 1000");
  int asked = 0;
  request.laterLimit = [&]() -> std::optional<milliseconds> {
    if (++asked < 2) return std::nullopt;
    return milliseconds(1500);
  };
  const ChildEnd end = Run(request);
  EXPECT_TRUE(end.wasLate);
  EXPECT_EQ(end.signal, SIGTERM);
  EXPECT_EQ(asked, 2);
  EXPECT_EQ(DescribeChildEnd(end), "took longer than 2 s");
}

TEST_F(Child, ThatHasALimitIsGivenNoOther) {
  ChildRequest request = Shell("sleep 1000");
  request.limit = milliseconds(2500);
  request.laterLimit = []() -> std::optional<milliseconds> {
    ADD_FAILURE() << "nobody has to ask";
    return milliseconds(0);
  };
  EXPECT_EQ(DescribeChildEnd(Run(request)), "took longer than 3 s");
}

TEST_F(Child, ThatIgnoresToBeAskedIsKilledWithAllOfItsGroup) {
  ChildRequest request =
      Shell("trap '' TERM; sleep 1000 & echo $! >\"$0.pid\"; while :; do wait; done");
  request.command.back() = Path("child");
  request.limit = milliseconds(1);
  request.grace = milliseconds(1);
  // It may come to be killed before it wrote anything, so that it is asked late enough.
  request.limit = milliseconds(100);
  while (!fs::exists(Path("child.pid")) || support::ReadFile(Path("child.pid")).empty()) {
    const ChildEnd end = Run(request);
    EXPECT_TRUE(end.wasLate);
    EXPECT_EQ(end.signal, SIGKILL);
    request.limit = *request.limit * 2;
  }
  AwaitNobody(std::stoi(support::ReadFile(Path("child.pid"))));
}

// Over a connection that is all that whoever is at the other end hears of it.
TEST_F(Child, ThatIsKeptAliveIsAskedByTheEndOfItsInput) {
  ChildRequest request = Shell("trap 'exit 9' TERM; while read line; do :; done; exit 4");
  request.isKeptAlive = true;
  request.limit = milliseconds(100);
  request.grace = std::chrono::minutes(10);
  const ChildEnd end = Run(request);
  EXPECT_TRUE(end.wasLate);
  EXPECT_EQ(end.status, 4);
  EXPECT_FALSE(end.IsDone());
}

TEST_F(Child, IsStoppedWithWhoeverWaitsForIt) {
  ChildRequest request = Shell("echo began; exec sleep 1000");
  bool isAsked = false;
  request.tick = [&] {
    if (!isAsked && support::ReadFile(Path("out")) == "began\n") {
      isAsked = true;
      kill(getpid(), SIGINT);
    }
  };
  // What came takes effect behind it, and would end the test.
  struct sigaction ignore {};
  struct sigaction before {};
  ignore.sa_handler = SIG_IGN;
  ChildEnd end;
  {
    StopSignals signals;
    end = RunChild(request, signals);
    EXPECT_EQ(signals.Asked(), SIGINT);
    // From then on nothing that is begun goes on.
    EXPECT_TRUE(RunChild(Shell("exec sleep 1000"), signals).wasStopped);
    sigaction(SIGINT, &ignore, &before);
  }
  sigaction(SIGINT, &before, nullptr);
  EXPECT_TRUE(end.wasStopped);
  EXPECT_FALSE(end.wasLate);
  EXPECT_EQ(DescribeChildEnd(end), "was stopped");
}

TEST_F(Child, DoesNotOutliveWhoeverStartedIt) {
  const pid_t starts = fork();
  if (starts == 0) {
    ChildRequest request = Shell("echo $$; exec sleep 1000");
    StopSignals signals;
    (void)RunChild(request, signals);
    _exit(0);
  }
  while (!fs::exists(Path("out")) || !Out().ends_with('\n')) {
    std::this_thread::sleep_for(milliseconds(1));
  }
  const pid_t child = std::stoi(Out());
  kill(starts, SIGKILL);
  waitpid(starts, nullptr, 0);
  AwaitNobody(child);
}

// ---- The last line ------------------------------------------------------------------------------

TEST_F(Child, LastLineIsWhatASuccessorCanPrint) {
  EXPECT_EQ(LastLineOf(Path("none")), "");
  const auto last = [&](const std::string& text) {
    support::WriteFile(Path("text"), text);
    return LastLineOf(Path("text"));
  };
  EXPECT_EQ(last(""), "");
  EXPECT_EQ(last("\n\r\n\n"), "");
  EXPECT_EQ(last("one"), "one");
  EXPECT_EQ(last("one\ntwo\r\n\n"), "two");
  EXPECT_EQ(last("one\n\x1B[2Jtwo\n"), "\\x1B[2Jtwo");
  const std::string ofTar = "tar: Exiting with failure status due to previous errors\n";
  EXPECT_EQ(last("tar: x: Cannot write: No space left on device\n" + ofTar),
            "tar: x: Cannot write: No space left on device");
  EXPECT_EQ(last(ofTar), ofTar.substr(0, ofTar.size() - 1));
  EXPECT_EQ(last(std::string(9000, '\n') + "end\n" + std::string(100, '\n')), "end");
}

}  // namespace
