// Tests support/command.cpp.
#include "support/command.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include "support/files.h"

namespace support {
namespace {

Command Shell(const std::string& text) {
  Command command;
  command.program = "/bin/sh";
  command.arguments = {"-c", text};
  return command;
}

TEST(RunCommand, KeepsTheTwoTextsApartAndTheStatus) {
  const Outcome outcome = RunCommand(Shell("echo to out; echo to err >&2; exit 3"));
  EXPECT_EQ(outcome.status, 3);
  EXPECT_FALSE(outcome.signal);
  EXPECT_EQ(outcome.out, "to out\n");
  EXPECT_EQ(outcome.err, "to err\n");
}

TEST(RunCommand, TellsTheSignal) {
  const Outcome outcome = RunCommand(Shell("kill -FPE $$"));
  EXPECT_EQ(outcome.signal, SIGFPE);
  EXPECT_FALSE(outcome.status);
  EXPECT_FALSE(outcome.timedOut);
}

TEST(RunCommand, TakesMoreThanAPipeHolds) {
  const Outcome outcome =
      RunCommand(Shell("head -c 300000 /dev/zero; head -c 300000 /dev/zero >&2"));
  EXPECT_EQ(outcome.out.size(), 300000u);
  EXPECT_EQ(outcome.err.size(), 300000u);
}

TEST(RunCommand, LaysTheEnvironmentOverThisOne) {
  setenv("VORN_TEST_KEPT", "kept", 1);
  setenv("VORN_TEST_TAKEN", "taken", 1);
  Command command = Shell("echo $VORN_TEST_KEPT $VORN_TEST_TAKEN $VORN_TEST_NEW");
  command.environment = {{"VORN_TEST_TAKEN", std::nullopt}, {"VORN_TEST_NEW", "new"}};
  EXPECT_EQ(RunCommand(command).out, "kept new\n");
}

TEST(RunCommand, RunsInTheGivenFolderWithAnEmptyInput) {
  const TempDir folder;
  Command command = Shell("pwd; cat");
  command.directory = folder.Path();
  EXPECT_EQ(RunCommand(command).out, folder.Path().string() + "\n");
}

TEST(RunCommand, KillsWhatTakesTooLong) {
  Command command = Shell("exec sleep 60");
  command.timeout = std::chrono::seconds(1);
  const Outcome outcome = RunCommand(command);
  EXPECT_TRUE(outcome.timedOut);
  EXPECT_EQ(outcome.signal, SIGKILL);
}

TEST(RunCommand, ClosesStandardOutputOnDemand) {
  Command command = Shell("echo text || echo refused >&2");
  command.stdoutGoes = Command::Stdout::kClosed;
  const Outcome outcome = RunCommand(command);
  EXPECT_EQ(outcome.out, "");
  EXPECT_NE(outcome.err.find("refused"), std::string::npos);
}

TEST(RunCommand, LetsStandardOutputGoToADescriptor) {
  const TempDir folder;
  Command command = Shell("echo text");
  command.stdoutGoes = Command::Stdout::kDescriptor;
  command.descriptor = open((folder.Path() / "file").c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
  const Outcome outcome = RunCommand(command);
  close(command.descriptor);
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(ReadFile(folder.Path() / "file"), "text\n");
}

TEST(RunCommand, ThrowsOverAProgramThatIsNotThere) {
  Command command;
  command.program = "/nowhere/at/all";
  EXPECT_THROW((void)RunCommand(command), std::runtime_error);
}

}  // namespace
}  // namespace support
