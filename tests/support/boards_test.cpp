#include "support/boards.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

namespace {

using support::Outcome;

class BoardsTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!support::CanHaveBoards()) GTEST_SKIP() << "there is no sshd";
  }

  static support::Command Ssh(const support::Boards& boards, const std::string& board,
                              const std::string& words) {
    support::Command command;
    command.program = "ssh";
    command.arguments = {"-n", "-F", boards.SshConfig(), board, words};
    return command;
  }

  static bool Runs(pid_t pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/cmdline");
    return file.get() != EOF;  // there is none of a process that has ended
  }

  static Outcome On(const support::Boards& boards, const std::string& board,
                    const std::string& words) {
    return RunCommand(Ssh(boards, board, words));
  }
};

TEST_F(BoardsTest, RunWhatTheyAreSent) {
  const support::Boards boards(2, {"ForceCommand echo instead of $SSH_ORIGINAL_COMMAND; exit 3"});
  const Outcome ended = On(boards, "b2", "this");
  EXPECT_EQ(ended.status, 3) << ended.Describe();
  EXPECT_EQ(ended.out, "instead of this\n");
  EXPECT_EQ(On(boards, "b1", "").status, 3);
  EXPECT_EQ(On(boards, "b3", "exit 0").status, 255);  // nobody knows it
}

TEST_F(BoardsTest, AreKilledWithAllThatTheyStarted) {
  const support::Boards boards(1);
  const support::TempDir folder;
  const std::string file = folder.Path() / "pid";
  support::Command command = Ssh(boards, "b1", "sleep 1000 & echo $! >'" + file + "'; wait");
  const pid_t waits = fork();
  if (waits == 0) _exit(RunCommand(command).status == 255 ? 0 : 1);
  while (!std::filesystem::exists(file) || support::ReadFile(file).empty()) usleep(1000);
  boards.Do("kill", "b1");
  EXPECT_EQ(On(boards, "b1", "exit 0").status, 255);
  const pid_t sleeps = std::stoi(support::ReadFile(file));
  while (Runs(sleeps)) usleep(1000);  // who waits for it now, and when, is not known
  int status = 1;
  EXPECT_EQ(waitpid(waits, &status, 0), waits);
  EXPECT_EQ(status, 0);
  boards.Do("again", "b1");
  EXPECT_EQ(On(boards, "b1", "exit 0").status, 0);
}

TEST_F(BoardsTest, LoseConnectionsAndGoOn) {
  const support::Boards boards(1);
  const support::TempDir folder;
  const std::string began = folder.Path() / "began";
  const std::string went = folder.Path() / "went";
  const std::string isCut = folder.Path() / "isCut";
  const support::Command command =
      Ssh(boards, "b1",
          "touch '" + began + "'; while ! [ -e '" + isCut + "' ]; do sleep 0.01; done; touch '" +
              went + "'; sleep 1000");
  const pid_t waits = fork();
  if (waits == 0) _exit(RunCommand(command).status == 255 ? 0 : 1);
  while (!std::filesystem::exists(began)) usleep(1000);
  boards.Do("cut", "b1");
  int status = 1;
  EXPECT_EQ(waitpid(waits, &status, 0), waits);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(On(boards, "b1", "exit 0").status, 0);
  support::WriteFile(isCut, "");
  while (!std::filesystem::exists(went)) usleep(1000);  // by the process that nobody told
}

}  // namespace
