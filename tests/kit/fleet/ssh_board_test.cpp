#include "kit/fleet/ssh_board.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <vector>

#include "kit/common/fault.h"
#include "kit/common/file_identity.h"
#include "support/boards.h"
#include "support/command.h"
#include "support/files.h"

namespace {

namespace fs = std::filesystem;

using testing::AllOf;
using testing::HasSubstr;
using vorn::kit::Blame;
using vorn::kit::Board;
using vorn::kit::BoardEnd;
using vorn::kit::BoardWork;
using vorn::kit::ShellWord;
using vorn::kit::SshBoard;

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

std::string AnswerOf(const std::vector<std::string>& shell, const std::string& text) {
  support::Command command;
  command.program = shell.at(0);
  command.arguments.assign(shell.begin() + 1, shell.end());
  command.arguments.insert(command.arguments.end(), {"-c", text});
  const support::Outcome outcome = RunCommand(command);
  EXPECT_EQ(outcome.status, 0) << outcome.Describe();
  return outcome.out;
}

TEST(BoardCommandTest, HandsOverWordsOfAnyByteToEveryShell) {
  std::string all;
  for (int byte = 1; byte < 256; ++byte) all += static_cast<char>(byte);
  const std::vector<std::string> words{all, "", "-n", "it's \"a\" $word\n`", "!!", "\\", "a\n\n"};
  std::string expected;
  for (const std::string& word : words) expected += word + "|";
  const std::string script = "for word in \"$@\"; do printf '%s|' \"$word\"; done\n";
  const std::string command = vorn::kit::BoardCommand(script, words);
  for (const std::vector<std::string>& shell :
       std::vector<std::vector<std::string>>{{"/bin/sh"},
                                             {"/bin/bash"},
                                             {"/bin/csh", "-f"},
                                             {"/bin/busybox", "sh"},
                                             {"/bin/zsh"},
                                             {"/usr/bin/fish"}}) {
    if (!fs::exists(shell[0])) continue;
    EXPECT_EQ(AnswerOf(shell, command), expected) << shell[0];
  }
}

// Of what stands between single quotes csh takes '!' and line ends for itself, and fish the
// backslash before a quote.
TEST(BoardCommandTest, HasNothingThatAShellTakesForItself) {
  const std::string command = vorn::kit::BoardCommand("[ ! -d x ] &&\n  echo \xC3\xA4",
                                                      {"it's", "a!b", std::string(2000, 'x')});
  for (const char c : command) EXPECT_TRUE(c >= ' ' && c < 0x7F) << int{c};
  EXPECT_EQ(command.find('!'), std::string::npos);
  EXPECT_EQ(command.find("\\'"), std::string::npos);
  size_t longest = 0;
  for (size_t at = 0; at < command.size();) {
    const size_t end = std::min(command.find('\'', at), command.size());
    longest = std::max(longest, end - at);
    at = end + 1;
  }
  EXPECT_LT(longest, 1024U);  // as much as the word of an old csh holds
}

TEST(BoardFileTest, LiesByItsHash) { EXPECT_EQ(vorn::kit::FileInJob("0123"), "../../files/0123"); }

// ---- A board ------------------------------------------------------------------------------------

/// With a program for vorn-launch that leaves a run directory of one file.
class SshBoardTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!support::CanHaveBoards()) GTEST_SKIP() << "there is no sshd";
    support::WriteFile(Path("tools/vorn-launch"),
                       "#!/bin/sh\nmkdir run\necho {} >run/run.json\necho \"$@\" >run/words\n"
                       "sh ../../tools/*/vorn-run >&2\n");
    support::WriteFile(Path("tools/vorn-run"), "echo it ran\n");
    fs::permissions(Path("tools/vorn-launch"), fs::perms::owner_all);
    fs::create_directories(Path("sockets"));
    board_.name = "b1";
    board_.host = "b1";
    board_.work = Path("work");
  }

  void Start(const std::vector<std::string>& lines = {}) {
    boards_ = std::make_unique<support::Boards>(1, lines);
    board_.ssh = {"-F", boards_->SshConfig()};
  }

  std::string Path(const std::string& name) const { return (folder_.Path() / name).string(); }
  static const std::string& PathBefore() {
    const char* found = getenv("PATH");
    static const std::string path = found == nullptr ? "/usr/bin:/bin" : found;
    return path;
  }
  std::string ToolsId() { return vorn::kit::FindTools(Path("tools"), Path(""), signals_).id; }

  BoardEnd Run(std::vector<vorn::kit::BoardFile> files = {}) {
    const std::string part = Path("part" + std::to_string(++runs_));
    fs::create_directories(part);
    const vorn::kit::Tools tools = vorn::kit::FindTools(Path("tools"), part, signals_);
    SshBoard board(board_, tools, 1, Path("sockets"), Path("lock"), signals_);
    BoardWork work;
    work.id = "0123-4-1";
    work.folder = part;
    work.files = std::move(files);
    BoardEnd end = board.Run(work);
    said_ = fs::exists(part + "/run.err") ? support::ReadFile(part + "/run.err") : "";
    hasRunFolder_ = fs::exists(part + "/run/words");
    board.Close(part);
    return end;
  }

  void ExpectToRun() {
    const BoardEnd end = Run();
    EXPECT_TRUE(end.hasRun);
    EXPECT_TRUE(hasRunFolder_);
    EXPECT_EQ(end.reason, "");
    EXPECT_NE(said_.find("it ran\n"), std::string::npos) << said_;
    EXPECT_NE(end.bootId, "");
  }

  Board board_;
  support::TempDir folder_;
  std::unique_ptr<support::Boards> boards_;
  vorn::kit::StopSignals signals_;
  std::string said_;
  bool hasRunFolder_ = false;
  int runs_ = 0;
};

TEST_F(SshBoardTest, RunsAndFetches) {
  Start();
  ExpectToRun();
  EXPECT_TRUE(fs::is_empty(Path("work/jobs")));
}

// As a home does that all boards have from one server: what runs there is known to nobody else.
TEST_F(SshBoardTest, LeavesJobsOfOtherBoardsAlone) {
  Start();
  const std::string none = ".00000000-0000-0000-0000-000000000000.";
  const std::string nobody = "4194999";  // beyond the numbers of processes
  for (const std::string& left :
       std::vector<std::string>{"jobs/b1=x" + none + nobody, "jobs/b2=x" + none + nobody,
                                "in.b1=" + none + nobody, "in.b2=" + none + nobody}) {
    fs::create_directories(Path("work/" + left));
  }
  ExpectToRun();
  EXPECT_FALSE(fs::exists(Path("work/jobs/b1=x" + none + nobody)));
  EXPECT_TRUE(fs::exists(Path("work/jobs/b2=x" + none + nobody)));
  EXPECT_FALSE(fs::exists(Path("work/in.b1=" + none + nobody)));
  EXPECT_TRUE(fs::exists(Path("work/in.b2=" + none + nobody)));
}

// As where ssh could write none of what came, which the board had sent before it heard of that; and
// there is room again by the time anybody looks.
TEST_F(SshBoardTest, IsNotBlamedForWhatCouldNotBeWrittenHere) {
  for (const char* status : {"0", "7", "8"}) {
    support::WriteFile(
        Path("tools/vorn-launch"),
        "#!/bin/sh\nmkdir run\necho {} >run/run.json\nexit " + std::string(status) + "\n");
    support::WriteFile(Path("calls"), "");
    // It looks, sends, and launches.
    support::WriteFile(Path("bin/ssh"), "#!/bin/sh\necho >>'" + Path("calls") +
                                            "'\n[ \"$(wc -l <'" + Path("calls") +
                                            "')\" != 3 ] || exec >/dev/null\nPATH=" + PathBefore() +
                                            " exec ssh \"$@\"\n");
    fs::permissions(Path("bin/ssh"), fs::perms::owner_all);
    if (boards_ == nullptr) Start();
    setenv("PATH", (Path("bin") + ":" + PathBefore()).c_str(), 1);
    std::string said = "nothing";
    try {
      said = "ended: " + Run().reason;
    } catch (const vorn::kit::Fault& fault) {
      EXPECT_EQ(fault.Status(), vorn::kit::ExitStatus::kLimit);
      said = fault.what();
    }
    setenv("PATH", PathBefore().c_str(), 1);
    EXPECT_THAT(said, HasSubstr("what came from the board could not be written")) << status;
  }
}

// As a loss of power leaves files that were written just before it.
TEST_F(SshBoardTest, IsSentToolsAgainOfWhichOneIsEmpty) {
  Start();
  ExpectToRun();
  support::WriteFile(Path("work/tools/" + ToolsId() + "/vorn-run"), "");
  ExpectToRun();
  fs::remove(Path("work/tools/" + ToolsId() + "/vorn-launch"));
  ExpectToRun();
}

TEST_F(SshBoardTest, MayHaveALoginThatTalks) {
  Start({"ForceCommand echo Welcome; echo; eval \"$SSH_ORIGINAL_COMMAND\""});
  ExpectToRun();
}

// It is put aside as any other that fails, and the rest goes on.
TEST_F(SshBoardTest, MayHaveALoginThatDoesNothingElse) {
  Start({"ForceCommand echo Welcome; echo Bye"});
  const BoardEnd end = Run();
  EXPECT_FALSE(end.hasRun);
  EXPECT_EQ(end.blame, Blame::kBoard);
  EXPECT_EQ(end.reason,
            "the login of 'b1' does not run what it is asked to, and ends with status 0; it said: "
            "Bye");
}

TEST_F(SshBoardTest, MayHaveALoginThatTalksWhereTheLaunchFails) {
  support::WriteFile(Path("tools/vorn-launch"), "#!/bin/sh\necho no device >&2\nexit 5\n");
  fs::permissions(Path("tools/vorn-launch"), fs::perms::owner_all);
  Start({"ForceCommand echo Welcome; eval \"$SSH_ORIGINAL_COMMAND\""});
  const BoardEnd end = Run();
  EXPECT_FALSE(end.hasRun);
  EXPECT_EQ(end.blame, Blame::kBoard);
  EXPECT_EQ(end.reason, "the launch ended with status 5; it said: no device");
}

TEST_F(SshBoardTest, MayBeOneThatAPersonHasACommandFor) {
  Start();
  const std::string config = support::ReadFile(boards_->SshConfig());
  support::WriteFile(Path("config"),
                     "Host b1\n  RemoteCommand echo hello\n  RequestTTY force\n"
                     "  PermitLocalCommand yes\n  LocalCommand echo connected\n" +
                         config);
  board_.ssh = {"-F", Path("config")};
  ExpectToRun();
}

TEST_F(SshBoardTest, MayHaveALoginOfCsh) {
  if (!fs::exists("/bin/csh")) GTEST_SKIP() << "there is no csh";
  Start({"ForceCommand exec /bin/csh -c \"$SSH_ORIGINAL_COMMAND\""});
  board_.environment = {{"WORD", "it's! \\$x"}};
  ExpectToRun();
}

TEST_F(SshBoardTest, MayHaveALoginOfBusybox) {
  if (!fs::exists("/bin/busybox")) GTEST_SKIP() << "there is no busybox";
  Start({"ForceCommand exec /bin/busybox sh -c \"$SSH_ORIGINAL_COMMAND\""});
  board_.environment = {{"WORD", "it's! \\$x"}};
  ExpectToRun();
}

TEST_F(SshBoardTest, IsToldWhatItLacks) {
  fs::create_directories(Path("bin"));
  for (const char* name : {"cat", "env", "find", "mkdir", "rm", "sed", "sh", "uname"}) {
    fs::create_symlink(fs::exists(std::string("/bin/") + name) ? std::string("/bin/") + name
                                                               : std::string("/usr/bin/") + name,
                       Path("bin/") + name);
  }
  Start({"ForceCommand PATH=" + Path("bin") +
         "; export PATH; exec /bin/sh -c \"$SSH_ORIGINAL_COMMAND\""});
  const BoardEnd end = Run();
  EXPECT_FALSE(end.hasRun);
  EXPECT_EQ(end.blame, Blame::kBoard);
  EXPECT_EQ(end.reason,
            "there is no tar on the board, or not in the PATH of its login; install it there");
}

TEST_F(SshBoardTest, IsToldThatItsProcessorIsAnotherOne) {
  support::WriteFile(Path("tools/vorn-launch"), "#!/bin/sh\necho 1: Syntax error >&2\nexit 2\n");
  support::WriteFile(Path("bin/uname"),
                     "#!/bin/sh\n[ \"$1\" != -m ] || exec echo vax\nexec /usr/bin/uname \"$@\"\n");
  for (const char* program : {"tools/vorn-launch", "bin/uname"}) {
    fs::permissions(Path(program), fs::perms::owner_all);
  }
  Start({"ForceCommand PATH=" + Path("bin") +
         ":$PATH; export PATH; exec /bin/sh -c \"$SSH_ORIGINAL_COMMAND\""});
  const BoardEnd end = Run();
  EXPECT_EQ(end.blame, Blame::kBoard);
  EXPECT_THAT(
      end.reason,
      AllOf(HasSubstr("the launch ended with status 2; it said: 1: Syntax error; the programs"),
            HasSubstr("the board is another one (vax): name some for it as 'tools'")));
  // Where they are for the board it is something else.
  board_.tools = Path("tools");
  EXPECT_EQ(Run().reason, "the launch ended with status 2; it said: 1: Syntax error");
}

// By which a cd goes elsewhere, and says so.
TEST_F(SshBoardTest, MayHaveAPathForFolders) {
  fs::create_directories(Path("other/work"));
  Start({"ForceCommand cd " + folder_.Path().string() + "; export CDPATH=" + Path("other") +
         "; eval \"$SSH_ORIGINAL_COMMAND\""});
  board_.work = "work";
  ExpectToRun();
  EXPECT_TRUE(fs::is_empty(Path("other/work")));
}

// It is no fault of the board's that a file is no more what was planned.
TEST_F(SshBoardTest, IsSentNothingThatHasChanged) {
  Start();
  support::WriteFile(Path("input.bin"), "as planned");
  const auto file =
      vorn::kit::IdentifyFile(Path("input.bin"), "an input", vorn::kit::ExitStatus::kInput);
  const vorn::kit::BoardFile planned{.hash = file.xxh3.value_or(""), .path = Path("input.bin")};
  EXPECT_TRUE(Run({planned}).hasRun);
  fs::remove_all(Path("work/files"));
  support::WriteFile(Path("input.bin"), "by another");
  try {
    (void)Run({planned});
    ADD_FAILURE() << "it was sent";
  } catch (const vorn::kit::Fault& fault) {
    EXPECT_EQ(fault.Status(), vorn::kit::ExitStatus::kInput);
    EXPECT_NE(std::string(fault.what()).find("input.bin' has changed"), std::string::npos);
  }
}

}  // namespace
