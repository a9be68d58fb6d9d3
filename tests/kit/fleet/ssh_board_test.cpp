#include "kit/fleet/ssh_board.h"

#include <gtest/gtest.h>

#include "support/command.h"

namespace {

using vorn::kit::ShellWord;

// What a shell makes of a word, followed by a byte, so that line ends at its end are kept.
std::string FromShell(const std::string& word) {
  support::Command command;
  command.program = "/bin/sh";
  command.arguments = {"-c", "printf '%s.' " + ShellWord(word)};
  const support::Outcome outcome = RunCommand(command);
  EXPECT_EQ(outcome.status, 0) << outcome.Describe();
  return outcome.out;
}

TEST(ShellWordTest, IsAnyByteButNul) {
  std::string all;
  for (int byte = 1; byte < 256; ++byte) all += static_cast<char>(byte);
  EXPECT_EQ(FromShell(all), all + ".");
}

TEST(ShellWordTest, IsOneWordWhateverItHolds) {
  for (const std::string word : {"", "'", "''", "a'b'c", "$(touch x)", "`x`", "-n", "a b", "\n\n",
                                 "\\", "\\'", "*", "~", "#", "!x", "a=b", "\xFF\xFE"}) {
    EXPECT_EQ(FromShell(word), word + ".");
  }
}

// Over ssh a word passes two shells.
TEST(ShellWordTest, PassesAsManyShellsAsThereAre) {
  const std::string word = "it's \"a\" $word\n`";
  EXPECT_EQ(FromShell(ShellWord(ShellWord(word))), ShellWord(ShellWord(word)) + ".");
  support::Command command;
  command.program = "/bin/sh";
  command.arguments = {"-c", "/bin/sh -c " + ShellWord("printf '%s.' " + ShellWord(word))};
  EXPECT_EQ(RunCommand(command).out, word + ".");
}

TEST(BoardFileTest, LiesByItsHash) {
  EXPECT_EQ(vorn::kit::PlaceOnBoard("0123"), "01/0123");
  EXPECT_EQ(vorn::kit::FileInJob("0123"), "../../files/01/0123");
}

}  // namespace
