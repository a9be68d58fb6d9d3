// The three streams of a process: closed, full, or with nobody at the other end.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include "e2e/expected.h"
#include "e2e/surroundings.h"

namespace e2e {
namespace {

using support::Stage;
using support::Transcript;

/// Both files of the plain run are there and hold nothing but its values.
void ExpectPlainFiles(const Transcript& run) {
  ASSERT_EQ(run.files.size(), 2u) << run.Describe();
  EXPECT_EQ(run.files.at("0/prob.0.T.bin"), support::Bytes(kPlainOutput));
  EXPECT_EQ(run.files.at("0/prob.0.T.float"), TextDump(kPlainOutput));
}

TEST(StandardInput, MayBeClosed) {
  Stage stage;
  SetPlain(&stage);
  stage.launcher = AfterShell("exec <&-");
  const Transcript run = stage.Run();
  ExpectStatus(run, 0);
  EXPECT_EQ(run.lines, PlainRun(stage.script));
  ExpectPlainFiles(run);
  ExpectClean(run);
}

TEST(StandardInput, IsNotRead) {
  Stage stage;
  SetPlain(&stage);
  stage.File("left", "untouched\n");
  stage.launcher = {"/bin/sh", "-c", "(\"$@\"; cat >rest) <left", "sh"};
  ExpectStatus(stage.Run(), 0);
  EXPECT_EQ(support::ReadFile(stage.Folder() / "rest"), "untouched\n");
}

TEST(StandardError, MayBeClosed) {
  Stage stage;
  SetPlain(&stage);
  stage.launcher = AfterShell("exec 2>&-");
  const Transcript run = stage.Run();
  ExpectStatus(run, 0);
  EXPECT_EQ(run.lines, PlainRun(stage.script));
  ExpectPlainFiles(run);
}

TEST(StandardError, ThatIsClosedLeavesAMalformedNumberFatal) {
  Stage stage;
  SetPlain(&stage);
  stage.launcher = AfterShell("exec 2>&-");
  const Transcript run = stage.Run({"-b", "x"});
  EXPECT_EQ(run.signal, SIGABRT) << run.Describe();
  EXPECT_EQ(run.record.Lines(), Lines{});
}

TEST(StandardError, ThatIsClosedLeavesTheUsageLineOnStandardOutput) {
  Stage stage;
  SetPlain(&stage);
  stage.launcher = AfterShell("exec 2>&-");
  const Transcript run = stage.Run({"-x"});
  ExpectStatus(run, 0);
  EXPECT_EQ(run.lines[0],
            "[ERROR] example: -m modelPath -i imagePath -j vornJsonPath [-t nlpTotalT] "
            "[-b batchSize] [-r rpnData] [-p profile] [-o outputPath]");
}

// Files that are opened then take the numbers of the streams; no line may end up in them.
TEST(StandardStreams, MayAllBeClosed) {
  Stage stage;
  SetPlain(&stage);
  stage.launcher = AfterShell("exec <&- >&- 2>&-");
  const Transcript run = stage.Run();
  ExpectStatus(run, 0);
  EXPECT_EQ(run.lines, Lines{});
  ExpectPlainFiles(run);
  for (const std::string& line : run.record.Lines()) EXPECT_NE(line[0], '[') << line;
  for (const char* name : {"model.om", "list.txt", "vorn.json", "a.bin"}) {
    EXPECT_EQ(support::ReadFile(stage.Folder() / name).find("[INFO]"), std::string::npos) << name;
  }
  ExpectClean(run);
}

TEST(StandardOutput, WithoutAReaderEndsTheRunByItsSignal) {
  Stage stage;
  SetPlain(&stage);
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  close(ends[0]);
  stage.stdoutGoes = support::Command::Stdout::kDescriptor;
  stage.descriptor = ends[1];
  const auto before = signal(SIGPIPE, SIG_DFL);
  const Transcript run = stage.Run();
  signal(SIGPIPE, before);
  close(ends[1]);
  EXPECT_EQ(run.signal, SIGPIPE) << run.Describe();
}

TEST(StandardOutput, WithoutAReaderMayBeIgnored) {
  Stage stage;
  SetPlain(&stage);
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  close(ends[0]);
  stage.stdoutGoes = support::Command::Stdout::kDescriptor;
  stage.descriptor = ends[1];
  stage.launcher = AfterShell("trap '' PIPE");
  const Transcript run = stage.Run();
  close(ends[1]);
  ExpectStatus(run, 0);
  ExpectPlainFiles(run);
  ExpectClean(run);
}

TEST(StandardOutput, ThatIsFullDoesNotChangeAFailure) {
  Stage stage;
  SetPlain(&stage);
  stage.List({"none.bin"});
  stage.launcher = AfterShell("exec >/dev/full");
  const Transcript run = stage.Run();
  ExpectStatus(run, 1);
  ExpectClean(run);
}

// Lines are out before the process ends, whichever way it ends.
TEST(StandardOutput, HasEveryLineOfARunThatADivisionEnded) {
  Stage stage;
  SetPlain(&stage);
  stage.launcher = AfterShell("exec >said");
  const Transcript run = stage.Run({"-r", "r1"});
  EXPECT_TRUE(run.EndedByDivision()) << run.Describe();
  const Lines said = support::SplitLines(support::ReadFile(stage.Folder() / "said"));
  ASSERT_FALSE(said.empty());
  EXPECT_EQ(said.back(), "[INFO]  Model inputNum: 0");
}

}  // namespace
}  // namespace e2e
